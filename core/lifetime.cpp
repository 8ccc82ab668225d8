#include "lifetime.h"

#include <array>
#include <cstddef>

namespace pix {

namespace {
struct Releases {
  std::array<ReleaseFn, 32> fns{};
  std::size_t count = 0;
};
Releases& releases() noexcept {
  static Releases state;
  return state;
}
}  // namespace

bool register_release(ReleaseFn release) noexcept {
  Releases& r = releases();
  if (r.count < r.fns.size()) r.fns[r.count++] = release;
  return true;
}

void run_releases() noexcept {
  const Releases& r = releases();
  for (std::size_t i = 0; i < r.count; ++i) r.fns[i]();
}

}  // namespace pix
