// pix's JPEG side: files compressed and decompressed strip by strip, the
// JPEG facts of pix info, and pix frames.
#include <pix95.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "jpeg.h"

namespace pixtool {

uint16_t q_scale_of_quality(uint32_t quality) {
  // The familiar scale: percentages of the standard tables, 5000 / q below
  // 50 and 200 - 2q above; the library divides the tables by Q / 16.
  const double percent = quality < 50 ? 5000.0 / quality : 200.0 - 2.0 * quality;
  if (percent <= 0) return 400;
  return static_cast<uint16_t>(std::clamp(std::lround(1600.0 / percent), 1L, 400L));
}

Tjpeg& tjpeg(uint32_t image) { return *static_cast<Tjpeg*>(PIX_image_get_ptr(image, PIX_PTR_TJPEG)); }

// ---------------------------------------------------------------- writing

JpegWriter::JpegWriter(std::string path, uint16_t q_scale) : path_(std::move(path)) {
  check(PIX_JPEG_set_Quality_factor(jpeg_, q_scale), "setting the Q scale");
}

JpegWriter::~JpegWriter() {
  if (started_ && !finished_) {
    // A run cut short: the encoder and the writer keep their runs library-wide.
    PIX_JPEG_file_write(jpeg_, PIX_STRIP_FINISH);
  }
}

bool JpegWriter::accepts(uint32_t image) {
  const uint32_t format = param(image, PIX_IMAGE_FORMAT);
  if (format == PIX_YUV422) return param(image, PIX_IMAGE_WIDTH) % 8 == 0 && param(image, PIX_IMAGE_HEIGHT) % 8 == 0;
  return format == PIX_Y8 || (format >= PIX_RGB24 && format <= PIX_XBGR32);
}

void JpegWriter::write(uint32_t strip) {
  PIX_image_set_outfilename(strip, path_.c_str());
  const uint32_t height = param(strip, PIX_IMAGE_HEIGHT);
  lines_ += param(strip, PIX_LINES_THIS_STRIP);
  started_ = true;
  check(PIX_JPEG_compress(strip, jpeg_, PIX_STRIP_NEXT), "compressing");
  if (!tables_) {
    // The encoder describes the JPEG image afresh on its first strip; the
    // writer then takes the tables it codes with from the record.
    check(PIX_JPEG_make_Q_tables(jpeg_), "making the quantisation tables");
    check(PIX_JPEG_set_default_H_tables(jpeg_), "setting the Huffman tables");
    tables_ = true;
  }
  check(PIX_JPEG_file_write(jpeg_, PIX_STRIP_NEXT), "writing");
  finished_ = lines_ >= height;
}

// ---------------------------------------------------------------- reading

JpegReader::JpegReader(const std::string& path, uint32_t strip_lines, bool yuv) {
  PIX_image_set_infilename(jpeg_, path.c_str());
  check(PIX_JPEG_file_read(jpeg_), "reading");
  width_ = param(jpeg_, PIX_IMAGE_WIDTH);
  height_ = param(jpeg_, PIX_IMAGE_HEIGHT);
  const uint32_t format = param(jpeg_, PIX_IMAGE_FORMAT);
  if (format != PIX_Y8 && format != PIX_YUV422 && format != PIX_JPEG) {
    throw LibraryError("the file's colour layout (" + format_name(format) + ") cannot be decoded");
  }
  format_ = format == PIX_Y8 ? PIX_Y8 : yuv ? PIX_YUV422 : PIX_RGB24;
  // Strips of whole block rows: 16 lines for 2x2-sampled files.
  const uint32_t unit = format == PIX_JPEG ? 16 : 8;
  const uint32_t padded_height = (height_ + 7) / 8 * 8;
  strip_lines_ = strip_lines == 0 ? padded_height : (strip_lines + unit - 1) / unit * unit;
}

JpegReader::~JpegReader() {
  if (done_ < height_) PIX_JPEG_decompress(jpeg_, decoded_, PIX_STRIP_FINISH);
}

bool JpegReader::next(uint32_t out) {
  if (done_ >= height_) return false;
  PIX_image_set_parameter(jpeg_, PIX_LINES_THIS_STRIP, strip_lines_);
  PIX_image_set_parameter(decoded_, PIX_IMAGE_FORMAT, format_);
  check(PIX_JPEG_decompress(jpeg_, decoded_, PIX_STRIP_NEXT), "decompressing");
  // The decoder keeps the block-padded size; the picture is its top left.
  const uint32_t lines = std::min(strip_lines_, height_ - done_);
  const tPIX_Image& from = *record(decoded_);
  PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, format_);
  PIX_image_set_parameter(out, PIX_IMAGE_WIDTH, width_);
  PIX_image_set_parameter(out, PIX_IMAGE_HEIGHT, height_);
  PIX_image_set_parameter(out, PIX_LINES_THIS_STRIP, lines);
  PIX_image_free_data(out);
  check(PIX_image_malloc_a_strip(out), "allocating a strip");
  const tPIX_Image& to = *record(out);
  const std::size_t bytes = std::size_t{width_} * (format_ == PIX_Y8 ? 1 : format_ == PIX_YUV422 ? 2 : 3);
  for (uint32_t y = 0; y < lines; ++y) {
    std::memcpy(to.data + std::size_t{y} * to.bytes_per_line, from.data + std::size_t{y} * from.bytes_per_line, bytes);
  }
  done_ += lines;
  return true;
}

// ---------------------------------------------------------------- info

void print_jpeg_info(const std::string& path) {
  Image jpeg(true);
  PIX_image_set_infilename(jpeg, path.c_str());
  check(PIX_JPEG_file_open(jpeg), "reading the headers");
  const uint32_t counted = PIX_JPEG_sequence_calc_length(jpeg);
  PIX_JPEG_file_close(jpeg);
  check(counted, "counting the frames");
  const Tjpeg& r = tjpeg(jpeg);
  const uint32_t format = param(jpeg, PIX_IMAGE_FORMAT);
  std::printf("width         %u\n", param(jpeg, PIX_IMAGE_WIDTH));
  std::printf("height        %u\n", param(jpeg, PIX_IMAGE_HEIGHT));
  const char* layout = format == PIX_Y8       ? "grey"
                       : format == PIX_YUV422 ? "YUV 4:2:2 (Y 2x1)"
                       : format == PIX_JPEG   ? "YUV 2x2 (4:1:1)"
                                              : "colour, not decodable here";
  std::printf("sampling      %s", layout);
  for (int c = 0; c < r.Ns && c < 3; ++c) std::printf("%s%ux%u", c == 0 ? "  " : " ", r.H[c], r.V[c]);
  std::printf("\nq tables      %u\n", r.Nq);
  std::printf("huffman       ");
  int held = 0;
  for (int slot = 0; slot < 4; ++slot) {
    if (r.table_ids[slot] == 255) continue;
    std::printf("%s%s %u", held++ ? ", " : "", r.table_ids[slot] < 0x10 ? "DC" : "AC", r.table_ids[slot] & 15);
  }
  std::printf("%s\n", held == 0 ? "none" : "");
  std::printf("frames        %u\n", param(jpeg, PIX_NUM_FRAMES));
}

// ---------------------------------------------------------------- frames

int frames(const Args& args) {
  if (args.size() != 2) throw UsageError("frames takes a sequence file and a directory");
  const std::filesystem::path dir = args[1];
  std::filesystem::create_directories(dir);
  Image sequence(true);
  PIX_image_set_infilename(sequence, args[0].c_str());
  check(PIX_JPEG_file_read(sequence), "reading the sequence");
  const uint32_t count = param(sequence, PIX_NUM_FRAMES);
  Progress bar("frames", count);
  for (uint32_t k = 1; k <= count; ++k) {
    Image frame(true);
    check(PIX_JPEG_sequence_extract_frame(sequence, frame, k), "extracting a frame");
    // Every frame but the last ends with the boundary marker that followed
    // it; a file of its own ends without it.
    const Tjpeg& r = tjpeg(frame);
    if (r.length >= 2 && r.data[r.length - 2] == 0xFF && r.data[r.length - 1] == 0xD0) {
      PIX_image_set_parameter(frame, PIX_JPEG_LENGTH, r.length - 2);
    }
    char name[32];
    std::snprintf(name, sizeof name, "frame_%04u.jpg", k);
    PIX_image_set_outfilename(frame, (dir / name).string().c_str());
    PIX_image_set_parameter(frame, PIX_LINES_THIS_STRIP, param(frame, PIX_IMAGE_HEIGHT));
    check(PIX_JPEG_file_write(frame, PIX_STRIP_NEXT), "writing a frame");
    bar.update(k);
  }
  std::printf("%u frames written to %s\n", count, dir.string().c_str());
  return 0;
}

}  // namespace pixtool
