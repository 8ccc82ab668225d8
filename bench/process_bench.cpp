// The geometry benchmark: bilinear scaling, mirroring and quarter turns
// through the public functions, a whole frame as one strip, against libyuv
// and OpenCV (cv::setNumThreads(1)) doing the same work:
//
//   scale Y8       PIX_IP_scale          libyuv ScalePlane (kFilterBilinear), cv::resize INTER_LINEAR
//   scale RGB24    PIX_IP_scale          libyuv ARGBScale (kFilterBilinear) on 4-byte pixels: libyuv
//                                        scales no 3-byte layout, ARGB is its nearest; cv::resize CV_8UC3
//   mirror Y8      PIX_IP_mirror_image   libyuv MirrorPlane, cv::flip (around the vertical axis)
//   mirror RGB24                         libyuv RGB24Mirror, cv::flip
//   mirror RGBX32                        libyuv ARGBMirror, cv::flip
//   rotate 90 Y8   PIX_IP_rotate_image   libyuv RotatePlane90, cv::rotate ROTATE_90_CLOCKWISE
//   rotate 90 RGB24                      cv::rotate (libyuv turns no 3-byte layout)
//   rotate 90 RGBX32                     libyuv ARGBRotate, cv::rotate
//
// Scales run 1920x1080 down to 1280x720 and a 720x576 PAL frame up to
// 1920x1080; mirror runs on 1920x1080 and on the PAL frame, turns on 1920x1080.  Each pair (ours and one
// peer) is a benchmark of its own: both run once an iteration on the same
// source, each into its own destination, the side that goes first changing
// each iteration, single thread, so both see the same machine load.  Rates
// are Mpixel/s of output.
//
// Frames: "photo" is DIR/photo-1920x1080.rgb (raw RGB24, made by tools/bench)
// when --photos=DIR is given, its middle 720x576 the PAL frame; otherwise
// "synthetic" pseudo-random bytes.  None of the kernels depends on the
// values, so one frame kind is measured.  Run with --benchmark_repetitions=N:
// the summary gives the median rate of each side and the ratio pix95 / peer.
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
#ifdef PIX95_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using pixbench::Bytes;
using pixbench::Clock;
using pixbench::Size;
constexpr Size kHd{1920, 1080}, kPal{720, 576}, kSmall{1280, 720};

// The two source pictures in every layout a pair reads.
struct Frames {
  std::string kind;
  std::map<int, Bytes> hd, pal;  // by bytes per pixel: 1 grey, 3 RGB24, 4 RGBX32
};

Frames frames(const std::string& photos) {
  Frames f{"synthetic", {}, {}};
  Bytes rgb(kHd.pixels() * 3);
  std::mt19937 rng(12345);
  for (auto& b : rgb) b = static_cast<uint8_t>(rng());
  if (!photos.empty()) {
    std::ifstream file(photos + "/photo-1920x1080.rgb", std::ios::binary);
    if (file.read(reinterpret_cast<char*>(rgb.data()), static_cast<std::streamsize>(rgb.size()))) {
      f.kind = "photo";
    } else {
      std::fprintf(stderr, "no photo in %s: synthetic frames\n", photos.c_str());
    }
  }
  // The PAL frame is the middle of the big one.
  Bytes pal(kPal.pixels() * 3);
  const int x0 = (kHd.width - kPal.width) / 2, y0 = (kHd.height - kPal.height) / 2;
  for (int y = 0; y < kPal.height; ++y) {
    std::memcpy(&pal[std::size_t(y) * kPal.width * 3], &rgb[(std::size_t(y0 + y) * kHd.width + x0) * 3],
                std::size_t(kPal.width) * 3);
  }
  for (auto [from, to] : {std::pair<Bytes*, std::map<int, Bytes>*>{&rgb, &f.hd}, {&pal, &f.pal}}) {
    const std::size_t n = from->size() / 3;
    Bytes grey(n), x32(n * 4);
    for (std::size_t i = 0; i < n; ++i) {
      const uint8_t* p = &(*from)[3 * i];
      grey[i] = static_cast<uint8_t>((77 * p[0] + 150 * p[1] + 29 * p[2]) >> 8);
      std::memcpy(&x32[4 * i], p, 3);
      x32[4 * i + 3] = 0;
    }
    (*to)[1] = std::move(grey);
    (*to)[3] = *from;
    (*to)[4] = std::move(x32);
  }
  return f;
}

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
  PIX_image_set_ptr(image, PIX_PTR_DATA, nullptr);  // destroying frees even locked data
  PIX_image_destroy(image);
}

// A peer's work on one frame: (source, destination).  `bytes` is the pixel
// size it works in (4 where it stands in ARGB for RGB24).
struct Peer {
  std::string name;
  int bytes;
  std::function<void(const uint8_t*, uint8_t*)> run;
};

enum class Op { scale, mirror, rotate90 };
struct Pair {
  std::string name;
  Op op;
  uint16_t format;
  int bytes;
  Size in, out;
  std::vector<Peer> peers;
};

std::vector<Pair> pairs() {
  std::vector<Pair> all;
  const struct {
    const char* name;
    uint16_t format;
    int bytes;
  } kFormats[] = {{"Y8", PIX_Y8, 1}, {"RGB24", PIX_RGB24, 3}, {"RGBX32", PIX_RGBX32, 4}};
  for (const auto& f : kFormats) {
    if (f.bytes != 4) {
      all.push_back({"scale down " + std::string(f.name), Op::scale, f.format, f.bytes, kHd, kSmall, {}});
      all.push_back({"scale up " + std::string(f.name), Op::scale, f.format, f.bytes, kPal, kHd, {}});
    }
    all.push_back({"mirror " + std::string(f.name), Op::mirror, f.format, f.bytes, kHd, kHd, {}});
    all.push_back({"mirror " + std::string(f.name), Op::mirror, f.format, f.bytes, kPal, kPal, {}});
    all.push_back({"rotate90 " + std::string(f.name), Op::rotate90, f.format, f.bytes, kHd, {kHd.height, kHd.width},
                   {}});
  }
  for (Pair& p : all) {
    const Size in = p.in, out = p.out;
    const int b = p.bytes;
    (void)in, (void)out, (void)b;
#ifdef PIX95_HAVE_LIBYUV
    using namespace libyuv;
    switch (p.op) {
      case Op::scale:
        if (b == 1) {
          p.peers.push_back({"libyuv ScalePlane", 1, [=](const uint8_t* s, uint8_t* d) {
                               ScalePlane(s, in.width, in.width, in.height, d, out.width, out.width, out.height,
                                          kFilterBilinear);
                             }});
        } else {
          p.peers.push_back({"libyuv ARGBScale", 4, [=](const uint8_t* s, uint8_t* d) {
                               ARGBScale(s, 4 * in.width, in.width, in.height, d, 4 * out.width, out.width,
                                         out.height, kFilterBilinear);
                             }});
        }
        break;
      case Op::mirror:
        if (b == 1) {
          p.peers.push_back({"libyuv MirrorPlane", 1, [=](const uint8_t* s, uint8_t* d) {
                               MirrorPlane(s, in.width, d, in.width, in.width, in.height);
                             }});
        } else if (b == 3) {
          p.peers.push_back({"libyuv RGB24Mirror", 3, [=](const uint8_t* s, uint8_t* d) {
                               RGB24Mirror(s, 3 * in.width, d, 3 * in.width, in.width, in.height);
                             }});
        } else {
          p.peers.push_back({"libyuv ARGBMirror", 4, [=](const uint8_t* s, uint8_t* d) {
                               ARGBMirror(s, 4 * in.width, d, 4 * in.width, in.width, in.height);
                             }});
        }
        break;
      case Op::rotate90:
        if (b == 1) {
          p.peers.push_back({"libyuv RotatePlane90", 1, [=](const uint8_t* s, uint8_t* d) {
                               RotatePlane90(s, in.width, d, out.width, in.width, in.height);
                             }});
        } else if (b == 4) {
          p.peers.push_back({"libyuv ARGBRotate", 4, [=](const uint8_t* s, uint8_t* d) {
                               ARGBRotate(s, 4 * in.width, d, 4 * out.width, in.width, in.height, kRotate90);
                             }});
        }
        break;
    }
#endif
#ifdef PIX95_HAVE_OPENCV
    const int type = CV_8UC(b);
    std::function<void(const uint8_t*, uint8_t*)> cv_run;
    switch (p.op) {
      case Op::scale:
        cv_run = [=](const uint8_t* s, uint8_t* d) {
          const cv::Mat src(in.height, in.width, type, const_cast<uint8_t*>(s));
          cv::Mat dst(out.height, out.width, type, d);
          cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_LINEAR);
        };
        break;
      case Op::mirror:
        cv_run = [=](const uint8_t* s, uint8_t* d) {
          const cv::Mat src(in.height, in.width, type, const_cast<uint8_t*>(s));
          cv::Mat dst(out.height, out.width, type, d);
          cv::flip(src, dst, 1);
        };
        break;
      case Op::rotate90:
        cv_run = [=](const uint8_t* s, uint8_t* d) {
          const cv::Mat src(in.height, in.width, type, const_cast<uint8_t*>(s));
          cv::Mat dst(out.height, out.width, type, d);
          cv::rotate(src, dst, cv::ROTATE_90_CLOCKWISE);
        };
        break;
    }
    p.peers.push_back({"OpenCV", b, cv_run});
#endif
  }
  return all;
}

double seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

uint32_t ours(const Pair& p, uint32_t in, uint32_t out) {
  switch (p.op) {
    case Op::scale:
      return PIX_IP_scale(in, out, static_cast<uint32_t>(p.out.width), static_cast<uint32_t>(p.out.height),
                          PIX_STRIP_NEXT);
    case Op::mirror: return PIX_IP_mirror_image(in, out, PIX_STRIP_NEXT);
    case Op::rotate90: return PIX_IP_rotate_image(in, out, 90);
  }
  return 0;
}

// Ours and one peer (none when `peer` is null), each once an iteration, the
// side that goes first alternating: every pair is measured on its own, so no
// third side's cache traffic falls on one of the two more than the other.
void run(benchmark::State& state, const Pair& pair, const Peer* peer, Frames& frames) {
  auto& sources = pair.in.width == kPal.width ? frames.pal : frames.hd;
  Bytes& src = sources[pair.bytes];
  Bytes dst(pair.out.pixels() * pair.bytes);
  Bytes peer_dst(peer ? pair.out.pixels() * peer->bytes : 0);
  const uint32_t in = locked_image(pair.format, pair.in, src.data());
  const uint32_t out = locked_image(pair.format, pair.out, dst.data());
  const uint32_t first = ours(pair, in, out);
  if (PIX_IS_ERROR(first) || PIX_image_get_ptr(out, PIX_PTR_DATA) != dst.data()) {
    state.SkipWithError("the operation failed or did not write into the caller's buffer");
  } else {
    const std::size_t sides = peer ? 2 : 1;
    double time[2] = {0, 0};
    std::size_t first_side = 0;
    for (auto _ : state) {
      for (std::size_t n = 0; n < sides; ++n) {
        const std::size_t side = (first_side + n) % sides;
        const auto t0 = Clock::now();
        if (side == 0) {
          benchmark::DoNotOptimize(ours(pair, in, out));
        } else {
          peer->run(sources[peer->bytes].data(), peer_dst.data());
        }
        benchmark::ClobberMemory();
        time[side] += seconds(t0, Clock::now());
      }
      first_side = (first_side + 1) % sides;
    }
    const double pixels = static_cast<double>(pair.out.pixels()) * static_cast<double>(state.iterations()) / 1e6;
    state.counters["pix95"] = pixels / time[0];
    if (peer) state.counters["peer"] = pixels / time[1];
  }
  release(in);
  release(out);
}

std::string key(const Pair& p, const Peer* peer, const Frames& f) {
  return p.name + " | " + p.in.name() + " to " + p.out.name() + " | " + f.kind + " | " +
         (peer ? peer->name : std::string("alone"));
}

}  // namespace

int main(int argc, char** argv) {
#ifdef PIX95_HAVE_OPENCV
  cv::setNumThreads(1);
#endif
  std::vector<char*> args;
  const std::string photos = pixbench::photos_argument(argc, argv, args);
  int count = static_cast<int>(args.size());
  Frames all_frames = frames(photos);
  const std::vector<Pair> all = pairs();
  for (const Pair& p : all) {
    std::vector<const Peer*> peers;
    for (const Peer& peer : p.peers) peers.push_back(&peer);
    if (peers.empty()) peers.push_back(nullptr);
    for (const Peer* peer : peers) {
      benchmark::RegisterBenchmark(key(p, peer, all_frames).c_str(),
                                   [&p, peer, &all_frames](benchmark::State& st) { run(st, p, peer, all_frames); })
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  pixbench::Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();

  std::printf("\nSummary at SIMD level %s, %s frames (median Mpixel/s of output over the repetitions; "
              "ratio = pix95 / peer)\n",
              pixbench::level_name(pix::simd::active()), all_frames.kind.c_str());
  for (const Pair& p : all) {
    const std::string size = p.in.name() + ">" + p.out.name();
    auto rate = [&](const Peer* peer, const char* side) {
      const auto found = collector.rates.find(key(p, peer, all_frames));
      return found == collector.rates.end() || !found->second.count(side) ? 0.0 : pixbench::median(found->second.at(side));
    };
    if (p.peers.empty() && rate(nullptr, "pix95") > 0) {
      std::printf("  %-16s %-19s pix95 %8.1f   (no peer)\n", p.name.c_str(), size.c_str(), rate(nullptr, "pix95"));
    }
    for (const Peer& peer : p.peers) {
      const double us = rate(&peer, "pix95"), them = rate(&peer, "peer");
      if (us == 0) continue;  // not run
      std::printf("  %-16s %-19s pix95 %8.1f   %-20s %8.1f   ratio %.2f\n", p.name.c_str(), size.c_str(), us,
                  peer.name.c_str(), them, them > 0 ? us / them : 0.0);
    }
  }
  return 0;
}
