// TIFF files: a reader of uncompressed single-image files in either byte
// order, and a writer of uncompressed Motorola-order files with one fixed
// directory.  Both move pixel data a whole line at a time; only the
// directory is read field by field.
#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"
#include "transfer.h"

using namespace pix;

namespace {

constexpr const char* kReader = "PIX_read_TIFF_file";
constexpr const char* kReaderWorker = "PIX_read_TIFF_file_1_strip";
constexpr const char* kWriter = "PIX_write_TIFF_file";
constexpr const char* kWriterWorker = "PIX_write_TIFF_file_1_strip";

constexpr std::size_t kStripTable = 1024;
// What a failed strip read is combined with on the call that also read the
// header.  Kept: that combination has no error bits, so such a call looks
// successful to its caller; later calls carry the bad-state code.
constexpr uint32_t kPendingAfterHeader = tag_module(0);

enum Tag : uint16_t {
  kNewSubfileType = 254,
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kStripOffsets = 273,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kResolutionUnit = 296,
  kColorMap = 320,
};
enum FieldType : uint16_t { kShort = 3, kLong = 4, kRational = 5 };

using files::seek64;
using files::tell64;

// Positions the stream at `offset`.  A position the stream refuses becomes
// the end of the file, so that what follows reads on with kPastEnd bytes.
void seek_to(FILE* f, uint64_t offset) {
  if (seek64(f, offset, SEEK_SET) != 0) seek64(f, 0, SEEK_END);
}

uint64_t size_of(FILE* f) {
  seek64(f, 0, SEEK_END);
  const uint64_t size = tell64(f);
  seek64(f, 0, SEEK_SET);
  return size;
}

// Lines of a bilevel image hold their pixels packed eight to a byte, first
// pixel in the top bit, padded to the line alignment.  The image check counts
// no bytes for depth 1, so the strip of a bilevel image is sized here.
uint32_t bilevel_line_bytes(uint32_t width) { return static_cast<uint32_t>((static_cast<uint64_t>(width) + 7) / 8); }

// The strip buffer of a bilevel image: the caller's when locked, else a
// fresh one of `lines` packed lines.
uint32_t allocate_bilevel_strip(Image& img, const char* function) {
  const uint64_t stride = bilevel_stride(img);
  if (stride > 0xFFFFFFFFull) return report(function, code::bad_image, "Corrupt image");
  img.bytes_per_line = static_cast<uint32_t>(stride);
  if ((img.flags & PIX_FLAG_LOCKED) != 0 && img.data != nullptr) return 0;
  const uint64_t size = stride * img.lines_this_strip;
  void* block = size <= 0xFFFFFFFFull ? memory::allocate(static_cast<std::size_t>(size)) : nullptr;
  if (block == nullptr) return report(function, with_detail(code::out_of_memory, size));
  img.data = static_cast<uint8_t*>(block);
  return 0;
}

// 16-bit samples: little-endian words in memory, Motorola order in files.
void swap_pairs(const uint8_t* from, uint8_t* to, std::size_t samples) {
  for (std::size_t i = 0; i < samples; ++i) {
    const uint8_t hi = from[2 * i];
    to[2 * i] = from[2 * i + 1];
    to[2 * i + 1] = hi;
  }
}

// ---------------------------------------------------------------------------
// Reader

// Idle, or busy (2) with the header taken and the file open.
struct TiffReader : files::Transfer {
  uint16_t byte_order = 'M';
  // Kept between files: a file without a RowsPerStrip tag uses the previous
  // file's value, one without BitsPerSample the previous bit count.
  uint32_t rows_per_strip = 0;
  uint16_t bits = 0;
  uint32_t line_bytes = 0;  // a file line as the strip reader counts it (16-bit samples for Y16)
  bool nibbles = false;     // 4-bit palette indices
  // Kept between files: offsets a file does not give are the previous file's.
  std::array<uint32_t, kStripTable> strip_offsets{};
  std::vector<uint8_t> row;
};
TiffReader& reader() {
  static TiffReader state;
  return state;
}

// What the directory said, for the classification that follows it.
struct Directory {
  uint32_t photometric = 0xFFFFFFFFu;  // none seen: no class matches
  uint32_t samples = 1;
  bool has_colour_map = false;
  uint32_t map_entries = 0;
  uint32_t map_offset = 0;
};

// The header reader: one open file, one directory.
class HeaderReader {
 public:
  HeaderReader(TiffReader& t, Image& img, uint32_t handle) : t_(t), img_(img), handle_(handle) {}
  uint32_t run();

 private:
  uint32_t fail(uint32_t code, const char* message) { return t_.stop(report(kReader, code, message)); }
  uint32_t entry(uint16_t tag, uint16_t type, uint32_t count);
  uint32_t value(uint16_t type) { return TIFF_read_data(f_, t_.byte_order, type); }
  // Array reads away from the directory are charged to a budget of the file
  // size (plus a margin), so that a directory whose entries point at the same
  // bytes over and over cannot keep the reader busy for minutes.
  bool charge(uint64_t bytes) {
    used_ += bytes;
    return used_ <= budget_;
  }
  uint32_t sum_bits(uint32_t offset, uint32_t count, uint32_t& sum);
  uint32_t classify();
  void read_colour_map();

  TiffReader& t_;
  Image& img_;
  uint32_t handle_;
  FILE* f_ = nullptr;
  Directory dir_;
  uint64_t file_size_ = 0;
  uint64_t budget_ = 0;
  uint64_t used_ = 0;
};

uint32_t HeaderReader::run() {
  if (uint32_t r = t_.open_for_reading(kReader, img_.in_filename); is_error(r)) return r;
  f_ = t_.file();
  file_size_ = size_of(f_);
  budget_ = file_size_ + 65536;
  const uint8_t order = files::get_byte(f_);
  if (order != 'M' && order != 'I') return fail(code::corrupt, "Expecting 'MM' or 'II'");
  t_.byte_order = order;
  files::get_byte(f_);  // the second byte is not compared
  if (TIFF_read_ui16(f_, order) != 42) return fail(code::corrupt, "Expecting 42");
  seek_to(f_, TIFF_read_ui32(f_, order));
  // At most 65535 entries of 12 bytes: the directory itself is short work.
  const uint16_t entries = TIFF_read_ui16(f_, order);
  for (uint32_t i = 0; i < entries; ++i) {
    // Entries past the end of the file read as tag 0xFFFF, which is skipped:
    // stopping there changes nothing.
    if (std::feof(f_) != 0) break;
    const uint16_t tag = TIFF_read_ui16(f_, order);
    const uint16_t type = TIFF_read_ui16(f_, order);
    const uint32_t count = TIFF_read_ui32(f_, order);
    if (uint32_t r = entry(tag, type, count); is_error(r)) return r;
  }
  if (uint32_t r = classify(); is_error(r)) return r;
  if (t_.rows_per_strip == 0 || t_.rows_per_strip == 0xFFFFFFFFu) t_.rows_per_strip = img_.height;
  if (uint32_t r = PIX_image_check(handle_); is_error(r)) return fail(tag_module(r), "PIX_image_check failed");
  return 0;
}

// Reads the 4-byte value field of one entry (and whatever it points at) and
// leaves the stream at the next entry.
uint32_t HeaderReader::entry(uint16_t tag, uint16_t type, uint32_t count) {
  switch (tag) {
    case kNewSubfileType: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::corrupt, "expecting 1 entry in NewSubFileType");
      if (v != 0) return fail(code::corrupt, "expecting single full resolution image");
      return 0;
    }
    case kImageWidth: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::corrupt, "expecting 1 entry in ImageWidth");
      img_.width = v;
      return 0;
    }
    case kImageLength: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::corrupt, "expecting 1 entry in ImageLength");
      img_.height = v;
      return 0;
    }
    case kBitsPerSample: {
      if (count < 3) {
        const uint32_t v = value(type);
        if (count != 0) t_.bits = static_cast<uint16_t>(v);
        return 0;
      }
      // One value a sample: only three samples of eight bits are taken.
      const uint32_t offset = TIFF_read_ui32(f_, t_.byte_order);
      const uint64_t back = tell64(f_);
      uint32_t sum = 0;
      if (uint32_t r = sum_bits(offset, count, sum); is_error(r)) return r;
      seek_to(f_, back);
      t_.bits = static_cast<uint16_t>(sum);
      img_.depth = t_.bits;
      if (img_.depth != 24) return fail(code::unsupported, "unsupported image");
      PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_RGB24);
      return 0;
    }
    case kCompression: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::corrupt, "expecting 1 entry in Compression");
      if (v != 1) return fail(code::unsupported, "compressed TIFF images not supported");
      return 0;
    }
    case kPhotometric: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::unsupported, "expecting 1 entry in PhotometricInterp");
      if (v > 3) return fail(code::unsupported, "unsupported image type");
      dir_.photometric = v;
      return 0;
    }
    case kStripOffsets: {
      // Kept: the single offset is read as 32 bits whatever its type.
      if (count == 1) {
        t_.strip_offsets[0] = TIFF_read_ui32(f_, t_.byte_order);
        return 0;
      }
      const uint32_t offset = TIFF_read_ui32(f_, t_.byte_order);
      // More offsets than the table holds are refused rather than stored
      // past its end.
      if (count > kStripTable) return fail(code::unsupported, "unsupported TIFF format");
      if (!charge(4ull * count)) return fail(code::corrupt, "TIFF directory reads beyond the file");
      const uint64_t back = tell64(f_);
      seek_to(f_, offset);
      // Kept: every entry takes a whole 4-byte field, SHORT entries too.
      for (uint32_t i = 0; i < count; ++i) t_.strip_offsets[i] = value(type);
      seek_to(f_, back);
      return 0;
    }
    case kSamplesPerPixel: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::unsupported, "expecting 1 entry in SamplesPerPixeltr");
      dir_.samples = v;
      return 0;
    }
    case kRowsPerStrip: {
      const uint32_t v = value(type);
      if (count != 1) return fail(code::unsupported, "expecting 1 entry in RowsPerStrip");
      t_.rows_per_strip = v;
      return 0;
    }
    case kColorMap:
      dir_.has_colour_map = true;
      dir_.map_entries = count / 3;
      dir_.map_offset = TIFF_read_ui32(f_, t_.byte_order);
      return 0;
    default:
      files::skip_read(f_, 4);
      return 0;
  }
}

// The sum of `count` 16-bit values at `offset`.  Values past the end of the
// file read as 0xFFFF each; they are added without being read one by one.
uint32_t HeaderReader::sum_bits(uint32_t offset, uint32_t count, uint32_t& sum) {
  const uint64_t in_file = offset < file_size_ ? (file_size_ - offset + 1) / 2 : 0;
  const uint64_t reads = std::min<uint64_t>(count, in_file);
  if (!charge(2 * reads)) return fail(code::corrupt, "TIFF directory reads beyond the file");
  seek_to(f_, offset);
  for (uint64_t i = 0; i < reads; ++i) sum += TIFF_read_ui16(f_, t_.byte_order);
  sum += static_cast<uint32_t>((count - reads) * 0xFFFFull);
  return 0;
}

uint32_t HeaderReader::classify() {
  const uint32_t photometric = dir_.photometric;
  const bool grey = photometric == 0 || photometric == 1;  // kept: white-is-zero is not inverted
  const uint16_t bits = t_.bits;
  t_.nibbles = false;
  if (photometric == 3 && dir_.has_colour_map && dir_.samples == 1 && (bits == 8 || bits == 4)) {
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_PALETTED);
    t_.line_bytes = img_.width;
    t_.nibbles = bits == 4;
    read_colour_map();
    img_.cmap_size = 256;
  } else if (photometric == 2 && dir_.samples == 3 && bits == 24) {
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_RGB24);
    img_.depth = 24;
    t_.line_bytes = static_cast<uint32_t>(std::min<uint64_t>(3ull * img_.width, 0xFFFFFFFFull));
  } else if (grey && dir_.samples == 1 && bits == 8) {
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_Y8);
    img_.depth = 8;
    t_.line_bytes = img_.width;
  } else if (grey && dir_.samples == 1 && bits >= 9 && bits <= 16) {
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_Y16);
    img_.depth = 16;
    img_.data_width = bits;
    t_.line_bytes = img_.width;
  } else if (grey && dir_.samples == 1 && bits == 1) {
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, PIX_BILEVEL);
    img_.depth = 1;
    t_.line_bytes = bilevel_line_bytes(img_.width);
  } else {
    return fail(code::unsupported, "unsupported TIFF format");
  }
  return 0;
}

// Red values, then green, then blue, each 16-bit value taken in Motorola
// order whatever the file's order, its low byte kept.  Entries past the 256
// of the map are passed over.
void HeaderReader::read_colour_map() {
  if (img_.cmap == nullptr) return;
  const uint32_t n = dir_.map_entries;
  const uint32_t kept = std::min<uint32_t>(n, 256);
  for (int channel = 0; channel < 3; ++channel) {
    seek_to(f_, dir_.map_offset + 2ull * n * static_cast<unsigned>(channel));
    for (uint32_t i = 0; i < kept; ++i) {
      const uint8_t v = static_cast<uint8_t>(get_ui16m(f_));
      tPIX_Colour& c = img_.cmap[i];
      (channel == 0 ? c.red : channel == 1 ? c.green : c.blue) = v;
    }
  }
}

// One strip of lines_this_strip lines from the file into a fresh strip.
uint32_t read_1_strip(TiffReader& t, uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return report(kReaderWorker, code::bad_handle);
  if (!t.stream.is_open()) return report(kReaderWorker, code::bad_state, "No TIFF file open");
  PIX_image_free_data(handle);
  const bool bilevel = img->format == PIX_BILEVEL;
  if (uint32_t r = bilevel ? allocate_bilevel_strip(*img, kReaderWorker) : PIX_image_malloc_a_strip(handle);
      is_error(r)) {
    return r;
  }
  FILE* f = t.file();
  const uint64_t stride = img->bytes_per_line;
  const bool y16 = img->format == PIX_Y16;
  const uint64_t file_line = y16 ? 2ull * t.line_bytes : t.nibbles ? (t.line_bytes + 1ull) / 2 : t.line_bytes;
  // Never more than the image's own line: a width changed since the header
  // cannot make a line run into the next one.
  const std::size_t room = static_cast<std::size_t>(std::min<uint64_t>(stride, file_line * (t.nibbles ? 2 : 1)));
  const uint32_t skip = PIX_image_calc_skip_bytes(img->width, img->depth, 1);
  if (y16 || t.nibbles) t.row.resize(static_cast<std::size_t>(file_line));
  // Lines that lie back to back both in the file and in the strip are read
  // together, up to the end of the file's strip.
  const bool contiguous = !y16 && !t.nibbles && room == file_line && stride == file_line && skip == 0;
  for (uint32_t r = 0; r < img->lines_this_strip;) {
    const uint64_t line = static_cast<uint64_t>(t.progress.lines_done) + r;
    uint64_t run = img->lines_this_strip - r;
    if (t.rows_per_strip != 0) {
      if (line % t.rows_per_strip == 0) {
        const uint64_t index = line / t.rows_per_strip;
        if (index >= kStripTable) return report(kReaderWorker, code::corrupt, "strip beyond the strip offset table");
        seek_to(f, t.strip_offsets[static_cast<std::size_t>(index)]);
      }
      run = std::min<uint64_t>(run, t.rows_per_strip - line % t.rows_per_strip);
    }
    if (!contiguous) run = 1;
    uint8_t* out = img->data + r * stride;
    if (y16) {
      files::read_or_fill(f, t.row);
      swap_pairs(t.row.data(), out, room / 2);
    } else if (t.nibbles) {
      // Kept: an odd width takes one nibble more than the width; it lands in
      // the line's padding when there is any, and is dropped otherwise.
      files::read_or_fill(f, t.row);
      for (std::size_t i = 0; i < room; ++i) {
        const uint8_t b = t.row[i / 2];
        out[i] = (i & 1) != 0 ? b & 0x0F : b >> 4;
      }
    } else {
      files::read_or_fill(f, {out, static_cast<std::size_t>(room * run)});
      if (room < file_line) files::skip_read(f, static_cast<std::size_t>(file_line - room));
    }
    files::skip_read(f, skip);
    r += static_cast<uint32_t>(run);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Writer

// Idle, or busy (2) with the header written and the file open.
struct TiffWriter : files::Transfer {
  uint32_t line_bytes = 0;  // bytes a line in the file
  std::vector<uint8_t> row;
};
TiffWriter& writer() {
  static TiffWriter state;
  return state;
}

// Kept: a failed close leaves the reader busy, so that another command 4
// can end it.  Destroying every image ends both runs; what the reader keeps
// between files stays.
constexpr files::Plan kReadPlan{
    .function = kReader, .header_only = true, .ending = {.busy_after_failed_finish = true}};
constexpr files::Plan kWritePlan{.function = kWriter};

// The header, built whole and written at once.
class HeaderBuilder {
 public:
  void u16(uint32_t v) {
    bytes_.push_back(static_cast<uint8_t>(v >> 8));
    bytes_.push_back(static_cast<uint8_t>(v));
  }
  void u32(uint32_t v) {
    u16(v >> 16);
    u16(v & 0xFFFF);
  }
  // One entry; gives the position of its value field.  A single SHORT
  // stands in the field's first two bytes; the field of a longer array holds
  // the array's 32-bit offset.
  std::size_t entry(uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
    u16(tag);
    u16(type);
    u32(count);
    const std::size_t at = bytes_.size();
    if (type == kShort && count == 1) {
      u16(value & 0xFFFF);
      u16(0);
    } else {
      u32(value);
    }
    return at;
  }
  void patch(std::size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes_[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  }
  uint32_t here() const { return static_cast<uint32_t>(bytes_.size()); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// Bytes a line as StripByteCounts counts it.  Kept: a Y16 line is counted at
// one byte a pixel although two are written.
uint64_t counted_line_bytes(const Image& img) {
  switch (img.format) {
    case PIX_CMYK32: return 4ull * img.width;
    case PIX_RGB24: return 3ull * img.width;
    case PIX_BILEVEL: return bilevel_line_bytes(img.width);
    default: return img.width;
  }
}

std::vector<uint8_t> build_header(const Image& img) {
  const uint16_t f = img.format;
  const bool colour = f == PIX_RGB24 || f == PIX_CMYK32;
  const uint32_t samples = f == PIX_RGB24 ? 3 : f == PIX_CMYK32 ? 4 : 1;
  const uint32_t photometric = f == PIX_RGB24 ? 2 : f == PIX_CMYK32 ? 5 : f == PIX_PALETTED ? 3 : 1;
  const uint32_t bits = f == PIX_BILEVEL ? 1 : f == PIX_Y16 ? img.data_width : 8;

  HeaderBuilder h;
  h.u16(19789);  // "MM"
  h.u16(42);
  h.u32(8);
  h.u16(colour || f == PIX_PALETTED ? 14 : 13);
  h.entry(kNewSubfileType, kLong, 1, 0);
  h.entry(kImageWidth, kShort, 1, img.width);
  h.entry(kImageLength, kShort, 1, img.height);
  const std::size_t bits_field = h.entry(kBitsPerSample, kShort, colour ? samples : 1, colour ? 8 : bits);
  h.entry(kCompression, kShort, 1, 1);
  h.entry(kPhotometric, kShort, 1, photometric);
  const std::size_t data_field = h.entry(kStripOffsets, kLong, 1, 0);
  h.entry(kSamplesPerPixel, kShort, 1, samples);
  h.entry(kRowsPerStrip, kLong, 1, img.height);
  h.entry(kStripByteCounts, kLong, 1, static_cast<uint32_t>(img.height * counted_line_bytes(img)));
  const std::size_t x_field = h.entry(kXResolution, kRational, 1, 0);
  const std::size_t y_field = h.entry(kYResolution, kRational, 1, 0);
  if (colour) h.entry(kPlanarConfiguration, kShort, 1, 1);
  h.entry(kResolutionUnit, kShort, 1, 1);
  if (f == PIX_PALETTED) {
    const std::size_t map_field = h.here() + 8;
    h.entry(kColorMap, kShort, 3u * img.cmap_size, static_cast<uint32_t>(map_field + 8));
  }
  h.u32(0);  // no next directory
  if (f == PIX_PALETTED) {
    // Each 8-bit entry written twice: v becomes v * 257.
    for (int channel = 0; channel < 3; ++channel) {
      for (uint32_t i = 0; i < img.cmap_size; ++i) {
        const tPIX_Colour& c = img.cmap[i];
        const uint8_t v = channel == 0 ? c.red : channel == 1 ? c.green : c.blue;
        h.u16(v * 257u);
      }
    }
  } else if (colour) {
    h.patch(bits_field, h.here());
    for (uint32_t i = 0; i < samples; ++i) h.u16(8);
  }
  h.patch(x_field, h.here());
  h.u32(300);
  h.u32(1);
  h.patch(y_field, h.here());
  h.u32(300);
  h.u32(1);
  h.patch(data_field, h.here());
  return h.bytes();
}

uint32_t start_write(TiffWriter& w, uint32_t handle) {
  if (uint32_t r = check_reported(handle, kWriter); is_error(r)) return r;
  const Image& img = *find_image(handle);
  switch (img.format) {
    case PIX_BILEVEL: case PIX_Y8: case PIX_PALETTED: case PIX_RGB24: case PIX_CMYK32: case PIX_Y16: break;
    default: return report(kWriter, with_detail(code::unsupported, img.format), "Unsupported image format");
  }
  if (img.format == PIX_PALETTED && img.cmap_size != 256) {
    return report(kWriter, with_detail(code::unsupported, img.cmap_size), "Unsupported palette/colourmap size");
  }
  if (uint32_t r = w.open_for_writing(kWriter, img.out_filename); is_error(r)) return r;
  const std::vector<uint8_t> header = build_header(img);
  files::write_bytes(w.file(), header);
  w.line_bytes = static_cast<uint32_t>(
      std::min<uint64_t>(img.format == PIX_Y16 ? 2ull * img.width : counted_line_bytes(img), 0xFFFFFFFFull));
  return 0;
}

uint32_t write_1_strip(TiffWriter& w, const Image& img) {
  if (img.lines_this_strip == 0) return 0;
  if (img.data == nullptr) return report(kWriterWorker, code::bad_image, "No image data");
  // Lines step by the image's own stride: the padding after a line is skipped.
  const uint64_t stride = img.format == PIX_BILEVEL ? bilevel_stride(img) : img.bytes_per_line;
  if (stride < w.line_bytes) return report(kWriterWorker, code::bad_image, "Corrupt image");
  FILE* f = w.file();
  if (f == nullptr) return report(kWriterWorker, code::bad_state, "No TIFF file open");
  const std::size_t len = w.line_bytes;
  if (img.format == PIX_Y16) {
    w.row.resize(len);
    for (uint32_t r = 0; r < img.lines_this_strip; ++r) {
      swap_pairs(img.data + r * stride, w.row.data(), len / 2);
      files::write_bytes(f, w.row);
    }
  } else if (stride == len) {
    files::write_bytes(f, {img.data, static_cast<std::size_t>(len * img.lines_this_strip)});
  } else {
    for (uint32_t r = 0; r < img.lines_this_strip; ++r) files::write_bytes(f, {img.data + r * stride, len});
  }
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_read_TIFF_file(uint32_t handle, uint16_t command) {
  TiffReader& t = reader();
  Image* img = find_image(handle);
  if (img == nullptr) return report(kReader, code::bad_handle);
  // A failed strip is passed on combined with what the reader had pending.
  uint32_t pending = code::bad_state;
  return t.run(
      kReadPlan, handle, command,
      [&] {
        pending = kPendingAfterHeader;
        return HeaderReader(t, *img, handle).run();
      },
      [&]() -> uint32_t {
        if (uint32_t r = read_1_strip(t, handle); is_error(r)) return t.stop(report(kReader, tag_module(pending)));
        return 0;
      });
}

PIX_API uint32_t PIX_CALL PIX_write_TIFF_file(uint32_t handle, uint16_t command) {
  TiffWriter& w = writer();
  return w.run(kWritePlan, handle, command, [&] { return start_write(w, handle); },
               [&] { return write_1_strip(w, *find_image(handle)); });
}

}  // extern "C"
