/* Shows a colour ramp in a window until a key is pressed (or once, with
 * --once): the library paints into the device context of WM_PAINT. */
#include <windows.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "pix95.h"

static uint32_t display, dib;

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

static LRESULT CALLBACK on_message(HWND w, UINT message, WPARAM wp, LPARAM lp) {
  PAINTSTRUCT ps;
  switch (message) {
    case WM_PAINT:
      PIX_display_set_paint_hDC(display, BeginPaint(w, &ps));
      PIX_display_image(display, dib, PIX_STRIP_NEXT); /* the DIB path */
      PIX_display_set_paint_hDC(display, NULL);
      EndPaint(w, &ps);
      return 0;
    case WM_KEYDOWN: DestroyWindow(w); return 0;
    case WM_DESTROY: PostQuitMessage(0); return 0;
  }
  return DefWindowProcA(w, message, wp, lp);
}

int main(int argc, char **argv) {
  WNDCLASSA c = {0};
  HWND w;
  MSG m;
  int once = argc > 1 && strcmp(argv[1], "--once") == 0;
  c.lpfnWndProc = on_message, c.hInstance = GetModuleHandleA(NULL), c.lpszClassName = "pix95 example";
  c.hCursor = LoadCursor(NULL, IDC_ARROW);
  RegisterClassA(&c);
  w = CreateWindowA(c.lpszClassName, "pix95", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 340, 280, NULL, NULL,
                    c.hInstance, NULL);
  display = PIX_display_create();
  dib = PIX_image_create();
  PIX_convert_to_DIB_w31(ramp(256, 240), dib, 0, PIX_STRIP_NEXT); /* 24-bit rows, bottom-up */
  if (PIX_IS_ERROR(PIX_display_init(display, w))) return 1;      /* screen facts */
  UpdateWindow(w);
  if (!once)
    while (GetMessageA(&m, NULL, 0, 0) > 0) TranslateMessage(&m), DispatchMessageA(&m);
  printf("shown through the DIB path on a %u-bit screen\n", PIX_display_get_DeviceCaps(display, 3));
  PIX_display_destroy(display);
  PIX_image_destroy(PIX_ALL_IMAGES);
  return 0;
}
