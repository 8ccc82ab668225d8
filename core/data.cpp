// Image data: strip buffers, copying and moving images.
#include <cstring>

#include "image.h"
#include "memory.h"
#include "status.h"

using namespace pix;

namespace {

uint32_t copy_1_strip(uint32_t from, uint32_t to) {
  static constexpr const char* kName = "PIX_image_copy_1_strip";
  const Image* src = find_image(from);
  PIX_image_free_data(to);
  if (uint32_t r = PIX_image_malloc_a_strip(to); is_error(r)) return r;
  Image* dst = find_image(to);
  const uint64_t bytes = strip_bytes(*src);
  if (bytes == 0) return 0;
  if (src->data == nullptr) return report(kName, code::bad_image, "No image data");
  // The whole strip, padding included.  The original copied in 4-, 2- or
  // 1-byte units by the line length; the bytes are the same.  The copy never
  // runs past the destination's own strip.
  const uint64_t room = strip_bytes(*dst);
  std::memcpy(dst->data, src->data, static_cast<std::size_t>(bytes < room ? bytes : room));
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_image_malloc_a_strip(uint32_t handle) {
  static constexpr const char* kName = "PIX_image_malloc_a_strip";
  Image* img = find_image(handle);
  if (img != nullptr && (img->flags & PIX_FLAG_LOCKED) != 0 && img->data != nullptr) return 0;  // the caller's buffer
  if (uint32_t r = check_reported(handle, kName); is_error(r)) return r;
  const uint64_t size = strip_bytes(*img);
  // A size beyond 32 bits is refused rather than wrapped to a small block.
  void* block = size <= 0xFFFFFFFFull ? memory::allocate(static_cast<std::size_t>(size)) : nullptr;
  if (block == nullptr) return report(kName, with_detail(code::out_of_memory, size));
  img->data = static_cast<uint8_t*>(block);
  return 0;
}

PIX_API uint8_t* PIX_CALL PIX_malloc_N_lines(uint32_t handle, uint16_t lines) {
  const Image* img = find_image(handle);
  if (img == nullptr) return nullptr;
  return static_cast<uint8_t*>(memory::allocate(static_cast<std::size_t>(lines_bytes(*img, lines))));
}

PIX_API uint32_t PIX_CALL PIX_image_free_data(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_free_data", code::bad_handle);
  if ((img->flags & PIX_FLAG_LOCKED) == 0 && img->data != nullptr) {
    memory::release(img->data);
    img->data = nullptr;
  }
  if (img->jpeg != nullptr) PIX_JPEG_free_data(handle);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_copy_parameters(uint32_t from, uint32_t to) {
  static constexpr const char* kName = "PIX_image_copy_parameters";
  const Image* src = find_image(from);
  if (src == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  Image* dst = find_image(to);
  if (dst == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  if (src == dst) return 0;
  dst->format = src->format;
  dst->data_width = src->data_width;
  copy_name(dst->name, src->name);
  copy_name(dst->in_filename, src->in_filename);
  copy_name(dst->out_filename, src->out_filename);
  dst->width = src->width;
  dst->height = src->height;
  dst->depth = src->depth;
  dst->line_align = src->line_align;
  dst->out_line_align = src->out_line_align;
  dst->skip_bytes = src->skip_bytes;
  dst->num_frames = src->num_frames;
  dst->start_frame = src->start_frame;
  dst->flags = src->flags;  // all bits, the locked and JPEG flags included
  dst->cmap_size = src->cmap_size;
  if (uint32_t r = PIX_cmap_copy(from, to); is_error(r)) return r;
  dst->field_order = src->field_order;
  dst->lines_this_strip = src->lines_this_strip;
  dst->bytes_per_line = src->bytes_per_line;
  if (src->jpeg != nullptr && dst->jpeg != nullptr) {
    if (uint32_t r = PIX_JPEG_copy_parameters(from, to); is_error(r)) return r;
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_copy(uint32_t from, uint32_t to) {
  static constexpr const char* kName = "PIX_image_copy";
  if (uint32_t r = check_reported(from, kName); is_error(r)) return r;
  const Image* src = find_image(from);
  if (src->lines_this_strip == 0) {
    const uint32_t r = PIX_image_copy_parameters(from, to);
    return is_error(r) ? r : 0;
  }
  if (uint32_t r = PIX_image_copy_parameters(from, to); is_error(r)) return r;
  if (uint32_t r = check_reported(to, kName); is_error(r)) return r;
  const Image* dst = find_image(to);
  if ((src->flags & PIX_FLAG_JPEG) != 0 && dst->jpeg != nullptr) return PIX_JPEG_build_image(from, to, 3);
  if (src == dst) return 0;
  return copy_1_strip(from, to);
}

PIX_API uint32_t PIX_CALL PIX_image_move(uint32_t from, uint32_t to) {
  static constexpr const char* kName = "PIX_image_move";
  Image* src = find_image(from);
  if (src == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  Image* dst = find_image(to);
  if (dst == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  if ((src->flags & PIX_FLAG_LOCKED) != 0) {
    return report(kName, code::unsupported, "locked memory can't be moved (in source image)");
  }
  if ((dst->flags & PIX_FLAG_LOCKED) != 0) {
    return report(kName, code::unsupported, "Can't free locked memory (in destination image)");
  }
  if (src == dst) return 0;
  PIX_image_free_data(to);
  if (uint32_t r = PIX_image_copy_parameters(from, to); is_error(r)) return r;
  if ((src->flags & PIX_FLAG_JPEG) != 0 && dst->jpeg != nullptr && src->jpeg != nullptr) {
    dst->jpeg->data = src->jpeg->data;
    dst->jpeg->position = src->jpeg->position;
    src->jpeg->data = nullptr;
    src->jpeg->position = nullptr;
    return 0;
  }
  dst->data = src->data;
  dst->data_aux = src->data_aux;
  src->data = nullptr;
  src->data_aux = 0;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_calc_total_strips(uint32_t handle) {
  const Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_calc_total_strips", code::bad_handle);
  if (img->lines_this_strip == 0) return 0;
  uint32_t strips = img->height / img->lines_this_strip;
  if (img->height % img->lines_this_strip != 0) ++strips;
  return strips & 0xFFFFu;
}

}  // extern "C"
