// pix info and pix convert: files in, files out, strip by strip.
#include <pix95.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "pix.h"

namespace pixtool {

namespace {

struct ConvertOptions {
  std::string in, out;
  int target = -1;
  uint32_t strip_lines = 64;
  bool lut = false;
};

ConvertOptions parse_convert(const std::vector<std::string>& args) {
  ConvertOptions o;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (i + 1 >= args.size()) throw UsageError(a + " needs a value");
      return args[++i];
    };
    if (a == "--to") {
      const std::string& name = value();
      for (const FormatName& f : kFormats) {
        if (name == f.name) o.target = f.format;
      }
      if (o.target < 0) throw UsageError("unknown pixel format '" + name + "'");
    } else if (a == "--strip-lines") {
      o.strip_lines = number(value(), 0, 65535, "--strip-lines");
    } else if (a == "--lut") {
      o.lut = true;
    } else if (!a.empty() && a[0] == '-') {
      throw UsageError("unknown option '" + a + "'");
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2) throw UsageError("convert takes an input and an output file");
  o.in = files[0];
  o.out = files[1];
  return o;
}

// Streams IN through the converter to OUT, one strip at a time.
int convert_files(const ConvertOptions& o) {
  const uint16_t out_format = file_format_of(o.out);
  Image in;
  Image expanded;
  Image converted;
  PIX_image_set_infilename(in, o.in.c_str());
  uint32_t height = 0;
  if (o.strip_lines == 0) {
    PIX_image_set_parameter(in, PIX_IMAGE_HEIGHT, 32767);  // the whole image in one read
  } else {
    read_header(in);
    height = param(in, PIX_IMAGE_HEIGHT);
    PIX_image_set_parameter(in, PIX_LINES_THIS_STRIP, std::min(o.strip_lines, std::max(height, 1u)));
  }
  const bool converting = o.target >= 0;
  const uint32_t flags = o.lut ? PIX_FLAG_USE_LUT : 0;
  uint32_t done = 0;
  Progress bar("converting", height == 0 ? 1 : (height + o.strip_lines - 1) / std::max(o.strip_lines, 1u));
  uint32_t strips = 0;
  do {
    check(PIX_image_read(in, 0, PIX_STRIP_NEXT), "reading");
    height = param(in, PIX_IMAGE_HEIGHT);
    const uint32_t lines = param(in, PIX_LINES_THIS_STRIP);
    uint32_t source = in;
    if (converting && param(in, PIX_IMAGE_FORMAT) == PIX_PALETTED && o.target != PIX_PALETTED) {
      // Paletted pixels leave through their colour map: grey maps give Y8,
      // others RGB24; the step below goes on from there when needed.
      check(PIX_image_convert(in, expanded, PIX_RGB24_OR_Y8, flags, PIX_STRIP_NEXT), "expanding the palette");
      source = expanded;
    }
    if (converting && param(source, PIX_IMAGE_FORMAT) != static_cast<uint32_t>(o.target)) {
      check(PIX_image_convert(source, converted, static_cast<uint16_t>(o.target), flags, PIX_STRIP_NEXT),
            "converting");
      source = converted;
    }
    PIX_image_set_outfilename(source, o.out.c_str());
    check(PIX_image_write(source, 0, out_format, PIX_STRIP_NEXT), "writing");
    done += lines;
    bar.update(++strips);
    if (lines == 0) break;
  } while (done < height);
  return 0;
}

}  // namespace

int info(const std::vector<std::string>& args) {
  if (args.size() != 1) throw UsageError("info takes one file");
  const uint32_t found = check(PIX_image_find_file_format(args[0].c_str()), "detecting the file format");
  std::printf("file          %s\n", args[0].c_str());
  std::printf("format        %s\n", file_format_name(found));
  if (found == PIX_FILE_UNRECOGNISED) return 1;
  Image image;
  PIX_image_set_infilename(image, args[0].c_str());
  read_header(image);
  PIX_image_read(image, 0, PIX_STRIP_FINISH);
  PIX_image_set_parameter(image, PIX_LINES_THIS_STRIP, 64);
  std::printf("width         %u\n", param(image, PIX_IMAGE_WIDTH));
  std::printf("height        %u\n", param(image, PIX_IMAGE_HEIGHT));
  std::printf("pixel format  %s\n", format_name(param(image, PIX_IMAGE_FORMAT)).c_str());
  std::printf("depth         %u\n", param(image, PIX_IMAGE_DEPTH));
  std::printf("strips        %u of 64 lines\n", PIX_image_calc_total_strips(image));
  return 0;
}

int convert(const Args& args) { return convert_files(parse_convert(args)); }

}  // namespace pixtool
