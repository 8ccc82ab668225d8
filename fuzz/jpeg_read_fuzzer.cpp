// The JPEG readers on any bytes: the file reader (PIX95_FUZZ_JPEG_FILE) or
// the buffer reader over the same parse; the stream is then written back
// through both writers, whose segments come from what was read.
#include <vector>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const uint32_t image = PIX_JPEG_image_create();
#ifdef PIX95_FUZZ_JPEG_FILE
  PIX_image_set_infilename(image, pixfuzz::write_input(data, size, ".jpg"));
  const uint32_t r = PIX_JPEG_file_read(image);
#else
  std::vector<uint8_t> bytes(data, data + size);  // exactly the input: a read beyond it is a finding
  const uint32_t r = PIX_JPEG_buffer_read(image, bytes.data(), static_cast<int32_t>(bytes.size()));
#endif
  if (!PIX_IS_ERROR(r)) {
    // Two runs at most (a height of 0 ends the first at once): each is the
    // data and at most 65 bytes a quantisation table and 32 KB of other segments.
    auto* record = static_cast<Tjpeg*>(PIX_image_get_ptr(image, PIX_PTR_TJPEG));
    std::vector<uint8_t> out(2 * (size + 65 * std::size_t{record->Nq} + 32768));
    uint32_t written = 0;
    PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 0);  // the strips never reach the height: mode 4 ends the run
    PIX_JPEG_buffer_write(image, out.data(), &written, 3);
    PIX_JPEG_buffer_write(image, out.data() + written, &written, 4);
    PIX_image_set_outfilename(image, pixfuzz::scratch(".out").c_str());
    PIX_JPEG_file_write(image, 5);
    PIX_JPEG_file_write(image, 4);
  }
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
