// General lookup tables: four value tables (grey, red, green, blue) named by
// LUT handles 1..15.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/handle_table.h"

namespace pix::convert {

struct GeneralLut {
  uint32_t entries = 0;
  uint16_t element_size = 1;  // 1 or 2 bytes
  std::array<std::vector<uint8_t>, 4> tables8;    // grey, red, green, blue (element size 1)
  std::array<std::vector<uint16_t>, 4> tables16;  // grey, red, green, blue (element size 2)
  // Settings last given to the generator: brightness, contrast, gamma, red, green, blue gain.
  std::array<uint16_t, 6> settings{};
};

// Handles 1..15.
using GeneralLutTable = HandleTable<GeneralLut, 16>;
GeneralLutTable& general_luts() noexcept;

}  // namespace pix::convert
