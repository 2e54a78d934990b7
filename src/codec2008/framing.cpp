#include "codec2008/framing.h"

#include <algorithm>
#include <cstring>

#include "primitives/bytes.h"
#include "primitives/raw.h"
#include "records/codec2008.h"

namespace trdcomp::codec2008 {
namespace {

constexpr int kRequestHeader = 76;
constexpr int kAnswerHeader = 96;
constexpr int kRequestSlack = 1024;       // behind every restored request
constexpr int kAnswerSlack = 10;          // behind a restored single-section answer
constexpr int kSectionTableSlack = 1024;  // behind a restored multi-section answer

// Packs `count` records laid out every `stride` bytes in `records` behind u32 lengths.
void packRecords(const records::Layout& layout, const InView& records, std::int32_t count,
                 std::int32_t stride, u8* out, int& outLen, char flag) {
  for (std::int32_t i = 0; i < count; ++i) {
    // The offset is a 32-bit product, as the sender computes it.
    auto at = static_cast<std::int32_t>(static_cast<std::uint32_t>(i) *
                                        static_cast<std::uint32_t>(stride));
    u8* slot = out + outLen;
    std::uint32_t length = records::encode2008(layout, records.from(at), slot + 4, flag);
    storeU32(slot, length);
    outLen += static_cast<int>(4 + length);
  }
}

}  // namespace

int packRequest(const records::Layout& layout, char* out, int& outLen, const char* body,
                int bodyLen, char flag) {
  if (layout.opaque) return 1;  // a record without codec is never sent
  u8* o = reinterpret_cast<u8*>(out);
  if (appendShortBody(o, outLen, body, bodyLen, layout.size)) return 1;
  std::int32_t count = loadI32(o + 68);
  if (count >= 1)
    packRecords(layout, InView(body, bodyLen), count, loadI32(o + 72), o, outLen, flag);
  o[8] |= 1;
  return 1;
}

int restoreRequest(const records::Layout& layout, const char* inBytes, int inLen, char** out,
                   int& outLen, char flag) {
  if (!out) return 0;
  const InView in(inBytes, inLen);
  const u8 flags = in.at(8);
  if (flags & 2) return 0;
  const std::int32_t count = in.i32(68);
  const std::int64_t size = layout.size;
  std::int64_t length;
  if (!restoredLength(count, size, kRequestHeader, kRequestSlack, length)) return 0;
  const std::int64_t room = length + kRequestSlack;
  u8* o = allocateZeroed(room);
  if (!o) return 0;
  in.copyAvailable(o, 0, kRequestHeader);
  if (flags & 1) {
    // Packed records start at the header length the sender wrote, raw ones always at 76.
    std::int64_t pos = in.u32(0);
    for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
      u8* record = o + kRequestHeader + i * size;
      const std::uint32_t packed = in.u32(pos);
      if (!layout.opaque)
        records::decode2008(layout, in.from(pos + 4), static_cast<std::int32_t>(packed), record,
                            o + room - record, flag);
      pos += 4 + static_cast<std::int64_t>(packed);
    }
  } else {
    copyRawRecords(in, in.i32(72), o + kRequestHeader, count, size);
  }
  storeU32(o, kRequestHeader);
  storeU32(o + 72, layout.size);
  *out = reinterpret_cast<char*>(o);
  outLen = static_cast<int>(length);
  return 1;
}

int packAnswer(const records::AnswerLayout& layout, char* out, int& outLen, const tagANS_Proc* proc,
               char* const sections[5], char flag) {
  u8* o = reinterpret_cast<u8*>(out);
  for (int s = 0; s < layout.sectionCount; ++s) {
    const std::int32_t count = proc->recCount[s], size = proc->recSize[s];
    const std::int64_t bytes = std::max<std::int64_t>(0, std::int64_t(count) * size);
    packRecords(*layout.sections[s], InView(sections[s], bytes), count, size, o, outLen, flag);
  }
  o[8] |= 1;
  return 1;
}

int restoreAnswer(const records::AnswerLayout& layout, const char* inBytes, int inLen, char** out,
                  int& outLen, char flag) {
  if (!out) return 0;
  InView in(inBytes, inLen);
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
  std::int64_t length = kAnswerHeader + table;
  for (int s = 0; s < sectionCount; ++s) {
    std::int64_t sectionLength;
    if (!restoredLength(counts[s], layout.sections[s]->size, length, 0, sectionLength)) return 0;
    length = sectionLength;
  }
  const std::int64_t slack = multi ? kSectionTableSlack : kAnswerSlack;
  if (length + slack > INT32_MAX) return 0;
  const std::int64_t room = length + slack;
  u8* o = allocateZeroed(room);
  if (!o) {
    outLen = 0;
    return 0;
  }
  in.copyAvailable(o, 0, kAnswerHeader);
  if (multi) {
    storeU32(o + kAnswerHeader, static_cast<std::uint32_t>(table));
    for (int s = 0; s < sectionCount; ++s) {
      storeI32(o + kAnswerHeader + 4 + 8 * s, counts[s]);
      storeU32(o + kAnswerHeader + 8 + 8 * s, layout.sections[s]->size);
    }
  }

  // Records are read only while the position lies inside the message; the rest stay zero.
  u8* record = o + kAnswerHeader + table;
  for (int s = 0; s < sectionCount; ++s) {
    const records::Layout& l = *layout.sections[s];
    const std::int64_t rawCopy =
        std::min<std::int64_t>(static_cast<std::uint32_t>(senderSizes[s]), l.size);
    for (std::int32_t i = 0; i < counts[s]; ++i, record += l.size) {
      if (!in.has(pos)) {
        record += std::int64_t(counts[s] - i) * l.size;
        break;
      }
      if (flags & 1) {
        const std::uint32_t packed = in.u32(pos);
        records::decode2008(l, in.from(pos + 4), static_cast<std::int32_t>(packed), record,
                            o + room - record, flag);
        pos += 4 + static_cast<std::int64_t>(packed);
      } else {
        in.copyAvailable(record, pos, rawCopy);
        pos += senderSizes[s];
      }
    }
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
  return 1;
}

}  // namespace trdcomp::codec2008
