// The front door of the file subsystem: content detection and the read and
// write dispatchers.
#include <cstring>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/status.h"
#include "stream.h"

using namespace pix;

namespace {

constexpr uint32_t kUnsupportedFormat = code::unsupported;
constexpr const char* kUnsupportedText = "Unsupported/unrecognized image format";

// The read dispatcher's library-wide state: one file is read at a time.
struct ReadDispatch : Releasable {
  uint16_t state = 1;  // 1 idle, 2 a file in progress
  uint16_t format = PIX_FILE_UNRECOGNISED;
  uint32_t lines_read = 0;
  void release() noexcept override {
    state = 1;
    format = PIX_FILE_UNRECOGNISED;
    lines_read = 0;
  }
};
ReadDispatch& read_dispatch() noexcept {
  static ReadDispatch state;
  return state;
}

uint16_t read_u16(FILE* f, uint8_t order) { return TIFF_read_ui16(f, order); }

bool looks_like_tiff(FILE* f) {
  std::fseek(f, 0, SEEK_SET);
  const uint8_t order = files::get_byte(f);
  if (order != 'M' && order != 'I') return false;
  files::get_byte(f);  // kept: the second byte is never compared
  if (read_u16(f, order) != 42) return false;
  const uint32_t directory = TIFF_read_ui32(f, order);
  // An offset beyond what fseek can take cannot name a directory.
  if (directory > 0x7FFFFFFFu) return false;
  std::fseek(f, static_cast<long>(directory), SEEK_SET);
  read_u16(f, order);  // entry count
  read_u16(f, order);  // first tag
  const uint16_t type = read_u16(f, order);
  TIFF_read_ui32(f, order);  // count
  return type >= 1 && type <= 11;
}

bool looks_like_tga(FILE* f) {
  std::fseek(f, 1, SEEK_SET);
  const uint8_t map_type = files::get_byte(f);
  if (map_type > 1) return false;
  const uint8_t image_type = files::get_byte(f);
  if (image_type != 1 && image_type != 2 && image_type != 3 && (image_type < 9 || image_type > 11)) return false;
  std::fseek(f, 16, SEEK_SET);
  const uint8_t depth = files::get_byte(f);
  return depth == 1 || depth == 8 || depth == 16 || depth == 24 || depth == 32;
}

bool starts_with(FILE* f, const char* text) {
  std::fseek(f, 0, SEEK_SET);
  for (const char* p = text; *p != '\0'; ++p) {
    if (files::get_byte(f) != static_cast<uint8_t>(*p)) return false;
  }
  return true;
}

bool looks_like_bmp(FILE* f) {
  if (!starts_with(f, "BM")) return false;
  std::fseek(f, 6, SEEK_SET);  // the file size is not looked at
  for (int i = 0; i < 4; ++i) {
    if (files::get_byte(f) != 0) return false;
  }
  return true;
}

uint16_t detect(FILE* f) {
  if (looks_like_tiff(f)) return PIX_FILE_TIFF;
  if (looks_like_tga(f)) return PIX_FILE_TGA;
  if (starts_with(f, "\xFF\xD8")) return PIX_FILE_JPEG;
  if (starts_with(f, "%!PS")) return PIX_FILE_EPS;
  if (looks_like_bmp(f)) return PIX_FILE_BMP;
  return PIX_FILE_UNRECOGNISED;
}

// The reader of a file format code for commands 3 and 4, or null (JPEG
// files have readers of their own, below).
using Reader = uint32_t(PIX_CALL*)(uint32_t, uint16_t);
Reader reader_for(uint16_t format) {
  switch (format) {
    case PIX_FILE_TIFF: return PIX_read_TIFF_file;
    case PIX_FILE_TGA: return PIX_read_TGA_file;
    case PIX_FILE_EPS: return PIX_read_EPS_file;
    case PIX_FILE_BMP: return PIX_read_BMP_file;
    default: return nullptr;
  }
}

bool known(uint16_t format) {
  return format == PIX_FILE_MEMORY || format == PIX_FILE_JPEG || reader_for(format) != nullptr;
}

uint32_t read_strip(uint32_t handle, uint32_t memory, uint16_t format, uint16_t command) {
  // Kept: the image named first holds the picture, the memory image receives it.
  if (format == PIX_FILE_MEMORY) return PIX_read_from_memory(handle, memory, command);
  if (format == PIX_FILE_JPEG) {
    // The JPEG reader reads the whole stream in one call, and there is
    // nothing to finish.  An image without strip lines asks for the header
    // alone: the stream is opened, parsed to its scan and closed again.
    if (command != PIX_STRIP_NEXT) return 0;
    const Image* img = find_image(handle);
    if (img != nullptr && img->lines_this_strip == 0) {
      if (uint32_t r = PIX_JPEG_file_open(handle); r != 0) return r;
      return PIX_JPEG_file_close(handle);
    }
    return PIX_JPEG_file_read(handle);
  }
  return reader_for(format)(handle, command);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_image_find_file_format(const char* filename) {
  static constexpr const char* kName = "PIX_image_find_file_format";
  files::Stream stream;
  if (filename == nullptr || !stream.open(filename, "rb")) return report(kName, code::open_failed, "Failed to open file");
  const uint16_t format = detect(stream.get());
  if (!stream.close()) return report(kName, code::close_failed, "Failed to close file");
  return format;
}

PIX_API uint32_t PIX_CALL PIX_image_read(uint32_t handle, uint32_t memory, uint16_t command) {
  static constexpr const char* kName = "PIX_image_read";
  ReadDispatch& d = read_dispatch();
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  if (d.state == 1) {
    d.lines_read = 0;
    if (memory == 0) {
      d.format = PIX_FILE_PENDING;
      const uint32_t found = PIX_image_find_file_format(img->in_filename);
      if (is_error(found)) return report(kName, found, "Failed to recognise file format");
      d.format = static_cast<uint16_t>(found);
    } else {
      d.format = PIX_FILE_MEMORY;
    }
    d.state = 2;
  }
  if (img->height == 32767) {
    // The whole image in one strip: the header first (a strip of no lines
    // reads only the header, which sets the real height), then every line.
    img->lines_this_strip = 0;
    img->height = 0;
    if (uint32_t r = PIX_image_read(handle, memory, PIX_STRIP_NEXT); is_error(r)) {
      d.state = 1;
      return r;
    }
    img = find_image(handle);
    if (img == nullptr) return report(kName, code::bad_handle);
    img->lines_this_strip = img->height;
  }
  // An unknown format is refused on commands 3 and 4 with the dispatcher
  // left busy: kept, applications see the same error until they send
  // another command.
  if (command == PIX_STRIP_NEXT) {
    if (!known(d.format)) return report(kName, kUnsupportedFormat, kUnsupportedText);
    const uint32_t r = read_strip(handle, memory, d.format, command);
    img = find_image(handle);
    if (img != nullptr) d.lines_read += img->lines_this_strip;
    if (r != 0) {
      d.state = 1;
      return r;
    }
    if (img == nullptr || d.lines_read >= img->height) d.state = 1;
    return 0;
  }
  if (command == PIX_STRIP_FINISH) {
    if (!known(d.format)) return report(kName, kUnsupportedFormat, kUnsupportedText);
    read_strip(handle, memory, d.format, command);
    d.state = 1;
    return 0;
  }
  // Kept: this code carries no module byte, and nothing is reported.
  d.state = 1;
  return status(0, PIX_ERR_BAD_STATE);
}

PIX_API uint32_t PIX_CALL PIX_image_write(uint32_t handle, uint32_t memory, uint16_t file_format, uint16_t command) {
  switch (file_format) {
    case PIX_FILE_MEMORY: return PIX_write_to_memory(handle, memory, command);
    case PIX_FILE_TIFF: return PIX_write_TIFF_file(handle, command);
    case PIX_FILE_JPEG: return PIX_JPEG_file_write(handle, command);
    case PIX_FILE_TGA:
    case 6:
    case 7: return PIX_write_TGA_file(handle, command);
    case PIX_FILE_EPS: return PIX_write_EPS_file(handle, command);
    case PIX_FILE_BMP: return PIX_write_BMP_file(handle, command);
    case PIX_FILE_RAW: return PIX_write_raw_data_file(handle, command);
    default: return report("PIX_image_write", kUnsupportedFormat, kUnsupportedText);
  }
}

}  // extern "C"
