// The buffer reader and the decoder together, as a player of captured
// frames would run them: any bytes read as a JFIF stream, then decoded in
// strips of 16 lines (grey streams to Y8, colour to YUV 4:2:2), then the
// finishing call.
#include <vector>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  std::vector<uint8_t> stream(data, data + size);
  const uint32_t jpeg = PIX_JPEG_image_create();
  const uint32_t out = PIX_image_create();
  uint32_t r = PIX_JPEG_buffer_read(jpeg, stream.data(), static_cast<int32_t>(stream.size()));
  if (!PIX_IS_ERROR(r) && pixfuzz::picture_bytes(jpeg) <= pixfuzz::kMaxPictureBytes) {
    PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, PIX_YUV422);
    for (uint32_t calls = 0; calls < 4096; ++calls) {
      PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, 16);
      r = PIX_JPEG_decompress(jpeg, out, PIX_STRIP_NEXT);
      // A run ends by itself on its last strip; after that a call starts afresh.
      if (PIX_IS_ERROR(r) || PIX_image_get_parameter(jpeg, PIX_LINES_THIS_STRIP) < 16) break;
    }
  }
  PIX_JPEG_decompress(jpeg, out, PIX_STRIP_FINISH);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
