// Streaming copies: SSE2 non-temporal stores from the destination's first
// 16-byte boundary, ordinary copies for the ends.
#include "stream_copy.h"

#include <cstring>

#include "simd.h"

#if PIX95_X86
#include <emmintrin.h>
#endif

namespace pix {

namespace {

#if PIX95_X86
PIX95_SSE2 void copy_sse2(const uint8_t* src, uint8_t* dst, std::size_t bytes) {
  const std::size_t head = std::min(bytes, (16 - reinterpret_cast<uintptr_t>(dst) % 16) % 16);
  std::memcpy(dst, src, head);
  std::size_t i = head;
  for (; bytes - i >= 64; i += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 32));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 48));
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), a);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 16), b);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 32), c);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 48), d);
  }
  for (; bytes - i >= 16; i += 16) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
  }
  std::memcpy(dst + i, src + i, bytes - i);
}
PIX95_SSE2 void fence_sse2() { _mm_sfence(); }
#endif

}  // namespace

void copy_streamed(const uint8_t* src, uint8_t* dst, std::size_t bytes) noexcept {
#if PIX95_X86
  if (simd::active() >= simd::Level::sse2) return copy_sse2(src, dst, bytes);
#endif
  std::memcpy(dst, src, bytes);
}

void end_streaming() noexcept {
#if PIX95_X86
  if (simd::active() >= simd::Level::sse2) fence_sse2();
#endif
}

}  // namespace pix
