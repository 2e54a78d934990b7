#include "util.h"

#include <algorithm>
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

namespace {

bool isHexToken(const std::string& t) {
  return !t.empty() && std::all_of(t.begin(), t.end(), [](char c) { return hexDigit(c) >= 0; });
}

// One line of a dump, less its offset column and its ASCII column: "offset:" labels (xxd and
// most logs), a leading 7- or 8-digit offset followed by short groups (hexdump, od), "|...|"
// columns (hexdump -C), and the text after the last double space when it is not hex (xxd).
std::string dataOfLine(std::string line, bool hexdumpColumns) {
  for (std::size_t bar; (bar = line.find('|')) != std::string::npos;) {
    const std::size_t end = line.find('|', bar + 1);
    line.erase(bar, end == std::string::npos ? std::string::npos : end - bar + 1);
  }
  const std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  line.erase(0, first);
  // hexdump -C ends with a line of the total length alone.
  if (hexdumpColumns && line.find_first_of(" \t") == std::string::npos && isHexToken(line))
    return "";
  const std::size_t colon = line.find(':');
  if (colon != std::string::npos && isHexToken(line.substr(0, colon))) {
    line.erase(0, colon + 1);
    const std::size_t gap = line.rfind("  ");
    if (gap != std::string::npos &&
        line.find_first_not_of("0123456789abcdefABCDEF \t", gap) != std::string::npos)
      line.erase(gap);
    return line;
  }
  std::vector<std::string> tokens;
  for (std::size_t i = 0; i < line.size();) {
    const std::size_t j = line.find_first_of(" \t", i);
    tokens.push_back(line.substr(i, j == std::string::npos ? std::string::npos : j - i));
    if (j == std::string::npos) break;
    i = line.find_first_not_of(" \t", j);
    if (i == std::string::npos) break;
  }
  if (tokens.size() > 1 && (tokens[0].size() == 7 || tokens[0].size() == 8) &&
      isHexToken(tokens[0]) &&
      std::all_of(tokens.begin() + 1, tokens.end(),
                  [](const std::string& t) { return t.size() <= 4; }))
    line.erase(0, tokens[0].size());
  return line;
}

}  // namespace

Bytes parseHexText(const std::string& text) {
  Bytes out;
  int pending = -1;
  std::size_t lineNo = 0;
  for (std::size_t start = 0; start <= text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    ++lineNo;
    const std::string line =
        dataOfLine(text.substr(start, end - start), text.find('|') != std::string::npos);
    if (line == "*")
      throw Error("hex input: line " + std::to_string(lineNo) +
                  " stands for repeated lines that the dump left out; dump with -v");
    for (std::size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      if (std::isspace(static_cast<unsigned char>(c)) || c == ',') continue;
      if ((c == '0' || c == '\\') && pending < 0 && i + 1 < line.size() &&
          (line[i + 1] == 'x' || line[i + 1] == 'X')) {
        ++i;
        continue;
      }
      const int d = hexDigit(c);
      if (d < 0)
        throw Error("hex input: unexpected character '" + std::string(1, c) + "' on line " +
                    std::to_string(lineNo));
      if (pending < 0) {
        pending = d;
      } else {
        out.push_back(static_cast<unsigned char>(pending << 4 | d));
        pending = -1;
      }
    }
    start = end + 1;
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
