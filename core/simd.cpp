#include "simd.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if PIX95_X86
#include <cpuid.h>
#endif

namespace pix::simd {
namespace {

// What the processor offers, read from CPUID once.  A vector width counts
// only when the operating system saves its registers on a context switch
// (XCR0): a processor with AVX-512 under a system that does not would fault
// on the first instruction.
struct Features {
  bool sse2 = false, avx2 = false, avx512 = false, vbmi = false;
};

#if PIX95_X86
uint64_t xcr0() {
  uint32_t lo, hi;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (uint64_t{hi} << 32) | lo;
}

Features read_features() {
  Features f;
  unsigned a, b, c, d;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return f;
  f.sse2 = (d & bit_SSE2) != 0;
  // OSXSAVE says XGETBV may be executed; AVX that the processor has at all.
  if ((c & bit_OSXSAVE) == 0 || (c & bit_AVX) == 0) return f;
  const uint64_t saved = xcr0();
  constexpr uint64_t kYmm = 0x6;   // XMM and YMM state
  constexpr uint64_t kZmm = 0xE6;  // and the opmask, the upper ZMM halves, ZMM16-31
  if ((saved & kYmm) != kYmm || __get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return f;
  f.avx2 = (b & bit_AVX2) != 0;
  const unsigned avx512 = bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
  f.avx512 = f.avx2 && (saved & kZmm) == kZmm && (b & avx512) == avx512;
  f.vbmi = f.avx512 && (c & bit_AVX512VBMI) != 0;
  return f;
}
#else
Features read_features() { return {}; }
#endif

const Features& features() {
  static const Features f = read_features();
  return f;
}

}  // namespace

bool supports(Level level) noexcept {
  switch (level) {
    case Level::scalar: return true;
    case Level::sse2: return features().sse2;
    case Level::avx2: return features().avx2;
    case Level::avx512: return features().avx512;
  }
  return false;
}

bool supports_vbmi() noexcept { return features().vbmi; }

Level best_up_to(const char* cap) noexcept {
  Level top = Level::avx512;
  if (cap != nullptr) {
    constexpr const char* kNames[kLevels] = {"scalar", "sse2", "avx2", "avx512"};
    for (std::size_t i = 0; i < kLevels; ++i) {
      if (std::strcmp(cap, kNames[i]) == 0) top = static_cast<Level>(i);
    }
  }
  while (top != Level::scalar && !supports(top)) top = below(top);
  return top;
}

Level active() noexcept {
  static const Level level = best_up_to(std::getenv("PIX95_SIMD"));
  return level;
}

}  // namespace pix::simd
