// The decoder against a reference written here: a tiny encoder of blocks
// with the record's Huffman tables, a byte-at-a-time reader with a 32-bit
// buffer, codes matched bit by bit, and a plain inverse DCT in 64-bit
// arithmetic read back at 32 bits where a value is interpreted.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "core/memory.h"
#include "jpeg/decoder.h"
#include "jpeg/kernels/idct.h"
#include "jpeg/tables.h"
#include "test_support.h"

namespace {

using pix::jpeg::kZigZag;
using Block = std::array<int, 64>;  // zig-zag order: DC difference, then AC
using Q = std::array<uint16_t, 64>;  // natural order
using Codes = std::array<std::pair<int, uint32_t>, 256>;  // symbol -> length, code

int32_t w32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }
int32_t descale(int64_t s, int n) {
  const int32_t v = w32(s);
  return v > 0 ? w32(int64_t{v} + (1 << (n - 1))) >> n : w32(int64_t{v} - (1 << (n - 1))) >> n;
}
// One 1-D pass over d[0..7] (natural order), descaled by n.
void ref_1d(const int64_t* d, int32_t* o, int n) {
  const int64_t z1 = (d[2] + d[6]) * 4433, e2 = z1 - d[6] * 15137, e3 = z1 + d[2] * 6270;
  const int64_t e0 = (d[0] + d[4]) * 8192, e1 = (d[0] - d[4]) * 8192;
  const int64_t t[4] = {e0 + e3, e1 + e2, e1 - e2, e0 - e3};
  const int64_t z5 = (d[1] + d[3] + d[5] + d[7]) * 9633, a = (d[7] + d[1]) * -7373, b = (d[5] + d[3]) * -20995;
  const int64_t c = (d[7] + d[3]) * -16069 + z5, e = (d[5] + d[1]) * -3196 + z5;
  const int64_t odd[4] = {d[1] * 12299 + a + e, d[3] * 25172 + b + c, d[5] * 16819 + b + e, d[7] * 2446 + a + c};
  for (int k = 0; k < 4; ++k) o[k] = descale(t[k] + odd[k], n), o[7 - k] = descale(t[k] - odd[k], n);
}
// Natural-order coefficients (DC already predicted) to level-shifted samples.
std::array<uint8_t, 64> ref_idct(const std::array<int64_t, 64>& coef, const Q& q) {
  int32_t ws[64], col[8];
  std::array<uint8_t, 64> out{};
  for (int c = 0; c < 8; ++c) {
    int64_t d[8];
    bool zero = true;
    for (int r = 0; r < 8; ++r) d[r] = w32(coef[r * 8 + c] * q[r * 8 + c]), zero &= r == 0 || d[r] == 0;
    if (zero) std::fill_n(col, 8, w32(d[0] * 4));
    else ref_1d(d, col, 11);
    for (int r = 0; r < 8; ++r) ws[r * 8 + c] = col[r];
  }
  for (int r = 0; r < 8; ++r) {
    int64_t d[8];
    int32_t o[8];
    for (int c = 0; c < 8; ++c) d[c] = ws[r * 8 + c];
    ref_1d(d, o, 18);
    for (int c = 0; c < 8; ++c) out[r * 8 + c] = static_cast<uint8_t>(((std::clamp(o[c], -128, 127) & 255) + 128) & 255);
  }
  return out;
}

// Canonical codes the standard's way, from counts of lengths 2..16.
Codes codes_of(const Tjpeg& t, int slot) {
  Codes out{};
  uint32_t code = 0;
  for (int l = 2, k = 0; l <= 16; ++l, code <<= 1)
    for (int n = 0; n < t.BITS[slot][l - 1]; ++n) out[t.HUFFVAL[slot][k++]] = {l, code++};
  return out;
}
int cat(int v) { return v == 0 ? 0 : 1 + cat(std::abs(v) / 2); }

struct Writer {
  std::vector<uint8_t> out;
  uint64_t acc = 0;
  int n = 0;
  void put(int len, uint32_t bits) {
    for (int i = len - 1; i >= 0; --i) {
      acc = acc << 1 | ((bits >> i) & 1);
      if (++n == 8) out.push_back(static_cast<uint8_t>(acc)), n = 0, acc = 0;
      if (n == 0 && out.back() == 0xFF) out.push_back(0);
    }
  }
  void sym(const Codes& c, int s, int v = 0) {
    put(c[s].first, c[s].second);
    put(s & 15, static_cast<uint32_t>(v > 0 ? v : v - 1) & ((1u << (s & 15)) - 1));
  }
  void block(const Block& b, const Codes& dc, const Codes& ac) {
    sym(dc, cat(b[0]), b[0]);
    for (int k = 1, run = 0; k < 64; ++k, ++run) {
      if (b[k] == 0) { if (k == 63) sym(ac, 0); continue; }
      for (; run >= 16; run -= 16) sym(ac, 0xF0);
      sym(ac, run * 16 + cat(b[k]), b[k]), run = -1;
    }
  }
  std::vector<uint8_t> bytes() { while (n != 0) put(1, 1); return out; }
};

// The reference decoder: the reader as described, a byte at a time.
struct RefDecoder {
  const std::vector<uint8_t>& d;
  uint32_t buf;
  std::vector<std::string> events;
  std::size_t at = 0;
  int idx = -1;
  bool load(int which) {
    uint8_t b = 0xFF;
    bool eoi = false;
    if (at < d.size()) {
      b = d[at++];
      if (b == 0xFF && at < d.size() && d[at] == 0) ++at;
      else if (b == 0xFF && at < d.size() && d[at] == 0xD9) eoi = true, events.push_back("EOI " + std::to_string(which));
    }
    buf = buf << 8 | b, idx += 8;
    return eoi;
  }
  void refill() { if (!load(1) && idx <= 8) load(2); }
  uint32_t peek(int n) {
    const int limit = n == 9 ? 16 : n == 11 ? 19 : 24;
    if (idx < n) refill();
    for (int i = 0; i < (n == 9 ? 1 : 2); ++i) {
      if (idx < limit) refill();
    }
    return (buf >> ((idx - n + 1) & 31)) & ((1u << n) - 1);
  }
  int value(int len, int c) {
    idx -= len;
    if (idx == c) { refill(); if (idx == c) refill(); }
    if (c == 0) return 0;
    const int v = static_cast<int>((buf >> ((idx - c + 1) & 31)) & ((1u << c) - 1));
    idx -= c;
    return (v >> (c - 1)) & 1 ? v : v - (1 << c) + 1;
  }
  // A code of at most n bits matched against the peeked bits: symbol and length, or -1.
  std::pair<int, int> match(const Codes& c, int n, bool ac) {
    const uint32_t bits = peek(n);
    for (int s = 0; s < 256; ++s) {
      const auto [l, code] = c[s];
      if (l == 0 || l > n || (ac ? (s & 15) > 10 || ((s & 15) == 0 && s != 0 && s != 0xF0) : s > 11)) continue;
      if ((bits >> (n - l)) == code) return {s, l};
    }
    return {-1, 0};
  }
  // One block, zig-zag order, or the failure's message.
  std::string block(Block& b, const Codes& dc, const Codes& ac, int dc_bits) {
    b.fill(0);
    const auto [ds, dl] = match(dc, dc_bits, false);
    if (ds < 0) return "corrupt DC Huffman sequence";
    b[0] = value(dl, ds);
    int k = 0;
    do {
      const auto [s, l] = match(ac, 16, true);
      if (s < 0) return "corrupt AC Huffman sequence";
      const int v = value(l, s & 15);
      k = s == 0 ? 63 : s == 0xF0 ? k + 16 : k + (s >> 4) + 1;
      if (s != 0 && s != 0xF0 && k <= 63) b[k] = v;
    } while (k < 63);
    return k == 63 ? "" : "corrupt AC Huffman sequence (> 63 coeffs read)";
  }
};

// A whole stream decoded the reference way into 4:2:2 (or Y8) lines.
struct RefImage {
  std::vector<uint8_t> pixels;
  std::vector<Block> blocks;
  std::vector<std::string> events;  // EOI reports, then the failure (with its place)
};
RefImage ref_decode(const Tjpeg& t, uint16_t format, uint32_t w, uint32_t h, const std::vector<uint8_t>& data) {
  const bool grey = format == PIX_Y8, c411 = format == PIX_JPEG;
  const int mw = grey ? 8 : 16, mh = c411 ? 16 : 8, nb = grey ? 1 : c411 ? 6 : 4, bpp = grey ? 1 : 2;
  static const char* const k422[] = {"Y1: ", "Y2: ", "U: ", "V: "};
  static const char* const k411[] = {"Y1: ", "Y2: ", "Y3: ", "Y4: ", "U: ", "V: "};
  const Codes codes[4] = {codes_of(t, 0), codes_of(t, 1), codes_of(t, 2), codes_of(t, 3)};
  RefDecoder in{data, 0, {}};
  RefImage out{std::vector<uint8_t>(std::size_t{w} * h * bpp), {}, {}};
  in.refill(), in.refill();
  if (in.idx != 23) out.events.push_back("Buffer failed to fill at start");
  int64_t pred[3] = {};
  Q q[2];
  for (int k = 0; k < 64; ++k) q[0][kZigZag[k]] = t.Q_tables[0][k], q[1][kZigZag[k]] = t.Q_tables[1][k];
  for (uint32_t my = 0; my < h / mh && out.events.empty(); ++my) {
    for (uint32_t mx = 0; mx < w / mw; ++mx) {
      std::array<uint8_t, 64> s[6];
      for (int b = 0; b < nb; ++b) {
        const int comp = b < nb - 2 || grey ? 0 : b - nb + 3;
        Block zz;
        const std::string fail = in.block(zz, codes[comp ? 1 : 0], codes[comp ? 3 : 2], comp ? 11 : 9);
        out.blocks.push_back(zz);
        if (!fail.empty()) {
          out.events.insert(out.events.end(), in.events.begin(), in.events.end());
          out.events.push_back((grey ? "" : (c411 ? k411 : k422)[b]) + fail);
          return out;
        }
        std::array<int64_t, 64> nat{};
        pred[comp] = w32(pred[comp] + zz[0]);
        for (int k = 0; k < 64; ++k) nat[kZigZag[k]] = k == 0 ? pred[comp] : zz[k];
        s[b] = ref_idct(nat, q[comp ? 1 : 0]);
      }
      for (int y = 0; y < mh; ++y) {
        for (int x = 0; x < mw; ++x) {
          uint8_t* p = &out.pixels[((std::size_t{my} * mh + y) * w + mx * mw + x) * bpp];
          if (grey) { *p = s[0][y * 8 + x]; continue; }
          const int yb = (x / 8) + (y / 8) * 2, cy = c411 ? y / 2 : y;
          p[0] = s[yb][(y % 8) * 8 + x % 8];
          p[1] = s[nb - 2 + (x & 1)][cy * 8 + x / 2];
        }
      }
    }
  }
  out.events.insert(out.events.begin(), in.events.begin(), in.events.end());
  return out;
}

class JpegDecoder : public pixtest::LibraryTest {
 protected:
  // A JPEG image of the default tables and `q` (natural order, both tables) holding `data`.
  uint32_t source(uint16_t format, uint32_t w, uint32_t h, const std::vector<uint8_t>& data, uint32_t strip = 0,
                  const Q& q = Q{}) {
    const uint32_t img = PIX_JPEG_image_create();
    pixtest::set_parameters(img, {{PIX_IMAGE_FORMAT, format}, {PIX_IMAGE_WIDTH, w}, {PIX_IMAGE_HEIGHT, h},
                                  {PIX_LINES_THIS_STRIP, strip ? strip : h}});
    PIX_JPEG_set_default_H_tables(img);
    Tjpeg& t = record(img);
    for (int k = 0; k < 64; ++k) t.Q_tables[0][k] = t.Q_tables[1][k] = static_cast<uint8_t>(q[kZigZag[k]] ? q[kZigZag[k]] : 1 + k % 7);
    PIX_JPEG_malloc_N_bytes_data(img, static_cast<uint32_t>(data.size()));
    std::copy(data.begin(), data.end(), t.data);
    PIX_image_set_parameter(img, PIX_JPEG_LENGTH, static_cast<uint32_t>(data.size()));
    return img;
  }
  static Tjpeg& record(uint32_t img) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(img, PIX_PTR_TJPEG)); }
  // Strip by strip into a fresh image of `out_format`: the code that ended it, the lines, the reports.
  std::tuple<uint32_t, std::vector<uint8_t>, std::vector<std::string>> decode(uint32_t src, uint16_t out_format) {
    const uint32_t dst = pixtest::make_image(out_format, 16, 16);
    std::vector<uint8_t> lines;
    uint32_t r = 0;
    reports().clear();
    pix::jpeg::decoder_state().bit_buffer = 0;  // what a short first read sees, the same for every decode here
    for (uint32_t done = 0; r == 0 && (done == 0 || done < PIX_image_get_parameter(src, PIX_IMAGE_HEIGHT));) {
      r = PIX_JPEG_decompress(src, dst, PIX_STRIP_NEXT);
      const auto* p = static_cast<const uint8_t*>(PIX_image_get_ptr(dst, PIX_PTR_DATA));
      const uint32_t n = PIX_get_lines_this_strip(dst);
      if (r == 0) lines.insert(lines.end(), p, p + std::size_t{n} * PIX_image_get_parameter(dst, PIX_BYTES_PER_LINE)), done += n;
    }
    if (r != 0) PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);  // a failure leaves the run open
    std::vector<std::string> said;
    for (const auto& rep : reports()) said.push_back(rep.message.rfind("Unexpected EOI", 0) == 0 ? "EOI " + rep.message.substr(rep.message.size() - 1) : rep.message);
    return {r, lines, said};
  }
  // Decodes `data` both ways and expects the same samples and reports.
  void expect_reference(uint16_t format, uint32_t w, uint32_t h, const std::vector<uint8_t>& data, const Q& q = Q{}) {
    const uint32_t src = source(format, w, h, data, 0, q);
    const RefImage ref = ref_decode(record(src), format, w, h, data);
    const auto [r, lines, said] = decode(src, format == PIX_Y8 ? PIX_Y8 : PIX_YUV422);
    EXPECT_EQ(said, ref.events);
    const bool whole = ref.events.empty() || ref.events.back().rfind("EOI", 0) == 0;
    EXPECT_EQ(r, whole ? 0u : 0x107c0000u);
    if (whole) {
      EXPECT_EQ(lines, ref.pixels);
    }
    PIX_image_destroy(src);
  }
  // The coefficients the Huffman pass stored (natural order), read after the first strip.
  std::vector<int16_t> stored(uint32_t src) {
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, 8);
    // Into YUV 4:2:2 for colour: RGB24 would leave its converter's run open.
    const uint32_t dst = pixtest::make_image(PIX_image_get_parameter(src, PIX_IMAGE_FORMAT) == PIX_Y8 ? PIX_Y8 : PIX_YUV422, 16, 8);
    EXPECT_EQ(PIX_JPEG_decompress(src, dst, PIX_STRIP_NEXT), 0u);
    const auto& st = pix::jpeg::decoder_state();
    std::vector<int16_t> c(st.coefficients.get(), st.coefficients.get() + st.decoded * 64);
    PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);
    return c;
  }
  static std::vector<int16_t> natural(const std::vector<Block>& blocks) {
    std::vector<int16_t> c(blocks.size() * 64);
    for (std::size_t b = 0; b < blocks.size(); ++b)
      for (int k = 0; k < 64; ++k) c[b * 64 + kZigZag[k]] = static_cast<int16_t>(blocks[b][k]);
    return c;
  }
  Codes codes(int slot) {
    const uint32_t t = PIX_JPEG_image_create();
    PIX_JPEG_set_default_H_tables(t);
    return codes_of(record(t), slot);
  }
};

TEST(JpegIdct, KernelEqualsTheTranscription) {
  std::mt19937 rng(7);
  const auto check = [](const std::array<int64_t, 64>& c, const Q& q) {
    std::array<int16_t, 64> in{};
    uint64_t nonzero = 0;  // the map of AC terms that are not zero, exact and all-ones
    for (int k = 1; k < 64; ++k) in[k] = static_cast<int16_t>(c[k]), nonzero |= uint64_t{c[k] != 0} << k;
    std::array<uint8_t, 64> out{}, mapped{};
    pix::jpeg::kernels::idct_block(in.data(), w32(c[0]), q.data(), out.data(), 8);
    pix::jpeg::kernels::idct_block(in.data(), w32(c[0]), q.data(), mapped.data(), 8, nonzero);
    ASSERT_EQ(out, ref_idct(c, q));
    ASSERT_EQ(mapped, out);
  };
  Q ones, q;
  ones.fill(1);
  std::array<int64_t, 64> zero{};
  for (uint8_t v : ref_idct(zero, ones)) EXPECT_EQ(v, 127);  // -1 after the row pass, plus 128
  check(zero, ones);
  for (int k = 0; k < 64; ++k)  // every impulse, several magnitudes, every quantiser value
    for (int v : {-2047, -1023, -300, -17, -1, 1, 2, 5, 64, 1023, 2047})
      for (int e = 0; e < 256; ++e) {
        std::array<int64_t, 64> c{};
        c[k] = v, q.fill(1), q[k] = static_cast<uint16_t>(e);
        check(c, q);
      }
  for (int n = 0; n < 20000; ++n) {
    std::array<int64_t, 64> c{};
    const int range = n % 2 ? 2047 : 40, count = 1 + n % 20;
    for (int i = 0; i < count; ++i) c[rng() % (n % 3 ? 64 : 8)] = static_cast<int>(rng() % (2 * range + 1)) - range;
    if (n % 5 == 0) c[0] = static_cast<int32_t>(rng());  // a predictor far out: arithmetic wraps
    for (auto& e : q) e = static_cast<uint16_t>(rng() % 256);
    check(c, q);
    if (range != 40 || n % 5 == 0) continue;
    // Against the real transform: the integer one is within one step of it.
    q.fill(1);
    for (int i = 0; i < 64; ++i) {
      double s = 0;
      for (int u = 0; u < 8; ++u)
        for (int v = 0; v < 8; ++v)
          s += (u ? 1 : (1 / std::numbers::sqrt2)) * (v ? 1 : (1 / std::numbers::sqrt2)) * c[v * 8 + u] * std::cos((2 * (i % 8) + 1) * u * std::numbers::pi / 16) *
               std::cos((2 * (i / 8) + 1) * v * std::numbers::pi / 16);
      ASSERT_LE(std::abs(ref_idct(c, q)[i] - std::clamp(s / 4 + 128, 0.0, 255.0)), 2.0) << n << ' ' << i;
    }
  }
}

TEST_F(JpegDecoder, EveryDcDifferenceAndEveryAcSymbolOfEveryTable) {
  const Codes dcl = codes(0), dcc = codes(1), acl = codes(2), acc = codes(3);
  std::vector<Block> dc, ac, coloured;
  for (int d = -2047; d <= 2048; ++d) dc.push_back(Block{d <= 2047 ? d : 0});
  for (int s = 1; s < 256; ++s) {
    const int c = s & 15, r = s >> 4;
    if (c == 0 || c > 10) continue;
    for (int v : {(1 << c) - 1, -(1 << c) + 1, 1 << (c - 1), -(1 << (c - 1))}) {
      Block b{-v % 5};
      b[1 + r] = v;
      ac.push_back(b);
    }
  }
  ac.push_back(Block{1, 0, 3}), ac.back()[40] = 5, ac.back()[63] = -1;  // two runs of sixteen, no end of block
  Writer grey, colour;
  for (const Block& b : dc) grey.block(b, dcl, acl);
  for (std::size_t i = 0; i + 1 < ac.size(); i += 2) {
    for (const Block& b : {ac[i], ac[i + 1], ac[i + 1], ac[i]}) coloured.push_back(b);
    colour.block(ac[i], dcl, acl), colour.block(ac[i + 1], dcl, acl);
    colour.block(ac[i + 1], dcc, acc), colour.block(ac[i], dcc, acc);
  }
  const uint32_t colour_height = static_cast<uint32_t>(coloured.size() / 4 * 8);
  // The store holds what the reference reads; that is what was coded except
  // where a code and its value are longer than the reader holds (a 16-bit
  // code of category 10 read with 25 bits left, say).
  for (const auto& [format, h, data, coded] : {std::tuple{PIX_Y8, 512u, grey.bytes(), dc},
                                               {PIX_YUV422, colour_height, colour.bytes(), coloured}}) {
    const uint32_t src = source(format, format == PIX_Y8 ? 512 : 16, h, data);
    const RefImage ref = ref_decode(record(src), format, format == PIX_Y8 ? 512 : 16, h, data);
    EXPECT_EQ(stored(src), natural(ref.blocks));
    EXPECT_GT(std::inner_product(coded.begin(), coded.end(), ref.blocks.begin(), 0, std::plus<>(), std::equal_to<>()),
              static_cast<int>(coded.size() * 97 / 100));
  }
  Q q;
  for (int k = 0; k < 64; ++k) q[k] = static_cast<uint16_t>(k * 4 + 1);
  expect_reference(PIX_Y8, 512, 512, grey.bytes(), q);
  expect_reference(PIX_YUV422, 16, colour_height, colour.bytes());
}

// FF D9 put into the data at every place among the first bytes: reports of
// byte 1 and byte 2, in order, and decoding that goes on.
TEST_F(JpegDecoder, EoiInsideTheDataIsReportedAndDecodingGoesOn) {
  Writer w;
  std::mt19937 rng(3);
  for (int b = 0; b < 96; ++b) {
    Block blk{static_cast<int>(rng() % 31) - 15};
    for (int k = 1; k < 20; ++k) blk[k] = rng() % 3 ? 0 : static_cast<int>(rng() % 41) - 20;
    w.block(blk, codes(0), codes(2));
  }
  const std::vector<uint8_t> data = w.bytes();
  int seen[3] = {};
  for (std::size_t at = 0; at < 60; ++at) {
    std::vector<uint8_t> d = data;
    d.insert(d.begin() + static_cast<long>(at), {0xFF, 0xD9});
    const RefImage ref = ref_decode(record(source(PIX_Y8, 64, 96, d)), PIX_Y8, 64, 96, d);
    for (const auto& e : ref.events) seen[e == "EOI 1" ? 1 : e == "EOI 2" ? 2 : 0]++;
    expect_reference(PIX_Y8, 64, 96, d);
  }
  EXPECT_GT(seen[1], 0);
  EXPECT_GT(seen[2], 0);
}

TEST_F(JpegDecoder, ShortDataReadsOnAsOnesUntilACodeFails) {
  Writer w;
  for (int b = 0; b < 64; ++b) w.block(Block{b % 9 - 4, b % 5, 0, -(b % 3)}, codes(0), codes(2));
  const std::vector<uint8_t> data = w.bytes();
  for (std::size_t n = 0; n < data.size(); n += 3) expect_reference(PIX_Y8, 64, 64, {data.begin(), data.begin() + static_cast<long>(n)});
  expect_reference(PIX_Y8, 64, 64, {});  // "Buffer failed to fill at start" never: 0xFF fills it
}

TEST_F(JpegDecoder, OverrunPast63ReportsThePlaceInTheMcu) {
  const Codes dc = codes(0), ac = codes(2);
  for (const auto& [format, places] : {std::pair{PIX_Y8, 1}, {PIX_YUV422, 4}, {PIX_JPEG, 6}}) {
    for (int place = 0; place < places; ++place) {
      Writer w;
      for (int b = 0; b < places; ++b) {
        const bool chroma = places > 1 && b >= places - 2;
        w.sym(chroma ? codes(1) : dc, 0);
        for (int z = 0; z < (b == place ? 4 : 1); ++z) w.sym(chroma ? codes(3) : ac, b == place ? 0xF0 : 0);
      }
      expect_reference(format, 16, 16, w.bytes());
      EXPECT_EQ(last_report().function, "PIX_Huffman_decode_1_strip");
      EXPECT_NE(last_report().message.find("(> 63 coeffs read)"), std::string::npos);
    }
  }
}

TEST_F(JpegDecoder, StripsEqualTheWholeImageAndRgbEqualsTheConverter) {
  std::mt19937 rng(11);
  for (const uint16_t format : {PIX_Y8, PIX_YUV422, PIX_JPEG}) {
    const bool grey = format == PIX_Y8;
    Writer w;
    for (int b = 0; b < 7 * 6 * (format == PIX_JPEG ? 6 : 4); ++b) {
      Block blk{static_cast<int>(rng() % 61) - 30};
      for (int k = 1; k < 64; ++k) blk[k] = rng() % 4 ? 0 : static_cast<int>(rng() % 201) - 100;
      const bool chroma = !grey && b % (format == PIX_JPEG ? 6 : 4) >= (format == PIX_JPEG ? 4 : 2);
      w.block(blk, codes(chroma ? 1 : 0), codes(chroma ? 3 : 2));
    }
    const std::vector<uint8_t> data = w.bytes();
    const uint32_t width = grey ? 50 : 100, height = format == PIX_JPEG ? 90 : 45;  // padded: 56 or 112, 48 or 96
    const auto whole = decode(source(format, width, height, data), PIX_YUV422);
    ASSERT_EQ(std::get<0>(whole), 0u);
    for (uint32_t strip : {8u, 16u, 32u, 40u}) {
      const uint32_t src = source(format, width, height, data, strip);
      const auto part = decode(src, PIX_YUV422);
      if (format == PIX_JPEG && strip % 16 != 0) {  // de-zig-zag takes whole MCU rows only
        EXPECT_EQ(std::get<2>(part).back(), "For YUV 4:1:1 JPEG decoding, strip must be multiple of 16 lines");
        EXPECT_EQ(last_report().function, "PIX_JPEG_izz_1_strip");
        continue;
      }
      EXPECT_EQ(std::get<1>(part), std::get<1>(whole)) << format << ' ' << strip;
      EXPECT_EQ(PIX_image_get_parameter(src, PIX_IMAGE_WIDTH), grey ? 56u : 112u);
      EXPECT_EQ(PIX_image_get_parameter(src, PIX_IMAGE_HEIGHT), format == PIX_JPEG ? 96u : 48u);
    }
    if (grey) continue;
    const uint32_t yuv = pixtest::make_image(PIX_YUV422, 112, 96), rgb = pixtest::make_image(PIX_RGB24, 8, 8);
    const auto& lines = std::get<1>(whole);
    pixtest::set_parameters(yuv, {{PIX_IMAGE_HEIGHT, static_cast<uint32_t>(lines.size() / 224)}, {PIX_LINES_THIS_STRIP, static_cast<uint32_t>(lines.size() / 224)}});
    PIX_image_malloc_a_strip(yuv);
    std::copy(lines.begin(), lines.end(), static_cast<uint8_t*>(PIX_image_get_ptr(yuv, PIX_PTR_DATA)));
    ASSERT_EQ(PIX_YUV422_to_RGB24(yuv, rgb, PIX_STRIP_NEXT), 0u);
    const auto* p = static_cast<const uint8_t*>(PIX_image_get_ptr(rgb, PIX_PTR_DATA));
    const auto direct = decode(source(format, width, height, data, 16), PIX_RGB24);
    EXPECT_EQ(std::get<1>(direct), std::vector<uint8_t>(p, p + lines.size() / 2 * 3));
  }
}

TEST_F(JpegDecoder, RefusalsAndHostileInput) {
  const uint32_t dst = pixtest::make_image(PIX_Y8, 8, 8);
  uint32_t src = source(PIX_RGB24, 16, 16, {0});
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_JPEG_decompress", 0x10140007, "Unsupported image format");
  src = source(PIX_Y8, 0x40000000, 8, {0});  // a line of 32-bit working values no longer fits 32 bits
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_JPEG_decompress_1_strip", 0x10030000, "Corrupt image");
  PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);
  src = source(PIX_YUV422, 65536, 65536, {0});  // the whole image cannot be held: refused, nothing allocated
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_image_malloc_a_strip", 0x10500000, "");
  PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);
  src = source(PIX_Y8, 64, 64, {0});
  pix::memory::fail_after(0);
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_image_malloc_a_strip", 0x10504000, "");
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_Huffman_decode_1_strip", 0x107c0000, "corrupt AC Huffman sequence");
  PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);
  // A DC table whose long codes the 9-bit lookahead cannot hold: those categories fail.
  Writer w;
  w.put(10, 0x101);  // category 2's code below
  src = source(PIX_Y8, 64, 64, w.bytes());
  Tjpeg& t = record(src);
  std::fill_n(t.BITS[0], 16, 0), t.BITS[0][1] = 1, t.BITS[0][9] = 11;  // one 2-bit code, eleven of 10 bits
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_Huffman_decode_1_strip", 0x107c0000, "corrupt DC Huffman sequence");
}

}  // namespace
