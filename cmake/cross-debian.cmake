# cross-debian.cmake - cross build for a Debian multiarch architecture, with
# the target's libraries installed through multiarch (tools/deps-cross.sh)
# and the tests run under qemu-user.  Included by toolchain-<arch>.cmake,
# which sets KP120_TRIPLET, KP120_PROCESSOR and KP120_QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${KP120_PROCESSOR})
set(CMAKE_C_COMPILER ${KP120_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KP120_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${KP120_TRIPLET})

# Headers and libraries of the target come from the multiarch folders;
# programs (python3 for the tables, the shell) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${KP120_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${KP120_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Test programs run under qemu-user; libraries resolve from the multiarch
# folders of the build machine.
set(CMAKE_CROSSCOMPILING_EMULATOR ${KP120_QEMU};-L;/usr/${KP120_TRIPLET})
