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
  // 64 coefficients a block, natural order, the DC difference at 0; room
  // for every block of the image.
  int16_t* out;
  // Per block, which of its AC coefficients (natural index) are not zero.
  uint64_t* nonzero;
};

// Decodes every block of the image into `job.out`.  `decoded` counts the
// blocks completed; `bit_buffer` is the reader's 32-bit buffer, as the
// previous decode left it on entry and as this one leaves it on return
// (kept: stale bits in it are what a short read sees at the start).
// Returns 0 or the reported status.
// `destuffed` is room for the reader's copy of the data, kept between calls.
uint32_t decode_huffman(const HuffmanJob& job, uint64_t& decoded, uint32_t& bit_buffer, std::vector<uint8_t>& destuffed);

}  // namespace pix::jpeg
