// SIMD kernels of the YUV 4:2:2 converters (SSE2 and AVX2, chosen at run time).
#include "yuv.h"

namespace pix::convert::kernels {

YuvRow yuv422_row_simd(YuvOut, cpu::Level) noexcept { return nullptr; }
EncodeRow encode_row_simd(RgbIn, cpu::Level) noexcept { return nullptr; }

}  // namespace pix::convert::kernels
