// One file reader on any bytes: the header alone first, then the picture in
// strips of 16 lines, then the finishing call that closes the file.
#include "fuzz_support.h"

#ifndef PIX95_FUZZ_READER
#error "PIX95_FUZZ_READER names the reader under test"
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const char* path = pixfuzz::write_input(data, size);
  const uint32_t image = PIX_image_create();
  PIX_image_set_infilename(image, path);
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 0);
  uint32_t r = PIX95_FUZZ_READER(image, PIX_STRIP_NEXT);
  if (!PIX_IS_ERROR(r) && pixfuzz::picture_bytes(image) <= pixfuzz::kMaxPictureBytes) {
    const uint32_t height = PIX_image_get_parameter(image, PIX_IMAGE_HEIGHT);
    for (uint32_t done = 0, calls = 0; done < height && calls < 4096; done += 16, ++calls) {
      PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 16);
      r = PIX95_FUZZ_READER(image, PIX_STRIP_NEXT);
      if (PIX_IS_ERROR(r)) break;
    }
  }
  PIX95_FUZZ_READER(image, PIX_STRIP_FINISH);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
