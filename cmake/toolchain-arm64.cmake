# 64-bit ARM (Debian arm64).
set(KP120_ARCH arm64)
set(KP120_TRIPLET aarch64-linux-gnu)
set(KP120_PROCESSOR aarch64)
set(KP120_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
