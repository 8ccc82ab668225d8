// Chroma-key objects: creation, parameters and destruction.
#include "chroma_key.h"
#include "core/status.h"

using namespace pix;
using namespace pix::process;

namespace pix::process {

ChromaKeyTable& chroma_keys() noexcept {
  static ChromaKeyTable table;
  return table;
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
  return chroma_keys().create(kLastChromaKey, "PIX_CK_create");
}

PIX_API uint32_t PIX_CALL PIX_CK_destroy(uint32_t handle) {
  chroma_keys().destroy(handle);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_CK_set_parameter(uint32_t handle, uint16_t id, uint16_t value) {
  ChromaKey* ck = chroma_keys().find(handle);
  if (ck == nullptr) return report("PIX_CK_set_parameter", code::bad_handle);
  uint16_t* field = parameter(*ck, id);
  if (field == nullptr) return report("PIX_CK_set_parameter", code::unrecognised, "Unknown parameter");
  *field = value;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_CK_get_parameter(uint32_t handle, uint16_t id) {
  ChromaKey* ck = chroma_keys().find(handle);
  if (ck == nullptr) return report("PIX_CK_get_parameter", code::bad_handle);
  const uint16_t* field = parameter(*ck, id);
  if (field == nullptr) return report("PIX_CK_get_parameter", code::unrecognised, "Unknown parameter");
  return *field;
}

}  // extern "C"
