#include "stage.h"

namespace pix::stage {

Image* checked_input(uint32_t handle, const char* function, uint32_t& result) {
  result = check_reported(handle, function);
  return is_error(result) ? nullptr : find_image(handle);
}

namespace {
void take_line_align(uint32_t in, uint32_t out) {
  const Image* src = find_image(in);
  Image* dst = find_image(out);
  if (src != nullptr && dst != nullptr && src->out_line_align != 0) dst->line_align = src->out_line_align;
}
}  // namespace

uint32_t describe_output(uint32_t in, uint32_t out, uint16_t format, bool take_out_line_align) {
  // The flags come along, but not the lock: whether the output's buffer is
  // the caller's is the output's own affair.  A lock taken from a locked
  // source would make the library's own strip pass for the caller's (never
  // freed, never grown when a later strip needs more), and a caller's
  // locked frame buffer would lose its lock and be freed.
  const Image* before = find_image(out);
  const uint32_t lock = before != nullptr ? before->flags & PIX_FLAG_LOCKED : 0;
  if (uint32_t r = PIX_image_copy_parameters(in, out); is_error(r)) return r;
  if (Image* o = find_image(out); o != nullptr) o->flags = (o->flags & ~PIX_FLAG_LOCKED) | lock;
  if (format != 0) {
    if (uint32_t r = PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, format); is_error(r)) return r;
  }
  if (take_out_line_align) take_line_align(in, out);
  return 0;
}

uint32_t set_up_output(uint32_t in, uint32_t out, uint16_t format, const char* function,
                       bool take_out_line_align) {
  if (uint32_t r = describe_output(in, out, format, take_out_line_align); is_error(r)) return r;
  return check_reported(out, function);
}

uint32_t begin_worker(const Image& in, uint32_t out, const char* worker) {
  if (in.data == nullptr) return report(worker, code::bad_image, "No image data");
  // The output's strip is replaced before the input is read: one image
  // cannot be both.
  if (find_image(out) == &in) {
    return report(worker, code::param_conflict, "Input and output must be different images");
  }
  PIX_image_free_data(out);
  return PIX_image_malloc_a_strip(out);
}

}  // namespace pix::stage
