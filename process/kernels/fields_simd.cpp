// SIMD kernels of the pseudo-colour views: grey to RGB16 words computed in
// 16-bit lanes (SSE2) or looked up by nibble shuffles (AVX2, AVX-512),
// YUV 4:2:2 pairs spread to RGB24 by byte shuffles (AVX2), and PIX_HSI to
// RGB24 with the red made by an integer multiplication equal to the scalar
// kernel's truncated double one (AVX2; AVX-512 with VBMI).
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

// AVX2 and AVX-512: the two bytes of each word looked up by byte shuffles
// in the nibble tables, then interleaved.  The grey's 64-bit quarters are
// first put in the order the in-lane interleave undoes.
static_assert(y8_nibbles_exact());
constexpr Y8PseudoNibbles kNibbles = make_y8_pseudo_nibbles();

PIX95_AVX2 inline __m256i nibble_table_avx2(const std::array<uint8_t, 16>& t) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t.data())));
}
PIX95_AVX2 void y8_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m256i lo_low = nibble_table_avx2(kNibbles.lo_low), hi_low = nibble_table_avx2(kNibbles.hi_low);
  const __m256i hi_high = nibble_table_avx2(kNibbles.hi_high);
  const __m256i low4 = _mm256_set1_epi8(0x0F), bit3 = _mm256_set1_epi8(0x08);
  std::size_t i = 0;
  for (; pixels - i >= 32; i += 32) {
    const __m256i g = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i)), 0xD8);
    const __m256i n = _mm256_and_si256(g, low4), m = _mm256_and_si256(_mm256_srli_epi16(g, 4), low4);
    const __m256i low = _mm256_xor_si256(_mm256_shuffle_epi8(lo_low, n), _mm256_shuffle_epi8(hi_low, m));
    const __m256i high = _mm256_or_si256(_mm256_and_si256(g, bit3), _mm256_shuffle_epi8(hi_high, m));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), _mm256_unpacklo_epi8(low, high));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i + 32), _mm256_unpackhi_epi8(low, high));
  }
  if (i < pixels) y8_pseudo_row(src + i, dst + 2 * i, pixels - i);
}

// (a & c) | b, bit by bit.
constexpr int kAndOr = 0xEC;

PIX95_AVX512 inline __m512i nibble_table_avx512(const std::array<uint8_t, 16>& t) {
  return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t.data())));
}
PIX95_AVX512 void y8_avx512(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m512i lo_low = nibble_table_avx512(kNibbles.lo_low), hi_low = nibble_table_avx512(kNibbles.hi_low);
  const __m512i hi_high = nibble_table_avx512(kNibbles.hi_high);
  const __m512i low4 = _mm512_set1_epi8(0x0F), bit3 = _mm512_set1_epi8(0x08);
  const __m512i order = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
  // Whole cache lines stored (a store across two costs two): the pixels up
  // to the first line boundary of an even destination go one by one.
  const auto address = reinterpret_cast<std::uintptr_t>(dst);
  std::size_t i = address % 2 == 0 ? std::min<std::size_t>(pixels, (64 - address % 64) % 64 / 2) : 0;
  y8_pseudo_row(src, dst, i);
  for (; pixels - i >= 64; i += 64) {
    const __m512i g = _mm512_permutexvar_epi64(order, _mm512_loadu_si512(src + i));
    const __m512i n = _mm512_and_si512(g, low4), m = _mm512_and_si512(_mm512_srli_epi16(g, 4), low4);
    const __m512i low = _mm512_xor_si512(_mm512_shuffle_epi8(lo_low, n), _mm512_shuffle_epi8(hi_low, m));
    const __m512i high = _mm512_ternarylogic_epi32(g, _mm512_shuffle_epi8(hi_high, m), bit3, kAndOr);
    _mm512_storeu_si512(dst + 2 * i, _mm512_unpacklo_epi8(low, high));
    _mm512_storeu_si512(dst + 2 * i + 64, _mm512_unpackhi_epi8(low, high));
  }
  if (i < pixels) y8_avx2(src + i, dst + 2 * i, pixels - i);
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
// PIX_HSI (hue word, S, I) to RGB24: the red is the top byte of the hue
// times kHueRed (32-bit lanes), put in place of the hue's word; then the
// lanes' first, third and fourth bytes closed up.
static_assert(hue_multiply_exact());

PIX95_AVX2 void hsi_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m256i close =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, -1, -1, -1, -1));
  const __m256i order = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  const __m256i hue = _mm256_set1_epi32(0xFFFF), scale = _mm256_set1_epi32(static_cast<int>(kHueRed));
  std::size_t i = 0;
  for (; pixels - i >= 8; i += 8) {
    const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 4 * i));
    const __m256i red = _mm256_srli_epi32(_mm256_mullo_epi32(_mm256_and_si256(p, hue), scale), 24);
    const __m256i lanes = _mm256_or_si256(_mm256_andnot_si256(hue, p), red);
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(lanes, close), order);
    uint8_t* d = dst + 3 * i;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(packed, 1));
  }
  if (i < pixels) hsi_pseudo_row(src + 4 * i, dst + 3 * i, pixels - i);
}

// 64 pixels a step: four vectors of lanes closed up into three whole
// vectors, output vector v taking its bytes from lane vectors v and v + 1.
struct HsiClose {
  alignas(64) std::array<std::array<uint8_t, 64>, 3> pick;
};
constexpr HsiClose make_hsi_close() {
  HsiClose c{};
  constexpr unsigned kByte[3] = {0, 2, 3};  // red, saturation, intensity in a lane
  for (unsigned v = 0; v < 3; ++v) {
    for (unsigned b = 0; b < 64; ++b) {
      const unsigned at = 64 * v + b;
      c.pick[v][b] = static_cast<uint8_t>(4 * (at / 3) + kByte[at % 3] - 64 * v);
    }
  }
  return c;
}
constexpr HsiClose kHsiClose = make_hsi_close();

PIX95_AVX512VBMI void hsi_avx512(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  const __m512i hue = _mm512_set1_epi32(0xFFFF), scale = _mm512_set1_epi32(static_cast<int>(kHueRed));
  __m512i pick[3];
  for (int v = 0; v < 3; ++v) pick[v] = _mm512_load_si512(kHsiClose.pick[v].data());
  std::size_t i = 0;
  for (; pixels - i >= 64; i += 64) {
    __m512i lanes[4];
    for (int q = 0; q < 4; ++q) {
      const __m512i p = _mm512_loadu_si512(src + 4 * (i + 16 * q));
      const __m512i red = _mm512_srli_epi32(_mm512_mullo_epi32(_mm512_and_si512(p, hue), scale), 24);
      lanes[q] = _mm512_ternarylogic_epi32(p, red, _mm512_set1_epi32(static_cast<int>(0xFFFF0000u)), kAndOr);
    }
    for (int v = 0; v < 3; ++v) {
      _mm512_storeu_si512(dst + 3 * i + 64 * v, _mm512_permutex2var_epi8(lanes[v], pick[v], lanes[v + 1]));
    }
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
      // Without VBMI the HSI view stays with its AVX2 kernel.
      case simd::Level::avx512: return {nullptr, simd::supports_vbmi() ? hsi_avx512 : nullptr, y8_avx512};
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
