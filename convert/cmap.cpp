// Colour maps: copying, the grey test and the statistics block.
#include <algorithm>
#include <array>
#include <cstring>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "cmap.h"

using namespace pix;

namespace {
constexpr uint32_t kNoCellEntry = 170;  // what a fresh block holds in every cell word

// Squared differences d * d for d = -255..255, as 16-bit values.
constexpr auto kSquares = [] {
  std::array<uint16_t, 511> t{};
  for (int d = -255; d <= 255; ++d) t[d + 255] = static_cast<uint16_t>(d * d);
  return t;
}();
}  // namespace

namespace pix::convert {

uint8_t closest_colour(const tPIX_Colour* map, uint32_t used, uint8_t red, uint8_t green, uint8_t blue) {
  if (map == nullptr) return 0;
  if (used > PIX_CMAP_ENTRIES) used = PIX_CMAP_ENTRIES;
  uint32_t best = 31234567;  // larger than any distance
  uint32_t index = 0;
  for (uint32_t i = 0; i < used; ++i) {
    const uint32_t d = kSquares[red - map[i].red + 255] + kSquares[green - map[i].green + 255] +
                       kSquares[blue - map[i].blue + 255];
    if (d < best) {  // strictly smaller: ties keep the lower index
      best = d;
      index = i;
    }
  }
  return static_cast<uint8_t>(index);
}

}  // namespace pix::convert

extern "C" {

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
