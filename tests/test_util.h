// Small helpers shared by the tests.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "records/answer_layouts.h"
#include "records/request_layouts.h"
#include "samples.h"

namespace trdcomp::test {

using samples::Bytes;
using samples::packAnswer;
using samples::packRequest;
using samples::restoreAnswer;
using samples::Restored;
using samples::restoreRequest;

// "24 03" -> {0x24, 0x03}
inline Bytes hex(const std::string& text) {
  Bytes out;
  unsigned v;
  int n;
  for (const char* p = text.c_str(); std::sscanf(p, " %x%n", &v, &n) == 1; p += n)
    out.push_back(static_cast<unsigned char>(v));
  return out;
}

inline std::string hexOf(const void* data, std::size_t n) {
  std::string s;
  char buf[4];
  for (std::size_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%s%02X", i ? " " : "",
                  static_cast<const unsigned char*>(data)[i]);
    s += buf;
  }
  return s;
}
inline std::string hexOf(const Bytes& b) {
  return hexOf(b.data(), b.size());
}

// Every layout of the catalogue that has a record codec.
inline std::vector<const records::Layout*> everyLayout() {
  std::vector<const records::Layout*> out;
  for (const records::Layout& l : records::kRequestLayouts)
    if (!l.opaque) out.push_back(&l);
  for (const records::Layout& l : records::kAnswerLayouts)
    if (!l.opaque) out.push_back(&l);
  return out;
}

}  // namespace trdcomp::test

#include "TrdCompData.h"

namespace trdcomp::test {

inline Bytes concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline Bytes slice(const Bytes& b, std::size_t from, std::size_t n = std::string::npos) {
  return Bytes(b.begin() + static_cast<long>(from),
               n == std::string::npos ? b.end() : b.begin() + static_cast<long>(from + n));
}

inline std::int32_t i32At(const Bytes& b, std::size_t at) {
  return static_cast<std::int32_t>(b[at] | b[at + 1] << 8 | b[at + 2] << 16 |
                                   static_cast<unsigned>(b[at + 3]) << 24);
}
inline void putI32(Bytes& b, std::size_t at, std::int32_t v) {
  for (int i = 0; i < 4; ++i)
    b[at + i] = static_cast<unsigned char>(static_cast<std::uint32_t>(v) >> (8 * i));
}

inline tagREQ_HEAD requestHead(std::uint32_t number, std::int32_t count, std::int32_t size,
                               char flags = 0) {
  tagREQ_HEAD h{};
  h.funcNo = number;
  h.flags = flags;
  h.recCount = count;
  h.recSize = size;
  for (int i = 0; i < 59; ++i) h.callerData[i] = static_cast<char>(0xA0 + i);
  return h;
}

inline tagANS_Proc answerProc(std::uint32_t number, std::vector<std::pair<int, int>> sections) {
  tagANS_Proc p{};
  p.funcNo = number;
  std::memcpy(p.shortText, "0000", 4);
  std::memcpy(p.text, "done", 5);
  p.sectionCount = static_cast<std::int32_t>(sections.size());
  for (std::size_t i = 0; i < sections.size() && i < 5; ++i) {
    p.recCount[i] = sections[i].first;
    p.recSize[i] = sections[i].second;
  }
  return p;
}

}  // namespace trdcomp::test
