// Feeds arbitrary bytes to the restore entry points, classic and checked, and compares the
// restores into the caller's buffer with the classic ones. The first input byte picks a known
// function number (written at offset 4, unless its bit 7 is set: then the message keeps its own)
// and the codec flag, so that the fuzzer spends its time inside the per-function routines rather
// than on unknown numbers. Seeds are real packed messages (fuzz/make_seeds).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../tests/restore_into_check.h"
#include "TrdCompData.h"
#include "frame/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::uint8_t pick = data[0];
  // An exact-size copy, so that a read past the end is caught.
  std::vector<char> in(data + 1, data + size);
  const std::size_t entries =
      static_cast<std::size_t>(trdcomp::frame::end() - trdcomp::frame::begin());
  if (in.size() >= 8 && (pick & 0x80) == 0) {
    const std::uint32_t number = trdcomp::frame::begin()[(pick & 0x7F) % entries].number;
    std::memcpy(in.data() + 4, &number, 4);
  }
  const char flag = static_cast<char>(pick & 1);
  const int inLen = static_cast<int>(in.size());
  char* out = nullptr;
  int length = 0, reason = 0;
  // Checked restores with a ceiling keep the fuzzer's memory small whatever the input claims.
  // What they hand back is never above the ceiling, and nothing at all when they refuse.
  const auto check = [](int result, const char* out, int length) {
    const bool nothing = !out && length == 0;
    if (result == 0 ? !nothing : (length < 0 || length > (1 << 22))) std::abort();
  };
  int result =
      CTrdCompData::RestoreReq2008Ex(in.data(), inLen, &out, length, flag, 1 << 22, &reason);
  check(result, out, length);
  CTrdCompData::ReleaseAnsData(out);
  result = CTrdCompData::RestoreAns2008Ex(in.data(), inLen, &out, length, flag, 1 << 22, &reason);
  check(result, out, length);
  CTrdCompData::ReleaseAnsData(out);
  // The classic entry points, on the messages whose restored size is modest (the allocator
  // refuses the rest under the fuzzer's limits), against the restores into the caller's buffer
  // and the lengths they announce: the same bytes, the same refusals, nothing written past the
  // buffer.
  const std::vector<unsigned char> message(in.begin(), in.end());
  for (bool answer : {false, true}) {
    const std::string difference = trdcomp::test::checkInto(answer, message, flag, 1 << 22);
    if (!difference.empty()) {
      std::fprintf(stderr, "%s restore into the caller's buffer: %s\n",
                   answer ? "answer" : "request", difference.c_str());
      std::abort();
    }
  }
  return 0;
}
