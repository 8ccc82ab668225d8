// A strip seen as lines, and the walks that run a row kernel over it.
//
// Workers do not index strips by hand: they describe each strip by where its
// lines start (the step from one line to the next) and how many bytes its
// buffer holds, and let `map` or `scan` call the row kernel on whole lines,
// or on the whole strip at once when its lines follow each other without
// gaps.  A line that reaches past a buffer (an odd-width step over a strip
// of alignment 1, or a record changed between two strips) goes through a
// guarded tail: input bytes beyond the buffer read as 0 and nothing is
// written beyond the output.  `Carry` keeps context lines from one strip to
// the next for the functions that look above their first line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "image.h"

namespace pix::lines {

// `data` holds `size` bytes; line y starts y * `stride` bytes in.
template <class Byte>
struct Lines {
  Byte* data = nullptr;
  uint64_t size = 0;
  uint64_t stride = 0;

  Byte* line(uint32_t y) const noexcept { return data + static_cast<std::size_t>(y * stride); }
  // Whole units of `unit` bytes (of at most `units`) that line y holds
  // inside the buffer.
  uint64_t units_inside(uint32_t y, unsigned unit, uint64_t units) const noexcept {
    const uint64_t at = y * stride;
    return at >= size ? 0 : std::min(units, (size - at) / unit);
  }
};
using In = Lines<const uint8_t>;
using Out = Lines<uint8_t>;

// How a worker steps from one line to the next.

// Past each line's padding: the record's bytes per line.
constexpr uint64_t padded(const Image& img) { return img.bytes_per_line; }
// No padding stepped over: the strip read as one run of pixels (the padding
// bytes count as pixels).
constexpr uint64_t packed(const Image& img, unsigned pixel_bytes) {
  return static_cast<uint64_t>(img.width) * pixel_bytes;
}
// The padding the default line alignment of 2 gives, whatever the image's
// own alignment: `odd_extra` bytes more when the width is odd.  Kept: the
// functions that step so lay their lines out that way for applications.
constexpr uint64_t odd_width(const Image& img, unsigned pixel_bytes, unsigned odd_extra = 1) {
  return packed(img, pixel_bytes) + (img.width & 1u) * odd_extra;
}

// The strip an image holds, stepped by `stride`.
inline In source(const Image& img, uint64_t stride) { return {img.data, strip_bytes(img), stride}; }
inline Out target(const Image& img, uint64_t stride) { return {img.data, strip_bytes(img), stride}; }

// What a row kernel needs to see of a line.
struct Rows {
  // The kernel depends only on each unit (true), or also on where a unit
  // stands in its line, so lines must never run together.
  bool merge = true;
  // Units go to the kernel in groups of this many from the line's start
  // (a kernel that carries state across a group of pixels).
  unsigned group = 1;
};

namespace detail {

// One line through small buffers, a chunk of units at a time.  Output bytes
// the kernel leaves alone keep their values.
template <class Row>
void guarded_line(const In& in, unsigned in_unit, const Out& out, unsigned out_unit, uint64_t units, uint32_t y,
                  Rows rows, Row& row) {
  constexpr std::size_t kBytes = 512;
  alignas(64) uint8_t near_src[kBytes];
  alignas(64) uint8_t near_dst[kBytes];
  // A group of units wider than the buffers on the stack gets buffers of its
  // own, so that every chunk holds at least one group.
  const std::size_t unit = std::max(in_unit, out_unit);
  const std::size_t bytes = std::max<std::size_t>(kBytes, unit * rows.group);
  std::vector<uint8_t> far;
  uint8_t* src = near_src;
  uint8_t* dst = near_dst;
  if (bytes > kBytes) {
    far.resize(2 * bytes);
    src = far.data(), dst = far.data() + bytes;
  }
  const uint64_t chunk = bytes / unit / rows.group * rows.group;
  const uint64_t in_at = y * in.stride, out_at = y * out.stride;
  for (uint64_t x = 0; x < units; x += chunk) {
    const uint64_t n = std::min(chunk, units - x);
    const uint64_t i = in_at + x * in_unit, o = out_at + x * out_unit;
    if (o >= out.size) return;
    const auto out_have = static_cast<std::size_t>(std::min<uint64_t>(n * out_unit, out.size - o));
    const auto in_have = i < in.size ? static_cast<std::size_t>(std::min<uint64_t>(n * in_unit, in.size - i)) : 0;
    std::memset(src, 0, bytes);
    std::memset(dst, 0, bytes);
    if (in_have != 0) std::memcpy(src, in.data + i, in_have);
    std::memcpy(dst, out.data + o, out_have);
    row(static_cast<const uint8_t*>(src), static_cast<uint8_t*>(dst), static_cast<std::size_t>(n));
    std::memcpy(out.data + o, dst, out_have);
  }
}

}  // namespace detail

// Runs `row(src, dst, n)` over `count` lines of `units` units each, a unit
// being `in_unit` bytes of input and `out_unit` bytes of output (a pixel, or
// a pair of pixels).  Strips whose lines follow each other without gaps go
// in one call unless `rows` says otherwise.  Lines are processed as far as
// the output holds them.
template <class Row>
void map(const In& in, unsigned in_unit, const Out& out, unsigned out_unit, uint64_t units, uint32_t count,
         Row&& row, Rows rows = {}) {
  if (units == 0 || count == 0 || out.data == nullptr || (in.data == nullptr && in.size != 0)) return;
  const uint64_t in_line = units * in_unit, out_line = units * out_unit;
  if (rows.merge && in.stride == in_line && out.stride == out_line && count <= in.size / in_line &&
      count <= out.size / out_line) {
    row(in.data, out.data, static_cast<std::size_t>(units * count));
    return;
  }
  for (uint32_t y = 0; y < count; ++y) {
    const uint64_t in_at = y * in.stride, out_at = y * out.stride;
    if (out_at >= out.size) return;  // nothing more would land in the output
    if (in_at + in_line <= in.size && out_at + out_line <= out.size) {
      row(in.line(y), out.line(y), static_cast<std::size_t>(units));
    } else {
      detail::guarded_line(in, in_unit, out, out_unit, units, y, rows, row);
    }
  }
}

// Runs `row(src, n)` over `count` lines of `units` units of `unit` bytes,
// each line cut to the units that lie wholly inside the buffer.
template <class Row>
void scan(const In& in, unsigned unit, uint64_t units, uint32_t count, Row&& row) {
  if (units == 0 || in.data == nullptr) return;
  for (uint32_t y = 0; y < count; ++y) {
    const uint64_t n = in.units_inside(y, unit, units);
    if (n != 0) row(in.line(y), static_cast<std::size_t>(n));
  }
}

// Context lines carried from one strip to the next: the lines a 3x3 filter
// needs above its first line, the line a scale interpolates from, the lines
// of a block row that a strip left unfinished.  The carry holds copies, so
// the strip they came from may be freed.
class Carry {
 public:
  // Empties the carry for a run of lines of `line_bytes` bytes.
  void start(std::size_t line_bytes) {
    line_bytes_ = line_bytes;
    held_ = 0;
    bytes_.clear();
  }
  std::size_t line_bytes() const noexcept { return line_bytes_; }
  uint32_t held() const noexcept { return held_; }
  // Carried line i, oldest first.
  const uint8_t* line(uint32_t i) const noexcept { return bytes_.data() + i * line_bytes_; }

  // Line y of the carried lines followed by the strip's lines: y < held()
  // is a carried line, the rest are the strip's lines.
  const uint8_t* joined(const In& strip, uint32_t y) const noexcept {
    return y < held_ ? line(y) : strip.line(y - held_);
  }

  // Keeps the last `keep` lines of the carried lines followed by the first
  // `count` lines of `strip` (fewer when there are fewer).  Strip lines that
  // reach past its buffer are kept with zeros beyond it.
  void take(const In& strip, uint32_t count, uint32_t keep) {
    const uint64_t total = uint64_t{held_} + count;
    const auto kept = static_cast<uint32_t>(std::min<uint64_t>(keep, total));
    std::vector<uint8_t> next(static_cast<std::size_t>(kept) * line_bytes_, 0);
    for (uint32_t k = 0; k < kept; ++k) {
      const uint64_t y = total - kept + k;
      uint8_t* to = next.data() + k * line_bytes_;
      if (y < held_) {
        std::memcpy(to, line(static_cast<uint32_t>(y)), line_bytes_);
      } else {
        const auto s = static_cast<uint32_t>(y - held_);
        const uint64_t n = strip.units_inside(s, 1, line_bytes_);
        if (n != 0) std::memcpy(to, strip.line(s), static_cast<std::size_t>(n));
      }
    }
    bytes_ = std::move(next);
    held_ = kept;
  }

 private:
  std::vector<uint8_t> bytes_;
  std::size_t line_bytes_ = 0;
  uint32_t held_ = 0;
};

}  // namespace pix::lines
