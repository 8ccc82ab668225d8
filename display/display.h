// Display objects, named by handles 1..31, and what the renderers share.
#pragma once

#include <cstdint>

#include "backend.h"
#include "core/handle_table.h"
#include "pix95.h"

namespace pix::display {

// The value of a region width or height that means "automatic".
inline constexpr uint16_t kAutomatic = 32767;

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
  PIX_HDC memory_dc = nullptr;
  backend::Object bitmap = nullptr;
  backend::Object previous_object = nullptr;
  uint16_t bits_per_pixel = 0, planes = 0, colour_resolution = 0;
  backend::DirectObjects direct;
  uint32_t user_value32 = 0x800000;
  uint16_t user_value16 = 0x8000;

  Display() = default;
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;
  // The direct path's objects go with the record (the bitmap path releases
  // its own at its last strip).
  ~Display() { backend::direct_release(direct); }
};

// Handles 1..31 are created; destroying every display visits 1..32.
using DisplayTable = HandleTable<Display, 33>;
inline constexpr uint32_t kLastDisplay = 31;
DisplayTable& displays() noexcept;

// The display named by `handle`, or null after reporting 0x10010000
// "Display handle not valid" under `function`.
Display* checked_display(uint32_t handle, const char* function);

// The size an image of `width` x `height` is drawn at: the region's own
// width and height, or for the automatic value the image's size, the
// window's (fit) or the aspect-kept fit.  The window's rectangle is fetched
// only when the display fits to the window.
struct Size {
  int32_t width = 0, height = 0;
};
Size destination_size(const Display& d, uint32_t width, uint32_t height);

// The screen layouts that the bitmap and direct paths copy as they are.
constexpr bool screen_layout(uint16_t format) {
  return format == PIX_BGRX32 || format == PIX_BGR24 || format == PIX_RGB15 || format == PIX_RGB16;
}

// The direct path (display flag 2).
uint32_t draw_direct(uint32_t display, uint32_t image, uint16_t command);

// The display rectangle of the direct path: the region placed at the
// window's client origin on the screen, intersected with `clip`, which it
// replaces when the intersection is not empty.
uint32_t calculate_display_rect(Display& d, backend::Rect& clip, bool& visible);
// The same, handing back the window's client origin on the screen it used.
uint32_t calculate_display_rect(Display& d, backend::Rect& clip, bool& visible, int32_t& origin_x, int32_t& origin_y);

// The direct path's line copier: `count` destination lines from line number
// `n` on, `bytes` a line; field selection 1 skips odd line numbers and 2
// even ones (the destination advances, the source line waits).
void copy_lines(const uint8_t* src, std::ptrdiff_t src_pitch, uint8_t* dst, std::ptrdiff_t dst_pitch,
                uint32_t count, uint32_t n, std::size_t bytes, unsigned field_selection) noexcept;

}  // namespace pix::display
