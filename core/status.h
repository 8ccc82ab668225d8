// Status codes and error reporting shared by every module.
#pragma once

#include <cstdint>
#include <string>

#include "pix95.h"

namespace pix {

constexpr uint32_t status(uint32_t module, uint32_t number, uint32_t detail = 0) {
  return (module << 24) | (number << 16) | (detail & 0xFFFFu);
}
constexpr bool is_error(uint32_t code) { return (code & 0x00FF0000u) != 0; }

// A code with `detail` in its low 16 bits: the offending pixel format, a site
// number, or the low bits of a size that could not be allocated.
constexpr uint32_t with_detail(uint32_t code, uint64_t detail) {
  return code | static_cast<uint32_t>(detail & 0xFFFFu);
}

// A callee's code passed on with a module byte ORed over it (kept: readers
// hand on a failed check or allocation this way, so a bare code from below
// arrives tagged as the image library's).
constexpr uint32_t tag_module(uint32_t code, uint32_t module = PIX_MOD_IMAGE) { return code | (module << 24); }

// Codes raised by more than one module.
namespace code {
inline constexpr uint32_t bad_handle = status(PIX_MOD_IMAGE, PIX_ERR_BAD_HANDLE);
inline constexpr uint32_t bad_image = status(PIX_MOD_IMAGE, PIX_ERR_BAD_IMAGE);
inline constexpr uint32_t unsupported = status(PIX_MOD_IMAGE, PIX_ERR_OPT_UNSUPPORTED);
inline constexpr uint32_t incompatible = status(PIX_MOD_IMAGE, PIX_ERR_OPT_INCOMPATIBLE);
inline constexpr uint32_t unrecognised = status(PIX_MOD_IMAGE, PIX_ERR_OPT_UNRECOGNISED);
inline constexpr uint32_t bad_parameter = status(PIX_MOD_IMAGE, PIX_ERR_BAD_PARAMETER);
inline constexpr uint32_t out_of_range = status(PIX_MOD_IMAGE, PIX_ERR_OUT_OF_RANGE);
inline constexpr uint32_t param_conflict = status(PIX_MOD_IMAGE, PIX_ERR_PARAM_CONFLICT);
inline constexpr uint32_t out_of_memory = status(PIX_MOD_IMAGE, PIX_ERR_OUT_OF_MEMORY);
inline constexpr uint32_t open_failed = status(PIX_MOD_IMAGE, PIX_ERR_OPEN);
inline constexpr uint32_t close_failed = status(PIX_MOD_IMAGE, PIX_ERR_CLOSE);
inline constexpr uint32_t seek_failed = status(PIX_MOD_IMAGE, PIX_ERR_SEEK);
inline constexpr uint32_t corrupt = status(PIX_MOD_IMAGE, PIX_ERR_CORRUPT);
inline constexpr uint32_t max_handles = status(PIX_MOD_IMAGE, PIX_ERR_MAX_HANDLES);
inline constexpr uint32_t internal = status(PIX_MOD_IMAGE, PIX_ERR_INTERNAL);
inline constexpr uint32_t in_progress = status(PIX_MOD_IMAGE, PIX_ERR_IN_PROGRESS);
inline constexpr uint32_t bad_state = status(PIX_MOD_IMAGE, PIX_ERR_BAD_STATE);
}  // namespace code

// Hands a failure to the error routine and gives the code back, so that
// failing paths read `return report(name, code, "text");`.
uint32_t report(const char* function, uint32_t code, const char* message = "");

// The text of an error number as the stock handler shows it.
const char* error_text(uint32_t number);

// The stock handler's text: header line, error text, quoted message, cut to
// 511 characters as the 512-byte buffer of the stock handler cuts it.
std::string format_error_text(const char* function, uint32_t code, const char* message);

// Where the stock handler sends its text: a message box on Windows, the
// standard error stream elsewhere.  Replaceable so that tests can capture it.
using ErrorSink = uint32_t (*)(const char* text);
ErrorSink set_error_sink(ErrorSink sink);

}  // namespace pix
