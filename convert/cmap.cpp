// Colour maps: setting and reading entries, the ready-made map types, the
// closest-colour search, copying, the grey test and the statistics block.
#include <algorithm>
#include <array>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "cmap.h"
#include "kernels/paletted.h"

using namespace pix;

namespace {
constexpr uint32_t kNoCellEntry = 170;  // what a fresh block holds in every cell word

constexpr const char* kIndexMessage = "Illegal colourmap index (> max number of colours)";

struct NamedColour {
  uint8_t red, green, blue;
};
// Named colours 0-15: black, the dim and bright primaries and their mixes, two greys and white.
constexpr std::array<NamedColour, 16> kNamedColours = {{
    {0, 0, 0},       {0, 0, 152},   {0, 152, 0},   {0, 152, 152},   {152, 0, 0},   {152, 0, 152},
    {152, 152, 0},   {152, 152, 152}, {76, 76, 76}, {0, 0, 255},     {0, 255, 0},   {0, 255, 255},
    {255, 0, 0},     {255, 0, 255}, {255, 255, 0}, {255, 255, 255},
}};

// The entry a setter or getter may touch.  Kept: an index equal to cmap_size
// (one beyond the entries in use) is accepted; applications rely on it.
// `entry` stays null for an accepted index beyond the 256 entries a map
// holds: nothing there is written, and it reads as black.
uint32_t find_entry(const char* function, uint32_t handle, uint16_t index, tPIX_Colour*& entry) {
  entry = nullptr;
  Image* img = find_image(handle);
  if (img == nullptr) return report(function, code::bad_handle);
  if (index > img->cmap_size) return report(function, code::bad_parameter, kIndexMessage);
  if (img->cmap == nullptr) return report(function, code::bad_state, "Colourmap is NULL");
  if (index < PIX_CMAP_ENTRIES) entry = &img->cmap[index];
  return 0;
}

void set_rgb(tPIX_Colour* entry, uint8_t red, uint8_t green, uint8_t blue) {
  if (entry == nullptr) return;
  entry->red = red;
  entry->green = green;
  entry->blue = blue;
}
}  // namespace

namespace pix::convert {

uint8_t closest_colour(const tPIX_Colour* map, uint32_t used, uint8_t red, uint8_t green, uint8_t blue) {
  if (map == nullptr) return 0;
  return kernels::nearest_entry(map, std::min<uint32_t>(used, PIX_CMAP_ENTRIES), red, green, blue);
}

}  // namespace pix::convert

extern "C" {

PIX_API uint32_t PIX_CALL PIX_cmap_set_RGB_colour(uint32_t handle, uint16_t index, uint8_t red, uint8_t green,
                                                  uint8_t blue) {
  tPIX_Colour* entry = nullptr;
  if (uint32_t r = find_entry("PIX_cmap_set_RGB_colour", handle, index, entry); is_error(r)) return r;
  set_rgb(entry, red, green, blue);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_cmap_get_RGB_colour(uint32_t handle, uint16_t index) {
  tPIX_Colour* entry = nullptr;
  if (uint32_t r = find_entry("PIX_cmap_get_RGB_colour", handle, index, entry); is_error(r)) return r;
  if (entry == nullptr) return 0;
  return (static_cast<uint32_t>(entry->red) << 16) | (static_cast<uint32_t>(entry->green) << 8) | entry->blue;
}

PIX_API uint32_t PIX_CALL PIX_cmap_set_colour(uint32_t handle, uint16_t index, uint16_t colour) {
  static constexpr const char* kName = "PIX_cmap_set_colour";
  tPIX_Colour* entry = nullptr;
  if (uint32_t r = find_entry(kName, handle, index, entry); is_error(r)) return r;
  if (colour >= kNamedColours.size()) return report(kName, code::unsupported, "Unrecognised colour");
  const NamedColour& c = kNamedColours[colour];
  set_rgb(entry, c.red, c.green, c.blue);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_cmap_set_type(uint32_t handle, uint16_t type) {
  static constexpr const char* kName = "PIX_cmap_set_type";
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  if (type > 3) return report(kName, code::bad_parameter, "Unrecognized colourmap type");
  if (img->cmap == nullptr) return report(kName, code::bad_state, "Colourmap is NULL");
  switch (type) {
    case 0:
      // Kept: the size is left alone, so a map of fewer than 255 entries
      // stops at the first index beyond it and that index error is returned.
      for (uint32_t i = 0; i < PIX_CMAP_ENTRIES; ++i) {
        if (uint32_t r = PIX_cmap_set_colour(handle, static_cast<uint16_t>(i), 0); is_error(r)) return r;
      }
      break;
    case 1:
      img->cmap_size = PIX_CMAP_ENTRIES;
      for (uint16_t i = 0; i < kNamedColours.size(); ++i) PIX_cmap_set_colour(handle, i, i);
      img->cmap_size = static_cast<uint16_t>(kNamedColours.size());
      break;
    case 2:
      img->cmap_size = PIX_CMAP_ENTRIES;
      for (uint32_t i = 0; i < PIX_CMAP_ENTRIES; ++i) {
        const auto v = static_cast<uint8_t>(i);
        set_rgb(&img->cmap[i], v, v, v);
      }
      break;
    default:
      // The 3-3-2 cube: entry (r << 5) | (g << 2) | b is the centre of its box.
      img->cmap_size = PIX_CMAP_ENTRIES;
      for (uint32_t i = 0; i < PIX_CMAP_ENTRIES; ++i) {
        set_rgb(&img->cmap[i], static_cast<uint8_t>((i >> 5) * 32 + 31), static_cast<uint8_t>(((i >> 2) & 7) * 32 + 31),
                static_cast<uint8_t>((i & 3) * 64 + 31));
      }
      break;
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_cmap_get_occurrences(uint32_t handle, uint16_t cell) {
  static constexpr const char* kName = "PIX_cmap_get_occurrences";
  const Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  if (img->cmap_info == nullptr) return report(kName, code::bad_handle, "No cmap info structure");
  if (cell >= PIX_CMAP_CELLS) return 0;  // no such cell: nothing counted there
  return img->cmap_info->cells[cell].occurrences;
}

PIX_API tPIX_Cmap_info* PIX_CALL PIX_cmap_create_info(void) {
  auto* info = static_cast<tPIX_Cmap_info*>(memory::allocate(sizeof(tPIX_Cmap_info)));
  if (info == nullptr) return nullptr;
  *info = tPIX_Cmap_info{};
  for (auto& cell : info->cells) cell = {kNoCellEntry, kNoCellEntry, kNoCellEntry};
  info->red_bits = info->green_bits = info->blue_bits = 4;
  info->grey_bits = 8;
  info->entries_generated = 256;
  return info;
}

PIX_API uint32_t PIX_CALL PIX_cmap_destroy_info(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_cmap_destroy_info", code::bad_handle);
  memory::release(img->cmap_info);
  img->cmap_info = nullptr;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_cmap_copy(uint32_t from, uint32_t to) {
  static constexpr const char* kName = "PIX_cmap_copy";
  const Image* src = find_image(from);
  Image* dst = find_image(to);
  if (src == nullptr || dst == nullptr) return report(kName, code::bad_handle);
  if (src == dst) return 0;
  dst->cmap_size = src->cmap_size;
  if (src->cmap != nullptr && dst->cmap != nullptr) {
    const int used = std::min<int>(src->cmap_size, PIX_CMAP_ENTRIES);
    for (int i = 0; i < used; ++i) {
      dst->cmap[i].red = src->cmap[i].red;
      dst->cmap[i].green = src->cmap[i].green;
      dst->cmap[i].blue = src->cmap[i].blue;
    }
  }
  if (src->cmap_info != nullptr) {
    if (dst->cmap_info == nullptr) dst->cmap_info = PIX_cmap_create_info();
    if (dst->cmap_info == nullptr) return report(kName, code::out_of_memory, "cannot create cmap info structure");
    *dst->cmap_info = *src->cmap_info;
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_cmap_is_grayscale(uint32_t handle) {
  static constexpr const char* kName = "PIX_cmap_is_grayscale";
  const Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  if (img->cmap == nullptr) return report(kName, code::bad_state, "Colourmap is NULL");
  const int used = std::min<int>(img->cmap_size, PIX_CMAP_ENTRIES);
  for (int i = 0; i < used; ++i) {
    const tPIX_Colour& c = img->cmap[i];
    if (c.red != c.green || c.green != c.blue) return 0;
  }
  return 1;
}

PIX_API uint32_t PIX_CALL PIX_cmap_find_closest_colour(uint32_t handle, uint8_t red, uint8_t green, uint8_t blue) {
  const Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_cmap_find_closest_colour", code::bad_handle);
  return pix::convert::closest_colour(img->cmap, img->cmap_size, red, green, blue);
}

}  // extern "C"
