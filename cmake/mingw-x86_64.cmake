# 64-bit Windows; its tests run under Wine.
set(MOXPX_MINGW_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
