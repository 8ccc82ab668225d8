// Display objects, named by handles 1..31.
#pragma once

#include <cstdint>

#include "core/handle_table.h"
#include "pix95.h"

namespace pix::display {

struct Display {
  uint16_t format = 0;
  uint16_t width = 0;
  uint16_t height = 0;
  uint16_t depth = 0;
  uint32_t flags = PIX_DISPLAY_FLAG_DEFAULT;
  uint16_t roi_left = 0, roi_width = 0, roi_spare = 0, roi_top = 0, roi_height = 0;
  uint16_t lines_shown = 0;
  uint16_t bitmap_width = 0, bitmap_height = 0;
  PIX_HDC paint_dc = nullptr;
  PIX_HWND window = nullptr;
  void* memory_dc = nullptr;
  void* bitmap = nullptr;
  void* previous_object = nullptr;
  uint16_t bits_per_pixel = 0, planes = 0, colour_resolution = 0;
  void* direct_draw = nullptr;
  void* primary_surface = nullptr;
  void* clipper = nullptr;
  uint32_t user_value32 = 0x800000;
  uint16_t user_value16 = 0x8000;
};

// Handles 1..31 are created; destroying every display visits 1..32.
using DisplayTable = HandleTable<Display, 33>;
inline constexpr uint32_t kLastDisplay = 31;
DisplayTable& displays() noexcept;

}  // namespace pix::display
