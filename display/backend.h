// The display's way to the platform: the handful of drawing operations the
// renderers need, one implementation per platform chosen by CMake
// (backend_win32.cpp: GDI, USER and DirectDraw; backend_x11.cpp: X11, MIT-SHM
// and cairo loaded at run time).  Everything above this interface — handles,
// parameters, flags, region of interest, destination sizes, the strip state
// of the bitmap path, the display rectangle and the field-selecting line
// copier of the direct path — is portable and lives in display/*.cpp.
//
// The operations keep the Windows shapes the renderers were written for:
// a window (PIX_HWND), device contexts (PIX_HDC: an HDC on Windows, a
// cairo_t* on Linux), opaque drawing objects (a bitmap, a previously selected
// object), DIBs given as a 40-byte BITMAPINFOHEADER followed by bottom-up
// rows, results that are 0 on failure as GDI's are.
#pragma once

#include <cstdint>
#include <string>

#include "pix95.h"

namespace pix::display::backend {

using Object = void*;  // a bitmap or a previously selected object

struct Rect {
  int32_t left = 0, top = 0, right = 0, bottom = 0;
};

// Device capability indices asked by init.
inline constexpr int kHorzRes = 8, kVertRes = 10, kBitsPixel = 12, kPlanes = 14, kColorRes = 108;

// True when the platform can draw: its drawing libraries are loaded and, when
// `window` is set, a window system is reachable.  Otherwise `message` says
// what is missing (on Linux: libcairo, libX11 or the X display that DISPLAY
// names) and the caller reports 0x10530000 with it.  Always true on Windows.
bool ready(bool window, std::string& message);

// --- device contexts and facts ----------------------------------------------------
PIX_HDC get_dc(PIX_HWND window);                  // GetDC; null on failure
// ReleaseDC.  The bitmap path releases whatever paint context the record
// holds at its last strip, the caller's own included (kept from the Windows
// behaviour, where releasing a context GetDC did not give does nothing): a
// context the backend did not make itself must be left alone.
void release_dc(PIX_HWND window, PIX_HDC dc);
int32_t device_caps(PIX_HDC dc, int index);       // GetDeviceCaps
// The red, green and blue masks of a 15/16-bit device, found by building a
// device bitmap from a 52-byte header (40-byte header + three masks) held in
// global memory and reading its bits back.  False when the probe fails.
bool probe_masks(PIX_HDC dc, uint32_t& red, uint32_t& green, uint32_t& blue);
bool window_rect(PIX_HWND window, Rect& rect);    // GetWindowRect (screen coordinates)
bool client_to_screen(PIX_HWND window, int32_t& x, int32_t& y);  // ClientToScreen

// --- the DIB path and printing (SRCCOPY, DIB_RGB_COLORS) ----------------------------
int32_t set_dib_to_device(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                          int32_t source_y, uint32_t first_line, uint32_t lines, const void* bits,
                          const void* header);
int32_t stretch_dib(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                    int32_t source_y, int32_t source_width, int32_t source_height, const void* bits,
                    const void* header);

// --- the DDB path ----------------------------------------------------------------
PIX_HDC create_compatible_dc(PIX_HDC dc);
Object create_compatible_bitmap(PIX_HDC dc, int32_t width, int32_t height);
Object select_object(PIX_HDC dc, Object object);  // returns the previously selected one
int32_t set_bitmap_bits(Object bitmap, uint32_t bytes, const void* bits);
bool bit_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
             int32_t source_y);
bool stretch_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
                 int32_t source_y, int32_t source_width, int32_t source_height);
void delete_object(Object object);
void delete_dc(PIX_HDC dc);

// --- the direct path (DirectDraw on Windows, MIT-SHM on Linux) ------------------------
// The objects kept in the display record: the direct object, the primary
// surface and the clipper bound to the window.  On failure the functions
// return false and put the library's message in `message` (naming the
// failing call and the platform's error, e.g. "IDirectDrawSurface_Lock call
// 2 - Surface busy"); the caller reports it with 0x10790000.
struct DirectObjects {
  void* object = nullptr;
  void* primary = nullptr;
  void* clipper = nullptr;
};
// Creates the objects for `window` (init).  A platform without a direct path
// leaves them null and succeeds.
bool direct_create(PIX_HWND window, DirectObjects& objects, std::string& message);
void direct_release(DirectObjects& objects);
// The driver capability flags (parameter 402); 0 without an object or on failure.
uint32_t direct_caps(const DirectObjects& objects);
// Restores a lost primary surface.
bool direct_restore(DirectObjects& objects, std::string& message);
// The bounding rectangle of the clipper's clip list (surface coordinates),
// asking first for the list's size and then for the list.
bool direct_clip(DirectObjects& objects, Rect& clip, std::string& message);
// Turns a point of the window's client area into the direct surface's
// coordinates: the screen's (ClientToScreen) where the surface is the screen
// (DirectDraw), unchanged where the surface is the window's own (X11: the
// server clips a put to the window, so no question needs asking).
bool direct_origin(const DirectObjects& objects, PIX_HWND window, int32_t& x, int32_t& y);
// Locks the primary surface over `rect` (surface coordinates): `bits` points
// at the rectangle's top-left pixel, `pitch` is the surface's line step.
bool direct_lock(DirectObjects& objects, const Rect& rect, uint8_t*& bits, int32_t& pitch, std::string& message);
// Unlocks (and on Linux presents) what was locked.
bool direct_unlock(DirectObjects& objects, const Rect& rect, std::string& message);

}  // namespace pix::display::backend
