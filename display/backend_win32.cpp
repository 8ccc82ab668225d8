// Windows: the display's platform operations on GDI, USER and DirectDraw.
//
// DirectDraw is loaded on first use (ddraw.dll, DirectDrawCreate), so that a
// program that never asks for the direct path never maps it, and the DLL
// imports nothing beyond GDI and USER.  The original DirectDraw interfaces
// (IDirectDraw, IDirectDrawSurface, IDirectDrawClipper) are the ones used:
// they are what every DirectDraw driver has.
#include <windows.h>
#include <ddraw.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "backend.h"

namespace pix::display::backend {

namespace {

HDC dc_of(PIX_HDC dc) { return static_cast<HDC>(dc); }
HWND window_of(PIX_HWND window) { return static_cast<HWND>(window); }

}  // namespace

// GDI and USER are always there; DirectDraw is asked for when the direct path is.
bool ready(bool, std::string&) { return true; }

// --- device contexts and facts ----------------------------------------------------

PIX_HDC get_dc(PIX_HWND window) { return GetDC(window_of(window)); }

void release_dc(PIX_HWND window, PIX_HDC dc) { ReleaseDC(window_of(window), dc_of(dc)); }

int32_t device_caps(PIX_HDC dc, int index) { return GetDeviceCaps(dc_of(dc), index); }

// Three 32-bit pixels, pure red, pure green and pure blue, made into a bitmap
// of the device's own layout: read back, each pixel is the device's mask of
// that colour.  The 52 bytes (header and pixels) live in global memory.
bool probe_masks(PIX_HDC dc, uint32_t& red, uint32_t& green, uint32_t& blue) {
  constexpr SIZE_T kBytes = sizeof(BITMAPINFOHEADER) + 3 * sizeof(uint32_t);
  static_assert(kBytes == 52);
  HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, kBytes);
  if (memory == nullptr) return false;
  auto* bytes = static_cast<uint8_t*>(GlobalLock(memory));
  if (bytes == nullptr) {
    GlobalFree(memory);
    return false;
  }
  BITMAPINFOHEADER header{};
  header.biSize = sizeof(BITMAPINFOHEADER);
  header.biWidth = 3;
  header.biHeight = 1;
  header.biPlanes = 1;
  header.biBitCount = 32;
  header.biCompression = BI_RGB;
  std::memcpy(bytes, &header, sizeof header);
  const uint32_t pixels[3] = {0x00FF0000u, 0x0000FF00u, 0x000000FFu};  // BGRX in memory: red, green, blue
  std::memcpy(bytes + sizeof header, pixels, sizeof pixels);
  auto* info = reinterpret_cast<BITMAPINFO*>(bytes);
  HBITMAP bitmap = CreateDIBitmap(dc_of(dc), &info->bmiHeader, CBM_INIT, bytes + sizeof header, info, DIB_RGB_COLORS);
  bool ok = false;
  if (bitmap != nullptr) {
    uint16_t read[4] = {};  // a device line is padded to an even number of bytes: 3 pixels fit in 8
    if (GetBitmapBits(bitmap, sizeof read, read) >= 6) {
      red = read[0];
      green = read[1];
      blue = read[2];
      ok = true;
    }
    DeleteObject(bitmap);
  }
  HGLOBAL handle = GlobalHandle(bytes);
  GlobalUnlock(handle);
  GlobalFree(handle);
  return ok;
}

bool window_rect(PIX_HWND window, Rect& rect) {
  RECT r;
  if (!GetWindowRect(window_of(window), &r)) return false;
  rect = {r.left, r.top, r.right, r.bottom};
  return true;
}

bool client_to_screen(PIX_HWND window, int32_t& x, int32_t& y) {
  POINT point{x, y};
  if (!ClientToScreen(window_of(window), &point)) return false;
  x = point.x;
  y = point.y;
  return true;
}

// --- the DIB path and printing -------------------------------------------------------

int32_t set_dib_to_device(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                          int32_t source_y, uint32_t first_line, uint32_t lines, const void* bits,
                          const void* header) {
  return SetDIBitsToDevice(dc_of(dc), x, y, static_cast<DWORD>(width), static_cast<DWORD>(height), source_x, source_y,
                           first_line, lines, bits, static_cast<const BITMAPINFO*>(header), DIB_RGB_COLORS);
}

int32_t stretch_dib(PIX_HDC dc, int32_t x, int32_t y, int32_t width, int32_t height, int32_t source_x,
                    int32_t source_y, int32_t source_width, int32_t source_height, const void* bits,
                    const void* header) {
  return StretchDIBits(dc_of(dc), x, y, width, height, source_x, source_y, source_width, source_height, bits,
                       static_cast<const BITMAPINFO*>(header), DIB_RGB_COLORS, SRCCOPY);
}

// --- the DDB path ----------------------------------------------------------------

PIX_HDC create_compatible_dc(PIX_HDC dc) { return CreateCompatibleDC(dc_of(dc)); }

Object create_compatible_bitmap(PIX_HDC dc, int32_t width, int32_t height) {
  return CreateCompatibleBitmap(dc_of(dc), width, height);
}

Object select_object(PIX_HDC dc, Object object) { return SelectObject(dc_of(dc), static_cast<HGDIOBJ>(object)); }

int32_t set_bitmap_bits(Object bitmap, uint32_t bytes, const void* bits) {
  return SetBitmapBits(static_cast<HBITMAP>(bitmap), bytes, bits);
}

bool bit_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
             int32_t source_y) {
  return BitBlt(dc_of(dst), x, y, width, height, dc_of(src), source_x, source_y, SRCCOPY) != 0;
}

bool stretch_blt(PIX_HDC dst, int32_t x, int32_t y, int32_t width, int32_t height, PIX_HDC src, int32_t source_x,
                 int32_t source_y, int32_t source_width, int32_t source_height) {
  return StretchBlt(dc_of(dst), x, y, width, height, dc_of(src), source_x, source_y, source_width, source_height,
                    SRCCOPY) != 0;
}

void delete_object(Object object) { DeleteObject(static_cast<HGDIOBJ>(object)); }

void delete_dc(PIX_HDC dc) { DeleteDC(dc_of(dc)); }

// --- the direct path -------------------------------------------------------------

namespace {

IDirectDraw* object_of(const DirectObjects& o) { return static_cast<IDirectDraw*>(o.object); }
IDirectDrawSurface* primary_of(const DirectObjects& o) { return static_cast<IDirectDrawSurface*>(o.primary); }
IDirectDrawClipper* clipper_of(const DirectObjects& o) { return static_cast<IDirectDrawClipper*>(o.clipper); }

// The short texts of DirectDraw's errors as the library reports them
// ("Region to small" kept as applications match on it).
const char* direct_error_text(HRESULT result) {
  switch (result) {
    case DDERR_ALREADYINITIALIZED: return "Already initialized";
    case DDERR_CANNOTATTACHSURFACE: return "Cannot attach surface";
    case DDERR_CANTCREATEDC: return "Cannot create device context";
    case DDERR_CANTLOCKSURFACE: return "Cannot lock surface";
    case DDERR_CLIPPERISUSINGHWND: return "Clipper is using a window";
    case DDERR_DIRECTDRAWALREADYCREATED: return "DirectDraw already created";
    case DDERR_EXCEPTION: return "Exception";
    case DDERR_EXCLUSIVEMODEALREADYSET: return "Exclusive mode already set";
    case DDERR_GENERIC: return "Generic failure";
    case DDERR_HWNDALREADYSET: return "Window already set";
    case DDERR_HWNDSUBCLASSED: return "Window subclassed";
    case DDERR_INVALIDCAPS: return "Invalid caps";
    case DDERR_INVALIDCLIPLIST: return "Invalid clip list";
    case DDERR_INVALIDDIRECTDRAWGUID: return "Invalid DirectDraw GUID";
    case DDERR_INVALIDMODE: return "Invalid mode";
    case DDERR_INVALIDOBJECT: return "Invalid object";
    case DDERR_INVALIDPARAMS: return "Invalid parameters";
    case DDERR_INVALIDPIXELFORMAT: return "Invalid pixel format";
    case DDERR_INVALIDRECT: return "Invalid rectangle";
    case DDERR_NOCLIPLIST: return "No clip list";
    case DDERR_NOCLIPPERATTACHED: return "No clipper attached";
    case DDERR_NOCOOPERATIVELEVELSET: return "No cooperative level set";
    case DDERR_NODIRECTDRAWHW: return "No DirectDraw hardware";
    case DDERR_NODIRECTDRAWSUPPORT: return "No DirectDraw support";
    case DDERR_NOEXCLUSIVEMODE: return "No exclusive mode";
    case DDERR_NOHWND: return "No window";
    case DDERR_NOTFOUND: return "Not found";
    case DDERR_NOTLOCKED: return "Surface not locked";
    case DDERR_OUTOFMEMORY: return "Out of memory";
    case DDERR_OUTOFVIDEOMEMORY: return "Out of video memory";
    case DDERR_PRIMARYSURFACEALREADYEXISTS: return "Primary surface already exists";
    case DDERR_REGIONTOOSMALL: return "Region to small";
    case DDERR_SURFACEBUSY: return "Surface busy";
    case DDERR_SURFACELOST: return "Surface lost";
    case DDERR_UNSUPPORTED: return "Unsupported";
    case DDERR_UNSUPPORTEDMODE: return "Unsupported mode";
    case DDERR_WASSTILLDRAWING: return "Was still drawing";
    case DDERR_WRONGMODE: return "Wrong mode";
    default: return nullptr;
  }
}

// "<call> call <site> - <error>": `site` tells apart the places one method is
// called from (a first try and a retry, a size query and a read).
bool fail(std::string& message, const char* call, int site, HRESULT result) {
  char text[160];
  if (const char* known = direct_error_text(result)) {
    std::snprintf(text, sizeof text, "%s call %d - %s", call, site, known);
  } else {
    std::snprintf(text, sizeof text, "%s call %d - Error 0x%08lX", call, site, static_cast<unsigned long>(result));
  }
  message = text;
  return false;
}

using DirectDrawCreateFn = HRESULT(WINAPI*)(GUID*, IDirectDraw**, IUnknown*);

// DirectDrawCreate from ddraw.dll, loaded once and kept for the process.
DirectDrawCreateFn direct_draw_create() {
  static const DirectDrawCreateFn create = [] {
    HMODULE module = LoadLibraryA("ddraw.dll");
    return module ? reinterpret_cast<DirectDrawCreateFn>(reinterpret_cast<void (*)()>(
                        GetProcAddress(module, "DirectDrawCreate")))
                  : nullptr;
  }();
  return create;
}

template <typename Interface>
void release(void*& pointer) {
  if (pointer != nullptr) static_cast<Interface*>(pointer)->Release();
  pointer = nullptr;
}

}  // namespace

bool direct_create(PIX_HWND window, DirectObjects& objects, std::string& message) {
  direct_release(objects);
  DirectDrawCreateFn create = direct_draw_create();
  if (create == nullptr) return fail(message, "DirectDrawCreate", 1, DDERR_NODIRECTDRAWSUPPORT);
  IDirectDraw* object = nullptr;
  if (HRESULT r = create(nullptr, &object, nullptr); FAILED(r)) return fail(message, "DirectDrawCreate", 1, r);
  objects.object = object;
  // Any failure below releases what was made: the record keeps all or nothing.
  auto undo = [&](const char* call, HRESULT r) {
    direct_release(objects);
    return fail(message, call, 1, r);
  };
  if (HRESULT r = object->SetCooperativeLevel(window_of(window), DDSCL_NORMAL); FAILED(r))
    return undo("IDirectDraw_SetCooperativeLevel", r);
  DDSURFACEDESC description{};
  description.dwSize = sizeof description;
  description.dwFlags = DDSD_CAPS;
  description.ddsCaps.dwCaps = DDSCAPS_PRIMARYSURFACE;
  IDirectDrawSurface* primary = nullptr;
  if (HRESULT r = object->CreateSurface(&description, &primary, nullptr); FAILED(r))
    return undo("IDirectDraw_CreateSurface", r);
  objects.primary = primary;
  IDirectDrawClipper* clipper = nullptr;
  if (HRESULT r = object->CreateClipper(0, &clipper, nullptr); FAILED(r)) return undo("IDirectDraw_CreateClipper", r);
  objects.clipper = clipper;
  if (HRESULT r = clipper->SetHWnd(0, window_of(window)); FAILED(r)) return undo("IDirectDrawClipper_SetHWnd", r);
  if (HRESULT r = primary->SetClipper(clipper); FAILED(r)) return undo("IDirectDrawSurface_SetClipper", r);
  return true;
}

void direct_release(DirectObjects& objects) {
  if (objects.primary != nullptr && objects.clipper != nullptr) primary_of(objects)->SetClipper(nullptr);
  release<IDirectDrawClipper>(objects.clipper);
  release<IDirectDrawSurface>(objects.primary);
  release<IDirectDraw>(objects.object);
}

uint32_t direct_caps(const DirectObjects& objects) {
  if (objects.object == nullptr) return 0;
  // Two capability records of the size every DirectDraw since its third
  // version accepts; the flags are the record's second 32-bit field.
  constexpr DWORD kSize = 316;
  static_assert(sizeof(DDCAPS_DX3) == kSize);
  DDCAPS_DX3 driver{}, emulation{};
  driver.dwSize = emulation.dwSize = kSize;
  if (FAILED(object_of(objects)->GetCaps(reinterpret_cast<DDCAPS*>(&driver), reinterpret_cast<DDCAPS*>(&emulation))))
    return 0;
  return driver.dwCaps;
}

bool direct_restore(DirectObjects& objects, std::string& message) {
  IDirectDrawSurface* primary = primary_of(objects);
  if (primary == nullptr) return fail(message, "IDirectDrawSurface_IsLost", 1, DDERR_INVALIDOBJECT);
  if (primary->IsLost() != DDERR_SURFACELOST) return true;
  if (HRESULT r = primary->Restore(); FAILED(r)) return fail(message, "IDirectDrawSurface_Restore", 1, r);
  return true;
}

bool direct_origin(const DirectObjects&, PIX_HWND window, int32_t& x, int32_t& y) {
  return client_to_screen(window, x, y);
}

bool direct_clip(DirectObjects& objects, Rect& clip, std::string& message) {
  IDirectDrawClipper* clipper = clipper_of(objects);
  if (clipper == nullptr) return fail(message, "IDirectDrawClipper_GetClipList", 1, DDERR_NOCLIPPERATTACHED);
  DWORD size = 0;
  if (HRESULT r = clipper->GetClipList(nullptr, nullptr, &size); FAILED(r))
    return fail(message, "IDirectDrawClipper_GetClipList", 1, r);
  if (size < sizeof(RGNDATAHEADER)) return fail(message, "IDirectDrawClipper_GetClipList", 1, DDERR_REGIONTOOSMALL);
  std::vector<DWORD> storage((size + sizeof(DWORD) - 1) / sizeof(DWORD));  // RGNDATA's own alignment
  auto* region = reinterpret_cast<RGNDATA*>(storage.data());
  if (HRESULT r = clipper->GetClipList(nullptr, region, &size); FAILED(r))
    return fail(message, "IDirectDrawClipper_GetClipList", 2, r);
  const RECT& bound = region->rdh.rcBound;
  if (region->rdh.nCount == 0) {
    clip = {};
  } else {
    clip = {bound.left, bound.top, bound.right, bound.bottom};
  }
  return true;
}

bool direct_lock(DirectObjects& objects, const Rect& rect, uint8_t*& bits, int32_t& pitch, std::string& message) {
  IDirectDrawSurface* primary = primary_of(objects);
  if (primary == nullptr) return fail(message, "IDirectDrawSurface_Lock", 1, DDERR_INVALIDOBJECT);
  RECT area{rect.left, rect.top, rect.right, rect.bottom};
  DDSURFACEDESC description{};
  description.dwSize = sizeof description;
  HRESULT r = primary->Lock(&area, &description, DDLOCK_WAIT, nullptr);
  if (r == DDERR_SURFACELOST) {
    // The surface went away between the restore and the lock (a mode
    // change): restore once more and try again.
    if (HRESULT restored = primary->Restore(); FAILED(restored))
      return fail(message, "IDirectDrawSurface_Restore", 2, restored);
    description = {};
    description.dwSize = sizeof description;
    r = primary->Lock(&area, &description, DDLOCK_WAIT, nullptr);
    if (FAILED(r)) return fail(message, "IDirectDrawSurface_Lock", 2, r);
  } else if (FAILED(r)) {
    return fail(message, "IDirectDrawSurface_Lock", 1, r);
  }
  bits = static_cast<uint8_t*>(description.lpSurface);
  pitch = description.lPitch;
  return true;
}

bool direct_unlock(DirectObjects& objects, const Rect&, std::string& message) {
  IDirectDrawSurface* primary = primary_of(objects);
  if (primary == nullptr) return fail(message, "IDirectDrawSurface_Unlock", 1, DDERR_INVALIDOBJECT);
  if (HRESULT r = primary->Unlock(nullptr); FAILED(r)) return fail(message, "IDirectDrawSurface_Unlock", 1, r);
  return true;
}

}  // namespace pix::display::backend
