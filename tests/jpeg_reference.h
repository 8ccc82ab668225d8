// References shared by the JPEG tests, written from the coding rules and not
// from the library: canonical Huffman codes from a table's counts, and a bit
// writer that codes blocks a bit at a time with 0xFF stuffing.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "pix95.h"

namespace jpegref {

using Bytes = std::vector<uint8_t>;
using Codes = std::array<std::pair<int, uint32_t>, 256>;  // symbol -> length, code (length 0: none)

// The canonical codes of a slot: counts of lengths 2..16 (the library never
// reads the count of 1-bit codes), codes counted up and doubled at each length.
inline Codes codes_of(const Tjpeg& t, int slot) {
  Codes out{};
  uint32_t code = 0;
  for (int l = 2, k = 0; l <= 16; ++l, code <<= 1)
    for (int n = 0; n < t.BITS[slot][l - 1]; ++n) out[t.HUFFVAL[slot][k++]] = {l, code++};
  return out;
}

// The number of bits of |v|: a value's category.
inline int cat(int v) { return v == 0 ? 0 : 1 + cat(std::abs(v) / 2); }

// Bits in, bytes out; each 0xFF byte is followed by a stuffed 0x00.
struct Writer {
  Bytes out;
  uint32_t acc = 0;
  int n = 0;
  uint64_t total = 0;  // bits put
  void put(int len, uint32_t bits) {
    for (int i = len - 1; i >= 0; --i, ++total) {
      acc = acc << 1 | ((bits >> i) & 1);
      if (++n < 8) continue;
      out.push_back(static_cast<uint8_t>(acc)), n = 0, acc = 0;
      if (out.back() == 0xFF) out.push_back(0);
    }
  }
  // A symbol's code and its value's category bits (negative values as v - 1).
  void sym(const Codes& c, int s, int v = 0) {
    if (c[s].first == 0) ADD_FAILURE() << "symbol " << s << " has no code";
    put(c[s].first, c[s].second);
    put(s & 15, static_cast<uint32_t>(v > 0 ? v : v - 1) & ((1u << (s & 15)) - 1));
  }
  // One block in zig-zag order, b[0] the DC difference: runs of sixteen
  // zeros, and an end of block unless coefficient 63 is not zero.
  template <class Block>
  void block(const Block& b, const Codes& dc, const Codes& ac) {
    sym(dc, cat(b[0]), b[0]);
    for (int k = 1, run = 0; k < 64; ++k, ++run) {
      if (b[k] == 0) {
        if (k == 63) sym(ac, 0);
        continue;
      }
      for (; run >= 16; run -= 16) sym(ac, 0xF0);
      sym(ac, run * 16 + cat(b[k]), b[k]), run = -1;
    }
  }
  // The stream's end: 1 bits to a byte boundary (the standard's fill), or the
  // library's: nothing after a whole 32-bit word, else zeros and a last 1 bit
  // that is the low bit of a byte (a byte 0x01 after a byte boundary).
  Bytes bytes(bool ones = true) {
    if (ones) {
      while (n != 0) put(1, 1);
    } else if (total % 32 != 0) {
      while (n != 7) put(1, 0);
      put(1, 1);
    }
    return out;
  }
};

// "" when equal, else where two byte strings first differ.
inline std::string difference(const Bytes& a, const Bytes& b) {
  if (a == b) return "";
  const auto at = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
  return "sizes " + std::to_string(a.size()) + " and " + std::to_string(b.size()) + ", first difference at byte " +
         std::to_string(at);
}

}  // namespace jpegref
