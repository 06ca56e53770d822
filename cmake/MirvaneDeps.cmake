# Third-party libraries, all from Debian packages (scripts/install-deps.sh installs them).
find_package(PkgConfig REQUIRED)

# libev and Jansson link statically on request, for a camera root file system without them.
option(MIRVANE_STATIC_DEPS "Link libev and Jansson statically" OFF)

# libev ships no pkg-config file on Debian.
find_path(LIBEV_INCLUDE_DIR ev.h REQUIRED)
pkg_check_modules(JANSSON REQUIRED IMPORTED_TARGET jansson)
if(MIRVANE_STATIC_DEPS)
  find_library(LIBEV_STATIC_LIBRARY NAMES libev.a REQUIRED)
  set(libev_file ${LIBEV_STATIC_LIBRARY})
  find_library(JANSSON_STATIC_LIBRARY NAMES libjansson.a HINTS ${JANSSON_LIBRARY_DIRS} REQUIRED)
  add_library(mirvane::jansson UNKNOWN IMPORTED)
  set_target_properties(mirvane::jansson PROPERTIES IMPORTED_LOCATION ${JANSSON_STATIC_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES "${JANSSON_INCLUDE_DIRS}")
else()
  find_library(LIBEV_LIBRARY ev REQUIRED)
  set(libev_file ${LIBEV_LIBRARY})
  add_library(mirvane::jansson ALIAS PkgConfig::JANSSON)
endif()
add_library(mirvane::libev UNKNOWN IMPORTED)
set_target_properties(mirvane::libev PROPERTIES IMPORTED_LOCATION ${libev_file}
  INTERFACE_INCLUDE_DIRECTORIES ${LIBEV_INCLUDE_DIR})
# libev's static library needs the maths library.
if(MIRVANE_STATIC_DEPS)
  set_property(TARGET mirvane::libev PROPERTY INTERFACE_LINK_LIBRARIES m)
endif()

if(MIRVANE_PLATFORM STREQUAL "sim")
  # The host simulation scales with libyuv and encodes JPEG with libjpeg-turbo.
  find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
  find_library(LIBYUV_LIBRARY yuv REQUIRED)
  add_library(mirvane::libyuv UNKNOWN IMPORTED)
  set_target_properties(mirvane::libyuv PROPERTIES IMPORTED_LOCATION ${LIBYUV_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${LIBYUV_INCLUDE_DIR})
  pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
  add_library(mirvane::turbojpeg ALIAS PkgConfig::TURBOJPEG)
endif()

if(MIRVANE_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(MIRVANE_BUILD_BENCH)
  find_package(benchmark QUIET)
  if(NOT benchmark_FOUND)
    message(STATUS "Google Benchmark not found: benchmarks are not built")
    set(MIRVANE_BUILD_BENCH OFF)
  endif()
endif()
