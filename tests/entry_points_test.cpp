// The classic entry points on what the golden corpora do not reach (they freeze the packed and
// restored bytes of every number's messages, raw messages of other record sizes and header
// lengths, truncated answers): argument checks, and crafted messages that are refused or restore
// in their own way.
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

}  // namespace
