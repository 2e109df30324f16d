# install.cmake - what `cmake --install` puts where, the CMake package
# (find_package(kp120) with kp120::component and kp120::host), the
# pkg-config file kp120-host.pc, and the Debian packages made by CPack:
#   libkp120-1   the component module and the reference host library
#   libkp120-dev the C headers, the host's C++ header, CMake and pkg-config files
#   kp120        the kp120 command and its manual page
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KP120_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kp120)
set_target_properties(kp120std PROPERTIES EXPORT_NAME component)
set_target_properties(kp120host PROPERTIES EXPORT_NAME host)

install(TARGETS kp120std EXPORT kp120Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT runtime)
install(TARGETS kp120host EXPORT kp120Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
if(TARGET kp120)
  install(TARGETS kp120 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${CMAKE_SOURCE_DIR}/docs/kp120.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
endif()
install(FILES ${CMAKE_SOURCE_DIR}/include/kp120/component.h ${CMAKE_SOURCE_DIR}/include/kp120/types.h
              ${CMAKE_SOURCE_DIR}/include/kp120/vm.h ${CMAKE_SOURCE_DIR}/host/host.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kp120 COMPONENT dev)

install(EXPORT kp120Targets NAMESPACE kp120:: DESTINATION ${KP120_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/kp120Config.cmake.in
                              ${CMAKE_BINARY_DIR}/kp120Config.cmake INSTALL_DESTINATION ${KP120_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kp120ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kp120Config.cmake ${CMAKE_BINARY_DIR}/kp120ConfigVersion.cmake
        DESTINATION ${KP120_CMAKE_DIR} COMPONENT dev)

# The .pc file finds its prefix from where it lies, so that an install
# moved to another prefix (or made with `cmake --install --prefix`) works.
file(RELATIVE_PATH KP120_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" KP120_PC_TO_PREFIX "${KP120_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/kp120-host.pc.in ${CMAKE_BINARY_DIR}/kp120-host.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kp120-host.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Debian packages, one a component.
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME kp120)
set(CPACK_PACKAGE_VENDOR "kp120")
set(CPACK_PACKAGE_CONTACT "kp120 maintainers <kp120@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Standard-function component of a 4GL bytecode VM")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# kp120 needs the host library of the runtime package, found in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkp120-${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Standard-function component of a 4GL bytecode VM (libkp120std.so) and its reference host library")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkp120-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libkp120-${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers, CMake package and pkg-config file of the kp120 component and host")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kp120)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libkp120-${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "kp120: call every function of the standard-function component from Lua")
include(CPack)
