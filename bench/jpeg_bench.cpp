// The JPEG benchmark: the codec against libjpeg-turbo's TurboJPEG API, in
// one process, single thread, both sides on the same frames, interleaved
// within every iteration (the side that goes first alternates).  Pairs:
//
//   4:2:2 decode to PIX_YUV422        tjDecompressToYUV2 (planar 4:2:2)
//   4:2:2 decode to PIX_RGB24         tjDecompress2 to RGB
//   4:2:2 encode from PIX_YUV422      tjCompressFromYUV (planar 4:2:2)
//   4:2:2 encode from PIX_RGB24       tjCompress2 from RGB
//   grey encode / decode              the same with TJSAMP_GRAY
//   2x2 decode to PIX_YUV422          tjDecompressToYUV2 of the same 4:2:0 stream
//                                     (whole 16-line block rows: 1072 of 1080 lines)
//   file decode: PIX_JPEG_file_read + decode to RGB24    the file's bytes read + tjDecompress2
//   file encode: encode from RGB24 + PIX_JPEG_file_write tjCompress2 + fwrite
//
// each at TurboJPEG quality 75 against the library's default Q scale 32, and
// 90 against Q scale 80 (the same tables, so the same file sizes within a
// few percent), TJFLAG_ACCURATEDCT (the integer transforms); the library
// both on whole frames and in 16-line strips, as grabbers stream.  Both
// decoders read the same stream, made by TurboJPEG.  Files live in /dev/shm
// where there is one (the pairs measure the codec, not the disk).
// Frames: "card" (colour bars, a grey ramp, a zone plate) and "photo"
// (DIR/photo-WIDTHxHEIGHT.rgb, raw RGB24 made by tools/bench, when
// --photos=DIR is given), at 640x480 and 1920x1080.  The summary gives the
// medians of the repetitions and the ratio ours / TurboJPEG.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pairs.h"
#include "pix95.h"

namespace {

using pixbench::Bytes;
using pixbench::Clock;
using pixbench::Size;
constexpr Size kSizes[] = {{640, 480}, {1920, 1080}};
constexpr int kStrip = 16;

uint32_t locked(uint16_t format, const Size& s, uint8_t* data, int lines) {
  const uint32_t h = PIX_image_create();
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, static_cast<uint32_t>(s.width));
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, static_cast<uint32_t>(s.height));
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(lines));
  PIX_image_set_ptr(h, PIX_PTR_DATA, data);
  PIX_image_set_flags(h, PIX_FLAG_LOCKED, 1);
  return h;
}
void release(uint32_t h) {
  PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(h);
}

std::string scratch_file(const std::string& name) {
  static const std::string dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return dir + "/pix95-jpeg-bench-" + std::to_string(getpid()) + "-" + name;
}

// One picture in every form the pairs take, and TurboJPEG's streams of it.
struct Frame {
  std::string name;
  Size size;
  Bytes rgb, yuv422, grey, planar422;
  std::map<std::string, Bytes> streams;  // by layout and quality, e.g. "422-75"
};

Bytes library_convert(Bytes rgb, const Size& s, uint16_t to) {
  Bytes out(s.pixels() * (to == PIX_Y8 ? 1 : 2));
  const uint32_t in = locked(PIX_RGB24, s, rgb.data(), s.height), o = locked(to, s, out.data(), s.height);
  const uint32_t r = to == PIX_Y8 ? PIX_convert_to_Y8(in, o, PIX_STRIP_NEXT) : PIX_convert_to_YUV422(in, o, PIX_STRIP_NEXT);
  release(in), release(o);
  return PIX_IS_ERROR(r) ? Bytes{} : out;
}

// The 2x2 decoder takes whole 16-line block rows only, and a whole picture is
// one strip of its height padded to 8: its pair runs on the frame's top
// height / 16 x 16 lines (1072 of 1080).
Size coded_size(const Size& s, int sampling) {
  return sampling == TJSAMP_420 ? Size{s.width, s.height / 16 * 16} : s;
}

Bytes tj_stream(const Frame& f, int sampling, int quality) {
  tjhandle h = tjInitCompress();
  const Size s = coded_size(f.size, sampling);
  unsigned long size = tjBufSize(s.width, s.height, sampling);
  Bytes out(size);
  unsigned char* buf = out.data();
  const int pf = sampling == TJSAMP_GRAY ? TJPF_GRAY : TJPF_RGB;
  const uint8_t* src = sampling == TJSAMP_GRAY ? f.grey.data() : f.rgb.data();
  const int pitch = f.size.width * (sampling == TJSAMP_GRAY ? 1 : 3);
  if (tjCompress2(h, src, s.width, pitch, s.height, pf, &buf, &size, sampling, quality,
                  TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) != 0) {
    size = 0;
  }
  tjDestroy(h);
  out.resize(size);
  return out;
}

Frame make_frame(std::string name, const Size& s, Bytes rgb) {
  Frame f{std::move(name), s, rgb, library_convert(rgb, s, PIX_YUV422), library_convert(rgb, s, PIX_Y8), {}, {}};
  const std::size_t n = s.pixels();
  f.planar422.resize(2 * n);
  for (std::size_t i = 0; i < n / 2; ++i) {  // packed Y0 U Y1 V to planes
    f.planar422[2 * i] = f.yuv422[4 * i], f.planar422[2 * i + 1] = f.yuv422[4 * i + 2];
    f.planar422[n + i] = f.yuv422[4 * i + 1], f.planar422[n + n / 2 + i] = f.yuv422[4 * i + 3];
  }
  for (int q : {75, 90}) {
    f.streams["422-" + std::to_string(q)] = tj_stream(f, TJSAMP_422, q);
    f.streams["grey-" + std::to_string(q)] = tj_stream(f, TJSAMP_GRAY, q);
    f.streams["420-" + std::to_string(q)] = tj_stream(f, TJSAMP_420, q);
  }
  return f;
}

std::vector<Frame> frames(const std::string& photos) {
  std::vector<Frame> all;
  for (const Size& s : kSizes) all.push_back(make_frame("card", s, pixbench::card(s)));
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

enum class Layout { s422, grey, s420 };
enum class Form { yuv, rgb };  // what the library side takes or gives

struct Pair {
  std::string name;
  bool encode;
  Layout layout;
  Form form;
  int quality;       // TurboJPEG's; the library's Q scale is 32 for 75 and 80 for 90
  int strip;         // the library's strip lines, 0 for the whole frame
  bool file = false;
};

int sampling(Layout l) { return l == Layout::grey ? TJSAMP_GRAY : l == Layout::s420 ? TJSAMP_420 : TJSAMP_422; }
const char* tag(Layout l) { return l == Layout::grey ? "grey" : l == Layout::s420 ? "420" : "422"; }
uint16_t q_scale(int quality) { return quality == 90 ? 80 : 32; }

// Each side codes one frame.
struct Sides {
  std::function<bool()> ours, theirs;
  std::function<void()> done;
};

Sides encoder(const Pair& pair, Frame& f) {
  const Size s = f.size;
  const bool grey = pair.layout == Layout::grey;
  Bytes* src = grey ? &f.grey : pair.form == Form::rgb ? &f.rgb : &f.yuv422;
  const uint16_t format = grey ? PIX_Y8 : pair.form == Form::rgb ? PIX_RGB24 : PIX_YUV422;
  const std::size_t line = src->size() / s.height;
  const int lines = pair.strip == 0 ? s.height : pair.strip;
  const uint32_t image = locked(format, s, src->data(), lines);
  const uint32_t jpeg = PIX_JPEG_image_create();
  PIX_JPEG_set_Quality_factor(jpeg, q_scale(pair.quality));
  const std::string path = scratch_file(pair.name + ".jpg");
  PIX_image_set_outfilename(image, path.c_str());
  auto out = std::make_shared<Bytes>(tjBufSize(s.width, s.height, sampling(pair.layout)));
  tjhandle tj = tjInitCompress();
  Sides sides;
  sides.ours = [=] {
    bool ok = true;
    for (int y = 0; y < s.height && ok; y += lines) {
      PIX_image_set_ptr(image, PIX_PTR_DATA, src->data() + std::size_t(y) * line);
      PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(lines));
      ok = PIX_JPEG_compress(image, jpeg, PIX_STRIP_NEXT) == 0;
      if (ok && pair.file) {
        if (y == 0) PIX_JPEG_make_Q_tables(jpeg), PIX_JPEG_set_default_H_tables(jpeg);
        ok = PIX_JPEG_file_write(jpeg, PIX_STRIP_NEXT) == 0;
      }
    }
    return ok;
  };
  sides.theirs = [=] {
    unsigned char* buf = out->data();
    unsigned long size = out->size();
    const int flags = TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC;
    bool ok;
    if (pair.form == Form::rgb) {
      ok = tjCompress2(tj, f.rgb.data(), s.width, s.width * 3, s.height, TJPF_RGB, &buf, &size,
                       sampling(pair.layout), pair.quality, flags) == 0;
    } else {
      ok = tjCompressFromYUV(tj, grey ? f.grey.data() : f.planar422.data(), s.width, 1, s.height,
                             sampling(pair.layout), &buf, &size, pair.quality, flags) == 0;
    }
    if (ok && pair.file) {
      FILE* file = std::fopen((path + ".tj").c_str(), "wb");
      ok = file != nullptr && std::fwrite(buf, 1, size, file) == size;
      if (file != nullptr) ok = std::fclose(file) == 0 && ok;
    }
    return ok;
  };
  sides.done = [=] {
    release(image);
    PIX_image_destroy(jpeg);
    tjDestroy(tj);
    std::remove(path.c_str());
    std::remove((path + ".tj").c_str());
  };
  return sides;
}

Sides decoder(const Pair& pair, Frame& f) {
  const Size s = coded_size(f.size, sampling(pair.layout));
  const Bytes& stream = f.streams[std::string(tag(pair.layout)) + "-" + std::to_string(pair.quality)];
  const bool grey = pair.layout == Layout::grey;
  const uint16_t format = grey ? PIX_Y8 : pair.form == Form::rgb ? PIX_RGB24 : PIX_YUV422;
  const int bytes = grey ? 1 : pair.form == Form::rgb ? 3 : 2;
  // The decoder keeps the block-padded size: the destination has room for it.
  const Size padded{(s.width + 15) / 16 * 16, (s.height + 15) / 16 * 16};
  const int lines = pair.strip == 0 ? padded.height : pair.strip;
  auto out = std::make_shared<Bytes>(padded.pixels() * bytes);
  auto theirs_out = std::make_shared<Bytes>(s.pixels() * 3);
  const uint32_t dest = locked(format, padded, out->data(), lines);
  const uint32_t jpeg = PIX_JPEG_image_create();
  const std::string path = scratch_file(pair.name + ".jpg");
  if (pair.file) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file != nullptr) std::fwrite(stream.data(), 1, stream.size(), file), std::fclose(file);
    PIX_image_set_infilename(jpeg, path.c_str());
  }
  auto copy = std::make_shared<Bytes>(stream);
  const bool in_memory = pair.file || PIX_JPEG_buffer_read(jpeg, copy->data(), static_cast<int32_t>(copy->size())) == 0;
  tjhandle tj = tjInitDecompress();
  Sides sides;
  sides.ours = [=] {
    if (!in_memory) return false;
    if (pair.file && PIX_JPEG_file_read(jpeg) != 0) return false;
    const uint32_t height = (PIX_image_get_parameter(jpeg, PIX_IMAGE_HEIGHT) + 15) / 16 * 16;
    for (uint32_t done = 0; done < height; done += static_cast<uint32_t>(lines)) {
      PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, static_cast<uint32_t>(lines));
      if (PIX_JPEG_decompress(jpeg, dest, PIX_STRIP_NEXT) != 0) return false;
      if (PIX_image_get_parameter(jpeg, PIX_IMAGE_HEIGHT) <= done + static_cast<uint32_t>(lines)) break;
    }
    return true;
  };
  sides.theirs = [=] {
    Bytes file_bytes;
    const Bytes* in = copy.get();
    if (pair.file) {
      std::FILE* file = std::fopen(path.c_str(), "rb");
      if (file == nullptr) return false;
      file_bytes.resize(copy->size());
      const bool read = std::fread(file_bytes.data(), 1, file_bytes.size(), file) == file_bytes.size();
      std::fclose(file);
      if (!read) return false;
      in = &file_bytes;
    }
    if (pair.form == Form::rgb) {
      return tjDecompress2(tj, in->data(), in->size(), theirs_out->data(), s.width, s.width * 3, s.height, TJPF_RGB,
                           TJFLAG_ACCURATEDCT) == 0;
    }
    return tjDecompressToYUV2(tj, in->data(), in->size(), theirs_out->data(), s.width, 1, s.height,
                              TJFLAG_ACCURATEDCT) == 0;
  };
  sides.done = [=, keep = out] {  // the destination's buffer lives as long as the sides
    (void)keep;
    PIX_image_destroy(jpeg);
    release(dest);
    tjDestroy(tj);
    if (pair.file) std::remove(path.c_str());
  };
  return sides;
}

const std::vector<Pair>& pairs() {
  static const std::vector<Pair> all = {
      {"4:2:2 decode to YUV422 q75", false, Layout::s422, Form::yuv, 75, 0},
      {"4:2:2 decode to YUV422 q90", false, Layout::s422, Form::yuv, 90, 0},
      {"4:2:2 decode to YUV422 strips", false, Layout::s422, Form::yuv, 75, kStrip},
      {"4:2:2 decode to RGB24", false, Layout::s422, Form::rgb, 75, 0},
      {"4:2:2 encode from YUV422 q75", true, Layout::s422, Form::yuv, 75, 0},
      {"4:2:2 encode from YUV422 q90", true, Layout::s422, Form::yuv, 90, 0},
      {"4:2:2 encode from YUV422 strips", true, Layout::s422, Form::yuv, 75, kStrip},
      {"4:2:2 encode from RGB24", true, Layout::s422, Form::rgb, 75, 0},
      {"grey decode", false, Layout::grey, Form::yuv, 75, 0},
      {"grey encode", true, Layout::grey, Form::yuv, 75, 0},
      {"2x2 decode to YUV422", false, Layout::s420, Form::yuv, 75, 0},
      {"file decode to RGB24", false, Layout::s422, Form::rgb, 75, 0, true},
      {"file encode from RGB24", true, Layout::s422, Form::rgb, 75, 0, true},
  };
  return all;
}

std::string key(const Pair& p, const Frame& f) { return p.name + " | " + f.size.name() + " | " + f.name; }
std::map<std::string, bool> failed;  // pairs that were run and a side of which failed

void run(benchmark::State& state, const Pair& pair, Frame& frame) {
  Sides sides = pair.encode ? encoder(pair, frame) : decoder(pair, frame);
  if (!sides.ours() || !sides.theirs()) {
    state.SkipWithError("a side failed");
    failed[key(pair, frame)] = true;
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
  const double mpixels = static_cast<double>(coded_size(frame.size, sampling(pair.layout)).pixels()) * static_cast<double>(state.iterations()) / 1e6;
  state.counters["pix95"] = mpixels / time[0];
  state.counters["turbojpeg"] = mpixels / time[1];
  sides.done();
}

// What memory alone allows: a 1920x1080 4:2:2 frame read and written once
// (memcpy), the least any codec stage that touches every sample must take.
void memory_floor() {
  const Size s = kSizes[1];
  Bytes from(s.pixels() * 2, 1), to(s.pixels() * 2);
  double best = 1e9;
  for (int i = 0; i < 50; ++i) {
    const auto t0 = Clock::now();
    std::memcpy(to.data(), from.data(), to.size());
    benchmark::DoNotOptimize(to.data());
    best = std::min(best, std::chrono::duration<double>(Clock::now() - t0).count());
  }
  std::printf("\nMemory floor: a %s 4:2:2 frame copied once takes %.2f ms (%.0f Mpixel/s)\n", s.name().c_str(),
              best * 1e3, static_cast<double>(s.pixels()) / best / 1e6);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args;
  const std::string photos = pixbench::photos_argument(argc, argv, args);
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
  pixbench::Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  std::printf("\nSummary (median Mpixel/s over the repetitions; ratio = pix95 / TurboJPEG)\n");
  for (const Pair& p : pairs()) {
    for (const Frame& f : all) {
      const auto found = collector.rates.find(key(p, f));
      if (found == collector.rates.end()) {
        if (!failed.count(key(p, f))) continue;  // not run (filtered out)
        std::printf("  %-32s %-10s %-6s (a side failed)\n", p.name.c_str(), f.size.name().c_str(), f.name.c_str());
        continue;
      }
      const double ours = pixbench::median(found->second["pix95"]), theirs = pixbench::median(found->second["turbojpeg"]);
      std::printf("  %-32s %-10s %-6s pix95 %8.1f   TurboJPEG %8.1f   ratio %.2f\n", p.name.c_str(),
                  f.size.name().c_str(), f.name.c_str(), ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
  }
  memory_floor();
  return 0;
}
