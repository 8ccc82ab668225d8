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
};

struct ConversionTables {
  std::array<ConversionTable, 6> tables;  // index = LUT type - 200
  static constexpr uint16_t kFirstType = PIX_LUT_RGB16_TO_PALETTED;
  ConversionTable& of_type(uint16_t type) { return tables[type - kFirstType]; }
};

ConversionTables& conversion_tables() noexcept;

}  // namespace pix::convert
