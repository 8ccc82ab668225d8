// Our TGA files in Pillow and ImageMagick, and theirs in our reader.
//
// Both tools expand a 5-bit channel v of a 16-bit file to v * 255 / 31
// (rounded down); ImageMagick 6 keeps rows in stored order whatever the
// descriptor says, Pillow honours it.
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"
#include "interop_support.h"

namespace {

using namespace pixtest;
using pix::find_image;
namespace io = pixtest::interop;

// The image's pixels without line padding, as 8-bit grey or RGB samples.
Bytes samples(uint32_t img) {
  const Bytes packed = rows(img);
  if (find_image(img)->format != PIX_RGB15) return packed;
  Bytes out;
  for (std::size_t i = 0; i < packed.size(); i += 2) {
    const unsigned v = packed[i] | (packed[i + 1] << 8);
    for (unsigned shift : {10u, 5u, 0u}) out.push_back(static_cast<uint8_t>(((v >> shift) & 31) * 255 / 31));
  }
  return out;
}

class TgaInterop : public LibraryTest {};

TEST_F(TgaInterop, OurFilesOpenInBothTools) {
  for (const auto& [format, w, mode] : {std::tuple{PIX_Y8, 5u, "L"}, {PIX_Y8, 6u, "L"}, {PIX_RGB24, 5u, "RGB"},
                                        {PIX_RGB15, 5u, "RGB"}, {PIX_RGB15, 8u, "RGB"}}) {
    const std::string path = io::scratch_path("ours_" + std::to_string(format) + "_" + std::to_string(w) + ".tga");
    SCOPED_TRACE(path);
    const uint32_t img = filled(format, w, 3, 0, w);
    ASSERT_EQ(write_strips(img, PIX_FILE_TGA, path, 3), 0u);
    const io::Pixels p = io::pillow_read(path);
    EXPECT_EQ(std::tie(p.mode, p.width, p.height), std::make_tuple(mode, w, 3u));
    EXPECT_EQ(p.bytes, samples(img));
    EXPECT_EQ(io::magick_read(path, format == PIX_Y8 ? "gray" : "rgb"), samples(img));
  }
}

TEST_F(TgaInterop, TheirTopLeftFilesReadUnchangedAndBottomLeftOnesUpsideDown) {
  const Bytes rgb = pattern(5 * 3 * 3, 1), grey = pattern(5 * 3, 2);
  Bytes flipped(grey.size());  // bottom-left: the stored rows are taken top row first
  for (std::size_t i = 0; i < grey.size(); ++i) flipped[i] = grey[(2 - i / 5) * 5 + i % 5];
  ASSERT_TRUE(io::pillow_save(io::scratch_path("pillow_rgb.tga"), "RGB", 5, 3, rgb, "orientation=1"));
  ASSERT_TRUE(io::pillow_save(io::scratch_path("pillow_grey.tga"), "L", 5, 3, grey, "orientation=1"));
  ASSERT_TRUE(io::pillow_save(io::scratch_path("pillow_bottom.tga"), "L", 5, 3, grey));
  io::write_file(io::scratch_path("magick.rgb"), rgb);
  ASSERT_EQ(io::run("/usr/bin/convert -size 5x3 -depth 8 rgb:'" + io::scratch_path("magick.rgb") +
                    "' -orient TopLeft '" + io::scratch_path("magick_rgb.tga") + "'"), 0);
  for (const auto& [name, top_left, pixels] : {std::tuple{"pillow_rgb.tga", true, rgb}, {"pillow_grey.tga", true, grey},
                                               {"magick_rgb.tga", true, rgb}, {"pillow_bottom.tga", false, flipped}}) {
    const std::string path = io::scratch_path(name);
    ASSERT_EQ(io::read_file(path).at(17) & 0x20, top_left ? 0x20 : 0) << path;
    uint32_t result;
    EXPECT_EQ(samples(read_whole(path, result)), pixels) << path;
    EXPECT_EQ(result, 0u);
  }
}

}  // namespace
