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
  std::snprintf(buf, sizeof buf, "%8d %7.1f%%%s", r.packed, 100.0 * r.packed / r.raw,
                r.same ? " " : "!");
  return buf;
}

}  // namespace

int main() {
  std::printf(
      "%d records per section; packed size and packed/raw ratio; ! = not restored as sent\n\n",
      kRecords);
  std::printf("%6s | %8s %17s | %8s %17s\n", "number", "req raw", "2008 packed", "ans raw",
              "2008 packed");
  long totals[4] = {};
  int failures = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    Result q = request(e->number, 0), a = answer(e->number, 0);
    failures += !q.same + !a.same;
    totals[0] += q.raw, totals[1] += q.packed, totals[2] += a.raw, totals[3] += a.packed;
    std::printf("%6u | %8d %s | %8d %s\n", e->number, q.raw, cell(q).c_str(), a.raw,
                cell(a).c_str());
  }
  std::printf("%6s | %8ld %8ld %7.1f%%  | %8ld %8ld %7.1f%%\n", "total", totals[0], totals[1],
              100.0 * totals[1] / totals[0], totals[2], totals[3], 100.0 * totals[3] / totals[2]);
  if (failures) std::printf("\n%d messages did not come back as sent\n", failures);
  return failures ? 1 : 0;
}
