// The two bitmap renderers and printing: a DIB drawn in one call, an image
// already in the screen's layout copied strip by strip through a
// device-dependent bitmap, and a DIB scaled onto a printer page.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "core/image.h"
#include "core/stage.h"
#include "core/status.h"
#include "display.h"

using namespace pix;
using namespace pix::display;

namespace {

constexpr uint32_t kHeaderBytes = 40;
const uint32_t kGdiFailed = status(PIX_MOD_IMAGE, PIX_ERR_SYSCALL);

// A double to the int a C cast would give, saturated where the cast would
// be undefined (a window of width 0 makes the fit factor infinite).
int32_t truncated(double v) {
  if (!(v > -2147483648.0)) return std::numeric_limits<int32_t>::min();
  if (!(v < 2147483647.0)) return std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(v);
}

uint32_t read32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// Whether the image's data starts with a bitmap header that describes the
// record's own bottom-up 24-bit rows: the platform reads as many bytes as the
// header says, so a header that promises more than the record holds is
// refused rather than read past.
bool dib_matches(const Image& img) {
  const uint8_t* h = img.data;
  const uint64_t row = (static_cast<uint64_t>(img.width) * 3 + 3) / 4 * 4;
  return read32(h) == kHeaderBytes && read32(h + 4) == img.width && read32(h + 8) == img.height &&
         h[12] == 1 && h[13] == 0 && h[14] == 24 && h[15] == 0 && read32(h + 16) == 0 && img.bytes_per_line >= row;
}

// The checks the DIB and print paths share, in their order.
const Image* checked_dib(uint32_t image, const char* function, uint32_t& result) {
  const Image* img = find_image(image);
  if (img == nullptr) {
    result = report(function, code::bad_handle, "Image handle not valid");
    return nullptr;
  }
  if (img->data == nullptr) {
    result = report(function, code::bad_image, "Image is empty (Pdata NULL)");
    return nullptr;
  }
  return img;
}

// The paint context a renderer draws into: the display's own, or the
// window's taken for the call and released (and cleared) at its end.
class PaintContext {
 public:
  explicit PaintContext(Display& d) : d_(d), took_(d.paint_dc == nullptr) {
    if (took_) d_.paint_dc = backend::get_dc(d_.window);
  }
  ~PaintContext() {
    if (took_ && d_.paint_dc != nullptr) backend::release_dc(d_.window, d_.paint_dc);
    if (took_) d_.paint_dc = nullptr;
  }
  PaintContext(const PaintContext&) = delete;
  PaintContext& operator=(const PaintContext&) = delete;
  PIX_HDC get() const { return d_.paint_dc; }

 private:
  Display& d_;
  bool took_;
};

// The bitmap path's progress, library-wide: one bitmap display at a time.
struct BitmapPathState {
  stage::Progress progress;
};
BitmapPathState& bitmap_path() noexcept {
  static BitmapPathState state;
  return state;
}

bool platform_ready(bool window, const char* function, uint32_t& result) {
  std::string message;
  if (backend::ready(window, message)) return true;
  result = report(function, kGdiFailed, message.c_str());
  return false;
}

}  // namespace

namespace pix::display {

Size destination_size(const Display& d, uint32_t width, uint32_t height) {
  const bool fit = (d.flags & PIX_DISPLAY_FLAG_FIT) != 0;
  const bool aspect = fit && (d.flags & PIX_DISPLAY_FLAG_KEEP_ASPECT) != 0;
  backend::Rect window;
  if (fit) backend::window_rect(d.window, window);
  const double ww = static_cast<double>(window.right) - window.left;
  const double wh = static_cast<double>(window.bottom) - window.top;
  double s = 0;
  if (aspect) {
    const double across = width / ww, down = height / wh;
    s = across < down || across == down ? wh / height : ww / width;
  }
  const auto side = [&](uint16_t region, uint32_t image, double window_side) {
    if (region != kAutomatic) return static_cast<int32_t>(region);
    if (aspect) return truncated(image * s);
    if (fit) return truncated(window_side);
    return truncated(image);
  };
  return {side(d.roi_width, width, ww), side(d.roi_height, height, wh)};
}

}  // namespace pix::display

extern "C" {

PIX_API uint32_t PIX_CALL PIX_display_DIB(uint32_t display, uint32_t image) {
  constexpr const char* kName = "PIX_display_DIB";
  Display* d = checked_display(display, kName);
  if (d == nullptr) return code::bad_handle;
  uint32_t result = 0;
  const Image* img = checked_dib(image, kName, result);
  if (img == nullptr) return result;
  if (!dib_matches(*img)) return report(kName, code::bad_image, "Corrupt image");
  if (!platform_ready(d->paint_dc == nullptr, kName, result)) return result;
  PaintContext dc(*d);
  const Size to = destination_size(*d, img->width, img->height);
  const uint8_t* header = img->data;
  const uint8_t* rows = img->data + kHeaderBytes;
  const auto w = static_cast<int32_t>(img->width), h = static_cast<int32_t>(img->height);
  int32_t drawn = 0;
  if ((d->flags & PIX_DISPLAY_FLAG_FIT) == 0) {
    drawn = backend::set_dib_to_device(dc.get(), d->roi_left, d->roi_top, to.width, to.height, 0, h - to.height, 0,
                                       img->height, rows, header);
  } else {
    drawn = backend::stretch_dib(dc.get(), d->roi_left, d->roi_top, to.width, to.height, 0, 0, w, h, rows, header);
  }
  if ((drawn & 0xFFFF) == 0) return report(kName, kGdiFailed, "Failed to display image");
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_display_DDB(uint32_t display, uint32_t image, uint16_t command) {
  constexpr const char* kName = "PIX_display_DDB";
  Display* d = checked_display(display, kName);
  if (d == nullptr) return code::bad_handle;
  if (!screen_layout(d->format)) return report(kName, code::unsupported, "Unsupported image format");
  Image* img = find_image(image);
  if (img == nullptr) return report(kName, code::bad_handle, "Image handle not valid");
  if (img->data == nullptr && command == stage::kNext) {
    return report(kName, code::bad_image, "Image is empty (Pdata NULL)");
  }
  uint32_t result = 0;
  BitmapPathState& state = bitmap_path();
  if (state.progress.idle() && !platform_ready(d->paint_dc == nullptr, kName, result)) return result;
  if (d->paint_dc == nullptr) d->paint_dc = backend::get_dc(d->window);

  if (uint32_t r = stage::start(state.progress, stage::kBusy, [&]() -> uint32_t {
        d->lines_shown = 0;
        d->memory_dc = backend::create_compatible_dc(d->paint_dc);
        d->bitmap = backend::create_compatible_bitmap(d->paint_dc, static_cast<int32_t>(img->width),
                                                      static_cast<int32_t>(img->height));
        d->previous_object = backend::select_object(d->memory_dc, d->bitmap);
        d->bitmap_width = static_cast<uint16_t>(img->width);
        d->bitmap_height = static_cast<uint16_t>(img->height);
        return 0;
      });
      is_error(r)) {
    return r;
  }
  const auto blit = [&]() -> uint32_t {
    const Size to = destination_size(*d, img->width, img->height);
    if ((d->flags & PIX_DISPLAY_FLAG_FIT) == 0) {
      backend::bit_blt(d->paint_dc, d->roi_left, d->roi_top, to.width, to.height, d->memory_dc, 0, 0);
    } else {
      backend::stretch_blt(d->paint_dc, d->roi_left, d->roi_top, to.width, to.height, d->memory_dc, 0, 0,
                           static_cast<int32_t>(img->width), static_cast<int32_t>(img->height));
    }
    return 0;
  };
  // Every strip goes to the top of the bitmap (kept: applications that show
  // strips see each one where the first was), before the last one is cut.
  const auto copy_strip = [&]() -> uint32_t {
    const uint64_t bytes = strip_bytes(*img);
    backend::set_bitmap_bits(d->bitmap, static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX)), img->data);
    return 0;
  };
  const auto finish = [&]() -> uint32_t {
    backend::select_object(d->memory_dc, d->previous_object);
    backend::delete_object(d->bitmap);
    backend::delete_dc(d->memory_dc);
    d->bitmap = d->previous_object = nullptr;
    d->memory_dc = nullptr;
    if (d->paint_dc != nullptr) backend::release_dc(d->window, d->paint_dc);
    d->paint_dc = nullptr;
    return 0;
  };
  const uint32_t r = stage::advance(state.progress, *img, command, blit, copy_strip, finish, {.sum_16_bits = true});
  d->lines_shown = static_cast<uint16_t>(state.progress.lines_done);
  return r;
}

PIX_API uint32_t PIX_CALL PIX_display_print_DIB(uint32_t display, uint32_t image, int16_t percentage) {
  constexpr const char* kName = "PIX_display_print_DIB";
  Display* d = checked_display(display, kName);
  if (d == nullptr) return code::bad_handle;
  if (d->paint_dc == nullptr) return report(kName, code::bad_handle, "Printer device context not set");
  uint32_t result = 0;
  const Image* img = checked_dib(image, kName, result);
  if (img == nullptr) return result;
  if (img->format != PIX_BGR24 || (img->flags & PIX_FLAG_DIB) == 0) {
    return report(kName, code::unsupported,
                  "24 bit DIBs (BGR24 pixel format) must be supplied to the DIB print function");
  }
  const int32_t percent = percentage < 0 ? 0 : percentage > 100 ? 100 : percentage;
  const int32_t pw = d->width, ph = d->height;
  if (pw == 0 || ph == 0) return report(kName, code::bad_parameter, "Printer dimensions not set up");
  if (!dib_matches(*img)) return report(kName, code::bad_image, "Corrupt image");
  if (!platform_ready(false, kName, result)) return result;
  const double w = img->width, h = img->height;
  const double across = w / pw, down = h / ph;
  const double f = across < down || across == down ? ph / h : pw / w;
  const int64_t full_width = truncated(w * f), full_height = truncated(h * f);
  // The scale is the single-precision 0.01 widened (kept: it fixes the last
  // pixel of the printed size).
  const double hundredth = static_cast<double>(0.01f);
  const int32_t width = truncated(static_cast<double>(full_width * percent) * hundredth);
  const int32_t height = truncated(static_cast<double>(percent * full_height) * hundredth);
  const int32_t x = (pw - width) / 2, y = (ph - height) / 2;
  const int32_t printed =
      backend::stretch_dib(d->paint_dc, x, y, width, height, 0, 0, static_cast<int32_t>(img->width),
                           static_cast<int32_t>(img->height), img->data + kHeaderBytes, img->data);
  if ((printed & 0xFFFF) == 0) return report(kName, kGdiFailed, "Failed to print image");
  return 0;
}

}  // extern "C"
