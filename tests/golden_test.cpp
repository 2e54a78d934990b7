// Today's wire bytes, frozen: every message of the golden corpus is built again, packed and
// restored, and must give the lengths, digests and results recorded in tests/golden/wire.txt
// (embedded in this binary at build time, so the check runs wherever the binary runs).
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "corpus.h"

namespace trdcomp::golden {
extern const char* const kWireLines[];
extern const int kWireLineCount;
}  // namespace trdcomp::golden

namespace {

std::string nameOf(const std::string& line) {
  return line.substr(0, line.find(' '));
}

TEST(Golden, WireBytesAreTheRecordedOnes) {
  using namespace trdcomp::golden;
  std::map<std::string, std::string> recorded;
  std::vector<std::string> problems;
  for (int i = 0; i < kWireLineCount; ++i)
    if (!recorded.emplace(nameOf(kWireLines[i]), kWireLines[i]).second)
      problems.push_back(nameOf(kWireLines[i]) + ": recorded twice");
  ASSERT_GT(recorded.size(), 3000u) << "the embedded corpus is missing or truncated";

  const std::vector<std::string> built = buildCorpus();
  std::set<std::string> seen;
  for (const std::string& line : built) {
    const std::string name = nameOf(line);
    if (!seen.insert(name).second) problems.push_back(name + ": built twice");
    const auto it = recorded.find(name);
    if (it == recorded.end())
      problems.push_back(name + ": not in the recorded corpus");
    else if (it->second != line)
      problems.push_back("recorded " + it->second + "\n    now      " + line);
  }
  for (const auto& [name, line] : recorded)
    if (!seen.count(name)) problems.push_back(name + ": recorded but no longer built");

  if (!problems.empty()) {
    std::string report;
    for (std::size_t i = 0; i < problems.size() && i < 12; ++i) report += "  " + problems[i] + "\n";
    FAIL()
        << problems.size() << " of " << built.size()
        << " messages differ from tests/golden/wire.txt (columns: name, input, packed, result and\n"
           "restored lengths and digests; a changed input means the sample generator changed),\n"
           "first:\n"
        << report
        << "The wire bytes are a contract with deployed peers. If this change of bytes is "
           "deliberate, regenerate the file with `trdcomp-golden tests/golden/wire.txt` (built "
           "beside trdcomp_tests) and commit it with the reason.";
  }
}

}  // namespace
