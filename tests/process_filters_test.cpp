// The 3x3 filter against the weighted sum written out here, on random images in any strip size; the threshold over
// every grey level and threshold pair; HSI histograms, smoothing, matching and averages against direct formulas.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "core/image.h"
#include "process/kernels/filters.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace k = pix::process::kernels;
pix::Image& rec(uint32_t h) { return *pix::find_image(h); }
Bytes held(uint32_t h) { return Bytes(rec(h).data, rec(h).data + pix::strip_bytes(rec(h))); }
using Counters = std::array<uint32_t, 875>;
Counters counters(const tPIX_Histogram& h) { return std::bit_cast<Counters>(h); }

class Filters : public pixtest::LibraryTest {
 protected:
  std::mt19937 rng{52};
  uint32_t picture(uint16_t format, uint32_t w, uint32_t h, uint32_t align = 2) {
    return pixtest::random_image(format, w, h, align, rng);
  }
  // Feeds `whole` to `op(in, out)` in strips of `lines`; gives the output strips joined and each one's claimed lines.
  static Bytes in_strips(uint32_t whole, uint32_t lines, const std::function<uint32_t(uint32_t, uint32_t)>& op,
                         std::vector<uint32_t>* claimed = nullptr) {
    const uint32_t in = PIX_image_create(), out = PIX_image_create(), height = rec(whole).height;
    PIX_image_copy_parameters(whole, in);
    Bytes joined;
    for (uint32_t done = 0; done < height; done += lines) {
      PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, lines);
      PIX_image_free_data(in);
      EXPECT_EQ(PIX_image_malloc_a_strip(in), 0u);
      std::copy_n(&rec(whole).data[uint64_t{done} * rec(whole).bytes_per_line],
                  uint64_t{std::min(lines, height - done)} * rec(whole).bytes_per_line, rec(in).data);
      EXPECT_EQ(op(in, out), 0u);
      if (claimed) claimed->push_back(PIX_get_lines_this_strip(out));
      if (rec(out).data) joined.insert(joined.end(), rec(out).data, rec(out).data + pix::strip_bytes(rec(out)));
    }
    return joined;
  }
};

TEST_F(Filters, FilterFollowsTheWeightedSumInAnyStripSize) {
  std::vector<std::array<int16_t, 9>> kernels = {{1, 2, 1, 2, 4, 2, 1, 2, 1}, {-1, -1, -1, -1, 9, -1, -1, -1, -1}};
  for (std::array<int16_t, 9> c; kernels.size() < 6;) {  // random weights, small and full range; none summing to 0
    for (auto& v : c) v = static_cast<int16_t>(kernels.size() % 2 ? rng() % 601 - 300 : rng());
    if (std::accumulate(c.begin(), c.end(), 0) != 0) kernels.push_back(c);
  }
  for (auto [format, width, height] :
       {std::tuple{PIX_Y8, 13u, 11u}, {PIX_RGB24, 9u, 10u}, {PIX_Y8, 2u, 5u}, {PIX_RGB24, 5u, 2u}}) {
    const uint32_t whole = picture(format, width, height), ch = format == PIX_RGB24 ? 3 : 1;
    PIX_image_set_flags(whole, PIX_FLAG_LOCKED, format == PIX_RGB24);  // a locked source: the output keeps its own strip
    const uint32_t line = rec(whole).bytes_per_line;
    auto at = [&](int64_t y, int64_t x) { return rec(whole).data[y * line + x]; };
    for (auto& kern : kernels) {
      const int32_t divisor = std::accumulate(kern.begin(), kern.end(), 0);
      Bytes want = held(whole);  // first and last lines and pixels, and the padding, as they were
      for (int64_t y = 1; y + 1 < height; ++y) {
        for (int64_t x = ch; x < int64_t{width - 1} * ch; ++x) {
          int32_t sum = 0;
          for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) sum += kern[(dy + 1) * 3 + dx + 1] * at(y + dy, x + dx * int64_t{ch});
          }
          want[y * line + x] = static_cast<uint8_t>(std::clamp(sum / divisor, 0, 255));
        }
      }
      for (uint32_t lines : {height, 2u, 3u, 4u, 7u}) {
        SCOPED_TRACE(testing::Message() << width << "x" << height << " in strips of " << lines);
        std::vector<uint32_t> claimed;
        const Bytes got = in_strips(
            whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_filter_3x3(in, out, kern.data(), 3); },
            &claimed);
        // One line late across strips; the last strip claims one more than the first held, whatever it held.
        std::vector<uint32_t> expected(claimed.size(), lines);
        expected.front() = claimed.size() > 1 ? lines - 1 : 0, expected.back() = lines + 1;
        EXPECT_EQ(claimed, expected);
        ASSERT_GE(got.size(), want.size());
        EXPECT_TRUE(std::equal(want.begin(), want.end(), got.begin()));
        EXPECT_TRUE(std::all_of(got.begin() + want.size(), got.end(), [](uint8_t b) { return b == 0; }));
      }
    }
  }
}

TEST_F(Filters, ThresholdTakesEveryLevelAndPair) {
  Bytes all(256), got(256), want(256);
  std::iota(all.begin(), all.end(), 0);
  for (unsigned u = 0; u < 256; ++u) {
    for (unsigned l = 0; l < 256; ++l) {
      for (unsigned g = 0; g < 256; ++g) want[g] = g >= u ? 255 : g < l ? 0 : g;
      k::threshold_row(all.data(), got.data(), 256, static_cast<uint8_t>(u), static_cast<uint8_t>(l));
      ASSERT_EQ(got, want) << u << " " << l;
    }
  }
  // Through the strips of odd-width images (lines of width + 1 bytes, the last line's extra byte outside an
  // alignment of 1): every byte of the strip thresholded, the lower threshold's low byte taken.
  for (auto [align, u, l] : {std::tuple{1u, 128u, 64u}, {1u, 255u, 0x1FF40u}, {2u, 40u, 200u}, {2u, 0u, 0u}}) {
    const uint32_t whole = picture(PIX_Y8, 17, 6, align);
    const Bytes got_all =
        in_strips(whole, 4, [&](uint32_t in, uint32_t out) { return PIX_IP_threshold_grayscale(in, out, u, l, 3); });
    Bytes expect = held(whole);
    for (auto& g : expect) g = g >= u ? 255 : g < (l & 0xFF) ? 0 : g;
    EXPECT_TRUE(std::equal(expect.begin(), expect.end(), got_all.begin())) << align << " " << u << " " << l;
  }
}

TEST_F(Filters, HistogramsAndAveragesFollowDirectCounts) {
  constexpr uint32_t kPlane[] = {0, 360, 616, 872};  // where each plane's bins start (and the totals)
  const uint32_t w = 11, h = 7, whole = picture(PIX_HSI, w, h);
  uint8_t* px = rec(whole).data;
  for (uint32_t i = 0; i < w * h; ++i) px[4 * i + 1] &= 1;  // hues 0..511: those beyond the circle have no bin
  tPIX_Histogram got{};
  tPIX_Average avg{};
  in_strips(whole, 3, [&](uint32_t in, uint32_t) {
    return PIX_IP_histogram_generate(in, &got, 3) | PIX_IP_generate_averages(in, &avg, 3);
  });
  Counters want{};
  std::vector<uint64_t> mean(3);
  for (uint32_t y0 = 0; y0 < h; y0 += 3) {
    const uint32_t n = w * (std::min(y0 + 3, h) - y0);
    uint64_t sums[3] = {};
    for (uint32_t i = y0 * w; i < y0 * w + n; ++i) {
      const unsigned v[3] = {px[4 * i] | px[4 * i + 1] * 256u, px[4 * i + 2], px[4 * i + 3]};
      for (int c = 0; c < 3; ++c) sums[c] += v[c], want[kPlane[c] + v[c]] += c > 0 || v[0] < 360;
    }
    // Each strip adds the whole planes so far; each strip's sums join the quotient before and divide anew.
    for (int c = 0; c < 3; ++c) {
      want[872 + c] += std::accumulate(&want[kPlane[c]], &want[kPlane[c + 1]], 0u);
      mean[c] = (mean[c] + sums[c]) / n;
    }
  }
  EXPECT_EQ(counters(got), want);
  EXPECT_EQ((std::vector<uint64_t>{avg.hue, avg.saturation, avg.intensity}), mean);

  // Smoothing: 1, 2, 1 inside each plane, its end bins kept, the totals cleared.
  tPIX_Histogram smooth = got;
  expect_report(PIX_IP_histogram_filter(&smooth, 899), "PIX_IP_histogram_filter", 0x10140000u,
                "Only 0th order currently supported");
  ASSERT_EQ(PIX_IP_histogram_filter(&smooth, 900), 0u);
  const Counters before = counters(got), after = counters(smooth);
  for (uint32_t i = 0; i < 875; ++i) {
    const bool end = i == 0 || i == 359 || i == 360 || i == 615 || i == 616 || i == 871;
    EXPECT_EQ(after[i], i >= 872 ? 0 : end ? before[i] : (before[i - 1] + 2 * before[i] + before[i + 1]) >> 2) << i;
  }
  // Matching: 100 less the truncated percentage of E in D (D against the first plane's mean), else 0.
  for (uint16_t p = 1; p <= 3; ++p) {
    const int64_t m = p == 1 ? before[872] / 360 : before[871 + p] >> 8;
    int64_t d = 0, e = 0;
    for (uint32_t i = kPlane[p - 1]; i < kPlane[p]; ++i)
      d += std::abs(before[i] - m), e += std::abs(before[i] - int64_t{after[i]});
    uint32_t result = 7, self = 7;
    ASSERT_EQ(PIX_IP_histogram_match(&got, &smooth, p, &result) | PIX_IP_histogram_match(&got, &got, p, &self), 0u);
    EXPECT_EQ(result, static_cast<uint32_t>(d != 0 && e < d ? 100 - e * 100 / d : 0)) << p;
    EXPECT_EQ(self, 100u);
  }
  tPIX_Histogram flat{}, wide{}, near{};
  std::fill_n(flat.saturation, 256, 5u), flat.saturation_total = 5 * 256;
  uint32_t result = 7;
  EXPECT_EQ(PIX_IP_histogram_match(&flat, &got, 2, &result), 0u);  // D = 0
  EXPECT_EQ(result, 0u);
  wide.saturation[0] = 30000000, near.saturation[0] = 5000000;  // E * 100 wraps at 32 bits
  expect_report(PIX_IP_histogram_match(&wide, &near, 2, &result), "PIX_IP_histogram_match", 0x10790003u,
                "Result not within 0 to 100 limits");
  for (uint16_t p : {0, 4}) {
    expect_report(PIX_IP_histogram_match(&got, &got, p, &result), "PIX_IP_histogram_match", 0x10280001u,
                  "Only planes 1,2 and 3 are acceptable");
  }
  ASSERT_EQ(PIX_IP_histogram_copy(&got, &flat) | PIX_IP_histogram_clear(&got), 0u);
  EXPECT_EQ(counters(flat), want);
  EXPECT_EQ(counters(got), Counters{});
  expect_report(PIX_IP_histogram_match(nullptr, &got, 1, &result), "PIX_IP_histogram_match", 0x10280000u,
                "Histogram structure(s) is NULL");
  expect_report(PIX_IP_histogram_generate(whole, nullptr, 3), "PIX_IP_histogram_generate", 0x10280000u,
                "Histogram structure is NULL");
  expect_report(PIX_IP_generate_averages(whole, nullptr, 3), "PIX_IP_generate_averages", 0x10280000u,
                "tPIX_Average structure pointer is NULL");
  expect_report(PIX_IP_generate_averages(picture(PIX_Y8, 4, 4), &avg, 3), "PIX_IP_generate_averages", 0x10140000u,
                "Unsupported image format");
}

TEST_F(Filters, RefusalsLeaveNothingHalfDone) {
  int16_t blur[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1}, zero[9] = {1, 1, 1, 1, -8, 1, 1, 1, 1};
  const uint32_t out = PIX_image_create(), grey = picture(PIX_Y8, 6, 5);
  expect_report(PIX_IP_filter_3x3(picture(PIX_RGB16, 4, 4), out, blur, 3), "PIX_IP_filter_3x3", 0x10140000u,
                "Supports RGB24 & Y8 only");
  expect_report(PIX_IP_filter_3x3(grey, out, zero, 3), "PIX_IP_filter_3x3", 0x10280000u,
                "Kernel coefficients sum to 0");
  pixtest::set_parameters(grey, {{PIX_LINES_THIS_STRIP, 1}});  // strips of one line cannot carry two
  expect_report(PIX_IP_filter_3x3(grey, out, blur, 3), "PIX_IP_filter_3x3_1_strip", 0x10140000u,
                "Strips must hold at least 2 lines");
  EXPECT_EQ(PIX_IP_filter_3x3(grey, out, nullptr, 4), 0u);  // finished without a kernel
  expect_report(PIX_IP_threshold_grayscale(picture(PIX_RGB24, 4, 4), out, 1, 1, 3), "PIX_IP_threshold_grayscale",
                0x10140000u, "Unsupported image format");
}

}  // namespace
