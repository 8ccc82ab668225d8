#include "fields.h"

#include <cstring>

namespace pix::process::kernels {

namespace {
constexpr Y8PseudoTable kY8Pseudo = make_y8_pseudo_table();
}  // namespace

void copy_halfwords_row(const uint8_t* src, uint8_t* dst, std::size_t bytes) {
  std::memcpy(dst, src, bytes & ~std::size_t{1});
}

void shift32_to_y8_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned shift) {
  for (std::size_t i = 0; i < pixels; ++i, src += 4) {
    const uint32_t v = uint32_t{src[0]} | uint32_t{src[1]} << 8 | uint32_t{src[2]} << 16 | uint32_t{src[3]} << 24;
    dst[i] = static_cast<uint8_t>(v >> shift);
  }
}

void byte_of_32_row(const uint8_t* src, uint8_t* dst, std::size_t pixels, unsigned byte) {
  for (std::size_t i = 0; i < pixels; ++i) dst[i] = src[4 * i + byte];
}

void yuv422_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pairs) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 6) {
    dst[0] = src[0], dst[1] = src[1], dst[2] = src[3];
    dst[3] = src[2], dst[4] = src[1], dst[5] = src[3];
  }
}

void hsi_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  for (std::size_t i = 0; i < pixels; ++i, src += 4, dst += 3) {
    dst[0] = hsi_pseudo_red(static_cast<uint16_t>(src[0] | src[1] << 8));
    dst[1] = src[2];
    dst[2] = src[3];
  }
}

void y8_pseudo_row(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const uint16_t w = kY8Pseudo.word[src[i]];
    dst[2 * i] = static_cast<uint8_t>(w);
    dst[2 * i + 1] = static_cast<uint8_t>(w >> 8);
  }
}

}  // namespace pix::process::kernels
