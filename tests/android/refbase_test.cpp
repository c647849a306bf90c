#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <thread>
#include <vector>

namespace android {
namespace {

constexpr uint32_t kAliveMagic = 0x5eed1e55;

struct Counters {
    std::atomic<int> firstRefs{0};
    std::atomic<int> lastStrongRefs{0};
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

  protected:
    void onFirstRef() override { mCounters->firstRefs++; }
    void onLastStrongRef(const void*) override { mCounters->lastStrongRefs++; }

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

TEST(StrongPointer, LastReleaseDeletesOnceWithHooks) {
    Counters counters;
    sp<Tracked> a = sp<Tracked>::make(&counters);
    EXPECT_EQ(1, a->getStrongCount());
    sp<Tracked> b = a;
    sp<Tracked> c;
    c = b;
    EXPECT_EQ(3, a->getStrongCount());
    a.clear();
    b = nullptr;
    EXPECT_EQ(0, counters.destroyed);
    sp<Tracked>& alias = c;
    c = alias;  // self-assignment keeps the reference
    EXPECT_EQ(1, c->getStrongCount());
    c.clear();
    EXPECT_EQ(1, counters.firstRefs);
    EXPECT_EQ(1, counters.lastStrongRefs);
    EXPECT_EQ(1, counters.destroyed);
}

TEST(StrongPointer, MoveTransfersWithoutCounting) {
    Counters counters;
    sp<Tracked> a = sp<Tracked>::make(&counters);
    Tracked* raw = a.get();
    sp<Tracked> b = std::move(a);
    EXPECT_EQ(nullptr, a);
    EXPECT_EQ(raw, b);
    EXPECT_EQ(1, b->getStrongCount());
    sp<Tracked> c = sp<Tracked>::make(&counters);
    c = std::move(b);  // drops c's old object
    EXPECT_EQ(1, counters.destroyed);
    EXPECT_EQ(raw, c.get());
    EXPECT_EQ(1, c->getStrongCount());
}

TEST(StrongPointer, Comparisons) {
    Counters counters;
    sp<Tracked> a = sp<Tracked>::make(&counters);
    sp<Tracked> same = a;
    sp<Tracked> other = sp<Tracked>::make(&counters);
    sp<Tracked> none;
    EXPECT_TRUE(a == same);
    EXPECT_TRUE(a != other);
    EXPECT_TRUE(a == a.get());
    EXPECT_TRUE(a.get() == a);
    EXPECT_TRUE(a != other.get());
    EXPECT_TRUE(none == nullptr);
    EXPECT_TRUE(nullptr != a);
    EXPECT_FALSE(static_cast<bool>(none));
    EXPECT_TRUE(static_cast<bool>(a));
    EXPECT_NE(a < other, other < a);
}

TEST(WeakPointer, PromoteFailsOnceTheObjectIsGone) {
    Counters counters;
    wp<Tracked> weak;
    {
        sp<Tracked> strong = sp<Tracked>::make(&counters);
        weak = strong;
        sp<Tracked> promoted = weak.promote();
        ASSERT_EQ(strong, promoted);
        EXPECT_EQ(2, strong->getStrongCount());
    }
    EXPECT_EQ(1, counters.destroyed);
    EXPECT_EQ(nullptr, weak.promote());
    EXPECT_NE(nullptr, weak.unsafe_get());
    wp<Tracked> copy = weak;  // copying a weak reference to a dead object is fine
    EXPECT_EQ(nullptr, copy.promote());
    EXPECT_TRUE(copy == weak);
    weak.clear();
    EXPECT_EQ(nullptr, weak.unsafe_get());
}

TEST(WeakPointer, FromRawPointerOfAStronglyHeldObject) {
    Counters counters;
    sp<Tracked> strong = sp<Tracked>::make(&counters);
    wp<Tracked> weak(strong.get());
    EXPECT_EQ(strong, weak.promote());
    EXPECT_TRUE(weak == wp<Tracked>(strong));
    strong.clear();
    EXPECT_EQ(1, counters.destroyed);
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(WeakPointer, WeakReferencesNeverDeleteAnUnownedObject) {
    Counters counters;
    wp<Tracked> outlives;
    {
        Tracked onStack(&counters);
        { wp<Tracked> weak(&onStack); }
        EXPECT_TRUE(onStack.alive());
        outlives = &onStack;
    }
    EXPECT_EQ(1, counters.destroyed);
    // Destroyed by its owner: the weak reference must not bring it back.
    EXPECT_EQ(nullptr, outlives.promote());

    // Promoting an object nobody held strongly makes that the first strong reference.
    auto* heap = new Tracked(&counters);
    wp<Tracked> weak(heap);
    {
        sp<Tracked> first = weak.promote();
        ASSERT_EQ(heap, first.get());
        EXPECT_EQ(1, counters.firstRefs);
    }
    EXPECT_EQ(2, counters.destroyed);
}

TEST(WeakPointer, VirtualBaseConversions) {
    Counters counters;
    sp<Diamond> diamond = sp<Diamond>::make(&counters);
    sp<Left> left = diamond;
    sp<Right> right = diamond;
    sp<RefBase> base = right;
    EXPECT_EQ(4, diamond->getStrongCount());
    EXPECT_TRUE(left == diamond);
    EXPECT_TRUE(right == diamond);
    EXPECT_EQ(2, right->right);

    wp<Diamond> weakDiamond = diamond;
    wp<Right> weakRight = weakDiamond;
    wp<RefBase> weakBase = weakDiamond;
    EXPECT_EQ(right, weakRight.promote());
    EXPECT_EQ(base, weakBase.promote());
    EXPECT_TRUE(weakBase == weakDiamond);

    left.clear();
    right.clear();
    base.clear();
    diamond.clear();
    EXPECT_EQ(1, counters.destroyed);

    // The object is gone: converting must not read it.
    wp<Right> lateRight = weakDiamond;
    wp<RefBase> lateBase(std::move(weakDiamond));
    EXPECT_EQ(nullptr, lateRight.promote());
    EXPECT_EQ(nullptr, lateBase.promote());
    EXPECT_EQ(nullptr, weakRight.promote());
    EXPECT_EQ(nullptr, weakBase.promote());
}

// Threads copy strong references and promote weak ones while the last strong references go away.
// The object must be deleted exactly once, and never while someone holds a promoted reference.
TEST(RefBaseConcurrency, CopiesAndPromotesRaceWithTheLastRelease) {
    constexpr int kRounds = 200;
    constexpr int kThreads = 4;
    for (int round = 0; round < kRounds; ++round) {
        Counters counters;
        sp<Tracked> owner = sp<Tracked>::make(&counters);
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
    sp<Diamond> owner = sp<Diamond>::make(&counters);
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
