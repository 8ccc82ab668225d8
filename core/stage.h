// The stage layer: the strip protocol that every strip-wise function runs,
// written once.
//
// A strip-wise function is called once per strip with command 3; it keeps a
// library-wide progress (idle or busy, lines done), sets up its output on the
// first strip, cuts the last strip to the image height and finishes by
// itself, or at once on command 4.  Any other command only sets up.
//
// Two levels:
// - `advance` is the protocol's strip step for one counted image (readers,
//   writers, in-place functions, assemblies of compressed strips);
// - `run` is the whole one-input/one-output skeleton (checks, the
//   description-only path, the same-format copy, the format test, the
//   first-strip set-up, the strip step), driven by a constexpr `Stage`
//   descriptor.  A strip-wise function supplies its descriptor, its format
//   test and its worker.
#pragma once

#include <cstdint>

#include "image.h"
#include "status.h"

namespace pix::stage {

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

// How a function counts its strips and ends its run.
struct Ending {
  // The last strip is cut in place to the lines that remain (the usual
  // rule); without it every strip counts whole and the run ends once the
  // count reaches the height.
  bool cut_last = true;
  // A failing finish (a close that failed, say) leaves the function busy,
  // so that another command 4 can try again.
  bool busy_after_failed_finish = false;
  // The lines of the strip and the lines done are summed in 16 bits when
  // deciding whether the strip is the last (kept where a renderer always
  // counted that way: its last strip of a tall image is found where it was).
  bool sum_16_bits = false;
};

// The strip step (protocol steps 5 to 7) for the image `counted`, whose strip
// size and height drive the count.  On command 3, `on_next` runs first
// (typically it gives the output the input's strip size, before any cut),
// then the last strip is cut and `work` runs; a worker error is returned with
// the function left busy.  Command 4, given or reached by the last strip,
// makes the function idle and runs `finish`.
template <class Work, class OnNext = Nothing, class Finish = Nothing>
uint32_t advance(Progress& progress, Image& counted, uint16_t command, Work&& work, OnNext&& on_next = {},
                 Finish&& finish = {}, Ending ending = {}) {
  if (command == kNext) {
    if (uint32_t r = on_next(); is_error(r)) return r;
    if (!ending.cut_last) {
      if (uint32_t r = work(); is_error(r)) return r;
      progress.lines_done += counted.lines_this_strip;
      if (counted.height <= progress.lines_done) command = kFinish;
    } else if ((ending.sum_16_bits ? static_cast<uint16_t>(counted.lines_this_strip + progress.lines_done)
                                   : static_cast<uint64_t>(counted.lines_this_strip) + progress.lines_done) >=
               counted.height) {
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
    const uint16_t busy = progress.state;
    progress.state = kIdle;
    const uint32_t r = finish();
    if (is_error(r) && ending.busy_after_failed_finish) progress.state = busy;
    return r;
  }
  return 0;
}

// Starts a run on its first call: lines done back to 0, then `begin` (open a
// file, write a header, prepare an output); its error is returned with the
// function still idle unless `begin` itself moved the state.  On success the
// function is `busy`.
template <class Begin>
uint32_t start(Progress& progress, uint16_t busy, Begin&& begin) {
  if (!progress.idle()) return 0;
  progress.lines_done = 0;
  if (uint32_t r = begin(); is_error(r)) return r;
  progress.state = busy;
  return 0;
}

// ---------------------------------------------------------------------------
// The one-input/one-output skeleton.

// Where a whole call is a copy of the input (PIX_image_copy).
enum class Copy {
  none,         // no copy on this path
  copy,         // copied; the copy's code is returned
  copy_then_0,  // copied, and 0 returned whatever the copy said
};
using SameFormat = Copy;

// What distinguishes one strip-wise function from another in the skeleton.
struct Stage {
  const char* name;                 // the outer function's name for reports
  uint16_t target;                  // output format (0: the output keeps the input's)
  bool out_line_align = false;      // the output takes the input's out_line_align when non-zero
  Copy same = Copy::copy;           // an input already in the target format
  bool describes = true;            // an input without lines only describes the output ...
  Copy empty = Copy::none;          // ... or, when set, is copied whole and given the target format
  uint16_t described_as = 0;        // the format given on the description path (0: the target)
  uint16_t busy = kBusy;            // progress value while a run is under way
  bool in_place = false;            // input and output may be one image (the worker maps the strip where it lies)
};

// Step 1: the input passes the image check, else the check's code is
// reported under `function` with "Corrupt image".  Gives the record or null.
Image* checked_input(uint32_t handle, const char* function, uint32_t& result);

// Step 2: an input without data only describes the output: parameters
// copied, format set unless 0 (and the line alignment taken from the input's
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

// The usual refusal of a source format.
inline uint32_t unsupported_format(const char* function, const char* message = "Unsupported image format") {
  return report(function, code::unsupported, message);
}

// Steps 4 to 7 for a function with an input and an output image: on the
// first call `set_up` prepares the output (its error is returned and the
// function stays idle); each strip then gives the output the input's strip
// size and runs `work`.  An output handle that names nothing is reported
// under `function`.
template <class SetUp, class Work>
uint32_t run_strips(Progress& progress, const char* function, uint16_t busy, uint32_t in, uint32_t out,
                    uint16_t command, SetUp&& set_up, Work&& work) {
  if (uint32_t r = start(progress, busy, set_up); is_error(r)) return r;
  Image* src = find_image(in);
  Image* dst = find_image(out);
  if (src == nullptr) return report(function, code::bad_handle, "Input image does not exist");
  if (dst == nullptr) return report(function, code::bad_handle, "Output image does not exist");
  return advance(progress, *src, command, work, [&]() -> uint32_t {
    dst->lines_this_strip = src->lines_this_strip;
    return 0;
  });
}

// The whole skeleton, in the order every one-input function runs it.
// `accept(const Image& in)` returns 0 for a format it takes, or the code it
// reported.  `work()` processes the strip the input holds.
// `extra_set_up()` runs after the usual first-strip set-up (a table to
// build, say).
template <class Accept, class Work, class ExtraSetUp = Nothing>
uint32_t run(const Stage& s, Progress& progress, uint32_t in, uint32_t out, uint16_t command, Accept&& accept,
             Work&& work, ExtraSetUp&& extra_set_up = {}) {
  uint32_t result = 0;
  const Image* src = checked_input(in, s.name, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0 && s.empty != Copy::none) {
    result = PIX_image_copy(in, out);
    if (is_error(result) && s.empty == Copy::copy) return result;
    if (s.target != 0) PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, s.target);
    return 0;
  }
  if (s.describes && src->lines_this_strip == 0) {
    result = describe_output(in, out, s.described_as != 0 ? s.described_as : s.target, s.out_line_align);
    return is_error(result) ? result : 0;
  }
  if (s.same != SameFormat::none && src->format == s.target) {
    result = PIX_image_copy(in, out);
    return s.same == SameFormat::copy_then_0 ? 0 : result;
  }
  if (uint32_t r = accept(*src); is_error(r)) return r;
  // The output's strip is replaced before the input is read: one image
  // cannot be both (refused before anything is set up).
  if (!s.in_place && find_image(out) == src) {
    return report(s.name, code::param_conflict, "Input and output must be different images");
  }
  return run_strips(
      progress, s.name, s.busy, in, out, command,
      [&]() -> uint32_t {
        if (uint32_t r = set_up_output(in, out, s.target, s.name, s.out_line_align); is_error(r)) return r;
        return extra_set_up();
      },
      work);
}

}  // namespace pix::stage
