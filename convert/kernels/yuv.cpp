// Scalar row kernels of the YUV 4:2:2 converters, and the choice of the
// fastest kernel this processor runs.
#include "yuv.h"

#include "convert/pixel_math.h"

namespace pix::convert::kernels {
namespace {

// Layouts in enum order, from 0.
constexpr std::size_t kYuvLayouts = static_cast<std::size_t>(YuvOut::y8) + 1;
constexpr std::size_t kRgbLayouts = static_cast<std::size_t>(RgbIn::xbgr32) + 1;

// ---------------------------------------------------------------------------
// Decoding: one pair's chroma terms are shared by both of its pixels.

template <YuvOut L>
constexpr std::size_t out_bytes() {
  switch (L) {
    case YuvOut::rgb24:
    case YuvOut::bgr24: return 3;
    case YuvOut::rgb16:
    case YuvOut::rgb15: return 2;
    case YuvOut::y8: return 1;
    default: return 4;
  }
}

template <YuvOut L>
inline void put(uint8_t* d, const Rgb& p) {
  if constexpr (L == YuvOut::rgbx32 || L == YuvOut::rgb24) {
    d[0] = p.r, d[1] = p.g, d[2] = p.b;
  } else if constexpr (L == YuvOut::bgrx32 || L == YuvOut::bgr24) {
    d[0] = p.b, d[1] = p.g, d[2] = p.r;
  } else if constexpr (L == YuvOut::xbgr32) {
    d[1] = p.b, d[2] = p.g, d[3] = p.r;
  } else if constexpr (L == YuvOut::xrgb32) {
    d[1] = p.r, d[2] = p.g, d[3] = p.b;
  } else {
    // 16-bit words are little-endian whatever the host.
    const uint16_t w = L == YuvOut::rgb16 ? pack_rgb16(p.r, p.g, p.b) : pack_rgb15(p.r, p.g, p.b);
    d[0] = static_cast<uint8_t>(w), d[1] = static_cast<uint8_t>(w >> 8);
  }
}

template <YuvOut L>
void decode(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pairs) {
  constexpr std::size_t n = out_bytes<L>();
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 2 * n) {
    if constexpr (L == YuvOut::y8) {
      dst[0] = src[0], dst[1] = src[2];
    } else {
      const Chroma c = chroma_terms(src[1], src[3]);
      put<L>(dst, yuv_pixel(src[0], c));
      put<L>(dst + n, yuv_pixel(src[2], c));
    }
  }
}

// ---------------------------------------------------------------------------
// Encoding: each pixel to YUV, then the pair's chroma is the truncated mean.

struct Offsets {
  std::size_t r, g, b, bytes;
};
template <RgbIn L>
constexpr Offsets offsets() {
  switch (L) {
    case RgbIn::y8: return {0, 0, 0, 1};
    case RgbIn::rgb24: return {0, 1, 2, 3};
    case RgbIn::bgr24: return {2, 1, 0, 3};
    case RgbIn::rgbx32: return {0, 1, 2, 4};
    case RgbIn::bgrx32: return {2, 1, 0, 4};
    case RgbIn::xbgr32: return {3, 2, 1, 4};
  }
  return {0, 0, 0, 1};
}

template <RgbIn L>
void encode(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pairs) {
  constexpr Offsets o = offsets<L>();
  for (std::size_t i = 0; i < pairs; ++i, src += 2 * o.bytes, dst += 4) {
    const Yuv a = rgb_to_yuv(src[o.r], src[o.g], src[o.b]);
    const Yuv b = rgb_to_yuv(src[o.bytes + o.r], src[o.bytes + o.g], src[o.bytes + o.b]);
    dst[0] = a.y;
    dst[1] = static_cast<uint8_t>((a.u + b.u) >> 1);
    dst[2] = b.y;
    dst[3] = static_cast<uint8_t>((a.v + b.v) >> 1);
  }
}

}  // namespace

YuvRow yuv422_row_scalar(YuvOut out) noexcept {
  switch (out) {
    case YuvOut::rgbx32: return decode<YuvOut::rgbx32>;
    case YuvOut::bgrx32: return decode<YuvOut::bgrx32>;
    case YuvOut::xbgr32: return decode<YuvOut::xbgr32>;
    case YuvOut::xrgb32: return decode<YuvOut::xrgb32>;
    case YuvOut::rgb24: return decode<YuvOut::rgb24>;
    case YuvOut::bgr24: return decode<YuvOut::bgr24>;
    case YuvOut::rgb16: return decode<YuvOut::rgb16>;
    case YuvOut::rgb15: return decode<YuvOut::rgb15>;
    case YuvOut::y8: return decode<YuvOut::y8>;
  }
  return nullptr;
}

EncodeRow encode_row_scalar(RgbIn in) noexcept {
  switch (in) {
    case RgbIn::y8: return encode<RgbIn::y8>;
    case RgbIn::rgb24: return encode<RgbIn::rgb24>;
    case RgbIn::bgr24: return encode<RgbIn::bgr24>;
    case RgbIn::rgbx32: return encode<RgbIn::rgbx32>;
    case RgbIn::bgrx32: return encode<RgbIn::bgrx32>;
    case RgbIn::xbgr32: return encode<RgbIn::xbgr32>;
  }
  return nullptr;
}

// The choice is made once, at the first conversion: the processor does not
// change under a running program.
YuvRow yuv422_row(YuvOut out) noexcept {
  static const auto chosen = simd::choose<YuvRow, kYuvLayouts>(
      [](std::size_t i, simd::Level l) { return yuv422_row_simd(static_cast<YuvOut>(i), l); },
      [](std::size_t i) { return yuv422_row_scalar(static_cast<YuvOut>(i)); });
  const auto i = static_cast<std::size_t>(out);
  return i < kYuvLayouts ? chosen[i] : nullptr;
}

EncodeRow encode_row(RgbIn in) noexcept {
  static const auto chosen = simd::choose<EncodeRow, kRgbLayouts>(
      [](std::size_t i, simd::Level l) { return encode_row_simd(static_cast<RgbIn>(i), l); },
      [](std::size_t i) { return encode_row_scalar(static_cast<RgbIn>(i)); });
  const auto i = static_cast<std::size_t>(in);
  return i < kRgbLayouts ? chosen[i] : nullptr;
}

}  // namespace pix::convert::kernels
