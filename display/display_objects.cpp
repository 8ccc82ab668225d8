// Display objects: creation and destruction.
#include "core/status.h"
#include "display.h"

using namespace pix;
using namespace pix::display;

namespace pix::display {

DisplayTable& displays() noexcept {
  static DisplayTable table;
  return table;
}

}  // namespace pix::display

extern "C" {

PIX_API uint32_t PIX_CALL PIX_display_create(void) {
  return displays().create(kLastDisplay, "PIX_display_create");
}

PIX_API uint32_t PIX_CALL PIX_display_destroy(uint32_t handle) {
  displays().destroy(handle);
  return 0;
}

}  // extern "C"
