// The small object tables: colour maps and their statistics blocks, general
// lookup tables, chroma-key objects, displays, the conversion tables, and
// their release when every image is destroyed.
#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "convert/conversion_tables.h"
#include "convert/general_lut.h"
#include "core/memory.h"
#include "display/display.h"
#include "process/chroma_key.h"
#include "test_support.h"

namespace {

using pixtest::make_image;

tPIX_Image* image_record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
tPIX_Colour* cmap(uint32_t h) { return static_cast<tPIX_Colour*>(PIX_image_get_ptr(h, PIX_PTR_CMAP)); }
template <class Table>
bool all_empty(const Table& table) {
  return std::all_of(table.slots.begin(), table.slots.end(), [](const auto& slot) { return slot == nullptr; });
}
bool no_luts() { return all_empty(pix::convert::general_luts()); }
bool no_chroma_keys() { return all_empty(pix::process::chroma_keys()); }
bool no_displays() { return all_empty(pix::display::displays()); }

class ObjectsTest : public pixtest::LibraryTest {};

TEST_F(ObjectsTest, CmapCopyTakesTheEntriesInUseAndTheStatisticsBlock) {
  const uint32_t from = make_image(PIX_PALETTED, 4, 4), to = make_image(PIX_PALETTED, 4, 4);
  PIX_image_set_parameter(from, PIX_CMAP_SIZE, 3);
  for (int i = 0; i < 4; ++i) cmap(from)[i] = {uint8_t(i), uint8_t(10 + i), uint8_t(20 + i), 0x55};
  ASSERT_EQ(PIX_cmap_copy(from, to), 0u);
  EXPECT_EQ(PIX_image_get_parameter(to, PIX_CMAP_SIZE), 3u);
  for (int i = 0; i < 4; ++i) {  // spare bytes and entries beyond those in use keep the fresh map's 0xAA
    const tPIX_Colour c = cmap(to)[i];
    EXPECT_EQ(std::make_tuple(c.red, c.green, c.blue, c.spare),
              i < 3 ? std::make_tuple(i, 10 + i, 20 + i, 0xAA) : std::make_tuple(0xAA, 0xAA, 0xAA, 0xAA)) << i;
  }
  EXPECT_EQ(image_record(to)->cmap_info, nullptr);  // the source has none
  PIX_image_set_parameter(from, PIX_CMAP_SIZE, 1000);  // more than a map holds: 256 copied, no overrun
  EXPECT_EQ(PIX_cmap_copy(from, to), 0u);

  tPIX_Cmap_info* info = image_record(from)->cmap_info = PIX_cmap_create_info();
  ASSERT_NE(info, nullptr);  // a fresh block starts at its defaults
  EXPECT_EQ(std::make_tuple(info->cube_size, info->red_bits, info->green_bits, info->blue_bits, info->grey_bits,
                            info->entries_generated, info->non_empty_cells, info->coverage),
            std::make_tuple(0u, 4, 4, 4, 8, 256, 0u, 0));
  for (const tPIX_Cmap_cell& cell : info->cells) {
    ASSERT_EQ(std::make_tuple(cell.cube_index, cell.occurrences, cell.cmap_index), std::make_tuple(170u, 170u, 170u));
  }
  EXPECT_TRUE(std::all_of(std::begin(info->reserved), std::end(info->reserved), [](uint8_t b) { return b == 0; }));
  info->cells[4095] = {1, 2, 3};
  info->coverage = 87;
  ASSERT_EQ(PIX_cmap_copy(from, to), 0u);  // a block is made for the destination...
  tPIX_Cmap_info* copy = image_record(to)->cmap_info;
  ASSERT_TRUE(copy != nullptr && copy != info);
  EXPECT_EQ(std::memcmp(copy, info, sizeof *info), 0);
  info->coverage = 88;
  ASSERT_EQ(PIX_cmap_copy(from, to), 0u);  // ...and then reused
  EXPECT_EQ(std::make_tuple(image_record(to)->cmap_info, copy->coverage), std::make_tuple(copy, 88));

  const uint32_t bare = make_image(PIX_PALETTED, 4, 4);
  pix::memory::fail_after(0);
  expect_report(PIX_cmap_copy(from, bare), "PIX_cmap_copy", 0x10500000u, "cannot create cmap info structure");
  EXPECT_EQ(image_record(bare)->cmap_info, nullptr);
  expect_report(PIX_cmap_copy(from, 999), "PIX_cmap_copy", 0x10010000u);
  // The block goes with its image, or on request.
  EXPECT_EQ(PIX_cmap_destroy_info(to) | PIX_cmap_destroy_info(to), 0u);  // nothing left the second time: still fine
  EXPECT_EQ(image_record(to)->cmap_info, nullptr);
}

TEST_F(ObjectsTest, GreyTestLooksAtTheEntriesInUseOnly) {
  struct Case { uint16_t cmap_size; int entry; tPIX_Colour colour; uint32_t grey; };  // entry: the one coloured
  const Case cases[] = {
      {0, 0, {1, 2, 3, 0}, 1},  {5, 4, {7, 7, 8, 0}, 0},  // an empty map; the last entry in use
      {5, 0, {9, 7, 7, 0}, 0},  {5, 5, {1, 2, 3, 0}, 1},  // the first entry; just beyond those in use
      {5, 2, {4, 4, 4, 99}, 1}, {1000, 0, {}, 1},         // only the spare byte; a size beyond the map
  };
  for (const Case& c : cases) {
    const uint32_t h = PIX_image_create();
    PIX_image_set_parameter(h, PIX_CMAP_SIZE, c.cmap_size);
    cmap(h)[c.entry] = c.colour;
    EXPECT_EQ(PIX_cmap_is_grayscale(h), c.grey) << c.cmap_size << " " << c.entry;
  }
  EXPECT_TRUE(reports().empty());
  const uint32_t h = PIX_image_create();
  tPIX_Colour* map = cmap(h);
  PIX_image_set_ptr(h, PIX_PTR_CMAP, nullptr);
  expect_report(PIX_cmap_is_grayscale(h), "PIX_cmap_is_grayscale", 0x107C0000u, "Colourmap is NULL");
  PIX_image_set_ptr(h, PIX_PTR_CMAP, map);
}

TEST_F(ObjectsTest, ObjectTablesHandOutTheLowestFreeHandleUpToTheirLimit) {
  struct Table { const char* create_name; uint32_t limit; uint32_t (*create)(); uint32_t (*destroy)(uint32_t); bool (*empty)(); };
  const Table tables[] = {
      {"PIX_LUT_create", 15, [] { return PIX_LUT_create(16, 1); }, [](uint32_t h) { return PIX_LUT_destroy(h); }, no_luts},
      {"PIX_CK_create", 3, [] { return PIX_CK_create(); }, [](uint32_t h) { return PIX_CK_destroy(h); }, no_chroma_keys},
      {"PIX_display_create", 31, [] { return PIX_display_create(); }, [](uint32_t h) { return PIX_display_destroy(h); },
       no_displays}};
  for (const Table& t : tables) {
    SCOPED_TRACE(t.create_name);
    for (uint32_t i = 1; i <= t.limit; ++i) ASSERT_EQ(t.create(), i);
    expect_report(t.create(), t.create_name, 0x10780000u);
    EXPECT_EQ(t.destroy(t.limit) | t.destroy(t.limit), 0u);  // an empty slot is no error
    EXPECT_EQ(t.destroy(2), 0u);
    EXPECT_EQ(t.create(), 2u);
    EXPECT_EQ(t.create(), t.limit);
    EXPECT_EQ(t.destroy(PIX_ALL_IMAGES), 0u);
    EXPECT_TRUE(t.empty());
  }
}

TEST_F(ObjectsTest, LutsAreSeparateIdentityTablesOfLimitedSize) {
  struct Case { uint32_t entries; uint16_t size; uint32_t code; const char* message; };
  const char* const too_many = "too many LUT elements";
  const char* const bad_size = "element size must be 1 or 2 bytes";
  const Case cases[] = {{256, 1, 0, nullptr},             {257, 1, 0x10280001, too_many}, {300, 2, 0, nullptr},
                        {65536, 2, 0, nullptr},           {65537, 2, 0x10280002, too_many}, {10, 3, 0x10280003, bad_size},
                        {10, 0, 0x10280003, bad_size},    {100000, 4, 0x10280003, bad_size}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.entries << " x " << c.size);
    reports().clear();
    const uint32_t result = PIX_LUT_create(c.entries, c.size);
    if (c.message != nullptr) {
      expect_report(result, "PIX_LUT_create", c.code, c.message);
    } else {
      EXPECT_EQ(std::make_tuple(result, reports().size()), std::make_tuple(1u, 0u));
    }
    PIX_LUT_destroy(1);
  }
  const uint32_t small = PIX_LUT_create(200, 1), wide = PIX_LUT_create(65536, 2);
  std::vector<const void*> seen;
  for (uint16_t channel : {PIX_LUT_GREY, PIX_LUT_RED, PIX_LUT_GREEN, PIX_LUT_BLUE}) {
    SCOPED_TRACE(channel);
    const auto* bytes = static_cast<const uint8_t*>(PIX_LUT_get_ptr(small, channel));
    const auto* words = static_cast<const uint16_t*>(PIX_LUT_get_ptr(wide, channel));
    ASSERT_TRUE(bytes != nullptr && words != nullptr);
    for (uint32_t i = 0; i < 200; ++i) ASSERT_EQ(bytes[i], i);
    for (uint32_t i = 0; i < 65536; ++i) ASSERT_EQ(words[i], i);
    seen.insert(seen.end(), {bytes, words});
  }
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());  // eight separate tables
  for (uint16_t channel : {0, 3, 5, 7, 9, 16}) EXPECT_EQ(PIX_LUT_get_ptr(small, channel), nullptr) << channel;
  for (uint32_t i = 3; i <= 15; ++i) ASSERT_EQ(PIX_LUT_create(16, 1), i);
  EXPECT_EQ(PIX_LUT_create(300, 1), 0x10780000u);  // the handle test comes first
  PIX_LUT_destroy(7);
  EXPECT_EQ(PIX_LUT_get_ptr(7, PIX_LUT_GREY), nullptr);
}

TEST_F(ObjectsTest, ChromaKeyObjectsHaveDefaultsAndParametersOfTheirOwn) {
  for (uint32_t i = 1; i <= 3; ++i) ASSERT_EQ(PIX_CK_create(), i);
  const std::pair<uint16_t, uint32_t> defaults[] = {
      {PIX_CK_HUE_CENTRE, 340}, {PIX_CK_HUE_HALF_WIDTH, 20}, {PIX_CK_LUMA_CENTRE, 120}, {PIX_CK_LUMA_HALF_WIDTH, 64}};
  for (const auto& [id, value] : defaults) {
    EXPECT_EQ(PIX_CK_get_parameter(3, id), value) << id;
    ASSERT_EQ(PIX_CK_set_parameter(1, id, static_cast<uint16_t>(65000 + id)), 0u);
  }
  for (const auto& [id, value] : defaults) {
    EXPECT_EQ(PIX_CK_get_parameter(1, id), 65000u + id);
    EXPECT_EQ(PIX_CK_get_parameter(2, id), value) << id;  // objects are separate
  }
  EXPECT_TRUE(reports().empty());
  for (uint16_t id : {299, 304}) {
    expect_report(PIX_CK_set_parameter(1, id, 1), "PIX_CK_set_parameter", 0x10170000u, "Unknown parameter");
    expect_report(PIX_CK_get_parameter(1, id), "PIX_CK_get_parameter", 0x10170000u, "Unknown parameter");
  }
  PIX_CK_destroy(2);
  expect_report(PIX_CK_set_parameter(2, PIX_CK_HUE_CENTRE, 1), "PIX_CK_set_parameter", 0x10010000u);  // empty
  expect_report(PIX_CK_get_parameter(4, PIX_CK_HUE_CENTRE), "PIX_CK_get_parameter", 0x10010000u);     // spare
  EXPECT_EQ(pix::process::chroma_keys().slots[4], nullptr);  // the spare slot is never handed out
}

constexpr uint16_t kTypes[] = {200, 201, 202, 203, 204, 205};
pix::convert::ConversionTable& table(uint16_t type) { return pix::convert::conversion_tables().of_type(type); }
// Gives every conversion table a small block, as a generator or a load would.
void fill_all() {
  for (uint16_t type : kTypes) {
    table(type).bytes.reset(static_cast<uint8_t*>(pix::memory::allocate(16)));
    table(type).size = 16;
  }
}
long present() {
  return std::count_if(std::begin(kTypes), std::end(kTypes), [](uint16_t t) { return table(t).bytes != nullptr; });
}

TEST_F(ObjectsTest, EachConversionTableDestroyReleasesItsOwnTableOnly) {
  using Destroy = uint32_t (*)();
  const std::pair<uint16_t, Destroy> destroyers[] = {
      {200, PIX_destroy_RGB16_to_paletted_LUT}, {201, PIX_destroy_Y8_to_paletted_LUT},
      {202, PIX_destroy_Y16_to_paletted_LUT},   {203, PIX_destroy_YUV422_to_RGB16_LUT},
      {204, PIX_destroy_YUV422_to_RGB15_LUT},   {205, PIX_destroy_YUV422_to_paletted_LUT},
  };
  for (const auto& [type, destroy] : destroyers) {
    SCOPED_TRACE(type);
    fill_all();
    EXPECT_EQ(destroy() | destroy(), 0u);  // absent the second time: still success
    EXPECT_EQ(std::make_tuple(table(type).bytes.get(), table(type).size, present()), std::make_tuple(nullptr, 0u, 5));
    fill_all();
    EXPECT_EQ(PIX_image_conv_LUT_destroy(type), 0u);
    EXPECT_EQ(std::make_tuple(table(type).bytes.get(), present()), std::make_tuple(nullptr, 5));
  }
  EXPECT_TRUE(reports().empty());
  fill_all();
  expect_report(PIX_image_conv_LUT_destroy(206), "PIX_image_conv_LUT_destroy", 0x10140000u,
                "LUT function not available for this image pixel format");
  EXPECT_EQ(present(), 6);
}

TEST_F(ObjectsTest, ConversionTablesGoWhenNoImageRemainsAndDestroyingAllReleasesEveryObject) {
  const uint32_t h = make_image(PIX_Y8, 4, 4), ck = PIX_CK_create();
  fill_all();
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0x107A0000u);
  EXPECT_EQ(present(), 6);  // an image remains: the tables stay
  PIX_image_destroy(h);
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0u);
  EXPECT_EQ(present(), 0);
  EXPECT_NE(pix::process::chroma_keys().find(ck), nullptr);  // objects are not images: they stay
  make_image(PIX_Y8, 4, 4);
  PIX_JPEG_image_create();
  PIX_LUT_create(1024, 2);
  PIX_display_create();
  fill_all();
  EXPECT_EQ(PIX_image_destroy(PIX_ALL_IMAGES), 0u);
  EXPECT_EQ(std::make_tuple(PIX_image_get_ptr(1, PIX_PTR_RECORD), PIX_image_get_ptr(2, PIX_PTR_RECORD)),
            std::make_tuple(nullptr, nullptr));
  EXPECT_EQ(std::make_tuple(no_chroma_keys(), no_luts(), no_displays(), present()), std::make_tuple(true, true, true, 0));
  EXPECT_TRUE(reports().empty());
}

}  // namespace
