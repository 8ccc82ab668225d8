// General lookup tables: creation, table access, the brightness, contrast,
// gamma and gain generator, application to images, and destruction.
#include "general_lut.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "convert/kernels/tables.h"
#include "core/image.h"
#include "core/lines.h"
#include "core/status.h"

using namespace pix;
using namespace pix::convert;

namespace pix::convert {

GeneralLutTable& general_luts() noexcept {
  static GeneralLutTable table;
  return table;
}

}  // namespace pix::convert

namespace {

constexpr const char* kApply = "PIX_LUT_apply";
constexpr const char* kApplyWorker = "PIX_LUT_apply_1_strip";

// Channel codes as applications pass them: 8 grey, 4 red, 2 green, 1 blue.
int channel_index(uint16_t channel) {
  switch (channel) {
    case PIX_LUT_GREY: return 0;
    case PIX_LUT_RED: return 1;
    case PIX_LUT_GREEN: return 2;
    case PIX_LUT_BLUE: return 3;
    default: return -1;
  }
}

template <class T>
void fill_identity(std::vector<T>& table, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) table[i] = static_cast<T>(i);
}

// Entries 1..n-1 of the four tables for limited settings (brightness,
// contrast, gamma, red, green and blue gain).  The power n (i / n)^k is
// taken through logarithms in extended precision and rounded once to double,
// so that exact powers come out exact (k = 1 gives i itself) as they did on
// the x87 machines applications were tuned on; the rest is double arithmetic,
// one rounding a step.
template <class T>
void fill_curves(std::array<std::vector<T>, 4>& tables, uint32_t n, const std::array<uint16_t, 6>& s) {
  const double k = 100.0 / s[2];
  const double m = n / 2;
  const long double ln_n = std::log(static_cast<long double>(n));
  const double contrast = s[1] * 0.01, brightness = s[0] * 0.5;
  const double scale[4] = {1.0, (s[3] - 100) * 0.01 + 1, (s[4] - 100) * 0.01 + 1, (s[5] - 100) * 0.01 + 1};
  for (uint32_t i = 1; i < n; ++i) {
    const double t = static_cast<double>(std::exp(k * std::log(static_cast<long double>(i)) - (k - 1) * ln_n));
    const double spread = (t - m) * contrast;
    const double centred = m + spread;
    const double shifted = centred + brightness;
    const double v = shifted - 50;
    for (int c = 0; c < 4; ++c) {
      const double x = c == 0 ? v : v * scale[c];
      if constexpr (sizeof(T) == 1) {
        tables[c][i] = x < 0 ? T{0} : x > 255 ? T{255} : static_cast<T>(x);
      } else {
        tables[c][i] = x < 0 ? T{0} : std::trunc(x) >= n ? static_cast<T>(n - 1) : static_cast<T>(x);
      }
    }
  }
}

// The record's tables as the row kernels take them.
kernels::Tables8 tables8(const GeneralLut& lut) {
  return {lut.tables8[0].data(), lut.tables8[1].data(), lut.tables8[2].data(), lut.tables8[3].data()};
}

bool accepts(const GeneralLut& lut, uint16_t format) {
  if (lut.element_size == 2) return format == PIX_Y16;
  switch (format) {
    case PIX_YUV422:
    case PIX_Y8:
    case PIX_RGB24:
    case PIX_RGB16:
    case PIX_RGB15:
    case PIX_RGB8: return true;
    default: return false;
  }
}

uint32_t apply_worker(uint32_t in, uint32_t out, uint32_t lut) {
  const Image* src = find_image(in);
  // Applied in place (input and output the same image), the strip is mapped
  // where it lies instead of being read back from a freed buffer.
  if (in != out) {
    if (uint32_t r = stage::begin_worker(*src, out, kApplyWorker); is_error(r)) return r;
  } else if (src->data == nullptr) {
    return report(kApplyWorker, code::bad_image, "No image data");
  }
  const GeneralLut* record = general_luts().find(lut);
  if (record == nullptr) return report(kApplyWorker, code::bad_handle);  // destroyed between strips
  const Image* dst = find_image(out);
  const bool wide = record->element_size == 2;
  if (wide != (src->format == PIX_Y16)) {
    return report(kApplyWorker, with_detail(code::unsupported, 1), "Unsupported image type");
  }
  const kernels::Tables8 t = tables8(*record);
  const uint16_t* grey16 = record->tables16[0].data();
  using Row = void (*)(const uint8_t*, uint8_t*, std::size_t, const kernels::Tables8&) noexcept;
  Row row = nullptr;
  switch (src->format) {
    case PIX_Y8: row = kernels::lut_y8; break;
    case PIX_RGB24: row = kernels::lut_rgb24; break;
    case PIX_RGB15: row = kernels::lut_rgb15; break;
    case PIX_RGB16: row = kernels::lut_rgb16; break;
    case PIX_RGB8: row = kernels::lut_rgb8; break;
    case PIX_Y16: break;
    case PIX_YUV422: {
      const auto& s = record->settings;
      row = s[3] == 100 && s[4] == 100 && s[5] == 100 ? kernels::lut_yuv_grey : kernels::lut_yuv_rgb;
      break;
    }
    default: return report(kApplyWorker, with_detail(code::unsupported, 1), "Unsupported image type");
  }
  // The strip is one run of width * lines pixels (YUV: pairs), padding not
  // stepped over.
  const bool pairs = src->format == PIX_YUV422;
  const unsigned bytes = pairs ? 4 : std::max<uint32_t>(pixel_bytes(src->depth), 1);
  const uint32_t units = pairs ? src->width / 2 : src->width;
  const uint64_t step = uint64_t{units} * bytes;
  lines::map(lines::source(*src, step), bytes, lines::target(*dst, step), bytes, units,
             src->lines_this_strip, [&](const uint8_t* from, uint8_t* to, std::size_t n) {
               if (row != nullptr) row(from, to, n, t);
               else kernels::lut_y16(from, to, n, grey16);
             });
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_LUT_create(uint32_t entries, uint16_t element_size) {
  static constexpr const char* kName = "PIX_LUT_create";
  auto& table = general_luts();
  const uint32_t handle = table.free_handle(GeneralLutTable::kSlots - 1);
  if (handle == 0) return report(kName, code::max_handles);
  if (element_size == 1 && entries > 256) return report(kName, with_detail(code::bad_parameter, 1), "too many LUT elements");
  if (element_size == 2 && entries > 65536) return report(kName, with_detail(code::bad_parameter, 2), "too many LUT elements");
  if (element_size != 1 && element_size != 2) {
    return report(kName, with_detail(code::bad_parameter, 3), "element size must be 1 or 2 bytes");
  }
  try {
    auto lut = std::make_unique<GeneralLut>();
    lut->entries = entries;
    lut->element_size = element_size;
    for (int c = 0; c < 4; ++c) {
      if (element_size == 1) {
        lut->tables8[c].resize(std::max(entries, GeneralLut::kMinEntries8));
        fill_identity(lut->tables8[c], lut->tables8[c].size());
      } else {
        lut->tables16[c].resize(std::max(entries, GeneralLut::kMinEntries16));
        fill_identity(lut->tables16[c], lut->tables16[c].size());
      }
    }
    table.slots[handle] = std::move(lut);
  } catch (const std::bad_alloc&) {
    return report(kName, code::out_of_memory);
  }
  return handle;
}

PIX_API void* PIX_CALL PIX_LUT_get_ptr(uint32_t lut, uint16_t channel) {
  GeneralLut* record = general_luts().find(lut);
  const int c = channel_index(channel);
  if (record == nullptr || c < 0) return nullptr;
  if (record->element_size == 1) return record->tables8[c].data();
  return record->tables16[c].data();
}

PIX_API uint32_t PIX_CALL PIX_LUT_generate(uint32_t lut, int16_t brightness, int16_t contrast, int16_t gamma,
                                           int16_t red_gain, int16_t green_gain, int16_t blue_gain) {
  GeneralLut* record = general_luts().find(lut);
  if (record == nullptr) return report("PIX_LUT_generate", code::bad_handle);
  auto limit = [](int16_t v, int lo, int hi) { return static_cast<uint16_t>(std::clamp<int>(v, lo, hi)); };
  auto& s = record->settings;
  s = {limit(brightness, 0, 200), limit(contrast, 0, 200), limit(gamma, 25, 400),
       limit(red_gain, 0, 200),   limit(green_gain, 0, 200), limit(blue_gain, 0, 200)};
  const uint32_t n = record->entries;
  const bool neutral = std::all_of(s.begin(), s.end(), [](uint16_t v) { return v == 100; });
  for (int c = 0; c < 4; ++c) {
    if (record->element_size == 1) {
      if (neutral) fill_identity(record->tables8[c], n);
      else if (n > 0) record->tables8[c][0] = 0;
    } else {
      if (neutral) fill_identity(record->tables16[c], n);
      else if (n > 0) record->tables16[c][0] = 0;
    }
  }
  if (neutral) return 0;
  if (record->element_size == 1) fill_curves(record->tables8, n, s);
  else fill_curves(record->tables16, n, s);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_LUT_apply(uint32_t in, uint32_t out, uint32_t lut, uint16_t command) {
  // The output keeps the input's format (and its flags); an input without
  // lines is copied whole.  The table may be applied in place.
  static constexpr stage::Stage kStage{.name = kApply, .target = 0, .same = stage::Copy::none,
                                       .empty = stage::Copy::copy_then_0, .in_place = true};
  return stage::run(
      kStage, general_luts().apply, in, out, command,
      [lut](const Image& src) -> uint32_t {
        const GeneralLut* record = general_luts().find(lut);
        if (record == nullptr) return report(kApply, code::bad_handle);
        if (!accepts(*record, src.format)) {
          return report(kApply, with_detail(code::unsupported, src.format), "Unsupported image format");
        }
        return 0;
      },
      [&] { return apply_worker(in, out, lut); });
}

PIX_API uint32_t PIX_CALL PIX_LUT_destroy(uint32_t lut) {
  general_luts().destroy(lut);
  return 0;
}

}  // extern "C"
