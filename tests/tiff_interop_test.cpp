// TIFF files against independent software: what we write opens in Pillow,
// ImageMagick and the libtiff tools with the same pixels, and what they
// write (in the variants we read) reads here with the same pixels.
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "core/image.h"
#include "interop_support.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
namespace io = pixtest::interop;
using Bytes = std::vector<uint8_t>;

Bytes pattern(std::size_t n, unsigned salt) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>((i * 151 + salt * 29 + (i >> 5) * 7) & 0xFF);
  return b;
}

std::string in_quotes(const std::string& path) { return "'" + path + "'"; }

class TiffInterop : public LibraryTest {
 protected:
  static constexpr uint32_t kWidth = 37, kHeight = 23;  // odd: lines carry padding in memory

  // Writes an image of `format` whose lines are `pixels`, `line_bytes` each.
  void write_ours(const std::string& path, uint16_t format, const Bytes& pixels, uint32_t line_bytes,
                  const Bytes& palette = {}) {
    const uint32_t h = pixtest::make_image(format, kWidth, kHeight, kHeight);
    if (format == PIX_Y16) PIX_image_set_parameter(h, PIX_DATA_WIDTH, 16);
    tPIX_Image& img = *find_image(h);
    uint32_t stride = img.bytes_per_line;
    if (format == PIX_BILEVEL) {
      stride = (line_bytes + 1) / 2 * 2;  // packed lines, lent by the caller
      PIX_image_set_ptr(h, PIX_PTR_DATA, std::calloc(stride, kHeight));
      PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
    } else {
      ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
    }
    for (uint32_t y = 0; y < kHeight; ++y) std::memcpy(img.data + y * stride, &pixels[y * line_bytes], line_bytes);
    for (std::size_t i = 0; i * 3 < palette.size(); ++i) {
      img.cmap[i] = {palette[3 * i], palette[3 * i + 1], palette[3 * i + 2], 0};
    }
    PIX_image_set_outfilename(h, path.c_str());
    ASSERT_EQ(PIX_write_TIFF_file(h, PIX_STRIP_NEXT), 0u);
    PIX_image_destroy(h);
  }

  // Reads a file whole; gives the handle (0 on failure) and its lines.
  uint32_t read_ours(const std::string& path, Bytes& lines, uint32_t line_bytes) {
    const uint32_t h = PIX_image_create();
    PIX_image_set_infilename(h, path.c_str());
    PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, 32767);
    if (PIX_image_read(h, 0, PIX_STRIP_NEXT) != 0) return 0;
    const tPIX_Image& img = *find_image(h);
    lines.clear();
    for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
      const uint8_t* line = img.data + static_cast<std::size_t>(y) * img.bytes_per_line;
      lines.insert(lines.end(), line, line + line_bytes);
    }
    return h;
  }

  // tiffinfo and tiffdump take the file; gives tiffinfo's report, warnings included.
  std::string libtiff_accepts(const std::string& path) {
    std::string info, dump;
    EXPECT_EQ(io::run("tiffinfo " + in_quotes(path) + " 2>&1", &info), 0) << info;
    EXPECT_EQ(io::run("tiffdump " + in_quotes(path) + " 2>&1", &dump), 0) << dump;
    EXPECT_NE(info.find("Image Width: " + std::to_string(kWidth)), std::string::npos) << info;
    return info;
  }
};

// Little-endian 16-bit samples as bytes, from the big-endian bytes of a file.
Bytes swapped(const Bytes& b) {
  Bytes out(b.size());
  for (std::size_t i = 0; i + 1 < b.size(); i += 2) {
    out[i] = b[i + 1];
    out[i + 1] = b[i];
  }
  return out;
}

TEST_F(TiffInterop, GreyAndColourFilesWeWriteOpenElsewhere) {
  const Bytes grey = pattern(kWidth * kHeight, 1), rgb = pattern(3 * kWidth * kHeight, 2);
  const std::string g = io::scratch_path("tiff_ours_grey.tif"), c = io::scratch_path("tiff_ours_rgb.tif");
  write_ours(g, PIX_Y8, grey, kWidth);
  write_ours(c, PIX_RGB24, rgb, 3 * kWidth);
  for (const auto& [path, mode, pixels] : {std::tuple{g, "L", grey}, std::tuple{c, "RGB", rgb}}) {
    SCOPED_TRACE(path);
    libtiff_accepts(path);
    const io::Pixels p = io::pillow_read(path);
    EXPECT_EQ(p.mode, mode);
    EXPECT_EQ(p.bytes, pixels);
    EXPECT_EQ(io::magick_read(path, p.mode == "L" ? "gray" : "rgb"), pixels);
    // libtiff decodes it too: its copy (in its own layout) reads the same in Pillow.
    const std::string copy = path + ".tiffcp.tif";
    ASSERT_EQ(io::run("tiffcp -c none " + in_quotes(path) + " " + in_quotes(copy)), 0);
    EXPECT_EQ(io::pillow_read(copy).bytes, pixels);
  }
}

TEST_F(TiffInterop, PaletteAndBilevelFilesWeWriteOpenElsewhere) {
  const Bytes indices = pattern(kWidth * kHeight, 3), palette = pattern(768, 4);
  const std::string p = io::scratch_path("tiff_ours_pal.tif");
  write_ours(p, PIX_PALETTED, indices, kWidth, palette);
  libtiff_accepts(p);
  const io::Pixels pil = io::pillow_read(p);
  EXPECT_EQ(pil.mode, "P");
  EXPECT_EQ(pil.bytes, indices);
  Bytes expanded;
  for (uint8_t i : indices) expanded.insert(expanded.end(), &palette[3 * i], &palette[3 * i] + 3);
  EXPECT_EQ(io::magick_read(p, "rgb"), expanded);

  const uint32_t line = (kWidth + 7) / 8;
  Bytes bits = pattern(line * kHeight, 5);
  for (uint32_t y = 0; y < kHeight; ++y) bits[y * line + line - 1] &= 0xF8;  // the unused low bits of each line
  const std::string b = io::scratch_path("tiff_ours_bilevel.tif");
  write_ours(b, PIX_BILEVEL, bits, line);
  libtiff_accepts(b);
  const io::Pixels one = io::pillow_read(b);
  EXPECT_EQ(one.mode, "1");
  EXPECT_EQ(one.bytes, bits);  // Pillow packs mode "1" rows the same way
  Bytes grey;
  for (uint32_t y = 0; y < kHeight; ++y) {
    for (uint32_t x = 0; x < kWidth; ++x) grey.push_back((bits[y * line + x / 8] >> (7 - x % 8)) & 1 ? 255 : 0);
  }
  EXPECT_EQ(io::magick_read(b, "gray"), grey);
}

TEST_F(TiffInterop, SixteenBitGreyWithItsShortStripByteCount) {
  // Memory holds little-endian words; the file holds them big-endian.
  const Bytes words = pattern(2 * kWidth * kHeight, 6);
  const std::string y = io::scratch_path("tiff_ours_y16.tif");
  write_ours(y, PIX_Y16, words, 2 * kWidth);
  // StripByteCounts says one byte a pixel although two are written: libtiff
  // (tiffinfo, and ImageMagick through it) calls the count bogus, works out
  // its own from the image size and reads every line.
  const std::string info = libtiff_accepts(y);
  EXPECT_NE(info.find("Bogus \"StripByteCounts\" field, ignoring and calculating from imagelength"),
            std::string::npos)
      << info;
  EXPECT_EQ(io::magick_read(y, "gray", 16), words);  // ImageMagick gives the samples in host order
  const std::string copy = y + ".tiffcp.tif";
  ASSERT_EQ(io::run("tiffcp -L " + in_quotes(y) + " " + in_quotes(copy)), 0);
  const io::Pixels copied = io::pillow_read(copy);
  EXPECT_EQ(copied.mode, "I;16");
  EXPECT_EQ(copied.bytes, words);
  // Pillow reads our file as it stands, the count notwithstanding.
  const io::Pixels p = io::pillow_read(y);
  EXPECT_EQ(p.mode, "I;16B");
  EXPECT_EQ(p.bytes, swapped(words));
}

TEST_F(TiffInterop, FilesFromOtherSoftwareReadWithTheSamePixels) {
  const Bytes grey = pattern(kWidth * kHeight, 7), rgb = pattern(3 * kWidth * kHeight, 8);
  const Bytes indices = pattern(kWidth * kHeight, 9), palette = pattern(768, 10);
  struct Source {
    std::string name;
    bool saved;
    uint16_t format;
    const Bytes* pixels;
    uint32_t line;
  };
  const Source sources[] = {
      {"grey", io::pillow_save(io::scratch_path("tiff_pil_grey.tif"), "L", kWidth, kHeight, grey), PIX_Y8, &grey,
       kWidth},
      {"rgb", io::pillow_save(io::scratch_path("tiff_pil_rgb.tif"), "RGB", kWidth, kHeight, rgb), PIX_RGB24, &rgb,
       3 * kWidth},
      {"pal", io::pillow_save_paletted(io::scratch_path("tiff_pil_pal.tif"), kWidth, kHeight, indices, palette),
       PIX_PALETTED, &indices, kWidth},
  };
  // Pillow's files as saved, then libtiff's copies of them in each byte
  // order, in strips of five rows, and uncompressed.
  const std::string variants[] = {"", "-B", "-L", "-r 5", "-c none -r 1", "-B -r 4"};
  for (const Source& s : sources) {
    ASSERT_TRUE(s.saved) << s.name;
    const std::string original = io::scratch_path("tiff_pil_" + s.name + ".tif");
    for (const std::string& variant : variants) {
      SCOPED_TRACE(s.name + " " + variant);
      std::string file = original;
      if (!variant.empty()) {
        file = original + ".v" + std::to_string(&variant - variants) + ".tif";
        ASSERT_EQ(io::run("tiffcp " + variant + " " + in_quotes(original) + " " + in_quotes(file)), 0);
      }
      Bytes lines;
      const uint32_t h = read_ours(file, lines, s.line);
      ASSERT_NE(h, 0u);
      const tPIX_Image& img = *find_image(h);
      EXPECT_EQ(img.format, s.format);
      EXPECT_EQ(std::tie(img.width, img.height), std::tie(kWidth, kHeight));
      EXPECT_EQ(lines, *s.pixels);
      if (s.format == PIX_PALETTED) {
        // Pillow writes each colour as v * 256.  Kept: the second byte of
        // each pair is the entry, so only its "II" files give the colours;
        // in an "MM" copy the second byte is 0.
        const bool motorola = io::read_file(file).at(0) == 'M';
        for (int i = 0; i < 256; ++i) {
          const tPIX_Colour c = img.cmap[i];
          const uint8_t r = motorola ? 0 : palette[3 * i], g = motorola ? 0 : palette[3 * i + 1],
                        b = motorola ? 0 : palette[3 * i + 2];
          ASSERT_EQ(std::tie(c.red, c.green, c.blue), std::tie(r, g, b)) << i;
        }
      }
      PIX_image_destroy(h);
    }
  }
}

TEST_F(TiffInterop, SixteenBitFilesFromOtherSoftwareAreTakenInMotorolaOrder) {
  const Bytes words = pattern(2 * kWidth * kHeight, 11);  // little-endian samples
  const std::string original = io::scratch_path("tiff_pil_y16.tif");
  ASSERT_TRUE(io::pillow_save(original, "'I;16'", kWidth, kHeight, words));
  for (const char* order : {"-B", "-L"}) {
    SCOPED_TRACE(order);
    const std::string file = original + order + ".tif";
    ASSERT_EQ(io::run(std::string("tiffcp ") + order + " " + in_quotes(original) + " " + in_quotes(file)), 0);
    Bytes lines;
    const uint32_t h = read_ours(file, lines, 2 * kWidth);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(find_image(h)->format, PIX_Y16);
    EXPECT_EQ(find_image(h)->data_width, 16);
    // Kept: samples are taken big-endian whatever the file's order, so an
    // "II" file reads with its bytes swapped.
    EXPECT_EQ(lines, std::string(order) == "-B" ? words : swapped(words));
    PIX_image_destroy(h);
  }
}

}  // namespace
