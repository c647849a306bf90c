// Eight binder threads drive one sub-HAL with a mix of valid and invalid commands while five
// sensors stream at 1 kHz from the emulated host and the proxy keeps re-initializing with new
// callbacks. Whatever the interleaving:
// - every call answers what its handle deserves: BAD_VALUE exactly for unpublished handles;
// - every accepted flush is answered exactly once, across all the callbacks;
// - no sample event is duplicated or reordered: each scripted sample carries a per-device
//   sequence number in its timestamp channel;
// - once the traffic stops, every sample the host sends reaches the current callback, once and
//   in order. (While sensors are switched on and off, samples in flight when the library drops
//   an observer are legitimately lost, so losses are only judged in that quiet phase.)
#include <cutils/native_handle.h>

#include <condition_variable>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "tests/iio/host_fixture.h"

namespace kelvane::sensors {
namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::MetaDataEventType;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V2_1::Event;
using android::hardware::sensors::V2_1::SensorInfo;
using android::hardware::sensors::V2_1::SensorType;

constexpr int kCallers = 8;
constexpr int kTotalCalls = 100000;
constexpr int kCallsPerCaller = kTotalCalls / kCallers;
constexpr int64_t kPeriodNs = 1000000;  // 1 kHz
// Callers stop early past this, so that the scripts below cannot run out.
constexpr auto kCallTimeLimit = std::chrono::seconds(20);
// Device d's k-th scripted sample carries d * kSeqBase + k; its final marks d * kSeqBase +
// kMarkOffset + k.
constexpr int64_t kSeqBase = 1000000;
constexpr int64_t kMarkOffset = 500000;
constexpr int kMarks = 200;
// The proxy re-initializes every this many calls.
constexpr size_t kInitEvery = 2000;
// Besides its 1 kHz timer, the host sends each device a burst of kBurst samples every this many
// calls, so that plenty of samples meet the sensors' restarts and the callback changes.
constexpr size_t kBurstEvery = 250;
constexpr size_t kBurst = 10;
// Scripted samples per device: enough for 1 kHz over the callers' time limit, the bursts and the
// final phase.
constexpr int64_t kScriptLength = 30000 + kTotalCalls / kBurstEvery * kBurst;
// Round trips through the host allowed for it to work off the commands queued by the callers.
constexpr int kMaxRoundTrips = 20000;

struct StressDevice {
    int32_t id;  // also its handle: devices are listed in id order
    int32_t hostType;
    SensorType type;
    const char* name;
    const char* prefix;  // null for the light sensor
};

constexpr StressDevice kDevices[] = {
    {1, 1, SensorType::ACCELEROMETER, "Accelerometer (lid)", "accel"},
    {2, 2, SensorType::GYROSCOPE, "Gyroscope (lid)", "anglvel"},
    {3, 5, SensorType::MAGNETIC_FIELD, "Magnetometer (lid)", "magn"},
    {4, 3, SensorType::LIGHT, "Light (lid)", nullptr},
    {5, 11, SensorType::GRAVITY, "Gravity (lid)", "gravity"},
};
constexpr int kDeviceCount = static_cast<int>(std::size(kDevices));

bool isPublished(int32_t handle) { return handle >= 1 && handle <= kDeviceCount; }

VirtualDevice scriptedDevice(const StressDevice& d) {
    VirtualDevice v;
    v.id = d.id;
    v.types = {d.hostType};
    if (d.prefix == nullptr) {
        v.channels = {"illuminance"};
    } else {
        for (const char* axis : {"_x", "_y", "_z"})
            v.channels.push_back(d.prefix + std::string(axis));
    }
    v.channels.push_back("timestamp");
    v.attributes = {{"name", "stress"}, {"scale", "1"}, {"location", "lid"}};
    const int32_t timestamp = static_cast<int32_t>(v.channels.size()) - 1;
    v.samples.reserve(kScriptLength);
    for (int64_t k = 0; k < kScriptLength; ++k)
        v.samples.push_back({{timestamp, d.id * kSeqBase + k}});
    return v;
}

int32_t timestampChannel(const StressDevice& d) { return d.prefix == nullptr ? 1 : 3; }

std::string expectedReport() {
    std::ostringstream out;
    out << "IioSensorSubHal:\n  sensors: " << kDeviceCount << "\n";
    for (const StressDevice& d : kDevices) {
        out << "  [" << d.id << "] " << d.name << " (type " << static_cast<int>(d.type) << ")\n";
    }
    return out.str();
}

// A proxy callback that keeps every event, from any thread, and counts posts that held the
// proxy's wake lock.
class EventLog : public android::hardware::sensors::V2_0::implementation::HalProxyCallbackBase {
  public:
    using ScopedWakelock = android::hardware::sensors::V2_0::implementation::ScopedWakelock;

    EventLog() : mCounter(new Counter()) {}

    void postEvents(const std::vector<Event>& events, ScopedWakelock wakelock) override {
        const bool held = wakelock.isLocked();
        mSignal.Notify([&] {
            mEvents.insert(mEvents.end(), events.begin(), events.end());
            mLockedPosts += held ? 1 : 0;
        });
    }
    ScopedWakelock createScopedWakelock(bool lock) override {
        return makeScopedWakelock(mCounter.get(), lock);
    }

    std::vector<Event> events() const {
        std::lock_guard<std::mutex> lock(mSignal.mutex());
        return mEvents;
    }
    size_t lockedPosts() const {
        std::lock_guard<std::mutex> lock(mSignal.mutex());
        return mLockedPosts;
    }
    bool waitUntil(const std::function<bool(const std::vector<Event>&)>& pred) {
        return mSignal.WaitUntil([&] { return pred(mEvents); });
    }

  private:
    class Counter
        : public android::hardware::sensors::V2_0::implementation::IScopedWakelockRefCounter {
      public:
        bool incrementRefCountAndMaybeAcquireWakelock(size_t, int64_t*) override { return true; }
        void decrementRefCountAndMaybeReleaseWakelock(size_t, int64_t) override {}
    };

    android::sp<Counter> mCounter;
    mutable testing::Signal mSignal;
    std::vector<Event> mEvents;  // guarded by mSignal's mutex
    size_t mLockedPosts = 0;     // guarded by mSignal's mutex
};

// Calls made so far by all callers, for the thread that re-initializes the proxy.
class Progress {
  public:
    void add(size_t calls) {
        std::lock_guard<std::mutex> lock(mMutex);
        mCalls += calls;
        mChanged.notify_all();
    }
    void callerDone() {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mDone;
        mChanged.notify_all();
    }
    // Waits until `calls` were made; false once every caller has finished instead.
    bool waitFor(size_t calls) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mCalls >= calls || mDone == kCallers; });
        return mCalls >= calls && mDone < kCallers;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mCalls = 0;  // guarded by mMutex
    int mDone = 0;      // guarded by mMutex
};

// What one caller did and what it saw go wrong.
struct CallerReport {
    size_t calls = 0;
    std::map<int32_t, size_t> flushes;  // accepted flushes by handle
    std::map<int32_t, size_t> starts;   // accepted activate(true) by handle
    size_t dumps = 0;
    std::vector<std::string> wrong;  // the first few wrong answers
    size_t wrongCount = 0;

    void check(bool ok, const std::function<std::string()>& what) {
        if (ok) return;
        if (++wrongCount <= 5) wrong.push_back(what());
    }
};

class Caller {
  public:
    Caller(int index, IioSensorSubHal* subHal, Progress* progress, FILE* dumpFile)
        : mRandom(static_cast<uint32_t>(index) + 1),
          mSubHal(subHal),
          mProgress(progress),
          mDumpFile(dumpFile) {}

    void run(CallerReport* report) {
        const auto deadline = std::chrono::steady_clock::now() + kCallTimeLimit;
        // The first call meets the others in the first publication.
        checkList(report);
        size_t unreported = 1;
        for (report->calls = 1; report->calls < kCallsPerCaller; ++report->calls) {
            call(report);
            if (++unreported == 250) {
                mProgress->add(unreported);
                unreported = 0;
                if (std::chrono::steady_clock::now() > deadline) break;
            }
        }
        mProgress->add(unreported);
        mProgress->callerDone();
    }

  private:
    int32_t handle() {
        static constexpr int32_t kUnpublished[] = {0,         6,         7,          -1,
                                                   INT32_MIN, INT32_MAX, 0x01000001, 1 << 24};
        if (mRandom() % 100 < 85) return 1 + static_cast<int32_t>(mRandom() % kDeviceCount);
        return kUnpublished[mRandom() % std::size(kUnpublished)];
    }

    void call(CallerReport* report) {
        const uint32_t op = mRandom() % 1000;
        const int32_t h = handle();
        const Result expected = isPublished(h) ? Result::OK : Result::BAD_VALUE;
        auto wrong = [h](const char* what, Result got) {
            return [=] {
                return std::string(what) + "(" + std::to_string(h) + ") answered " +
                       std::to_string(static_cast<int>(got));
            };
        };
        if (op < 350) {
            const Result got = mSubHal->flush(h);
            report->check(got == expected, wrong("flush", got));
            if (got == Result::OK) ++report->flushes[h];
        } else if (op < 355) {
            const bool enable = mRandom() % 8 != 0;
            const Result got = mSubHal->activate(h, enable);
            report->check(got == expected, wrong("activate", got));
            if (got == Result::OK && enable) ++report->starts[h];
        } else if (op < 650) {
            const Result got = mSubHal->batch(h, kPeriodNs, static_cast<int64_t>(mRandom()));
            report->check(got == expected, wrong("batch", got));
        } else if (op < 900) {
            checkList(report);
        } else {
            dump();
            ++report->dumps;
        }
    }

    void checkList(CallerReport* report) {
        size_t answers = 0;
        std::vector<SensorInfo> list;
        mSubHal->getSensorsList_2_1([&](const hidl_vec<SensorInfo>& l) {
            ++answers;
            list = l;
        });
        bool same = answers == 1 && list.size() == static_cast<size_t>(kDeviceCount);
        for (size_t i = 0; same && i < list.size(); ++i) {
            same = list[i].sensorHandle == kDevices[i].id && list[i].type == kDevices[i].type &&
                   std::string(list[i].name) == kDevices[i].name;
        }
        report->check(same, [&] {
            return "getSensorsList_2_1 answered " + std::to_string(answers) + " times with " +
                   std::to_string(list.size()) + " sensors";
        });
    }

    void dump() {
        native_handle_t* nh = native_handle_create(1, 0);
        nh->data[0] = fileno(mDumpFile);
        hidl_handle fd;
        fd.setTo(nh, false);
        mSubHal->debug(fd, hidl_vec<hidl_string>{hidl_string("-a")});
        native_handle_delete(nh);
    }

    std::mt19937 mRandom;
    IioSensorSubHal* const mSubHal;
    Progress* const mProgress;
    FILE* const mDumpFile;
};

std::string readAll(FILE* file) {
    std::rewind(file);
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, file)) > 0) text.append(buf, n);
    return text;
}

class StressTest : public HostTest {
  protected:
    StressTest() : HostTest(/*virtualTime=*/false) {}

    // One round trip through the host thread and back: everything either side sent before it has
    // been handled once the library logs the tablet-mode change.
    bool roundTrip() {
        mTabletOn = !mTabletOn;
        const size_t expected = ++mTabletLines[mTabletOn];
        host->setTabletMode(mTabletOn);
        return logs.waitFor(
            std::string("IioSensorBridge: tablet mode ") + (mTabletOn ? "ON" : "OFF"), expected);
    }

    // Round trips until the host has handled `starts[d]` StartReadingSamples for each device d:
    // then every command sent before has reached it. False if it saw more, or never as many.
    bool waitForStarts(const std::map<int32_t, size_t>& starts, int* trips) {
        auto seen = [&](const StressDevice& d) {
            return host->count({Kind::kStartReadingAsked, d.id});
        };
        auto reached = [&] {
            for (const StressDevice& d : kDevices) {
                auto it = starts.find(d.id);
                if (seen(d) < (it == starts.end() ? 0 : it->second)) return false;
            }
            return true;
        };
        for (int i = 0; i < kMaxRoundTrips && !reached(); ++i, ++*trips) {
            if (!roundTrip()) return false;
        }
        bool exact = true;
        for (const StressDevice& d : kDevices) {
            auto it = starts.find(d.id);
            const size_t expected = it == starts.end() ? 0 : it->second;
            EXPECT_EQ(seen(d), expected) << "StartReadingSamples of device " << d.id;
            exact = exact && seen(d) == expected;
        }
        return exact;
    }

    bool mTabletOn = false;
    size_t mTabletLines[2] = {0, 0};
};

TEST_F(StressTest, ConcurrentCallersReinitializationAndStreamingKeepEveryGuarantee) {
    HostConfig config;
    for (const StressDevice& d : kDevices) config.devices.push_back(scriptedDevice(d));
    host = std::make_unique<EmulatedHost>(std::move(config));  // streams by its own timer
    host->registerWithBridge();
    subHal = new IioSensorSubHal();

    std::vector<android::sp<EventLog>> callbacks{new EventLog()};
    ASSERT_EQ(subHal->initialize(callbacks.back()), Result::OK);

    Progress progress;
    std::vector<CallerReport> reports(kCallers);
    std::vector<std::unique_ptr<FILE, int (*)(FILE*)>> dumpFiles;
    for (int i = 0; i < kCallers; ++i) {
        dumpFiles.emplace_back(std::tmpfile(), &std::fclose);
        ASSERT_NE(dumpFiles.back(), nullptr);
    }
    std::vector<std::thread> callers;
    for (int i = 0; i < kCallers; ++i) {
        callers.emplace_back(
            [&, i] { Caller(i, subHal.get(), &progress, dumpFiles[i].get()).run(&reports[i]); });
    }
    std::thread initializer([&] {
        for (size_t next = kInitEvery; progress.waitFor(next); next += kInitEvery) {
            callbacks.push_back(new EventLog());
            subHal->initialize(callbacks.back());
        }
    });
    std::thread burster([&] {
        for (size_t next = kBurstEvery; progress.waitFor(next); next += kBurstEvery) {
            for (const StressDevice& d : kDevices) host->emitBurst(d.id, kBurst);
        }
    });
    for (std::thread& t : callers) t.join();
    initializer.join();
    burster.join();

    // Let the host work off the callers' commands, so that what it still sends goes to the
    // observers of the stress phase, then enter the quiet phase: one callback, every sensor
    // activated once more.
    std::map<int32_t, size_t> starts;
    for (const CallerReport& r : reports) {
        for (const auto& [h, n] : r.starts) starts[h] += n;
    }
    int trips = 0;
    ASSERT_TRUE(waitForStarts(starts, &trips));
    android::sp<EventLog> last = new EventLog();
    callbacks.push_back(last);
    ASSERT_EQ(subHal->initialize(last), Result::OK);
    for (const StressDevice& d : kDevices) {
        ASSERT_EQ(subHal->activate(d.id, true), Result::OK);
        ++starts[d.id];
    }
    ASSERT_TRUE(waitForStarts(starts, &trips));
    // The host now streams each device to its newest observer; marks pushed in between must all
    // arrive.
    for (int k = 0; k < kMarks; ++k) {
        for (const StressDevice& d : kDevices) {
            host->pushSample(d.id, {{timestampChannel(d), d.id * kSeqBase + kMarkOffset + k}});
        }
    }
    auto isMark = [](const Event& e) {
        return e.sensorType != SensorType::META_DATA &&
               e.timestamp >= e.sensorHandle * kSeqBase + kMarkOffset;
    };
    size_t scanned = 0;
    size_t marksSeen = 0;
    EXPECT_TRUE(last->waitUntil([&](const std::vector<Event>& events) {
        for (; scanned < events.size(); ++scanned) marksSeen += isMark(events[scanned]) ? 1 : 0;
        return marksSeen >= static_cast<size_t>(kMarks * kDeviceCount);
    }));

    // Every call answered right.
    size_t calls = 0;
    std::map<int32_t, size_t> flushes;
    for (int i = 0; i < kCallers; ++i) {
        const CallerReport& r = reports[i];
        calls += r.calls;
        EXPECT_EQ(r.wrongCount, 0u) << "caller " << i << ", first: " << r.wrong.front();
        for (const auto& [h, n] : r.flushes) flushes[h] += n;
        std::string expected;
        for (size_t n = 0; n < r.dumps; ++n) expected += expectedReport();
        EXPECT_EQ(readAll(dumpFiles[i].get()), expected) << "caller " << i;
    }
    EXPECT_EQ(logs.count("IioSensorSubHal: discovered 5 sensors"), 1u);

    // Flush completions exactly once; samples never twice and never out of order.
    std::map<int32_t, size_t> completions;
    std::map<int32_t, std::set<int64_t>> seen;
    size_t samples = 0;
    for (size_t c = 0; c < callbacks.size(); ++c) {
        EXPECT_EQ(callbacks[c]->lockedPosts(), 0u);
        std::map<std::pair<int32_t, bool>, int64_t> previous;  // (handle, mark) -> last sequence
        for (const Event& e : callbacks[c]->events()) {
            ASSERT_TRUE(isPublished(e.sensorHandle)) << "event for handle " << e.sensorHandle;
            const StressDevice& d = kDevices[e.sensorHandle - 1];
            if (e.sensorType == SensorType::META_DATA) {
                EXPECT_EQ(e.u.meta.what, MetaDataEventType::META_DATA_FLUSH_COMPLETE);
                ++completions[e.sensorHandle];
                continue;
            }
            ASSERT_EQ(e.sensorType, d.type);
            const bool mark = isMark(e);
            const int64_t k = e.timestamp - d.id * kSeqBase - (mark ? kMarkOffset : 0);
            ASSERT_TRUE(k >= 0 && k < (mark ? kMarks : kScriptLength))
                << "handle " << e.sensorHandle << " timestamp " << e.timestamp;
            if (mark) {
                ASSERT_EQ(c + 1, callbacks.size()) << "a mark before the quiet phase";
            }
            auto before = previous.find({e.sensorHandle, mark});
            if (before != previous.end()) {
                ASSERT_LT(before->second, k) << "handle " << e.sensorHandle << " callback " << c;
            }
            previous[{e.sensorHandle, mark}] = k;
            if (!mark) {
                ASSERT_TRUE(seen[e.sensorHandle].insert(k).second)
                    << "handle " << e.sensorHandle << " sample " << k << " twice";
                ++samples;
            }
        }
    }
    EXPECT_EQ(completions, flushes);

    // The quiet phase lost nothing: each sensor's marks, all of them, in order.
    std::map<int32_t, std::vector<int64_t>> marks;
    for (const Event& e : last->events()) {
        if (isMark(e))
            marks[e.sensorHandle].push_back(e.timestamp - e.sensorHandle * kSeqBase - kMarkOffset);
    }
    std::vector<int64_t> all(kMarks);
    for (int k = 0; k < kMarks; ++k) all[k] = k;
    for (const StressDevice& d : kDevices) EXPECT_EQ(marks[d.id], all) << "handle " << d.id;

    std::printf("%zu calls, %zu callbacks, %zu sample events, %d host round trips\n", calls,
                callbacks.size(), samples, trips);
}

}  // namespace
}  // namespace kelvane::sensors
