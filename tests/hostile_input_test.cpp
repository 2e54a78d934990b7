// Restoring what arrives from the network: cut, corrupted and lying messages are read only
// inside the bytes handed in (the sanitizer build checks every access) and oversized claims are
// refused. Well-formed results are covered by the round trips.
#include <gtest/gtest.h>

#include <random>

#include "frame/catalogue.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

// Restores `in` as a request and as an answer, directly and through the raw fallback; only the
// absence of faults matters, so the (possibly huge, mostly untouched) results are not read.
void restoreEveryWay(Bytes in) {
  for (auto restore : {CTrdCompData::RestoreReq2008, CTrdCompData::RestoreAns2008}) {
    for (std::uint32_t number : {0u, 1022u}) {
      if (number && in.size() >= 8) putI32(in, 4, static_cast<std::int32_t>(number));
      char* out = nullptr;
      int length = 0;
      restore(reinterpret_cast<char*>(in.data()), static_cast<int>(in.size()), &out, length, 0);
      CTrdCompData::ReleaseAnsData(out);
    }
  }
}

// Packed samples of a request and an answer (every section) in a codec.
std::vector<Bytes> samples(std::uint32_t number, int nibble) {
  auto request = trdcomp::samples::makeRequest(number, nibble, 3, number);
  auto answer = trdcomp::samples::makeAnswer(number, nibble, 2, number);
  return {packRequest(request.head, request.body),
          packAnswer(answer.proc, answer.sections, 0, nibble << 4)};
}

TEST(HostileInput, TruncatedAndCorruptedMessagesOfEveryNumber) {
  std::mt19937 rng(20261121);
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      for (const Bytes& packed : samples(e->number, nibble)) {
        for (std::size_t cut = 1; cut < packed.size(); cut += 1 + packed.size() / 40)
          restoreEveryWay(Bytes(packed.begin(), packed.begin() + static_cast<long>(cut)));
        for (int round = 0; round < 20; ++round) {
          Bytes damaged = packed;
          for (int k = 0; k < 4; ++k)
            damaged[rng() % damaged.size()] = static_cast<unsigned char>(rng());
          restoreEveryWay(damaged);
        }
      }
    }
  }
}

TEST(HostileInput, LyingLengthsAndOffsets) {
  // Header length, a record size, a table size, a record length: each told as a lie, in packed
  // and in raw bodies.
  const std::vector<Bytes> messages = {samples(1010, 0)[0], samples(1002, 0)[1],
                                       samples(1002, 1)[1]};
  for (const Bytes& packed : messages) {
    for (std::int32_t lie : {-1, -76, 0x7FFFFFFF, INT32_MIN, 100000}) {
      for (std::size_t at : {0, 72, 76, 96, 104, 124}) {
        Bytes damaged = packed;
        putI32(damaged, at, lie);
        restoreEveryWay(damaged);
        damaged[8] ^= 1;
        restoreEveryWay(damaged);
      }
    }
  }
}

TEST(HostileInput, CountsWhoseRestoredSizeDoesNotFitAreRefused) {
  // Request 1002 (83-byte records), answer 1009 (40 bytes) and a raw answer of 1000-byte records.
  for (auto [count, result] : {std::pair{0x7FFFFFFF, 0}, {60000000, 0}, {-1, 0}, {1000, 1}}) {
    SCOPED_TRACE(count);
    Bytes request(76, 0), answer(96, 0);
    putI32(request, 0, 76), putI32(request, 4, 1002), putI32(request, 68, count);
    request[8] = 1;
    EXPECT_EQ(restoreRequest(request).result, result);
    putI32(answer, 0, 96), putI32(answer, 4, 1009), putI32(answer, 88, count);
    answer[8] = 1;
    EXPECT_EQ(restoreAnswer(answer).result, result);
    putI32(answer, 4, 1022), putI32(answer, 92, 1000);
    answer[8] = 0;
    EXPECT_EQ(restoreAnswer(answer).result, result);
  }
}

}  // namespace
