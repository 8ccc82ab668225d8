// The JPEG encoder: a raster image, strip by strip, into the compressed-data
// buffer of a JPEG image; grey images as one component, colour images as
// YUV 4:2:2 (Y sampled 2x1, U and V 1x1).
//
// The stages (padding to whole MCUs, conversion to YUV 4:2:2, raster to
// blocks, forward DCT, quantisation in zig-zag order with DC differences,
// Huffman coding) run fused, one MCU after another on one block row at a
// time, so that a block goes from its lines to its bytes inside the cache.
// Nothing is padded in memory unless a line needs it: lines that are whole
// MCUs wide are read where they lie, and the missing lines at the bottom of
// the image are the last line again.  Each stage's checks run on the
// description its working image would have, before any data moves, and
// report under the stage's name.
//
// Block rows that a strip leaves unfinished are carried to the next strip,
// so an image coded in strips of any height gives the bytes of the same
// image coded at once.
#include <algorithm>
#include <cstring>
#include <vector>

#include "convert/kernels/yuv.h"
#include "core/image.h"
#include "core/lifetime.h"
#include "core/lines.h"
#include "core/stage.h"
#include "core/status.h"
#include "jpeg/jpeg_state.h"
#include "jpeg/kernels/encode.h"
#include "jpeg/tables.h"

using namespace pix;
using namespace pix::jpeg;

namespace {

constexpr const char* kName = "PIX_JPEG_compress";
constexpr const char* kWorker = "PIX_JPEG_compress_1_strip";
constexpr const char* kPad = "PIX_pad_to_MCU_1_strip";
constexpr const char* kToYuvWorker = "PIX_convert_to_YUV422_1_strip";
constexpr const char* kToBlocks = "PIX_JPEG_raster_to_block_1_strip";
constexpr const char* kHuffman = "PIX_Huffman_encode_1_strip";

enum Component { kY = 0, kU = 1, kV = 2 };

// Library-wide: one image is coded at a time.
struct EncoderState final : Releasable {
  stage::Progress progress;
  // The private record: Q scale, quantisation and Huffman tables.
  Tjpeg tables{};
  kernels::Quantiser luma{}, chroma{};
  int32_t predictor[3] = {0, 0, 0};  // Y (Y1 and Y2 alike), U, V
  kernels::BitWriter writer;
  lines::Carry carry;           // source lines of an unfinished block row
  std::vector<uint8_t> staging;  // 8 prepared lines (padded, or converted to YUV 4:2:2)

  void release() noexcept override {
    progress = {};
    writer = {};
    carry.start(0);
    std::vector<uint8_t>().swap(staging);
  }
};

EncoderState& encoder_state() noexcept {
  static EncoderState state;
  return state;
}

bool accepted(uint16_t format) {
  return format == PIX_Y8 || format == PIX_YUV422 || (format >= PIX_RGB24 && format <= PIX_XBGR32);
}

// What PIX_convert_to_YUV422 would encode a source format with.
convert::kernels::RgbIn rgb_layout(uint16_t format) {
  using convert::kernels::RgbIn;
  switch (format) {
    case PIX_RGB24: return RgbIn::rgb24;
    case PIX_BGR24: return RgbIn::bgr24;
    case PIX_RGBX32: return RgbIn::rgbx32;
    case PIX_BGRX32: return RgbIn::bgrx32;
    default: return RgbIn::xbgr32;
  }
}

// The first call of a run: the destination describes the source, and the
// private tables are made from the destination's Q scale.
uint32_t begin_image(uint32_t source, uint32_t dest) {
  if (uint32_t r = PIX_JPEG_set_image(source, dest); is_error(r)) return r;
  PIX_copy_outfilename(dest, source);
  if (uint32_t r = check_reported(dest, kName); is_error(r)) return r;
  EncoderState& st = encoder_state();
  Tjpeg& t = st.tables;
  t = Tjpeg{};
  t.Q_scale = 32;
  const uint16_t q = find_image(dest)->jpeg->Q_scale;
  // Kept: a Q scale out of range is reported and the default coded with.
  if (q >= 1 && q <= 400) {
    t.Q_scale = q;
  } else {
    report("PIX_JPEG_set_Quality_factor", code::bad_parameter, "Q factor of range");
  }
  make_quant_tables(t);
  set_default_huffman(t);
  derive_symbol_codes(t, PIX_image_is_colour(source) == 1);
  st.luma = kernels::make_quantiser(t.Q_tables[0]);
  st.chroma = kernels::make_quantiser(t.Q_tables[1]);
  return 0;
}

// How one strip's lines become the lines the blocks are read from.
struct Geometry {
  bool grey = true;
  bool rgb = false;                 // converted to YUV 4:2:2 line by line
  uint32_t width = 0, padded = 0;   // pixels; padded to whole MCUs
  uint32_t pixel_bytes = 1;         // of a source line
  std::size_t line_bytes = 0;       // of a prepared line: 1 or 2 bytes a pixel
  bool direct = false;              // source lines can be read where they lie
  convert::kernels::EncodeRow encode = nullptr;

  // Source line `from` (width pixels) as a line of `padded` pixels in `to`:
  // the last pixel repeated, and RGB converted after its padding, as a
  // padded RGB image would be.
  void prepare(const uint8_t* from, uint8_t* to) const {
    if (width == 0) return;
    if (rgb) {
      const uint32_t pairs = width / 2;
      encode(from, to, pairs);
      uint8_t tail[16 * 4];  // at most 16 pixels: an odd last one and its repeats
      const uint32_t rest = padded - 2 * pairs;
      if (rest == 0) return;
      const uint8_t* last = from + std::size_t{width - 1} * pixel_bytes;
      for (uint32_t i = 0; i < rest; ++i) std::memcpy(tail + i * pixel_bytes, last, pixel_bytes);
      encode(tail, to + 4 * std::size_t{pairs}, rest / 2);
    } else if (grey) {
      std::memcpy(to, from, width);
      std::memset(to + width, from[width - 1], padded - width);
    } else {
      // YUV 4:2:2: the last pixel is Y1 of the last pair, with that pair's chroma.
      std::memcpy(to, from, 2 * std::size_t{width});
      const uint8_t* last = from + 2 * std::size_t{width} - 4;
      for (std::size_t x = width; x < padded; x += 2) {
        const uint8_t pair[4] = {last[2], last[1], last[2], last[3]};
        std::memcpy(to + 2 * x, pair, 4);
      }
    }
  }
};

// The fused stages on block rows of one strip.
class StripCoder {
 public:
  StripCoder(EncoderState& st, const Geometry& g, Tjpeg& record)
      : st_(st), g_(g), record_(record), k_(kernels::block_kernels()) {
    const CodingTables& t = coding_tables();
    dc_[kY] = t.dc_luma_put.data(), dc_[kU] = dc_[kV] = t.dc_chroma_put.data();
    ac_[kY] = t.ac_luma_put.data(), ac_[kU] = ac_[kV] = t.ac_chroma_put.data();
    out_ = record.data;
    limit_ = limit();
    row_bytes_ = std::size_t{g.padded / 8} * (g.grey ? 1 : 2) * kernels::kMaxBlockBytes + 64;
  }

  // One block row from its 8 lines.
  uint32_t code_row(const uint8_t* const lines[8]) {
    if (uint32_t r = make_room(row_bytes_); is_error(r)) return r;
    alignas(64) int16_t zz[4][64];
    uint64_t nonzero[4];
    if (g_.grey) {
      std::size_t x = 0;
      for (; x + 32 <= g_.padded; x += 32) {
        k_.grey_4(lines, x, st_.luma, zz, nonzero);
        for (int i = 0; i < 4; ++i) code_block(zz[i], nonzero[i], kY);
      }
      for (; x < g_.padded; x += 8) {
        alignas(64) int16_t block[64];
        kernels::grey_block(lines, x, block);
        k_.fdct(block);
        nonzero[0] = k_.quantise(block, zz[0], st_.luma);
        code_block(zz[0], nonzero[0], kY);
      }
    } else {
      for (std::size_t x = 0; x < g_.padded; x += 16) {
        k_.mcu_422(lines, x, st_.luma, st_.chroma, zz, nonzero);
        code_block(zz[0], nonzero[0], kY);
        code_block(zz[1], nonzero[1], kY);
        code_block(zz[2], nonzero[2], kU);
        code_block(zz[3], nonzero[3], kV);
      }
    }
    return 0;
  }

  // The strip's bytes end with whole words; the image's with the final fill
  // and an EOI marker that the length does not count.
  uint32_t end(bool last) {
    if (uint32_t r = make_room(64); is_error(r)) return r;
    out_ = last ? kernels::finish(st_.writer, out_) : kernels::emit_words(st_.writer, out_);
    record_.length = static_cast<uint32_t>(out_ - record_.data);
    if (last) out_[0] = 0xFF, out_[1] = 0xD9;
    return 0;
  }

 private:
  // A quantised block in zig-zag order; `nonzero` its mask of non-zero
  // values as the quantiser found them (the coder reads the AC bits only).
  void code_block(int16_t* zz, uint64_t nonzero, Component c) {
    const int32_t dc = zz[0];
    zz[0] = static_cast<int16_t>(dc - st_.predictor[c]);
    st_.predictor[c] = dc;
    out_ = kernels::encode_block(st_.writer, out_, zz, nonzero, dc_[c], ac_[c]);
  }

  // The end of a buffer this library allocated; null for a caller's own,
  // which is taken to be large enough.
  uint8_t* limit() const {
    const std::size_t capacity = capacity_of(record_);
    return capacity == 0 ? nullptr : record_.data + capacity;
  }

  // Buffers too small for the worst case grow (doubling) instead of being
  // overrun.
  uint32_t make_room(std::size_t bytes) {
    if (limit_ == nullptr || static_cast<std::size_t>(limit_ - out_) >= bytes) return 0;
    const std::size_t used = static_cast<std::size_t>(out_ - record_.data);
    const std::size_t want = std::max(used + bytes, 2 * capacity_of(record_));
    if (!ensure_capacity(record_, want)) return report(kHuffman, with_detail(code::out_of_memory, want));
    out_ = record_.data + used;
    limit_ = limit();
    return 0;
  }

  EncoderState& st_;
  const Geometry& g_;
  Tjpeg& record_;
  const kernels::BlockKernels& k_;
  const SymbolPut* dc_[3];
  const SymbolPut* ac_[3];
  uint8_t* out_;
  uint8_t* limit_;
  std::size_t row_bytes_;
};

// The description of a working image: the source's parameters with another
// format and width, checked as the image check would.
uint32_t check_working(const Image& src, uint16_t format, uint16_t depth, uint64_t width) {
  if (width > 0xFFFFFFFFu) return code::bad_image;
  Image w = src;
  w.format = format;
  w.depth = depth;
  w.width = static_cast<uint32_t>(width);
  w.data = nullptr;
  return check_record(w);
}

uint32_t compress_1_strip(Image& src, uint32_t dest) {
  EncoderState& st = encoder_state();
  Geometry g;
  g.grey = src.format == PIX_Y8;
  g.rgb = src.format != PIX_Y8 && src.format != PIX_YUV422;
  g.width = src.width;
  g.pixel_bytes = pixel_bytes(src.depth);
  const uint64_t padded = (uint64_t{src.width} + (g.grey ? 7 : 15)) / (g.grey ? 8 : 16) * (g.grey ? 8 : 16);
  const bool pads = src.width % 8 != 0 || src.height % 8 != 0;
  if (pads) {
    if (uint32_t r = check_working(src, src.format, src.depth, padded); is_error(r)) {
      return report(kWorker, r, "Hp_image is corrupt");
    }
    // Kept: the padding stage takes the formats 2..11 alone, so a YUV 4:2:2
    // source that needs padding is refused.
    if (src.format < PIX_Y8 || src.format > PIX_XBGR32) return report(kPad, code::unsupported, "Unsupported image type");
  }
  if (uint32_t r = check_working(src, g.grey ? PIX_JPEG_STAGE_A : PIX_JPEG_STAGE_B, 32, padded); is_error(r)) {
    return report(kWorker, r, "Corrupt image");
  }
  if (src.data == nullptr) {
    return report(pads ? kPad : g.rgb ? kToYuvWorker : kToBlocks, code::bad_image, "No image data");
  }
  g.padded = static_cast<uint32_t>(padded);
  g.line_bytes = std::size_t{g.padded} * (g.grey ? 1 : 2);
  g.direct = !g.rgb && g.padded == g.width;
  if (g.rgb) g.encode = convert::kernels::encode_row(rgb_layout(src.format));

  // The Huffman stage's buffer, fresh for the strip.
  if (uint32_t r = PIX_JPEG_malloc_data(dest); is_error(r)) return r;
  Image& out = *find_image(dest);
  Tjpeg& record = *out.jpeg;
  record.position = record.data;
  record.length = 0;

  const bool first = st.progress.lines_done == 0;
  const bool last = uint64_t{st.progress.lines_done} + src.lines_this_strip >= src.height;
  const std::size_t source_line = std::size_t{g.width} * g.pixel_bytes;
  if (first || st.carry.line_bytes() != source_line) st.carry.start(source_line);
  if (first) {
    std::fill(std::begin(st.predictor), std::end(st.predictor), 0);
    st.writer = {};
  }
  if (!g.direct) st.staging.resize(std::max<std::size_t>(1, 8 * g.line_bytes));

  // Lines are numbered across the carried ones and the strip's.
  const lines::In strip = lines::source(src, lines::padded(src));
  const uint32_t total = st.carry.held() + src.lines_this_strip;
  StripCoder coder(st, g, record);
  const auto code_rows = [&](uint32_t y, uint32_t count) -> uint32_t {
    const uint8_t* rows[8];
    for (uint32_t i = 0; i < 8; ++i) {
      const uint8_t* line = st.carry.joined(strip, y + std::min(i, count - 1));
      if (g.direct) {
        rows[i] = line;
      } else if (i < count) {
        g.prepare(line, st.staging.data() + i * g.line_bytes);
        rows[i] = st.staging.data() + i * g.line_bytes;
      } else {
        rows[i] = rows[count - 1];  // the last line again, below the image
      }
    }
    return coder.code_row(rows);
  };
  uint32_t y = 0;
  for (; y + 8 <= total; y += 8) {
    if (uint32_t r = code_rows(y, 8); is_error(r)) return r;
  }
  if (last && y < total) {
    if (uint32_t r = code_rows(y, total - y); is_error(r)) return r;
    y = total;
  }
  st.carry.take(strip, src.lines_this_strip, total - y);
  if (uint32_t r = coder.end(last); is_error(r)) return r;

  // The destination describes the image it holds, unpadded.
  out.width = src.width;
  out.height = src.height;
  return PIX_image_set_parameter(dest, PIX_IMAGE_FORMAT, g.grey ? PIX_Y8 : PIX_YUV422);
}

}  // namespace

extern "C" PIX_API uint32_t PIX_CALL PIX_JPEG_compress(uint32_t source, uint32_t dest, uint16_t mode) {
  uint32_t result = 0;
  Image* src = stage::checked_input(source, kName, result);
  if (src == nullptr) return result;
  if (src->lines_this_strip == 0) return 0;
  if (!accepted(src->format)) {
    return report(kName, with_detail(code::unsupported, src->format), "Unsupported image format");
  }
  EncoderState& st = encoder_state();
  if (uint32_t r = stage::start(st.progress, stage::kBusy, [&] { return begin_image(source, dest); }); is_error(r)) {
    return r;
  }
  return stage::advance(
      st.progress, *src, mode, [&] { return compress_1_strip(*src, dest); },
      [&] { return PIX_image_set_parameter(dest, PIX_LINES_THIS_STRIP, src->lines_this_strip); },
      [&]() -> uint32_t {
        st.carry.start(0);
        return 0;
      });
}
