// SIMD kernels of the JPEG decoder's blocks: inverse DCT and placing, in one
// go, at SSE2 (a block at a time), AVX2 (two, one per 128-bit lane) and
// AVX-512 (four).  The transform itself (idct_x86_body.h) is written once
// over each set's operations; what differs is loading a group of blocks and
// turning sample rows into lines.  A group whose values leave 16 bits, or a
// quantisation table with values of 32768 and up, goes to the scalar kernel,
// so every input gives the scalar bytes.
#include "idct.h"

#include <cstring>

namespace pix::jpeg::kernels {

#if PIX95_X86

namespace {

// N blocks side by side in vectors: their coefficients, DC, table and mask.
template <int N>
struct Group {
  const int16_t* coef[N];
  int32_t dc[N];
  const uint16_t* q[N];
  uint64_t nonzero[N];
};

template <int N>
Group<N> group(const BlockIn* b, const uint16_t* const* q) {
  Group<N> g{};
  for (int i = 0; i < N; ++i) g.coef[i] = b[i].coef, g.dc[i] = b[i].dc, g.q[i] = q[i], g.nonzero[i] = b[i].nonzero;
  return g;
}

// pmulhw reads the table as signed: values of 32768 and up go to the scalar kernel.
bool signed_table(const uint16_t* q) {
  uint64_t all = 0;
  for (int i = 0; i < 16; ++i) {
    uint64_t v;
    std::memcpy(&v, q + 4 * i, 8);
    all |= v;
  }
  return (all & 0x8000800080008000ull) == 0;
}

// The byte order that interleaves the two 8-byte halves of a 128-bit lane.
#define PIX95_INTERLEAVE_HALVES 0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15

// ---------------------------------------------------------------------------
// SSE2: one block.
namespace sse2 {
using V = __m128i;
using M16 = __m128i;
constexpr int N = 1;
#define IDCT_T PIX95_SSE2
IDCT_T PIX95_INLINE V zero() { return _mm_setzero_si128(); }
IDCT_T PIX95_INLINE V set32(int32_t v) { return _mm_set1_epi32(v); }
IDCT_T PIX95_INLINE V set16(int16_t v) { return _mm_set1_epi16(v); }
IDCT_T PIX95_INLINE V set8(int8_t v) { return _mm_set1_epi8(v); }
IDCT_T PIX95_INLINE V add32(V a, V b) { return _mm_add_epi32(a, b); }
IDCT_T PIX95_INLINE V sub32(V a, V b) { return _mm_sub_epi32(a, b); }
IDCT_T PIX95_INLINE V madd(V a, V b) { return _mm_madd_epi16(a, b); }
template <int B>
IDCT_T PIX95_INLINE V srai32(V a) { return _mm_srai_epi32(a, B); }
template <int B>
IDCT_T PIX95_INLINE V srai16(V a) { return _mm_srai_epi16(a, B); }
template <int B>
IDCT_T PIX95_INLINE V slli16(V a) { return _mm_slli_epi16(a, B); }
IDCT_T PIX95_INLINE V minus_one_where_gt(V x, V a, V b) { return _mm_add_epi32(x, _mm_cmpgt_epi32(a, b)); }
IDCT_T PIX95_INLINE V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
IDCT_T PIX95_INLINE V packs16(V a, V b) { return _mm_packs_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
IDCT_T PIX95_INLINE V unhi8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
IDCT_T PIX95_INLINE V unlo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
IDCT_T PIX95_INLINE V unhi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
IDCT_T PIX95_INLINE V unhi32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
IDCT_T PIX95_INLINE V unlo64(V a, V b) { return _mm_unpacklo_epi64(a, b); }
IDCT_T PIX95_INLINE V unhi64(V a, V b) { return _mm_unpackhi_epi64(a, b); }
IDCT_T PIX95_INLINE V or_(V a, V b) { return _mm_or_si128(a, b); }
IDCT_T PIX95_INLINE V xor_(V a, V b) { return _mm_xor_si128(a, b); }
IDCT_T PIX95_INLINE V mullo16(V a, V b) { return _mm_mullo_epi16(a, b); }
IDCT_T PIX95_INLINE V mulhi16(V a, V b) { return _mm_mulhi_epi16(a, b); }
IDCT_T PIX95_INLINE V max16(V a, V b) { return _mm_max_epi16(a, b); }
IDCT_T PIX95_INLINE V min16(V a, V b) { return _mm_min_epi16(a, b); }
IDCT_T PIX95_INLINE V eq16(V a, V b) { return _mm_cmpeq_epi16(a, b); }
IDCT_T PIX95_INLINE M16 zero16(V a) { return _mm_cmpeq_epi16(a, _mm_setzero_si128()); }
IDCT_T PIX95_INLINE V select16(M16 m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
IDCT_T PIX95_INLINE bool is_zero(V a) { return _mm_movemask_epi8(_mm_cmpeq_epi8(a, _mm_setzero_si128())) == 0xFFFF; }
IDCT_T PIX95_INLINE V load_coef(const Group<N>& g, int r) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(g.coef[0] + 8 * r));
}
IDCT_T PIX95_INLINE V load_q(const Group<N>& g, int r) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(g.q[0] + 8 * r));
}
IDCT_T PIX95_INLINE V without_dc(V a) { return _mm_insert_epi16(a, 0, 0); }
IDCT_T PIX95_INLINE V with_dc(V a, const int16_t* d) { return _mm_insert_epi16(a, d[0], 0); }
IDCT_T PIX95_INLINE V splat_lanes(const uint8_t* s) { return _mm_set1_epi8(static_cast<char>(s[0])); }
#include "idct_x86_body.h"

IDCT_T PIX95_INLINE void store8(uint8_t* p, V v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
IDCT_T PIX95_INLINE void store16(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

IDCT_T void grey(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out, std::ptrdiff_t stride) noexcept {
  if (!signed_table(q)) return grey_blocks_scalar(blocks, n, q, out, stride);
  for (std::size_t i = 0; i < n; ++i) {
    V w[4];
    if (!rows(group<1>(blocks + i, &q), w)) {
      grey_blocks_scalar(blocks + i, 1, q, out + 8 * i, stride);
      continue;
    }
    uint8_t* o = out + 8 * i;
    for (int k = 0; k < 4; ++k, o += 2 * stride) store8(o, w[k]), store8(o + stride, unhi64(w[k], w[k]));
  }
}

// Sample rows of four blocks: Y1 Y2 U V (4:2:2), or Y1 Y2 Y3 Y4 U V (2x2).
template <int Blocks, int Luma>
IDCT_T PIX95_INLINE bool blocks_rows(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, V (*w)[4]) {
  for (int k = 0; k < Blocks; ++k) {
    if (!rows(group<1>(b + k, k < Luma ? &qy : &qc), w[k])) return false;
  }
  return true;
}

// Line of the Y bytes of `left` and `right` (rows 2k or 2k + 1, by `odd`) with chroma row 2j or 2j + 1.
IDCT_T PIX95_INLINE void line(uint8_t* o, V left, V right, bool odd_y, V u, V v, bool odd_c) {
  const V y = odd_y ? unhi64(left, right) : unlo64(left, right);
  const V c = odd_c ? unhi8(u, v) : unlo8(u, v);
  store16(o, unlo8(y, c));
  store16(o + 16, unhi8(y, c));
}

IDCT_T void yuv422(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  V w[4][4];
  if (!signed_table(qy) || !signed_table(qc) || !blocks_rows<4, 2>(b, qy, qc, w)) {
    return yuv422_blocks_scalar(b, qy, qc, out, stride);
  }
  for (int k = 0; k < 4; ++k, out += 2 * stride) {
    line(out, w[0][k], w[1][k], false, w[2][k], w[3][k], false);
    line(out + stride, w[0][k], w[1][k], true, w[2][k], w[3][k], true);
  }
}

IDCT_T void yuv411(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  V w[6][4];
  if (!signed_table(qy) || !signed_table(qc) || !blocks_rows<6, 4>(b, qy, qc, w)) {
    return yuv411_blocks_scalar(b, qy, qc, out, stride);
  }
  // Line 2j and 2j + 1 take chroma row j.
  for (int j = 0; j < 8; ++j, out += 2 * stride) {
    const int top = j < 4 ? 0 : 2, k = j & 3;
    line(out, w[top][k], w[top + 1][k], false, w[4][j / 2], w[5][j / 2], j & 1);
    line(out + stride, w[top][k], w[top + 1][k], true, w[4][j / 2], w[5][j / 2], j & 1);
  }
}
#undef IDCT_T
}  // namespace sse2

// ---------------------------------------------------------------------------
// AVX2: two blocks, one per 128-bit lane.
namespace avx2 {
using V = __m256i;
using M16 = __m256i;
constexpr int N = 2;
#define IDCT_T PIX95_AVX2
IDCT_T PIX95_INLINE V zero() { return _mm256_setzero_si256(); }
IDCT_T PIX95_INLINE V set32(int32_t v) { return _mm256_set1_epi32(v); }
IDCT_T PIX95_INLINE V set16(int16_t v) { return _mm256_set1_epi16(v); }
IDCT_T PIX95_INLINE V set8(int8_t v) { return _mm256_set1_epi8(v); }
IDCT_T PIX95_INLINE V add32(V a, V b) { return _mm256_add_epi32(a, b); }
IDCT_T PIX95_INLINE V sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
IDCT_T PIX95_INLINE V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
template <int B>
IDCT_T PIX95_INLINE V srai32(V a) { return _mm256_srai_epi32(a, B); }
template <int B>
IDCT_T PIX95_INLINE V srai16(V a) { return _mm256_srai_epi16(a, B); }
template <int B>
IDCT_T PIX95_INLINE V slli16(V a) { return _mm256_slli_epi16(a, B); }
IDCT_T PIX95_INLINE V minus_one_where_gt(V x, V a, V b) { return _mm256_add_epi32(x, _mm256_cmpgt_epi32(a, b)); }
IDCT_T PIX95_INLINE V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
IDCT_T PIX95_INLINE V packs16(V a, V b) { return _mm256_packs_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
IDCT_T PIX95_INLINE V unhi8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
IDCT_T PIX95_INLINE V unlo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
IDCT_T PIX95_INLINE V unhi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
IDCT_T PIX95_INLINE V unhi32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
IDCT_T PIX95_INLINE V unlo64(V a, V b) { return _mm256_unpacklo_epi64(a, b); }
IDCT_T PIX95_INLINE V unhi64(V a, V b) { return _mm256_unpackhi_epi64(a, b); }
IDCT_T PIX95_INLINE V or_(V a, V b) { return _mm256_or_si256(a, b); }
IDCT_T PIX95_INLINE V xor_(V a, V b) { return _mm256_xor_si256(a, b); }
IDCT_T PIX95_INLINE V mullo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
IDCT_T PIX95_INLINE V mulhi16(V a, V b) { return _mm256_mulhi_epi16(a, b); }
IDCT_T PIX95_INLINE V max16(V a, V b) { return _mm256_max_epi16(a, b); }
IDCT_T PIX95_INLINE V min16(V a, V b) { return _mm256_min_epi16(a, b); }
IDCT_T PIX95_INLINE V eq16(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
IDCT_T PIX95_INLINE M16 zero16(V a) { return _mm256_cmpeq_epi16(a, _mm256_setzero_si256()); }
IDCT_T PIX95_INLINE V select16(M16 m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
IDCT_T PIX95_INLINE bool is_zero(V a) { return _mm256_testz_si256(a, a) != 0; }
IDCT_T PIX95_INLINE V lanes(const void* lo, const void* hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(lo))),
                                 _mm_loadu_si128(static_cast<const __m128i*>(hi)), 1);
}
IDCT_T PIX95_INLINE V load_coef(const Group<N>& g, int r) { return lanes(g.coef[0] + 8 * r, g.coef[1] + 8 * r); }
IDCT_T PIX95_INLINE V load_q(const Group<N>& g, int r) {
  if (g.q[0] == g.q[1]) return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(g.q[0] + 8 * r)));
  return lanes(g.q[0] + 8 * r, g.q[1] + 8 * r);
}
IDCT_T PIX95_INLINE V without_dc(V a) { return _mm256_blend_epi16(a, _mm256_setzero_si256(), 1); }
IDCT_T PIX95_INLINE V with_dc(V a, const int16_t* d) {
  return _mm256_blend_epi16(a, _mm256_setr_epi32(d[0], 0, 0, 0, d[1], 0, 0, 0), 1);
}
IDCT_T PIX95_INLINE V splat_lanes(const uint8_t* s) {
  return _mm256_setr_m128i(_mm_set1_epi8(static_cast<char>(s[0])), _mm_set1_epi8(static_cast<char>(s[1])));
}
#include "idct_x86_body.h"

IDCT_T PIX95_INLINE void store16(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
IDCT_T PIX95_INLINE void store32(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

IDCT_T void grey(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out, std::ptrdiff_t stride) noexcept {
  if (!signed_table(q)) return grey_blocks_scalar(blocks, n, q, out, stride);
  const uint16_t* const qq[2] = {q, q};
  std::size_t i = 0;
  for (; i + 2 <= n; i += 2) {
    V w[4];
    if (!rows(group<2>(blocks + i, qq), w)) {
      grey_blocks_scalar(blocks + i, 2, q, out + 8 * i, stride);
      continue;
    }
    uint8_t* o = out + 8 * i;
    for (int k = 0; k < 4; ++k, o += 2 * stride) {
      const V l = _mm256_permute4x64_epi64(w[k], 0xD8);  // both blocks' row 2k, then row 2k + 1
      store16(o, _mm256_castsi256_si128(l));
      store16(o + stride, _mm256_extracti128_si256(l, 1));
    }
  }
  if (i < n) sse2::grey(blocks + i, n - i, q, out + 8 * i, stride);
}

// Luma rows 2k and 2k + 1 of a pair of blocks side by side (`y`, lanes as
// rows() gives them) with chroma rows `c` (U in the low lane, V in the
// high, each already the row wanted in both of its halves), into two lines.
IDCT_T PIX95_INLINE void lines(uint8_t* o, std::ptrdiff_t stride, V y, V c) {
  const V yy = _mm256_permute4x64_epi64(y, 0xD8);
  const V cc = _mm256_shuffle_epi8(c, _mm256_setr_epi8(PIX95_INTERLEAVE_HALVES, PIX95_INTERLEAVE_HALVES));
  const V lo = _mm256_unpacklo_epi8(yy, cc), hi = _mm256_unpackhi_epi8(yy, cc);
  store32(o, _mm256_permute2x128_si256(lo, hi, 0x20));
  store32(o + stride, _mm256_permute2x128_si256(lo, hi, 0x31));
}

IDCT_T void yuv422(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  const uint16_t* const ql[2] = {qy, qy};
  const uint16_t* const qk[2] = {qc, qc};
  V y[4], c[4];
  if (!signed_table(qy) || !signed_table(qc) || !rows(group<2>(b, ql), y) || !rows(group<2>(b + 2, qk), c)) {
    return yuv422_blocks_scalar(b, qy, qc, out, stride);
  }
  // c[k] = U rows 2k, 2k + 1 | V rows 2k, 2k + 1: row 2k of each in the
  // low halves of the lanes' pairs, row 2k + 1 in the high.
  for (int k = 0; k < 4; ++k, out += 2 * stride) lines(out, stride, y[k], _mm256_permute4x64_epi64(c[k], 0xD8));
}

IDCT_T void yuv411(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  const uint16_t* const ql[2] = {qy, qy};
  const uint16_t* const qk[2] = {qc, qc};
  V top[4], bottom[4], c[4];
  if (!signed_table(qy) || !signed_table(qc) || !rows(group<2>(b, ql), top) || !rows(group<2>(b + 2, ql), bottom) ||
      !rows(group<2>(b + 4, qk), c)) {
    return yuv411_blocks_scalar(b, qy, qc, out, stride);
  }
  // Lines 2j and 2j + 1 take chroma row j: U row j | V row j in both halves.
  for (int j = 0; j < 8; ++j, out += 2 * stride) {
    const V y = j < 4 ? top[j] : bottom[j - 4];
    const V cj = (j & 1) != 0 ? _mm256_permute4x64_epi64(c[j / 2], 0xDD) : _mm256_permute4x64_epi64(c[j / 2], 0x88);
    lines(out, stride, y, cj);
  }
}
#undef IDCT_T
}  // namespace avx2

// ---------------------------------------------------------------------------
// AVX-512: four blocks, one per 128-bit lane.
namespace avx512 {
using V = __m512i;
using M16 = __mmask32;
constexpr int N = 4;
#define IDCT_T PIX95_AVX512
IDCT_T PIX95_INLINE V zero() { return _mm512_setzero_si512(); }
IDCT_T PIX95_INLINE V set32(int32_t v) { return _mm512_set1_epi32(v); }
IDCT_T PIX95_INLINE V set16(int16_t v) { return _mm512_set1_epi16(v); }
IDCT_T PIX95_INLINE V set8(int8_t v) { return _mm512_set1_epi8(v); }
IDCT_T PIX95_INLINE V add32(V a, V b) { return _mm512_add_epi32(a, b); }
IDCT_T PIX95_INLINE V sub32(V a, V b) { return _mm512_sub_epi32(a, b); }
IDCT_T PIX95_INLINE V madd(V a, V b) { return _mm512_madd_epi16(a, b); }
template <int B>
IDCT_T PIX95_INLINE V srai32(V a) { return _mm512_srai_epi32(a, B); }
template <int B>
IDCT_T PIX95_INLINE V srai16(V a) { return _mm512_srai_epi16(a, B); }
template <int B>
IDCT_T PIX95_INLINE V slli16(V a) { return _mm512_slli_epi16(a, B); }
IDCT_T PIX95_INLINE V minus_one_where_gt(V x, V a, V b) {
  return _mm512_mask_sub_epi32(x, _mm512_cmpgt_epi32_mask(a, b), x, _mm512_set1_epi32(1));
}
IDCT_T PIX95_INLINE V packs32(V a, V b) { return _mm512_packs_epi32(a, b); }
IDCT_T PIX95_INLINE V packs16(V a, V b) { return _mm512_packs_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo8(V a, V b) { return _mm512_unpacklo_epi8(a, b); }
IDCT_T PIX95_INLINE V unhi8(V a, V b) { return _mm512_unpackhi_epi8(a, b); }
IDCT_T PIX95_INLINE V unlo16(V a, V b) { return _mm512_unpacklo_epi16(a, b); }
IDCT_T PIX95_INLINE V unhi16(V a, V b) { return _mm512_unpackhi_epi16(a, b); }
IDCT_T PIX95_INLINE V unlo32(V a, V b) { return _mm512_unpacklo_epi32(a, b); }
IDCT_T PIX95_INLINE V unhi32(V a, V b) { return _mm512_unpackhi_epi32(a, b); }
IDCT_T PIX95_INLINE V unlo64(V a, V b) { return _mm512_unpacklo_epi64(a, b); }
IDCT_T PIX95_INLINE V unhi64(V a, V b) { return _mm512_unpackhi_epi64(a, b); }
IDCT_T PIX95_INLINE V or_(V a, V b) { return _mm512_or_si512(a, b); }
IDCT_T PIX95_INLINE V xor_(V a, V b) { return _mm512_xor_si512(a, b); }
IDCT_T PIX95_INLINE V mullo16(V a, V b) { return _mm512_mullo_epi16(a, b); }
IDCT_T PIX95_INLINE V mulhi16(V a, V b) { return _mm512_mulhi_epi16(a, b); }
IDCT_T PIX95_INLINE V max16(V a, V b) { return _mm512_max_epi16(a, b); }
IDCT_T PIX95_INLINE V min16(V a, V b) { return _mm512_min_epi16(a, b); }
IDCT_T PIX95_INLINE V eq16(V a, V b) { return _mm512_movm_epi16(_mm512_cmpeq_epi16_mask(a, b)); }
IDCT_T PIX95_INLINE M16 zero16(V a) { return _mm512_testn_epi16_mask(a, a); }
IDCT_T PIX95_INLINE V select16(M16 m, V a, V b) { return _mm512_mask_mov_epi16(b, m, a); }
IDCT_T PIX95_INLINE bool is_zero(V a) { return _mm512_test_epi64_mask(a, a) == 0; }
IDCT_T PIX95_INLINE __m128i ld(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
IDCT_T PIX95_INLINE V lanes(const void* p0, const void* p1, const void* p2, const void* p3) {
  const __m256i lo = _mm256_inserti128_si256(_mm256_castsi128_si256(ld(p0)), ld(p1), 1);
  const __m256i hi = _mm256_inserti128_si256(_mm256_castsi128_si256(ld(p2)), ld(p3), 1);
  return _mm512_inserti64x4(_mm512_castsi256_si512(lo), hi, 1);
}
IDCT_T PIX95_INLINE V load_coef(const Group<N>& g, int r) {
  return lanes(g.coef[0] + 8 * r, g.coef[1] + 8 * r, g.coef[2] + 8 * r, g.coef[3] + 8 * r);
}
IDCT_T PIX95_INLINE V load_q(const Group<N>& g, int r) {
  return lanes(g.q[0] + 8 * r, g.q[1] + 8 * r, g.q[2] + 8 * r, g.q[3] + 8 * r);
}
constexpr __mmask32 kDc = 0x01010101;  // element 0 of each lane
IDCT_T PIX95_INLINE V without_dc(V a) { return _mm512_maskz_mov_epi16(~kDc, a); }
IDCT_T PIX95_INLINE V with_dc(V a, const int16_t* d) {
  return _mm512_mask_blend_epi16(kDc, a, _mm512_setr_epi32(d[0], 0, 0, 0, d[1], 0, 0, 0, d[2], 0, 0, 0, d[3], 0, 0, 0));
}
IDCT_T PIX95_INLINE V splat_lanes(const uint8_t* s) {
  const auto x = [s](int b) { return static_cast<int32_t>(s[b] * 0x01010101u); };
  return _mm512_setr_epi32(x(0), x(0), x(0), x(0), x(1), x(1), x(1), x(1), x(2), x(2), x(2), x(2), x(3), x(3), x(3), x(3));
}
#include "idct_x86_body.h"

IDCT_T PIX95_INLINE void store32(uint8_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
IDCT_T PIX95_INLINE void store_halves(uint8_t* p, std::ptrdiff_t stride, V v) {
  store32(p, _mm512_castsi512_si256(v));
  store32(p + stride, _mm512_extracti64x4_epi64(v, 1));
}

IDCT_T void grey(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out, std::ptrdiff_t stride) noexcept {
  if (!signed_table(q)) return grey_blocks_scalar(blocks, n, q, out, stride);
  const uint16_t* const qq[4] = {q, q, q, q};
  const V rows_in_order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
  std::size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    V w[4];
    if (!rows(group<4>(blocks + i, qq), w)) {
      grey_blocks_scalar(blocks + i, 4, q, out + 8 * i, stride);
      continue;
    }
    uint8_t* o = out + 8 * i;
    for (int k = 0; k < 4; ++k, o += 2 * stride) store_halves(o, stride, _mm512_permutexvar_epi64(rows_in_order, w[k]));
  }
  if (i < n) avx2::grey(blocks + i, n - i, q, out + 8 * i, stride);
}

IDCT_T void yuv422(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  const uint16_t* const qq[4] = {qy, qy, qc, qc};
  V w[4];
  if (!signed_table(qy) || !signed_table(qc) || !rows(group<4>(b, qq), w)) {
    return yuv422_blocks_scalar(b, qy, qc, out, stride);
  }
  // Per lane: Y1 Y2 row 2k, Y1 Y2 row 2k, then row 2k + 1 twice; U V alike.
  const V luma = _mm512_setr_epi64(0, 2, 0, 2, 1, 3, 1, 3), chroma = _mm512_setr_epi64(4, 6, 4, 6, 5, 7, 5, 7);
  const V interleave = _mm512_broadcast_i32x4(_mm_setr_epi8(PIX95_INTERLEAVE_HALVES));
  for (int k = 0; k < 4; ++k, out += 2 * stride) {
    const V y = _mm512_permutexvar_epi64(luma, w[k]);
    const V c = _mm512_shuffle_epi8(_mm512_permutexvar_epi64(chroma, w[k]), interleave);
    // Lanes 0 and 2 take the low halves' bytes, 1 and 3 the high halves'.
    store_halves(out, stride, _mm512_mask_blend_epi64(0xCC, _mm512_unpacklo_epi8(y, c), _mm512_unpackhi_epi8(y, c)));
  }
}

IDCT_T void yuv411(const BlockIn* b, const uint16_t* qy, const uint16_t* qc, uint8_t* out, std::ptrdiff_t stride) noexcept {
  const uint16_t* const ql[4] = {qy, qy, qy, qy};
  const uint16_t* const qk[2] = {qc, qc};
  V y[4];
  __m256i c[4];
  if (!signed_table(qy) || !signed_table(qc) || !rows(group<4>(b, ql), y) || !avx2::rows(group<2>(b + 4, qk), c)) {
    return yuv411_blocks_scalar(b, qy, qc, out, stride);
  }
  for (int j = 0; j < 8; ++j, out += 2 * stride) {
    const __m256i yj = j < 4 ? _mm512_castsi512_si256(y[j]) : _mm512_extracti64x4_epi64(y[j - 4], 1);
    const __m256i cj = (j & 1) != 0 ? _mm256_permute4x64_epi64(c[j / 2], 0xDD) : _mm256_permute4x64_epi64(c[j / 2], 0x88);
    avx2::lines(out, stride, yj, cj);
  }
}
#undef IDCT_T
}  // namespace avx512

}  // namespace

GreyBlocks grey_blocks_simd(simd::Level level) noexcept {
  switch (level) {
    case simd::Level::sse2: return sse2::grey;
    case simd::Level::avx2: return avx2::grey;
    case simd::Level::avx512: return avx512::grey;
    default: return nullptr;
  }
}
McuBlocks yuv422_blocks_simd(simd::Level level) noexcept {
  switch (level) {
    case simd::Level::sse2: return sse2::yuv422;
    case simd::Level::avx2: return avx2::yuv422;
    case simd::Level::avx512: return avx512::yuv422;
    default: return nullptr;
  }
}
McuBlocks yuv411_blocks_simd(simd::Level level) noexcept {
  switch (level) {
    case simd::Level::sse2: return sse2::yuv411;
    case simd::Level::avx2: return avx2::yuv411;
    case simd::Level::avx512: return avx512::yuv411;
    default: return nullptr;
  }
}

#else

GreyBlocks grey_blocks_simd(simd::Level) noexcept { return nullptr; }
McuBlocks yuv422_blocks_simd(simd::Level) noexcept { return nullptr; }
McuBlocks yuv411_blocks_simd(simd::Level) noexcept { return nullptr; }

#endif

}  // namespace pix::jpeg::kernels
