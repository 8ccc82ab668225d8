// The JPEG encoder against references written here: the forward DCT
// transcribed plainly in 64 bits, quantisation by division, and a bit-by-bit
// reader that decodes our bytes with canonical codes made from the default
// tables.  Whole images must decode to the blocks the references make from
// the padded image, and give the same bytes in strips of any height.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "jpeg/kernels/encode.h"
#include "test_support.h"

namespace {

namespace k = pix::jpeg::kernels;
using pix::jpeg::kZigZag;
using Block = std::array<int16_t, 64>;
using Bytes = std::vector<uint8_t>;

int64_t descale(int64_t s, int n) { return (s > 0 ? s + (int64_t{1} << (n - 1)) : s - (int64_t{1} << (n - 1))) >> n; }

Block reference_fdct(const Block& in) {
  int64_t v[64];
  std::copy(in.begin(), in.end(), v);
  for (int pass = 0, shift = 11; pass < 2; ++pass, shift = 18) {
    for (int i = 0; i < 8; ++i) {
      int64_t* d[8];
      for (int j = 0; j < 8; ++j) d[j] = pass == 0 ? &v[8 * i + j] : &v[8 * j + i];
      const int64_t t0 = *d[0] + *d[7], t1 = *d[1] + *d[6], t2 = *d[2] + *d[5], t3 = *d[3] + *d[4];
      const int64_t t7 = *d[0] - *d[7], t6 = *d[1] - *d[6], t5 = *d[2] - *d[5], t4 = *d[3] - *d[4];
      const int64_t t10 = t0 + t3, t13 = t0 - t3, t11 = t1 + t2, t12 = t1 - t2;
      const int64_t z1 = (t12 + t13) * 4433, z5 = (t4 + t5 + t6 + t7) * 9633, a = (t4 + t7) * -7373;
      const int64_t b = (t5 + t6) * -20995, c = z5 + (t4 + t6) * -16069, e = z5 + (t5 + t7) * -3196;
      *d[0] = pass == 0 ? (t10 + t11) * 4 : descale(t10 + t11, 5);
      *d[4] = pass == 0 ? (t10 - t11) * 4 : descale(t10 - t11, 5);
      *d[2] = descale(z1 + t13 * 6270, shift), *d[6] = descale(z1 - t12 * 15137, shift);
      *d[7] = descale(t4 * 2446 + a + c, shift), *d[5] = descale(t5 * 16819 + b + e, shift);
      *d[3] = descale(t6 * 25172 + b + c, shift), *d[1] = descale(t7 * 12299 + a + e, shift);
    }
  }
  Block out;
  std::copy(v, v + 64, out.begin());  // a value beyond 16 bits would differ from ours
  return out;
}

int quantised(int c, int q) { return (c > 0 ? c + q / 2 : c - q / 2) / std::max(q, 1); }

TEST(JpegEncoderKernels, ForwardDctEqualsItsTranscriptionAndStaysInRange) {
  std::vector<Block> blocks;
  std::mt19937 rng(7);
  for (int n = 0; n < 256 * 65 + 512 + 200000; ++n) {
    Block b{};
    const int v = n % 256 - 128, at = n / 256;
    if (n < 256 * 65) {  // every level flat, and every impulse
      at == 64 ? b.fill(static_cast<int16_t>(v)) : void(b[at] = static_cast<int16_t>(v));
    } else if (n < 256 * 65 + 512) {  // every extreme row, down the rows and across the columns
      for (int i = 0; i < 64; ++i) b[i] = (n % 256 >> (n % 512 < 256 ? i % 8 : i / 8) & 1) ? 127 : -128;
    } else {
      for (auto& s : b) s = static_cast<int16_t>(n % 2 ? (rng() & 1 ? 127 : -128) : static_cast<int>(rng() % 256) - 128);
    }
    blocks.push_back(b);
  }
  int dc_low = 0, dc_high = 0, ac_most = 0;
  for (Block b : blocks) {
    const Block want = reference_fdct(b);
    k::fdct_scalar(b.data());
    ASSERT_EQ(b, want);
    dc_low = std::min<int>(dc_low, b[0]), dc_high = std::max<int>(dc_high, b[0]);
    for (int i = 1; i < 64; ++i) ac_most = std::max(ac_most, std::abs(b[i]));
  }
  // Within what the reciprocals divide exactly, DC differences within the
  // table, AC values within category 10.
  EXPECT_EQ(std::make_pair(dc_low, dc_high), std::make_pair(-1025, 1016));
  EXPECT_LT(ac_most, 1024);
}

TEST(JpegEncoderKernels, QuantisationDividesForEveryEntryAndEveryCoefficient) {
  // Entry i is (q + i) % 256 and coefficient n is c0 + n: each (entry,
  // coefficient) pair of 0..255 by -2048..2111 meets once, and the order
  // of entries (zig-zag) against coefficients (natural) is checked.
  for (int q = 0; q < 256; ++q) {
    std::array<uint8_t, 64> table;
    for (int i = 0; i < 64; ++i) table[i] = static_cast<uint8_t>((q + i) % 256);
    const k::Quantiser quant = k::make_quantiser(table.data());
    for (int c0 = -2048; c0 < 2048; c0 += 64) {
      Block b, zz;
      for (int n = 0; n < 64; ++n) b[n] = static_cast<int16_t>(c0 + n);
      k::quantise_scalar(b.data(), zz.data(), quant);
      for (int i = 0; i < 64; ++i) ASSERT_EQ(zz[i], quantised(c0 + kZigZag[i], table[i])) << q << ' ' << c0;
    }
  }
}

// Reads a stream back a bit at a time; every 0xFF must come stuffed.
struct Reader {
  using Codes = std::map<std::pair<int, int>, int>;  // (length, code) -> symbol
  Bytes bytes;
  std::size_t bit = 0;
  Reader(const uint8_t* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      bytes.push_back(p[i]);
      if (p[i] == 0xFF) {
        EXPECT_EQ(i + 1 < n ? p[++i] : -1, 0) << "unstuffed 0xFF at " << i;
      }
    }
  }
  int get(int n) {
    int v = 0;
    for (; n > 0; --n, ++bit) v = 2 * v + (bit / 8 < bytes.size() ? bytes[bit / 8] >> (7 - bit % 8) & 1 : 1);
    return v;
  }
  int symbol(const Codes& codes) {
    for (int length = 1, code = get(1); length <= 16; ++length, code = 2 * code + get(1)) {
      if (auto it = codes.find({length, code}); it != codes.end()) return it->second;
    }
    ADD_FAILURE() << "no code at bit " << bit;
    return 0;
  }
  int value(int cat) {
    const int v = get(cat);
    return cat == 0 || v >= 1 << (cat - 1) ? v : v - (1 << cat) + 1;
  }
  // Chroma blocks use the second DC and AC tables.
  Block block(bool chroma) {
    static const std::array<Codes, 4> codes = [] {  // the standard's canonical codes, slot by slot
      Tjpeg t{};
      pix::jpeg::set_default_huffman(t);
      std::array<Codes, 4> c;
      for (int slot = 0; slot < 4; ++slot)
        for (int length = 1, code = 0, j = 0; length <= 16; ++length, code <<= 1)
          for (int n = 0; n < t.BITS[slot][length - 1]; ++n) c[slot][{length, code++}] = t.HUFFVAL[slot][j++];
      return c;
    }();
    Block zz{};
    zz[0] = static_cast<int16_t>(value(symbol(codes[chroma])));
    for (int i = 1, s; i < 64 && (s = symbol(codes[2 + chroma])) != 0x00; ++i) {  // until the end of block
      i += s >> 4;
      if (s != 0xF0) zz.at(i) = static_cast<int16_t>(value(s & 15));
    }
    return zz;
  }
  // The fill: zeros and a 1 in the last byte's lowest bit, a whole 0x01 after
  // data that ended on a byte boundary.
  void expect_fill() {
    const std::size_t end = bytes.size() * 8;
    ASSERT_TRUE(end > bit && end - bit <= 8) << bit << " of " << end;
    EXPECT_EQ(get(static_cast<int>(end - bit)), 1);
  }
};

TEST(JpegEncoderKernels, BlocksDecodeBackThroughTheStandardCodes) {
  std::vector<Block> blocks;
  for (int d = -2047; d <= 2047; ++d) blocks.push_back({}), blocks.back()[0] = static_cast<int16_t>(d);
  for (int i = 1; i < 64; ++i)  // every run before every category and sign: (15, 0) runs, EOB or none
    for (int cat = 1; cat <= 10; ++cat)
      for (int v : {1 << (cat - 1), (1 << cat) - 1, -(1 << (cat - 1)), 1 - (1 << cat)})
        blocks.push_back({}), blocks.back()[i] = static_cast<int16_t>(v);
  std::mt19937 rng(3);
  for (int n = 0; n < 2000; ++n) {
    blocks.push_back({});
    for (auto& v : blocks.back()) v = static_cast<int>(rng() % 4) < n % 4 ? 0 : static_cast<int16_t>(rng() % 2047 - 1023);
  }
  Tjpeg t{};
  pix::jpeg::set_default_huffman(t);
  pix::jpeg::derive_symbol_codes(t, true);
  const auto& tables = pix::jpeg::coding_tables();
  for (bool chroma : {false, true}) {
    Bytes out(blocks.size() * k::kMaxBlockBytes + 16);
    k::BitWriter w;
    uint8_t* end = out.data();
    for (const Block& b : blocks) {
      end = k::encode_block(w, end, b.data(), (chroma ? tables.dc_chroma_diff : tables.dc_luma_diff).data(),
                            (chroma ? tables.ac_chroma : tables.ac_luma).data());
    }
    end = k::finish(w, end);
    Reader r(out.data(), static_cast<std::size_t>(end - out.data()));
    for (const Block& b : blocks) ASSERT_EQ(r.block(chroma), b);
    r.expect_fill();
    EXPECT_GT(std::count(out.data(), end, 0xFF), 100);  // stuffing was exercised
  }
}

TEST(JpegEncoderKernels, TheLastBitsAreFilledWithZerosAndALowOne) {
  const std::tuple<uint64_t, int, Bytes> cases[] = {
      {0b101, 3, {0xA1}},       {0xAB, 8, {0xAB, 0x01}},          {0x7F, 7, {0xFF, 0x00}},
      {0x12345, 20, {0x12, 0x34, 0x51}}, {0, 0, {}},                 {0xDEADBEEF, 32, {0xDE, 0xAD, 0xBE, 0xEF}},
      {0xFFFFFFFF0, 36, {0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0x01}}, {0xABCDEF12345, 44, {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x51}}};
  for (const auto& [bits, count, bytes] : cases) {
    k::BitWriter w{bits | 0xF000000000000000 * (count < 60), count};  // bits above the count are stale
    uint8_t out[32];
    EXPECT_EQ(Bytes(out, k::finish(w, out)), bytes) << count;
  }
}

// ---------------------------------------------------------------------------
// Whole images.

class JpegEncoder : public pixtest::LibraryTest {};

Tjpeg& tjpeg(uint32_t h) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

// Byte b of pixel (x, y): noise on the left half, smooth on the right; the
// last column and line repeated beyond the image's own.
uint8_t sample(uint32_t x, uint32_t y, uint32_t b, uint32_t width, uint32_t height) {
  x = std::min(x, width - 1), y = std::min(y, height - 1);
  if (x < width / 2) return static_cast<uint8_t>((x * 2654435761u ^ y * 40503u ^ b * 977u) >> 9);
  return static_cast<uint8_t>(x * 3 + y * 5 + b * 40);
}

// Fills the image's strip from line y0 with the samples of a w x h image.
void fill(uint32_t img, uint32_t y0, uint32_t w, uint32_t h) {
  const uint32_t bpp = (PIX_get_depth(img) + 1) / 8, width = PIX_get_width(img), lines = PIX_get_lines_this_strip(img);
  PIX_image_free_data(img);
  ASSERT_EQ(PIX_image_malloc_a_strip(img), 0u);
  auto* data = static_cast<uint8_t*>(PIX_image_get_ptr(img, PIX_PTR_DATA));
  for (uint32_t y = 0; y < lines; ++y)
    for (uint32_t x = 0; x < width * bpp; ++x) data[y * PIX_get_bytes_per_line(img) + x] = sample(x / bpp, y0 + y, x % bpp, w, h);
}

// The image in strips of `lines`, compressed into `dest`: every strip's bytes.
Bytes compress(uint32_t src, uint32_t dest, uint32_t lines) {
  Bytes all;
  for (uint32_t y0 = 0; y0 < PIX_get_height(src); y0 += lines) {
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, lines);
    fill(src, y0, PIX_get_width(src), PIX_get_height(src));
    EXPECT_EQ(PIX_JPEG_compress(src, dest, 3), 0u);
    all.insert(all.end(), tjpeg(dest).data, tjpeg(dest).data + tjpeg(dest).length);
  }
  EXPECT_EQ(Bytes(tjpeg(dest).data + tjpeg(dest).length, tjpeg(dest).data + tjpeg(dest).length + 2), (Bytes{0xFF, 0xD9}));
  return all;
}

// The zig-zag blocks the image codes to, from its padded raster; RGB is
// padded, then converted by the library's converter.
std::vector<Block> expected(uint16_t format, uint32_t width, uint32_t height, uint16_t q_scale) {
  const bool grey = format == PIX_Y8;
  const uint32_t pw = (width + (grey ? 7 : 15)) / (grey ? 8 : 16) * (grey ? 8 : 16), ph = (height + 7) / 8 * 8;
  const uint32_t padded = pixtest::make_image(format, pw, ph, ph), raster = PIX_image_create();
  fill(padded, 0, width, height);
  EXPECT_EQ(grey || format == PIX_YUV422 ? PIX_image_copy(padded, raster) : PIX_convert_to_YUV422(padded, raster, 3), 0u);
  if (format == PIX_YUV422) {  // the last pixel is Y1 of the last pair, with that pair's chroma
    auto* d = static_cast<uint8_t*>(PIX_image_get_ptr(raster, PIX_PTR_DATA));
    for (uint32_t y = 0; y < ph; ++y)
      for (uint32_t x = width; x < pw; ++x) d[2 * (y * pw + x) + 1] = sample(x % 2 ? width - 1 : width - 2, y, 1, width, height);
  }
  Tjpeg t{};
  t.Q_scale = q_scale;
  pix::jpeg::make_quant_tables(t);
  std::vector<Block> blocks;
  int predictor[3] = {};
  const auto* lines = static_cast<const uint8_t*>(PIX_image_get_ptr(raster, PIX_PTR_DATA));
  for (uint32_t my = 0; my < ph; my += 8) {
    for (uint32_t mx = 0; mx < pw; mx += grey ? 8 : 16) {
      for (int c = 0, component = 0; c < (grey ? 1 : 4); ++c, component = c < 2 ? 0 : c - 1) {
        Block b, zz;
        for (uint32_t r = 0; r < 8; ++r)
          for (uint32_t i = 0; i < 8; ++i)  // grey, or Y1, Y2, U, V of the MCU
            b[8 * r + i] = static_cast<int16_t>(lines[(my + r) * PIX_get_bytes_per_line(raster) +
                                                      (grey ? mx + i : c < 2 ? 2 * (mx + 8 * c + i) : 2 * mx + 4 * i + 2 * c - 3)] - 128);
        b = reference_fdct(b);
        for (int i = 0; i < 64; ++i) zz[i] = static_cast<int16_t>(quantised(b[kZigZag[i]], t.Q_tables[component != 0][i]));
        const int dc = std::exchange(zz[0], static_cast<int16_t>(zz[0] - predictor[component]));
        predictor[component] = dc;
        blocks.push_back(zz);
      }
    }
  }
  return blocks;
}

TEST_F(JpegEncoder, ImagesDecodeToTheReferenceBlocksInStripsOfAnyHeight) {
  const std::tuple<uint16_t, uint32_t, uint32_t, uint16_t> cases[] = {
      {PIX_Y8, 100, 75, 32},    {PIX_Y8, 64, 16, 256},    {PIX_Y8, 24, 8, 400},   {PIX_YUV422, 48, 24, 16},
      {PIX_YUV422, 40, 16, 32}, {PIX_RGB24, 30, 10, 100}, {PIX_BGR24, 17, 9, 32}, {PIX_RGBX32, 16, 8, 8},
      {PIX_BGRX32, 33, 3, 32},  {PIX_XBGR32, 8, 13, 64},  {PIX_YUV422, 16, 1024, 1},
      {PIX_Y8, 4096, 8, 400}};  // a block row of 1-line strips outgrows the buffer made for one line
  for (const auto& [format, width, height, q] : cases) {
    SCOPED_TRACE(testing::Message() << format << ' ' << width << 'x' << height);
    const uint32_t src = pixtest::make_image(format, width, height), dest = PIX_JPEG_image_create();
    PIX_image_set_outfilename(src, "out.jpg");
    PIX_JPEG_set_Quality_factor(dest, q);
    const Bytes whole = compress(src, dest, height);
    for (uint32_t lines : {1u, 7u, 8u, 30u}) EXPECT_EQ(compress(src, dest, lines), whole) << lines;
    // Coded padded, described unpadded; the last strip was cut in place.
    EXPECT_EQ((std::vector<uint32_t>{PIX_get_width(dest), PIX_get_height(dest), PIX_image_get_parameter(dest, PIX_IMAGE_FORMAT),
                                     PIX_get_depth(dest), PIX_get_lines_this_strip(dest), PIX_get_lines_this_strip(src)}),
              (std::vector<uint32_t>{width, height, format == PIX_Y8 ? 2u : 12u, format == PIX_Y8 ? 8u : 16u, 30,
                                     height % 30 == 0 ? 30 : height % 30}));
    EXPECT_STREQ(PIX_image_get_outfilename(dest), "out.jpg");
    Reader r(whole.data(), whole.size());
    const std::vector<Block> blocks = expected(format, width, height, q);
    for (std::size_t i = 0; i < blocks.size(); ++i) ASSERT_EQ(r.block(format != PIX_Y8 && i % 4 >= 2), blocks[i]) << i;
    r.expect_fill();
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(JpegEncoder, RefusalsAreReportedUnderTheirStage) {
  const uint32_t dest = PIX_JPEG_image_create(), plain = PIX_image_create();
  uint8_t data[64] = {};
  const std::tuple<uint16_t, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, const char*, const char*> cases[] = {
      {PIX_PALETTED, 8, 8, 2, data, dest, 0x10140003, "PIX_JPEG_compress", "Unsupported image format"},
      {PIX_XRGB32, 8, 8, 2, data, dest, 0x1014000F, "PIX_JPEG_compress", "Unsupported image format"},
      {PIX_Y8, 8, 8, 0, data, dest, 0x10030000, "PIX_JPEG_compress", "Corrupt image"},
      {PIX_Y8, 8, 8, 2, data, plain, 0x10010000, "PIX_JPEG_set_image", "Not a JPEG image"},
      {PIX_YUV422, 100, 75, 2, data, dest, 0x10140000, "PIX_pad_to_MCU_1_strip", "Unsupported image type"},
      {PIX_Y8, 0xFFFFFFF4u, 1, 8, data, dest, 0x10030000, "PIX_JPEG_compress_1_strip", "Hp_image is corrupt"},
      {PIX_Y8, 0x80000000u, 1, 2, data, dest, 0x10030000, "PIX_JPEG_compress_1_strip", "Corrupt image"},
      {PIX_Y8, 8, 8, 2, nullptr, dest, 0x10030000, "PIX_JPEG_raster_to_block_1_strip", "No image data"},
      {PIX_RGB24, 16, 8, 2, nullptr, dest, 0x10030000, "PIX_convert_to_YUV422_1_strip", "No image data"},
      {PIX_Y8, 8, 7, 2, nullptr, dest, 0x10030000, "PIX_pad_to_MCU_1_strip", "No image data"}};
  for (const auto& [format, width, height, align, pointer, to, code, function, message] : cases) {
    const uint32_t src = pixtest::make_image(format, width, height, 1);
    PIX_image_set_parameter(src, PIX_LINE_ALIGN, align);
    PIX_image_set_ptr(src, PIX_PTR_DATA, pointer);
    expect_report(PIX_JPEG_compress(src, to, 3), function, code, message);
    PIX_JPEG_compress(src, to, 4);  // a failed strip leaves the run open
    PIX_image_set_ptr(src, PIX_PTR_DATA, nullptr);
  }
  // An out-of-range Q scale is reported, and the default coded with.
  const uint32_t src = pixtest::make_image(PIX_Y8, 8, 8);
  tjpeg(dest).Q_scale = 0;
  const Bytes zero = compress(src, dest, 8);
  EXPECT_EQ(last_report().function + ": " + last_report().message, "PIX_JPEG_set_Quality_factor: Q factor of range");
  PIX_JPEG_set_Quality_factor(dest, 32);
  EXPECT_EQ(compress(src, dest, 8), zero);
  PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, 0);  // a strip of no lines does nothing
  EXPECT_EQ(PIX_JPEG_compress(src, 999, 3), 0u);
}

}  // namespace
