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
//
// Most blocks take a fast path instead.  Away from the end of the data and
// from any EOI, loading has no effect but on the index, and the index after
// a peek is the lowest value at or above the peek's mark with the same
// remainder mod 8 as before (the refills add 8 or 16 until it gets there),
// so after a 16-bit peek it is 31 - (position mod 8) whatever came before.
// The fast path therefore needs only the position; a block it cannot finish
// exactly (a code without an entry, a value longer than the buffer holds,
// the end or an EOI within reach, more than 63 terms) is read again from its
// start by the byte-at-a-time rules.
#include "huffman.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <optional>
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
constexpr std::size_t kTail = 16;  // 0xFF bytes after the copy, so whole words can be loaded near its end

inline uint64_t load_word(const uint8_t* p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return big_endian(w);
}

// The value of category c (1..15) in the top c bits of `w`.
inline int16_t value_of(uint64_t w, unsigned c) {
  const auto v = static_cast<int32_t>(w >> (64 - c));
  return static_cast<int16_t>(v >> (c - 1) != 0 ? v : v - (1 << c) + 1);
}

// The AC codes the fast path resolves from the next kFastBits bits alone:
// a coefficient whose code and value both fit, as value << 16 | (run + 1)
// << 6 | bits taken; an end of block, as kEndOfBlock << 6 | code length (a
// step past any count of terms); 0 for anything else, which the 16-bit
// lookahead decides.  An entry is made only where every 16-bit continuation
// of its bits finds the same code there (a code left over from an earlier
// image's table may take part of a shorter one's entries).
constexpr unsigned kFastBits = 10;
constexpr uint32_t kSteps = 255u << 6;
constexpr uint32_t kEndOfBlock = 128;
using FastTable = std::array<uint32_t, 1u << kFastBits>;

void make_fast(const std::vector<Lookahead>& ahead, FastTable& out) {
  constexpr unsigned spread = 1u << (kAcBits - kFastBits);
  for (uint32_t p = 0; p < out.size(); ++p) {
    const Lookahead* from = ahead.data() + p * spread;
    const Lookahead e = from[0];
    bool same = e.category <= 10 && e.length <= kFastBits;
    for (unsigned i = 1; same && i < spread; ++i)
      same = from[i].run == e.run && from[i].category == e.category && from[i].length == e.length;
    uint32_t f = 0;
    if (same && e.category == 0) {
      if (e.run == 0) f = kEndOfBlock << 6 | e.length;
    } else if (same && e.length + e.category <= kFastBits) {
      const unsigned taken = e.length + e.category;
      const int16_t v = value_of(uint64_t{p} << (64 - kFastBits) << e.length, e.category);
      f = uint32_t{static_cast<uint16_t>(v)} << 16 | (e.run + 1u) << 6 | taken;
    }
    out[p] = f;
  }
}

// What the fast path reads a component's blocks with.
struct FastTables {
  const Lookahead* dc;
  const uint32_t* fast;
  const Lookahead* ac;
};

// The fast tables of the current AC lookahead tables, made again only when
// the codes those were made from change.
const FastTable& fast_table(int chroma, const CodingTables& t) {
  struct Cached {
    FastTable table{};
    CodingTables::Codes<256> from;
  };
  static std::array<Cached, 2> cache;
  const CodingTables::Codes<256>& from = chroma ? t.ac_chroma_ahead_from : t.ac_luma_ahead_from;
  Cached& c = cache[chroma];
  if (!from || c.from != from) {
    make_fast(chroma ? t.ac_chroma_ahead : t.ac_luma_ahead, c.table);
    c.from = from;
  }
  return c.table;
}

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

  // Blocks by the fast path, from place `place` of the MCU on, at most
  // `count` of them: each into `out` (DC difference, then the AC terms that
  // are not zero) and its map into `maps`.  Stops before a block that must
  // be read by the rules above, the reader left as after the last one read;
  // returns how many were.
  [[gnu::noinline]] uint64_t fast_run(const FastTables (&tables)[2], const uint8_t* component, uint32_t per_mcu,
                                      uint32_t place, uint64_t count, int16_t*& out, uint64_t* maps) {
    // Every byte a symbol may load stays before the next EOI and the end of
    // the data: a symbol starting before `limit` - 4 bytes loads at most five
    // bytes past its first one.  A block takes at most 64 AC symbols of 32
    // bits and a DC one of 22, so a block starts only before `stop`.
    constexpr uint64_t kBlockBits = 64 * 32 + 22;
    const uint64_t limit = std::min(next_eoi_, size_);
    if (limit * 8 < kBlockBits + 4 * 8) return 0;
    const uint64_t stop = limit * 8 - 4 * 8 - kBlockBits;
    int64_t index = index_;
    const int64_t start = static_cast<int64_t>(loaded_ * 8) - index - 1;
    if (index < -8 || index > 31 || start < 0 || static_cast<uint64_t>(start) >= stop) return 0;
    // The bits from the position on, left-aligned in `w`: `n` of them, up to
    // the start of byte `next`; the bits after those are zeros or the
    // data's.  Refilled before each symbol to 56 or more (reading at most
    // 15 bytes past the position: the copy's tail has room for them).
    const uint8_t* bytes = bytes_.data();
    const uint8_t* next = bytes + (start >> 3) + 7;
    uint64_t w = load_word(bytes + (start >> 3)) << (start & 7);
    unsigned n = 56 - static_cast<unsigned>(start & 7);
    const auto refill = [&] {
      w |= load_word(next) >> n;
      next += (63 - n) >> 3;
      n |= 56;
    };
    const auto position = [&] { return static_cast<uint64_t>(next - bytes) * 8 - n; };
    uint64_t done = 0;
    int16_t* o = out;
    for (; done < count; ++done) {
      const bool chroma = component[place] != 0;
      const FastTables& t = tables[chroma ? 1 : 0];
      if (++place == per_mcu) place = 0;
      if (position() >= stop) break;
      refill();
      // DC: the peek's refills.  The value's refill, when the index left
      // equals the category, changes nothing here: the value's bits are
      // where they are, and the next peek brings the index to the same place.
      const int64_t mark = chroma ? 19 : 16;
      if (index < mark) index = mark + ((index - mark) & 7);
      const Lookahead dc = t.dc[w >> (chroma ? 64 - kDcChromaBits : 64 - kDcLumaBits)];
      const int64_t c = dc.category;
      if (c > 11 || (c != 0 && index - dc.length < c - 1)) break;
      o[0] = c == 0 ? int16_t{0} : value_of(w << dc.length, static_cast<unsigned>(c));
      w <<= dc.length + c;
      n -= dc.length + static_cast<unsigned>(c);

      // AC: after each peek of 16 the index is 31 - (position mod 8); a
      // value reads past the buffer when position mod 8 + length + category
      // is over 32.  The lookups need at most 16 bits: 24 or more are left
      // after any symbol, so each is made before the refill is merged in.
      int16_t* term = o + 1;
      uint64_t z = 0;
      unsigned k = 0, taken;
      bool whole = false;
      const uint32_t* const fast = t.fast;
      for (;;) {
        const uint32_t e = fast[w >> (64 - kFastBits)];
        refill();
        if ((e & kSteps) != 0) [[likely]] {  // a coefficient, or the end of the block
          taken = e & 31;
          w <<= taken;
          n -= taken;
          k += e >> 6 & 255;
          if (k < 63) [[likely]] {
            *term++ = static_cast<int16_t>(e >> 16);
            z |= uint64_t{1} << k;
            continue;
          }
          whole = k == 63 || k >= kEndOfBlock;
          if (k == 63) {
            *term++ = static_cast<int16_t>(e >> 16);
            z |= uint64_t{1} << 63;
          }
          break;
        }
        const Lookahead a = t.ac[w >> 48];
        if (a.category > 10) break;  // no code, or a category to report
        const unsigned length = a.length, category = a.category;
        taken = length + category;
        if ((position() & 7) + taken > 32) break;
        const int16_t v = category == 0 ? int16_t{0} : value_of(w << length, category);
        w <<= taken;
        n -= taken;
        if (category == 0) {
          if (a.run == 0) {
            whole = true;
            break;
          }
          k += 16;
        } else {
          k += a.run + 1u;
          if (k <= 63) {
            *term++ = v;
            z |= uint64_t{1} << k;
          }
        }
        if (k >= 63) {
          whole = k == 63;
          break;
        }
      }
      if (!whole) break;
      // The last symbol's peek left four bytes loaded from its first one;
      // its value loaded one more when the index left equalled its category.
      const uint64_t pos = position(), last = pos - taken;
      const uint64_t loaded = (last >> 3) + 4 + ((last & 7) + taken == 31 ? 1 : 0);
      index = static_cast<int64_t>(loaded * 8) - static_cast<int64_t>(pos) - 1;
      loaded_ = loaded;
      index_ = static_cast<int32_t>(index);
      maps[done] = z;
      o = term;
    }
    out = o;
    return done;
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
  const uint32_t* fast[2] = {fast_table(0, t).data(), job.layout == Layout::grey ? nullptr : fast_table(1, t).data()};

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

  int16_t* out = job.out;
  const FastTables tables[2] = {{dc_ahead[0], fast[0], ac_ahead[0]}, {dc_ahead[1], fast[1], ac_ahead[1]}};
  const uint64_t total = job.mcu_rows * job.mcu_columns * s.blocks;
  for (uint64_t n = 0; n < total; ++n) {
    if (!job.exact_only) {
      const uint64_t got = in.fast_run(tables, s.component, s.blocks, static_cast<uint32_t>(n % s.blocks), total - n,
                                       out, job.nonzero + n);
      decoded += got;
      n += got;
      if (n == total) break;
    }
    const uint32_t b = static_cast<uint32_t>(n % s.blocks);
    const int chroma = s.component[b] != 0 ? 1 : 0;
    const Lookahead dc = dc_ahead[chroma][chroma ? in.peek11() : in.peek9()];
    if (dc.category == kNoCode) return done(report(kHuffman, code::bad_state, m[b].dc));
    if (dc.category > 11) report("read_dc_value", code::bad_state, "invalid DC category");
    out[0] = static_cast<int16_t>(in.value(dc.length, dc.category));
    const Lookahead* ac = ac_ahead[chroma];
    int16_t* term = out + 1;
    uint64_t map = 0;
    unsigned k = 0;
    do {
      const Lookahead e = ac[in.peek16()];
      if (e.category == kNoCode) return done(report(kHuffman, code::bad_state, m[b].ac));
      if (e.category > 10) report("read_ac_value", code::bad_state, "invalid AC category");
      const int32_t v = in.value(e.length, e.category);
      if (e.category == 0) {
        k = e.run == 0 ? 63 : k + 16;  // end of block, or sixteen zeros
      } else {
        k += e.run + 1u;
        if (k <= 63) {
          *term++ = static_cast<int16_t>(v);
          map |= uint64_t{1} << k;
        }
      }
    } while (k < 63);
    if (k != 63) return done(report(kHuffman, code::bad_state, m[b].overrun));
    job.nonzero[n] = map;
    out = term;
    ++decoded;
  }
  return done(0);
}

}  // namespace pix::jpeg
