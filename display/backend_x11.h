// The Linux display platform: libX11, libXext (MIT-SHM) and libcairo, loaded
// at run time on first use, so that the library loads and works on a machine
// without them (only showing and printing need them).  The headers give the
// types; nothing here is linked.
//
// A window (PIX_HWND) is an X11 Window id on the display that DISPLAY names;
// a device context (PIX_HDC) is a cairo_t*: the application's own (a GTK draw
// handler's, a PDF or PostScript page, an image surface), or one the library
// makes for a window.
#pragma once

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <cairo/cairo-xlib.h>
#include <cairo/cairo.h>
#include <xcb/xproto.h>

#include <cstdint>
#include <string>

#include "pix95.h"

namespace pix::display::x11 {

// The status code the display reports when it cannot be reached (no libX11,
// libXext or libcairo, no DISPLAY, or a server that refuses the connection),
// with the missing piece as its message.
inline constexpr uint32_t kUnavailable = 0x10530000;  // (System call failed)

#define PIX95_X11_CALLS(X)                                                                                      \
  X(XOpenDisplay) X(XCloseDisplay) X(XDisplayName) X(XSync) X(XFlush) X(XSetErrorHandler) X(XGetErrorText)     \
  X(XGetWindowAttributes) X(XTranslateCoordinates) X(XDefaultScreen) X(XDefaultVisual) X(XDefaultDepth)       \
  X(XRootWindow) X(XDisplayWidth) X(XDisplayHeight) X(XListPixmapFormats) X(XFree) X(XCreatePixmap)          \
  X(XFreePixmap) X(XCreateGC) X(XFreeGC) X(XPutImage) X(XInitImage) X(XCopyArea) X(XGetImage)        \
  X(XCreateSimpleWindow) X(XMapWindow) X(XDestroyWindow) X(XBlackPixel) X(XGetGeometry) X(XAddExtension)
#define PIX95_XEXT_CALLS(X) \
  X(XShmQueryExtension) X(XShmCreateImage) X(XShmAttach) X(XShmDetach) X(XShmPutImage) X(XShmGetImage)
#define PIX95_CAIRO_CALLS(X)                                                                                  \
  X(cairo_create) X(cairo_destroy) X(cairo_status) X(cairo_get_target) X(cairo_save) X(cairo_restore)        \
  X(cairo_set_operator) X(cairo_set_source_surface) X(cairo_get_source) X(cairo_translate) X(cairo_scale)     \
  X(cairo_rectangle) X(cairo_fill) X(cairo_pattern_set_filter) X(cairo_pattern_set_extend)                   \
  X(cairo_surface_destroy) X(cairo_surface_status) X(cairo_surface_get_type) X(cairo_surface_flush)          \
  X(cairo_surface_mark_dirty) X(cairo_surface_mark_dirty_rectangle) X(cairo_image_surface_create_for_data)   \
  X(cairo_image_surface_get_data) X(cairo_image_surface_get_format) X(cairo_image_surface_get_width)         \
  X(cairo_image_surface_get_height) X(cairo_image_surface_get_stride) X(cairo_xlib_surface_create)           \
  X(cairo_xlib_surface_get_display) X(cairo_xlib_surface_get_drawable) X(cairo_xlib_surface_get_screen)      \
  X(cairo_xlib_surface_get_visual) X(cairo_xlib_surface_get_depth) X(cairo_xlib_surface_get_width)           \
  X(cairo_xlib_surface_get_height) X(cairo_image_surface_create) X(cairo_set_source_rgb) X(cairo_paint) X(cairo_surface_reference) \
  X(cairo_get_matrix) X(cairo_get_group_target) X(cairo_copy_clip_rectangle_list) X(cairo_rectangle_list_destroy)    \
  X(cairo_surface_get_device_offset) X(cairo_surface_get_device_scale)

// The loaded entry points, named as the libraries name them.
struct Calls {
#define PIX95_X11_POINTER(name) decltype(&::name) name = nullptr;
  PIX95_X11_CALLS(PIX95_X11_POINTER)
  PIX95_XEXT_CALLS(PIX95_X11_POINTER)
  PIX95_CAIRO_CALLS(PIX95_X11_POINTER)
#undef PIX95_X11_POINTER
  // Declared by Xlib's internal header only.
  using CloseHook = int (*)(Display*, XExtCodes*);
  CloseHook (*XESetCloseDisplay)(Display*, int, CloseHook) = nullptr;
};

// Optional: Xlib's XCB side, to ask two questions in one round trip.
struct XcbCalls {
  xcb_connection_t* (*XGetXCBConnection)(Display*) = nullptr;
  xcb_get_geometry_cookie_t (*xcb_get_geometry)(xcb_connection_t*, xcb_drawable_t) = nullptr;
  xcb_get_geometry_reply_t* (*xcb_get_geometry_reply)(xcb_connection_t*, xcb_get_geometry_cookie_t,
                                                       xcb_generic_error_t**) = nullptr;
  xcb_translate_coordinates_cookie_t (*xcb_translate_coordinates)(xcb_connection_t*, xcb_window_t, xcb_window_t,
                                                                  int16_t, int16_t) = nullptr;
  xcb_translate_coordinates_reply_t* (*xcb_translate_coordinates_reply)(xcb_connection_t*,
                                                                         xcb_translate_coordinates_cookie_t,
                                                                         xcb_generic_error_t**) = nullptr;
};

// The library names tried, in order (a test may point them elsewhere before
// first use to see the failure).
struct LibraryNames {
  const char* x11 = "libX11.so.6";
  const char* xext = "libXext.so.6";
  const char* cairo = "libcairo.so.2";
};

// The X connection and the loaded symbols: made on first use, kept for the
// life of the process (a connection and its libraries are not worth closing
// while windows may still be drawn into).
struct X11State {
  LibraryNames names;
  std::string message;  // what was missing at the last failed use
  void* x11 = nullptr;
  void* xext = nullptr;
  void* cairo = nullptr;
  void* x11_xcb = nullptr;
  void* xcb = nullptr;
  Calls call;
  XcbCalls xcb_call;  // all null when the XCB libraries are not there
  Display* display = nullptr;
  bool shm = false;  // the server takes MIT-SHM images from this process
};
X11State& x11_state() noexcept;

// The state with cairo loaded; with the X libraries loaded too; connected
// to the X server.  Null when that cannot be had,
// the reason in `message`.
X11State* cairo_ready();
X11State* xlib_ready();
X11State* connect();

// Runs X requests with the process's error handler replaced by one that
// records the first error instead of ending the program.  Given the
// display, the trap counts only errors of the requests made while it is set
// (told by their request numbers): an earlier request's error that arrives
// meanwhile is swallowed, not blamed on them.
class ErrorTrap {
 public:
  explicit ErrorTrap(X11State& s, Display* display = nullptr);
  ~ErrorTrap();
  ErrorTrap(const ErrorTrap&) = delete;
  ErrorTrap& operator=(const ErrorTrap&) = delete;
  int finish(Display* display);  // XSync, then the first error's code
  // The first error of the trap's own requests read so far, without a round
  // trip (a request with a reply has its error read with the reply).
  int seen() const;
  std::string text(Display* display, int code) const;

 private:
  X11State& s_;
  XErrorHandler previous_;
};

// Handles as the display sees them.
inline PIX_HWND to_handle(Window w) { return reinterpret_cast<PIX_HWND>(static_cast<uintptr_t>(w)); }
inline Window to_window(PIX_HWND w) { return static_cast<Window>(reinterpret_cast<uintptr_t>(w)); }

}  // namespace pix::display::x11
