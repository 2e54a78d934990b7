// Framing of the 2011 Fast codec: record blocks with a u16 length and a presence map, fields
// left out when they equal the previous record's (records/codec2011); the body opens with the
// 16-bit record counts, and a dictionary section sends its repeated field groups once. The rest
// of the framing is generic (framing/message_framing.h).
#include <algorithm>
#include <cstring>
#include <optional>

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

// The blocks the frame walker finds, decoded into their slots, each chained to the one before in
// its section. A record after the first starts as a copy of the previous one: nothing to clear
// first. Into fresh zero pages, only what the input gives is written. A dictionary section's
// table holds only the entries whose blocks the input can hold; an index past them but below
// the entry count names an entry that restored as zeros, as it would have in a full table.
class Restore : public RecordsOnly {
 public:
  Restore(const Frame& f, const InView& in, u8* first, RecordArea& area,
          const RestoreOptions& options)
      : f_(f), in_(in), first_(first), area_(area), options_(options) {}

  Status dictionary(int section, std::int64_t entries, std::int64_t held) {
    const Layout& layout = *f_.layouts[section];
    entries_ = entries;
    held_ = held;
    group_.emplace(layout);  // once per section, not per record
    table_ = Scratch<u8>(held * layout.size);
    return held > 0 && !table_ ? TRDCOMP_ERROR_ALLOCATION : TRDCOMP_OK;
  }

  Status record(const Place& p) {
    options_.step();
    const Layout& layout = *f_.layouts[p.section];
    const std::int64_t size = layout.size;
    const u8* end = area_.end();
    const InView block = in_.from(p.from);
    if (p.unit == Unit::Entry) {
      u8* entry = table_.get() + p.index * size;
      records::decode2011(layout, Part::Group, block, p.length, entry, size,
                          Previous{p.index ? &previous_ : nullptr});
      previous_ = InView(entry, size);
      return TRDCOMP_OK;
    }
    u8* record = first_ + p.target;
    if (p.unit == Unit::Raw) {
      copyRawRecord(in_, p, record, size, area_);
      return TRDCOMP_OK;
    }
    if (p.unit == Unit::Reduced) {
      area_.prepare(record, size);
      const std::uint16_t index =
          records::decode2011(layout, Part::Reduced, block, p.length, record, end - record,
                              p.index ? before_ : Previous{});
      if (index >= entries_) return TRDCOMP_ERROR_DICTIONARY_INDEX;
      if (index < held_) fromEntry(layout, *group_, table_.get() + index * size, record);
      previous_ = InView(record, size);
      before_ = Previous{&previous_, index};
      return TRDCOMP_OK;
    }
    if (p.index == 0) overwrites_ = records::overwrites2011(layout, size) && !area_.fresh();
    const records::Slot slot = p.index > 0 && overwrites_ && end - record >= size
                                   ? records::Slot::Any
                                   : records::Slot::Zero;
    if (slot == records::Slot::Any)
      area_.claim(record, size);
    else
      area_.prepare(record, size);
    records::decode2011(layout, Part::Whole, block, p.length, record, end - record,
                        Previous{p.index ? &previous_ : nullptr}, slot);
    previous_ = InView(record, size);
    return TRDCOMP_OK;
  }

 private:
  // A reduced record takes its group fields from its entry.
  static void fromEntry(const Layout& layout, const GroupFields& group, const u8* entry,
                        u8* record) {
    if (group.listed)
      for (int k = 0; k < group.spanCount; ++k)
        std::memcpy(record + group.spans[k].offset, entry + group.spans[k].offset,
                    group.spans[k].width);
    else
      for (const records::Field& f : layout)
        if (f.dictionary) std::memcpy(record + f.offset, entry + f.offset, f.width);
  }

  const Frame& f_;
  const InView& in_;
  u8* first_;
  RecordArea& area_;
  const RestoreOptions& options_;
  InView previous_;
  Previous before_;
  bool overwrites_ = false;
  Scratch<u8> table_;
  std::optional<GroupFields> group_;
  std::int64_t entries_ = 0, held_ = 0;
};

struct Codec2011 {
  static bool sendsRecords(const Params& params) { return params.nibble >= 1; }
  // The count travels in 16 bits, and only that many records are sent.
  static std::int64_t requestCount(std::int32_t headerCount) {
    return static_cast<std::uint16_t>(headerCount);
  }
  // A block takes two bytes at least, behind the two of the packed count.
  static std::int64_t leastPackedBytes(std::int64_t count) { return 2 + count * 2; }
  static bool keepsSectionBit(const Layout& layout) { return layout.keepsSectionBit; }
  // A request, a one-section answer and a dictionary section carry a 16-bit count in the body
  // that must equal the header's.
  static constexpr bool kCountsInBody = true;

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

  static Status restoreRecords(const Frame& f, const InView& in, u8* first, RecordArea& area,
                               const Params& params, const RestoreOptions& options) {
    if (!sendsRecords(params)) return TRDCOMP_OK;
    Restore v(f, in, first, area, options);
    return f.answer ? walkSections(f, in, v) : walkRequest(f, in, v);
  }
};

}  // namespace

const CodecOps kCodec2011 = opsOf<Codec2011>(1, false);

}  // namespace trdcomp::framing
