// Library-wide state of the JPEG record functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "core/strip.h"

namespace pix::jpeg {

struct BuildState {
  strip::Progress progress;  // idle / building, lines appended
  std::size_t write_offset = 0;
};

struct JpegState {
  BuildState build;
  // Capacity of every compressed-data buffer this library allocated, so that
  // appending never runs past a buffer's end (a caller's own buffer is not
  // listed and is taken to be large enough, as the caller promised).
  std::unordered_map<const uint8_t*, std::size_t> capacities;
};

JpegState& jpeg_state() noexcept;

// Gives the record a buffer of at least `bytes`, keeping its contents; false
// when memory runs out.  Only buffers this library allocated can grow.
bool ensure_capacity(Tjpeg& record, std::size_t bytes);

// Releases a buffer allocated here.
void release_buffer(uint8_t* data) noexcept;

// Allocates a buffer and records its capacity; null when memory runs out.
uint8_t* allocate_buffer(std::size_t bytes) noexcept;

}  // namespace pix::jpeg
