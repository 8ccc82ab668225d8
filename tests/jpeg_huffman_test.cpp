// The Huffman pass's fast path against the byte-at-a-time rules alone (the
// pass with the fast path off) on random streams, carried buffers and tables
// (made after others, so that codes a table lacks are left over: filled
// later, such a code may take part of a shorter code's entries).
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "jpeg/huffman.h"
#include "jpeg/tables.h"
#include "jpeg_reference.h"
#include "test_support.h"

namespace {

using jpegref::Bytes;
using pix::jpeg::Layout;

struct Outcome {
  uint32_t result = 0, buffer = 0;
  uint64_t decoded = 0;
  std::vector<int64_t> store;     // the decoded blocks' terms, then their maps
  std::vector<std::string> said;  // the reports: function, code, message
  bool operator==(const Outcome&) const = default;
};

class JpegHuffman : public pixtest::LibraryTest {
 protected:
  Outcome run(Layout layout, uint64_t columns, uint64_t rows, const Bytes& data, uint32_t carried, bool exact) {
    const uint64_t blocks = columns * rows * pix::jpeg::shape(layout).blocks;
    std::vector<int16_t> out(blocks * 64 + 1, 0x5A5A);
    std::vector<uint64_t> maps(blocks + 1, ~uint64_t{0});
    std::vector<uint8_t> room;
    reports().clear();
    Outcome o;
    o.result = pix::jpeg::decode_huffman({data.data(), data.size(), layout, columns, rows, out.data(), maps.data(), exact},
                                         o.decoded, o.buffer = carried, room);
    std::size_t n = 0;
    for (uint64_t b = 0; b < o.decoded; ++b) n += 1 + static_cast<std::size_t>(std::popcount(maps[b]));
    o.store.assign(out.begin(), out.begin() + static_cast<long>(n));
    o.store.insert(o.store.end(), maps.begin(), maps.begin() + static_cast<long>(o.decoded));
    for (const auto& r : reports()) o.said.push_back(r.function + ' ' + std::to_string(r.code) + ' ' + r.message);
    return o;
  }
};

TEST_F(JpegHuffman, FastPathEqualsTheByteAtATimeRulesOnRandomStreams) {
  std::mt19937 rng(95);
  const uint32_t img = PIX_JPEG_image_create();
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, PIX_YUV422);
  Tjpeg& t = *static_cast<Tjpeg*>(PIX_image_get_ptr(img, PIX_PTR_TJPEG));
  const auto& lib = pix::jpeg::coding_tables();
  const std::array<pix::jpeg::SymbolCode, 256>* codes[4] = {&lib.dc_luma, &lib.dc_chroma, &lib.ac_luma, &lib.ac_chroma};
  for (int round = 0; round < 2500; ++round) {
    PIX_JPEG_set_default_H_tables(img);
    for (int slot = 0; slot < 4 && round % 40 >= 20; ++slot) {  // random symbols of lengths within the code space
      std::fill_n(t.BITS[slot], 16, 0);
      std::vector<std::pair<int, int>> by_length;  // length, symbol
      for (int s = 0, room = 1 << 16, l; s < (slot < 2 ? 13 : 256); ++s) {
        for (l = 2 + static_cast<int>(rng() % (rng() % 2 ? 6 : 15)); l <= 16 && (1 << (16 - l)) > room;) ++l;
        if (l <= 16 && rng() % 3 == 0) room -= 1 << (16 - l), by_length.push_back({l, s});
      }
      std::sort(by_length.begin(), by_length.end());
      for (std::size_t i = 0; i < by_length.size(); ++i)
        t.BITS[slot][by_length[i].first - 1]++, t.HUFFVAL[slot][i] = static_cast<uint8_t>(by_length[i].second);
    }
    PIX_JPEG_generate_H_codetable_LUTs(img);
    ASSERT_EQ(PIX_JPEG_generate_Huffman_decode_tables(img), 0u);
    const auto layout = static_cast<Layout>(rng() % 3);
    const uint64_t columns = 1 + rng() % 16, rows = 1 + rng() % 8, per_mcu = pix::jpeg::shape(layout).blocks;
    // Blocks of random symbols that have codes (the library's), values' bits
    // random; in some streams short codes more likely, or blocks ending at
    // the last term rather than with an end of block.
    jpegref::Writer w;
    const bool short_codes = round % 3 != 0, fill = round % 2 == 0;
    const auto symbol = [&](int slot, int run) {
      for (int tries = 0;; ++tries) {
        const int s = run < 0 || tries > 40 ? static_cast<int>(rng() % 256) : run << 4 | static_cast<int>(rng() % 11);
        const auto c = (*codes[slot])[s];
        if (c.length == 0 || (slot < 2 && s > 11) || (short_codes && c.length > 9 && tries < 8)) continue;
        w.put(c.length, c.code), w.put(s & 15, rng() & ((1u << (s & 15)) - 1));
        return s;
      }
    };
    for (uint64_t b = 0; b < columns * rows * per_mcu; ++b) {
      const int chroma = pix::jpeg::shape(layout).component[b % per_mcu] != 0;
      const auto eob = (*codes[2 + chroma])[0];
      symbol(chroma, -1);
      for (int k = 0, s; k < 63; k += s == 0 ? 63 : (s & 15) == 0 ? 16 : (s >> 4) + 1)
        s = !fill && eob.length != 0 && rng() % 6 == 0 ? (w.put(eob.length, eob.code), 0) : symbol(2 + chroma, fill && k >= 47 ? 62 - k : -1);
    }
    // Whole, cut short, with EOI, 0xFF and stuffed bytes put in, garbage, or bytes after the last block.
    Bytes data = w.bytes();
    static const Bytes kInserts[] = {{0xFF, 0xD9}, {0xFF}, {0xFF, 0x00}, {0xFF, 0xFF, 0xD9}, {0xD9}, {0xFF, 0xD9, 0xFF, 0xD9}};
    const unsigned damage = rng() % 5;
    if (damage == 1) data.resize(rng() % (data.size() + 1));
    for (int i = damage == 2 ? 1 + static_cast<int>(rng() % 4) : 0; i > 0; --i)
      data.insert(data.begin() + static_cast<long>(rng() % (data.size() + 1)), kInserts[(i + round) % 6].begin(), kInserts[(i + round) % 6].end());
    for (auto& byte : data) byte = damage == 3 ? rng() % 5 == 0 ? 0xFF : static_cast<uint8_t>(rng()) : byte;
    for (int i = 0; damage == 4 && i < 300; ++i) data.push_back(static_cast<uint8_t>(rng() % 255));
    // Both ways, whole and cut to fewer MCUs (the pass then ends anywhere in the data).
    const uint32_t carried = rng() % 2 ? 0 : static_cast<uint32_t>(rng());
    ASSERT_EQ(run(layout, columns, rows, data, carried, false), run(layout, columns, rows, data, carried, true)) << round;
    for (uint64_t cut = 0, mcus = 1 + rng() % (columns * rows); cut < 6; ++cut, mcus = 1 + rng() % (columns * rows))
      ASSERT_EQ(run(layout, mcus, 1, data, carried, false), run(layout, mcus, 1, data, carried, true)) << round;
  }
}

}  // namespace
