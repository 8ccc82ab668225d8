// BMP writing and reading of a full-HD RGB24 picture, whole and in strips of
// 64 lines, beside plain fwrite/fread of the same number of bytes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench_image.h"
#include "io_floor.h"
#include "pix95.h"

namespace {

constexpr uint32_t kWidth = 1920, kHeight = 1080;
constexpr std::size_t kFileBytes = 54 + std::size_t{kWidth} * 3 * kHeight;
const char* const kPath = "bmp_bench.bmp";
const char* const kFloorPath = "bmp_bench_floor.bin";

void write_file(benchmark::State& state) {
  const auto lines = static_cast<uint32_t>(state.range(0));
  const uint32_t h = pixbench::rgb24_image(kWidth, kHeight, lines, kPath);
  for (auto _ : state) {
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines);
    for (uint32_t done = 0; done < kHeight; done += lines) {
      if (PIX_write_BMP_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("write failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
  PIX_image_destroy(PIX_ALL_IMAGES);
}

void read_file(benchmark::State& state) {
  const auto lines = static_cast<uint32_t>(state.range(0));
  {
    const uint32_t h = pixbench::rgb24_image(kWidth, kHeight, kHeight, kPath);
    PIX_write_BMP_file(h, PIX_STRIP_NEXT);
    PIX_image_destroy(h);
  }
  const uint32_t h = PIX_image_create();
  PIX_image_set_infilename(h, kPath);
  for (auto _ : state) {
    PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines);
    for (uint32_t done = 0; done < kHeight; done += lines) {
      if (PIX_read_BMP_file(h, PIX_STRIP_NEXT) != 0) state.SkipWithError("read failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
  PIX_image_destroy(PIX_ALL_IMAGES);
}

void BM_BmpWrite1080p(benchmark::State& state) { write_file(state); }
BENCHMARK(BM_BmpWrite1080p)->Arg(kHeight)->Arg(64)->UseRealTime();

void BM_BmpRead1080p(benchmark::State& state) { read_file(state); }
BENCHMARK(BM_BmpRead1080p)->Arg(kHeight)->Arg(64)->UseRealTime();

void BM_WriteFloor1080p(benchmark::State& state) { pixbench::write_floor(state, kFloorPath, kFileBytes); }
BENCHMARK(BM_WriteFloor1080p)->UseRealTime();

void BM_ReadFloor1080p(benchmark::State& state) {
  if (FILE* f = std::fopen(kFloorPath, "wb")) {
    const std::vector<char> bytes(kFileBytes, 0x5A);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  pixbench::read_floor(state, kFloorPath, kFileBytes);
}
BENCHMARK(BM_ReadFloor1080p)->UseRealTime();

}  // namespace
BENCHMARK_MAIN();
