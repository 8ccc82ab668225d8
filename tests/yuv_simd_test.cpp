// The SIMD kernels of the YUV 4:2:2 converters against the scalar ones: every
// (Y, U, V) triple, every RGB colour, rows of every length past the widest
// vector step, nothing touched outside either run.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "convert/kernels/yuv.h"
#include "core/cpu.h"

using namespace pix::convert;
using kernels::RgbIn;
using kernels::YuvOut;
namespace cpu = pix::cpu;

namespace {

struct Decoder {
  YuvOut out;
  const char* name;
  std::size_t bytes;  // per pixel
};
constexpr Decoder kDecoders[] = {  // in enum order
    {YuvOut::rgbx32, "RGBX32", 4}, {YuvOut::bgrx32, "BGRX32", 4}, {YuvOut::xbgr32, "XBGR32", 4},
    {YuvOut::xrgb32, "XRGB32", 4}, {YuvOut::rgb24, "RGB24", 3},   {YuvOut::bgr24, "BGR24", 3},
    {YuvOut::rgb16, "RGB16", 2},   {YuvOut::rgb15, "RGB15", 2},   {YuvOut::y8, "Y8", 1},
};

struct Encoder {
  RgbIn in;
  const char* name;
  std::size_t bytes;  // per pixel
  int r, g, b;        // byte offsets of the colours within a pixel
};
constexpr Encoder kEncoders[] = {  // in enum order
    {RgbIn::y8, "Y8", 1, 0, 0, 0},         {RgbIn::rgb24, "RGB24", 3, 0, 1, 2},   {RgbIn::bgr24, "BGR24", 3, 2, 1, 0},
    {RgbIn::rgbx32, "RGBX32", 4, 0, 1, 2}, {RgbIn::bgrx32, "BGRX32", 4, 2, 1, 0}, {RgbIn::xbgr32, "XBGR32", 4, 3, 2, 1},
};

// The scalar kernels are the reference: yuv_test checks them against the
// colour formulas written out there, at every input.
kernels::YuvRow decode_reference(std::size_t i) { return kernels::yuv422_row_scalar(kDecoders[i].out); }
kernels::EncodeRow encode_reference(std::size_t i) { return kernels::encode_row_scalar(kEncoders[i].in); }

// --- helpers ---------------------------------------------------------------------

struct Level { cpu::Level level; const char* name; };
std::vector<Level> simd_levels() {
  std::vector<Level> levels;
  if (cpu::supports(cpu::Level::sse2)) levels.push_back({cpu::Level::sse2, "sse2"});
  if (cpu::supports(cpu::Level::avx2)) levels.push_back({cpu::Level::avx2, "avx2"});
  return levels;
}

// The reference and every SIMD kernel of one layout, the reference first.
template <class Row>
std::vector<std::pair<const char*, Row>> implementations(Row reference, Row (*simd)(std::size_t, cpu::Level),
                                                         std::size_t layout) {
  std::vector<std::pair<const char*, Row>> rows{{"reference", reference}};
  for (const Level& l : simd_levels()) rows.emplace_back(l.name, simd(layout, l.level));
  return rows;
}
kernels::YuvRow decoder_at(std::size_t i, cpu::Level l) { return kernels::yuv422_row_simd(kDecoders[i].out, l); }
kernels::EncodeRow encoder_at(std::size_t i, cpu::Level l) { return kernels::encode_row_simd(kEncoders[i].in, l); }

std::size_t first_difference(const uint8_t* a, const uint8_t* b, std::size_t n) {
  if (n == 0 || std::memcmp(a, b, n) == 0) return n;
  std::size_t i = 0;
  while (a[i] == b[i]) ++i;
  return i;
}

// A run `offset` bytes into a heap block (misaligned on purpose).  In the
// sanitizer build the block ends with the run, so a byte read or written past
// it is caught there; elsewhere guard bytes follow and must come back
// unchanged.
#ifdef PIX95_SANITIZED
constexpr std::size_t kGuard = 0;
#else
constexpr std::size_t kGuard = 64;
#endif
struct Block {
  std::size_t offset, size;
  std::unique_ptr<uint8_t[]> bytes;
  Block(std::size_t n, std::size_t off) : offset(off), size(off + n + kGuard), bytes(new uint8_t[size]) {}
  uint8_t* run() { return bytes.get() + offset; }
};

// Rows of every length from 0 to 70 pairs, random bytes in and random bytes
// already in the destination: each kernel leaves exactly the reference's
// bytes in the whole block.
template <class Row>
void check_rows(const char* layout, const std::vector<std::pair<const char*, Row>>& rows, std::size_t in_per_pair,
                std::size_t out_per_pair, std::mt19937& rng) {
  for (std::size_t pairs = 0; pairs <= 70; ++pairs) {
    for (int rep = 0; rep < 4; ++rep) {
      Block src(in_per_pair * pairs, rng() % 4);
      for (std::size_t i = 0; i < src.size; ++i) src.bytes[i] = static_cast<uint8_t>(rng());
      const std::size_t off = rng() % 4;
      std::vector<uint8_t> before(off + out_per_pair * pairs + kGuard), want;
      for (auto& b : before) b = static_cast<uint8_t>(rng());
      for (const auto& [name, row] : rows) {
        ASSERT_NE(row, nullptr) << layout << " " << name;
        Block dst(out_per_pair * pairs, off);
        if (dst.size != 0) std::memcpy(dst.bytes.get(), before.data(), dst.size);
        row(src.run(), dst.run(), pairs);
        if (want.empty()) {
          want.assign(dst.bytes.get(), dst.bytes.get() + dst.size);  // the reference runs first
          continue;
        }
        const std::size_t at = first_difference(dst.bytes.get(), want.data(), dst.size);
        ASSERT_EQ(at, dst.size) << layout << " " << name << ", " << pairs << " pairs: byte "
                                << static_cast<long>(at) - static_cast<long>(off) << " of the run";
      }
    }
  }
}

// --- tests -------------------------------------------------------------------------

TEST(YuvSimdKernels, DecodeIntoTheDocumentedLayouts) {
  // Pair Y0 = 100, U = 64, Y1 = 250, V = 200: u = -64, v = 72, so the left
  // pixel is (200, 70, 0) (blue clamped from -14) and the right one
  // (255, 220, 136) (red clamped from 350).  -1: the unused byte, untouched.
  const std::vector<int> expected[] = {
      {200, 70, 0, -1, 255, 220, 136, -1}, {0, 70, 200, -1, 136, 220, 255, -1}, {-1, 0, 70, 200, -1, 136, 220, 255},
      {-1, 200, 70, 0, -1, 255, 220, 136}, {200, 70, 0, 255, 220, 136},         {0, 70, 200, 136, 220, 255},
      {0x20, 0xCA, 0xF1, 0xFE},            {0x00, 0x65, 0x71, 0x7F},            {100, 250},
  };
  constexpr std::size_t kPairs = 37;  // vector steps and a tail
  std::vector<uint8_t> src;
  for (std::size_t i = 0; i < kPairs; ++i) src.insert(src.end(), {100, 64, 250, 200});
  for (std::size_t k = 0; k < std::size(kDecoders); ++k) {
    for (const auto& [name, row] : implementations(decode_reference(k), decoder_at, k)) {
      ASSERT_NE(row, nullptr) << kDecoders[k].name << " " << name;
      const std::vector<int>& pair = expected[k];
      std::vector<uint8_t> dst(kPairs * pair.size(), 0x5A);
      row(src.data(), dst.data(), kPairs);
      for (std::size_t i = 0; i < dst.size(); ++i) {
        const int want = pair[i % pair.size()] < 0 ? 0x5A : pair[i % pair.size()];
        ASSERT_EQ(dst[i], want) << kDecoders[k].name << " " << name << " byte " << i;
      }
    }
  }
}

TEST(YuvSimdKernels, EncodeTheDocumentedValues) {
  // White stays white with neutral chroma; pure red beside pure blue gives
  // Y 76 and 29 and the truncated means of U (84, 255) and V (255, 107);
  // greys keep their level with neutral chroma.
  struct Case {
    uint8_t left[3], right[3];  // R, G, B
    uint8_t pair[4];
  };
  const Case cases[] = {
      {{255, 255, 255}, {255, 255, 255}, {255, 128, 255, 128}},
      {{255, 0, 0}, {0, 0, 255}, {76, 169, 29, 181}},
      {{200, 200, 200}, {7, 7, 7}, {200, 128, 7, 128}},
  };
  constexpr std::size_t kPairs = 37;
  for (std::size_t k = 0; k < std::size(kEncoders); ++k) {
    const Encoder& e = kEncoders[k];
    for (const Case& c : cases) {
      if (e.in == RgbIn::y8 && c.left[0] != c.left[1]) continue;  // greys only
      std::vector<uint8_t> src(2 * e.bytes * kPairs, 0x99);
      for (std::size_t p = 0; p < 2 * kPairs; ++p) {
        const uint8_t* rgb = p % 2 == 0 ? c.left : c.right;
        src[p * e.bytes + e.r] = rgb[0], src[p * e.bytes + e.g] = rgb[1], src[p * e.bytes + e.b] = rgb[2];
      }
      for (const auto& [name, row] : implementations(encode_reference(k), encoder_at, k)) {
        ASSERT_NE(row, nullptr) << e.name << " " << name;
        std::vector<uint8_t> dst(4 * kPairs);
        row(src.data(), dst.data(), kPairs);
        for (std::size_t i = 0; i < dst.size(); ++i) ASSERT_EQ(dst[i], c.pair[i % 4]) << e.name << " " << name << " byte " << i;
      }
    }
  }
}

#ifdef PIX95_SANITIZED
constexpr unsigned kStride = 7;  // a seventh of the rows, every value of both bytes; the release build runs all
#else
constexpr unsigned kStride = 1;
#endif

TEST(YuvSimdKernels, DecodeEveryTriple) {
  if (simd_levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  // For each (U, V) one row of 256 pairs, Y0 = k and Y1 = 255 - k: every Y
  // meets every (U, V) on both sides of a pair.
  constexpr std::size_t kPairs = 256;
  std::vector<uint8_t> src(4 * kPairs), want(8 * kPairs), got(want.size());
  for (unsigned uv = 0; uv < 65536; uv += kStride) {
    for (std::size_t k = 0; k < kPairs; ++k) {
      src[4 * k] = static_cast<uint8_t>(k), src[4 * k + 1] = static_cast<uint8_t>(uv >> 8);
      src[4 * k + 2] = static_cast<uint8_t>(255 - k), src[4 * k + 3] = static_cast<uint8_t>(uv);
    }
    for (std::size_t d = 0; d < std::size(kDecoders); ++d) {
      const std::size_t n = 2 * kDecoders[d].bytes * kPairs;
      std::memset(want.data(), 0xC3, n);
      decode_reference(d)(src.data(), want.data(), kPairs);
      for (const Level& l : simd_levels()) {
        const kernels::YuvRow row = decoder_at(d, l.level);
        ASSERT_NE(row, nullptr) << kDecoders[d].name << " " << l.name;
        std::memset(got.data(), 0xC3, n);
        row(src.data(), got.data(), kPairs);
        const std::size_t at = first_difference(got.data(), want.data(), n);
        ASSERT_EQ(at, n) << kDecoders[d].name << " " << l.name << ": U " << (uv >> 8) << " V " << (uv & 255)
                         << " pair " << at / (2 * kDecoders[d].bytes);
      }
    }
  }
}

TEST(YuvSimdKernels, EncodeEveryColour) {
  if (simd_levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  // For each (R, G) one row of 256 pairs, (R, G, k) beside (G, R, 255 - k):
  // every colour is a left and a right pixel once.  Grey sources: every pair
  // of greys.  The unused byte of 32-bit sources holds junk.
  for (std::size_t e = 0; e < std::size(kEncoders); ++e) {
    const Encoder& k = kEncoders[e];
    const bool grey = k.in == RgbIn::y8;
    const std::size_t pairs = grey ? 65536 : 256;
    std::vector<uint8_t> src(2 * k.bytes * pairs), want(4 * pairs), got(4 * pairs);
    for (unsigned rg = 0; rg < (grey ? 1 : 65536); rg += kStride) {
      const uint8_t r = static_cast<uint8_t>(rg >> 8), g = static_cast<uint8_t>(rg);
      for (std::size_t i = 0; i < pairs; ++i) {
        uint8_t* left = &src[2 * k.bytes * i];
        uint8_t* right = left + k.bytes;
        if (grey) {
          left[0] = static_cast<uint8_t>(i >> 8), right[0] = static_cast<uint8_t>(i);
          continue;
        }
        if (k.bytes == 4) left[6 - k.r - k.g - k.b] = static_cast<uint8_t>(i * 7 + r), right[6 - k.r - k.g - k.b] = g;
        left[k.r] = r, left[k.g] = g, left[k.b] = static_cast<uint8_t>(i);
        right[k.r] = g, right[k.g] = r, right[k.b] = static_cast<uint8_t>(255 - i);
      }
      encode_reference(e)(src.data(), want.data(), pairs);
      for (const Level& l : simd_levels()) {
        const kernels::EncodeRow row = encoder_at(e, l.level);
        ASSERT_NE(row, nullptr) << k.name << " " << l.name;
        row(src.data(), got.data(), pairs);
        const std::size_t at = first_difference(got.data(), want.data(), got.size());
        ASSERT_EQ(at, got.size()) << k.name << " " << l.name << ": row " << rg << " pair " << at / 4;
      }
    }
  }
}

TEST(YuvSimdKernels, RowsOfEveryLength) {
  if (simd_levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  std::mt19937 rng(20240611);
  for (std::size_t d = 0; d < std::size(kDecoders); ++d) {
    check_rows(kDecoders[d].name, implementations(decode_reference(d), decoder_at, d), 4, 2 * kDecoders[d].bytes, rng);
  }
  for (std::size_t e = 0; e < std::size(kEncoders); ++e) {
    check_rows(kEncoders[e].name, implementations(encode_reference(e), encoder_at, e), 2 * kEncoders[e].bytes, 4, rng);
  }
}

}  // namespace
