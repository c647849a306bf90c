// The sub-HAL's own answers, with no host reachable: nothing gets published.
#include <cutils/native_handle.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "IioSensorSubHal.h"
#include "tests/support/debug_dump.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_proxy_callback.h"

namespace kelvane::sensors {
namespace {

using android::sp;
using android::wp;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::OperationMode;
using android::hardware::sensors::V1_0::RateLevel;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SharedMemInfo;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorType;
using kelvane::testing::LogCapture;
using kelvane::testing::RecordingProxyCallback;

class SubHalTest : public ::testing::Test {
  protected:
    LogCapture logs;
    sp<IioSensorSubHal> hal = new IioSensorSubHal();
};

// Two binder threads ask for the first list while no host answers: each waits the library's
// 10 s from its own start, not the other's wait and then its own.
TEST_F(SubHalTest, ConcurrentFirstListCallsEachWaitOnlyTheirOwnLimit) {
    using Clock = std::chrono::steady_clock;
    constexpr auto kLimit = std::chrono::seconds(10) + std::chrono::seconds(3);  // with margin
    struct Call {
        Clock::duration took{};
        size_t answers = 0;
        size_t sensors = 99;
    };
    auto ask = [this](Call* call) {
        const auto start = Clock::now();
        hal->getSensorsList_2_1(
            [call](const hidl_vec<android::hardware::sensors::V2_1::SensorInfo>& l) {
                ++call->answers;
                call->sensors = l.size();
            });
        call->took = Clock::now() - start;
    };
    Call first;
    Call second;
    std::thread a(ask, &first);
    ASSERT_TRUE(logs.waitFor("IioSensorSubHal::getSensorsList_2_1"));  // the first is waiting
    std::thread b(ask, &second);
    a.join();
    b.join();
    for (const Call* call : {&first, &second}) {
        EXPECT_LE(call->took, kLimit)
            << std::chrono::duration_cast<std::chrono::milliseconds>(call->took).count() << " ms";
        EXPECT_EQ(call->answers, 1u);
        EXPECT_EQ(call->sensors, 0u);
    }
    EXPECT_GE(logs.count("IioSensorSubHal: discovered 0 sensors"), 1u);
}

TEST_F(SubHalTest, AnswersTheFixedOperations) {
    EXPECT_EQ(hal->getName(), "Kelvane-IIOService-Subhal");
    EXPECT_EQ(hal->getName().size(), 25u);
    EXPECT_EQ(hal->setOperationMode(OperationMode::DATA_INJECTION), Result::OK);
    EXPECT_EQ(hal->injectSensorData_2_1(Event{}), Result::INVALID_OPERATION);
    EXPECT_EQ(hal->unregisterDirectChannel(1), Result::INVALID_OPERATION);

    std::vector<std::pair<Result, int32_t>> answers;
    hal->registerDirectChannel(
        SharedMemInfo{}, [&](Result r, int32_t channel) { answers.emplace_back(r, channel); });
    hal->configDirectReport(1, 2, RateLevel::FAST,
                            [&](Result r, int32_t token) { answers.emplace_back(r, token); });
    EXPECT_EQ(answers, (std::vector<std::pair<Result, int32_t>>{{Result::INVALID_OPERATION, -1},
                                                                {Result::INVALID_OPERATION, 0}}));
    bool called = false;
    hal->getSensorsList([&](const auto&) { called = true; });
    EXPECT_FALSE(called);
    EXPECT_TRUE(logs.contains("IioSensorSubHal: starting Mojo bridge in constructor"));
    EXPECT_TRUE(logs.contains("IioSensorBridge: connecting to VEL bridge (async)"));
}

TEST_F(SubHalTest, InitializeReplacesAndReleasesTheCallback) {
    sp<RecordingProxyCallback> first = new RecordingProxyCallback();
    wp<RecordingProxyCallback> firstWeak = first;
    EXPECT_EQ(hal->initialize(first), Result::OK);
    hal->setOperationMode(OperationMode::DATA_INJECTION);
    first.clear();
    EXPECT_NE(firstWeak.promote(), nullptr);  // the sub-HAL still holds it

    sp<RecordingProxyCallback> second = new RecordingProxyCallback();
    EXPECT_EQ(hal->initialize(second), Result::OK);
    EXPECT_EQ(firstWeak.promote(), nullptr);
    EXPECT_EQ(logs.count("IioSensorSubHal::initialize"), 2u);

    hal->postSensorEvents({Event{}}, false);
    EXPECT_EQ(second->eventCount(), 1u);
}

TEST_F(SubHalTest, PostsEventsUnderAWakeLockOfTheAskedKind) {
    hal->postSensorEvents({Event{}}, false);  // before initialize: dropped, nothing to crash on
    sp<RecordingProxyCallback> proxy = new RecordingProxyCallback();
    hal->initialize(proxy);
    Event e{};
    e.sensorHandle = 4;
    hal->postSensorEvents({e, e}, true);
    hal->postSensorEvents({e}, false);
    auto posts = proxy->posts();
    ASSERT_EQ(posts.size(), 2u);
    EXPECT_EQ(posts[0].events.size(), 2u);
    EXPECT_TRUE(posts[0].wakelockHeld);
    EXPECT_FALSE(posts[1].wakelockHeld);
    EXPECT_EQ(proxy->wakelockRequests(), (std::vector<bool>{true, false}));
}

TEST_F(SubHalTest, RejectsHandlesThatWereNeverPublished) {
    sp<RecordingProxyCallback> proxy = new RecordingProxyCallback();
    hal->initialize(proxy);
    EXPECT_EQ(hal->activate(1, true), Result::BAD_VALUE);
    EXPECT_EQ(hal->batch(1, 10000000, 0), Result::BAD_VALUE);
    EXPECT_EQ(hal->flush(1), Result::BAD_VALUE);
    EXPECT_EQ(hal->flush(-1), Result::BAD_VALUE);
    EXPECT_EQ(proxy->eventCount(), 0u);
}

TEST_F(SubHalTest, DumpsAnEmptyTableAndLeavesTheCallersDescriptorOpen) {
    bool stillOpen = false;
    EXPECT_EQ(testing::readDebugDump(*hal, &stillOpen), "IioSensorSubHal:\n  sensors: 0\n");
    EXPECT_TRUE(stillOpen);

    // No native handle, or one without descriptors: nothing is written, nothing breaks.
    hal->debug(hidl_handle(), hidl_vec<hidl_string>{});
    native_handle_t* empty = native_handle_create(0, 1);
    hidl_handle handle;
    handle.setTo(empty, false);
    hal->debug(handle, hidl_vec<hidl_string>{});
    native_handle_delete(empty);
}

TEST_F(SubHalTest, SkipsTheDumpWhenTheDescriptorCannotBeDuplicated) {
    native_handle_t* nh = native_handle_create(1, 0);
    nh->data[0] = 1000000;  // not an open descriptor: dup fails
    hidl_handle handle;
    handle.setTo(nh, false);
    hal->debug(handle, hidl_vec<hidl_string>{});
    native_handle_delete(nh);
}

}  // namespace
}  // namespace kelvane::sensors
