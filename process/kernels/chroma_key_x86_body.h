// Chroma keying over whole vectors: included by chroma_key_simd.cpp once per
// instruction set, inside that set's namespace, after its target T, its
// vector V of kPairs pairs, its mask type M and its operations, among them
// keyed_arc (the keying mask of kPairs pairs from a sector) and keyed_group
// (from the bit table).  No include guard: each inclusion is a different
// kernel.
//
// Hard edges are keyed a vector at a time.  Soft edges (but at AVX-512: see
// soft_skip) a chunk at a time: first the keying bits of the chunk's pairs,
// then the bytes.  With the bits of a pair, the one before and the one after
// at hand, every pair's final bytes are known at once (the scalar kernel
// rewrites a kept pair when the next pair keys; here it is written once, as
// it ends up):
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
  T PIX95_INLINE M operator()(const uint8_t*, V v) const { return keyed_arc<Outside>(v, arc); }
};
struct ByTable {
  const uint8_t* uv;
  Luma luma;
  T PIX95_INLINE M operator()(const uint8_t* p, V) const { return keyed_group(p, uv, luma); }
};

#ifdef PIX95_KEY_SOFT_SKIP
// Soft edges in one pass, each vector's keying bits known one vector ahead
// and its hard-edged bytes made as soon as they are, with the mask where the
// comparison left it: carried to the next step, the mask would come back
// from a general register, a move that costs more than the blend.  A vector with no kept pair beside a keyed one
// (all keyed, or all kept between kept neighbours: most of a picture) is
// stored as hard edges store it, with one branch; only the others take the
// means.  With the flat colour and none of its bytes 0 (Dec), the means come
// from the colours less 1 (at_dec, lead_dec): (s + c) >> 1 is the rounded
// mean of s and c - 1.
template <bool Bg, bool Dec>
T PIX95_INLINE void soft_vector(const uint8_t* b, uint8_t* d, V sv, V hard, unsigned before, unsigned c,
                                unsigned next, V at_v, V lead_v, V at_dec, V lead_dec) {
  constexpr unsigned kAll = (1u << kPairs) - 1;
  // The bits of the vector's pairs and of the next vector's, and the bit of
  // the pair before: worked out in general registers (see in_register).
  const unsigned top = before >> (kPairs - 1), ahead = c | next << kPairs;
  V out = hard;
  // Some pair to average unless every pair keys, or none does nor the
  // neighbours.
  if (c != kAll && ((ahead | top) & (kAll << 1 | 1)) != 0) {
    const unsigned after = (ahead >> 1) & kAll;
    const unsigned edge = in_register(((c << 1 | top) & kAll) | after | c) - c;
    if constexpr (Dec) {
      out = rounded_mean_into(out, to_bits(edge), sv, select(to_bits(after), lead_dec, at_dec));
    } else {
      const V rb = Bg ? loadu(b) : select(to_bits(after), lead_v, at_v);
      out = mean_into(out, to_bits(edge), sv, rb);
    }
  }
  storeu(d, out);
}

// The bytes of a vector, its hard-edged result and its keying bits.
template <bool Bg, class Decide>
T PIX95_INLINE void decided(const uint8_t* s, const uint8_t* b, V at_v, const Decide& decide, V& sv, V& hard,
                            unsigned& bits) {
  sv = loadu(s);
  const M m = decide(s, sv);
  hard = Bg ? select_load(m, b, sv) : select(m, at_v, sv);
  bits = from_bits(m);
}

template <bool Bg, bool Dec, class Decide>
T PIX95_INLINE void soft_skip(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                              const KeySettings& k, KeyCarry& carry, const Decide& decide) {
  if (pairs == 0) return;
  const KeyColour c = k.colour;
  const uint8_t at[4] = {c.y, c.u, c.y, c.v}, lead[4] = {c.y, c.v, c.y, c.v};
  const uint32_t at_word = c.y | c.u << 8 | c.y << 16 | uint32_t{c.v} << 24;
  const uint32_t lead_word = c.y | c.v << 8 | c.y << 16 | uint32_t{c.v} << 24;
  const V at_v = set32(static_cast<int32_t>(at_word)), lead_v = set32(static_cast<int32_t>(lead_word));
  // Each byte less 1 (no byte borrows when Dec; unused otherwise).
  const V at_dec = set32(static_cast<int32_t>(at_word - 0x01010101u));
  const V lead_dec = set32(static_cast<int32_t>(lead_word - 0x01010101u));
  constexpr std::size_t kBytes = 4 * kPairs;
  const std::size_t groups = pairs / kPairs, rest = pairs % kPairs, tail = groups * kPairs;
  unsigned tail_word = 0;
  for (std::size_t j = 0; j < rest; ++j) tail_word |= unsigned{keys(src + 4 * (tail + j), k)} << j;
  bool previous = carry.previous_keyed;
  if (groups != 0) {
    V sv, hard;
    unsigned cur;
    decided<Bg>(src, background, at_v, decide, sv, hard, cur);
    // The kept pair before the run's first keyed pair (the caller's pair
    // before the run).
    if (!previous && (cur & 1) != 0) {
      key_one<true, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
    }
    unsigned before = previous ? 1u << (kPairs - 1) : 0;
    const std::size_t end = (groups - 1) * kBytes;
    for (std::size_t o = 0; o < end; o += kBytes) {
      V nsv, nhard;
      unsigned next;
      decided<Bg>(src + o + kBytes, Bg ? background + o + kBytes : nullptr, at_v, decide, nsv, nhard, next);
      soft_vector<Bg, Dec>(Bg ? background + o : nullptr, dst + o, sv, hard, before, cur, next, at_v, lead_v, at_dec,
                           lead_dec);
      before = cur, cur = next, sv = nsv, hard = nhard;
    }
    soft_vector<Bg, Dec>(Bg ? background + end : nullptr, dst + end, sv, hard, before, cur, tail_word, at_v, lead_v,
                         at_dec, lead_dec);
    previous = ((cur >> (kPairs - 1)) & 1) != 0;
  } else if (!previous && (tail_word & 1) != 0) {
    key_one<true, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
  }
  for (std::size_t j = 0; j < rest; ++j) {
    const std::size_t i = tail + j;
    key_one<true, Bg>(src + 4 * i, Bg ? background + 4 * i : nullptr, dst + 4 * i, at, lead, (tail_word >> j) & 1,
                      j == 0 ? previous : ((tail_word >> (j - 1)) & 1) != 0, ((tail_word >> (j + 1)) & 1) != 0);
  }
  if (rest != 0) previous = ((tail_word >> (rest - 1)) & 1) != 0;
  carry.previous_keyed = previous;
}
#endif

template <bool Soft, bool Bg, class Decide>
T PIX95_INLINE void key_vectors(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs,
                                const KeySettings& k, KeyCarry& carry, const Decide& decide) {
#ifdef PIX95_KEY_SOFT_SKIP
  if constexpr (Soft) {
    const KeyColour c = k.colour;
    if (!Bg && c.y != 0 && c.u != 0 && c.v != 0) {
      soft_skip<false, true>(src, background, dst, pairs, k, carry, decide);
    } else {
      soft_skip<Bg, false>(src, background, dst, pairs, k, carry, decide);
    }
    return;
  }
#endif
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
  if (!Soft) {
    for (std::size_t o = 0; o < groups * kBytes; o += kBytes) {
      const V sv = loadu(src + o);
      const M keyed = decide(src + o, sv);
      storeu(dst + o, Bg ? select_load(keyed, background + o, sv) : select(keyed, at_v, sv));
      if (o + kBytes == groups * kBytes) previous = ((from_bits(bits_of(keyed)) >> (kPairs - 1)) & 1) != 0;
    }
  } else if (groups == 0) {
    // The kept pair before the run's first keyed pair (the caller's pair
    // before the run).
    if (!previous && (tail_word & 1) != 0) {
      key_one<Soft, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
    }
  } else {
    // A chunk at a time: the keying bits of its vectors (and of the vector
    // after it), then for 64 pairs at once which pairs have a keyed pair
    // after them and which kept ones are beside a keyed one, then the bytes.
    constexpr std::size_t kChunk = 1024;
    constexpr uint64_t kAll = (uint64_t{1} << kPairs) - 1;
    uint64_t keyed[kChunk / 64 + 1], after[kChunk / 64], edge[kChunk / 64];
    uint64_t top = previous ? 1 : 0;  // the bit of the pair before the next 64
    const std::size_t whole = groups * kPairs;
    for (std::size_t first = 0; first < whole; first += kChunk) {
      const std::size_t n = std::min(kChunk, whole - first);
      const std::size_t m = first + n < whole ? n + kPairs : n;
      std::fill(std::begin(keyed), std::end(keyed), 0);
      const uint8_t* s = src + 4 * first;
      if constexpr (kPairs == 16) {
        for (std::size_t j = 0; j < m; j += kPairs) put_bits(keyed, j, bits_of(decide(s + 4 * j, loadu(s + 4 * j))));
      } else {
        // Narrower vectors: the bits gathered in a register, stored by 64.
        uint64_t word = 0;
        for (std::size_t j = 0; j < m; j += kPairs) {
          word |= uint64_t{from_bits(bits_of(decide(s + 4 * j, loadu(s + 4 * j))))} << (j % 64);
          if ((j + kPairs) % 64 == 0) keyed[j / 64] = word, word = 0;
        }
        if (m % 64 != 0) keyed[m / 64] = word;
      }
      if (first + n == whole) keyed[n / 64] |= uint64_t{tail_word} << (n % 64);
      // The kept pair before the run's first keyed pair (the caller's pair
      // before the run).
      if (first == 0 && !previous && (keyed[0] & 1) != 0) {
        key_one<Soft, Bg>(src - 4, Bg ? background - 4 : nullptr, dst - 4, at, lead, false, false, true);
      }
      for (std::size_t i = 0; i < (n + 63) / 64; ++i) {
        const uint64_t w = keyed[i];
        after[i] = (w >> 1) | keyed[i + 1] << 63;
        edge[i] = ((w << 1) | top | after[i] | w) - w;  // (before | after) & ~w
        top = w >> 63;
      }
      previous = ((keyed[(n - 1) / 64] >> ((n - 1) % 64)) & 1) != 0;
      const uint8_t* b = Bg ? background + 4 * first : nullptr;
      uint8_t* d = dst + 4 * first;
      for (std::size_t j = 0; j < n; j += kPairs) {
        const std::size_t o = 4 * j;
        const V sv = loadu(s + o);
        const M k = mask_at(keyed, j);
        V out = Bg ? select_load(k, b + o, sv) : select(k, at_v, sv);
        // Kept pairs beside a keyed one averaged (none in most vectors).
        if ((edge[j / 64] >> (j % 64) & kAll) != 0) {
          const V rb = Bg ? loadu(b + o) : select(mask_at(after, j), lead_v, at_v);
          out = mean_into(out, mask_at(edge, j), sv, rb);
        }
        storeu(d + o, out);
      }
    }
  }
  const unsigned word = tail_word;
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
