// What packing promises its caller: the packed size never exceeds the bound, nothing is written
// past the output the caller sized, a reused (dirty) buffer packs the same bytes as a fresh one,
// and every bad argument gets a documented refusal. (The adversarial corpus freezes what
// unterminated texts pack to: each is measured to the end of its own record.)
#include <gtest/gtest.h>

#include "frame/catalogue.h"
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

Packed packRequestInto(tagREQ_HEAD head, Bytes body, std::size_t size, unsigned char fill = 0,
                       char flag = 0) {
  Output out(size, fill);
  Packed p;
  p.result = CTrdCompData::PackReq2008Ex(out.data(), static_cast<int>(size), p.length, &head,
                                         reinterpret_cast<char*>(body.data()),
                                         static_cast<int>(body.size()), flag, &p.reason);
  p.guardIntact = out.guardIntact();
  p.bytes.assign(out.bytes.begin(), out.bytes.begin() + std::max(p.length, 0));
  return p;
}

Packed packAnswerInto(tagANS_Proc proc, std::vector<Bytes> sections, std::size_t size, int codecSel,
                      unsigned char fill = 0, char flag = 0) {
  Output out(size, fill);
  // Bytes 8 to 19 of an answer header are the caller's: a reused buffer has them zeroed.
  std::fill(out.bytes.begin() + 8, out.bytes.begin() + std::min<std::size_t>(20, size), 0);
  sections.resize(5);
  char* sec[5];
  for (int i = 0; i < 5; ++i)
    sec[i] = sections[i].empty() ? nullptr : reinterpret_cast<char*>(sections[i].data());
  Packed p;
  p.result =
      CTrdCompData::PackAns2008Ex(out.data(), static_cast<int>(size), p.length, &proc, sec[0],
                                  sec[1], sec[2], sec[3], sec[4], flag, codecSel, &p.reason);
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
      putI32Raw(record + f.countOffset, 0x7FFFFFFF);
}

TEST(PackContract, NeverBeyondTheBoundNorTheOutput) {
  // Every number, both codecs, every flag, samples and worst-case records: the packed length
  // stays within the bound; a reused output of exactly the packed length takes the same bytes;
  // one byte less is refused without a byte written past it.
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
          const long long requestBound =
              CTrdCompData::PackReqBound(&request.head, static_cast<int>(request.body.size()));
          const Packed r = packRequestInto(request.head, request.body,
                                           static_cast<std::size_t>(requestBound), 0, flag);
          ASSERT_EQ(r.result, 1) << CTrdCompData::ErrorName(r.reason);
          ASSERT_LE(r.length, requestBound);
          ASSERT_TRUE(r.guardIntact);
          // A reused (dirty) output of exactly the packed length takes the same bytes: the 2011
          // block lengths are stored, not added to what the buffer holds.
          const Packed tight =
              packRequestInto(request.head, request.body, r.bytes.size(), 0xA7, flag);
          ASSERT_EQ(tight.bytes, r.bytes);
          if (r.length > 76) {
            const Packed small =
                packRequestInto(request.head, request.body, r.bytes.size() - 1, 0, flag);
            ASSERT_EQ(small.result, 0);
            ASSERT_EQ(small.reason, TRDCOMP_ERROR_OUTPUT_TOO_SMALL);
            ASSERT_TRUE(small.guardIntact);
          }

          const long long answerBound = CTrdCompData::PackAnsBound(&answer.proc, nibble << 4);
          const Packed a =
              packAnswerInto(answer.proc, answer.sections, static_cast<std::size_t>(answerBound),
                             nibble << 4, 0, flag);
          ASSERT_EQ(a.result, 1) << CTrdCompData::ErrorName(a.reason);
          ASSERT_LE(a.length, answerBound);
          ASSERT_TRUE(a.guardIntact);
          const Packed reused =
              packAnswerInto(answer.proc, answer.sections, a.bytes.size(), nibble << 4, 0xA7, flag);
          ASSERT_EQ(reused.bytes, a.bytes);
          if (a.length > 96) {
            const Packed small = packAnswerInto(answer.proc, answer.sections, a.bytes.size() - 1,
                                                nibble << 4, 0, flag);
            ASSERT_EQ(small.reason, TRDCOMP_ERROR_OUTPUT_TOO_SMALL);
            ASSERT_TRUE(small.guardIntact);
          }
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
    Output out(static_cast<std::size_t>(c.outSize), 0);
    int length = -1, reason = -1;
    const int result = CTrdCompData::PackReq2008Ex(
        out.data(), c.outSize, length, &head,
        c.nullBody ? nullptr : reinterpret_cast<char*>(body.data()), c.bodyLen, 0, &reason);
    EXPECT_EQ(reason, c.reason) << c.name;
    EXPECT_EQ(result, c.reason == TRDCOMP_OK) << c.name;
    EXPECT_EQ(length == 0, c.reason != TRDCOMP_OK) << c.name;
    EXPECT_TRUE(out.guardIntact()) << c.name;
    // The classic entry point refuses the same calls (where the caller sized by the bound).
    if (c.outSize == 4096) {
      int classic = -1;
      EXPECT_EQ(CTrdCompData::PackReq2008(
                    out.data(), classic, &head,
                    c.nullBody ? nullptr : reinterpret_cast<char*>(body.data()), c.bodyLen, 0),
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
    Output out(static_cast<std::size_t>(c.outSize), 0);
    int length = -1, reason = -1;
    char* sec = c.nullSection ? nullptr : reinterpret_cast<char*>(s0.data());
    const int result =
        CTrdCompData::PackAns2008Ex(out.data(), c.outSize, length, &proc, sec, nullptr, nullptr,
                                    nullptr, nullptr, 0, 0, &reason);
    EXPECT_EQ(reason, c.reason) << c.name;
    EXPECT_EQ(result, c.reason == TRDCOMP_OK) << c.name;
    EXPECT_TRUE(out.guardIntact()) << c.name;
    // The classic entry point tells the same by its length alone, and returns 0 either way.
    Output classicOut(static_cast<std::size_t>(c.outSize), 0);
    int classic = -1;
    EXPECT_EQ(CTrdCompData::PackAns2008(classicOut.data(), c.outSize, classic, &proc, sec, nullptr,
                                        nullptr, nullptr, nullptr, 0, 0),
              0);
    EXPECT_EQ(classic == 0, c.reason != TRDCOMP_OK) << c.name;
    EXPECT_TRUE(classicOut.guardIntact()) << c.name;
  }
  int length = -1;
  EXPECT_EQ(CTrdCompData::PackReqBound(nullptr, 0), -1);
  EXPECT_EQ(CTrdCompData::PackAnsBound(nullptr, 0), -1);
  EXPECT_EQ(CTrdCompData::PackReq2008Ex(nullptr, 100, length, nullptr, nullptr, 0, 0), 0);
}

}  // namespace
