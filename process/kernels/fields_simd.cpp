// SIMD kernels of the pseudo-colour views: grey to RGB16 words computed in
// 16-bit lanes (SSE2, AVX2, AVX-512), YUV 4:2:2 pairs spread to RGB24 by
// byte shuffles (AVX2), and PIX_HSI to RGB24 with the red made by the
// scalar kernel's own double multiplication, truncated (AVX2, AVX-512).
// Each handles whole blocks and leaves the last few units to the scalar
// kernel, so both give the same bytes.
#include "fields.h"

#include <algorithm>
#include <cstdint>

namespace pix::process::kernels {

#if PIX95_X86
namespace {

// ---------------------------------------------------------------------------
// Grey to RGB16: red g & 0xF8 in the top 5 bits, green the triangle
// min(2g, 511 - 2g) & 0xFC, blue (255 - g) >> 3 (the minimum is 2g below 128
// and 511 - 2g from 128 on).

PIX95_SSE2 inline __m128i y8_words_sse2(__m128i g) {
  const __m128i twice = _mm_add_epi16(g, g);
  const __m128i t = _mm_min_epi16(twice, _mm_sub_epi16(_mm_set1_epi16(511), twice));
  return _mm_or_si128(_mm_or_si128(_mm_slli_epi16(_mm_and_si128(g, _mm_set1_epi16(0xF8)), 8),
                                   _mm_slli_epi16(_mm_and_si128(t, _mm_set1_epi16(0xFC)), 3)),
                      _mm_srli_epi16(_mm_sub_epi16(_mm_set1_epi16(255), g), 3));
}
PIX95_SSE2 void y8_sse2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  std::size_t i = 0;
  for (; pixels - i >= 16; i += 16) {
    const __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), y8_words_sse2(_mm_unpacklo_epi8(g, zero)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i + 16), y8_words_sse2(_mm_unpackhi_epi8(g, zero)));
  }
  if (i < pixels) y8_pseudo_row(src + i, dst + 2 * i, pixels - i);
}

PIX95_AVX2 inline __m256i y8_words_avx2(__m256i g) {
  const __m256i twice = _mm256_add_epi16(g, g);
  const __m256i t = _mm256_min_epi16(twice, _mm256_sub_epi16(_mm256_set1_epi16(511), twice));
  return _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(g, _mm256_set1_epi16(0xF8)), 8),
                                         _mm256_slli_epi16(_mm256_and_si256(t, _mm256_set1_epi16(0xFC)), 3)),
                         _mm256_srli_epi16(_mm256_sub_epi16(_mm256_set1_epi16(255), g), 3));
}
PIX95_AVX2 void y8_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  std::size_t i = 0;
  for (; pixels - i >= 32; i += 32) {
    for (std::size_t h = 0; h < 32; h += 16) {
      const __m256i g = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + h)));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * (i + h)), y8_words_avx2(g));
    }
  }
  if (i < pixels) y8_pseudo_row(src + i, dst + 2 * i, pixels - i);
}

PIX95_AVX512 inline __m512i y8_words_avx512(__m512i g) {
  const __m512i twice = _mm512_add_epi16(g, g);
  const __m512i t = _mm512_min_epi16(twice, _mm512_sub_epi16(_mm512_set1_epi16(511), twice));
  return _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(g, _mm512_set1_epi16(0xF8)), 8),
                                         _mm512_slli_epi16(_mm512_and_si512(t, _mm512_set1_epi16(0xFC)), 3)),
                         _mm512_srli_epi16(_mm512_sub_epi16(_mm512_set1_epi16(255), g), 3));
}
PIX95_AVX512 void y8_avx512(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  // Whole cache lines stored (a store across two costs two): the pixels up
  // to the first line boundary of an even destination go one by one.
  const auto address = reinterpret_cast<std::uintptr_t>(dst);
  std::size_t i = address % 2 == 0 ? std::min<std::size_t>(pixels, (64 - address % 64) % 64 / 2) : 0;
  y8_pseudo_row(src, dst, i);
  for (; pixels - i >= 64; i += 64) {
    for (std::size_t h = 0; h < 64; h += 32) {
      const __m512i g = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + h)));
      _mm512_storeu_si512(dst + 2 * (i + h), y8_words_avx512(g));
    }
  }
  if (i < pixels) y8_pseudo_row(src + i, dst + 2 * i, pixels - i);
}

// ---------------------------------------------------------------------------
// YUV 4:2:2 pairs (Y0 U Y1 V) to (Y0 U V) (Y1 U V): four pairs, 16 bytes in,
// 24 out, two shuffles.

PIX95_AVX2 void yuv422_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m128i first = _mm_setr_epi8(0, 1, 3, 2, 1, 3, 4, 5, 7, 6, 5, 7, 8, 9, 11, 10);
  const __m128i rest = _mm_setr_epi8(9, 11, 12, 13, 15, 14, 13, 15, -1, -1, -1, -1, -1, -1, -1, -1);
  std::size_t i = 0;
  for (; pairs - i >= 8; i += 8) {
    for (std::size_t h = 0; h < 8; h += 4) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * (i + h)));
      uint8_t* d = dst + 6 * (i + h);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_shuffle_epi8(v, first));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm_shuffle_epi8(v, rest));
    }
  }
  if (i < pairs) yuv422_pseudo_row(src + 4 * i, dst + 6 * i, pairs - i);
}

// ---------------------------------------------------------------------------
// PIX_HSI (hue word, S, I) to RGB24: the hue's word replaced by its red in
// each 32-bit lane, then the lanes' first, third and fourth bytes closed up.

PIX95_AVX2 inline __m256i hsi_lanes_avx2(__m256i p) {
  const __m256i hue = _mm256_and_si256(p, _mm256_set1_epi32(0xFFFF));
  const __m256d scale = _mm256_set1_pd(0.7027777777777778);
  const __m128i lo = _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(hue)), scale));
  const __m128i hi = _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(hue, 1)), scale));
  const __m256i red = _mm256_and_si256(_mm256_set_m128i(hi, lo), _mm256_set1_epi32(0xFF));
  return _mm256_or_si256(_mm256_and_si256(p, _mm256_set1_epi32(static_cast<int>(0xFFFF0000u))), red);
}
PIX95_AVX2 void hsi_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m256i close =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, -1, -1, -1, -1));
  const __m256i order = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  std::size_t i = 0;
  for (; pixels - i >= 8; i += 8) {
    const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(hsi_lanes_avx2(p), close), order);
    uint8_t* d = dst + 3 * i;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(packed, 1));
  }
  if (i < pixels) hsi_pseudo_row(src + 4 * i, dst + 3 * i, pixels - i);
}

PIX95_AVX512 void hsi_avx512(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m512i close =
      _mm512_broadcast_i32x4(_mm_setr_epi8(0, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, -1, -1, -1, -1));
  const __m512i order = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15);
  const __m512d scale = _mm512_set1_pd(0.7027777777777778);
  std::size_t i = 0;
  for (; pixels - i >= 16; i += 16) {
    const __m512i p = _mm512_loadu_si512(src + 4 * i);
    const __m512i hue = _mm512_and_si512(p, _mm512_set1_epi32(0xFFFF));
    const __m256i lo = _mm512_cvttpd_epi32(_mm512_mul_pd(_mm512_cvtepi32_pd(_mm512_castsi512_si256(hue)), scale));
    const __m256i hi = _mm512_cvttpd_epi32(_mm512_mul_pd(_mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(hue, 1)), scale));
    const __m512i red =
        _mm512_and_si512(_mm512_inserti64x4(_mm512_castsi256_si512(lo), hi, 1), _mm512_set1_epi32(0xFF));
    const __m512i lanes = _mm512_or_si512(_mm512_and_si512(p, _mm512_set1_epi32(static_cast<int>(0xFFFF0000u))), red);
    const __m512i packed = _mm512_permutexvar_epi32(order, _mm512_shuffle_epi8(lanes, close));
    _mm512_mask_storeu_epi32(dst + 3 * i, 0x0FFF, packed);
  }
  if (i < pixels) hsi_avx2(src + 4 * i, dst + 3 * i, pixels - i);
}

}  // namespace
#endif

PseudoKernels pseudo_kernels(simd::Level level) noexcept {
#if PIX95_X86
  if (simd::supports(level)) {
    switch (level) {
      case simd::Level::sse2: return {nullptr, nullptr, y8_sse2};
      case simd::Level::avx2: return {yuv422_avx2, hsi_avx2, y8_avx2};
      case simd::Level::avx512: return {nullptr, hsi_avx512, y8_avx512};
      default: break;
    }
  }
#else
  (void)level;
#endif
  return {nullptr, nullptr, nullptr};
}

// The widest level up to the active one that has each kernel.
const PseudoKernels& pseudo_kernels() noexcept {
  static const PseudoKernels chosen = [] {
    PseudoKernels k{yuv422_pseudo_row, hsi_pseudo_row, y8_pseudo_row};
    for (int l = 1; l <= static_cast<int>(simd::active()); ++l) {
      const PseudoKernels v = pseudo_kernels(static_cast<simd::Level>(l));
      if (v.yuv422 != nullptr) k.yuv422 = v.yuv422;
      if (v.hsi != nullptr) k.hsi = v.hsi;
      if (v.y8 != nullptr) k.y8 = v.y8;
    }
    return k;
  }();
  return chosen;
}

}  // namespace pix::process::kernels
