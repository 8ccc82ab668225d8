// Colour-map helpers shared by the paletted converters and table generators.
#pragma once

#include <cstdint>

#include "pix95.h"

namespace pix::convert {

// Index of the entry among the first `used` closest to (red, green, blue) by
// squared distance; ties keep the lower index; 0 for an empty map.
uint8_t closest_colour(const tPIX_Colour* map, uint32_t used, uint8_t red, uint8_t green, uint8_t blue);

}  // namespace pix::convert
