// The strip protocol, driven through a small strip-wise function built on it
// exactly as the library's converters are: its own checks, set-up and worker.
#include <tuple>
#include <vector>

#include "core/stage.h"
#include "test_support.h"

namespace {

using namespace pix;

// "Invert grey": Y8 in, Y8 out, each byte complemented.  A run can be told
// to fail in its worker from a given strip on.
struct InvertState {
  stage::Progress progress;
  std::vector<uint32_t> strip_sizes;  // lines the worker saw, per strip
  int fail_from_strip = -1;
};
InvertState g_invert;
constexpr const char* kInvert = "test_invert";
constexpr const char* kInvertWorker = "test_invert_1_strip";

uint32_t invert_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (g_invert.fail_from_strip >= 0 && static_cast<int>(g_invert.strip_sizes.size()) >= g_invert.fail_from_strip) {
    return report(kInvertWorker, code::bad_state, "planned failure");
  }
  if (uint32_t r = stage::begin_worker(src, out, kInvertWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  for (uint32_t y = 0; y < src.lines_this_strip; ++y) {
    for (uint32_t x = 0; x < src.width; ++x) dst.data[y * dst.bytes_per_line + x] = ~src.data[y * src.bytes_per_line + x];
  }
  g_invert.strip_sizes.push_back(src.lines_this_strip);
  return 0;
}

uint32_t invert(uint32_t in, uint32_t out, uint16_t command) {
  uint32_t result = 0;
  Image* src = stage::checked_input(in, kInvert, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) return stage::describe_output(in, out, PIX_Y8, true);
  if (src->format != PIX_Y8) return report(kInvert, code::unsupported, "Unsupported image format");
  return stage::run_strips(
      g_invert.progress, kInvert, stage::kBusy, in, out, command,
      [&] { return stage::set_up_output(in, out, PIX_Y8, kInvert, true); }, [&] { return invert_1_strip(in, out); });
}

class StripDriver : public pixtest::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    g_invert = {};
    in = pixtest::make_image(PIX_Y8, 5, 100, 30);
    out = PIX_image_create();
  }
  // Gives the input a fresh strip of `lines` lines, with bytes that tell line
  // and column apart, and hands it to the function.
  uint32_t step(uint32_t first_line, uint32_t lines = 30, uint16_t command = PIX_STRIP_NEXT) {
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, lines);
    PIX_image_free_data(in);
    EXPECT_EQ(PIX_image_malloc_a_strip(in), 0u);
    const Image& img = *find_image(in);
    for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
      for (uint32_t x = 0; x < img.width; ++x) img.data[y * img.bytes_per_line + x] = uint8_t((first_line + y) * 2 + x);
    }
    return invert(in, out, command);
  }
  uint32_t in = 0, out = 0;
};

TEST_F(StripDriver, ConvertsStripsCutsTheLastOneAndCommandFourResets) {
  for (uint32_t call = 0; call < 4; ++call) {
    ASSERT_EQ(step(call * 30), 0u) << call;
    EXPECT_EQ(g_invert.progress.idle(), call == 3) << call;
    const Image& dst = *find_image(out);  // the output strip holds the inverted lines of this strip
    for (uint32_t y = 0; y < g_invert.strip_sizes.back(); ++y) {
      EXPECT_EQ(dst.data[y * dst.bytes_per_line + 4], uint8_t(~((call * 30 + y) * 2 + 4)));
    }
  }
  // Kept: the input's strip size is cut in place, the output's was set before the cut.
  EXPECT_EQ(std::make_tuple(PIX_get_lines_this_strip(in), PIX_get_lines_this_strip(out), PIX_get_height(out)),
            std::make_tuple(10u, 30u, 100u));
  // Command 4 ends a run midway; the next call starts again from line 0.
  ASSERT_EQ(step(0), 0u);
  EXPECT_EQ(g_invert.progress.lines_done, 30u);
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  for (uint32_t call = 0; call < 4; ++call) ASSERT_EQ(step(call * 30), 0u);
  // A whole image in one strip finishes at once, and the next image can follow straight away.
  ASSERT_EQ(step(0, 100), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  ASSERT_EQ(step(0, 100), 0u);
  EXPECT_EQ(g_invert.strip_sizes, (std::vector<uint32_t>{30, 30, 30, 10, 30, 30, 30, 30, 10, 100, 100}));
  EXPECT_TRUE(reports().empty());
}

TEST_F(StripDriver, ADescriptionOnlySetsUpTheOutputAndOtherCommandsOnlyPrepare) {
  pixtest::set_parameters(in, {{PIX_LINES_THIS_STRIP, 0}, {PIX_OUT_LINE_ALIGN, 8}});
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), PIX_get_width(out), PIX_get_height(out),
                            PIX_image_get_parameter(out, PIX_LINE_ALIGN), PIX_image_get_ptr(out, PIX_PTR_DATA)),
            std::make_tuple(uint32_t{PIX_Y8}, 5u, 100u, 8u, nullptr));
  PIX_image_destroy(out);
  out = PIX_image_create();
  EXPECT_EQ(step(0, 30, 7), 0u);
  EXPECT_FALSE(g_invert.progress.idle());  // set up, in progress
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), uint32_t{PIX_Y8});
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  EXPECT_TRUE(g_invert.strip_sizes.empty());
}

TEST_F(StripDriver, AFailingWorkerLeavesTheRunInProgress) {
  g_invert.fail_from_strip = 1;
  ASSERT_EQ(step(0), 0u);
  expect_report(step(30), kInvertWorker, 0x107C0000u, "planned failure");
  EXPECT_FALSE(g_invert.progress.idle());
  EXPECT_EQ(g_invert.progress.lines_done, 30u);  // the failed strip is not counted
  EXPECT_EQ(step(30, 70), 0x107C0000u);  // a failing last strip stays in progress too
  EXPECT_FALSE(g_invert.progress.idle());
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
}

TEST_F(StripDriver, BadInputsOutputsAndMissingData) {
  expect_report(invert(999, out, PIX_STRIP_NEXT), kInvert, 0x10030000u, "Corrupt image");
  PIX_image_set_parameter(in, PIX_IMAGE_DEPTH, 16);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x10030002u);
  PIX_image_set_parameter(in, PIX_IMAGE_FORMAT, PIX_RGB16);
  expect_report(invert(in, out, PIX_STRIP_NEXT), kInvert, 0x10140000u, "Unsupported image format");
  PIX_image_set_parameter(in, PIX_IMAGE_FORMAT, PIX_Y8);
  // An output that cannot be set up keeps the function idle.
  const uint32_t real_out = out;
  out = 999;
  expect_report(step(0), "PIX_image_copy_parameters", 0x10010000u, "Output image does not exist");
  EXPECT_TRUE(g_invert.progress.idle());
  // An image cannot be its own output; its strip is untouched.
  out = in;
  EXPECT_EQ(step(0), 0x102A0000u);
  EXPECT_EQ(last_report().function, kInvertWorker);
  EXPECT_NE(PIX_image_get_ptr(in, PIX_PTR_DATA), nullptr);
  invert(in, in, PIX_STRIP_FINISH);
  // An output destroyed in the middle of a run is caught, not followed.
  out = real_out;
  ASSERT_EQ(step(0), 0u);
  PIX_image_destroy(out);
  expect_report(step(30), kInvert, 0x10010000u, "Output image does not exist");
  invert(in, out, PIX_STRIP_FINISH);
  // A strip without data: the worker says so and the run stays open.
  out = PIX_image_create();
  PIX_image_free_data(in);
  expect_report(invert(in, out, PIX_STRIP_NEXT), kInvertWorker, 0x10030000u, "No image data");
  EXPECT_FALSE(g_invert.progress.idle());
}

TEST(StripAdvance, CountsAgainstTheCountedImageOnly) {
  // A single-image transfer (a file writer, say) counts on its own image.
  tPIX_Image img{};
  img.height = 10;
  img.lines_this_strip = 4;
  stage::Progress progress{stage::kBusy, 0};
  std::vector<uint32_t> seen;
  int finished = 0;
  auto work = [&]() -> uint32_t { return seen.push_back(img.lines_this_strip), 0u; };
  auto finish = [&]() -> uint32_t { return ++finished, 0u; };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(stage::advance(progress, img, PIX_STRIP_NEXT, work, stage::Nothing{}, finish), 0u);
  EXPECT_EQ(std::make_tuple(seen, finished, progress.idle()), std::make_tuple(std::vector<uint32_t>{4, 4, 2}, 1, true));
  // Lines done beyond the height (the height shrank mid-run) cut to nothing.
  progress = {stage::kBusy, 12};
  img.lines_this_strip = 4;
  EXPECT_EQ(stage::advance(progress, img, PIX_STRIP_NEXT, work), 0u);
  EXPECT_EQ(std::make_tuple(seen.back(), progress.idle()), std::make_tuple(0u, true));
}

}  // namespace
