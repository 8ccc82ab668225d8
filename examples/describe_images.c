/*
 * describe_images: a first tour of the pix95 interface in plain C.
 *
 * Creates a few images, describes them with parameters, fills a frame strip
 * by strip into a whole-image copy, and shows what the stock error handler
 * reports when something goes wrong.
 */
#include <stdio.h>
#include <string.h>

#include "pix95.h"

static const char *format_name(uint32_t format) {
  switch (format) {
    case PIX_Y8: return "Y8";
    case PIX_PALETTED: return "paletted";
    case PIX_RGB16: return "RGB16";
    case PIX_RGB24: return "RGB24";
    case PIX_BGRX32: return "BGRX32";
    case PIX_YUV422: return "YUV 4:2:2";
    case PIX_Y16: return "Y16";
    default: return "?";
  }
}

static uint32_t describe(uint16_t format, uint32_t width, uint32_t height, uint32_t strip_lines) {
  uint32_t h = PIX_image_create();
  if (PIX_IS_ERROR(h)) return h;
  PIX_image_set_parameter(h, PIX_IMAGE_FORMAT, format);
  if (format == PIX_Y16) PIX_image_set_parameter(h, PIX_DATA_WIDTH, 10);
  PIX_image_set_parameter(h, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(h, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(h, PIX_LINES_THIS_STRIP, strip_lines);
  PIX_image_set_parameter(h, PIX_LINE_ALIGN, 4);
  if (PIX_IS_ERROR(PIX_image_check(h))) return PIX_image_check(h);
  printf("  image %-3u %-10s %5ux%-5u depth %2u  %5u bytes a line (%u padding)  %2u strips of %u lines\n",
         (unsigned)h, format_name(format), (unsigned)width, (unsigned)height,
         (unsigned)PIX_get_depth(h), (unsigned)PIX_get_bytes_per_line(h),
         (unsigned)(PIX_get_bytes_per_line(h) - width * ((PIX_get_depth(h) + 1) / 8)),
         (unsigned)PIX_image_calc_total_strips(h), (unsigned)strip_lines);
  return h;
}

int main(void) {
  uint32_t frame, whole, line, done, status;

  printf("pix95: describing images\n");
  frame = describe(PIX_YUV422, 720, 576, 64);
  describe(PIX_RGB24, 641, 480, 480);
  describe(PIX_BGRX32, 1920, 1080, 270);
  describe(PIX_Y16, 1001, 3, 1);
  if (PIX_IS_ERROR(frame)) return 1;

  /* A frame arrives strip by strip; each strip is copied into place in a
     whole-image buffer. */
  whole = PIX_image_create();
  PIX_image_copy_parameters(frame, whole);
  PIX_image_set_parameter(whole, PIX_LINES_THIS_STRIP, 576);
  status = PIX_image_malloc_a_strip(whole);
  if (PIX_IS_ERROR(status)) return 1;
  for (done = 0; done < 576; done += 64) {
    uint8_t *strip;
    PIX_image_free_data(frame);
    PIX_image_malloc_a_strip(frame);
    strip = (uint8_t *)PIX_image_get_ptr(frame, PIX_PTR_DATA);
    for (line = 0; line < 64; ++line) /* a grey ramp, one level per line */
      memset(strip + line * PIX_get_bytes_per_line(frame), (int)(done + line) & 0xFF,
             PIX_get_bytes_per_line(frame));
    memcpy((uint8_t *)PIX_image_get_ptr(whole, PIX_PTR_DATA) + done * PIX_get_bytes_per_line(whole), strip,
           64 * PIX_get_bytes_per_line(frame));
  }
  printf("copied %u strips of 64 lines; line 300 starts with byte %u\n",
         (unsigned)PIX_image_calc_total_strips(frame),
         (unsigned)((uint8_t *)PIX_image_get_ptr(whole, PIX_PTR_DATA))[300 * PIX_get_bytes_per_line(whole)]);

  /* Failures are returned; with the stock handler installed they are shown
     too (a message box on Windows, the standard error stream elsewhere). */
  KVB_err_set_reporting(1, KVB_err_display);
  printf("asking for parameter 99 of image %u...\n", (unsigned)frame);
  status = PIX_image_get_parameter(frame, 99);
  printf("status 0x%08x, an error: %s\n", (unsigned)status, PIX_IS_ERROR(status) ? "yes" : "no");
  KVB_err_set_reporting(1, NULL);

  PIX_image_destroy(PIX_ALL_IMAGES);
  return PIX_image_destroy(PIX_CHECK_IMAGES) == 0 ? 0 : 1;
}
