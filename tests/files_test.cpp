// Byte-order helpers, content detection, the read and write dispatchers, raw
// files, memory images, and the refusals every reader and writer shares.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"

namespace {

using namespace pixtest;
using pix::find_image;

class FilesTest : public LibraryTest {};

TEST_F(FilesTest, ByteOrderHelpersWriteAndReadBothOrders) {
  FILE* f = std::fopen("files_test_bytes.bin", "w+b");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(put_ui8(f, 0xA5), 0xA5);
  put_ui16i(f, 0x1234), put_ui16m(f, 0x1234), put_ui32i(f, 0x89ABCDEF), put_ui32m(f, 0x89ABCDEF);
  std::fflush(f);
  EXPECT_EQ(load("files_test_bytes.bin"), (Bytes{0xA5, 0x34, 0x12, 0x12, 0x34, 0xEF, 0xCD, 0xAB, 0x89, 0x89, 0xAB, 0xCD, 0xEF}));
  for (const bool tiff : {false, true}) {  // the TIFF readers take any byte-order word but 'M' as little-endian
    std::fseek(f, 1, SEEK_SET);
    EXPECT_EQ(tiff ? TIFF_read_ui16(f, 0) : get_ui16i(f), 0x1234);
    EXPECT_EQ(tiff ? TIFF_read_ui16(f, 'M') : get_ui16m(f), 0x1234);
    EXPECT_EQ(tiff ? TIFF_read_ui32(f, 'I') : get_ui32i(f), 0x89ABCDEFu);
    EXPECT_EQ(tiff ? TIFF_read_ui32(f, 'M') : get_ui32m(f), 0x89ABCDEFu);
  }
  std::fseek(f, 1, SEEK_SET);
  EXPECT_EQ(TIFF_read_data(f, 'I', 3), 0x1234u);  // a SHORT value field is four bytes, the first two count
  EXPECT_EQ(std::ftell(f), 5);
  std::fseek(f, 1, SEEK_SET);
  EXPECT_EQ(TIFF_read_data(f, 'I', 4), 0x34121234u);
  std::fseek(f, 12, SEEK_SET);
  EXPECT_EQ(get_ui32i(f), 0xFFFFFFEFu);  // past the end every byte reads as 0xFF
  std::fclose(f);
}

// A TIFF header and a directory whose first entry has the given field type.
Bytes tiff_bytes(uint8_t second, bool big_endian, uint16_t first_type) {
  Bytes b{big_endian ? uint8_t('M') : uint8_t('I'), second};
  for (const auto& [v, size] : {std::pair{42u, 2}, {8u, 4}, {1u, 2}, {256u, 2}, {uint32_t{first_type}, 2}, {1u, 4}}) {
    for (int i = 0; i < size; ++i) b.push_back(static_cast<uint8_t>(v >> (big_endian ? 8 * (size - 1 - i) : 8 * i)));
  }
  return b;
}

TEST_F(FilesTest, DetectionTriesEachFormatInTurn) {
  Bytes tga(18, 0), rle_tga(18, 0);
  tga[2] = 2, rle_tga[2] = 10;
  tga[16] = rle_tga[16] = 24;
  const std::tuple<const char*, Bytes, uint32_t> cases[] = {
      {"tiff_mm", tiff_bytes('M', true, 3), PIX_FILE_TIFF},
      {"tiff_ii", tiff_bytes('I', false, 11), PIX_FILE_TIFF},
      {"tiff_second_byte_ignored", tiff_bytes('x', false, 1), PIX_FILE_TIFF},
      {"tiff_type_0", tiff_bytes('M', true, 0), PIX_FILE_UNRECOGNISED},
      {"tiff_type_12", tiff_bytes('I', false, 12), PIX_FILE_UNRECOGNISED},
      {"tga", tga, PIX_FILE_TGA},
      {"tga_rle", rle_tga, PIX_FILE_TGA},
      {"jpeg", {0xFF, 0xD8, 0xFF, 0xE0}, PIX_FILE_JPEG},
      {"eps", {'%', '!', 'P', 'S', '-'}, PIX_FILE_EPS},
      {"bmp", {'B', 'M', 1, 2, 3, 4, 0, 0, 0, 0}, PIX_FILE_BMP},
      {"bmp_reserved_set", {'B', 'M', 1, 2, 3, 4, 0, 0, 1, 0}, PIX_FILE_UNRECOGNISED},
      {"empty", {}, PIX_FILE_UNRECOGNISED},
      {"text", {'h', 'e', 'l', 'l', 'o'}, PIX_FILE_UNRECOGNISED},
  };
  for (const auto& [name, bytes, format] : cases) {
    save(std::string("files_test_") + name, bytes);
    EXPECT_EQ(PIX_image_find_file_format((std::string("files_test_") + name).c_str()), format) << name;
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(FilesTest, EveryReaderReportsAMissingFile) {
  const uint32_t h = make_image(PIX_Y8, 4, 4, 4);
  PIX_image_set_infilename(h, "files_test_no_such_file");
  const std::pair<decltype(&PIX_read_BMP_file), const char*> readers[] = {
      {PIX_read_BMP_file, "PIX_read_BMP_file"}, {PIX_read_TIFF_file, "PIX_read_TIFF_file"},
      {PIX_read_TGA_file, "PIX_read_TGA_file"}, {PIX_read_EPS_file, "PIX_read_EPS_file"}};
  for (const auto& [read, name] : readers) expect_report(read(h, PIX_STRIP_NEXT), name, 0x10640000, "Failed to open file");
  expect_report(PIX_image_find_file_format("files_test_no_such_file"), "PIX_image_find_file_format", 0x10640000,
                "Failed to open file");
  // The read dispatcher reports the detection's failure, then its own.
  reports().clear();
  expect_report(PIX_image_read(h, 0, PIX_STRIP_NEXT), "PIX_image_read", 0x10640000, "Failed to recognise file format");
  ASSERT_EQ(reports().size(), 2u);
  EXPECT_EQ(reports()[0].function, "PIX_image_find_file_format");
}

TEST_F(FilesTest, EveryWriterRefusesWhatItCannotWriteAndSkipsEmptyStrips) {
  struct Case {
    uint16_t file, format;
    uint32_t parameter, value;  // set on the image after it is filled (0: none)
    const char* out;
    const char* function;
    uint32_t code;
    const char* message;
  } cases[] = {
      {PIX_FILE_BMP, PIX_RGB16, 0, 0, "", "PIX_write_BMP_file", 0x10140006, "Unsupported image format"},
      {PIX_FILE_BMP, PIX_Y8, PIX_IMAGE_DEPTH, 24, "", "PIX_write_BMP_file", 0x10030002, "Corrupt image"},
      {PIX_FILE_TIFF, PIX_RGB15, 0, 0, "", "PIX_write_TIFF_file", 0x10140005, "Unsupported image format"},
      {PIX_FILE_TIFF, PIX_PALETTED, PIX_CMAP_SIZE, 16, "", "PIX_write_TIFF_file", 0x10140010,
       "Unsupported palette/colourmap size"},
      {PIX_FILE_TIFF, PIX_Y16, PIX_DATA_WIDTH, 0, "", "PIX_write_TIFF_file", 0x1003000A, "Corrupt image"},
      {PIX_FILE_TGA, PIX_RGB16, 0, 0, "", "PIX_write_TGA_file", 0x10140000 | PIX_RGB16, "Unsupported image format"},
      {PIX_FILE_TGA, PIX_PALETTED, 0, 0, "", "PIX_write_TGA_file", 0x10140000 | PIX_PALETTED, "Unsupported image format"},
      {PIX_FILE_TGA, PIX_BGR24, 0, 0, "", "PIX_write_TGA_file", 0x10140000 | PIX_BGR24, "Unsupported image format"},
      {PIX_FILE_TGA, PIX_Y8, PIX_IMAGE_DEPTH, 24, "", "PIX_write_TGA_file", 0x10030002, "Corrupt image"},
      {PIX_FILE_EPS, PIX_RGB15, 0, 0, "", "PIX_write_EPS_file", 0x10140005, "Unsupported image format"},
      {PIX_FILE_EPS, PIX_Y8, PIX_IMAGE_DEPTH, 7, "", "PIX_write_EPS_file", 0x10030002, "Corrupt image"},
      {PIX_FILE_RAW, PIX_BILEVEL, 0, 0, "", "PIX_write_raw_data", 0x10140000, "Unsupported image format"},
      {PIX_FILE_RAW, 13, 0, 0, "", "PIX_write_raw_data", 0x10140000, "Unsupported image format"},
      {PIX_FILE_BMP, PIX_Y8, 0, 0, "no/dir/x", "PIX_write_BMP_file", 0x10640000, "Failed to create file"},
      {PIX_FILE_TIFF, PIX_Y8, 0, 0, "no/dir/x", "PIX_write_TIFF_file", 0x10640000, "Failed to create file"},
      {PIX_FILE_TGA, PIX_Y8, 0, 0, "no/dir/x", "PIX_write_TGA_file", 0x10640000, "Failed to create file"},
      {PIX_FILE_EPS, PIX_Y8, 0, 0, "no/dir/x", "PIX_write_EPS_file", 0x10640000, "Failed to create file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.function) + " " + std::to_string(c.format));
    const uint32_t h = filled(c.format, 8, 2);
    if (c.parameter != 0) PIX_image_set_parameter(h, static_cast<uint16_t>(c.parameter), c.value);
    PIX_image_set_outfilename(h, *c.out ? c.out : "files_test_refused");
    expect_report(PIX_image_write(h, 0, c.file, PIX_STRIP_NEXT), c.function, c.code, c.message);
    // The writer is idle again: a good image writes.
    if (c.file != PIX_FILE_RAW) { EXPECT_EQ(write_strips(filled(PIX_Y8, 2, 1), c.file, "files_test_after", 1), 0u); }
    if (c.file == PIX_FILE_TIFF) { EXPECT_EQ(load("files_test_after").size(), 188u); }
  }
  for (const uint16_t file : {PIX_FILE_TGA, PIX_FILE_EPS, PIX_FILE_RAW}) {  // strips of no lines: not even created
    std::remove("files_test_refused");
    const uint32_t h = filled(PIX_Y8, 2, 2);
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 0);
    PIX_image_set_outfilename(h, "files_test_refused");
    EXPECT_EQ(PIX_image_write(h, 0, file, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(std::fopen("files_test_refused", "rb"), nullptr) << file;
  }
  for (int format : {0, 2, 4, 12, 200}) {  // codes with no writer
    expect_report(PIX_image_write(filled(PIX_Y8, 2, 2), 0, static_cast<uint16_t>(format), PIX_STRIP_NEXT),
                  "PIX_image_write", 0x10140000, "Unsupported/unrecognized image format");
  }
}

TEST_F(FilesTest, EveryWriterFailsWhenItsBytesDoNotReachTheDisk) {
  std::FILE* full = std::fopen("/dev/full", "wb");
  if (full == nullptr) GTEST_SKIP() << "no /dev/full here";
  std::fclose(full);
  // A picture many times the stream buffer, in one strip and in strips of
  // 16 lines: the writes fail on the way, and with these sizes they leave the
  // close itself nothing to fail on.
  const auto file = [](uint16_t file_format, uint32_t lines) -> std::function<uint32_t()> {
    return [=] {
      const uint32_t h = filled(PIX_RGB24, 720, 64);
      const uint32_t r = write_strips(h, file_format, "/dev/full", lines);
      // A strip may fail first (a seek behind lost bytes); ending the run still fails.
      return PIX_IS_ERROR(r) && r != 0x10650000u ? PIX_image_write(h, 0, file_format, PIX_STRIP_FINISH) : r;
    };
  };
  const std::pair<const char*, std::function<uint32_t()>> cases[] = {
      {"PIX_write_BMP_file", file(PIX_FILE_BMP, 64)},  {"PIX_write_BMP_file", file(PIX_FILE_BMP, 16)},
      {"PIX_write_TIFF_file", file(PIX_FILE_TIFF, 64)}, {"PIX_write_TIFF_file", file(PIX_FILE_TIFF, 16)},
      {"PIX_write_TGA_file", file(PIX_FILE_TGA, 64)},  {"PIX_write_TGA_file", file(PIX_FILE_TGA, 16)},
      {"PIX_write_EPS_file", file(PIX_FILE_EPS, 64)},  {"PIX_write_EPS_file", file(PIX_FILE_EPS, 16)},
      {"PIX_write_raw_data", file(PIX_FILE_RAW, 64)},  {"PIX_write_raw_data", file(PIX_FILE_RAW, 16)},
      {"PIX_image_conv_LUT_save", [] {
         PIX_generate_YUV422_to_RGB16_LUT();
         return PIX_image_conv_LUT_save(make_image(PIX_Y8, 2, 2), PIX_LUT_YUV422_TO_RGB16, "/dev/full");
       }},
  };
  for (const auto& [function, write] : cases) {
    SCOPED_TRACE(function);
    expect_report(write(), function, 0x10650000, "Failed to close file");
  }
}

TEST_F(FilesTest, UnrecognisedFileKeepsFailingUntilAnotherCommand) {
  save("files_test_unknown", {'B', 'M', 0, 0, 0, 0, 1, 0, 0, 0});  // reserved bytes set: not a bitmap
  const uint32_t h = reader("files_test_unknown", 4);
  for (int command : {PIX_STRIP_NEXT, PIX_STRIP_FINISH, PIX_STRIP_NEXT}) {
    expect_report(PIX_image_read(h, 0, static_cast<uint16_t>(command)), "PIX_image_read", 0x10140000,
                  "Unsupported/unrecognized image format");
  }
  // The dispatcher stays busy with the unknown format: a readable file now
  // changes nothing until a command other than 3 or 4 resets it.
  save("files_test_unknown", {'%', '!', 'P', 'S'});
  EXPECT_EQ(PIX_image_read(h, 0, PIX_STRIP_NEXT), 0x10140000u);
  reports().clear();
  EXPECT_EQ(PIX_image_read(h, 0, 9), 0x007C0000u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(FilesTest, RawFilesHoldPaddedLinesAndSixteenBitSamplesLeastSignificantFirst) {
  const uint32_t y16 = make_image(PIX_Y16, 3, 2, 2);
  PIX_image_set_parameter(y16, PIX_DATA_WIDTH, 16);
  ASSERT_EQ(PIX_image_malloc_a_strip(y16), 0u);
  for (uint32_t i = 0; i < 6; ++i) {  // the image holds the samples 0x0102, 0x0203, ... in the host's order
    const uint16_t v = static_cast<uint16_t>(0x0102 + i * 0x0101);
    std::memcpy(find_image(y16)->data + 2 * i, &v, 2);
  }
  ASSERT_EQ(write_strips(y16, PIX_FILE_RAW, "files_test_y16.raw", 2), 0u);
  EXPECT_EQ(load("files_test_y16.raw"), (Bytes{2, 1, 3, 2, 4, 3, 5, 4, 6, 5, 7, 6}));

  // The padding of each line goes out with it; the last strip is cut to one line.
  const uint32_t y8 = make_image(PIX_Y8, 5, 3, 3);
  PIX_image_set_parameter(y8, PIX_LINE_ALIGN, 4);
  PIX_image_check(y8);
  ASSERT_EQ(PIX_image_malloc_a_strip(y8), 0u);
  const Bytes all = pattern(24, 1);
  std::copy(all.begin(), all.end(), find_image(y8)->data);
  ASSERT_EQ(write_strips(y8, PIX_FILE_RAW, "files_test_y8.raw", 2), 0u);
  EXPECT_EQ(load("files_test_y8.raw"), all);
}

TEST_F(FilesTest, MemoryImagesRoundTripInStrips) {
  // A 7x5 RGB24 picture sent in strips of 2 lines to a memory image...
  const uint32_t src = filled(PIX_RGB24, 7, 5), mem = PIX_image_create();
  const Bytes picture(find_image(src)->data, find_image(src)->data + 5 * find_image(src)->bytes_per_line);
  ASSERT_EQ(write_strips(src, PIX_FILE_MEMORY, "", 2, mem), 0u);
  const tPIX_Image* whole = find_image(mem);
  ASSERT_EQ(whole->lines_this_strip, 5u);
  EXPECT_EQ(Bytes(whole->data, whole->data + picture.size()), picture);
  // ...then read from it, by itself or through the read dispatcher: the
  // receiver takes the memory image's parameters, its strip size included.
  for (const bool dispatch : {false, true}) {
    const uint32_t out = PIX_image_create();
    ASSERT_EQ(dispatch ? PIX_image_read(mem, out, PIX_STRIP_NEXT) : PIX_read_from_memory(mem, out, PIX_STRIP_NEXT), 0u);
    ASSERT_EQ(find_image(out)->lines_this_strip, 5u);
    EXPECT_EQ(Bytes(find_image(out)->data, find_image(out)->data + picture.size()), picture);
  }
}

TEST_F(FilesTest, DestroyingEveryImageEndsOpenTransfers) {
  uint32_t h = filled(PIX_Y8, 4, 4, 2);
  PIX_image_set_outfilename(h, "files_test_abandoned.raw");
  ASSERT_EQ(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), 0u);  // half of the image
  PIX_image_destroy(PIX_ALL_IMAGES);
  // The next raw write opens its own file rather than going on with the old one.
  h = filled(PIX_Y8, 4, 2, 2);
  PIX_image_set_outfilename(h, "files_test_fresh.raw");
  ASSERT_EQ(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(load("files_test_abandoned.raw").size(), 8u);
  EXPECT_EQ(load("files_test_fresh.raw").size(), 8u);
}

}  // namespace
