#include "common/fence.h"

#include "common/log.h"

namespace mirvane {
namespace dva {

void Fence::AddPoint(Point p) {
  if (!points_.empty()) boundaries_.push_back(Segment{points_.back(), p});
  points_.push_back(p);
}

std::optional<Point> Fence::GetPoint(size_t index) const {
  if (index < points_.size()) return points_[index];
  MIRVANE_LOG(kLogErr, "failed to get point %zu\n", index);
  return std::nullopt;
}

std::optional<Segment> Fence::GetBoundary(size_t index) const {
  if (index < boundaries_.size()) return boundaries_[index];
  // Both getters report under the name of the point getter.
  if (IsLogLevelEnabled(kLogErr)) {
    LogPrint(kLogErr, __FILE__, __LINE__, "GetPoint", "failed to get boundary %zu\n", index);
  }
  return std::nullopt;
}

}  // namespace dva
}  // namespace mirvane
