#include "chroma_key.h"

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

void add_hue_and_luma(const uint8_t* src, std::size_t pairs, const uint16_t* hue, double divisor, double& hue_sum,
                      double& luma_sum) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4) {
    hue_sum += hue[(src[1] << 8) | src[3]] / divisor;
    luma_sum += src[0] / divisor;
  }
}

}  // namespace pix::process::kernels
