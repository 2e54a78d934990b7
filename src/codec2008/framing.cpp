#include "codec2008/framing.h"

#include <algorithm>
#include <cstring>

#include "primitives/raw.h"
#include "records/codec2008.h"

namespace trdcomp::codec2008 {
namespace {

constexpr int kRequestSlack = 1024;       // behind every restored request
constexpr int kAnswerSlack = 10;          // behind a restored single-section answer
constexpr int kSectionTableSlack = 1024;  // behind a restored multi-section answer

// Packs `count` records laid out every `stride` bytes in `records` behind u32 lengths. Each
// record is viewed over its own extent, so a text without terminator is measured to the end of
// its own record, never through the rest of the body.
void packRecords(const records::Layout& layout, const InView& records, std::int64_t count,
                 std::int64_t stride, OutBuffer& out, char flag) {
  if (!out.expect(sizeTimes(count, 4))) return;  // a length field per record at least
  const std::int64_t extent = records::recordExtent(layout, stride);
  const std::int64_t most = 4 + records::maxEncoded2008(layout, extent);
  for (std::int64_t i = 0; i < count && !out.failed(); ++i) {
    u8* slot = out.reserve(most);
    if (!slot) return;
    const std::uint32_t length =
        records::encode2008(layout, records.window(i * stride, extent), slot + 4, flag);
    storeU32(slot, length);
    out.commit(slot, 4 + std::int64_t(length));
  }
}

// Decodes a packed record into its zeroed slot and keeps the slots zero behind it: a decode cap
// may run past the record, into the next one, which is zeroed again before it is decoded.
struct RecordWriter {
  u8* end;                 // end of the allocation
  std::int64_t dirty = 0;  // bytes written past the previous record

  void decode(const records::Layout& layout, const InView& in, std::int64_t pos, u8* record,
              char flag) {
    if (dirty > 0) std::memset(record, 0, static_cast<std::size_t>(dirty));
    const std::int64_t packed = static_cast<std::int32_t>(in.u32(pos));
    const std::int64_t reach =
        records::decode2008(layout, in.from(pos + 4), packed, record, end - record, flag);
    dirty = reach - layout.size;
  }
};

}  // namespace

Status packRequest(const records::Layout& layout, OutBuffer& out, const char* body, int bodyLen,
                   char flag) {
  if (layout.opaque) return TRDCOMP_OK;  // a record without codec is never sent
  if (Status s = checkBody(body, bodyLen)) return s;
  if (appendShortBody(out, body, bodyLen, layout.size))
    return out.failed() ? TRDCOMP_ERROR_OUTPUT_TOO_SMALL : TRDCOMP_OK;
  u8* header = out.base();
  const std::int32_t count = loadI32(header + 68), stride = loadI32(header + 72);
  if (Status s = checkRecords(count, stride, bodyLen)) return s;
  if (count >= 1) packRecords(layout, InView(body, bodyLen), count, stride, out, flag);
  if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  header[8] |= 1;
  return TRDCOMP_OK;
}

std::int64_t requestBodyBound(const records::Layout& layout, std::int32_t count,
                              std::int32_t stride, int bodyLen) {
  if (layout.opaque) return 0;
  if (bodyLen >= 0 && static_cast<std::uint32_t>(bodyLen) < layout.size) return bodyLen;
  return sizeTimes(count,
                   4 + records::maxEncoded2008(layout, records::recordExtent(layout, stride)));
}

Status restoreRequest(const records::Layout& layout, const InView& in, char** out, int& outLen,
                      char flag, const RestoreOptions& options) {
  if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
  const u8 flags = in.at(8);
  if (flags & 2) return TRDCOMP_ERROR_SECTION_BIT;
  const std::int32_t count = in.i32(68);
  // Packed records start at the header length the sender wrote, raw ones always at 76; either
  // way a count that the input cannot hold is refused before anything is allocated.
  const std::int64_t first = in.u32(0);
  if (flags & 1) {
    if (count > 0 && std::int64_t(count) * 4 > in.size() - first)
      return TRDCOMP_ERROR_COUNT_BEYOND_INPUT;
  } else if (Status s = checkRawRequest(in, count, in.i32(72))) {
    return s;
  }
  const std::int64_t size = layout.size;
  std::int64_t length;
  if (Status s = restoredLength(count, size, kRequestHeader, kRequestSlack, options, length))
    return s;
  const std::int64_t room = length + kRequestSlack;
  u8* o = allocateZeroed(room);
  if (!o) return TRDCOMP_ERROR_ALLOCATION;
  in.copyAvailable(o, 0, kRequestHeader);
  if (flags & 1) {
    RecordWriter writer{o + room};
    std::int64_t pos = first;
    for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
      options.step();
      if (!layout.opaque) writer.decode(layout, in, pos, o + kRequestHeader + i * size, flag);
      pos += 4 + static_cast<std::int64_t>(in.u32(pos));
    }
  } else {
    copyRawRecords(in, in.i32(72), o + kRequestHeader, count, size, options);
  }
  storeU32(o, kRequestHeader);
  storeU32(o + 72, layout.size);
  *out = reinterpret_cast<char*>(o);
  outLen = static_cast<int>(length);
  return TRDCOMP_OK;
}

Status packAnswer(const records::AnswerLayout& layout, OutBuffer& out, const tagANS_Proc& proc,
                  char* const sections[5], char flag) {
  // A negative count packs no records (the header keeps it, and a restore refuses it).
  for (int s = 0; s < layout.sectionCount; ++s) {
    if (Status st = checkRecords(proc.recCount[s], proc.recSize[s], INT64_MAX)) return st;
    if (!sections[s] && proc.recCount[s] > 0 && proc.recSize[s] > 0)
      return TRDCOMP_ERROR_NULL_ARGUMENT;
  }
  for (int s = 0; s < layout.sectionCount; ++s) {
    const std::int64_t count = proc.recCount[s], size = proc.recSize[s];
    const InView records(sections[s], std::max<std::int64_t>(0, count * size));
    packRecords(*layout.sections[s], records, count, size, out, flag);
  }
  if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  out.base()[8] |= 1;
  return TRDCOMP_OK;
}

std::int64_t answerBodyBound(const records::AnswerLayout& layout, const tagANS_Proc& proc) {
  std::int64_t most = 0;
  for (int s = 0; s < layout.sectionCount; ++s)
    most = sizePlus(
        most, sizeTimes(proc.recCount[s],
                        4 + records::maxEncoded2008(
                                *layout.sections[s],
                                records::recordExtent(*layout.sections[s], proc.recSize[s]))));
  return most;
}

Status restoreAnswer(const records::AnswerLayout& layout, const InView& in, char** out, int& outLen,
                     char flag, const RestoreOptions& options) {
  if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
  const u8 flags = in.at(8);
  std::int64_t pos = in.u32(0);

  // Counts and sender sizes: from the section table when there is one, else from the header.
  std::int32_t counts[5] = {}, senderSizes[5] = {};
  std::int64_t pairs = 0;
  if (flags & 2) {
    const std::int32_t table = in.i32(pos);
    pairs = std::min<std::int64_t>((std::int64_t(table) - 4) / 8, 5);
    for (std::int64_t k = 0; k < pairs; ++k) {
      counts[k] = in.i32(pos + 4 + 8 * k);
      senderSizes[k] = in.i32(pos + 8 + 8 * k);
    }
    pos += table;
  } else {
    counts[0] = in.i32(88);
    senderSizes[0] = in.i32(92);
  }

  // Optional sections are laid out only when the message's table sends more than one section.
  const int sectionCount = layout.optionalSections() && pairs < 2 ? 1 : layout.sectionCount;
  const bool multi = sectionCount > 1;
  const std::int64_t table = multi ? 4 + 8 * sectionCount : 0;
  const std::int64_t slack = multi ? kSectionTableSlack : kAnswerSlack;
  std::int64_t length = kAnswerHeader + table;
  for (int s = 0; s < sectionCount; ++s)
    if (Status st =
            restoredLength(counts[s], layout.sections[s]->size, length, slack, options, length))
      return st;
  const std::int64_t room = length + slack;
  u8* o = allocateZeroed(room);
  if (!o) {
    outLen = 0;
    return TRDCOMP_ERROR_ALLOCATION;
  }
  in.copyAvailable(o, 0, kAnswerHeader);
  if (multi) {
    storeU32(o + kAnswerHeader, static_cast<std::uint32_t>(table));
    for (int s = 0; s < sectionCount; ++s) {
      storeI32(o + kAnswerHeader + 4 + 8 * s, counts[s]);
      storeU32(o + kAnswerHeader + 8 + 8 * s, layout.sections[s]->size);
    }
  }

  // Records are read only while the position lies inside the message; the rest stay zero and
  // are never visited. Raw records of no size (or a negative one) carry nothing.
  u8* record = o + kAnswerHeader + table;
  RecordWriter writer{o + room};
  for (int s = 0; s < sectionCount; ++s) {
    const records::Layout& l = *layout.sections[s];
    u8* const sectionEnd = record + std::int64_t(counts[s]) * l.size;
    const bool packed = flags & 1;
    if (!packed && senderSizes[s] < 0) pos = in.size();  // read backwards: nothing more
    if (packed || senderSizes[s] > 0) {
      const std::int64_t rawCopy = std::min<std::int64_t>(senderSizes[s], l.size);
      for (std::int32_t i = 0; i < counts[s] && in.has(pos); ++i, record += l.size) {
        options.step();
        if (packed) {
          writer.decode(l, in, pos, record, flag);
          pos += 4 + static_cast<std::int64_t>(in.u32(pos));
        } else {
          in.copyAvailable(record, pos, rawCopy);
          pos += senderSizes[s];
        }
      }
    }
    record = sectionEnd;
  }

  storeU32(o, kAnswerHeader);
  if (multi) {
    o[8] |= 2;
  } else {
    o[8] &= static_cast<u8>(~2u);
    storeI32(o + 88, counts[0]);
    storeU32(o + 92, layout.sections[0]->size);
  }
  *out = reinterpret_cast<char*>(o);
  outLen = static_cast<int>(length);
  return TRDCOMP_OK;
}

}  // namespace trdcomp::codec2008
