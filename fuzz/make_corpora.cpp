// Makes the fuzzers' starting corpora with the library's own writers: small
// images of every kind each reader takes, plus conversion-table and FPGA
// bit-file samples.  Usage: make_corpora DIR (DIR/<fuzzer>/ is filled).
#include <pix95.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

fs::path g_root;

void copy_into(const fs::path& file, std::initializer_list<const char*> fuzzers) {
  for (const char* f : fuzzers) {
    fs::create_directories(g_root / f);
    fs::copy_file(file, g_root / f / file.filename(), fs::copy_options::overwrite_existing);
  }
}

// A small image with a pattern, written whole through the write dispatcher.
bool write_sample(const std::string& name, uint16_t format, uint32_t width, uint32_t height, uint16_t file_format) {
  const uint32_t image = PIX_image_create();
  PIX_image_set_parameter(image, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(image, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(image, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, height);
  if (format == PIX_Y16) PIX_image_set_parameter(image, PIX_DATA_WIDTH, 12);
  if (format == PIX_PALETTED) PIX_cmap_set_type(image, 2);
  if (PIX_IS_ERROR(PIX_image_malloc_a_strip(image))) return false;
  auto* record = static_cast<tPIX_Image*>(PIX_image_get_ptr(image, PIX_PTR_RECORD));
  const std::size_t bytes = std::size_t{record->bytes_per_line} * height;
  for (std::size_t i = 0; i < bytes; ++i) record->data[i] = static_cast<uint8_t>(i * 37 + i / 7);
  const fs::path path = g_root / "samples" / name;
  PIX_image_set_outfilename(image, path.string().c_str());
  const uint32_t r = PIX_image_write(image, 0, file_format, PIX_STRIP_NEXT);
  PIX_image_destroy(image);
  if (PIX_IS_ERROR(r)) {
    std::fprintf(stderr, "make_corpora: %s: status 0x%08X\n", name.c_str(), r);
    return false;
  }
  return true;
}

void write_text(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// A JPEG stream written by the library's file or buffer writer around a few
// hand-made entropy-coded bytes (stuffing included): the record of a raster
// of `format` with the library's tables, one strip a frame, RST0 between.
std::string jpeg_sample(uint16_t format, uint32_t width, uint32_t height, int frames, bool file) {
  const uint32_t raster = PIX_image_create(), image = PIX_JPEG_image_create();
  PIX_image_set_parameter(raster, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(raster, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(raster, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(raster, PIX_LINES_THIS_STRIP, height / frames);
  const std::string data = std::string("\x12\xFF\x00\x34\xA5\x5A\xFF\x00\x0F", 9);
  PIX_JPEG_set_image(raster, image);
  PIX_JPEG_make_Q_tables(image);
  PIX_JPEG_set_default_H_tables(image);
  PIX_JPEG_malloc_N_bytes_data(image, static_cast<uint32_t>(data.size()));
  auto* record = static_cast<Tjpeg*>(PIX_image_get_ptr(image, PIX_PTR_TJPEG));
  std::memcpy(record->data, data.data(), data.size());
  record->length = static_cast<uint32_t>(data.size());
  const fs::path path = g_root / "samples" / "jpeg.tmp";
  PIX_image_set_outfilename(image, path.string().c_str());
  std::string out(1 << 16, '\0');
  uint32_t written = 0;
  for (int f = 0; f < frames; ++f) {
    for (uint16_t mode : {f == 0 ? uint16_t(0) : uint16_t(5), uint16_t(3)}) {
      if (file) {
        PIX_JPEG_file_write(image, mode);
      } else {
        PIX_JPEG_buffer_write(image, reinterpret_cast<uint8_t*>(out.data()) + (f == 0 && mode == 0 ? 0 : written),
                              &written, static_cast<int16_t>(mode));
      }
    }
  }
  PIX_image_destroy(image);
  PIX_image_destroy(raster);
  if (!file) return out.substr(0, written);
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A picture coded by the encoder and written by the buffer writer: real
// entropy-coded data for the decoder to start from.
std::string encoded_sample(uint16_t format, uint32_t width, uint32_t height, uint16_t q_scale) {
  const uint32_t raster = PIX_image_create(), image = PIX_JPEG_image_create();
  PIX_image_set_parameter(raster, PIX_IMAGE_FORMAT, format);
  PIX_image_set_parameter(raster, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(raster, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(raster, PIX_LINES_THIS_STRIP, height);
  std::string out;
  if (!PIX_IS_ERROR(PIX_image_malloc_a_strip(raster))) {
    auto* record = static_cast<tPIX_Image*>(PIX_image_get_ptr(raster, PIX_PTR_RECORD));
    for (uint32_t y = 0; y < height; ++y) {
      for (uint32_t x = 0; x < record->bytes_per_line; ++x) {
        record->data[y * record->bytes_per_line + x] = static_cast<uint8_t>(x * 9 + y * 5 + ((x ^ y) & 16) * 6);
      }
    }
    PIX_JPEG_set_Quality_factor(image, q_scale);
    if (PIX_JPEG_compress(raster, image, PIX_STRIP_NEXT) == 0) {
      PIX_JPEG_make_Q_tables(image);
      PIX_JPEG_set_default_H_tables(image);
      out.assign(std::size_t{width} * height * 4 + 4096, '\0');
      uint32_t written = 0;
      PIX_JPEG_buffer_write(image, reinterpret_cast<uint8_t*>(out.data()), &written, PIX_STRIP_NEXT);
      out.resize(written);
    }
  }
  PIX_image_destroy(image);
  PIX_image_destroy(raster);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_corpora DIR\n");
    return 2;
  }
  KVB_err_set_reporting(0, nullptr);
  g_root = argv[1];
  fs::create_directories(g_root / "samples");
  struct Sample {
    const char* name;
    uint16_t format;
    uint32_t width, height;
    uint16_t file_format;
    const char* fuzzer;
  };
  const Sample samples[] = {
      {"grey.bmp", PIX_Y8, 7, 5, PIX_FILE_BMP, "bmp_fuzzer"},
      {"rgb.bmp", PIX_RGB24, 5, 3, PIX_FILE_BMP, "bmp_fuzzer"},
      {"palette.bmp", PIX_PALETTED, 4, 4, PIX_FILE_BMP, "bmp_fuzzer"},
      {"grey.tif", PIX_Y8, 7, 5, PIX_FILE_TIFF, "tiff_fuzzer"},
      {"rgb.tif", PIX_RGB24, 5, 3, PIX_FILE_TIFF, "tiff_fuzzer"},
      {"palette.tif", PIX_PALETTED, 4, 4, PIX_FILE_TIFF, "tiff_fuzzer"},
      {"y16.tif", PIX_Y16, 3, 3, PIX_FILE_TIFF, "tiff_fuzzer"},
      {"bilevel.tif", PIX_BILEVEL, 13, 3, PIX_FILE_TIFF, "tiff_fuzzer"},
      {"grey.tga", PIX_Y8, 7, 5, PIX_FILE_TGA, "tga_fuzzer"},
      {"rgb15.tga", PIX_RGB15, 5, 3, PIX_FILE_TGA, "tga_fuzzer"},
      {"rgb.tga", PIX_RGB24, 5, 3, PIX_FILE_TGA, "tga_fuzzer"},
      {"grey.eps", PIX_Y8, 7, 5, PIX_FILE_EPS, "eps_fuzzer"},
      {"rgb.eps", PIX_RGB24, 3, 2, PIX_FILE_EPS, "eps_fuzzer"},
      {"palette.eps", PIX_PALETTED, 4, 2, PIX_FILE_EPS, "eps_fuzzer"},
      {"bilevel.eps", PIX_BILEVEL, 16, 2, PIX_FILE_EPS, "eps_fuzzer"},
  };
  int failures = 0;
  for (const Sample& s : samples) {
    if (!write_sample(s.name, s.format, s.width, s.height, s.file_format)) {
      ++failures;
      continue;
    }
    copy_into(g_root / "samples" / s.name, {s.fuzzer, "detect_fuzzer", "read_dispatch_fuzzer"});
  }

  // JPEG streams from both writers: grey, 4:2:2, a three-frame sequence;
  // then edge cases made by hand from them.
  const std::string grey = jpeg_sample(PIX_Y8, 16, 8, 1, true), colour = jpeg_sample(PIX_RGB24, 32, 16, 1, false),
                    sequence = jpeg_sample(PIX_RGB24, 16, 24, 3, true);
  const std::size_t scan = grey.size() - 11;  // the data: 9 bytes, then EOI
  const std::pair<const char*, std::string> jpegs[] = {
      {"grey.jpg", grey},
      {"colour.jpg", colour},
      {"sequence.jpg", sequence},
      {"restarts.jpg", grey.substr(0, scan) + std::string("\x01\xFF\xD3\x02\xFF\xF1\x03\xFF\xD0\xFF", 10)},
      {"dri.jpg", grey.substr(0, 2) + std::string("\xFF\xDD\x00\x04\x00\x10", 6) + grey.substr(2)},
      {"app1.jpg", grey.substr(0, 2) + std::string("\xFF\xE1\x00\x04" "ab", 6) + grey.substr(2)},
      {"eoi_first.jpg", grey.substr(0, 2) + std::string("\xFF\xD9", 2) + grey.substr(2)},
      {"cut_tables.jpg", grey.substr(0, grey.size() / 2)},
  };
  for (const auto& [name, bytes] : jpegs) {
    write_text(g_root / "samples" / name, bytes);
    copy_into(g_root / "samples" / name, {"jpeg_file_fuzzer", "jpeg_buffer_fuzzer", "jpeg_sequence_fuzzer",
                                          "jpeg_decode_fuzzer", "detect_fuzzer", "read_dispatch_fuzzer"});
  }
  // Coded pictures for the decoder: grey, 4:2:2 at two Q scales, and the
  // 4:2:2 stream relabelled as 2x2-sampled.
  std::string two_by_two = encoded_sample(PIX_RGB24, 32, 32, 32);
  const std::size_t sof = two_by_two.find("\xFF\xC0");
  if (sof != std::string::npos && sof + 11 < two_by_two.size()) two_by_two[sof + 11] = '\x22';
  const std::pair<const char*, std::string> coded[] = {
      {"coded_grey.jpg", encoded_sample(PIX_Y8, 24, 16, 32)},
      {"coded_422.jpg", encoded_sample(PIX_RGB24, 40, 24, 16)},
      {"coded_422_fine.jpg", encoded_sample(PIX_RGB24, 16, 8, 2)},
      {"coded_2x2.jpg", two_by_two},
  };
  for (const auto& [name, bytes] : coded) {
    write_text(g_root / "samples" / name, bytes);
    copy_into(g_root / "samples" / name, {"jpeg_decode_fuzzer", "jpeg_buffer_fuzzer", "jpeg_sequence_fuzzer"});
  }

  // Conversion tables: the first byte picks the table type.
  fs::create_directories(g_root / "lut_fuzzer");
  for (int type = 0; type < 6; ++type) {
    std::string bytes(1, static_cast<char>(type));
    for (int i = 0; i < 64; ++i) bytes += static_cast<char>(i * 5 + type);
    write_text(g_root / "lut_fuzzer" / ("type" + std::to_string(type)), bytes);
  }

  // An FPGA bit file: seven header lines, the date on the third, then bits.
  fs::create_directories(g_root / "rbt_fuzzer");
  std::string rbt =
      "Xilinx ASCII Bitstream\nCreated by Bitstream\nDesign name: \tgrab.ncd\n"
      "Architecture:\txc4000e\nPart:\t4005epc84\nDate:\tMon Nov 23 10:15:42 1998\nBits:\t96\n";
  for (int line = 0; line < 3; ++line) rbt += "01101001011100101010010110100101\n";
  write_text(g_root / "rbt_fuzzer" / "sample.rbt", rbt);
  write_text(g_root / "rbt_fuzzer" / "dated.rbt",
             "header\nheader\nThu Jan  7 09:30:00 1999\nx\nx\nx\nBits: 8\n01010101\n");
  return failures == 0 ? 0 : 1;
}
