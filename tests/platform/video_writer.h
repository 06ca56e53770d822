// Writes test footage with FFmpeg's libraries: NV12 pictures from a callback, encoded with the
// named encoder ("libx264", "mpeg4") into a container guessed from the file name. One thread.
#ifndef MIRVANE_TESTS_PLATFORM_VIDEO_WRITER_H
#define MIRVANE_TESTS_PLATFORM_VIDEO_WRITER_H

#include <cstdint>
#include <functional>
#include <string>

#include "frame_source.h"

namespace mirvane {
namespace testing {

struct VideoFormat {
  std::string encoder = "libx264";
  int width = 320;
  int height = 240;
  int fps = 10;
  int quality = 18;  // the encoder's constant quality (lower is better)
  // Sample aspect ratio (pixel width / pixel height) written into the stream.
  int aspect_num = 1, aspect_den = 1;
};

// Draws frame index into picture.
using DrawFrame = std::function<void(int64_t index, const sim::Nv12Image& picture)>;

// Writes frames pictures to path; false with a reason.
bool WriteVideo(const std::string& path, const VideoFormat& format, int64_t frames,
                const DrawFrame& draw, std::string* error);

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_PLATFORM_VIDEO_WRITER_H
