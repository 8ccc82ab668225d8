// The display's portable part: parameters, flags, region of interest,
// accessors, the checks of the renderers and the direct path's line copier.
// Drawing itself is tested on each platform against a real window system.
#include <array>
#include <vector>

#include "display/display.h"
#include "test_support.h"

namespace {

class Display : public pixtest::LibraryTest {};

TEST_F(Display, ParametersFlagsAndRegion) {
  const uint32_t d = PIX_display_create();
  ASSERT_EQ(d, 1u);
  // Defaults, then every settable parameter written and read back (16-bit ones cut).
  EXPECT_EQ(PIX_display_get_parameter(d, 400), 0x800000u);
  EXPECT_EQ(PIX_display_get_parameter(d, 401), 0x8000u);
  EXPECT_EQ(PIX_display_get_parameter(d, 402), 0u);
  for (uint16_t id : {10, 11, 12, 13, 401}) {
    EXPECT_EQ(PIX_display_set_parameter(d, id, 0x12345u), 0u);
    EXPECT_EQ(PIX_display_get_parameter(d, id), 0x2345u) << id;
  }
  EXPECT_EQ(PIX_display_set_parameter(d, 400, 0x12345678u), 0u);
  EXPECT_EQ(PIX_display_get_parameter(d, 400), 0x12345678u);
  expect_report(PIX_display_set_parameter(d, 402, 1), "PIX_display_set_parameter", 0x10170000u, "Unknown parameter");
  expect_report(PIX_display_get_parameter(d, 14), "PIX_display_get_parameter", 0x10170000u, "Unknown parameter");
  expect_report(PIX_display_get_parameter(9, 10), "PIX_display_get_parameter", 0x10010000u, "");

  // Flags: any bit of the mask answers 1; 0x10001 reaches every display.
  EXPECT_EQ(PIX_display_get_flags(d, 1), 1u);
  EXPECT_EQ(PIX_display_set_flags(d, 4 | 8, 1), 0u);
  EXPECT_EQ(PIX_display_get_flags(d, 2 | 8), 1u);
  EXPECT_EQ(PIX_display_set_flags(d, 8, 2), 0u);  // anything but 1 clears
  EXPECT_EQ(PIX_display_get_flags(d, 2 | 8), 0u);
  const uint32_t e = PIX_display_create();
  EXPECT_EQ(PIX_display_set_flags(PIX_ALL_IMAGES, 2, 1), 0u);
  EXPECT_EQ(PIX_display_get_flags(d, 2) + PIX_display_get_flags(e, 2), 2u);

  std::array<uint16_t, 4> roi{};
  EXPECT_EQ(PIX_display_set_ROI(d, 0, nullptr), 0u);
  EXPECT_EQ(PIX_display_get_ROI(d, roi.data()), 0u);
  EXPECT_EQ(roi, (std::array<uint16_t, 4>{0, 0, 32767, 32767}));
  std::array<uint16_t, 4> set{3, 5, 7, 9};
  EXPECT_EQ(PIX_display_set_ROI(d, 1, set.data()), 0u);
  EXPECT_EQ(PIX_display_get_ROI(d, roi.data()), 0u);
  EXPECT_EQ(roi, set);
  const auto* record = pix::display::displays().find(d);
  EXPECT_EQ(std::make_tuple(record->roi_left, record->roi_width, record->roi_top, record->roi_height),
            std::make_tuple(3, 7, 5, 9));
  expect_report(PIX_display_set_ROI(d, 2, set.data()), "PIX_display_set_ROI", 0x10170000u, "Unknown parameter");

  // Window and context accessors are silent; device caps know five ids.
  const size_t before = reports().size();
  EXPECT_EQ(PIX_display_set_hWnd(9, &roi), 0x10010000u);
  EXPECT_EQ(PIX_display_get_hWnd(9), nullptr);
  EXPECT_EQ(PIX_display_set_paint_hDC(d, &set), 0u);
  EXPECT_EQ(PIX_display_get_paint_hDC(d), static_cast<void*>(&set));
  EXPECT_EQ(PIX_display_set_parameter(d, 11, 640), 0u);
  EXPECT_EQ(PIX_display_get_DeviceCaps(d, 1), 640u);
  for (uint16_t id : {0, 5, 6, 8}) EXPECT_EQ(PIX_display_get_DeviceCaps(d, id), 0x10010000u);
  EXPECT_EQ(reports().size(), before);
  expect_report(PIX_display_get_DeviceCaps(9, 1), "PIX_display_get_DeviceCaps", 0x10010000u,
                "Display handle not valid");
}

TEST_F(Display, RenderersCheckTheirArgumentsInOrder) {
  const uint32_t d = PIX_display_create();
  const uint32_t img = pixtest::make_image(PIX_BGR24, 8, 8, 8);
  expect_report(PIX_DRV_display_image(9, img, 3), "PIX_DRV_display_image", 0x10010000u, "Display handle not valid");
  expect_report(PIX_DRV_display_image(d, 999, 3), "PIX_DRV_display_image", 0x10010000u, "Image handle not valid");
  expect_report(PIX_display_DIB(d, 999), "PIX_display_DIB", 0x10010000u, "Image handle not valid");
  expect_report(PIX_display_DIB(d, img), "PIX_display_DIB", 0x10030000u, "Image is empty (Pdata NULL)");
  // The bitmap path looks at the screen's format, not the image's.
  expect_report(PIX_display_DDB(d, img, 3), "PIX_display_DDB", 0x10140000u, "Unsupported image format");
  // Printing: context, image, data, then the 24-bit DIB rule, then the page.
  expect_report(PIX_display_print_DIB(d, img, 50), "PIX_display_print_DIB", 0x10010000u,
                "Printer device context not set");
  int page = 0;
  PIX_display_set_paint_hDC(d, &page);
  expect_report(PIX_display_print_DIB(d, img, 50), "PIX_display_print_DIB", 0x10030000u,
                "Image is empty (Pdata NULL)");
  ASSERT_EQ(PIX_image_malloc_a_strip(img), 0u);
  expect_report(PIX_display_print_DIB(d, img, 50), "PIX_display_print_DIB", 0x10140000u,
                "24 bit DIBs (BGR24 pixel format) must be supplied to the DIB print function");
  // A bitmap header that does not describe the record is not followed.
  PIX_image_set_flags(img, PIX_FLAG_DIB, 1);
  expect_report(PIX_display_print_DIB(d, img, 50), "PIX_display_print_DIB", 0x10280000u,
                "Printer dimensions not set up");
  PIX_display_set_parameter(d, 11, 100);
  PIX_display_set_parameter(d, 12, 100);
  expect_report(PIX_display_print_DIB(d, img, 50), "PIX_display_print_DIB", 0x10030000u, "Corrupt image");
  EXPECT_EQ(PIX_display_destroy(PIX_ALL_IMAGES), 0u);
  EXPECT_EQ(PIX_display_get_flags(d, 1), 0x10010000u);
}

TEST_F(Display, LineCopierSkipsTheOtherFieldsLines) {
  // Source lines 1..6, destination 8 lines from line number 3 (odd).
  std::vector<uint8_t> src{1, 2, 3, 4, 5, 6}, dst(8);
  const struct {
    unsigned selection;
    std::vector<uint8_t> expected;
  } cases[] = {{0, {1, 2, 3, 4, 5, 6, 0, 0}}, {1, {0, 1, 0, 2, 0, 3, 0, 4}}, {2, {1, 0, 2, 0, 3, 0, 4, 0}}};
  for (const auto& c : cases) {
    std::fill(dst.begin(), dst.end(), 0);
    pix::display::copy_lines(src.data(), 1, dst.data(), 1, c.selection == 0 ? 6 : 8, 3, 1, c.selection);
    EXPECT_EQ(dst, c.expected) << c.selection;
  }
  // A frame large enough to be streamed: lines of odd length at odd places.
  constexpr std::size_t kBytes = 1001, kLines = 1100, kPitch = 1024;
  std::vector<uint8_t> big(kLines * kPitch), out(kLines * kPitch + 3), expected(out.size());
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i * 131 + i / 977);
  for (unsigned selection : {0u, 2u}) {
    std::fill(out.begin(), out.end(), 0), std::fill(expected.begin(), expected.end(), 0);
    for (std::size_t n = 0, from = 0; n < kLines; ++n) {
      if (selection == 2 && n % 2 == 0) continue;
      std::copy_n(big.begin() + std::ptrdiff_t(from++ * kPitch), kBytes, expected.begin() + std::ptrdiff_t(3 + n * kPitch));
    }
    pix::display::copy_lines(big.data(), kPitch, out.data() + 3, kPitch, kLines, 0, kBytes, selection);
    EXPECT_TRUE(out == expected) << selection;
  }
}

}  // namespace
