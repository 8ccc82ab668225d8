// The strip protocol shared by every strip-wise function.
//
// A strip-wise function is called once per strip with command 3; it keeps a
// library-wide progress (idle or busy, lines done), sets up its output on the
// first strip, cuts the last strip to the image height and finishes by
// itself, or at once on command 4.  Any other command only sets up.  The
// functions here hold that protocol once; each strip-wise function supplies
// its own checks, output set-up and worker.
#pragma once

#include <cstdint>

#include "image.h"
#include "status.h"

namespace pix::strip {

inline constexpr uint16_t kIdle = 1;
inline constexpr uint16_t kBusy = 2;
inline constexpr uint16_t kNext = PIX_STRIP_NEXT;
inline constexpr uint16_t kFinish = PIX_STRIP_FINISH;

// Library-wide progress of one strip-wise function.
struct Progress {
  uint16_t state = kIdle;
  uint32_t lines_done = 0;
  bool idle() const noexcept { return state == kIdle; }
};

struct Nothing {
  uint32_t operator()() const noexcept { return 0; }
};

// Steps 5 to 7 of the protocol for the image `counted`, whose strip size and
// height drive the count.  On command 3, `on_next` runs first (typically it
// gives the output the input's strip size, before any cut), then the last
// strip is cut in place to the lines that remain and `work` runs; a worker
// error is returned with the function left busy.  Command 4, given or reached
// by the last strip, runs `finish` and makes the function idle.
template <class Work, class OnNext = Nothing, class Finish = Nothing>
uint32_t advance(Progress& progress, Image& counted, uint16_t command, Work&& work,
                 OnNext&& on_next = {}, Finish&& finish = {}) {
  if (command == kNext) {
    if (uint32_t r = on_next(); is_error(r)) return r;
    const uint64_t reach = static_cast<uint64_t>(counted.lines_this_strip) + progress.lines_done;
    if (reach >= counted.height) {
      // Kept: the input's strip size is shortened in place for the last strip.
      counted.lines_this_strip = counted.height > progress.lines_done ? counted.height - progress.lines_done : 0;
      if (uint32_t r = work(); is_error(r)) return r;
      command = kFinish;
    } else {
      if (uint32_t r = work(); is_error(r)) return r;
      progress.lines_done += counted.lines_this_strip;
    }
  }
  if (command == kFinish) {
    progress.state = kIdle;
    return finish();
  }
  return 0;
}

// Steps 4 to 7 for a function with an input and an output image: on the
// first call `set_up` prepares the output (its error is returned and the
// function stays idle); each strip then gives the output the input's strip
// size (or what `out_lines` makes of it) and runs `work`.  An output handle
// that names nothing is reported under `function`.
template <class SetUp, class Work>
uint32_t run(Progress& progress, const char* function, uint16_t busy_state, uint32_t in, uint32_t out,
             uint16_t command, SetUp&& set_up, Work&& work, uint32_t (*out_lines)(uint32_t) = nullptr) {
  if (progress.idle()) {
    progress.lines_done = 0;
    if (uint32_t r = set_up(); is_error(r)) return r;
    progress.state = busy_state;
  }
  Image* src = find_image(in);
  Image* dst = find_image(out);
  if (src == nullptr) return report(function, code::bad_handle, "Input image does not exist");
  if (dst == nullptr) return report(function, code::bad_handle, "Output image does not exist");
  return advance(progress, *src, command, work, [&]() -> uint32_t {
    dst->lines_this_strip = out_lines != nullptr ? out_lines(src->lines_this_strip) : src->lines_this_strip;
    return 0;
  });
}

// Step 1: the input passes the image check, else the check's code is
// reported under `function` with "Corrupt image".  Gives the record or null.
Image* checked_input(uint32_t handle, const char* function, uint32_t& result);

// Step 2: an input without data only describes the output: parameters
// copied, format set (and the line alignment taken from the input's
// out_line_align when asked).  Progress is not touched.
uint32_t describe_output(uint32_t in, uint32_t out, uint16_t format, bool take_out_line_align = false);

// The usual first-strip set-up: parameters copied, format set, optional line
// alignment from the input's out_line_align, output checked ("Corrupt image"
// reported under `function`).
uint32_t set_up_output(uint32_t in, uint32_t out, uint16_t format, const char* function,
                       bool take_out_line_align = false);

// The start of every worker: the input must hold data ("No image data"
// reported under `worker`) and be another image than the output, then the
// output's strip is replaced by a fresh one of its current strip size.
uint32_t begin_worker(const Image& in, uint32_t out, const char* worker);

}  // namespace pix::strip
