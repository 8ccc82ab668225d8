// The JPEG decoder's SIMD block kernels (inverse DCT and placing) against the
// scalar ones, at every level this processor runs: MCUs of randomly mixed
// blocks (realistic, hostile 16-bit values, extremes, DC only over a wide
// range, single AC terms, columns with no AC and a negative DC), every table
// kind, through all three layouts, with the bytes around the lines checked too.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <random>
#include <vector>

#include "core/simd.h"
#include "jpeg/kernels/idct.h"

namespace {

using namespace pix::jpeg::kernels;
namespace simd = pix::simd;

struct Mcu {
  int16_t coef[6][64];
  int32_t dc[6];
  uint64_t nonzero[6];
  uint16_t q[2][64];
};

constexpr std::ptrdiff_t kStride = 112;  // room on both sides of every layout's lines

// Every layout at `level` and at scalar: the same bytes, lines and surroundings.
void expect_same(simd::Level level, const Mcu& m, std::size_t grey_blocks) {
  BlockIn in[6];
  for (int b = 0; b < 6; ++b) in[b] = {m.coef[b], m.dc[b], m.nonzero[b]};
  const IdctKernels ref = idct_kernels(simd::Level::scalar), got = idct_kernels(level);
  std::vector<uint8_t> a(16 * kStride, 0x5A), b(a);
  ref.grey(in, grey_blocks, m.q[0], a.data() + 8, kStride);
  got.grey(in, grey_blocks, m.q[0], b.data() + 8, kStride);
  ref.yuv422(in, m.q[0], m.q[1], a.data() + 8 * kStride + 8, kStride);
  got.yuv422(in, m.q[0], m.q[1], b.data() + 8 * kStride + 8, kStride);
  ASSERT_EQ(a, b) << "grey or 4:2:2 at level " << int(level);
  ref.yuv411(in, m.q[0], m.q[1], a.data() + 72, kStride);
  got.yuv411(in, m.q[0], m.q[1], b.data() + 72, kStride);
  ASSERT_EQ(a, b) << "2x2 at level " << int(level);
}

std::vector<simd::Level> levels() {
  std::vector<simd::Level> l;
  for (auto level : {simd::Level::sse2, simd::Level::avx2, simd::Level::avx512}) {
    if (simd::supports(level)) l.push_back(level);
  }
  return l;
}

// The mask of the nonzero AC terms, plus (sometimes) bits for zero ones.
uint64_t mask_of(const int16_t* c, std::mt19937& rng) {
  uint64_t m = rng() % 4 == 0 ? (uint64_t{rng()} << 32 | rng()) : 0;
  for (int k = 0; k < 64; ++k) m |= uint64_t{c[k] != 0} << k;
  return m;
}

void random_block(Mcu& m, int b, std::mt19937& rng) {
  int16_t* c = m.coef[b];
  std::fill(c, c + 64, int16_t{0});
  const auto any16 = [&] { return static_cast<int16_t>(rng()); };
  switch (rng() % 7) {
    case 0:  // realistic: a few small terms, mostly low frequencies
      for (int n = rng() % 12; n > 0; --n) c[rng() % (rng() % 2 ? 16 : 64)] = static_cast<int16_t>(int(rng() % 401) - 200);
      break;
    case 1: for (int k = 0; k < 64; ++k) c[k] = rng() % 3 ? 0 : any16(); break;
    case 2: for (int k = 0; k < 64; ++k) c[k] = rng() % 2 ? 32767 : -32768; break;
    case 3: break;  // DC only
    case 4: c[1 + rng() % 63] = any16(); break;
    case 5:  // row 0 only: every column's AC terms zero, negative column DCs
      for (int k = 1; k < 8; ++k) c[k] = static_cast<int16_t>(-int(rng() % 3000));
      break;
    default: for (int k = 0; k < 64; ++k) c[k] = static_cast<int16_t>(int(rng() % 31) - 15); break;
  }
  switch (rng() % 4) {
    case 0: m.dc[b] = static_cast<int32_t>(rng()); break;
    case 1: m.dc[b] = std::array<int32_t, 4>{INT32_MIN, INT32_MAX, 0, -1}[rng() % 4]; break;
    default: m.dc[b] = int(rng() % 4096) - 2048; break;
  }
  m.nonzero[b] = mask_of(c, rng);
}

void random_table(uint16_t* q, std::mt19937& rng) {
  const unsigned kind = rng() % 5;
  for (int k = 0; k < 64; ++k) {
    q[k] = kind == 0 ? uint16_t(rng()) : kind == 1 ? 65535 : kind == 2 ? uint16_t(1 + rng() % 8) : uint16_t(1 + rng() % 255);
  }
}

TEST(JpegIdct, RandomMcusMatchScalar) {
  std::mt19937 rng(12345);
  for (const auto level : levels()) {
    for (int i = 0; i < 30000; ++i) {
      Mcu m{};
      for (int b = 0; b < 6; ++b) random_block(m, b, rng);
      random_table(m.q[0], rng), random_table(m.q[1], rng);
      if (rng() % 2) std::copy(m.q[0], m.q[0] + 64, m.q[1]);
      expect_same(level, m, 1 + rng() % 6);
      if (HasFatalFailure()) return;
    }
  }
}

// Swept rather than drawn: DC values across a wide range with every AC term
// zero (and with one column's row 0 negative), and each AC term alone at
// values at and near the limits.
TEST(JpegIdct, SweepsMatchScalar) {
  std::mt19937 rng(7);
  for (const auto level : levels()) {
    for (const uint16_t q0 : {1, 2, 16, 255, 65535}) {
      Mcu m{};
      std::fill(&m.q[0][0], &m.q[0][0] + 128, q0);
      for (int32_t dc = -70000; dc <= 70000; dc += 6 * 7) {
        for (int b = 0; b < 6; ++b) {
          std::fill(m.coef[b], m.coef[b] + 64, int16_t{0});
          m.dc[b] = dc + 7 * b;
          if (b == 5) m.coef[b][1 + (dc & 3)] = static_cast<int16_t>(-(dc & 1023));
          m.nonzero[b] = mask_of(m.coef[b], rng);
        }
        expect_same(level, m, 6);
        if (HasFatalFailure()) return;
      }
    }
    for (int k = 1; k < 64; ++k) {
      for (const int16_t v : {1, -1, 1000, -1000, 8191, -8192, 32767, -32768}) {
        for (const uint16_t q : {1, 4, 255, 65535}) {
          Mcu m{};
          std::fill(&m.q[0][0], &m.q[0][0] + 128, q);
          for (int b = 0; b < 6; ++b) m.coef[b][k] = v, m.dc[b] = b * 300 - 900, m.nonzero[b] = uint64_t{1} << k;
          expect_same(level, m, 6);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

}  // namespace
