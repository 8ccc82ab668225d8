// Colour maps made from an image's histogram, and the conversions to
// paletted and 3-3-2 colour.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

#include "cmap.h"
#include "core/lines.h"
#include "core/stage.h"
#include "core/image.h"
#include "core/status.h"
#include "kernels/paletted.h"

using namespace pix;
using namespace pix::convert;
using stage::SameFormat;
using stage::unsupported_format;

namespace pix::convert {
PalettedState& paletted_state() noexcept {
  static PalettedState state;
  return state;
}
}  // namespace pix::convert

namespace {

constexpr uint32_t kNoEntry = 0xFFFFFFFF;  // a cell without a colour-map entry
constexpr uint32_t kMaxCellBits = 12;      // 4096 cells

constexpr const char* kGenerate = "PIX_cmap_generate";
constexpr const char* kGenerateWorker = "PIX_cmap_generate_1_strip";
constexpr const char* kHistogram = "histogram_to_cmap";
constexpr const char* kToPalettedWorker = "PIX_convert_to_paletted_1_strip";
constexpr const char* kRgb8Worker = "PIX_convert_to_RGB8_1_strip";
constexpr const char* kDitherWorker = "PIX_convert_to_RGB8_dither_1_strip";
constexpr const char* kTooManyBits = "more than 8 bits in one colour";
constexpr const char* kArrayOverflow = "Array size overflow";

constexpr stage::Stage kToPaletted{.name = "PIX_convert_to_paletted", .target = PIX_PALETTED};
constexpr stage::Stage kRgb8{.name = "PIX_convert_to_RGB8", .target = PIX_RGB8};
constexpr stage::Stage kDither{
    .name = "PIX_convert_to_RGB8_dither", .target = PIX_PALETTED, .same = SameFormat::none, .busy = 3};

kernels::CellBits cell_bits(const tPIX_Cmap_info& info) {
  return {info.red_bits, info.green_bits, info.blue_bits, info.grey_bits};
}
bool bits_fit(const kernels::CellBits& b) { return b.red <= 8 && b.green <= 8 && b.blue <= 8 && b.grey <= 8; }
// Bits of a cell index: red, green and blue for colour images, grey otherwise.
uint32_t index_bits(const kernels::CellBits& b, bool colour) {
  return colour ? uint32_t{b.red} + b.green + b.blue : uint32_t{b.grey};
}

// ---------------------------------------------------------------------------
// Colour-map generation
// ---------------------------------------------------------------------------

uint32_t start_generation(Image& img, uint16_t entries) {
  if (img.cmap_info == nullptr) img.cmap_info = PIX_cmap_create_info();
  if (img.cmap_info == nullptr) return report(kGenerate, code::out_of_memory, "cannot create cmap info structure");
  tPIX_Cmap_info& info = *img.cmap_info;
  info.entries_generated = static_cast<uint16_t>(entries - img.cmap_size);
  img.cmap_size = entries;
  const uint32_t bits = index_bits(cell_bits(info), img.format == PIX_RGB24);
  if (bits > kMaxCellBits) return report(kGenerate, code::internal, kArrayOverflow);
  info.cube_size = 1u << bits;
  for (uint32_t i = 0; i < info.cube_size; ++i) info.cells[i] = {i, 0, kNoEntry};
  return 0;
}

uint32_t generate_1_strip(Image& img) {
  if (img.data == nullptr) return report(kGenerateWorker, code::bad_image, "No image data");
  if (img.cmap_info == nullptr) return report(kGenerateWorker, code::bad_handle, "No cmap info structure");
  tPIX_Cmap_info& info = *img.cmap_info;
  const kernels::CellBits bits = cell_bits(info);
  if (!bits_fit(bits)) return report(kGenerateWorker, code::internal, kTooManyBits);
  const bool colour = img.format == PIX_RGB24;
  const uint32_t cell_count = 1u << std::min(index_bits(bits, colour), kMaxCellBits + 1);
  if (cell_count > PIX_CMAP_CELLS) return report(kGenerateWorker, code::internal, kArrayOverflow);

  std::array<uint32_t, PIX_CMAP_CELLS> counts{};
  const unsigned pixel_bytes = colour ? 3 : (img.format == PIX_Y16 ? 2 : 1);
  // Y8 and RGB24 lines step over one more byte at odd widths; Y16 lines do not.
  const lines::In strip = lines::source(
      img, img.format == PIX_Y16 ? lines::packed(img, pixel_bytes) : lines::odd_width(img, pixel_bytes));
  lines::scan(strip, pixel_bytes, img.width, img.lines_this_strip, [&](const uint8_t* line, std::size_t n) {
    if (colour) kernels::count_colour_cells(line, n, bits, counts.data());
    else if (img.format == PIX_Y16) kernels::count_y16_cells(line, n, img.data_width, bits.grey, counts.data());
    else kernels::count_grey_cells(line, n, bits.grey, counts.data());
  });
  for (uint32_t i = 0; i < cell_count; ++i) info.cells[i].occurrences += counts[i];
  return 0;
}

int by_count_descending(const void* a, const void* b) {
  const uint32_t ca = static_cast<const tPIX_Cmap_cell*>(a)->occurrences;
  const uint32_t cb = static_cast<const tPIX_Cmap_cell*>(b)->occurrences;
  return ca > cb ? -1 : (ca < cb ? 1 : 0);
}
int by_cube_index(const void* a, const void* b) {
  const uint32_t ia = static_cast<const tPIX_Cmap_cell*>(a)->cube_index;
  const uint32_t ib = static_cast<const tPIX_Cmap_cell*>(b)->cube_index;
  return ia < ib ? -1 : (ia > ib ? 1 : 0);
}

// The centre of a cell: the channel's bits of the index at the top of the
// byte, plus half a cell.
uint8_t cell_centre(uint32_t channel_index, uint32_t bits) {
  const uint32_t mask = (1u << bits) - 1;
  return static_cast<uint8_t>(((channel_index & mask) << (8 - bits)) + (128u >> bits));
}

// After the last strip: the most frequent cells become the entries appended
// to the map (in the order of the sort, largest count first; cells of equal
// count come in the order the sort leaves them).
uint32_t histogram_to_cmap(Image& img) {
  if (img.cmap_info == nullptr) return report(kHistogram, code::bad_handle, "No cmap info structure");
  if (img.cmap == nullptr) return report(kHistogram, code::bad_state, "Colourmap is NULL");
  tPIX_Cmap_info& info = *img.cmap_info;
  const kernels::CellBits bits = cell_bits(info);
  if (!bits_fit(bits)) return report(kHistogram, with_detail(code::internal, 1), kTooManyBits);
  const bool colour = img.format == PIX_RGB24;
  const std::size_t cells = std::min<uint32_t>(info.cube_size, PIX_CMAP_CELLS);
  const uint32_t first = static_cast<uint16_t>(img.cmap_size - info.entries_generated);  // the old map size
  const uint32_t last = std::min<uint32_t>(img.cmap_size, PIX_CMAP_ENTRIES);

  std::qsort(info.cells, cells, sizeof(tPIX_Cmap_cell), by_count_descending);
  uint64_t total = 0;
  for (uint32_t k = first; k < last && k - first < cells; ++k) {
    tPIX_Cmap_cell& cell = info.cells[k - first];
    tPIX_Colour& entry = img.cmap[k];
    if (colour) {
      entry.red = cell_centre(cell.cube_index >> (bits.green + bits.blue), bits.red);
      entry.green = cell_centre(cell.cube_index >> bits.blue, bits.green);
      entry.blue = cell_centre(cell.cube_index, bits.blue);
    } else {
      entry.red = entry.green = entry.blue = cell_centre(cell.cube_index, bits.grey);
    }
    cell.cmap_index = k;
    total += cell.occurrences;
  }
  uint32_t non_empty = 0;
  while (non_empty < cells && info.cells[non_empty].occurrences != 0) ++non_empty;
  info.non_empty_cells = non_empty;
  const uint64_t pixels = uint64_t{img.width} * img.height;
  info.coverage = static_cast<uint16_t>(pixels == 0 ? 0 : total * 100 / pixels);
  std::qsort(info.cells, cells, sizeof(tPIX_Cmap_cell), by_cube_index);

  for (uint32_t k = first + non_empty; k < last; ++k) img.cmap[k].red = img.cmap[k].green = img.cmap[k].blue = 0;
  return 0;
}

// ---------------------------------------------------------------------------
// Conversion to paletted form through the cells
// ---------------------------------------------------------------------------

uint32_t to_paletted_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kToPalettedWorker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  const tPIX_Cmap_info& info = *src.cmap_info;  // the outer function made sure of it
  const kernels::CellBits bits = cell_bits(info);
  const bool colour = src.format == PIX_RGB24;
  if (!colour && src.format != PIX_Y8) return unsupported_format(kToPalettedWorker);
  if (!bits_fit(bits)) return report(kToPalettedWorker, code::internal, kTooManyBits);
  if (index_bits(bits, colour) > kMaxCellBits) return report(kToPalettedWorker, code::internal, kArrayOverflow);

  // Each cell's entry once per strip; pixels of a cell without one take the
  // closest colour of the map (the cell itself is left as it is).
  std::array<uint8_t, 256> index_of_grey{};
  std::array<uint16_t, PIX_CMAP_CELLS> entry_of_cell{};
  if (colour) {
    for (uint32_t c = 0; c < (1u << index_bits(bits, true)); ++c) {
      const uint32_t e = info.cells[c].cmap_index;
      entry_of_cell[c] = e == kNoEntry ? kernels::kNoEntry : static_cast<uint16_t>(e & 0xFF);
    }
  } else {
    for (uint32_t y = 0; y < 256; ++y) {
      const uint32_t e = info.cells[y >> (8 - bits.grey)].cmap_index;
      const auto v = static_cast<uint8_t>(y);
      index_of_grey[y] = e == kNoEntry ? closest_colour(src.cmap, src.cmap_size, v, v, v) : static_cast<uint8_t>(e);
    }
  }
  const uint32_t used = src.cmap == nullptr ? 0 : std::min<uint32_t>(src.cmap_size, PIX_CMAP_ENTRIES);
  const unsigned pixel_bytes = colour ? 3 : 1;
  // Odd widths step over one byte more of input and output at each line end.
  lines::map(lines::source(src, lines::odd_width(src, pixel_bytes)), pixel_bytes,
             lines::target(dst, lines::odd_width(src, 1)), 1, src.width, src.lines_this_strip,
             [&](const uint8_t* s, uint8_t* d, std::size_t n) {
               if (colour) kernels::paletted_from_rgb24(s, d, n, bits, entry_of_cell.data(), src.cmap, used);
               else kernels::paletted_from_y8(s, d, n, index_of_grey.data());
             });
  return 0;
}

// ---------------------------------------------------------------------------
// 3-3-2 colour, plain and dithered
// ---------------------------------------------------------------------------

// Both 3-3-2 converters give their output the 256-entry cube map.
uint32_t give_cube_map(uint32_t out) {
  if (uint32_t r = PIX_image_set_parameter(out, PIX_CMAP_SIZE, PIX_CMAP_ENTRIES); is_error(r)) return r;
  return PIX_cmap_set_type(out, 3);
}

// Lines of `width` pixels stepping over each image's padding.
template <class Row>
void padded_lines(const Image& src, unsigned in_bytes, const Image& dst, Row&& row, lines::Rows rows = {}) {
  lines::map(lines::source(src, lines::padded(src)), in_bytes, lines::target(dst, lines::padded(dst)), 1, src.width,
             src.lines_this_strip, row, rows);
}

uint32_t rgb8_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kRgb8Worker); is_error(r)) return r;
  const Image& dst = *find_image(out);
  if (src.format == PIX_RGB24) padded_lines(src, 3, dst, kernels::rgb8_from_rgb24);
  else if (src.format == PIX_Y8) padded_lines(src, 1, dst, kernels::rgb8_from_y8);
  else return unsupported_format(kRgb8Worker);
  return 0;
}

uint32_t dither_1_strip(uint32_t in, uint32_t out) {
  const Image& src = *find_image(in);
  if (uint32_t r = stage::begin_worker(src, out, kDitherWorker); is_error(r)) return r;
  if (src.format != PIX_RGB24) return unsupported_format(kDitherWorker);
  // The dither's groups of three start afresh at every line.
  padded_lines(src, 3, *find_image(out), kernels::rgb8_dither_row, {.merge = false, .group = 3});
  return 0;
}

// A 3-3-2 converter: the usual skeleton, and the cube map on the output
// whenever the output is set up, described-only included.
template <class Accept, class Work>
uint32_t run_332(const stage::Stage& c, stage::Progress& progress, uint32_t in, uint32_t out, uint16_t command,
                 Accept&& accept, Work&& work) {
  const Image* src = find_image(in);
  const bool describes = src != nullptr && src->lines_this_strip == 0;
  const uint32_t result =
      stage::run(c, progress, in, out, command, accept, work, [out] { return give_cube_map(out); });
  if (is_error(result) || !describes) return result;
  return give_cube_map(out);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_cmap_generate(uint32_t handle, uint16_t entries, uint16_t command) {
  uint32_t result = 0;
  Image* img = stage::checked_input(handle, kGenerate, result);
  if (img == nullptr) return result;
  if (img->lines_this_strip == 0) return 0;
  if (img->format != PIX_RGB24 && img->format != PIX_Y16 && img->format != PIX_Y8) {
    return unsupported_format(kGenerate);
  }
  stage::Progress& progress = paletted_state().generate;
  if (uint32_t r = stage::start(progress, stage::kBusy, [&] { return start_generation(*img, entries); });
      is_error(r)) {
    return r;
  }
  // The map is made when the run ends, by its last strip or by command 4.
  return stage::advance(
      progress, *img, command, [img] { return generate_1_strip(*img); }, stage::Nothing{},
      [img] { return histogram_to_cmap(*img); });
}

PIX_API uint32_t PIX_CALL PIX_convert_to_paletted(uint32_t in, uint32_t out, uint16_t command) {
  return stage::run(
      kToPaletted, paletted_state().to_paletted, in, out, command,
      [](const Image& src) -> uint32_t {
        if (src.format != PIX_RGB24 && src.format != PIX_Y8) return unsupported_format(kToPaletted.name);
        if (src.cmap_info == nullptr) {
          return report(kToPaletted.name, code::incompatible, "PIX_cmap_generate must be called first");
        }
        return 0;
      },
      [in, out] { return to_paletted_1_strip(in, out); });
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGB8(uint32_t in, uint32_t out, uint16_t command) {
  return run_332(
      kRgb8, paletted_state().rgb8, in, out, command,
      [](const Image& src) -> uint32_t {
        return src.format == PIX_RGB24 || src.format == PIX_Y8 ? 0 : unsupported_format(kRgb8.name);
      },
      [in, out] { return rgb8_1_strip(in, out); });
}

PIX_API uint32_t PIX_CALL PIX_convert_to_RGB8_dither(uint32_t in, uint32_t out, uint16_t command) {
  return run_332(
      kDither, paletted_state().dither, in, out, command,
      [](const Image& src) -> uint32_t { return src.format == PIX_RGB24 ? 0 : unsupported_format(kDither.name); },
      [in, out] { return dither_1_strip(in, out); });
}

}  // extern "C"
