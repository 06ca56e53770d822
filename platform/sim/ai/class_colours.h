// The colours the simulated scenes draw each object class in, and the reference network's object
// finder looks for: one table for both sides.
#ifndef MIRVANE_PLATFORM_SIM_AI_CLASS_COLOURS_H
#define MIRVANE_PLATFORM_SIM_AI_CLASS_COLOURS_H

#include "common/object_class.h"

namespace mirvane {
namespace sim {
namespace ai {

// Luma and chroma (4:2:0 planes, 0..255) of a class's body.
struct ClassColour {
  int y, u, v;
};

// Indexed by dva::ClassIndex of the class id.
constexpr ClassColour kClassColours[dva::kClassIdCount] = {
    {82, 90, 240},   // person: red
    {41, 240, 110},  // vehicle: blue
    {145, 54, 34},   // other: green
    {210, 16, 146},  // second vehicle kind: yellow
};

// Neutral grey, for an id of no class.
constexpr ClassColour kNoClassColour = {128, 128, 128};

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_CLASS_COLOURS_H
