// The JPEG encoder against references written here: the forward DCT
// transcribed in 64 bits, quantisation by division, and blocks coded by the
// bit writer of jpeg_reference.h with the standard's canonical codes.
// Images must code to the bytes the references make of the padded image,
// in strips of any height.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <utility>

#include "core/simd.h"
#include "jpeg/kernels/encode.h"
#include "jpeg_reference.h"
#include "test_support.h"

namespace {

namespace k = pix::jpeg::kernels;
using jpegref::Bytes;
using pix::jpeg::kZigZag;
using Block = std::array<int16_t, 64>;

int64_t descale(int64_t s, int n) { return (s > 0 ? s + (int64_t{1} << (n - 1)) : s - (int64_t{1} << (n - 1))) >> n; }

Block reference_fdct(const Block& in) {
  int64_t v[64];  // no 16-bit limit here: a value beyond it would differ from ours
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
  std::copy(v, v + 64, out.begin());
  return out;
}

int quantised(int c, int q) { return (c > 0 ? c + q / 2 : c - q / 2) / std::max(q, 1); }

TEST(JpegEncoderKernels, ForwardDctEqualsItsTranscriptionAndStaysInRange) {
  std::mt19937 rng(7);
  int dc_low = 0, dc_high = 0, ac_most = 0;
  for (int n = 0; n < 256 * 67 + 200000; ++n) {
    Block b{};
    const int v = n % 256 - 128, at = n / 256;
    if (at < 64) b[at] = static_cast<int16_t>(v);  // every impulse
    else if (at == 64) b.fill(static_cast<int16_t>(v));  // every level flat
    else if (at <= 66)  // every extreme row, down the rows and across the columns
      for (int i = 0; i < 64; ++i) b[i] = (n % 256 >> (at == 65 ? i % 8 : i / 8) & 1) ? 127 : -128;
    else
      for (auto& s : b) s = static_cast<int16_t>(n % 2 ? (rng() & 1 ? 127 : -128) : static_cast<int>(rng() % 256) - 128);
    const Block want = reference_fdct(b);
    k::fdct_scalar(b.data());
    ASSERT_EQ(b, want) << n;
    dc_low = std::min<int>(dc_low, b[0]), dc_high = std::max<int>(dc_high, b[0]);
    for (int i = 1; i < 64; ++i) ac_most = std::max(ac_most, std::abs(b[i]));
  }
  // Within what the reciprocals divide exactly and the coding tables reach.
  EXPECT_EQ(std::make_pair(dc_low, dc_high), std::make_pair(-1025, 1016));
  EXPECT_LT(ac_most, 1024);
}

TEST(JpegEncoderKernels, QuantisationDividesForEveryEntryAndEveryCoefficient) {
  // Entry i is (q + i) % 256 and coefficient n is c0 + n: every (entry,
  // coefficient) pair of 0..255 by -2048..2111 meets once, zig-zag entries
  // against natural coefficients.
  for (int q = 0; q < 256; ++q) {
    uint8_t table[64];
    for (int i = 0; i < 64; ++i) table[i] = static_cast<uint8_t>((q + i) % 256);
    const k::Quantiser quant = k::make_quantiser(table);
    for (int c0 = -2048; c0 < 2048; c0 += 64) {
      Block b, zz;
      for (int n = 0; n < 64; ++n) b[n] = static_cast<int16_t>(c0 + n);
      k::quantise_scalar(b.data(), zz.data(), quant);
      for (int i = 0; i < 64; ++i) ASSERT_EQ(zz[i], quantised(c0 + kZigZag[i], table[i])) << q << ' ' << c0;
    }
  }
}

// The reference codes of the default tables, and the coding tables derived from them.
std::array<jpegref::Codes, 4> codes() {
  Tjpeg t{};
  pix::jpeg::set_default_huffman(t);
  pix::jpeg::derive_symbol_codes(t, true);
  return {jpegref::codes_of(t, 0), jpegref::codes_of(t, 1), jpegref::codes_of(t, 2), jpegref::codes_of(t, 3)};
}

constexpr pix::simd::Level kLevels[] = {pix::simd::Level::sse2, pix::simd::Level::avx2, pix::simd::Level::avx512};

TEST(JpegEncoderKernels, BlocksCodeAsTheReferenceCodesThem) {
  std::vector<Block> blocks;
  for (int d = -2047; d <= 2047; ++d) blocks.push_back({}), blocks.back()[0] = static_cast<int16_t>(d);
  for (int i = 1; i < 64; ++i)  // every run before every category and sign: (15, 0) runs, EOB or none
    for (int cat = 1; cat <= 10; ++cat)
      for (int v : {1 << (cat - 1), (1 << cat) - 1, -(1 << (cat - 1)), 1 - (1 << cat)})
        blocks.push_back({}), blocks.back()[i] = static_cast<int16_t>(v);
  // Random blocks from full to 1 value in 64 (runs of 16 zeros, several a block).
  std::mt19937 rng(3);
  for (int n = 0; n < 6000; ++n) {
    const int keep = std::array{64, 48, 32, 16, 4, 1}[n % 6];
    blocks.push_back({});
    for (auto& v : blocks.back()) v = static_cast<int>(rng() % 64) < keep ? static_cast<int16_t>(rng() % 2047 - 1023) : 0;
    blocks.back()[0] = static_cast<int16_t>(rng() % 4095 - 2047);
  }
  const auto ref_codes = codes();  // derives the library's tables too
  const auto& tables = pix::jpeg::coding_tables();
  // The coders: the active level's, one given a mask (bit 0 set: it must not
  // be read), each level's.
  std::vector<k::EncodeBlock> coders = {k::encode_block, [](k::BitWriter& w, uint8_t* out, const int16_t* zz, auto dc,
                                                            auto ac) noexcept {
    return k::encode_block(w, out, zz, k::nonzero_mask_scalar(zz) | 1, dc, ac);
  }};
  for (auto l : kLevels) if (pix::simd::supports(l) && k::encode_block_simd(l)) coders.push_back(k::encode_block_simd(l));
  for (int c = 0; const k::EncodeBlock coder : coders) {
    for (bool chroma : {false, true}) {
      // A writer holding bits first (a whole word of them or not); strips end
      // (whole words out) at random blocks.
      std::mt19937_64 bits(chroma);
      const int count = chroma ? 45 : 13;
      k::BitWriter w{bits(), count};
      jpegref::Writer ref;
      for (int i = count - 1; i >= 0; --i) ref.put(1, w.bits >> i & 1);
      Bytes out(blocks.size() * k::kMaxBlockBytes + 16);
      uint8_t* end = out.data();
      for (const Block& b : blocks) {
        end = coder(w, end, b.data(), (chroma ? tables.dc_chroma_put : tables.dc_luma_put).data(),
                    (chroma ? tables.ac_chroma_put : tables.ac_luma_put).data());
        if (bits() % 16 == 0) end = k::emit_words(w, end);
        ref.block(b, ref_codes[chroma], ref_codes[2 + chroma]);
      }
      out.resize(static_cast<std::size_t>(k::finish(w, end) - out.data()));
      EXPECT_EQ(jpegref::difference(out, ref.bytes(false)), "") << "coder " << c << ' ' << chroma;
      EXPECT_GT(std::count(out.begin(), out.end(), 0xFF), 100);  // stuffing was exercised
    }
    ++c;
  }
}

// The mask kernels on any 16-bit values, a value or a byte of it often 0.
TEST(JpegEncoderKernels, NonZeroMasksMarkEveryNonZeroValueAtEveryLevel) {
  std::mt19937 rng(11);
  for (int n = 0; n < 20000; ++n) {
    Block b;
    uint64_t want = 0;
    for (int i = 0; i < 64; ++i) {
      const uint32_t r = rng();
      b[i] = static_cast<int16_t>(r % 4 == 0 ? 0 : r % 4 == 1 ? (r >> 8) & 0xFF00 : r % 4 == 2 ? (r >> 8) & 0xFF : r >> 16);
      want |= uint64_t{b[i] != 0} << i;
    }
    ASSERT_EQ(k::nonzero_mask_scalar(b.data()), want) << n;
    for (auto l : kLevels) {
      const k::NonzeroMask mask = pix::simd::supports(l) ? k::nonzero_mask_simd(l) : nullptr;
      ASSERT_EQ(mask ? mask(b.data()) : want, want) << n << ' ' << int(l);
    }
  }
}

// Every count of pending bits, stale bits above them, ones that need stuffing.
TEST(JpegEncoderKernels, TheLastBitsAreFilledWithZerosAndALowOne) {
  std::mt19937_64 rng(5);
  for (int count = 0; count < 64; ++count) {
    const uint64_t bits = count % 3 ? rng() : ~uint64_t{0};
    k::BitWriter w{bits, count};
    jpegref::Writer ref;
    for (int i = count - 1; i >= 0; --i) ref.put(1, bits >> i & 1);
    uint8_t out[32];
    EXPECT_EQ(Bytes(out, k::finish(w, out)), ref.bytes(false)) << count;
  }
}

class JpegEncoder : public pixtest::LibraryTest {};

Tjpeg& tjpeg(uint32_t h) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

// Fills the image's strip from line y0 with byte b of pixel (x, y) of a w x h
// image: noise on the left half, smooth on the right, its last column and
// line repeated beyond it.
void fill(uint32_t img, uint32_t y0, uint32_t w, uint32_t h) {
  const uint32_t bpp = (PIX_get_depth(img) + 1) / 8;
  PIX_image_free_data(img);
  ASSERT_EQ(PIX_image_malloc_a_strip(img), 0u);
  auto* data = static_cast<uint8_t*>(PIX_image_get_ptr(img, PIX_PTR_DATA));
  for (uint32_t line = 0; line < PIX_get_lines_this_strip(img); ++line)
    for (uint32_t i = 0, y = std::min(y0 + line, h - 1); i < PIX_get_width(img) * bpp; ++i) {
      const uint32_t x = std::min(i / bpp, w - 1), b = i % bpp;
      data[line * PIX_get_bytes_per_line(img) + i] = static_cast<uint8_t>(x < w / 2 ? (x * 2654435761u ^ y * 40503u ^ b * 977u) >> 9 : x * 3 + y * 5 + b * 40);
    }
}

// The image in strips of `lines`, compressed into `dest`: every strip's bytes.
Bytes compress(uint32_t src, uint32_t dest, uint32_t lines) {
  Bytes all;
  for (uint32_t y0 = 0; y0 < PIX_get_height(src); y0 += lines) {
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, lines);
    fill(src, y0, PIX_get_width(src), PIX_get_height(src));
    if (PIX_JPEG_compress(src, dest, 3) != 0 || tjpeg(dest).data == nullptr) return ADD_FAILURE() << "failed", Bytes{};
    all.insert(all.end(), tjpeg(dest).data, tjpeg(dest).data + tjpeg(dest).length);
  }
  EXPECT_EQ(Bytes(tjpeg(dest).data + tjpeg(dest).length, tjpeg(dest).data + tjpeg(dest).length + 2), (Bytes{0xFF, 0xD9}));
  return all;
}

// The bytes an image codes to: its padded raster (RGB padded, then converted
// by the library's converter) through the references.
Bytes expected(uint16_t format, uint32_t width, uint32_t height, uint16_t q_scale) {
  const bool grey = format == PIX_Y8;
  const uint32_t pw = grey ? (width + 7) / 8 * 8 : (width + 15) / 16 * 16, ph = (height + 7) / 8 * 8;
  const uint32_t padded = pixtest::make_image(format, pw, ph, ph), raster = PIX_image_create();
  fill(padded, 0, width, height);
  EXPECT_EQ(grey || format == PIX_YUV422 ? PIX_image_copy(padded, raster) : PIX_convert_to_YUV422(padded, raster, 3), 0u);
  const auto* data = static_cast<uint8_t*>(PIX_image_get_ptr(raster, PIX_PTR_DATA));
  const auto at = [&](uint32_t x, uint32_t y) {  // the chroma of a YUV pixel past the last is that of the last pair
    return y * PIX_get_bytes_per_line(raster) + (format == PIX_YUV422 && x >= 2 * width && x % 2 ? 2 * width - 4 + x % 4 : x);
  };
  Tjpeg t{};
  t.Q_scale = q_scale;
  pix::jpeg::make_quant_tables(t);
  jpegref::Writer w;
  const auto ref_codes = codes();
  int predictor[3] = {};
  for (uint32_t my = 0; my < ph; my += 8) {
    for (uint32_t mx = 0; mx < pw; mx += grey ? 8 : 16) {
      for (int c = 0; c < (grey ? 1 : 4); ++c) {  // grey, or Y1, Y2, U, V
        Block b, zz;
        for (uint32_t r = 0; r < 64; ++r)
          b[r] = static_cast<int16_t>(data[at(grey ? mx + r % 8 : c < 2 ? 2 * (mx + 8 * c + r % 8) : 2 * mx + 4 * (r % 8) + 2 * c - 3, my + r / 8)] - 128);
        b = reference_fdct(b);
        const int component = c < 2 ? 0 : c - 1;
        for (int i = 0; i < 64; ++i) zz[i] = static_cast<int16_t>(quantised(b[kZigZag[i]], t.Q_tables[component != 0][i]));
        zz[0] = static_cast<int16_t>(zz[0] - std::exchange(predictor[component], zz[0]));
        w.block(zz, ref_codes[component != 0], ref_codes[2 + (component != 0)]);
      }
    }
  }
  return w.bytes(false);
}

TEST_F(JpegEncoder, ImagesCodeToTheReferenceBytesInStripsOfAnyHeight) {
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
    EXPECT_EQ(jpegref::difference(whole, expected(format, width, height, q)), "");
    for (uint32_t lines : {1u, 7u, 8u, 30u}) EXPECT_EQ(compress(src, dest, lines), whole) << lines;
    // Described unpadded; the source's last strip cut in place.
    EXPECT_EQ((std::vector<uint32_t>{PIX_get_width(dest), PIX_get_height(dest), PIX_image_get_parameter(dest, PIX_IMAGE_FORMAT),
                                     PIX_get_depth(dest), PIX_get_lines_this_strip(dest), PIX_get_lines_this_strip(src)}),
              (std::vector<uint32_t>{width, height, format == PIX_Y8 ? 2u : 12u, format == PIX_Y8 ? 8u : 16u, 30,
                                     height % 30 == 0 ? 30 : height % 30}));
    EXPECT_STREQ(PIX_image_get_outfilename(dest), "out.jpg");
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
  // Destroying every image ends a run under way: the next image starts afresh.
  PIX_image_set_parameter(src, PIX_IMAGE_HEIGHT, 16);
  PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, 8);
  EXPECT_EQ(PIX_JPEG_compress(src, dest, 3), 0u);
  PIX_image_destroy(PIX_ALL_IMAGES);
  EXPECT_EQ(compress(pixtest::make_image(PIX_Y8, 8, 8), PIX_JPEG_image_create(), 8), zero);
}

}  // namespace
