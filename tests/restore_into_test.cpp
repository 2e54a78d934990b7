// Restoring into the caller's buffer where the adversarial corpus does not reach: a decode cap
// that runs past its record, and bad arguments. (golden/adversarial_test.cpp checks every corpus
// message, cut short and with a byte changed, against the allocating restore with
// restore_into_check.h.)
#include <gtest/gtest.h>

#include "restore_into_check.h"
#include "test_util.h"

namespace {

using namespace trdcomp;
using namespace trdcomp::test;

// A text's decode cap may run past the end of its record: into the next record, whose own
// decoding writes over it, and past the last one into the allocating restore's slack, never past
// the caller's buffer. Request 1071 ends in a 28-byte text that decodes up to 36 bytes; a sender
// whose records are 8 bytes longer sends all 36.
TEST(RestoreInto, DecodeCapRunsIntoTheNextRecordOrTheSlackOnly) {
  const std::string text = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  Bytes body(2 * 279, 0);
  for (int i = 0; i < 2; ++i) {
    body[279 * i] = 'P';
    std::memcpy(&body[279 * i + 243], text.data(), 36);
  }
  Bytes packed = packRequest(requestHead(1071, 2, 279), body);
  char* in = reinterpret_cast<char*>(packed.data());
  const int inLen = static_cast<int>(packed.size());
  char* out = nullptr;
  int length = 0;
  ASSERT_EQ(CTrdCompData::RestoreReq2008(in, inLen, &out, length, 0), 1);
  ASSERT_EQ(length, 76 + 2 * 271);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(std::string(out + 76 + 271 * i + 243, 28), text.substr(0, 28));
  EXPECT_EQ(out[76 + 271], 'P');                                // record 1 decoded over it
  EXPECT_EQ(std::string(out + length, 8), text.substr(28, 8));  // the last one's, in the slack
  CTrdCompData::ReleaseAnsData(out);
  EXPECT_EQ(checkInto(false, packed, 0), "");
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
