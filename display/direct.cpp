// The direct path (display flag 2): each strip is copied straight into the
// locked primary surface, inside the window's part of the screen.  The
// surface, its clipper and the object that made them come from the backend
// (DirectDraw on Windows, a shared-memory image on Linux); the placement and
// the copy are portable.
#include <algorithm>
#include <cstring>
#include <string>

#include "core/image.h"
#include "core/stage.h"
#include "core/stream_copy.h"
#include "core/status.h"
#include "display.h"

using namespace pix;
using namespace pix::display;

namespace {

constexpr const char* kName = "PIX_display_direct_draw_w95";
constexpr const char* kDraw = "DDS_DrawImage";
constexpr const char* kRect = "DDS_CalculateDisplayRect";

// The direct path's progress, library-wide like the bitmap path's.
struct DirectPathState {
  stage::Progress progress;
};
DirectPathState& direct_path() noexcept {
  static DirectPathState state;
  return state;
}

uint32_t screen_pixel_bytes(uint16_t format) {
  switch (format) {
    case PIX_BGRX32: return 4;
    case PIX_BGR24: return 3;
    default: return 2;
  }
}

// A single field (field mode, field order 1 or 2) lands on every other line
// of the surface; anything else fills consecutive lines.
unsigned field_selection(const Image& img) {
  if ((img.flags & PIX_FLAG_FIELD_MODE) == 0) return 0;
  return img.field_order == 1 || img.field_order == 2 ? img.field_order : 0;
}

// Draws the image's strip, whose first line is frame line `first`.
uint32_t draw_strip(Display& d, const Image& img, uint32_t first) {
  const auto fail = [&](const std::string& message) { return report(kDraw, code::internal, message.c_str()); };
  std::string message;
  if (d.direct.primary == nullptr && !backend::direct_create(d.window, d.direct, message)) return fail(message);
  if (!backend::direct_restore(d.direct, message)) return fail(message);
  backend::Rect clip;
  if (!backend::direct_clip(d.direct, clip, message)) return fail(message);
  bool visible = false;
  int32_t origin_x = 0, origin_y = 0;
  if (uint32_t r = calculate_display_rect(d, clip, visible, origin_x, origin_y); is_error(r)) return r;
  if (!visible) return 0;

  // The image's top-left corner on the surface, and the lines of this strip
  // that fall inside the visible rectangle.
  const int64_t left = int64_t(d.roi_left) + origin_x, top = int64_t(d.roi_top) + origin_y;
  const unsigned selection = field_selection(img);
  const uint32_t step = selection == 0 ? 1 : 2;
  const int64_t n_first = int64_t(first) * step;
  const int64_t n_end = n_first + int64_t(img.lines_this_strip) * step;
  const int64_t n_begin = std::max(n_first, clip.top - top);
  const int64_t n_stop = std::min(n_end, clip.bottom - top);
  const int64_t skip_x = clip.left - left;
  const uint32_t bpp = screen_pixel_bytes(d.format);
  const int64_t image_bytes = int64_t(std::min<uint64_t>(img.width, img.bytes_per_line / bpp)) * bpp;
  const int64_t bytes = std::min(image_bytes - skip_x * bpp, int64_t(clip.right - clip.left) * bpp);
  if (n_begin >= n_stop || skip_x < 0 || bytes <= 0) return 0;

  uint8_t* bits = nullptr;
  int32_t pitch = 0;
  const backend::Rect locked{clip.left, static_cast<int32_t>(top + n_begin), clip.right,
                             static_cast<int32_t>(top + n_stop)};
  if (!backend::direct_lock(d.direct, locked, bits, pitch, message)) return fail(message);
  // Source lines already passed over by the lines above the visible part.
  // (n_first is even whenever a field is drawn.)
  const int64_t passed = n_begin - n_first;
  const int64_t waited = selection == 0 ? passed : selection == 1 ? (passed + 1) / 2 : passed / 2;
  const uint8_t* src = img.data + uint64_t(waited) * img.bytes_per_line + uint64_t(skip_x) * bpp;
  copy_lines(src, img.bytes_per_line, bits, pitch, static_cast<uint32_t>(n_stop - n_begin),
             static_cast<uint32_t>(n_begin), static_cast<std::size_t>(bytes), selection);
  if (!backend::direct_unlock(d.direct, locked, message)) return fail(message);
  return 0;
}

}  // namespace

namespace pix::display {

uint32_t calculate_display_rect(Display& d, backend::Rect& clip, bool& visible) {
  int32_t x = 0, y = 0;
  return calculate_display_rect(d, clip, visible, x, y);
}

uint32_t calculate_display_rect(Display& d, backend::Rect& clip, bool& visible, int32_t& x, int32_t& y) {
  x = 0, y = 0;
  if (!backend::direct_origin(d.direct, d.window, x, y)) {
    return report(kRect, code::internal, "Failed 'ClientToScreen' - hWnd valid?");
  }
  backend::Rect r;
  r.left = d.roi_left + x;
  r.top = d.roi_top + y;
  r.right = d.roi_width == kAutomatic ? d.width : r.left + d.roi_width;
  r.bottom = d.roi_height == kAutomatic ? d.height : r.top + d.roi_height;
  r.left = std::max(r.left, clip.left), r.top = std::max(r.top, clip.top);
  r.right = std::min(r.right, clip.right), r.bottom = std::min(r.bottom, clip.bottom);
  visible = r.right > r.left && r.bottom > r.top;
  if (visible) clip = r;
  return 0;
}

void copy_lines(const uint8_t* src, std::ptrdiff_t src_pitch, uint8_t* dst, std::ptrdiff_t dst_pitch, uint32_t count,
                uint32_t n, std::size_t bytes, unsigned field_selection) noexcept {
  // A whole frame goes past the caches: the display server reads it next.
  const bool stream = std::size_t{count} * bytes >= kStreamingBytes;
  for (uint32_t i = 0; i < count; ++i, ++n, dst += dst_pitch) {
    if ((field_selection == 1 && n % 2 == 1) || (field_selection == 2 && n % 2 == 0)) continue;
    if (stream) {
      copy_streamed(src, dst, bytes);
    } else {
      std::memcpy(dst, src, bytes);
    }
    src += src_pitch;
  }
  if (stream) end_streaming();
}

uint32_t draw_direct(uint32_t display, uint32_t image, uint16_t command) {
  Display* d = checked_display(display, kName);
  if (d == nullptr) return code::bad_handle;
  Image* img = find_image(image);
  if (img == nullptr) return report(kName, code::bad_handle, "Image handle not valid");
  if (!screen_layout(d->format)) return report(kName, code::unsupported, "Unsupported image format");
  if (img->data == nullptr && command == stage::kNext) {
    return report(kName, code::bad_image, "Image is empty (Pdata NULL)");
  }
  uint32_t result = 0;
  std::string message;
  if (!backend::ready(true, message)) return report(kName, status(PIX_MOD_IMAGE, PIX_ERR_SYSCALL), message.c_str());
  DirectPathState& state = direct_path();
  stage::start(state.progress, stage::kBusy, [] { return 0u; });
  result = stage::advance(state.progress, *img, command, [&]() -> uint32_t {
    if (is_error(draw_strip(*d, *img, state.progress.lines_done))) {
      return report(kName, code::internal, "Failed to draw image using Direct Draw");
    }
    return 0;
  });
  return result;
}

}  // namespace pix::display
