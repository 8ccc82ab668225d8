// Row kernels of chroma keying: YUV 4:2:2 pairs (Y0, U, Y1, V) whose hue and
// left luma fall inside a key range are replaced by a background or a flat
// key colour, with hard or softened edges.  No handles, no errors, no
// globals; these scalar kernels are the reference for any vector version.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/simd.h"

namespace pix::process::kernels {

// The key range of a strip: a pair keys when y_lo < Y0 < y_hi and
// hue_lo < hue < hue_hi, all strict.  The bounds are 16-bit signed values
// already clamped (luma to 0..255, hue to 0..359), so a pair never needs
// more than integer compares.
struct KeyRange {
  int16_t y_lo, y_hi, hue_lo, hue_hi;
};

// A flat key colour.
struct KeyColour {
  uint8_t y, u, v;
};

// The hue half of the decision as a sector around the grey point
// (U, V) = (128, 128), tested with two signed products per pair and no table:
// with u = (U - 128) * 256 and v = (V - 128) * 256, a pair's (U, V) lies in
// the hue range when
//   (a1 * u + b1 * v > t && a2 * u + b2 * v > t) != outside.
// Hue grows with the angle of (U - 128, V - 128) except where it wraps, so
// the hues of a range fill one sector (or its complement, when the range
// spans more than half a turn); build_hue_arc checks that claim on every
// (U, V) before the vector kernels rely on it.  The scale by 256 is how the
// vector kernels see the bytes (the pair's U and V as the high bytes of two
// 16-bit words).
struct HueArc {
  int16_t a1, b1, a2, b2;
  int32_t t;
  bool outside;
};
inline bool in_arc(const HueArc& s, unsigned u, unsigned v) noexcept {
  const int32_t x = (int32_t(u) - 128) * 256, y = (int32_t(v) - 128) * 256;
  return (s.a1 * x + s.b1 * y > s.t && s.a2 * x + s.b2 * y > s.t) != s.outside;
}
// Finds the sector of `range` for the hue table `hue` and checks it on every
// (U, V): false (and `arc` unspecified) when no sector matches the table.
bool build_hue_arc(const uint16_t* hue, KeyRange range, HueArc& arc);

// What stays the same for a whole strip.
struct KeySettings {
  KeyRange range;
  const uint16_t* hue;  // 65536 hues, indexed by U * 256 + V
  KeyColour colour;     // used when no background is given
  // The hue half of the decision as bits (see build_keyed_uv) and, when the
  // table allows, as a sector (see build_hue_arc); the vector kernels take
  // the sector, else the bits, and leave a strip with neither to the scalar
  // ones.
  const uint8_t* keyed_uv = nullptr;
  const HueArc* arc = nullptr;
};

// Bit (U * 256 + V) of `bits` (bit i is bit i % 8 of byte i / 8) set when
// hue_lo < hue < hue_hi for that (U, V).  The bytes beyond the 65536 bits
// are zero: the vector kernels load 4 bytes at each bit's byte.
inline constexpr std::size_t kKeyedUvBytes = 65536 / 8 + 4;
void build_keyed_uv(const uint16_t* hue, KeyRange range, uint8_t* bits);

// Carried from one run of pairs to the next within a strip: whether the
// pair before the run was keyed.
struct KeyCarry {
  bool previous_keyed = false;
};

// The keying decision for one pair.
inline bool keys(const uint8_t* pair, const KeySettings& k) noexcept {
  const int y = pair[0];
  const int hue = k.hue[(pair[1] << 8) | pair[3]];
  return k.range.y_lo < y && y < k.range.y_hi && k.range.hue_lo < hue && hue < k.range.hue_hi;
}

// Hard edges over `pairs` pairs: a kept pair is copied, a keyed one becomes
// the background's four bytes at the same place or, when `background` is
// null, (Yk, Uk, Yk, Vk).  `carry` ends holding the last pair's decision.
void key_hard_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                  const KeySettings& k, KeyCarry& carry);

// Soft edges: as hard edges, and each border between kept and keyed pairs
// is softened on its kept side with the truncated mean (a + b) >> 1 of the
// kept pair's source bytes and the replacement at its place.  A keyed run
// rewrites the kept pair just before it (with the flat colour, the U byte of
// that pair is averaged with Vk); a kept pair after a keyed run is itself
// averaged.  When `carry` says the pair before the run was kept and the
// first pair keys, the four bytes before `src`, `background` and `dst` are
// read and the four before `dst` rewritten: the caller passes a run that has
// a pair before it whenever that can happen.
void key_soft_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                  const KeySettings& k, KeyCarry& carry);

// Calibration sums over `pairs` consecutive pairs: hue / divisor added to
// `hue_sum` and Y0 / divisor to `luma_sum`, pair by pair in order (the
// order fixes the last bits of the sums).
void add_hue_and_luma(const uint8_t* src, std::size_t pairs, const uint16_t* hue, double divisor, double& hue_sum,
                      double& luma_sum);

// The keying rows by SIMD level: the vector kernels of `level` (null
// members: none there, or the processor lacks it), and the fastest this
// processor runs, chosen once.
using KeyRow = void (*)(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                        const KeySettings& k, KeyCarry& carry);
struct KeyKernels {
  KeyRow hard, soft;
};
KeyKernels key_kernels(simd::Level level) noexcept;
const KeyKernels& key_kernels() noexcept;

}  // namespace pix::process::kernels
