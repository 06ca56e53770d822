// Where the simulated sensor's pictures come from. A frame source renders frame number `index`
// of its sequence into an NV12 picture and tells what it drew (the ground truth), so that sources
// are interchangeable behind the video output: the scene renderer, or a video file's decoder. A
// source is used by one thread at a time.
#ifndef MIRVANE_PLATFORM_SIM_FRAME_SOURCE_H
#define MIRVANE_PLATFORM_SIM_FRAME_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace mirvane {
namespace sim {

// An NV12 picture in memory the caller owns: luma rows, then interleaved U,V rows at half size;
// both planes with the same line offset.
struct Nv12Image {
  uint8_t* y = nullptr;
  uint8_t* uv = nullptr;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t stride = 0;
};

// One drawn object in pixels of the picture: [x0, x1) x [y0, y1), clipped to the picture.
struct GroundTruthBox {
  int object_id = 0;
  int class_id = 0;  // one of the daemon's class ids (dva::kClassIds of common/object_class.h)
  int x0 = 0;
  int y0 = 0;
  int x1 = 0;
  int y1 = 0;
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  // Number of frames in the sequence.
  virtual int64_t FrameCount() const = 0;
  // A short description for the ground-truth file's header ("scene=default").
  virtual std::string Describe() const = 0;
  // Draws frame index (0 <= index < FrameCount()) into picture and lists what it drew in truth
  // (cleared first; a source without ground truth leaves it empty).
  // A source that finds out only while rendering that it ends early (a truncated file) lowers its
  // FrameCount() to the frames it could give; the picture of an index at or past it is undefined.
  virtual void Render(int64_t index, const Nv12Image& picture,
                      std::vector<GroundTruthBox>* truth) = 0;
  // The source's own frame rate (a file's), or 0 to run at the rate of the settings.
  virtual double FrameRate() const { return 0.0; }
  // When frame index is presented, in microseconds after frame 0, or -1 for even intervals of the
  // frame rate.
  virtual int64_t PresentationMicros(int64_t /*index*/) const { return -1; }
};

// The source named by the video settings: "scene" is a shipped scene's name or a scene file's
// path. Returns nullptr with a reason when it cannot be loaded.
std::unique_ptr<FrameSource> MakeFrameSource(const std::string& scene, uint32_t width,
                                             uint32_t height, double fps, std::string* error);

// A video file's frames (anything the linked FFmpeg libraries decode), fitted into width x height
// with the aspect kept and the rest black. Returns nullptr with a reason when the file cannot be
// opened or holds no decodable video; a build without FFmpeg refuses every file.
std::unique_ptr<FrameSource> MakeVideoFileSource(const std::string& path, uint32_t width,
                                                 uint32_t height, std::string* error);

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_FRAME_SOURCE_H
