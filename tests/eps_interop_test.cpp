// Our EPS files in Ghostscript: the painted area and, where the picture
// maps one image pixel to one device pixel, the pixels themselves.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "core/image.h"
#include "file_test_support.h"
#include "interop_support.h"

namespace {

using namespace pixtest;
using pix::find_image;
namespace io = pixtest::interop;

// Ghostscript's painted box, rounded to whole points; its output when it failed.
std::string painted(const std::string& path) {
  std::string out;
  io::run("gs -q -dNOPAUSE -dBATCH -sDEVICE=bbox '" + path + "' 2>&1", &out);
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

class EpsInterop : public LibraryTest {};

TEST_F(EpsInterop, GhostscriptPaintsTheBoundingBox) {
  for (const auto& [format, w, h, box] : {std::tuple{PIX_Y8, 640u, 480u, "18 22 540 718"},
                                          {PIX_RGB24, 640u, 480u, "18 22 540 718"},
                                          {PIX_BILEVEL, 640u, 480u, "18 22 540 718"},
                                          {PIX_Y8, 480u, 640u, "18 22 540 718"},
                                          {PIX_Y8, 100u, 100u, "18 109 540 631"},
                                          {PIX_RGB24, 31u, 1000u, "268 10 290 730"},
                                          // Kept: the paletted file's Decode array has six entries, which a
                                          // strict interpreter refuses for a one-component colour space.
                                          {PIX_PALETTED, 8u, 8u, "rangecheck"}}) {
    const std::string path = io::scratch_path("box_" + std::to_string(format) + "_" + std::to_string(w) + ".eps");
    ASSERT_EQ(write_strips(filled(format, w, h), PIX_FILE_EPS, path, h), 0u);
    const Bytes file = io::read_file(path);
    if (format == PIX_PALETTED) {
      EXPECT_NE(painted(path).find(box), std::string::npos);
      continue;
    }
    EXPECT_NE(std::string(file.begin(), file.end()).find(std::string("%%BoundingBox: ") + box), std::string::npos);
    EXPECT_EQ(painted(path), box) << path;
  }
}

// 261 x 360 pixels fill the page area at 2 points a pixel: at 36 dpi with
// the page cropped to the box, one image pixel is one device pixel.
TEST_F(EpsInterop, RenderedPixelsMatch) {
  for (uint16_t format : {PIX_Y8, PIX_RGB24, PIX_BILEVEL}) {
    const std::string path = io::scratch_path("pixels_" + std::to_string(format) + ".eps");
    const std::string out = path + (format == PIX_RGB24 ? ".ppm" : ".pgm");
    const uint32_t img = filled(format, 261, 360);
    ASSERT_EQ(write_strips(img, PIX_FILE_EPS, path, 360), 0u);
    ASSERT_EQ(io::run(std::string("gs -q -dNOPAUSE -dBATCH -dEPSCrop -r36 -sDEVICE=") +
                      (format == PIX_RGB24 ? "ppmraw" : "pgmraw") + " -sOutputFile='" + out + "' '" + path + "'"),
              0);
    const Bytes file = io::read_file(out);
    std::size_t at = 0;  // after four header lines: magic, comment, size, maximum
    for (int line = 0; line < 4 && at < file.size(); ++at) line += file[at] == '\n';
    const unsigned n = format == PIX_RGB24 ? 3 : 1;
    ASSERT_EQ(file.size() - at, 261u * 360 * n);
    const Bytes lines = rows(img);
    const uint32_t line = line_bytes(img);
    int worst = 0;
    for (uint32_t y = 0; y < 360; ++y) {
      for (uint32_t x = 0; x < 261 * n; ++x) {
        const int want = format != PIX_BILEVEL ? lines[y * line + x] : (lines[y * line + x / 8] >> (7 - x % 8)) & 1 ? 255 : 0;
        worst = std::max(worst, std::abs(file[at + y * 261 * n + x] - want));
      }
    }
    EXPECT_LE(worst, format == PIX_Y8 ? 1 : 0) << format;  // Ghostscript's grey transfer may round a level by one
  }
}

}  // namespace
