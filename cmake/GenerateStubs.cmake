# Writes a C file of stand-in functions, one per name of a list file: each prints its name and
# aborts. Script mode:
#   cmake -DLIST=names.txt -DOUTPUT=stubs.c -P GenerateStubs.cmake
# The list holds one C function name per line; blank lines and '#' comments are skipped. Only the
# names matter to the linker, so the stand-ins take and return nothing.
cmake_minimum_required(VERSION 3.13)
if(NOT LIST OR NOT OUTPUT)
  message(FATAL_ERROR "usage: cmake -DLIST=names.txt -DOUTPUT=stubs.c -P GenerateStubs.cmake")
endif()
file(STRINGS ${LIST} lines)
set(names "")
set(line_number 0)
foreach(line IN LISTS lines)
  math(EXPR line_number "${line_number} + 1")
  string(REGEX REPLACE "#.*" "" line "${line}")
  string(STRIP "${line}" name)
  if(name STREQUAL "")
    continue()
  endif()
  if(NOT name MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
    message(FATAL_ERROR "${LIST}:${line_number}: not a C function name: '${name}'")
  endif()
  if(name IN_LIST names)
    message(FATAL_ERROR "${LIST}:${line_number}: '${name}' is listed twice")
  endif()
  list(APPEND names ${name})
endforeach()
if(NOT names)
  message(FATAL_ERROR "${LIST}: no function names")
endif()

set(text "/* Generated from ${LIST} by GenerateStubs.cmake: do not edit. */\n")
string(APPEND text "#include <stdio.h>\n#include <stdlib.h>\n\n"
  "__attribute__((noreturn)) static void stand_in_called(const char *name) {\n"
  "  fprintf(stderr, \"%s: a stand-in of a camera library was called; this build cannot run\\n\", name);\n"
  "  abort();\n}\n")
foreach(name IN LISTS names)
  string(APPEND text "\nvoid ${name}(void);\nvoid ${name}(void) { stand_in_called(\"${name}\"); }\n")
endforeach()
# Rewritten only when it changes, so that an unchanged list rebuilds nothing.
set(old "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} old)
endif()
if(NOT old STREQUAL text)
  file(WRITE ${OUTPUT} "${text}")
endif()
