// Library-wide state of the support layer.
//
// The .rbt helpers share one line buffer and one message buffer, as their
// callers expect: a later report overwrites the text of an earlier one, and
// the helpers are not reentrant.  Both buffers live in this one object.
#pragma once

#include <array>
#include <cstddef>

namespace pix::support {

// A .rbt line is read with a limit of 121 characters (terminator included),
// so a longer line counts as more than one line.
inline constexpr std::size_t kRbtLineLimit = 121;
inline constexpr std::size_t kMessageSize = 512;

struct SupportState {
  std::array<char, kRbtLineLimit> rbt_line{};
  std::array<char, kMessageSize> message{};
};

inline SupportState support_state{};

}  // namespace pix::support
