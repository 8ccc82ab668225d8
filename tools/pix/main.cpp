// pix: the library's command-line tool.  It uses the public C interface only.
//
//   pix info FILE
//   pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut] [--quality Q | --qscale N]
//   pix frames SEQUENCE.jpg DIR
//   pix crop|scale|rotate|mirror|filter|threshold|fields|pseudo|histogram|key ...
//   pix demo [DIR]
#include <pix95.h>

#include <algorithm>
#include <cstdio>

#include "jpeg.h"
#include "pix.h"
#include "show.h"

namespace {

constexpr const char* kUsage =
    "usage: pix info FILE\n"
    "       pix convert IN OUT [--to FORMAT] [--strip-lines N] [--lut] [--quality Q | --qscale N]\n"
    "       pix frames SEQUENCE.jpg DIR\n"
    "       pix crop IN OUT X Y W H\n"
    "       pix scale IN OUT W H\n"
    "       pix rotate IN OUT 90|180|270\n"
    "       pix mirror IN OUT\n"
    "       pix filter IN OUT smooth|sharpen|edge|k0,k1,...,k8\n"
    "       pix threshold IN OUT LOW HIGH\n"
    "       pix fields FIRST SECOND OUT | --interlace FRAME OUT | --double FIELD OUT\n"
    "       pix pseudo IN OUT [--hsi]\n"
    "       pix histogram IN [--svg FILE]\n"
    "       pix key IN OUT (--background FILE | --colour N) [--soft] [--calibrate BACKDROP]\n"
    "               [--hue C[,W]] [--luma C[,W]]\n"
    "       pix demo [DIR]\n"
    "       pix show FILE [--fit] [--aspect] [--roi X,Y,W,H] [--dib | --direct] [--window W,H]\n"
    "                [--strip-lines N]\n"
    "       pix print FILE OUT.pdf [--percent N]\n"
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
    "\n"
    "Processing: IN and OUT are any of the files above; each command reads IN\n"
    "strip by strip, processes every strip and writes OUT strip by strip\n"
    "(rotate and fields --interlace hold the whole picture).  Formats a function\n"
    "does not take are converted first (to RGB24, grey palettes to y8); OUT gets\n"
    "RGB24 where its file format cannot hold the result as it is.\n"
    "  pix crop IN OUT X Y W H\n"
    "      the W x H rectangle at X, Y (cut short at the right and bottom edges)\n"
    "  pix scale IN OUT W H\n"
    "      bilinear scaling to W x H (y8 or rgb24)\n"
    "  pix rotate IN OUT 90|180|270\n"
    "      a quarter, half or three-quarter turn clockwise\n"
    "  pix mirror IN OUT\n"
    "      left and right swapped\n"
    "  pix filter IN OUT smooth|sharpen|edge|k0,k1,...,k8\n"
    "      a 3x3 kernel, k0-k2 the line above, divided by its sum (y8 or rgb24):\n"
    "      smooth 1,2,1,2,4,2,1,2,1; sharpen 0,-1,0,-1,5,-1,0,-1,0; edge\n"
    "      -1,-1,-1,-1,9,-1,-1,-1,-1 (edges added to the picture: a pure edge\n"
    "      detector sums to 0, and kernels summing to 0 are refused)\n"
    "  pix threshold IN OUT LOW HIGH\n"
    "      grey levels at or above HIGH become 255, below LOW 0, others stay\n"
    "  pix fields FIRST SECOND OUT\n"
    "      two fields woven into a frame of twice the height (FIRST on even lines)\n"
    "  pix fields --interlace FRAME OUT\n"
    "      a frame holding its first field above its second, woven line by line\n"
    "  pix fields --double FIELD OUT\n"
    "      one field to a frame by doubling every line\n"
    "  pix pseudo IN OUT [--hsi]\n"
    "      false colour: grey from black (blue) through mid grey (green) to white\n"
    "      (red); colour shows Y, U, V as red, green, blue, or with --hsi hue,\n"
    "      saturation and intensity\n"
    "  pix histogram IN [--svg FILE]\n"
    "      IN converted to HSI: totals, mean and peak of the hue, saturation and\n"
    "      intensity planes and the library's averages; --svg plots the planes\n"
    "  pix key IN OUT (--background FILE | --colour N) [--soft] [--calibrate BACKDROP]\n"
    "          [--hue C[,W]] [--luma C[,W]]\n"
    "      chroma key in YUV 4:2:2: pixel pairs whose hue lies within C +- W\n"
    "      degrees and luma within C +- W (default hue 340 +- 20, luma 120 +- 64)\n"
    "      are replaced by the background picture (same size) or key colour N\n"
    "      (0-15: 0 black, 1-6 dark and 9-14 bright blue, green, cyan, red,\n"
    "      magenta, yellow, 7 and 8 greys, 15 white); --soft blends the edges;\n"
    "      --calibrate takes the hue centre from a shot of the bare screen and\n"
    "      centres the luma range on its mean luma\n"
    "  pix demo [DIR]\n"
    "      makes a 720x576 YUV 4:2:2 test card (colour bars, grey ramp, zone\n"
    "      plate), converts it to the display formats, writes it in every file\n"
    "      format (JPEG grey and 4:2:2 too) into DIR (default pix-demo), reads each\n"
    "      file back, checks it, builds a 25-frame motion-JPEG sequence, takes\n"
    "      frames out of it again, and prints a table\n"
    "  pix show FILE [--fit] [--aspect] [--roi X,Y,W,H] [--dib | --direct] [--window W,H]\n"
    "           [--strip-lines N]\n"
    "      shows FILE in a window until a key is pressed or the window closed:\n"
    "      strip by strip (N lines, default 64) in the screen's pixel format\n"
    "      through device-dependent bitmaps, through the direct path with\n"
    "      --direct (MIT-SHM on Linux), or whole as a DIB with --dib.  --roi\n"
    "      places it (32767 for W or H: automatic), --fit stretches it to the\n"
    "      window (W,H pixels, default the picture's size), --aspect keeps its\n"
    "      shape.  Needs an X display on Linux\n"
    "  pix print FILE OUT.pdf [--percent N]\n"
    "      prints FILE centred on an A4 PDF page (300 dots an inch), N percent\n"
    "      (default 100) of the largest size that fits\n"
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
    } else if (command == "crop") {
      status = crop(args);
    } else if (command == "scale") {
      status = scale(args);
    } else if (command == "rotate") {
      status = rotate(args);
    } else if (command == "mirror") {
      status = mirror(args);
    } else if (command == "filter") {
      status = filter(args);
    } else if (command == "threshold") {
      status = threshold(args);
    } else if (command == "fields") {
      status = fields(args);
    } else if (command == "pseudo") {
      status = pseudo(args);
    } else if (command == "histogram") {
      status = histogram(args);
    } else if (command == "key") {
      status = key(args);
    } else if (command == "show") {
      status = show(args);
    } else if (command == "print") {
      status = print(args);
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
