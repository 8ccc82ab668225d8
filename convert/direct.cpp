// The direct-colour converters: grey, the RGB layouts of display hardware,
// Y16 and CMYK32.  Each is the converter skeleton with its own list of
// source formats and line stepping, and a worker that runs one row kernel
// over the strip.
#include "direct.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "core/stage.h"
#include "convert/kernels/direct.h"
#include "core/image.h"
#include "core/lines.h"
#include "core/status.h"

namespace pix::convert {

using stage::SameFormat;

DirectState& direct_state() noexcept {
  static DirectState state;
  return state;
}

namespace {

using kernels::Direct;

// How a worker gets from the start of one line to the next.
enum class Ends {
  odd_width,   // the default alignment of 2 assumed: odd widths step one byte more (see `steps`)
  skip,        // past each image's skip_bytes, with the per-member adjustments of `skip_in` and `skip_out`
  contiguous,  // the strip is width * lines packed pixels
  cmyk,        // input as odd_width (one byte), output contiguous
};

enum class Kind { direct, palette_cmyk, palette_rgb24_or_y8 };

struct Member {
  stage::Stage outer;
  const char* worker;
  uint32_t sources;      // bit f set: format f is converted
  const char* refusal;   // message for any other format
  Ends ends;
  stage::Progress DirectState::*progress;
  Kind kind = Kind::direct;
};

constexpr uint32_t formats(std::initializer_list<int> list) {
  uint32_t mask = 0;
  for (int f : list) mask |= 1u << f;
  return mask;
}

constexpr const char* kUnsupported = "Unsupported image format";

constexpr Member kToY8{{.name = "PIX_convert_to_Y8", .target = PIX_Y8, .busy = 3},
                       "PIX_convert_to_Y8_1_strip", formats({5, 6, 7, 8, 9, 10, 11, 12, 14}), kUnsupported,
                       Ends::odd_width, &DirectState::y8};
constexpr Member kToRgbx32{{.name = "PIX_convert_to_RGBX32", .target = PIX_RGBX32, .out_line_align = true},
                           "PIX_convert_to_RGBX32_1_strip", formats({2, 5, 6, 7, 10, 11, 14}), kUnsupported,
                           Ends::skip, &DirectState::rgbx32};
constexpr Member kToBgrx32{{.name = "PIX_convert_to_BGRX32", .target = PIX_BGRX32},
                           "PIX_convert_to_BGRX32_1_strip", formats({2, 5, 6, 7, 9, 11, 14}), kUnsupported,
                           Ends::contiguous, &DirectState::bgrx32};
constexpr Member kToXbgr32{{.name = "PIX_convert_to_XBGR32", .target = PIX_XBGR32},
                           "PIX_convert_to_XBGR32_1_strip", formats({2, 5, 6, 7, 9, 10, 14}), kUnsupported,
                           Ends::contiguous, &DirectState::xbgr32};
constexpr Member kToXrgb32{{.name = "PIX_convert_to_XRGB32", .target = PIX_XRGB32},
                           "PIX_convert_to_XRGB32_1_strip", formats({2, 5, 6, 7, 9, 10, 14}), kUnsupported,
                           Ends::contiguous, &DirectState::xrgb32};
constexpr Member kToRgb24{{.name = "PIX_convert_to_RGB24", .target = PIX_RGB24, .same = SameFormat::copy_then_0},
                          "PIX_convert_to_RGB24_1_strip", formats({2, 5, 6, 9, 10, 11, 14}), kUnsupported,
                          Ends::contiguous, &DirectState::rgb24};
constexpr Member kToBgr24{{.name = "PIX_convert_to_BGR24", .target = PIX_BGR24},
                          "PIX_convert_to_BGR24_1_strip", formats({2, 5, 6, 7, 9, 10, 11, 14}), kUnsupported,
                          Ends::contiguous, &DirectState::bgr24};
constexpr Member kToRgb16{{.name = "PIX_convert_to_RGB16", .target = PIX_RGB16},
                          "PIX_convert_to_RGB16_1_strip", formats({2, 4, 5, 7, 8, 9, 10, 11, 14}), kUnsupported,
                          Ends::skip, &DirectState::rgb16};
// Kept: RGB16 is refused although the worker has a path for it.
constexpr Member kToRgb15{{.name = "PIX_convert_to_RGB15", .target = PIX_RGB15},
                          "PIX_convert_to_RGB15_1_strip", formats({2, 7, 8, 9, 10, 11, 14}), kUnsupported,
                          Ends::skip, &DirectState::rgb15};
constexpr Member kToY16{{.name = "PIX_convert_to_Y16", .target = PIX_Y16, .out_line_align = true},
                        "PIX_convert_to_Y16_1_strip", formats({2}), kUnsupported, Ends::skip, &DirectState::y16};
constexpr Member kToCmyk32{{.name = "PIX_convert_to_CMYK32", .target = PIX_CMYK32},
                           "PIX_convert_to_CMYK32_1_strip", formats({3}),
                           "Only paletted input images currently supported", Ends::cmyk, &DirectState::cmyk32,
                           Kind::palette_cmyk};
// The target (Y8 or RGB24) is chosen per call from the input's colour map.
constexpr Member kPaletted{{.name = "PIX_convert_to_RGB24_or_Y8", .target = PIX_RGB24, .out_line_align = true,
                            .same = SameFormat::none},
                           "PIX_convert_to_RGB24_or_Y8_1_strip", formats({3}), "Input image should be paletted",
                           Ends::skip, &DirectState::paletted, Kind::palette_rgb24_or_y8};

// The row-kernel layout of a pixel format, if it has one.
bool layout_of(uint16_t format, Direct& layout) {
  switch (format) {
    case PIX_Y8: layout = Direct::y8; return true;
    case PIX_RGB8: layout = Direct::rgb8; return true;
    case PIX_RGB15: layout = Direct::rgb15; return true;
    case PIX_RGB16: layout = Direct::rgb16; return true;
    case PIX_RGB24: layout = Direct::rgb24; return true;
    case PIX_BGR24: layout = Direct::bgr24; return true;
    case PIX_RGBX32: layout = Direct::rgbx32; return true;
    case PIX_BGRX32: layout = Direct::bgrx32; return true;
    case PIX_XBGR32: layout = Direct::xbgr32; return true;
    case PIX_YUV422: layout = Direct::yuv422; return true;
    case PIX_Y16: layout = Direct::y16; return true;
    case PIX_XRGB32: layout = Direct::xrgb32; return true;
    default: return false;
  }
}

// Extra bytes stepped after each line's pixels, by the library's own rules
// (kept: applications lay out their buffers by them).
uint32_t skip_in(uint16_t target, Direct from, uint32_t skip) {
  if (target == PIX_RGB16 && from == Direct::rgb8) return skip >> 1;
  if (target == PIX_RGB16 && from == Direct::rgb15) return skip & ~1u;
  if (target == PIX_RGB15 && kernels::direct_bytes(from) == 2) return skip & ~1u;
  return skip;
}
uint32_t skip_out(uint16_t target, uint32_t skip) {
  return target == PIX_RGB16 || target == PIX_Y16 ? skip & ~1u : skip;
}

// The input and output lines of a strip as the member steps them.
struct Plan {
  lines::In in;
  lines::Out out;
};
Plan plan(const Member& m, Direct from, unsigned in_bytes, unsigned out_bytes, const Image& src, const Image& dst) {
  uint64_t in_step = lines::packed(src, in_bytes), out_step = lines::packed(src, out_bytes);
  switch (m.ends) {
    case Ends::contiguous: break;
    case Ends::odd_width:
      // Kept: the padding of a line is taken to be what the default
      // alignment of 2 gives, whatever the images say.  So a 32-bit source
      // of odd width steps over one byte more than its line holds.
      in_step = lines::odd_width(src, in_bytes, from == Direct::yuv422 ? 2u : in_bytes >= 3 ? 1u : 0u);
      out_step = lines::odd_width(src, out_bytes);
      break;
    case Ends::cmyk: in_step = lines::odd_width(src, in_bytes); break;
    case Ends::skip:
      in_step += skip_in(m.outer.target, from, src.skip_bytes);
      out_step += skip_out(m.outer.target, dst.skip_bytes);
      break;
  }
  return {lines::source(src, in_step), lines::target(dst, out_step)};
}

uint32_t direct_strip(const Member& m, const Image& src, const Image& dst) {
  Direct from, to;
  if (!layout_of(src.format, from) || !layout_of(m.outer.target, to)) {
    return report(m.worker, code::unsupported, kUnsupported);
  }
  const kernels::DirectRow kernel = kernels::direct_row(from, to);
  if (kernel == nullptr) return report(m.worker, code::unsupported, kUnsupported);
  unsigned shift = 0;
  if (from == Direct::y16) {
    // The outer functions refuse such an input; a direct call of the worker meets the same test.
    if (src.data_width < 8) return report(m.worker, code::bad_image, "Data width must be > 7 for Y16");
    shift = std::min(src.data_width - 8u, 16u);
  }
  if (to == Direct::y16) {
    if (dst.data_width < 8) return report(m.worker, code::out_of_range, "grayscale data width must be 8 or more");
    shift = std::min(dst.data_width - 8u, 16u);
  }
  const unsigned in_bytes = kernels::direct_bytes(from), out_bytes = kernels::direct_bytes(to);
  const Plan p = plan(m, from, in_bytes, out_bytes, src, dst);
  lines::map(p.in, in_bytes, p.out, out_bytes, src.width, src.lines_this_strip,
             [&](const uint8_t* s, uint8_t* d, std::size_t n) { kernel(s, d, n, shift); });
  return 0;
}

uint32_t palette_strip(const Member& m, const Image& src, const Image& dst) {
  if (src.cmap == nullptr) return report(m.worker, code::bad_state, "Colourmap is NULL");
  kernels::PaletteOut out = kernels::PaletteOut::cmyk32;
  unsigned out_bytes = 4;
  if (m.kind == Kind::palette_rgb24_or_y8) {
    const bool grey = dst.format == PIX_Y8;
    out = grey ? kernels::PaletteOut::y8 : kernels::PaletteOut::rgb24;
    out_bytes = grey ? 1 : 3;
  }
  const kernels::PaletteRow kernel = kernels::palette_row(out);
  const tPIX_Colour* map = src.cmap;
  // A paletted byte has no layout of its own; it steps like a grey byte.
  const Plan p = plan(m, Direct::y8, 1, out_bytes, src, dst);
  lines::map(p.in, 1, p.out, out_bytes, src.width, src.lines_this_strip,
             [&](const uint8_t* s, uint8_t* d, std::size_t n) { kernel(s, d, n, map); });
  return 0;
}

uint32_t one_strip(const Member& m, uint32_t in, uint32_t out) {
  const Image* src = find_image(in);
  if (src == nullptr) return report(m.worker, code::bad_handle, "Input image does not exist");
  if (uint32_t r = stage::begin_worker(*src, out, m.worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  return m.kind == Kind::direct ? direct_strip(m, *src, dst) : palette_strip(m, *src, dst);
}

uint32_t accept(const Member& m, const Image& src) {
  if (src.format >= 32 || ((m.sources >> src.format) & 1u) == 0) {
    return report(m.outer.name, code::unsupported, m.refusal);
  }
  if (src.format == PIX_Y16 && src.data_width < 8) {
    return report(m.outer.name, code::bad_image, "Data width must be > 7 for Y16");
  }
  return 0;
}

uint32_t run_member(const Member& m, uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      m.outer, direct_state().*m.progress, in, out, command,
      [&](const Image& src) { return accept(m, src); }, [&] { return one_strip(m, in, out); });
}

}  // namespace

uint32_t convert_to_rgb24_1_strip(uint32_t in, uint32_t out) { return one_strip(kToRgb24, in, out); }

}  // namespace pix::convert

using namespace pix;
using namespace pix::convert;

extern "C" {

PIX_API uint32_t PIX_CALL PIX_convert_to_Y8(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToY8, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGBX32(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToRgbx32, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_BGRX32(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToBgrx32, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_XBGR32(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToXbgr32, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_XRGB32(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToXrgb32, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGB24(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToRgb24, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_BGR24(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToBgr24, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGB16(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToRgb16, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGB15(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToRgb15, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_Y16(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToY16, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_CMYK32(uint32_t in, uint32_t out, uint16_t command) {
  return run_member(kToCmyk32, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_paletted_to_RGB24_or_Y8(uint32_t in, uint32_t out, uint16_t command) {
  // Grey output when the input's colour map is grey (asked only of an image
  // that has a map, so that a bad handle is reported once, by the check).
  Member m = kPaletted;
  const Image* src = find_image(in);
  if (src != nullptr && src->cmap != nullptr && PIX_cmap_is_grayscale(in) == 1) m.outer.target = PIX_Y8;
  return run_member(m, in, out, command);
}

}  // extern "C"
