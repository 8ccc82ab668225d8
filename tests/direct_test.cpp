// Direct-colour converters: the row kernels against formulas written out
// here (exhaustively where the inputs allow), every SIMD level against the
// scalar kernels, and the converters' lists, messages and line stepping.
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
using pix::convert::kernels::DirectRow;
using pix::cpu::Level;
using pixtest::LibraryTest;
using Bytes = std::vector<uint8_t>;
namespace k = pix::convert::kernels;

// ---------------------------------------------------------------------------
// Reference formulas

unsigned word_at(const uint8_t* p) { return p[0] | (p[1] << 8); }
void put_word(uint8_t* p, unsigned w) { p[0] = w & 0xFF, p[1] = (w >> 8) & 0xFF; }

struct Channels {
  unsigned r, g, b;
};
Channels channels(Direct from, const uint8_t* p, unsigned shift) {
  const unsigned w = k::direct_bytes(from) == 2 ? word_at(p) : 0;
  switch (from) {
    case Direct::y8:
    case Direct::yuv422: return {p[0], p[0], p[0]};
    case Direct::y16: return {(w >> shift) & 0xFF, (w >> shift) & 0xFF, (w >> shift) & 0xFF};
    case Direct::rgb15: return {(w >> 7) & 0xFF, (w >> 2) & 0xFF, (w << 3) & 0xFF};  // low bits unmasked
    case Direct::rgb16: return {w >> 8, (w >> 3) & 0xFF, (w << 3) & 0xFF};
    case Direct::rgb24:
    case Direct::rgbx32: return {p[0], p[1], p[2]};
    case Direct::bgr24:
    case Direct::bgrx32: return {p[2], p[1], p[0]};
    default: return {p[3], p[2], p[1]};  // xbgr32
  }
}

// What one pixel becomes; bytes the converter leaves alone stay as `d` held them.
void expected(Direct from, Direct to, const uint8_t* p, unsigned shift, uint8_t* d) {
  const unsigned w = k::direct_bytes(from) == 2 ? word_at(p) : 0;
  if (from == Direct::rgb15 && to == Direct::rgb16) {  // red and green move up a bit, green's low bit 0
    return put_word(d, ((w >> 10 & 0x1F) << 11) | ((w >> 5 & 0x1F) << 6) | (w & 0x1F));
  }
  if (from == Direct::rgb16 && to == Direct::rgb15) {  // green's low bit lands on blue's top bit
    return put_word(d, ((w >> 1) & 0x7FF0) | (w & 0x1F));
  }
  if (from == Direct::rgb8) {  // RGB16 is its only target
    const unsigned b = p[0];
    unsigned out = (b >> 5) << 13;
    if (b & 0x10) out |= 1u << 10;
    if (b & 0x04) out |= 1u << 8;
    if (b & 0x02) out |= (1u << 7) | (1u << 4);
    if (b & 0x01) out |= 1u << 3;
    return put_word(d, out);
  }
  if (to == Direct::y16) return put_word(d, (unsigned{p[0]} << shift) & 0xFFFF);
  const Channels c = channels(from, p, shift);
  switch (to) {
    case Direct::y8: d[0] = static_cast<uint8_t>((77 * c.r + 150 * c.g + 29 * c.b) / 256); break;
    case Direct::rgb15: put_word(d, (c.r >> 3) << 10 | (c.g >> 3) << 5 | c.b >> 3); break;
    case Direct::rgb16: put_word(d, (c.r >> 3) << 11 | (c.g >> 2) << 5 | c.b >> 3); break;
    case Direct::rgb24: d[0] = c.r, d[1] = c.g, d[2] = c.b; break;
    case Direct::bgr24: d[0] = c.b, d[1] = c.g, d[2] = c.r; break;
    case Direct::rgbx32: d[0] = c.r, d[1] = c.g, d[2] = c.b, d[3] = 0; break;
    case Direct::bgrx32: d[0] = c.b, d[1] = c.g, d[2] = c.r, d[3] = 0; break;
    case Direct::xbgr32: d[0] = 0, d[1] = c.b, d[2] = c.g, d[3] = c.r; break;
    default: d[1] = c.r, d[2] = c.g, d[3] = c.b; break;  // xrgb32: byte 0 untouched
  }
}

constexpr Direct kLayouts[] = {Direct::y8,     Direct::y16,    Direct::rgb8,   Direct::rgb15,
                               Direct::rgb16,  Direct::rgb24,  Direct::bgr24,  Direct::rgbx32,
                               Direct::bgrx32, Direct::xbgr32, Direct::xrgb32, Direct::yuv422};

std::vector<Level> levels() {
  std::vector<Level> list{Level::scalar};
  for (Level l : {Level::sse2, Level::avx2}) {
    if (pix::cpu::supports(l)) list.push_back(l);
  }
  return list;
}
DirectRow kernel_at(Level level, Direct from, Direct to) {
  return level == Level::scalar ? k::direct_row_scalar(from, to) : k::direct_row_simd(from, to, level);
}

// Runs every level's kernel over `src` and compares with the formulas.
void check_all_levels(Direct from, Direct to, const std::vector<uint8_t>& src, unsigned shift) {
  const std::size_t n = src.size() / k::direct_bytes(from), ob = k::direct_bytes(to);
  std::vector<uint8_t> want(n * ob, 0xA5);
  for (std::size_t i = 0; i < n; ++i) expected(from, to, &src[i * k::direct_bytes(from)], shift, &want[i * ob]);
  for (Level level : levels()) {
    const DirectRow row = kernel_at(level, from, to);
    if (row == nullptr) continue;
    std::vector<uint8_t> got(n * ob, 0xA5);
    row(src.data(), got.data(), n, shift);
    for (std::size_t i = 0; i < n; ++i) {
      if (std::memcmp(&got[i * ob], &want[i * ob], ob) != 0) {
        ADD_FAILURE() << "level " << static_cast<int>(level) << " layouts " << static_cast<int>(from) << " -> "
                      << static_cast<int>(to) << " shift " << shift << ": pixel " << i << " differs";
        break;
      }
    }
  }
}

TEST(DirectKernels, EveryPairAgainstTheFormulasOnEveryLevel) {
  std::mt19937 rng(7);
  int pairs = 0;
  for (Direct from : kLayouts) {
    const unsigned b = k::direct_bytes(from);
    // Every byte, every 16-bit word (also every Y, U pair); random wider pixels.
    std::vector<uint8_t> src;
    if (b == 1) {
      for (unsigned v = 0; v < 256; ++v) src.push_back(static_cast<uint8_t>(v));
    } else if (b == 2) {
      for (unsigned v = 0; v < 65536; ++v) src.push_back(v & 0xFF), src.push_back(static_cast<uint8_t>(v >> 8));
    } else {
      for (unsigned i = 0; i < 65536 * b; ++i) src.push_back(static_cast<uint8_t>(rng()));
    }
    for (Direct to : kLayouts) {
      if (k::direct_row_scalar(from, to) == nullptr) continue;
      ++pairs;
      const bool shifts = from == Direct::y16 || to == Direct::y16;
      for (unsigned shift = 0; shift <= (shifts ? 8u : 0u); ++shift) check_all_levels(from, to, src, shift);
    }
  }
  // Y8 from 9 sources; Y16 from Y8; 8 RGB targets from 9 sources (grey, Y16 and the 7 RGB layouts that
  // are also targets) except themselves; RGB16 from RGB8.
  EXPECT_EQ(pairs, 9 + 1 + (8 * 9 - 7) + 1);
}

TEST(DirectKernels, GreyOfEveryRgbColourOnEveryLevel) {
  // 2^24 colours in every byte order, a red value per run.
#ifdef PIX95_SANITIZED
  constexpr unsigned kStride = 17;
#else
  constexpr unsigned kStride = 1;
#endif
  const struct {
    Direct from;
    int r, g, b;  // byte places
  } layouts[] = {{Direct::rgb24, 0, 1, 2}, {Direct::bgr24, 2, 1, 0}, {Direct::rgbx32, 0, 1, 2},
                 {Direct::bgrx32, 2, 1, 0}, {Direct::xbgr32, 3, 2, 1}};
  for (const auto& [from, at_r, at_g, at_b] : layouts) {
    const unsigned b = k::direct_bytes(from);
    std::vector<uint8_t> src(65536 * b, 0x5C), got(65536);
    for (unsigned r = 0; r < 256; r += kStride) {
      for (unsigned i = 0; i < 65536; ++i) {
        src[i * b + at_r] = static_cast<uint8_t>(r), src[i * b + at_g] = i >> 8, src[i * b + at_b] = i & 0xFF;
      }
      for (Level level : levels()) {
        const DirectRow row = kernel_at(level, from, Direct::y8);
        ASSERT_NE(row, nullptr);
        row(src.data(), got.data(), 65536, 0);
        for (unsigned i = 0; i < 65536; ++i) {
          const unsigned want = (77 * r + 150 * (i >> 8) + 29 * (i & 0xFF)) >> 8;
          if (got[i] != want) {
            ADD_FAILURE() << "level " << static_cast<int>(level) << " layout " << static_cast<int>(from) << " red "
                          << r << " green " << (i >> 8) << " blue " << (i & 0xFF) << ": " << int{got[i]};
            return;
          }
        }
      }
    }
  }
}

TEST(DirectKernels, SimdEqualsScalarOnOddRowsAndStaysInside) {
  std::mt19937 rng(11);
  std::vector<std::size_t> lengths;
  for (std::size_t n = 0; n <= 80; ++n) lengths.push_back(n);
  for (std::size_t n : {127u, 1001u, 4099u}) lengths.push_back(n);
  for (Level level : levels()) {
    if (level == Level::scalar) continue;
    for (Direct from : kLayouts) {
      for (Direct to : kLayouts) {
        const DirectRow simd = k::direct_row_simd(from, to, level), scalar = k::direct_row_scalar(from, to);
        if (simd == nullptr) continue;
        for (std::size_t n : lengths) {
          // Exactly sized source; a guard byte after the destination.
          std::vector<uint8_t> src(n * k::direct_bytes(from));
          for (auto& v : src) v = static_cast<uint8_t>(rng());
          std::vector<uint8_t> a(n * k::direct_bytes(to) + 1), b;
          for (auto& v : a) v = static_cast<uint8_t>(rng());
          b = a;
          const unsigned shift = rng() % 9;
          simd(src.data(), a.data(), n, shift);
          scalar(src.data(), b.data(), n, shift);
          ASSERT_EQ(a, b) << "level " << static_cast<int>(level) << " layouts " << static_cast<int>(from) << " -> "
                          << static_cast<int>(to) << " length " << n;
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------
// The converters

using Convert = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);
struct Member {
  const char* name;
  Convert fn;
  uint16_t target;  // 0: chosen from the colour map
  std::vector<uint16_t> sources;
  const char* refusal;
};
const std::vector<Member>& members() {
  static const std::vector<Member> list = {
      {"PIX_convert_to_Y8", PIX_convert_to_Y8, 2, {5, 6, 7, 8, 9, 10, 11, 12, 14}, "Unsupported image format"},
      {"PIX_convert_to_RGBX32", PIX_convert_to_RGBX32, 9, {2, 5, 6, 7, 10, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_BGRX32", PIX_convert_to_BGRX32, 10, {2, 5, 6, 7, 9, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_XBGR32", PIX_convert_to_XBGR32, 11, {2, 5, 6, 7, 9, 10, 14}, "Unsupported image format"},
      {"PIX_convert_to_XRGB32", PIX_convert_to_XRGB32, 15, {2, 5, 6, 7, 9, 10, 14}, "Unsupported image format"},
      {"PIX_convert_to_RGB24", PIX_convert_to_RGB24, 7, {2, 5, 6, 9, 10, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_BGR24", PIX_convert_to_BGR24, 8, {2, 5, 6, 7, 9, 10, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_RGB16", PIX_convert_to_RGB16, 6, {2, 4, 5, 7, 8, 9, 10, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_RGB15", PIX_convert_to_RGB15, 5, {2, 7, 8, 9, 10, 11, 14}, "Unsupported image format"},
      {"PIX_convert_to_Y16", PIX_convert_to_Y16, 14, {2}, "Unsupported image format"},
      {"PIX_convert_to_CMYK32", PIX_convert_to_CMYK32, 13, {3}, "Only paletted input images currently supported"},
      {"PIX_convert_to_RGB24_or_Y8", PIX_paletted_to_RGB24_or_Y8, 0, {3}, "Input image should be paletted"},
  };
  return list;
}

class DirectConvert : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    pix::convert::direct_state() = {};
  }
  // An image of `lines` lines holding them all in one strip, filled from `bytes`.
  static uint32_t image(uint16_t format, uint32_t width, uint32_t lines, const std::vector<uint8_t>& bytes = {},
                        uint32_t align = 2, uint16_t data_width = 8) {
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
    if (!bytes.empty()) std::memcpy(img.data, bytes.data(), std::min(size, bytes.size()));
    return h;
  }
  void expect_report(const std::string& function, uint32_t code, const char* message) {
    const auto r = last_report();
    EXPECT_EQ(std::tie(r.function, r.code, r.message), std::make_tuple(function, code, std::string(message)));
  }
  static std::vector<uint8_t> bytes(uint32_t h, std::size_t count) {
    const uint8_t* d = pix::find_image(h)->data;
    return std::vector<uint8_t>(d, d + count);
  }
  static std::vector<uint8_t> ramp(std::size_t n, int step = 1) {
    std::vector<uint8_t> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(11 + i * step);
    return v;
  }
};

TEST_F(DirectConvert, EachMemberTakesItsListCopiesItsTargetAndRefusesTheRest) {
  for (const Member& m : members()) {
    for (uint16_t f : {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 108}) {
      SCOPED_TRACE(std::string(m.name) + " from " + std::to_string(f));
      reports().clear();
      const uint32_t in = image(f, 4, 2, ramp(64)), out = PIX_image_create();
      const bool takes = std::find(m.sources.begin(), m.sources.end(), f) != m.sources.end();
      const uint32_t r = m.fn(in, out, PIX_STRIP_NEXT);
      if (takes || f == m.target) {
        EXPECT_EQ(r, 0u);
        EXPECT_TRUE(reports().empty());
        const uint32_t want = m.target != 0 ? m.target : PIX_Y8;  // a fresh colour map is grey
        EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), want);
        EXPECT_NE(PIX_image_get_ptr(out, PIX_PTR_DATA), nullptr);
        if (f == m.target) {
          EXPECT_EQ(bytes(out, 8), bytes(in, 8));
        }
      } else {
        EXPECT_EQ(r, 0x10140000u);
        expect_report(m.name, 0x10140000u, m.refusal);
      }
      PIX_image_destroy(in), PIX_image_destroy(out);
    }
  }
}

TEST_F(DirectConvert, Y16InputsNeedEightBitsOrMore) {
  const std::vector<uint8_t> word = {0xCD, 0xAB};
  for (const Member& m : members()) {
    if (std::find(m.sources.begin(), m.sources.end(), PIX_Y16) == m.sources.end()) continue;
    SCOPED_TRACE(m.name);
    const uint32_t narrow = image(PIX_Y16, 1, 1, word, 2, 7), out = PIX_image_create();
    EXPECT_EQ(m.fn(narrow, out, PIX_STRIP_NEXT), 0x10030000u);
    expect_report(m.name, 0x10030000u, "Data width must be > 7 for Y16");
    // 12 significant bits: grey is bits 4-11.
    const uint32_t wide = image(PIX_Y16, 1, 1, word, 2, 12);
    ASSERT_EQ(m.fn(wide, out, PIX_STRIP_NEXT), 0u);
    const std::size_t n = m.target == PIX_Y8 ? 1 : m.target == PIX_RGB24 ? 3 : 0;
    EXPECT_EQ(bytes(out, n), std::vector<uint8_t>(n, 0xBC));
  }
}

TEST_F(DirectConvert, DocumentedValues) {
  struct Case {
    Convert fn;
    uint16_t from;
    uint32_t width;
    std::vector<uint8_t> in, out;
  };
  const Case cases[] = {
      {PIX_convert_to_Y8, PIX_RGB24, 4, {255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255}, {255, 76, 149, 28}},
      {PIX_convert_to_RGB24, PIX_RGB15, 1, {0xFF, 0x7F}, {255, 255, 248}},
      {PIX_convert_to_RGB24, PIX_RGB16, 1, {0xFF, 0xFF}, {255, 255, 248}},
      {PIX_convert_to_RGB16, PIX_Y8, 1, {200}, {0x59, 0xCE}},
      {PIX_convert_to_RGB15, PIX_Y8, 1, {200}, {0x39, 0x67}},
      {PIX_convert_to_RGB16, PIX_RGB15, 1, {0xFF, 0x7F}, {0xDF, 0xFF}},
  };
  for (const Case& c : cases) {
    const uint32_t in = image(c.from, c.width, 1, c.in), out = PIX_image_create();
    ASSERT_EQ(c.fn(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(bytes(out, c.out.size()), c.out);
  }
  // A paletted pixel of colour (10, 20, 30) in CMYK.
  const uint32_t pal = image(PIX_PALETTED, 1, 1, {5}), out = PIX_image_create();
  pix::find_image(pal)->cmap[5] = {10, 20, 30, 0};
  ASSERT_EQ(PIX_convert_to_CMYK32(pal, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(bytes(out, 4), (Bytes{245, 235, 225, 0}));
}

// Line stepping: the expected lines are read from where each rule says they start.
TEST_F(DirectConvert, LineEnds) {
  struct Case {
    const char* what;
    Convert fn;
    uint16_t from;
    uint32_t width, align;
    uint32_t in_step, out_step;  // bytes between lines the worker uses
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    constexpr uint32_t kLines = 3;
    const uint32_t in = image(c.from, c.width, kLines, ramp(256, 7), c.align), out = PIX_image_create();
    pix::Image& src = *pix::find_image(in);
    for (int i = 0; i < 256; ++i) src.cmap[i] = {uint8_t(i), uint8_t(i + 1), uint8_t(i + 2), 0};  // not grey
    ASSERT_EQ(c.fn(in, out, PIX_STRIP_NEXT), 0u);
    const pix::Image& dst = *pix::find_image(out);
    const std::size_t in_size = std::size_t{src.bytes_per_line} * kLines;
    const std::size_t out_size = std::size_t{dst.bytes_per_line} * dst.lines_this_strip;
    // Input bytes beyond the strip read as 0; output bytes beyond it are not written.
    std::vector<uint8_t> padded_in(bytes(in, in_size));
    padded_in.resize(in_size + 64, 0);
    std::vector<uint8_t> want(out_size + 64, 0);
    const std::vector<uint8_t> got = bytes(out, out_size);
    std::copy(got.begin(), got.end(), want.begin());  // padding bytes: whatever they hold
    for (uint32_t y = 0; y < kLines; ++y) {
      for (uint32_t x = 0; x < c.width; ++x) {
        uint8_t* d = &want[y * c.out_step];
        if (c.from == PIX_PALETTED) {
          const tPIX_Colour e = src.cmap[padded_in[y * c.in_step + x]];
          if (c.fn == PIX_convert_to_CMYK32) {
            d += 4 * x, d[0] = ~e.red, d[1] = ~e.green, d[2] = ~e.blue, d[3] = 0;
          } else {
            d += 3 * x, d[0] = e.red, d[1] = e.green, d[2] = e.blue;
          }
          continue;
        }
        const Direct to = layout[dst.format];
        const unsigned ib = k::direct_bytes(layout[c.from]), ob = k::direct_bytes(to);
        expected(layout[c.from], to, &padded_in[y * c.in_step + x * ib], 0, d + x * ob);
      }
    }
    want.resize(out_size);
    EXPECT_EQ(got, want);
  }
}

TEST_F(DirectConvert, Y16OutputTakesTheOutputDataWidthOfEachStrip) {
  const uint32_t in = image(PIX_Y8, 2, 4, {1, 2, 3, 4, 5, 6, 7, 8}), out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 1);
  ASSERT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(PIX_image_get_parameter(out, PIX_DATA_WIDTH), 8u);
  EXPECT_EQ(bytes(out, 4), (Bytes{1, 0, 2, 0}));
  PIX_image_set_parameter(out, PIX_DATA_WIDTH, 12);
  ASSERT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(bytes(out, 4), (Bytes{0x10, 0, 0x20, 0}));
  PIX_image_set_parameter(out, PIX_DATA_WIDTH, 7);
  EXPECT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_NEXT), 0x10290000u);
  expect_report("PIX_convert_to_Y16_1_strip", 0x10290000u, "grayscale data width must be 8 or more");
  EXPECT_FALSE(pix::convert::direct_state().y16.idle());  // a failing worker leaves the run open
  EXPECT_EQ(PIX_convert_to_Y16(in, out, PIX_STRIP_FINISH), 0u);
  EXPECT_TRUE(pix::convert::direct_state().y16.idle());
}

TEST_F(DirectConvert, StripsAndProgress) {
  // 10 lines in strips of 4: the grey run is marked 3 while under way.
  const uint32_t in = image(PIX_RGB24, 2, 10, {}, 2), out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 4);
  for (int call = 0; call < 3; ++call) {
    pix::Image& src = *pix::find_image(in);
    for (uint32_t i = 0; i < src.lines_this_strip * src.bytes_per_line; ++i) src.data[i] = static_cast<uint8_t>(call + 1);
    ASSERT_EQ(PIX_convert_to_Y8(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(pix::convert::direct_state().y8.state, call < 2 ? 3 : 1);
    EXPECT_EQ(bytes(out, 2), (std::vector<uint8_t>(2, static_cast<uint8_t>(call + 1))));
  }
  EXPECT_EQ(PIX_get_lines_this_strip(in), 2u);  // the last strip cut in place
  EXPECT_EQ(PIX_get_lines_this_strip(out), 4u);
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

TEST_F(DirectConvert, CopiesFailuresAndMissingData) {
  // A same-format copy into nothing: RGB24 says 0, Y8 passes the copy's code on.
  const uint32_t rgb = image(PIX_RGB24, 2, 1), grey = image(PIX_Y8, 2, 1);
  EXPECT_EQ(PIX_convert_to_RGB24(rgb, 999, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(PIX_convert_to_Y8(grey, 999, PIX_STRIP_NEXT), 0x10010000u);
  // An input that claims lines but holds none: each worker reports under its own name.
  const uint32_t out = PIX_image_create();
  for (const Member& m : members()) {
    const uint32_t empty = image(m.sources[0], 2, 1);
    PIX_image_free_data(empty);
    EXPECT_EQ(m.fn(empty, out, PIX_STRIP_NEXT), 0x10030000u);
    expect_report(std::string(m.name) + "_1_strip", 0x10030000u, "No image data");
    EXPECT_EQ(m.fn(empty, out, PIX_STRIP_FINISH), 0u);
  }
  EXPECT_TRUE(pix::convert::direct_state().y8.idle());
  // An image into itself is refused.
  EXPECT_EQ(PIX_convert_to_RGB16(rgb, rgb, PIX_STRIP_NEXT), 0x102A0000u);
  EXPECT_EQ(PIX_image_get_parameter(rgb, PIX_IMAGE_FORMAT), uint32_t{PIX_RGB24});
}

TEST_F(DirectConvert, XRGB32KeepsTheUnusedByteOfALockedBuffer) {
  std::vector<uint8_t> src = {1, 2, 3, 4, 5, 6}, dst(8, 0x5A);
  const uint32_t in = image(PIX_RGB24, 2, 1), out = PIX_image_create();
  PIX_image_free_data(in);
  PIX_image_set_ptr(in, PIX_PTR_DATA, src.data());
  PIX_image_set_ptr(out, PIX_PTR_DATA, dst.data());
  PIX_image_set_flags(in, PIX_FLAG_LOCKED, 1);  // copied to the output with the parameters
  EXPECT_EQ(PIX_convert_to_XRGB32(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(dst, (Bytes{0x5A, 1, 2, 3, 0x5A, 4, 5, 6}));
  PIX_image_set_ptr(in, PIX_PTR_DATA, nullptr);
  PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
}

TEST_F(DirectConvert, PalettedGoesToGreyOnlyWithAGreyMapAndTheRgb24WorkerReadsA555Strip) {
  for (bool grey : {true, false}) {
    const uint32_t in = image(PIX_PALETTED, 2, 1, {0, 1}), out = PIX_image_create();
    PIX_image_set_parameter(in, PIX_CMAP_SIZE, 2);
    pix::find_image(in)->cmap[0] = {40, 40, 40, 0};
    pix::find_image(in)->cmap[1] = {90, uint8_t(grey ? 90 : 91), 90, 0};
    ASSERT_EQ(PIX_paletted_to_RGB24_or_Y8(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), grey ? 2u : 7u);
    EXPECT_EQ(bytes(out, grey ? 2 : 6), (grey ? Bytes{40, 90} : Bytes{40, 40, 40, 90, 91, 90}));
  }
  const uint32_t in = image(PIX_RGB15, 2, 1, {0x00, 0x7C, 0x1F, 0x00}), out = PIX_image_create();
  PIX_image_copy_parameters(in, out);
  PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, PIX_RGB24);
  ASSERT_EQ(pix::convert::convert_to_rgb24_1_strip(in, out), 0u);
  EXPECT_EQ(bytes(out, 6), (Bytes{0xF8, 0x00, 0x00, 0x00, 0x07, 0xF8}));
}

}  // namespace
