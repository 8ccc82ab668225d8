// The Windows display on real GDI, USER and DirectDraw (Wine inside Xvfb):
// images drawn into real windows and read back pixel by pixel, a metafile
// and a PostScript printer.
#include <gtest/gtest.h>

#include <ddraw.h>

#include <cstdio>
#include <cstring>
#include <array>

#include "display/backend.h"
#include "display/display.h"
#include "display_win32_support.h"
#include "test_support.h"

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

// The picture in the screen's own layout (BGRX or 5-5-5, or 5-6-5 for Wine's
// 16-bit DirectDraw surface), lines `first`.. of it.
std::vector<uint8_t> screen_lines(int width, int first, int lines, int format) {
  const int bytes = format == PIX_BGRX32 ? 4 : 2;
  std::vector<uint8_t> out(static_cast<size_t>(width) * bytes * lines);
  for (int y = 0; y < lines; ++y) {
    for (int x = 0; x < width; ++x) {
      const uint32_t c = colour(x, first + y);
      const uint32_t v = format == PIX_BGRX32 ? c
                         : format == PIX_RGB15 ? (c >> 9 & 0x7C00) | (c >> 6 & 0x03E0) | (c >> 3 & 0x1F)
                                               : (c >> 8 & 0xF800) | (c >> 5 & 0x07E0) | (c >> 3 & 0x1F);
      std::memcpy(&out[(static_cast<size_t>(y) * width + x) * bytes], &v, bytes);
    }
  }
  return out;
}

class DisplayWin32 : public pixtest::LibraryTest {
 protected:
  // A display initialised on the window, then given flags and a region.
  uint32_t display(const Window& window, uint32_t flags = 0, std::array<uint16_t, 4> roi = {0, 0, 32767, 32767}) {
    const uint32_t d = PIX_display_create();
    EXPECT_EQ(PIX_display_init(d, window.handle()), 0u) << last_report().message;
    PIX_display_set_flags(d, flags, 1);
    PIX_display_set_ROI(d, 1, roi.data());
    return d;
  }
  // Destroying a display leaves its DirectDraw objects alone; they must go
  // before their window does (Wine faults when a window bound to a live
  // clipper is destroyed).
  void close(uint32_t d) {
    backend::direct_release(pix::display::displays().find(d)->direct);
    PIX_display_destroy(d);
  }
};

TEST_F(DisplayWin32, InitReadsTheScreen) {
  Window window(0, 0, 64, 32);
  const uint32_t d = display(window);
  // Wine shows a 24-bit X screen as 32 bits a pixel, a 16- or 15-bit one as 16 (5-5-5).
  const bool wide = screen_depth() >= 24;
  EXPECT_EQ(std::vector<uint32_t>({PIX_display_get_DeviceCaps(d, 1), PIX_display_get_DeviceCaps(d, 2),
                                   PIX_display_get_DeviceCaps(d, 3), PIX_display_get_parameter(d, 10),
                                   PIX_display_get_parameter(d, 13)}),
            std::vector<uint32_t>({1024, 768, wide ? 32u : 16u, wide ? uint32_t{PIX_BGRX32} : uint32_t{PIX_RGB15}, wide ? 32u : 15u}));
  EXPECT_NE(PIX_display_get_parameter(d, PIX_DISPLAY_DD_CAPS), 0u);  // the DirectDraw object is there
  EXPECT_EQ(PIX_display_get_paint_hDC(d), nullptr);                  // init gave back the context it took
  close(d);
}

TEST_F(DisplayWin32, DibPlacedAndScaledByRegionAndFlags) {
  const Dib dib(41, 23);  // odd width: padded DIB rows
  const uint32_t img = pixtest::make_image(PIX_BGR24, 41, 23, 23);
  PIX_image_set_flags(img, PIX_FLAG_LOCKED | PIX_FLAG_DIB, 1);
  PIX_image_set_ptr(img, PIX_PTR_DATA, const_cast<uint8_t*>(dib.bytes.data()));
  struct Case {
    const char* name;
    int window_width, window_height;
    uint32_t flags;
    std::array<uint16_t, 4> roi;  // left, top, width, height
    int shown_width, shown_height, sx, sy;
  } cases[] = {
      {"dib-own-size", 160, 90, 0, {7, 5, 32767, 32767}, 41, 23, 1, 1},
      {"dib-cut", 160, 90, 0, {7, 5, 20, 10}, 20, 10, 1, 1},  // the picture's top-left part
      {"dib-fit", 123, 46, 4, {0, 0, 32767, 32767}, 41, 23, 3, 2},
      {"dib-fit-width-given", 130, 69, 4, {2, 0, 82, 32767}, 41, 23, 2, 3},
      {"dib-aspect-by-height", 164, 46, 4 | 8, {0, 0, 32767, 32767}, 41, 23, 2, 2},
      {"dib-aspect-by-width", 123, 200, 4 | 8, {1, 4, 32767, 32767}, 41, 23, 3, 3},
      {"dib-aspect-ignored", 160, 90, 8, {3, 3, 32767, 32767}, 41, 23, 1, 1},
  };
  for (const Case& c : cases) {
    Window window(50, 60, c.window_width, c.window_height);
    const uint32_t d = display(window, c.flags, c.roi);
    EXPECT_EQ(PIX_display_image(d, img, 3), 0u) << c.name << last_report().message;
    expect_window(window, c.roi[0], c.roi[1], c.shown_width, c.shown_height, c.sx, c.sy, c.name);
    close(d);
  }
}

TEST_F(DisplayWin32, BitmapAndDirectPathsStripByStrip) {
  const int format = screen_depth() >= 24 ? PIX_BGRX32 : PIX_RGB15;
  for (const bool direct : {false, true}) {
    // Wine's 16-bit DirectDraw surface is 5-6-5 while its GDI answers 5-5-5.
    const int layout = direct && format == PIX_RGB15 ? PIX_RGB16 : format;
    Window window(300, 200, 120, 80);
    const uint32_t d = display(window, direct ? 2 : 0, {9, 6, 32767, 32767});
    const uint32_t img = pixtest::make_image(static_cast<uint16_t>(layout), 41, 23, 8);
    std::vector<std::vector<uint8_t>> strips;
    for (int first = 0; first < 23; first += 8) {  // 8, 8 and 7 lines
      strips.push_back(screen_lines(41, first, 8, layout));
      PIX_image_set_flags(img, PIX_FLAG_LOCKED, 1);
      PIX_image_set_ptr(img, PIX_PTR_DATA, strips.back().data());
      ASSERT_EQ(PIX_display_image(d, img, 3), 0u) << last_report().message;
    }
    if (direct) {
      expect_window(window, 9, 6, 41, 23, 1, 1, "direct-strips");
    } else {
      // Every strip went to the top of the bitmap, the last one whole (its 8th
      // line too: the copy comes before the cut to the height); the rest of
      // the bitmap was never written.
      const Pixels p = window.read();
      for (int y = 0; y < 23; ++y) {
        for (int x = 0; x < 41; ++x) {
          const uint32_t want = y < 8 ? colour(x, 16 + y) : 0;
          ASSERT_TRUE(close_to(p.at(9 + x, 6 + y), want, tolerance())) << x << "," << y << std::hex << " " << p.at(9 + x, 6 + y);
        }
      }
      screenshot(p, "ddb-strips");
    }
    close(d);
  }
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

TEST(DirectDrawDoubles, FailuresNameTheCallAndALostSurfaceIsRestored) {
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

// A display printing a 41x23 DIB onto `dc`, a page of the given size.
uint32_t print(HDC dc, uint32_t page_width, uint32_t page_height, int16_t percentage, const Dib& dib) {
  const uint32_t d = PIX_display_create();
  PIX_display_set_paint_hDC(d, dc);
  PIX_display_set_parameter(d, 11, page_width);
  PIX_display_set_parameter(d, 12, page_height);
  const uint32_t img = pixtest::make_image(PIX_BGR24, dib.width, dib.height, dib.height);
  PIX_image_set_flags(img, PIX_FLAG_LOCKED | PIX_FLAG_DIB, 1);
  PIX_image_set_ptr(img, PIX_PTR_DATA, const_cast<uint8_t*>(dib.bytes.data()));
  const uint32_t result = PIX_display_print_DIB(d, img, percentage);
  PIX_display_destroy(d);
  return result;
}

TEST_F(DisplayWin32, PrintedOntoAMetafile) {
  const Dib dib(41, 23);
  // An 820x600 page: the fit factor is 20 (by width); the sizes are cut after a
  // multiplication by a single-precision 0.01, so 50 % is 409x229, not 410x230.
  struct Case {
    int16_t percentage;
    std::vector<LONG> placed;
  } cases[] = {{50, {205, 185, 409, 229}}, {150, {0, 70, 819, 459}}, {100, {0, 70, 819, 459}}, {1, {406, 298, 8, 4}}};
  for (const Case& c : cases) {
    HDC dc = CreateEnhMetaFileA(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(print(dc, 820, 600, c.percentage, dib), 0u) << last_report().message;
    HENHMETAFILE metafile = CloseEnhMetaFile(dc);
    const auto records = stretch_records(metafile);
    DeleteEnhMetaFile(metafile);
    ASSERT_EQ(records.size(), 1u);
    const EMRSTRETCHDIBITS& r = records[0].record;
    EXPECT_EQ(std::vector<LONG>({r.xDest, r.yDest, r.cxDest, r.cyDest, r.xSrc, r.ySrc, r.cxSrc, r.cySrc}),
              (std::vector<LONG>{c.placed[0], c.placed[1], c.placed[2], c.placed[3], 0, 0, 41, 23}));
    EXPECT_EQ(std::make_pair(r.dwRop, r.iUsageSrc), std::make_pair(DWORD{SRCCOPY}, DWORD{DIB_RGB_COLORS}));
    EXPECT_EQ(records[0].header, std::vector<uint8_t>(dib.header(), dib.header() + 40));
    EXPECT_EQ(records[0].bits, std::vector<uint8_t>(dib.bits(), dib.bits() + dib.bytes.size() - 40));
  }
}

TEST_F(DisplayWin32, PrintedOnAPostScriptPrinter) {
  const Dib dib(41, 23);
  HDC dc = CreateDCA(nullptr, test_printer().c_str(), nullptr, nullptr);
  ASSERT_NE(dc, nullptr) << "Wine's PostScript printer";
  const int width = GetDeviceCaps(dc, HORZRES), height = GetDeviceCaps(dc, VERTRES);
  const int dpi = GetDeviceCaps(dc, LOGPIXELSX), left = GetDeviceCaps(dc, PHYSICALOFFSETX), top = GetDeviceCaps(dc, PHYSICALOFFSETY);
  char directory[MAX_PATH];
  GetTempPathA(MAX_PATH, directory);
  const std::string ps = std::string(directory) + "pix95-print.ps";
  DOCINFOA document{sizeof document, "pix95", ps.c_str(), nullptr, 0};
  ASSERT_GT(StartDocA(dc, &document), 0);
  StartPage(dc);
  EXPECT_EQ(print(dc, width, height, 100, dib), 0u) << last_report().message;
  EndPage(dc);
  EndDoc(dc);
  DeleteDC(dc);
  char unix_ps[MAX_PATH * 3] = {};
  using UnixName = char*(CDECL*)(const WCHAR*);
  auto unix_name = reinterpret_cast<UnixName>(reinterpret_cast<void (*)()>(
      GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
  ASSERT_NE(unix_name, nullptr);
  std::wstring wide(ps.begin(), ps.end());
  std::snprintf(unix_ps, sizeof unix_ps, "%s", unix_name(wide.c_str()));
  const std::string ppm = std::string(unix_ps) + ".ppm";
  ASSERT_TRUE(run_unix({"/usr/bin/gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=ppm" "raw",
                        "-r" + std::to_string(dpi), "-sOutputFile=" + ppm, unix_ps}));
  const Pixels page = read_ppm(ppm);
  ASSERT_GT(page.width, width);
  // The picture fills the printable width (a factor of width/41) and is centred
  // on the printable height; every source pixel's centre has its colour.
  const double f = width / 41.0;
  const int shown_height = static_cast<int>(23 * f), y0 = top + (height - shown_height) / 2;
  int wrong = 0;
  for (int y = 0; y < 23; ++y) {
    for (int x = 0; x < 41; ++x) {
      const uint32_t got = page.at(left + static_cast<int>((x + 0.5) * f), y0 + static_cast<int>((y + 0.5) * f));
      wrong += !close_to(got, colour(x, y), 2);
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(page.at(left + width / 2, y0 - 3), 0xFFFFFFu);  // white just above and below
  EXPECT_EQ(page.at(left + width / 2, y0 + shown_height + 3), 0xFFFFFFu);
  screenshot(page, "printed-page");
}

}  // namespace
