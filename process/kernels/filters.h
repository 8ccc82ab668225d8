// Row kernels of the neighbourhood filter, the grey threshold and the
// measurements of PIX_HSI images (histogram counts, plane sums).  No
// handles, no errors, no globals; each reads only the bytes its arguments
// describe.  These scalar kernels are the reference for any vector version.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace pix::process::kernels {

// ---------------------------------------------------------------------------
// 3x3 filter

// A kernel ready for the rows: the nine coefficients widened, row by row
// (above, the line itself, below; left, centre, right), and their sum as the
// divisor.  The divisor must not be 0 (the callers refuse such a kernel).
struct Filter3x3 {
  std::array<int32_t, 9> k{};
  int32_t divisor = 1;
};
constexpr Filter3x3 make_filter_3x3(const int16_t* coefficients) {
  Filter3x3 f;
  f.divisor = 0;
  for (std::size_t i = 0; i < 9; ++i) f.divisor += f.k[i] = coefficients[i];
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

}  // namespace pix::process::kernels
