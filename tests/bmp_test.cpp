// BMP files and DIB conversion: file layout, round trips, hostile files and
// the bitmap made from each source format.
#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>

#include "convert/conversion_tables.h"
#include "core/image.h"
#include "core/memory.h"
#include "file_test_support.h"

namespace {

using namespace pixtest;
using pix::find_image;
using Bgr = std::array<int, 3>;

uint32_t le(const Bytes& b, std::size_t at, int n = 4) {
  uint32_t v = 0;
  for (int i = n - 1; i >= 0; --i) v = (v << 8) | b[at + i];
  return v;
}
// A 54-byte header; the data offset says 999 to catch a reader that used it.
Bytes header(uint32_t width, uint32_t height, uint16_t bpp, uint32_t compression = 0) {
  Bytes h(54, 0);
  const uint32_t fields[][2] = {{10, 999}, {14, 40}, {18, width}, {22, height}, {26, 1}, {28, bpp}, {30, compression}};
  for (const auto& [at, v] : fields) std::memcpy(&h[at], &v, 4);  // little-endian hosts
  h[0] = 'B', h[1] = 'M';
  return h;
}
uint32_t read_bmp(const std::string& path, uint32_t lines, const Bytes& bytes) {
  save(path, bytes);
  return reader(path, lines);
}

class Bmp : public LibraryTest {
 protected:
  void TearDown() override {
    // An open read is finished; an idle reader fails to open a missing file and stays idle.
    PIX_read_BMP_file(reader("bmp_test_missing.bmp", 1), PIX_STRIP_FINISH);
    LibraryTest::TearDown();
  }
};

TEST_F(Bmp, WrittenFilesHaveTheFixedLayoutAndStripsAreLeftReversed) {
  // 13 pixels wide: 39 bytes and 1 of padding a row; 4 rows in strips of 2.
  const uint32_t h = filled(PIX_RGB24, 13, 4);
  const Bytes before = rows(h);
  ASSERT_EQ(write_strips(h, PIX_FILE_BMP, "bmp_test_layout.bmp", 2), 0u);
  const Bytes after = rows(h);  // the writer does not swap each strip's rows back
  for (uint32_t y = 0; y < 4; ++y) EXPECT_TRUE(std::equal(&before[y * 39], &before[y * 39 + 39], &after[(y ^ 1) * 39]));
  const Bytes f = load("bmp_test_layout.bmp");
  ASSERT_EQ(f.size(), 54u + 4 * 40);
  EXPECT_EQ(le(f, 0, 2), 0x4D42u);
  const uint32_t fields[][3] = {{2, 4, 214}, {6, 4, 0}, {10, 4, 54}, {14, 4, 40}, {18, 4, 13}, {22, 4, 4}, {26, 2, 1},
                                {28, 2, 24}, {30, 4, 0}, {34, 4, 160}, {38, 4, 0}, {42, 4, 0}, {46, 4, 0}, {50, 4, 0}};
  for (const auto& [at, n, v] : fields) EXPECT_EQ(le(f, at, static_cast<int>(n)), v) << at;
  for (uint32_t y = 0; y < 4; ++y) {
    const std::size_t at = 54 + (3 - y) * 40;  // bottom row first, blue first
    for (uint32_t i = 0; i < 39; ++i) EXPECT_EQ(f[at + i], before[y * 39 + i - i % 3 + 2 - i % 3]) << y << "," << i;
    EXPECT_EQ(f[at + 39], 0);
  }
}

TEST_F(Bmp, RoundTripsInOtherStripSizes) {
  Bytes grey;  // Y8 is written with a grey map
  for (int i = 0; i < 256; ++i) grey.insert(grey.end(), 3, static_cast<uint8_t>(i));
  for (const uint16_t format : {PIX_Y8, PIX_PALETTED, PIX_RGB24}) {
    SCOPED_TRACE(format);
    const uint32_t out = filled(format, 31, 7, 0, format);
    const Bytes pixels = rows(out);
    ASSERT_EQ(write_strips(out, PIX_FILE_BMP, "bmp_test_round.bmp", 3), 0u);  // 3, 3, 1
    const uint32_t in = reader("bmp_test_round.bmp", 4);
    EXPECT_EQ(read_strips(in, PIX_read_BMP_file, 2), pixels);  // 4, 3
    const tPIX_Image& img = *find_image(in);
    EXPECT_EQ(std::tie(img.format, img.width, img.height),
              std::make_tuple(format == PIX_RGB24 ? PIX_RGB24 : PIX_PALETTED, 31u, 7u));
    if (format != PIX_RGB24) { EXPECT_EQ(palette(in), format == PIX_Y8 ? grey : palette(out)); }
  }
}

TEST_F(Bmp, PaletteAndRowsComeFromFixedOffsetsAndShortFilesAreReadOn) {
  // 8-bit, 4x2, two palette entries and the rows right after them: the reader
  // takes 256 entries from 54 (pixel bytes included) and rows from 1078.
  Bytes f = header(4, 2, 8);
  f.insert(f.end(), {1, 2, 3, 0, 4, 5, 6, 0, 10, 11, 12, 13, 20, 21, 22, 23});
  const uint32_t in = read_bmp("bmp_test_short.bmp", 2, f);
  ASSERT_EQ(PIX_read_BMP_file(in, PIX_STRIP_NEXT), 0u);
  const tPIX_Image& img = *find_image(in);
  EXPECT_EQ(img.format, PIX_PALETTED);
  EXPECT_EQ(Bgr({img.cmap[2].red, img.cmap[2].green, img.cmap[2].blue}), Bgr({12, 11, 10}));
  EXPECT_EQ(img.cmap[4].red, 0xFF);
  EXPECT_EQ(rows(in), Bytes(8, 0xFF));

  // 24-bit, 2x2, cut inside the top row; compression 0x10000 has a low half of 0.
  Bytes g = header(2, 2, 24, 0x10000);
  g.insert(g.end(), {1, 2, 3, 4, 5, 6, 0, 0, 7, 8});
  const uint32_t cut = read_bmp("bmp_test_cut.bmp", 2, g);
  ASSERT_EQ(PIX_read_BMP_file(cut, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(rows(cut), Bytes({0xFF, 8, 7, 0xFF, 0xFF, 0xFF, 3, 2, 1, 6, 5, 4}));
}

TEST_F(Bmp, RefusedHeadersLeaveTheFileOpenUntilFinished) {
  const std::tuple<uint16_t, uint32_t, const char*> cases[] = {
      {16, 0, "Unsupported image depth"}, {32, 0, "Unsupported image depth"}, {24, 1, "Compressed images not supported"},
      {8, 2, "Compressed images not supported"}, {24, 3, "Unrecognized compression type"}};
  for (const auto& [bpp, compression, message] : cases) {
    SCOPED_TRACE(message);
    Bytes f = header(4, 4, bpp, compression);
    f.resize(2000, 0x11);
    const uint32_t in = read_bmp("bmp_test_refused.bmp", 4, f);
    expect_report(PIX_read_BMP_file(in, PIX_STRIP_NEXT), "PIX_read_BMP_file", 0x10140000u, message);
    EXPECT_EQ(PIX_read_BMP_file(in, PIX_STRIP_FINISH), 0u);  // closes
    expect_report(PIX_read_BMP_file(in, PIX_STRIP_NEXT), "PIX_read_BMP_file", 0x10140000u, message);
    // Still open: the header is skipped and the strip read.
    const std::size_t before = reports().size();
    const uint32_t r = PIX_read_BMP_file(in, PIX_STRIP_NEXT);
    for (std::size_t i = before; i < reports().size(); ++i) EXPECT_NE(reports()[i].message, message);
    if (bpp == 8 || bpp == 24) {
      EXPECT_EQ(r, 0u);  // the format was set before the compression was refused
      EXPECT_EQ(find_image(in)->data[0], 0x11);
    } else {
      expect_report(r, "PIX_read_BMP_file", 0x1003000Eu);  // no format: the strip's check fails and closes
    }
  }
}

TEST_F(Bmp, HostileSizesFailCleanlyOrReadOn) {
  // Negative height: a huge unsigned height puts the strip far past the end.
  Bytes f = header(4, static_cast<uint32_t>(-3), 24);
  f.resize(200, 0x22);
  const uint32_t in = read_bmp("bmp_test_negative.bmp", 3, f);
  if (const uint32_t r = PIX_read_BMP_file(in, PIX_STRIP_NEXT); r == 0) {
    EXPECT_EQ(rows(in), Bytes(36, 0xFF));
  } else {
    expect_report(r, "PIX_read_BMP_file_1_strip", 0x10680000u, "fseek failed");
  }
  EXPECT_EQ(PIX_read_BMP_file(in, PIX_STRIP_FINISH), 0u);

  const uint32_t wide = read_bmp("bmp_test_wide.bmp", 1, header(0x7FFFFFFF, 2, 24));  // a line beyond 32 bits
  expect_report(PIX_read_BMP_file(wide, PIX_STRIP_NEXT), "PIX_read_BMP_file", 0x10030000u, "PIX_image_check failed");

  const uint32_t zero = read_bmp("bmp_test_zero.bmp", 0, header(0, 0, 8));
  EXPECT_EQ(PIX_read_BMP_file(zero, PIX_STRIP_NEXT), 0u);  // the header only
  PIX_image_set_parameter(zero, PIX_LINES_THIS_STRIP, 8);
  EXPECT_EQ(PIX_read_BMP_file(zero, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(find_image(zero)->lines_this_strip, 0u);

  const uint32_t stub = read_bmp("bmp_test_stub.bmp", 1, Bytes{'B', 'M', 0, 0});  // every field reads 0xFF...
  expect_report(PIX_read_BMP_file(stub, PIX_STRIP_NEXT), "PIX_read_BMP_file", 0x10140000u, "Unsupported image depth");
  EXPECT_EQ(PIX_read_BMP_file(stub, PIX_STRIP_FINISH), 0u);
  expect_report(PIX_read_BMP_file(4000, PIX_STRIP_NEXT), "PIX_read_BMP_file", 0x00010000u);
  expect_report(PIX_write_BMP_file(4000, PIX_STRIP_NEXT), "PIX_write_BMP_file", 0x00010000u);
}

TEST_F(Bmp, WithoutALineBufferTheFileStillGetsItsBlankPixelArea) {
  const uint32_t rgb = filled(PIX_RGB24, 3, 2);
  PIX_image_set_outfilename(rgb, "bmp_test_nomem.bmp");
  pix::memory::fail_after(0);
  expect_report(PIX_write_BMP_file(rgb, PIX_STRIP_NEXT), "PIX_write_BMP_file_1_strip", 0x10500000u | 10,
                "Attempting to malloc:");
  EXPECT_EQ(PIX_write_BMP_file(rgb, PIX_STRIP_FINISH), 0u);
  const Bytes f = load("bmp_test_nomem.bmp");
  ASSERT_EQ(f.size(), 54u + 2 * 12);
  EXPECT_EQ(Bytes(f.begin() + 54, f.end()), Bytes(24, 0));
}

// ---------------------------------------------------------------------------

class Dib : public Bmp {
 protected:
  uint32_t convert(uint32_t in, uint32_t flags = 0) {
    const uint32_t out = PIX_image_create();
    EXPECT_EQ(PIX_convert_to_DIB_w31(in, out, flags, PIX_STRIP_NEXT), 0u);
    const tPIX_Image& d = *find_image(out);
    EXPECT_EQ(std::tie(d.format, d.line_align), std::make_tuple(PIX_BGR24, 4u));
    EXPECT_EQ(d.flags & (PIX_FLAG_DIB | flags), PIX_FLAG_DIB | flags);
    const Bytes h(d.data, d.data + 40);
    EXPECT_EQ(std::vector<uint32_t>({le(h, 0), le(h, 4), le(h, 8), le(h, 12, 2), le(h, 14, 2)}),
              std::vector<uint32_t>({40, d.width, d.height, 1, 24}));
    EXPECT_EQ(Bytes(h.begin() + 16, h.end()), Bytes(24, 0));
    return out;
  }
  Bgr bgr(uint32_t out, uint32_t x, uint32_t y) {  // frame pixel (x, y) of the bottom-up rows
    const tPIX_Image& d = *find_image(out);
    const uint8_t* p = d.data + 40 + (d.height - 1 - y) * d.bytes_per_line + 3 * x;
    return {p[0], p[1], p[2]};
  }
};

// Blue, green, red of one source pixel, from the format's definition.
Bgr expected(uint16_t format, const uint8_t* p, const tPIX_Colour* map) {
  const int w = p[0] | (p[1] << 8);
  switch (format) {
    case PIX_Y8: return {p[0], p[0], p[0]};
    case PIX_PALETTED:
    case PIX_RGB8: return {map[p[0]].blue, map[p[0]].green, map[p[0]].red};
    case PIX_RGB15: return {(w << 3) & 255, (w >> 2) & 255, (w >> 7) & 255};  // neighbours' bits kept
    case PIX_RGB16: return {(w << 3) & 255, (w >> 3) & 255, w >> 8};
    case PIX_RGB24:
    case PIX_RGBX32: return {p[2], p[1], p[0]};
    case PIX_XBGR32: return {p[1], p[2], p[3]};
    case PIX_Y16: return {(w >> 3) & 255, (w >> 3) & 255, (w >> 3) & 255};  // data width 11
    default: return {p[0], p[1], p[2]};                                       // BGR24, BGRX32
  }
}

TEST_F(Dib, EachSourceFormatGivesItsBlueGreenRed) {
  for (const uint16_t format : {PIX_Y8, PIX_PALETTED, PIX_RGB8, PIX_RGB15, PIX_RGB16, PIX_RGB24, PIX_BGR24, PIX_RGBX32,
                                PIX_BGRX32, PIX_XBGR32, PIX_Y16}) {
    SCOPED_TRACE(format);
    const uint32_t in = make_image(format, 5, 3, 3);
    PIX_image_set_parameter(in, PIX_DATA_WIDTH, format == PIX_Y16 ? 11 : 8);
    PIX_image_set_parameter(in, PIX_LINE_ALIGN, 8);  // padding to step over
    ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
    tPIX_Image& img = *find_image(in);
    for (uint32_t i = 0; i < img.bytes_per_line * 3; ++i) img.data[i] = static_cast<uint8_t>(i * 53 + 7);
    for (int i = 0; i < 256; ++i) img.cmap[i] = {uint8_t(i), uint8_t(i * 5), uint8_t(~i), 0};
    const uint32_t out = convert(in);
    for (uint32_t y = 0; y < 3; ++y) {
      for (uint32_t x = 0; x < 5; ++x) {
        const uint8_t* p = img.data + y * img.bytes_per_line + x * pix::pixel_bytes(img.depth);
        ASSERT_EQ(bgr(out, x, y), expected(format, p, img.cmap)) << x << "," << y;
      }
    }
  }
}

TEST_F(Dib, YuvByFormulaOrByTable) {
  const uint32_t w = 7;  // odd: the last pixel has no pair
  const uint32_t in = make_image(PIX_YUV422, w, 2, 2);
  ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
  tPIX_Image& img = *find_image(in);
  const uint8_t samples[] = {0, 255, 16, 128, 235, 0, 90, 240, 200, 30, 60, 110, 128, 200};
  for (uint32_t i = 0; i < img.bytes_per_line * 2; ++i) img.data[i] = samples[(i * 5) % sizeof samples];
  const auto clamp = [](int v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
  const uint32_t plain = convert(in), table = convert(in, PIX_FLAG_USE_LUT);
  const uint8_t* lut = pix::convert::conversion_tables().of_type(PIX_LUT_YUV422_TO_RGB16).bytes.get();
  ASSERT_NE(lut, nullptr);
  for (uint32_t y = 0; y < 2; ++y) {
    for (uint32_t x = 0; x + 1 < w; ++x) {
      const uint8_t* pair = img.data + y * img.bytes_per_line + (x / 2) * 4;
      const int Y = pair[(x & 1) * 2], U = pair[1], V = pair[3], u = U - 128, v = V - 128;
      EXPECT_EQ(bgr(plain, x, y), Bgr({clamp((1024 * Y + 1815 * u) >> 10), clamp((1024 * Y - 731 * v - 352 * u) >> 10),
                                       clamp((1024 * Y + 1436 * v) >> 10)}));
      const uint32_t index = ((Y & 0xFE) << 11) | ((U & 0xFC) << 4) | (V >> 2);
      const int e = lut[2 * index] | (lut[2 * index + 1] << 8);
      EXPECT_EQ(bgr(table, x, y), Bgr({(e << 3) & 255, (e >> 3) & 255, e >> 8}));
    }
  }
}

TEST_F(Dib, FieldsOneAfterTheOtherAreInterleaved) {
  for (const uint16_t order : {4, 5}) {
    SCOPED_TRACE(order);
    const uint32_t in = filled(PIX_Y8, 3, 5);  // odd: the last frame row has no partner
    PIX_image_set_parameter(in, PIX_FIELD_ORDER, order);
    tPIX_Image& img = *find_image(in);
    for (uint32_t y = 0; y < 5; ++y) std::memset(img.data + y * img.bytes_per_line, static_cast<int>(10 + y), 3);
    // A locked destination buffer shows which rows were written.
    const uint32_t out = PIX_image_create();
    Bytes buffer(40 + 12 * 6, 0xEE);
    PIX_image_set_ptr(out, PIX_PTR_DATA, buffer.data());
    ASSERT_EQ(PIX_convert_to_DIB_w31(in, out, PIX_FLAG_LOCKED, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(find_image(out)->field_order, 0u);
    // Source rows 0 and 1 are the first field, 2 and 3 the second.
    const std::array<int, 4> rows = order == 4 ? std::array{10, 12, 11, 13} : std::array{12, 10, 13, 11};
    for (uint32_t y = 0; y < 4; ++y) EXPECT_EQ(bgr(out, 0, y)[0], rows[y]) << y;
    EXPECT_EQ(bgr(out, 2, 4), Bgr({0xEE, 0xEE, 0xEE}));
    PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
  }
}

TEST_F(Dib, DescriptionsCopiesAndRefusals) {
  // No strip: a flagged description, without data and without a format change.
  const uint32_t out = PIX_image_create();
  EXPECT_EQ(PIX_convert_to_DIB_w31(make_image(PIX_RGB16, 4, 4, 0), out, PIX_FLAG_USE_LUT, 3), 0u);
  const tPIX_Image& d = *find_image(out);
  EXPECT_EQ(std::make_tuple(d.format, d.flags, d.data), std::make_tuple(PIX_RGB16, PIX_FLAG_DIB | PIX_FLAG_USE_LUT, nullptr));

  const uint32_t dib = convert(filled(PIX_RGB24, 6, 3)), copy = PIX_image_create();
  EXPECT_EQ(PIX_convert_to_DIB_w31(dib, copy, 0, 3), 0u);  // already a bitmap: copied
  EXPECT_EQ(0, std::memcmp(find_image(copy)->data, find_image(dib)->data, 3 * 20));

  expect_report(PIX_convert_to_DIB_w31(filled(PIX_RGB24, 4, 4, 2), out, 0, 3), "PIX_convert_to_DIB_w31",
                0x10140000u, "Can only process full image - not strips");
  expect_report(PIX_convert_to_DIB_w31(filled(PIX_CMYK32, 4, 2), out, 0, 3), "PIX_convert_to_DIB_w31", 0x1014000Du,
                "Unsupported image format");
  expect_report(PIX_convert_to_DIB_w31(dib, 4000, 0, 3), "PIX_convert_to_DIB_w31", 0x00010000u);
  const uint32_t empty = make_image(PIX_Y8, 4, 2, 2);
  expect_report(PIX_convert_to_DIB_w31(empty, out, 0, 3), "PIX_convert_to_DIB_w31_1_strip", 0x10030000u,
                "No image data");
  EXPECT_EQ(PIX_convert_to_DIB_w31(empty, out, 0, PIX_STRIP_FINISH), 0u);
}

}  // namespace
