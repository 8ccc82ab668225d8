// Placeholder until this format's reader and writer land.
#include "core/status.h"
extern "C" {
PIX_API uint32_t PIX_CALL PIX_read_TGA_file(uint32_t, uint16_t) { return pix::code::unsupported; }
PIX_API uint32_t PIX_CALL PIX_write_TGA_file(uint32_t, uint16_t) { return pix::code::unsupported; }
}
