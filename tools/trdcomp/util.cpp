#include "util.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

namespace trdcomp::tool {

double loadF64(const unsigned char* p) {
  const std::int64_t bits = loadI64(p);
  double v;
  std::memcpy(&v, &bits, 8);
  return v;
}

void storeF64(unsigned char* p, double v) {
  std::int64_t bits;
  std::memcpy(&bits, &v, 8);
  storeI64(p, bits);
}

std::string toHex(const unsigned char* p, std::size_t n, bool trimZeros) {
  if (trimZeros)
    while (n > 0 && p[n - 1] == 0) --n;
  static const char digits[] = "0123456789abcdef";
  std::string s(2 * n, '0');
  for (std::size_t i = 0; i < n; ++i) {
    s[2 * i] = digits[p[i] >> 4];
    s[2 * i + 1] = digits[p[i] & 15];
  }
  return s;
}

namespace {
int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

Bytes fromHex(const std::string& hex, const std::string& what, std::size_t width) {
  if (hex.size() % 2)
    throw Error(what + ": hex string of " + std::to_string(hex.size()) +
                " digits is not whole bytes");
  Bytes out(hex.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const int hi = hexDigit(hex[2 * i]), lo = hexDigit(hex[2 * i + 1]);
    if (hi < 0 || lo < 0) throw Error(what + ": '" + hex.substr(2 * i, 2) + "' is not a hex byte");
    out[i] = static_cast<unsigned char>(hi << 4 | lo);
  }
  if (width) {
    if (out.size() > width)
      throw Error(what + ": " + std::to_string(out.size()) + " bytes do not fit its " +
                  std::to_string(width));
    out.resize(width, 0);
  }
  return out;
}

Bytes parseHexText(const std::string& text) {
  Bytes out;
  std::size_t line = 1, column = 0;
  int pending = -1;
  bool inAscii = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    ++column;
    if (c == '\n') {
      ++line, column = 0, inAscii = false;
      continue;
    }
    if (c == '|') {
      inAscii = !inAscii;
      continue;
    }
    if (inAscii) continue;
    if (std::isspace(static_cast<unsigned char>(c)) || c == ',') continue;
    if ((c == '0' || c == '\\') && i + 1 < text.size() &&
        (text[i + 1] == 'x' || text[i + 1] == 'X') && pending < 0) {
      ++i, ++column;
      continue;
    }
    // "offset:" labels: a run of hex digits ended by a colon.
    if (pending < 0) {
      std::size_t j = i;
      while (j < text.size() && hexDigit(text[j]) >= 0) ++j;
      if (j < text.size() && text[j] == ':' && j > i) {
        column += j - i;
        i = j;
        continue;
      }
    }
    const int d = hexDigit(c);
    if (d < 0)
      throw Error("hex input: unexpected character '" + std::string(1, c) + "' at line " +
                  std::to_string(line) + " column " + std::to_string(column));
    if (pending < 0) {
      pending = d;
    } else {
      out.push_back(static_cast<unsigned char>(pending << 4 | d));
      pending = -1;
    }
  }
  if (pending >= 0)
    throw Error("hex input: an odd number of hex digits", static_cast<std::int64_t>(out.size()));
  return out;
}

std::string bytesToText(const unsigned char* p, std::size_t n) {
  while (n > 0 && p[n - 1] == 0) --n;
  std::string s;
  s.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char b = p[i];
    if (b < 0x80) {
      s += static_cast<char>(b);
    } else {
      s += static_cast<char>(0xC0 | (b >> 6));
      s += static_cast<char>(0x80 | (b & 0x3F));
    }
  }
  return s;
}

Bytes textToBytes(const std::string& utf8, std::size_t width, const std::string& what) {
  Bytes out;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      out.push_back(c);
    } else if ((c & 0xE0) == 0xC0 && i + 1 < utf8.size() && c <= 0xC3) {
      out.push_back(static_cast<unsigned char>((c & 0x1F) << 6 | (utf8[i + 1] & 0x3F)));
      ++i;
    } else {
      throw Error(what +
                  ": a character above U+00FF is not a byte (texts map each byte to one "
                  "character U+0000 to U+00FF)");
    }
  }
  if (out.size() > width)
    throw Error(what + ": a text of " + std::to_string(out.size()) + " bytes does not fit its " +
                std::to_string(width));
  out.resize(width, 0);
  return out;
}

std::string escapeText(const unsigned char* p, std::size_t n) {
  while (n > 0 && p[n - 1] == 0) --n;
  std::string s = "\"";
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char b = p[i];
    if (b == '"' || b == '\\') {
      s += '\\';
      s += static_cast<char>(b);
    } else if (b >= 0x20 && b < 0x7F) {
      s += static_cast<char>(b);
    } else {
      static const char digits[] = "0123456789abcdef";
      s += "\\x";
      s += digits[b >> 4];
      s += digits[b & 15];
    }
  }
  return s + "\"";
}

std::string formatDouble(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v < 0 ? "-inf" : "inf";
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  std::string s(buf, r.ptr);
  return s;
}

}  // namespace trdcomp::tool
