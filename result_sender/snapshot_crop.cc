#include "result_sender/snapshot_crop.h"

#include <algorithm>
#include <cmath>

namespace mirvane {
namespace result_sender {
namespace {

constexpr float kGrowth = 1.1f;
constexpr double kWide = 16.0 / 9.0;
constexpr int kMinHeight = 16;  // heights of 15 rows or fewer take the minimum crop
constexpr int kMinWidth = 28;   // floor(16 / 9 * 16)

// Widens the closed range lo..hi to size about its centre, inside 0..limit-1.
void Grow(int* lo, int* hi, int size, int limit) {
  const int d = static_cast<int>(std::ceil((size - (*hi - *lo + 1)) * 0.5));
  *lo = std::max(*lo - d, 0);
  *hi = std::min(*hi + d, limit - 1);
  if (*lo + size > limit) {
    *lo = limit - size;
    *hi = limit - 1;
  }
}

int Floor(float value) {
  return static_cast<int>(std::floor(value));
}

}  // namespace

CropRect SnapshotCrop(float xmin, float ymin, float xmax, float ymax, int width, int height) {
  const float w = static_cast<float>(width);
  const float h = static_cast<float>(height);
  int x0 = Floor(xmin * w);
  int y0 = Floor(ymin * h);
  int x1 = std::min(Floor(xmax * w), width - 1);
  int y1 = std::min(Floor(ymax * h), height - 1);

  int cw = std::min(Floor(static_cast<float>(x1 - x0 + 1) * kGrowth), width);
  int ch = std::min(Floor(static_cast<float>(y1 - y0 + 1) * kGrowth), height);
  Grow(&x0, &x1, cw, width);
  Grow(&y0, &y1, ch, height);

  bool minimum = false;
  if (static_cast<double>(cw) / ch >= kWide) {
    const int taller = std::min(static_cast<int>(std::floor(cw / 16.0 * 9.0)), height);
    if (taller >= kMinHeight) {
      ch = taller;
      Grow(&y0, &y1, ch, height);
    } else {
      minimum = true;
    }
  } else {
    const int wider = std::min(static_cast<int>(std::floor(ch / 9.0 * 16.0)), width);
    if (ch >= kMinHeight) {
      cw = wider;
      Grow(&x0, &x1, cw, width);
    } else {
      minimum = true;
    }
  }
  if (minimum) {
    ch = std::min(kMinHeight, height);
    cw = std::min(kMinWidth, width);
    Grow(&x0, &x1, cw, width);
    Grow(&y0, &y1, ch, height);
  }
  return CropRect{x0, y0, cw, ch};
}

}  // namespace result_sender
}  // namespace mirvane
