# 32-bit Windows (the i686 DLL; no 32-bit Wine here, so its tests are built, not run).
set(MOXPX_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
