// The cost of the image core around the pixel work: handles, the image
// check, and copying a full-HD strip through the library against a plain
// memcpy of the same bytes (the floor).
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "pix95.h"

namespace {

uint32_t make_rgb24(uint32_t width, uint32_t height) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, PIX_RGB24);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, height);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  PIX_image_malloc_a_strip(h);
  return h;
}

void BM_CreateDestroy(benchmark::State& state) {
  for (auto _ : state) {
    const uint32_t h = PIX_image_create();
    benchmark::DoNotOptimize(h);
    PIX_image_destroy(h);
  }
}
BENCHMARK(BM_CreateDestroy);

void BM_ImageCheck(benchmark::State& state) {
  const uint32_t h = make_rgb24(1920, 1080);
  for (auto _ : state) benchmark::DoNotOptimize(PIX_image_check(h));
  PIX_image_destroy(PIX_ALL_IMAGES);
}
BENCHMARK(BM_ImageCheck);

void BM_ImageCopy1080p(benchmark::State& state) {
  const uint32_t from = make_rgb24(1920, 1080), to = PIX_image_create();
  std::memset(PIX_image_get_ptr(from, PIX_PTR_DATA), 7, 1920 * 3 * 1080);
  for (auto _ : state) benchmark::DoNotOptimize(PIX_image_copy(from, to));
  state.SetBytesProcessed(state.iterations() * 1920 * 3 * 1080);
  PIX_image_destroy(PIX_ALL_IMAGES);
}
BENCHMARK(BM_ImageCopy1080p);

// The floor: a plain memcpy of the same bytes into a buffer kept between
// iterations (the library also frees and allocates the output strip).
void BM_MemcpyFloor1080p(benchmark::State& state) {
  std::vector<uint8_t> from(1920 * 3 * 1080, 7), to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(from.size()));
}
BENCHMARK(BM_MemcpyFloor1080p);

}  // namespace

BENCHMARK_MAIN();
