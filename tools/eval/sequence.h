// What the tracking metrics look at: per frame, the true objects and the tracker's hypotheses,
// each a box with an identity. Boxes are in normalised picture coordinates (any common unit
// works: only overlaps matter). Plain values; any thread.
#ifndef MIRVANE_TOOLS_EVAL_SEQUENCE_H
#define MIRVANE_TOOLS_EVAL_SEQUENCE_H

#include <cstdint>
#include <vector>

namespace mirvane {
namespace eval {

struct Box {
  double xmin = 0;
  double ymin = 0;
  double xmax = 0;
  double ymax = 0;
};

// Intersection over union; 0 when the union is empty.
double Iou(const Box& a, const Box& b);

// Overlaps within this of a threshold count as reaching it: boxes come from 32-bit floats, so
// closer ties carry no meaning.
constexpr double kIouTolerance = 1e-9;

struct IdentifiedBox {
  int64_t id = 0;
  Box box;
};

struct SequenceFrame {
  std::vector<IdentifiedBox> truth;
  std::vector<IdentifiedBox> hypotheses;
};

using Sequence = std::vector<SequenceFrame>;

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_SEQUENCE_H
