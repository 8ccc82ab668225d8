// The conversion dispatcher: flags, refusals and the route it takes.
#include <cstring>
#include <vector>

#include "core/image.h"
#include "test_support.h"

namespace {

using pix::find_image;
using pixtest::LibraryTest;

class Dispatch : public LibraryTest {
 protected:
  // A one-strip image of `format` whose bytes run 0, 1, 2, ...
  uint32_t filled(uint16_t format, uint32_t width, uint32_t height) {
    const uint32_t h = pixtest::make_image(format, width, height, height);
    EXPECT_EQ(PIX_image_malloc_a_strip(h), 0u);
    const tPIX_Image& img = *find_image(h);
    for (uint32_t i = 0; i < img.bytes_per_line * height; ++i) img.data[i] = static_cast<uint8_t>(i * 37 + 11);
    return h;
  }
  std::vector<uint8_t> strip(uint32_t h) {
    const tPIX_Image& img = *find_image(h);
    return {img.data, img.data + img.bytes_per_line * img.lines_this_strip};
  }
};

TEST_F(Dispatch, TheOutputTakesTheFlagsGivenAndDitheringIsRefused) {
  const uint32_t in = filled(PIX_RGB24, 4, 2), out = PIX_image_create();
  PIX_image_set_flags(out, PIX_FLAG_LOCKED | PIX_FLAG_FIELD_MODE, 1);
  EXPECT_EQ(PIX_image_convert(in, out, PIX_Y8, PIX_FLAG_DITHER, 3), 0x10140000u);
  EXPECT_EQ(last_report().function, "PIX_image_convert");
  EXPECT_EQ(last_report().message, "Dithering is not yet supported");
  EXPECT_EQ(find_image(out)->flags, PIX_FLAG_DITHER);
  EXPECT_EQ(PIX_image_get_ptr(out, PIX_PTR_DATA), nullptr);
}

TEST_F(Dispatch, TargetsWithoutARouteAreRefused) {
  const uint32_t rgb = filled(PIX_RGB24, 4, 2), yuv = filled(PIX_YUV422, 4, 2), out = PIX_image_create();
  const std::pair<uint32_t, uint16_t> refused[] = {{rgb, PIX_CMYK32}, {rgb, PIX_BILEVEL}, {rgb, PIX_HSI},
                                                   {yuv, PIX_RGB8},  {yuv, PIX_Y16},     {yuv, PIX_CMYK32},
                                                   {rgb, 0},         {rgb, 200}};
  for (const auto& [in, target] : refused) {
    EXPECT_EQ(PIX_image_convert(in, out, target, 0, 3), 0x10140000u) << target;
    EXPECT_EQ(last_report().message, "Unsupported or unrecognized output image format");
  }
}

TEST_F(Dispatch, TheDibFlagMakesABitmapWhateverTheTarget) {
  const uint32_t in = filled(PIX_RGB24, 5, 3), via_dispatch = PIX_image_create(), direct = PIX_image_create();
  // A target the dispatcher has no route for: the flag alone decides.
  ASSERT_EQ(PIX_image_convert(in, via_dispatch, PIX_CMYK32, PIX_FLAG_DIB | PIX_FLAG_JPEG, 3), 0u);
  ASSERT_EQ(PIX_convert_to_DIB_w31(in, direct, PIX_FLAG_DIB, 3), 0u);
  EXPECT_EQ(PIX_image_get_parameter(via_dispatch, PIX_IMAGE_FORMAT), PIX_BGR24);
  EXPECT_EQ(find_image(via_dispatch)->flags & (PIX_FLAG_DIB | PIX_FLAG_JPEG), PIX_FLAG_DIB);
  const tPIX_Image& a = *find_image(via_dispatch);
  const tPIX_Image& b = *find_image(direct);
  ASSERT_EQ(a.bytes_per_line, b.bytes_per_line);
  EXPECT_EQ(0, std::memcmp(a.data, b.data, 40 + 3 * a.bytes_per_line));
}

TEST_F(Dispatch, RoutesGiveWhatTheConvertersGive) {
  struct Case {
    uint16_t source, target;
    uint32_t flags;
    uint32_t (*direct)(uint32_t, uint32_t, uint16_t);
  };
  const Case cases[] = {
      {PIX_RGB24, PIX_Y8, 0, PIX_convert_to_Y8},
      {PIX_RGB24, PIX_BGRX32, 0, PIX_convert_to_BGRX32},
      {PIX_Y8, PIX_RGB16, PIX_FLAG_USE_LUT, PIX_convert_to_RGB16},  // no table variant: the flag is ignored
      {PIX_RGB24, PIX_YUV422, 0, PIX_convert_to_YUV422},
      {PIX_YUV422, PIX_RGB24, 0, PIX_YUV422_to_RGB24},
      {PIX_YUV422, PIX_RGB16, PIX_FLAG_USE_LUT, PIX_YUV422_to_RGB16_LUT},
      {PIX_YUV422, PIX_XRGB32, PIX_FLAG_USE_LUT, PIX_YUV422_to_XRGB32_LUT},
      {PIX_YUV422, PIX_Y8, PIX_FLAG_USE_LUT, PIX_YUV422_to_Y8},
      {PIX_YUV422, PIX_HSI, 0, PIX_YUV422_to_HSI},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    const uint32_t in = filled(c.source, 6, 3);
    const uint32_t via_dispatch = PIX_image_create(), direct = PIX_image_create();
    ASSERT_EQ(PIX_image_convert(in, via_dispatch, c.target, c.flags, 3), 0u);
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, 3);  // the run cut it: restore
    ASSERT_EQ(c.direct(in, direct, 3), 0u);
    EXPECT_EQ(PIX_image_get_parameter(via_dispatch, PIX_IMAGE_FORMAT), c.target);
    const tPIX_Image& a = *find_image(via_dispatch);
    const tPIX_Image& b = *find_image(direct);
    ASSERT_EQ(a.bytes_per_line, b.bytes_per_line);
    // 32-bit layouts leave their unused byte as allocated: compare the colour bytes only.
    for (uint32_t i = 0; i < a.bytes_per_line * 3; ++i) {
      const bool unused = (c.target == PIX_XRGB32 && i % 4 == 0) || (c.target == PIX_BGRX32 && i % 4 == 3);
      if (!unused) {
        ASSERT_EQ(a.data[i], b.data[i]) << i;
      }
    }
    EXPECT_EQ(find_image(via_dispatch)->flags & PIX_FLAG_JPEG, 0u);
    PIX_image_destroy(in);
    PIX_image_destroy(via_dispatch);
    PIX_image_destroy(direct);
  }
}

TEST_F(Dispatch, TheJpegFlagIsClearedEvenWhenTheConverterFails) {
  const uint32_t in = filled(PIX_RGB16, 4, 2), out = PIX_image_create();
  EXPECT_EQ(PIX_image_convert(in, out, PIX_RGB15, PIX_FLAG_JPEG | PIX_FLAG_USE_LUT, 3), 0x10140000u);
  EXPECT_EQ(last_report().function, "PIX_convert_to_RGB15");
  EXPECT_EQ(find_image(out)->flags, PIX_FLAG_USE_LUT);
}

}  // namespace
