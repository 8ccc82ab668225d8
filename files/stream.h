// Streams of the file readers and writers.
//
// Every transfer keeps its stream open between strip calls, so the stream is
// part of the transfer's library-wide state.  `Stream` owns the C stream and
// the buffer given to it; the transfer closes it explicitly, because a
// failing close is reported.  A write that fails on the way (a full disk)
// often leaves nothing for the close to fail on, so the end of a transfer
// also asks the stream whether anything went wrong before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

namespace pix::files {

// The buffer size the writers give their streams.
inline constexpr std::size_t kStreamBuffer = 16384;

class Stream {
 public:
  Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { discard(); }

  // Opens `name` with `mode`; with `buffered`, the stream gets a fully
  // buffered buffer of kStreamBuffer bytes.  False when the open fails.
  bool open(const char* name, const char* mode, bool buffered = false);
  FILE* get() const noexcept { return file_; }
  bool is_open() const noexcept { return file_ != nullptr; }
  // Closes the stream; false when the close fails.  The stream is forgotten
  // either way.
  bool close() noexcept;
  // Closes the stream at the end of a transfer: false when any read or
  // write through it failed, or the close itself.  Forgotten either way.
  bool finish() noexcept;
  // Closes without caring for the result (failure paths).
  void discard() noexcept;

 private:
  FILE* file_ = nullptr;
  std::unique_ptr<char[]> buffer_;
};

// The value every byte read past the end of a file takes: what a byte-wise
// reader stores from the end-of-file mark.  Short files are read on with it.
inline constexpr uint8_t kPastEnd = 0xFF;

// Reads `bytes.size()` bytes; those past the end of the file become kPastEnd.
// Gives the number actually read.
std::size_t read_or_fill(FILE* stream, std::span<uint8_t> bytes) noexcept;
// Skips `count` bytes forward in a stream that is being read.
void skip_read(FILE* stream, std::size_t count) noexcept;
// Writes the bytes; false when the stream failed.
bool write_bytes(FILE* stream, std::span<const uint8_t> bytes) noexcept;
// Writes `count` zero bytes.
bool write_zeros(FILE* stream, std::size_t count) noexcept;

// Positions beyond 2 GiB (32-bit file offsets reach 4 GiB): fseek with a
// 64-bit offset.  Gives 0 on success, like fseek; an offset the system's file
// positions cannot hold fails.
int seek64(FILE* stream, uint64_t offset, int whence) noexcept;
// The position, 0 when the stream cannot tell.
uint64_t tell64(FILE* stream) noexcept;

// One byte, kPastEnd at the end of the file.
inline uint8_t get_byte(FILE* stream) noexcept {
  const int c = std::getc(stream);
  return c == EOF ? kPastEnd : static_cast<uint8_t>(c);
}

}  // namespace pix::files
