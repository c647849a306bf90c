// Random host behaviour against the library: the input describes the emulated host's devices
// (listings, channel lists, attribute values with the scale text, scripted samples, handshake
// faults, late replies, a timeline) and then a sequence of host actions, Android commands and
// steps of time, run against a bridge driven directly. The library and the in-process Mojo run
// on their real threads; only time is virtual, so the 2-second enumeration check, late replies
// and timeline entries happen when the input moves time past them, at no real cost. The host
// shares the Mojo thread: the cost of an execution is the work of both sides rather than a thread
// switch per message, and each input is replayed in the same order. Between steps the fuzzer
// waits until every task loop is idle.
//
// Besides the sanitizers, every event and every sensor description the library produces is
// checked for well-formedness.
#include <android/hardware/sensors/2.1/types.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "IioSensorBridge.h"
#include "IioSensorEventCallback.h"
#include "base/test/virtual_clock.h"
#include "host/emulated/EmulatedHost.h"
#include "tests/support/log_capture.h"
#include "tests/support/wait.h"
#include "vel/MojoProcessSupport.h"

namespace {

using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;
using kelvane::host::description::CloseAt;
using kelvane::host::description::HostConfig;
using kelvane::host::description::Stall;
using kelvane::host::description::TimelineAction;
using kelvane::host::description::TimelineEvent;
using kelvane::host::description::VirtualDevice;
using kelvane::host::emulated::EmulatedHost;
using kelvane::sensors::IioSensorBridge;

constexpr size_t kMaxSteps = 32;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "host_behaviour_fuzzer: %s\n", what.c_str());
    std::abort();
}

// Consumes the input front to back; past its end every read yields zeros.
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    bool empty() const { return mSize == 0; }
    uint8_t byte() {
        if (mSize == 0) return 0;
        --mSize;
        return *mData++;
    }
    bool flag() { return (byte() & 1) != 0; }
    // A value in [lo, hi]; the range must be small.
    int range(int lo, int hi) { return lo + byte() % (hi - lo + 1); }
    template <typename T>
    T raw() {
        T value{};
        uint8_t bytes[sizeof(T)] = {};
        for (uint8_t& b : bytes) b = byte();
        std::memcpy(&value, bytes, sizeof(T));
        return value;
    }
    std::string text(size_t maxLength) {
        size_t length = byte() % (maxLength + 1);
        std::string s;
        for (size_t i = 0; i < length; ++i) s.push_back(static_cast<char>(byte()));
        return s;
    }
    template <typename T, size_t N>
    const T& pick(const T (&items)[N]) {
        return items[byte() % N];
    }

  private:
    const uint8_t* mData;
    size_t mSize;
};

const char* const kChannels[] = {
    "accel_x", "accel_y",  "accel_z",     "anglvel_x",   "anglvel_y", "anglvel_z", "magn_x",
    "magn_y",  "magn_z",   "gravity_x",   "gravity_y",   "gravity_z", "timestamp", "timestamp",
    "Accel_x", "accel_x ", "illuminance", "illuminance", "",          "in_temp",
};
const char* const kScales[] = {
    "0.5", "1",   "2.5e-3", "1e-05", "abc",  "",        " 2",   "0.5\n", "1e400", "1e-400",
    "-0",  "nan", "inf",    "0x10",  "1.5x", "9.80665", "-1e3", ".5",    "6.",    "1e308",
};
const char* const kTexts[] = {"lid", "base", "", "cros-ec-accel", "camera"};
const int32_t kTypes[] = {1, 2, 3, 5, 11, 0, 4, 6, 12, -1, 1, 2, 3, 11};

std::optional<std::string> attribute(Reader& in, const char* const* vocabulary, size_t count) {
    switch (in.range(0, 3)) {
        case 0:
            return std::nullopt;
        case 1:
            return std::string(vocabulary[in.byte() % count]);
        default:
            return in.text(12);
    }
}

std::map<int32_t, int64_t> sample(Reader& in) {
    std::map<int32_t, int64_t> s;
    const int entries = in.range(0, 5);
    for (int i = 0; i < entries; ++i) {
        const int32_t key = in.flag() ? in.range(-2, 8) : in.raw<int32_t>();
        s[key] = in.flag() ? in.range(-100, 100) : in.raw<int64_t>();
    }
    return s;
}

VirtualDevice virtualDevice(Reader& in) {
    VirtualDevice d;
    d.id = in.range(-2, 12);
    for (int i = in.range(0, 3); i > 0; --i)
        d.types.push_back(in.flag() ? in.pick(kTypes) : in.raw<int32_t>());
    for (int i = in.range(0, 6); i > 0; --i) {
        d.channels.push_back(in.range(0, 7) != 0 ? std::string(in.pick(kChannels)) : in.text(10));
    }
    // A key left out of the map is absent too.
    if (in.flag()) d.attributes["name"] = attribute(in, kTexts, std::size(kTexts));
    if (in.range(0, 7) != 0) d.attributes["scale"] = attribute(in, kScales, std::size(kScales));
    if (in.flag()) d.attributes["location"] = attribute(in, kTexts, std::size(kTexts));
    for (int i = in.range(0, 3); i > 0; --i) d.samples.push_back(sample(in));
    if (in.range(0, 3) == 0) d.maxFrequency = in.raw<double>();
    for (int i = in.range(0, 2); i > 0; --i) d.failChannels.push_back(in.range(-1, 6));
    const uint8_t fault = in.byte();
    if (fault >= 160) {
        d.stall = static_cast<Stall>(fault % 4);
        d.closeAt = static_cast<CloseAt>((fault / 4) % 5);
    }
    if (in.range(0, 3) == 0) d.replyDelay = std::chrono::milliseconds(in.range(0, 30) * 100);
    return d;
}

TimelineEvent timelineEvent(Reader& in, const std::vector<VirtualDevice>& devices) {
    TimelineEvent e;
    e.at = std::chrono::milliseconds(in.range(0, 30) * 100);
    e.action = static_cast<TimelineAction>(in.range(0, 3));
    e.device = devices.empty() || in.range(0, 7) == 0 ? in.range(-2, 12)
                                                      : devices[in.byte() % devices.size()].id;
    e.error = in.range(0, 7);
    e.reason = in.raw<uint32_t>();
    e.description = in.text(8);
    e.on = in.flag();
    return e;
}

HostConfig hostConfig(Reader& in) {
    HostConfig config;
    const uint8_t version = in.byte();
    config.bridgeVersion =
        version < 200 ? 54 : (version < 230 ? 53 + version % 3 : in.raw<uint32_t>());
    config.autoSetUpChannel = in.range(0, 7) != 0;
    config.stream = false;  // samples come from the input only
    for (int i = in.range(0, 4); i > 0; --i) config.devices.push_back(virtualDevice(in));
    for (int i = in.range(0, 7) < 6 ? 0 : in.range(1, 3); i > 0; --i) {
        config.timeline.push_back(timelineEvent(in, config.devices));
    }
    return config;
}

bool isSupportedType(SensorType type) {
    switch (type) {
        case SensorType::ACCELEROMETER:
        case SensorType::MAGNETIC_FIELD:
        case SensorType::GYROSCOPE:
        case SensorType::LIGHT:
        case SensorType::GRAVITY:
            return true;
        default:
            return false;
    }
}

// Checks every event on arrival, on the Mojo thread.
class CheckingCallback : public kelvane::sensors::IioSensorEventCallback {
  public:
    void postSensorEvents(const std::vector<Event>& events, bool wakeup) override {
        if (wakeup) fail("a sample event asked for the wake lock");
        if (events.size() != 1) fail("a sample gave " + std::to_string(events.size()) + " events");
        const Event& e = events[0];
        if (e.sensorHandle < 1) fail("event for handle " + std::to_string(e.sensorHandle));
        if (!isSupportedType(e.sensorType)) {
            fail("event of type " + std::to_string(static_cast<int>(e.sensorType)));
        }
        const auto* payload = reinterpret_cast<const uint8_t*>(&e.u);
        const uint8_t status = payload[12];
        if (status != (e.sensorType == SensorType::LIGHT ? 0 : 3)) fail("wrong status byte");
        for (size_t i = 13; i < sizeof(e.u); ++i) {
            if (payload[i] != 0) fail("payload byte " + std::to_string(i) + " is not zero");
        }
        if (e.sensorType == SensorType::LIGHT && (e.u.vec3.y != 0.0f || e.u.vec3.z != 0.0f)) {
            fail("light event with a second or third value");
        }
    }
};

void checkSensors(const std::vector<std::pair<int, SensorInfo>>& sensors) {
    int previous = 0;
    for (const auto& [handle, info] : sensors) {
        if (handle <= previous) fail("sensor handles not ascending");
        previous = handle;
        if (info.sensorHandle != handle) fail("record handle differs from its key");
        if (!isSupportedType(info.type)) fail("published an unsupported type");
        if (std::string(info.vendor) != "Tolvik" || info.version != 1 || info.maxDelay != 200000 ||
            !(info.maxRange > 0.0f) || info.minDelay > info.maxDelay ||
            std::string(info.name).empty() || std::string(info.typeAsString).empty()) {
            fail("malformed description of handle " + std::to_string(handle));
        }
    }
}

// The process's one virtual clock, created before anything posts a delay: time runs on from one
// input to the next, and delays left over from earlier inputs only find their objects gone.
base::test::VirtualClock& virtualClock() {
    static base::test::VirtualClock* clock = new base::test::VirtualClock();
    return *clock;
}

// One input's world: a fresh emulated host and a bridge connected to it. When it ends, nothing
// of it is left: libFuzzer's per-input leak check stays cheap and meaningful.
class Scenario {
  public:
    explicit Scenario(Reader& in) : mIn(in), mClock(virtualClock()) {
        HostConfig config = hostConfig(in);
        for (const VirtualDevice& d : config.devices) mDeviceIds.push_back(d.id);
        const bool registered = in.range(0, 15) != 0;
        mHost = std::make_unique<EmulatedHost>(std::move(config), mojoRunner());
        if (registered) mHost->registerWithBridge();
        mBridge = new IioSensorBridge(vel::MojoProcessSupport::GetInstance(), &mEvents);
        mBridge->start();
        settle();
    }

    ~Scenario() {
        // The library goes on the Mojo thread, then the host; nothing may log after the capture.
        if (!kelvane::testing::RunAndWait(mojoRunner(), [this] { mBridge.clear(); })) {
            fail("the Mojo thread is stuck");
        }
        mHost.reset();
        // Delays still queued (checks, late replies, timeline entries) run now and find their
        // objects gone. Nothing may keep rescheduling itself, and every allocation of this input
        // is freed before the next one starts.
        for (int i = 0; i < 64 && !mClock.NextTaskDelay().is_max(); ++i) {
            if (!mClock.FastForwardBy(mClock.NextTaskDelay()))
                fail("the task loops never became idle");
        }
        if (!mClock.NextTaskDelay().is_max())
            fail("delayed tasks outlive the host and the library");
        settle();
    }

    void run() {
        for (size_t step = 0; step < kMaxSteps && !mIn.empty(); ++step) {
            this->step();
            if (mIn.flag()) settle();
        }
        settle();
        checkSensors(mBridge->getSensors(0));
    }

  private:
    static scoped_refptr<base::SingleThreadTaskRunner> mojoRunner() {
        return vel::MojoProcessSupport::GetInstance()->getThread()->getTaskRunner();
    }

    int32_t deviceId() {
        if (mDeviceIds.empty() || mIn.range(0, 7) == 0) return mIn.range(-2, 12);
        return mDeviceIds[mIn.byte() % mDeviceIds.size()];
    }
    int handle() { return mIn.range(-1, 9); }

    int64_t period() {
        static const int64_t kPeriods[] = {1000000,
                                           20000000,
                                           0,
                                           -1000000000,
                                           1,
                                           std::numeric_limits<int64_t>::min(),
                                           std::numeric_limits<int64_t>::max()};
        return mIn.flag() ? mIn.pick(kPeriods) : mIn.raw<int64_t>();
    }

    void step() {
        switch (mIn.range(0, 16)) {
            case 0:
                mHost->setUpChannel();
                break;
            case 1:
                mHost->callInit();
                break;
            case 2:
                mBridge->activate(handle(), mIn.range(0, 3) != 0);
                break;
            case 3:
                mBridge->batch(handle(), period());
                break;
            case 4:
            case 5: {
                const int32_t id = deviceId();
                mHost->pushSample(id, sample(mIn));
                break;
            }
            case 6: {
                const int32_t id = deviceId();
                mHost->emitBurst(id, mIn.range(0, 8));
                break;
            }
            case 7: {
                const int32_t id = deviceId();
                mHost->sendObserverError(id, mIn.flag() ? mIn.range(0, 7) : mIn.raw<int32_t>());
                break;
            }
            case 8:
                mHost->closeInstance();
                break;
            case 9:
                mHost->closeHalClient();
                break;
            case 10:
                mHost->closeIioSensorHost();
                break;
            case 11: {
                const uint32_t reason = mIn.raw<uint32_t>();
                mHost->closeService(reason, mIn.text(16));
                break;
            }
            case 12:
                mHost->closeDevice(deviceId());
                break;
            case 13:
                mHost->closeObserver(deviceId());
                break;
            case 14:
                checkSensors(mBridge->getSensors(0));
                break;
            case 15:
                mHost->setTabletMode(mIn.flag());
                break;
            default:
                // Steps of time: past the 2 s enumeration check, late replies and timeline.
                if (!mClock.FastForwardBy(
                        base::TimeDelta::FromMilliseconds(mIn.range(0, 25) * 100))) {
                    fail("the task loops never became idle");
                }
                break;
        }
    }

    // Lets the host and the library answer each other: waits until no task loop has work left.
    void settle() {
        if (!mClock.RunUntilIdle()) fail("the task loops never became idle");
    }

    Reader& mIn;
    base::test::VirtualClock& mClock;
    kelvane::testing::LogCapture mLogs;  // keeps the library's lines off stderr
    CheckingCallback mEvents;
    std::unique_ptr<EmulatedHost> mHost;
    android::sp<IioSensorBridge> mBridge;
    std::vector<int32_t> mDeviceIds;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    Scenario scenario(in);
    scenario.run();
    return 0;
}
