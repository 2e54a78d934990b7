// The frame walker: the one place that knows where a message's parts lie. Given the header's
// flags and the layouts of the number, it reads the section table or the 2011 counts, and walks
// the records present: for each, where its length prefix and its bytes lie in the input, its
// index, and where it lands in the restored message. What the message claims beyond its bytes
// (records past the end, counts that disagree) it reports as notes. Restores, bounds, the C
// interface, the tool and the Python module all see messages through it.
//
// A walk is a template over a visitor, so that a restore pays nothing for what it does not look
// at: a visitor declares kItems to be told about the bytes of the frame itself (counts, length
// prefixes, table entries) and kNotes to be told what is odd.
#pragma once

#include <algorithm>
#include <cstdint>

#include "frame/catalogue.h"
#include "primitives/bytes.h"
#include "primitives/header.h"
#include "primitives/status.h"
#include "records/layout.h"

namespace trdcomp::framing {

constexpr int kMostSections = 5;          // pairs of a section table that a message carries
constexpr int kRequestSlack = 1024;       // behind every restored request
constexpr int kAnswerSlack = 10;          // behind a restored answer (2008: one without a table)
constexpr int kSectionTableSlack = 1024;  // behind a 2008 answer restored with its table

// How a record travels.
enum class Unit : std::uint8_t {
  Raw,      // a plain record image of the sender's size
  Record,   // 2008: behind its u32 length
  Block,    // 2011: a block behind its u16 length
  Entry,    // 2011: a dictionary entry's block
  Reduced,  // 2011: a record of a dictionary section, behind its index
};

// The parts of the frame a visitor with kItems is shown, in input order.
enum class Part : std::uint8_t {
  TableSize,       // the section table's u32 size
  TableCount,      // a section's count in the table
  TableSize32,     // a section's record size in the table
  TablePairs,      // pairs past the five a message carries (not read)
  Count16,         // 2011: a section's 16-bit record count
  DictionarySize,  // 2011: the 16-bit number of dictionary entries
};

struct FrameItem {
  Part part;
  int section;
  std::int64_t at, length;
  std::int64_t value;
};

// What is odd about a message that restores all the same.
enum class Note : std::uint8_t {
  HeaderLength,    // a header length other than the header's size
  RecordsMissing,  // the message ends before records it counts: they restore as zeros
  RecordCut,       // a record's bytes run past the end of the message
  CountDisagrees,  // a 2011 count differs from the header's
};

struct FrameNote {
  Note note;
  int section;
  std::int64_t at;     // byte offset in the input
  std::int64_t value;  // what the message says there
  std::int64_t other;  // what it is compared with (missing: the records present)
};

// One record present in the input.
struct Place {
  Unit unit;
  int section;
  std::int64_t index;   // in its section (dictionary entries: the entry's index)
  std::int64_t prefix;  // where its length lies (raw records: where it starts)
  std::int64_t from;    // where its bytes start
  std::int64_t length;  // the bytes it claims (packed: its length; raw: the sender's size)
  // Where it lands, from the first record of the restored message (entries: -1).
  std::int64_t target;
};

// A message's frame: what the header and the section table (or the 2011 counts) say.
struct Frame {
  bool answer = false;
  bool packed = false;
  int codec = 0;  // 0: the 2008 codec, 1: the 2011 Fast codec
  std::int64_t headerLength = 0;
  std::int64_t body = 0;                    // where the section table, counts or records start
  std::int64_t table = -1, tableBytes = 0;  // the section table in the input (2008)
  std::int64_t pairs = 0;                   // pairs the table lists
  int sections = 1;                         // sections the restored message holds
  bool multi = false;                       // restored with the library's section table
  std::int64_t slack = kAnswerSlack;
  std::int64_t records = 0;  // where the records (or the 2011 counts) start
  std::int32_t counts[kMostSections] = {};
  std::int32_t senderSizes[kMostSections] = {};
  std::int64_t countAt[kMostSections] = {};  // where each count lies (-1: from the header)
  const records::Layout* layouts[kMostSections] = {};

  std::int64_t tableBytesRestored() const { return multi ? 4 + 8 * std::int64_t(sections) : 0; }
  std::int64_t headerBytes() const {
    return answer ? header::Answer::kBytes : header::Request::kBytes;
  }
};

// The frame of a request of `layout` in the codec its flags name, written into `f`, a Frame as
// constructed (restores fill the frame of their plan in place: a copy of a frame costs more than
// reading it).
inline void requestFrame(const records::Layout& layout, const InView& in, Frame& f) {
  const header::RequestView h(in);
  f.packed = h.flags().packed();
  f.codec = h.flags().codec();
  f.headerLength = h.length();
  // Packed records start at the header length the sender wrote, raw ones always at 76.
  f.body = f.packed ? in.u32(header::Request::kLength) : header::Request::kBytes;
  f.records = f.body;
  f.counts[0] = h.count();
  f.countAt[0] = header::Request::kCount;
  f.senderSizes[0] = h.size();
  f.layouts[0] = &layout;
  f.slack = kRequestSlack;
}
inline Frame requestFrame(const records::Layout& layout, const InView& in) {
  Frame f;
  requestFrame(layout, in, f);
  return f;
}

namespace detail {

// The fields of the answer header every frame takes.
inline void answerHeader(const records::AnswerLayout* layout, const InView& in, Frame& f) {
  const header::AnswerView h(in);
  f.answer = true;
  f.packed = h.flags().packed();
  f.codec = h.flags().codec();
  f.headerLength = h.length();
  f.body = in.u32(header::Answer::kLength);
  f.records = f.body;
  const int laid = layout ? layout->sectionCount : 0;
  for (int s = 0; s < laid; ++s) {
    f.layouts[s] = layout->sections[s];
    f.countAt[s] = -1;
  }
  f.countAt[0] = header::Answer::kCount;
}

// The answer header's fields and, when flags bit 1 is set, the section table behind the header:
// the layout of a 2008 answer, packed or plain, and of any plain answer. Counts and sender sizes
// of up to five pairs; optional sections are laid out only when the table sends more than one.
// Without a layout (a number restored without a routine), the sections are the pairs listed.
inline void tableFrame(const records::AnswerLayout* layout, const InView& in, Frame& f) {
  const header::AnswerView h(in);
  answerHeader(layout, in, f);
  const int laid = layout ? layout->sectionCount : 0;
  if (h.flags().sectionTable()) {
    const std::int32_t table = in.i32(f.body);
    f.table = f.body;
    f.tableBytes = table;
    f.pairs = std::max<std::int64_t>(0, (std::int64_t(table) - 4) / 8);
    const std::int64_t read = std::min<std::int64_t>(f.pairs, kMostSections);
    for (std::int64_t k = 0; k < read; ++k) {
      f.counts[k] = in.i32(f.body + 4 + 8 * k);
      f.senderSizes[k] = in.i32(f.body + 8 + 8 * k);
      f.countAt[k] = f.body + 4 + 8 * k;
    }
    f.records += table;
    f.sections = !layout ? int(read) : layout->optionalSections() && read < 2 ? 1 : laid;
  } else {
    f.counts[0] = h.count();
    f.senderSizes[0] = h.size();
    f.sections = layout && !layout->optionalSections() ? laid : 1;
  }
  f.multi = f.sections > 1;
  f.slack = f.multi ? kSectionTableSlack : kAnswerSlack;
}

}  // namespace detail

// The frame of a plain answer (flags bit 0 clear) as its sender lays it out before packing, the
// same in either codec: the section table when flags bit 1 is set, else the header's count and
// size. `layout` may be null (a number without a record codec): the sections are then the pairs
// the table lists. Counts and sizes are as the message says: checking them is the reader's.
inline Frame plainAnswerFrame(const records::AnswerLayout* layout, const InView& in) {
  Frame f;
  detail::tableFrame(layout, in, f);
  f.packed = false;
  return f;
}

// The frame of an answer of `layout` in the codec its flags name. 2008: see tableFrame. 2011:
// the 16-bit counts ahead of a multi-section body, else the header's count. Written into `f`, a
// Frame as constructed.
inline void answerFrame(const records::AnswerLayout& layout, const InView& in, Frame& f) {
  if (header::AnswerView(in).flags().codec() == 0) return detail::tableFrame(&layout, in, f);
  detail::answerHeader(&layout, in, f);
  // The 2011 codec has no plain form of answers: its restore reads blocks whatever bit 0 says.
  f.packed = true;
  f.sections = layout.sectionCount;
  f.multi = layout.multiSection();
  f.counts[0] = header::AnswerView(in).count();
  if (f.multi) {
    for (int s = 0; s < f.sections; ++s) {
      f.counts[s] = in.u16(f.records + 2 * s);
      f.countAt[s] = f.records + 2 * s;
    }
    f.records += 2 * f.sections;
  }
}
inline Frame answerFrame(const records::AnswerLayout& layout, const InView& in) {
  Frame f;
  answerFrame(layout, in, f);
  return f;
}

// The section table of an answer restored without a routine (a pass-through number): its size
// and the body its pairs count, every pair counted (pairs past the input read as zero).
struct RawAnswer {
  std::int64_t headerLength = 0;
  std::int64_t table = 0;
  std::int64_t body = 0;
  bool tooLarge = false;
};
inline RawAnswer rawAnswer(const InView& in) {
  const header::AnswerView h(in);
  RawAnswer r;
  r.headerLength = h.length();
  if (h.flags().sectionTable()) {
    r.table = in.i32(r.headerLength);
    const std::int64_t pairs = (r.table - 4) / 8;
    for (std::int64_t k = 0; k < pairs && in.has(r.headerLength + 4 + 8 * k); ++k) {
      r.body +=
          std::int64_t(in.i32(r.headerLength + 4 + 8 * k)) * in.i32(r.headerLength + 8 + 8 * k);
      if (r.body < INT32_MIN || r.body > INT32_MAX) {
        r.tooLarge = true;
        return r;
      }
    }
  } else {
    r.body = std::int64_t(h.count()) * h.size();
  }
  return r;
}

// A visitor that is shown only the records (a restore's): the rest costs nothing.
struct RecordsOnly {
  static constexpr bool kItems = false;
  static constexpr bool kNotes = false;
  void item(const FrameItem&) {}
  void note(const FrameNote&) {}
  Status dictionary(int, std::int64_t, std::int64_t) { return TRDCOMP_OK; }
};

namespace detail {

template <class V>
struct Walk {
  const Frame& f;
  const InView& in;
  V& v;
  std::int64_t pos;
  std::int64_t target = 0;  // where the current section's first record lands

  void item(Part part, int section, std::int64_t at, std::int64_t length, std::int64_t value) {
    if constexpr (V::kItems) v.item(FrameItem{part, section, at, length, value});
  }
  void note(Note n, int section, std::int64_t at, std::int64_t value, std::int64_t other) {
    if constexpr (V::kNotes) v.note(FrameNote{n, section, at, value, other});
  }

  // Records that the message counts past its end.
  void missing(int s, std::int64_t count, std::int64_t present) {
    if (present < count) note(Note::RecordsMissing, s, in.size(), count, present);
  }

  // `count` records behind lengths of `prefix` bytes (4: u32, 2: u16).
  Status prefixed(Unit unit, int s, std::int64_t count, int prefix, std::int64_t size) {
    std::int64_t i = 0;
    for (; i < count && in.has(pos); ++i) {
      const std::int64_t length = prefix == 4 ? std::int64_t(in.u32(pos)) : in.u16(pos);
      if constexpr (V::kNotes)
        if (length > in.size() - pos - prefix)
          note(Note::RecordCut, s, pos, length, in.size() - pos - prefix);
      const std::int64_t to = unit == Unit::Entry ? -1 : target + i * size;
      if (Status st = v.record(Place{unit, s, i, pos, pos + prefix, length, to})) return st;
      pos += prefix + length;
    }
    if (unit != Unit::Entry) missing(s, count, i);
    return TRDCOMP_OK;
  }

  // Plain records of the sender's size; a negative size ends the message's records, one of
  // no size carries nothing.
  Status raw(int s, std::int64_t count, std::int32_t senderSize, std::int64_t size) {
    if (senderSize < 0) {
      pos = in.size();
      return TRDCOMP_OK;
    }
    if (senderSize == 0) return TRDCOMP_OK;
    std::int64_t i = 0;
    for (; i < count && in.has(pos); ++i) {
      if constexpr (V::kNotes)
        if (senderSize > in.size() - pos)
          note(Note::RecordCut, s, pos, senderSize, in.size() - pos);
      if (Status st = v.record(Place{Unit::Raw, s, i, pos, pos, senderSize, target + i * size}))
        return st;
      pos += senderSize;
    }
    missing(s, count, i);
    return TRDCOMP_OK;
  }

  // A 16-bit count in the body that must equal `count`.
  Status count16(int s, std::int64_t count) {
    item(Part::Count16, s, pos, 2, in.u16(pos));
    if (in.u16(pos) != count) return TRDCOMP_ERROR_COUNT_MISMATCH;
    pos += 2;
    return TRDCOMP_OK;
  }

  void table() {
    if (f.table < 0) return;
    item(Part::TableSize, -1, f.table, 4, f.tableBytes);
    const std::int64_t read = std::min<std::int64_t>(f.pairs, kMostSections);
    for (std::int64_t k = 0; k < read; ++k) {
      item(Part::TableCount, int(k), f.table + 4 + 8 * k, 4, f.counts[k]);
      item(Part::TableSize32, int(k), f.table + 8 + 8 * k, 4, f.senderSizes[k]);
    }
    if (f.pairs > read) item(Part::TablePairs, -1, f.table + 4 + 8 * read, 8 * (f.pairs - read), 0);
  }

  Status sections() {
    if constexpr (V::kNotes) {
      if (f.headerLength != f.headerBytes())
        note(Note::HeaderLength, -1, header::Request::kLength, f.headerLength, f.headerBytes());
    }
    table();
    if (f.codec == 1 && f.multi) {
      for (int s = 0; s < f.sections; ++s) {
        item(Part::Count16, s, f.countAt[s], 2, f.counts[s]);
        if constexpr (V::kNotes)
          if (s == 0 && f.counts[0] != header::AnswerView(in).count())
            note(Note::CountDisagrees, 0, f.countAt[0], f.counts[0],
                 header::AnswerView(in).count());
      }
    }
    pos = f.records;
    for (int s = 0; s < f.sections; ++s) {
      const records::Layout& l = *f.layouts[s];
      const std::int64_t count = f.counts[s];
      Status st = TRDCOMP_OK;
      if (!f.packed) {
        st = raw(s, count, f.senderSizes[s], l.size);
      } else if (f.codec == 0) {
        st = prefixed(Unit::Record, s, count, 4, l.size);
      } else if (l.dictionary) {
        const std::uint16_t entries = in.u16(pos);
        item(Part::DictionarySize, s, pos, 2, entries);
        pos += 2;
        // Only the entries whose blocks the input can hold (two bytes each at least).
        const std::int64_t held =
            std::min<std::int64_t>(entries, std::max<std::int64_t>(0, (in.size() - pos) / 2));
        if ((st = v.dictionary(s, entries, held))) return st;
        if ((st = prefixed(Unit::Entry, s, held, 2, l.size))) return st;
        if ((st = count16(s, count))) return st;
        st = prefixed(Unit::Reduced, s, count, 2, l.size);
      } else {
        if (!f.multi && (st = count16(s, count))) return st;
        st = prefixed(Unit::Block, s, count, 2, l.size);
      }
      if (st) return st;
      target += count * l.size;
    }
    return TRDCOMP_OK;
  }
};

}  // namespace detail

// Walks the sections of a message whose frame is `f`, calling `v.record(place)` for every
// record present (in input order) and the visitor's other members as it declares. Returns the
// first refusal: a visitor's, or a 2011 count that differs from the header's where the format
// refuses it (a request, a one-section answer, a dictionary section).
template <class V>
Status walkSections(const Frame& f, const InView& in, V& v) {
  detail::Walk<V> w{f, in, v, f.records};
  return w.sections();
}

// The same for a request: raw records at 76, or packed records behind the 2011 count.
template <class V>
Status walkRequest(const Frame& f, const InView& in, V& v) {
  detail::Walk<V> w{f, in, v, f.records};
  if constexpr (V::kNotes) {
    if (f.headerLength != header::Request::kBytes)
      w.note(Note::HeaderLength, -1, header::Request::kLength, f.headerLength,
             header::Request::kBytes);
  }
  const records::Layout& l = *f.layouts[0];
  if (!f.packed) return w.raw(0, f.counts[0], f.senderSizes[0], l.size);
  if (f.codec == 0) return w.prefixed(Unit::Record, 0, f.counts[0], 4, l.size);
  if (Status st = w.count16(0, f.counts[0])) return st;
  return w.prefixed(Unit::Block, 0, f.counts[0], 2, l.size);
}

}  // namespace trdcomp::framing
