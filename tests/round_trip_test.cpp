// Every function number, both directions, both codecs: realistic messages pack and restore to
// the records sent, the header normalised, for one and several records and every section.
#include <gtest/gtest.h>

#include <thread>

#include "frame/catalogue.h"
#include "samples.h"

namespace {

using namespace trdcomp::samples;

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
    const Request sent = makeRequest(p.number, p.nibble, count, p.number * 7 + count);
    const Bytes packed = packRequest(sent.head, sent.body, p.flag);
    EXPECT_EQ(checkRequest(sent, p.nibble, packed, restoreRequest(packed, p.flag)), "") << count;
  }
}

TEST_P(RoundTrip, Answer) {
  const Param p = GetParam();
  for (int count : {1, 3}) {
    const Answer sent = makeAnswer(p.number, p.nibble != 0, count, p.number * 13 + count);
    const Bytes packed = packAnswer(sent.proc, sent.sections, p.flag, p.nibble << 4);
    EXPECT_EQ(checkAnswer(sent, p.nibble, packed, restoreAnswer(packed, p.flag)), "") << count;
  }
}

std::string name(const ::testing::TestParamInfo<Param>& info) {
  return std::to_string(info.param.number) + "_nibble" + std::to_string(info.param.nibble) +
         "_flag" + std::to_string(int(info.param.flag));
}

INSTANTIATE_TEST_SUITE_P(EveryNumber, RoundTrip, ::testing::ValuesIn(allNumbers()), name);

}  // namespace

namespace {

// Nothing is shared between calls: many threads packing and restoring at once get the bytes
// that one thread gets.
TEST(Concurrency, ThreadsGetTheBytesOneThreadGets) {
  auto work = [](std::uint32_t seed) {
    Bytes all;
    for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end();
         ++e) {
      const int nibble = static_cast<int>(e->number % 2);
      const Answer sent = makeAnswer(e->number, nibble != 0, 3, seed);
      const Bytes packed = packAnswer(sent.proc, sent.sections, 0, nibble << 4);
      const Bytes restored = restoreAnswer(packed).bytes;
      all.insert(all.end(), packed.begin(), packed.end());
      all.insert(all.end(), restored.begin(), restored.end());
    }
    return all;
  };
  const Bytes expected = work(5);
  std::vector<Bytes> results(4);
  std::vector<std::thread> threads;
  for (Bytes& r : results) threads.emplace_back([&r, &work] { r = work(5); });
  for (std::thread& t : threads) t.join();
  for (const Bytes& r : results) EXPECT_TRUE(r == expected);
}

}  // namespace
