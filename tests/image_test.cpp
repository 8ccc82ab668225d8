// Image records: handles, parameters, flags, pointers, names and the check.
#include <cstdlib>
#include <string>
#include <tuple>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::make_image;
using pixtest::set_parameters;

class Images : public pixtest::LibraryTest {};

TEST_F(Images, HandlesLowestFirstAtMost65535AndDestroyAll) {
  for (uint32_t want : {1u, 2u, 3u}) EXPECT_EQ(PIX_image_create(), want);
  EXPECT_EQ(PIX_image_destroy(1), 0u);
  EXPECT_EQ(PIX_image_create(), 1u);
  EXPECT_EQ(PIX_image_destroy(2) | PIX_image_destroy(2), 0u);  // an empty slot is no error
  for (uint32_t want : {2u, 4u}) EXPECT_EQ(PIX_image_create(), want);
  EXPECT_TRUE(reports().empty());
  for (uint32_t i = 5; i <= 65535; ++i) ASSERT_EQ(PIX_image_create(), i);
  expect_report(PIX_image_create(), "PIX_image_create", 0x18780000u);
  PIX_image_destroy(40000);
  EXPECT_EQ(PIX_image_create(), 40000u);
  const size_t reported = reports().size();
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0x107A0000u);  // images remain; not reported
  EXPECT_EQ(reports().size(), reported);
  EXPECT_EQ(PIX_image_destroy(PIX_ALL_IMAGES) | PIX_image_destroy(PIX_CHECK_IMAGES), 0u);
  EXPECT_EQ(PIX_image_create(), 1u);
}

TEST_F(Images, DefaultsAndFailedAllocationsAtCreate) {
  pix::memory::fail_after(0);  // the record
  EXPECT_EQ(PIX_image_create(), 0x18500000u);
  EXPECT_EQ(find_image(1), nullptr);
  pix::memory::fail_after(1);  // the colour map: the record stays, half made
  EXPECT_EQ(PIX_image_create(), 0x10500000u);
  ASSERT_NE(find_image(1), nullptr);
  EXPECT_EQ(find_image(1)->cmap, nullptr);
  const uint32_t h = PIX_image_create();
  ASSERT_EQ(h, 2u);
  const auto* img = static_cast<const tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD));
  ASSERT_TRUE(img != nullptr && img == find_image(h) && img->cmap != nullptr);
  EXPECT_EQ(std::make_tuple(img->format, img->line_align, img->start_frame, img->lines_this_strip, img->cmap_size,
                            img->jpeg, img->data, std::string(img->in_filename)),
            std::make_tuple(0, 2u, 1u, 8u, 0, nullptr, nullptr, std::string()));
  for (int i = 0; i < 256; ++i) ASSERT_EQ(std::make_tuple(img->cmap[i].red, img->cmap[i].spare), std::make_tuple(0xAA, 0xAA));
}

// Per format: the depth it sets, the check's code for a wrong depth (0: not
// tried), components and colour (-1: not tried).
struct FormatCase {
  uint16_t format;
  uint32_t depth, wrong_depth;
  int components, colour;
};
const FormatCase kFormats[] = {
    {1, 1, 0x10030001, 0, 0},     {2, 8, 0x10030002, 1, 0},     {3, 8, 0, -1, -1},            {4, 8, 0x1003000D, 3, 1},
    {5, 15, 0x1003000C, 3, -1},   {6, 16, 0x10030009, 3, -1},   {7, 24, 0x10030003, 3, 1},    {8, 24, 0x10030003, -1, -1},
    {9, 32, 0x10030004, -1, -1},  {10, 32, 0, -1, -1},          {11, 32, 0, -1, -1},          {12, 16, 0x10030009, 3, 1},
    {13, 32, 0x10030004, -1, 1},  {14, 16, 0x1003000B, 1, 0},   {15, 32, 0x10030004, 4, 0},   {100, 32, 0x10030004, -1, 0},
    {101, 32, 0x10030005, -1, -1}, {102, 32, 0x10030005, -1, -1}, {103, 16, 0x10030009, -1, -1}, {104, 16, 0x10030006, -1, -1},
    {106, 16, 0x10030009, -1, 1}, {108, 32, 0x10030004, 4, 0}};

TEST_F(Images, EachFormatSetsDepthDataWidthComponentsColourAndIsChecked) {
  const uint32_t h = PIX_image_create();
  for (const FormatCase& c : kFormats) {
    SCOPED_TRACE(c.format);
    set_parameters(h, {{PIX_IMAGE_WIDTH, 10}, {PIX_IMAGE_HEIGHT, 2}, {PIX_DATA_WIDTH, 5}});
    PIX_image_set_flags(h, PIX_FLAG_DIB, 1);
    EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, c.format), 0u);
    const bool eight = c.format == 2 || c.format == 3 || c.format == 4;
    EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(h, PIX_IMAGE_DEPTH), PIX_image_get_flags(h, PIX_FLAG_DIB),
                              PIX_image_get_parameter(h, PIX_DATA_WIDTH)),
              std::make_tuple(c.depth, 0u, eight ? 8u : 5u));
    if (c.components >= 0) { EXPECT_EQ(PIX_image_get_parameter(h, PIX_COMPONENTS), uint32_t(c.components)); }
    if (c.colour >= 0) { EXPECT_EQ(PIX_image_is_colour(h), uint32_t(c.colour)); }
    if (c.wrong_depth == 0) continue;
    PIX_image_set_parameter(h, PIX_DATA_WIDTH, 10);
    EXPECT_EQ(PIX_image_check(h), 0u);
    PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 12);
    EXPECT_EQ(PIX_image_check(h), c.wrong_depth);
  }
  EXPECT_TRUE(reports().empty());  // the check never reports; its callers do
}

TEST_F(Images, RefusedFormatsStayAndPalettedSetsAMapSizeOnlyWhenThereIsNone) {
  const uint32_t h = PIX_image_create();
  for (uint32_t code : {105u, 107u, 16u, 99u, 109u, 0xFFFFu}) {
    PIX_image_set_flags(h, PIX_FLAG_DIB, 1);
    expect_report(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, code), "PIX_image_set_parameter", 0x10140000u,
                  "Unrecognized image type");
    EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(h, PIX_IMAGE_FORMAT), PIX_image_get_flags(h, PIX_FLAG_DIB)),
              std::make_tuple(code, 1u));
  }
  EXPECT_EQ(PIX_image_check(h), 0x1003000Eu);  // a stored refused code fails the check
  // Format 0 only clears the DIB flag.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 24);
  EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, 0), 0u);
  EXPECT_EQ(std::make_tuple(PIX_image_get_flags(h, PIX_FLAG_DIB), PIX_image_get_parameter(h, PIX_IMAGE_DEPTH)),
            std::make_tuple(0u, 24u));
  EXPECT_EQ(PIX_image_check(h), 0x1003000Eu);  // no format
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_PALETTED);
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_CMAP_SIZE), 256u);
  set_parameters(h, {{PIX_CMAP_SIZE, 16}, {PIX_IMAGE_FORMAT, PIX_PALETTED}});
  EXPECT_EQ(PIX_image_get_parameter(h, PIX_CMAP_SIZE), 16u);
}

TEST_F(Images, ParametersRoundTripSixteenBitFieldsAreCutAndErrors) {
  const uint32_t h = PIX_image_create();
  struct Case { uint16_t id; uint32_t value, read_back; };
  const Case cases[] = {{PIX_IMAGE_WIDTH, 0x12345678, 0x12345678}, {PIX_IMAGE_HEIGHT, 70000, 70000},
                        {PIX_IMAGE_DEPTH, 0x10018, 0x18},          {PIX_LINES_THIS_STRIP, 99, 99},
                        {PIX_BYTES_PER_LINE, 1234, 1234},          {PIX_USER_VALUE, 0xDEADBEEF, 0xDEADBEEF},
                        {PIX_DATA_WIDTH, 0x1000C, 12},             {PIX_NUM_FRAMES, 7, 7},
                        {PIX_START_FRAME, 3, 3},                   {PIX_CMAP_SIZE, 0x10100, 0x100},
                        {PIX_FIELD_ORDER, 0x20004, 4},             {PIX_LINE_ALIGN, 8, 8},
                        {PIX_OUT_LINE_ALIGN, 4, 4}};
  for (const Case& c : cases) {
    EXPECT_EQ(PIX_image_set_parameter(h, c.id, c.value), 0u) << c.id;
    EXPECT_EQ(PIX_image_get_parameter(h, c.id), c.read_back) << c.id;
  }
  // The library id answers for any handle, even one that names nothing.
  for (uint32_t any : {0u, 777u, h}) EXPECT_EQ(PIX_image_get_parameter(any, PIX_LIBRARY_ID), 0x9CB5u);
  EXPECT_TRUE(reports().empty());
  for (uint16_t id : {9, 27, 600}) expect_report(PIX_image_get_parameter(h, id), "PIX_image_get_parameter", 0x10280000u, "Unknown parameter");
  for (uint16_t id : {9, 22, 26, 27}) EXPECT_EQ(PIX_image_set_parameter(h, id, 1), 0x10280000u) << id;
  const char* const no_jpeg = "JPEG structure does not exist";
  expect_report(PIX_image_get_parameter(h, PIX_JPEG_LENGTH), "PIX_image_get_parameter", 0x10010000u, no_jpeg);
  expect_report(PIX_image_set_parameter(h, PIX_JPEG_LENGTH, 5), "PIX_image_set_parameter", 0x10010000u, no_jpeg);
}

TEST_F(Images, FlagsPointersAndFileNames) {
  const uint32_t a = PIX_image_create(), b = PIX_image_create();
  EXPECT_EQ(PIX_image_set_flags(a, PIX_FLAG_USE_LUT | PIX_FLAG_DITHER, 1), 0u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_DITHER), 1u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_LOCKED | PIX_FLAG_USE_LUT), 1u);  // any bit of the mask
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_LOCKED), 0u);
  EXPECT_EQ(PIX_image_set_flags(a, PIX_FLAG_USE_LUT, 2), 0u);  // anything but 1 clears
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_USE_LUT), 0u);
  EXPECT_EQ(PIX_image_set_flags(PIX_ALL_IMAGES, PIX_FLAG_FIELD_MODE, 1), 0u);
  EXPECT_EQ(PIX_image_get_flags(a, PIX_FLAG_FIELD_MODE) + PIX_image_get_flags(b, PIX_FLAG_FIELD_MODE), 2u);

  uint8_t buffer[16] = {};
  EXPECT_EQ(PIX_image_set_ptr(a, PIX_PTR_DATA, buffer), 0u);
  EXPECT_EQ(PIX_image_get_ptr(a, PIX_PTR_DATA), buffer);
  EXPECT_EQ(PIX_image_get_ptr(a, PIX_PTR_CMAP), find_image(a)->cmap);
  // No JPEG record: its pointers read as null and cannot be set.
  EXPECT_EQ(std::make_tuple(PIX_image_get_ptr(a, PIX_PTR_JPEG_DATA), PIX_image_get_ptr(a, PIX_PTR_TJPEG)), std::make_tuple(nullptr, nullptr));
  expect_report(PIX_image_set_ptr(a, PIX_PTR_JPEG_POS, buffer), "PIX_image_set_ptr", 0x10010000u, "Not a JPEG image");
  expect_report(PIX_image_set_ptr(a, 99, buffer), "PIX_image_set_ptr", 0x10280000u, "Unrecognized pointer type");
  const size_t reported = reports().size();
  EXPECT_EQ(PIX_image_get_ptr(a, 99), nullptr);  // getting never reports
  EXPECT_EQ(reports().size(), reported);
  PIX_image_set_ptr(a, PIX_PTR_DATA, nullptr);  // take the buffer back before destroy

  EXPECT_EQ(PIX_image_set_infilename(a, "in.bmp") | PIX_image_set_outfilename(a, "out.tif"), 0u);
  EXPECT_EQ(PIX_copy_outfilename(b, a), 0u);
  EXPECT_EQ(std::make_tuple(std::string(PIX_image_get_infilename(a)), std::string(PIX_image_get_outfilename(b)),
                            std::string(PIX_image_get_infilename(b))),
            std::make_tuple(std::string("in.bmp"), std::string("out.tif"), std::string()));
  const std::string long_name(300, 'x');  // cut to 127 characters
  EXPECT_EQ(PIX_image_set_infilename(a, long_name.c_str()), 0u);
  EXPECT_EQ(std::string(PIX_image_get_infilename(a)), long_name.substr(0, 127));
  EXPECT_EQ(PIX_image_set_infilename(a, nullptr), 0u);
  EXPECT_STREQ(PIX_image_get_infilename(a), "");
}

TEST_F(Images, SwappingRecordsThroughTheTable) {
  const uint32_t a = PIX_image_create(), b = PIX_image_create();
  set_parameters(a, {{PIX_IMAGE_WIDTH, 11}});
  set_parameters(b, {{PIX_IMAGE_WIDTH, 22}});
  void* ra = PIX_image_get_ptr(a, PIX_PTR_RECORD);
  void* rb = PIX_image_get_ptr(b, PIX_PTR_RECORD);
  PIX_image_set_ptr(a, PIX_PTR_RECORD, rb);
  PIX_image_set_ptr(b, PIX_PTR_RECORD, ra);
  EXPECT_EQ(std::make_tuple(PIX_get_width(a), PIX_get_width(b)), std::make_tuple(22u, 11u));
  PIX_image_set_ptr(a, PIX_PTR_RECORD, ra);
  PIX_image_set_ptr(b, PIX_PTR_RECORD, rb);
  EXPECT_EQ(PIX_get_width(a), 11u);
  // Emptying a slot frees the handle for the next create; the record taken out is the caller's now.
  PIX_image_set_ptr(a, PIX_PTR_RECORD, nullptr);
  EXPECT_EQ(PIX_get_width(a), 0u);
  EXPECT_EQ(PIX_image_create(), a);
  EXPECT_EQ(PIX_get_width(a), 0u);
  std::free(static_cast<tPIX_Image*>(ra)->cmap);
  std::free(ra);
}

TEST(SkipBytes, PaddingToTheAlignment) {
  struct Case { uint32_t width, depth, align, skip; };
  const Case cases[] = {{3, 8, 4, 1}, {3, 8, 2, 1}, {4, 8, 4, 0}, {3, 15, 4, 2}, {3, 16, 4, 2},   {5, 24, 4, 1},
                        {1, 1, 4, 0}, {7, 32, 8, 4}, {3, 8, 1, 0}, {640, 24, 4, 0}, {3, 8, 0, 0}};
  for (const Case& c : cases) {
    EXPECT_EQ(PIX_image_calc_skip_bytes(c.width, c.depth, c.align), c.skip) << c.width << " " << c.depth << " " << c.align;
  }
}

TEST_F(Images, CheckDerivesLineLengthFramesAndDataWidth) {
  const uint32_t h = make_image(PIX_RGB24, 5, 7, 3);  // the quick accessors read the fields
  EXPECT_EQ(std::make_tuple(PIX_get_width(h), PIX_get_height(h), PIX_get_depth(h), PIX_get_bytes_per_line(h),
                            PIX_get_lines_this_strip(h)),
            std::make_tuple(5u, 7u, 24u, 16u, 3u));
  struct Case { uint16_t format; uint32_t width, align; int skip; uint32_t bytes_per_line; };  // skip -1: not tried
  const Case cases[] = {{PIX_Y8, 3, 4, 1, 4},          {PIX_Y8, 3, 2, 1, 4},          {PIX_Y8, 4, 2, 0, 4},
                        {PIX_BILEVEL, 10, 4, 0, 0},    // bilevel lines count no pixel bytes
                        {PIX_JPEG_STAGE_B, 10, 64, -1, 80}, {PIX_WORK16_B, 10, 64, -1, 40}};  // codec stages ignore the alignment
  for (const Case& c : cases) {
    set_parameters(h, {{PIX_IMAGE_FORMAT, c.format}, {PIX_IMAGE_WIDTH, c.width}, {PIX_LINE_ALIGN, c.align}});
    EXPECT_EQ(PIX_image_check(h), 0u) << c.format;
    EXPECT_EQ(PIX_get_bytes_per_line(h), c.bytes_per_line) << c.format;
    if (c.skip >= 0) { EXPECT_EQ(find_image(h)->skip_bytes, uint32_t(c.skip)) << c.format; }
  }
  set_parameters(h, {{PIX_IMAGE_FORMAT, PIX_Y8}, {PIX_DATA_WIDTH, 3}, {PIX_NUM_FRAMES, 0}});
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(h, PIX_NUM_FRAMES), PIX_image_get_parameter(h, PIX_DATA_WIDTH)), std::make_tuple(1u, 8u));
  // Line lengths that would wrap are refused.
  set_parameters(h, {{PIX_IMAGE_FORMAT, PIX_XRGB32}, {PIX_IMAGE_WIDTH, 0x40000000u}, {PIX_LINE_ALIGN, 4}});
  EXPECT_EQ(PIX_image_check(h), 0x10030000u);
  set_parameters(h, {{PIX_IMAGE_WIDTH, 1000}, {PIX_LINE_ALIGN, 0}});
  EXPECT_EQ(PIX_image_check(h), 0x10030000u);
  set_parameters(h, {{PIX_LINE_ALIGN, 4}});
  EXPECT_EQ(PIX_image_check(h), 0u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(Images, CheckOrderForY16AndPaletted) {
  const uint32_t h = PIX_image_create();
  // Y16: the data width is tested before the depth.
  for (uint32_t width : {0u, 17u}) {
    set_parameters(h, {{PIX_IMAGE_FORMAT, PIX_Y16}, {PIX_IMAGE_DEPTH, 8}, {PIX_DATA_WIDTH, width}});
    EXPECT_EQ(PIX_image_check(h), 0x1003000Au) << width;
  }
  // Paletted: the colour-map size first.
  set_parameters(h, {{PIX_IMAGE_FORMAT, PIX_PALETTED}, {PIX_CMAP_SIZE, 0}});
  EXPECT_EQ(PIX_image_check(h), 0x10030007u);
  set_parameters(h, {{PIX_CMAP_SIZE, 2}, {PIX_IMAGE_DEPTH, 16}});
  EXPECT_EQ(PIX_image_check(h), 0x10030008u);
  // A paletted image is colour unless every entry in use is grey.
  auto* map = static_cast<tPIX_Colour*>(PIX_image_get_ptr(h, PIX_PTR_CMAP));
  map[0] = {5, 5, 5, 0};
  map[1] = {9, 9, 9, 0};
  map[2] = {1, 2, 3, 0};  // not in use
  EXPECT_EQ(PIX_image_is_colour(h), 0u);
  map[1].green = 10;
  EXPECT_EQ(PIX_image_is_colour(h), 1u);
}

}  // namespace
