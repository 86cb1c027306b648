# What `cmake --install` puts where, the pkg-config file, the CMake package
# and the Debian package. Everything carries the project's one version.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The module and the logging library: hosts dlopen the module by its soname
# (VELLUMRIG_MODULE_NAME in version.h); the unversioned name stays for
# hosts that name the file.
set_target_properties(vellumrig vellumrig_logging PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
install(TARGETS vellumrig vellumrig_logging
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
install(TARGETS vrig RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
# nbdkit's plugin folder under the library folder: on Debian with prefix
# /usr that is where `nbdkit vellumrig` looks; vrig vhdx serve finds it
# relative to itself under any prefix.
if(TARGET nbdkit-vellumrig-plugin)
  install(TARGETS nbdkit-vellumrig-plugin
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/nbdkit/plugins COMPONENT runtime)
endif()

# vrig finds the module in the library folder next to its own, wherever the
# tree is installed (lib, or lib/<multiarch> under /usr).
file(RELATIVE_PATH VRIG_LIBDIR_FROM_BINDIR
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
target_compile_definitions(vrig PRIVATE VRIG_LIBDIR_FROM_BINDIR="${VRIG_LIBDIR_FROM_BINDIR}")

# The host library and the headers, with an imported target for CMake users.
set_target_properties(vellumrig_host PROPERTIES EXPORT_NAME host)
install(TARGETS vellumrig_host EXPORT vellumrigTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/vellumrig ${GEN_INCLUDE_DIR}/vellumrig
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(VELLUMRIG_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vellumrig)
install(EXPORT vellumrigTargets NAMESPACE vellumrig:: DESTINATION ${VELLUMRIG_CMAKE_DIR}
  COMPONENT development)
set(VELLUMRIG_MODULE_FILE ${CMAKE_INSTALL_LIBDIR}/libvellumrig.so.${PROJECT_VERSION_MAJOR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/vellumrigConfig.cmake.in
  ${CMAKE_BINARY_DIR}/vellumrigConfig.cmake
  INSTALL_DESTINATION ${VELLUMRIG_CMAKE_DIR}
  PATH_VARS VELLUMRIG_MODULE_FILE)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vellumrigConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vellumrigConfig.cmake ${CMAKE_BINARY_DIR}/vellumrigConfigVersion.cmake
  DESTINATION ${VELLUMRIG_CMAKE_DIR} COMPONENT development)

# pkg-config: paths relative to its own place, so the tree may be moved.
file(RELATIVE_PATH VELLUMRIG_PC_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_SOURCE_DIR}/cmake/vellumrig.pc.in ${CMAKE_BINARY_DIR}/vellumrig.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vellumrig.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# --- Debian package: `cpack -G DEB` in the build folder --------------------------
set(CPACK_PACKAGE_NAME vellumrig)
set(CPACK_PACKAGE_VENDOR vellumrig)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "VHDX engine as a loadable module, its host library and the vrig tool")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "vellumrig developers <dev@vellumrig.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# Linked libraries come from dpkg-shlibdeps; libzip is loaded at run time,
# so it is named by hand.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libzip4")
# The host library's users compile against ICU and link SQLite.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libicu-dev, libsqlite3-dev")
# vrig vhdx serve and the plugin run under nbdkit.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "nbdkit")
# Registers the shared libraries with ldconfig on install and removal.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
