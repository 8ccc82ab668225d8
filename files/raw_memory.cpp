// Header-less transfers: the raw data writer, and strip-wise moves to and
// from a memory image (a second image that holds the whole picture).
#include <algorithm>
#include <array>
#include <cstring>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"

using namespace pix;

namespace {

// Library-wide state of the three transfers: one of each at a time.
struct RawMemoryTransfers {
  stage::Progress raw;
  files::Stream raw_stream;
  stage::Progress to_memory;
  uint64_t write_offset = 0;  // into the memory image's data
  stage::Progress from_memory;
  uint64_t read_offset = 0;  // into the memory image's data
};
RawMemoryTransfers& transfers() noexcept {
  static RawMemoryTransfers state;
  return state;
}
void forget_transfers() noexcept {
  RawMemoryTransfers& t = transfers();
  t.raw = {};
  t.raw_stream.discard();
  t.to_memory = {};
  t.from_memory = {};
}
[[maybe_unused]] const bool registered = register_release(&forget_transfers);

constexpr bool is_16_bit(uint16_t format) {
  return format == PIX_RGB15 || format == PIX_RGB16 || format == PIX_Y16;
}

constexpr bool raw_writable(uint16_t format) {
  return (format >= PIX_Y8 && format <= 12) || format == PIX_Y16 || format == 15 || format == 100 || format == 108;
}

// 16-bit pixels go out least significant byte first whatever the host's order.
void put_le16_row(FILE* f, const uint8_t* line, uint32_t width) {
  std::array<uint8_t, 4096> chunk;
  for (uint32_t x = 0; x < width;) {
    const uint32_t n = std::min<uint32_t>(width - x, chunk.size() / 2);
    for (uint32_t i = 0; i < n; ++i) {
      uint16_t v;
      std::memcpy(&v, line + 2 * (x + i), 2);
      chunk[2 * i] = static_cast<uint8_t>(v & 0xFF);
      chunk[2 * i + 1] = static_cast<uint8_t>(v >> 8);
    }
    files::write_bytes(f, {chunk.data(), 2 * static_cast<std::size_t>(n)});
    x += n;
  }
}

uint32_t write_raw_strip(const Image& img, FILE* f) {
  static constexpr const char* kName = "PIX_write_raw_data_1_strip";
  if (!raw_writable(img.format)) return report(kName, code::unsupported | 1, "Unsupported image type");
  if (img.data == nullptr) return report(kName, code::bad_image, "No image data");
  const uint8_t* line = img.data;
  for (uint32_t y = 0; y < img.lines_this_strip; ++y, line += img.bytes_per_line) {
    if (is_16_bit(img.format)) {
      put_le16_row(f, line, img.width);
    } else {
      files::write_bytes(f, {line, img.bytes_per_line});
    }
  }
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_write_raw_data_file(uint32_t handle, uint16_t command) {
  static constexpr const char* kName = "PIX_write_raw_data";
  if (uint32_t r = check_reported(handle, kName); is_error(r)) return r;
  Image& img = *find_image(handle);
  if (img.lines_this_strip == 0) return 0;
  if (!raw_writable(img.format)) return report(kName, code::unsupported, "Unsupported image format");
  RawMemoryTransfers& t = transfers();
  if (t.raw.idle()) {
    t.raw.lines_done = 0;
    if (!t.raw_stream.open(img.out_filename, "wb")) return report(kName, code::open_failed, "Failed to create file");
    t.raw.state = stage::kBusy;
  }
  return stage::advance(
      t.raw, img, command,
      [&]() -> uint32_t {
        write_raw_strip(img, t.raw_stream.get());  // kept: the worker's result is not checked
        return 0;
      },
      stage::Nothing{},
      [&]() -> uint32_t {
        if (!t.raw_stream.close()) return report(kName, code::close_failed, "Failed to close file");
        return 0;
      });
}

PIX_API uint32_t PIX_CALL PIX_write_to_memory(uint32_t handle, uint32_t memory_handle, uint16_t command) {
  static constexpr const char* kName = "PIX_write_to_memory";
  if (uint32_t r = check_reported(handle, kName, "Corrupt input image"); is_error(r)) return r;
  Image& src = *find_image(handle);
  if (src.lines_this_strip == 0) return 0;
  RawMemoryTransfers& t = transfers();
  if (t.to_memory.idle()) {
    t.to_memory.lines_done = 0;
    if (uint32_t r = PIX_image_copy_parameters(handle, memory_handle); is_error(r)) return r;
    if (uint32_t r = check_reported(memory_handle, kName, "Corrupt output image"); is_error(r)) return r;
    Image& mem = *find_image(memory_handle);
    mem.lines_this_strip = mem.height;
    PIX_image_free_data(memory_handle);
    if (uint32_t r = PIX_image_malloc_a_strip(memory_handle); is_error(r)) return r;
    t.write_offset = 0;
    t.to_memory.state = stage::kBusy;
  }
  return stage::advance(t.to_memory, src, command, [&]() -> uint32_t {
    const Image* mem = find_image(memory_handle);
    if (mem == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
    if (src.data == nullptr || mem->data == nullptr) return report(kName, code::bad_image, "No image data");
    // Never past the memory image's picture, whatever the strips add up to.
    const uint64_t room = strip_bytes(*mem) - std::min(t.write_offset, strip_bytes(*mem));
    const uint64_t bytes = std::min(strip_bytes(src), room);
    std::memcpy(mem->data + t.write_offset, src.data, static_cast<std::size_t>(bytes));
    t.write_offset += bytes;
    return 0;
  });
}

PIX_API uint32_t PIX_CALL PIX_read_from_memory(uint32_t handle, uint32_t receiver, uint16_t command) {
  static constexpr const char* kName = "PIX_read_from_memory";
  if (uint32_t r = check_reported(handle, kName, "Corrupt input image"); is_error(r)) return r;
  const Image& whole = *find_image(handle);
  if (whole.lines_this_strip == 0) return 0;
  RawMemoryTransfers& t = transfers();
  if (t.from_memory.idle()) {
    t.from_memory.lines_done = 0;
    if (uint32_t r = PIX_image_copy_parameters(handle, receiver); is_error(r)) return r;
    if (uint32_t r = check_reported(receiver, kName, "Corrupt output image"); is_error(r)) return r;
    t.read_offset = 0;
    t.from_memory.state = stage::kBusy;
  }
  Image* dst = find_image(receiver);
  if (dst == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  return stage::advance(t.from_memory, *dst, command, [&]() -> uint32_t {
    PIX_image_free_data(receiver);
    if (uint32_t r = PIX_image_malloc_a_strip(receiver); is_error(r)) return r;
    if (whole.data == nullptr) return report(kName, code::bad_image, "No image data");
    const uint64_t want = strip_bytes(*dst);
    if (want == 0) return 0;
    // Never past the memory image's picture: a strip beyond it reads as zeros.
    const uint64_t total = strip_bytes(whole);
    const uint64_t left = total - std::min(t.read_offset, total);
    const uint64_t bytes = std::min(want, left);
    std::memcpy(dst->data, whole.data + t.read_offset, static_cast<std::size_t>(bytes));
    std::memset(dst->data + bytes, 0, static_cast<std::size_t>(want - bytes));
    t.read_offset += bytes;
    return 0;
  });
}

}  // extern "C"
