// TIFF files against independent software: what we write opens in Pillow,
// ImageMagick and the libtiff tools with the same pixels, and what they
// write (in the variants we read) reads here with the same pixels.
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"
#include "interop_support.h"

namespace {

using namespace pixtest;
using pix::find_image;
namespace io = pixtest::interop;

constexpr uint32_t kWidth = 37, kHeight = 23;  // odd: lines carry padding in memory

std::string quoted(const std::string& path) { return "'" + path + "'"; }
// Little-endian 16-bit samples as bytes, from the big-endian bytes of a file.
Bytes swapped(Bytes b) {
  for (std::size_t i = 0; i + 1 < b.size(); i += 2) std::swap(b[i], b[i + 1]);
  return b;
}

class TiffInterop : public LibraryTest {};

TEST_F(TiffInterop, OurFilesOpenElsewhere) {
  for (const auto& [format, mode, map] : {std::tuple{PIX_Y8, "L", "gray"}, {PIX_RGB24, "RGB", "rgb"},
                                          {PIX_PALETTED, "P", "rgb"}, {PIX_BILEVEL, "1", "gray"}, {PIX_Y16, "I;16B", ""}}) {
    SCOPED_TRACE(mode);
    const uint32_t img = filled(format, kWidth, kHeight, 0, format);
    if (format == PIX_Y16) PIX_image_set_parameter(img, PIX_DATA_WIDTH, 16);
    Bytes pixels = rows(img);  // memory holds 16-bit samples little-endian
    const uint32_t line = line_bytes(img);
    for (uint32_t y = 0; format == PIX_BILEVEL && y < kHeight; ++y) pixels[y * line + line - 1] &= 0xF8;  // unused bits
    set_rows(img, pixels);
    const std::string path = io::scratch_path(std::string("tiff_ours_") + map + std::to_string(format) + ".tif");
    ASSERT_EQ(write_strips(img, PIX_FILE_TIFF, path, kHeight), 0u);
    // tiffinfo and tiffdump take the file.
    std::string info, dump;
    EXPECT_EQ(io::run("tiffinfo " + quoted(path) + " 2>&1", &info), 0) << info;
    EXPECT_EQ(io::run("tiffdump " + quoted(path) + " 2>&1", &dump), 0) << dump;
    EXPECT_NE(info.find("Image Width: " + std::to_string(kWidth)), std::string::npos) << info;
    const io::Pixels p = io::pillow_read(path);
    EXPECT_EQ(p.mode, mode);
    EXPECT_EQ(p.bytes, format == PIX_Y16 ? swapped(pixels) : pixels);  // Pillow packs mode "1" rows the same way
    Bytes seen = pixels;  // as ImageMagick gives the samples
    if (format == PIX_PALETTED) {
      seen.clear();
      for (uint8_t i : pixels) seen.insert(seen.end(), {find_image(img)->cmap[i].red, find_image(img)->cmap[i].green,
                                                        find_image(img)->cmap[i].blue});
    } else if (format == PIX_BILEVEL) {
      seen.clear();
      for (uint32_t i = 0; i < kWidth * kHeight; ++i) {
        seen.push_back((pixels[i / kWidth * line + i % kWidth / 8] >> (7 - i % kWidth % 8)) & 1 ? 255 : 0);
      }
    }
    // libtiff decodes it too: its copy (in its own layout, little-endian) reads the same in Pillow.
    const std::string copy = path + ".tiffcp.tif";
    ASSERT_EQ(io::run("tiffcp -L -c none " + quoted(path) + " " + quoted(copy)), 0);
    EXPECT_EQ(io::pillow_read(copy).bytes, pixels);
    if (format != PIX_Y16) {
      EXPECT_EQ(io::magick_read(path, map), seen);
      continue;
    }
    // StripByteCounts says one byte a pixel although two are written: libtiff
    // (tiffinfo, and ImageMagick through it) calls the count bogus, works out
    // its own from the image size and reads every line.
    EXPECT_NE(info.find("Bogus \"StripByteCounts\" field, ignoring and calculating from imagelength"),
              std::string::npos) << info;
    EXPECT_EQ(io::magick_read(path, "gray", 16), pixels);  // ImageMagick gives the samples in host order
  }
}

TEST_F(TiffInterop, FilesFromOtherSoftwareReadWithTheSamePixels) {
  const Bytes grey = pattern(kWidth * kHeight, 7), rgb = pattern(3 * kWidth * kHeight, 8);
  const Bytes indices = pattern(kWidth * kHeight, 9), palette = pattern(768, 10);
  const Bytes words = pattern(2 * kWidth * kHeight, 11);  // little-endian samples
  const std::tuple<std::string, bool, uint16_t, const Bytes*> sources[] = {
      {"grey", io::pillow_save(io::scratch_path("grey.tif"), "L", kWidth, kHeight, grey), PIX_Y8, &grey},
      {"rgb", io::pillow_save(io::scratch_path("rgb.tif"), "RGB", kWidth, kHeight, rgb), PIX_RGB24, &rgb},
      {"pal", io::pillow_save_paletted(io::scratch_path("pal.tif"), kWidth, kHeight, indices, palette), PIX_PALETTED,
       &indices},
      {"y16", io::pillow_save(io::scratch_path("y16.tif"), "'I;16'", kWidth, kHeight, words), PIX_Y16,
       &words}};
  // Pillow's files as saved, then libtiff's copies of them in each byte
  // order, in strips of five rows, and uncompressed.
  const std::string variants[] = {"", "-B", "-L", "-r 5", "-c none -r 1", "-B -r 4"};
  for (const auto& [name, saved, format, pixels] : sources) {
    ASSERT_TRUE(saved) << name;
    for (const std::string& variant : variants) {
      SCOPED_TRACE(name + " " + variant);
      const std::string original = io::scratch_path(name + ".tif"), file = original + std::to_string(&variant - variants);
      ASSERT_EQ(io::run(variant.empty() ? "cp " + quoted(original) + " " + quoted(file)
                                        : "tiffcp " + variant + " " + quoted(original) + " " + quoted(file)), 0);
      uint32_t result;
      const uint32_t h = read_whole(file, result);
      ASSERT_EQ(result, 0u);
      const tPIX_Image& img = *find_image(h);
      EXPECT_EQ(std::tie(img.format, img.width, img.height), std::tie(format, kWidth, kHeight));
      const bool motorola = io::read_file(file).at(0) == 'M';
      // Kept: 16-bit samples are taken big-endian whatever the file's order,
      // so an "II" file reads with its bytes swapped.
      EXPECT_EQ(rows(h), format == PIX_Y16 && !motorola ? swapped(*pixels) : *pixels);
      for (int i = 0; format == PIX_PALETTED && i < 256; ++i) {
        // Pillow writes each colour as v * 256.  Kept: the second byte of
        // each pair is the entry, so only its "II" files give the colours;
        // in an "MM" copy the second byte is 0.
        const tPIX_Colour c = img.cmap[i];
        const Bytes want = motorola ? Bytes(3, 0) : Bytes(&palette[3 * i], &palette[3 * i + 3]);
        ASSERT_EQ(Bytes({c.red, c.green, c.blue}), want) << i;
      }
      if (format == PIX_Y16) { EXPECT_EQ(img.data_width, 16); }
    }
  }
}

}  // namespace
