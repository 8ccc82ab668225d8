// The 3x3 neighbourhood filter and the grey threshold: strip-wise outer
// functions on the shared strip driver, with workers that run the row
// kernels over each strip.  The filter's output lags its input by one line
// across strips: the last line of a strip waits for its lower neighbour in
// the next, with the strip's last two lines carried over.
#include "process/kernels/filters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/lines.h"
#include "core/stage.h"
#include "core/status.h"

using namespace pix;
namespace k = pix::process::kernels;

namespace {

// A filter run: the strip size of its first strip and the two source lines
// carried to the next strip.
struct FilterRun {
  uint32_t saved_lines = 0;  // the destination's lines_this_strip at the first strip
  lines::Carry carry;
};

// Library-wide: one run of each function at a time.  Destroying every image
// ends the runs and lets go of the carried lines.
struct FilterState final : Releasable {
  stage::Progress filter, threshold;
  FilterRun run;

  void release() noexcept override {
    filter = threshold = {};
    run = {};
  }
};
FilterState& filter_state() noexcept {
  static FilterState state;
  return state;
}

// ---------------------------------------------------------------------------
// 3x3 filter

constexpr stage::Stage kFilter{.name = "PIX_IP_filter_3x3", .target = 0, .same = stage::Copy::none};
constexpr const char* kFilterWorker = "PIX_IP_filter_3x3_1_strip";

// The kernel is looked at only when a strip is to be filtered, so that a
// run can always be finished or set up without one.
uint32_t accept_filter(const Image& src, const int16_t* kernel, uint16_t command, k::Filter3x3& f) {
  if (src.format != PIX_RGB24 && src.format != PIX_Y8) {
    return stage::unsupported_format(kFilter.name, "Supports RGB24 & Y8 only");
  }
  if (command != stage::kNext) return 0;
  if (kernel == nullptr) return report(kFilter.name, code::bad_parameter, "Kernel pointer is NULL");
  f = k::make_filter_3x3(kernel);
  // The division by the coefficients' sum has nothing to divide by.
  if (f.divisor == 0) return report(kFilter.name, code::bad_parameter, "Kernel coefficients sum to 0");
  return 0;
}

// The output strip, one line longer than the destination claims: a run's
// last strip ends with one line more than its first strip's size.
uint32_t allocate_filter_strip(const Image& src, uint32_t out, uint64_t& room) {
  Image& dst = *find_image(out);
  const uint32_t claimed = dst.lines_this_strip;
  const uint32_t longer = claimed == UINT32_MAX ? claimed : claimed + 1;
  dst.lines_this_strip = longer;
  const uint32_t r = stage::begin_worker(src, out, kFilterWorker);
  dst.lines_this_strip = claimed;
  if (is_error(r)) return r;
  room = lines_bytes(dst, longer);
  return 0;
}

// One strip, in the order the output lines are made.  The first strip
// copies line 0 and filters up to S - 2 lines; a later strip filters S lines
// centred on the carried last line and the strip's lines; the strip that
// ends the image copies its last line below them.  Every centre needs its
// lower neighbour inside the strip: a strip shorter than S makes fewer
// lines (the lines the destination then claims beyond them are cleared in
// a strip of the library's own).
uint32_t filter_1_strip(uint32_t in, uint32_t out, const k::Filter3x3& f, uint32_t lines_done) {
  const Image& src = *find_image(in);
  Image& dst = *find_image(out);
  FilterRun& run = filter_state().run;
  const uint32_t strip = src.lines_this_strip;
  const bool first = lines_done < strip;  // kept: the first strip is told by this comparison
  const bool more = uint64_t{lines_done} + strip < src.height;
  // With fewer than two lines in a strip the two carried lines would not be
  // the strip's own.
  if (more && (first ? strip < 2 : run.carry.held() < 2)) {
    return report(kFilterWorker, code::unsupported, "Strips must hold at least 2 lines");
  }
  // The carried lines are lines of the first strip's length.
  if (!first && run.carry.line_bytes() != src.bytes_per_line) {
    return report(kFilterWorker, code::unsupported, "Strip lines differ from the first strip's");
  }
  uint64_t room = 0;
  if (uint32_t r = allocate_filter_strip(src, out, room); is_error(r)) return r;

  const unsigned channels = src.format == PIX_RGB24 ? 3 : 1;
  const uint64_t stride = src.bytes_per_line, out_stride = dst.bytes_per_line;
  const uint64_t line = std::min(stride, out_stride);
  const uint64_t pixels = std::min<uint64_t>(src.width, line / channels), pixel_bytes = pixels * channels;
  const lines::In from = lines::source(src, stride);
  // Whole lines inside each buffer (lines of no bytes all fit).
  const uint64_t have = line == 0 ? strip : std::min<uint64_t>(strip, from.size / stride);
  const uint64_t cap = line == 0 ? 0 : room / out_stride;
  uint64_t pos = 0;  // the next output line
  auto copy_line = [&](const uint8_t* s) {
    if (pos < cap) std::memcpy(dst.data + pos * out_stride, s, static_cast<std::size_t>(line));
    ++pos;
  };
  auto filter_line = [&](const uint8_t* a, const uint8_t* c, const uint8_t* b) {
    if (pos < cap) {
      uint8_t* d = dst.data + pos * out_stride;
      k::filter_kernels().filter(a, c, b, d, static_cast<std::size_t>(pixels), channels, f);
      // The padding comes along with the centre line.
      std::memcpy(d + pixel_bytes, c + pixel_bytes, static_cast<std::size_t>(line - pixel_bytes));
    }
    ++pos;
  };

  if (first) {
    run.carry = {};
    run.carry.start(static_cast<std::size_t>(stride));
    run.saved_lines = dst.lines_this_strip;
    const uint32_t s = run.saved_lines;
    if (have != 0) copy_line(from.line(0));
    if (more) dst.lines_this_strip = s - 1;  // the strip's last line waits for its lower neighbour
    const uint64_t count = std::min<uint64_t>(s < 2 ? 0 : s - 2, have < 2 ? 0 : have - 2);
    for (uint32_t c = 1; c <= count; ++c) filter_line(from.line(c - 1), from.line(c), from.line(c + 1));
  } else {
    const uint32_t s = run.saved_lines;
    dst.lines_this_strip = s;
    // Centres 1 .. S of the two carried lines followed by the strip.
    const uint64_t joined = run.carry.held() + have;
    const uint64_t count = std::min<uint64_t>(s, joined < 2 ? 0 : joined - 2);
    for (uint32_t j = 1; j <= count; ++j) {
      filter_line(run.carry.joined(from, j - 1), run.carry.joined(from, j), run.carry.joined(from, j + 1));
    }
  }

  if (more) {
    run.carry.take(from, static_cast<uint32_t>(have), 2);
    return 0;
  }
  if (have != 0) copy_line(from.line(static_cast<uint32_t>(have - 1)));
  // Kept: S comes from the first strip, so a shorter last strip is counted
  // as if it were full, and a single strip claims S + 1 lines although S
  // were made; applications step through their output by this count.
  const uint32_t s = run.saved_lines;
  dst.lines_this_strip = s == UINT32_MAX ? s : s + 1;
  run.carry = {};
  // The claimed lines beyond those made are cleared in a strip of the
  // library's own; a caller's buffer gets only the lines made.
  if ((dst.flags & PIX_FLAG_LOCKED) == 0 && pos < cap) {
    const uint64_t claimed = std::min<uint64_t>(dst.lines_this_strip, cap);
    if (pos < claimed) {
      std::memset(dst.data + pos * out_stride, 0, static_cast<std::size_t>((claimed - pos) * out_stride));
    }
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Threshold

constexpr stage::Stage kThreshold{.name = "PIX_IP_threshold_grayscale", .target = PIX_Y8, .same = stage::Copy::none};
constexpr const char* kThresholdWorker = "PIX_IP_threshold_grayscale_1_strip";

// Lines are walked as the width plus one byte for an odd width, on both
// sides (kept: the layout of the default alignment of 2, which applications
// give their grey images).
uint32_t threshold_1_strip(uint32_t in, uint32_t out, uint8_t upper, uint8_t lower) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kThresholdWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const uint64_t step = lines::odd_width(src, 1);
  const k::ThresholdRow row = k::filter_kernels().threshold;
  lines::map(lines::source(src, step), 1, lines::target(dst, lines::odd_width(dst, 1)), 1, step, src.lines_this_strip,
             [=](const uint8_t* s, uint8_t* d, std::size_t n) { row(s, d, n, upper, lower); });
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_IP_filter_3x3(uint32_t in, uint32_t out, int16_t* kernel, uint16_t command) {
  k::Filter3x3 f;
  stage::Progress& progress = filter_state().filter;
  return stage::run(
      kFilter, progress, in, out, command, [&](const Image& src) { return accept_filter(src, kernel, command, f); },
      [&] { return filter_1_strip(in, out, f, progress.lines_done); });
}

// Kept: the lower threshold arrives in a 32-bit argument, of which only the
// low byte is the threshold (callers pass 8-bit values widened).
PIX_API uint32_t PIX_CALL PIX_IP_threshold_grayscale(uint32_t in, uint32_t out, uint8_t upper, uint32_t lower,
                                                     uint16_t command) {
  return stage::run(
      kThreshold, filter_state().threshold, in, out, command,
      [](const Image& src) { return src.format == PIX_Y8 ? 0u : stage::unsupported_format(kThreshold.name); },
      [=] { return threshold_1_strip(in, out, upper, static_cast<uint8_t>(lower)); });
}

}  // extern "C"
