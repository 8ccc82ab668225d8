// The UV-to-hue table: generation and release.
#include "hue_table.h"

#include <cmath>

#include "core/status.h"

using namespace pix;
using namespace pix::process;

namespace pix::process {

HueState& hue_state() noexcept {
  static HueState state;
  return state;
}

const uint16_t* hue_table() noexcept { return hue_state().table.get(); }

uint32_t ensure_hue_table() { return hue_table() != nullptr ? 0 : PIX_CK_generate_UV_to_hue_LUT(); }

}  // namespace pix::process

namespace {

// Hue of one (U, V) in degrees, turned so that a grey (U = V = 128) lands
// on 240.  The constants are the library's own (2 pi is cut short at the
// ninth decimal) and are kept: stored key settings were measured with them.
uint32_t hue_of(uint32_t u, uint32_t v) {
  double a = std::atan2(static_cast<double>(v) - 128.0, static_cast<double>(u) - 128.0);
  if (a < 0) a += 6.283185306;
  double d = 180.0 * a * 0.3183098862435492 + 0.5;
  if (d < 0 || d > 359.4) d = 0;
  d -= 120;
  if (d < 0) d += 360;
  return static_cast<uint32_t>(d);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_CK_generate_UV_to_hue_LUT(void) {
  static constexpr const char* kName = "PIX_CK_generate_UV_to_hue_LUT";
  auto& table = hue_state().table;
  if (!table) {
    table.reset(memory::allocate_array<uint16_t>(kHueEntries));
    if (!table) return report(kName, code::out_of_memory);
  }
  uint16_t* entries = table.get();
  for (uint32_t i = 0; i < kHueEntries; ++i) {
    const uint32_t hue = hue_of(i >> 8, i & 0xFF);
    // Kept although no (U, V) reaches it.
    if (hue > 359) return report(kName, code::out_of_range, "Hue out of range");
    entries[i] = static_cast<uint16_t>(hue);
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_CK_destroy_UV_to_hue_LUT(void) {
  hue_state().table.reset();
  return 0;
}

}  // extern "C"
