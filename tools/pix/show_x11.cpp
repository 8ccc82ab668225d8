// pix show's window and pix print's page on Linux: an X11 window and a cairo
// PDF surface.  libX11 and libcairo are loaded when asked for, so pix runs
// its other commands on a machine without them.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <cairo/cairo-pdf.h>
#include <cairo/cairo.h>
#include <dlfcn.h>

#include <algorithm>
#include <stdexcept>

#include "show.h"

namespace pixtool {

namespace {

void* open_library(const char* name) {
  void* handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw std::runtime_error(std::string("cannot load ") + name + ": " + dlerror());
  return handle;
}

template <typename F>
F symbol(void* library, const char* name) {
  void* p = dlsym(library, name);
  if (p == nullptr) throw std::runtime_error(std::string("missing ") + name);
  return reinterpret_cast<F>(p);
}
#define PIX_CALL_OF(library, name) const auto name = symbol<decltype(&::name)>(library, #name)

// The window's connection, while show_window has one open.
Display* open_display = nullptr;

}  // namespace

Point client_origin(PIX_HWND window) {
  if (open_display == nullptr) return {};
  void* x11 = open_library("libX11.so.6");
  PIX_CALL_OF(x11, XTranslateCoordinates);
  PIX_CALL_OF(x11, XDefaultRootWindow);
  int x = 0, y = 0;
  Window child = 0;
  XTranslateCoordinates(open_display, static_cast<Window>(reinterpret_cast<uintptr_t>(window)),
                        XDefaultRootWindow(open_display), 0, 0, &x, &y, &child);
  return {x, y};
}

void show_window(const std::string& title, uint32_t width, uint32_t height, const Paint& paint,
                 const std::function<void()>& closing) {
  void* x11 = open_library("libX11.so.6");
  PIX_CALL_OF(x11, XOpenDisplay);
  PIX_CALL_OF(x11, XCloseDisplay);
  PIX_CALL_OF(x11, XDefaultScreen);
  PIX_CALL_OF(x11, XRootWindow);
  PIX_CALL_OF(x11, XDisplayWidth);
  PIX_CALL_OF(x11, XDisplayHeight);
  PIX_CALL_OF(x11, XBlackPixel);
  PIX_CALL_OF(x11, XCreateSimpleWindow);
  PIX_CALL_OF(x11, XStoreName);
  PIX_CALL_OF(x11, XSelectInput);
  PIX_CALL_OF(x11, XInternAtom);
  PIX_CALL_OF(x11, XSetWMProtocols);
  PIX_CALL_OF(x11, XMapWindow);
  PIX_CALL_OF(x11, XNextEvent);
  PIX_CALL_OF(x11, XDestroyWindow);
  Display* display = XOpenDisplay(nullptr);
  if (display == nullptr) throw std::runtime_error("cannot open the X display (is DISPLAY set?)");
  const int screen = XDefaultScreen(display);
  width = std::clamp<uint32_t>(width, 1, static_cast<uint32_t>(XDisplayWidth(display, screen)));
  height = std::clamp<uint32_t>(height, 1, static_cast<uint32_t>(XDisplayHeight(display, screen)));
  const Window window = XCreateSimpleWindow(display, XRootWindow(display, screen), 0, 0, width, height, 0,
                                            XBlackPixel(display, screen), XBlackPixel(display, screen));
  XStoreName(display, window, title.c_str());
  XSelectInput(display, window, ExposureMask | KeyPressMask | StructureNotifyMask);
  Atom close = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &close, 1);
  XMapWindow(display, window);
  open_display = display;
  try {
    for (bool open = true; open;) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type == Expose && event.xexpose.count == 0) {
        paint(reinterpret_cast<PIX_HWND>(static_cast<uintptr_t>(window)), nullptr);
      } else if (event.type == KeyPress || event.type == DestroyNotify ||
                 (event.type == ClientMessage && static_cast<Atom>(event.xclient.data.l[0]) == close)) {
        open = false;
      }
    }
    closing();
  } catch (...) {
    open_display = nullptr;
    XDestroyWindow(display, window);
    XCloseDisplay(display);
    throw;
  }
  open_display = nullptr;
  XDestroyWindow(display, window);
  XCloseDisplay(display);
}

void pdf_page(const std::string& path, double width, double height, double scale,
              const std::function<void(PIX_HDC)>& print) {
  void* cairo = open_library("libcairo.so.2");
  PIX_CALL_OF(cairo, cairo_pdf_surface_create);
  PIX_CALL_OF(cairo, cairo_surface_status);
  PIX_CALL_OF(cairo, cairo_surface_finish);
  PIX_CALL_OF(cairo, cairo_surface_destroy);
  PIX_CALL_OF(cairo, cairo_create);
  PIX_CALL_OF(cairo, cairo_destroy);
  PIX_CALL_OF(cairo, cairo_scale);
  PIX_CALL_OF(cairo, cairo_show_page);
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_scale(cr, 1 / scale, 1 / scale);
  auto finish = [&] {
    cairo_show_page(cr);
    cairo_destroy(cr);
    cairo_surface_finish(surface);
    const bool ok = cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    return ok;
  };
  try {
    print(cr);
  } catch (...) {
    finish();
    throw;
  }
  if (!finish()) throw std::runtime_error("cannot write " + path);
}

}  // namespace pixtool
