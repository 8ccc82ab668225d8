// Chroma-key objects, named by handles 1..3.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

namespace pix::process {

struct ChromaKey {
  uint16_t hue_centre = 340;
  uint16_t hue_half_width = 20;
  uint16_t luma_centre = 120;
  uint16_t luma_half_width = 64;
};

struct ChromaKeyTable {
  // Handles 1..3 are handed out; slot 4 exists but creation never uses it.
  static constexpr uint32_t kSlots = 5;
  static constexpr uint32_t kLastHandle = 3;
  std::array<std::unique_ptr<ChromaKey>, kSlots> slots;
};

ChromaKeyTable& chroma_keys() noexcept;
ChromaKey* find_chroma_key(uint32_t handle) noexcept;

}  // namespace pix::process
