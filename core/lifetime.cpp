#include "lifetime.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace pix {

namespace {
// Every object that registers is a library-wide singleton: a handful of them.
struct Releases {
  std::array<Releasable*, 64> objects{};
  std::size_t count = 0;
};
Releases& releases() noexcept {
  static Releases state;
  return state;
}
}  // namespace

Releasable::Releasable() noexcept {
  Releases& r = releases();
  if (r.count < r.objects.size()) r.objects[r.count++] = this;
}

Releasable::~Releasable() {
  Releases& r = releases();
  auto* end = r.objects.begin() + r.count;
  auto* at = std::find(r.objects.begin(), end, this);
  if (at == end) return;
  std::copy(at + 1, end, at);
  r.objects[--r.count] = nullptr;
}

void run_releases() noexcept {
  const Releases& r = releases();
  for (std::size_t i = 0; i < r.count; ++i) r.objects[i]->release();
}

}  // namespace pix
