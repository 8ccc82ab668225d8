// Display objects: creation and destruction.
#include <new>

#include "core/status.h"
#include "display.h"

using namespace pix;
using namespace pix::display;

namespace pix::display {

DisplayTable& displays() noexcept {
  static DisplayTable table;
  return table;
}

Display* find_display(uint32_t handle) noexcept {
  if (handle == 0 || handle >= DisplayTable::kSlots) return nullptr;
  return displays().slots[handle].get();
}

}  // namespace pix::display

extern "C" {

PIX_API uint32_t PIX_CALL PIX_display_create(void) {
  auto& slots = displays().slots;
  for (uint32_t h = 1; h <= DisplayTable::kLastHandle; ++h) {
    if (slots[h] != nullptr) continue;
    try {
      slots[h] = std::make_unique<Display>();
    } catch (const std::bad_alloc&) {
      return report("PIX_display_create", code::out_of_memory);
    }
    return h;
  }
  return report("PIX_display_create", code::max_handles);
}

PIX_API uint32_t PIX_CALL PIX_display_destroy(uint32_t handle) {
  auto& slots = displays().slots;
  if (handle == PIX_ALL_IMAGES) {
    for (uint32_t h = 1; h < DisplayTable::kSlots; ++h) slots[h].reset();
  } else if (handle < DisplayTable::kSlots) {
    slots[handle].reset();
  }
  return 0;
}

}  // extern "C"
