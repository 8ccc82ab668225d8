#include "idct.h"

#include <cstring>

namespace pix::jpeg::kernels {
namespace {

// 32-bit wrapping arithmetic: unsigned operations, read back as signed where
// the sign matters (the descaling and the clamp).
using u32 = uint32_t;

// Sign-dependent rounding that floors: a sum s > 0 gains half a unit, s <= 0
// loses one, so 0 descales to -1.  Kept: the decoded samples of every
// stream depend on it.
template <int Bits>
inline int32_t descale(u32 s) {
  constexpr u32 half = u32{1} << (Bits - 1);
  const auto v = static_cast<int32_t>(s);
  return v > 0 ? static_cast<int32_t>(s + half) >> Bits : static_cast<int32_t>(s - half) >> Bits;
}

// The 1-D Loeffler-Ligtenberg-Moschytz butterflies, constants scaled by
// 8192.  d[k * step] in, o[k * ostep] out, descaled by `Bits`.
template <int Bits, class Out>
inline void idct_1d(u32 d0, u32 d1, u32 d2, u32 d3, u32 d4, u32 d5, u32 d6, u32 d7, Out&& o) {
  const u32 z1 = (d2 + d6) * 4433u;
  const u32 e2 = z1 - d6 * 15137u;
  const u32 e3 = z1 + d2 * 6270u;
  const u32 e0 = (d0 + d4) << 13;
  const u32 e1 = (d0 - d4) << 13;
  const u32 t10 = e0 + e3, t13 = e0 - e3, t11 = e1 + e2, t12 = e1 - e2;

  const u32 z5 = (d7 + d3 + d5 + d1) * 9633u;
  const u32 a = (d7 + d1) * static_cast<u32>(-7373);
  const u32 b = (d5 + d3) * static_cast<u32>(-20995);
  const u32 c = (d7 + d3) * static_cast<u32>(-16069) + z5;
  const u32 e = (d5 + d1) * static_cast<u32>(-3196) + z5;
  const u32 o0 = d7 * 2446u + a + c;
  const u32 o1 = d5 * 16819u + b + e;
  const u32 o2 = d3 * 25172u + b + c;
  const u32 o3 = d1 * 12299u + a + e;

  o(0, descale<Bits>(t10 + o3));
  o(7, descale<Bits>(t10 - o3));
  o(1, descale<Bits>(t11 + o2));
  o(6, descale<Bits>(t11 - o2));
  o(2, descale<Bits>(t12 + o1));
  o(5, descale<Bits>(t12 - o1));
  o(3, descale<Bits>(t13 + o0));
  o(4, descale<Bits>(t13 - o0));
}

inline uint8_t level_shift(int32_t s) {
  s = s < -128 ? -128 : (s > 127 ? 127 : s);
  return static_cast<uint8_t>(((s & 255) + 128) & 255);
}

}  // namespace

uint8_t dc_only_sample(int32_t dc, uint16_t q0) noexcept {
  return level_shift(descale<18>((static_cast<u32>(dc) * q0 * 4u) << 13));
}

void idct_block(const int16_t* coef, int32_t dc, const uint16_t* q, uint8_t* out, std::ptrdiff_t stride,
                uint64_t nonzero) noexcept {
  constexpr uint64_t kColumn = 0x0101010101010100;  // rows 1..7 of column 0
  if ((nonzero & ~uint64_t{1}) == 0) {
    // DC only: every column but the first is zero, the first is DC x 4, and
    // every row then gives one sample.
    const uint8_t s = dc_only_sample(dc, q[0]);
    for (int r = 0; r < 8; ++r) std::memset(out + r * stride, s, 8);
    return;
  }
  int32_t ws[64];
  unsigned filled = 0;  // columns whose outputs are not all zero
  // Columns: dequantise, then the shortcut for a column whose AC terms are
  // all zero (DC x 4, not descaled), else the butterflies descaled by 11.
  for (int c = 0; c < 8; ++c) {
    u32 d[8];
    d[0] = c == 0 ? static_cast<u32>(dc) * q[0] : static_cast<u32>(coef[c] * q[c]);
    if ((nonzero & (kColumn << c)) == 0) {
      const auto v = static_cast<int32_t>(d[0] * 4u);
      for (int k = 0; k < 8; ++k) ws[k * 8 + c] = v;
      filled |= (v != 0 ? 1u : 0u) << c;
      continue;
    }
    filled |= 1u << c;
    u32 any = 0;
    for (int k = 1; k < 8; ++k) any |= d[k] = static_cast<u32>(coef[k * 8 + c] * q[k * 8 + c]);
    if (any == 0) {
      const auto v = static_cast<int32_t>(d[0] * 4u);
      for (int k = 0; k < 8; ++k) ws[k * 8 + c] = v;
      continue;
    }
    idct_1d<11>(d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], [&](int k, int32_t v) { ws[k * 8 + c] = v; });
  }
  // Rows, descaled by 18.  A row whose AC terms are all zero gives eight
  // equal samples; computing it once is the same arithmetic.
  for (int r = 0; r < 8; ++r) {
    const int32_t* w = ws + r * 8;
    uint8_t* o = out + r * stride;
    if ((w[1] | w[2] | w[3] | w[4] | w[5] | w[6] | w[7]) == 0) {
      const uint8_t s = level_shift(descale<18>(static_cast<u32>(w[0]) << 13));
      for (int k = 0; k < 8; ++k) o[k] = s;
      continue;
    }
    const auto put = [o](int k, int32_t v) { o[k] = level_shift(v); };
    const auto x = [w](int k) { return static_cast<u32>(w[k]); };
    if (filled < 16) {  // the right half is zero: the same sums without its terms
      idct_1d<18>(x(0), x(1), x(2), x(3), 0, 0, 0, 0, put);
    } else {
      idct_1d<18>(x(0), x(1), x(2), x(3), x(4), x(5), x(6), x(7), put);
    }
  }
}

void place_422(const uint8_t* y1, const uint8_t* y2, const uint8_t* u, const uint8_t* v, uint8_t* dst,
               std::ptrdiff_t stride) noexcept {
  for (int r = 0; r < 8; ++r, dst += stride, y1 += 8, y2 += 8, u += 8, v += 8) {
    for (int p = 0; p < 4; ++p) {
      uint8_t* d = dst + 4 * p;
      d[0] = y1[2 * p], d[1] = u[p], d[2] = y1[2 * p + 1], d[3] = v[p];
      d += 16;
      d[0] = y2[2 * p], d[1] = u[4 + p], d[2] = y2[2 * p + 1], d[3] = v[4 + p];
    }
  }
}

void place_411(const uint8_t* y1, const uint8_t* y2, const uint8_t* y3, const uint8_t* y4, const uint8_t* u,
               const uint8_t* v, uint8_t* dst, std::ptrdiff_t stride) noexcept {
  for (int r = 0; r < 16; ++r, dst += stride) {
    const uint8_t* left = (r < 8 ? y1 : y3) + (r & 7) * 8;
    const uint8_t* right = (r < 8 ? y2 : y4) + (r & 7) * 8;
    const uint8_t* cu = u + (r / 2) * 8;
    const uint8_t* cv = v + (r / 2) * 8;
    for (int p = 0; p < 4; ++p) {
      uint8_t* d = dst + 4 * p;
      d[0] = left[2 * p], d[1] = cu[p], d[2] = left[2 * p + 1], d[3] = cv[p];
      d += 16;
      d[0] = right[2 * p], d[1] = cu[4 + p], d[2] = right[2 * p + 1], d[3] = cv[4 + p];
    }
  }
}

void grey_blocks_scalar(const BlockIn* blocks, std::size_t n, const uint16_t* q, uint8_t* out,
                        std::ptrdiff_t stride) noexcept {
  for (std::size_t i = 0; i < n; ++i) idct_block(blocks[i].coef, blocks[i].dc, q, out + 8 * i, stride, blocks[i].nonzero);
}

namespace {
template <int Blocks, int Luma>
void samples(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t (&s)[Blocks][64]) {
  for (int k = 0; k < Blocks; ++k) {
    idct_block(blocks[k].coef, blocks[k].dc, k < Luma ? qy : qc, s[k], 8, blocks[k].nonzero);
  }
}
}  // namespace

void yuv422_blocks_scalar(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t* out,
                          std::ptrdiff_t stride) noexcept {
  alignas(16) uint8_t s[4][64];
  samples<4, 2>(blocks, qy, qc, s);
  place_422(s[0], s[1], s[2], s[3], out, stride);
}

void yuv411_blocks_scalar(const BlockIn* blocks, const uint16_t* qy, const uint16_t* qc, uint8_t* out,
                          std::ptrdiff_t stride) noexcept {
  alignas(16) uint8_t s[6][64];
  samples<6, 4>(blocks, qy, qc, s);
  place_411(s[0], s[1], s[2], s[3], s[4], s[5], out, stride);
}

IdctKernels idct_kernels(simd::Level level) noexcept {
  IdctKernels k{grey_blocks_scalar, yuv422_blocks_scalar, yuv411_blocks_scalar};
  // From the lowest level up, so each entry ends as the widest one at or below `level`.
  for (auto l = simd::Level::sse2; static_cast<int>(l) <= static_cast<int>(level);
       l = static_cast<simd::Level>(static_cast<int>(l) + 1)) {
    if (const auto f = grey_blocks_simd(l)) k.grey = f;
    if (const auto f = yuv422_blocks_simd(l)) k.yuv422 = f;
    if (const auto f = yuv411_blocks_simd(l)) k.yuv411 = f;
  }
  return k;
}

// Chosen at the first decode: the processor does not change under a running program.
const IdctKernels& idct_kernels() noexcept {
  static const IdctKernels chosen = idct_kernels(simd::active());
  return chosen;
}

}  // namespace pix::jpeg::kernels
