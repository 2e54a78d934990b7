// The subcommands of trdcomp. Each returns the process's exit status and throws Error for bad
// input.
#pragma once

#include <string>
#include <vector>

namespace trdcomp::tool {

struct Options {
  std::string input = "-";
  std::string other;  // diff: the second message
  std::string output = "-";
  std::vector<std::string> inputs;  // stats
  std::string names;                // names file
  bool hex = false;                 // input is hex text
  bool json = false;                // JSON output
  bool request = false, answer = false;
  int codec = 0;  // 0: the header's nibble, 2008 or 2011
  int flag = 0;   // the 2008 codec flag
  long long maxSize = 0;
};

// Exit statuses besides 0: bad input, bad usage, and check's "some field will not survive".
// diff answers 1 for "different" and so reports bad input as 2.
constexpr int kBadInput = 1;
constexpr int kUsage = 2;
constexpr int kLosses = 3;
constexpr int kDifferent = 1;
constexpr int kDiffBadInput = 2;

int inspect(const Options& o);
int explain(const Options& o);
int diff(const Options& o);
int pack(const Options& o);
int restore(const Options& o);
int check(const Options& o);
int stats(const Options& o);

}  // namespace trdcomp::tool
