// Finds the objects of the synthetic scene in a YUV 4:2:0 picture from its pixels alone.
//
// Each class has its own flat chroma; an object's luma is striped inside and darker (half the
// class luma) along its border. The finder classifies every chroma sample by its projection on
// the line from neutral grey to each class colour (its share of the class colour, 0..1), groups
// the samples of one class into connected components, and places each component's sides to a
// fraction of a pixel from those shares (a blurred edge keeps its area). Objects of one class
// that touch are told apart by their darker borders: inside a component, the connected areas of
// interior luma are the objects, each grown by the border width where it does not reach the
// component's outline.
//
// Pure computation; the finder keeps scratch buffers between calls, so one instance belongs to
// one thread at a time.
#ifndef MIRVANE_PLATFORM_SIM_AI_OBJECT_FINDER_H
#define MIRVANE_PLATFORM_SIM_AI_OBJECT_FINDER_H

#include <cstdint>
#include <vector>

#include "class_colours.h"
#include "common/object_class.h"

namespace mirvane {
namespace sim {
namespace ai {

// A picture: luma plane, then interleaved U,V at half size, both with the same line stride.
struct Nv12Picture {
  const uint8_t* y = nullptr;
  const uint8_t* uv = nullptr;
  int width = 0;
  int height = 0;
  int stride = 0;
};

// One object: its class id (one of dva::kClassIds) and its box in pixels, x1 and y1 being the right
// and bottom edges (a box covering pixel columns 10..19 has x0 10 and x1 20).
struct FoundObject {
  int class_id = 0;
  float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  float cx() const { return (x0 + x1) * 0.5f; }
  float cy() const { return (y0 + y1) * 0.5f; }
};

constexpr int kClassCount = static_cast<int>(dva::kClassIdCount);

class ObjectFinder {
 public:
  // Objects in component order (by class, then top-left first); none smaller than 4x4 pixels.
  std::vector<FoundObject> Find(const Nv12Picture& picture);

 private:
  struct Component {
    int class_id;
    int x0, y0, x1, y1;  // chroma samples, inclusive
  };
  void LabelChroma(const Nv12Picture& picture);
  void SplitComponent(const Nv12Picture& picture, int label, const Component& comp,
                      std::vector<FoundObject>* out);
  float Share(int class_id, int x, int y) const;
  void SubpixelBox(int label, const Component& comp, float box[4]) const;
  float RefineSharpEdge(const Nv12Picture& picture, int label, const Component& comp, int side,
                        float edge) const;

  int cw_ = 0, ch_ = 0;
  const uint8_t* uv_ = nullptr;
  int stride_ = 0;
  std::vector<uint8_t> class_of_;  // per chroma sample: 0 or the class id
  std::vector<int32_t> label_;     // per chroma sample: component number + 1, or 0
  std::vector<Component> components_;
  std::vector<int32_t> stack_;
  std::vector<int32_t> interior_;  // per pixel of one component's box
};

// For each current object, where it was in the previous picture: the previous object of the same
// class that overlaps it most (or, without overlap, the nearest within its own size), matched one
// to one. Returns per current object the index into previous, or -1.
std::vector<int> MatchPrevious(const std::vector<FoundObject>& current,
                               const std::vector<FoundObject>& previous);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_OBJECT_FINDER_H
