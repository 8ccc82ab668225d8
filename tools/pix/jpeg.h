// pix's JPEG side: a writer and a reader that move a picture strip by strip
// through the codec, and the JPEG commands.
#pragma once

#include <string>

#include "pix.h"

namespace pixtool {

// cjpeg's familiar quality 1..100 (75 the default) as the library's Q scale:
// 75 is 32, 50 is 16, 90 is 80.
uint16_t q_scale_of_quality(uint32_t quality);

Tjpeg& tjpeg(uint32_t image);

// Compresses strips of one picture and writes them to a JFIF file.
class JpegWriter {
 public:
  JpegWriter(std::string path, uint16_t q_scale);
  ~JpegWriter();
  // Whether the encoder takes the image as it is (YUV 4:2:2 only in whole
  // blocks: it pads other formats itself).
  static bool accepts(uint32_t image);
  // One strip, lines of 8 (or the last strip): compressed and written.
  void write(uint32_t strip);

 private:
  std::string path_;
  Image jpeg_{true};
  uint32_t lines_ = 0;
  bool started_ = false, tables_ = false, finished_ = false;
};

// Decodes a JPEG file strip by strip into Y8 strips (grey files) or YUV
// 4:2:2 or RGB24 strips of the picture's own size (the decoder works on
// whole blocks).
class JpegReader {
 public:
  JpegReader(const std::string& path, uint32_t strip_lines, bool yuv);
  ~JpegReader();
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  uint32_t strip_lines() const { return strip_lines_; }
  // The next strip into `out`; false when the picture is done.
  bool next(uint32_t out);

 private:
  Image jpeg_{true};
  Image decoded_;
  uint32_t width_ = 0, height_ = 0, strip_lines_ = 0, done_ = 0;
  uint16_t format_ = PIX_Y8;
};

void print_jpeg_info(const std::string& path);
int frames(const Args& args);

}  // namespace pixtool
