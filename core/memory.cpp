#include "memory.h"

#include <cstdlib>

namespace pix::memory {
namespace {
struct FaultState {
  long allocations_left = -1;  // negative: never fail
};
FaultState& faults() {
  static FaultState state;
  return state;
}
bool should_fail() noexcept {
  auto& f = faults();
  if (f.allocations_left < 0) return false;
  if (f.allocations_left == 0) {
    f.allocations_left = -1;
    return true;
  }
  --f.allocations_left;
  return false;
}
}  // namespace

void* allocate(std::size_t bytes) noexcept {
  if (should_fail()) return nullptr;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void* reallocate(void* block, std::size_t bytes) noexcept {
  if (should_fail()) return nullptr;
  return std::realloc(block, bytes == 0 ? 1 : bytes);
}

void release(void* block) noexcept { std::free(block); }

void fail_after(long count) noexcept { faults().allocations_left = count; }

}  // namespace pix::memory
