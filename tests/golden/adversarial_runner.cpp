// Records what a build of the library makes of the adversarial corpus's inputs: packs each pack
// input, restores the packed bytes and what derives from them (adversarial_format.h), restores
// each restore input. It uses only the classic entry points of the public header, so the same
// source builds against this tree and against an earlier release (make_adversarial.sh).
//   trdcomp-adversarial-runner INPUTS OUTCOMES
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "TrdCompData.h"
#include "adversarial_run.h"

using namespace trdcomp::adversarial;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s INPUTS OUTCOMES\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::vector<Entry> entries = readEntries(file, false);
  Writer w;
  for (const Entry& e : entries) w.outcome(e.op, run(e));
  const Bytes result = withMagic(std::move(w.data()), static_cast<std::uint32_t>(entries.size()));
  std::ofstream out(argv[2], std::ios::binary);
  out.write(reinterpret_cast<const char*>(result.data()),
            static_cast<std::streamsize>(result.size()));
  return out ? 0 : 1;
}
