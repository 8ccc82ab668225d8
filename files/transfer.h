// File and memory transfers: the library-wide state of one reader or writer,
// and the one driver they all run.
//
// A transfer is called once per strip.  Its first call starts a run (opens
// the file, reads or writes the header, prepares a memory image); each call
// with command 3 then moves one strip, the last strip is cut to the image
// height, and the run ends by itself or at once on command 4, when the
// stream is closed.  One transfer of each kind is under way at a time,
// library-wide, and destroying every image ends them all.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/stage.h"
#include "core/status.h"
#include "stream.h"

namespace pix::files {

// What sets one transfer's run apart, besides its steps.
struct Plan {
  const char* function;          // the outer function: the end of the run reports under it
  uint16_t busy = stage::kBusy;  // the progress value while a run is under way
  // Command 3 on an image that holds no strip lines stops after the start:
  // that is how a reader is asked for its header alone (size and format).
  bool header_only = false;
  stage::Ending ending = {};
  // The message reported with code::bad_handle when the counted image is gone.
  const char* missing = "";
};

enum class Mode { binary, text };

struct Transfer : Releasable {
  stage::Progress progress;
  Stream stream;  // never opened by memory transfers

  FILE* file() const noexcept { return stream.get(); }

  // Opens `name` for the run; a failure is reported under `function`
  // ("Failed to open file", "Failed to create file") and its code returned.
  // Writers get the 16384-byte stream buffer; a reader only when it asks.
  uint32_t open_for_reading(const char* function, const char* name, Mode mode = Mode::binary, bool buffered = false);
  uint32_t open_for_writing(const char* function, const char* name, Mode mode = Mode::binary);

  // Failure paths: the stream is dropped unchecked and the transfer idle.
  // Gives `result` back, for `return t.stop(report(...));`.
  uint32_t stop(uint32_t result) noexcept;

  // The end of a run: the stream is closed, and a failed close or any read
  // or write that failed during the run gives 0x10650000 "Failed to close
  // file", reported under `function`.
  uint32_t finish(const char* function);

  void release() noexcept override;

  // The driver.  Idle: lines done back to 0 and `begin` starts the run (its
  // error is returned; the transfer stays idle unless `begin` moved it).
  // Every call: `each_call` (an image check, say; its error is returned).
  // Then the strip step of `counted` with `work` and `on_next`, the run
  // ending in finish().
  template <class Begin, class Work, class OnNext = stage::Nothing, class EachCall = stage::Nothing>
  uint32_t run(const Plan& plan, uint32_t counted, uint16_t command, Begin&& begin, Work&& work,
               OnNext&& on_next = {}, EachCall&& each_call = {}) {
    if (uint32_t r = stage::start(progress, plan.busy, begin); is_error(r)) return r;
    if (uint32_t r = each_call(); is_error(r)) return r;
    Image* img = find_image(counted);
    if (img == nullptr) return report(plan.function, code::bad_handle, plan.missing);
    if (plan.header_only && command == stage::kNext && img->lines_this_strip == 0) return 0;
    return stage::advance(progress, *img, command, work, on_next, [&] { return finish(plan.function); },
                          plan.ending);
  }

 protected:
  // What a transfer keeps for the length of a run (row buffers, a text
  // reader) is let go here: at the end of every run, stopped or finished,
  // and on release.
  virtual void end_run() noexcept {}
};

}  // namespace pix::files
