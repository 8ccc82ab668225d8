// Conversion tables: their library-wide home, generation, LUT files and
// release.
#include "conversion_tables.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "convert/kernels/tables.h"
#include "core/image.h"
#include "core/status.h"
#include "files/stream.h"

using namespace pix;
using convert::ConversionTable;
using convert::ConversionTables;
using convert::conversion_tables;

namespace pix::convert {

ConversionTables& conversion_tables() noexcept {
  static ConversionTables tables;
  return tables;
}

namespace {
// Runs the generator of `type` (200-205).
uint32_t generate_table(uint16_t type, uint32_t handle) {
  switch (type) {
    case PIX_LUT_RGB16_TO_PALETTED: return PIX_generate_RGB16_to_paletted_LUT(handle);
    case PIX_LUT_Y8_TO_PALETTED: return PIX_generate_Y8_to_paletted_LUT(handle);
    case PIX_LUT_Y16_TO_PALETTED: return PIX_generate_Y16_to_paletted_LUT(handle);
    case PIX_LUT_YUV422_TO_RGB16: return PIX_generate_YUV422_to_RGB16_LUT();
    case PIX_LUT_YUV422_TO_RGB15: return PIX_generate_YUV422_to_RGB15_LUT();
    default: return PIX_generate_YUV422_to_paletted_LUT(handle);
  }
}
}  // namespace

std::size_t table_bytes(uint16_t type, uint32_t data_width) noexcept {
  switch (type) {
    case PIX_LUT_RGB16_TO_PALETTED: return 65536;
    case PIX_LUT_Y8_TO_PALETTED: return 256;
    case PIX_LUT_Y16_TO_PALETTED: return std::size_t{1} << std::min<uint32_t>(data_width, 16);
    case PIX_LUT_YUV422_TO_RGB16:
    case PIX_LUT_YUV422_TO_RGB15: return 2 * kernels::kYuv19Entries;
    case PIX_LUT_YUV422_TO_PALETTED: return kernels::kYuv15Entries;
    default: return 0;
  }
}

uint32_t require_table(uint16_t type, uint32_t handle) {
  return conversion_tables().of_type(type).present() ? 0 : generate_table(type, handle);
}

}  // namespace pix::convert

namespace {

constexpr const char* kAllocationMessages[] = {
    "Unable to generate RGB16 to paletted LUT", "Unable to generate Y8 to paletted LUT",
    "Unable to generate Y16 to paletted LUT",   "Unable to generate YUV to RGB16 LUT",
    "Unable to generate YUV to RGB15 LUT",      "Unable to generate YUV to paletted LUT",
};

// The table of `type`, allocated at `bytes` (zero-filled, with the kernels'
// slack) when it does not exist; an existing table is kept at its own size.
// Null after reporting under `function` when memory runs out.
ConversionTable* provide(uint16_t type, std::size_t bytes, const char* function) {
  ConversionTable& table = conversion_tables().of_type(type);
  if (table.present()) return &table;
  auto* block = static_cast<uint8_t*>(memory::allocate(bytes + convert::kernels::kTableSlack));
  if (block == nullptr) {
    report(function, code::out_of_memory, kAllocationMessages[type - ConversionTables::kFirstType]);
    return nullptr;
  }
  std::memset(block, 0, bytes + convert::kernels::kTableSlack);
  table.bytes.reset(block);
  table.size = bytes;
  return &table;
}

uint32_t destroy_table(uint16_t type) {
  auto& table = conversion_tables().of_type(type);
  table.bytes.reset();
  table.size = 0;
  return 0;
}

// The closest-colour tables that depend only on the image's colour map.
template <class Fill>
uint32_t generate_paletted(uint16_t type, uint32_t handle, const char* function, Fill&& fill) {
  const Image* img = find_image(handle);
  if (img == nullptr) return report(function, code::bad_handle);
  ConversionTable* table = provide(type, convert::table_bytes(type, img->data_width), function);
  if (table == nullptr) return code::out_of_memory;
  fill(table->bytes.get(), img->cmap, img->cmap_size);
  return 0;
}

uint32_t generate_yuv19(uint16_t type, bool rgb15, const char* function) {
  ConversionTable* table = provide(type, convert::table_bytes(type, 0), function);
  if (table == nullptr) return code::out_of_memory;
  convert::kernels::fill_yuv19_table(table->bytes.get(), rgb15);
  return 0;
}

// The image named by a save or load, and the type's test.
uint32_t file_checks(uint32_t handle, uint16_t type, const char* function, const Image*& img) {
  img = find_image(handle);
  if (img == nullptr) return report(function, code::bad_handle);
  if (!ConversionTables::is_type(type)) return report(function, code::unsupported, "Unrecognized LUT type");
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_generate_RGB16_to_paletted_LUT(uint32_t handle) {
  return generate_paletted(PIX_LUT_RGB16_TO_PALETTED, handle, "PIX_generate_RGB16_to_paletted_LUT",
                           convert::kernels::fill_rgb16_paletted);
}

PIX_API uint32_t PIX_CALL PIX_generate_Y8_to_paletted_LUT(uint32_t handle) {
  return generate_paletted(PIX_LUT_Y8_TO_PALETTED, handle, "PIX_generate_Y8_to_paletted_LUT",
                           [](uint8_t* table, const tPIX_Colour* map, uint32_t used) {
                             convert::kernels::fill_grey_paletted(table, 256, 0, map, used);
                           });
}

PIX_API uint32_t PIX_CALL PIX_generate_Y16_to_paletted_LUT(uint32_t handle) {
  static constexpr const char* kName = "PIX_generate_Y16_to_paletted_LUT";
  const Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  const uint32_t width = img->data_width;
  if (width < 9) return report(kName, code::bad_image, "data width should > 8 (and <= 16)");
  if (width > 16) return report(kName, code::bad_image, "data width should <= 16 (and > 8)");
  const std::size_t entries = std::size_t{1} << width;
  ConversionTable* table = provide(PIX_LUT_Y16_TO_PALETTED, entries, kName);
  if (table == nullptr) return code::out_of_memory;
  // The counter is wider than 16 bits, so width 16 ends after entry 65535.
  // A table kept from a narrower data width is filled only as far as it reaches.
  convert::kernels::fill_grey_paletted(table->bytes.get(), std::min(entries, table->size), width - 8, img->cmap,
                                       img->cmap_size);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_paletted_LUT(uint32_t handle) {
  return generate_paletted(PIX_LUT_YUV422_TO_PALETTED, handle, "PIX_generate_YUV422_to_paletted_LUT",
                           convert::kernels::fill_yuv15_paletted);
}

PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_RGB16_LUT(void) {
  return generate_yuv19(PIX_LUT_YUV422_TO_RGB16, false, "PIX_generate_YUV422_to_RGB16_LUT");
}

PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_RGB15_LUT(void) {
  return generate_yuv19(PIX_LUT_YUV422_TO_RGB15, true, "PIX_generate_YUV422_to_RGB15_LUT");
}

PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_generate(uint32_t handle, uint16_t type) {
  static constexpr const char* kName = "PIX_image_conv_LUT_generate";
  if (find_image(handle) == nullptr) return report(kName, code::bad_handle);
  if (!ConversionTables::is_type(type)) {
    return report(kName, code::unsupported, "LUT function not available for this image pixel format");
  }
  return convert::generate_table(type, handle);
}

PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_save(uint32_t handle, uint16_t type, const char* file_name) {
  static constexpr const char* kName = "PIX_image_conv_LUT_save";
  const Image* img = nullptr;
  if (uint32_t r = file_checks(handle, type, kName, img); is_error(r)) return r;
  const std::size_t size = convert::table_bytes(type, img->data_width);
  files::Stream file;
  if (file_name == nullptr || !file.open(file_name, "wb")) {
    return report(kName, code::open_failed, "Failed to create file");
  }
  // A table never generated, or kept from a narrower data width, is written
  // only as far as it exists.
  const ConversionTable& table = conversion_tables().of_type(type);
  const std::size_t held = table.present() ? std::min(size, table.size) : 0;
  if (held != 0) files::write_bytes(file.get(), {table.bytes.get(), held});
  // A table that did not reach the disk whole fails here, where the close is checked.
  if (!file.finish()) return report(kName, code::close_failed, "Failed to close file");
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_load(uint32_t handle, uint16_t type, const char* file_name) {
  static constexpr const char* kName = "PIX_image_conv_LUT_load";
  const Image* img = nullptr;
  if (uint32_t r = file_checks(handle, type, kName, img); is_error(r)) return r;
  const std::size_t size = convert::table_bytes(type, img->data_width);
  ConversionTable* table = provide(type, size, kName);
  if (table == nullptr) return code::out_of_memory;
  std::FILE* file = file_name != nullptr ? std::fopen(file_name, "rb") : nullptr;
  if (file == nullptr) return report(kName, code::open_failed, "Failed to create file");
  // Bytes are stored up to the table's end and counted to the file's end.
  uint64_t count = std::fread(table->bytes.get(), 1, table->size, file);
  if (count == table->size) {
    uint8_t rest[4096];
    for (std::size_t got; (got = std::fread(rest, 1, sizeof rest, file)) != 0;) count += got;
  }
  if (count != size) {
    std::fclose(file);  // the table keeps what was read
    return report(kName, code::bad_state, "Incorrect number of bytes read - correct LUT selected?");
  }
  if (std::fclose(file) != 0) return report(kName, code::close_failed, "Failed to close file");
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_destroy_RGB16_to_paletted_LUT(void) { return destroy_table(PIX_LUT_RGB16_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_Y8_to_paletted_LUT(void) { return destroy_table(PIX_LUT_Y8_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_Y16_to_paletted_LUT(void) { return destroy_table(PIX_LUT_Y16_TO_PALETTED); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB16_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_RGB16); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB15_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_RGB15); }
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_paletted_LUT(void) { return destroy_table(PIX_LUT_YUV422_TO_PALETTED); }

PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_destroy(uint16_t type) {
  if (!ConversionTables::is_type(type)) {
    return report("PIX_image_conv_LUT_destroy", code::unsupported,
                  "LUT function not available for this image pixel format");
  }
  return destroy_table(type);
}

}  // extern "C"
