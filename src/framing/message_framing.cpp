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
  storeU32(o, kRequestHeader);
  storeU32(o + 72, recordSize);
}

void writeRestoredTable(u8* o, const records::AnswerLayout& layout, const SectionPlan& plan) {
  if (!plan.multi) return;
  std::int32_t sizes[5] = {};
  for (int s = 0; s < plan.sections; ++s)
    sizes[s] = static_cast<std::int32_t>(layout.sections[s]->size);
  writeSectionTable(o + kAnswerHeader, plan.tableBytes(), plan.sections, plan.counts, sizes);
}

void finishAnswerHeader(u8* o, const records::AnswerLayout& layout, const SectionPlan& plan) {
  storeU32(o, kAnswerHeader);
  if (plan.multi) {
    o[8] |= 2;
  } else {
    o[8] &= static_cast<u8>(~2u);
    storeI32(o + 88, plan.counts[0]);
    storeU32(o + 92, layout.sections[0]->size);
  }
}

}  // namespace trdcomp::framing
