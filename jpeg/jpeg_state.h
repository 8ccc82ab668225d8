// Library-wide state of the JPEG record functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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

// Tables the codec derives from a record's own (lookup tables, scaled
// quantisers); it keeps them beside the record and rebuilds them when stale.
struct Derived {
  virtual ~Derived() = default;
};

// What the library keeps beside a record, whose layout applications see
// and which therefore has no room of its own.
struct RecordExtras {
  // The buffer the record got from this library, so that appending never
  // runs past its end.  A record whose data pointer no longer matches (a
  // caller's own buffer set through the pointer interface) has none, and its
  // buffer is taken to be large enough, as the caller promised.
  OwnedBuffer buffer;
  std::unique_ptr<Derived> derived;
};

struct JpegState {
  BuildState build;
  std::unordered_map<const Tjpeg*, RecordExtras> extras;
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

// The extras of a record, null when it has none.
RecordExtras* extras_of(const Tjpeg& record) noexcept;

// Releases everything kept beside a record that is about to be freed: the
// one path by which extras end.
void release_extras(const Tjpeg& record) noexcept;

// Makes room for at least `bytes` in the record's buffer, keeping its
// contents and the position's offset; false when memory runs out.  Only
// buffers this library allocated can grow.
bool ensure_capacity(Tjpeg& record, std::size_t bytes);

}  // namespace pix::jpeg
