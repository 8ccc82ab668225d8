// SIMD kernels of the geometric operations (SSE2, AVX2, AVX-512, chosen at
// run time): mirrors by byte shuffles, quarter turns by transposed tiles,
// the two bilinear passes with the scalar products' exact truncation.  Each
// body does whole blocks and leaves the rest of a run to the scalar kernel.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "geometry.h"

namespace pix::process::kernels {

#if PIX95_X86
namespace {

PIX95_SSE2 inline __m128i load16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// A strip mirrored line by line with a one-line kernel.
template <auto Row>
void each_line(const uint8_t* src, std::ptrdiff_t src_stride, uint8_t* dst, std::ptrdiff_t dst_stride,
               std::size_t lines, std::size_t pixels) {
  for (std::size_t y = 0; y < lines; ++y) {
    const auto at = static_cast<std::ptrdiff_t>(y);
    Row(src + at * src_stride, dst + at * dst_stride, pixels);
  }
}

// The RGB24 mirror reads its lines backwards in 48-byte steps: the bytes a
// few steps further down are asked for early, which measurably helps it (and
// not the mirrors of whole vectors).  A hint only: it never faults, wherever
// it points.
PIX95_SSE2 inline void prefetch_ahead(const uint8_t* p) {
  _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(p) - 384), _MM_HINT_T0);
}

// ---------------------------------------------------------------------------
// Quarter turns: the turn cut into tiles of TJ output lines by TI pixels;
// `tile` turns a whole tile from the pixel at (line j0, pixel i0); the
// lines and pixels left over go through the scalar gather.
using Tile = void (*)(const uint8_t* at, std::ptrdiff_t across, std::ptrdiff_t step, uint8_t* out,
                     std::ptrdiff_t dst_stride);
template <unsigned B, std::size_t TJ, std::size_t TI, Tile tile>
PIX95_INLINE void turn_tiled(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                             uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  const std::size_t whole_lines = lines / TJ * TJ, whole_pixels = pixels / TI * TI;
  for (std::size_t j0 = 0; j0 < whole_lines; j0 += TJ) {
    const std::ptrdiff_t column = first + static_cast<std::ptrdiff_t>(j0) * across;
    uint8_t* out = dst + static_cast<std::ptrdiff_t>(j0) * dst_stride;
    for (std::size_t i0 = 0; i0 < whole_pixels; i0 += TI) {
      tile(src + column + static_cast<std::ptrdiff_t>(i0) * step, across, step, out + i0 * B, dst_stride);
    }
    if (whole_pixels < pixels) {
      for (std::size_t j = 0; j < TJ; ++j) {
        gather_row(src, column + static_cast<std::ptrdiff_t>(j) * across + static_cast<std::ptrdiff_t>(whole_pixels) * step,
                   step, out + static_cast<std::ptrdiff_t>(j) * dst_stride + whole_pixels * B, pixels - whole_pixels, B);
      }
    }
  }
  turn_lines(src, first + static_cast<std::ptrdiff_t>(whole_lines) * across, across, step,
             dst + static_cast<std::ptrdiff_t>(whole_lines) * dst_stride, dst_stride, lines - whole_lines, pixels, B);
}

// A tile by plain gathers, for the pixel sizes without a transpose: the
// tiling alone keeps the source lines it reads in cache.
template <unsigned B>
void gather_tile(const uint8_t* at, std::ptrdiff_t a, std::ptrdiff_t s, uint8_t* out, std::ptrdiff_t ds) {
  for (std::ptrdiff_t j = 0; j < 16; ++j) gather_row(at + j * a, 0, s, out + j * ds, 64, B);
}
template <unsigned B>
void turn_blocked(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step, uint8_t* dst,
                  std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_tiled<B, 16, 64, gather_tile<B>>(src, first, across, step, dst, dst_stride, lines, pixels);
}

// Rows r of a tile are the source pixels (i0 + r, j0 ..); with `across`
// negative their lowest address is line j0 + T - 1's, so row vectors are read
// from there and the transposed rows stored in reverse line order.
inline const uint8_t* tile_row(const uint8_t* at, std::ptrdiff_t across, std::ptrdiff_t step, std::ptrdiff_t r,
                               std::ptrdiff_t t) {
  return at + r * step + (across < 0 ? (t - 1) * across : 0);
}
inline uint8_t* tile_line(uint8_t* out, std::ptrdiff_t across, std::ptrdiff_t ds, std::ptrdiff_t c, std::ptrdiff_t t) {
  return out + (across < 0 ? t - 1 - c : c) * ds;
}

// 4-bit index reversed: after the four unpack stages below, byte r of the
// result comes from input vector reverse4(r).
constexpr int reverse4(int r) { return ((r & 1) << 3) | ((r & 2) << 1) | ((r & 4) >> 1) | ((r & 8) >> 3); }

// Output bytes [from, to) of the horizontal pass, each product p * w >> 8
// multiplied out rather than looked up in the 128 KiB table (the same
// values): the pass for groups without windows, and without byte shuffles.
inline void scale_bytes(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, std::size_t from, std::size_t to,
                        unsigned channels) {
  std::size_t p = from / channels;
  unsigned k = static_cast<unsigned>(from % channels);
  for (std::size_t j = from; j < to; ++j) {
    const ScaleColumn& c = columns[p];
    const unsigned f = c.fraction;
    dst[j] = static_cast<uint8_t>((src[c.near + k] * (256 - f) >> 8) + (src[c.far + k] * f >> 8));
    if (++k == channels) k = 0, ++p;
  }
}
void scale_h_multiplied(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, const ScaleGroup*,
                        std::size_t out_pixels, unsigned channels) {
  scale_bytes(src, dst, columns, 0, out_pixels * channels, channels);
}

// ---------------------------------------------------------------------------
// SSE2

PIX95_SSE2 inline __m128i reverse_bytes_sse2(__m128i v) {
  v = _mm_shuffle_epi32(v, 0x1B);
  v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xB1), 0xB1);
  return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}
PIX95_SSE2 inline __m128i reverse_words_sse2(__m128i v) {
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(_mm_shuffle_epi32(v, 0x1B), 0xB1), 0xB1);
}

template <unsigned B>
PIX95_SSE2 void mirror_sse2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  constexpr std::size_t per = 16 / B;
  std::size_t i = 0;
  for (; pixels - i >= per; i += per) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + (pixels - i - per) * B));
    if constexpr (B == 1) v = reverse_bytes_sse2(v);
    if constexpr (B == 2) v = reverse_words_sse2(v);
    if constexpr (B == 4) v = _mm_shuffle_epi32(v, 0x1B);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i * B), v);
  }
  if (i < pixels) mirror_row(src, dst + i * B, pixels - i, B);
}

// YUV 4:2:2 pairs reversed, Y0 and Y1 swapped within each.
PIX95_SSE2 void mirror_yuv422_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m128i keep = _mm_set1_epi32(static_cast<int>(0xFF00FF00u)), low = _mm_set1_epi32(0xFF);
  std::size_t i = 0;
  for (; pairs - i >= 4; i += 4) {
    const __m128i v = _mm_shuffle_epi32(load16(src + (pairs - i - 4) * 4), 0x1B);
    const __m128i y = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(v, 16), low), _mm_slli_epi32(_mm_and_si128(v, low), 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i * 4), _mm_or_si128(_mm_and_si128(v, keep), y));
  }
  if (i < pairs) mirror_yuv422_row(src, dst + i * 4, pairs - i);
}

// 16 x 16 bytes transposed: four rounds of interleaving vector r with r + 8
// (vector r must hold tile row reverse4(r)).
#define PIX95_TRANSPOSE16(V, LO8, HI8, LO16, HI16, LO32, HI32, LO64, HI64)                             \
  do {                                                                                                   \
    V t_[16];                                                                                            \
    for (int r = 0; r < 8; ++r) t_[2 * r] = LO8(v[r], v[r + 8]), t_[2 * r + 1] = HI8(v[r], v[r + 8]);    \
    for (int r = 0; r < 8; ++r) v[2 * r] = LO16(t_[r], t_[r + 8]), v[2 * r + 1] = HI16(t_[r], t_[r + 8]); \
    for (int r = 0; r < 8; ++r) t_[2 * r] = LO32(v[r], v[r + 8]), t_[2 * r + 1] = HI32(v[r], v[r + 8]);  \
    for (int r = 0; r < 8; ++r) v[2 * r] = LO64(t_[r], t_[r + 8]), v[2 * r + 1] = HI64(t_[r], t_[r + 8]); \
  } while (false)

PIX95_SSE2 void tile1_sse2(const uint8_t* at, std::ptrdiff_t a, std::ptrdiff_t s, uint8_t* out, std::ptrdiff_t ds) {
  __m128i v[16];
  for (int r = 0; r < 16; ++r) v[r] = load16(tile_row(at, a, s, reverse4(r), 16));
  PIX95_TRANSPOSE16(__m128i, _mm_unpacklo_epi8, _mm_unpackhi_epi8, _mm_unpacklo_epi16, _mm_unpackhi_epi16,
                    _mm_unpacklo_epi32, _mm_unpackhi_epi32, _mm_unpacklo_epi64, _mm_unpackhi_epi64);
  for (int c = 0; c < 16; ++c) _mm_storeu_si128(reinterpret_cast<__m128i*>(tile_line(out, a, ds, c, 16)), v[c]);
}
PIX95_SSE2 void turn1_sse2(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                           uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_tiled<1, 16, 16, tile1_sse2>(src, first, across, step, dst, dst_stride, lines, pixels);
}

// 4-byte pixels: 4 x 4 tiles.
PIX95_SSE2 void tile4_sse2(const uint8_t* at, std::ptrdiff_t a, std::ptrdiff_t s, uint8_t* out, std::ptrdiff_t ds) {
  const __m128i r0 = load16(tile_row(at, a, s, 0, 4)), r1 = load16(tile_row(at, a, s, 1, 4));
  const __m128i r2 = load16(tile_row(at, a, s, 2, 4)), r3 = load16(tile_row(at, a, s, 3, 4));
  const __m128i t0 = _mm_unpacklo_epi32(r0, r1), t1 = _mm_unpackhi_epi32(r0, r1);
  const __m128i t2 = _mm_unpacklo_epi32(r2, r3), t3 = _mm_unpackhi_epi32(r2, r3);
  const __m128i c[4] = {_mm_unpacklo_epi64(t0, t2), _mm_unpackhi_epi64(t0, t2), _mm_unpacklo_epi64(t1, t3),
                        _mm_unpackhi_epi64(t1, t3)};
  for (int k = 0; k < 4; ++k) _mm_storeu_si128(reinterpret_cast<__m128i*>(tile_line(out, a, ds, k, 4)), c[k]);
}
PIX95_SSE2 void turn4_sse2(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                           uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_tiled<4, 4, 4, tile4_sse2>(src, first, across, step, dst, dst_stride, lines, pixels);
}

PIX95_SSE2 void scale_v_sse2(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes,
                             unsigned fraction) {
  if (fraction == 0) {  // all of the upper line: the products are the bytes themselves
    if (bytes != 0) std::memcpy(dst, upper, bytes);
    return;
  }
  // Bytes moved to the high half of a word: mulhi(p << 8, w) = p * w >> 8,
  // each product truncated as the table has it.
  const __m128i wn = _mm_set1_epi16(static_cast<short>(256 - fraction)), wf = _mm_set1_epi16(static_cast<short>(fraction));
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  for (; bytes - i >= 16; i += 16) {
    const __m128i u = load16(upper + i), l = load16(lower + i);
    const __m128i lo = _mm_add_epi16(_mm_mulhi_epu16(_mm_unpacklo_epi8(zero, u), wn),
                                     _mm_mulhi_epu16(_mm_unpacklo_epi8(zero, l), wf));
    const __m128i hi = _mm_add_epi16(_mm_mulhi_epu16(_mm_unpackhi_epi8(zero, u), wn),
                                     _mm_mulhi_epu16(_mm_unpackhi_epi8(zero, l), wf));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(lo, hi));
  }
  scale_row_v(upper + i, lower + i, dst + i, bytes - i, fraction);
}

// ---------------------------------------------------------------------------
// AVX2

PIX95_AVX2 inline __m256i load32(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// Reverses bytes (B = 1) or words (B = 2) within each 128-bit lane.
template <unsigned B>
PIX95_AVX2 inline __m256i reverse_control_avx2() {
  return B == 1 ? _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,
                                   7, 6, 5, 4, 3, 2, 1, 0)
                : _mm256_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1, 14, 15, 12, 13, 10, 11, 8,
                                   9, 6, 7, 4, 5, 2, 3, 0, 1);
}

// Store q of a 16-pixel RGB24 mirror step takes its bytes from source bytes
// kStart[q] .. kStart[q] + 17 of the step: the first load's share, or
// (second) the share of the load two bytes further on.
constexpr std::array<std::array<int8_t, 16>, 6> rgb_mirror_controls() {
  constexpr int kStart[3] = {30, 15, 0};
  std::array<std::array<int8_t, 16>, 6> c{};
  for (int q = 0; q < 3; ++q) {
    for (int k = 0; k < 16; ++k) {
      const int m = 16 * q + k, from = 45 - 3 * (m / 3) + m % 3 - kStart[q];
      c[2 * q][k] = static_cast<int8_t>(from < 16 ? from : -1);
      c[2 * q + 1][k] = static_cast<int8_t>(from >= 16 ? from - 2 : -1);
    }
  }
  return c;
}
alignas(16) constexpr std::array<std::array<int8_t, 16>, 6> kRgbMirror = rgb_mirror_controls();
PIX95_AVX2 inline __m128i rgb_mirror_control(int q, bool second) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(kRgbMirror[2 * q + (second ? 1 : 0)].data()));
}
PIX95_AVX2 inline __m128i rgb_mirror_part(const uint8_t* p, __m128i first, __m128i second) {
  return _mm_or_si128(_mm_shuffle_epi8(load16(p), first), _mm_shuffle_epi8(load16(p + 2), second));
}

template <unsigned B>
PIX95_AVX2 void mirror_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  std::size_t i = 0;
  if constexpr (B == 3) {
    // 16 pixels (48 bytes) a step, as three 16-byte stores; each store's
    // bytes come from an 18-byte stretch of the source, read as two
    // overlapping 16-byte loads, each shuffled for its share.
    const __m128i c0a = rgb_mirror_control(0, false), c0b = rgb_mirror_control(0, true);
    const __m128i c1a = rgb_mirror_control(1, false), c1b = rgb_mirror_control(1, true);
    const __m128i c2a = rgb_mirror_control(2, false), c2b = rgb_mirror_control(2, true);
    for (; pixels - i >= 16; i += 16) {
      const uint8_t* block = src + (pixels - i - 16) * 3;
      prefetch_ahead(block);
      __m128i* d = reinterpret_cast<__m128i*>(dst + i * 3);
      _mm_storeu_si128(d, rgb_mirror_part(block + 30, c0a, c0b));
      _mm_storeu_si128(d + 1, rgb_mirror_part(block + 15, c1a, c1b));
      _mm_storeu_si128(d + 2, rgb_mirror_part(block, c2a, c2b));
    }
  } else {
    constexpr std::size_t per = 32 / B;
    const __m256i control = B == 4 ? _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0) : reverse_control_avx2<B>();
    for (; pixels - i >= per; i += per) {
      const __m256i v = load32(src + (pixels - i - per) * B);
      const __m256i r = B == 4 ? _mm256_permutevar8x32_epi32(v, control)
                               : _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, control), 0x4E);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i * B), r);
    }
    if (i < pixels) mirror_sse2<B>(src, dst + i * B, pixels - i);
    return;
  }
  if (i < pixels) mirror_row(src, dst + i * B, pixels - i, B);
}

PIX95_AVX2 void mirror_yuv422_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m256i control = _mm256_setr_epi8(14, 13, 12, 15, 10, 9, 8, 11, 6, 5, 4, 7, 2, 1, 0, 3, 14, 13, 12, 15, 10, 9,
                                           8, 11, 6, 5, 4, 7, 2, 1, 0, 3);
  std::size_t i = 0;
  for (; pairs - i >= 8; i += 8) {
    const __m256i v = _mm256_shuffle_epi8(load32(src + (pairs - i - 8) * 4), control);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i * 4), _mm256_permute4x64_epi64(v, 0x4E));
  }
  if (i < pairs) mirror_yuv422_sse2(src, dst + i * 4, pairs - i);
}

// Two 16 x 16 byte tiles side by side (lines j0 .. j0 + 31): the unpacks work
// lane by lane, so each lane is transposed on its own.
PIX95_AVX2 void tile1_avx2(const uint8_t* at, std::ptrdiff_t a, std::ptrdiff_t s, uint8_t* out, std::ptrdiff_t ds) {
  __m256i v[16];
  for (int r = 0; r < 16; ++r) v[r] = load32(tile_row(at, a, s, reverse4(r), 32));
  PIX95_TRANSPOSE16(__m256i, _mm256_unpacklo_epi8, _mm256_unpackhi_epi8, _mm256_unpacklo_epi16, _mm256_unpackhi_epi16,
                    _mm256_unpacklo_epi32, _mm256_unpackhi_epi32, _mm256_unpacklo_epi64, _mm256_unpackhi_epi64);
  for (int c = 0; c < 16; ++c) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(tile_line(out, a, ds, c, 32)), _mm256_castsi256_si128(v[c]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(tile_line(out, a, ds, c + 16, 32)), _mm256_extracti128_si256(v[c], 1));
  }
}
#undef PIX95_TRANSPOSE16

PIX95_AVX2 void turn1_avx2(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                           uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_tiled<1, 32, 16, tile1_avx2>(src, first, across, step, dst, dst_stride, lines, pixels);
}

// 3-byte pixels: 8 x 8 tiles, each pixel widened to 32 bits for the
// transpose and narrowed again; a row reads and a line writes exactly its
// 24 bytes.
PIX95_AVX2 void tile3_avx2(const uint8_t* at, std::ptrdiff_t a, std::ptrdiff_t s, uint8_t* out, std::ptrdiff_t ds) {
  // Lane 0 holds bytes 0-15 of the row, lane 1 bytes 8-23: pixels 0-3 and 4-7.
  const __m256i widen = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 4, 5, 6, -1, 7, 8, 9, -1,
                                         10, 11, 12, -1, 13, 14, 15, -1);
  __m256i r[8];
  for (int k = 0; k < 8; ++k) {
    const uint8_t* row = tile_row(at, a, s, k, 8);
    r[k] = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(load16(row)), load16(row + 8), 1), widen);
  }
  __m256i t[8], u[8];
  for (int k = 0; k < 8; k += 2) t[k] = _mm256_unpacklo_epi32(r[k], r[k + 1]), t[k + 1] = _mm256_unpackhi_epi32(r[k], r[k + 1]);
  for (int k = 0; k < 8; k += 4) {
    u[k] = _mm256_unpacklo_epi64(t[k], t[k + 2]), u[k + 1] = _mm256_unpackhi_epi64(t[k], t[k + 2]);
    u[k + 2] = _mm256_unpacklo_epi64(t[k + 1], t[k + 3]), u[k + 3] = _mm256_unpackhi_epi64(t[k + 1], t[k + 3]);
  }
  const __m256i narrow = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6, 8, 9,
                                          10, 12, 13, 14, -1, -1, -1, -1);
  const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  // Column c: lane 0 of u[c % 4] (rows 0-3) beside lane 0 of u[c % 4 + 4]; c >= 4 the lanes 1.
  auto put = [&](int c, __m256i column) PIX95_AVX2 {
    const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(column, narrow), join);
    uint8_t* line = tile_line(out, a, ds, c, 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(line), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(line + 16), _mm256_extracti128_si256(bytes, 1));
  };
  for (int c = 0; c < 4; ++c) {
    put(c, _mm256_permute2x128_si256(u[c], u[c + 4], 0x20));
    put(c + 4, _mm256_permute2x128_si256(u[c], u[c + 4], 0x31));
  }
}
PIX95_AVX2 void turn3_avx2(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step,
                           uint8_t* dst, std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_tiled<3, 8, 8, tile3_avx2>(src, first, across, step, dst, dst_stride, lines, pixels);
}

PIX95_AVX2 void scale_v_avx2(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes,
                             unsigned fraction) {
  if (fraction == 0) {
    if (bytes != 0) std::memcpy(dst, upper, bytes);
    return;
  }
  const __m256i wn = _mm256_set1_epi16(static_cast<short>(256 - fraction));
  const __m256i wf = _mm256_set1_epi16(static_cast<short>(fraction));
  const __m256i zero = _mm256_setzero_si256();
  std::size_t i = 0;
  for (; bytes - i >= 32; i += 32) {
    const __m256i u = load32(upper + i), l = load32(lower + i);
    const __m256i lo = _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_unpacklo_epi8(zero, u), wn),
                                        _mm256_mulhi_epu16(_mm256_unpacklo_epi8(zero, l), wf));
    const __m256i hi = _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_unpackhi_epi8(zero, u), wn),
                                        _mm256_mulhi_epu16(_mm256_unpackhi_epi8(zero, l), wf));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_packus_epi16(lo, hi));
  }
  scale_v_sse2(upper + i, lower + i, dst + i, bytes - i, fraction);
}

// The words near | far << 8 of a group whose windows are W x 16 bytes wide.
// Past the first 16 bytes, picks into the k-th 16 less 16k, saturated up by
// 0x70, keep their low four bits with bit 7 clear (0x70 to 0x7F); every other
// pick ends at 0x80 or above, which the shuffle reads as 0.
template <unsigned W>
PIX95_AVX2 inline __m256i scale_words_avx2(const uint8_t* src, const ScaleGroup& g) {
  const __m256i pick = load32(g.pick);
  __m256i words = _mm256_setzero_si256();
  for (unsigned k = 0; k < W; ++k) {
    const __m256i window = _mm256_inserti128_si256(_mm256_castsi128_si256(load16(src + g.window[0] + 16 * k)),
                                                   load16(src + g.window[1] + 16 * k), 1);
    const __m256i control =
        W == 1 ? pick
               : _mm256_adds_epu8(_mm256_sub_epi8(pick, _mm256_set1_epi8(static_cast<char>(16 * k))),
                                  _mm256_set1_epi8(0x70));
    words = _mm256_or_si256(words, _mm256_shuffle_epi8(window, control));
  }
  return words;
}

// One group: each half multiplied by its weight in the high byte of a word.
PIX95_AVX2 inline __m256i scale_group_avx2(const uint8_t* src, const ScaleGroup& g) {
  const __m256i words = g.vector == 1   ? scale_words_avx2<1>(src, g)
                        : g.vector == 2 ? scale_words_avx2<2>(src, g)
                        : g.vector == 3 ? scale_words_avx2<3>(src, g)
                                        : scale_words_avx2<4>(src, g);
  const __m256i far_weight = _mm256_cvtepu8_epi16(load16(g.fraction));
  const __m256i near_weight = _mm256_sub_epi16(_mm256_set1_epi16(256), far_weight);
  return _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_slli_epi16(words, 8), near_weight),
                          _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi16(static_cast<short>(0xFF00))),
                                             far_weight));
}

PIX95_AVX2 void scale_h_avx2(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, const ScaleGroup* groups,
                             std::size_t out_pixels, unsigned channels) {
  const std::size_t count = scale_group_count(out_pixels, channels);
  std::size_t g = 0;
  for (; g + 2 <= count; g += 2) {
    if (groups[g].vector == 0 || groups[g + 1].vector == 0) {
      scale_bytes(src, dst, columns, 16 * g, 16 * g + 32, channels);
      continue;
    }
    // Lanes of the pack hold 8 bytes of each group: put them back in order.
    const __m256i packed = _mm256_packus_epi16(scale_group_avx2(src, groups[g]), scale_group_avx2(src, groups[g + 1]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16 * g), _mm256_permute4x64_epi64(packed, 0xD8));
  }
  for (; g < count; ++g) {
    if (groups[g].vector == 0) {
      scale_bytes(src, dst, columns, 16 * g, 16 * g + 16, channels);
      continue;
    }
    const __m256i r = scale_group_avx2(src, groups[g]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 16 * g),
                     _mm_packus_epi16(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1)));
  }
  scale_bytes(src, dst, columns, 16 * count, out_pixels * channels, channels);
}

// ---------------------------------------------------------------------------
// AVX-512

// Mirrors of a whole strip: each line in steps of one 64-byte store (B = 1,
// 2, 4) or of 64 pixels as three stores (B = 3, by byte permutes across
// the register).  Step i writes the line's pixels i .. i + 64 / B (64 for
// B = 3).  The steps are 0, then every step from the output's first 64-byte
// boundary (when a whole number of pixels reaches it), then the one ending
// at the line's end: the first and last overlap their neighbours, whose
// bytes they write with the same values, and no other store crosses a cache
// line.  Lines shorter than a step go to the AVX2 kernel.
//
// The steps run in either order.  Reading the source forwards (steps from
// the last down) is faster while the strip stays in cache; once it does not,
// the output's backward stores cost far more than that (measured on 2 MiB of
// grey against 8 MiB of 4-byte pixels), so large strips read backwards.
inline constexpr std::size_t kCachedStrip = std::size_t{4} << 20;  // bytes in and out together
template <unsigned B>
bool read_forwards(std::size_t lines, std::size_t pixels) {
  return pixels <= kCachedStrip / (2 * B) / std::max<std::size_t>(lines, 1);
}

template <unsigned B>
PIX95_INLINE std::size_t first_boundary(const uint8_t* d) {
  const std::size_t gap = (64 - reinterpret_cast<std::uintptr_t>(d) % 64) % 64;
  if constexpr (B == 3) return gap * 43 % 64;  // 3 * 43 = 1 modulo 64
  return gap % B == 0 ? gap / B : 0;
}

template <unsigned B>
PIX95_AVX512 inline void mirror_step_avx512(const uint8_t* s, uint8_t* d, std::size_t pixels, std::size_t i,
                                            __m512i control) {
  constexpr std::size_t per = 64 / B;
  const __m512i v = _mm512_loadu_si512(s + (pixels - i - per) * B);
  __m512i r;
  if constexpr (B == 4) {
    r = _mm512_permutexvar_epi32(control, v);
  } else {
    const __m512i lanes = _mm512_shuffle_epi8(v, control);
    r = _mm512_shuffle_i64x2(lanes, lanes, 0x1B);
  }
  _mm512_storeu_si512(d + i * B, r);
}

template <unsigned B>
PIX95_AVX512 void mirror_avx512(const uint8_t* src, std::ptrdiff_t src_stride, uint8_t* dst, std::ptrdiff_t dst_stride,
                                std::size_t lines, std::size_t pixels) {
  constexpr std::size_t per = 64 / B;
  if (pixels < per) return each_line<mirror_avx2<B>>(src, src_stride, dst, dst_stride, lines, pixels);
  const __m512i control =
      B == 4 ? _mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
             : _mm512_broadcast_i32x4(_mm256_castsi256_si128(reverse_control_avx2<B>()));
  const bool forwards = read_forwards<B>(lines, pixels);
  for (std::size_t y = 0; y < lines; ++y) {
    const uint8_t* s = src + static_cast<std::ptrdiff_t>(y) * src_stride;
    uint8_t* d = dst + static_cast<std::ptrdiff_t>(y) * dst_stride;
    const std::size_t first = first_boundary<B>(d), steps = (pixels - first) / per;
    const bool last = first + steps * per < pixels;
    if (forwards) {
      if (last) mirror_step_avx512<B>(s, d, pixels, pixels - per, control);
      for (std::size_t k = steps; k-- > 0;) mirror_step_avx512<B>(s, d, pixels, first + k * per, control);
      mirror_step_avx512<B>(s, d, pixels, 0, control);
    } else {
      mirror_step_avx512<B>(s, d, pixels, 0, control);
      for (std::size_t k = 0; k < steps; ++k) mirror_step_avx512<B>(s, d, pixels, first + k * per, control);
      if (last) mirror_step_avx512<B>(s, d, pixels, pixels - per, control);
    }
  }
}

// RGB24, 64 pixels (192 bytes) a step: output vector v picks its bytes (a
// stretch of up to 66) from two source vectors loaded from the step's byte
// kRgbMirrorBase[v] on.
constexpr unsigned kRgbMirrorBase[3] = {64, 32, 0};
struct RgbMirrorPicks {
  alignas(64) std::array<std::array<uint8_t, 64>, 3> at;
};
constexpr RgbMirrorPicks make_rgb_mirror_picks() {
  RgbMirrorPicks p{};
  
  for (unsigned v = 0; v < 3; ++v) {
    for (unsigned b = 0; b < 64; ++b) {
      const unsigned o = 64 * v + b;
      p.at[v][b] = static_cast<uint8_t>(3 * (63 - o / 3) + o % 3 - kRgbMirrorBase[v]);
      if (3 * (63 - o / 3) + o % 3 - kRgbMirrorBase[v] >= 128) throw "a pick outside its two vectors";
    }
  }
  return p;
}
constexpr RgbMirrorPicks kRgbMirrorPicks = make_rgb_mirror_picks();

PIX95_AVX512VBMI inline void mirror3_step(const uint8_t* s, uint8_t* d, std::size_t pixels, std::size_t i,
                                          const __m512i* pick) {
  const uint8_t* block = s + (pixels - i - 64) * 3;
  const __m512i v0 = _mm512_loadu_si512(block), v32 = _mm512_loadu_si512(block + 32);
  const __m512i v64 = _mm512_loadu_si512(block + 64), v96 = _mm512_loadu_si512(block + 96);
  const __m512i v128 = _mm512_loadu_si512(block + 128);
  uint8_t* out = d + i * 3;
  _mm512_storeu_si512(out, _mm512_permutex2var_epi8(v64, pick[0], v128));
  _mm512_storeu_si512(out + 64, _mm512_permutex2var_epi8(v32, pick[1], v96));
  _mm512_storeu_si512(out + 128, _mm512_permutex2var_epi8(v0, pick[2], v64));
}
PIX95_AVX512VBMI void mirror3_avx512(const uint8_t* src, std::ptrdiff_t src_stride, uint8_t* dst,
                                     std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  if (pixels < 64) return each_line<mirror_avx2<3>>(src, src_stride, dst, dst_stride, lines, pixels);
  __m512i pick[3];
  for (int v = 0; v < 3; ++v) pick[v] = _mm512_load_si512(kRgbMirrorPicks.at[v].data());
  const bool forwards = read_forwards<3>(lines, pixels);
  for (std::size_t y = 0; y < lines; ++y) {
    const uint8_t* s = src + static_cast<std::ptrdiff_t>(y) * src_stride;
    uint8_t* d = dst + static_cast<std::ptrdiff_t>(y) * dst_stride;
    const std::size_t first = first_boundary<3>(d), steps = (pixels - first) / 64;
    const bool last = first + steps * 64 < pixels;
    if (forwards) {
      if (last) mirror3_step(s, d, pixels, pixels - 64, pick);
      for (std::size_t k = steps; k-- > 0;) mirror3_step(s, d, pixels, first + k * 64, pick);
      mirror3_step(s, d, pixels, 0, pick);
    } else {
      mirror3_step(s, d, pixels, 0, pick);
      for (std::size_t k = 0; k < steps; ++k) mirror3_step(s, d, pixels, first + k * 64, pick);
      if (last) mirror3_step(s, d, pixels, pixels - 64, pick);
    }
  }
}

PIX95_AVX512 void scale_v_avx512(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes,
                                 unsigned fraction) {
  if (fraction == 0) {
    if (bytes != 0) std::memcpy(dst, upper, bytes);
    return;
  }
  const __m512i wn = _mm512_set1_epi16(static_cast<short>(256 - fraction));
  const __m512i wf = _mm512_set1_epi16(static_cast<short>(fraction));
  const __m512i zero = _mm512_setzero_si512();
  std::size_t i = 0;
  for (; bytes - i >= 64; i += 64) {
    const __m512i u = _mm512_loadu_si512(upper + i), l = _mm512_loadu_si512(lower + i);
    const __m512i lo = _mm512_add_epi16(_mm512_mulhi_epu16(_mm512_unpacklo_epi8(zero, u), wn),
                                        _mm512_mulhi_epu16(_mm512_unpacklo_epi8(zero, l), wf));
    const __m512i hi = _mm512_add_epi16(_mm512_mulhi_epu16(_mm512_unpackhi_epi8(zero, u), wn),
                                        _mm512_mulhi_epu16(_mm512_unpackhi_epi8(zero, l), wf));
    _mm512_storeu_si512(dst + i, _mm512_packus_epi16(lo, hi));
  }
  scale_v_avx2(upper + i, lower + i, dst + i, bytes - i, fraction);
}

}  // namespace

void add_geometry_simd(GeometryKernels& k, simd::Level level) noexcept {
  switch (level) {
    case simd::Level::sse2:
      k.mirror[0] = each_line<mirror_sse2<1>>, k.mirror[1] = each_line<mirror_sse2<2>>;
      k.mirror[3] = each_line<mirror_sse2<4>>;
      k.mirror_yuv422 = mirror_yuv422_sse2;
      k.turn[0] = turn1_sse2, k.turn[1] = turn_blocked<2>, k.turn[2] = turn_blocked<3>, k.turn[3] = turn4_sse2;
      k.scale_h = scale_h_multiplied;
      k.scale_v = scale_v_sse2;
      break;
    case simd::Level::avx2:
      k.mirror[0] = each_line<mirror_avx2<1>>, k.mirror[1] = each_line<mirror_avx2<2>>;
      k.mirror[2] = each_line<mirror_avx2<3>>, k.mirror[3] = each_line<mirror_avx2<4>>;
      k.mirror_yuv422 = mirror_yuv422_avx2;
      k.turn[0] = turn1_avx2, k.turn[2] = turn3_avx2;
      k.scale_h = scale_h_avx2;
      k.scale_v = scale_v_avx2;
      break;
    case simd::Level::avx512:
      k.mirror[0] = mirror_avx512<1>, k.mirror[1] = mirror_avx512<2>, k.mirror[3] = mirror_avx512<4>;
      if (simd::supports_vbmi()) k.mirror[2] = mirror3_avx512;  // else the AVX2 kernel
      k.scale_v = scale_v_avx512;
      break;
    default:
      break;
  }
}

#else

void add_geometry_simd(GeometryKernels&, simd::Level) noexcept {}

#endif

}  // namespace pix::process::kernels
