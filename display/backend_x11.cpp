// The display's platform on Linux: X11 windows, cairo device contexts, a
// server-side pixmap for the bitmap path and an MIT-SHM image for the direct
// path, every library loaded at run time (see backend_x11.h).
#include "backend_x11.h"

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "backend.h"
#include "convert/kernels/direct.h"
#include "core/simd.h"
#include "core/status.h"

namespace pix::display::x11 {

X11State& x11_state() noexcept {
  static X11State state;
  return state;
}

namespace {

// Opens one library and takes the named symbols from it; false with the
// loader's words in `message`.
template <typename Bind>
bool open_library(void*& handle, const char* name, std::string& message, Bind bind) {
  if (handle == nullptr) handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = dlerror();
    message = why != nullptr ? why : std::string(name) + ": cannot be loaded";
    return false;
  }
  const char* missing = bind(handle);
  if (missing != nullptr) {
    message = std::string(name) + " lacks " + missing;
    return false;
  }
  return true;
}

#define PIX95_X11_BIND(name)                                                          \
  if ((s.call.name = reinterpret_cast<decltype(s.call.name)>(dlsym(h, #name))) == nullptr) \
    return #name;

bool load_cairo(X11State& s) {
  return open_library(s.cairo, s.names.cairo, s.message, [&](void* h) -> const char* {
    PIX95_CAIRO_CALLS(PIX95_X11_BIND)
    return nullptr;
  });
}

bool load_x11(X11State& s) {
  return open_library(s.x11, s.names.x11, s.message, [&](void* h) -> const char* {
           PIX95_X11_CALLS(PIX95_X11_BIND)
           PIX95_X11_BIND(XESetCloseDisplay)
           return nullptr;
         }) &&
         open_library(s.xext, s.names.xext, s.message, [&](void* h) -> const char* {
           PIX95_XEXT_CALLS(PIX95_X11_BIND)
           return nullptr;
         });
}
#undef PIX95_X11_BIND

// Xlib's XCB side, when it is there (nothing is lost without it: the
// window's size and place then take a round trip each).
void load_xcb(X11State& s) {
  s.x11_xcb = dlopen("libX11-xcb.so.1", RTLD_NOW | RTLD_LOCAL);
  s.xcb = dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
  if (s.x11_xcb == nullptr || s.xcb == nullptr) return;
  XcbCalls c;
  c.XGetXCBConnection = reinterpret_cast<decltype(c.XGetXCBConnection)>(dlsym(s.x11_xcb, "XGetXCBConnection"));
  c.xcb_get_geometry = reinterpret_cast<decltype(c.xcb_get_geometry)>(dlsym(s.xcb, "xcb_get_geometry"));
  c.xcb_get_geometry_reply =
      reinterpret_cast<decltype(c.xcb_get_geometry_reply)>(dlsym(s.xcb, "xcb_get_geometry_reply"));
  c.xcb_translate_coordinates =
      reinterpret_cast<decltype(c.xcb_translate_coordinates)>(dlsym(s.xcb, "xcb_translate_coordinates"));
  c.xcb_translate_coordinates_reply =
      reinterpret_cast<decltype(c.xcb_translate_coordinates_reply)>(dlsym(s.xcb, "xcb_translate_coordinates_reply"));
  if (c.XGetXCBConnection && c.xcb_get_geometry && c.xcb_get_geometry_reply && c.xcb_translate_coordinates &&
      c.xcb_translate_coordinates_reply) {
    s.xcb_call = c;
  }
}

// The first error seen by the trap (only one trap runs at a time), and the
// first request number that is the trap's own.
int g_trapped = 0;
bool g_counting_from = false;
unsigned long g_first_serial = 0;
int trap_handler(Display*, XErrorEvent* event) {
  // Request numbers wrap; the difference tells which came first.
  const bool own = !g_counting_from || static_cast<long>(event->serial - g_first_serial) >= 0;
  if (own && g_trapped == 0) g_trapped = event->error_code;
  return 0;
}

}  // namespace

X11State* cairo_ready() {
  X11State& s = x11_state();
  if (s.call.cairo_create != nullptr || load_cairo(s)) return &s;
  return nullptr;
}

X11State* xlib_ready() {
  X11State& s = x11_state();
  if ((s.call.XShmPutImage != nullptr && s.call.cairo_create != nullptr) || (load_cairo(s) && load_x11(s))) return &s;
  return nullptr;
}

X11State* connect() {
  X11State& s = x11_state();
  if (s.display != nullptr) return &s;
  // Tried again at every use until it works: a library installed or a
  // server started later is found then.
  if (!load_cairo(s) || !load_x11(s)) {
    return nullptr;
  } else if (const char* name = std::getenv("DISPLAY"); name == nullptr || *name == '\0') {
    s.message = "no X display: DISPLAY is not set";
  } else if ((s.display = s.call.XOpenDisplay(nullptr)) == nullptr) {
    s.message = std::string("cannot open X display '") + name + "'";
  } else {
    s.shm = s.call.XShmQueryExtension(s.display) != False;
    load_xcb(s);
  }
  return s.display != nullptr ? &s : nullptr;
}

ErrorTrap::ErrorTrap(X11State& s, Display* display) : s_(s) {
  g_trapped = 0;
  g_counting_from = display != nullptr;
  g_first_serial = display != nullptr ? NextRequest(display) : 0;
  previous_ = s_.call.XSetErrorHandler(trap_handler);
}
ErrorTrap::~ErrorTrap() {
  s_.call.XSetErrorHandler(previous_);
  g_counting_from = false;
}
int ErrorTrap::finish(Display* display) {
  s_.call.XSync(display, False);
  const int code = g_trapped;
  g_trapped = 0;
  return code;
}
int ErrorTrap::seen() const { return g_trapped; }
std::string ErrorTrap::text(Display* display, int code) const {
  char buffer[128] = {};
  s_.call.XGetErrorText(display, code, buffer, sizeof buffer - 1);
  return buffer;
}

}  // namespace pix::display::x11

namespace pix::display::backend {

using namespace pix::display::x11;

namespace {

// --- shared-memory images ----------------------------------------------------------
// An MIT-SHM image: pixels in a segment the X server reads itself, so a put
// sends a request, not the pixels.  The server reads the segment while it
// handles the put; the segment may be written again once that request is
// known handled (any later reply says so), which `settle` waits for only
// when no reply has come since.
struct Shared {
  Display* display = nullptr;
  XShmSegmentInfo segment{};
  XImage* image = nullptr;
  int depth = 0;
  GC gc = nullptr;  // for drawables of the image's depth, made at the first put
  unsigned long put_serial = 0;
  bool put_pending = false;
};

void free_shared(X11State& s, Shared& sh) {
  if (sh.image == nullptr) return;
  if (sh.gc != nullptr) s.call.XFreeGC(sh.display, sh.gc);
  s.call.XShmDetach(sh.display, &sh.segment);
  s.call.XSync(sh.display, False);
  shmdt(sh.segment.shmaddr);
  sh.image->data = nullptr;
  XDestroyImage(sh.image);
  sh.image = nullptr, sh.gc = nullptr, sh.put_pending = false;
}

// Makes a width x height image of `depth` pixels shared with the server;
// false with the failing call in `message`.
bool make_shared(X11State& s, Display* display, Visual* visual, int depth, int width, int height, Shared& sh,
                 std::string& message) {
  sh.display = display, sh.depth = depth;
  sh.image = s.call.XShmCreateImage(display, visual, static_cast<unsigned>(depth), ZPixmap, nullptr, &sh.segment,
                                    static_cast<unsigned>(width), static_cast<unsigned>(height));
  if (sh.image == nullptr) {
    message = "XShmCreateImage call 1 - no image";
    return false;
  }
  sh.segment.shmid = shmget(IPC_PRIVATE, static_cast<std::size_t>(sh.image->bytes_per_line) * height, IPC_CREAT | 0600);
  void* address = sh.segment.shmid < 0 ? reinterpret_cast<void*>(-1) : shmat(sh.segment.shmid, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {
    message = std::string("shmget call 1 - ") + std::strerror(errno);
    if (sh.segment.shmid >= 0) shmctl(sh.segment.shmid, IPC_RMID, nullptr);
    XDestroyImage(sh.image);
    sh.image = nullptr;
    return false;
  }
  sh.segment.shmaddr = sh.image->data = static_cast<char*>(address);
  sh.segment.readOnly = False;
  int error = 0;
  {
    ErrorTrap trap(s, display);
    s.call.XShmAttach(display, &sh.segment);
    error = trap.finish(display);
    if (error != 0) message = "XShmAttach call 1 - " + trap.text(display, error);
  }
  // Gone from the system once both sides let go.
  shmctl(sh.segment.shmid, IPC_RMID, nullptr);
  if (error != 0) {
    shmdt(sh.segment.shmaddr);
    sh.image->data = nullptr;
    XDestroyImage(sh.image);
    sh.image = nullptr;
    return false;
  }
  return true;
}

// Waits, if it must, until the server has read the segment for the last put.
void settle(X11State& s, Shared& sh) {
  if (!sh.put_pending) return;
  if (static_cast<long>(LastKnownRequestProcessed(sh.display) - sh.put_serial) < 0) s.call.XSync(sh.display, False);
  sh.put_pending = false;
}

// Puts w x h pixels of the image from sx, sy to x, y of `drawable` (of the
// image's depth), without waiting; the request goes out at once.
void put_shared(X11State& s, Shared& sh, Drawable drawable, int sx, int sy, int x, int y, int w, int h) {
  if (sh.gc == nullptr) sh.gc = s.call.XCreateGC(sh.display, drawable, 0, nullptr);
  sh.put_serial = NextRequest(sh.display);
  s.call.XShmPutImage(sh.display, drawable, sh.gc, sh.image, sx, sy, x, y, static_cast<unsigned>(w),
                      static_cast<unsigned>(h), False);
  sh.put_pending = true;
  s.call.XFlush(sh.display);
}

// --- device-dependent bitmaps and their memory contexts ------------------------------
struct Bitmap {
  cairo_surface_t* surface = nullptr;  // over the pixmap, or an image surface
  Display* display = nullptr;          // null for an image surface
  Pixmap pixmap = 0;
  Visual* visual = nullptr;
  int width = 0, height = 0, depth = 0, bits_per_pixel = 0;
  std::unique_ptr<Shared> shared;  // the pixmap's bits go through it when the server shares memory
};
struct MemoryDc {
  cairo_surface_t* like = nullptr;  // the target of the context it is compatible with (a reference)
  void* selected = nullptr;         // a Bitmap, or the stock object
};

// What the platform keeps between calls: the bitmaps and memory contexts it
// made (so that a handle is told from a cairo_t), the direct path's objects
// and a scratch row buffer for DIBs.
struct DirectImage;
struct Objects {
  std::vector<std::unique_ptr<Bitmap>> bitmaps;
  std::vector<std::unique_ptr<MemoryDc>> dcs;
  std::vector<std::unique_ptr<DirectImage>> direct;
  std::vector<cairo_t*> made;  // contexts get_dc made
  std::vector<uint32_t> scratch;
  // A deleted bitmap's shared image, kept for the next bitmap of its size
  // (the bitmap path makes one bitmap a frame), and the connections whose
  // server refused shared memory.
  std::unique_ptr<Shared> spare;
  std::vector<Display*> no_shared;
  std::vector<Display*> watched;  // connections whose closing is hooked
  // The spare is given back to the server before the process ends: left to
  // the server's clean-up of the closed connection, the next process's
  // first frames on the same Xvfb were at times wiped (seen, not explained).
  Objects() = default;
  Objects(const Objects&) = delete;
  Objects& operator=(const Objects&) = delete;
  ~Objects() {
    if (spare != nullptr) free_shared(x11_state(), *spare);
  }
  char stock = 0;  // the object a new memory context holds
};
Objects& objects() {
  static Objects o;
  return o;
}

template <typename T>
T* find(std::vector<std::unique_ptr<T>>& list, const void* p) {
  for (auto& item : list) {
    if (item.get() == p) return item.get();
  }
  return nullptr;
}
template <typename T>
void drop(std::vector<std::unique_ptr<T>>& list, const void* p) {
  std::erase_if(list, [p](const std::unique_ptr<T>& item) { return item.get() == p; });
}

cairo_t* as_cairo(PIX_HDC dc) { return static_cast<cairo_t*>(dc); }

bool is_xlib(X11State& s, cairo_surface_t* surface) {
  return s.call.cairo_surface_get_type(surface) == CAIRO_SURFACE_TYPE_XLIB;
}
bool is_image(X11State& s, cairo_surface_t* surface) {
  return s.call.cairo_surface_get_type(surface) == CAIRO_SURFACE_TYPE_IMAGE;
}

int bits_per_pixel(X11State& s, Display* display, int depth) {
  int count = 0, bits = depth;
  if (XPixmapFormatValues* formats = s.call.XListPixmapFormats(display, &count)) {
    for (int i = 0; i < count; ++i) {
      if (formats[i].depth == depth) bits = formats[i].bits_per_pixel;
    }
    s.call.XFree(formats);
  }
  return bits;
}

// The bits of a pixel in an image surface, 0 for a format the display
// cannot describe.
int image_bits(cairo_format_t format) {
  switch (format) {
    case CAIRO_FORMAT_ARGB32:
    case CAIRO_FORMAT_RGB24: return 32;
    case CAIRO_FORMAT_RGB16_565: return 16;
    case CAIRO_FORMAT_A8: return 8;
    case CAIRO_FORMAT_A1: return 1;
    default: return 0;
  }
}

// Pushes drawing on an X surface out to the server, so that a picture drawn
// into an application's context shows without its event loop.
void flush(X11State& s, cairo_t* cr) {
  cairo_surface_t* target = s.call.cairo_get_target(cr);
  s.call.cairo_surface_flush(target);
  if (is_xlib(s, target)) s.call.XFlush(s.call.cairo_xlib_surface_get_display(target));
}

// Draws `source` (sw x sh pixels, its top-left pixel at source_x, source_y)
// into dw x dh pixels at x, y (a negative size mirrors), replacing what was
// there; stretching picks the nearest pixel.
bool paint(X11State& s, cairo_t* cr, cairo_surface_t* source, double source_x, double source_y, int sw, int sh,
           int x, int y, int dw, int dh) {
  if (sw <= 0 || sh <= 0 || dw == 0 || dh == 0) return false;
  s.call.cairo_save(cr);
  s.call.cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  s.call.cairo_translate(cr, x, y);
  s.call.cairo_scale(cr, static_cast<double>(dw) / sw, static_cast<double>(dh) / sh);
  s.call.cairo_set_source_surface(cr, source, -source_x, -source_y);
  s.call.cairo_pattern_set_filter(s.call.cairo_get_source(cr), CAIRO_FILTER_NEAREST);
  s.call.cairo_rectangle(cr, 0, 0, sw, sh);
  s.call.cairo_fill(cr);
  s.call.cairo_restore(cr);
  flush(s, cr);
  return s.call.cairo_status(cr) == CAIRO_STATUS_SUCCESS;
}

// --- DIBs ------------------------------------------------------------------
struct Dib {
  int32_t width = 0, height = 0;  // height > 0: bottom-up rows
  int bits = 0;
  std::size_t stride = 0;
};

bool read_dib(const void* header, Dib& dib) {
  const auto* h = static_cast<const uint8_t*>(header);
  auto u32 = [h](int at) { return uint32_t{h[at]} | uint32_t{h[at + 1]} << 8 | uint32_t{h[at + 2]} << 16 | uint32_t{h[at + 3]} << 24; };
  dib.width = static_cast<int32_t>(u32(4));
  dib.height = static_cast<int32_t>(u32(8));
  dib.bits = h[14] | h[15] << 8;
  const uint32_t compression = u32(16);
  if (dib.width <= 0 || dib.height == 0 || dib.height == INT32_MIN || compression != 0) return false;
  if (dib.bits != 16 && dib.bits != 24 && dib.bits != 32) return false;
  dib.stride = (static_cast<std::size_t>(dib.width) * dib.bits + 31) / 32 * 4;
  return true;
}

// One DIB row (from column `first`, `count` pixels) as opaque 0xAARRGGBB words.
void dib_row(const Dib& dib, const uint8_t* row, int first, int count, uint32_t* out) {
  if (dib.bits == 24) {
    const uint8_t* p = row + 3 * static_cast<std::size_t>(first);
    for (int i = 0; i < count; ++i, p += 3) out[i] = 0xFF000000u | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
  } else if (dib.bits == 32) {
    const uint8_t* p = row + 4 * static_cast<std::size_t>(first);
    for (int i = 0; i < count; ++i, p += 4) out[i] = 0xFF000000u | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
  } else {
    const uint8_t* p = row + 2 * static_cast<std::size_t>(first);
    for (int i = 0; i < count; ++i, p += 2) {
      const uint32_t v = p[0] | p[1] << 8;
      const uint32_t r = v >> 10 & 31, g = v >> 5 & 31, b = v & 31;
      out[i] = 0xFF000000u | (r << 3 | r >> 2) << 16 | (g << 3 | g >> 2) << 8 | (b << 3 | b >> 2);
    }
  }
}

// Where a context draws straight into the pixels of an image surface of
// 32-bit pixels: the surface itself (no group), an integer translation and
// no device offset or scale, and a clip that, within the surface, leaves the
// rectangle x, y, w, h (user space) whole.  False when any of that fails:
// cairo then draws.
struct Straight {
  cairo_surface_t* target = nullptr;
  int dx = 0, dy = 0;  // user space to the surface's pixels
};
bool straight_target(X11State& s, cairo_t* cr, int x, int y, int w, int h, Straight& out) {
  if (s.call.cairo_status(cr) != CAIRO_STATUS_SUCCESS) return false;
  cairo_surface_t* target = s.call.cairo_get_target(cr);
  if (!is_image(s, target) || s.call.cairo_get_group_target(cr) != target) return false;
  const cairo_format_t format = s.call.cairo_image_surface_get_format(target);
  if (format != CAIRO_FORMAT_RGB24 && format != CAIRO_FORMAT_ARGB32) return false;
  double ox = 0, oy = 0, scale_x = 0, scale_y = 0;
  s.call.cairo_surface_get_device_offset(target, &ox, &oy);
  s.call.cairo_surface_get_device_scale(target, &scale_x, &scale_y);
  cairo_matrix_t m;
  s.call.cairo_get_matrix(cr, &m);
  const auto whole = [](double v) { return v == static_cast<double>(static_cast<int>(v)) && std::abs(v) < 1 << 30; };
  if (ox != 0 || oy != 0 || scale_x != 1 || scale_y != 1 || m.xx != 1 || m.yy != 1 || m.xy != 0 || m.yx != 0 ||
      !whole(m.x0) || !whole(m.y0)) {
    return false;
  }
  out.target = target, out.dx = static_cast<int>(m.x0), out.dy = static_cast<int>(m.y0);
  // The part of the rectangle on the surface, in user space.
  const int64_t width = s.call.cairo_image_surface_get_width(target), height = s.call.cairo_image_surface_get_height(target);
  const int64_t left = std::max<int64_t>(x, -out.dx), top = std::max<int64_t>(y, -out.dy);
  const int64_t right = std::min<int64_t>(int64_t{x} + w, width - out.dx), bottom = std::min<int64_t>(int64_t{y} + h, height - out.dy);
  if (right <= left || bottom <= top) return true;
  cairo_rectangle_list_t* clip = s.call.cairo_copy_clip_rectangle_list(cr);
  bool whole_clip = clip->status == CAIRO_STATUS_SUCCESS && clip->num_rectangles == 1 &&
                    clip->rectangles[0].x <= left && clip->rectangles[0].y <= top &&
                    clip->rectangles[0].x + clip->rectangles[0].width >= right &&
                    clip->rectangles[0].y + clip->rectangles[0].height >= bottom;
  s.call.cairo_rectangle_list_destroy(clip);
  return whole_clip;
}

// The row converter of 24-bit DIB pixels to the surface's: blue, green, red
// and a zero byte, which is then made opaque (cairo's own drawing of the
// picture leaves 0xFF there).  A row goes through a small buffer that stays
// in the cache, and from there to the surface, past the cache: a frame is
// larger than the cache, and the next to read it is usually another device
// or process.
constexpr std::size_t kChunk = 512;  // pixels

void opaque_copy_scalar(const uint8_t* from, uint8_t* to, std::size_t pixels) {
  for (std::size_t i = 0; i < pixels; ++i) {
    uint32_t v;
    std::memcpy(&v, from + 4 * i, 4);
    v |= 0xFF000000u;
    std::memcpy(to + 4 * i, &v, 4);
  }
}
#if PIX95_X86
PIX95_SSE2 void opaque_copy_sse2(const uint8_t* from, uint8_t* to, std::size_t pixels) {
  std::size_t i = 0;
  const std::size_t head = std::min(pixels, ((16 - reinterpret_cast<uintptr_t>(to) % 16) % 16) / 4);
  opaque_copy_scalar(from, to, head);
  if (reinterpret_cast<uintptr_t>(to) % 4 == 0) {
    const __m128i opaque = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    for (i = head; pixels - i >= 4; i += 4) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 4 * i));
      _mm_stream_si128(reinterpret_cast<__m128i*>(to + 4 * i), _mm_or_si128(v, opaque));
    }
  } else {
    i = head;
  }
  opaque_copy_scalar(from + 4 * i, to + 4 * i, pixels - i);
}
#endif

#if PIX95_X86
// The streamed stores are seen by everyone before anything after this.
PIX95_SSE2 void streamed() { _mm_sfence(); }
#endif

void opaque_row(const uint8_t* src, uint8_t* dst, std::size_t pixels) {
  using convert::kernels::Direct;
  static const convert::kernels::DirectRow row = convert::kernels::direct_row(Direct::bgr24, Direct::bgrx32);
#if PIX95_X86
  static const auto copy = simd::active() >= simd::Level::sse2 ? opaque_copy_sse2 : opaque_copy_scalar;
#else
  constexpr auto copy = opaque_copy_scalar;
#endif
  alignas(64) uint8_t chunk[4 * kChunk];
  for (std::size_t done = 0; done < pixels; done += kChunk) {
    const std::size_t n = std::min(kChunk, pixels - done);
    row(src + 3 * done, chunk, n, 0);
    copy(chunk, dst + 4 * done, n);
  }
}

// draw_dib's way without stretching on a straight target (see draw_dib):
// each row converted from the DIB into the surface, cut to the surface.
void convert_into(X11State& s, const Straight& to, const Dib& dib, const uint8_t* bits, uint32_t first_stored,
                  uint32_t stored, int sx, int top, int w, int h, int x, int y) {
  cairo_surface_t* target = to.target;
  const int64_t width = s.call.cairo_image_surface_get_width(target), height = s.call.cairo_image_surface_get_height(target);
  const int64_t px = int64_t{x} + to.dx, py = int64_t{y} + to.dy;  // the rectangle's pixel on the surface
  const int64_t c0 = std::max<int64_t>(0, -px), c1 = std::min<int64_t>(w, width - px);
  const int64_t r0 = std::max<int64_t>(0, -py), r1 = std::min<int64_t>(h, height - py);
  if (c1 <= c0 || r1 <= r0) return;
  s.call.cairo_surface_flush(target);
  uint8_t* data = s.call.cairo_image_surface_get_data(target);
  const auto pitch = static_cast<std::size_t>(s.call.cairo_image_surface_get_stride(target));
  const int rows = std::abs(dib.height);
  const auto count = static_cast<std::size_t>(c1 - c0);
  for (int64_t r = r0; r < r1; ++r) {
    uint8_t* dst = data + static_cast<std::size_t>(py + r) * pitch + static_cast<std::size_t>(px + c0) * 4;
    const int64_t picture_row = top + r;
    const int64_t storage_row = dib.height > 0 ? int64_t{rows} - 1 - picture_row : picture_row;
    if (storage_row < first_stored || storage_row >= int64_t{first_stored} + stored) {
      // A row the bits do not hold is drawn opaque black, as cairo draws it.
      for (std::size_t i = 0; i < count; ++i) std::memcpy(dst + 4 * i, "\0\0\0\xFF", 4);
      continue;
    }
    opaque_row(bits + static_cast<std::size_t>(storage_row - first_stored) * dib.stride +
                   3 * static_cast<std::size_t>(sx + c0),
               dst, count);
  }
#if PIX95_X86
  if (simd::active() >= simd::Level::sse2) streamed();
#endif
  s.call.cairo_surface_mark_dirty_rectangle(target, static_cast<int>(px + c0), static_cast<int>(py + r0),
                                            static_cast<int>(c1 - c0), static_cast<int>(r1 - r0));
}

// Draws the DIB rows top .. top + sh - 1 (counted from the picture's top),
// columns sx .. sx + sw - 1, into dw x dh at x, y.  `bits` holds the stored
// rows first_stored .. first_stored + stored - 1 (in storage order).
bool draw_dib(X11State& s, cairo_t* cr, const Dib& dib, const uint8_t* bits, uint32_t first_stored, uint32_t stored,
              int sx, int top, int sw, int sh, int x, int y, int dw, int dh) {
  if (sw <= 0 || sh <= 0) return false;
  Straight straight;
  if (dib.bits == 24 && dw == sw && dh == sh && straight_target(s, cr, x, y, sw, sh, straight)) {
    convert_into(s, straight, dib, bits, first_stored, stored, sx, top, sw, sh, x, y);
    return true;
  }
  const int rows = std::abs(dib.height);
  std::vector<uint32_t>& scratch = objects().scratch;
  scratch.assign(static_cast<std::size_t>(sw) * sh, 0xFF000000u);
  for (int r = 0; r < sh; ++r) {
    const int picture_row = top + r;
    const int64_t storage_row = dib.height > 0 ? int64_t{rows} - 1 - picture_row : picture_row;
    if (storage_row < first_stored || storage_row >= int64_t{first_stored} + stored) continue;
    dib_row(dib, bits + static_cast<std::size_t>(storage_row - first_stored) * dib.stride, sx, sw,
            scratch.data() + static_cast<std::size_t>(r) * sw);
  }
  cairo_surface_t* source = s.call.cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(scratch.data()), CAIRO_FORMAT_RGB24, sw, sh, sw * 4);
  const bool ok = paint(s, cr, source, 0, 0, sw, sh, x, y, dw, dh);
  s.call.cairo_surface_destroy(source);
  return ok;
}

}  // namespace

bool ready(bool window, std::string& message) {
  X11State& s = x11_state();
  if (window ? connect() != nullptr : cairo_ready() != nullptr) return true;
  message = s.message;
  return false;
}

// --- device contexts and facts ---------------------------------------------------------

PIX_HDC get_dc(PIX_HWND window) {
  X11State* s = connect();
  if (s == nullptr) return nullptr;
  XWindowAttributes a{};
  {
    ErrorTrap trap(*s);
    const Status ok = s->call.XGetWindowAttributes(s->display, to_window(window), &a);
    if (trap.finish(s->display) != 0 || ok == 0) return nullptr;
  }
  cairo_surface_t* surface = s->call.cairo_xlib_surface_create(s->display, to_window(window), a.visual, a.width, a.height);
  cairo_t* cr = s->call.cairo_create(surface);
  s->call.cairo_surface_destroy(surface);
  if (s->call.cairo_status(cr) != CAIRO_STATUS_SUCCESS) {
    s->call.cairo_destroy(cr);
    return nullptr;
  }
  objects().made.push_back(cr);
  return cr;
}

void release_dc(PIX_HWND, PIX_HDC dc) {
  X11State& s = x11_state();
  auto& made = objects().made;
  const auto it = std::find(made.begin(), made.end(), dc);
  if (it == made.end()) return;  // the application's own context stays
  made.erase(it);
  flush(s, as_cairo(dc));
  // What was drawn through the library's own connection is on the screen
  // when the drawing call returns, as on a locked screen: another client
  // asking for the window's pixels next must see it.
  if (cairo_surface_t* target = s.call.cairo_get_target(as_cairo(dc)); is_xlib(s, target)) {
    s.call.XSync(s.call.cairo_xlib_surface_get_display(target), False);
  }
  s.call.cairo_destroy(as_cairo(dc));
}

int32_t device_caps(PIX_HDC dc, int index) {
  X11State* s = cairo_ready();
  if (s == nullptr || dc == nullptr) return 0;
  cairo_surface_t* target = s->call.cairo_get_target(as_cairo(dc));
  int width = 0, height = 0, bits = 32, colour = 24;
  if (is_xlib(*s, target)) {
    if (xlib_ready() == nullptr) return 0;
    Screen* screen = s->call.cairo_xlib_surface_get_screen(target);
    const int depth = s->call.cairo_xlib_surface_get_depth(target);
    width = WidthOfScreen(screen);
    height = HeightOfScreen(screen);
    bits = bits_per_pixel(*s, s->call.cairo_xlib_surface_get_display(target), depth);
    const Visual* visual = s->call.cairo_xlib_surface_get_visual(target);
    colour = visual != nullptr ? 3 * visual->bits_per_rgb : depth;
  } else if (is_image(*s, target)) {
    width = s->call.cairo_image_surface_get_width(target);
    height = s->call.cairo_image_surface_get_height(target);
    bits = image_bits(s->call.cairo_image_surface_get_format(target));
    colour = bits == 16 ? 16 : bits >= 24 ? 24 : bits;
  }
  switch (index) {
    case kHorzRes: return width;
    case kVertRes: return height;
    case kBitsPixel: return bits;
    case kPlanes: return 1;
    case kColorRes: return colour;
    default: return 0;
  }
}

bool probe_masks(PIX_HDC dc, uint32_t& red, uint32_t& green, uint32_t& blue) {
  X11State* s = cairo_ready();
  if (s == nullptr || dc == nullptr) return false;
  cairo_surface_t* target = s->call.cairo_get_target(as_cairo(dc));
  if (is_xlib(*s, target)) {
    const Visual* v = s->call.cairo_xlib_surface_get_visual(target);
    if (v == nullptr) return false;
    red = static_cast<uint32_t>(v->red_mask), green = static_cast<uint32_t>(v->green_mask);
    blue = static_cast<uint32_t>(v->blue_mask);
    return true;
  }
  if (is_image(*s, target) && s->call.cairo_image_surface_get_format(target) == CAIRO_FORMAT_RGB16_565) {
    red = 0xF800, green = 0x07E0, blue = 0x001F;
    return true;
  }
  return false;
}

namespace {
// The client origin of the window last placed, with the number the next
// request would have had then: while nothing has been sent since, the
// server's answer is still the latest there is and is not asked again (the
// direct path places the window for its clip and, right after, for its
// display rectangle).
struct Placed {
  Window window = 0;
  unsigned long next_request = 0;
  int x = 0, y = 0;
};
Placed g_placed;
}  // namespace

// The window's size and its place on the screen: two round trips, whose
// replies carry any error of theirs (no XSync needed to see it).
namespace {
// Both questions sent before either answer is read: one round trip.  False
// when XCB is not there or the window is not on the first screen's root
// (the caller asks through Xlib then).
bool window_rect_xcb(X11State& s, Window w, Rect& rect) {
  const XcbCalls& c = s.xcb_call;
  if (c.XGetXCBConnection == nullptr) return false;
  xcb_connection_t* x = c.XGetXCBConnection(s.display);
  const Window root = s.call.XRootWindow(s.display, s.call.XDefaultScreen(s.display));
  const auto geometry = c.xcb_get_geometry(x, static_cast<xcb_drawable_t>(w));
  const auto place = c.xcb_translate_coordinates(x, static_cast<xcb_window_t>(w), static_cast<xcb_window_t>(root), 0, 0);
  xcb_generic_error_t* geometry_error = nullptr;
  xcb_generic_error_t* place_error = nullptr;
  xcb_get_geometry_reply_t* g = c.xcb_get_geometry_reply(x, geometry, &geometry_error);
  xcb_translate_coordinates_reply_t* t = c.xcb_translate_coordinates_reply(x, place, &place_error);
  const bool ok = g != nullptr && t != nullptr && g->root == root && t->same_screen != 0;
  if (ok) {
    rect = {t->dst_x, t->dst_y, t->dst_x + int32_t{g->width}, t->dst_y + int32_t{g->height}};
    g_placed = {w, NextRequest(s.display), t->dst_x, t->dst_y};
  }
  const bool failed = geometry_error != nullptr || place_error != nullptr;
  std::free(g), std::free(t), std::free(geometry_error), std::free(place_error);
  if (failed) rect = {}, g_placed = {};
  return ok || failed;  // a bad window is an answer too
}
}  // namespace

bool window_rect(PIX_HWND window, Rect& rect) {
  X11State* s = connect();
  if (s == nullptr) return false;
  if (window_rect_xcb(*s, to_window(window), rect)) return g_placed.window == to_window(window);
  ErrorTrap trap(*s, s->display);
  Window root = 0, child = 0;
  int gx = 0, gy = 0, x = 0, y = 0;
  unsigned width = 0, height = 0, border = 0, depth = 0;
  const bool ok =
      s->call.XGetGeometry(s->display, to_window(window), &root, &gx, &gy, &width, &height, &border, &depth) != 0 &&
      s->call.XTranslateCoordinates(s->display, to_window(window), root, 0, 0, &x, &y, &child) != 0;
  if (trap.seen() != 0 || !ok) return false;
  g_placed = {to_window(window), NextRequest(s->display), x, y};
  rect = {x, y, x + static_cast<int32_t>(width), y + static_cast<int32_t>(height)};
  return true;
}

// One round trip when the window is on the first screen's root (a window on
// another screen's is asked for its root first).
bool client_to_screen(PIX_HWND window, int32_t& x, int32_t& y) {
  X11State* s = connect();
  if (s == nullptr) return false;
  if (g_placed.window == to_window(window) && g_placed.next_request == NextRequest(s->display)) {
    x += g_placed.x, y += g_placed.y;
    return true;
  }
  ErrorTrap trap(*s, s->display);
  Window root = s->call.XRootWindow(s->display, s->call.XDefaultScreen(s->display)), child = 0;
  int sx = 0, sy = 0;
  bool ok = s->call.XTranslateCoordinates(s->display, to_window(window), root, x, y, &sx, &sy, &child) != 0;
  if (!ok && trap.seen() == 0 && ScreenCount(s->display) > 1) {
    int gx = 0, gy = 0;
    unsigned w = 0, h = 0, border = 0, depth = 0;
    ok = s->call.XGetGeometry(s->display, to_window(window), &root, &gx, &gy, &w, &h, &border, &depth) != 0 &&
         s->call.XTranslateCoordinates(s->display, to_window(window), root, x, y, &sx, &sy, &child) != 0;
  }
  if (trap.seen() != 0 || !ok) return false;
  x = sx, y = sy;
  return true;
}

// --- the DIB path and printing -----------------------------------------------------------

int32_t set_dib_to_device(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                          int32_t source_y, uint32_t first_line, uint32_t lines, const void* bits, const void* header) {
  X11State* s = cairo_ready();
  Dib dib;
  if (s == nullptr || dc == nullptr || bits == nullptr || !read_dib(header, dib)) return 0;
  const int rows = std::abs(dib.height);
  // The source rectangle counted from the picture's top (a bottom-up DIB
  // counts source_y from its bottom), cut to the picture.
  int64_t top = dib.height > 0 ? int64_t{rows} - source_y - height : source_y;
  int64_t left = source_x, right = int64_t{source_x} + width, bottom = top + height;
  const int64_t cut_left = std::max<int64_t>(0, -left), cut_top = std::max<int64_t>(0, -top);
  left += cut_left, top += cut_top;
  right = std::min<int64_t>(right, dib.width), bottom = std::min<int64_t>(bottom, rows);
  if (right <= left || bottom <= top) return 0;
  const int w = static_cast<int>(right - left), h = static_cast<int>(bottom - top);
  const bool ok = draw_dib(*s, as_cairo(dc), dib, static_cast<const uint8_t*>(bits), first_line, lines,
                           static_cast<int>(left), static_cast<int>(top), w, h, static_cast<int>(x + cut_left),
                           static_cast<int>(y + cut_top), w, h);
  return ok ? static_cast<int32_t>(lines) : 0;
}

int32_t stretch_dib(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                    int32_t source_y, int32_t source_width, int32_t source_height, const void* bits,
                    const void* header) {
  X11State* s = cairo_ready();
  Dib dib;
  if (s == nullptr || dc == nullptr || bits == nullptr || !read_dib(header, dib)) return 0;
  const int rows = std::abs(dib.height);
  const int64_t top = dib.height > 0 ? int64_t{rows} - source_y - source_height : source_y;
  if (source_x < 0 || top < 0 || source_width <= 0 || source_height <= 0 ||
      int64_t{source_x} + source_width > dib.width || top + source_height > rows) {
    return 0;
  }
  const bool ok = draw_dib(*s, as_cairo(dc), dib, static_cast<const uint8_t*>(bits), 0, static_cast<uint32_t>(rows),
                           source_x, static_cast<int>(top), source_width, source_height, x, y, width, height);
  return ok ? rows : 0;
}

// --- the DDB path --------------------------------------------------------------------------

PIX_HDC create_compatible_dc(PIX_HDC dc) {
  X11State* s = cairo_ready();
  if (s == nullptr || dc == nullptr) return nullptr;
  auto memory = std::make_unique<MemoryDc>();
  memory->like = s->call.cairo_surface_reference(s->call.cairo_get_target(as_cairo(dc)));
  memory->selected = &objects().stock;
  objects().dcs.push_back(std::move(memory));
  return objects().dcs.back().get();
}

Object create_compatible_bitmap(PIX_HDC dc, int32_t width, int32_t height) {
  X11State* s = cairo_ready();
  if (s == nullptr || dc == nullptr || width <= 0 || height <= 0 || width > 32767 || height > 32767) return nullptr;
  // A memory context's bitmaps are like its reference's.
  MemoryDc* memory = find(objects().dcs, dc);
  cairo_surface_t* like = memory != nullptr ? memory->like : s->call.cairo_get_target(as_cairo(dc));
  auto bitmap = std::make_unique<Bitmap>();
  bitmap->width = width, bitmap->height = height;
  if (is_xlib(*s, like)) {
    if (xlib_ready() == nullptr) return nullptr;
    Display* display = s->call.cairo_xlib_surface_get_display(like);
    bitmap->display = display;
    bitmap->visual = s->call.cairo_xlib_surface_get_visual(like);
    bitmap->depth = s->call.cairo_xlib_surface_get_depth(like);
    bitmap->bits_per_pixel = bits_per_pixel(*s, display, bitmap->depth);
    bitmap->pixmap = s->call.XCreatePixmap(display, s->call.cairo_xlib_surface_get_drawable(like),
                                           static_cast<unsigned>(width), static_cast<unsigned>(height),
                                           static_cast<unsigned>(bitmap->depth));
    bitmap->surface = s->call.cairo_xlib_surface_create(display, bitmap->pixmap, bitmap->visual, width, height);
  } else {
    // In memory: an image surface of the reference's format (a PDF or
    // PostScript page gets 32-bit pixels).
    cairo_format_t format = is_image(*s, like) ? s->call.cairo_image_surface_get_format(like) : CAIRO_FORMAT_RGB24;
    if (format == CAIRO_FORMAT_ARGB32) format = CAIRO_FORMAT_RGB24;
    bitmap->bits_per_pixel = image_bits(format);
    if (bitmap->bits_per_pixel < 16) return nullptr;
    bitmap->surface = s->call.cairo_image_surface_create(format, width, height);
  }
  if (bitmap->surface == nullptr || s->call.cairo_surface_status(bitmap->surface) != CAIRO_STATUS_SUCCESS) {
    if (bitmap->surface != nullptr) s->call.cairo_surface_destroy(bitmap->surface);
    if (bitmap->pixmap != 0) s->call.XFreePixmap(bitmap->display, bitmap->pixmap);
    return nullptr;
  }
  objects().bitmaps.push_back(std::move(bitmap));
  return objects().bitmaps.back().get();
}

Object select_object(PIX_HDC dc, Object object) {
  MemoryDc* memory = find(objects().dcs, dc);
  if (memory == nullptr || (object != &objects().stock && find(objects().bitmaps, object) == nullptr)) return nullptr;
  return std::exchange(memory->selected, object);
}

namespace {
// An application's connection may close while the spare shared image
// lies on it: what the library keeps of it is dropped then.
int forget_display(Display* display, XExtCodes*) {
  auto& o = objects();
  if (o.spare != nullptr && o.spare->display == display) {
    shmdt(o.spare->segment.shmaddr);
    o.spare->image->data = nullptr;
    XDestroyImage(o.spare->image);
    o.spare.reset();
  }
  std::erase(o.no_shared, display);
  std::erase(o.watched, display);
  return 0;
}
void watch_closing(X11State& s, Display* display) {
  auto& o = objects();
  if (display == s.display || std::find(o.watched.begin(), o.watched.end(), display) != o.watched.end()) return;
  if (XExtCodes* codes = s.call.XAddExtension(display)) {
    s.call.XESetCloseDisplay(display, codes->extension, forget_display);
    o.watched.push_back(display);
  }
}

// The pixmap's shared image: the spare one when it fits, else a new one;
// null when the server cannot share memory with this process or lays its
// pixels out otherwise than the bits given (least significant byte first).
Shared* shared_for(X11State& s, Bitmap& bitmap) {
  if (bitmap.shared != nullptr) return bitmap.shared.get();
  auto& o = objects();
  Display* display = bitmap.display;
  if (std::find(o.no_shared.begin(), o.no_shared.end(), display) != o.no_shared.end()) return nullptr;
  if (o.spare != nullptr && o.spare->display == display && o.spare->depth == bitmap.depth &&
      o.spare->image->width == bitmap.width && o.spare->image->height == bitmap.height) {
    bitmap.shared = std::move(o.spare);
    return bitmap.shared.get();
  }
  watch_closing(s, display);
  auto sh = std::make_unique<Shared>();
  std::string message;
  if (s.call.XShmQueryExtension(display) == False ||
      !make_shared(s, display, bitmap.visual, bitmap.depth, bitmap.width, bitmap.height, *sh, message)) {
    o.no_shared.push_back(display);
    return nullptr;
  }
  if (sh->image->byte_order != LSBFirst || sh->image->bits_per_pixel != bitmap.bits_per_pixel) {
    free_shared(s, *sh);
    o.no_shared.push_back(display);
    return nullptr;
  }
  bitmap.shared = std::move(sh);
  return bitmap.shared.get();
}
}  // namespace

int32_t set_bitmap_bits(Object object, uint32_t bytes, const void* bits) {
  X11State& s = x11_state();
  Bitmap* bitmap = find(objects().bitmaps, object);
  if (bitmap == nullptr || bits == nullptr) return 0;
  // Rows are whole pixels padded to 2 bytes, top row first.
  const std::size_t stride = (static_cast<std::size_t>(bitmap->width) * bitmap->bits_per_pixel / 8 + 1) & ~std::size_t{1};
  const int rows = static_cast<int>(std::min<std::size_t>(bytes / stride, static_cast<std::size_t>(bitmap->height)));
  if (rows == 0) return 0;
  if (bitmap->display != nullptr && shared_for(s, *bitmap) != nullptr) {
    // Through shared memory: the rows copied into the segment, one request.
    Shared& sh = *bitmap->shared;
    settle(s, sh);
    const auto* from = static_cast<const uint8_t*>(bits);
    auto* to = reinterpret_cast<uint8_t*>(sh.image->data);
    const std::size_t pitch = static_cast<std::size_t>(sh.image->bytes_per_line);
    if (pitch == stride) {
      std::memcpy(to, from, stride * static_cast<std::size_t>(rows));
    } else {
      const std::size_t row_bytes = static_cast<std::size_t>(bitmap->width) * bitmap->bits_per_pixel / 8;
      for (int r = 0; r < rows; ++r) std::memcpy(to + r * pitch, from + r * stride, row_bytes);
    }
    s.call.cairo_surface_flush(bitmap->surface);
    put_shared(s, sh, bitmap->pixmap, 0, 0, 0, 0, bitmap->width, rows);
    s.call.cairo_surface_mark_dirty(bitmap->surface);
  } else if (bitmap->display != nullptr) {
    XImage image{};
    image.width = bitmap->width, image.height = rows, image.format = ZPixmap;
    image.data = static_cast<char*>(const_cast<void*>(bits));
    image.byte_order = LSBFirst, image.bitmap_unit = 32, image.bitmap_bit_order = LSBFirst, image.bitmap_pad = 16;
    image.depth = bitmap->depth, image.bits_per_pixel = bitmap->bits_per_pixel;
    image.bytes_per_line = static_cast<int>(stride);
    image.red_mask = bitmap->visual->red_mask, image.green_mask = bitmap->visual->green_mask;
    image.blue_mask = bitmap->visual->blue_mask;
    if (s.call.XInitImage(&image) == 0) return 0;
    s.call.cairo_surface_flush(bitmap->surface);
    GC gc = s.call.XCreateGC(bitmap->display, bitmap->pixmap, 0, nullptr);
    s.call.XPutImage(bitmap->display, bitmap->pixmap, gc, &image, 0, 0, 0, 0, static_cast<unsigned>(bitmap->width),
                     static_cast<unsigned>(rows));
    s.call.XFreeGC(bitmap->display, gc);
    s.call.cairo_surface_mark_dirty(bitmap->surface);
  } else {
    s.call.cairo_surface_flush(bitmap->surface);
    uint8_t* data = s.call.cairo_image_surface_get_data(bitmap->surface);
    const std::size_t pitch = static_cast<std::size_t>(s.call.cairo_image_surface_get_stride(bitmap->surface));
    const std::size_t row_bytes = static_cast<std::size_t>(bitmap->width) * bitmap->bits_per_pixel / 8;
    for (int r = 0; r < rows; ++r) std::memcpy(data + r * pitch, static_cast<const uint8_t*>(bits) + r * stride, row_bytes);
    s.call.cairo_surface_mark_dirty(bitmap->surface);
  }
  return static_cast<int32_t>(static_cast<std::size_t>(rows) * stride);
}

namespace {
bool blit(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
          int32_t source_y, int32_t source_width, int32_t source_height) {
  X11State& s = x11_state();
  MemoryDc* memory = find(objects().dcs, src);
  Bitmap* bitmap = memory != nullptr ? find(objects().bitmaps, memory->selected) : nullptr;
  if (bitmap == nullptr || dst == nullptr || find(objects().dcs, dst) != nullptr) return false;
  return paint(s, as_cairo(dst), bitmap->surface, source_x, source_y, source_width, source_height, x, y, width, height);
}
}  // namespace

bool bit_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
             int32_t source_y) {
  return blit(dst, x, y, width, height, src, source_x, source_y, width, height);
}

bool stretch_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
                 int32_t source_y, int32_t source_width, int32_t source_height) {
  return blit(dst, x, y, width, height, src, source_x, source_y, source_width, source_height);
}

void delete_object(Object object) {
  Bitmap* bitmap = find(objects().bitmaps, object);
  if (bitmap == nullptr) return;
  for (auto& dc : objects().dcs) {
    if (dc->selected == bitmap) return;  // a selected bitmap stays, as GDI keeps it
  }
  X11State& s = x11_state();
  s.call.cairo_surface_destroy(bitmap->surface);
  if (bitmap->pixmap != 0) s.call.XFreePixmap(bitmap->display, bitmap->pixmap);
  if (bitmap->shared != nullptr) {
    auto& o = objects();
    Display* display = bitmap->display;
    if (display != s.display && std::find(o.watched.begin(), o.watched.end(), display) == o.watched.end()) {
      free_shared(s, *bitmap->shared);
    } else {
      if (o.spare != nullptr) free_shared(s, *o.spare);
      o.spare = std::move(bitmap->shared);
    }
  }
  drop(objects().bitmaps, object);
}

void delete_dc(PIX_HDC dc) {
  MemoryDc* memory = find(objects().dcs, dc);
  if (memory == nullptr) return;
  x11_state().call.cairo_surface_destroy(memory->like);
  drop(objects().dcs, dc);
}

// --- the direct path: an MIT-SHM image of the screen's size, put to the window -----------
// The segment is addressed in the window's own coordinates: a strip costs
// one round trip, the put waited for.

namespace {
struct DirectImage {
  Window window = 0;
  Shared shared;
};

DirectImage* direct_of(DirectObjects& o) { return find(objects().direct, o.object); }

std::string x_failure(X11State& s, const char* call, int code) {
  ErrorTrap trap(s);
  return std::string(call) + " call 1 - " + trap.text(s.display, code);
}

// Makes the shared image on first use.
bool make_image(X11State& s, DirectImage& d, std::string& message) {
  if (d.shared.image != nullptr) return true;
  if (!s.shm) {
    message = "XShmQueryExtension call 1 - the X server offers no MIT-SHM to this process";
    return false;
  }
  const int screen = s.call.XDefaultScreen(s.display);
  return make_shared(s, s.display, s.call.XDefaultVisual(s.display, screen), s.call.XDefaultDepth(s.display, screen),
                     s.call.XDisplayWidth(s.display, screen), s.call.XDisplayHeight(s.display, screen), d.shared,
                     message);
}

}  // namespace

bool direct_create(PIX_HWND window, DirectObjects& o, std::string& message) {
  // Nothing to create on the server until the first frame: the shared image
  // is made then, so a display that never draws directly costs nothing.
  (void)message;
  auto d = std::make_unique<DirectImage>();
  d->window = to_window(window);
  o.object = o.primary = o.clipper = d.get();
  objects().direct.push_back(std::move(d));
  return true;
}

void direct_release(DirectObjects& o) {
  DirectImage* d = direct_of(o);
  if (d != nullptr) {
    X11State& s = x11_state();
    if (s.display != nullptr) {
      free_shared(s, d->shared);
    }
    drop(objects().direct, d);
  }
  o = {};
}

uint32_t direct_caps(const DirectObjects&) { return 0; }

bool direct_restore(DirectObjects& o, std::string& message) {
  DirectImage* d = direct_of(o);
  if (d == nullptr) {
    message = "XShmCreateImage call 1 - no direct object";
    return false;
  }
  X11State* s = connect();
  if (s == nullptr) {
    message = "XOpenDisplay call 1 - " + x11_state().message;
    return false;
  }
  return make_image(*s, *d, message);
}

bool direct_clip(DirectObjects& o, Rect& clip, std::string& message) {
  DirectImage* d = direct_of(o);
  if (d == nullptr || !direct_restore(o, message)) {
    if (message.empty()) message = "XShmPutImage call 1 - no direct object";
    return false;
  }
  // The surface is the window's own: the server clips each put to the
  // window (and to what covers it), so the whole segment is the clip and no
  // round trip asks where the window is.
  clip = {0, 0, d->shared.image->width, d->shared.image->height};
  return true;
}

bool direct_origin(const DirectObjects&, PIX_HWND, int32_t&, int32_t&) { return true; }

bool direct_lock(DirectObjects& o, const Rect& rect, uint8_t*& bits, int32_t& pitch, std::string& message) {
  DirectImage* d = direct_of(o);
  if (d == nullptr || !direct_restore(o, message)) return false;
  XImage* image = d->shared.image;
  if (rect.left < 0 || rect.top < 0 || rect.right > image->width || rect.bottom > image->height ||
      rect.right < rect.left || rect.bottom < rect.top) {
    message = "XShmPutImage call 1 - rectangle outside the screen";
    return false;
  }
  pitch = image->bytes_per_line;
  bits = reinterpret_cast<uint8_t*>(image->data) + static_cast<std::size_t>(rect.top) * pitch +
         static_cast<std::size_t>(rect.left) * (image->bits_per_pixel / 8);
  return true;
}

bool direct_unlock(DirectObjects& o, const Rect& rect, std::string& message) {
  DirectImage* d = direct_of(o);
  X11State& s = x11_state();
  if (d == nullptr || d->shared.image == nullptr || s.display == nullptr) {
    message = "XShmPutImage call 1 - nothing locked";
    return false;
  }
  if (rect.right <= rect.left || rect.bottom <= rect.top) return true;
  // Waited for: as with a locked screen, the lines are on the screen when
  // the call returns (another client's screenshot must see them), and a
  // failure is this frame's.
  ErrorTrap trap(s, s.display);
  put_shared(s, d->shared, d->window, rect.left, rect.top, rect.left, rect.top, rect.right - rect.left,
             rect.bottom - rect.top);
  if (const int error = trap.finish(s.display); error != 0) {
    message = x_failure(s, "XShmPutImage", error);
    return false;
  }
  d->shared.put_pending = false;
  return true;
}

}  // namespace pix::display::backend
