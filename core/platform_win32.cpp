// Windows: the stock error handler shows a message box.
#include <windows.h>

#include "platform.h"

namespace pix::platform {

uint32_t show_error_text(const char* text) {
  return static_cast<uint32_t>(MessageBoxA(nullptr, text, "ERROR MESSAGE", MB_OK));
}

}  // namespace pix::platform
