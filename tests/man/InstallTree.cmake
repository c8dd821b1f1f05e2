# Installs the build tree into a fresh prefix, as `cmake --install build
# --prefix DIR` does, and checks that the installed programs run and that the
# string databases lie where the installed programs look: beside them.
#
#   cmake -DBUILD_DIR=build -DPREFIX=DIR -DBINDIR=bin -DPROGRAMS="setup;vdb;..."
#         -DLANGUAGES="en_US;..." -DPAGES="share/man/man8/setup.8;..."
#         -DHELP_FILE=examples/demo/setup.hlp [-DREHEARSE=rehearse] -P InstallTree.cmake
cmake_minimum_required(VERSION 3.20)
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "cmake --install: status ${status}\n${errors}")
endif()

set(bin ${PREFIX}/${BINDIR})
set(expected ${bin}/trans.conf)
foreach(program ${PROGRAMS})
  list(APPEND expected ${bin}/${program})
endforeach()
foreach(language ${LANGUAGES})
  list(APPEND expected ${bin}/db/${language}/CoreString.vdb)
endforeach()
foreach(page ${PAGES})
  list(APPEND expected ${PREFIX}/${page})
endforeach()
foreach(path ${expected})
  if(NOT EXISTS ${path})
    message(SEND_ERROR "not installed: ${path}")
  endif()
endforeach()

function(expect_run pattern)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err
                  INPUT_FILE /dev/null)
  if(NOT status EQUAL 0 OR NOT "${out}${err}" MATCHES "${pattern}")
    list(JOIN ARGN " " line)
    message(SEND_ERROR "${line}: status ${status}, expected \"${pattern}\" in:\n${out}${err}")
  endif()
endfunction()

# Even -v starts the log in /tmp: setup runs as root only inside the sandbox,
# and not at all where the sandbox cannot run.
execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)
if(REHEARSE AND uid STREQUAL "0")
  expect_run("^setup [0-9.]+\n$" ${REHEARSE} -q -- ${bin}/setup -v)
endif()
expect_run("Default en_US" ${bin}/vdb get ${bin}/db/en_US/CoreString.vdb 999_1)
# The installed viewer finds the installed strings: in French its screen is
# not the English one it falls back to without them.
if(EXISTS ${bin}/helpview AND "fr_FR" IN_LIST LANGUAGES)
  foreach(language en_US fr_FR)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env LANG=${language} TERM=dumb
                            ${bin}/helpview ${HELP_FILE}
                    INPUT_FILE /dev/null OUTPUT_VARIABLE screen_${language} ERROR_QUIET)
  endforeach()
  if(screen_en_US STREQUAL screen_fr_FR)
    message(SEND_ERROR "installed helpview did not find its French strings:\n${screen_fr_FR}")
  endif()
endif()
