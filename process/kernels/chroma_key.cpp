#include "chroma_key.h"

#include <algorithm>
#include <cstring>

namespace pix::process::kernels {

namespace {

inline uint8_t mean(uint8_t a, uint8_t b) { return static_cast<uint8_t>((a + b) >> 1); }

// Where the replacement bytes of a keyed pair come from.  Each kernel loop
// is compiled for one of the two, so nothing is decided per pair.
struct Flat {
  uint8_t pair[4];      // Yk, Uk, Yk, Vk
  uint8_t leading[4];   // the pair before a keyed run is averaged with Yk, Vk, Yk, Vk
  explicit Flat(KeyColour c) : pair{c.y, c.u, c.y, c.v}, leading{c.y, c.v, c.y, c.v} {}
  const uint8_t* at(std::ptrdiff_t) const noexcept { return pair; }
  const uint8_t* before_run(std::ptrdiff_t) const noexcept { return leading; }
};
struct Background {
  const uint8_t* bytes;
  const uint8_t* at(std::ptrdiff_t offset) const noexcept { return bytes + offset; }
  const uint8_t* before_run(std::ptrdiff_t offset) const noexcept { return bytes + offset; }
};

inline void blend(const uint8_t* s, const uint8_t* r, uint8_t* d) {
  for (int i = 0; i < 4; ++i) d[i] = mean(s[i], r[i]);
}

template <class Replace>
void hard(const uint8_t* src, const Replace& with, uint8_t* dst, std::size_t pairs, const KeySettings& k,
          KeyCarry& carry) {
  bool keyed = carry.previous_keyed;
  for (std::size_t i = 0; i < pairs; ++i) {
    const auto at = static_cast<std::ptrdiff_t>(4 * i);
    keyed = keys(src + at, k);
    std::memcpy(dst + at, keyed ? with.at(at) : src + at, 4);
  }
  carry.previous_keyed = keyed;
}

template <class Replace>
void soft(const uint8_t* src, const Replace& with, uint8_t* dst, std::size_t pairs, const KeySettings& k,
          KeyCarry& carry) {
  bool previous = carry.previous_keyed;
  for (std::size_t i = 0; i < pairs; ++i) {
    const auto at = static_cast<std::ptrdiff_t>(4 * i);
    const bool keyed = keys(src + at, k);
    if (keyed) {
      std::memcpy(dst + at, with.at(at), 4);
      // The kept pair before a keyed run is rewritten from its source bytes,
      // even when it was itself softened as the end of an earlier run.
      if (!previous) blend(src + at - 4, with.before_run(at - 4), dst + at - 4);
    } else if (previous) {
      blend(src + at, with.at(at), dst + at);
    } else {
      std::memcpy(dst + at, src + at, 4);
    }
    previous = keyed;
  }
  carry.previous_keyed = previous;
}

}  // namespace

void key_hard_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                  const KeySettings& k, KeyCarry& carry) {
  if (background != nullptr) {
    hard(src, Background{background}, dst, pairs, k, carry);
  } else {
    hard(src, Flat{k.colour}, dst, pairs, k, carry);
  }
}

void key_soft_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                  const KeySettings& k, KeyCarry& carry) {
  if (background != nullptr) {
    soft(src, Background{background}, dst, pairs, k, carry);
  } else {
    soft(src, Flat{k.colour}, dst, pairs, k, carry);
  }
}

void build_keyed_uv(const uint16_t* hue, KeyRange range, uint8_t* bits) {
  for (std::size_t byte = 0; byte < 65536 / 8; ++byte) {
    unsigned b = 0;
    for (unsigned i = 0; i < 8; ++i) {
      const int h = hue[8 * byte + i];
      b |= unsigned(range.hue_lo < h && h < range.hue_hi) << i;
    }
    bits[byte] = static_cast<uint8_t>(b);
  }
  std::memset(bits + 65536 / 8, 0, kKeyedUvBytes - 65536 / 8);
}

namespace {

// A (U, V) as its offset from the grey point.
struct Offset {
  int x, y;
};
Offset offset_of(unsigned index) { return {int(index >> 8) - 128, int(index & 0xFF) - 128}; }
// Positive when `q` lies counter-clockwise of `p`, less than half a turn on.
long cross(Offset p, Offset q) { return long{p.x} * q.y - long{p.y} * q.x; }

}  // namespace

bool build_hue_arc(const uint16_t* hue, KeyRange range, HueArc& arc) {
  constexpr unsigned kGrey = 128 * 256 + 128;
  // The hues that key, first..last; each (U, V) ranked by how far its hue
  // lies past `first`, so that ranks grow counter-clockwise from the
  // sector's start and wrap once, at that start.
  const int first = std::max(range.hue_lo + 1, 0), last = std::min(range.hue_hi - 1, 359);
  auto rank = [&](int h) { return (h - first + 360) % 360; };
  // Of the keyed and the unkeyed offsets (grey aside), those of the lowest
  // and the highest rank; among equal ranks the one furthest clockwise for
  // the lowest, counter-clockwise for the highest.
  struct End {
    Offset at{0, 0};
    int rank = -1;
  };
  End low[2], high[2];  // [keyed]
  for (unsigned i = 0; i < 65536; ++i) {
    if (hue[i] > 359) return false;
    if (i == kGrey) continue;
    const int r = rank(hue[i]);
    const bool keyed = first <= last && r <= last - first;
    const Offset o = offset_of(i);
    End& lo = low[keyed];
    End& hi = high[keyed];
    if (lo.rank < 0 || r < lo.rank || (r == lo.rank && cross(o, lo.at) > 0)) lo = {o, r};
    if (hi.rank < 0 || r > hi.rank || (r == hi.rank && cross(hi.at, o) > 0)) hi = {o, r};
  }
  const bool grey = range.hue_lo < hue[kGrey] && hue[kGrey] < range.hue_hi;
  // Halfway (in direction) between the last offset of one kind and the first
  // of the other: no (U, V) but grey lies on either border.
  const Offset start{high[0].at.x + low[1].at.x, high[0].at.y + low[1].at.y};
  const Offset end{high[1].at.x + low[0].at.x, high[1].at.y + low[0].at.y};
  auto sector = [&](Offset from, Offset to, bool outside) {
    // Inside when counter-clockwise of `from` and clockwise of `to`; the
    // products vanish at grey alone, which the thresholds take or leave.
    const int32_t t = grey != outside ? -1 : 0;
    arc = {int16_t(-from.y), int16_t(from.x), int16_t(to.y), int16_t(-to.x), t, outside};
  };
  if (low[1].rank < 0 || low[0].rank < 0) {
    // Nothing keys, or everything does: an empty sector (a border through
    // no (U, V) but grey, and its opposite), or its complement.
    sector({256, -1}, {256, -1}, low[0].rank < 0);
  } else if (cross(start, end) > 0 || (cross(start, end) == 0 && start.x * end.x + start.y * end.y < 0)) {
    sector(start, end, false);
  } else if (cross(start, end) < 0) {
    sector(end, start, true);  // more than half a turn: what does not key
  } else {
    return false;
  }
  for (unsigned i = 0; i < 65536; ++i) {
    if (in_arc(arc, i >> 8, i & 0xFF) != (range.hue_lo < hue[i] && hue[i] < range.hue_hi)) return false;
  }
  return true;
}

void add_hue_and_luma(const uint8_t* src, std::size_t pairs, const uint16_t* hue, double divisor, double& hue_sum,
                      double& luma_sum) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4) {
    hue_sum += hue[(src[1] << 8) | src[3]] / divisor;
    luma_sum += src[0] / divisor;
  }
}

}  // namespace pix::process::kernels
