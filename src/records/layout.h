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

struct Field {
  std::uint32_t offset = 0;  // in the record (for group members: in the entry)
  std::uint32_t width = 0;   // bytes in the record
  std::uint32_t cap = 0;     // decoder cap of texts; differs from width where a row says
  Kind kind = Kind::Char;
  std::uint16_t members = 0;      // group: member fields that follow
  std::uint16_t repeat = 0;       // group: most entries
  std::uint32_t stride = 0;       // group: bytes per entry
  std::uint32_t countOffset = 0;  // group, counted block: the int32 that counts
};

struct Layout {
  std::uint16_t number = 0;  // the routine number that owns the layout
  std::uint8_t section = 0;  // answer section (0 for requests)
  std::uint32_t size = 0;    // record size
  const Field* fields = nullptr;
  std::uint16_t fieldCount = 0;
  bool rotated = false;   // encoding order is not ascending offset
  bool opaque = false;    // no record codec: records are copied, never encoded
  std::string_view text;  // the row as written

  constexpr const Field* begin() const { return fields; }
  constexpr const Field* end() const { return fields + fieldCount; }
};

// One row of a layout table.
struct LayoutRow {
  std::uint16_t number;
  std::uint8_t section;
  std::uint32_t size;
  std::string_view fields;
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

template <std::size_t Total, std::size_t Rows>
constexpr std::array<Field, Total> parseFields(const std::array<LayoutRow, Rows>& rows) {
  std::array<Field, Total> fields{};
  std::size_t at = 0;
  for (const LayoutRow& r : rows) detail::walk(r.fields, [&](const Field& f) { fields[at++] = f; });
  return fields;
}

template <std::size_t Rows>
constexpr std::array<Layout, Rows> bindLayouts(const std::array<LayoutRow, Rows>& rows,
                                               const Field* fields) {
  std::array<Layout, Rows> layouts{};
  std::size_t at = 0;
  for (std::size_t i = 0; i < Rows; ++i) {
    std::size_t n = 0;
    detail::TextFlags flags = detail::walk(rows[i].fields, [&](const Field&) { ++n; });
    Layout& l = layouts[i];
    l.number = rows[i].number;
    l.section = rows[i].section;
    l.size = rows[i].size;
    l.fields = fields + at;
    l.fieldCount = static_cast<std::uint16_t>(n);
    l.rotated = flags.rotated;
    l.opaque = flags.opaque;
    l.text = rows[i].fields;
    at += n;
  }
  return layouts;
}

}  // namespace trdcomp::records

namespace trdcomp::records {

// The layouts of one answer routine, one per section in section order.
struct AnswerLayout {
  std::uint16_t number = 0;
  std::uint8_t sectionCount = 0;
  const Layout* sections[3] = {};

  constexpr bool multiSection() const { return sectionCount > 1; }
};

// Groups answer layouts (sorted by number, then section) into one entry per routine number.
template <std::size_t Distinct, std::size_t Rows>
constexpr std::array<AnswerLayout, Distinct> groupSections(const std::array<Layout, Rows>& rows,
                                                           const Layout* base) {
  std::array<AnswerLayout, Distinct> out{};
  std::size_t n = 0;
  for (std::size_t i = 0; i < Rows; ++i) {
    if (i == 0 || rows[i].number != rows[i - 1].number) out[n++].number = rows[i].number;
    AnswerLayout& a = out[n - 1];
    if (rows[i].section != a.sectionCount || a.sectionCount == 3)
      detail::fail("answer rows: sections must be listed 0, 1, 2 in order");
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
