// SIMD in one place: the x86 guard, the target attributes every kernel file
// compiles its vector code with, and the level the library dispatches to.
//
// Kernels are compiled for their instruction set function by function (the
// library itself is built for the baseline of its target, i686 included) and
// only reached through a level this processor supports.
#pragma once

#include <array>
#include <cstddef>

#if defined(__x86_64__) || defined(__i386__)
#define PIX95_X86 1
// GCC 12's AVX-512 intrinsics give their unused operand a self-initialised
// vector, which -W(maybe-)uninitialized reports in every kernel they are
// inlined into; the warnings are silenced for those headers alone.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#else
#include <immintrin.h>
#endif
#define PIX95_SSE2 __attribute__((target("sse2")))
#define PIX95_AVX2 __attribute__((target("avx2")))
#define PIX95_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl")))
// The AVX-512 level plus byte permutes across the whole register (VBMI):
// reached only where supports_vbmi() says so.
#define PIX95_AVX512VBMI __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi")))
#else
#define PIX95_X86 0
#endif
// Small vector helpers: inlined into the kernel of their own target.
#define PIX95_INLINE inline __attribute__((always_inline))

namespace pix::simd {

// In order: each level runs everything the ones below it run.  avx512 needs
// AVX-512 F, BW and VL.
enum class Level { scalar = 0, sse2 = 1, avx2 = 2, avx512 = 3 };
inline constexpr std::size_t kLevels = 4;

// Whether this processor, and the operating system's saving of the vector
// registers, allow `level`.
bool supports(Level level) noexcept;
// Whether this processor runs the AVX-512 level and its byte permutes
// (VBMI); a kernel of the avx512 level may use them when it does.
bool supports_vbmi() noexcept;

// The best level this processor supports, capped by `cap` ("scalar", "sse2",
// "avx2" or "avx512"; null or any other text caps nothing).
Level best_up_to(const char* cap) noexcept;

// The level the library runs at: best_up_to(the environment variable
// PIX95_SIMD), worked out at the first call and the same for the life of the
// process.
Level active() noexcept;

constexpr Level below(Level l) { return static_cast<Level>(static_cast<int>(l) - 1); }

// The kernels of `N` layouts at the active level, for a table made once:
// layout i takes simd(i, level) at the widest level from the active one down
// that has one, else scalar(i).
template <class Row, std::size_t N, class Simd, class Scalar>
std::array<Row, N> choose(Simd simd, Scalar scalar) {
  std::array<Row, N> chosen{};
  const Level top = active();
  for (std::size_t i = 0; i < N; ++i) {
    for (Level l = top; l != Level::scalar && chosen[i] == nullptr; l = below(l)) chosen[i] = simd(i, l);
    if (chosen[i] == nullptr) chosen[i] = scalar(i);
  }
  return chosen;
}

}  // namespace pix::simd
