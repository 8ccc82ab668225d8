// Conversion tables, LUT files and the table-driven converters.
#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "convert/conversion_tables.h"
#include "convert/kernels/tables.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using namespace pix::convert::kernels;
namespace fs = std::filesystem;

#ifdef PIX95_SANITIZED
constexpr int kStride = 17;
#else
constexpr int kStride = 1;
#endif

// Independent statements of the arithmetic: floor division written out, packing by fields, indices by division.
int floor_div(int n, int d) { return n >= 0 ? n / d : -((-n + d - 1) / d); }
int clamp8(int v) { return std::clamp(v, 0, 255); }
struct Rgb3 { int r, g, b; };
Rgb3 rgb_of(int y, int u, int v) {
  u -= 128, v -= 128;
  return {clamp8(floor_div(1024 * y + 1436 * v, 1024)), clamp8(floor_div(1024 * y - 352 * u - 731 * v, 1024)),
          clamp8(floor_div(1024 * y + 1815 * u, 1024))};
}
int rgb16_word(const Rgb3& p) { return p.r / 8 * 2048 + p.g / 4 * 32 + p.b / 8; }
int rgb15_word(const Rgb3& p) { return p.r / 8 * 1024 + p.g / 8 * 32 + p.b / 8; }
int closest(const tPIX_Colour* map, int used, int r, int g, int b) {
  long best = LONG_MAX;
  int index = 0;
  for (int i = 0; i < used; ++i) {
    const long d = long(r - map[i].red) * (r - map[i].red) + long(g - map[i].green) * (g - map[i].green) +
                   long(b - map[i].blue) * (b - map[i].blue);
    if (d < best) best = d, index = i;
  }
  return index;
}

// What a converter gives for one pixel, its bytes put at `d` (unused bytes of the 32-bit layouts left as they
// were); gives their count. The RGB fields of the colour at the quantised Y, U, V are expanded unmasked (R is
// red's 5 bits then green's top 3, G green's 6 then blue's top 2, B blue's 5 then zeros); the word is RGB16
// (RGB15 with `rgb15`); the index the closest palette entry.
constexpr LutOut kLayouts[] = {LutOut::rgbx32, LutOut::bgrx32, LutOut::xbgr32, LutOut::xrgb32,
                               LutOut::rgb24,  LutOut::bgr24,  LutOut::word16, LutOut::paletted};
const char* const kOrder[] = {"RGB_", "BGR_", "_BGR", "_RGB", "RGB", "BGR", "wW", "i"};  // by kLayouts
const char* order_of(LutOut out) { return kOrder[std::find(kLayouts, std::end(kLayouts), out) - kLayouts]; }
void put_expected(LutOut out, int y, int u, int v, const tPIX_Colour* map, uint8_t* d, bool rgb15 = false) {
  const Rgb3 q = rgb_of(y / 2 * 2, u / 4 * 4, v / 4 * 4), p = rgb_of(y / 8 * 8, u / 8 * 8, v / 8 * 8);
  const int r5 = q.r / 8, g6 = q.g / 4, b5 = q.b / 8, word = rgb15 ? rgb15_word(q) : rgb16_word(q);
  const int value[] = {r5 * 8 + g6 / 8, g6 * 4 + b5 / 8, b5 * 8, word & 0xFF, word >> 8,
                       out == LutOut::paletted ? closest(map, 40, p.r, p.g, p.b) : 0};
  const char* order = order_of(out);
  for (const char* c = order; *c; ++c) {
    if (*c != '_') d[c - order] = uint8_t(value[std::strchr("RGBwWi", *c) - "RGBwWi"]);
  }
}

using Converter = uint32_t (*)(uint32_t, uint32_t, uint16_t);
const struct { Converter fn; const char* name; LutOut out; uint16_t format, table; } kConverters[] = {
    {PIX_YUV422_to_RGBX32_LUT, "PIX_YUV422_to_RGBX32_LUT", LutOut::rgbx32, PIX_RGBX32, 203},
    {PIX_YUV422_to_BGRX32_LUT, "PIX_YUV422_to_BGRX32_LUT", LutOut::bgrx32, PIX_BGRX32, 203},
    {PIX_YUV422_to_XBGR32_LUT, "PIX_YUV422_to_XBGR32_LUT", LutOut::xbgr32, PIX_XBGR32, 203},
    {PIX_YUV422_to_XRGB32_LUT, "PIX_YUV422_to_XRGB32_LUT", LutOut::xrgb32, PIX_XRGB32, 203},
    {PIX_YUV422_to_RGB24_LUT, "PIX_YUV422_to_RGB24_LUT", LutOut::rgb24, PIX_RGB24, 203},
    {PIX_YUV422_to_BGR24_LUT, "PIX_YUV422_to_BGR24_LUT", LutOut::bgr24, PIX_BGR24, 203},
    {PIX_YUV422_to_RGB16_LUT, "PIX_YUV422_to_RGB16_LUT", LutOut::word16, PIX_RGB16, 203},
    {PIX_YUV422_to_RGB15_LUT, "PIX_YUV422_to_RGB15_LUT", LutOut::word16, PIX_RGB15, 204},
    {PIX_YUV422_to_paletted_LUT, "PIX_YUV422_to_paletted_LUT", LutOut::paletted, PIX_PALETTED, 205},
};

const pix::convert::ConversionTable& table(uint16_t type) { return pix::convert::conversion_tables().of_type(type); }
const uint8_t* at(uint16_t type) { return table(type).bytes.get(); }

class TablesTest : public pixtest::LibraryTest {
 protected:
  static tPIX_Image* record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
  // An image with `used` random colour-map entries and a strip of random data.
  static uint32_t image(uint16_t format, uint32_t width, uint32_t height, uint32_t lines, int used = 40) {
    const uint32_t h = pixtest::make_image(format, width, height, lines);
    if (format == PIX_Y16) PIX_image_set_parameter(h, PIX_DATA_WIDTH, 16);
    std::mt19937 rng(width * 131 + format);
    PIX_image_set_parameter(h, PIX_CMAP_SIZE, used);
    for (int i = 0; i < used; ++i) record(h)->cmap[i] = {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 0};
    if (lines != 0 && PIX_image_malloc_a_strip(h) == 0) {
      std::generate_n(record(h)->data, record(h)->bytes_per_line * lines, [&] { return uint8_t(rng()); });
    }
    return h;
  }
};

TEST_F(TablesTest, YuvTablesAndRowKernelsGiveTheColourOfEveryQuantisedYuvTriple) {
  const uint32_t h = image(PIX_Y8, 2, 2, 0);
  ASSERT_EQ(PIX_image_conv_LUT_generate(h, PIX_LUT_YUV422_TO_RGB16) | PIX_generate_YUV422_to_RGB15_LUT() |
                PIX_generate_YUV422_to_paletted_LUT(h), 0u);
  ASSERT_EQ(std::make_tuple(table(203).size, table(204).size, table(205).size),
            std::make_tuple(1u << 20, 1u << 20, 1u << 15));
  const auto word_at = [](uint16_t type, int i) { return at(type)[2 * i] | at(type)[2 * i + 1] << 8; };
  for (int i = 0; i < 1 << 19; ++i) {  // every entry of the 19-bit tables
    const Rgb3 p = rgb_of((i >> 12) * 2, (i >> 6) % 64 * 4, i % 64 * 4);
    if (word_at(203, i) != rgb16_word(p) || word_at(204, i) != rgb15_word(p)) FAIL() << "index " << i;
  }
  // The expected bytes of every table index in every layout (unused bytes 0xE7, as the rows start).
  std::vector<std::vector<uint8_t>> want;
  for (const LutOut out : kLayouts) {
    const int n = int(std::strlen(kOrder[want.size()])), size = out == LutOut::paletted ? 1 << 15 : 1 << 19;
    want.emplace_back(std::size_t(size) * n, 0xE7);
    for (int i = 0; i < size; ++i) {
      const int y = size == 1 << 15 ? i >> 10 << 3 : i >> 12 << 1, u = size == 1 << 15 ? i >> 2 & 0xF8 : i >> 4 & 0xFC;
      put_expected(out, y, u, size == 1 << 15 ? i % 32 * 8 : i % 64 * 4, record(h)->cmap, &want.back()[i * n]);
    }
  }
  // One line per U: for each V, 128 pairs with Y0 = 2k, Y1 = 2k + 1; the scalar kernel against the formulas,
  // every SIMD level against the scalar kernel with every tail length in turn.
  constexpr int kPairs = 256 * 128;
  std::vector<uint8_t> src(kPairs * 4), ref, simd;
  for (int u = 0; u < 256; u += kStride) {
    for (int i = 0; i < kPairs; ++i) {
      const uint8_t pair[4] = {uint8_t(i % 128 * 2), uint8_t(u), uint8_t(i % 128 * 2 + 1), uint8_t(i / 128)};
      std::copy(pair, pair + 4, &src[4 * i]);
    }
    for (std::size_t l = 0; l < std::size(kLayouts); ++l) {
      const LutOut out = kLayouts[l];
      const int n = int(std::strlen(kOrder[l]));
      const uint8_t* t = table(out == LutOut::paletted ? 205 : 203).bytes.get();
      ref.assign(kPairs * 2 * n, 0xE7);
      yuv_lut_row_scalar(out)(src.data(), ref.data(), kPairs, t);
      for (int p = 0; p < 2 * kPairs; ++p) {
        const int y = p % 256, v = p / 256;
        const int i = out == LutOut::paletted ? y / 8 * 1024 + u / 8 * 32 + v / 8 : y / 2 * 4096 + u / 4 * 64 + v / 4;
        if (!std::equal(&ref[p * n], &ref[p * n] + n, &want[l][i * n])) FAIL() << l << " " << y << " " << u << " " << v;
      }
      for (auto level : {pix::simd::Level::sse2, pix::simd::Level::avx2, pix::simd::Level::avx512}) {
        const LutRow row = yuv_lut_row_simd(out, level);
        if (row == nullptr) continue;
        const std::size_t pairs = kPairs - u % 16;
        simd.assign(ref.size(), 0xE7);
        row(src.data(), simd.data(), pairs, t);
        ASSERT_TRUE(std::equal(ref.begin(), ref.begin() + pairs * 2 * n, simd.begin())) << l << " " << int(level);
        ASSERT_TRUE(std::all_of(simd.begin() + pairs * 2 * n, simd.end(), [](uint8_t b) { return b == 0xE7; }));
      }
    }
  }
}

TEST_F(TablesTest, ConvertersRunStripByStripThroughTheirTables) {
  for (const auto& c : kConverters) {
    SCOPED_TRACE(c.name);
    const uint32_t in = image(PIX_YUV422, 6, 5, 2), out = PIX_image_create();
    const tPIX_Image &src = *record(in), &dst = *record(out);
    for (uint32_t lines : {2u, 2u, 1u}) {
      ASSERT_EQ(c.fn(in, out, PIX_STRIP_NEXT), 0u);
      ASSERT_TRUE(table(c.table).present());
      EXPECT_EQ(std::make_tuple(dst.format, dst.width, dst.lines_this_strip, src.lines_this_strip),
                std::make_tuple(c.format, 6u, 2u, lines));
      for (uint32_t p = 0; p < lines * 6; ++p) {
        const uint8_t* pair = &src.data[p / 2 * 4];
        const int n = int(std::strlen(order_of(c.out)));
        uint8_t want[4];
        std::copy_n(&dst.data[p * n], n, want);
        put_expected(c.out, pair[p % 2 * 2], pair[1], pair[3], src.cmap, want, c.table == 204);
        ASSERT_TRUE(std::equal(want, want + n, &dst.data[p * n])) << "pixel " << p;
      }
      std::generate_n(src.data, 24, [n = lines]() mutable { return uint8_t(n += 37); });
    }
    EXPECT_TRUE(reports().empty());
    PIX_image_destroy(PIX_ALL_IMAGES);  // the tables too: each converter makes its own
  }
}

TEST_F(TablesTest, ConverterQuirksAndRefusals) {
  const uint32_t empty = image(PIX_YUV422, 8, 4, 0), odd = image(PIX_YUV422, 7, 4, 4);
  const uint32_t rgbx = image(PIX_RGBX32, 4, 4, 4);
  for (const auto& c : kConverters) {
    SCOPED_TRACE(c.name);
    const uint32_t out = PIX_image_create();
    EXPECT_EQ(c.fn(empty, out, PIX_STRIP_NEXT), 0u);  // only described, no table made
    EXPECT_EQ(std::make_tuple(record(out)->format, record(out)->width, record(out)->data),
              std::make_tuple(c.format, 8u, nullptr));
    expect_report(c.fn(odd, out, PIX_STRIP_NEXT), c.name, 0x10140000u, "YUV422 image must be an even width");
    expect_report(c.fn(rgbx, out, PIX_STRIP_NEXT), c.name, 0x10140000u, "Not 16 bit YUV 4:2:2");
    const uint8_t* copy = record(out)->data;  // only the RGBX32 converter copies the source before refusing it
    EXPECT_EQ(copy != nullptr && std::equal(copy, copy + 64, record(rgbx)->data), c.fn == PIX_YUV422_to_RGBX32_LUT);
  }
  for (uint16_t t = 200; t <= 205; ++t) EXPECT_FALSE(table(t).present());
  // A failed table ends the set-up: the converter stays idle and starts afresh (a first strip is not yet cut).
  const uint32_t in = image(PIX_YUV422, 4, 4, 4), out = PIX_image_create();
  pix::memory::fail_after(0);
  expect_report(PIX_YUV422_to_RGB15_LUT(in, out, PIX_STRIP_NEXT), "PIX_generate_YUV422_to_RGB15_LUT", 0x10500000u,
                "Unable to generate YUV to RGB15 LUT");
  record(in)->lines_this_strip = 3;
  EXPECT_EQ(PIX_YUV422_to_RGB15_LUT(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_EQ(record(in)->lines_this_strip, 3u);
  // An existing table is used as it stands.
  std::fill_n(pix::convert::conversion_tables().of_type(204).bytes.get(), 1 << 20, 0x11);
  EXPECT_EQ(PIX_YUV422_to_RGB15_LUT(in, out, PIX_STRIP_FINISH) | PIX_YUV422_to_RGB15_LUT(in, out, PIX_STRIP_NEXT), 0u);
  EXPECT_TRUE(std::all_of(record(out)->data, record(out)->data + 24, [](uint8_t b) { return b == 0x11; }));
  PIX_YUV422_to_RGB15_LUT(in, out, PIX_STRIP_FINISH);
}

TEST_F(TablesTest, PalettedTablesHoldTheClosestColour) {
  const uint32_t h = image(PIX_Y16, 4, 4, 0);
  const tPIX_Colour* map = record(h)->cmap;
  ASSERT_EQ(PIX_image_conv_LUT_generate(h, 200) | PIX_image_conv_LUT_generate(h, 201), 0u);
  for (int i = 0; i < 65536; ++i) {  // unmasked: the first byte carries three green bits, the second two blue bits
    ASSERT_EQ(at(200)[i], closest(map, 40, i / 256, i / 8 % 256, i * 8 % 256)) << i;
  }
  for (int i = 0; i < 256; ++i) ASSERT_EQ(at(201)[i], closest(map, 40, i, i, i)) << i;
  for (int d = 9; d <= 16; ++d) {  // 16 included: the generator ends
    PIX_destroy_Y16_to_paletted_LUT();
    PIX_image_set_parameter(h, PIX_DATA_WIDTH, d);
    ASSERT_EQ(PIX_image_conv_LUT_generate(h, 202), 0u);
    ASSERT_EQ(table(202).size, 1u << d);
    for (int i = 0; i < 1 << d; i += kStride) {
      ASSERT_EQ(at(202)[i], closest(map, 40, (i >> (d - 8)) % 256, (i >> (d - 8)) % 256, (i >> (d - 8)) % 256));
    }
  }
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 9);
  EXPECT_EQ(PIX_generate_Y16_to_paletted_LUT(h), 0u);
  EXPECT_EQ(table(202).size, 65536u);  // an existing table keeps its size
  PIX_destroy_Y16_to_paletted_LUT();
  for (auto [d, message] :
       {std::pair{8, "data width should > 8 (and <= 16)"}, {17, "data width should <= 16 (and > 8)"}}) {
    PIX_image_set_parameter(h, PIX_DATA_WIDTH, d);
    expect_report(PIX_image_conv_LUT_generate(h, 202), "PIX_generate_Y16_to_paletted_LUT", 0x10030000u, message);
  }
  EXPECT_FALSE(table(202).present());
  expect_report(PIX_image_conv_LUT_generate(99, 203), "PIX_image_conv_LUT_generate", 0x10010000u, "");
  for (uint16_t type : {199, 206}) {
    expect_report(PIX_image_conv_LUT_generate(h, type), "PIX_image_conv_LUT_generate", 0x10140000u,
                  "LUT function not available for this image pixel format");
  }
}

TEST_F(TablesTest, LutFilesRoundTripAndAreToldApartByLengthOnly) {
  const uint32_t h = image(PIX_Y16, 4, 4, 0);
  const fs::path dir = fs::temp_directory_path();
  const std::string file = (dir / "pix95_tables_lut.bin").string(), other = (dir / "pix95_tables_other.bin").string();
  ASSERT_EQ(PIX_generate_YUV422_to_RGB16_LUT(), 0u);
  const std::vector<uint8_t> saved(table(203).bytes.get(), table(203).bytes.get() + (1 << 20));
  ASSERT_EQ(PIX_image_conv_LUT_save(h, 203, file.c_str()), 0u);
  EXPECT_EQ(fs::file_size(file), 1u << 20);
  PIX_destroy_YUV422_to_RGB16_LUT();
  ASSERT_EQ(PIX_image_conv_LUT_load(h, 203, file.c_str()) | PIX_image_conv_LUT_load(h, 204, file.c_str()), 0u);
  for (uint16_t type : {203, 204}) EXPECT_TRUE(std::equal(saved.begin(), saved.end(), table(type).bytes.get())) << type;
  // Type 202 follows the image's data width.
  PIX_image_set_parameter(h, PIX_DATA_WIDTH, 10);
  ASSERT_EQ(PIX_generate_Y16_to_paletted_LUT(h) | PIX_image_conv_LUT_save(h, 202, other.c_str()), 0u);
  EXPECT_EQ(fs::file_size(other), 1024u);
  PIX_destroy_Y16_to_paletted_LUT();
  EXPECT_EQ(PIX_image_conv_LUT_load(h, 202, other.c_str()), 0u);
  // Wrong lengths: refused after storing what fits.
  for (std::size_t bytes : {65535u, 65537u, 200000u}) {
    std::ofstream(other, std::ios::binary) << std::string(bytes, '\x5A');
    PIX_destroy_RGB16_to_paletted_LUT();
    expect_report(PIX_image_conv_LUT_load(h, 200, other.c_str()), "PIX_image_conv_LUT_load", 0x107C0000u,
                  "Incorrect number of bytes read - correct LUT selected?");
    EXPECT_EQ(std::size_t(std::count(table(200).bytes.get(), table(200).bytes.get() + 65536, 0x5A)),
              std::min<std::size_t>(bytes, 65536)) << bytes;
  }
  const std::string nowhere = (dir / "pix95_tables_missing_dir" / "lut.bin").string();
  using Io = std::pair<decltype(&PIX_image_conv_LUT_save), const char*>;
  for (auto [fn, name] : {Io{PIX_image_conv_LUT_save, "PIX_image_conv_LUT_save"},
                          Io{PIX_image_conv_LUT_load, "PIX_image_conv_LUT_load"}}) {
    expect_report(fn(h, 203, nowhere.c_str()), name, 0x10640000u, "Failed to create file");
    expect_report(fn(99, 203, file.c_str()), name, 0x10010000u, "");
    expect_report(fn(h, 206, file.c_str()), name, 0x10140000u, "Unrecognized LUT type");
  }
  pix::memory::fail_after(0);
  expect_report(PIX_image_conv_LUT_load(h, 205, file.c_str()), "PIX_image_conv_LUT_load", 0x10500000u,
                "Unable to generate YUV to paletted LUT");
  fs::remove(file), fs::remove(other);
}

TEST_F(TablesTest, ConvertToPalettedLutLooksEveryPixelUpWithoutSteppingOverPadding) {
  for (auto [format, data_width, type] : {std::tuple{PIX_Y8, 8, 201}, {PIX_RGB16, 16, 200}, {PIX_Y16, 12, 202}}) {
    SCOPED_TRACE(format);
    const uint32_t in = image(format, 5, 3, 3), out = PIX_image_create();
    PIX_image_set_parameter(in, PIX_DATA_WIDTH, data_width);
    ASSERT_EQ(PIX_convert_to_paletted_LUT(in, out, PIX_STRIP_NEXT), 0u);
    const tPIX_Image &src = *record(in), &dst = *record(out);
    EXPECT_EQ(std::make_tuple(dst.format, table(type).present()), std::make_tuple(PIX_PALETTED, true));
    for (int p = 0; p < 15; ++p) {  // the strip as one run of 15 pixels
      const int w = format == PIX_Y8 ? src.data[p] : src.data[2 * p] | src.data[2 * p + 1] << 8;
      const int g = format == PIX_Y8 ? w : (w % 4096) >> 4;  // Y16: bits above the data width ignored
      const Rgb3 q = format == PIX_RGB16 ? Rgb3{w >> 8, (w >> 3) % 256, (w << 3) % 256} : Rgb3{g, g, g};
      ASSERT_EQ(dst.data[p], closest(src.cmap, 40, q.r, q.g, q.b)) << p;
    }
    // The table stays as made, even after the colour map changes.
    const std::vector<uint8_t> first(dst.data, dst.data + 15);
    std::fill_n(record(in)->cmap, 40, tPIX_Colour{0, 0, 0, 0});
    record(in)->lines_this_strip = 3;
    ASSERT_EQ(PIX_convert_to_paletted_LUT(in, out, PIX_STRIP_NEXT), 0u);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), record(out)->data));
  }
  const uint32_t rgb = image(PIX_RGB24, 4, 4, 4), out = PIX_image_create();
  expect_report(PIX_convert_to_paletted_LUT(rgb, out, PIX_STRIP_NEXT), "PIX_convert_to_paletted_LUT", 0x10140000u,
                "Unsupported image format");
  record(rgb)->lines_this_strip = 0;
  EXPECT_EQ(PIX_convert_to_paletted_LUT(rgb, out, PIX_STRIP_NEXT), 0u);  // described without the format test
  EXPECT_EQ(record(out)->format, PIX_PALETTED);
  PIX_destroy_Y16_to_paletted_LUT();
  const uint32_t narrow = image(PIX_Y16, 4, 4, 4);
  PIX_image_set_parameter(narrow, PIX_DATA_WIDTH, 8);
  EXPECT_EQ(PIX_convert_to_paletted_LUT(narrow, out, PIX_STRIP_NEXT), 0x10030000u);
  EXPECT_EQ(last_report().message, "data width should > 8 (and <= 16)");
}

}  // namespace
