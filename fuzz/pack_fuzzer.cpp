// Packs arbitrary caller records with every routine, then restores the result. The first bytes
// choose the function number, codec, counts and record sizes; the rest is the body, which the
// packers must never read past (the address sanitizer checks it).
#include <cstdint>
#include <cstring>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  const std::size_t entries =
      static_cast<std::size_t>(trdcomp::frame::end() - trdcomp::frame::begin());
  const std::uint32_t number = trdcomp::frame::begin()[data[0] % entries].number;
  const int nibble = data[1] & 0x30;
  const int count = data[2] % 9;
  const int stride = 1 + data[3] * 3;
  std::vector<char> body(data + 4, data + size);
  // Room for any 8 records, 32 KiB blocks included; zero where blocks go, as packers need.
  static std::vector<char> out(8 << 20, 0);

  tagREQ_HEAD head{};
  head.funcNo = number;
  head.flags = static_cast<char>(nibble);
  head.recCount = count;
  head.recSize = stride;
  int length = 0;
  CTrdCompData::PackReq2008(out.data(), length, &head, body.data(), static_cast<int>(body.size()),
                            static_cast<char>(data[1] & 1));
  char* restored = nullptr;
  int restoredLength = 0;
  CTrdCompData::RestoreReq2008(out.data(), length, &restored, restoredLength, data[1] & 1);
  CTrdCompData::ReleaseAnsData(restored);

  // An answer whose sections share the body: each holds `count` records of `stride` bytes.
  const int records = body.size() >= static_cast<std::size_t>(count) * stride ? count : 0;
  tagANS_Proc proc{};
  proc.funcNo = number;
  proc.sectionCount = 1 + data[2] / 64;
  for (int s = 0; s < 5; ++s) proc.recCount[s] = records, proc.recSize[s] = stride;
  std::fill(out.begin(), out.begin() + length, 0);
  char* b = body.data();
  CTrdCompData::PackAns2008(out.data(), static_cast<int>(out.size()), length, &proc, b, b, b, b, b,
                            static_cast<char>(data[1] & 1), nibble);
  restored = nullptr;
  CTrdCompData::RestoreAns2008(out.data(), length, &restored, restoredLength, data[1] & 1);
  CTrdCompData::ReleaseAnsData(restored);
  std::fill(out.begin(), out.begin() + length, 0);
  return 0;
}
