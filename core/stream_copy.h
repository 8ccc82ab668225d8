// Copies that bypass the caches: for frames handed straight on to another
// reader (a display server, a device), where ordinary stores would first
// read every destination line into the cache for nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pix {

// `bytes` from `src` to `dst` (not overlapping), with streaming stores where
// the machine has them; call `end_streaming` before anyone else reads `dst`.
void copy_streamed(const uint8_t* src, uint8_t* dst, std::size_t bytes) noexcept;
void end_streaming() noexcept;

// Frames at least this large are worth streaming.
inline constexpr std::size_t kStreamingBytes = std::size_t{1} << 20;

}  // namespace pix
