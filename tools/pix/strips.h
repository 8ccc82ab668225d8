// Pictures strip by strip: a file read strip by strip, strips brought to the
// pixel formats a step takes, and strips of any size written out again in
// strips of a fixed size.
#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "jpeg.h"
#include "pix.h"

namespace pixtool {

// Where strips come from: the read dispatcher, or the JPEG decoder.  The
// readers keep their runs library-wide: a source dropped half way ends its run.
class Source {
 public:
  // `strip_lines` 0 reads the whole image at once.  A colour JPEG file is
  // decoded to YUV 4:2:2 when `yuv`, else to RGB24; `block_rows` keeps the
  // strips of other files in whole rows of 8 lines (for a JPEG writer).
  Source(const std::string& path, uint32_t strip_lines, bool yuv = false, bool block_rows = false);
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  ~Source();
  uint32_t image() const { return image_; }
  uint32_t height() const { return height_; }
  uint32_t strips() const { return height_ == 0 ? 1 : (height_ + strip_lines_ - 1) / std::max(strip_lines_, 1u); }
  // The next strip; its lines (0 when the source had nothing more).
  uint32_t next();

 private:
  Image image_;
  std::optional<JpegReader> jpeg_;
  uint32_t height_ = 0, strip_lines_ = 64, done_ = 0;
  bool started_ = false;
};

// Brings strips to one of the pixel formats a step takes: a palette is
// expanded (grey maps give Y8, others RGB24), and a format still not taken
// is converted to `fallback`.  Each conversion is a run of its own, so one
// Formats follows one picture from its first strip to its last.
class Formats {
 public:
  Formats(std::vector<uint16_t> taken, uint16_t fallback);
  Formats(const Formats&) = delete;
  Formats& operator=(const Formats&) = delete;
  ~Formats();
  // The image holding `strip` (`lines` lines) in a format taken.
  uint32_t operator()(uint32_t strip, uint32_t lines);
  bool takes(uint32_t format) const;

 private:
  std::vector<uint16_t> taken_;
  uint16_t fallback_;
  Image expanded_, converted_;
  uint32_t expanding_ = 0, converting_ = 0;  // the inputs of runs under way
  int unwinding_ = std::uncaught_exceptions();
};

// Writes a picture to a file of any format pix writes, in strips of a fixed
// number of lines (whole block rows for JPEG) whatever the strips it is given,
// converted on the way where the file format needs it.
class Sink {
 public:
  explicit Sink(std::string path, uint16_t q_scale = 32, uint32_t strip_lines = 64);
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  ~Sink();
  // Lines first .. first + count - 1 of the image's strip, which describes
  // the whole picture (width, height, format); lines past the picture's
  // height are dropped.
  void put(uint32_t image, uint32_t first, uint32_t count);
  // Throws unless every line of the picture went out.
  void finish();
  uint32_t written() const { return written_; }

 private:
  void flush();

  std::string path_;
  uint16_t file_format_;
  uint16_t q_scale_;
  uint32_t strip_lines_;
  std::optional<JpegWriter> jpeg_;
  std::optional<Formats> formats_;
  Image buffer_;
  uint32_t held_ = 0, queued_ = 0, written_ = 0, height_ = 0;
  bool started_ = false, writing_ = false;
  int unwinding_ = std::uncaught_exceptions();
};

// Every strip of a file, in a format taken, joined into one image held whole.
void read_whole(const std::string& path, Formats& formats, uint32_t whole, bool yuv = false);

// Copies lines first .. first + count - 1 of `whole` into `strip` as a strip
// of its own (described like `whole`, `count` lines).
void take_lines(uint32_t whole, uint32_t first, uint32_t count, uint32_t strip);

}  // namespace pixtool
