// Displays: handles, parameters, flags, the region of interest, the screen's
// facts and the choice of renderer.  The platform is reached only through
// backend.h.
#include <string>

#include "core/image.h"
#include "core/status.h"
#include "display.h"

using namespace pix;
using namespace pix::display;

namespace pix::display {

DisplayTable& displays() noexcept {
  static DisplayTable table;
  return table;
}

Display* checked_display(uint32_t handle, const char* function) {
  Display* d = displays().find(handle);
  if (d == nullptr) report(function, code::bad_handle, "Display handle not valid");
  return d;
}

}  // namespace pix::display

namespace {

// The accessors of parameters, flags and region report a bad handle
// without a message.
Display* quiet_display(uint32_t handle, const char* function, uint32_t& result) {
  Display* d = displays().find(handle);
  if (d == nullptr) result = report(function, code::bad_handle);
  return d;
}

// The window and paint-context accessors answer a bad handle silently.
uint32_t set_handle(uint32_t handle, void* Display::*field, void* value) {
  Display* d = displays().find(handle);
  if (d == nullptr) return code::bad_handle;
  d->*field = value;
  return 0;
}
void* get_handle(uint32_t handle, void* Display::*field) {
  const Display* d = displays().find(handle);
  return d == nullptr ? nullptr : d->*field;
}

constexpr uint16_t kFieldsFirstFirst = 4;
constexpr uint16_t kFieldsSecondFirst = 5;

// The masks a 15- or 16-bit screen answers with, as formats.
struct MaskFormat {
  uint32_t red, green, blue;
  uint16_t format, depth;
};
constexpr MaskFormat kMaskFormats[] = {
    {0x7C00, 0x03E0, 0x001F, PIX_RGB15, 15},
    {0xF800, 0x07E0, 0x001F, PIX_RGB16, 16},
    // Kept unsupported: a 6-6-4 screen is recognised and still refused.
    {0xFC00, 0x07E0, 0x000F, 0, 0},
};

void set_screen_format(Display& d, PIX_HDC dc) {
  switch (d.bits_per_pixel) {
    case 4: d.format = 0, d.depth = 4; return;
    case 8: d.format = 0, d.depth = 8; return;
    case 24: d.format = PIX_BGR24, d.depth = 24; return;
    case 32: d.format = PIX_BGRX32, d.depth = 32; return;
    case 15:
    case 16: {
      d.format = 0;
      uint32_t red = 0, green = 0, blue = 0;
      if (!backend::probe_masks(dc, red, green, blue)) return;
      for (const MaskFormat& m : kMaskFormats) {
        if (m.red == red && m.green == green && m.blue == blue) {
          d.format = m.format;
          if (m.format != 0) d.depth = m.depth;
        }
      }
      return;
    }
    default: return;
  }
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_display_create(void) {
  return displays().create(kLastDisplay, "PIX_display_create");
}

PIX_API uint32_t PIX_CALL PIX_display_destroy(uint32_t handle) {
  displays().destroy(handle);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_display_get_parameter(uint32_t handle, uint16_t id) {
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_get_parameter", result);
  if (d == nullptr) return result;
  switch (id) {
    case PIX_IMAGE_FORMAT: return d->format;
    case PIX_IMAGE_WIDTH: return d->width;
    case PIX_IMAGE_HEIGHT: return d->height;
    case PIX_IMAGE_DEPTH: return d->depth;
    case PIX_DISPLAY_USER_VALUE32: return d->user_value32;
    case PIX_DISPLAY_USER_VALUE16: return d->user_value16;
    case PIX_DISPLAY_DD_CAPS: return backend::direct_caps(d->direct);
    default: return report("PIX_display_get_parameter", code::unrecognised, "Unknown parameter");
  }
}

PIX_API uint32_t PIX_CALL PIX_display_set_parameter(uint32_t handle, uint16_t id, uint32_t value) {
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_set_parameter", result);
  if (d == nullptr) return result;
  const auto low = static_cast<uint16_t>(value);
  switch (id) {
    case PIX_IMAGE_FORMAT: d->format = low; return 0;
    case PIX_IMAGE_WIDTH: d->width = low; return 0;
    case PIX_IMAGE_HEIGHT: d->height = low; return 0;
    case PIX_IMAGE_DEPTH: d->depth = low; return 0;
    case PIX_DISPLAY_USER_VALUE32: d->user_value32 = value; return 0;
    case PIX_DISPLAY_USER_VALUE16: d->user_value16 = low; return 0;
    default: return report("PIX_display_set_parameter", code::unrecognised, "Unknown parameter");
  }
}

PIX_API uint32_t PIX_CALL PIX_display_get_flags(uint32_t handle, uint32_t mask) {
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_get_flags", result);
  if (d == nullptr) return result;
  return (d->flags & mask) != 0 ? 1 : 0;
}

PIX_API uint32_t PIX_CALL PIX_display_set_flags(uint32_t handle, uint32_t mask, int32_t on) {
  const auto set = [&](Display& d) { d.flags = on == 1 ? d.flags | mask : d.flags & ~mask; };
  if (handle == PIX_ALL_IMAGES) {
    for (uint32_t h = 1; h <= kLastDisplay + 1; ++h) {
      if (Display* d = displays().find(h)) set(*d);
    }
    return 0;
  }
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_set_flags", result);
  if (d == nullptr) return result;
  set(*d);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_display_get_ROI(uint32_t handle, uint16_t* roi) {
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_get_ROI", result);
  if (d == nullptr) return result;
  if (roi == nullptr) return report("PIX_display_get_ROI", code::bad_parameter);
  roi[0] = d->roi_left, roi[1] = d->roi_top, roi[2] = d->roi_width, roi[3] = d->roi_height;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_display_set_ROI(uint32_t handle, uint16_t mode, uint16_t* roi) {
  uint32_t result = 0;
  Display* d = quiet_display(handle, "PIX_display_set_ROI", result);
  if (d == nullptr) return result;
  if (mode == 0) {
    d->roi_left = 0, d->roi_top = 0, d->roi_width = kAutomatic, d->roi_height = kAutomatic;
    return 0;
  }
  if (mode != 1) return report("PIX_display_set_ROI", code::unrecognised, "Unknown parameter");
  if (roi == nullptr) return report("PIX_display_set_ROI", code::bad_parameter);
  d->roi_left = roi[0], d->roi_top = roi[1], d->roi_width = roi[2], d->roi_height = roi[3];
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_display_set_hWnd(uint32_t handle, PIX_HWND window) {
  return set_handle(handle, &Display::window, window);
}

PIX_API PIX_HWND PIX_CALL PIX_display_get_hWnd(uint32_t handle) { return get_handle(handle, &Display::window); }

PIX_API uint32_t PIX_CALL PIX_display_set_paint_hDC(uint32_t handle, PIX_HDC dc) {
  return set_handle(handle, &Display::paint_dc, dc);
}

PIX_API PIX_HDC PIX_CALL PIX_display_get_paint_hDC(uint32_t handle) { return get_handle(handle, &Display::paint_dc); }

PIX_API uint32_t PIX_CALL PIX_display_get_DeviceCaps(uint32_t handle, uint16_t id) {
  const Display* d = checked_display(handle, "PIX_display_get_DeviceCaps");
  if (d == nullptr) return code::bad_handle;
  switch (id) {
    case 1: return d->width;
    case 2: return d->height;
    case 3: return d->bits_per_pixel;
    case 4: return d->planes;
    case 7: return d->colour_resolution;
    default: return code::bad_handle;  // kept: an unknown id answers like a bad handle, silently
  }
}

PIX_API uint32_t PIX_CALL PIX_display_init(uint32_t handle, PIX_HWND window) {
  constexpr const char* kName = "PIX_display_init";
  Display* d = checked_display(handle, kName);
  if (d == nullptr) return code::bad_handle;
  std::string message;
  if (!backend::ready(true, message)) return report(kName, status(PIX_MOD_IMAGE, PIX_ERR_SYSCALL), message.c_str());
  PIX_display_set_ROI(handle, 0, nullptr);
  d->window = window;
  const bool took_dc = d->paint_dc == nullptr;
  if (took_dc) d->paint_dc = backend::get_dc(window);
  d->flags = PIX_DISPLAY_FLAG_DEFAULT;
  PIX_HDC dc = d->paint_dc;
  d->width = static_cast<uint16_t>(backend::device_caps(dc, backend::kHorzRes));
  d->height = static_cast<uint16_t>(backend::device_caps(dc, backend::kVertRes));
  d->bits_per_pixel = static_cast<uint16_t>(backend::device_caps(dc, backend::kBitsPixel));
  d->planes = static_cast<uint16_t>(backend::device_caps(dc, backend::kPlanes));
  d->colour_resolution = static_cast<uint16_t>(backend::device_caps(dc, backend::kColorRes));
  set_screen_format(*d, dc);
  const auto release = [&] {
    if (took_dc && d->paint_dc != nullptr) backend::release_dc(window, d->paint_dc);
    if (took_dc) d->paint_dc = nullptr;
  };
  // A second init starts the direct path afresh instead of leaking its objects.
  backend::direct_release(d->direct);
  if (!backend::direct_create(window, d->direct, message)) {
    release();
    return report(kName, code::internal, message.c_str());
  }
  release();
  if (d->format == 0) return report(kName, code::unsupported, "Unsupported graphics mode");
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_DRV_display_image(uint32_t display, uint32_t image, uint16_t command) {
  constexpr const char* kName = "PIX_DRV_display_image";
  const Display* d = checked_display(display, kName);
  if (d == nullptr) return code::bad_handle;
  const Image* img = find_image(image);
  if (img == nullptr) return report(kName, code::bad_handle, "Image handle not valid");
  if ((img->flags & PIX_FLAG_DIB) != 0) return PIX_display_DIB(display, image);
  if ((d->flags & PIX_DISPLAY_FLAG_DIRECT_DRAW) == 0) return PIX_display_DDB(display, image, command);
  return draw_direct(display, image, command);
}

PIX_API uint32_t PIX_CALL PIX_display_image(uint32_t display, uint32_t image, uint16_t command) {
  const Image* img = find_image(image);
  if (img == nullptr || (img->field_order != kFieldsFirstFirst && img->field_order != kFieldsSecondFirst)) {
    return PIX_DRV_display_image(display, image, command);
  }
  // Two fields one above the other are shown as the frame they make; a
  // failure leaves the temporary image alive (kept: callers free every image
  // at the end anyway).
  const uint32_t frame = PIX_image_create();
  if (is_error(frame)) return frame;
  if (uint32_t r = PIX_SPL_interlace_frame(image, frame, command); is_error(r)) return r;
  if (uint32_t r = PIX_DRV_display_image(display, frame, static_cast<uint16_t>(command)); is_error(r)) return r;
  return PIX_image_destroy(frame);
}

}  // extern "C"
