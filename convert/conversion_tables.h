// The six library-wide conversion tables, named by their LUT types 200-205.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/memory.h"
#include "pix95.h"

namespace pix::convert {

struct ConversionTable {
  memory::Owned<uint8_t> bytes;  // entries as held in memory (16-bit entries little-endian)
  std::size_t size = 0;          // in bytes
  bool present() const noexcept { return bytes != nullptr; }
};

struct ConversionTables {
  std::array<ConversionTable, 6> tables;  // index = LUT type - 200
  static constexpr uint16_t kFirstType = PIX_LUT_RGB16_TO_PALETTED;
  static constexpr uint16_t kLastType = PIX_LUT_YUV422_TO_PALETTED;
  static constexpr bool is_type(uint16_t type) { return type >= kFirstType && type <= kLastType; }
  ConversionTable& of_type(uint16_t type) { return tables[type - kFirstType]; }
};

ConversionTables& conversion_tables() noexcept;

// Bytes of the table of `type`; type 202 holds 2 to the power of the data
// width (taken as 16 above 16: no sample can index further).
std::size_t table_bytes(uint16_t type, uint32_t data_width) noexcept;

// The table of `type`, generated first when it does not exist (types 200,
// 201, 202 and 205 from the image `handle`).  Gives the generator's code.
uint32_t require_table(uint16_t type, uint32_t handle);

}  // namespace pix::convert
