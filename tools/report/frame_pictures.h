// Pictures of a run's frames for the report: the host simulation's frame source draws frame N at
// the report's picture size (a scene rendered again, or the video file's own frame decoded again),
// and the picture is written as a JPEG file.
//
// Owns the frame source, the NV12 and I420 picture buffers and the TurboJPEG compressor (released
// in its destructor). Not copyable; one thread at a time.
#ifndef MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H
#define MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace mirvane {
namespace sim {
class FrameSource;
}

namespace report {

class FramePictures {
 public:
  // scene: a shipped scene's name or a scene file, or "video=" and a video file's path; width and
  // height even. Null with a reason when the source cannot be loaded or the compressor cannot
  // start.
  static std::unique_ptr<FramePictures> Create(const std::string& scene, int width, int height,
                                               double fps, std::string* error);
  ~FramePictures();
  FramePictures(const FramePictures&) = delete;
  FramePictures& operator=(const FramePictures&) = delete;

  // False with a reason when the file cannot be written.
  bool Write(int64_t frame, const std::string& path, std::string* error);

 private:
  FramePictures(std::unique_ptr<sim::FrameSource> source, int width, int height, void* jpeg);

  std::unique_ptr<sim::FrameSource> source_;
  int width_;
  int height_;
  void* jpeg_;  // tjhandle
  std::vector<uint8_t> nv12_;
  std::vector<uint8_t> i420_;
};

}  // namespace report
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H
