// Scalar row kernels of the direct-colour converters, and the choice of the
// fastest kernel this processor runs.
#include "direct.h"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "convert/pixel_math.h"

namespace pix::convert::kernels {
namespace {

// Pixels are little-endian words whatever the host: whole words are moved
// where the host agrees, which lets the compiler vectorise the loops.
inline uint32_t word(const uint8_t* p) {
  if constexpr (std::endian::native == std::endian::little) {
    uint16_t w;
    std::memcpy(&w, p, 2);
    return w;
  } else {
    return static_cast<uint32_t>(p[0] | (p[1] << 8));
  }
}
inline void put_word(uint8_t* p, uint32_t w) {
  if constexpr (std::endian::native == std::endian::little) {
    const auto v = static_cast<uint16_t>(w);
    std::memcpy(p, &v, 2);
  } else {
    p[0] = static_cast<uint8_t>(w), p[1] = static_cast<uint8_t>(w >> 8);
  }
}
inline uint32_t dword(const uint8_t* p) {
  if constexpr (std::endian::native == std::endian::little) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
  } else {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
  }
}
inline void put_dword(uint8_t* p, uint32_t v) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(p, &v, 4);
  } else {
    p[0] = static_cast<uint8_t>(v), p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16), p[3] = static_cast<uint8_t>(v >> 24);
  }
}

// Every source to 8-bit R, G, B first.  Grey sources give three equal
// channels, so their grey is the value itself.
template <Direct L>
inline Rgb load(const uint8_t* p, unsigned shift) {
  if constexpr (L == Direct::y8 || L == Direct::yuv422) {
    return {p[0], p[0], p[0]};
  } else if constexpr (L == Direct::y16) {
    const auto g = static_cast<uint8_t>(word(p) >> shift);
    return {g, g, g};
  } else if constexpr (L == Direct::rgb15) {
    return unpack_rgb15(static_cast<uint16_t>(word(p)));
  } else if constexpr (L == Direct::rgb16) {
    return unpack_rgb16(static_cast<uint16_t>(word(p)));
  } else if constexpr (direct_bytes(L) == 4) {
    constexpr Places at = places(L);
    const uint32_t v = dword(p);
    return {static_cast<uint8_t>(v >> (8 * at.r)), static_cast<uint8_t>(v >> (8 * at.g)),
            static_cast<uint8_t>(v >> (8 * at.b))};
  } else {
    constexpr Places at = places(L);
    return {p[at.r], p[at.g], p[at.b]};
  }
}

template <Direct L>
inline void store(uint8_t* p, const Rgb& c) {
  if constexpr (L == Direct::y8) {
    p[0] = grey(c.r, c.g, c.b);
  } else if constexpr (L == Direct::rgb15) {
    put_word(p, pack_rgb15(c.r, c.g, c.b));
  } else if constexpr (L == Direct::rgb16) {
    put_word(p, pack_rgb16(c.r, c.g, c.b));
  } else if constexpr (L == Direct::xrgb32) {
    p[1] = c.r, p[2] = c.g, p[3] = c.b;  // byte 0 keeps what the strip held
  } else if constexpr (direct_bytes(L) == 4) {
    constexpr Places at = places(L);
    put_dword(p, (uint32_t{c.r} << (8 * at.r)) | (uint32_t{c.g} << (8 * at.g)) | (uint32_t{c.b} << (8 * at.b)));
  } else {
    constexpr Places at = places(L);
    p[at.r] = c.r, p[at.g] = c.g, p[at.b] = c.b;
  }
}

template <Direct F, Direct T>
void convert(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels, unsigned shift) {
  constexpr std::size_t in = direct_bytes(F), out = direct_bytes(T);
  for (std::size_t i = 0; i < pixels; ++i) store<T>(dst + i * out, load<F>(src + i * in, shift));
}

// The pairs that do not go through 8-bit channels.

// Green's new low bit is 0; bit 15 of the source is dropped.
void rgb15_to_rgb16(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels, unsigned) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint32_t w = word(src + 2 * i);
    put_word(dst + 2 * i, ((w & 0xFFE0) << 1) | (w & 0x1F));
  }
}

// Kept: the mask keeps green's lowest bit, which the shift lands on blue's
// top bit; the outer function never takes this path, its worker has it.
void rgb16_to_rgb15(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels, unsigned) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint32_t w = word(src + 2 * i);
    put_word(dst + 2 * i, ((w & 0xFFE1) >> 1) | (w & 0x1F));
  }
}

// Kept: the mask 0x16 drops green's middle bit and lets blue's top bit into
// green; applications depend on these exact words.
void rgb8_to_rgb16(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels, unsigned) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint32_t b = src[i];
    put_word(dst + 2 * i, ((((b & 0x16) << 3) | (b & 0x03)) << 3) | ((b & 0xE0) << 8));
  }
}

void y8_to_y16(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels, unsigned shift) {
  for (std::size_t i = 0; i < pixels; ++i) put_word(dst + 2 * i, static_cast<uint32_t>(src[i]) << shift);
}

constexpr bool channel_source(Direct f) {
  return f == Direct::y8 || f == Direct::y16 || f == Direct::rgb15 || f == Direct::rgb16 || f == Direct::rgb24 ||
         f == Direct::bgr24 || f == Direct::rgbx32 || f == Direct::bgrx32 || f == Direct::xbgr32;
}
constexpr bool channel_target(Direct t) {
  return t == Direct::rgb15 || t == Direct::rgb16 || t == Direct::rgb24 || t == Direct::bgr24 ||
         t == Direct::rgbx32 || t == Direct::bgrx32 || t == Direct::xbgr32 || t == Direct::xrgb32;
}

template <Direct F, Direct T>
constexpr DirectRow pick() {
  if constexpr (F == Direct::rgb15 && T == Direct::rgb16) return rgb15_to_rgb16;
  else if constexpr (F == Direct::rgb16 && T == Direct::rgb15) return rgb16_to_rgb15;
  else if constexpr (F == Direct::rgb8 && T == Direct::rgb16) return rgb8_to_rgb16;
  else if constexpr (F == Direct::y8 && T == Direct::y16) return y8_to_y16;
  else if constexpr (T == Direct::y8 && ((channel_source(F) && F != Direct::y8) || F == Direct::yuv422))
    return convert<F, T>;
  else if constexpr (channel_target(T) && channel_source(F) && F != T) return convert<F, T>;
  else return nullptr;
}

using Table = std::array<std::array<DirectRow, kDirectLayouts>, kDirectLayouts>;

template <std::size_t F, std::size_t... T>
constexpr std::array<DirectRow, kDirectLayouts> row_of(std::index_sequence<T...>) {
  return {pick<static_cast<Direct>(F), static_cast<Direct>(T)>()...};
}
template <std::size_t... F>
constexpr Table table_of(std::index_sequence<F...>) {
  return {row_of<F>(std::make_index_sequence<kDirectLayouts>{})...};
}
constexpr Table kScalar = table_of(std::make_index_sequence<kDirectLayouts>{});

// Colour-map lookups.
void palette_to_y8(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels,
                   const tPIX_Colour* map) {
  for (std::size_t i = 0; i < pixels; ++i) dst[i] = map[src[i]].red;
}
void palette_to_rgb24(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels,
                      const tPIX_Colour* map) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const tPIX_Colour& c = map[src[i]];
    dst[3 * i] = c.red, dst[3 * i + 1] = c.green, dst[3 * i + 2] = c.blue;
  }
}
void palette_to_cmyk32(const uint8_t* __restrict src, uint8_t* __restrict dst, std::size_t pixels,
                       const tPIX_Colour* map) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const tPIX_Colour& c = map[src[i]];
    dst[4 * i] = static_cast<uint8_t>(~c.red);
    dst[4 * i + 1] = static_cast<uint8_t>(~c.green);
    dst[4 * i + 2] = static_cast<uint8_t>(~c.blue);
    dst[4 * i + 3] = 0;
  }
}

}  // namespace

DirectRow direct_row_scalar(Direct from, Direct to) noexcept {
  const auto f = static_cast<std::size_t>(from), t = static_cast<std::size_t>(to);
  return f < kDirectLayouts && t < kDirectLayouts ? kScalar[f][t] : nullptr;
}

// Chosen once for every pair, at the first conversion.
DirectRow direct_row(Direct from, Direct to) noexcept {
  static const auto chosen = simd::choose<DirectRow, kDirectLayouts * kDirectLayouts>(
      [](std::size_t i, simd::Level l) {
        return direct_row_simd(static_cast<Direct>(i / kDirectLayouts), static_cast<Direct>(i % kDirectLayouts), l);
      },
      [](std::size_t i) {
        return direct_row_scalar(static_cast<Direct>(i / kDirectLayouts), static_cast<Direct>(i % kDirectLayouts));
      });
  const auto f = static_cast<std::size_t>(from), t = static_cast<std::size_t>(to);
  return f < kDirectLayouts && t < kDirectLayouts ? chosen[f * kDirectLayouts + t] : nullptr;
}

PaletteRow palette_row(PaletteOut out) noexcept {
  switch (out) {
    case PaletteOut::y8: return palette_to_y8;
    case PaletteOut::rgb24: return palette_to_rgb24;
    case PaletteOut::cmyk32: return palette_to_cmyk32;
  }
  return nullptr;
}

}  // namespace pix::convert::kernels
