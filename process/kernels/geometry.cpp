#include "geometry.h"

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

}  // namespace pix::process::kernels
