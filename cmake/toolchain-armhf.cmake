# 32-bit ARM (Debian armhf): the kind of processor the handheld devices ran on.
set(KP120_ARCH armhf)
set(KP120_TRIPLET arm-linux-gnueabihf)
set(KP120_PROCESSOR arm)
set(KP120_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
# time_t and off_t are 64-bit, as in the 64-bit builds and the 32-bit x86
# one (cmake/i386-linux-gnu.cmake says what that asks of the code on
# libzip, whose Debian 12 armhf build keeps a 32-bit time_t).  Without
# them dates past 2038 do not convert, and the 32-bit readdir fails on a
# file system whose inode numbers do not fit 32 bits (a 64-bit machine's,
# which the tests see through qemu-user), so listings come out empty.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
