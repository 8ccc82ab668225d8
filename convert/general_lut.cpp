// General lookup tables: creation, table access and destruction.
#include "general_lut.h"

#include <new>

#include "core/status.h"

using namespace pix;
using namespace pix::convert;

namespace pix::convert {

GeneralLutTable& general_luts() noexcept {
  static GeneralLutTable table;
  return table;
}

}  // namespace pix::convert

namespace {
// Channel codes as applications pass them: 8 grey, 4 red, 2 green, 1 blue.
int channel_index(uint16_t channel) {
  switch (channel) {
    case PIX_LUT_GREY: return 0;
    case PIX_LUT_RED: return 1;
    case PIX_LUT_GREEN: return 2;
    case PIX_LUT_BLUE: return 3;
    default: return -1;
  }
}
}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_LUT_create(uint32_t entries, uint16_t element_size) {
  static constexpr const char* kName = "PIX_LUT_create";
  auto& table = general_luts();
  const uint32_t handle = table.free_handle(GeneralLutTable::kSlots - 1);
  if (handle == 0) return report(kName, code::max_handles);
  if (element_size == 1 && entries > 256) return report(kName, code::bad_parameter | 1, "too many LUT elements");
  if (element_size == 2 && entries > 65536) return report(kName, code::bad_parameter | 2, "too many LUT elements");
  if (element_size != 1 && element_size != 2) {
    return report(kName, code::bad_parameter | 3, "element size must be 1 or 2 bytes");
  }
  try {
    auto lut = std::make_unique<GeneralLut>();
    lut->entries = entries;
    lut->element_size = element_size;
    for (int c = 0; c < 4; ++c) {
      if (element_size == 1) {
        auto& t = lut->tables8[c];
        t.resize(entries);
        for (uint32_t i = 0; i < entries; ++i) t[i] = static_cast<uint8_t>(i);
      } else {
        auto& t = lut->tables16[c];
        t.resize(entries);
        for (uint32_t i = 0; i < entries; ++i) t[i] = static_cast<uint16_t>(i);
      }
    }
    table.slots[handle] = std::move(lut);
  } catch (const std::bad_alloc&) {
    return report(kName, code::out_of_memory);
  }
  return handle;
}

PIX_API void* PIX_CALL PIX_LUT_get_ptr(uint32_t lut, uint16_t channel) {
  GeneralLut* record = general_luts().find(lut);
  const int c = channel_index(channel);
  if (record == nullptr || c < 0) return nullptr;
  if (record->element_size == 1) return record->tables8[c].data();
  return record->tables16[c].data();
}

PIX_API uint32_t PIX_CALL PIX_LUT_destroy(uint32_t lut) {
  general_luts().destroy(lut);
  return 0;
}

}  // extern "C"
