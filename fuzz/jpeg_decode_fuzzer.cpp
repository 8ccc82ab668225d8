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
    // The strips of the block-padded height; the run ends by itself on the last.
    const uint32_t strips = (PIX_image_get_parameter(jpeg, PIX_IMAGE_HEIGHT) + 15) / 16;
    for (uint32_t s = 0; s < strips; ++s) {
      PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, 16);
      if (PIX_IS_ERROR(PIX_JPEG_decompress(jpeg, out, PIX_STRIP_NEXT))) break;
    }
  }
  PIX_JPEG_decompress(jpeg, out, PIX_STRIP_FINISH);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
