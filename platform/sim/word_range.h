// The platform's UINT32 and INT32 are `long`: 8 bytes on a 64-bit host, where a caller can pass a
// value that the camera's 32-bit words could not hold. These checks compile without warnings on
// both (on the camera they are always true).
#ifndef MIRVANE_PLATFORM_SIM_WORD_RANGE_H
#define MIRVANE_PLATFORM_SIM_WORD_RANGE_H

#include <cstdint>

namespace mirvane {
namespace sim {

inline bool FitsU32(unsigned long long v) {
  return v <= 0xffffffffULL;
}
inline bool FitsI32(long long v) {
  return v >= INT32_MIN && v <= INT32_MAX;
}

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_WORD_RANGE_H
