// General lookup tables: the brightness, contrast, gamma and gain generator
// and their application to every format they take.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"

namespace {

int floor_div(int n, int d) { return n >= 0 ? n / d : -((-n + d - 1) / d); }
int clamp8(int v) { return std::clamp(v, 0, 255); }

// The generator's curve for limited settings, written out: n (i / n)^(100 /
// gamma) (through logarithms in extended precision, so that exact powers are
// exact), contrast around n / 2, brightness by half a unit, gains on colour.
std::vector<int> curve(int n, bool wide, int channel, int b, int c, int g, const int gains[3]) {
  std::vector<int> out(n);
  for (int i = 1; i < n; ++i) {
    const double k = 100.0 / g;
    const double t = double(std::exp(k * std::log((long double)i) - (k - 1) * std::log((long double)n)));
    double v = (n / 2) + (t - (n / 2)) * (c * 0.01) + b * 0.5 - 50;
    if (channel > 0) v *= (gains[channel - 1] - 100) * 0.01 + 1;
    out[i] = v < 0 ? 0 : wide ? (std::floor(v) >= n ? n - 1 : int(v)) : (v > 255 ? 255 : int(v));
  }
  return out;
}

template <class T>
std::vector<int> read(uint32_t lut, uint16_t channel, int n) {
  const T* t = static_cast<const T*>(PIX_LUT_get_ptr(lut, channel));
  return std::vector<int>(t, t + n);
}

constexpr uint16_t kChannels[] = {PIX_LUT_GREY, PIX_LUT_RED, PIX_LUT_GREEN, PIX_LUT_BLUE};

class GeneralLutTest : public pixtest::LibraryTest {
 protected:
  static tPIX_Image* record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
};

TEST_F(GeneralLutTest, GenerateLimitsItsSettingsAndFollowsTheCurve) {
  struct Case { int n; bool wide; int b, c, g, gains[3]; int limited[6]; };
  const Case cases[] = {
      {256, false, 120, 80, 150, {100, 100, 100}, {120, 80, 150, 100, 100, 100}},
      {256, false, -5, 300, 10, {0, 250, 60}, {0, 200, 25, 0, 200, 60}},
      {200, false, 200, 200, 400, {200, 150, 100}, {200, 200, 400, 200, 150, 100}},
      {17, false, 100, 100, 100, {100, 100, 99}, {100, 100, 100, 100, 100, 99}},
      {2, false, 150, 100, 100, {100, 100, 100}, {150, 100, 100, 100, 100, 100}},
      {1, false, 0, 0, 25, {0, 0, 0}, {0, 0, 25, 0, 0, 0}},
      {0, false, 50, 50, 50, {50, 50, 50}, {50, 50, 50, 50, 50, 50}},
      {300, true, 190, 60, 70, {120, 30, 200}, {190, 60, 70, 120, 30, 200}},
      {65536, true, 140, 120, 100, {100, 80, 110}, {140, 120, 100, 100, 80, 110}},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(testing::Message() << k.n << (k.wide ? " x 2 " : " x 1 ") << k.b << " " << k.c << " " << k.g);
    const uint32_t lut = PIX_LUT_create(k.n, k.wide ? 2 : 1);
    ASSERT_EQ(PIX_LUT_generate(lut, k.b, k.c, k.g, k.gains[0], k.gains[1], k.gains[2]), 0u);
    for (int ch = 0; ch < 4; ++ch) {
      const auto want = curve(k.n, k.wide, ch, k.limited[0], k.limited[1], k.limited[2], &k.limited[3]);
      EXPECT_EQ(k.wide ? read<uint16_t>(lut, kChannels[ch], k.n) : read<uint8_t>(lut, kChannels[ch], k.n), want) << ch;
    }
    PIX_LUT_destroy(lut);
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(GeneralLutTest, BrightnessAloneShiftsByFiftyAndNeutralSettingsRestoreTheIdentity) {
  const uint32_t lut = PIX_LUT_create(256, 1);
  std::vector<int> brighter(256), identity(256);
  for (int i = 0; i < 256; ++i) brighter[i] = i == 0 ? 0 : std::min(i + 50, 255), identity[i] = i;
  PIX_LUT_generate(lut, 200, 100, 100, 100, 100, 100);
  for (uint16_t ch : kChannels) EXPECT_EQ(read<uint8_t>(lut, ch, 256), brighter) << ch;
  PIX_LUT_generate(lut, 100, 100, 100, 100, 100, 100);
  for (uint16_t ch : kChannels) EXPECT_EQ(read<uint8_t>(lut, ch, 256), identity) << ch;
  EXPECT_EQ(PIX_LUT_generate(9, 100, 100, 100, 100, 100, 100), 0x10010000u);
}

// Applies `lut` to a one-strip image of `format` holding `data`; the output bytes.
std::vector<uint8_t> apply(uint32_t lut, uint16_t format, uint32_t width, uint32_t height,
                           const std::vector<uint8_t>& data) {
  const uint32_t in = pixtest::make_image(format, width, height, height), out = PIX_image_create();
  if (format == PIX_Y16) PIX_image_set_parameter(in, PIX_DATA_WIDTH, 16);
  PIX_image_malloc_a_strip(in);
  uint8_t* src = static_cast<uint8_t*>(PIX_image_get_ptr(in, PIX_PTR_DATA));
  std::copy(data.begin(), data.end(), src);
  EXPECT_EQ(PIX_LUT_apply(in, out, lut, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), format);
  const uint8_t* dst = static_cast<const uint8_t*>(PIX_image_get_ptr(out, PIX_PTR_DATA));
  return std::vector<uint8_t>(dst, dst + data.size());
}

TEST_F(GeneralLutTest, ApplyMapsEveryFormatAsOneRunOfPixels) {
  std::mt19937 rng(5);
  auto random_bytes = [&](std::size_t n) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(rng());
    return v;
  };
  // Random tables, so that every lookup shows which entry it took.
  const uint32_t lut = PIX_LUT_create(256, 1), wide = PIX_LUT_create(65536, 2);
  uint8_t* t[4];
  for (int c = 0; c < 4; ++c) {
    t[c] = static_cast<uint8_t*>(PIX_LUT_get_ptr(lut, kChannels[c]));
    std::generate_n(t[c], 256, [&] { return uint8_t(rng()); });
  }
  const uint8_t *grey = t[0], *red = t[1], *green = t[2], *blue = t[3];
  auto word = [](const std::vector<uint8_t>& v, int i) { return v[2 * i] | v[2 * i + 1] << 8; };

  // Width 5 with 2-byte alignment: the padding bytes are mapped as pixels too.
  auto in = random_bytes(18);
  auto out = apply(lut, PIX_Y8, 5, 3, in);
  for (int i = 0; i < 15; ++i) ASSERT_EQ(out[i], grey[in[i]]) << i;

  in = random_bytes(45);
  out = apply(lut, PIX_RGB24, 5, 3, in);
  for (int i = 0; i < 15; ++i) {
    ASSERT_EQ(std::make_tuple(out[3 * i], out[3 * i + 1], out[3 * i + 2]),
              std::make_tuple(red[in[3 * i]], green[in[3 * i + 1]], blue[in[3 * i + 2]])) << i;
  }

  // 16-bit RGB: red and green looked up scaled to 8 bits, blue at its raw
  // 5-bit value.
  for (uint16_t format : {PIX_RGB15, PIX_RGB16}) {
    in = random_bytes(30);
    out = apply(lut, format, 5, 3, in);
    const int green_bits = format == PIX_RGB16 ? 6 : 5;
    for (int i = 0; i < 15; ++i) {
      const int w = word(in, i), b5 = w % 32, g = w / 32 % (1 << green_bits), r5 = w >> (5 + green_bits) & 31;
      const int r = red[r5 * 8], gg = green[g << (8 - green_bits)], b = blue[b5];
      ASSERT_EQ(word(out, i), ((r >> 3) << (5 + green_bits)) + ((gg >> (8 - green_bits)) << 5) + (b >> 3)) << i;
    }
  }

  in = random_bytes(15);
  out = apply(lut, PIX_RGB8, 5, 3, in);
  for (int i = 0; i < 15; ++i) {
    const int r = red[in[i] / 32 * 32], g = green[in[i] / 4 % 8 * 32], b = blue[in[i] % 4 * 64];
    ASSERT_EQ(out[i], r / 32 * 32 + g / 32 * 4 + b / 64) << i;
  }

  uint16_t* wide_grey = static_cast<uint16_t*>(PIX_LUT_get_ptr(wide, PIX_LUT_GREY));
  std::generate_n(wide_grey, 65536, [&] { return uint16_t(rng()); });
  in = random_bytes(30);
  out = apply(wide, PIX_Y16, 5, 3, in);
  for (int i = 0; i < 15; ++i) ASSERT_EQ(word(out, i), wide_grey[word(in, i)]) << i;
}

TEST_F(GeneralLutTest, ApplyToYuvTakesTheGreyTableOrGoesThroughRgb) {
  std::mt19937 rng(9);
  std::vector<uint8_t> in(4 * 3 * 2);
  for (auto& b : in) b = uint8_t(rng());
  const uint32_t lut = PIX_LUT_create(256, 1);
  // Neutral gains: luminance through the grey table, chroma copied.
  PIX_LUT_generate(lut, 150, 100, 100, 100, 100, 100);
  const uint8_t *grey = static_cast<uint8_t*>(PIX_LUT_get_ptr(lut, PIX_LUT_GREY)),
                *red = static_cast<uint8_t*>(PIX_LUT_get_ptr(lut, PIX_LUT_RED)),
                *green = static_cast<uint8_t*>(PIX_LUT_get_ptr(lut, PIX_LUT_GREEN)),
                *blue = static_cast<uint8_t*>(PIX_LUT_get_ptr(lut, PIX_LUT_BLUE));
  auto out = apply(lut, PIX_YUV422, 6, 2, in);
  for (std::size_t i = 0; i < in.size(); ++i) ASSERT_EQ(out[i], i % 2 == 0 ? grey[in[i]] : in[i]) << i;

  PIX_LUT_generate(lut, 130, 90, 120, 100, 100, 130);
  out = apply(lut, PIX_YUV422, 6, 2, in);
  for (std::size_t p = 0; p < in.size(); p += 4) {
    int y[2], u[2], v[2];
    for (int k = 0; k < 2; ++k) {
      const int Y = in[p + 2 * k], U = in[p + 1] - 128, V = in[p + 3] - 128;
      const int r = red[clamp8(floor_div(1024 * Y + 1436 * V, 1024))];
      const int g = green[clamp8(floor_div(1024 * Y - 731 * V - 352 * U, 1024))];
      const int b = blue[clamp8(floor_div(1024 * Y + 1815 * U, 1024))];
      y[k] = clamp8(floor_div(306 * r + 601 * g + 117 * b, 1024));
      u[k] = clamp8(floor_div(-173 * r - 339 * g + 512 * b, 1024) + 128);
      v[k] = clamp8(floor_div(512 * r - 429 * g - 83 * b, 1024) + 128);
    }
    EXPECT_EQ(std::make_tuple(out[p], out[p + 1], out[p + 2], out[p + 3]),
              std::make_tuple(y[0], (u[0] + u[1]) / 2, y[1], (v[0] + v[1]) / 2)) << p;
  }
}

TEST_F(GeneralLutTest, ApplyProtocolAndRefusals) {
  const uint32_t lut = PIX_LUT_create(256, 1), wide = PIX_LUT_create(1000, 2);
  const uint32_t in = pixtest::make_image(PIX_Y8, 4, 10, 4), out = PIX_image_create();
  PIX_image_malloc_a_strip(in);
  for (uint32_t lines : {4u, 4u, 2u}) {  // the last strip is cut, and the run ends by itself
    ASSERT_EQ(PIX_LUT_apply(in, out, lut, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(std::make_tuple(record(in)->lines_this_strip, record(out)->lines_this_strip), std::make_tuple(lines, 4u));
  }
  struct Case { uint32_t lut; uint16_t format; uint32_t code; };
  for (const Case& c : {Case{lut, PIX_RGBX32, 0x10140009u}, Case{lut, PIX_Y16, 0x1014000Eu},
                        Case{wide, PIX_Y8, 0x10140002u}, Case{lut, PIX_BGR24, 0x10140008u},
                        Case{lut, PIX_PALETTED, 0x10140003u}}) {
    const uint32_t img = pixtest::make_image(c.format, 4, 4, 4);
    if (c.format == PIX_Y16) PIX_image_set_parameter(img, PIX_DATA_WIDTH, 16);
    EXPECT_EQ(PIX_LUT_apply(img, out, c.lut, PIX_STRIP_NEXT), c.code);
    EXPECT_EQ(std::make_tuple(last_report().function, last_report().message),
              std::make_tuple(std::string("PIX_LUT_apply"), std::string("Unsupported image format")));
    record(img)->lines_this_strip = 0;  // no lines: copied, whatever the format
    EXPECT_EQ(PIX_LUT_apply(img, out, c.lut, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(record(out)->format, c.format);
  }
  EXPECT_EQ(PIX_LUT_apply(in, out, 9, PIX_STRIP_NEXT), 0x10010000u);

  // In place: the strip is mapped where it lies.
  const uint32_t self = pixtest::make_image(PIX_Y8, 4, 2, 2);
  PIX_image_malloc_a_strip(self);
  uint8_t* data = record(self)->data;
  std::iota(data, data + 8, 10);
  PIX_LUT_generate(lut, 200, 100, 100, 100, 100, 100);  // brightness +50
  ASSERT_EQ(PIX_LUT_apply(self, self, lut, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(record(self)->data, data);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(data[i], 60 + i) << i;
}

}  // namespace
