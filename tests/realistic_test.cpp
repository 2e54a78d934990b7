// The realistic messages of the speed and size comparisons: every number's benchmark workload
// (a 10-record request, a 100-record answer) comes back as sent in both codecs.
#include <gtest/gtest.h>

#include "frame/catalogue.h"
#include "realistic.h"

namespace {

using namespace trdcomp;
using samples::Bytes;

class RealisticRoundTrip : public ::testing::TestWithParam<int> {};

TEST_P(RealisticRoundTrip, EveryNumberComesBackAsSent) {
  const int nibble = GetParam();
  for (const frame::Entry* e = frame::begin(); e != frame::end(); ++e) {
    const samples::Request q = realistic::makeRequest(e->number, nibble, 10, e->number);
    const Bytes packed = samples::packRequest(q.head, q.body);
    EXPECT_EQ(samples::checkRequest(q, nibble, packed, samples::restoreRequest(packed)), "")
        << "request " << e->number;
    const samples::Answer a = realistic::makeAnswer(e->number, nibble != 0, 100, e->number);
    const Bytes answer = samples::packAnswer(a.proc, a.sections, 0, nibble << 4);
    EXPECT_EQ(samples::checkAnswer(a, nibble, answer, samples::restoreAnswer(answer)), "")
        << "answer " << e->number;
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, RealisticRoundTrip, ::testing::Values(0, 1));

}  // namespace
