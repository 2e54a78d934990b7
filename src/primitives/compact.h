// Compact field formats of the 2008 codec.
//
// Integers carry their sign in bit 7 of the first byte and a length code beside the low bits of
// the magnitude; the rest of the magnitude follows low byte first. Texts and byte blocks are a
// compact 32-bit length followed by the bytes. The decoders are templates over their input so
// that the public primitives (which trust their caller) and the record codecs (which read
// through a bounded view) share one implementation of every format.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "primitives/bytes.h"

namespace trdcomp::compact {

// Magnitude by two's-complement negation in the value's own width; the most negative value
// stays itself and, compared as signed, takes the shortest form with only the sign set.
inline std::int32_t magnitude(std::int32_t v) {
  return v < 0 ? static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(v)) : v;
}
inline std::int64_t magnitude(std::int64_t v) {
  return v < 0 ? static_cast<std::int64_t>(0ull - static_cast<std::uint64_t>(v)) : v;
}

// 32-bit integer: byte 0 = sign | length code (bits 6-5) | low 5 bits, then bytes of m >> 5.
// The four-byte form holds 29 bits: bits 29 and 30 of a larger magnitude are dropped.
inline int writeInt(u8* out, std::int32_t value) {
  u8 b0 = value < 0 ? 0x80 : 0;
  std::int32_t m = magnitude(value);
  std::uint32_t u = static_cast<std::uint32_t>(m);
  if (m < 32) {
    out[0] = static_cast<u8>(b0 | u);
    return 1;
  }
  out[1] = static_cast<u8>(u >> 5);
  if (m < 0x2000) {
    out[0] = static_cast<u8>(b0 | (u & 0x1F) | 0x20);
    return 2;
  }
  out[2] = static_cast<u8>(u >> 13);
  if (m < 0x200000) {
    out[0] = static_cast<u8>(b0 | (u & 0x1F) | 0x40);
    return 3;
  }
  out[0] = static_cast<u8>(b0 | (u & 0x1F) | 0x60);
  out[3] = static_cast<u8>(u >> 21);
  return 4;
}

// Inline wherever it is read: out of line, `pos` would go through memory on every field, and
// the next field's place waits for it.
template <class In>
TRDCOMP_INLINE std::int32_t readInt(const In& in, std::int64_t& pos) {
  if constexpr (requires { In::kWordLoads; }) {
    // One load, the bytes the length code names kept.
    const std::uint32_t w = loadU32(in.ptr(pos));
    const unsigned code = (w >> 5) & 3;
    const std::uint32_t v = (w & 0x1F) | (((w >> 8) & ((std::uint32_t(1) << (8 * code)) - 1)) << 5);
    pos += 1 + code;
    return static_cast<std::int32_t>((w & 0x80) ? 0u - v : v);
  }
  unsigned b0 = in.at(pos);
  unsigned code = b0 & 0x60;
  std::uint32_t v = b0 & 0x1F;
  if (code >= 0x20) v |= std::uint32_t(in.at(pos + 1)) << 5;
  if (code >= 0x40) v |= std::uint32_t(in.at(pos + 2)) << 13;
  if (code == 0x60) v |= std::uint32_t(in.at(pos + 3)) << 21;
  pos += 1 + (code >> 5);
  return static_cast<std::int32_t>((b0 & 0x80) ? 0u - v : v);
}

// 64-bit integer: byte 0 = sign | length code (bits 6-4) | low 4 bits, byte k = m >> (8k - 4).
// There is no six-byte form (code 5 is read but never written); eight bytes carry 60 bits.
inline int writeInt64(u8* out, std::int64_t value) {
  u8 b0 = value < 0 ? 0x80 : 0;
  std::int64_t m = magnitude(value);
  std::uint64_t u = static_cast<std::uint64_t>(m);
  int n;
  u8 code;
  if (m < 0x10) {
    n = 1, code = 0x00;
  } else if (m < 0x1000) {
    n = 2, code = 0x10;
  } else if (m < 0x100000) {
    n = 3, code = 0x20;
  } else if (m < 0x10000000) {
    n = 4, code = 0x30;
  } else if (m < 0x1000000000) {
    n = 5, code = 0x40;
  } else if (m < 0x100000000000) {
    n = 7, code = 0x60;
  } else {
    n = 8, code = 0x70;
  }
  out[0] = static_cast<u8>(b0 | code | (u & 0x0F));
  for (int k = 1; k < n; ++k) out[k] = static_cast<u8>(u >> (4 + 8 * (k - 1)));
  return n;
}

template <class In>
TRDCOMP_INLINE std::int64_t readInt64(const In& in, std::int64_t& pos) {
  if constexpr (requires { In::kWordLoads; }) {
    const std::uint64_t w = loadU64(in.ptr(pos));
    const unsigned rest = static_cast<unsigned>((w >> 4) & 7);  // bytes after the first
    const std::uint64_t mask = (std::uint64_t(1) << (8 * rest)) - 1;
    const std::uint64_t v = (w & 0x0F) | (((w >> 8) & mask) << 4);
    pos += 1 + rest;
    return static_cast<std::int64_t>((w & 0x80) ? 0ull - v : v);
  }
  unsigned b0 = in.at(pos);
  int n = static_cast<int>((b0 >> 4) & 7) + 1;
  std::uint64_t v = b0 & 0x0F;
  for (int k = 1; k < n; ++k) v |= std::uint64_t(in.at(pos + k)) << (4 + 8 * (k - 1));
  pos += n;
  return static_cast<std::int64_t>((b0 & 0x80) ? 0ull - v : v);
}

#if TRDCOMP_SSE2
// The first zero among the 16 bytes at `from`, or 16.
TRDCOMP_INLINE std::int64_t textEnd16(const u8* from) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const auto ends =
      static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())));
  return std::countr_zero(ends | 0x10000u);
}

// textEnd for k <= 32: the first zero among the first k of the 32 bytes at `from`, or k.
TRDCOMP_INLINE std::int64_t textEnd32(const u8* from, std::int64_t k) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 16));
  const std::uint64_t ends =
      static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(lo, zero))) |
      static_cast<std::uint64_t>(
          static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(hi, zero))))
          << 16;
  return std::countr_zero(ends | ~std::uint64_t(0) << k);
}

// The first zero among the first k bytes at `from`, or k; reads 32 bytes when k <= 32.
TRDCOMP_INLINE std::int64_t textEnd(const u8* from, std::int64_t k) {
  if (k <= 32) return textEnd32(from, k);
  const void* z = std::memchr(from, 0, static_cast<std::size_t>(k));
  return z ? static_cast<const u8*>(z) - from : k;
}

#endif

// Copies at most k bytes of text, stopping at a zero byte of the source or at the end of the
// input; returns the bytes copied.
template <class In>
std::int64_t copyTextPrefix(const In& in, std::int64_t pos, u8* dst, std::int64_t k) {
#if TRDCOMP_SSE2
  if constexpr (requires { In::kWordLoads; }) {
    // The 32 bytes from here lie inside the input (kTextLoad): the terminator is found among
    // them at once, and only the text's own bytes are written.
    if (k <= 32) {
      const u8* from = in.ptr(pos);
      const std::int64_t j = textEnd(from, k);
      copyShort(dst, from, static_cast<std::size_t>(j));
      return j;
    }
  }
#endif
  const std::int64_t n = in.readable(pos, k);
  if (n <= 0) return 0;
  const u8* from = in.ptr(pos);
  const void* zero = std::memchr(from, 0, static_cast<std::size_t>(n));
  const std::int64_t j = zero ? static_cast<const u8*>(zero) - from : n;
  std::memcpy(dst, from, static_cast<std::size_t>(j));
  return j;
}

#if TRDCOMP_SSE2
// 16 bytes from kKeepMask + 16 - keep: `keep` bytes of ones, then zeros (0 <= keep <= 16).
alignas(16) inline constexpr u8 kKeepMask[32] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// A field of 16 to 32 bytes written whole: the first j bytes from `from`, zeros after (j <=
// width). Two 16-byte chunks, the second ending at the field's end.
TRDCOMP_INLINE void fillField16to32(u8* dst, const u8* from, std::int64_t j, std::int64_t width) {
  const std::int64_t tail = width - 16;
  const std::int64_t keepLo = j < 16 ? j : 16;
  const std::int64_t keepHi = j - tail < 0 ? 0 : j - tail;
  const __m128i lo =
      _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)),
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(kKeepMask + 16 - keepLo)));
  const __m128i hi =
      _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from + tail)),
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(kKeepMask + 16 - keepHi)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + tail), hi);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), lo);
}

// A text field of 33 to 48 bytes written whole: the first j of its bytes from `from`, where j
// is where the first k bytes end (the first zero among them, or k), zeros after. Reads and
// writes only [0, width), in 16-byte chunks at 0, 16 and width - 16.
TRDCOMP_INLINE void fillText33to48(u8* dst, const u8* from, std::int64_t k, std::int64_t width) {
  const std::int64_t tail = width - 16;
  const __m128i zero = _mm_setzero_si128();
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 16));
  const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + tail));
  std::uint64_t ends =
      static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, zero))) |
      std::uint64_t(static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(b, zero)))) << 16 |
      std::uint64_t(static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(c, zero)))) << tail;
  const std::int64_t j = std::countr_zero(ends | ~std::uint64_t(0) << k);
  auto keep = [&](std::int64_t off) {
    const std::int64_t n = std::clamp<std::int64_t>(j - off, 0, 16);
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(kKeepMask + 16 - n));
  };
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 16), _mm_and_si128(b, keep(16)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + tail), _mm_and_si128(c, keep(tail)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_and_si128(a, keep(0)));
}

// Writes all `width` bytes of a field: the first j bytes from `from`, zeros after. Every byte
// of [from, from + max(width, 16)) may be read, and only [dst, dst + width) is written: 16-byte
// chunks masked to the text, the last one overlapping the one before (wide fields: a copy and a
// fill).
TRDCOMP_INLINE void fillField(u8* dst, const u8* from, std::int64_t j, std::int64_t width) {
  if (width > 128) {  // wide: the library's copy and fill are faster than a loop of chunks
    std::memcpy(dst, from, static_cast<std::size_t>(j));
    std::memset(dst + j, 0, static_cast<std::size_t>(width - j));
    return;
  }
  if (width >= 16) {
    auto chunk = [&](std::int64_t off) TRDCOMP_INLINE_LAMBDA {
      const std::int64_t keep = std::clamp<std::int64_t>(j - off, 0, 16);
      const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kKeepMask + 16 - keep));
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + off));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + off), _mm_and_si128(v, mask));
    };
    std::int64_t off = 0;
    for (; off + 16 <= width; off += 16) chunk(off);
    if (off < width) chunk(width - 16);
    return;
  }
  auto word = [&](std::int64_t off, int bytes) TRDCOMP_INLINE_LAMBDA {
    const std::int64_t keep = std::clamp<std::int64_t>(j - off, 0, bytes);
    const std::uint64_t mask = keep >= 8 ? ~0ull : (std::uint64_t(1) << (8 * keep)) - 1;
    if (bytes == 8) {
      storeU64(dst + off, loadU64(from + off) & mask);
    } else {
      storeU32(dst + off, loadU32(from + off) & static_cast<std::uint32_t>(mask));
    }
  };
  if (width >= 8) {
    word(0, 8);
    word(width - 8, 8);
  } else if (width >= 4) {
    word(0, 4);
    word(width - 4, 4);
  } else {
    for (std::int64_t i = 0; i < width; ++i) dst[i] = i < j ? from[i] : 0;
  }
}
#endif

// Copies k bytes of text with bounded-copy semantics: the copy stops at a zero byte of the
// source and the rest of the k bytes is filled with zeros.
template <class In>
void copyText(const In& in, std::int64_t pos, u8* dst, std::int64_t k) {
  std::int64_t j = copyTextPrefix(in, pos, dst, k);
  for (; j < k; ++j) dst[j] = 0;
}

}  // namespace trdcomp::compact
