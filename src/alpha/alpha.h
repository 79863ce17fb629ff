// The scaled multiply of alpha work: a x b / max with exact rounding, on
// values read as fractions of the depth's maximum (8U and 16U only).
#pragma once

#include <cstdint>

#include "image/pointop.h"

namespace mox::alpha {

// 8 bits: p = a*b; (p + 1 + (p >> 8)) >> 8. Every step fits 16 bits
// (at most 65025 + 1 + 254), so vector loops keep 16-bit lanes.
// 16 bits: the same with 16 in place of 8, in unsigned 32-bit arithmetic
// (at most 4294836225 + 1 + 65533).
template <class D>
inline typename D::T scaledMul(std::uint32_t a, std::uint32_t b) {
  static_assert(!D::isSigned && (D::bits == 8 || D::bits == 16));
  if constexpr (D::bits == 8) {
    const auto p = static_cast<std::uint16_t>(a * b);
    return static_cast<typename D::T>((p + 1u + (p >> 8)) >> 8);
  } else {
    const std::uint32_t p = a * b;
    return static_cast<typename D::T>((p + 1u + (p >> 16)) >> 16);
  }
}

// The unsigned clamp of a scalar to the depth's maximum: any value above it
// read as unsigned (so every negative value) becomes the maximum.
inline std::uint32_t clampUnsigned(int value, unsigned depth) {
  const std::uint32_t max = depth == MOX_DEPTH_8U ? 0xFFu : 0xFFFFu;
  const auto v = static_cast<std::uint32_t>(value);
  return v > max ? max : v;
}

}  // namespace mox::alpha
