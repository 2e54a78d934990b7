// The classic entry points on what the golden corpora do not reach (they freeze the packed and
// restored bytes of every number's messages, raw messages of other record sizes and header
// lengths, truncated answers): argument checks, crafted messages that are refused or restore
// in their own way, and a decode cap that reads past its record.
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

TEST(EntryPoints, CraftedMessages) {
  // Packed bodies of numbers that pass through, and the section-table bit on a request: refused
  // with their reasons.
  const auto reason = [](bool answer, Bytes in) {
    char* out = nullptr;
    int length = 0, why = -1;
    char* p = reinterpret_cast<char*>(in.data());
    const int n = static_cast<int>(in.size());
    const int ok = answer ? CTrdCompData::RestoreAns2008Ex(p, n, &out, length, 0, -1, &why)
                          : CTrdCompData::RestoreReq2008Ex(p, n, &out, length, 0, -1, &why);
    CTrdCompData::ReleaseAnsData(out);
    return ok ? -1 : why;
  };
  Bytes unknown = concat(headerBytes(requestHead(1022, 2, 5)), Bytes(10, 1));
  putI32(unknown, 0, 76);
  unknown[8] |= 1;
  EXPECT_EQ(reason(false, unknown), TRDCOMP_ERROR_PACKED_UNKNOWN);
  Bytes passThrough = packAnswer(answerProc(8999, {{2, 3}}), {Bytes(6, 1)});
  passThrough[8] |= 1;
  EXPECT_EQ(reason(true, passThrough), TRDCOMP_ERROR_PACKED_UNKNOWN);
  Bytes sectionBit = packRequest(requestHead(1002, 0, 83), Bytes(83, 0));
  sectionBit[8] |= 2;
  EXPECT_EQ(reason(false, sectionBit), TRDCOMP_ERROR_SECTION_BIT);

  // 1001 packed with records (its packer sends the bare header): one zero byte each.
  Bytes headerOnly =
      concat(headerBytes(requestHead(1001, 3, 4)), hex("11 0 0 0 22 0 0 0 33 0 0 0"));
  putI32(headerOnly, 0, 76);
  headerOnly[8] |= 1;
  EXPECT_EQ(hexOf(slice(restoreRequest(headerOnly).bytes, 76)), "00 00 00");

  // Six sections of a pass-through answer: a table of six pairs, five sections copied.
  Bytes rec(40, 7);
  Bytes six = packAnswer(answerProc(1022, std::vector<std::pair<int, int>>(6, {1, 40})),
                         std::vector<Bytes>(5, rec));
  EXPECT_EQ(i32At(six, 96), 52);
  EXPECT_EQ(six.size(), 96u + 52 + 5 * 40);

  // A single-section answer sent with a section table: restored from its first pair, bit 1
  // cleared. 1010's optional second section: a message of one section restores as one.
  Restored r = restoreAnswer(packAnswer(answerProc(1009, {{1, 40}, {0, 40}}), {rec, {}}));
  EXPECT_EQ(r.bytes[8] & 2, 0);
  EXPECT_EQ(hexOf(slice(r.bytes, 96)), hexOf(rec));
  Bytes s87(87, 0);
  std::memcpy(s87.data(), "NAME", 4);
  r = restoreAnswer(packAnswer(answerProc(1010, {{1, 87}}), {s87}));
  EXPECT_EQ(hexOf(slice(r.bytes, 88)), hexOf(concat(hex("01 0 0 0 57 0 0 0"), s87)));
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

}  // namespace
