// Motion-JPEG sequences held in memory.
#include <cstring>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "jpeg_state.h"

using namespace pix;
using namespace pix::jpeg;

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

}  // extern "C"
