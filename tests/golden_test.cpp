// Today's wire bytes, frozen: every message of the golden corpus is built again, packed and
// restored, and must give the lengths, digests and results recorded in tests/golden/wire.txt
// (embedded in this binary at build time, so the check runs wherever the binary runs).
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include "corpus.h"

namespace trdcomp::golden {
extern const char* const kWireLines[];
extern const int kWireLineCount;
}  // namespace trdcomp::golden

namespace {

std::vector<std::string> columns(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string word; in >> word;) out.push_back(word);
  return out;
}

std::string nameOf(const std::string& line) {
  return line.substr(0, line.find(' '));
}

// Which part of a message changed. A changed input means the sample generator itself changed
// (or differs on this platform): its packed and restored bytes then prove nothing.
std::string difference(const std::string& expected, const std::string& actual) {
  const auto e = columns(expected), a = columns(actual);
  if (e.size() != 8 || a.size() != 8) return "malformed line";
  auto range = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i)
      if (e[i] != a[i]) return true;
    return false;
  };
  std::string what;
  if (range(1, 3)) return "input (the sample generator changed)";
  if (range(3, 5)) what += "packed bytes " + e[3] + "/" + e[4] + " -> " + a[3] + "/" + a[4];
  if (range(5, 8)) {
    if (!what.empty()) what += ", ";
    what += "restore " + e[5] + " " + e[6] + "/" + e[7] + " -> " + a[5] + " " + a[6] + "/" + a[7];
  }
  return what;
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
      problems.push_back(name + ": " + difference(it->second, line));
  }
  for (const auto& [name, line] : recorded)
    if (!seen.count(name)) problems.push_back(name + ": recorded but no longer built");

  if (!problems.empty()) {
    std::string report;
    for (std::size_t i = 0; i < problems.size() && i < 12; ++i) report += "  " + problems[i] + "\n";
    FAIL() << problems.size() << " of " << built.size()
           << " messages differ from tests/golden/wire.txt, first:\n"
           << report
           << "The wire bytes are a contract with deployed peers. If this change of bytes is "
              "deliberate, regenerate the file with `trdcomp-golden tests/golden/wire.txt` (built "
              "beside trdcomp_tests) and commit it with the reason.";
  }
}

}  // namespace
