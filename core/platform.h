// The few calls into the operating system made by the core.
#pragma once

#include <cstdint>

namespace pix::platform {

// Shows the stock handler's text to the user and returns what the user chose
// (the message box result on Windows, IDOK (1) elsewhere).
uint32_t show_error_text(const char* text);

}  // namespace pix::platform
