// SIMD kernels of the YUV 4:2:2 converters: SSE2 and AVX2 versions of the
// row kernels, chosen at run time.  Each gives exactly the bytes of the
// scalar kernel.  The vector body works on whole blocks of pairs and never
// touches a byte outside either run; what is left of a row goes to the next
// narrower body and finally to the scalar kernel.
//
// Decoding works in 16-bit lanes.  1024 * Y is a multiple of 1024, so
// (1024 * Y + c) >> 10 equals Y + (c >> 10), and that sum lies in -227..480.
// The pair's U - 128 and V - 128, scaled by 64, sit as two int16 in one 32-bit
// lane; pmaddwd with the two coefficients of a term gives 64 * c exactly, and
// its upper 16 bits are floor(64 * c / 65536) = c >> 10.  That half is copied
// to both pixels of the pair, Y is added, and the unsigned saturating pack
// clamps to 0..255.
//
// Encoding sums reach 261120, so each component is a pmaddwd dot product in
// 32-bit lanes shifted right arithmetically by 10.  For 8-bit inputs Y lies in
// 0..255 and U - 128, V - 128 in -128..127, so the clamps never bind, and the
// pair's chroma (U0 + U1) >> 1 is (u0 + u1 + 256) >> 1 in 16-bit lanes.
#include "yuv.h"

#include <algorithm>

namespace pix::convert::kernels {

#if PIX95_X86

namespace {

// Two int16 in one 32-bit lane: `lo` in bits 0-15, `hi` in bits 16-31.
constexpr int32_t lanes(int lo, int hi) {
  return static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) | static_cast<uint16_t>(lo));
}

// The leftover pairs of a row, one at a time.
inline void rest(YuvOut out, const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  if (pairs != 0) yuv422_row_scalar(out)(src, dst, pairs);
}
inline void rest(RgbIn in, const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  if (pairs != 0) encode_row_scalar(in)(src, dst, pairs);
}

// ---------------------------------------------------------------------------
// Layouts

// The channel each byte of an output pixel holds: 0 red, 1 green, 2 blue,
// 3 the unused byte (24-bit layouts: a fourth byte the kernel drops).
struct Order {
  int b0, b1, b2, b3;
};
template <YuvOut Out>
constexpr Order order() {
  switch (Out) {
    case YuvOut::bgrx32:
    case YuvOut::bgr24: return {2, 1, 0, 3};
    case YuvOut::xbgr32: return {3, 2, 1, 0};
    case YuvOut::xrgb32: return {3, 0, 1, 2};
    default: return {0, 1, 2, 3};
  }
}
// The unused byte of a 32-bit pixel, as a mask.
template <YuvOut Out>
constexpr int32_t unused_byte() {
  return order<Out>().b0 == 3 ? 0x000000FF : static_cast<int32_t>(0xFF000000u);
}

// pmaddwd constants of the decoder's three terms, for lanes (u, v).
constexpr int32_t kTermR = lanes(0, 1436);
constexpr int32_t kTermG = lanes(-352, -731);
constexpr int32_t kTermB = lanes(1815, 0);

// The encoder reads each pixel as four bytes c0 c1 c2 c3 and takes two lanes
// from them: a = (c0, c2) and c = (c1, c3).  A component is
// madd(a, Dot.a) + madd(c, Dot.c); the byte that holds no colour gets 0.
struct Dot {
  int32_t a, c;
};
struct EncoderCoefs {
  Dot y, u, v;
};
template <RgbIn In>
constexpr EncoderCoefs encoder_coefs() {
  switch (In) {
    case RgbIn::bgr24:
    case RgbIn::bgrx32:  // B G R -
      return {{lanes(117, 306), lanes(601, 0)}, {lanes(512, -173), lanes(-339, 0)}, {lanes(-83, 512), lanes(-429, 0)}};
    case RgbIn::xbgr32:  // - B G R
      return {{lanes(0, 601), lanes(117, 306)}, {lanes(0, -339), lanes(512, -173)}, {lanes(0, -429), lanes(-83, 512)}};
    default:  // R G B -
      return {{lanes(306, 117), lanes(601, 0)}, {lanes(-173, 512), lanes(-339, 0)}, {lanes(512, -83), lanes(-429, 0)}};
  }
}

// ===========================================================================
// SSE2: 4 pairs (8 pixels) per step.

PIX95_SSE2 PIX95_INLINE __m128i load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
PIX95_SSE2 PIX95_INLINE void store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Eight decoded pixels, one per 16-bit lane, not yet clamped.
struct Rgb8x {
  __m128i r, g, b;
};

// Copies the upper half of each 32-bit lane to both halves.
PIX95_SSE2 PIX95_INLINE __m128i upper_halves(__m128i m) {
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(m, 0xF5), 0xF5);
}

PIX95_SSE2 PIX95_INLINE Rgb8x decode(__m128i s) {
  const __m128i y = _mm_and_si128(s, _mm_set1_epi16(0x00FF));
  // (U - 128) * 64 and (V - 128) * 64 in the two halves of each pair's lane.
  const __m128i uv = _mm_sub_epi16(_mm_and_si128(_mm_srli_epi16(s, 2), _mm_set1_epi16(0x3FC0)),
                                   _mm_set1_epi16(0x2000));
  return {_mm_add_epi16(y, upper_halves(_mm_madd_epi16(uv, _mm_set1_epi32(kTermR)))),
          _mm_add_epi16(y, upper_halves(_mm_madd_epi16(uv, _mm_set1_epi32(kTermG)))),
          _mm_add_epi16(y, upper_halves(_mm_madd_epi16(uv, _mm_set1_epi32(kTermB))))};
}

template <int C>
PIX95_SSE2 PIX95_INLINE __m128i channel(const Rgb8x& p) {
  if constexpr (C == 0) return p.r;
  if constexpr (C == 1) return p.g;
  if constexpr (C == 2) return p.b;
  return _mm_setzero_si128();
}

// Eight pixels as 4-byte pixels in the layout's byte order, the unused byte 0.
template <YuvOut Out>
PIX95_SSE2 PIX95_INLINE void four_byte_pixels(const Rgb8x& p, __m128i& first, __m128i& second) {
  constexpr Order o = order<Out>();
  const __m128i p02 = _mm_packus_epi16(channel<o.b0>(p), channel<o.b2>(p));
  const __m128i p13 = _mm_packus_epi16(channel<o.b1>(p), channel<o.b3>(p));
  const __m128i w01 = _mm_unpacklo_epi8(p02, p13);
  const __m128i w23 = _mm_unpackhi_epi8(p02, p13);
  first = _mm_unpacklo_epi16(w01, w23);
  second = _mm_unpackhi_epi16(w01, w23);
}

// The 32-bit layouts read the destination to keep its unused bytes.  Those
// loads wait on cache misses that plain stores would not, so the destination
// is fetched this far ahead (in pairs: 1 KiB), never past the run.
constexpr std::size_t kFetchAhead = 128;

template <YuvOut Out>
PIX95_SSE2 void to32_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m128i keep = _mm_set1_epi32(unused_byte<Out>());
  std::size_t i = 0;
  for (; i + 4 <= pairs; i += 4, src += 16, dst += 32) {
    if (i + kFetchAhead + 4 <= pairs) _mm_prefetch(reinterpret_cast<const char*>(dst + 8 * kFetchAhead), _MM_HINT_T0);
    __m128i a, b;
    four_byte_pixels<Out>(decode(load(src)), a, b);
    store(dst, _mm_or_si128(a, _mm_and_si128(load(dst), keep)));
    store(dst + 16, _mm_or_si128(b, _mm_and_si128(load(dst + 16), keep)));
  }
  rest(Out, src, dst, pairs - i);
}

// Four 4-byte pixels whose fourth byte is 0, as 12 bytes followed by zeros.
PIX95_SSE2 PIX95_INLINE __m128i squeeze(__m128i x) {
  // Within each 64-bit half: p0 | p1 << 24.
  const __m128i q = _mm_or_si128(_mm_and_si128(x, _mm_set_epi32(0, -1, 0, -1)),
                                 _mm_slli_epi64(_mm_srli_epi64(x, 32), 24));
  return _mm_or_si128(_mm_move_epi64(q), _mm_slli_si128(_mm_srli_si128(q, 8), 6));
}

template <YuvOut Out>
PIX95_SSE2 void to24_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 48) {
    __m128i a, b, c, d;
    four_byte_pixels<Out>(decode(load(src)), a, b);
    four_byte_pixels<Out>(decode(load(src + 16)), c, d);
    a = squeeze(a), b = squeeze(b), c = squeeze(c), d = squeeze(d);
    store(dst, _mm_or_si128(a, _mm_slli_si128(b, 12)));
    store(dst + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
    store(dst + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
  }
  rest(Out, src, dst, pairs - i);
}

// The two bytes of 16-bit words from clamped 8-bit channels (any vector
// width: the shifts are 16-bit, the masks drop what crosses a byte).
template <YuvOut Out>
PIX95_SSE2 PIX95_INLINE void words(__m128i r, __m128i g, __m128i b, __m128i& low, __m128i& high) {
  const __m128i blue = _mm_and_si128(_mm_srli_epi16(b, 3), _mm_set1_epi8(0x1F));
  if constexpr (Out == YuvOut::rgb16) {
    high = _mm_or_si128(_mm_and_si128(r, _mm_set1_epi8(static_cast<char>(0xF8))),
                        _mm_and_si128(_mm_srli_epi16(g, 5), _mm_set1_epi8(0x07)));
    low = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(g, 3), _mm_set1_epi8(static_cast<char>(0xE0))), blue);
  } else {
    high = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(r, 1), _mm_set1_epi8(0x7C)),
                        _mm_and_si128(_mm_srli_epi16(g, 6), _mm_set1_epi8(0x03)));
    low = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(g, 2), _mm_set1_epi8(static_cast<char>(0xE0))), blue);
  }
}

template <YuvOut Out>
PIX95_SSE2 void to16_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 32) {
    const Rgb8x p = decode(load(src)), q = decode(load(src + 16));
    __m128i low, high;
    words<Out>(_mm_packus_epi16(p.r, q.r), _mm_packus_epi16(p.g, q.g), _mm_packus_epi16(p.b, q.b), low, high);
    store(dst, _mm_unpacklo_epi8(low, high));
    store(dst + 16, _mm_unpackhi_epi8(low, high));
  }
  rest(Out, src, dst, pairs - i);
}

PIX95_SSE2 void to_y8_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m128i luma = _mm_set1_epi16(0x00FF);
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 16) {
    store(dst, _mm_packus_epi16(_mm_and_si128(load(src), luma), _mm_and_si128(load(src + 16), luma)));
  }
  rest(YuvOut::y8, src, dst, pairs - i);
}

// --- encoder ---------------------------------------------------------------

// Y, U - 128 and V - 128 of four pixels, one per 32-bit lane.
struct Yuv4x {
  __m128i y, u, v;
};

PIX95_SSE2 PIX95_INLINE __m128i dot(__m128i a, __m128i c, Dot k) {
  return _mm_srai_epi32(
      _mm_add_epi32(_mm_madd_epi16(a, _mm_set1_epi32(k.a)), _mm_madd_epi16(c, _mm_set1_epi32(k.c))), 10);
}

template <RgbIn In>
PIX95_SSE2 PIX95_INLINE Yuv4x components(__m128i px) {
  constexpr EncoderCoefs k = encoder_coefs<In>();
  const __m128i a = _mm_and_si128(px, _mm_set1_epi16(0x00FF));
  const __m128i c = _mm_srli_epi16(px, 8);
  return {dot(a, c, k.y), dot(a, c, k.u), dot(a, c, k.v)};
}

// Pixels 0-3 and 4-7 to four pairs Y0 U Y1 V.
PIX95_SSE2 PIX95_INLINE __m128i yuv_pairs(const Yuv4x& p, const Yuv4x& q) {
  const __m128i y = _mm_packs_epi32(p.y, q.y);
  const __m128i u = _mm_packs_epi32(p.u, q.u);
  const __m128i v = _mm_packs_epi32(p.v, q.v);
  const __m128i u_sums = _mm_add_epi16(u, _mm_srli_epi32(u, 16));  // lower halves: u0 + u1
  const __m128i v_sums = _mm_add_epi16(v, _mm_slli_epi32(v, 16));  // upper halves: v0 + v1
  const __m128i lower = _mm_set1_epi32(0xFFFF);
  const __m128i sums = _mm_or_si128(_mm_and_si128(u_sums, lower), _mm_andnot_si128(lower, v_sums));
  const __m128i chroma = _mm_srli_epi16(_mm_add_epi16(sums, _mm_set1_epi16(256)), 1);
  return _mm_or_si128(y, _mm_slli_epi16(chroma, 8));
}

// Four 3-byte pixels starting `Off` bytes into `v`, as 4-byte pixels (the
// fourth byte is whatever follows).
template <int Off>
PIX95_SSE2 PIX95_INLINE __m128i widen24(__m128i v) {
  return _mm_unpacklo_epi64(_mm_unpacklo_epi32(_mm_srli_si128(v, Off), _mm_srli_si128(v, Off + 3)),
                            _mm_unpacklo_epi32(_mm_srli_si128(v, Off + 6), _mm_srli_si128(v, Off + 9)));
}

template <RgbIn In>
PIX95_SSE2 void encode_sse2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  if constexpr (In == RgbIn::y8) {
    const __m128i neutral = _mm_set1_epi8(static_cast<char>(128));
    for (; i + 8 <= pairs; i += 8, src += 16, dst += 32) {
      const __m128i g = load(src);
      store(dst, _mm_unpacklo_epi8(g, neutral));
      store(dst + 16, _mm_unpackhi_epi8(g, neutral));
    }
  } else if constexpr (In == RgbIn::rgb24 || In == RgbIn::bgr24) {
    for (; i + 4 <= pairs; i += 4, src += 24, dst += 16) {
      // Bytes 0-15 hold pixels 0-3, bytes 8-23 pixels 4-7 from offset 4.
      store(dst, yuv_pairs(components<In>(widen24<0>(load(src))), components<In>(widen24<4>(load(src + 8)))));
    }
  } else {
    for (; i + 4 <= pairs; i += 4, src += 32, dst += 16) {
      store(dst, yuv_pairs(components<In>(load(src)), components<In>(load(src + 16))));
    }
  }
  rest(In, src, dst, pairs - i);
}

// ===========================================================================
// AVX2: 8 or 16 pairs per step; the rest goes to the SSE2 body.

PIX95_AVX2 PIX95_INLINE __m256i load256(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
PIX95_AVX2 PIX95_INLINE void store256(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
// 16 bytes at `lo` in the lower lane, 16 at `hi` in the upper.
PIX95_AVX2 PIX95_INLINE __m256i load_lanes(const uint8_t* lo, const uint8_t* hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lo))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi)), 1);
}
// 64-bit quarters 0 2 1 3: in-lane unpacking then yields consecutive pixels.
PIX95_AVX2 PIX95_INLINE __m256i interleave_quarters(__m256i v) {
  return _mm256_permute4x64_epi64(v, _MM_SHUFFLE(3, 1, 2, 0));
}

struct Rgb16x {
  __m256i r, g, b;
};

PIX95_AVX2 PIX95_INLINE Rgb16x decode(__m256i s) {
  const __m256i y = _mm256_and_si256(s, _mm256_set1_epi16(0x00FF));
  const __m256i uv = _mm256_sub_epi16(_mm256_and_si256(_mm256_srli_epi16(s, 2), _mm256_set1_epi16(0x3FC0)),
                                      _mm256_set1_epi16(0x2000));
  const __m256i upper = _mm256_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15,  //
                                         2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15);
  return {_mm256_add_epi16(y, _mm256_shuffle_epi8(_mm256_madd_epi16(uv, _mm256_set1_epi32(kTermR)), upper)),
          _mm256_add_epi16(y, _mm256_shuffle_epi8(_mm256_madd_epi16(uv, _mm256_set1_epi32(kTermG)), upper)),
          _mm256_add_epi16(y, _mm256_shuffle_epi8(_mm256_madd_epi16(uv, _mm256_set1_epi32(kTermB)), upper))};
}

template <int C>
PIX95_AVX2 PIX95_INLINE __m256i channel(const Rgb16x& p) {
  if constexpr (C == 0) return p.r;
  if constexpr (C == 1) return p.g;
  if constexpr (C == 2) return p.b;
  return _mm256_setzero_si256();
}

// 16 pixels decoded from quarters 0 2 1 3 of 8 pairs, as 4-byte pixels
// 0-7 and 8-15.
template <YuvOut Out>
PIX95_AVX2 PIX95_INLINE void four_byte_pixels(const Rgb16x& p, __m256i& first, __m256i& second) {
  constexpr Order o = order<Out>();
  const __m256i p02 = _mm256_packus_epi16(channel<o.b0>(p), channel<o.b2>(p));
  const __m256i p13 = _mm256_packus_epi16(channel<o.b1>(p), channel<o.b3>(p));
  const __m256i w01 = _mm256_unpacklo_epi8(p02, p13);
  const __m256i w23 = _mm256_unpackhi_epi8(p02, p13);
  first = _mm256_unpacklo_epi16(w01, w23);
  second = _mm256_unpackhi_epi16(w01, w23);
}

template <YuvOut Out>
PIX95_AVX2 void to32_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m256i keep = _mm256_set1_epi32(unused_byte<Out>());
  std::size_t i = 0;
  for (; i + 8 <= pairs; i += 8, src += 32, dst += 64) {
    if (i + kFetchAhead + 8 <= pairs) _mm_prefetch(reinterpret_cast<const char*>(dst + 8 * kFetchAhead), _MM_HINT_T0);
    __m256i a, b;
    four_byte_pixels<Out>(decode(interleave_quarters(load256(src))), a, b);
    store256(dst, _mm256_blendv_epi8(a, load256(dst), keep));
    store256(dst + 32, _mm256_blendv_epi8(b, load256(dst + 32), keep));
  }
  to32_sse2<Out>(src, dst, pairs - i);
}

template <YuvOut Out>
PIX95_AVX2 void to24_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  // Each lane's four pixels to 12 bytes (dwords 0-2 of the lane) ...
  const __m256i squeeze = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                           0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  // ... whose dwords 0 1 2 4 5 6 are moved to where the three stores of 32
  // bytes take them from: a's six, b's first two | b's last four, c's first
  // four | c's last two, d's six.
  const __m256i to_a = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0);
  const __m256i to_b = _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 1);
  const __m256i to_c = _mm256_setr_epi32(5, 6, 0, 0, 0, 1, 2, 4);
  const __m256i to_d = _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6);
  std::size_t i = 0;
  for (; i + 16 <= pairs; i += 16, src += 64, dst += 96) {
    __m256i a, b, c, d;
    four_byte_pixels<Out>(decode(interleave_quarters(load256(src))), a, b);
    four_byte_pixels<Out>(decode(interleave_quarters(load256(src + 32))), c, d);
    a = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(a, squeeze), to_a);
    b = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(b, squeeze), to_b);
    c = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(c, squeeze), to_c);
    d = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(d, squeeze), to_d);
    store256(dst, _mm256_blend_epi32(a, b, 0xC0));
    store256(dst + 32, _mm256_blend_epi32(b, c, 0xF0));
    store256(dst + 64, _mm256_blend_epi32(c, d, 0xFC));
  }
  to24_sse2<Out>(src, dst, pairs - i);
}

template <YuvOut Out>
PIX95_AVX2 PIX95_INLINE void words(__m256i r, __m256i g, __m256i b, __m256i& low, __m256i& high) {
  const __m256i blue = _mm256_and_si256(_mm256_srli_epi16(b, 3), _mm256_set1_epi8(0x1F));
  if constexpr (Out == YuvOut::rgb16) {
    high = _mm256_or_si256(_mm256_and_si256(r, _mm256_set1_epi8(static_cast<char>(0xF8))),
                           _mm256_and_si256(_mm256_srli_epi16(g, 5), _mm256_set1_epi8(0x07)));
    low = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(g, 3), _mm256_set1_epi8(static_cast<char>(0xE0))), blue);
  } else {
    high = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(r, 1), _mm256_set1_epi8(0x7C)),
                           _mm256_and_si256(_mm256_srli_epi16(g, 6), _mm256_set1_epi8(0x03)));
    low = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(g, 2), _mm256_set1_epi8(static_cast<char>(0xE0))), blue);
  }
}

template <YuvOut Out>
PIX95_AVX2 void to16_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  for (; i + 16 <= pairs; i += 16, src += 64, dst += 64) {
    // Packing two runs of 16 pixels lane by lane and unpacking lane by lane
    // again leaves pixels 0-15 in the first result and 16-31 in the second.
    const Rgb16x p = decode(load256(src)), q = decode(load256(src + 32));
    __m256i low, high;
    words<Out>(_mm256_packus_epi16(p.r, q.r), _mm256_packus_epi16(p.g, q.g), _mm256_packus_epi16(p.b, q.b), low,
               high);
    store256(dst, _mm256_unpacklo_epi8(low, high));
    store256(dst + 32, _mm256_unpackhi_epi8(low, high));
  }
  to16_sse2<Out>(src, dst, pairs - i);
}

// Memory-bound: a whole cache line out a step, from two of the source, in
// 256-bit accesses.  Kept at this width on AVX-512 machines too: 512-bit
// loads and stores measured 4-8% slower on a 1920x1080 frame.
PIX95_AVX2 PIX95_INLINE __m256i luma_of_16_pairs(const uint8_t* s, __m256i luma) {
  return interleave_quarters(
      _mm256_packus_epi16(_mm256_and_si256(load256(s), luma), _mm256_and_si256(load256(s + 32), luma)));
}

PIX95_AVX2 void to_y8_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  const __m256i luma = _mm256_set1_epi16(0x00FF);
  std::size_t i = 0;
  for (; i + 32 <= pairs; i += 32, src += 128, dst += 64) {
    const __m256i low = luma_of_16_pairs(src, luma), high = luma_of_16_pairs(src + 64, luma);
    store256(dst, low);
    store256(dst + 32, high);
  }
  if (i + 16 <= pairs) {
    store256(dst, luma_of_16_pairs(src, luma));
    i += 16, src += 64, dst += 32;
  }
  to_y8_sse2(src, dst, pairs - i);
}

// --- encoder ---------------------------------------------------------------

struct Yuv8x {
  __m256i y, u, v;
};

PIX95_AVX2 PIX95_INLINE __m256i dot(__m256i a, __m256i c, Dot k) {
  return _mm256_srai_epi32(
      _mm256_add_epi32(_mm256_madd_epi16(a, _mm256_set1_epi32(k.a)), _mm256_madd_epi16(c, _mm256_set1_epi32(k.c))),
      10);
}

template <RgbIn In>
PIX95_AVX2 PIX95_INLINE Yuv8x components(__m256i px) {
  constexpr EncoderCoefs k = encoder_coefs<In>();
  const __m256i a = _mm256_and_si256(px, _mm256_set1_epi16(0x00FF));
  const __m256i c = _mm256_srli_epi16(px, 8);
  return {dot(a, c, k.y), dot(a, c, k.u), dot(a, c, k.v)};
}

// Pixels 0-3 | 8-11 and 4-7 | 12-15 to eight pairs Y0 U Y1 V.
PIX95_AVX2 PIX95_INLINE __m256i yuv_pairs(const Yuv8x& p, const Yuv8x& q) {
  const __m256i y = _mm256_packs_epi32(p.y, q.y);
  const __m256i u = _mm256_packs_epi32(p.u, q.u);
  const __m256i v = _mm256_packs_epi32(p.v, q.v);
  const __m256i sums = _mm256_blend_epi16(_mm256_add_epi16(u, _mm256_srli_epi32(u, 16)),
                                          _mm256_add_epi16(v, _mm256_slli_epi32(v, 16)), 0xAA);
  const __m256i chroma = _mm256_srli_epi16(_mm256_add_epi16(sums, _mm256_set1_epi16(256)), 1);
  return _mm256_or_si256(y, _mm256_slli_epi16(chroma, 8));
}

template <RgbIn In>
PIX95_AVX2 void encode_avx2(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  if constexpr (In == RgbIn::y8) {
    const __m256i neutral = _mm256_set1_epi8(static_cast<char>(128));
    for (; i + 16 <= pairs; i += 16, src += 32, dst += 64) {
      const __m256i g = interleave_quarters(load256(src));
      store256(dst, _mm256_unpacklo_epi8(g, neutral));
      store256(dst + 32, _mm256_unpackhi_epi8(g, neutral));
    }
  } else if constexpr (In == RgbIn::rgb24 || In == RgbIn::bgr24) {
    // Pixels 0-3 and 8-11 from the start of 16 bytes, 4-7 and 12-15 from
    // offset 4 of 16 bytes that end with them: no byte past the 48.
    const __m256i at0 = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                         0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m256i at4 = _mm256_setr_epi8(4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1,  //
                                         4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
    for (; i + 8 <= pairs; i += 8, src += 48, dst += 32) {
      const __m256i p = _mm256_shuffle_epi8(load_lanes(src, src + 24), at0);
      const __m256i q = _mm256_shuffle_epi8(load_lanes(src + 8, src + 32), at4);
      store256(dst, yuv_pairs(components<In>(p), components<In>(q)));
    }
  } else {
    for (; i + 8 <= pairs; i += 8, src += 64, dst += 32) {
      store256(dst, yuv_pairs(components<In>(load_lanes(src, src + 32)), components<In>(load_lanes(src + 16, src + 48))));
    }
  }
  encode_sse2<In>(src, dst, pairs - i);
}


// ===========================================================================
// AVX-512 (F, BW, VL): 16 or 32 pairs per step; the rest goes to the AVX2 body.

PIX95_AVX512 PIX95_INLINE __m512i load512(const uint8_t* p) { return _mm512_loadu_si512(p); }
PIX95_AVX512 PIX95_INLINE void store512(uint8_t* p, __m512i v) { _mm512_storeu_si512(p, v); }
// 64-bit eighths 0 4 1 5 2 6 3 7: in-lane unpacking then yields pixels in
// order, the first half of the run in one result and the second in the other.
PIX95_AVX512 PIX95_INLINE __m512i interleave_eighths(__m512i v) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), v);
}

struct Rgb32x {
  __m512i r, g, b;
};

PIX95_AVX512 PIX95_INLINE Rgb32x decode(__m512i s) {
  const __m512i y = _mm512_and_si512(s, _mm512_set1_epi16(0x00FF));
  const __m512i uv = _mm512_sub_epi16(_mm512_and_si512(_mm512_srli_epi16(s, 2), _mm512_set1_epi16(0x3FC0)),
                                      _mm512_set1_epi16(0x2000));
  const __m512i upper =
      _mm512_broadcast_i32x4(_mm_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15));
  return {_mm512_add_epi16(y, _mm512_shuffle_epi8(_mm512_madd_epi16(uv, _mm512_set1_epi32(kTermR)), upper)),
          _mm512_add_epi16(y, _mm512_shuffle_epi8(_mm512_madd_epi16(uv, _mm512_set1_epi32(kTermG)), upper)),
          _mm512_add_epi16(y, _mm512_shuffle_epi8(_mm512_madd_epi16(uv, _mm512_set1_epi32(kTermB)), upper))};
}

template <int C>
PIX95_AVX512 PIX95_INLINE __m512i channel(const Rgb32x& p) {
  if constexpr (C == 0) return p.r;
  if constexpr (C == 1) return p.g;
  if constexpr (C == 2) return p.b;
  return _mm512_setzero_si512();
}

// 32 pixels decoded from eighths 0 4 1 5 2 6 3 7 of 16 pairs, as 4-byte
// pixels 0-15 and 16-31.
template <YuvOut Out>
PIX95_AVX512 PIX95_INLINE void four_byte_pixels(const Rgb32x& p, __m512i& first, __m512i& second) {
  constexpr Order o = order<Out>();
  const __m512i p02 = _mm512_packus_epi16(channel<o.b0>(p), channel<o.b2>(p));
  const __m512i p13 = _mm512_packus_epi16(channel<o.b1>(p), channel<o.b3>(p));
  const __m512i w01 = _mm512_unpacklo_epi8(p02, p13);
  const __m512i w23 = _mm512_unpackhi_epi8(p02, p13);
  first = _mm512_unpacklo_epi16(w01, w23);
  second = _mm512_unpackhi_epi16(w01, w23);
}

// The colour bytes of 4-byte pixels, as a store mask: the unused byte is
// left alone by the store itself, so the destination is never read.
template <YuvOut Out>
constexpr __mmask64 colour_bytes() {
  return order<Out>().b0 == 3 ? 0xEEEEEEEEEEEEEEEEull : 0x7777777777777777ull;
}

template <YuvOut Out>
PIX95_AVX512 void to32_avx512(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  constexpr __mmask64 colour = colour_bytes<Out>();
  std::size_t i = 0;
  for (; i + 16 <= pairs; i += 16, src += 64, dst += 128) {
    __m512i a, b;
    four_byte_pixels<Out>(decode(interleave_eighths(load512(src))), a, b);
    _mm512_mask_storeu_epi8(dst, colour, a);
    _mm512_mask_storeu_epi8(dst + 64, colour, b);
  }
  to32_avx2<Out>(src, dst, pairs - i);
}

template <YuvOut Out>
PIX95_AVX512 void to24_avx512(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  // Each lane's four pixels to 12 bytes (dwords 0-2 of the lane, dword 3
  // spare); the three stores of 64 bytes then take their dwords from two of
  // the four results each.
  const __m512i squeeze =
      _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m512i ab = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20);
  const __m512i bc = _mm512_setr_epi32(5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25);
  const __m512i cd = _mm512_setr_epi32(10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25, 26, 28, 29, 30);
  std::size_t i = 0;
  for (; i + 32 <= pairs; i += 32, src += 128, dst += 192) {
    __m512i a, b, c, d;
    four_byte_pixels<Out>(decode(interleave_eighths(load512(src))), a, b);
    four_byte_pixels<Out>(decode(interleave_eighths(load512(src + 64))), c, d);
    a = _mm512_shuffle_epi8(a, squeeze), b = _mm512_shuffle_epi8(b, squeeze);
    c = _mm512_shuffle_epi8(c, squeeze), d = _mm512_shuffle_epi8(d, squeeze);
    store512(dst, _mm512_permutex2var_epi32(a, ab, b));
    store512(dst + 64, _mm512_permutex2var_epi32(b, bc, c));
    store512(dst + 128, _mm512_permutex2var_epi32(c, cd, d));
  }
  to24_avx2<Out>(src, dst, pairs - i);
}

// --- encoder ---------------------------------------------------------------

struct Yuv16x {
  __m512i y, u, v;
};

PIX95_AVX512 PIX95_INLINE __m512i dot(__m512i a, __m512i c, Dot k) {
  return _mm512_srai_epi32(
      _mm512_add_epi32(_mm512_madd_epi16(a, _mm512_set1_epi32(k.a)), _mm512_madd_epi16(c, _mm512_set1_epi32(k.c))),
      10);
}

template <RgbIn In>
PIX95_AVX512 PIX95_INLINE Yuv16x components(__m512i px) {
  constexpr EncoderCoefs k = encoder_coefs<In>();
  const __m512i a = _mm512_and_si512(px, _mm512_set1_epi16(0x00FF));
  const __m512i c = _mm512_srli_epi16(px, 8);
  return {dot(a, c, k.y), dot(a, c, k.u), dot(a, c, k.v)};
}

// Lane k of `p` holding pixels 8k to 8k + 3 and of `q` pixels 8k + 4 to
// 8k + 7: sixteen pairs Y0 U Y1 V in order.
PIX95_AVX512 PIX95_INLINE __m512i yuv_pairs(const Yuv16x& p, const Yuv16x& q) {
  const __m512i y = _mm512_packs_epi32(p.y, q.y);
  const __m512i u = _mm512_packs_epi32(p.u, q.u);
  const __m512i v = _mm512_packs_epi32(p.v, q.v);
  const __m512i sums = _mm512_mask_blend_epi16(0xAAAAAAAA, _mm512_add_epi16(u, _mm512_srli_epi32(u, 16)),
                                               _mm512_add_epi16(v, _mm512_slli_epi32(v, 16)));
  const __m512i chroma = _mm512_srli_epi16(_mm512_add_epi16(sums, _mm512_set1_epi16(256)), 1);
  return _mm512_or_si512(y, _mm512_slli_epi16(chroma, 8));
}

template <RgbIn In>
PIX95_AVX512 void encode_avx512(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  std::size_t i = 0;
  if constexpr (In == RgbIn::y8) {
    const __m512i neutral = _mm512_set1_epi8(static_cast<char>(128));
    for (; i + 32 <= pairs; i += 32, src += 64, dst += 128) {
      const __m512i g = interleave_eighths(load512(src));
      store512(dst, _mm512_unpacklo_epi8(g, neutral));
      store512(dst + 64, _mm512_unpackhi_epi8(g, neutral));
    }
  } else if constexpr (In == RgbIn::rgb24 || In == RgbIn::bgr24) {
    // 96 bytes as dwords 0-23: lane k of p takes dwords 6k to 6k + 2 (pixels
    // 8k to 8k + 3), of q dwords 6k + 3 to 6k + 5; each lane's 12 bytes are
    // then spread to four 4-byte pixels.  The second load is 32 bytes: no
    // byte past the 96 is read.
    const __m512i p_dwords = _mm512_setr_epi32(0, 1, 2, 0, 6, 7, 8, 0, 12, 13, 14, 0, 18, 19, 20, 0);
    const __m512i q_dwords = _mm512_setr_epi32(3, 4, 5, 0, 9, 10, 11, 0, 15, 16, 17, 0, 21, 22, 23, 0);
    const __m512i spread =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
    for (; i + 16 <= pairs; i += 16, src += 96, dst += 64) {
      const __m512i lo = load512(src);
      const __m512i hi = _mm512_zextsi256_si512(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 64)));
      const __m512i p = _mm512_shuffle_epi8(_mm512_permutex2var_epi32(lo, p_dwords, hi), spread);
      const __m512i q = _mm512_shuffle_epi8(_mm512_permutex2var_epi32(lo, q_dwords, hi), spread);
      store512(dst, yuv_pairs(components<In>(p), components<In>(q)));
    }
  } else {
    for (; i + 16 <= pairs; i += 16, src += 128, dst += 64) {
      // Lanes 0 2 of each 64 bytes hold pixels 8k to 8k + 3, lanes 1 3 the
      // four after them.
      const __m512i lo = load512(src), hi = load512(src + 64);
      const __m512i p = _mm512_shuffle_i32x4(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
      const __m512i q = _mm512_shuffle_i32x4(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
      store512(dst, yuv_pairs(components<In>(p), components<In>(q)));
    }
  }
  encode_avx2<In>(src, dst, pairs - i);
}

}  // namespace

YuvRow yuv422_row_simd(YuvOut out, simd::Level level) noexcept {
  if (!simd::supports(level)) return nullptr;
  if (level == simd::Level::sse2) {
    switch (out) {
      case YuvOut::rgbx32: return to32_sse2<YuvOut::rgbx32>;
      case YuvOut::bgrx32: return to32_sse2<YuvOut::bgrx32>;
      case YuvOut::xbgr32: return to32_sse2<YuvOut::xbgr32>;
      case YuvOut::xrgb32: return to32_sse2<YuvOut::xrgb32>;
      case YuvOut::rgb24: return to24_sse2<YuvOut::rgb24>;
      case YuvOut::bgr24: return to24_sse2<YuvOut::bgr24>;
      case YuvOut::rgb16: return to16_sse2<YuvOut::rgb16>;
      case YuvOut::rgb15: return to16_sse2<YuvOut::rgb15>;
      case YuvOut::y8: return to_y8_sse2;
    }
  }
  if (level == simd::Level::avx2) {
    switch (out) {
      case YuvOut::rgbx32: return to32_avx2<YuvOut::rgbx32>;
      case YuvOut::bgrx32: return to32_avx2<YuvOut::bgrx32>;
      case YuvOut::xbgr32: return to32_avx2<YuvOut::xbgr32>;
      case YuvOut::xrgb32: return to32_avx2<YuvOut::xrgb32>;
      case YuvOut::rgb24: return to24_avx2<YuvOut::rgb24>;
      case YuvOut::bgr24: return to24_avx2<YuvOut::bgr24>;
      case YuvOut::rgb16: return to16_avx2<YuvOut::rgb16>;
      case YuvOut::rgb15: return to16_avx2<YuvOut::rgb15>;
      case YuvOut::y8: return to_y8_avx2;
    }
  }
  if (level == simd::Level::avx512) {
    switch (out) {
      case YuvOut::rgbx32: return to32_avx512<YuvOut::rgbx32>;
      case YuvOut::bgrx32: return to32_avx512<YuvOut::bgrx32>;
      case YuvOut::xbgr32: return to32_avx512<YuvOut::xbgr32>;
      case YuvOut::xrgb32: return to32_avx512<YuvOut::xrgb32>;
      case YuvOut::rgb24: return to24_avx512<YuvOut::rgb24>;
      case YuvOut::bgr24: return to24_avx512<YuvOut::bgr24>;
      default: return nullptr;
    }
  }
  return nullptr;
}

EncodeRow encode_row_simd(RgbIn in, simd::Level level) noexcept {
  if (!simd::supports(level)) return nullptr;
  if (level == simd::Level::sse2) {
    switch (in) {
      case RgbIn::y8: return encode_sse2<RgbIn::y8>;
      case RgbIn::rgb24: return encode_sse2<RgbIn::rgb24>;
      case RgbIn::bgr24: return encode_sse2<RgbIn::bgr24>;
      case RgbIn::rgbx32: return encode_sse2<RgbIn::rgbx32>;
      case RgbIn::bgrx32: return encode_sse2<RgbIn::bgrx32>;
      case RgbIn::xbgr32: return encode_sse2<RgbIn::xbgr32>;
    }
  }
  if (level == simd::Level::avx2) {
    switch (in) {
      case RgbIn::y8: return encode_avx2<RgbIn::y8>;
      case RgbIn::rgb24: return encode_avx2<RgbIn::rgb24>;
      case RgbIn::bgr24: return encode_avx2<RgbIn::bgr24>;
      case RgbIn::rgbx32: return encode_avx2<RgbIn::rgbx32>;
      case RgbIn::bgrx32: return encode_avx2<RgbIn::bgrx32>;
      case RgbIn::xbgr32: return encode_avx2<RgbIn::xbgr32>;
    }
  }
  if (level == simd::Level::avx512) {
    switch (in) {
      case RgbIn::y8: return encode_avx512<RgbIn::y8>;
      case RgbIn::rgb24: return encode_avx512<RgbIn::rgb24>;
      case RgbIn::bgr24: return encode_avx512<RgbIn::bgr24>;
      case RgbIn::rgbx32: return encode_avx512<RgbIn::rgbx32>;
      case RgbIn::bgrx32: return encode_avx512<RgbIn::bgrx32>;
      case RgbIn::xbgr32: return encode_avx512<RgbIn::xbgr32>;
    }
  }
  return nullptr;
}

#else  // no x86 SIMD on this target

YuvRow yuv422_row_simd(YuvOut, simd::Level) noexcept { return nullptr; }
EncodeRow encode_row_simd(RgbIn, simd::Level) noexcept { return nullptr; }

#endif

}  // namespace pix::convert::kernels
