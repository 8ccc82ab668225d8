// Header-less transfers: the raw data writer, and strip-wise moves to and
// from a memory image (a second image that holds the whole picture).
#include <algorithm>
#include <array>
#include <cstring>

#include "core/image.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"
#include "transfer.h"

using namespace pix;

namespace {

constexpr const char* kRaw = "PIX_write_raw_data";
constexpr const char* kRawWorker = "PIX_write_raw_data_1_strip";
constexpr const char* kToMemory = "PIX_write_to_memory";
constexpr const char* kFromMemory = "PIX_read_from_memory";

// Library-wide state of the three transfers: one of each at a time.  The
// memory transfers keep their place in the memory image's data.
struct MemoryTransfer : files::Transfer {
  uint64_t offset = 0;
};
files::Transfer& raw_writer() noexcept {
  static files::Transfer state;
  return state;
}
MemoryTransfer& to_memory() noexcept {
  static MemoryTransfer state;
  return state;
}
MemoryTransfer& from_memory() noexcept {
  static MemoryTransfer state;
  return state;
}
constexpr files::Plan kRawPlan{.function = kRaw};
constexpr files::Plan kToMemoryPlan{.function = kToMemory};
constexpr files::Plan kFromMemoryPlan{.function = kFromMemory, .missing = "Output image does not exist"};

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
  if (!raw_writable(img.format)) return report(kRawWorker, with_detail(code::unsupported, 1), "Unsupported image type");
  if (img.data == nullptr) return report(kRawWorker, code::bad_image, "No image data");
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
  if (uint32_t r = check_reported(handle, kRaw); is_error(r)) return r;
  Image& img = *find_image(handle);
  if (img.lines_this_strip == 0) return 0;
  if (!raw_writable(img.format)) return report(kRaw, code::unsupported, "Unsupported image format");
  files::Transfer& t = raw_writer();
  return t.run(kRawPlan, handle, command, [&] { return t.open_for_writing(kRaw, img.out_filename); },
               [&]() -> uint32_t {
                 write_raw_strip(img, t.file());  // kept: the worker's result is not checked
                 return 0;
               });
}

PIX_API uint32_t PIX_CALL PIX_write_to_memory(uint32_t handle, uint32_t memory_handle, uint16_t command) {
  if (uint32_t r = check_reported(handle, kToMemory, "Corrupt input image"); is_error(r)) return r;
  Image& src = *find_image(handle);
  if (src.lines_this_strip == 0) return 0;
  MemoryTransfer& t = to_memory();
  const auto begin = [&]() -> uint32_t {
    if (uint32_t r = PIX_image_copy_parameters(handle, memory_handle); is_error(r)) return r;
    if (uint32_t r = check_reported(memory_handle, kToMemory, "Corrupt output image"); is_error(r)) return r;
    Image& mem = *find_image(memory_handle);
    mem.lines_this_strip = mem.height;
    PIX_image_free_data(memory_handle);
    if (uint32_t r = PIX_image_malloc_a_strip(memory_handle); is_error(r)) return r;
    t.offset = 0;
    return 0;
  };
  return t.run(kToMemoryPlan, handle, command, begin, [&]() -> uint32_t {
    const Image* mem = find_image(memory_handle);
    if (mem == nullptr) return report(kToMemory, code::bad_handle, "Output image does not exist");
    if (src.data == nullptr || mem->data == nullptr) return report(kToMemory, code::bad_image, "No image data");
    // Never past the memory image's picture, whatever the strips add up to.
    const uint64_t room = strip_bytes(*mem) - std::min(t.offset, strip_bytes(*mem));
    const uint64_t bytes = std::min(strip_bytes(src), room);
    std::memcpy(mem->data + t.offset, src.data, static_cast<std::size_t>(bytes));
    t.offset += bytes;
    return 0;
  });
}

PIX_API uint32_t PIX_CALL PIX_read_from_memory(uint32_t handle, uint32_t receiver, uint16_t command) {
  if (uint32_t r = check_reported(handle, kFromMemory, "Corrupt input image"); is_error(r)) return r;
  const Image& whole = *find_image(handle);
  if (whole.lines_this_strip == 0) return 0;
  MemoryTransfer& t = from_memory();
  const auto begin = [&]() -> uint32_t {
    if (uint32_t r = PIX_image_copy_parameters(handle, receiver); is_error(r)) return r;
    if (uint32_t r = check_reported(receiver, kFromMemory, "Corrupt output image"); is_error(r)) return r;
    t.offset = 0;
    return 0;
  };
  return t.run(kFromMemoryPlan, receiver, command, begin, [&]() -> uint32_t {
    PIX_image_free_data(receiver);
    if (uint32_t r = PIX_image_malloc_a_strip(receiver); is_error(r)) return r;
    if (whole.data == nullptr) return report(kFromMemory, code::bad_image, "No image data");
    const Image& dst = *find_image(receiver);
    const uint64_t want = strip_bytes(dst);
    if (want == 0) return 0;
    // Never past the memory image's picture: a strip beyond it reads as zeros.
    const uint64_t total = strip_bytes(whole);
    const uint64_t left = total - std::min(t.offset, total);
    const uint64_t bytes = std::min(want, left);
    std::memcpy(dst.data, whole.data + t.offset, static_cast<std::size_t>(bytes));
    std::memset(dst.data + bytes, 0, static_cast<std::size_t>(want - bytes));
    t.offset += bytes;
    return 0;
  });
}

}  // extern "C"
