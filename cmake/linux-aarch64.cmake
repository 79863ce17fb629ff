# 64-bit ARM Linux: Debian's aarch64-linux-gnu cross compiler (package
# g++-aarch64-linux-gnu), tests natively or under qemu-aarch64.
set(MOXPX_LINUX_ARCH aarch64)
set(MOXPX_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
