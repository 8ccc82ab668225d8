// Block kernels of the JPEG decoder: the integer inverse DCT of one 8x8
// block and the placing of decoded blocks in YUV 4:2:2 lines.  Pure
// functions: no handles, no errors, no globals.  These scalar kernels are the
// reference; a SIMD kernel must give the same bytes on every input.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::jpeg::kernels {

// One block: `coef` holds the 64 quantised coefficients in natural order,
// except that the DC value used is `dc` (the predicted DC, which does not
// fit 16 bits); `q` is the quantisation table in natural order.  Writes the
// 8x8 level-shifted samples, row r at out + r * stride.  Arithmetic wraps at
// 32 bits, as the original's did, so hostile coefficients give defined
// (if meaningless) samples.  Bit k of `nonzero` may be clear only where
// AC coefficient k (natural index) is 0; the kernel skips what it says is 0.
void idct_block(const int16_t* coef, int32_t dc, const uint16_t* q, uint8_t* out, std::ptrdiff_t stride,
                uint64_t nonzero = ~uint64_t{0}) noexcept;

// One 16x8 MCU of 4:2:2 from its blocks' samples (8x8 each, stride 8): Y1
// fills the Y bytes of pixels 0..7, Y2 of pixels 8..15, U byte 1 and V byte
// 3 of each pair.  Line r starts at dst + r * stride.
void place_422(const uint8_t* y1, const uint8_t* y2, const uint8_t* u, const uint8_t* v, uint8_t* dst,
               std::ptrdiff_t stride) noexcept;

// One 16x16 MCU of 2x2-sampled chroma into 4:2:2 lines: Y1 Y2 on top, Y3 Y4
// below, chroma row r serving lines 2r and 2r + 1.
void place_411(const uint8_t* y1, const uint8_t* y2, const uint8_t* y3, const uint8_t* y4, const uint8_t* u,
               const uint8_t* v, uint8_t* dst, std::ptrdiff_t stride) noexcept;

// The one sample of a block whose AC coefficients are all zero (what
// idct_block writes everywhere in it).
uint8_t dc_only_sample(int32_t dc, uint16_t q0) noexcept;

// A block to transform: its coefficients, predicted DC and nonzero mask, as
// idct_block takes them.
struct BlockIn {
  const int16_t* coef;
  int32_t dc;
  uint64_t nonzero;
};

// Blocks to lines, each giving the bytes of idct_block and place_422 /
// place_411: `grey` puts `n` blocks side by side (8 lines of 8 * n bytes);
// `yuv422` one MCU of Y1 Y2 U V (8 lines of 32 bytes); `yuv411` one MCU of
// Y1 Y2 Y3 Y4 U V (16 lines of 32 bytes).  Luma uses `qy`, chroma `qc`.
using GreyBlocks = void (*)(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out,
                            std::ptrdiff_t stride) noexcept;
using McuBlocks = void (*)(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t* out,
                           std::ptrdiff_t stride) noexcept;
struct IdctKernels {
  GreyBlocks grey;
  McuBlocks yuv422;
  McuBlocks yuv411;
};

// The kernels of `level` (each the widest one at or below it; the scalar
// ones at Level::scalar).  The processor must support `level`.
IdctKernels idct_kernels(simd::Level level) noexcept;
// The kernels of simd::active(), chosen once.
const IdctKernels& idct_kernels() noexcept;

// The SIMD kernels of one level, null where the level has none (idct_x86.cpp).
GreyBlocks grey_blocks_simd(simd::Level level) noexcept;
McuBlocks yuv422_blocks_simd(simd::Level level) noexcept;
McuBlocks yuv411_blocks_simd(simd::Level level) noexcept;

// The scalar kernels: idct_block block by block, then place_422 / place_411.
void grey_blocks_scalar(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out,
                        std::ptrdiff_t stride) noexcept;
void yuv422_blocks_scalar(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t* out,
                          std::ptrdiff_t stride) noexcept;
void yuv411_blocks_scalar(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t* out,
                          std::ptrdiff_t stride) noexcept;

}  // namespace pix::jpeg::kernels
