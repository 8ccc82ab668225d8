// YUV 4:2:2 conversions through the public functions, a whole frame as one
// strip, against libyuv doing the same work on the same memory layouts:
//
//   to BGRX32   PIX_YUV422_to_BGRX32      libyuv YUY2ToARGB (B G R A in memory)
//   to RGB24    PIX_YUV422_to_RGB24       libyuv has no direct route: YUY2ToARGB + ARGBToRAW, or
//                                         YUY2ToI422 + I422ToRAW (RAW is R G B in memory)
//   to Y8       PIX_YUV422_to_Y8          libyuv YUY2ToY
//   from RGB24  PIX_convert_to_YUV422     libyuv RAWToARGB + ARGBToYUY2
//
// Two-step libyuv routes run both over whole frames and row by row through a
// one-row buffer that stays in cache; the faster is the one compared.  The
// library's images are locked onto the caller's buffers, as a grabber's
// frames are, so neither side allocates inside the loop.  Rates are Mpixel/s
// of CPU time; after the runs a summary line per pair gives ours / libyuv.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "pix95.h"
#ifdef PIX95_HAVE_LIBYUV
#include <libyuv.h>
#endif

namespace {

struct Size {
  int width, height;
  std::string name() const { return std::to_string(width) + "x" + std::to_string(height); }
};
constexpr Size kSizes[] = {{640, 480}, {1920, 1080}};

std::vector<uint8_t> random_bytes(std::size_t n) {
  std::vector<uint8_t> v(n);
  std::mt19937 rng(12345);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

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

void set_rate(benchmark::State& state, const Size& s) {
  state.counters["Mpix/s"] =
      benchmark::Counter(static_cast<double>(s.width) * s.height / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

// One public conversion of a whole frame per iteration.
using Convert = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);
void run_pix95(benchmark::State& state, Convert convert, uint16_t in_format, int in_bytes, uint16_t out_format,
               int out_bytes, Size s) {
  std::vector<uint8_t> src = random_bytes(static_cast<std::size_t>(s.width) * s.height * in_bytes);
  std::vector<uint8_t> dst(static_cast<std::size_t>(s.width) * s.height * out_bytes);
  const uint32_t in = locked_image(in_format, s, src.data());
  const uint32_t out = locked_image(out_format, s, dst.data());
  const uint32_t first = convert(in, out, PIX_STRIP_NEXT);
  if (PIX_IS_ERROR(first) || PIX_image_get_ptr(out, PIX_PTR_DATA) != dst.data()) {
    state.SkipWithError("the conversion failed or did not write into the caller's buffer");
  } else {
    for (auto _ : state) {
      benchmark::DoNotOptimize(convert(in, out, PIX_STRIP_NEXT));
      benchmark::ClobberMemory();
    }
  }
  // Destroying an image frees its data even when locked: take the buffers back.
  PIX_image_set_ptr(in, PIX_PTR_DATA, nullptr);
  PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(in);
  PIX_image_destroy(out);
  set_rate(state, s);
}

#ifdef PIX95_HAVE_LIBYUV
// libyuv from `in_bytes` to `out_bytes` per pixel; `step(src, dst, rows)`
// converts `rows` rows.  Two-step routes get the temporary they need.
void run_libyuv(benchmark::State& state, int in_bytes, int out_bytes, Size s,
                const std::function<void(const uint8_t*, uint8_t*, int)>& step) {
  std::vector<uint8_t> src = random_bytes(static_cast<std::size_t>(s.width) * s.height * in_bytes);
  std::vector<uint8_t> dst(static_cast<std::size_t>(s.width) * s.height * out_bytes);
  for (auto _ : state) {
    step(src.data(), dst.data(), s.height);
    benchmark::ClobberMemory();
  }
  set_rate(state, s);
}
#endif

// --- the pairs ----------------------------------------------------------------

struct Pair {
  std::string name;  // the summary's label
  std::function<void(benchmark::State&, Size)> ours;
  std::vector<std::pair<std::string, std::function<void(benchmark::State&, Size)>>> peers;
};

std::vector<Pair> pairs() {
  std::vector<Pair> p;
  p.push_back({"YUV422 to BGRX32",
               [](benchmark::State& st, Size s) { run_pix95(st, PIX_YUV422_to_BGRX32, PIX_YUV422, 2, PIX_BGRX32, 4, s); },
               {}});
  p.push_back({"YUV422 to RGB24",
               [](benchmark::State& st, Size s) { run_pix95(st, PIX_YUV422_to_RGB24, PIX_YUV422, 2, PIX_RGB24, 3, s); },
               {}});
  p.push_back({"YUV422 to Y8",
               [](benchmark::State& st, Size s) { run_pix95(st, PIX_YUV422_to_Y8, PIX_YUV422, 2, PIX_Y8, 1, s); }, {}});
  p.push_back({"RGB24 to YUV422",
               [](benchmark::State& st, Size s) { run_pix95(st, PIX_convert_to_YUV422, PIX_RGB24, 3, PIX_YUV422, 2, s); },
               {}});
#ifdef PIX95_HAVE_LIBYUV
  using libyuv::ARGBToRAW;
  using libyuv::ARGBToYUY2;
  using libyuv::I422ToRAW;
  using libyuv::RAWToARGB;
  using libyuv::YUY2ToARGB;
  using libyuv::YUY2ToI422;
  using libyuv::YUY2ToY;
  p[0].peers.emplace_back("YUY2ToARGB", [](benchmark::State& st, Size s) {
    run_libyuv(st, 2, 4, s, [w = s.width](const uint8_t* src, uint8_t* dst, int rows) {
      YUY2ToARGB(src, 2 * w, dst, 4 * w, w, rows);
    });
  });
  p[1].peers.emplace_back("YUY2ToARGB+ARGBToRAW, frames", [](benchmark::State& st, Size s) {
    std::vector<uint8_t> argb(static_cast<std::size_t>(s.width) * s.height * 4);
    run_libyuv(st, 2, 3, s, [w = s.width, t = argb.data()](const uint8_t* src, uint8_t* dst, int rows) {
      YUY2ToARGB(src, 2 * w, t, 4 * w, w, rows);
      ARGBToRAW(t, 4 * w, dst, 3 * w, w, rows);
    });
  });
  p[1].peers.emplace_back("YUY2ToARGB+ARGBToRAW, rows", [](benchmark::State& st, Size s) {
    std::vector<uint8_t> argb(static_cast<std::size_t>(s.width) * 4);
    run_libyuv(st, 2, 3, s, [w = s.width, t = argb.data()](const uint8_t* src, uint8_t* dst, int rows) {
      for (int y = 0; y < rows; ++y) {
        YUY2ToARGB(src + static_cast<std::size_t>(y) * 2 * w, 2 * w, t, 4 * w, w, 1);
        ARGBToRAW(t, 4 * w, dst + static_cast<std::size_t>(y) * 3 * w, 3 * w, w, 1);
      }
    });
  });
  p[1].peers.emplace_back("YUY2ToI422+I422ToRAW, rows", [](benchmark::State& st, Size s) {
    std::vector<uint8_t> planes(static_cast<std::size_t>(s.width) * 2);
    run_libyuv(st, 2, 3, s, [w = s.width, t = planes.data()](const uint8_t* src, uint8_t* dst, int rows) {
      uint8_t* y_row = t;
      uint8_t* u_row = t + w;
      uint8_t* v_row = t + w + w / 2;
      for (int y = 0; y < rows; ++y) {
        YUY2ToI422(src + static_cast<std::size_t>(y) * 2 * w, 2 * w, y_row, w, u_row, w / 2, v_row, w / 2, w, 1);
        I422ToRAW(y_row, w, u_row, w / 2, v_row, w / 2, dst + static_cast<std::size_t>(y) * 3 * w, 3 * w, w, 1);
      }
    });
  });
  p[2].peers.emplace_back("YUY2ToY", [](benchmark::State& st, Size s) {
    run_libyuv(st, 2, 1, s, [w = s.width](const uint8_t* src, uint8_t* dst, int rows) {
      YUY2ToY(src, 2 * w, dst, w, w, rows);
    });
  });
  p[3].peers.emplace_back("RAWToARGB+ARGBToYUY2, frames", [](benchmark::State& st, Size s) {
    std::vector<uint8_t> argb(static_cast<std::size_t>(s.width) * s.height * 4);
    run_libyuv(st, 3, 2, s, [w = s.width, t = argb.data()](const uint8_t* src, uint8_t* dst, int rows) {
      RAWToARGB(src, 3 * w, t, 4 * w, w, rows);
      ARGBToYUY2(t, 4 * w, dst, 2 * w, w, rows);
    });
  });
  p[3].peers.emplace_back("RAWToARGB+ARGBToYUY2, rows", [](benchmark::State& st, Size s) {
    std::vector<uint8_t> argb(static_cast<std::size_t>(s.width) * 4);
    run_libyuv(st, 3, 2, s, [w = s.width, t = argb.data()](const uint8_t* src, uint8_t* dst, int rows) {
      for (int y = 0; y < rows; ++y) {
        RAWToARGB(src + static_cast<std::size_t>(y) * 3 * w, 3 * w, t, 4 * w, w, 1);
        ARGBToYUY2(t, 4 * w, dst + static_cast<std::size_t>(y) * 2 * w, 2 * w, w, 1);
      }
    });
  });
#endif
  return p;
}

std::string key(const std::string& pair, const std::string& who, const Size& s) {
  return pair + " | " + who + " | " + s.name();
}

// Prints as usual and keeps the best rate of every benchmark.
class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> best;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      const auto c = r.counters.find("Mpix/s");
      if (c == r.counters.end()) continue;
      double& b = best[r.benchmark_name()];
      b = std::max(b, static_cast<double>(c->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Pair> all = pairs();
  for (const Pair& p : all) {
    for (const Size& s : kSizes) {
      benchmark::RegisterBenchmark(key(p.name, "pix95", s).c_str(), [&p, s](benchmark::State& st) { p.ours(st, s); });
      for (const auto& [who, run] : p.peers) {
        benchmark::RegisterBenchmark(key(p.name, "libyuv " + who, s).c_str(),
                                     [&run, s](benchmark::State& st) { run(st, s); });
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();

  std::printf("\nSummary (Mpixel/s; ratio = pix95 / fastest libyuv route)\n");
  for (const Pair& p : all) {
    for (const Size& s : kSizes) {
      const auto ours = collector.best.find(key(p.name, "pix95", s));
      if (ours == collector.best.end()) continue;
      std::string peer_name;
      double peer = 0;
      for (const auto& [who, run] : p.peers) {
        const auto it = collector.best.find(key(p.name, "libyuv " + who, s));
        if (it != collector.best.end() && it->second > peer) peer = it->second, peer_name = who;
      }
      if (peer > 0) {
        std::printf("  %-17s %-10s pix95 %8.1f   libyuv %8.1f (%s)   ratio %.2f\n", p.name.c_str(), s.name().c_str(),
                    ours->second, peer, peer_name.c_str(), ours->second / peer);
      } else {
        std::printf("  %-17s %-10s pix95 %8.1f   (no libyuv)\n", p.name.c_str(), s.name().c_str(), ours->second);
      }
    }
  }
  return 0;
}
