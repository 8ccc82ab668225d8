// pix, the library's command-line tool: what its commands share.  It uses
// the public C interface only.
#pragma once

#include <pix95.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace pixtool {

using Args = std::vector<std::string>;

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A failure the library reported: the last report is kept for the message.
struct LibraryError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Keeps the library's reports, so that a failure can be told with its
// function and message.
void keep_reports();

// Throws LibraryError when a call failed, with the library's code and report.
uint32_t check(uint32_t result, const char* what);

uint32_t param(uint32_t image, uint16_t id);
tPIX_Image* record(uint32_t image);

// One image handle (a JPEG image when asked), destroyed with its data at
// the end of the scope.
class Image {
 public:
  Image();
  explicit Image(bool jpeg);
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() { PIX_image_destroy(handle_); }
  operator uint32_t() const { return handle_; }

 private:
  uint32_t handle_;
};

// A progress bar on standard error when it is a terminal.
class Progress {
 public:
  Progress(const std::string& label, uint32_t total);
  ~Progress();
  void update(uint32_t done);

 private:
  std::string label_;
  uint32_t total_;
  bool shown_;
};

struct FormatName {
  const char* name;
  uint16_t format;
};
extern const std::array<FormatName, 16> kFormats;
std::string format_name(uint32_t format);
const char* file_format_name(uint32_t code);

// The file format of a path's extension (a usage error when there is none).
uint16_t file_format_of(const std::string& path);

// Reads the header of the image's input file: width, height and format.
void read_header(uint32_t image);

// A whole number from `text`, within `low`..`high`, or a usage error naming `option`.
uint32_t number(const std::string& text, uint32_t low, uint32_t high, const std::string& option);

// The commands.
int info(const Args& args);
int convert(const Args& args);
int demo(const Args& args);
int crop(const Args& args);
int scale(const Args& args);
int rotate(const Args& args);
int mirror(const Args& args);
int filter(const Args& args);
int threshold(const Args& args);
int fields(const Args& args);
int pseudo(const Args& args);
int histogram(const Args& args);
int key(const Args& args);

}  // namespace pixtool
