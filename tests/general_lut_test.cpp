// General lookup tables: the brightness, contrast, gamma and gain generator and their application to every
// format they take.
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

// The generator's curve for limited settings, written out: n (i / n)^(100 / gamma) (through logarithms in
// extended precision, so that exact powers are exact), contrast around n / 2, brightness by half a unit, gains
// on colour.
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

constexpr uint16_t kChannels[] = {PIX_LUT_GREY, PIX_LUT_RED, PIX_LUT_GREEN, PIX_LUT_BLUE};
template <class T = uint8_t>
T* entries(uint32_t lut, int channel) { return static_cast<T*>(PIX_LUT_get_ptr(lut, kChannels[channel])); }
template <class T>
std::vector<int> read(uint32_t lut, int channel, int n) {
  return std::vector<int>(entries<T>(lut, channel), entries<T>(lut, channel) + n);
}
tPIX_Image* record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }

// Applies `lut` to a one-strip image of `format` holding `data`; the output bytes.
std::vector<uint8_t> apply(uint32_t lut, uint16_t format, uint32_t width, uint32_t height,
                           const std::vector<uint8_t>& data) {
  const uint32_t in = pixtest::make_image(format, width, height, height), out = PIX_image_create();
  if (format == PIX_Y16) PIX_image_set_parameter(in, PIX_DATA_WIDTH, 16);
  PIX_image_malloc_a_strip(in);
  std::copy(data.begin(), data.end(), record(in)->data);
  EXPECT_EQ(PIX_LUT_apply(in, out, lut, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), format);
  return std::vector<uint8_t>(record(out)->data, record(out)->data + data.size());
}

using GeneralLutTest = pixtest::LibraryTest;

TEST_F(GeneralLutTest, GenerateLimitsItsSettingsAndFollowsTheCurve) {
  const struct { int n; bool wide; int b, c, g, gains[3]; int limited[6]; } cases[] = {
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
  for (const auto& k : cases) {
    SCOPED_TRACE(testing::Message() << k.n << (k.wide ? " x 2 " : " x 1 ") << k.b << " " << k.c << " " << k.g);
    const uint32_t lut = PIX_LUT_create(k.n, k.wide ? 2 : 1);
    ASSERT_EQ(PIX_LUT_generate(lut, k.b, k.c, k.g, k.gains[0], k.gains[1], k.gains[2]), 0u);
    for (int ch = 0; ch < 4; ++ch) {
      EXPECT_EQ(k.wide ? read<uint16_t>(lut, ch, k.n) : read<uint8_t>(lut, ch, k.n),
                curve(k.n, k.wide, ch, k.limited[0], k.limited[1], k.limited[2], &k.limited[3])) << ch;
    }
    PIX_LUT_destroy(lut);
  }
  EXPECT_TRUE(reports().empty());
  // Stated directly: brightness alone shifts by 50 (0 stays 0), neutral settings restore the identity.
  const uint32_t lut = PIX_LUT_create(256, 1);
  std::vector<int> brighter(256), identity(256);
  for (int i = 0; i < 256; ++i) brighter[i] = i == 0 ? 0 : std::min(i + 50, 255), identity[i] = i;
  for (auto [b, want] : {std::pair{200, &brighter}, {100, &identity}}) {
    PIX_LUT_generate(lut, b, 100, 100, 100, 100, 100);
    for (int ch = 0; ch < 4; ++ch) EXPECT_EQ(read<uint8_t>(lut, ch, 256), *want) << b << " " << ch;
  }
  EXPECT_EQ(PIX_LUT_generate(9, 100, 100, 100, 100, 100, 100), 0x10010000u);
}

TEST_F(GeneralLutTest, ApplyMapsEveryFormatAsOneRunOfPixels) {
  std::mt19937 rng(5);
  const auto random_bytes = [&](std::size_t n) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(rng());
    return v;
  };
  // Random tables, so that every lookup shows which entry it took.
  const uint32_t lut = PIX_LUT_create(256, 1), wide = PIX_LUT_create(65536, 2);
  for (int c = 0; c < 4; ++c) std::generate_n(entries(lut, c), 256, [&] { return uint8_t(rng()); });
  std::generate_n(entries<uint16_t>(wide, 0), 65536, [&] { return uint16_t(rng()); });
  const uint8_t *grey = entries(lut, 0), *red = entries(lut, 1), *green = entries(lut, 2), *blue = entries(lut, 3);
  const auto word = [](const std::vector<uint8_t>& v, int i) { return v[2 * i] | v[2 * i + 1] << 8; };
  // Width 5 with 2-byte alignment, 3 lines: the padding bytes are mapped as pixels too.
  for (uint16_t format : {PIX_Y8, PIX_RGB24, PIX_RGB15, PIX_RGB16, PIX_RGB8, PIX_Y16}) {
    SCOPED_TRACE(format);
    const int size = format == PIX_Y8 ? 18 : format == PIX_RGB24 ? 45 : format == PIX_RGB8 ? 15 : 30;
    const std::vector<uint8_t> in = random_bytes(size), out = apply(format == PIX_Y16 ? wide : lut, format, 5, 3, in);
    for (int i = 0; i < 15; ++i) {
      int got = out[i], want = grey[in[i]];
      if (format == PIX_Y16) got = word(out, i), want = entries<uint16_t>(wide, 0)[word(in, i)];
      if (format == PIX_RGB24) {
        got = out[3 * i] << 16 | out[3 * i + 1] << 8 | out[3 * i + 2];
        want = red[in[3 * i]] << 16 | green[in[3 * i + 1]] << 8 | blue[in[3 * i + 2]];
      }
      if (format == PIX_RGB8) {
        const int r = red[in[i] / 32 * 32], g = green[in[i] / 4 % 8 * 32], b = blue[in[i] % 4 * 64];
        want = r / 32 * 32 + g / 32 * 4 + b / 64;
      }
      if (format == PIX_RGB15 || format == PIX_RGB16) {  // red and green looked up scaled to 8 bits, blue raw 5-bit
        const int gb = format == PIX_RGB16 ? 6 : 5, w = word(in, i);
        const int r = red[(w >> (5 + gb) & 31) * 8], g = green[(w / 32 % (1 << gb)) << (8 - gb)], b = blue[w % 32];
        got = word(out, i), want = ((r >> 3) << (5 + gb)) + ((g >> (8 - gb)) << 5) + (b >> 3);
      }
      ASSERT_EQ(got, want) << i;
    }
  }
}

TEST_F(GeneralLutTest, ApplyToYuvTakesTheGreyTableOrGoesThroughRgb) {
  std::mt19937 rng(9);
  std::vector<uint8_t> in(4 * 3 * 2);
  for (auto& b : in) b = uint8_t(rng());
  const uint32_t lut = PIX_LUT_create(256, 1);
  const uint8_t *grey = entries(lut, 0), *red = entries(lut, 1), *green = entries(lut, 2), *blue = entries(lut, 3);
  PIX_LUT_generate(lut, 150, 100, 100, 100, 100, 100);  // neutral gains: luminance through the grey table,
                                                         // chroma copied
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
  for (auto [table, format, code] : {std::tuple{lut, PIX_RGBX32, 0x10140009u}, {lut, PIX_Y16, 0x1014000Eu},
                                     {wide, PIX_Y8, 0x10140002u}, {lut, PIX_BGR24, 0x10140008u},
                                     {lut, PIX_PALETTED, 0x10140003u}}) {
    const uint32_t img = pixtest::make_image(format, 4, 4, 4);
    if (format == PIX_Y16) PIX_image_set_parameter(img, PIX_DATA_WIDTH, 16);
    expect_report(PIX_LUT_apply(img, out, table, PIX_STRIP_NEXT), "PIX_LUT_apply", code, "Unsupported image format");
    record(img)->lines_this_strip = 0;  // no lines: copied, whatever the format
    EXPECT_EQ(PIX_LUT_apply(img, out, table, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(record(out)->format, format);
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
