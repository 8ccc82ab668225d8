// Placeholder until this format's reader and writer land.
#include "core/status.h"
extern "C" {
PIX_API uint32_t PIX_CALL PIX_write_raw_data_file(uint32_t, uint16_t) { return pix::code::unsupported; }
PIX_API uint32_t PIX_CALL PIX_write_to_memory(uint32_t, uint32_t, uint16_t) { return pix::code::unsupported; }
PIX_API uint32_t PIX_CALL PIX_read_from_memory(uint32_t, uint32_t, uint16_t) { return pix::code::unsupported; }
}
