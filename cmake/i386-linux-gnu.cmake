# i386-linux-gnu.cmake - the 32-bit x86 build on an x86-64 Debian host: the
# i686 cross compiler against a Debian i386 sysroot made by tools/sysroot.sh
# (build-sysroot-i386 beside this source tree).  Nothing of the i386
# architecture is installed on the build machine.
#
#   tools/sysroot.sh i386 build-sysroot-i386
#   cmake -S . -B build-32 -DCMAKE_TOOLCHAIN_FILE=cmake/i386-linux-gnu.cmake
#
# The x86-64 kernel runs the programs natively: each carries the sysroot's
# loader as its interpreter and the sysroot's library folders as its
# DT_RPATH (searched for every library a program loads, its libraries'
# own dependencies and dlopen included, unlike DT_RUNPATH), so the tests
# run, and start one another, as in the 64-bit build.
#
# time_t and off_t are 64-bit, as in the 64-bit build (glibc's
# _TIME_BITS=64): dates past 2038 convert through the C library, and file
# times and sizes past 2^31 are read and written.  Debian 12's i386
# libraries keep a 32-bit time_t.  Of the APIs the component uses, only
# libzip's struct zip_stat (mtime and the fields after it) and
# zip_file_set_mtime carry one: code on libzip reads those through
# functions without a time_t, or keeps them in a translation unit built
# with a 32-bit time_t that exchanges no time_t with the others.
set(KP120_ARCH i386)
set(KP120_TRIPLET i686-linux-gnu)
set(KP120_MULTIARCH i386-linux-gnu)
set(KP120_PROCESSOR i686)
set(KP120_QEMU "")
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(_kp120_libs ${CMAKE_SYSROOT}/lib/${KP120_MULTIARCH}:${CMAKE_SYSROOT}/usr/lib/${KP120_MULTIARCH})
set(_kp120_rpath "-Wl,--disable-new-dtags -Wl,-rpath,${_kp120_libs}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux.so.2 ${_kp120_rpath}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_kp120_rpath}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${_kp120_rpath}")
