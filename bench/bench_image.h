// The picture the benchmarks work on: an RGB24 image of a fixed
// pseudo-random pattern, made through the public interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include "pix95.h"

namespace pixbench {

// An image of width x height whose strip holds `lines` lines of the pattern;
// `path`, when given, is both its input and its output file name.
inline uint32_t rgb24_image(uint32_t width, uint32_t height, uint32_t lines, const char* path = nullptr) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_RGB24);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines);
  PIX_image_malloc_a_strip(h);
  auto* data = static_cast<uint8_t*>(PIX_image_get_ptr(h, PIX_PTR_DATA));
  std::mt19937 rng(1);
  const std::size_t bytes = std::size_t{PIX_image_get_parameter(h, PIX_BYTES_PER_LINE)} * lines;
  for (std::size_t i = 0; i < bytes; ++i) data[i] = static_cast<uint8_t>(rng());
  if (path != nullptr) {
    PIX_image_set_infilename(h, path);
    PIX_image_set_outfilename(h, path);
  }
  return h;
}

}  // namespace pixbench
