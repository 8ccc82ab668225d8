// Device-independent bitmaps for display and printing: a 40-byte
// information header followed by the rows bottom-up, three bytes a pixel in
// the order blue, green, red, each row padded to 4 bytes.  Only whole images
// are converted.
#include <algorithm>
#include <cstring>
#include <limits>

#include "convert/conversion_tables.h"
#include "convert/kernels/direct.h"
#include "convert/kernels/tables.h"
#include "convert/kernels/yuv.h"
#include "core/image.h"
#include "core/status.h"
#include "core/stage.h"
#include "transfer.h"

using namespace pix;
namespace k = pix::convert::kernels;

namespace {

constexpr const char* kName = "PIX_convert_to_DIB_w31";
constexpr const char* kWorker = "PIX_convert_to_DIB_w31_1_strip";
constexpr uint32_t kNoRecord = 0x00010000u;
constexpr uint32_t kHeaderBytes = 40;

// Field arrangements of a source that holds its two fields one after the
// other: first field first (4) or second field first (5).
constexpr uint16_t kFieldsFirstFirst = 4;
constexpr uint16_t kFieldsSecondFirst = 5;

// One conversion can be under way at a time, library-wide: busy (2) once
// the destination is prepared.
files::Transfer& transfer() noexcept {
  static files::Transfer state;
  return state;
}
constexpr files::Plan kPlan{.function = kName};

constexpr bool accepted(uint16_t format) {
  return (format >= PIX_Y8 && format <= PIX_YUV422) || format == PIX_Y16;
}

void put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// One source row of `width` pixels to `width` blue-green-red pixels.
struct RowConverter {
  enum class Kind { copy, direct, palette, yuv, yuv_table } kind = Kind::copy;
  k::DirectRow direct = nullptr;
  k::YuvRow yuv = nullptr;
  k::LutRow lut = nullptr;
  const uint8_t* table = nullptr;
  const tPIX_Colour* map = nullptr;
  unsigned shift = 0;

  void operator()(const uint8_t* src, uint8_t* dst, uint32_t width) const {
    switch (kind) {
      case Kind::copy: std::memcpy(dst, src, static_cast<std::size_t>(width) * 3); break;
      case Kind::direct: direct(src, dst, width, shift); break;
      case Kind::palette:
        for (uint32_t x = 0; x < width; ++x, dst += 3) {
          const tPIX_Colour& c = map[src[x]];
          dst[0] = c.blue, dst[1] = c.green, dst[2] = c.red;
        }
        break;
      // An odd last pixel has no pair: it is left as it is.
      case Kind::yuv: yuv(src, dst, width / 2); break;
      case Kind::yuv_table: lut(src, dst, width / 2, table); break;
    }
  }
};

// The row converter of the source's format, or the code reported.
uint32_t choose_row(const Image& src, const Image& dst, RowConverter& row) {
  using Kind = RowConverter::Kind;
  switch (src.format) {
    case PIX_Y8: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::y8, k::Direct::bgr24); break;
    case PIX_PALETTED:
    case PIX_RGB8:
      if (src.cmap == nullptr) return report(kWorker, code::bad_state, "Colourmap is NULL");
      row.kind = Kind::palette, row.map = src.cmap;
      break;
    // The 16-bit expansions keep the neighbouring channel's bits in the low
    // bits of green and red, as the other converters do.
    case PIX_RGB15: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::rgb15, k::Direct::bgr24); break;
    case PIX_RGB16: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::rgb16, k::Direct::bgr24); break;
    case PIX_RGB24: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::rgb24, k::Direct::bgr24); break;
    case PIX_BGR24: row.kind = Kind::copy; break;
    case PIX_RGBX32: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::rgbx32, k::Direct::bgr24); break;
    case PIX_BGRX32: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::bgrx32, k::Direct::bgr24); break;
    case PIX_XBGR32: row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::xbgr32, k::Direct::bgr24); break;
    case PIX_Y16:
      // A narrower sample has no 8-bit view by a right shift.
      if (src.data_width < 8) return report(kWorker, code::bad_image, "Data width must be > 7 for Y16");
      row.kind = Kind::direct, row.direct = k::direct_row(k::Direct::y16, k::Direct::bgr24);
      row.shift = std::min(src.data_width - 8u, 16u);
      break;
    case PIX_YUV422:
      if ((dst.flags & PIX_FLAG_USE_LUT) == 0) {
        row.kind = Kind::yuv, row.yuv = k::yuv422_row(k::YuvOut::bgr24);
      } else {
        // The table is built on first use, as the table-driven converters do.
        if (uint32_t r = convert::require_table(PIX_LUT_YUV422_TO_RGB16, 0); is_error(r)) return r;
        row.kind = Kind::yuv_table, row.lut = k::yuv_lut_row(k::LutOut::bgr24);
        row.table = convert::conversion_tables().of_type(PIX_LUT_YUV422_TO_RGB16).bytes.get();
      }
      break;
    default: return report(kWorker, code::unsupported, "Unsupported image type");
  }
  return 0;
}

uint32_t dib_1_strip(uint32_t in, uint32_t out) {
  Image* src = find_image(in);
  Image* dst = find_image(out);
  if (src == nullptr || dst == nullptr) return report(kWorker, kNoRecord);
  if (src->data == nullptr) return report(kWorker, code::bad_image, "No image data");
  RowConverter row;
  if (uint32_t r = choose_row(*src, *dst, row); is_error(r)) return r;
  // The destination must still be the description made from this source.
  const uint32_t pitch = dst->bytes_per_line;
  const uint64_t row_bytes = static_cast<uint64_t>(src->width) * 3;
  if (pitch == 0 || dst->width != src->width || pitch < row_bytes) {
    return report(kWorker, code::bad_image, "Corrupt image");
  }
  const uint32_t rows = src->lines_this_strip;
  PIX_image_free_data(out);
  // A few lines more, so that the header fits before the rows.
  const uint64_t lines = static_cast<uint64_t>(dst->lines_this_strip) + kHeaderBytes / pitch + 1;
  if (lines > std::numeric_limits<uint32_t>::max() || dst->lines_this_strip < rows) {
    return report(kWorker, with_detail(code::out_of_memory, lines * pitch));
  }
  dst->lines_this_strip = static_cast<uint32_t>(lines);
  const uint32_t r = PIX_image_malloc_a_strip(out);
  dst->lines_this_strip = dst->height;
  if (is_error(r)) return r;

  uint8_t* header = dst->data;
  std::memset(header, 0, kHeaderBytes);
  put32(header, kHeaderBytes);
  put32(header + 4, dst->width);
  put32(header + 8, dst->height);
  header[12] = 1;   // planes
  header[14] = 24;  // bits per pixel
  if (rows == 0) return 0;

  // Frame row y comes from source row source_row(y); the rows go bottom-up.
  const bool two_bytes = src->depth == 15 || src->depth == 16;
  const uint64_t in_step = static_cast<uint64_t>(src->width) * pixel_bytes(src->depth) +
                           (two_bytes ? src->skip_bytes & ~1u : src->skip_bytes);
  const bool fields = (src->format == PIX_Y8 || src->format == PIX_Y16 || src->format == PIX_YUV422) &&
                      (src->field_order == kFieldsFirstFirst || src->field_order == kFieldsSecondFirst);
  uint8_t* const last = dst->data + kHeaderBytes + static_cast<uint64_t>(rows - 1) * pitch;
  const auto convert_row = [&](uint64_t from, uint32_t y) {
    uint8_t* to = last - static_cast<uint64_t>(y) * pitch;
    row(src->data + from * in_step, to, src->width);
    std::memset(to + row_bytes, 0, static_cast<std::size_t>(pitch - row_bytes));
  };
  if (!fields) {
    for (uint32_t y = 0; y < rows; ++y) convert_row(y, y);
    return 0;
  }
  // Two fields one after the other, each half the lines: their rows are
  // interleaved.  An odd last row has no partner and is not written.
  const uint32_t half = rows / 2;
  const bool first_first = src->field_order == kFieldsFirstFirst;
  for (uint32_t pair = 0; pair < half; ++pair) {
    convert_row(first_first ? pair : half + pair, 2 * pair);
    convert_row(first_first ? half + pair : pair, 2 * pair + 1);
  }
  dst->field_order = 0;
  return 0;
}

uint32_t prepare(uint32_t in, uint32_t out, uint32_t flags) {
  if (uint32_t r = PIX_image_copy_parameters(in, out); is_error(r)) return r;
  if (uint32_t r = PIX_image_set_parameter(out, PIX_LINE_ALIGN, 4); is_error(r)) return r;
  if (uint32_t r = PIX_image_set_parameter(out, PIX_IMAGE_FORMAT, PIX_BGR24); is_error(r)) return r;
  PIX_image_set_flags(out, flags | PIX_FLAG_DIB, 1);
  return check_reported(out, kName);
}

uint32_t convert_to_dib(uint32_t in, uint32_t out, uint32_t flags, uint16_t command) {
  Image* src = find_image(in);
  Image* dst = find_image(out);
  if (src == nullptr || dst == nullptr) return report(kName, kNoRecord);
  if (uint32_t r = check_reported(in, kName); is_error(r)) return r;
  if (src->lines_this_strip == 0) {
    // A description only: what the bitmap will be, without data.
    if (uint32_t r = PIX_image_copy_parameters(in, out); is_error(r)) return r;
    PIX_image_set_flags(out, flags | PIX_FLAG_DIB, 1);
    return 0;
  }
  if (src->lines_this_strip != src->height) {
    return report(kName, code::unsupported, "Can only process full image - not strips");
  }
  if (src->format == PIX_BGR24 && (src->flags & PIX_FLAG_DIB) != 0) {
    const uint32_t r = PIX_image_copy(in, out);
    return is_error(r) ? r : 0;
  }
  if (!accepted(src->format)) {
    return report(kName, with_detail(code::unsupported, src->format), "Unsupported image format");
  }
  // The destination's strip is replaced before the source is read.
  if (src == dst) return report(kName, code::param_conflict, "Input and output must be different images");
  return transfer().run(
      kPlan, in, command, [&] { return prepare(in, out, flags); }, [&] { return dib_1_strip(in, out); },
      [&]() -> uint32_t {
        dst->lines_this_strip = src->lines_this_strip;
        return 0;
      });
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_convert_to_DIB_w31(uint32_t in, uint32_t out, uint32_t flags, uint16_t command) {
  return convert_to_dib(in, out, flags, command);
}

}  // extern "C"
