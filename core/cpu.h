// Which SIMD instruction sets the processor offers, for runtime dispatch.
#pragma once

namespace pix::cpu {

enum class Level { scalar = 0, sse2 = 1, avx2 = 2 };

// The best level this processor runs, capped by the environment variable
// PIX95_SIMD ("scalar", "sse2" or "avx2") when it is set.
Level best() noexcept;

// Whether this processor can run `level` at all (tests compare every
// available level against the scalar kernels).
bool supports(Level level) noexcept;

}  // namespace pix::cpu
