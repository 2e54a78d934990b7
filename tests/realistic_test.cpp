// The realistic messages of the speed and size comparisons: every number's benchmark workload
// (a 10-record request, a 100-record answer) comes back as sent in both codecs, and the values
// have the shape the comparisons claim (texts 30-80% of their arrays, mostly-zero blocks).
#include <gtest/gtest.h>

#include <algorithm>

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

// Over all answer layouts: the share of text bytes used, and of nonzero block bytes.
TEST(Realistic, TextsFillTheirArraysPartlyAndBlocksAreMostlyZero) {
  std::size_t textBytes = 0, textUsed = 0, blockBytes = 0, blockUsed = 0, texts = 0, outside = 0;
  for (const frame::Entry* e = frame::begin(); e != frame::end(); ++e) {
    const records::AnswerLayout* layout = e->answerRestore[0];
    if (!layout) continue;
    const samples::Answer a = realistic::makeAnswer(e->number, false, 20, 7);
    for (int s = 0; s < layout->sectionCount; ++s) {
      const records::Layout& l = *layout->sections[s];
      for (std::size_t r = 0; r < 20; ++r) {
        const unsigned char* record = a.sections[s].data() + r * l.size;
        for (const records::Field& f : l) {
          if (f.kind == records::Kind::Group) break;  // members are relative to their entry
          const unsigned char* at = record + f.offset;
          if (f.kind == records::Kind::Text && f.width >= 8) {
            const auto used = static_cast<std::size_t>(std::find(at, at + f.width, 0) - at);
            ++texts;
            outside += used * 10 < f.width * 3 || used * 10 > f.width * 8;
            textBytes += f.width, textUsed += used;
          } else if (f.kind == records::Kind::Block) {
            blockBytes += f.width;
            for (std::uint32_t i = 0; i < f.width; ++i) blockUsed += at[i] != 0;
          }
        }
      }
    }
  }
  ASSERT_GT(texts, 1000u);
  EXPECT_EQ(outside, 0u) << "texts outside 30-80% of their arrays";
  EXPECT_GT(textUsed * 100, textBytes * 40);
  EXPECT_LT(textUsed * 100, textBytes * 70);
  ASSERT_GT(blockBytes, 0u);
  EXPECT_LT(blockUsed * 100, blockBytes * 5) << "blocks should be mostly zero";
}

}  // namespace
