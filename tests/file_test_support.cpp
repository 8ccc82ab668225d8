#include "file_test_support.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "core/image.h"

namespace pixtest {

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void save(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes pattern(std::size_t n, unsigned salt) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 73 + salt * 41 + (i >> 7) + 7);
  return b;
}

uint32_t stride(uint32_t image) {
  const tPIX_Image& img = *pix::find_image(image);
  return img.format == PIX_BILEVEL ? static_cast<uint32_t>(pix::bilevel_stride(img)) : img.bytes_per_line;
}

uint32_t line_bytes(uint32_t image) {
  const tPIX_Image& img = *pix::find_image(image);
  return img.depth == 1 ? (img.width + 7) / 8 : img.width * pix::pixel_bytes(img.depth);
}

uint32_t filled(uint16_t format, uint32_t width, uint32_t height, uint32_t lines, unsigned salt) {
  const uint32_t h = make_image(format, width, height, lines == 0 ? height : lines);
  if (format == PIX_Y16) PIX_image_set_parameter(h, PIX_DATA_WIDTH, 12);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
  tPIX_Image& img = *pix::find_image(h);
  const Bytes bytes = pattern(std::size_t{stride(h)} * img.lines_this_strip, salt);
  std::copy(bytes.begin(), bytes.end(), img.data);
  for (int i = 0; i < 256; ++i) img.cmap[i] = {uint8_t(i * 3), uint8_t(255 - i), uint8_t(i ^ 0x5A), 0};
  return h;
}

Bytes rows(uint32_t image, uint32_t bytes) {
  const tPIX_Image& img = *pix::find_image(image);
  if (bytes == 0) bytes = line_bytes(image);
  Bytes out;
  for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
    const uint8_t* line = img.data + std::size_t{y} * stride(image);
    out.insert(out.end(), line, line + bytes);
  }
  return out;
}

Bytes palette(uint32_t image, int entries) {
  Bytes p;
  for (const tPIX_Colour* c = pix::find_image(image)->cmap; entries-- > 0; ++c) p.insert(p.end(), {c->red, c->green, c->blue});
  return p;
}

void set_rows(uint32_t image, const Bytes& pixels) {
  const uint32_t n = line_bytes(image);
  uint8_t* data = pix::find_image(image)->data;
  for (std::size_t y = 0; y * n < pixels.size(); ++y) std::copy_n(&pixels[y * n], n, data + y * stride(image));
}

uint32_t reader(const std::string& path, uint32_t lines) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_infilename(h, path.c_str());
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines);
  return h;
}

Bytes read_strips(uint32_t image, uint32_t(PIX_CALL* read)(uint32_t, uint16_t), int calls) {
  Bytes got;
  for (int i = 0; i < calls; ++i) {
    EXPECT_EQ(read(image, PIX_STRIP_NEXT), 0u);
    got = got + rows(image);
  }
  return got;
}

uint32_t read_whole(const std::string& path, uint32_t& result) {
  const uint32_t h = reader(path, 0);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, 32767);
  result = PIX_image_read(h, 0, PIX_STRIP_NEXT);
  return h;
}

uint32_t write_strips(uint32_t image, uint16_t file_format, const std::string& path, uint32_t lines,
                      uint32_t memory) {
  tPIX_Image& img = *pix::find_image(image);
  PIX_image_set_outfilename(image, path.c_str());
  uint8_t* const whole = img.data;
  const uint32_t all = img.lines_this_strip;
  uint32_t result = 0;
  for (uint32_t y = 0; y < img.height && result == 0; y += lines) {
    img.data = whole + std::size_t{y} * stride(image);
    img.lines_this_strip = lines;
    result = PIX_image_write(image, memory, file_format, PIX_STRIP_NEXT);
  }
  img.data = whole;
  img.lines_this_strip = all;
  return result;
}

}  // namespace pixtest
