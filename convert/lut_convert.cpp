// Table-driven converters: YUV 4:2:2 through the 19-bit tables (RGB16 or
// RGB15 words, expanded for the 24- and 32-bit layouts) and the 15-bit
// paletted table, and RGB16, Y8 and Y16 images to paletted form through
// their closest-colour tables.
#include <algorithm>
#include <array>

#include "convert/conversion_tables.h"
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

// Pixels a strip of `img` holds at `bytes` a pixel (the line padding
// counted as pixels, since these workers walk a strip contiguously).
std::size_t strip_pixels(const Image& img, uint32_t bytes) {
  return static_cast<std::size_t>(img.bytes_per_line) * img.lines_this_strip / bytes;
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
  // Lines are walked contiguously, without stepping over padding; the run
  // stops at the end of either strip.
  const std::size_t pairs = std::min({static_cast<std::size_t>(src->width / 2) * src->lines_this_strip,
                                      strip_pixels(*src, 4), strip_pixels(*dst, c.out_bytes) / 2});
  kernels::yuv_lut_row(c.out)(src->data, dst->data, pairs, conversion_tables().of_type(c.table).bytes.get());
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

// The paletted converter differs before the strip protocol: a source
// without lines is copied whole and the copy marked paletted.
uint32_t run_yuv_to_paletted(uint32_t in, uint32_t out, uint16_t command) {
  const YuvLutConverter& c = kYuvLut[kPaletted];
  uint32_t result = 0;
  const Image* src = stage::checked_input(in, c.desc.name, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) {
    if (result = PIX_image_copy(in, out); is_error(result)) return result;
    PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, PIX_PALETTED);
    return 0;
  }
  if (uint32_t r = accept_yuv422(*src, c.desc.name); is_error(r)) return r;
  return stage::run_strips(
      lut_converters().yuv[kPaletted], c.desc.name, c.desc.busy, in, out, command,
      [&]() -> uint32_t {
        if (uint32_t r = stage::set_up_output(in, out, PIX_PALETTED, c.desc.name); is_error(r)) return r;
        return require_table(c.table, in);  // from the source's colour map
      },
      [&] { return yuv_lut_worker(c, in, out); });
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
  const uint32_t in_bytes = src->format == PIX_Y8 ? 1 : 2;
  const std::size_t pixels = std::min({static_cast<std::size_t>(src->width) * src->lines_this_strip,
                                       strip_pixels(*src, in_bytes), strip_pixels(*dst, 1)});
  if (in_bytes == 1) {
    kernels::paletted_from_bytes(src->data, dst->data, pixels, table.bytes.get());
  } else {
    // Every table size is a power of two; a Y16 table kept from a narrower
    // data width is not read beyond its end.
    kernels::paletted_from_words(src->data, dst->data, pixels, table.bytes.get(),
                                 static_cast<uint32_t>(table.size - 1));
  }
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
