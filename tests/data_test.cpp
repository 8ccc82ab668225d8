// Image data: strip buffers, copying, moving and counting strips.
#include <cstring>
#include <numeric>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
using pixtest::make_image;

class ImageData : public LibraryTest {};

void fill_pattern(uint32_t handle, uint8_t start) {
  const tPIX_Image& img = *find_image(handle);
  for (uint32_t i = 0; i < img.lines_this_strip * img.bytes_per_line; ++i) img.data[i] = static_cast<uint8_t>(start + i * 7);
}

TEST_F(ImageData, StripAllocationChecksFirstAndTakesLinesTimesPitch) {
  const uint32_t h = make_image(PIX_RGB24, 5, 10, 3);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 8);
  ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
  EXPECT_EQ(PIX_get_bytes_per_line(h), 16u);  // the check ran: 15 bytes padded to 16
  ASSERT_NE(PIX_image_get_ptr(h, PIX_PTR_DATA), nullptr);
  fill_pattern(h, 1);  // the whole strip is writable (the sanitizer build watches)
  PIX_image_free_data(h);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), nullptr);
  // A failed check is reported as a corrupt image and nothing is allocated.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 8);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0x10030003u);
  EXPECT_EQ(last_report().function, "PIX_image_malloc_a_strip");
  EXPECT_EQ(last_report().message, "Corrupt image");
  EXPECT_EQ(PIX_image_malloc_a_strip(0), 0x10030000u);
}

TEST_F(ImageData, FailedAllocationsCarryTheLowBitsOfTheSize) {
  const uint32_t h = make_image(PIX_Y8, 0x1234, 4, 3);
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0x10500000u | ((0x1234u * 3) & 0xFFFF));
  EXPECT_EQ(last_report().function, "PIX_image_malloc_a_strip");
  // A size that does not fit 32 bits is refused, never wrapped to a small block.
  const uint32_t big = make_image(PIX_XRGB32, 0x10000, 0x20000, 0x10001);
  EXPECT_EQ(PIX_image_malloc_a_strip(big), 0x10500000u | ((0x40000ull * 0x10001) & 0xFFFF));
  EXPECT_EQ(PIX_image_get_ptr(big, PIX_PTR_DATA), nullptr);
}

TEST_F(ImageData, LockedBuffersAreKeptAndReused) {
  const uint32_t h = make_image(PIX_Y8, 4, 4, 4);
  uint8_t* lent = static_cast<uint8_t*>(std::malloc(16));
  PIX_image_set_ptr(h, PIX_PTR_DATA, lent);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_image_free_data(h), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), lent);
  // Even an image that fails its check reuses the caller's buffer at once.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 3);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), lent);
  PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr);
  std::free(lent);
  EXPECT_EQ(PIX_image_free_data(777), 0x10010000u);
}

TEST_F(ImageData, LinesForTheCaller) {
  const uint32_t h = make_image(PIX_RGB16, 10, 10, 2);
  uint8_t* lines = PIX_malloc_N_lines(h, 3);
  ASSERT_NE(lines, nullptr);
  std::memset(lines, 0, 60);  // 3 lines of 20 bytes
  std::free(lines);  // the caller's block
  EXPECT_EQ(PIX_malloc_N_lines(0, 3), nullptr);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), nullptr);  // not attached
}

TEST_F(ImageData, CopyParametersCopiesTheDescriptionOnly) {
  const uint32_t a = make_image(PIX_PALETTED, 9, 7, 3);
  const uint32_t b = PIX_image_create();
  tPIX_Image& src = *find_image(a);
  std::strcpy(src.name, "name");
  PIX_image_set_infilename(a, "in");
  PIX_image_set_outfilename(a, "out");
  PIX_image_set_parameter(a, PIX_LINE_ALIGN, 4);
  PIX_image_set_parameter(a, PIX_OUT_LINE_ALIGN, 8);
  PIX_image_set_parameter(a, PIX_NUM_FRAMES, 3);
  PIX_image_set_parameter(a, PIX_START_FRAME, 2);
  PIX_image_set_parameter(a, PIX_FIELD_ORDER, 5);
  PIX_image_set_parameter(a, PIX_USER_VALUE, 42);
  PIX_image_set_parameter(a, PIX_CMAP_SIZE, 2);
  PIX_image_set_flags(a, PIX_FLAG_LOCKED | PIX_FLAG_JPEG | PIX_FLAG_USE_LUT, 1);
  src.cmap[0] = {1, 2, 3, 4};
  src.cmap[1] = {5, 6, 7, 8};
  src.data_aux = 9;
  PIX_image_check(a);
  ASSERT_EQ(PIX_image_copy_parameters(a, b), 0u);
  const tPIX_Image& dst = *find_image(b);
  EXPECT_EQ(dst.format, PIX_PALETTED);
  EXPECT_STREQ(dst.name, "name");
  EXPECT_STREQ(dst.in_filename, "in");
  EXPECT_STREQ(dst.out_filename, "out");
  EXPECT_EQ(dst.width, 9u);
  EXPECT_EQ(dst.height, 7u);
  EXPECT_EQ(dst.depth, 8);
  EXPECT_EQ(dst.line_align, 4u);
  EXPECT_EQ(dst.out_line_align, 8u);
  EXPECT_EQ(dst.skip_bytes, 3u);
  EXPECT_EQ(dst.bytes_per_line, 12u);
  EXPECT_EQ(dst.num_frames, 3u);
  EXPECT_EQ(dst.start_frame, 2u);
  EXPECT_EQ(dst.field_order, 5);
  EXPECT_EQ(dst.lines_this_strip, 3u);
  EXPECT_EQ(dst.flags, PIX_FLAG_LOCKED | PIX_FLAG_JPEG | PIX_FLAG_USE_LUT);
  EXPECT_EQ(dst.cmap_size, 2);
  EXPECT_NE(dst.cmap, src.cmap);  // the contents travel, not the pointer
  EXPECT_EQ(dst.cmap[1].blue, 7);
  EXPECT_EQ(dst.cmap[1].spare, 0xAA);  // only red, green and blue
  EXPECT_EQ(dst.cmap[2].red, 0xAA);    // entries not in use stay
  EXPECT_EQ(dst.user_value, 0u);
  EXPECT_EQ(dst.data_aux, 0u);
  EXPECT_EQ(dst.jpeg, nullptr);
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 0);
}

TEST_F(ImageData, CopyParametersNamesTheMissingImage) {
  const uint32_t a = PIX_image_create();
  EXPECT_EQ(PIX_image_copy_parameters(50, a), 0x10010000u);
  EXPECT_EQ(last_report().message, "Input image does not exist");
  EXPECT_EQ(PIX_image_copy_parameters(a, 50), 0x10010000u);
  EXPECT_EQ(last_report().message, "Output image does not exist");
  EXPECT_EQ(last_report().function, "PIX_image_copy_parameters");
}

TEST_F(ImageData, CopyGivesTheSameBytesWhateverTheLineLength) {
  // Lines of 6, 7 and 8 bytes: 2-, 1- and 4-byte units in the original.
  for (uint32_t width : {3u, 7u, 2u}) {
    const uint16_t format = width == 3 ? PIX_RGB16 : (width == 7 ? PIX_Y8 : PIX_XRGB32);
    const uint32_t a = make_image(format, width, 5, 5), b = PIX_image_create();
    PIX_image_set_parameter(a, PIX_LINE_ALIGN, 1);
    ASSERT_EQ(PIX_image_malloc_a_strip(a), 0u);
    fill_pattern(a, static_cast<uint8_t>(width));
    ASSERT_EQ(PIX_image_copy(a, b), 0u);
    const tPIX_Image& src = *find_image(a);
    const tPIX_Image& dst = *find_image(b);
    ASSERT_EQ(dst.bytes_per_line, src.bytes_per_line);
    EXPECT_EQ(std::memcmp(src.data, dst.data, 5 * src.bytes_per_line), 0) << width;
    EXPECT_NE(src.data, dst.data);
    PIX_image_destroy(a);
    PIX_image_destroy(b);
  }
}

TEST_F(ImageData, CopyOfADescriptionAndOfABrokenImage) {
  const uint32_t a = make_image(PIX_Y8, 4, 4, 0), b = PIX_image_create();
  EXPECT_EQ(PIX_image_copy(a, b), 0u);
  EXPECT_EQ(PIX_get_width(b), 4u);
  EXPECT_EQ(PIX_image_get_ptr(b, PIX_PTR_DATA), nullptr);
  PIX_image_set_parameter(a, PIX_IMAGE_DEPTH, 24);
  EXPECT_EQ(PIX_image_copy(a, b), 0x10030002u);
  EXPECT_EQ(last_report().function, "PIX_image_copy");
  EXPECT_EQ(last_report().message, "Corrupt image");
  // A strip without data is reported by the worker, not followed.
  const uint32_t c = make_image(PIX_Y8, 4, 4, 4);
  EXPECT_EQ(PIX_image_copy(c, b), 0x10030000u);
  EXPECT_EQ(last_report().function, "PIX_image_copy_1_strip");
  EXPECT_EQ(last_report().message, "No image data");
  // Copying an image onto itself changes nothing.
  ASSERT_EQ(PIX_image_malloc_a_strip(c), 0u);
  fill_pattern(c, 3);
  EXPECT_EQ(PIX_image_copy(c, c), 0u);
  EXPECT_EQ(find_image(c)->data[5], static_cast<uint8_t>(3 + 35));
}

TEST_F(ImageData, MoveHandsTheBufferOver) {
  const uint32_t a = make_image(PIX_Y8, 4, 4, 4), b = make_image(PIX_Y8, 2, 2, 2);
  ASSERT_EQ(PIX_image_malloc_a_strip(a), 0u);
  ASSERT_EQ(PIX_image_malloc_a_strip(b), 0u);  // freed by the move
  find_image(a)->data_aux = 77;
  uint8_t* buffer = find_image(a)->data;
  ASSERT_EQ(PIX_image_move(a, b), 0u);
  EXPECT_EQ(find_image(b)->data, buffer);
  EXPECT_EQ(find_image(b)->data_aux, 77u);
  EXPECT_EQ(find_image(b)->width, 4u);
  EXPECT_EQ(find_image(a)->data, nullptr);
  EXPECT_EQ(find_image(a)->data_aux, 0u);
}

TEST_F(ImageData, MoveRefusesLockedImagesAndChangesNothing) {
  const uint32_t a = make_image(PIX_Y8, 4, 4, 4), b = make_image(PIX_Y8, 2, 2, 2);
  PIX_image_malloc_a_strip(a);
  PIX_image_malloc_a_strip(b);
  uint8_t* da = find_image(a)->data;
  uint8_t* db = find_image(b)->data;
  PIX_image_set_flags(a, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_image_move(a, b), 0x10140000u);
  EXPECT_EQ(last_report().message, "locked memory can't be moved (in source image)");
  PIX_image_set_flags(a, PIX_FLAG_LOCKED, 0);
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_image_move(a, b), 0x10140000u);
  EXPECT_EQ(last_report().message, "Can't free locked memory (in destination image)");
  EXPECT_EQ(last_report().function, "PIX_image_move");
  EXPECT_EQ(find_image(a)->data, da);
  EXPECT_EQ(find_image(b)->data, db);
  EXPECT_EQ(find_image(b)->width, 2u);
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 0);
}

TEST_F(ImageData, StripCount) {
  const uint32_t h = make_image(PIX_Y8, 4, 100, 30);
  EXPECT_EQ(PIX_image_calc_total_strips(h), 4u);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 25);
  EXPECT_EQ(PIX_image_calc_total_strips(h), 4u);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 0);
  EXPECT_EQ(PIX_image_calc_total_strips(h), 0u);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, 0x10001);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 1);
  EXPECT_EQ(PIX_image_calc_total_strips(h), 1u);  // cut to 16 bits
  EXPECT_TRUE(reports().empty());
  EXPECT_EQ(PIX_image_calc_total_strips(PIX_ALL_IMAGES), 0x10010000u);
}

}  // namespace
