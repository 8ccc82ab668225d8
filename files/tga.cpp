// Uncompressed TGA files: grey (type 3) and true colour (type 2).
//
// The reader takes 8-, 15-, 16- and 24-bit files and gives Y8 or RGB24
// images; the writer writes Y8, RGB15 (as 16-bit) and RGB24 images with a
// top-left origin.  Rows move in file order, first file row first.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "convert/direct.h"
#include "convert/kernels/direct.h"
#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"
#include "transfer.h"

using namespace pix;

namespace {

constexpr const char* kReader = "PIX_read_TGA_file";
constexpr const char* kWriter = "PIX_write_TGA_file";
constexpr const char* kWriterWorker = "PIX_write_TGA_file_1_strip";

constexpr uint16_t kHeaderTaken = 2;    // reader: header read, file open
constexpr uint16_t kHeaderWritten = 3;  // writer: header written, file open
constexpr std::size_t kHeaderBytes = 18;

// Library-wide state: one TGA file read and one written at a time.
struct TgaReader : files::Transfer {
  uint8_t file_depth = 0;     // the pixel depth byte of the file being read
  std::vector<uint8_t> line;  // lines of blue, green, red pixels on their way in
  void end_run() noexcept override { line = std::vector<uint8_t>(); }
};
struct TgaWriter : files::Transfer {
  std::vector<uint8_t> row;  // a line of blue, green, red pixels on its way out
  void end_run() noexcept override { row = std::vector<uint8_t>(); }
};
TgaReader& reader() {
  static TgaReader state;
  return state;
}
TgaWriter& writer() {
  static TgaWriter state;
  return state;
}
// Kept: a failed close leaves the reader busy, so that another command 4 can
// end it.
constexpr files::Plan kReadPlan{
    .function = kReader, .busy = kHeaderTaken, .header_only = true, .ending = {.busy_after_failed_finish = true}};
constexpr files::Plan kWritePlan{.function = kWriter, .busy = kHeaderWritten};

constexpr bool writable(uint16_t format) { return format == PIX_Y8 || format == PIX_RGB15 || format == PIX_RGB24; }

// Blue, green, red pixels to red, green, blue and back: the same byte swap.
void swap_red_blue(const uint8_t* from, uint8_t* to, std::size_t pixels) {
  using convert::kernels::Direct;
  static const convert::kernels::DirectRow swap = convert::kernels::direct_row(Direct::bgr24, Direct::rgb24);
  swap(from, to, pixels, 0);
}

// ---------------------------------------------------------------- reading

uint32_t read_header(uint32_t handle, Image& img) {
  TgaReader& t = reader();
  if (uint32_t r = t.open_for_reading(kReader, img.in_filename, files::Mode::binary, true); is_error(r)) return r;
  std::array<uint8_t, kHeaderBytes> h;
  files::read_or_fill(t.file(), h);
  // Kept: the ID field is not skipped; pixel data is taken from offset 18.
  if (h[1] != 0) return t.stop(report(kReader, code::unsupported, "unsupported image"));
  uint16_t format = 0;
  if (h[2] == 3) {
    format = PIX_Y8;
  } else if (h[2] == 2) {
    format = PIX_RGB24;
  } else {
    return t.stop(report(kReader, code::unsupported, "unsupported image type"));
  }
  PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, format);
  img.width = static_cast<uint32_t>(h[12] | (h[13] << 8));
  img.height = static_cast<uint32_t>(h[14] | (h[15] << 8));
  t.file_depth = h[16];
  img.depth = (h[16] == 15 || h[16] == 16) ? 24 : h[16];
  // Kept: the descriptor (h[17]) is ignored, so a bottom-up file reads upside down.
  return 0;
}

bool sixteen_bit_file() {
  const uint8_t d = reader().file_depth;
  return d == 15 || d == 16;
}

// Fills `bytes` from the file being read (0xFF past its end or without a stream).
void take(std::span<uint8_t> bytes) {
  FILE* f = reader().file();
  if (f != nullptr) {
    files::read_or_fill(f, bytes);
  } else {
    std::fill(bytes.begin(), bytes.end(), files::kPastEnd);
  }
}

// Lines advance by the record's line length; with the usual 2-byte line
// alignment that is the pixel bytes plus one when they are odd.  Blue,
// green, red lines come in through a buffer of many lines and are swapped
// into place; the others go straight into the strip.  Nothing is written
// beyond `strip` bytes.
void read_lines(Image& img, uint64_t strip) {
  TgaReader& t = reader();
  const bool bgr = t.file_depth == 24;
  const unsigned bytes = bgr ? 3 : sixteen_bit_file() ? 2 : std::max(1u, pixel_bytes(t.file_depth));
  const uint64_t line = static_cast<uint64_t>(img.width) * bytes;
  const uint64_t stride = std::max<uint64_t>(img.bytes_per_line, line);
  const uint32_t lines = img.lines_this_strip;
  if (line == 0 || lines == 0) return;
  const uint32_t whole = strip < line ? 0 : static_cast<uint32_t>(std::min<uint64_t>(lines, (strip - line) / stride + 1));
  if (!bgr && stride == line) {
    take({img.data, static_cast<std::size_t>(whole * line)});
  } else if (!bgr) {
    for (uint32_t y = 0; y < whole; ++y) take({img.data + y * stride, static_cast<std::size_t>(line)});
  } else {
    const uint32_t group = static_cast<uint32_t>(std::max<uint64_t>(1, 65536 / line));
    t.line.resize(static_cast<std::size_t>(std::min<uint64_t>(group, whole) * line));
    for (uint32_t y = 0; y < whole; y += group) {
      const uint32_t k = std::min(group, whole - y);
      take({t.line.data(), static_cast<std::size_t>(k * line)});
      for (uint32_t i = 0; i < k; ++i) swap_red_blue(t.line.data() + i * line, img.data + (y + i) * stride, img.width);
    }
  }
  // A strip too small for its lines takes what fits of the next one.
  const uint64_t at = whole * stride;
  if (whole < lines && at < strip) {
    const std::size_t n = static_cast<std::size_t>(strip - at);
    if (bgr) {
      t.line.resize(n);
      take(t.line);
      swap_red_blue(t.line.data(), img.data + at, n / 3);
    } else {
      take({img.data + at, n});
    }
  }
}

// The 5-5-5 words just read become RGB24 through the RGB24 conversion
// worker, which reads the strip as PIX_RGB15 data.
uint32_t expand_rgb15(uint32_t handle) {
  const uint32_t temp = PIX_image_create();
  if (is_error(temp)) return temp;
  Image& img = *find_image(handle);
  const uint32_t locked = img.flags & PIX_FLAG_LOCKED;
  img.flags &= ~PIX_FLAG_LOCKED;
  uint32_t r = PIX_image_copy_parameters(handle, temp);
  if (!is_error(r)) {
    img.format = PIX_RGB15;
    img.depth = 15;
    r = convert::convert_to_rgb24_1_strip(handle, temp);
    img.format = PIX_RGB24;
    img.depth = 24;
  }
  if (!is_error(r)) {
    if (locked == 0) {
      r = PIX_image_move(temp, handle);
    } else {
      // A caller's buffer stays the caller's: the converted strip is copied
      // back into it instead of replacing it.
      const Image& converted = *find_image(temp);
      const uint64_t bytes = static_cast<uint64_t>(converted.lines_this_strip) * converted.bytes_per_line;
      std::memcpy(img.data, converted.data, static_cast<std::size_t>(bytes));
      img.bytes_per_line = converted.bytes_per_line;
      img.skip_bytes = converted.skip_bytes;
    }
  }
  PIX_image_destroy(temp);
  find_image(handle)->flags |= locked;
  return r;
}

uint32_t read_strip(uint32_t handle, uint64_t strip) {
  Image& img = *find_image(handle);
  read_lines(img, strip);
  if (sixteen_bit_file()) return expand_rgb15(handle);
  return 0;
}

// ---------------------------------------------------------------- writing

uint32_t write_header(const Image& img) {
  TgaWriter& t = writer();
  if (uint32_t r = t.open_for_writing(kWriter, img.out_filename); is_error(r)) return r;
  std::array<uint8_t, kHeaderBytes> h{};
  h[2] = img.format == PIX_Y8 ? 3 : 2;
  h[12] = static_cast<uint8_t>(img.width);
  h[13] = static_cast<uint8_t>(img.width >> 8);
  h[14] = static_cast<uint8_t>(img.height);
  h[15] = static_cast<uint8_t>(img.height >> 8);
  h[16] = img.format == PIX_Y8 ? 8 : img.format == PIX_RGB15 ? 16 : 24;
  h[17] = 0x20;  // first row is the top row
  files::write_bytes(t.file(), h);
  return 0;
}

uint32_t write_strip(const Image& img) {
  TgaWriter& t = writer();
  FILE* f = t.file();
  if (!writable(img.format)) {
    return report(kWriterWorker, code::unsupported, "unsupported image");
  }
  if (img.data == nullptr) return report(kWriterWorker, code::bad_image, "No image data");
  const uint64_t stride = img.bytes_per_line;
  const std::size_t line = static_cast<std::size_t>(static_cast<uint64_t>(img.width) * pixel_bytes(img.depth));
  if (img.format != PIX_RGB24) {
    for (uint32_t y = 0; y < img.lines_this_strip; ++y) files::write_bytes(f, {img.data + y * stride, line});
    return 0;
  }
  t.row.resize(line);
  for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
    swap_red_blue(img.data + y * stride, t.row.data(), img.width);
    files::write_bytes(f, t.row);
  }
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_read_TGA_file(uint32_t handle, uint16_t command) {
  TgaReader& t = reader();
  Image* img = find_image(handle);
  if (img == nullptr) return report(kReader, code::bad_handle);
  uint64_t strip = 0;
  return t.run(
      kReadPlan, handle, command, [&] { return read_header(handle, *img); },
      [&] { return read_strip(handle, strip); },
      [&]() -> uint32_t {
        PIX_image_free_data(handle);
        if (uint32_t r = PIX_image_malloc_a_strip(handle); is_error(r)) return t.stop(report(kReader, tag_module(r)));
        Image& i = *find_image(handle);
        strip = static_cast<uint64_t>(i.lines_this_strip) * i.bytes_per_line;
        if (sixteen_bit_file()) i.bytes_per_line = 2 * i.width;
        return 0;
      },
      [&]() -> uint32_t {
        if (uint32_t r = PIX_image_check(handle); is_error(r)) {
          return t.stop(report(kReader, tag_module(r), "PIX_image_check failed"));
        }
        return 0;
      });
}

PIX_API uint32_t PIX_CALL PIX_write_TGA_file(uint32_t handle, uint16_t command) {
  if (uint32_t r = check_reported(handle, kWriter); is_error(r)) return r;
  Image& img = *find_image(handle);
  if (img.lines_this_strip == 0) return 0;
  if (!writable(img.format)) {
    return report(kWriter, with_detail(code::unsupported, img.format), "Unsupported image format");
  }
  return writer().run(kWritePlan, handle, command, [&] { return write_header(img); }, [&]() -> uint32_t {
    write_strip(img);  // kept: the worker's result is not looked at
    return 0;
  });
}

}  // extern "C"
