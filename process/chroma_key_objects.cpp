// Chroma-key objects: creation, parameters and destruction.
#include <new>

#include "chroma_key.h"
#include "core/status.h"

using namespace pix;
using namespace pix::process;

namespace pix::process {

ChromaKeyTable& chroma_keys() noexcept {
  static ChromaKeyTable table;
  return table;
}

ChromaKey* find_chroma_key(uint32_t handle) noexcept {
  if (handle == 0 || handle >= ChromaKeyTable::kSlots) return nullptr;
  return chroma_keys().slots[handle].get();
}

}  // namespace pix::process

namespace {
uint16_t* parameter(ChromaKey& ck, uint16_t id) {
  switch (id) {
    case PIX_CK_HUE_CENTRE: return &ck.hue_centre;
    case PIX_CK_HUE_HALF_WIDTH: return &ck.hue_half_width;
    case PIX_CK_LUMA_CENTRE: return &ck.luma_centre;
    case PIX_CK_LUMA_HALF_WIDTH: return &ck.luma_half_width;
    default: return nullptr;
  }
}
}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_CK_create(void) {
  auto& slots = chroma_keys().slots;
  for (uint32_t h = 1; h <= ChromaKeyTable::kLastHandle; ++h) {
    if (slots[h] != nullptr) continue;
    try {
      slots[h] = std::make_unique<ChromaKey>();
    } catch (const std::bad_alloc&) {
      return report("PIX_CK_create", code::out_of_memory);
    }
    return h;
  }
  return report("PIX_CK_create", code::max_handles);
}

PIX_API uint32_t PIX_CALL PIX_CK_destroy(uint32_t handle) {
  auto& slots = chroma_keys().slots;
  if (handle == PIX_ALL_IMAGES) {
    for (uint32_t h = 1; h < ChromaKeyTable::kSlots; ++h) slots[h].reset();
  } else if (handle < ChromaKeyTable::kSlots) {
    slots[handle].reset();
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_CK_set_parameter(uint32_t handle, uint16_t id, uint16_t value) {
  ChromaKey* ck = find_chroma_key(handle);
  if (ck == nullptr) return report("PIX_CK_set_parameter", code::bad_handle);
  uint16_t* field = parameter(*ck, id);
  if (field == nullptr) return report("PIX_CK_set_parameter", code::unrecognised, "Unknown parameter");
  *field = value;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_CK_get_parameter(uint32_t handle, uint16_t id) {
  ChromaKey* ck = find_chroma_key(handle);
  if (ck == nullptr) return report("PIX_CK_get_parameter", code::bad_handle);
  const uint16_t* field = parameter(*ck, id);
  if (field == nullptr) return report("PIX_CK_get_parameter", code::unrecognised, "Unknown parameter");
  return *field;
}

}  // extern "C"
