// The detection region of the people and vehicle rule: a list of polygons in normalised frame
// coordinates and a type, 0 for an inclusion region (inside some polygon) and 1 for an exclusion
// region (inside none).
//
// Owns its polygons. Not synchronised: one thread at a time (the pipeline thread).
#ifndef MIRVANE_COMMON_DETECTION_REGION_H
#define MIRVANE_COMMON_DETECTION_REGION_H

#include <string>
#include <vector>

#include "common/geometry.h"

namespace mirvane {
namespace dva {

class DetectionRegion {
 public:
  static constexpr int kInclusion = 0;
  static constexpr int kExclusion = 1;

  DetectionRegion() = default;
  DetectionRegion(int type, std::vector<Polygon> polygons);

  // Parses the region text: polygons separated by ";", numbers within a polygon separated by ","
  // and taken two at a time as x, y (an unpaired last number is dropped). Coordinates below 0.02
  // become 0 and above 0.98 become 1, so that a polygon drawn near an edge reaches it. A number
  // that is not a float throws std::invalid_argument (from std::stof).
  static std::vector<Polygon> ParsePolygons(const std::string& text);

  // Type 0: some polygon contains the point; any other type: no polygon does.
  bool Admits(Point p) const;
  // Type 0: some polygon covers the box (PolygonCoversBox); any other type: no polygon does.
  bool AdmitsBox(const Box& box, int divisions, float min_ratio) const;

  int type() const { return type_; }
  const std::vector<Polygon>& polygons() const { return polygons_; }

 private:
  int type_ = kInclusion;
  std::vector<Polygon> polygons_;
};

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_COMMON_DETECTION_REGION_H
