// Packs what a careless or hostile caller hands in: counts, record sizes and section counts are
// raw 32-bit values from the input (huge, zero, negative), the body is the rest of the input.
// The output is sized by the bound and filled with garbage: every pack must stay within it (and
// within a smaller output, when asked), and its result must restore without fault.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"

namespace {

std::int32_t i32(const std::uint8_t* p) {
  std::int32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

constexpr long long kMostOutput = 64 << 10;  // larger bounds are checked through a small output
constexpr unsigned char kGuard = 0xA5;

// Packs into `size` bytes (plus a guard that must stay untouched), then restores the result.
template <class Pack, class Restore>
void packAndRestore(long long bound, Pack pack, Restore restore) {
  const long long size = bound <= kMostOutput ? bound : 4096;
  std::vector<char> out(static_cast<std::size_t>(size) + 64, static_cast<char>(kGuard));
  int length = 0;
  const bool packed = pack(out.data(), static_cast<int>(size), length);
  for (std::size_t i = static_cast<std::size_t>(size); i < out.size(); ++i)
    if (static_cast<unsigned char>(out[i]) != kGuard) std::abort();  // written past the output
  if (!packed) return;
  if (length > bound || length > size) std::abort();
  char* restored = nullptr;
  int restoredLength = 0;
  restore(out.data(), length, &restored, restoredLength);
  CTrdCompData::ReleaseAnsData(restored);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 20) return 0;
  const std::size_t entries =
      static_cast<std::size_t>(trdcomp::frame::end() - trdcomp::frame::begin());
  const std::uint32_t number = trdcomp::frame::begin()[data[0] % entries].number;
  const int nibble = data[1] & 0x30;
  const char flag = static_cast<char>(data[1] & 3);
  const std::int32_t count = i32(data + 4), recordSize = i32(data + 8);
  const std::int32_t sectionCount = i32(data + 12);
  const int bodyLen = static_cast<int>(size - 20);
  std::vector<char> body(data + 20, data + size);
  char* b = body.data();

  tagREQ_HEAD head{};
  head.funcNo = number;
  head.flags = static_cast<char>(nibble | (data[2] & 0x0F));
  head.recCount = count;
  head.recSize = recordSize;
  const long long requestBound = CTrdCompData::PackReqBound(&head, bodyLen);
  packAndRestore(
      requestBound,
      [&](char* out, int outSize, int& length) {
        int reason = 0;
        return CTrdCompData::PackReq2008Ex(out, outSize, length, &head, b, bodyLen, flag,
                                           &reason) == 1;
      },
      [&](char* in, int inLen, char** out, int& outLen) {
        CTrdCompData::RestoreReq2008Ex(in, inLen, out, outLen, flag, 1 << 22);
      });

  // Answer sections share the body: a caller's arrays hold count x size bytes, so claims beyond
  // the body shrink to it, while huge counts of empty records and negative values stay.
  tagANS_Proc proc{};
  proc.funcNo = number;
  proc.sectionCount = sectionCount;
  for (int s = 0; s < 5; ++s) {
    std::int32_t c = s == 0 ? count : count / (s + 1), r = recordSize;
    if (c > 0 && r > 0 && static_cast<long long>(c) * r > bodyLen) c = bodyLen / r;
    proc.recCount[s] = c;
    proc.recSize[s] = r;
  }
  const int codecSel = data[3];
  const long long answerBound = CTrdCompData::PackAnsBound(&proc, codecSel);
  packAndRestore(
      answerBound,
      [&](char* out, int outSize, int& length) {
        std::memset(out, 0, outSize < 20 ? static_cast<std::size_t>(outSize) : 20);
        int reason = 0;
        return CTrdCompData::PackAns2008Ex(out, outSize, length, &proc, b, b, b, b, b, flag,
                                           codecSel, &reason) == 1;
      },
      [&](char* in, int inLen, char** out, int& outLen) {
        CTrdCompData::RestoreAns2008Ex(in, inLen, out, outLen, flag, 1 << 22);
      });
  return 0;
}
