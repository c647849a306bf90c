// Android's reference counting lives in libutils.so, which sanitizers do not see into. These cases
// release objects across threads the way the library does (callbacks, devices, the sub-HAL), so the
// ASan and TSan builds prove that they stay clean and that scripts/tsan.supp hides only
// what it says.
#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <thread>
#include <vector>

namespace android {
namespace {

constexpr uint32_t kAliveMagic = 0x5eed1e55;

struct Counters {
    std::atomic<int> destroyed{0};
};

class Tracked : public virtual RefBase {
  public:
    explicit Tracked(Counters* counters) : mCounters(counters) {}
    ~Tracked() override {
        mMagic = 0;
        mCounters->destroyed++;
    }
    bool alive() const { return mMagic == kAliveMagic; }

  private:
    Counters* mCounters;
    uint32_t mMagic = kAliveMagic;
};

// Two paths to RefBase, both virtual, so converting to RefBase reads the object.
class Left : public virtual RefBase {
  public:
    int left = 1;
};
class Right : public virtual RefBase {
  public:
    int right = 2;
};
class Diamond : public Left, public Right {
  public:
    explicit Diamond(Counters* counters) : mCounters(counters) {}
    ~Diamond() override { mCounters->destroyed++; }

  private:
    Counters* mCounters;
};

// Threads copy strong references and promote weak ones while the last strong references go away.
// The object must be deleted exactly once, and never while someone holds a promoted reference.
TEST(RefBaseConcurrency, CopiesAndPromotesRaceWithTheLastRelease) {
    constexpr int kRounds = 200;
    constexpr int kThreads = 4;
    for (int round = 0; round < kRounds; ++round) {
        Counters counters;
        sp<Tracked> owner = sp<Tracked>(new Tracked(&counters));
        wp<Tracked> weak = owner;
        std::atomic<bool> go{false};
        std::atomic<int> badPromotions{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&go, &badPromotions, mine = owner, weak]() mutable {
                while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
                for (int i = 0; i < 20; ++i) {
                    sp<Tracked> copy = mine;
                    sp<RefBase> asBase = copy;
                    if (!copy->alive()) badPromotions++;
                }
                mine.clear();
                for (int i = 0; i < 50; ++i) {
                    wp<Tracked> weakCopy = weak;
                    sp<Tracked> promoted = weakCopy.promote();
                    if (promoted && !promoted->alive()) badPromotions++;
                }
            });
        }
        go.store(true, std::memory_order_release);
        owner.clear();
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(0, badPromotions.load());
        ASSERT_EQ(1, counters.destroyed.load()) << "round " << round;
        EXPECT_EQ(nullptr, weak.promote());
    }
}

TEST(RefBaseConcurrency, VirtualBaseCopiesAcrossThreads) {
    constexpr int kThreads = 4;
    Counters counters;
    sp<Diamond> owner = sp<Diamond>(new Diamond(&counters));
    wp<Diamond> weak = owner;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([mine = sp<Left>(owner), weak]() mutable {
            for (int i = 0; i < 200; ++i) {
                wp<RefBase> weakBase = weak;
                sp<RefBase> base = weakBase.promote();
                sp<Left> left = mine;
            }
            mine.clear();
        });
    }
    owner.clear();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(1, counters.destroyed.load());
    EXPECT_EQ(nullptr, weak.promote());
}

}  // namespace
}  // namespace android
