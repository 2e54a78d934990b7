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
#include "primitives/bytes.h"
#include "primitives/header.h"

namespace trdcomp::capi {
namespace {

using records::Field;
using records::Kind;
using records::Layout;

constexpr std::int64_t kRequestHeader = 76, kAnswerHeader = 96;
constexpr std::int64_t kDefaultLimit = std::int64_t(256) << 20;
constexpr int kMostSections = 5;  // pairs of a section table that the entry points carry
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
  entry = frame::find(in.u32(4));
  if (!entry)
    return fail(err, TRDCOMP_ERROR_UNKNOWN_FUNCTION, 4, "unknown function number %u", in.u32(4));
  return TRDCOMP_OK;
}

// Sections of a raw answer: from the section table when flags bit 1 is set, else the header's
// count and size. Also the shape of packed 2008 answers, whose table has the same form.
struct Section {
  std::int32_t count = 0, size = 0;
  std::int64_t countAt = 88, sizeAt = 92;
};
struct Sections {
  int count = 0;  // sections listed (at most five are read)
  Section s[kMostSections];
  std::int64_t table = 0;  // bytes of the table
};

int readSections(const Input& in, std::int64_t at, bool table, bool raw, trdcomp_error* err,
                 Sections& out) {
  if (!table) {
    out.count = 1;
    out.s[0].count = in.i32(88);
    out.s[0].size = in.i32(92);
  } else {
    if (!in.has(at, 4))
      return fail(err, TRDCOMP_ERROR_TRUNCATED, at, "the section table's size is cut off");
    const std::int32_t size = in.i32(at);
    if (size < 4 || (size - 4) % 8 != 0)
      return fail(err, TRDCOMP_ERROR_HEADER, at,
                  "section table size %d is not 4 plus 8 bytes per section", size);
    if (!in.has(at, size))
      return fail(err, TRDCOMP_ERROR_TRUNCATED, in.n,
                  "the section table claims %d bytes at offset %lld, the message ends first", size,
                  ll(at));
    const std::int64_t pairs = (size - 4) / 8;
    if (raw && pairs > kMostSections)
      return fail(err, TRDCOMP_ERROR_HEADER, at,
                  "the section table lists %lld sections, at most 5 travel", ll(pairs));
    out.table = size;
    out.count = static_cast<int>(std::min<std::int64_t>(pairs, kMostSections));
    for (int k = 0; k < out.count; ++k) {
      out.s[k].countAt = at + 4 + 8 * k;
      out.s[k].sizeAt = at + 8 + 8 * k;
      out.s[k].count = in.i32(out.s[k].countAt);
      out.s[k].size = in.i32(out.s[k].sizeAt);
    }
  }
  for (int k = 0; k < out.count; ++k) {
    if (out.s[k].count < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, out.s[k].countAt,
                  "record count %d of section %d is negative", out.s[k].count, k);
    if (raw && out.s[k].size < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, out.s[k].sizeAt,
                  "record size %d of section %d is negative", out.s[k].size, k);
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
  head.flags = static_cast<char>((in.p[8] & 0x0F) | (nibble << 4));
  const int codec = nibble ? 1 : 0;
  const Records r = recordsOf(e, TRDCOMP_REQUEST, codec);
  const std::int64_t body = in.n - kRequestHeader;
  std::int64_t count = 0;
  if (r.form == TRDCOMP_FORM_RECORDS) {
    count = head.recCount;
    if (count < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, 68, "record count %lld is negative", ll(count));
    if (head.recSize < 0)
      return fail(err, TRDCOMP_ERROR_HEADER, 72, "record size %d is negative", head.recSize);
    if (int s = checkRawRecords(in, kRequestHeader, count, head.recSize, "records", err)) return s;
    if (codec == 1 && count > kMost2011Count)
      return fail(err, TRDCOMP_ERROR_HEADER, 68,
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
  if (in.i32(0) != kAnswerHeader)
    return fail(err, TRDCOMP_ERROR_HEADER, 0,
                "header length %d: a plain answer's header is 96 bytes", in.i32(0));
  const u8 flags = in.p[8];
  const bool noBody = e.answerForm == frame::AnswerForm::NoBody;
  Sections sections;
  if (noBody) {
    // Only the header (and a 2008 section table) is sent; a table that is not there, as in a
    // 2011 message with flags bit 1, stands for two empty sections.
    if (readSections(in, kAnswerHeader, flags & 2, true, nullptr, sections) != TRDCOMP_OK) {
      sections = Sections{};
      sections.count = 2;
      sections.s[0].count = in.i32(88);
      sections.s[0].size = in.i32(92);
    }
  } else if (int s = readSections(in, kAnswerHeader, flags & 2, true, err, sections)) {
    return s;
  }
  const int codec = nibble ? 1 : 0;
  const records::AnswerLayout* layout =
      e.answerForm == frame::AnswerForm::Routine ? e.answerPack[codec] : nullptr;
  if (layout && sections.count > layout->sectionCount)
    return fail(err, TRDCOMP_ERROR_HEADER, kAnswerHeader,
                "%d sections, but answer %u has %d in the %s codec", sections.count, e.number,
                layout->sectionCount, codec ? "2011" : "2008");

  tagANS_Proc proc{};
  proc.funcNo = e.number;
  std::memcpy(proc.shortText, in.p + 20, 4);
  std::memcpy(proc.text, in.p + 24, 64);
  proc.sectionCount = sections.count;
  char* data[5] = {};
  std::int64_t at = kAnswerHeader + sections.table;
  for (int k = 0; k < sections.count; ++k) {
    const Section& s = sections.s[k];
    proc.recCount[k] = s.count;
    proc.recSize[k] = s.size;
    if (noBody) continue;
    if (int status = checkRawRecords(in, at, s.count, s.size, "section", err)) return status;
    if (layout && codec == 1 && s.count > kMost2011Count)
      return fail(err, TRDCOMP_ERROR_HEADER, s.countAt,
                  "record count %d of section %d does not fit the 16 bits the 2011 codec sends",
                  s.count, k);
    data[k] = const_cast<char*>(reinterpret_cast<const char*>(in.p + at));
    at = mulAdd(s.count, s.size, at);
  }
  if (sections.count == 0) {
    // No section: the header's count and size are still written from section 0's slot.
    proc.recCount[0] = in.i32(88);
    proc.recSize[0] = in.i32(92);
  }
  const std::int64_t bound = CTrdCompData::PackAnsBound(&proc, nibble << 4);
  u8* buffer = nullptr;
  if (int s = allocateOutput(bound, err, buffer)) return s;
  // The entry point ORs its flags into byte 8 and leaves bytes 9 to 19 as the buffer holds them:
  // start from the message's own (less the bits the codec sets).
  buffer[8] = flags & 0x0C;
  std::memcpy(buffer + 9, in.p + 9, 11);
  int length = 0, reason = 0;
  if (!CTrdCompData::PackAns2008Ex(reinterpret_cast<char*>(buffer), static_cast<int>(bound), length,
                                   &proc, data[0], data[1], data[2], data[3], data[4],
                                   static_cast<char>(flag), nibble << 4, &reason)) {
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
  if (in.p[8] & 1)
    return fail(err, TRDCOMP_ERROR_HEADER, 8,
                "flags bit 0 (packed) is set: the %s is packed already", kDirection[dir]);
  int nibble = in.p[8] >> 4;
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
    return fail(err, reason, refusalOffset(w, dir, reason), "the %s of %s %u is refused: %s",
                trdcomp::header::View(in).flags().codec() ? "2011 Fast restore" : "2008 restore",
                kDirection[dir], trdcomp::header::View(in).function(),
                CTrdCompData::ErrorName(reason));
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
