// Record layouts as data.
//
// A layout is written as one line of text in the catalogue's notation: entries in encoding
// order, each "offset: kind" or "offset: k x kind" for a run of k adjacent fields, separated by
// semicolons. Kinds: char, char[N] string, byte block [N], int32 (flag), int64, double,
// short string [N], length-counted byte block [N] (its used length is the int32 listed just
// before it), and a counted group "up to K x (kind, kind, ...) counted by OFFSET". The word
// "prefix" stands for the seven fields that open most request records. A text may carry
// "(decode cap N)"; a layout whose encoding order is not ascending ends in "(rotated)", and
// "no record codec" marks a record copied as it is. The text is parsed at compile time into a
// flat field table, so a layout row reads line by line against the catalogue and a malformed
// row does not build.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace trdcomp::records {

enum class Kind : std::uint8_t {
  Char,          // one raw byte
  Text,          // char[N] string: zero-terminated inside its array when shorter
  ShortText,     // short string [N]: at most N - 1 bytes kept, a zero byte ends the copy
  Block,         // byte block [N]: opaque bytes, always the full width
  Int32,         // int32 (flag): 2008 form chosen by the codec flag
  Int64,         // int64
  Double,        // price or amount with at most four decimals
  CountedBlock,  // byte block whose used length is an int32 of the same record
  Group,         // up to `repeat` entries of the `members` fields that follow it
};

// How the 2011 Fast codec writes a text.
enum class TextForm : std::uint8_t {
  LengthPrefixed,  // stop-bit length, then the bytes: carries any byte
  StopBit,         // bit 7 marks the last character: 7-bit text only
  ExchangeCode,    // three characters, compacted by the exchange-code table, stop-bit
};

// What the 2011 Fast codec subtracts from an integer before writing it.
enum class BaseForm : std::uint8_t {
  Constant,  // a fixed number (0 for most fields)
  Field,     // another field of the same record, decoded before this one
  Previous,  // the same field of the previous record; `base` for the first record
};

struct Field {
  std::uint32_t offset = 0;  // in the record (for group members: in the entry)
  std::uint32_t width = 0;   // bytes in the record
  std::uint32_t cap = 0;     // decoder cap of texts; differs from width where a row says
  Kind kind = Kind::Char;
  std::uint16_t members = 0;      // group: member fields that follow
  std::uint16_t repeat = 0;       // group: most entries
  std::uint32_t stride = 0;       // group: bytes per entry
  std::uint32_t countOffset = 0;  // group, counted block: the int32 that counts
  // Top-level chars and numbers: how many fields of this kind lie end to end from here on, this
  // one included, in encoding order (a run is coded in one tight loop, chars in one copy).
  std::uint16_t run = 1;

  // 2011 Fast codec. A field without a first-record default is always written in the first
  // record of a message or section, so that any peer reads it whatever default it assumes.
  TextForm text = TextForm::LengthPrefixed;
  BaseForm baseForm = BaseForm::Constant;
  bool hasDefault = false;
  bool dictionary = false;        // one of the repeated group of a dictionary layout
  std::int64_t base = 0;          // Constant: the base; Previous: the first record's base
  std::uint32_t baseOffset = 0;   // Field: offset of the base field
  std::int64_t defaultValue = 0;  // first-record default of chars, integers and doubles
};

// The 16 bytes of a field that the record loops read, one per Field and at the same index,
// derived from it at compile time: Field keeps the rest (the 2011 Fast codec's defaults, bases,
// text forms and dictionary membership), a side table the hot loops never touch.
struct FieldOp {
  std::uint16_t offset = 0;  // in the record (group members: in the entry)
  std::uint16_t width = 0;
  std::uint16_t cap = 0;  // texts: the most bytes a decoding keeps (a short string: width - 1)
  Kind kind = Kind::Char;
  std::uint8_t run = 1;           // see Field::run
  std::uint8_t members = 0;       // group: member fields that follow
  std::uint16_t repeat = 0;       // group: most entries
  std::uint16_t stride = 0;       // group: bytes per entry
  std::uint16_t countOffset = 0;  // group, counted block: the int32 that counts
};
static_assert(sizeof(FieldOp) == 16);

struct Layout {
  std::uint16_t number = 0;  // the routine number that owns the layout
  std::uint8_t section = 0;  // answer section (0 for requests)
  std::uint32_t size = 0;    // record size
  std::uint32_t reach = 0;   // bytes a decoding may write from the record's start (decode caps)
  // The most bytes a 2008 field reads from where it starts (its length or value, and a text's
  // cap or a block's width; 4 + 32 at least, for texts loaded 32 bytes at a time): a record
  // whose input holds this many bytes past its packed length is read without checking a byte.
  std::uint32_t readSpan = 36;
  // The 2008 decoder writes every byte of the record itself, so that the record need not be
  // zeroed first: the fields tile the record exactly (no gap, no overlap), no text has a decode
  // cap other than its width, and every group's count is decoded ahead of the group.
  bool fills = false;
  const Field* fields = nullptr;
  const FieldOp* ops = nullptr;  // fields[i] as the record loops read it
  std::uint16_t fieldCount = 0;
  bool rotated = false;          // encoding order is not ascending offset
  bool opaque = false;           // no record codec: records are copied, never encoded
  bool dictionary = false;       // 2011 Fast: repeated field groups go once, records by index
  bool keepsSectionBit = false;  // 2011 Fast request restore ignores flags bit 1
  bool optional = false;         // an answer section sent only by 2008 messages with a table
  // 2011 Fast: fields in a whole block, a dictionary entry and a reduced record (its index
  // included); a counted group counts all its entries.
  std::uint16_t fastFields[3] = {};
  std::string_view text;        // the row as written
  std::string_view attributes;  // the row's attributes as written
  // Where the layout lies among the catalogue's: its table and its place there, so that the
  // codecs compiled for the tables are found without searching (kNoTable: built elsewhere).
  std::uint8_t table = 0;
  std::uint16_t index = 0;

  constexpr const Field* begin() const { return fields; }
  constexpr const Field* end() const { return fields + fieldCount; }
  constexpr const FieldOp* opsBegin() const { return ops; }
  constexpr const FieldOp* opsEnd() const { return ops + fieldCount; }
};

// How much of the caller's body one record is read over when packing: the caller's record
// (`stride` bytes), or the layout's size when that is larger, since the layout's fields lie
// where they lie whatever the caller's size. A text without terminator ends there.
constexpr std::int64_t recordExtent(const Layout& layout, std::int64_t stride) {
  return stride > layout.size ? stride : layout.size;
}

// The entries of a counted group that its count names: at most `repeat`, none for a count of
// 0 or less.
template <class GroupField>
constexpr std::int64_t groupEntries(const GroupField& group, std::int32_t count) {
  return count < 0 ? 0 : count < group.repeat ? count : group.repeat;
}

// What a record slot holds when a record is decoded into it.
enum class Slot : bool {
  Zero,  // zeros: only the bytes the input gives are written (fresh pages stay untouched)
  Any,   // anything: the decoder writes every byte (each codec says when it can)
};

// One row of a layout table: the fields, and the attributes that differ from the house rules
// (2011 Fast field rules: no first-record default, base 0, length-prefixed texts; sections:
// always part of their answer).
struct LayoutRow {
  std::uint16_t number;
  std::uint8_t section;
  std::uint32_t size;
  std::string_view fields;
  std::string_view attributes = {};
};

namespace detail {

// Compile-time failure: reaching a function that is not constexpr during constant evaluation
// stops the build at the malformed row, with the reason in the diagnostic.
inline void layoutTextError(const char*) {}
constexpr void fail(const char* why) {
  if (why) layoutTextError(why);
}

class Parser {
 public:
  constexpr explicit Parser(std::string_view s) : s_(s) {}

  constexpr bool done() {
    skip();
    return i_ >= s_.size();
  }
  constexpr bool eat(std::string_view word) {
    skip();
    if (s_.substr(i_, word.size()) != word) return false;
    i_ += word.size();
    return true;
  }
  constexpr void expect(std::string_view word) {
    if (!eat(word)) fail("layout text: unexpected word");
  }
  constexpr bool peekDigit() {
    skip();
    return i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9';
  }
  constexpr char character() {
    if (i_ >= s_.size()) fail("layout text: character expected");
    return s_[i_++];
  }
  constexpr bool peek(char c) {
    skip();
    return i_ < s_.size() && s_[i_] == c;
  }
  constexpr std::uint32_t number() {
    if (!peekDigit()) fail("layout text: number expected");
    std::uint32_t v = 0;
    while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') v = v * 10 + (s_[i_++] - '0');
    return v;
  }

 private:
  constexpr void skip() {
    while (i_ < s_.size() && s_[i_] == ' ') ++i_;
  }
  std::string_view s_;
  std::size_t i_ = 0;
};

constexpr Field makeField(Kind kind, std::uint32_t width) {
  Field f;
  f.kind = kind;
  f.width = width;
  f.cap = width;
  return f;
}

// One kind word of the notation (without run count).
constexpr Field parseKind(Parser& p) {
  if (p.eat("char[")) {
    std::uint32_t n = p.number();
    p.expect("]");
    p.expect("string");
    return makeField(Kind::Text, n);
  }
  if (p.eat("char")) return makeField(Kind::Char, 1);
  if (p.eat("byte block [")) {
    std::uint32_t n = p.number();
    p.expect("]");
    return makeField(Kind::Block, n);
  }
  if (p.eat("length-counted byte block [")) {
    std::uint32_t n = p.number();
    p.expect("]");
    return makeField(Kind::CountedBlock, n);
  }
  if (p.eat("short string [")) {
    std::uint32_t n = p.number();
    p.expect("]");
    return makeField(Kind::ShortText, n);
  }
  if (p.eat("int32 (flag)")) return makeField(Kind::Int32, 4);
  if (p.eat("int64")) return makeField(Kind::Int64, 8);
  if (p.eat("double")) return makeField(Kind::Double, 8);
  fail("layout text: unknown kind");
  return {};
}

// Walks a layout text and hands every field to `sink(field)`; returns the layout's flags.
struct TextFlags {
  bool rotated = false;
  bool opaque = false;
};

template <class Sink>
constexpr TextFlags walk(std::string_view text, Sink&& sink) {
  TextFlags flags;
  Parser p(text);
  if (p.eat("no record codec")) {
    flags.opaque = true;
    if (!p.done()) fail("layout text: an opaque record has no fields");
    return flags;
  }
  Field previous;
  bool havePrevious = false;
  bool first = true;
  while (!p.done()) {
    if (!first) p.expect(";");
    first = false;
    if (p.eat("prefix")) {
      // The 145 bytes that open most request records.
      constexpr std::uint32_t offsets[] = {0, 1, 17, 33, 49, 57, 121};
      constexpr Field kinds[] = {makeField(Kind::Char, 1),  makeField(Kind::Text, 16),
                                 makeField(Kind::Text, 16), makeField(Kind::Text, 16),
                                 makeField(Kind::Text, 8),  makeField(Kind::Block, 64),
                                 makeField(Kind::Text, 24)};
      for (int k = 0; k < 7; ++k) {
        Field f = kinds[k];
        f.offset = offsets[k];
        sink(f);
      }
      continue;
    }
    std::uint32_t offset = p.number();
    p.expect(":");
    if (p.eat("up to")) {
      Field group = makeField(Kind::Group, 0);
      group.offset = offset;
      group.repeat = static_cast<std::uint16_t>(p.number());
      p.expect("x");
      p.expect("(");
      Field members[16];
      std::uint16_t n = 0;
      std::uint32_t at = 0;
      do {
        if (n == 16) fail("layout text: group too large");
        members[n] = parseKind(p);
        members[n].offset = at;
        at += members[n].width;
        ++n;
      } while (p.eat(","));
      p.expect(")");
      p.expect("counted by");
      group.countOffset = p.number();
      group.members = n;
      group.stride = at;
      group.width = at * group.repeat;
      sink(group);
      for (std::uint16_t k = 0; k < n; ++k) sink(members[k]);
      previous = group;
      havePrevious = true;
      continue;
    }
    std::uint32_t run = 1;
    if (p.peekDigit()) {
      // "k x kind" is a run; a bare number here can only be a run count.
      run = p.number();
      p.expect("x");
    }
    Field f = parseKind(p);
    if (p.eat("(decode cap")) {
      if (f.kind != Kind::Text) fail("layout text: decode cap on a non-text");
      f.cap = p.number();
      p.expect(")");
    }
    if (f.kind == Kind::CountedBlock) {
      if (!havePrevious || previous.kind != Kind::Int32)
        fail("layout text: a counted block follows its int32");
      f.countOffset = previous.offset;
    }
    for (std::uint32_t k = 0; k < run; ++k) {
      f.offset = offset + k * f.width;
      sink(f);
    }
    previous = f;
    havePrevious = true;
    if (p.eat("(rotated)")) {
      flags.rotated = true;
      if (!p.done()) fail("layout text: (rotated) ends a layout");
    }
  }
  return flags;
}

// The attributes column: entries separated by semicolons, each a layout attribute
//   "dictionary OFFSET OFFSET ..."  2011 Fast: the fields of the repeated group of a dictionary
//   "keeps section bit"             2011 Fast: the request restore ignores flags bit 1
//   "optional section"              an answer section that only 2008 messages with a section
//                                   table carry: the 2011 Fast codec has no such section, and
//                                   the 2008 restore lays it out only when a message sends it
// or "OFFSET: attribute ..." for the top-level field at that offset, with the attributes
//   = 'c', = N      first-record default of a char, an integer or a (whole) double
//   = ""            first-record default of a text: the empty text
//   base N          subtracted before writing, added after reading
//   base @OFFSET    the same, with the value of another field of the record
//   delta N         the same, with the previous record's value (N for the first record)
//   stop-bit        text written as stop-bit characters (7-bit text only)
//   exchange        three-character code, compacted by the exchange-code table
struct RowFlags {
  bool dictionary = false;
  bool keepsSectionBit = false;
  bool optional = false;
};

constexpr Field* fieldAt(Field* fields, std::size_t n, std::uint32_t offset) {
  for (std::size_t i = 0; i < n; ++i) {
    if (fields[i].offset == offset) return &fields[i];
    if (fields[i].kind == Kind::Group) i += fields[i].members;
  }
  fail("attributes: no field at that offset");
  return nullptr;
}

constexpr std::int64_t signedNumber(Parser& p) {
  bool negative = p.eat("-");
  std::int64_t v = p.number();
  return negative ? -v : v;
}

// Applies a row's attributes to its fields (when given) and returns the layout's own.
constexpr RowFlags applyAttributes(std::string_view text, Field* fields, std::size_t n) {
  RowFlags flags;
  Parser p(text);
  bool first = true;
  while (!p.done()) {
    if (!first) p.expect(";");
    first = false;
    if (p.eat("keeps section bit")) {
      flags.keepsSectionBit = true;
      continue;
    }
    if (p.eat("optional section")) {
      flags.optional = true;
      continue;
    }
    if (p.eat("dictionary")) {
      flags.dictionary = true;
      while (p.peekDigit()) {
        std::uint32_t offset = p.number();
        if (fields) fieldAt(fields, n, offset)->dictionary = true;
      }
      continue;
    }
    std::uint32_t offset = p.number();
    p.expect(":");
    Field scratch;
    Field& f = fields ? *fieldAt(fields, n, offset) : scratch;
    do {
      if (p.eat("=")) {
        f.hasDefault = true;
        if (p.eat("'")) {
          f.defaultValue = static_cast<unsigned char>(p.character());
          p.expect("'");
        } else if (p.eat("\"\"")) {
          f.defaultValue = 0;
        } else {
          f.defaultValue = signedNumber(p);
        }
      } else if (p.eat("base @")) {
        f.baseForm = BaseForm::Field;
        f.baseOffset = p.number();
      } else if (p.eat("base")) {
        f.baseForm = BaseForm::Constant;
        f.base = signedNumber(p);
      } else if (p.eat("delta")) {
        f.baseForm = BaseForm::Previous;
        f.base = signedNumber(p);
      } else if (p.eat("stop-bit")) {
        f.text = TextForm::StopBit;
      } else if (p.eat("exchange")) {
        // Three characters and a terminator: the decoder writes four bytes.
        if (fields && f.width != 4) fail("attributes: an exchange code is 4 bytes wide");
        f.text = TextForm::ExchangeCode;
      } else {
        fail("attributes: unknown attribute");
      }
    } while (!p.done() && !p.peek(';'));
  }
  return flags;
}

// Whether the top-level fields (a group as one span of all its entries) cover [0, size) exactly,
// without overlap, with every text's decode cap equal to its width and every group's count
// field placed ahead of the group.
constexpr bool tiles(const Field* fields, std::size_t n, std::uint32_t size) {
  std::uint64_t covered = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const Field& f = fields[i];
    const std::uint64_t lo = f.offset, hi = lo + f.width;
    if (hi > size) return false;
    covered += f.width;
    for (std::size_t k = 0; k < i; ++k) {
      const Field& g = fields[k];
      if (lo < std::uint64_t(g.offset) + g.width && g.offset < hi) return false;
      if (g.kind == Kind::Group) k += g.members;
    }
    if (f.kind == Kind::Text && f.cap != f.width) return false;
    if (f.kind == Kind::Group) {
      bool counted = false;
      for (std::size_t k = 0; k < i; ++k) {
        counted = counted || (fields[k].offset == f.countOffset && fields[k].kind == Kind::Int32);
        if (fields[k].kind == Kind::Group) k += fields[k].members;
      }
      if (!counted) return false;
      for (std::uint16_t m = 1; m <= f.members; ++m)
        if (fields[i + m].kind == Kind::Group || fields[i + m].kind == Kind::CountedBlock ||
            (fields[i + m].kind == Kind::Text && fields[i + m].cap != fields[i + m].width))
          return false;
      i += f.members;
    }
  }
  return covered == size;
}

constexpr std::size_t countFields(std::string_view text) {
  std::size_t n = 0;
  walk(text, [&](const Field&) { ++n; });
  return n;
}

}  // namespace detail

// A table of rows becomes one flat field array plus one layout per row pointing into it.
template <std::size_t Rows>
constexpr std::size_t totalFields(const std::array<LayoutRow, Rows>& rows) {
  std::size_t n = 0;
  for (const LayoutRow& r : rows) n += detail::countFields(r.fields);
  return n;
}

// The fields of one row, with its attributes applied, handed to sink(field) in order.
template <class Sink>
constexpr void parseRow(const LayoutRow& row, Field* first, Sink&& sink) {
  std::size_t n = 0;
  detail::walk(row.fields, [&](const Field& f) {
    sink(f);
    ++n;
  });
  detail::applyAttributes(row.attributes, first, n);
  for (std::size_t i = n; i-- > 0;) {
    Field& f = first[i];
    const bool grouped = i > 0 && [&] {
      for (std::size_t k = 0; k < i; ++k) {
        if (first[k].kind == Kind::Group && i <= k + first[k].members) return true;
        if (first[k].kind == Kind::Group) k += first[k].members;
      }
      return false;
    }();
    const bool fixed = f.kind == Kind::Char || f.kind == Kind::Int32 || f.kind == Kind::Int64 ||
                       f.kind == Kind::Double;
    if (fixed && !grouped && i + 1 < n && first[i + 1].kind == f.kind &&
        first[i + 1].offset == f.offset + f.width)
      f.run = static_cast<std::uint16_t>(first[i + 1].run < 255 ? first[i + 1].run + 1 : 255);
  }
}

// The layout of a row whose parsed fields start at `fields`.
constexpr Layout bindLayout(const LayoutRow& row, const Field* fields) {
  Layout l;
  std::size_t n = 0;
  const detail::TextFlags flags = detail::walk(row.fields, [&](const Field&) { ++n; });
  const detail::RowFlags row_ = detail::applyAttributes(row.attributes, nullptr, 0);
  l.number = row.number;
  l.section = row.section;
  l.size = row.size;
  l.fields = fields;
  l.fieldCount = static_cast<std::uint16_t>(n);
  l.rotated = flags.rotated;
  l.opaque = flags.opaque;
  l.dictionary = row_.dictionary;
  l.keepsSectionBit = row_.keepsSectionBit;
  l.optional = row_.optional;
  l.text = row.fields;
  l.attributes = row.attributes;
  l.fastFields[2] = 1;  // the dictionary index
  l.reach = row.size;
  for (const Field* f = fields; f != fields + n; ++f) {
    const bool grouped = f->kind == Kind::Group;
    const int times = grouped ? f->repeat : 1;
    for (const Field* g = grouped ? f + 1 : f; g != f + 1 + (grouped ? f->members : 0); ++g) {
      l.fastFields[0] += times;
      l.fastFields[g->dictionary ? 1 : 2] += times;
      const std::uint32_t last =
          grouped ? f->offset + (f->repeat - 1) * f->stride + g->offset : g->offset;
      if (g->kind == Kind::Text && last + g->cap > l.reach) l.reach = last + g->cap;
      const std::uint32_t widest = g->kind == Kind::Text ? g->cap : g->width;
      if (4 + widest > l.readSpan) l.readSpan = 4 + widest;
    }
    if (grouped) f += f->members;
  }
  if (l.dictionary && l.fastFields[1] == 0) detail::fail("attributes: empty dictionary");
  l.fills = !l.opaque && detail::tiles(fields, n, row.size);
  return l;
}

template <std::size_t Total, std::size_t Rows>
constexpr std::array<Field, Total> parseFields(const std::array<LayoutRow, Rows>& rows) {
  std::array<Field, Total> fields{};
  std::size_t at = 0;
  for (const LayoutRow& r : rows)
    parseRow(r, fields.data() + at, [&](const Field& f) { fields[at++] = f; });
  return fields;
}

// The hot descriptor of a field. Every offset, width and count of the catalogue fits in 16 bits
// (records are at most 32808 bytes); a row that does not fails the build.
constexpr FieldOp opOf(const Field& f) {
  auto narrow = [](std::uint64_t v) {
    if (v > 0xFFFF) detail::fail("layout: a field does not fit the 16-bit descriptor");
    return static_cast<std::uint16_t>(v);
  };
  FieldOp op;
  op.offset = narrow(f.offset);
  op.width = narrow(f.width);
  op.cap = narrow(f.kind == Kind::ShortText ? f.width - 1 : f.kind == Kind::Text ? f.cap : f.width);
  op.kind = f.kind;
  op.run = static_cast<std::uint8_t>(f.run);
  op.members = static_cast<std::uint8_t>(f.members);
  op.repeat = f.repeat;
  op.stride = narrow(f.stride);
  op.countOffset = narrow(f.countOffset);
  return op;
}

template <std::size_t Total>
constexpr std::array<FieldOp, Total> makeOps(const std::array<Field, Total>& fields) {
  std::array<FieldOp, Total> ops{};
  for (std::size_t i = 0; i < Total; ++i) ops[i] = opOf(fields[i]);
  return ops;
}

// The catalogue's layout tables (Layout::table).
enum LayoutTable : std::uint8_t { kNoTable, kRequestTable, kAnswerTable };

template <std::size_t Rows>
constexpr std::array<Layout, Rows> bindLayouts(const std::array<LayoutRow, Rows>& rows,
                                               const Field* fields, const FieldOp* ops,
                                               LayoutTable table = kNoTable) {
  std::array<Layout, Rows> layouts{};
  std::size_t at = 0;
  for (std::size_t i = 0; i < Rows; ++i) {
    layouts[i] = bindLayout(rows[i], fields + at);
    layouts[i].ops = ops + at;
    layouts[i].table = table;
    layouts[i].index = static_cast<std::uint16_t>(i);
    at += layouts[i].fieldCount;
  }
  return layouts;
}

// The layouts of one answer routine, one per section in section order.
struct AnswerLayout {
  std::uint16_t number = 0;
  std::uint8_t sectionCount = 0;
  const Layout* sections[3] = {};

  constexpr bool multiSection() const { return sectionCount > 1; }
  // Whether the sections past the first are sent only when a message has a section table.
  constexpr bool optionalSections() const { return sectionCount > 1 && sections[1]->optional; }
};

// Groups answer layouts (sorted by number, then section) into one entry per routine number;
// without `optional`, the optional sections are left out.
template <std::size_t Distinct, std::size_t Rows>
constexpr std::array<AnswerLayout, Distinct> groupSections(const std::array<Layout, Rows>& rows,
                                                           const Layout* base, bool optional) {
  std::array<AnswerLayout, Distinct> out{};
  std::size_t n = 0;
  for (std::size_t i = 0; i < Rows; ++i) {
    if (i == 0 || rows[i].number != rows[i - 1].number) out[n++].number = rows[i].number;
    AnswerLayout& a = out[n - 1];
    if (rows[i].section != a.sectionCount && !rows[i].optional)
      detail::fail("answer rows: sections must be listed 0, 1, 2 in order");
    if (rows[i].optional && (rows[i].section == 0 || !optional)) continue;
    a.sections[a.sectionCount++] = base + i;
  }
  return out;
}

template <std::size_t Rows>
constexpr std::size_t distinctNumbers(const std::array<Layout, Rows>& rows) {
  std::size_t n = 0;
  for (std::size_t i = 0; i < Rows; ++i) n += (i == 0 || rows[i].number != rows[i - 1].number);
  return n;
}

}  // namespace trdcomp::records
