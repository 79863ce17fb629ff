# Cross build for Linux on MOXPX_LINUX_ARCH (i686 or aarch64) with Debian's
# cross compilers. Test programs run natively when the kernel runs them (a
# tiny program is built and tried); otherwise under qemu user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${MOXPX_LINUX_ARCH})
set(triple ${MOXPX_LINUX_ARCH}-linux-gnu)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The toolchain file is read again for every compiler check; the answer is
# kept in the environment so the probe runs once per configuration.
if(NOT DEFINED ENV{MOXPX_${MOXPX_LINUX_ARCH}_RUNS})
  set(probe_dir ${CMAKE_BINARY_DIR}/native-probe)
  file(MAKE_DIRECTORY ${probe_dir})
  file(WRITE ${probe_dir}/probe.c "int main(void) { return 0; }\n")
  execute_process(COMMAND ${CMAKE_C_COMPILER} ${probe_dir}/probe.c -o ${probe_dir}/probe
                  RESULT_VARIABLE built OUTPUT_QUIET ERROR_QUIET)
  set(runs 0)
  if(built EQUAL 0)
    execute_process(COMMAND ${probe_dir}/probe RESULT_VARIABLE ran OUTPUT_QUIET ERROR_QUIET)
    if(ran EQUAL 0)
      set(runs 1)
    endif()
  endif()
  set(ENV{MOXPX_${MOXPX_LINUX_ARCH}_RUNS} ${runs})
  if(runs)
    message(STATUS "${MOXPX_LINUX_ARCH} programs run natively here")
  else()
    message(STATUS "${MOXPX_LINUX_ARCH} programs do not run natively here: tests run under ${MOXPX_QEMU}")
  endif()
endif()
if(NOT "$ENV{MOXPX_${MOXPX_LINUX_ARCH}_RUNS}")
  find_program(MOXPX_QEMU_PATH ${MOXPX_QEMU} REQUIRED)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${MOXPX_QEMU_PATH} -L /usr/${triple})
endif()
