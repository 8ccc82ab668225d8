// A 1920x1080 frame shown through each Linux display path, beside the floors
// of the same bytes: plain XPutImage and XShmPutImage to the same window
// (each followed by a round trip, as the library's frames are), and memcpy
// for a cairo image surface.  Run under an X server of at least 1920x1080
// (tools/bench starts Xvfb); frames per second per side.
#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "display/backend_x11.h"
#include "pix95.h"

namespace {

using namespace pix::display::x11;
constexpr int kW = 1920, kH = 1080;

struct Scene {
  X11State* s = connect();
  Window window = 0;
  uint32_t frame = 0, dib = 0;
  Scene() {
    if (s == nullptr) return;
    window = s->call.XCreateSimpleWindow(s->display, s->call.XRootWindow(s->display, 0), 0, 0, kW, kH, 0, 0, 0);
    s->call.XMapWindow(s->display, window);
    s->call.XSync(s->display, False);
    frame = PIX_image_create();  // BGRX32, the screen's layout, one strip
    for (auto [id, v] : {std::pair{PIX_IMAGE_FORMAT, PIX_BGRX32}, {PIX_IMAGE_WIDTH, kW}, {PIX_IMAGE_HEIGHT, kH},
                         {PIX_LINES_THIS_STRIP, kH}})
      PIX_image_set_parameter(frame, uint16_t(id), uint32_t(v));
    PIX_image_malloc_a_strip(frame);
    auto* p = static_cast<uint8_t*>(PIX_image_get_ptr(frame, PIX_PTR_DATA));
    for (std::size_t i = 0; i < std::size_t(kW) * kH * 4; ++i) p[i] = uint8_t(i * 7 + i / 7777);
    dib = PIX_image_create();
    PIX_convert_to_DIB_w31(frame, dib, 0, PIX_STRIP_NEXT);
  }
  uint8_t* bytes() const { return static_cast<uint8_t*>(PIX_image_get_ptr(frame, PIX_PTR_DATA)); }
};
Scene& scene() {
  static Scene s;
  return s;
}

void ours(benchmark::State& state, uint32_t flags, bool image_surface) {
  Scene& sc = scene();
  if (sc.s == nullptr) return state.SkipWithError("no X display");
  const uint32_t d = PIX_display_create();
  cairo_surface_t* surface = nullptr;
  cairo_t* cr = nullptr;
  if (image_surface) {
    surface = sc.s->call.cairo_image_surface_create(CAIRO_FORMAT_RGB24, kW, kH);
    cr = sc.s->call.cairo_create(surface);
    PIX_display_set_paint_hDC(d, cr);
  }
  PIX_display_init(d, to_handle(sc.window));
  PIX_display_set_flags(d, flags, 1);
  for (auto _ : state) {
    if (PIX_display_image(d, image_surface ? sc.dib : sc.frame, PIX_STRIP_NEXT) != 0) state.SkipWithError("display failed");
    if (!image_surface && (flags & PIX_DISPLAY_FLAG_DIRECT_DRAW) == 0) sc.s->call.XSync(sc.s->display, False);
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  PIX_display_destroy(d);
  if (cr != nullptr) sc.s->call.cairo_destroy(cr), sc.s->call.cairo_surface_destroy(surface);
}

void BM_Bitmaps(benchmark::State& state) { ours(state, PIX_DISPLAY_FLAG_DEFAULT, false); }
void BM_SharedMemory(benchmark::State& state) { ours(state, PIX_DISPLAY_FLAG_DIRECT_DRAW, false); }
void BM_DibOnImageSurface(benchmark::State& state) { ours(state, PIX_DISPLAY_FLAG_DEFAULT, true); }

XImage plain_image(X11State& s, char* data) {
  XImage image{};
  image.width = kW, image.height = kH, image.format = ZPixmap, image.data = data;
  image.byte_order = LSBFirst, image.bitmap_unit = 32, image.bitmap_bit_order = LSBFirst, image.bitmap_pad = 32;
  image.depth = 24, image.bits_per_pixel = 32, image.bytes_per_line = kW * 4;
  s.call.XInitImage(&image);
  return image;
}

void BM_FloorXPutImage(benchmark::State& state) {
  Scene& sc = scene();
  if (sc.s == nullptr) return state.SkipWithError("no X display");
  X11State& s = *sc.s;
  XImage image = plain_image(s, reinterpret_cast<char*>(sc.bytes()));
  GC gc = s.call.XCreateGC(s.display, sc.window, 0, nullptr);
  for (auto _ : state) {
    s.call.XPutImage(s.display, sc.window, gc, &image, 0, 0, 0, 0, kW, kH);
    s.call.XSync(s.display, False);
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  s.call.XFreeGC(s.display, gc);
}

// With the copy into the segment (the frame comes from the grabber's
// buffer) and without (the bytes already there).
void floor_shm(benchmark::State& state, bool copy) {
  Scene& sc = scene();
  if (sc.s == nullptr || !sc.s->shm) return state.SkipWithError("no MIT-SHM");
  X11State& s = *sc.s;
  XShmSegmentInfo seg{};
  XImage* image = s.call.XShmCreateImage(s.display, s.call.XDefaultVisual(s.display, 0), 24, ZPixmap, nullptr, &seg, kW, kH);
  seg.shmid = shmget(IPC_PRIVATE, std::size_t(image->bytes_per_line) * kH, IPC_CREAT | 0600);
  seg.shmaddr = image->data = static_cast<char*>(shmat(seg.shmid, nullptr, 0));
  s.call.XShmAttach(s.display, &seg);
  s.call.XSync(s.display, False);
  shmctl(seg.shmid, IPC_RMID, nullptr);
  std::memcpy(image->data, sc.bytes(), std::size_t(kW) * kH * 4);
  GC gc = s.call.XCreateGC(s.display, sc.window, 0, nullptr);
  for (auto _ : state) {
    if (copy) std::memcpy(image->data, sc.bytes(), std::size_t(kW) * kH * 4);
    s.call.XShmPutImage(s.display, sc.window, gc, image, 0, 0, 0, 0, kW, kH, False);
    s.call.XSync(s.display, False);
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  s.call.XFreeGC(s.display, gc);
  s.call.XShmDetach(s.display, &seg);
  s.call.XSync(s.display, False);
  shmdt(seg.shmaddr);
  image->data = nullptr;
  XDestroyImage(image);
}
void BM_FloorXShmPutImage(benchmark::State& state) { floor_shm(state, false); }
void BM_FloorCopyAndXShmPutImage(benchmark::State& state) { floor_shm(state, true); }

void BM_FloorMemcpy(benchmark::State& state) {
  std::vector<uint8_t> to(std::size_t(kW) * kH * 4);
  for (auto _ : state) {
    std::memcpy(to.data(), scene().bytes(), to.size());
    benchmark::DoNotOptimize(to.data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// Each path interleaved frame by frame with its floors, so that a loaded
// machine slows both sides alike: milliseconds a frame per side, and each
// floor's time over ours (1 or more: ours is as fast as the floor).
struct Side {
  const char* name;
  std::function<void()> frame;
  double seconds = 0;
};

struct Ours {
  Scene& sc = scene();
  uint32_t d = 0;
  cairo_surface_t* surface = nullptr;
  cairo_t* cr = nullptr;
  bool image_surface;
  bool direct;
  Ours(uint32_t flags, bool image) : image_surface(image), direct((flags & PIX_DISPLAY_FLAG_DIRECT_DRAW) != 0) {
    d = PIX_display_create();
    if (image) {
      surface = sc.s->call.cairo_image_surface_create(CAIRO_FORMAT_RGB24, kW, kH);
      cr = sc.s->call.cairo_create(surface);
      PIX_display_set_paint_hDC(d, cr);
    }
    PIX_display_init(d, to_handle(sc.window));
    PIX_display_set_flags(d, flags, 1);
  }
  ~Ours() {
    PIX_display_destroy(d);
    if (cr != nullptr) sc.s->call.cairo_destroy(cr), sc.s->call.cairo_surface_destroy(surface);
  }
  // The bitmap path returns once its requests are sent: the frame is timed
  // until the server has drawn it.  The direct path returns with its put
  // already waited for (another sync would time an empty round trip).
  bool frame() {
    const bool ok = PIX_display_image(d, image_surface ? sc.dib : sc.frame, PIX_STRIP_NEXT) == 0;
    if (!image_surface && !direct) sc.s->call.XSync(sc.s->display, False);
    return ok;
  }
};

struct ShmFloor {
  X11State& s = *scene().s;
  XShmSegmentInfo seg{};
  XImage* image = nullptr;
  GC gc = nullptr;
  ShmFloor() {
    image = s.call.XShmCreateImage(s.display, s.call.XDefaultVisual(s.display, 0), 24, ZPixmap, nullptr, &seg, kW, kH);
    seg.shmid = shmget(IPC_PRIVATE, std::size_t(image->bytes_per_line) * kH, IPC_CREAT | 0600);
    seg.shmaddr = image->data = static_cast<char*>(shmat(seg.shmid, nullptr, 0));
    s.call.XShmAttach(s.display, &seg);
    s.call.XSync(s.display, False);
    shmctl(seg.shmid, IPC_RMID, nullptr);
    std::memcpy(image->data, scene().bytes(), std::size_t(kW) * kH * 4);
    gc = s.call.XCreateGC(s.display, scene().window, 0, nullptr);
  }
  ~ShmFloor() {
    s.call.XFreeGC(s.display, gc);
    s.call.XShmDetach(s.display, &seg);
    s.call.XSync(s.display, False);
    shmdt(seg.shmaddr);
    image->data = nullptr;
    XDestroyImage(image);
  }
  void frame(bool copy) {
    if (copy) std::memcpy(image->data, scene().bytes(), std::size_t(kW) * kH * 4);
    s.call.XShmPutImage(s.display, scene().window, gc, image, 0, 0, 0, 0, kW, kH, False);
    s.call.XSync(s.display, False);
  }
};

void paired(benchmark::State& state, uint32_t flags, bool image_surface) {
  Scene& sc = scene();
  if (sc.s == nullptr || !sc.s->shm) return state.SkipWithError("no X display with MIT-SHM");
  X11State& s = *sc.s;
  Ours ours(flags, image_surface);
  ShmFloor shm;
  XImage plain = plain_image(s, reinterpret_cast<char*>(sc.bytes()));
  GC gc = s.call.XCreateGC(s.display, sc.window, 0, nullptr);
  std::vector<uint8_t> to(std::size_t(kW) * kH * 4);
  bool failed = false;
  std::vector<Side> sides{
      {"ours", [&] { failed |= !ours.frame(); }},
      {"XPutImage", [&] {
         s.call.XPutImage(s.display, sc.window, gc, &plain, 0, 0, 0, 0, kW, kH);
         s.call.XSync(s.display, False);
       }},
      {"XShmPutImage", [&] { shm.frame(false); }},
      {"memcpy+XShmPutImage", [&] { shm.frame(true); }},
      {"memcpy", [&] {
         std::memcpy(to.data(), sc.bytes(), to.size());
         benchmark::DoNotOptimize(to.data());
       }},
  };
  for (auto _ : state) {
    for (Side& side : sides) {
      const auto start = std::chrono::steady_clock::now();
      side.frame();
      side.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
  }
  if (failed) state.SkipWithError("display failed");
  const double n = double(state.iterations());
  for (const Side& side : sides) {
    state.counters[std::string(side.name) + " ms"] = 1000 * side.seconds / n;
    if (&side != &sides[0]) state.counters[std::string(side.name) + "/ours"] = side.seconds / sides[0].seconds;
  }
  s.call.XFreeGC(s.display, gc);
}
void BM_PairedBitmaps(benchmark::State& state) { paired(state, PIX_DISPLAY_FLAG_DEFAULT, false); }
void BM_PairedSharedMemory(benchmark::State& state) { paired(state, PIX_DISPLAY_FLAG_DIRECT_DRAW, false); }
void BM_PairedDibOnImageSurface(benchmark::State& state) { paired(state, PIX_DISPLAY_FLAG_DEFAULT, true); }
BENCHMARK(BM_PairedBitmaps)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PairedSharedMemory)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PairedDibOnImageSurface)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK(BM_Bitmaps)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FloorXPutImage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SharedMemory)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FloorXShmPutImage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FloorCopyAndXShmPutImage)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DibOnImageSurface)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FloorMemcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
BENCHMARK_MAIN();
