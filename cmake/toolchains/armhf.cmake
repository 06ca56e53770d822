# 32-bit ARM, hard float: the camera's CPU class.
#   cmake -S . -B build-armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake
set(MIRVANE_CROSS_TRIPLET arm-linux-gnueabihf)
set(MIRVANE_CROSS_PROCESSOR arm)
set(MIRVANE_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
