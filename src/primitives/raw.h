// Raw bodies and the checks on the caller's arrays, shared by the framing of both codecs:
// bodies too short to hold a record travel as they are, and unpacked records are copied
// between the sender's size and the library's.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "primitives/bytes.h"
#include "primitives/out_buffer.h"
#include "primitives/status.h"

namespace trdcomp {

constexpr int kRequestHeader = 76;
constexpr int kAnswerHeader = 96;

// A request body the caller hands in: not negative, not null when it has bytes.
inline Status checkBody(const char* body, int bodyLen) {
  if (bodyLen < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  if (!body && bodyLen > 0) return TRDCOMP_ERROR_NULL_ARGUMENT;
  return TRDCOMP_OK;
}

// `count` records of `size` bytes laid every `size` bytes must lie inside `bytes`.
inline Status checkRecords(std::int64_t count, std::int32_t size, std::int64_t bytes) {
  if (count < 1) return TRDCOMP_OK;
  if (size < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  return count * size > bytes ? TRDCOMP_ERROR_BODY_TOO_SHORT : TRDCOMP_OK;
}

// A body shorter than one record (0 <= bodyLen < size) is appended unchanged, flags untouched.
// Returns whether it was.
inline bool appendShortBody(OutBuffer& out, const char* body, int bodyLen, std::uint32_t size) {
  if (static_cast<std::uint32_t>(bodyLen) >= size) return false;
  out.append(body, bodyLen);
  return true;
}

// A raw request's records start at 76 whatever its header length says, each of the sender's
// size: a positive count needs count x size bytes there, and a negative size is refused.
inline Status checkRawRequest(const InView& in, std::int32_t count, std::int32_t senderSize) {
  if (count < 1) return TRDCOMP_OK;
  if (senderSize < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  return std::int64_t(count) * senderSize > in.size() - kRequestHeader
             ? TRDCOMP_ERROR_COUNT_BEYOND_INPUT
             : TRDCOMP_OK;
}

// Where a restore writes its records, in order of address: every record must be zero when its
// decoding starts (decoders write only what the input holds). A buffer from fresh zero pages is
// zero already. A buffer from warm memory is cleared just ahead of the decoding, over the bytes a
// record's decoding may write, while they are about to be in cache anyway; what no record
// reached (records past the end of the input, and the slack) is cleared by finish().
class RecordArea {
 public:
  RecordArea(u8* clean, u8* end, bool zeroed) : clean_(clean), end_(end), zeroed_(zeroed) {}

  u8* end() const { return end_; }
  // Whether the buffer came as fresh zero pages (nothing needs clearing).
  bool fresh() const { return zeroed_; }
  // Bytes [record, record + reach) are zero, but for what earlier records wrote past their own
  // end (a 2008 decode cap): call in order of address.
  void prepare(u8* record, std::int64_t reach) {
    if (zeroed_) return;
    u8* to = reach < end_ - record ? record + reach : end_;
    if (to <= clean_) return;
    std::memset(clean_, 0, static_cast<std::size_t>(to - clean_));
    clean_ = to;
  }
  // Bytes [record, record + size) are written whole by the caller: only what lies before them
  // is cleared.
  void claim(u8* record, std::int64_t size) {
    if (zeroed_) return;
    prepare(record, 0);
    u8* to = size < end_ - record ? record + size : end_;
    if (to > clean_) clean_ = to;
  }
  void finish() { prepare(end_, 0); }

 private:
  u8* clean_;  // bytes from here to end_ have not been cleared yet
  u8* end_;
  bool zeroed_;
};

// The restored length of a message: a fixed part plus count records of a given size, refused
// when the count is negative, when it (with its slack) leaves the 32-bit lengths of the
// interface, or when it passes the caller's limit.
inline Status restoredLength(std::int64_t count, std::int64_t recordSize, std::int64_t fixed,
                             std::int64_t slack, const RestoreOptions& options,
                             std::int64_t& length) {
  if (count < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  length = count * recordSize + fixed;
  if (length + slack > INT32_MAX) return TRDCOMP_ERROR_TOO_LARGE;
  return length > options.maxLength ? TRDCOMP_ERROR_LIMIT : TRDCOMP_OK;
}

}  // namespace trdcomp
