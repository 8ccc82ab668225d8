// The JPEG benchmark: the codec against libjpeg-turbo's TurboJPEG API, in
// one process, single thread, both sides on the same frames and buffers,
// interleaved within every iteration (the side that goes first alternates).
//
//   4:2:2 encode   PIX_JPEG_compress from PIX_YUV422     tjCompressFromYUV (planar 4:2:2)
//   4:2:2 decode   PIX_JPEG_decompress to PIX_YUV422     tjDecompressToYUV2 (planar 4:2:2)
//   grey encode    PIX_JPEG_compress from PIX_Y8         tjCompressFromYUV, TJSAMP_GRAY
//   grey decode    PIX_JPEG_decompress to PIX_Y8         tjDecompressToYUV2 of the grey stream
//
// Whole frames as one strip, at the library's default Q scale 32 against
// TurboJPEG quality 75 (the same tables), TJFLAG_ACCURATEDCT (the integer
// transform).  Both decoders read the same stream, made by TurboJPEG.
// Frames: "synthetic" (a smooth picture with edges and noise) and "photo"
// (DIR/photo-WIDTHxHEIGHT.rgb, raw RGB24 made by tools/bench, when
// --photos=DIR is given).  The summary gives medians of the repetitions.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "pix95.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

struct Size {
  int width, height;
  std::string name() const { return std::to_string(width) + "x" + std::to_string(height); }
  std::size_t pixels() const { return static_cast<std::size_t>(width) * height; }
};
constexpr Size kSizes[] = {{640, 480}, {1920, 1080}};

uint32_t locked(uint16_t format, const Size& s, uint8_t* data) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, static_cast<uint32_t>(s.width));
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, static_cast<uint32_t>(s.height));
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(s.height));
  PIX_image_set_ptr(h, PIX_PTR_DATA, data);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  return h;
}
void release(uint32_t h) {
  PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(h);
}

// One picture as the codecs take it: packed YUV 4:2:2 and grey for us,
// planar 4:2:2 for TurboJPEG, and TurboJPEG's streams of both.
struct Frame {
  std::string name;
  Size size;
  Bytes yuv422, grey, planar;
  Bytes stream422, stream_grey;
};

Bytes library_convert(Bytes rgb, const Size& s, uint16_t to) {
  Bytes out(s.pixels() * (to == PIX_Y8 ? 1 : 2));
  const uint32_t in = locked(PIX_RGB24, s, rgb.data()), o = locked(to, s, out.data());
  const uint32_t r = to == PIX_Y8 ? PIX_convert_to_Y8(in, o, PIX_STRIP_NEXT) : PIX_convert_to_YUV422(in, o, PIX_STRIP_NEXT);
  release(in), release(o);
  return PIX_IS_ERROR(r) ? Bytes{} : out;
}

Bytes tj_encode(const uint8_t* planes, const Size& s, int sampling) {
  tjhandle h = tjInitCompress();
  unsigned long size = tjBufSize(s.width, s.height, sampling);
  Bytes out(size);
  unsigned char* buf = out.data();
  if (tjCompressFromYUV(h, planes, s.width, 1, s.height, sampling, &buf, &size, 75,
                        TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) != 0) {
    size = 0;
  }
  tjDestroy(h);
  out.resize(size);
  return out;
}

Frame make_frame(std::string name, const Size& s, Bytes rgb) {
  Frame f{std::move(name), s, library_convert(rgb, s, PIX_YUV422), library_convert(rgb, s, PIX_Y8), {}, {}, {}};
  // Packed Y0 U Y1 V to planes.
  const std::size_t n = s.pixels();
  f.planar.resize(2 * n);
  for (std::size_t i = 0; i < n / 2; ++i) {
    f.planar[2 * i] = f.yuv422[4 * i], f.planar[2 * i + 1] = f.yuv422[4 * i + 2];
    f.planar[n + i] = f.yuv422[4 * i + 1], f.planar[n + n / 2 + i] = f.yuv422[4 * i + 3];
  }
  f.stream422 = tj_encode(f.planar.data(), s, TJSAMP_422);
  f.stream_grey = tj_encode(f.grey.data(), s, TJSAMP_GRAY);
  return f;
}

std::vector<Frame> frames(const std::string& photos) {
  std::vector<Frame> all;
  for (const Size& s : kSizes) {
    Bytes rgb(s.pixels() * 3);
    std::mt19937 rng(3);
    for (int y = 0; y < s.height; ++y) {
      for (int x = 0; x < s.width; ++x) {
        for (int c = 0; c < 3; ++c) {
          double v = 128 + 70 * std::sin(x * 0.011 * (c + 1) + y * 0.006) * std::cos(y * 0.017 - x * 0.003 * c);
          if ((x / 160 + y / 120) % 3 == 0) v = 255 - v;
          rgb[(std::size_t(y) * s.width + x) * 3 + c] = static_cast<uint8_t>(std::clamp(v + rng() % 7, 0.0, 255.0));
        }
      }
    }
    all.push_back(make_frame("synthetic", s, std::move(rgb)));
  }
  if (photos.empty()) return all;
  for (const Size& s : kSizes) {
    std::ifstream in(photos + "/photo-" + s.name() + ".rgb", std::ios::binary);
    Bytes rgb(s.pixels() * 3);
    if (!in.read(reinterpret_cast<char*>(rgb.data()), static_cast<std::streamsize>(rgb.size()))) continue;
    all.push_back(make_frame("photo", s, std::move(rgb)));
  }
  return all;
}

// --- the pairs --------------------------------------------------------------

// Each side codes one frame; the pair knows how to set both up.
struct Sides {
  std::function<bool()> ours, theirs;
  std::function<void()> done = [] {};
};
struct Pair {
  std::string name;
  std::function<Sides(Frame&)> make;
};

Sides encode(Frame& f, bool grey) {
  auto state = std::make_shared<std::pair<uint32_t, uint32_t>>();
  Bytes& src = grey ? f.grey : f.yuv422;
  state->first = locked(grey ? PIX_Y8 : PIX_YUV422, f.size, src.data());
  state->second = PIX_JPEG_image_create();
  auto out = std::make_shared<Bytes>(tjBufSize(f.size.width, f.size.height, TJSAMP_422));
  tjhandle tj = tjInitCompress();
  const Size s = f.size;
  const uint8_t* planes = grey ? f.grey.data() : f.planar.data();
  Sides sides;
  sides.ours = [state] { return PIX_JPEG_compress(state->first, state->second, PIX_STRIP_NEXT) == 0; };
  sides.theirs = [tj, out, s, planes, grey] {
    unsigned char* buf = out->data();
    unsigned long size = out->size();
    return tjCompressFromYUV(tj, planes, s.width, 1, s.height, grey ? TJSAMP_GRAY : TJSAMP_422, &buf, &size, 75,
                             TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) == 0;
  };
  sides.done = [state, tj] {
    release(state->first);
    PIX_image_destroy(state->second);
    tjDestroy(tj);
  };
  return sides;
}

Sides decode(Frame& f, bool grey) {
  Bytes& stream = grey ? f.stream_grey : f.stream422;
  auto out = std::make_shared<Bytes>(f.size.pixels() * 2 + 64 * 1024);
  auto planes = std::make_shared<Bytes>(f.size.pixels() * 2 + 64 * 1024);
  const uint32_t jpeg = PIX_JPEG_image_create();
  const bool read = PIX_JPEG_buffer_read(jpeg, stream.data(), static_cast<int32_t>(stream.size())) == 0;
  const Size s = f.size;
  // The decoder keeps the block-padded size: the output buffer has room.
  Size padded{(s.width + 15) / 16 * 16, (s.height + 7) / 8 * 8};
  const uint32_t dest = locked(grey ? PIX_Y8 : PIX_YUV422, padded, out->data());
  const uint32_t height = PIX_image_get_parameter(jpeg, PIX_IMAGE_HEIGHT);
  tjhandle tj = tjInitDecompress();
  const uint8_t* bytes = stream.data();
  const unsigned long size = stream.size();
  Sides sides;
  sides.ours = [jpeg, dest, height, read] {
    PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, height);
    return read && PIX_JPEG_decompress(jpeg, dest, PIX_STRIP_NEXT) == 0;
  };
  sides.theirs = [tj, bytes, size, planes, s] {
    return tjDecompressToYUV2(tj, bytes, size, planes->data(), s.width, 1, s.height, TJFLAG_ACCURATEDCT) == 0;
  };
  sides.done = [jpeg, dest, tj, out] {  // the destination's buffer lives as long as the sides
    PIX_image_destroy(jpeg);
    release(dest);
    tjDestroy(tj);
  };
  return sides;
}

const std::vector<Pair>& pairs() {
  static const std::vector<Pair> p = {
      {"4:2:2 encode", [](Frame& f) { return encode(f, false); }},
      {"4:2:2 decode", [](Frame& f) { return decode(f, false); }},
      {"grey encode", [](Frame& f) { return encode(f, true); }},
      {"grey decode", [](Frame& f) { return decode(f, true); }},
  };
  return p;
}

void run(benchmark::State& state, const Pair& pair, Frame& frame) {
  Sides sides = pair.make(frame);
  if (!sides.ours() || !sides.theirs()) {
    state.SkipWithError("a side failed");
    sides.done();
    return;
  }
  double time[2] = {0, 0};
  int first = 0;
  for (auto _ : state) {
    for (int n = 0; n < 2; ++n) {
      const int side = (first + n) % 2;
      const auto t0 = Clock::now();
      benchmark::DoNotOptimize(side == 0 ? sides.ours() : sides.theirs());
      time[side] += std::chrono::duration<double>(Clock::now() - t0).count();
    }
    first ^= 1;
  }
  const double mpixels = static_cast<double>(frame.size.pixels()) * static_cast<double>(state.iterations()) / 1e6;
  state.counters["pix95"] = mpixels / time[0];
  state.counters["turbojpeg"] = mpixels / time[1];
  sides.done();
}

std::string key(const Pair& p, const Frame& f) { return p.name + " | " + f.size.name() + " | " + f.name; }

class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, std::map<std::string, std::vector<double>>> rates;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      // Repetitions, or their median when only aggregates are reported.
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if (r.run_type != Run::RT_Iteration && !median) continue;
      std::string name = r.benchmark_name();
      if (median) name = name.substr(0, name.size() - std::string("_median").size());
      for (const auto& [side, value] : r.counters) rates[name][side].push_back(value);
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n == 0 ? 0 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string photos;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--photos=", 9) == 0) photos = argv[i] + 9;
    else args.push_back(argv[i]);
  }
  int count = static_cast<int>(args.size());
  std::vector<Frame> all = frames(photos);
  for (const Pair& p : pairs()) {
    for (Frame& f : all) {
      benchmark::RegisterBenchmark(key(p, f).c_str(), [&p, &f](benchmark::State& st) { run(st, p, f); })
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  std::printf("\nSummary (median Mpixel/s over the repetitions; ratio = pix95 / TurboJPEG)\n");
  for (const Pair& p : pairs()) {
    for (const Frame& f : all) {
      const auto found = collector.rates.find(key(p, f));
      if (found == collector.rates.end()) continue;
      const double ours = median(found->second["pix95"]), theirs = median(found->second["turbojpeg"]);
      std::printf("  %-13s %-10s %-9s pix95 %8.1f   TurboJPEG %8.1f   ratio %.2f\n", p.name.c_str(),
                  f.size.name().c_str(), f.name.c_str(), ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
  }
  return 0;
}
