// Colour maps: entries, named and ready-made maps, the closest colour, maps
// generated from a histogram, and the conversions to paletted and 3-3-2 colour.
#include <algorithm>
#include <functional>
#include <random>
#include <tuple>
#include <vector>

#include "convert/cmap.h"
#include "core/memory.h"
#include "test_support.h"

namespace {

using pix::find_image;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kIndexError = 0x10280000;
constexpr const char* kIndexMessage = "Illegal colourmap index (> max number of colours)";

uint32_t rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }
uint32_t entry(uint32_t h, int i) { const tPIX_Colour c = find_image(h)->cmap[i]; return rgb(c.red, c.green, c.blue); }
// The 3-3-2 byte of a colour, written out plainly.
int byte332(int r, int g, int b) { return (r / 32) * 32 + (g / 32) * 4 + b / 64; }
// The nearest entry in use by squared distance, the first one on equal distances.
int nearest(uint32_t h, int r, int g, int b) {
  int best = 0;
  long best_d = -1;
  for (int i = 0; i < find_image(h)->cmap_size; ++i) {
    const uint32_t c = entry(h, i);
    const long dr = r - int(c >> 16), dg = g - int((c >> 8) & 255), db = b - int(c & 255);
    if (best_d < 0 || dr * dr + dg * dg + db * db < best_d) best = i, best_d = dr * dr + dg * dg + db * db;
  }
  return best;
}

class Cmap : public pixtest::LibraryTest {
 protected:
  void TearDown() override {
    pix::convert::paletted_state() = {};  // a failed expectation must not leave a run for the next test
    LibraryTest::TearDown();
  }
  // Sends `rows` (packed, `row_bytes` each) into `in` `strip` lines at a time, padding
  // 0xEE, calling `step` after each strip; gives back `out_row_bytes` of every output line.
  Bytes feed(uint32_t in, uint32_t out, const Bytes& rows, size_t row_bytes, uint32_t strip,
             const std::function<uint32_t()>& step, size_t out_row_bytes = 0) {
    Bytes result;
    for (uint32_t first = 0; first < PIX_get_height(in); first += strip) {
      PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, strip);
      PIX_image_free_data(in);
      EXPECT_EQ(PIX_image_malloc_a_strip(in), 0u);
      const tPIX_Image& img = *find_image(in);
      std::fill_n(img.data, size_t{strip} * img.bytes_per_line, 0xEE);
      const uint32_t lines = std::min(strip, img.height - first);
      for (uint32_t y = 0; y < lines; ++y) {
        std::copy_n(&rows[(first + y) * row_bytes], row_bytes, img.data + y * img.bytes_per_line);
      }
      EXPECT_EQ(step(), 0u) << "strip at line " << first;
      for (uint32_t y = 0; out != 0 && y < lines; ++y) {
        const uint8_t* line = find_image(out)->data + y * find_image(out)->bytes_per_line;
        result.insert(result.end(), line, line + out_row_bytes);
      }
    }
    return result;
  }
  // A Y8 21 x 20 image of grey levels 10 * i + 3 in random places, level i i + 1 times and
  // the last level the rest: every count differs, the levels rank from the last downward.
  uint32_t grey_levels(int levels, std::vector<uint32_t>& counts, Bytes& pixels) {
    counts.assign(levels, 0);
    pixels.clear();
    for (int i = 0; i < levels; ++i) {
      counts[i] = i + 1 < levels ? i + 1 : 420 - uint32_t(pixels.size());
      pixels.insert(pixels.end(), counts[i], uint8_t(10 * i + 3));
    }
    std::shuffle(pixels.begin(), pixels.end(), std::mt19937(levels));
    return pixtest::make_image(PIX_Y8, 21, 20);
  }
};

TEST_F(Cmap, EntriesAcceptAnIndexOneBeyondTheSize) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 4);
  for (uint16_t index : {0, 4, 5, 65535}) {
    SCOPED_TRACE(index);
    if (index <= 4) {
      EXPECT_EQ(PIX_cmap_set_RGB_colour(h, index, 7, 8, 9), 0u);
      EXPECT_EQ(std::make_tuple(PIX_cmap_get_RGB_colour(h, index), find_image(h)->cmap[index].spare),
                std::make_tuple(0x070809u, 0xAA));
      EXPECT_EQ(PIX_cmap_set_colour(h, index, 13), 0u);
      continue;
    }
    expect_report(PIX_cmap_set_RGB_colour(h, index, 7, 8, 9), "PIX_cmap_set_RGB_colour", kIndexError, kIndexMessage);
    expect_report(PIX_cmap_get_RGB_colour(h, index), "PIX_cmap_get_RGB_colour", kIndexError, kIndexMessage);
    expect_report(PIX_cmap_set_colour(h, index, 1), "PIX_cmap_set_colour", kIndexError, kIndexMessage);
  }
  EXPECT_EQ(std::make_tuple(entry(h, 4), entry(h, 5)), std::make_tuple(0xFF00FFu, 0xAAAAAAu));
  expect_report(PIX_cmap_set_colour(h, 0, 16), "PIX_cmap_set_colour", 0x10140000, "Unrecognised colour");
  EXPECT_EQ(entry(h, 0), 0xFF00FFu);
  // A full map accepts index 256 too, but nothing lies there to write or read.
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 256);
  EXPECT_EQ(PIX_cmap_set_RGB_colour(h, 256, 1, 2, 3) | PIX_cmap_set_colour(h, 256, 15), 0u);
  EXPECT_EQ(PIX_cmap_get_RGB_colour(h, 256), 0u);
  expect_report(PIX_cmap_set_RGB_colour(999, 0, 1, 2, 3), "PIX_cmap_set_RGB_colour", 0x10010000);
  expect_report(PIX_cmap_set_type(999, 2), "PIX_cmap_set_type", 0x10010000);
}

TEST_F(Cmap, NamedColoursAndReadyMadeMaps) {
  const uint32_t named[16] = {0x000000, 0x000098, 0x009800, 0x009898, 0x980000, 0x980098, 0x989800, 0x989898,
                              0x4C4C4C, 0x0000FF, 0x00FF00, 0x00FFFF, 0xFF0000, 0xFF00FF, 0xFFFF00, 0xFFFFFF};
  const uint32_t h = PIX_image_create();
  ASSERT_EQ(PIX_cmap_set_type(h, 1), 0u);
  EXPECT_EQ(find_image(h)->cmap_size, 16);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(entry(h, i), named[i]) << i;
  ASSERT_EQ(PIX_cmap_set_type(h, 3), 0u);
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(entry(h, i), rgb((i >> 5) * 32 + 31, ((i >> 2) & 7) * 32 + 31, (i & 3) * 64 + 31)) << i;
  }
  EXPECT_EQ(std::make_tuple(find_image(h)->cmap_size, PIX_cmap_get_RGB_colour(h, 0xFF), PIX_cmap_get_RGB_colour(h, 0)),
            std::make_tuple(256, 0xFFFFDFu, 0x1F1F1Fu));
  expect_report(PIX_cmap_set_type(h, 4), "PIX_cmap_set_type", kIndexError, "Unrecognized colourmap type");
  ASSERT_EQ(PIX_cmap_set_type(h, 2), 0u);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(entry(h, i), rgb(i, i, i)) << i;
  // Type 0 keeps the size: 4 entries take indices 0..4, then index 5 fails.
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 4);
  expect_report(PIX_cmap_set_type(h, 0), "PIX_cmap_set_colour", kIndexError, kIndexMessage);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(entry(h, i), i <= 4 ? 0u : rgb(i, i, i)) << i;
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 255);
  EXPECT_EQ(PIX_cmap_set_type(h, 0), 0u);
  EXPECT_EQ(entry(h, 255), 0u);
}

TEST_F(Cmap, ClosestColourTakesTheFirstOfEquallyNearEntries) {
  const uint32_t h = PIX_image_create();
  EXPECT_EQ(PIX_cmap_find_closest_colour(h, 1, 2, 3), 0u);  // an empty map
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 2);
  PIX_cmap_set_RGB_colour(h, 0, 0, 0, 0);
  PIX_cmap_set_RGB_colour(h, 1, 20, 20, 20);
  EXPECT_EQ(std::make_tuple(PIX_cmap_find_closest_colour(h, 10, 10, 10), PIX_cmap_find_closest_colour(h, 10, 11, 10)),
            std::make_tuple(0u, 1u));
  PIX_image_set_parameter(h, PIX_CMAP_SIZE, 4);  // a tie between entries 2 and 3 comes after a worse 0
  PIX_cmap_set_RGB_colour(h, 2, 30, 0, 0);
  PIX_cmap_set_RGB_colour(h, 3, 50, 0, 0);
  EXPECT_EQ(PIX_cmap_find_closest_colour(h, 40, 0, 0), 2u);
}

TEST_F(Cmap, GeneratingFromGreyTakesTheMostFrequentLevels) {
  struct Case { int levels, preset, entries; };  // preset: entries in the map before
  for (const Case c : {Case{20, 0, 16}, Case{5, 0, 16}, Case{5, 2, 6}}) {
    SCOPED_TRACE(testing::Message() << c.levels << " levels, " << c.preset << " entries before, " << c.entries);
    std::vector<uint32_t> counts;
    Bytes pixels;
    const uint32_t h = grey_levels(c.levels, counts, pixels);
    PIX_image_set_parameter(h, PIX_CMAP_SIZE, c.preset);
    for (uint16_t i = 0; i < c.preset; ++i) PIX_cmap_set_RGB_colour(h, i, 1, 2, 3);
    // Odd width: each line's padding byte (0xEE, no level) is stepped over.
    feed(h, 0, pixels, 21, 7, [&] { return PIX_cmap_generate(h, uint16_t(c.entries), PIX_STRIP_NEXT); });
    const tPIX_Cmap_info& info = *find_image(h)->cmap_info;
    EXPECT_EQ(std::make_tuple(find_image(h)->cmap_size, info.entries_generated, info.cube_size, info.non_empty_cells),
              std::make_tuple(c.entries, c.entries - c.preset, 256, c.levels));
    for (int y = 0; y < 256; ++y) {
      const bool level = (y - 3) % 10 == 0 && y < 10 * c.levels;
      ASSERT_EQ(PIX_cmap_get_occurrences(h, uint16_t(y)), level ? counts[(y - 3) / 10] : 0) << y;
    }
    uint32_t covered = 0;
    for (int level = c.levels - 1, k = c.preset; level >= 0; --level, ++k) {
      const int y = 10 * level + 3;
      EXPECT_EQ(info.cells[y].cmap_index, k < c.entries ? uint32_t(k) : 0xFFFFFFFF) << level;
      if (k >= c.entries) continue;
      EXPECT_EQ(entry(h, k), rgb(y, y, y)) << k;
      covered += counts[level];
    }
    for (int k = 0; k < c.preset; ++k) EXPECT_EQ(entry(h, k), rgb(1, 2, 3)) << k;  // kept
    for (int k = c.preset + c.levels; k < c.entries; ++k) EXPECT_EQ(entry(h, k), 0u) << k;  // no level left
    EXPECT_EQ(info.coverage, covered * 100 / 420);
    PIX_image_destroy(h);
  }
}

TEST_F(Cmap, GeneratingFromColourAndY16TakesCellCentres) {
  // RGB24, 15 x 14: six cells of the 4096, counts 1..5 and the rest, pixels spread inside each.
  std::mt19937 random(3);
  const uint32_t cells[6] = {0x05B, 0x27D, 0x4AF, 0x6C2, 0x9E4, 0xB16}, counts[6] = {1, 2, 3, 4, 5, 195};
  Bytes pixels;
  for (int c = 0; c < 6; ++c) {
    for (uint32_t n = 0; n < counts[c]; ++n) {
      for (int shift : {8, 4, 0}) pixels.push_back(uint8_t((((cells[c] >> shift) & 15) << 4) | (random() % 16)));
    }
  }
  const uint32_t h = pixtest::make_image(PIX_RGB24, 15, 14);
  feed(h, 0, pixels, 45, 4, [&] { return PIX_cmap_generate(h, 8, PIX_STRIP_NEXT); });
  const tPIX_Cmap_info& info = *find_image(h)->cmap_info;
  EXPECT_EQ(std::make_tuple(info.cube_size, info.non_empty_cells, info.coverage), std::make_tuple(4096u, 6u, 100));
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(PIX_cmap_get_occurrences(h, uint16_t(cells[i])), counts[i]);
    const uint32_t c = cells[5 - i];  // largest count first
    EXPECT_EQ(entry(h, i), rgb((c >> 8) * 16 + 8, ((c >> 4) & 15) * 16 + 8, (c & 15) * 16 + 8)) << i;
  }
  EXPECT_EQ(entry(h, 6) | entry(h, 7), 0u);

  // Y16 with 12 significant bits: their top 8, the bits above masked off.
  const uint32_t y16 = pixtest::make_image(PIX_Y16, 5, 3);
  PIX_image_set_parameter(y16, PIX_DATA_WIDTH, 12);
  Bytes words;
  for (int i = 0; i < 15; ++i) {
    const int w = 0xF000 | ((i < 2 ? 40 : i < 5 ? 41 : 42) << 4) | i;
    words.insert(words.end(), {uint8_t(w), uint8_t(w >> 8)});
  }
  feed(y16, 0, words, 10, 3, [&] { return PIX_cmap_generate(y16, 4, PIX_STRIP_NEXT); });
  EXPECT_EQ(std::make_tuple(entry(y16, 0), entry(y16, 1), entry(y16, 2), entry(y16, 3)),
            std::make_tuple(rgb(42, 42, 42), rgb(41, 41, 41), rgb(40, 40, 40), 0u));
}

TEST_F(Cmap, GeneratingRefusesAndGuards) {
  const uint32_t paletted = pixtest::make_image(PIX_PALETTED, 4, 4, 4), described = pixtest::make_image(PIX_Y8, 4, 4);
  expect_report(PIX_cmap_generate(paletted, 16, 3), "PIX_cmap_generate", 0x10140000, "Unsupported image format");
  EXPECT_EQ(PIX_cmap_generate(described, 16, 3), 0u);
  expect_report(PIX_cmap_get_occurrences(described, 0), "PIX_cmap_get_occurrences", 0x10010000,
                "No cmap info structure");
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  pix::memory::fail_after(0);
  expect_report(PIX_cmap_generate(h, 16, 3), "PIX_cmap_generate", 0x10500000, "cannot create cmap info structure");
  pix::memory::fail_after(-1);
  expect_report(PIX_cmap_generate(h, 16, 3), "PIX_cmap_generate_1_strip", 0x10030000, "No image data");
  EXPECT_EQ(PIX_cmap_generate(h, 16, PIX_STRIP_FINISH), 0u);
  // Blocks filled by other means: more than 8 bits, more than 4096 cells.
  tPIX_Cmap_info& info = *find_image(h)->cmap_info;
  info.grey_bits = 9;
  EXPECT_EQ(PIX_cmap_generate(h, 16, 0), 0u);  // set up: 512 cells fit
  PIX_image_malloc_a_strip(h);
  expect_report(PIX_cmap_generate(h, 16, 3), "PIX_cmap_generate_1_strip", 0x10790000, "more than 8 bits in one colour");
  expect_report(PIX_cmap_generate(h, 16, 4), "histogram_to_cmap", 0x10790001, "more than 8 bits in one colour");
  info.grey_bits = 8;
  info.red_bits = 5;
  const uint32_t colour = pixtest::make_image(PIX_RGB24, 4, 4, 4);
  PIX_cmap_copy(h, colour);
  expect_report(PIX_cmap_generate(colour, 16, 3), "PIX_cmap_generate", 0x10790000, "Array size overflow");
  EXPECT_TRUE(pix::convert::paletted_state().generate.idle());

  // Odd widths step one byte further whatever the alignment: with alignment 1
  // the second line starts one byte late and is cut at the end of the strip.
  const uint32_t tight = pixtest::make_image(PIX_Y8, 3, 2);
  PIX_image_set_parameter(tight, PIX_LINE_ALIGN, 1);
  feed(tight, 0, {1, 2, 3, 4, 5, 6}, 3, 2, [&] { return PIX_cmap_generate(tight, 8, 3); });
  for (int y = 1; y <= 6; ++y) EXPECT_EQ(PIX_cmap_get_occurrences(tight, uint16_t(y)), y == 4 ? 0u : 1u) << y;
}

TEST_F(Cmap, PalettedConversionUsesTheCellsThenTheClosestColour) {
  std::vector<uint32_t> counts;
  Bytes pixels;
  const uint32_t grey = grey_levels(20, counts, pixels), out = PIX_image_create();
  PIX_image_set_parameter(grey, PIX_LINES_THIS_STRIP, 20);
  expect_report(PIX_convert_to_paletted(grey, out, 3), "PIX_convert_to_paletted", 0x10150000,
                "PIX_cmap_generate must be called first");
  feed(grey, 0, pixels, 21, 20, [&] { return PIX_cmap_generate(grey, 16, 3); });
  const Bytes got = feed(grey, out, pixels, 21, 7, [&] { return PIX_convert_to_paletted(grey, out, 3); }, 21);
  ASSERT_EQ(got.size(), pixels.size());
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), find_image(out)->cmap_size, entry(out, 5)),
            std::make_tuple(uint32_t{PIX_PALETTED}, 16, entry(grey, 5)));  // the map travels with the parameters
  for (size_t i = 0; i < got.size(); ++i) {
    const int level = (pixels[i] - 3) / 10;  // levels 0..3, the least frequent, have no entry of their own
    ASSERT_EQ(got[i], level >= 4 ? 19 - level : nearest(grey, pixels[i], pixels[i], pixels[i])) << i;
  }

  // RGB24: 4 entries for 6 cells; pixels of the other 2 take the closest entry.
  std::mt19937 random(5);
  auto cell_of = [](size_t i) { return i < 3 ? 0 : i < 8 ? 1 : i < 20 ? 2 : i < 40 ? 3 : i < 70 ? 4 : 5; };
  Bytes colours;
  for (size_t i = 0; i < 13 * 9; ++i) {
    for (int ch = 0; ch < 3; ++ch) {
      colours.push_back(uint8_t((cell_of(i) * 37 + ch * 90) % 256 / 16 * 16 + random() % 16));
    }
  }
  const uint32_t rgb24 = pixtest::make_image(PIX_RGB24, 13, 9);
  feed(rgb24, 0, colours, 39, 9, [&] { return PIX_cmap_generate(rgb24, 4, 3); });
  const Bytes indices = feed(rgb24, out, colours, 39, 4, [&] { return PIX_convert_to_paletted(rgb24, out, 3); }, 13);
  ASSERT_EQ(indices.size(), 13u * 9);
  for (size_t i = 0; i < indices.size(); ++i) {
    const uint8_t* p = &colours[3 * i];
    ASSERT_EQ(indices[i], cell_of(i) >= 2 ? 5 - cell_of(i) : nearest(rgb24, p[0], p[1], p[2])) << i;
  }
}

TEST_F(Cmap, Rgb8KeepsTheTopBitsOfEveryChannelValueAndGreyLevel) {
  // Channels do not mix: each line holds one channel alone (the others 0), odd
  // lines from 6 up so that 250 pixels reach 255.  Alignment 16 gives both
  // images padding to step over.
  Bytes colours, greys;
  for (int line = 0; line < 6; ++line) {
    for (int x = 0; x < 250; ++x) {
      const int v = x + (line & 1) * 6;
      for (int c = 0; c < 3; ++c) colours.push_back(uint8_t(c == line / 2 ? v : 0));
      if (line < 2) greys.push_back(uint8_t(v));
    }
  }
  const uint32_t in = pixtest::make_image(PIX_RGB24, 250, 6), y8 = pixtest::make_image(PIX_Y8, 250, 2);
  const uint32_t out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_LINE_ALIGN, 16);
  PIX_image_set_parameter(y8, PIX_LINE_ALIGN, 16);
  const Bytes got = feed(in, out, colours, 750, 3, [&] { return PIX_convert_to_RGB8(in, out, 3); }, 250);
  ASSERT_EQ(got.size(), 1500u);
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i], byte332(colours[3 * i], colours[3 * i + 1], colours[3 * i + 2])) << i;
  }
  EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), PIX_cmap_get_RGB_colour(out, 0xFF)),
            std::make_tuple(uint32_t{PIX_RGB8}, 0xFFFFDFu));
  const Bytes grey332 = feed(y8, out, greys, 250, 2, [&] { return PIX_convert_to_RGB8(y8, out, 3); }, 250);
  ASSERT_EQ(grey332.size(), greys.size());
  for (size_t i = 0; i < greys.size(); ++i) ASSERT_EQ(grey332[i], byte332(greys[i], greys[i], greys[i])) << i;
}

TEST_F(Cmap, DitherMatchesAPlainErrorDiffusion) {
  std::mt19937 random(11);
  for (uint32_t width : {1u, 4u, 37u}) {
    SCOPED_TRACE(width);
    Bytes pixels(width * 23 * 3);
    for (auto& b : pixels) b = uint8_t(random() % 4 == 0 ? 255 - random() % 8 : random() % 256);  // many bright values
    const uint32_t in = pixtest::make_image(PIX_RGB24, width, 23), out = PIX_image_create();
    PIX_image_set_parameter(in, PIX_LINE_ALIGN, 4);
    std::vector<uint16_t> states;  // the progress after each strip: 3 while the run is under way
    const Bytes got = feed(in, out, pixels, width * 3, 5, [&] {
      const uint32_t r = PIX_convert_to_RGB8_dither(in, out, 3);
      states.push_back(pix::convert::paletted_state().dither.state);
      return r;
    }, width);
    EXPECT_EQ(states, (std::vector<uint16_t>{3, 3, 3, 3, 1}));
    ASSERT_EQ(got.size(), size_t{width} * 23);
    for (size_t i = 0, er = 0, eg = 0, eb = 0; i < got.size(); ++i) {
      if (i % width % 3 == 0) er = eg = eb = 0;  // each line in groups of three
      const uint8_t* p = &pixels[3 * i];
      const int r = std::min<int>(p[0] + er, 255), g = std::min<int>(p[1] + eg, 255), b = std::min<int>(p[2] + eb, 255);
      ASSERT_EQ(got[i], byte332(r, g, b)) << i;
      er = r % 32 / 2, eg = g % 32 / 2, eb = b / 64 * 32;  // blue carries its top two bits
    }
    EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), find_image(out)->cmap_size,
                              PIX_cmap_get_RGB_colour(out, 0xFF)),
              std::make_tuple(uint32_t{PIX_PALETTED}, 256, 0xFFFFDFu));
  }
}

// An RGB24 input without lines only describes the output, with the 3-3-2 map;
// other formats are refused (the dither takes no Y8 and has no copy path).
TEST_F(Cmap, ConvertersDescribeTheOutputAndRefuseOtherFormats) {
  using Fn = uint32_t (*)(uint32_t, uint32_t, uint16_t);
  struct Case { Fn fn; const char* name; uint32_t out_format; std::vector<uint16_t> refused; };
  for (const Case& c : {Case{PIX_convert_to_RGB8, "PIX_convert_to_RGB8", PIX_RGB8, {PIX_RGB16}},
                        Case{PIX_convert_to_RGB8_dither, "PIX_convert_to_RGB8_dither", PIX_PALETTED, {PIX_Y8, PIX_PALETTED}},
                        Case{PIX_convert_to_paletted, "PIX_convert_to_paletted", 0, {PIX_RGB16}}}) {
    const uint32_t out = PIX_image_create();
    if (c.out_format != 0) {
      EXPECT_EQ(c.fn(pixtest::make_image(PIX_RGB24, 5, 5), out, 3), 0u) << c.name;
      EXPECT_EQ(std::make_tuple(PIX_image_get_parameter(out, PIX_IMAGE_FORMAT), PIX_cmap_get_RGB_colour(out, 0)),
                std::make_tuple(c.out_format, 0x1F1F1Fu)) << c.name;
    }
    for (uint16_t format : c.refused) {
      expect_report(c.fn(pixtest::make_image(format, 4, 4, 4), out, 3), c.name, 0x10140000, "Unsupported image format");
    }
  }
}

}  // namespace
