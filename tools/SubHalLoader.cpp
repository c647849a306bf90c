#include "SubHalLoader.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>

namespace kelvane::tools {

namespace {
constexpr const char* kEntryPoint = "sensorsHalGetSubHal_2_1";
constexpr const char* kLibraryName = "libiio-sensors-subhal.so";
}  // namespace

std::string defaultLibraryPath() {
    const std::string fromBin = std::string(IIO_SUBHAL_LIBDIR_FROM_BINDIR "/") + kLibraryName;
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) return fromBin;
    std::string exe(self, static_cast<size_t>(n));
    size_t slash = exe.rfind('/');
    std::string dir = slash == std::string::npos ? "." : exe.substr(0, slash);
    return dir + "/" + fromBin;
}

ISensorsSubHal* loadSubHal(const std::string& path, std::string* error) {
    void* library = dlopen(path.c_str(), RTLD_NOW);
    if (library == nullptr) {
        const char* reason = dlerror();
        *error = std::string("cannot load the sub-HAL: ") + (reason ? reason : path.c_str());
        return nullptr;
    }
    dlerror();
    void* symbol = dlsym(library, kEntryPoint);
    if (symbol == nullptr) {
        *error = path + ": no entry point " + kEntryPoint;
        return nullptr;
    }
    auto* getSubHal = reinterpret_cast<SensorsHalGetSubHalV2_1Func*>(symbol);
    uint32_t version = 0;
    ISensorsSubHal* subHal = getSubHal(&version);
    if (version != android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION) {
        char text[96];
        std::snprintf(text, sizeof(text), ": sub-HAL version 0x%08x, expected 0x%08x", version,
                      android::hardware::sensors::V2_1::implementation::SUB_HAL_2_1_VERSION);
        *error = path + text;
        return nullptr;
    }
    if (subHal == nullptr) {
        *error = path + ": " + kEntryPoint + " returned no sub-HAL";
        return nullptr;
    }
    return subHal;
}

}  // namespace kelvane::tools
