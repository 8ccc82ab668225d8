// Walking row kernels over strips: every geometry against a unit-by-unit
// reference, line grouping, and context lines carried across strips.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "core/lines.h"

namespace {

using pix::lines::Carry;
using pix::lines::In;
using pix::lines::Out;
using Bytes = std::vector<uint8_t>;

// A kernel whose every output byte depends on every byte of its unit.
struct UnitKernel {
  unsigned in_unit, out_unit;
  unsigned hash(const uint8_t* unit) const {
    unsigned sum = 0;
    for (unsigned k = 0; k < in_unit; ++k) sum = sum * 31 + unit[k];
    return sum;
  }
  static uint8_t byte(unsigned hash, unsigned k) { return static_cast<uint8_t>(hash + 7 * k + 1); }
  void operator()(const uint8_t* s, uint8_t* d, std::size_t n) const {
    for (std::size_t x = 0; x < n; ++x) {
      const unsigned h = hash(s + x * in_unit);
      for (unsigned k = 0; k < out_unit; ++k) d[x * out_unit + k] = byte(h, k);
    }
  }
};

// What a walk must give: units as far as the output holds them (nothing
// written beyond it), input beyond its buffer read as 0.
Bytes reference(const Bytes& in, uint64_t in_stride, Bytes out, uint64_t out_stride, UnitKernel k, uint64_t units,
                uint32_t count) {
  for (uint32_t y = 0; y < count; ++y) {
    for (uint64_t x = 0; x < units; ++x) {
      uint8_t s[4] = {};
      for (unsigned b = 0; b < k.in_unit; ++b) {
        const uint64_t at = y * in_stride + x * k.in_unit + b;
        if (at < in.size()) s[b] = in[at];
      }
      for (unsigned b = 0; b < k.out_unit; ++b) {
        const uint64_t at = y * out_stride + x * k.out_unit + b;
        if (at < out.size()) out[at] = UnitKernel::byte(k.hash(s), b);
      }
    }
  }
  return out;
}

TEST(Lines, MapEqualsTheUnitByUnitWalkForEveryGeometry) {
  int checked = 0;
  for (unsigned in_unit : {1u, 3u, 4u})
    for (unsigned out_unit : {1u, 2u, 4u})
      for (uint64_t units : {0u, 1u, 5u, 9u, 200u})
        for (uint32_t count : {0u, 1u, 3u})
          for (uint64_t in_pad : {0u, 1u, 3u})
            for (uint64_t out_pad : {0u, 2u})
              for (uint64_t in_cut : {0u, 1u, 7u})
                for (uint64_t out_cut : {0u, 2u, 5u}) {
                  const UnitKernel k{in_unit, out_unit};
                  const uint64_t in_stride = units * in_unit + in_pad, out_stride = units * out_unit + out_pad;
                  const uint64_t in_size = count * in_stride, out_size = count * out_stride;
                  Bytes in(in_size > in_cut ? in_size - in_cut : 0), out(out_size > out_cut ? out_size - out_cut : 0);
                  for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i * 13 + 5);
                  for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(0xA0 ^ i);
                  const Bytes expected = reference(in, in_stride, out, out_stride, k, units, count);
                  pix::lines::map(In{in.data(), in.size(), in_stride}, in_unit, Out{out.data(), out.size(), out_stride},
                                  out_unit, units, count, k);
                  ASSERT_EQ(out, expected) << in_unit << ' ' << out_unit << ' ' << units << ' ' << count << ' '
                                           << in_pad << ' ' << out_pad << ' ' << in_cut << ' ' << out_cut;
                  ++checked;
                }
  EXPECT_EQ(checked, 3 * 3 * 5 * 3 * 3 * 2 * 3 * 3);
}

// A kernel that numbers its units within each call: lines that ran together,
// or a guarded line cut off the group grid, would show.
// Groups wider than a guarded chunk (200 units of 3 bytes) still go whole.
TEST(Lines, UnmergedLinesReachTheKernelInWholeGroupsFromTheLineStart) {
  for (uint32_t group : {3u, 200u})
    for (uint64_t cut : {0u, 1u}) {  // 1: the last line goes through the guarded tail
      constexpr uint64_t kUnits = 400;  // more than one guarded chunk of 3-byte units
      constexpr uint32_t kLines = 3;
      Bytes in(kLines * kUnits * 3 - cut), out(kLines * kUnits, 0xEE);
      pix::lines::map(
          In{in.data(), in.size(), kUnits * 3}, 3, Out{out.data(), out.size(), kUnits}, 1, kUnits, kLines,
          [group](const uint8_t*, uint8_t* d, std::size_t n) {
            for (std::size_t i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(i % group);
          },
          {.merge = false, .group = group});
      for (std::size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], (i % kUnits) % group) << cut << ' ' << i;
    }
}

TEST(Lines, ScanGivesEachLineTheWholeUnitsInsideTheBuffer) {
  const Bytes strip(2 * 10 + 7);  // lines of 10 bytes; the third line holds 7
  std::vector<std::size_t> seen;
  pix::lines::scan(In{strip.data(), strip.size(), 10}, 3, 3, 4, [&](const uint8_t* line, std::size_t n) {
    EXPECT_EQ((line - strip.data()) % 10, 0);
    seen.push_back(n);
  });
  EXPECT_EQ(seen, (std::vector<std::size_t>{3, 3, 2}));  // the fourth line lies beyond the buffer
}

TEST(Lines, CarryKeepsTheLastLinesAcrossStripsOfAnySize) {
  Carry carry;
  carry.start(2);
  uint8_t next = 0;  // line values count up from strip to strip
  std::vector<uint8_t> all;
  for (uint32_t lines : {1u, 0u, 4u, 2u, 1u}) {
    Bytes strip(2 * lines);
    for (uint32_t y = 0; y < lines; ++y) strip[2 * y] = strip[2 * y + 1] = next, all.push_back(next++);
    const In view{strip.data(), strip.size(), 2};
    // Carried lines come first, then the strip's own.
    for (uint32_t y = 0; y < carry.held() + lines; ++y) {
      EXPECT_EQ(carry.joined(view, y)[1], all[all.size() - lines - carry.held() + y]);
    }
    carry.take(view, lines, 3);
    ASSERT_EQ(carry.held(), std::min<std::size_t>(3, all.size()));
    for (uint32_t i = 0; i < carry.held(); ++i) EXPECT_EQ(carry.line(i)[0], all[all.size() - carry.held() + i]);
  }
  // A strip line reaching past its buffer is kept with zeros beyond it.
  const Bytes short_strip{9};
  carry.take(In{short_strip.data(), short_strip.size(), 2}, 1, 1);
  EXPECT_EQ(Bytes(carry.line(0), carry.line(0) + 2), (Bytes{9, 0}));
}

}  // namespace
