// Quantisation tables from the Q scale, and the coding tables derived from
// Huffman tables, against references written here: canonical codes made the
// standard's way (sizes, then codes), differences coded bit by bit, and
// lookahead entries found by matching every code against every bit string.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "jpeg/tables.h"
#include "test_support.h"

namespace {

using pix::jpeg::coding_tables;
using pix::jpeg::Lookahead;
using pix::jpeg::SymbolCode;

Tjpeg* tjpeg(uint32_t h) { return static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

struct RefCode {
  int length;
  uint32_t code;
  uint8_t symbol;
};

// The standard's way: a size list from the counts (lengths 1..16), then
// codes counted up, doubling at each new length.  1-bit counts are left out
// to match the library's reading of them.
std::vector<RefCode> reference_codes(const uint8_t* bits, const uint8_t* values) {
  std::vector<int> sizes;
  for (int l = 2; l <= 16; ++l) sizes.insert(sizes.end(), bits[l - 1], l);
  std::vector<RefCode> codes;
  uint32_t code = 0;
  int size = sizes.empty() ? 0 : sizes[0];
  for (std::size_t k = 0; k < sizes.size(); ++k) {
    while (sizes[k] > size) code <<= 1, ++size;
    codes.push_back({size, code++, values[k]});
  }
  return codes;
}

class JpegTables : public pixtest::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    colour = PIX_JPEG_image_create();
    grey = PIX_JPEG_image_create();
    PIX_image_set_parameter(colour, PIX_IMAGE_FORMAT, PIX_YUV422);
    PIX_image_set_parameter(grey, PIX_IMAGE_FORMAT, PIX_Y8);
  }
  uint32_t colour = 0, grey = 0;
};

TEST_F(JpegTables, QuantisationTablesFollowTheScaleForEveryQ) {
  for (uint16_t q = 1; q <= 400; ++q) {
    ASSERT_EQ(PIX_JPEG_set_Quality_factor(colour, q), 0u);
    ASSERT_EQ(PIX_JPEG_make_Q_tables(colour), 0u);
    const Tjpeg& r = *tjpeg(colour);
    const long double s = static_cast<float>(16.0 / q);  // the single-precision scale, exactly
    for (int i = 0; i < 64; ++i) {
      const int n = pix::jpeg::kZigZag[i];
      const auto expect = [&](int base) { return static_cast<int>(std::min(255.0L, std::floor(base * s + 0.5L))); };
      ASSERT_EQ(r.Q_tables[0][i], expect(pix::jpeg::kLumaQuant[n])) << q << ' ' << i;
      ASSERT_EQ(r.Q_tables[1][i], expect(pix::jpeg::kChromaQuant[n])) << q << ' ' << i;
    }
    ASSERT_EQ(r.Nq, 2);
    ASSERT_EQ(r.Lq, 132);
    ASSERT_EQ(r.Tq[0] * 100 + r.Tq[1] * 10 + r.Tq[2], 11);
  }
  // The scale divides: 16 is the standard table, the default 32 halves it,
  // 1 saturates, 400 drops the smallest luminance entries to 0.
  const auto first_row = [&](uint16_t q) {
    PIX_JPEG_set_Quality_factor(colour, q);
    PIX_JPEG_make_Q_tables(colour);
    const uint8_t* t = tjpeg(colour)->Q_tables[0];
    return std::vector<int>{t[0], t[1], t[5], t[63]};  // naturals 0, 1, 2, 63
  };
  EXPECT_EQ(first_row(16), (std::vector<int>{16, 11, 10, 99}));
  EXPECT_EQ(first_row(32), (std::vector<int>{8, 6, 5, 50}));
  EXPECT_EQ(first_row(1), (std::vector<int>{255, 176, 160, 255}));
  EXPECT_EQ(first_row(400), (std::vector<int>{1, 0, 0, 4}));
}

TEST_F(JpegTables, QualityAndQuantisationFactorsSetTheScaleOrAreRefused) {
  struct Case {
    uint32_t (*set)(uint32_t, uint16_t);
    uint16_t arg, scale;
  };
  const Case cases[] = {{PIX_JPEG_set_Quantization_factor, 50, 16}, {PIX_JPEG_set_Quantization_factor, 75, 10},
                        {PIX_JPEG_set_Quantization_factor, 100, 8}, {PIX_JPEG_set_Quantization_factor, 2, 400},
                        {PIX_JPEG_set_Quantization_factor, 800, 1}, {PIX_JPEG_set_Quantization_factor, 3, 266},
                        {PIX_JPEG_set_Quality_factor, 1, 1},        {PIX_JPEG_set_Quality_factor, 400, 400}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.set(grey, c.arg), 0u);
    EXPECT_EQ(tjpeg(grey)->Q_scale, c.scale) << c.arg;
  }
  using Set = uint32_t (*)(uint32_t, uint16_t);
  const std::pair<Set, uint16_t> refused[] = {{PIX_JPEG_set_Quantization_factor, 801},
                                              {PIX_JPEG_set_Quantization_factor, 1},
                                              {PIX_JPEG_set_Quality_factor, 0},
                                              {PIX_JPEG_set_Quality_factor, 401}};
  for (auto [set, arg] : refused) {
    expect_report(set(grey, arg), set == PIX_JPEG_set_Quality_factor ? "PIX_JPEG_set_Quality_factor"
                                                                      : "PIX_JPEG_set_Quantization_factor",
                  0x10280000u, "Q factor of range");
    EXPECT_EQ(tjpeg(grey)->Q_scale, 400);  // kept
  }
  const uint32_t plain = PIX_image_create();
  using Make = uint32_t (*)(uint32_t);
  const std::pair<Make, const char*> makers[] = {
      {PIX_JPEG_make_Q_tables, "PIX_JPEG_make_Q_tables"},
      {PIX_JPEG_set_default_H_tables, "PIX_JPEG_set_default_H_tables"},
      {PIX_JPEG_generate_H_codetable_LUTs, "PIX_JPEG_generate_H_codetable_LUTs"},
      {PIX_JPEG_generate_Huffman_decode_tables, "PIX_JPEG_generate_Huffman_decode_tables"}};
  for (auto [f, name] : makers) {
    expect_report(f(plain), name, 0x10010000u, "Not a JPEG image");
  }
  EXPECT_EQ(PIX_JPEG_set_Quality_factor(plain, 10), 0x10010000u);
}

// Every symbol's code, every DC difference and every lookahead entry of
// the default tables, luminance and chrominance.
TEST_F(JpegTables, DefaultTablesDeriveTheStandardCodesEverywhere) {
  ASSERT_EQ(PIX_JPEG_set_default_H_tables(colour), 0u);
  const Tjpeg& r = *tjpeg(colour);
  EXPECT_EQ(r.DHT_length, 416);
  EXPECT_EQ(std::vector<int>(r.table_ids, r.table_ids + 5), (std::vector<int>{0x00, 0x01, 0x10, 0x11, 255}));
  ASSERT_EQ(PIX_JPEG_generate_H_codetable_LUTs(colour), 0u);
  ASSERT_EQ(PIX_JPEG_generate_Huffman_decode_tables(colour), 0u);
  const auto& t = coding_tables();
  const std::array<SymbolCode, 256>* symbols[4] = {&t.dc_luma, &t.dc_chroma, &t.ac_luma, &t.ac_chroma};
  for (int slot = 0; slot < 4; ++slot) {
    const auto codes = reference_codes(r.BITS[slot], r.HUFFVAL[slot]);
    ASSERT_EQ(codes.size(), slot < 2 ? 12u : 162u);
    for (const RefCode& c : codes) {
      EXPECT_EQ((*symbols[slot])[c.symbol].length, c.length) << slot << ' ' << int(c.symbol);
      EXPECT_EQ((*symbols[slot])[c.symbol].code, c.code) << slot << ' ' << int(c.symbol);
    }
    // Lookahead: the entry of every bit string is the code it starts with.
    const int width = slot == 0 ? 9 : slot == 1 ? 11 : 16;
    for (uint32_t v = 0; v < (1u << width); ++v) {
      Lookahead want{0, pix::jpeg::kNoCode, 0};
      for (const RefCode& c : codes) {
        if (c.length <= width && (v >> (width - c.length)) == c.code) {
          want = {static_cast<uint8_t>(slot < 2 ? 0 : c.symbol >> 4), static_cast<uint8_t>(slot < 2 ? c.symbol : c.symbol & 15),
                  static_cast<uint16_t>(c.length)};
        }
      }
      const Lookahead got = slot == 0 ? t.dc_luma_ahead[v]
                            : slot == 1 ? t.dc_chroma_ahead[v]
                            : slot == 2 ? t.ac_luma_ahead[v]
                                        : t.ac_chroma_ahead[v];
      ASSERT_EQ(got.category, want.category) << slot << ' ' << v;
      if (want.category == pix::jpeg::kNoCode) continue;
      ASSERT_EQ(got.run, want.run) << slot << ' ' << v;
      ASSERT_EQ(got.length, want.length) << slot << ' ' << v;
    }
  }
  // Every DC difference: its category's code, then the category's extra bits
  // (negative differences as d + 2^c - 1), left-aligned.
  for (int chroma = 0; chroma < 2; ++chroma) {
    const auto codes = reference_codes(r.BITS[chroma], r.HUFFVAL[chroma]);
    for (int d = -2047; d <= 2047; ++d) {
      const int c = pix::jpeg::category(d);
      const RefCode& code = codes[static_cast<std::size_t>(c)];  // values 0..11 in order
      ASSERT_EQ(code.symbol, c);
      const uint64_t extra = d >= 0 ? d : d + (1 << c) - 1;
      const uint64_t joined = (uint64_t{code.code} << c) | extra;
      const auto& p = (chroma ? t.dc_chroma_diff : t.dc_luma_diff)[d + 2047];
      ASSERT_EQ(p.length, code.length + c) << d;
      ASSERT_EQ(p.bits, static_cast<uint32_t>(joined << (32 - code.length - c))) << d;
    }
  }
}

// A grey image derives only the luminance tables; a count of 1-bit codes is
// skipped, so later codes take the places the standard would give them
// without it; a symbol missing from a table keeps the code it had.
TEST_F(JpegTables, GreyImagesDeriveLuminanceOnlyAndOneBitCodesAreSkipped) {
  PIX_JPEG_set_default_H_tables(colour);
  PIX_JPEG_generate_H_codetable_LUTs(colour);
  const SymbolCode chroma_before = coding_tables().ac_chroma[0x01];
  Tjpeg& g = *tjpeg(grey);
  PIX_JPEG_set_default_H_tables(grey);
  g.BITS[0][0] = 1;                  // one 1-bit code ...
  g.BITS[0][1] = 1, g.BITS[0][2] = 0;  // ... then one of 2 bits, values 0 and 1
  std::fill(g.BITS[0] + 3, g.BITS[0] + 16, 0);
  ASSERT_EQ(PIX_JPEG_generate_H_codetable_LUTs(grey), 0u);
  const auto& t = coding_tables();
  EXPECT_EQ(t.dc_luma[0].length, 2);  // value 0 takes the first 2-bit code
  EXPECT_EQ(t.dc_luma[0].code, 0u);
  EXPECT_EQ(t.dc_luma[1].length, 3);  // value 1 was never given a code here: it keeps the default's
  EXPECT_EQ(t.ac_chroma[0x01].code, chroma_before.code);
  EXPECT_EQ(t.ac_chroma[0x01].length, chroma_before.length);
}

}  // namespace
