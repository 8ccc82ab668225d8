// The codec as applications string it together: every way a picture can go
// in (buffer, file, the dispatchers, the image-to-image calls, a copy of the
// compressed image) decodes to the same samples, close to the picture.
#include <cmath>
#include <cstring>

#include "file_test_support.h"

namespace {

using namespace pixtest;

constexpr uint32_t kW = 72, kH = 40;  // not whole MCUs: padding on both sides

const tPIX_Image& rec(uint32_t h) { return *static_cast<tPIX_Image*>(PIX_image_get_ptr(h, PIX_PTR_RECORD)); }
Tjpeg& tj(uint32_t h) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(h, PIX_PTR_TJPEG)); }

// A smooth picture with an edge, whole in one strip.
uint32_t picture(uint16_t format) {
  const uint32_t img = make_image(format, kW, kH, kH);
  EXPECT_EQ(PIX_image_malloc_a_strip(img), 0u);
  const tPIX_Image& r = rec(img);
  for (uint32_t y = 0; y < kH; ++y) {
    for (uint32_t x = 0; x < r.bytes_per_line; ++x) {
      r.data[y * r.bytes_per_line + x] = static_cast<uint8_t>(x * 3 + y * 2 + (x > 40 ? 60 : 0) + x % 4 * 3);
    }
  }
  return img;
}

// The samples of the picture's lines that the image's strip holds, the
// padding cut off.
Bytes samples(uint32_t decoded, uint32_t lines = kH) {
  const tPIX_Image& r = rec(decoded);
  const uint32_t bytes = kW * (r.format == PIX_Y8 ? 1 : 2);
  Bytes out;
  for (uint32_t y = 0; y < std::min(lines, r.lines_this_strip); ++y) {
    out.insert(out.end(), r.data + y * r.bytes_per_line, r.data + y * r.bytes_per_line + bytes);
  }
  return out;
}

// Decoded in strips of 16 lines (the last cut to the padded height, 40).
Bytes decode(uint32_t jpeg, uint16_t format) {
  const uint32_t out = PIX_image_create();
  PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, format);
  Bytes all;
  for (uint32_t s = 0; s < 3; ++s) {
    PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, 16);
    EXPECT_EQ(PIX_JPEG_decompress(jpeg, out, PIX_STRIP_NEXT), 0u);
    all = all + samples(out, kH - 16 * s);
  }
  return all;
}

class JpegCodec : public LibraryTest {};

TEST_F(JpegCodec, EveryPathDecodesToTheSameSamples) {
  for (const uint16_t format : {PIX_Y8, PIX_RGB24}) {
    SCOPED_TRACE(format);
    const uint16_t decoded = format == PIX_Y8 ? PIX_Y8 : PIX_YUV422;
    const uint32_t src = picture(format);
    // Compressed in memory, tables made for the writers, written to a buffer.
    const uint32_t coded = PIX_JPEG_image_create();
    PIX_JPEG_set_Quality_factor(coded, 80);
    ASSERT_EQ(PIX_JPEG_compress(src, coded, PIX_STRIP_NEXT), 0u);
    PIX_JPEG_make_Q_tables(coded);
    PIX_JPEG_set_default_H_tables(coded);
    Bytes stream(64 * 1024);
    uint32_t written = 0;
    ASSERT_EQ(PIX_JPEG_buffer_write(coded, stream.data(), &written, PIX_STRIP_NEXT), 0u);
    const uint32_t from_buffer = PIX_JPEG_image_create();
    ASSERT_EQ(PIX_JPEG_buffer_read(from_buffer, stream.data(), static_cast<int32_t>(written)), 0u);
    const Bytes reference = decode(from_buffer, decoded);

    // The picture is close to what went in.
    const uint32_t conv = PIX_image_create();
    if (format != PIX_Y8) {
      ASSERT_EQ(PIX_convert_to_YUV422(src, conv, PIX_STRIP_NEXT), 0u);
    }
    const Bytes want = rows(format == PIX_Y8 ? src : conv);
    double sum = 0;
    for (std::size_t i = 0; i < want.size(); ++i) sum += (want[i] - reference[i]) * (want[i] - reference[i]);
    EXPECT_GT(10 * std::log10(255.0 * 255.0 * static_cast<double>(want.size()) / std::max(sum, 1.0)), 35.0);

    // A file through the write and read dispatchers.
    const std::string path = "jpeg_codec_" + std::to_string(format) + ".jpg";
    PIX_image_set_outfilename(coded, path.c_str());
    ASSERT_EQ(PIX_image_write(coded, 0, PIX_FILE_JPEG, PIX_STRIP_NEXT), 0u);
    const uint32_t from_file = PIX_JPEG_image_create();
    PIX_image_set_infilename(from_file, path.c_str());
    ASSERT_EQ(PIX_image_read(from_file, 0, PIX_STRIP_NEXT), 0u);
    EXPECT_EQ(decode(from_file, decoded), reference);

    // A caller's frame buffer (locked) is decoded into in place.
    {
      Bytes frame(kW * 2 * kH + 4096);
      const uint32_t jpeg = PIX_JPEG_image_create(), out = PIX_image_create();
      ASSERT_EQ(PIX_JPEG_buffer_read(jpeg, stream.data(), static_cast<int32_t>(written)), 0u);
      set_parameters(out, {{PIX_IMAGE_FORMAT, decoded}});
      PIX_image_set_ptr(out, PIX_PTR_DATA, frame.data());
      PIX_image_set_flags(out, PIX_FLAG_LOCKED, 1);
      PIX_image_set_parameter(jpeg, PIX_LINES_THIS_STRIP, kH);
      ASSERT_EQ(PIX_JPEG_decompress(jpeg, out, PIX_STRIP_NEXT), 0u);
      EXPECT_EQ(PIX_image_get_flags(out, PIX_FLAG_LOCKED), 1u);
      EXPECT_EQ(PIX_image_get_ptr(out, PIX_PTR_DATA), frame.data());
      EXPECT_EQ(samples(out), reference);
      PIX_image_set_ptr(out, PIX_PTR_DATA, nullptr);
    }

    // A copy of the compressed image (held whole) assembles the same stream.
    PIX_image_set_parameter(from_buffer, PIX_LINES_THIS_STRIP, kH);
    const uint32_t copy = PIX_JPEG_image_create();
    ASSERT_EQ(PIX_image_copy(from_buffer, copy), 0u);
    EXPECT_EQ(Bytes(tj(copy).data, tj(copy).data + tj(copy).length),
              Bytes(tj(from_buffer).data, tj(from_buffer).data + tj(from_buffer).length));

    // The image-to-image calls: into a JPEG image in memory and into a file,
    // then back out of each into a raster image in memory.
    const uint32_t in_memory = PIX_JPEG_image_create(), into_file = PIX_JPEG_image_create();
    for (uint32_t d : {in_memory, into_file}) PIX_JPEG_set_Quality_factor(d, 80);
    PIX_image_set_outfilename(into_file, ("i2i_" + path).c_str());
    PIX_image_set_outfilename(src, ("i2i_" + path).c_str());
    ASSERT_EQ(PIX_JPEG_compress_image_to_image(src, in_memory, 1, 1), 0u);
    ASSERT_EQ(PIX_JPEG_compress_image_to_image(src, into_file, 1, 2), 0u);
    const uint32_t back_from_memory = PIX_image_create(), back_from_file = PIX_image_create();
    const uint32_t file_source = PIX_JPEG_image_create();
    PIX_image_set_infilename(file_source, ("i2i_" + path).c_str());
    for (uint32_t b : {back_from_memory, back_from_file}) PIX_image_set_parameter(b, PIX_IMAGE_FORMAT, decoded);
    PIX_image_set_parameter(in_memory, PIX_LINES_THIS_STRIP, 8);
    ASSERT_EQ(PIX_JPEG_decompress_image_to_image(in_memory, back_from_memory, 1, 1), 0u);
    ASSERT_EQ(PIX_JPEG_decompress_image_to_image(file_source, back_from_file, 2, 1), 0u);
    EXPECT_EQ(samples(back_from_memory), reference);
    EXPECT_EQ(samples(back_from_file), reference);
  }
}

}  // namespace

namespace {

// A build left open by a short strip goes on into its own output; a call
// naming another output, which has no buffer, starts a build of its own.
TEST_F(JpegCodec, ABuildLeftOpenNeverAppendsWhereThereIsNoBuffer) {
  const uint32_t strip = PIX_JPEG_image_create(), first = PIX_JPEG_image_create(), second = PIX_JPEG_image_create();
  set_parameters(strip, {{PIX_IMAGE_FORMAT, PIX_Y8}, {PIX_IMAGE_WIDTH, 16}, {PIX_IMAGE_HEIGHT, 40},
                         {PIX_LINES_THIS_STRIP, 8}});
  ASSERT_EQ(PIX_JPEG_malloc_N_bytes_data(strip, 4), 0u);
  std::memcpy(tj(strip).data, "\x12\x34\x56\x78", 4);
  PIX_image_set_parameter(strip, PIX_JPEG_LENGTH, 4);
  PIX_image_set_flags(strip, PIX_FLAG_JPEG, 1);
  ASSERT_EQ(PIX_JPEG_build_image(strip, first, PIX_STRIP_NEXT), 0u);  // 8 of 40 lines: left open
  ASSERT_EQ(PIX_JPEG_build_image(strip, second, PIX_STRIP_NEXT), 0u);
  ASSERT_NE(tj(second).data, nullptr);
  EXPECT_EQ(Bytes(tj(second).data, tj(second).data + tj(second).length), (Bytes{0x12, 0x34, 0x56, 0x78}));
  PIX_JPEG_build_image(strip, second, PIX_STRIP_FINISH);
}

}  // namespace
