// The read dispatcher: detection, then a whole-image request (header, then
// every line in one strip) for whatever format the bytes look like.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const char* path = pixfuzz::write_input(data, size);
  const uint32_t image = PIX_JPEG_image_create();  // JPEG files are read into JPEG images; the others take any
  PIX_image_set_infilename(image, path);
  // The header alone, to keep hostile sizes within the fuzzer's memory.
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 0);
  const uint32_t r = PIX_image_read(image, 0, PIX_STRIP_NEXT);
  const bool small = !PIX_IS_ERROR(r) && pixfuzz::picture_bytes(image) <= pixfuzz::kMaxPictureBytes;
  PIX_image_read(image, 0, PIX_STRIP_FINISH);
  PIX_image_read(image, 0, 0);  // back to idle whatever happened
  if (small) {
    PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, 32767);
    PIX_image_read(image, 0, PIX_STRIP_NEXT);
    PIX_image_read(image, 0, PIX_STRIP_FINISH);
    PIX_image_read(image, 0, 0);
  }
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
