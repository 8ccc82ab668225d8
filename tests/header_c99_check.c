/* The public header compiles as strict C99 and links against the library. */
#include "pix95.h"

#include <stdio.h>

int main(void) {
  tPIX_Image record;
  tPIX_Histogram histogram;
  tKVB_Command command;
  Tjpeg jpeg;
  (void)record;
  (void)histogram;
  (void)command;
  (void)jpeg;
  if (sizeof(histogram) != 875 * sizeof(uint32_t)) return 1;
  if (PIX_image_get_parameter(0, PIX_LIBRARY_ID) != PIX_LIBRARY_ID_VALUE) return 2;
  if (!PIX_IS_ERROR(PIX_STATUS(PIX_MOD_IMAGE, PIX_ERR_BAD_HANDLE, 0))) return 3;
  puts("header_c99_check: ok");
  return 0;
}
