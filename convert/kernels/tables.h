// Row kernels of the table-driven converters and of the general lookup
// tables, and the fill loops of the conversion tables: pure functions, no
// handles, no errors, no globals.  The scalar kernels are the reference; a
// SIMD kernel must give the same bytes on every input.
#pragma once

#include <cstddef>
#include <cstdint>

#include "convert/pixel_math.h"
#include "core/simd.h"
#include "pix95.h"

namespace pix::convert::kernels {

// ---------------------------------------------------------------------------
// Conversion tables
// ---------------------------------------------------------------------------

// The YUV tables keep the top 7 bits of Y and the top 6 of U and V (19-bit
// index, 16-bit entries) or the top 5 bits of each (15-bit index, byte
// entries).  The chroma half is shared by both pixels of a pair.
constexpr uint32_t yuv19_chroma(uint32_t u, uint32_t v) { return ((u >> 2) << 6) | (v >> 2); }
constexpr uint32_t yuv19_index(uint32_t y, uint32_t chroma) { return ((y >> 1) << 12) | chroma; }
constexpr uint32_t yuv15_chroma(uint32_t u, uint32_t v) { return ((u >> 3) << 5) | (v >> 3); }
constexpr uint32_t yuv15_index(uint32_t y, uint32_t chroma) { return ((y >> 3) << 10) | chroma; }

inline constexpr std::size_t kYuv19Entries = std::size_t{1} << 19;
inline constexpr std::size_t kYuv15Entries = std::size_t{1} << 15;

// Tables are allocated this many bytes longer than they are, so that a
// vector gather may read a whole 32-bit word at the last entry.
inline constexpr std::size_t kTableSlack = 4;

// Fills the 19-bit YUV table with RGB16 (`rgb15` false) or RGB15 words,
// little-endian: each entry is the colour of the quantised Y, U and V.
void fill_yuv19_table(uint8_t* table, bool rgb15) noexcept;

// Closest-colour tables through a colour map of `used` entries:
// 15-bit YUV indices, RGB16 words (red, green and blue bytes unmasked:
// (i >> 8), (i >> 3) and (i << 3), each cut to 8 bits), and grey levels
// g = (i >> shift) & 0xFF for i below `count`.
void fill_yuv15_paletted(uint8_t* table, const tPIX_Colour* map, uint32_t used) noexcept;
void fill_rgb16_paletted(uint8_t* table, const tPIX_Colour* map, uint32_t used) noexcept;
void fill_grey_paletted(uint8_t* table, std::size_t count, unsigned shift, const tPIX_Colour* map,
                        uint32_t used) noexcept;

// Output layouts of the table-driven YUV 4:2:2 converters.  `word16` stores
// the table word itself (RGB16 or RGB15 table); the 24- and 32-bit layouts
// expand the RGB16 word w unmasked: R = w >> 8, G = (w >> 3) & 0xFF,
// B = (w << 3) & 0xFF, and never write the unused byte.  `paletted` stores
// the byte of the 15-bit table.
enum class LutOut { rgbx32, bgrx32, xbgr32, xrgb32, rgb24, bgr24, word16, paletted };

// Converts `pairs` pairs (bytes Y0 U Y1 V) through `table` (the 19-bit table
// of 16-bit entries, or the 15-bit byte table for `paletted`, each with its
// slack).
using LutRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table);

LutRow yuv_lut_row_scalar(LutOut out) noexcept;                // the reference
LutRow yuv_lut_row_simd(LutOut out, simd::Level level) noexcept;  // null: no kernel at that level
LutRow yuv_lut_row(LutOut out) noexcept;                       // the fastest this processor runs

// Paletted through a byte table: a Y8 byte per pixel, or a little-endian
// 16-bit word per pixel masked with `mask` (the table's size less one).
void paletted_from_bytes(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* table) noexcept;
void paletted_from_words(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* table,
                         uint32_t mask) noexcept;

// ---------------------------------------------------------------------------
// General lookup tables
// ---------------------------------------------------------------------------

// The four 8-bit tables (256 entries each) of a general LUT.
struct Tables8 {
  const uint8_t* grey;
  const uint8_t* red;
  const uint8_t* green;
  const uint8_t* blue;
};

// Each maps `pixels` pixels (pairs for the YUV kernels) of one format.
void lut_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept;
void lut_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept;
void lut_rgb8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept;
// Kept in both 16-bit layouts: blue is looked up at its raw 5-bit value
// (0..31) while red and green are looked up scaled to 8 bits.
void lut_rgb15(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept;
void lut_rgb16(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept;
// 16-bit grey samples through a table of 65536 entries.
void lut_y16(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint16_t* grey) noexcept;
// YUV 4:2:2 pairs: luminance through the grey table, chroma copied.
void lut_yuv_grey(const uint8_t* src, uint8_t* dst, std::size_t pairs, const Tables8& t) noexcept;
// YUV 4:2:2 pairs through RGB: each pixel decoded, its R, G and B looked up,
// encoded back; the pair keeps both Y and the truncated mean of U and of V.
void lut_yuv_rgb(const uint8_t* src, uint8_t* dst, std::size_t pairs, const Tables8& t) noexcept;

}  // namespace pix::convert::kernels
