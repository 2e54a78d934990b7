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

RestoreTarget allocateRestored(const RestorePlan& plan, const InView& in) {
  const Frame& f = plan.frame;
  bool fresh;
  if (!f.answer) {
    // Packed requests hold their count (the plan checked it); raw records of no size carry
    // nothing.
    const std::int64_t size = f.layouts[0]->size;
    fresh = !f.packed && f.senderSizes[0] <= 0 && freshPages(f.counts[0] * size, 0, size);
  } else {
    std::int64_t largest = 0;
    for (int s = 0; s < f.sections; ++s)
      largest = std::max<std::int64_t>(largest, f.layouts[s]->size);
    // Only a claim large enough for fresh pages needs the records counted (a walk of the input).
    const std::int64_t claimed = plan.length - f.headerBytes() - f.tableBytesRestored();
    fresh = claimed >= kFreshPages && freshPages(claimed, recordsPresent(f, in), largest);
  }
  const std::int64_t total = plan.length + plan.slack;
  u8* o = fresh ? allocateZeroed(total) : allocateUninitialised(total);
  return RestoreTarget{o, total, fresh};
}

Status walkFrame(const Frame& f, const InView& in) {
  CountRecords count;
  return f.answer ? walkSections(f, in, count) : walkRequest(f, in, count);
}

}  // namespace trdcomp::framing
