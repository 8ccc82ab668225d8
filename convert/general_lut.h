// General lookup tables: four value tables (grey, red, green, blue) named by
// LUT handles 1..15.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/handle_table.h"
#include "core/stage.h"

namespace pix::convert {

// Each table holds at least every index a pixel can give (256 entries of 8
// bits, 65536 of 16), so that applying a LUT of fewer entries reads no
// further than its own block: entries beyond `entries` stay the identity.
struct GeneralLut {
  static constexpr uint32_t kMinEntries8 = 256;
  static constexpr uint32_t kMinEntries16 = 65536;
  uint32_t entries = 0;
  uint16_t element_size = 1;  // 1 or 2 bytes
  std::array<std::vector<uint8_t>, 4> tables8;    // grey, red, green, blue (element size 1)
  std::array<std::vector<uint16_t>, 4> tables16;  // grey, red, green, blue (element size 2)
  // Settings last given to the generator: brightness, contrast, gamma, red, green, blue gain.
  std::array<uint16_t, 6> settings{};
};

// Handles 1..15, and the progress of applying a LUT strip by strip.
struct GeneralLutTable : HandleTable<GeneralLut, 16> {
  stage::Progress apply;
};
GeneralLutTable& general_luts() noexcept;

}  // namespace pix::convert
