// pix demo: a grabber frame through every display format and file format.
#include <pix95.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "jpeg.h"
#include "pix.h"

namespace pixtool {

namespace {

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

constexpr std::array<DemoFile, 12> kDemoFiles{{
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
    {"card_y8.jpg", PIX_Y8, PIX_FILE_JPEG},
    {"card_yuv422.jpg", PIX_YUV422, PIX_FILE_JPEG},
}};

// Lossy files are checked by their peak signal-to-noise ratio against what
// was coded: at the default Q scale a card this sharp stays above 30 dB.
constexpr double kJpegFloorDb = 30.0;

double psnr(const uint8_t* a, const uint8_t* b, std::size_t n) {
  double sum = 0;
  for (std::size_t i = 0; i < n; ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(n) / sum);
}

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
// A JPEG file decoded strip by strip against the card in the coded format.
std::string jpeg_verdict(const std::string& path, const DemoFile& f) {
  uint32_t expected_pitch = 0;
  const std::vector<uint8_t> expected = expected_pixels(f.pixel_format, expected_pitch);
  JpegReader reader(path, 64, true);
  Image strip;
  std::vector<uint8_t> got;
  const std::size_t row = std::size_t{kCardWidth} * (f.pixel_format == PIX_Y8 ? 1 : 2);
  std::vector<uint8_t> want;
  uint32_t y = 0;
  while (reader.next(strip)) {
    const tPIX_Image& r = *record(strip);
    for (uint32_t i = 0; i < r.lines_this_strip; ++i, ++y) {
      got.insert(got.end(), r.data + std::size_t{i} * r.bytes_per_line, r.data + std::size_t{i} * r.bytes_per_line + row);
      want.insert(want.end(), expected.data() + std::size_t{y} * expected_pitch,
                  expected.data() + std::size_t{y} * expected_pitch + row);
    }
  }
  if (reader.width() != kCardWidth || reader.height() != kCardHeight || got.size() != want.size()) return "MISMATCH";
  const double db = psnr(got.data(), want.data(), got.size());
  char text[48];
  std::snprintf(text, sizeof text, "%s (%.1f dB)", db >= kJpegFloorDb ? "ok" : "TOO LOSSY", db);
  return text;
}

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
  if (f.file_format == PIX_FILE_JPEG) {
    JpegWriter jpeg(path, 32);
    for (uint32_t first = 0; first < kCardHeight; first += kStrip) {
      fill_card_strip(card, first, std::min(kStrip, kCardHeight - first));
      if (converting) check(PIX_image_convert(card, converted, f.pixel_format, 0, PIX_STRIP_NEXT), "converting the card");
      jpeg.write(source);
      bar.update(first / kStrip + 1);
    }
    return;
  }
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

// A motion-JPEG sequence: colour bars moving across the card, frame by
// frame, built in memory and written as one file.
constexpr uint32_t kFrames = 25;
constexpr uint32_t kStep = 24;  // pixels the bars move a frame (even: pairs stay whole)

void fill_bars_frame(uint32_t image, uint32_t k) {
  fill_card_strip(image, 0, kCardHeight);
  tPIX_Image* img = record(image);
  for (uint32_t y = 0; y < kCardHeight / 2; ++y) {
    uint8_t* line = img->data + std::size_t{y} * img->bytes_per_line;
    for (uint32_t x = 0; x < kCardWidth; x += 2) card_pair((x + k * kStep) % kCardWidth, y, line + 2 * x);
  }
}

std::vector<uint8_t> coded_bytes(uint32_t jpeg) {
  const Tjpeg& r = tjpeg(jpeg);
  return {r.data, r.data + r.length};
}

void write_sequence(const std::string& path, std::vector<std::vector<uint8_t>>& coded) {
  Image frame;
  Image frame_jpeg(true);
  Image sequence(true);
  describe_card(frame);
  check(PIX_JPEG_set_Quality_factor(frame_jpeg, 32), "setting the Q scale");
  Progress bar("bars_25.jpg", kFrames);
  for (uint32_t k = 0; k < kFrames; ++k) {
    fill_bars_frame(frame, k);
    check(PIX_JPEG_compress(frame, frame_jpeg, PIX_STRIP_NEXT), "compressing a frame");
    coded.push_back(coded_bytes(frame_jpeg));
    if (k == 0) {
      // The sequence takes the frames' description, and the tables they
      // were coded with for its headers; a buffer for every frame.
      check(PIX_image_copy_parameters(frame_jpeg, sequence), "describing the sequence");
      PIX_image_set_parameter(sequence, PIX_JPEG_LENGTH, 0);
      check(PIX_JPEG_make_Q_tables(sequence), "making the quantisation tables");
      check(PIX_JPEG_set_default_H_tables(sequence), "setting the Huffman tables");
      check(PIX_JPEG_malloc_N_bytes_data(sequence, kFrames * (kCardWidth * kCardHeight * 2 + 2)),
            "allocating the sequence");
    }
    check(PIX_JPEG_sequence_build(frame_jpeg, sequence), "appending a frame");
    bar.update(k + 1);
  }
  check(PIX_JPEG_sequence_build(0, sequence), "trimming the sequence");
  PIX_image_set_outfilename(sequence, path.c_str());
  PIX_image_set_parameter(sequence, PIX_LINES_THIS_STRIP, kCardHeight);
  check(PIX_JPEG_file_write(sequence, PIX_STRIP_NEXT), "writing the sequence");
}

// Counts the file's frames, then positions on, extracts and decodes the
// first, a middle and the last frame: each must hold the bytes its frame was
// coded to and decode close to the frame.
std::string sequence_verdict(const std::string& path, const std::vector<std::vector<uint8_t>>& coded) {
  Image opened(true);
  PIX_image_set_infilename(opened, path.c_str());
  check(PIX_JPEG_file_open(opened), "opening the sequence");
  const uint32_t counted = PIX_JPEG_sequence_calc_length(opened);
  PIX_JPEG_file_close(opened);
  check(counted, "counting the frames");
  if (param(opened, PIX_NUM_FRAMES) != kFrames) return "COUNTED " + std::to_string(param(opened, PIX_NUM_FRAMES));
  Image sequence(true);
  PIX_image_set_infilename(sequence, path.c_str());
  check(PIX_JPEG_file_read(sequence), "reading the sequence");
  Image source;
  describe_card(source);
  double worst = 99;
  for (const uint32_t k : {1u, 13u, kFrames}) {
    check(PIX_JPEG_sequence_set_start_frame(sequence, static_cast<int32_t>(k)), "positioning");
    Image frame(true);
    Image decoded;
    check(PIX_JPEG_sequence_extract_frame(sequence, frame, k), "extracting a frame");
    std::vector<uint8_t> want = coded[k - 1];
    if (k < kFrames) want.insert(want.end(), {0xFF, 0xD0});  // the boundary that followed it
    if (coded_bytes(frame) != want) return "FRAME " + std::to_string(k) + " DIFFERS";
    PIX_image_set_parameter(decoded, PIX_IMAGE_FORMAT, PIX_YUV422);
    check(PIX_JPEG_decompress(frame, decoded, PIX_STRIP_NEXT), "decoding a frame");
    fill_bars_frame(source, k - 1);
    const tPIX_Image& got = *record(decoded);
    const tPIX_Image& was = *record(source);
    if (got.bytes_per_line != was.bytes_per_line || got.height != kCardHeight) return "FRAME " + std::to_string(k) + " SIZE";
    worst = std::min(worst, psnr(got.data, was.data, std::size_t{was.bytes_per_line} * kCardHeight));
  }
  char text[64];
  std::snprintf(text, sizeof text, "%s (%u frames, %.1f dB)", worst >= kJpegFloorDb ? "ok" : "TOO LOSSY", kFrames,
                worst);
  return text;
}

}  // namespace

int demo(const Args& args) {
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
      if (f.file_format == PIX_FILE_JPEG) {
        verdict = jpeg_verdict(path, f);
      } else {
        verdict = file_matches(path, f) ? "ok" : "MISMATCH";
      }
      read_ms = ms_since(read_start);
    } catch (const LibraryError& e) {
      verdict = e.what();
    }
    all_good = all_good && verdict.rfind("ok", 0) == 0;
    std::error_code ec;
    const auto bytes = std::filesystem::file_size(path, ec);
    std::printf("%-18s %-8s %10llu %9.1f %9.1f  %s\n", f.name, format_name(f.pixel_format).c_str(),
                static_cast<unsigned long long>(ec ? 0 : bytes), write_ms, read_ms, verdict.c_str());
  }
  {
    const std::string path = (dir / "bars_25.jpg").string();
    std::string verdict;
    double write_ms = 0, read_ms = 0;
    try {
      std::vector<std::vector<uint8_t>> coded;
      const auto start = Clock::now();
      write_sequence(path, coded);
      write_ms = ms_since(start);
      const auto read_start = Clock::now();
      verdict = sequence_verdict(path, coded);
      read_ms = ms_since(read_start);
    } catch (const LibraryError& e) {
      verdict = e.what();
    }
    all_good = all_good && verdict.rfind("ok", 0) == 0;
    std::error_code ec;
    const auto bytes = std::filesystem::file_size(path, ec);
    std::printf("%-18s %-8s %10llu %9.1f %9.1f  %s\n", "bars_25.jpg", "yuv422",
                static_cast<unsigned long long>(ec ? 0 : bytes), write_ms, read_ms, verdict.c_str());
  }
  std::printf("\n%s\n", all_good ? "every file read back as written" : "some files did not read back as written");
  return all_good ? 0 : 1;
}

}  // namespace pixtool
