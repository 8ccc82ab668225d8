// Every exported function built so far, given handles that name nothing,
// pseudo-handles where none is allowed, zero sizes and null pointers where a
// caller could pass them: the stated code comes back and nothing crashes.
#include "core/status.h"
#include "test_support.h"

namespace {

using pixtest::LibraryTest;

class BadInput : public LibraryTest {};

constexpr uint32_t kBadHandles[] = {0u, 1u, 2u, 999u, 65535u, 65536u, PIX_ALL_IMAGES, PIX_CHECK_IMAGES, 0xFFFFFFFFu};

TEST_F(BadInput, ImageFunctionsReportABadHandle) {
  const uint32_t good = pixtest::make_image(PIX_Y8, 4, 4, 4);
  ASSERT_EQ(good, 1u);  // handle 1 is taken; 2 and the rest name nothing
  for (uint32_t h : kBadHandles) {
    if (h == good) continue;
    SCOPED_TRACE(h);
    EXPECT_EQ(PIX_image_get_parameter(h, PIX_IMAGE_WIDTH), 0x10010000u);
    EXPECT_EQ(PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, 1), 0x10010000u);
    EXPECT_EQ(PIX_image_get_flags(h, 1), 0x10010000u);
    if (h != PIX_ALL_IMAGES) {
      EXPECT_EQ(PIX_image_set_flags(h, 1, 1), 0x10010000u);
    }
    EXPECT_EQ(PIX_image_get_ptr(h, PIX_PTR_DATA), nullptr);
    EXPECT_EQ(PIX_image_set_ptr(h, PIX_PTR_DATA, nullptr), 0x10010000u);
    EXPECT_EQ(PIX_image_get_infilename(h), nullptr);
    EXPECT_EQ(PIX_image_get_outfilename(h), nullptr);
    EXPECT_EQ(PIX_image_set_infilename(h, "x"), 0x10010000u);
    EXPECT_EQ(PIX_image_set_outfilename(h, nullptr), 0x10010000u);
    EXPECT_EQ(PIX_copy_outfilename(h, good), 0u);
    EXPECT_EQ(PIX_copy_outfilename(good, h), 0u);
    EXPECT_EQ(PIX_get_width(h) | PIX_get_height(h) | PIX_get_depth(h) | PIX_get_bytes_per_line(h) |
                  PIX_get_lines_this_strip(h),
              0u);
    EXPECT_EQ(PIX_image_check(h), 0x10030000u);
    EXPECT_EQ(PIX_image_is_colour(h), 0x10010000u);
    EXPECT_EQ(PIX_image_malloc_a_strip(h), 0x10030000u);
    EXPECT_EQ(PIX_malloc_N_lines(h, 4), nullptr);
    EXPECT_EQ(PIX_image_free_data(h), 0x10010000u);
    EXPECT_EQ(PIX_image_copy_parameters(h, good), 0x10010000u);
    EXPECT_EQ(PIX_image_copy_parameters(good, h), 0x10010000u);
    EXPECT_EQ(PIX_image_copy(h, good), 0x10030000u);
    EXPECT_EQ(PIX_image_move(h, good), 0x10010000u);
    EXPECT_EQ(PIX_image_move(good, h), 0x10010000u);
    EXPECT_EQ(PIX_image_calc_total_strips(h), 0x10010000u);
    EXPECT_EQ(PIX_cmap_copy(h, good), 0x10010000u);
    EXPECT_EQ(PIX_cmap_is_grayscale(h), 0x10010000u);
    EXPECT_EQ(PIX_cmap_destroy_info(h), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_get_parameter(h, PIX_JPEG_COMPONENTS), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_get_file_ptr(h), nullptr);
    EXPECT_EQ(PIX_JPEG_set_file_ptr(h, nullptr), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_free_data(h), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_destroy_Tjpeg(h), 0u);
    EXPECT_EQ(PIX_JPEG_copy_parameters(h, good), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_malloc_data(h), 0x10030000u);
    EXPECT_EQ(PIX_JPEG_malloc_N_bytes_data(h, 10), 0x10030000u);
    EXPECT_EQ(PIX_JPEG_set_image(h, good), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_set_image(good, h), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_build_image(h, good, 3), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_sequence_build(0, h), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_file_read(h) | PIX_JPEG_file_open(h) | PIX_JPEG_buffer_read(h, nullptr, 0), 0x10640000u);
    EXPECT_EQ(PIX_JPEG_file_close(h), 0u);
    EXPECT_EQ(PIX_JPEG_file_write(h, 3) | PIX_JPEG_buffer_write(h, nullptr, nullptr, 3), 0x10010000u);
    EXPECT_EQ(PIX_JPEG_sequence_calc_length(h) | PIX_JPEG_sequence_set_start_frame(h, 1) |
                  PIX_JPEG_sequence_extract_frame(h, good, 1) | PIX_JPEG_sequence_extract_frame(good, h, 0),
              0x10010000u);
  }
  // Destroying a handle that names nothing is no error.
  EXPECT_EQ(PIX_image_destroy(999), 0u);
  EXPECT_EQ(PIX_image_destroy(0xFFFFFFFFu), 0u);
  // The one image is untouched by all this.
  EXPECT_EQ(PIX_get_width(good), 4u);
}

TEST_F(BadInput, EveryConverterChecksItsInputFirst) {
  using Converter = uint32_t(PIX_CALL*)(uint32_t, uint32_t, uint16_t);
  const Converter converters[] = {
      PIX_convert_to_Y8,          PIX_convert_to_RGBX32,     PIX_convert_to_BGRX32,      PIX_convert_to_XBGR32,
      PIX_convert_to_XRGB32,      PIX_convert_to_RGB24,      PIX_convert_to_BGR24,       PIX_convert_to_RGB16,
      PIX_convert_to_RGB15,       PIX_convert_to_Y16,        PIX_convert_to_CMYK32,      PIX_paletted_to_RGB24_or_Y8,
      PIX_convert_to_paletted,    PIX_convert_to_paletted_LUT, PIX_convert_to_RGB8,      PIX_convert_to_RGB8_dither,
      PIX_YUV422_to_RGBX32,       PIX_YUV422_to_BGRX32,      PIX_YUV422_to_XBGR32,       PIX_YUV422_to_XRGB32,
      PIX_YUV422_to_RGB24,        PIX_YUV422_to_BGR24,       PIX_YUV422_to_RGB16,        PIX_YUV422_to_RGB15,
      PIX_YUV422_to_Y8,           PIX_YUV422_to_HSI,         PIX_convert_to_YUV422,      PIX_YUV422_to_RGBX32_LUT,
      PIX_YUV422_to_BGRX32_LUT,   PIX_YUV422_to_XBGR32_LUT,  PIX_YUV422_to_XRGB32_LUT,   PIX_YUV422_to_RGB24_LUT,
      PIX_YUV422_to_BGR24_LUT,    PIX_YUV422_to_RGB16_LUT,   PIX_YUV422_to_RGB15_LUT,    PIX_YUV422_to_paletted_LUT};
  const uint32_t out = PIX_image_create();
  for (uint32_t h : kBadHandles) {
    if (h == out) continue;
    for (Converter convert : converters) {
      for (uint16_t command : {3, 4, 0}) EXPECT_EQ(convert(h, out, command), 0x10030000u) << h;
    }
    EXPECT_EQ(PIX_image_convert(h, out, PIX_RGB24, 0, 3), 0x10030000u);
    EXPECT_EQ(PIX_LUT_apply(h, out, 1, 3), 0x10030000u);
    EXPECT_EQ(PIX_cmap_generate(h, 16, 3), 0x10030000u);
  }
  EXPECT_EQ(last_report().message, "Corrupt image");
  // A converted image with no output to receive it stops at the set-up.
  const uint32_t in = pixtest::make_image(PIX_RGB24, 4, 4, 4);
  ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
  EXPECT_EQ(PIX_convert_to_Y8(in, 999, 3), 0x10010000u);
  EXPECT_EQ(PIX_convert_to_YUV422(in, 0, 3), 0x10010000u);
}

TEST_F(BadInput, GeometricOperationsCheckTheirInputFirst) {
  const uint32_t out = PIX_image_create();
  int16_t rectangle[4] = {0, 0, 1, 1};
  for (uint32_t h : kBadHandles) {
    for (uint16_t c : {3, 4, 0}) {
      if (h == out) continue;
      EXPECT_EQ(PIX_IP_crop(h, out, rectangle, c) | PIX_IP_extract_region(h, out, 0, 1, 1, 1, c) |
                    PIX_IP_subsample(h, out, 2, c) | PIX_IP_pixel_rep(h, out, 2, c) | PIX_IP_mirror_image(h, out, c) |
                    PIX_IP_rotate_image(h, out, c) | PIX_IP_scale(h, out, 2, 2, c),
                0x10030000u)
          << h;
    }
  }
}

TEST_F(BadInput, FiltersFieldsAndMeasurementsCheckTheirImagesFirst) {
  const uint32_t out = PIX_image_create(), good = pixtest::make_image(PIX_Y8, 4, 4, 4);
  int16_t k[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  tPIX_Histogram hist{};
  tPIX_Average avg{};
  for (uint32_t h : kBadHandles) {
    for (uint16_t c : {3, 4, 0}) {
      if (h == out || h == good) continue;
      EXPECT_EQ(PIX_IP_filter_3x3(h, out, k, c) | PIX_IP_threshold_grayscale(h, out, 1, 1, c) |
                    PIX_IP_histogram_generate(h, &hist, c) | PIX_IP_generate_averages(h, &avg, c) |
                    PIX_SPL_2fields_to_frame(h, good, out, c) | PIX_SPL_2fields_to_frame(good, h, out, c) |
                    PIX_SPL_field_to_frame(h, out, c) | PIX_SPL_interlace_frame(h, out, c) |
                    PIX_SPL_Data32_to_Y8(h, out, 8, c) | PIX_SPL_XXXX32_to_Y8(h, out, 1, c) |
                    PIX_SPL_YUV422_to_RGB_pseudo_colour(h, out, c) | PIX_SPL_HSI_to_RGB_pseudo_colour(h, out, c) |
                    PIX_SPL_Y8_to_pseudo_colour(h, out, 0, c),
                0x10030000u)
          << h;
    }
  }
  uint32_t r = 0;  // null records are answered, never followed
  EXPECT_EQ(PIX_IP_histogram_clear(nullptr) | PIX_IP_histogram_copy(nullptr, &hist) | PIX_IP_histogram_filter(nullptr, 900) |
                PIX_IP_histogram_match(&hist, nullptr, 1, &r) | PIX_IP_histogram_match(&hist, &hist, 1, nullptr) |
                PIX_IP_filter_3x3(good, out, nullptr, 3),
            0x10280000u);
}

TEST_F(BadInput, ChromaKeyingChecksItsImagesAndObject) {
  const uint32_t out = PIX_image_create(), in = pixtest::make_image(PIX_YUV422, 4, 2, 2), ck = PIX_CK_create();
  ASSERT_EQ(PIX_image_malloc_a_strip(in), 0u);
  for (uint32_t h : kBadHandles) {
    if (h == out || h == in) continue;  // ck is 1 too
    for (uint16_t c : {3, 4, 0}) {
      EXPECT_EQ(PIX_CK_chroma_key(h, out, 0, 0, ck, 0, c) | PIX_CK_calibrate(h, ck, c), 0x10030000u) << h;
    }
    EXPECT_EQ(PIX_CK_chroma_key(in, out, h, 0, ck, 1, 3), h == 0 ? 0u : 0x10030000u) << h;  // 0: no background
    EXPECT_EQ(PIX_CK_chroma_key(in, out, 0, 0, h, 1, 3), 0x10010000u) << h;                 // no object
    PIX_CK_chroma_key(in, out, 0, 0, ck, 0, 4);
  }
  for (uint16_t c : {16, 0xFFFF}) EXPECT_EQ(PIX_CK_get_YUV_values(c) | PIX_CK_get_component(c, 0xFFFF), 0x10170000u);
}

TEST_F(BadInput, PlainImagesAreNotJpegImages) {
  const uint32_t plain = pixtest::make_image(PIX_Y8, 4, 4, 4);
  EXPECT_EQ(PIX_JPEG_get_parameter(plain, PIX_JPEG_COMPONENTS), 0x10010000u);
  EXPECT_EQ(last_report().message, "Not a JPEG image");
  EXPECT_EQ(PIX_JPEG_malloc_data(plain), 0x10010000u);
  EXPECT_EQ(PIX_JPEG_sequence_build(plain, plain), 0x10010000u);
  EXPECT_EQ(PIX_JPEG_free_data(plain), 0u);  // nothing to free
}

TEST_F(BadInput, ObjectTablesTakeAnyHandle) {
  for (uint32_t h : kBadHandles) {
    SCOPED_TRACE(h);
    EXPECT_EQ(PIX_LUT_get_ptr(h, PIX_LUT_GREY), nullptr);
    EXPECT_EQ(PIX_LUT_destroy(h), 0u);
    EXPECT_EQ(PIX_CK_destroy(h), 0u);
    EXPECT_EQ(PIX_CK_get_parameter(h, PIX_CK_HUE_CENTRE), 0x10010000u);
    EXPECT_EQ(PIX_CK_set_parameter(h, PIX_CK_HUE_CENTRE, 1), 0x10010000u);
    EXPECT_EQ(PIX_display_destroy(h), 0u);
  }
  for (uint16_t type : {0, 199, 206, 0xFFFF}) EXPECT_EQ(PIX_image_conv_LUT_destroy(type), 0x10140000u);
}

TEST_F(BadInput, ZeroSizesAndNullPointers) {
  // A zero-sized image is valid; its strip is empty.
  const uint32_t empty = pixtest::make_image(PIX_RGB24, 0, 0, 0);
  EXPECT_EQ(PIX_image_check(empty), 0u);
  EXPECT_EQ(PIX_image_malloc_a_strip(empty), 0u);
  EXPECT_EQ(PIX_image_calc_total_strips(empty), 0u);
  const uint32_t other = PIX_image_create();
  EXPECT_EQ(PIX_image_copy(empty, other), 0u);
  EXPECT_EQ(PIX_image_calc_skip_bytes(0, 0, 0), 0u);
  EXPECT_EQ(PIX_LUT_create(0, 1), 1u);
  PIX_LUT_get_ptr(1, PIX_LUT_RED);  // an empty table: any pointer, but no crash
  // Null texts.
  EXPECT_EQ(KVB_err_process(nullptr, 0x10010000u, nullptr), 0u);  // the handler gets them as they are
  EXPECT_EQ(PIX_image_set_outfilename(empty, nullptr), 0u);
  auto old = pix::set_error_sink([](const char* text) -> uint32_t { return text[0] == '\n' ? 7u : 0u; });
  EXPECT_EQ(KVB_err_display(nullptr, 0x10010000u, nullptr), 7u);
  pix::set_error_sink(old);
}

TEST_F(BadInput, FileFunctionsRefuseHandlesThatNameNothing) {
  using Transfer = uint32_t(PIX_CALL*)(uint32_t, uint16_t);
  struct Expected {
    Transfer fn;
    uint32_t code;
  };
  // Bitmap functions answer with the bare code; the other readers with a
  // bad handle; the writers fail the image check.
  const Expected transfers[] = {
      {PIX_read_BMP_file, 0x00010000u},  {PIX_write_BMP_file, 0x00010000u},  {PIX_read_TIFF_file, 0x10010000u},
      {PIX_write_TIFF_file, 0x10030000u}, {PIX_read_TGA_file, 0x10010000u},  {PIX_write_TGA_file, 0x10030000u},
      {PIX_read_EPS_file, 0x10010000u},  {PIX_write_EPS_file, 0x10030000u},  {PIX_write_raw_data_file, 0x10030000u},
  };
  const uint32_t good = pixtest::make_image(PIX_Y8, 4, 4, 4);
  for (uint32_t h : kBadHandles) {
    if (h == good) continue;
    SCOPED_TRACE(h);
    for (const Expected& e : transfers) {
      for (uint16_t command : {3, 4}) EXPECT_EQ(e.fn(h, command), e.code);
    }
    EXPECT_EQ(PIX_convert_to_DIB_w31(h, good, 0, 3), 0x00010000u);
    EXPECT_EQ(PIX_convert_to_DIB_w31(good, h, 0, 3), 0x00010000u);
    EXPECT_EQ(PIX_write_to_memory(h, good, 3), 0x10030000u);
    EXPECT_EQ(PIX_read_from_memory(h, good, 3), 0x10030000u);
    EXPECT_EQ(PIX_image_read(h, 0, 3), 0x10010000u);
    EXPECT_EQ(PIX_image_write(h, 0, PIX_FILE_TGA, 3), 0x10030000u);
  }
  // No name, or an empty one: the file cannot be opened.
  EXPECT_EQ(PIX_image_find_file_format(nullptr), 0x10640000u);
  const uint32_t unnamed = PIX_image_create();
  EXPECT_EQ(PIX_image_read(unnamed, 0, 3), 0x10640000u);
  for (Transfer reader : {PIX_read_BMP_file, PIX_read_TIFF_file, PIX_read_TGA_file, PIX_read_EPS_file}) {
    EXPECT_EQ(reader(unnamed, 3), 0x10640000u);
  }
}

TEST_F(BadInput, ColourMapTableAndLutFunctionsReportABadHandle) {
  for (uint32_t h : kBadHandles) {
    SCOPED_TRACE(h);
    EXPECT_EQ(PIX_cmap_find_closest_colour(h, 1, 2, 3), 0x10010000u);
    EXPECT_EQ(PIX_cmap_get_RGB_colour(h, 1), 0x10010000u);
    EXPECT_EQ(PIX_cmap_get_occurrences(h, 1), 0x10010000u);
    EXPECT_EQ(PIX_cmap_set_RGB_colour(h, 1, 2, 3, 4), 0x10010000u);
    EXPECT_EQ(PIX_cmap_set_colour(h, 1, 2), 0x10010000u);
    EXPECT_EQ(PIX_cmap_set_type(h, 2), 0x10010000u);
    EXPECT_EQ(PIX_generate_RGB16_to_paletted_LUT(h), 0x10010000u);
    EXPECT_EQ(PIX_generate_Y8_to_paletted_LUT(h), 0x10010000u);
    EXPECT_EQ(PIX_generate_Y16_to_paletted_LUT(h), 0x10010000u);
    EXPECT_EQ(PIX_generate_YUV422_to_paletted_LUT(h), 0x10010000u);
    EXPECT_EQ(PIX_image_conv_LUT_generate(h, 200), 0x10010000u);
    EXPECT_EQ(PIX_image_conv_LUT_load(h, 201, "bad_input_no_such.lut"), 0x10010000u);
    EXPECT_EQ(PIX_image_conv_LUT_save(h, 201, "bad_input_never.lut"), 0x10010000u);
    EXPECT_EQ(PIX_LUT_generate(h, 0, 0, 0, 0, 0, 0), 0x10010000u);
  }
}

TEST_F(BadInput, NullTextsAndRecordsAreAnsweredNotFollowed) {
  const uint32_t h = pixtest::make_image(PIX_Y8, 4, 4, 4);
  EXPECT_EQ(PIX_image_conv_LUT_load(h, 201, nullptr), 0x10640000u);
  EXPECT_EQ(PIX_image_conv_LUT_save(h, 201, nullptr), 0x10640000u);
  EXPECT_EQ(KVB_get_rbt_bit_length(nullptr), 0u);
  tKVB_FPGA_Data record{};
  EXPECT_EQ(KVB_get_fpga_data_and_length(nullptr, &record), 0x18640000u);
  EXPECT_EQ(KVB_get_fpga_data_and_length("bad_input_no_such.rbt", nullptr), 0x18640000u);
  EXPECT_EQ(KVB_get_rbt_date_string(nullptr, nullptr), 0x18640000u);
  EXPECT_EQ(KVB_locate_fpga_rbt_file(nullptr, nullptr), 0x18640000u);
  EXPECT_EQ(KVB_str_tolower(nullptr), nullptr);
  EXPECT_EQ(KVB_str_toupper(nullptr), nullptr);
  EXPECT_EQ(KVB_strncmp(nullptr, "", 4), 0);
  uint16_t value = 7;
  EXPECT_EQ(KVB_sscanf(nullptr, &value), nullptr);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(parse_command(nullptr, 2, nullptr), 0u);
  tKVB_Command command{};
  char program[] = "prog";
  char* words[] = {program, nullptr};
  EXPECT_EQ(parse_command(&command, 2, words), 0u);
  EXPECT_EQ(parse_command(&command, 3, nullptr), 0u);
}

}  // namespace
