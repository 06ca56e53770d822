// Plane geometry of the rules: points, segments and boxes in normalised frame coordinates (0 to 1,
// y growing downwards), the even-odd point-in-polygon test, the sampled box coverage, the side of
// a point relative to a directed segment, fence crossings, point-to-line distance and the overlap
// measure of the movement judge.
//
// Pure functions without state: any thread may call them.
#ifndef MIRVANE_COMMON_GEOMETRY_H
#define MIRVANE_COMMON_GEOMETRY_H

#include <cstdint>
#include <string>
#include <vector>

namespace mirvane {
namespace dva {

struct Point {
  float x = 0.0f;
  float y = 0.0f;
};

// A directed segment from start to end.
struct Segment {
  Point start;
  Point end;
};

struct Box {
  float xmin = 0.0f;
  float ymin = 0.0f;
  float xmax = 0.0f;
  float ymax = 0.0f;
};

using Polygon = std::vector<Point>;

// Side of a point relative to a directed segment a -> b: right when
// (b.x - a.x) * (p.y - a.y) - (p.x - a.x) * (b.y - a.y) < 0; a point on the line counts as left.
enum class Side { kLeft, kRight };

// Direction bits of a crossing: left to right of the crossed segment, and right to left.
constexpr uint8_t kCrossLeftToRight = 1;
constexpr uint8_t kCrossRightToLeft = 2;

Side SideOfSegment(const Segment& segment, Point p);

// How the step crosses the fence segment: 0 when both ends of the fence lie on the same side of
// the step (or the step does not change sides), else kCrossLeftToRight or kCrossRightToLeft by the
// sides of the step's start and end relative to the fence.
uint8_t CrossingDirection(const Segment& fence, const Segment& step);

// Distance from p to the infinite line through the segment's ends, in double precision.
double DistanceToLine(const Segment& segment, Point p);

// Even-odd rule in single precision; a polygon without points contains nothing.
bool PolygonContains(const Polygon& polygon, Point p);

// Samples the box on a divisions x divisions grid of cell centres and says whether the share of
// samples inside the polygon is at least min_ratio.
bool PolygonCoversBox(const Polygon& polygon, const Box& box, int divisions, float min_ratio);

// Parses numbers separated by "," and takes them two at a time as x, y; an unpaired last number
// is dropped, an empty text gives no points. A number that is not a float throws
// std::invalid_argument (from std::stof).
std::vector<Point> ParsePointList(const std::string& text);

// Overlap of a new box with a reference box: the intersection takes the new box clamped to the
// frame, the union both boxes unclamped. A zero union is not guarded against.
float ClampedOverlap(const Box& new_box, const Box& reference);

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_COMMON_GEOMETRY_H
