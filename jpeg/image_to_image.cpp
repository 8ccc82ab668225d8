// Whole pictures through the codec in one call: a raster source (an image
// in memory or a file read strip by strip) compressed into a JPEG image in
// memory or a JPEG file, and a JPEG image or file decompressed into a
// raster image in memory or a file.
#include "core/image.h"
#include "core/status.h"

using namespace pix;

namespace {

constexpr uint16_t kFromMemory = 1;  // source kinds
constexpr uint16_t kFromFile = 2;
constexpr uint16_t kToMemory = 1;    // destination kinds
constexpr uint16_t kToFile = 2;

// An image of the call's own, released at the end whatever happens: a
// locked buffer is let go of, not freed.
class OwnImage {
 public:
  explicit OwnImage(bool jpeg) : handle_(jpeg ? PIX_JPEG_image_create() : PIX_image_create()) {}
  OwnImage(const OwnImage&) = delete;
  OwnImage& operator=(const OwnImage&) = delete;
  ~OwnImage() {
    if (is_error(handle_) || kept_) return;
    PIX_image_set_flags(handle_, PIX_FLAG_LOCKED, 0);
    PIX_image_destroy(handle_);
  }
  uint32_t handle() const { return handle_; }
  bool failed() const { return is_error(handle_); }
  // Kept: a failing memory write leaves the temporary image behind.
  void keep() { kept_ = true; }

 private:
  uint32_t handle_;
  bool kept_ = false;
};

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_JPEG_compress_image_to_image(uint32_t source, uint32_t dest, uint16_t source_kind,
                                                          uint16_t dest_kind) {
  OwnImage plain(false), jpeg(true);
  if (plain.failed()) return plain.handle();
  if (jpeg.failed()) return jpeg.handle();
  if (uint32_t r = PIX_image_copy_parameters(dest, jpeg.handle()); is_error(r)) return r;
  const uint32_t coded = dest_kind == kToFile ? dest : jpeg.handle();
  const uint32_t raster = source_kind == kFromFile ? source : plain.handle();
  const uint32_t strips = PIX_image_calc_total_strips(source);
  if (is_error(strips)) return strips;
  for (uint32_t s = 0; s < strips; ++s) {
    // A picture in memory is handed over a strip at a time by the memory
    // transfer, which the read dispatcher reaches with the plain image as
    // the second handle.
    const uint32_t read = source_kind == kFromFile ? PIX_image_read(source, 0, PIX_STRIP_NEXT)
                                                   : PIX_image_read(source, plain.handle(), PIX_STRIP_NEXT);
    if (is_error(read)) return read;
    if (uint32_t r = PIX_JPEG_compress(raster, coded, PIX_STRIP_NEXT); is_error(r)) return r;
    if (s == 0) {
      // The encoder describes its output afresh on the first strip, without
      // the tables it codes with; the output is given them, so that the
      // picture it ends up with decodes and writes as a whole.
      PIX_JPEG_make_Q_tables(coded);
      PIX_JPEG_set_default_H_tables(coded);
    }
    const uint32_t r = dest_kind == kToFile ? PIX_JPEG_file_write(dest, PIX_STRIP_NEXT)
                                            : PIX_JPEG_build_image(jpeg.handle(), dest, PIX_STRIP_NEXT);
    if (is_error(r)) return r;
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_decompress_image_to_image(uint32_t source, uint32_t dest, uint16_t source_kind,
                                                            uint16_t dest_kind) {
  Image* src = find_image(source);
  if (source_kind == kFromFile && src != nullptr && src->jpeg != nullptr && src->jpeg->file == nullptr) {
    if (uint32_t r = PIX_JPEG_file_read(source); is_error(r)) return r;
    PIX_image_set_parameter(source, PIX_LINES_THIS_STRIP, 8);
  }
  OwnImage temp(false);
  if (temp.failed()) return temp.handle();
  const Image* out = find_image(dest);
  const uint16_t format = out != nullptr && out->format == PIX_YUV422 ? PIX_YUV422 : PIX_RGB24;
  if (uint32_t r = PIX_image_copy_parameters(source, dest); is_error(r)) return r;
  PIX_image_set_flags(dest, PIX_FLAG_LOCKED, 0);
  PIX_image_set_parameter(temp.handle(), PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(dest, PIX_IMAGE_FORMAT, format);
  const uint32_t strips = PIX_image_calc_total_strips(source);
  if (is_error(strips)) return strips;
  for (uint32_t s = 0; s < strips; ++s) {
    if (dest_kind == kToMemory) {
      if (uint32_t r = PIX_JPEG_decompress(source, temp.handle(), PIX_STRIP_NEXT); is_error(r)) return r;
      if (uint32_t r = PIX_write_to_memory(temp.handle(), dest, PIX_STRIP_NEXT); is_error(r)) {
        temp.keep();
        return r;
      }
    } else {
      if (uint32_t r = PIX_JPEG_decompress(source, dest, PIX_STRIP_NEXT); is_error(r)) return r;
      if (uint32_t r = PIX_image_write(dest, 0, dest_kind, PIX_STRIP_NEXT); is_error(r)) return r;
    }
  }
  return 0;
}

}  // extern "C"
