// Pack and restore speed per codec on realistic messages. The goal is trading latency: on one
// core of the reference machine a ten-record request packs and restores in a few microseconds
// either way, and throughput stays above 100 MB/s of raw records for the large answers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "TrdCompData.h"
#include "samples.h"

namespace {

using trdcomp::samples::Bytes;

constexpr std::uint32_t kSeed = 2026;

char* chars(Bytes& b) {
  return b.empty() ? nullptr : reinterpret_cast<char*>(b.data());
}

// A sample message of the arguments (function number, codec nibble, records), and its packing
// into a reused zero-filled buffer (the 2011 packer adds block lengths into their slots).
struct Message {
  explicit Message(const benchmark::State& state)
      : nibble(static_cast<int>(state.range(1))),
        request(trdcomp::samples::makeRequest(static_cast<std::uint32_t>(state.range(0)), nibble,
                                              static_cast<int>(state.range(2)), kSeed)),
        answer(trdcomp::samples::makeAnswer(static_cast<std::uint32_t>(state.range(0)), nibble != 0,
                                            static_cast<int>(state.range(2)), kSeed)) {
    requestRaw = sizeof(tagREQ_HEAD) + request.body.size();
    for (const Bytes& s : answer.sections) answerRaw += s.size();
    out.resize(2 * std::max(requestRaw, answerRaw) + 4096);
  }
  void packRequest() {
    std::fill(out.begin(), out.begin() + length, 0);
    CTrdCompData::PackReq2008(chars(out), length, &request.head, chars(request.body),
                              static_cast<int>(request.body.size()), 0);
  }
  void packAnswer() {
    std::fill(out.begin(), out.begin() + length, 0);
    auto& s = answer.sections;
    CTrdCompData::PackAns2008(chars(out), static_cast<int>(out.size()), length, &answer.proc,
                              chars(s[0]), chars(s[1]), chars(s[2]), chars(s[3]), chars(s[4]), 0,
                              nibble << 4);
  }

  int nibble;
  trdcomp::samples::Request request;
  trdcomp::samples::Answer answer;
  std::size_t requestRaw = 0, answerRaw = 96;
  Bytes out;
  int length = 0;
};

template <class Restore>
void restoreLoop(benchmark::State& state, Restore restore, Message& m, std::size_t raw) {
  for (auto _ : state) {
    char* out = nullptr;
    int restored = 0;
    restore(chars(m.out), m.length, &out, restored, 0);
    benchmark::DoNotOptimize(out);
    CTrdCompData::ReleaseAnsData(out);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(raw));
}

void PackRequest(benchmark::State& state) {
  Message m(state);
  for (auto _ : state) {
    m.packRequest();
    benchmark::DoNotOptimize(m.out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(m.requestRaw));
  state.counters["ratio"] = static_cast<double>(m.length) / static_cast<double>(m.requestRaw);
}

void RestoreRequest(benchmark::State& state) {
  Message m(state);
  m.packRequest();
  restoreLoop(state, CTrdCompData::RestoreReq2008, m, m.requestRaw);
}

void PackAnswer(benchmark::State& state) {
  Message m(state);
  for (auto _ : state) {
    m.packAnswer();
    benchmark::DoNotOptimize(m.out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(m.answerRaw));
  state.counters["ratio"] = static_cast<double>(m.length) / static_cast<double>(m.answerRaw);
}

void RestoreAnswer(benchmark::State& state) {
  Message m(state);
  m.packAnswer();
  restoreLoop(state, CTrdCompData::RestoreAns2008, m, m.answerRaw);
}

// Requests: 1002 (short records), 1085 (long texts); answers: 1005 (one section), 1002 (three
// sections with the delta section), 1024 (dictionary); both codecs.
void requests(benchmark::internal::Benchmark* b) {
  for (int number : {1002, 1085})
    for (int nibble : {0, 1}) b->Args({number, nibble, 10});
}
void answers(benchmark::internal::Benchmark* b) {
  for (int number : {1005, 1002, 1024})
    for (int nibble : {0, 1})
      for (int records : {10, 1000}) b->Args({number, nibble, records});
}

BENCHMARK(PackRequest)->Apply(requests);
BENCHMARK(RestoreRequest)->Apply(requests);
BENCHMARK(PackAnswer)->Apply(answers);
BENCHMARK(RestoreAnswer)->Apply(answers);

}  // namespace

BENCHMARK_MAIN();
