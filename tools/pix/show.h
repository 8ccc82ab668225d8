// pix show and pix print: the shared part (show.cpp) and what each platform
// gives it (show_x11.cpp, show_win32.cpp).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "pix.h"

namespace pixtool {

// Opens a window of width x height pixels (at most the screen's size) titled
// `title`, calls `paint` with the window and a paint context for it (null to
// let the library take the window's own) whenever the picture must be drawn,
// first once the window is on the screen, and returns when a key is pressed
// or the window is closed.  Throws std::runtime_error when no window can be
// opened.  `closing` runs while the window still exists, before it goes
// (the display's drawing objects are bound to it).
using Paint = std::function<void(PIX_HWND window, PIX_HDC dc)>;
void show_window(const std::string& title, uint32_t width, uint32_t height, const Paint& paint,
                 const std::function<void()>& closing);

// Where the top-left corner of the window's client area is on the screen
// (for the message that tells what was shown).
struct Point {
  int32_t x = 0, y = 0;
};
Point client_origin(PIX_HWND window);

// Makes a PDF file of one page, width x height points, and calls `print`
// with its paint context, whose units are 1/scale points.  Throws
// std::runtime_error when it cannot (no PDF support on the platform).
void pdf_page(const std::string& path, double width, double height, double scale,
              const std::function<void(PIX_HDC)>& print);

int show(const Args& args);
int print(const Args& args);

}  // namespace pixtool
