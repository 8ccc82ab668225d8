// Row kernels of the field functions and the inspection views: line
// copies in 16-bit units, one 8-bit channel out of 32-bit pixels, and the
// pseudo-colour views of YUV 4:2:2, PIX_HSI and grey.  No handles, no
// errors, no globals; these scalar kernels are the reference for any vector
// version.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::process::kernels {

// A line copied as bytes / 2 16-bit units: an odd last byte is not copied.
void copy_halfwords_row(const uint8_t* src, uint8_t* dst, std::size_t bytes);

// Each 32-bit little-endian pixel shifted right by `shift` (0..31), its low
// 8 bits kept.
void shift32_to_y8_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift);

// Byte `byte` (0..3) of each 32-bit pixel.
void byte_of_32_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned byte);

// Each pair Y0, U, Y1, V as the RGB24 pixels (Y0, U, V) and (Y1, U, V).
void yuv422_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pairs);

// The red of a hue: hue * 0.7027777777777778 truncated (252 at 359); a hue
// beyond the circle keeps the low 8 bits of its product.
constexpr uint8_t hsi_pseudo_red(uint16_t hue) {
  return static_cast<uint8_t>(static_cast<uint32_t>(hue * 0.7027777777777778));
}
// The same red by integers: bits 24-31 of hue * kHueRed taken modulo 2^32
// (one 32-bit multiplication), equal for every 16-bit hue (checked at
// compile time below).  kHueRed / 2^24 lies above the scale's exact value
// 253 / 360 by less than 1 / (360 * 65536), too little to carry any hue's
// quotient past the next integer.
inline constexpr uint32_t kHueRed = 11790655;
constexpr uint8_t hsi_pseudo_red_by_multiply(uint16_t hue) {
  return static_cast<uint8_t>(static_cast<uint32_t>(hue * kHueRed) >> 24);
}
constexpr bool hue_multiply_exact() {
  for (uint32_t h = 0; h < 65536; ++h) {
    if (hsi_pseudo_red_by_multiply(static_cast<uint16_t>(h)) != hsi_pseudo_red(static_cast<uint16_t>(h))) return false;
  }
  return true;
}
// Each PIX_HSI pixel as RGB24: red from the hue, green the saturation, blue
// the intensity.
void hsi_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pixels);

// A grey value as a PIX_RGB16 word: red g & 0xF8 in bits 11-15, green the
// triangle t & 0xFC in bits 5-10 (t = 2g below 128, 511 - 2g from 128 on),
// blue (255 - g) >> 3 in bits 0-4.
constexpr uint16_t y8_pseudo_word(uint8_t g) {
  const unsigned t = g < 128 ? 2u * g : 511u - 2u * g;
  return static_cast<uint16_t>((g & 0xF8u) << 8 | (t & 0xFCu) << 3 | (255u - g) >> 3);
}
struct Y8PseudoTable {
  std::array<uint16_t, 256> word;
};
constexpr Y8PseudoTable make_y8_pseudo_table() {
  Y8PseudoTable t{};
  for (unsigned g = 0; g < 256; ++g) t.word[g] = y8_pseudo_word(static_cast<uint8_t>(g));
  return t;
}
// The same words from 16-entry tables of the grey byte's nibbles (for byte
// shuffles): low byte = lo_low[n] ^ hi_low[m], high byte = (g & 8) | hi_high[m]
// for g = 16m + n.  The triangle is 2g, or its complement from 128 on, so the
// nibbles' bits land in fixed places, complemented by the top bit.
struct Y8PseudoNibbles {
  std::array<uint8_t, 16> lo_low, hi_low, hi_high;
};
constexpr Y8PseudoNibbles make_y8_pseudo_nibbles() {
  Y8PseudoNibbles t{};
  for (unsigned n = 0; n < 16; ++n) {
    const unsigned top = (n & 8) != 0 ? 7 : 0;  // the grey's bit 7, for the high nibble
    t.lo_low[n] = static_cast<uint8_t>((n >> 1 & 7) << 5 | (~n >> 3 & 1));
    t.hi_low[n] = static_cast<uint8_t>(top << 5 | (~n & 15) << 1);
    t.hi_high[n] = static_cast<uint8_t>(n << 4 | ((n & 7) ^ top));
  }
  return t;
}
constexpr bool y8_nibbles_exact() {
  constexpr Y8PseudoNibbles t = make_y8_pseudo_nibbles();
  for (unsigned g = 0; g < 256; ++g) {
    const unsigned n = g & 15, m = g >> 4;
    const unsigned word = ((g & 8) | t.hi_high[m]) << 8 | (t.lo_low[n] ^ t.hi_low[m]);
    if (word != y8_pseudo_word(static_cast<uint8_t>(g))) return false;
  }
  return true;
}
// Each grey byte as one little-endian PIX_RGB16 word.
void y8_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pixels);

// The pseudo-colour rows by SIMD level (each: src, dst, units), the vector
// kernels of `level` (null members: none there, or the processor lacks it),
// and the fastest this processor runs, chosen once.
using PseudoRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t units);
struct PseudoKernels {
  PseudoRow yuv422, hsi, y8;
};
PseudoKernels pseudo_kernels(simd::Level level) noexcept;
const PseudoKernels& pseudo_kernels() noexcept;

}  // namespace pix::process::kernels
