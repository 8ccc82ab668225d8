// The conversion benchmark: YUV 4:2:2 and grey conversions through the
// public functions, a whole frame as one strip, against libyuv doing the
// same work on the same memory layouts:
//
//   to RGBX32, BGRX32,  PIX_YUV422_to_...       libyuv YUY2ToARGB (B G R A in memory; libyuv has
//   XBGR32, XRGB32                              no other byte order from YUY2, and the work is the same)
//   to RGB24            PIX_YUV422_to_RGB24     libyuv has no direct route: YUY2ToARGB + ARGBToRAW, or
//                                               YUY2ToI422 + I422ToRAW (RAW is R G B in memory)
//   to Y8               PIX_YUV422_to_Y8        libyuv YUY2ToY
//   RGB24 to YUV422     PIX_convert_to_YUV422   libyuv RAWToARGB + ARGBToYUY2
//   RGB24 to Y8         PIX_convert_to_Y8       libyuv RAWToJ400 (full-range grey)
//
// Two-step libyuv routes run both over whole frames and row by row through a
// one-row buffer that stays in cache; the faster is the one compared.
//
// Every benchmark converts one frame with the library and with each libyuv
// route in turn, in every iteration, on the same source and destination
// buffers: all sides see the same cache state and the same machine load.
// The library's images are locked onto those buffers, as a grabber's frames
// are, so nothing allocates inside the loop.
//
// Frames: "synthetic" is pseudo-random bytes; "photo" is a natural picture,
// read from DIR/photo-WIDTHxHEIGHT.rgb (raw RGB24, made by tools/bench) when
// --photos=DIR is given, and encoded to YUV 4:2:2 by the library for the
// decoders.  Run with --benchmark_repetitions=N: the summary gives the median
// rate of each side over the repetitions and their ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "core/simd.h"
#include "pairs.h"
#include "pix95.h"
#ifdef PIX95_HAVE_LIBYUV
#include <libyuv.h>
#endif

namespace {

using pixbench::Bytes;
using pixbench::Clock;
using pixbench::Size;
constexpr Size kSizes[] = {{640, 480}, {1920, 1080}};

// One picture in both source layouts.
struct Frame {
  std::string name;
  Size size;
  Bytes rgb24, yuv422;
};

// An image locked onto `data`: the library converts into it in place.
uint32_t locked_image(uint16_t format, const Size& s, uint8_t* data) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, static_cast<uint32_t>(s.width));
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, static_cast<uint32_t>(s.height));
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(s.height));
  PIX_image_set_ptr(h, PIX_PTR_DATA, data);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  return h;
}
void release(uint32_t image) {
  // Destroying an image frees its data even when locked: take the buffer back.
  PIX_image_set_ptr(image, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(image);
}

using Convert = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);

// The library's YUV 4:2:2 of an RGB24 picture.
Bytes encode(Bytes& rgb24, const Size& s) {
  Bytes yuv(s.pixels() * 2);
  const uint32_t in = locked_image(PIX_RGB24, s, rgb24.data()), out = locked_image(PIX_YUV422, s, yuv.data());
  const uint32_t status = PIX_convert_to_YUV422(in, out, PIX_STRIP_NEXT);
  release(in);
  release(out);
  if (PIX_IS_ERROR(status)) yuv.clear();
  return yuv;
}

std::vector<Frame> frames(const std::string& photos) {
  std::vector<Frame> all;
  std::mt19937 rng(12345);
  for (const Size& s : kSizes) {
    Frame f{"synthetic", s, Bytes(s.pixels() * 3), Bytes(s.pixels() * 2)};
    for (auto& b : f.rgb24) b = static_cast<uint8_t>(rng());
    for (auto& b : f.yuv422) b = static_cast<uint8_t>(rng());
    all.push_back(std::move(f));
  }
  if (photos.empty()) return all;
  for (const Size& s : kSizes) {
    const std::string path = photos + "/photo-" + s.name() + ".rgb";
    std::ifstream file(path, std::ios::binary);
    Frame f{"photo", s, Bytes(s.pixels() * 3), {}};
    if (!file.read(reinterpret_cast<char*>(f.rgb24.data()), static_cast<std::streamsize>(f.rgb24.size()))) {
      std::fprintf(stderr, "no photo %s: photo frames skipped\n", path.c_str());
      continue;
    }
    f.yuv422 = encode(f.rgb24, s);
    if (!f.yuv422.empty()) all.push_back(std::move(f));
  }
  return all;
}

// --- the pairs ----------------------------------------------------------------

// A libyuv route over a whole frame: (source, destination, size).
using Route = std::function<void(const uint8_t*, uint8_t*, const Size&)>;

struct Pair {
  std::string name;
  Convert ours;
  uint16_t in_format, out_format;
  int out_bytes;
  std::vector<std::pair<std::string, Route>> peers;
};

// A temporary buffer of at least `n` bytes, kept between calls so that no
// route allocates inside the timed loop after its first run.
uint8_t* scratch(std::size_t slot, std::size_t n) {
  static std::vector<Bytes> buffers(4);
  if (buffers[slot].size() < n) buffers[slot].resize(n);
  return buffers[slot].data();
}

std::vector<Pair> pairs() {
  std::vector<Pair> p;
  p.push_back({"YUV422 to RGBX32", PIX_YUV422_to_RGBX32, PIX_YUV422, PIX_RGBX32, 4, {}});
  p.push_back({"YUV422 to BGRX32", PIX_YUV422_to_BGRX32, PIX_YUV422, PIX_BGRX32, 4, {}});
  p.push_back({"YUV422 to XBGR32", PIX_YUV422_to_XBGR32, PIX_YUV422, PIX_XBGR32, 4, {}});
  p.push_back({"YUV422 to XRGB32", PIX_YUV422_to_XRGB32, PIX_YUV422, PIX_XRGB32, 4, {}});
  p.push_back({"YUV422 to RGB24", PIX_YUV422_to_RGB24, PIX_YUV422, PIX_RGB24, 3, {}});
  p.push_back({"YUV422 to Y8", PIX_YUV422_to_Y8, PIX_YUV422, PIX_Y8, 1, {}});
  p.push_back({"RGB24 to YUV422", PIX_convert_to_YUV422, PIX_RGB24, PIX_YUV422, 2, {}});
  p.push_back({"RGB24 to Y8", PIX_convert_to_Y8, PIX_RGB24, PIX_Y8, 1, {}});
#ifdef PIX95_HAVE_LIBYUV
  using namespace libyuv;
  for (int i = 0; i < 4; ++i) {
    p[i].peers.emplace_back("YUY2ToARGB", [](const uint8_t* src, uint8_t* dst, const Size& s) {
      YUY2ToARGB(src, 2 * s.width, dst, 4 * s.width, s.width, s.height);
    });
  }
  p[4].peers.emplace_back("YUY2ToARGB+ARGBToRAW, frames", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    uint8_t* t = scratch(0, s.pixels() * 4);
    YUY2ToARGB(src, 2 * s.width, t, 4 * s.width, s.width, s.height);
    ARGBToRAW(t, 4 * s.width, dst, 3 * s.width, s.width, s.height);
  });
  p[4].peers.emplace_back("YUY2ToARGB+ARGBToRAW, rows", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    const int w = s.width;
    uint8_t* t = scratch(1, std::size_t(w) * 4);
    for (int y = 0; y < s.height; ++y) {
      YUY2ToARGB(src + std::size_t(y) * 2 * w, 2 * w, t, 4 * w, w, 1);
      ARGBToRAW(t, 4 * w, dst + std::size_t(y) * 3 * w, 3 * w, w, 1);
    }
  });
  p[4].peers.emplace_back("YUY2ToI422+I422ToRAW, rows", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    const int w = s.width;
    uint8_t* y_row = scratch(2, std::size_t(w) * 2);
    uint8_t* u_row = y_row + w;
    uint8_t* v_row = u_row + w / 2;
    for (int y = 0; y < s.height; ++y) {
      YUY2ToI422(src + std::size_t(y) * 2 * w, 2 * w, y_row, w, u_row, w / 2, v_row, w / 2, w, 1);
      I422ToRAW(y_row, w, u_row, w / 2, v_row, w / 2, dst + std::size_t(y) * 3 * w, 3 * w, w, 1);
    }
  });
  p[5].peers.emplace_back("YUY2ToY", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    YUY2ToY(src, 2 * s.width, dst, s.width, s.width, s.height);
  });
  p[6].peers.emplace_back("RAWToARGB+ARGBToYUY2, frames", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    uint8_t* t = scratch(0, s.pixels() * 4);
    RAWToARGB(src, 3 * s.width, t, 4 * s.width, s.width, s.height);
    ARGBToYUY2(t, 4 * s.width, dst, 2 * s.width, s.width, s.height);
  });
  p[6].peers.emplace_back("RAWToARGB+ARGBToYUY2, rows", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    const int w = s.width;
    uint8_t* t = scratch(1, std::size_t(w) * 4);
    for (int y = 0; y < s.height; ++y) {
      RAWToARGB(src + std::size_t(y) * 3 * w, 3 * w, t, 4 * w, w, 1);
      ARGBToYUY2(t, 4 * w, dst + std::size_t(y) * 2 * w, 2 * w, w, 1);
    }
  });
  p[7].peers.emplace_back("RAWToJ400", [](const uint8_t* src, uint8_t* dst, const Size& s) {
    RAWToJ400(src, 3 * s.width, dst, s.width, s.width, s.height);
  });
#endif
  return p;
}

double seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

// Ours and every libyuv route, each once an iteration.  Counters: Mpixel/s
// of each side.
void run(benchmark::State& state, const Pair& pair, Frame& frame) {
  const Size& s = frame.size;
  Bytes& src = pair.in_format == PIX_YUV422 ? frame.yuv422 : frame.rgb24;
  Bytes dst(s.pixels() * pair.out_bytes);
  const uint32_t in = locked_image(pair.in_format, s, src.data());
  const uint32_t out = locked_image(pair.out_format, s, dst.data());
  const uint32_t first = pair.ours(in, out, PIX_STRIP_NEXT);
  if (PIX_IS_ERROR(first) || PIX_image_get_ptr(out, PIX_PTR_DATA) != dst.data()) {
    state.SkipWithError("the conversion failed or did not write into the caller's buffer");
  } else {
    // Side 0 is ours, side k > 0 the route k - 1; the side that goes first
    // changes from one iteration to the next, so that none always follows
    // the same one.
    const std::size_t sides = pair.peers.size() + 1;
    std::vector<double> time(sides);
    std::size_t first_side = 0;
    for (auto _ : state) {
      for (std::size_t n = 0; n < sides; ++n) {
        const std::size_t side = (first_side + n) % sides;
        const auto t0 = Clock::now();
        if (side == 0) {
          benchmark::DoNotOptimize(pair.ours(in, out, PIX_STRIP_NEXT));
        } else {
          pair.peers[side - 1].second(src.data(), dst.data(), s);
        }
        benchmark::ClobberMemory();
        time[side] += seconds(t0, Clock::now());
      }
      first_side = (first_side + 1) % sides;
    }
    const double pixels = static_cast<double>(s.pixels()) * static_cast<double>(state.iterations()) / 1e6;
    state.counters["pix95"] = pixels / time[0];
    for (std::size_t k = 1; k < sides; ++k) state.counters[pair.peers[k - 1].first] = pixels / time[k];
  }
  release(in);
  release(out);
}

std::string key(const Pair& p, const Frame& f) { return p.name + " | " + f.size.name() + " | " + f.name; }

// Prints as usual and keeps every repetition's counters.
}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args;
  const std::string photos = pixbench::photos_argument(argc, argv, args);
  int count = static_cast<int>(args.size());
  std::vector<Frame> all_frames = frames(photos);
  const std::vector<Pair> all = pairs();
  for (const Pair& p : all) {
    for (Frame& f : all_frames) {
      benchmark::RegisterBenchmark(key(p, f).c_str(), [&p, &f](benchmark::State& st) { run(st, p, f); })
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  pixbench::Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();

  std::printf("\nSummary at SIMD level %s (median Mpixel/s over the repetitions; ratio = pix95 / fastest libyuv "
              "route)\n",
              pixbench::level_name(pix::simd::active()));
  for (const Pair& p : all) {
    for (const Frame& f : all_frames) {
      const auto found = collector.rates.find(key(p, f));
      if (found == collector.rates.end()) continue;
      const auto& sides = found->second;
      const double ours = sides.count("pix95") ? pixbench::median(sides.at("pix95")) : 0;
      std::string peer_name;
      double peer = 0;
      for (const auto& [who, route] : p.peers) {
        const double rate = sides.count(who) ? pixbench::median(sides.at(who)) : 0;
        if (rate > peer) peer = rate, peer_name = who;
      }
      if (peer > 0) {
        std::printf("  %-17s %-10s %-9s pix95 %8.1f   libyuv %8.1f (%s)   ratio %.2f\n", p.name.c_str(),
                    f.size.name().c_str(), f.name.c_str(), ours, peer, peer_name.c_str(), ours / peer);
      } else {
        std::printf("  %-17s %-10s %-9s pix95 %8.1f   (no libyuv)\n", p.name.c_str(), f.size.name().c_str(),
                    f.name.c_str(), ours);
      }
    }
  }
  return 0;
}
