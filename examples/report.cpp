// The main job: packs and restores a realistic message of every function number in both
// directions and both codecs, and prints per number the raw size, the packed size and the
// ratio. A message that does not come back as it went marks its row and fails the program.
#include <cstdio>
#include <string>

#include "frame/catalogue.h"
#include "samples.h"

namespace {

using namespace trdcomp::samples;

constexpr int kRecords = 10;

struct Result {
  std::size_t raw = 0, packed = 0;
  bool same = true;
};

Result request(std::uint32_t number, int nibble) {
  const Request sent = makeRequest(number, nibble, kRecords, number);
  const Bytes packed = packRequest(sent.head, sent.body);
  return {sizeof(tagREQ_HEAD) + sent.body.size(), packed.size(),
          checkRequest(sent, nibble, packed, restoreRequest(packed)).empty()};
}

Result answer(std::uint32_t number, int nibble) {
  const Answer sent = makeAnswer(number, nibble != 0, kRecords, number);
  const Bytes packed = packAnswer(sent.proc, sent.sections, 0, nibble << 4);
  std::size_t raw = 96;
  for (const Bytes& s : sent.sections) raw += s.size();
  return {raw, packed.size(), checkAnswer(sent, nibble, packed, restoreAnswer(packed)).empty()};
}

std::string cell(const Result& r) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%8zu %6.1f%%%s", r.packed, 100.0 * r.packed / r.raw,
                r.same ? " " : "!");
  return buf;
}

double percent(long part, long whole) {
  return 100.0 * part / whole;
}

}  // namespace

int main() {
  std::printf(
      "Per function number: raw size of a %d-record request and answer (every section), then\n"
      "packed size and packed/raw in the 2008 codec and in the 2011 Fast codec.\n"
      "! marks a message that did not come back as sent.\n\n",
      kRecords);
  std::printf("%6s | %8s %16s %16s | %8s %16s %16s\n", "number", "req raw", "2008", "2011 Fast",
              "ans raw", "2008", "2011 Fast");
  long raw[2] = {}, packed[2][2] = {};
  int failures = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    const Result q[2] = {request(e->number, 0), request(e->number, 1)};
    const Result a[2] = {answer(e->number, 0), answer(e->number, 1)};
    for (int c = 0; c < 2; ++c) {
      failures += !q[c].same + !a[c].same;
      packed[0][c] += static_cast<long>(q[c].packed),
          packed[1][c] += static_cast<long>(a[c].packed);
    }
    raw[0] += static_cast<long>(q[0].raw), raw[1] += static_cast<long>(a[0].raw);
    std::printf("%6u | %8zu %s %s | %8zu %s %s\n", e->number, q[0].raw, cell(q[0]).c_str(),
                cell(q[1]).c_str(), a[0].raw, cell(a[0]).c_str(), cell(a[1]).c_str());
  }
  std::printf("%6s | %8ld %8ld %6.1f%%  %8ld %6.1f%%  | %8ld %8ld %6.1f%%  %8ld %6.1f%%\n", "total",
              raw[0], packed[0][0], percent(packed[0][0], raw[0]), packed[0][1],
              percent(packed[0][1], raw[0]), raw[1], packed[1][0], percent(packed[1][0], raw[1]),
              packed[1][1], percent(packed[1][1], raw[1]));
  if (failures) std::printf("\n%d messages did not come back as sent\n", failures);
  return failures ? 1 : 0;
}
