// The 3x3 filter and the threshold over whole vectors: included by
// filters_simd.cpp once per instruction set, inside that set's namespace,
// after its target T, its 16-bit lane count kLanes, its byte lane count
// kBytes and its operations.  No include guard: each inclusion is a
// different kernel.  A run's last bytes, that fill no vector, go through the
// scalar sample, so every byte is the scalar kernel's.

// The quotient of 32-bit sums: negated for a negative divisor, clamped to
// 0..limit, multiplied by the reciprocal.
T PIX95_INLINE V quotient32(V sum, const Filter3x3& f, V limit, V mult, __m128i shift) {
  if (f.divisor < 0) sum = sub32(zero(), sum);
  return mul_shift32(min32(max32(sum, zero()), limit), mult, shift);
}

T void filter_row(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint8_t* dst, std::size_t pixels,
                  unsigned channels, const Filter3x3& f) {
  const std::size_t s = channels, bytes = pixels * channels;
  if (pixels <= 2 || bytes < kLanes + 2 * s || !(f.narrow || f.wide)) {
    filter_3x3_row(a, c, b, dst, pixels, channels, f);
    return;
  }
  std::memcpy(dst, c, s);
  std::size_t i = s;
  // Each vector reads kLanes bytes from s before its first output to s after
  // its last: the last vector ends s bytes short of the line's end.
  if (f.narrow) {
    V k[9];
    for (int j = 0; j < 9; ++j) k[j] = set16(f.narrow_k[j]);
    const V limit = set16(static_cast<int16_t>(f.limit)), mult = set16(static_cast<int16_t>(f.mult16));
    const __m128i pre = _mm_cvtsi32_si128(static_cast<int>(f.pre16));
    const __m128i post = _mm_cvtsi32_si128(static_cast<int>(f.post16));
    for (; i + kLanes + s <= bytes; i += kLanes) {
      // 16-bit products and sums wrap, yet the whole sum fits 16 bits, so
      // it comes out exact.
      V sum = mullo16(load16(a + i - s), k[0]);
      sum = add16(sum, mullo16(load16(a + i), k[1]));
      sum = add16(sum, mullo16(load16(a + i + s), k[2]));
      sum = add16(sum, mullo16(load16(c + i - s), k[3]));
      sum = add16(sum, mullo16(load16(c + i), k[4]));
      sum = add16(sum, mullo16(load16(c + i + s), k[5]));
      sum = add16(sum, mullo16(load16(b + i - s), k[6]));
      sum = add16(sum, mullo16(load16(b + i), k[7]));
      sum = add16(sum, mullo16(load16(b + i + s), k[8]));
      const V x = min16(max16(sum, zero()), limit);
      store8(dst + i, srl16(mulhi_u16(sll16(x, pre), mult), post));
    }
  } else {
    // Pairs of samples against pairs of coefficients: pmaddwd's products
    // and pair sums are exact, and nine products of 16 bits by 8 cannot
    // leave 32 bits.
    auto pair = [](int32_t lo, int32_t hi) {
      return static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) | static_cast<uint16_t>(lo));
    };
    const V p01 = set32(pair(f.k[0], f.k[1])), p23 = set32(pair(f.k[2], f.k[3])), p45 = set32(pair(f.k[4], f.k[5])),
            p67 = set32(pair(f.k[6], f.k[7])), p8 = set32(pair(f.k[8], 0));
    const V limit = set32(static_cast<int32_t>(f.limit)), mult = set32(static_cast<int32_t>(f.mult32));
    const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(f.shift32));
    for (; i + kLanes + s <= bytes; i += kLanes) {
      const V a0 = load16(a + i - s), a1 = load16(a + i), a2 = load16(a + i + s);
      const V c0 = load16(c + i - s), c1 = load16(c + i), c2 = load16(c + i + s);
      const V b0 = load16(b + i - s), b1 = load16(b + i), b2 = load16(b + i + s);
      V lo = madd(unlo16(a0, a1), p01);
      lo = add32(lo, madd(unlo16(a2, c0), p23));
      lo = add32(lo, madd(unlo16(c1, c2), p45));
      lo = add32(lo, madd(unlo16(b0, b1), p67));
      lo = add32(lo, madd(unlo16(b2, zero()), p8));
      V hi = madd(unhi16(a0, a1), p01);
      hi = add32(hi, madd(unhi16(a2, c0), p23));
      hi = add32(hi, madd(unhi16(c1, c2), p45));
      hi = add32(hi, madd(unhi16(b0, b1), p67));
      hi = add32(hi, madd(unhi16(b2, zero()), p8));
      // The unpacks and the pack work within the same 128-bit lanes: the
      // pack puts every quotient back at its sample's place.
      store8(dst + i, packs32(quotient32(lo, f, limit, mult, shift), quotient32(hi, f, limit, mult, shift)));
    }
  }
  for (; i < bytes - s; ++i) dst[i] = filter_3x3_sample(f, a, c, b, i, s);
  std::memcpy(dst + bytes - s, c + bytes - s, s);
}

// g >= upper gives 255, else g < lower gives 0, else g.
T void threshold_row(const uint8_t* src, uint8_t* dst, std::size_t n, uint8_t upper, uint8_t lower) {
  const V up = set8(static_cast<int8_t>(upper)), low = set8(static_cast<int8_t>(lower));
  std::size_t i = 0;
  for (; n - i >= kBytes; i += kBytes) {
    const V g = loadu(src + i);
    storeu(dst + i, or_(ge_u8(g, up), and_(g, ge_u8(g, low))));
  }
  if (i < n) kernels::threshold_row(src + i, dst + i, n - i, upper, lower);
}
