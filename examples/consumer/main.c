/* The smallest program built against an installed pix95: it makes an image,
 * converts a grey ramp to RGB24 and checks one pixel. */
#include <stdio.h>

#include <pix95.h>

int main(void) {
  uint32_t grey = PIX_image_create();
  uint32_t rgb = PIX_image_create();
  tPIX_Image *g;
  tPIX_Image *c;
  uint32_t x;
  PIX_image_set_parameter(grey, PIX_IMAGE_FORMAT, PIX_Y8);
  PIX_image_set_parameter(grey, PIX_IMAGE_WIDTH, 16);
  PIX_image_set_parameter(grey, PIX_IMAGE_HEIGHT, 1);
  PIX_image_set_parameter(grey, PIX_LINES_THIS_STRIP, 1);
  if (PIX_IS_ERROR(PIX_image_malloc_a_strip(grey))) return 1;
  g = (tPIX_Image *)PIX_image_get_ptr(grey, PIX_PTR_RECORD);
  for (x = 0; x < 16; ++x) g->data[x] = (uint8_t)(x * 16);
  if (PIX_IS_ERROR(PIX_image_convert(grey, rgb, PIX_RGB24, 0, PIX_STRIP_NEXT))) return 1;
  c = (tPIX_Image *)PIX_image_get_ptr(rgb, PIX_PTR_RECORD);
  if (c == NULL || c->data[3 * 5 + 1] != 80) return 1;
  printf("pix95 consumer: grey 80 became RGB %u %u %u\n", c->data[15], c->data[16], c->data[17]);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
