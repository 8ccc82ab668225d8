// pix demo: a grabber frame through every display format and file format.
#include <pix95.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numbers>

#include "jpeg.h"
#include "pix.h"
#include "strips.h"

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



// ---------------------------------------------------------------- processing

// The card on a green screen keyed over a backdrop, scaled to 1920x1080 and
// turned a quarter: each step run strip by strip where the library works so,
// and checked against what it must give, worked out here.
constexpr uint32_t kProcessStrip = 64;
constexpr uint32_t kWideWidth = 1920;
constexpr uint32_t kWideHeight = 1080;
// Where the card shows through the screen.
constexpr uint32_t kWindowLeft = 120, kWindowRight = 600, kWindowTop = 96, kWindowBottom = 480;

// A whole image of one strip.
void make_whole(uint32_t image, uint16_t format, uint32_t width, uint32_t height) {
  PIX_image_set_parameter(image, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(image, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, height);
  PIX_image_free_data(image);
  check(PIX_image_malloc_a_strip(image), "allocating an image");
}

std::string size_of(uint32_t image) {
  return std::to_string(param(image, PIX_IMAGE_WIDTH)) + "x" + std::to_string(param(image, PIX_IMAGE_HEIGHT));
}

uint8_t* line_of(uint32_t image, uint32_t y) { return record(image)->data + std::size_t{y} * record(image)->bytes_per_line; }

// The bare screen (green, its luma a little uneven), the card in a window on
// it, and a backdrop of soft colour ramps.
void make_screens(uint32_t screen, uint32_t front, uint32_t backdrop) {
  const uint32_t key = PIX_CK_get_YUV_values(10);
  for (uint32_t image : {screen, front, backdrop}) make_whole(image, PIX_YUV422, kCardWidth, kCardHeight);
  uint32_t noise = 95;
  for (uint32_t y = 0; y < kCardHeight; ++y) {
    for (uint32_t x = 0; x < kCardWidth; x += 2) {
      uint8_t* s = line_of(screen, y) + 2 * x;
      for (int i = 0; i < 2; ++i) {
        noise = noise * 1103515245u + 12345u;
        s[2 * i] = static_cast<uint8_t>((key & 0xFF) + (noise >> 16) % 17 - 8);
      }
      s[1] = static_cast<uint8_t>(key >> 8);
      s[3] = static_cast<uint8_t>(key >> 16);
      uint8_t* f = line_of(front, y) + 2 * x;
      if (x >= kWindowLeft && x < kWindowRight && y >= kWindowTop && y < kWindowBottom) {
        card_pair(x, y, f);
      } else {
        std::memcpy(f, s, 4);
      }
      uint8_t* b = line_of(backdrop, y) + 2 * x;
      b[0] = b[2] = static_cast<uint8_t>(40 + y * 150 / kCardHeight);
      b[1] = static_cast<uint8_t>(170 - x * 60 / kCardWidth);
      b[3] = static_cast<uint8_t>(100 + x * 50 / kCardWidth);
    }
  }
}

// The hue of a (U, V) pair in whole degrees, red at 0... as the keyer counts
// them: the angle of (U, V) about grey turned by 120 degrees.
unsigned hue_of(uint8_t u, uint8_t v) {
  double a = std::atan2(double(v) - 128, double(u) - 128);
  if (a < 0) a += 2 * std::numbers::pi;
  double d = a * 180 / std::numbers::pi + 0.5;
  if (d > 359.4) d = 0;
  d -= 120;
  if (d < 0) d += 360;
  return static_cast<unsigned>(d);
}

// Runs `op(strip, out)` over `whole` in strips of kProcessStrip lines; each
// output strip's lines (as `made` gives them) are handed to `take`.
template <class Op, class Made, class Take>
void in_strips(uint32_t whole, Op&& op, Made&& made, Take&& take) {
  Image strip;
  Image out;
  const uint32_t height = param(whole, PIX_IMAGE_HEIGHT);
  for (uint32_t first = 0; first < height; first += kProcessStrip) {
    take_lines(whole, first, std::min(kProcessStrip, height - first), strip);
    op(uint32_t{strip}, uint32_t{out}, first);
    take(uint32_t{out}, made(uint32_t{out}, std::min(kProcessStrip, height - first)));
  }
}

// Copies a strip's lines below those already in `whole`, described like the
// strip (and as high as the picture) at the first.
void append(uint32_t whole, uint32_t strip, uint32_t lines, uint32_t& filled) {
  if (filled == 0) {
    check(PIX_image_copy_parameters(strip, whole), "describing the result");
    PIX_image_set_parameter(whole, PIX_LINES_THIS_STRIP, param(strip, PIX_IMAGE_HEIGHT));
    PIX_image_free_data(whole);
    check(PIX_image_malloc_a_strip(whole), "allocating the result");
  }
  const uint32_t n = std::min(lines, param(whole, PIX_IMAGE_HEIGHT) - filled);
  std::memcpy(line_of(whole, filled), record(strip)->data, std::size_t{n} * record(strip)->bytes_per_line);
  filled += n;
}

struct ProcessRow {
  std::string name;
  const char* pixels;
  double make_ms = 0, check_ms = 0;
  std::string verdict;
};

std::string key_card(const std::filesystem::path& dir, uint32_t keyed, ProcessRow& row) {
  Image screen, front, backdrop;
  make_screens(screen, front, backdrop);
  for (const auto& [image, name] : {std::pair{uint32_t{screen}, "screen.bmp"}, {uint32_t{front}, "card_on_screen.bmp"},
                                    {uint32_t{backdrop}, "backdrop.bmp"}}) {
    Sink sink((dir / name).string());
    sink.put(image, 0, kCardHeight);
    sink.finish();
  }
  const auto start = Clock::now();
  // The key range: the hue of the bare screen from the library's
  // calibration, the luma centred on the screen's mean.
  const uint32_t ck = check(PIX_CK_create(), "PIX_CK_create");
  struct Destroy {
    uint32_t h;
    ~Destroy() { PIX_CK_destroy(h); }
  } destroy{ck};
  in_strips(
      screen, [&](uint32_t strip, uint32_t, uint32_t) { check(PIX_CK_calibrate(strip, ck, PIX_STRIP_NEXT), "calibrating"); },
      [](uint32_t, uint32_t) { return 0u; }, [](uint32_t, uint32_t) {});
  uint64_t luma = 0;
  for (uint32_t y = 0; y < kCardHeight; ++y) {
    for (uint32_t x = 0; x < kCardWidth; x += 2) luma += line_of(screen, y)[2 * x];
  }
  check(PIX_CK_set_parameter(ck, PIX_CK_LUMA_CENTRE, static_cast<uint16_t>(luma / (kCardWidth / 2 * kCardHeight))),
        "setting the luma centre");
  Image behind;
  uint32_t filled = 0;
  in_strips(
      front,
      [&](uint32_t strip, uint32_t out, uint32_t first) {
        take_lines(backdrop, first, param(strip, PIX_LINES_THIS_STRIP), behind);
        check(PIX_CK_chroma_key(strip, out, behind, 0, ck, 0, PIX_STRIP_NEXT), "keying");
      },
      [](uint32_t, uint32_t lines) { return lines; },
      [&](uint32_t out, uint32_t lines) { append(keyed, out, lines, filled); });
  Sink sink((dir / row.name).string());
  sink.put(keyed, 0, kCardHeight);
  sink.finish();
  row.make_ms = ms_since(start);

  const auto check_start = Clock::now();
  auto range = [&](uint16_t centre, uint16_t half, int high) {
    const int c = static_cast<int>(PIX_CK_get_parameter(ck, centre)), w = static_cast<int>(PIX_CK_get_parameter(ck, half));
    return std::pair{std::clamp(c - w, 0, high), std::clamp(c + w, 0, high)};
  };
  const auto [hue_low, hue_high] = range(PIX_CK_HUE_CENTRE, PIX_CK_HUE_HALF_WIDTH, 359);
  const auto [luma_low, luma_high] = range(PIX_CK_LUMA_CENTRE, PIX_CK_LUMA_HALF_WIDTH, 255);
  uint64_t pairs = 0, screen_pairs = 0;
  for (uint32_t y = 0; y < kCardHeight; ++y) {
    for (uint32_t x = 0; x < kCardWidth; x += 2) {
      const uint8_t* f = line_of(front, y) + 2 * x;
      const int hue = static_cast<int>(hue_of(f[1], f[3]));
      const bool key = luma_low < f[0] && f[0] < luma_high && hue_low < hue && hue < hue_high;
      const uint8_t* want = key ? line_of(backdrop, y) + 2 * x : f;
      if (std::memcmp(line_of(keyed, y) + 2 * x, want, 4) != 0) {
        return "PIXEL " + std::to_string(x) + "," + std::to_string(y) + " WRONG";
      }
      pairs += key;
      screen_pairs += x < kWindowLeft || x >= kWindowRight || y < kWindowTop || y >= kWindowBottom;
    }
  }
  row.check_ms = ms_since(check_start);
  // All of the screen goes; so must some of the card (its green bar).
  if (pairs <= screen_pairs) return "SCREEN NOT KEYED (" + std::to_string(2 * pairs) + " pixels)";
  return "ok (" + std::to_string(2 * pairs) + " pixels keyed)";
}

std::string scale_card(const std::filesystem::path& dir, uint32_t keyed, uint32_t wide, ProcessRow& row) {
  const auto start = Clock::now();
  Image rgb;
  check(PIX_image_convert(keyed, rgb, PIX_RGB24, 0, PIX_STRIP_NEXT), "converting to RGB24");
  Sink sink((dir / row.name).string());
  uint32_t filled = 0, made = 0;
  in_strips(
      rgb,
      [&](uint32_t strip, uint32_t out, uint32_t) {
        check(PIX_IP_scale(strip, out, kWideWidth, kWideHeight, PIX_STRIP_NEXT), "scaling");
      },
      [](uint32_t out, uint32_t) { return param(out, PIX_LINES_THIS_STRIP); },
      [&](uint32_t out, uint32_t lines) {
        made += lines;
        sink.put(out, 0, lines);
        append(wide, out, lines, filled);
      });
  sink.finish();
  row.make_ms = ms_since(start);
  if (made != kWideHeight || param(wide, PIX_IMAGE_WIDTH) != kWideWidth) return "SIZE " + size_of(wide);

  // Bilinear in two passes with 13-bit positions and 8-bit weights, each
  // product rounded down: across every source line, then down.
  const auto check_start = Clock::now();
  auto mix = [](unsigned near, unsigned far, unsigned f) { return near * (256 - f) / 256 + far * f / 256; };
  const uint64_t across = (uint64_t{kCardWidth} << 13) / kWideWidth;
  const uint64_t down = (uint64_t{kCardHeight - 1} << 13) / (kWideHeight - 1);
  std::vector<uint8_t> rows(std::size_t{kCardHeight} * kWideWidth * 3);
  for (uint32_t y = 0; y < kCardHeight; ++y) {
    const uint8_t* s = line_of(rgb, y);
    for (uint32_t x = 0; x < kWideWidth; ++x) {
      const uint64_t p = x * across, i = p >> 13, n = std::min<uint64_t>(i + 1, kCardWidth - 1);
      for (uint32_t c = 0; c < 3; ++c) {
        rows[(std::size_t{y} * kWideWidth + x) * 3 + c] =
            static_cast<uint8_t>(mix(s[i * 3 + c], s[n * 3 + c], (p & 0x1FFF) >> 5));
      }
    }
  }
  for (uint32_t j = 0; j < kWideHeight; ++j) {
    const uint64_t p = j * down, y = p >> 13, n = std::min<uint64_t>(y + 1, kCardHeight - 1);
    const uint8_t* got = line_of(wide, j);
    for (uint32_t x = 0; x < kWideWidth * 3; ++x) {
      const unsigned want = mix(rows[y * kWideWidth * 3 + x], rows[n * kWideWidth * 3 + x], (p & 0x1FFF) >> 5);
      if (got[x] != want) return "PIXEL " + std::to_string(x / 3) + "," + std::to_string(j) + " WRONG";
    }
  }
  row.check_ms = ms_since(check_start);
  return "ok (every pixel bilinear)";
}

std::string turn_card(const std::filesystem::path& dir, uint32_t wide, ProcessRow& row) {
  const auto start = Clock::now();
  Image turned;
  check(PIX_IP_rotate_image(wide, turned, 90), "rotating");
  Sink sink((dir / row.name).string());
  sink.put(turned, 0, param(turned, PIX_IMAGE_HEIGHT));
  sink.finish();
  row.make_ms = ms_since(start);

  const auto check_start = Clock::now();
  if (param(turned, PIX_IMAGE_WIDTH) != kWideHeight || param(turned, PIX_IMAGE_HEIGHT) != kWideWidth) {
    return "SIZE " + size_of(turned);
  }
  // Clockwise: the left column read upwards becomes the top line.
  for (uint32_t j = 0; j < kWideWidth; ++j) {
    for (uint32_t i = 0; i < kWideHeight; ++i) {
      if (std::memcmp(line_of(turned, j) + 3 * i, line_of(wide, kWideHeight - 1 - i) + 3 * j, 3) != 0) {
        return "PIXEL " + std::to_string(i) + "," + std::to_string(j) + " MISPLACED";
      }
    }
  }
  // Three more quarter turns give the picture back.
  Image a, b, c;
  check(PIX_IP_rotate_image(turned, a, 90), "rotating");
  check(PIX_IP_rotate_image(a, b, 90), "rotating");
  check(PIX_IP_rotate_image(b, c, 90), "rotating");
  for (uint32_t y = 0; y < kWideHeight; ++y) {
    if (std::memcmp(line_of(c, y), line_of(wide, y), std::size_t{kWideWidth} * 3) != 0) return "4 x 90 IS NOT 360";
  }
  row.check_ms = ms_since(check_start);
  return "ok (4 x 90 = 360)";
}

// The processing rows; whether every one checked out.
bool process_rows(const std::filesystem::path& dir) {
  std::array<ProcessRow, 3> rows{{{"card_keyed.bmp", "yuv422", 0, 0, ""},
                                  {"card_1080p.bmp", "rgb24", 0, 0, ""},
                                  {"card_rot90.tif", "rgb24", 0, 0, ""}}};
  Image keyed, wide;
  bool all_good = true, going = true;
  for (std::size_t k = 0; k < rows.size(); ++k) {
    ProcessRow& row = rows[k];
    try {
      row.verdict = !going ? "not run" : k == 0 ? key_card(dir, keyed, row) : k == 1 ? scale_card(dir, keyed, wide, row)
                                                                                   : turn_card(dir, wide, row);
    } catch (const LibraryError& e) {
      row.verdict = e.what();
    }
    going = going && row.verdict.rfind("ok", 0) == 0;
    all_good = all_good && going;
    std::error_code ec;
    const auto bytes = std::filesystem::file_size(dir / row.name, ec);
    std::printf("%-18s %-8s %10llu %9.1f %9.1f  %s\n", row.name.c_str(), row.pixels,
                static_cast<unsigned long long>(ec ? 0 : bytes), row.make_ms, row.check_ms, row.verdict.c_str());
  }
  return all_good;
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
  std::printf("\n%-18s %-8s %10s %9s %9s  %s\n", "processed", "pixels", "bytes", "make ms", "check ms", "check");
  const bool processed = process_rows(dir);
  std::printf("\n%s\n", processed ? "every processing step gave what it must" : "some processing steps went wrong");
  all_good = all_good && processed;
  return all_good ? 0 : 1;
}

}  // namespace pixtool
