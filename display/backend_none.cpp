// The backend of a build without a window system: nothing can be drawn, and
// every renderer says so with a stated code (ready() is false).  The display
// objects, parameters and flags still work.
#include "backend.h"

namespace pix::display::backend {

bool ready(bool, std::string& message) {
  message = "No window system in this build of the library";
  return false;
}
PIX_HDC get_dc(PIX_HWND) { return nullptr; }
void release_dc(PIX_HWND, PIX_HDC) {}
int32_t device_caps(PIX_HDC, int) { return 0; }
bool probe_masks(PIX_HDC, uint32_t&, uint32_t&, uint32_t&) { return false; }
bool window_rect(PIX_HWND, Rect&) { return false; }
bool client_to_screen(PIX_HWND, int32_t&, int32_t&) { return false; }
int32_t set_dib_to_device(PIX_HDC, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, uint32_t, uint32_t,
                          const void*, const void*) {
  return 0;
}
int32_t stretch_dib(PIX_HDC, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, const void*,
                    const void*) {
  return 0;
}
PIX_HDC create_compatible_dc(PIX_HDC) { return nullptr; }
Object create_compatible_bitmap(PIX_HDC, int32_t, int32_t) { return nullptr; }
Object select_object(PIX_HDC, Object) { return nullptr; }
int32_t set_bitmap_bits(Object, uint32_t, const void*) { return 0; }
bool bit_blt(PIX_HDC, int32_t, int32_t, int32_t, int32_t, PIX_HDC, int32_t, int32_t) { return false; }
bool stretch_blt(PIX_HDC, int32_t, int32_t, int32_t, int32_t, PIX_HDC, int32_t, int32_t, int32_t, int32_t) {
  return false;
}
void delete_object(Object) {}
void delete_dc(PIX_HDC) {}
bool direct_create(PIX_HWND, DirectObjects&, std::string&) { return true; }
void direct_release(DirectObjects& objects) { objects = {}; }
uint32_t direct_caps(const DirectObjects&) { return 0; }
bool direct_restore(DirectObjects&, std::string& message) {
  message = "No window system in this build of the library";
  return false;
}
bool direct_clip(DirectObjects&, Rect&, std::string& message) {
  message = "No window system in this build of the library";
  return false;
}
bool direct_origin(const DirectObjects&, PIX_HWND, int32_t&, int32_t&) { return false; }
bool direct_lock(DirectObjects&, const Rect&, uint8_t*&, int32_t&, std::string& message) {
  message = "No window system in this build of the library";
  return false;
}
bool direct_unlock(DirectObjects&, const Rect&, std::string&) { return true; }

}  // namespace pix::display::backend
