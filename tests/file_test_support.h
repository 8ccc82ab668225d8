// Helpers shared by the image-file tests: patterned images, files as bytes,
// strips read back without their padding, whole-file reads and strip-wise writes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "test_support.h"

namespace pixtest {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes a, const Bytes& b);
Bytes load(const std::string& path);
void save(const std::string& path, const Bytes& bytes);

// `n` bytes that vary from byte to byte and with `salt`.
Bytes pattern(std::size_t n, unsigned salt);

// Bytes from one line of a strip to the next (bilevel lines are packed),
// and the pixel bytes of one line, its padding left out.
uint32_t stride(uint32_t image);
uint32_t line_bytes(uint32_t image);

// An image with a strip of `lines` lines (0: the whole height) allocated and
// every byte, padding included, set from pattern(..., salt); the colour map
// is set to distinct colours.
uint32_t filled(uint16_t format, uint32_t width, uint32_t height, uint32_t lines = 0, unsigned salt = 0);

// The first `bytes` bytes (0: line_bytes) of each line of the current strip.
Bytes rows(uint32_t image, uint32_t bytes = 0);
// The red, green, blue bytes of the first `entries` colour-map entries.
Bytes palette(uint32_t image, int entries = 256);
// Puts packed lines of line_bytes(image) bytes into the current strip.
void set_rows(uint32_t image, const Bytes& pixels);

// An image set up to read `path` in strips of `lines` lines.
uint32_t reader(const std::string& path, uint32_t lines);
// Calls `read` `calls` times and gives the lines of every strip read.
Bytes read_strips(uint32_t image, uint32_t(PIX_CALL* read)(uint32_t, uint16_t), int calls);
// Reads `path` whole in one strip through the read dispatcher; the call's
// result goes to `result`, the image is given back.
uint32_t read_whole(const std::string& path, uint32_t& result);

// Writes a whole-image strip to `path` as `file_format` through the write
// dispatcher (or to `memory`), handing it over `lines` lines at a time (every
// strip says `lines`: the writer has to cut the last one).  Gives the first failure.
uint32_t write_strips(uint32_t image, uint16_t file_format, const std::string& path, uint32_t lines,
                      uint32_t memory = 0);

}  // namespace pixtest
