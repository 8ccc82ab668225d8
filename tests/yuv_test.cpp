// YUV 4:2:2 decoders, the encoder, RGB-to-YUV and the UV-to-hue table.
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "convert/kernels/yuv.h"
#include "core/image.h"
#include "core/memory.h"
#include "process/hue_table.h"
#include "test_support.h"

namespace {

using namespace pix::convert::kernels;

#ifdef PIX95_SANITIZED
constexpr int kStride = 13;
#else
constexpr int kStride = 1;
#endif

// The colour arithmetic stated independently: floor division written out
// instead of shifts.
int floor_div(int n) { return n >= 0 ? n / 1024 : -((1023 - n) / 1024); }
int clamp8(int v) { return std::clamp(v, 0, 255); }
struct Rgb3 { int r, g, b; };
Rgb3 rgb_of(int y, int u, int v) {
  u -= 128, v -= 128;
  return {clamp8(y + floor_div(1436 * v)), clamp8(y + floor_div(-352 * u - 731 * v)), clamp8(y + floor_div(1815 * u))};
}
struct Yuv3 { int y, u, v; };
Yuv3 yuv_of(int r, int g, int b) {
  return {clamp8(floor_div(306 * r + 601 * g + 117 * b)), clamp8(floor_div(-173 * r - 339 * g + 512 * b) + 128),
          clamp8(floor_div(512 * r - 429 * g - 83 * b) + 128)};
}
// A pair as the encoder writes it, read as a little-endian word.
uint32_t pair_of(const Yuv3& a, const Yuv3& b) {
  return a.y | (a.u + b.u) / 2 << 8 | b.y << 16 | uint32_t((a.v + b.v) / 2) << 24;
}
uint32_t word(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }
int hue_of(int u, int v) {
  double deg = std::atan2(v - 128.0, u - 128.0) * 180 / std::numbers::pi;
  if (deg < 0) deg += 360;
  return (deg + 0.5 > 359.4 ? 240 : static_cast<int>(deg + 0.5) + 240) % 360;
}

// Decoded pixel bytes per layout (in enum order): R, G, B, Y, X = left as it
// was; "65" and "55" are 16-bit words with 6 or 5 bits of green.
constexpr std::string_view kRecipe[] = {"RGBX", "BGRX", "XBGR", "XRGB", "RGB", "BGR", "65", "55", "Y"};
constexpr uint8_t kUntouched = 0xE7;
inline void put(std::string_view recipe, int y, const Rgb3& p, uint8_t* d) {
  if (recipe[1] == '5') {
    const int gbits = recipe[0] - '0', w = (p.r >> 3) << (5 + gbits) | (p.g >> (8 - gbits)) << 5 | p.b >> 3;
    d[0] = uint8_t(w), d[1] = uint8_t(w >> 8);
    return;
  }
  for (char c : recipe) *d++ = uint8_t(c == 'R' ? p.r : c == 'G' ? p.g : c == 'B' ? p.b : c == 'Y' ? y : kUntouched);
}
template <std::size_t L>  // a fixed layout keeps the sweep fast
void expected_row(const Rgb3* p, uint8_t* d) {
  for (int y = 0; y < 256; ++y, d += kRecipe[L].size()) put(kRecipe[L], y, p[y], d);
}
template <std::size_t... L>
constexpr auto expected_rows(std::index_sequence<L...>) {
  return std::array{expected_row<L>...};
}

// Every (Y, U, V): a row per (U, V) holds Y = 0..255.
TEST(YuvKernels, DecodeEveryTriple) {
  constexpr auto kRows = expected_rows(std::make_index_sequence<std::size(kRecipe)>());
  std::vector<uint8_t> src(512), out(1024), want(1024);
  for (int uv = 0; uv < 65536; uv += kStride) {
    Rgb3 p[256];
    for (int y = 0; y < 256; ++y) {
      src[2 * y] = uint8_t(y), src[2 * y + 1] = uint8_t(y % 2 == 0 ? uv >> 8 : uv);
      p[y] = rgb_of(y, uv >> 8, uv & 255);
    }
    for (std::size_t l = 0; l < kRows.size(); ++l) {
      std::fill(out.begin(), out.end(), kUntouched);
      std::fill(want.begin(), want.end(), kUntouched);
      kRows[l](p, want.data());
      yuv422_row_scalar(static_cast<YuvOut>(l))(src.data(), out.data(), 128);
      if (out != want) FAIL() << "layout " << l << " U " << (uv >> 8) << " V " << (uv & 255);
    }
  }
}

// Every (R, G, B) through the single-colour routine and every encoder
// layout; a row per (R, G) pairs blue k with blue 255 - k (grey with grey),
// so the chroma sums of a pair take odd and even values alike.
TEST(YuvKernels, EncodeEveryColour) {
  struct Layout { RgbIn in; int bytes, r, g, b; } const layouts[] = {{RgbIn::y8, 1, 0, 0, 0},     {RgbIn::rgb24, 3, 0, 1, 2},  {RgbIn::bgr24, 3, 2, 1, 0},
                       {RgbIn::rgbx32, 4, 0, 1, 2}, {RgbIn::bgrx32, 4, 2, 1, 0}, {RgbIn::xbgr32, 4, 3, 2, 1}};
  std::vector<uint8_t> src(1024), out(512);
  std::vector<uint32_t> want(128), grey_want(128);
  for (int k = 0; k < 128; ++k) grey_want[k] = pair_of(yuv_of(k, k, k), yuv_of(255 - k, 255 - k, 255 - k));
  Yuv3 yuv[256];
  for (int r = 0; r < 256; r += kStride) {
    for (int g = 0; g < 256; ++g) {
      for (int b = 0; b < 256; ++b) {
        yuv[b] = yuv_of(r, g, b);
        const uint32_t packed = PIX_CK_get_YUV_values_RGB(uint16_t(r), uint16_t(g), uint16_t(b));
        if (packed != uint32_t(yuv[b].y | yuv[b].u << 8 | yuv[b].v << 16)) FAIL() << r << " " << g << " " << b;
      }
      for (int k = 0; k < 128; ++k) want[k] = pair_of(yuv[k], yuv[255 - k]);
      for (const Layout& l : layouts) {
        const bool grey = l.in == RgbIn::y8;
        if (grey && g != 0) continue;  // one row of greys
        for (int b = 0; b < 256; ++b) {
          uint8_t* p = &src[(b < 128 ? 2 * b : 511 - 2 * b) * l.bytes];
          p[l.r] = uint8_t(grey ? b : r), p[l.g] = uint8_t(grey ? b : g), p[l.b] = uint8_t(b);
        }
        encode_row_scalar(l.in)(src.data(), out.data(), 128);
        for (int k = 0; k < 128; ++k) {
          if (word(&out[4 * k]) != (grey ? grey_want : want)[k]) FAIL() << int(l.in) << " " << r << " " << g << " " << k;
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------
// The converters

using Fn = uint32_t (*)(uint32_t, uint32_t, uint16_t);
const struct Decoder {
  const char* name;
  Fn fn;
  int layout;          // YuvOut, or -1 for HSI
  uint16_t described;  // format given when the input holds no lines; 0: no such path
} kDecoders[] = {
#define DECODER(name, layout, described) {#name, name, layout, described}
    DECODER(PIX_YUV422_to_RGBX32, 0, PIX_XBGR32), DECODER(PIX_YUV422_to_BGRX32, 1, PIX_BGRX32),
    DECODER(PIX_YUV422_to_XBGR32, 2, PIX_XBGR32), DECODER(PIX_YUV422_to_XRGB32, 3, PIX_XRGB32),
    DECODER(PIX_YUV422_to_RGB24, 4, PIX_RGB24),   DECODER(PIX_YUV422_to_BGR24, 5, PIX_BGR24),
    DECODER(PIX_YUV422_to_RGB16, 6, PIX_RGB16),   DECODER(PIX_YUV422_to_RGB15, 7, PIX_RGB15),
    DECODER(PIX_YUV422_to_Y8, 8, 0),              DECODER(PIX_YUV422_to_HSI, -1, PIX_HSI),
#undef DECODER
};

class YuvConvert : public pixtest::LibraryTest {
 protected:
  static uint32_t param(uint32_t h, uint16_t id) { return PIX_image_get_parameter(h, id); }
  static uint8_t* data(uint32_t h) { return pix::find_image(h)->data; }
  // A fresh strip of bytes that tell positions apart, padding included.
  static void fill(uint32_t in, int variant) {
    PIX_image_free_data(in);
    ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
    const uint32_t size = param(in, PIX_LINES_THIS_STRIP) * param(in, PIX_BYTES_PER_LINE);
    for (uint32_t i = 0; i < size; ++i) data(in)[i] = uint8_t(i * 73 + variant * 29 + (i >> 8));
  }
};

// Without lines, wrong format, odd width, same format: every decoder's
// outer paths, then the encoder's.
TEST_F(YuvConvert, OuterPaths) {
  const uint32_t out = PIX_image_create();
  for (const Decoder& d : kDecoders) {
    SCOPED_TRACE(d.name);
    const uint32_t in = pixtest::make_image(PIX_YUV422, 8, 4, 0);
    if (d.described != 0) {
      EXPECT_EQ(d.fn(in, out, PIX_STRIP_NEXT), 0u);
      EXPECT_EQ(PIX_image_get_ptr(out, PIX_PTR_DATA), nullptr);
    } else {  // no such path: the run starts and its worker finds no data
      expect_report(d.fn(in, out, PIX_STRIP_NEXT), "PIX_YUV422_to_Y8_1_strip", 0x10030000u, "No image data");
      EXPECT_EQ(d.fn(in, out, PIX_STRIP_FINISH), 0u);
    }
    EXPECT_EQ(param(out, PIX_IMAGE_FORMAT), d.described != 0 ? d.described : PIX_Y8);
    expect_report(d.fn(pixtest::make_image(PIX_RGB24, 3, 2, 2), out, PIX_STRIP_NEXT), d.name, 0x10140000u,
                  "Not 16 bit YUV 4:2:2");
    for (uint32_t width : {1, 7}) {
      expect_report(d.fn(pixtest::make_image(PIX_YUV422, width, 2, 2), out, PIX_STRIP_NEXT), d.name, 0x10140000u,
                    "YUV422 image must be an even width");
    }
  }
  EXPECT_EQ(reports().size(), 4 * std::size(kDecoders) - 9);
  const uint32_t described = pixtest::make_image(PIX_RGB24, 8, 4, 0);
  PIX_image_set_parameter(described, PIX_OUT_LINE_ALIGN, 16);
  EXPECT_EQ(PIX_convert_to_YUV422(described, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::make_tuple(param(out, PIX_IMAGE_FORMAT), param(out, PIX_LINE_ALIGN)), std::make_tuple(PIX_YUV422, 16u));
  // The encoder tests the width before the format.
  expect_report(PIX_convert_to_YUV422(pixtest::make_image(PIX_RGB16, 3, 2, 2), out, PIX_STRIP_NEXT),
                "PIX_convert_to_YUV422", 0x10140000u, "Only even width YUV422 images are supported");
  for (uint16_t format : {PIX_RGB16, PIX_RGB15, PIX_XRGB32, PIX_HSI}) {
    expect_report(PIX_convert_to_YUV422(pixtest::make_image(format, 4, 2, 2), out, PIX_STRIP_NEXT),
                  "PIX_convert_to_YUV422", 0x10140000u, "Unsupported image format");
  }
  // Same format: copied, for the encoder even at an odd width.
  for (auto [format, fn] : {std::pair<int, Fn>{PIX_RGBX32, PIX_YUV422_to_RGBX32}, {PIX_YUV422, PIX_convert_to_YUV422}}) {
    const uint32_t in = pixtest::make_image(format, 3, 2, 2);
    fill(in, 1);
    EXPECT_EQ(fn(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(param(out, PIX_IMAGE_FORMAT), format);
    EXPECT_TRUE(std::equal(data(in), data(in) + 2 * param(in, PIX_BYTES_PER_LINE), data(out)));
  }
}

// Decoders walk each strip as one run, padding included: with line_align 8
// a 2-pixel YUV line is 4 bytes of pixels and 4 of padding.
TEST_F(YuvConvert, DecodersWalkStripsContiguously) {
  for (const Decoder& d : kDecoders) {
    if (d.layout < 0) continue;
    SCOPED_TRACE(d.name);
    const uint32_t in = pixtest::make_image(PIX_YUV422, 2, 5, 2), out = PIX_image_create();
    PIX_image_set_parameter(in, PIX_LINE_ALIGN, 8);
    for (uint32_t strip = 0; strip < 3; ++strip) {
      fill(in, int(strip));
      ASSERT_EQ(d.fn(in, out, PIX_STRIP_NEXT), 0u);
      const uint32_t pixels = strip < 2 ? 4 : 2;  // the last strip is cut to one line
      EXPECT_EQ(param(in, PIX_LINES_THIS_STRIP), pixels / 2);
      const std::string_view recipe = kRecipe[d.layout];
      std::vector<uint8_t> want(pixels * recipe.size());
      for (uint32_t i = 0; i < pixels; ++i) {
        const uint8_t* p = data(in) + 4 * (i / 2);
        put(recipe, p[i % 2 * 2], rgb_of(p[i % 2 * 2], p[1], p[3]), &want[i * recipe.size()]);
      }
      for (std::size_t i = 0; i < want.size(); ++i) {
        ASSERT_TRUE(want[i] == kUntouched || data(out)[i] == want[i]) << strip << " " << i << ": " << int(data(out)[i]);
      }
    }
  }
}

TEST_F(YuvConvert, HsiOfEveryChroma) {
  ASSERT_EQ(PIX_CK_destroy_UV_to_hue_LUT(), 0u);  // the converter builds it
  // Line v, pair u: chroma (u, v) with lumas from 0 to 255 in two patterns.
  const uint32_t in = pixtest::make_image(PIX_YUV422, 512, 256, 256), out = PIX_image_create();
  fill(in, 0);
  for (int i = 0; i < 65536; ++i) {
    const int u = i & 255, v = i >> 8;
    uint8_t* p = data(in) + 4 * i;
    p[0] = uint8_t(u + v), p[1] = uint8_t(u), p[2] = uint8_t(3 * u + 5 * v), p[3] = uint8_t(v);
  }
  ASSERT_EQ(PIX_YUV422_to_HSI(in, out, PIX_STRIP_NEXT), 0u);
  for (int i = 0; i < 2 * 65536; ++i) {
    const uint8_t* p = data(in) + 4 * (i / 2);
    const int y = p[i % 2 * 2], u = p[1], v = p[3];
    const Rgb3 c = rgb_of(y, u, v);
    const uint32_t sat = y == 0 ? 0 : (255 - std::min({c.r, c.g, c.b}) * 255 / y) & 0xFF;
    ASSERT_EQ(word(data(out) + 4 * i), (y > 20 ? hue_of(u, v) : 180) | sat << 16 | y << 24) << y << " " << u << " " << v;
  }
}

TEST_F(YuvConvert, HueTable) {
  ASSERT_EQ(PIX_CK_generate_UV_to_hue_LUT(), 0u);
  ASSERT_EQ(PIX_CK_generate_UV_to_hue_LUT(), 0u);  // refilled in place
  const uint16_t* table = pix::process::hue_table();
  ASSERT_NE(table, nullptr);
  // A few fixed points anchor hue_of; the sweep checks every entry against it.
  for (auto [u, v, hue] : {std::array{128, 128, 240}, {128, 255, 330}, {0, 128, 60}, {128, 0, 150}}) EXPECT_EQ(table[u * 256 + v], hue);
  for (int i = 0; i < 65536; ++i) ASSERT_EQ(table[i], hue_of(i >> 8, i & 255)) << i;
  EXPECT_EQ(*std::max_element(table, table + 65536), 359);
  EXPECT_EQ(PIX_CK_destroy_UV_to_hue_LUT(), 0u);
  EXPECT_EQ(pix::process::hue_table(), nullptr);
  pix::memory::fail_after(0);
  expect_report(PIX_CK_generate_UV_to_hue_LUT(), "PIX_CK_generate_UV_to_hue_LUT", 0x10500000u);
}

// Lines step over each image's own padding: a Y8 source padded to 8 bytes
// into an output aligned to 16; a paletted source wider than the encoder's
// pieces, through its colour map.
TEST_F(YuvConvert, EncoderLines) {
  const struct { uint16_t format; uint32_t width, in_line, out_line; } cases[] = {{PIX_Y8, 6, 8, 16}, {PIX_PALETTED, 1104, 1104, 2208}};
  for (const auto& c : cases) {
    const uint32_t in = pixtest::make_image(c.format, c.width, 3, 3), out = PIX_image_create();
    PIX_image_set_parameter(in, PIX_LINE_ALIGN, 8);
    PIX_image_set_parameter(in, PIX_OUT_LINE_ALIGN, 16);
    for (int i = 0; i < 256 && c.format == PIX_PALETTED; ++i) {
      PIX_cmap_set_RGB_colour(in, uint16_t(i), uint8_t(i), uint8_t(i * 7), uint8_t(255 - i));
    }
    fill(in, 3);
    ASSERT_EQ(PIX_convert_to_YUV422(in, out, PIX_STRIP_NEXT), 0u);
    ASSERT_EQ(param(out, PIX_BYTES_PER_LINE), c.out_line);
    const auto colour = [&](int i) { return c.format == PIX_Y8 ? yuv_of(i, i, i) : yuv_of(i, i * 7 & 255, 255 - i); };
    for (uint32_t line = 0; line < 3; ++line) {
      for (uint32_t x = 0; x < c.width; x += 2) {
        const uint8_t* p = data(in) + line * c.in_line + x;
        ASSERT_EQ(word(data(out) + line * c.out_line + 2 * x), pair_of(colour(p[0]), colour(p[1]))) << line << " " << x;
      }
    }
  }
}

}  // namespace
