// The JPEG state record of an image: creation, buffers, parameters and the
// assembly of a compressed image from compressed strips.
#include <cstdio>
#include <cstring>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "jpeg_state.h"

using namespace pix;
using namespace pix::jpeg;

namespace pix::jpeg {

JpegState& jpeg_state() noexcept {
  static JpegState state;
  return state;
}

RecordExtras* extras_of(const Tjpeg& record) noexcept {
  auto& extras = jpeg_state().extras;
  const auto it = extras.find(&record);
  return it != extras.end() ? &it->second : nullptr;
}

std::size_t capacity_of(const Tjpeg& record) noexcept {
  const RecordExtras* e = extras_of(record);
  return e != nullptr && e->buffer.data == record.data ? e->buffer.capacity : 0;
}

bool attach_new_buffer(Tjpeg& record, std::size_t bytes) {
  auto* data = static_cast<uint8_t*>(memory::allocate(bytes));
  if (data == nullptr) return false;
  RecordExtras* e = nullptr;
  try {
    e = &jpeg_state().extras[&record];  // may throw: before anything changes
  } catch (...) {
    memory::release(data);
    return false;
  }
  if (record.data != nullptr) {
    const std::size_t old_capacity = capacity_of(record);
    const bool inside = record.position >= record.data &&
                        (old_capacity == 0 || record.position <= record.data + old_capacity);
    if (record.position != nullptr && inside) record.position = data;
    release_data(record);
  }
  record.data = data;
  e->buffer = {data, bytes};
  return true;
}

void release_data(Tjpeg& record) noexcept {
  memory::release(record.data);
  record.data = nullptr;
  if (RecordExtras* e = extras_of(record)) e->buffer = {};
}

void release_extras(const Tjpeg& record) noexcept { jpeg_state().extras.erase(&record); }

bool ensure_capacity(Tjpeg& record, std::size_t bytes) {
  const std::size_t capacity = capacity_of(record);
  if (capacity == 0 || capacity >= bytes) return true;  // a caller's buffer, or room enough
  const std::ptrdiff_t position = record.position != nullptr ? record.position - record.data : -1;
  auto* grown = static_cast<uint8_t*>(memory::reallocate(record.data, bytes));
  if (grown == nullptr) return false;
  record.data = grown;
  if (position >= 0) record.position = grown + position;
  extras_of(record)->buffer = {grown, bytes};  // capacity_of found the extras
  return true;
}

}  // namespace pix::jpeg

namespace {

constexpr uint32_t kMinimumBuffer = 4096;
constexpr uint32_t kRaisedBuffer = 4200;

// Looks up an image that must carry a JPEG record; reports under `function`.
Tjpeg* record_of(uint32_t handle, const char* function, uint32_t& result, const char* no_image = "") {
  Image* img = find_image(handle);
  if (img == nullptr) {
    result = report(function, code::bad_handle, no_image);
    return nullptr;
  }
  if (img->jpeg == nullptr) {
    result = report(function, code::bad_handle, "Not a JPEG image");
    return nullptr;
  }
  result = 0;
  return img->jpeg;
}

// Gives the record a fresh buffer of `size` bytes; a buffer already there
// is released first (the callers keep a locked image's buffer before this).
uint32_t attach_buffer(Image& img, uint64_t size, const char* function) {
  if (size > 0xFFFFFFFFull || !attach_new_buffer(*img.jpeg, static_cast<std::size_t>(size))) {
    return report(function, with_detail(code::out_of_memory, size));
  }
  return 0;
}

uint32_t common_malloc_checks(uint32_t handle, const char* function, Image*& img) {
  if (uint32_t r = check_reported(handle, function); is_error(r)) return r;
  img = find_image(handle);
  if (img->jpeg == nullptr) return report(function, code::bad_handle, "Not a JPEG image");
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_JPEG_image_create(void) {
  const uint32_t handle = PIX_image_create();
  if (is_error(handle)) return handle;
  auto* record = static_cast<Tjpeg*>(memory::allocate(sizeof(Tjpeg)));
  // Kept: the plain image just created stays when the record can't be made.
  if (record == nullptr) return report("PIX_JPEG_image_create", code::out_of_memory);
  *record = Tjpeg{};
  record->Q_scale = 32;
  find_image(handle)->jpeg = record;
  return handle;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_set_image(uint32_t source, uint32_t jpeg) {
  static constexpr const char* kName = "PIX_JPEG_set_image";
  const Image* src = find_image(source);
  if (src == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  uint32_t result = 0;
  Tjpeg* record = record_of(jpeg, kName, result, "Output image does not exist");
  if (record == nullptr) return result;
  Image& img = *find_image(jpeg);
  record->Nq = 0;
  img.width = src->width;
  img.height = src->height;
  img.depth = src->depth;
  img.lines_this_strip = src->lines_this_strip;
  img.num_frames = 1;
  img.flags |= PIX_FLAG_JPEG;
  record->P = 8;
  if (PIX_image_is_colour(source) == 1) {
    PIX_image_set_parameter(jpeg, PIX_IMAGE_FORMAT, PIX_YUV422);
    record->Ns = 3;
    record->Lf = 17;
    record->Ls = 12;
    record->H[0] = 2, record->H[1] = 1, record->H[2] = 1;
    record->V[0] = 1, record->V[1] = 1, record->V[2] = 1;
  } else {
    PIX_image_set_parameter(jpeg, PIX_IMAGE_FORMAT, PIX_Y8);
    record->Ns = 1;
    record->Lf = 11;
    record->Ls = 8;
    record->H[0] = 1, record->H[1] = 0, record->H[2] = 0;
    record->V[0] = 1, record->V[1] = 0, record->V[2] = 0;
  }
  record->Ss = 0;
  record->Se = 63;
  record->AhAl = 0;
  return check_reported(jpeg, kName, "Corrupt image - probably an internal error");
}

PIX_API uint32_t PIX_CALL PIX_JPEG_malloc_data(uint32_t handle) {
  static constexpr const char* kName = "PIX_JPEG_malloc_data";
  Image* img = nullptr;
  if (uint32_t r = common_malloc_checks(handle, kName, img); is_error(r)) return r;
  Tjpeg& record = *img->jpeg;
  if ((img->flags & PIX_FLAG_LOCKED) != 0 && record.data != nullptr) return 0;
  uint64_t size = 0;
  if (record.file != nullptr) {
    // The whole file, rounded up to an even count.
    const long here = std::ftell(record.file);
    std::fseek(record.file, 0, SEEK_END);
    const long end = std::ftell(record.file);
    std::fseek(record.file, here, SEEK_SET);
    size = end > 0 ? static_cast<uint64_t>(end) : 0;
    size += size & 1;
  } else {
    size = static_cast<uint64_t>(img->lines_this_strip) * img->bytes_per_line + 10000;
  }
  if (size < kMinimumBuffer) size = kRaisedBuffer;
  return attach_buffer(*img, size, kName);
}

PIX_API uint32_t PIX_CALL PIX_JPEG_malloc_N_bytes_data(uint32_t handle, uint32_t bytes) {
  static constexpr const char* kName = "PIX_JPEG_malloc_N_bytes_data";
  Image* img = nullptr;
  if (uint32_t r = common_malloc_checks(handle, kName, img); is_error(r)) return r;
  if ((img->flags & PIX_FLAG_LOCKED) != 0 && img->jpeg->data != nullptr) return 0;
  return attach_buffer(*img, bytes, kName);
}

PIX_API uint32_t PIX_CALL PIX_JPEG_free_data(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_JPEG_free_data", code::bad_handle);
  if (img->jpeg == nullptr || (img->flags & PIX_FLAG_LOCKED) != 0) return 0;
  Tjpeg& record = *img->jpeg;
  release_data(record);
  record.position = nullptr;
  record.length = 0;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_destroy_Tjpeg(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr || img->jpeg == nullptr) return 0;
  if (img->jpeg->data != nullptr) PIX_JPEG_free_data(handle);
  release_extras(*img->jpeg);
  memory::release(img->jpeg);
  img->jpeg = nullptr;  // never leave the image pointing at a freed record
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_copy_parameters(uint32_t source, uint32_t dest) {
  static constexpr const char* kName = "PIX_JPEG_copy_parameters";
  const Image* src = find_image(source);
  Image* dst = find_image(dest);
  if (src == nullptr || dst == nullptr || src->jpeg == nullptr || dst->jpeg == nullptr) {
    return report(kName, code::bad_handle);
  }
  if (src->jpeg == dst->jpeg) return 0;
  Tjpeg& to = *dst->jpeg;
  FILE* file = to.file;
  uint8_t* data = to.data;
  uint8_t* position = to.position;
  to = *src->jpeg;  // the length comes along on purpose
  to.file = file;
  to.data = data;
  to.position = position;
  to.work = 0;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_get_parameter(uint32_t handle, uint16_t id) {
  static constexpr const char* kName = "PIX_JPEG_get_parameter";
  uint32_t result = 0;
  const Tjpeg* record = record_of(handle, kName, result);
  if (record == nullptr) return result;
  switch (id) {
    case PIX_JPEG_COMPONENTS: return record->Ns;
    case PIX_JPEG_HEADER_LENGTH: return record->header_length;
    case PIX_JPEG_NUM_QTABLES: return record->Nq;
    default: return report(kName, code::bad_parameter, "Unknown parameter");
  }
}

PIX_API FILE* PIX_CALL PIX_JPEG_get_file_ptr(uint32_t handle) {
  const Image* img = find_image(handle);
  return img != nullptr && img->jpeg != nullptr ? img->jpeg->file : nullptr;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_set_file_ptr(uint32_t handle, FILE* stream) {
  uint32_t result = 0;
  Tjpeg* record = record_of(handle, "PIX_JPEG_set_file_ptr", result);
  if (record == nullptr) return result;
  record->file = stream;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_build_image(uint32_t in, uint32_t out, uint16_t mode) {
  static constexpr const char* kName = "PIX_JPEG_build_image";
  auto& build = jpeg_state().build;
  Image* src = find_image(in);
  if (src == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  Image* dst = find_image(out);
  if (dst == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  if (uint32_t r = check_reported(in, kName); is_error(r)) return r;
  if (src->lines_this_strip == 0) return 0;
  if (src->jpeg == nullptr || dst->jpeg == nullptr || src == dst) {
    return report(kName, code::bad_handle, "Not a JPEG image");
  }
  // A build left open goes on into its output; an output without a buffer
  // (another image than the open build's) starts a build of its own rather
  // than have bytes appended where there is nothing to take them.
  if (!build.progress.idle() && dst->jpeg->data == nullptr) build.progress = {};
  if (uint32_t r = stage::start(build.progress, stage::kBusy,
                                [&]() -> uint32_t {
                                  if (uint32_t r = PIX_image_copy_parameters(in, out); is_error(r)) return r;
                                  dst->jpeg->length = 0;
                                  if (uint32_t r = check_reported(out, kName); is_error(r)) return r;
                                  dst->lines_this_strip = dst->height;  // one buffer for the whole image
                                  PIX_image_free_data(out);
                                  if (uint32_t r = PIX_JPEG_malloc_data(out); is_error(r)) return r;
                                  build.write_offset = 0;
                                  return 0;
                                });
      is_error(r)) {
    return r;
  }
  // Compressed strips count whole (nothing to cut), and a failed trim at the
  // end leaves the build open, so that the next call appends to it.
  return stage::advance(
      build.progress, *src, mode,
      [&]() -> uint32_t {
        Tjpeg& from = *src->jpeg;
        Tjpeg& to = *dst->jpeg;
        const std::size_t n = from.data != nullptr ? from.length : 0;
        // The buffer was sized for the whole image; strips that compress to
        // more than that grow it rather than run past its end.
        if (!ensure_capacity(to, build.write_offset + n)) {
          return report(kName, with_detail(code::out_of_memory, build.write_offset + n));
        }
        if (n != 0) std::memcpy(to.data + build.write_offset, from.data, n);
        build.write_offset += n;
        to.length += static_cast<uint32_t>(n);
        return 0;
      },
      stage::Nothing{},
      [&]() -> uint32_t {
        dst->jpeg->position = dst->jpeg->data;
        return PIX_JPEG_sequence_build(0, out);
      },
      {.cut_last = false, .busy_after_failed_finish = true});
}

}  // extern "C"
