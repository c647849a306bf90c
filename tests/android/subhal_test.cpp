#include <HalProxyCallbackBase.h>
#include <ScopedWakelock.h>
#include <V2_1/SubHal.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace android {
namespace hardware {
namespace sensors {
namespace {

using V1_0::Result;
using V2_0::implementation::HalProxyCallbackBase;
using V2_0::implementation::IScopedWakelockRefCounter;
using V2_0::implementation::ScopedWakelock;
using V2_1::implementation::IHalProxyCallback;
using V2_1::implementation::ISensorsSubHal;

constexpr int64_t kHoldStart = 1234;

// Counts holds the way the proxy does; can refuse them.
class CountingRefCounter : public IScopedWakelockRefCounter {
  public:
    bool incrementRefCountAndMaybeAcquireWakelock(size_t delta, int64_t* timeoutStart) override {
        increments++;
        if (!grant) return false;
        holds += static_cast<int>(delta);
        if (timeoutStart != nullptr) *timeoutStart = kHoldStart;
        return true;
    }
    void decrementRefCountAndMaybeReleaseWakelock(size_t delta, int64_t timeoutStart) override {
        holds -= static_cast<int>(delta);
        lastReleaseStart = timeoutStart;
    }

    bool grant = true;
    int increments = 0;
    int holds = 0;
    int64_t lastReleaseStart = 0;
};

class TestProxyCallback : public HalProxyCallbackBase {
  public:
    explicit TestProxyCallback(IScopedWakelockRefCounter* counter) : mCounter(counter) {}

    void postEvents(const std::vector<V2_1::Event>& events, ScopedWakelock wakelock) override {
        postedEvents += events.size();
        lockedWhilePosting = wakelock.isLocked();
        kept.push_back(std::move(wakelock));
    }
    ScopedWakelock createScopedWakelock(bool lock) override {
        return makeScopedWakelock(mCounter, lock);
    }

    size_t postedEvents = 0;
    bool lockedWhilePosting = false;
    std::vector<ScopedWakelock> kept;

  private:
    IScopedWakelockRefCounter* mCounter;
};

TEST(ScopedWakelock, LockedHoldIsReleasedOnce) {
    sp<CountingRefCounter> counter = sp<CountingRefCounter>(new CountingRefCounter());
    sp<TestProxyCallback> callback = sp<TestProxyCallback>(new TestProxyCallback(counter.get()));
    {
        ScopedWakelock lock = callback->createScopedWakelock(true);
        EXPECT_TRUE(lock.isLocked());
        EXPECT_EQ(1, counter->holds);
    }
    EXPECT_EQ(0, counter->holds);
    EXPECT_EQ(kHoldStart, counter->lastReleaseStart);

    {
        ScopedWakelock unlocked = callback->createScopedWakelock(false);
        EXPECT_FALSE(unlocked.isLocked());
    }
    EXPECT_EQ(1, counter->increments);
    EXPECT_EQ(0, counter->holds);

    counter->grant = false;
    {
        ScopedWakelock refused = callback->createScopedWakelock(true);
        EXPECT_FALSE(refused.isLocked());
    }
    EXPECT_EQ(2, counter->increments);
    EXPECT_EQ(0, counter->holds);
}

TEST(ScopedWakelock, MovingTransfersTheHold) {
    sp<CountingRefCounter> counter = sp<CountingRefCounter>(new CountingRefCounter());
    sp<TestProxyCallback> callback = sp<TestProxyCallback>(new TestProxyCallback(counter.get()));

    ScopedWakelock first = callback->createScopedWakelock(true);
    ScopedWakelock second(std::move(first));
    EXPECT_FALSE(first.isLocked());
    EXPECT_TRUE(second.isLocked());
    EXPECT_EQ(1, counter->holds);

    ScopedWakelock third = callback->createScopedWakelock(true);
    EXPECT_EQ(2, counter->holds);
    third = std::move(second);  // third's own hold goes first
    EXPECT_EQ(1, counter->holds);
    EXPECT_TRUE(third.isLocked());
    EXPECT_FALSE(second.isLocked());

    ScopedWakelock& alias = third;
    third = std::move(alias);
    EXPECT_TRUE(third.isLocked());
    EXPECT_EQ(1, counter->holds);

    std::vector<V2_1::Event> events(2);
    callback->postEvents(events, std::move(third));
    EXPECT_TRUE(callback->lockedWhilePosting);
    EXPECT_EQ(2u, callback->postedEvents);
    EXPECT_EQ(1, counter->holds);
    callback->kept.clear();
    EXPECT_EQ(0, counter->holds);
}

// A sub-HAL that implements only what is left pure.
class MinimalSubHal : public ISensorsSubHal {
  public:
    using ISensorsSubHal::initialize;

    Return<void> getSensorsList_2_1(getSensorsList_2_1_cb _hidl_cb) override {
        _hidl_cb({});
        return Void();
    }
    Return<Result> setOperationMode(V1_0::OperationMode) override { return Result::OK; }
    Return<Result> activate(int32_t, bool) override { return Result::OK; }
    Return<Result> batch(int32_t, int64_t, int64_t) override { return Result::OK; }
    Return<Result> flush(int32_t) override { return Result::OK; }
    Return<Result> injectSensorData_2_1(const V2_1::Event&) override { return Result::OK; }
    Return<void> registerDirectChannel(const V1_0::SharedMemInfo&,
                                       registerDirectChannel_cb _hidl_cb) override {
        _hidl_cb(Result::INVALID_OPERATION, -1);
        return Void();
    }
    Return<Result> unregisterDirectChannel(int32_t) override { return Result::INVALID_OPERATION; }
    Return<void> configDirectReport(int32_t, int32_t, V1_0::RateLevel,
                                    configDirectReport_cb _hidl_cb) override {
        _hidl_cb(Result::INVALID_OPERATION, -1);
        return Void();
    }
    Return<void> debug(const hidl_handle&, const hidl_vec<hidl_string>&) override { return Void(); }
    const std::string getName() override { return "minimal"; }
    Return<Result> initialize(const sp<IHalProxyCallback>& callback) override {
        mCallback = callback;
        return Result::OK;
    }

    sp<IHalProxyCallback> mCallback;
};

TEST(SubHal, FixedAnswersForTheProxysOperations) {
    EXPECT_EQ(0x02010000u, V2_1::implementation::SUB_HAL_2_1_VERSION);
    sp<MinimalSubHal> subHal = sp<MinimalSubHal>(new MinimalSubHal());
    sp<ISensorsSubHal> asSubHal = subHal;

    bool called = false;
    EXPECT_TRUE(
        asSubHal->getSensorsList([&](const hidl_vec<V1_0::SensorInfo>&) { called = true; }).isOk());
    EXPECT_FALSE(called);

    EXPECT_EQ(Result::INVALID_OPERATION,
              asSubHal->initialize(MQDescriptorSync<V1_0::Event>(), MQDescriptorSync<uint32_t>(),
                                   sp<V2_0::ISensorsCallback>()));
    EXPECT_EQ(Result::INVALID_OPERATION,
              asSubHal->initialize_2_1(MQDescriptorSync<V2_1::Event>(),
                                       MQDescriptorSync<uint32_t>(), nullptr));
    EXPECT_EQ(Result::INVALID_OPERATION, asSubHal->injectSensorData(V1_0::Event{}));

    sp<CountingRefCounter> counter = sp<CountingRefCounter>(new CountingRefCounter());
    sp<TestProxyCallback> callback = sp<TestProxyCallback>(new TestProxyCallback(counter.get()));
    EXPECT_EQ(Result::OK, asSubHal->initialize(callback));
    EXPECT_EQ(callback, subHal->mCallback);
    EXPECT_EQ("minimal", asSubHal->getName());
    subHal->mCallback.clear();
}

TEST(SubHal, BaseAnswersAsAnInProcessObject) {
    sp<ISensorsSubHal> subHal = sp<MinimalSubHal>(new MinimalSubHal());
    std::vector<std::string> chain;
    subHal->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
        for (const auto& d : descriptors) chain.push_back(d);
    });
    EXPECT_EQ((std::vector<std::string>{"android.hardware.sensors@2.1::ISensors",
                                        "android.hardware.sensors@2.0::ISensors",
                                        "android.hidl.base@1.0::IBase"}),
              chain);
    std::string descriptor;
    subHal->interfaceDescriptor([&](const hidl_string& d) { descriptor = d; });
    EXPECT_EQ("android.hardware.sensors@2.1::ISensors", descriptor);
    size_t hashes = 0;
    subHal->getHashChain([&](const auto& chainHashes) { hashes = chainHashes.size(); });
    EXPECT_EQ(3u, hashes);
    EXPECT_FALSE(subHal->isRemote());
    EXPECT_TRUE(subHal->linkToDeath(nullptr, 0));
    EXPECT_TRUE(subHal->ping().isOk());

    sp<CountingRefCounter> counter = sp<CountingRefCounter>(new CountingRefCounter());
    sp<IHalProxyCallback> callback = sp<TestProxyCallback>(new TestProxyCallback(counter.get()));
    chain.clear();
    callback->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
        for (const auto& d : descriptors) chain.push_back(d);
    });
    EXPECT_EQ("android.hardware.sensors@2.1::ISensorsCallback", chain.front());
    EXPECT_TRUE(callback->onDynamicSensorsConnected_2_1({}).isOk());
    EXPECT_TRUE(callback->onDynamicSensorsDisconnected({}).isOk());
}

}  // namespace
}  // namespace sensors
}  // namespace hardware
}  // namespace android
