# 32-bit Linux (i686), the -m32 build: Debian's i686-linux-gnu cross compiler
# (package g++-i686-linux-gnu), tests natively or under qemu-i386.
set(MOXPX_LINUX_ARCH i686)
set(MOXPX_QEMU qemu-i386)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
