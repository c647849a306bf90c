#include "DebugReport.h"

#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kelvane::tools {

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;

bool debugReport(ISensorsSubHal& subHal, std::string* report, std::string* error) {
    // A file rather than a pipe: the library writes the whole report before it returns.
    FILE* file = std::tmpfile();
    if (file == nullptr) {
        *error = std::string("cannot create a file for the report: ") + std::strerror(errno);
        return false;
    }
    native_handle_t* native = native_handle_create(1, 0);
    if (native == nullptr) {
        std::fclose(file);
        *error = "cannot create a native handle";
        return false;
    }
    native->data[0] = fileno(file);
    subHal.debug(hidl_handle(native), hidl_vec<hidl_string>());
    native_handle_delete(native);  // the descriptor stays open: it belongs to `file`

    std::fseek(file, 0, SEEK_SET);
    report->clear();
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof(buffer), file)) > 0) report->append(buffer, n);
    std::fclose(file);
    return true;
}

}  // namespace kelvane::tools
