// General lookup tables: four value tables (grey, red, green, blue) named by
// LUT handles 1..15.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace pix::convert {

struct GeneralLut {
  uint32_t entries = 0;
  uint16_t element_size = 1;  // 1 or 2 bytes
  std::array<std::vector<uint8_t>, 4> tables8;    // grey, red, green, blue (element size 1)
  std::array<std::vector<uint16_t>, 4> tables16;  // grey, red, green, blue (element size 2)
  // Settings last given to the generator: brightness, contrast, gamma, red, green, blue gain.
  std::array<uint16_t, 6> settings{};
};

struct GeneralLutTable {
  static constexpr uint32_t kSlots = 16;  // slot 0 unused
  std::array<std::unique_ptr<GeneralLut>, kSlots> slots;
};

GeneralLutTable& general_luts() noexcept;
GeneralLut* find_general_lut(uint32_t handle) noexcept;

}  // namespace pix::convert
