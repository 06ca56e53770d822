# 64-bit ARM.
#   cmake -S . -B build-aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64.cmake
set(MIRVANE_CROSS_TRIPLET aarch64-linux-gnu)
set(MIRVANE_CROSS_PROCESSOR aarch64)
set(MIRVANE_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
