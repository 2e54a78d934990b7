// The 2011 Fast codec where the golden and adversarial corpora do not reach: fields at their
// defaults, counts past 16 bits, the section bit, and dictionaries refused for their counts and
// indexes. (The corpora freeze what every catalogue layout packs and restores to, and
// fast_path_test.cpp holds the encoder and decoder to the reference walk of the field rules.)
#include <gtest/gtest.h>

#include <cstring>

#include "primitives/bytes.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

TEST(Fast, FieldsAtTheirDefaultsAreAbsent) {
  // Request 1002: a first record at its defaults ('A', 11, 0) with three empty texts is the map
  // 8E and three empty texts, and restores to those defaults; the second record carries only
  // what changed.
  Bytes records(83, 0);
  records[0] = 'A', records[1] = 0x0B;
  records = concat(records, records);
  std::memcpy(&records[83 + 3], "600036", 6);
  Bytes packed = packRequest(requestHead(1002, 2, 83, 0x10), records);
  EXPECT_EQ(packed[8], 0x11);
  EXPECT_EQ(hexOf(slice(packed, 76)), "02 00 04 00 8E 80 80 80 08 00 88 86 36 30 30 30 33 36");
  EXPECT_EQ(hexOf(slice(restoreRequest(packed).bytes, 76)), hexOf(records));
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

TEST(Fast, SectionBitRefusedExceptWhereTheLayoutKeepsIt) {
  for (auto [number, size, result] :
       {std::tuple{1002u, 83, 0}, {1010u, 238, 1}, {1101u, 256, 1}, {1013u, 238, 1}}) {
    Bytes packed = packRequest(requestHead(number, 1, size, 0x10), Bytes(std::size_t(size), 0));
    packed[8] |= 2;
    EXPECT_EQ(restoreRequest(packed).result, result) << number;
  }
}

TEST(Fast, DictionaryRefusesAnotherCountAndAnIndexPastItsEntries) {
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
  EXPECT_EQ(hexOf(slice(r.bytes, 96)), hexOf(records));
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
}

}  // namespace
