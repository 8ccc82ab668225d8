// pix show's window on Windows: the picture is drawn in WM_PAINT into the
// context BeginPaint gives.  PDF pages are made on Linux only (print to a
// printer's device context from an application on Windows).
#include <windows.h>

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "show.h"

namespace pixtool {

namespace {

struct Window {
  const Paint* paint = nullptr;
  const std::function<void()>* closing = nullptr;
  std::exception_ptr failure;
};

LRESULT CALLBACK on_message(HWND hwnd, UINT message, WPARAM wp, LPARAM lp) {
  auto* w = reinterpret_cast<Window*>(GetWindowLongPtrA(hwnd, GWLP_USERDATA));
  switch (message) {
    case WM_PAINT: {
      PAINTSTRUCT ps;
      HDC dc = BeginPaint(hwnd, &ps);
      // An exception must not cross the system's call: it is kept and
      // thrown again once the window is gone.
      if (w != nullptr && !w->failure) {
        try {
          (*w->paint)(hwnd, dc);
        } catch (...) {
          w->failure = std::current_exception();
          PostMessageA(hwnd, WM_CLOSE, 0, 0);
        }
      }
      EndPaint(hwnd, &ps);
      GdiFlush();
      return 0;
    }
    case WM_KEYDOWN:
    case WM_CLOSE:
      if (w != nullptr) (*w->closing)();
      DestroyWindow(hwnd);
      return 0;
    case WM_DESTROY: PostQuitMessage(0); return 0;
    default: return DefWindowProcA(hwnd, message, wp, lp);
  }
}

}  // namespace

void show_window(const std::string& title, uint32_t width, uint32_t height, const Paint& paint,
                 const std::function<void()>& closing) {
  HINSTANCE instance = GetModuleHandleA(nullptr);
  WNDCLASSA c{};
  c.lpfnWndProc = on_message;
  c.hInstance = instance;
  c.hCursor = LoadCursor(nullptr, IDC_ARROW);
  c.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  c.lpszClassName = "pix show";
  RegisterClassA(&c);
  const auto screen_w = static_cast<uint32_t>(GetSystemMetrics(SM_CXSCREEN));
  const auto screen_h = static_cast<uint32_t>(GetSystemMetrics(SM_CYSCREEN));
  RECT r{0, 0, static_cast<LONG>(std::clamp<uint32_t>(width, 1, screen_w)),
         static_cast<LONG>(std::clamp<uint32_t>(height, 1, screen_h))};
  const DWORD style = WS_OVERLAPPEDWINDOW;
  AdjustWindowRect(&r, style, FALSE);
  HWND hwnd = CreateWindowA(c.lpszClassName, title.c_str(), style, 0, 0, r.right - r.left, r.bottom - r.top,
                            nullptr, nullptr, instance, nullptr);
  if (hwnd == nullptr) throw std::runtime_error("cannot open a window");
  Window state{&paint, &closing, nullptr};
  SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&state));
  ShowWindow(hwnd, SW_SHOW);
  UpdateWindow(hwnd);
  MSG m;
  while (GetMessageA(&m, nullptr, 0, 0) > 0) {
    TranslateMessage(&m);
    DispatchMessageA(&m);
  }
  if (state.failure) std::rethrow_exception(state.failure);
}

Point client_origin(PIX_HWND window) {
  POINT p{0, 0};
  ClientToScreen(static_cast<HWND>(window), &p);
  return {p.x, p.y};
}

void pdf_page(const std::string&, double, double, double, const std::function<void(PIX_HDC)>&) {
  throw std::runtime_error("PDF pages are made by the Linux build; on Windows an application prints to a printer's device context");
}

}  // namespace pixtool
