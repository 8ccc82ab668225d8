// The strip protocol, driven through a small strip-wise function built on it
// exactly as the library's converters are: its own checks, set-up and worker.
#include <vector>

#include "core/strip.h"
#include "test_support.h"

namespace {

using namespace pix;
using pixtest::LibraryTest;

// "Invert grey": Y8 in, Y8 out, each byte complemented.  A run can be told
// to fail in its worker from a given strip on.
struct InvertState {
  strip::Progress progress;
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
  if (uint32_t r = strip::begin_worker(src, out, kInvertWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  for (uint32_t y = 0; y < src.lines_this_strip; ++y) {
    for (uint32_t x = 0; x < src.width; ++x) {
      dst.data[y * dst.bytes_per_line + x] = static_cast<uint8_t>(~src.data[y * src.bytes_per_line + x]);
    }
  }
  g_invert.strip_sizes.push_back(src.lines_this_strip);
  return 0;
}

uint32_t invert(uint32_t in, uint32_t out, uint16_t command) {
  uint32_t result = 0;
  Image* src = strip::checked_input(in, kInvert, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) return strip::describe_output(in, out, PIX_Y8, true);
  if (src->format != PIX_Y8) return report(kInvert, code::unsupported, "Unsupported image format");
  return strip::run(
      g_invert.progress, kInvert, strip::kBusy, in, out, command,
      [&] { return strip::set_up_output(in, out, PIX_Y8, kInvert, true); },
      [&] { return invert_1_strip(in, out); });
}

class StripDriver : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    g_invert = {};
    in = pixtest::make_image(PIX_Y8, 5, 100, 30);
    out = PIX_image_create();
  }
  // Fills the input's strip with bytes that tell line and column apart.
  void fill(uint32_t first_line) {
    PIX_image_free_data(in);
    ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
    const Image& img = *find_image(in);
    for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
      for (uint32_t x = 0; x < img.width; ++x) img.data[y * img.bytes_per_line + x] = static_cast<uint8_t>((first_line + y) * 2 + x);
    }
  }
  uint32_t in = 0, out = 0;
};

TEST_F(StripDriver, ConvertsStripsAndCutsTheLastOne) {
  for (int call = 0; call < 4; ++call) {
    fill(call * 30);
    ASSERT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u) << call;
    EXPECT_EQ(g_invert.progress.idle(), call == 3) << call;
    // The output strip holds the inverted lines of this strip.
    const Image& dst = *find_image(out);
    for (uint32_t y = 0; y < g_invert.strip_sizes.back(); ++y) {
      EXPECT_EQ(dst.data[y * dst.bytes_per_line + 4], static_cast<uint8_t>(~((call * 30 + y) * 2 + 4)));
    }
  }
  EXPECT_EQ(g_invert.strip_sizes, (std::vector<uint32_t>{30, 30, 30, 10}));
  // Kept: the input's strip size is cut in place, the output's was set before the cut.
  EXPECT_EQ(PIX_get_lines_this_strip(in), 10u);
  EXPECT_EQ(PIX_get_lines_this_strip(out), 30u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_HEIGHT), 100u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(StripDriver, AWholeImageInOneStripFinishesAtOnce) {
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 100);
  fill(0);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  EXPECT_EQ(g_invert.strip_sizes, (std::vector<uint32_t>{100}));
  // A second image can follow straight away.
  fill(0);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(g_invert.strip_sizes.size(), 2u);
}

TEST_F(StripDriver, ADescriptionWithoutDataOnlySetsUpTheOutput) {
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 0);
  PIX_image_set_parameter(in, PIX_OUT_LINE_ALIGN, 8);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), uint32_t{PIX_Y8});
  EXPECT_EQ(PIX_get_width(out), 5u);
  EXPECT_EQ(PIX_get_height(out), 100u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_LINE_ALIGN), 8u);
  EXPECT_EQ(PIX_image_get_ptr(out, PIX_PTR_DATA), nullptr);
  EXPECT_TRUE(g_invert.strip_sizes.empty());
}

TEST_F(StripDriver, OtherCommandsOnlyPrepare) {
  fill(0);
  EXPECT_EQ(invert(in, out, 7), 0u);
  EXPECT_FALSE(g_invert.progress.idle());  // set up, in progress
  EXPECT_TRUE(g_invert.strip_sizes.empty());
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), uint32_t{PIX_Y8});
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
}

TEST_F(StripDriver, CommandFourResetsAMidwayRun) {
  fill(0);
  ASSERT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(g_invert.progress.lines_done, 30u);
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
  // The next call starts a new run from line 0: four strips again.
  for (int call = 0; call < 4; ++call) {
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 30);
    fill(call * 30);
    ASSERT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  }
  EXPECT_EQ(g_invert.strip_sizes, (std::vector<uint32_t>{30, 30, 30, 30, 10}));
}

TEST_F(StripDriver, AFailingWorkerLeavesTheRunInProgress) {
  g_invert.fail_from_strip = 1;
  fill(0);
  ASSERT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  fill(30);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x107C0000u);
  EXPECT_EQ(last_report().function, kInvertWorker);
  EXPECT_FALSE(g_invert.progress.idle());
  EXPECT_EQ(g_invert.progress.lines_done, 30u);  // the failed strip is not counted
  // A failing last strip stays in progress too.
  g_invert.fail_from_strip = -1;
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 70);
  fill(30);
  g_invert.fail_from_strip = 1;
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x107C0000u);
  EXPECT_FALSE(g_invert.progress.idle());
  EXPECT_EQ(invert(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(g_invert.progress.idle());
}

TEST_F(StripDriver, InputChecksAndMissingData) {
  EXPECT_EQ(invert(999, out, PIX_STRIP_NEXT), 0x10030000u);
  EXPECT_EQ(last_report().function, kInvert);
  EXPECT_EQ(last_report().message, "Corrupt image");
  PIX_image_set_parameter(in, PIX_IMAGE_DEPTH, 16);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x10030002u);
  PIX_image_set_parameter(in, PIX_IMAGE_FORMAT, PIX_RGB16);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x10140000u);
  EXPECT_EQ(last_report().message, "Unsupported image format");
  EXPECT_TRUE(g_invert.progress.idle());
  // A strip without data: the worker says so and the run stays open.
  PIX_image_set_parameter(in, PIX_IMAGE_FORMAT, PIX_Y8);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x10030000u);
  EXPECT_EQ(last_report().function, kInvertWorker);
  EXPECT_EQ(last_report().message, "No image data");
  EXPECT_FALSE(g_invert.progress.idle());
}

TEST_F(StripDriver, AnOutputThatCannotBeSetUpKeepsTheFunctionIdle) {
  fill(0);
  EXPECT_EQ(invert(in, 999, PIX_STRIP_NEXT), 0x10010000u);
  EXPECT_EQ(last_report().function, "PIX_image_copy_parameters");
  EXPECT_EQ(last_report().message, "Output image does not exist");
  EXPECT_TRUE(g_invert.progress.idle());
  // An output destroyed in the middle of a run is caught, not followed.
  ASSERT_EQ(invert(in, out, PIX_STRIP_NEXT), 0u);
  PIX_image_destroy(out);
  fill(30);
  EXPECT_EQ(invert(in, out, PIX_STRIP_NEXT), 0x10010000u);
  EXPECT_EQ(last_report().function, kInvert);
  EXPECT_EQ(last_report().message, "Output image does not exist");
}

TEST_F(StripDriver, AnImageCannotBeItsOwnOutput) {
  fill(0);
  EXPECT_EQ(invert(in, in, PIX_STRIP_NEXT), 0x102A0000u);
  EXPECT_EQ(last_report().function, kInvertWorker);
  EXPECT_NE(PIX_image_get_ptr(in, PIX_PTR_DATA), nullptr);  // its strip is untouched
  invert(in, in, PIX_STRIP_FINISH);
}

TEST(StripAdvance, CountsAgainstTheCountedImageOnly) {
  // A single-image transfer (a file writer, say) counts on its own image.
  tPIX_Image img{};
  img.height = 10;
  img.lines_this_strip = 4;
  strip::Progress progress;
  progress.state = strip::kBusy;
  std::vector<uint32_t> seen;
  int finished = 0;
  auto work = [&]() -> uint32_t {
    seen.push_back(img.lines_this_strip);
    return 0;
  };
  auto finish = [&]() -> uint32_t {
    ++finished;
    return 0;
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(strip::advance(progress, img, PIX_STRIP_NEXT, work, strip::Nothing{}, finish), 0u);
  EXPECT_EQ(seen, (std::vector<uint32_t>{4, 4, 2}));
  EXPECT_EQ(finished, 1);
  EXPECT_TRUE(progress.idle());
  // Lines done beyond the height (the height shrank mid-run) cut to nothing.
  progress = {strip::kBusy, 12};
  img.lines_this_strip = 4;
  EXPECT_EQ(strip::advance(progress, img, PIX_STRIP_NEXT, work), 0u);
  EXPECT_EQ(seen.back(), 0u);
  EXPECT_TRUE(progress.idle());
}

}  // namespace
