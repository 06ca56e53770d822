#include "fixed_point.h"

#include <cmath>
#include <cstring>

namespace mirvane {
namespace sim {
namespace ai {

namespace {

template <typename T>
void Quantize(const float* in, size_t count, float step, float lo, float hi, void* out) {
  T* dst = static_cast<T*>(out);
  const float inverse = 1.0f / step;
  for (size_t i = 0; i < count; ++i) {
    float q = in[i] * inverse;
    if (!(q >= lo)) q = lo;  // also catches NaN
    if (q > hi) q = hi;
    // Nearest, halves away from zero; no library call in this loop of some 100 000 values.
    dst[i] = static_cast<T>(static_cast<int32_t>(q + (q < 0 ? -0.5f : 0.5f)));
  }
}

template <typename T>
void Expand(const void* in, size_t count, float step, float* out) {
  const T* src = static_cast<const T*>(in);
  for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(src[i]) * step;
}

float Step(const FixedFormat& format, float scale_ratio) {
  return std::ldexp(1.0f, -static_cast<int>(format.fraction)) * scale_ratio;
}

}  // namespace

bool DecodeFixedFormat(uint32_t format, FixedFormat* out) {
  const uint32_t base = format & 0xffff0000u;
  FixedFormat f;
  switch (base) {
    case 0xa1080000u:
      f.bits = 8;
      f.is_signed = true;
      break;
    case 0xa2080000u:
      f.bits = 8;
      f.is_signed = false;
      break;
    case 0xa1100000u:
      f.bits = 16;
      f.is_signed = true;
      break;
    case 0xa2100000u:
      f.bits = 16;
      f.is_signed = false;
      break;
    default:
      return false;
  }
  f.fraction = format & 0xffu;
  *out = f;
  return true;
}

void QuantizeFixed(const float* in, size_t count, const FixedFormat& format, float scale_ratio,
                   void* out) {
  const float step = Step(format, scale_ratio);
  if (format.bits == 8) {
    if (format.is_signed) {
      Quantize<int8_t>(in, count, step, -128.0f, 127.0f, out);
    } else {
      Quantize<uint8_t>(in, count, step, 0.0f, 255.0f, out);
    }
  } else if (format.is_signed) {
    Quantize<int16_t>(in, count, step, -32768.0f, 32767.0f, out);
  } else {
    Quantize<uint16_t>(in, count, step, 0.0f, 65535.0f, out);
  }
}

void FixedToFloat(const void* in, size_t count, const FixedFormat& format, float scale_ratio,
                  float* out) {
  const float step = Step(format, scale_ratio);
  if (format.bits == 8) {
    if (format.is_signed) {
      Expand<int8_t>(in, count, step, out);
    } else {
      Expand<uint8_t>(in, count, step, out);
    }
  } else if (format.is_signed) {
    Expand<int16_t>(in, count, step, out);
  } else {
    Expand<uint16_t>(in, count, step, out);
  }
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
