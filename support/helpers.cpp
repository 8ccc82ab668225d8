// Small helpers that applications built on the library share: mode-word
// checks, a console pause, number scanning, case folding, command-line
// splitting, and memory-accounting entry points kept for callers that still
// link against them.  None of these reports a failure or checks its pointers.
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "pix95.h"

namespace pix::support {
namespace {

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Copies a text into one fixed slot of the command record, cut to fit.
void copy_text(char (&slot)[KVB_TEXT_LENGTH], const char* text) {
  std::size_t length = 0;
  while (length < KVB_TEXT_LENGTH - 1 && text[length] != '\0') ++length;
  std::memcpy(slot, text, length);
  slot[length] = '\0';
}

// The leading decimal number of a text, read the way atoi reads it (white
// space, an optional sign, digits), cut to 16 bits.  A number outside the
// int range saturates instead of being undefined.
uint16_t leading_number(const char* text) {
  long long value = std::strtoll(text, nullptr, 10);
  if (value > INT32_MAX) value = INT32_MAX;
  if (value < INT32_MIN) value = INT32_MIN;
  return static_cast<uint16_t>(static_cast<uint32_t>(static_cast<int32_t>(value)));
}

}  // namespace
}  // namespace pix::support

extern "C" {

PIX_API void PIX_CALL KVB_check_mallocs(void) {}

PIX_API double PIX_CALL KVB_get_malloc_info(void) { return 0.0; }

PIX_API void PIX_CALL KVB_loop_delay(uint32_t /*ignored*/) {}

PIX_API uint32_t PIX_CALL KVB_mul(uint32_t a, uint32_t b) { return a * b; }

PIX_API uint32_t PIX_CALL KVB_check_mode_one_selected(uint32_t mode, uint32_t mask) {
  const int selected = std::popcount(mode & mask);
  return selected > 1 ? static_cast<uint32_t>(selected - 1) : 0u;
}

PIX_API uint32_t PIX_CALL KVB_check_mode_invalid(uint32_t mode, uint32_t forbidden) {
  if ((mode & forbidden) != 0) return 1;
  // A mode with nothing outside the forbidden bits (mode 0 too) selects
  // nothing valid.
  return (mode & ~forbidden) == 0 ? 1u : 0u;
}

PIX_API int PIX_CALL KVB_pause(const char* text) {
  std::fprintf(stderr, "\nPaused at '%s' - hit return\n", text);
  std::fflush(stderr);
  return std::getchar();
}

PIX_API char* PIX_CALL KVB_sscanf(const char* text, uint16_t* value) {
  // Null pointers are answered, not followed: no text reads as no number.
  if (text == nullptr) {
    if (value != nullptr) *value = 0;
    return nullptr;
  }
  const uint16_t number = pix::support::leading_number(text);
  if (value != nullptr) *value = number;
  const char* p = text;
  while (pix::support::is_space(*p)) ++p;
  // Kept: callers walk number lists with p = KVB_sscanf(p, &v), so the
  // result points at the white space after the number.  The terminator also
  // ends the skip, so the last number of a text needs no white space after it.
  while (*p != '\0' && !pix::support::is_space(*p)) ++p;
  return const_cast<char*>(p);
}

PIX_API int PIX_CALL KVB_strncmp(const char* a, const char* b, uint32_t n) {
  return std::strncmp(a != nullptr ? a : "", b != nullptr ? b : "", n);  // a null text compares as empty
}

PIX_API char* PIX_CALL KVB_str_tolower(char* text) {
  if (text == nullptr) return nullptr;
  for (char* p = text; *p != '\0'; ++p) {
    *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
  }
  return text;
}

PIX_API char* PIX_CALL KVB_str_toupper(char* text) {
  if (text == nullptr) return nullptr;
  for (char* p = text; *p != '\0'; ++p) {
    *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  }
  return text;
}

PIX_API uint16_t PIX_CALL parse_command(tKVB_Command* record, uint16_t argc, char** argv) {
  if (record == nullptr) return 0;
  if (argv == nullptr) argc = 0;  // no words: an empty command line
  record->program[0] = '\0';
  if (argc > 0 && argv[0] != nullptr) pix::support::copy_text(record->program, argv[0]);

  // The record has room for KVB_MAX_OPTIONS options and KVB_MAX_ARGUMENTS
  // plain arguments: entries beyond them are dropped and not counted.
  uint16_t options = 0;
  uint16_t arguments = 0;
  for (uint16_t i = 1; i < argc; ++i) {
    const char* entry = argv[i];
    if (entry == nullptr) continue;
    if (entry[0] == '-') {
      if (options < KVB_MAX_OPTIONS) pix::support::copy_text(record->options[options++], entry);
    } else {
      if (arguments < KVB_MAX_ARGUMENTS) {
        pix::support::copy_text(record->arguments[arguments++], entry);
      }
    }
  }
  record->argument_total = argc;
  record->option_count = options;
  record->argument_count = arguments;
  return arguments;
}

}  // extern "C"
