// Loads a sub-HAL library the way the multi-HAL proxy does.
#pragma once

#include <V2_1/SubHal.h>

#include <string>

namespace kelvane::tools {

using android::hardware::sensors::V2_1::implementation::ISensorsSubHal;

// The library built or installed with this program:
// <dir of the executable>/../lib/iio-subhal/libiio-sensors-subhal.so (the directory comes from the
// build, IIO_SUBHAL_LIBDIR_FROM_BINDIR).
std::string defaultLibraryPath();

// dlopen()s `path` with RTLD_NOW, calls its sensorsHalGetSubHal_2_1 and accepts the sub-HAL only
// if it reports the 2.1 sub-HAL version. The library stays loaded for the life of the process, as
// it does in the proxy. On failure returns null with a one-line reason in *error.
ISensorsSubHal* loadSubHal(const std::string& path, std::string* error);

// The GNU build ID of the library loaded from `path`, in hex: which build a report judged. Empty
// when that library is not loaded or carries no build ID.
std::string loadedLibraryBuildId(const std::string& path);

}  // namespace kelvane::tools
