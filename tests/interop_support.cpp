#include "interop_support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

#ifndef PIX95_TEST_TOOLS_DIR
#error "PIX95_TEST_TOOLS_DIR names the directory of pillow_io.py"
#endif

namespace pixtest::interop {

int run(const std::string& command, std::string* output) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  std::array<char, 4096> chunk;
  std::size_t n;
  while ((n = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0) {
    if (output != nullptr) output->append(chunk.data(), n);
  }
  return pclose(pipe);
}

std::string scratch_dir() {
  // One directory a test program: programs that run side by side keep apart.
  static const std::string dir = [] {
    std::string d = "interop-scratch/" + std::to_string(getpid());
    run("rm -rf '" + d + "' && mkdir -p '" + d + "'");
    return d;
  }();
  return dir;
}

std::string scratch_path(const std::string& name) { return scratch_dir() + "/" + name; }

std::vector<uint8_t> read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

namespace {
const std::string kPillow = std::string("/usr/bin/python3 ") + PIX95_TEST_TOOLS_DIR + "/pillow_io.py ";
}

Pixels pillow_read(const std::string& path) {
  const std::string dump = path + ".pillow";
  Pixels p;
  if (run(kPillow + "dump '" + path + "' '" + dump + "'") != 0) return p;
  const std::vector<uint8_t> all = read_file(dump);
  std::size_t eol = 0;
  while (eol < all.size() && all[eol] != '\n') ++eol;
  std::istringstream head(std::string(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(eol)));
  head >> p.width >> p.height >> p.mode;
  if (eol < all.size()) p.bytes.assign(all.begin() + static_cast<std::ptrdiff_t>(eol) + 1, all.end());
  return p;
}

bool pillow_save(const std::string& path, const std::string& mode, uint32_t width, uint32_t height,
                 const std::vector<uint8_t>& bytes, const std::string& options) {
  const std::string raw = path + ".raw";
  write_file(raw, bytes);
  return run(kPillow + "save " + mode + " " + std::to_string(width) + " " + std::to_string(height) + " '" + raw +
             "' '" + path + "' " + options) == 0;
}

bool pillow_save_paletted(const std::string& path, uint32_t width, uint32_t height,
                          const std::vector<uint8_t>& indices, const std::vector<uint8_t>& palette_rgb,
                          const std::string& options) {
  const std::string raw = path + ".raw";
  const std::string pal = path + ".pal";
  write_file(raw, indices);
  write_file(pal, palette_rgb);
  return run(kPillow + "savepal " + std::to_string(width) + " " + std::to_string(height) + " '" + raw + "' '" +
             pal + "' '" + path + "' " + options) == 0;
}

std::vector<uint8_t> magick_read(const std::string& path, const std::string& map, int depth) {
  const std::string out = path + "." + map;
  if (run("/usr/bin/convert '" + path + "' -depth " + std::to_string(depth) + " " + map + ":'" + out + "'") != 0) return {};
  return read_file(out);
}

}  // namespace pixtest::interop
