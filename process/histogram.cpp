// Measurements of PIX_HSI images: histograms of the hue, saturation and
// intensity planes (made strip by strip, cleared, copied, smoothed and
// compared), and the mean hue, saturation and intensity.  The records belong
// to the caller; generation and averages are strip-wise on the shared
// strip protocol, with one image and no output image.
#include <cstdint>
#include <cstring>

#include "core/image.h"
#include "core/lifetime.h"
#include "core/lines.h"
#include "core/stage.h"
#include "core/status.h"
#include "process/kernels/filters.h"

using namespace pix;
namespace k = pix::process::kernels;

namespace {

// Library-wide: one run of each function at a time.  Destroying every image
// ends the runs.
struct HistogramState final : Releasable {
  stage::Progress generate, averages;
  void release() noexcept override { generate = averages = {}; }
};
HistogramState& histogram_state() noexcept {
  static HistogramState state;
  return state;
}

constexpr const char* kGenerate = "PIX_IP_histogram_generate";
constexpr const char* kGenerateWorker = "PIX_IP_histogram_generate_1_strip";
constexpr const char* kClear = "PIX_IP_histogram_clear";
constexpr const char* kCopy = "PIX_IP_histogram_copy";
constexpr const char* kFilter = "PIX_IP_histogram_filter";
constexpr const char* kMatch = "PIX_IP_histogram_match";
constexpr const char* kAverages = "PIX_IP_generate_averages";
constexpr const char* kAveragesWorker = "PIX_IP_generate_averages_1_strip";
constexpr const char* kNull = "Histogram structure is NULL";
constexpr const char* kNulls = "Histogram structure(s) is NULL";
constexpr uint32_t kTypeRefused = code::unsupported | 1u;
constexpr uint32_t kBadPlane = code::bad_parameter | 1u;
constexpr uint32_t kPlaneCorrupt = code::internal | 2u;
constexpr uint32_t kOutOfLimits = code::internal | 3u;
constexpr uint16_t kSmoothingOrder = 900;

// The record is its 875 counters, in the order applications index them.
static_assert(sizeof(tPIX_Histogram) == 875 * sizeof(uint32_t));

// One plane's bins and its total.
struct Plane {
  uint32_t* bins;
  std::size_t size;
  uint32_t* total;
};
Plane plane(tPIX_Histogram& h, unsigned p) {
  switch (p) {
    case 1:
      return {h.hue, k::kHueBins, &h.hue_total};
    case 2:
      return {h.saturation, k::kLevelBins, &h.saturation_total};
    default:
      return {h.intensity, k::kLevelBins, &h.intensity_total};
  }
}

// Sum of a plane's bins, wrapping at 32 bits as the record's counters do.
uint32_t plane_sum(const Plane& p) {
  uint32_t sum = 0;
  for (std::size_t i = 0; i < p.size; ++i) sum += p.bins[i];
  return sum;
}

// The image for a measurement: checked, an HSI image, holding lines.
// Gives 0 with `img` set, or the code reported (or 0 with `img` null when
// the image only describes itself and there is nothing to measure).
uint32_t measured_image(uint32_t handle, const char* function, Image*& img) {
  uint32_t result = 0;
  img = stage::checked_input(handle, function, result);
  if (img == nullptr) return result;
  if (img->format != PIX_HSI) {
    img = nullptr;
    return stage::unsupported_format(function);
  }
  return 0;
}

// Runs `row(line, pixels)` over every line the strip holds (lines stepped
// by the bytes per line, each cut to the pixels inside the buffer).
template <class Row>
uint32_t scan_hsi(const Image& img, const char* worker, Row&& row) {
  if (img.format != PIX_HSI) return report(worker, kTypeRefused, "Unsupported image type");
  if (img.data == nullptr) return report(worker, code::bad_image, "No image data");
  lines::scan(lines::source(img, lines::padded(img)), 4, img.width, img.lines_this_strip, row);
  return 0;
}

uint32_t generate_1_strip(const Image& img, tPIX_Histogram& h) {
  if (uint32_t r = scan_hsi(
          img, kGenerateWorker,
          [&](const uint8_t* s, std::size_t n) { k::hsi_histogram_row(s, n, h.hue, h.saturation, h.intensity); });
      is_error(r)) {
    return r;
  }
  // Kept: the totals add the whole planes after each strip, so the counts of
  // earlier strips are added again; applications calibrated against these
  // totals.
  for (unsigned p = 1; p <= 3; ++p) {
    const Plane pl = plane(h, p);
    *pl.total += plane_sum(pl);
  }
  return 0;
}

// Kept: each strip's sums are added to the quotient left by the strip
// before and divided by this strip's pixels alone, so only an image of one
// strip gets its true means; values wrap at 32 bits as the record's do.
uint32_t averages_1_strip(const Image& img, tPIX_Average& a) {
  k::HsiSums sums;
  if (uint32_t r =
          scan_hsi(img, kAveragesWorker, [&](const uint8_t* s, std::size_t n) { k::hsi_sums_row(s, n, sums); });
      is_error(r)) {
    return r;
  }
  a.hue += static_cast<uint32_t>(sums.hue);
  a.saturation += static_cast<uint32_t>(sums.saturation);
  a.intensity += static_cast<uint32_t>(sums.intensity);
  const uint64_t pixels = uint64_t{img.width} * img.lines_this_strip;
  // No pixels, nothing to divide by: the sums (of nothing) stay.
  if (pixels != 0) {
    a.hue = static_cast<uint32_t>(a.hue / pixels);
    a.saturation = static_cast<uint32_t>(a.saturation / pixels);
    a.intensity = static_cast<uint32_t>(a.intensity / pixels);
  }
  return 0;
}

// The strip step of a measurement of `handle`: `begin` on the first strip,
// `work` on each.
template <class Begin, class Work>
uint32_t measure(stage::Progress& progress, Image& img, uint16_t command, Begin&& begin, Work&& work) {
  if (uint32_t r = stage::start(progress, stage::kBusy, begin); is_error(r)) return r;
  return stage::advance(progress, img, command, work);
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_IP_histogram_generate(uint32_t handle, tPIX_Histogram* histogram, uint16_t command) {
  Image* img = nullptr;
  if (uint32_t r = measured_image(handle, kGenerate, img); img == nullptr) return r;
  if (histogram == nullptr) return report(kGenerate, code::bad_parameter, kNull);
  // An image without lines only describes itself: nothing to count.
  if (img->lines_this_strip == 0) return 0;
  return measure(
      histogram_state().generate, *img, command, [&] { return PIX_IP_histogram_clear(histogram); },
      [&] { return generate_1_strip(*img, *histogram); });
}

PIX_API uint32_t PIX_CALL PIX_IP_histogram_clear(tPIX_Histogram* histogram) {
  if (histogram == nullptr) return report(kClear, code::bad_parameter, kNull);
  *histogram = tPIX_Histogram{};
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_IP_histogram_copy(tPIX_Histogram* from, tPIX_Histogram* to) {
  if (from == nullptr || to == nullptr) return report(kCopy, code::bad_parameter, kNull);
  std::memmove(to, from, sizeof(tPIX_Histogram));
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_IP_histogram_filter(tPIX_Histogram* histogram, uint16_t order) {
  if (histogram == nullptr) return report(kFilter, code::bad_parameter, kNulls);
  if (order != kSmoothingOrder) return report(kFilter, code::unsupported, "Only 0th order currently supported");
  // Kept: the smoothed planes are built in a cleared record and copied back
  // whole, so the three totals come back as 0.
  tPIX_Histogram smoothed{};
  for (unsigned p = 1; p <= 3; ++p) {
    const Plane from = plane(*histogram, p), to = plane(smoothed, p);
    to.bins[0] = from.bins[0];
    to.bins[from.size - 1] = from.bins[from.size - 1];
    for (std::size_t i = 1; i + 1 < from.size; ++i) {
      to.bins[i] = (from.bins[i - 1] + 2 * from.bins[i] + from.bins[i + 1]) >> 2;
    }
  }
  *histogram = smoothed;
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_IP_histogram_match(tPIX_Histogram* first, tPIX_Histogram* second, uint16_t plane_id,
                                                 uint32_t* result) {
  if (first == nullptr || second == nullptr || result == nullptr) return report(kMatch, code::bad_parameter, kNulls);
  if (plane_id < 1 || plane_id > 3) return report(kMatch, kBadPlane, "Only planes 1,2 and 3 are acceptable");
  uint32_t mean = 0;
  switch (plane_id) {
    case 1:
      mean = first->hue_total / 360;
      break;
    case 2:
      mean = first->saturation_total >> 8;
      break;
    case 3:
      mean = first->intensity_total >> 8;
      break;
    default:  // the range test above lets no other plane through
      return report(kMatch, kPlaneCorrupt, "Histogram plane reference corrupt");
  }
  const Plane a = plane(*first, plane_id), b = plane(*second, plane_id);
  auto distance = [](uint32_t x, uint32_t y) { return x > y ? x - y : y - x; };
  // Kept: both sums and the percentage are 32-bit, as in the records, so
  // only counts far beyond any frame's can leave 0..100.
  uint32_t d = 0, e = 0;
  for (std::size_t i = 0; i < a.size; ++i) {
    d += distance(a.bins[i], mean);
    e += distance(a.bins[i], b.bins[i]);
  }
  if (d == 0 || e >= d) {
    *result = 0;
    return 0;
  }
  const auto scaled = static_cast<int32_t>(e * 4u * 25u);
  const int64_t value = 100 + (-int64_t{scaled}) / int64_t{static_cast<int32_t>(d)};
  if (value < 0 || value > 100) return report(kMatch, kOutOfLimits, "Result not within 0 to 100 limits");
  *result = static_cast<uint32_t>(value);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_IP_generate_averages(uint32_t handle, tPIX_Average* average, uint16_t command) {
  Image* img = nullptr;
  if (uint32_t r = measured_image(handle, kAverages, img); img == nullptr) return r;
  if (average == nullptr) return report(kAverages, code::bad_parameter, "tPIX_Average structure pointer is NULL");
  if (img->lines_this_strip == 0) return 0;
  return measure(
      histogram_state().averages, *img, command,
      [&] {
        *average = tPIX_Average{};
        return 0u;
      },
      [&] { return averages_1_strip(*img, *average); });
}

}  // extern "C"
