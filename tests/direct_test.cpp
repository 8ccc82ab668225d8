// Direct-colour converters: the row kernels against formulas written out here (exhaustively where the inputs
// allow) on every SIMD level and every tail length, and the converters' lists, messages and line stepping.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "convert/direct.h"
#include "convert/kernels/direct.h"
#include "core/image.h"
#include "test_support.h"

namespace {

using pix::convert::kernels::Direct;
using pix::simd::Level;
using Bytes = std::vector<uint8_t>;
namespace k = pix::convert::kernels;

#ifdef PIX95_SANITIZED
constexpr unsigned kStride = 17;
#else
constexpr unsigned kStride = 1;
#endif

void put_word(uint8_t* p, unsigned w) { p[0] = w & 0xFF, p[1] = (w >> 8) & 0xFF; }

// What one pixel becomes; bytes the converter leaves alone stay as `d` held them.
void expected(Direct from, Direct to, const uint8_t* p, unsigned shift, uint8_t* d) {
  const unsigned w = k::direct_bytes(from) == 2 ? p[0] | p[1] << 8 : 0;
  if (from == Direct::rgb15 && to == Direct::rgb16) {  // red and green move up a bit, green's low bit 0
    return put_word(d, ((w >> 10 & 0x1F) << 11) | ((w >> 5 & 0x1F) << 6) | (w & 0x1F));
  }
  if (from == Direct::rgb16 && to == Direct::rgb15) return put_word(d, ((w >> 1) & 0x7FF0) | (w & 0x1F));  // green's
  if (from == Direct::rgb8) {  // low bit lands on blue's top bit (above); RGB8's only target is RGB16
    const unsigned b = p[0];
    return put_word(d, (b >> 5) << 13 | (b & 0x10) << 6 | (b & 0x04) << 6 | (b & 0x02) * 0x48 | (b & 0x01) << 3);
  }
  if (to == Direct::y16) return put_word(d, (unsigned{p[0]} << shift) & 0xFFFF);
  unsigned r = p[0], g = p[0], b = p[0];  // grey and YUV 4:2:2
  switch (from) {
    case Direct::y16: r = g = b = (w >> shift) & 0xFF; break;
    case Direct::rgb15: r = (w >> 7) & 0xFF, g = (w >> 2) & 0xFF, b = (w << 3) & 0xFF; break;  // low bits unmasked
    case Direct::rgb16: r = w >> 8, g = (w >> 3) & 0xFF, b = (w << 3) & 0xFF; break;
    case Direct::rgb24: case Direct::rgbx32: g = p[1], b = p[2]; break;
    case Direct::bgr24: case Direct::bgrx32: r = p[2], g = p[1], b = p[0]; break;
    case Direct::xbgr32: r = p[3], g = p[2], b = p[1]; break;
    default: break;
  }
  switch (to) {
    case Direct::y8: d[0] = static_cast<uint8_t>((77 * r + 150 * g + 29 * b) / 256); break;
    case Direct::rgb15: put_word(d, (r >> 3) << 10 | (g >> 3) << 5 | b >> 3); break;
    case Direct::rgb16: put_word(d, (r >> 3) << 11 | (g >> 2) << 5 | b >> 3); break;
    case Direct::rgb24: d[0] = r, d[1] = g, d[2] = b; break;
    case Direct::bgr24: d[0] = b, d[1] = g, d[2] = r; break;
    case Direct::rgbx32: d[0] = r, d[1] = g, d[2] = b, d[3] = 0; break;
    case Direct::bgrx32: d[0] = b, d[1] = g, d[2] = r, d[3] = 0; break;
    case Direct::xbgr32: d[0] = 0, d[1] = b, d[2] = g, d[3] = r; break;
    default: d[1] = r, d[2] = g, d[3] = b; break;  // xrgb32: byte 0 untouched
  }
}

constexpr Direct kLayouts[] = {Direct::y8,     Direct::y16,    Direct::rgb8,   Direct::rgb15,
                               Direct::rgb16,  Direct::rgb24,  Direct::bgr24,  Direct::rgbx32,
                               Direct::bgrx32, Direct::xbgr32, Direct::xrgb32, Direct::yuv422};

std::vector<Level> levels() {
  std::vector<Level> list{Level::scalar};
  for (Level l : {Level::sse2, Level::avx2, Level::avx512}) if (pix::simd::supports(l)) list.push_back(l);
  return list;
}
k::DirectRow kernel_at(Level level, Direct from, Direct to) {
  return level == Level::scalar ? k::direct_row_scalar(from, to) : k::direct_row_simd(from, to, level);
}

// Every level's kernel against the formulas: over all of `src`, then over windows of every short length
// (exactly sized, a guard byte after the destination).
void check_all_levels(Direct from, Direct to, const Bytes& src, unsigned shift) {
  const std::size_t ib = k::direct_bytes(from), ob = k::direct_bytes(to), n = src.size() / ib;
  Bytes want(n * ob, 0xA5);
  for (std::size_t i = 0; i < n; ++i) expected(from, to, &src[i * ib], shift, &want[i * ob]);
  std::vector<std::size_t> lengths{n, 127, 1001, 4099};
  for (std::size_t len = 0; len <= 80; ++len) lengths.push_back(len);
  for (Level level : levels()) {
    const k::DirectRow row = kernel_at(level, from, to);
    for (std::size_t len : lengths) {
      if (row == nullptr || len > n) continue;
      const std::size_t at = len * 811 % (n - len + 1);
      const Bytes in(src.begin() + at * ib, src.begin() + (at + len) * ib);
      Bytes got(len * ob + 1, 0xA5);
      row(in.data(), got.data(), len, shift);
      if (!std::equal(got.begin(), got.end() - 1, want.begin() + at * ob) || got.back() != 0xA5) {
        ADD_FAILURE() << "level " << int(level) << " layouts " << int(from) << " -> " << int(to) << " shift " << shift
                      << " length " << len;
        return;
      }
    }
  }
}

// Every pair; from bytes and words every value, from wider pixels random ones, and grey from every RGB colour
// (2^24, a red value per run).
TEST(DirectKernels, EveryPairAgainstTheFormulasOnEveryLevel) {
  std::mt19937 rng(7);
  int pairs = 0;
  for (Direct from : kLayouts) {
    const unsigned b = k::direct_bytes(from);
    Bytes src;
    for (unsigned v = 0; v < (b == 1 ? 256u : 65536u); ++v) {
      if (b <= 2) src.push_back(v & 0xFF);
      if (b == 2) src.push_back(static_cast<uint8_t>(v >> 8));
      for (unsigned i = 0; b > 2 && i < b; ++i) src.push_back(static_cast<uint8_t>(rng()));
    }
    for (Direct to : kLayouts) {
      if (k::direct_row_scalar(from, to) == nullptr) continue;
      ++pairs;
      const bool shifts = from == Direct::y16 || to == Direct::y16;
      for (unsigned shift = 0; shift <= (shifts ? 8u : 0u); ++shift) check_all_levels(from, to, src, shift);
      for (unsigned r = 0; b > 2 && to == Direct::y8 && r < 256; r += kStride) {
        const unsigned o = from == Direct::xbgr32;  // the colour bytes, in any order, take every value
        for (unsigned i = 0; i < 65536; ++i) {
          src[i * b + o] = r, src[i * b + o + 1] = i >> 8, src[i * b + o + 2] = i & 0xFF;
        }
        check_all_levels(from, to, src, 0);
      }
    }
  }
  // Y8 from 9 sources; Y16 from Y8; 8 RGB targets from 9 sources (grey, Y16 and the 7 RGB layouts that
  // are also targets) except themselves; RGB16 from RGB8.
  EXPECT_EQ(pairs, 9 + 1 + (8 * 9 - 7) + 1);
}

// ---------------------------------------------------------------------------
// The converters

using Convert = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);
struct Member {
  const char* name;
  Convert fn;
  uint16_t target;  // 0: chosen from the colour map
  std::vector<uint16_t> sources;
  const char* refusal = "Unsupported image format";
};
const Member kMembers[] = {
    {"PIX_convert_to_Y8", PIX_convert_to_Y8, 2, {5, 6, 7, 8, 9, 10, 11, 12, 14}},
    {"PIX_convert_to_RGBX32", PIX_convert_to_RGBX32, 9, {2, 5, 6, 7, 10, 11, 14}},
    {"PIX_convert_to_BGRX32", PIX_convert_to_BGRX32, 10, {2, 5, 6, 7, 9, 11, 14}},
    {"PIX_convert_to_XBGR32", PIX_convert_to_XBGR32, 11, {2, 5, 6, 7, 9, 10, 14}},
    {"PIX_convert_to_XRGB32", PIX_convert_to_XRGB32, 15, {2, 5, 6, 7, 9, 10, 14}},
    {"PIX_convert_to_RGB24", PIX_convert_to_RGB24, 7, {2, 5, 6, 9, 10, 11, 14}},
    {"PIX_convert_to_BGR24", PIX_convert_to_BGR24, 8, {2, 5, 6, 7, 9, 10, 11, 14}},
    {"PIX_convert_to_RGB16", PIX_convert_to_RGB16, 6, {2, 4, 5, 7, 8, 9, 10, 11, 14}},
    {"PIX_convert_to_RGB15", PIX_convert_to_RGB15, 5, {2, 7, 8, 9, 10, 11, 14}},
    {"PIX_convert_to_Y16", PIX_convert_to_Y16, 14, {2}},
    {"PIX_convert_to_CMYK32", PIX_convert_to_CMYK32, 13, {3}, "Only paletted input images currently supported"},
    {"PIX_convert_to_RGB24_or_Y8", PIX_paletted_to_RGB24_or_Y8, 0, {3}, "Input image should be paletted"},
};

class DirectConvert : public pixtest::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    pix::convert::direct_state() = {};
  }
  // An image of `lines` lines holding them all in one strip, filled from `fill`.
  static uint32_t image(uint16_t format, uint32_t width, uint32_t lines, const Bytes& fill = {}, uint32_t align = 2,
                        uint16_t data_width = 8) {
    const uint32_t h = PIX_image_create();
    for (auto [id, v] : {std::pair<uint16_t, uint32_t>{PIX_IMAGE_FORMAT, format}, {PIX_IMAGE_WIDTH, width},
                         {PIX_IMAGE_HEIGHT, lines}, {PIX_LINES_THIS_STRIP, lines}, {PIX_LINE_ALIGN, align},
                         {PIX_DATA_WIDTH, data_width}}) {
      PIX_image_set_parameter(h, id, v);
    }
    EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
    pix::Image& img = *pix::find_image(h);
    const std::size_t size = std::size_t{img.lines_this_strip} * img.bytes_per_line;
    std::memset(img.data, 0, size);
    if (!fill.empty()) std::memcpy(img.data, fill.data(), std::min(size, fill.size()));
    return h;
  }
  static Bytes bytes(uint32_t h, std::size_t n) {
    const uint8_t* d = pix::find_image(h)->data;
    return Bytes(d, d + n);
  }
  static Bytes ramp(std::size_t n, int step = 1) {
    Bytes v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(11 + i * step);
    return v;
  }
};

// Each member takes its list, copies its own format and refuses the rest; Y16 needs 8 bits or more; a strip
// that claims lines but holds none is reported under the worker's name.
TEST_F(DirectConvert, EachMembersListsAndMessages) {
  for (const Member& m : kMembers) {
    const auto takes = [&](uint16_t f) { return std::find(m.sources.begin(), m.sources.end(), f) != m.sources.end(); };
    for (uint16_t f : {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 108}) {
      SCOPED_TRACE(std::string(m.name) + " from " + std::to_string(f));
      reports().clear();
      const uint32_t in = image(f, 4, 2, ramp(64)), out = PIX_image_create(), r = m.fn(in, out, PIX_STRIP_NEXT);
      if (!takes(f) && f != m.target) {
        expect_report(r, m.name, 0x10140000u, m.refusal);
      } else {
        const uint32_t want = m.target != 0 ? m.target : PIX_Y8;  // a fresh colour map is grey
        EXPECT_EQ(std::make_tuple(r, reports().size(), PIX_image_get_parameter(out, PIX_IMAGE_FORMAT)),
                  std::make_tuple(0u, std::size_t{0}, want));
        EXPECT_NE(PIX_image_get_ptr(out, PIX_PTR_DATA), nullptr);
        EXPECT_TRUE(f != m.target || bytes(out, 8) == bytes(in, 8));
      }
      PIX_image_destroy(in), PIX_image_destroy(out);
    }
    const uint32_t out = PIX_image_create();
    if (takes(PIX_Y16)) {
      const Bytes word = {0xCD, 0xAB};
      expect_report(m.fn(image(PIX_Y16, 1, 1, word, 2, 7), out, PIX_STRIP_NEXT), m.name, 0x10030000u,
                    "Data width must be > 7 for Y16");
      ASSERT_EQ(m.fn(image(PIX_Y16, 1, 1, word, 2, 12), out, PIX_STRIP_NEXT), 0u);  // grey is bits 4-11
      const std::size_t n = m.target == PIX_Y8 ? 1 : m.target == PIX_RGB24 ? 3 : 0;
      EXPECT_EQ(bytes(out, n), Bytes(n, 0xBC)) << m.name;
    }
    const uint32_t empty = image(m.sources[0], 2, 1);
    PIX_image_free_data(empty);
    expect_report(m.fn(empty, out, PIX_STRIP_NEXT), std::string(m.name) + "_1_strip", 0x10030000u, "No image data");
    EXPECT_EQ(m.fn(empty, out, PIX_STRIP_FINISH), 0u);
  }
  EXPECT_TRUE(pix::convert::direct_state().y8.idle());
}

TEST_F(DirectConvert, DocumentedValues) {
  const struct { Convert fn; uint16_t from; uint32_t width; Bytes in, out; } cases[] = {
      {PIX_convert_to_Y8, PIX_RGB24, 4, {255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255}, {255, 76, 149, 28}},
      {PIX_convert_to_RGB24, PIX_RGB15, 1, {0xFF, 0x7F}, {255, 255, 248}},
      {PIX_convert_to_RGB24, PIX_RGB16, 1, {0xFF, 0xFF}, {255, 255, 248}},
      {PIX_convert_to_RGB16, PIX_Y8, 1, {200}, {0x59, 0xCE}},
      {PIX_convert_to_RGB15, PIX_Y8, 1, {200}, {0x39, 0x67}},
      {PIX_convert_to_RGB16, PIX_RGB15, 1, {0xFF, 0x7F}, {0xDF, 0xFF}},
      {PIX_convert_to_CMYK32, PIX_PALETTED, 1, {5}, {245, 235, 225, 0}},  // colour 5 is (10, 20, 30)
  };
  for (const auto& c : cases) {
    const uint32_t in = image(c.from, c.width, 1, c.in), out = PIX_image_create();
    pix::find_image(in)->cmap[5] = {10, 20, 30, 0};
    ASSERT_EQ(c.fn(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(bytes(out, c.out.size()), c.out);
  }
}

// Line stepping: the expected lines are read from where each rule says they start.
TEST_F(DirectConvert, LineEnds) {
  const struct {
    const char* what;
    Convert fn;
    uint16_t from;
    uint32_t width, align, in_step, out_step;  // bytes between lines the worker uses
  } cases[] = {
      // Grey assumes an alignment of 2 whatever the images say.
      {"Y8 from odd RGBX32 steps one byte too far", PIX_convert_to_Y8, PIX_RGBX32, 3, 2, 13, 4},
      {"Y8 from odd XBGR32, last line reads past the strip", PIX_convert_to_Y8, PIX_XBGR32, 3, 2, 13, 4},
      {"Y8 from odd RGB24", PIX_convert_to_Y8, PIX_RGB24, 3, 2, 10, 4},
      {"Y8 from odd RGB24, no padding in either image", PIX_convert_to_Y8, PIX_RGB24, 3, 1, 10, 4},
      {"Y8 from odd YUV422", PIX_convert_to_Y8, PIX_YUV422, 3, 2, 8, 4},
      {"Y8 from odd RGB16", PIX_convert_to_Y8, PIX_RGB16, 3, 4, 6, 4},
      {"Y8 from even RGB24 padded to 4", PIX_convert_to_Y8, PIX_RGB24, 2, 4, 6, 2},
      // Skip members step over each image's padding.
      {"RGBX32 from RGB24", PIX_convert_to_RGBX32, PIX_RGB24, 3, 4, 12, 12},
      {"RGB16 from RGB8 steps half the padding", PIX_convert_to_RGB16, PIX_RGB8, 3, 4, 3, 8},
      {"RGB16 from RGB15, odd padding dropped in and out", PIX_convert_to_RGB16, PIX_RGB15, 1, 3, 2, 2},
      {"RGB16 from RGB24, output padding made even", PIX_convert_to_RGB16, PIX_RGB24, 1, 3, 3, 2},
      {"RGB15 from Y16, odd padding dropped", PIX_convert_to_RGB15, PIX_Y16, 1, 3, 2, 3},
      {"RGB15 from Y8", PIX_convert_to_RGB15, PIX_Y8, 1, 3, 3, 3},
      {"Y16 from Y8, output padding made even", PIX_convert_to_Y16, PIX_Y8, 1, 3, 3, 2},
      {"RGB24 or Y8 from paletted", PIX_paletted_to_RGB24_or_Y8, PIX_PALETTED, 3, 4, 4, 12},
      // Contiguous members ignore padding altogether.
      {"BGR24 from padded RGB24", PIX_convert_to_BGR24, PIX_RGB24, 3, 4, 9, 9},
      {"XRGB32 from padded RGB16", PIX_convert_to_XRGB32, PIX_RGB16, 3, 4, 6, 12},
      {"CMYK32 from odd paletted, input padded to 2", PIX_convert_to_CMYK32, PIX_PALETTED, 3, 1, 4, 12},
  };
  // Layouts of formats 0-15 (0, 1, 3 and 13 are not read through one).
  const Direct layout[16] = {Direct::y8,     Direct::y8,     Direct::y8,     Direct::y8,
                             Direct::rgb8,   Direct::rgb15,  Direct::rgb16,  Direct::rgb24,
                             Direct::bgr24,  Direct::rgbx32, Direct::bgrx32, Direct::xbgr32,
                             Direct::yuv422, Direct::y8,     Direct::y16,    Direct::xrgb32};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const uint32_t in = image(c.from, c.width, 3, ramp(256, 7), c.align), out = PIX_image_create();
    pix::Image& src = *pix::find_image(in);
    for (int i = 0; i < 256; ++i) src.cmap[i] = {uint8_t(i), uint8_t(i + 1), uint8_t(i + 2), 0};  // not grey
    ASSERT_EQ(c.fn(in, out, PIX_STRIP_NEXT), 0u);
    const pix::Image& dst = *pix::find_image(out);
    // Input bytes beyond the strip read as 0; output bytes beyond it are not written; padding holds anything.
    Bytes padded_in = bytes(in, std::size_t{src.bytes_per_line} * 3);
    padded_in.resize(padded_in.size() + 64, 0);
    const Bytes got = bytes(out, std::size_t{dst.bytes_per_line} * dst.lines_this_strip);
    Bytes want = got;
    want.resize(got.size() + 64, 0);
    for (uint32_t y = 0; y < 3; ++y) {
      for (uint32_t x = 0; x < c.width; ++x) {
        uint8_t* d = &want[y * c.out_step];
        const uint8_t* p = &padded_in[y * c.in_step];
        if (c.from == PIX_PALETTED) {
          const tPIX_Colour e = src.cmap[p[x]];
          if (c.fn == PIX_convert_to_CMYK32) d += 4 * x, d[0] = ~e.red, d[1] = ~e.green, d[2] = ~e.blue, d[3] = 0;
          else d += 3 * x, d[0] = e.red, d[1] = e.green, d[2] = e.blue;
        } else {
          const Direct from = layout[c.from], to = layout[dst.format];
          expected(from, to, p + x * k::direct_bytes(from), 0, d + x * k::direct_bytes(to));
        }
      }
    }
    want.resize(got.size());
    EXPECT_EQ(got, want);
  }
}

TEST_F(DirectConvert, Y16OutputTakesTheOutputDataWidthOfEachStrip) {
  const uint32_t in = image(PIX_Y8, 2, 4, {1, 2, 3, 4, 5, 6, 7, 8}), out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 1);
  ASSERT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_DATA_WIDTH), bytes(out, 4)),
            std::make_tuple(8u, Bytes{1, 0, 2, 0}));
  PIX_image_set_parameter(out, PIX_DATA_WIDTH, 12);
  ASSERT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(bytes(out, 4), (Bytes{0x10, 0, 0x20, 0}));
  PIX_image_set_parameter(out, PIX_DATA_WIDTH, 7);
  expect_report(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), "PIX_convert_to_Y16_1_strip", 0x10290000u,
                "grayscale data width must be 8 or more");
  EXPECT_FALSE(pix::convert::direct_state().y16.idle());  // a failing worker leaves the run open
  EXPECT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(pix::convert::direct_state().y16.idle());
}

TEST_F(DirectConvert, StripsAndProgress) {
  // 10 lines in strips of 4: the grey run is marked 3 while under way; the last strip is cut in place.
  const uint32_t in = image(PIX_RGB24, 2, 10), out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 4);
  for (uint8_t call = 1; call <= 3; ++call) {
    const pix::Image& src = *pix::find_image(in);
    std::memset(src.data, call, src.lines_this_strip * src.bytes_per_line);
    ASSERT_EQ(PIX_convert_to_Y8(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(std::make_tuple(pix::convert::direct_state().y8.state, bytes(out, 2)),
              std::make_tuple(call < 3 ? 3 : 1, Bytes(2, call)));
  }
  EXPECT_EQ(std::make_tuple(PIX_get_lines_this_strip(in), PIX_get_lines_this_strip(out)), std::make_tuple(2u, 4u));
  // Described only: format and size, no data, the output alignment taken.
  const uint32_t plan = image(PIX_RGB24, 3, 5), planned = PIX_image_create();
  PIX_image_set_parameter(plan, PIX_LINES_THIS_STRIP, 0);
  PIX_image_set_parameter(plan, PIX_OUT_LINE_ALIGN, 16);
  EXPECT_EQ(PIX_convert_to_RGBX32(plan, planned, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(planned, PIX_IMAGE_FORMAT),
                            PIX_image_get_parameter(planned, PIX_LINE_ALIGN), PIX_image_get_ptr(planned, PIX_PTR_DATA)),
            std::make_tuple(uint32_t{PIX_RGBX32}, 16u, nullptr));
  EXPECT_TRUE(pix::convert::direct_state().rgbx32.idle());
}

TEST_F(DirectConvert, KeptQuirks) {
  // A same-format copy into nothing: RGB24 says 0, Y8 passes the copy's code on. An image into itself is refused.
  const uint32_t rgb = image(PIX_RGB24, 2, 1, {1, 2, 3, 4, 5, 6}), grey = image(PIX_Y8, 2, 1);
  EXPECT_EQ(PIX_convert_to_RGB24(rgb, 999, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(PIX_convert_to_Y8(grey, 999, PIX_STRIP_NEXT), 0x10010000u);
  EXPECT_EQ(PIX_convert_to_RGB16(rgb, rgb, PIX_STRIP_NEXT), 0x102A0000u);
  EXPECT_EQ(PIX_image_get_parameter(rgb, PIX_IMAGE_FORMAT), uint32_t{PIX_RGB24});
  // XRGB32 leaves the unused byte of a locked output buffer as it was.
  Bytes dst(8, 0x5A);
  const uint32_t out = PIX_image_create();
  PIX_image_set_ptr(out, PIX_PTR_DATA, dst.data());
  PIX_image_set_flags(out, PIX_FLAG_LOCKED, 1);  // kept through the parameters' copy
  EXPECT_EQ(PIX_convert_to_XRGB32(rgb, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(dst, (Bytes{0x5A, 1, 2, 3, 0x5A, 4, 5, 6}));
  PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
  // Paletted goes to grey only with a grey map.
  for (bool is_grey : {true, false}) {
    const uint32_t pal = image(PIX_PALETTED, 2, 1, {0, 1}), to = PIX_image_create();
    PIX_image_set_parameter(pal, PIX_CMAP_SIZE, 2);
    pix::find_image(pal)->cmap[0] = {40, 40, 40, 0};
    pix::find_image(pal)->cmap[1] = {90, uint8_t(is_grey ? 90 : 91), 90, 0};
    ASSERT_EQ(PIX_paletted_to_RGB24_or_Y8(pal, to, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(to, PIX_IMAGE_FORMAT), bytes(to, is_grey ? 2 : 6)),
              std::make_tuple(is_grey ? 2u : 7u, is_grey ? Bytes{40, 90} : Bytes{40, 40, 40, 90, 91, 90}));
  }
  // The RGB24 worker reads an RGB15 strip.
  const uint32_t in = image(PIX_RGB15, 2, 1, {0x00, 0x7C, 0x1F, 0x00}), to = PIX_image_create();
  PIX_image_copy_parameters(in, to);
  PIX_image_set_parameter(to, PIX_IMAGE_FORMAT, PIX_RGB24);
  ASSERT_EQ(pix::convert::convert_to_rgb24_1_strip(in, to), 0u);
  EXPECT_EQ(bytes(to, 6), (Bytes{0xF8, 0x00, 0x00, 0x00, 0x07, 0xF8}));
}

}  // namespace
