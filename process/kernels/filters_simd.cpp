// SIMD kernels of the 3x3 filter and the grey threshold at SSE2, AVX2 and
// AVX-512: one body (filters_x86_body.h) over each set's operations.  The
// filter takes 16-bit lanes throughout when the kernel's sums fit 16 bits,
// else pmaddwd pairs into 32-bit sums; the division is an exact reciprocal
// multiplication (see make_filter_3x3).
#include <cstring>

#include "filters.h"

namespace pix::process::kernels {

#if PIX95_X86
namespace {

namespace sse2 {
using V = __m128i;
constexpr std::size_t kLanes = 8, kBytes = 16;
#define T PIX95_SSE2
T PIX95_INLINE V zero() { return _mm_setzero_si128(); }
T PIX95_INLINE V set8(int8_t v) { return _mm_set1_epi8(v); }
T PIX95_INLINE V set16(int16_t v) { return _mm_set1_epi16(v); }
T PIX95_INLINE V set32(int32_t v) { return _mm_set1_epi32(v); }
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<V*>(p), v); }
T PIX95_INLINE V load16(const uint8_t* p) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const V*>(p)), zero());
}
T PIX95_INLINE void store8(uint8_t* p, V v) { _mm_storel_epi64(reinterpret_cast<V*>(p), _mm_packus_epi16(v, v)); }
T PIX95_INLINE V add16(V a, V b) { return _mm_add_epi16(a, b); }
T PIX95_INLINE V mullo16(V a, V b) { return _mm_mullo_epi16(a, b); }
T PIX95_INLINE V max16(V a, V b) { return _mm_max_epi16(a, b); }
T PIX95_INLINE V min16(V a, V b) { return _mm_min_epi16(a, b); }
T PIX95_INLINE V mulhi_u16(V a, V b) { return _mm_mulhi_epu16(a, b); }
T PIX95_INLINE V sll16(V a, __m128i n) { return _mm_sll_epi16(a, n); }
T PIX95_INLINE V srl16(V a, __m128i n) { return _mm_srl_epi16(a, n); }
T PIX95_INLINE V unlo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
T PIX95_INLINE V unhi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
T PIX95_INLINE V madd(V a, V b) { return _mm_madd_epi16(a, b); }
T PIX95_INLINE V add32(V a, V b) { return _mm_add_epi32(a, b); }
T PIX95_INLINE V sub32(V a, V b) { return _mm_sub_epi32(a, b); }
T PIX95_INLINE V max32(V a, V b) {
  const V gt = _mm_cmpgt_epi32(a, b);
  return _mm_or_si128(_mm_and_si128(gt, a), _mm_andnot_si128(gt, b));
}
T PIX95_INLINE V min32(V a, V b) {
  const V gt = _mm_cmpgt_epi32(a, b);
  return _mm_or_si128(_mm_and_si128(gt, b), _mm_andnot_si128(gt, a));
}
// (x * m) >> n of non-negative 32-bit lanes whose results fit 32 bits.
T PIX95_INLINE V mul_shift32(V x, V m, __m128i n) {
  const V even = _mm_srl_epi64(_mm_mul_epu32(x, m), n);
  const V odd = _mm_srl_epi64(_mm_mul_epu32(_mm_srli_epi64(x, 32), m), n);
  return _mm_or_si128(even, _mm_slli_epi64(odd, 32));
}
T PIX95_INLINE V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
T PIX95_INLINE V or_(V a, V b) { return _mm_or_si128(a, b); }
T PIX95_INLINE V and_(V a, V b) { return _mm_and_si128(a, b); }
T PIX95_INLINE V ge_u8(V a, V b) { return _mm_cmpeq_epi8(_mm_max_epu8(a, b), a); }
#include "filters_x86_body.h"
#undef T
}  // namespace sse2

namespace avx2 {
using V = __m256i;
constexpr std::size_t kLanes = 16, kBytes = 32;
#define T PIX95_AVX2
T PIX95_INLINE V zero() { return _mm256_setzero_si256(); }
T PIX95_INLINE V set8(int8_t v) { return _mm256_set1_epi8(v); }
T PIX95_INLINE V set16(int16_t v) { return _mm256_set1_epi16(v); }
T PIX95_INLINE V set32(int32_t v) { return _mm256_set1_epi32(v); }
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
T PIX95_INLINE V load16(const uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
T PIX95_INLINE void store8(uint8_t* p, V v) {
  const V packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(packed));
}
T PIX95_INLINE V add16(V a, V b) { return _mm256_add_epi16(a, b); }
T PIX95_INLINE V mullo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
T PIX95_INLINE V max16(V a, V b) { return _mm256_max_epi16(a, b); }
T PIX95_INLINE V min16(V a, V b) { return _mm256_min_epi16(a, b); }
T PIX95_INLINE V mulhi_u16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
T PIX95_INLINE V sll16(V a, __m128i n) { return _mm256_sll_epi16(a, n); }
T PIX95_INLINE V srl16(V a, __m128i n) { return _mm256_srl_epi16(a, n); }
T PIX95_INLINE V unlo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
T PIX95_INLINE V unhi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
T PIX95_INLINE V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
T PIX95_INLINE V add32(V a, V b) { return _mm256_add_epi32(a, b); }
T PIX95_INLINE V sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
T PIX95_INLINE V max32(V a, V b) { return _mm256_max_epi32(a, b); }
T PIX95_INLINE V min32(V a, V b) { return _mm256_min_epi32(a, b); }
T PIX95_INLINE V mul_shift32(V x, V m, __m128i n) {
  const V even = _mm256_srl_epi64(_mm256_mul_epu32(x, m), n);
  const V odd = _mm256_srl_epi64(_mm256_mul_epu32(_mm256_srli_epi64(x, 32), m), n);
  return _mm256_or_si256(even, _mm256_slli_epi64(odd, 32));
}
T PIX95_INLINE V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
T PIX95_INLINE V or_(V a, V b) { return _mm256_or_si256(a, b); }
T PIX95_INLINE V and_(V a, V b) { return _mm256_and_si256(a, b); }
T PIX95_INLINE V ge_u8(V a, V b) { return _mm256_cmpeq_epi8(_mm256_max_epu8(a, b), a); }
#include "filters_x86_body.h"
#undef T
}  // namespace avx2

namespace avx512 {
using V = __m512i;
constexpr std::size_t kLanes = 32, kBytes = 64;
#define T PIX95_AVX512
T PIX95_INLINE V zero() { return _mm512_setzero_si512(); }
T PIX95_INLINE V set8(int8_t v) { return _mm512_set1_epi8(v); }
T PIX95_INLINE V set16(int16_t v) { return _mm512_set1_epi16(v); }
T PIX95_INLINE V set32(int32_t v) { return _mm512_set1_epi32(v); }
T PIX95_INLINE V loadu(const uint8_t* p) { return _mm512_loadu_si512(p); }
T PIX95_INLINE void storeu(uint8_t* p, V v) { _mm512_storeu_si512(p, v); }
T PIX95_INLINE V load16(const uint8_t* p) {
  return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
T PIX95_INLINE void store8(uint8_t* p, V v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_cvtepi16_epi8(v));
}
T PIX95_INLINE V add16(V a, V b) { return _mm512_add_epi16(a, b); }
T PIX95_INLINE V mullo16(V a, V b) { return _mm512_mullo_epi16(a, b); }
T PIX95_INLINE V max16(V a, V b) { return _mm512_max_epi16(a, b); }
T PIX95_INLINE V min16(V a, V b) { return _mm512_min_epi16(a, b); }
T PIX95_INLINE V mulhi_u16(V a, V b) { return _mm512_mulhi_epu16(a, b); }
T PIX95_INLINE V sll16(V a, __m128i n) { return _mm512_sll_epi16(a, n); }
T PIX95_INLINE V srl16(V a, __m128i n) { return _mm512_srl_epi16(a, n); }
T PIX95_INLINE V unlo16(V a, V b) { return _mm512_unpacklo_epi16(a, b); }
T PIX95_INLINE V unhi16(V a, V b) { return _mm512_unpackhi_epi16(a, b); }
T PIX95_INLINE V madd(V a, V b) { return _mm512_madd_epi16(a, b); }
T PIX95_INLINE V add32(V a, V b) { return _mm512_add_epi32(a, b); }
T PIX95_INLINE V sub32(V a, V b) { return _mm512_sub_epi32(a, b); }
T PIX95_INLINE V max32(V a, V b) { return _mm512_max_epi32(a, b); }
T PIX95_INLINE V min32(V a, V b) { return _mm512_min_epi32(a, b); }
T PIX95_INLINE V mul_shift32(V x, V m, __m128i n) {
  const V even = _mm512_srl_epi64(_mm512_mul_epu32(x, m), n);
  const V odd = _mm512_srl_epi64(_mm512_mul_epu32(_mm512_srli_epi64(x, 32), m), n);
  return _mm512_or_si512(even, _mm512_slli_epi64(odd, 32));
}
T PIX95_INLINE V packs32(V a, V b) { return _mm512_packs_epi32(a, b); }
T PIX95_INLINE V or_(V a, V b) { return _mm512_or_si512(a, b); }
T PIX95_INLINE V and_(V a, V b) { return _mm512_and_si512(a, b); }
T PIX95_INLINE V ge_u8(V a, V b) { return _mm512_movm_epi8(_mm512_cmpge_epu8_mask(a, b)); }
#include "filters_x86_body.h"
#undef T
}  // namespace avx512

}  // namespace
#endif

FilterKernels filter_kernels(simd::Level level) noexcept {
#if PIX95_X86
  if (simd::supports(level)) {
    switch (level) {
      case simd::Level::sse2: return {sse2::filter_row, sse2::threshold_row};
      case simd::Level::avx2: return {avx2::filter_row, avx2::threshold_row};
      case simd::Level::avx512: return {avx512::filter_row, avx512::threshold_row};
      default: break;
    }
  }
#else
  (void)level;
#endif
  return {nullptr, nullptr};
}

// The widest level up to the active one that has each kernel.
const FilterKernels& filter_kernels() noexcept {
  static const FilterKernels chosen = [] {
    FilterKernels k{filter_3x3_row, threshold_row};
    for (int l = 1; l <= static_cast<int>(simd::active()); ++l) {
      const FilterKernels v = filter_kernels(static_cast<simd::Level>(l));
      if (v.filter != nullptr) k.filter = v.filter;
      if (v.threshold != nullptr) k.threshold = v.threshold;
    }
    return k;
  }();
  return chosen;
}

}  // namespace pix::process::kernels
