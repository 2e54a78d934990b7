// Feeds arbitrary bytes to the restore entry points and compares the restores into the caller's
// buffer and the lengths they announce with the classic restores: the same bytes, the same
// refusals, nothing written past the buffer (restore_into_check.h). The first input byte picks a
// known function number (written at offset 4, unless its bit 7 is set: then the message keeps its
// own) and the codec flag, so that the fuzzer spends its time inside the per-function routines
// rather than on unknown numbers. Seeds are real packed messages (fuzz/make_seeds). capi_fuzzer
// checks the promises of the checked restores, through which the C interface restores.
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
  std::vector<unsigned char> message(data + 1, data + size);
  const std::size_t entries =
      static_cast<std::size_t>(trdcomp::frame::end() - trdcomp::frame::begin());
  if (message.size() >= 8 && (pick & 0x80) == 0) {
    const std::uint32_t number = trdcomp::frame::begin()[(pick & 0x7F) % entries].number;
    std::memcpy(message.data() + 4, &number, 4);
  }
  // Messages restored to more than 4 MiB are checked by their length only (the allocator
  // refuses the largest under the fuzzer's limits).
  for (bool answer : {false, true}) {
    const std::string difference =
        trdcomp::test::checkInto(answer, message, static_cast<char>(pick & 1), 1 << 22);
    if (!difference.empty()) {
      std::fprintf(stderr, "%s restore into the caller's buffer: %s\n",
                   answer ? "answer" : "request", difference.c_str());
      std::abort();
    }
  }
  return 0;
}
