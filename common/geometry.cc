#include "common/geometry.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace mirvane {
namespace dva {

Side SideOfSegment(const Segment& segment, Point p) {
  const Point& a = segment.start;
  const Point& b = segment.end;
  const float cross = (b.x - a.x) * (p.y - a.y) - (p.x - a.x) * (b.y - a.y);
  return cross < 0.0f ? Side::kRight : Side::kLeft;
}

uint8_t CrossingDirection(const Segment& fence, const Segment& step) {
  if (SideOfSegment(step, fence.start) == SideOfSegment(step, fence.end)) return 0;
  const Side from = SideOfSegment(fence, step.start);
  const Side to = SideOfSegment(fence, step.end);
  if (from == Side::kLeft && to == Side::kRight) return kCrossLeftToRight;
  if (from == Side::kRight && to == Side::kLeft) return kCrossRightToLeft;
  return 0;
}

double DistanceToLine(const Segment& segment, Point p) {
  const double x0 = segment.start.x;
  const double y0 = segment.start.y;
  const double x1 = segment.end.x;
  const double y1 = segment.end.y;
  const double dy = y1 - y0;
  const double dx = x1 - x0;
  return std::fabs(dy * p.x - dx * p.y + y0 * x1 - y1 * x0) / std::sqrt(dy * dy + dx * dx);
}

bool PolygonContains(const Polygon& polygon, Point p) {
  bool inside = false;
  const size_t n = polygon.size();
  for (size_t i = 0, j = n - 1; i < n; j = i++) {
    const Point& vi = polygon[i];
    const Point& vj = polygon[j];
    if ((vi.y > p.y) != (vj.y > p.y)) {
      const float x_cross = (vj.x - vi.x) * (p.y - vi.y) / (vj.y - vi.y) + vi.x;
      if (p.x < x_cross) inside = !inside;
    }
  }
  return inside;
}

namespace {

// The share test of PolygonCoversBox: count of divisions x divisions samples inside.
bool ShareReached(int count, int divisions, float min_ratio) {
  const float n = static_cast<float>(divisions);
  return static_cast<float>(count) / n / n >= min_ratio;
}

// The fewest inside samples that pass the share test, or total + 1 when none does. The test is
// monotonic in the count (dividing by a positive number keeps the order), so a bisection finds it.
int SamplesNeeded(int total, int divisions, float min_ratio) {
  int low = 0;
  int high = total + 1;  // the answer lies in [low, high]
  while (low < high) {
    const int mid = low + (high - low) / 2;
    if (ShareReached(mid, divisions, min_ratio)) {
      high = mid;
    } else {
      low = mid + 1;
    }
  }
  return low;
}

// Where the edges of the polygon cross the horizontal line at y, as PolygonContains computes them
// for a point on that line: a point of the line is inside when an odd number of the crossings lie
// to its right.
// Writes them to crossings (room for one per polygon point) and returns their number.
size_t RowCrossings(const Polygon& polygon, float y, float* crossings) {
  size_t found = 0;
  const size_t n = polygon.size();
  for (size_t i = 0, j = n - 1; i < n; j = i++) {
    const Point& vi = polygon[i];
    const Point& vj = polygon[j];
    if ((vi.y > y) != (vj.y > y)) {
      crossings[found++] = (vj.x - vi.x) * (y - vi.y) / (vj.y - vi.y) + vi.x;
    }
  }
  return found;
}

}  // namespace

bool PolygonCoversBox(const Polygon& polygon, const Box& box, int divisions, float min_ratio) {
  if (divisions <= 0) return ShareReached(0, divisions, min_ratio);
  // The samples are counted row by row, each row's edge crossings computed once, and the count
  // stops as soon as the answer is known: enough samples inside, or too few samples left.
  const int total = divisions * divisions;
  const int needed = SamplesNeeded(total, divisions, min_ratio);
  if (needed == 0) return true;
  if (needed > total || polygon.empty()) return false;
  const float step_x = (box.xmax - box.xmin) / static_cast<float>(divisions);
  const float step_y = (box.ymax - box.ymin) / static_cast<float>(divisions);
  // Room for one crossing per polygon point: on the stack for the usual small polygons.
  constexpr size_t kStackCrossings = 32;
  float stack_crossings[kStackCrossings];
  std::vector<float> heap_crossings;
  float* crossings = stack_crossings;
  if (polygon.size() > kStackCrossings) {
    heap_crossings.resize(polygon.size());
    crossings = heap_crossings.data();
  }
  int count = 0;
  int left = total;  // samples not yet looked at
  for (int row = 0; row < divisions; ++row) {
    const float y = box.ymin + (static_cast<float>(row) + 0.5f) * step_y;
    const size_t crossing_count = RowCrossings(polygon, y, crossings);
    // When no crossing lies between the row's first and last sample (the samples' x follow the
    // column order, up or down), every sample has the same crossings to its right: the row is
    // all inside or all outside, by their number.
    const float x_first = box.xmin + 0.5f * step_x;
    const float x_last = box.xmin + (static_cast<float>(divisions - 1) + 0.5f) * step_x;
    const float low = std::min(x_first, x_last);
    const float high = std::max(x_first, x_last);
    bool uniform = low == low && high == high;  // not a number: sample by sample
    size_t to_the_right = 0;
    for (size_t k = 0; k < crossing_count && uniform; ++k) {
      if (crossings[k] > high) {
        ++to_the_right;
      } else if (!(crossings[k] <= low)) {
        uniform = false;
      }
    }
    if (uniform) {
      if (to_the_right % 2 == 1) count += divisions;
      left -= divisions;
      if (count >= needed) return true;
      if (count + left < needed) return false;
      continue;
    }
    for (int col = 0; col < divisions; ++col) {
      const float x = box.xmin + (static_cast<float>(col) + 0.5f) * step_x;
      bool inside = false;
      for (size_t k = 0; k < crossing_count; ++k) {
        if (x < crossings[k]) inside = !inside;
      }
      --left;
      if (inside && ++count >= needed) return true;
      if (count + left < needed) return false;
    }
  }
  return false;  // not reached: the count meets one of the bounds by the last sample
}

std::vector<Point> ParsePointList(const std::string& text) {
  std::istringstream in(text);
  std::vector<Point> points;
  Point point;
  bool have_x = false;
  for (std::string item; std::getline(in, item, ',');) {
    const float value = std::stof(item);
    if (!have_x) {
      point.x = value;
    } else {
      point.y = value;
      points.push_back(point);
    }
    have_x = !have_x;
  }
  return points;
}

float ClampedOverlap(const Box& new_box, const Box& reference) {
  const float left = std::max(std::max(new_box.xmin, 0.0f), reference.xmin);
  const float top = std::max(std::max(new_box.ymin, 0.0f), reference.ymin);
  const float right = std::min(reference.xmax, std::min(new_box.xmax, 1.0f));
  const float bottom = std::min(reference.ymax, std::min(new_box.ymax, 1.0f));
  const float width = std::max(right - left, 0.0f);
  const float height = std::max(bottom - top, 0.0f);
  const float intersection = width * height;
  const float area_new = (new_box.xmax - new_box.xmin) * (new_box.ymax - new_box.ymin);
  const float area_ref = (reference.xmax - reference.xmin) * (reference.ymax - reference.ymin);
  return intersection / (area_new + area_ref - intersection);
}

}  // namespace dva
}  // namespace mirvane
