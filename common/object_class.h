// Class ids of tracked objects as the rules read them: 1 is a person, 2 and 4 are vehicles, 3 and 0
// are other objects; and the 32-bit class masks of the settings, where bit n admits class id n.
//
// Pure functions: any thread may call them.
#ifndef MIRVANE_COMMON_OBJECT_CLASS_H
#define MIRVANE_COMMON_OBJECT_CLASS_H

#include <cstdint>

namespace mirvane {
namespace dva {

constexpr int32_t kClassPerson = 1;

inline bool IsPerson(int32_t class_id) {
  return class_id == kClassPerson;
}
inline bool IsVehicle(int32_t class_id) {
  return class_id == 2 || class_id == 4;
}

// Whether bit class_id of mask is set; negative class ids and ids of 32 or more never pass.
inline bool ClassInMask(uint32_t mask, int32_t class_id) {
  return class_id >= 0 && class_id < 32 && ((mask >> class_id) & 1u) != 0;
}

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_COMMON_OBJECT_CLASS_H
