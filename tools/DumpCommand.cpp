// dump: the sub-HAL's debug report, as the proxy's dumpsys would get it.
#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Command.h"
#include "Stdout.h"

namespace kelvane::tools {

namespace {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;

class DumpCommand : public Command {
  public:
    void addOptions(CLI::App&) override {}
    bool hasJson() const override { return false; }

    int run(Session& session) override {
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
            if (!writeStdout(std::string(buffer, n))) break;
        }
        std::fclose(report);
        return kExitOk;
    }
};

}  // namespace

std::unique_ptr<Command> makeDumpCommand() { return std::make_unique<DumpCommand>(); }

}  // namespace kelvane::tools
