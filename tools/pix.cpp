// pix: the library's command-line tool.  It uses the public C interface only.
//
//   pix info FILE
//   pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut]
//   pix demo [DIR]
#include <pix95.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#ifdef _WIN32
#include <io.h>
#define PIX_ISATTY _isatty
#define PIX_FILENO _fileno
#else
#include <unistd.h>
#define PIX_ISATTY isatty
#define PIX_FILENO fileno
#endif

namespace {

constexpr const char* kUsage =
    "usage: pix info FILE\n"
    "       pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut]\n"
    "       pix demo [DIR]\n"
    "       pix --help\n";

constexpr const char* kHelp =
    "pix: image files and pixel formats through the pix95 library\n"
    "\n"
    "  pix info FILE\n"
    "      the detected file format, width, height, pixel format, depth and the\n"
    "      number of strips a conversion reads it in\n"
    "  pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut]\n"
    "      reads IN (BMP, TIFF, TGA or EPS), converts it to FORMAT and writes OUT in\n"
    "      the file format of its extension (.bmp .tif .tiff .tga .eps .raw),\n"
    "      strip by strip: N lines at a time (default 64; 0 reads the whole image\n"
    "      at once).  --lut converts through the conversion tables.\n"
    "      FORMAT: bilevel y8 paletted rgb8 rgb15 rgb16 rgb24 bgr24 rgbx32 bgrx32\n"
    "              xbgr32 xrgb32 yuv422 y16 hsi\n"
    "  pix demo [DIR]\n"
    "      makes a 720x576 YUV 4:2:2 test card (colour bars, grey ramp, zone\n"
    "      plate), converts it to the display formats, writes it in every file\n"
    "      format into DIR (default pix-demo), reads each file back, checks it and\n"
    "      prints a table\n"
    "\n"
    "Exit status: 0 on success, 1 when the library reports a failure or a check\n"
    "fails, 2 on a usage error.\n";

struct FormatName {
  const char* name;
  uint16_t format;
};
constexpr std::array<FormatName, 16> kFormats{{
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

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A failure the library reported: the last report is kept for the message.
struct LibraryError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

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

char hex_buffer[16];
const char* hex(uint32_t code) {
  std::snprintf(hex_buffer, sizeof hex_buffer, "0x%08X", code);
  return hex_buffer;
}

// Throws when a call failed, with the library's code and report.
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

// One image handle, destroyed with its data at the end of the scope.
class Image {
 public:
  Image() : handle_(check(PIX_image_create(), "PIX_image_create")) {}
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() { PIX_image_destroy(handle_); }
  operator uint32_t() const { return handle_; }

 private:
  uint32_t handle_;
};

class Progress {
 public:
  Progress(const std::string& label, uint32_t total)
      : label_(label), total_(total), shown_(total > 1 && PIX_ISATTY(PIX_FILENO(stderr))) {}
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", 60, "");
  }
  void update(uint32_t done) {
    if (!shown_) return;
    const uint32_t width = 30;
    const uint32_t filled = total_ == 0 ? width : static_cast<uint32_t>(uint64_t{done} * width / total_);
    std::fprintf(stderr, "\r%-16.16s [%s%s] %3u%%", label_.c_str(), std::string(filled, '#').c_str(),
                 std::string(width - std::min(filled, width), ' ').c_str(),
                 total_ == 0 ? 100u : static_cast<unsigned>(uint64_t{done} * 100 / total_));
    std::fflush(stderr);
  }

 private:
  std::string label_;
  uint32_t total_;
  bool shown_;
};

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
  throw UsageError("cannot tell the file format of '" + path + "' (use .bmp .tif .tiff .tga .eps .raw)");
}

// Reads the header of the image's input file: width, height and format.
void read_header(uint32_t image) {
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 0);
  PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, 0);
  check(PIX_image_read(image, 0, PIX_STRIP_NEXT), "reading the header");
}

int info(const std::vector<std::string>& args) {
  if (args.size() != 1) throw UsageError("info takes one file");
  const uint32_t found = check(PIX_image_find_file_format(args[0].c_str()), "detecting the file format");
  std::printf("file          %s\n", args[0].c_str());
  std::printf("format        %s\n", file_format_name(found));
  if (found == PIX_FILE_UNRECOGNISED) return 1;
  Image image;
  PIX_image_set_infilename(image, args[0].c_str());
  read_header(image);
  PIX_image_read(image, 0, PIX_STRIP_FINISH);
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 64);
  std::printf("width         %u\n", param(image, PIX_IMAGE_WIDTH));
  std::printf("height        %u\n", param(image, PIX_IMAGE_HEIGHT));
  std::printf("pixel format  %s\n", format_name(param(image, PIX_IMAGE_FORMAT)).c_str());
  std::printf("depth         %u\n", param(image, PIX_IMAGE_DEPTH));
  std::printf("strips        %u of 64 lines\n", PIX_image_calc_total_strips(image));
  return 0;
}

struct ConvertOptions {
  std::string in, out;
  int target = -1;
  uint32_t strip_lines = 64;
  bool lut = false;
};

ConvertOptions parse_convert(const std::vector<std::string>& args) {
  ConvertOptions o;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (i + 1 >= args.size()) throw UsageError(a + " needs a value");
      return args[++i];
    };
    if (a == "--to") {
      const std::string& name = value();
      for (const FormatName& f : kFormats) {
        if (name == f.name) o.target = f.format;
      }
      if (o.target < 0) throw UsageError("unknown pixel format '" + name + "'");
    } else if (a == "--strip-lines") {
      const std::string& v = value();
      char* end = nullptr;
      const unsigned long n = std::strtoul(v.c_str(), &end, 10);
      if (v.empty() || *end != '\0' || n > 65535) throw UsageError("--strip-lines takes 0 to 65535");
      o.strip_lines = static_cast<uint32_t>(n);
    } else if (a == "--lut") {
      o.lut = true;
    } else if (!a.empty() && a[0] == '-') {
      throw UsageError("unknown option '" + a + "'");
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2) throw UsageError("convert takes an input and an output file");
  o.in = files[0];
  o.out = files[1];
  return o;
}

// Streams IN through the converter to OUT, one strip at a time.
int convert(const ConvertOptions& o) {
  const uint16_t out_format = file_format_of(o.out);
  Image in;
  Image expanded;
  Image converted;
  PIX_image_set_infilename(in, o.in.c_str());
  uint32_t height = 0;
  if (o.strip_lines == 0) {
    PIX_image_set_parameter(in, PIX_IMAGE_HEIGHT, 32767);  // the whole image in one read
  } else {
    read_header(in);
    height = param(in, PIX_IMAGE_HEIGHT);
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, std::min(o.strip_lines, std::max(height, 1u)));
  }
  const bool converting = o.target >= 0;
  const uint32_t flags = o.lut ? PIX_FLAG_USE_LUT : 0;
  uint32_t done = 0;
  Progress bar("converting", height == 0 ? 1 : (height + o.strip_lines - 1) / std::max(o.strip_lines, 1u));
  uint32_t strips = 0;
  do {
    check(PIX_image_read(in, 0, PIX_STRIP_NEXT), "reading");
    height = param(in, PIX_IMAGE_HEIGHT);
    const uint32_t lines = param(in, PIX_LINES_THIS_STRIP);
    uint32_t source = in;
    if (converting && param(in, PIX_IMAGE_FORMAT) == PIX_PALETTED && o.target != PIX_PALETTED) {
      // Paletted pixels leave through their colour map: grey maps give Y8,
      // others RGB24; the step below goes on from there when needed.
      check(PIX_image_convert(in, expanded, PIX_RGB24_OR_Y8, flags, PIX_STRIP_NEXT), "expanding the palette");
      source = expanded;
    }
    if (converting && param(source, PIX_IMAGE_FORMAT) != static_cast<uint32_t>(o.target)) {
      check(PIX_image_convert(source, converted, static_cast<uint16_t>(o.target), flags, PIX_STRIP_NEXT),
            "converting");
      source = converted;
    }
    PIX_image_set_outfilename(source, o.out.c_str());
    check(PIX_image_write(source, 0, out_format, PIX_STRIP_NEXT), "writing");
    done += lines;
    bar.update(++strips);
    if (lines == 0) break;
  } while (done < height);
  return 0;
}

// ---------------------------------------------------------------------------
// The demo: a grabber frame through every display format and file format.
// ---------------------------------------------------------------------------

constexpr uint32_t kCardWidth = 720;
constexpr uint32_t kCardHeight = 576;

struct Yuv {
  uint8_t y, u, v;
};

Yuv yuv_of(double r, double g, double b) {
  // Studio-range BT.601.
  const double y = 16 + 65.481 * r + 128.553 * g + 24.966 * b;
  const double u = 128 - 37.797 * r - 74.203 * g + 112.0 * b;
  const double v = 128 + 112.0 * r - 93.786 * g - 18.214 * b;
  auto clamp = [](double x) { return static_cast<uint8_t>(std::lround(std::clamp(x, 0.0, 255.0))); };
  return {clamp(y), clamp(u), clamp(v)};
}

// The test card's pixel pair at (x, x + 1) of line y: Y0 U Y1 V.
void card_pair(uint32_t x, uint32_t y, uint8_t* out) {
  static const std::array<Yuv, 8> bars = [] {
    std::array<Yuv, 8> b{};
    const double level = 0.75;
    for (int i = 0; i < 8; ++i) {
      // White, yellow, cyan, green, magenta, red, blue, black.
      const double r = (i == 0 || i == 1 || i == 4 || i == 5) ? level : 0.0;
      const double g = (i <= 3) ? level : 0.0;
      const double bl = (i == 0 || i == 2 || i == 4 || i == 6) ? level : 0.0;
      b[static_cast<std::size_t>(i)] = yuv_of(r, g, bl);
    }
    return b;
  }();
  if (y < kCardHeight / 2) {
    const Yuv c = bars[x * 8 / kCardWidth];
    out[0] = c.y;
    out[1] = c.u;
    out[2] = c.y;
    out[3] = c.v;
  } else if (y < kCardHeight * 5 / 8) {
    for (uint32_t i = 0; i < 2; ++i) out[2 * i] = static_cast<uint8_t>(16 + (x + i) * 219 / (kCardWidth - 1));
    out[1] = 128;
    out[3] = 128;
  } else {
    const double cx = kCardWidth / 2.0;
    const double cy = kCardHeight * 13.0 / 16.0;
    for (uint32_t i = 0; i < 2; ++i) {
      const double dx = x + i - cx;
      const double dy = y - cy;
      out[2 * i] = static_cast<uint8_t>(std::lround(126 + 109 * std::cos((dx * dx + dy * dy) * 0.0015)));
    }
    out[1] = 128;
    out[3] = 128;
  }
}

// Fills the YUV image's strip with card lines first .. first + lines - 1.
void fill_card_strip(uint32_t image, uint32_t first, uint32_t lines) {
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, lines);
  PIX_image_free_data(image);
  check(PIX_image_malloc_a_strip(image), "allocating a strip");
  tPIX_Image* img = record(image);
  for (uint32_t row = 0; row < lines; ++row) {
    uint8_t* line = img->data + std::size_t{row} * img->bytes_per_line;
    for (uint32_t x = 0; x < kCardWidth; x += 2) card_pair(x, first + row, line + 2 * x);
  }
}

void describe_card(uint32_t image) {
  PIX_image_set_parameter(image, PIX_IMAGE_FORMAT, PIX_YUV422);
  PIX_image_set_parameter(image, PIX_IMAGE_WIDTH, kCardWidth);
  PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, kCardHeight);
}

struct DemoFile {
  const char* name;
  uint16_t pixel_format;  // what the card is converted to before writing
  uint16_t file_format;
};

constexpr std::array<DemoFile, 10> kDemoFiles{{
    {"card_rgb24.bmp", PIX_RGB24, PIX_FILE_BMP},
    {"card_y8.bmp", PIX_Y8, PIX_FILE_BMP},
    {"card_rgb24.tif", PIX_RGB24, PIX_FILE_TIFF},
    {"card_y8.tif", PIX_Y8, PIX_FILE_TIFF},
    {"card_rgb24.tga", PIX_RGB24, PIX_FILE_TGA},
    {"card_rgb15.tga", PIX_RGB15, PIX_FILE_TGA},
    {"card_y8.tga", PIX_Y8, PIX_FILE_TGA},
    {"card_rgb24.eps", PIX_RGB24, PIX_FILE_EPS},
    {"card_y8.eps", PIX_Y8, PIX_FILE_EPS},
    {"card_yuv422.raw", PIX_YUV422, PIX_FILE_RAW},
}};

using Clock = std::chrono::steady_clock;
double ms_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The whole card converted to `format` in one strip: what a file must give back.
std::vector<uint8_t> expected_pixels(uint16_t format, uint32_t& bytes_per_line) {
  Image card;
  Image out;
  describe_card(card);
  fill_card_strip(card, 0, kCardHeight);
  uint32_t source = card;
  if (format != PIX_YUV422) {
    check(PIX_image_convert(card, out, format, 0, PIX_STRIP_NEXT), "converting the card");
    source = out;
  }
  if (format == PIX_RGB15) {
    // A 16-bit TGA file reads back as RGB24 through the library's expansion.
    Image rgb;
    check(PIX_image_convert(out, rgb, PIX_RGB24, 0, PIX_STRIP_NEXT), "expanding RGB15");
    const tPIX_Image* r = record(rgb);
    bytes_per_line = r->bytes_per_line;
    return {r->data, r->data + std::size_t{r->bytes_per_line} * kCardHeight};
  }
  const tPIX_Image* r = record(source);
  bytes_per_line = r->bytes_per_line;
  return {r->data, r->data + std::size_t{r->bytes_per_line} * kCardHeight};
}

// Reads a file back whole; paletted images are given as their grey or RGB values.
bool file_matches(const std::string& path, const DemoFile& f) {
  uint32_t expected_pitch = 0;
  const std::vector<uint8_t> expected = expected_pixels(f.pixel_format, expected_pitch);
  if (f.file_format == PIX_FILE_RAW) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (in == nullptr) return false;
    std::vector<uint8_t> got(expected.size() + 1);
    const std::size_t n = std::fread(got.data(), 1, got.size(), in);
    std::fclose(in);
    got.resize(n);
    return got == expected;
  }
  Image back;
  PIX_image_set_infilename(back, path.c_str());
  PIX_image_set_parameter(back, PIX_IMAGE_HEIGHT, 32767);
  check(PIX_image_read(back, 0, PIX_STRIP_NEXT), "reading back");
  const tPIX_Image* r = record(back);
  if (r->width != kCardWidth || r->height != kCardHeight || r->data == nullptr) return false;
  const uint32_t components = f.pixel_format == PIX_Y8 ? 1 : 3;
  const std::size_t row_bytes = std::size_t{kCardWidth} * components;
  for (uint32_t y = 0; y < kCardHeight; ++y) {
    const uint8_t* want = expected.data() + std::size_t{y} * expected_pitch;
    const uint8_t* got = r->data + std::size_t{y} * r->bytes_per_line;
    if (r->format == PIX_PALETTED) {
      for (uint32_t x = 0; x < kCardWidth; ++x) {
        if (r->cmap[got[x]].red != want[x]) return false;
      }
    } else if (std::memcmp(got, want, row_bytes) != 0) {
      return false;
    }
  }
  return true;
}

// Writes the card strip by strip, converted to the file's pixel format.
void write_card(const std::string& path, const DemoFile& f) {
  constexpr uint32_t kStrip = 64;
  Image card;
  Image converted;
  describe_card(card);
  PIX_image_set_outfilename(card, path.c_str());
  const bool converting = f.pixel_format != PIX_YUV422;
  const uint32_t source = converting ? uint32_t{converted} : uint32_t{card};
  Progress bar(f.name, kCardHeight / kStrip);
  try {
    for (uint32_t first = 0; first < kCardHeight; first += kStrip) {
      fill_card_strip(card, first, std::min(kStrip, kCardHeight - first));
      if (converting) {
        check(PIX_image_convert(card, converted, f.pixel_format, 0, PIX_STRIP_NEXT), "converting the card");
        PIX_image_set_outfilename(converted, path.c_str());
      }
      check(PIX_image_write(source, 0, f.file_format, PIX_STRIP_NEXT), "writing");
      bar.update(first / kStrip + 1);
    }
  } catch (const LibraryError&) {
    // The converter and the writer keep their runs library-wide: end both,
    // so that the next file starts afresh.
    if (converting) PIX_image_convert(card, converted, f.pixel_format, 0, PIX_STRIP_FINISH);
    PIX_image_write(source, 0, f.file_format, PIX_STRIP_FINISH);
    throw;
  }
}

int demo(const std::vector<std::string>& args) {
  if (args.size() > 1) throw UsageError("demo takes at most a directory");
  const std::filesystem::path dir = args.empty() ? "pix-demo" : args[0];
  std::filesystem::create_directories(dir);
  std::printf("pix demo: a %ux%u YUV 4:2:2 test card in %s/\n\n", kCardWidth, kCardHeight, dir.string().c_str());
  std::printf("%-18s %-8s %10s %9s %9s  %s\n", "file", "pixels", "bytes", "write ms", "read ms", "check");
  bool all_good = true;
  for (const DemoFile& f : kDemoFiles) {
    const std::string path = (dir / f.name).string();
    double write_ms = 0;
    double read_ms = 0;
    std::string verdict;
    try {
      const auto start = Clock::now();
      write_card(path, f);
      write_ms = ms_since(start);
      const auto read_start = Clock::now();
      verdict = file_matches(path, f) ? "ok" : "MISMATCH";
      read_ms = ms_since(read_start);
    } catch (const LibraryError& e) {
      verdict = e.what();
    }
    all_good = all_good && verdict == "ok";
    std::error_code ec;
    const auto bytes = std::filesystem::file_size(path, ec);
    std::printf("%-18s %-8s %10llu %9.1f %9.1f  %s\n", f.name, format_name(f.pixel_format).c_str(),
                static_cast<unsigned long long>(ec ? 0 : bytes), write_ms, read_ms, verdict.c_str());
  }
  std::printf("\n%s\n", all_good ? "every file read back as written" : "some files did not read back as written");
  return all_good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  KVB_err_set_reporting(1, keep_report);
  const std::vector<std::string> args(argv + std::min(argc, 2), argv + argc);
  const std::string command = argc > 1 ? argv[1] : "";
  int status = 2;
  try {
    if (command == "--help" || command == "-h" || command == "help") {
      std::fputs(kHelp, stdout);
      status = 0;
    } else if (command == "info") {
      status = info(args);
    } else if (command == "convert") {
      status = convert(parse_convert(args));
    } else if (command == "demo") {
      status = demo(args);
    } else {
      throw UsageError(command.empty() ? "no command given" : "unknown command '" + command + "'");
    }
  } catch (const UsageError& e) {
    std::fprintf(stderr, "pix: %s\n%s", e.what(), kUsage);
    status = 2;
  } catch (const LibraryError& e) {
    std::fprintf(stderr, "pix: %s\n", e.what());
    status = 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "pix: %s\n", e.what());
    status = 1;
  }
  PIX_image_destroy(PIX_ALL_IMAGES);
  return status;
}
