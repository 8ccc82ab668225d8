// The SIMD kernels of the YUV 4:2:2 converters against the scalar ones (which
// yuv_test checks against the colour formulas at every input): every (Y, U, V)
// triple, every RGB colour, rows of every length past the widest vector step,
// nothing touched outside either run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "convert/kernels/yuv.h"
#include "core/simd.h"

namespace {

using namespace pix::convert::kernels;
namespace simd = pix::simd;
using Row = YuvRow;  // the encoders' rows have the same shape
using Bytes = std::vector<uint8_t>;

constexpr std::size_t kDecodedBytes[] = {4, 4, 4, 4, 3, 3, 2, 2, 1};  // per pixel, YuvOut in enum order
struct Encoder { RgbIn in; std::size_t bytes; int r, g, b; };      // byte offsets of the colours
constexpr Encoder kEncoders[] = {{RgbIn::y8, 1, 0, 0, 0},     {RgbIn::rgb24, 3, 0, 1, 2},  {RgbIn::bgr24, 3, 2, 1, 0},
                                 {RgbIn::rgbx32, 4, 0, 1, 2}, {RgbIn::bgrx32, 4, 2, 1, 0}, {RgbIn::xbgr32, 4, 3, 2, 1}};
Row decoder(std::size_t i, simd::Level l) { return yuv422_row_simd(YuvOut(i), l); }
Row encoder(std::size_t i, simd::Level l) { return encode_row_simd(kEncoders[i].in, l); }

// In the sanitizer build a destination block ends with the run, so a byte
// written past it is caught there; elsewhere guard bytes follow and must come
// back unchanged.  Sweeps there take a seventh of the rows.
#ifdef PIX95_SANITIZED
constexpr std::size_t kGuard = 0;
constexpr unsigned kStride = 7;
#else
constexpr std::size_t kGuard = 64;
constexpr unsigned kStride = 1;
#endif

const std::vector<simd::Level>& levels() {
  static const std::vector<simd::Level> found = [] {
    std::vector<simd::Level> l;
    for (simd::Level level : {simd::Level::sse2, simd::Level::avx2, simd::Level::avx512}) {
      if (simd::supports(level)) l.push_back(level);
    }
    return l;
  }();
  return found;
}

// `src` through the scalar kernel and every SIMD one of a layout, each into a
// fresh block holding `before` whose run starts `before.size() - out - kGuard`
// bytes in (misaligned on purpose): every block must come out the same.
testing::AssertionResult same_as_scalar(Row scalar, Row (*simd)(std::size_t, simd::Level), std::size_t layout,
                                        const uint8_t* src, std::size_t pairs, std::size_t out, const Bytes& before) {
  const std::size_t off = before.size() - out - kGuard;
  Bytes want;
  for (std::size_t k = 0; k <= levels().size(); ++k) {
    const Row row = k == 0 ? scalar : simd(layout, levels()[k - 1]);
    // AVX-512 kernels exist where they pay; elsewhere that level runs the AVX2 one.
    if (row == nullptr && levels()[k - 1] == simd::Level::avx512) continue;
    if (row == nullptr) return testing::AssertionFailure() << "no kernel at level " << k;
    std::unique_ptr<uint8_t[]> block(new uint8_t[before.size()]);
    std::copy(before.begin(), before.end(), block.get());
    row(src, block.get() + off, pairs);
    if (k == 0) {
      want.assign(block.get(), block.get() + before.size());
      continue;
    }
    const std::size_t at = std::mismatch(want.begin(), want.end(), block.get()).first - want.begin();
    if (at != want.size()) {
      return testing::AssertionFailure() << "level " << k << ", " << pairs << " pairs: byte " << long(at) - long(off)
                                         << " of the run";
    }
  }
  return testing::AssertionSuccess();
}

// A cap names the highest level to use; the processor may offer less, and
// text that names no level caps nothing.
TEST(SimdLevels, CapsAndTheProcessorBoundTheLevel) {
  auto best_supported = [](simd::Level top) {
    while (top != simd::Level::scalar && !simd::supports(top)) top = simd::below(top);
    return top;
  };
  const std::pair<const char*, simd::Level> kCaps[] = {
      {"scalar", simd::Level::scalar}, {"sse2", simd::Level::sse2},     {"avx2", simd::Level::avx2},
      {"avx512", simd::Level::avx512}, {nullptr, simd::Level::avx512},  {"AVX2", simd::Level::avx512},
      {"", simd::Level::avx512},       {"avx", simd::Level::avx512}};
  for (const auto& [cap, top] : kCaps) {
    EXPECT_EQ(simd::best_up_to(cap), best_supported(top)) << (cap ? cap : "(none)");
  }
  EXPECT_TRUE(simd::supports(simd::Level::scalar));
  for (simd::Level l : {simd::Level::sse2, simd::Level::avx2, simd::Level::avx512}) {
    EXPECT_TRUE(!simd::supports(l) || simd::supports(simd::below(l))) << int(l);
  }
  EXPECT_EQ(simd::active(), simd::best_up_to(std::getenv("PIX95_SIMD")));
}

TEST(YuvSimdKernels, DecodeEveryTriple) {
  if (levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  // For each (U, V) one row of 256 pairs, Y0 = k and Y1 = 255 - k: every Y
  // meets every (U, V) on both sides of a pair.
  Bytes src(1024);
  for (unsigned uv = 0; uv < 65536; uv += kStride) {
    for (std::size_t k = 0; k < 256; ++k) {
      src[4 * k] = uint8_t(k), src[4 * k + 1] = uint8_t(uv >> 8), src[4 * k + 2] = uint8_t(255 - k), src[4 * k + 3] = uint8_t(uv);
    }
    for (std::size_t d = 0; d < std::size(kDecodedBytes); ++d) {
      const Bytes before(512 * kDecodedBytes[d] + kGuard, 0xC3);
      ASSERT_TRUE(same_as_scalar(yuv422_row_scalar(YuvOut(d)), decoder, d, src.data(), 256, 512 * kDecodedBytes[d], before))
          << "layout " << d << ": U " << (uv >> 8) << " V " << (uv & 255);
    }
  }
}

TEST(YuvSimdKernels, EncodeEveryColour) {
  if (levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  // For each (R, G) one row of 256 pairs, (R, G, k) beside (G, R, 255 - k):
  // every colour is a left and a right pixel once.  Grey sources: every pair
  // of greys.  The unused byte of 32-bit sources holds junk.
  for (std::size_t e = 0; e < std::size(kEncoders); ++e) {
    const Encoder& k = kEncoders[e];
    const bool grey = k.in == RgbIn::y8;
    const std::size_t pairs = grey ? 65536 : 256;
    const Bytes before(4 * pairs + kGuard, 0xC3);
    Bytes src(2 * k.bytes * pairs);
    for (unsigned rg = 0; rg < (grey ? 1 : 65536); rg += kStride) {
      const uint8_t r = uint8_t(rg >> 8), g = uint8_t(rg);
      for (std::size_t i = 0; i < pairs; ++i) {
        uint8_t *left = &src[2 * k.bytes * i], *right = left + k.bytes;
        if (grey) {
          left[0] = uint8_t(i >> 8), right[0] = uint8_t(i);
          continue;
        }
        if (k.bytes == 4) left[6 - k.r - k.g - k.b] = uint8_t(i * 7 + r), right[6 - k.r - k.g - k.b] = g;
        left[k.r] = r, left[k.g] = g, left[k.b] = uint8_t(i);
        right[k.r] = g, right[k.g] = r, right[k.b] = uint8_t(255 - i);
      }
      ASSERT_TRUE(same_as_scalar(encode_row_scalar(k.in), encoder, e, src.data(), pairs, 4 * pairs, before))
          << "encoder " << e << ": row " << rg;
    }
  }
}

// Rows of every length from 0 to 140 pairs (past two of the widest steps and
// the longest alignment head, with every tail), random bytes in and random
// bytes already in the destination, each run starting at any offset within a
// cache line.
TEST(YuvSimdKernels, RowsOfEveryLength) {
  if (levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  std::mt19937 rng(20240611);
  auto random_bytes = [&](std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = uint8_t(rng());
    return b;
  };
  for (std::size_t pairs = 0; pairs <= 140; ++pairs) {
    for (int rep = 0; rep < 4; ++rep) {
      for (std::size_t i = 0; i < std::size(kDecodedBytes) + std::size(kEncoders); ++i) {
        const bool decode = i < std::size(kDecodedBytes);
        const std::size_t layout = decode ? i : i - std::size(kDecodedBytes);
        const std::size_t in = decode ? 4 : 2 * kEncoders[layout].bytes, out = decode ? 2 * kDecodedBytes[i] : 4;
        const std::size_t in_off = rng() % 64;
        const Bytes src = random_bytes(in_off + in * pairs), before = random_bytes(rng() % 64 + out * pairs + kGuard);
        const Row scalar = decode ? yuv422_row_scalar(YuvOut(layout)) : encode_row_scalar(kEncoders[layout].in);
        ASSERT_TRUE(same_as_scalar(scalar, decode ? decoder : encoder, layout, src.data() + in_off, pairs, out * pairs, before))
            << (decode ? "decoder " : "encoder ") << layout;
      }
    }
  }
}

}  // namespace
