// Every function number, both directions: realistic messages pack and restore to the same
// records, header normalised, for several records and sections.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/catalogue.h"
#include "samples.h"
#include "test_util.h"

using namespace trdcomp::test;
using trdcomp::frame::AnswerForm;
using trdcomp::frame::RequestForm;

namespace {

struct Param {
  std::uint32_t number;
  int nibble;
  char flag;
};

std::vector<Param> allNumbers() {
  std::vector<Param> out;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    for (auto [nibble, flag] : {std::pair{0, 0}, {0, 1}, {1, 0}, {15, 0}})
      out.push_back({e->number, nibble, static_cast<char>(flag)});
  for (std::uint32_t unknown : {1022u, 1262u, 7000u}) out.push_back({unknown, 1, 0});
  return out;
}

class RoundTrip : public ::testing::TestWithParam<Param> {};

TEST_P(RoundTrip, Request) {
  const Param p = GetParam();
  for (int count : {1, 4}) {
    trdcomp::samples::Request sample =
        trdcomp::samples::makeRequest(p.number, p.nibble, count, p.number * 7 + count);
    Bytes body(sample.body.begin(), sample.body.end());
    Bytes packed = packRequest(sample.head, body, p.flag);
    Restored r = restoreRequest(packed, p.flag);
    ASSERT_EQ(r.result, 1) << count;
    const trdcomp::frame::Entry* e = trdcomp::frame::find(p.number);
    const RequestForm form = e ? e->requestForm : RequestForm::PassThrough;
    if (form == RequestForm::NoBody) {
      EXPECT_TRUE(r.null);
      continue;
    }
    if (form == RequestForm::PassThrough) {
      EXPECT_EQ(hexOf(r.bytes), hexOf(packed));
      continue;
    }
    ASSERT_EQ(i32At(r.bytes, 0), 76);
    EXPECT_EQ(hexOf(&r.bytes[9], 59), hexOf(&sample.head.callerData[0], 59));
    if (form == RequestForm::HeaderOnly) {
      EXPECT_EQ(r.length, 76);
      continue;
    }
    EXPECT_EQ(i32At(r.bytes, 68), count);
    EXPECT_EQ(i32At(r.bytes, 72), static_cast<std::int32_t>(e->requestSize));
    ASSERT_EQ(r.bytes.size(), 76 + body.size());
    EXPECT_EQ(hexOf(&r.bytes[76], body.size()), hexOf(body)) << count;
  }
}

TEST_P(RoundTrip, Answer) {
  const Param p = GetParam();
  for (int count : {1, 3}) {
    trdcomp::samples::Answer sample =
        trdcomp::samples::makeAnswer(p.number, p.nibble != 0, count, p.number * 13 + count);
    std::vector<Bytes> sections;
    for (auto& s : sample.sections) sections.emplace_back(s.begin(), s.end());
    Bytes packed = packAnswer(sample.proc, sections, p.flag, p.nibble << 4);
    Restored r = restoreAnswer(packed, p.flag);
    ASSERT_EQ(r.result, 1) << count;
    const trdcomp::frame::Entry* e = trdcomp::frame::find(p.number);
    const AnswerForm form = e ? e->answerForm : AnswerForm::PassThrough;
    if (form == AnswerForm::NoBody) {
      EXPECT_TRUE(r.null);
      continue;
    }
    if (form == AnswerForm::PassThrough) {
      EXPECT_EQ(hexOf(r.bytes), hexOf(packed));
      continue;
    }
    ASSERT_EQ(i32At(r.bytes, 0), 96);
    const trdcomp::records::AnswerLayout& layout = *e->answerRestore[p.nibble ? 1 : 0];
    std::size_t at = 96;
    if (layout.multiSection()) {
      ASSERT_EQ(r.bytes[8] & 2, 2);
      ASSERT_EQ(i32At(r.bytes, 96), 4 + 8 * layout.sectionCount);
      at += 4 + 8 * layout.sectionCount;
    } else {
      EXPECT_EQ(i32At(r.bytes, 88), count);
      EXPECT_EQ(i32At(r.bytes, 92), static_cast<std::int32_t>(layout.sections[0]->size));
    }
    for (int s = 0; s < layout.sectionCount; ++s) {
      ASSERT_LE(at + sections[s].size(), r.bytes.size());
      EXPECT_EQ(hexOf(&r.bytes[at], sections[s].size()), hexOf(sections[s])) << "section " << s;
      at += sections[s].size();
    }
    EXPECT_EQ(at, r.bytes.size());
  }
}

std::string name(const ::testing::TestParamInfo<Param>& info) {
  return std::to_string(info.param.number) + "_nibble" + std::to_string(info.param.nibble) +
         "_flag" + std::to_string(int(info.param.flag));
}

INSTANTIATE_TEST_SUITE_P(EveryNumber, RoundTrip, ::testing::ValuesIn(allNumbers()), name);

}  // namespace
