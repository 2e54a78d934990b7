// Whole-message pack and restore for the C interface. The input is checked first, field by field
// and record by record, so that a fault is reported with its byte offset; then the public entry
// points do the work.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TrdCompData.h"
#include "capi/tables.h"
#include "capi/walk.h"
#include "framing/walker.h"
#include "primitives/bytes.h"
#include "primitives/header.h"

namespace trdcomp::capi {
namespace {

using records::Field;
using records::Kind;
using records::Layout;

constexpr std::int64_t kRequestHeader = 76, kAnswerHeader = 96;
constexpr std::int64_t kDefaultLimit = std::int64_t(256) << 20;
using framing::kMostSections;
constexpr std::int64_t kMost2011Count = 0xFFFF;

const char* const kDirection[] = {"request", "answer"};

// The caller's bytes; every read is checked by the caller with has().
struct Input {
  const u8* p;
  std::int64_t n;
  bool has(std::int64_t at, std::int64_t k) const { return at >= 0 && k >= 0 && at <= n - k; }
  std::int32_t i32(std::int64_t at) const { return loadI32(p + at); }
  std::uint32_t u32(std::int64_t at) const { return loadU32(p + at); }
  std::uint16_t u16(std::int64_t at) const { return loadU16(p + at); }
};

long long ll(std::int64_t v) {
  return static_cast<long long>(v);
}

// a * b + c, saturated far above any length the entry points accept.
std::int64_t mulAdd(std::int64_t a, std::int64_t b, std::int64_t c) {
  constexpr std::int64_t kBig = std::int64_t(1) << 60;
  if (a < 0 || b < 0 || c < 0) return kBig;
  if (a != 0 && b > kBig / a) return kBig;
  return std::min(kBig, a * b + c);
}

// The header common to both directions: its size, the function number.
int checkHeader(const Input& in, int direction, trdcomp_error* err, const frame::Entry*& entry) {
  const std::int64_t header = direction == TRDCOMP_REQUEST ? kRequestHeader : kAnswerHeader;
  if (!in.has(0, header))
    return fail(err, TRDCOMP_ERROR_TRUNCATED, in.n,
                "the message is %lld bytes, an %s header is %lld", ll(in.n),
                direction == TRDCOMP_REQUEST ? "request" : "answer", ll(header));
  const std::uint32_t number = header::View(InView(in.p, in.n)).function();
  entry = frame::find(number);
  if (!entry)
    return fail(err, TRDCOMP_ERROR_UNKNOWN_FUNCTION, header::Request::kFunction,
                "unknown function number %u", number);
  return TRDCOMP_OK;
}

// The sections a plain answer lists, as the walker finds them: the table's pairs (at most five
// are read) or the header's count and size.
int listed(const framing::Frame& f) {
  return f.table < 0 ? 1 : static_cast<int>(std::min<std::int64_t>(f.pairs, kMostSections));
}
std::int64_t sizeAt(const framing::Frame& f, int k) {
  return f.table < 0 ? header::Answer::kSize : f.countAt[k] + 4;
}

// What the walker read of a plain answer's frame, checked: a table that lies inside the message
// and has the form of pairs, at most five of them, and no negative count or size.
int checkSections(const Input& in, const framing::Frame& f, trdcomp_error* err) {
  if (f.table >= 0) {
    if (!in.has(f.table, 4))
      return fail(err, TRDCOMP_ERROR_TRUNCATED, f.table, "the section table's size is cut off");
    const std::int64_t size = f.tableBytes;
    if (size < 4 || (size - 4) % 8 != 0)
      return fail(err, TRDCOMP_ERROR_HEADER, f.table,
                  "section table size %lld is not 4 plus 8 bytes per section", ll(size));
    if (!in.has(f.table, size))
      return fail(err, TRDCOMP_ERROR_TRUNCATED, in.n,
                  "the section table claims %lld bytes at offset %lld, the message ends first",
                  ll(size), ll(f.table));
    if (f.pairs > kMostSections)
      return fail(err, TRDCOMP_ERROR_HEADER, f.table,
                  "the section table lists %lld sections, at most 5 travel", ll(f.pairs));
  }
  for (int k = 0; k < listed(f); ++k) {
    if (f.counts[k] < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, f.countAt[k],
                  "record count %d of section %d is negative", f.counts[k], k);
    if (f.senderSizes[k] < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, sizeAt(f, k),
                  "record size %d of section %d is negative", f.senderSizes[k], k);
  }
  return TRDCOMP_OK;
}

// Plain records: `count` of `size` bytes from `at` must lie inside the message.
int checkRawRecords(const Input& in, std::int64_t at, std::int64_t count, std::int64_t size,
                    const char* what, trdcomp_error* err) {
  const std::int64_t need = mulAdd(count, size, at);
  if (need > in.n)
    return fail(err, TRDCOMP_ERROR_TRUNCATED, in.n,
                "%s: %lld records of %lld bytes from offset %lld need %lld bytes, the message has "
                "%lld",
                what, ll(count), ll(size), ll(at), ll(need), ll(in.n));
  return TRDCOMP_OK;
}

// Packed records of the 2008 codec (a u32 length, then the record) or blocks of the 2011 Fast
// codec (a u16 length, then the block), `count` of them from `pos`.
// Where the fault that made the restore refuse lies, as far as the frame tells.
std::int64_t refusalOffset(const Walked& w, int direction, int reason) {
  const std::int64_t count =
      direction == TRDCOMP_REQUEST ? header::Request::kCount : header::Answer::kCount;
  switch (reason) {
    case TRDCOMP_ERROR_COUNT_MISMATCH: return w.refusalAt;
    case TRDCOMP_ERROR_HEADER_LENGTH: return header::Request::kLength;
    case TRDCOMP_ERROR_PACKED_UNKNOWN:
    case TRDCOMP_ERROR_SECTION_BIT: return header::Request::kFlags;
    case TRDCOMP_ERROR_NEGATIVE_SIZE:
    case TRDCOMP_ERROR_COUNT_BEYOND_INPUT:
    case TRDCOMP_ERROR_TOO_LARGE:
    case TRDCOMP_ERROR_LIMIT: return count;
    default: return -1;
  }
}

// The same, never past the input: a field the message is too short to hold is faulted where the
// message ends.
std::int64_t refusalOffset(const Walked& w, int direction, int reason, std::int64_t size) {
  return std::min(refusalOffset(w, direction, reason), size);
}

// The output buffer of a pack, of the library's bound for the message.
int allocateOutput(std::int64_t bound, trdcomp_error* err, u8*& out) {
  if (bound > INT32_MAX)
    return fail(err, TRDCOMP_ERROR_TOO_LARGE, -1,
                "the packed message could need %lld bytes, more than a message may hold",
                ll(bound));
  out = static_cast<u8*>(std::calloc(static_cast<std::size_t>(bound), 1));
  if (!out)
    return fail(err, TRDCOMP_ERROR_ALLOCATION, -1, "out of memory for %lld bytes", ll(bound));
  return TRDCOMP_OK;
}

int finish(u8* buffer, std::int64_t length, void** out, std::size_t* outLen) {
  void* shrunk = std::realloc(buffer, static_cast<std::size_t>(length ? length : 1));
  *out = shrunk ? shrunk : buffer;
  *outLen = static_cast<std::size_t>(length);
  return TRDCOMP_OK;
}

int packRequest(const Input& in, const frame::Entry& e, int nibble, int flag, void** out,
                std::size_t* outLen, trdcomp_error* err) {
  tagREQ_HEAD head;
  std::memcpy(&head, in.p, sizeof head);
  head.flags =
      static_cast<char>((in.p[header::Request::kFlags] & 0x0F) | header::Flags::nibbleBits(nibble));
  const int codec = nibble ? 1 : 0;
  const Records r = recordsOf(e, TRDCOMP_REQUEST, codec);
  const std::int64_t body = in.n - kRequestHeader;
  std::int64_t count = 0;
  if (r.form == TRDCOMP_FORM_RECORDS) {
    count = head.recCount;
    if (count < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, header::Request::kCount,
                  "record count %lld is negative", ll(count));
    if (head.recSize < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, header::Request::kSize, "record size %d is negative",
                  head.recSize);
    if (int s = checkRawRecords(in, kRequestHeader, count, head.recSize, "records", err)) return s;
    if (codec == 1 && count > kMost2011Count)
      return fail(err, TRDCOMP_ERROR_HEADER, header::Request::kCount,
                  "record count %lld does not fit the 16 bits the 2011 codec sends", ll(count));
  }
  const std::int64_t bound = CTrdCompData::PackReqBound(&head, static_cast<int>(body));
  u8* buffer = nullptr;
  if (int s = allocateOutput(bound, err, buffer)) return s;
  int length = 0, reason = 0;
  if (!CTrdCompData::PackReq2008Ex(
          reinterpret_cast<char*>(buffer), static_cast<int>(bound), length, &head,
          const_cast<char*>(reinterpret_cast<const char*>(in.p + kRequestHeader)),
          static_cast<int>(body), static_cast<char>(flag), &reason)) {
    std::free(buffer);
    return fail(err, reason, -1, "packing refused request %u: %s", e.number,
                CTrdCompData::ErrorName(reason));
  }
  return finish(buffer, length, out, outLen);
}

int packAnswer(const Input& in, const frame::Entry& e, int nibble, int flag, void** out,
               std::size_t* outLen, trdcomp_error* err) {
  const InView view(in.p, in.n);
  if (header::AnswerView(view).length() != kAnswerHeader)
    return fail(err, TRDCOMP_ERROR_HEADER, header::Answer::kLength,
                "header length %d: a plain answer's header is 96 bytes",
                header::AnswerView(view).length());
  const u8 flags = in.p[header::Answer::kFlags];
  const bool noBody = e.answerForm == frame::AnswerForm::NoBody;
  const int codec = nibble ? 1 : 0;
  const records::AnswerLayout* layout =
      e.answerForm == frame::AnswerForm::Routine ? e.answerPack[codec] : nullptr;
  framing::Frame f = framing::plainAnswerFrame(nullptr, view);
  int sections = listed(f);
  if (noBody) {
    // Only the header (and a 2008 section table) is sent; a table that is not there, as in a
    // 2011 message with flags bit 1, stands for two empty sections.
    if (checkSections(in, f, nullptr) != TRDCOMP_OK) {
      f = framing::Frame{};
      f.counts[0] = header::AnswerView(view).count();
      f.senderSizes[0] = header::AnswerView(view).size();
      sections = 2;
    }
  } else if (int s = checkSections(in, f, err)) {
    return s;
  }
  if (layout && sections > layout->sectionCount)
    return fail(err, TRDCOMP_ERROR_HEADER, kAnswerHeader,
                "%d sections, but answer %u has %d in the %s codec", sections, e.number,
                layout->sectionCount, codec ? "2011" : "2008");

  tagANS_Proc proc{};
  proc.funcNo = e.number;
  std::memcpy(proc.shortText, in.p + header::Answer::kShortText, sizeof proc.shortText);
  std::memcpy(proc.text, in.p + header::Answer::kText, sizeof proc.text);
  proc.sectionCount = sections;
  char* data[5] = {};
  std::int64_t at = f.records;
  for (int k = 0; k < sections; ++k) {
    proc.recCount[k] = f.counts[k];
    proc.recSize[k] = f.senderSizes[k];
    if (noBody) continue;
    if (int status = checkRawRecords(in, at, f.counts[k], f.senderSizes[k], "section", err))
      return status;
    if (layout && codec == 1 && f.counts[k] > kMost2011Count)
      return fail(err, TRDCOMP_ERROR_HEADER, f.countAt[k],
                  "record count %d of section %d does not fit the 16 bits the 2011 codec sends",
                  f.counts[k], k);
    data[k] = const_cast<char*>(reinterpret_cast<const char*>(in.p + at));
    at = mulAdd(f.counts[k], f.senderSizes[k], at);
  }
  if (sections == 0) {
    // No section: the header's count and size are still written from section 0's slot.
    proc.recCount[0] = header::AnswerView(view).count();
    proc.recSize[0] = header::AnswerView(view).size();
  }
  const std::int64_t bound = CTrdCompData::PackAnsBound(&proc, header::Flags::nibbleBits(nibble));
  u8* buffer = nullptr;
  if (int s = allocateOutput(bound, err, buffer)) return s;
  // The entry point ORs its flags into byte 8 and leaves bytes 9 to 19 as the buffer holds them:
  // start from the message's own (less the bits the codec sets).
  constexpr int kAfterFlags = header::Answer::kFlags + 1;
  constexpr u8 kCodecBits =
      header::Flags::kPacked | header::Flags::kSectionTable | header::Flags::nibbleBits(15);
  buffer[header::Answer::kFlags] = flags & ~kCodecBits;
  std::memcpy(buffer + kAfterFlags, in.p + kAfterFlags, header::Answer::kShortText - kAfterFlags);
  int length = 0, reason = 0;
  if (!CTrdCompData::PackAns2008Ex(reinterpret_cast<char*>(buffer), static_cast<int>(bound), length,
                                   &proc, data[0], data[1], data[2], data[3], data[4],
                                   static_cast<char>(flag), header::Flags::nibbleBits(nibble),
                                   &reason)) {
    std::free(buffer);
    return fail(err, reason, -1, "packing refused answer %u: %s", e.number,
                CTrdCompData::ErrorName(reason));
  }
  return finish(buffer, length, out, outLen);
}

}  // namespace
}  // namespace trdcomp::capi

using namespace trdcomp::capi;

extern "C" {

int trdcomp_pack(const void* raw, size_t raw_len, int direction, int codec, int flag, void** out,
                 size_t* out_len, trdcomp_error* err) {
  if (!raw || !out || !out_len) return fail(err, TRDCOMP_ERROR_ARGUMENT, -1, "null argument");
  *out = nullptr;
  *out_len = 0;
  if (raw_len > static_cast<size_t>(INT32_MAX))
    return fail(err, TRDCOMP_ERROR_TOO_LARGE, -1, "a message is at most 2 GiB");
  const Input in{static_cast<const trdcomp::u8*>(raw), static_cast<std::int64_t>(raw_len)};
  int dir = TRDCOMP_REQUEST;
  const trdcomp::frame::Entry* e = nullptr;
  if (int s = directionOf(trdcomp::InView(in.p, in.n), direction, err, dir)) return s;
  if (int s = checkHeader(in, dir, err, e)) return s;
  const trdcomp::header::Flags flags = trdcomp::header::View(trdcomp::InView(in.p, in.n)).flags();
  if (flags.packed())
    return fail(err, TRDCOMP_ERROR_HEADER, trdcomp::header::Request::kFlags,
                "flags bit 0 (packed) is set: the %s is packed already", kDirection[dir]);
  int nibble = flags.nibble();
  if (codec == TRDCOMP_CODEC_2008)
    nibble = 0;
  else if (codec == TRDCOMP_CODEC_2011)
    nibble = nibble ? nibble : 1;
  else if (codec != TRDCOMP_CODEC_HEADER)
    return fail(err, TRDCOMP_ERROR_ARGUMENT, -1, "unknown codec %d", codec);
  return dir == TRDCOMP_REQUEST ? packRequest(in, *e, nibble, flag, out, out_len, err)
                                : packAnswer(in, *e, nibble, flag, out, out_len, err);
}

int trdcomp_restore(const void* packed, size_t length, int direction, int flag, size_t max_len,
                    void** out, size_t* out_len, trdcomp_error* err) {
  return trdcomp_restore_ex(packed, length, direction, flag, max_len, out, out_len, nullptr, 0,
                            nullptr, err);
}

int trdcomp_restore_ex(const void* packed, size_t length, int direction, int flag, size_t max_len,
                       void** out, size_t* out_len, trdcomp_warning* warnings, size_t capacity,
                       size_t* warning_count, trdcomp_error* err) {
  if (warning_count) *warning_count = 0;
  if (!packed || !out || !out_len)
    return fail(err, TRDCOMP_ERROR_NULL_ARGUMENT, -1, "null argument");
  *out = nullptr;
  *out_len = 0;
  if (length > static_cast<size_t>(INT32_MAX))
    return fail(err, TRDCOMP_ERROR_TOO_LARGE, -1, "a message is at most 2 GiB");
  const trdcomp::InView in(packed, static_cast<std::int64_t>(length));
  int dir = TRDCOMP_REQUEST;
  if (int s = trdcomp::capi::directionOf(in, direction, err, dir)) return s;
  const Walked w = walk(in, dir);
  reportNotes(w, warnings, capacity, warning_count);
  const std::int64_t limit =
      max_len ? static_cast<std::int64_t>(std::min<size_t>(max_len, size_t(INT32_MAX)))
              : kDefaultLimit;
  char* restored = nullptr;
  int restoredLen = 0, reason = 0;
  char* bytes = const_cast<char*>(static_cast<const char*>(packed));
  const int ceiling = static_cast<int>(limit);
  const int ok =
      dir == TRDCOMP_REQUEST
          ? CTrdCompData::RestoreReq2008Ex(bytes, static_cast<int>(length), &restored, restoredLen,
                                           static_cast<char>(flag), ceiling, &reason)
          : CTrdCompData::RestoreAns2008Ex(bytes, static_cast<int>(length), &restored, restoredLen,
                                           static_cast<char>(flag), ceiling, &reason);
  if (!ok)
    return fail(
        err, reason, refusalOffset(w, dir, reason, in.size()), "the %s of %s %u is refused: %s",
        trdcomp::header::View(in).flags().codec() ? "2011 Fast restore" : "2008 restore",
        kDirection[dir], trdcomp::header::View(in).function(), CTrdCompData::ErrorName(reason));
  // A message without body restores to nothing: its header (and table) stand for it.
  const char* from = restored ? restored : static_cast<const char*>(packed);
  const std::int64_t n = restored ? restoredLen : in.size();
  if (!restored && w.records.form != TRDCOMP_FORM_NO_BODY)
    return fail(err, TRDCOMP_ERROR_ALLOCATION, -1, "out of memory");
  // The entry points allocate nothing for a message without body; its limit holds all the same.
  if (n > limit)
    return fail(err, TRDCOMP_ERROR_LIMIT, 0, "the restored message would be %lld bytes, above %lld",
                ll(n), ll(limit));
  auto* copy = static_cast<trdcomp::u8*>(std::malloc(static_cast<size_t>(n ? n : 1)));
  if (copy) std::memcpy(copy, from, static_cast<size_t>(n));
  CTrdCompData::ReleaseAnsData(restored);
  if (!copy) return fail(err, TRDCOMP_ERROR_ALLOCATION, -1, "out of memory for %lld bytes", ll(n));
  // The body now holds plain records.
  if (n > trdcomp::header::Request::kFlags)
    trdcomp::header::flagsByte(copy) &= static_cast<trdcomp::u8>(~trdcomp::header::Flags::kPacked);
  *out = copy;
  *out_len = static_cast<size_t>(n);
  return TRDCOMP_OK;
}

int trdcomp_frame_of(const void* message, size_t length, int direction, int, trdcomp_frame* frame,
                     trdcomp_warning* warnings, size_t capacity, size_t* warning_count,
                     trdcomp_error* err) {
  if (warning_count) *warning_count = 0;
  if (!message || !frame) return fail(err, TRDCOMP_ERROR_NULL_ARGUMENT, -1, "null argument");
  if (length > static_cast<size_t>(INT32_MAX))
    return fail(err, TRDCOMP_ERROR_TOO_LARGE, -1, "a message is at most 2 GiB");
  const trdcomp::InView in(message, static_cast<std::int64_t>(length));
  int dir = TRDCOMP_REQUEST;
  if (int s = trdcomp::capi::directionOf(in, direction, err, dir)) return s;
  const Walked w = walk(in, dir);
  describeFrame(w, in, dir, *frame);
  reportNotes(w, warnings, capacity, warning_count);
  if (w.refusal) return fail(err, w.refusal, w.refusalAt, "%s", CTrdCompData::ErrorName(w.refusal));
  return TRDCOMP_OK;
}

const char* trdcomp_status_name(int code) {
  return CTrdCompData::ErrorName(code);
}

void trdcomp_release(void* data) {
  std::free(data);
}

}  // extern "C"
