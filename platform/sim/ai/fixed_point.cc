#include "fixed_point.h"

#include <cmath>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// The conversion runs every frame over some 100 000 values. On x86 the values are widened to
// 32-bit integers, converted and multiplied four at a time (each lane rounded as the scalar
// operations would be, so the floats are the same); elsewhere, and for a tail, one by one.
template <typename T>
void ExpandScalar(const T* src, size_t count, float step, float* out) {
  for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(src[i]) * step;
}

#if defined(__SSE2__)
// Four 32-bit integers to floats times the step.
void StoreScaled(__m128i four, __m128 steps, float* out) {
  _mm_storeu_ps(out, _mm_mul_ps(_mm_cvtepi32_ps(four), steps));
}

// Eight 16-bit lanes (sign- or zero-extended) to floats times the step.
template <bool kSigned>
void StoreScaled8(__m128i eight, __m128 steps, float* out) {
  if (kSigned) {
    StoreScaled(_mm_srai_epi32(_mm_unpacklo_epi16(eight, eight), 16), steps, out);
    StoreScaled(_mm_srai_epi32(_mm_unpackhi_epi16(eight, eight), 16), steps, out + 4);
  } else {
    const __m128i zero = _mm_setzero_si128();
    StoreScaled(_mm_unpacklo_epi16(eight, zero), steps, out);
    StoreScaled(_mm_unpackhi_epi16(eight, zero), steps, out + 4);
  }
}

template <typename T>
void Expand(const void* in, size_t count, float step, float* out) {
  const T* src = static_cast<const T*>(in);
  constexpr bool kSigned = std::is_signed<T>::value;
  const __m128 steps = _mm_set1_ps(step);
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  if (sizeof(T) == 1) {
    for (; i + 16 <= count; i += 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
      __m128i low = _mm_unpacklo_epi8(bytes, kSigned ? bytes : zero);
      __m128i high = _mm_unpackhi_epi8(bytes, kSigned ? bytes : zero);
      if (kSigned) {
        low = _mm_srai_epi16(low, 8);
        high = _mm_srai_epi16(high, 8);
      }
      StoreScaled8<kSigned>(low, steps, out + i);
      StoreScaled8<kSigned>(high, steps, out + i + 8);
    }
  } else {
    for (; i + 8 <= count; i += 8) {
      StoreScaled8<kSigned>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)), steps,
                            out + i);
    }
  }
  ExpandScalar(src + i, count - i, step, out + i);
}
#else
template <typename T>
void Expand(const void* in, size_t count, float step, float* out) {
  ExpandScalar(static_cast<const T*>(in), count, step, out);
}
#endif

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
