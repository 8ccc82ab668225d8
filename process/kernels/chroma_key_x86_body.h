// Chroma keying over whole vectors: included by chroma_key_simd.cpp once per
// instruction set, inside that set's namespace, after its target T, its
// vector V of kPairs pairs, its mask type M and its operations, among them
// keyed_arc (the keying bits of kPairs pairs from a sector) and keyed_group
// (from the bit table).  No include guard: each inclusion is a different
// kernel.
//
// A strip is keyed a vector at a time, the keying bits of the next vector
// worked out before the current one is written.  With the bits of a pair,
// the one before and the one after at hand, every pair's final bytes are
// known at once (the scalar kernel rewrites a kept pair when the next pair
// keys; here it is written once, as it ends up):
//   keyed                          the replacement at its place
//   kept, the next keyed           mean of its bytes and the replacement before a run
//   kept, the next kept, the one
//   before keyed (soft edges)      mean of its bytes and the replacement at its place
//   otherwise                      its own bytes

// One pair, its bit and those of its neighbours given.
template <bool Soft, bool Bg>
T PIX95_INLINE void key_one(const uint8_t* s, const uint8_t* bg, uint8_t* d, const uint8_t* at, const uint8_t* lead,
                            bool keyed, bool before, bool next) {
  const uint8_t* r = Bg ? bg : at;
  const uint8_t* rb = Bg ? bg : lead;
  for (int b = 0; b < 4; ++b) {
    uint8_t v = s[b];
    if (keyed) {
      v = r[b];
    } else if (Soft && next) {
      v = static_cast<uint8_t>((s[b] + rb[b]) >> 1);
    } else if (Soft && before) {
      v = static_cast<uint8_t>((s[b] + r[b]) >> 1);
    }
    d[b] = v;
  }
}

// The two ways to the keying bits of a vector of pairs.
struct BySector {
  Arc arc;
  T PIX95_INLINE unsigned operator()(const uint8_t*, V v) const { return keyed_arc(v, arc); }
};
struct ByTable {
  const uint8_t* uv;
  Luma luma;
  T PIX95_INLINE unsigned operator()(const uint8_t* p, V) const { return keyed_group(p, uv, luma); }
};

template <bool Soft, bool Bg, class Decide>
T PIX95_INLINE void key_vectors(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                                const KeySettings& k, KeyCarry& carry, const Decide& decide) {
  if (pairs == 0) return;
  const KeyColour c = k.colour;
  const uint8_t at[4] = {c.y, c.u, c.y, c.v}, lead[4] = {c.y, c.v, c.y, c.v};
  const V at_v = set32(static_cast<int32_t>(c.y | c.u << 8 | c.y << 16 | uint32_t{c.v} << 24));
  const V lead_v = set32(static_cast<int32_t>(c.y | c.v << 8 | c.y << 16 | uint32_t{c.v} << 24));
  constexpr unsigned kAll = (1u << kPairs) - 1;
  constexpr std::size_t kBytes = 4 * kPairs;
  const std::size_t groups = pairs / kPairs, rest = pairs % kPairs, tail = groups * kPairs;
  // The pairs after the last whole vector, by the scalar decision.
  unsigned tail_bits = 0;
  for (std::size_t j = 0; j < rest; ++j) tail_bits |= unsigned{keys(src + 4 * (tail + j), k)} << j;
  bool previous = carry.previous_keyed;
  V sv = groups != 0 ? loadu(src) : set32(0);
  unsigned cur = groups != 0 ? decide(src, sv) : tail_bits;
  // The kept pair before the run's first keyed pair (the caller's pair
  // before the run).
  if (Soft && !previous && (cur & 1) != 0) {
    key_one<Soft, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
  }
  for (std::size_t g = 0; g < groups; ++g) {
    const std::size_t o = g * kBytes;
    V next_v = sv;
    unsigned next = tail_bits;
    if (g + 1 < groups) {
      next_v = loadu(src + o + kBytes);
      next = decide(src + o + kBytes, next_v);
    }
    const V r = Bg ? loadu(background + o) : at_v;
    V out = sv;
    if (Soft) {
      const unsigned before = ((cur << 1) | unsigned{previous}) & kAll;
      const unsigned after = (cur >> 1) | (next & 1) << (kPairs - 1);
      const unsigned edge = (before | after) & ~cur & kAll;
      const V rb = Bg ? r : select(mask_of(after), lead_v, at_v);
      out = select(mask_of(edge), mean(sv, rb), sv);
    }
    storeu(dst + o, select(mask_of(cur), r, out));
    previous = ((cur >> (kPairs - 1)) & 1) != 0;
    cur = next, sv = next_v;
  }
  for (std::size_t j = 0; j < rest; ++j) {
    const std::size_t i = tail + j;
    key_one<Soft, Bg>(src + 4 * i, Bg ? background + 4 * i : nullptr, dst + 4 * i, at, lead, (cur >> j) & 1,
                      j == 0 ? previous : ((cur >> (j - 1)) & 1) != 0, Soft && ((cur >> (j + 1)) & 1) != 0);
  }
  if (rest != 0) previous = ((cur >> (rest - 1)) & 1) != 0;
  carry.previous_keyed = previous;
}

template <bool Soft, bool Bg>
T void key_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs, const KeySettings& k,
               KeyCarry& carry) {
  if (k.arc != nullptr) {
    const HueArc& a = *k.arc;
    const BySector by{{set32(k.range.y_lo), set32(k.range.y_hi), set32(words(a.a1, a.b1)), set32(words(a.a2, a.b2)),
                       set32(a.t1), set32(a.t2), outside_of(a.outside)}};
    key_vectors<Soft, Bg>(src, background, dst, pairs, k, carry, by);
  } else if (k.keyed_uv != nullptr) {
    key_vectors<Soft, Bg>(src, background, dst, pairs, k, carry, ByTable{k.keyed_uv, luma_bounds(k.range)});
  } else {
    (Soft ? key_soft_row : key_hard_row)(src, background, dst, pairs, k, carry);
  }
}

T void hard_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs, const KeySettings& k,
                KeyCarry& carry) {
  if (background != nullptr) {
    key_row<false, true>(src, background, dst, pairs, k, carry);
  } else {
    key_row<false, false>(src, background, dst, pairs, k, carry);
  }
}

T void soft_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs, const KeySettings& k,
                KeyCarry& carry) {
  if (background != nullptr) {
    key_row<true, true>(src, background, dst, pairs, k, carry);
  } else {
    key_row<true, false>(src, background, dst, pairs, k, carry);
  }
}
