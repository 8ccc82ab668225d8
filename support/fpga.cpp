// FPGA configuration bit files (.rbt): a short header of text lines, then
// the configuration bits written as the characters 0 and 1.  These helpers
// find such a file, read its configuration length, load its bits and extract
// its build date.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/memory.h"
#include "pix95.h"
#include "support_state.h"

namespace pix::support {
namespace {

constexpr uint32_t kOpenFailed = PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_OPEN, 0);
// Detail 1 tells a file that would not open for loading from one whose
// length could not be read (both are open failures to the caller).
constexpr uint32_t kOpenFailedForLoading = PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_OPEN, 1);
constexpr uint32_t kOutOfMemory = PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_OUT_OF_MEMORY, 0);
constexpr uint32_t kHeaderUnreadable = PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_CORRUPT, 0);
constexpr uint32_t kUnexpectedCharacter = PIX_STATUS(PIX_MOD_SUPPORT, PIX_ERR_CORRUPT, 1);

// The default directory stands as written on every system; on other systems
// the environment variable is what names a real directory.
constexpr char kDefaultRbtDirectory[] = "c:\\kestrel\\lib\\rbt";
#ifdef _WIN32
constexpr char kPathSeparator = '\\';
#else
constexpr char kPathSeparator = '/';
#endif
constexpr std::size_t kPathSize = 128;

constexpr int kHeaderLinesBeforeBits = 7;
constexpr int kHeaderLinesToDate = 3;

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_text(const char* name) {
  if (name == nullptr) return File{};  // no name: a file that cannot be opened
  return File{std::fopen(name, "r")};
}

// One character as a text-mode stream on Windows delivers it: elsewhere a
// carriage return right before a line-feed is dropped, so files with CR LF
// line ends read the same on every system.
int read_char(std::FILE* file) {
  const int c = std::fgetc(file);
#ifndef _WIN32
  if (c == '\r') {
    const int next = std::fgetc(file);
    if (next == '\n') return '\n';
    if (next != EOF) std::ungetc(next, file);
  }
#endif
  return c;
}

// Reads one line into the shared line buffer the way fgets with the buffer's
// limit does: at most 120 characters, up to and including a line-feed.  The
// buffer is cleared first, so a short line never shows bytes of an earlier
// one.  False when the file ended before any character.
bool read_line(std::FILE* file) {
  auto& line = support_state.rbt_line;
  line.fill('\0');
  std::size_t count = 0;
  while (count + 1 < line.size()) {
    const int c = read_char(file);
    if (c == EOF) break;
    line[count++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  return count > 0;
}

// Hands the text now in the shared message buffer to the error routine.
uint32_t fail(const char* function, uint32_t code) {
  KVB_err_process(function, code, support_state.message.data());
  return code;
}

char* message() { return support_state.message.data(); }

// The configuration bytes while they are being read: starts at the size the
// length field promises and grows when the file holds more digits than that.
class ByteBuffer {
 public:
  bool reserve(std::size_t bytes) {
    data_.reset(static_cast<uint8_t*>(memory::allocate(bytes)));
    capacity_ = data_ ? bytes : 0;
    return data_ != nullptr;
  }

  bool push(uint8_t byte) {
    if (size_ == capacity_) {
      const std::size_t grown_capacity = capacity_ * 2;
      auto* grown = static_cast<uint8_t*>(memory::reallocate(data_.get(), grown_capacity));
      if (grown == nullptr) return false;  // the old block is still ours and freed with us
      static_cast<void>(data_.release());
      data_.reset(grown);
      capacity_ = grown_capacity;
    }
    data_.get()[size_++] = byte;
    return true;
  }

  // Gives the block away: the caller frees it with free().
  uint8_t* release() { return data_.release(); }

 private:
  memory::Owned<uint8_t> data_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
};

// A file name as messages show it.
const char* shown(const char* name) { return name != nullptr ? name : ""; }

}  // namespace
}  // namespace pix::support

extern "C" {

PIX_API uint32_t PIX_CALL KVB_locate_fpga_rbt_file(const char* variable, char* file_name) {
  using namespace pix::support;
  if (file_name == nullptr) return fail("KVB_locate_fpga_rbt_file", kOpenFailed);  // nowhere to look or answer
  if (File file = open_text(file_name)) return 0;

  const char* directory = variable != nullptr ? std::getenv(variable) : nullptr;
  if (directory == nullptr) directory = kDefaultRbtDirectory;
  char path[kPathSize];
  std::snprintf(path, sizeof path, "%s%c%s", directory, kPathSeparator, file_name);

  if (File file = open_text(path)) {
    std::memcpy(file_name, path, std::strlen(path) + 1);  // under 128 bytes by construction
    return 0;
  }
  std::snprintf(message(), kMessageSize, "Failed to locate FPGA file '%s'", path);
  return fail("KVB_locate_fpga_rbt_file", kOpenFailed);
}

PIX_API uint32_t PIX_CALL KVB_get_rbt_bit_length(const char* file_name) {
  using namespace pix::support;
  if (file_name == nullptr) return 0;
  std::FILE* file = std::fopen(file_name, "r");
  if (file == nullptr) return 0;
  // A file with fewer header lines fails the check below.
  for (int i = 0; i < kHeaderLinesBeforeBits; ++i) read_line(file);

  int c = 0;
  do {
    c = read_char(file);
  } while (c == '1');
  // The character that ended the run of ones is the first 0 of the 0010 that
  // comes before the length field; the other three must follow.
  const bool marked = read_char(file) == '0' && read_char(file) == '1' && read_char(file) == '0';

  uint32_t length = 0;
  if (marked) {
    // Kept: every character gives its lowest bit, whatever it is; the end of
    // the file gives ones, so a file that ends inside the length field still
    // has a non-zero length and all its digits load.
    for (int i = 0; i < 24; ++i) length = (length << 1) | static_cast<uint32_t>(read_char(file) & 1);
  }
  if (std::fclose(file) != 0) return 0;
  return marked ? length : 0;
}

PIX_API uint32_t PIX_CALL KVB_get_fpga_data_and_length(const char* file_name, tKVB_FPGA_Data* record) {
  using namespace pix::support;
  constexpr const char* kName = "KVB_get_fpga_data_and_length";

  const uint32_t length = KVB_get_rbt_bit_length(file_name);
  if (record == nullptr || length == 0) {
    // No record to fill is refused like a file that cannot be read.
    if (record != nullptr) record->length = length;
    std::snprintf(message(), kMessageSize, "Failed to open '%s', or file corrupt", shown(file_name));
    return fail(kName, kOpenFailed);
  }

  // The record only ever holds a block that it then owns: on any failure
  // below the block is freed here and the record's pointer is null.
  record->data = nullptr;
  ByteBuffer bytes;
  if (!bytes.reserve((std::size_t{length} >> 3) + 17)) {
    std::snprintf(message(), kMessageSize, "While reading file '%s'", file_name);
    return fail(kName, kOutOfMemory);
  }

  File file = open_text(file_name);
  if (!file) {
    std::snprintf(message(), kMessageSize, "Failed to open '%s'", file_name);
    return fail(kName, kOpenFailedForLoading);
  }
  for (int i = 0; i < kHeaderLinesBeforeBits; ++i) {
    if (!read_line(file.get())) {
      std::snprintf(message(), kMessageSize, "Failed to read header of '%s'", file_name);
      return fail(kName, kHeaderUnreadable);
    }
  }

  uint32_t digits = 0;
  unsigned position = 0;  // bit position in the current byte, least significant first
  unsigned current = 0;
  for (int c = read_char(file.get()); c != EOF; c = read_char(file.get())) {
    if (c == '\n') continue;
    if (c != '0' && c != '1') {
      // The code is shown as a signed char, so bytes above 127 come out negative.
      std::snprintf(message(), kMessageSize, "Unexpected character '%d' in file '%s'",
                    static_cast<int>(static_cast<signed char>(c)), file_name);
      return fail(kName, kUnexpectedCharacter);
    }
    current |= static_cast<unsigned>(c - '0') << position;
    ++digits;
    if (++position == 8) {
      if (!bytes.push(static_cast<uint8_t>(current))) {
        std::snprintf(message(), kMessageSize, "While reading file '%s'", file_name);
        return fail(kName, kOutOfMemory);
      }
      current = 0;
      position = 0;
    }
  }

  // A partly filled last byte has its unused high bits set; when the digits
  // fill whole bytes a 0xFF byte follows all the same.
  const auto last = static_cast<uint8_t>(position > 0 ? (current | (0xFFu << position)) : 0xFFu);
  if (!bytes.push(last)) {
    std::snprintf(message(), kMessageSize, "While reading file '%s'", file_name);
    return fail(kName, kOutOfMemory);
  }
  record->data = bytes.release();
  record->length = digits;
  return 0;
}

PIX_API uint32_t PIX_CALL KVB_get_rbt_date_string(const char* file_name, char* date) {
  using namespace pix::support;
  if (date != nullptr) date[0] = '\0';
  File file = open_text(file_name);
  if (!file) {
    std::snprintf(message(), kMessageSize, "Failed to open '%s'", shown(file_name));
    return fail("KVB_get_rbt_date_string", kOpenFailed);
  }
  if (date == nullptr) return 0;  // nowhere to put the date
  // The third line, in ctime layout ("Fri Jan  5 10:23:45 2001"), stays in
  // the line buffer.  A file with fewer lines leaves it cleared, which gives
  // an empty date.
  for (int i = 0; i < kHeaderLinesToDate; ++i) read_line(file.get());
  const char* line = support_state.rbt_line.data();

  date[0] = line[8] == ' ' ? '0' : line[8];
  date[1] = line[9];
  date[2] = '-';
  std::memcpy(date + 3, line + 4, 3);  // month
  date[6] = '-';
  date[7] = line[22];  // last two digits of the year
  date[8] = line[23];
  date[9] = ' ';
  std::memcpy(date + 10, line + 11, 5);  // hours and minutes
  date[15] = '\0';
  return 0;
}

}  // extern "C"
