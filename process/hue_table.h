// The library-wide UV-to-hue table: 65536 hues in whole degrees (0..359),
// indexed by U * 256 + V.  Built on first use, kept until destroyed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/memory.h"

namespace pix::process {

inline constexpr std::size_t kHueEntries = 65536;
// Dark pixels (Y at or below this) have no meaningful hue.
inline constexpr uint8_t kDarkLuma = 20;
inline constexpr uint16_t kDarkHue = 180;

struct HueState {
  memory::Owned<uint16_t> table;  // null until generated
};
HueState& hue_state() noexcept;

// The table, or null when it has not been generated.
const uint16_t* hue_table() noexcept;

// Generates the table when it is absent (reporting as the generator does);
// 0 or the generator's code.
uint32_t ensure_hue_table();

}  // namespace pix::process
