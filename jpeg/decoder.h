// The JPEG decoder's library-wide state.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/lifetime.h"
#include "core/memory.h"
#include "core/stage.h"

namespace pix::jpeg {

// One decode at a time: the run's progress, the reader's buffer, the whole
// image's coefficients (decoded at the first strip), and what the later
// strips carry on from: the DC predictors, the next block, the quantisation
// tables in natural order.
struct DecoderState final : Releasable {
  stage::Progress progress;
  std::array<int32_t, 3> predictor{};  // Y (every Y block), U, V
  uint64_t next_block = 0;
  std::array<std::array<uint16_t, 64>, 2> quant{};
  uint32_t bit_buffer = 0;
  // Per block, its DC difference and then its AC terms that are not zero,
  // in zig-zag order, one block after another (room for 64 terms a block);
  // after them, per block, a map of those terms by zig-zag position.
  memory::Owned<int16_t> coefficients;
  uint64_t capacity = 0;  // blocks the store holds
  uint64_t decoded = 0;                 // blocks the last Huffman pass completed
  uint64_t cursor_block = 0, cursor_at = 0;  // where block cursor_block's terms begin
  std::vector<uint8_t> destuffed;       // the data as the reader loads it
  // The store and the reader's copy outlive a run, so that decoding frame
  // after frame allocates nothing; releasing every image lets them go.

  uint64_t* nonzero() const noexcept { return reinterpret_cast<uint64_t*>(coefficients.get() + capacity * 64); }
  // Block b of the store as the inverse DCT takes it: 64 coefficients in
  // natural order, the DC difference at 0 (zeros for a block the Huffman
  // pass did not reach).  Returns the map of its AC coefficients that are
  // not zero, by natural index.  Blocks read in order cost no search.
  uint64_t expand(uint64_t b, int16_t* out) noexcept;
  void drop_coefficients() noexcept;
  void release() noexcept override;
};
DecoderState& decoder_state() noexcept;

}  // namespace pix::jpeg
