// A virtual fence: a polyline over the picture (points in normalised frame coordinates) with the
// segments between neighbouring points, and the crossing directions that count (bit 1: left to
// right of a segment, bit 2: right to left, see common/geometry.h).
//
// Owns its points and segments. Not synchronised: one thread at a time (the pipeline thread).
#ifndef MIRVANE_COMMON_FENCE_H
#define MIRVANE_COMMON_FENCE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/geometry.h"

namespace mirvane {
namespace dva {

class Fence {
 public:
  // Appends a point, and after the first also the segment from the previous point to it.
  void AddPoint(Point p);

  // The point or segment at index; out of range: logs "failed to get point %zu\n" or
  // "failed to get boundary %zu\n" and returns nothing.
  std::optional<Point> GetPoint(size_t index) const;
  std::optional<Segment> GetBoundary(size_t index) const;

  const std::vector<Point>& points() const { return points_; }
  const std::vector<Segment>& boundaries() const { return boundaries_; }

  uint8_t intersect_type() const { return intersect_type_; }
  void set_intersect_type(uint8_t type) { intersect_type_ = type; }

 private:
  std::vector<Point> points_;
  std::vector<Segment> boundaries_;
  uint8_t intersect_type_ = 0;
};

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_COMMON_FENCE_H
