// A small library-wide table of objects named by handles: lookup, lowest-free
// creation and destruction, one at a time or all at once.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <new>

#include "status.h"

namespace pix {

template <class T, uint32_t Slots>
struct HandleTable {
  static constexpr uint32_t kSlots = Slots;
  std::array<std::unique_ptr<T>, Slots> slots;  // slot 0 is never used

  T* find(uint32_t handle) const noexcept {
    return handle != 0 && handle < Slots ? slots[handle].get() : nullptr;
  }

  // The lowest empty slot from 1 to `last`, or 0 when all are taken.
  uint32_t free_handle(uint32_t last) const noexcept {
    for (uint32_t h = 1; h <= last && h < Slots; ++h) {
      if (slots[h] == nullptr) return h;
    }
    return 0;
  }

  // Puts a fresh object in `handle` and returns the handle, or reports
  // 0x10500000 under `function` when memory runs out.
  uint32_t emplace(uint32_t handle, const char* function) {
    try {
      slots[handle] = std::make_unique<T>();
    } catch (const std::bad_alloc&) {
      return report(function, code::out_of_memory);
    }
    return handle;
  }

  // The lowest free handle up to `last` with a fresh object, or the reported
  // 0x10780000 when every handle is taken.
  uint32_t create(uint32_t last, const char* function) {
    const uint32_t handle = free_handle(last);
    return handle == 0 ? report(function, code::max_handles) : emplace(handle, function);
  }

  // One object, or every slot for PIX_ALL_IMAGES; a handle naming nothing is ignored.
  void destroy(uint32_t handle) noexcept {
    if (handle == PIX_ALL_IMAGES) {
      for (auto& slot : slots) slot.reset();
    } else if (handle < Slots) {
      slots[handle].reset();
    }
  }
};

}  // namespace pix
