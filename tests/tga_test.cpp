// TGA files: header, round trips, strips, refusals and damaged files.
#include <algorithm>
#include <cstdio>
#include <string>
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"

namespace {

using namespace pixtest;
using pix::find_image;

const char* const kFile = "tga_test.tga";

Bytes header(uint8_t type, uint16_t w, uint16_t h, uint8_t depth, uint8_t id_length = 0, uint8_t map_type = 0) {
  return {id_length, map_type, type, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8),
          static_cast<uint8_t>(h), static_cast<uint8_t>(h >> 8), depth, 0};
}

class Tga : public LibraryTest {
 protected:
  void TearDown() override {
    PIX_read_TGA_file(reader_, PIX_STRIP_FINISH);  // no transfer outlives its test
    std::remove(kFile);
    LibraryTest::TearDown();
  }
  // Reads kFile whole through the read dispatcher.
  Bytes read_back(uint32_t* image = nullptr) {
    reader_ = read_whole(kFile, last_);
    if (image != nullptr) *image = reader_;
    return rows(reader_);
  }
  // Reads kFile in strips of `lines` with the reader itself (detection refuses some files it takes).
  uint32_t read_direct(uint32_t lines = 1000) {
    reader_ = make_image(PIX_Y8, 1, 1, lines);
    PIX_image_set_infilename(reader_, kFile);
    return last_ = PIX_read_TGA_file(reader_, PIX_STRIP_NEXT);
  }
  uint32_t reader_ = 0;
  uint32_t last_ = 0;
};

// 15-bit pixels with their unused top bit clear.
uint32_t rgb15(uint32_t w, uint32_t h) {
  const uint32_t img = filled(PIX_RGB15, w, h);
  const tPIX_Image& r = *find_image(img);
  for (uint32_t i = 1; i < r.bytes_per_line * h; i += 2) r.data[i] &= 0x7F;
  return img;
}

TEST_F(Tga, HeaderAndRowsAreWrittenTopRowFirstWithoutPadding) {
  const uint32_t img = filled(PIX_RGB24, 3, 2);
  ASSERT_EQ(write_strips(img, PIX_FILE_TGA, kFile, 1), 0u);
  const Bytes file = load(kFile), pixels = rows(img);
  ASSERT_EQ(file.size(), 18u + 2 * 9);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 18), Bytes({0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 2, 0, 24, 0x20}));
  for (std::size_t i = 0; i < pixels.size(); ++i) EXPECT_EQ(file[18 + i], pixels[i - i % 3 + 2 - i % 3]) << i;
  const uint32_t grey = filled(PIX_Y8, 5, 1);
  ASSERT_EQ(write_strips(grey, PIX_FILE_TGA, kFile, 1), 0u);
  Bytes expected = {0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 1, 0, 8, 0x20};
  for (uint8_t b : rows(grey)) expected.push_back(b);
  EXPECT_EQ(load(kFile), expected);
  ASSERT_EQ(write_strips(rgb15(5, 1), PIX_FILE_TGA, kFile, 1), 0u);
  EXPECT_EQ(load(kFile)[16], 16);
  EXPECT_EQ(load(kFile).size(), 18u + 10);
}

TEST_F(Tga, ImagesComeBackUnchangedAndSixteenBitOnesAsTheRgb24ConverterMakesThem) {
  for (uint16_t format : {PIX_Y8, PIX_RGB24, PIX_RGB15}) {
    for (uint32_t width : {4u, 5u}) {  // the padding byte of odd lines is never looked at
      SCOPED_TRACE(std::to_string(format) + " " + std::to_string(width));
      const uint32_t img = format == PIX_RGB15 ? rgb15(width, 7) : filled(format, width, 7, 0, width);
      ASSERT_EQ(write_strips(img, PIX_FILE_TGA, kFile, 3), 0u);
      uint32_t back;
      read_back(&back);
      ASSERT_EQ(last_, 0u);
      const tPIX_Image& b = *find_image(back);
      EXPECT_EQ(std::tie(b.format, b.width, b.height), std::make_tuple(format == PIX_RGB15 ? PIX_RGB24 : format, width, 7u));
      if (format != PIX_RGB15) {
        EXPECT_EQ(rows(back), rows(img));
        continue;
      }
      const uint32_t converted = PIX_image_create();
      ASSERT_EQ(PIX_convert_to_RGB24(img, converted, PIX_STRIP_NEXT), 0u);
      // Kept: the converter packs its lines, so only these bytes are defined.
      const Bytes want(find_image(converted)->data, find_image(converted)->data + 3 * width * 7);
      EXPECT_TRUE(std::equal(want.begin(), want.end(), b.data));
      Bytes file = load(kFile);
      file[16] = 15;  // a depth byte of 15 is read the same way
      save(kFile, file);
      ASSERT_EQ(read_direct(), 0u);
      EXPECT_TRUE(std::equal(want.begin(), want.end(), find_image(reader_)->data));
    }
  }
}

TEST_F(Tga, StripsFollowTheFileIntoALockedBufferAndTheLastOneIsCut) {
  const uint32_t source = rgb15(4, 5), expected = PIX_image_create();
  ASSERT_EQ(write_strips(source, PIX_FILE_TGA, kFile, 5), 0u);
  ASSERT_EQ(PIX_convert_to_RGB24(source, expected, PIX_STRIP_NEXT), 0u);
  reader_ = reader(kFile, 2);
  Bytes mine(2 * 12), got;
  PIX_image_set_ptr(reader_, PIX_PTR_DATA, mine.data());
  PIX_image_set_flags(reader_, PIX_FLAG_LOCKED, 1);
  for (int strip = 0; strip < 3; ++strip) {
    ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(find_image(reader_)->data, mine.data());
    EXPECT_EQ(PIX_image_get_flags(reader_, PIX_FLAG_LOCKED), 1u);
    got.insert(got.end(), mine.begin(), mine.begin() + 12 * find_image(reader_)->lines_this_strip);
  }
  EXPECT_EQ(find_image(reader_)->lines_this_strip, 1u);
  EXPECT_EQ(got, Bytes(find_image(expected)->data, find_image(expected)->data + 60));
  // The reader is idle again: the next call starts the file anew.
  PIX_image_set_flags(reader_, PIX_FLAG_LOCKED, 0);
  PIX_image_set_ptr(reader_, PIX_PTR_DATA, nullptr);
  PIX_image_set_parameter(reader_, PIX_LINES_THIS_STRIP, 5);
  ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(rows(reader_), got);
}

TEST_F(Tga, ShortDamagedAndRefusedFiles) {
  Bytes id = header(3, 4, 2, 8, 2);  // the ID field is read as pixels; descriptor 0 (bottom-left) is ignored
  id.insert(id.end(), {'i', 'd', 1, 2, 3, 4, 5, 6, 7, 8});
  save(kFile, id);
  EXPECT_EQ(read_back(), Bytes({'i', 'd', 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(last_, 0u);
  Bytes file = header(2, 2, 2, 24);
  file.insert(file.end(), {1, 2, 3, 4});
  save(kFile, file);
  EXPECT_EQ(read_back(), Bytes({3, 2, 1, 0xFF, 0xFF, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));  // read on as 0xFF
  EXPECT_EQ(last_, 0u);
  struct Case {
    Bytes head;
    uint32_t code;
    const char* message;
  } cases[] = {
      {{0, 0, 3}, 0x10030002u, "PIX_image_check failed"},  // the header cut short: a depth of 0xFF
      {header(10, 2, 2, 24), 0x10140000u, "unsupported image type"},
      {header(1, 2, 2, 8, 0, 1), 0x10140000u, "unsupported image"},
      {header(2, 2, 2, 32), 0x10030003u, "PIX_image_check failed"},
      {header(3, 2, 2, 16), 0x10030002u, "PIX_image_check failed"},
  };
  for (const Case& c : cases) {
    save(kFile, c.head);
    expect_report(read_direct(1), "PIX_read_TGA_file", c.code, c.message);
  }
  Bytes good = header(3, 1, 1, 8);  // each refusal left the reader idle
  good.push_back(42);
  save(kFile, good);
  EXPECT_EQ(read_direct(), 0u);
  EXPECT_EQ(rows(reader_), Bytes{42});
}

TEST_F(Tga, ZeroSizedAndOversizedFilesFailCleanly) {
  save(kFile, header(2, 0, 0, 24));
  read_back();
  EXPECT_EQ(last_, 0u);
  // Strips of no lines only take the header: the file stays open until finished.
  EXPECT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_FINISH), 0u);
  save(kFile, header(2, 65535, 65535, 24));
  EXPECT_EQ(read_direct(65535) & 0xFFFF0000u, 0x10500000u);
  // One line of such a file is read on past its end.
  PIX_image_set_parameter(reader_, PIX_LINES_THIS_STRIP, 1);
  ASSERT_EQ(PIX_read_TGA_file(reader_, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(find_image(reader_)->data[3 * 65534], 0xFF);
}

}  // namespace
