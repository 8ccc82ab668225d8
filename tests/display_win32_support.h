// Real windows, read-back, metafiles and a printer for the Windows display
// tests (run under Wine inside Xvfb).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace pixtest::win {

// Pixels as 0x00RRGGBB, top-down, `width` a line.
struct Pixels {
  int width = 0, height = 0;
  std::vector<uint32_t> argb;
  uint32_t at(int x, int y) const { return argb[static_cast<size_t>(y) * width + x]; }
};

// A visible popup window at a screen position, its client area filled black.
class Window {
 public:
  Window(int x, int y, int width, int height);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  HWND handle() const { return hwnd_; }
  Pixels read() const;  // the client area through the window's device context
  void clear() const;

 private:
  HWND hwnd_ = nullptr;
  int width_, height_;
};

void pump_messages();
// BitBlt from `dc` into a 32-bit DIB section.
Pixels read_dc(HDC dc, int x, int y, int width, int height);
// The screen's depth as the X server was started (PIX95_TEST_SCREEN_DEPTH, 24 by default).
int screen_depth();
// Largest difference of one channel the screen may make of a colour (the 16/15-bit
// screens keep 5 bits of a channel).
int tolerance();
bool close_to(uint32_t a, uint32_t b, int tolerance);
// Writes 24-bit BMP of the pixels when PIX95_TEST_SCREENSHOTS names a directory.
void screenshot(const Pixels& pixels, const std::string& name);

// The StretchDIBits records of an enhanced metafile, with their header and bits.
struct StretchRecord {
  EMRSTRETCHDIBITS record;
  std::vector<uint8_t> header, bits;
};
std::vector<StretchRecord> stretch_records(HENHMETAFILE metafile);

// Registers (once per prefix) a PostScript printer of Wine's driver with a
// small colour PPD at 100 dpi; returns its name.
std::string test_printer();
// Runs a Unix program (Ghostscript) from the Wine process and waits for it.
bool run_unix(const std::vector<std::string>& argv);
// A binary PPM file.
Pixels read_ppm(const std::string& unix_path);

}  // namespace pixtest::win
