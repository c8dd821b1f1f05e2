# Renders one manual page and fails on any diagnostic: groff reports an
# unknown macro or a bad escape on standard error and still exits 0.
#
#   cmake -DPAGE=man/setup.8 -DGROFF=/usr/bin/groff [-DMAN=/usr/bin/man] -P RenderPage.cmake
cmake_minimum_required(VERSION 3.20)
if(NOT GROFF)
  message("SKIP: groff is not installed (Debian package groff-base)")
  return()
endif()

function(render)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE diagnostics)
  if(NOT status EQUAL 0 OR NOT diagnostics STREQUAL "")
    list(JOIN ARGN " " line)
    message(FATAL_ERROR "${line}: status ${status}\n${diagnostics}")
  endif()
endfunction()

render(${GROFF} -man -ww -z ${PAGE})
# man adds its own preprocessors and line length; no pager, whatever the caller set.
if(MAN)
  render(${CMAKE_COMMAND} -E env MANWIDTH=80 MANPAGER=cat PAGER=cat ${MAN} --warnings -l ${PAGE})
endif()

# A page is installed by its file name (setup.8 into man8), so its title line
# must name the same program and section, and it carries every section a
# reader of these pages looks for.
get_filename_component(file ${PAGE} NAME)
string(REGEX MATCH "^(.+)\\.([1-8])$" named ${file})
set(program ${CMAKE_MATCH_1})
set(section ${CMAKE_MATCH_2})
string(TOUPPER ${program} title)
file(READ ${PAGE} text)
if(NOT text MATCHES "^\\.TH ${title} ${section} ")
  message(FATAL_ERROR "${PAGE}: the first line must be .TH ${title} ${section} ...")
endif()
foreach(heading NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS" FILES EXAMPLES "SEE ALSO")
  if(NOT text MATCHES "\n\\.SH \"?${heading}\"?\n")
    message(FATAL_ERROR "${PAGE}: no section ${heading}")
  endif()
endforeach()
