// Byte-order helpers, content detection, the read and write dispatchers, raw
// files and memory images.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/image.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string path_for(const std::string& name) { return "files_test_" + name; }

void write_bytes(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes read_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class FilesTest : public pixtest::LibraryTest {};

TEST_F(FilesTest, ByteOrderHelpersWriteAndReadBothOrders) {
  const std::string path = path_for("bytes.bin");
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(put_ui8(f, 0xA5), 0xA5);
  put_ui16i(f, 0x1234);
  put_ui16m(f, 0x1234);
  put_ui32i(f, 0x89ABCDEF);
  put_ui32m(f, 0x89ABCDEF);
  std::fclose(f);
  EXPECT_EQ(read_bytes(path), (Bytes{0xA5, 0x34, 0x12, 0x12, 0x34, 0xEF, 0xCD, 0xAB, 0x89, 0x89, 0xAB, 0xCD, 0xEF}));

  f = std::fopen(path.c_str(), "rb");
  std::fgetc(f);
  EXPECT_EQ(get_ui16i(f), 0x1234);
  EXPECT_EQ(get_ui16m(f), 0x1234);
  EXPECT_EQ(get_ui32i(f), 0x89ABCDEFu);
  EXPECT_EQ(get_ui32m(f), 0x89ABCDEFu);
  std::rewind(f);
  std::fgetc(f);
  // Any byte-order word but 'M' means little-endian.
  EXPECT_EQ(TIFF_read_ui16(f, 0), 0x1234);
  EXPECT_EQ(TIFF_read_ui16(f, 'M'), 0x1234);
  EXPECT_EQ(TIFF_read_ui32(f, 'I'), 0x89ABCDEFu);
  EXPECT_EQ(TIFF_read_ui32(f, 'M'), 0x89ABCDEFu);
  // A SHORT value field is four bytes, of which the first two count.
  std::fseek(f, 1, SEEK_SET);
  EXPECT_EQ(TIFF_read_data(f, 'I', 3), 0x1234u);
  EXPECT_EQ(std::ftell(f), 5);
  std::fseek(f, 1, SEEK_SET);
  EXPECT_EQ(TIFF_read_data(f, 'I', 4), 0x34121234u);
  // Past the end every byte reads as 0xFF.
  std::fseek(f, 12, SEEK_SET);
  EXPECT_EQ(get_ui32i(f), 0xFFFFFFEFu);
  std::fclose(f);
}

struct Detection {
  const char* name;
  Bytes bytes;
  uint32_t format;
};

// A TIFF header and a directory whose first entry has the given field type.
Bytes tiff_bytes(uint8_t second, bool big_endian, uint16_t first_type) {
  Bytes b{big_endian ? uint8_t('M') : uint8_t('I'), second};
  auto put = [&](uint32_t v, int size) {
    for (int i = 0; i < size; ++i) {
      const int shift = big_endian ? 8 * (size - 1 - i) : 8 * i;
      b.push_back(static_cast<uint8_t>(v >> shift));
    }
  };
  put(42, 2);
  put(8, 4);  // the first directory
  put(1, 2);  // one entry: tag, type, count
  put(256, 2);
  put(first_type, 2);
  put(1, 4);
  return b;
}

TEST_F(FilesTest, DetectionTriesEachFormatInTurn) {
  Bytes tga(18, 0);
  tga[2] = 2;
  tga[16] = 24;
  Bytes rle_tga = tga;
  rle_tga[2] = 10;
  Bytes bmp{'B', 'M', 1, 2, 3, 4, 0, 0, 0, 0};
  Bytes bmp_reserved = bmp;
  bmp_reserved[8] = 1;
  const std::vector<Detection> cases{
      {"tiff_mm", tiff_bytes('M', true, 3), PIX_FILE_TIFF},
      {"tiff_ii", tiff_bytes('I', false, 11), PIX_FILE_TIFF},
      {"tiff_second_byte_ignored", tiff_bytes('x', false, 1), PIX_FILE_TIFF},
      {"tiff_type_0", tiff_bytes('M', true, 0), PIX_FILE_UNRECOGNISED},
      {"tiff_type_12", tiff_bytes('I', false, 12), PIX_FILE_UNRECOGNISED},
      {"tga", tga, PIX_FILE_TGA},
      {"tga_rle", rle_tga, PIX_FILE_TGA},
      {"jpeg", {0xFF, 0xD8, 0xFF, 0xE0}, PIX_FILE_JPEG},
      {"eps", {'%', '!', 'P', 'S', '-'}, PIX_FILE_EPS},
      {"bmp", bmp, PIX_FILE_BMP},
      {"bmp_reserved_set", bmp_reserved, PIX_FILE_UNRECOGNISED},
      {"empty", {}, PIX_FILE_UNRECOGNISED},
      {"text", {'h', 'e', 'l', 'l', 'o'}, PIX_FILE_UNRECOGNISED},
  };
  for (const Detection& c : cases) {
    const std::string path = path_for(c.name);
    write_bytes(path, c.bytes);
    EXPECT_EQ(PIX_image_find_file_format(path.c_str()), c.format) << c.name;
  }
  EXPECT_TRUE(reports().empty());
  expect_report(PIX_image_find_file_format("files_test_no_such_file"), "PIX_image_find_file_format", 0x10640000,
                "Failed to open file");
}

TEST_F(FilesTest, ReadDispatcherReportsDetectionFailuresTwice) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  PIX_image_set_infilename(h, "files_test_no_such_file");
  expect_report(PIX_image_read(h, 0, PIX_STRIP_NEXT), "PIX_image_read", 0x10640000, "Failed to recognise file format");
  ASSERT_EQ(reports().size(), 2u);
  EXPECT_EQ(reports()[0].function, "PIX_image_find_file_format");
}

TEST_F(FilesTest, UnrecognisedFileKeepsFailingUntilAnotherCommand) {
  const std::string path = path_for("unknown");
  write_bytes(path, {'B', 'M', 0, 0, 0, 0, 1, 0, 0, 0});  // reserved bytes set: not a bitmap
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  PIX_image_set_infilename(h, path.c_str());
  for (int command : {PIX_STRIP_NEXT, PIX_STRIP_FINISH, PIX_STRIP_NEXT}) {
    expect_report(PIX_image_read(h, 0, static_cast<uint16_t>(command)), "PIX_image_read", 0x10140000, "Unsupported/unrecognized image format");
  }
  // The dispatcher stays busy with the unknown format: a readable file now
  // changes nothing until a command other than 3 or 4 resets it.
  write_bytes(path, {'%', '!', 'P', 'S'});
  EXPECT_EQ(PIX_image_read(h, 0, PIX_STRIP_NEXT), 0x10140000u);
  reports().clear();
  EXPECT_EQ(PIX_image_read(h, 0, 9), 0x007C0000u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(FilesTest, WriteDispatcherRefusesCodesWithoutWriter) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  for (int format : {0, 2, 4, 12, 200}) {
    expect_report(PIX_image_write(h, 0, static_cast<uint16_t>(format), PIX_STRIP_NEXT), "PIX_image_write", 0x10140000,
                  "Unsupported/unrecognized image format");
  }
}

// A Y16 image of 3x2 whose samples count up from 0x0102.
uint32_t y16_image(uint32_t lines) {
  const uint32_t h = pixtest::make_image(PIX_Y16, 3, 2, lines);
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 16);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
  tPIX_Image* img = pix::find_image(h);
  for (uint32_t i = 0; i < img->width * lines; ++i) {
    const uint16_t v = static_cast<uint16_t>(0x0102 + i * 0x0101);
    img->data[2 * i] = static_cast<uint8_t>(v & 0xFF);  // the image holds them in the host's order
    img->data[2 * i + 1] = static_cast<uint8_t>(v >> 8);
  }
  return h;
}

TEST_F(FilesTest, RawFileHoldsSixteenBitSamplesLeastSignificantFirst) {
  const std::string path = path_for("y16.raw");
  const uint32_t h = y16_image(2);
  PIX_image_set_outfilename(h, path.c_str());
  ASSERT_EQ(PIX_image_write(h, 0, PIX_FILE_RAW, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(read_bytes(path), (Bytes{2, 1, 3, 2, 4, 3, 5, 4, 6, 5, 7, 6}));
}

TEST_F(FilesTest, RawFileOfPaddedLinesWrittenInStrips) {
  const std::string path = path_for("y8.raw");
  const uint32_t h = pixtest::make_image(PIX_Y8, 5, 3, 2);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  PIX_image_check(h);
  PIX_image_set_outfilename(h, path.c_str());
  Bytes expected;
  for (uint32_t first = 0; first < 3; first += 2) {
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 2);
    PIX_image_free_data(h);
    ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
    tPIX_Image* img = pix::find_image(h);
    for (uint32_t i = 0; i < 16; ++i) img->data[i] = static_cast<uint8_t>(first * 16 + i);
    ASSERT_EQ(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), 0u);
    for (uint32_t i = 0; i < 8 * std::min(2u, 3 - first); ++i) expected.push_back(static_cast<uint8_t>(first * 16 + i));
  }
  // The padding of each line goes out with it; the last strip was cut to one line.
  EXPECT_EQ(read_bytes(path), expected);
}

TEST_F(FilesTest, RawWriterRefusesFormatsAndSkipsEmptyImages) {
  const std::string path = path_for("refused.raw");
  std::remove(path.c_str());
  for (int format : {PIX_BILEVEL, 13}) {
    const uint32_t h = pixtest::make_image(static_cast<uint16_t>(format), 8, 2, 2);
    PIX_image_set_outfilename(h, path.c_str());
    expect_report(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), "PIX_write_raw_data", 0x10140000,
                  "Unsupported image format");
  }
  const uint32_t empty = pixtest::make_image(PIX_Y8, 8, 2, 0);
  PIX_image_set_outfilename(empty, path.c_str());
  EXPECT_EQ(PIX_write_raw_data_file(empty, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::fopen(path.c_str(), "rb"), nullptr);
}

TEST_F(FilesTest, MemoryImageRoundTripInStrips) {
  // A 7x5 RGB24 picture sent in strips of 2 lines to a memory image, then
  // read back from it in the strips the memory image is given.
  const uint32_t src = pixtest::make_image(PIX_RGB24, 7, 5, 2);
  const uint32_t mem = PIX_image_create();
  Bytes picture;
  for (uint32_t first = 0; first < 5; first += 2) {
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, 2);
    PIX_image_free_data(src);
    ASSERT_EQ(PIX_image_malloc_a_strip(src), 0u);
    tPIX_Image* img = pix::find_image(src);
    for (uint32_t i = 0; i < 2 * img->bytes_per_line; ++i) img->data[i] = static_cast<uint8_t>(first * 31 + i * 7);
    const uint32_t lines = std::min(2u, 5 - first);
    picture.insert(picture.end(), img->data, img->data + lines * img->bytes_per_line);
    ASSERT_EQ(PIX_image_write(src, mem, PIX_FILE_MEMORY, PIX_STRIP_NEXT), 0u);
  }
  const tPIX_Image* whole = pix::find_image(mem);
  ASSERT_EQ(whole->lines_this_strip, 5u);
  EXPECT_EQ(Bytes(whole->data, whole->data + picture.size()), picture);

  // The receiver takes the memory image's parameters, its strip size
  // included: the first strip is the whole picture, and the read is over.
  const uint32_t out = PIX_image_create();
  ASSERT_EQ(PIX_read_from_memory(mem, out, PIX_STRIP_NEXT), 0u);
  const tPIX_Image* back = pix::find_image(out);
  ASSERT_EQ(back->lines_this_strip, 5u);
  EXPECT_EQ(Bytes(back->data, back->data + picture.size()), picture);
}

TEST_F(FilesTest, ReadDispatcherTakesMemoryImages) {
  const uint32_t whole = pixtest::make_image(PIX_Y8, 4, 3, 3);
  ASSERT_EQ(PIX_image_malloc_a_strip(whole), 0u);
  tPIX_Image* img = pix::find_image(whole);
  for (uint32_t i = 0; i < 12; ++i) img->data[i] = static_cast<uint8_t>(i + 100);
  const uint32_t receiver = PIX_image_create();
  ASSERT_EQ(PIX_image_read(whole, receiver, PIX_STRIP_NEXT), 0u);
  const tPIX_Image* got = pix::find_image(receiver);
  ASSERT_EQ(got->lines_this_strip, 3u);
  EXPECT_EQ(Bytes(got->data, got->data + 12), Bytes(img->data, img->data + 12));
}

}  // namespace

namespace {

TEST_F(FilesTest, DestroyingEveryImageEndsOpenTransfers) {
  const std::string first = path_for("abandoned.raw");
  const std::string second = path_for("fresh.raw");
  uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 2);
  ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
  PIX_image_set_outfilename(h, first.c_str());
  ASSERT_EQ(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), 0u);  // half of the image
  PIX_image_destroy(PIX_ALL_IMAGES);

  // The next raw write opens its own file rather than going on with the old one.
  h = pixtest::make_image(PIX_Y8, 4, 2, 2);
  ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
  PIX_image_set_outfilename(h, second.c_str());
  ASSERT_EQ(PIX_write_raw_data_file(h, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(read_bytes(first).size(), 8u);
  EXPECT_EQ(read_bytes(second).size(), 8u);
}

}  // namespace

namespace {

// Bilevel records count no line bytes, yet their strips hold packed lines:
// a strip the library allocates can be written and read back by the formats
// that take bilevel images.
TEST_F(FilesTest, BilevelStripsHoldPackedLines) {
  for (uint16_t file_format : {uint16_t{PIX_FILE_TIFF}, uint16_t{PIX_FILE_EPS}}) {
    SCOPED_TRACE(file_format);
    const std::string path = path_for(file_format == PIX_FILE_TIFF ? "bilevel.tif" : "bilevel.eps");
    const uint32_t h = pixtest::make_image(PIX_BILEVEL, 13, 3, 3);
    ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
    Bytes written;
    for (uint32_t i = 0; i < 6; ++i) {  // 2 bytes a line
      pix::find_image(h)->data[i] = static_cast<uint8_t>(0x35 * (i + 1));
      written.push_back(static_cast<uint8_t>(i % 2 == 0 ? 0x35 * (i + 1) : (0x35 * (i + 1)) & 0xF8));
    }
    PIX_image_set_outfilename(h, path.c_str());
    ASSERT_EQ(PIX_image_write(h, 0, file_format, PIX_STRIP_NEXT), 0u);

    const uint32_t back = PIX_image_create();
    PIX_image_set_infilename(back, path.c_str());
    PIX_image_set_parameter(back, PIX_IMAGE_HEIGHT, 32767);
    ASSERT_EQ(PIX_image_read(back, 0, PIX_STRIP_NEXT), 0u);
    const tPIX_Image* got = pix::find_image(back);
    ASSERT_EQ(got->format, PIX_BILEVEL);
    ASSERT_EQ(got->height, 3u);
    Bytes read;
    for (uint32_t i = 0; i < 6; ++i) read.push_back(static_cast<uint8_t>(got->data[i] & (i % 2 == 0 ? 0xFF : 0xF8)));
    EXPECT_EQ(read, written);
  }
}

}  // namespace
