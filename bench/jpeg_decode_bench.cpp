// The JPEG decoder benchmark: PIX_JPEG_decompress of a whole 1920x1080
// frame as one strip, grey and 4:2:2 (into YUV 4:2:2 and into RGB24), against
// libjpeg-turbo decoding the same stream with its integer inverse DCT into
// the nearest layout (grey; raw Y, Cb, Cr planes for 4:2:2, no upsampling).
//
// The stream is made by libjpeg-turbo: baseline, the standard Huffman
// tables, quality 50 (the standard quantisation tables), no restart markers,
// from a picture of smooth gradients, edges and mild noise.  Its DQT tables
// and entropy-coded data are put into a JPEG image's record as a stream
// reader would.  Images are locked onto their buffers, so nothing is
// allocated inside the loop.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include <jpeglib.h>

#include "pix95.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

struct Stream {
  std::vector<uint8_t> file;  // the whole JFIF stream
  std::size_t data_at = 0, data_end = 0;
};

Stream make_stream(bool grey) {
  std::vector<uint8_t> rgb(std::size_t{kWidth} * kHeight * 3);
  std::mt19937 rng(5);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (int c = 0; c < 3; ++c) {
        double v = 128 + 60 * std::sin(x * 0.013 * (c + 1) + y * 0.007) + 40 * std::cos(y * 0.021 - x * 0.004 * c);
        if ((x / 240 + y / 180) % 3 == 0) v = 255 - v;  // hard edges
        rgb[(static_cast<std::size_t>(y) * kWidth + x) * 3 + c] = static_cast<uint8_t>(std::clamp(v + rng() % 9 - 4.0, 0.0, 255.0));
      }
  jpeg_compress_struct cinfo{};
  jpeg_error_mgr jerr{};
  cinfo.err = jpeg_std_error(&jerr);
  jpeg_create_compress(&cinfo);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&cinfo, &out, &size);
  cinfo.image_width = kWidth, cinfo.image_height = kHeight, cinfo.input_components = 3, cinfo.in_color_space = JCS_RGB;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, 50, TRUE);
  if (grey) {
    jpeg_set_colorspace(&cinfo, JCS_GRAYSCALE);
  } else {
    cinfo.comp_info[0].h_samp_factor = 2, cinfo.comp_info[0].v_samp_factor = 1;
  }
  cinfo.dct_method = JDCT_ISLOW;
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row = rgb.data() + std::size_t{cinfo.next_scanline} * kWidth * 3;
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  Stream s{std::vector<uint8_t>(out, out + size)};
  free(out);
  for (std::size_t i = 2; i + 4 < s.file.size();) {
    const std::size_t length = s.file[i + 2] << 8 | s.file[i + 3];
    if (s.file[i + 1] == 0xDA) {
      s.data_at = i + 2 + length;
      s.data_end = s.file.size() - 2;  // EOI
      break;
    }
    i += 2 + length;
  }
  return s;
}

// A JPEG image holding the stream's tables and data, as a reader fills it.
uint32_t jpeg_image(const Stream& s, bool grey) {
  const uint32_t img = PIX_JPEG_image_create();
  Tjpeg& t = *static_cast<Tjpeg*>(PIX_image_get_ptr(img, PIX_PTR_TJPEG));
  for (std::size_t i = 2; i < s.data_at;) {
    const std::size_t length = s.file[i + 2] << 8 | s.file[i + 3];
    for (std::size_t p = i + 4; s.file[i + 1] == 0xDB && p < i + 2 + length; p += 65) {
      std::memcpy(t.Q_tables[s.file[p] & 3], &s.file[p + 1], 64);
    }
    i += 2 + length;
  }
  PIX_JPEG_set_default_H_tables(img);
  PIX_image_set_parameter(img, PIX_IMAGE_FORMAT, grey ? PIX_Y8 : PIX_YUV422);
  PIX_image_set_parameter(img, PIX_IMAGE_WIDTH, kWidth);
  PIX_image_set_parameter(img, PIX_IMAGE_HEIGHT, kHeight);
  PIX_image_set_parameter(img, PIX_LINES_THIS_STRIP, kHeight);
  const auto n = static_cast<uint32_t>(s.data_end - s.data_at);
  PIX_JPEG_malloc_N_bytes_data(img, n);
  std::memcpy(t.data, s.file.data() + s.data_at, n);
  PIX_image_set_parameter(img, PIX_JPEG_LENGTH, n);
  // Locked, so that the destination, which takes the source's flags, stays
  // locked onto its buffer.
  PIX_image_set_flags(img, PIX_FLAG_LOCKED, 1);
  return img;
}

void pix_decode(benchmark::State& state, bool grey, uint16_t out_format) {
  const Stream s = make_stream(grey);
  const uint32_t src = jpeg_image(s, grey);
  const uint32_t dst = PIX_image_create();
  std::vector<uint8_t> out(std::size_t{kWidth} * kHeight * 3);
  PIX_image_set_parameter(dst, PIX_IMAGE_FORMAT, out_format);
  PIX_image_set_ptr(dst, PIX_PTR_DATA, out.data());
  PIX_image_set_flags(dst, PIX_FLAG_LOCKED, 1);
  for (auto _ : state) {
    PIX_image_set_parameter(src, PIX_LINES_THIS_STRIP, kHeight);
    if (PIX_JPEG_decompress(src, dst, PIX_STRIP_NEXT) != 0) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["Mpixel/s"] = benchmark::Counter(double{kWidth} * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
  state.counters["stream_bytes"] = static_cast<double>(s.data_end - s.data_at);
  PIX_image_set_ptr(dst, PIX_PTR_DATA, nullptr);
  PIX_image_destroy(PIX_ALL_IMAGES);
}

void turbo_decode(benchmark::State& state, bool grey) {
  const Stream s = make_stream(grey);
  std::vector<uint8_t> planes(std::size_t{kWidth} * kHeight * 2);
  for (auto _ : state) {
    jpeg_decompress_struct dinfo{};
    jpeg_error_mgr jerr{};
    dinfo.err = jpeg_std_error(&jerr);
    jpeg_create_decompress(&dinfo);
    jpeg_mem_src(&dinfo, s.file.data(), s.file.size());
    jpeg_read_header(&dinfo, TRUE);
    dinfo.dct_method = JDCT_ISLOW;
    dinfo.raw_data_out = grey ? FALSE : TRUE;
    jpeg_start_decompress(&dinfo);
    if (grey) {
      while (dinfo.output_scanline < dinfo.output_height) {
        JSAMPROW row = planes.data() + std::size_t{dinfo.output_scanline} * kWidth;
        jpeg_read_scanlines(&dinfo, &row, 1);
      }
    } else {
      std::vector<JSAMPROW> rows[3];
      uint8_t* plane[3] = {planes.data(), planes.data() + kWidth * kHeight, planes.data() + kWidth * kHeight * 3 / 2};
      while (dinfo.output_scanline < dinfo.output_height) {
        JSAMPARRAY arrays[3];
        for (int c = 0; c < 3; ++c) {
          const int w = c == 0 ? kWidth : kWidth / 2;
          rows[c].resize(8);
          for (int r = 0; r < 8; ++r) rows[c][r] = plane[c] + static_cast<std::size_t>(dinfo.output_scanline + r) * w;
          arrays[c] = rows[c].data();
        }
        jpeg_read_raw_data(&dinfo, arrays, 8);
      }
    }
    jpeg_finish_decompress(&dinfo);
    jpeg_destroy_decompress(&dinfo);
    benchmark::DoNotOptimize(planes.data());
  }
  state.counters["Mpixel/s"] = benchmark::Counter(double{kWidth} * kHeight * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(pix_decode, grey_1920x1080, true, PIX_Y8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(turbo_decode, grey_1920x1080, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pix_decode, yuv422_1920x1080, false, PIX_YUV422)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pix_decode, yuv422_to_rgb24_1920x1080, false, PIX_RGB24)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(turbo_decode, yuv422_raw_1920x1080, false)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
