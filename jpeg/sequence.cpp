// Motion-JPEG sequences: frames of one scan, each boundary an RST0 marker
// (0xFF 0xD0), built in memory, counted and positioned in an open file or in
// memory, and cut out one at a time.
#include <cstring>
#include <memory>
#include <span>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "files/stream.h"
#include "jpeg_state.h"
#include "stream_data.h"

using namespace pix;
using namespace pix::jpeg;

namespace {

constexpr std::size_t kChunk = 65536;

// Walks the data of an open file from the header length to its end.
template <class Visit>
std::pair<uint64_t, bool> walk_file(FILE* f, uint32_t header_length, Visit&& visit) {
  files::seek64(f, header_length, SEEK_SET);
  auto chunk = std::make_unique<uint8_t[]>(kChunk);
  return walk_pairs(
      [&] { return std::span<const uint8_t>(chunk.get(), std::fread(chunk.get(), 1, kChunk, f)); }, visit);
}

// Walks the data in the record's buffer, never past its length.
template <class Visit>
std::pair<uint64_t, bool> walk_buffer(const Tjpeg& r, Visit&& visit) {
  bool given = false;
  return walk_pairs(
      [&] {
        const std::span<const uint8_t> all(r.data, given ? 0 : data_span(r));
        given = true;
        return all;
      },
      visit);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_build(uint32_t source, uint32_t sequence) {
  static constexpr const char* kName = "PIX_JPEG_sequence_build";
  Image* seq = find_image(sequence);
  if (seq == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  if (seq->jpeg == nullptr) return report(kName, code::bad_handle, "Not a JPEG image");
  Tjpeg& to = *seq->jpeg;
  if (source == 0) {
    // Trim: move the data into a buffer of exactly its length.  A locked
    // image keeps its own buffer as it is.
    if ((seq->flags & PIX_FLAG_LOCKED) != 0 && to.data != nullptr) return 0;
    const uint32_t length = to.length;
    uint8_t* old = to.data;
    to.data = nullptr;  // detached: the new buffer is attached without releasing it
    if (!attach_new_buffer(to, length)) {
      to.data = old;
      return report(kName, with_detail(code::out_of_memory, length));
    }
    if (length != 0 && old != nullptr) std::memcpy(to.data, old, length);
    memory::release(old);
    to.position = to.data;
    return 0;
  }
  const Image* src = find_image(source);
  if (src == nullptr || src->jpeg == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  const Tjpeg& from = *src->jpeg;
  const std::size_t marker = to.length != 0 ? 2 : 0;
  const std::size_t n = from.data != nullptr ? from.length : 0;
  if (to.data == nullptr || !ensure_capacity(to, to.length + marker + n)) {
    return report(kName, with_detail(code::out_of_memory, to.length + marker + n));
  }
  uint8_t* write = to.data + to.length;
  if (marker != 0) {
    write[0] = 0xFF;
    write[1] = 0xD0;
    write += 2;
  }
  if (n != 0) std::memcpy(write, from.data, n);
  to.length += static_cast<uint32_t>(marker + n);
  seq->num_frames += 1;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_calc_length(uint32_t handle) {
  static constexpr const char* kName = "PIX_JPEG_sequence_calc_length";
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  if (img->jpeg == nullptr) return report(kName, code::bad_handle, "Not a JPEG image");
  FILE* f = img->jpeg->file;
  if (f == nullptr) return report(kName, code::bad_handle, "JPEG file not opened");
  const uint64_t saved = files::tell64(f);
  img->num_frames = 1;
  // Restart markers of any number count; 0xFF 0x00 is stuffing; any other
  // marker, or the end of the file, ends the count.
  walk_file(f, img->jpeg->header_length, [&](uint8_t code) {
    if (code < 0xD0 || code > 0xD7) return code != 0x00;
    ++img->num_frames;
    return false;
  });
  files::seek64(f, saved, SEEK_SET);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_set_start_frame(uint32_t handle, int32_t frame) {
  static constexpr const char* kName = "PIX_JPEG_sequence_set_start_frame";
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  if (img->jpeg == nullptr) return report(kName, code::bad_handle, "Not a JPEG image");
  Tjpeg& r = *img->jpeg;
  // Kept: the frame compares as unsigned, so a negative one is too far.
  const auto wanted = static_cast<uint32_t>(frame);
  if (wanted > img->num_frames) return report(kName, code::bad_parameter, "starting frame > number of frames");
  img->start_frame = 1;
  if (wanted == 1) {
    r.position = r.data;
    if (r.file != nullptr) files::seek64(r.file, r.header_length, SEEK_SET);
    return 0;
  }
  // Only RST0 bounds a frame here.  Data with fewer boundaries than frames
  // leaves the walk at its end: the file at its end, the position at the
  // end of the data.
  const auto boundary = [&](uint8_t code) { return code == 0xD0 && ++img->start_frame == wanted; };
  if (r.file != nullptr) {
    const auto [after, found] = walk_file(r.file, r.header_length, boundary);
    if (found) files::seek64(r.file, r.header_length + after, SEEK_SET);
  } else if (r.data != nullptr) {
    const auto [after, found] = walk_buffer(r, boundary);
    r.position = r.data + (found ? after : data_span(r));
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_extract_frame(uint32_t sequence, uint32_t frame_image, uint32_t frame) {
  static constexpr const char* kName = "PIX_sequence_JPEG_extract_frame";  // kept: the name as reports carry it
  Image* seq = find_image(sequence);
  if (seq == nullptr) return report(kName, code::bad_handle, "Input image does not exist");
  if (frame > seq->num_frames) return report(kName, code::bad_parameter, "frame number > number of frames");
  Image* out = find_image(frame_image);
  if (out == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  if (out->jpeg == nullptr) return report(kName, code::bad_handle, "Not a JPEG image");
  // The frame image's buffer is replaced while the sequence's is read.
  if (out == seq) return report(kName, code::param_conflict, "Input and output must be different images");
  if (uint32_t r = PIX_JPEG_sequence_set_start_frame(sequence, static_cast<int32_t>(frame)); is_error(r)) return r;
  Tjpeg& from = *seq->jpeg;
  const std::size_t start = offset_in(from, from.position);

  PIX_JPEG_free_data(frame_image);
  if (uint32_t r = PIX_image_copy_parameters(sequence, frame_image); is_error(r)) return r;
  out->flags &= ~PIX_FLAG_LOCKED;
  out->num_frames = 1;

  // Every frame but the last ends with the boundary that follows it.
  std::size_t end = data_span(from);
  if (frame != seq->num_frames) {
    PIX_JPEG_sequence_set_start_frame(sequence, static_cast<int32_t>(frame + 1));
    end = offset_in(from, from.position);
  }
  const std::size_t size = end > start ? end - start : 0;
  Tjpeg& to = *out->jpeg;
  // A buffer of the caller's that the frame image held stays the caller's.
  if (capacity_of(to) == 0) to.data = nullptr;
  if (!attach_new_buffer(to, size)) return report(kName, with_detail(code::out_of_memory, size));
  if (size != 0) std::memcpy(to.data, from.data + start, size);
  to.length = static_cast<uint32_t>(size);
  to.position = to.data;
  return 0;
}

}  // extern "C"
