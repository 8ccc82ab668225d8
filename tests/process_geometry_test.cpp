// Geometric operations: the scale's passes against the bilinear formula written out here for every weight, its
// whole-image result in any strip size; mirror and rotate by index formulas on random images of every pixel size;
// crop, subsample and replication strip by strip; the quirks and the refusals.
#include <algorithm>
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

class Geometry : public pixtest::LibraryTest {
 protected:
  std::mt19937 rng{95};
  // A random whole image (one strip), lines padded to `align`.
  uint32_t picture(uint16_t format, uint32_t w, uint32_t h, uint32_t align = 4) {
    const uint32_t img = pixtest::make_image(format, w, h, h);
    pixtest::set_parameters(img, {{PIX_LINE_ALIGN, align}});
    EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
    pix::Image& r = *pix::find_image(img);
    for (uint64_t i = 0; i < pix::strip_bytes(r); ++i) r.data[i] = static_cast<uint8_t>(rng());
    return img;
  }
  static Bytes held(uint32_t img) {
    const pix::Image& r = *pix::find_image(img);
    return r.data ? Bytes(r.data, r.data + pix::strip_bytes(r)) : Bytes{};
  }
  // Runs `op` strip by strip over `whole` cut into strips of `lines`; the output strips' bytes, joined.
  static Bytes in_strips(uint32_t whole, uint32_t lines, const Op& op, std::vector<uint32_t>* made = nullptr) {
    const pix::Image& w = *pix::find_image(whole);
    const uint32_t in = PIX_image_create(), out = PIX_image_create();
    PIX_image_copy_parameters(whole, in);
    Bytes joined;
    for (uint32_t done = 0; done < w.height; done += lines) {
      PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, lines);
      PIX_image_free_data(in);
      EXPECT_EQ(PIX_image_malloc_a_strip(in), 0u);
      const uint64_t bytes = uint64_t{std::min(lines, w.height - done)} * w.bytes_per_line;
      std::memcpy(pix::find_image(in)->data, w.data + uint64_t{done} * w.bytes_per_line, bytes);
      EXPECT_EQ(op(in, out), 0u);
      if (made) made->push_back(PIX_get_lines_this_strip(out));
      const Bytes b = held(out);
      joined.insert(joined.end(), b.begin(), b.end());
    }
    return joined;
  }
};

// The bilinear formula: near * (256 - f) / 256 + far * f / 256, each term rounded down.
unsigned mix(unsigned near, unsigned far, unsigned f) { return near * (256 - f) / 256 + far * f / 256; }

TEST_F(Geometry, ScalePassesFollowTheFormulaForEveryWeight) {
  Bytes upper(65536), lower(65536), got(65536);
  for (unsigned i = 0; i < 65536; ++i) upper[i] = i >> 8, lower[i] = i & 0xFF;
  for (unsigned f = 0; f < 256; ++f) {
    k::scale_row_v(upper.data(), lower.data(), got.data(), got.size(), f);
    for (unsigned i = 0; i < 65536; ++i) ASSERT_EQ(got[i], mix(i >> 8, i & 0xFF, f)) << f << " " << i;
  }
  // Steps of 1/256 pixel: output pixel i of a line takes every weight once per source pixel.
  for (unsigned channels : {1u, 3u}) {
    Bytes src(300 * channels), out(1200 * channels);
    for (auto& b : src) b = static_cast<uint8_t>(rng());
    std::vector<k::ScaleColumn> columns(1200);
    k::scale_columns(columns.data(), columns.size(), 5, 32, channels);  // stays inside the first 5 pixels
    k::scale_row_h(src.data(), out.data(), columns.data(), columns.size(), channels);
    for (unsigned i = 0; i < 1200; ++i) {
      const unsigned x = i / 256, next = std::min(x + 1, 4u);  // the last pixel stands in for its missing next
      for (unsigned c = 0; c < channels; ++c) {
        ASSERT_EQ(out[i * channels + c], mix(src[x * channels + c], src[next * channels + c], i % 256)) << i;
      }
    }
  }
}

TEST_F(Geometry, ScaleGivesTheSameImageInAnyStripSize) {
  struct Case { uint16_t format; uint32_t w, h, to_w, to_h; };
  for (const Case& c : {Case{PIX_Y8, 13, 11, 29, 23}, Case{PIX_RGB24, 17, 40, 5, 7}, Case{PIX_Y8, 9, 30, 9, 1},
                        Case{PIX_RGB24, 6, 1, 11, 4}, Case{PIX_Y8, 50, 37, 21, 37}}) {
    const uint32_t whole = picture(c.format, c.w, c.h, 4);
    const pix::Image& s = *pix::find_image(whole);
    const unsigned ch = c.format == PIX_RGB24 ? 3 : 1, out_line = (c.to_w * ch + 3) / 4 * 4;
    const uint64_t hs = (uint64_t{c.w} << 13) / c.to_w, vs = c.to_h > 1 && c.h > 1 ? (uint64_t{c.h - 1} << 13) / (c.to_h - 1) : 0;
    auto h_pass = [&](uint32_t y, uint32_t x, unsigned b) {
      const uint64_t p = x * hs, i = p >> 13, n = std::min<uint64_t>(i + 1, c.w - 1);
      return mix(s.data[y * s.bytes_per_line + i * ch + b], s.data[y * s.bytes_per_line + n * ch + b], (p & 0x1FFF) >> 5);
    };
    Bytes want(uint64_t{out_line} * c.to_h, 0);
    for (uint32_t j = 0; j < c.to_h; ++j) {
      const uint64_t p = j * vs, y = p >> 13, n = std::min<uint64_t>(y + 1, c.h - 1);
      for (uint32_t x = 0; x < c.to_w * ch; ++x) want[j * out_line + x] = mix(h_pass(y, x / ch, x % ch), h_pass(n, x / ch, x % ch), (p & 0x1FFF) >> 5);
    }
    for (uint32_t lines : {c.h, 1u, 3u, 7u}) {
      SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " to " << c.to_w << "x" << c.to_h << " in " << lines);
      std::vector<uint32_t> made;
      Bytes got = in_strips(whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_scale(in, out, c.to_w, c.to_h, 3); }, &made);
      ASSERT_EQ(got.size(), want.size());
      for (uint32_t j = 0; j < c.to_h; ++j) std::fill_n(got.begin() + j * out_line + c.to_w * ch, out_line - c.to_w * ch, 0);
      EXPECT_EQ(got, want);
      EXPECT_EQ(std::accumulate(made.begin(), made.end(), 0u), c.to_h);
    }
  }
}

TEST_F(Geometry, ScaleRefusalsAndItsBorrowedName) {
  const uint32_t in = picture(PIX_RGB16, 4, 4), out = PIX_image_create(), grey = picture(PIX_Y8, 4, 4);
  expect_report(PIX_IP_scale(in, out, 8, 8, 3), "PIX_IP_threshold_grayscale", 0x10140000u, "Supports RGB24 & Y8 only");
  expect_report(PIX_IP_scale(999, out, 8, 8, 3), "PIX_IP_threshold_grayscale", 0x10030000u, "Corrupt image");
  EXPECT_EQ(PIX_IP_scale(grey, out, 0, 8, 3), 0x10140000u);  // no size to scale to
  pix::memory::fail_after(1);  // the strip, then the first line buffer
  expect_report(PIX_IP_scale(grey, out, 8, 8, 3), "PIX_IP_scale_1_strip", 0x500000u, "Malloc fail - no memory?");
  PIX_IP_scale(grey, out, 8, 8, 4);
  const uint32_t flat = picture(PIX_Y8, 4, 0);
  pixtest::set_parameters(flat, {{PIX_LINES_THIS_STRIP, 2}});
  expect_report(PIX_IP_scale(flat, out, 8, 8, 3), "PIX_IP_scale_1_strip", 0x290000u, "Internal: Not enough lines to process");
}

// Every pixel size, odd widths and padded lines.
constexpr uint16_t kSizes[] = {PIX_Y8, PIX_RGB15, PIX_RGB24, PIX_RGBX32};

TEST_F(Geometry, MirrorAndRotateMovePixelsWhere) {
  for (uint16_t f : kSizes) {
    const uint32_t w = 7, h = 5, in = picture(f, w, h), out = PIX_image_create();
    const pix::Image& s = *pix::find_image(in);
    const unsigned pb = pix::pixel_bytes(s.depth);
    auto at = [&](const pix::Image& img, uint32_t line, uint32_t x) { return Bytes(img.data + line * img.bytes_per_line + x * pb, img.data + line * img.bytes_per_line + (x + 1) * pb); };
    using Map = std::function<std::pair<uint32_t, uint32_t>(uint32_t, uint32_t)>;  // output (line, x) -> source
    struct Turn { uint16_t angle; Map from; };
    for (const Turn& t : {Turn{1, [&](uint32_t j, uint32_t i) { return std::pair{j, w - 1 - i}; }},
                          Turn{90, [&](uint32_t j, uint32_t i) { return std::pair{h - 1 - i, j}; }},
                          Turn{180, [&](uint32_t j, uint32_t i) { return std::pair{h - 1 - j, w - 1 - i}; }},
                          Turn{270, [&](uint32_t j, uint32_t i) { return std::pair{i, w - 1 - j}; }}}) {
      SCOPED_TRACE(testing::Message() << f << " " << t.angle);
      ASSERT_EQ(t.angle == 1 ? PIX_IP_mirror_image(in, out, 3) : PIX_IP_rotate_image(in, out, t.angle), 0u);
      const pix::Image& d = *pix::find_image(out);
      const bool quarter = t.angle % 180 == 90;
      ASSERT_EQ(std::tie(d.width, d.height, d.lines_this_strip), std::make_tuple(quarter ? h : w, quarter ? w : h, quarter ? w : h));
      for (uint32_t j = 0; j < d.height; ++j) {
        for (uint32_t i = 0; i < d.width; ++i) ASSERT_EQ(at(d, j, i), at(s, t.from(j, i).first, t.from(j, i).second)) << j << "," << i;
      }
    }
  }
  // YUV 4:2:2: luma mirrored to the pixel, chroma by pairs.
  const uint32_t yuv = picture(PIX_YUV422, 6, 3), out = PIX_image_create();
  const Bytes s = held(yuv);
  ASSERT_EQ(PIX_IP_mirror_image(yuv, out, 3), 0u);
  const Bytes d = held(out);
  for (uint32_t j = 0; j < 3; ++j) {
    for (uint32_t x = 0; x < 6; ++x) {
      EXPECT_EQ(d[j * 12 + 2 * x], s[j * 12 + 2 * (5 - x)]);
      EXPECT_EQ(d[j * 12 + 2 * x + 1], s[j * 12 + 4 * (2 - x / 2) + 1 + 2 * (x % 2)]);
    }
  }
  expect_report(PIX_IP_rotate_image(yuv, out, 90), "PIX_IP_rotate_image_1_strip", 0x10140000u, "Unsupported image type (convert to non-YUV first)");
  EXPECT_EQ(PIX_IP_rotate_image(yuv, out, 0), 0u);  // a plain copy
  EXPECT_EQ(held(out), s);
  expect_report(PIX_IP_rotate_image(yuv, out, 45), "PIX_IP_rotate_image", 0x10140000u, "Only angles of 0, 90, 180 and 270 supported");
  pixtest::set_parameters(yuv, {{PIX_LINES_THIS_STRIP, 2}});
  expect_report(PIX_IP_rotate_image(yuv, out, 180), "PIX_IP_rotate_image", 0x10140000u, "This function only supports full height images - not multiple strips");
  EXPECT_EQ(PIX_IP_rotate_image(picture(PIX_Y8, 4, 4), out, 90), 0u);  // the refusals left the function ready
  EXPECT_EQ(PIX_IP_mirror_image(picture(PIX_YUV422, 5, 2), out, 3), 0x10140000u);  // half a pair
  expect_report(PIX_IP_mirror_image(picture(PIX_BILEVEL, 8, 2), out, 3), "PIX_IP_mirror_image", 0x10140000u, "Unsupported image format");
}

TEST_F(Geometry, CropTakesTheRectangleStripByStrip) {
  for (uint16_t f : {PIX_Y8, PIX_RGB24, PIX_YUV422, PIX_CMYK32}) {
    const uint32_t whole = picture(f, 11, 10), probe = PIX_image_create();
    const pix::Image& s = *pix::find_image(whole);
    const unsigned pb = pix::pixel_bytes(s.depth);
    for (std::vector<int16_t> rect : {std::vector<int16_t>{3, 2, 5, 4}, {6, 7, 20, 20}, {0, 0, 11, 10}}) {
      int16_t r[4] = {rect[0], rect[1], rect[2], rect[3]};
      for (uint32_t lines : {10u, 3u, 1u}) {
        std::vector<uint32_t> made;
        const Bytes got = in_strips(whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_crop(in, out, r, 3); }, &made);
        const int16_t w = std::min<int16_t>(r[2], 11 - r[0]), h = std::min<int16_t>(r[3], 10 - r[1]);
        ASSERT_EQ(PIX_IP_crop(whole, probe, r, 4), 0u);  // sets up and ends
        ASSERT_EQ(std::make_pair(PIX_get_width(probe), PIX_get_height(probe)), std::make_pair(uint32_t(w), uint32_t(h)));
        const uint32_t bpl = PIX_get_bytes_per_line(probe);
        ASSERT_EQ(got.size(), uint64_t{bpl} * h);
        for (uint32_t j = 0; j < uint32_t(h); ++j) {
          EXPECT_TRUE(std::equal(got.begin() + j * bpl, got.begin() + j * bpl + w * pb, s.data + (r[1] + j) * s.bytes_per_line + r[0] * pb)) << j;
        }
        for (uint32_t i = 0; i < made.size(); ++i) {  // each strip makes the lines of it inside the rectangle
          const int64_t top = std::max<int64_t>(i * lines, r[1]), end = std::min<int64_t>({(i + 1) * lines, 10, r[1] + h});
          EXPECT_EQ(made[i], std::max<int64_t>(end - top, 0)) << i;
        }
      }
    }
  }
  const uint32_t in = picture(PIX_XRGB32, 4, 4), out = PIX_image_create();
  int16_t r[4] = {0, 0, 2, 2}, bad[4] = {-1, 0, 2, 2};
  expect_report(PIX_IP_crop(in, out, r, 3), "PIX_IP_crop", 0x1014000Fu, "Unsupported image format");
  EXPECT_EQ(PIX_IP_crop(picture(PIX_Y8, 4, 4), out, nullptr, 3), 0x10140000u);
  EXPECT_EQ(PIX_IP_crop(picture(PIX_Y8, 4, 4), out, bad, 3), 0x10140000u);
}

TEST_F(Geometry, SubsampleAndReplicateEachStripFromItsTop) {
  for (uint16_t f : {PIX_Y8, PIX_RGB15, PIX_RGB24, PIX_YUV422}) {
    const uint32_t w = 12, h = 10, lines = 4, whole = picture(f, w, h, 2);
    const pix::Image& s = *pix::find_image(whole);
    const unsigned pb = pix::pixel_bytes(s.depth);
    auto source = [&](uint32_t y, uint32_t byte) { return s.data[y * s.bytes_per_line + byte]; };
    for (uint16_t n : {2, 3}) {
      SCOPED_TRACE(testing::Message() << f << " by " << n);
      std::vector<uint32_t> made;
      const Bytes sub = in_strips(whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_subsample(in, out, n, 3); }, &made);
      EXPECT_EQ(made, (std::vector<uint32_t>{lines / n, lines / n, lines / n}));  // sized before the last strip's cut
      const uint32_t ow = w / n, out_strip = lines / n * ow * pb;
      for (uint32_t y = 0; y < h; ++y) {
        if (y % lines % n != 0 || y % lines / n >= std::min(lines, h - y / lines * lines) / n) continue;  // not sampled
        const uint32_t o = y / lines * out_strip + y % lines / n * ow * pb;
        for (uint32_t x = 0; x < ow * pb; ++x) {
          const uint32_t p = x / pb, yuv_chroma = 4 * (p / 2 * n) + 1 + 2 * (p % 2);
          EXPECT_EQ(sub[o + x], source(y, f == PIX_YUV422 && x % 2 ? yuv_chroma : p * n * pb + x % pb)) << y << "," << x;
        }
      }
      made.clear();
      const Bytes rep = in_strips(whole, lines, [&](uint32_t in, uint32_t out) { return PIX_IP_pixel_rep(in, out, n, 3); }, &made);
      EXPECT_EQ(made, (std::vector<uint32_t>{lines * n, lines * n, lines * n}));
      const uint32_t rl = w * n * pb;
      for (uint32_t y = 0; y < h * n; ++y) {
        for (uint32_t x = 0; x < rl; ++x) {
          const uint32_t p = x / pb / n, src_byte = f == PIX_YUV422 && x % 2 ? 4 * (x / 4 / n) + x % 4 : p * pb + x % pb;
          EXPECT_EQ(rep[y / n / lines * lines * n * rl + y % (lines * n) * rl + x], source(y / n, src_byte)) << y << "," << x;
        }
      }
    }
  }
  // Factor 1 hands the strip over: moved, or copied where an image is locked.
  const uint32_t a = picture(PIX_Y8, 720, 576), out = PIX_image_create();
  const uint8_t* data = pix::find_image(a)->data;
  ASSERT_EQ(PIX_IP_subsample(a, out, 1, 3), 0u);
  EXPECT_EQ(std::make_tuple(pix::find_image(out)->data, pix::find_image(a)->data), std::make_tuple(data, nullptr));
  const uint32_t b = picture(PIX_Y8, 720, 576);
  PIX_image_set_flags(b, PIX_FLAG_LOCKED, 1);
  ASSERT_EQ(PIX_IP_pixel_rep(b, out, 1, 3), 0u);
  EXPECT_EQ(held(out), held(b));
  ASSERT_EQ(PIX_IP_subsample(picture(PIX_Y8, 720, 576), out, 3, 3), 0u);
  EXPECT_EQ(std::make_pair(PIX_get_width(out), PIX_get_height(out)), std::make_pair(240u, 192u));
  expect_report(PIX_IP_subsample(a, out, 0, 3), "PIX_IP_subsample", 0x10140000u, "Unsupported sub-sampling factor");
  expect_report(PIX_IP_pixel_rep(picture(PIX_BGR24, 2, 2), out, 2, 3), "PIX_IP_pixel_rep", 0x10140008u, "Unsupported image format");
  EXPECT_EQ(PIX_IP_pixel_rep(picture(PIX_Y8, 70000, 1), out, 65535, 3), 0x10030000u);  // too wide to describe
}

TEST_F(Geometry, ExtractRegionGathersTheCircleOfEachStrip) {
  const uint32_t whole = picture(PIX_YUV422, 16, 12), out = PIX_image_create();
  const pix::Image& s = *pix::find_image(whole);
  uint32_t last = 0;
  for (uint32_t lines : {12u, 6u}) {
    Bytes got, want;
    in_strips(whole, lines, [&](uint32_t in, uint32_t o) {
      const uint32_t r = PIX_IP_extract_region(in, o, 77, 6, 3, 4, 3);
      const pix::Image& d = *pix::find_image(last = o);
      got.insert(got.end(), d.data, d.data + d.width * 2);
      return r;
    });
    for (uint32_t top = 0; top < 12; top += lines) {  // the circle sits in every strip at the same place
      for (uint32_t j = 0; j < lines; ++j) {
        for (int x = 0; x < 16; x += 2) {
          if (x >= 2 && x < 10 && j < 7 && (x - 6) * (x - 6) + (int(j) - 3) * (int(j) - 3) < 16) want.insert(want.end(), s.data + (top + j) * 32 + 2 * x, s.data + (top + j) * 32 + 2 * x + 4);
        }
      }
    }
    EXPECT_EQ(got, want);
    EXPECT_EQ(std::make_tuple(PIX_get_height(last), PIX_get_lines_this_strip(last)), std::make_tuple(1u, 1u));
  }
  EXPECT_EQ(PIX_get_width(last), 2 * 18u);  // the pairs of the last strip
  const uint32_t plan = pixtest::make_image(PIX_Y8, 16, 12, 0);
  EXPECT_EQ(PIX_IP_extract_region(plan, out, 0, 6, 3, 5, 3), 0u);  // described before the format is looked at
  EXPECT_EQ(std::make_pair(PIX_get_width(out), PIX_get_height(out)), std::make_pair(10u, 10u));
  expect_report(PIX_IP_extract_region(picture(PIX_Y8, 4, 4), out, 0, 1, 1, 1, 3), "PIX_IP_extract_region", 0x10140000u, "Unsupported image format");
}

}  // namespace
