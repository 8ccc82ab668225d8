// Quantisation and Huffman tables: the standard's example tables, the
// tables made from a record's Q scale, and the coding tables derived from
// its Huffman tables.
#include "tables.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "core/image.h"
#include "core/status.h"

using namespace pix;
using namespace pix::jpeg;

namespace pix::jpeg {

const std::array<uint8_t, 64> kZigZag = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const std::array<uint8_t, 64> kInverseZigZag = [] {
  std::array<uint8_t, 64> inverse{};
  for (uint8_t i = 0; i < 64; ++i) inverse[kZigZag[i]] = i;
  return inverse;
}();

const std::array<uint16_t, 64> kLumaQuant = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

const std::array<uint16_t, 64> kChromaQuant = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

}  // namespace pix::jpeg

namespace {

struct DefaultTable {
  std::array<uint8_t, 16> bits;
  std::vector<uint8_t> values;
};

const DefaultTable& default_table(int slot) {
  static const DefaultTable tables[4] = {
      {{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {{0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d},
       {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22,
        0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33,
        0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34,
        0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55,
        0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76,
        0x77, 0x78, 0x79, 0x7a, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96,
        0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5,
        0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4,
        0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1,
        0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa}},
      {{0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77},
       {0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13,
        0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62,
        0x72, 0xd1, 0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29,
        0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54,
        0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75,
        0x76, 0x77, 0x78, 0x79, 0x7a, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94,
        0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3,
        0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2,
        0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea,
        0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa}},
  };
  return tables[slot];
}

// A slot's codes in the canonical order: code lengths taken from the counts
// of lengths 2..16 (kept: the count of 1-bit codes is never read, so a
// table cannot have one), codes counted up from 0 at the first length.
// Codes past the 256 values a slot holds, or that no longer fit their
// length, are dropped: a hostile table cannot reach outside the tables.
void derive_slot(const Tjpeg& record, int slot, std::array<SymbolCode, 256>& codes) {
  const uint8_t* bits = record.BITS[slot];
  const uint8_t* values = record.HUFFVAL[slot];
  uint32_t code = 0;
  int length = 0;
  unsigned k = 0;
  for (int l = 2; l <= 16 && k < 256; ++l) {
    for (unsigned n = 0; n < bits[l - 1] && k < 256; ++n, ++k) {
      if (length == 0) length = l;
      code <<= (l - length);
      length = l;
      if (code < (1u << l)) codes[values[k]] = {static_cast<uint16_t>(l), code};
      ++code;
    }
  }
}

// Whether a table made from the first N codes of `codes` must be made
// again; if so, `from` remembers them.
template <std::size_t N>
bool stale(CodingTables::Codes<N>& from, const std::array<SymbolCode, 256>& codes) {
  std::array<SymbolCode, N> now;
  std::copy_n(codes.begin(), N, now.begin());
  if (from == now) return false;
  from = now;
  return true;
}

// The whole DC difference for every difference: code, then extra bits.
void derive_differences(const std::array<SymbolCode, 256>& dc, std::array<DcPattern, 4095>& table,
                        CodingTables::Codes<12>& from) {
  if (!stale(from, dc)) return;
  for (int d = -kMaxDcDifference; d <= kMaxDcDifference; ++d) {
    const int c = category(d);
    const SymbolCode s = dc[c];
    const uint32_t extra = d > 0 ? static_cast<uint32_t>(d) : static_cast<uint32_t>(d - 1) & ((1u << c) - 1);
    const int total = s.length + c;
    const uint32_t bits = total == 0 ? 0 : ((s.code << c) | (c == 0 ? 0 : extra)) << (32 - total);
    table[d + kMaxDcDifference] = {static_cast<uint16_t>(total), bits};
  }
}

void derive_puts(const std::array<SymbolCode, 256>& codes, std::array<SymbolPut, 256>& table) {
  for (unsigned s = 0; s < 256; ++s) {
    const unsigned c = s & 15;
    table[s] = {codes[s].code << c, codes[s].length + c};
  }
}

// Fills the entries of `table` (indexed by the next `width` bits) that start
// with the symbol's code.  A symbol without a code, or with one longer than
// the table looks ahead, fills nothing.
void fill(std::vector<Lookahead>::iterator table, int width, const SymbolCode& s, uint8_t run, uint8_t category) {
  if (s.length == 0 || s.length > width) return;
  const uint32_t first = s.code << (width - s.length);
  std::fill_n(table + first, std::size_t{1} << (width - s.length), Lookahead{run, category, s.length});
}

template <std::size_t N>
void derive_dc_ahead(const std::array<SymbolCode, 256>& dc, std::array<Lookahead, N>& table, int width,
                     CodingTables::Codes<12>& from) {
  if (!stale(from, dc)) return;
  std::vector<Lookahead> t(N, Lookahead{0, kNoCode, 0});
  for (uint8_t c = 0; c <= 11; ++c) fill(t.begin(), width, dc[c], 0, c);
  std::copy(t.begin(), t.end(), table.begin());
}

void derive_ac_ahead(const std::array<SymbolCode, 256>& ac, std::vector<Lookahead>& table,
                     CodingTables::Codes<256>& from) {
  if (table.size() == std::size_t{1} << kAcBits && !stale(from, ac)) return;
  from.reset();  // until the table is whole again
  table.assign(std::size_t{1} << kAcBits, Lookahead{0, kNoCode, 0});
  for (uint8_t r = 0; r <= 15; ++r) {
    for (uint8_t c = 0; c <= 10; ++c) {
      // Category 0 is a symbol only as end of block (run 0) and sixteen zeros (run 15).
      if (c == 0 && r != 0 && r != 15) continue;
      fill(table.begin(), kAcBits, ac[r * 16 + c], r, c);
    }
  }
  from = ac;
}

bool colour(uint32_t handle) { return PIX_image_is_colour(handle) == 1; }

// The record of an existing image, or null with "Not a JPEG image" reported.
Tjpeg* record_or_report(uint32_t handle, const char* function, uint32_t& result) {
  const Image* img = find_image(handle);
  if (img == nullptr || img->jpeg == nullptr) {
    result = report(function, code::bad_handle, "Not a JPEG image");
    return nullptr;
  }
  return img->jpeg;
}

uint32_t set_q_scale(uint32_t handle, const char* function, bool in_range, uint16_t q) {
  uint32_t result = 0;
  Tjpeg* record = record_or_report(handle, function, result);
  if (record == nullptr) return result;
  if (!in_range) return report(function, code::bad_parameter, "Q factor of range");
  record->Q_scale = q;
  return 0;
}

}  // namespace

namespace pix::jpeg {

CodingTables& coding_tables() noexcept {
  static CodingTables tables;
  return tables;
}

void make_quant_tables(Tjpeg& record) noexcept {
  // The scale is rounded to single precision; the products of 16-bit bases
  // with it are exact in double precision.
  const float s = static_cast<float>(16.0 / record.Q_scale);
  const auto entry = [s](uint16_t base) {
    const double v = std::trunc(static_cast<double>(base) * static_cast<double>(s) + 0.5);
    return static_cast<uint8_t>(std::clamp(v, 0.0, 255.0));
  };
  for (int i = 0; i < 64; ++i) {
    record.Q_tables[0][i] = entry(kLumaQuant[kZigZag[i]]);
    record.Q_tables[1][i] = entry(kChromaQuant[kZigZag[i]]);
  }
  record.Nq = 2;
  record.Lq = 132;
  record.Tq[0] = 0;
  record.Tq[1] = record.Tq[2] = 1;
}

void set_default_huffman(Tjpeg& record) noexcept {
  for (int slot = 0; slot < 4; ++slot) {
    const DefaultTable& t = default_table(slot);
    std::memcpy(record.BITS[slot], t.bits.data(), 16);
    std::memcpy(record.HUFFVAL[slot], t.values.data(), t.values.size());
  }
  record.table_ids[0] = 0x00;
  record.table_ids[1] = 0x01;
  record.table_ids[2] = 0x10;
  record.table_ids[3] = 0x11;
  record.table_ids[4] = 255;
  record.DHT_length = 416;
}

void derive_symbol_codes(const Tjpeg& record, bool colour) noexcept {
  CodingTables& t = coding_tables();
  derive_slot(record, kDcLuma, t.dc_luma);
  derive_slot(record, kAcLuma, t.ac_luma);
  derive_differences(t.dc_luma, t.dc_luma_diff, t.dc_luma_diff_from);
  derive_puts(t.dc_luma, t.dc_luma_put);
  derive_puts(t.ac_luma, t.ac_luma_put);
  if (!colour) return;
  derive_slot(record, kDcChroma, t.dc_chroma);
  derive_slot(record, kAcChroma, t.ac_chroma);
  derive_differences(t.dc_chroma, t.dc_chroma_diff, t.dc_chroma_diff_from);
  derive_puts(t.dc_chroma, t.dc_chroma_put);
  derive_puts(t.ac_chroma, t.ac_chroma_put);
}

void derive_decode_tables(bool colour) {
  CodingTables& t = coding_tables();
  derive_dc_ahead(t.dc_luma, t.dc_luma_ahead, kDcLumaBits, t.dc_luma_ahead_from);
  derive_ac_ahead(t.ac_luma, t.ac_luma_ahead, t.ac_luma_ahead_from);
  if (!colour) return;
  derive_dc_ahead(t.dc_chroma, t.dc_chroma_ahead, kDcChromaBits, t.dc_chroma_ahead_from);
  derive_ac_ahead(t.ac_chroma, t.ac_chroma_ahead, t.ac_chroma_ahead_from);
}

}  // namespace pix::jpeg

extern "C" {

PIX_API uint32_t PIX_CALL PIX_JPEG_set_Quality_factor(uint32_t handle, uint16_t q) {
  return set_q_scale(handle, "PIX_JPEG_set_Quality_factor", q >= 1 && q <= 400, q);
}

PIX_API uint32_t PIX_CALL PIX_JPEG_set_Quantization_factor(uint32_t handle, uint16_t f) {
  const bool in_range = f >= 2 && f <= 800;
  const auto q = in_range ? static_cast<uint16_t>(50.0 / f * 16.0) : uint16_t{0};
  return set_q_scale(handle, "PIX_JPEG_set_Quantization_factor", in_range, q);
}

PIX_API uint32_t PIX_CALL PIX_JPEG_make_Q_tables(uint32_t handle) {
  uint32_t result = 0;
  Tjpeg* record = record_or_report(handle, "PIX_JPEG_make_Q_tables", result);
  if (record != nullptr) make_quant_tables(*record);
  return result;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_set_default_H_tables(uint32_t handle) {
  uint32_t result = 0;
  Tjpeg* record = record_or_report(handle, "PIX_JPEG_set_default_H_tables", result);
  if (record != nullptr) set_default_huffman(*record);
  return result;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_generate_H_codetable_LUTs(uint32_t handle) {
  uint32_t result = 0;
  Tjpeg* record = record_or_report(handle, "PIX_JPEG_generate_H_codetable_LUTs", result);
  if (record != nullptr) derive_symbol_codes(*record, colour(handle));
  return result;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_generate_Huffman_decode_tables(uint32_t handle) {
  static constexpr const char* kName = "PIX_JPEG_generate_Huffman_decode_tables";
  uint32_t result = 0;
  if (record_or_report(handle, kName, result) == nullptr) return result;
  try {
    derive_decode_tables(colour(handle));
  } catch (const std::bad_alloc&) {
    return report(kName, code::out_of_memory);
  }
  return 0;
}

}  // extern "C"
