// Chroma keying: the sixteen key colours, the keyer (hard or soft edges,
// flat colour or background) and the calibration that measures the hue of
// a bare key screen.  Both strip-wise functions run on the shared strip
// driver; the per-pair work is in process/kernels/chroma_key.
#include <algorithm>
#include <array>
#include <cstdint>

#include "convert/pixel_math.h"
#include "core/image.h"
#include "core/lifetime.h"
#include "core/stage.h"
#include "core/status.h"
#include "process/chroma_key.h"
#include "process/hue_table.h"
#include "process/kernels/chroma_key.h"

using namespace pix;
using namespace pix::process;
namespace k = pix::process::kernels;

namespace {

constexpr const char* kKey = "PIX_CK_chroma_key";
constexpr const char* kKeyWorker = "PIX_CK_chroma_key_1_strip";
constexpr const char* kCalibrate = "PIX_CK_calibrate";
constexpr const char* kNotYuv = "Not YUV 4:2:2 image format";

constexpr uint16_t kHardEdges = 0;
constexpr uint16_t kSoftEdges = 1;

// Library-wide: one keying run and one calibration at a time.  Destroying
// every image ends both runs.
struct ChromaKeyState final : Releasable {
  stage::Progress key, calibrate;
  double hue_sum = 0, luma_sum = 0;  // the luma sum is measured but nothing uses it
  // The hue bounds as (U, V) bits and as a sector for the vector kernels,
  // built for the last bounds keyed with.  The hue table's entries never
  // change (every generation computes the same hues), so the bounds alone
  // name the bits and the sector.
  std::array<uint8_t, k::kKeyedUvBytes> keyed_uv{};
  k::HueArc arc{};
  bool has_arc = false;
  int16_t keyed_lo = 0, keyed_hi = 0;
  bool keyed_built = false;

  void release() noexcept override {
    key = calibrate = {};
    hue_sum = luma_sum = 0;
    keyed_built = false;
  }
  void hue_half(k::KeySettings& s) {
    if (!keyed_built || s.range.hue_lo != keyed_lo || s.range.hue_hi != keyed_hi) {
      k::build_keyed_uv(s.hue, s.range, keyed_uv.data());
      has_arc = k::build_hue_arc(s.hue, s.range, arc);
      keyed_lo = s.range.hue_lo, keyed_hi = s.range.hue_hi, keyed_built = true;
    }
    s.keyed_uv = keyed_uv.data();
    s.arc = has_arc ? &arc : nullptr;
  }
};
ChromaKeyState& chroma_key_state() noexcept {
  static ChromaKeyState state;
  return state;
}

// The key colours by code, as R, G, B: black, the six colours at 152 and
// at full intensity, two greys and white.
constexpr std::array<convert::Yuv, 16> kKeyColours = [] {
  constexpr int rgb[16][3] = {{0, 0, 0},     {0, 0, 152},     {0, 152, 0},     {0, 152, 152},
                              {152, 0, 0},   {152, 0, 152},   {152, 152, 0},   {152, 152, 152},
                              {76, 76, 76},  {0, 0, 255},     {0, 255, 0},     {0, 255, 255},
                              {255, 0, 0},   {255, 0, 255},   {255, 255, 0},   {255, 255, 255}};
  std::array<convert::Yuv, 16> yuv{};
  for (int i = 0; i < 16; ++i) yuv[i] = convert::rgb_to_yuv(rgb[i][0], rgb[i][1], rgb[i][2]);
  return yuv;
}();

uint32_t accept_yuv422(const Image& img, const char* function) {
  return img.format == PIX_YUV422 ? 0 : report(function, with_detail(code::unsupported, img.format), kNotYuv);
}

// The key range of an object, in 16-bit signed arithmetic as it always was:
// a centre or half-width from 32768 up counts negative, and a sum that
// leaves 16 bits wraps before the clamp.  Kept: stored key settings give
// the same ranges.
int16_t clamped(int32_t value, int16_t high) {
  const auto v = static_cast<int16_t>(value);
  return v < 0 ? int16_t{0} : std::min(v, high);
}
k::KeyRange key_range(const ChromaKey& ck) {
  const auto s = [](uint16_t v) { return int32_t{static_cast<int16_t>(v)}; };
  return {clamped(s(ck.luma_centre) - s(ck.luma_half_width), 255),
          clamped(s(ck.luma_centre) + s(ck.luma_half_width), 255),
          clamped(s(ck.hue_centre) - s(ck.hue_half_width), 359), clamped(s(ck.hue_centre) + s(ck.hue_half_width), 359)};
}

// Keying walks each strip as one run of width / 2 pairs a line, lines one
// after the other with no padding stepped over, as the keyer always has:
// the pair before a line's first pair is the previous line's last.
uint64_t pairs_in(const Image& img) { return uint64_t{img.width / 2} * img.lines_this_strip; }

// The background is read at the source's offsets: it must be a YUV 4:2:2
// image of the source's size whose strip holds at least the lines keyed,
// and not the output, whose strip is replaced before anything is read.
uint32_t check_background(const Image& src, uint32_t background, uint32_t out, uint64_t pairs) {
  if (uint32_t r = check_reported(background, kKeyWorker); is_error(r)) return r;
  const Image& bg = *find_image(background);
  if (uint32_t r = accept_yuv422(bg, kKeyWorker); is_error(r)) return r;
  if (find_image(out) == &bg) {
    return report(kKeyWorker, code::param_conflict, "Background and output must be different images");
  }
  if (bg.data == nullptr) return report(kKeyWorker, code::bad_image, "No image data");
  if (bg.width != src.width || bg.height != src.height || bg.lines_this_strip < src.lines_this_strip ||
      strip_bytes(bg) / 4 < pairs) {
    return report(kKeyWorker, code::bad_image, "Background does not match the source image");
  }
  return 0;
}

uint32_t key_1_strip(uint32_t in, uint32_t out, uint32_t background, uint16_t colour, uint32_t chroma_key,
                     uint16_t edge_mode) {
  const Image& src = *find_image(in);
  const ChromaKey* ck = chroma_keys().find(chroma_key);
  if (ck == nullptr) return report(kKeyWorker, code::bad_handle);
  // Never past the source's strip (a record changed between two strips).
  const uint64_t pairs = std::min(pairs_in(src), strip_bytes(src) / 4);
  if (background != 0) {
    if (uint32_t r = check_background(src, background, out, pairs); is_error(r)) return r;
  }
  if (uint32_t r = stage::begin_worker(src, out, kKeyWorker); is_error(r)) return r;
  // Built at set-up; rebuilt here only if it was destroyed during the run.
  if (uint32_t r = ensure_hue_table(); is_error(r)) return r;
  // Kept: an unknown colour is reported, and keying goes on with the bytes
  // of the code that came back (Y 0, U 0, V 0x17).
  const uint32_t yuv = PIX_CK_get_YUV_values(colour);
  k::KeySettings settings{key_range(*ck), hue_table(),
                          {static_cast<uint8_t>(yuv), static_cast<uint8_t>(yuv >> 8), static_cast<uint8_t>(yuv >> 16)}};
  const Image& dst = *find_image(out);
  const uint64_t n = std::min(pairs, strip_bytes(dst) / 4);
  if (n == 0 || dst.data == nullptr) return 0;
  const uint8_t* bg = background != 0 ? find_image(background)->data : nullptr;
  if (edge_mode == kHardEdges || edge_mode == kSoftEdges) {
    chroma_key_state().hue_half(settings);
  }
  const k::KeyKernels& rows = k::key_kernels();
  k::KeyCarry carry;  // no pair before the strip counts as keyed
  switch (edge_mode) {
    case kHardEdges:
      rows.hard(src.data, bg, dst.data, static_cast<std::size_t>(n), settings, carry);
      break;
    case kSoftEdges: {
      // The first line of each strip is keyed with hard edges (its pairs
      // before have gone with the previous strip), yet it sets the flag the
      // next line starts from; the flag is not reset at line ends.
      const uint64_t first = std::min<uint64_t>(src.width / 2, n);
      rows.hard(src.data, bg, dst.data, static_cast<std::size_t>(first), settings, carry);
      rows.soft(src.data + 4 * first, bg != nullptr ? bg + 4 * first : nullptr, dst.data + 4 * first,
                      static_cast<std::size_t>(n - first), settings, carry);
      break;
    }
    default:
      // Kept: any other edge mode leaves the fresh strip as it was allocated.
      break;
  }
  return 0;
}

// The divisor of the calibration sums: one pair per line short of the
// pairs a line gives (kept: stored key settings were measured with it).
int64_t calibration_divisor(const Image& img) {
  return ((int64_t{img.width} - 8) >> 1) * int64_t{img.height};
}

// One strip of a calibration: pair counters 2 to P - 2 of each line take
// the next pair from a read position that starts at the strip's first byte
// and moves only when a pair is taken, so the reads drift left of the
// counted columns line by line (kept: stored key settings were measured
// so).  The last strip sets the object.
uint32_t calibrate_1_strip(const Image& src, uint32_t chroma_key, bool last) {
  ChromaKeyState& state = chroma_key_state();
  if (src.data == nullptr) return report(kCalibrate, code::bad_image, "No image data");
  if (uint32_t r = ensure_hue_table(); is_error(r)) return r;
  const uint64_t per_line = src.width / 2 >= 3 ? src.width / 2 - 3 : 0;
  const uint64_t taken = std::min(per_line * src.lines_this_strip, strip_bytes(src) / 4);
  const int64_t divisor = calibration_divisor(src);
  // Widths 8 and 9 take a pair per line but divide by zero.
  if (taken != 0 && divisor <= 0) return report(kCalibrate, code::out_of_range, "Hue out of range");
  k::add_hue_and_luma(src.data, static_cast<std::size_t>(taken), hue_table(), static_cast<double>(divisor),
                      state.hue_sum, state.luma_sum);
  if (!last) return 0;
  ChromaKey* ck = chroma_keys().find(chroma_key);
  if (ck == nullptr) return report(kCalibrate, code::bad_handle);
  const double centre = state.hue_sum + 0.5;
  // Cannot pass 719 unless the record changed during the run.
  if (!(centre < 65536.0)) return report(kCalibrate, code::out_of_range, "Hue out of range");
  ck->hue_centre = static_cast<uint16_t>(centre);
  ck->hue_half_width = 20;
  ck->luma_centre = 20;
  ck->luma_half_width = 64;
  return 0;
}

}  // namespace

extern "C" {

PIX_API uint32_t PIX_CALL PIX_CK_get_YUV_values(uint16_t colour) {
  if (colour >= kKeyColours.size()) return report("PIX_CK_get_YUV_values", code::unrecognised, "Unrecognized colour");
  return convert::pack_yuv(kKeyColours[colour]);
}

PIX_API uint32_t PIX_CALL PIX_CK_get_component(uint16_t colour, uint16_t component) {
  const uint32_t yuv = PIX_CK_get_YUV_values(colour);
  switch (component) {
    case PIX_CK_COMPONENT_Y: return yuv & 0xFF;
    case PIX_CK_COMPONENT_U: return (yuv >> 8) & 0xFF;
    case PIX_CK_COMPONENT_V: return (yuv >> 16) & 0xFF;
    default: return 0;
  }
}

PIX_API uint32_t PIX_CALL PIX_CK_chroma_key(uint32_t in, uint32_t out, uint32_t background, uint16_t colour,
                                            uint32_t chroma_key, uint16_t edge_mode, uint16_t command) {
  uint32_t result = 0;
  const Image* src = stage::checked_input(in, kKey, result);
  if (src == nullptr) return result;
  if (uint32_t r = accept_yuv422(*src, kKey); is_error(r)) return r;
  if (src->lines_this_strip == 0) return stage::describe_output(in, out, 0);
  if (find_image(out) == src) return report(kKey, code::param_conflict, "Input and output must be different images");
  return stage::run_strips(
      chroma_key_state().key, kKey, stage::kBusy, in, out, command,
      [&]() -> uint32_t {
        if (uint32_t r = stage::set_up_output(in, out, PIX_YUV422, kKey); is_error(r)) return r;
        return ensure_hue_table();
      },
      [&] { return key_1_strip(in, out, background, colour, chroma_key, edge_mode); });
}

PIX_API uint32_t PIX_CALL PIX_CK_calibrate(uint32_t in, uint32_t chroma_key, uint16_t command) {
  ChromaKeyState& state = chroma_key_state();
  uint32_t result = 0;
  Image* src = stage::checked_input(in, kCalibrate, result);
  if (src == nullptr) return result;
  if (uint32_t r = accept_yuv422(*src, kCalibrate); is_error(r)) return r;
  if (src->lines_this_strip == 0) return 0;
  if (uint32_t r = stage::start(state.calibrate, stage::kBusy,
                                [&] {
                                  state.hue_sum = state.luma_sum = 0;
                                  return ensure_hue_table();
                                });
      is_error(r)) {
    return r;
  }
  return stage::advance(state.calibrate, *src, command, [&] {
    // The driver has cut the last strip to the lines that remain.
    const bool last = uint64_t{state.calibrate.lines_done} + src->lines_this_strip >= src->height;
    return calibrate_1_strip(*src, chroma_key, last);
  });
}

}  // extern "C"
