// The sequence functions on any bytes: an open file counted and positioned
// frame by frame, then the same stream read into memory, every frame cut
// out, and frame counts that disagree with the markers.
#include <vector>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const uint32_t opened = PIX_JPEG_image_create();
  PIX_image_set_infilename(opened, pixfuzz::write_input(data, size, ".mjpg"));
  if (PIX_JPEG_file_open(opened) == 0 && PIX_JPEG_get_file_ptr(opened) != nullptr) {
    PIX_JPEG_sequence_calc_length(opened);
    const uint32_t frames = PIX_image_get_parameter(opened, PIX_NUM_FRAMES);
    for (uint32_t f = frames; f >= 1 && f + 4 > frames; --f) PIX_JPEG_sequence_set_start_frame(opened, int32_t(f));
    PIX_JPEG_file_close(opened);
  }

  const uint32_t sequence = PIX_JPEG_image_create(), frame = PIX_JPEG_image_create();
  std::vector<uint8_t> bytes(data, data + size);
  if (!PIX_IS_ERROR(PIX_JPEG_buffer_read(sequence, bytes.data(), static_cast<int32_t>(bytes.size())))) {
    const uint32_t frames = PIX_image_get_parameter(sequence, PIX_NUM_FRAMES);
    for (uint32_t f = 0; f <= frames + 1 && f < 64; ++f) PIX_JPEG_sequence_extract_frame(sequence, frame, f);
    // A count the markers do not bear out, either way.
    const uint8_t twist = size > 0 ? data[size - 1] : 0;
    PIX_image_set_parameter(sequence, PIX_NUM_FRAMES, twist & 0x80 ? frames + (twist & 7) : twist & 3);
    for (uint32_t f = 0; f <= 8; ++f) PIX_JPEG_sequence_extract_frame(sequence, frame, f);
    PIX_JPEG_sequence_set_start_frame(sequence, -1);
  }
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
