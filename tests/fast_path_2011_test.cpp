// The 2011 record decoder restores catalogue layouts through a field table prepared at compile
// time (the previous record copied, only the present fields read, integers and texts unchecked
// well inside the input); the reference decoder walks the layout field by field through checked
// reads. Both must write the same bytes and return the same index: every layout and part, chains
// of realistic records, blocks corrupted, cut, overrun and made of arbitrary bytes, previous
// records restored or arbitrary.
#include <gtest/gtest.h>

#include <random>

#include "primitives/bytes.h"
#include "records/answer_layouts.h"
#include "records/codec2011.h"
#include "records/request_layouts.h"
#include "test_util.h"

using trdcomp::InView;
using trdcomp::records::Field;
using trdcomp::records::Kind;
using trdcomp::records::Layout;
using trdcomp::records::Part;
using trdcomp::records::Previous;
using namespace trdcomp::test;

namespace {

constexpr std::size_t kGuard = 16;  // marked bytes behind a record's room: never written

std::vector<Part> partsOf(const Layout& l) {
  if (!l.dictionary) return {Part::Whole};
  return {Part::Whole, Part::Group, Part::Reduced};
}

std::string where(const Layout& l, Part part) {
  return std::to_string(l.number) + " section " + std::to_string(l.section) + " part " +
         std::to_string(int(part));
}

struct Restored {
  Bytes record;  // the record, then the guard
  std::uint16_t index = 0;
};

// Decodes `block` (the first `length` bytes of `in`) both ways into zero records followed by
// a guard, expects the same bytes and index, and returns the reference's result.
Restored compareDecodes(const Layout& l, Part part, const Bytes& in, std::int64_t length,
                        const Previous& previous) {
  const InView view(in.data(), static_cast<std::int64_t>(in.size()));
  Restored fast{Bytes(l.size + kGuard, 0)}, checked{Bytes(l.size + kGuard, 0)};
  for (Restored* r : {&fast, &checked})
    std::fill(r->record.begin() + l.size, r->record.end(), 0xEE);
  fast.index =
      trdcomp::records::decode2011(l, part, view, length, fast.record.data(), l.size, previous);
  checked.index = trdcomp::records::decode2011Checked(l, part, view, length, checked.record.data(),
                                                      l.size, previous);
  EXPECT_EQ(fast.index, checked.index);
  EXPECT_EQ(hexOf(fast.record), hexOf(checked.record));
  if (previous.record && part == Part::Whole) {
    // Such a record is restored over whatever its slot held: every byte is written.
    EXPECT_TRUE(trdcomp::records::overwrites2011(l, l.size));
    Bytes dirty(l.size + kGuard, 0xA5);
    std::fill(dirty.begin() + l.size, dirty.end(), 0xEE);
    trdcomp::records::decode2011(l, part, view, length, dirty.data(), l.size, previous,
                                 trdcomp::records::Slot::Any);
    EXPECT_EQ(hexOf(dirty), hexOf(checked.record));
  }
  return checked;
}

TEST(FastPath2011, DecodeGivesTheReferenceBytes) {
  std::mt19937 rng(20261123);
  for (const Layout* l : everyLayout()) {
    for (Part part : partsOf(*l)) {
      SCOPED_TRACE(where(*l, part));
      // Every catalogue layout and part goes through the prepared table: a table that lost one
      // would silently fall back to the reference decoder, and this test would compare it with
      // itself.
      ASSERT_TRUE(trdcomp::records::prepared2011(*l, part));
      const std::size_t most = static_cast<std::size_t>(trdcomp::records::maxBlock2011(*l, part));
      Bytes before;       // the previous caller's record
      Restored restored;  // its restored form
      std::uint16_t index = 0, beforeIndex = 0;
      for (int i = 0; i < 4; ++i) {
        Bytes record(l->size);
        trdcomp::samples::fillRecord(*l, record.data(), rng, true, i ? before.data() : nullptr);
        index = static_cast<std::uint16_t>(rng() % 3 ? beforeIndex : rng() % 300);
        const InView beforeView(before.data(), static_cast<std::int64_t>(before.size()));
        Bytes block(most);
        const std::uint32_t n = trdcomp::records::encode2011(
            *l, part, InView(record.data(), record.size()), index,
            Previous{i ? &beforeView : nullptr, beforeIndex}, block.data());
        block.resize(n);
        // The previous record as restored (its guard dropped), and one of arbitrary bytes.
        Bytes arbitrary(l->size);
        for (auto& b : arbitrary) b = static_cast<unsigned char>(rng() % 4 ? rng() : 0);
        Bytes prior(restored.record.begin(), restored.record.begin() + (i ? l->size : 0));
        const InView priorView(prior.data(), static_cast<std::int64_t>(prior.size()));
        const InView arbitraryView(arbitrary.data(), static_cast<std::int64_t>(arbitrary.size()));
        for (int variant = 0; variant < 16; ++variant) {
          Bytes in = block;
          std::int64_t length = n;
          if (variant >= 2 && variant < 8 && !in.empty())
            for (int k = 0; k < 1 + variant % 4; ++k)
              in[rng() % in.size()] = static_cast<unsigned char>(variant % 3 ? rng() : 0xFF);
          if (variant >= 8 && variant < 11 && !in.empty())
            // Every place present: the map's bytes all set, the fields arbitrary.
            for (std::size_t k = 0; k < in.size(); ++k)
              in[k] = static_cast<unsigned char>(
                  k < static_cast<std::size_t>(trdcomp::records::mapLength(*l, part)) ? 0x7F
                                                                                      : rng());
          if (variant >= 11 && variant < 13) {
            in.resize(rng() % (in.size() + 24));
            for (auto& b : in) b = static_cast<unsigned char>(rng());
            length = static_cast<std::int64_t>(in.size());
          }
          if (variant == 13) in.resize(rng() % (in.size() + 1));  // the input ends early
          if (variant == 14) length = static_cast<std::int64_t>(rng() % (n + 1));
          if (variant % 2 == 0)
            // What follows the block: the next block, read where a field runs past the length.
            for (int k = 0; k < 40; ++k) in.push_back(static_cast<unsigned char>(rng()));
          compareDecodes(*l, part, in, length, Previous{i ? &priorView : nullptr, beforeIndex});
          if (i) compareDecodes(*l, part, in, length, Previous{&arbitraryView, beforeIndex});
        }
        const Bytes sent = block;
        restored =
            compareDecodes(*l, part, sent, n, Previous{i ? &priorView : nullptr, beforeIndex});
        before = record;
        beforeIndex = index;
      }
    }
  }
}

// The encoder's prepared path against the reference: realistic chains, records of arbitrary
// bytes (unterminated texts, wild counts, NaN prices), records cut short by the caller's buffer
// and larger caller's records, every index change of a reduced block.
TEST(FastPath2011, EncodeGivesTheReferenceBytes) {
  std::mt19937 rng(11);
  for (const Layout* l : everyLayout()) {
    for (Part part : partsOf(*l)) {
      SCOPED_TRACE(where(*l, part));
      const std::size_t most = static_cast<std::size_t>(trdcomp::records::maxBlock2011(*l, part));
      Bytes before;
      for (int variant = 0; variant < 12; ++variant) {
        Bytes record(l->size + (variant % 3 == 1 ? 24 : 0));
        if (variant < 6) {
          trdcomp::samples::fillRecord(*l, record.data(), rng, true,
                                       before.size() >= l->size ? before.data() : nullptr);
        } else {
          for (auto& b : record) b = static_cast<unsigned char>(rng() % (variant % 2 ? 3 : 256));
          if (variant == 10 && !before.empty()) {
            // The same bytes, NaN prices in both: a NaN always differs.
            record = before;
            for (const Field& f : *l)
              if (f.kind == Kind::Double && rng() % 2) {
                std::memset(record.data() + f.offset, 0xFF, 8);
                std::memset(before.data() + f.offset, 0xFF, 8);
              }
          }
        }
        std::size_t seen = record.size();
        if (variant % 4 == 3) seen = rng() % (record.size() + 1);  // the caller's buffer ends
        const InView current(record.data(), static_cast<std::int64_t>(seen));
        const InView beforeView(before.data(), static_cast<std::int64_t>(before.size()));
        const std::uint16_t index = static_cast<std::uint16_t>(rng() % 4);
        for (const Previous& previous :
             {Previous{}, Previous{&beforeView, static_cast<std::uint16_t>(rng() % 4)}}) {
          Bytes fast(most + kGuard, 0xEE), checked(most + kGuard, 0xEE);
          const std::uint32_t a =
              trdcomp::records::encode2011(*l, part, current, index, previous, fast.data());
          const std::uint32_t b = trdcomp::records::encode2011Checked(*l, part, current, index,
                                                                      previous, checked.data());
          ASSERT_EQ(a, b);
          ASSERT_LE(a, most);
          ASSERT_EQ(hexOf(fast), hexOf(checked));
        }
        before = record;
        before.resize(std::max<std::size_t>(before.size(), l->size));
      }
    }
  }
}

// The fast path's own outcomes on the counted group of request 1260 (count at 145, twelve
// entries of char, char and short string [16] from 149): bytes written against a previous record
// that holds more entries, and the entries past the count.
template <class Table>
constexpr const Layout& layoutOf(const Table& table, std::uint16_t number) {
  for (const Layout& l : table)
    if (l.number == number) return l;
  return table[0];
}
constexpr const Layout& kRequest1260 = layoutOf(trdcomp::records::kRequestLayouts, 1260);
static_assert(kRequest1260.number == 1260 && kRequest1260.fields[8].kind == Kind::Group &&
              kRequest1260.fields[8].offset == 149 && kRequest1260.fields[8].countOffset == 145);

TEST(FastPath2011, GroupEntriesPastTheCountEndZero) {
  const Layout& l = kRequest1260;
  struct Case {
    const char* name;
    std::int32_t before, now;  // counts of the previous and the current record
  };
  const Case cases[] = {{"fewer entries", 5, 2},        {"none", 5, 0}, {"negative", 3, -1},
                        {"more than the group", 2, 40}, {"same", 4, 4}, {"more", 1, 6}};
  for (const Case& c : cases) {
    Bytes prior(l.size, 0), record(l.size, 0);
    trdcomp::storeI32(prior.data() + 145, c.before);
    trdcomp::storeI32(record.data() + 145, c.now);
    for (std::int32_t e = 0; e < 12; ++e) {
      if (e < c.before) prior[149 + 18 * e] = static_cast<unsigned char>('a' + e);
      if (e < c.now) record[149 + 18 * e] = static_cast<unsigned char>('a' + e);
      if (e < c.now) record[150 + 18 * e] = 'x';  // differs from the previous record
    }
    const InView priorView(prior.data(), static_cast<std::int64_t>(prior.size()));
    Bytes block(static_cast<std::size_t>(trdcomp::records::maxBlock2011(l, Part::Whole)));
    const std::uint32_t n =
        trdcomp::records::encode2011(l, Part::Whole, InView(record.data(), record.size()), 0,
                                     Previous{&priorView}, block.data());
    Bytes back(l.size + kGuard, 0);
    std::fill(back.begin() + l.size, back.end(), 0xEE);
    trdcomp::records::decode2011(l, Part::Whole, InView(block.data(), n), n, back.data(), l.size,
                                 Previous{&priorView});
    Bytes expected = record;
    expected.resize(l.size + kGuard, 0xEE);
    EXPECT_EQ(hexOf(back), hexOf(expected)) << c.name;
  }
}

// A wide field that changes is read over zeros: a slot of any bytes is cleared under it, a zero
// slot (perhaps fresh pages) is left untouched past the characters read (answer 1116: a text of
// 32768 bytes at 40). The slot is marked to show what was written.
TEST(FastPath2011, WideFieldWritesOnlyWhatTheSlotNeeds) {
  constexpr const Layout* l = &layoutOf(trdcomp::records::kAnswerLayouts, 1116);
  constexpr std::size_t kSize = 32808;
  static_assert(l->number == 1116 && l->size == kSize);
  Bytes prior(kSize, 0), record(kSize, 0);
  for (int i = 0; i < 3; ++i) {
    prior[40 + i] = static_cast<unsigned char>('a' + i);
    record[40 + i] = static_cast<unsigned char>('x' + i);
  }
  const InView priorView(prior.data(), static_cast<std::int64_t>(prior.size()));
  Bytes block(static_cast<std::size_t>(trdcomp::records::maxBlock2011(*l, Part::Whole)));
  const std::uint32_t n = trdcomp::records::encode2011(
      *l, Part::Whole, InView(record.data(), record.size()), 0, Previous{&priorView}, block.data());
  struct Case {
    trdcomp::records::Slot slot;
    unsigned char tail;  // the text's bytes past its three characters, afterwards
  };
  for (const Case& c :
       {Case{trdcomp::records::Slot::Zero, 0xA5}, Case{trdcomp::records::Slot::Any, 0}}) {
    Bytes back(l->size, 0xA5);
    trdcomp::records::decode2011(*l, Part::Whole, InView(block.data(), n), n, back.data(), l->size,
                                 Previous{&priorView}, c.slot);
    EXPECT_EQ(hexOf(back.data(), 43), hexOf(record.data(), 43));
    EXPECT_EQ(std::count(back.begin() + 43, back.end(), c.tail), 32808 - 43);
  }
}

// A length-prefixed text that claims more characters than the input holds keeps those it has,
// and the rest of its array zero, not the previous record's characters (answer 1000: char[256]
// string, char[48] string, byte block [16]).
TEST(FastPath2011, TextCutByTheInputEndsZero) {
  constexpr const Layout& l = trdcomp::records::kAnswerLayouts[0];
  static_assert(l.number == 1000);
  Bytes prior(l.size, 'p');
  prior[255] = prior[303] = 0;
  const InView priorView(prior.data(), static_cast<std::int64_t>(prior.size()));
  struct Case {
    const char* name;
    const char* block;
    const char* text2;  // the second text as restored, hex
  };
  const Case cases[] = {
      {"claims 5, holds 2", "A0 85 41 42", "41 42"},
      {"claims 5, holds 5", "A0 85 41 42 43 44 45", "41 42 43 44 45"},
      {"empty", "A0 80", ""},
      {"claims more than fit", "A0 00 C0 41 42 43", "41 42 43"},
      {"negative length", "A0 FF 41 42 43", ""},
  };
  for (const Case& c : cases) {
    const Bytes in = hex(c.block);
    Bytes back(l.size, 0);
    trdcomp::records::decode2011(l, Part::Whole, InView(in.data(), in.size()),
                                 static_cast<std::int64_t>(in.size()), back.data(), l.size,
                                 Previous{&priorView});
    Bytes text2 = hex(c.text2);
    text2.resize(48, 0);
    EXPECT_EQ(hexOf(back.data() + 256, 48), hexOf(text2)) << c.name;
    EXPECT_EQ(hexOf(back.data(), 256), hexOf(prior.data(), 256)) << c.name;  // absent: kept
  }
}

// A dictionary section sends one entry per distinct group: texts compared up to their
// terminator within their arrays, characters by value. Answer 1113: texts of 32, 16 and 16 bytes
// at 0, 32 and 48 and characters at 112 and 113; callers' records of the layout's size, larger,
// and smaller (the last record's view then ends early, and the checked comparison decides).
TEST(FastPath2011, DictionaryEntriesFollowTheGroupFields) {
  struct Case {
    const char* name;
    int entries;
    void (*change)(Bytes& second);  // the second of three records
  };
  const Case cases[] = {
      {"the same", 1, [](Bytes&) {}},
      {"bytes past a terminator", 1, [](Bytes& r) { r[40] = 'z', r[63] = 'q'; }},
      {"a field outside the group", 1, [](Bytes& r) { r[64] = 7, r[200] = 'w'; }},
      {"a character", 2, [](Bytes& r) { r[113] = 'B'; }},
      {"a character that is zero", 2, [](Bytes& r) { r[112] = 0; }},
      {"a text before its terminator", 2, [](Bytes& r) { r[33] = 'Q'; }},
      {"a shorter text", 2, [](Bytes& r) { r[34] = 0; }},
      {"a text filling its array", 2, [](Bytes& r) { std::memset(&r[48], 'F', 16); }},
  };
  for (const Case& c : cases)
    for (int stride : {283, 323, 200}) {
      Bytes first(283, 0);
      std::memcpy(&first[0], "account", 7);
      std::memcpy(&first[32], "XYZ", 3);
      std::memcpy(&first[48], "market", 6);
      first[112] = 'A', first[113] = 'S';
      Bytes second = first;
      c.change(second);
      first.resize(static_cast<std::size_t>(stride));
      second.resize(static_cast<std::size_t>(stride));
      const Bytes records = concat(concat(first, second), first);
      const Bytes packed = packAnswer(answerProc(1113, {{3, stride}}), {records}, 0, 0x10);
      ASSERT_GT(packed.size(), 98u) << c.name;
      EXPECT_EQ(trdcomp::loadU16(&packed[96]), c.entries) << c.name << " stride " << stride;
    }
}

}  // namespace
