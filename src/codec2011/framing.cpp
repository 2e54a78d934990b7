#include "codec2011/framing.h"

#include <algorithm>
#include <cstring>

#include "primitives/raw.h"
#include "records/codec2011.h"

namespace trdcomp::codec2011 {
namespace {

using records::Layout;
using records::Part;
using records::Previous;

constexpr int kRequestSlack = 1024;
constexpr int kAnswerSlack = 10;

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

// `count` records every `stride` bytes of `records`, each compared with the one before it and
// viewed over the layout's size at most.
void packRecords(const Layout& layout, const InView& records, std::int64_t count,
                 std::int64_t stride, OutBuffer& out, Slots slots) {
  // Every block takes its length slot and its map at least.
  if (!out.expect(sizeTimes(count, 2 + records::mapLength(layout, Part::Whole)))) return;
  InView previous;
  for (std::int64_t i = 0; i < count && !out.failed(); ++i) {
    const InView current = records.window(i * stride, records::recordExtent(layout, stride));
    appendBlock(layout, Part::Whole, current, 0, Previous{i ? &previous : nullptr}, out, slots);
    previous = current;
  }
}

// The group fields of two records are equal: characters by value, texts as terminated strings
// (within their arrays).
bool sameGroup(const Layout& layout, const InView& a, const InView& b) {
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

std::uint64_t groupHash(const Layout& layout, const InView& r) {
  std::uint64_t h = 1469598103934665603ull;
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
                    std::int64_t stride, OutBuffer& out, Slots slots) {
  // The two counts and a reduced block per record at least: no need to index what cannot fit.
  if (!out.expect(4 + sizeTimes(count, 2 + records::mapLength(layout, Part::Reduced))))
    return true;
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
  for (std::int32_t i = 0; i < count; ++i) {
    const InView current = record(i);
    std::size_t s = groupHash(layout, current) & (slotCount - 1);
    while (table[s] && !sameGroup(layout, record(first[table[s] - 1]), current))
      s = (s + 1) & (slotCount - 1);
    if (!table[s]) {
      first[entries] = i;
      table[s] = ++entries;
    }
    index[i] = static_cast<std::uint16_t>(table[s] - 1);
  }
  out.appendU16(static_cast<std::uint16_t>(entries));
  InView previous;
  for (std::int32_t k = 0; k < entries && !out.failed(); ++k) {
    const InView entry = record(first[k]);
    appendBlock(layout, Part::Group, entry, 0, Previous{k ? &previous : nullptr}, out, slots);
    previous = entry;
  }
  out.appendU16(static_cast<std::uint16_t>(count));
  for (std::int32_t i = 0; i < count && !out.failed(); ++i) {
    const InView current = record(i);
    const Previous before{i ? &previous : nullptr,
                          static_cast<std::uint16_t>(i ? index[i - 1] : 0)};
    appendBlock(layout, Part::Reduced, current, index[i], before, out, slots);
    previous = current;
  }
  return true;
}

// Decodes `count` blocks into records of the layout's size from `first` on, each chained to the
// one before; reading stops where the message ends (the records after stay zero, unvisited).
void decodeRecords(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                   std::int64_t count, const u8* end, const RestoreOptions& options) {
  const std::int64_t size = layout.size;
  InView previous;
  for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
    options.step();
    u8* record = first + i * size;
    const std::uint16_t length = in.u16(pos);
    records::decode2011(layout, Part::Whole, in.from(pos + 2), length, record, end - record,
                        Previous{i ? &previous : nullptr});
    previous = InView(record, size);
    pos += 2 + length;
  }
}

// Decodes a dictionary section: D entries, the section's count (which must equal `count`),
// then the reduced records, each completed from its entry. The table holds only the entries
// whose blocks the input can hold (two bytes each at least); an index past them but below D
// names an entry that restored as zeros, as it would have in a full table.
Status decodeDictionary(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                        std::int64_t count, const u8* end, const RestoreOptions& options) {
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
  Previous before;
  for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
    options.step();
    u8* record = first + i * size;
    const std::uint16_t length = in.u16(pos);
    const std::uint16_t index = records::decode2011(layout, Part::Reduced, in.from(pos + 2), length,
                                                    record, end - record, before);
    if (index >= entries) return TRDCOMP_ERROR_DICTIONARY_INDEX;
    if (index < held)
      for (const records::Field& f : layout)
        if (f.dictionary)
          std::memcpy(record + f.offset, table.get() + index * size + f.offset, f.width);
    previous = InView(record, size);
    before = Previous{&previous, index};
    pos += 2 + length;
  }
  return TRDCOMP_OK;
}

}  // namespace

Status packRequest(const Layout& layout, OutBuffer& out, const char* body, int bodyLen, int nibble,
                   Slots slots) {
  if (layout.opaque) return TRDCOMP_OK;  // a record without codec is never sent
  if (Status s = checkBody(body, bodyLen)) return s;
  if (appendShortBody(out, body, bodyLen, layout.size))
    return out.failed() ? TRDCOMP_ERROR_OUTPUT_TOO_SMALL : TRDCOMP_OK;
  if (nibble < 1) return TRDCOMP_OK;
  // The count travels in 16 bits, and only that many records are sent.
  u8* header = out.base();
  const std::uint16_t count = static_cast<std::uint16_t>(loadI32(header + 68));
  const std::int32_t stride = loadI32(header + 72);
  if (Status s = checkRecords(count, stride, bodyLen)) return s;
  out.appendU16(count);
  packRecords(layout, InView(body, bodyLen), count, stride, out, slots);
  if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  header[8] |= 1;
  return TRDCOMP_OK;
}

std::int64_t requestBodyBound(const Layout& layout, std::int32_t count, int bodyLen, int nibble) {
  if (layout.opaque) return 0;
  if (bodyLen >= 0 && static_cast<std::uint32_t>(bodyLen) < layout.size) return bodyLen;
  if (nibble < 1) return 0;
  const std::uint16_t sent = static_cast<std::uint16_t>(count);
  return 2 + sizeTimes(sent, 2 + records::maxBlock2011(layout, Part::Whole));
}

Status restoreRequest(const Layout& layout, const InView& in, char** out, int& outLen, int nibble,
                      const RestoreOptions& options) {
  if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
  const u8 flags = in.at(8);
  if ((flags & 2) && !layout.keepsSectionBit) return TRDCOMP_ERROR_SECTION_BIT;
  const std::int32_t count = in.i32(68);
  // A count that the input cannot hold is refused before anything is allocated: a block takes
  // two bytes at least, behind the two of the packed count; a raw record takes its size.
  std::int64_t pos = in.u32(0);
  if (!(flags & 1)) {
    if (Status s = checkRawRequest(in, count, in.i32(72))) return s;
  } else if (nibble >= 1 && count > 0 && 2 + std::int64_t(count) * 2 > in.size() - pos) {
    return TRDCOMP_ERROR_COUNT_BEYOND_INPUT;
  }
  const std::int64_t size = layout.size;
  std::int64_t length;
  if (Status s = restoredLength(count, size, kRequestHeader, kRequestSlack, options, length))
    return s;
  u8* o = allocateZeroed(length + kRequestSlack);
  if (!o) return TRDCOMP_ERROR_ALLOCATION;
  outLen = static_cast<int>(length);
  *out = reinterpret_cast<char*>(o);
  in.copyAvailable(o, 0, kRequestHeader);
  if (!(flags & 1)) {
    copyRawRecords(in, in.i32(72), o + kRequestHeader, count, size, options);
  } else if (nibble >= 1) {
    if (in.u16(pos) != count) return TRDCOMP_ERROR_COUNT_MISMATCH;  // the buffer stays in *out
    pos += 2;
    decodeRecords(layout, in, pos, o + kRequestHeader, count, o + length + kRequestSlack, options);
  }
  storeU32(o, kRequestHeader);
  storeU32(o + 72, layout.size);
  return TRDCOMP_OK;
}

Status packAnswer(const records::AnswerLayout& layout, OutBuffer& out, const tagANS_Proc& proc,
                  char* const sections[5], int nibble, Slots slots) {
  if (nibble < 1) return TRDCOMP_OK;
  for (int s = 0; s < layout.sectionCount; ++s) {
    if (Status st = checkRecords(proc.recCount[s], proc.recSize[s], INT64_MAX)) return st;
    if (!sections[s] && proc.recCount[s] > 0 && proc.recSize[s] > 0)
      return TRDCOMP_ERROR_NULL_ARGUMENT;
  }
  // A dictionary in section 0 starts the body itself; otherwise every section's 16-bit count
  // comes first.
  const bool dictionaryFirst = layout.sections[0]->dictionary;
  if (!dictionaryFirst)
    for (int s = 0; s < layout.sectionCount; ++s)
      out.appendU16(static_cast<std::uint16_t>(proc.recCount[s]));
  for (int s = 0; s < layout.sectionCount; ++s) {
    const std::int64_t count = proc.recCount[s], size = proc.recSize[s];
    const InView records(sections[s], std::max<std::int64_t>(0, count * size));
    if (layout.sections[s]->dictionary) {
      if (!packDictionary(*layout.sections[s], records, proc.recCount[s], size, out, slots))
        return TRDCOMP_ERROR_ALLOCATION;
    } else {
      packRecords(*layout.sections[s], records, count, size, out, slots);
    }
  }
  if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  out.base()[8] |= dictionaryFirst ? 3 : 1;
  return TRDCOMP_OK;
}

std::int64_t answerBodyBound(const records::AnswerLayout& layout, const tagANS_Proc& proc,
                             int nibble) {
  if (nibble < 1) return 0;
  std::int64_t most = layout.sections[0]->dictionary ? 0 : 2 * layout.sectionCount;
  for (int s = 0; s < layout.sectionCount; ++s) {
    const Layout& l = *layout.sections[s];
    const std::int64_t count = proc.recCount[s];
    if (l.dictionary)
      most = sizePlus(most, 4 + sizeTimes(count, 4 + records::maxBlock2011(l, Part::Group) +
                                                     records::maxBlock2011(l, Part::Reduced)));
    else
      most = sizePlus(most, sizeTimes(count, 2 + records::maxBlock2011(l, Part::Whole)));
  }
  return most;
}

Status restoreAnswer(const records::AnswerLayout& layout, const InView& in, char** out, int& outLen,
                     int nibble, const RestoreOptions& options) {
  if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
  std::int64_t pos = in.u32(0);
  const int sections = layout.sectionCount;
  const bool multi = layout.multiSection();

  // Counts: the 16-bit counts ahead of a multi-section body, else the header's count.
  std::int64_t counts[3] = {in.i32(88), 0, 0};
  std::int64_t length = kAnswerHeader;
  if (multi) {
    for (int s = 0; s < sections; ++s) counts[s] = in.u16(pos + 2 * s);
    pos += 2 * sections;
    length += 4 + 8 * sections;
  }
  for (int s = 0; s < sections; ++s) {
    if (Status st = restoredLength(counts[s], layout.sections[s]->size, length, kAnswerSlack,
                                   options, length)) {
      outLen = 0;
      return st;
    }
  }
  u8* o = allocateZeroed(length + kAnswerSlack);
  *out = reinterpret_cast<char*>(o);
  outLen = o ? static_cast<int>(length) : 0;
  if (!o) return TRDCOMP_ERROR_ALLOCATION;
  in.copyAvailable(o, 0, kAnswerHeader);
  u8* record = o + kAnswerHeader;
  const u8* end = o + length + kAnswerSlack;
  if (multi) {
    storeU32(record, static_cast<std::uint32_t>(4 + 8 * sections));
    for (int s = 0; s < sections; ++s) {
      storeU32(record + 4 + 8 * s, static_cast<std::uint32_t>(counts[s]));
      storeU32(record + 8 + 8 * s, layout.sections[s]->size);
    }
    record += 4 + 8 * sections;
  }

  if (nibble >= 1) {
    // A refusal leaves the buffer in *out, for the caller to release.
    for (int s = 0; s < sections; ++s) {
      const Layout& l = *layout.sections[s];
      if (l.dictionary) {
        if (Status st = decodeDictionary(l, in, pos, record, counts[s], end, options)) return st;
      } else if (!multi && in.u16(pos) != counts[s]) {
        return TRDCOMP_ERROR_COUNT_MISMATCH;
      } else {
        pos += multi ? 0 : 2;
        decodeRecords(l, in, pos, record, counts[s], end, options);
      }
      record += counts[s] * l.size;
    }
  }

  storeU32(o, kAnswerHeader);
  if (multi) {
    o[8] |= 2;
  } else {
    o[8] &= static_cast<u8>(~2u);
    storeI32(o + 88, static_cast<std::int32_t>(counts[0]));
    storeU32(o + 92, layout.sections[0]->size);
  }
  return TRDCOMP_OK;
}

}  // namespace trdcomp::codec2011
