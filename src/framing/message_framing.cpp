// The parts of the message framing that do not depend on the codec.
#include "framing/message_framing.h"

namespace trdcomp::framing {

void writeSectionTable(u8* at, std::int64_t size, int pairs, const std::int32_t* counts,
                       const std::int32_t* sizes) {
  storeU32(at, static_cast<std::uint32_t>(size));
  for (int i = 0; i < pairs; ++i) {
    storeI32(at + 4 + 8 * i, counts[i]);
    storeI32(at + 8 + 8 * i, sizes[i]);
  }
}

u8* startRestore(const InView& in, std::int64_t length, std::int64_t slack, int header,
                 bool fresh) {
  u8* o = fresh ? allocateZeroed(length + slack) : allocateUninitialised(length + slack);
  if (o) in.copyOut(o, 0, header);
  return o;
}

void finishRequestHeader(u8* o, std::uint32_t recordSize) {
  header::setLength(o, kRequestHeader);
  storeU32(o + header::Request::kSize, recordSize);
}

void writeRestoredTable(u8* o, const Frame& f) {
  if (!f.multi) return;
  std::int32_t sizes[kMostSections] = {};
  for (int s = 0; s < f.sections; ++s) sizes[s] = static_cast<std::int32_t>(f.layouts[s]->size);
  writeSectionTable(o + kAnswerHeader, f.tableBytesRestored(), f.sections, f.counts, sizes);
}

void finishAnswerHeader(u8* o, const Frame& f) {
  header::setLength(o, kAnswerHeader);
  if (f.multi) {
    header::flagsByte(o) |= header::Flags::kSectionTable;
  } else {
    header::flagsByte(o) &= static_cast<u8>(~header::Flags::kSectionTable);
    header::setCountAndSize<header::Answer>(o, f.counts[0],
                                            static_cast<std::int32_t>(f.layouts[0]->size));
  }
}

namespace {

struct CountRecords : RecordsOnly {
  std::int64_t present = 0;
  Status record(const Place&) {
    ++present;
    return TRDCOMP_OK;
  }
};

}  // namespace

std::int64_t recordsPresent(const Frame& f, const InView& in) {
  CountRecords count;
  walkSections(f, in, count);
  return count.present;
}

}  // namespace trdcomp::framing
