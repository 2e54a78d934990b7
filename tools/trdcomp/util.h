// Small helpers of the trdcomp tool: errors with byte offsets, little-endian access, hex and the
// lossless byte-string mapping of texts.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace trdcomp::tool {

using Bytes = std::vector<unsigned char>;

// Bad input: a one-line message and, where one applies, the byte offset of the fault.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message, std::int64_t offset = -1)
      : std::runtime_error(message), offset_(offset) {}
  std::int64_t offset() const { return offset_; }

 private:
  std::int64_t offset_;
};

inline std::uint32_t loadU32(const unsigned char* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}
inline std::int32_t loadI32(const unsigned char* p) {
  return static_cast<std::int32_t>(loadU32(p));
}
inline std::int64_t loadI64(const unsigned char* p) {
  return static_cast<std::int64_t>(std::uint64_t(loadU32(p)) | std::uint64_t(loadU32(p + 4)) << 32);
}
double loadF64(const unsigned char* p);
inline void storeU32(unsigned char* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline void storeI64(unsigned char* p, std::int64_t v) {
  for (int i = 0; i < 8; ++i)
    p[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(v) >> (8 * i));
}
void storeF64(unsigned char* p, double v);

// Lowercase hex of n bytes; `trimZeros` leaves out the trailing zero bytes.
std::string toHex(const unsigned char* p, std::size_t n, bool trimZeros = false);
// Hex digits, two per byte, to at most `width` bytes (fewer are padded with zeros when `width`
// is given). Throws Error naming `what` on a bad digit or too many bytes.
Bytes fromHex(const std::string& hex, const std::string& what, std::size_t width = 0);

// Hex text as copied from a log or a dump: pairs of hex digits, with spaces, newlines, commas,
// "0x" and "\x" prefixes ignored, and the offset and ASCII columns of xxd, hexdump -C and
// od -An -tx1 left out.
Bytes parseHexText(const std::string& text);

// Texts as JSON strings: byte b is code point U+00bb, trailing zero bytes left out. Lossless
// for a field of known width.
std::string bytesToText(const unsigned char* p, std::size_t n);
// The reverse; throws Error naming `what` for a code point above U+00FF or a text longer than
// `width`.
Bytes textToBytes(const std::string& utf8, std::size_t width, const std::string& what);

// A text for people: printable ASCII as it is, quotes and backslashes escaped, other bytes as
// \xNN, trailing zero bytes left out.
std::string escapeText(const unsigned char* p, std::size_t n);

// Shortest decimal form that reads back as the same double; "nan", "inf", "-inf" otherwise.
std::string formatDouble(double v);

}  // namespace trdcomp::tool
