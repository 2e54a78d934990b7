// Writes realistic sample messages as files, for trying the trdcomp tool and for its tests:
//   trdcomp-samples message NUMBER request|answer 2008|2011 RECORDS   one raw message on stdout
//   trdcomp-samples all DIR RECORDS     a raw message per number, direction and codec in DIR,
//                                       named NUMBER-request-2008.bin and so on
//   trdcomp-samples capture RECORDS     a capture on stdout: every number, direction and codec
//                                       packed, each message a u32 length and the message
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/catalogue.h"
#include "primitives/bytes.h"
#include "samples.h"

namespace {

using namespace trdcomp::samples;

// A raw request: the header with the records behind it.
Bytes rawRequest(const Request& r) {
  Bytes out(sizeof r.head + r.body.size());
  std::memcpy(out.data(), &r.head, sizeof r.head);
  trdcomp::storeU32(out.data(), 76);
  if (!r.body.empty()) std::memcpy(out.data() + sizeof r.head, r.body.data(), r.body.size());
  return out;
}

// A raw answer: the 96-byte header, a section table when there are several sections, then the
// sections.
Bytes rawAnswer(const Answer& a, int nibble) {
  Bytes out(96, 0);
  trdcomp::storeU32(out.data(), 96);
  trdcomp::storeU32(out.data() + 4, a.proc.funcNo);
  const int n = a.proc.sectionCount;
  out[8] = static_cast<unsigned char>((nibble << 4) | (n > 1 ? 2 : 0));
  std::memcpy(out.data() + 20, a.proc.shortText, 4);
  std::memcpy(out.data() + 24, a.proc.text, 64);
  trdcomp::storeI32(out.data() + 88, a.proc.recCount[0]);
  trdcomp::storeI32(out.data() + 92, a.proc.recSize[0]);
  std::size_t at = 96 + (n > 1 ? 4 + 8 * n : 0);
  std::size_t total = at;
  for (int k = 0; k < n; ++k) total += a.sections[k].size();
  out.resize(total);
  if (n > 1) {
    trdcomp::storeU32(out.data() + 96, 4 + 8 * n);
    for (int k = 0; k < n; ++k) {
      trdcomp::storeI32(out.data() + 100 + 8 * k, a.proc.recCount[k]);
      trdcomp::storeI32(out.data() + 104 + 8 * k, a.proc.recSize[k]);
    }
  }
  for (int k = 0; k < n; ++k) {
    if (!a.sections[k].empty())
      std::memcpy(out.data() + at, a.sections[k].data(), a.sections[k].size());
    at += a.sections[k].size();
  }
  return out;
}

Bytes raw(std::uint32_t number, bool answer, int nibble, int records) {
  return answer ? rawAnswer(makeAnswer(number, nibble != 0, records, number), nibble)
                : rawRequest(makeRequest(number, nibble, records, number));
}

bool write(std::FILE* f, const Bytes& b) {
  return std::fwrite(b.data(), 1, b.size(), f) == b.size();
}

int usage() {
  std::fprintf(stderr,
               "usage: trdcomp-samples message NUMBER request|answer 2008|2011 RECORDS\n"
               "       trdcomp-samples all DIR RECORDS\n"
               "       trdcomp-samples capture RECORDS\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "message" && argc == 6) {
    const std::string direction = argv[3], codec = argv[4];
    if ((direction != "request" && direction != "answer") || (codec != "2008" && codec != "2011"))
      return usage();
    return write(stdout, raw(static_cast<std::uint32_t>(std::atoi(argv[2])), direction == "answer",
                             codec == "2011", std::atoi(argv[5])))
               ? 0
               : 1;
  }
  if (what == "all" && argc == 4) {
    for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
      for (int answer = 0; answer < 2; ++answer)
        for (int nibble = 0; nibble < 2; ++nibble) {
          const std::string path = std::string(argv[2]) + "/" + std::to_string(e->number) +
                                   (answer ? "-answer-" : "-request-") +
                                   (nibble ? "2011" : "2008") + ".bin";
          std::FILE* f = std::fopen(path.c_str(), "wb");
          if (!f || !write(f, raw(e->number, answer, nibble, std::atoi(argv[3]))) ||
              std::fclose(f) != 0) {
            std::fprintf(stderr, "trdcomp-samples: cannot write %s\n", path.c_str());
            return 1;
          }
        }
    return 0;
  }
  if (what == "capture" && argc == 3) {
    const int records = std::atoi(argv[2]);
    for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
      for (int nibble = 0; nibble < 2; ++nibble) {
        const Request q = makeRequest(e->number, nibble, records, e->number);
        const Answer a = makeAnswer(e->number, nibble != 0, records, e->number);
        for (const Bytes& packed :
             {packRequest(q.head, q.body), packAnswer(a.proc, a.sections, 0, nibble << 4)}) {
          unsigned char length[4];
          trdcomp::storeU32(length, static_cast<std::uint32_t>(packed.size()));
          if (std::fwrite(length, 1, 4, stdout) != 4 || !write(stdout, packed)) return 1;
        }
      }
    return 0;
  }
  return usage();
}
