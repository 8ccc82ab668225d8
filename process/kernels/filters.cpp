#include "filters.h"

#include <cstring>

namespace pix::process::kernels {

void filter_3x3_row(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* dst, std::size_t pixels,
                    unsigned channels, const Filter3x3& f) {
  if (pixels == 0) return;
  const std::size_t bytes = pixels * channels;
  if (pixels <= 2) {
    std::memcpy(dst, centre, bytes);
    return;
  }
  std::memcpy(dst, centre, channels);
  for (std::size_t i = channels; i < bytes - channels; ++i)
    dst[i] = filter_3x3_sample(f, above, centre, below, i, channels);
  std::memcpy(dst + bytes - channels, centre + bytes - channels, channels);
}

void threshold_row(const uint8_t* src, uint8_t* dst, std::size_t n, uint8_t upper, uint8_t lower) {
  for (std::size_t i = 0; i < n; ++i) {
    const uint8_t g = src[i];
    dst[i] = g >= upper ? 255 : g < lower ? 0 : g;
  }
}

void hsi_histogram_row(const uint8_t* src, std::size_t pixels, uint32_t* hue, uint32_t* saturation,
                       uint32_t* intensity) {
  for (std::size_t i = 0; i < pixels; ++i, src += 4) {
    const unsigned h = src[0] | src[1] << 8;
    if (h < kHueBins) ++hue[h];
    ++saturation[src[2]];
    ++intensity[src[3]];
  }
}

void hsi_sums_row(const uint8_t* src, std::size_t pixels, HsiSums& sums) {
  uint64_t h = 0, s = 0, v = 0;
  for (std::size_t i = 0; i < pixels; ++i, src += 4) {
    h += src[0] | src[1] << 8;
    s += src[2];
    v += src[3];
  }
  sums.hue += h, sums.saturation += s, sums.intensity += v;
}

}  // namespace pix::process::kernels
