// Row kernels of the geometric operations: cropping copies, point
// subsampling, pixel replication, mirroring, the column gathers of quarter
// turns and the two passes of bilinear scaling.  No handles, no errors, no
// globals; each reads only the bytes its arguments describe.  These scalar
// kernels are the reference for any vector version.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::process::kernels {

// Bytes of one pixel (1, 2, 3 or 4) as the geometric operations move it.
// A YUV 4:2:2 pixel counts 2; its pair rules have kernels of their own.

// `bytes` bytes copied (a cropped line).
void copy_row(const uint8_t* src, uint8_t* dst, std::size_t bytes);

// Point sampling: output pixel i is source pixel factor * i.  Reads pixels
// 0 .. factor * (pixels - 1) of the source.
void subsample_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor, unsigned pixel_bytes);
// YUV 4:2:2: output pixel p takes the Y of source pixel factor * p; an even
// output pixel takes the U of the source pair at its sampling point, an odd
// one the V of the pair its left neighbour sampled.  So each output pair is
// Y0, U, V of the source pair at the sampling point and Y1 from the pixel
// `factor` columns to its right.  Reads source bytes below
// 2 * factor * (pixels - 1) + 2, plus one V byte inside the last sampled pair
// (factor >= 2 keeps it below that bound).
void subsample_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor);

// Each of `pixels` source pixels written `factor` times in a row.
void replicate_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor, unsigned pixel_bytes);
// YUV 4:2:2, `pairs` whole source pairs: each Y written `factor` times into
// the Y positions, each pair's U and V into `factor` consecutive output
// pairs, so a source pair's chroma covers the 2 * factor pixels made from it.
void replicate_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, unsigned factor);

// The line reversed: output pixel i is source pixel pixels - 1 - i.
void mirror_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned pixel_bytes);
// YUV 4:2:2, `pairs` whole pairs: the pairs in reverse order, each keeping
// its U and V, with the luma of the whole line reversed pixel by pixel.
void mirror_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pairs);

// A column read into a row: output pixel i is the pixel at byte
// first + i * step of `src` (step may be negative; every offset read must
// lie inside the caller's buffer).
void gather_row(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t step, uint8_t* dst, std::size_t pixels,
                unsigned pixel_bytes);

// ---------------------------------------------------------------------------
// Bilinear scaling with 8-bit weights.

// Positions carry 13 fractional bits; the weight is the top 8 of them.
inline constexpr unsigned kScaleShift = 13;
constexpr unsigned scale_fraction(uint64_t position) { return static_cast<unsigned>((position & 0x1FE0u) >> 5); }

// The multiplication table: entry [p][k] = p * (256 - k) >> 8.  Column f
// weights the near sample, column 256 - f the far one, each product cut by
// itself.
struct ScaleProducts {
  std::array<std::array<uint16_t, 257>, 256> at;
};
constexpr ScaleProducts make_scale_products() {
  ScaleProducts t{};
  for (unsigned p = 0; p < 256; ++p) {
    for (unsigned k = 0; k <= 256; ++k) t.at[p][k] = static_cast<uint16_t>(p * (256 - k) >> 8);
  }
  return t;
}
const ScaleProducts& scale_products() noexcept;

// Where an output column reads: the byte offsets of its two source pixels
// (the second is the first again where the source line has no next pixel)
// and the weight of the second.
struct ScaleColumn {
  uint32_t near;
  uint32_t far;
  uint8_t fraction;
};
// The columns of an output line `out_pixels` wide over a source line of
// `in_pixels` pixels of `channels` bytes, stepped by `step` (13 fractional
// bits) from position 0.
void scale_columns(ScaleColumn* columns, std::size_t out_pixels, uint32_t in_pixels, uint64_t step, unsigned channels);

// Horizontal pass: output byte (i, c) = near * (256 - f) >> 8 + far * f >> 8
// of column i's samples of channel c.
void scale_row_h(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, std::size_t out_pixels,
                 unsigned channels);
// Vertical pass over `bytes` bytes: upper * (256 - f) >> 8 + lower * f >> 8.
void scale_row_v(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes, unsigned fraction);

// ---------------------------------------------------------------------------
// Vector versions.  Each writes exactly the bytes of its scalar reference
// above; the scalar versions in the tables are those references.

// The horizontal pass laid out for byte shuffles: output bytes in groups of
// 16, each half (8 bytes) made from one window of the source line, 16, 32,
// 48 or 64 bytes wide (vector 1 to 4), the narrowest its samples fit.
struct ScaleGroup {
  // Output byte k's near and far sample (bytes 2k and 2k + 1) as indices into
  // the window of its half, k / 8.
  uint8_t pick[32];
  uint8_t fraction[16];  // output byte k's weight of the far sample
  uint32_t window[2];    // where the windows start in the source line
  uint32_t vector;       // the windows' width in 16 bytes; 0: the group is made by the formula
};
// The groups of the first (out_pixels * channels) / 16 * 16 output bytes of
// `columns`, over a source line of `in_bytes` bytes.
inline std::size_t scale_group_count(std::size_t out_pixels, unsigned channels) { return out_pixels * channels / 16; }
void scale_groups(ScaleGroup* groups, const ScaleColumn* columns, std::size_t out_pixels, std::size_t in_bytes,
                  unsigned channels);

// Output lines 0 .. lines - 1 of a quarter turn, `pixels` pixels each and
// `dst_stride` bytes apart: pixel i of line j is the one at byte
// first + j * across + i * step of `src`, where across is +pixel_bytes or
// -pixel_bytes (every offset read must lie inside the caller's buffer).
void turn_lines(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step, uint8_t* dst,
                std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels, unsigned pixel_bytes);

struct GeometryKernels {
  // `lines` lines of a strip, each reversed: `pixels` pixels read at
  // src + y * src_stride, written reversed at dst + y * dst_stride (either
  // step may be negative).  A whole strip a call, so that no line pays for
  // a call and the kernel's set-up.
  using Mirror = void (*)(const uint8_t* src, std::ptrdiff_t src_stride, uint8_t* dst, std::ptrdiff_t dst_stride,
                          std::size_t lines, std::size_t pixels);
  using MirrorPairs = void (*)(const uint8_t* src, uint8_t* dst, std::size_t pairs);
  using Turn = void (*)(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                        uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels);
  using ScaleH = void (*)(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, const ScaleGroup* groups,
                          std::size_t out_pixels, unsigned channels);
  using ScaleV = void (*)(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes,
                          unsigned fraction);
  Mirror mirror[4];  // by pixel bytes - 1
  MirrorPairs mirror_yuv422;  // one line, counted in pairs
  Turn turn[4];      // by pixel bytes - 1
  ScaleH scale_h;    // channels 1 or 3; the groups made by scale_groups for the same columns
  ScaleV scale_v;
};
// The kernels at `level` (each the widest at or below it; scalar where none).
const GeometryKernels& geometry_kernels(simd::Level level) noexcept;
// At the active level.
const GeometryKernels& geometry_kernels() noexcept;
// Fills in the vector kernels written for exactly `level`.
void add_geometry_simd(GeometryKernels& kernels, simd::Level level) noexcept;

}  // namespace pix::process::kernels
