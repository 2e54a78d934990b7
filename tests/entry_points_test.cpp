// The public entry points: argument checks, header handling, routing, pass-through, sections,
// and the deliberate asymmetries of the catalogue.
#include <gtest/gtest.h>

#include <cstring>

#include "TrdCompData.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

Bytes headerBytes(const tagREQ_HEAD& h) {
  Bytes b(sizeof h);
  std::memcpy(b.data(), &h, sizeof h);
  return b;
}

Bytes concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Request 1002: three characters and three texts (32, 24 and 24 bytes).
Bytes record1002(char a, char b, char c, const char* t1, const char* t2, const char* t3) {
  Bytes r(83, 0);
  r[0] = static_cast<unsigned char>(a), r[1] = static_cast<unsigned char>(b);
  r[2] = static_cast<unsigned char>(c);
  std::memcpy(&r[3], t1, std::strlen(t1));
  std::memcpy(&r[35], t2, std::strlen(t2));
  std::memcpy(&r[59], t3, std::strlen(t3));
  return r;
}

TEST(Requests, PacksAndRestoresTheWorkedExampleByteForByte) {
  Bytes body =
      concat(record1002('A', 11, 0, "600036", "", "ABC"), record1002('B', 1, 2, "", "x", ""));
  tagREQ_HEAD head = requestHead(1002, 2, 83);
  head.headLen = 1234;  // whatever the caller left there, the packer writes 76
  Bytes packed = packRequest(head, body);

  Bytes expectedHead = headerBytes(head);
  putI32(expectedHead, 0, 76);
  expectedHead[8] |= 1;
  Bytes expected =
      concat(expectedHead, hex("0F 00 00 00 41 0B 00 06 36 30 30 30 33 36 00 03 41 42 43"
                               " 07 00 00 00 42 01 02 00 01 78 00"));
  EXPECT_EQ(hexOf(packed), hexOf(expected));

  Restored r = restoreRequest(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.length, 2 * 83 + 76);
  Bytes restoredHead = expectedHead;
  putI32(restoredHead, 72, 83);
  EXPECT_EQ(hexOf(Bytes(r.bytes.begin(), r.bytes.begin() + 76)), hexOf(restoredHead));
  EXPECT_EQ(hexOf(Bytes(r.bytes.begin() + 76, r.bytes.end())), hexOf(body));
}

TEST(Requests, ArgumentChecks) {
  tagREQ_HEAD head = requestHead(1002, 0, 83);
  char out[256];
  int length = 77;
  EXPECT_EQ(CTrdCompData::PackReq2008(nullptr, length, &head, nullptr, 0, 0), 0);
  EXPECT_EQ(CTrdCompData::PackReq2008(out, length, nullptr, nullptr, 0, 0), 0);
  EXPECT_EQ(length, 77);

  Bytes in = headerBytes(requestHead(1022, 0, 0));
  char* restored = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(CTrdCompData::RestoreReq2008(nullptr, 76, &restored, length, 0), 0);
  EXPECT_EQ(
      CTrdCompData::RestoreReq2008(reinterpret_cast<char*>(in.data()), 0, &restored, length, 0), 0);
  putI32(in, 0, 100);
  in.resize(90);
  EXPECT_EQ(
      CTrdCompData::RestoreReq2008(reinterpret_cast<char*>(in.data()), 90, &restored, length, 0),
      0);
  EXPECT_EQ(restored, reinterpret_cast<char*>(0x1));  // left untouched
  EXPECT_EQ(length, 77);
  putI32(in, 0, 76);
  in.resize(76);
  EXPECT_EQ(restoreRequest(in).result, 1);
  CTrdCompData::ReleaseAnsData(nullptr);
}

TEST(Requests, UnknownNumbersPassThroughBothWays) {
  for (std::uint32_t number : {1022u, 999u, 1262u, 8998u, 9000u}) {
    SCOPED_TRACE(number);
    tagREQ_HEAD head = requestHead(number, 2, 5);
    head.headLen = 76;
    Bytes body = hex("01 02 03 04 05 06 07 08 09 0A");
    Bytes packed = packRequest(head, body);
    EXPECT_EQ(hexOf(packed), hexOf(concat(headerBytes(head), body)));
    Restored r = restoreRequest(packed);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(hexOf(r.bytes), hexOf(packed));  // copied whole, header not normalised
    packed[8] |= 1;
    EXPECT_EQ(restoreRequest(packed).result, 0);  // a packed body cannot pass through
  }
}

TEST(Requests, NumbersWithoutBody) {
  // 1000 and 1001: the bare header with the count set to 0, whatever the body.
  Bytes packed = packRequest(requestHead(1000, 3, 10), Bytes(30, 7));
  ASSERT_EQ(packed.size(), 76u);
  EXPECT_EQ(i32At(packed, 68), 0);
  // Restored with one-byte records: the first byte of each raw sender record, zero if packed.
  Bytes raw = concat(headerBytes(requestHead(1001, 3, 4)), hex("11 0 0 0 22 0 0 0 33 0 0 0"));
  putI32(raw, 0, 76);
  Restored r = restoreRequest(raw);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.length, 79);
  EXPECT_EQ(i32At(r.bytes, 72), 1);
  EXPECT_EQ(hexOf(&r.bytes[76], 3), "11 22 33");
  raw[8] |= 1;
  EXPECT_EQ(hexOf(&restoreRequest(raw).bytes[76], 3), "00 00 00");

  // 1017: the header alone with the caller's count; restoring yields nothing.
  packed = packRequest(requestHead(1017, 3, 10), Bytes(30, 7));
  ASSERT_EQ(packed.size(), 76u);
  EXPECT_EQ(i32At(packed, 68), 3);
  r = restoreRequest(packed);
  EXPECT_EQ(r.result, 1);
  EXPECT_TRUE(r.null);
  EXPECT_EQ(r.length, 0);
}

TEST(Requests, SharedRoutinesAndOwnRecordSizes) {
  struct Case {
    std::uint32_t number, sameAs;
    std::int32_t size;
  } cases[] = {{8997, 8996, 16},  {8999, 1005, 145}, {1040, 1005, 145}, {1131, 1016, 154},
               {1057, 1021, 147}, {1063, 1055, 162}, {1261, 1260, 381}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);
    // A sender with larger records: the own size is restored, the packed bytes are the same.
    Bytes body(2 * (c.size + 9), 0);
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<unsigned char>('a' + i % 7);
    for (std::size_t i = 16; i < body.size(); i += 40) body[i] = 0;  // some terminators
    Bytes packed = packRequest(requestHead(c.number, 2, c.size + 9), body);
    Bytes reference = packRequest(requestHead(c.sameAs, 2, c.size + 9), body);
    EXPECT_EQ(hexOf(&packed[76], packed.size() - 76), hexOf(&reference[76], reference.size() - 76));
    Restored r = restoreRequest(packed);
    ASSERT_EQ(r.result, 1);
    EXPECT_EQ(i32At(r.bytes, 72), c.size);
    EXPECT_EQ(r.length, 76 + 2 * c.size);
  }
}

TEST(Requests, HeaderIsNormalisedAndCallerBytesKept) {
  Bytes body = record1002('A', 1, 2, "abc", "", "");
  Bytes packed = packRequest(requestHead(1002, 1, 83), body);
  // A sender that placed its packed records behind a longer header.
  Bytes moved = packed;
  putI32(moved, 0, 80);
  moved.insert(moved.begin() + 76, 4, 0xCC);
  moved[67] = 0x5A;  // a caller byte
  Restored r = restoreRequest(moved);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(i32At(r.bytes, 0), 76);
  EXPECT_EQ(hexOf(&r.bytes[9], 59), hexOf(&moved[9], 59));
  EXPECT_EQ(hexOf(&r.bytes[76], 83), hexOf(body));
}

TEST(Requests, RawBodiesAndShortBodies) {
  // Fewer bytes than one record: appended as they are, flags as the caller gave them.
  for (std::size_t n : {0u, 82u}) {
    Bytes packed = packRequest(requestHead(1002, 1, 83), Bytes(n, 0x41));
    EXPECT_EQ(packed.size(), 76 + n);
    EXPECT_EQ(packed[8] & 1, 0);
  }
  // Count 0 with a whole record: the bare header, bit 0 set, restoring to 76 bytes.
  Bytes packed = packRequest(requestHead(1002, 0, 83), Bytes(83, 0));
  EXPECT_EQ(packed.size(), 76u);
  EXPECT_EQ(packed[8] & 1, 1);
  Restored r = restoreRequest(packed);
  EXPECT_EQ(r.length, 76);
  EXPECT_EQ(i32At(r.bytes, 72), 83);
  // Raw records of another size: cut to 83 bytes, or their tail left zero.
  for (int sender : {90, 50}) {
    Bytes raw = headerBytes(requestHead(1002, 2, sender));
    putI32(raw, 0, 76);
    for (int i = 0; i < 2 * sender; ++i) raw.push_back(static_cast<unsigned char>(i + 1));
    r = restoreRequest(raw);
    ASSERT_EQ(r.result, 1);
    for (int i = 0; i < 2; ++i)
      for (int k = 0; k < 83; ++k)
        ASSERT_EQ(r.bytes[76 + 83 * i + k],
                  k < sender ? static_cast<unsigned char>(sender * i + k + 1) : 0)
            << sender << " " << i << " " << k;
  }
  // The section-table bit is refused on a request.
  packed[8] |= 2;
  EXPECT_EQ(restoreRequest(packed).result, 0);
}

TEST(Requests, DecodeCapThirtySixRunsIntoTheNextRecordOrTheSlack) {
  // Request 1071 ends in a char[28] text read with cap 36: up to 8 bytes past its record.
  const std::string longText = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcd";
  Bytes body(2 * 271, 0);
  for (int i = 0; i < 2; ++i) {
    body[271 * i] = 'P';
    std::memcpy(&body[271 * i + 243], longText.data(), 27);
  }
  Bytes packed = packRequest(requestHead(1071, 2, 271), body);
  // On the wire, lengthen each record's last text from 27 characters to all 40.
  Bytes wire(packed.begin(), packed.begin() + 76);
  for (std::size_t pos = 76; pos < packed.size();) {
    const std::size_t length = static_cast<std::size_t>(i32At(packed, pos));
    Bytes record(packed.begin() + static_cast<long>(pos + 4),
                 packed.begin() + static_cast<long>(pos + 4 + length));
    ASSERT_EQ(record[length - 28], 27);
    record.resize(length - 28);
    record = concat(concat(record, hex("28 01")), Bytes(longText.begin(), longText.end()));
    Bytes prefix(4);
    putI32(prefix, 0, static_cast<std::int32_t>(record.size()));
    wire = concat(concat(wire, prefix), record);
    pos += 4 + length;
  }
  char* out = nullptr;
  int length = 0;
  ASSERT_EQ(CTrdCompData::RestoreReq2008(reinterpret_cast<char*>(wire.data()),
                                         static_cast<int>(wire.size()), &out, length, 0),
            1);
  ASSERT_EQ(length, 76 + 2 * 271);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(std::string(out + 76 + 271 * i + 243, 28), longText.substr(0, 28));
  EXPECT_EQ(out[76 + 271], 'P');  // record 1 decoded over record 0's overflow
  EXPECT_EQ(std::string(out + length, 8), longText.substr(28, 8));  // the last one's, in the slack
  CTrdCompData::ReleaseAnsData(out);
}

TEST(Answers, HeaderAndSectionTable) {
  Bytes rec(40, 0);
  std::memcpy(rec.data(), "text", 4);
  struct Case {
    int sections;
    std::size_t table;
  } cases[] = {{1, 0}, {2, 20}, {6, 52}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.sections);
    std::vector<std::pair<int, int>> secs(static_cast<std::size_t>(c.sections), {1, 40});
    Bytes packed = packAnswer(answerProc(1022, secs), std::vector<Bytes>(5, rec));
    EXPECT_EQ(i32At(packed, 0), 96);
    EXPECT_EQ(i32At(packed, 4), 1022);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&packed[20]), 4), "0000");
    EXPECT_STREQ(reinterpret_cast<char*>(&packed[24]), "done");
    EXPECT_EQ((packed[8] & 2) != 0, c.sections > 1);
    if (c.table) {
      EXPECT_EQ(i32At(packed, 96), static_cast<std::int32_t>(c.table));
    }
    // Raw sections behind the table; a sixth section is not copied.
    EXPECT_EQ(packed.size(), 96 + c.table + 40 * std::min(c.sections, 5));
  }
}

TEST(Answers, PackArgumentChecksAndResult) {
  tagANS_Proc proc = answerProc(1022, {{0, 0}});
  Bytes out(200, 0);
  int length = 5;
  char* o = reinterpret_cast<char*>(out.data());
  EXPECT_EQ(CTrdCompData::PackAns2008(o, 95, length, &proc, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(CTrdCompData::PackAns2008(o, 200, length, nullptr, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(CTrdCompData::PackAns2008(o, -1, length, &proc, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 96);  // packed: the result is still 0
}

TEST(Answers, NumbersWithoutRoutine) {
  // 1017: the header (and table) alone; restores to nothing.
  Bytes packed = packAnswer(answerProc(1017, {{1, 8}, {1, 8}}), {Bytes(8, 1), Bytes(8, 2)});
  EXPECT_EQ(packed.size(), 96u + 20);
  Restored r = restoreAnswer(packed);
  EXPECT_EQ(r.result, 1);
  EXPECT_TRUE(r.null);
  // 8999: raw sections both ways; a packed flag is refused.
  packed = packAnswer(answerProc(8999, {{2, 3}}), {hex("01 02 03 04 05 06")});
  r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(hexOf(r.bytes), hexOf(packed));
  packed[8] |= 1;
  EXPECT_EQ(restoreAnswer(packed).result, 0);
}

TEST(Answers, SingleSectionRestoreForms) {
  // Count 0: the bare header with the own size.
  Restored r = restoreAnswer(packAnswer(answerProc(1009, {{0, 40}}), {}));
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.length, 96);
  EXPECT_EQ(i32At(r.bytes, 88), 0);
  EXPECT_EQ(i32At(r.bytes, 92), 40);

  // Arriving with a section table: restored from its first pair, bit 1 cleared.
  Bytes rec(40, 0);
  std::memcpy(rec.data(), "abc", 3);
  Bytes packed = packAnswer(answerProc(1009, {{1, 40}, {0, 40}}), {rec, {}});
  ASSERT_EQ(packed[8] & 2, 2);
  r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(r.length, 96 + 40);
  EXPECT_EQ(hexOf(&r.bytes[96], 40), hexOf(rec));

  // Raw records of other sizes are stepped over by their own size.
  for (int sender : {50, 30}) {
    Bytes raw(96, 0);
    putI32(raw, 0, 96), putI32(raw, 4, 1009), putI32(raw, 88, 2), putI32(raw, 92, sender);
    for (int i = 0; i < 2 * sender; ++i) raw.push_back(static_cast<unsigned char>(i + 1));
    r = restoreAnswer(raw);
    ASSERT_EQ(r.length, 96 + 80);
    for (int i = 0; i < 2; ++i)
      for (int k = 0; k < 40; ++k)
        ASSERT_EQ(r.bytes[96 + 40 * i + k],
                  k < sender ? static_cast<unsigned char>(sender * i + k + 1) : 0);
  }
}

TEST(Answers, MultiSectionRestoreWritesItsOwnTable) {
  Bytes s0(184, 0), s1(92, 0), s2 = hex("E8 03 00 00 E8 03 00 00");
  std::memcpy(&s0[64], "code", 4);
  std::memcpy(&s1[4], "name", 4);
  Bytes packed = packAnswer(answerProc(1002, {{1, 184}, {1, 92}, {2, 4}}), {s0, s1, s2});
  Restored r = restoreAnswer(packed);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(r.bytes[8] & 2, 2);
  EXPECT_EQ(hexOf(&r.bytes[96], 28),
            hexOf(hex("1C 0 0 0 1 0 0 0 B8 0 0 0 1 0 0 0 5C 0 0 0 2 0 0 0 4 0 0 0")));
  EXPECT_EQ(r.length, 124 + 184 + 92 + 8);
  EXPECT_EQ(hexOf(&r.bytes[124], 184), hexOf(s0));
  EXPECT_EQ(hexOf(&r.bytes[124 + 184], 92), hexOf(s1));
  EXPECT_EQ(hexOf(&r.bytes[124 + 184 + 92], 8), hexOf(s2));
}

TEST(Answers, OneIntegerSectionFollowsTheFlag) {
  Bytes s2 = hex("E8 03 00 00 18 FC FF FF");  // 1000, -1000
  for (char flag : {0, 1, 2}) {
    SCOPED_TRACE(int(flag));
    Bytes packed = packAnswer(answerProc(1002, {{0, 184}, {0, 92}, {2, 4}}), {{}, {}, s2}, flag);
    const char* body = flag == 0   ? "02 00 00 00 28 1F 02 00 00 00 A8 1F"
                       : flag == 1 ? "02 00 00 00 18 3E 02 00 00 00 98 3E"
                                   : "00 00 00 00 00 00 00 00";
    EXPECT_EQ(hexOf(&packed[124], packed.size() - 124), hexOf(hex(body)));
    Restored r = restoreAnswer(packed, flag);
    EXPECT_EQ(hexOf(&r.bytes[124], 8), flag == 2 ? "00 00 00 00 00 00 00 00" : hexOf(s2));
  }
}

TEST(Answers, AsymmetricRoutesOfThe2008Codec) {
  // 1019 and 1068 pack as 1006 but restore with their own 16-byte layout.
  Bytes rec(16, 0);
  std::memcpy(rec.data(), "short text", 10);
  Bytes as1006 = packAnswer(answerProc(1006, {{1, 16}}), {rec});
  for (std::uint32_t number : {1019u, 1068u}) {
    Bytes packed = packAnswer(answerProc(number, {{1, 16}}), {rec});
    EXPECT_EQ(hexOf(&packed[96], packed.size() - 96), hexOf(&as1006[96], as1006.size() - 96));
    Restored r = restoreAnswer(packed);
    EXPECT_EQ(i32At(r.bytes, 92), 16);
    EXPECT_EQ(hexOf(&r.bytes[96], 16), hexOf(rec));
  }
  // 1072 and 1203 to 1205 pack as 1009 (28 + 12 bytes); they restore 64 and 44 byte records.
  Bytes wide(64, 0);
  std::memcpy(wide.data(), "left", 4);
  std::memcpy(&wide[28], "a text longer than twelve", 25);
  Bytes as1009 = packAnswer(answerProc(1009, {{1, 64}}), {wide});
  for (auto [number, size] : {std::pair{1072u, 64}, {1203u, 44}, {1205u, 44}}) {
    Bytes packed = packAnswer(answerProc(number, {{1, 64}}), {wide});
    EXPECT_EQ(hexOf(&packed[96], packed.size() - 96), hexOf(&as1009[96], as1009.size() - 96));
    Restored r = restoreAnswer(packed);
    EXPECT_EQ(i32At(r.bytes, 92), size);
    const std::string text(reinterpret_cast<char*>(&r.bytes[96 + 28]), 16);
    EXPECT_EQ(text, "a text longer th");
    if (size == 64) {
      EXPECT_STREQ(reinterpret_cast<char*>(&r.bytes[96 + 28]), "a text longer than twelve");
    }
  }
  // Section 1 of 1012 reads its char[8] text at 123 with cap 16, 1010 and 1013 with cap 8.
  // Seen when the record ends before the two int32 fields behind the text are read.
  Bytes s1(155, 0);
  std::memcpy(&s1[123], "ABCDEFGHIJKL", 12);
  for (auto [number, kept] : {std::pair{1012u, 12}, {1013u, 8}}) {
    Bytes packed = packAnswer(answerProc(number, {{0, 87}, {1, 155}}), {{}, s1});
    putI32(packed, 116, 20);  // the record's fields up to and including that text
    Restored r = restoreAnswer(packed);
    ASSERT_EQ(r.result, 1);
    const std::string text(reinterpret_cast<char*>(&r.bytes[116 + 123]), 16);
    EXPECT_EQ(text, std::string("ABCDEFGHIJKL", kept) + std::string(16 - kept, '\0')) << number;
  }
}

}  // namespace
