// What packing promises its caller: the packed size never exceeds the bound, nothing is written
// past the output the caller sized, a reused (dirty) buffer packs the same bytes as a fresh one,
// and every bad argument gets a documented refusal. (The adversarial corpus freezes what
// unterminated texts pack to: each is measured to the end of its own record.)
#include <gtest/gtest.h>

#include "frame/catalogue.h"
#include "primitives/bytes.h"
#include "test_util.h"

using namespace trdcomp::test;

namespace {

constexpr unsigned char kCanary = 0xC5;

// An output of `size` bytes followed by a guard zone, filled with `fill`.
struct Output {
  Bytes bytes;
  std::size_t size;
  Output(std::size_t n, unsigned char fill) : bytes(n + 64, fill), size(n) {
    std::fill(bytes.begin() + static_cast<long>(n), bytes.end(), kCanary);
  }
  char* data() { return reinterpret_cast<char*>(bytes.data()); }
  bool guardIntact() const {
    return std::all_of(bytes.begin() + static_cast<long>(size), bytes.end(),
                       [](unsigned char b) { return b == kCanary; });
  }
};

struct Packed {
  int result = -1, reason = -1, length = -1;
  Bytes bytes;
  bool guardIntact = false;
};

// `pack(out, outSize, outLen, reason)` into an output of `size` bytes filled with `fill`. Bytes 8
// to 19 of an answer header are the caller's: a reused buffer has them zeroed.
template <class Pack>
Packed packInto(Pack pack, std::size_t size, unsigned char fill, bool answer) {
  Output out(size, fill);
  if (answer)
    std::fill(out.bytes.begin() + 8, out.bytes.begin() + std::min<std::size_t>(20, size), 0);
  Packed p;
  p.result = pack(out.data(), static_cast<int>(size), p.length, &p.reason);
  p.guardIntact = out.guardIntact();
  p.bytes.assign(out.bytes.begin(), out.bytes.begin() + std::max(p.length, 0));
  return p;
}

// Records that make packing write the most: texts without terminators (measured to the end of
// their record), negative or wide integers, full blocks; group and block counts at their most.
void fillWorst(const trdcomp::records::Layout& layout, unsigned char* record, unsigned char byte) {
  std::memset(record, byte, layout.size);
  for (const trdcomp::records::Field& f : layout)
    if (f.kind == trdcomp::records::Kind::Group || f.kind == trdcomp::records::Kind::CountedBlock)
      trdcomp::storeI32(record + f.countOffset, 0x7FFFFFFF);
}

// Within the bound and the output; a reused (dirty) output of exactly the packed length takes
// the same bytes (the 2011 block lengths are stored, not added to what the buffer holds); one
// byte less is refused without a byte written past it.
template <class Pack>
void checkContract(Pack pack, long long bound, bool answer) {
  const Packed p = packInto(pack, static_cast<std::size_t>(bound), 0, answer);
  ASSERT_EQ(p.result, 1) << CTrdCompData::ErrorName(p.reason);
  ASSERT_LE(p.length, bound);
  ASSERT_TRUE(p.guardIntact);
  ASSERT_EQ(packInto(pack, p.bytes.size(), 0xA7, answer).bytes, p.bytes);
  if (p.length > (answer ? 96 : 76)) {
    const Packed small = packInto(pack, p.bytes.size() - 1, 0, answer);
    ASSERT_EQ(small.result, 0);
    ASSERT_EQ(small.reason, TRDCOMP_ERROR_OUTPUT_TOO_SMALL);
    ASSERT_TRUE(small.guardIntact);
  }
}

TEST(PackContract, NeverBeyondTheBoundNorTheOutput) {
  // Every number, both codecs, every flag, samples and worst-case records.
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      for (char flag : {0, 1, 2}) {
        SCOPED_TRACE(std::to_string(e->number) + " nibble " + std::to_string(nibble) + " flag " +
                     std::to_string(int(flag)));
        for (unsigned char worst : {0, 0xFF, 0x7F}) {
          auto request = trdcomp::samples::makeRequest(e->number, nibble, 3, e->number);
          auto answer = trdcomp::samples::makeAnswer(e->number, nibble, 3, e->number);
          if (worst) {
            if (const auto* l = e->request[nibble])
              for (int i = 0; i < 3; ++i) fillWorst(*l, &request.body[i * l->size], worst);
            if (e->answerForm == trdcomp::frame::AnswerForm::Routine) {
              const auto& a = *e->answerPack[nibble];
              for (int s = 0; s < a.sectionCount; ++s) {
                answer.proc.recSize[s] = static_cast<std::int32_t>(a.sections[s]->size);
                answer.sections[s].assign(3 * a.sections[s]->size, 0);
                for (int i = 0; i < 3; ++i)
                  fillWorst(*a.sections[s], &answer.sections[s][i * a.sections[s]->size], worst);
              }
            }
          }
          char* body = reinterpret_cast<char*>(request.body.data());
          const int bodyLen = static_cast<int>(request.body.size());
          checkContract(
              [&](char* out, int size, int& length, int* reason) {
                return CTrdCompData::PackReq2008Ex(out, size, length, &request.head, body, bodyLen,
                                                   flag, reason);
              },
              CTrdCompData::PackReqBound(&request.head, bodyLen), false);
          char* s[5];
          for (int k = 0; k < 5; ++k)
            s[k] = answer.sections[k].empty() ? nullptr
                                              : reinterpret_cast<char*>(answer.sections[k].data());
          checkContract(
              [&](char* out, int size, int& length, int* reason) {
                return CTrdCompData::PackAns2008Ex(out, size, length, &answer.proc, s[0], s[1],
                                                   s[2], s[3], s[4], flag, nibble << 4, reason);
              },
              CTrdCompData::PackAnsBound(&answer.proc, nibble << 4), true);
        }
      }
    }
  }
}

TEST(PackContract, BadArgumentsAreRefusedWithTheirReason) {
  Bytes body(3 * 83, 'x');
  struct RequestCase {
    const char* name;
    std::uint32_t number;
    std::int32_t count, size;
    int bodyLen;
    bool nullBody;
    int outSize, reason;
  } requests[] = {
      {"a whole body", 1002, 3, 83, 249, false, 4096, TRDCOMP_OK},
      {"negative body length", 1002, 3, 83, -1, false, 4096, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"null body with bytes", 1002, 3, 83, 249, true, 4096, TRDCOMP_ERROR_NULL_ARGUMENT},
      {"null body, unknown number", 1022, 3, 83, 249, true, 4096, TRDCOMP_ERROR_NULL_ARGUMENT},
      {"count beyond the body", 1002, 4, 83, 249, false, 4096, TRDCOMP_ERROR_BODY_TOO_SHORT},
      {"count in the millions", 1002, 3000000, 83, 249, false, 4096, TRDCOMP_ERROR_BODY_TOO_SHORT},
      {"negative record size", 1002, 3, -83, 249, false, 4096, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"packed size past 2^31", 1002, 100000000, 0, 249, false, 4096, TRDCOMP_ERROR_TOO_LARGE},
      {"output below the header", 1002, 3, 83, 249, false, 75, TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
      {"output below the body", 1002, 3, 83, 249, false, 100, TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
      {"unknown number passes through", 1022, 3, 83, 249, false, 325, TRDCOMP_OK},
      {"pass-through one byte short", 1022, 3, 83, 249, false, 324, TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
  };
  for (const RequestCase& c : requests) {
    tagREQ_HEAD head = requestHead(c.number, c.count, c.size);
    char* b = c.nullBody ? nullptr : reinterpret_cast<char*>(body.data());
    const Packed p = packInto(
        [&](char* out, int size, int& length, int* reason) {
          return CTrdCompData::PackReq2008Ex(out, size, length, &head, b, c.bodyLen, 0, reason);
        },
        static_cast<std::size_t>(c.outSize), 0, false);
    EXPECT_EQ(p.reason, c.reason) << c.name;
    EXPECT_EQ(p.result, c.reason == TRDCOMP_OK) << c.name;
    EXPECT_EQ(p.length == 0, c.reason != TRDCOMP_OK) << c.name;
    EXPECT_TRUE(p.guardIntact) << c.name;
    // The classic entry point refuses the same calls (where the caller sized by the bound).
    if (c.outSize == 4096) {
      Bytes out(4096);
      int classic = -1;
      EXPECT_EQ(CTrdCompData::PackReq2008(reinterpret_cast<char*>(out.data()), classic, &head, b,
                                          c.bodyLen, 0),
                c.reason == TRDCOMP_OK)
          << c.name;
    }
  }

  Bytes s0(2 * 40, 'y');
  struct AnswerCase {
    const char* name;
    std::uint32_t number;
    std::int32_t sections, count, size;
    bool nullSection;
    int outSize, reason;
  } answers[] = {
      {"a whole answer", 1009, 1, 2, 40, false, 4096, TRDCOMP_OK},
      {"negative record size", 1009, 1, 2, -40, false, 4096, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"null section with records", 1009, 1, 2, 40, true, 4096, TRDCOMP_ERROR_NULL_ARGUMENT},
      {"section count past 2^28", 1009, 0x10000000, 2, 40, false, 4096, TRDCOMP_ERROR_TOO_LARGE},
      {"a table larger than the output", 1009, 1000, 2, 40, false, 4096,
       TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
      {"output below the header", 1009, 1, 2, 40, false, 95, TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
      {"unknown number, raw sections", 1022, 1, 2, 40, false, 176, TRDCOMP_OK},
      {"unknown number, one byte short", 1022, 1, 2, 40, false, 175,
       TRDCOMP_ERROR_OUTPUT_TOO_SMALL},
      {"unknown number, negative count", 1022, 1, -2, -40, false, 4096,
       TRDCOMP_ERROR_NEGATIVE_SIZE},
  };
  for (const AnswerCase& c : answers) {
    tagANS_Proc proc = answerProc(c.number, {{c.count, c.size}});
    proc.sectionCount = c.sections;
    char* sec = c.nullSection ? nullptr : reinterpret_cast<char*>(s0.data());
    // The classic entry point tells the same by its length alone, and returns 0 either way.
    for (bool classic : {false, true}) {
      const Packed p = packInto(
          [&](char* out, int size, int& length, int* reason) {
            if (classic)
              return CTrdCompData::PackAns2008(out, size, length, &proc, sec, nullptr, nullptr,
                                               nullptr, nullptr, 0, 0);
            return CTrdCompData::PackAns2008Ex(out, size, length, &proc, sec, nullptr, nullptr,
                                               nullptr, nullptr, 0, 0, reason);
          },
          static_cast<std::size_t>(c.outSize), 0, true);
      if (!classic) {
        EXPECT_EQ(p.reason, c.reason) << c.name;
      }
      EXPECT_EQ(p.result, !classic && c.reason == TRDCOMP_OK) << c.name;
      EXPECT_EQ(p.length == 0, c.reason != TRDCOMP_OK) << c.name;
      EXPECT_TRUE(p.guardIntact) << c.name;
    }
  }
  int length = -1;
  EXPECT_EQ(CTrdCompData::PackReqBound(nullptr, 0), -1);
  EXPECT_EQ(CTrdCompData::PackAnsBound(nullptr, 0), -1);
  EXPECT_EQ(CTrdCompData::PackReq2008Ex(nullptr, 100, length, nullptr, nullptr, 0, 0), 0);
}

}  // namespace
