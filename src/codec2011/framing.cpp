#include "codec2011/framing.h"

#include <algorithm>
#include <cstring>

#include "primitives/bytes.h"
#include "primitives/raw.h"
#include "records/codec2011.h"

namespace trdcomp::codec2011 {
namespace {

using records::Layout;
using records::Part;
using records::Previous;

constexpr int kRequestHeader = 76;
constexpr int kAnswerHeader = 96;
constexpr int kRequestSlack = 1024;
constexpr int kAnswerSlack = 10;

// Appends one block: a u16 length slot, then the map and the fields. The slot is added to, not
// overwritten, as deployed packers do; the output buffer must be zero where blocks go.
void appendBlock(const Layout& layout, Part part, const InView& current, std::uint16_t index,
                 const Previous& previous, u8* out, int& outLen) {
  u8* slot = out + outLen;
  const std::uint32_t bytes = records::encode2011(layout, part, current, index, previous, slot + 2);
  const auto length = static_cast<std::uint16_t>(loadU16(slot) + bytes);
  storeU16(slot, length);
  outLen += length + 2;
}

// `count` records every `stride` bytes of `records`, each compared with the one before it.
void packRecords(const Layout& layout, const InView& records, std::int64_t count,
                 std::int32_t stride, u8* out, int& outLen) {
  InView previous;
  for (std::int64_t i = 0; i < count; ++i) {
    const InView current = records.from(i * stride);
    appendBlock(layout, Part::Whole, current, 0, Previous{i ? &previous : nullptr}, out, outLen);
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
void packDictionary(const Layout& layout, const InView& records, std::int32_t count,
                    std::int32_t stride, u8* out, int& outLen) {
  const std::size_t n = count > 0 ? static_cast<std::size_t>(count) : 0;
  // first[k]: the record that brought entry k; index[i]: record i's entry; slots: a hash table
  // of entries, so that finding a group does not walk the whole table.
  std::size_t slotCount = 16;
  while (slotCount < 2 * n) slotCount *= 2;
  auto* first = static_cast<std::int32_t*>(std::calloc(n + 1, sizeof(std::int32_t)));
  auto* index = static_cast<std::uint16_t*>(std::calloc(n + 1, sizeof(std::uint16_t)));
  auto* slots = static_cast<std::int32_t*>(std::calloc(slotCount, sizeof(std::int32_t)));
  if (first && index && slots) {
    std::int32_t entries = 0;
    for (std::int32_t i = 0; i < count; ++i) {
      const InView record = records.from(std::int64_t(i) * stride);
      std::size_t s = groupHash(layout, record) & (slotCount - 1);
      while (slots[s] &&
             !sameGroup(layout, records.from(std::int64_t(first[slots[s] - 1]) * stride), record))
        s = (s + 1) & (slotCount - 1);
      if (!slots[s]) {
        first[entries] = i;
        slots[s] = ++entries;
      }
      index[i] = static_cast<std::uint16_t>(slots[s] - 1);
    }
    storeU16(out + outLen, static_cast<std::uint16_t>(entries));
    outLen += 2;
    InView previous;
    for (std::int32_t k = 0; k < entries; ++k) {
      const InView entry = records.from(std::int64_t(first[k]) * stride);
      appendBlock(layout, Part::Group, entry, 0, Previous{k ? &previous : nullptr}, out, outLen);
      previous = entry;
    }
    storeU16(out + outLen, static_cast<std::uint16_t>(count));
    outLen += 2;
    for (std::int32_t i = 0; i < count; ++i) {
      const InView current = records.from(std::int64_t(i) * stride);
      const Previous before{i ? &previous : nullptr,
                            static_cast<std::uint16_t>(i ? index[i - 1] : 0)};
      appendBlock(layout, Part::Reduced, current, index[i], before, out, outLen);
      previous = current;
    }
  }
  std::free(first);
  std::free(index);
  std::free(slots);
}

// Decodes `count` blocks into records of the layout's size from `first` on, each chained to the
// one before; reading stops where the message ends (the records after stay zero).
void decodeRecords(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                   std::int64_t count, const u8* end) {
  const std::int64_t size = layout.size;
  InView previous;
  for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
    u8* record = first + i * size;
    const std::uint16_t length = in.u16(pos);
    records::decode2011(layout, Part::Whole, in.from(pos + 2), length, record, end - record,
                        Previous{i ? &previous : nullptr});
    previous = InView(record, size);
    pos += 2 + length;
  }
}

// Decodes a dictionary section: D entries, the section's count (which must equal `count`),
// then the reduced records, each completed from its entry. False when the count differs or an
// index names no entry.
bool decodeDictionary(const Layout& layout, const InView& in, std::int64_t& pos, u8* first,
                      std::int64_t count, const u8* end) {
  const std::int64_t size = layout.size;
  const std::uint16_t entries = in.u16(pos);
  pos += 2;
  u8* table = allocateZeroed(std::int64_t(entries) * size + 1);
  if (!table) return false;
  InView previous;
  for (std::int64_t k = 0; k < entries && in.has(pos); ++k) {
    u8* entry = table + k * size;
    const std::uint16_t length = in.u16(pos);
    records::decode2011(layout, Part::Group, in.from(pos + 2), length, entry, size,
                        Previous{k ? &previous : nullptr});
    previous = InView(entry, size);
    pos += 2 + length;
  }
  bool ok = in.u16(pos) == count;
  pos += 2;
  Previous before;
  for (std::int64_t i = 0; ok && i < count && in.has(pos); ++i) {
    u8* record = first + i * size;
    const std::uint16_t length = in.u16(pos);
    const std::uint16_t index = records::decode2011(layout, Part::Reduced, in.from(pos + 2), length,
                                                    record, end - record, before);
    if (index >= entries) {
      ok = false;
      break;
    }
    for (const records::Field& f : layout)
      if (f.dictionary) std::memcpy(record + f.offset, table + index * size + f.offset, f.width);
    previous = InView(record, size);
    before = Previous{&previous, index};
    pos += 2 + length;
  }
  release(table);
  return ok;
}

}  // namespace

int packRequest(const Layout& layout, char* out, int& outLen, const char* body, int bodyLen,
                int nibble) {
  if (layout.opaque) return 1;  // a record without codec is never sent
  u8* o = reinterpret_cast<u8*>(out);
  if (appendShortBody(o, outLen, body, bodyLen, layout.size)) return 1;
  if (nibble < 1) return 1;
  // The count travels in 16 bits, and only that many records are sent.
  const std::uint16_t count = static_cast<std::uint16_t>(loadI32(o + 68));
  storeU16(o + outLen, count);
  outLen += 2;
  packRecords(layout, InView(body, bodyLen), count, loadI32(o + 72), o, outLen);
  o[8] |= 1;
  return 1;
}

int restoreRequest(const Layout& layout, const char* inBytes, int inLen, char** out, int& outLen,
                   int nibble) {
  if (!out) return 0;
  const InView in(inBytes, inLen);
  const u8 flags = in.at(8);
  if ((flags & 2) && !layout.keepsSectionBit) return 0;
  const std::int32_t count = in.i32(68);
  const std::int64_t size = layout.size;
  std::int64_t length;
  if (!restoredLength(count, size, kRequestHeader, kRequestSlack, length)) return 0;
  outLen = static_cast<int>(length);
  u8* o = allocateZeroed(length + kRequestSlack);
  *out = reinterpret_cast<char*>(o);
  if (!o) return 0;
  in.copyAvailable(o, 0, kRequestHeader);
  if (!(flags & 1)) {
    copyRawRecords(in, in.i32(72), o + kRequestHeader, count, size);
  } else if (nibble >= 1) {
    std::int64_t pos = in.u32(0);
    if (in.u16(pos) != count) return 0;  // the buffer is the caller's to release
    pos += 2;
    decodeRecords(layout, in, pos, o + kRequestHeader, count, o + length + kRequestSlack);
  }
  storeU32(o, kRequestHeader);
  storeU32(o + 72, layout.size);
  return 1;
}

int packAnswer(const records::AnswerLayout& layout, char* out, int& outLen, const tagANS_Proc* proc,
               char* const sections[5], int nibble) {
  if (nibble < 1) return 1;
  u8* o = reinterpret_cast<u8*>(out);
  // A dictionary in section 0 starts the body itself; otherwise every section's 16-bit count
  // comes first.
  const bool dictionaryFirst = layout.sections[0]->dictionary;
  if (!dictionaryFirst) {
    for (int s = 0; s < layout.sectionCount; ++s) {
      storeU16(o + outLen, static_cast<std::uint16_t>(proc->recCount[s]));
      outLen += 2;
    }
  }
  for (int s = 0; s < layout.sectionCount; ++s) {
    const std::int32_t count = proc->recCount[s], size = proc->recSize[s];
    const InView records(sections[s], std::max<std::int64_t>(0, std::int64_t(count) * size));
    if (layout.sections[s]->dictionary)
      packDictionary(*layout.sections[s], records, count, size, o, outLen);
    else
      packRecords(*layout.sections[s], records, count, size, o, outLen);
  }
  o[8] |= dictionaryFirst ? 3 : 1;
  return 1;
}

int restoreAnswer(const records::AnswerLayout& layout, const char* inBytes, int inLen, char** out,
                  int& outLen, int nibble) {
  if (!out) return 0;
  const InView in(inBytes, inLen);
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
    if (!restoredLength(counts[s], layout.sections[s]->size, length, kAnswerSlack, length)) {
      outLen = 0;
      return 0;
    }
  }
  u8* o = allocateZeroed(length + kAnswerSlack);
  *out = reinterpret_cast<char*>(o);
  outLen = o ? static_cast<int>(length) : 0;
  if (!o) return 0;
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

  bool ok = true;
  if (nibble >= 1) {
    for (int s = 0; ok && s < sections; ++s) {
      const Layout& l = *layout.sections[s];
      if (l.dictionary) {
        ok = decodeDictionary(l, in, pos, record, counts[s], end);
      } else if (!multi && in.u16(pos) != counts[s]) {
        ok = false;
      } else {
        pos += multi ? 0 : 2;
        decodeRecords(l, in, pos, record, counts[s], end);
      }
      record += counts[s] * l.size;
    }
  }
  if (!ok) return 0;  // the buffer is the caller's to release

  storeU32(o, kAnswerHeader);
  if (multi) {
    o[8] |= 2;
  } else {
    o[8] &= static_cast<u8>(~2u);
    storeI32(o + 88, static_cast<std::int32_t>(counts[0]));
    storeU32(o + 92, layout.sections[0]->size);
  }
  return 1;
}

}  // namespace trdcomp::codec2011
