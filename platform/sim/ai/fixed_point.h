// The network runtime's fixed-point tensor formats: a format word holds the type (0x0f000000,
// signed when odd), the element bits (0x00ff0000), integer bits (0x0000ff00) and fraction bits
// (0x000000ff). A stored value v stands for v * 2^-fraction * scale_ratio.
//
// Pure computations; safe from any thread.
#ifndef MIRVANE_PLATFORM_SIM_AI_FIXED_POINT_H
#define MIRVANE_PLATFORM_SIM_AI_FIXED_POINT_H

#include <cstddef>
#include <cstdint>

namespace mirvane {
namespace sim {
namespace ai {

struct FixedFormat {
  uint32_t bits = 0;  // 8 or 16
  bool is_signed = false;
  uint32_t fraction = 0;
  size_t bytes() const { return bits / 8; }
};

// Signed and unsigned 8- and 16-bit formats; false for anything else (floats included).
bool DecodeFixedFormat(uint32_t format, FixedFormat* out);

// Stores count floats as the nearest representable values, saturating at the type's range.
void QuantizeFixed(const float* in, size_t count, const FixedFormat& format, float scale_ratio,
                   void* out);

// The inverse: count stored values to floats.
void FixedToFloat(const void* in, size_t count, const FixedFormat& format, float scale_ratio,
                  float* out);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_FIXED_POINT_H
