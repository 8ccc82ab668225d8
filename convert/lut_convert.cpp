// Table-driven converters: YUV 4:2:2 through the 19-bit tables (RGB16 or
// RGB15 words, expanded for the 24- and 32-bit layouts) and the 15-bit
// paletted table, and RGB16, Y8 and Y16 images to paletted form through
// their closest-colour tables.
#include <algorithm>
#include <array>

#include "convert/conversion_tables.h"
#include "core/lines.h"
#include "core/stage.h"
#include "convert/kernels/tables.h"

using namespace pix;
using namespace pix::convert;
using stage::SameFormat;
using stage::unsupported_format;
using kernels::LutOut;

namespace {

enum YuvLut { kRgbx32, kBgrx32, kXbgr32, kXrgb32, kRgb24, kBgr24, kRgb16, kRgb15, kPaletted, kYuvLuts };

struct YuvLutConverter {
  stage::Stage desc;
  const char* worker;
  LutOut out;
  uint16_t table;
  uint32_t out_bytes;  // per pixel
};

constexpr SameFormat kNoCopy = SameFormat::none;
constexpr YuvLutConverter kYuvLut[kYuvLuts] = {
    {{"PIX_YUV422_to_RGBX32_LUT", PIX_RGBX32, false, kNoCopy}, "PIX_YUV422_to_RGBX32_LUT_1_strip", LutOut::rgbx32,
     PIX_LUT_YUV422_TO_RGB16, 4},
    {{"PIX_YUV422_to_BGRX32_LUT", PIX_BGRX32, false, kNoCopy}, "PIX_YUV422_to_BGRX32_LUT_1_strip", LutOut::bgrx32,
     PIX_LUT_YUV422_TO_RGB16, 4},
    {{"PIX_YUV422_to_XBGR32_LUT", PIX_XBGR32, false, kNoCopy}, "PIX_YUV422_to_XBGR32_LUT_1_strip", LutOut::xbgr32,
     PIX_LUT_YUV422_TO_RGB16, 4},
    {{"PIX_YUV422_to_XRGB32_LUT", PIX_XRGB32, false, kNoCopy}, "PIX_YUV422_to_XRGB32_LUT_1_strip", LutOut::xrgb32,
     PIX_LUT_YUV422_TO_RGB16, 4},
    {{"PIX_YUV422_to_RGB24_LUT", PIX_RGB24, false, kNoCopy}, "PIX_YUV422_to_RGB24_LUT_1_strip", LutOut::rgb24,
     PIX_LUT_YUV422_TO_RGB16, 3},
    {{"PIX_YUV422_to_BGR24_LUT", PIX_BGR24, false, kNoCopy}, "PIX_YUV422_to_BGR24_LUT_1_strip", LutOut::bgr24,
     PIX_LUT_YUV422_TO_RGB16, 3},
    {{"PIX_YUV422_to_RGB16_LUT", PIX_RGB16, false, kNoCopy}, "PIX_YUV422_to_RGB16_LUT_1_strip", LutOut::word16,
     PIX_LUT_YUV422_TO_RGB16, 2},
    {{"PIX_YUV422_to_RGB15_LUT", PIX_RGB15, false, kNoCopy}, "PIX_YUV422_to_RGB15_LUT_1_strip", LutOut::word16,
     PIX_LUT_YUV422_TO_RGB15, 2},
    {{"PIX_YUV422_to_paletted_LUT", PIX_PALETTED, false, kNoCopy}, "PIX_YUV422_to_paletted_LUT_1_strip",
     LutOut::paletted, PIX_LUT_YUV422_TO_PALETTED, 1},
};

constexpr stage::Stage kToPaletted{"PIX_convert_to_paletted_LUT", PIX_PALETTED, false, kNoCopy};
constexpr const char* kToPalettedWorker = "PIX_convert_to_paletted_LUT_1_strip";

// Progress of every converter of this file.
struct LutConverterState {
  std::array<stage::Progress, kYuvLuts> yuv;
  stage::Progress to_paletted;
};
LutConverterState& lut_converters() noexcept {
  static LutConverterState state;
  return state;
}

// These workers walk a strip as one run of width * lines pixels, the line
// padding counted as pixels.
lines::In packed_in(const Image& src, unsigned bytes) { return lines::source(src, lines::packed(src, bytes)); }
lines::Out packed_out(const Image& src, const Image& dst, unsigned bytes) {
  return lines::target(dst, lines::packed(src, bytes));
}

uint32_t accept_yuv422(const Image& src, const char* function) {
  if (src.format != PIX_YUV422) return report(function, code::unsupported, "Not 16 bit YUV 4:2:2");
  if (src.width % 2 != 0) return report(function, code::unsupported, "YUV422 image must be an even width");
  return 0;
}

uint32_t yuv_lut_worker(const YuvLutConverter& c, uint32_t in, uint32_t out) {
  const Image* src = find_image(in);
  if (uint32_t r = stage::begin_worker(*src, out, c.worker); is_error(r)) return r;
  // A table destroyed between two strips is made again.
  if (uint32_t r = require_table(c.table, in); is_error(r)) return r;
  const Image* dst = find_image(out);
  const auto row = kernels::yuv_lut_row(c.out);
  const uint8_t* table = conversion_tables().of_type(c.table).bytes.get();
  lines::map(packed_in(*src, 2), 4, packed_out(*src, *dst, c.out_bytes), 2 * c.out_bytes, src->width / 2,
             src->lines_this_strip, [&](const uint8_t* s, uint8_t* d, std::size_t pairs) { row(s, d, pairs, table); });
  return 0;
}

uint32_t run_yuv_lut(YuvLut which, uint32_t in, uint32_t out, uint16_t command) {
  const YuvLutConverter& c = kYuvLut[which];
  return stage::run(
      c.desc, lut_converters().yuv[which], in, out, command,
      [&](const Image& src) -> uint32_t {
        // Kept: an RGBX32 source is copied into the output and then still
        // refused as not YUV 4:2:2, unlike the arithmetic converter.
        if (which == kRgbx32 && src.format == PIX_RGBX32) PIX_image_copy(in, out);
        return accept_yuv422(src, c.desc.name);
      },
      [&] { return yuv_lut_worker(c, in, out); }, [&] { return require_table(c.table, in); });
}

// The paletted converter has no copy of a paletted source; a source
// without lines is copied whole and the copy marked paletted.
constexpr stage::Stage kYuvToPaletted{.name = "PIX_YUV422_to_paletted_LUT", .target = PIX_PALETTED,
                                      .same = SameFormat::none, .empty = stage::Copy::copy};

uint32_t run_yuv_to_paletted(uint32_t in, uint32_t out, uint16_t command) {
  const YuvLutConverter& c = kYuvLut[kPaletted];
  return stage::run(
      kYuvToPaletted, lut_converters().yuv[kPaletted], in, out, command,
      [&](const Image& src) { return accept_yuv422(src, c.desc.name); }, [&] { return yuv_lut_worker(c, in, out); },
      [&] { return require_table(c.table, in); });  // from the source's colour map
}

// The closest-colour table of a source format, 0 for none.
uint16_t paletted_table_of(uint16_t format) {
  switch (format) {
    case PIX_RGB16: return PIX_LUT_RGB16_TO_PALETTED;
    case PIX_Y8: return PIX_LUT_Y8_TO_PALETTED;
    case PIX_Y16: return PIX_LUT_Y16_TO_PALETTED;
    default: return 0;
  }
}

uint32_t to_paletted_worker(uint32_t in, uint32_t out) {
  const Image* src = find_image(in);
  if (uint32_t r = stage::begin_worker(*src, out, kToPalettedWorker); is_error(r)) return r;
  const uint16_t type = paletted_table_of(src->format);
  if (type == 0) return unsupported_format(kToPalettedWorker);
  if (uint32_t r = require_table(type, in); is_error(r)) return r;
  const Image* dst = find_image(out);
  const ConversionTable& table = conversion_tables().of_type(type);
  const unsigned in_bytes = src->format == PIX_Y8 ? 1 : 2;
  // Every table size is a power of two; a Y16 table kept from a narrower
  // data width is not read beyond its end.
  const auto last = static_cast<uint32_t>(table.size - 1);
  lines::map(packed_in(*src, in_bytes), in_bytes, packed_out(*src, *dst, 1), 1, src->width, src->lines_this_strip,
             [&](const uint8_t* s, uint8_t* d, std::size_t n) {
               if (in_bytes == 1) kernels::paletted_from_bytes(s, d, n, table.bytes.get());
               else kernels::paletted_from_words(s, d, n, table.bytes.get(), last);
             });
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGBX32_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kRgbx32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGRX32_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kBgrx32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XBGR32_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kXbgr32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XRGB32_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kXrgb32, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB24_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kRgb24, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGR24_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kBgr24, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB16_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kRgb16, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB15_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_lut(kRgb15, in, out, command);
}
PIX_API uint32_t PIX_CALL PIX_YUV422_to_paletted_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return run_yuv_to_paletted(in, out, command);
}

PIX_API uint32_t PIX_CALL PIX_convert_to_paletted_LUT(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      kToPaletted, lut_converters().to_paletted, in, out, command,
      [](const Image& src) { return paletted_table_of(src.format) != 0 ? 0u : unsupported_format(kToPaletted.name); },
      [&] { return to_paletted_worker(in, out); },
      [&] { return require_table(paletted_table_of(find_image(in)->format), in); });
}

}  // extern "C"
