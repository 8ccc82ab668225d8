// The decoder's entropy stage: the whole image's Huffman-coded blocks read
// at once into a compact coefficient store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pix::jpeg {

// The three stream layouts the decoder takes.
enum class Layout : uint8_t { grey, yuv422, yuv411 };

struct LayoutShape {
  uint32_t mcu_width, mcu_height, blocks;
  const uint8_t* component;  // per block of an MCU: 0 Y, 1 U, 2 V
};
const LayoutShape& shape(Layout layout) noexcept;

struct HuffmanJob {
  const uint8_t* data;  // the compressed bytes (null reads as no bytes)
  uint64_t length;
  Layout layout;
  uint64_t mcu_columns, mcu_rows;
  // Per block, its DC difference and then its AC terms that are not zero,
  // in zig-zag order, one block after another; room for 64 terms a block.
  int16_t* out;
  // Per block, which AC terms it holds: bit k for zig-zag position k.
  uint64_t* nonzero;
  // Tests: every block read by the byte-at-a-time rules alone, as the
  // reference the fast path is held against.
  bool exact_only = false;
};

// Decodes every block of the image into `job.out`.  `decoded` counts the
// blocks completed; `bit_buffer` is the reader's 32-bit buffer, as the
// previous decode left it on entry and as this one leaves it on return
// (kept: stale bits in it are what a short read sees at the start).
// Returns 0 or the reported status.
// `destuffed` is room for the reader's copy of the data, kept between calls.
uint32_t decode_huffman(const HuffmanJob& job, uint64_t& decoded, uint32_t& bit_buffer, std::vector<uint8_t>& destuffed);

}  // namespace pix::jpeg
