// Chroma keying over whole vectors: included by chroma_key_simd.cpp once per
// instruction set, inside that set's namespace, after its target T, its
// vector V of kPairs pairs, its mask type M and its operations, among them
// keyed_group (the keying bits of kPairs pairs).  No include guard: each
// inclusion is a different kernel.
//
// A strip is keyed in chunks: first the keying bit of every pair of the
// chunk and of the pair after it, then the bytes.  With the bits of a pair,
// the one before and the one after at hand, every pair's final bytes are
// known at once (the scalar kernel rewrites a kept pair when the next pair
// keys; here it is written once, as it ends up):
//   keyed                          the replacement at its place
//   kept, the next keyed           mean of its bytes and the replacement before a run
//   kept, the next kept, the one
//   before keyed (soft edges)      mean of its bytes and the replacement at its place
//   otherwise                      its own bytes

// Pair i of a chunk whose bits are `bits` (bit -1: `before`), one at a time.
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

template <bool Soft, bool Bg>
T void key_row(const uint8_t* src, const uint8_t* background, uint8_t* dst, std::size_t pairs, const KeySettings& k,
               KeyCarry& carry) {
  if (k.keyed_uv == nullptr) {
    (Soft ? key_soft_row : key_hard_row)(src, background, dst, pairs, k, carry);
    return;
  }
  constexpr std::size_t kChunk = 1024;
  uint64_t bits[kChunk / 64 + 1];
  auto bit = [&](std::size_t j) { return (bits[j / 64] >> (j % 64)) & 1; };
  const KeyColour c = k.colour;
  const uint8_t at[4] = {c.y, c.u, c.y, c.v}, lead[4] = {c.y, c.v, c.y, c.v};
  const V at_v = set32(static_cast<int32_t>(c.y | c.u << 8 | c.y << 16 | uint32_t{c.v} << 24));
  const V lead_v = set32(static_cast<int32_t>(c.y | c.v << 8 | c.y << 16 | uint32_t{c.v} << 24));
  const Luma luma = luma_bounds(k.range);
  constexpr unsigned kAll = (1u << kPairs) - 1;
  bool previous = carry.previous_keyed;
  for (std::size_t start = 0; start < pairs; start += kChunk) {
    const std::size_t n = std::min(kChunk, pairs - start);
    // The bits, with the pair after the chunk's last when there is one.
    const std::size_t m = Soft ? std::min(n + 1, pairs - start) : n;
    std::fill(std::begin(bits), std::end(bits), 0);
    const uint8_t* s = src + 4 * start;
    std::size_t j = 0;
    // A word of bits gathered in a register, stored when full.
    uint64_t word = 0;
    for (; m - j >= kPairs; j += kPairs) {
      word |= uint64_t{keyed_group(s + 4 * j, k.keyed_uv, luma)} << (j % 64);
      if ((j + kPairs) % 64 == 0) bits[j / 64] = word, word = 0;
    }
    for (; j < m; ++j) word |= uint64_t{keys(s + 4 * j, k)} << (j % 64);
    if (j % 64 != 0) bits[j / 64] = word;
    const uint8_t* b = background == nullptr ? nullptr : background + 4 * start;
    uint8_t* d = dst + 4 * start;
    // The kept pair before the run's first keyed pair (the caller's pair
    // before the run).
    if (Soft && start == 0 && bit(0) && !previous) {
      key_one<Soft, Bg>(s - 4, Bg ? b - 4 : nullptr, d - 4, at, lead, false, false, true);
    }
    for (j = 0; n - j >= kPairs; j += kPairs) {
      const unsigned cur = static_cast<unsigned>(bits[j / 64] >> (j % 64)) & kAll;
      const unsigned before = ((cur << 1) | unsigned(j == 0 ? previous : bit(j - 1))) & kAll;
      const unsigned next = Soft ? (cur >> 1) | unsigned(bit(j + kPairs)) << (kPairs - 1) : 0;
      const unsigned edge = Soft ? (next | before) & ~cur & kAll : 0;
      const std::size_t o = 4 * j;
      if ((cur | edge) == 0) {
        storeu(d + o, loadu(s + o));
        continue;
      }
      const V r = Bg ? loadu(b + o) : at_v;
      if (cur == kAll) {
        storeu(d + o, r);
        continue;
      }
      const V sv = loadu(s + o);
      V out = sv;
      if (Soft && edge != 0) {
        const V rb = Bg ? r : lead_v;
        out = select(mask_of(before & ~cur), mean(sv, r), out);
        out = select(mask_of(next & ~cur), mean(sv, rb), out);
      }
      storeu(d + o, select(mask_of(cur), r, out));
    }
    for (; j < n; ++j) {
      key_one<Soft, Bg>(s + 4 * j, Bg ? b + 4 * j : nullptr, d + 4 * j, at, lead, bit(j),
                        j == 0 ? previous : bit(j - 1), Soft && bit(j + 1));
    }
    previous = bit(n - 1);
  }
  carry.previous_keyed = previous;
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
