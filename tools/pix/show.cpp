// pix show FILE [--fit] [--aspect] [--roi X,Y,W,H] [--dib | --direct] [--window W,H] [--strip-lines N]
// pix print FILE OUT.pdf [--percent N]
//
// The picture goes to the window strip by strip, in the screen's own pixel
// format, through the device-dependent bitmap path (each strip placed by the
// region's top; with --fit the picture is held whole, as the bitmap path
// stretches its whole bitmap), or strip by strip through the direct path,
// or whole as a DIB.
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "show.h"
#include "strips.h"

namespace pixtool {

namespace {

std::vector<uint32_t> numbers(const std::string& text, std::size_t count, const std::string& option) {
  std::vector<uint32_t> values;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t comma = std::min(text.find(',', at), text.size());
    values.push_back(number(text.substr(at, comma - at), 0, 32767, option));
    at = comma + 1;
  }
  if (values.size() != count) throw UsageError(option + " takes " + std::to_string(count) + " numbers separated by commas");
  return values;
}

struct ShowOptions {
  std::string path;
  bool fit = false, aspect = false, dib = false, direct = false;
  std::vector<uint32_t> roi{0, 0, 32767, 32767}, window;
  uint32_t strip_lines = 64;
};

ShowOptions parse(const Args& args) {
  ShowOptions o;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&] {
      if (i + 1 >= args.size()) throw UsageError(a + " needs a value");
      return args[++i];
    };
    if (a == "--fit") o.fit = true;
    else if (a == "--aspect") o.aspect = o.fit = true;
    else if (a == "--dib") o.dib = true;
    else if (a == "--direct") o.direct = true;
    else if (a == "--roi") o.roi = numbers(value(), 4, "--roi");
    else if (a == "--window") o.window = numbers(value(), 2, "--window");
    else if (a == "--strip-lines") o.strip_lines = number(value(), 1, 65535, "--strip-lines");
    else if (!a.empty() && a[0] == '-') throw UsageError("unknown option " + a);
    else if (o.path.empty()) o.path = a;
    else throw UsageError("show takes one file");
  }
  if (o.path.empty()) throw UsageError("show needs a file");
  if (o.dib && o.direct) throw UsageError("--dib and --direct exclude each other");
  return o;
}

// The whole picture as a DIB (BGR24 rows bottom-up after a 40-byte header).
void read_dib(const std::string& path, uint32_t dib) {
  Formats formats({PIX_RGB24}, PIX_RGB24);
  Image whole;
  read_whole(path, formats, whole);
  check(PIX_convert_to_DIB_w31(whole, dib, 0, PIX_STRIP_NEXT), "PIX_convert_to_DIB_w31");
}

}  // namespace

int show(const Args& args) {
  const ShowOptions o = parse(args);
  uint32_t width = 0, height = 0;
  {
    Image probe;
    PIX_image_set_infilename(probe, o.path.c_str());
    read_header(probe);
    width = param(probe, PIX_IMAGE_WIDTH), height = param(probe, PIX_IMAGE_HEIGHT);
    PIX_image_read(probe, 0, PIX_STRIP_FINISH);  // the reader keeps one file open library-wide
  }
  const uint32_t window_w = o.window.empty() ? o.roi[0] + std::min(o.roi[2], width) : o.window[0];
  const uint32_t window_h = o.window.empty() ? o.roi[1] + std::min(o.roi[3], height) : o.window[1];
  const uint32_t display = check(PIX_display_create(), "PIX_display_create");
  std::optional<Image> dib;
  bool initialised = false, told = false;
  auto set_roi = [&](uint32_t top, uint32_t lines) {
    uint16_t roi[4] = {uint16_t(o.roi[0]), uint16_t(top), uint16_t(o.roi[2]), uint16_t(lines)};
    check(PIX_display_set_ROI(display, 1, roi), "PIX_display_set_ROI");
  };
  show_window("pix show " + o.path, window_w, window_h, [&](PIX_HWND window, PIX_HDC dc) {
    if (!initialised) {
      check(PIX_display_set_paint_hDC(display, dc), "PIX_display_set_paint_hDC");
      check(PIX_display_init(display, window), "PIX_display_init");
      // Init sets the flags word afresh: the path and fit flags come after it.
      check(PIX_display_set_flags(display, PIX_DISPLAY_FLAG_FIT, o.fit ? 1 : 0), "PIX_display_set_flags");
      check(PIX_display_set_flags(display, PIX_DISPLAY_FLAG_KEEP_ASPECT, o.aspect ? 1 : 0), "PIX_display_set_flags");
      check(PIX_display_set_flags(display, PIX_DISPLAY_FLAG_DIRECT_DRAW, o.direct ? 1 : 0), "PIX_display_set_flags");
      initialised = true;
    }
    PIX_display_set_paint_hDC(display, dc);
    set_roi(o.roi[1], o.roi[3]);
    if (o.dib) {
      if (!dib) read_dib(o.path, dib.emplace());
      check(PIX_display_image(display, *dib, PIX_STRIP_NEXT), "PIX_display_image");
    } else {
      const auto format = static_cast<uint16_t>(PIX_display_get_parameter(display, PIX_IMAGE_FORMAT));
      Formats formats({format}, format);
      if (o.fit && !o.direct) {
        Image whole;
        read_whole(o.path, formats, whole);
        check(PIX_display_image(display, whole, PIX_STRIP_NEXT), "PIX_display_image");
      } else {
        Source source(o.path, o.strip_lines);
        uint32_t done = 0;
        for (uint32_t strip = 0, lines; strip < source.strips() && (lines = source.next()) != 0; ++strip, done += lines) {
          // The bitmap path draws each strip from its bitmap's top: the
          // region places it.
          if (!o.direct) set_roi(o.roi[1] + done, std::min(lines, o.roi[3] == 32767 ? lines : o.roi[3] - std::min(done, o.roi[3])));
          check(PIX_display_image(display, formats(source.image(), lines), PIX_STRIP_NEXT), "PIX_display_image");
        }
      }
    }
    if (!told) {
      const Point at = client_origin(window);
      std::printf("shown %ux%u in a %ux%u window at %d,%d\n", width, height, window_w, window_h, at.x, at.y);
      std::fflush(stdout);
      told = true;
    }
  }, [&] { PIX_display_destroy(display); });
  PIX_display_destroy(display);  // when the window failed before closing
  return 0;
}

int print(const Args& args) {
  std::string in, out;
  uint32_t percent = 100;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--percent" && i + 1 < args.size()) percent = number(args[++i], 0, 100, "--percent");
    else if (!args[i].empty() && args[i][0] == '-') throw UsageError("unknown option " + args[i]);
    else if (in.empty()) in = args[i];
    else if (out.empty()) out = args[i];
    else throw UsageError("print takes a file and a PDF file");
  }
  if (out.empty()) throw UsageError("print needs a file and a PDF file");
  Image dib;
  read_dib(in, dib);
  // An A4 page at 300 dots an inch: the page's size in device pixels.
  constexpr double kDpi = 300, kWidth = 595.276, kHeight = 841.89;
  const uint32_t display = check(PIX_display_create(), "PIX_display_create");
  pdf_page(out, kWidth, kHeight, kDpi / 72, [&](PIX_HDC dc) {
    check(PIX_display_set_paint_hDC(display, dc), "PIX_display_set_paint_hDC");
    check(PIX_display_set_parameter(display, PIX_IMAGE_WIDTH, uint32_t(kWidth * kDpi / 72)), "PIX_display_set_parameter");
    check(PIX_display_set_parameter(display, PIX_IMAGE_HEIGHT, uint32_t(kHeight * kDpi / 72)), "PIX_display_set_parameter");
    check(PIX_display_print_DIB(display, dib, static_cast<int16_t>(percent)), "PIX_display_print_DIB");
  });
  PIX_display_destroy(display);
  return 0;
}

}  // namespace pixtool
