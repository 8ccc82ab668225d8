// The entropy-coded data of a JPEG stream as the stream functions and the
// sequence functions walk it: runs of bytes between 0xFF pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "pix95.h"

namespace pix::jpeg {

// The bytes of the record's buffer that hold data: its length, and never
// more than this library allocated for it (a caller's buffer is taken at its
// word).  0 without a buffer.
std::size_t data_span(const Tjpeg& record) noexcept;

// Where `at` lies in the record's data, as an offset; 0 when it lies
// outside (a position never set, or left from another buffer).
std::size_t offset_in(const Tjpeg& record, const uint8_t* at) noexcept;

struct DataScan {
  std::size_t used = 0;    // bytes of the input taken as data (or walked)
  uint32_t restarts = 0;   // RST markers among them
  bool marker = false;     // stopped at a marker: its 0xFF is at `used`
};

// The data copy over `n` bytes: runs without 0xFF go to `out` whole; a 0xFF
// goes with the byte after it when that is 0x00 (stuffing) or a restart
// marker ((byte & 0xD8) == 0xD0, which counts); any other byte after 0xFF is
// a marker that ends the data.  A 0xFF that is the last of the bytes waits
// for the next ones, unless `last` says there are none: then it is data.
template <class Out>
DataScan scan_data(const uint8_t* p, std::size_t n, bool last, Out&& out) {
  DataScan s;
  while (s.used < n) {
    const auto* ff = static_cast<const uint8_t*>(std::memchr(p + s.used, 0xFF, n - s.used));
    const std::size_t at = ff != nullptr ? static_cast<std::size_t>(ff - p) : n;
    if (at > s.used) out(p + s.used, at - s.used);
    s.used = at;
    if (ff == nullptr) break;
    if (at + 1 == n) {
      if (last) out(p + at, 1), s.used = n;
      break;
    }
    const uint8_t next = p[at + 1];
    if (next != 0x00 && (next & 0xD8) != 0xD0) {
      s.marker = true;
      break;
    }
    s.restarts += next != 0x00;
    out(p + at, 2);
    s.used = at + 2;
  }
  return s;
}

// Walks the 0xFF pairs of data that comes in chunks (`next()` gives the next
// chunk, empty at the end): every 0xFF takes the byte after it, whatever it
// is, and `visit(byte)` says whether the walk stops there.  Gives the offset
// from the start of the walk just past the pair that stopped it, and whether
// one did.
template <class Next, class Visit>
std::pair<uint64_t, bool> walk_pairs(Next&& next, Visit&& visit) {
  uint64_t base = 0;
  bool pending = false;  // a chunk ended on a 0xFF
  for (;;) {
    const std::span<const uint8_t> c = next();
    if (c.empty()) return {base, false};
    std::size_t i = 0;
    if (pending) {
      pending = false;
      i = 1;
      if (visit(c[0])) return {base + 1, true};
    }
    while (i < c.size()) {
      const auto* ff = static_cast<const uint8_t*>(std::memchr(c.data() + i, 0xFF, c.size() - i));
      if (ff == nullptr) break;
      const std::size_t at = static_cast<std::size_t>(ff - c.data());
      if (at + 1 == c.size()) {
        pending = true;
        break;
      }
      if (visit(c[at + 1])) return {base + at + 2, true};
      i = at + 2;
    }
    base += c.size();
  }
}

}  // namespace pix::jpeg
