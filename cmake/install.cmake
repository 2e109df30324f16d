# install.cmake - what `cmake --install` puts where, the CMake package
# (find_package(kp120) with kp120::headers, kp120::component, kp120::host and
# KP120_MODULE_PATH), the pkg-config files kp120.pc (the component: headers
# and the module's path) and kp120-host.pc, and the install components that
# tools/package-deb.sh turns into Debian packages:
#   runtime -> libkp120-1   the component module, the reference host library and
#                           the registry maintenance library
#   dev     -> libkp120-dev headers, CMake and pkg-config files, the guide, the minimal VM
#   tool    -> kp120        the kp120 command and its manual page
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(KP120_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kp120)
set_target_properties(kp120std PROPERTIES EXPORT_NAME component)
set_target_properties(kp120host PROPERTIES EXPORT_NAME host)

# kp120::headers: the C headers alone, reached as <kp120/vm.h>.  A VM loads
# the module with dlopen (by KP120_MODULE_PATH) and links nothing of it.
add_library(kp120headers INTERFACE)
set_target_properties(kp120headers PROPERTIES EXPORT_NAME headers)
target_include_directories(kp120headers INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
                                                  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS kp120headers EXPORT kp120Targets)
# The host's C++ API needs C++20 of its users.
target_compile_features(kp120host INTERFACE cxx_std_20)
# Installed, only <kp120/...> names reach the headers (no bare vm.h, types.h).
set_property(TARGET kp120host PROPERTY INTERFACE_INCLUDE_DIRECTORIES
             $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/host>
             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The unversioned name of the module comes with the development files: a VM
# loads it by its soname, libkp120std.so.1.
install(TARGETS kp120std EXPORT kp120Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(TARGETS kp120host EXPORT kp120Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
# The registry maintenance library of the kp120 command (kp120/regtool.h),
# beside the component.
install(TARGETS kp120regtool LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
if(TARGET kp120)
  install(TARGETS kp120 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${CMAKE_SOURCE_DIR}/docs/kp120.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
endif()
install(FILES ${CMAKE_SOURCE_DIR}/include/kp120/component.h ${CMAKE_SOURCE_DIR}/include/kp120/types.h
              ${CMAKE_SOURCE_DIR}/include/kp120/vm.h ${CMAKE_SOURCE_DIR}/include/kp120/regtool.h
              ${CMAKE_SOURCE_DIR}/host/host.h ${CMAKE_SOURCE_DIR}/host/wtf8.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kp120 COMPONENT dev)

install(EXPORT kp120Targets NAMESPACE kp120:: DESTINATION ${KP120_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/kp120Config.cmake.in
                              ${CMAKE_BINARY_DIR}/kp120Config.cmake INSTALL_DESTINATION ${KP120_CMAKE_DIR}
                              PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kp120ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kp120Config.cmake ${CMAKE_BINARY_DIR}/kp120ConfigVersion.cmake
        DESTINATION ${KP120_CMAKE_DIR} COMPONENT dev)

# The .pc files name the prefix of the install itself (the one given to
# `cmake --install --prefix`, /usr in the packages): they are written when
# installing, from templates whose other fields are filled now.
set(KP120_PC_PREFIX "@KP120_PC_PREFIX@")
foreach(pc kp120 kp120-host)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/${pc}.pc.in ${CMAKE_BINARY_DIR}/pc/${pc}.pc.in @ONLY)
  # A blank in the prefix is written "\\ " for pkg-config.
  install(CODE "string(REPLACE \" \" \"\\\\ \" KP120_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
configure_file(\"${CMAKE_BINARY_DIR}/pc/${pc}.pc.in\" \"${CMAKE_BINARY_DIR}/pc/${pc}.pc\" @ONLY)"
          COMPONENT dev)
  install(FILES ${CMAKE_BINARY_DIR}/pc/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

# The licence in every package; the guide, the function reference and the
# minimal VM with the development files.
install(FILES ${CMAKE_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES ${CMAKE_SOURCE_DIR}/docs/vm-authors.md ${CMAKE_SOURCE_DIR}/docs/functions.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES ${CMAKE_SOURCE_DIR}/examples/minimal_vm/minimal_vm.c
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/minimal_vm COMPONENT dev)

# Debian packages: tools/package-deb.sh (make package) builds libkp120-1,
# libkp120-dev and kp120 from the three install components.
