// Conversion tables: their library-wide home and their release.
#include "conversion_tables.h"

#include "core/status.h"

using namespace pix;
using convert::conversion_tables;

namespace pix::convert {
ConversionTables& conversion_tables() noexcept {
  static ConversionTables tables;
  return tables;
}
}  // namespace pix::convert

namespace {
uint32_t destroy_table(uint16_t type) {
  auto& table = conversion_tables().of_type(type);
  table.bytes.reset();
  table.size = 0;
  return 0;
}
}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_destroy_RGB16_to_paletted_LUT(void) { return destroy_table(PIX_LUT_RGB16_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_Y8_to_paletted_LUT(void) { return destroy_table(PIX_LUT_Y8_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_Y16_to_paletted_LUT(void) { return destroy_table(PIX_LUT_Y16_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB16_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_RGB16); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB15_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_RGB15); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_paletted_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_PALETTED); }

PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_destroy(uint16_t type) {
  if (type < PIX_LUT_RGB16_TO_PALETTED || type > PIX_LUT_YUV422_TO_PALETTED) {
    return report("PIX_image_conv_LUT_destroy", code::unsupported,
                  "LUT function not available for this image pixel format");
  }
  return destroy_table(type);
}

}  // extern "C"
