// The public entry points: argument checks, header handling, routing, pass-through, sections,
// and the deliberate asymmetries of the catalogue.
#include <gtest/gtest.h>

#include <cstring>

#include "TrdCompData.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

Bytes headerBytes(const tagREQ_HEAD& h) {
  const auto* p = reinterpret_cast<const unsigned char*>(&h);
  return Bytes(p, p + sizeof h);
}

// Request 1002: three characters and three texts (32, 24 and 24 bytes).
Bytes record1002(const char* codes, const char* t1, const char* t2, const char* t3) {
  Bytes r(83, 0);
  std::memcpy(&r[0], codes, 3);
  std::memcpy(&r[3], t1, std::strlen(t1));
  std::memcpy(&r[35], t2, std::strlen(t2));
  std::memcpy(&r[59], t3, std::strlen(t3));
  return r;
}

// Raw records of `sender` bytes holding 1, 2, 3, ... restore cut to `own` bytes or zero-padded.
void expectRawRecords(const Bytes& restored, std::size_t at, int count, int own, int sender) {
  for (int i = 0; i < count; ++i)
    for (int k = 0; k < own; ++k)
      ASSERT_EQ(restored[at + own * i + k], k < sender ? (sender * i + k + 1) & 0xFF : 0)
          << "sender size " << sender << ", record " << i << ", byte " << k;
}

TEST(Requests, PacksAndRestoresTheWorkedExampleByteForByte) {
  Bytes body = concat(record1002("A\x0B\0", "600036", "", "ABC"), record1002("B\1\2", "", "x", ""));
  tagREQ_HEAD head = requestHead(1002, 2, 83);
  head.headLen = 1234;  // whatever the caller left there, the packer writes 76
  Bytes packed = packRequest(head, body);
  Bytes expectedHead = headerBytes(head);
  putI32(expectedHead, 0, 76);
  expectedHead[8] |= 1;
  EXPECT_EQ(hexOf(packed),
            hexOf(concat(expectedHead, hex("0F 00 00 00 41 0B 00 06 36 30 30 30 33 36 00"
                                           " 03 41 42 43 07 00 00 00 42 01 02 00 01 78 00"))));

  // Restored from where the sender's header length says, whatever it is; the header leaves
  // normalised with the caller's bytes 9 to 67 as they came.
  Bytes moved = packed;
  putI32(moved, 0, 80);
  moved.insert(moved.begin() + 76, 4, 0xCC);
  for (const Bytes& in : {packed, moved}) {
    Restored r = restoreRequest(in);
    ASSERT_EQ(r.result, 1);
    ASSERT_EQ(r.length, 2 * 83 + 76);
    Bytes restoredHead = expectedHead;
    putI32(restoredHead, 72, 83);
    EXPECT_EQ(hexOf(slice(r.bytes, 0, 76)), hexOf(restoredHead));
    EXPECT_EQ(hexOf(slice(r.bytes, 76)), hexOf(body));
  }
}

TEST(EntryPoints, ArgumentChecks) {
  tagREQ_HEAD head = requestHead(1002, 0, 83);
  char out[256];
  int length = 77;
  EXPECT_EQ(CTrdCompData::PackReq2008(nullptr, length, &head, nullptr, 0, 0), 0);
  EXPECT_EQ(CTrdCompData::PackReq2008(out, length, nullptr, nullptr, 0, 0), 0);
  EXPECT_EQ(length, 77);
  // Refused restores leave the output alone: null input, no bytes, a header length past them.
  Bytes in = headerBytes(requestHead(1022, 0, 0));
  putI32(in, 0, 100);
  in.resize(90);
  char* restored = out;
  char* data = reinterpret_cast<char*>(in.data());
  EXPECT_EQ(CTrdCompData::RestoreReq2008(nullptr, 76, &restored, length, 0), 0);
  EXPECT_EQ(CTrdCompData::RestoreReq2008(data, 0, &restored, length, 0), 0);
  EXPECT_EQ(CTrdCompData::RestoreReq2008(data, 90, &restored, length, 0), 0);
  EXPECT_EQ(restored, out);
  EXPECT_EQ(length, 77);
  putI32(in, 0, 76);
  in.resize(76);
  EXPECT_EQ(restoreRequest(in).result, 1);  // a header length equal to the input is fine
  CTrdCompData::ReleaseAnsData(nullptr);

  // Answers: at least 96 bytes of output (compared unsigned) and a descriptor; always 0.
  tagANS_Proc proc = answerProc(1022, {{0, 0}});
  EXPECT_EQ(CTrdCompData::PackAns2008(out, 95, length, &proc, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(CTrdCompData::PackAns2008(out, 200, length, nullptr, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(CTrdCompData::PackAns2008(out, -1, length, &proc, 0, 0, 0, 0, 0, 0, 0), 0);
  EXPECT_EQ(length, 96);
}

TEST(EntryPoints, UnknownNumbersPassThroughBothWays) {
  for (std::uint32_t number : {1022u, 999u, 1262u, 8998u, 9000u}) {
    SCOPED_TRACE(number);
    tagREQ_HEAD head = requestHead(number, 2, 5);
    head.headLen = 76;
    Bytes body = hex("01 02 03 04 05 06 07 08 09 0A");
    Bytes packed = packRequest(head, body);
    EXPECT_EQ(hexOf(packed), hexOf(concat(headerBytes(head), body)));
    EXPECT_EQ(hexOf(restoreRequest(packed).bytes), hexOf(packed));  // copied whole
    packed[8] |= 1;
    EXPECT_EQ(restoreRequest(packed).result, 0);  // a packed body cannot pass through
  }
  // 8999 answers: raw sections both ways; a packed flag is refused.
  Bytes packed = packAnswer(answerProc(8999, {{2, 3}}), {hex("01 02 03 04 05 06")});
  EXPECT_EQ(hexOf(restoreAnswer(packed).bytes), hexOf(packed));
  packed[8] |= 1;
  EXPECT_EQ(restoreAnswer(packed).result, 0);
}

TEST(EntryPoints, NumbersWithoutBody) {
  // 1000 and 1001: the bare header with the count set to 0; restored as one-byte records, the
  // first byte of each raw sender record, or zero when packed.
  Bytes packed = packRequest(requestHead(1000, 3, 10), Bytes(30, 7));
  ASSERT_EQ(packed.size(), 76u);
  EXPECT_EQ(i32At(packed, 68), 0);
  Bytes raw = concat(headerBytes(requestHead(1001, 3, 4)), hex("11 0 0 0 22 0 0 0 33 0 0 0"));
  putI32(raw, 0, 76);
  Restored r = restoreRequest(raw);
  EXPECT_EQ(r.length, 79);
  EXPECT_EQ(i32At(r.bytes, 72), 1);
  EXPECT_EQ(hexOf(slice(r.bytes, 76)), "11 22 33");
  raw[8] |= 1;
  EXPECT_EQ(hexOf(slice(restoreRequest(raw).bytes, 76)), "00 00 00");

  // 1017: the header alone with the caller's count, or the answer header and table; restoring
  // yields nothing.
  packed = packRequest(requestHead(1017, 3, 10), Bytes(30, 7));
  ASSERT_EQ(packed.size(), 76u);
  EXPECT_EQ(i32At(packed, 68), 3);
  Bytes answer = packAnswer(answerProc(1017, {{1, 8}, {1, 8}}), {Bytes(8, 1), Bytes(8, 2)});
  EXPECT_EQ(answer.size(), 96u + 20);
  for (const Restored& nothing : {restoreRequest(packed), restoreAnswer(answer)}) {
    EXPECT_EQ(nothing.result, 1);
    EXPECT_TRUE(nothing.null);
    EXPECT_EQ(nothing.length, 0);
  }
}

TEST(Requests, SharedRoutinesAndOwnRecordSizes) {
  struct Case {
    std::uint32_t number, sameAs;
    std::int32_t size;
  } cases[] = {{8997, 8996, 16},  {8999, 1005, 145}, {1040, 1005, 145}, {1131, 1016, 154},
               {1057, 1021, 147}, {1063, 1055, 162}, {1261, 1260, 381}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);
    // A sender with larger records: the packed bytes are the other number's, the own size is
    // restored.
    Bytes body(2 * (c.size + 9), 0);
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = i % 40 == 16 ? 0 : 'a' + i % 7;
    Bytes packed = packRequest(requestHead(c.number, 2, c.size + 9), body);
    Bytes reference = packRequest(requestHead(c.sameAs, 2, c.size + 9), body);
    EXPECT_EQ(hexOf(slice(packed, 76)), hexOf(slice(reference, 76)));
    Restored r = restoreRequest(packed);
    EXPECT_EQ(i32At(r.bytes, 72), c.size);
    EXPECT_EQ(r.length, 76 + 2 * c.size);
  }
}

TEST(Requests, ShortRawAndEmptyBodies) {
  // Fewer bytes than one record: appended as they are, flags as the caller gave them.
  for (std::size_t n : {0u, 82u}) {
    Bytes packed = packRequest(requestHead(1002, 1, 83), Bytes(n, 0x41));
    EXPECT_EQ(packed.size(), 76 + n);
    EXPECT_EQ(packed[8] & 1, 0);
  }
  // Count 0 with a whole record: the bare header, bit 0 set, restoring to 76 bytes.
  Bytes packed = packRequest(requestHead(1002, 0, 83), Bytes(83, 0));
  EXPECT_EQ(hexOf(slice(packed, 8, 1)), "01");
  Restored r = restoreRequest(packed);
  EXPECT_EQ(r.length, 76);
  EXPECT_EQ(i32At(r.bytes, 72), 83);
  packed[8] |= 2;
  EXPECT_EQ(restoreRequest(packed).result, 0);  // the section-table bit is refused on requests
  // Raw records of another size: cut to 83 bytes, or their tail left zero.
  for (int sender : {90, 50}) {
    Bytes raw = headerBytes(requestHead(1002, 2, sender));
    putI32(raw, 0, 76);
    for (int i = 0; i < 2 * sender; ++i) raw.push_back(static_cast<unsigned char>(i + 1));
    expectRawRecords(restoreRequest(raw).bytes, 76, 2, 83, sender);
  }
}

TEST(Requests, DecodeCapThirtySixRunsIntoTheNextRecordOrTheSlack) {
  // Request 1071 ends in a char[28] text read with cap 36: up to 8 bytes past its record.
  const std::string text = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcd";
  Bytes body(2 * 271, 0);
  for (int i = 0; i < 2; ++i) {
    body[271 * i] = 'P';
    std::memcpy(&body[271 * i + 243], text.data(), 27);
  }
  Bytes packed = packRequest(requestHead(1071, 2, 271), body);
  // On the wire, lengthen each record's last text from 27 characters to all 40.
  Bytes wire = slice(packed, 0, 76);
  for (std::size_t pos = 76; pos < packed.size();) {
    const std::size_t length = static_cast<std::size_t>(i32At(packed, pos));
    ASSERT_EQ(packed[pos + 4 + length - 28], 27);
    Bytes record = concat(concat(slice(packed, pos + 4, length - 28), hex("28 01")),
                          Bytes(text.begin(), text.end()));
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
    EXPECT_EQ(std::string(out + 76 + 271 * i + 243, 28), text.substr(0, 28));
  EXPECT_EQ(out[76 + 271], 'P');                                // record 1 decoded over it
  EXPECT_EQ(std::string(out + length, 8), text.substr(28, 8));  // the last one's, in the slack
  CTrdCompData::ReleaseAnsData(out);
}

TEST(Answers, HeaderAndSectionTable) {
  Bytes rec(40, 0);
  std::memcpy(rec.data(), "text", 4);
  for (auto [sections, table] : {std::pair{1, 0}, {2, 20}, {6, 52}}) {
    SCOPED_TRACE(sections);
    std::vector<std::pair<int, int>> counts(static_cast<std::size_t>(sections), {1, 40});
    Bytes packed = packAnswer(answerProc(1022, counts), std::vector<Bytes>(5, rec));
    EXPECT_EQ(hexOf(slice(packed, 0, 8)), "60 00 00 00 FE 03 00 00");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&packed[20]), 9), std::string("0000done\0", 9));
    EXPECT_EQ((packed[8] & 2) != 0, sections > 1);
    if (table) {
      EXPECT_EQ(i32At(packed, 96), table);
    }
    // Raw sections behind the whole table; a sixth section is not copied.
    EXPECT_EQ(packed.size(), 96u + table + 40 * std::min(sections, 5));
  }
  // A nonzero requested nibble is written as 1 and no table is written before the routine.
  Bytes packed = packAnswer(answerProc(1009, {{0, 40}, {0, 40}}), {}, 0, 0x30);
  EXPECT_EQ(packed[8], 0x13);
  EXPECT_EQ(hexOf(slice(packed, 96)), "00 00");
}

TEST(Answers, RestoreForms) {
  // Single section, count 0: the bare header with the own size.
  Restored r = restoreAnswer(packAnswer(answerProc(1009, {{0, 40}}), {}));
  EXPECT_EQ(r.length, 96);
  EXPECT_EQ(hexOf(slice(r.bytes, 88)), "00 00 00 00 28 00 00 00");
  // Single section arriving with a section table: restored from its first pair, bit 1 cleared.
  Bytes rec(40, 0);
  std::memcpy(rec.data(), "abc", 3);
  r = restoreAnswer(packAnswer(answerProc(1009, {{1, 40}, {0, 40}}), {rec, {}}));
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(hexOf(slice(r.bytes, 96)), hexOf(rec));
  // Raw records of other sizes are stepped over by their own size.
  for (int sender : {50, 30}) {
    Bytes raw(96, 0);
    putI32(raw, 0, 96), putI32(raw, 4, 1009), putI32(raw, 88, 2), putI32(raw, 92, sender);
    for (int i = 0; i < 2 * sender; ++i) raw.push_back(static_cast<unsigned char>(i + 1));
    expectRawRecords(restoreAnswer(raw).bytes, 96, 2, 40, sender);
  }
  // An optional second section (answer 1010): a message of one section restores as one, a
  // message that sends two restores both behind the library's own table.
  Bytes s87(87, 0), s155(155, 0);
  std::memcpy(s87.data(), "NAME", 4);
  std::memcpy(&s155[68], "MORE", 4);
  r = restoreAnswer(packAnswer(answerProc(1010, {{1, 87}}), {s87}));
  EXPECT_EQ(hexOf(slice(r.bytes, 88)), hexOf(concat(hex("01 0 0 0 57 0 0 0"), s87)));
  r = restoreAnswer(packAnswer(answerProc(1010, {{1, 87}, {1, 155}}), {s87, s155}));
  EXPECT_EQ(hexOf(slice(r.bytes, 96)),
            hexOf(concat(concat(hex("14 0 0 0 1 0 0 0 57 0 0 0 1 0 0 0 9B 0 0 0"), s87), s155)));
  // Several sections: the library's own table, then the sections end to end.
  Bytes s0(184, 0), s1(92, 0), s2 = hex("E8 03 00 00 E8 03 00 00");
  std::memcpy(&s0[64], "code", 4);
  std::memcpy(&s1[4], "name", 4);
  r = restoreAnswer(packAnswer(answerProc(1002, {{1, 184}, {1, 92}, {2, 4}}), {s0, s1, s2}));
  EXPECT_EQ(r.bytes[8] & 2, 2);
  EXPECT_EQ(hexOf(slice(r.bytes, 96, 28)),
            hexOf(hex("1C 0 0 0 1 0 0 0 B8 0 0 0 1 0 0 0 5C 0 0 0 2 0 0 0 4 0 0 0")));
  EXPECT_EQ(hexOf(slice(r.bytes, 124)), hexOf(concat(concat(s0, s1), s2)));
}

TEST(Answers, OneIntegerSectionFollowsTheFlag) {
  Bytes s2 = hex("E8 03 00 00 18 FC FF FF");  // 1000, -1000
  const char* bodies[] = {"02 00 00 00 28 1F 02 00 00 00 A8 1F",
                          "02 00 00 00 18 3E 02 00 00 00 98 3E", "00 00 00 00 00 00 00 00"};
  for (char flag : {0, 1, 2}) {
    Bytes packed = packAnswer(answerProc(1002, {{0, 184}, {0, 92}, {2, 4}}), {{}, {}, s2}, flag);
    EXPECT_EQ(hexOf(slice(packed, 124)), hexOf(hex(bodies[int(flag)]))) << int(flag);
    EXPECT_EQ(hexOf(slice(restoreAnswer(packed, flag).bytes, 124)),
              flag == 2 ? "00 00 00 00 00 00 00 00" : hexOf(s2));
  }
}

TEST(Answers, AsymmetricRoutesOfThe2008Codec) {
  // 1019 and 1068 pack as 1006 (a 28-byte short string) but restore 16-byte records; 1072 and
  // 1203 to 1205 pack as 1009 (texts of 28 and 12) but restore 64 and 44 byte records.
  Bytes shortRec(16, 0), wide(64, 0);
  std::memcpy(shortRec.data(), "short text", 10);
  std::memcpy(wide.data(), "left", 4);
  std::memcpy(&wide[28], "a text longer than twelve", 25);
  struct Case {
    std::uint32_t number, packsAs;
    int size;
    const Bytes& record;
    const char* restored;
  } cases[] = {{1019, 1006, 16, shortRec, "short text"},
               {1068, 1006, 16, shortRec, "short text"},
               {1072, 1009, 64, wide, "a text longer than twelve"},
               {1203, 1009, 44, wide, "a text longer th"},
               {1205, 1009, 44, wide, "a text longer th"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);
    const int sent = static_cast<int>(c.record.size());
    Bytes packed = packAnswer(answerProc(c.number, {{1, sent}}), {c.record});
    Bytes reference = packAnswer(answerProc(c.packsAs, {{1, sent}}), {c.record});
    EXPECT_EQ(hexOf(slice(packed, 96)), hexOf(slice(reference, 96)));
    Restored r = restoreAnswer(packed);
    EXPECT_EQ(i32At(r.bytes, 92), c.size);
    const std::size_t text = c.size == 16 ? 96 : 96 + 28;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&r.bytes[text]), std::strlen(c.restored)),
              c.restored);
  }
  // Section 1 of 1012 reads its char[8] text at 123 with cap 16, 1010 and 1013 with cap 8:
  // seen when the record ends before the two int32 fields behind the text are read.
  Bytes s1(155, 0);
  std::memcpy(&s1[123], "ABCDEFGHIJKL", 12);
  for (auto [number, kept] : {std::pair{1012u, 12}, {1013u, 8}}) {
    Bytes packed = packAnswer(answerProc(number, {{0, 87}, {1, 155}}), {{}, s1});
    putI32(packed, 116, 20);  // the record's fields up to and including that text
    const std::string text(reinterpret_cast<char*>(&restoreAnswer(packed).bytes[116 + 123]), 16);
    EXPECT_EQ(text, std::string("ABCDEFGHIJKL", kept) + std::string(16 - kept, '\0')) << number;
  }
}

}  // namespace
