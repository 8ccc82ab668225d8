// Shared by the fuzz harnesses: the library reads files by name, so every
// input is written to a scratch file first.
#pragma once

#include <pix95.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace pixfuzz {

// A scratch file of this process, rewritten for every input.
// Kept in memory (/dev/shm) where the system has it: fuzzing is bound by
// how fast a file is written and read back.
inline const std::string& scratch(const char* suffix) {
  static const std::string path = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                  "/pix95-fuzz-" + std::to_string(getpid()) + suffix;
  return path;
}

inline const char* write_input(const uint8_t* data, size_t size, const char* suffix = ".bin") {
  const std::string& path = scratch(suffix);
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) __builtin_trap();
  if (size > 0) std::fwrite(data, 1, size, f);
  std::fclose(f);
  return path.c_str();
}

// The largest picture a harness lets a reader allocate: a hostile header may
// ask for gigabytes, which the library allows when the size fits 32 bits,
// but the fuzzer's memory limit would count it as a finding.
inline constexpr uint64_t kMaxPictureBytes = 4u << 20;

inline uint64_t picture_bytes(uint32_t image) {
  const uint64_t width = PIX_image_get_parameter(image, PIX_IMAGE_WIDTH);
  const uint64_t height = PIX_image_get_parameter(image, PIX_IMAGE_HEIGHT);
  return (width + 4) * 4 * height;
}

// Silences the stock handler: reports are expected on hostile input.
inline void quiet() {
  static const bool done = [] {
    KVB_err_set_reporting(0, nullptr);
    return true;
  }();
  (void)done;
}

}  // namespace pixfuzz
