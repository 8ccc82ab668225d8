// FPGA bit files: length, data and date.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pixfuzz::quiet();
  const char* path = pixfuzz::write_input(data, size, ".rbt");
  KVB_get_rbt_bit_length(path);
  tKVB_FPGA_Data record{};
  if (!PIX_IS_ERROR(KVB_get_fpga_data_and_length(path, &record))) std::free(record.data);
  char date[64] = {};
  KVB_get_rbt_date_string(path, date);
  return 0;
}
