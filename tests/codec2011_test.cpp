// The 2011 Fast codec: worked examples, field rules on small layouts, dictionaries, and the
// framing's counts and checks.
#include <gtest/gtest.h>

#include <cstring>

#include "primitives/bytes.h"
#include "records/codec2011.h"
#include "test_util.h"

using namespace trdcomp::test;
using trdcomp::InView;
using trdcomp::records::Part;
using trdcomp::records::Previous;

namespace {

Bytes body(const Bytes& message, std::size_t header) {
  return Bytes(message.begin() + static_cast<long>(header), message.end());
}

Bytes repeat(const Bytes& record, int times) {
  Bytes out;
  for (int i = 0; i < times; ++i) out.insert(out.end(), record.begin(), record.end());
  return out;
}

TEST(Fast, WorkedExamples) {
  // Request 1002: a first record at its defaults ('A', 11, 0) with three empty texts is the map
  // 8E and three empty texts; the second record carries only what changed.
  Bytes records = repeat(hex("41 0B 00"), 1);
  records.resize(83);
  records = repeat(records, 2);
  std::memcpy(&records[83 + 3], "600036", 6);
  Bytes packed = packRequest(requestHead(1002, 2, 83, 0x10), records);
  EXPECT_EQ(packed[8], 0x11);
  EXPECT_EQ(hexOf(body(packed, 76)), "02 00 04 00 8E 80 80 80 08 00 88 86 36 30 30 30 33 36");
  EXPECT_EQ(hexOf(body(restoreRequest(packed).bytes, 76)), hexOf(records));

  // Answer 1002's delta section, 1000, 1000, 999: C0 80, then 80 alone, then C0 FF.
  Bytes s2 = hex("E8 03 00 00 E8 03 00 00 E7 03 00 00");
  packed = packAnswer(answerProc(1002, {{0, 184}, {0, 92}, {3, 4}}), {{}, {}, s2}, 0, 0x10);
  EXPECT_EQ(hexOf(body(packed, 96)), "00 00 00 00 03 00 02 00 C0 80 01 00 80 02 00 C0 FF");
  Restored r = restoreAnswer(packed);
  EXPECT_EQ(hexOf(body(r.bytes, 96)),
            hexOf(concat(hex("1C 0 0 0 0 0 0 0 B8 0 0 0 0 0 0 0 5C 0 0 0 3 0 0 0 4 0 0 0"), s2)));

  // Records that repeat the first pack to one full block and map-only blocks.
  Bytes same(40, 0);
  std::memcpy(same.data(), "same", 4);
  packed = packAnswer(answerProc(1009, {{3, 40}}), {repeat(same, 3)}, 0, 0x10);
  EXPECT_EQ(hexOf(body(packed, 96)), "03 00 07 00 E0 84 73 61 6D 65 80 01 00 80 01 00 80");
}

TEST(Fast, CountsTravelInSixteenBits) {
  // A request of 65537 records announces 1 and sends one block; the restore refuses it.
  Bytes packed = packRequest(requestHead(1005, 65537, 145, 0x10), Bytes(145, 0));
  EXPECT_EQ(hexOf(&packed[76], 2), "01 00");
  EXPECT_EQ(restoreRequest(packed).result, 0);
  // A single-section answer packs every record but fails its count check; a multi-section one
  // restores the announced number and shows it in its table.
  const int many = 65537;
  packed = packAnswer(answerProc(1009, {{many, 40}}), {Bytes(40 * many, 0)}, 0, 0x10);
  EXPECT_EQ(packed.size(), 96 + 2 + 5u + 3u * (many - 1));  // then map-only blocks
  EXPECT_EQ(restoreAnswer(packed).result, 0);
  packed = packAnswer(answerProc(1002, {{0, 184}, {0, 92}, {many, 4}}),
                      {{}, {}, Bytes(4 * many, 0)}, 0, 0x10);
  Restored r = restoreAnswer(packed);
  EXPECT_EQ(i32At(r.bytes, 116), 1);
  EXPECT_EQ(r.bytes.size(), 124u + 4);
}

TEST(Fast, MapWithoutStopBitMeansEveryFieldAbsent) {
  // Request 1005: a first record, then a block of one byte without the stop bit: a copy of the
  // first record. As the first record, that block gives the defaults: all zero here.
  Bytes rec(145, 0);
  std::memcpy(&rec[1], "account", 7);
  Bytes packed = packRequest(requestHead(1005, 1, 145, 0x10), rec);
  putI32(packed, 68, 2);
  packed[76] = 2;
  Bytes copy = concat(packed, hex("01 00 7F"));
  EXPECT_EQ(hexOf(body(restoreRequest(copy).bytes, 76)), hexOf(repeat(rec, 2)));
  packed.resize(78);
  packed[76] = 1;
  putI32(packed, 68, 1);
  EXPECT_EQ(hexOf(body(restoreRequest(concat(packed, hex("01 00 7F"))).bytes, 76)),
            hexOf(Bytes(145, 0)));
}

TEST(Fast, OptionalSectionsAreNotCarried) {
  // Answer 1010's second section exists only in 2008 messages: one count, section 0 only.
  Bytes s0(87, 0), s1(155, 0);
  std::memcpy(s0.data(), "X", 1);
  Bytes packed = packAnswer(answerProc(1010, {{1, 87}, {1, 155}}), {s0, s1}, 0, 0x10);
  EXPECT_EQ(hexOf(slice(packed, 96, 4)), "01 00 1E 00");
  Restored r = restoreAnswer(packed);
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(hexOf(slice(r.bytes, 88)), hexOf(concat(hex("01 0 0 0 57 0 0 0"), s0)));
}

TEST(Fast, SectionBitRefusedExceptWhereTheLayoutKeepsIt) {
  for (auto [number, size, result] :
       {std::tuple{1002u, 83, 0}, {1010u, 238, 1}, {1101u, 256, 1}, {1013u, 238, 1}}) {
    Bytes packed = packRequest(requestHead(number, 1, size, 0x10), Bytes(std::size_t(size), 0));
    packed[8] |= 2;
    EXPECT_EQ(restoreRequest(packed).result, result) << number;
  }
}

TEST(Fast, Dictionaries) {
  // Answer 1025 (layout 1024): the first 66 bytes (a 32-byte text, two 16-byte texts, two codes)
  // are the group. Groups A, B, A, A: two entries, no count ahead of them.
  Bytes records;
  for (auto [name, qty] : {std::pair{"alpha", 1}, {"beta", 2}, {"alpha", 3}, {"alpha", 4}}) {
    Bytes r(243, 0);
    std::memcpy(&r[0], name, std::strlen(name));
    std::memcpy(&r[32], "acct-1", 6);
    r[64] = static_cast<unsigned char>(name[0]);
    putI32(r, 119, qty);
    records = concat(records, r);
  }
  Bytes packed = packAnswer(answerProc(1025, {{4, 243}}), {records}, 0, 0x10);
  EXPECT_EQ(packed[8] & 3, 3);
  EXPECT_EQ(hexOf(&packed[96], 2), "02 00");
  Restored r = restoreAnswer(packed);
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(hexOf(body(r.bytes, 96)), hexOf(records));
  // A count that differs from the header's, or an index past the entries, is refused.
  Bytes bad = packed;
  putI32(bad, 88, 5);
  EXPECT_EQ(restoreAnswer(bad).result, 0);
  bad = packed;
  std::size_t pos = 98;
  for (int k = 0; k < 2; ++k) pos += 2 + trdcomp::loadU16(&bad[pos]);
  pos += 4;                          // the record count and the first reduced block's length
  while (!(bad[pos] & 0x80)) ++pos;  // its map; the index 0 follows
  ASSERT_EQ(bad[pos + 1], 0x80);
  bad[pos + 1] = 0x82;
  EXPECT_EQ(restoreAnswer(bad).result, 0);

  // Answer 1023 keeps its dictionary in section 1, behind the counts and section 0.
  Bytes s0(139, 0), s1(242, 0);
  std::memcpy(s0.data(), "fund", 4);
  std::memcpy(&s1[32], "holder", 6);
  s1[64] = '1', s1[113] = 'S';
  s1 = repeat(s1, 3);
  putI32(s1, 242 + 130, 100);
  packed = packAnswer(answerProc(1023, {{1, 139}, {3, 242}}), {s0, s1}, 0, 0x10);
  EXPECT_EQ(packed[8] & 3, 3);  // bit 1 from the descriptor's two sections, bit 0 packed
  EXPECT_EQ(hexOf(&packed[96], 4), "01 00 03 00");
  EXPECT_EQ(hexOf(body(restoreAnswer(packed).bytes, 96 + 20)), hexOf(concat(s0, s1)));
}

constexpr const char* kGroup =
    "0: int32 (flag); 4: up to 2 x (char, short string [4]) counted by 0; 14: char";

struct FieldCase {
  const char* name;
  std::uint32_t size;
  const char* layout;
  const char* attributes;
  const char* previous;  // null for a first record
  const char* record;
  const char* block;
  const char* restored;  // null: the record itself
};

TEST(Fast, FieldRules) {
  // clang-format off
  const FieldCase cases[] = {
      {"exchange code compacted", 4, "0: char[4] string", "0: exchange", nullptr, "49 46 31 00", "C0 E6", nullptr},
      {"other code unchanged", 4, "0: char[4] string", "0: exchange", nullptr, "41 42 43 00", "C0 41 42 C3", nullptr},
      {"code compared on three characters", 4, "0: char[4] string", "0: exchange", "41 42 43 00", "41 42 43 00",
       "80", nullptr},
      {"text cut to the width", 4, "0: char[4] string", "", nullptr, "41 42 43 44 45 00", "C0 84 41 42 43 44",
       "41 42 43 00"},
      {"stop-bit text", 4, "0: char[4] string", "0: stop-bit", nullptr, "41 42 00 00", "C0 41 C2", nullptr},
      {"date base", 4, "0: int32 (flag)", "0: base 20110101", nullptr, "15 DB 32 01", "C0 80", nullptr},
      {"base from another field", 8, "0: 2 x int32 (flag)", "4: base @0", nullptr, "10 00 00 00 12 00 00 00",
       "E0 90 82", nullptr},
      {"delta from the previous record", 4, "0: int32 (flag)", "0: delta 1000", "E8 03 00 00", "E7 03 00 00",
       "C0 FF", nullptr},
      {"default met is absent", 2, "0: 2 x char", "0: = 'A'; 1: = 11", nullptr, "41 0B", "80", nullptr},
      {"default missed is written", 2, "0: 2 x char", "0: = 'A'; 1: = 11", nullptr, "41 FF", "A0 FF", nullptr},
      {"negative price moves toward zero", 8, "0: double", "", nullptr, "8D 97 6E 12 83 C0 F3 BF", "C0 76 AE",
       "58 39 B4 C8 76 BE F3 BF"},  // -1.2345 comes back as -1.234
      {"price change in the fourth decimal is sent", 8, "0: double", "", "8D 97 6E 12 83 C0 F3 3F",
       "FE 43 FA ED EB C0 F3 3F", "C0 09 D2", "58 39 B4 C8 76 BE F3 3F"},  // and restores as 1.234
      {"block whole", 3, "0: byte block [3]", "", nullptr, "00 07 00", "C0 83 00 07 00", nullptr},
      {"same record: map alone", 3, "0: byte block [3]", "", "00 07 00", "00 07 00", "80", nullptr},
      // A counted group keeps all map places but sends only the counted entries.
      {"group entries past the count", 15, kGroup, "", nullptr, "01 00 00 00 61 78 79 00 00 62 7A 00 00 00 54",
       "F2 81 00 E1 82 78 79 00 D4", "01 00 00 00 61 78 79 00 00 00 00 00 00 00 54"},
      {"group with a negative count", 15, kGroup, "", nullptr, "FF FF FF FF 61 78 79 00 00 62 7A 00 00 00 54",
       "C2 FF 00 D4", "FF FF FF FF 00 00 00 00 00 00 00 00 00 00 54"},
      {"group entry past the previous count", 15, kGroup, "", "01 00 00 00 61 78 79 00 00 62 7A 00 00 00 54",
       "02 00 00 00 61 78 79 00 00 62 7A 00 00 00 54", "CC 82 00 E2 81 7A", nullptr}};
  // clang-format on
  for (const FieldCase& c : cases) {
    const TestLayout t(c.size, c.layout, c.attributes);
    const Bytes record = hex(c.record), previous = hex(c.previous ? c.previous : "");
    const InView before(previous.data(), previous.size());
    const Previous chain{c.previous ? &before : nullptr};
    Bytes out(64, 0);
    const std::uint32_t n = trdcomp::records::encode2011(
        t.layout, Part::Whole, InView(record.data(), record.size()), 0, chain, out.data());
    EXPECT_EQ(hexOf(out.data(), n), hexOf(hex(c.block))) << c.name;
    Bytes back(c.size + 8, 0);  // restore buffers arrive zeroed; nothing lands past the record
    trdcomp::records::decode2011(t.layout, Part::Whole, InView(out.data(), n), n, back.data(),
                                 static_cast<std::int64_t>(back.size()), chain);
    Bytes expected = hex(c.restored ? c.restored : c.record);
    expected.resize(c.size + 8);
    EXPECT_EQ(hexOf(back), hexOf(expected)) << c.name;
  }
}

}  // namespace
