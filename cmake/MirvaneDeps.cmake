# Third-party libraries, all from Debian packages (scripts/install-deps.sh installs them).
find_package(PkgConfig REQUIRED)

# libev ships no pkg-config file on Debian.
find_path(LIBEV_INCLUDE_DIR ev.h REQUIRED)
find_library(LIBEV_LIBRARY ev REQUIRED)
add_library(mirvane::libev UNKNOWN IMPORTED)
set_target_properties(mirvane::libev PROPERTIES IMPORTED_LOCATION ${LIBEV_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${LIBEV_INCLUDE_DIR})

pkg_check_modules(JANSSON REQUIRED IMPORTED_TARGET jansson)
add_library(mirvane::jansson ALIAS PkgConfig::JANSSON)

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
