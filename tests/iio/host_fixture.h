// Tests that run the library against the emulated host.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "IioSensorBridge.h"
#include "IioSensorSubHal.h"
#include "base/test/virtual_clock.h"
#include "host/emulated/EmulatedHost.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_proxy_callback.h"
#include "tests/support/wait.h"
#include "vel/MojoProcessSupport.h"

namespace kelvane::sensors {

using host::common::ChannelsSwitched;
using host::common::HostEvent;
using host::common::HostEventPattern;
using host::common::HostStep;
using host::common::Rate;
using host::common::TimeoutMs;
using host::description::HostConfig;
using host::description::VirtualDevice;
using host::emulated::EmulatedHost;
using Kind = host::common::HostEventKind;

inline scoped_refptr<base::SingleThreadTaskRunner> mojoRunner() {
    return vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner();
}

inline VirtualDevice accelerometer(int32_t id, std::string location = "lid") {
    VirtualDevice d;
    d.id = id;
    d.types = {1};
    d.channels = {"accel_x", "accel_y", "accel_z", "timestamp"};
    d.attributes = {{"name", "bmi160"}, {"scale", "0.5"}, {"location", location}};
    return d;
}

inline VirtualDevice device(int32_t id, std::vector<int32_t> types,
                            std::vector<std::string> channels = {"timestamp"}) {
    VirtualDevice d;
    d.id = id;
    d.types = std::move(types);
    d.channels = std::move(channels);
    d.attributes = {{"name", "dev"}, {"scale", "1"}, {"location", "lid"}};
    return d;
}

// Index of the first recorded call equal to `call`, or -1.
// Where the first event matching `pattern` is, -1 if none does.
inline int indexOf(const std::vector<HostEvent>& events, const HostEventPattern& pattern) {
    auto it = std::find_if(events.begin(), events.end(),
                           [&](const HostEvent& e) { return pattern.matches(e); });
    return it == events.end() ? -1 : static_cast<int>(it - events.begin());
}

inline size_t countOf(const std::vector<HostEvent>& events, const HostEventPattern& pattern) {
    return static_cast<size_t>(std::count_if(
        events.begin(), events.end(), [&](const HostEvent& e) { return pattern.matches(e); }));
}

// Time is virtual by default: the library's enumeration grace period passes when a test says so.
class HostTest : public ::testing::Test {
  protected:
    // Real time for tests whose host streams by its own timer.
    explicit HostTest(bool virtualTime = true) {
        if (virtualTime) clock.emplace();
    }
    ~HostTest() override {
        // The library goes first, on the Mojo thread; then the host.
        releaseLibrary();
        host.reset();
    }

    void startHost(HostConfig config) {
        config.stream = false;  // tests push samples themselves
        host = std::make_unique<EmulatedHost>(std::move(config));
        host->registerWithBridge();
    }

    // A bridge on its own, started like the sub-HAL starts it.
    void startBridge() {
        bridge = new IioSensorBridge(vel::MojoProcessSupport::GetInstance(), &events);
        bridge->start();
    }

    void startSubHal() {
        subHal = new IioSensorSubHal();
        proxy = new testing::RecordingProxyCallback();
        subHal->initialize(proxy);
    }

    // Lets the handshake finish, then the library's 2 s enumeration grace period pass.
    void passGracePeriod() { ASSERT_TRUE(clock->FastForwardBy(base::TimeDelta::FromSeconds(2))); }

    std::vector<std::pair<int, android::hardware::sensors::V2_1::SensorInfo>> sensors(
        int timeoutMs) {
        return bridge->getSensors(timeoutMs);
    }

    void releaseLibrary() {
        subHal.clear();  // hands its bridge to the Mojo thread itself
        if (bridge != nullptr) {
            testing::RunAndWait(mojoRunner(), [this] { bridge.clear(); });
        }
    }

    class NullEvents : public IioSensorEventCallback {
        void postSensorEvents(const std::vector<android::hardware::sensors::V2_1::Event>&,
                              bool) override {}
    };

    std::optional<base::test::VirtualClock> clock;  // first in, last out
    testing::LogCapture logs;
    NullEvents events;
    std::unique_ptr<EmulatedHost> host;
    android::sp<IioSensorBridge> bridge;
    android::sp<IioSensorSubHal> subHal;
    android::sp<testing::RecordingProxyCallback> proxy;
};

}  // namespace kelvane::sensors
