// SIMD block kernels of the JPEG encoder at SSE2 (one block at a time), AVX2
// (two, one per 128-bit lane) and AVX-512 (four: a whole 4:2:2 MCU).  The
// transform and the division are fdct_x86_body.h, shared by the levels;
// this file has each level's lane operations, its reading of raster lines
// and its zig-zag reordering:
// - SSE2 stores the quantised block and reorders it a value at a time;
// - AVX2 builds each 16 zig-zag values from the natural rows they need,
//   each row broadcast to both lanes and picked from with pshufb;
// - AVX-512 regroups the rows of its four blocks into two registers a block
//   and reorders each with two two-source word permutes.
#include "fdct_x86.h"

#include <array>
#include <utility>

namespace pix::jpeg::kernels {

#if PIX95_X86

namespace {

// The natural index of each zig-zag position (as kZigZag; a copy the
// compiler can fold into the shuffle tables).
constexpr std::array<uint8_t, 64> kOrder = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// ===========================================================================
// SSE2

namespace sse2 {

using V = __m128i;
#define PIX95_LEVEL PIX95_SSE2

PIX95_LEVEL PIX95_INLINE V add16(V a, V b) { return _mm_add_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V add32(V a, V b) { return _mm_add_epi32(a, b); }
template <int N>
PIX95_LEVEL PIX95_INLINE V slli16(V a) { return _mm_slli_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai16(V a) { return _mm_srai_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai32(V a) { return _mm_srai_epi32(a, N); }
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive16(V v, V s) {
  return _mm_add_epi16(v, _mm_cmpgt_epi16(_mm_set1_epi16(1), s));
}
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive32(V v, V s) {
  return _mm_add_epi32(v, _mm_cmpgt_epi32(_mm_set1_epi32(1), s));
}
PIX95_LEVEL PIX95_INLINE V madd(V a, V b) { return _mm_madd_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V mulhi_u16(V a, V b) { return _mm_mulhi_epu16(a, b); }
PIX95_LEVEL PIX95_INLINE V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo64(V a, V b) { return _mm_unpacklo_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi64(V a, V b) { return _mm_unpackhi_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V set1_16(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
PIX95_LEVEL PIX95_INLINE V set1_32(int32_t v) { return _mm_set1_epi32(v); }
PIX95_LEVEL PIX95_INLINE V magnitude(V c) {
  const V s = _mm_srai_epi16(c, 15);
  return _mm_sub_epi16(_mm_xor_si128(c, s), s);
}
PIX95_LEVEL PIX95_INLINE V with_sign(V r, V c) {
  const V s = _mm_srai_epi16(c, 15);
  return _mm_sub_epi16(_mm_xor_si128(r, s), s);
}

#include "fdct_x86_body.h"

PIX95_LEVEL PIX95_INLINE V load(const void* p) { return _mm_loadu_si128(static_cast<const V*>(p)); }
PIX95_LEVEL PIX95_INLINE void store(void* p, V v) { _mm_storeu_si128(static_cast<V*>(p), v); }

// Coefficient rows to zig-zag order; the mask of the non-zero values.
PIX95_LEVEL PIX95_INLINE uint64_t finish(const V r[8], const Quantiser& q, int16_t* zz) {
  alignas(16) int16_t natural[64];
  for (int i = 0; i < 8; ++i) {
    store(natural + 8 * i, quantise_lanes(r[i], load(q.half + 8 * i), load(q.reciprocal + 8 * i), load(q.scale + 8 * i)));
  }
  for (int i = 0; i < 64; ++i) zz[i] = natural[kOrder[i]];
  uint64_t zero = 0;
  for (int i = 0; i < 4; ++i) {
    const V a = _mm_cmpeq_epi16(load(zz + 16 * i), _mm_setzero_si128());
    const V b = _mm_cmpeq_epi16(load(zz + 16 * i + 8), _mm_setzero_si128());
    zero |= uint64_t{static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(a, b)))} << (16 * i);
  }
  return ~zero;
}

PIX95_LEVEL void fdct(int16_t* block) noexcept {
  V r[8];
  for (int i = 0; i < 8; ++i) r[i] = load(block + 8 * i);
  fdct_rows(r);
  for (int i = 0; i < 8; ++i) store(block + 8 * i, r[i]);
}

PIX95_LEVEL uint64_t quantise(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept {
  V r[8];
  for (int i = 0; i < 8; ++i) r[i] = load(block + 8 * i);
  return finish(r, q, zz);
}

PIX95_LEVEL void mcu_422(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma,
                         const Quantiser& chroma, int16_t (*zz)[64], uint64_t* nonzero) noexcept {
  V y1[8], y2[8], u[8], v[8];
  const V low = _mm_set1_epi16(0x00FF), low32 = _mm_set1_epi32(0xFFFF), k128 = _mm_set1_epi16(128);
  for (int r = 0; r < 8; ++r) {
    const uint8_t* p = lines[r] + 2 * x;
    const V a = load(p), b = load(p + 16);
    y1[r] = _mm_sub_epi16(_mm_and_si128(a, low), k128);
    y2[r] = _mm_sub_epi16(_mm_and_si128(b, low), k128);
    const V ca = _mm_srli_epi16(a, 8), cb = _mm_srli_epi16(b, 8);  // U V U V ...
    u[r] = _mm_sub_epi16(_mm_packs_epi32(_mm_and_si128(ca, low32), _mm_and_si128(cb, low32)), k128);
    v[r] = _mm_sub_epi16(_mm_packs_epi32(_mm_srli_epi32(ca, 16), _mm_srli_epi32(cb, 16)), k128);
  }
  fdct_rows(y1);
  nonzero[0] = finish(y1, luma, zz[0]);
  fdct_rows(y2);
  nonzero[1] = finish(y2, luma, zz[1]);
  fdct_rows(u);
  nonzero[2] = finish(u, chroma, zz[2]);
  fdct_rows(v);
  nonzero[3] = finish(v, chroma, zz[3]);
}

PIX95_LEVEL void grey_4(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                        uint64_t* nonzero) noexcept {
  for (int b = 0; b < 4; ++b) {
    V r[8];
    for (int i = 0; i < 8; ++i) {
      const V s = _mm_loadl_epi64(reinterpret_cast<const V*>(lines[i] + x + 8 * b));
      r[i] = _mm_sub_epi16(_mm_unpacklo_epi8(s, _mm_setzero_si128()), _mm_set1_epi16(128));
    }
    fdct_rows(r);
    nonzero[b] = finish(r, q, zz[b]);
  }
}

#undef PIX95_LEVEL
}  // namespace sse2

// ===========================================================================
// AVX2

namespace avx2 {

using V = __m256i;
#define PIX95_LEVEL PIX95_AVX2

PIX95_LEVEL PIX95_INLINE V add16(V a, V b) { return _mm256_add_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V add32(V a, V b) { return _mm256_add_epi32(a, b); }
template <int N>
PIX95_LEVEL PIX95_INLINE V slli16(V a) { return _mm256_slli_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai16(V a) { return _mm256_srai_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai32(V a) { return _mm256_srai_epi32(a, N); }
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive16(V v, V s) {
  return _mm256_add_epi16(v, _mm256_cmpgt_epi16(_mm256_set1_epi16(1), s));
}
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive32(V v, V s) {
  return _mm256_add_epi32(v, _mm256_cmpgt_epi32(_mm256_set1_epi32(1), s));
}
PIX95_LEVEL PIX95_INLINE V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V mulhi_u16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
PIX95_LEVEL PIX95_INLINE V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo64(V a, V b) { return _mm256_unpacklo_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi64(V a, V b) { return _mm256_unpackhi_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V set1_16(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
PIX95_LEVEL PIX95_INLINE V set1_32(int32_t v) { return _mm256_set1_epi32(v); }
PIX95_LEVEL PIX95_INLINE V magnitude(V c) { return _mm256_abs_epi16(c); }
// 0 where c is 0, which only a 0 quotient has (q/2 < q).
PIX95_LEVEL PIX95_INLINE V with_sign(V r, V c) { return _mm256_sign_epi16(r, c); }

#include "fdct_x86_body.h"

PIX95_LEVEL PIX95_INLINE V load(const void* p) { return _mm256_loadu_si256(static_cast<const V*>(p)); }
PIX95_LEVEL PIX95_INLINE void store(void* p, V v) { _mm256_storeu_si256(static_cast<V*>(p), v); }
// 8 values to both lanes.
PIX95_LEVEL PIX95_INLINE V both(const void* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}

// pshufb controls: for zig-zag values 16j..16j+15, those that natural row r
// holds (-1, a zero byte, for the others).
struct Picks {
  std::array<std::array<std::array<int8_t, 32>, 8>, 4> control{};
  std::array<unsigned, 4> rows{};  // bit r: row r gives chunk j values
};
constexpr Picks make_picks() {
  Picks p{};
  for (auto& chunk : p.control) {
    for (auto& row : chunk) row.fill(-1);
  }
  for (int i = 0; i < 64; ++i) {
    const int j = i / 16, n = kOrder[i], r = n / 8, col = n % 8, byte = 2 * (i % 16);
    // pshufb indexes within a lane: a value's bytes are at 2 col in both.
    p.control[j][r][byte] = static_cast<int8_t>(2 * col);
    p.control[j][r][byte + 1] = static_cast<int8_t>(2 * col + 1);
    p.rows[j] |= 1u << r;
  }
  return p;
}
constexpr Picks kPicks = make_picks();

template <int J, int... R>
PIX95_LEVEL PIX95_INLINE V zigzag_chunk(const int16_t* rows, std::ptrdiff_t stride,
                                        std::integer_sequence<int, R...>) {
  V acc = _mm256_setzero_si256();
  ((acc = (kPicks.rows[J] >> R & 1) == 0
              ? acc
              : _mm256_or_si256(acc, _mm256_shuffle_epi8(both(rows + R * stride), load(kPicks.control[J][R].data())))),
   ...);
  return acc;
}

// Bits of the 16-bit lanes of a and b (16 each, in order) that are 0.
PIX95_LEVEL PIX95_INLINE uint32_t zero_bits(V a, V b) {
  const V z = _mm256_packs_epi16(_mm256_cmpeq_epi16(a, _mm256_setzero_si256()),
                                 _mm256_cmpeq_epi16(b, _mm256_setzero_si256()));
  return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_permute4x64_epi64(z, 0xD8)));
}

// The block whose natural row r is at rows + r * stride, in zig-zag order.
PIX95_LEVEL PIX95_INLINE uint64_t zigzag(const int16_t* rows, std::ptrdiff_t stride, int16_t* zz) {
  constexpr auto all = std::make_integer_sequence<int, 8>{};
  const V z0 = zigzag_chunk<0>(rows, stride, all), z1 = zigzag_chunk<1>(rows, stride, all);
  const V z2 = zigzag_chunk<2>(rows, stride, all), z3 = zigzag_chunk<3>(rows, stride, all);
  store(zz, z0), store(zz + 16, z1), store(zz + 32, z2), store(zz + 48, z3);
  return ~(uint64_t{zero_bits(z0, z1)} | uint64_t{zero_bits(z2, z3)} << 32);
}

// Two blocks' coefficient rows, both by `q`, into a and b.
PIX95_LEVEL PIX95_INLINE void finish(const V r[8], const Quantiser& q, int16_t* a, int16_t* b, uint64_t* nonzero) {
  alignas(32) int16_t rows[8][16];
  for (int i = 0; i < 8; ++i) {
    store(rows[i], quantise_lanes(r[i], both(q.half + 8 * i), both(q.reciprocal + 8 * i), both(q.scale + 8 * i)));
  }
  nonzero[0] = zigzag(&rows[0][0], 16, a);
  nonzero[1] = zigzag(&rows[0][8], 16, b);
}

PIX95_LEVEL uint64_t quantise(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept {
  alignas(32) int16_t natural[64];
  for (int i = 0; i < 64; i += 16) {
    store(natural + i, quantise_lanes(load(block + i), load(q.half + i), load(q.reciprocal + i), load(q.scale + i)));
  }
  return zigzag(natural, 8, zz);
}

PIX95_LEVEL void mcu_422(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma,
                         const Quantiser& chroma, int16_t (*zz)[64], uint64_t* nonzero) noexcept {
  V y[8], c[8];  // Y1 | Y2 and U | V, a block a lane
  const V low = _mm256_set1_epi16(0x00FF), low32 = _mm256_set1_epi32(0xFFFF), k128 = _mm256_set1_epi16(128);
  for (int r = 0; r < 8; ++r) {
    const V a = load(lines[r] + 2 * x);
    y[r] = _mm256_sub_epi16(_mm256_and_si256(a, low), k128);
    const V ch = _mm256_srli_epi16(a, 8);  // U V U V ... a lane of 4 pairs each
    const V uv = _mm256_packs_epi32(_mm256_and_si256(ch, low32), _mm256_srli_epi32(ch, 16));
    c[r] = _mm256_sub_epi16(_mm256_permute4x64_epi64(uv, 0xD8), k128);
  }
  fdct_rows(y);
  finish(y, luma, zz[0], zz[1], nonzero);
  fdct_rows(c);
  finish(c, chroma, zz[2], zz[3], nonzero + 2);
}

PIX95_LEVEL void grey_4(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                        uint64_t* nonzero) noexcept {
  for (int b = 0; b < 4; b += 2) {
    V r[8];
    for (int i = 0; i < 8; ++i) {
      const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lines[i] + x + 8 * b));
      r[i] = _mm256_sub_epi16(_mm256_cvtepu8_epi16(s), _mm256_set1_epi16(128));
    }
    fdct_rows(r);
    finish(r, q, zz[b], zz[b + 1], nonzero + b);
  }
}

#undef PIX95_LEVEL
}  // namespace avx2

// ===========================================================================
// AVX-512 (F, BW, VL)

namespace avx512 {

using V = __m512i;
#define PIX95_LEVEL PIX95_AVX512

PIX95_LEVEL PIX95_INLINE V add16(V a, V b) { return _mm512_add_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V sub16(V a, V b) { return _mm512_sub_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V add32(V a, V b) { return _mm512_add_epi32(a, b); }
template <int N>
PIX95_LEVEL PIX95_INLINE V slli16(V a) { return _mm512_slli_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai16(V a) { return _mm512_srai_epi16(a, N); }
template <int N>
PIX95_LEVEL PIX95_INLINE V srai32(V a) { return _mm512_srai_epi32(a, N); }
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive16(V v, V s) {
  const V one = _mm512_set1_epi16(1);
  return _mm512_mask_sub_epi16(v, _mm512_cmplt_epi16_mask(s, one), v, one);
}
PIX95_LEVEL PIX95_INLINE V less_one_where_not_positive32(V v, V s) {
  const V one = _mm512_set1_epi32(1);
  return _mm512_mask_sub_epi32(v, _mm512_cmplt_epi32_mask(s, one), v, one);
}
PIX95_LEVEL PIX95_INLINE V madd(V a, V b) { return _mm512_madd_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V mulhi_u16(V a, V b) { return _mm512_mulhi_epu16(a, b); }
PIX95_LEVEL PIX95_INLINE V packs32(V a, V b) { return _mm512_packs_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo16(V a, V b) { return _mm512_unpacklo_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi16(V a, V b) { return _mm512_unpackhi_epi16(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo32(V a, V b) { return _mm512_unpacklo_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi32(V a, V b) { return _mm512_unpackhi_epi32(a, b); }
PIX95_LEVEL PIX95_INLINE V unpacklo64(V a, V b) { return _mm512_unpacklo_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V unpackhi64(V a, V b) { return _mm512_unpackhi_epi64(a, b); }
PIX95_LEVEL PIX95_INLINE V set1_16(int v) { return _mm512_set1_epi16(static_cast<int16_t>(v)); }
PIX95_LEVEL PIX95_INLINE V set1_32(int32_t v) { return _mm512_set1_epi32(v); }
PIX95_LEVEL PIX95_INLINE V magnitude(V c) { return _mm512_abs_epi16(c); }
PIX95_LEVEL PIX95_INLINE V with_sign(V r, V c) {
  return _mm512_mask_sub_epi16(r, _mm512_movepi16_mask(c), _mm512_setzero_si512(), r);
}

#include "fdct_x86_body.h"

PIX95_LEVEL PIX95_INLINE V load(const void* p) { return _mm512_loadu_si512(p); }
PIX95_LEVEL PIX95_INLINE void store(void* p, V v) { _mm512_storeu_si512(p, v); }

// vpermt2w indices: zig-zag values 32h..32h+31 from the block's two halves.
struct Permutes {
  std::array<std::array<uint16_t, 32>, 2> index{};
};
constexpr Permutes make_permutes() {
  Permutes p{};
  for (int i = 0; i < 64; ++i) p.index[i / 32][i % 32] = kOrder[i];
  return p;
}
constexpr Permutes kPermutes = make_permutes();

// A block's two halves of coefficients (rows 0-3, rows 4-7) quantised into
// zig-zag order.
PIX95_LEVEL PIX95_INLINE uint64_t finish(V lo, V hi, const Quantiser& q, int16_t* zz) {
  lo = quantise_lanes(lo, load(q.half), load(q.reciprocal), load(q.scale));
  hi = quantise_lanes(hi, load(q.half + 32), load(q.reciprocal + 32), load(q.scale + 32));
  const V z0 = _mm512_permutex2var_epi16(lo, load(kPermutes.index[0].data()), hi);
  const V z1 = _mm512_permutex2var_epi16(lo, load(kPermutes.index[1].data()), hi);
  store(zz, z0);
  store(zz + 32, z1);
  return uint64_t{_mm512_test_epi16_mask(z0, z0)} | uint64_t{_mm512_test_epi16_mask(z1, z1)} << 32;
}

// Rows of four blocks (block b in lane b) to each block's halves: a 4x4
// transpose of 128-bit lanes, rows r[0..3] to h[b] = rows 0-3 of block b.
PIX95_LEVEL PIX95_INLINE void regroup(const V* r, V* h) {
  const V t0 = _mm512_shuffle_i64x2(r[0], r[1], 0x44), t1 = _mm512_shuffle_i64x2(r[0], r[1], 0xEE);
  const V t2 = _mm512_shuffle_i64x2(r[2], r[3], 0x44), t3 = _mm512_shuffle_i64x2(r[2], r[3], 0xEE);
  h[0] = _mm512_shuffle_i64x2(t0, t2, 0x88), h[1] = _mm512_shuffle_i64x2(t0, t2, 0xDD);
  h[2] = _mm512_shuffle_i64x2(t1, t3, 0x88), h[3] = _mm512_shuffle_i64x2(t1, t3, 0xDD);
}

// Four blocks of samples as rows, coded by q[b] into zz[b].
PIX95_LEVEL PIX95_INLINE void code_4(V r[8], const Quantiser* const q[4], int16_t (*zz)[64], uint64_t* nonzero) {
  fdct_rows(r);
  V lo[4], hi[4];
  regroup(r, lo);
  regroup(r + 4, hi);
  for (int b = 0; b < 4; ++b) nonzero[b] = finish(lo[b], hi[b], *q[b], zz[b]);
}

PIX95_LEVEL uint64_t quantise(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept {
  return finish(load(block), load(block + 32), q, zz);
}

// Word positions of Y1 (pixels 0-7), Y2 (8-15), U and V in a line of 16
// pixels widened to words: Y0 U0 Y1 V0 ...
struct Deinterleave {
  std::array<uint16_t, 32> index{};
};
constexpr Deinterleave make_deinterleave() {
  Deinterleave d{};
  for (int i = 0; i < 8; ++i) {
    d.index[i] = static_cast<uint16_t>(2 * i);
    d.index[8 + i] = static_cast<uint16_t>(16 + 2 * i);
    d.index[16 + i] = static_cast<uint16_t>(4 * i + 1);
    d.index[24 + i] = static_cast<uint16_t>(4 * i + 3);
  }
  return d;
}
constexpr Deinterleave kDeinterleave = make_deinterleave();

PIX95_LEVEL void mcu_422(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma,
                         const Quantiser& chroma, int16_t (*zz)[64], uint64_t* nonzero) noexcept {
  const V index = load(kDeinterleave.index.data()), k128 = _mm512_set1_epi16(128);
  V r[8];
  for (int i = 0; i < 8; ++i) {
    const V w = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(lines[i] + 2 * x)));
    r[i] = _mm512_sub_epi16(_mm512_permutexvar_epi16(index, w), k128);
  }
  const Quantiser* const q[4] = {&luma, &luma, &chroma, &chroma};
  code_4(r, q, zz, nonzero);
}

PIX95_LEVEL void grey_4(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                        uint64_t* nonzero) noexcept {
  const V k128 = _mm512_set1_epi16(128);
  V r[8];
  for (int i = 0; i < 8; ++i) {
    const V w = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(lines[i] + x)));
    r[i] = _mm512_sub_epi16(w, k128);
  }
  const Quantiser* const qs[4] = {&q, &q, &q, &q};
  code_4(r, qs, zz, nonzero);
}

#undef PIX95_LEVEL
}  // namespace avx512

}  // namespace

BlockKernels block_kernels_simd(simd::Level level) noexcept {
  switch (level) {
    case simd::Level::sse2: return {sse2::fdct, sse2::quantise, sse2::mcu_422, sse2::grey_4};
    case simd::Level::avx2: return {nullptr, avx2::quantise, avx2::mcu_422, avx2::grey_4};
    case simd::Level::avx512: return {nullptr, avx512::quantise, avx512::mcu_422, avx512::grey_4};
    default: return {};
  }
}

#else

BlockKernels block_kernels_simd(simd::Level) noexcept { return {}; }

#endif

}  // namespace pix::jpeg::kernels
