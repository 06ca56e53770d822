#include "common/detection_region.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace mirvane {
namespace dva {
namespace {

constexpr float kSnapLow = 0.02f;
constexpr float kSnapHigh = 0.98f;

float Snap(float v) {
  if (v < kSnapLow) return 0.0f;
  if (v > kSnapHigh) return 1.0f;
  return v;
}

Polygon ParsePolygon(const std::string& text) {
  Polygon polygon = ParsePointList(text);
  for (Point& p : polygon) p = Point{Snap(p.x), Snap(p.y)};
  return polygon;
}

}  // namespace

DetectionRegion::DetectionRegion(int type, std::vector<Polygon> polygons)
    : type_(type), polygons_(std::move(polygons)) {}

std::vector<Polygon> DetectionRegion::ParsePolygons(const std::string& text) {
  std::istringstream in(text);
  std::vector<Polygon> polygons;
  for (std::string item; std::getline(in, item, ';');) polygons.push_back(ParsePolygon(item));
  return polygons;
}

bool DetectionRegion::Admits(Point p) const {
  const bool hit = std::any_of(polygons_.begin(), polygons_.end(),
                               [p](const Polygon& polygon) { return PolygonContains(polygon, p); });
  return type_ == kInclusion ? hit : !hit;
}

bool DetectionRegion::AdmitsBox(const Box& box, int divisions, float min_ratio) const {
  const bool hit = std::any_of(polygons_.begin(), polygons_.end(), [&](const Polygon& polygon) {
    return PolygonCoversBox(polygon, box, divisions, min_ratio);
  });
  return type_ == kInclusion ? hit : !hit;
}

}  // namespace dva
}  // namespace mirvane
