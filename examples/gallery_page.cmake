# Writes the gallery with the demo, loads its page in headless Chromium and
# checks the count of decoded pictures the page writes into its "decoded"
# element: every picture on the page must decode.
#   cmake -DDEMO=<moxpx_demo> -DBROWSER=<chromium> -DOUT=<folder> -P gallery_page.cmake
file(REMOVE_RECURSE ${OUT})
execute_process(COMMAND ${DEMO} ${OUT} RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the demo failed (${rc})")
endif()
execute_process(
  COMMAND ${BROWSER} --headless --no-sandbox --disable-gpu --disable-quic --no-first-run
          --disable-background-networking --disable-component-update --disable-sync
          --user-data-dir=${OUT}/browser-profile --virtual-time-budget=10000
          --dump-dom file://${OUT}/index.html
  OUTPUT_VARIABLE dom ERROR_QUIET RESULT_VARIABLE rc TIMEOUT 120)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the browser failed (${rc})")
endif()
if(NOT dom MATCHES "id=\"decoded\">([0-9]+) of ([0-9]+)<")
  message(FATAL_ERROR "the page did not count its pictures")
endif()
set(decoded ${CMAKE_MATCH_1})
set(total ${CMAKE_MATCH_2})
if(total EQUAL 0 OR NOT decoded EQUAL total)
  message(FATAL_ERROR "${decoded} of ${total} pictures decoded")
endif()
message(STATUS "${decoded} of ${total} pictures decoded")
