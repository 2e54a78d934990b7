// Stop-bit field formats of the 2011 Fast codec.
//
// A field is cut into 7-bit groups, most significant first; bit 7 marks the last byte. Signed
// integers start from all ones when bit 6 of the first byte is set. As for the compact
// formats, the decoders are templates over their input so that the public primitives and the
// bounded record codecs share one implementation; a bounded input also ends a field at its end.
#pragma once

#include <cstdint>
#include <type_traits>

#include "primitives/bytes.h"

namespace trdcomp::stopbit {

// Bytes of the signed form. The size rests on the magnitude, so the most negative value of each
// length (-64, -8192, ...) takes one byte more than two's complement would need.
constexpr int sizeInt64(std::int64_t value) {
  std::uint64_t m = value < 0 ? 0ull - static_cast<std::uint64_t>(value) : value;
  int n = 1;
  for (std::uint64_t limit = 64; n < 10 && m >= limit; limit <<= 7) ++n;
  return n;
}

inline int sizeUint64(std::uint64_t value) {
  int n = 1;
  for (std::uint64_t limit = 128; n < 10 && value >= limit; limit <<= 7) ++n;
  return n;
}

// Bit 63 is cleared before the groups are cut, so a negative value of ten bytes (magnitude 2^62
// or more) comes back as the value plus 2^63.
inline int writeInt64(u8* out, std::int64_t value) {
  if (value > -64 && value < 64) {  // one byte: the seven bits, sign included, and the stop bit
    out[0] = static_cast<u8>((value & 0x7F) | 0x80);
    return 1;
  }
  int n = sizeInt64(value);
  std::uint64_t r = static_cast<std::uint64_t>(value) & 0x7FFFFFFFFFFFFFFFull;
  for (int k = n - 1; k >= 0; --k) {
    out[k] = static_cast<u8>((r & 0x7F) | (k == n - 1 ? 0x80 : 0));
    r >>= 7;
  }
  if (value < 0) out[0] |= 0x40;
  return n;
}

// Reads a signed field into an accumulator of type T (bits shifted out at the top are lost).
template <class T, class In>
T readSigned(const In& in, std::int64_t& pos) {
  using U = std::make_unsigned_t<T>;
  U acc = (in.at(pos) & 0x40) ? static_cast<U>(~U(0)) : U(0);
  for (;;) {
    if (!in.has(pos)) break;
    u8 b = in.at(pos++);
    acc = static_cast<U>((acc << 7) | (b & 0x7F));
    if (b & 0x80) break;
  }
  return static_cast<T>(acc);
}

// 10^3 by repeated squaring, as the format defines the scale.
constexpr double decimalScale() {
  double result = 1.0, base = 10.0;
  for (unsigned e = 3; e; e >>= 1, base *= base)
    if (e & 1) result *= base;
  return result;
}

// Three implied decimals. The nudge is added whatever the sign, so an exact negative multiple
// of 0.001 loses one unit toward zero (-5.0 is sent as -4999).
inline std::int64_t decimalUnits(double value) {
  const double nudge = 0.00005;  // the double 0x3F0A36E2EB1C432D
  constexpr double scale = decimalScale();
  return truncToInt64(value * scale + nudge);
}

template <class In>
double readDecimal3(const In& in, std::int64_t& pos) {
  constexpr double scale = decimalScale();
  return static_cast<double>(readSigned<std::int64_t>(in, pos)) / scale;
}

// The first k characters with bit 7 set on the last; the empty text is the single byte 0x80.
inline int writeString(u8* out, const u8* text, std::int64_t length, int cap) {
  std::int64_t k = length < cap ? length : cap;
  if (k < 1) {
    out[0] = 0x80;
    return 1;
  }
  for (std::int64_t i = 0; i < k; ++i) out[i] = text[i];
  out[k - 1] |= 0x80;
  return static_cast<int>(k);
}

// Decodes a stop-bit text into dest[0, size). When size - 1 characters fill the array before
// the field ends, the rest is skipped from the byte after the first one not copied up to the
// next byte with bit 7, and that byte's index is returned: one less than the bytes the field
// takes. Peers count the same way, so the next field is read where they read it.
template <class In>
std::int64_t readString(const In& in, std::int64_t pos, u8* dest, int size) {
  dest[0] = 0;
  if (in.at(pos) == 0x80) return 1;
  std::int64_t copied = 0;
  bool ended = false;
  while (copied < size - 1 && in.has(pos + copied)) {
    u8 b = in.at(pos + copied);
    dest[copied++] = b & 0x7F;
    if (b & 0x80) {
      ended = true;
      break;
    }
  }
  dest[copied] = 0;
  if (ended || !in.has(pos + copied)) return copied;
  std::int64_t j = copied + 1;
  while (in.has(pos + j) && !(in.at(pos + j) & 0x80)) ++j;
  return j;
}

// Length-prefixed text: keeps min(L, size - 1) bytes and a terminator; skips the whole block.
// Bytes past the end of a bounded input are not written: the record they go to is zero.
template <class In>
std::int64_t readLenString(const In& in, std::int64_t pos, u8* dest, int size) {
  std::int64_t start = pos;
  std::int32_t length = readSigned<std::int32_t>(in, pos);
  if (length >= 1) {
    std::int64_t k = length < size - 1 ? length : size - 1;
    if (k < 0) k = 0;
    in.copyAvailable(dest, pos, k);  // past the input: left as it is, zero in a record
    dest[k] = 0;
  } else {
    dest[0] = 0;
  }
  return pos - start + length;
}

// Length-prefixed bytes: keeps min(L, capacity) bytes, no terminator; skips the whole block.
template <class In>
std::int64_t readBinData(const In& in, std::int64_t pos, u8* dest, int capacity) {
  std::int64_t start = pos;
  std::int32_t length = readSigned<std::int32_t>(in, pos);
  if (length >= 1) {
    in.copyAvailable(dest, pos, length < capacity ? length : capacity);
  }
  return pos - start + length;
}

inline int writeBinData(u8* out, const u8* data, int length) {
  int n = writeInt64(out, length);
  for (int i = 0; i < length; ++i) out[n + i] = data[i];
  return n + length;
}

}  // namespace trdcomp::stopbit
