#include "cpu.h"

#include <cstdlib>
#include <initializer_list>
#include <cstring>

namespace pix::cpu {

bool supports(Level level) noexcept {
#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
  switch (level) {
    case Level::scalar: return true;
    case Level::sse2: return __builtin_cpu_supports("sse2");
    case Level::avx2: return __builtin_cpu_supports("avx2");
  }
  return false;
#else
  return level == Level::scalar;
#endif
}

Level best() noexcept {
  Level cap = Level::avx2;
  if (const char* env = std::getenv("PIX95_SIMD")) {
    if (std::strcmp(env, "scalar") == 0) cap = Level::scalar;
    if (std::strcmp(env, "sse2") == 0) cap = Level::sse2;
  }
  for (Level l : {Level::avx2, Level::sse2}) {
    if (static_cast<int>(l) <= static_cast<int>(cap) && supports(l)) return l;
  }
  return Level::scalar;
}

}  // namespace pix::cpu
