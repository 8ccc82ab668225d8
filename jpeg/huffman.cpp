// The bit reader and the Huffman pass.
//
// The library's reader works a byte at a time into a 32-bit buffer, with a
// bit index (unread bits - 1) and fixed rules for when it loads: peeks of 9,
// 11 and 16 bits refill at thresholds, a value read after a code refills only
// when the index equals the category.  Those rules decide which bits a short
// buffer yields and when an EOI inside the data is reported, so this reader
// keeps the same index and count of loaded bytes, but takes its bits from a
// destuffed copy of the data by absolute position, eight bytes at a time.
// Where the original would read bits it never loaded (a value longer than
// what is left), the same 32-bit window and the same wrapped shift give the
// same value.
#include "huffman.h"

#include <bit>
#include <cstring>
#include <optional>
#include <new>
#include <vector>

#include "core/status.h"
#include "tables.h"

namespace pix::jpeg {
namespace {

constexpr uint8_t kGreyComponents[] = {0};
constexpr uint8_t k422Components[] = {0, 0, 1, 2};
constexpr uint8_t k411Components[] = {0, 0, 0, 0, 1, 2};
constexpr LayoutShape kShapes[] = {{8, 8, 1, kGreyComponents}, {16, 8, 4, k422Components}, {16, 16, 6, k411Components}};

constexpr const char* kHuffman = "PIX_Huffman_decode_1_strip";

struct Messages {
  const char* dc;
  const char* ac;
  const char* overrun;
};
#define PIX95_PLACE(p)                                                                                   \
  Messages {                                                                                             \
    p "corrupt DC Huffman sequence", p "corrupt AC Huffman sequence", p "corrupt AC Huffman sequence (> 63 coeffs read)" \
  }
const Messages kGreyMessages[] = {PIX95_PLACE("")};
const Messages k422Messages[] = {PIX95_PLACE("Y1: "), PIX95_PLACE("Y2: "), PIX95_PLACE("U: "), PIX95_PLACE("V: ")};
const Messages k411Messages[] = {PIX95_PLACE("Y1: "), PIX95_PLACE("Y2: "), PIX95_PLACE("Y3: "),
                                 PIX95_PLACE("Y4: "), PIX95_PLACE("U: "),  PIX95_PLACE("V: ")};
#undef PIX95_PLACE
const Messages* messages(Layout l) {
  return l == Layout::grey ? kGreyMessages : l == Layout::yuv422 ? k422Messages : k411Messages;
}

inline uint64_t big_endian(uint64_t w) {
  if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(w);
  return w;
}

constexpr uint64_t kNone = ~uint64_t{0};
constexpr std::size_t kTail = 8;  // 0xFF bytes after the copy, so whole words can be loaded at its end

class BitReader {
 public:
  // The data as the reader loads it: each 0x00 after a 0xFF skipped, and the
  // loaded bytes that are a 0xFF followed by 0xD9 noted.  The byte after the
  // last one counted is never looked at.
  BitReader(const uint8_t* raw, uint64_t length, uint32_t carried, std::vector<uint8_t>& room)
      : bytes_(room), carried_(carried) {
    bytes_.clear();
    bytes_.reserve(static_cast<std::size_t>(length) + kTail);
    uint64_t i = 0;
    while (i < length) {
      const uint8_t* from = raw + i;
      const void* ff = std::memchr(from, 0xFF, static_cast<std::size_t>(length - i));
      const uint64_t run = ff != nullptr ? static_cast<uint64_t>(static_cast<const uint8_t*>(ff) - from) + 1 : length - i;
      bytes_.insert(bytes_.end(), from, from + run);
      i += run;
      if (ff == nullptr || i >= length) break;
      if (raw[i] == 0x00) {
        ++i;
      } else if (raw[i] == 0xD9) {
        eoi_.push_back(bytes_.size() - 1);
      }
    }
    size_ = bytes_.size();
    bytes_.insert(bytes_.end(), kTail, 0xFF);
    next_eoi_ = eoi_.empty() ? kNone : eoi_[0];
  }

  // Start: nothing loaded, index -1, two refills; three bytes must be in.
  bool start() {
    refill();
    refill();
    return index_ == 23;
  }

  // Peeks of 9, 11 and 16 bits, with the original's refill thresholds: one
  // refill below the peek's width, then further ones below a higher mark.
  uint32_t peek9() {
    if (index_ < 9) refill();
    if (index_ < 16) refill();
    return peek<9>();
  }
  uint32_t peek11() {
    if (index_ < 11) refill();
    if (index_ < 19) refill();
    if (index_ < 19) refill();
    return peek<11>();
  }
  uint32_t peek16() {
    if (index_ < 16) refill();
    if (index_ < 24) refill();
    if (index_ < 24) refill();
    return peek<16>();
  }

  // The value of category c after a code of `length` bits.  Kept: the
  // refill comes only when the index equals the category; an index below
  // c - 1 reads what the 32-bit window holds at the wrapped shift.
  int32_t value(unsigned length, unsigned c) {
    index_ -= static_cast<int32_t>(length);
    if (index_ == static_cast<int32_t>(c)) {
      refill();
      if (index_ == static_cast<int32_t>(c)) refill();
    }
    if (c == 0) return 0;
    uint32_t v;
    if (index_ >= static_cast<int32_t>(c) - 1) {
      v = static_cast<uint32_t>((word_ << length) >> (64 - c));
    } else {
      v = (window() >> ((index_ - static_cast<int32_t>(c) + 1) & 31)) & ((1u << c) - 1);
    }
    index_ -= static_cast<int32_t>(c);
    const auto s = static_cast<int32_t>(v);
    return (v >> (c - 1)) & 1 ? s : s - (1 << c) + 1;
  }

  // The 32-bit buffer as the original holds it now.
  uint32_t window() const {
    uint32_t w = 0;
    for (uint64_t k = loaded_ - 4; k != loaded_; ++k) w = (w << 8) | byte_at(k);
    return w;
  }

 private:
  // Absolute bit position of the next unread bit (loaded bytes * 8 - index - 1).
  uint64_t position() const { return loaded_ * 8 - static_cast<uint64_t>(static_cast<int64_t>(index_) + 1); }

  // Byte k of the loaded sequence: before the first, the carried buffer's
  // bytes; past the data, 0xFF.
  uint8_t byte_at(uint64_t k) const {
    if (static_cast<int64_t>(k) < 0) {
      const int64_t back = -static_cast<int64_t>(k);  // 1..4
      return static_cast<uint8_t>(carried_ >> (8 * (back - 1)));
    }
    return k < size_ ? bytes_[static_cast<std::size_t>(k)] : 0xFF;
  }

  // 64 bits from absolute bit position `at`, left-aligned (at least 57 of
  // them meaningful).
  uint64_t word(uint64_t at) const {
    const uint64_t k = at >> 3;
    uint64_t w = 0;
    if (k + 8 <= bytes_.size()) {
      std::memcpy(&w, bytes_.data() + k, 8);
      w = big_endian(w);
    } else {
      for (uint64_t i = 0; i < 8; ++i) w = (w << 8) | byte_at(k + i);
    }
    return w << (at & 7);
  }

  // The peeked bits; the word read for them is kept, since the value after
  // the code comes from the same absolute positions whatever loads between.
  template <unsigned N>
  uint32_t peek() {
    at_ = position();
    if (index_ >= static_cast<int32_t>(N) - 1) {
      word_ = word(at_);
      return static_cast<uint32_t>(word_ >> (64 - N));
    }
    word_ = word(at_);  // a peek short of bits takes the window's; the value reads the window too
    return (window() >> ((index_ - static_cast<int32_t>(N) + 1) & 31)) & ((1u << N) - 1);
  }

  // One byte in; true when it is a 0xFF that an EOI follows.
  bool load() {
    const uint64_t k = loaded_++;
    index_ += 8;
    if (k != next_eoi_) return false;
    ++eoi_at_;
    next_eoi_ = eoi_at_ < eoi_.size() ? eoi_[eoi_at_] : kNone;
    return true;
  }

  // The original's refill: one byte, and a second while the index is 8 or
  // less.  An EOI in the first byte is reported and ends the refill; the
  // callers go on regardless.
  void refill() {
    if (load()) {
      report("refill_buffer", code::bad_state, "Unexpected EOI - processing byte 1");
      return;
    }
    if (index_ <= 8 && load()) report("refill_buffer", with_detail(code::bad_state, 1), "Unexpected EOI - processing byte 2");
  }

  std::vector<uint8_t>& bytes_;
  std::vector<uint64_t> eoi_;
  uint64_t size_ = 0;
  uint64_t next_eoi_ = kNone;
  std::size_t eoi_at_ = 0;
  uint64_t loaded_ = 0;
  int32_t index_ = -1;
  uint64_t at_ = 0, word_ = 0;  // where the last peek read, and its word
  uint32_t carried_;
};

}  // namespace

const LayoutShape& shape(Layout layout) noexcept { return kShapes[static_cast<int>(layout)]; }

uint32_t decode_huffman(const HuffmanJob& job, uint64_t& decoded, uint32_t& bit_buffer, std::vector<uint8_t>& destuffed) {
  decoded = 0;
  const CodingTables& t = coding_tables();
  if (t.ac_luma_ahead.size() != (1u << kAcBits) ||
      (job.layout != Layout::grey && t.ac_chroma_ahead.size() != (1u << kAcBits))) {
    return report(kHuffman, code::bad_state, "Huffman tables not generated");
  }
  const LayoutShape& s = shape(job.layout);
  const Messages* m = messages(job.layout);
  const Lookahead* dc_ahead[2] = {t.dc_luma_ahead.data(), t.dc_chroma_ahead.data()};
  const Lookahead* ac_ahead[2] = {t.ac_luma_ahead.data(), t.ac_chroma_ahead.data()};
  // The codes of up to 10 bits, found from the first 10 bits alone: run,
  // category and length packed in 16 bits, 0 where the code is longer or
  // none matches (the full table then decides).  Made from the lookahead
  // tables, so it says nothing they do not.
  uint16_t first[2][1 << 10];
  for (int table = 0; table < (job.layout == Layout::grey ? 1 : 2); ++table) {
    for (uint32_t p = 0; p < (1u << 10); ++p) {
      const Lookahead e = ac_ahead[table][p << 6];
      first[table][p] = e.category != kNoCode && e.length <= 10
                            ? static_cast<uint16_t>(e.length << 8 | e.run << 4 | e.category)
                            : uint16_t{0};
    }
  }

  std::optional<BitReader> reader;  // made here so that running out of memory is reported, not thrown
  try {
    reader.emplace(job.data, job.data != nullptr ? job.length : 0, bit_buffer, destuffed);
  } catch (const std::bad_alloc&) {
    return report(kHuffman, with_detail(code::out_of_memory, job.length));
  }
  BitReader& in = *reader;
  const auto done = [&](uint32_t r) {
    bit_buffer = in.window();
    return r;
  };
  if (!in.start()) return done(report(kHuffman, code::bad_state, "Buffer failed to fill at start"));

  int16_t* block = job.out;
  uint64_t* nonzero = job.nonzero;
  for (uint64_t row = 0; row < job.mcu_rows; ++row) {
    for (uint64_t col = 0; col < job.mcu_columns; ++col) {
      for (uint32_t b = 0; b < s.blocks; ++b, block += 64, ++nonzero) {
        const int chroma = s.component[b] != 0 ? 1 : 0;
        std::memset(block, 0, 64 * sizeof(int16_t));
        const Lookahead dc = dc_ahead[chroma][chroma ? in.peek11() : in.peek9()];
        if (dc.category == kNoCode) return done(report(kHuffman, code::bad_state, m[b].dc));
        if (dc.category > 11) report("read_dc_value", code::bad_state, "invalid DC category");
        block[0] = static_cast<int16_t>(in.value(dc.length, dc.category));
        const Lookahead* ac = ac_ahead[chroma];
        const uint16_t* fast = first[chroma];
        uint64_t mask = 0;
        unsigned k = 0;
        do {
          const uint32_t bits = in.peek16();
          const uint16_t f = fast[bits >> 6];
          const Lookahead e = f != 0 ? Lookahead{static_cast<uint8_t>(f >> 4 & 15), static_cast<uint8_t>(f & 15),
                                                 static_cast<uint16_t>(f >> 8)}
                                     : ac[bits];
          if (e.category == kNoCode) return done(report(kHuffman, code::bad_state, m[b].ac));
          if (e.category > 10) report("read_ac_value", code::bad_state, "invalid AC category");
          const int32_t v = in.value(e.length, e.category);
          if (e.category == 0) {
            k = e.run == 0 ? 63 : k + 16;  // end of block, or sixteen zeros
          } else {
            k += e.run + 1u;
            if (k <= 63) {
              block[kZigZag[k]] = static_cast<int16_t>(v);
              mask |= uint64_t{1} << kZigZag[k];
            }
          }
        } while (k < 63);
        if (k != 63) return done(report(kHuffman, code::bad_state, m[b].overrun));
        *nonzero = mask;
        ++decoded;
      }
    }
  }
  return done(0);
}

}  // namespace pix::jpeg
