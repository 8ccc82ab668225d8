// EPS files: the exact text written, page geometry, round trips and the
// reader's behaviour on damaged or foreign text.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"

namespace {

using namespace pixtest;
using pix::find_image;

const char* const kFile = "eps_test.eps";
const std::string kHead = "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: ", kTrailer = "showpage\n%%EOF\n";

// EPS files are text: read and written here in text mode, so that on
// Windows their lines end in CR LF on disk and in LF in these strings.
std::string text() {
  std::ifstream in(kFile);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
void save_text(const std::string& t) { std::ofstream(kFile, std::ios::trunc) << t; }

class Eps : public LibraryTest {
 protected:
  void TearDown() override {
    PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
    std::remove(kFile);
    LibraryTest::TearDown();
  }
  // A whole image; line y holds the bytes y * 16, y * 16 + 1, ...
  uint32_t image(uint16_t format, uint32_t w, uint32_t h, const char* name = "") {
    const uint32_t img = filled(format, w, h);
    Bytes lines(std::size_t{line_bytes(img)} * h);
    for (std::size_t i = 0; i < lines.size(); ++i) lines[i] = static_cast<uint8_t>(i / line_bytes(img) * 16 + i % line_bytes(img));
    set_rows(img, lines);
    std::strcpy(find_image(img)->name, name);
    return img;
  }
  std::string written(uint32_t img) {
    EXPECT_EQ(write_strips(img, PIX_FILE_EPS, kFile, find_image(img)->height), 0u);
    return text();
  }
  uint32_t read(uint32_t lines = 1000) {
    reader_ = reader(kFile, lines);
    last_ = PIX_read_EPS_file(reader_, PIX_STRIP_NEXT);
    return reader_;
  }
  uint32_t reader_ = 0;
  uint32_t last_ = 0;
};

TEST_F(Eps, TheTextOfEachKind) {
  const uint32_t pal = image(PIX_PALETTED, 2, 2, "pal");
  PIX_image_set_parameter(pal, PIX_CMAP_SIZE, 12);
  for (uint8_t i = 0; i < 12; ++i) find_image(pal)->cmap[i] = {i, uint8_t(i + 16), uint8_t(i + 160), 0};
  const std::pair<uint32_t, std::string> cases[] = {
      {image(PIX_Y8, 2, 3, "grey"),  // portrait
       "39 10 519 730\n%%Creator: grey\n%%EndComments\n%%EndProlog\n39 10 translate\n0 rotate\n/picstr 2 string def\n"
       "480 720 scale\n2 3 8\n[2 0 0 -3 0 3]\t% Portrait Orientation\n{currentfile\n picstr readhexstring pop}\nimage\n"
       "0001\n1011\n2021\n"},
      {image(PIX_RGB24, 3, 2, "rgb"),  // landscape, the CMYK comment kept
       "39 10 519 730\n%%Creator: rgb\n%%Extensions: CMYK\n%%EndComments\n%%EndProlog\n39 10 translate\n0 rotate\n"
       "/picstr 3 string def\n720 480 scale\n3 2 8\n[0 3 2 0 0 0]\t% Landscape Orientation\n{currentfile\n"
       " picstr readhexstring pop}\nfalse 3\ncolorimage\n000102030405060708\n101112131415161718\n"},
      {image(PIX_BILEVEL, 20, 2),  // whole bytes, the odd one of each line stepped over
       "243 10 315 730\n%%Creator: \n%%EndComments\n%%EndProlog\n243 10 translate\n0 rotate\n/picstr 20 string def\n"
       "720 72 scale\n20 2 1\n[0 20 2 0 0 0]\t% Landscape Orientation\n{currentfile\n picstr readhexstring pop}\n"
       "image\n000102\n101112\n"},
      {pal,  // square; the map breaks after eleven entries
       "18 109 540 631\n%%Creator: pal\n%%LanguageLevel: 2\n%%EndComments\n%%EndProlog\n18 109 translate\n0 rotate\n"
       "522 522 scale\n[/Indexed /DeviceRGB 11\n <0010a0 0111a1 0212a2 0313a3 0414a4 0515a5 0616a6 0717a7 0818a8 0919a9"
       " 0a1aaa\n  0b1bab>\n] setcolorspace\n<<\n  /ImageType 1\n  /Width 2\n  /Height 2\n  /BitsPerComponent 8\n"
       "  /Decode [0 1 0 1 0 1]\n  /ImageMatrix[2 0 0 -2 0 2]\t% Portrait Orientation\n"
       "  /DataSource currentfile\n  /ASCIIHexDecode filter\n>>\nimage\n0001\n1011\n"},
  };
  for (const auto& [img, body] : cases) EXPECT_EQ(written(img), kHead + body + kTrailer);
  // On disk the lines end as the platform's text files do.
  const Bytes disk = load(kFile);
  const std::string raw(disk.begin(), disk.end());
#ifdef _WIN32
  EXPECT_NE(raw.find("EPSF-3.0\r\n"), std::string::npos);
#else
  EXPECT_EQ(raw.find('\r'), std::string::npos);
#endif
}

TEST_F(Eps, PageGeometryAndLineBreaks) {
  for (const auto& [w, h, box, scale] : {std::tuple{640u, 480u, "18 22 540 718\n", "696 522 scale\n"},
                                         std::tuple{480u, 640u, "18 22 540 718\n", "522 696 scale\n"}}) {
    const std::string t = written(image(PIX_Y8, w, h));
    EXPECT_EQ(t.find(kHead + box), 0u) << w << "x" << h;
    EXPECT_NE(t.find(scale), std::string::npos) << w << "x" << h;
    EXPECT_NE(t.find(w > h ? "Landscape" : "Portrait"), std::string::npos);
  }
  // Data lines break after 39 bytes: after byte 77 and at the line's own end.
  std::string t = written(image(PIX_Y8, 78, 1));
  t = t.substr(t.find("image\n") + 6);
  ASSERT_EQ(t.size(), 78 * 2 + 3 + kTrailer.size());
  EXPECT_EQ(t[78], '\n');
  EXPECT_EQ(t.substr(157, 2), "\n\n");
}

TEST_F(Eps, EveryKindComesBackFromItsFile) {
  for (const auto& [format, w] : {std::pair{PIX_BILEVEL, 20u}, {PIX_Y8, 5u}, {PIX_PALETTED, 4u}, {PIX_RGB24, 3u}}) {
    SCOPED_TRACE(format);
    const uint32_t img = filled(format, w, 7, 0, format);
    for (uint32_t i = 0; i < 256; ++i) find_image(img)->cmap[i] = {uint8_t(i), 1, uint8_t(255 - i), 0};
    ASSERT_EQ(write_strips(img, PIX_FILE_EPS, kFile, 3), 0u);  // 3, 3 and the last one cut to 1
    const uint32_t back = read(4);
    ASSERT_EQ(last_, 0u);
    const Bytes first = rows(back);
    EXPECT_EQ(first + read_strips(back, PIX_read_EPS_file, 1), rows(img));
    const tPIX_Image& b = *find_image(back);
    EXPECT_EQ(std::tie(b.format, b.width, b.height), std::make_tuple(format, w, 7u));
    if (format == PIX_PALETTED) {
      // Kept: the map comes back one entry short, the missing one black.
      EXPECT_EQ(std::make_tuple(b.cmap_size, b.cmap[254].blue), std::make_tuple(255, 1));
      EXPECT_EQ(b.cmap[255].red + b.cmap[255].green + b.cmap[255].blue, 0);
    }
  }
}

TEST_F(Eps, TheHexReaderSkipsForeignCharactersAndZeroesPastTheEnd) {
  save_text("%!PS\n1 2 translate\nr\ns\nsc\n3 2 8\nm\np1\np2\nimage\n0g1\tZ2 3x\n4");
  read();
  ASSERT_EQ(last_, 0u);
  EXPECT_EQ(find_image(reader_)->format, PIX_Y8);
  EXPECT_EQ(rows(reader_), Bytes({0x01, 0x23, 0x00, 0, 0, 0}));
  // After an odd RGB line one character is dropped, hexadecimal or not.
  save_text("%!PS\nt\nr\ns\nsc\n1 2 8\nm\np1\np2\nfalse 3\ncolorimage\n010203040506\n");
  read();
  ASSERT_EQ(last_, 0u);
  EXPECT_EQ(find_image(reader_)->format, PIX_RGB24);
  EXPECT_EQ(rows(reader_), Bytes({1, 2, 3, 0x40, 0x50, 0x00}));
}

TEST_F(Eps, DamagedHeadersEnd) {
  // An over-long comment, then comments to the end of the file.
  save_text("%!PS\n%" + std::string(5000, 'a') + "\n%%\n");
  read();
  EXPECT_EQ(last_, 0u);
  EXPECT_EQ(find_image(reader_)->width, 0u);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  // A paletted header cut short: the word reader reports the end of the file.
  save_text("%!PS\n%%LanguageLevel: 2\nx\n/Width 3 /Height 1 /DeviceRGB " + std::string(600, '7'));
  read();
  EXPECT_EQ(last_, 0u);
  const Report r = last_report();
  EXPECT_EQ(std::tie(r.function, r.code, r.message), std::make_tuple("fread_word_ascii", 0x107C0000u, "Unexpected EOF read"));
  EXPECT_EQ(find_image(reader_)->cmap_size, 256);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  // More colours than the map holds: the rest are read and dropped.
  std::string big = "%!PS\n%%LanguageLevel: 2\nx\n/DeviceRGB 300 <";
  for (int i = 0; i < 300; ++i) big += i < 256 ? "102030 " : "405060 ";
  save_text(big + ">\n/Width 2 /Height 1 image\n0102");
  read();
  ASSERT_EQ(last_, 0u);
  EXPECT_EQ(std::make_tuple(find_image(reader_)->cmap_size, find_image(reader_)->cmap[255].red), std::make_tuple(256, 0x10));
  EXPECT_EQ(rows(reader_), Bytes({1, 2}));
}

TEST_F(Eps, ImpossibleSizesAreRefused) {
  save_text("%!PS\nt\nr\ns\nsc\n4000000000 4000000000 8\n");
  read();
  EXPECT_EQ(last_ & 0xFFFF0000u, 0x10500000u);
  PIX_read_EPS_file(reader_, PIX_STRIP_FINISH);
  save_text("%!PS\nt\nr\ns\nsc\n3 2 4\nm\np\np\nimage\n");
  read();
  EXPECT_EQ(find_image(reader_)->format, PIX_Y8);  // any depth but 1 is grey
  save_text("%!PS\n%%LanguageLevel: 2\nx\n/Width 3 /Height 1 /BitsPerComponent 4 image\n");
  read();
  expect_report(last_, "PIX_read_EPS_file", 0x10030008u, "PIX_image_check failed");
}

}  // namespace
