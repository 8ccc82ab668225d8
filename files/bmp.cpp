// Uncompressed Windows bitmap files of 8 and 24 bits per pixel, read and
// written strip by strip.
//
// The file layout is fixed: a 54-byte header, for 8-bit files a palette of
// 256 entries, then the rows bottom-up, each padded to 4 bytes.  The reader
// takes width, height, depth and compression from the header and nothing
// else: pixel data always starts at 1078 (8-bit) or 54 (24-bit).  Kept:
// files written by this library and by the applications built on it are
// read this way, and some of them have header fields that do not agree.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "convert/kernels/direct.h"
#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"
#include "transfer.h"

using namespace pix;

namespace {

constexpr const char* kRead = "PIX_read_BMP_file";
constexpr const char* kReadStrip = "PIX_read_BMP_file_1_strip";
constexpr const char* kWrite = "PIX_write_BMP_file";
constexpr const char* kWriteStrip = "PIX_write_BMP_file_1_strip";

// Entry points refuse a handle that names no record with this bare code.
constexpr uint32_t kNoRecord = 0x00010000u;

constexpr uint16_t kHeaderTaken = 2;    // reader: header read, file open
constexpr uint16_t kHeaderWritten = 3;  // writer: header and blank pixel area written, file open

constexpr uint32_t kPaletteAt = 54;
constexpr uint32_t kPaletteBytes = 4 * PIX_CMAP_ENTRIES;

// Rows are moved through a buffer of about this many bytes (whole rows, at
// least one), so that a strip costs a few large reads or writes.
constexpr uint64_t kChunkBytes = 64 * 1024;

struct BmpWriter : files::Transfer {
  // The blank pixel area was left out because the first strip covers every
  // row; it is written after all if that strip fails.
  bool area_pending = false;
  void end_run() noexcept override { area_pending = false; }
};
// One read and one write can be under way at a time, library-wide.
files::Transfer& reader() noexcept {
  static files::Transfer state;
  return state;
}
BmpWriter& writer() noexcept {
  static BmpWriter state;
  return state;
}
constexpr files::Plan kReadPlan{.function = kRead, .busy = kHeaderTaken, .header_only = true};
constexpr files::Plan kWritePlan{.function = kWrite, .busy = kHeaderWritten};

constexpr bool writable(uint16_t format) { return format == PIX_Y8 || format == PIX_PALETTED || format == PIX_RGB24; }

constexpr uint32_t data_offset(bool eight_bit) { return eight_bit ? kPaletteAt + kPaletteBytes : kPaletteAt; }

// Bytes of one file row: the pixels padded to a multiple of 4.
constexpr uint64_t file_stride(uint32_t width, bool eight_bit) {
  const uint64_t bytes = static_cast<uint64_t>(width) * (eight_bit ? 1 : 3);
  return (bytes + 3) & ~uint64_t{3};
}

// Seeks to row `row` (counted from the file's first, bottom row); false
// when the position cannot be reached.
bool seek_row(FILE* f, uint64_t row, uint64_t stride, uint32_t offset) {
  constexpr uint64_t kLimit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (stride != 0 && row > (kLimit - offset) / stride) return false;
  return files::seek64(f, row * stride + offset, SEEK_SET) == 0;
}

// Index of the strip's lowest row among the file's rows.
uint64_t lowest_row(const Image& img, uint32_t first) {
  const uint64_t above = static_cast<uint64_t>(first) + img.lines_this_strip;
  return img.height > above ? img.height - above : 0;
}

// A row buffer of at least `pitch` bytes that also holds `rows` file rows,
// rows chosen to fill about kChunkBytes.
struct Chunk {
  memory::Owned<uint8_t> bytes;
  uint32_t rows = 1;
};
Chunk make_chunk(uint64_t pitch, uint64_t stride, uint32_t lines) {
  Chunk c;
  const uint64_t fit = stride == 0 ? lines : kChunkBytes / stride;
  c.rows = static_cast<uint32_t>(std::clamp<uint64_t>(fit, 1, std::max<uint32_t>(lines, 1)));
  const uint64_t size = std::max(pitch, stride * c.rows);
  if (size <= std::numeric_limits<std::size_t>::max()) {
    c.bytes.reset(static_cast<uint8_t*>(memory::allocate(static_cast<std::size_t>(size))));
  }
  return c;
}

// ---------------------------------------------------------------------------
// Reading

uint32_t read_strip(Image& img, FILE* f, uint32_t first) {
  if (img.format != PIX_PALETTED && img.format != PIX_RGB24) {
    return report(kReadStrip, code::unsupported, "Unsupported image format");
  }
  const bool eight = img.format == PIX_PALETTED;
  const uint32_t n = img.lines_this_strip;
  const uint64_t stride = file_stride(img.width, eight);
  if (!seek_row(f, lowest_row(img, first), stride, data_offset(eight))) {
    return report(kReadStrip, code::seek_failed, "fseek failed");
  }
  const uint64_t pitch = img.bytes_per_line;
  Chunk chunk = make_chunk(pitch, stride, n);
  if (chunk.bytes == nullptr) return report(kReadStrip, with_detail(code::out_of_memory, pitch));
  if (n == 0) return 0;
  const std::size_t row_bytes = static_cast<std::size_t>(static_cast<uint64_t>(img.width) * (eight ? 1 : 3));
  const convert::kernels::DirectRow swap_rb =
      convert::kernels::direct_row(convert::kernels::Direct::bgr24, convert::kernels::Direct::rgb24);
  // The file holds the strip's rows lowest first; each goes straight to its
  // place, so the strip ends top row first as the image keeps it.
  for (uint32_t done = 0; done < n;) {
    const uint32_t rows = std::min(chunk.rows, n - done);
    files::read_or_fill(f, {chunk.bytes.get(), static_cast<std::size_t>(stride * rows)});
    for (uint32_t i = 0; i < rows; ++i) {
      const uint8_t* from = chunk.bytes.get() + i * stride;
      uint8_t* to = img.data + (n - 1 - (done + i)) * pitch;
      if (eight) {
        std::memcpy(to, from, row_bytes);
      } else {
        swap_rb(from, to, img.width, 0);
      }
    }
    done += rows;
  }
  return 0;
}

// Width, height and depth into the record, then palette and format, then the
// compression test and the image check.
uint32_t read_header(uint32_t handle, files::Transfer& t) {
  Image* img = find_image(handle);
  if (uint32_t r = t.open_for_reading(kRead, img->in_filename); is_error(r)) return r;
  FILE* f = t.file();
  std::fseek(f, 18, SEEK_SET);
  img->width = get_ui32i(f);
  img->height = get_ui32i(f);
  get_ui16i(f);  // planes
  img->depth = get_ui16i(f);
  // Kept: the header counts as taken from here on, so that a refused depth
  // or compression leaves the file open for a finishing call.
  t.progress.state = kHeaderTaken;
  if (img->depth == 8) {
    uint8_t palette[kPaletteBytes];
    std::fseek(f, kPaletteAt, SEEK_SET);
    files::read_or_fill(f, palette);
    if (img->cmap != nullptr) {
      for (uint32_t i = 0; i < PIX_CMAP_ENTRIES; ++i) {
        img->cmap[i].red = palette[4 * i + 2];
        img->cmap[i].green = palette[4 * i + 1];
        img->cmap[i].blue = palette[4 * i];
      }
    }
    if (uint32_t r = PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, PIX_PALETTED); is_error(r)) return r;
  } else if (img->depth == 24) {
    if (uint32_t r = PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, PIX_RGB24); is_error(r)) return r;
  } else {
    return report(kRead, code::unsupported, "Unsupported image depth");
  }
  // Kept: only the low half of the 32-bit compression field is looked at.
  std::fseek(f, 30, SEEK_SET);
  const uint16_t compression = get_ui16i(f);
  if (compression == 1 || compression == 2) return report(kRead, code::unsupported, "Compressed images not supported");
  if (compression != 0) return report(kRead, code::unsupported, "Unrecognized compression type");
  if (uint32_t r = PIX_image_check(handle); is_error(r)) {
    return t.stop(report(kRead, tag_module(r), "PIX_image_check failed"));
  }
  return 0;
}

uint32_t read_bmp(uint32_t handle, uint16_t command) {
  files::Transfer& t = reader();
  Image* img = find_image(handle);
  if (img == nullptr) return report(kRead, kNoRecord);
  return t.run(
      kReadPlan, handle, command, [&] { return read_header(handle, t); },
      [&] { return read_strip(*img, t.file(), t.progress.lines_done); },
      [&]() -> uint32_t {
        PIX_image_free_data(handle);
        if (uint32_t r = PIX_image_malloc_a_strip(handle); is_error(r)) return t.stop(report(kRead, tag_module(r)));
        return 0;
      });
}

// ---------------------------------------------------------------------------
// Writing

// Swaps the strip's rows end for end through `line`.  Kept: the writer
// leaves them so; applications that write a strip and then use it expect
// the reversed rows.
void reverse_rows(Image& img, uint8_t* line) {
  const uint32_t n = img.lines_this_strip;
  const std::size_t pitch = img.bytes_per_line;
  for (uint32_t i = 0; i < n / 2; ++i) {
    uint8_t* a = img.data + static_cast<std::size_t>(i) * pitch;
    uint8_t* b = img.data + static_cast<std::size_t>(n - 1 - i) * pitch;
    std::memcpy(line, a, pitch);
    std::memcpy(a, b, pitch);
    std::memcpy(b, line, pitch);
  }
}

uint32_t write_strip(Image& img, FILE* f, uint32_t first) {
  if (!writable(img.format)) {
    return report(kWriteStrip, code::unsupported, "Unsupported image format");
  }
  const uint32_t n = img.lines_this_strip;
  if (img.data == nullptr && n != 0) return report(kWriteStrip, code::bad_image, "No image data");
  const bool eight = img.format != PIX_RGB24;
  const uint64_t stride = file_stride(img.width, eight);
  const uint64_t pitch = img.bytes_per_line;
  // One buffer serves as the line buffer of the swap and then holds the
  // file rows on their way out.
  Chunk chunk = make_chunk(pitch, stride, n);
  if (chunk.bytes == nullptr) {
    return report(kWriteStrip, with_detail(code::out_of_memory, pitch), "Attempting to malloc:");
  }
  reverse_rows(img, chunk.bytes.get());
  if (!seek_row(f, lowest_row(img, first), stride, data_offset(eight))) {
    return report(kWriteStrip, code::seek_failed, "fseek failed");
  }
  const std::size_t row_bytes = static_cast<std::size_t>(static_cast<uint64_t>(img.width) * (eight ? 1 : 3));
  const convert::kernels::DirectRow swap_rb =
      convert::kernels::direct_row(convert::kernels::Direct::rgb24, convert::kernels::Direct::bgr24);
  for (uint32_t done = 0; done < n;) {
    const uint32_t rows = std::min(chunk.rows, n - done);
    for (uint32_t i = 0; i < rows; ++i) {
      const uint8_t* from = img.data + (done + i) * pitch;
      uint8_t* to = chunk.bytes.get() + i * stride;
      if (eight) {
        std::memcpy(to, from, row_bytes);
      } else {
        swap_rb(from, to, img.width, 0);
      }
      std::memset(to + row_bytes, 0, static_cast<std::size_t>(stride - row_bytes));
    }
    // A failed write fails the run when the file is closed.
    if (!files::write_bytes(f, {chunk.bytes.get(), static_cast<std::size_t>(stride * rows)})) break;
    done += rows;
  }
  return 0;
}

void put_header(FILE* f, const Image& img, bool eight) {
  const uint64_t area = file_stride(img.width, eight) * img.height;
  const uint32_t offset = data_offset(eight);
  std::fwrite("BM", 1, 2, f);
  put_ui32i(f, static_cast<uint32_t>(area + offset));
  put_ui16i(f, 0);
  put_ui16i(f, 0);
  put_ui32i(f, offset);
  put_ui32i(f, 40);
  put_ui32i(f, img.width);
  put_ui32i(f, img.height);
  put_ui16i(f, 1);
  put_ui16i(f, eight ? 8 : 24);
  put_ui32i(f, 0);  // compression
  put_ui32i(f, static_cast<uint32_t>(area));
  for (int i = 0; i < 4; ++i) put_ui32i(f, 0);  // resolutions, colours used and important
}

uint32_t begin_file(uint32_t handle, BmpWriter& t, uint16_t command) {
  Image* img = find_image(handle);
  if (uint32_t r = t.open_for_writing(kWrite, img->out_filename); is_error(r)) return r;
  FILE* f = t.file();
  const bool eight = img->format != PIX_RGB24;
  put_header(f, *img, eight);
  if (eight) {
    if (img->format == PIX_Y8) {
      if (uint32_t r = PIX_cmap_set_type(handle, 2); is_error(r)) return t.stop(r);
    }
    uint8_t palette[kPaletteBytes] = {};
    if (img->cmap != nullptr) {
      for (uint32_t i = 0; i < PIX_CMAP_ENTRIES; ++i) {
        palette[4 * i] = img->cmap[i].blue;
        palette[4 * i + 1] = img->cmap[i].green;
        palette[4 * i + 2] = img->cmap[i].red;
      }
    }
    files::write_bytes(f, palette);
  }
  // The whole pixel area exists before any strip is placed, so strips may
  // land anywhere in it.  When the first strip covers every row it writes
  // the area itself, in the same order.
  const uint64_t area = file_stride(img->width, eight) * img->height;
  t.area_pending = command == stage::kNext && img->lines_this_strip >= img->height && area != 0;
  if (!t.area_pending) files::write_zeros(f, static_cast<std::size_t>(area));
  return 0;
}

uint32_t write_bmp(uint32_t handle, uint16_t command) {
  BmpWriter& t = writer();
  Image* img = find_image(handle);
  if (img == nullptr) return report(kWrite, kNoRecord);
  if (uint32_t r = check_reported(handle, kWrite); is_error(r)) return r;
  if (!writable(img->format)) {
    return report(kWrite, with_detail(code::unsupported, img->format), "Unsupported image format");
  }
  return t.run(kWritePlan, handle, command, [&] { return begin_file(handle, t, command); }, [&]() -> uint32_t {
    const uint32_t r = write_strip(*img, t.file(), t.progress.lines_done);
    if (t.area_pending) {
      t.area_pending = false;
      const bool eight = img->format != PIX_RGB24;
      if (is_error(r) && seek_row(t.file(), 0, 0, data_offset(eight))) {
        files::write_zeros(t.file(), static_cast<std::size_t>(file_stride(img->width, eight) * img->height));
      }
    }
    return r;
  });
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_read_BMP_file(uint32_t handle, uint16_t command) { return read_bmp(handle, command); }

PIX_API uint32_t PIX_CALL PIX_write_BMP_file(uint32_t handle, uint16_t command) { return write_bmp(handle, command); }

}  // extern "C"
