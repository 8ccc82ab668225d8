// The direct-colour converters (PIX_convert_to_Y8 ... PIX_convert_to_CMYK32,
// PIX_paletted_to_RGB24_or_Y8): what other modules may use of them.
#pragma once

#include <cstdint>

#include "core/stage.h"

namespace pix::convert {

// Library-wide progress of each direct-colour converter.
struct DirectState {
  stage::Progress y8, rgbx32, bgrx32, xbgr32, xrgb32, rgb24, bgr24, rgb16, rgb15, y16, cmyk32, paletted;
};
DirectState& direct_state() noexcept;

// The worker of PIX_convert_to_RGB24 (reports as "PIX_convert_to_RGB24_1_strip"):
// frees `out`'s data, allocates one strip and converts `in`'s strip into it
// by `in`'s pixel format, which must be one PIX_convert_to_RGB24 takes (a
// strip of 5-5-5 words is converted when `in` says PIX_RGB15).  `out` should
// carry `in`'s width and at least its strip lines; nothing is written beyond
// its strip.
uint32_t convert_to_rgb24_1_strip(uint32_t in, uint32_t out);

}  // namespace pix::convert
