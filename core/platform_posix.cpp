// Systems without a message box: the stock error handler writes its text to
// the standard error stream.
#include <cstdio>

#include "platform.h"

namespace pix::platform {

uint32_t show_error_text(const char* text) {
  std::fputs(text, stderr);
  std::fflush(stderr);
  return 1;  // as if OK had been pressed
}

}  // namespace pix::platform
