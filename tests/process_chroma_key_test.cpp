// Chroma keying: key colours by the RGB-to-YUV formula; the decision over every (U, V) and Y0 by the hue formula;
// hard and soft edges against a plain reference in several strip sizes; calibration; the refusals.
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "core/image.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;
#ifdef PIX95_SANITIZED
constexpr int kLumaStep = 17;  // the sanitized build samples the lumas
#else
constexpr int kLumaStep = 1;
#endif
uint32_t clamp(int v) { return v < 0 ? 0 : v > 255 ? 255 : uint32_t(v); }
void put(uint8_t* p, int y0, int u, int y1, int v) {
  p[0] = uint8_t(y0), p[1] = uint8_t(u), p[2] = uint8_t(y1), p[3] = uint8_t(v);
}
int hue(int u, int v) {  // degrees from the U axis rounded, turned by 240; 359.5 and up count as 0
  const double d = std::fmod(std::atan2(v - 128.0, u - 128.0) / std::acos(-1.0) * 180.0 + 360.0, 360.0) + 0.5;
  return static_cast<int>(d > 359.4 ? 240 : std::fmod(d + 240.0, 360.0));
}
struct Range { int ylo, yhi, hlo, hhi; };
bool keyed(const uint8_t* p, Range r = {56, 184, 320, 359}) {  // the defaults
  static std::vector<int> hues(65536, -1);
  int& h = hues[p[1] << 8 | p[3]];
  if (h < 0) h = hue(p[1], p[3]);
  return r.ylo < p[0] && p[0] < r.yhi && r.hlo < h && h < r.hhi;
}

class ChromaKey : public pixtest::LibraryTest {
 protected:
  std::mt19937 rng{7};
  uint32_t ck = PIX_CK_create();
  static uint32_t yuv(uint32_t w, uint32_t h, uint32_t lines, uint32_t align = 2) {
    const uint32_t img = pixtest::make_image(PIX_YUV422, w, h, lines);
    pixtest::set_parameters(img, {{PIX_LINE_ALIGN, align}});
    return PIX_image_malloc_a_strip(img) == 0 ? img : 0;
  }
  static uint8_t* data(uint32_t h) { return pix::find_image(h)->data; }
};

TEST_F(ChromaKey, KeyColoursAndComponents) {
  for (uint16_t c = 0; c < 16; ++c) {  // bits 2, 1, 0: red, green, blue at 152 (codes 0-7) or 255; code 8 grey 76
    const auto level = [c](int bit) { return c == 8 ? 76 : (c >> bit & 1) * (c < 8 ? 152 : 255); };
    const int r = level(2), g = level(1), b = level(0);
    const uint32_t want = clamp((306 * r + 601 * g + 117 * b) >> 10) |
                          clamp(((-173 * r - 339 * g + 512 * b) >> 10) + 128) << 8 |
                          clamp(((512 * r - 429 * g - 83 * b) >> 10) + 128) << 16;
    EXPECT_EQ(PIX_CK_get_YUV_values(c), want) << c;
    EXPECT_EQ(PIX_CK_get_component(c, 500) | PIX_CK_get_component(c, 501) << 8 | PIX_CK_get_component(c, 503) << 16,
              want);
  }
  EXPECT_EQ(PIX_CK_get_component(16, 503), 0x17u);  // the bytes of the code reported
  expect_report(PIX_CK_get_YUV_values(0xFFFF), "PIX_CK_get_YUV_values", 0x10170000u, "Unrecognized colour");
}

// Pair (U, V) at line V, column U, its Y1 85: the flat key colour 0 (Y 0) shows where it keyed.
TEST_F(ChromaKey, DecisionOverEveryChromaAndLeftLuma) {
  const std::array<uint16_t, 4> settings[] = {{340, 20, 120, 64}, {30, 40, 250, 10}, {65530, 60, 65500, 100},
                                              {32767, 1, 128, 128}};  // hue centre and half-width, luma the same
  const Range want[] = {{56, 184, 320, 359}, {240, 255, 0, 70}, {0, 64, 0, 54}, {0, 255, 359, 0}};  // 16-bit sums
  const uint32_t in = yuv(512, 256, 256), out = PIX_image_create();
  for (int c = 0; c < 4; ++c) {
    for (uint16_t id = 0; id < 4; ++id) PIX_CK_set_parameter(ck, 300 + id, settings[c][id]);
    for (int y0 = 0; y0 < 256; y0 += kLumaStep) {
      for (int i = 0; i < 65536; ++i) put(data(in) + 4 * i, y0, i & 255, 85, i >> 8);
      ASSERT_EQ(PIX_CK_chroma_key(in, out, 0, 0, ck, 0, 3), 0u);
      for (int i = 0; i < 65536; ++i) {
        const uint8_t *s = data(in) + 4 * i, black[4] = {0, 128, 0, 128};
        ASSERT_EQ(std::memcmp(data(out) + 4 * i, keyed(s, want[c]) ? black : s, 4), 0) << c << " " << y0 << " " << i;
      }
    }
  }
}

// The reference: each strip a run of width / 2 pairs a line, the flag from 0, the first line unblended.
Bytes reference(const uint8_t* s, const uint8_t* bg, uint32_t k, uint64_t pairs, int mode) {
  Bytes d(s, s + 4 * pairs);
  uint8_t flat[4], lead[4];  // Yk Uk Yk Vk, and Yk Vk Yk Vk before a run
  put(flat, k & 255, k >> 8 & 255, k & 255, k >> 16), put(lead, k & 255, k >> 16, k & 255, k >> 16);
  for (uint64_t i = 0, previous = 0; i < pairs; previous = keyed(s + 4 * i), ++i) {
    const bool now = keyed(s + 4 * i), blend = mode == 1 && i >= 9;
    for (uint64_t b = 4 * i; b < 4 * i + 4; ++b) {
      if (now) d[b] = bg ? bg[b] : flat[b % 4];
      if (now && blend && !previous) d[b - 4] = (s[b - 4] + (bg ? bg[b - 4] : lead[b % 4])) >> 1;
      if (!now && blend && previous) d[b] = (s[b] + (bg ? bg[b] : flat[b % 4])) >> 1;
    }
  }
  return d;
}

TEST_F(ChromaKey, HardAndSoftEdgesInEveryStripSize) {
  const uint32_t h = 11, whole = yuv(18, h, h, 8), back = yuv(18, h, h, 8);  // 9 pairs a line in 40 bytes
  for (uint32_t i = 0; i < 40 * h; i += 4) {
    const bool key = rng() % 3 != 0;  // runs of keying pairs between random ones
    int u, v;
    do u = rng() & 255, v = rng() & 255; while (key && (hue(u, v) < 322 || hue(u, v) > 357));
    put(data(whole) + i, key ? 60 + rng() % 120 : rng(), u, rng(), v);
    put(data(back) + i, rng(), rng(), rng(), rng());
  }
  for (int combo = 0; combo < 32; ++combo) {  // strip size, edge mode, colour (16: unknown), background
    const uint32_t lines = std::array{1u, 3u, 4u, 11u}[combo >> 3], in = yuv(18, h, lines, 8);
    const uint32_t bg = yuv(18, h, lines, 8);
    const int mode = combo >> 2 & 1, colour = combo & 2 ? 16 : 5, with_bg = combo & 1, out = PIX_image_create();
    for (uint32_t done = 0; done < h; done += lines) {
      std::memcpy(data(in), data(whole) + done * 40, std::min(lines, h - done) * 40);
      std::memcpy(data(bg), data(back) + done * 40, std::min(lines, h - done) * 40);
      reports().clear();
      ASSERT_EQ(PIX_CK_chroma_key(in, out, with_bg ? bg : 0, uint16_t(colour), ck, uint16_t(mode), 3), 0u);
      EXPECT_EQ(reports().size(), colour == 16 ? 1u : 0u);  // an unknown colour is reported, keying goes on
      const uint32_t k = colour == 16 ? 0x170000 : PIX_CK_get_YUV_values(5);
      const Bytes want = reference(data(in), with_bg ? data(bg) : nullptr, k, 9 * PIX_get_lines_this_strip(in), mode);
      ASSERT_EQ(Bytes(data(out), data(out) + want.size()), want) << combo << " " << done;
    }
    EXPECT_EQ(PIX_get_lines_this_strip(in), (h - 1) % lines + 1);  // the last strip was cut; the run is over
  }
  // Another edge mode leaves the fresh strip as it was: a locked buffer the caller lent keeps its bytes.
  const uint32_t out = PIX_image_create();
  auto* lent = static_cast<uint8_t*>(std::memset(pix::memory::allocate(40 * h), 0xE7, 40 * h));
  PIX_image_set_ptr(out, PIX_PTR_DATA, lent);
  PIX_image_set_flags(out, PIX_FLAG_LOCKED, 1);
  ASSERT_EQ(PIX_CK_chroma_key(whole, out, 0, 0, ck, 2, 3), 0u);
  EXPECT_EQ(data(out) == lent ? Bytes(lent, lent + 40 * h) : Bytes{}, Bytes(40 * h, 0xE7));
}

TEST_F(ChromaKey, CalibrationReadsDriftAndDivideOnePairShort) {
  // Uniform hue 330 (U 128, V 255), 23 pairs taken a line and N 22 a line: 330 * 23 / 22 = 345.
  const uint32_t screen = yuv(52, 6, 6);
  for (uint32_t i = 0; i < 52 * 2 * 6; i += 4) put(data(screen) + i, 200, 128, 200, 255);
  ASSERT_EQ(PIX_CK_calibrate(screen, ck, 3), 0u);
  for (uint16_t id = 0; id < 4; ++id) EXPECT_EQ(PIX_CK_get_parameter(ck, 300 + id), (std::array{345, 20, 20, 64}[id]));
  // Width 20 (7 pairs taken a line, N = 6 * 10) in strips of 4, 4 and 2 lines: the first 7 * lines pairs of each
  // strip have hue 60 (U 0, V 128), the rest 150 (U 128, V 0).  Reads that drift see only 60 and give 70 * 60 / 60.
  const uint32_t in = yuv(20, 10, 4);
  for (uint32_t lines : {4u, 4u, 2u}) {
    for (uint32_t i = 0; i < 40; ++i) put(data(in) + 4 * i, 16, i < 7 * lines ? 0 : 128, 16, i < 7 * lines ? 128 : 0);
    ASSERT_EQ(PIX_CK_calibrate(in, ck, 3), 0u);
  }
  EXPECT_EQ(PIX_CK_get_parameter(ck, 300), 70u);
}

TEST_F(ChromaKey, Refusals) {
  const uint32_t in = yuv(8, 4, 4), out = PIX_image_create(), grey = pixtest::make_image(PIX_Y8, 8, 4, 4);
  const char* not_yuv = "Not YUV 4:2:2 image format";
  expect_report(PIX_CK_chroma_key(grey, out, 0, 0, ck, 0, 3), "PIX_CK_chroma_key", 0x10140002u, not_yuv);
  expect_report(PIX_CK_calibrate(grey, ck, 3), "PIX_CK_calibrate", 0x10140002u, not_yuv);
  const uint32_t blank = pixtest::make_image(PIX_YUV422, 6, 3, 0);  // a description only: copied, no run
  EXPECT_EQ(PIX_CK_chroma_key(blank, out, 0, 0, ck, 0, 3) | PIX_CK_calibrate(blank, ck, 3), 0u);
  EXPECT_EQ(PIX_get_width(out) * 100 + PIX_get_height(out), 603u);
  // Backgrounds that do not match; each failed strip leaves the run open, command 4 closes it.
  const uint32_t narrow = yuv(6, 4, 4), few = yuv(8, 4, 2), empty = pixtest::make_image(PIX_YUV422, 8, 4, 4);
  for (auto [bg, code, message] : {std::tuple{grey, 0x10140002u, not_yuv},
                                   {out, 0x102A0000u, "Background and output must be different images"},
                                   {empty, 0x10030000u, "No image data"},
                                   {narrow, 0x10030000u, "Background does not match the source image"},
                                   {few, 0x10030000u, "Background does not match the source image"}}) {
    expect_report(PIX_CK_chroma_key(in, out, bg, 0, ck, 0, 3), "PIX_CK_chroma_key_1_strip", code, message);
    ASSERT_EQ(PIX_CK_chroma_key(in, out, 0, 0, ck, 0, 4), 0u);
  }
  // Widths 8 and 9 take a pair a line but divide by 0; an empty object slot is found at the last strip.
  expect_report(PIX_CK_calibrate(in, ck, 3), "PIX_CK_calibrate", 0x10290000u, "Hue out of range");
  ASSERT_EQ(PIX_CK_calibrate(in, ck, 4), 0u);
  expect_report(PIX_CK_calibrate(narrow, 3, 3), "PIX_CK_calibrate", 0x10010000u);
}

}  // namespace
