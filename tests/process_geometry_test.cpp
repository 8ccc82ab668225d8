// Geometric operations: the scale against the bilinear formula written out here, for every weight and in any strip
// size; mirror and rotate by index formulas on every pixel size; the other operations strip by strip; the refusals.
#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "core/image.h"
#include "core/memory.h"
#include "process/kernels/geometry.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace k = pix::process::kernels;
using Op = std::function<uint32_t(uint32_t, uint32_t)>;

const pix::Image& rec(uint32_t h) { return *pix::find_image(h); }
Bytes held(uint32_t h) { return rec(h).data ? Bytes(rec(h).data, rec(h).data + pix::strip_bytes(rec(h))) : Bytes{}; }
// Byte `x` of line `y` of an image's strip.
uint8_t at(uint32_t h, uint64_t y, uint64_t x) { return rec(h).data[y * rec(h).bytes_per_line + x]; }
// The bilinear formula: near * (256 - f) / 256 + far * f / 256, each term rounded down.
unsigned mix(unsigned near, unsigned far, unsigned f) { return near * (256 - f) / 256 + far * f / 256; }

class Geometry : public pixtest::LibraryTest {
 protected:
  std::mt19937 rng{95};
  uint32_t picture(uint16_t format, uint32_t w, uint32_t h, uint32_t align = 4) {
    return pixtest::random_image(format, w, h, align, rng);
  }
  // Runs `op` over `whole` cut into strips of `lines`: the output strips joined, and each one's lines.
  static Bytes in_strips(uint32_t whole, uint32_t lines, const Op& op, std::vector<uint32_t>* made = nullptr) {
    const uint32_t in = PIX_image_create(), out = PIX_image_create(), height = rec(whole).height;
    PIX_image_copy_parameters(whole, in);
    Bytes joined;
    for (uint32_t done = 0; done < height; done += lines) {
      PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, lines);
      PIX_image_free_data(in);
      EXPECT_EQ(PIX_image_malloc_a_strip(in), 0u);
      std::memcpy(rec(in).data, &rec(whole).data[uint64_t{done} * rec(whole).bytes_per_line],
                  uint64_t{std::min(lines, height - done)} * rec(whole).bytes_per_line);
      EXPECT_EQ(op(in, out), 0u);
      if (made) made->push_back(PIX_get_lines_this_strip(out));
      for (uint8_t b : held(out)) joined.push_back(b);
    }
    return joined;
  }
};

TEST_F(Geometry, ScalePassesFollowTheFormulaForEveryWeight) {
  Bytes upper(65536), lower(65536), got(65536);
  for (unsigned i = 0; i < 65536; ++i) upper[i] = i >> 8, lower[i] = i & 0xFF;
  for (unsigned f = 0; f < 256; ++f) {
    k::scale_row_v(upper.data(), lower.data(), got.data(), got.size(), f);
    for (unsigned i = 0; i < 65536; ++i) ASSERT_EQ(got[i], mix(i >> 8, i & 0xFF, f)) << f << " " << i;
  }
  // Steps of 1/256 pixel over a 5-pixel line: every weight, and the last pixel standing in for its missing next.
  for (unsigned ch : {1u, 3u}) {
    Bytes src(5 * ch), out(1200 * ch);
    for (auto& b : src) b = static_cast<uint8_t>(rng());
    std::vector<k::ScaleColumn> columns(1200);
    k::scale_columns(columns.data(), columns.size(), 5, 32, ch);
    k::scale_row_h(src.data(), out.data(), columns.data(), columns.size(), ch);
    for (unsigned i = 0; i < 1200 * ch; ++i) {
      const unsigned x = i / ch / 256, c = i % ch;
      ASSERT_EQ(out[i], mix(src[x * ch + c], src[std::min(x + 1, 4u) * ch + c], i / ch % 256)) << i;
    }
  }
}

TEST_F(Geometry, ScaleGivesTheSameImageInAnyStripSize) {
  struct Case {
    uint16_t format;
    uint32_t w, h, to_w, to_h;
  };
  for (const Case& c : {Case{PIX_Y8, 13, 11, 29, 23}, Case{PIX_RGB24, 17, 40, 5, 7}, Case{PIX_Y8, 9, 30, 9, 1},
                        Case{PIX_RGB24, 6, 1, 11, 4}, Case{PIX_Y8, 50, 37, 21, 37}}) {
    const uint32_t whole = picture(c.format, c.w, c.h, 1), ch = c.format == PIX_RGB24 ? 3 : 1, line = c.to_w * ch;
    PIX_image_set_flags(whole, PIX_FLAG_LOCKED, c.format == PIX_RGB24);  // a locked source, as in the crop test
    const uint64_t hs = (uint64_t{c.w} << 13) / c.to_w, vs = c.to_h > 1 ? (uint64_t{c.h - 1} << 13) / (c.to_h - 1) : 0;
    auto h_pass = [&](uint64_t y, uint32_t x) {  // byte x of the horizontally scaled line y
      const uint64_t p = x / ch * hs, i = p >> 13, n = std::min<uint64_t>(i + 1, c.w - 1);
      return mix(at(whole, y, i * ch + x % ch), at(whole, y, n * ch + x % ch), (p & 0x1FFF) >> 5);
    };
    Bytes want(uint64_t{line} * c.to_h, 0);
    for (uint32_t j = 0; j < c.to_h; ++j) {
      const uint64_t p = j * vs, y = p >> 13, n = std::min<uint64_t>(y + 1, c.h - 1);
      for (uint32_t x = 0; x < line; ++x) want[j * line + x] = mix(h_pass(y, x), h_pass(n, x), (p & 0x1FFF) >> 5);
    }
    for (uint32_t lines : {c.h, 1u, 3u, 7u}) {
      SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " to " << c.to_w << "x" << c.to_h << " in " << lines);
      std::vector<uint32_t> made;
      Bytes got = in_strips(
          whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_scale(in, out, c.to_w, c.to_h, 3); }, &made);
      EXPECT_EQ(got, want);
      EXPECT_EQ(std::accumulate(made.begin(), made.end(), 0u), c.to_h);
    }
  }
  const uint32_t out = PIX_image_create(), grey = picture(PIX_Y8, 4, 4), flat = picture(PIX_Y8, 4, 0);
  expect_report(PIX_IP_scale(picture(PIX_RGB16, 4, 4), out, 8, 8, 3), "PIX_IP_threshold_grayscale", 0x10140000u,
                "Supports RGB24 & Y8 only");
  expect_report(PIX_IP_scale(999, out, 8, 8, 3), "PIX_IP_threshold_grayscale", 0x10030000u, "Corrupt image");
  EXPECT_EQ(PIX_IP_scale(grey, out, 0, 8, 3), 0x10140000u);  // no size to scale to
  pix::memory::fail_after(1);                                // the strip, then the first line buffer
  expect_report(PIX_IP_scale(grey, out, 8, 8, 3), "PIX_IP_scale_1_strip", 0x500000u, "Malloc fail - no memory?");
  PIX_IP_scale(grey, out, 8, 8, 4);
  pixtest::set_parameters(flat, {{PIX_LINES_THIS_STRIP, 2}});  // a strip cut to no line at all
  expect_report(PIX_IP_scale(flat, out, 8, 8, 3), "PIX_IP_scale_1_strip", 0x290000u,
                "Internal: Not enough lines to process");
  PIX_IP_scale(flat, out, 8, 8, 4);
  ASSERT_EQ(PIX_IP_scale(grey, out, 8, 16, 0), 0u);  // set up for 4 lines; then a wider source arrives
  EXPECT_EQ(PIX_IP_scale(picture(PIX_Y8, 9, 4), out, 8, 16, 3), 0x10140000u);
  PIX_IP_scale(grey, out, 8, 16, 4);
}

TEST_F(Geometry, MirrorAndRotateMovePixelsWhere) {
  for (uint16_t f : {PIX_Y8, PIX_RGB15, PIX_RGB24, PIX_RGBX32}) {  // every pixel size, odd widths, padded lines
    const uint32_t w = 7, h = 5, in = picture(f, w, h), out = PIX_image_create(), pb = (rec(in).depth + 1) / 8;
    auto from = [&](uint16_t angle, uint32_t j, uint32_t i) -> std::pair<uint32_t, uint32_t> {  // (j, i) <- source
      if (angle == 1) return {j, w - 1 - i};                                                    // 1: mirror
      if (angle == 90) return {h - 1 - i, j};
      return angle == 180 ? std::pair{h - 1 - j, w - 1 - i} : std::pair{i, w - 1 - j};
    };
    for (uint16_t angle : {1, 90, 180, 270}) {
      SCOPED_TRACE(testing::Message() << f << " " << angle);
      ASSERT_EQ(angle == 1 ? PIX_IP_mirror_image(in, out, 3) : PIX_IP_rotate_image(in, out, angle), 0u);
      const uint32_t across = angle % 180 == 90 ? h : w, down = angle % 180 == 90 ? w : h;
      ASSERT_EQ(std::tie(rec(out).width, rec(out).height, rec(out).lines_this_strip), std::tie(across, down, down));
      for (uint32_t j = 0; j < down; ++j) {
        for (uint32_t i = 0; i < across * pb; ++i) {
          const auto [y, x] = from(angle, j, i / pb);
          ASSERT_EQ(at(out, j, i), at(in, y, x * pb + i % pb)) << j << "," << i;
        }
      }
    }
  }
  // YUV 4:2:2: luma mirrored to the pixel, chroma by pairs.
  const uint32_t yuv = picture(PIX_YUV422, 6, 3), out = PIX_image_create();
  ASSERT_EQ(PIX_IP_mirror_image(yuv, out, 3), 0u);
  for (uint32_t i = 0, b = 0; i < 36; b = ++i % 12) {  // byte b of line i / 12
    EXPECT_EQ(at(out, i / 12, b), at(yuv, i / 12, b % 2 ? 4 * (2 - b / 4) + b % 4 : 2 * (5 - b / 2))) << i;
  }
  expect_report(PIX_IP_rotate_image(yuv, out, 90), "PIX_IP_rotate_image_1_strip", 0x10140000u,
                "Unsupported image type (convert to non-YUV first)");
  EXPECT_EQ(PIX_IP_rotate_image(yuv, out, 0), 0u);  // a plain copy
  EXPECT_EQ(held(out), held(yuv));
  expect_report(PIX_IP_rotate_image(yuv, out, 45), "PIX_IP_rotate_image", 0x10140000u,
                "Only angles of 0, 90, 180 and 270 supported");
  pixtest::set_parameters(yuv, {{PIX_LINES_THIS_STRIP, 2}});
  expect_report(PIX_IP_rotate_image(yuv, out, 180), "PIX_IP_rotate_image", 0x10140000u,
                "This function only supports full height images - not multiple strips");
  EXPECT_EQ(std::make_pair(PIX_IP_rotate_image(yuv, yuv, 90), PIX_IP_rotate_image(yuv, 999, 90)),
            std::make_pair(0x102A0000u, 0x10010000u));                 // one image cannot be both; no output
  EXPECT_EQ(PIX_IP_rotate_image(picture(PIX_Y8, 4, 4), out, 90), 0u);  // the refusals left it ready
  EXPECT_EQ(PIX_IP_mirror_image(picture(PIX_YUV422, 5, 2), out, 3), 0x10140000u);  // half a pair
  expect_report(PIX_IP_mirror_image(picture(PIX_BILEVEL, 8, 2), out, 3), "PIX_IP_mirror_image", 0x10140000u,
                "Unsupported image format");
}

TEST_F(Geometry, CropTakesTheRectangleStripByStrip) {
  for (uint16_t f : {PIX_Y8, PIX_RGB24, PIX_YUV422, PIX_CMYK32}) {
    const uint32_t whole = picture(f, 11, 10), probe = PIX_image_create(), pb = (rec(whole).depth + 1) / 8;
    PIX_image_set_flags(whole, PIX_FLAG_LOCKED, f == PIX_CMYK32);  // a locked source: the output keeps its own buffer
    for (auto r : {std::array<int16_t, 4>{3, 2, 5, 4}, {6, 7, 20, 20}, {0, 0, 11, 10}}) {
      const uint32_t w = std::min(r[2], int16_t(11 - r[0])), h = std::min(r[3], int16_t(10 - r[1]));
      ASSERT_EQ(PIX_IP_crop(whole, probe, r.data(), 4), 0u);  // sets up and ends
      ASSERT_EQ(std::make_pair(PIX_get_width(probe), PIX_get_height(probe)), std::make_pair(w, h));
      const uint32_t line = PIX_get_bytes_per_line(probe), wb = w * pb;
      for (uint32_t lines : {10u, 3u, 1u}) {
        std::vector<uint32_t> made;
        const Bytes got = in_strips(
            whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_crop(in, out, r.data(), 3); }, &made);
        ASSERT_EQ(got.size(), uint64_t{line} * h);
        for (uint32_t i = 0; i < w * pb * h; ++i) {
          EXPECT_EQ(got[i / wb * line + i % wb], at(whole, r[1] + i / wb, r[0] * pb + i % wb));
        }
        for (uint32_t i = 0; i < made.size(); ++i) {  // each strip makes its lines that lie inside the rectangle
          const int64_t top = std::max<int64_t>(i * lines, r[1]),
                        end = std::min<int64_t>({(i + 1) * lines, 10, r[1] + h});
          EXPECT_EQ(made[i], std::max<int64_t>(end - top, 0)) << i;
        }
      }
    }
  }
  const uint32_t out = PIX_image_create();
  int16_t r[4] = {0, 0, 2, 2}, bad[4] = {-1, 0, 2, 2};
  EXPECT_EQ(PIX_IP_crop(picture(PIX_XRGB32, 4, 4), out, r, 3), 0x1014000Fu);  // the format in the code
  EXPECT_EQ(PIX_IP_crop(picture(PIX_Y8, 4, 4), out, nullptr, 3), 0x10140000u);
  EXPECT_EQ(PIX_IP_crop(picture(PIX_Y8, 4, 4), out, bad, 3), 0x10140000u);
}

TEST_F(Geometry, SubsampleAndReplicateEachStripFromItsTop) {
  for (uint16_t f : {PIX_Y8, PIX_RGB15, PIX_RGB24, PIX_YUV422}) {
    const uint32_t w = 12, h = 10, lines = 4, whole = picture(f, w, h, 2), pb = (rec(whole).depth + 1) / 8,
                   yuv = f == PIX_YUV422;
    for (uint16_t n : {2, 3}) {
      SCOPED_TRACE(testing::Message() << f << " by " << n);
      std::vector<uint32_t> made, rep_made;
      const Bytes sub = in_strips(
          whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_subsample(in, out, n, 3); }, &made);
      EXPECT_EQ(made, std::vector<uint32_t>(3, lines / n));  // the last strip too: sized before its cut
      const uint32_t ow = w / n * pb;
      for (uint32_t y = 0; y < h; y += n) {
        const uint32_t strip = y / lines, in_strip = std::min(lines, h - strip * lines) / n;
        if (y % lines % n != 0 || y % lines / n >= in_strip) continue;  // each strip is sampled from its own top
        for (uint32_t x = 0; x < ow; ++x) {
          const uint32_t p = x / pb, chroma = 4 * (p / 2 * n) + 1 + 2 * (p % 2);
          EXPECT_EQ(sub[(strip * (lines / n) + y % lines / n) * ow + x],
                    at(whole, y, yuv && x % 2 ? chroma : p * n * pb + x % pb))
              << y << "," << x;
        }
      }
      const Bytes rep = in_strips(
          whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_pixel_rep(in, out, n, 3); }, &rep_made);
      EXPECT_EQ(rep_made, std::vector<uint32_t>(3, lines * n));
      for (uint32_t i = 0; i < h * n * w * n * pb; ++i) {
        const uint32_t y = i / (w * n * pb), x = i % (w * n * pb);
        EXPECT_EQ(rep[i], at(whole, y / n, yuv && x % 2 ? 4 * (x / 4 / n) + x % 4 : x / pb / n * pb + x % pb)) << i;
      }
    }
  }
  // Factor 1 hands the strip over: moved, or copied where an image is locked.
  const uint32_t a = picture(PIX_Y8, 720, 576), b = picture(PIX_Y8, 720, 576), out = PIX_image_create();
  const uint8_t* data = rec(a).data;
  ASSERT_EQ(PIX_IP_subsample(a, out, 1, 3), 0u);
  EXPECT_EQ(std::make_tuple(rec(out).data, rec(a).data), std::make_tuple(data, nullptr));
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 1);
  ASSERT_EQ(PIX_IP_pixel_rep(b, out, 1, 3), 0u);
  EXPECT_EQ(held(out), held(b));
  ASSERT_EQ(PIX_IP_subsample(picture(PIX_Y8, 720, 576), out, 3, 3), 0u);
  EXPECT_EQ(std::make_pair(PIX_get_width(out), PIX_get_height(out)), std::make_pair(240u, 192u));
  expect_report(PIX_IP_subsample(a, out, 0, 3), "PIX_IP_subsample", 0x10140000u, "Unsupported sub-sampling factor");
  expect_report(PIX_IP_pixel_rep(picture(PIX_BGR24, 2, 2), out, 2, 3), "PIX_IP_pixel_rep", 0x10140008u,
                "Unsupported image format");
  EXPECT_EQ(PIX_IP_pixel_rep(picture(PIX_Y8, 70000, 1), out, 65535, 3), 0x10030000u);  // too wide to describe
  EXPECT_EQ(PIX_IP_pixel_rep(picture(PIX_YUV422, 5, 1), out, 2, 3), 0x10140000u);      // half a pair
}

TEST_F(Geometry, ExtractRegionGathersTheCircleOfEachStrip) {
  const uint32_t whole = picture(PIX_YUV422, 16, 12), out = PIX_image_create();
  uint32_t last = 0;
  for (uint32_t lines : {12u, 6u}) {
    Bytes got, want;
    in_strips(whole, lines, [&](uint32_t in, uint32_t o) {
      const uint32_t r = PIX_IP_extract_region(in, o, 77, 6, 3, 4, 3);
      got.insert(got.end(), rec(o).data, rec(o).data + rec(last = o).width * 2);
      return r;
    });
    for (uint32_t top = 0; top < 12; top += lines) {  // the circle sits in every strip at the same place
      for (int j = 0; j < int(lines); ++j) {
        for (int x = 2; x < 10; x += 2) {
          const uint8_t* pair = rec(whole).data + (top + j) * 32 + 2 * x;
          if ((x - 6) * (x - 6) + (j - 3) * (j - 3) < 16 && j < 7) want.insert(want.end(), pair, pair + 4);
        }
      }
    }
    EXPECT_EQ(got, want);
    EXPECT_EQ(std::make_tuple(PIX_get_height(last), PIX_get_lines_this_strip(last)), std::make_tuple(1u, 1u));
  }
  EXPECT_EQ(PIX_get_width(last), 2 * 18u);  // the pairs of the last strip
  EXPECT_EQ(PIX_IP_extract_region(pixtest::make_image(PIX_Y8, 16, 12, 0), out, 0, 6, 3, 5, 3), 0u);  // described
  EXPECT_EQ(std::make_pair(PIX_get_width(out), PIX_get_height(out)), std::make_pair(10u, 10u));
  EXPECT_EQ(PIX_IP_extract_region(picture(PIX_Y8, 4, 4), out, 0, 1, 1, 1, 3), 0x10140000u);  // YUV 4:2:2 only
}

}  // namespace
