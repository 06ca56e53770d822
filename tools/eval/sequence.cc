#include "sequence.h"

#include <algorithm>

namespace mirvane {
namespace eval {

double Iou(const Box& a, const Box& b) {
  const double width = std::min(a.xmax, b.xmax) - std::max(a.xmin, b.xmin);
  const double height = std::min(a.ymax, b.ymax) - std::max(a.ymin, b.ymin);
  if (width <= 0 || height <= 0) return 0.0;
  const double inter = width * height;
  const double area_a = std::max(0.0, a.xmax - a.xmin) * std::max(0.0, a.ymax - a.ymin);
  const double area_b = std::max(0.0, b.xmax - b.xmin) * std::max(0.0, b.ymax - b.ymin);
  const double uni = area_a + area_b - inter;
  return uni > 0 ? inter / uni : 0.0;
}

}  // namespace eval
}  // namespace mirvane
