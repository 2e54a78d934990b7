// Feeds arbitrary bytes to both restore entry points. The first input byte picks a known
// function number (written at offset 4) and the codec flag, so that the fuzzer spends its time
// inside the per-function routines rather than on unknown numbers.
#include <cstdint>
#include <cstring>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::uint8_t pick = data[0];
  std::vector<char> in(data + 1, data + size);
  const std::size_t entries =
      static_cast<std::size_t>(trdcomp::frame::end() - trdcomp::frame::begin());
  if (in.size() >= 8 && (pick & 0x80) == 0) {
    const std::uint32_t number = trdcomp::frame::begin()[(pick & 0x7F) % entries].number;
    std::memcpy(in.data() + 4, &number, 4);
  }
  const char flag = static_cast<char>(pick & 1);
  char* out = nullptr;
  int length = 0;
  CTrdCompData::RestoreReq2008(in.data(), static_cast<int>(in.size()), &out, length, flag);
  CTrdCompData::ReleaseAnsData(out);
  out = nullptr;
  CTrdCompData::RestoreAns2008(in.data(), static_cast<int>(in.size()), &out, length, flag);
  CTrdCompData::ReleaseAnsData(out);
  return 0;
}
