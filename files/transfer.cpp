#include "transfer.h"

namespace pix::files {

uint32_t Transfer::open_for_reading(const char* function, const char* name, Mode mode, bool buffered) {
  if (!stream.open(name, mode == Mode::text ? "r" : "rb", buffered)) {
    return report(function, code::open_failed, "Failed to open file");
  }
  return 0;
}

uint32_t Transfer::open_for_writing(const char* function, const char* name, Mode mode) {
  if (!stream.open(name, mode == Mode::text ? "w" : "wb", true)) {
    return report(function, code::open_failed, "Failed to create file");
  }
  return 0;
}

uint32_t Transfer::stop(uint32_t result) noexcept {
  end_run();
  stream.discard();
  progress.state = stage::kIdle;
  return result;
}

uint32_t Transfer::finish(const char* function) {
  end_run();
  if (!stream.finish()) return report(function, code::close_failed, "Failed to close file");
  return 0;
}

void Transfer::release() noexcept {
  stop(0);
  progress = {};
}

}  // namespace pix::files
