#include "geometry.h"

#include <algorithm>
#include <cstring>

namespace pix::process::kernels {

namespace {

// Runs `body.template operator()<B>()` for the pixel size, so every loop is
// compiled for a fixed size and no call happens per pixel.
template <class Body>
void by_size(unsigned pixel_bytes, Body&& body) {
  switch (pixel_bytes) {
    case 1:
      body.template operator()<1>();
      break;
    case 2:
      body.template operator()<2>();
      break;
    case 3:
      body.template operator()<3>();
      break;
    case 4:
      body.template operator()<4>();
      break;
    default:
      break;
  }
}

template <unsigned B>
inline void put(uint8_t* dst, const uint8_t* src) {
  std::memcpy(dst, src, B);
}

constexpr ScaleProducts kProducts = make_scale_products();

}  // namespace

const ScaleProducts& scale_products() noexcept { return kProducts; }

void copy_row(const uint8_t* src, uint8_t* dst, std::size_t bytes) {
  if (bytes != 0) std::memcpy(dst, src, bytes);
}

void subsample_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor, unsigned pixel_bytes) {
  by_size(pixel_bytes, [&]<unsigned B>() {
    const std::size_t stride = std::size_t{factor} * B;
    for (std::size_t i = 0; i < pixels; ++i) put<B>(dst + i * B, src + i * stride);
  });
}

void subsample_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor) {
  const std::size_t stride = std::size_t{factor} * 2;
  for (std::size_t p = 0; p < pixels; ++p) {
    dst[2 * p] = src[p * stride];
    // Chroma of the pair sampled for the even pixel of this output pair.
    const std::size_t pair = (p & ~std::size_t{1}) * stride;
    dst[2 * p + 1] = src[pair + ((p & 1) != 0 ? 3 : 1)];
  }
}

void replicate_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned factor, unsigned pixel_bytes) {
  by_size(pixel_bytes, [&]<unsigned B>() {
    for (std::size_t i = 0; i < pixels; ++i, src += B) {
      for (unsigned k = 0; k < factor; ++k, dst += B) put<B>(dst, src);
    }
  });
}

void replicate_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, unsigned factor) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4) {
    // Output pixel q of this pair's 2 * factor takes the Y of source pixel
    // q / factor; every output pair carries the source pair's chroma.
    for (unsigned q = 0; q < 2 * factor; q += 2, dst += 4) {
      dst[0] = src[q / factor == 0 ? 0 : 2];
      dst[1] = src[1];
      dst[2] = src[(q + 1) / factor == 0 ? 0 : 2];
      dst[3] = src[3];
    }
  }
}

void mirror_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned pixel_bytes) {
  by_size(pixel_bytes, [&]<unsigned B>() {
    const uint8_t* s = src + pixels * B;
    for (std::size_t i = 0; i < pixels; ++i, dst += B) {
      s -= B;
      put<B>(dst, s);
    }
  });
}

void mirror_yuv422_row(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  // Pairs in reverse order with their chroma; then the Y bytes rewritten
  // from the source's luma read backwards, so luma is mirrored to the pixel
  // while chroma moves a pair at a time.
  for (std::size_t k = 0; k < pairs; ++k) {
    const uint8_t* s = src + (pairs - 1 - k) * 4;
    uint8_t* d = dst + k * 4;
    d[0] = s[2];
    d[1] = s[1];
    d[2] = s[0];
    d[3] = s[3];
  }
}

void gather_row(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t step, uint8_t* dst, std::size_t pixels,
                unsigned pixel_bytes) {
  by_size(pixel_bytes, [&]<unsigned B>() {
    std::ptrdiff_t at = first;
    for (std::size_t i = 0; i < pixels; ++i, at += step, dst += B) put<B>(dst, src + at);
  });
}

void scale_columns(ScaleColumn* columns, std::size_t out_pixels, uint32_t in_pixels, uint64_t step, unsigned channels) {
  uint64_t position = 0;
  for (std::size_t i = 0; i < out_pixels; ++i, position += step) {
    uint64_t x = position >> kScaleShift;
    if (in_pixels == 0)
      x = 0;
    else if (x >= in_pixels)
      x = in_pixels - 1;
    // Where the line has no next pixel the near one stands in for it.
    const uint64_t next = x + 1 < in_pixels ? x + 1 : x;
    columns[i] = {static_cast<uint32_t>(x * channels), static_cast<uint32_t>(next * channels),
                  static_cast<uint8_t>(scale_fraction(position))};
  }
}

void scale_row_h(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, std::size_t out_pixels,
                 unsigned channels) {
  const auto& t = kProducts.at;
  for (std::size_t i = 0; i < out_pixels; ++i) {
    const ScaleColumn c = columns[i];
    for (unsigned k = 0; k < channels; ++k) {
      *dst++ = static_cast<uint8_t>(t[src[c.near + k]][c.fraction] + t[src[c.far + k]][256 - c.fraction]);
    }
  }
}

void scale_row_v(const uint8_t* upper, const uint8_t* lower, uint8_t* dst, std::size_t bytes, unsigned fraction) {
  const auto& near = kProducts.at;
  for (std::size_t i = 0; i < bytes; ++i) {
    dst[i] = static_cast<uint8_t>(near[upper[i]][fraction] + near[lower[i]][256 - fraction]);
  }
}

void scale_groups(ScaleGroup* groups, const ScaleColumn* columns, std::size_t out_pixels, std::size_t in_bytes,
                  unsigned channels) {
  const std::size_t count = scale_group_count(out_pixels, channels);
  auto near = [&](std::size_t j) { return std::size_t{columns[j / channels].near} + j % channels; };
  auto far = [&](std::size_t j) { return std::size_t{columns[j / channels].far} + j % channels; };
  for (std::size_t g = 0; g < count; ++g) {
    ScaleGroup& group = groups[g];
    group = {};
    std::size_t low[2], high[2];
    unsigned width = 1;
    for (unsigned half = 0; half < 2; ++half) {
      low[half] = in_bytes, high[half] = 0;
      for (std::size_t j = 16 * g + 8 * half; j < 16 * g + 8 * half + 8; ++j) {
        low[half] = std::min({low[half], near(j), far(j)});
        high[half] = std::max({high[half], near(j), far(j)});
      }
      const std::size_t span = high[half] - low[half];
      width = std::max(width, static_cast<unsigned>(std::min<std::size_t>(span / 16 + 1, 5)));
    }
    // Windows wholly inside the line, the samples inside them.
    if (width > 4 || in_bytes < 16 * width || high[0] >= in_bytes || high[1] >= in_bytes) continue;
    group.vector = width;
    for (unsigned half = 0; half < 2; ++half) {
      // The window starts at the lowest sample unless that would read past the line.
      const std::size_t window = std::min(low[half], in_bytes - 16 * width);
      group.window[half] = static_cast<uint32_t>(window);
      for (std::size_t k = 8 * half; k < 8 * half + 8; ++k) {
        group.pick[2 * k] = static_cast<uint8_t>(near(16 * g + k) - window);
        group.pick[2 * k + 1] = static_cast<uint8_t>(far(16 * g + k) - window);
        group.fraction[k] = columns[(16 * g + k) / channels].fraction;
      }
    }
  }
}

void turn_lines(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step, uint8_t* dst,
                std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels, unsigned pixel_bytes) {
  for (std::size_t j = 0; j < lines; ++j) {
    gather_row(src, first + static_cast<std::ptrdiff_t>(j) * across, step, dst + static_cast<std::ptrdiff_t>(j) * dst_stride,
               pixels, pixel_bytes);
  }
}

namespace {

template <unsigned B>
void mirror_fixed(const uint8_t* src, std::ptrdiff_t src_stride, uint8_t* dst, std::ptrdiff_t dst_stride,
                  std::size_t lines, std::size_t pixels) {
  for (std::size_t y = 0; y < lines; ++y) {
    const auto at = static_cast<std::ptrdiff_t>(y);
    mirror_row(src + at * src_stride, dst + at * dst_stride, pixels, B);
  }
}
template <unsigned B>
void turn_fixed(const uint8_t* src, std::ptrdiff_t first, std::ptrdiff_t across, std::ptrdiff_t step, uint8_t* dst,
                std::ptrdiff_t dst_stride, std::size_t lines, std::size_t pixels) {
  turn_lines(src, first, across, step, dst, dst_stride, lines, pixels, B);
}
void scale_h_plain(const uint8_t* src, uint8_t* dst, const ScaleColumn* columns, const ScaleGroup*,
                   std::size_t out_pixels, unsigned channels) {
  scale_row_h(src, dst, columns, out_pixels, channels);
}

constexpr GeometryKernels kScalarKernels{{mirror_fixed<1>, mirror_fixed<2>, mirror_fixed<3>, mirror_fixed<4>},
                                         mirror_yuv422_row,
                                         {turn_fixed<1>, turn_fixed<2>, turn_fixed<3>, turn_fixed<4>},
                                         scale_h_plain,
                                         scale_row_v};

}  // namespace

const GeometryKernels& geometry_kernels(simd::Level level) noexcept {
  static const auto tables = [] {
    std::array<GeometryKernels, simd::kLevels> t{};
    for (std::size_t l = 0; l < simd::kLevels; ++l) {
      t[l] = l == 0 ? kScalarKernels : t[l - 1];
      if (l != 0) add_geometry_simd(t[l], static_cast<simd::Level>(l));
    }
    return t;
  }();
  return tables[static_cast<std::size_t>(level)];
}

const GeometryKernels& geometry_kernels() noexcept {
  static const GeometryKernels& active = geometry_kernels(simd::active());
  return active;
}

}  // namespace pix::process::kernels
