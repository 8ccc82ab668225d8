// Scalar block kernels of the JPEG encoder, and the choice of the kernels
// this processor runs.
#include "encode.h"

#include <array>
#include <bit>
#include <cstring>

#include "core/simd.h"
#include "fdct_x86.h"

namespace pix::jpeg::kernels {
namespace {

// Kept: a sum above 0 rounds half up, a sum of 0 or below is taken half a
// unit lower and floored (arithmetic shift), so 0 itself gives -1.
PIX95_INLINE int32_t descale(int32_t s, int n) {
  const int32_t half = int32_t{1} << (n - 1);
  return (s > 0 ? s + half : s - half) >> n;
}

// One pass of butterflies over the 8 rows (Rows) or the 8 columns of the
// block.  The row pass leaves its results 4 times the transform's; the
// column pass takes that factor and the output's division by 8 out.
template <bool Rows>
PIX95_INLINE void fdct_pass(int16_t* b) {
  constexpr int step = Rows ? 1 : 8, next = Rows ? 8 : 1, shift = Rows ? 11 : 18;
  for (int i = 0; i < 8; ++i, b += next) {
    const int32_t d0 = b[0], d1 = b[step], d2 = b[2 * step], d3 = b[3 * step];
    const int32_t d4 = b[4 * step], d5 = b[5 * step], d6 = b[6 * step], d7 = b[7 * step];
    const int32_t tmp0 = d0 + d7, tmp1 = d1 + d6, tmp2 = d2 + d5, tmp3 = d3 + d4;
    const int32_t tmp7 = d0 - d7, tmp6 = d1 - d6, tmp5 = d2 - d5, tmp4 = d3 - d4;
    const int32_t tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3, tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
    if constexpr (Rows) {
      b[0] = static_cast<int16_t>((tmp10 + tmp11) * 4);
      b[4 * step] = static_cast<int16_t>((tmp10 - tmp11) * 4);
    } else {
      b[0] = static_cast<int16_t>(descale(tmp10 + tmp11, 5));
      b[4 * step] = static_cast<int16_t>(descale(tmp10 - tmp11, 5));
    }
    const int32_t z1 = (tmp12 + tmp13) * 4433;
    b[2 * step] = static_cast<int16_t>(descale(z1 + tmp13 * 6270, shift));
    b[6 * step] = static_cast<int16_t>(descale(z1 - tmp12 * 15137, shift));
    const int32_t z5 = (tmp4 + tmp5 + tmp6 + tmp7) * 9633;
    const int32_t a = (tmp4 + tmp7) * -7373, bb = (tmp5 + tmp6) * -20995;
    const int32_t c = z5 + (tmp4 + tmp6) * -16069, e = z5 + (tmp5 + tmp7) * -3196;
    b[7 * step] = static_cast<int16_t>(descale(tmp4 * 2446 + a + c, shift));
    b[5 * step] = static_cast<int16_t>(descale(tmp5 * 16819 + bb + e, shift));
    b[3 * step] = static_cast<int16_t>(descale(tmp6 * 25172 + bb + c, shift));
    b[step] = static_cast<int16_t>(descale(tmp7 * 12299 + a + e, shift));
  }
}

// ---------------------------------------------------------------------------
// Huffman coding.

// `bytes` bytes of `word`, top first, 0xFF followed by 0x00.
PIX95_INLINE uint8_t* stuffed(uint8_t* out, uint64_t word, int bytes) {
  for (int s = 8 * (bytes - 1); s >= 0; s -= 8) {
    const auto b = static_cast<uint8_t>(word >> s);
    *out++ = b;
    if (b == 0xFF) *out++ = 0;
  }
  return out;
}

// Bit k set for each non-zero zz[k], four values a 64-bit word: the top bit
// of each 16-bit lane tells a non-zero lane, and one multiplication gathers
// the four top bits (their products land on distinct bits, so nothing carries).
PIX95_INLINE uint64_t mask_scalar(const int16_t* zz) {
  uint64_t mask = 0;
  for (int i = 0; i < 16; ++i) {
    uint64_t w = 0;
    if constexpr (std::endian::native == std::endian::little) {
      std::memcpy(&w, zz + 4 * i, 8);
    } else {
      for (int j = 0; j < 4; ++j) w |= uint64_t{static_cast<uint16_t>(zz[4 * i + j])} << (16 * j);
    }
    const uint64_t top = (((w & 0x7FFF7FFF7FFF7FFFull) + 0x7FFF7FFF7FFF7FFFull) | w) & 0x8000800080008000ull;
    mask |= ((top >> 15) * 0x0000200040008001ull >> 45 & 0xF) << (4 * i);
  }
  return mask;
}

#if PIX95_X86
// Saturating packs keep every non-zero value non-zero, so bytes equal to 0
// mark the zero values.
PIX95_SSE2 PIX95_INLINE uint64_t mask_sse2(const int16_t* zz) {
  uint64_t zeros = 0;
  for (int i = 0; i < 4; ++i) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(zz + 16 * i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(zz + 16 * i + 8));
    const __m128i packed = _mm_packs_epi16(a, b);
    const auto m = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(packed, _mm_setzero_si128())));
    zeros |= uint64_t{m} << (16 * i);
  }
  return ~zeros;
}
#endif

// A word with a 0xFF byte: rare, out of line.
[[gnu::noinline, gnu::cold]] uint8_t* stuffed_word(uint8_t* out, uint32_t word) { return stuffed(out, word, 4); }

// The writer in registers while a block is coded (stores through `out`
// could otherwise alias it).  Fewer than 32 bits stay pending after a put:
// each put stores the next word whether it is whole or not and moves past it
// only when it is, so no branch depends on the data but the rare 0xFF byte
// (a branch on whole words, taken at random every 32 to 64 bits, costs more
// than the few operations it saves).
struct Pending {
  uint64_t bits;
  int count;
  // Appends the low n bits of `value` (n <= 32, no bits above n set).
  PIX95_INLINE void put(uint8_t*& out, uint32_t value, int n) {
    bits = (bits << n) | value;
    count += n;
    const auto word = static_cast<uint32_t>(bits >> (count & 31));  // the whole word when count >= 32
    const auto whole = static_cast<uint32_t>(count >> 5);
    const uint32_t big = std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
    std::memcpy(out, &big, 4);
    const uint32_t x = ~word;  // 0xFF bytes of the word are 0 bytes of x
    if (((x - 0x01010101u) & word & 0x80808080u & -whole) != 0) [[unlikely]] {
      out = stuffed_word(out, word);
    } else {
      out += 4 * whole;
    }
    count &= 31;
  }
};

// The extra bits and category of every value -2048..2047, indexed by its
// low 12 bits; negative values put their low bits less one.
struct ValueBits {
  uint16_t extra;
  uint16_t category;
};
constexpr auto kValueBits = [] {
  std::array<ValueBits, 4096> t{};
  for (int v = -2048; v < 2048; ++v) {
    const auto c = static_cast<uint32_t>(std::bit_width(static_cast<uint32_t>(v < 0 ? -v : v)));
    const uint32_t extra = static_cast<uint32_t>(v < 0 ? v - 1 : v) & ((uint32_t{1} << c) - 1);
    t[static_cast<uint32_t>(v) & 4095] = {static_cast<uint16_t>(extra), static_cast<uint16_t>(c)};
  }
  return t;
}();

// Value v and the code of symbol `symbol` + its category, as one put.
PIX95_INLINE void put_value(Pending& p, uint8_t*& out, const SymbolPut* put, std::size_t symbol, int32_t v) {
  const ValueBits vb = kValueBits[static_cast<uint32_t>(v) & 4095];
  const SymbolPut s = put[symbol + vb.category];
  p.put(out, s.code | vb.extra, static_cast<int>(s.length));
}

// One block: the DC difference, then the AC values that `mask` marks non-zero
// (bit k for zz[k]; bit 0 is not read); zeros only lengthen the run.
PIX95_INLINE uint8_t* code_block(BitWriter& w, uint8_t* out, const int16_t* zz, uint64_t mask, const SymbolPut* dc,
                                 const SymbolPut* ac) {
  Pending p{w.bits, w.count};
  if (p.count >= 32) [[unlikely]] p.put(out, 0, 0);  // a whole word left pending goes out first
  put_value(p, out, dc, 0, zz[0]);
  // Bit i of `rest` stands for the value after `at` + i: its count of
  // trailing zeros is the run before the next value.
  const int16_t* at = zz;
  for (uint64_t rest = mask >> 1; rest != 0;) {
    auto run = static_cast<std::size_t>(std::countr_zero(rest));  // at most 62
    rest >>= run + 1;
    at += run + 1;
    if (run >= 16) [[unlikely]] {
      for (; run >= 16; run -= 16) p.put(out, ac[0xF0].code, static_cast<int>(ac[0xF0].length));
    }
    put_value(p, out, ac, run * 16, *at);
  }
  if (mask >> 63 == 0) p.put(out, ac[0].code, static_cast<int>(ac[0].length));  // no end of block after coefficient 63
  w = {p.bits, p.count};
  return out;
}

}  // namespace

void grey_block(const uint8_t* const lines[8], std::size_t x, int16_t* block) noexcept {
  for (int r = 0; r < 8; ++r) {
    const uint8_t* p = lines[r] + x;
    for (int c = 0; c < 8; ++c) block[8 * r + c] = static_cast<int16_t>(p[c] - 128);
  }
}

void yuv_mcu(const uint8_t* const lines[8], std::size_t x, int16_t* y1, int16_t* y2, int16_t* u,
             int16_t* v) noexcept {
  for (int r = 0; r < 8; ++r) {
    const uint8_t* p = lines[r] + 2 * x;
    for (int c = 0; c < 8; ++c) {
      y1[8 * r + c] = static_cast<int16_t>(p[2 * c] - 128);
      y2[8 * r + c] = static_cast<int16_t>(p[16 + 2 * c] - 128);
      u[8 * r + c] = static_cast<int16_t>(p[4 * c + 1] - 128);
      v[8 * r + c] = static_cast<int16_t>(p[4 * c + 3] - 128);
    }
  }
}

void fdct_scalar(int16_t* block) noexcept {
  fdct_pass<true>(block);
  fdct_pass<false>(block);
}

Quantiser make_quantiser(const uint8_t* table) noexcept {
  Quantiser q{};
  for (int i = 0; i < 64; ++i) {
    const uint32_t entry = table[i];
    const uint32_t divisor = entry == 0 ? 1 : entry;
    const int n = kZigZag[i];
    q.multiplier[n] = ((uint32_t{1} << kReciprocalShift) + divisor - 1) / divisor;
    q.half[n] = static_cast<uint16_t>(entry / 2);
    const int log2 = std::bit_width(divisor) - 1;
    q.reciprocal[n] = static_cast<uint16_t>(((uint32_t{1} << (15 + log2)) + divisor - 1) / divisor);
    q.scale[n] = static_cast<uint16_t>(1u << (15 - log2));
  }
  return q;
}

uint64_t quantise_scalar(const int16_t* block, int16_t* zz, const Quantiser& q) noexcept {
  // In natural order first, without branches (coefficient signs are as good
  // as random), then into zig-zag order.
  int16_t natural[64];
  for (int n = 0; n < 64; ++n) {
    const int32_t c = block[n], sign = c >> 31;
    const uint32_t x = static_cast<uint32_t>((c ^ sign) - sign) + q.half[n];
    const auto r = static_cast<int32_t>((x * q.multiplier[n]) >> kReciprocalShift);
    natural[n] = static_cast<int16_t>((r ^ sign) - sign);
  }
  uint64_t nonzero = 0;
  for (int i = 0; i < 64; ++i) {
    zz[i] = natural[kZigZag[i]];
    nonzero |= uint64_t{zz[i] != 0} << i;
  }
  return nonzero;
}

void mcu_422_scalar(const uint8_t* const lines[8], std::size_t x, const Quantiser& luma, const Quantiser& chroma,
                    int16_t (*zz)[64], uint64_t* nonzero) noexcept {
  int16_t blocks[4][64];
  yuv_mcu(lines, x, blocks[0], blocks[1], blocks[2], blocks[3]);
  for (int i = 0; i < 4; ++i) {
    fdct_scalar(blocks[i]);
    nonzero[i] = quantise_scalar(blocks[i], zz[i], i < 2 ? luma : chroma);
  }
}

void grey_4_scalar(const uint8_t* const lines[8], std::size_t x, const Quantiser& q, int16_t (*zz)[64],
                   uint64_t* nonzero) noexcept {
  for (int i = 0; i < 4; ++i) {
    int16_t block[64];
    grey_block(lines, x + 8 * i, block);
    fdct_scalar(block);
    nonzero[i] = quantise_scalar(block, zz[i], q);
  }
}

BlockKernels block_kernels(simd::Level level) noexcept {
  BlockKernels k{fdct_scalar, quantise_scalar, mcu_422_scalar, grey_4_scalar};
  // Each kernel from the widest level up to `level` that has one.
  for (int l = 1; l <= static_cast<int>(level); ++l) {
    const BlockKernels s = block_kernels_simd(static_cast<simd::Level>(l));
    if (s.fdct != nullptr) k.fdct = s.fdct;
    if (s.quantise != nullptr) k.quantise = s.quantise;
    if (s.mcu_422 != nullptr) k.mcu_422 = s.mcu_422;
    if (s.grey_4 != nullptr) k.grey_4 = s.grey_4;
  }
  return k;
}

const BlockKernels& block_kernels() noexcept {
  static const BlockKernels chosen = block_kernels(simd::active());
  return chosen;
}

uint64_t nonzero_mask_scalar(const int16_t* zz) noexcept { return mask_scalar(zz); }

namespace {
#if PIX95_X86
// The SSE2 mask is all a level needs: the wider ones measured no faster (the
// mask is a few instructions of a block's hundreds).
PIX95_SSE2 uint64_t nonzero_mask_sse2(const int16_t* zz) noexcept { return mask_sse2(zz); }
// The whole coder with that mask inlined.
PIX95_SSE2 uint8_t* encode_sse2(BitWriter& w, uint8_t* out, const int16_t* zz, const SymbolPut* dc,
                                const SymbolPut* ac) noexcept {
  return code_block(w, out, zz, mask_sse2(zz), dc, ac);
}
#endif

uint8_t* encode_block_scalar(BitWriter& w, uint8_t* out, const int16_t* zz, const SymbolPut* dc,
                             const SymbolPut* ac) noexcept {
  return code_block(w, out, zz, mask_scalar(zz), dc, ac);
}
}  // namespace

NonzeroMask nonzero_mask_simd([[maybe_unused]] simd::Level level) noexcept {
#if PIX95_X86
  if (level != simd::Level::scalar) return nonzero_mask_sse2;
#endif
  return nullptr;
}

EncodeBlock encode_block_simd([[maybe_unused]] simd::Level level) noexcept {
#if PIX95_X86
  if (level != simd::Level::scalar) return encode_sse2;
#endif
  return nullptr;
}

uint8_t* encode_block(BitWriter& w, uint8_t* out, const int16_t* zz, uint64_t mask, const SymbolPut* dc,
                      const SymbolPut* ac) noexcept {
  return code_block(w, out, zz, mask, dc, ac);
}

uint8_t* encode_block(BitWriter& w, uint8_t* out, const int16_t* zz, const SymbolPut* dc,
                      const SymbolPut* ac) noexcept {
  static const EncodeBlock chosen = [] {
    const EncodeBlock simd = encode_block_simd(simd::active());
    return simd != nullptr ? simd : encode_block_scalar;
  }();
  return chosen(w, out, zz, dc, ac);
}

uint8_t* emit_words(BitWriter& w, uint8_t* out) noexcept {
  for (; w.count >= 32; w.count -= 32) out = stuffed(out, w.bits >> (w.count - 32), 4);
  return out;
}

uint8_t* finish(BitWriter& w, uint8_t* out) noexcept {
  out = emit_words(w, out);
  const int n = w.count;
  if (n == 0) return out;
  // Kept: the pending bits top-aligned in a 32-bit accumulator, written a
  // byte at a time down to `low`, the lowest bit of the last byte set.
  const auto acc = static_cast<uint32_t>(w.bits << (32 - n));
  const int low = 8 * ((31 - n) / 8);
  for (int shift = 24; shift >= low; shift -= 8) {
    auto b = static_cast<uint8_t>(acc >> shift);
    if (shift - 8 < low) b |= 1;
    *out++ = b;
    if (b == 0xFF) *out++ = 0;
  }
  w = {};
  return out;
}

}  // namespace pix::jpeg::kernels
