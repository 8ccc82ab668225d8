// TIFF files: round trips through the writer and the reader, the written
// header byte for byte, files of both byte orders built here field by field,
// and hostile files.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "core/image.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;
using Bytes = std::vector<uint8_t>;

Bytes load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
void save(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                               static_cast<std::streamsize>(bytes.size()));
}

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
    for (int i = 0; i < size; ++i) {
      const int shift = order == 'M' ? 8 * (size - 1 - i) : 8 * i;
      out.push_back(static_cast<uint8_t>(v >> shift));
    }
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
      if (f.type == 3 && f.count == 1) {  // a single SHORT stands in the field
        put(out, v, 2);
        put(out, 0, 2);
      } else {
        put(out, v, 4);
      }
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
  TiffFile t;
  t.order = order;
  t.fields = {{256, 4, 1, w}, {257, 3, 1, h},   {258, 3, 1, bits}, {259, 3, 1, 1},
              {262, 3, 1, photometric}, {273, 4, 1, 0, true}, {277, 3, 1, 1}, {278, 4, 1, h}};
  t.blobs = {pixels};
  return t;
}

Bytes pattern(std::size_t n, unsigned salt) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>((i * 73 + salt * 41 + (i >> 7)) & 0xFF);
  return b;
}

class Tiff : public LibraryTest {
 protected:
  std::string path(const std::string& name) { return "tiff_test_" + name + ".tif"; }

  // Reads the file's header, then the whole image as one strip.
  uint32_t read(const std::string& file, uint32_t& h) {
    h = PIX_image_create();
    PIX_image_set_infilename(h, file.c_str());
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 0);
    if (uint32_t r = PIX_read_TIFF_file(h, PIX_STRIP_NEXT); PIX_IS_ERROR(r)) return r;
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, find_image(h)->height);
    return PIX_read_TIFF_file(h, PIX_STRIP_NEXT);
  }
  uint32_t read(const TiffFile& t, uint32_t& h, const std::string& name = "built") {
    save(path(name), t.bytes());
    return read(path(name), h);
  }
  // The pixel bytes of each line of the strip, padding left out.
  static Bytes rows(uint32_t h, uint32_t line_bytes) {
    const tPIX_Image& img = *find_image(h);
    Bytes out;
    for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
      const uint8_t* line = img.data + static_cast<std::size_t>(y) * img.bytes_per_line;
      out.insert(out.end(), line, line + line_bytes);
    }
    return out;
  }
  // An image of one strip, its lines filled from `pixels`.
  uint32_t image_with(uint16_t format, uint32_t w, uint32_t hgt, const Bytes& pixels, uint32_t line_bytes) {
    const uint32_t h = pixtest::make_image(format, w, hgt, hgt);
    if (format == PIX_Y16) PIX_image_set_parameter(h, PIX_DATA_WIDTH, 12);
    tPIX_Image& img = *find_image(h);
    if (format == PIX_BILEVEL) {
      // The core counts no bytes for bilevel lines: the caller lends packed lines.
      const uint32_t stride = (line_bytes + 1) / 2 * 2;
      auto* buffer = static_cast<uint8_t*>(std::calloc(stride, hgt));
      PIX_image_set_ptr(h, PIX_PTR_DATA, buffer);
      PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
      for (uint32_t y = 0; y < hgt; ++y) std::memcpy(buffer + y * stride, &pixels[y * line_bytes], line_bytes);
      return h;
    }
    EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
    for (uint32_t y = 0; y < hgt; ++y) {
      std::memcpy(img.data + y * img.bytes_per_line, &pixels[y * line_bytes], line_bytes);
    }
    return h;
  }
  uint32_t write(uint32_t h, const std::string& file) {
    PIX_image_set_outfilename(h, file.c_str());
    return PIX_write_TIFF_file(h, PIX_STRIP_NEXT);
  }
};

TEST_F(Tiff, EveryReadableFormatReadsBackWhatWasWritten) {
  struct Case {
    uint16_t format;
    uint32_t width, line_bytes;
  };
  const Case cases[] = {{PIX_Y8, 5, 5},       {PIX_RGB24, 7, 21}, {PIX_PALETTED, 9, 9},
                        {PIX_Y16, 6, 12},     {PIX_BILEVEL, 13, 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    const uint32_t height = 4;
    const Bytes pixels = pattern(c.line_bytes * height, c.format);
    const uint32_t out = image_with(c.format, c.width, height, pixels, c.line_bytes);
    for (int i = 0; i < 256; ++i) find_image(out)->cmap[i] = {uint8_t(i * 3), uint8_t(255 - i), uint8_t(i ^ 0x5A), 0};
    ASSERT_EQ(write(out, path("round")), 0u);
    // Through the read dispatcher: detection, the header, then one strip.
    const uint32_t in = PIX_image_create();
    PIX_image_set_infilename(in, path("round").c_str());
    PIX_image_set_parameter(in, PIX_IMAGE_HEIGHT, 32767);
    ASSERT_EQ(PIX_image_read(in, 0, PIX_STRIP_NEXT), 0u);
    const tPIX_Image& got = *find_image(in);
    EXPECT_EQ(got.format, c.format);
    EXPECT_EQ(got.width, c.width);
    EXPECT_EQ(got.height, height);
    EXPECT_EQ(got.depth, find_image(out)->depth);
    EXPECT_EQ(rows(in, c.line_bytes), pixels);
    if (c.format == PIX_Y16) {
      EXPECT_EQ(got.data_width, 12);
    }
    if (c.format == PIX_PALETTED) {
      EXPECT_EQ(got.cmap_size, 256);
      for (int i = 0; i < 256; ++i) {
        const tPIX_Colour a = got.cmap[i], b = find_image(out)->cmap[i];
        EXPECT_EQ(std::tie(a.red, a.green, a.blue), std::tie(b.red, b.green, b.blue)) << i;
      }
    }
    PIX_image_destroy(in);
    PIX_image_destroy(out);
  }
}

TEST_F(Tiff, TheGreyHeaderByteForByte) {
  const uint32_t h = image_with(PIX_Y8, 3, 2, {1, 2, 3, 4, 5, 6}, 3);
  ASSERT_EQ(write(h, path("header")), 0u);
  const Bytes expected = {
      'M', 'M', 0, 42, 0, 0, 0, 8, 0, 13,                  // header, 13 entries
      0, 254, 0, 4, 0, 0, 0, 1, 0, 0, 0, 0,                // NewSubfileType
      1, 0, 0, 3, 0, 0, 0, 1, 0, 3, 0, 0,                  // ImageWidth 3
      1, 1, 0, 3, 0, 0, 0, 1, 0, 2, 0, 0,                  // ImageLength 2
      1, 2, 0, 3, 0, 0, 0, 1, 0, 8, 0, 0,                  // BitsPerSample 8
      1, 3, 0, 3, 0, 0, 0, 1, 0, 1, 0, 0,                  // Compression 1
      1, 6, 0, 3, 0, 0, 0, 1, 0, 1, 0, 0,                  // Photometric 1
      1, 17, 0, 4, 0, 0, 0, 1, 0, 0, 0, 186,               // StripOffsets
      1, 21, 0, 3, 0, 0, 0, 1, 0, 1, 0, 0,                 // SamplesPerPixel
      1, 22, 0, 4, 0, 0, 0, 1, 0, 0, 0, 2,                 // RowsPerStrip
      1, 23, 0, 4, 0, 0, 0, 1, 0, 0, 0, 6,                 // StripByteCounts
      1, 26, 0, 5, 0, 0, 0, 1, 0, 0, 0, 170,               // XResolution
      1, 27, 0, 5, 0, 0, 0, 1, 0, 0, 0, 178,               // YResolution
      1, 40, 0, 3, 0, 0, 0, 1, 0, 1, 0, 0,                 // ResolutionUnit
      0, 0, 0, 0,                                          // no next directory
      0, 0, 1, 44, 0, 0, 0, 1, 0, 0, 1, 44, 0, 0, 0, 1,    // 300/1 twice
      1, 2, 3, 4, 5, 6};                                   // the lines, padding left out
  EXPECT_EQ(load(path("header")), expected);
}

TEST_F(Tiff, PaletteAndSixteenBitHeaders) {
  const uint32_t pal = image_with(PIX_PALETTED, 2, 1, {0, 1}, 2);
  find_image(pal)->cmap[0] = {0x12, 0x34, 0x56, 0};
  ASSERT_EQ(write(pal, path("pal")), 0u);
  Bytes f = load(path("pal"));
  ASSERT_EQ(f.size(), 1734u + 2);
  EXPECT_EQ(f[9], 14);
  // ColorMap, the last entry: 768 SHORTs at 182; entry 0 of each channel as v * 257.
  EXPECT_EQ(Bytes(f.begin() + 166, f.begin() + 178), (Bytes{1, 64, 0, 3, 0, 0, 3, 0, 0, 0, 0, 182}));
  EXPECT_EQ(Bytes(f.begin() + 182, f.begin() + 184), (Bytes{0x12, 0x12}));
  EXPECT_EQ(Bytes(f.begin() + 182 + 512, f.begin() + 184 + 512), (Bytes{0x34, 0x34}));
  EXPECT_EQ(Bytes(f.begin() + 182 + 1024, f.begin() + 184 + 1024), (Bytes{0x56, 0x56}));

  // Y16: two bytes a sample are written, but StripByteCounts counts one.
  const uint32_t y16 = image_with(PIX_Y16, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 6);
  ASSERT_EQ(write(y16, path("y16")), 0u);
  f = load(path("y16"));
  EXPECT_EQ(Bytes(f.begin() + 46, f.begin() + 58), (Bytes{1, 2, 0, 3, 0, 0, 0, 1, 0, 12, 0, 0}));  // data width
  EXPECT_EQ(Bytes(f.begin() + 118, f.begin() + 130), (Bytes{1, 23, 0, 4, 0, 0, 0, 1, 0, 0, 0, 6}));
  EXPECT_EQ(Bytes(f.begin() + 186, f.end()), (Bytes{2, 1, 4, 3, 6, 5, 8, 7, 10, 9, 12, 11}));
}

TEST_F(Tiff, CmykIsWrittenButNotReadBack) {
  const Bytes pixels = pattern(2 * 4 * 3, 9);
  const uint32_t h = image_with(PIX_CMYK32, 2, 3, pixels, 8);
  ASSERT_EQ(write(h, path("cmyk")), 0u);
  const Bytes f = load(path("cmyk"));
  ASSERT_EQ(f.size(), 206u + pixels.size());
  EXPECT_EQ(Bytes(f.begin() + 46, f.begin() + 58), (Bytes{1, 2, 0, 3, 0, 0, 0, 4, 0, 0, 0, 182}));  // BitsPerSample
  EXPECT_EQ(Bytes(f.begin() + 182, f.begin() + 190), (Bytes{0, 8, 0, 8, 0, 8, 0, 8}));
  EXPECT_EQ(Bytes(f.begin() + 206, f.end()), pixels);
  EXPECT_EQ(f[10 + 5 * 12 + 9], 5);  // photometric: separated
  uint32_t in;
  expect_report(read(path("cmyk"), in), "PIX_read_TIFF_file", 0x10140000, "unsupported image");
}

TEST_F(Tiff, StripsOfAnySizeWriteAndReadTheSameLines) {
  const uint32_t w = 6, height = 10;
  const Bytes pixels = pattern(w * height, 3);
  const uint32_t whole = image_with(PIX_Y8, w, height, pixels, w);
  ASSERT_EQ(write(whole, path("whole")), 0u);
  // The same image handed over three lines at a time: the last strip is cut to one.
  const uint32_t part = pixtest::make_image(PIX_Y8, w, height, 3);
  PIX_image_set_outfilename(part, path("parts").c_str());
  for (uint32_t y = 0; y < height; y += 3) {
    PIX_image_free_data(part);
    ASSERT_EQ(PIX_image_malloc_a_strip(part), 0u);
    for (uint32_t r = 0; r < 3 && y + r < height; ++r) std::memcpy(find_image(part)->data + r * w, &pixels[(y + r) * w], w);
    ASSERT_EQ(PIX_write_TIFF_file(part, PIX_STRIP_NEXT), 0u);
  }
  EXPECT_EQ(find_image(part)->lines_this_strip, 1u);
  EXPECT_EQ(load(path("parts")), load(path("whole")));

  // A file of strips of three rows, stored last strip first, read four lines at a time.
  TiffFile t = grey_file('I', w, height, 8, {});
  t.fields[5] = {273, 4, 4, 0, true};
  t.fields[7].value = 3;
  t.blobs = {Bytes(16)};  // the offsets, filled in below
  for (int s = 3; s >= 0; --s) t.blobs.emplace_back(pixels.begin() + s * 18, pixels.begin() + std::min(60, s * 18 + 18));
  t.blobs[0] = t.values({t.blob_offset(4), t.blob_offset(3), t.blob_offset(2), t.blob_offset(1)}, 4);
  save(path("strips"), t.bytes());
  const uint32_t in = PIX_image_create();
  PIX_image_set_infilename(in, path("strips").c_str());
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 4);
  Bytes got;
  for (int call = 0; call < 3; ++call) {
    ASSERT_EQ(PIX_read_TIFF_file(in, PIX_STRIP_NEXT), 0u);
    const Bytes r = rows(in, w);
    got.insert(got.end(), r.begin(), r.end());
  }
  EXPECT_EQ(got, pixels);
}

TEST_F(Tiff, LittleEndianFilesAndTheFieldsTakenInMotorolaOrder) {
  // Grey: WhiteIsZero reads exactly like BlackIsZero, in either order.
  const Bytes grey = pattern(12, 5);
  for (char order : {'I', 'M'}) {
    for (uint32_t photometric : {0u, 1u}) {
      uint32_t h;
      ASSERT_EQ(read(grey_file(order, 4, 3, 8, grey, photometric), h), 0u);
      EXPECT_EQ(rows(h, 4), grey);
    }
  }
  // SHORT strip offsets take a whole 4-byte field each: in an "II" file the
  // second offset is read from the third SHORT.
  TiffFile s = grey_file('I', 2, 2, 8, {});
  s.fields[5] = {273, 3, 2, 0, true};
  s.fields[7].value = 1;
  s.blobs = {Bytes(8), {10, 11}, {20, 21}};
  s.blobs[0] = s.values({s.blob_offset(1), 0, s.blob_offset(2), 0}, 2);
  uint32_t h;
  ASSERT_EQ(read(s, h), 0u);
  EXPECT_EQ(rows(h, 2), (Bytes{10, 11, 20, 21}));

  // 16-bit samples are taken in Motorola order whatever the file says.
  uint32_t y16;
  ASSERT_EQ(read(grey_file('I', 2, 1, 12, {0x34, 0x12, 0x78, 0x56}), y16), 0u);
  EXPECT_EQ(find_image(y16)->data_width, 12);
  const uint8_t* d = find_image(y16)->data;
  EXPECT_EQ(d[0] | d[1] << 8, 0x3412);
  EXPECT_EQ(d[2] | d[3] << 8, 0x7856);

  // Colour maps too: the second byte of each pair is the entry.
  for (char order : {'I', 'M'}) {
    TiffFile p = grey_file(order, 2, 1, 8, {0, 1}, 3);
    Bytes map;
    for (uint32_t v : {0x1122u, 0x3344u, 0x5566u, 0x7788u, 0x99AAu, 0xBBCCu}) p.put(map, v, 2);
    p.fields.push_back({320, 3, 6, 1, true});
    p.blobs.push_back(map);
    uint32_t ph;
    ASSERT_EQ(read(p, ph), 0u);
    const tPIX_Colour* c = find_image(ph)->cmap;
    const bool m = order == 'M';
    EXPECT_EQ(c[0].red, m ? 0x22 : 0x11);
    EXPECT_EQ(c[1].red, m ? 0x44 : 0x33);
    EXPECT_EQ(c[1].blue, m ? 0xCC : 0xBB);
    EXPECT_EQ(find_image(ph)->cmap_size, 256);
  }
}

TEST_F(Tiff, FourBitPalettesOfOddWidth) {
  // Five pixels a line in three bytes: the sixth nibble lands in the line's
  // padding, or is dropped when there is none.
  TiffFile t = grey_file('M', 5, 2, 4, {0x12, 0x34, 0x5F, 0x67, 0x89, 0xAE}, 3);
  t.fields.push_back({320, 3, 48, 1, true});
  t.blobs.push_back(Bytes(96, 0));
  for (uint32_t align : {2u, 1u}) {
    save(path("nibbles"), t.bytes());
    const uint32_t h = PIX_image_create();
    PIX_image_set_infilename(h, path("nibbles").c_str());
    PIX_image_set_parameter(h, PIX_LINE_ALIGN, align);
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 2);
    ASSERT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0u);
    const tPIX_Image& img = *find_image(h);
    EXPECT_EQ(rows(h, 5), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    if (align == 2) {
      EXPECT_EQ(img.data[5], 0x0F);
      EXPECT_EQ(img.data[11], 0x0E);
    }
  }
}

TEST_F(Tiff, HeaderFaults) {
  struct Case {
    void (*spoil)(TiffFile&);
    uint32_t code;
    const char* message;
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    TiffFile t = grey_file('M', 4, 2, 8, Bytes(8, 1));
    c.spoil(t);
    uint32_t h;
    expect_report(read(t, h), "PIX_read_TIFF_file", c.code, c.message);
  }
  uint32_t h = PIX_image_create();
  PIX_image_set_infilename(h, "tiff_test_no_such_file.tif");
  expect_report(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), "PIX_read_TIFF_file", 0x10640000, "Failed to open file");
  Bytes not42 = grey_file('I', 1, 1, 8, {0}).bytes();
  not42[2] = 43;
  save(path("not42"), not42);
  expect_report(read(path("not42"), h), "PIX_read_TIFF_file", 0x10690000, "Expecting 42");
  // Every failure left the reader idle: a good file reads.
  ASSERT_EQ(read(grey_file('M', 2, 1, 8, {4, 5}), h), 0u);
  EXPECT_EQ(rows(h, 2), (Bytes{4, 5}));
}

TEST_F(Tiff, RowsPerStripAndBitsCarryOverToTheNextFile) {
  // First file: strips of one row, the second at blob 2.
  TiffFile a = grey_file('M', 2, 2, 8, {});
  a.fields[5] = {273, 4, 2, 0, true};
  a.fields[7].value = 1;
  a.blobs = {Bytes(8), {1, 2}, {3, 4}};
  a.blobs[0] = a.values({a.blob_offset(1), a.blob_offset(2)}, 4);
  uint32_t h;
  ASSERT_EQ(read(a, h), 0u);
  const uint32_t second_strip = a.blob_offset(2);
  // Second file: no RowsPerStrip and no BitsPerSample; one offset.  It reads
  // as 8-bit grey in strips of one row, its second row from the first file's
  // second offset.
  TiffFile b = grey_file('M', 2, 2, 8, {});
  b.fields = {{256, 3, 1, 2}, {257, 3, 1, 2}, {262, 3, 1, 1}, {273, 4, 1, 0}};
  Bytes file = b.bytes();
  file.resize(second_strip + 2, 0xEE);
  file[second_strip] = 9;
  file[second_strip + 1] = 8;
  file.insert(file.end(), {5, 6});
  const uint32_t first = static_cast<uint32_t>(file.size() - 2);
  for (int i = 0; i < 4; ++i) file[10 + 3 * 12 + 8 + i] = static_cast<uint8_t>(first >> (24 - 8 * i));
  save(path("carry"), file);
  ASSERT_EQ(read(path("carry"), h), 0u);
  EXPECT_EQ(find_image(h)->format, PIX_Y8);
  EXPECT_EQ(rows(h, 2), (Bytes{5, 6, 9, 8}));
}

TEST_F(Tiff, HostileFilesAreReadOnOrRefused) {
  // Pixel data past the end, at a huge offset and cut short all read on as 0xFF.
  for (uint32_t offset : {0x1000u, 0xFFFFFFF0u}) {
    TiffFile t = grey_file('I', 3, 1, 8, {});
    *t.find(273) = {273, 4, 1, offset};
    uint32_t h;
    ASSERT_EQ(read(t, h), 0u);
    EXPECT_EQ(rows(h, 3), Bytes(3, 0xFF));
  }
  uint32_t h;
  ASSERT_EQ(read(grey_file('M', 3, 2, 8, {1, 2, 3, 4}), h), 0u);
  EXPECT_EQ(rows(h, 3), (Bytes{1, 2, 3, 4, 0xFF, 0xFF}));

  // A directory past the end: 65535 entries of nothing, then no class fits.
  TiffFile lost = grey_file('M', 1, 1, 8, {0});
  Bytes far = lost.bytes();
  far[7] = 0xF0;
  save(path("far"), far);
  expect_report(read(path("far"), h), "PIX_read_TIFF_file", 0x10140000, "unsupported TIFF format");

  // BitsPerSample of 4294901769 values, all but four past the end (0xFFFF
  // each): the sum is 24 modulo 65536, worked out without reading them all.
  const auto start = std::chrono::steady_clock::now();
  TiffFile rgb = grey_file('I', 1, 1, 8, {10, 20, 30}, 2);
  rgb.find(277)->value = 3;
  *rgb.find(258) = {258, 3, 4294901769u, 1, true};
  rgb.blobs.push_back(rgb.values({8, 8, 8, 5}, 2));
  ASSERT_EQ(read(rgb, h), 0u);
  EXPECT_EQ(find_image(h)->format, PIX_RGB24);
  EXPECT_EQ(rows(h, 3), (Bytes{10, 20, 30}));
  // Colour maps longer than 256 entries a channel: the rest is passed over.
  TiffFile pal = grey_file('M', 1, 1, 8, {0}, 3);
  Bytes map;
  for (uint32_t i = 0; i < 900; ++i) pal.put(map, i < 300 ? i : i < 600 ? 1000 + i : 7, 2);
  pal.fields.push_back({320, 3, 900, 1, true});
  pal.blobs.push_back(map);
  ASSERT_EQ(read(pal, h), 0u);
  EXPECT_EQ(find_image(h)->cmap[255].red, 255);
  EXPECT_EQ(find_image(h)->cmap[0].green, (1300 & 0xFF));
  EXPECT_EQ(find_image(h)->cmap[255].blue, 7);
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
  save(path("tall"), tall.bytes());
  h = PIX_image_create();
  PIX_image_set_infilename(h, path("tall").c_str());
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 0);
  ASSERT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0u);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, 1100);
  EXPECT_EQ(PIX_read_TIFF_file(h, PIX_STRIP_NEXT), 0x107C0000u);
  ASSERT_GE(reports().size(), 2u);
  EXPECT_EQ(reports()[reports().size() - 2].message, "strip beyond the strip offset table");
  EXPECT_EQ(last_report().function, "PIX_read_TIFF_file");
  EXPECT_EQ(last_report().message, "");
  ASSERT_EQ(read(grey_file('M', 1, 1, 8, {42}), h), 0u);
  EXPECT_EQ(rows(h, 1), Bytes{42});
}

TEST_F(Tiff, TheWriterRefuses) {
  const uint32_t rgb15 = pixtest::make_image(PIX_RGB15, 2, 2, 2);
  expect_report(write(rgb15, path("refused")), "PIX_write_TIFF_file", 0x10140005, "Unsupported image format");
  const uint32_t pal = pixtest::make_image(PIX_PALETTED, 2, 2, 2);
  PIX_image_set_parameter(pal, PIX_CMAP_SIZE, 16);
  expect_report(write(pal, path("refused")), "PIX_write_TIFF_file", 0x10140010, "Unsupported palette/colourmap size");
  const uint32_t y16 = pixtest::make_image(PIX_Y16, 2, 2, 2);  // data width 0
  expect_report(write(y16, path("refused")), "PIX_write_TIFF_file", 0x1003000A, "Corrupt image");
  const uint32_t y8 = image_with(PIX_Y8, 2, 1, {1, 2}, 2);
  expect_report(write(y8, "tiff_test_no_dir/x.tif"), "PIX_write_TIFF_file", 0x10640000, "Failed to create file");
  // Each refusal left the writer idle.
  EXPECT_EQ(write(y8, path("after")), 0u);
  EXPECT_EQ(load(path("after")).size(), 188u);
}

}  // namespace
