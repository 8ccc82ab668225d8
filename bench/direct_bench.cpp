// Grey from RGB24 through PIX_convert_to_Y8 (a whole image as one strip,
// command 3) against libyuv's full-range grey of the same byte order, and
// the direct-colour row kernels one by one at each SIMD level.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench_image.h"
#include "convert/kernels/direct.h"
#include "pix95.h"

#ifdef PIX95_HAVE_LIBYUV
#include <libyuv.h>
#endif

namespace {

namespace k = pix::convert::kernels;
using Clock = std::chrono::steady_clock;

void set_rate(benchmark::State& state, const char* name, double pixels, double seconds) {
  state.counters[name] = benchmark::Counter(seconds > 0 ? pixels / seconds / 1e6 : 0);
}

// Ours and libyuv's RAWToJ400 (bytes R, G, B like PIX_RGB24) taken in turn
// in every iteration, so that both see the same machine load.  The library
// frees and allocates its output strip on every call, as applications see it.
void BM_GreyFromRgb24(benchmark::State& state) {
  const auto width = static_cast<uint32_t>(state.range(0)), height = static_cast<uint32_t>(state.range(1));
  const uint32_t in = pixbench::rgb24_image(width, height, height), out = PIX_image_create();
  const auto* rgb = static_cast<const uint8_t*>(PIX_image_get_ptr(in, PIX_PTR_DATA));
  std::vector<uint8_t> peer(std::size_t{width} * height);
  double ours = 0, theirs = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    benchmark::DoNotOptimize(PIX_convert_to_Y8(in, out, PIX_STRIP_NEXT));
    const auto t1 = Clock::now();
#ifdef PIX95_HAVE_LIBYUV
    libyuv::RAWToJ400(rgb, static_cast<int>(width * 3), peer.data(), static_cast<int>(width),
                      static_cast<int>(width), static_cast<int>(height));
    benchmark::DoNotOptimize(peer.data());
#else
    (void)rgb;
#endif
    const auto t2 = Clock::now();
    ours += std::chrono::duration<double>(t1 - t0).count();
    theirs += std::chrono::duration<double>(t2 - t1).count();
  }
  const double pixels = static_cast<double>(width) * height * static_cast<double>(state.iterations());
  set_rate(state, "pix95_Mpix/s", pixels, ours);
#ifdef PIX95_HAVE_LIBYUV
  set_rate(state, "libyuv_Mpix/s", pixels, theirs);
  state.counters["ratio"] = benchmark::Counter(theirs > 0 && ours > 0 ? theirs / ours : 0);
#endif
  PIX_image_destroy(PIX_ALL_IMAGES);
}
BENCHMARK(BM_GreyFromRgb24)->Args({640, 480})->Args({1920, 1080})->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same with caller-owned (locked) buffers, as a grabber application runs
// it: no allocation in the loop.
void BM_GreyFromRgb24Locked(benchmark::State& state) {
  const auto width = static_cast<uint32_t>(state.range(0)), height = static_cast<uint32_t>(state.range(1));
  const uint32_t in = pixbench::rgb24_image(width, height, height), out = PIX_image_create();
  std::vector<uint8_t> grey(std::size_t{width} * height);
  PIX_image_set_flags(in, PIX_FLAG_LOCKED, 1);  // copied to the output with the parameters
  PIX_image_set_ptr(out, PIX_PTR_DATA, grey.data());
  for (auto _ : state) benchmark::DoNotOptimize(PIX_convert_to_Y8(in, out, PIX_STRIP_NEXT));
  state.counters["Mpix/s"] = benchmark::Counter(static_cast<double>(width) * height * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
  PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
  PIX_image_set_flags(in, PIX_FLAG_LOCKED, 0);
  PIX_image_destroy(PIX_ALL_IMAGES);
}
BENCHMARK(BM_GreyFromRgb24Locked)->Args({640, 480})->Args({1920, 1080})->Unit(benchmark::kMicrosecond)->UseRealTime();

// One 1920-pixel row per pair and level, kept in the first-level cache.
const char* const kNames[] = {"y8",     "y16",    "rgb8",   "rgb15",  "rgb16",  "rgb24",
                              "bgr24",  "rgbx32", "bgrx32", "xbgr32", "xrgb32", "yuv422"};

void BM_Row(benchmark::State& state, k::DirectRow row) {
  constexpr std::size_t kPixels = 1920;
  std::vector<uint8_t> src(kPixels * 4, 0x5A), dst(kPixels * 4);
  for (auto _ : state) {
    row(src.data(), dst.data(), kPixels, 0);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.counters["Mpix/s"] = benchmark::Counter(kPixels * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

const int kRegistered = [] {
  for (std::size_t f = 0; f < k::kDirectLayouts; ++f) {
    for (std::size_t t = 0; t < k::kDirectLayouts; ++t) {
      const auto from = static_cast<k::Direct>(f), to = static_cast<k::Direct>(t);
      if (k::direct_row_scalar(from, to) == nullptr) continue;
      const std::string pair = std::string("BM_Row/") + kNames[f] + "_to_" + kNames[t];
      benchmark::RegisterBenchmark((pair + "/scalar").c_str(), BM_Row, k::direct_row_scalar(from, to));
      for (auto [level, name] : {std::pair{pix::simd::Level::sse2, "sse2"}, std::pair{pix::simd::Level::avx2, "avx2"},
                                 std::pair{pix::simd::Level::avx512, "avx512"}}) {
        if (k::DirectRow simd = k::direct_row_simd(from, to, level)) {
          benchmark::RegisterBenchmark((pair + "/" + name).c_str(), BM_Row, simd);
        }
      }
    }
  }
  return 0;
}();

}  // namespace

BENCHMARK_MAIN();
