// Row kernels of the direct-colour converters: one run of pixels in, one run
// out, no handles, no errors, no globals.  The scalar kernels are the
// reference; a SIMD kernel must give the same bytes on every input.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/simd.h"
#include "pix95.h"

namespace pix::convert::kernels {

// Pixel layouts the direct-colour converters read or write, in memory order.
enum class Direct : uint8_t {
  y8,      // grey byte
  y16,     // little-endian grey word, `shift` = data width - 8
  rgb8,    // 3-3-2 byte (read only, towards RGB16)
  rgb15,   // little-endian 5-5-5 word
  rgb16,   // little-endian 5-6-5 word
  rgb24,   // R G B
  bgr24,   // B G R
  rgbx32,  // R G B unused
  bgrx32,  // B G R unused
  xbgr32,  // unused B G R
  xrgb32,  // unused R G B (written only; the unused byte is never touched)
  yuv422,  // Y U Y V: a pixel is 2 bytes of which the first is its luminance (read only, towards Y8)
};
inline constexpr std::size_t kDirectLayouts = static_cast<std::size_t>(Direct::yuv422) + 1;

constexpr unsigned direct_bytes(Direct l) {
  switch (l) {
    case Direct::y8:
    case Direct::rgb8: return 1;
    case Direct::y16:
    case Direct::rgb15:
    case Direct::rgb16:
    case Direct::yuv422: return 2;
    case Direct::rgb24:
    case Direct::bgr24: return 3;
    default: return 4;
  }
}

// Converts `pixels` pixels.  Pixel i reads only its own source bytes and
// writes only its own destination bytes, so a run may be cut anywhere.
// `shift` is the data width less 8 of a Y16 source (grey = (w >> shift) &
// 0xFF) or target (w = Y << shift, cut to 16 bits); it is at most 16 and
// other pairs ignore it.  The unused byte of RGBX32, BGRX32 and XBGR32 is
// written as 0; that of XRGB32 is left as it was.
using DirectRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift);

DirectRow direct_row_scalar(Direct from, Direct to) noexcept;                // null: no such pair
DirectRow direct_row_simd(Direct from, Direct to, simd::Level level) noexcept;  // null: no kernel at that level
DirectRow direct_row(Direct from, Direct to) noexcept;                       // the fastest this processor runs

// Paletted bytes looked up in a 256-entry colour map: grey takes the entry's
// red, CMYK32 the complement of red, green and blue and a zero K.
enum class PaletteOut { y8, rgb24, cmyk32 };
using PaletteRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pixels, const tPIX_Colour* map);
PaletteRow palette_row(PaletteOut out) noexcept;

// Byte positions of R, G and B in a pixel of 3 or 4 bytes.
struct Places {
  int r, g, b;
};
constexpr Places places(Direct l) {
  switch (l) {
    case Direct::bgr24:
    case Direct::bgrx32: return {2, 1, 0};
    case Direct::xbgr32: return {3, 2, 1};
    case Direct::xrgb32: return {1, 2, 3};
    default: return {0, 1, 2};
  }
}

}  // namespace pix::convert::kernels
