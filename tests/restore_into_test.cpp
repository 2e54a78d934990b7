// Restoring into the caller's buffer: for every function number, both codecs and both
// directions, a message and what it becomes cut short or with a byte changed restore into the
// caller's buffer to the allocating restore's bytes, refuse what it refuses, and announce the
// length they need (restore_into_check.h). The adversarial corpus runs the same check
// (golden/adversarial_test.cpp).
#include <gtest/gtest.h>

#include "frame/catalogue.h"
#include "realistic.h"
#include "restore_into_check.h"
#include "test_util.h"

namespace {

using namespace trdcomp;
using namespace trdcomp::test;

// The message, and the message cut at a dozen places and with one byte changed at a dozen
// places (the header's flags, count and size among them).
std::vector<Bytes> damaged(const Bytes& m, bool answer) {
  std::vector<Bytes> out{m};
  const std::size_t step = std::max<std::size_t>(1, m.size() / 12);
  for (std::size_t n = 0; n < m.size(); n += step) out.push_back(slice(m, 0, n));
  std::vector<std::size_t> at{8, answer ? 88u : 68u, answer ? 92u : 72u};
  for (std::size_t p = answer ? 96 : 76; p < m.size(); p += step) at.push_back(p);
  for (std::size_t p : at) {
    if (p >= m.size()) continue;
    Bytes changed = m;
    changed[p] ^= p == 8 ? 0x03 : 0x5A;  // flags: the packed and section-table bits
    out.push_back(changed);
  }
  return out;
}

struct Variant {
  int nibble;
  char flag;
};

class RestoreInto : public ::testing::TestWithParam<Variant> {};

TEST_P(RestoreInto, EqualsTheAllocatingRestoreForEveryNumber) {
  const auto [nibble, flag] = GetParam();
  std::vector<std::uint32_t> numbers{1022, 7000};  // and two unknown ones, passed through
  for (const frame::Entry* e = frame::begin(); e != frame::end(); ++e) numbers.push_back(e->number);
  for (std::uint32_t number : numbers)
    for (int count : {1, 10}) {
      const samples::Request q = realistic::makeRequest(number, nibble, count, number + count);
      const samples::Answer a = realistic::makeAnswer(number, nibble != 0, count, number + count);
      const Bytes request = packRequest(q.head, q.body, flag);
      const Bytes answer = packAnswer(a.proc, a.sections, flag, nibble << 4);
      for (bool isAnswer : {false, true})
        for (const Bytes& m : damaged(isAnswer ? answer : request, isAnswer)) {
          const std::string d = checkInto(isAnswer, m, flag);
          ASSERT_EQ(d, "") << (isAnswer ? "answer " : "request ") << number << ", " << count
                           << " records, " << m.size() << " bytes: " << hexOf(m);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, RestoreInto,
                         ::testing::Values(Variant{0, 0}, Variant{0, 1}, Variant{1, 0},
                                           Variant{15, 0}),
                         [](const ::testing::TestParamInfo<Variant>& v) {
                           return "nibble" + std::to_string(v.param.nibble) + "flag" +
                                  std::to_string(int(v.param.flag));
                         });

// A text's decode cap may run past the end of its record: into the allocating restore's slack,
// not past the caller's buffer. Request 1071 ends in a 28-byte text that decodes up to 36 bytes;
// a sender whose records are 8 bytes longer sends all 36.
TEST(RestoreInto, DecodeCapStopsAtTheEndOfTheMessage) {
  Bytes body(279, 0);
  std::memset(body.data() + 243, 'A', 36);
  Bytes packed = packRequest(requestHead(1071, 1, 279), body);
  char* in = reinterpret_cast<char*>(packed.data());
  const int inLen = static_cast<int>(packed.size());
  ASSERT_EQ(CTrdCompData::RestoreReqLength(in, inLen), 76 + 271);
  char* classic = nullptr;
  int classicLen = 0;
  ASSERT_EQ(CTrdCompData::RestoreReq2008(in, inLen, &classic, classicLen, 0), 1);
  ASSERT_EQ(classicLen, 76 + 271);
  EXPECT_EQ(std::string(classic + 76 + 243, 36), std::string(36, 'A'));  // 8 bytes in the slack
  EXPECT_EQ(checkInto(false, packed, 0), "");
  CTrdCompData::ReleaseAnsData(classic);
}

TEST(RestoreInto, RefusesBadArguments) {
  Bytes packed = packRequest(requestHead(1002, 1, 83), Bytes(83, 0));
  char* in = reinterpret_cast<char*>(packed.data());
  const int inLen = static_cast<int>(packed.size());
  char out[256];
  struct Case {
    const char* what;
    char* in;
    int inLen;
    char* out;
    int outSize;
    int reason;
  } cases[] = {
      {"null input", nullptr, inLen, out, 256, TRDCOMP_ERROR_NULL_ARGUMENT},
      {"empty input", in, 0, out, 256, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"header length beyond the input", in, 70, out, 256, TRDCOMP_ERROR_HEADER_LENGTH},
      {"null output with bytes", in, inLen, nullptr, 256, TRDCOMP_ERROR_NULL_ARGUMENT},
      {"negative output size", in, inLen, out, -1, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"null output of no bytes", in, inLen, nullptr, 0, TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
  };
  for (const Case& c : cases) {
    int outLen = -1, reason = -1;
    EXPECT_EQ(CTrdCompData::RestoreReq2008Into(c.in, c.inLen, c.out, c.outSize, outLen, 0, &reason),
              0)
        << c.what;
    EXPECT_EQ(reason, c.reason) << c.what;
    EXPECT_EQ(outLen, 0) << c.what;
  }
  EXPECT_EQ(CTrdCompData::RestoreReqLength(nullptr, inLen), -1);
  EXPECT_EQ(CTrdCompData::RestoreAnsLength(nullptr, inLen), -1);
  EXPECT_EQ(CTrdCompData::RestoreReqLength(in, 0), -1);
  // Nothing to restore needs no buffer.
  packed = packRequest(requestHead(1017, 0, 0), {});
  int outLen = -1, reason = -1;
  EXPECT_EQ(CTrdCompData::RestoreReq2008Into(reinterpret_cast<char*>(packed.data()),
                                             static_cast<int>(packed.size()), nullptr, 0, outLen, 0,
                                             &reason),
            1);
  EXPECT_EQ(outLen, 0);
}

}  // namespace
