#include "Session.h"

#include <base/logging.h>
#include <log/log_capture.h>

#include <cstdio>
#include <set>
#include <utility>

#include "host/common/Recorder.h"
#include "host/emulated/EmulatedHost.h"
#include "host/emulated/HostDescription.h"
#include "host/libiio/LibiioHost.h"

namespace kelvane::tools {

namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SensorFlagBits;

bool dropLogMessage(int, const char*, int, size_t, const std::string&) { return true; }

// Both of the library's log channels go quiet, so that stderr carries only the tool's own words.
void silenceLibraryLogs() {
    android_log_set_sink([](int, const std::string&, const std::string&) {});
    logging::SetLogMessageHandler(&dropLogMessage);
}

}  // namespace

void printError(const std::string& message) {
    std::fprintf(stderr, "iio-subhal: %s\n", message.c_str());
}

void printWarning(const std::string& message) {
    std::fprintf(stderr, "iio-subhal: warning: %s\n", message.c_str());
}

Session::Session() = default;

Session::~Session() { mHost.reset(); }

int Session::close() {
    mHost.reset();  // every pipe through the recorder is closed with it
    if (!mRecorder) return kExitOk;
    std::string error;
    if (!mRecorder->write(mRecordFile, &error)) {
        printError(error);
        return kExitFailure;
    }
    return kExitOk;
}

int Session::open(const CommonOptions& options) {
    mJson = options.json;
    host::HostConfig config;
    if (!options.iioUri.empty()) {
        std::string error;
        std::unique_ptr<host::iio::LibiioHost> iioHost =
            host::iio::LibiioHost::open(options.iioUri, &error);
        if (!iioHost) {
            printError(error);
            return kExitFailure;
        }
        mHost = std::move(iioHost);
    } else if (options.hostFile.empty()) {
        config = host::builtInHost();
    } else {
        std::string error;
        if (!host::loadHostDescription(options.hostFile, &config, &error)) {
            printError(error);
            return kExitUsage;
        }
    }
    if (!options.log) silenceLibraryLogs();

    if (!mHost) {
        config.speed = options.speed;
        mHost = std::make_unique<host::EmulatedHost>(std::move(config));
    }
    if (!options.recordFile.empty()) {
        mRecorder = std::make_unique<host::Recorder>();
        mRecordFile = options.recordFile;
        mHost->setServiceInterposer(mRecorder->interposer());
    }
    mHost->registerWithBridge();

    const std::string path = options.library.empty() ? defaultLibraryPath() : options.library;
    std::string error;
    mSubHal = loadSubHal(path, &error);
    if (mSubHal == nullptr) {
        printError(error);
        return kExitFailure;
    }
    if (options.log) {
        std::fprintf(stderr, "iio-subhal: loaded sub-HAL \"%s\" from %s\n",
                     mSubHal->getName().c_str(), path.c_str());
    }

    mCallback = new ProxyCallback();
    Result result = mSubHal->initialize(mCallback);
    if (result != Result::OK) {
        printError("initialize failed with result " + std::to_string(static_cast<int>(result)));
        return kExitFailure;
    }
    fetchSensors();
    return kExitOk;
}

void Session::fetchSensors() {
    // The first query waits while the host enumerates its devices.
    std::fprintf(stderr, "waiting for the sensor list...\n");
    std::vector<SensorInfo> published;
    mSubHal->getSensorsList_2_1(
        [&published](const hidl_vec<SensorInfo>& list) { published = list; });
    mPublished = published;

    std::set<int32_t> wakeUp;
    for (const SensorInfo& sensor : published) {
        // The proxy keeps the top byte for the sub-HAL's index and refuses sensors that use it.
        if ((static_cast<uint32_t>(sensor.sensorHandle) & 0xFF000000u) != 0) {
            char handle[16];
            std::snprintf(handle, sizeof(handle), "0x%08x", sensor.sensorHandle);
            printWarning(std::string("dropping sensor ") + handle + " \"" + sensor.name.c_str() +
                         "\": its handle has a non-zero top byte");
            continue;
        }
        if ((sensor.flags & SensorFlagBits::WAKE_UP) != 0) wakeUp.insert(sensor.sensorHandle);
        mSensors.push_back(sensor);
    }
    if (mSensors.empty()) printWarning("the sub-HAL published no sensors");
    mCallback->setWakeUpHandles(std::move(wakeUp));
}

const Session::SensorInfo* Session::find(int32_t handle) const {
    for (const SensorInfo& sensor : mSensors) {
        if (sensor.sensorHandle == handle) return &sensor;
    }
    return nullptr;
}

}  // namespace kelvane::tools
