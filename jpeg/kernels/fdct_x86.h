// SIMD versions of the JPEG encoder's block kernels (see encode.h): raster
// lines to blocks, forward DCT and quantisation into zig-zag order, fused.
#pragma once

#include "encode.h"

namespace pix::jpeg::kernels {

// The kernels that `level` has its own body for; null members fall back to
// a lower level.  All null off x86 and for the scalar level.
BlockKernels block_kernels_simd(simd::Level level) noexcept;

}  // namespace pix::jpeg::kernels
