// The codec's tables: the standard's example quantisation and Huffman
// tables, the zig-zag order, and the fast coding tables derived from a
// record's Huffman tables.  The derived tables are library-wide (the last
// image that generated them wins), as applications that interleave their
// own table generation with coding expect.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "pix95.h"

namespace pix::jpeg {

// Natural (row-major) index of the coefficient at each zig-zag position.
extern const std::array<uint8_t, 64> kZigZag;
// Zig-zag position of each natural index.
extern const std::array<uint8_t, 64> kInverseZigZag;

// Base quantisation tables, natural order: luminance and chrominance.
extern const std::array<uint16_t, 64> kLumaQuant;
extern const std::array<uint16_t, 64> kChromaQuant;

// Huffman slots of a record: DC luminance, DC chrominance, AC luminance,
// AC chrominance, whatever its table-id list says.
enum Slot : int { kDcLuma = 0, kDcChroma = 1, kAcLuma = 2, kAcChroma = 3 };

// A symbol's code, right-aligned; length 0 when the symbol has none yet.
struct SymbolCode {
  uint16_t length = 0;
  uint32_t code = 0;
  friend bool operator==(const SymbolCode&, const SymbolCode&) = default;
};
// A whole DC difference (code and extra bits), left-aligned in 32 bits.
struct DcPattern {
  uint16_t length = 0;
  uint32_t bits = 0;
};
// A symbol's code as the encoder puts it: shifted left by the symbol's
// category c (its low 4 bits), with its length plus c, so that the
// category's extra bits OR-ed into `code` make a single value.
struct SymbolPut {
  uint32_t code = 0;
  uint32_t length = 0;
};
// What the next bits of a stream start with: run and category of a code
// (category kNoCode: none matches) and the code's length.
struct Lookahead {
  uint8_t run = 0;
  uint8_t category = 0;
  uint16_t length = 0;
};
inline constexpr uint8_t kNoCode = 255;

inline constexpr int kDcLumaBits = 9;
inline constexpr int kDcChromaBits = 11;
inline constexpr int kAcBits = 16;
inline constexpr int kMaxDcDifference = 2047;

// The library-wide derived tables.  Symbol codes start zeroed and are
// overwritten symbol by symbol, never cleared (kept: a table that lacks a
// symbol leaves the code an earlier image gave it).
struct CodingTables {
  // Indexed by symbol; DC tables use categories 0..11 only, but stream
  // tables may name any byte.
  std::array<SymbolCode, 256> dc_luma{}, dc_chroma{}, ac_luma{}, ac_chroma{};
  // Indexed by difference + 2047.
  std::array<DcPattern, 2 * kMaxDcDifference + 1> dc_luma_diff{}, dc_chroma_diff{};
  // The encoder's form of the symbol codes.
  std::array<SymbolPut, 256> dc_luma_put{}, dc_chroma_put{}, ac_luma_put{}, ac_chroma_put{};
  std::array<Lookahead, 1 << kDcLumaBits> dc_luma_ahead{};
  std::array<Lookahead, 1 << kDcChromaBits> dc_chroma_ahead{};
  // 65536 entries each, made at the first generation of decoding tables.
  std::vector<Lookahead> ac_luma_ahead, ac_chroma_ahead;

  // The codes each derived table was last made from: a table whose codes
  // have not changed is not made again (every frame of a stream generates
  // its tables, and the 65536-entry ones would cost a small frame a tenth
  // of its decoding time).
  template <std::size_t N>
  using Codes = std::optional<std::array<SymbolCode, N>>;
  Codes<12> dc_luma_diff_from, dc_chroma_diff_from, dc_luma_ahead_from, dc_chroma_ahead_from;
  Codes<256> ac_luma_ahead_from, ac_chroma_ahead_from;
};
CodingTables& coding_tables() noexcept;

// The number of bits of |v| (0 for 0): the category of a coefficient.
constexpr int category(int32_t v) {
  uint32_t a = v < 0 ? static_cast<uint32_t>(-static_cast<int64_t>(v)) : static_cast<uint32_t>(v);
  int n = 0;
  while (a != 0) ++n, a >>= 1;
  return n;
}

// The pieces of the exported table functions, on a record.
void make_quant_tables(Tjpeg& record) noexcept;
void set_default_huffman(Tjpeg& record) noexcept;
void derive_symbol_codes(const Tjpeg& record, bool colour) noexcept;
void derive_decode_tables(bool colour);

}  // namespace pix::jpeg
