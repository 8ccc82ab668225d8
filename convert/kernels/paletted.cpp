// Row kernels of the colour-map functions.
#include "paletted.h"

#include <algorithm>

namespace pix::convert::kernels {

namespace {
constexpr uint8_t rgb8(uint32_t r, uint32_t g, uint32_t b) {
  return static_cast<uint8_t>((r & 0xE0) | (((g & 0xE7) | (b >> 3)) >> 3));
}
}  // namespace

void rgb8_from_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 3) dst[i] = rgb8(src[0], src[1], src[2]);
}

void rgb8_from_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint32_t t = src[i] & 0xE0u;
    dst[i] = static_cast<uint8_t>(t | (t >> 3) | (t >> 6));
  }
}

void rgb8_dither_row(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept {
  for (std::size_t start = 0; start < pixels; start += 3) {
    // Errors travel within a group of three pixels only.
    uint32_t er = 0, eg = 0, eb = 0;
    const std::size_t end = std::min<std::size_t>(start + 3, pixels);
    for (std::size_t i = start; i < end; ++i) {
      const uint8_t* p = src + 3 * i;
      const uint32_t r = std::min<uint32_t>(p[0] + er, 255);
      const uint32_t g = std::min<uint32_t>(p[1] + eg, 255);
      const uint32_t b = std::min<uint32_t>(p[2] + eb, 255);
      dst[i] = rgb8(r, g, b);
      er = (r & 0x1E) >> 1;
      eg = (g & 0x1E) >> 1;
      // Kept: blue carries bits 7, 6 and 0 rather than the bits it lost, so
      // bright blues push a large error into the rest of their group;
      // applications depend on the exact bytes this gives.
      eb = (b & 0xC1) >> 1;
    }
  }
}

void count_grey_cells(const uint8_t* src, std::size_t pixels, uint8_t grey_bits, uint32_t* counts) noexcept {
  const int shift = 8 - grey_bits;
  for (std::size_t i = 0; i < pixels; ++i) ++counts[src[i] >> shift];
}

void count_colour_cells(const uint8_t* src, std::size_t pixels, const CellBits& bits, uint32_t* counts) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 3) ++counts[colour_cell(bits, src[0], src[1], src[2])];
}

void count_y16_cells(const uint8_t* src, std::size_t pixels, uint16_t data_width, uint8_t grey_bits,
                     uint32_t* counts) noexcept {
  const int shift = 8 - grey_bits;
  if (data_width < 8) {
    counts[0] += static_cast<uint32_t>(pixels);
    return;
  }
  const int down = data_width - 8;
  for (std::size_t i = 0; i < pixels; ++i, src += 2) {
    const uint32_t w = static_cast<uint32_t>(src[0]) | (static_cast<uint32_t>(src[1]) << 8);
    ++counts[((w >> down) & 0xFF) >> shift];
  }
}

void paletted_from_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* index_of_grey) noexcept {
  for (std::size_t i = 0; i < pixels; ++i) dst[i] = index_of_grey[src[i]];
}

void paletted_from_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels, const CellBits& bits,
                         const uint16_t* entry_of_cell, const tPIX_Colour* map, uint32_t used) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 3) {
    const uint16_t entry = entry_of_cell[colour_cell(bits, src[0], src[1], src[2])];
    dst[i] = entry != kNoEntry ? static_cast<uint8_t>(entry) : nearest_entry(map, used, src[0], src[1], src[2]);
  }
}

}  // namespace pix::convert::kernels
