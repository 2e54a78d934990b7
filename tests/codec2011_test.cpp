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

TEST(Fast, RequestOfDefaultsIsFourBytes) {
  Bytes rec(83, 0);
  rec[0] = 'A', rec[1] = 11;
  Bytes second = rec;
  std::memcpy(&second[3], "600036", 6);
  Bytes records = rec;
  records.insert(records.end(), second.begin(), second.end());
  Bytes packed = packRequest(requestHead(1002, 2, 83, 0x10), records);
  EXPECT_EQ(packed[8], 0x11);
  // count 2; the first block is the map 8E and three empty texts; the second carries the text.
  EXPECT_EQ(hexOf(body(packed, 76)), "02 00 04 00 8E 80 80 80 08 00 88 86 36 30 30 30 33 36");
  Restored r = restoreRequest(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(hexOf(body(r.bytes, 76)), hexOf(records));
}

TEST(Fast, AnswerDeltaSectionAndMapOnlyBlocks) {
  Bytes s2 = hex("E8 03 00 00 E8 03 00 00 E7 03 00 00");  // 1000, 1000, 999
  Bytes packed = packAnswer(answerProc(1002, {{0, 184}, {0, 92}, {3, 4}}), {{}, {}, s2}, 0, 0x10);
  EXPECT_EQ(hexOf(body(packed, 96)), "00 00 00 00 03 00 02 00 C0 80 01 00 80 02 00 C0 FF");
  Restored r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(hexOf(&r.bytes[96], 28),
            hexOf(hex("1C 0 0 0 0 0 0 0 B8 0 0 0 0 0 0 0 5C 0 0 0 3 0 0 0 4 0 0 0")));
  EXPECT_EQ(hexOf(body(r.bytes, 124)), hexOf(s2));

  // Records that repeat the first pack to one full block and map-only blocks.
  Bytes rec(40, 0);
  std::memcpy(rec.data(), "same", 4);
  Bytes three = rec;
  for (int i = 0; i < 2; ++i) three.insert(three.end(), rec.begin(), rec.end());
  packed = packAnswer(answerProc(1009, {{3, 40}}), {three}, 0, 0x10);
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
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(i32At(r.bytes, 116), 1);
  EXPECT_EQ(r.bytes.size(), 124u + 4);
}

TEST(Fast, MapWithoutStopBitMeansEveryFieldAbsent) {
  Bytes rec(145, 0);
  std::memcpy(&rec[1], "account", 7);
  Bytes records = rec;
  records.insert(records.end(), rec.begin(), rec.end());
  records[145 + 1] = 'X';  // the second record differs, so its block carries a field
  Bytes packed = packRequest(requestHead(1005, 2, 145, 0x10), records);
  // Replace the second block by one byte without the stop bit: a copy of the first record.
  std::size_t second = 76 + 2 + 2 + trdcomp::loadU16(&packed[78]);
  packed.resize(second);
  packed.insert(packed.end(), {0x01, 0x00, 0x7F});
  Restored r = restoreRequest(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(hexOf(&r.bytes[76 + 145], 145), hexOf(rec));
  // As the first record it takes the defaults: all zero here.
  Bytes first = packRequest(requestHead(1005, 1, 145, 0x10), rec);
  first.resize(78);
  first.insert(first.end(), {0x01, 0x00, 0x7F});
  EXPECT_EQ(hexOf(&restoreRequest(first).bytes[76], 145), hexOf(Bytes(145, 0)));
}

TEST(Fast, SectionBitRefusedExceptWhereTheLayoutKeepsIt) {
  for (auto [number, size, result] :
       {std::tuple{1002u, 83, 0}, {1010u, 238, 1}, {1101u, 256, 1}, {1013u, 238, 1}}) {
    Bytes packed =
        packRequest(requestHead(number, 1, size, 0x10), Bytes(static_cast<std::size_t>(size), 0));
    packed[8] |= 2;
    EXPECT_EQ(restoreRequest(packed).result, result) << number;
  }
}

// Answer 1024: the first 66 bytes (a 32-byte text, two 16-byte texts, two codes) form the
// dictionary group.
Bytes record1024(const char* name, const char* account, char code, int quantity) {
  Bytes r(243, 0);
  std::memcpy(&r[0], name, std::strlen(name));
  std::memcpy(&r[32], account, std::strlen(account));
  r[64] = static_cast<unsigned char>(code);
  putI32(r, 119, quantity);
  return r;
}

TEST(Fast, DictionaryOfRepeatedAndDistinctGroups) {
  Bytes records;
  for (auto [name, code, qty] :
       {std::tuple{"alpha", 'A', 1}, {"beta", 'B', 2}, {"alpha", 'A', 3}, {"alpha", 'A', 4}}) {
    Bytes r = record1024(name, "acct-1", code, qty);
    records.insert(records.end(), r.begin(), r.end());
  }
  Bytes packed = packAnswer(answerProc(1025, {{4, 243}}), {records}, 0, 0x10);
  EXPECT_EQ(packed[8] & 3, 3);
  EXPECT_EQ(hexOf(&packed[96], 2), "02 00");  // two distinct groups, no count ahead
  Restored r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(hexOf(body(r.bytes, 96)), hexOf(records));

  // An index past the entries, or a count that differs from the header's, is refused.
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
}

TEST(Fast, DictionaryInASecondSection) {
  Bytes s0(139, 0), s1;
  std::memcpy(s0.data(), "fund", 4);
  for (int i = 0; i < 3; ++i) {
    Bytes r(242, 0);
    std::memcpy(&r[32], "holder", 6);
    r[64] = '1', r[113] = 'S';
    putI32(r, 130, i * 100);
    s1.insert(s1.end(), r.begin(), r.end());
  }
  Bytes packed = packAnswer(answerProc(1023, {{1, 139}, {3, 242}}), {s0, s1}, 0, 0x10);
  EXPECT_EQ(packed[8] & 3, 3);  // bit 1 from the descriptor's two sections, bit 0 packed
  EXPECT_EQ(hexOf(&packed[96], 4), "01 00 03 00");
  Restored r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(hexOf(&r.bytes[96 + 20], 139), hexOf(s0));
  EXPECT_EQ(hexOf(body(r.bytes, 96 + 20 + 139)), hexOf(s1));
}

struct FieldCase {
  const char* name;
  std::uint32_t size;
  const char* layout;
  const char* fast;
  const char* record;
  const char* block;     // the first record's block
  const char* restored;  // empty: the record itself
};

TEST(Fast, FieldRules) {
  const FieldCase cases[] = {
      {"exchange code compacted", 4, "0: char[4] string", "0: exchange", "49 46 31 00", "C0 E6",
       ""},
      {"other code unchanged", 4, "0: char[4] string", "0: exchange", "41 42 43 00", "C0 41 42 C3",
       ""},
      {"long text cut to the width", 4, "0: char[4] string", "", "41 42 43 44 45 00",
       "C0 84 41 42 43 44", "41 42 43 00"},
      {"stop-bit text", 4, "0: char[4] string", "0: stop-bit", "41 42 00 00", "C0 41 C2", ""},
      {"date base", 4, "0: int32 (flag)", "0: base 20110101", "15 DB 32 01", "C0 80", ""},
      {"base from another field", 8, "0: 2 x int32 (flag)", "4: base @0", "10 00 00 00 12 00 00 00",
       "E0 90 82", ""},
      {"default met is absent", 2, "0: 2 x char", "0: = 'A'; 1: = 11", "41 0B", "80", ""},
      {"default missed is written", 2, "0: 2 x char", "0: = 'A'; 1: = 11", "41 FF", "A0 FF", ""},
      {"negative price moves toward zero", 8, "0: double", "", "8D 97 6E 12 83 C0 F3 BF",
       "C0 76 AE", "58 39 B4 C8 76 BE F3 BF"},
      {"block whole", 3, "0: byte block [3]", "", "00 07 00", "C0 83 00 07 00", ""},
  };
  for (const FieldCase& c : cases) {
    TestLayout t(c.size, c.layout);
    trdcomp::records::detail::applyFast(c.fast, t.fields.data(), t.fields.size());
    t.layout.fastFields[0] = static_cast<std::uint16_t>(t.fields.size());
    Bytes record = hex(c.record), out(64, 0);
    std::uint32_t n = trdcomp::records::encode2011(
        t.layout, Part::Whole, InView(record.data(), record.size()), 0, Previous{}, out.data());
    EXPECT_EQ(hexOf(out.data(), n), hexOf(hex(c.block))) << c.name;
    Bytes back(c.size + 8, 0xEE);
    trdcomp::records::decode2011(t.layout, Part::Whole, InView(out.data(), n), n, back.data(),
                                 static_cast<std::int64_t>(back.size()), Previous{});
    Bytes expected = hex(*c.restored ? c.restored : c.record);
    expected.resize(c.size);
    EXPECT_EQ(hexOf(back.data(), c.size), hexOf(expected)) << c.name;
  }
}

TEST(Fast, PriceChangingInTheFourthDecimalIsSentButRestoresUnchanged) {
  TestLayout t(8, "0: double");
  t.layout.fastFields[0] = 1;
  Bytes a(8), b(8), out(32, 0);
  trdcomp::storeF64(a.data(), 1.2345);
  trdcomp::storeF64(b.data(), 1.2346);
  InView previous(a.data(), 8);
  std::uint32_t n = trdcomp::records::encode2011(t.layout, Part::Whole, InView(b.data(), 8), 0,
                                                 Previous{&previous}, out.data());
  EXPECT_EQ(hexOf(out.data(), n), "C0 09 D2");  // 1234 again
}

}  // namespace
