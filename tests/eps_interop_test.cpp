// Our EPS files in Ghostscript: the painted area and, where the picture
// maps one image pixel to one device pixel, the pixels themselves.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
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

class EpsInterop : public LibraryTest {
 protected:
  // A whole image with varied bytes (bilevel lines padded to even bytes), written to `path`.
  uint32_t written(uint16_t format, uint32_t w, uint32_t h, const std::string& path) {
    const uint32_t img = pixtest::make_image(format, w, h, h);
    tPIX_Image& r = *find_image(img);
    step_ = format == PIX_BILEVEL ? ((w + 7) / 8 + 1) & ~1u : r.bytes_per_line;
    r.data = static_cast<uint8_t*>(std::malloc(step_ * h));
    for (uint32_t i = 0; i < step_ * h; ++i) r.data[i] = static_cast<uint8_t>(i * 7);
    PIX_image_set_outfilename(img, path.c_str());
    EXPECT_EQ(PIX_write_EPS_file(img, PIX_STRIP_NEXT), 0u);
    return img;
  }
  // Ghostscript's painted box, rounded to whole points; empty when it failed.
  std::string painted(const std::string& path) {
    std::string out;
    run("gs -q -dNOPAUSE -dBATCH -sDEVICE=bbox '" + path + "' 2>&1", &out);
    const std::size_t at = out.find("%%HiResBoundingBox:");
    if (at == std::string::npos) return out;
    std::istringstream in(out.substr(at + 19));
    std::ostringstream box;
    for (int i = 0; i < 4; ++i) {
      double v = 0;
      in >> v;
      box << (i ? " " : "") << std::lround(v);
    }
    return box.str();
  }
  uint32_t step_ = 0;
};

TEST_F(EpsInterop, GhostscriptPaintsTheBoundingBox) {
  struct Case {
    uint16_t format;
    uint32_t w, h;
    const char* box;
  } cases[] = {{PIX_Y8, 640, 480, "18 22 540 718"},     {PIX_RGB24, 640, 480, "18 22 540 718"},
               {PIX_BILEVEL, 640, 480, "18 22 540 718"}, {PIX_Y8, 480, 640, "18 22 540 718"},
               {PIX_Y8, 100, 100, "18 109 540 631"},     {PIX_RGB24, 31, 1000, "268 10 290 730"}};
  for (const Case& c : cases) {
    const std::string path = scratch_path("box_" + std::to_string(c.format) + "_" + std::to_string(c.w) + ".eps");
    const uint32_t img = written(c.format, c.w, c.h, path);
    const Bytes file = read_file(path);
    EXPECT_NE(std::string(file.begin(), file.end()).find(std::string("%%BoundingBox: ") + c.box), std::string::npos);
    EXPECT_EQ(painted(path), c.box) << path;
    PIX_image_destroy(img);
  }
}

// Kept: the paletted file's Decode array has six entries, which a strict
// interpreter refuses for a one-component colour space.
TEST_F(EpsInterop, GhostscriptRefusesThePalettedDecodeArray) {
  const std::string path = scratch_path("paletted.eps");
  written(PIX_PALETTED, 8, 8, path);
  EXPECT_NE(painted(path).find("rangecheck"), std::string::npos);
}

// 261 x 360 pixels fill the page area at 2 points a pixel: at 36 dpi with
// the page cropped to the box, one image pixel is one device pixel.
TEST_F(EpsInterop, RenderedPixelsMatch) {
  for (uint16_t format : {PIX_Y8, PIX_RGB24, PIX_BILEVEL}) {
    const std::string path = scratch_path("pixels_" + std::to_string(format) + ".eps");
    const std::string out = path + (format == PIX_RGB24 ? ".ppm" : ".pgm");
    const uint32_t img = written(format, 261, 360, path);
    ASSERT_EQ(run(std::string("gs -q -dNOPAUSE -dBATCH -dEPSCrop -r36 -sDEVICE=") +
                  (format == PIX_RGB24 ? "ppmraw" : "pgmraw") + " -sOutputFile='" + out + "' '" + path + "'"),
              0);
    const Bytes file = read_file(out);
    // Four header lines: magic, comment, size, maximum.
    std::size_t at = 0;
    for (int line = 0; line < 4 && at < file.size(); ++at) line += file[at] == '\n';
    const unsigned n = format == PIX_RGB24 ? 3 : 1;
    ASSERT_EQ(file.size() - at, 261u * 360 * n);
    const tPIX_Image& r = *find_image(img);
    int worst = 0;
    for (uint32_t y = 0; y < 360; ++y) {
      for (uint32_t x = 0; x < 261 * n; ++x) {
        int want;
        if (format == PIX_BILEVEL) {
          want = (r.data[y * step_ + x / 8] >> (7 - x % 8)) & 1 ? 255 : 0;
        } else {
          want = r.data[y * step_ + x];
        }
        worst = std::max(worst, std::abs(file[at + y * 261 * n + x] - want));
      }
    }
    // Ghostscript's grey transfer may round a level by one.
    EXPECT_LE(worst, format == PIX_Y8 ? 1 : 0) << format;
  }
}

}  // namespace
