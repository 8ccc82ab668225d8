// SIMD kernels of the direct-colour converters (SSE2 and AVX2, chosen at run
// time).  Each converts whole blocks and leaves the last few pixels to the
// scalar kernel, so both give the same bytes.
#include "direct.h"

#include <array>
#include <utility>

namespace pix::convert::kernels {

#if PIX95_X86
namespace {

// Grey weight of the byte at `pos` of a pixel (0 for the unused byte).
constexpr int weight_at(Places p, int pos) { return pos == p.r ? 77 : pos == p.g ? 150 : pos == p.b ? 29 : 0; }

inline void finish_scalar(Direct from, Direct to, const uint8_t* src, uint8_t* dst, std::size_t done,
                          std::size_t pixels, unsigned shift) {
  if (done < pixels) {
    direct_row_scalar(from, to)(src + done * direct_bytes(from), dst + done * direct_bytes(to), pixels - done, shift);
  }
}

// ---------------------------------------------------------------------------
// SSE2

// Four pixels of 4 bytes (byte 3 of a 24-bit pixel belongs to the next one
// and weighs 0) to four 32-bit lanes of 256 * grey + remainder, exactly the
// sum the scalar formula shifts.
template <Direct L>
PIX95_SSE2 inline __m128i weigh4_sse2(__m128i v) {
  constexpr Places p = places(L);
  const __m128i even = _mm_and_si128(v, _mm_set1_epi32(0x00FF00FF));
  const __m128i odd = _mm_srli_epi16(v, 8);
  const __m128i we = _mm_set1_epi32(weight_at(p, 0) | (weight_at(p, 2) << 16));
  const __m128i wo = _mm_set1_epi32(weight_at(p, 1) | (weight_at(p, 3) << 16));
  return _mm_add_epi32(_mm_madd_epi16(even, we), _mm_madd_epi16(odd, wo));
}

PIX95_SSE2 inline __m128i pack_grey16_sse2(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m128i ab = _mm_packs_epi32(_mm_srli_epi32(a, 8), _mm_srli_epi32(b, 8));
  const __m128i cd = _mm_packs_epi32(_mm_srli_epi32(c, 8), _mm_srli_epi32(d, 8));
  return _mm_packus_epi16(ab, cd);
}

// Four 3-byte pixels (12 of the 16 bytes loaded) spread to 4-byte lanes.
PIX95_SSE2 inline __m128i spread3_sse2(const uint8_t* p) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i ab = _mm_unpacklo_epi32(v, _mm_srli_si128(v, 3));
  const __m128i cd = _mm_unpacklo_epi32(_mm_srli_si128(v, 6), _mm_srli_si128(v, 9));
  return _mm_unpacklo_epi64(ab, cd);
}

template <Direct L>
PIX95_SSE2 void grey_from_rgb_sse2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned) {
  constexpr std::size_t bytes = direct_bytes(L);
  std::size_t i = 0;
  if constexpr (bytes == 4) {
    for (; pixels - i >= 16; i += 16) {
      const __m128i* s = reinterpret_cast<const __m128i*>(src + 4 * i);
      const __m128i g = pack_grey16_sse2(weigh4_sse2<L>(_mm_loadu_si128(s)), weigh4_sse2<L>(_mm_loadu_si128(s + 1)),
                                         weigh4_sse2<L>(_mm_loadu_si128(s + 2)), weigh4_sse2<L>(_mm_loadu_si128(s + 3)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), g);
    }
  } else {
    // The last load of a block reads 4 bytes beyond it: keep 2 pixels spare.
    for (; pixels - i >= 18; i += 16) {
      const uint8_t* s = src + 3 * i;
      const __m128i g = pack_grey16_sse2(weigh4_sse2<L>(spread3_sse2(s)), weigh4_sse2<L>(spread3_sse2(s + 12)),
                                         weigh4_sse2<L>(spread3_sse2(s + 24)), weigh4_sse2<L>(spread3_sse2(s + 36)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), g);
    }
  }
  finish_scalar(L, Direct::y8, src, dst, i, pixels, 0);
}

// Grey words (Y16) or luminance bytes (YUV 4:2:2) to grey.  The 16-bit RGB
// sources are left to the compiler's vectorisation of the scalar loop, which
// does as well as SSE2 by hand.
template <Direct L>
PIX95_SSE2 void grey_from_words_sse2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift) {
  const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
  const __m128i ff = _mm_set1_epi16(0xFF);
  std::size_t i = 0;
  for (; pixels - i >= 16; i += 16) {
    const __m128i* s = reinterpret_cast<const __m128i*>(src + 2 * i);
    const __m128i a = _mm_loadu_si128(s), b = _mm_loadu_si128(s + 1);
    __m128i ga, gb;
    if constexpr (L == Direct::y16) {
      ga = _mm_and_si128(_mm_srl_epi16(a, count), ff), gb = _mm_and_si128(_mm_srl_epi16(b, count), ff);
    } else {
      static_assert(L == Direct::yuv422);
      ga = _mm_and_si128(a, ff), gb = _mm_and_si128(b, ff);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(ga, gb));
  }
  finish_scalar(L, Direct::y8, src, dst, i, pixels, shift);
}

// Grey to 32-bit: three copies of the grey and a zero byte; XRGB32 keeps the
// destination's byte 0.
template <Direct T>
PIX95_SSE2 inline void put_grey4_sse2(__m128i* out, __m128i ggg0) {
  if constexpr (T == Direct::rgbx32 || T == Direct::bgrx32) {
    _mm_storeu_si128(out, ggg0);
  } else if constexpr (T == Direct::xbgr32) {
    _mm_storeu_si128(out, _mm_slli_epi32(ggg0, 8));
  } else {
    const __m128i kept = _mm_and_si128(_mm_loadu_si128(out), _mm_set1_epi32(0xFF));
    _mm_storeu_si128(out, _mm_or_si128(kept, _mm_slli_epi32(ggg0, 8)));
  }
}

template <Direct T>
PIX95_SSE2 void y8_to_32_sse2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned) {
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  for (; pixels - i >= 16; i += 16) {
    const __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    // Words g g beside words g 0 give lanes of g g g 0.
    const __m128i gg_lo = _mm_unpacklo_epi8(g, g), gg_hi = _mm_unpackhi_epi8(g, g);
    const __m128i g0_lo = _mm_unpacklo_epi8(g, zero), g0_hi = _mm_unpackhi_epi8(g, zero);
    __m128i* d = reinterpret_cast<__m128i*>(dst + 4 * i);
    put_grey4_sse2<T>(d, _mm_unpacklo_epi16(gg_lo, g0_lo));
    put_grey4_sse2<T>(d + 1, _mm_unpackhi_epi16(gg_lo, g0_lo));
    put_grey4_sse2<T>(d + 2, _mm_unpacklo_epi16(gg_hi, g0_hi));
    put_grey4_sse2<T>(d + 3, _mm_unpackhi_epi16(gg_hi, g0_hi));
  }
  finish_scalar(Direct::y8, T, src, dst, i, pixels, 0);
}

// ---------------------------------------------------------------------------
// AVX2

// Control of a byte shuffle that turns each pixel (3 or 4 bytes, four to a
// 128-bit lane) into R G B G, for weights 77, 51 | 29, 99: both pair sums
// stay within a signed 16-bit word, and 51 + 99 is green's 150.
template <Direct L>
PIX95_AVX2 inline __m256i rgbg_control() {
  constexpr Places p = places(L);
  constexpr int n = static_cast<int>(direct_bytes(L));
  alignas(16) static constexpr int8_t c[16] = {
      static_cast<int8_t>(p.r),         static_cast<int8_t>(p.g),         static_cast<int8_t>(p.b),
      static_cast<int8_t>(p.g),         static_cast<int8_t>(n + p.r),     static_cast<int8_t>(n + p.g),
      static_cast<int8_t>(n + p.b),     static_cast<int8_t>(n + p.g),     static_cast<int8_t>(2 * n + p.r),
      static_cast<int8_t>(2 * n + p.g), static_cast<int8_t>(2 * n + p.b), static_cast<int8_t>(2 * n + p.g),
      static_cast<int8_t>(3 * n + p.r), static_cast<int8_t>(3 * n + p.g), static_cast<int8_t>(3 * n + p.b),
      static_cast<int8_t>(3 * n + p.g)};
  return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(c)));
}

// Eight pixels (R G B G each) to eight 32-bit lanes of 256 * grey + remainder.
PIX95_AVX2 inline __m256i weigh8_avx2(__m256i rgbg) {
  const __m256i pairs = _mm256_maddubs_epi16(rgbg, _mm256_set1_epi32(77 | (51 << 8) | (29 << 16) | (99 << 24)));
  return _mm256_madd_epi16(pairs, _mm256_set1_epi16(1));
}

PIX95_AVX2 inline __m256i pack_grey32_avx2(__m256i a, __m256i b, __m256i c, __m256i d) {
  const __m256i ab = _mm256_srli_epi16(_mm256_packus_epi32(a, b), 8);
  const __m256i cd = _mm256_srli_epi16(_mm256_packus_epi32(c, d), 8);
  return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(ab, cd), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Eight 3-byte pixels: four from each of two 16-byte loads 12 bytes apart.
PIX95_AVX2 inline __m256i load3x8_avx2(const uint8_t* p) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
}

template <Direct L>
PIX95_AVX2 void grey_from_rgb_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned) {
  constexpr std::size_t bytes = direct_bytes(L);
  const __m256i control = rgbg_control<L>();
  std::size_t i = 0;
  // 24-bit: the last load of a block reads 4 bytes beyond it, so keep 2
  // pixels spare.
  constexpr std::size_t need = bytes == 4 ? 32 : 34;
  for (; pixels - i >= need; i += 32) {
    const uint8_t* s = src + bytes * i;
    __m256i v[4];
    for (int k = 0; k < 4; ++k) {
      const __m256i raw = bytes == 4 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32 * k))
                                     : load3x8_avx2(s + 24 * k);
      v[k] = weigh8_avx2(_mm256_shuffle_epi8(raw, control));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), pack_grey32_avx2(v[0], v[1], v[2], v[3]));
  }
  finish_scalar(L, Direct::y8, src, dst, i, pixels, 0);
}

template <Direct L>
PIX95_AVX2 inline __m256i grey16_from_words_avx2(__m256i w) {
  const __m256i ff = _mm256_set1_epi16(0xFF);
  __m256i r, g;
  if constexpr (L == Direct::rgb16) {
    r = _mm256_srli_epi16(w, 8);
    g = _mm256_and_si256(_mm256_srli_epi16(w, 3), ff);
  } else {
    r = _mm256_and_si256(_mm256_srli_epi16(w, 7), ff);
    g = _mm256_and_si256(_mm256_srli_epi16(w, 2), ff);
  }
  const __m256i b = _mm256_and_si256(_mm256_slli_epi16(w, 3), ff);
  const __m256i sum = _mm256_add_epi16(
      _mm256_add_epi16(_mm256_mullo_epi16(r, _mm256_set1_epi16(77)), _mm256_mullo_epi16(g, _mm256_set1_epi16(150))),
      _mm256_mullo_epi16(b, _mm256_set1_epi16(29)));
  return _mm256_srli_epi16(sum, 8);
}

template <Direct L>
PIX95_AVX2 void grey_from_words_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift) {
  const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
  const __m256i ff = _mm256_set1_epi16(0xFF);
  std::size_t i = 0;
  for (; pixels - i >= 32; i += 32) {
    const __m256i* s = reinterpret_cast<const __m256i*>(src + 2 * i);
    const __m256i a = _mm256_loadu_si256(s), b = _mm256_loadu_si256(s + 1);
    __m256i ga, gb;
    if constexpr (L == Direct::y16) {
      ga = _mm256_and_si256(_mm256_srl_epi16(a, count), ff), gb = _mm256_and_si256(_mm256_srl_epi16(b, count), ff);
    } else if constexpr (L == Direct::yuv422) {
      ga = _mm256_and_si256(a, ff), gb = _mm256_and_si256(b, ff);
    } else {
      ga = grey16_from_words_avx2<L>(a), gb = grey16_from_words_avx2<L>(b);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_permute4x64_epi64(_mm256_packus_epi16(ga, gb), 0xD8));
  }
  finish_scalar(L, Direct::y8, src, dst, i, pixels, shift);
}

// Between layouts of whole pixels: eight pixels at a time are brought to
// 32-bit lanes holding R, G and B at known byte places, then placed by one
// byte shuffle (or packed to a 16-bit word).

constexpr bool channel_layout(Direct l) {
  return l == Direct::y8 || l == Direct::y16 || l == Direct::rgb15 || l == Direct::rgb16 || l == Direct::rgb24 ||
         l == Direct::bgr24 || l == Direct::rgbx32 || l == Direct::bgrx32 || l == Direct::xbgr32 ||
         l == Direct::xrgb32;
}

// Byte places of R, G and B in the lanes that `lanes8` gives: a 24- or
// 32-bit source keeps its own, the others are built as R G B 0.
constexpr Places lane_places(Direct from) { return direct_bytes(from) >= 3 ? places(from) : Places{0, 1, 2}; }

// A shuffle control repeated in both 128-bit lanes.
PIX95_AVX2 inline __m256i control(const int8_t (&c)[16]) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(c)));
}

template <Direct F>
PIX95_AVX2 inline __m256i lanes8(const uint8_t* p, __m128i count) {
  if constexpr (direct_bytes(F) == 4) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  } else if constexpr (direct_bytes(F) == 3) {
    static constexpr int8_t spread[16] = {0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1};
    return _mm256_shuffle_epi8(load3x8_avx2(p), control(spread));
  } else if constexpr (F == Direct::y8) {
    const __m256i g = _mm256_broadcastq_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    alignas(32) static constexpr int8_t grey3[32] = {0, 0, 0, -1, 1, 1, 1, -1, 2, 2, 2, -1, 3, 3, 3, -1,
                                                     4, 4, 4, -1, 5, 5, 5, -1, 6, 6, 6, -1, 7, 7, 7, -1};
    return _mm256_shuffle_epi8(g, _mm256_load_si256(reinterpret_cast<const __m256i*>(grey3)));
  } else {
    const __m256i w = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    if constexpr (F == Direct::y16) {
      static constexpr int8_t grey3[16] = {0, 0, 0, -1, 4, 4, 4, -1, 8, 8, 8, -1, 12, 12, 12, -1};
      return _mm256_shuffle_epi8(_mm256_srl_epi32(w, count), control(grey3));
    } else {
      // The channels' low bits keep their neighbours' bits, as in the scalar kernel.
      const __m256i r = F == Direct::rgb16 ? _mm256_srli_epi32(w, 8)
                                           : _mm256_and_si256(_mm256_srli_epi32(w, 7), _mm256_set1_epi32(0xFF));
      const __m256i g = _mm256_and_si256(F == Direct::rgb16 ? _mm256_slli_epi32(w, 5) : _mm256_slli_epi32(w, 6),
                                         _mm256_set1_epi32(0xFF00));
      const __m256i b = _mm256_and_si256(_mm256_slli_epi32(w, 19), _mm256_set1_epi32(0xFF0000));
      return _mm256_or_si256(_mm256_or_si256(r, g), b);
    }
  }
}

// The shuffle that writes pixels of layout T from lanes with places `at`:
// four pixels of 4 bytes, or four of 3 bytes packed into the first 12.
template <Direct T>
constexpr std::array<int8_t, 16> placing(Places at) {
  constexpr Places to = places(T);
  constexpr int n = static_cast<int>(direct_bytes(T));
  std::array<int8_t, 16> c{};
  c.fill(-1);
  for (int k = 0; k < 4; ++k) {
    for (int j = 0; j < n; ++j) {
      const int from = j == static_cast<int>(to.r) ? static_cast<int>(at.r)
                       : j == static_cast<int>(to.g) ? static_cast<int>(at.g)
                       : j == static_cast<int>(to.b) ? static_cast<int>(at.b)
                                                     : -1;
      c[n * k + j] = static_cast<int8_t>(from < 0 ? -1 : 4 * k + from);
    }
  }
  return c;
}

template <Direct T>
PIX95_AVX2 inline __m256i word8(__m256i v, Places at) {
  // Each channel to the low byte of its lane, then the 5-6-5 or 5-5-5 fields.
  const __m256i ff = _mm256_set1_epi32(0xFF);
  const __m128i sr = _mm_cvtsi32_si128(static_cast<int>(8 * at.r)), sg = _mm_cvtsi32_si128(static_cast<int>(8 * at.g)),
                sb = _mm_cvtsi32_si128(static_cast<int>(8 * at.b));
  const __m256i r = _mm256_and_si256(_mm256_srl_epi32(v, sr), ff);
  const __m256i g = _mm256_and_si256(_mm256_srl_epi32(v, sg), ff);
  const __m256i b = _mm256_srli_epi32(_mm256_and_si256(_mm256_srl_epi32(v, sb), ff), 3);
  if constexpr (T == Direct::rgb16) {
    return _mm256_or_si256(
        _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(r, _mm256_set1_epi32(0xF8)), 8),
                        _mm256_slli_epi32(_mm256_and_si256(g, _mm256_set1_epi32(0xFC)), 3)),
        b);
  } else {
    return _mm256_or_si256(
        _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(r, _mm256_set1_epi32(0xF8)), 7),
                        _mm256_slli_epi32(_mm256_and_si256(g, _mm256_set1_epi32(0xF8)), 2)),
        b);
  }
}

template <Direct F, Direct T>
PIX95_AVX2 void between_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift) {
  constexpr std::size_t in = direct_bytes(F), out = direct_bytes(T);
  constexpr Places at = lane_places(F);
  static constexpr std::array<int8_t, 16> kPlace = placing<T>(at);
  const __m256i place = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kPlace.data())));
  const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
  // A 24-bit source's last load reads 4 bytes beyond its 8 pixels.
  constexpr std::size_t need = in == 3 ? 18 : 16;
  std::size_t i = 0;
  for (; pixels - i >= need; i += 16) {
    const __m256i a = lanes8<F>(src + in * i, count), b = lanes8<F>(src + in * (i + 8), count);
    uint8_t* d = dst + out * i;
    if constexpr (T == Direct::rgb16 || T == Direct::rgb15) {
      const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(word8<T>(a, at), word8<T>(b, at)), 0xD8);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), words);
    } else {
      for (int h = 0; h < 2; ++h) {
        const __m256i v = _mm256_shuffle_epi8(h == 0 ? a : b, place);
        uint8_t* o = d + 8 * out * h;
        if constexpr (out == 4) {
          __m256i* o32 = reinterpret_cast<__m256i*>(o);
          if constexpr (T == Direct::xrgb32) {
            // The unused byte keeps what the strip held.
            const __m256i kept = _mm256_and_si256(_mm256_loadu_si256(o32), _mm256_set1_epi32(0xFF));
            _mm256_storeu_si256(o32, _mm256_or_si256(v, kept));
          } else {
            _mm256_storeu_si256(o32, v);
          }
        } else {
          // 12 bytes at the start of each lane: close them up and store 24.
          const __m256i packed = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
          _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm256_castsi256_si128(packed));
          _mm_storel_epi64(reinterpret_cast<__m128i*>(o + 16), _mm256_extracti128_si256(packed, 1));
        }
      }
    }
  }
  finish_scalar(F, T, src, dst, i, pixels, shift);
}

// Red and blue change places in 3-byte pixels (RGB24 and BGR24 alike): four
// pixels a 16-byte shuffle.  Each store runs 4 bytes into the next pixels'
// place with their bytes as loaded, and the next store overwrites them, so
// the kernel also works in place.
PIX95_AVX2 void swap24_avx2(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift) {
  const __m128i swap = _mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 12, 13, 14, 15);
  std::size_t i = 0;
  // 16 pixels a round; the last load and store reach 4 bytes past them.
  for (; pixels - i >= 18; i += 16) {
    for (std::size_t k = 0; k < 16; k += 4) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * (i + k)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 3 * (i + k)), _mm_shuffle_epi8(v, swap));
    }
  }
  finish_scalar(Direct::rgb24, Direct::bgr24, src, dst, i, pixels, shift);
}

template <Direct F, Direct T>
constexpr DirectRow between_if_any() {
  // The 16-bit pairs of their own, and grey to 16-bit words, which the
  // compiler vectorises as well from the scalar loop, are left to it.
  constexpr bool words = T == Direct::rgb15 || T == Direct::rgb16;
  if constexpr (channel_layout(F) && channel_layout(T) && F != T && F != Direct::xrgb32 && T != Direct::y8 &&
                T != Direct::y16 && !(words && (F == Direct::rgb15 || F == Direct::rgb16 || F == Direct::y8))) {
    return between_avx2<F, T>;
  } else {
    return nullptr;
  }
}

using Row = std::array<DirectRow, kDirectLayouts>;
template <std::size_t F, std::size_t... T>
constexpr Row between_row(std::index_sequence<T...>) {
  return {between_if_any<static_cast<Direct>(F), static_cast<Direct>(T)>()...};
}
template <std::size_t... F>
constexpr std::array<Row, kDirectLayouts> between_table(std::index_sequence<F...>) {
  return {between_row<F>(std::make_index_sequence<kDirectLayouts>{})...};
}
constexpr std::array<Row, kDirectLayouts> kBetweenAvx2 = between_table(std::make_index_sequence<kDirectLayouts>{});

}  // namespace

DirectRow direct_row_simd(Direct from, Direct to, simd::Level level) noexcept {
  if (static_cast<std::size_t>(from) >= kDirectLayouts || static_cast<std::size_t>(to) >= kDirectLayouts ||
      !simd::supports(level)) {
    return nullptr;
  }
  if (level == simd::Level::sse2) {
    if (to == Direct::y8) {
      switch (from) {
        case Direct::rgb24: return grey_from_rgb_sse2<Direct::rgb24>;
        case Direct::bgr24: return grey_from_rgb_sse2<Direct::bgr24>;
        case Direct::rgbx32: return grey_from_rgb_sse2<Direct::rgbx32>;
        case Direct::bgrx32: return grey_from_rgb_sse2<Direct::bgrx32>;
        case Direct::xbgr32: return grey_from_rgb_sse2<Direct::xbgr32>;
        case Direct::y16: return grey_from_words_sse2<Direct::y16>;
        case Direct::yuv422: return grey_from_words_sse2<Direct::yuv422>;
        default: return nullptr;
      }
    }
    if (from == Direct::y8) {
      switch (to) {
        case Direct::rgbx32: return y8_to_32_sse2<Direct::rgbx32>;
        case Direct::bgrx32: return y8_to_32_sse2<Direct::bgrx32>;
        case Direct::xbgr32: return y8_to_32_sse2<Direct::xbgr32>;
        case Direct::xrgb32: return y8_to_32_sse2<Direct::xrgb32>;
        default: return nullptr;
      }
    }
    return nullptr;
  }
  if (level == simd::Level::avx2) {
    if (to == Direct::y8) {
      switch (from) {
        case Direct::rgb24: return grey_from_rgb_avx2<Direct::rgb24>;
        case Direct::bgr24: return grey_from_rgb_avx2<Direct::bgr24>;
        case Direct::rgbx32: return grey_from_rgb_avx2<Direct::rgbx32>;
        case Direct::bgrx32: return grey_from_rgb_avx2<Direct::bgrx32>;
        case Direct::xbgr32: return grey_from_rgb_avx2<Direct::xbgr32>;
        case Direct::rgb15: return grey_from_words_avx2<Direct::rgb15>;
        case Direct::rgb16: return grey_from_words_avx2<Direct::rgb16>;
        case Direct::y16: return grey_from_words_avx2<Direct::y16>;
        case Direct::yuv422: return grey_from_words_avx2<Direct::yuv422>;
        default: return nullptr;
      }
    }
    if ((from == Direct::rgb24 && to == Direct::bgr24) || (from == Direct::bgr24 && to == Direct::rgb24)) {
      return swap24_avx2;
    }
    return kBetweenAvx2[static_cast<std::size_t>(from)][static_cast<std::size_t>(to)];
  }
  return nullptr;
}

#else

DirectRow direct_row_simd(Direct, Direct, simd::Level) noexcept { return nullptr; }

#endif

}  // namespace pix::convert::kernels
