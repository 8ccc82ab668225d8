// Conversion-table files of every type; the first byte picks the type.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  if (size == 0) return 0;
  const uint16_t type = static_cast<uint16_t>(200 + data[0] % 6);
  const char* path = pixfuzz::write_input(data + 1, size - 1);
  const uint32_t image = PIX_image_create();
  PIX_image_set_parameter(image, PIX_IMAGE_FORMAT, PIX_Y16);
  PIX_image_set_parameter(image, PIX_DATA_WIDTH, 1 + data[0] % 16);
  PIX_image_conv_LUT_load(image, type, path);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
