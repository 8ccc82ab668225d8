// What pix's commands share: reports, errors, images, progress, names.
#include <pix95.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "pix.h"

#ifdef _WIN32
#include <io.h>
#define PIX_ISATTY _isatty
#define PIX_FILENO _fileno
#else
#include <unistd.h>
#define PIX_ISATTY isatty
#define PIX_FILENO fileno
#endif

namespace pixtool {

namespace {

struct LastReport {
  std::string function;
  uint32_t code = 0;
  std::string message;
};
LastReport g_report;

uint32_t PIX_CALL keep_report(const char* function, uint32_t code, const char* message) {
  g_report = {function != nullptr ? function : "", code, message != nullptr ? message : ""};
  return code;
}

std::string hex(uint32_t code) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "0x%08X", code);
  return buffer;
}

}  // namespace

void keep_reports() { KVB_err_set_reporting(1, keep_report); }

uint32_t check(uint32_t result, const char* what) {
  if (!PIX_IS_ERROR(result)) return result;
  std::string text = std::string(what) + " failed: status " + hex(result);
  if (g_report.code == result && !g_report.function.empty()) {
    text += " (" + g_report.function + (g_report.message.empty() ? "" : ": " + g_report.message) + ")";
  }
  throw LibraryError(text);
}

uint32_t param(uint32_t image, uint16_t id) { return PIX_image_get_parameter(image, id); }
tPIX_Image* record(uint32_t image) { return static_cast<tPIX_Image*>(PIX_image_get_ptr(image, PIX_PTR_RECORD)); }

Image::Image() : handle_(check(PIX_image_create(), "PIX_image_create")) {}
Image::Image(bool jpeg)
    : handle_(jpeg ? check(PIX_JPEG_image_create(), "PIX_JPEG_image_create") : check(PIX_image_create(), "PIX_image_create")) {}

Progress::Progress(const std::string& label, uint32_t total)
    : label_(label), total_(total), shown_(total > 1 && PIX_ISATTY(PIX_FILENO(stderr))) {}
Progress::~Progress() {
  if (shown_) std::fprintf(stderr, "\r%*s\r", 60, "");
}
void Progress::update(uint32_t done) {
  if (!shown_) return;
  const uint32_t width = 30;
  const uint32_t filled = total_ == 0 ? width : static_cast<uint32_t>(uint64_t{done} * width / total_);
  std::fprintf(stderr, "\r%-16.16s [%s%s] %3u%%", label_.c_str(), std::string(filled, '#').c_str(),
               std::string(width - std::min(filled, width), ' ').c_str(),
               total_ == 0 ? 100u : static_cast<unsigned>(uint64_t{done} * 100 / total_));
  std::fflush(stderr);
}

const std::array<FormatName, 16> kFormats{{
    {"bilevel", PIX_BILEVEL}, {"y8", PIX_Y8},         {"paletted", PIX_PALETTED}, {"rgb8", PIX_RGB8},
    {"rgb15", PIX_RGB15},     {"rgb16", PIX_RGB16},   {"rgb24", PIX_RGB24},       {"bgr24", PIX_BGR24},
    {"rgbx32", PIX_RGBX32},   {"bgrx32", PIX_BGRX32}, {"xbgr32", PIX_XBGR32},     {"xrgb32", PIX_XRGB32},
    {"yuv422", PIX_YUV422},   {"y16", PIX_Y16},       {"hsi", PIX_HSI},           {"cmyk32", PIX_CMYK32},
}};

std::string format_name(uint32_t format) {
  for (const FormatName& f : kFormats) {
    if (f.format == format) return f.name;
  }
  return "format " + std::to_string(format);
}

const char* file_format_name(uint32_t code) {
  switch (code) {
    case PIX_FILE_TIFF: return "TIFF";
    case PIX_FILE_TGA: return "TGA";
    case PIX_FILE_JPEG: return "JPEG";
    case PIX_FILE_EPS: return "EPS";
    case PIX_FILE_BMP: return "BMP";
    default: return "unrecognised";
  }
}

uint16_t file_format_of(const std::string& path) {
  const std::string ext = [&] {
    std::string e = std::filesystem::path(path).extension().string();
    for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return e;
  }();
  if (ext == ".bmp") return PIX_FILE_BMP;
  if (ext == ".tif" || ext == ".tiff") return PIX_FILE_TIFF;
  if (ext == ".tga") return PIX_FILE_TGA;
  if (ext == ".eps") return PIX_FILE_EPS;
  if (ext == ".raw") return PIX_FILE_RAW;
  if (ext == ".jpg" || ext == ".jpeg") return PIX_FILE_JPEG;
  throw UsageError("cannot tell the file format of '" + path + "' (use .bmp .tif .tiff .tga .eps .raw .jpg)");
}

void read_header(uint32_t image) {
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 0);
  PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, 0);
  check(PIX_image_read(image, 0, PIX_STRIP_NEXT), "reading the header");
}

uint32_t number(const std::string& text, uint32_t low, uint32_t high, const std::string& option) {
  char* end = nullptr;
  const unsigned long n = std::strtoul(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || n < low || n > high) {
    throw UsageError(option + " takes " + std::to_string(low) + " to " + std::to_string(high));
  }
  return static_cast<uint32_t>(n);
}

}  // namespace pixtool
