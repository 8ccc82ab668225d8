// What other modules share of the YUV 4:2:2 converters.
#pragma once

#include "core/stage.h"

namespace pix::convert {

// The library-wide progress of PIX_YUV422_to_RGB24.  The JPEG decoder's
// RGB24 output runs that converter's protocol on its own working lines, and
// so steps this same progress.
stage::Progress& yuv422_to_rgb24_progress() noexcept;

}  // namespace pix::convert
