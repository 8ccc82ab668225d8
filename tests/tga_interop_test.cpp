// Our TGA files in Pillow and ImageMagick, and theirs in our reader.
//
// Both tools expand a 5-bit channel v of a 16-bit file to v * 255 / 31
// (rounded down); ImageMagick 6 keeps rows in stored order whatever the
// descriptor says, Pillow honours it.
#include <string>
#include <vector>

#include "core/image.h"
#include "interop_support.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
using namespace pixtest::interop;
using Bytes = std::vector<uint8_t>;

class TgaInterop : public LibraryTest {
 protected:
  // A whole image with varied bytes, written to `path`.
  uint32_t written(uint16_t format, uint32_t w, uint32_t h, const std::string& path) {
    const uint32_t img = pixtest::make_image(format, w, h, h);
    EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
    tPIX_Image& r = *find_image(img);
    for (uint32_t i = 0; i < r.bytes_per_line * h; ++i) r.data[i] = static_cast<uint8_t>(i * 73 + 5);
    PIX_image_set_outfilename(img, path.c_str());
    EXPECT_EQ(PIX_write_TGA_file(img, PIX_STRIP_NEXT), 0u);
    return img;
  }
  // The image's pixels without line padding, as 8-bit grey or RGB samples.
  Bytes samples(uint32_t img) {
    const tPIX_Image& r = *find_image(img);
    Bytes out;
    for (uint32_t y = 0; y < r.height; ++y) {
      const uint8_t* line = r.data + y * r.bytes_per_line;
      for (uint32_t x = 0; x < r.width; ++x) {
        if (r.format == PIX_RGB15) {
          const unsigned v = line[2 * x] | (line[2 * x + 1] << 8);
          for (unsigned shift : {10u, 5u, 0u}) out.push_back(static_cast<uint8_t>(((v >> shift) & 31) * 255 / 31));
        } else {
          const unsigned n = r.format == PIX_Y8 ? 1 : 3;
          out.insert(out.end(), line + x * n, line + x * n + n);
        }
      }
    }
    return out;
  }
  uint32_t read(const std::string& path) {
    const uint32_t img = PIX_image_create();
    PIX_image_set_infilename(img, path.c_str());
    PIX_image_set_parameter(img, PIX_IMAGE_HEIGHT, 32767);
    EXPECT_EQ(PIX_image_read(img, 0, PIX_STRIP_NEXT), 0u) << path;
    return img;
  }
};

TEST_F(TgaInterop, OurFilesOpenInBothTools) {
  struct Case {
    uint16_t format;
    uint32_t w;
    const char* mode;
  } cases[] = {{PIX_Y8, 5, "L"}, {PIX_Y8, 6, "L"}, {PIX_RGB24, 5, "RGB"}, {PIX_RGB15, 5, "RGB"}, {PIX_RGB15, 8, "RGB"}};
  for (const Case& c : cases) {
    const std::string path = scratch_path("ours_" + std::to_string(c.format) + "_" + std::to_string(c.w) + ".tga");
    const Bytes want = samples(written(c.format, c.w, 3, path));
    const Pixels p = pillow_read(path);
    EXPECT_EQ(p.mode, c.mode) << path;
    EXPECT_EQ(p.width, c.w);
    EXPECT_EQ(p.height, 3u);
    EXPECT_EQ(p.bytes, want) << path;
    EXPECT_EQ(magick_read(path, c.format == PIX_Y8 ? "gray" : "rgb"), want) << path;
  }
}

TEST_F(TgaInterop, TopLeftFilesFromBothToolsReadUnchanged) {
  Bytes rgb(5 * 3 * 3), grey(5 * 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<uint8_t>(i * 41 + 3);
  for (std::size_t i = 0; i < grey.size(); ++i) grey[i] = static_cast<uint8_t>(i * 17 + 9);

  const std::string pillow_rgb = scratch_path("pillow_rgb.tga"), pillow_grey = scratch_path("pillow_grey.tga");
  ASSERT_TRUE(pillow_save(pillow_rgb, "RGB", 5, 3, rgb, "orientation=1"));
  ASSERT_TRUE(pillow_save(pillow_grey, "L", 5, 3, grey, "orientation=1"));
  const std::string raw = scratch_path("magick.rgb"), magick_rgb = scratch_path("magick_rgb.tga");
  write_file(raw, rgb);
  ASSERT_EQ(run("/usr/bin/convert -size 5x3 -depth 8 rgb:'" + raw + "' -orient TopLeft '" + magick_rgb + "'"), 0);

  for (const auto& [path, pixels] : {std::pair{pillow_rgb, rgb}, {pillow_grey, grey}, {magick_rgb, rgb}}) {
    ASSERT_EQ(read_file(path).at(17) & 0x20, 0x20) << path << " is not a top-left file";
    EXPECT_EQ(samples(read(path)), pixels) << path;
  }
}

TEST_F(TgaInterop, BottomLeftFilesReadUpsideDown) {
  Bytes grey(4 * 3);
  for (std::size_t i = 0; i < grey.size(); ++i) grey[i] = static_cast<uint8_t>(i * 19 + 1);
  const std::string path = scratch_path("pillow_bottom.tga");
  ASSERT_TRUE(pillow_save(path, "L", 4, 3, grey));
  ASSERT_EQ(read_file(path).at(17) & 0x20, 0);
  Bytes flipped(grey.size());
  for (std::size_t i = 0; i < grey.size(); ++i) flipped[i] = grey[(2 - i / 4) * 4 + i % 4];
  EXPECT_EQ(samples(read(path)), flipped);
}

}  // namespace
