// Geometric operations: cropping, region extraction, point subsampling,
// pixel replication, mirroring, quarter turns and bilinear scaling.  Each is
// a strip-wise outer function on the shared strip driver with a worker that
// runs row kernels over the strip; rotation alone takes the whole image in
// one call.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/lines.h"
#include "core/memory.h"
#include "core/stage.h"
#include "core/status.h"
#include "process/kernels/geometry.h"

using namespace pix;
namespace k = pix::process::kernels;

namespace {

// A scaling run: what the first strip worked out and what strips hand on.
struct ScaleRun {
  uint16_t format = 0;
  uint32_t in_width = 0, out_width = 0, out_height = 0;
  unsigned channels = 1;
  uint64_t h_step = 0, v_step = 0;  // 13 fractional bits
  uint32_t next_line = 0;           // the first output line the next strip makes
  lines::Carry carry;               // the last source line of the strip before
  memory::Owned<k::ScaleColumn> columns;
  memory::Owned<k::ScaleGroup> groups;  // the columns laid out for the vector kernel
  memory::Owned<uint8_t> scaled;  // two horizontally scaled lines
  int64_t scaled_line[2] = {-1, -1};
};

// Library-wide: one run of each operation at a time.  Destroying every image
// ends the runs and lets go of the scale's buffers.
struct GeometryState final : Releasable {
  stage::Progress crop, extract, subsample, pixel_rep, mirror, rotate, scale;
  ScaleRun scale_run;

  void release() noexcept override {
    crop = extract = subsample = pixel_rep = mirror = rotate = scale = {};
    scale_run.carry.start(0);
    scale_run.columns.reset();
    scale_run.groups.reset();
    scale_run.scaled.reset();
    scale_run.scaled_line[0] = scale_run.scaled_line[1] = -1;
  }
};
GeometryState& geometry_state() noexcept {
  static GeometryState state;
  return state;
}

constexpr uint32_t formats(std::initializer_list<int> list) {
  uint32_t mask = 0;
  for (int f : list) mask |= 1u << f;
  return mask;
}
constexpr bool takes(uint32_t mask, uint16_t format) { return format < 32 && ((mask >> format) & 1u) != 0; }

constexpr const char* kUnsupportedFormat = "Unsupported image format";
constexpr const char* kUnsupportedType = "Unsupported image type";
// Kept: the crop and subsample workers refuse a type with the low bit set;
// applications compare the whole code.
constexpr uint32_t kTypeRefused = code::unsupported | 1u;

constexpr uint32_t kCropFormats = formats({PIX_Y8, PIX_PALETTED, PIX_RGB15, PIX_RGB16, PIX_RGB24, PIX_BGR24, PIX_RGBX32,
                                           PIX_BGRX32, PIX_XBGR32, PIX_YUV422, PIX_CMYK32, PIX_Y16});
constexpr uint32_t kSampleFormats = formats({PIX_Y8, PIX_PALETTED, PIX_RGB15, PIX_RGB16, PIX_RGB24, PIX_YUV422});
constexpr uint32_t kTurnFormats =
    formats({PIX_Y8, PIX_Y16, PIX_PALETTED, PIX_RGB8, PIX_RGB15, PIX_RGB16, PIX_RGB24, PIX_BGR24, PIX_YUV422,
             PIX_RGBX32, PIX_BGRX32, PIX_XBGR32, PIX_XRGB32, PIX_CMYK32});

// Bytes a geometric operation moves a pixel by (a YUV 4:2:2 pixel is two);
// 0 for a format it has no size for.
unsigned moved_bytes(uint16_t format) {
  switch (format) {
    case PIX_Y8:
    case PIX_PALETTED:
    case PIX_RGB8:
      return 1;
    case PIX_RGB15:
    case PIX_RGB16:
    case PIX_Y16:
    case PIX_YUV422:
      return 2;
    case PIX_RGB24:
    case PIX_BGR24:
      return 3;
    case PIX_RGBX32:
    case PIX_BGRX32:
    case PIX_XBGR32:
    case PIX_XRGB32:
    case PIX_CMYK32:
      return 4;
    default:
      return 0;
  }
}

// The lines of a walk (at most `count`) that lie wholly inside both buffers,
// `in_bytes` read and `out_bytes` written per line: a record changed between
// two strips can shorten a walk, never make a kernel reach past a buffer.
template <class Byte>
uint32_t lines_inside(const lines::Lines<Byte>& v, uint64_t bytes, uint32_t count) {
  if (v.data == nullptr) return 0;
  if (bytes > v.size) return 0;
  if (v.stride == 0) return count;
  return static_cast<uint32_t>(std::min<uint64_t>(count, (v.size - bytes) / v.stride + 1));
}
uint32_t fitting(const lines::In& in, uint64_t in_bytes, const lines::Out& out, uint64_t out_bytes, uint32_t count) {
  return std::min(lines_inside(in, in_bytes, count), lines_inside(out, out_bytes, count));
}

// Sets the output's size and runs the image check on it (first strips).
uint32_t resize_output(uint32_t out, uint64_t width, uint64_t height, const char* function) {
  Image* dst = find_image(out);
  // A size beyond 32 bits cannot be described: refused as the check refuses
  // a line that does not fit.
  if (width > 0xFFFFFFFFull || height > 0xFFFFFFFFull) return report(function, code::bad_image, "Corrupt image");
  dst->width = static_cast<uint32_t>(width);
  dst->height = static_cast<uint32_t>(height);
  return check_reported(out, function);
}

// Factor 1 of subsampling and replication hands the strip over unchanged:
// moved when neither image is locked, else copied.
uint32_t hand_over(uint32_t in, uint32_t out) {
  const bool locked = ((find_image(in)->flags | find_image(out)->flags) & PIX_FLAG_LOCKED) != 0;
  return locked ? PIX_image_copy(in, out) : PIX_image_move(in, out);
}

// ---------------------------------------------------------------------------
// Crop

constexpr stage::Stage kCrop{.name = "PIX_IP_crop", .target = 0, .same = stage::Copy::none};
constexpr const char* kCropWorker = "PIX_IP_crop_1_strip";

struct Rectangle {
  int16_t x, y, w, h;
};

// Kept: the rectangle is clipped in 16-bit signed arithmetic, as
// applications written for 16-bit coordinates see it.
Rectangle clipped(const int16_t* r, const Image& img) {
  Rectangle c{r[0], r[1], r[2], r[3]};
  if (static_cast<int16_t>(c.x + c.w) > static_cast<int64_t>(img.width)) {
    c.w = static_cast<int16_t>(static_cast<int64_t>(img.width) - c.x);
  }
  if (static_cast<int16_t>(c.y + c.h) > static_cast<int64_t>(img.height)) {
    c.h = static_cast<int16_t>(static_cast<int64_t>(img.height) - c.y);
  }
  return c;
}

uint32_t crop_1_strip(uint32_t in, uint32_t out, const Rectangle& r, uint32_t first) {
  const Image& src = *find_image(in);
  if (src.format == PIX_BILEVEL) return report(kCropWorker, code::unsupported, "Bilevel images not supported");
  const unsigned unit = moved_bytes(src.format);
  if (unit == 0 || !takes(kCropFormats, src.format)) return report(kCropWorker, kTypeRefused, kUnsupportedType);
  if (uint32_t r = stage::begin_worker(src, out, kCropWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const lines::In whole = lines::source(src, lines::padded(src));
  const uint64_t at = std::min<uint64_t>(first * whole.stride + static_cast<uint64_t>(r.x) * unit, whole.size);
  const lines::In from{whole.data + at, whole.size - at, whole.stride};
  // Each line is the output's whole line (its padding included) read from x
  // pixels into the source line; bytes beyond the source strip read as 0.
  lines::map(from, unit, lines::target(dst, lines::padded(dst)), unit, dst.bytes_per_line / unit, dst.lines_this_strip,
             [unit](const uint8_t* s, uint8_t* d, std::size_t n) { k::copy_row(s, d, n * unit); });
  return 0;
}

// ---------------------------------------------------------------------------
// Subsampling and replication

constexpr stage::Stage kSubsample{.name = "PIX_IP_subsample", .target = 0, .same = stage::Copy::none};
constexpr const char* kSubsampleWorker = "PIX_IP_subsample_1_strip";
constexpr stage::Stage kPixelRep{.name = "PIX_IP_pixel_rep", .target = 0, .same = stage::Copy::none};
constexpr const char* kPixelRepWorker = "PIX_IP_pixel_rep_1_strip";

unsigned sampled_bytes(uint16_t format) { return takes(kSampleFormats, format) ? moved_bytes(format) : 0; }

// Point sampling of the strip from its own first line (kept: strips are
// sampled each from their own top, as the function always has).  Lines are
// packed: after each output line the source skips the width mod f leftover
// pixels and f - 1 whole lines.
uint32_t subsample_1_strip(uint32_t in, uint32_t out, unsigned f) {
  const Image& src = *find_image(in);
  const unsigned pb = sampled_bytes(src.format);
  if (pb == 0) return report(kSubsampleWorker, kTypeRefused, kUnsupportedType);
  if (uint32_t r = stage::begin_worker(src, out, kSubsampleWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const uint64_t out_width = src.width / f;
  const lines::In from = lines::source(src, lines::packed(src, pb) * f);
  const lines::Out to = lines::target(dst, out_width * pb);
  const uint32_t count = fitting(from, out_width * f * pb, to, out_width * pb, src.lines_this_strip / f);
  if (src.format == PIX_YUV422) {
    lines::map(from, 2 * f, to, 2, out_width, count,
               [f](const uint8_t* s, uint8_t* d, std::size_t n) { k::subsample_yuv422_row(s, d, n, f); },
               {.merge = false, .group = 2});
  } else {
    lines::map(from, pb * f, to, pb, out_width, count,
               [f, pb](const uint8_t* s, uint8_t* d, std::size_t n) { k::subsample_row(s, d, n, f, pb); },
               {.merge = false});
  }
  return 0;
}

// Each source line made n output lines: the pixels written n times, then
// the finished line copied n - 1 times below itself, each copy read from the
// line just written.  Lines are packed.
uint32_t pixel_rep_1_strip(uint32_t in, uint32_t out, unsigned n) {
  const Image& src = *find_image(in);
  const unsigned pb = sampled_bytes(src.format);
  if (pb == 0) return report(kPixelRepWorker, code::unsupported, kUnsupportedType);
  if (uint32_t r = stage::begin_worker(src, out, kPixelRepWorker); is_error(r)) return r;
  if (n == 0) return 0;  // an empty output: nothing to write
  const Image& dst = *find_image(out);
  const uint64_t in_line = lines::packed(src, pb), out_line = in_line * n;
  const lines::In from = lines::source(src, in_line);
  const lines::Out blocks = lines::target(dst, out_line * n);
  const uint32_t count = fitting(from, in_line, blocks, out_line * n, src.lines_this_strip);
  if (count == 0) return 0;
  if (src.format == PIX_YUV422) {
    lines::map(from, 4, blocks, 4 * n, src.width / 2, count,
               [n](const uint8_t* s, uint8_t* d, std::size_t pairs) { k::replicate_yuv422_row(s, d, pairs, n); });
  } else {
    lines::map(from, pb, blocks, pb * n, src.width, count,
               [n, pb](const uint8_t* s, uint8_t* d, std::size_t px) { k::replicate_row(s, d, px, n, pb); });
  }
  for (unsigned c = 1; c < n; ++c) {
    const uint64_t above = (c - 1) * out_line, below = c * out_line;
    lines::map(lines::In{blocks.data + above, blocks.size - above, blocks.stride}, 1,
               lines::Out{blocks.data + below, blocks.size - below, blocks.stride}, 1, out_line, count, k::copy_row);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Extract region

constexpr stage::Stage kExtract{.name = "PIX_IP_extract_region", .target = 0, .same = stage::Copy::none};
constexpr const char* kExtractWorker = "PIX_IP_extract_region_1_strip";

struct Circle {
  uint32_t cx, cy, r;
  bool holds(int64_t x, int64_t j) const {
    const int64_t x0 = cx, y0 = cy, rr = r;
    if (x < x0 - rr || x >= x0 + rr || j < y0 - rr || j >= y0 + rr) return false;
    const double dx = (static_cast<double>(x) - cx) / r, dy = (static_cast<double>(j) - cy) / r;
    return dx * dx + dy * dy < 1.0;
  }
};

// The pairs inside the circle, one after another on a single line.  Kept:
// line j counts from 0 in every strip, not from the image's top, so the
// circle is placed in each strip alike.
uint32_t extract_1_strip(uint32_t in, uint32_t out, const Circle& c) {
  const Image& src = *find_image(in);
  // Each strip's buffer is sized for the whole circle (the last strip left
  // the output one line of what it took), so every pair taken fits.
  if (uint32_t r = resize_output(out, 2ull * c.r, 2ull * c.r, kExtractWorker); is_error(r)) return r;
  if (uint32_t r = stage::begin_worker(src, out, kExtractWorker); is_error(r)) return r;
  Image& dst = *find_image(out);
  const lines::In from = lines::source(src, lines::padded(src));
  const uint64_t room = strip_bytes(dst);
  uint64_t taken = 0;
  const uint32_t pairs = src.width / 2;  // whole pairs only
  const uint32_t count = lines_inside(from, uint64_t{pairs} * 4, src.lines_this_strip);
  for (uint32_t j = 0; j < count; ++j) {
    const uint8_t* line = from.line(j);
    for (uint32_t p = 0; p < pairs && (taken + 1) * 4 <= room; ++p) {
      if (!c.holds(2 * int64_t{p}, j)) continue;
      std::memcpy(dst.data + taken * 4, line + p * 4, 4);
      ++taken;
    }
  }
  dst.width = static_cast<uint32_t>(2 * taken);
  dst.height = 1;
  dst.lines_this_strip = 1;
  return 0;
}

// ---------------------------------------------------------------------------
// Mirror and rotate

constexpr stage::Stage kMirror{.name = "PIX_IP_mirror_image", .target = 0, .same = stage::Copy::none};
constexpr const char* kMirrorWorker = "PIX_IP_mirror_image_1_strip";
constexpr const char* kRotate = "PIX_IP_rotate_image";
constexpr const char* kRotateWorker = "PIX_IP_rotate_image_1_strip";

// Each line reversed: read backwards from its last pixel (the end of the
// line less its padding), the output stepping over its own padding.
uint32_t mirror_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  const unsigned pb = takes(kTurnFormats, src.format) ? moved_bytes(src.format) : 0;
  if (pb == 0) return report(kMirrorWorker, code::unsupported, kUnsupportedType);
  if (uint32_t r = stage::begin_worker(src, out, kMirrorWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const lines::In from = lines::source(src, lines::padded(src));
  const lines::Out to = lines::target(dst, lines::padded(dst));
  const uint64_t bytes = uint64_t{src.width} * pb;
  const uint32_t count = fitting(from, bytes, to, bytes, src.lines_this_strip);
  if (src.format == PIX_YUV422) {
    lines::map(from, 4, to, 4, src.width / 2, count, k::geometry_kernels().mirror_yuv422, {.merge = false});
  } else {
    // Every counted line lies whole inside both buffers.
    k::geometry_kernels().mirror[pb - 1](from.data, static_cast<std::ptrdiff_t>(from.stride), to.data,
                                          static_cast<std::ptrdiff_t>(to.stride), count, src.width);
  }
  return 0;
}

// The turn of a whole image: 90 clockwise (output line j, pixel i is source
// column j of line H - 1 - i), 270 the other way (source column W - 1 - j of
// line i), 180 each source line read backwards from the last.
uint32_t rotate_1_strip(uint32_t in, uint32_t out, uint16_t angle) {
  const Image& src = *find_image(in);
  if (src.format == PIX_YUV422) {
    return report(kRotateWorker, code::unsupported, "Unsupported image type (convert to non-YUV first)");
  }
  const unsigned pb = takes(kTurnFormats, src.format) ? moved_bytes(src.format) : 0;
  if (pb == 0) return report(kRotateWorker, code::unsupported, kUnsupportedType);
  if (uint32_t r = stage::begin_worker(src, out, kRotateWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const uint32_t w = src.width, h = std::min(src.height, src.lines_this_strip);
  const lines::In from = lines::source(src, lines::padded(src));
  const lines::Out to = lines::target(dst, lines::padded(dst));
  // Every source pixel read lies in the first h lines, which the strip holds
  // whole or the turn does nothing.
  if (lines_inside(from, uint64_t{w} * pb, h) < h) return 0;
  if (angle == 180) {
    const uint32_t count = lines_inside(to, uint64_t{w} * pb, std::min(h, dst.lines_this_strip));
    // Source lines from the last up.
    if (count != 0) {
      k::geometry_kernels().mirror[pb - 1](from.line(h - 1), -static_cast<std::ptrdiff_t>(from.stride), to.data,
                                            static_cast<std::ptrdiff_t>(to.stride), count, w);
    }
    return 0;
  }
  if (h == 0) return 0;
  const uint32_t count = lines_inside(to, uint64_t{h} * pb, std::min(w, dst.lines_this_strip));
  // Offsets of pixels inside the strip, which is held in memory: they fit.
  const auto stride = static_cast<std::ptrdiff_t>(from.stride), size = static_cast<std::ptrdiff_t>(pb);
  const std::ptrdiff_t bottom = static_cast<std::ptrdiff_t>(h - 1) * stride;
  const auto turn = k::geometry_kernels().turn[pb - 1];
  if (angle == 90) {
    turn(src.data, bottom, size, -stride, to.data, static_cast<std::ptrdiff_t>(to.stride), count, h);
  } else {
    turn(src.data, static_cast<std::ptrdiff_t>(w - 1) * size, -size, stride, to.data,
         static_cast<std::ptrdiff_t>(to.stride), count, h);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Scale

// Kept: the outer function reports under this name, not its own;
// applications filter their error logs by it.
constexpr stage::Stage kScale{.name = "PIX_IP_threshold_grayscale", .target = 0, .same = stage::Copy::none};
constexpr const char* kScaleWorker = "PIX_IP_scale_1_strip";
constexpr const char* kScaleFormats = "Supports RGB24 & Y8 only";
// Kept without a module byte, as applications test for them.
constexpr uint32_t kNotEnoughLines = status(0, PIX_ERR_OUT_OF_RANGE);
constexpr uint32_t kNoMemory = status(0, PIX_ERR_OUT_OF_MEMORY);

uint32_t start_scale(uint32_t in, uint32_t out, uint32_t width, uint32_t height) {
  if (uint32_t r = resize_output(out, width, height, kScale.name); is_error(r)) return r;
  const Image& src = *find_image(in);
  ScaleRun& run = geometry_state().scale_run;
  run.format = src.format;
  run.channels = src.format == PIX_RGB24 ? 3 : 1;
  run.in_width = src.width;
  run.out_width = width;
  run.out_height = height;
  run.h_step = (uint64_t{src.width} << k::kScaleShift) / width;
  // One output line (or a source of at most one line) stays at position 0.
  run.v_step = height > 1 && src.height > 1 ? (uint64_t{src.height - 1} << k::kScaleShift) / (height - 1) : 0;
  run.next_line = 0;
  run.carry.start(std::size_t{src.width} * run.channels);
  run.columns.reset();
  run.groups.reset();
  run.scaled.reset();
  run.scaled_line[0] = run.scaled_line[1] = -1;
  return 0;
}

// The output lines a strip makes: those whose positions lie at or above its
// last line (with the carried line before its first).  Counted as
// (((lines + carried - 1) << 13) - first position) / step + 1 in the strip's
// own positions, and never past the output's height.
uint32_t scale_lines(const ScaleRun& run, uint64_t lines_before, uint32_t lines) {
  if (run.next_line >= run.out_height) return 0;
  const uint32_t left = run.out_height - run.next_line;
  if (run.v_step == 0) return left;
  const uint64_t last = (lines_before + lines - 1) << k::kScaleShift;
  const uint64_t first = uint64_t{run.next_line} * run.v_step;
  if (first > last) return 0;
  return static_cast<uint32_t>(std::min<uint64_t>(left, (last - first) / run.v_step + 1));
}

// Bilinear scaling of one strip: each output line mixes the horizontally
// scaled source lines around its position.  The last source line of a strip
// is carried to the next, so output lines that fall between two strips pair
// it with the next strip's first line.
uint32_t scale_1_strip(uint32_t in, uint32_t out, uint64_t lines_before) {
  Image& src = *find_image(in);
  ScaleRun& run = geometry_state().scale_run;
  if (src.lines_this_strip == 0) return report(kScaleWorker, kNotEnoughLines, "Internal: Not enough lines to process");
  // The run's tables were made for this source; another one is refused.
  if (src.format != run.format || src.width != run.in_width) {
    return report(kScaleWorker, code::unsupported, kScaleFormats);
  }
  const uint32_t strip = src.lines_this_strip, held = run.carry.held();
  const uint32_t count = scale_lines(run, lines_before, strip);
  find_image(out)->lines_this_strip = count;
  if (uint32_t r = stage::begin_worker(src, out, kScaleWorker); is_error(r)) return r;
  const std::size_t out_bytes = std::size_t{run.out_width} * run.channels;
  if (run.columns == nullptr) {
    // Sizes that do not fit the address space fail as allocations do.
    const bool fits =
        uint64_t{run.out_width} * sizeof(k::ScaleColumn) <= SIZE_MAX && 2 * uint64_t{out_bytes} <= SIZE_MAX;
    const std::size_t groups = fits ? k::scale_group_count(run.out_width, run.channels) : 0;
    run.columns.reset(fits ? memory::allocate_array<k::ScaleColumn>(run.out_width) : nullptr);
    run.groups.reset(fits && groups != 0 ? memory::allocate_array<k::ScaleGroup>(groups) : nullptr);
    run.scaled.reset(fits ? memory::allocate_array<uint8_t>(2 * out_bytes) : nullptr);
    if (run.columns == nullptr || run.scaled == nullptr || (groups != 0 && run.groups == nullptr)) {
      run.columns.reset();
      run.groups.reset();
      return report(kScaleWorker, kNoMemory, "Malloc fail - no memory?");
    }
    k::scale_columns(run.columns.get(), run.out_width, run.in_width, run.h_step, run.channels);
    k::scale_groups(run.groups.get(), run.columns.get(), run.out_width, std::size_t{run.in_width} * run.channels,
                    run.channels);
  }
  const Image& dst = *find_image(out);
  const lines::In from = lines::source(src, lines::padded(src));
  const std::size_t in_bytes = run.carry.line_bytes();
  const uint32_t inside = lines_inside(from, in_bytes, strip);
  const lines::Out to = lines::target(dst, lines::padded(dst));
  const uint32_t made = lines_inside(to, out_bytes, count);
  // Source line y of the carried line followed by the strip, scaled
  // horizontally into one of two buffers (lines are asked for in order).
  const int64_t base = static_cast<int64_t>(lines_before) - held;
  const int64_t available = int64_t{held} + inside;
  const k::GeometryKernels& kernels = k::geometry_kernels();
  auto scaled = [&](int64_t y) -> const uint8_t* {
    y = std::clamp<int64_t>(y, 0, available - 1);
    for (int s = 0; s < 2; ++s) {
      if (run.scaled_line[s] == base + y) return run.scaled.get() + s * out_bytes;
    }
    const int s = run.scaled_line[0] < run.scaled_line[1] ? 0 : 1;
    uint8_t* line = run.scaled.get() + s * out_bytes;
    kernels.scale_h(run.carry.joined(from, static_cast<uint32_t>(y)), line, run.columns.get(), run.groups.get(),
                    run.out_width, run.channels);
    run.scaled_line[s] = base + y;
    return line;
  };
  for (uint32_t j = 0; j < made && available > 0; ++j) {
    const uint64_t position = uint64_t{run.next_line + j} * run.v_step;
    const int64_t y = static_cast<int64_t>(position >> k::kScaleShift) - base;
    // Where no next line exists the position's fraction is 0: the line
    // itself stands in for it.
    const uint8_t* upper = scaled(y);
    const uint8_t* lower = y + 1 < available ? scaled(y + 1) : upper;
    kernels.scale_v(upper, lower, to.line(j), out_bytes, k::scale_fraction(position));
  }
  run.next_line += count;
  run.carry.take(from, inside, 1);
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_IP_crop(uint32_t in, uint32_t out, int16_t* rectangle, uint16_t command) {
  Rectangle r{};
  stage::Progress& progress = geometry_state().crop;
  return stage::run(
      kCrop, progress, in, out, command,
      [&](const Image& src) -> uint32_t {
        if (!takes(kCropFormats, src.format)) {
          return report(kCrop.name, with_detail(code::unsupported, src.format), kUnsupportedFormat);
        }
        if (rectangle == nullptr) return report(kCrop.name, code::unsupported, "No crop rectangle");
        r = clipped(rectangle, src);
        if (r.x < 0 || r.y < 0 || r.w < 0 || r.h < 0) {
          return report(kCrop.name, code::unsupported, "Crop rectangle outside the image");
        }
        return 0;
      },
      [&]() -> uint32_t {
        const Image& src = *find_image(in);
        const int64_t d = progress.lines_done, lines = src.lines_this_strip, y = r.y, h = r.h;
        int64_t take = 0, first = 0;
        if (d + lines >= y && d <= y + h) {
          const int64_t reach = d - y + lines;
          if (reach >= lines) {
            take = d + lines > y + h ? h - d + y : lines;  // the strip starts inside the rectangle
          } else {
            take = std::min(reach, h);  // the strip starts above it
            first = lines - reach;
          }
        }
        find_image(out)->lines_this_strip = static_cast<uint32_t>(take);
        // Kept: the worker's result is not looked at; it has reported any
        // failure itself, and the run goes on to the next strip.
        crop_1_strip(in, out, r, static_cast<uint32_t>(first));
        return 0;
      },
      [&] { return resize_output(out, static_cast<uint32_t>(r.w), static_cast<uint32_t>(r.h), kCrop.name); });
}

PIX_API uint32_t PIX_CALL PIX_IP_extract_region(uint32_t in, uint32_t out, uint32_t /*unused*/, uint32_t centre_x,
                                                uint32_t centre_y, uint32_t radius, uint16_t command) {
  const Circle circle{centre_x, centre_y, radius};
  uint32_t result = 0;
  const Image* src = stage::checked_input(in, kExtract.name, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) {
    // A description of the output: the source's parameters, the circle's size.
    if (uint32_t r = stage::describe_output(in, out, 0); is_error(r)) return r;
    Image* dst = find_image(out);
    dst->width = dst->height = 2 * radius;
    return 0;
  }
  return stage::run(
      kExtract, geometry_state().extract, in, out, command,
      [](const Image& s) { return s.format == PIX_YUV422 ? 0u : stage::unsupported_format(kExtract.name); },
      [&] { return extract_1_strip(in, out, circle); },
      [&] { return resize_output(out, 2ull * radius, 2ull * radius, kExtract.name); });
}

PIX_API uint32_t PIX_CALL PIX_IP_subsample(uint32_t in, uint32_t out, uint16_t factor, uint16_t command) {
  return stage::run(
      kSubsample, geometry_state().subsample, in, out, command,
      [factor](const Image& src) -> uint32_t {
        if (factor == 0) return report(kSubsample.name, code::unsupported, "Unsupported sub-sampling factor");
        if (!takes(kSampleFormats, src.format)) {
          return report(kSubsample.name, with_detail(code::unsupported, src.format), kUnsupportedFormat);
        }
        return 0;
      },
      [=]() -> uint32_t {
        if (factor == 1) return hand_over(in, out);
        // The output was given the strip's lines before the last strip's cut.
        find_image(out)->lines_this_strip /= factor;
        return subsample_1_strip(in, out, factor);
      },
      [=] {
        const Image& src = *find_image(in);
        return resize_output(out, src.width / factor, src.height / factor, kSubsample.name);
      });
}

PIX_API uint32_t PIX_CALL PIX_IP_pixel_rep(uint32_t in, uint32_t out, uint16_t factor, uint16_t command) {
  return stage::run(
      kPixelRep, geometry_state().pixel_rep, in, out, command,
      [](const Image& src) -> uint32_t {
        if (!takes(kSampleFormats, src.format)) {
          return report(kPixelRep.name, with_detail(code::unsupported, src.format), kUnsupportedFormat);
        }
        // A pixel pair's chroma cannot be spread over half a pair.
        if (src.format == PIX_YUV422 && src.width % 2 != 0) {
          return report(kPixelRep.name, code::unsupported, "YUV422 image must be an even width");
        }
        return 0;
      },
      [=]() -> uint32_t {
        if (factor == 1) return hand_over(in, out);
        Image& dst = *find_image(out);
        dst.lines_this_strip =
            static_cast<uint32_t>(std::min<uint64_t>(uint64_t{dst.lines_this_strip} * factor, 0xFFFFFFFFu));
        return pixel_rep_1_strip(in, out, factor);
      },
      [=] {
        const Image& src = *find_image(in);
        return resize_output(out, uint64_t{src.width} * factor, uint64_t{src.height} * factor, kPixelRep.name);
      });
}

PIX_API uint32_t PIX_CALL PIX_IP_mirror_image(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      kMirror, geometry_state().mirror, in, out, command,
      [](const Image& src) -> uint32_t {
        if (!takes(kTurnFormats, src.format)) return stage::unsupported_format(kMirror.name);
        if (src.format == PIX_YUV422 && src.width % 2 != 0) {
          return report(kMirror.name, code::unsupported, "YUV422 image must be an even width");
        }
        return 0;
      },
      [=] { return mirror_1_strip(in, out); });
}

PIX_API uint32_t PIX_CALL PIX_IP_rotate_image(uint32_t in, uint32_t out, uint16_t angle) {
  uint32_t result = 0;
  const Image* src = stage::checked_input(in, kRotate, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) {
    result = stage::describe_output(in, out, 0, true);
    return is_error(result) ? result : 0;
  }
  if (!takes(kTurnFormats, src->format)) return stage::unsupported_format(kRotate);
  if (angle != 0 && angle != 90 && angle != 180 && angle != 270) {
    return report(kRotate, code::unsupported, "Only angles of 0, 90, 180 and 270 supported");
  }
  if (angle == 0) return PIX_image_copy(in, out);
  if (find_image(out) == src) return report(kRotate, code::param_conflict, "Input and output must be different images");
  // No strip command: every call sets up, turns the whole image and ends.
  stage::Progress& progress = geometry_state().rotate;
  const bool quarter = angle != 180;
  result = stage::start(progress, stage::kBusy, [&]() -> uint32_t {
    if (uint32_t r = stage::set_up_output(in, out, 0, kRotate, true); is_error(r)) return r;
    return quarter ? resize_output(out, src->height, src->width, kRotate) : 0;
  });
  if (!is_error(result)) {
    if (src->lines_this_strip < src->height) {
      result =
          report(kRotate, code::unsupported, "This function only supports full height images - not multiple strips");
    } else {
      Image* dst = find_image(out);
      if (dst == nullptr) {
        result = report(kRotate, code::bad_handle, "Output image does not exist");
      } else {
        dst->lines_this_strip = quarter ? src->width : src->lines_this_strip;
        result = rotate_1_strip(in, out, angle);
      }
    }
  }
  progress.state = stage::kIdle;
  return result;
}

PIX_API uint32_t PIX_CALL PIX_IP_scale(uint32_t in, uint32_t out, uint32_t width, uint32_t height, uint16_t command) {
  stage::Progress& progress = geometry_state().scale;
  return stage::run(
      kScale, progress, in, out, command,
      [=](const Image& src) -> uint32_t {
        if (src.format != PIX_RGB24 && src.format != PIX_Y8)
          return stage::unsupported_format(kScale.name, kScaleFormats);
        // Nothing to interpolate into (and no step to take).
        if (width == 0 || height == 0) return report(kScale.name, code::unsupported, "Output size must not be 0");
        return 0;
      },
      [&] { return scale_1_strip(in, out, progress.lines_done); }, [=] { return start_scale(in, out, width, height); });
}

}  // extern "C"
