// pix: the library's command-line tool.  It uses the public C interface only.
//
//   pix info FILE
//   pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut] [--quality Q | --qscale N]
//   pix frames SEQUENCE.jpg DIR
//   pix demo [DIR]
#include <pix95.h>

#include <algorithm>
#include <cstdio>

#include "jpeg.h"
#include "pix.h"

namespace {

constexpr const char* kUsage =
    "usage: pix info FILE\n"
    "       pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut] [--quality Q | --qscale N]\n"
    "       pix frames SEQUENCE.jpg DIR\n"
    "       pix demo [DIR]\n"
    "       pix --help\n";

constexpr const char* kHelp =
    "pix: image files and pixel formats through the pix95 library\n"
    "\n"
    "  pix info FILE\n"
    "      the detected file format, width, height, pixel format, depth and the\n"
    "      number of strips a conversion reads it in; for JPEG files the\n"
    "      sampling, the tables held and the number of frames\n"
    "  pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut] [--quality Q | --qscale N]\n"
    "      reads IN (BMP, TIFF, TGA, EPS or JPEG), converts it to FORMAT and writes\n"
    "      OUT in the file format of its extension (.bmp .tif .tiff .tga .eps .raw\n"
    "      .jpg .jpeg), strip by strip: N lines at a time (default 64; 0 reads the\n"
    "      whole image at once).  --lut converts through the conversion tables.\n"
    "      JPEG output is grey for y8, YUV 4:2:2 otherwise; --quality 1-100 is the\n"
    "      familiar scale (75, the default, is the library's Q scale 32; 50 is 16,\n"
    "      90 is 80), --qscale 1-400 the library's own.\n"
    "      FORMAT: bilevel y8 paletted rgb8 rgb15 rgb16 rgb24 bgr24 rgbx32 bgrx32\n"
    "              xbgr32 xrgb32 yuv422 y16 hsi\n"
    "  pix frames SEQUENCE.jpg DIR\n"
    "      writes every frame of a motion-JPEG sequence as a JFIF file of its own\n"
    "      (DIR/frame_0001.jpg, ...)\n"
    "  pix demo [DIR]\n"
    "      makes a 720x576 YUV 4:2:2 test card (colour bars, grey ramp, zone\n"
    "      plate), converts it to the display formats, writes it in every file\n"
    "      format (JPEG grey and 4:2:2 too) into DIR (default pix-demo), reads each\n"
    "      file back, checks it, builds a 25-frame motion-JPEG sequence, takes\n"
    "      frames out of it again, and prints a table\n"
    "\n"
    "Exit status: 0 on success, 1 when the library reports a failure or a check\n"
    "fails, 2 on a usage error.\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace pixtool;
  keep_reports();
  const std::vector<std::string> args(argv + std::min(argc, 2), argv + argc);
  const std::string command = argc > 1 ? argv[1] : "";
  int status = 2;
  try {
    if (command == "--help" || command == "-h" || command == "help") {
      std::fputs(kHelp, stdout);
      status = 0;
    } else if (command == "info") {
      status = info(args);
    } else if (command == "convert") {
      status = convert(args);
    } else if (command == "frames") {
      status = frames(args);
    } else if (command == "demo") {
      status = demo(args);
    } else {
      throw UsageError(command.empty() ? "no command given" : "unknown command '" + command + "'");
    }
  } catch (const UsageError& e) {
    std::fprintf(stderr, "pix: %s\n%s", e.what(), kUsage);
    status = 2;
  } catch (const LibraryError& e) {
    std::fprintf(stderr, "pix: %s\n", e.what());
    status = 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "pix: %s\n", e.what());
    status = 1;
  }
  PIX_image_destroy(PIX_ALL_IMAGES);
  return status;
}
