# Tests run by a Python interpreter (Debian's by default, which holds the
# distribution's numpy, pytest and imaging packages).
#
#   moxpx_python_test(NAME [MODULES "numpy, PIL"] ARGS script args...)
#
# adds the test `NAME` running `${MOXPX_PYTHON} args...` when that
# interpreter exists and imports the modules, and says why it is not run
# otherwise. Cross builds never run them.
set(MOXPX_PYTHON /usr/bin/python3 CACHE FILEPATH "Python with numpy and pytest for the Python-driven tests")

function(moxpx_python_test name)
  cmake_parse_arguments(T "" "MODULES" "ARGS" ${ARGN})
  if(CMAKE_CROSSCOMPILING)
    return()
  endif()
  if(NOT EXISTS ${MOXPX_PYTHON})
    message(STATUS "${name} test not run: no ${MOXPX_PYTHON}")
    return()
  endif()
  set(missing 0)
  if(T_MODULES)
    execute_process(COMMAND ${MOXPX_PYTHON} -c "import ${T_MODULES}" RESULT_VARIABLE missing
                    OUTPUT_QUIET ERROR_QUIET)
  endif()
  if(NOT missing EQUAL 0)
    message(STATUS "${name} test not run: ${MOXPX_PYTHON} cannot import ${T_MODULES}")
    return()
  endif()
  add_test(NAME ${name} COMMAND ${MOXPX_PYTHON} ${T_ARGS})
endfunction()
