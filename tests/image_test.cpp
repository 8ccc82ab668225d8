// Image records: handles, parameters, flags, pointers, names and the check.
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pixtest::LibraryTest;

class Images : public LibraryTest {};

TEST_F(Images, HandlesAreHandedOutLowestFirst) {
  EXPECT_EQ(PIX_image_create(), 1u);
  EXPECT_EQ(PIX_image_create(), 2u);
  EXPECT_EQ(PIX_image_create(), 3u);
  EXPECT_EQ(PIX_image_destroy(1), 0u);
  EXPECT_EQ(PIX_image_create(), 1u);
  EXPECT_EQ(PIX_image_destroy(2), 0u);
  EXPECT_EQ(PIX_image_destroy(2), 0u);  // an empty slot is no error
  EXPECT_EQ(PIX_image_create(), 2u);
  EXPECT_EQ(PIX_image_create(), 4u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(Images, TheTableHoldsAtMost65535Images) {
  for (uint32_t i = 1; i <= 65535; ++i) ASSERT_EQ(PIX_image_create(), i);
  EXPECT_EQ(PIX_image_create(), 0x18780000u);
  EXPECT_EQ(last_report().function, "PIX_image_create");
  EXPECT_EQ(last_report().code, 0x18780000u);
  PIX_image_destroy(40000);
  EXPECT_EQ(PIX_image_create(), 40000u);
}

TEST_F(Images, ANewImageHasTheDocumentedDefaults) {
  const uint32_t h = PIX_image_create();
  const auto* img = static_cast<const tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD));
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(img->format, 0);
  EXPECT_EQ(img->line_align, 2u);
  EXPECT_EQ(img->start_frame, 1u);
  EXPECT_EQ(img->lines_this_strip, 8u);
  EXPECT_EQ(img->cmap_size, 0);
  EXPECT_EQ(img->jpeg, nullptr);
  EXPECT_EQ(img->data, nullptr);
  EXPECT_STREQ(img->in_filename, "");
  ASSERT_NE(img->cmap, nullptr);
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(img->cmap[i].red, 0xAA);
    ASSERT_EQ(img->cmap[i].spare, 0xAA);
  }
}

TEST_F(Images, FailedAllocationsAtCreate) {
  pix::memory::fail_after(0);  // the record
  EXPECT_EQ(PIX_image_create(), 0x18500000u);
  EXPECT_EQ(pix::find_image(1), nullptr);
  pix::memory::fail_after(1);  // the colour map: the record stays, half made
  EXPECT_EQ(PIX_image_create(), 0x10500000u);
  ASSERT_NE(pix::find_image(1), nullptr);
  EXPECT_EQ(pix::find_image(1)->cmap, nullptr);
  EXPECT_EQ(PIX_image_create(), 2u);
}

TEST_F(Images, SettingTheFormatSetsDepthAndDataWidth) {
  const uint32_t h = PIX_image_create();
  struct Case {
    uint16_t format;
    uint32_t depth;
  };
  const Case cases[] = {{1, 1},   {2, 8},   {3, 8},   {4, 8},   {5, 15},  {6, 16},  {7, 24},  {8, 24},
                        {9, 32},  {10, 32}, {11, 32}, {12, 16}, {13, 32}, {14, 16}, {15, 32}, {100, 32},
                        {101, 32}, {102, 32}, {103, 16}, {104, 16}, {106, 16}, {108, 32}};
  for (const auto& c : cases) {
    PIX_image_set_parameter(h, PIX_DATA_WIDTH, 5);
    PIX_image_set_flags(h, PIX_FLAG_DIB, 1);
    EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, c.format), 0u) << c.format;
    EXPECT_EQ(PIX_image_get_parameter(h, PIX_IMAGE_DEPTH), c.depth) << c.format;
    EXPECT_EQ(PIX_image_get_flags(h, PIX_FLAG_DIB), 0u) << c.format;
    const bool eight = c.format == 2 || c.format == 3 || c.format == 4;
    EXPECT_EQ(PIX_image_get_parameter(h, PIX_DATA_WIDTH), eight ? 8u : 5u) << c.format;
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(Images, RefusedFormatsStayInTheRecord) {
  const uint32_t h = PIX_image_create();
  for (uint32_t code : {105u, 107u, 16u, 99u, 109u, 0xFFFFu}) {
    PIX_image_set_flags(h, PIX_FLAG_DIB, 1);
    EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, code), 0x10140000u);
    EXPECT_EQ(last_report().function, "PIX_image_set_parameter");
    EXPECT_EQ(last_report().message, "Unrecognized image type");
    EXPECT_EQ(PIX_image_get_parameter(h, PIX_IMAGE_FORMAT), code);
    EXPECT_EQ(PIX_image_get_flags(h, PIX_FLAG_DIB), 1u);
  }
  // Format 0 only clears the DIB flag.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 24);
  EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, 0), 0u);
  EXPECT_EQ(PIX_image_get_flags(h, PIX_FLAG_DIB), 0u);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_IMAGE_DEPTH), 24u);
}

TEST_F(Images, PalettedFormatGivesAColourMapSizeOnlyWhenThereIsNone) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_PALETTED);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_CMAP_SIZE), 256u);
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 16);
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_PALETTED);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_CMAP_SIZE), 16u);
}

TEST_F(Images, ParametersRoundTripAndSixteenBitFieldsAreCut) {
  const uint32_t h = PIX_image_create();
  struct Case {
    uint16_t id;
    uint32_t value;
    uint32_t read_back;
  };
  const Case cases[] = {{PIX_IMAGE_WIDTH, 0x12345678, 0x12345678},   {PIX_IMAGE_HEIGHT, 70000, 70000},
                        {PIX_IMAGE_DEPTH, 0x10018, 0x18},            {PIX_LINES_THIS_STRIP, 99, 99},
                        {PIX_BYTES_PER_LINE, 1234, 1234},            {PIX_USER_VALUE, 0xDEADBEEF, 0xDEADBEEF},
                        {PIX_DATA_WIDTH, 0x1000C, 12},               {PIX_NUM_FRAMES, 7, 7},
                        {PIX_START_FRAME, 3, 3},                     {PIX_CMAP_SIZE, 0x10100, 0x100},
                        {PIX_FIELD_ORDER, 0x20004, 4},               {PIX_LINE_ALIGN, 8, 8},
                        {PIX_OUT_LINE_ALIGN, 4, 4}};
  for (const auto& c : cases) {
    EXPECT_EQ(PIX_image_set_parameter(h, c.id, c.value), 0u) << c.id;
    EXPECT_EQ(PIX_image_get_parameter(h, c.id), c.read_back) << c.id;
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(Images, ParameterErrors) {
  const uint32_t h = PIX_image_create();
  // The library id answers for any handle, even one that names nothing.
  EXPECT_EQ(PIX_image_get_parameter(0, PIX_LIBRARY_ID), 0x9CB5u);
  EXPECT_EQ(PIX_image_get_parameter(777, PIX_LIBRARY_ID), 0x9CB5u);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_LIBRARY_ID), 0x9CB5u);
  EXPECT_TRUE(reports().empty());

  for (uint16_t id : {9, 27, 600}) {
    EXPECT_EQ(PIX_image_get_parameter(h, id), 0x10280000u);
    EXPECT_EQ(last_report().message, "Unknown parameter");
  }
  for (uint16_t id : {9, 22, 26, 27}) {
    EXPECT_EQ(PIX_image_set_parameter(h, id, 1), 0x10280000u) << id;
  }
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_JPEG_LENGTH), 0x10010000u);
  EXPECT_EQ(last_report().message, "JPEG structure does not exist");
  EXPECT_EQ(PIX_image_set_parameter(h, PIX_JPEG_LENGTH, 5), 0x10010000u);
  EXPECT_EQ(last_report().message, "JPEG structure does not exist");
}

TEST_F(Images, ComponentsFollowTheFormat) {
  const uint32_t h = PIX_image_create();
  const std::pair<uint16_t, uint32_t> cases[] = {{PIX_RGB16, 3}, {PIX_RGB15, 3}, {PIX_RGB8, 3}, {PIX_YUV422, 3},
                                                 {PIX_Y16, 1},   {PIX_XRGB32, 4}, {PIX_BILEVEL, 0}, {PIX_RGB24, 3},
                                                 {PIX_Y8, 1},    {PIX_HSI, 4}};
  for (const auto& [format, components] : cases) {
    PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
    EXPECT_EQ(PIX_image_get_parameter(h, PIX_COMPONENTS), components) << format;
  }
}

TEST_F(Images, FlagsForOneImageAndForAll) {
  const uint32_t a = PIX_image_create(), b = PIX_image_create();
  EXPECT_EQ(PIX_image_set_flags(a, PIX_FLAG_USE_LUT | PIX_FLAG_DITHER, 1), 0u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_DITHER), 1u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_LOCKED | PIX_FLAG_USE_LUT), 1u);  // any bit of the mask
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_LOCKED), 0u);
  EXPECT_EQ(PIX_image_set_flags(a, PIX_FLAG_USE_LUT, 2), 0u);  // anything but 1 clears
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_USE_LUT), 0u);
  EXPECT_EQ(PIX_image_set_flags(PIX_ALL_IMAGES, PIX_FLAG_FIELD_MODE, 1), 0u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_FIELD_MODE), 1u);
  EXPECT_EQ(PIX_image_get_flags(b, PIX_FLAG_FIELD_MODE), 1u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(Images, PointersGetAndSet) {
  const uint32_t h = PIX_image_create();
  uint8_t buffer[16] = {};
  EXPECT_EQ(PIX_image_set_ptr(h, PIX_PTR_DATA, buffer), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), buffer);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_RECORD), pix::find_image(h));
  EXPECT_NE(PIX_image_get_ptr(h, PIX_PTR_CMAP), nullptr);
  // No JPEG record: its pointers read as null and cannot be set.
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_JPEG_DATA), nullptr);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_TJPEG), nullptr);
  EXPECT_EQ(PIX_image_set_ptr(h, PIX_PTR_JPEG_POS, buffer), 0x10010000u);
  EXPECT_EQ(last_report().message, "Not a JPEG image");
  EXPECT_EQ(PIX_image_set_ptr(h, 99, buffer), 0x10280000u);
  EXPECT_EQ(last_report().message, "Unrecognized pointer type");
  // Getting never reports.
  const size_t before = reports().size();
  EXPECT_EQ(PIX_image_get_ptr(h, 99), nullptr);
  EXPECT_EQ(reports().size(), before);
  PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr);  // take the buffer back before destroy
}

TEST_F(Images, SwappingRecordsThroughTheTable) {
  const uint32_t a = PIX_image_create(), b = PIX_image_create();
  PIX_image_set_parameter(a, PIX_IMAGE_WIDTH, 11);
  PIX_image_set_parameter(b, PIX_IMAGE_WIDTH, 22);
  void* ra = PIX_image_get_ptr(a, PIX_PTR_RECORD);
  void* rb = PIX_image_get_ptr(b, PIX_PTR_RECORD);
  PIX_image_set_ptr(a, PIX_PTR_RECORD, rb);
  PIX_image_set_ptr(b, PIX_PTR_RECORD, ra);
  EXPECT_EQ(PIX_get_width(a), 22u);
  EXPECT_EQ(PIX_get_width(b), 11u);
  PIX_image_set_ptr(a, PIX_PTR_RECORD, ra);
  PIX_image_set_ptr(b, PIX_PTR_RECORD, rb);
  EXPECT_EQ(PIX_get_width(a), 11u);
  // Emptying a slot frees the handle for the next create; the record taken
  // out is the caller's now.
  PIX_image_set_ptr(a, PIX_PTR_RECORD, nullptr);
  EXPECT_EQ(PIX_get_width(a), 0u);
  EXPECT_EQ(PIX_image_create(), a);
  EXPECT_EQ(PIX_get_width(a), 0u);
  std::free(static_cast<tPIX_Image*>(ra)->cmap);
  std::free(ra);
}

TEST_F(Images, FileNames) {
  const uint32_t a = PIX_image_create(), b = PIX_image_create();
  EXPECT_EQ(PIX_image_set_infilename(a, "in.bmp"), 0u);
  EXPECT_EQ(PIX_image_set_outfilename(a, "out.tif"), 0u);
  EXPECT_STREQ(PIX_image_get_infilename(a), "in.bmp");
  EXPECT_STREQ(PIX_image_get_outfilename(a), "out.tif");
  EXPECT_EQ(PIX_copy_outfilename(b, a), 0u);
  EXPECT_STREQ(PIX_image_get_outfilename(b), "out.tif");
  EXPECT_STREQ(PIX_image_get_infilename(b), "");
  // A name longer than the field is cut to 127 characters.
  const std::string long_name(300, 'x');
  EXPECT_EQ(PIX_image_set_infilename(a, long_name.c_str()), 0u);
  EXPECT_EQ(std::string(PIX_image_get_infilename(a)), long_name.substr(0, 127));
  EXPECT_EQ(PIX_image_set_infilename(a, nullptr), 0u);
  EXPECT_STREQ(PIX_image_get_infilename(a), "");
}

TEST_F(Images, QuickAccessorsReadTheFields) {
  const uint32_t h = pixtest::make_image(PIX_RGB24, 5, 7, 3);
  EXPECT_EQ(PIX_get_width(h), 5u);
  EXPECT_EQ(PIX_get_height(h), 7u);
  EXPECT_EQ(PIX_get_depth(h), 24u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 16u);
  EXPECT_EQ(PIX_get_lines_this_strip(h), 3u);
}

TEST(SkipBytes, PaddingToTheAlignment) {
  struct Case {
    uint32_t width, depth, align, skip;
  };
  const Case cases[] = {{3, 8, 4, 1},  {3, 8, 2, 1},   {4, 8, 4, 0},  {3, 15, 4, 2}, {3, 16, 4, 2}, {5, 24, 4, 1},
                        {1, 1, 4, 0},  {7, 32, 8, 4},  {3, 8, 1, 0},  {640, 24, 4, 0}, {3, 8, 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(PIX_image_calc_skip_bytes(c.width, c.depth, c.align), c.skip)
        << c.width << " " << c.depth << " " << c.align;
  }
}

class ImageCheck : public LibraryTest {};

TEST_F(ImageCheck, DerivesPaddingAndLineLength) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 3, 2);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(pix::find_image(h)->skip_bytes, 1u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 4u);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 2);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(pix::find_image(h)->skip_bytes, 1u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 4u);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, 4);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(pix::find_image(h)->skip_bytes, 0u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 4u);
  // The check never reports; its callers do.
  EXPECT_TRUE(reports().empty());
}

TEST_F(ImageCheck, RaisesFramesAndFixesY8DataWidth) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 8, 8);
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 3);
  PIX_image_set_parameter(h, PIX_NUM_FRAMES, 0);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_NUM_FRAMES), 1u);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_DATA_WIDTH), 8u);
}

TEST_F(ImageCheck, EveryFormatAgainstAWrongDepth) {
  struct Case {
    uint16_t format;
    uint32_t code;
  };
  const Case cases[] = {{1, 0x10030001},   {2, 0x10030002},   {4, 0x1003000D},   {5, 0x1003000C},
                        {6, 0x10030009},   {12, 0x10030009},  {103, 0x10030009}, {106, 0x10030009},
                        {7, 0x10030003},   {8, 0x10030003},   {9, 0x10030004},   {13, 0x10030004},
                        {15, 0x10030004},  {100, 0x10030004}, {108, 0x10030004}, {14, 0x1003000B},
                        {101, 0x10030005}, {102, 0x10030005}, {104, 0x10030006}};
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, 10);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, 2);
  for (const auto& c : cases) {
    PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, c.format);
    PIX_image_set_parameter(h, PIX_DATA_WIDTH, 10);
    EXPECT_EQ(PIX_image_check(h), 0u) << c.format;
    PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 12);
    EXPECT_EQ(PIX_image_check(h), c.code) << c.format;
  }
}

TEST_F(ImageCheck, SpecialCases) {
  const uint32_t h = PIX_image_create();
  EXPECT_EQ(PIX_image_check(h), 0x1003000Eu);  // no format yet
  // Y16: the data width is tested before the depth.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_Y16);
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 8);
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 0);
  EXPECT_EQ(PIX_image_check(h), 0x1003000Au);
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 17);
  EXPECT_EQ(PIX_image_check(h), 0x1003000Au);
  // Paletted: the colour-map size first.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_PALETTED);
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 0);
  EXPECT_EQ(PIX_image_check(h), 0x10030007u);
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 2);
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 16);
  EXPECT_EQ(PIX_image_check(h), 0x10030008u);
  // Working formats of the codec ignore the alignment.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_JPEG_STAGE_B);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, 10);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 64);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 80u);
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_WORK16_B);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 40u);
  // Bilevel lines count no pixel bytes.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_BILEVEL);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 0u);
  // A stored refused code fails the check like any unknown one.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, 105);
  EXPECT_EQ(PIX_image_check(h), 0x1003000Eu);
}

TEST_F(ImageCheck, LineLengthsThatWouldWrapAreRefused) {
  const uint32_t h = pixtest::make_image(PIX_XRGB32, 0x40000000u, 1);
  EXPECT_EQ(PIX_image_check(h), 0x10030000u);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, 1000);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 0);
  EXPECT_EQ(PIX_image_check(h), 0x10030000u);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  EXPECT_EQ(PIX_image_check(h), 0u);
}

TEST_F(Images, ColourTest) {
  const std::pair<uint16_t, uint32_t> cases[] = {{PIX_Y8, 0},     {PIX_Y16, 0},     {PIX_XRGB32, 0}, {PIX_HSI, 0},
                                                 {PIX_BILEVEL, 0}, {PIX_RGB8, 1},   {PIX_RGB24, 1},  {PIX_YUV422, 1},
                                                 {PIX_CMYK32, 1},  {PIX_JPEG, 1},   {PIX_JPEG_STAGE_A, 0}};
  const uint32_t h = PIX_image_create();
  for (const auto& [format, colour] : cases) {
    PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
    EXPECT_EQ(PIX_image_is_colour(h), colour) << format;
  }
  // Paletted: colour unless every entry in use is grey.
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_PALETTED);
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 2);
  auto* map = static_cast<tPIX_Colour*>(PIX_image_get_ptr(h, PIX_PTR_CMAP));
  map[0] = {5, 5, 5, 0};
  map[1] = {9, 9, 9, 0};
  map[2] = {1, 2, 3, 0};  // not in use
  EXPECT_EQ(PIX_image_is_colour(h), 0u);
  map[1].green = 10;
  EXPECT_EQ(PIX_image_is_colour(h), 1u);
}

TEST_F(Images, DestroyAllAndTheCheckOfRemainingImages) {
  PIX_image_create();
  PIX_image_create();
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0x107A0000u);
  EXPECT_TRUE(reports().empty());  // not reported
  EXPECT_EQ(PIX_image_destroy(PIX_ALL_IMAGES), 0u);
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0u);
  EXPECT_EQ(PIX_image_create(), 1u);
}

TEST_F(Images, DestroyFreesALentBufferUnlessTakenBack) {
  // The buffer is a heap block: destroy frees it although the image is locked
  // (the sanitizer build would report a leak or a double free otherwise).
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  void* lent = std::malloc(16);
  PIX_image_set_ptr(h, PIX_PTR_DATA, lent);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_image_free_data(h), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), lent);  // locked: kept
  EXPECT_EQ(PIX_image_destroy(h), 0u);
  EXPECT_EQ(pix::find_image(h), nullptr);
}

}  // namespace
