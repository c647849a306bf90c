#include "Session.h"

#include <android/log.h>
#include <base/logging.h>
#include <base/strings/string_number_conversions.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>

#include "Output.h"
#include "OutputFile.h"
#include "StopSignals.h"
#include "host/common/Recorder.h"
#include "host/description/BuiltInHost.h"
#include "host/description/DescriptionReader.h"
#include "host/description/DescriptionWriter.h"
#include "host/emulated/EmulatedHost.h"
#include "host/libiio/LibiioHost.h"

namespace kelvane::tools {

namespace {

using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::Result;
using android::hardware::sensors::V1_0::SensorFlagBits;

bool dropLogMessage(int, const char*, int, size_t, const std::string&) { return true; }

// Both of the library's log channels go quiet, so that stderr carries only the tool's own words.
// Until then liblog writes the Android log's lines to stderr in its own format.
void silenceLibraryLogs() {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    logging::SetLogMessageHandler(&dropLogMessage);
}

// "-" is standard input; errors name it "<stdin>".
bool loadDescription(const std::string& file, host::description::HostConfig* config) {
    std::string error;
    if (host::description::loadHostDescription(file, config, &error,
                                               host::description::kMaxDescriptionBytes,
                                               [] { return stopSignal() != 0; })) {
        return true;
    }
    if (stopSignal() != 0) return false;  // said by the caller
    printError(printable(error));
    return false;
}

// A bare name is a file in the current directory, as it is everywhere else on the command line:
// dlopen() would otherwise search the library path and load some other copy.
std::string libraryPath(const std::string& option) {
    if (option.empty()) return defaultLibraryPath();
    return option.find('/') == std::string::npos ? "./" + option : option;
}

bool hasTimedParts(const host::description::HostConfig& config) {
    if (!config.timeline.empty()) return true;
    for (const host::description::VirtualDevice& device : config.devices) {
        if (device.timedSamples && device.timedSamples->size() != 0) return true;
    }
    return false;
}

}  // namespace

Session::Session() = default;

Session::~Session() { close(); }

int Session::close() {
    silenceLibraryLogs();
    if (mHost.watch) mHost.watch->stop();
    mHost.watch.reset();
    mHost.host.reset();  // every pipe through the recorder is closed with it
    // Written once, whatever ended the run.
    const std::unique_ptr<host::common::Recorder> recorder = std::move(mHost.recorder);
    const std::unique_ptr<OutputFile> file = std::move(mHost.recordFile);
    if (!recorder || !file) return kExitOk;
    return writeRecording(*recorder, file.get());
}

int Session::writeRecording(const host::common::Recorder& recorder, OutputFile* file) {
    const host::description::HostConfig recording = recorder.description();
    std::string error;
    const auto write = [&recording](std::FILE* out) {
        return host::description::writeHostDescription(recording, out);
    };
    if (!file->commit(write, &error)) {
        printError(printable(error));
        return kExitFailure;
    }
    size_t samples = 0;
    for (const host::description::VirtualDevice& device : recording.devices) {
        if (device.timedSamples) samples += device.timedSamples->size();
    }
    std::fprintf(stderr, "iio-subhal: recorded %zu samples of %zu devices to %s\n", samples,
                 recording.devices.size(), printable(file->target()).c_str());
    return kExitOk;
}

// The library reads "scale" with base::StringToDouble and publishes raw values when it cannot;
// a description that does this on purpose still deserves a word.
static void warnUnreadableScales(const host::description::HostConfig& config) {
    for (const host::description::VirtualDevice& device : config.devices) {
        auto scale = device.attributes.find("scale");
        if (scale == device.attributes.end() || !scale->second.has_value()) continue;
        double value = 0.0;
        if (base::StringToDouble(*scale->second, &value)) continue;
        printWarning("device " + std::to_string(device.id) + ": scale \"" +
                     printable(*scale->second) +
                     "\" is not a number the library reads; its values are published unscaled");
    }
}

int Session::open(const CommonOptions& options) {
    mSettled.json = options.json;
    if (int code = checkOptions(options); code != kExitOk) return code;
    host::description::HostConfig config;
    if (int code = readHost(options, &config); code != kExitOk) return code;
    warnUnreadableScales(config);
    // Every context but this machine's reads a board with its own clock.
    const bool remoteClock = !options.iioUri.empty() && options.iioUri.rfind("local:", 0) != 0;
    mSettled.replay = ReplayFacts::of(config, options.speed, remoteClock);
    if (!options.log) silenceLibraryLogs();
    const uint32_t offeredVersion = config.bridgeVersion;
    startHost(std::move(config), options);
    if (int code = loadLibrary(options); code != kExitOk) return code;
    mHost.watch->enumerationDone(mLibrary.sensors.size(), offeredVersion);
    return kExitOk;
}

int Session::checkOptions(const CommonOptions& options) {
    if (options.speedGiven && (!options.iioUri.empty() || options.hostFile.empty())) {
        printError(std::string("--speed applies to the recorded samples and timeline of a --host "
                               "description; ") +
                   (options.iioUri.empty() ? "the built-in host generates its samples live"
                                           : "--iio serves real devices as they sample"));
        return kExitUsage;
    }
    if (options.recordFile.empty()) return kExitOk;
    // Before anything runs, so that a path that cannot be written costs no stream.
    std::string error;
    mHost.recordFile = OutputFile::create(options.recordFile, OutputFile::Role(), &error);
    if (mHost.recordFile) return kExitOk;
    printError(printable(error));
    return kExitUsage;
}

// The libiio host is opened here; an emulated one is described in *config, built later.
int Session::readHost(const CommonOptions& options, host::description::HostConfig* config) {
    const std::string& file = options.hostFile;
    mSettled.hostInput = file;
    mSettled.hostKind = !options.iioUri.empty() ? HostKind::kIio
                        : file.empty()          ? HostKind::kBuiltIn
                                                : HostKind::kDescription;
    mSettled.hostName = !options.iioUri.empty() ? "the IIO devices of " + options.iioUri
                        : file.empty()          ? "the built-in emulated host"
                                       : "the emulated host of " + (file == "-" ? "<stdin>" : file);
    if (!options.iioUri.empty()) {
        std::string error;
        std::unique_ptr<host::iio::LibiioHost> iio =
            host::iio::LibiioHost::open(options.iioUri, &error);
        if (iio) {
            mSettled.selfStampedTypes = iio->selfStampedTypes();
            mHost.host = std::move(iio);
            return kExitOk;
        }
        printError(error);
        return kExitFailure;
    }
    if (file.empty()) {
        *config = host::description::builtInHost();
        return kExitOk;
    }
    if (!loadDescription(file, config)) {
        if (stopSignal() != 0) {
            return stoppedBeforeDone("while reading " + printable(file == "-" ? "<stdin>" : file));
        }
        return kExitUsage;
    }
    if (options.speedGiven && !hasTimedParts(*config)) {
        printWarning("--speed changes nothing: " + printable(file == "-" ? "<stdin>" : file) +
                     " has no recorded samples (timedSamples) and no timeline");
    }
    return kExitOk;
}

void Session::startHost(host::description::HostConfig config, const CommonOptions& options) {
    if (!mHost.host) {
        config.speed = options.speed;
        mHost.host = std::make_unique<host::emulated::EmulatedHost>(std::move(config));
    }
    if (mHost.recordFile || options.recordOnDemand) {
        // A replay's timestamps are the recorded host's, not this machine's.
        const ReplayFacts& replay = mSettled.replay;
        mHost.recorder =
            std::make_unique<host::common::Recorder>(!replay.remoteClock && replay.devices.empty());
        if (!mHost.recordFile) mHost.recorder->pause();
        mHost.host->setServiceInterposer(mHost.recorder->interposer());
    }
    mHost.started = std::chrono::steady_clock::now();
    mHost.watch = std::make_unique<HostWatch>(mHost.host->log());
    mHost.host->registerWithBridge();
}

int Session::loadLibrary(const CommonOptions& options) {
    const std::string path = libraryPath(options.library);
    mLibrary.path = path;
    std::string error;
    mLibrary.subHal = loadSubHal(path, &error);
    if (mLibrary.subHal == nullptr) {
        printError(error);
        return kExitFailure;
    }
    if (options.log) {
        char* resolved = realpath(path.c_str(), nullptr);
        std::fprintf(stderr, "iio-subhal: loaded sub-HAL \"%s\" from %s\n",
                     printable(mLibrary.subHal->getName()).c_str(),
                     resolved ? resolved : path.c_str());
        std::free(resolved);
    }
    mLibrary.callback = new ProxyCallback();
    Result result = mLibrary.subHal->initialize(mLibrary.callback);
    if (result != Result::OK) {
        printError("initialize failed with result " + std::to_string(static_cast<int>(result)));
        return kExitFailure;
    }
    fetchSensors();
    return kExitOk;
}

std::vector<std::string> Session::hostProblems() const {
    return mHost.watch ? mHost.watch->problems() : std::vector<std::string>();
}

void Session::fetchSensors() {
    // The first query waits while the library enumerates the host's devices.
    std::vector<SensorInfo> published;
    mLibrary.subHal->getSensorsList_2_1(
        [&published](const hidl_vec<SensorInfo>& list) { published = list; });
    mLibrary.published = published;

    std::set<int32_t> wakeUp;
    for (const SensorInfo& sensor : published) {
        // The proxy keeps the top byte for the sub-HAL's index and refuses sensors that use it.
        if ((static_cast<uint32_t>(sensor.sensorHandle) & 0xFF000000u) != 0) {
            char handle[16];
            std::snprintf(handle, sizeof(handle), "0x%08x", sensor.sensorHandle);
            printWarning(std::string("dropping sensor ") + handle + " \"" + printable(sensor.name) +
                         "\": its handle has a non-zero top byte");
            continue;
        }
        if ((sensor.flags & SensorFlagBits::WAKE_UP) != 0) wakeUp.insert(sensor.sensorHandle);
        mLibrary.sensors.push_back(sensor);
    }
    mLibrary.callback->setWakeUpHandles(std::move(wakeUp));
}

const Session::SensorInfo* Session::find(int32_t handle) const {
    for (const SensorInfo& sensor : mLibrary.sensors) {
        if (sensor.sensorHandle == handle) return &sensor;
    }
    return nullptr;
}

}  // namespace kelvane::tools
