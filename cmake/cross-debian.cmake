# cross-debian.cmake - cross build for a Debian architecture against a
# sysroot made by tools/sysroot.sh (build-sysroot-<arch> beside this
# source tree), with the tests run under qemu-user.  Included by
# toolchain-<arch>.cmake, which sets KP120_ARCH, KP120_TRIPLET,
# KP120_PROCESSOR and KP120_QEMU (empty: the build machine runs the
# programs itself), and KP120_MULTIARCH when Debian's library folder is not
# named by the compiler's triplet.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${KP120_PROCESSOR})
set(CMAKE_C_COMPILER ${KP120_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KP120_TRIPLET}-g++)
if(NOT KP120_MULTIARCH)
  set(KP120_MULTIARCH ${KP120_TRIPLET})
endif()
set(CMAKE_LIBRARY_ARCHITECTURE ${KP120_MULTIARCH})

get_filename_component(_kp120_source ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)
set(CMAKE_SYSROOT ${_kp120_source}/build-sysroot-${KP120_ARCH})

# Headers and libraries come from the sysroot; programs (python3 for the
# tables, the shell) from the build machine.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${KP120_MULTIARCH}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Test programs run under qemu-user with the sysroot's loader and libraries.
if(KP120_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KP120_QEMU};-L;${CMAKE_SYSROOT})
endif()

# GCC notes on ARM that the argument passing of some types changed in GCC 7
# concern mixing objects built by compilers older than that; none are.
add_compile_options(-Wno-psabi)
