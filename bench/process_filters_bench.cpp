// The processing benchmark: the 3x3 filter, the grey threshold, the HSI
// histograms, chroma keying, the field functions and the pseudo-colour views,
// through the public functions, a whole frame as one strip, each against a
// peer doing the same work on the same memory:
//
//   filter 3x3 Y8 / RGB24     cv::filter2D, the same kernel over its sum (OpenCV
//                             rounds where the library truncates: same work)
//   threshold                 cv::threshold (binary; the library has two bounds)
//   HSI histograms            cv::calcHist of the hue (16-bit, 360 bins), the
//                             saturation and the intensity planes (256 bins each)
//   chroma key, fields, interlace, pseudo-colour
//                             the memory floor: a plain loop, line by line, that
//                             reads and writes as many bytes (a background frame
//                             read is a second line read)
//
// Every iteration runs both sides once, the side that goes first alternating,
// on the same buffers, single thread (cv::setNumThreads(1)).  The library's
// images are locked onto the buffers, so nothing allocates in the loop.
// Frames: "synthetic" (pseudo-random bytes: every pair differs from its
// neighbours, the worst case of chroma keying's soft edges), "card" (colour
// bars, a grey ramp and a zone plate) and "photo" (DIR/photo-1920x1080.rgb,
// raw RGB24 made by tools/bench, when --photos=DIR is given; 720x576 is its
// top-left corner), made into grey, YUV 4:2:2 and HSI by the library.  Run with
// --benchmark_repetitions=N: the summary gives the median rate of each side
// over the repetitions and their ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/simd.h"
#include "pairs.h"
#include "pix95.h"
#ifdef PIX95_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using pixbench::Bytes;
using pixbench::Clock;
using pixbench::Size;
constexpr Size kSizes[] = {{720, 576}, {1920, 1080}};

uint32_t locked(uint16_t format, const Size& s, uint8_t* data) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, static_cast<uint32_t>(s.width));
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, static_cast<uint32_t>(s.height));
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(s.height));
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 1);
  PIX_image_set_ptr(h, PIX_PTR_DATA, data);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  return h;
}
void release(uint32_t h) {
  // Destroying an image frees its data even when locked: take the buffer back.
  PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(h);
}

// One picture in every layout the pairs read.
struct Frame {
  std::string name;
  Size size;
  Bytes rgb24, y8, yuv422, hsi, background;  // the background: another YUV 4:2:2 frame
};

using Convert = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);
Bytes library(Convert f, Bytes src, uint16_t from, uint16_t to, std::size_t bytes, const Size& s) {
  Bytes out(s.pixels() * bytes);
  const uint32_t in = locked(from, s, src.data()), o = locked(to, s, out.data());
  const uint32_t r = f(in, o, PIX_STRIP_NEXT);
  release(in), release(o);
  return PIX_IS_ERROR(r) ? Bytes{} : out;
}

Frame make_frame(std::string name, const Size& s, Bytes rgb, Bytes background_rgb) {
  Frame f{std::move(name), s, std::move(rgb), {}, {}, {}, {}};
  f.y8 = library(PIX_convert_to_Y8, f.rgb24, PIX_RGB24, PIX_Y8, 1, s);
  f.yuv422 = library(PIX_convert_to_YUV422, f.rgb24, PIX_RGB24, PIX_YUV422, 2, s);
  f.hsi = library(PIX_YUV422_to_HSI, f.yuv422, PIX_YUV422, PIX_HSI, 4, s);
  f.background = library(PIX_convert_to_YUV422, std::move(background_rgb), PIX_RGB24, PIX_YUV422, 2, s);
  return f;
}

std::vector<Frame> frames(const std::string& photos) {
  std::vector<Frame> all;
  std::mt19937 rng(12345);
  auto noise = [&](const Size& s) {
    Bytes b(s.pixels() * 3);
    for (auto& v : b) v = static_cast<uint8_t>(rng());
    return b;
  };
  for (const Size& s : kSizes) all.push_back(make_frame("synthetic", s, noise(s), noise(s)));
  // The card over the card upside down.
  for (const Size& s : kSizes) {
    Bytes c = pixbench::card(s), flipped(c.size());
    const std::size_t line = std::size_t(3) * s.width;
    for (int y = 0; y < s.height; ++y) std::memcpy(&flipped[(s.height - 1 - y) * line], &c[y * line], line);
    all.push_back(make_frame("card", s, std::move(c), std::move(flipped)));
  }
  if (photos.empty()) return all;
  const Size big = kSizes[1];
  const std::string path = photos + "/photo-" + big.name() + ".rgb";
  std::ifstream file(path, std::ios::binary);
  Bytes photo(big.pixels() * 3);
  if (!file.read(reinterpret_cast<char*>(photo.data()), static_cast<std::streamsize>(photo.size()))) {
    std::fprintf(stderr, "no photo %s: photo frames skipped\n", path.c_str());
    return all;
  }
  for (const Size& s : kSizes) {
    Bytes corner(s.pixels() * 3), flipped(s.pixels() * 3);
    for (int y = 0; y < s.height; ++y) {
      std::memcpy(corner.data() + std::size_t(y) * 3 * s.width, photo.data() + std::size_t(y) * 3 * big.width,
                  std::size_t(3) * s.width);
      // The background: the same corner upside down.
      std::memcpy(flipped.data() + std::size_t(s.height - 1 - y) * 3 * s.width,
                  photo.data() + std::size_t(y) * 3 * big.width, std::size_t(3) * s.width);
    }
    all.push_back(make_frame("photo", s, std::move(corner), std::move(flipped)));
  }
  return all;
}

// --- the memory floor -----------------------------------------------------------

// Line by line: `in` bytes read from each source line (a second source when
// given) and `out` bytes written, with plain copies.  Where the two counts
// differ the short side is copied again from the line just touched, which
// stays in the first-level cache.
void floor_lines(const uint8_t* src, const uint8_t* second, std::size_t in, uint8_t* dst, std::size_t out,
                 int lines) {
  for (int y = 0; y < lines; ++y, src += in, dst += out) {
    if (out >= in) {
      std::memcpy(dst, src, in);
      for (std::size_t done = in; done < out; done += in) std::memcpy(dst + done, src, std::min(in, out - done));
    } else {
      std::memcpy(dst, src, out);
      for (std::size_t done = out; done < in; done += out) std::memcpy(dst, src + done, std::min(out, in - done));
    }
    if (second != nullptr) {
      std::memcpy(dst, second, std::min(in, out));
      second += in;
    }
    benchmark::ClobberMemory();
  }
}

// --- the pairs ------------------------------------------------------------------

// Both sides of one pair on one frame, with what they need kept alive.
struct Sides {
  std::function<uint32_t()> ours;
  std::function<void()> theirs;
  std::vector<uint32_t> images;
  std::vector<std::shared_ptr<Bytes>> buffers;
  uint32_t chroma_key = 0;
  ~Sides() {
    for (uint32_t h : images) release(h);
    if (chroma_key != 0) PIX_CK_destroy(chroma_key);
  }
};

struct Pair {
  std::string name;
  std::string peer;  // "OpenCV" or "floor"
  std::function<void(Frame&, Sides&)> make;
};

uint8_t* buffer(Sides& s, std::size_t bytes) {
  s.buffers.push_back(std::make_shared<Bytes>(bytes, 0));
  return s.buffers.back()->data();
}
uint32_t image(Sides& s, uint16_t format, const Size& size, uint8_t* data) {
  s.images.push_back(locked(format, size, data));
  return s.images.back();
}

// A kernel and its sum.
struct Kernel {
  const char* name;
  int16_t k[9];
};
constexpr Kernel kSmooth{"smooth", {1, 2, 1, 2, 4, 2, 1, 2, 1}};
constexpr Kernel kSharpen{"sharpen", {0, -1, 0, -1, 5, -1, 0, -1, 0}};
constexpr Kernel kWide{"wide", {100, 200, 100, 200, 400, 200, 100, 200, 100}};  // sums beyond 16 bits

Pair filter_pair(uint16_t format, const Kernel& kernel) {
  const bool rgb = format == PIX_RGB24;
  return {std::string("filter 3x3 ") + (rgb ? "RGB24 " : "Y8 ") + kernel.name, "OpenCV", [=](Frame& f, Sides& s) {
            const Size& z = f.size;
            const std::size_t bpp = rgb ? 3 : 1, bytes = z.pixels() * bpp;
            Bytes& from = rgb ? f.rgb24 : f.y8;
            // The library claims one line more than the frame in a run's last strip.
            uint8_t* out = buffer(s, bytes + z.width * bpp);
            const uint32_t in = image(s, format, z, from.data()), o = image(s, format, z, out);
            auto k = std::make_shared<std::array<int16_t, 9>>();
            std::copy(kernel.k, kernel.k + 9, k->begin());
            s.ours = [=] { return PIX_IP_filter_3x3(in, o, k->data(), PIX_STRIP_NEXT); };
#ifdef PIX95_HAVE_OPENCV
            int sum = 0;
            for (int16_t c : kernel.k) sum += c;
            cv::Mat kf(3, 3, CV_32F);
            for (int i = 0; i < 9; ++i) kf.at<float>(i / 3, i % 3) = float(kernel.k[i]) / float(sum);
            const int type = rgb ? CV_8UC3 : CV_8UC1;
            const cv::Mat src(z.height, z.width, type, from.data()), dst(z.height, z.width, type, out);
            s.theirs = [=]() mutable { cv::filter2D(src, dst, -1, kf, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE); };
#endif
          }};
}

Pair threshold_pair() {
  return {"threshold", "OpenCV", [](Frame& f, Sides& s) {
            const Size& z = f.size;
            uint8_t* out = buffer(s, z.pixels());
            const uint32_t in = image(s, PIX_Y8, z, f.y8.data()), o = image(s, PIX_Y8, z, out);
            s.ours = [=] { return PIX_IP_threshold_grayscale(in, o, 170, 60, PIX_STRIP_NEXT); };
#ifdef PIX95_HAVE_OPENCV
            const cv::Mat src(z.height, z.width, CV_8UC1, f.y8.data()), dst(z.height, z.width, CV_8UC1, out);
            s.theirs = [=]() mutable { cv::threshold(src, dst, 128, 255, cv::THRESH_BINARY); };
#endif
          }};
}

Pair histogram_pair() {
  return {"HSI histograms", "OpenCV", [](Frame& f, Sides& s) {
            const Size& z = f.size;
            const uint32_t in = image(s, PIX_HSI, z, f.hsi.data());
            auto h = std::make_shared<tPIX_Histogram>();
            s.ours = [=] { return PIX_IP_histogram_generate(in, h.get(), PIX_STRIP_NEXT); };
#ifdef PIX95_HAVE_OPENCV
            const cv::Mat words(z.height, z.width, CV_16UC2, f.hsi.data());
            const cv::Mat bytes(z.height, z.width, CV_8UC4, f.hsi.data());
            auto hist = std::make_shared<std::array<cv::Mat, 3>>();
            s.theirs = [=] {
              const int hue_channel = 0, bins_h = 360, bins = 256;
              const float hue_range[] = {0, 360}, range[] = {0, 256};
              const float* hr = hue_range;
              const float* r = range;
              cv::calcHist(&words, 1, &hue_channel, cv::Mat(), (*hist)[0], 1, &bins_h, &hr);
              for (int c = 2; c < 4; ++c) cv::calcHist(&bytes, 1, &c, cv::Mat(), (*hist)[c - 1], 1, &bins, &r);
            };
#endif
          }};
}

Pair key_pair(bool soft, bool background) {
  return {std::string("chroma key ") + (soft ? "soft " : "hard ") + (background ? "background" : "flat colour"),
          "floor", [=](Frame& f, Sides& s) {
            const Size& z = f.size;
            const std::size_t bytes = z.pixels() * 2, line = std::size_t(z.width) * 2;
            uint8_t* out = buffer(s, bytes);
            const uint32_t in = image(s, PIX_YUV422, z, f.yuv422.data()), o = image(s, PIX_YUV422, z, out);
            const uint32_t bg = background ? image(s, PIX_YUV422, z, f.background.data()) : 0;
            // A range around grey, which keys a good share of a photograph.
            s.chroma_key = PIX_CK_create();
            PIX_CK_set_parameter(s.chroma_key, PIX_CK_HUE_CENTRE, 240);
            PIX_CK_set_parameter(s.chroma_key, PIX_CK_HUE_HALF_WIDTH, 60);
            PIX_CK_set_parameter(s.chroma_key, PIX_CK_LUMA_CENTRE, 128);
            PIX_CK_set_parameter(s.chroma_key, PIX_CK_LUMA_HALF_WIDTH, 100);
            const uint32_t ck = s.chroma_key;
            s.ours = [=] { return PIX_CK_chroma_key(in, o, bg, 10, ck, soft ? 1 : 0, PIX_STRIP_NEXT); };
            const uint8_t* src = f.yuv422.data();
            const uint8_t* second = background ? f.background.data() : nullptr;
            s.theirs = [=] { floor_lines(src, second, line, out, line, z.height); };
          }};
}

Pair fields_pair() {
  return {"2 fields to frame", "floor", [](Frame& f, Sides& s) {
            const Size& z = f.size;
            const Size field{z.width, z.height / 2};
            const std::size_t line = std::size_t(z.width) * 2, half = field.pixels() * 2;
            uint8_t* out = buffer(s, 2 * half);
            const uint32_t a = image(s, PIX_YUV422, field, f.yuv422.data());
            const uint32_t b = image(s, PIX_YUV422, field, f.yuv422.data() + half), o = image(s, PIX_YUV422, z, out);
            s.ours = [=] { return PIX_SPL_2fields_to_frame(a, b, o, PIX_STRIP_NEXT); };
            const uint8_t* src = f.yuv422.data();
            s.theirs = [=] {
              for (int y = 0; y < field.height; ++y) {
                std::memcpy(out + 2 * y * line, src + y * line, line);
                std::memcpy(out + (2 * y + 1) * line, src + half + y * line, line);
              }
            };
          }};
}

Pair interlace_pair() {
  return {"interlace frame", "floor", [](Frame& f, Sides& s) {
            const Size& z = f.size;
            const std::size_t line = std::size_t(z.width) * 2;
            uint8_t* out = buffer(s, z.pixels() * 2);
            const uint32_t in = image(s, PIX_YUV422, z, f.yuv422.data()), o = image(s, PIX_YUV422, z, out);
            PIX_image_set_parameter(in, PIX_FIELD_ORDER, 4);
            s.ours = [=] { return PIX_SPL_interlace_frame(in, o, PIX_STRIP_NEXT); };
            const uint8_t* src = f.yuv422.data();
            s.theirs = [=] { floor_lines(src, nullptr, line, out, line, z.height); };
          }};
}

Pair pseudo_pair(const char* name, Convert ours, uint16_t from, std::size_t in_bytes, uint16_t to,
                 std::size_t out_bytes) {
  return {name, "floor", [=](Frame& f, Sides& s) {
            const Size& z = f.size;
            Bytes& src = from == PIX_Y8 ? f.y8 : from == PIX_HSI ? f.hsi : f.yuv422;
            uint8_t* out = buffer(s, z.pixels() * out_bytes);
            const uint32_t in = image(s, from, z, src.data()), o = image(s, to, z, out);
            s.ours = [=] { return ours(in, o, PIX_STRIP_NEXT); };
            const uint8_t* p = src.data();
            s.theirs = [=] { floor_lines(p, nullptr, z.width * in_bytes, out, z.width * out_bytes, z.height); };
          }};
}

uint32_t PIX_CALL y8_pseudo(uint32_t in, uint32_t out, uint16_t command) {
  return PIX_SPL_Y8_to_pseudo_colour(in, out, 0, command);
}

const std::vector<Pair>& pairs() {
  static const std::vector<Pair> all = {
      filter_pair(PIX_Y8, kSmooth),
      filter_pair(PIX_Y8, kSharpen),
      filter_pair(PIX_Y8, kWide),
      filter_pair(PIX_RGB24, kSmooth),
      filter_pair(PIX_RGB24, kWide),
      threshold_pair(),
      histogram_pair(),
      key_pair(false, true),
      key_pair(false, false),
      key_pair(true, true),
      key_pair(true, false),
      fields_pair(),
      interlace_pair(),
      pseudo_pair("pseudo-colour YUV422", PIX_SPL_YUV422_to_RGB_pseudo_colour, PIX_YUV422, 2, PIX_RGB24, 3),
      pseudo_pair("pseudo-colour HSI", PIX_SPL_HSI_to_RGB_pseudo_colour, PIX_HSI, 4, PIX_RGB24, 3),
      pseudo_pair("pseudo-colour Y8", y8_pseudo, PIX_Y8, 1, PIX_RGB16, 2),
  };
  return all;
}

std::string key(const Pair& p, const Frame& f) { return p.name + " | " + f.size.name() + " | " + f.name; }

void run(benchmark::State& state, const Pair& pair, Frame& frame) {
  Sides sides;
  pair.make(frame, sides);
  if (!sides.theirs) {
    state.SkipWithError("no peer in this build");
    return;
  }
  if (PIX_IS_ERROR(sides.ours())) {
    state.SkipWithError("the library's side failed");
    return;
  }
  double time[2] = {0, 0};
  int first = 0;
  for (auto _ : state) {
    for (int n = 0; n < 2; ++n) {
      const int side = (first + n) % 2;
      const auto t0 = Clock::now();
      if (side == 0) {
        benchmark::DoNotOptimize(sides.ours());
      } else {
        sides.theirs();
      }
      benchmark::ClobberMemory();
      time[side] += std::chrono::duration<double>(Clock::now() - t0).count();
    }
    first ^= 1;
  }
  const double mpixels = static_cast<double>(frame.size.pixels()) * static_cast<double>(state.iterations()) / 1e6;
  state.counters["pix95"] = mpixels / time[0];
  state.counters[pair.peer] = mpixels / time[1];
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args;
  const std::string photos = pixbench::photos_argument(argc, argv, args);
#ifdef PIX95_HAVE_OPENCV
  cv::setNumThreads(1);
#endif
  int count = static_cast<int>(args.size());
  std::vector<Frame> all = frames(photos);
  for (const Pair& p : pairs()) {
    for (Frame& f : all) {
      benchmark::RegisterBenchmark(key(p, f).c_str(), [&p, &f](benchmark::State& st) { run(st, p, f); })
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  pixbench::Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  std::printf("\nSummary at SIMD level %s (median Mpixel/s over the repetitions; ratio = pix95 / peer; the floor "
              "is a plain copy of as many bytes)\n",
              pixbench::level_name(pix::simd::active()));
  for (const Pair& p : pairs()) {
    for (const Frame& f : all) {
      const auto found = collector.rates.find(key(p, f));
      if (found == collector.rates.end()) continue;
      const double ours = pixbench::median(found->second["pix95"]), theirs = pixbench::median(found->second[p.peer]);
      std::printf("  %-32s %-10s %-9s pix95 %8.1f   %-6s %8.1f   ratio %.2f\n", p.name.c_str(), f.size.name().c_str(),
                  f.name.c_str(), ours, p.peer.c_str(), theirs, theirs > 0 ? ours / theirs : 0.0);
    }
  }
  return 0;
}
