// Helpers for the tests that check our files against independent software
// (Pillow, ImageMagick, the libtiff tools, Ghostscript).  These tests run on
// the native build only: the tools are Linux programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pixtest::interop {

// Runs a shell command; gives its exit status and, when asked, its standard
// output (standard error is passed through for the test log).
int run(const std::string& command, std::string* output = nullptr);

// A scratch directory for one test program, made on first use.
std::string scratch_dir();
std::string scratch_path(const std::string& name);

std::vector<uint8_t> read_file(const std::string& path);
void write_file(const std::string& path, const std::vector<uint8_t>& bytes);

struct Pixels {
  uint32_t width = 0;
  uint32_t height = 0;
  std::string mode;  // Pillow's mode name: "L", "RGB", "P", "1", "I;16", ...
  std::vector<uint8_t> bytes;
};

// Pillow's view of a file (Image.tobytes()); an empty mode when Pillow failed.
Pixels pillow_read(const std::string& path);
// Saves pixels with Pillow; `options` are Image.save keyword arguments
// written key=value, separated by spaces.  True on success.
bool pillow_save(const std::string& path, const std::string& mode, uint32_t width, uint32_t height,
                 const std::vector<uint8_t>& bytes, const std::string& options = "");
bool pillow_save_paletted(const std::string& path, uint32_t width, uint32_t height,
                          const std::vector<uint8_t>& indices, const std::vector<uint8_t>& palette_rgb,
                          const std::string& options = "");

// ImageMagick's pixels of a file as 8-bit "gray" or "rgb" samples (or
// "gray" with depth 16: big-endian 16-bit samples).  Empty on failure.
std::vector<uint8_t> magick_read(const std::string& path, const std::string& map, int depth = 8);

}  // namespace pixtest::interop
