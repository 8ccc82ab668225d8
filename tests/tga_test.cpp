// TGA files: header, round trips, strips, refusals and damaged files.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
using Bytes = std::vector<uint8_t>;

const char* const kFile = "tga_test.tga";

Bytes slurp(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
void spill(const char* path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

Bytes header(uint8_t type, uint16_t w, uint16_t h, uint8_t depth, uint8_t id_length = 0, uint8_t map_type = 0) {
  return {id_length, map_type, type, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8),
          static_cast<uint8_t>(h), static_cast<uint8_t>(h >> 8), depth, 0};
}

class Tga : public LibraryTest {
 protected:
  void TearDown() override {
    // No transfer outlives its test.
    PIX_read_TGA_file(reader_, PIX_STRIP_FINISH);
    std::remove(kFile);
    LibraryTest::TearDown();
  }
  // A whole image of `format` whose bytes follow a pattern.
  uint32_t filled(uint16_t format, uint32_t w, uint32_t h) {
    const uint32_t img = pixtest::make_image(format, w, h, h);
    EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
    const tPIX_Image& r = *find_image(img);
    for (uint32_t i = 0; i < r.bytes_per_line * h; ++i) r.data[i] = static_cast<uint8_t>(i * 29 + 7);
    if (format == PIX_RGB15) {
      for (uint32_t i = 1; i < r.bytes_per_line * h; i += 2) r.data[i] &= 0x7F;
    }
    return img;
  }
  // Writes `img` strip by strip, `lines` lines a strip.
  void write(uint32_t img, uint32_t lines) {
    PIX_image_set_outfilename(img, kFile);
    tPIX_Image& r = *find_image(img);
    uint8_t* whole = r.data;
    const uint32_t height = r.height, step = r.bytes_per_line;
    for (uint32_t y = 0; y < height; y += lines) {
      r.data = whole + y * step;
      r.lines_this_strip = lines;
      ASSERT_EQ(PIX_write_TGA_file(img, PIX_STRIP_NEXT), 0u);
    }
    r.data = whole;
    r.lines_this_strip = height;
  }
  // Reads kFile whole through the read dispatcher.
  uint32_t read_whole() {
    reader_ = PIX_image_create();
    PIX_image_set_infilename(reader_, kFile);
    PIX_image_set_parameter(reader_, PIX_IMAGE_HEIGHT, 32767);
    last_ = PIX_image_read(reader_, 0, PIX_STRIP_NEXT);
    return reader_;
  }
  // Reads kFile in one strip with the reader itself (detection refuses some files it takes).
  uint32_t read_direct() {
    reader_ = pixtest::make_image(PIX_Y8, 1, 1, 1000);
    PIX_image_set_infilename(reader_, kFile);
    last_ = PIX_read_TGA_file(reader_, PIX_STRIP_NEXT);
    return reader_;
  }
  Bytes strip(uint32_t img) {
    const tPIX_Image& r = *find_image(img);
    return {r.data, r.data + r.bytes_per_line * r.lines_this_strip};
  }
  uint32_t reader_ = 0;
  uint32_t last_ = 0;
};

TEST_F(Tga, HeaderAndRowsAreWrittenTopRowFirstWithoutPadding) {
  const uint32_t img = filled(PIX_RGB24, 3, 2);
  write(img, 1);
  const Bytes file = slurp(kFile);
  ASSERT_EQ(file.size(), 18u + 2 * 9);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 18), Bytes({0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 2, 0, 24, 0x20}));
  const tPIX_Image& r = *find_image(img);
  ASSERT_EQ(r.bytes_per_line, 10u);  // 9 bytes and one of padding
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) {
      const uint8_t* p = r.data + y * 10 + x * 3;
      EXPECT_EQ(file[18 + y * 9 + x * 3], p[2]);
      EXPECT_EQ(file[18 + y * 9 + x * 3 + 2], p[0]);
    }
  }
  write(filled(PIX_Y8, 5, 1), 1);
  EXPECT_EQ(slurp(kFile), Bytes({0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 1, 0, 8, 0x20, 7, 36, 65, 94, 123}));
  write(filled(PIX_RGB15, 5, 1), 1);
  EXPECT_EQ(slurp(kFile)[16], 16);
  EXPECT_EQ(slurp(kFile).size(), 18u + 10);
}

TEST_F(Tga, GreyAndColourImagesComeBackUnchanged) {
  for (uint16_t format : {PIX_Y8, PIX_RGB24}) {
    for (uint32_t width : {4u, 5u}) {
      const uint32_t img = filled(format, width, 7);
      write(img, 3);
      const uint32_t back = read_whole();
      ASSERT_EQ(last_, 0u) << format << " " << width;
      EXPECT_EQ(find_image(back)->format, format);
      EXPECT_EQ(find_image(back)->width, width);
      EXPECT_EQ(find_image(back)->height, 7u);
      // The padding byte of odd lines is never looked at.
      const tPIX_Image& a = *find_image(img);
      const tPIX_Image& b = *find_image(back);
      const uint32_t line = width * (format == PIX_Y8 ? 1 : 3);
      for (uint32_t y = 0; y < 7; ++y) {
        EXPECT_EQ(Bytes(a.data + y * a.bytes_per_line, a.data + y * a.bytes_per_line + line),
                  Bytes(b.data + y * b.bytes_per_line, b.data + y * b.bytes_per_line + line));
      }
    }
  }
}

TEST_F(Tga, SixteenBitFilesBecomeWhatTheRgb24ConverterMakesOfThem) {
  for (uint32_t width : {4u, 5u}) {
    const uint32_t img = filled(PIX_RGB15, width, 6);
    write(img, 4);
    const uint32_t expected = PIX_image_create();
    ASSERT_EQ(PIX_convert_to_RGB24(img, expected, PIX_STRIP_NEXT), 0u);
    const uint32_t back = read_whole();
    ASSERT_EQ(last_, 0u);
    EXPECT_EQ(find_image(back)->format, PIX_RGB24);
    EXPECT_EQ(find_image(back)->depth, 24);
    // Kept: the converter packs its lines, so only these bytes are defined.
    const std::size_t packed = 3 * width * 6;
    const Bytes want = strip(expected), got = strip(back);
    ASSERT_EQ(got.size(), want.size());
    EXPECT_TRUE(std::equal(want.begin(), want.begin() + packed, got.begin())) << width;
    // A depth byte of 15 is read the same way.
    Bytes file = slurp(kFile);
    file[16] = 15;
    spill(kFile, file);
    read_direct();
    ASSERT_EQ(last_, 0u);
    const Bytes again = strip(reader_);
    EXPECT_TRUE(std::equal(want.begin(), want.begin() + packed, again.begin()));
  }
}

TEST_F(Tga, ALockedBufferKeepsReceivingTheStrips) {
  const uint32_t source = filled(PIX_RGB15, 4, 4);
  write(source, 4);
  const uint32_t expected = PIX_image_create();
  ASSERT_EQ(PIX_convert_to_RGB24(source, expected, PIX_STRIP_NEXT), 0u);
  const uint32_t img = PIX_image_create();
  PIX_image_set_infilename(img, kFile);
  reader_ = img;
  std::vector<uint8_t> mine(2 * 12);
  PIX_image_set_ptr(img, PIX_PTR_DATA, mine.data());
  PIX_image_set_flags(img, PIX_FLAG_LOCKED, 1);
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 2);
  for (int strip = 0; strip < 2; ++strip) {
    ASSERT_EQ(PIX_read_TGA_file(img, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(find_image(img)->data, mine.data());
    EXPECT_EQ(PIX_image_get_flags(img, PIX_FLAG_LOCKED), 1u);
  }
  EXPECT_EQ(find_image(img)->bytes_per_line, 12u);
  EXPECT_EQ(mine, Bytes(find_image(expected)->data + 24, find_image(expected)->data + 48));
  PIX_image_set_ptr(img, PIX_PTR_DATA, nullptr);
}

TEST_F(Tga, StripsFollowTheFileAndTheLastOneIsCut) {
  const uint32_t img = filled(PIX_Y8, 4, 5);
  write(img, 5);
  reader_ = pixtest::make_image(PIX_Y8, 1, 1, 2);
  PIX_image_set_infilename(reader_, kFile);
  Bytes got;
  for (int call = 0; call < 3; ++call) {
    ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
    const Bytes s = strip(reader_);
    got.insert(got.end(), s.begin(), s.end());
  }
  EXPECT_EQ(find_image(reader_)->lines_this_strip, 1u);
  EXPECT_EQ(got, strip(img));
  // The reader is idle again: the next call starts the file anew.
  PIX_image_set_parameter(reader_, PIX_LINES_THIS_STRIP, 5);
  ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(strip(reader_), strip(img));
}

TEST_F(Tga, TheIdFieldIsReadAsPixelsAndTheOriginIsIgnored) {
  Bytes file = header(3, 4, 2, 8, 2);
  file[17] = 0;  // bottom-left origin
  file.insert(file.end(), {'i', 'd', 1, 2, 3, 4, 5, 6, 7, 8});
  spill(kFile, file);
  read_whole();
  ASSERT_EQ(last_, 0u);
  EXPECT_EQ(strip(reader_), Bytes({'i', 'd', 1, 2, 3, 4, 5, 6}));
}

TEST_F(Tga, ShortFilesAreReadOnWithFF) {
  Bytes file = header(2, 2, 2, 24);
  for (uint8_t b : {1, 2, 3, 4}) file.push_back(b);
  spill(kFile, file);
  read_whole();
  ASSERT_EQ(last_, 0u);
  EXPECT_EQ(strip(reader_), Bytes({3, 2, 1, 0xFF, 0xFF, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  spill(kFile, Bytes{0, 0, 3});  // the header itself cut short: a depth of 0xFF
  read_direct();
  expect_report(last_, "PIX_read_TGA_file", 0x10030002u, "PIX_image_check failed");
}

TEST_F(Tga, RefusedFilesLeaveTheReaderIdle) {
  struct Case {
    Bytes head;
    uint32_t code;
    const char* message;
  } cases[] = {
      {header(10, 2, 2, 24), 0x10140000u, "unsupported image type"},
      {header(1, 2, 2, 8, 0, 1), 0x10140000u, "unsupported image"},
      {header(2, 2, 2, 32), 0x10030003u, "PIX_image_check failed"},
      {header(3, 2, 2, 16), 0x10030002u, "PIX_image_check failed"},
  };
  for (const Case& c : cases) {
    spill(kFile, c.head);
    const uint32_t img = pixtest::make_image(PIX_Y8, 1, 1, 1);
    PIX_image_set_infilename(img, kFile);
    expect_report(PIX_read_TGA_file(img, PIX_STRIP_NEXT), "PIX_read_TGA_file", c.code, c.message);
  }
  Bytes good = header(3, 1, 1, 8);
  good.push_back(42);
  spill(kFile, good);
  read_whole();
  EXPECT_EQ(last_, 0u);
  EXPECT_EQ(find_image(reader_)->data[0], 42);
  PIX_image_set_infilename(reader_, "no/such/dir/x.tga");
  expect_report(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), "PIX_read_TGA_file", 0x10640000u, "Failed to open file");
}

TEST_F(Tga, ZeroSizedAndOversizedFilesFailCleanly) {
  spill(kFile, header(2, 0, 0, 24));
  read_whole();
  EXPECT_EQ(last_, 0u);
  // Strips of no lines only take the header: the file stays open until finished.
  EXPECT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_FINISH), 0u);
  spill(kFile, header(2, 65535, 65535, 24));
  reader_ = pixtest::make_image(PIX_Y8, 1, 1, 65535);
  PIX_image_set_infilename(reader_, kFile);
  const uint32_t r = PIX_read_TGA_file(reader_, PIX_STRIP_NEXT);
  EXPECT_EQ(r & 0xFFFF0000u, 0x10500000u);
  // One line of such a file is read on past its end.
  PIX_image_set_parameter(reader_, PIX_LINES_THIS_STRIP, 1);
  ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(find_image(reader_)->data[3 * 65534], 0xFF);
}

TEST_F(Tga, TheWriterRefusesAndSkipsAsItShould) {
  const uint32_t img = filled(PIX_Y8, 2, 2);
  PIX_image_set_outfilename(img, kFile);
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 0);
  EXPECT_EQ(PIX_write_TGA_file(img, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::fopen(kFile, "rb"), nullptr);  // not even created
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, 2);
  for (uint16_t format : {PIX_RGB16, PIX_PALETTED, PIX_BGR24}) {
    PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, format);
    expect_report(PIX_write_TGA_file(img, PIX_STRIP_NEXT), "PIX_write_TGA_file", 0x10140000u | format,
                  "Unsupported image format");
  }
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_Y8);
  PIX_image_set_parameter(img, PIX_IMAGE_DEPTH, 24);
  expect_report(PIX_write_TGA_file(img, PIX_STRIP_NEXT), "PIX_write_TGA_file", 0x10030002u, "Corrupt image");
  PIX_image_set_parameter(img, PIX_IMAGE_DEPTH, 8);
  PIX_image_set_outfilename(img, "no/such/dir/x.tga");
  expect_report(PIX_write_TGA_file(img, PIX_STRIP_NEXT), "PIX_write_TGA_file", 0x10640000u, "Failed to create file");
}

}  // namespace
