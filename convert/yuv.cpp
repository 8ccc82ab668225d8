// YUV 4:2:2 converters: the ten decoders, the encoder back to YUV 4:2:2 and
// the single-colour RGB-to-YUV routine the chroma keyer shares.
#include <algorithm>
#include <cstring>

#include "core/lines.h"
#include "core/stage.h"
#include "convert/kernels/yuv.h"
#include "convert/yuv.h"
#include "convert/pixel_math.h"
#include "process/hue_table.h"

using namespace pix;
using namespace pix::convert;
using stage::SameFormat;
using stage::unsupported_format;
using kernels::RgbIn;
using kernels::YuvOut;

namespace {

struct YuvState {
  stage::Progress to_rgbx32, to_bgrx32, to_xbgr32, to_xrgb32, to_rgb24, to_bgr24, to_rgb16, to_rgb15, to_y8,
      to_hsi, to_yuv422;
};
YuvState& yuv_state() {
  static YuvState state;
  return state;
}

}  // namespace

stage::Progress& pix::convert::yuv422_to_rgb24_progress() noexcept { return yuv_state().to_rgb24; }

namespace {

// ---------------------------------------------------------------------------
// Decoders

struct Decoder {
  stage::Stage outer;
  const char* worker;
  YuvOut layout;  // unused by the HSI decoder
  uint32_t out_bytes;
  stage::Progress YuvState::*progress;
};

constexpr stage::Stage decoder(const char* name, uint16_t target) {
  return {.name = name, .target = target, .same = SameFormat::none};
}

// Kept: the RGBX32 decoder describes its output as XBGR32 when the input
// holds no lines, and copies an input that already is RGBX32; applications
// written against these paths depend on them.
constexpr Decoder kToRgbx32{{.name = "PIX_YUV422_to_RGBX32", .target = PIX_RGBX32, .same = SameFormat::copy,
                             .described_as = PIX_XBGR32},
                            "PIX_YUV422_to_RGBX32_1_strip", YuvOut::rgbx32, 4, &YuvState::to_rgbx32};
constexpr Decoder kToBgrx32{decoder("PIX_YUV422_to_BGRX32", PIX_BGRX32), "PIX_YUV422_to_BGRX32_1_strip",
                            YuvOut::bgrx32, 4, &YuvState::to_bgrx32};
constexpr Decoder kToXbgr32{decoder("PIX_YUV422_to_XBGR32", PIX_XBGR32), "PIX_YUV422_to_XBGR32_1_strip",
                            YuvOut::xbgr32, 4, &YuvState::to_xbgr32};
constexpr Decoder kToXrgb32{decoder("PIX_YUV422_to_XRGB32", PIX_XRGB32), "PIX_YUV422_to_XRGB32_1_strip",
                            YuvOut::xrgb32, 4, &YuvState::to_xrgb32};
constexpr Decoder kToRgb24{decoder("PIX_YUV422_to_RGB24", PIX_RGB24), "PIX_YUV422_to_RGB24_1_strip",
                           YuvOut::rgb24, 3, &YuvState::to_rgb24};
constexpr Decoder kToBgr24{decoder("PIX_YUV422_to_BGR24", PIX_BGR24), "PIX_YUV422_to_BGR24_1_strip",
                           YuvOut::bgr24, 3, &YuvState::to_bgr24};
constexpr Decoder kToRgb16{decoder("PIX_YUV422_to_RGB16", PIX_RGB16), "PIX_YUV422_to_RGB16_1_strip",
                           YuvOut::rgb16, 2, &YuvState::to_rgb16};
constexpr Decoder kToRgb15{decoder("PIX_YUV422_to_RGB15", PIX_RGB15), "PIX_YUV422_to_RGB15_1_strip",
                           YuvOut::rgb15, 2, &YuvState::to_rgb15};
// Kept: the Y8 decoder has no description-only path; an input without lines
// goes through the strip protocol and converts nothing.
constexpr Decoder kToY8{{.name = "PIX_YUV422_to_Y8", .target = PIX_Y8, .same = SameFormat::none, .describes = false},
                        "PIX_YUV422_to_Y8_1_strip", YuvOut::y8, 1, &YuvState::to_y8};
constexpr Decoder kToHsi{decoder("PIX_YUV422_to_HSI", PIX_HSI), "PIX_YUV422_to_HSI_1_strip", YuvOut::y8, 4,
                         &YuvState::to_hsi};

uint32_t accept_yuv422(const Image& src, const char* function) {
  if (src.format != PIX_YUV422) return report(function, code::unsupported, "Not 16 bit YUV 4:2:2");
  if (src.width % 2 != 0) return report(function, code::unsupported, "YUV422 image must be an even width");
  return 0;
}

// Decoders walk the strip as one run of width * lines pixels, padding
// included (kept: the bytes land where applications expect them), a pair of
// pixels at a time.
lines::In packed_pairs(const Image& src) { return lines::source(src, lines::packed(src, 2)); }
lines::Out packed_pairs_out(const Image& src, const Image& dst, uint32_t out_bytes) {
  return lines::target(dst, lines::packed(src, out_bytes));
}

void hsi_pixel(uint8_t* d, uint8_t y, const Chroma& c, uint16_t table_hue) {
  const Rgb p = yuv_pixel(y, c);
  const uint32_t m = std::min({p.r, p.g, p.b});
  const uint16_t hue = y > process::kDarkLuma ? table_hue : process::kDarkHue;
  d[0] = static_cast<uint8_t>(hue);
  d[1] = static_cast<uint8_t>(hue >> 8);
  d[2] = y == 0 ? 0 : static_cast<uint8_t>(255 - m * 255 / y);
  d[3] = y;
}

// Pairs to PIX_HSI: hue word, saturation, intensity per pixel; one table
// read per pair.
void hsi_row(const uint8_t* src, uint8_t* dst, std::size_t pairs, const uint16_t* hue) {
  for (std::size_t i = 0; i < pairs; ++i, src += 4, dst += 8) {
    const uint16_t h = hue[(src[1] << 8) | src[3]];
    const Chroma c = chroma_terms(src[1], src[3]);
    hsi_pixel(dst, src[0], c, h);
    hsi_pixel(dst + 4, src[2], c, h);
  }
}

uint32_t decode_1_strip(const Decoder& d, uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, d.worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const lines::In from = packed_pairs(src);
  const lines::Out to = packed_pairs_out(src, dst, d.out_bytes);
  const uint32_t pair_out = 2 * d.out_bytes;
  if (d.outer.target == PIX_HSI) {
    // The table is built at set-up; rebuilt here only if it was destroyed
    // in the middle of a run.
    if (uint32_t r = process::ensure_hue_table(); is_error(r)) return r;
    const uint16_t* hue = process::hue_table();
    lines::map(from, 4, to, pair_out, src.width / 2, src.lines_this_strip,
               [hue](const uint8_t* s, uint8_t* t, std::size_t n) { hsi_row(s, t, n, hue); });
  } else {
    lines::map(from, 4, to, pair_out, src.width / 2, src.lines_this_strip, kernels::yuv422_row(d.layout));
  }
  return 0;
}

uint32_t decode(const Decoder& d, uint32_t in, uint32_t out, uint16_t command) {
  auto accept = [&](const Image& src) { return accept_yuv422(src, d.outer.name); };
  auto work = [&] { return decode_1_strip(d, in, out); };
  if (d.outer.target == PIX_HSI) {
    return stage::run(d.outer, yuv_state().*d.progress, in, out, command, accept, work,
                         [] { return process::ensure_hue_table(); });
  }
  return stage::run(d.outer, yuv_state().*d.progress, in, out, command, accept, work);
}

// ---------------------------------------------------------------------------
// Encoder

constexpr stage::Stage kToYuv422{.name = "PIX_convert_to_YUV422", .target = PIX_YUV422, .out_line_align = true};
constexpr const char* kToYuv422Worker = "PIX_convert_to_YUV422_1_strip";

struct Source {
  RgbIn layout;  // paletted sources are encoded from their colour-map entries as RGBX32
  uint32_t bytes;
};
bool source_of(uint16_t format, Source& s) {
  switch (format) {
    case PIX_Y8: s = {RgbIn::y8, 1}; return true;
    case PIX_PALETTED: s = {RgbIn::rgbx32, 1}; return true;
    case PIX_RGB24: s = {RgbIn::rgb24, 3}; return true;
    case PIX_BGR24: s = {RgbIn::bgr24, 3}; return true;
    case PIX_RGBX32: s = {RgbIn::rgbx32, 4}; return true;
    case PIX_BGRX32: s = {RgbIn::bgrx32, 4}; return true;
    case PIX_XBGR32: s = {RgbIn::xbgr32, 4}; return true;
    default: return false;
  }
}

uint32_t accept_rgb(const Image& src) {
  Source s;
  if (src.width % 2 != 0) {
    return report(kToYuv422.name, code::unsupported, "Only even width YUV422 images are supported");
  }
  if (!source_of(src.format, s)) return unsupported_format(kToYuv422.name);
  return 0;
}

// A paletted line goes through its colour map a piece at a time: the map's
// entries (red, green, blue, spare) are RGBX32 pixels.
void encode_paletted(const uint8_t* src, uint8_t* dst, std::size_t pairs, const tPIX_Colour* map) {
  constexpr std::size_t kPiece = 256;  // pairs
  uint8_t rgbx[kPiece * 2 * 4];
  const auto row = kernels::encode_row(RgbIn::rgbx32);
  while (pairs > 0) {
    const std::size_t n = std::min(pairs, kPiece);
    for (std::size_t i = 0; i < 2 * n; ++i) std::memcpy(rgbx + 4 * i, &map[src[i]], 4);
    row(rgbx, dst, n);
    src += 2 * n, dst += 4 * n, pairs -= n;
  }
}

// Line by line: each image's lines are `bytes_per_line` apart, so both step
// over their own `skip_bytes` at every line end.
uint32_t encode_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kToYuv422Worker); is_error(r)) return r;
  Source s;
  if (!source_of(src.format, s)) return unsupported_format(kToYuv422Worker);
  if (src.format == PIX_PALETTED && src.cmap == nullptr) {
    return report(kToYuv422Worker, code::bad_state, "Colourmap is NULL");
  }
  const Image& dst = *find_image(out);
  const auto row = kernels::encode_row(s.layout);
  lines::map(lines::source(src, lines::padded(src)), 2 * s.bytes, lines::target(dst, lines::padded(dst)), 4,
             src.width / 2, src.lines_this_strip, [&](const uint8_t* from, uint8_t* to, std::size_t pairs) {
               if (src.format == PIX_PALETTED) {
                 encode_paletted(from, to, pairs, src.cmap);
               } else {
                 row(from, to, pairs);
               }
             });
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGBX32(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToRgbx32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGRX32(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToBgrx32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XBGR32(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToXbgr32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XRGB32(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToXrgb32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB24(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToRgb24, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGR24(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToBgr24, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB16(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToRgb16, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB15(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToRgb15, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_Y8(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToY8, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_HSI(uint32_t in, uint32_t out, uint16_t command) {
  return decode(kToHsi, in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_YUV422(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(kToYuv422, yuv_state().to_yuv422, in, out, command, accept_rgb,
                       [&] { return encode_1_strip(in, out); });
}

PIX_API uint32_t PIX_CALL PIX_CK_get_YUV_values_RGB(uint16_t red, uint16_t green, uint16_t blue) {
  return pack_yuv(rgb_to_yuv(red, green, blue));
}

}  // extern "C"
