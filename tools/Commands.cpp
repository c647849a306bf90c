// list, flush and dump; stream has a file of its own.
#include "Commands.h"

#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "Output.h"

namespace kelvane::tools {

namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::sensors::V1_0::Result;

constexpr std::chrono::seconds kFlushWait{2};

}  // namespace

int runList(Session& session) {
    const std::string text =
        session.json() ? sensorsJson(session.sensors()) : sensorTable(session.sensors());
    std::fputs(text.c_str(), stdout);
    return kExitOk;
}

int runFlush(Session& session, int32_t handle) {
    const auto* sensor = session.find(handle);
    if (sensor == nullptr) {
        printError("unknown sensor handle " + std::to_string(handle) + " (see `iio-subhal list`)");
        return kExitFailure;
    }
    Result result = session.subHal()->flush(handle);
    if (result != Result::OK) {
        printError("flush(" + std::to_string(handle) + ") answered " +
                   std::to_string(static_cast<int>(result)));
        return kExitFailure;
    }
    const auto deadline = std::chrono::steady_clock::now() + kFlushWait;
    int completions = 0;
    while (completions == 0 && std::chrono::steady_clock::now() < deadline) {
        for (const Event& event : session.callback().queue().takeUntil(deadline)) {
            if (!isMeta(event) || event.sensorHandle != handle) continue;
            ++completions;
            const std::string line =
                session.json() ? eventJson(event) : eventText(event, sensor->name);
            std::printf("%s\n", line.c_str());
        }
    }
    if (completions == 0) {
        printError("no flush-complete event for sensor " + std::to_string(handle) + " within 2 s");
        return kExitFailure;
    }
    return kExitOk;
}

int runDump(Session& session) {
    // A file rather than a pipe: the library writes the whole report before it returns.
    FILE* report = std::tmpfile();
    if (report == nullptr) {
        printError(std::string("cannot create a file for the report: ") + std::strerror(errno));
        return kExitFailure;
    }
    native_handle_t* native = native_handle_create(1, 0);
    if (native == nullptr) {
        std::fclose(report);
        printError("cannot create a native handle");
        return kExitFailure;
    }
    native->data[0] = fileno(report);
    session.subHal()->debug(hidl_handle(native), hidl_vec<hidl_string>());
    native_handle_delete(native);  // the descriptor stays open: it belongs to `report`

    std::fseek(report, 0, SEEK_SET);
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof(buffer), report)) > 0) {
        std::fwrite(buffer, 1, n, stdout);
    }
    std::fclose(report);
    return kExitOk;
}

}  // namespace kelvane::tools
