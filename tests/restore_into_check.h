// The restore into the caller's buffer against the allocating restore, on the same bytes: shared
// by the tests of sample messages and of the adversarial corpus.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "TrdCompData.h"

namespace trdcomp::test {

// "" when RestoreReq2008Into / RestoreAns2008Into and RestoreReqLength / RestoreAnsLength agree
// with the allocating restore of `message`, else what differs. A message the allocating restore
// takes restores into a buffer of exactly its announced length, dirty beforehand, to the same
// bytes, and one byte less is refused before anything is written. A refused message is refused
// for the same reason (with a buffer as large as the allocating restore's, which a 2011 count
// mismatch leaves behind), and its length is -1 unless only its records show the refusal. Guard
// bytes behind `outSize` catch a write past it. Messages claiming more than `largest` bytes are
// checked by their length only.
inline std::string checkInto(bool answer, const std::vector<unsigned char>& message, char flag,
                             long long largest = 16 << 20) {
  constexpr std::size_t kGuard = 64;
  constexpr char kDirty = static_cast<char>(0xCD);
  std::vector<char> in(message.begin(), message.end());  // exact size: a read past it is caught
  char* data = in.empty() ? nullptr : in.data();
  const int inLen = static_cast<int>(in.size());
  const auto classic = [&](char** out, int& outLen, int* reason) {
    *out = nullptr;
    if (reason)
      return answer ? CTrdCompData::RestoreAns2008Ex(data, inLen, out, outLen, flag, -1, reason)
                    : CTrdCompData::RestoreReq2008Ex(data, inLen, out, outLen, flag, -1, reason);
    return answer ? CTrdCompData::RestoreAns2008(data, inLen, out, outLen, flag)
                  : CTrdCompData::RestoreReq2008(data, inLen, out, outLen, flag);
  };
  char* out = nullptr;
  int classicLen = 0, reason = -1, exLen = 0;
  const int result = classic(&out, classicLen, nullptr);
  const bool handedBack = out != nullptr;
  const bool kept = result == 1 && out && classicLen <= largest;
  const std::vector<char> restored(out, out + (kept ? classicLen : 0));
  CTrdCompData::ReleaseAnsData(out);
  classic(&out, exLen, &reason);
  CTrdCompData::ReleaseAnsData(out);
  const long long length = answer ? CTrdCompData::RestoreAnsLength(data, inLen)
                                  : CTrdCompData::RestoreReqLength(data, inLen);
  // What depends on memory is not compared: a failed allocation, the pass-through that reports
  // one as success.
  if (reason == TRDCOMP_ERROR_ALLOCATION || (result == 1 && !handedBack && classicLen > 0))
    return "";

  std::vector<char> buffer;
  int outLen = -1, why = -1;
  const auto into = [&](long long size) {
    buffer.assign(static_cast<std::size_t>(size) + kGuard, kDirty);
    outLen = -1, why = -1;
    return answer ? CTrdCompData::RestoreAns2008Into(data, inLen, buffer.data(),
                                                     static_cast<int>(size), outLen, flag, &why)
                  : CTrdCompData::RestoreReq2008Into(data, inLen, buffer.data(),
                                                     static_cast<int>(size), outLen, flag, &why);
  };
  const auto untouchedFrom = [&](long long size) {
    return std::all_of(buffer.begin() + size, buffer.end(), [&](char c) { return c == kDirty; });
  };
  const std::string lengths =
      " (length " + std::to_string(length) + ", restored " + std::to_string(classicLen) + ")";

  if (result == 1) {
    if (length != classicLen) return "length differs from the restored one" + lengths;
    if (length > largest) return "";
    if (into(length) != 1 || why != TRDCOMP_OK || outLen != classicLen)
      return "refused (" + std::to_string(why) + ") what the restore takes" + lengths;
    const auto differ = std::mismatch(restored.begin(), restored.end(), buffer.begin());
    if (differ.first != restored.end())
      return "byte " + std::to_string(differ.first - restored.begin()) + " differs" + lengths;
    if (!untouchedFrom(length)) return "wrote past the restored length" + lengths;
    if (length > 0 && (into(length - 1) != 0 || why != TRDCOMP_ERROR_OUTPUT_TOO_SMALL ||
                       outLen != 0 || !untouchedFrom(0)))
      return "one byte short: not refused before writing (" + std::to_string(why) + ")" + lengths;
    return "";
  }
  if (length != -1 && reason != TRDCOMP_ERROR_DICTIONARY_INDEX)
    return "a length for a message refused (" + std::to_string(reason) + ")" + lengths;
  const long long size = std::max<long long>({length, classicLen, 0});
  if (size > largest) return "";
  if (into(size) != 0 || why != reason || outLen != 0 || !untouchedFrom(size))
    return "refused for " + std::to_string(why) + ", the restore for " + std::to_string(reason) +
           lengths;
  return "";
}

}  // namespace trdcomp::test
