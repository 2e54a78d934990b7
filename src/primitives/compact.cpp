// The public compact primitives. The integer, text and block formats live in compact.h and are
// shared with the record codecs; the flag-byte forms and the securities-code difference are
// offered to callers only.
#include "primitives/compact.h"

#include <cstring>

#include "TrdCompData.h"

using trdcomp::RawBytes;
using trdcomp::u8;
namespace compact = trdcomp::compact;

namespace {
u8* bytes(char* p) {
  return reinterpret_cast<u8*>(p);
}
RawBytes raw(char* p) {
  return RawBytes{reinterpret_cast<const u8*>(p)};
}

// Position i of a securities code maps to bit 1 << i of the mask byte.
constexpr u8 kCodeMask[8] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80};
}  // namespace

CKtNetCompressHelper::CKtNetCompressHelper() = default;
CKtNetCompressHelper::~CKtNetCompressHelper() = default;
CKtNetCompressHelper::CKtNetCompressHelper(const CKtNetCompressHelper&) = default;
CKtNetCompressHelper& CKtNetCompressHelper::operator=(const CKtNetCompressHelper&) = default;

int CKtNetCompressHelper::NCH_compress_int(char* out, int value) {
  return compact::writeInt(bytes(out), value);
}

int CKtNetCompressHelper::NCH_decompress_int(char* in, int& value) {
  std::int64_t pos = 0;
  value = compact::readInt(raw(in), pos);
  return static_cast<int>(pos);
}

int CKtNetCompressHelper::NCH_compress_int64(char* out, std::int64_t value) {
  return compact::writeInt64(bytes(out), value);
}

int CKtNetCompressHelper::NCH_decompress_int64(char* in, std::int64_t& value) {
  std::int64_t pos = 0;
  value = compact::readInt64(raw(in), pos);
  return static_cast<int>(pos);
}

// Data byte 0 holds the sign and the low 7 bits; byte k holds bits 8k-1 to 8k+6. The length
// code (1-7, 7 meaning eight bytes) goes to the caller's flags.
int CKtNetCompressHelper::NCH_compress_int64_3Flags(char& flags, char* out, std::int64_t value) {
  u8* o = bytes(out);
  flags = 0;
  o[0] = 0;
  if (value == 0) return 0;
  if (value < 0) o[0] = 0x80;
  std::int64_t m = compact::magnitude(value);
  std::uint64_t u = static_cast<std::uint64_t>(m);
  int n, code;
  if (m < 0x80) {
    code = 1, n = 1;
  } else if (m < 0x8000) {
    code = 2, n = 2;
  } else if (m < 0x800000) {
    code = 3, n = 3;
  } else if (m < 0x80000000) {
    code = 4, n = 4;
  } else if (m < 0x8000000000) {
    code = 5, n = 5;
  } else if (m < 0x800000000000) {
    code = 6, n = 6;
  } else {
    code = 7, n = 8;
  }
  flags = static_cast<char>(flags | code);
  o[0] = static_cast<u8>(o[0] | (u & 0x7F));
  for (int k = 1; k < n; ++k) o[k] = static_cast<u8>(u >> (8 * k - 1));
  return n;
}

// Exact inverse for codes 1 to 6. Code 7 assembles its high part lossily, as peers do: bits
// 40-43 take only the low nibble of byte 5, bits 44-47 stay clear, bits 48-55 repeat bit 7 of
// byte 6. Magnitudes of 2^47 and above therefore do not survive.
int CKtNetCompressHelper::NCH_decompress_int64_3Flags(char flags, char* in, std::int64_t& value) {
  const u8* b = bytes(in);
  int n = flags & 7;
  if (n == 0) {
    value = 0;
    return 0;
  }
  std::uint64_t t = 0;
  if (n < 7) {
    for (int k = 1; k < n; ++k) t |= std::uint64_t(b[k]) << (8 * k);
  } else {
    for (int k = 1; k <= 4; ++k) t |= std::uint64_t(b[k]) << (8 * k);
    t |= std::uint64_t(b[5] & 0x0F) << 40;
    if (b[6] & 0x80) t |= std::uint64_t(0xFF) << 48;
    t |= std::uint64_t(b[7]) << 56;
  }
  std::uint64_t v = (b[0] & 0x7Fu) | static_cast<std::uint64_t>(static_cast<std::int64_t>(t) >> 1);
  value = static_cast<std::int64_t>((b[0] & 0x80) ? 0ull - v : v);
  return n == 7 ? 8 : n;
}

// Flags bit 2 is the sign, bits 0-1 the length code (1, 2 or 4 bytes). Zero writes nothing.
int CKtNetCompressHelper::NCH_compress_int_2Flags(char& flags, char* out, int value) {
  u8* o = bytes(out);
  flags = 0;
  if (value == 0) return 0;
  o[0] = 0;
  if (value < 0) flags = 4;
  std::int32_t m = compact::magnitude(static_cast<std::int32_t>(value));
  std::uint32_t u = static_cast<std::uint32_t>(m);
  if (m < 256) {
    flags = static_cast<char>(flags | 1);
    o[0] = static_cast<u8>(u);
    return 1;
  }
  if (m < 65536) {
    flags = static_cast<char>(flags | 2);
    trdcomp::storeU16(o, static_cast<std::uint16_t>(u));
    return 2;
  }
  flags = static_cast<char>(flags | 3);
  trdcomp::storeU32(o, u);
  return 4;
}

// Length code 3 has no decoding: it yields 0 and consumes nothing, although four bytes were
// written. Peers read it the same way, so it stays.
int CKtNetCompressHelper::NCH_decompress_int_2Flags(char flags, char* in, int& value) {
  const u8* b = bytes(in);
  std::int32_t v = 0;
  int n = 0;
  switch (flags & 3) {
    case 1: v = b[0], n = 1; break;
    case 2: v = trdcomp::loadU16(b), n = 2; break;
    default: break;
  }
  value = (flags & 4) ? -v : v;
  return n;
}

// The terminator is written behind the text but not counted: the next field overwrites it.
int CKtNetCompressHelper::NCH_compress_string(char* out, const char* text) {
  std::size_t length = std::strlen(text);
  int n = compact::writeInt(bytes(out), static_cast<std::int32_t>(length));
  std::memcpy(out + n, text, length + 1);
  return n + static_cast<int>(length);
}

// Keeps at most size - 1 characters so that the array's last byte stays as it was (zero in a
// zero-filled record); the whole encoded text is skipped.
int CKtNetCompressHelper::NCH_decompress_string(char* in, char* dest, int size) {
  std::int64_t pos = 0;
  std::int32_t length = compact::readInt(raw(in), pos);
  if (length < 1) return static_cast<int>(pos);
  std::int64_t k = length < size - 1 ? length : size - 1;
  compact::copyText(raw(in), pos, bytes(dest), k);
  return static_cast<int>(pos + length);
}

// Positions at and past the code's terminator are not compared, so a shorter code comes back
// with the reference's trailing characters. A code has at most eight positions.
int CKtNetCompressHelper::NCH_compress_securitiesCode8(char* out, const char* code,
                                                       const char* reference) {
  u8* o = bytes(out);
  o[0] = 0;
  int count = 1;
  std::size_t length = std::strlen(code);
  for (std::size_t i = 0; i < length && i < 8; ++i) {
    if (code[i] != reference[i]) {
      o[0] |= kCodeMask[i];
      o[count++] = static_cast<u8>(code[i]);
    }
  }
  return count;
}

int CKtNetCompressHelper::NCH_decompress_securitiesCode8(char* in, char* dest,
                                                         const char* reference) {
  const u8* b = bytes(in);
  int count = 1;
  for (int i = 0; i < 8; ++i)
    dest[i] = (b[0] & kCodeMask[i]) ? static_cast<char>(b[count++]) : reference[i];
  return count;
}

int CKtNetCompressHelper::NCH_compress_binData(char* out, char* data, int length) {
  int n = compact::writeInt(bytes(out), length);
  if (length > 0) std::memcpy(out + n, data, static_cast<std::size_t>(length));
  return n + length;
}

// Unlike texts, the cap is the full capacity. A length below 1 leaves dest and `length` alone.
int CKtNetCompressHelper::NCH_decompress_binData(char* in, char* dest, int capacity, int& length) {
  std::int64_t pos = 0;
  std::int32_t stored = compact::readInt(raw(in), pos);
  if (stored < 1) return static_cast<int>(pos);
  int k = stored < capacity ? stored : capacity;
  length = k;
  if (k > 0) std::memcpy(dest, in + pos, static_cast<std::size_t>(k));
  return static_cast<int>(pos + stored);
}
