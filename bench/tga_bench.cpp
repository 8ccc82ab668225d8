// A full-HD RGB24 TGA file written and read whole, beside plain fwrite and
// fread of the same byte count (the floor).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "io_floor.h"
#include "pix95.h"

namespace {

constexpr uint32_t kWidth = 1920, kHeight = 1080;
constexpr std::size_t kFileBytes = 18 + 3ull * kWidth * kHeight;
const std::string kPath = "tga_bench.tga";

uint32_t frame() {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_RGB24);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, kWidth);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, kHeight);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, kHeight);
  PIX_image_malloc_a_strip(h);
  uint8_t* p = static_cast<uint8_t*>(PIX_image_get_ptr(h, PIX_PTR_DATA));
  for (std::size_t i = 0; i < 3ull * kWidth * kHeight; ++i) p[i] = static_cast<uint8_t>(i * 13);
  PIX_image_set_outfilename(h, kPath.c_str());
  PIX_image_set_infilename(h, kPath.c_str());
  return h;
}

void BM_TgaWrite1080p(benchmark::State& state) {
  const uint32_t h = frame();
  for (auto _ : state) {
    if (PIX_write_TGA_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("write failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
  PIX_image_destroy(h);
}
BENCHMARK(BM_TgaWrite1080p)->Unit(benchmark::kMillisecond);

void BM_WriteFloor1080p(benchmark::State& state) { pixbench::write_floor(state, kPath, kFileBytes); }
BENCHMARK(BM_WriteFloor1080p)->Unit(benchmark::kMillisecond);

void BM_TgaRead1080p(benchmark::State& state) {
  const uint32_t h = frame();
  PIX_write_TGA_file(h, PIX_STRIP_NEXT);
  for (auto _ : state) {
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, kHeight);
    if (PIX_read_TGA_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("read failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
  PIX_image_destroy(h);
}
BENCHMARK(BM_TgaRead1080p)->Unit(benchmark::kMillisecond);

void BM_ReadFloor1080p(benchmark::State& state) { pixbench::read_floor(state, kPath, kFileBytes); }
BENCHMARK(BM_ReadFloor1080p)->Unit(benchmark::kMillisecond);

}  // namespace
BENCHMARK_MAIN();
