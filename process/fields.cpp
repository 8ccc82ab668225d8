// Interlaced video and its inspection views: two fields woven into a frame,
// one field line-doubled, a frame of two stacked fields interlaced, one
// 8-bit channel out of 32-bit pixels, and pseudo-colour views of YUV 4:2:2,
// PIX_HSI and grey images.  Strip-wise outer functions on the shared strip
// driver (interlacing takes whole frames), with workers that run the row
// kernels over each strip.
#include "process/kernels/fields.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/lines.h"
#include "core/stage.h"
#include "core/status.h"

using namespace pix;
namespace k = pix::process::kernels;

namespace {

// Library-wide: one run of each function at a time.  Destroying every image
// ends the runs.
struct FieldState final : Releasable {
  stage::Progress two_fields, field, interlace, data32, xxxx32, yuv_pseudo, hsi_pseudo, y8_pseudo;
  void release() noexcept override {
    two_fields = field = interlace = data32 = xxxx32 = yuv_pseudo = hsi_pseudo = y8_pseudo = {};
  }
};
FieldState& field_state() noexcept {
  static FieldState state;
  return state;
}

constexpr const char* kTwoFields = "PIX_SPL_2fields_to_frame";
constexpr const char* kTwoFieldsWorker = "PIX_SPL_2fields_to_frame_1_strip";
constexpr const char* kField = "PIX_SPL_field_to_frame";
constexpr const char* kFieldWorker = "PIX_SPL_field_to_frame_1_strip";
constexpr const char* kInterlace = "PIX_SPL_interlace_frame";
constexpr const char* kInterlaceWorker = "PIX_SPL_interlace_frame_1_strip";
constexpr const char* kSecondCorrupt = "Corrupt image - parameter 2";
constexpr const char* kSameImage = "Input and output must be different images";

// ---------------------------------------------------------------------------
// Fields and frames

// Copies `count` lines of `bytes` bytes from `from` to every other line of
// `to` (starting `first` lines in), each copied in 16-bit units.  Bytes
// beyond either buffer are neither read nor written.
void weave(const lines::In& from, const lines::Out& to, uint64_t bytes, uint32_t first, uint32_t count) {
  const uint64_t at = first * bytes;
  if (at >= to.size || bytes < 2) return;
  const lines::Out every_other{to.data + at, to.size - at, 2 * bytes};
  lines::map(from, 1, every_other, 1, bytes, count,
             [](const uint8_t* s, uint8_t* d, std::size_t n) { k::copy_halfwords_row(s, d, n); }, {.merge = false});
}

// A frame strip of the library's own whose lines have an odd last byte,
// which the 16-bit copies leave alone, or whose last line no field fills,
// is cleared first, so that it holds no bytes from before.
void clear_own(const Image& frame, bool partly_filled) {
  if (partly_filled && (frame.flags & PIX_FLAG_LOCKED) == 0 && frame.data != nullptr) {
    std::memset(frame.data, 0, static_cast<std::size_t>(strip_bytes(frame)));
  }
}

// Sets the frame's height to twice `height` (a height that cannot double in
// 32 bits is refused as the image check refuses a size).
uint32_t double_height(uint32_t frame, uint32_t height, const char* function) {
  if (height > UINT32_MAX / 2) return report(function, code::bad_image, "Corrupt image");
  return PIX_image_set_parameter(frame, PIX_IMAGE_HEIGHT, 2 * height);
}

uint32_t twice(uint32_t lines) { return lines > UINT32_MAX / 2 ? UINT32_MAX : 2 * lines; }

// The second field must be laid out as the first: its lines are read with
// the first field's length and count.
bool same_layout(const Image& a, const Image& b) {
  return a.format == b.format && a.width == b.width && a.height == b.height && a.bytes_per_line == b.bytes_per_line;
}

uint32_t two_fields_1_strip(uint32_t first, uint32_t second, uint32_t frame) {
  const Image& a = *find_image(first);
  const Image& b = *find_image(second);
  if (b.data == nullptr) return report(kTwoFieldsWorker, code::bad_image, "No image data");
  // Nothing else would stop the second field being read with the first
  // field's sizes.
  if (!same_layout(a, b) || b.lines_this_strip < a.lines_this_strip) {
    return report(kTwoFieldsWorker, code::bad_image, kSecondCorrupt);
  }
  if (uint32_t r = stage::begin_worker(a, frame, kTwoFieldsWorker); is_error(r)) return r;
  const Image& f = *find_image(frame);
  const uint64_t bytes = a.bytes_per_line;
  clear_own(f, bytes % 2 != 0);
  // Field mode with order 2: the second field's lines come first.
  const bool swapped = (a.flags & PIX_FLAG_FIELD_MODE) != 0 && a.field_order == 2;
  const Image& upper = swapped ? b : a;
  const Image& lower = swapped ? a : b;
  const lines::Out to = lines::target(f, bytes);
  weave(lines::source(upper, bytes), to, bytes, 0, a.lines_this_strip);
  weave(lines::source(lower, bytes), to, bytes, 1, a.lines_this_strip);
  return 0;
}

// Line doubling: each field line written twice in a row.
uint32_t field_1_strip(uint32_t field, uint32_t frame) {
  const Image& src = *find_image(field);
  if (uint32_t r = stage::begin_worker(src, frame, kFieldWorker); is_error(r)) return r;
  const Image& f = *find_image(frame);
  const uint64_t bytes = src.bytes_per_line;
  clear_own(f, bytes % 2 != 0);
  const lines::In from = lines::source(src, bytes);
  const lines::Out to = lines::target(f, bytes);
  weave(from, to, bytes, 0, src.lines_this_strip);
  weave(from, to, bytes, 1, src.lines_this_strip);
  return 0;
}

// Frame line i, then frame line H/2 + i, for i up to half the strip: the
// upper half is the first field, the lower half the second (kept: orders 4
// and 5 are treated alike).
uint32_t interlace_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kInterlaceWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const uint64_t bytes = src.bytes_per_line, half = src.lines_this_strip / 2;
  clear_own(dst, bytes % 2 != 0 || src.lines_this_strip % 2 != 0);
  if (src.lines_this_strip < 2) return 0;
  const lines::In from = lines::source(src, bytes);
  const lines::Out to = lines::target(dst, bytes);
  weave(from, to, bytes, 0, static_cast<uint32_t>(half));
  const uint64_t second = (src.height / 2) * bytes;
  if (second < from.size) {
    weave(lines::In{from.data + second, from.size - second, bytes}, to, bytes, 1, static_cast<uint32_t>(half));
  }
  return 0;
}

// The strip step of the field functions: the frame (output) holds twice the
// lines of the field strip (`counted`).
template <class SetUp, class Work>
uint32_t frame_strips(stage::Progress& progress, const char* function, uint32_t counted, uint32_t frame,
                      uint16_t command, SetUp&& set_up, Work&& work) {
  if (uint32_t r = stage::start(progress, stage::kBusy, set_up); is_error(r)) return r;
  Image* src = find_image(counted);
  Image* dst = find_image(frame);
  if (dst == nullptr) return report(function, code::bad_handle, "Output image does not exist");
  return stage::advance(progress, *src, command, work, [&]() -> uint32_t {
    dst->lines_this_strip = twice(src->lines_this_strip);
    return 0;
  });
}

// ---------------------------------------------------------------------------
// 32-bit data to grey

constexpr uint32_t formats(std::initializer_list<int> list) {
  uint32_t mask = 0;
  for (int f : list) mask |= 1u << f;
  return mask;
}
constexpr bool takes(uint32_t mask, uint16_t format) { return format < 32 && ((mask >> format) & 1u) != 0; }

constexpr stage::Stage kData32{.name = "PIX_SPL_Data32_to_Y8", .target = PIX_Y8, .same = stage::Copy::none};
constexpr const char* kData32Worker = "PIX_SPL_Data32_to_Y8_1_strip";
constexpr uint32_t kData32Formats = formats({PIX_RGBX32, PIX_BGRX32, PIX_XRGB32, PIX_XBGR32});

// A source without lines never reaches the strip protocol: the export
// copies it whole, keeping its format.
constexpr stage::Stage kXxxx32{.name = "PIX_SPL_XXXX32_to_Y8", .target = PIX_Y8, .same = stage::Copy::none};
constexpr const char* kXxxx32Worker = "PIX_SPL_XXXX32_to_Y8_1_strip";
// Kept: the X-first RGB layout is not taken here, though its sibling takes it.
constexpr uint32_t kXxxx32Formats = formats({PIX_RGBX32, PIX_BGRX32, PIX_XBGR32});

// Kept: the lines are walked as `width` words in and `width` bytes out,
// stepping over no padding (the strip is one run of pixels), as the grabber
// data this reads has none.
uint32_t data32_1_strip(uint32_t in, uint32_t out, unsigned shift) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kData32Worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  lines::map(lines::source(src, lines::packed(src, 4)), 4, lines::target(dst, lines::packed(src, 1)), 1, src.width,
             src.lines_this_strip,
             [shift](const uint8_t* s, uint8_t* d, std::size_t n) { k::shift32_to_y8_row(s, d, n, shift); });
  return 0;
}

uint32_t xxxx32_1_strip(uint32_t in, uint32_t out, unsigned byte) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kXxxx32Worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  lines::map(lines::source(src, lines::padded(src)), 4, lines::target(dst, lines::padded(dst)), 1, src.width,
             src.lines_this_strip,
             [byte](const uint8_t* s, uint8_t* d, std::size_t n) { k::byte_of_32_row(s, d, n, byte); });
  return 0;
}

// ---------------------------------------------------------------------------
// Pseudo-colour

constexpr stage::Stage kYuvPseudo{
    .name = "PIX_SPL_YUV422_to_RGB_pseudo_colour", .target = PIX_RGB24, .same = stage::Copy::none};
constexpr const char* kYuvPseudoWorker = "PIX_SPL_YUV422_to_RGB_pseudo_colour_1_strip";
constexpr stage::Stage kHsiPseudo{
    .name = "PIX_SPL_HSI_to_RGB_pseudo_colour", .target = PIX_RGB24, .same = stage::Copy::none};
constexpr const char* kHsiPseudoWorker = "PIX_SPL_HSI_to_RGB_pseudo_colour_1_strip";
constexpr stage::Stage kY8Pseudo{
    .name = "PIX_SPL_Y8_to_pseudo_colour", .target = PIX_RGB16, .same = stage::Copy::none, .empty = stage::Copy::copy};
constexpr const char* kY8PseudoWorker = "PIX_SPL_Y8_to_pseudo_colour_1_strip";

// Lines of `units` units, `in_unit` bytes in and `out_unit` bytes out, each
// side stepped by its bytes per line.
template <class Row>
uint32_t map_padded(uint32_t in, uint32_t out, const char* worker, unsigned in_unit, unsigned out_unit, uint64_t units,
                    Row&& row) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  lines::map(lines::source(src, lines::padded(src)), in_unit, lines::target(dst, lines::padded(dst)), out_unit, units,
             src.lines_this_strip, row);
  return 0;
}

template <uint16_t Format>
uint32_t accept_only(const Image& src, const char* function) {
  return src.format == Format ? 0u : stage::unsupported_format(function);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_SPL_2fields_to_frame(uint32_t first, uint32_t second, uint32_t frame, uint16_t command) {
  if (uint32_t r = check_reported(first, kTwoFields, "Corrupt image - parameter 1"); is_error(r)) return r;
  if (uint32_t r = check_reported(second, kTwoFields, kSecondCorrupt); is_error(r)) return r;
  const Image& a = *find_image(first);
  if (a.lines_this_strip == 0) {
    // Kept: the frame is described with the field's own height here.
    const uint32_t r = PIX_image_copy_parameters(first, frame);
    return is_error(r) ? r : 0;
  }
  const Image* f = find_image(frame);
  if (f == &a || f == find_image(second)) return report(kTwoFields, code::param_conflict, kSameImage);
  return frame_strips(
      field_state().two_fields, kTwoFields, first, frame, command,
      [=]() -> uint32_t {
        if (uint32_t r = PIX_image_copy_parameters(first, frame); is_error(r)) return r;
        if (uint32_t r = double_height(frame, find_image(first)->height, kTwoFields); is_error(r)) return r;
        return check_reported(frame, kTwoFields);
      },
      [=] { return two_fields_1_strip(first, second, frame); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_field_to_frame(uint32_t field, uint32_t frame, uint16_t command) {
  uint32_t result = 0;
  const Image* src = stage::checked_input(field, kField, result);
  if (src == nullptr) return result;
  auto describe = [=]() -> uint32_t {
    if (uint32_t r = PIX_image_copy_parameters(field, frame); is_error(r)) return r;
    if (uint32_t r = double_height(frame, find_image(field)->height, kField); is_error(r)) return r;
    return PIX_image_set_parameter(frame, PIX_FIELD_ORDER, 0);
  };
  if (src->lines_this_strip == 0) {
    result = describe();
    return is_error(result) ? result : 0;
  }
  if (find_image(frame) == src) return report(kField, code::param_conflict, kSameImage);
  return frame_strips(
      field_state().field, kField, field, frame, command,
      [=]() -> uint32_t {
        if (uint32_t r = describe(); is_error(r)) return r;
        return check_reported(frame, kField);
      },
      [=] { return field_1_strip(field, frame); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_interlace_frame(uint32_t frame, uint32_t out, uint16_t command) {
  if (uint32_t r = check_reported(frame, kInterlace, "Corrupt input image"); is_error(r)) return r;
  Image& src = *find_image(frame);
  if (src.field_order != 4 && src.field_order != 5) {
    return report(kInterlace, code::unsupported, "Field order ID not set up");
  }
  if (src.lines_this_strip == 0) {
    const uint32_t r = PIX_image_copy_parameters(frame, out);
    return is_error(r) ? r : 0;
  }
  if (src.lines_this_strip != src.height) return report(kInterlace, code::unsupported, "Can only process full image");
  if (find_image(out) == &src) return report(kInterlace, code::param_conflict, kSameImage);
  stage::Progress& progress = field_state().interlace;
  if (uint32_t r = stage::start(progress, stage::kBusy,
                                [=]() -> uint32_t { return stage::set_up_output(frame, out, 0, kInterlace); });
      is_error(r)) {
    return r;
  }
  if (find_image(out) == nullptr) return report(kInterlace, code::bad_handle, "Output image does not exist");
  // The whole frame is one strip: command 3 runs the worker and finishes.
  return stage::advance(progress, src, command, [=] { return interlace_1_strip(frame, out); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_Data32_to_Y8(uint32_t in, uint32_t out, uint32_t shift, uint16_t command) {
  return stage::run(
      kData32, field_state().data32, in, out, command,
      [](const Image& src) { return takes(kData32Formats, src.format) ? 0u : stage::unsupported_format(kData32.name); },
      [=] { return data32_1_strip(in, out, shift % 32); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_XXXX32_to_Y8(uint32_t in, uint32_t out, uint32_t byte_number, uint16_t command) {
  uint32_t result = 0;
  const Image* src = stage::checked_input(in, kXxxx32.name, result);
  if (src == nullptr) return result;
  // Kept: a source without lines is copied whole and keeps its own format.
  if (src->lines_this_strip == 0) return PIX_image_copy(in, out);
  return stage::run(
      kXxxx32, field_state().xxxx32, in, out, command,
      [=](const Image& s) -> uint32_t {
        if (!takes(kXxxx32Formats, s.format)) return stage::unsupported_format(kXxxx32.name);
        // A byte outside the pixel would be read from its neighbours, or
        // from beyond the strip at either end (looked at only when a strip
        // is to be read, so that a run can always be finished).
        if (command == stage::kNext && (byte_number < 1 || byte_number > 4)) {
          return report(kXxxx32.name, code::unsupported, "Byte number must be 1 to 4");
        }
        return 0;
      },
      [=] { return xxxx32_1_strip(in, out, byte_number - 1); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_YUV422_to_RGB_pseudo_colour(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      kYuvPseudo, field_state().yuv_pseudo, in, out, command,
      [](const Image& src) { return accept_only<PIX_YUV422>(src, kYuvPseudo.name); },
      [=] {
        return map_padded(in, out, kYuvPseudoWorker, 4, 6, find_image(in)->width / 2, k::pseudo_kernels().yuv422);
      });
}

PIX_API uint32_t PIX_CALL PIX_SPL_HSI_to_RGB_pseudo_colour(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      kHsiPseudo, field_state().hsi_pseudo, in, out, command,
      [](const Image& src) { return accept_only<PIX_HSI>(src, kHsiPseudo.name); },
      [=] { return map_padded(in, out, kHsiPseudoWorker, 4, 3, find_image(in)->width, k::pseudo_kernels().hsi); });
}

PIX_API uint32_t PIX_CALL PIX_SPL_Y8_to_pseudo_colour(uint32_t in, uint32_t out, uint32_t /*unused*/,
                                                      uint16_t command) {
  return stage::run(
      kY8Pseudo, field_state().y8_pseudo, in, out, command,
      [](const Image& src) {
        return src.format == PIX_Y8 ? 0u : stage::unsupported_format(kY8Pseudo.name, "Image format must be PIX_Y8");
      },
      [=] { return map_padded(in, out, kY8PseudoWorker, 1, 2, find_image(in)->width, k::pseudo_kernels().y8); });
}

}  // extern "C"
