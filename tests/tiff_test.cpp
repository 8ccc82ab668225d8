// TIFF files: round trips through the writer and the reader, the written
// header byte for byte, files of both byte orders built here field by field,
// and hostile files.
#include <algorithm>
#include <chrono>
#include <tuple>

#include "core/image.h"
#include "file_test_support.h"

namespace {

using namespace pixtest;
using pix::find_image;

// A TIFF file put together field by field in either byte order.  A field
// marked `blob` holds the offset of blob number `value`; blobs follow the
// directory.
struct Field {
  uint16_t tag, type;
  uint32_t count, value;
  bool blob = false;
};
struct TiffFile {
  char order = 'M';
  std::vector<Field> fields;
  std::vector<Bytes> blobs;

  void put(Bytes& out, uint32_t v, int size) const {
    for (int i = 0; i < size; ++i) out.push_back(static_cast<uint8_t>(v >> (order == 'M' ? 8 * (size - 1 - i) : 8 * i)));
  }
  Bytes values(std::initializer_list<uint32_t> list, int size) const {
    Bytes b;
    for (uint32_t v : list) put(b, v, size);
    return b;
  }
  uint32_t blob_offset(std::size_t n) const {
    uint32_t at = 8 + 2 + 12 * static_cast<uint32_t>(fields.size()) + 4;
    for (std::size_t i = 0; i < n; ++i) at += static_cast<uint32_t>(blobs[i].size());
    return at;
  }
  Bytes bytes() const {
    Bytes out{static_cast<uint8_t>(order), static_cast<uint8_t>(order)};
    put(out, 42, 2);
    put(out, 8, 4);
    put(out, static_cast<uint32_t>(fields.size()), 2);
    for (const Field& f : fields) {
      put(out, f.tag, 2);
      put(out, f.type, 2);
      put(out, f.count, 4);
      const uint32_t v = f.blob ? blob_offset(f.value) : f.value;
      const bool one_short = f.type == 3 && f.count == 1;  // a single SHORT stands in the field
      put(out, one_short && order == 'M' ? v << 16 : v, 4);
    }
    put(out, 0, 4);
    for (const Bytes& b : blobs) out.insert(out.end(), b.begin(), b.end());
    return out;
  }
  Field* find(uint16_t tag) {
    for (Field& f : fields) {
      if (f.tag == tag) return &f;
    }
    return nullptr;
  }
};

// An uncompressed one-sample file whose pixels are blob 0, one strip.
TiffFile grey_file(char order, uint32_t w, uint32_t h, uint32_t bits, const Bytes& pixels, uint32_t photometric = 1) {
  return {order,
          {{256, 4, 1, w}, {257, 3, 1, h}, {258, 3, 1, bits}, {259, 3, 1, 1}, {262, 3, 1, photometric},
           {273, 4, 1, 0, true}, {277, 3, 1, 1}, {278, 4, 1, h}},
          {pixels}};
}
// Strips of `rows` rows, the offsets (blob 0) pointing at blobs 1, 2, ... in `order`.
void split(TiffFile& t, uint32_t rows, const std::vector<Bytes>& strips, const std::vector<int>& order) {
  t.fields[5] = {273, 4, static_cast<uint32_t>(strips.size()), 0, true};
  t.fields[7].value = rows;
  t.blobs = {Bytes(4 * strips.size())};
  for (int s : order) t.blobs.push_back(strips[s]);
  Bytes offsets;
  for (std::size_t s = 0; s < strips.size(); ++s) {
    const auto at = std::find(order.begin(), order.end(), static_cast<int>(s)) - order.begin();
    t.put(offsets, t.blob_offset(static_cast<std::size_t>(at) + 1), 4);
  }
  t.blobs[0] = offsets;
}

class Tiff : public LibraryTest {
 protected:
  // Reads the file's header, then the whole image as one strip.
  uint32_t read(const std::string& file, uint32_t& h) {
    h = reader(file, 0);
    if (uint32_t r = PIX_read_TIFF_file(h, PIX_STRIP_NEXT); PIX_IS_ERROR(r)) return r;
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, find_image(h)->height);
    return PIX_read_TIFF_file(h, PIX_STRIP_NEXT);
  }
  uint32_t read(const TiffFile& t, uint32_t& h) {
    save("tiff_test_built.tif", t.bytes());
    return read("tiff_test_built.tif", h);
  }
  uint32_t write(uint32_t h, const std::string& file) {
    PIX_image_set_outfilename(h, file.c_str());
    return PIX_write_TIFF_file(h, PIX_STRIP_NEXT);
  }
};

TEST_F(Tiff, EveryReadableFormatReadsBackWhatWasWrittenWholeOrInStrips) {
  for (const auto& [format, width] : {std::pair{PIX_Y8, 5u}, {PIX_RGB24, 7u}, {PIX_PALETTED, 9u}, {PIX_Y16, 6u},
                                      {PIX_BILEVEL, 13u}}) {
    SCOPED_TRACE(format);
    const uint32_t out = filled(format, width, 4, 0, format);
    ASSERT_EQ(write(out, "tiff_test_round.tif"), 0u);
    // Handed over three lines at a time (3, then 1), the file is the same.
    ASSERT_EQ(write_strips(out, PIX_FILE_TIFF, "tiff_test_parts.tif", 3), 0u);
    EXPECT_EQ(load("tiff_test_parts.tif"), load("tiff_test_round.tif"));
    uint32_t result;
    const uint32_t in = read_whole("tiff_test_round.tif", result);
    ASSERT_EQ(result, 0u);
    const tPIX_Image &got = *find_image(in), &sent = *find_image(out);
    EXPECT_EQ(std::tie(got.format, got.width, got.height, got.depth),
              std::tie(sent.format, sent.width, sent.height, sent.depth));
    EXPECT_EQ(rows(in), rows(out));
    if (format == PIX_Y16) { EXPECT_EQ(got.data_width, 12); }
    if (format == PIX_PALETTED) {
      EXPECT_EQ(got.cmap_size, 256);
      EXPECT_EQ(palette(in), palette(out));
    }
  }
}

TEST_F(Tiff, TheGreyHeaderByteForByte) {
  const uint32_t h = make_image(PIX_Y8, 3, 2, 2);
  ASSERT_EQ(PIX_image_malloc_a_strip(h), 0u);
  set_rows(h, {1, 2, 3, 4, 5, 6});
  ASSERT_EQ(write(h, "tiff_test_header.tif"), 0u);
  // NewSubfileType, width, length, bits, compression, photometric, strip offset, samples,
  // rows a strip, strip bytes, resolutions (300/1 twice, at 170 and 178), resolution unit;
  // then the lines, padding left out.
  const TiffFile t{'M',
                   {{254, 4, 1, 0}, {256, 3, 1, 3}, {257, 3, 1, 2}, {258, 3, 1, 8}, {259, 3, 1, 1}, {262, 3, 1, 1},
                    {273, 4, 1, 186}, {277, 3, 1, 1}, {278, 4, 1, 2}, {279, 4, 1, 6}, {282, 5, 1, 170},
                    {283, 5, 1, 178}, {296, 3, 1, 1}},
                   {{0, 0, 1, 44, 0, 0, 0, 1, 0, 0, 1, 44, 0, 0, 0, 1, 1, 2, 3, 4, 5, 6}}};
  EXPECT_EQ(load("tiff_test_header.tif"), t.bytes());
}

TEST_F(Tiff, PaletteSixteenBitAndCmykHeaders) {
  const uint32_t pal = filled(PIX_PALETTED, 2, 1);
  find_image(pal)->cmap[0] = {0x12, 0x34, 0x56, 0};
  ASSERT_EQ(write(pal, "tiff_test_pal.tif"), 0u);
  Bytes f = load("tiff_test_pal.tif");
  const auto at = [&f](std::size_t from, std::size_t n) { return Bytes(f.begin() + from, f.begin() + from + n); };
  ASSERT_EQ(f.size(), 1734u + 2);
  EXPECT_EQ(f[9], 14);
  // ColorMap, the last entry: 768 SHORTs at 182; entry 0 of each channel as v * 257.
  EXPECT_EQ(at(166, 12), (Bytes{1, 64, 0, 3, 0, 0, 3, 0, 0, 0, 0, 182}));
  EXPECT_EQ(at(182, 2) + at(182 + 512, 2) + at(182 + 1024, 2), (Bytes{0x12, 0x12, 0x34, 0x34, 0x56, 0x56}));

  // Y16: two bytes a sample are written big-endian, but StripByteCounts counts one.
  const uint32_t y16 = filled(PIX_Y16, 3, 2);
  set_rows(y16, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  ASSERT_EQ(write(y16, "tiff_test_y16.tif"), 0u);
  f = load("tiff_test_y16.tif");
  EXPECT_EQ(at(46, 12), (Bytes{1, 2, 0, 3, 0, 0, 0, 1, 0, 12, 0, 0}));  // data width
  EXPECT_EQ(at(118, 12), (Bytes{1, 23, 0, 4, 0, 0, 0, 1, 0, 0, 0, 6}));
  EXPECT_EQ(at(186, f.size() - 186), (Bytes{2, 1, 4, 3, 6, 5, 8, 7, 10, 9, 12, 11}));

  // CMYK is written (separated, four BitsPerSample) but not read back.
  const uint32_t cmyk = filled(PIX_CMYK32, 2, 3);
  ASSERT_EQ(write(cmyk, "tiff_test_cmyk.tif"), 0u);
  f = load("tiff_test_cmyk.tif");
  ASSERT_EQ(f.size(), 206u + 24);
  EXPECT_EQ(at(46, 12) + at(182, 8), (Bytes{1, 2, 0, 3, 0, 0, 0, 4, 0, 0, 0, 182, 0, 8, 0, 8, 0, 8, 0, 8}));  // bits
  EXPECT_EQ(at(206, 24), rows(cmyk));
  EXPECT_EQ(f[10 + 5 * 12 + 9], 5);  // photometric: separated
  uint32_t in;
  expect_report(read("tiff_test_cmyk.tif", in), "PIX_read_TIFF_file", 0x10140000, "unsupported image");
}

TEST_F(Tiff, StripsStoredInAnyOrderAreReadInAnyStripSize) {
  // Strips of three rows, stored last strip first, read four lines at a time.
  const Bytes pixels = pattern(60, 3);
  TiffFile t = grey_file('I', 6, 10, 8, {});
  std::vector<Bytes> strips;
  for (int s = 0; s < 4; ++s) strips.emplace_back(pixels.begin() + s * 18, pixels.begin() + std::min(60, s * 18 + 18));
  split(t, 3, strips, {3, 2, 1, 0});
  save("tiff_test_strips.tif", t.bytes());
  EXPECT_EQ(read_strips(reader("tiff_test_strips.tif", 4), PIX_read_TIFF_file, 3), pixels);
}

TEST_F(Tiff, LittleEndianFilesAndTheFieldsTakenInMotorolaOrder) {
  // Grey: WhiteIsZero reads exactly like BlackIsZero, in either order.
  const Bytes grey = pattern(12, 5);
  uint32_t h;
  for (char order : {'I', 'M'}) {
    for (uint32_t photometric : {0u, 1u}) {
      ASSERT_EQ(read(grey_file(order, 4, 3, 8, grey, photometric), h), 0u);
      EXPECT_EQ(rows(h), grey);
    }
  }
  // SHORT strip offsets take a whole 4-byte field each: in an "II" file the
  // second offset is read from the third SHORT.
  TiffFile s = grey_file('I', 2, 2, 8, {});
  s.fields[5] = {273, 3, 2, 0, true};
  s.fields[7].value = 1;
  s.blobs = {Bytes(8), {10, 11}, {20, 21}};
  s.blobs[0] = s.values({s.blob_offset(1), 0, s.blob_offset(2), 0}, 2);
  ASSERT_EQ(read(s, h), 0u);
  EXPECT_EQ(rows(h), (Bytes{10, 11, 20, 21}));

  // 16-bit samples are taken in Motorola order whatever the file says.
  ASSERT_EQ(read(grey_file('I', 2, 1, 12, {0x34, 0x12, 0x78, 0x56}), h), 0u);
  EXPECT_EQ(find_image(h)->data_width, 12);
  EXPECT_EQ(rows(h), (Bytes{0x12, 0x34, 0x56, 0x78}));

  // Colour maps too: the second byte of each pair is the entry.
  for (char order : {'I', 'M'}) {
    TiffFile p = grey_file(order, 2, 1, 8, {0, 1}, 3);
    p.fields.push_back({320, 3, 6, 1, true});
    p.blobs.push_back(p.values({0x1122u, 0x3344u, 0x5566u, 0x7788u, 0x99AAu, 0xBBCCu}, 2));
    ASSERT_EQ(read(p, h), 0u);
    EXPECT_EQ(palette(h, 2), (order == 'M' ? Bytes{0x22, 0x66, 0xAA, 0x44, 0x88, 0xCC} : Bytes{0x11, 0x55, 0x99, 0x33, 0x77, 0xBB}));
    EXPECT_EQ(find_image(h)->cmap_size, 256);
  }
}

TEST_F(Tiff, FourBitPalettesOfOddWidth) {
  // Five pixels a line in three bytes: the sixth nibble lands in the line's
  // padding, or is dropped when there is none.
  TiffFile t = grey_file('M', 5, 2, 4, {0x12, 0x34, 0x5F, 0x67, 0x89, 0xAE}, 3);
  t.fields.push_back({320, 3, 48, 1, true});
  t.blobs.push_back(Bytes(96, 0));
  save("tiff_test_nibbles.tif", t.bytes());
  for (uint32_t align : {2u, 1u}) {
    const uint32_t h = reader("tiff_test_nibbles.tif", 2);
    PIX_image_set_parameter(h, PIX_LINE_ALIGN, align);
    ASSERT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(rows(h), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    if (align == 2) { EXPECT_EQ((Bytes{find_image(h)->data[5], find_image(h)->data[11]}), (Bytes{0x0F, 0x0E})); }
  }
}

TEST_F(Tiff, HeaderFaultsAreRefusedAndLeaveTheReaderIdle) {
  const std::tuple<void (*)(TiffFile&), uint32_t, const char*> cases[] = {
      {[](TiffFile& t) { t.order = 'X'; }, 0x10690000, "Expecting 'MM' or 'II'"},
      {[](TiffFile& t) { t.fields.push_back({254, 4, 2, 0}); }, 0x10690000, "expecting 1 entry in NewSubFileType"},
      {[](TiffFile& t) { t.fields.push_back({254, 4, 1, 1}); }, 0x10690000, "expecting single full resolution image"},
      {[](TiffFile& t) { t.find(256)->count = 2; }, 0x10690000, "expecting 1 entry in ImageWidth"},
      {[](TiffFile& t) { t.find(257)->count = 0; }, 0x10690000, "expecting 1 entry in ImageLength"},
      {[](TiffFile& t) { t.find(259)->count = 2; }, 0x10690000, "expecting 1 entry in Compression"},
      {[](TiffFile& t) { t.find(259)->value = 5; }, 0x10140000, "compressed TIFF images not supported"},
      {[](TiffFile& t) { t.find(262)->count = 3; }, 0x10140000, "expecting 1 entry in PhotometricInterp"},
      {[](TiffFile& t) { t.find(262)->value = 4; }, 0x10140000, "unsupported image type"},
      {[](TiffFile& t) { t.find(277)->count = 3; }, 0x10140000, "expecting 1 entry in SamplesPerPixeltr"},
      {[](TiffFile& t) { t.find(278)->count = 2; }, 0x10140000, "expecting 1 entry in RowsPerStrip"},
      {[](TiffFile& t) { t.find(277)->value = 2; }, 0x10140000, "unsupported TIFF format"},
      {[](TiffFile& t) { t.find(258)->value = 7; }, 0x10140000, "unsupported TIFF format"},
      {[](TiffFile& t) { t.find(262)->value = 3; }, 0x10140000, "unsupported TIFF format"},  // no colour map
      {[](TiffFile& t) {
         *t.find(258) = {258, 3, 3, 1, true};
         t.blobs.push_back(t.values({8, 8, 9}, 2));
       },
       0x10140000, "unsupported image"},
      // More strip offsets than the reader's table holds are refused.
      {[](TiffFile& t) { *t.find(273) = {273, 4, 1025, 0, true}; }, 0x10140000, "unsupported TIFF format"},
  };
  uint32_t h;
  for (const auto& [spoil, code, message] : cases) {
    SCOPED_TRACE(message);
    TiffFile t = grey_file('M', 4, 2, 8, Bytes(8, 1));
    spoil(t);
    expect_report(read(t, h), "PIX_read_TIFF_file", code, message);
  }
  Bytes not42 = grey_file('I', 1, 1, 8, {0}).bytes();
  not42[2] = 43;
  save("tiff_test_not42.tif", not42);
  expect_report(read("tiff_test_not42.tif", h), "PIX_read_TIFF_file", 0x10690000, "Expecting 42");
  ASSERT_EQ(read(grey_file('M', 2, 1, 8, {4, 5}), h), 0u);  // a good file reads
  EXPECT_EQ(rows(h), (Bytes{4, 5}));
}

TEST_F(Tiff, RowsPerStripAndBitsCarryOverToTheNextFile) {
  // First file: strips of one row, the second at blob 2.
  TiffFile a = grey_file('M', 2, 2, 8, {});
  split(a, 1, {{1, 2}, {3, 4}}, {0, 1});
  uint32_t h;
  ASSERT_EQ(read(a, h), 0u);
  const uint32_t second_strip = a.blob_offset(2);
  // Second file: no RowsPerStrip and no BitsPerSample; one offset.  It reads
  // as 8-bit grey in strips of one row, its second row from the first file's
  // second offset.
  TiffFile b{'M', {{256, 3, 1, 2}, {257, 3, 1, 2}, {262, 3, 1, 1}, {273, 4, 1, 0}}, {}};
  Bytes file = b.bytes();
  file.resize(second_strip + 2, 0xEE);
  file[second_strip] = 9;
  file[second_strip + 1] = 8;
  file.insert(file.end(), {5, 6});
  const uint32_t first = static_cast<uint32_t>(file.size() - 2);
  for (int i = 0; i < 4; ++i) file[10 + 3 * 12 + 8 + i] = static_cast<uint8_t>(first >> (24 - 8 * i));
  save("tiff_test_carry.tif", file);
  ASSERT_EQ(read("tiff_test_carry.tif", h), 0u);
  EXPECT_EQ(find_image(h)->format, PIX_Y8);
  EXPECT_EQ(rows(h), (Bytes{5, 6, 9, 8}));
}

TEST_F(Tiff, HostileFilesAreReadOnOrRefused) {
  // Pixel data past the end, at a huge offset and cut short all read on as 0xFF.
  uint32_t h;
  for (uint32_t offset : {0x1000u, 0xFFFFFFF0u}) {
    TiffFile t = grey_file('I', 3, 1, 8, {});
    *t.find(273) = {273, 4, 1, offset};
    ASSERT_EQ(read(t, h), 0u);
    EXPECT_EQ(rows(h), Bytes(3, 0xFF));
  }
  ASSERT_EQ(read(grey_file('M', 3, 2, 8, {1, 2, 3, 4}), h), 0u);
  EXPECT_EQ(rows(h), (Bytes{1, 2, 3, 4, 0xFF, 0xFF}));

  // A directory past the end: 65535 entries of nothing, then no class fits.
  Bytes far = grey_file('M', 1, 1, 8, {0}).bytes();
  far[7] = 0xF0;
  save("tiff_test_far.tif", far);
  expect_report(read("tiff_test_far.tif", h), "PIX_read_TIFF_file", 0x10140000, "unsupported TIFF format");

  // BitsPerSample of 4294901769 values, all but four past the end (0xFFFF
  // each): the sum is 24 modulo 65536, worked out without reading them all.
  const auto start = std::chrono::steady_clock::now();
  TiffFile rgb = grey_file('I', 1, 1, 8, {10, 20, 30}, 2);
  rgb.find(277)->value = 3;
  *rgb.find(258) = {258, 3, 4294901769u, 1, true};
  rgb.blobs.push_back(rgb.values({8, 8, 8, 5}, 2));
  ASSERT_EQ(read(rgb, h), 0u);
  EXPECT_EQ(find_image(h)->format, PIX_RGB24);
  EXPECT_EQ(rows(h), (Bytes{10, 20, 30}));
  // Colour maps longer than 256 entries a channel: the rest is passed over.
  TiffFile pal = grey_file('M', 1, 1, 8, {0}, 3);
  Bytes map;
  for (uint32_t i = 0; i < 900; ++i) pal.put(map, i < 300 ? i : i < 600 ? 1000 + i : 7, 2);
  pal.fields.push_back({320, 3, 900, 1, true});
  pal.blobs.push_back(map);
  ASSERT_EQ(read(pal, h), 0u);
  const tPIX_Colour* c = find_image(h)->cmap;
  EXPECT_EQ(std::make_tuple(c[255].red, c[0].green, c[255].blue), std::make_tuple(255, 1300 & 0xFF, 7));
  // Thousands of entries summing the same long array again and again.
  TiffFile again = grey_file('M', 1, 1, 8, {0}, 2);
  Bytes bits(2 * 60000, 0);
  bits[1] = 24;
  again.fields.assign(5000, Field{258, 3, 60000, 1, true});
  again.blobs.push_back(bits);
  expect_report(read(again, h), "PIX_read_TIFF_file", 0x10690000, "TIFF directory reads beyond the file");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));

  // Rows past the 1024th strip: the strip read fails, the reader is idle again.
  TiffFile tall = grey_file('M', 1, 1100, 8, Bytes(1100, 3));
  tall.find(278)->value = 1;
  save("tiff_test_tall.tif", tall.bytes());
  h = reader("tiff_test_tall.tif", 0);
  ASSERT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0u);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 1100);
  EXPECT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0x107C0000u);
  ASSERT_GE(reports().size(), 2u);
  EXPECT_EQ(reports()[reports().size() - 2].message, "strip beyond the strip offset table");
  const Report last = last_report();
  EXPECT_EQ(last.function + "|" + last.message, "PIX_read_TIFF_file|");
  ASSERT_EQ(read(grey_file('M', 1, 1, 8, {42}), h), 0u);
  EXPECT_EQ(rows(h), Bytes{42});
}

}  // namespace
