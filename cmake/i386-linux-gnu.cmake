# i386-linux-gnu.cmake - the 32-bit x86 build on an x86-64 Debian host:
# gcc-multilib for -m32 and the :i386 libraries of Debian's multiarch
# (tools/deps.sh installs both).
#
#   cmake -S . -B build-32 -DCMAKE_TOOLCHAIN_FILE=cmake/i386-linux-gnu.cmake
#
# The host runs what it builds, so this is not a cross build: tests run as
# they do in the 64-bit build.
#
# time_t and off_t are 64-bit, as in the 64-bit build (glibc's
# _TIME_BITS=64): dates past 2038 convert through the C library, and file
# times and sizes past 2^31 are read and written.  Debian 12's i386
# libraries keep a 32-bit time_t.  Of the APIs the component uses, only
# libzip's struct zip_stat (mtime and the fields after it) and
# zip_file_set_mtime carry one: code on libzip reads those through
# functions without a time_t, or keeps them in a translation unit built
# with a 32-bit time_t that exchanges no time_t with the others.
set(CMAKE_C_FLAGS_INIT "-m32 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-m32 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# Libraries and their compile flags from the i386 pkg-config files only.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
