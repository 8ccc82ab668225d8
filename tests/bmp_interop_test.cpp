// BMP files against independent software: what we write opens in Pillow
// and ImageMagick with the same pixels, and what they write (uncompressed,
// 256-entry palettes or 24 bits) reads here with the same pixels.
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"
#include "interop_support.h"

namespace {

using namespace pixtest;
using pix::find_image;
namespace io = pixtest::interop;

Bytes colours_of(const Bytes& indices, const Bytes& palette) {
  Bytes c;
  for (uint8_t i : indices) c.insert(c.end(), palette.begin() + 3 * i, palette.begin() + 3 * i + 3);
  return c;
}

class BmpInterop : public LibraryTest {};

TEST_F(BmpInterop, OurFilesOpenElsewhereWithTheSamePixels) {
  for (const uint32_t w : {13u, 31u}) {  // rows that need padding
    for (const auto& [format, mode, map] : {std::tuple{PIX_Y8, "L", "gray"}, {PIX_PALETTED, "P", "rgb"},
                                            {PIX_RGB24, "RGB", "rgb"}}) {
      SCOPED_TRACE(std::to_string(w) + " " + mode);
      const uint32_t img = filled(format, w, 9, 0, w + format);
      const Bytes pixels = rows(img);
      const std::string path = io::scratch_path("bmp_ours_" + std::string(mode) + std::to_string(w) + ".bmp");
      ASSERT_EQ(write_strips(img, PIX_FILE_BMP, path, 4), 0u);
      const io::Pixels p = io::pillow_read(path);
      EXPECT_EQ(std::tie(p.mode, p.width, p.height), std::make_tuple(mode, w, 9u));  // Y8: a grey palette, "L"
      EXPECT_EQ(p.bytes, pixels);
      EXPECT_EQ(io::magick_read(path, map), format == PIX_PALETTED ? colours_of(pixels, palette(img)) : pixels);
    }
  }
}

TEST_F(BmpInterop, TheirFilesReadHere) {
  const uint32_t w = 17, h = 16;
  const Bytes grey = pattern(w * h, 1), indices = pattern(w * h, 2);
  Bytes colours, grey_map, all(w * h);  // the ImageMagick picture has all 256 colours: its palette keeps 256 entries
  for (int i = 0; i < 256; ++i) {
    colours.insert(colours.end(), {uint8_t(i), uint8_t(i * 7 + 3), uint8_t(~i)});
    grey_map.insert(grey_map.end(), 3, static_cast<uint8_t>(i));
  }
  for (uint32_t i = 0; i < w * h; ++i) all[i] = static_cast<uint8_t>(i * 37);
  const Bytes rgb = pattern(3 * w * h, 3), magick_rgb = colours_of(all, colours);
  const std::string head = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
  Bytes ppm(head.begin(), head.end());
  ppm.insert(ppm.end(), magick_rgb.begin(), magick_rgb.end());
  io::write_file(io::scratch_path("bmp_magick.ppm"), ppm);
  const std::string convert = "/usr/bin/convert '" + io::scratch_path("bmp_magick.ppm") + "' -compress none ";
  ASSERT_EQ(io::run(convert + "-type truecolor BMP3:'" + io::scratch_path("magick_rgb.bmp") + "'"), 0);
  ASSERT_EQ(io::run(convert + "-type palette BMP3:'" + io::scratch_path("magick_pal.bmp") + "'"), 0);
  ASSERT_TRUE(io::pillow_save(io::scratch_path("pillow_l.bmp"), "L", w, h, grey));
  ASSERT_TRUE(io::pillow_save_paletted(io::scratch_path("pillow_p.bmp"), w, h, indices, colours));
  ASSERT_TRUE(io::pillow_save(io::scratch_path("pillow_rgb.bmp"), "RGB", w, h, rgb));
  // File, the format read, its pixels and palette (none: only the colours are compared).
  const std::tuple<const char*, uint16_t, Bytes, Bytes> cases[] = {
      {"pillow_l.bmp", PIX_PALETTED, grey, grey_map}, {"pillow_p.bmp", PIX_PALETTED, indices, colours},
      {"pillow_rgb.bmp", PIX_RGB24, rgb, {}},         {"magick_rgb.bmp", PIX_RGB24, magick_rgb, {}},
      {"magick_pal.bmp", PIX_PALETTED, magick_rgb, {}}};
  for (const auto& [name, format, pixels, map] : cases) {
    SCOPED_TRACE(name);
    uint32_t result;
    const uint32_t in = read_whole(io::scratch_path(name), result);
    ASSERT_EQ(result, 0u);
    const tPIX_Image& r = *find_image(in);
    EXPECT_EQ(std::tie(r.format, r.width, r.height), std::make_tuple(format, w, h));
    const bool colours_only = format == PIX_PALETTED && map.empty();
    EXPECT_EQ(colours_only ? colours_of(rows(in), palette(in)) : rows(in), pixels);
    if (!map.empty()) { EXPECT_EQ(palette(in), map); }
  }
}

}  // namespace
