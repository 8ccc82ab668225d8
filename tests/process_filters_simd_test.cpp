// The vector kernels of the processing functions against their scalar
// references at every level this processor supports: the filter's
// reciprocals over every reachable quotient, then rows of random and extreme
// samples and coefficients at every tail length, with guard bytes around
// each output that must come back untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <vector>

#include "core/simd.h"
#include "pix95.h"
#include "process/hue_table.h"
#include "process/kernels/chroma_key.h"
#include "process/kernels/fields.h"
#include "process/kernels/filters.h"

namespace {

using namespace pix::process::kernels;
namespace simd = pix::simd;
using Bytes = std::vector<uint8_t>;

#ifdef PIX95_SANITIZED
constexpr unsigned kStride = 7;  // the sanitizer build samples the sweeps
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

// `run(level, out)` writes into `out` (kGuard bytes in, `bytes` long, guards
// around) at the scalar level and then at each vector level that has a
// kernel (run gives false where there is none): every output must equal the
// scalar one, guards included.
testing::AssertionResult same_at_every_level(std::size_t bytes, const std::function<bool(simd::Level, uint8_t*)>& run) {
  auto block = [&](simd::Level l, Bytes& b) {
    b.assign(bytes + 2 * kGuard, 0xA5);
    return run(l, b.data() + kGuard);
  };
  Bytes want, got;
  block(simd::Level::scalar, want);
  for (simd::Level l : levels()) {
    if (!block(l, got)) continue;
    const auto at = std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin();
    if (at != static_cast<long>(want.size())) {
      return testing::AssertionFailure() << "level " << int(l) << ": byte " << at - long(kGuard) << " of " << bytes;
    }
  }
  return testing::AssertionSuccess();
}

// --- the filter's division --------------------------------------------------------

// A kernel of sum d: its coefficients filled from the first, each up to the 16-bit range.
Filter3x3 kernel_of_sum(int32_t d) {
  std::array<int16_t, 9> k{};
  for (int32_t left = d, i = 0; left != 0; ++i) {
    const int32_t c = std::clamp(left, -32768, 32767);
    k[i] = static_cast<int16_t>(c), left -= c;
  }
  return make_filter_3x3(k.data());
}

TEST(FilterDivision, NarrowReciprocalsAreExactForEveryQuotient) {
  for (int32_t d = -128; d <= 128; ++d) {
    if (d == 0) continue;
    const Filter3x3 f = kernel_of_sum(d);
    ASSERT_TRUE(f.narrow && f.wide) << d;
    const uint32_t D = std::abs(d);
    ASSERT_EQ(f.limit, 256 * D - 1);
    for (uint32_t x = 0; x <= f.limit; ++x) {
      ASSERT_LE(x << f.pre16, 0xFFFFu);
      ASSERT_EQ((((x << f.pre16) * f.mult16) >> 16) >> f.post16, x / D) << d << " " << x;
      ASSERT_EQ((uint64_t{x} * f.mult32) >> f.shift32, x / D) << d << " " << x;
    }
  }
}

TEST(FilterDivision, WideReciprocalsAreExactForEveryQuotient) {
  // Every divisor up to 4096, then the largest and a spread of others: each
  // over every x up to its limit.
  std::vector<int32_t> divisors;
  for (int32_t d = 129; d <= 4096; d += kStride) divisors.push_back(d);
  std::mt19937 rng(3);
  for (int i = 0; i < 40; ++i) divisors.push_back(4096 + int32_t(rng() % (294912 - 4096)));
  for (int32_t d : {294912, 294903, 262144, 65535, 65536, 131071}) divisors.push_back(d);
  for (int32_t d : divisors) {
    const Filter3x3 f = kernel_of_sum(d % 2 ? d : -d);
    ASSERT_TRUE(f.wide) << d;
    const uint64_t D = uint64_t(d);
    const uint32_t step = d > 65536 ? 3 * kStride : kStride;  // the largest still see most quotients
    for (uint64_t x = 0; x <= f.limit; x += step) ASSERT_EQ((x * f.mult32) >> f.shift32, x / D) << d << " " << x;
    ASSERT_EQ((uint64_t{f.limit} * f.mult32) >> f.shift32, 255u);
  }
}

// --- the filter's rows --------------------------------------------------------------

TEST(FilterSimd, RowsEqualScalarForEveryKernelKindAndLength) {
  std::mt19937 rng(11);
  std::vector<std::array<int16_t, 9>> kernels = {
      {1, 2, 1, 2, 4, 2, 1, 2, 1},  {0, -1, 0, -1, 5, -1, 0, -1, 0},
      {-1, -1, -1, -1, 9, -1, -1, -1, -1}, {1, 1, 1, 1, -1, 1, 1, 1, -10},  // negative sum, narrow
      {100, 200, 100, 200, 400, 200, 100, 200, 100},
      {32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
      {-32768, -32768, -32768, -32768, -32768, -32768, -32768, -32768, -32768},
      {-32768, 32767, -32768, 32767, 1, 32767, -32768, 32767, -32768},  // huge sums, divisor -3
      {32767, -32767, 32767, -32767, 1, -32767, 32767, -32767, 32767},   // huge sums, divisor 1
      {0, 0, 0, 0, 128, 0, 0, 0, 0}, {0, 0, 0, 0, 129, 0, 0, 0, 0}};
  for (int i = 0; i < 40; ++i) {  // random narrow and wide kernels
    std::array<int16_t, 9> k{};
    for (auto& c : k) c = static_cast<int16_t>(i % 2 ? int(rng() % 29) - 14 : int(rng() % 65536) - 32768);
    kernels.push_back(k);
  }
  for (const auto& k : kernels) {
    const Filter3x3 f = make_filter_3x3(k.data());
    if (f.divisor == 0) continue;
    for (unsigned channels : {1u, 3u}) {
      for (std::size_t pixels = 0; pixels <= 100; ++pixels) {
        const std::size_t bytes = pixels * channels;
        // Random lines, or lines of only 0 and 255 (the largest sums of either sign).
        Bytes lines(3 * bytes);
        const bool extreme = pixels % 3 == 0;
        for (auto& v : lines) v = extreme ? (rng() & 1 ? 255 : 0) : uint8_t(rng());
        const uint8_t* a = lines.data();
        ASSERT_TRUE(same_at_every_level(bytes, [&](simd::Level l, uint8_t* out) {
          const FilterRow row = l == simd::Level::scalar ? filter_3x3_row : filter_kernels(l).filter;
          if (row == nullptr) return false;
          row(a, a + bytes, a + 2 * bytes, out, pixels, channels, f);
          return true;
        })) << "kernel " << (&k - kernels.data()) << ", " << channels << " channels, " << pixels << " pixels";
      }
    }
  }
}

TEST(ThresholdSimd, EveryBoundPairAndLength) {
  Bytes values(300);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = uint8_t(i * 7);
  auto check = [&](std::size_t n, uint8_t upper, uint8_t lower) {
    return same_at_every_level(n, [&](simd::Level l, uint8_t* out) {
      const ThresholdRow row = l == simd::Level::scalar ? threshold_row : filter_kernels(l).threshold;
      if (row == nullptr) return false;
      row(values.data(), out, n, upper, lower);
      return true;
    });
  };
  for (unsigned bounds = 0; bounds < 65536; bounds += kStride) {
    ASSERT_TRUE(check(256, uint8_t(bounds >> 8), uint8_t(bounds))) << bounds;
  }
  for (std::size_t n = 0; n <= values.size(); ++n) ASSERT_TRUE(check(n, 200, 40)) << n;
}

// --- chroma keying ------------------------------------------------------------------

// Two hue tables: the library's, whose key ranges are sectors, and one of
// random hues in 0..359 (runs of one hue, as real tables have, and isolated
// ones), which leaves the kernels the bit table.  Sources whose pairs key
// with probability about `share`, in runs: every kind of border at every
// place of a vector; then every (U, V) in one row.
TEST(ChromaKeySimd, RowsEqualScalarForEveryModeCarryAndLength) {
  std::mt19937 rng(5);
  ASSERT_EQ(PIX_CK_generate_UV_to_hue_LUT(), 0u);
  std::vector<uint16_t> random(65536);
  for (std::size_t i = 0; i < random.size(); ++i) random[i] = i % 7 == 0 ? uint16_t(rng() % 360) : random[i - i % 7];
  const KeyRange ranges[] = {{56, 184, 100, 260}, {0, 255, 0, 359}, {-1, 256, -1, 360}, {128, 129, 200, 201},
                             {20, 200, 239, 241}, {10, 250, 0, 240},  {0, 255, 180, 359}, {30, 220, 5, 6}};
  Bytes bits(kKeyedUvBytes);
  for (const uint16_t* hue : {pix::process::hue_table(), static_cast<const uint16_t*>(random.data())}) {
    for (const KeyRange& range : ranges) {
      build_keyed_uv(hue, range, bits.data());
      HueArc arc;
      const bool sector = build_hue_arc(hue, range, arc);
      const auto keyed = std::count_if(hue, hue + 65536, [&](int h) { return range.hue_lo < h && h < range.hue_hi; });
      // A random table is no sector, unless all or nothing keys.
      ASSERT_EQ(sector, hue != random.data() || keyed % 65536 == 0) << (&range - ranges);
      for (std::size_t i = 0; i < 65536; ++i) {  // the bits and the sector are the hue half of the decision
        const bool keyed = range.hue_lo < hue[i] && hue[i] < range.hue_hi;
        ASSERT_EQ(bits[i / 8] >> (i % 8) & 1, keyed) << i;
        if (sector) {
          ASSERT_EQ(in_arc(arc, unsigned(i >> 8), i & 0xFF), keyed) << i;
        }
      }
      // A colour byte of 0 every other range (the means then come another way).
      const uint8_t y = (&range - ranges) % 2 == 0 ? 16 : 0;
      const KeySettings k{range, hue, {y, 200, 40}, bits.data(), sector ? &arc : nullptr};
      auto check = [&](std::size_t pairs, const Bytes& src, const Bytes& bg) {
        for (int mode = 0; mode < 8; ++mode) {  // soft, background, carried flag
          const bool soft = mode & 1, with_bg = mode & 2, carried = mode & 4;
          // A pair before the run, and the run at every place of a 64-byte line.
          const std::size_t shift = 4 * (pairs % 16), bytes = 4 * (pairs + 1) + shift;
          ASSERT_TRUE(same_at_every_level(bytes, [&](simd::Level l, uint8_t* out) {
            const KeyRow row = l == simd::Level::scalar ? (soft ? key_soft_row : key_hard_row)
                                                        : (soft ? key_kernels(l).soft : key_kernels(l).hard);
            if (row == nullptr) return false;
            out += shift;
            std::copy(src.begin(), src.begin() + 4, out);  // the pair before, which soft edges may rewrite
            KeyCarry carry{carried};
            row(src.data() + 4, with_bg ? bg.data() + 4 : nullptr, out + 4, pairs, k, carry);
            out[-1] = carry.previous_keyed;  // the carried flag is checked with the bytes
            return true;
          })) << "range " << (&range - ranges) << ", mode " << mode << ", " << pairs << " pairs";
        }
      };
      for (std::size_t pairs = 0; pairs <= 2200; pairs += pairs < 80 ? 1 : 211) {  // every tail
        Bytes src(4 * (pairs + 1)), bg(src.size());
        // Short runs, or runs longer than a vector (whole vectors keyed or
        // kept, beside borders), every other length.
        bool run = false;
        const unsigned mean_run = pairs % 2 == 0 ? 5 : 40;
        for (std::size_t p = 0; p < src.size(); p += 4) {
          if (rng() % mean_run == 0) run = !run;
          const unsigned y = run ? 130 : rng() % 256, uv = rng() % 65536;
          src[p] = uint8_t(y), src[p + 1] = uint8_t(uv >> 8), src[p + 2] = uint8_t(rng()), src[p + 3] = uint8_t(uv);
          for (std::size_t b = 0; b < 4; ++b) bg[p + b] = uint8_t(rng());
        }
        check(pairs, src, bg);
      }
      Bytes src(4 * 65537), bg(src.size());  // every (U, V), the luma mostly in range
      for (std::size_t p = 0; p < src.size(); ++p) src[p] = p % 4 == 0 ? uint8_t(rng() % 8 ? 130 : rng()) : uint8_t(rng());
      for (std::size_t i = 0; i < 65536; ++i) src[4 * i + 5] = uint8_t(i >> 8), src[4 * i + 7] = uint8_t(i);
      check(65536, src, src);
    }
  }
}

// The library's hues fill one sector for every key range.
TEST(ChromaKeySimd, EveryRangeOfTheLibraryHuesIsASector) {
  ASSERT_EQ(PIX_CK_generate_UV_to_hue_LUT(), 0u);
  const uint16_t* hue = pix::process::hue_table();
  for (int lo = -1; lo <= 360; lo += 5 * int(kStride)) {
    for (int hi = lo - 1; hi <= 361; hi += 7) {
      HueArc arc;
      ASSERT_TRUE(build_hue_arc(hue, {0, 255, int16_t(lo), int16_t(hi)}, arc)) << lo << " " << hi;
    }
  }
}

// --- pseudo-colour ---------------------------------------------------------------------

TEST(PseudoColourSimd, EveryInputAndLength) {
  // Grey: every value; YUV and HSI: random bytes, HSI with every hue word.
  Bytes src(4 * 65536 + 64);
  std::mt19937 rng(9);
  for (auto& b : src) b = uint8_t(rng());
  for (std::size_t i = 0; i < 65536; ++i) src[4 * i] = uint8_t(i), src[4 * i + 1] = uint8_t(i >> 8);
  struct Kind { PseudoRow scalar; PseudoRow PseudoKernels::*member; std::size_t out; };
  const Kind kinds[] = {{yuv422_pseudo_row, &PseudoKernels::yuv422, 6},
                        {hsi_pseudo_row, &PseudoKernels::hsi, 3},
                        {y8_pseudo_row, &PseudoKernels::y8, 2}};
  for (const Kind& kind : kinds) {
    auto check = [&](std::size_t offset, std::size_t units) {
      return same_at_every_level(units * kind.out, [&](simd::Level l, uint8_t* out) {
        const PseudoRow row = l == simd::Level::scalar ? kind.scalar : pseudo_kernels(l).*kind.member;
        if (row == nullptr) return false;
        row(src.data() + offset, out, units);
        return true;
      });
    };
    ASSERT_TRUE(check(0, kind.out == 2 ? 4 * 65536 : 65536)) << kind.out;
    for (std::size_t units = 0; units <= 150; ++units) ASSERT_TRUE(check(units, units)) << kind.out << " " << units;
  }
}

}  // namespace
