// Row kernels of the colour-map functions: 3-3-2 colour, its dithered form,
// histogram cells and the cell-to-entry mapping.  One run of pixels in, one
// out (or counts), no handles, no errors, no globals.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pix95.h"

namespace pix::convert::kernels {

// Bits per channel of the histogram cells (each 0..8; red + green + blue at
// most 12, so a colour cell index stays below 4096).
struct CellBits {
  uint8_t red, green, blue, grey;
};

// The colour cell of an RGB pixel: each channel cut to its bits, red highest.
constexpr uint32_t colour_cell(const CellBits& bits, uint8_t r, uint8_t g, uint8_t b) {
  return (static_cast<uint32_t>(r >> (8 - bits.red)) << (bits.green + bits.blue)) |
         (static_cast<uint32_t>(g >> (8 - bits.green)) << bits.blue) | static_cast<uint32_t>(b >> (8 - bits.blue));
}

// Index of the entry among the first `used` nearest to (r, g, b) by squared
// distance; the first of equally near entries wins; 0 for an empty map.
inline uint8_t nearest_entry(const tPIX_Colour* map, uint32_t used, uint8_t r, uint8_t g, uint8_t b) {
  uint32_t best = 31234567;  // larger than any distance
  uint32_t index = 0;
  for (uint32_t i = 0; i < used; ++i) {
    const int dr = r - map[i].red, dg = g - map[i].green, db = b - map[i].blue;
    const uint32_t d = static_cast<uint32_t>(dr * dr + dg * dg + db * db);
    if (d < best) {
      best = d;
      index = i;
    }
  }
  return static_cast<uint8_t>(index);
}

// 3-3-2 bytes: red bits 7-5, green bits 4-2, blue bits 1-0.
void rgb8_from_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept;
void rgb8_from_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept;

// 3-3-2 bytes with the error of each pixel carried to the next two of its
// group of three (groups start at the first pixel of the run).
void rgb8_dither_row(const uint8_t* src, uint8_t* dst, std::size_t pixels) noexcept;

// Histogram counts per cell, added to `counts` (indexed by cell).
void count_grey_cells(const uint8_t* src, std::size_t pixels, uint8_t grey_bits, uint32_t* counts) noexcept;
void count_colour_cells(const uint8_t* src, std::size_t pixels, const CellBits& bits, uint32_t* counts) noexcept;
// Y16 words (little-endian) brought to 8 bits by `data_width` first; widths
// below 8 leave no significant bits and count as grey 0.
void count_y16_cells(const uint8_t* src, std::size_t pixels, uint16_t data_width, uint8_t grey_bits,
                     uint32_t* counts) noexcept;

// Paletted indices through a 256-entry table of the final index per grey.
void paletted_from_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* index_of_grey) noexcept;

// Paletted indices of RGB pixels: `entry_of_cell[cell]` is the colour-map
// index of a cell, or kNoEntry, in which case the nearest of the first
// `used` entries of `map` is taken.
inline constexpr uint16_t kNoEntry = 0x100;
void paletted_from_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels, const CellBits& bits,
                         const uint16_t* entry_of_cell, const tPIX_Colour* map, uint32_t used) noexcept;

}  // namespace pix::convert::kernels
