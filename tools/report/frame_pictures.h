// Pictures of a scene's frames for the report: the host simulation's scene renderer draws frame
// N at the report's picture size, and the picture is written as a JPEG file.
//
// Owns the renderer, the NV12 and I420 picture buffers and the TurboJPEG compressor (released in
// its destructor). Not copyable; one thread at a time.
#ifndef MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H
#define MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace mirvane {
namespace sim {
class SceneRenderer;
}

namespace report {

class FramePictures {
 public:
  // scene: a shipped scene's name or a scene file; width and height even. Null with a reason
  // when the scene cannot be loaded or the compressor cannot start.
  static std::unique_ptr<FramePictures> Create(const std::string& scene, int width, int height,
                                               double fps, std::string* error);
  ~FramePictures();
  FramePictures(const FramePictures&) = delete;
  FramePictures& operator=(const FramePictures&) = delete;

  // False with a reason when the file cannot be written.
  bool Write(int64_t frame, const std::string& path, std::string* error);

 private:
  FramePictures(std::unique_ptr<sim::SceneRenderer> renderer, int width, int height, void* jpeg);

  std::unique_ptr<sim::SceneRenderer> renderer_;
  int width_;
  int height_;
  void* jpeg_;  // tjhandle
  std::vector<uint8_t> nv12_;
  std::vector<uint8_t> i420_;
};

}  // namespace report
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_REPORT_FRAME_PICTURES_H
