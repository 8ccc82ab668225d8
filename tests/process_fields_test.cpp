// Fields woven into frames and line-doubled strip by strip, frames interlaced, 32-bit data cut to grey, and the
// pseudo-colour maps over every grey value and every hue word, all against index formulas written out here.
#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "core/image.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
pix::Image& rec(uint32_t h) { return *pix::find_image(h); }
uint8_t at(uint32_t h, uint64_t y, uint64_t x) { return rec(h).data[y * rec(h).bytes_per_line + x]; }

class Fields : public pixtest::LibraryTest {
 protected:
  std::mt19937 rng{61};
  uint32_t picture(uint16_t format, uint32_t w, uint32_t h, uint32_t align = 2) {
    return pixtest::random_image(format, w, h, align, rng);
  }
  // A strip image holding lines [from, from + n) of `whole` (room for `lines`).
  static void load(uint32_t strip, uint32_t whole, uint32_t from, uint32_t lines) {
    PIX_image_copy_parameters(whole, strip);
    PIX_image_set_parameter(strip, PIX_LINES_THIS_STRIP, lines);
    PIX_image_free_data(strip);
    EXPECT_EQ(PIX_image_malloc_a_strip(strip), 0u);
    const uint64_t line = rec(whole).bytes_per_line;
    std::copy_n(rec(whole).data + from * line, std::min(lines, rec(whole).height - from) * line, rec(strip).data);
  }
};

TEST_F(Fields, FieldsWeaveAndDoubleIntoFramesStripByStrip) {
  for (uint32_t align : {1u, 2u}) {         // lines of 5 bytes lose their odd last byte to the 16-bit copies
    for (int mode = 0; mode < 3; ++mode) {  // two fields, two fields swapped by field mode and order 2, one field
      SCOPED_TRACE(testing::Message() << align << " " << mode);
      const uint32_t a = picture(PIX_Y8, 5, 7, align), b = picture(PIX_Y8, 5, 7, align), frame = PIX_image_create();
      if (mode == 1) PIX_image_set_flags(a, PIX_FLAG_FIELD_MODE, 1), PIX_image_set_parameter(a, PIX_FIELD_ORDER, 2);
      const uint32_t fa = PIX_image_create(), fb = PIX_image_create(), line = rec(a).bytes_per_line;
      for (uint32_t done = 0; done < 7; done += 3) {
        load(fa, a, done, 3), load(fb, b, done, 3);
        ASSERT_EQ(mode == 2 ? PIX_SPL_field_to_frame(fa, frame, 3) : PIX_SPL_2fields_to_frame(fa, fb, frame, 3), 0u);
        ASSERT_EQ(std::make_pair(rec(frame).height, rec(frame).lines_this_strip), std::make_pair(14u, 6u));
        for (uint32_t j = 0; j < 2 * std::min(3u, 7 - done); ++j) {
          const uint32_t from = mode == 2 ? a : (j % 2 == 0) == (mode == 0) ? a : b;
          for (uint32_t x = 0; x < line; ++x) {
            EXPECT_EQ(at(frame, j, x), x < (line & ~1u) ? at(from, done + j / 2, x) : 0) << done << " " << j;
          }
        }
      }
      EXPECT_EQ(rec(frame).field_order, mode == 1 ? 2 : 0);
    }
  }
  // A second field unlike the first (or holding fewer lines) is refused before anything is read.
  const uint32_t a = picture(PIX_Y8, 6, 4), frame = PIX_image_create();
  const uint32_t short_strip = picture(PIX_Y8, 6, 4);
  pixtest::set_parameters(short_strip, {{PIX_LINES_THIS_STRIP, 2}});
  for (uint32_t other : {picture(PIX_Y8, 8, 4), picture(PIX_Y8, 6, 5), picture(PIX_RGB16, 3, 4), short_strip}) {
    expect_report(PIX_SPL_2fields_to_frame(a, other, frame, 3), "PIX_SPL_2fields_to_frame_1_strip", 0x10030000u,
                  "Corrupt image - parameter 2");
    EXPECT_EQ(PIX_SPL_2fields_to_frame(a, other, frame, 4), 0u);
  }
  expect_report(PIX_SPL_2fields_to_frame(999, a, frame, 3), "PIX_SPL_2fields_to_frame", 0x10030000u,
                "Corrupt image - parameter 1");
  EXPECT_EQ(PIX_SPL_2fields_to_frame(a, a, a, 3), 0x102A0000u);
  // Without lines: the frame described, its height doubled by the single-field function only.
  pixtest::set_parameters(a, {{PIX_LINES_THIS_STRIP, 0}, {PIX_FIELD_ORDER, 5}});
  ASSERT_EQ(PIX_SPL_2fields_to_frame(a, a, frame, 3), 0u);
  EXPECT_EQ(std::make_pair(rec(frame).height, uint32_t{rec(frame).field_order}), std::make_pair(4u, 5u));
  ASSERT_EQ(PIX_SPL_field_to_frame(a, frame, 3), 0u);
  EXPECT_EQ(std::make_pair(rec(frame).height, uint32_t{rec(frame).field_order}), std::make_pair(8u, 0u));
}

TEST_F(Fields, InterlacingTakesTheHalvesInTurn) {
  for (uint32_t h : {6u, 7u}) {
    const uint32_t frame = picture(PIX_RGB24, 3, h), out = PIX_image_create();
    pixtest::set_parameters(frame, {{PIX_FIELD_ORDER, 4 + h % 2}});
    ASSERT_EQ(PIX_SPL_interlace_frame(frame, out, 3), 0u);
    for (uint32_t j = 0; j < h; ++j) {
      for (uint32_t x = 0; x < 9; ++x) {
        EXPECT_EQ(at(out, j, x), j == 6 ? 0 : at(frame, j % 2 ? h / 2 + j / 2 : j / 2, x)) << h << " " << j;
      }
    }
    pixtest::set_parameters(frame, {{PIX_LINES_THIS_STRIP, 2}});
    expect_report(PIX_SPL_interlace_frame(frame, out, 3), "PIX_SPL_interlace_frame", 0x10140000u,
                  "Can only process full image");
    pixtest::set_parameters(frame, {{PIX_FIELD_ORDER, 2}});
    expect_report(PIX_SPL_interlace_frame(frame, out, 3), "PIX_SPL_interlace_frame", 0x10140000u,
                  "Field order ID not set up");
  }
  expect_report(PIX_SPL_interlace_frame(999, 1, 3), "PIX_SPL_interlace_frame", 0x10030000u, "Corrupt input image");
}

TEST_F(Fields, Data32GivesTheShiftedOrChosenByte) {
  const uint32_t out = PIX_image_create();
  for (uint16_t f : {PIX_RGBX32, PIX_BGRX32, PIX_XBGR32, PIX_XRGB32}) {
    const uint32_t in = picture(f, 5, 3, 8);  // lines padded to 24 bytes
    const uint8_t* s = rec(in).data;
    for (uint32_t shift = 0; shift < 34; ++shift) {  // packed: 15 words in, 15 bytes out
      ASSERT_EQ(PIX_SPL_Data32_to_Y8(in, out, shift, 3), 0u);
      ASSERT_EQ(rec(out).format, PIX_Y8);
      for (uint32_t i = 0; i < 15; ++i) {
        const uint32_t v = s[4 * i] | s[4 * i + 1] << 8 | s[4 * i + 2] << 16 | uint32_t{s[4 * i + 3]} << 24;
        ASSERT_EQ(rec(out).data[i], (v >> shift % 32) & 0xFF) << f << " " << shift << " " << i;
      }
    }
    for (uint32_t n = 0; n < 6; ++n) {  // each line stepped by its bytes per line
      const uint32_t r = PIX_SPL_XXXX32_to_Y8(in, out, n, 3);
      ASSERT_EQ(r, f == PIX_XRGB32 || n < 1 || n > 4 ? 0x10140000u : 0u) << f << " " << n;
      for (uint32_t i = 0; r == 0 && i < 15; ++i) EXPECT_EQ(at(out, i / 5, i % 5), at(in, i / 5, 4 * (i % 5) + n - 1));
    }
  }
  // Without lines: grey described, or (the chosen byte) the source copied as it is.
  const uint32_t empty = pixtest::make_image(PIX_BGRX32, 4, 4, 0);
  ASSERT_EQ(PIX_SPL_XXXX32_to_Y8(empty, out, 2, 3), 0u);
  EXPECT_EQ(rec(out).format, PIX_BGRX32);
  ASSERT_EQ(PIX_SPL_Data32_to_Y8(empty, out, 2, 3), 0u);
  EXPECT_EQ(rec(out).format, PIX_Y8);
}

TEST_F(Fields, PseudoColourOfEveryGreyHueAndPair) {
  const uint32_t grey = picture(PIX_Y8, 256, 1), hsi = picture(PIX_HSI, 65536, 1), yuv = picture(PIX_YUV422, 6, 3);
  const uint32_t out = PIX_image_create();
  for (uint32_t g = 0; g < 256; ++g) rec(grey).data[g] = static_cast<uint8_t>(g);
  for (uint32_t i = 0; i < 65536; ++i) rec(hsi).data[4 * i] = i & 0xFF, rec(hsi).data[4 * i + 1] = i >> 8;
  ASSERT_EQ(PIX_SPL_Y8_to_pseudo_colour(grey, out, 77, 3), 0u);
  ASSERT_EQ(rec(out).format, PIX_RGB16);
  for (uint32_t g = 0; g < 256; ++g) {
    const uint32_t t = g < 128 ? 2 * g : 511 - 2 * g, word = (g >> 3) << 11 | (t >> 2) << 5 | (255 - g) >> 3;
    ASSERT_EQ(rec(out).data[2 * g] | rec(out).data[2 * g + 1] << 8, word) << g;
  }
  ASSERT_EQ(PIX_SPL_HSI_to_RGB_pseudo_colour(hsi, out, 3), 0u);
  for (uint32_t i = 0; i < 65536; ++i) {  // 253/360 of a degree; a hue beyond the circle keeps the low byte
    const uint8_t *o = rec(out).data + 3 * i, *s = rec(hsi).data + 4 * i;
    ASSERT_EQ(std::make_tuple(o[0], o[1], o[2]), std::make_tuple(uint8_t(i * 253 / 360), s[2], s[3])) << i;
  }
  ASSERT_EQ(PIX_SPL_YUV422_to_RGB_pseudo_colour(yuv, out, 3), 0u);
  for (uint32_t i = 0; i < 54; ++i) {  // byte i % 3 of pixel i / 3: its own Y, the pair's U or V
    const uint32_t y = i / 18, x = i % 18 / 3, c = i % 3;
    EXPECT_EQ(at(out, y, x * 3 + c), at(yuv, y, x / 2 * 4 + (c == 0 ? 2 * (x % 2) : 2 * c - 1))) << i;
  }
  expect_report(PIX_SPL_Y8_to_pseudo_colour(yuv, out, 0, 3), "PIX_SPL_Y8_to_pseudo_colour", 0x10140000u,
                "Image format must be PIX_Y8");
  EXPECT_EQ(PIX_SPL_YUV422_to_RGB_pseudo_colour(grey, out, 3) | PIX_SPL_HSI_to_RGB_pseudo_colour(grey, out, 3),
            0x10140000u);
  pixtest::set_parameters(grey, {{PIX_LINES_THIS_STRIP, 0}});  // copied whole, then called RGB16
  ASSERT_EQ(PIX_SPL_Y8_to_pseudo_colour(grey, out, 0, 3), 0u);
  EXPECT_EQ(std::make_pair(rec(out).format, rec(out).width), std::make_pair(uint16_t{PIX_RGB16}, rec(grey).width));
}

}  // namespace
