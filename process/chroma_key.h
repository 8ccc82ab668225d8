// Chroma-key objects, named by handles 1..3.
#pragma once

#include <cstdint>

#include "core/handle_table.h"

namespace pix::process {

struct ChromaKey {
  uint16_t hue_centre = 340;
  uint16_t hue_half_width = 20;
  uint16_t luma_centre = 120;
  uint16_t luma_half_width = 64;
};

// Handles 1..3 are handed out; slot 4 exists but creation never uses it.
using ChromaKeyTable = HandleTable<ChromaKey, 5>;
inline constexpr uint32_t kLastChromaKey = 3;
ChromaKeyTable& chroma_keys() noexcept;

}  // namespace pix::process
