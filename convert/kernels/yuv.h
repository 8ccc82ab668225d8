// Row kernels of the YUV 4:2:2 converters: one run of pixels in, one out, no
// handles, no errors, no globals.  The scalar kernels are the reference; a
// SIMD kernel must give the same bytes on every input.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::convert::kernels {

// Output layouts of the YUV 4:2:2 decoders.
enum class YuvOut { rgbx32, bgrx32, xbgr32, xrgb32, rgb24, bgr24, rgb16, rgb15, y8 };

// Decodes `pairs` pairs (bytes Y0 U Y1 V) into 2 * pairs pixels of one
// layout.  The unused byte of the 32-bit layouts is never written.
using YuvRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pairs);

YuvRow yuv422_row_scalar(YuvOut out) noexcept;                // the reference
YuvRow yuv422_row_simd(YuvOut out, simd::Level level) noexcept;  // null: no kernel at that level
YuvRow yuv422_row(YuvOut out) noexcept;                       // the fastest this processor runs

// Source layouts of the encoder back to YUV 4:2:2 (paletted sources are
// looked up in their colour map by the worker first).
enum class RgbIn { y8, rgb24, bgr24, rgbx32, bgrx32, xbgr32 };

// Encodes 2 * pairs pixels into `pairs` pairs (Y0, mean U, Y1, mean V).
using EncodeRow = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pairs);

EncodeRow encode_row_scalar(RgbIn in) noexcept;
EncodeRow encode_row_simd(RgbIn in, simd::Level level) noexcept;
EncodeRow encode_row(RgbIn in) noexcept;

}  // namespace pix::convert::kernels
