// The Linux display for real: windows on an X server (the test runs under
// xvfb-run, at 24, 16 and 15 bits) read back with XGetImage, cairo image
// surfaces as device contexts, the MIT-SHM path; and, with no DISPLAY, the
// stated failure.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "test_support.h"  // before X11's macros (None, Bool, Status)
#include "display/backend.h"
#include "display/backend_x11.h"

namespace {

namespace b = pix::display::backend;
using namespace pix::display::x11;
using Pixel = std::function<uint32_t(int, int)>;  // 0xRRGGBB at x, y

uint32_t picture(int x, int y) { return uint32_t((x * 37 + y) & 255) << 16 | uint32_t((y * 29 + x) & 255) << 8 | ((x ^ y) * 7 & 255); }

// A DIB of picture(): 40-byte header, bottom-up BGR rows padded to 4 bytes.
std::vector<uint8_t> make_dib(int w, int h) {
  const int stride = (w * 3 + 3) & ~3;
  std::vector<uint8_t> d(40 + std::size_t(stride) * h, 0);
  auto put = [&](int at, uint32_t v) { for (int i = 0; i < 4; ++i) d[at + i] = uint8_t(v >> 8 * i); };
  put(0, 40), put(4, uint32_t(w)), put(8, uint32_t(h)), put(12, 1 | 24 << 16);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t* p = &d[40 + std::size_t(h - 1 - y) * stride + 3 * x];
      const uint32_t c = picture(x, y);
      p[0] = uint8_t(c), p[1] = uint8_t(c >> 8), p[2] = uint8_t(c >> 16);
    }
  return d;
}

// A colour as a pixel of the screen: 0x00RRGGBB at depth 24, the top bits
// of each component at 16 (5-6-5) and 15 (5-5-5), as the server's visual
// packs them.
struct Screen {
  int depth = 24;
  int bits() const { return depth > 16 ? 32 : 16; }
  uint32_t pack(uint32_t rgb) const {
    const uint32_t r = rgb >> 16 & 255, g = rgb >> 8 & 255, b = rgb & 255;
    if (depth == 16) return (r >> 3) << 11 | (g >> 2) << 5 | b >> 3;
    if (depth == 15) return (r >> 3) << 10 | (g >> 3) << 5 | b >> 3;
    return rgb;
  }
  // The picture's rows as the screen holds them (`bits` a pixel).
  std::vector<uint8_t> rows(int w, int h, int bits, bool reversed) const {
    std::vector<uint8_t> out(std::size_t(w) * h * bits / 8);
    for (int i = 0; i < w * h; ++i) {
      const int j = reversed ? w * h - 1 - i : i;
      const uint32_t v = bits == 32 ? picture(j % w, j / w) : pack(picture(j % w, j / w));
      std::memcpy(&out[std::size_t(i) * bits / 8], &v, std::size_t(bits) / 8);
    }
    return out;
  }
};
Screen screen();
uint32_t as_is(uint32_t rgb) { return rgb; }

// The w x h picture drawn into dw x dh at x, y (nearest pixel, no position
// lands on a pixel edge for the sizes used): every pixel of `area` must be
// the picture's (as `pack` makes it a pixel) or the background pixel.
void expect_drawn(const Pixel& read, int area_w, int area_h, int x, int y, int w, int h, int dw, int dh,
                  uint32_t background, const std::function<uint32_t(uint32_t)>& pack = as_is) {
  int wrong = 0;
  for (int py = 0; py < area_h; ++py)
    for (int px = 0; px < area_w; ++px) {
      const bool inside = px >= x && px < x + dw && py >= y && py < y + dh;
      const uint32_t want =
          inside ? pack(picture(int((px - x + 0.5) * w / dw), int((py - y + 0.5) * h / dh))) : background;
      if ((read(px, py) & 0xFFFFFF) != want && ++wrong <= 3)
        ADD_FAILURE() << "pixel " << px << "," << py << ": " << std::hex << read(px, py) << " want " << want;
    }
  EXPECT_EQ(wrong, 0);
}

struct ImageDc {
  X11State& s = x11_state();
  cairo_surface_t* surface;
  cairo_t* cr;
  ImageDc(int w, int h, cairo_format_t f = CAIRO_FORMAT_RGB24)
      : surface(s.call.cairo_image_surface_create(f, w, h)), cr(s.call.cairo_create(surface)) {
    s.call.cairo_set_source_rgb(cr, 0, 0, 1), s.call.cairo_paint(cr);  // blue
  }
  ~ImageDc() { s.call.cairo_destroy(cr), s.call.cairo_surface_destroy(surface); }
  Pixel reader() {
    s.call.cairo_surface_flush(surface);
    const uint8_t* data = s.call.cairo_image_surface_get_data(surface);
    const int stride = s.call.cairo_image_surface_get_stride(surface);
    return [=](int x, int y) { return *reinterpret_cast<const uint32_t*>(data + std::size_t(y) * stride + 4 * x); };
  }
};

struct Window {
  X11State& s = *connect();
  ::Window id;
  explicit Window(int w, int h, int x = 30, int y = 20)
      : id(s.call.XCreateSimpleWindow(s.display, s.call.XRootWindow(s.display, 0), x, y, unsigned(w), unsigned(h), 0, 0,
                                      0x0000FF)) {
    s.call.XMapWindow(s.display, id);
    s.call.XSync(s.display, False);
  }
  ~Window() { s.call.XDestroyWindow(s.display, id), s.call.XSync(s.display, False); }
  PIX_HWND handle() const { return to_handle(id); }
  // The window's pixels as the server holds them now.
  Pixel reader(int w, int h) {
    s.call.XSync(s.display, False);
    XImage* image = s.call.XGetImage(s.display, id, 0, 0, unsigned(w), unsigned(h), ~0ul, ZPixmap);
    auto keep = std::shared_ptr<XImage>(image, [](XImage* i) { XDestroyImage(i); });
    return [keep](int x, int y) { return uint32_t(XGetPixel(keep.get(), x, y)); };
  }
};

Screen screen() {
  X11State& s = *connect();
  return {s.call.XDefaultDepth(s.display, s.call.XDefaultScreen(s.display))};
}

class X11Backend : public pixtest::LibraryTest {};

// The platform calls on every kind of context: the DIB at its own size and
// stretched, and the bitmap path, with the same picture read back.
TEST_F(X11Backend, DibAndBitmapOnImageSurfacesAndWindows) {
  ASSERT_NE(connect(), nullptr) << "needs an X server: run under xvfb-run";
  const int w = 24, h = 18;
  const auto dib = make_dib(w, h);
  const Screen screen = ::screen();
  Window window(100, 80);
  for (int target = 0; target < 2; ++target) {
    SCOPED_TRACE(target == 0 ? "image surface" : "window");
    std::unique_ptr<ImageDc> image;
    PIX_HDC dc = nullptr;
    if (target == 0) {
      image = std::make_unique<ImageDc>(100, 80);
      dc = image->cr;
    } else {
      dc = b::get_dc(window.handle());
      ASSERT_NE(dc, nullptr);
    }
    auto read = [&] { return image ? image->reader() : window.reader(100, 80); };
    const int bits = image ? 32 : screen.bits();
    const auto pack = [&](uint32_t rgb) { return image ? rgb : screen.pack(rgb); };
    EXPECT_EQ(b::device_caps(dc, b::kBitsPixel), bits);
    EXPECT_EQ(b::device_caps(dc, b::kHorzRes), image ? 100 : 1280);
    EXPECT_EQ(b::device_caps(dc, b::kVertRes), image ? 80 : 1024);
    EXPECT_EQ(b::device_caps(dc, b::kPlanes), 1);
    // At (5, 7), the top 12 lines of the picture (source origin counted from the bottom).
    EXPECT_EQ(b::set_dib_to_device(dc, 5, 7, w, 12, 0, h - 12, 0, h, dib.data() + 40, dib.data()), h);
    expect_drawn(read(), 40, 30, 5, 7, w, 12, w, 12, 0x0000FF, pack);
    // Stretched to twice the width and three times the height at (1, 2).
    EXPECT_EQ(b::stretch_dib(dc, 1, 2, 2 * w, 3 * h, 0, 0, w, h, dib.data() + 40, dib.data()), h);
    expect_drawn(read(), 100, 80, 1, 2, w, h, 2 * w, 3 * h, 0x0000FF, pack);
    EXPECT_EQ(b::stretch_dib(dc, 0, 0, 0, 10, 0, 0, w, h, dib.data() + 40, dib.data()), 0);
    // The bitmap path: rows in the screen's layout (0x00RRGGBB words, or 16-bit pixels).
    std::vector<uint8_t> rows = screen.rows(w, h, bits, false);
    const uint32_t size = uint32_t(rows.size());
    PIX_HDC memory = b::create_compatible_dc(dc);
    b::Object bitmap = b::create_compatible_bitmap(dc, w, h);
    ASSERT_TRUE(memory && bitmap);
    b::Object stock = b::select_object(memory, bitmap);
    ASSERT_NE(stock, nullptr);
    EXPECT_EQ(b::set_bitmap_bits(bitmap, size, rows.data()), size);
    EXPECT_TRUE(b::bit_blt(dc, 60, 50, w, h, memory, 0, 0));
    EXPECT_TRUE(b::stretch_blt(dc, 0, 0, 2 * w, 2 * h, memory, 0, 0, w, h));
    const Pixel after = read();
    expect_drawn(after, 2 * w, 2 * h, 0, 0, w, h, 2 * w, 2 * h, 0, pack);
    expect_drawn([&](int x, int y) { return after(x + 60, y + 50); }, w, h, 0, 0, w, h, w, h, 0, pack);
    EXPECT_EQ(b::select_object(memory, stock), bitmap);
    b::delete_object(bitmap);
    // The next bitmap of that size (on a window: through the shared image the
    // last one left) with other bits, mirrored.
    bitmap = b::create_compatible_bitmap(dc, w, h);
    b::select_object(memory, bitmap);
    rows = screen.rows(w, h, bits, true);
    EXPECT_EQ(b::set_bitmap_bits(bitmap, size, rows.data()), size);
    EXPECT_TRUE(b::stretch_blt(dc, w, h, -w, -h, memory, 0, 0, w, h));
    expect_drawn(read(), w, h, 0, 0, w, h, w, h, 0, pack);
    b::select_object(memory, stock);
    b::delete_object(bitmap), b::delete_dc(memory);
    if (!image) b::release_dc(window.handle(), dc);
  }
}

// A DIB put at its own size into an image surface's pixels: at the
// surface's edges, through the context's translation, from a column and a
// band of rows of the picture, some of them not among the rows given
// (drawn black); every byte of the surface checked, alpha included.
TEST_F(X11Backend, DibIntoImageSurfacePixels) {
  const int w = 24, h = 18, sx = 4, band = 12, first = 8;  // rows stored from storage row `first` on
  const auto dib = make_dib(w, h);
  const int stride = (w * 3 + 3) & ~3;
  const struct {
    int tx, ty, x, y;
  } cases[] = {{0, 0, 5, 7}, {0, 0, 90, 70}, {-10, -5, 5, 2}, {3, 4, -10, -12}, {0, 0, 200, 10}};
  for (cairo_format_t format : {CAIRO_FORMAT_RGB24, CAIRO_FORMAT_ARGB32})
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << format << " " << c.tx << "," << c.ty << " " << c.x << "," << c.y);
      ImageDc image(100, 80, format);
      const Pixel before = image.reader();
      const uint32_t background = before(0, 0);
      image.s.call.cairo_translate(image.cr, c.tx, c.ty);
      EXPECT_EQ(b::set_dib_to_device(image.cr, c.x, c.y, w - sx, band, sx, h - band, first, h - first,
                                     dib.data() + 40 + std::size_t(first) * stride, dib.data()),
                h - first);
      const Pixel read = image.reader();
      int wrong = 0;
      for (int py = 0; py < 80; ++py)
        for (int px = 0; px < 100; ++px) {
          const int col = px - c.tx - c.x, row = py - c.ty - c.y;  // in the drawn band
          uint32_t want = background;
          if (col >= 0 && col < w - sx && row >= 0 && row < band)
            want = 0xFF000000u | (h - 1 - row >= first ? picture(sx + col, row) : 0);
          if (read(px, py) != want && ++wrong <= 3)
            ADD_FAILURE() << "pixel " << px << "," << py << ": " << std::hex << read(px, py) << " want " << want;
        }
      EXPECT_EQ(wrong, 0);
    }
}

TEST_F(X11Backend, WindowFactsAndTheSharedMemoryPath) {
  ASSERT_NE(connect(), nullptr);
  const Screen screen = ::screen();
  Window window(64, 48, 200, 100);
  b::Rect r;
  ASSERT_TRUE(b::window_rect(window.handle(), r));
  EXPECT_EQ(std::vector<int>({r.left, r.top, r.right, r.bottom}), std::vector<int>({200, 100, 264, 148}));
  int32_t x = 3, y = 4;
  ASSERT_TRUE(b::client_to_screen(window.handle(), x, y));
  EXPECT_EQ(std::pair(x, y), std::pair(203, 104));
  PIX_HDC dc = b::get_dc(window.handle());
  uint32_t red = 0, green = 0, blue = 0;
  ASSERT_TRUE(b::probe_masks(dc, red, green, blue));
  EXPECT_EQ(std::vector<uint32_t>({red, green, blue}),
            std::vector<uint32_t>({screen.pack(0xFF0000), screen.pack(0xFF00), screen.pack(0xFF)}));
  b::release_dc(window.handle(), dc);
  EXPECT_FALSE(b::window_rect(to_handle(0x7FFFFFF), r));  // a bad window is a failure, not an exit
  // Lines written through the locked pointer reach the window's client area.
  b::DirectObjects objects;
  std::string message;
  ASSERT_TRUE(b::direct_create(window.handle(), objects, message));
  EXPECT_EQ(b::direct_caps(objects), 0u);
  b::Rect clip;
  ASSERT_TRUE(b::direct_restore(objects, message) && b::direct_clip(objects, clip, message)) << message;
  // The segment is addressed in the window's own coordinates, the server clipping each put.
  X11State& s = *connect();
  EXPECT_EQ(std::vector<int>({clip.left, clip.top, clip.right, clip.bottom}),
            std::vector<int>({0, 0, s.call.XDisplayWidth(s.display, 0), s.call.XDisplayHeight(s.display, 0)}));
  int32_t ox = 3, oy = 4;
  EXPECT_TRUE(b::direct_origin(objects, window.handle(), ox, oy) && ox == 3 && oy == 4);
  const b::Rect rect{10, 5, 10 + 30, 5 + 20};
  uint8_t* bits = nullptr;
  int32_t pitch = 0;
  ASSERT_TRUE(b::direct_lock(objects, rect, bits, pitch, message)) << message;
  const std::vector<uint8_t> rows = screen.rows(30, 20, screen.bits(), false);
  const std::size_t row_bytes = rows.size() / 20;
  for (int row = 0; row < 20; ++row) std::memcpy(bits + row * pitch, &rows[row * row_bytes], row_bytes);
  ASSERT_TRUE(b::direct_unlock(objects, rect, message)) << message;
  const Pixel read = window.reader(64, 48);
  expect_drawn([&](int px, int py) { return read(px + 10, py + 5); }, 30, 20, 0, 0, 30, 20, 30, 20, 0,
               [&](uint32_t rgb) { return screen.pack(rgb); });
  EXPECT_EQ(read(9, 5), 0x0000FFu);
  EXPECT_FALSE(b::direct_lock(objects, {0, 0, 5000, 10}, bits, pitch, message));
  b::direct_release(objects);
  EXPECT_EQ(objects.object, nullptr);
}

// Run without DISPLAY (a ctest entry of its own): the library still works
// on image surfaces; reaching X fails with the stated code and the reason.
TEST_F(X11Backend, WithoutDisplayOrLibraries) {
  ASSERT_EQ(std::getenv("DISPLAY"), nullptr) << "run with DISPLAY unset";
  X11State& s = x11_state();
  std::string message;
  s.names.cairo = "libcairo-not-installed.so.2";
  EXPECT_FALSE(b::ready(false, message));
  EXPECT_EQ(message, "libcairo-not-installed.so.2: cannot open shared object file: No such file or directory");
  const uint32_t d = PIX_display_create();
  expect_report(PIX_display_init(d, to_handle(1)), "PIX_display_init", kUnavailable, message);
  s.names.cairo = LibraryNames{}.cairo;
  ASSERT_TRUE(b::ready(false, message));
  ImageDc image(8, 8);
  EXPECT_EQ(b::device_caps(image.cr, b::kBitsPixel), 32);
  EXPECT_FALSE(b::ready(true, message));
  EXPECT_EQ(message, "no X display: DISPLAY is not set");
  expect_report(PIX_display_init(d, to_handle(1)), "PIX_display_init", kUnavailable, message);
  EXPECT_EQ(b::get_dc(to_handle(1)), nullptr);
}

}  // namespace
