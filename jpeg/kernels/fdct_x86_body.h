// The forward DCT and quantisation on vectors of 16-bit lanes, written once
// for every x86 level: fdct_x86.cpp includes this file in the namespace of
// each level, after defining there the vector type V, the target attribute
// PIX95_LEVEL and the lane operations below (all of them work within 128-bit
// lanes, so each 128-bit lane of V holds one block: 1, 2 or 4 blocks at a
// time).  No include guard: each inclusion is a different kernel.
//
// Layouts: "rows" registers r[0..7] hold row i of their block(s) in r[i];
// the butterflies run across the 8 registers, so each pass transposes its
// input first.
//
// Exactness (samples -128..127): every butterfly sum fits int16 (the row
// pass's values stay within +-4100 and the column pass's sums of eight of
// them within -32768..32640), the constants of each output are folded into
// one multiplier per input (below), all of them within int16, and pmaddwd
// forms each product and the sum of two in 32 bits, as the scalar does.

// Bits 0-15 `lo`, bits 16-31 `hi`: the multipliers of a pmaddwd pair.
constexpr int32_t pair(int lo, int hi) {
  return static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) | static_cast<uint16_t>(lo));
}

// 8x8 transpose of 16-bit values within each 128-bit lane.
PIX95_LEVEL PIX95_INLINE void transpose(V r[8]) {
  const V a0 = unpacklo16(r[0], r[1]), a1 = unpackhi16(r[0], r[1]);
  const V a2 = unpacklo16(r[2], r[3]), a3 = unpackhi16(r[2], r[3]);
  const V a4 = unpacklo16(r[4], r[5]), a5 = unpackhi16(r[4], r[5]);
  const V a6 = unpacklo16(r[6], r[7]), a7 = unpackhi16(r[6], r[7]);
  const V b0 = unpacklo32(a0, a2), b1 = unpackhi32(a0, a2), b2 = unpacklo32(a1, a3), b3 = unpackhi32(a1, a3);
  const V b4 = unpacklo32(a4, a6), b5 = unpackhi32(a4, a6), b6 = unpacklo32(a5, a7), b7 = unpackhi32(a5, a7);
  r[0] = unpacklo64(b0, b4), r[1] = unpackhi64(b0, b4), r[2] = unpacklo64(b1, b5), r[3] = unpackhi64(b1, b5);
  r[4] = unpacklo64(b2, b6), r[5] = unpackhi64(b2, b6), r[6] = unpacklo64(b3, b7), r[7] = unpackhi64(b3, b7);
}

// The scalar's descale of 32-bit sums: (s + half) >> n, less 1 where s <= 0
// (s - half floors to one less than s + half does), packed to 16 bits.
template <int N>
PIX95_LEVEL PIX95_INLINE V descale(V lo, V hi) {
  const V half = set1_32(1 << (N - 1));
  lo = less_one_where_not_positive32(srai32<N>(add32(lo, half)), lo);
  hi = less_one_where_not_positive32(srai32<N>(add32(hi, half)), hi);
  return packs32(lo, hi);
}

// One output: the products of the pairs (x, y) by `p` and (z, w) by `q`.
template <int N>
PIX95_LEVEL PIX95_INLINE V dot(V xy_lo, V xy_hi, V zw_lo, V zw_hi, int32_t p, int32_t q) {
  const V pv = set1_32(p), qv = set1_32(q);
  return descale<N>(add32(madd(xy_lo, pv), madd(zw_lo, qv)), add32(madd(xy_hi, pv), madd(zw_hi, qv)));
}
template <int N>
PIX95_LEVEL PIX95_INLINE V dot(V xy_lo, V xy_hi, int32_t p) {
  const V pv = set1_32(p);
  return descale<N>(madd(xy_lo, pv), madd(xy_hi, pv));
}

// One pass over d[j] = element j of each line; d[k] becomes coefficient k.
// The odd outputs are the scalar's sums multiplied out, e.g. for 7:
// tmp4 * 2446 + (tmp4 + tmp7) * -7373 + z5 + (tmp4 + tmp6) * -16069 =
// tmp4 * -11363 + tmp5 * 9633 + tmp6 * -6436 + tmp7 * 2260.
template <bool Rows>
PIX95_LEVEL PIX95_INLINE void pass(V d[8]) {
  constexpr int kShift = Rows ? 11 : 18;
  const V t0 = add16(d[0], d[7]), t7 = sub16(d[0], d[7]), t1 = add16(d[1], d[6]), t6 = sub16(d[1], d[6]);
  const V t2 = add16(d[2], d[5]), t5 = sub16(d[2], d[5]), t3 = add16(d[3], d[4]), t4 = sub16(d[3], d[4]);
  const V t10 = add16(t0, t3), t13 = sub16(t0, t3), t11 = add16(t1, t2), t12 = sub16(t1, t2);
  const V dc = add16(t10, t11), mid = sub16(t10, t11);
  if constexpr (Rows) {
    d[0] = slli16<2>(dc);
    d[4] = slli16<2>(mid);
  } else {
    // 16-bit descale by 5: dc + 16 stays below 32767 (at most 32512 + 16).
    const V half = set1_16(16);
    d[0] = less_one_where_not_positive16(srai16<5>(add16(dc, half)), dc);
    d[4] = less_one_where_not_positive16(srai16<5>(add16(mid, half)), mid);
  }
  const V e_lo = unpacklo16(t12, t13), e_hi = unpackhi16(t12, t13);
  d[2] = dot<kShift>(e_lo, e_hi, pair(4433, 10703));
  d[6] = dot<kShift>(e_lo, e_hi, pair(-10704, 4433));
  const V a_lo = unpacklo16(t4, t5), a_hi = unpackhi16(t4, t5);
  const V b_lo = unpacklo16(t6, t7), b_hi = unpackhi16(t6, t7);
  d[7] = dot<kShift>(a_lo, a_hi, b_lo, b_hi, pair(-11363, 9633), pair(-6436, 2260));
  d[5] = dot<kShift>(a_lo, a_hi, b_lo, b_hi, pair(9633, 2261), pair(-11362, 6437));
  d[3] = dot<kShift>(a_lo, a_hi, b_lo, b_hi, pair(-6436, -11362), pair(-2259, 9633));
  d[1] = dot<kShift>(a_lo, a_hi, b_lo, b_hi, pair(2260, 6437), pair(9633, 11363));
}

// Rows of samples in, rows of coefficients out.
PIX95_LEVEL PIX95_INLINE void fdct_rows(V r[8]) {
  transpose(r);
  pass<true>(r);
  transpose(r);
  pass<false>(r);
}

// Quantised coefficients c (|c| <= 4095), each lane by its own divisor;
// see the Quantiser for why the two mulhi are exactly x / q.
PIX95_LEVEL PIX95_INLINE V quantise_lanes(V c, V half, V reciprocal, V scale) {
  const V x = add16(magnitude(c), half);
  const V y = mulhi_u16(slli16<1>(x), reciprocal);
  return with_sign(mulhi_u16(slli16<1>(y), scale), c);
}
