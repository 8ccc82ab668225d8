// Library-wide state of the JPEG record functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "core/stage.h"

namespace pix::jpeg {

struct BuildState {
  stage::Progress progress;  // idle / building, lines appended
  std::size_t write_offset = 0;
};

// A compressed-data buffer this library allocated for a record.
struct OwnedBuffer {
  const uint8_t* data = nullptr;
  std::size_t capacity = 0;
};

struct JpegState {
  BuildState build;
  // The buffer each record got from this library, so that appending never
  // runs past its end.  A record whose data pointer no longer matches (a
  // caller's own buffer set through the pointer interface) is not listed and
  // its buffer is taken to be large enough, as the caller promised.
  std::unordered_map<const Tjpeg*, OwnedBuffer> buffers;
};

JpegState& jpeg_state() noexcept;

// Bytes this library allocated for the record's current buffer; 0 when the
// buffer is not one of its own.
std::size_t capacity_of(const Tjpeg& record) noexcept;

// Attaches a fresh buffer of `bytes` to the record, releasing one already
// there (a position inside it moves to the new buffer's start).  False when
// memory runs out; the record is then unchanged.
bool attach_new_buffer(Tjpeg& record, std::size_t bytes);

// Frees the record's buffer and forgets it; data becomes null.
void release_data(Tjpeg& record) noexcept;

// Forgets a record that is about to be freed.
void forget(const Tjpeg& record) noexcept;

// Makes room for at least `bytes` in the record's buffer, keeping its
// contents and the position's offset; false when memory runs out.  Only
// buffers this library allocated can grow.
bool ensure_capacity(Tjpeg& record, std::size_t bytes);

}  // namespace pix::jpeg
