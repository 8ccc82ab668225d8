// EPS files: the exact text written, page geometry, round trips and the
// reader's behaviour on damaged or foreign text.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/image.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
using Bytes = std::vector<uint8_t>;

const char* const kFile = "eps_test.eps";

std::string slurp() {
  std::ifstream in(kFile);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
void spill(const std::string& text) { std::ofstream(kFile) << text; }

class Eps : public LibraryTest {
 protected:
  void TearDown() override {
    PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
    std::remove(kFile);
    LibraryTest::TearDown();
  }
  // A whole image; line y holds the bytes y * 16, y * 16 + 1, ..., padding 0xEE.
  uint32_t image(uint16_t format, uint32_t w, uint32_t h, uint32_t line_bytes, uint32_t step, const char* name = "") {
    const uint32_t img = pixtest::make_image(format, w, h, h);
    tPIX_Image& r = *find_image(img);
    r.data = static_cast<uint8_t*>(std::malloc(step * h));
    std::memset(r.data, 0xEE, step * h);
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < line_bytes; ++x) r.data[y * step + x] = static_cast<uint8_t>(y * 16 + x);
    }
    std::strcpy(r.name, name);
    PIX_image_set_outfilename(img, kFile);
    return img;
  }
  std::string written(uint32_t img) {
    EXPECT_EQ(PIX_write_EPS_file(img, PIX_STRIP_NEXT), 0u);
    return slurp();
  }
  uint32_t read(uint32_t lines = 1000) {
    reader_ = pixtest::make_image(PIX_Y8, 1, 1, lines);
    PIX_image_set_infilename(reader_, kFile);
    last_ = PIX_read_EPS_file(reader_, PIX_STRIP_NEXT);
    return reader_;
  }
  uint32_t reader_ = 0;
  uint32_t last_ = 0;
};

const std::string kTrailer = "showpage\n%%EOF\n";

TEST_F(Eps, GreyPortraitText) {
  EXPECT_EQ(written(image(PIX_Y8, 2, 3, 2, 2, "grey")),
            "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 39 10 519 730\n%%Creator: grey\n"
            "%%EndComments\n%%EndProlog\n39 10 translate\n0 rotate\n/picstr 2 string def\n480 720 scale\n"
            "2 3 8\n[2 0 0 -3 0 3]\t% Portrait Orientation\n{currentfile\n picstr readhexstring pop}\nimage\n"
            "0001\n1011\n2021\n" + kTrailer);
}

TEST_F(Eps, ColourLandscapeTextKeepsTheCmykComment) {
  EXPECT_EQ(written(image(PIX_RGB24, 3, 2, 9, 10, "rgb")),
            "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 39 10 519 730\n%%Creator: rgb\n%%Extensions: CMYK\n"
            "%%EndComments\n%%EndProlog\n39 10 translate\n0 rotate\n/picstr 3 string def\n720 480 scale\n"
            "3 2 8\n[0 3 2 0 0 0]\t% Landscape Orientation\n{currentfile\n picstr readhexstring pop}\n"
            "false 3\ncolorimage\n000102030405060708\n101112131415161718\n" + kTrailer);
}

TEST_F(Eps, BilevelTextTakesWholeBytesAndStepsOverOddOnes) {
  EXPECT_EQ(written(image(PIX_BILEVEL, 20, 2, 3, 4, "")),
            "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 243 10 315 730\n%%Creator: \n"
            "%%EndComments\n%%EndProlog\n243 10 translate\n0 rotate\n/picstr 20 string def\n720 72 scale\n"
            "20 2 1\n[0 20 2 0 0 0]\t% Landscape Orientation\n{currentfile\n picstr readhexstring pop}\nimage\n"
            "000102\n101112\n" + kTrailer);
}

TEST_F(Eps, PalettedSquareTextBreaksTheMapAfterElevenEntries) {
  const uint32_t img = image(PIX_PALETTED, 2, 2, 2, 2, "pal");
  PIX_image_set_parameter(img, PIX_CMAP_SIZE, 12);
  for (uint8_t i = 0; i < 12; ++i) find_image(img)->cmap[i] = {i, static_cast<uint8_t>(i + 16), static_cast<uint8_t>(i + 160), 0};
  EXPECT_EQ(written(img),
            "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 18 109 540 631\n%%Creator: pal\n%%LanguageLevel: 2\n"
            "%%EndComments\n%%EndProlog\n18 109 translate\n0 rotate\n522 522 scale\n"
            "[/Indexed /DeviceRGB 11\n <0010a0 0111a1 0212a2 0313a3 0414a4 0515a5 0616a6 0717a7 0818a8 0919a9 0a1aaa\n"
            "  0b1bab>\n] setcolorspace\n<<\n  /ImageType 1\n  /Width 2\n  /Height 2\n  /BitsPerComponent 8\n"
            "  /Decode [0 1 0 1 0 1]\n  /ImageMatrix[2 0 0 -2 0 2]\t% Portrait Orientation\n"
            "  /DataSource currentfile\n  /ASCIIHexDecode filter\n>>\nimage\n0001\n1011\n" + kTrailer);
}

TEST_F(Eps, PageGeometry) {
  struct Case {
    uint32_t w, h;
    const char* box;
    const char* scale;
  } cases[] = {
      {640, 480, "%%BoundingBox: 18 22 540 718\n", "696 522 scale\n"},  // landscape, wide page
      {480, 640, "%%BoundingBox: 18 22 540 718\n", "522 696 scale\n"},
  };
  for (const Case& c : cases) {
    const uint32_t img = image(PIX_Y8, c.w, c.h, 0, c.w);
    const std::string text = written(img);
    EXPECT_NE(text.find(c.box), std::string::npos) << c.w << "x" << c.h;
    EXPECT_NE(text.find(c.scale), std::string::npos) << c.w << "x" << c.h;
    EXPECT_NE(text.find(c.w > c.h ? "Landscape" : "Portrait"), std::string::npos);
    PIX_image_destroy(img);
  }
}

TEST_F(Eps, DataLinesBreakAfter39Bytes) {
  std::string text = written(image(PIX_Y8, 78, 1, 78, 78));
  text = text.substr(text.find("image\n") + 6);
  ASSERT_EQ(text.size(), 78 * 2 + 3 + kTrailer.size());
  EXPECT_EQ(text[78], '\n');
  EXPECT_EQ(text.substr(157, 2), "\n\n");  // a break after byte 77 and the line's own end
}

TEST_F(Eps, EveryKindComesBackFromItsFile) {
  struct Case {
    uint16_t format;
    uint32_t w, bytes, step;
  } cases[] = {{PIX_BILEVEL, 20, 3, 4}, {PIX_Y8, 5, 5, 6}, {PIX_PALETTED, 4, 4, 4}, {PIX_RGB24, 3, 9, 10}};
  for (const Case& c : cases) {
    const uint32_t img = image(c.format, c.w, 7, c.bytes, c.step);
    tPIX_Image& src = *find_image(img);
    for (uint32_t i = 0; i < 256; ++i) src.cmap[i] = {static_cast<uint8_t>(i), 1, static_cast<uint8_t>(255 - i), 0};
    // Three strips: 3, 3 and the last one cut to 1.
    uint8_t* whole = src.data;
    for (uint32_t y = 0; y < 7; y += 3) {
      src.data = whole + y * c.step;
      src.lines_this_strip = 3;
      ASSERT_EQ(PIX_write_EPS_file(img, PIX_STRIP_NEXT), 0u);
    }
    src.data = whole;
    const uint32_t back = read(4);
    ASSERT_EQ(last_, 0u) << c.format;
    std::vector<uint8_t> got;
    for (int strip = 0; strip < 2; ++strip) {
      const tPIX_Image& b = *find_image(back);
      got.insert(got.end(), b.data, b.data + b.lines_this_strip * c.step);
      if (strip == 0) {
        ASSERT_EQ(PIX_read_EPS_file(back, PIX_STRIP_NEXT), 0u);
      }
    }
    const tPIX_Image& b = *find_image(back);
    EXPECT_EQ(b.format, c.format);
    EXPECT_EQ(b.width, c.w);
    EXPECT_EQ(b.height, 7u);
    ASSERT_EQ(got.size(), 7 * c.step);
    for (uint32_t y = 0; y < 7; ++y) {
      EXPECT_EQ(Bytes(got.begin() + y * c.step, got.begin() + y * c.step + c.bytes),
                Bytes(whole + y * c.step, whole + y * c.step + c.bytes)) << c.format << " line " << y;
    }
    if (c.format == PIX_PALETTED) {
      // Kept: the map comes back one entry short, the missing one black.
      EXPECT_EQ(b.cmap_size, 255);
      EXPECT_EQ(b.cmap[254].blue, 1);
      EXPECT_EQ(b.cmap[255].red + b.cmap[255].green + b.cmap[255].blue, 0);
    }
    PIX_image_destroy(img);
  }
}

TEST_F(Eps, TheWriterRefusesAndSkips) {
  const uint32_t img = image(PIX_Y8, 2, 2, 2, 2);
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 0);
  EXPECT_EQ(PIX_write_EPS_file(img, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::fopen(kFile, "r"), nullptr);
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_RGB15);
  expect_report(PIX_write_EPS_file(img, PIX_STRIP_NEXT), "PIX_write_EPS_file", 0x10140005u,
                "Unsupported image format");
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_Y8);
  PIX_image_set_parameter(img, PIX_IMAGE_DEPTH, 7);
  expect_report(PIX_write_EPS_file(img, PIX_STRIP_NEXT), "PIX_write_EPS_file", 0x10030002u, "Corrupt image");
  PIX_image_set_parameter(img, PIX_IMAGE_DEPTH, 8);
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 2);
  PIX_image_set_outfilename(img, "no/such/dir/x.eps");
  expect_report(PIX_write_EPS_file(img, PIX_STRIP_NEXT), "PIX_write_EPS_file", 0x10640000u, "Failed to create file");
}

TEST_F(Eps, TheHexReaderSkipsForeignCharactersAndZeroesPastTheEnd) {
  spill("%!PS\n1 2 translate\nr\ns\nsc\n3 2 8\nm\np1\np2\nimage\n0g1\tZ2 3x\n4");
  read();
  ASSERT_EQ(last_, 0u);
  const tPIX_Image& r = *find_image(reader_);
  EXPECT_EQ(r.format, PIX_Y8);
  EXPECT_EQ(Bytes(r.data, r.data + 3), Bytes({0x01, 0x23, 0x00}));
  EXPECT_EQ(Bytes(r.data + 4, r.data + 7), Bytes({0, 0, 0}));
  // After an odd RGB line one character is dropped, hexadecimal or not.
  spill("%!PS\nt\nr\ns\nsc\n1 2 8\nm\np1\np2\nfalse 3\ncolorimage\n010203040506\n");
  read();
  ASSERT_EQ(last_, 0u);
  const tPIX_Image& rgb = *find_image(reader_);
  EXPECT_EQ(rgb.format, PIX_RGB24);
  EXPECT_EQ(Bytes(rgb.data, rgb.data + 3), Bytes({1, 2, 3}));
  EXPECT_EQ(Bytes(rgb.data + 4, rgb.data + 7), Bytes({0x40, 0x50, 0x00}));
}

TEST_F(Eps, DamagedHeadersEnd) {
  // An over-long comment, then comments to the end of the file.
  spill("%!PS\n%" + std::string(5000, 'a') + "\n%%\n");
  read();
  EXPECT_EQ(last_, 0u);
  EXPECT_EQ(find_image(reader_)->width, 0u);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  // A paletted header cut short: the word reader reports the end of the file.
  spill("%!PS\n%%LanguageLevel: 2\nx\n/Width 3 /Height 1 /DeviceRGB " + std::string(600, '7'));
  read();
  EXPECT_EQ(last_, 0u);
  EXPECT_EQ(last_report().function, "fread_word_ascii");
  EXPECT_EQ(last_report().code, 0x107C0000u);
  EXPECT_EQ(last_report().message, "Unexpected EOF read");
  EXPECT_EQ(find_image(reader_)->cmap_size, 256);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  // More colours than the map holds: the rest are read and dropped.
  std::string big = "%!PS\n%%LanguageLevel: 2\nx\n/DeviceRGB 300 <";
  for (int i = 0; i < 300; ++i) big += i < 256 ? "102030 " : "405060 ";
  spill(big + ">\n/Width 2 /Height 1 image\n0102");
  read();
  ASSERT_EQ(last_, 0u);
  const tPIX_Image& r = *find_image(reader_);
  EXPECT_EQ(r.cmap_size, 256);
  EXPECT_EQ(r.cmap[255].red, 0x10);
  EXPECT_EQ(Bytes(r.data, r.data + 2), Bytes({1, 2}));
}

TEST_F(Eps, ImpossibleSizesAreRefused) {
  spill("%!PS\nt\nr\ns\nsc\n4000000000 4000000000 8\n");
  read();
  EXPECT_EQ(last_ & 0xFFFF0000u, 0x10500000u);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  spill("%!PS\nt\nr\ns\nsc\n3 2 4\nm\np\np\nimage\n");
  read();
  EXPECT_EQ(find_image(reader_)->format, PIX_Y8);  // any depth but 1 is grey
  spill("%!PS\n%%LanguageLevel: 2\nx\n/Width 3 /Height 1 /BitsPerComponent 4 image\n");
  read();
  expect_report(last_, "PIX_read_EPS_file", 0x10030008u, "PIX_image_check failed");
  PIX_image_set_infilename(reader_, "no/such.eps");
  expect_report(PIX_read_EPS_file(reader_, PIX_STRIP_NEXT), "PIX_read_EPS_file", 0x10640000u, "Failed to open file");
}

}  // namespace
