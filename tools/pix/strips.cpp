// Pictures strip by strip: sources, format steps and sinks.
#include "strips.h"

#include <pix95.h>

#include <algorithm>
#include <cstring>

namespace pixtool {

// ---------------------------------------------------------------- Source

Source::Source(const std::string& path, uint32_t strip_lines, bool yuv, bool block_rows) {
  PIX_image_set_infilename(image_, path.c_str());
  if (PIX_image_find_file_format(path.c_str()) == PIX_FILE_JPEG) {
    jpeg_.emplace(path, strip_lines, yuv);
    height_ = jpeg_->height();
    strip_lines_ = jpeg_->strip_lines();
  } else if (strip_lines == 0) {
    PIX_image_set_parameter(image_, PIX_IMAGE_HEIGHT, 32767);  // the whole image in one read
  } else {
    read_header(image_);
    height_ = param(image_, PIX_IMAGE_HEIGHT);
    strip_lines_ = std::min(strip_lines, std::max(height_, 1u));
    if (block_rows) strip_lines_ = (strip_lines_ + 7) / 8 * 8;
    PIX_image_set_parameter(image_, PIX_LINES_THIS_STRIP, strip_lines_);
  }
}

Source::~Source() {
  // A read cut short: the dispatcher keeps one file in progress library-wide.
  if (!jpeg_ && started_ && done_ < height_) PIX_image_read(image_, 0, PIX_STRIP_FINISH);
}

uint32_t Source::next() {
  if (jpeg_) return jpeg_->next(image_) ? param(image_, PIX_LINES_THIS_STRIP) : 0;
  // The reader ends its run at the last strip: another read would open the
  // file again from the top.
  if (started_ && done_ >= height_) return 0;
  started_ = true;
  check(PIX_image_read(image_, 0, PIX_STRIP_NEXT), "reading");
  height_ = param(image_, PIX_IMAGE_HEIGHT);
  const uint32_t lines = param(image_, PIX_LINES_THIS_STRIP);
  done_ += lines;
  return lines;
}

// ---------------------------------------------------------------- Formats

Formats::Formats(std::vector<uint16_t> taken, uint16_t fallback) : taken_(std::move(taken)), fallback_(fallback) {}

Formats::~Formats() {
  // Conversions cut short by a failure further on: each converter keeps its
  // run library-wide, so it is ended for the next picture.
  if (std::uncaught_exceptions() <= unwinding_) return;
  if (expanding_ != 0) PIX_image_convert(expanding_, expanded_, PIX_RGB24_OR_Y8, 0, PIX_STRIP_FINISH);
  if (converting_ != 0) PIX_image_convert(converting_, converted_, fallback_, 0, PIX_STRIP_FINISH);
}

bool Formats::takes(uint32_t format) const {
  return std::find(taken_.begin(), taken_.end(), format) != taken_.end();
}

uint32_t Formats::operator()(uint32_t strip, uint32_t lines) {
  uint32_t source = strip;
  const uint32_t format = param(source, PIX_IMAGE_FORMAT);
  if (format == PIX_PALETTED && !takes(PIX_PALETTED)) {
    expanding_ = source;
    check(PIX_image_convert(source, expanded_, PIX_RGB24_OR_Y8, 0, PIX_STRIP_NEXT), "expanding the palette");
    source = expanded_;
    // A converter's last strip claims the lines of the strips before it.
    PIX_image_set_parameter(source, PIX_LINES_THIS_STRIP, lines);
  }
  if (!takes(param(source, PIX_IMAGE_FORMAT))) {
    converting_ = source;
    check(PIX_image_convert(source, converted_, fallback_, 0, PIX_STRIP_NEXT), "converting");
    source = converted_;
    PIX_image_set_parameter(source, PIX_LINES_THIS_STRIP, lines);
  }
  return source;
}

// ---------------------------------------------------------------- Sink

namespace {

// The pixel formats each file writer takes as they are.
std::vector<uint16_t> written_as_is(uint16_t file_format) {
  switch (file_format) {
    case PIX_FILE_BMP: return {PIX_Y8, PIX_PALETTED, PIX_RGB24};
    case PIX_FILE_TGA: return {PIX_Y8, PIX_RGB15, PIX_RGB24};
    case PIX_FILE_TIFF: return {PIX_BILEVEL, PIX_Y8, PIX_PALETTED, PIX_RGB24, PIX_CMYK32, PIX_Y16};
    case PIX_FILE_EPS: return {PIX_BILEVEL, PIX_Y8, PIX_PALETTED, PIX_RGB24};
    case PIX_FILE_RAW:
      return {PIX_Y8,     PIX_PALETTED, PIX_RGB8,   PIX_RGB15,  PIX_RGB16, PIX_RGB24, PIX_BGR24,
              PIX_RGBX32, PIX_BGRX32,   PIX_XBGR32, PIX_YUV422, PIX_Y16,   PIX_XRGB32, PIX_HSI};
    default:  // JPEG: grey, the RGB layouts, and YUV 4:2:2 in whole blocks (decided per picture)
      return {PIX_Y8, PIX_RGB24, PIX_BGR24, PIX_RGBX32, PIX_BGRX32, PIX_XBGR32};
  }
}

}  // namespace

Sink::Sink(std::string path, uint16_t q_scale, uint32_t strip_lines)
    : path_(std::move(path)), file_format_(file_format_of(path_)), q_scale_(q_scale),
      strip_lines_(std::max((strip_lines + 7) / 8 * 8, 8u)) {}

Sink::~Sink() {
  if (std::uncaught_exceptions() > unwinding_ && writing_ && written_ < height_) {
    PIX_image_write(buffer_, 0, file_format_, PIX_STRIP_FINISH);
  }
}

void Sink::put(uint32_t image, uint32_t first, uint32_t count) {
  if (!started_) {
    check(PIX_image_copy_parameters(image, buffer_), "describing the output");
    // The buffer is the sink's own, whatever the strips it copies from.
    PIX_image_set_flags(buffer_, PIX_FLAG_LOCKED | PIX_FLAG_JPEG, 0);
    height_ = param(image, PIX_IMAGE_HEIGHT);
    PIX_image_set_parameter(buffer_, PIX_LINES_THIS_STRIP, std::min(strip_lines_, std::max(height_, 1u)));
    check(PIX_image_malloc_a_strip(buffer_), "allocating the output strip");
    std::vector<uint16_t> taken = written_as_is(file_format_);
    if (file_format_ == PIX_FILE_JPEG) {
      jpeg_.emplace(path_, q_scale_);
      if (JpegWriter::accepts(buffer_)) taken.push_back(param(buffer_, PIX_IMAGE_FORMAT));
    }
    formats_.emplace(std::move(taken), PIX_RGB24);
    started_ = true;
  }
  const tPIX_Image& from = *record(image);
  const tPIX_Image& to = *record(buffer_);
  if (from.width != to.width || from.format != to.format || from.bytes_per_line != to.bytes_per_line) {
    throw LibraryError("a strip of another layout than the picture's first");
  }
  if (count == 0) return;
  if (from.data == nullptr || uint64_t{first} + count > from.lines_this_strip) {
    throw LibraryError("a strip holds fewer lines than it was asked for");
  }
  count = std::min(count, height_ - std::min(height_, queued_));
  const uint32_t capacity = std::min(strip_lines_, std::max(height_, 1u));
  for (uint32_t i = 0; i < count; ++i) {
    std::memcpy(to.data + std::size_t{held_} * to.bytes_per_line,
                from.data + std::size_t{first + i} * from.bytes_per_line, to.bytes_per_line);
    ++queued_;
    if (++held_ == capacity || written_ + held_ == height_) flush();
  }
}

void Sink::flush() {
  if (held_ == 0) return;
  const uint32_t capacity = param(buffer_, PIX_LINES_THIS_STRIP);
  PIX_image_set_parameter(buffer_, PIX_LINES_THIS_STRIP, held_);
  const uint32_t out = (*formats_)(buffer_, held_);
  writing_ = true;
  if (jpeg_) {
    jpeg_->write(out);
  } else {
    PIX_image_set_outfilename(out, path_.c_str());
    check(PIX_image_write(out, 0, file_format_, PIX_STRIP_NEXT), "writing");
  }
  written_ += held_;
  held_ = 0;
  PIX_image_set_parameter(buffer_, PIX_LINES_THIS_STRIP, capacity);
}

void Sink::finish() {
  if (!started_ || written_ != height_) {
    throw LibraryError(path_ + ": " + std::to_string(written_) + " of " + std::to_string(height_) +
                       " lines were made");
  }
}

// ---------------------------------------------------------------- whole images

void read_whole(const std::string& path, Formats& formats, uint32_t whole, bool yuv) {
  Source source(path, 64, yuv);
  uint32_t done = 0;
  Progress bar("reading", source.strips());
  uint32_t strips = 0;
  while (done < source.height()) {
    const uint32_t lines = source.next();
    if (lines == 0) break;
    const uint32_t strip = formats(source.image(), lines);
    if (done == 0) {
      check(PIX_image_copy_parameters(strip, whole), "describing the whole image");
      PIX_image_set_flags(whole, PIX_FLAG_LOCKED | PIX_FLAG_JPEG, 0);
      PIX_image_set_parameter(whole, PIX_IMAGE_HEIGHT, source.height());
      PIX_image_set_parameter(whole, PIX_LINES_THIS_STRIP, source.height());
      PIX_image_free_data(whole);
      check(PIX_image_malloc_a_strip(whole), "allocating the whole image");
    }
    const tPIX_Image& from = *record(strip);
    const tPIX_Image& to = *record(whole);
    if (from.bytes_per_line != to.bytes_per_line || from.data == nullptr) throw LibraryError("strips of another layout");
    const uint32_t n = std::min(lines, to.height - done);
    std::memcpy(to.data + std::size_t{done} * to.bytes_per_line, from.data, std::size_t{n} * to.bytes_per_line);
    done += n;
    bar.update(++strips);
  }
  if (done == 0 || done != param(whole, PIX_IMAGE_HEIGHT)) throw LibraryError(path + ": the picture ended early");
}

void take_lines(uint32_t whole, uint32_t first, uint32_t count, uint32_t strip) {
  check(PIX_image_copy_parameters(whole, strip), "describing a strip");
  PIX_image_set_flags(strip, PIX_FLAG_LOCKED | PIX_FLAG_JPEG, 0);
  PIX_image_set_parameter(strip, PIX_LINES_THIS_STRIP, count);
  PIX_image_free_data(strip);
  check(PIX_image_malloc_a_strip(strip), "allocating a strip");
  const tPIX_Image& from = *record(whole);
  std::memcpy(record(strip)->data, from.data + std::size_t{first} * from.bytes_per_line,
              std::size_t{count} * from.bytes_per_line);
}

}  // namespace pixtool
