// The small object tables: colour maps and their statistics blocks, general
// lookup tables, chroma-key objects, displays, the conversion tables, and
// their release when every image is destroyed.
#include <algorithm>
#include <cstring>
#include <string>
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

tPIX_Image* image_record(uint32_t h) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
tPIX_Colour* cmap(uint32_t h) { return static_cast<tPIX_Colour*>(PIX_image_get_ptr(h, PIX_PTR_CMAP)); }

class ObjectsTest : public pixtest::LibraryTest {
 protected:
  void TearDown() override {
    pix::memory::fail_after(-1);
    LibraryTest::TearDown();
  }
  void expect_last(const char* function, uint32_t code, const char* message) {
    const auto r = last_report();
    EXPECT_EQ(std::tie(r.function, r.code, r.message), std::make_tuple(std::string(function), code, std::string(message)));
  }
};

TEST_F(ObjectsTest, CmapCopyTakesTheEntriesInUseOnly) {
  const uint32_t from = pixtest::make_image(PIX_PALETTED, 4, 4);
  const uint32_t to = pixtest::make_image(PIX_PALETTED, 4, 4);
  PIX_image_set_parameter(from, PIX_CMAP_SIZE, 3);
  for (int i = 0; i < 4; ++i) cmap(from)[i] = {uint8_t(i), uint8_t(10 + i), uint8_t(20 + i), 0x55};
  ASSERT_EQ(PIX_cmap_copy(from, to), 0u);
  EXPECT_EQ(PIX_image_get_parameter(to, PIX_CMAP_SIZE), 3u);
  for (int i = 0; i < 3; ++i) {
    const tPIX_Colour c = cmap(to)[i];
    EXPECT_EQ(std::make_tuple(c.red, c.green, c.blue, c.spare), std::make_tuple(i, 10 + i, 20 + i, 0xAA)) << i;
  }
  const tPIX_Colour beyond = cmap(to)[3];
  EXPECT_EQ(std::make_tuple(beyond.red, beyond.green, beyond.blue), std::make_tuple(0xAA, 0xAA, 0xAA));
  EXPECT_EQ(image_record(to)->cmap_info, nullptr);  // the source has none

  PIX_image_set_parameter(from, PIX_CMAP_SIZE, 1000);  // more than a map holds: 256 copied, no overrun
  EXPECT_EQ(PIX_cmap_copy(from, to), 0u);
}

TEST_F(ObjectsTest, CmapCopyCopiesTheStatisticsBlock) {
  const uint32_t from = pixtest::make_image(PIX_PALETTED, 4, 4);
  tPIX_Cmap_info* info = PIX_cmap_create_info();
  ASSERT_NE(info, nullptr);
  info->cells[4095] = {1, 2, 3};
  info->coverage = 87;
  image_record(from)->cmap_info = info;

  for (const bool dest_has_block : {false, true}) {
    SCOPED_TRACE(dest_has_block);
    const uint32_t to = pixtest::make_image(PIX_PALETTED, 4, 4);
    tPIX_Cmap_info* own = dest_has_block ? PIX_cmap_create_info() : nullptr;
    image_record(to)->cmap_info = own;
    ASSERT_EQ(PIX_cmap_copy(from, to), 0u);
    const tPIX_Cmap_info* copy = image_record(to)->cmap_info;
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, info);
    if (dest_has_block) {
      EXPECT_EQ(copy, own);  // reused, not replaced
    }
    EXPECT_EQ(std::memcmp(copy, info, sizeof *info), 0);
  }

  const uint32_t to = pixtest::make_image(PIX_PALETTED, 4, 4);
  pix::memory::fail_after(0);
  EXPECT_EQ(PIX_cmap_copy(from, to), 0x10500000u);
  expect_last("PIX_cmap_copy", 0x10500000u, "cannot create cmap info structure");
  EXPECT_EQ(image_record(to)->cmap_info, nullptr);

  EXPECT_EQ(PIX_cmap_copy(from, 999), 0x10010000u);
  expect_last("PIX_cmap_copy", 0x10010000u, "");
}

TEST_F(ObjectsTest, StatisticsBlockStartsAtItsDefaultsAndIsDestroyedWithItsImage) {
  tPIX_Cmap_info* info = PIX_cmap_create_info();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->cube_size, 0u);
  EXPECT_EQ(std::make_tuple(info->red_bits, info->green_bits, info->blue_bits, info->grey_bits),
            std::make_tuple(4, 4, 4, 8));
  EXPECT_EQ(info->entries_generated, 256);
  EXPECT_EQ(std::make_tuple(info->non_empty_cells, info->coverage), std::make_tuple(0u, 0));
  for (const tPIX_Cmap_cell& cell : info->cells) {
    ASSERT_EQ(std::make_tuple(cell.cube_index, cell.occurrences, cell.cmap_index), std::make_tuple(170u, 170u, 170u));
  }
  for (uint8_t b : info->reserved) EXPECT_EQ(b, 0);

  const uint32_t h = pixtest::make_image(PIX_PALETTED, 4, 4);
  image_record(h)->cmap_info = info;
  EXPECT_EQ(PIX_cmap_destroy_info(h), 0u);
  EXPECT_EQ(image_record(h)->cmap_info, nullptr);
  EXPECT_EQ(PIX_cmap_destroy_info(h), 0u);  // nothing left: still fine
  EXPECT_EQ(PIX_cmap_destroy_info(999), 0x10010000u);
  expect_last("PIX_cmap_destroy_info", 0x10010000u, "");
}

TEST_F(ObjectsTest, GreyTestLooksAtTheEntriesInUseOnly) {
  struct Case {
    const char* name;
    uint16_t cmap_size;
    int entry;  // entry given a colour, -1 for none
    tPIX_Colour colour;
    uint32_t grey;
  };
  const Case cases[] = {
      {"empty map", 0, 0, {1, 2, 3, 0}, 1},
      {"all grey", 256, -1, {}, 1},
      {"colour in the last entry used", 5, 4, {7, 7, 8, 0}, 0},
      {"colour in the first entry", 5, 0, {9, 7, 7, 0}, 0},
      {"colour just beyond the entries used", 5, 5, {1, 2, 3, 0}, 1},
      {"only the spare byte differs", 5, 2, {40, 40, 40, 99}, 1},
      {"size beyond the map", 1000, -1, {}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const uint32_t h = PIX_image_create();
    PIX_image_set_parameter(h, PIX_CMAP_SIZE, c.cmap_size);
    if (c.entry >= 0) cmap(h)[c.entry] = c.colour;
    EXPECT_EQ(PIX_cmap_is_grayscale(h), c.grey);
  }
  EXPECT_TRUE(reports().empty());

  const uint32_t h = PIX_image_create();
  tPIX_Colour* map = cmap(h);
  PIX_image_set_ptr(h, PIX_PTR_CMAP, nullptr);
  EXPECT_EQ(PIX_cmap_is_grayscale(h), 0x107C0000u);
  expect_last("PIX_cmap_is_grayscale", 0x107C0000u, "Colourmap is NULL");
  PIX_image_set_ptr(h, PIX_PTR_CMAP, map);

}

TEST_F(ObjectsTest, LutCreateLimits) {
  struct Case { uint32_t entries; uint16_t size; uint32_t code; const char* message; };
  const Case cases[] = {
      {256, 1, 0, nullptr},
      {257, 1, 0x10280001, "too many LUT elements"},
      {300, 2, 0, nullptr},
      {65536, 2, 0, nullptr},
      {65537, 2, 0x10280002, "too many LUT elements"},
      {10, 3, 0x10280003, "element size must be 1 or 2 bytes"},
      {10, 0, 0x10280003, "element size must be 1 or 2 bytes"},
      {100000, 4, 0x10280003, "element size must be 1 or 2 bytes"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.entries << " x " << c.size);
    reports().clear();
    const uint32_t result = PIX_LUT_create(c.entries, c.size);
    if (c.message == nullptr) {
      EXPECT_EQ(result, 1u);
      EXPECT_TRUE(reports().empty());
      PIX_LUT_destroy(result);
    } else {
      EXPECT_EQ(result, c.code);
      expect_last("PIX_LUT_create", c.code, c.message);
    }
  }
}

TEST_F(ObjectsTest, FifteenLutsAtMostAndHandlesReusedLowestFirst) {
  for (uint32_t i = 1; i <= 15; ++i) ASSERT_EQ(PIX_LUT_create(16, 1), i);
  EXPECT_EQ(PIX_LUT_create(16, 1), 0x10780000u);
  expect_last("PIX_LUT_create", 0x10780000u, "");
  EXPECT_EQ(PIX_LUT_create(300, 1), 0x10780000u);  // the handle test comes first

  EXPECT_EQ(PIX_LUT_destroy(7), 0u);
  EXPECT_EQ(PIX_LUT_get_ptr(7, PIX_LUT_GREY), nullptr);
  EXPECT_EQ(PIX_LUT_destroy(7), 0u);  // an empty slot is no error
  EXPECT_EQ(PIX_LUT_destroy(3), 0u);
  EXPECT_EQ(PIX_LUT_create(16, 1), 3u);
  EXPECT_EQ(PIX_LUT_create(16, 1), 7u);

  EXPECT_EQ(PIX_LUT_destroy(PIX_ALL_IMAGES), 0u);
  for (const auto& slot : pix::convert::general_luts().slots) EXPECT_EQ(slot, nullptr);
}

TEST_F(ObjectsTest, LutTablesStartAsTheIdentityOnePerChannel) {
  const uint32_t small = PIX_LUT_create(200, 1);
  const uint32_t wide = PIX_LUT_create(65536, 2);
  const uint16_t channels[] = {PIX_LUT_GREY, PIX_LUT_RED, PIX_LUT_GREEN, PIX_LUT_BLUE};
  std::vector<const void*> seen;
  for (uint16_t channel : channels) {
    SCOPED_TRACE(channel);
    const auto* bytes = static_cast<const uint8_t*>(PIX_LUT_get_ptr(small, channel));
    const auto* words = static_cast<const uint16_t*>(PIX_LUT_get_ptr(wide, channel));
    ASSERT_NE(bytes, nullptr);
    ASSERT_NE(words, nullptr);
    for (uint32_t i = 0; i < 200; ++i) ASSERT_EQ(bytes[i], i);
    for (uint32_t i = 0; i < 65536; ++i) ASSERT_EQ(words[i], i);
    seen.push_back(bytes);
    seen.push_back(words);
  }
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());  // eight separate tables

  for (uint16_t channel : {0, 3, 5, 6, 7, 9, 12, 15, 16}) EXPECT_EQ(PIX_LUT_get_ptr(small, channel), nullptr) << channel;
}

TEST_F(ObjectsTest, ThreeChromaKeyObjectsWithTheirDefaults) {
  for (uint32_t i = 1; i <= 3; ++i) ASSERT_EQ(PIX_CK_create(), i);
  EXPECT_EQ(PIX_CK_create(), 0x10780000u);
  expect_last("PIX_CK_create", 0x10780000u, "");
  EXPECT_EQ(pix::process::chroma_keys().slots[4], nullptr);  // the spare slot is never handed out

  const std::pair<uint16_t, uint32_t> defaults[] = {
      {PIX_CK_HUE_CENTRE, 340}, {PIX_CK_HUE_HALF_WIDTH, 20}, {PIX_CK_LUMA_CENTRE, 120}, {PIX_CK_LUMA_HALF_WIDTH, 64}};
  for (uint32_t ck = 1; ck <= 3; ++ck) {
    for (const auto& [id, value] : defaults) EXPECT_EQ(PIX_CK_get_parameter(ck, id), value) << ck << " " << id;
  }

  EXPECT_EQ(PIX_CK_destroy(2), 0u);
  EXPECT_EQ(PIX_CK_destroy(2), 0u);
  EXPECT_EQ(PIX_CK_create(), 2u);
  EXPECT_EQ(PIX_CK_destroy(PIX_ALL_IMAGES), 0u);
  for (const auto& slot : pix::process::chroma_keys().slots) EXPECT_EQ(slot, nullptr);
}

TEST_F(ObjectsTest, ChromaKeyParameters) {
  const uint32_t a = PIX_CK_create();
  const uint32_t b = PIX_CK_create();
  const uint16_t ids[] = {PIX_CK_HUE_CENTRE, PIX_CK_HUE_HALF_WIDTH, PIX_CK_LUMA_CENTRE, PIX_CK_LUMA_HALF_WIDTH};
  for (uint16_t id : ids) ASSERT_EQ(PIX_CK_set_parameter(a, id, static_cast<uint16_t>(65000 + id)), 0u);
  for (uint16_t id : ids) {
    EXPECT_EQ(PIX_CK_get_parameter(a, id), 65000u + id);
    EXPECT_NE(PIX_CK_get_parameter(b, id), 65000u + id);  // objects are separate
  }
  EXPECT_TRUE(reports().empty());

  for (uint16_t id : {299, 304, 0, 600}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(PIX_CK_set_parameter(a, id, 1), 0x10170000u);
    expect_last("PIX_CK_set_parameter", 0x10170000u, "Unknown parameter");
    EXPECT_EQ(PIX_CK_get_parameter(a, id), 0x10170000u);
    expect_last("PIX_CK_get_parameter", 0x10170000u, "Unknown parameter");
  }
  EXPECT_EQ(PIX_CK_set_parameter(3, PIX_CK_HUE_CENTRE, 1), 0x10010000u);  // an empty slot
  expect_last("PIX_CK_set_parameter", 0x10010000u, "");
  EXPECT_EQ(PIX_CK_get_parameter(4, PIX_CK_HUE_CENTRE), 0x10010000u);  // the spare slot
  expect_last("PIX_CK_get_parameter", 0x10010000u, "");
}

TEST_F(ObjectsTest, ThirtyOneDisplaysAtMost) {
  for (uint32_t i = 1; i <= 31; ++i) ASSERT_EQ(PIX_display_create(), i);
  EXPECT_EQ(PIX_display_create(), 0x10780000u);
  expect_last("PIX_display_create", 0x10780000u, "");

  EXPECT_EQ(PIX_display_destroy(12), 0u);
  EXPECT_EQ(pix::display::displays().find(12), nullptr);
  EXPECT_EQ(PIX_display_destroy(12), 0u);
  EXPECT_EQ(PIX_display_destroy(40), 0u);  // beyond the table: ignored
  EXPECT_EQ(PIX_display_create(), 12u);
  EXPECT_EQ(PIX_display_destroy(PIX_ALL_IMAGES), 0u);
  for (const auto& slot : pix::display::displays().slots) EXPECT_EQ(slot, nullptr);
}

class ConversionTablesTest : public ObjectsTest {
 protected:
  static constexpr uint16_t kTypes[] = {200, 201, 202, 203, 204, 205};
  static pix::convert::ConversionTable& table(uint16_t type) { return pix::convert::conversion_tables().of_type(type); }
  // Gives every table a small block, as a generator or a load would.
  static void fill_all() {
    for (uint16_t type : kTypes) {
      table(type).bytes.reset(static_cast<uint8_t*>(pix::memory::allocate(16)));
      table(type).size = 16;
    }
  }
  static std::vector<uint16_t> present() {
    std::vector<uint16_t> types;
    for (uint16_t type : kTypes) {
      if (table(type).bytes != nullptr) types.push_back(type);
    }
    return types;
  }
};

TEST_F(ConversionTablesTest, EachDestroyReleasesItsOwnTableOnly) {
  using Destroy = uint32_t (*)();
  const std::pair<uint16_t, Destroy> destroyers[] = {
      {200, PIX_destroy_RGB16_to_paletted_LUT}, {201, PIX_destroy_Y8_to_paletted_LUT},
      {202, PIX_destroy_Y16_to_paletted_LUT},   {203, PIX_destroy_YUV422_to_RGB16_LUT},
      {204, PIX_destroy_YUV422_to_RGB15_LUT},   {205, PIX_destroy_YUV422_to_paletted_LUT},
  };
  for (const auto& [type, destroy] : destroyers) {
    SCOPED_TRACE(type);
    fill_all();
    EXPECT_EQ(destroy(), 0u);
    EXPECT_EQ(table(type).size, 0u);
    std::vector<uint16_t> others(std::begin(kTypes), std::end(kTypes));
    others.erase(std::find(others.begin(), others.end(), type));
    EXPECT_EQ(present(), others);
    EXPECT_EQ(destroy(), 0u);  // absent: still success

    fill_all();
    EXPECT_EQ(PIX_image_conv_LUT_destroy(type), 0u);
    EXPECT_EQ(present(), others);
  }
  EXPECT_TRUE(reports().empty());

  fill_all();
  for (uint16_t type : {0, 199, 206, 65535}) {
    EXPECT_EQ(PIX_image_conv_LUT_destroy(type), 0x10140000u) << type;
    expect_last("PIX_image_conv_LUT_destroy", 0x10140000u, "LUT function not available for this image pixel format");
  }
  EXPECT_EQ(present().size(), 6u);
}

TEST_F(ConversionTablesTest, DestroyingAllImagesReleasesEveryObjectAndTable) {
  pixtest::make_image(PIX_Y8, 4, 4);
  PIX_JPEG_image_create();
  PIX_CK_create();
  PIX_CK_create();
  PIX_LUT_create(256, 1);
  PIX_LUT_create(1024, 2);
  PIX_display_create();
  fill_all();

  EXPECT_EQ(PIX_image_destroy(PIX_ALL_IMAGES), 0u);
  EXPECT_EQ(PIX_image_get_ptr(1, PIX_PTR_RECORD), nullptr);
  EXPECT_EQ(PIX_image_get_ptr(2, PIX_PTR_RECORD), nullptr);
  for (const auto& slot : pix::process::chroma_keys().slots) EXPECT_EQ(slot, nullptr);
  for (const auto& slot : pix::convert::general_luts().slots) EXPECT_EQ(slot, nullptr);
  for (const auto& slot : pix::display::displays().slots) EXPECT_EQ(slot, nullptr);
  EXPECT_TRUE(present().empty());
  EXPECT_TRUE(reports().empty());
}

TEST_F(ConversionTablesTest, CheckingForImagesReleasesTheTablesOnlyWhenNoneRemain) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4);
  const uint32_t ck = PIX_CK_create();
  fill_all();
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0x107A0000u);
  EXPECT_TRUE(reports().empty());  // not reported
  EXPECT_EQ(present().size(), 6u);

  PIX_image_destroy(h);
  EXPECT_EQ(PIX_image_destroy(PIX_CHECK_IMAGES), 0u);
  EXPECT_TRUE(present().empty());
  EXPECT_NE(pix::process::chroma_keys().find(ck), nullptr);  // objects are not images: they stay
}

}  // namespace
