// Restoring what arrives from the network: cut, corrupted and lying messages are read only
// inside the bytes handed in (the sanitizer build checks every access) and oversized claims are
// refused. Well-formed results are covered by the round trips.
#include <gtest/gtest.h>

#include <random>

#include "frame/catalogue.h"
#include "samples.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

// Restores `in` as a request and as an answer; only the absence of faults matters here, so
// the (possibly huge, mostly untouched) results are released without being read.
void restoreBoth(Bytes in) {
  char* out = nullptr;
  int length = 0;
  char* data = reinterpret_cast<char*>(in.data());
  const int size = static_cast<int>(in.size());
  CTrdCompData::RestoreReq2008(data, size, &out, length, 0);
  CTrdCompData::ReleaseAnsData(out);
  out = nullptr;
  CTrdCompData::RestoreAns2008(data, size, &out, length, 0);
  CTrdCompData::ReleaseAnsData(out);
}

TEST(HostileInput, TruncatedAndCorruptedMessagesOfEveryNumber) {
  std::mt19937 rng(20261121);
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      SCOPED_TRACE(e->number * 10 + nibble);
      auto request = trdcomp::samples::makeRequest(e->number, nibble, 3, e->number);
      Bytes packedRequest =
          packRequest(request.head, Bytes(request.body.begin(), request.body.end()));
      auto answer = trdcomp::samples::makeAnswer(e->number, nibble, 2, e->number);
      std::vector<Bytes> sections;
      for (auto& s : answer.sections) sections.emplace_back(s.begin(), s.end());
      Bytes packedAnswer = packAnswer(answer.proc, sections, 0, nibble << 4);
      for (const Bytes& packed : {packedRequest, packedAnswer}) {
        for (std::size_t cut = 1; cut < packed.size(); cut += 1 + packed.size() / 40)
          restoreBoth(Bytes(packed.begin(), packed.begin() + static_cast<long>(cut)));
        for (int round = 0; round < 20; ++round) {
          Bytes damaged = packed;
          for (int k = 0; k < 4; ++k)
            damaged[std::uniform_int_distribution<std::size_t>(0, damaged.size() - 1)(rng)] =
                static_cast<unsigned char>(rng());
          restoreBoth(damaged);
        }
      }
    }
  }
}

TEST(HostileInput, LyingLengthsAndOffsets) {
  auto request = trdcomp::samples::makeRequest(1010, 0, 2, 1);
  Bytes packed = packRequest(request.head, Bytes(request.body.begin(), request.body.end()));
  const std::int32_t lies[] = {-1, -76, 0x7FFFFFFF, INT32_MIN, 100000};
  for (std::int32_t lie : lies) {
    for (std::size_t at : {std::size_t{0}, std::size_t{72}, std::size_t{76}}) {
      Bytes damaged = packed;
      putI32(damaged, at, lie);  // header length, sender record size, first record length
      restoreBoth(damaged);
      damaged[8] &= static_cast<unsigned char>(~1u);  // the same claims for a raw body
      restoreBoth(damaged);
    }
  }
  auto answer = trdcomp::samples::makeAnswer(1002, false, 2, 1);
  std::vector<Bytes> sections;
  for (auto& s : answer.sections) sections.emplace_back(s.begin(), s.end());
  Bytes packedAnswer = packAnswer(answer.proc, sections);
  for (std::int32_t lie : lies) {
    for (std::size_t at : {std::size_t{0}, std::size_t{96}, std::size_t{104}, std::size_t{124}}) {
      Bytes damaged = packedAnswer;
      putI32(damaged, at, lie);  // header length, table size, a sender size, a record length
      restoreBoth(damaged);
      damaged[8] &= static_cast<unsigned char>(~1u);
      restoreBoth(damaged);
      putI32(damaged, 4, 1022);  // the same through the raw fallback
      restoreBoth(damaged);
    }
  }
}

TEST(HostileInput, CountsWhoseRestoredSizeDoesNotFitAreRefused) {
  // Request 1002 (83-byte records), answer 1009 (40 bytes) and a raw answer of 1000-byte records.
  struct Case {
    std::int32_t count;
    int result;
  } cases[] = {{0x7FFFFFFF, 0}, {60000000, 0}, {-1, 0}, {1000, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.count);
    Bytes request(76, 0);
    putI32(request, 0, 76), putI32(request, 4, 1002), putI32(request, 68, c.count);
    request[8] = 1;
    EXPECT_EQ(restoreRequest(request).result, c.result);

    Bytes answer(96, 0);
    putI32(answer, 0, 96), putI32(answer, 4, 1009), putI32(answer, 88, c.count);
    answer[8] = 1;
    EXPECT_EQ(restoreAnswer(answer).result, c.result);
    putI32(answer, 4, 1022), putI32(answer, 92, 1000);
    answer[8] = 0;
    EXPECT_EQ(restoreAnswer(answer).result, c.result);
  }
}

}  // namespace
