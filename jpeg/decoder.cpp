// The JPEG decoder: PIX_JPEG_decompress and its stages.
//
// The stages (Huffman decoding, DC prediction and de-zig-zag, the inverse
// DCT, block to raster) keep their names for reports, but the working images
// between them are not made: the Huffman pass fills a compact store of the
// whole image's coefficients at the first strip, and each strip then runs
// prediction, dequantisation, the inverse DCT and placing block by block, an
// MCU row at a time, so that the samples stay in cache until they land.
// Where a working image was checked, its description is checked instead.
#include "decoder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "convert/kernels/yuv.h"
#include "convert/yuv.h"
#include "core/image.h"
#include "core/lines.h"
#include "core/status.h"
#include "huffman.h"
#include "jpeg/kernels/idct.h"
#include "jpeg_state.h"
#include "tables.h"

namespace pix::jpeg {

void DecoderState::drop_coefficients() noexcept {
  coefficients.reset();
  capacity = decoded = cursor_block = cursor_at = 0;
}

// The natural bit of each zig-zag position (kZigZag is constant-initialised).
static const std::array<uint64_t, 64> kBit = [] {
  std::array<uint64_t, 64> bit{};
  for (std::size_t k = 0; k < 64; ++k) bit[k] = uint64_t{1} << kZigZag[k];
  return bit;
}();

uint64_t DecoderState::expand(uint64_t b, int16_t* out) noexcept {
  // Copied rather than set: a fixed-size copy becomes a few vector stores,
  // where a memset of 128 bytes may become a slow string instruction.
  alignas(16) static constexpr int16_t kZeros[64] = {};
  std::memcpy(out, kZeros, sizeof kZeros);
  if (b >= decoded) return 0;
  const uint64_t* maps = nonzero();
  if (b != cursor_block) {
    cursor_at = 0;
    for (uint64_t i = 0; i < b; ++i) cursor_at += 1 + static_cast<uint64_t>(std::popcount(maps[i]));
  }
  const int16_t* term = coefficients.get() + cursor_at;
  uint64_t natural = 0;
  out[0] = *term++;
  for (uint64_t map = maps[b]; map != 0; map &= map - 1) {
    const auto k = static_cast<unsigned>(std::countr_zero(map));
    out[kZigZag[k]] = *term++;
    natural |= kBit[k];
  }
  cursor_block = b + 1;
  cursor_at = static_cast<uint64_t>(term - coefficients.get());
  return natural;
}

void DecoderState::release() noexcept {
  drop_coefficients();
  destuffed = {};
  progress = {};
  predictor = {};
  next_block = 0;
  bit_buffer = 0;
}

DecoderState& decoder_state() noexcept {
  static DecoderState state;
  return state;
}

}  // namespace pix::jpeg

using namespace pix;
using namespace pix::jpeg;

namespace {

constexpr const char* kName = "PIX_JPEG_decompress";
constexpr const char* kStrip = "PIX_JPEG_decompress_1_strip";
constexpr const char* kIzz = "PIX_JPEG_izz_1_strip";
constexpr const char* kToRgb24 = "PIX_YUV422_to_RGB24";

// What a fresh image's colour map holds, for a source without one.
const tPIX_Colour* fresh_colour_map() {
  static const auto map = [] {
    std::array<tPIX_Colour, PIX_CMAP_ENTRIES> m;
    std::memset(m.data(), 0xAA, sizeof m);
    return m;
  }();
  return map.data();
}

// PIX_image_copy_parameters from a working description, which has a colour
// map but no JPEG record.
uint32_t describe(const Image& from, Image& to) {
  to.format = from.format;
  to.data_width = from.data_width;
  copy_name(to.name, from.name);
  copy_name(to.in_filename, from.in_filename);
  copy_name(to.out_filename, from.out_filename);
  to.width = from.width;
  to.height = from.height;
  to.depth = from.depth;
  to.line_align = from.line_align;
  to.out_line_align = from.out_line_align;
  to.skip_bytes = from.skip_bytes;
  to.num_frames = from.num_frames;
  to.start_frame = from.start_frame;
  // The flags come along, but not the lock: whether the buffer is the
  // caller's is the destination's own affair (a locked frame buffer is
  // written in place, never freed).
  to.flags = (from.flags & ~PIX_FLAG_LOCKED) | (to.flags & PIX_FLAG_LOCKED);
  to.cmap_size = from.cmap_size;
  if (from.cmap != nullptr && to.cmap != nullptr && from.cmap != to.cmap) {
    const int used = std::min<int>(from.cmap_size, PIX_CMAP_ENTRIES);
    for (int i = 0; i < used; ++i) {
      to.cmap[i].red = from.cmap[i].red;
      to.cmap[i].green = from.cmap[i].green;
      to.cmap[i].blue = from.cmap[i].blue;
    }
  }
  if (from.cmap_info != nullptr && from.cmap_info != to.cmap_info) {
    if (to.cmap_info == nullptr) to.cmap_info = PIX_cmap_create_info();
    if (to.cmap_info == nullptr) return report("PIX_cmap_copy", code::out_of_memory, "cannot create cmap info structure");
    *to.cmap_info = *from.cmap_info;
  }
  to.field_order = from.field_order;
  to.lines_this_strip = from.lines_this_strip;
  to.bytes_per_line = from.bytes_per_line;
  return 0;
}

// A working description's format, as PIX_image_set_parameter sets it.
void set_working_format(Image& img, uint16_t format) {
  img.format = format;
  img.depth = format == PIX_YUV422 ? 16 : 32;
  img.flags &= ~PIX_FLAG_DIB;
}

// The first working description: the source's parameters with a stage's
// format.  It borrows the source's colour map and its information (the
// working image would hold copies of them).
Image working_description(const Image& src, uint16_t format) {
  Image w{};
  w.line_align = 2;
  w.start_frame = 1;
  w.cmap = const_cast<tPIX_Colour*>(src.cmap != nullptr ? src.cmap : fresh_colour_map());
  describe(src, w);  // cannot fail: the information is borrowed, not copied
  w.cmap_info = src.cmap_info;
  set_working_format(w, format);
  return w;
}

uint32_t round_up(uint32_t v, uint32_t unit) { return (v + unit - 1) & ~(unit - 1); }  // wraps as 32-bit words do

// The first strip pads the source's geometry for good: whole MCUs across,
// whole blocks down.
void pad_geometry(Image& src) {
  src.width = round_up(src.width, src.format == PIX_YUV422 || src.format == PIX_JPEG ? 16 : 8);
  const bool whole = src.lines_this_strip >= src.height;
  src.height = round_up(src.height, 8);
  src.lines_this_strip = whole ? src.height : round_up(src.lines_this_strip, 8);
}

// Samples of decoded MCU rows go to `lines` of `stride` bytes, `size` bytes in all.
struct Raster {
  uint8_t* data;
  uint64_t size;
  uint64_t stride;
};

// Prediction, dequantisation, inverse DCT and placing, an MCU row at a time,
// from the next block of the store on.
class StripDecoder {
 public:
  StripDecoder(DecoderState& st, Layout layout, uint32_t width)
      : st_(st), layout_(layout), s_(shape(layout)), columns_(width / s_.mcu_width),
        row_bytes_(columns_ * (layout == Layout::grey ? 8 : 32)) {}

  uint32_t mcu_height() const { return s_.mcu_height; }
  uint64_t row_bytes() const { return row_bytes_; }

  // MCU rows consumed without samples: the predictors and the read position
  // move on as if they had been decoded.
  void skip(uint64_t rows) {
    uint64_t unused;
    for (uint64_t n = rows * columns_ * s_.blocks, b = 0; b < n; ++b) predict(s_.component[b % s_.blocks], next(unused));
  }

  // One MCU row into `r`, starting at its line `line`.
  void row(const Raster& r, uint64_t line) {
    const uint64_t at = line * r.stride;
    const uint64_t need = (s_.mcu_height - 1) * r.stride + row_bytes_;
    if (r.stride >= row_bytes_ && at <= r.size && need <= r.size - at) {
      row_into(r.data + at, static_cast<std::ptrdiff_t>(r.stride));
      return;
    }
    // A buffer shorter than its description says: decode aside, keep what fits.
    spare_.resize(static_cast<std::size_t>(s_.mcu_height * row_bytes_));
    row_into(spare_.data(), static_cast<std::ptrdiff_t>(row_bytes_));
    for (uint32_t y = 0; y < s_.mcu_height; ++y) {
      const uint64_t to = (line + y) * r.stride;
      if (to >= r.size) break;
      std::memcpy(r.data + to, spare_.data() + y * row_bytes_, static_cast<std::size_t>(std::min(row_bytes_, r.size - to)));
    }
  }

 private:
  // The next block of the store, expanded; blocks the Huffman pass did not
  // reach are zeros.  The block stays put until kHeld - 1 more have been
  // taken: the inverse DCT holds an MCU's blocks, or a run of grey blocks,
  // together.
  const int16_t* next(uint64_t& nonzero) {
    int16_t* c = terms_[turn_].data();
    turn_ = turn_ + 1 == terms_.size() ? 0 : turn_ + 1;
    nonzero = st_.expand(st_.next_block++, c);
    return c;
  }

  // The component's predictor plus the block's difference, 32-bit wrapping.
  int32_t predict(uint8_t component, const int16_t* c) {
    int32_t& p = st_.predictor[component];
    p = static_cast<int32_t>(static_cast<uint32_t>(p) + static_cast<uint32_t>(c[0]));
    return p;
  }

  // The next block with its predicted DC.
  kernels::BlockIn take(uint8_t component) {
    uint64_t nonzero;
    const int16_t* c = next(nonzero);
    return {c, predict(component, c), nonzero};
  }

  void row_into(uint8_t* dst, std::ptrdiff_t stride) {
    const kernels::IdctKernels& k = kernels::idct_kernels();
    const uint16_t* qy = st_.quant[0].data();
    const uint16_t* qc = st_.quant[1].data();
    kernels::BlockIn in[kHeld];
    switch (layout_) {
      case Layout::grey:
        for (uint64_t col = 0; col < columns_;) {
          const auto n = static_cast<std::size_t>(std::min<uint64_t>(kHeld, columns_ - col));
          for (std::size_t i = 0; i < n; ++i) in[i] = take(0);
          k.grey(in, n, qy, dst + col * 8, stride);
          col += n;
        }
        break;
      case Layout::yuv422:
        for (uint64_t col = 0; col < columns_; ++col) {
          for (int i = 0; i < 4; ++i) in[i] = take(s_.component[i]);
          k.yuv422(in, qy, qc, dst + col * 32, stride);
        }
        break;
      case Layout::yuv411:
        for (uint64_t col = 0; col < columns_; ++col) {
          for (int i = 0; i < 6; ++i) in[i] = take(s_.component[i]);
          k.yuv411(in, qy, qc, dst + col * 32, stride);
        }
        break;
    }
  }

  DecoderState& st_;
  Layout layout_;
  const LayoutShape& s_;
  uint64_t columns_;
  uint64_t row_bytes_;
  std::vector<uint8_t> spare_;
  static constexpr std::size_t kHeld = 16;  // the longest run row_into takes at once
  alignas(64) std::array<std::array<int16_t, 64>, kHeld> terms_{};
  unsigned turn_ = 0;
};

// The Huffman stage: the whole image at the first strip into the store.
uint32_t huffman_stage(DecoderState& st, Tjpeg& record, const Image& w, Layout layout) {
  const LayoutShape& s = shape(layout);
  const uint64_t rows = w.height / s.mcu_height, columns = w.width / s.mcu_width;
  const uint64_t blocks = rows * columns * s.blocks;
  // The working image's buffer would have held the whole height at its own
  // line length; that size decides what is refused and what a refusal says.
  const uint64_t whole = static_cast<uint64_t>(w.height) * w.bytes_per_line;
  if (whole > 0xFFFFFFFFull) return report("PIX_image_malloc_a_strip", with_detail(code::out_of_memory, whole));
  if (st.capacity < blocks) {
    st.drop_coefficients();
    st.coefficients.reset(static_cast<int16_t*>(memory::allocate(static_cast<std::size_t>(blocks * (128 + 8)))));
    if (st.coefficients == nullptr) return report("PIX_image_malloc_a_strip", with_detail(code::out_of_memory, whole));
    st.capacity = blocks;
  }
  st.cursor_block = st.cursor_at = 0;
  record.position = record.data;
  uint64_t length = record.length;
  if (const std::size_t capacity = capacity_of(record); capacity != 0) length = std::min<uint64_t>(length, capacity);
  const HuffmanJob job{record.data, length, layout, columns, rows, st.coefficients.get(), st.nonzero()};
  return decode_huffman(job, st.decoded, st.bit_buffer, st.destuffed);
}

// Block to raster straight into the destination (Y8, or YUV 4:2:2 wanted as such).
uint32_t to_destination(StripDecoder& d, const Image& w, uint32_t dest, uint16_t format) {
  const uint64_t rows = w.lines_this_strip / d.mcu_height();
  Image& dst = *find_image(dest);
  uint32_t r = describe(w, dst);
  if (!is_error(r)) r = PIX_image_set_parameter(dest, PIX_IMAGE_FORMAT, format);
  if (!is_error(r)) r = check_reported(dest, kStrip);
  if (!is_error(r)) {
    PIX_image_free_data(dest);
    r = PIX_image_malloc_a_strip(dest);
  }
  if (is_error(r)) {
    d.skip(rows);  // the stages before this one have run
    return r;
  }
  const Raster out{dst.data, strip_bytes(dst), dst.bytes_per_line};
  for (uint64_t row = 0; row < rows; ++row) d.row(out, row * d.mcu_height());
  // Lines short of a whole MCU row get no samples; they are cleared.
  const uint64_t from = std::min(rows * d.mcu_height() * out.stride, out.size);
  const uint64_t to = std::min(static_cast<uint64_t>(w.lines_this_strip) * out.stride, out.size);
  if (to > from) std::memset(out.data + from, 0, static_cast<std::size_t>(to - from));
  return 0;
}

// RGB24 output: block to raster into YUV 4:2:2 lines, which then go through
// PIX_YUV422_to_RGB24's protocol (its progress, set-up and worker) into the
// destination.  While each MCU row still is in cache it is converted, when
// the destination's strip is laid out as the converter would walk it.
uint32_t to_rgb24(StripDecoder& d, const Image& w, uint32_t dest) {
  const uint64_t rows = w.lines_this_strip / d.mcu_height();
  Image y = w;
  set_working_format(y, PIX_YUV422);
  if (uint32_t r = check_record(y); is_error(r)) {
    d.skip(rows);
    return report(kStrip, r, "Corrupt image");
  }
  Image& dst = *find_image(dest);
  const auto describe_dest = [&]() -> uint32_t {
    if (uint32_t r = describe(y, dst); is_error(r)) return r;
    return PIX_image_set_parameter(dest, PIX_IMAGE_FORMAT, PIX_RGB24);
  };
  if (y.lines_this_strip == 0) {  // the converter only describes its output
    const uint32_t r = describe_dest();
    return is_error(r) ? r : 0;
  }
  stage::Progress& progress = convert::yuv422_to_rgb24_progress();
  const uint32_t started = stage::start(progress, stage::kBusy, [&]() -> uint32_t {
    if (uint32_t r = describe_dest(); is_error(r)) return r;
    return check_reported(dest, kToRgb24);
  });
  if (is_error(started)) {
    d.skip(rows);
    return started;
  }
  bool consumed = false;
  const uint32_t r = stage::advance(
      progress, y, stage::kNext,
      [&]() -> uint32_t {
        PIX_image_free_data(dest);
        if (uint32_t e = PIX_image_malloc_a_strip(dest); is_error(e)) return e;
        consumed = true;
        const auto rgb = convert::kernels::yuv422_row(convert::kernels::YuvOut::rgb24);
        const uint64_t width = y.width, lines = y.lines_this_strip, h = d.mcu_height();
        const bool in_step = y.bytes_per_line == width * 2 && lines == w.lines_this_strip && lines % h == 0 &&
                             d.row_bytes() == width * 2 && strip_bytes(dst) >= lines * width * 3;
        if (in_step) {
          std::vector<uint8_t> yuv(static_cast<std::size_t>(h * width * 2));
          const Raster out{yuv.data(), yuv.size(), width * 2};
          for (uint64_t row = 0; row < rows; ++row) {
            d.row(out, 0);
            rgb(yuv.data(), dst.data + row * h * width * 3, static_cast<std::size_t>(width / 2 * h));
          }
          return 0;
        }
        const uint64_t held = std::max(y.lines_this_strip, w.lines_this_strip);
        std::vector<uint8_t> yuv(static_cast<std::size_t>(held * y.bytes_per_line), 0);
        const Raster out{yuv.data(), yuv.size(), y.bytes_per_line};
        for (uint64_t row = 0; row < rows; ++row) d.row(out, row * h);
        const lines::In from{yuv.data(), strip_bytes(y), lines::packed(y, 2)};
        lines::map(from, 4, lines::target(dst, lines::packed(y, 3)), 6, width / 2, y.lines_this_strip, rgb);
        return 0;
      },
      [&]() -> uint32_t {
        dst.lines_this_strip = y.lines_this_strip;
        return 0;
      });
  if (!consumed) d.skip(rows);
  return r;
}

uint32_t decompress_1_strip(DecoderState& st, uint32_t source, uint32_t dest, bool first) {
  Image& src = *find_image(source);
  if (first) pad_geometry(src);
  Layout layout;
  uint16_t stage_format;
  switch (src.format) {
    case PIX_Y8: layout = Layout::grey, stage_format = PIX_JPEG_STAGE_A; break;
    case PIX_YUV422: layout = Layout::yuv422, stage_format = PIX_JPEG_STAGE_B; break;
    case PIX_JPEG: layout = Layout::yuv411, stage_format = PIX_JPEG_STAGE_B; break;
    default: return report(kStrip, code::unsupported, "Unrecognized source format");
  }
  Image w = working_description(src, stage_format);
  if (uint32_t r = check_record(w); is_error(r)) return report(kStrip, r, "Corrupt image");
  if (src.jpeg == nullptr) return report(kStrip, code::bad_handle, "Not a JPEG image");
  Tjpeg& record = *src.jpeg;
  if (first) {
    if (uint32_t r = huffman_stage(st, record, w, layout); is_error(r)) return r;
  }
  if (layout == Layout::yuv411 && w.lines_this_strip % 16 != 0) {
    return report(kIzz, code::unsupported, "For YUV 4:1:1 JPEG decoding, strip must be multiple of 16 lines");
  }
  if (first) {
    st.predictor = {};
    st.next_block = 0;
    for (int k = 0; k < 64; ++k) {
      st.quant[0][k] = record.Q_tables[0][kInverseZigZag[k]];
      st.quant[1][k] = record.Q_tables[1][kInverseZigZag[k]];
    }
  }
  StripDecoder d(st, layout, w.width);
  uint32_t r = 0;
  if (layout == Layout::grey) {
    r = to_destination(d, w, dest, PIX_Y8);
  } else if (find_image(dest)->format == PIX_YUV422) {
    r = to_destination(d, w, dest, PIX_YUV422);
  } else {
    r = to_rgb24(d, w, dest);
  }
  if (is_error(r)) return r;
  find_image(dest)->flags &= ~PIX_FLAG_JPEG;
  return 0;
}

}  // namespace

extern "C" PIX_API uint32_t PIX_CALL PIX_JPEG_decompress(uint32_t source, uint32_t dest, uint16_t mode) {
  DecoderState& st = decoder_state();
  uint32_t result = 0;
  Image* src = stage::checked_input(source, kName, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) return 0;
  if (src->format != PIX_Y8 && src->format != PIX_YUV422 && src->format != PIX_JPEG) {
    return report(kName, with_detail(code::unsupported, src->format), "Unsupported image format");
  }
  if (uint32_t r = stage::start(st.progress, stage::kBusy,
                                [&]() -> uint32_t {
                                  if (uint32_t e = PIX_JPEG_generate_H_codetable_LUTs(source); is_error(e)) return e;
                                  return PIX_JPEG_generate_Huffman_decode_tables(source);
                                });
      is_error(r)) {
    return r;
  }
  Image* dst = find_image(dest);
  if (dst == nullptr) return report(kName, code::bad_handle, "Output image does not exist");
  return stage::advance(
      st.progress, *src, mode, [&] { return decompress_1_strip(st, source, dest, st.progress.lines_done == 0); },
      [&]() -> uint32_t {
        dst->lines_this_strip = src->lines_this_strip;
        return 0;
      },
      stage::Nothing{});
}
