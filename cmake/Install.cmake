# What `cmake --install` puts under the prefix, relocatable: the tool in bin/, the sub-HAL and the
# project's shared libraries the tool needs in the private lib/iio-subhal/, the man page. Run paths
# are relative to $ORIGIN, plus Debian's directory of Android's libraries, so the tree works
# wherever it is copied. `cpack -G DEB` in the build tree packages the same tree.

# The project's libraries that iio-subhal and the sub-HAL need at run time.
set(KELVANE_RUNTIME_LIBRARIES
  iio_sensors_subhal mojom_bindings platform_android platform_base platform_mojo platform_vel
  host_description host_common emulated_host host_libiio)

foreach(library ${KELVANE_RUNTIME_LIBRARIES})
  set_property(TARGET ${library} PROPERTY INSTALL_RPATH "$ORIGIN;${ANDROID_UTILS_LIBRARY_DIR}")
endforeach()
set_property(TARGET iio-subhal PROPERTY INSTALL_RPATH
  "$ORIGIN/${KELVANE_LIBDIR_FROM_BINDIR};${ANDROID_UTILS_LIBRARY_DIR}")

# The man page, made from the tool's help at build time (cmake/ManPageScript.cmake). A sanitizer
# tree installs nothing and leaves it out.
if(SANITIZE STREQUAL "")
  set(man_page ${CMAKE_BINARY_DIR}/share/man/man1/iio-subhal.1)
  add_custom_command(
    OUTPUT ${man_page}
    COMMAND ${CMAKE_COMMAND} -DTOOL=$<TARGET_FILE:iio-subhal> -DOUTPUT=${man_page}
            -DVERSION=${PROJECT_VERSION} -P ${CMAKE_SOURCE_DIR}/cmake/ManPageScript.cmake
    DEPENDS iio-subhal ${CMAKE_SOURCE_DIR}/cmake/ManPageScript.cmake
    COMMENT "Writing the man page of iio-subhal"
    VERBATIM)
  add_custom_target(iio_subhal_man_page ALL DEPENDS ${man_page})
  install(FILES ${man_page} DESTINATION share/man/man1)
endif()

install(TARGETS iio-subhal RUNTIME DESTINATION ${KELVANE_BINDIR})
install(TARGETS ${KELVANE_RUNTIME_LIBRARIES} LIBRARY DESTINATION ${KELVANE_LIBDIR})

set(CPACK_PACKAGE_NAME iio-subhal)
set(CPACK_PACKAGE_CONTACT "Kelvane developers <iio-subhal@kelvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Bench for the Android IIO sensors sub-HAL, with the sub-HAL and an emulated Chrome OS host")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# dpkg-shlibdeps finds the Debian packages of every library linked (libiio, Android's libraries,
# the C++ runtime); the project's own come with the package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/${KELVANE_LIBDIR})
include(CPack)
