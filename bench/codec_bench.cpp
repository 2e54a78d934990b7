// Pack and restore speed per codec on realistic messages. The goal is trading latency: on one
// core of the reference machine a ten-record request packs and restores in a few microseconds
// either way, and throughput stays above 100 MB/s of raw records for the large answers.
#include <benchmark/benchmark.h>

#include <vector>

#include "TrdCompData.h"
#include "samples.h"

namespace {

constexpr std::uint32_t kSeed = 2026;

// Arguments: function number, codec nibble, records.
void PackRequest(benchmark::State& state) {
  auto sample = trdcomp::samples::makeRequest(static_cast<std::uint32_t>(state.range(0)),
                                              static_cast<int>(state.range(1)),
                                              static_cast<int>(state.range(2)), kSeed);
  const int raw = static_cast<int>(sizeof(tagREQ_HEAD) + sample.body.size());
  std::vector<char> out(static_cast<std::size_t>(trdcomp::samples::packRoom(raw)));
  int length = 0;
  for (auto _ : state) {
    std::fill(out.begin(), out.begin() + length, 0);  // blocks are added into zeroed slots
    CTrdCompData::PackReq2008(out.data(), length, &sample.head, sample.body.data(),
                              static_cast<int>(sample.body.size()), 0);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * raw);
  state.counters["ratio"] = static_cast<double>(length) / raw;
}

void RestoreRequest(benchmark::State& state) {
  auto sample = trdcomp::samples::makeRequest(static_cast<std::uint32_t>(state.range(0)),
                                              static_cast<int>(state.range(1)),
                                              static_cast<int>(state.range(2)), kSeed);
  const int raw = static_cast<int>(sizeof(tagREQ_HEAD) + sample.body.size());
  std::vector<char> packed(static_cast<std::size_t>(trdcomp::samples::packRoom(raw)));
  int length = 0;
  CTrdCompData::PackReq2008(packed.data(), length, &sample.head, sample.body.data(),
                            static_cast<int>(sample.body.size()), 0);
  for (auto _ : state) {
    char* out = nullptr;
    int restored = 0;
    CTrdCompData::RestoreReq2008(packed.data(), length, &out, restored, 0);
    benchmark::DoNotOptimize(out);
    CTrdCompData::ReleaseAnsData(out);
  }
  state.SetBytesProcessed(state.iterations() * raw);
}

struct PackedAnswer {
  trdcomp::samples::Answer sample;
  std::vector<char> out;
  int raw = 96, length = 0;
};

PackedAnswer packAnswer(const benchmark::State& state) {
  PackedAnswer a{trdcomp::samples::makeAnswer(static_cast<std::uint32_t>(state.range(0)),
                                              state.range(1) != 0,
                                              static_cast<int>(state.range(2)), kSeed),
                 {}};
  for (auto& s : a.sample.sections) a.raw += static_cast<int>(s.size());
  a.out.resize(static_cast<std::size_t>(trdcomp::samples::packRoom(a.raw)));
  return a;
}

void pack(PackedAnswer& a, int nibble) {
  std::fill(a.out.begin(), a.out.begin() + a.length, 0);
  CTrdCompData::PackAns2008(a.out.data(), static_cast<int>(a.out.size()), a.length,
                            &a.sample.proc, a.sample.section(0), a.sample.section(1),
                            a.sample.section(2), a.sample.section(3), a.sample.section(4), 0,
                            nibble << 4);
}

void PackAnswer(benchmark::State& state) {
  PackedAnswer a = packAnswer(state);
  for (auto _ : state) {
    pack(a, static_cast<int>(state.range(1)));
    benchmark::DoNotOptimize(a.out.data());
  }
  state.SetBytesProcessed(state.iterations() * a.raw);
  state.counters["ratio"] = static_cast<double>(a.length) / a.raw;
}

void RestoreAnswer(benchmark::State& state) {
  PackedAnswer a = packAnswer(state);
  pack(a, static_cast<int>(state.range(1)));
  for (auto _ : state) {
    char* out = nullptr;
    int restored = 0;
    CTrdCompData::RestoreAns2008(a.out.data(), a.length, &out, restored, 0);
    benchmark::DoNotOptimize(out);
    CTrdCompData::ReleaseAnsData(out);
  }
  state.SetBytesProcessed(state.iterations() * a.raw);
}

// Requests: 1002 (short records), 1085 (long texts); answers: 1005 (one section), 1002 (three
// sections with the delta section), 1024 (dictionary), in both codecs.
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
