// A message annotated byte by byte: the frame walker says where the header, the table, the
// counts, the length prefixes and the records lie; the reference decoders, with a trace, say
// where each field of a record lies. Values come from the message as the library restores it.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <vector>

#include "TrdCompData.h"
#include "capi/walk.h"
#include "primitives/header.h"
#include "records/codec2008.h"
#include "records/codec2011.h"

namespace trdcomp::capi {
namespace {

using framing::FrameItem;
using framing::Place;
using framing::Unit;

trdcomp_item blank(int what, std::int64_t offset, std::int64_t length) {
  trdcomp_item i{};
  i.offset = offset;
  i.length = length;
  i.what = what;
  i.field = -1;
  i.section = -1;
  i.record = -1;
  i.entry = -1;
  i.value_offset = -1;
  i.restored_offset = -1;
  for (int k = 0; k < 7; ++k) {
    i.place_field[k] = -1;
    i.place_entry[k] = -1;
  }
  return i;
}

// The items in input order, every byte once: what starts before the bytes already covered is
// cut; what leaves a gap gets the gap listed as unread (or, past the bytes the message is read
// from, trailing).
struct Items {
  std::vector<trdcomp_item> list;
  std::int64_t cursor = 0;
  std::int64_t size;  // of the input
  std::int64_t end;   // of the bytes read

  void gapTo(std::int64_t to) {
    while (cursor < to) {
      const bool trailing = cursor >= end;
      const std::int64_t stop = trailing ? to : std::min(to, end);
      list.push_back(
          blank(trailing ? TRDCOMP_ITEM_TRAILING : TRDCOMP_ITEM_UNREAD, cursor, stop - cursor));
      cursor = stop;
    }
  }
  void add(trdcomp_item i) {
    const std::int64_t stop = std::min(i.offset + i.length, size);
    if (i.offset < cursor) i.offset = cursor;
    if (stop <= i.offset) return;
    i.length = stop - i.offset;
    gapTo(i.offset);
    list.push_back(i);
    cursor = stop;
  }
};

// Collects what a reference decoder reads of one record.
class Trace final : public records::FieldTrace {
 public:
  std::vector<trdcomp_item> fields;
  std::int64_t mapEnd = 0;
  std::int64_t indexFrom = -1, indexTo = -1;
  std::vector<std::pair<int, std::int64_t>> places;  // by map place: field, entry

  void field(int index, std::int64_t entry, std::int64_t at, std::int64_t from,
             std::int64_t to) override {
    trdcomp_item i = blank(TRDCOMP_ITEM_FIELD, from, to - from);
    i.field = index;
    i.entry = static_cast<std::int32_t>(entry);
    i.restored_offset = at;  // in the record, until the record's place is known
    fields.push_back(i);
  }
  void map(std::int64_t to) override { mapEnd = to; }
  void place(int place, int index, std::int64_t entry) override {
    if (place >= static_cast<int>(places.size())) places.resize(place + 1, {-1, -1});
    places[place] = {index, entry};
  }
  void index(std::int64_t from, std::int64_t to) override {
    indexFrom = from;
    indexTo = to;
  }
};

class Explain {
 public:
  static constexpr bool kItems = true;
  static constexpr bool kNotes = false;

  Explain(const framing::Frame& f, const InView& in, const u8* restored, std::int64_t restoredLen,
          std::int64_t first, char flag, Items& items)
      : f_(f),
        in_(in),
        restored_(restored),
        restoredLen_(restoredLen),
        first_(first),
        flag_(flag),
        items_(items) {}

  std::vector<u8> entries;  // decoded dictionary entries, after the restored message

  void note(const framing::FrameNote&) {}
  void item(const FrameItem& fi) {
    static constexpr int kWhat[] = {TRDCOMP_ITEM_TABLE_SIZE,        TRDCOMP_ITEM_TABLE_COUNT,
                                    TRDCOMP_ITEM_TABLE_RECORD_SIZE, TRDCOMP_ITEM_TABLE_UNREAD,
                                    TRDCOMP_ITEM_SECTION_COUNT,     TRDCOMP_ITEM_DICTIONARY_SIZE};
    trdcomp_item i = blank(kWhat[static_cast<int>(fi.part)], fi.at, fi.length);
    i.section = fi.section;
    i.value = fi.value;
    items_.add(i);
  }
  Status dictionary(int, std::int64_t, std::int64_t held) {
    entryBase_ = static_cast<std::int64_t>(entries.size());
    entryCount_ = held;
    return TRDCOMP_OK;
  }
  Status record(const Place& p) {
    const records::Layout& l = *f_.layouts[p.section];
    const std::int64_t size = l.size;
    if (p.unit == Unit::Raw) return raw(p, l);
    trdcomp_item length =
        blank(p.unit == Unit::Record ? TRDCOMP_ITEM_RECORD_LENGTH : TRDCOMP_ITEM_BLOCK_LENGTH,
              p.prefix, p.from - p.prefix);
    describe(length, p);
    length.value = p.length;
    items_.add(length);
    Trace trace;
    std::vector<u8> scratch(static_cast<std::size_t>(std::max<std::int64_t>(l.reach, size)) + 64);
    const InView block = in_.from(p.from);
    std::int64_t valueBase = first_ + p.target;  // where the record's bytes lie in `values`
    if (p.unit == Unit::Record) {
      if (!l.opaque)
        records::decode2008Checked(l, block, static_cast<std::int32_t>(p.length), scratch.data(),
                                   static_cast<std::int64_t>(scratch.size()), flag_, &trace);
    } else if (p.unit == Unit::Entry) {
      if (p.index == 0) entries.resize(entries.size() + entryCount_ * size);
      u8* entry = entries.data() + (entryBase_ + p.index) * size;
      const InView previous(entry - size, size);
      records::decode2011Checked(l, records::Part::Group, block, p.length, entry, size,
                                 records::Previous{p.index ? &previous : nullptr}, &trace);
      valueBase = restoredLen_ + (entryBase_ + p.index) * size;
    } else {
      const InView previous(restored_ + valueBase - size, size);
      const records::Part part =
          p.unit == Unit::Block ? records::Part::Whole : records::Part::Reduced;
      records::Previous before{p.index ? &previous : nullptr, p.index ? index_ : std::uint16_t(0)};
      index_ = records::decode2011Checked(l, part, block, p.length, scratch.data(), size, before,
                                          &trace);
    }
    // The record's own items in input order: map bytes, the index, then the fields.
    std::vector<trdcomp_item> own;
    for (std::int64_t b = 0; b < trace.mapEnd; ++b) {
      trdcomp_item m = blank(TRDCOMP_ITEM_PRESENCE_MAP, p.from + b, 1);
      describe(m, p);
      m.value = in_.at(p.from + b);
      m.first_place = static_cast<int>(7 * b);
      for (int k = 0; k < 7; ++k) {
        const std::size_t j = static_cast<std::size_t>(7 * b + k);
        if (j < trace.places.size()) {
          m.place_field[k] = trace.places[j].first;
          m.place_entry[k] = static_cast<std::int32_t>(trace.places[j].second);
        }
      }
      own.push_back(m);
    }
    if (trace.indexFrom >= 0) {
      trdcomp_item x = blank(TRDCOMP_ITEM_DICTIONARY_INDEX, p.from + trace.indexFrom,
                             trace.indexTo - trace.indexFrom);
      describe(x, p);
      x.value = index_;
      own.push_back(x);
    }
    const std::int64_t recordEnd = p.from + std::max<std::int64_t>(0, p.length);
    for (trdcomp_item i : trace.fields) {
      describe(i, p);
      const std::int64_t at = i.restored_offset;
      i.width = l.fields[i.field].width;
      i.value_offset = valueBase + at;
      i.restored_offset = p.unit == Unit::Entry ? -1 : first_ + p.target + at;
      i.offset += p.from;
      const std::int64_t stop = std::min(i.offset + i.length, std::min(recordEnd, in_.size()));
      i.overrun = i.offset + i.length - std::max(stop, i.offset);
      i.length = std::max<std::int64_t>(0, stop - i.offset);
      if (i.length > 0) own.push_back(i);
    }
    std::stable_sort(own.begin(), own.end(), [](const trdcomp_item& a, const trdcomp_item& b) {
      return a.offset < b.offset;
    });
    for (const trdcomp_item& i : own) items_.add(i);
    return TRDCOMP_OK;
  }

 private:
  void describe(trdcomp_item& i, const Place& p) const {
    i.section = p.section;
    i.record = p.index;
    i.unit = p.unit == Unit::Entry ? TRDCOMP_UNIT_ENTRY : TRDCOMP_UNIT_RECORD;
  }

  // A plain record: its fields lie where the layout puts them, within the sender's size.
  Status raw(const Place& p, const records::Layout& l) {
    struct Slice {
      std::int64_t at, width;
      int field;
      std::int64_t entry;
    };
    std::vector<Slice> slices;
    for (const records::Field* fld = l.begin(); fld != l.end(); ++fld) {
      const int index = static_cast<int>(fld - l.begin());
      if (fld->kind != records::Kind::Group) {
        slices.push_back({fld->offset, fld->width, index, -1});
        continue;
      }
      for (std::int64_t e = 0; e < fld->repeat; ++e)
        for (int m = 1; m <= fld->members; ++m)
          slices.push_back(
              {fld->offset + e * fld->stride + fld[m].offset, fld[m].width, index + m, e});
      fld += fld->members;
    }
    std::stable_sort(slices.begin(), slices.end(),
                     [](const Slice& a, const Slice& b) { return a.at < b.at; });
    const std::int64_t kept = std::min<std::int64_t>(p.length, l.size);
    for (const Slice& s : slices) {
      if (s.at >= kept) break;
      trdcomp_item i = blank(TRDCOMP_ITEM_FIELD, p.from + s.at, std::min(s.width, kept - s.at));
      describe(i, p);
      i.field = s.field;
      i.entry = static_cast<std::int32_t>(s.entry);
      i.width = static_cast<std::uint32_t>(s.width);
      i.restored_offset = first_ + p.target + s.at;
      i.value_offset = i.restored_offset;
      items_.add(i);
    }
    return TRDCOMP_OK;
  }

  const framing::Frame& f_;
  const InView& in_;
  const u8* restored_;
  std::int64_t restoredLen_;
  std::int64_t first_;  // where the first record lies in the restored message
  char flag_;
  Items& items_;
  std::int64_t entryBase_ = 0, entryCount_ = 0;
  std::uint16_t index_ = 0;
};

void headerItems(const InView& in, int direction, Items& items) {
  const bool request = direction == TRDCOMP_REQUEST;
  struct H {
    int field, at, width;
  };
  const H request_[] = {{TRDCOMP_HEADER_LENGTH, header::Request::kLength, 4},
                        {TRDCOMP_HEADER_FUNCTION, header::Request::kFunction, 4},
                        {TRDCOMP_HEADER_FLAGS, header::Request::kFlags, 1},
                        {TRDCOMP_HEADER_CALLER, header::Request::kCaller,
                         header::Request::kCount - header::Request::kCaller},
                        {TRDCOMP_HEADER_COUNT, header::Request::kCount, 4},
                        {TRDCOMP_HEADER_SIZE, header::Request::kSize, 4}};
  const H answer_[] = {
      {TRDCOMP_HEADER_LENGTH, header::Answer::kLength, 4},
      {TRDCOMP_HEADER_FUNCTION, header::Answer::kFunction, 4},
      {TRDCOMP_HEADER_FLAGS, header::Answer::kFlags, 1},
      {TRDCOMP_HEADER_CALLER, header::Answer::kCaller,
       header::Answer::kShortText - header::Answer::kCaller},
      {TRDCOMP_HEADER_SHORT_TEXT, header::Answer::kShortText,
       header::Answer::kText - header::Answer::kShortText},
      {TRDCOMP_HEADER_TEXT, header::Answer::kText, header::Answer::kCount - header::Answer::kText},
      {TRDCOMP_HEADER_COUNT, header::Answer::kCount, 4},
      {TRDCOMP_HEADER_SIZE, header::Answer::kSize, 4}};
  const H* begin = request ? request_ : answer_;
  const H* end = request ? std::end(request_) : std::end(answer_);
  for (const H* h = begin; h != end; ++h) {
    trdcomp_item i = blank(TRDCOMP_ITEM_HEADER, h->at, h->width);
    i.field = h->field;
    i.value = h->width == 4 ? in.i32(h->at) : h->width == 1 ? in.at(h->at) : 0;
    items.add(i);
  }
}

}  // namespace
}  // namespace trdcomp::capi

using namespace trdcomp::capi;

extern "C" int trdcomp_explain(const void* message, size_t length, int direction, int flag,
                               size_t max_len, trdcomp_explanation** out, trdcomp_error* err) {
  if (!message || !out) return fail(err, TRDCOMP_ERROR_NULL_ARGUMENT, -1, "null argument");
  *out = nullptr;
  if (length > static_cast<size_t>(INT32_MAX))
    return fail(err, TRDCOMP_ERROR_TOO_LARGE, -1, "a message is at most 2 GiB");
  const trdcomp::InView in(message, static_cast<std::int64_t>(length));
  int dir = TRDCOMP_REQUEST;
  if (int s = directionOf(in, direction, err, dir)) return s;
  void* restoredBuffer = nullptr;
  std::size_t restoredLen = 0;
  if (int s =
          trdcomp_restore(message, length, dir, flag, max_len, &restoredBuffer, &restoredLen, err))
    return s;
  std::unique_ptr<void, void (*)(void*)> owner(restoredBuffer, trdcomp_release);
  const auto* restored = static_cast<const trdcomp::u8*>(restoredBuffer);
  const Walked w = walk(in, dir);
  Items items{{}, 0, in.size(), w.end};
  headerItems(in, dir, items);
  std::vector<trdcomp::u8> entries;
  if (w.walked) {
    const trdcomp::framing::Frame& f = w.frame;
    if (f.packed || f.answer) {
      trdcomp_item gap = blank(TRDCOMP_ITEM_HEADER_GAP, f.headerBytes(),
                               std::int64_t(f.headerLength) - f.headerBytes());
      if (gap.length > 0) items.add(gap);
    }
    const std::int64_t first = f.headerBytes() + f.tableBytesRestored();
    Explain v(f, in, restored, static_cast<std::int64_t>(restoredLen), first,
              static_cast<char>(flag), items);
    if (f.answer)
      trdcomp::framing::walkSections(f, in, v);
    else
      trdcomp::framing::walkRequest(f, in, v);
    entries = std::move(v.entries);
  } else if (w.records.form == TRDCOMP_FORM_PASS_THROUGH) {
    const std::int64_t from =
        dir == TRDCOMP_REQUEST ? trdcomp::header::Request::kBytes : trdcomp::header::Answer::kBytes;
    items.add(blank(TRDCOMP_ITEM_BODY, from, w.end - from));
  }
  items.gapTo(in.size());

  const std::size_t itemBytes = items.list.size() * sizeof(trdcomp_item);
  const std::size_t valueBytes = restoredLen + entries.size();
  auto* block = static_cast<unsigned char*>(
      std::malloc(sizeof(trdcomp_explanation) + itemBytes + valueBytes + 1));
  if (!block) return fail(err, TRDCOMP_ERROR_ALLOCATION, -1, "out of memory");
  auto* e = new (block) trdcomp_explanation{};
  describeFrame(w, in, dir, e->frame);
  auto* list = reinterpret_cast<trdcomp_item*>(block + sizeof(trdcomp_explanation));
  if (itemBytes) std::memcpy(list, items.list.data(), itemBytes);
  unsigned char* values = block + sizeof(trdcomp_explanation) + itemBytes;
  if (restoredLen) std::memcpy(values, restored, restoredLen);
  if (!entries.empty()) std::memcpy(values + restoredLen, entries.data(), entries.size());
  e->item_count = items.list.size();
  e->items = list;
  e->values_length = valueBytes;
  e->values = values;
  *out = e;
  return TRDCOMP_OK;
}
