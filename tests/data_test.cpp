// Image data: strip buffers, copying, moving and counting strips.
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::make_image;
using pixtest::set_parameters;

class ImageData : public pixtest::LibraryTest {};

// Allocates the image's strip and fills it with a pattern.
void fill_pattern(uint32_t handle, uint8_t start) {
  ASSERT_EQ(PIX_image_malloc_a_strip(handle), 0u);
  const tPIX_Image& img = *find_image(handle);
  for (uint32_t i = 0; i < img.lines_this_strip * img.bytes_per_line; ++i) img.data[i] = static_cast<uint8_t>(start + i * 7);
}

TEST_F(ImageData, StripAllocationChecksFirstAndTakesLinesTimesPitch) {
  const uint32_t h = make_image(PIX_RGB24, 5, 10, 3);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 8);
  fill_pattern(h, 1);  // the whole strip is writable (the sanitizer build watches)
  EXPECT_EQ(PIX_get_bytes_per_line(h), 16u);  // the check ran: 15 bytes padded to 16
  PIX_image_free_data(h);
  // A failed check is reported as a corrupt image and nothing is allocated.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 8);
  expect_report(PIX_image_malloc_a_strip(h), "PIX_image_malloc_a_strip", 0x10030003u, "Corrupt image");
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), nullptr);
  // Failed allocations carry the low bits of the size.
  const uint32_t odd = make_image(PIX_Y8, 0x1234, 4, 3);
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_image_malloc_a_strip(odd), 0x10500000u | ((0x1234u * 3) & 0xFFFF));
  EXPECT_EQ(last_report().function, "PIX_image_malloc_a_strip");
  // A size that does not fit 32 bits is refused, never wrapped to a small block.
  const uint32_t big = make_image(PIX_XRGB32, 0x10000, 0x20000, 0x10001);
  EXPECT_EQ(PIX_image_malloc_a_strip(big), 0x10500000u | ((0x40000ull * 0x10001) & 0xFFFF));
  EXPECT_EQ(PIX_image_get_ptr(big, PIX_PTR_DATA), nullptr);
  // Lines for the caller: the caller's block, not attached.
  const uint32_t caller = make_image(PIX_RGB16, 10, 10, 2);
  uint8_t* lines = PIX_malloc_N_lines(caller, 3);
  ASSERT_NE(lines, nullptr);
  std::memset(lines, 0, 60);  // 3 lines of 20 bytes
  std::free(lines);
  EXPECT_EQ(PIX_image_get_ptr(caller, PIX_PTR_DATA), nullptr);
}

TEST_F(ImageData, LockedBuffersAreKeptReusedAndFreedByDestroy) {
  const uint32_t h = make_image(PIX_Y8, 4, 4, 4);
  void* lent = std::malloc(16);
  PIX_image_set_ptr(h, PIX_PTR_DATA, lent);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  EXPECT_EQ(PIX_image_free_data(h), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), lent);
  // Even an image that fails its check reuses the caller's buffer at once.
  PIX_image_set_parameter(h, PIX_IMAGE_DEPTH, 3);
  EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
  EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), lent);
  // The buffer is a heap block: destroy frees it although the image is locked
  // (the sanitizer build would report a leak or a double free otherwise).
  EXPECT_EQ(PIX_image_destroy(h), 0u);
  EXPECT_EQ(find_image(h), nullptr);
}

TEST_F(ImageData, CopyParametersCopiesTheDescriptionOnly) {
  const uint32_t a = make_image(PIX_PALETTED, 9, 7, 3), b = PIX_image_create();
  tPIX_Image& src = *find_image(a);
  std::strcpy(src.name, "name");
  PIX_image_set_infilename(a, "in");
  PIX_image_set_outfilename(a, "out");
  set_parameters(a, {{PIX_LINE_ALIGN, 4}, {PIX_OUT_LINE_ALIGN, 8}, {PIX_NUM_FRAMES, 3}, {PIX_START_FRAME, 2},
                     {PIX_FIELD_ORDER, 5}, {PIX_USER_VALUE, 42}, {PIX_CMAP_SIZE, 2}});
  PIX_image_set_flags(a, PIX_FLAG_LOCKED | PIX_FLAG_JPEG | PIX_FLAG_USE_LUT, 1);
  src.cmap[0] = {1, 2, 3, 4};
  src.cmap[1] = {5, 6, 7, 8};
  src.data_aux = 9;
  PIX_image_check(a);
  ASSERT_EQ(PIX_image_copy_parameters(a, b), 0u);
  const tPIX_Image& dst = *find_image(b);
  EXPECT_EQ(std::make_tuple(std::string(dst.name), std::string(dst.in_filename), std::string(dst.out_filename)),
            std::make_tuple(std::string("name"), std::string("in"), std::string("out")));
  EXPECT_EQ(std::make_tuple(dst.format, dst.width, dst.height, dst.depth, dst.line_align, dst.out_line_align,
                            dst.skip_bytes, dst.bytes_per_line, dst.num_frames, dst.start_frame, dst.field_order,
                            dst.lines_this_strip, dst.flags, dst.cmap_size),
            std::make_tuple(PIX_PALETTED, 9u, 7u, 8, 4u, 8u, 3u, 12u, 3u, 2u, 5, 3u,
                            PIX_FLAG_LOCKED | PIX_FLAG_JPEG | PIX_FLAG_USE_LUT, 2));
  EXPECT_NE(dst.cmap, src.cmap);  // the contents travel, not the pointer
  // Only red, green and blue of the entries in use; the rest keep the fresh map's 0xAA.
  EXPECT_EQ(std::make_tuple(dst.cmap[1].blue, dst.cmap[1].spare, dst.cmap[2].red), std::make_tuple(7, 0xAA, 0xAA));
  EXPECT_EQ(std::make_tuple(dst.user_value, dst.data_aux, dst.jpeg), std::make_tuple(0u, 0u, nullptr));
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 0);
  expect_report(PIX_image_copy_parameters(50, a), "PIX_image_copy_parameters", 0x10010000u, "Input image does not exist");
  expect_report(PIX_image_copy_parameters(a, 50), "PIX_image_copy_parameters", 0x10010000u, "Output image does not exist");
}

TEST_F(ImageData, CopyGivesTheSameBytesWhateverTheLineLength) {
  // Lines of 6, 7 and 8 bytes: 2-, 1- and 4-byte units in the original.
  const std::pair<uint16_t, uint32_t> cases[] = {{PIX_RGB16, 3}, {PIX_Y8, 7}, {PIX_XRGB32, 2}};
  for (const auto& [format, width] : cases) {
    const uint32_t a = make_image(format, width, 5, 5), b = PIX_image_create();
    PIX_image_set_parameter(a, PIX_LINE_ALIGN, 1);
    fill_pattern(a, static_cast<uint8_t>(width));
    ASSERT_EQ(PIX_image_copy(a, b), 0u);
    const tPIX_Image &src = *find_image(a), &dst = *find_image(b);
    ASSERT_EQ(dst.bytes_per_line, src.bytes_per_line);
    EXPECT_EQ(std::memcmp(src.data, dst.data, 5 * src.bytes_per_line), 0) << width;
    EXPECT_NE(src.data, dst.data);
    PIX_image_destroy(PIX_ALL_IMAGES);
  }
}

TEST_F(ImageData, CopyOfADescriptionOfABrokenImageAndOntoItself) {
  const uint32_t a = make_image(PIX_Y8, 4, 4, 0), b = PIX_image_create();
  EXPECT_EQ(PIX_image_copy(a, b), 0u);
  EXPECT_EQ(std::make_tuple(PIX_get_width(b), PIX_image_get_ptr(b, PIX_PTR_DATA)), std::make_tuple(4u, nullptr));
  PIX_image_set_parameter(a, PIX_IMAGE_DEPTH, 24);
  expect_report(PIX_image_copy(a, b), "PIX_image_copy", 0x10030002u, "Corrupt image");
  // A strip without data is reported by the worker, not followed.
  const uint32_t c = make_image(PIX_Y8, 4, 4, 4);
  expect_report(PIX_image_copy(c, b), "PIX_image_copy_1_strip", 0x10030000u, "No image data");
  fill_pattern(c, 3);
  EXPECT_EQ(PIX_image_copy(c, c), 0u);
  EXPECT_EQ(find_image(c)->data[5], static_cast<uint8_t>(3 + 35));
}

TEST_F(ImageData, MoveHandsTheBufferOverUnlessEitherIsLocked) {
  const uint32_t a = make_image(PIX_Y8, 4, 4, 4), b = make_image(PIX_Y8, 2, 2, 2);
  fill_pattern(a, 0);
  fill_pattern(b, 0);
  uint8_t *da = find_image(a)->data, *db = find_image(b)->data;
  const char* const refusals[] = {"locked memory can't be moved (in source image)",
                                  "Can't free locked memory (in destination image)"};
  for (uint32_t locked : {a, b}) {
    PIX_image_set_flags(locked, PIX_FLAG_LOCKED, 1);
    expect_report(PIX_image_move(a, b), "PIX_image_move", 0x10140000u, refusals[locked == b]);
    PIX_image_set_flags(locked, PIX_FLAG_LOCKED, 0);
    EXPECT_EQ(std::make_tuple(find_image(a)->data, find_image(b)->data, find_image(b)->width), std::make_tuple(da, db, 2u));
  }
  find_image(a)->data_aux = 77;
  ASSERT_EQ(PIX_image_move(a, b), 0u);  // b's own strip is freed (the sanitizer build watches)
  EXPECT_EQ(std::make_tuple(find_image(b)->data, find_image(b)->data_aux, find_image(b)->width), std::make_tuple(da, 77u, 4u));
  EXPECT_EQ(std::make_tuple(find_image(a)->data, find_image(a)->data_aux), std::make_tuple(nullptr, 0u));
}

TEST_F(ImageData, StripCount) {
  const uint32_t h = make_image(PIX_Y8, 4, 100, 30);
  const std::tuple<uint32_t, uint32_t, uint32_t> cases[] = {{100, 30, 4}, {100, 25, 4}, {100, 0, 0}, {0x10001, 1, 1}};
  for (const auto& [height, lines, strips] : cases) {  // the last: cut to 16 bits
    set_parameters(h, {{PIX_IMAGE_HEIGHT, height}, {PIX_LINES_THIS_STRIP, lines}});
    EXPECT_EQ(PIX_image_calc_total_strips(h), strips) << height << " " << lines;
  }
  EXPECT_TRUE(reports().empty());
}

}  // namespace
