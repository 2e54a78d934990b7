// Framing of the 2011 Fast codec: record blocks with a u16 length and a presence map, fields
// left out when they equal the previous record's (records/codec2011); the body opens with the
// 16-bit record counts, and a dictionary section sends its repeated field groups once. The rest
// of the framing is generic (framing/message_framing.h).
#include <algorithm>
#include <cstring>

#include "framing/message_framing.h"
#include "records/codec2011.h"

namespace trdcomp::framing {
namespace {

using records::Layout;
using records::Part;
using records::Previous;

// Appends one block: a u16 length slot, then the map and the fields.
void appendBlock(const Layout& layout, Part part, const InView& current, std::uint16_t index,
                 const Previous& previous, OutBuffer& out, Slots slots) {
  u8* slot = out.reserve(2 + records::maxBlock2011(layout, part));
  if (!slot) return;
  const std::uint32_t bytes = records::encode2011(layout, part, current, index, previous, slot + 2);
  const std::uint16_t held = slots == Slots::Add && out.inPlace(slot) ? loadU16(slot) : 0;
  const auto length = static_cast<std::uint16_t>(held + bytes);
  storeU16(slot, length);
  out.commit(slot, 2 + std::int64_t(length));
}

// `count` records every `stride` bytes of `records`, each compared with the one before it. A
// record is viewed over its extent; a text that fills its array compares on through `records`.
void packBlocks(const Layout& layout, const InView& records, std::int64_t count,
                std::int64_t stride, OutBuffer& out, const Params& params) {
  const Slots slots = params.slots;
  // Every block takes its length slot and its map at least.
  if (!out.expect(sizeTimes(count, 2 + records::mapLength(layout, Part::Whole)))) return;
  records::TextTail tail(records, stride, params.steps);
  InView previous;
  for (std::int64_t i = 0; i < count && !out.failed(); ++i) {
    const InView current = records.window(i * stride, records::recordExtent(layout, stride));
    appendBlock(layout, Part::Whole, current, 0, Previous{i ? &previous : nullptr, 0, &tail}, out,
                slots);
    previous = current;
  }
}

// The fields of a dictionary layout's repeated group, in layout order, and the same bytes with
// adjacent fields joined (what a restored record takes from its entry).
struct GroupFields {
  struct Entry {
    std::uint32_t offset, width;
    bool text;  // ends at its first zero byte (characters do not)
  };
  struct Span {
    std::uint32_t offset, width;
  };
  Entry fields[16];
  Span spans[16];
  int count = 0, spanCount = 0;
  bool listed = true;  // all of them (else: walk the layout)

  explicit GroupFields(const Layout& layout) {
    for (const records::Field& f : layout) {
      if (!f.dictionary) continue;
      if (count == 16) {
        listed = false;
        return;
      }
      fields[count++] = Entry{f.offset, f.width, f.kind != records::Kind::Char};
      if (spanCount > 0 && spans[spanCount - 1].offset + spans[spanCount - 1].width == f.offset)
        spans[spanCount - 1].width += f.width;
      else
        spans[spanCount++] = Span{f.offset, f.width};
    }
  }
};

// The group fields of two records are equal: characters by value, texts as terminated strings
// (within their arrays). Records wholly inside their views are compared without a check per
// byte.
bool sameGroup(const Layout& layout, const GroupFields& group, const InView& a, const InView& b) {
  if (group.listed && a.size() >= layout.size && b.size() >= layout.size) {
    for (int k = 0; k < group.count; ++k) {
      const GroupFields::Entry& f = group.fields[k];
      const u8 *x = a.ptr(f.offset), *y = b.ptr(f.offset);
      for (std::uint32_t i = 0; i < f.width; ++i) {
        if (x[i] != y[i]) return false;
        if (x[i] == 0 && f.text) break;
      }
    }
    return true;
  }
  for (const records::Field& f : layout) {
    if (!f.dictionary) continue;
    for (std::uint32_t i = 0; i < f.width; ++i) {
      const u8 x = a.at(f.offset + i);
      if (x != b.at(f.offset + i)) return false;
      if (x == 0 && f.kind != records::Kind::Char) break;
    }
  }
  return true;
}

std::uint64_t groupHash(const Layout& layout, const GroupFields& group, const InView& r) {
  std::uint64_t h = 1469598103934665603ull;
  if (group.listed && r.size() >= layout.size) {
    for (int k = 0; k < group.count; ++k) {
      const GroupFields::Entry& f = group.fields[k];
      const u8* x = r.ptr(f.offset);
      for (std::uint32_t i = 0; i < f.width; ++i) {
        if (x[i] == 0 && f.text) break;
        h = (h ^ x[i]) * 1099511628211ull;
      }
      h = (h ^ 0xFF) * 1099511628211ull;
    }
    return h;
  }
  for (const records::Field& f : layout) {
    if (!f.dictionary) continue;
    for (std::uint32_t i = 0; i < f.width; ++i) {
      const u8 x = r.at(f.offset + i);
      if (x == 0 && f.kind != records::Kind::Char) break;
      h = (h ^ x) * 1099511628211ull;
    }
    h = (h ^ 0xFF) * 1099511628211ull;
  }
  return h;
}

// A dictionary section: the distinct groups of identifying fields, in order of first
// appearance, then every record as its group's 16-bit index and its other fields.
bool packDictionary(const Layout& layout, const InView& records, std::int32_t count,
                    std::int64_t stride, OutBuffer& out, const Params& params) {
  const Slots slots = params.slots;
  // The two counts and a reduced block per record at least: no need to index what cannot fit.
  if (!out.expect(4 + sizeTimes(count, 2 + records::mapLength(layout, Part::Reduced)))) return true;
  const std::size_t n = count > 0 ? static_cast<std::size_t>(count) : 0;
  const std::int64_t extent = records::recordExtent(layout, stride);
  const auto record = [&](std::int64_t i) { return records.window(i * stride, extent); };
  // first[k]: the record that brought entry k; index[i]: record i's entry; slots: a hash table
  // of entries, so that finding a group does not walk the whole table.
  std::size_t slotCount = 16;
  while (slotCount < 2 * n) slotCount *= 2;
  Scratch<std::int32_t> first(n + 1), table(static_cast<std::int64_t>(slotCount));
  Scratch<std::uint16_t> index(n + 1);
  if (!first || !table || !index) return false;
  std::int32_t entries = 0;
  const GroupFields group(layout);
  for (std::int32_t i = 0; i < count; ++i) {
    const InView current = record(i);
    std::size_t s = groupHash(layout, group, current) & (slotCount - 1);
    while (table[s] && !sameGroup(layout, group, record(first[table[s] - 1]), current))
      s = (s + 1) & (slotCount - 1);
    if (!table[s]) {
      first[entries] = i;
      table[s] = ++entries;
    }
    index[i] = static_cast<std::uint16_t>(table[s] - 1);
  }
  out.appendU16(static_cast<std::uint16_t>(entries));
  // Entries compare with the entry before them, wherever its record lies; reduced records with
  // the record before them.
  records::TextTail tail(records, stride, params.steps);
  InView previous;
  for (std::int32_t k = 0; k < entries && !out.failed(); ++k) {
    const InView entry = record(first[k]);
    appendBlock(layout, Part::Group, entry, 0, Previous{k ? &previous : nullptr, 0, &tail}, out,
                slots);
    previous = entry;
  }
  out.appendU16(static_cast<std::uint16_t>(count));
  for (std::int32_t i = 0; i < count && !out.failed(); ++i) {
    const InView current = record(i);
    const Previous before{i ? &previous : nullptr, static_cast<std::uint16_t>(i ? index[i - 1] : 0),
                          &tail};
    appendBlock(layout, Part::Reduced, current, index[i], before, out, slots);
    previous = current;
  }
  return true;
}

// Decodes `count` blocks into records of the layout's size from `first` on, each chained to the
// one before; reading stops where the message ends (the records after stay zero, unvisited).
void decodeRecords(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                   std::int64_t count, RecordArea& area, const RestoreOptions& options) {
  const u8* end = area.end();
  const std::int64_t size = layout.size;
  InView previous;
  // A record after the first starts as a copy of the previous one: nothing to clear first. Into
  // fresh zero pages, only what the input gives is written.
  const bool overwrites = records::overwrites2011(layout, size) && !area.fresh();
  for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
    options.step();
    u8* record = first + i * size;
    const records::Slot slot =
        i > 0 && overwrites && end - record >= size ? records::Slot::Any : records::Slot::Zero;
    if (slot == records::Slot::Any)
      area.claim(record, size);
    else
      area.prepare(record, size);
    const std::uint16_t length = in.u16(pos);
    records::decode2011(layout, Part::Whole, in.from(pos + 2), length, record, end - record,
                        Previous{i ? &previous : nullptr}, slot);
    previous = InView(record, size);
    pos += 2 + length;
  }
}

// Decodes a dictionary section: D entries, the section's count (which must equal `count`),
// then the reduced records, each completed from its entry. The table holds only the entries
// whose blocks the input can hold (two bytes each at least); an index past them but below D
// names an entry that restored as zeros, as it would have in a full table.
Status decodeDictionary(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                        std::int64_t count, RecordArea& area, const RestoreOptions& options) {
  const u8* end = area.end();
  const std::int64_t size = layout.size;
  const std::uint16_t entries = in.u16(pos);
  pos += 2;
  const std::int64_t held =
      std::min<std::int64_t>(entries, std::max<std::int64_t>(0, (in.size() - pos) / 2));
  Scratch<u8> table(held * size);
  if (held > 0 && !table) return TRDCOMP_ERROR_ALLOCATION;
  InView previous;
  for (std::int64_t k = 0; k < held && in.has(pos); ++k) {
    options.step();
    u8* entry = table.get() + k * size;
    const std::uint16_t length = in.u16(pos);
    records::decode2011(layout, Part::Group, in.from(pos + 2), length, entry, size,
                        Previous{k ? &previous : nullptr});
    previous = InView(entry, size);
    pos += 2 + length;
  }
  if (in.u16(pos) != count) return TRDCOMP_ERROR_COUNT_MISMATCH;
  pos += 2;
  const GroupFields group(layout);
  Previous before;
  for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
    options.step();
    u8* record = first + i * size;
    area.prepare(record, size);
    const std::uint16_t length = in.u16(pos);
    const std::uint16_t index = records::decode2011(layout, Part::Reduced, in.from(pos + 2), length,
                                                    record, end - record, before);
    if (index >= entries) return TRDCOMP_ERROR_DICTIONARY_INDEX;
    if (index < held) {
      const u8* entry = table.get() + index * size;
      if (group.listed)
        for (int k = 0; k < group.spanCount; ++k)
          std::memcpy(record + group.spans[k].offset, entry + group.spans[k].offset,
                      group.spans[k].width);
      else
        for (const records::Field& f : layout)
          if (f.dictionary) std::memcpy(record + f.offset, entry + f.offset, f.width);
    }
    previous = InView(record, size);
    before = Previous{&previous, index};
    pos += 2 + length;
  }
  return TRDCOMP_OK;
}

struct Codec2011 {
  static bool sendsRecords(const Params& params) { return params.nibble >= 1; }
  // The count travels in 16 bits, and only that many records are sent.
  static std::int64_t requestCount(std::int32_t headerCount) {
    return static_cast<std::uint16_t>(headerCount);
  }
  // A block takes two bytes at least, behind the two of the packed count.
  static std::int64_t leastPackedBytes(std::int64_t count) { return 2 + count * 2; }
  static bool keepsSectionBit(const Layout& layout) { return layout.keepsSectionBit; }

  static constexpr std::int64_t requestPrefixBound = 2;
  static void beginRequestBody(OutBuffer& out, std::int64_t count) {
    out.appendU16(static_cast<std::uint16_t>(count));
  }
  static void packRecords(const Layout& layout, const InView& records, std::int64_t count,
                          std::int64_t stride, OutBuffer& out, const Params& params) {
    packBlocks(layout, records, count, stride, out, params);
  }
  static std::int64_t recordsBound(const Layout& layout, std::int64_t count, std::int64_t) {
    return sizeTimes(count, 2 + records::maxBlock2011(layout, Part::Whole));
  }

  static Status restoreRequestRecords(const Layout& layout, const InView& in, std::int64_t pos,
                                      u8* first, std::int64_t count, RecordArea& area,
                                      const Params&, const RestoreOptions& options) {
    if (in.u16(pos) != count) return TRDCOMP_ERROR_COUNT_MISMATCH;  // the buffer stays in *out
    pos += 2;
    decodeRecords(layout, in, pos, first, count, area, options);
    return TRDCOMP_OK;
  }

  // A dictionary in section 0 starts the body itself; otherwise every section's 16-bit count
  // comes first.
  static bool dictionaryFirst(const records::AnswerLayout& layout) {
    return layout.sections[0]->dictionary;
  }
  static void beginAnswerBody(const records::AnswerLayout& layout, const tagANS_Proc& proc,
                              OutBuffer& out) {
    if (!dictionaryFirst(layout))
      for (int s = 0; s < layout.sectionCount; ++s)
        out.appendU16(static_cast<std::uint16_t>(proc.recCount[s]));
  }
  static std::int64_t answerPrefixBound(const records::AnswerLayout& layout) {
    return dictionaryFirst(layout) ? 0 : 2 * layout.sectionCount;
  }
  static u8 answerFlags(const records::AnswerLayout& layout) {
    return dictionaryFirst(layout) ? 3 : 1;
  }

  static Status packSection(const Layout& layout, const InView& records, std::int64_t count,
                            std::int64_t stride, OutBuffer& out, const Params& params) {
    if (!layout.dictionary) {
      packBlocks(layout, records, count, stride, out, params);
      return TRDCOMP_OK;
    }
    return packDictionary(layout, records, static_cast<std::int32_t>(count), stride, out, params)
               ? TRDCOMP_OK
               : TRDCOMP_ERROR_ALLOCATION;
  }
  static std::int64_t sectionBound(const Layout& l, std::int64_t count, std::int64_t stride) {
    if (!l.dictionary) return recordsBound(l, count, stride);
    return 4 + sizeTimes(count, 4 + records::maxBlock2011(l, Part::Group) +
                                    records::maxBlock2011(l, Part::Reduced));
  }

  // Counts: the 16-bit counts ahead of a multi-section body, else the header's count.
  static SectionPlan planAnswer(const records::AnswerLayout& layout, const InView& in) {
    SectionPlan plan;
    plan.pos = in.u32(0);
    plan.sections = layout.sectionCount;
    plan.multi = layout.multiSection();
    plan.slack = kAnswerSlack;
    plan.counts[0] = in.i32(88);
    if (plan.multi) {
      for (int s = 0; s < plan.sections; ++s) plan.counts[s] = in.u16(plan.pos + 2 * s);
      plan.pos += 2 * plan.sections;
    }
    return plan;
  }

  // How many blocks the input reaches: the framing's walk without the decoding (a dictionary's
  // entries count too). A block length that jumps past the end ends it as it ends the restore.
  static std::int64_t recordsPresent(const records::AnswerLayout& layout, const SectionPlan& plan,
                                     const InView& in) {
    std::int64_t pos = plan.pos, present = 0;
    const auto blocks = [&](std::int64_t count) {
      for (std::int64_t i = 0; i < count && in.has(pos); ++i, ++present) pos += 2 + in.u16(pos);
    };
    for (int s = 0; s < plan.sections; ++s) {
      if (layout.sections[s]->dictionary) {
        const std::uint16_t entries = in.u16(pos);
        pos += 2;
        blocks(entries);
      }
      if (!plan.multi || layout.sections[s]->dictionary) pos += 2;  // the section's count
      blocks(plan.counts[s]);
    }
    return present;
  }

  static Status restoreSections(const records::AnswerLayout& layout, const SectionPlan& plan,
                                const InView& in, u8* record, RecordArea& area,
                                const Params& params, const RestoreOptions& options) {
    if (!sendsRecords(params)) return TRDCOMP_OK;
    std::int64_t pos = plan.pos;
    for (int s = 0; s < plan.sections; ++s) {
      const Layout& l = *layout.sections[s];
      const std::int64_t count = plan.counts[s];
      if (l.dictionary) {
        if (Status st = decodeDictionary(l, in, pos, record, count, area, options)) return st;
      } else if (!plan.multi && in.u16(pos) != count) {
        return TRDCOMP_ERROR_COUNT_MISMATCH;
      } else {
        pos += plan.multi ? 0 : 2;
        decodeRecords(l, in, pos, record, count, area, options);
      }
      record += count * l.size;
    }
    return TRDCOMP_OK;
  }
};

}  // namespace

const CodecOps kCodec2011 = opsOf<Codec2011>(1, false);

}  // namespace trdcomp::framing
