// The main job: packs and restores a realistic message of every function number in both
// directions and prints, per number, the raw size, the packed size and the ratio. A message
// that does not come back as it went marks its row and makes the program fail.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "samples.h"

namespace {

constexpr int kRecords = 10;

struct Result {
  int raw = 0, packed = 0;
  bool same = true;
};

// Packs and restores the sample request; compares the restored body with the original.
Result request(std::uint32_t number, int nibble) {
  auto sample = trdcomp::samples::makeRequest(number, nibble, kRecords, number);
  const int raw = static_cast<int>(sizeof(tagREQ_HEAD) + sample.body.size());
  std::vector<char> out(static_cast<std::size_t>(trdcomp::samples::packRoom(raw)), 0);
  Result r;
  r.raw = raw;
  CTrdCompData::PackReq2008(out.data(), r.packed, &sample.head, sample.body.data(),
                            static_cast<int>(sample.body.size()), 0);
  char* restored = nullptr;
  int length = 0;
  if (!CTrdCompData::RestoreReq2008(out.data(), r.packed, &restored, length, 0)) {
    r.same = false;
  } else if (restored && length >= raw) {
    const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
    const bool hasBody = e && e->requestForm == trdcomp::frame::RequestForm::Routine;
    if (hasBody)
      r.same =
          std::memcmp(restored + sizeof(tagREQ_HEAD), sample.body.data(), sample.body.size()) == 0;
  }
  CTrdCompData::ReleaseAnsData(restored);
  return r;
}

Result answer(std::uint32_t number, int nibble) {
  auto sample = trdcomp::samples::makeAnswer(number, nibble != 0, kRecords, number);
  int raw = 96;
  for (auto& s : sample.sections) raw += static_cast<int>(s.size());
  std::vector<char> out(static_cast<std::size_t>(trdcomp::samples::packRoom(raw)), 0);
  Result r;
  r.raw = raw;
  CTrdCompData::PackAns2008(out.data(), static_cast<int>(out.size()), r.packed, &sample.proc,
                            sample.section(0), sample.section(1), sample.section(2),
                            sample.section(3), sample.section(4), 0, nibble << 4);
  char* restored = nullptr;
  int length = 0;
  r.same = CTrdCompData::RestoreAns2008(out.data(), r.packed, &restored, length, 0) == 1;
  const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
  if (r.same && restored && e && e->answerForm == trdcomp::frame::AnswerForm::Routine) {
    const trdcomp::records::AnswerLayout& layout = *e->answerRestore[nibble ? 1 : 0];
    std::size_t at = 96 + (layout.multiSection() ? 4 + 8 * layout.sectionCount : 0);
    for (int s = 0; s < layout.sectionCount; ++s) {
      r.same = r.same && std::memcmp(restored + at, sample.sections[s].data(),
                                     sample.sections[s].size()) == 0;
      at += sample.sections[s].size();
    }
  }
  CTrdCompData::ReleaseAnsData(restored);
  return r;
}

std::string cell(const Result& r) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%8d %6.1f%%%s", r.packed, 100.0 * r.packed / r.raw,
                r.same ? " " : "!");
  return buf;
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
    Result q[2] = {request(e->number, 0), request(e->number, 1)};
    Result a[2] = {answer(e->number, 0), answer(e->number, 1)};
    for (int c = 0; c < 2; ++c) {
      failures += !q[c].same + !a[c].same;
      packed[0][c] += q[c].packed, packed[1][c] += a[c].packed;
    }
    raw[0] += q[0].raw, raw[1] += a[0].raw;
    std::printf("%6u | %8d %s %s | %8d %s %s\n", e->number, q[0].raw, cell(q[0]).c_str(),
                cell(q[1]).c_str(), a[0].raw, cell(a[0]).c_str(), cell(a[1]).c_str());
  }
  std::printf("%6s | %8ld %8ld %6.1f%%  %8ld %6.1f%%  | %8ld %8ld %6.1f%%  %8ld %6.1f%%\n", "total",
              raw[0], packed[0][0], 100.0 * packed[0][0] / raw[0], packed[0][1],
              100.0 * packed[0][1] / raw[0], raw[1], packed[1][0], 100.0 * packed[1][0] / raw[1],
              packed[1][1], 100.0 * packed[1][1] / raw[1]);
  if (failures) std::printf("\n%d messages did not come back as sent\n", failures);
  return failures ? 1 : 0;
}
