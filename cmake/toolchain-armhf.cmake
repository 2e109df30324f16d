# 32-bit ARM (Debian armhf): the kind of processor the handheld devices ran on.
set(KP120_ARCH armhf)
set(KP120_TRIPLET arm-linux-gnueabihf)
set(KP120_PROCESSOR arm)
set(KP120_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
