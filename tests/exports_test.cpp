// Linked against the shared library: every exported per-function routine is reachable by its
// name and behaves as the entry point's route for its number.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "TrdCompData.h"

namespace {

using Bytes = std::vector<char>;
using PackReq = int (*)(char*, int&, char*, int, char);
using RestoreReq = int (*)(char*, int, char**, int&, char);
using PackReqFast = int (*)(char*, int&, char*, int, int);
using RestoreReqFast = int (*)(char*, int, char**, int&, int);
using PackAns = int (*)(char*, int&, tagANS_Proc*, char*, char*, char*, char*, char*, char);
using RestoreAns = int (*)(char*, int, char**, int&, char);
using PackAnsFast = int (*)(char*, int&, tagANS_Proc*, char*, char*, char*, char*, char*, int);
using RestoreAnsFast = int (*)(char*, int, char**, int&, int);

// The routines are private members. An explicit instantiation may name them, which lets one
// template hand their addresses to a friend function; nothing else in the tests needs this.
template <class Tag, typename Tag::type Member>
struct Expose {
  friend typename Tag::type address(Tag) { return Member; }
};

#define TRDCOMP_TAG(family, n, Type)         \
  struct family##_##n##_tag {                \
    using type = Type;                       \
    friend type address(family##_##n##_tag); \
  };                                         \
  template struct Expose<family##_##n##_tag, &CTrdCompData::family##_##n>;
#define TRDCOMP_REQUEST_TAGS(n)                 \
  TRDCOMP_TAG(PackReq2008, n, PackReq)          \
  TRDCOMP_TAG(RestoreReq2008, n, RestoreReq)    \
  TRDCOMP_TAG(PackReq2011_Fast, n, PackReqFast) \
  TRDCOMP_TAG(RestoreReq2011_Fast, n, RestoreReqFast)
#define TRDCOMP_ANSWER_TAGS(n)                  \
  TRDCOMP_TAG(PackAns2008, n, PackAns)          \
  TRDCOMP_TAG(RestoreAns2008, n, RestoreAns)    \
  TRDCOMP_TAG(PackAns2011_Fast, n, PackAnsFast) \
  TRDCOMP_TAG(RestoreAns2011_Fast, n, RestoreAnsFast)
TRDCOMP_REQUEST_ROUTINES(TRDCOMP_REQUEST_TAGS)
TRDCOMP_ANSWER_ROUTINES(TRDCOMP_ANSWER_TAGS)

struct RequestRoutines {
  std::uint32_t number;
  PackReq pack;
  RestoreReq restore;
  PackReqFast packFast;
  RestoreReqFast restoreFast;
};
struct AnswerRoutines {
  std::uint32_t number;
  PackAns pack;
  RestoreAns restore;
  PackAnsFast packFast;
  RestoreAnsFast restoreFast;
};

#define TRDCOMP_REQUEST_ROW(n)                                               \
  {n, address(PackReq2008_##n##_tag{}), address(RestoreReq2008_##n##_tag{}), \
   address(PackReq2011_Fast_##n##_tag{}), address(RestoreReq2011_Fast_##n##_tag{})},
#define TRDCOMP_ANSWER_ROW(n)                                                \
  {n, address(PackAns2008_##n##_tag{}), address(RestoreAns2008_##n##_tag{}), \
   address(PackAns2011_Fast_##n##_tag{}), address(RestoreAns2011_Fast_##n##_tag{})},
const RequestRoutines kRequests[] = {TRDCOMP_REQUEST_ROUTINES(TRDCOMP_REQUEST_ROW)};
const AnswerRoutines kAnswers[] = {TRDCOMP_ANSWER_ROUTINES(TRDCOMP_ANSWER_ROW)};

// Room for any packed sample: some layouts carry 32 KiB blocks in every record.
constexpr int kRoom = 1 << 20;

Bytes randomBytes(std::size_t n, std::mt19937& rng) {
  Bytes b(n);
  for (char& c : b) c = static_cast<char>(rng() % 5 ? 'a' + rng() % 26 : 0);
  return b;
}

Bytes restored(int result, char* out, int length) {
  Bytes b;
  if (out) b.assign(out, out + length);
  CTrdCompData::ReleaseAnsData(out);
  b.push_back(static_cast<char>(result));
  return b;
}

TEST(ExportedRoutines, RequestRoutinesBehaveAsTheirRoute) {
  std::mt19937 rng(7);
  for (const RequestRoutines& r : kRequests) {
    SCOPED_TRACE(r.number);
    for (int nibble : {0, 1}) {
      tagREQ_HEAD head{};
      head.funcNo = r.number;
      head.flags = static_cast<char>(nibble << 4);
      head.recCount = 2;
      head.recSize = 400;
      Bytes body = randomBytes(800, rng), viaEntry(kRoom, 0), viaRoutine(kRoom, 0);
      int entryLen = 0, routineLen = 76;
      CTrdCompData::PackReq2008(viaEntry.data(), entryLen, &head, body.data(), 800, 0);
      std::memcpy(viaRoutine.data(), viaEntry.data(), 76);
      viaRoutine[8] = head.flags;
      if (nibble == 0)
        EXPECT_EQ(r.pack(viaRoutine.data(), routineLen, body.data(), 800, 0), 1);
      else
        EXPECT_EQ(r.packFast(viaRoutine.data(), routineLen, body.data(), 800, nibble), 1);
      if (r.number == 1000 || r.number == 1001) continue;  // the entry point packs these itself
      ASSERT_EQ(routineLen, entryLen);
      EXPECT_EQ(Bytes(viaRoutine.begin(), viaRoutine.begin() + entryLen),
                Bytes(viaEntry.begin(), viaEntry.begin() + entryLen));

      char *a = nullptr, *b = nullptr;
      int lenA = 0, lenB = 0;
      int resA = CTrdCompData::RestoreReq2008(viaEntry.data(), entryLen, &a, lenA, 0);
      int resB = nibble ? r.restoreFast(viaEntry.data(), entryLen, &b, lenB, nibble)
                        : r.restore(viaEntry.data(), entryLen, &b, lenB, 0);
      EXPECT_EQ(restored(resA, a, lenA), restored(resB, b, lenB));
    }
  }
}

TEST(ExportedRoutines, AnswerRoutinesBehaveAsTheirRoute) {
  std::mt19937 rng(11);
  for (const AnswerRoutines& r : kAnswers) {
    SCOPED_TRACE(r.number);
    for (int nibble : {0, 1}) {
      tagANS_Proc proc{};
      proc.funcNo = r.number;
      proc.sectionCount = 3;
      Bytes sections[3];
      for (int s = 0; s < 3; ++s) {
        proc.recCount[s] = 2;
        proc.recSize[s] = 300;
        sections[s] = randomBytes(600, rng);
      }
      Bytes viaEntry(kRoom, 0), viaRoutine(kRoom, 0);
      int entryLen = 0;
      CTrdCompData::PackAns2008(viaEntry.data(), kRoom, entryLen, &proc, sections[0].data(),
                                sections[1].data(), sections[2].data(), nullptr, nullptr, 0,
                                nibble << 4);
      int routineLen = nibble ? 96 : 96 + 28;  // the 2008 path writes the table first
      std::memcpy(viaRoutine.data(), viaEntry.data(), static_cast<std::size_t>(routineLen));
      if (nibble == 0)
        EXPECT_EQ(r.pack(viaRoutine.data(), routineLen, &proc, sections[0].data(),
                         sections[1].data(), sections[2].data(), nullptr, nullptr, 0),
                  1);
      else
        EXPECT_EQ(r.packFast(viaRoutine.data(), routineLen, &proc, sections[0].data(),
                             sections[1].data(), sections[2].data(), nullptr, nullptr, nibble),
                  1);
      ASSERT_EQ(routineLen, entryLen);
      EXPECT_EQ(Bytes(viaRoutine.begin(), viaRoutine.begin() + entryLen),
                Bytes(viaEntry.begin(), viaEntry.begin() + entryLen));

      char *a = nullptr, *b = nullptr;
      int lenA = 0, lenB = 0;
      int resA = CTrdCompData::RestoreAns2008(viaEntry.data(), entryLen, &a, lenA, 0);
      int resB = nibble ? r.restoreFast(viaEntry.data(), entryLen, &b, lenB, 1)
                        : r.restore(viaEntry.data(), entryLen, &b, lenB, 0);
      EXPECT_EQ(restored(resA, a, lenA), restored(resB, b, lenB));
    }
  }
}

}  // namespace
