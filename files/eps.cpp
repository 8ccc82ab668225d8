// Encapsulated PostScript: an image drawn centred on a fixed page area with
// its data in hexadecimal, and a reader for the files this writer makes.
//
// Both streams are text streams ("w" and "r"), so line ends follow the
// platform's convention.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "core/image.h"
#include "core/memory.h"
#include "core/status.h"
#include "core/stage.h"
#include "stream.h"
#include "transfer.h"

using namespace pix;

namespace {

constexpr const char* kReader = "PIX_read_EPS_file";
constexpr const char* kWriter = "PIX_write_EPS_file";
constexpr const char* kWordReader = "fread_word_ascii";

constexpr uint16_t kPrologueWritten = 2;
constexpr uint16_t kHeaderTaken = 2;

constexpr std::size_t kLineLimit = 257;  // characters of a header line
constexpr std::size_t kWordLimit = 256;  // characters of a word
constexpr int kBytesPerTextLine = 39;    // data bytes before a line break
constexpr uint32_t kMapEntries = 256;

// A text stream read through a block buffer of our own: headers are read a
// character at a time and the data two hexadecimal digits at a time.
class TextSource {
 public:
  void reset(FILE* f) {
    file_ = f;
    pos_ = len_ = 0;
    buffer_.resize(files::kStreamBuffer);
  }
  int get() {
    if (pos_ == len_ && !fill()) return EOF;
    return static_cast<unsigned char>(buffer_[pos_++]);
  }

 private:
  bool fill() {
    if (file_ == nullptr) return false;
    len_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
    pos_ = 0;
    return len_ > 0;
  }
  FILE* file_ = nullptr;
  std::vector<char> buffer_;
  std::size_t pos_ = 0, len_ = 0;
};

// Library-wide state: one EPS file written and one read at a time.
struct EpsWriter : files::Transfer {
  std::vector<char> text;  // a line of hexadecimal text on its way out
  void end_run() noexcept override { text = std::vector<char>(); }
};
struct EpsReader : files::Transfer {
  TextSource source;
  bool at_end = false;  // the hexadecimal reader met the end of the file
  void end_run() noexcept override {
    source = TextSource{};
    at_end = false;
  }
};
EpsWriter& writer() {
  static EpsWriter state;
  return state;
}
EpsReader& reader() {
  static EpsReader state;
  return state;
}
constexpr files::Plan kWritePlan{.function = kWriter, .busy = kPrologueWritten};
constexpr files::Plan kReadPlan{.function = kReader, .busy = kHeaderTaken, .header_only = true};

constexpr bool writable(uint16_t format) {
  return format == PIX_BILEVEL || format == PIX_Y8 || format == PIX_PALETTED || format == PIX_RGB24;
}

// ---------------------------------------------------------------- geometry

struct Geometry {
  bool landscape = false;
  int64_t short_extent = 0, long_extent = 0;
  int64_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

// The picture is fitted into 522 x 720 points with its corner at (18, 10),
// long side along the page, in integer arithmetic.
Geometry fit(uint32_t width, uint32_t height) {
  Geometry g;
  g.landscape = width > height;
  const int64_t s = g.landscape ? height : width;
  const int64_t l = g.landscape ? width : height;
  // A side of 0 would divide by zero: it counts as an endlessly thin picture.
  const bool tall = s == 0 || (522ll * 65536) / s >= (720ll * 65536) / l;
  if (tall) {
    g.long_extent = 720;
    g.short_extent = l == 0 ? 0 : s * 720 / l;
    g.x0 = ((522 - g.short_extent) >> 1) + 18;
    g.x1 = ((g.short_extent + 522) >> 1) + 18;
    g.y0 = 10;
    g.y1 = 730;
  } else {
    g.short_extent = 522;
    g.long_extent = l * 522 / s;
    g.y0 = ((720 - g.long_extent) >> 1) + 10;
    g.y1 = ((g.long_extent + 720) >> 1) + 10;
    g.x0 = 18;
    g.x1 = 540;
  }
  return g;
}

// ---------------------------------------------------------------- writing

// Bytes of one line of data as the file holds it.
uint64_t data_bytes(const Image& img) {
  if (img.format == PIX_BILEVEL) return (static_cast<uint64_t>(img.width) + 7) / 8;
  if (img.format == PIX_RGB24) return 3ull * img.width;
  return img.width;
}

// Distance between lines in memory: the record's line length, or for a
// bilevel image (whose record counts no line bytes) its packed stride.  With
// the usual 2-byte alignment both are the data bytes padded to an even count.
uint64_t line_step(const Image& img) {
  if (img.format == PIX_BILEVEL) return bilevel_stride(img);
  return img.bytes_per_line;
}

void write_prologue(FILE* f, const Image& img) {
  const Geometry g = fit(img.width, img.height);
  const long w = static_cast<long>(img.width);
  const long h = static_cast<long>(img.height);
  char creator[PIX_NAME_LENGTH + 1];
  std::memcpy(creator, img.name, PIX_NAME_LENGTH);
  creator[PIX_NAME_LENGTH] = '\0';

  std::fprintf(f, "%%!PS-Adobe-3.0 EPSF-3.0\n");
  std::fprintf(f, "%%%%BoundingBox: %ld %ld %ld %ld\n", static_cast<long>(g.x0), static_cast<long>(g.y0),
               static_cast<long>(g.x1), static_cast<long>(g.y1));
  std::fprintf(f, "%%%%Creator: %s\n", creator);
  // Kept: the RGB file carries the CMYK extension comment.
  if (img.format == PIX_RGB24) std::fprintf(f, "%%%%Extensions: CMYK\n");
  if (img.format == PIX_PALETTED) std::fprintf(f, "%%%%LanguageLevel: 2\n");
  std::fprintf(f, "%%%%EndComments\n%%%%EndProlog\n");
  std::fprintf(f, "%ld %ld translate\n", static_cast<long>(g.x0), static_cast<long>(g.y0));
  std::fprintf(f, "0 rotate\n");
  const long along = static_cast<long>(g.landscape ? g.long_extent : g.short_extent);
  const long across = static_cast<long>(g.landscape ? g.short_extent : g.long_extent);

  if (img.format == PIX_PALETTED) {
    std::fprintf(f, "%ld %ld scale\n", along, across);
    // The map holds 256 entries: a larger size is written as 256.
    const uint32_t entries = img.cmap == nullptr ? 0 : std::min<uint32_t>(img.cmap_size, kMapEntries);
    std::fprintf(f, "[/Indexed /DeviceRGB %d\n <", static_cast<int>(entries) - 1);
    for (uint32_t i = 0; i < entries; ++i) {
      const tPIX_Colour& c = img.cmap[i];
      std::fprintf(f, "%02x%02x%02x", c.red, c.green, c.blue);
      if (i % 11 == 10) {
        std::fprintf(f, "\n  ");
      } else if (i + 1 != entries) {
        std::fprintf(f, " ");
      }
    }
    std::fprintf(f, ">\n] setcolorspace\n");
    std::fprintf(f, "<<\n  /ImageType 1\n");
    std::fprintf(f, "  /Width %d\n", static_cast<int>(img.width));
    std::fprintf(f, "  /Height %d\n", static_cast<int>(img.height));
    std::fprintf(f, "  /BitsPerComponent %d\n", static_cast<int>(img.depth));
    std::fprintf(f, "  /Decode [0 1 0 1 0 1]\n");
    if (g.landscape) {
      std::fprintf(f, "  /ImageMatrix[0 %ld %ld 0 0 0]", w, h);
      std::fprintf(f, "\t%% Landscape Orientation\n");
    } else {
      std::fprintf(f, "  /ImageMatrix[%ld 0 0 -%ld 0 %ld]", w, h, h);
      std::fprintf(f, "\t%% Portrait Orientation\n");
    }
    std::fprintf(f, "  /DataSource currentfile\n");
    std::fprintf(f, "  /ASCIIHexDecode filter\n");
    std::fprintf(f, ">>\nimage\n");
    return;
  }
  std::fprintf(f, "/picstr %ld string def\n", w);
  std::fprintf(f, "%ld %ld scale\n", along, across);
  if (img.format == PIX_BILEVEL) {
    std::fprintf(f, "%ld %ld 1\n", w, h);
  } else {
    std::fprintf(f, "%ld %ld 8\n", w, h);
  }
  if (g.landscape) {
    std::fprintf(f, "[0 %ld %ld 0 0 0]\t%% Landscape Orientation\n", w, h);
  } else {
    std::fprintf(f, "[%ld 0 0 -%ld 0 %ld]\t%% Portrait Orientation\n", w, h, h);
  }
  std::fprintf(f, "{currentfile\n picstr readhexstring pop}\n");
  std::fprintf(f, img.format == PIX_RGB24 ? "false 3\ncolorimage\n" : "image\n");
}

constexpr std::array<char, 16> kHexDigits = {'0', '1', '2', '3', '4', '5', '6', '7',
                                              '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

// One line of data as text: two digits a byte, a line break after every
// 39th byte and one at the end.
std::span<const char> hex_line(std::vector<char>& text, const uint8_t* bytes, std::size_t n) {
  text.resize(2 * n + n / kBytesPerTextLine + 1);
  char* p = text.data();
  int column = 0;
  for (std::size_t i = 0; i < n; ++i) {
    *p++ = kHexDigits[bytes[i] >> 4];
    *p++ = kHexDigits[bytes[i] & 15];
    if (++column == kBytesPerTextLine) {
      *p++ = '\n';
      column = 0;
    }
  }
  *p++ = '\n';
  return {text.data(), static_cast<std::size_t>(p - text.data())};
}

uint32_t write_strip(const Image& img) {
  EpsWriter& t = writer();
  if (img.data == nullptr) return report(kWriter, code::bad_image, "No image data");
  const std::size_t n = static_cast<std::size_t>(data_bytes(img));
  const uint64_t step = line_step(img);
  for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
    const std::span<const char> text = hex_line(t.text, img.data + y * step, n);
    std::fwrite(text.data(), 1, text.size(), t.file());
  }
  return 0;
}

// ---------------------------------------------------------------- reading

int upper(int c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }

// A header line, upper-cased, without its line end; empty at the end of the
// file.  At most kLineLimit characters are taken: the rest of a longer line
// is read as the next line.
std::string read_line(TextSource& in) {
  std::string line;
  while (line.size() < kLineLimit) {
    const int c = in.get();
    if (c == EOF || c == '\n') break;
    line.push_back(static_cast<char>(upper(c)));
  }
  return line;
}

bool is_space(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// The next white-space delimited word, upper-cased, at most kWordLimit
// characters.  False at the end of the file before a word begins.
bool read_word(TextSource& in, std::string& word) {
  word.clear();
  int c = in.get();
  while (c != EOF && is_space(c)) c = in.get();
  if (c == EOF) {
    report(kWordReader, code::bad_state, "Unexpected EOF read");
    return false;
  }
  while (c != EOF && !is_space(c)) {
    word.push_back(static_cast<char>(upper(c)));
    if (word.size() == kWordLimit) break;
    c = in.get();
  }
  return true;
}

// A plain decimal scan: leading spaces, then digits; false when there are
// none.  Values too large for 32 bits stay at the largest one.
bool scan_number(const char*& p, uint32_t& value) {
  while (*p == ' ' || *p == '\t') ++p;
  if (*p < '0' || *p > '9') return false;
  uint64_t v = 0;
  for (; *p >= '0' && *p <= '9'; ++p) v = std::min<uint64_t>(v * 10 + static_cast<uint64_t>(*p - '0'), 0xFFFFFFFFu);
  value = static_cast<uint32_t>(v);
  return true;
}

uint32_t number_word(TextSource& in) {
  std::string word;
  uint32_t value = 0;
  if (!read_word(in, word)) return 0;
  const char* p = word.c_str();
  scan_number(p, value);
  return value;
}

int hex_value(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// One byte as two hexadecimal digits; every other character is skipped.
// The end of the file sets the end flag and gives 0.
uint8_t hex_byte(EpsReader& t) {
  int digits[2];
  for (int& d : digits) {
    int c;
    do {
      c = t.source.get();
      if (c == EOF) {
        t.at_end = true;
        return 0;
      }
      d = hex_value(c);
    } while (d < 0);
  }
  return static_cast<uint8_t>(digits[0] * 16 + digits[1]);
}

void hex_bytes(EpsReader& t, uint8_t* out, std::size_t n) {
  std::size_t i = 0;
  while (i < n && !t.at_end) out[i++] = hex_byte(t);
  if (i < n) std::memset(out + i, 0, n - i);
}

// The colour map and dimensions of a paletted file, from words.
void read_paletted_header(uint32_t handle, Image& img) {
  EpsReader& t = reader();
  PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, PIX_PALETTED);
  std::string word;
  while (read_word(t.source, word)) {
    if (word.compare(0, 5, "IMAGE") == 0) break;
    const char* name = word.c_str() + (word[0] == '/' ? 1 : 0);
    if (std::strcmp(name, "DEVICERGB") == 0 && img.cmap != nullptr) {
      // Kept: the file holds the highest index, so the map read back is one
      // entry shorter than the one written.
      const uint32_t size = number_word(t.source);
      const uint32_t kept = std::min(size, kMapEntries);
      img.cmap_size = static_cast<uint16_t>(kept);
      for (uint32_t i = 0; i < size && !t.at_end; ++i) {
        uint8_t rgb[3];
        hex_bytes(t, rgb, 3);
        if (i < kept) img.cmap[i] = {rgb[0], rgb[1], rgb[2], img.cmap[i].spare};
      }
      for (uint32_t i = kept; i < kMapEntries; ++i) img.cmap[i] = {0, 0, 0, img.cmap[i].spare};
    } else if (std::strcmp(name, "WIDTH") == 0) {
      img.width = number_word(t.source);
    } else if (std::strcmp(name, "HEIGHT") == 0) {
      img.height = number_word(t.source);
    } else if (std::strcmp(name, "BITSPERCOMPONENT") == 0) {
      img.depth = static_cast<uint16_t>(number_word(t.source));
    }
  }
}

// The dimensions of a grey, bilevel or RGB file, from its fixed lines.
void read_plain_header(uint32_t handle, Image& img) {
  TextSource& in = reader().source;
  std::string line;
  for (int i = 0; i < 4; ++i) line = read_line(in);  // rotate, string, scale, size
  const char* p = line.c_str();
  uint32_t depth = img.depth;
  if (scan_number(p, img.width) && scan_number(p, img.height)) scan_number(p, depth);
  for (int i = 0; i < 4; ++i) line = read_line(in);  // matrix, procedure (2 lines), then the operator
  uint16_t format;
  if (line.compare(0, 7, "FALSE 3") == 0) {
    format = PIX_RGB24;
    read_line(in);  // colorimage
  } else {
    format = depth == 1 ? PIX_BILEVEL : PIX_Y8;
  }
  PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, format);
}

uint32_t read_header(uint32_t handle, Image& img) {
  EpsReader& t = reader();
  if (uint32_t r = t.open_for_reading(kReader, img.in_filename, files::Mode::text); is_error(r)) return r;
  t.source.reset(t.file());
  t.at_end = false;
  PIX_image_set_parameter(handle, PIX_IMAGE_FORMAT, PIX_FORMAT_NONE);
  img.width = 0;
  img.height = 0;
  img.depth = 8;
  bool level2 = false;
  std::string line;
  for (;;) {
    line = read_line(t.source);
    if (line.empty() || line[0] != '%') break;
    if (line.find("LANGUAGELEVEL: 2") != std::string::npos) level2 = true;
  }
  if (level2) {
    read_paletted_header(handle, img);
  } else {
    read_plain_header(handle, img);
  }
  if (uint32_t r = PIX_image_check(handle); is_error(r)) {
    return t.stop(report(kReader, tag_module(r), "PIX_image_check failed"));
  }
  return 0;
}

uint32_t allocate_strip(uint32_t handle, uint64_t& strip) {
  if (uint32_t r = PIX_image_malloc_a_strip(handle); is_error(r)) return r;
  const Image& img = *find_image(handle);
  strip = static_cast<uint64_t>(img.lines_this_strip) * line_step(img);
  return 0;
}

uint32_t read_strip(Image& img, uint64_t strip) {
  EpsReader& t = reader();
  const uint64_t n = data_bytes(img);
  const uint64_t step = line_step(img);
  // Kept: after an odd bilevel or RGB line one character of the file is
  // dropped (the line end, in files written here).
  const bool drop = (n & 1) != 0 && (img.format == PIX_BILEVEL || img.format == PIX_RGB24);
  for (uint32_t y = 0; y < img.lines_this_strip; ++y) {
    const uint64_t at = y * step;
    if (at >= strip) break;
    hex_bytes(t, img.data + at, static_cast<std::size_t>(std::min(n, strip - at)));
    if (drop) t.source.get();
  }
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_write_EPS_file(uint32_t handle, uint16_t command) {
  if (uint32_t r = check_reported(handle, kWriter); is_error(r)) return r;
  Image& img = *find_image(handle);
  if (!writable(img.format)) {
    return report(kWriter, with_detail(code::unsupported, img.format), "Unsupported image format");
  }
  if (img.lines_this_strip == 0) return 0;
  EpsWriter& t = writer();
  return t.run(
      kWritePlan, handle, command,
      [&]() -> uint32_t {
        if (uint32_t r = t.open_for_writing(kWriter, img.out_filename, files::Mode::text); is_error(r)) return r;
        write_prologue(t.file(), img);
        return 0;
      },
      [&]() -> uint32_t {
        write_strip(img);
        if (t.progress.lines_done + img.lines_this_strip >= img.height) std::fprintf(t.file(), "showpage\n%%%%EOF\n");
        return 0;
      });
}

PIX_API uint32_t PIX_CALL PIX_read_EPS_file(uint32_t handle, uint16_t command) {
  Image* img = find_image(handle);
  if (img == nullptr) return report(kReader, code::bad_handle);
  uint64_t strip = 0;
  return reader().run(
      kReadPlan, handle, command, [&] { return read_header(handle, *img); },
      [&] { return read_strip(*find_image(handle), strip); },
      [&]() -> uint32_t {
        PIX_image_free_data(handle);
        return allocate_strip(handle, strip);
      });
}

}  // extern "C"
