// The inverse DCT of N blocks at once, one block per 128-bit lane: included
// by idct_x86.cpp once per instruction set, inside that set's namespace,
// after its vector type V, its block count N, its target IDCT_T and its
// operations.  No include guard: each inclusion is a different kernel.
//
// Why 16-bit lanes give the scalar kernel's bytes: the products pmaddwd
// forms are exact, and 32-bit sums wrap as the scalar ones do, so every sum
// before a descale is the scalar sum whenever the pass's inputs are the
// scalar inputs.  They are when the dequantised coefficients (the column
// pass's inputs) and the column pass's outputs (the row pass's inputs) fit
// 16 bits; core() checks both and reports a block group that does not, which
// then goes to the scalar kernel.  With inputs of 16 bits a pass's sums stay
// within 32768 * 61214 of zero, so they do not wrap, and descaling needs no
// wrap either: (s - h) >> B is ((s + h) >> B) - 1.

// Two int16 constants in one 32-bit lane for pmaddwd: `lo` multiplies the
// first element of a pair.
IDCT_T PIX95_INLINE V pair(int lo, int hi) {
  return set32(static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) |
                                    static_cast<uint16_t>(lo)));
}

// The sum s (already holding the half unit h) descaled: s - h > 0 rounds
// half up, s - h <= 0 loses one more (0 descales to -1).
template <int B>
IDCT_T PIX95_INLINE V descale(V s) {
  return minus_one_where_gt(srai32<B>(s), set32((1 << (B - 1)) + 1), s);
}

// Four columns (or rows) of the butterflies, 32-bit lanes: the inputs are
// pmaddwd pairs (d0, d4), (d2, d6), (d7, d1), (d3, d5).
template <int B>
IDCT_T PIX95_INLINE void butterflies(V a04, V a26, V a71, V a35, V* o) {
  const V half = set32(1 << (B - 1));
  const V e0 = add32(madd(a04, pair(8192, 8192)), half);
  const V e1 = add32(madd(a04, pair(8192, -8192)), half);
  const V e3 = madd(a26, pair(10703, 4433));
  const V e2 = madd(a26, pair(4433, -10704));
  const V t10 = add32(e0, e3), t13 = sub32(e0, e3), t11 = add32(e1, e2), t12 = sub32(e1, e2);
  const V o0 = add32(madd(a71, pair(-11363, 2260)), madd(a35, pair(-6436, 9633)));
  const V o1 = add32(madd(a71, pair(9633, 6437)), madd(a35, pair(-11362, 2261)));
  const V o2 = add32(madd(a71, pair(-6436, 9633)), madd(a35, pair(-2259, -11362)));
  const V o3 = add32(madd(a71, pair(2260, 11363)), madd(a35, pair(9633, 6437)));
  o[0] = descale<B>(add32(t10, o3));
  o[7] = descale<B>(sub32(t10, o3));
  o[1] = descale<B>(add32(t11, o2));
  o[6] = descale<B>(sub32(t11, o2));
  o[2] = descale<B>(add32(t12, o1));
  o[5] = descale<B>(sub32(t12, o1));
  o[3] = descale<B>(add32(t13, o0));
  o[4] = descale<B>(sub32(t13, o0));
}

// One pass: x[k] holds input k of eight lines (int16); y[k] gets output k,
// packed to int16 with saturation.
template <int B>
IDCT_T PIX95_INLINE void pass(const V* x, V* y) {
  V lo[8], hi[8];
  butterflies<B>(unlo16(x[0], x[4]), unlo16(x[2], x[6]), unlo16(x[7], x[1]), unlo16(x[3], x[5]), lo);
  butterflies<B>(unhi16(x[0], x[4]), unhi16(x[2], x[6]), unhi16(x[7], x[1]), unhi16(x[3], x[5]), hi);
  for (int k = 0; k < 8; ++k) y[k] = packs32(lo[k], hi[k]);
}

// 8x8 int16 transpose within each 128-bit lane.
IDCT_T PIX95_INLINE void transpose(const V* w, V* t) {
  const V a0 = unlo16(w[0], w[1]), a1 = unhi16(w[0], w[1]), a2 = unlo16(w[2], w[3]), a3 = unhi16(w[2], w[3]);
  const V a4 = unlo16(w[4], w[5]), a5 = unhi16(w[4], w[5]), a6 = unlo16(w[6], w[7]), a7 = unhi16(w[6], w[7]);
  const V b0 = unlo32(a0, a2), b1 = unhi32(a0, a2), b2 = unlo32(a1, a3), b3 = unhi32(a1, a3);
  const V b4 = unlo32(a4, a6), b5 = unhi32(a4, a6), b6 = unlo32(a5, a7), b7 = unhi32(a5, a7);
  t[0] = unlo64(b0, b4), t[1] = unhi64(b0, b4), t[2] = unlo64(b1, b5), t[3] = unhi64(b1, b5);
  t[4] = unlo64(b2, b6), t[5] = unhi64(b2, b6), t[6] = unlo64(b3, b7), t[7] = unhi64(b3, b7);
}

// The N blocks of `g`: out[k] gets, in each block's lane, its sample rows 2k
// and 2k + 1 (8 bytes each).  False, with nothing computed that counts, when
// a block's values leave 16 bits (see above).
IDCT_T PIX95_INLINE bool core(const Group<N>& g, V* out) {
  int16_t d00[N];
  for (int b = 0; b < N; ++b) {
    const auto d = static_cast<int32_t>(static_cast<uint32_t>(g.dc[b]) * g.q[b][0]);
    if (d < -32768 || d > 32767) return false;
    d00[b] = static_cast<int16_t>(d);
  }
  // Dequantise: the low halves of the products are the inputs, and fit when
  // the high halves are their sign.  Element 0 of row 0 becomes DC x q[0].
  V p[8];
  V bad = zero();
  for (int r = 0; r < 8; ++r) {
    const V c = load_coef(g, r), q = load_q(g, r);
    p[r] = mullo16(c, q);
    const V wrong = xor_(mulhi16(c, q), srai16<15>(p[r]));
    bad = or_(bad, r == 0 ? without_dc(wrong) : wrong);
  }
  p[0] = with_dc(p[0], d00);
  // The column shortcut: a column whose AC inputs are all zero gives
  // d0 x 4 (not descaled, unlike the butterflies).
  const V dc4 = slli16<2>(p[0]);
  bad = or_(bad, xor_(srai16<2>(dc4), p[0]));
  const M16 shortcut = zero16(or_(or_(or_(p[1], p[2]), or_(p[3], p[4])), or_(or_(p[5], p[6]), p[7])));
  V w[8];
  pass<11>(p, w);
  V most = w[0], least = w[0];
  for (int k = 0; k < 8; ++k) {
    most = max16(most, w[k]), least = min16(least, w[k]);
    w[k] = select16(shortcut, dc4, w[k]);
  }
  // A saturated column output shows as +-32767/-32768 (a true one goes too).
  bad = or_(bad, or_(eq16(most, set16(32767)), eq16(least, set16(-32768))));
  if (!is_zero(bad)) return false;
  V t[8], s[8];
  transpose(w, t);
  pass<18>(t, s);
  // Clamp to -128..127 by the saturating pack, shift by 128, and turn the
  // columns of samples into rows.
  const V flip = set8(-128);
  const V c01 = xor_(packs16(s[0], s[1]), flip), c23 = xor_(packs16(s[2], s[3]), flip);
  const V c45 = xor_(packs16(s[4], s[5]), flip), c67 = xor_(packs16(s[6], s[7]), flip);
  const V u0 = unlo8(c01, c23), u1 = unhi8(c01, c23), u2 = unlo8(c45, c67), u3 = unhi8(c45, c67);
  const V v0 = unlo8(u0, u1), v1 = unhi8(u0, u1), v2 = unlo8(u2, u3), v3 = unhi8(u2, u3);
  out[0] = unlo32(v0, v2), out[1] = unhi32(v0, v2), out[2] = unlo32(v1, v3), out[3] = unhi32(v1, v3);
  return true;
}

// core(), or the one sample of each block when no block has AC coefficients.
IDCT_T PIX95_INLINE bool rows(const Group<N>& g, V* out) {
  uint64_t ac = 0;
  for (int b = 0; b < N; ++b) ac |= g.nonzero[b];
  if ((ac & ~uint64_t{1}) != 0) return core(g, out);
  uint8_t s[N];
  for (int b = 0; b < N; ++b) s[b] = dc_only_sample(g.dc[b], g.q[b][0]);
  out[0] = out[1] = out[2] = out[3] = splat_lanes(s);
  return true;
}
