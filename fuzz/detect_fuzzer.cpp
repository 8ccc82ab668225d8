// Content detection on any bytes.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const uint32_t found = PIX_image_find_file_format(pixfuzz::write_input(data, size));
  if (!PIX_IS_ERROR(found) && found > PIX_FILE_BMP) __builtin_trap();  // detection names only known codes
  return 0;
}
