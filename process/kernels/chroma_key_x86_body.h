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
template <bool Outside>
struct BySector {
  Arc arc;
  T PIX95_INLINE Bits operator()(const uint8_t*, V v) const { return keyed_arc<Outside>(v, arc); }
};
struct ByTable {
  const uint8_t* uv;
  Luma luma;
  T PIX95_INLINE Bits operator()(const uint8_t* p, V) const { return keyed_group(p, uv, luma); }
};

template <bool Soft, bool Bg, class Decide>
T PIX95_INLINE void key_vectors(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                                const KeySettings& k, KeyCarry& carry, const Decide& decide) {
  if (pairs == 0) return;
  const KeyColour c = k.colour;
  const uint8_t at[4] = {c.y, c.u, c.y, c.v}, lead[4] = {c.y, c.v, c.y, c.v};
  const V at_v = set32(static_cast<int32_t>(c.y | c.u << 8 | c.y << 16 | uint32_t{c.v} << 24));
  const V lead_v = set32(static_cast<int32_t>(c.y | c.v << 8 | c.y << 16 | uint32_t{c.v} << 24));
  constexpr std::size_t kBytes = 4 * kPairs;
  const std::size_t groups = pairs / kPairs, rest = pairs % kPairs, tail = groups * kPairs;
  // The pairs after the last whole vector, by the scalar decision.
  unsigned tail_word = 0;
  for (std::size_t j = 0; j < rest; ++j) tail_word |= unsigned{keys(src + 4 * (tail + j), k)} << j;
  bool previous = carry.previous_keyed;
  Bits cur = to_bits(tail_word);
  if (!Soft) {
    for (std::size_t o = 0; o < groups * kBytes; o += kBytes) {
      const V sv = loadu(src + o);
      const Bits keyed = decide(src + o, sv);
      storeu(dst + o, Bg ? select_load(mask_of(keyed), background + o, sv) : select(mask_of(keyed), at_v, sv));
      if (o + kBytes == groups * kBytes) previous = ((from_bits(keyed) >> (kPairs - 1)) & 1) != 0;
    }
  } else {
    V sv = groups != 0 ? loadu(src) : set32(0);
    if (groups != 0) cur = decide(src, sv);
    // The bits as a mask for the selects and as a word for the neighbours.
    unsigned cw = from_bits(cur);
    // The kept pair before the run's first keyed pair (the caller's pair
    // before the run).
    if (!previous && (cw & 1) != 0) {
      key_one<Soft, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
    }
    unsigned before_cur = previous ? 1u << (kPairs - 1) : 0;
    for (std::size_t g = 0; g < groups; ++g) {
      const std::size_t o = g * kBytes;
      V next_v = sv;
      Bits next = to_bits(tail_word);
      if (g + 1 < groups) {
        next_v = loadu(src + o + kBytes);
        next = decide(src + o + kBytes, next_v);
      }
      const unsigned nw = from_bits(next);
      const unsigned after = word_after<kPairs>(cw, nw);
      const unsigned beside = in_register(word_before<kPairs>(cw, before_cur) | after);
      V out;
      if ((beside | cw) == cw) {
        // All keyed or all kept, none of them beside a keyed pair.
        out = Bg ? select_load(mask_of(cur), background + o, sv) : select(mask_of(cur), at_v, sv);
      } else {
        const V r = Bg ? loadu(background + o) : at_v;
        const V rb = Bg ? r : select(mask_of(to_bits(after)), lead_v, at_v);
        out = select(mask_of(cur), r, select(mask_of(to_bits(word_edge(beside, 0, cw))), mean(sv, rb), sv));
      }
      storeu(dst + o, out);
      before_cur = cw, cur = next, cw = nw, sv = next_v;
    }
    if (groups != 0) previous = ((before_cur >> (kPairs - 1)) & 1) != 0;
  }
  const unsigned word = from_bits(cur);
  for (std::size_t j = 0; j < rest; ++j) {
    const std::size_t i = tail + j;
    key_one<Soft, Bg>(src + 4 * i, Bg ? background + 4 * i : nullptr, dst + 4 * i, at, lead, (word >> j) & 1,
                      j == 0 ? previous : ((word >> (j - 1)) & 1) != 0, Soft && ((word >> (j + 1)) & 1) != 0);
  }
  if (rest != 0) previous = ((word >> (rest - 1)) & 1) != 0;
  carry.previous_keyed = previous;
}

template <bool Soft, bool Bg>
T void key_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs, const KeySettings& k,
               KeyCarry& carry) {
  const KeyRow scalar = Soft ? key_soft_row : key_hard_row;
  if (k.arc == nullptr && k.keyed_uv == nullptr) {
    scalar(src, background, dst, pairs, k, carry);
    return;
  }
  // The pairs up to the first whole vector of the output, when it can be
  // reached, one at a time: whole vectors are then stored whole.
  constexpr std::size_t kBytes = 4 * kPairs;
  const std::size_t offset = reinterpret_cast<std::uintptr_t>(dst) % kBytes;
  const std::size_t head = std::min(pairs, offset % 4 == 0 ? (kBytes - offset) % kBytes / 4 : 0);
  if (head != 0) {
    scalar(src, background, dst, head, k, carry);
    src += 4 * head, dst += 4 * head, pairs -= head;
    if (background != nullptr) background += 4 * head;
  }
  if (k.arc != nullptr && k.arc->outside) {
    key_vectors<Soft, Bg>(src, background, dst, pairs, k, carry, BySector<true>{arc_of(k)});
  } else if (k.arc != nullptr) {
    key_vectors<Soft, Bg>(src, background, dst, pairs, k, carry, BySector<false>{arc_of(k)});
  } else {
    key_vectors<Soft, Bg>(src, background, dst, pairs, k, carry, ByTable{k.keyed_uv, luma_bounds(k.range)});
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
