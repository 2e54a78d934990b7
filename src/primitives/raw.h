// Raw bodies, shared by the framing of both codecs: bodies too short to hold a record travel as
// they are, and unpacked records are copied between the sender's size and the library's.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "primitives/bytes.h"

namespace trdcomp {

// A body shorter than one record (0 <= bodyLen < size) is appended unchanged, flags untouched.
// Returns whether it was.
inline bool appendShortBody(u8* out, int& outLen, const char* body, int bodyLen,
                            std::uint32_t size) {
  if (static_cast<std::uint32_t>(bodyLen) >= size) return false;
  if (bodyLen > 0) std::memcpy(out + outLen, body, static_cast<std::size_t>(bodyLen));
  outLen += bodyLen;
  return true;
}

// Copies `count` raw request records, laid every `senderSize` bytes from offset 76 of the
// message whatever its header length says, into records of `size` bytes from `first` on; each
// keeps min(senderSize, size) bytes and a zero tail.
inline void copyRawRecords(const InView& in, std::int32_t senderSize, u8* first, std::int64_t count,
                           std::int64_t size) {
  const std::int64_t copy = std::min<std::int64_t>(static_cast<std::uint32_t>(senderSize), size);
  for (std::int64_t i = 0; i < count; ++i) {
    const std::int64_t from = 76 + i * senderSize;
    if (senderSize > 0 && from >= in.size()) break;  // the rest stay zero
    in.copyAvailable(first + i * size, from, copy);
  }
}

}  // namespace trdcomp
