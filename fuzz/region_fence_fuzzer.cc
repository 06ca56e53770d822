// Fuzz target: the detection region text ("x,y,x,y;x,y,...") and the fence text ("x,y,x,y,...")
// of the rules' settings, parsed and then used the way the rules use them.
//
// The parsers throw std::invalid_argument or std::out_of_range (from std::stof) on a number that
// is no float or out of float range; that ends the daemon through its pipeline's handler, and is
// accepted here. Anything else that escapes, and every sanitizer report, is a finding.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/detection_region.h"
#include "common/fence.h"
#include "common/geometry.h"

namespace {

using mirvane::dva::Box;
using mirvane::dva::DetectionRegion;
using mirvane::dva::Fence;
using mirvane::dva::Point;
using mirvane::dva::Polygon;
using mirvane::dva::Segment;

const Point kProbes[] = {{0.5f, 0.5f}, {0.0f, 0.0f}, {1.0f, 1.0f}, {0.25f, 0.75f}};

// A coordinate of a region is snapped: 0, 1, or inside [0.02, 0.98] (NaN passes through).
bool Snapped(float v) {
  return std::isnan(v) || v == 0.0f || v == 1.0f || (v >= 0.02f && v <= 0.98f);
}

void UseRegion(const std::string& text) {
  const std::vector<Polygon> polygons = DetectionRegion::ParsePolygons(text);
  for (const Polygon& polygon : polygons) {
    for (const Point& p : polygon) {
      if (!Snapped(p.x) || !Snapped(p.y)) std::abort();
    }
  }
  for (int type : {DetectionRegion::kInclusion, DetectionRegion::kExclusion}) {
    const DetectionRegion region(type, polygons);
    for (const Point& p : kProbes) (void)region.Admits(p);
    (void)region.AdmitsBox(Box{0.1f, 0.1f, 0.6f, 0.9f}, 4, 0.5f);
  }
}

void UseFence(const std::string& text) {
  Fence fence;
  for (const Point& p : mirvane::dva::ParsePointList(text)) fence.AddPoint(p);
  const size_t points = fence.points().size();
  if (fence.boundaries().size() != (points == 0 ? 0 : points - 1)) std::abort();
  const Segment step{kProbes[0], kProbes[3]};
  for (const Segment& segment : fence.boundaries()) {
    (void)mirvane::dva::CrossingDirection(segment, step);
    (void)mirvane::dva::SideOfSegment(segment, kProbes[1]);
    (void)mirvane::dva::DistanceToLine(segment, kProbes[2]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    UseRegion(text);
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
  try {
    UseFence(text);
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
  return 0;
}
