// The conversion dispatcher: one entry that picks a converter by target
// format, the output's flags and whether the input is YUV 4:2:2.
#include <array>

#include "core/image.h"
#include "core/status.h"

using namespace pix;

namespace {

using ConvertFn = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);

struct Route {
  uint16_t target;
  ConvertFn plain;
  ConvertFn with_lut;  // taken when the output has PIX_FLAG_USE_LUT; null: same as plain
};

// Inputs other than YUV 4:2:2.
constexpr std::array<Route, 13> kFromOther{{
    {PIX_Y8, PIX_convert_to_Y8, nullptr},
    {PIX_PALETTED, PIX_convert_to_paletted, PIX_convert_to_paletted_LUT},
    {PIX_RGB8, PIX_convert_to_RGB8, nullptr},
    {PIX_RGB15, PIX_convert_to_RGB15, nullptr},
    {PIX_RGB16, PIX_convert_to_RGB16, nullptr},
    {PIX_RGB24, PIX_convert_to_RGB24, nullptr},
    {PIX_BGR24, PIX_convert_to_BGR24, nullptr},
    {PIX_RGBX32, PIX_convert_to_RGBX32, nullptr},
    {PIX_BGRX32, PIX_convert_to_BGRX32, nullptr},
    {PIX_XBGR32, PIX_convert_to_XBGR32, nullptr},
    {PIX_YUV422, PIX_convert_to_YUV422, nullptr},
    {PIX_Y16, PIX_convert_to_Y16, nullptr},
    {PIX_XRGB32, PIX_convert_to_XRGB32, nullptr},
}};

// YUV 4:2:2 inputs.  Kept: a paletted target always goes through the table,
// whatever the flag says.
constexpr std::array<Route, 12> kFromYuv{{
    {PIX_Y8, PIX_YUV422_to_Y8, nullptr},
    {PIX_PALETTED, PIX_YUV422_to_paletted_LUT, nullptr},
    {PIX_RGB15, PIX_YUV422_to_RGB15, PIX_YUV422_to_RGB15_LUT},
    {PIX_RGB16, PIX_YUV422_to_RGB16, PIX_YUV422_to_RGB16_LUT},
    {PIX_RGB24, PIX_YUV422_to_RGB24, PIX_YUV422_to_RGB24_LUT},
    {PIX_BGR24, PIX_YUV422_to_BGR24, PIX_YUV422_to_BGR24_LUT},
    {PIX_RGBX32, PIX_YUV422_to_RGBX32, PIX_YUV422_to_RGBX32_LUT},
    {PIX_BGRX32, PIX_YUV422_to_BGRX32, PIX_YUV422_to_BGRX32_LUT},
    {PIX_XBGR32, PIX_YUV422_to_XBGR32, PIX_YUV422_to_XBGR32_LUT},
    {PIX_XRGB32, PIX_YUV422_to_XRGB32, PIX_YUV422_to_XRGB32_LUT},
    {PIX_YUV422, PIX_convert_to_YUV422, nullptr},
    {PIX_HSI, PIX_YUV422_to_HSI, nullptr},
}};

template <std::size_t N>
ConvertFn choose(const std::array<Route, N>& routes, uint16_t target, bool use_lut) {
  for (const Route& r : routes) {
    if (r.target == target) return use_lut && r.with_lut != nullptr ? r.with_lut : r.plain;
  }
  return nullptr;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_image_convert(uint32_t in, uint32_t out, uint16_t target, uint32_t out_flags,
                                            uint16_t command) {
  static constexpr const char* kName = "PIX_image_convert";
  // The caller chooses the output's flags, and the flags then steer the choice.
  if (Image* dst = find_image(out)) dst->flags = out_flags;
  if ((out_flags & PIX_FLAG_DITHER) != 0) return report(kName, code::unsupported, "Dithering is not yet supported");
  uint32_t result = 0;
  if ((out_flags & PIX_FLAG_DIB) != 0) {
    // A bitmap for display is asked for: whatever the target, it is a DIB.
    result = PIX_convert_to_DIB_w31(in, out, out_flags, command);
  } else if (target == PIX_RGB24_OR_Y8) {
    result = PIX_paletted_to_RGB24_or_Y8(in, out, command);
  } else {
    const Image* src = find_image(in);
    const bool from_yuv = src != nullptr && src->format == PIX_YUV422;
    const bool use_lut = (out_flags & PIX_FLAG_USE_LUT) != 0;
    const ConvertFn convert = from_yuv ? choose(kFromYuv, target, use_lut) : choose(kFromOther, target, use_lut);
    if (convert == nullptr) return report(kName, code::unsupported, "Unsupported or unrecognized output image format");
    result = convert(in, out, command);
  }
  if (Image* dst = find_image(out)) dst->flags &= ~PIX_FLAG_JPEG;
  return result;
}

}  // extern "C"
