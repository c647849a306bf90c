#include "SubHalLoader.h"

#include <dlfcn.h>
#include <elf.h>
#include <limits.h>
#include <link.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace kelvane::tools {

namespace {
constexpr const char* kEntryPoint = "sensorsHalGetSubHal_2_1";
constexpr const char* kLibraryName = "libiio-sensors-subhal.so";
// The path with every link resolved, or `path` itself when it does not exist.
std::string resolved(const char* path) {
    std::unique_ptr<char, decltype(&std::free)> real(realpath(path, nullptr), &std::free);
    return real ? real.get() : path;
}

// The build ID in the note segments of one loaded object, or "".
std::string buildIdOf(const dl_phdr_info& object) {
    for (ElfW(Half) i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object.dlpi_phdr[i];
        if (segment.p_type != PT_NOTE) continue;
        const auto* at = reinterpret_cast<const unsigned char*>(object.dlpi_addr + segment.p_vaddr);
        const unsigned char* end = at + segment.p_memsz;
        while (at + sizeof(ElfW(Nhdr)) <= end) {
            const auto* note = reinterpret_cast<const ElfW(Nhdr)*>(at);
            const unsigned char* name = at + sizeof(ElfW(Nhdr));
            const unsigned char* desc = name + ((note->n_namesz + 3) & ~3u);
            if (note->n_type == NT_GNU_BUILD_ID && note->n_namesz == 4 &&
                desc + note->n_descsz <= end) {
                std::string hex;
                char byte[3];
                for (ElfW(Word) b = 0; b < note->n_descsz; ++b) {
                    std::snprintf(byte, sizeof(byte), "%02x", desc[b]);
                    hex += byte;
                }
                return hex;
            }
            at = desc + ((note->n_descsz + 3) & ~3u);
        }
    }
    return "";
}

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

std::string loadedLibraryBuildId(const std::string& path) {
    struct Search {
        std::string wanted;
        std::string found;
    } search{resolved(path.c_str()), ""};
    dl_iterate_phdr(
        [](dl_phdr_info* object, size_t, void* data) {
            auto* s = static_cast<Search*>(data);
            if (object->dlpi_name == nullptr || object->dlpi_name[0] == '\0') return 0;
            if (resolved(object->dlpi_name) != s->wanted) return 0;
            s->found = buildIdOf(*object);
            return 1;
        },
        &search);
    return search.found;
}

}  // namespace kelvane::tools
