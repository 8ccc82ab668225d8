// Colour-map helpers shared by the paletted converters and table generators,
// and the library-wide progress of the colour-map functions.
#pragma once

#include <cstdint>

#include "core/stage.h"
#include "pix95.h"

namespace pix::convert {

// Index of the entry among the first `used` closest to (red, green, blue) by
// squared distance; ties keep the lower index; 0 for an empty map.
uint8_t closest_colour(const tPIX_Colour* map, uint32_t used, uint8_t red, uint8_t green, uint8_t blue);

// Progress of the strip-wise colour-map functions: map generation, and the
// conversions to paletted and 3-3-2 colour.
struct PalettedState {
  stage::Progress generate, to_paletted, rgb8, dither;
};
PalettedState& paletted_state() noexcept;

}  // namespace pix::convert
