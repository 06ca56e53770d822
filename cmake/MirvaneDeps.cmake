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

  # Optional, host side only: video files through FFmpeg's libraries, and the motion and ONNX
  # networks through OpenCV. The daemon never links them; a build without them (a cross build whose
  # target has no such packages) refuses video files and those networks with a clear message.
  pkg_check_modules(FFMPEG QUIET IMPORTED_TARGET libavformat libavcodec libswscale libavutil)
  if(FFMPEG_FOUND)
    add_library(mirvane::ffmpeg ALIAS PkgConfig::FFMPEG)
  else()
    message(STATUS "FFmpeg's libraries not found: the simulation plays no video files")
  endif()
  find_path(OPENCV_INCLUDE_DIR opencv2/dnn.hpp PATH_SUFFIXES opencv4)
  set(opencv_libraries "")
  foreach(module core imgproc video dnn)
    find_library(OPENCV_${module}_LIBRARY opencv_${module})
    list(APPEND opencv_libraries ${OPENCV_${module}_LIBRARY})
  endforeach()
  if(OPENCV_INCLUDE_DIR AND OPENCV_core_LIBRARY AND OPENCV_imgproc_LIBRARY AND OPENCV_video_LIBRARY
     AND OPENCV_dnn_LIBRARY)
    add_library(mirvane_opencv INTERFACE)
    target_include_directories(mirvane_opencv SYSTEM INTERFACE ${OPENCV_INCLUDE_DIR})
    target_link_libraries(mirvane_opencv INTERFACE ${opencv_libraries})
    add_library(mirvane::opencv ALIAS mirvane_opencv)
  else()
    message(STATUS "OpenCV's video and dnn modules not found: no motion or ONNX networks")
  endif()
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
