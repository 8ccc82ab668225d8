// Reading JPEG streams into an image's record: one marker parser over two
// sources, a file and a caller's buffer.
//
// The parser walks the marker segments (SOI first; APP0 and COM skipped;
// DQT, SOF0, DHT and SOS taken into the record and the image), and after an
// SOS copies the entropy-coded data into the record's buffer as it stands,
// stuffing and restart markers kept: every RST counts one more frame of a
// sequence.  The sources differ only where the stream ends: a file at its
// end (or at EOI, which closes it), a buffer when fewer than two bytes
// remain before a segment.  Bytes past either end read as 0xFF, as from a
// stream at its end; nothing is read or stored outside the input, the
// record's arrays or the data buffer.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "core/image.h"
#include "core/status.h"
#include "files/stream.h"
#include "jpeg_state.h"
#include "stream_data.h"

using namespace pix;
using namespace pix::jpeg;

namespace pix::jpeg {

std::size_t data_span(const Tjpeg& record) noexcept {
  if (record.data == nullptr) return 0;
  const std::size_t capacity = capacity_of(record);
  return capacity != 0 ? std::min<std::size_t>(record.length, capacity) : record.length;
}

std::size_t offset_in(const Tjpeg& record, const uint8_t* at) noexcept {
  const auto base = reinterpret_cast<std::uintptr_t>(record.data);
  const auto p = reinterpret_cast<std::uintptr_t>(at);
  return record.data != nullptr && at != nullptr && p >= base && p - base <= data_span(record) ? p - base : 0;
}

}  // namespace pix::jpeg

namespace {

constexpr const char* kFileRead = "PIX_JPEG_file_read";
constexpr const char* kFileOpen = "PIX_JPEG_file_open";
constexpr const char* kFileClose = "PIX_JPEG_file_close";
constexpr const char* kBufferRead = "PIX_JPEG_buffer_read";

constexpr uint8_t kSOF0 = 0xC0, kDHT = 0xC4, kSOI = 0xD8, kEOI = 0xD9, kSOS = 0xDA, kDQT = 0xDB, kDRI = 0xDD;
constexpr uint8_t kAPP0 = 0xE0, kCOM = 0xFE;
constexpr std::size_t kChunk = 65536;

// The stream in a file.  Segments are read a byte at a time through the
// stream's own buffer; the data copy reads whole chunks and seeks back to the
// marker that ends it.
class FileSource {
 public:
  explicit FileSource(FILE* f) : f_(f) {}
  static constexpr const char* kShort = "Unexpected end of file";
  int next() { return std::getc(f_); }
  uint8_t byte() { return files::get_byte(f_); }
  bool ended_before_segment() const { return false; }
  uint64_t offset() const { return files::tell64(f_); }
  void skip(uint64_t n) { files::seek64(f_, n, SEEK_CUR); }
  bool has(std::size_t) const { return true; }  // an end inside a table shows when its values are read
  bool take(uint8_t* to, std::size_t n) { return files::read_or_fill(f_, {to, n}) == n; }
  template <class Out>
  DataScan copy_data(Out&& out) {
    auto chunk = std::make_unique<uint8_t[]>(kChunk);
    DataScan total;
    uint64_t base = offset();
    std::size_t have = 0;  // a 0xFF carried over from the chunk before
    for (;;) {
      const std::size_t want = kChunk - have;
      const std::size_t got = std::fread(chunk.get() + have, 1, want, f_);
      have += got;
      const DataScan s = scan_data(chunk.get(), have, got < want, out);
      total.restarts += s.restarts;
      if (s.marker) {
        files::seek64(f_, base + s.used, SEEK_SET);
        total.marker = true;
        return total;
      }
      if (got < want) return total;  // the end of the file ends the data
      std::memmove(chunk.get(), chunk.get() + s.used, have - s.used);
      base += s.used;
      have -= s.used;
    }
  }

 private:
  FILE* f_;
};

// The stream in a caller's buffer of `length` bytes.
class BufferSource {
 public:
  BufferSource(const uint8_t* p, int32_t length) : p_(p), length_(length > 0 ? static_cast<uint64_t>(length) : 0) {}
  static constexpr const char* kShort = "Unexpected end of JPEG stream";
  int next() { return at_ < length_ ? p_[at_++] : (++at_, -1); }
  uint8_t byte() {
    const int c = next();
    return c < 0 ? files::kPastEnd : static_cast<uint8_t>(c);
  }
  // Kept: a stream ends once fewer than two bytes remain before a segment.
  bool ended_before_segment() const { return at_ + 1 >= length_; }
  uint64_t offset() const { return at_; }
  void skip(uint64_t n) { at_ += n; }
  bool has(std::size_t n) const { return at_ <= length_ && n <= length_ - at_; }
  bool take(uint8_t* to, std::size_t n) {
    const std::size_t here = at_ < length_ ? static_cast<std::size_t>(std::min<uint64_t>(n, length_ - at_)) : 0;
    if (here != 0) std::memcpy(to, p_ + at_, here);
    std::memset(to + here, files::kPastEnd, n - here);
    at_ += n;
    return here == n;
  }
  template <class Out>
  DataScan copy_data(Out&& out) {
    if (at_ >= length_) return {};
    const DataScan s = scan_data(p_ + at_, static_cast<std::size_t>(length_ - at_), true, out);
    at_ += s.used;
    return s;
  }

 private:
  const uint8_t* p_;
  uint64_t length_;
  uint64_t at_ = 0;
};

enum class Goal { whole_file, header, buffer };

// One parse of a stream into the image `handle`; reports under `function`.
template <class Source>
class Parser {
 public:
  Parser(Source& src, uint32_t handle, Goal goal, const char* function, uint32_t buffer_length = 0)
      : src_(src), handle_(handle), img_(*find_image(handle)), r_(*img_.jpeg), goal_(goal), function_(function),
        buffer_length_(buffer_length) {}

  // 0 when the stream is read (to its end, or to the SOS for a header),
  // else the code reported.
  uint32_t run() {
    if (src_.byte() != 0xFF) return fail(code::bad_image, "Expecting PREFIX marker");
    if (src_.byte() != kSOI) return fail(code::bad_image, "Expecting SOI marker");
    for (;;) {
      if (src_.ended_before_segment()) return end_of_stream();
      const int c = src_.next();
      if (c < 0) return end_of_stream();
      if (c != 0xFF) return fail(with_detail(code::bad_image, static_cast<uint32_t>(c)), "Expecting 0xFF marker code");
      const uint8_t m = src_.byte();
      uint32_t r = 0;
      switch (m) {
        case kSOF0: r = frame(); break;
        case kDHT: r = huffman_tables(); break;
        case kDQT: r = quantisation_tables(); break;
        case kDRI: return fail(code::unsupported, "Define Restart Interval not supported");
        case kAPP0:
        case kCOM: {
          const uint16_t length = word();
          src_.skip(length > 2 ? length - 2u : 0u);
          break;
        }
        case kSOS:
          if (uint32_t s = scan(); is_error(s) || goal_ == Goal::header) return s;
          break;
        case kEOI:
          // A buffer reads on to its length; a file ends here.
          if (goal_ != Goal::buffer) return end_of_stream();
          break;
        default: return fail(with_detail(code::unsupported, m), "Unrecognised marker detected");
      }
      if (is_error(r)) return r;
    }
  }

 private:
  uint16_t word() {
    const unsigned hi = src_.byte();
    return static_cast<uint16_t>((hi << 8) | src_.byte());
  }
  uint32_t fail(uint32_t code, const char* message) { return report(function_, code, message); }
  uint32_t end_of_stream() {
    img_.flags |= PIX_FLAG_JPEG;
    return 0;
  }

  uint32_t frame() {
    r_.Lf = word();
    r_.P = src_.byte();
    img_.height = img_.lines_this_strip = word();
    img_.width = word();
    const unsigned components = src_.byte();
    img_.depth = static_cast<uint16_t>(8 * components);
    img_.num_frames = 1;
    for (int i = 0; i < 3; ++i) r_.H[i] = r_.V[i] = 0;
    for (unsigned i = 0; i < components; ++i) {
      src_.byte();  // the component id
      const uint8_t hv = src_.byte();
      const uint8_t tq = src_.byte();
      if (i < 4) r_.H[i] = hv >> 4, r_.V[i] = hv & 0x0F, r_.Tq[i] = tq;
    }
    uint16_t format = 0;
    if (img_.depth == 8) {
      format = PIX_Y8;
    } else if (img_.depth != 24) {
      return fail(code::unsupported, "Unsupported image depth");
    } else if (r_.H[1] != 1 || r_.H[2] != 1) {
      return fail(code::unsupported, "Unknown colour image format");
    } else if (r_.H[0] == 2 && (r_.V[0] == 1 || r_.V[0] == 2)) {
      format = r_.V[0] == 1 ? PIX_YUV422 : PIX_JPEG;
    } else if (r_.H[0] == 1) {
      format = PIX_RGB24;
    } else {
      return fail(code::unsupported, "Unknown colour image format");
    }
    // Through the parameter, which gives the image the depth of its format.
    PIX_image_set_parameter(handle_, PIX_IMAGE_FORMAT, format);
    return 0;
  }

  uint32_t huffman_tables() {
    r_.DHT_length = static_cast<uint16_t>(word() - 2);
    std::fill(std::begin(r_.table_ids), std::end(r_.table_ids), 255);
    std::array<uint8_t, 16 * 255> values;
    for (uint32_t taken = 0; taken < r_.DHT_length;) {
      if (!src_.has(17)) return fail(code::bad_image, Source::kShort);
      const uint8_t id = src_.byte();
      const int slot = id == 0x00 ? 0 : id < 0x10 ? 1 : id == 0x10 ? 2 : 3;
      r_.table_ids[slot] = id;
      std::size_t count = 0;
      for (uint8_t& bits : r_.BITS[slot]) count += bits = src_.byte();
      if (!src_.take(values.data(), count)) return fail(code::bad_image, Source::kShort);
      // A table has room for 256 values; those beyond are read and dropped.
      std::memcpy(r_.HUFFVAL[slot], values.data(), std::min<std::size_t>(count, 256));
      taken += static_cast<uint32_t>(17 + count);
    }
    return 0;
  }

  uint32_t quantisation_tables() {
    r_.Lq = word();
    r_.Nq = r_.Lq / 65;
    std::array<uint8_t, 64> entries;
    for (unsigned t = 0; t < r_.Nq; ++t) {
      const uint8_t pq_tq = src_.byte();
      if ((pq_tq >> 4) != 0) return fail(code::unsupported, "16 bit integer precision not supported");
      src_.take(entries.data(), entries.size());  // an end inside reads on as 0xFF, from a file too
      // Four tables have room in the record; a table named beyond them is read and dropped.
      if ((pq_tq & 0x0F) < 4) std::memcpy(r_.Q_tables[pq_tq & 0x0F], entries.data(), entries.size());
    }
    return 0;
  }

  uint32_t scan() {
    r_.Ls = word();
    r_.Ns = src_.byte();
    for (unsigned i = 0; i < r_.Ns; ++i) src_.byte(), src_.byte();  // the fixed tables serve every component
    r_.Ss = src_.byte();
    r_.Se = src_.byte();
    r_.AhAl = src_.byte();
    const uint64_t header = src_.offset();
    r_.header_length = static_cast<uint32_t>(header);
    if (goal_ == Goal::header) {
      PIX_JPEG_free_data(handle_);
      r_.length = 1;
      return 0;
    }
    PIX_image_free_data(handle_);
    const uint32_t made = goal_ == Goal::whole_file ? PIX_JPEG_malloc_data(handle_)
                                                    : PIX_JPEG_malloc_N_bytes_data(handle_, buffer_length_);
    if (is_error(made)) return made;
    r_.position = r_.data;
    img_.num_frames = 1;
    // A buffer of the caller's (a locked image) is taken to be large enough.
    const std::size_t capacity = capacity_of(r_);
    const std::size_t room = capacity != 0 ? capacity : SIZE_MAX;
    std::size_t stored = 0;
    const DataScan s = src_.copy_data([&](const uint8_t* p, std::size_t n) {
      n = std::min(n, room - stored);
      std::memcpy(r_.data + stored, p, n);
      stored += n;
    });
    img_.num_frames += s.restarts;
    r_.length = static_cast<uint32_t>(stored);
    return 0;
  }

  Source& src_;
  uint32_t handle_;
  Image& img_;
  Tjpeg& r_;
  Goal goal_;
  const char* function_;
  uint32_t buffer_length_;  // the buffer reader's data buffer: the whole stream
};

// The record of a JPEG image, or null with the refusal reported.
Tjpeg* jpeg_record(uint32_t handle, const char* function, uint32_t& result) {
  Image* img = find_image(handle);
  if (img == nullptr || img->jpeg == nullptr) {
    result = report(function, code::open_failed, "The PIX image handle refers to a non-JPEG image");
    return nullptr;
  }
  return img->jpeg;
}

// The file functions: the image's input file parsed whole or to its SOS.
uint32_t read_file(uint32_t handle, Goal goal, const char* function) {
  uint32_t result = 0;
  Tjpeg* r = jpeg_record(handle, function, result);
  if (r == nullptr) return result;
  FILE* f = std::fopen(find_image(handle)->in_filename, "rb");
  if (f == nullptr) return report(function, code::open_failed, "Failed to open JPEG file");
  r->file = f;
  r->DHT_length = 0;
  FileSource src(f);
  result = Parser<FileSource>(src, handle, goal, function).run();
  // The whole-file reader closes its stream at the end and on every
  // failure; a header read leaves it open at the data, and so does a file
  // that ends before its scan.  Closing on an unrecognised marker too is
  // harmless and leaks nothing.
  if (!is_error(result) && goal == Goal::header) return result;
  const bool failed = std::ferror(f) != 0;
  const bool closed = std::fclose(f) == 0;
  r->file = nullptr;
  if (is_error(result)) return result;
  // A read that failed on the way ends the read as a failed close does.
  if (failed || !closed) return report(function, code::close_failed, "Failed to close file");
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_JPEG_file_read(uint32_t handle) { return read_file(handle, Goal::whole_file, kFileRead); }

PIX_API uint32_t PIX_CALL PIX_JPEG_file_open(uint32_t handle) { return read_file(handle, Goal::header, kFileOpen); }

PIX_API uint32_t PIX_CALL PIX_JPEG_file_close(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr || img->jpeg == nullptr || img->jpeg->file == nullptr) return 0;
  if (std::fclose(img->jpeg->file) != 0) return report(kFileClose, code::close_failed, "Failed to close file");
  img->jpeg->file = nullptr;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_JPEG_buffer_read(uint32_t handle, uint8_t* buffer, int32_t length) {
  uint32_t result = 0;
  Tjpeg* r = jpeg_record(handle, kBufferRead, result);
  if (r == nullptr) return result;
  if (buffer == nullptr) return report(kBufferRead, code::open_failed, "Not JPEG stream/data");
  r->file = nullptr;
  r->DHT_length = 0;
  // The record's own buffer is replaced at the scan: a stream read from it
  // is read from a copy.
  std::vector<uint8_t> copy;
  const std::size_t capacity = capacity_of(*r);
  const auto at = reinterpret_cast<std::uintptr_t>(buffer), base = reinterpret_cast<std::uintptr_t>(r->data);
  if (r->data != nullptr && at >= base && (capacity == 0 ? at == base : at - base < capacity)) {
    copy.assign(buffer, buffer + std::min<std::size_t>(length > 0 ? static_cast<std::size_t>(length) : 0,
                                                       capacity != 0 ? capacity - (at - base) : SIZE_MAX));
    buffer = copy.data();
    length = static_cast<int32_t>(copy.size());
  }
  BufferSource src(buffer, length);
  return Parser<BufferSource>(src, handle, Goal::buffer, kBufferRead, static_cast<uint32_t>(length)).run();
}

}  // extern "C"
