// pix's processing commands: crop, scale, rotate, mirror, filter, threshold,
// fields, pseudo, histogram and key.  Each reads its input strip by strip,
// runs the library on every strip where the function works strip-wise, and
// writes the output strip by strip; rotation and interlacing take the whole
// picture, as the library needs.
#include <pix95.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numeric>

#include "pix.h"
#include "strips.h"

namespace pixtool {

namespace {

constexpr uint32_t kStripLines = 64;

// What one strip made: lines 0 .. lines - 1 of `image`'s strip.
struct Made {
  uint32_t image;
  uint32_t lines;
};
using Step = std::function<Made(uint32_t strip, uint32_t lines)>;

// The positional arguments and the options of a command; `flags` take no
// value, every other option one.
struct Parsed {
  std::vector<std::string> files;
  std::vector<std::pair<std::string, std::string>> options;
  const std::string* option(const std::string& name) const {
    for (const auto& [n, v] : options) {
      if (n == name) return &v;
    }
    return nullptr;
  }
  bool has(const std::string& name) const { return option(name) != nullptr; }
};

Parsed parse(const Args& args, std::initializer_list<const char*> flags, std::initializer_list<const char*> valued) {
  Parsed p;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() < 2 || a[0] != '-' || a[1] != '-') {
      p.files.push_back(a);
    } else if (std::find_if(flags.begin(), flags.end(), [&](const char* f) { return a == f; }) != flags.end()) {
      p.options.emplace_back(a, "");
    } else if (std::find_if(valued.begin(), valued.end(), [&](const char* f) { return a == f; }) != valued.end()) {
      if (i + 1 >= args.size()) throw UsageError(a + " needs a value");
      p.options.emplace_back(a, args[++i]);
    } else {
      throw UsageError("unknown option '" + a + "'");
    }
  }
  return p;
}

// A signed whole number within `low`..`high`, or a usage error naming `what`.
int32_t signed_number(const std::string& text, int32_t low, int32_t high, const std::string& what) {
  char* end = nullptr;
  const long n = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || n < low || n > high) {
    throw UsageError(what + " takes " + std::to_string(low) + " to " + std::to_string(high));
  }
  return static_cast<int32_t>(n);
}

// IN through `step`, strip by strip, into `sink`; each strip first brought
// to a format the step takes (colour JPEG files decode to YUV 4:2:2 when `yuv`).
void stream(const std::string& in, Sink& sink, std::vector<uint16_t> taken, uint16_t fallback, const char* label,
            const Step& step, bool yuv = false) {
  Source source(in, kStripLines, yuv);
  Formats formats(std::move(taken), fallback);
  Progress bar(label, source.strips());
  uint32_t done = 0;
  uint32_t strips = 0;
  while (done < source.height()) {
    const uint32_t lines = source.next();
    if (lines == 0) break;
    const Made made = step(formats(source.image(), lines), lines);
    sink.put(made.image, 0, made.lines);
    done += lines;
    bar.update(++strips);
  }
  sink.finish();
}

// Formats the geometric functions take as they are.
const std::vector<uint16_t> kTurnable = {PIX_Y8,     PIX_Y16,    PIX_PALETTED, PIX_RGB8,   PIX_RGB15,
                                         PIX_RGB16,  PIX_RGB24,  PIX_BGR24,    PIX_RGBX32, PIX_BGRX32,
                                         PIX_XBGR32, PIX_XRGB32, PIX_CMYK32};
const std::vector<uint16_t> kCroppable = {PIX_Y8,     PIX_PALETTED, PIX_RGB15,  PIX_RGB16,  PIX_RGB24, PIX_BGR24,
                                          PIX_RGBX32, PIX_BGRX32,   PIX_XBGR32, PIX_YUV422, PIX_CMYK32, PIX_Y16};

std::string size_text(uint32_t image) {
  return std::to_string(param(image, PIX_IMAGE_WIDTH)) + "x" + std::to_string(param(image, PIX_IMAGE_HEIGHT));
}

// A chroma-key object for the length of a command.
class KeyObject {
 public:
  KeyObject() : handle_(check(PIX_CK_create(), "PIX_CK_create")) {}
  KeyObject(const KeyObject&) = delete;
  KeyObject& operator=(const KeyObject&) = delete;
  ~KeyObject() { PIX_CK_destroy(handle_); }
  operator uint32_t() const { return handle_; }

 private:
  uint32_t handle_;
};

// "C" or "C,W" into two parameters of the key object.
void set_range(uint32_t key, const std::string& text, uint16_t centre_id, uint16_t half_id, int32_t high,
               const std::string& option) {
  const std::size_t comma = text.find(',');
  check(PIX_CK_set_parameter(
            key, centre_id, static_cast<uint16_t>(signed_number(text.substr(0, comma), 0, high, option + " centre"))),
        "setting the key range");
  if (comma != std::string::npos) {
    check(PIX_CK_set_parameter(
              key, half_id, static_cast<uint16_t>(signed_number(text.substr(comma + 1), 0, high, option + " width"))),
          "setting the key range");
  }
}

}  // namespace

int crop(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 6) throw UsageError("crop takes IN OUT X Y W H");
  std::array<int16_t, 4> rect{};
  for (int i = 0; i < 4; ++i) {
    rect[i] = static_cast<int16_t>(
        signed_number(p.files[2 + i], i < 2 ? 0 : 1, 32767, std::array{"X", "Y", "W", "H"}[static_cast<std::size_t>(i)]));
  }
  Sink sink(p.files[1]);
  Image out;
  bool first = true;
  stream(p.files[0], sink, kCroppable, PIX_RGB24, "cropping", [&](uint32_t strip, uint32_t) {
    if (first && (static_cast<uint32_t>(rect[0]) >= param(strip, PIX_IMAGE_WIDTH) ||
                  static_cast<uint32_t>(rect[1]) >= param(strip, PIX_IMAGE_HEIGHT))) {
      throw UsageError("the rectangle starts outside the " + size_text(strip) + " picture");
    }
    first = false;
    check(PIX_IP_crop(strip, out, rect.data(), PIX_STRIP_NEXT), "cropping");
    return Made{out, param(out, PIX_LINES_THIS_STRIP)};
  });
  std::printf("%s: %s\n", p.files[1].c_str(), size_text(out).c_str());
  return 0;
}

int scale(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 4) throw UsageError("scale takes IN OUT W H");
  const uint32_t w = number(p.files[2], 1, 32767, "W");
  const uint32_t h = number(p.files[3], 1, 32767, "H");
  Sink sink(p.files[1]);
  Image out;
  stream(p.files[0], sink, {PIX_Y8, PIX_RGB24}, PIX_RGB24, "scaling", [&](uint32_t strip, uint32_t) {
    check(PIX_IP_scale(strip, out, w, h, PIX_STRIP_NEXT), "scaling");
    return Made{out, param(out, PIX_LINES_THIS_STRIP)};
  });
  return 0;
}

int mirror(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 2) throw UsageError("mirror takes IN OUT");
  Sink sink(p.files[1]);
  Image out;
  stream(p.files[0], sink, kTurnable, PIX_RGB24, "mirroring", [&](uint32_t strip, uint32_t lines) {
    check(PIX_IP_mirror_image(strip, out, PIX_STRIP_NEXT), "mirroring");
    return Made{out, lines};
  });
  return 0;
}

int rotate(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 3) throw UsageError("rotate takes IN OUT 90|180|270");
  const std::string& a = p.files[2];
  if (a != "90" && a != "180" && a != "270") throw UsageError("rotate turns by 90, 180 or 270 degrees");
  // Turning needs the whole picture in one strip.
  Image whole;
  {
    Formats formats(kTurnable, PIX_RGB24);
    read_whole(p.files[0], formats, whole);
  }
  Image out;
  check(PIX_IP_rotate_image(whole, out, static_cast<uint16_t>(std::stoi(a))), "rotating");
  Sink sink(p.files[1]);
  sink.put(out, 0, param(out, PIX_IMAGE_HEIGHT));
  sink.finish();
  return 0;
}

int filter(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 3) throw UsageError("filter takes IN OUT smooth|sharpen|edge|k0,...,k8");
  const std::string& name = p.files[2];
  std::array<int16_t, 9> k{};
  if (name == "smooth") {
    k = {1, 2, 1, 2, 4, 2, 1, 2, 1};
  } else if (name == "sharpen") {
    k = {0, -1, 0, -1, 5, -1, 0, -1, 0};
  } else if (name == "edge") {
    // Edges added to the picture: a pure edge detector sums to 0, and the
    // library divides by the sum.
    k = {-1, -1, -1, -1, 9, -1, -1, -1, -1};
  } else {
    std::size_t at = 0;
    for (std::size_t i = 0; i < 9; ++i) {
      const std::size_t comma = name.find(',', at);
      if ((comma == std::string::npos) != (i == 8)) throw UsageError("a kernel is 9 numbers separated by commas");
      k[i] = static_cast<int16_t>(signed_number(name.substr(at, comma - at), -32768, 32767, "a kernel coefficient"));
      at = comma + 1;
    }
  }
  Sink sink(p.files[1]);
  Image out;
  stream(p.files[0], sink, {PIX_Y8, PIX_RGB24}, PIX_RGB24, "filtering", [&](uint32_t strip, uint32_t) {
    check(PIX_IP_filter_3x3(strip, out, k.data(), PIX_STRIP_NEXT), "filtering");
    // One line late: the first strip makes one line fewer, the last one more
    // (its count is that of a full strip; the sink stops at the height).
    return Made{out, param(out, PIX_LINES_THIS_STRIP)};
  });
  return 0;
}

int threshold(const Args& args) {
  const Parsed p = parse(args, {}, {});
  if (p.files.size() != 4) throw UsageError("threshold takes IN OUT LOW HIGH");
  const uint32_t low = number(p.files[2], 0, 255, "LOW");
  const uint32_t high = number(p.files[3], 0, 255, "HIGH");
  Sink sink(p.files[1]);
  Image out;
  stream(p.files[0], sink, {PIX_Y8}, PIX_Y8, "thresholding", [&](uint32_t strip, uint32_t lines) {
    check(PIX_IP_threshold_grayscale(strip, out, static_cast<uint8_t>(high), low, PIX_STRIP_NEXT), "thresholding");
    return Made{out, lines};
  });
  return 0;
}

int fields(const Args& args) {
  const Parsed p = parse(args, {"--interlace", "--double"}, {});
  const std::vector<uint16_t> taken = {PIX_Y8, PIX_PALETTED, PIX_RGB15, PIX_RGB24};
  Image out;
  if (p.has("--interlace")) {
    if (p.files.size() != 2 || p.has("--double")) throw UsageError("fields --interlace takes FRAME OUT");
    Image whole;
    {
      Formats formats(taken, PIX_RGB24);
      read_whole(p.files[0], formats, whole);
    }
    if (param(whole, PIX_IMAGE_HEIGHT) % 2 != 0) {
      throw UsageError("a frame of two fields one above the other has an even height, not " + size_text(whole));
    }
    PIX_image_set_parameter(whole, PIX_FIELD_ORDER, 4);  // the fields one above the other
    check(PIX_SPL_interlace_frame(whole, out, PIX_STRIP_NEXT), "interlacing");
    Sink sink(p.files[1]);
    sink.put(out, 0, param(out, PIX_IMAGE_HEIGHT));
    sink.finish();
    return 0;
  }
  if (p.has("--double")) {
    if (p.files.size() != 2) throw UsageError("fields --double takes FIELD OUT");
    Sink sink(p.files[1]);
    stream(p.files[0], sink, taken, PIX_RGB24, "doubling", [&](uint32_t strip, uint32_t lines) {
      check(PIX_SPL_field_to_frame(strip, out, PIX_STRIP_NEXT), "doubling lines");
      return Made{out, 2 * lines};
    });
    return 0;
  }
  if (p.files.size() != 3) throw UsageError("fields takes FIRST SECOND OUT");
  // One file is read at a time: the first field is held whole, the second
  // streamed, each of its strips paired with the same lines of the first.
  Image first;
  {
    Formats formats(taken, PIX_RGB24);
    read_whole(p.files[0], formats, first);
  }
  Image first_strip;
  Sink sink(p.files[2]);
  uint32_t done = 0;
  stream(p.files[1], sink, taken, PIX_RGB24, "weaving", [&](uint32_t second, uint32_t lines) {
    const tPIX_Image& a = *record(first);
    const tPIX_Image& b = *record(second);
    if (a.width != b.width || a.height != b.height || a.format != b.format) {
      throw LibraryError("the fields differ: " + size_text(first) + " " + format_name(a.format) + " and " +
                         size_text(second) + " " + format_name(b.format));
    }
    take_lines(first, done, lines, first_strip);
    done += lines;
    check(PIX_SPL_2fields_to_frame(first_strip, second, out, PIX_STRIP_NEXT), "weaving the fields");
    return Made{out, 2 * lines};
  });
  return 0;
}

int pseudo(const Args& args) {
  const Parsed p = parse(args, {"--hsi"}, {});
  if (p.files.size() != 2) throw UsageError("pseudo takes IN OUT [--hsi]");
  const bool hsi = p.has("--hsi");
  Sink sink(p.files[1]);
  Image out;
  Formats to_hsi({PIX_HSI}, PIX_HSI);
  stream(
      p.files[0], sink, hsi ? std::vector<uint16_t>{PIX_YUV422} : std::vector<uint16_t>{PIX_Y8, PIX_YUV422},
      PIX_YUV422, "pseudo-colour",
      [&](uint32_t strip, uint32_t lines) {
        if (hsi) strip = to_hsi(strip, lines);
        switch (param(strip, PIX_IMAGE_FORMAT)) {
          case PIX_Y8: check(PIX_SPL_Y8_to_pseudo_colour(strip, out, 0, PIX_STRIP_NEXT), "pseudo-colour"); break;
          case PIX_HSI: check(PIX_SPL_HSI_to_RGB_pseudo_colour(strip, out, PIX_STRIP_NEXT), "pseudo-colour"); break;
          default: check(PIX_SPL_YUV422_to_RGB_pseudo_colour(strip, out, PIX_STRIP_NEXT), "pseudo-colour"); break;
        }
        return Made{out, lines};
      },
      true);
  return 0;
}

namespace {

struct Plane {
  const char* name;
  const uint32_t* bins;
  uint32_t count;
  const char* colour;
};

// The three planes of a histogram as an SVG plot: one panel each, bins as a
// filled outline scaled to the panel's highest bin.
std::string histogram_svg(const std::array<Plane, 3>& planes, const std::string& title) {
  constexpr int kLeft = 50, kWidth = 720, kPanel = 150, kGap = 40, kTop = 40;
  const int height = kTop + 3 * (kPanel + kGap);
  std::string svg;
  char line[256];
  std::snprintf(line, sizeof line,
                "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\" "
                "font-family=\"sans-serif\" font-size=\"12\">\n",
                kLeft + kWidth + 20, height, kLeft + kWidth + 20, height);
  svg += line;
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  std::string escaped;
  for (char c : title) escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
  // Appended piece by piece: GCC 12 misreads a literal + temporary as overlapping copies.
  svg += "<text x=\"";
  svg += std::to_string(kLeft);
  svg += "\" y=\"24\" font-size=\"15\">";
  svg += escaped;
  svg += "</text>\n";
  for (std::size_t k = 0; k < planes.size(); ++k) {
    const Plane& pl = planes[k];
    const int top = kTop + static_cast<int>(k) * (kPanel + kGap) + 20, base = top + kPanel;
    const uint32_t peak = std::max(1u, *std::max_element(pl.bins, pl.bins + pl.count));
    std::snprintf(line, sizeof line, "<text x=\"%d\" y=\"%d\">%s (0 to %u, highest bin %u)</text>\n", kLeft, top - 6,
                  pl.name, pl.count - 1, peak);
    svg += line;
    std::snprintf(line, sizeof line,
                  "<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"none\" stroke=\"#888\"/>\n", kLeft, top,
                  kWidth, kPanel);
    svg += line;
    svg += "<polygon fill=\"" + std::string(pl.colour) + "\" fill-opacity=\"0.6\" stroke=\"" + pl.colour +
           "\" points=\"";
    std::snprintf(line, sizeof line, "%d,%d", kLeft, base);
    svg += line;
    for (uint32_t i = 0; i < pl.count; ++i) {
      const double x0 = kLeft + kWidth * double(i) / pl.count, x1 = kLeft + kWidth * double(i + 1) / pl.count;
      const double y = base - kPanel * double(pl.bins[i]) / peak;
      std::snprintf(line, sizeof line, " %.1f,%.1f %.1f,%.1f", x0, y, x1, y);
      svg += line;
    }
    std::snprintf(line, sizeof line, " %d,%d\"/>\n", kLeft + kWidth, base);
    svg += line;
    for (uint32_t tick = 0; tick < pl.count; tick += pl.count == 360 ? 60 : 64) {
      std::snprintf(line, sizeof line, "<text x=\"%.1f\" y=\"%d\" text-anchor=\"middle\">%u</text>\n",
                    kLeft + kWidth * double(tick) / pl.count, base + 14, tick);
      svg += line;
    }
  }
  svg += "</svg>\n";
  return svg;
}

}  // namespace

int histogram(const Args& args) {
  const Parsed p = parse(args, {}, {"--svg"});
  if (p.files.size() != 1) throw UsageError("histogram takes IN [--svg FILE]");
  tPIX_Histogram h{};
  // The library's average record carries each strip's quotient into the
  // next; each strip's means are taken alone and weighed by its lines here.
  std::array<double, 3> weighed{};
  uint32_t width = 0, height = 0;
  {
    Source source(p.files[0], kStripLines, true);
    Formats to_yuv({PIX_YUV422}, PIX_YUV422);
    Formats to_hsi({PIX_HSI}, PIX_HSI);
    Progress bar("histogram", source.strips());
    uint32_t strips = 0;
    while (height < source.height()) {
      const uint32_t lines = source.next();
      if (lines == 0) break;
      const uint32_t hsi = to_hsi(to_yuv(source.image(), lines), lines);
      check(PIX_IP_histogram_generate(hsi, &h, PIX_STRIP_NEXT), "counting");
      tPIX_Average a{};
      check(PIX_IP_generate_averages(hsi, &a, PIX_STRIP_NEXT), "averaging");
      weighed[0] += double(a.hue) * lines;
      weighed[1] += double(a.saturation) * lines;
      weighed[2] += double(a.intensity) * lines;
      width = param(hsi, PIX_IMAGE_WIDTH);
      height += lines;
      bar.update(++strips);
    }
  }
  const std::array<Plane, 3> planes{{{"hue", h.hue, 360, "#c03030"},
                                     {"saturation", h.saturation, 256, "#30a030"},
                                     {"intensity", h.intensity, 256, "#3050c0"}}};
  std::printf("file          %s\n", p.files[0].c_str());
  std::printf("size          %ux%u (%llu pixels)\n", width, height,
              static_cast<unsigned long long>(uint64_t{width} * height));
  // The record's own totals count earlier strips again: the bins are summed here.
  std::printf("%-13s %12s %8s %6s %10s\n", "plane", "total", "mean", "peak", "peak count");
  for (const Plane& pl : planes) {
    uint64_t total = 0, sum = 0;
    for (uint32_t i = 0; i < pl.count; ++i) total += pl.bins[i], sum += uint64_t{pl.bins[i]} * i;
    const uint32_t peak = static_cast<uint32_t>(std::max_element(pl.bins, pl.bins + pl.count) - pl.bins);
    std::printf("%-13s %12llu %8.2f %6u %10u\n", pl.name, static_cast<unsigned long long>(total),
                total == 0 ? 0.0 : double(sum) / double(total), peak, pl.bins[peak]);
  }
  std::printf("averages      hue %.2f  saturation %.2f  intensity %.2f\n", weighed[0] / std::max(height, 1u),
              weighed[1] / std::max(height, 1u), weighed[2] / std::max(height, 1u));
  if (const std::string* svg = p.option("--svg")) {
    const std::string text = histogram_svg(planes, p.files[0] + ": " + std::to_string(width) + "x" +
                                                       std::to_string(height) + ", HSI histogram");
    std::FILE* f = std::fopen(svg->c_str(), "wb");
    if (f == nullptr) throw LibraryError("cannot create " + *svg);
    const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (std::fclose(f) != 0 || !ok) throw LibraryError("cannot write " + *svg);
    std::printf("plot          %s\n", svg->c_str());
  }
  return 0;
}

int key(const Args& args) {
  const Parsed p = parse(args, {"--soft"}, {"--background", "--colour", "--calibrate", "--hue", "--luma"});
  if (p.files.size() != 2) throw UsageError("key takes IN OUT");
  const std::string* background = p.option("--background");
  const std::string* colour_text = p.option("--colour");
  if ((background != nullptr) == (colour_text != nullptr)) {
    throw UsageError("key takes either --background FILE or --colour N");
  }
  const uint16_t colour = colour_text ? static_cast<uint16_t>(number(*colour_text, 0, 15, "--colour")) : 0;
  KeyObject ck;
  if (const std::string* backdrop = p.option("--calibrate")) {
    // The library measures the backdrop's hue; its luma centre it sets to
    // 20 (a dark screen), so the backdrop's mean luma is measured alongside.
    Source source(*backdrop, kStripLines, true);
    Formats to_yuv({PIX_YUV422}, PIX_YUV422);
    double luma = 0;
    uint64_t pairs = 0;
    uint32_t done = 0;
    while (done < source.height()) {
      const uint32_t lines = source.next();
      if (lines == 0) break;
      const uint32_t strip = to_yuv(source.image(), lines);
      const tPIX_Image& r = *record(strip);
      for (uint32_t y = 0; y < lines; ++y) {
        for (uint32_t x = 0; x + 1 < r.width; x += 2) luma += r.data[std::size_t{y} * r.bytes_per_line + 2 * x];
      }
      pairs += uint64_t{lines} * (r.width / 2);
      check(PIX_CK_calibrate(strip, ck, PIX_STRIP_NEXT), "calibrating");
      done += lines;
    }
    check(PIX_CK_set_parameter(ck, PIX_CK_LUMA_CENTRE, static_cast<uint16_t>(pairs ? luma / pairs + 0.5 : 0)),
          "setting the luma centre");
  }
  if (const std::string* hue = p.option("--hue")) set_range(ck, *hue, PIX_CK_HUE_CENTRE, PIX_CK_HUE_HALF_WIDTH, 359, "--hue");
  if (const std::string* luma = p.option("--luma")) {
    set_range(ck, *luma, PIX_CK_LUMA_CENTRE, PIX_CK_LUMA_HALF_WIDTH, 255, "--luma");
  }
  std::printf("key range     hue %u +- %u, luma %u +- %u\n", PIX_CK_get_parameter(ck, PIX_CK_HUE_CENTRE),
              PIX_CK_get_parameter(ck, PIX_CK_HUE_HALF_WIDTH), PIX_CK_get_parameter(ck, PIX_CK_LUMA_CENTRE),
              PIX_CK_get_parameter(ck, PIX_CK_LUMA_HALF_WIDTH));
  Image back;
  if (background) {
    Formats to_yuv({PIX_YUV422}, PIX_YUV422);
    read_whole(*background, to_yuv, back, true);
  }
  Image back_strip;
  Image out;
  Sink sink(p.files[1]);
  uint32_t done = 0;
  uint64_t changed = 0;
  stream(
      p.files[0], sink, {PIX_YUV422}, PIX_YUV422, "keying",
      [&](uint32_t strip, uint32_t lines) {
        uint32_t behind = 0;
        if (background) {
          if (param(back, PIX_IMAGE_WIDTH) != param(strip, PIX_IMAGE_WIDTH) ||
              param(back, PIX_IMAGE_HEIGHT) != param(strip, PIX_IMAGE_HEIGHT)) {
            throw LibraryError("the background is " + size_text(back) + ", the picture " + size_text(strip));
          }
          take_lines(back, done, lines, back_strip);
          behind = back_strip;
        }
        done += lines;
        check(PIX_CK_chroma_key(strip, out, behind, colour, ck, p.has("--soft") ? 1 : 0, PIX_STRIP_NEXT), "keying");
        const tPIX_Image& a = *record(strip);
        const tPIX_Image& b = *record(out);
        for (uint32_t y = 0; y < lines; ++y) {
          const uint8_t* s = a.data + std::size_t{y} * a.bytes_per_line;
          const uint8_t* d = b.data + std::size_t{y} * b.bytes_per_line;
          for (uint32_t x = 0; x < a.width; ++x) changed += s[2 * x] != d[2 * x] || s[2 * x + 1] != d[2 * x + 1];
        }
        return Made{out, lines};
      },
      true);
  std::printf("%s: %llu pixels changed\n", p.files[1].c_str(), static_cast<unsigned long long>(changed));
  return 0;
}

}  // namespace pixtool
