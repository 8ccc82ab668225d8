// The image record and the library-wide handle table.
#pragma once

#include <array>
#include <cstdint>

#include "pix95.h"

namespace pix {

using Image = tPIX_Image;

inline constexpr uint32_t kMaxImageHandle = 65535;

// The handle table: slot 0 is never used, an empty slot is null.  Handles
// are handed out lowest first; `lowest_free` only remembers where the search
// may start, so creating many images stays linear.
struct ImageTable {
  std::array<Image*, kMaxImageHandle + 1> slots{};
  uint32_t lowest_free = 1;
};
ImageTable& image_table() noexcept;

// The record of an ordinary handle, or null for 0, a pseudo-handle, a handle
// beyond the table or an empty slot.
Image* find_image(uint32_t handle) noexcept;

// Bytes of one pixel as line lengths count them: depth 15 counts 2, depth 1 counts 0.
constexpr uint32_t pixel_bytes(uint32_t depth) { return (depth + 1) >> 3; }

// Bilevel lines: the record counts no bytes for them (kept: parameter 15 of
// a bilevel image reads 0), but their bits are stored packed, eight pixels a
// byte, each line padded to the line alignment.  Strips are allocated at this
// stride, so that the file transfers of bilevel images stay inside them.
constexpr uint64_t bilevel_stride(const Image& img) {
  const uint64_t bytes = (static_cast<uint64_t>(img.width) + 7) / 8;
  const uint64_t align = img.line_align == 0 ? 1 : img.line_align;
  return (bytes + align - 1) / align * align;
}

// Bytes of `lines` lines of the image, counted wide so that a huge request
// cannot wrap; bilevel lines count at their packed stride.
constexpr uint64_t lines_bytes(const Image& img, uint32_t lines) {
  const uint64_t line = img.format == PIX_BILEVEL && img.bytes_per_line < bilevel_stride(img) ? bilevel_stride(img)
                                                                                              : img.bytes_per_line;
  return static_cast<uint64_t>(lines) * line;
}

// Bytes of the strip the image holds now.
constexpr uint64_t strip_bytes(const Image& img) { return lines_bytes(img, img.lines_this_strip); }

// Copies a NUL-terminated text into a 128-byte record field, cut to fit.
void copy_name(char (&field)[PIX_NAME_LENGTH], const char* text) noexcept;

// The image check on a record, whether or not a handle names it (the
// codec checks working descriptions that it keeps outside the table).
uint32_t check_record(Image& img) noexcept;

// Runs the image check and reports a failure under `function` with `message`
// (callers pass "Corrupt image" or their own variant).
uint32_t check_reported(uint32_t handle, const char* function, const char* message = "Corrupt image");

}  // namespace pix
