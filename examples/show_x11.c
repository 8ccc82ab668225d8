/* Shows a colour ramp in an X11 window until a key is pressed (or once, with
 * --once): the window is the display's hWnd, and the library draws through
 * cairo, loaded at run time. */
#include <X11/Xlib.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "pix95.h"

static uint32_t ramp(uint32_t width, uint32_t height) {
  uint32_t frame = PIX_image_create(), x, y;
  tPIX_Image *f;
  PIX_image_set_parameter(frame, PIX_IMAGE_FORMAT, PIX_RGB24);
  PIX_image_set_parameter(frame, PIX_IMAGE_WIDTH, width);
  PIX_image_set_parameter(frame, PIX_IMAGE_HEIGHT, height);
  PIX_image_set_parameter(frame, PIX_LINES_THIS_STRIP, height);
  PIX_image_malloc_a_strip(frame);
  f = (tPIX_Image *)PIX_image_get_ptr(frame, PIX_PTR_RECORD);
  for (y = 0; y < height; ++y)
    for (x = 0; x < width; ++x) {
      uint8_t *p = f->data + y * f->bytes_per_line + 3 * x;
      p[0] = (uint8_t)x, p[1] = (uint8_t)y, p[2] = 128;
    }
  return frame;
}

int main(int argc, char **argv) {
  Display *x = XOpenDisplay(NULL);
  Window w;
  XEvent e;
  uint32_t dib = PIX_image_create(), d = PIX_display_create(), r;
  int once = argc > 1 && strcmp(argv[1], "--once") == 0;
  if (x == NULL) return fprintf(stderr, "no X display\n"), 1;
  w = XCreateSimpleWindow(x, DefaultRootWindow(x), 0, 0, 320, 240, 0, 0, 0);
  XSelectInput(x, w, ExposureMask | KeyPressMask);
  XMapWindow(x, w);
  XSync(x, False); /* the library has its own connection: the window must exist on the server */

  PIX_convert_to_DIB_w31(ramp(256, 240), dib, 0, PIX_STRIP_NEXT); /* 24-bit rows, bottom-up */
  if (PIX_IS_ERROR(r = PIX_display_init(d, (PIX_HWND)(uintptr_t)w))) return fprintf(stderr, "init: %08x\n", r), 1;
  while (XNextEvent(x, &e) == 0 && e.type != KeyPress) {
    if (e.type != Expose || e.xexpose.count != 0) continue;
    if (PIX_IS_ERROR(r = PIX_display_image(d, dib, PIX_STRIP_NEXT))) return fprintf(stderr, "display: %08x\n", r), 1;
    if (once) break;
  }
  printf("shown through the DIB path at %ux%u, %u bits a pixel\n", PIX_display_get_DeviceCaps(d, 1),
         PIX_display_get_DeviceCaps(d, 2), PIX_display_get_DeviceCaps(d, 3));
  PIX_display_destroy(d);
  PIX_image_destroy(PIX_ALL_IMAGES);
  XCloseDisplay(x);
  return 0;
}
