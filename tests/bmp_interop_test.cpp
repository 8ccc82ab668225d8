// BMP files against independent software: what we write opens in Pillow
// and ImageMagick with the same pixels, and what they write (uncompressed,
// 256-entry palettes or 24 bits) reads here with the same pixels.
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/image.h"
#include "interop_support.h"
#include "test_support.h"

namespace {

using pix::find_image;
namespace io = pixtest::interop;
using Bytes = std::vector<uint8_t>;

Bytes pattern(std::size_t n, uint32_t salt) {
  Bytes b(n);
  for (auto& v : b) v = static_cast<uint8_t>((salt = salt * 1103515245u + 12345u) >> 16);
  return b;
}
// 256 distinct colours, so that every writer keeps all 256 palette entries.
const Bytes kPalette = [] {
  Bytes p(768);
  for (int i = 0; i < 256; ++i) p[3 * i] = uint8_t(i), p[3 * i + 1] = uint8_t(i * 7 + 3), p[3 * i + 2] = uint8_t(~i);
  return p;
}();
Bytes colours_of(const Bytes& indices, const Bytes& palette) {
  Bytes c;
  for (uint8_t i : indices) c.insert(c.end(), palette.begin() + 3 * i, palette.begin() + 3 * i + 3);
  return c;
}

struct Read {
  uint16_t format = 0;
  uint32_t width = 0, height = 0;
  Bytes pixels;   // packed rows: indices or R, G, B
  Bytes palette;  // R, G, B of each colour-map entry
};

class BmpInterop : public pixtest::LibraryTest {
 protected:
  // Writes packed rows as a BMP of `format` in strips of `lines`.
  std::string write(uint16_t format, uint32_t w, uint32_t h, const Bytes& pixels, const std::string& name,
                    uint32_t lines) {
    const std::string path = io::scratch_path(name);
    const uint32_t img = pixtest::make_image(format, w, h, lines);
    PIX_image_set_outfilename(img, path.c_str());
    tPIX_Colour* map = find_image(img)->cmap;
    for (int i = 0; i < 256; ++i) map[i] = {kPalette[3 * i], kPalette[3 * i + 1], kPalette[3 * i + 2], 0};
    const uint32_t row = w * pix::pixel_bytes(find_image(img)->depth);
    for (uint32_t done = 0; done < h; done += lines) {
      PIX_image_free_data(img);
      EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
      const tPIX_Image& r = *find_image(img);
      for (uint32_t y = done; y < done + lines && y < h; ++y) {
        std::memcpy(r.data + (y - done) * r.bytes_per_line, pixels.data() + y * row, row);
      }
      EXPECT_EQ(PIX_write_BMP_file(img, PIX_STRIP_NEXT), 0u);
    }
    return path;
  }
  // Reads a whole file: the header first (no lines), then every line.
  Read read(const std::string& path) {
    const uint32_t img = PIX_image_create();
    PIX_image_set_infilename(img, path.c_str());
    PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 0);
    EXPECT_EQ(PIX_read_BMP_file(img, PIX_STRIP_NEXT), 0u);
    tPIX_Image& r = *find_image(img);
    r.lines_this_strip = r.height;
    EXPECT_EQ(PIX_read_BMP_file(img, PIX_STRIP_NEXT), 0u);
    Read out{r.format, r.width, r.height, {}, {}};
    for (uint32_t y = 0; y < r.height; ++y) {
      const uint8_t* p = r.data + y * r.bytes_per_line;
      out.pixels.insert(out.pixels.end(), p, p + r.width * pix::pixel_bytes(r.depth));
    }
    for (int i = 0; i < 256; ++i) {
      out.palette.insert(out.palette.end(), {r.cmap[i].red, r.cmap[i].green, r.cmap[i].blue});
    }
    return out;
  }
};

TEST_F(BmpInterop, OurFilesOpenElsewhereWithTheSamePixels) {
  for (const uint32_t w : {13u, 31u}) {  // rows that need padding
    SCOPED_TRACE(w);
    const uint32_t h = 9;
    const std::string tag = std::to_string(w) + ".bmp";
    const Bytes grey = pattern(w * h, w);
    const std::string y8 = write(PIX_Y8, w, h, grey, "bmp_ours_y8_" + tag, 4);
    const io::Pixels p8 = io::pillow_read(y8);
    EXPECT_EQ(p8.mode, "L");  // a grey palette
    EXPECT_EQ(p8.bytes, grey);
    EXPECT_EQ(io::magick_read(y8, "gray"), grey);

    const Bytes indices = pattern(w * h, w + 1);
    const std::string pal = write(PIX_PALETTED, w, h, indices, "bmp_ours_pal_" + tag, 9);
    const io::Pixels pp = io::pillow_read(pal);
    EXPECT_EQ(pp.mode, "P");
    EXPECT_EQ(pp.bytes, indices);
    EXPECT_EQ(io::magick_read(pal, "rgb"), colours_of(indices, kPalette));

    const Bytes rgb = pattern(3 * w * h, w + 2);
    const std::string c24 = write(PIX_RGB24, w, h, rgb, "bmp_ours_rgb_" + tag, 2);
    const io::Pixels pc = io::pillow_read(c24);
    EXPECT_EQ(pc.mode, "RGB");
    EXPECT_EQ(std::make_pair(pc.width, pc.height), std::make_pair(w, h));
    EXPECT_EQ(pc.bytes, rgb);
    EXPECT_EQ(io::magick_read(c24, "rgb"), rgb);
  }
}

TEST_F(BmpInterop, PillowFilesReadHere) {
  const uint32_t w = 13, h = 6;
  const Bytes grey = pattern(w * h, 1), indices = pattern(w * h, 2), rgb = pattern(3 * w * h, 3);
  const std::string l = io::scratch_path("bmp_pillow_l.bmp"), p = io::scratch_path("bmp_pillow_p.bmp"),
                    c = io::scratch_path("bmp_pillow_rgb.bmp");
  ASSERT_TRUE(io::pillow_save(l, "L", w, h, grey));
  ASSERT_TRUE(io::pillow_save_paletted(p, w, h, indices, kPalette));
  ASSERT_TRUE(io::pillow_save(c, "RGB", w, h, rgb));

  const Read rl = read(l), rp = read(p), rc = read(c);
  EXPECT_EQ(std::make_tuple(rl.format, rl.width, rl.height), std::make_tuple(uint16_t{PIX_PALETTED}, w, h));
  EXPECT_EQ(rl.pixels, grey);
  for (int i = 0; i < 256; ++i) {  // grey
    EXPECT_EQ(Bytes(rl.palette.begin() + 3 * i, rl.palette.begin() + 3 * i + 3), Bytes(3, uint8_t(i))) << i;
  }
  EXPECT_EQ(rp.format, PIX_PALETTED);
  EXPECT_EQ(rp.pixels, indices);
  EXPECT_EQ(rp.palette, kPalette);
  EXPECT_EQ(rc.format, PIX_RGB24);
  EXPECT_EQ(rc.pixels, rgb);
}

TEST_F(BmpInterop, ImageMagickFilesReadHere) {
  // The picture as a binary PPM: 17 x 16 pixels of all 256 colours, so that
  // the palette file keeps 256 entries.
  const uint32_t w = 17, h = 16;
  Bytes order(w * h);
  for (uint32_t i = 0; i < w * h; ++i) order[i] = static_cast<uint8_t>(i * 37);
  const Bytes rgb = colours_of(order, kPalette);
  const std::string head = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
  Bytes ppm(head.begin(), head.end());
  ppm.insert(ppm.end(), rgb.begin(), rgb.end());
  const std::string src = io::scratch_path("bmp_magick.ppm"), truecolour = io::scratch_path("bmp_magick_rgb.bmp"),
                    palette = io::scratch_path("bmp_magick_pal.bmp");
  io::write_file(src, ppm);
  const std::string convert = "/usr/bin/convert '" + src + "' -compress none ";
  ASSERT_EQ(io::run(convert + "-type truecolor BMP3:'" + truecolour + "'"), 0);
  ASSERT_EQ(io::run(convert + "-type palette BMP3:'" + palette + "'"), 0);

  const Read rc = read(truecolour), rp = read(palette);
  EXPECT_EQ(std::make_tuple(rc.format, rc.width, rc.height), std::make_tuple(uint16_t{PIX_RGB24}, w, h));
  EXPECT_EQ(rc.pixels, rgb);
  EXPECT_EQ(rp.format, PIX_PALETTED);
  EXPECT_EQ(colours_of(rp.pixels, rp.palette), rgb);
}

}  // namespace
