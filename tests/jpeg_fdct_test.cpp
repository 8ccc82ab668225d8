// The encoder's block kernels at every SIMD level this processor has
// against the scalar ones: raster lines to quantised zig-zag blocks and
// their non-zero masks, the forward DCT, and quantisation over every
// coefficient the DCT can give by every table entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "jpeg/kernels/encode.h"

namespace {

namespace k = pix::jpeg::kernels;
using pix::simd::Level;
using Block = std::array<int16_t, 64>;

std::vector<Level> levels() {
  std::vector<Level> list;
  for (Level l : {Level::sse2, Level::avx2, Level::avx512}) {
    if (pix::simd::supports(l)) list.push_back(l);
  }
  return list;
}

// Sample blocks (-128..127): flat extremes, checkerboards, for each basis
// function the extremes signed as it is (and the opposite: the largest
// value of every coefficient and sum), then random ones.
std::vector<Block> samples() {
  std::vector<Block> pool;
  for (int v : {-128, 127}) pool.push_back({}), pool.back().fill(static_cast<int16_t>(v));
  for (int phase = 0; phase < 2; ++phase) {
    Block b;
    for (int i = 0; i < 64; ++i) b[i] = ((i / 8 + i % 8 + phase) & 1) ? 127 : -128;
    pool.push_back(b);
  }
  for (int basis = 0; basis < 128; ++basis) {
    const int u = basis % 64 / 8, v = basis % 8;
    Block b;
    for (int i = 0; i < 64; ++i) {
      const double c = std::cos((2 * (i / 8) + 1) * u * std::numbers::pi / 16) * std::cos((2 * (i % 8) + 1) * v * std::numbers::pi / 16);
      b[i] = (c >= 0) == (basis < 64) ? 127 : -128;
    }
    pool.push_back(b);
  }
  std::mt19937 rng(95);
  for (int n = 0; n < 4000; ++n) {
    Block b;
    for (auto& s : b) s = static_cast<int16_t>(n % 2 ? (rng() & 1 ? 127 : -128) : static_cast<int>(rng() % 256) - 128);
    pool.push_back(b);
  }
  return pool;
}

// Tables: all 1 (the quantised block is the DCT's), all 0 (1 too, by
// another path), the base tables, and random entries.
std::vector<k::Quantiser> quantisers() {
  std::vector<k::Quantiser> list;
  std::mt19937 rng(422);
  for (int t = 0; t < 5; ++t) {
    uint8_t table[64];
    for (int i = 0; i < 64; ++i) {
      table[i] = t == 0 ? 1 : t == 1 ? 0 : t == 2 ? pix::jpeg::kLumaQuant[pix::jpeg::kZigZag[i]] & 255
                                          : t == 3 ? pix::jpeg::kChromaQuant[pix::jpeg::kZigZag[i]] & 255
                                                   : static_cast<uint8_t>(rng());
    }
    list.push_back(k::make_quantiser(table));
  }
  return list;
}

struct Coded {
  int16_t zz[4][64];
  uint64_t nonzero[4];
  bool operator==(const Coded& o) const {
    return std::equal(&zz[0][0], &zz[0][0] + 256, &o.zz[0][0]) && std::equal(nonzero, nonzero + 4, o.nonzero);
  }
};

TEST(JpegFdctKernels, EveryLevelCodesLinesAsTheScalarKernels) {
  const std::vector<Block> pool = samples();
  const std::vector<k::Quantiser> quant = quantisers();
  const k::BlockKernels scalar = k::block_kernels(Level::scalar);
  for (Level level : levels()) {
    const k::BlockKernels simd = k::block_kernels(level);
    for (std::size_t n = 0; n < pool.size(); n += 4) {
      // Four blocks from the pool side by side, after 8 pixels of others:
      // grey lines of 40 pixels, 4:2:2 lines (Y1 Y2, then U V) of 24.
      std::vector<uint8_t> grey(8 * 40, 0x5A), yuv(8 * 48, 0xA5);
      const Block* b[4];
      for (int i = 0; i < 4; ++i) b[i] = &pool[(n + i) % pool.size()];
      for (int r = 0; r < 8; ++r) {
        for (int c = 0; c < 32; ++c) grey[40 * r + 8 + c] = static_cast<uint8_t>((*b[c / 8])[8 * r + c % 8] + 128);
        for (int c = 0; c < 16; ++c) yuv[48 * r + 16 + 2 * c] = static_cast<uint8_t>((*b[c / 8])[8 * r + c % 8] + 128);
        for (int c = 0; c < 8; ++c) {
          yuv[48 * r + 17 + 4 * c] = static_cast<uint8_t>((*b[2])[8 * r + c] + 128);
          yuv[48 * r + 19 + 4 * c] = static_cast<uint8_t>((*b[3])[8 * r + c] + 128);
        }
      }
      const uint8_t* grey_lines[8];
      const uint8_t* yuv_lines[8];
      for (int r = 0; r < 8; ++r) grey_lines[r] = &grey[40 * r], yuv_lines[r] = &yuv[48 * r];
      const k::Quantiser& q1 = quant[n / 4 % quant.size()];
      const k::Quantiser& q2 = quant[(n / 4 + 1) % quant.size()];
      Coded want, got;
      scalar.grey_4(grey_lines, 8, q1, want.zz, want.nonzero);
      simd.grey_4(grey_lines, 8, q1, got.zz, got.nonzero);
      ASSERT_TRUE(got == want) << "grey, level " << int(level) << ", blocks from " << n;
      scalar.mcu_422(yuv_lines, 8, q1, q2, want.zz, want.nonzero);
      simd.mcu_422(yuv_lines, 8, q1, q2, got.zz, got.nonzero);
      ASSERT_TRUE(got == want) << "4:2:2, level " << int(level) << ", blocks from " << n;
      // The one-block kernels the tail of a grey row takes.
      for (int i = 0; i < 4; ++i) {
        Block a = *b[i], c = *b[i];
        scalar.fdct(a.data());
        simd.fdct(c.data());
        ASSERT_EQ(a, c) << "level " << int(level) << ", block " << n + i;
        got.nonzero[i] = simd.quantise(a.data(), got.zz[i], q2);
        ASSERT_EQ(got.nonzero[i], scalar.quantise(a.data(), want.zz[i], q2));
        ASSERT_TRUE(std::equal(got.zz[i], got.zz[i] + 64, want.zz[i])) << "level " << int(level) << ", block " << n + i;
      }
    }
  }
}

TEST(JpegFdctKernels, QuantisationIsExactOnEveryLevelForEveryEntryAndCoefficient) {
  // Every coefficient -4095..4095 (beyond all the DCT gives) by every entry:
  // the 16-bit reciprocals divide exactly where the 32-bit ones do.
  std::vector<Level> all = levels();
  all.insert(all.begin(), Level::scalar);
  for (int entry = 0; entry < 256; ++entry) {
    uint8_t table[64];
    std::fill(table, table + 64, static_cast<uint8_t>(entry));
    const k::Quantiser q = k::make_quantiser(table);
    const int divisor = std::max(entry, 1), half = entry / 2;
    for (int c0 = -4095; c0 <= 4095; c0 += 64) {
      Block b;
      for (int n = 0; n < 64; ++n) b[n] = static_cast<int16_t>(std::min(c0 + n, 4095));
      for (Level level : all) {
        int16_t zz[64];
        const uint64_t nonzero = k::block_kernels(level).quantise(b.data(), zz, q);
        for (int i = 0; i < 64; ++i) {
          const int c = b[pix::jpeg::kZigZag[i]], want = (c > 0 ? c + half : c - half) / divisor;
          ASSERT_EQ(zz[i], want) << "level " << int(level) << ", entry " << entry << ", c " << c;
          ASSERT_EQ(nonzero >> i & 1, uint64_t{want != 0}) << "level " << int(level);
        }
      }
    }
  }
}

}  // namespace
