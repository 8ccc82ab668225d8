// The table-driven YUV 4:2:2 row kernels on a full-HD frame: the scalar
// reference against the SIMD kernel of each level this processor runs, on a
// frame of smooth video-like content and on one of noise (every lookup a
// cache miss in the 1 MiB table).  Also the whole converter through the C
// interface, and the arithmetic decoder for comparison.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "convert/conversion_tables.h"
#include "convert/kernels/tables.h"
#include "convert/kernels/yuv.h"
#include "pix95.h"

namespace {

using pix::convert::kernels::LutOut;
constexpr std::size_t kWidth = 1920, kHeight = 1080, kPairs = kWidth / 2 * kHeight;

std::vector<uint8_t> frame(bool noise) {
  std::vector<uint8_t> yuv(kPairs * 4);
  std::mt19937 rng(7);
  for (std::size_t y = 0; y < kHeight; ++y) {
    for (std::size_t p = 0; p < kWidth / 2; ++p) {
      uint8_t* q = &yuv[(y * kWidth / 2 + p) * 4];
      if (noise) {
        for (int k = 0; k < 4; ++k) q[k] = static_cast<uint8_t>(rng());
      } else {
        const auto jitter = static_cast<uint8_t>(rng() & 3);
        q[0] = static_cast<uint8_t>((p + y) / 12 + jitter);
        q[1] = static_cast<uint8_t>(96 + p / 16);
        q[2] = static_cast<uint8_t>((p + y) / 12 + 1);
        q[3] = static_cast<uint8_t>(160 - y / 8);
      }
    }
  }
  return yuv;
}

const uint8_t* table(LutOut out) {
  static const bool made = [] {
    PIX_generate_YUV422_to_RGB16_LUT();
    const uint32_t h = PIX_image_create();
    PIX_cmap_set_type(h, 3);
    PIX_generate_YUV422_to_paletted_LUT(h);
    return true;
  }();
  (void)made;
  const uint16_t type = out == LutOut::paletted ? PIX_LUT_YUV422_TO_PALETTED : PIX_LUT_YUV422_TO_RGB16;
  return pix::convert::conversion_tables().of_type(type).bytes.get();
}

std::size_t out_bytes(LutOut out) {
  switch (out) {
    case LutOut::rgb24:
    case LutOut::bgr24: return 3;
    case LutOut::word16: return 2;
    case LutOut::paletted: return 1;
    default: return 4;
  }
}

// Arguments: layout, level (0 scalar, 1 sse2, 2 avx2), noise.
void BM_LutRow(benchmark::State& state) {
  const auto out = static_cast<LutOut>(state.range(0));
  const auto level = static_cast<pix::simd::Level>(state.range(1));
  const auto row = level == pix::simd::Level::scalar ? pix::convert::kernels::yuv_lut_row_scalar(out)
                                                    : pix::convert::kernels::yuv_lut_row_simd(out, level);
  if (row == nullptr || !pix::simd::supports(level)) {
    state.SkipWithError("no kernel at this level");
    return;
  }
  const std::vector<uint8_t> src = frame(state.range(2) != 0);
  std::vector<uint8_t> dst(kPairs * 2 * out_bytes(out));
  const uint8_t* t = table(out);
  for (auto _ : state) {
    row(src.data(), dst.data(), kPairs, t);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPairs * 2));
}
BENCHMARK(BM_LutRow)
    ->ArgNames({"layout", "level", "noise"})
    ->ArgsProduct({{0, 4, 6, 7}, {0, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// The arithmetic decoder into RGBX32 and RGB24 on the same smooth frame.
void BM_ArithmeticRow(benchmark::State& state) {
  using pix::convert::kernels::YuvOut;
  const auto out = state.range(0) == 0 ? YuvOut::rgbx32 : YuvOut::rgb24;
  const auto row = pix::convert::kernels::yuv422_row(out);
  const std::vector<uint8_t> src = frame(false);
  std::vector<uint8_t> dst(kPairs * 8);
  for (auto _ : state) {
    row(src.data(), dst.data(), kPairs);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPairs * 2));
}
BENCHMARK(BM_ArithmeticRow)->ArgName("rgb24")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

// The converter through the C interface, strip allocation included.
void BM_ConverterRGBX32(benchmark::State& state) {
  const uint32_t in = PIX_image_create(), out = PIX_image_create();
  PIX_image_set_parameter(in, PIX_IMAGE_FORMAT, PIX_YUV422);
  PIX_image_set_parameter(in, PIX_IMAGE_WIDTH, kWidth);
  PIX_image_set_parameter(in, PIX_IMAGE_HEIGHT, kHeight);
  PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, kHeight);
  PIX_image_malloc_a_strip(in);
  const std::vector<uint8_t> src = frame(false);
  std::memcpy(PIX_image_get_ptr(in, PIX_PTR_DATA), src.data(), src.size());
  for (auto _ : state) {
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, kHeight);
    benchmark::DoNotOptimize(PIX_YUV422_to_RGBX32_LUT(in, out, PIX_STRIP_NEXT));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPairs * 2));
  PIX_image_destroy(in);
  PIX_image_destroy(out);
}
BENCHMARK(BM_ConverterRGBX32)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
