// Quantisation tables from the Q scale, the zig-zag order, and the coding
// tables derived from Huffman tables, against references written here:
// canonical codes (jpeg_reference.h), differences coded bit by bit, and
// lookahead entries found by matching every code against every bit string.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "jpeg/tables.h"
#include "jpeg_reference.h"
#include "test_support.h"

namespace {

using pix::jpeg::coding_tables;

Tjpeg& tjpeg(uint32_t h) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

class JpegTables : public pixtest::LibraryTest {
 protected:
  uint32_t jpeg(uint16_t format) {
    const uint32_t h = PIX_JPEG_image_create();
    PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
    return h;
  }
};

TEST(JpegZigZag, WalksTheAntiDiagonalsAlternately) {
  std::vector<int> walk;  // natural index of each zig-zag position
  for (int s = 0; s < 15; ++s)
    for (int i = 0; i < 8; ++i)
      if (const int r = s % 2 ? i : s - i, c = s - r; r >= 0 && r < 8 && c >= 0 && c < 8) walk.push_back(8 * r + c);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(pix::jpeg::kZigZag[i], walk[i]) << i;
  for (int i = 0; i < 64; ++i) EXPECT_EQ(pix::jpeg::kInverseZigZag[walk[i]], i) << i;
}

TEST_F(JpegTables, QuantisationTablesFollowTheScaleForEveryQ) {
  const uint32_t colour = jpeg(PIX_YUV422);
  for (uint16_t q = 1; q <= 400; ++q) {
    ASSERT_EQ(PIX_JPEG_set_Quality_factor(colour, q) | PIX_JPEG_make_Q_tables(colour), 0u);
    const Tjpeg& r = tjpeg(colour);
    const long double s = static_cast<float>(16.0 / q);  // the single-precision scale, exactly
    const auto expect = [&](int base) { return static_cast<int>(std::min(255.0L, std::floor(base * s + 0.5L))); };
    for (int i = 0; i < 64; ++i) {
      const int n = pix::jpeg::kZigZag[i];
      ASSERT_EQ(r.Q_tables[0][i], expect(pix::jpeg::kLumaQuant[n])) << q << ' ' << i;
      ASSERT_EQ(r.Q_tables[1][i], expect(pix::jpeg::kChromaQuant[n])) << q << ' ' << i;
    }
    ASSERT_EQ(std::vector<int>({r.Nq, r.Lq, r.Tq[0], r.Tq[1], r.Tq[2]}), std::vector<int>({2, 132, 0, 1, 1}));
  }
  // The scale divides: 16 is the standard table, the default 32 halves it,
  // 1 saturates, 400 drops the smallest luminance entries to 0.
  for (const auto& [q, row] : {std::pair<uint16_t, std::vector<int>>{16, {16, 11, 10, 99}}, {32, {8, 6, 5, 50}},
                               {1, {255, 176, 160, 255}}, {400, {1, 0, 0, 4}}}) {
    PIX_JPEG_set_Quality_factor(colour, q);
    PIX_JPEG_make_Q_tables(colour);
    const uint8_t* t = tjpeg(colour).Q_tables[0];
    EXPECT_EQ(std::vector<int>({t[0], t[1], t[5], t[63]}), row) << q;  // naturals 0, 1, 2, 63
  }
}

TEST_F(JpegTables, QualityAndQuantisationFactorsSetTheScaleOrAreRefused) {
  const uint32_t grey = jpeg(PIX_Y8);
  const auto quality = PIX_JPEG_set_Quality_factor, quantisation = PIX_JPEG_set_Quantization_factor;
  const struct { decltype(quality) set; uint16_t arg, scale; } cases[] = {  // scale 0: refused, the last one kept
      {quantisation, 50, 16}, {quantisation, 75, 10}, {quantisation, 100, 8}, {quantisation, 2, 400}, {quantisation, 800, 1},
      {quantisation, 3, 266}, {quality, 1, 1}, {quality, 400, 400}, {quantisation, 801, 0}, {quantisation, 1, 0},
      {quality, 0, 0}, {quality, 401, 0}};
  for (const auto& c : cases) {
    const uint32_t r = c.set(grey, c.arg);
    if (c.scale == 0)
      expect_report(r, c.set == quality ? "PIX_JPEG_set_Quality_factor" : "PIX_JPEG_set_Quantization_factor", 0x10280000u, "Q factor of range");
    EXPECT_EQ(tjpeg(grey).Q_scale, c.scale ? c.scale : 400) << c.arg;
  }
  const uint32_t plain = PIX_image_create();
  for (const auto& [f, name] : {std::pair<uint32_t (*)(uint32_t), const char*>{PIX_JPEG_make_Q_tables, "PIX_JPEG_make_Q_tables"},
                                {PIX_JPEG_set_default_H_tables, "PIX_JPEG_set_default_H_tables"},
                                {PIX_JPEG_generate_H_codetable_LUTs, "PIX_JPEG_generate_H_codetable_LUTs"},
                                {PIX_JPEG_generate_Huffman_decode_tables, "PIX_JPEG_generate_Huffman_decode_tables"}})
    expect_report(f(plain), name, 0x10010000u, "Not a JPEG image");
  EXPECT_EQ(PIX_JPEG_set_Quality_factor(plain, 10), 0x10010000u);
}

// Every symbol's code (and the encoder's form of it), every DC difference
// and every lookahead entry of the default tables, luminance and chrominance.
TEST_F(JpegTables, DefaultTablesDeriveTheStandardCodesEverywhere) {
  const uint32_t colour = jpeg(PIX_YUV422);
  ASSERT_EQ(PIX_JPEG_set_default_H_tables(colour) | PIX_JPEG_generate_H_codetable_LUTs(colour) |
                PIX_JPEG_generate_Huffman_decode_tables(colour), 0u);
  const Tjpeg& r = tjpeg(colour);
  EXPECT_EQ(r.DHT_length, 416);
  EXPECT_EQ(std::vector<int>(r.table_ids, r.table_ids + 5), (std::vector<int>{0x00, 0x01, 0x10, 0x11, 255}));
  const auto& t = coding_tables();
  const std::array<pix::jpeg::SymbolCode, 256>* symbols[4] = {&t.dc_luma, &t.dc_chroma, &t.ac_luma, &t.ac_chroma};
  const std::array<pix::jpeg::SymbolPut, 256>* puts[4] = {&t.dc_luma_put, &t.dc_chroma_put, &t.ac_luma_put, &t.ac_chroma_put};
  const pix::jpeg::Lookahead* ahead[4] = {t.dc_luma_ahead.data(), t.dc_chroma_ahead.data(), t.ac_luma_ahead.data(), t.ac_chroma_ahead.data()};
  for (int slot = 0; slot < 4; ++slot) {
    const jpegref::Codes codes = jpegref::codes_of(r, slot);
    ASSERT_EQ(std::count_if(codes.begin(), codes.end(), [](const auto& c) { return c.first != 0; }), slot < 2 ? 12 : 162);
    for (int s = 0; s < 256; ++s)
      EXPECT_EQ(codes[s].first ? std::make_pair(int{(*symbols[slot])[s].length}, (*symbols[slot])[s].code) : codes[s], codes[s]) << slot << ' ' << s;
    for (unsigned s = 0; s < 256; ++s)  // the encoder's form: shifted by the category, the length with it
      EXPECT_EQ(std::make_pair((*puts[slot])[s].code, (*puts[slot])[s].length),
                std::make_pair((*symbols[slot])[s].code << s % 16, (*symbols[slot])[s].length + s % 16u)) << slot << ' ' << s;
    // Lookahead: the entry of every bit string is the code it starts with.
    const int width = slot == 0 ? 9 : slot == 1 ? 11 : 16;
    for (uint32_t v = 0; v < (1u << width); ++v) {
      pix::jpeg::Lookahead want{0, pix::jpeg::kNoCode, 0};
      for (int s = 0; s < 256; ++s) {
        const auto [length, code] = codes[s];
        if (length != 0 && length <= width && (v >> (width - length)) == code)
          want = {uint8_t(slot < 2 ? 0 : s >> 4), uint8_t(slot < 2 ? s : s & 15), uint16_t(length)};
      }
      const pix::jpeg::Lookahead got = ahead[slot][v];
      ASSERT_EQ(got.category, want.category) << slot << ' ' << v;
      ASSERT_EQ(want.category == pix::jpeg::kNoCode ? 0 : got.run * 100 + got.length, want.run * 100 + want.length) << slot << ' ' << v;
    }
    if (slot >= 2) continue;
    // Every DC difference: its category's code, then the category's extra
    // bits (negative differences as d + 2^c - 1), left-aligned.
    for (int d = -2047; d <= 2047; ++d) {
      const int c = jpegref::cat(d);
      const auto [length, code] = codes[c];
      const uint64_t joined = (uint64_t{code} << c) | (d >= 0 ? d : d + (1 << c) - 1);
      const auto& p = (slot ? t.dc_chroma_diff : t.dc_luma_diff)[d + 2047];
      ASSERT_EQ(p.length, length + c) << d;
      ASSERT_EQ(p.bits, static_cast<uint32_t>(joined << (32 - length - c))) << d;
    }
  }
}

// A grey image derives only the luminance tables; a count of 1-bit codes is
// skipped, so later codes take the places the standard would give them
// without it; a symbol missing from a table keeps the code it had.
TEST_F(JpegTables, GreyImagesDeriveLuminanceOnlyAndOneBitCodesAreSkipped) {
  const uint32_t colour = jpeg(PIX_YUV422), grey = jpeg(PIX_Y8);
  PIX_JPEG_set_default_H_tables(colour);
  PIX_JPEG_generate_H_codetable_LUTs(colour);
  const pix::jpeg::SymbolCode chroma_before = coding_tables().ac_chroma[0x01];
  Tjpeg& g = tjpeg(grey);
  PIX_JPEG_set_default_H_tables(grey);
  std::swap(g.HUFFVAL[3][0], g.HUFFVAL[3][1]);  // chroma codes a grey image must not derive
  std::fill(g.BITS[0], g.BITS[0] + 16, 0);
  g.BITS[0][0] = g.BITS[0][1] = 1;  // one 1-bit code, then one of 2 bits: values 0 and 1
  ASSERT_EQ(PIX_JPEG_generate_H_codetable_LUTs(grey), 0u);
  const auto& t = coding_tables();
  EXPECT_EQ(std::make_pair(t.dc_luma[0].length, t.dc_luma[0].code), std::make_pair(uint16_t{2}, 0u));  // the first 2-bit code
  EXPECT_EQ(t.dc_luma[1].length, 3);  // value 1 was never given a code here: it keeps the default's
  EXPECT_EQ(std::make_pair(t.ac_chroma[0x01].length, t.ac_chroma[0x01].code), std::make_pair(chroma_before.length, chroma_before.code));
}

// Derived tables follow the last generation, whichever image it was for:
// other codes are derived anew, and the same codes again give the same
// tables (they are not made again when nothing changed).
TEST_F(JpegTables, DerivedTablesFollowEveryChangeOfCodes) {
  const uint32_t standard = jpeg(PIX_Y8), other = jpeg(PIX_Y8);
  PIX_JPEG_set_default_H_tables(standard);
  Tjpeg& o = tjpeg(other);
  PIX_JPEG_set_default_H_tables(other);
  o.BITS[0][1] = 0, o.BITS[0][2] = 2;     // DC category 0 becomes 000, category 1 001
  std::swap(o.HUFFVAL[2][0], o.HUFFVAL[2][1]);  // AC 0/1 and 0/2 swap codes
  const auto& t = coding_tables();
  for (int round = 0; round < 2; ++round) {
    for (const uint32_t h : {standard, other, other, standard}) {
      ASSERT_EQ(PIX_JPEG_generate_H_codetable_LUTs(h) | PIX_JPEG_generate_Huffman_decode_tables(h), 0u);
      const bool changed = h == other;
      EXPECT_EQ(t.dc_luma_ahead[0].length, changed ? 3 : 2);
      EXPECT_EQ(t.dc_luma_diff[2047].length, changed ? 3 : 2);
      EXPECT_EQ(t.dc_luma_put[0].length, changed ? 3u : 2u);
      EXPECT_EQ(t.ac_luma_ahead[0].category, changed ? 2 : 1);
    }
  }
}

}  // namespace
