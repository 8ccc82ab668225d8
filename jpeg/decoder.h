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
  // 64 coefficients a block, natural order; after them, a map of each
  // block's AC coefficients that are not zero.
  memory::Owned<int16_t> coefficients;
  uint64_t capacity = 0;  // blocks the store holds
  uint64_t decoded = 0;                 // blocks the last Huffman pass completed
  std::vector<uint8_t> destuffed;       // the data as the reader loads it
  // The store and the reader's copy outlive a run, so that decoding frame
  // after frame allocates nothing; releasing every image lets them go.

  uint64_t* nonzero() const noexcept { return reinterpret_cast<uint64_t*>(coefficients.get() + capacity * 64); }
  void drop_coefficients() noexcept;
  void release() noexcept override;
};
DecoderState& decoder_state() noexcept;

}  // namespace pix::jpeg
