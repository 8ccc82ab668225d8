// Row kernels of the neighbourhood filter, the grey threshold and the
// measurements of PIX_HSI images (histogram counts, plane sums).  No
// handles, no errors, no globals; each reads only the bytes its arguments
// describe.  These scalar kernels are the reference for any vector version.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::process::kernels {

// ---------------------------------------------------------------------------
// 3x3 filter

// floor(x / d) as (x * mult) >> shift for every x from 0 to x_max, with mult
// below 2^bits: the smallest shift from `least` on with mult = ceil(2^shift / d)
// and x_max * (mult * d - 2^shift) < 2^shift, which makes the two equal (the
// error term stays below one unit of the quotient).  `ok` false: none.
struct Reciprocal {
  uint64_t mult = 0;
  unsigned shift = 0;
  bool ok = false;
};
constexpr Reciprocal reciprocal(uint64_t d, uint64_t x_max, unsigned bits, unsigned least) {
  for (unsigned s = least; s < 63; ++s) {
    const uint64_t p = uint64_t{1} << s, m = (p + d - 1) / d;
    if (m >> bits != 0) break;
    if (x_max * (m * d - p) < p) return {m, s, true};
  }
  return {};
}

// A kernel ready for the rows: the nine coefficients widened, row by row
// (above, the line itself, below; left, centre, right), and their sum as the
// divisor.  The divisor must not be 0 (the callers refuse such a kernel).
//
// For the vector kernels: the clamped truncating quotient is
// min(x, limit) / D with D = |divisor|, x = max(sum, 0) for a positive
// divisor and max(-sum, 0) for a negative one, limit = 256 D - 1 (every
// quotient that would pass 255 becomes 255, and every other is a floor).
// When the coefficients' magnitudes add up to at most 128 every partial sum
// fits 16 bits (`narrow`, with the coefficients negated for a negative
// divisor) and the quotient is ((x << pre16) * mult16) >> (16 + post16);
// otherwise the sums are 32-bit and the quotient (x * mult32) >> shift32.
struct Filter3x3 {
  std::array<int32_t, 9> k{};
  int32_t divisor = 1;
  bool narrow = false, wide = false;  // neither: the vector kernels leave the row to the scalar one
  std::array<int16_t, 9> narrow_k{};
  uint32_t limit = 0;
  uint32_t mult16 = 0, pre16 = 0, post16 = 0;
  uint32_t mult32 = 0, shift32 = 0;
};
constexpr Filter3x3 make_filter_3x3(const int16_t* coefficients) {
  Filter3x3 f;
  f.divisor = 0;
  int32_t magnitude = 0;
  for (std::size_t i = 0; i < 9; ++i) {
    f.divisor += f.k[i] = coefficients[i];
    magnitude += f.k[i] < 0 ? -f.k[i] : f.k[i];
  }
  if (f.divisor == 0) return f;
  const uint32_t d = static_cast<uint32_t>(f.divisor < 0 ? -f.divisor : f.divisor);
  f.limit = 256 * d - 1;
  const Reciprocal wide = reciprocal(d, f.limit, 32, 0);
  f.wide = wide.ok, f.mult32 = static_cast<uint32_t>(wide.mult), f.shift32 = wide.shift;
  if (magnitude <= 128) {
    // x widened to fill 16 bits gives the multiplier the most bits; less
    // widening suits some divisors better.
    uint32_t widest = 0;
    while ((f.limit << (widest + 1)) <= 0xFFFF) ++widest;
    for (uint32_t pre = widest + 1; pre-- > 0 && !f.narrow;) {
      const Reciprocal r = reciprocal(uint64_t{d} << pre, uint64_t{f.limit} << pre, 16, 16);
      if (r.ok) {
        f.narrow = true;
        f.mult16 = static_cast<uint32_t>(r.mult), f.pre16 = pre, f.post16 = r.shift - 16;
      }
    }
    for (std::size_t i = 0; i < 9; ++i) f.narrow_k[i] = static_cast<int16_t>(f.divisor < 0 ? -f.k[i] : f.k[i]);
  }
  return f;
}

// One output sample: (sum of coefficient * sample) / divisor in signed 32-bit
// arithmetic, the division truncating toward zero, clamped to 0..255.  The
// sum stays below 9 * 32768 * 255 in size, so it cannot wrap.
constexpr uint8_t filter_3x3_sample(const Filter3x3& f, const uint8_t* a, const uint8_t* c, const uint8_t* b,
                                    std::size_t i, std::size_t step) {
  const int32_t sum = f.k[0] * a[i - step] + f.k[1] * a[i] + f.k[2] * a[i + step] +  //
                      f.k[3] * c[i - step] + f.k[4] * c[i] + f.k[5] * c[i + step] +  //
                      f.k[6] * b[i - step] + f.k[7] * b[i] + f.k[8] * b[i + step];
  const int32_t q = sum / f.divisor;
  return static_cast<uint8_t>(q < 0 ? 0 : q > 255 ? 255 : q);
}

// An output line of `pixels` pixels of `channels` bytes (1 or 3) from the
// source lines above, at and below it: each byte filtered from the same byte
// position of the nine neighbouring pixels, except the first and last pixel,
// which are copied from the centre line.
void filter_3x3_row(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* dst, std::size_t pixels,
                    unsigned channels, const Filter3x3& f);

// ---------------------------------------------------------------------------
// Threshold

// Each grey value g: 255 when g >= upper, else 0 when g < lower, else g.
void threshold_row(const uint8_t* src, uint8_t* dst, std::size_t n, uint8_t upper, uint8_t lower);

// ---------------------------------------------------------------------------
// PIX_HSI measurements.  A pixel is the hue as a little-endian 16-bit word
// (degrees), then saturation, then intensity.

inline constexpr std::size_t kHueBins = 360;
inline constexpr std::size_t kLevelBins = 256;

// Adds each of `pixels` pixels to its hue, saturation and intensity bins.  A
// hue beyond 359 has no bin and is not counted (its saturation and
// intensity are).
void hsi_histogram_row(const uint8_t* src, std::size_t pixels, uint32_t* hue, uint32_t* saturation,
                       uint32_t* intensity);

// Adds the hue, saturation and intensity of `pixels` pixels to `sums`.
struct HsiSums {
  uint64_t hue = 0, saturation = 0, intensity = 0;
};
void hsi_sums_row(const uint8_t* src, std::size_t pixels, HsiSums& sums);

// ---------------------------------------------------------------------------
// Kernels by SIMD level

using FilterRow = void (*)(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* dst,
                           std::size_t pixels, unsigned channels, const Filter3x3& f);
using ThresholdRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t n, uint8_t upper, uint8_t lower);
struct FilterKernels {
  FilterRow filter;
  ThresholdRow threshold;
};
// The vector kernels of `level` (null members: none at that level, or the
// processor lacks it), and the fastest this processor runs, chosen once.
FilterKernels filter_kernels(simd::Level level) noexcept;
const FilterKernels& filter_kernels() noexcept;

}  // namespace pix::process::kernels
