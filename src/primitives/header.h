// Named views of the message headers: where each field lies, read through a bounded view (bytes
// past the input read as zero) or written into a buffer that holds the whole header. Offsets
// come from the public header structs; nothing else in the library spells them as numbers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "TrdCompData.h"
#include "primitives/bytes.h"
#include "trdcomp_c.h"

namespace trdcomp::header {

// The request header's fields.
struct Request {
  static constexpr int kLength = offsetof(trdcomp_request_header, header_length);
  static constexpr int kFunction = offsetof(trdcomp_request_header, function);
  static constexpr int kFlags = offsetof(trdcomp_request_header, flags);
  static constexpr int kCaller = offsetof(trdcomp_request_header, caller);
  static constexpr int kCount = offsetof(trdcomp_request_header, count);
  static constexpr int kSize = offsetof(trdcomp_request_header, size);
  static constexpr int kBytes = sizeof(trdcomp_request_header);
};

// The answer header's fields.
struct Answer {
  static constexpr int kLength = offsetof(trdcomp_answer_header, header_length);
  static constexpr int kFunction = offsetof(trdcomp_answer_header, function);
  static constexpr int kFlags = offsetof(trdcomp_answer_header, flags);
  static constexpr int kCaller = offsetof(trdcomp_answer_header, caller);
  static constexpr int kShortText = offsetof(trdcomp_answer_header, short_text);
  static constexpr int kText = offsetof(trdcomp_answer_header, text);
  static constexpr int kCount = offsetof(trdcomp_answer_header, count);
  static constexpr int kSize = offsetof(trdcomp_answer_header, size);
  static constexpr int kBytes = sizeof(trdcomp_answer_header);
};

static_assert(Request::kBytes == 76 && Answer::kBytes == 96);
static_assert(Request::kLength == Answer::kLength && Request::kFunction == Answer::kFunction &&
              Request::kFlags == Answer::kFlags);
static_assert(sizeof(tagREQ_HEAD) == Request::kBytes &&
              offsetof(tagREQ_HEAD, recCount) == Request::kCount &&
              offsetof(tagREQ_HEAD, recSize) == Request::kSize &&
              offsetof(tagREQ_HEAD, flags) == Request::kFlags);

// The flags byte.
struct Flags {
  u8 bits = 0;
  static constexpr u8 kPacked = TRDCOMP_FLAG_PACKED;
  static constexpr u8 kSectionTable = TRDCOMP_FLAG_SECTION_TABLE;
  static constexpr int kNibbleShift = TRDCOMP_FLAG_NIBBLE_SHIFT;

  bool packed() const { return bits & kPacked; }
  bool sectionTable() const { return bits & kSectionTable; }
  int nibble() const { return bits >> kNibbleShift; }
  // 0: the 2008 codec, 1: the 2011 Fast codec.
  int codec() const { return nibble() ? 1 : 0; }
  static constexpr u8 nibbleBits(int nibble) {
    return static_cast<u8>((nibble & 15) << kNibbleShift);
  }
};

// The fields both headers open with.
class View {
 public:
  explicit View(const InView& in) : in_(in) {}
  std::int32_t length() const { return in_.i32(Request::kLength); }
  std::uint32_t function() const { return in_.u32(Request::kFunction); }
  Flags flags() const { return Flags{in_.at(Request::kFlags)}; }

 protected:
  InView in_;
};

template <class Fields>
class HeaderView : public View {
 public:
  using View::View;
  std::int32_t count() const { return in_.i32(Fields::kCount); }
  std::int32_t size() const { return in_.i32(Fields::kSize); }
};
using RequestView = HeaderView<Request>;
using AnswerView = HeaderView<Answer>;

// Writing into a buffer that holds the header.
inline void setLength(u8* header, std::int32_t length) {
  storeI32(header + Request::kLength, length);
}
inline void setFunction(u8* header, std::uint32_t number) {
  storeU32(header + Request::kFunction, number);
}
inline u8& flagsByte(u8* header) {
  return header[Request::kFlags];
}
template <class Fields>
void setCountAndSize(u8* header, std::int32_t count, std::int32_t size) {
  storeI32(header + Fields::kCount, count);
  storeI32(header + Fields::kSize, size);
}

}  // namespace trdcomp::header
