// The outer half of a one-input converter: checks, the description-only
// path, the same-format copy, the format test and the strip protocol, in the
// order every converter runs them.  A converter supplies its descriptor, its
// format test and its worker.
#pragma once

#include <cstdint>

#include "core/strip.h"

namespace pix::convert {

enum class SameFormat {
  none,         // no copy path: the format test decides
  copy,         // an input already in the target format is copied; the copy's code is returned
  copy_then_0,  // copied, and 0 returned whatever the copy said
};

struct Converter {
  const char* name;                 // the outer function's name for reports
  uint16_t target;                  // output format
  bool out_line_align = false;      // the output takes the input's out_line_align when non-zero
  SameFormat same = SameFormat::copy;
  bool describes = true;            // an input without lines only describes the output
  uint16_t described_as = 0;        // the format given on that path (0: the target)
  uint16_t busy = strip::kBusy;     // progress value while a run is under way
};

// `accept(const Image& in)` returns 0 for a format it converts, or the code
// it reported.  `work()` converts the strip the input holds.  `extra_set_up()`
// runs after the usual first-strip set-up (a table to build, say).
template <class Accept, class Work, class ExtraSetUp = strip::Nothing>
uint32_t run_converter(const Converter& c, strip::Progress& progress, uint32_t in, uint32_t out,
                       uint16_t command, Accept&& accept, Work&& work, ExtraSetUp&& extra_set_up = {}) {
  uint32_t result = 0;
  const Image* src = strip::checked_input(in, c.name, result);
  if (src == nullptr) return result;
  if (c.describes && src->lines_this_strip == 0) {
    result = strip::describe_output(in, out, c.described_as != 0 ? c.described_as : c.target, c.out_line_align);
    return is_error(result) ? result : 0;
  }
  if (c.same != SameFormat::none && src->format == c.target) {
    result = PIX_image_copy(in, out);
    return c.same == SameFormat::copy_then_0 ? 0 : result;
  }
  if (uint32_t r = accept(*src); is_error(r)) return r;
  // The output's strip is replaced before the input is read: one image
  // cannot be both (refused before anything is set up).
  if (find_image(out) == src) return report(c.name, code::param_conflict, "Input and output must be different images");
  return strip::run(
      progress, c.name, c.busy, in, out, command,
      [&]() -> uint32_t {
        if (uint32_t r = strip::set_up_output(in, out, c.target, c.name, c.out_line_align); is_error(r)) return r;
        return extra_set_up();
      },
      work);
}

// The usual refusal of a source format.
inline uint32_t unsupported_format(const char* function, const char* message = "Unsupported image format") {
  return report(function, code::unsupported, message);
}

}  // namespace pix::convert
