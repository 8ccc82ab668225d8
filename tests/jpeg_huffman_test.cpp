// The Huffman pass's fast path against the byte-at-a-time rules alone (the
// pass with the fast path off), on random streams: coded blocks whole, cut
// short, with EOI, 0xFF and stuffing bytes put in, and garbage; random
// carried buffers; the default tables and random ones, made after others so
// that codes a table lacks are left over from the one before.
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "jpeg/huffman.h"
#include "jpeg/tables.h"
#include "jpeg_reference.h"
#include "test_support.h"

namespace {

using jpegref::Bytes;
using jpegref::Codes;
using pix::jpeg::Layout;

struct Outcome {
  uint32_t result = 0, buffer = 0;
  uint64_t decoded = 0;
  std::vector<int16_t> terms;
  std::vector<uint64_t> maps;
  std::vector<std::string> said;
  bool operator==(const Outcome&) const = default;
};

// A table of `n` random symbols from `pool`, lengths 2..16 within the code space.
void random_table(std::mt19937& rng, Tjpeg& t, int slot, std::vector<int> pool, std::size_t n) {
  std::shuffle(pool.begin(), pool.end(), rng);
  std::vector<std::pair<int, int>> by_length;  // length, symbol
  uint32_t room = 1u << 16;
  for (std::size_t i = 0; i < std::min(n, pool.size()); ++i) {
    int l = 2 + static_cast<int>(rng() % (rng() % 2 ? 6 : 15));
    while (l <= 16 && (1u << (16 - l)) > room) ++l;
    if (l > 16) break;
    room -= 1u << (16 - l), by_length.push_back({l, pool[i]});
  }
  std::sort(by_length.begin(), by_length.end());
  std::fill_n(t.BITS[slot], 16, 0);
  for (std::size_t i = 0; i < by_length.size(); ++i) t.BITS[slot][by_length[i].first - 1]++, t.HUFFVAL[slot][i] = static_cast<uint8_t>(by_length[i].second);
}

class JpegHuffman : public pixtest::LibraryTest {
 protected:
  Outcome run(Layout layout, uint64_t columns, uint64_t rows, const Bytes& data, uint32_t carried, bool exact) {
    const uint64_t blocks = columns * rows * pix::jpeg::shape(layout).blocks;
    std::vector<int16_t> out(blocks * 64 + 1, 0x5A5A);
    std::vector<uint64_t> maps(blocks + 1, ~uint64_t{0});
    std::vector<uint8_t> room;
    pix::jpeg::HuffmanJob job{data.data(), data.size(), layout, columns, rows, out.data(), maps.data(), exact};
    reports().clear();
    Outcome o;
    o.buffer = carried;
    o.result = pix::jpeg::decode_huffman(job, o.decoded, o.buffer, room);
    std::size_t n = 0;
    for (uint64_t b = 0; b < o.decoded; ++b) n += 1 + static_cast<std::size_t>(std::popcount(maps[b]));
    o.terms.assign(out.begin(), out.begin() + static_cast<long>(n));
    o.maps.assign(maps.begin(), maps.begin() + static_cast<long>(o.decoded));
    for (const auto& r : reports()) o.said.push_back(r.function + ' ' + std::to_string(r.code) + ' ' + r.message);
    return o;
  }
};

TEST_F(JpegHuffman, FastPathEqualsTheByteAtATimeRulesOnRandomStreams) {
  std::mt19937 rng(95);
  const uint32_t img = PIX_JPEG_image_create();
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_YUV422);
  Tjpeg& t = *static_cast<Tjpeg*>(PIX_image_get_ptr(img, PIX_PTR_TJPEG));
  std::vector<int> dc_pool, ac_pool{0x00, 0xF0};
  for (int s = 0; s < 13; ++s) dc_pool.push_back(s);
  for (int s = 0; s < 256; ++s)
    if ((s & 15) != 0 && ((s & 15) <= 10 || s % 37 == 0)) ac_pool.push_back(s);
#ifdef PIX95_SANITIZED
  const int rounds = 300;
#else
  const int rounds = 3000;
#endif
  int some = 0;  // streams of which a block was decoded
  for (int round = 0; round < rounds; ++round) {
    const bool standard = round % 40 < 20;
    PIX_JPEG_set_default_H_tables(img);
    if (!standard)
      for (int slot = 0; slot < 4; ++slot) random_table(rng, t, slot, slot < 2 ? dc_pool : ac_pool, 4 + rng() % 200);
    PIX_JPEG_generate_H_codetable_LUTs(img);
    ASSERT_EQ(PIX_JPEG_generate_Huffman_decode_tables(img), 0u);
    // The library's codes, those left over from earlier tables among them.
    Codes codes[4];
    const auto& lib = pix::jpeg::coding_tables();
    for (int s = 0; s < 256; ++s)
      for (const auto& [slot, c] : {std::pair{0, &lib.dc_luma}, {1, &lib.dc_chroma}, {2, &lib.ac_luma}, {3, &lib.ac_chroma}})
        codes[slot][s] = {(*c)[s].length, (*c)[s].code};
    const Layout layout = static_cast<Layout>(rng() % 3);
    const auto& shape = pix::jpeg::shape(layout);
    const uint64_t columns = 1 + rng() % 16, rows = 1 + rng() % 8;
    // Blocks of random symbols among those with codes, values' bits random;
    // in some streams short codes more likely, blocks often ending at the
    // last term rather than with an end of block.
    jpegref::Writer w;
    const bool short_codes = round % 3 != 0, fill = round % 2 == 0;
    const auto symbol = [&](const Codes& c, bool ac, int run) {
      for (int tries = 0;; ++tries) {
        const int s = run < 0 || tries > 40 ? static_cast<int>(rng() % 256) : run << 4 | static_cast<int>(rng() % 11);
        if (c[s].first == 0 || (!ac && s > 11) || (short_codes && c[s].first > 9 && tries < 8)) continue;
        w.put(c[s].first, c[s].second), w.put(s & 15, rng() & ((1u << (s & 15)) - 1));
        return s;
      }
    };
    for (uint64_t b = 0; b < columns * rows * shape.blocks; ++b) {
      const int chroma = shape.component[b % shape.blocks] != 0;
      symbol(codes[chroma], false, -1);
      for (int k = 0; k < 63;) {
        if (codes[2 + chroma][0].first != 0 && !fill && rng() % 6 == 0) {
          w.put(codes[2 + chroma][0].first, codes[2 + chroma][0].second);
          break;
        }
        const int s = symbol(codes[2 + chroma], true, fill && k >= 47 ? 62 - k : -1);
        k += s == 0 ? 63 : (s & 15) == 0 ? 16 : (s >> 4) + 1;
      }
    }
    Bytes data = w.bytes();
    switch (rng() % 5) {
      case 0: break;
      case 1: data.resize(rng() % (data.size() + 1)); break;  // cut short
      case 2:  // EOI, 0xFF and stuffed bytes put in
        for (int i = 1 + static_cast<int>(rng() % 4); i > 0; --i) {
          static const Bytes kInserts[] = {{0xFF, 0xD9}, {0xFF}, {0xFF, 0x00}, {0xFF, 0xFF, 0xD9}, {0xD9}, {0xFF, 0xD9, 0xFF, 0xD9}};
          const Bytes& in = kInserts[rng() % 6];
          data.insert(data.begin() + static_cast<long>(rng() % (data.size() + 1)), in.begin(), in.end());
        }
        break;
      case 3:  // garbage
        for (auto& byte : data) byte = rng() % 5 == 0 ? 0xFF : static_cast<uint8_t>(rng());
        break;
      case 4:  // bytes after the last block
        for (int i = 0; i < 300; ++i) data.push_back(static_cast<uint8_t>(rng() % 255));
        break;
    }
    const uint32_t carried = rng() % 2 ? 0 : static_cast<uint32_t>(rng());
    const Outcome fast = run(layout, columns, rows, data, carried, false);
    const Outcome exact = run(layout, columns, rows, data, carried, true);
    ASSERT_EQ(fast, exact) << "round " << round;
    for (int cut = 0; cut < 3; ++cut) {  // fewer MCUs: the pass ends anywhere in the data
      const uint64_t mcus = 1 + rng() % (columns * rows);
      ASSERT_EQ(run(layout, mcus, 1, data, carried, false), run(layout, mcus, 1, data, carried, true)) << "round " << round;
    }
    some += fast.decoded > 0;
  }
  EXPECT_GT(some, rounds / 3);
}

// A table that lacks a symbol leaves it the code an earlier table gave it;
// filled later, that code takes part of a shorter code's entries: 0xF5's
// 12-bit 000000000010 inside 0x01's 00.  Each block: 0xF5 three times, 0x01
// fifteen times (to the last term).
TEST_F(JpegHuffman, ACodeLeftOverFromAnEarlierTableTakesPartOfAShorterOnesEntries) {
  const uint32_t img = PIX_JPEG_image_create();
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_Y8);
  Tjpeg& t = *static_cast<Tjpeg*>(PIX_image_get_ptr(img, PIX_PTR_TJPEG));
  PIX_JPEG_set_default_H_tables(img);
  PIX_JPEG_generate_H_codetable_LUTs(img);  // every code as the default tables give it
  std::fill_n(t.BITS[2], 16, 0), t.BITS[2][10] = t.BITS[2][11] = 1, t.HUFFVAL[2][0] = 0x00, t.HUFFVAL[2][1] = 0xF5;
  PIX_JPEG_generate_H_codetable_LUTs(img);
  std::fill_n(t.BITS[2], 16, 0), t.BITS[2][1] = 1, t.HUFFVAL[2][0] = 0x01;
  PIX_JPEG_generate_H_codetable_LUTs(img);
  ASSERT_EQ(PIX_JPEG_generate_Huffman_decode_tables(img), 0u);
  jpegref::Writer w;
  for (int b = 0; b < 64; ++b) {
    w.put(2, 0);  // DC difference 0
    for (int i = 0; i < 18; ++i) i < 3 ? w.put(17, 2u << 5 | (b + i) % 32) : w.put(3, (b + i) % 2);
  }
  Bytes data = w.bytes();
  data.insert(data.end(), 300, 0x55);  // the fast path stops short of the end
  const Outcome fast = run(Layout::grey, 8, 8, data, 0, false);
  EXPECT_EQ(fast, run(Layout::grey, 8, 8, data, 0, true));
  EXPECT_EQ(fast.decoded, 64u);
  EXPECT_EQ(fast.maps[0], 1ull << 16 | 1ull << 32 | 1ull << 48 | ((~0ull) << 49));
}

}  // namespace
