// The decoder against references written here: streams coded by the bit
// writer of jpeg_reference.h, a reader that loads a byte at a time into a
// 32-bit buffer as the library's is described, codes matched bit by bit, and
// the inverse DCT transcribed in 64-bit arithmetic (read back at 32 bits
// where a value is interpreted), itself held against the real transform.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "core/memory.h"
#include "jpeg/decoder.h"
#include "jpeg/kernels/idct.h"
#include "jpeg/tables.h"
#include "jpeg_reference.h"
#include "test_support.h"

namespace {

using jpegref::Codes;
using jpegref::Writer;
using pix::jpeg::kZigZag;
using Block = std::array<int, 64>;   // zig-zag order: DC difference, then AC
using Q = std::array<uint16_t, 64>;  // natural order
using Bytes = std::vector<uint8_t>;

int32_t w32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }
int32_t descale(int64_t s, int n) {
  const int32_t v = w32(s);
  return w32(int64_t{v} + (v > 0 ? 1 : -1) * (int64_t{1} << (n - 1))) >> n;
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

// The reader as described: an index of unread bits less one, refills of one
// byte and a second while the index is 8 or less, peeks of 9, 11 and 16 bits
// that refill below fixed marks, a value that refills only when the index
// equals its category, EOI reported by the byte of the refill that met it.
struct RefReader {
  const Bytes& d;
  std::vector<std::string> events;
  uint32_t buf = 0;
  std::size_t at = 0;
  int idx = -1;
  bool load(int which) {  // past the end, 0xFF
    const bool in = at < d.size();
    const uint8_t b = in ? d[at++] : 0xFF;
    const int next = in && b == 0xFF && at < d.size() ? d[at] : -1;
    at += next == 0, buf = buf << 8 | b, idx += 8;
    if (next == 0xD9) events.push_back("EOI " + std::to_string(which));
    return next == 0xD9;
  }
  void refill() { if (!load(1) && idx <= 8) load(2); }
  uint32_t peek(int n) {
    const int limit = n == 9 ? 16 : n == 11 ? 19 : 24;
    if (idx < n) refill();
    for (int i = 0; i < (n == 9 ? 1 : 2); ++i) if (idx < limit) refill();
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

std::array<Codes, 4> all_codes(const Tjpeg& t) {
  return {jpegref::codes_of(t, 0), jpegref::codes_of(t, 1), jpegref::codes_of(t, 2), jpegref::codes_of(t, 3)};
}
const Codes& codes(int slot) {  // of the default tables
  static const auto all = [] { Tjpeg t{}; return pix::jpeg::set_default_huffman(t), all_codes(t); }();
  return all[slot];
}
int blocks_per_mcu(uint16_t format) { return format == PIX_Y8 ? 1 : format == PIX_JPEG ? 6 : 4; }
bool chroma(uint16_t format, std::size_t b) { return blocks_per_mcu(format) > 1 && int(b % blocks_per_mcu(format)) >= blocks_per_mcu(format) - 2; }

// Blocks coded in the MCU order of `format`.
Bytes coded(uint16_t format, const std::vector<Block>& blocks) {
  Writer w;
  for (std::size_t b = 0; b < blocks.size(); ++b) w.block(blocks[b], codes(chroma(format, b)), codes(2 + chroma(format, b)));
  return w.bytes();
}
// `n` blocks of DC differences within +-dc and a quarter of AC terms below `upto` within +-ac.
std::vector<Block> noise(std::mt19937& rng, std::size_t n, int dc, int ac, int upto) {
  std::vector<Block> out(n);
  for (Block& b : out)
    for (int k = 0; k < upto; ++k) b[k] = k == 0 ? int(rng() % (2 * dc + 1)) - dc : rng() % 4 ? 0 : int(rng() % (2 * ac + 1)) - ac;
  return out;
}

// A whole stream decoded the reference way into 4:2:2 (or Y8) lines.
struct RefImage {
  Bytes pixels;
  std::vector<Block> blocks;
  std::vector<std::string> events;  // EOI reports, then the failure (with its place)
};
RefImage ref_decode(const Tjpeg& t, uint16_t format, uint32_t w, uint32_t h, const Bytes& data) {
  const bool grey = format == PIX_Y8, c411 = format == PIX_JPEG;
  const int mw = grey ? 8 : 16, mh = c411 ? 16 : 8, nb = blocks_per_mcu(format), bpp = grey ? 1 : 2;
  static const char* const places[] = {"Y1: ", "Y2: ", "Y3: ", "Y4: "};
  const std::array<Codes, 4> c = all_codes(t);
  RefReader in{data, {}};
  RefImage out{Bytes(std::size_t{w} * h * bpp), {}, {}};
  in.refill(), in.refill();
  if (in.idx != 23) in.events.push_back("Buffer failed to fill at start"), h = 0;
  int64_t pred[3] = {};
  Q q[2];
  for (int k = 0; k < 64; ++k) q[0][kZigZag[k]] = t.Q_tables[0][k], q[1][kZigZag[k]] = t.Q_tables[1][k];
  for (uint32_t my = 0; my < h / mh; ++my) {
    for (uint32_t mx = 0; mx < w / mw; ++mx) {
      std::array<uint8_t, 64> s[6];
      for (int b = 0; b < nb; ++b) {
        const int comp = chroma(format, b) ? b - nb + 3 : 0;
        Block zz;
        const std::string fail = in.block(zz, c[comp ? 1 : 0], c[comp ? 3 : 2], comp ? 11 : 9);
        out.blocks.push_back(zz);
        if (!fail.empty()) {
          out.events = in.events;
          out.events.push_back((grey ? "" : comp == 1 ? "U: " : comp == 2 ? "V: " : places[b]) + fail);
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
          p[0] = s[(x / 8) + (y / 8) * 2][(y % 8) * 8 + x % 8];
          p[1] = s[nb - 2 + (x & 1)][(c411 ? y / 2 : y) * 8 + x / 2];
        }
      }
    }
  }
  out.events = in.events;
  return out;
}

class JpegDecoder : public pixtest::LibraryTest {
 protected:
  // A JPEG image of the default tables and `q` (natural order, both tables; 0: 1 + k % 7) holding `data`.
  uint32_t source(uint16_t format, uint32_t w, uint32_t h, const Bytes& data, uint32_t strip = 0, const Q& q = Q{}) {
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
  struct Decoded { uint32_t result; Bytes lines; std::vector<std::string> said; };  // said: the reports, "EOI n" for the reader's
  // Strip by strip into a fresh image of `out_format`.
  Decoded decode(uint32_t src, uint16_t out_format) {
    const uint32_t dst = pixtest::make_image(out_format, 16, 16);
    Decoded d{0, {}, {}};
    reports().clear();
    pix::jpeg::decoder_state().bit_buffer = 0;  // what a short first read sees, the same for every decode here
    for (uint32_t done = 0; d.result == 0 && (done == 0 || done < PIX_image_get_parameter(src, PIX_IMAGE_HEIGHT));) {
      d.result = PIX_JPEG_decompress(src, dst, PIX_STRIP_NEXT);
      const auto* p = static_cast<const uint8_t*>(PIX_image_get_ptr(dst, PIX_PTR_DATA));
      const uint32_t n = PIX_get_lines_this_strip(dst);
      if (d.result == 0) d.lines.insert(d.lines.end(), p, p + std::size_t{n} * PIX_image_get_parameter(dst, PIX_BYTES_PER_LINE)), done += n;
    }
    if (d.result != 0) PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);  // a failure leaves the run open
    for (const auto& rep : reports())
      d.said.push_back(rep.message.rfind("Unexpected EOI", 0) == 0 ? "EOI " + rep.message.substr(rep.message.size() - 1) : rep.message);
    return d;
  }
  // Decodes `data` both ways and expects the same samples and reports; gives the reference's.
  RefImage expect_reference(uint16_t format, uint32_t w, uint32_t h, const Bytes& data, const Q& q = Q{}) {
    const uint32_t src = source(format, w, h, data, 0, q);
    RefImage ref = ref_decode(record(src), format, w, h, data);
    const Decoded d = decode(src, format == PIX_Y8 ? PIX_Y8 : PIX_YUV422);
    EXPECT_EQ(d.said, ref.events);
    const bool whole = ref.events.empty() || ref.events.back().rfind("EOI", 0) == 0;
    EXPECT_EQ(d.result, whole ? 0 : 0x107c0000u);
    EXPECT_EQ(whole ? jpegref::difference(d.lines, ref.pixels) : "", "");
    PIX_image_destroy(src);
    return ref;
  }
};

TEST(JpegIdct, KernelEqualsTheTranscriptionAndTheTranscriptionTheTransform) {
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
  Q q;
  std::array<int64_t, 64> zero{};
  q.fill(1);
  for (uint8_t v : ref_idct(zero, q)) EXPECT_EQ(v, 127);  // -1 after the row pass, plus 128
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
    q.fill(1);  // the integer transform is within two steps of the real one
    for (int i = 0; i < 64; ++i) {
      double s = 0;
      for (int u = 0; u < 8; ++u)
        for (int v = 0; v < 8; ++v)
          s += (u ? 1 : std::numbers::sqrt2 / 2) * (v ? 1 : std::numbers::sqrt2 / 2) * c[v * 8 + u] *
               std::cos((2 * (i % 8) + 1) * u * std::numbers::pi / 16) * std::cos((2 * (i / 8) + 1) * v * std::numbers::pi / 16);
      ASSERT_LE(std::abs(ref_idct(c, q)[i] - std::clamp(s / 4 + 128, 0.0, 255.0)), 2.0) << n << ' ' << i;
    }
  }
}

TEST_F(JpegDecoder, EveryDcDifferenceAndEveryAcSymbolOfEveryTable) {
  std::vector<Block> dc, ac, coloured;
  for (int d = -2047; d <= 2048; ++d) dc.push_back(Block{d <= 2047 ? d : 0});
  for (int s = 1; s < 256; ++s)
    for (int c = s & 15, i = 0; i < 4 && c != 0 && c <= 10; ++i) {  // each category's extremes, both signs
      const int v = (i % 2 ? -1 : 1) * (i < 2 ? (1 << c) - 1 : 1 << (c - 1));
      ac.push_back(Block{-v % 5}), ac.back()[1 + (s >> 4)] = v;
    }
  ac.push_back(Block{1, 0, 3}), ac.back()[40] = 5, ac.back()[63] = -1;  // two runs of sixteen, no end of block
  for (std::size_t i = 0; i + 1 < ac.size(); i += 2)
    for (const Block& b : {ac[i], ac[i + 1], ac[i + 1], ac[i]}) coloured.push_back(b);
  for (int d = 0; d < 2047; ++d)  // every chroma DC difference to category 10
    for (const Block& b : {Block{}, Block{}, Block{(d + 1) / 2 * (d % 2 ? 1 : -1)}, Block{d / 2 - 1023}}) coloured.push_back(b);
  const uint32_t colour_height = static_cast<uint32_t>(coloured.size() / 4 * 8);
  Q q;
  for (int k = 0; k < 64; ++k) q[k] = static_cast<uint16_t>(k * 4 + 1);
  for (const auto& [format, w, h, blocks] : {std::tuple{PIX_Y8, 512u, 512u, dc}, {PIX_YUV422, 16u, colour_height, coloured}}) {
    // The store holds what the reference reads; that is what was coded
    // except where a code and its value are longer than the reader holds (a
    // 16-bit code of category 10 read with 25 bits left, say).
    const Bytes data = coded(format, blocks);
    const RefImage ref = expect_reference(format, w, h, data, format == PIX_Y8 ? q : Q{});
    const uint32_t src = source(format, w, h, data, 8);
    const uint32_t dst = pixtest::make_image(format, w, 8);
    EXPECT_EQ(PIX_JPEG_decompress(src, dst, PIX_STRIP_NEXT), 0u);
    auto& st = pix::jpeg::decoder_state();
    ASSERT_EQ(st.decoded, ref.blocks.size());
    for (std::size_t b = 0; b < ref.blocks.size(); ++b) {
      int16_t c[64];
      const uint64_t map = st.expand(b, c);
      for (int k = 0; k < 64; ++k) ASSERT_EQ(c[kZigZag[k]], ref.blocks[b][k]) << b << ' ' << k;
      for (int n = 1; n < 64; ++n) ASSERT_EQ(map >> n & 1, uint64_t{c[n] != 0}) << b << ' ' << n;
    }
    PIX_JPEG_decompress(src, dst, PIX_STRIP_FINISH);
    EXPECT_GT(std::inner_product(blocks.begin(), blocks.end(), ref.blocks.begin(), 0, std::plus<>(), std::equal_to<>()),
              static_cast<int>(blocks.size() * 97 / 100));
  }
}

// Damaged data, each way read as the reference reads it: FF D9 put in at
// every place (the reader reports it by the byte of the refill that met it,
// and goes on), data cut short at every third byte (bytes past the end read
// as 0xFF until a code fails), and a block that runs past coefficient 63 at
// every place of the MCU (the report names the place).
TEST_F(JpegDecoder, DamagedDataIsReadAsTheReferenceReadsIt) {
  std::mt19937 rng(3);
  int seen[3] = {};
  for (const auto& [format, w, h] : {std::tuple{PIX_Y8, 64u, 96u}, {PIX_YUV422, 32u, 48u}}) {
    const Bytes data = coded(format, noise(rng, 96, 15, 20, 20));
    for (std::size_t at = 0; at <= data.size(); ++at) {
      Bytes d = data;
      d.insert(d.begin() + static_cast<long>(at), {0xFF, 0xD9});
      for (const auto& e : expect_reference(format, w, h, d).events) seen[e == "EOI 1" ? 1 : e == "EOI 2" ? 2 : 0]++;
      if (at % 3 == 0) expect_reference(format, w, h, {data.begin(), data.begin() + static_cast<long>(at)});
    }
  }
  EXPECT_GT(seen[1], 0);
  EXPECT_GT(seen[2], 0);
  for (const uint16_t format : {PIX_Y8, PIX_YUV422, PIX_JPEG}) {
    for (int place = 0; place < blocks_per_mcu(format); ++place) {
      Writer w;
      for (int b = 0; b < blocks_per_mcu(format); ++b) {
        w.sym(codes(chroma(format, b)), 0);
        for (int z = 0; z < (b == place ? 4 : 1); ++z) w.sym(codes(2 + chroma(format, b)), b == place ? 0xF0 : 0);
      }
      const RefImage ref = expect_reference(format, 16, 16, w.bytes());
      EXPECT_NE(ref.events.back().find("(> 63 coeffs read)"), std::string::npos);
      EXPECT_EQ(last_report().function, "PIX_Huffman_decode_1_strip");
    }
  }
}

TEST_F(JpegDecoder, StripsEqualTheWholeImageAndRgbEqualsTheConverter) {
  std::mt19937 rng(11);
  for (const uint16_t format : {PIX_Y8, PIX_YUV422, PIX_JPEG}) {
    const bool grey = format == PIX_Y8;
    const Bytes data = coded(format, noise(rng, 7 * 6 * blocks_per_mcu(format), 30, 100, 64));
    const uint32_t width = grey ? 50 : 100, height = format == PIX_JPEG ? 90 : 45;  // padded: 56 or 112, 48 or 96
    const Decoded whole = decode(source(format, width, height, data), PIX_YUV422);
    ASSERT_EQ(whole.result, 0u);
    const uint32_t padded = grey ? 56 : 112, padded_height = format == PIX_JPEG ? 96 : 48;
    EXPECT_EQ(whole.lines, ref_decode(record(source(format, 8, 8, {})), format, padded, padded_height, data).pixels);
    for (uint32_t strip : {8u, 16u, 20u, 32u, 40u}) {
      const uint32_t src = source(format, width, height, data, strip);
      const Decoded part = decode(src, PIX_YUV422);
      if (format == PIX_JPEG && strip % 16 != 0) {  // de-zig-zag takes whole MCU rows only
        EXPECT_EQ(part.said.back(), "For YUV 4:1:1 JPEG decoding, strip must be multiple of 16 lines");
        EXPECT_EQ(last_report().function, "PIX_JPEG_izz_1_strip");
        continue;
      }
      EXPECT_EQ(part.lines, whole.lines) << format << ' ' << strip;
      EXPECT_EQ(PIX_image_get_parameter(src, PIX_IMAGE_WIDTH) * 100 + PIX_image_get_parameter(src, PIX_IMAGE_HEIGHT), padded * 100 + padded_height);
    }
    if (grey) continue;
    const uint32_t lines = padded_height, yuv = pixtest::make_image(PIX_YUV422, 112, lines, lines), rgb = pixtest::make_image(PIX_RGB24, 8, 8);
    PIX_image_malloc_a_strip(yuv);
    std::copy(whole.lines.begin(), whole.lines.end(), static_cast<uint8_t*>(PIX_image_get_ptr(yuv, PIX_PTR_DATA)));
    ASSERT_EQ(PIX_YUV422_to_RGB24(yuv, rgb, PIX_STRIP_NEXT), 0u);
    const auto* p = static_cast<const uint8_t*>(PIX_image_get_ptr(rgb, PIX_PTR_DATA));
    EXPECT_EQ(decode(source(format, width, height, data, 16), PIX_RGB24).lines, Bytes(p, p + lines * 112 * 3));
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
  std::fill_n(record(src).BITS[0], 16, 0), record(src).BITS[0][1] = 1, record(src).BITS[0][9] = 11;  // one 2-bit code, eleven of 10 bits
  expect_report(PIX_JPEG_decompress(src, dst, 3), "PIX_Huffman_decode_1_strip", 0x107c0000, "corrupt DC Huffman sequence");
}

}  // namespace
