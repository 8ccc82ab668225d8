// SIMD kernels of chroma keying at SSE2 (4 pairs a vector), AVX2 (8) and
// AVX-512 (16): one body (chroma_key_x86_body.h) over each set's operations.
// The hue half of the decision comes from the sector of the key range (two
// multiply-adds and compares a vector) when the strip has one, else from the
// 8 KiB (U, V) bit table (gathered at AVX2 and AVX-512, looked up one pair
// at a time at SSE2).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "chroma_key.h"

namespace pix::process::kernels {

#if PIX95_X86
namespace {

// A sector's two 16-bit factors as one 32-bit lane: the low one multiplies
// the pair's U word, the high one its V word.
inline int32_t words(int16_t low, int16_t high) {
  return static_cast<int32_t>(uint32_t{uint16_t(low)} | uint32_t{uint16_t(high)} << 16);
}

// The keying bit of one pair from the bit table.
PIX95_INLINE unsigned keyed_one(const uint8_t* p, const uint8_t* uv, int lo, int hi) {
  const unsigned i = unsigned(p[1]) << 8 | p[3];
  return ((uv[i >> 3] >> (i & 7)) & 1u) & unsigned(lo < p[0] && p[0] < hi);
}

// The keying bits of N pairs as the low bits of a word: those of each pair's
// neighbour before (the top bit of `previous` coming in) and after (bit 0
// of `next` coming in), and the kept pairs beside a keyed one.
template <unsigned N>
inline unsigned word_before(unsigned cur, unsigned previous) {
  return ((cur << 1) | (previous >> (N - 1))) & ((1u << N) - 1);
}
template <unsigned N>
inline unsigned word_after(unsigned cur, unsigned next) {
  return (cur >> 1) | (next & 1u) << (N - 1);
}
// (before | after) & ~cur, as a difference: a form mask registers have no
// instruction for (see in_register).
inline unsigned word_edge(unsigned before, unsigned after, unsigned cur) { return (before | after | cur) - cur; }
// `w` as it is, in a general register: the empty statement keeps the
// arithmetic on keying bits there, where the compiler would otherwise shift
// and combine them in AVX-512 mask registers, which some processors run far
// slower.
inline unsigned in_register(unsigned w) {
  asm("" : "+r"(w));
  return w;
}

namespace sse2 {
using V = __m128i;
using M = __m128i;
using Bits = unsigned;
constexpr unsigned kPairs = 4;
#define T PIX95_SSE2
struct Luma {
  int lo, hi;
};
T PIX95_INLINE Luma luma_bounds(KeyRange r) { return {r.y_lo, r.y_hi}; }
T PIX95_INLINE M mask_of(Bits bits) {
  const V lanes = _mm_setr_epi32(1, 2, 4, 8);
  return _mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(static_cast<int>(bits)), lanes), lanes);
}
T PIX95_INLINE Bits bits_of(M m) { return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(m))); }
T PIX95_INLINE M keyed_group(const uint8_t* p, const uint8_t* uv, Luma l) {
  unsigned b = 0;
  for (unsigned i = 0; i < kPairs; ++i) b |= keyed_one(p + 4 * i, uv, l.lo, l.hi) << i;
  return mask_of(b);
}
T PIX95_INLINE V set32(int32_t v) { return _mm_set1_epi32(v); }
struct Arc {
  V lo, hi, w1, w2, t;
};
T PIX95_INLINE Arc arc_of(const KeySettings& k) {
  const HueArc& a = *k.arc;
  return {set32(k.range.y_lo), set32(k.range.y_hi), set32(words(a.a1, a.b1)), set32(words(a.a2, a.b2)), set32(a.t)};
}
template <bool Outside>
T PIX95_INLINE M keyed_arc(V v, const Arc& a) {
  const V y = _mm_and_si128(v, set32(0xFF));
  const V luma = _mm_and_si128(_mm_cmpgt_epi32(y, a.lo), _mm_cmpgt_epi32(a.hi, y));
  const V uv = _mm_xor_si128(_mm_and_si128(v, set32(int32_t(0xFF00FF00))), set32(int32_t(0x80008000)));
  const V in = _mm_and_si128(_mm_cmpgt_epi32(_mm_madd_epi16(uv, a.w1), a.t),
                             _mm_cmpgt_epi32(_mm_madd_epi16(uv, a.w2), a.t));
  return Outside ? _mm_andnot_si128(in, luma) : _mm_and_si128(luma, in);
}
T PIX95_INLINE Bits to_bits(unsigned b) { return b; }
T PIX95_INLINE unsigned from_bits(Bits b) { return b; }
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<V*>(p), v); }
T PIX95_INLINE V select(M m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
T PIX95_INLINE V select_load(M m, const uint8_t* a, V b) { return select(m, loadu(a), b); }
// (a + b) >> 1 of each byte: the rounded mean less the carry it rounded.
T PIX95_INLINE V mean(V a, V b) {
  return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), _mm_set1_epi8(1)));
}
T PIX95_INLINE V mean_into(V to, M m, V a, V b) { return select(m, mean(a, b), to); }
T PIX95_INLINE M mask_at(const uint64_t* words, std::size_t j) {
  return mask_of(unsigned(words[j / 64] >> (j % 64)) & ((1u << kPairs) - 1));
}
#include "chroma_key_x86_body.h"
#undef T
}  // namespace sse2

namespace avx2 {
using V = __m256i;
using M = __m256i;
using Bits = unsigned;
constexpr unsigned kPairs = 8;
#define T PIX95_AVX2
struct Luma {
  V lo, hi;
};
T PIX95_INLINE Luma luma_bounds(KeyRange r) { return {_mm256_set1_epi32(r.y_lo), _mm256_set1_epi32(r.y_hi)}; }
T PIX95_INLINE Bits bits_of(M m) { return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(m))); }
T PIX95_INLINE M keyed_group(const uint8_t* p, const uint8_t* uv, Luma l) {
  const V v = _mm256_loadu_si256(reinterpret_cast<const V*>(p));
  const V index = _mm256_or_si256(_mm256_and_si256(v, _mm256_set1_epi32(0xFF00)), _mm256_srli_epi32(v, 24));
  const V word = _mm256_i32gather_epi32(reinterpret_cast<const int*>(uv), _mm256_srli_epi32(index, 3), 1);
  const V one = _mm256_set1_epi32(1);
  const V bit = _mm256_and_si256(_mm256_srlv_epi32(word, _mm256_and_si256(index, _mm256_set1_epi32(7))), one);
  const V y = _mm256_and_si256(v, _mm256_set1_epi32(0xFF));
  return _mm256_and_si256(_mm256_and_si256(_mm256_cmpgt_epi32(y, l.lo), _mm256_cmpgt_epi32(l.hi, y)),
                          _mm256_cmpeq_epi32(bit, one));
}
T PIX95_INLINE V set32(int32_t v) { return _mm256_set1_epi32(v); }
struct Arc {
  V lo, hi, w1, w2, t;
};
T PIX95_INLINE Arc arc_of(const KeySettings& k) {
  const HueArc& a = *k.arc;
  return {set32(k.range.y_lo), set32(k.range.y_hi), set32(words(a.a1, a.b1)), set32(words(a.a2, a.b2)), set32(a.t)};
}
template <bool Outside>
T PIX95_INLINE M keyed_arc(V v, const Arc& a) {
  const V y = _mm256_and_si256(v, set32(0xFF));
  const V luma = _mm256_and_si256(_mm256_cmpgt_epi32(y, a.lo), _mm256_cmpgt_epi32(a.hi, y));
  const V uv = _mm256_xor_si256(_mm256_and_si256(v, set32(int32_t(0xFF00FF00))), set32(int32_t(0x80008000)));
  // Both products above the threshold: their smaller one is.
  const V in = _mm256_cmpgt_epi32(_mm256_min_epi32(_mm256_madd_epi16(uv, a.w1), _mm256_madd_epi16(uv, a.w2)), a.t);
  return Outside ? _mm256_andnot_si256(in, luma) : _mm256_and_si256(luma, in);
}
T PIX95_INLINE Bits to_bits(unsigned b) { return b; }
T PIX95_INLINE unsigned from_bits(Bits b) { return b; }
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
T PIX95_INLINE M mask_of(Bits bits) {
  const V lanes = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  return _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(static_cast<int>(bits)), lanes), lanes);
}
T PIX95_INLINE V select(M m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
T PIX95_INLINE V select_load(M m, const uint8_t* a, V b) { return select(m, loadu(a), b); }
T PIX95_INLINE V mean(V a, V b) {
  return _mm256_sub_epi8(_mm256_avg_epu8(a, b), _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_set1_epi8(1)));
}
T PIX95_INLINE V mean_into(V to, M m, V a, V b) { return select(m, mean(a, b), to); }
T PIX95_INLINE M mask_at(const uint64_t* words, std::size_t j) {
  return mask_of(unsigned(words[j / 64] >> (j % 64)) & ((1u << kPairs) - 1));
}
#include "chroma_key_x86_body.h"
#undef T
}  // namespace avx2

namespace avx512 {
using V = __m512i;
using M = __mmask16;
using Bits = __mmask16;
constexpr unsigned kPairs = 16;
#define T PIX95_AVX512
struct Luma {
  V lo, hi;
};
T PIX95_INLINE Luma luma_bounds(KeyRange r) { return {_mm512_set1_epi32(r.y_lo), _mm512_set1_epi32(r.y_hi)}; }
T PIX95_INLINE Bits bits_of(M m) { return m; }
T PIX95_INLINE M keyed_group(const uint8_t* p, const uint8_t* uv, Luma l) {
  const V v = _mm512_loadu_si512(p);
  const V index = _mm512_or_si512(_mm512_and_si512(v, _mm512_set1_epi32(0xFF00)), _mm512_srli_epi32(v, 24));
  const V word = _mm512_i32gather_epi32(_mm512_srli_epi32(index, 3), uv, 1);
  const V bit = _mm512_srlv_epi32(word, _mm512_and_si512(index, _mm512_set1_epi32(7)));
  const V y = _mm512_and_si512(v, _mm512_set1_epi32(0xFF));
  return _mm512_mask_test_epi32_mask(_mm512_mask_cmplt_epi32_mask(_mm512_cmpgt_epi32_mask(y, l.lo), y, l.hi), bit,
                                     _mm512_set1_epi32(1));
}
T PIX95_INLINE V set32(int32_t v) { return _mm512_set1_epi32(v); }
// The luma test as one unsigned compare: lo < Y0 < hi when Y0 - lo - 1 is
// below hi - lo - 1 (no Y0 when that is not positive).
struct Arc {
  V lo, span, w1, w2, t;
};
T PIX95_INLINE Arc arc_of(const KeySettings& k) {
  const HueArc& a = *k.arc;
  return {set32(k.range.y_lo + 1), set32(std::max(k.range.y_hi - k.range.y_lo - 1, 0)), set32(words(a.a1, a.b1)),
          set32(words(a.a2, a.b2)), set32(a.t)};
}
template <bool Outside>
T PIX95_INLINE M keyed_arc(V v, const Arc& a) {
  const __mmask16 luma = _mm512_cmplt_epu32_mask(_mm512_sub_epi32(_mm512_and_si512(v, set32(0xFF)), a.lo), a.span);
  // (v & 0xFF00FF00) ^ 0x80008000
  const V uv = _mm512_ternarylogic_epi32(v, set32(int32_t(0xFF00FF00)), set32(int32_t(0x80008000)), 0x6A);
  // Both products above the threshold: their smaller one is.
  const V low = _mm512_min_epi32(_mm512_madd_epi16(uv, a.w1), _mm512_madd_epi16(uv, a.w2));
  return Outside ? _mm512_mask_cmple_epi32_mask(luma, low, a.t) : _mm512_mask_cmpgt_epi32_mask(luma, low, a.t);
}
T PIX95_INLINE Bits to_bits(unsigned b) { return static_cast<Bits>(b); }
T PIX95_INLINE unsigned from_bits(Bits b) { return in_register(b); }
// 16 bits of a chunk's bit words at j (a multiple of 16) straight between
// memory and a mask register.
T PIX95_INLINE void put_bits(uint64_t* words, std::size_t j, Bits b) {
  std::memcpy(reinterpret_cast<unsigned char*>(words) + j / 8, &b, sizeof b);
}
T PIX95_INLINE M mask_at(const uint64_t* words, std::size_t j) {
  Bits b;
  std::memcpy(&b, reinterpret_cast<const unsigned char*>(words) + j / 8, sizeof b);
  return b;
}
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm512_loadu_si512(p); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm512_storeu_si512(p, v); }
T PIX95_INLINE M mask_of(Bits bits) { return bits; }
T PIX95_INLINE V select(M m, V a, V b) { return _mm512_mask_blend_epi32(m, b, a); }
// Only the lanes taken are read.
T PIX95_INLINE V select_load(M m, const uint8_t* a, V b) { return _mm512_mask_loadu_epi32(b, m, a); }
T PIX95_INLINE V mean(V a, V b) {
  return _mm512_sub_epi8(_mm512_avg_epu8(a, b), _mm512_and_si512(_mm512_xor_si512(a, b), _mm512_set1_epi8(1)));
}
// The mean in the lanes of `m`, `to` elsewhere: the rounded mean is never
// below the carry taken off it, so no byte borrows from the next and the
// subtraction can run on masked 32-bit lanes.
T PIX95_INLINE V mean_into(V to, M m, V a, V b) {
  return _mm512_mask_sub_epi32(to, m, _mm512_avg_epu8(a, b),
                               _mm512_ternarylogic_epi32(a, b, _mm512_set1_epi8(1), 0x28));
}
// The rounded mean in the lanes of `m`, `to` elsewhere.
T PIX95_INLINE V rounded_mean_into(V to, M m, V a, V b) { return _mm512_mask_mov_epi32(to, m, _mm512_avg_epu8(a, b)); }
#define PIX95_KEY_SOFT_SKIP
#include "chroma_key_x86_body.h"
#undef PIX95_KEY_SOFT_SKIP
#undef T
}  // namespace avx512

}  // namespace
#endif

KeyKernels key_kernels(simd::Level level) noexcept {
#if PIX95_X86
  if (simd::supports(level)) {
    switch (level) {
      case simd::Level::sse2: return {sse2::hard_row, sse2::soft_row};
      case simd::Level::avx2: return {avx2::hard_row, avx2::soft_row};
      case simd::Level::avx512: return {avx512::hard_row, avx512::soft_row};
      default: break;
    }
  }
#else
  (void)level;
#endif
  return {nullptr, nullptr};
}

// The widest level up to the active one that has each kernel.
const KeyKernels& key_kernels() noexcept {
  static const KeyKernels chosen = [] {
    KeyKernels k{key_hard_row, key_soft_row};
    for (int l = 1; l <= static_cast<int>(simd::active()); ++l) {
      const KeyKernels v = key_kernels(static_cast<simd::Level>(l));
      if (v.hard != nullptr) k = v;
    }
    return k;
  }();
  return chosen;
}

}  // namespace pix::process::kernels
