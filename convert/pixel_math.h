// The colour arithmetic every converter shares, one pixel at a time.  These
// are the reference formulas: row kernels and their SIMD versions must give
// exactly what these give.
#pragma once

#include <cstdint>

namespace pix::convert {

constexpr uint8_t clamp255(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// Arithmetic shift right, rounding toward minus infinity (C++20 defines >>
// on negative values so).
constexpr int32_t asr(int32_t v, int bits) { return v >> bits; }

struct Rgb {
  uint8_t r, g, b;
  friend constexpr bool operator==(const Rgb&, const Rgb&) = default;
};

// Chroma terms of a YUV 4:2:2 pair, computed once and shared by both pixels:
// 10-bit fixed point, full-range Y, U and V offset by 128.
struct Chroma {
  int32_t r, g, b;
};
constexpr Chroma chroma_terms(uint8_t u, uint8_t v) {
  const int32_t cu = static_cast<int32_t>(u) - 128;
  const int32_t cv = static_cast<int32_t>(v) - 128;
  return {1436 * cv, -352 * cu - 731 * cv, 1815 * cu};
}
constexpr Rgb yuv_pixel(uint8_t y, const Chroma& c) {
  const int32_t base = 1024 * static_cast<int32_t>(y);
  return {clamp255(asr(base + c.r, 10)), clamp255(asr(base + c.g, 10)), clamp255(asr(base + c.b, 10))};
}
constexpr Rgb yuv_to_rgb(uint8_t y, uint8_t u, uint8_t v) { return yuv_pixel(y, chroma_terms(u, v)); }

// RGB to YUV as the encoder and the chroma keyer use it: Y in bits 0-7, U in
// bits 8-15, V in bits 16-23.
struct Yuv {
  uint8_t y, u, v;
  friend constexpr bool operator==(const Yuv&, const Yuv&) = default;
};
constexpr Yuv rgb_to_yuv(int32_t r, int32_t g, int32_t b) {
  return {clamp255(asr(306 * r + 601 * g + 117 * b, 10)), clamp255(asr(-173 * r - 339 * g + 512 * b, 10) + 128),
          clamp255(asr(512 * r - 429 * g - 83 * b, 10) + 128)};
}
constexpr uint32_t pack_yuv(const Yuv& p) {
  return static_cast<uint32_t>(p.y) | (static_cast<uint32_t>(p.u) << 8) | (static_cast<uint32_t>(p.v) << 16);
}

// 16-bit packings; both truncate.
constexpr uint16_t pack_rgb16(uint8_t r, uint8_t g, uint8_t b) {
  return static_cast<uint16_t>(((r & 0xF8) << 8) | ((g & 0xFC) << 3) | (b >> 3));
}
constexpr uint16_t pack_rgb15(uint8_t r, uint8_t g, uint8_t b) {
  return static_cast<uint16_t>(((r & 0xF8) << 7) | ((g & 0xF8) << 2) | (b >> 3));
}

// 16-bit expansions.  Kept: the low bits of each byte are not cleared, so R
// from RGB15 carries green's top bits and G carries blue's; applications
// depend on these exact values.
constexpr Rgb unpack_rgb15(uint16_t w) {
  return {static_cast<uint8_t>(w >> 7), static_cast<uint8_t>(w >> 2), static_cast<uint8_t>(w << 3)};
}
constexpr Rgb unpack_rgb16(uint16_t w) {
  return {static_cast<uint8_t>(w >> 8), static_cast<uint8_t>(w >> 3), static_cast<uint8_t>(w << 3)};
}

// Grey of an RGB pixel: weights summing to 256, truncated.
constexpr uint8_t grey(uint8_t r, uint8_t g, uint8_t b) {
  return static_cast<uint8_t>((77 * r + 150 * g + 29 * b) >> 8);
}

}  // namespace pix::convert
