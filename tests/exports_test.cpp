// Linked against the shared library: every exported per-function routine is reachable by its
// name and behaves as the entry point's route for its number, in both codecs.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "TrdCompData.h"

namespace {

using Bytes = std::vector<char>;
using PackReq = int (*)(char*, int&, char*, int, char);
using PackReqFast = int (*)(char*, int&, char*, int, int);
using PackAns = int (*)(char*, int&, tagANS_Proc*, char*, char*, char*, char*, char*, char);
using PackAnsFast = int (*)(char*, int&, tagANS_Proc*, char*, char*, char*, char*, char*, int);
using Restore = int (*)(char*, int, char**, int&, char);
using RestoreFast = int (*)(char*, int, char**, int&, int);

// The routines are private members. An explicit instantiation may name them, which lets one
// template hand their addresses to a friend function; nothing else in the tests needs this.
template <class Tag, typename Tag::type Member>
struct Expose {
  friend typename Tag::type address(Tag) { return Member; }
};
#define TRDCOMP_TAG(family, n, Type)   \
  struct family##_##n {                \
    using type = Type;                 \
    friend type address(family##_##n); \
  };                                   \
  template struct Expose<family##_##n, &CTrdCompData::family##_##n>;
#define TRDCOMP_REQUEST_TAGS(n)                 \
  TRDCOMP_TAG(PackReq2008, n, PackReq)          \
  TRDCOMP_TAG(RestoreReq2008, n, Restore)       \
  TRDCOMP_TAG(PackReq2011_Fast, n, PackReqFast) \
  TRDCOMP_TAG(RestoreReq2011_Fast, n, RestoreFast)
#define TRDCOMP_ANSWER_TAGS(n)                  \
  TRDCOMP_TAG(PackAns2008, n, PackAns)          \
  TRDCOMP_TAG(RestoreAns2008, n, Restore)       \
  TRDCOMP_TAG(PackAns2011_Fast, n, PackAnsFast) \
  TRDCOMP_TAG(RestoreAns2011_Fast, n, RestoreFast)
TRDCOMP_REQUEST_ROUTINES(TRDCOMP_REQUEST_TAGS)
TRDCOMP_ANSWER_ROUTINES(TRDCOMP_ANSWER_TAGS)

template <class Pack, class PackFast>
struct Routines {
  std::uint32_t number;
  Pack pack;
  Restore restore;
  PackFast packFast;
  RestoreFast restoreFast;
};
#define TRDCOMP_ROW(n, Req)                                              \
  {n, address(Pack##Req##2008_##n{}), address(Restore##Req##2008_##n{}), \
   address(Pack##Req##2011_Fast_##n{}), address(Restore##Req##2011_Fast_##n{})},
#define TRDCOMP_REQUEST_ROW(n) TRDCOMP_ROW(n, Req)
#define TRDCOMP_ANSWER_ROW(n) TRDCOMP_ROW(n, Ans)
const Routines<PackReq, PackReqFast> kRequests[] = {TRDCOMP_REQUEST_ROUTINES(TRDCOMP_REQUEST_ROW)};
const Routines<PackAns, PackAnsFast> kAnswers[] = {TRDCOMP_ANSWER_ROUTINES(TRDCOMP_ANSWER_ROW)};

constexpr int kRoom = 1 << 20;  // some layouts carry 32 KiB blocks in every record

Bytes randomBytes(std::size_t n, std::mt19937& rng) {
  Bytes b(n);
  for (char& c : b) c = static_cast<char>(rng() % 5 ? 'a' + rng() % 26 : 0);
  return b;
}

// The result, length and bytes of a restore, released.
Bytes restored(int result, char* out, int length) {
  Bytes b(out, out ? out + length : out);
  CTrdCompData::ReleaseAnsData(out);
  b.push_back(static_cast<char>(result));
  return b;
}

// Compares the packed bytes and the restored message of the routines with the entry point's.
template <class R, class PackBoth>
void compare(const R& r, int nibble, Restore entry, Bytes& viaEntry, int entryLen, int start,
             PackBoth packWithRoutine) {
  SCOPED_TRACE(testing::Message() << r.number << " nibble " << nibble);
  Bytes viaRoutine(kRoom, 0);
  std::memcpy(viaRoutine.data(), viaEntry.data(), static_cast<std::size_t>(start));
  int routineLen = start;
  EXPECT_EQ(packWithRoutine(viaRoutine.data(), routineLen), 1);
  if (r.number != 1000 && r.number != 1001) {  // the entry point packs these itself
    ASSERT_EQ(routineLen, entryLen);
    EXPECT_EQ(Bytes(viaRoutine.begin(), viaRoutine.begin() + entryLen),
              Bytes(viaEntry.begin(), viaEntry.begin() + entryLen));
  }
  char *a = nullptr, *b = nullptr;
  int lenA = 0, lenB = 0;
  const int resA = entry(viaEntry.data(), entryLen, &a, lenA, 0);
  const int resB = nibble ? r.restoreFast(viaEntry.data(), entryLen, &b, lenB, 1)
                          : r.restore(viaEntry.data(), entryLen, &b, lenB, 0);
  EXPECT_EQ(restored(resA, a, lenA), restored(resB, b, lenB));
}

TEST(ExportedRoutines, BehaveAsTheEntryPointsRoutes) {
  std::mt19937 rng(7);
  for (int nibble : {0, 1}) {
    for (const auto& r : kRequests) {
      tagREQ_HEAD head{};
      head.funcNo = r.number;
      head.flags = static_cast<char>(nibble << 4);
      head.recCount = 2;
      head.recSize = 400;
      Bytes body = randomBytes(800, rng), viaEntry(kRoom, 0);
      int entryLen = 0;
      CTrdCompData::PackReq2008(viaEntry.data(), entryLen, &head, body.data(), 800, 0);
      compare(r, nibble, CTrdCompData::RestoreReq2008, viaEntry, entryLen, 76,
              [&](char* o, int& n) {
                return nibble ? r.packFast(o, n, body.data(), 800, nibble)
                              : r.pack(o, n, body.data(), 800, 0);
              });
    }
    for (const auto& r : kAnswers) {
      tagANS_Proc proc{};
      proc.funcNo = r.number;
      proc.sectionCount = 3;
      std::vector<Bytes> s;
      for (int k = 0; k < 3; ++k) {
        proc.recCount[k] = 2, proc.recSize[k] = 300;
        s.push_back(randomBytes(600, rng));
      }
      Bytes viaEntry(kRoom, 0);
      int entryLen = 0;
      CTrdCompData::PackAns2008(viaEntry.data(), kRoom, entryLen, &proc, s[0].data(), s[1].data(),
                                s[2].data(), nullptr, nullptr, 0, nibble << 4);
      // The 2008 path writes the section table before calling the routine.
      const int start = nibble ? 96 : 96 + 28;
      compare(r, nibble, CTrdCompData::RestoreAns2008, viaEntry, entryLen, start,
              [&](char* o, int& n) {
                return nibble ? r.packFast(o, n, &proc, s[0].data(), s[1].data(), s[2].data(), 0, 0,
                                           nibble)
                              : r.pack(o, n, &proc, s[0].data(), s[1].data(), s[2].data(), 0, 0, 0);
              });
    }
  }
}

}  // namespace
