// A full-HD RGB24 TGA file written and read whole, beside plain fwrite and
// fread of the same byte count (the floor).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench_image.h"
#include "io_floor.h"
#include "pix95.h"

namespace {

constexpr uint32_t kWidth = 1920, kHeight = 1080;
constexpr std::size_t kFileBytes = 18 + 3ull * kWidth * kHeight;
const std::string kPath = "tga_bench.tga";

void BM_TgaWrite1080p(benchmark::State& state) {
  const uint32_t h = pixbench::rgb24_image(kWidth, kHeight, kHeight, kPath.c_str());
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
  const uint32_t h = pixbench::rgb24_image(kWidth, kHeight, kHeight, kPath.c_str());
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
