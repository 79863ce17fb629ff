# Cross build for Windows with mingw-w64 for MOXPX_MINGW_ARCH (i686 or
# x86_64), with the posix thread model so that std::mutex and the test
# framework are available.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${MOXPX_MINGW_ARCH})
set(CMAKE_C_COMPILER ${MOXPX_MINGW_ARCH}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${MOXPX_MINGW_ARCH}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${MOXPX_MINGW_ARCH}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${MOXPX_MINGW_ARCH}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
