// Block kernels of the JPEG encoder: raster lines to 8x8 blocks, the forward
// DCT, quantisation into zig-zag order, and the Huffman coding of a block.
// Pure functions: no handles, no errors, no allocation.  The scalar kernels
// are the reference; a SIMD kernel must give the same values on every input.
//
// Blocks are 64 int16_t values, row after row.  Every value the encoder
// makes fits: samples are -128..127, the DCT's row pass stays within
// +-4100 and its results within -1025..1016 for the DC and about +-950 for
// the others, so quantised DC differences stay within +-2041 and AC values
// within category 10.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/simd.h"
#include "jpeg/tables.h"

namespace pix::jpeg::kernels {

// Raster to blocks: `lines` are the 8 lines of a block row, each at least as
// long as the block row is wide.
// The grey block at pixel x, each sample less 128.
void grey_block(const uint8_t* const lines[8], std::size_t x, int16_t* block) noexcept;
// The four blocks of the 16x8 YUV 4:2:2 MCU at pixel x (bytes Y0 U Y1 V per
// pair): Y of pixels x..x+7, Y of x+8..x+15, then U and V of its 8 pairs.
void yuv_mcu(const uint8_t* const lines[8], std::size_t x, int16_t* y1, int16_t* y2, int16_t* u,
             int16_t* v) noexcept;

// The integer forward DCT in place, at the true scale of the transform, of
// a block of samples -128..127 (all the encoder gives it; the products and
// intermediate values are exact for those, as the header comment tells).
void fdct_scalar(int16_t* block) noexcept;

// Quantisation by one table, as reciprocals: for every |c| + q/2 below 4096
// (all the DCT can give), (x * multiplier) >> 20 is exactly x / q.  Entries
// in natural order.
//
// The vector kernels divide in 16-bit lanes instead: with L = floor(log2 q),
// reciprocal = ceil(2^(15 + L) / q) (at most 2^15) and scale = 2^(15 - L),
// y = mulhi(2x, reciprocal) = floor(x * reciprocal / 2^15) and
// mulhi(2y, scale) = floor(y / 2^L) = floor(x * reciprocal / 2^(15 + L)),
// which is x / q for every x up to 2^14: the error of the reciprocal,
// reciprocal * q - 2^(15 + L), is below q <= 2^(L + 1), so x times it stays
// below 2^(15 + L).  (mulhi: the upper 16 bits of the unsigned product.)
struct alignas(64) Quantiser {
  uint32_t multiplier[64];
  uint16_t half[64];
  uint16_t reciprocal[64];
  uint16_t scale[64];
};
inline constexpr int kReciprocalShift = 20;
// From a table of 64 entries in zig-zag order, as a record holds it.  An
// entry of 0 (a Q scale above 320) divides by 1 rather than trap.
Quantiser make_quantiser(const uint8_t* table) noexcept;
// The block's coefficients (|c| <= 4095) quantised, (c + q/2) / q above 0
// and (c - q/2) / q otherwise, truncated toward zero, in zig-zag order.
// Returns the mask of the non-zero ones: bit k for zz[k] (bit 0 for the
// quantised DC itself, not its difference).
uint64_t quantise_scalar(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept;

// Raster to quantised blocks in one step, as the kernels above would do it
// one after the other.  A 4:2:2 MCU at pixel x: zz[0], zz[1] the Y blocks
// (by `luma`), zz[2] U and zz[3] V (by `chroma`), nonzero[i] the mask of
// zz[i] as quantise returns it.
void mcu_422_scalar(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma, const Quantiser& chroma,
                    int16_t (*zz)[64], uint64_t* nonzero) noexcept;
// Four grey blocks at pixels x, x + 8, x + 16 and x + 24.
void grey_4_scalar(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                   uint64_t* nonzero) noexcept;

struct BlockKernels {
  void (*fdct)(int16_t* block) noexcept;
  uint64_t (*quantise)(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept;
  void (*mcu_422)(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma, const Quantiser& chroma,
                  int16_t (*zz)[64], uint64_t* nonzero) noexcept;
  void (*grey_4)(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                 uint64_t* nonzero) noexcept;
};
// The kernels of one SIMD level, which the processor must support; each
// gives the scalar kernels' values.
BlockKernels block_kernels(simd::Level level) noexcept;
// The kernels of the active SIMD level, chosen once.
const BlockKernels& block_kernels() noexcept;

// ---------------------------------------------------------------------------
// Huffman coding.
//
// The stream is the concatenation of every code and its extra bits, cut into
// 32-bit words that go out top byte first, each 0xFF byte followed by a
// stuffed 0x00.  Only whole words ever go out, so a strip ends with the same
// bytes (and the same pending bits) as a writer of one word at a time.
struct BitWriter {
  uint64_t bits = 0;  // pending bits, right-aligned; those above `count` are stale
  int count = 0;      // 0..63; below 32 after encode_block, emit_words and finish
};

// Most bytes one block can add: 27 bits for the DC, at most 27 for each AC
// value, 3 runs of sixteen zeros and an end of block, every byte stuffed;
// and 4 bytes past the end it returns, which the coder may store to.
inline constexpr std::size_t kMaxBlockBytes = 452;

// Bit k set for each non-zero zz[k], k = 0..63.
using NonzeroMask = uint64_t (*)(const int16_t* zz) noexcept;
uint64_t nonzero_mask_scalar(const int16_t* zz) noexcept;
NonzeroMask nonzero_mask_simd(simd::Level level) noexcept;  // null: no kernel at that level

// Codes one block whose value 0 is the DC difference (-2047..2047) and whose
// AC values are within category 10.  `dc` and `ac` are the encoder's forms
// of the DC and AC codes (CodingTables::*_put).  Returns the new end.
// `mask` must be the block's non-zero mask (bit 0 is not read), e.g. one the
// quantiser made on the way; the overload without it makes one at the
// active level.
uint8_t* encode_block(BitWriter& w, uint8_t* out, const int16_t* zz, uint64_t mask, const SymbolPut* dc,
                      const SymbolPut* ac) noexcept;
uint8_t* encode_block(BitWriter& w, uint8_t* out, const int16_t* zz, const SymbolPut* dc,
                      const SymbolPut* ac) noexcept;
// The coder of a level, its mask kernel inlined; null: none at that level.
using EncodeBlock = uint8_t* (*)(BitWriter& w, uint8_t* out, const int16_t* zz, const SymbolPut* dc,
                                 const SymbolPut* ac) noexcept;
EncodeBlock encode_block_simd(simd::Level level) noexcept;
// Writes the whole words of the pending bits; fewer than 32 remain.
uint8_t* emit_words(BitWriter& w, uint8_t* out) noexcept;
// The end of the stream: whole words, then n pending bits (0 < n < 32) in
// n / 8 + 1 bytes whose spare bits are 0 but the last one, which is 1.
uint8_t* finish(BitWriter& w, uint8_t* out) noexcept;

}  // namespace pix::jpeg::kernels
