// Scalar kernels of the table-driven converters and the general lookup
// tables, the fill loops of the conversion tables, and the dispatch.
#include "tables.h"

#include <bit>
#include <cstring>

#include "convert/cmap.h"

namespace pix::convert::kernels {

// ---------------------------------------------------------------------------
// Filling
// ---------------------------------------------------------------------------

void fill_yuv19_table(uint8_t* table, bool rgb15) noexcept {
  for (uint32_t u = 0; u < 64; ++u) {
    for (uint32_t v = 0; v < 64; ++v) {
      const Chroma c = chroma_terms(static_cast<uint8_t>(u * 4), static_cast<uint8_t>(v * 4));
      const uint32_t chroma = (u << 6) | v;
      for (uint32_t y = 0; y < 128; ++y) {
        const Rgb p = yuv_pixel(static_cast<uint8_t>(y * 2), c);
        const uint16_t w = rgb15 ? pack_rgb15(p.r, p.g, p.b) : pack_rgb16(p.r, p.g, p.b);
        uint8_t* e = table + 2 * ((y << 12) | chroma);
        e[0] = static_cast<uint8_t>(w);
        e[1] = static_cast<uint8_t>(w >> 8);
      }
    }
  }
}

void fill_yuv15_paletted(uint8_t* table, const tPIX_Colour* map, uint32_t used) noexcept {
  for (uint32_t u = 0; u < 32; ++u) {
    for (uint32_t v = 0; v < 32; ++v) {
      const Chroma c = chroma_terms(static_cast<uint8_t>(u * 8), static_cast<uint8_t>(v * 8));
      for (uint32_t y = 0; y < 32; ++y) {
        const Rgb p = yuv_pixel(static_cast<uint8_t>(y * 8), c);
        table[(y << 10) | (u << 5) | v] = closest_colour(map, used, p.r, p.g, p.b);
      }
    }
  }
}

void fill_rgb16_paletted(uint8_t* table, const tPIX_Colour* map, uint32_t used) noexcept {
  for (uint32_t i = 0; i < 65536; ++i) {
    // Kept: red carries green's top bits and green blue's, unmasked.
    table[i] = closest_colour(map, used, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i >> 3),
                              static_cast<uint8_t>(i << 3));
  }
}

void fill_grey_paletted(uint8_t* table, std::size_t count, unsigned shift, const tPIX_Colour* map,
                        uint32_t used) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const auto g = static_cast<uint8_t>(i >> shift);
    table[i] = closest_colour(map, used, g, g, g);
  }
}

// ---------------------------------------------------------------------------
// Table-driven YUV 4:2:2 rows
// ---------------------------------------------------------------------------

namespace {

constexpr bool kLittleEndian = std::endian::native == std::endian::little;

inline uint32_t word_at(const uint8_t* table, uint32_t index) {
  uint16_t w;
  std::memcpy(&w, table + 2 * index, 2);
  if constexpr (!kLittleEndian) w = static_cast<uint16_t>((w >> 8) | (w << 8));
  return w;
}

// An RGB16 word expanded to R = w >> 8, G = (w >> 3) & 0xFF, B = (w << 3) &
// 0xFF at byte offsets Ro, Go, Bo of a little-endian word.  Kept: the
// expansion is unmasked, so R's low bits repeat green's top bits and G's low
// bits blue's; applications depend on these values.
template <int Ro, int Go, int Bo>
constexpr uint32_t expanded(uint32_t w) {
  return ((w >> 8) & 0xFF) << (8 * Ro) | ((w >> 3) & 0xFF) << (8 * Go) | ((w << 3) & 0xFF) << (8 * Bo);
}

// Byte offsets of R, G and B inside a pixel of `Bpp` bytes; the fourth byte
// of a 32-bit pixel is read and written back unchanged.
template <int Bpp, int Ro, int Go, int Bo>
void expand_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 2 * Bpp) {
    const uint32_t chroma = yuv19_chroma(src[1], src[3]);
    const uint32_t w0 = word_at(table, yuv19_index(src[0], chroma));
    const uint32_t w1 = word_at(table, yuv19_index(src[2], chroma));
    if constexpr (kLittleEndian && Bpp == 4) {
      constexpr uint32_t keep = ~((0xFFu << 8 * Ro) | (0xFFu << 8 * Go) | (0xFFu << 8 * Bo));
      uint32_t p[2];
      std::memcpy(p, dst, 8);
      p[0] = (p[0] & keep) | expanded<Ro, Go, Bo>(w0);
      p[1] = (p[1] & keep) | expanded<Ro, Go, Bo>(w1);
      std::memcpy(dst, p, 8);
    } else if constexpr (kLittleEndian && Bpp == 3) {
      const uint32_t p0 = expanded<Ro, Go, Bo>(w0), p1 = expanded<Ro, Go, Bo>(w1);
      const uint32_t lo = p0 | (p1 << 24);
      const auto hi = static_cast<uint16_t>(p1 >> 8);
      std::memcpy(dst, &lo, 4);
      std::memcpy(dst + 4, &hi, 2);
    } else {
      dst[Ro] = static_cast<uint8_t>(w0 >> 8);
      dst[Go] = static_cast<uint8_t>(w0 >> 3);
      dst[Bo] = static_cast<uint8_t>(w0 << 3);
      dst[Bpp + Ro] = static_cast<uint8_t>(w1 >> 8);
      dst[Bpp + Go] = static_cast<uint8_t>(w1 >> 3);
      dst[Bpp + Bo] = static_cast<uint8_t>(w1 << 3);
    }
  }
}

void word_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 4) {
    const uint32_t chroma = yuv19_chroma(src[1], src[3]);
    std::memcpy(dst, table + 2 * yuv19_index(src[0], chroma), 2);
    std::memcpy(dst + 2, table + 2 * yuv19_index(src[2], chroma), 2);
  }
}

void paletted_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint8_t* table) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 2) {
    const uint32_t chroma = yuv15_chroma(src[1], src[3]);
    dst[0] = table[yuv15_index(src[0], chroma)];
    dst[1] = table[yuv15_index(src[2], chroma)];
  }
}

}  // namespace

LutRow yuv_lut_row_scalar(LutOut out) noexcept {
  switch (out) {
    case LutOut::rgbx32: return expand_row<4, 0, 1, 2>;
    case LutOut::bgrx32: return expand_row<4, 2, 1, 0>;
    case LutOut::xbgr32: return expand_row<4, 3, 2, 1>;
    case LutOut::xrgb32: return expand_row<4, 1, 2, 3>;
    case LutOut::rgb24: return expand_row<3, 0, 1, 2>;
    case LutOut::bgr24: return expand_row<3, 2, 1, 0>;
    case LutOut::word16: return word_row;
    case LutOut::paletted: return paletted_row;
  }
  return nullptr;
}

LutRow yuv_lut_row(LutOut out) noexcept {
  constexpr std::size_t kLayouts = static_cast<std::size_t>(LutOut::paletted) + 1;
  static const auto chosen = simd::choose<LutRow, kLayouts>(
      [](std::size_t i, simd::Level l) { return yuv_lut_row_simd(static_cast<LutOut>(i), l); },
      [](std::size_t i) { return yuv_lut_row_scalar(static_cast<LutOut>(i)); });
  const auto i = static_cast<std::size_t>(out);
  return i < kLayouts ? chosen[i] : nullptr;
}

void paletted_from_bytes(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* table) noexcept {
  for (std::size_t i = 0; i < pixels; ++i) dst[i] = table[src[i]];
}

void paletted_from_words(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint8_t* table,
                         uint32_t mask) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 2) dst[i] = table[(src[0] | (src[1] << 8)) & mask];
}

// ---------------------------------------------------------------------------
// General lookup tables
// ---------------------------------------------------------------------------

void lut_y8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pixels; ++i) dst[i] = t.grey[src[i]];
}

void lut_rgb24(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 3, dst += 3) {
    dst[0] = t.red[src[0]];
    dst[1] = t.green[src[1]];
    dst[2] = t.blue[src[2]];
  }
}

void lut_rgb8(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint32_t b = src[i];
    const uint32_t red = t.red[b & 0xE0], green = t.green[(b & 0x1C) << 3], blue = t.blue[(b & 0x03) << 6];
    dst[i] = static_cast<uint8_t>((((blue >> 3) | (green & 0xE7)) >> 3) | (red & 0xE0));
  }
}

void lut_rgb15(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 2, dst += 2) {
    const uint32_t w = src[0] | (src[1] << 8);
    const uint32_t red = t.red[(w & 0x7C00) >> 7], green = t.green[(w & 0x03E0) >> 2], blue = t.blue[w & 0x1F];
    const uint32_t out = ((red & 0xF8) << 7) | ((green & 0xF8) << 2) | (blue >> 3);
    dst[0] = static_cast<uint8_t>(out);
    dst[1] = static_cast<uint8_t>(out >> 8);
  }
}

void lut_rgb16(const uint8_t* src, uint8_t* dst, std::size_t pixels, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 2, dst += 2) {
    const uint32_t w = src[0] | (src[1] << 8);
    const uint32_t red = t.red[(w & 0xF8FF) >> 8], green = t.green[(w & 0x07E0) >> 3], blue = t.blue[w & 0x1F];
    const uint32_t out = ((red & 0xF8) << 8) | ((green & 0xFC) << 3) | (blue >> 3);
    dst[0] = static_cast<uint8_t>(out);
    dst[1] = static_cast<uint8_t>(out >> 8);
  }
}

void lut_y16(const uint8_t* src, uint8_t* dst, std::size_t pixels, const uint16_t* grey) noexcept {
  for (std::size_t i = 0; i < pixels; ++i, src += 2, dst += 2) {
    const uint16_t out = grey[src[0] | (src[1] << 8)];
    dst[0] = static_cast<uint8_t>(out);
    dst[1] = static_cast<uint8_t>(out >> 8);
  }
}

void lut_yuv_grey(const uint8_t* src, uint8_t* dst, std::size_t pairs, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 4) {
    dst[0] = t.grey[src[0]];
    dst[1] = src[1];
    dst[2] = t.grey[src[2]];
    dst[3] = src[3];
  }
}

void lut_yuv_rgb(const uint8_t* src, uint8_t* dst, std::size_t pairs, const Tables8& t) noexcept {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 4) {
    const Chroma c = chroma_terms(src[1], src[3]);
    const Rgb a = yuv_pixel(src[0], c), b = yuv_pixel(src[2], c);
    const Yuv p = rgb_to_yuv(t.red[a.r], t.green[a.g], t.blue[a.b]);
    const Yuv q = rgb_to_yuv(t.red[b.r], t.green[b.g], t.blue[b.b]);
    dst[0] = p.y;
    dst[1] = static_cast<uint8_t>((p.u + q.u) >> 1);
    dst[2] = q.y;
    dst[3] = static_cast<uint8_t>((p.v + q.v) >> 1);
  }
}

}  // namespace pix::convert::kernels
