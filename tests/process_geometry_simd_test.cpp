// The SIMD kernels of the geometric operations against the scalar ones (which
// process_geometry_test checks against the formulas): both scale passes for
// every pair of samples and every weight, on real and hostile column tables;
// mirrors (whole strips) and quarter turns of every pixel size at every length around the
// vector steps; nothing written outside a run.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "core/simd.h"
#include "process/kernels/geometry.h"

namespace {

namespace k = pix::process::kernels;
namespace simd = pix::simd;
using Bytes = std::vector<uint8_t>;

#ifdef PIX95_SANITIZED
constexpr unsigned kStride = 7;  // sweeps take a seventh of their cases
#else
constexpr unsigned kStride = 1;
#endif
constexpr std::size_t kGuard = 64;

std::vector<simd::Level> levels() {
  std::vector<simd::Level> l;
  for (simd::Level level : {simd::Level::sse2, simd::Level::avx2, simd::Level::avx512}) {
    if (simd::supports(level)) l.push_back(level);
  }
  return l;
}

// `write(kernels, out)` into a guarded block at every level: each block must
// equal the scalar one, guards included.
template <class Write>
testing::AssertionResult same_at_every_level(std::size_t bytes, Write write) {
  auto run = [&](const k::GeometryKernels& kernels) {
    Bytes block(bytes + 2 * kGuard + 1, 0xA5);
    write(kernels, block.data() + kGuard + 1);  // misaligned on purpose
    return block;
  };
  const Bytes want = run(k::geometry_kernels(simd::Level::scalar));
  for (simd::Level l : levels()) {
    const Bytes got = run(k::geometry_kernels(l));
    if (got != want) {
      const auto at = std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin();
      return testing::AssertionFailure() << "level " << int(l) << ": byte " << at - long(kGuard) - 1;
    }
  }
  return testing::AssertionSuccess();
}

class GeometrySimd : public testing::Test {
 protected:
  void SetUp() override {
    if (levels().empty()) GTEST_SKIP() << "no SIMD level on this processor";
  }
  std::mt19937 rng{95};
  Bytes random(std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<uint8_t>(rng());
    return b;
  }
};

TEST_F(GeometrySimd, VerticalPassEveryPairEveryWeightEveryTail) {
  Bytes upper(65536), lower(65536);
  for (unsigned i = 0; i < 65536; ++i) upper[i] = uint8_t(i >> 8), lower[i] = uint8_t(i);
  for (unsigned f = 0; f < 256; f += kStride) {
    ASSERT_TRUE(same_at_every_level(65536, [&](const k::GeometryKernels& g, uint8_t* d) {
      g.scale_v(upper.data(), lower.data(), d, 65536, f);
    })) << "fraction " << f;
  }
  for (std::size_t n = 0; n < 300; ++n) {
    const Bytes a = random(n), b = random(n);
    const unsigned f = rng() % 256;
    ASSERT_TRUE(same_at_every_level(n, [&](const k::GeometryKernels& g, uint8_t* d) {
      g.scale_v(a.data(), b.data(), d, n, f);
    })) << n << " bytes";
  }
}

// The horizontal pass over `columns` of `src`, groups made as the scale
// makes them.
testing::AssertionResult same_h(const Bytes& src, const std::vector<k::ScaleColumn>& columns, unsigned ch) {
  std::vector<k::ScaleGroup> groups(k::scale_group_count(columns.size(), ch) + 1);
  k::scale_groups(groups.data(), columns.data(), columns.size(), src.size(), ch);
  return same_at_every_level(columns.size() * ch, [&](const k::GeometryKernels& g, uint8_t* d) {
    g.scale_h(src.data(), d, columns.data(), groups.data(), columns.size(), ch);
  });
}

TEST_F(GeometrySimd, HorizontalPassEveryPairEveryWeight) {
  // Column k reads the pair (k >> 8, k & 255) side by side.
  Bytes src(2 * 65536);
  for (unsigned i = 0; i < 65536; ++i) src[2 * i] = uint8_t(i >> 8), src[2 * i + 1] = uint8_t(i);
  std::vector<k::ScaleColumn> columns(65536);
  for (unsigned f = 0; f < 256; f += kStride) {
    for (uint32_t i = 0; i < 65536; ++i) columns[i] = {2 * i, 2 * i + 1, uint8_t(f)};
    ASSERT_TRUE(same_h(src, columns, 1)) << "fraction " << f;
  }
}

TEST_F(GeometrySimd, HorizontalPassEveryScaleAndHostileColumns) {
  for (unsigned n = 0; n < 1500 / kStride; ++n) {
    const unsigned ch = n % 2 ? 3 : 1;
    const uint32_t in = 1 + rng() % 400, out = 1 + rng() % 400;
    const Bytes src = random(std::size_t{in} * ch);
    std::vector<k::ScaleColumn> columns(out);
    // The scale's own steps (as PIX_IP_scale works them out), and one step in
    // eight any step at all.
    const uint64_t step = n % 8 == 7 ? rng() % (64u << k::kScaleShift) : (uint64_t{in} << k::kScaleShift) / out;
    k::scale_columns(columns.data(), out, in, step, ch);
    ASSERT_TRUE(same_h(src, columns, ch)) << in << " to " << out << ", " << ch << " channels";
    // Samples anywhere in the line, in any order.
    for (auto& c : columns) {
      c = {uint32_t(rng() % in * ch), uint32_t(rng() % in * ch), uint8_t(rng())};
      if (rng() % 2) c.far = c.near + (c.near + ch < in * ch ? ch : 0);
    }
    ASSERT_TRUE(same_h(src, columns, ch)) << in << " to " << out << ", hostile columns";
  }
}

TEST_F(GeometrySimd, MirrorEveryPixelSizeAndYuvEveryLength) {
  for (unsigned b = 1; b <= 4; ++b) {
    for (std::size_t n = 0; n < 400; ++n) {
      // Three lines with gaps on both sides (every output line at its own
      // cache-line offset), the source read upwards for odd lengths.
      const auto in_line = std::ptrdiff_t(n * b + 5), out_line = std::ptrdiff_t(n * b + 3);
      const Bytes lines = random(3 * std::size_t(in_line));
      const std::ptrdiff_t step = n % 2 == 0 ? in_line : -in_line;
      const uint8_t* first = lines.data() + (n % 2 == 0 ? 0 : 2 * in_line);
      ASSERT_TRUE(same_at_every_level(3 * std::size_t(out_line), [&](const k::GeometryKernels& g, uint8_t* d) {
        g.mirror[b - 1](first, step, d, out_line, 3, n);
      })) << b << " bytes, " << n << " pixels";
      const Bytes src = random(n * b);
      ASSERT_TRUE(same_at_every_level(n * 4, [&, pairs = n * b / 4](const k::GeometryKernels& g, uint8_t* d) {
        g.mirror_yuv422(src.data(), d, pairs);
      })) << "YUV 4:2:2, " << n * b / 4 << " pairs";
    }
    // Strips of more than 4 MiB in and out are walked the other way round.
    for (std::size_t n : {(std::size_t{1} << 20) / b + 1, (std::size_t{1} << 20) / b + 37}) {
      const Bytes big = random(2 * n * b);
      ASSERT_TRUE(same_at_every_level(2 * n * b, [&](const k::GeometryKernels& g, uint8_t* d) {
        g.mirror[b - 1](big.data(), std::ptrdiff_t(n * b), d, std::ptrdiff_t(n * b), 2, n);
      })) << b << " bytes, 2 lines of " << n << " pixels";
    }
  }
}

TEST_F(GeometrySimd, QuarterTurnsEveryPixelSizeAndShape) {
  for (unsigned n = 0; n < 600 / kStride; ++n) {
    const unsigned b = 1 + n % 4;
    const bool clockwise = n / 4 % 2 == 0;
    // Source w x h pixels (lines padded), output h pixels a line (padded too).
    const std::size_t w = rng() % 100, h = rng() % 100, stride = w * b + rng() % 9, out_stride = h * b + rng() % 9;
    const Bytes src = random(stride * h + 1);
    const auto pb = static_cast<std::ptrdiff_t>(b), s = static_cast<std::ptrdiff_t>(stride);
    const std::ptrdiff_t first = clockwise ? (static_cast<std::ptrdiff_t>(h) - 1) * s : (static_cast<std::ptrdiff_t>(w) - 1) * pb;
    if (w == 0 || h == 0) continue;
    ASSERT_TRUE(same_at_every_level(out_stride * w, [&](const k::GeometryKernels& g, uint8_t* d) {
      g.turn[b - 1](src.data(), first, clockwise ? pb : -pb, clockwise ? -s : s, d,
                    static_cast<std::ptrdiff_t>(out_stride), w, h);
    })) << b << " bytes, " << w << "x" << h << (clockwise ? " clockwise" : " anticlockwise");
  }
}

}  // namespace
