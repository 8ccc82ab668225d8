// The encoder's throughput: PIX_JPEG_compress on 1920x1080 frames, YUV 4:2:2
// and grey, at the default Q scale, a whole frame as one strip and in
// 16-line strips, and from RGB24 (converted to YUV 4:2:2 on the way).
//
// Frames: "synthetic" is a smooth picture with noise on top (pure noise
// would measure nothing but the Huffman coder's worst case); "photo" is a
// natural picture, read from DIR/photo-1920x1080.rgb (raw RGB24, made by
// tools/bench) when --photos=DIR is given.  Rates are in pixels a second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "pix95.h"

namespace {

constexpr uint32_t kWidth = 1920, kHeight = 1080;
using Bytes = std::vector<uint8_t>;

Bytes synthetic_rgb() {
  Bytes rgb(std::size_t{kWidth} * kHeight * 3);
  std::mt19937 rng(1);
  for (uint32_t y = 0; y < kHeight; ++y) {
    for (uint32_t x = 0; x < kWidth; ++x) {
      for (uint32_t c = 0; c < 3; ++c) {
        const double v = 128 + 60 * std::sin(x * (0.01 + 0.004 * c)) * std::cos(y * 0.013) + (x * 7 + y * 3) % 40;
        rgb[(std::size_t{y} * kWidth + x) * 3 + c] = static_cast<uint8_t>(std::clamp(v + rng() % 9, 0.0, 255.0));
      }
    }
  }
  return rgb;
}

// An image of the format locked onto `pixels`, `lines` lines a strip.
uint32_t locked(uint16_t format, Bytes& pixels, uint32_t lines) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, kWidth);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, kHeight);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, lines);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  PIX_image_set_ptr(h, PIX_PTR_DATA, pixels.data());
  return h;
}

// The RGB24 frame in the format (RGB24, YUV 4:2:2 or grey), by the library's converters.
Bytes frame_as(const Bytes& rgb, uint16_t format) {
  Bytes source = rgb;
  if (format == PIX_RGB24) return source;
  Bytes out(std::size_t{kWidth} * kHeight * (format == PIX_Y8 ? 1 : 2));
  const uint32_t in = locked(PIX_RGB24, source, kHeight), to = locked(format, out, kHeight);
  const uint32_t r = format == PIX_Y8 ? PIX_convert_to_Y8(in, to, 3) : PIX_convert_to_YUV422(in, to, 3);
  if (r != 0) std::fprintf(stderr, "conversion failed: %08x\n", r);
  PIX_image_set_ptr(in, PIX_PTR_DATA, nullptr), PIX_image_set_ptr(to, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(in), PIX_image_destroy(to);
  return out;
}

void compress(benchmark::State& state, Bytes frame, uint16_t format, uint32_t lines) {
  const uint32_t src = locked(format, frame, lines), dest = PIX_JPEG_image_create();
  const std::size_t line_bytes = frame.size() / kHeight;
  uint64_t bytes = 0;
  for (auto _ : state) {
    for (uint32_t y = 0; y < kHeight; y += lines) {
      PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, lines);
      PIX_image_set_ptr(src, PIX_PTR_DATA, frame.data() + y * line_bytes);
      if (PIX_JPEG_compress(src, dest, 3) != 0) state.SkipWithError("compress failed");
      bytes += PIX_image_get_parameter(dest, PIX_JPEG_LENGTH);
    }
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kWidth} * kHeight);
  state.counters["bytes/frame"] = static_cast<double>(bytes) / static_cast<double>(state.iterations());
  PIX_image_set_ptr(src, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(PIX_ALL_IMAGES);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::pair<std::string, Bytes>> frames = {{"synthetic", synthetic_rgb()}};
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--photos=", 9) != 0) continue;
    std::ifstream file(std::string(argv[i] + 9) + "/photo-1920x1080.rgb", std::ios::binary);
    Bytes photo(std::size_t{kWidth} * kHeight * 3);
    if (file.read(reinterpret_cast<char*>(photo.data()), static_cast<std::streamsize>(photo.size()))) {
      frames.emplace_back("photo", photo);
    } else {
      std::fprintf(stderr, "no photo in %s: photo frames skipped\n", argv[i] + 9);
    }
    argv[i--] = argv[--argc];
  }
  for (const auto& [name, rgb] : frames) {
    for (const auto& [format, label] : {std::pair{PIX_YUV422, "yuv422"}, {PIX_Y8, "y8"}, {PIX_RGB24, "rgb24"}}) {
      const Bytes frame = frame_as(rgb, static_cast<uint16_t>(format));
      for (uint32_t lines : {kHeight, 16u}) {
        if (format == PIX_RGB24 && lines != kHeight) continue;
        const std::string title = "compress/" + name + "/" + label + "/" + (lines == kHeight ? "frame" : "16-lines");
        benchmark::RegisterBenchmark(title.c_str(), compress, frame, static_cast<uint16_t>(format), lines)
            ->Unit(benchmark::kMillisecond);
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
