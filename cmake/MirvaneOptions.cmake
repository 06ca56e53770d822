# Compiler warnings and sanitizers shared by every target of the project.
add_library(mirvane_options INTERFACE)
target_compile_options(mirvane_options INTERFACE
  -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wpointer-arith -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>)
if(MIRVANE_WERROR)
  target_compile_options(mirvane_options INTERFACE -Werror)
endif()
if(MIRVANE_SANITIZE)
  target_compile_options(mirvane_options INTERFACE -fsanitize=${MIRVANE_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(mirvane_options INTERFACE -fsanitize=${MIRVANE_SANITIZE})
endif()
if(MIRVANE_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT CMAKE_C_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "MIRVANE_BUILD_FUZZ needs clang: configure with CC=clang CXX=clang++")
  endif()
  if(MIRVANE_SANITIZE)
    message(FATAL_ERROR "MIRVANE_BUILD_FUZZ brings its own sanitizers: leave MIRVANE_SANITIZE empty")
  endif()
  # Coverage for the fuzzer everywhere; the fuzz targets link the libFuzzer runtime itself.
  target_compile_options(mirvane_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined
    -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(mirvane_options INTERFACE -fsanitize=address,undefined)
  # clang only: the platform wrappers keep record fields that only some backends read.
  target_compile_options(mirvane_options INTERFACE -Wno-unused-private-field)
endif()
find_package(Threads REQUIRED)
target_link_libraries(mirvane_options INTERFACE Threads::Threads)

# A cross build runs its tests under the toolchain's emulator (qemu-user), through a wrapper that
# gives them a user namespace when the caller is not root (see cmake/run-emulated-test.sh).
if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
  set(MIRVANE_TEST_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-emulated-test.sh ${CMAKE_CROSSCOMPILING_EMULATOR})
endif()

# mirvane_add_test(NAME name SOURCES ... LIBS ...): one GoogleTest executable, registered with CTest
# test by test. Executables link mirvane_testing_main, or mirvane_testing_ns when they touch fixed
# paths in /tmp: that one runs them in a private mount namespace with a /tmp of their own.
function(mirvane_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE mirvane_options ${T_LIBS})
  if(MIRVANE_TEST_EMULATOR)
    set_target_properties(${T_NAME} PROPERTIES CROSSCOMPILING_EMULATOR "${MIRVANE_TEST_EMULATOR}")
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  gtest_discover_tests(${T_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${T_TIMEOUT}
    DISCOVERY_MODE PRE_TEST)
endfunction()
