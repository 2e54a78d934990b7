// trdcomp-golden: writes the golden wire corpus (tests/golden/wire.txt) from the codecs as they
// are. Run it only for a deliberate change of wire bytes, then review and commit the diff.
//   trdcomp-golden [FILE]     (standard output without FILE)
#include <cstdio>
#include <string>

#include "corpus.h"

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: %s [FILE]\n", argv[0]);
    return 2;
  }
  std::FILE* out = argc == 2 ? std::fopen(argv[1], "wb") : stdout;
  if (!out) {
    std::perror(argv[1]);
    return 1;
  }
  std::fputs(trdcomp::golden::kFileHeader, out);
  const auto lines = trdcomp::golden::buildCorpus();
  for (const auto& line : lines) std::fprintf(out, "%s\n", line.c_str());
  if (std::fflush(out) != 0 || (out != stdout && std::fclose(out) != 0)) {
    std::perror("write");
    return 1;
  }
  if (argc == 2)
    std::fprintf(stderr, "%s messages written to %s\n", std::to_string(lines.size()).c_str(),
                 argv[1]);
  return 0;
}
