// The Windows display on real GDI, USER and DirectDraw (Wine inside Xvfb):
// images drawn into real windows and read back pixel by pixel, a metafile
// and a PostScript printer.
#include <gtest/gtest.h>

#include <ddraw.h>

#include <cstring>
#include <functional>

#include "display/backend.h"
#include "display_win32_support.h"

namespace backend = pix::display::backend;
using namespace pixtest::win;

namespace {

uint32_t colour(int x, int y) { return (x * 37u + y * 11u) % 256u << 16 | (x * 5u ^ y * 29u) % 256u << 8 | (x + y) * 13u % 256u; }

// A 24-bit DIB (40-byte header, bottom-up BGR rows) of colour(x, y).
struct Dib {
  int width, height;
  std::vector<uint8_t> bytes;
  Dib(int w, int h) : width(w), height(h) {
    const int row = (w * 3 + 3) & ~3;
    bytes.assign(40 + static_cast<size_t>(row) * h, 0);
    BITMAPINFOHEADER header{40, w, h, 1, 24, BI_RGB, static_cast<DWORD>(row * h), 0, 0, 0, 0};
    std::memcpy(bytes.data(), &header, 40);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const uint32_t c = colour(x, y);
        std::memcpy(&bytes[40 + static_cast<size_t>(h - 1 - y) * row + x * 3], &c, 3);
      }
    }
  }
  const uint8_t* header() const { return bytes.data(); }
  const uint8_t* bits() const { return bytes.data() + 40; }
};

// Every pixel of the window: the image scaled by whole factors at (left, top), black elsewhere.
void expect_window(const Window& window, int left, int top, int width, int height, int sx, int sy, const char* what) {
  const Pixels p = window.read();
  int wrong = 0;
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const bool inside = x >= left && y >= top && x < left + width * sx && y < top + height * sy;
      const uint32_t want = inside ? colour((x - left) / sx, (y - top) / sy) : 0;
      if (!close_to(p.at(x, y), want, tolerance()) && wrong++ < 3)
        ADD_FAILURE() << what << ": pixel " << x << "," << y << " is " << std::hex << p.at(x, y) << " not " << want;
    }
  }
  EXPECT_EQ(wrong, 0) << what;
  screenshot(p, what);
}

TEST(DisplayWin32, DeviceFactsAndMaskProbe) {
  Window window(0, 0, 64, 32);
  PIX_HDC dc = backend::get_dc(window.handle());
  ASSERT_NE(dc, nullptr);
  EXPECT_EQ(backend::device_caps(dc, backend::kHorzRes), 1024);
  EXPECT_EQ(backend::device_caps(dc, backend::kVertRes), 768);
  // Wine shows a 24-bit X screen as 32 bits a pixel, a 16- or 15-bit one as 16 (5-5-5).
  EXPECT_EQ(backend::device_caps(dc, backend::kBitsPixel), screen_depth() >= 24 ? 32 : 16);
  if (screen_depth() < 24) {
    uint32_t r = 0, g = 0, b = 0;
    ASSERT_TRUE(backend::probe_masks(dc, r, g, b));
    EXPECT_EQ(std::vector<uint32_t>({r, g, b}), std::vector<uint32_t>({0x7C00, 0x03E0, 0x001F}));
  }
  backend::release_dc(window.handle(), dc);
}

TEST(DisplayWin32, DibAndDdbDrawnIntoAWindow) {
  const Dib dib(41, 23);  // odd width: padded DIB rows, odd device lines
  Window window(30, 40, 160, 90);
  PIX_HDC dc = backend::get_dc(window.handle());
  EXPECT_NE(backend::set_dib_to_device(dc, 7, 5, 41, 23, 0, 0, 0, 23, dib.bits(), dib.header()), 0);
  expect_window(window, 7, 5, 41, 23, 1, 1, "dib");
  window.clear();
  EXPECT_NE(backend::stretch_dib(dc, 3, 2, 123, 46, 0, 0, 41, 23, dib.bits(), dib.header()), 0);
  expect_window(window, 3, 2, 41, 23, 3, 2, "dib-stretched");

  // The same picture in the device's own layout through a compatible bitmap.
  const bool wide = backend::device_caps(dc, backend::kBitsPixel) == 32;
  const int line = 41 * (wide ? 4 : 2);  // device lines are whole 16-bit words
  std::vector<uint8_t> device(static_cast<size_t>(line) * 23);
  for (int y = 0; y < 23; ++y) {
    for (int x = 0; x < 41; ++x) {
      const uint32_t c = colour(x, y);
      const uint32_t v = wide ? c : (c >> 9 & 0x7C00) | (c >> 6 & 0x03E0) | (c >> 3 & 0x1F);
      std::memcpy(&device[static_cast<size_t>(y) * line + x * (wide ? 4 : 2)], &v, wide ? 4 : 2);
    }
  }
  PIX_HDC memory = backend::create_compatible_dc(dc);
  backend::Object bitmap = backend::create_compatible_bitmap(dc, 41, 23);
  backend::Object previous = backend::select_object(memory, bitmap);
  EXPECT_EQ(backend::set_bitmap_bits(bitmap, static_cast<uint32_t>(device.size()), device.data()), static_cast<int32_t>(device.size()));
  window.clear();
  EXPECT_TRUE(backend::bit_blt(dc, 11, 13, 41, 23, memory, 0, 0));
  expect_window(window, 11, 13, 41, 23, 1, 1, "ddb");
  window.clear();
  EXPECT_TRUE(backend::stretch_blt(dc, 0, 1, 82, 69, memory, 0, 0, 41, 23));
  expect_window(window, 0, 1, 41, 23, 2, 3, "ddb-stretched");
  backend::select_object(memory, previous);
  backend::delete_object(bitmap);
  backend::delete_dc(memory);
  backend::release_dc(window.handle(), dc);
}

TEST(DisplayWin32, DirectDrawPrimarySurfaceClippedToTheWindow) {
  Window window(200, 100, 96, 64);
  backend::DirectObjects objects;
  std::string message;
  ASSERT_TRUE(backend::direct_create(window.handle(), objects, message)) << message;
  EXPECT_NE(backend::direct_caps(objects), 0u);
  backend::Rect clip;
  ASSERT_TRUE(backend::direct_clip(objects, clip, message)) << message;
  EXPECT_EQ(std::vector<int32_t>({clip.left, clip.top, clip.right, clip.bottom}), std::vector<int32_t>({200, 100, 296, 164}));
  ASSERT_TRUE(backend::direct_restore(objects, message)) << message;
  const backend::Rect area{205, 103, 205 + 41, 103 + 23};
  uint8_t* bits = nullptr;
  int32_t pitch = 0;
  ASSERT_TRUE(backend::direct_lock(objects, area, bits, pitch, message)) << message;
  const bool wide = screen_depth() >= 24;
  for (int y = 0; y < 23; ++y) {
    for (int x = 0; x < 41; ++x) {
      const uint32_t c = colour(x, y);
      const uint32_t v = wide ? c : (c >> 8 & 0xF800) | (c >> 5 & 0x07E0) | (c >> 3 & 0x1F);  // the surface is 5-6-5
      std::memcpy(bits + static_cast<ptrdiff_t>(y) * pitch + x * (wide ? 4 : 2), &v, wide ? 4 : 2);
    }
  }
  ASSERT_TRUE(backend::direct_unlock(objects, area, message)) << message;
  expect_window(window, 5, 3, 41, 23, 1, 1, "direct");
  backend::direct_release(objects);
  EXPECT_EQ(objects.object, nullptr);
}

// Test doubles of a surface and a clipper: every answer scripted, calls counted.
#define PIX_NOT_HERE(name, ...) \
  STDMETHOD(name)(__VA_ARGS__) override { return E_NOTIMPL; }
struct FakeSurface : IDirectDrawSurface {
  std::vector<HRESULT> locks;  // answers of Lock, in turn
  HRESULT lost = DD_OK;
  int restores = 0;
  uint32_t pixel = 0;
  STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
  STDMETHOD_(ULONG, AddRef)() override { return 1; }
  STDMETHOD_(ULONG, Release)() override { return 0; }
  STDMETHOD(IsLost)() override { return lost; }
  STDMETHOD(Restore)() override { ++restores; lost = DD_OK; return DD_OK; }
  STDMETHOD(Lock)(LPRECT, LPDDSURFACEDESC d, DWORD, HANDLE) override {
    const HRESULT r = locks.empty() ? DD_OK : locks.front();
    if (!locks.empty()) locks.erase(locks.begin());
    d->lpSurface = &pixel;
    d->lPitch = 4;
    return r;
  }
  STDMETHOD(Unlock)(LPVOID) override { return DD_OK; }
  PIX_NOT_HERE(AddAttachedSurface, LPDIRECTDRAWSURFACE) PIX_NOT_HERE(AddOverlayDirtyRect, LPRECT)
  PIX_NOT_HERE(Blt, LPRECT, LPDIRECTDRAWSURFACE, LPRECT, DWORD, LPDDBLTFX) PIX_NOT_HERE(BltBatch, LPDDBLTBATCH, DWORD, DWORD)
  PIX_NOT_HERE(BltFast, DWORD, DWORD, LPDIRECTDRAWSURFACE, LPRECT, DWORD) PIX_NOT_HERE(DeleteAttachedSurface, DWORD, LPDIRECTDRAWSURFACE)
  PIX_NOT_HERE(EnumAttachedSurfaces, LPVOID, LPDDENUMSURFACESCALLBACK) PIX_NOT_HERE(EnumOverlayZOrders, DWORD, LPVOID, LPDDENUMSURFACESCALLBACK)
  PIX_NOT_HERE(Flip, LPDIRECTDRAWSURFACE, DWORD) PIX_NOT_HERE(GetAttachedSurface, LPDDSCAPS, LPDIRECTDRAWSURFACE*)
  PIX_NOT_HERE(GetBltStatus, DWORD) PIX_NOT_HERE(GetCaps, LPDDSCAPS) PIX_NOT_HERE(GetClipper, LPDIRECTDRAWCLIPPER*)
  PIX_NOT_HERE(GetColorKey, DWORD, LPDDCOLORKEY) PIX_NOT_HERE(GetDC, HDC*) PIX_NOT_HERE(GetFlipStatus, DWORD)
  PIX_NOT_HERE(GetOverlayPosition, LPLONG, LPLONG) PIX_NOT_HERE(GetPalette, LPDIRECTDRAWPALETTE*)
  PIX_NOT_HERE(GetPixelFormat, LPDDPIXELFORMAT) PIX_NOT_HERE(GetSurfaceDesc, LPDDSURFACEDESC)
  PIX_NOT_HERE(Initialize, LPDIRECTDRAW, LPDDSURFACEDESC) PIX_NOT_HERE(ReleaseDC, HDC) PIX_NOT_HERE(SetClipper, LPDIRECTDRAWCLIPPER)
  PIX_NOT_HERE(SetColorKey, DWORD, LPDDCOLORKEY) PIX_NOT_HERE(SetOverlayPosition, LONG, LONG) PIX_NOT_HERE(SetPalette, LPDIRECTDRAWPALETTE)
  PIX_NOT_HERE(UpdateOverlay, LPRECT, LPDIRECTDRAWSURFACE, LPRECT, DWORD, LPDDOVERLAYFX) PIX_NOT_HERE(UpdateOverlayDisplay, DWORD)
  PIX_NOT_HERE(UpdateOverlayZOrder, DWORD, LPDIRECTDRAWSURFACE)
};
struct FakeClipper : IDirectDrawClipper {
  std::vector<HRESULT> answers;  // of GetClipList, in turn
  STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
  STDMETHOD_(ULONG, AddRef)() override { return 1; }
  STDMETHOD_(ULONG, Release)() override { return 0; }
  STDMETHOD(GetClipList)(LPRECT, LPRGNDATA list, LPDWORD size) override {
    const HRESULT r = answers.empty() ? DD_OK : answers.front();
    if (!answers.empty()) answers.erase(answers.begin());
    if (!list) *size = sizeof(RGNDATAHEADER) + sizeof(RECT);
    else list->rdh = {sizeof(RGNDATAHEADER), RDH_RECTANGLES, 1, sizeof(RECT), {1, 2, 3, 4}};
    return r;
  }
  PIX_NOT_HERE(GetHWnd, HWND*) PIX_NOT_HERE(Initialize, LPDIRECTDRAW, DWORD) PIX_NOT_HERE(IsClipListChanged, WINBOOL*)
  PIX_NOT_HERE(SetClipList, LPRGNDATA, DWORD) PIX_NOT_HERE(SetHWnd, DWORD, HWND)
};

TEST(DisplayWin32, DirectDrawFailuresNameTheCallAndRestoreALostSurface) {
  struct Case {
    HRESULT lost;
    std::vector<HRESULT> locks, clips;
    std::string lock_message, clip_message;
    int restores;
  } cases[] = {
      {DD_OK, {}, {}, "", "", 0},
      {DDERR_SURFACELOST, {}, {}, "", "", 1},  // lost before drawing: restored first
      {DD_OK, {DDERR_SURFACELOST}, {}, "", "", 1},  // lost in between: restored and locked again
      {DD_OK, {DDERR_SURFACEBUSY}, {DDERR_REGIONTOOSMALL}, "IDirectDrawSurface_Lock call 1 - Surface busy",
       "IDirectDrawClipper_GetClipList call 1 - Region to small", 0},
      {DD_OK, {DDERR_SURFACELOST, DDERR_SURFACEBUSY}, {DD_OK, DDERR_REGIONTOOSMALL},
       "IDirectDrawSurface_Lock call 2 - Surface busy", "IDirectDrawClipper_GetClipList call 2 - Region to small", 1},
      {DD_OK, {DDERR_GENERIC}, {static_cast<HRESULT>(0x88760BADu)}, "IDirectDrawSurface_Lock call 1 - Generic failure",
       "IDirectDrawClipper_GetClipList call 1 - Error 0x88760BAD", 0},
  };
  for (const Case& c : cases) {
    FakeSurface surface;
    FakeClipper clipper;
    surface.lost = c.lost;
    surface.locks = c.locks;
    clipper.answers = c.clips;
    backend::DirectObjects objects{nullptr, &surface, &clipper};
    std::string message;
    EXPECT_TRUE(backend::direct_restore(objects, message));
    backend::Rect clip;
    EXPECT_EQ(backend::direct_clip(objects, clip, message), c.clip_message.empty()) << message;
    if (c.clip_message.empty()) {
      EXPECT_EQ(std::vector<int32_t>({clip.left, clip.top, clip.right, clip.bottom}), std::vector<int32_t>({1, 2, 3, 4}));
    } else {
      EXPECT_EQ(message, c.clip_message);
    }
    uint8_t* bits = nullptr;
    int32_t pitch = 0;
    message.clear();
    EXPECT_EQ(backend::direct_lock(objects, {1, 2, 3, 4}, bits, pitch, message), c.lock_message.empty());
    EXPECT_EQ(message, c.lock_message);
    if (c.lock_message.empty()) {
      EXPECT_EQ(bits, reinterpret_cast<uint8_t*>(&surface.pixel));
    }
    EXPECT_EQ(surface.restores, c.restores) << c.lock_message;
  }
}

TEST(DisplayWin32, StretchDibRecordedInAMetafile) {
  const Dib dib(13, 7);
  HDC dc = CreateEnhMetaFileA(nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(dc, nullptr);
  EXPECT_NE(backend::stretch_dib(dc, 31, 17, 52, 21, 0, 0, 13, 7, dib.bits(), dib.header()), 0);
  HENHMETAFILE metafile = CloseEnhMetaFile(dc);
  const auto records = stretch_records(metafile);
  DeleteEnhMetaFile(metafile);
  ASSERT_EQ(records.size(), 1u);
  const EMRSTRETCHDIBITS& r = records[0].record;
  EXPECT_EQ(std::vector<LONG>({r.xDest, r.yDest, r.cxDest, r.cyDest, r.xSrc, r.ySrc, r.cxSrc, r.cySrc}),
            std::vector<LONG>({31, 17, 52, 21, 0, 0, 13, 7}));
  EXPECT_EQ(r.dwRop, static_cast<DWORD>(SRCCOPY));
  EXPECT_EQ(r.iUsageSrc, static_cast<DWORD>(DIB_RGB_COLORS));
  EXPECT_EQ(records[0].header, std::vector<uint8_t>(dib.header(), dib.header() + 40));
  EXPECT_EQ(records[0].bits, std::vector<uint8_t>(dib.bits(), dib.bits() + dib.bytes.size() - 40));
}

}  // namespace
