# Finds Android's own libutils, liblog and libcutils as Debian builds them (android-libutils-dev,
# android-liblog-dev, android-libcutils-dev). They ship no pkg-config files and live outside the
# linker's search path, so the paths are given here and the programs get an rpath to them.
#
# Defines the imported targets AndroidUtils::utils, AndroidUtils::log and AndroidUtils::cutils.
# Fails the configuration when a header or a library is missing.

set(ANDROID_UTILS_INCLUDE_DIR "/usr/include/android" CACHE PATH "Android platform headers")
set(ANDROID_UTILS_LIBRARY_DIR "/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android"
    CACHE PATH "Android platform libraries")

set(_android_utils_missing "")
foreach(header utils/RefBase.h utils/SystemClock.h log/log.h cutils/native_handle.h)
  if(NOT EXISTS "${ANDROID_UTILS_INCLUDE_DIR}/${header}")
    list(APPEND _android_utils_missing "${ANDROID_UTILS_INCLUDE_DIR}/${header}")
  endif()
endforeach()

foreach(lib utils log cutils)
  find_library(ANDROID_UTILS_${lib}_LIBRARY NAMES ${lib} PATHS "${ANDROID_UTILS_LIBRARY_DIR}"
               NO_DEFAULT_PATH)
  if(NOT ANDROID_UTILS_${lib}_LIBRARY)
    list(APPEND _android_utils_missing "${ANDROID_UTILS_LIBRARY_DIR}/lib${lib}.so")
  endif()
endforeach()

if(_android_utils_missing)
  string(REPLACE ";" ", " _android_utils_missing "${_android_utils_missing}")
  message(FATAL_ERROR "Android's libutils, liblog and libcutils are missing (${_android_utils_missing}): "
                      "run scripts/install-deps, or apt-get install android-libutils-dev "
                      "android-liblog-dev android-libcutils-dev")
endif()

set(AndroidUtils_FOUND TRUE)

foreach(lib log cutils utils)
  if(NOT TARGET AndroidUtils::${lib})
    add_library(AndroidUtils::${lib} SHARED IMPORTED)
    set_target_properties(AndroidUtils::${lib} PROPERTIES
      IMPORTED_LOCATION "${ANDROID_UTILS_${lib}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${ANDROID_UTILS_INCLUDE_DIR}")
  endif()
endforeach()
set_target_properties(AndroidUtils::cutils PROPERTIES INTERFACE_LINK_LIBRARIES AndroidUtils::log)
set_target_properties(AndroidUtils::utils PROPERTIES
  INTERFACE_LINK_LIBRARIES "AndroidUtils::cutils;AndroidUtils::log")

# The build tree's programs and libraries find them through their rpath; so do installed ones.
list(APPEND CMAKE_INSTALL_RPATH "${ANDROID_UTILS_LIBRARY_DIR}")
