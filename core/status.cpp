// Status codes, the error routine and its stock handler.
#include "status.h"

#include <array>
#include <cstdio>
#include <string_view>

#include "platform.h"

namespace pix {
namespace {

struct ErrorText {
  uint8_t number;
  const char* text;
};

constexpr std::array<ErrorText, 35> kErrorTexts{{
    {1, "(Bad handle)"},
    {2, "(Register number invalid)"},
    {3, "(Image structure invalid)"},
    {20, "(Option not supported)"},
    {21, "(Option incompatible with existing settings)"},
    {22, "(Option not yet implemented)"},
    {23, "(Option not recognized)"},
    {40, "(Bad parameter)"},
    {41, "(Parameter value out of range)"},
    {42, "(Function parameter conflict)"},
    {60, "(Possible hardware failure)"},
    {61, "(Hardware not found)"},
    {62, "(Module type not recognized, or no module fitted, or '_KSTxx' compiler directive missing?)"},
    {63, "(Baseboard type not recognized)"},
    {64, "(No video present)"},
    {65, "(Hardware timed out)"},
    {66, "(Video out of lock)"},
    {67, "(System overflow)"},
    {68, "(Parity Error)"},
    {80, "(Out of memory)"},
    {81, "(OS thread operation failed)"},
    {82, "(Device driver call or ioctl failed)"},
    {83, "(System call failed)"},
    {100, "(Open failed)"},
    {101, "(Close failed)"},
    {102, "(Read failed)"},
    {103, "(Write failed)"},
    {104, "(Seek failed)"},
    {105, "(Corrupt file or data)"},
    {120, "(Exceeded SW limit of maximum number of handles)"},
    {121, "(Internal error in function)"},
    {122, "(Already in progress)"},
    {123, "(Installed library versions are incompatible)"},
    {124, "(Invalid state in SW or HW)"},
    {0, nullptr},
}};

// The reporting state of the whole library: the application's handler (none
// at load time) and where the stock handler's text goes.
struct ReportingState {
  tKVB_Err_handler handler = nullptr;
  ErrorSink sink = &platform::show_error_text;
};

ReportingState& reporting() {
  static ReportingState state;
  return state;
}

constexpr std::size_t kTextBuffer = 512;

}  // namespace

const char* error_text(uint32_t number) {
  for (const auto& entry : kErrorTexts) {
    if (entry.text != nullptr && entry.number == number) return entry.text;
  }
  return "(Error code not recognised)";
}

std::string format_error_text(const char* function, uint32_t code, const char* message) {
  char header[kTextBuffer];
  std::snprintf(header, sizeof header, "\n%s:  Failed with error code 0x%08lx\n",
                function ? function : "(null)", static_cast<unsigned long>(code));
  std::string text = header;
  // The error number is bits 16-23; 0 and anything above 124 have no entry.
  text += error_text((code >> 16) & 0xFFu);
  if (message != nullptr && message[0] != '\0') {
    text += "\n\"";
    text += message;
    text += "\"\n";
  }
  if (text.size() > kTextBuffer - 1) text.resize(kTextBuffer - 1);
  return text;
}

ErrorSink set_error_sink(ErrorSink sink) {
  ErrorSink old = reporting().sink;
  reporting().sink = sink ? sink : &platform::show_error_text;
  return old;
}

uint32_t report(const char* function, uint32_t code, const char* message) {
  KVB_err_process(function, code, message);
  return code;
}

}  // namespace pix

extern "C" {

PIX_API uint32_t PIX_CALL KVB_err_process(const char* function, uint32_t code, const char* message) {
  auto& state = pix::reporting();
  if (!pix::is_error(code) || (code & PIX_SILENT) != 0 || state.handler == nullptr) return code;
  return state.handler(function, code, message);
}

PIX_API uint32_t PIX_CALL KVB_err_set_reporting(uint32_t mode, tKVB_Err_handler handler) {
  if (mode != 1) {
    return pix::report("KVB_err_set_reporting", pix::status(PIX_MOD_SUPPORT, PIX_ERR_BAD_PARAMETER));
  }
  pix::reporting().handler = handler;
  return 0;
}

PIX_API uint32_t PIX_CALL KVB_err_display(const char* function, uint32_t code, const char* message) {
  const std::string text = pix::format_error_text(function, code, message);
  return pix::reporting().sink(text.c_str());
}

}  // extern "C"
