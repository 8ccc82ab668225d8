// AVX2 kernels of the table-driven YUV 4:2:2 converters: eight pairs at a
// time, the two table reads of each pair as two 8-lane gathers.  The tails
// go through the scalar kernels.
#include "tables.h"

#include <cstring>

namespace pix::convert::kernels {

#if PIX95_X86
namespace {


// The 19-bit indices of the left and right pixels of eight pairs: the
// chroma half (U >> 2) << 6 | V >> 2 once, then Y0 >> 1 and Y1 >> 1 placed
// at bit 12.
PIX95_AVX2 inline void yuv19_indices(__m256i d, __m256i& left, __m256i& right) {
  const __m256i chroma = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(d, 4), _mm256_set1_epi32(0xFC0)),
                                         _mm256_srli_epi32(d, 26));
  const __m256i y_mask = _mm256_set1_epi32(0x7F000);
  left = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(d, 11), y_mask), chroma);
  right = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(d, 5), y_mask), chroma);
}

PIX95_AVX2 inline __m256i gather_words(const uint8_t* table, __m256i index) {
  return _mm256_and_si256(_mm256_i32gather_epi32(reinterpret_cast<const int*>(table), index, 2),
                          _mm256_set1_epi32(0xFFFF));
}

// Moves `v` left by `n` bits (right when `n` is negative).
template <int N>
PIX95_AVX2 inline __m256i shift(__m256i v) {
  if constexpr (N >= 0) return _mm256_slli_epi32(v, N);
  else return _mm256_srli_epi32(v, -N);
}

// RGB16 words (one a lane) to pixels with R = w >> 8, G = (w >> 3) & 0xFF,
// B = (w << 3) & 0xFF at byte offsets Ro, Go, Bo of the 32-bit lane.
template <int Ro, int Go, int Bo>
PIX95_AVX2 inline __m256i expand(__m256i w) {
  const __m256i r = _mm256_and_si256(shift<8 * Ro - 8>(w), _mm256_set1_epi32(static_cast<int>(0xFFu << (8 * Ro))));
  const __m256i g = _mm256_and_si256(shift<8 * Go - 3>(w), _mm256_set1_epi32(static_cast<int>(0xFFu << (8 * Go))));
  const __m256i b = _mm256_and_si256(shift<8 * Bo + 3>(w), _mm256_set1_epi32(static_cast<int>(0xFFu << (8 * Bo))));
  return _mm256_or_si256(_mm256_or_si256(r, g), b);
}

// Left and right pixels of pairs 0-7 (one pair a lane) in memory order:
// pairs 0-3, then pairs 4-7.
PIX95_AVX2 inline void interleave(__m256i left, __m256i right, __m256i& first, __m256i& second) {
  const __m256i lo = _mm256_unpacklo_epi32(left, right), hi = _mm256_unpackhi_epi32(left, right);
  first = _mm256_permute2x128_si256(lo, hi, 0x20);
  second = _mm256_permute2x128_si256(lo, hi, 0x31);
}

// 32-bit layouts: the unused byte at offset Xo keeps what the strip holds
// (it is read and written back unchanged).
template <int Ro, int Go, int Bo, int Xo>
PIX95_AVX2 void expand32_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  const __m256i keep = _mm256_set1_epi32(static_cast<int>(0xFFu << (8 * Xo)));
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 64) {
    __m256i left, right, first, second;
    yuv19_indices(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)), left, right);
    interleave(expand<Ro, Go, Bo>(gather_words(table, left)), expand<Ro, Go, Bo>(gather_words(table, right)),
               first, second);
    auto* out = reinterpret_cast<__m256i*>(dst);
    _mm256_storeu_si256(out, _mm256_or_si256(first, _mm256_and_si256(_mm256_loadu_si256(out), keep)));
    _mm256_storeu_si256(out + 1, _mm256_or_si256(second, _mm256_and_si256(_mm256_loadu_si256(out + 1), keep)));
  }
  constexpr LutOut layout = Ro == 0   ? LutOut::rgbx32
                            : Ro == 2 ? LutOut::bgrx32
                            : Ro == 3 ? LutOut::xbgr32
                                      : LutOut::xrgb32;
  yuv_lut_row_scalar(layout)(src, dst, pairs - i, table);
}

// 24-bit layouts: four pixels of each 128-bit half packed to 12 bytes.
template <int Ro, int Go, int Bo>
PIX95_AVX2 void expand24_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                        0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 48) {
    __m256i left, right, first, second;
    yuv19_indices(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)), left, right);
    interleave(expand<Ro, Go, Bo>(gather_words(table, left)), expand<Ro, Go, Bo>(gather_words(table, right)),
               first, second);
    first = _mm256_shuffle_epi8(first, pack);
    second = _mm256_shuffle_epi8(second, pack);
    // Overlapping 16-byte stores, each over the 4 spare bytes of the one
    // before; the last group is stored as 8 + 4 bytes to stay inside.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(first));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 12), _mm256_extracti128_si256(first, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 24), _mm256_castsi256_si128(second));
    const __m128i last = _mm256_extracti128_si256(second, 1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 36), last);
    const int tail = _mm_extract_epi32(last, 2);
    std::memcpy(dst + 44, &tail, 4);
  }
  yuv_lut_row_scalar(Ro == 0 ? LutOut::rgb24 : LutOut::bgr24)(src, dst, pairs - i, table);
}

PIX95_AVX2 void word16_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 32) {
    __m256i left, right;
    yuv19_indices(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)), left, right);
    // One lane is one pair: the left word below the right one.
    const __m256i out = _mm256_or_si256(gather_words(table, left), _mm256_slli_epi32(gather_words(table, right), 16));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), out);
  }
  yuv_lut_row_scalar(LutOut::word16)(src, dst, pairs - i, table);
}

PIX95_AVX2 void paletted_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  const __m256i byte = _mm256_set1_epi32(0xFF);
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 16) {
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
    const __m256i chroma = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(d, 6), _mm256_set1_epi32(0x3E0)),
                                           _mm256_srli_epi32(d, 27));
    const __m256i y_mask = _mm256_set1_epi32(0x7C00);
    const __m256i left = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(d, 7), y_mask), chroma);
    const __m256i right = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(d, 9), y_mask), chroma);
    const int* base = reinterpret_cast<const int*>(table);
    const __m256i l = _mm256_and_si256(_mm256_i32gather_epi32(base, left, 1), byte);
    const __m256i r = _mm256_and_si256(_mm256_i32gather_epi32(base, right, 1), byte);
    const __m256i pair = _mm256_or_si256(l, _mm256_slli_epi32(r, 8));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(pair, pair), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(packed));
  }
  yuv_lut_row_scalar(LutOut::paletted)(src, dst, pairs - i, table);
}

}  // namespace

LutRow yuv_lut_row_simd(LutOut out, simd::Level level) noexcept {
  if (level != simd::Level::avx2 || !simd::supports(level)) return nullptr;
  switch (out) {
    case LutOut::rgbx32: return expand32_avx2<0, 1, 2, 3>;
    case LutOut::bgrx32: return expand32_avx2<2, 1, 0, 3>;
    case LutOut::xbgr32: return expand32_avx2<3, 2, 1, 0>;
    case LutOut::xrgb32: return expand32_avx2<1, 2, 3, 0>;
    case LutOut::rgb24: return expand24_avx2<0, 1, 2>;
    case LutOut::bgr24: return expand24_avx2<2, 1, 0>;
    case LutOut::word16: return word16_avx2;
    case LutOut::paletted: return paletted_avx2;
  }
  return nullptr;
}

#else

LutRow yuv_lut_row_simd(LutOut, simd::Level) noexcept { return nullptr; }

#endif

}  // namespace pix::convert::kernels
