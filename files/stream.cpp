#include "stream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "pix95.h"

namespace pix::files {

bool Stream::open(const char* name, const char* mode, bool buffered) {
  discard();
  file_ = std::fopen(name, mode);
  if (file_ == nullptr) return false;
  if (buffered) {
    buffer_ = std::make_unique<char[]>(kStreamBuffer);
    std::setvbuf(file_, buffer_.get(), _IOFBF, kStreamBuffer);
  }
  return true;
}

bool Stream::close() noexcept {
  if (file_ == nullptr) return true;
  const bool ok = std::fclose(file_) == 0;
  file_ = nullptr;
  buffer_.reset();
  return ok;
}

bool Stream::finish() noexcept {
  const bool failed = file_ != nullptr && std::ferror(file_) != 0;
  return close() && !failed;
}

void Stream::discard() noexcept {
  if (file_ != nullptr) std::fclose(file_);
  file_ = nullptr;
  buffer_.reset();
}

std::size_t read_or_fill(FILE* stream, std::span<uint8_t> bytes) noexcept {
  const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), stream);
  if (got < bytes.size()) std::memset(bytes.data() + got, kPastEnd, bytes.size() - got);
  return got;
}

void skip_read(FILE* stream, std::size_t count) noexcept {
  std::array<uint8_t, 64> sink;
  while (count > 0) {
    const std::size_t n = std::min(count, sink.size());
    if (std::fread(sink.data(), 1, n, stream) < n) return;
    count -= n;
  }
}

bool write_bytes(FILE* stream, std::span<const uint8_t> bytes) noexcept {
  return std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
}

bool write_zeros(FILE* stream, std::size_t count) noexcept {
  static constexpr std::array<uint8_t, 4096> kZeros{};
  while (count > 0) {
    const std::size_t n = std::min(count, kZeros.size());
    if (std::fwrite(kZeros.data(), 1, n, stream) < n) return false;
    count -= n;
  }
  return true;
}

int seek64(FILE* stream, uint64_t offset, int whence) noexcept {
  if (offset > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return -1;
#ifdef _WIN32
  return _fseeki64(stream, static_cast<long long>(offset), whence);
#else
  if (offset > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) return -1;
  return fseeko(stream, static_cast<off_t>(offset), whence);
#endif
}

uint64_t tell64(FILE* stream) noexcept {
#ifdef _WIN32
  const long long at = _ftelli64(stream);
#else
  const off_t at = ftello(stream);
#endif
  return at < 0 ? 0 : static_cast<uint64_t>(at);
}

}  // namespace pix::files

using pix::files::get_byte;

// The exported byte-order helpers: one byte a call of the stream's own byte
// operation, no end-of-file check (a byte past the end reads as 0xFF).
extern "C" {

PIX_API uint16_t PIX_CALL get_ui16i(FILE* stream) {
  const unsigned b0 = get_byte(stream);
  const unsigned b1 = get_byte(stream);
  return static_cast<uint16_t>(b0 | (b1 << 8));
}

PIX_API uint16_t PIX_CALL get_ui16m(FILE* stream) {
  const unsigned b0 = get_byte(stream);
  const unsigned b1 = get_byte(stream);
  return static_cast<uint16_t>((b0 << 8) | b1);
}

PIX_API uint32_t PIX_CALL get_ui32i(FILE* stream) {
  uint32_t v = 0;
  for (int shift = 0; shift < 32; shift += 8) v |= static_cast<uint32_t>(get_byte(stream)) << shift;
  return v;
}

PIX_API uint32_t PIX_CALL get_ui32m(FILE* stream) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) | get_byte(stream);
  return v;
}

PIX_API int PIX_CALL put_ui8(FILE* stream, uint8_t value) { return std::putc(value, stream); }

PIX_API int PIX_CALL put_ui16i(FILE* stream, uint16_t value) {
  std::putc(value & 0xFF, stream);
  return std::putc(value >> 8, stream);
}

PIX_API int PIX_CALL put_ui16m(FILE* stream, uint16_t value) {
  std::putc(value >> 8, stream);
  return std::putc(value & 0xFF, stream);
}

PIX_API int PIX_CALL put_ui32i(FILE* stream, uint32_t value) {
  int r = 0;
  for (int shift = 0; shift < 32; shift += 8) r = std::putc((value >> shift) & 0xFF, stream);
  return r;
}

PIX_API int PIX_CALL put_ui32m(FILE* stream, uint32_t value) {
  int r = 0;
  for (int shift = 24; shift >= 0; shift -= 8) r = std::putc((value >> shift) & 0xFF, stream);
  return r;
}

PIX_API uint16_t PIX_CALL TIFF_read_ui16(FILE* stream, uint16_t byte_order) {
  return byte_order == 'M' ? get_ui16m(stream) : get_ui16i(stream);
}

PIX_API uint32_t PIX_CALL TIFF_read_ui32(FILE* stream, uint16_t byte_order) {
  return byte_order == 'M' ? get_ui32m(stream) : get_ui32i(stream);
}

PIX_API uint32_t PIX_CALL TIFF_read_data(FILE* stream, uint16_t byte_order, uint16_t field_type) {
  if (field_type == 3) {
    // A SHORT stands in the first half of the 4-byte value field.
    const uint16_t value = TIFF_read_ui16(stream, byte_order);
    TIFF_read_ui16(stream, byte_order);
    return value;
  }
  return TIFF_read_ui32(stream, byte_order);
}

}  // extern "C"
