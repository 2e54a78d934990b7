// trdcomp_compare: trdcomp against LZ4, zstd and plain copies, in one process and on the same
// bytes, so that the speed of the codecs reads as ratios that hold from machine to machine.
//
// Workloads, all with realistic values (support/realistic.h):
//   every   every function number: a 10-record request and a 100-record answer, both codecs;
//           trdcomp pack and restore, LZ4_compress_default / LZ4_decompress_safe and zstd
//           level 1 (contexts reused) on the raw message
//   one     1-record requests of every number with a request layout: restore, restore into
//           the caller's buffer, LZ4 decompress of the restored message, memcpy of it, and
//           malloc + memcpy + free of it (with and without the 1024 zeroed bytes of slack a
//           restored request carries)
//   wide    1000-record answers of the widest layouts (most fields): throughput in GB/s,
//           memcpy beside it
//   threads the whole `every` workload packed and restored by one thread, then by two threads
//           each on its own copies (free to use every CPU)
// Times are CPU time per operation (real time for the threads), measured by Google Benchmark,
// the fastest of three repetitions.
// The program prints the ratios with their targets and writes every figure to a CSV
// (--csv FILE) that scripts/plot_bench.py draws. The sums are printed over every number and
// without the five answers whose 32 KiB blocks and 2 KiB texts weigh most (kBlockAnswers);
// geometric means of the per-number ratios beside them show the typical number.
//
//   trdcomp_compare [--csv FILE] [--min-time SECONDS] [--repetitions N] [--smoke] [--verbose]
//   [--benchmark_...]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <pthread.h>
#include <sched.h>
#include <unistd.h>
#endif

#include "compare_workload.h"
#include "frame/catalogue.h"

#ifndef TRDCOMP_BUILD_TYPE
#define TRDCOMP_BUILD_TYPE "unknown"
#endif

namespace {

using namespace trdcomp::compare;

constexpr int kRequestRecords = 10;
constexpr int kAnswerRecords = 100;
constexpr int kWideRecords = 1000;
constexpr int kWideLayouts = 4;
const char* const kCodecs[] = {"2008", "2011"};
// The answers whose sums are dominated by blocks and long texts (32 KiB blocks, 2 KiB and 32 KiB
// texts): the "w/o 5" sums leave them out, their requests stay in.
constexpr std::uint32_t kBlockAnswers[] = {1004, 1116, 1122, 8996, 8997};
constexpr int kOps = static_cast<int>(Op::Fields) + 1;

bool blockAnswer(const Message& m) {
  return m.isAnswer && std::find(std::begin(kBlockAnswers), std::end(kBlockAnswers), m.number) !=
                           std::end(kBlockAnswers);
}

struct Options {
  std::string csv;
  double minTime = 0.005;  // seconds per repetition of a measurement of up to 64 KiB
  int repetitions = 3;     // the fastest counts: other work on the machine only slows runs
  bool smoke = false;      // a few numbers, very short runs: shows the program works
  bool verbose = false;    // Google Benchmark's own table as well
};

// One measurement: what was run, and its time once the reporter has seen it.
struct Measure {
  std::string group;  // every, one, wide, threads
  Message* message = nullptr;
  Op op = Op::Pack;
  int threads = 1;
  double cpuNs = -1, realNs = -1;
  std::size_t outBytes = 0;  // packed or compressed size

  std::size_t rawBytes() const { return message ? message->raw.size() : 0; }
  std::string name() const {
    std::string s = group;
    s.push_back('/');
    s.append(message ? message->label() + "/" + opName(op) : "threads:" + std::to_string(threads));
    return s;
  }
};

struct Session {
  Options options;
  std::deque<Message> messages;  // stable addresses for the registered benchmarks
  std::deque<Measure> measures;
  std::map<std::string, Measure*> byName;
  std::vector<Message*> threadWork;  // the `every` messages, copied by each thread
  int cpus = 1;
  std::string context;
};

// ---- running -----------------------------------------------------------------------------

void runOp(benchmark::State& state, Message& m, Op op) {
  Worker w(m);
  switch (op) {
    case Op::Pack:
      for (auto _ : state) benchmark::DoNotOptimize(w.pack(m));
      break;
    case Op::Restore:
      for (auto _ : state) w.restore(m);
      break;
    case Op::Lz4Compress:
      for (auto _ : state) benchmark::DoNotOptimize(w.lz4Compress(m));
      break;
    case Op::Lz4Decompress:
      for (auto _ : state) benchmark::DoNotOptimize(w.lz4Decompress(m));
      break;
    case Op::ZstdCompress:
      for (auto _ : state) benchmark::DoNotOptimize(w.zstdCompress(m));
      break;
    case Op::ZstdDecompress:
      for (auto _ : state) benchmark::DoNotOptimize(w.zstdDecompress(m));
      break;
    case Op::Memcpy:
      for (auto _ : state) {
        w.copy(m);
        benchmark::ClobberMemory();
      }
      break;
    case Op::MallocMemcpyFree:
      for (auto _ : state) w.allocateCopyFree(m);
      break;
    case Op::MallocSlackFree:
      for (auto _ : state) w.allocateSlackFree(m);
      break;
    case Op::RestoreInto:
      for (auto _ : state) benchmark::DoNotOptimize(w.restoreInto(m));
      break;
    case Op::Fields:
      for (auto _ : state) benchmark::DoNotOptimize(w.decodeFields(m));
      break;
  }
}

// The comparison runs on one core (taskset -c 0); the threads may use every CPU, and the
// system places them, so that work of others on one CPU does not hold a thread there.
#if defined(__linux__)
cpu_set_t savedAffinity;
void saveAffinity() {
  CPU_ZERO(&savedAffinity);
  pthread_getaffinity_np(pthread_self(), sizeof savedAffinity, &savedAffinity);
}
void allowEveryCpu(int cpus) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int cpu = 0; cpu < cpus && cpu < CPU_SETSIZE; ++cpu) CPU_SET(cpu, &set);
  pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}
void restoreAffinity() {
  pthread_setaffinity_np(pthread_self(), sizeof savedAffinity, &savedAffinity);
}
int onlineCpus() {
  return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}
#else
void saveAffinity() {}
void allowEveryCpu(int) {}
void restoreAffinity() {}
int onlineCpus() {
  return static_cast<int>(std::thread::hardware_concurrency());
}
#endif

// Every thread packs and restores its own copies of the whole `every` workload.
void runThreads(benchmark::State& state, const std::vector<Message*>& work, int cpus) {
  allowEveryCpu(cpus);
  std::vector<Message> mine;
  for (const Message* m : work) mine.push_back(*m);
  std::vector<std::unique_ptr<Worker>> workers;
  for (Message& m : mine) workers.push_back(std::make_unique<Worker>(m));
  for (auto _ : state)
    for (std::size_t i = 0; i < mine.size(); ++i) {
      benchmark::DoNotOptimize(workers[i]->pack(mine[i]));
      workers[i]->restore(mine[i]);
    }
  if (state.thread_index() == 0) restoreAffinity();
}

// Collects every run's times; prints Google Benchmark's table only when asked.
class Collector : public benchmark::BenchmarkReporter {
  using Run_ = benchmark::BenchmarkReporter::Run;

 public:
  Collector(Session& run, std::size_t total) : run_(run), total_(total) {}

  bool ReportContext(const Context& context) override {
    char line[256];
    const auto& cpu = context.cpu_info;
    std::snprintf(line, sizeof line, "%d CPUs at %.0f MHz, load average %.2f", cpu.num_cpus,
                  cpu.cycles_per_second / 1e6, cpu.load_avg.empty() ? 0.0 : cpu.load_avg[0]);
    run_.context = line;
    return run_.options.verbose ? console_.ReportContext(context) : true;
  }

  void ReportRuns(const std::vector<Run_>& runs) override {
    for (const Run_& r : runs) {
      if (r.run_type != Run_::RT_Iteration) continue;
      const auto it = run_.byName.find(r.run_name.function_name);
      if (it == run_.byName.end()) continue;
      if (r.error_occurred) {
        std::fprintf(stderr, "trdcomp_compare: %s failed: %s\n", it->first.c_str(),
                     r.error_message.c_str());
        std::exit(1);
      }
      Measure& m = *it->second;
      const bool first = m.cpuNs < 0;
      m.cpuNs = first ? r.GetAdjustedCPUTime() : std::min(m.cpuNs, r.GetAdjustedCPUTime());
      m.realNs = first ? r.GetAdjustedRealTime() : std::min(m.realNs, r.GetAdjustedRealTime());
      if (first && ++done_ % 500 == 0 && !run_.options.verbose)
        std::fprintf(stderr, "  %zu of %zu measured\n", done_, total_);
    }
    if (run_.options.verbose) console_.ReportRuns(runs);
  }

 private:
  Session& run_;
  std::size_t total_, done_ = 0;
  benchmark::ConsoleReporter console_{benchmark::ConsoleReporter::OO_Tabular};
};

// Large messages run longer: they weigh most in the sums, and vary most from run to run.
void add(Session& run, const std::string& group, Message& m, Op op) {
  const double scale = std::clamp(static_cast<double>(m.raw.size()) / 65536, 1.0, 40.0);
  Measure& measure = run.measures.emplace_back();
  measure.group = group;
  measure.message = &m;
  measure.op = op;
  measure.outBytes = op == Op::Pack           ? m.packed.size()
                     : op == Op::Lz4Compress  ? m.lz4.size()
                     : op == Op::ZstdCompress ? m.zstd.size()
                                              : 0;
  const std::string name = measure.name();
  run.byName[name] = &measure;
  benchmark::RegisterBenchmark(name.c_str(),
                               [&m, op](benchmark::State& state) { runOp(state, m, op); })
      ->Unit(benchmark::kNanosecond)
      ->MinTime(run.options.minTime * scale)
      ->Repetitions(run.options.repetitions);
}

// The single-section answer layouts with the most fields, one number each.
std::vector<std::uint32_t> widestAnswers() {
  struct Candidate {
    std::uint16_t fields;
    std::uint32_t size, number;
  };
  std::vector<Candidate> all;
  std::vector<const trdcomp::records::Layout*> seen;
  for (const auto* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    const auto* a = e->answerRestore[0];
    if (e->answerForm != trdcomp::frame::AnswerForm::Routine || !a || a->multiSection()) continue;
    const auto* l = a->sections[0];
    if (l->opaque || std::find(seen.begin(), seen.end(), l) != seen.end()) continue;
    seen.push_back(l);
    all.push_back({l->fieldCount, l->size, e->number});
  }
  std::sort(all.begin(), all.end(), [](const Candidate& x, const Candidate& y) {
    return x.fields != y.fields ? x.fields > y.fields : x.size > y.size;
  });
  std::vector<std::uint32_t> out;
  for (std::size_t i = 0; i < all.size() && out.size() < kWideLayouts; ++i)
    out.push_back(all[i].number);
  return out;
}

void build(Session& run) {
  const Options& o = run.options;
  std::vector<std::uint32_t> numbers;
  for (const auto* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    numbers.push_back(e->number);
  // Every message is built and checked whatever is measured, so even a smoke run proves that
  // the whole workload comes back as sent.
  auto measured = [&](std::uint32_t n) { return !o.smoke || n == 1002 || n == 1005 || n == 1024; };

  for (int codec = 0; codec < 2; ++codec)
    for (std::uint32_t n : numbers)
      for (bool answer : {false, true}) {
        Message& m = run.messages.emplace_back(
            makeMessage(n, codec, answer, answer ? kAnswerRecords : kRequestRecords));
        run.threadWork.push_back(&m);
        if (!measured(n)) continue;
        for (Op op : {Op::Pack, Op::Restore, Op::RestoreInto, Op::Lz4Compress, Op::Lz4Decompress,
                      Op::ZstdCompress, Op::ZstdDecompress})
          add(run, "every", m, op);
      }

  for (int codec = 0; codec < 2; ++codec)
    for (std::uint32_t n : numbers) {
      const auto* e = trdcomp::frame::find(n);
      if (e->requestForm != trdcomp::frame::RequestForm::Routine) continue;
      Message& m = run.messages.emplace_back(makeMessage(n, codec, false, 1));
      if (!measured(n)) continue;
      for (Op op : {Op::Restore, Op::RestoreInto, Op::Fields, Op::Lz4Decompress, Op::Memcpy,
                    Op::MallocMemcpyFree, Op::MallocSlackFree})
        add(run, "one", m, op);
    }

  const auto wide = widestAnswers();
  for (int codec = 0; codec < 2; ++codec)
    for (std::size_t i = 0; i < wide.size() && (!o.smoke || i == 0); ++i) {
      Message& m =
          run.messages.emplace_back(makeMessage(wide[i], codec, true, o.smoke ? 10 : kWideRecords));
      for (Op op : {Op::Pack, Op::Restore, Op::Lz4Compress, Op::Lz4Decompress, Op::ZstdCompress,
                    Op::ZstdDecompress, Op::Memcpy})
        add(run, "wide", m, op);
    }

  run.cpus = onlineCpus();
  if (run.cpus >= 2) {
    for (int threads : {1, 2}) {
      Measure& measure = run.measures.emplace_back();
      measure.group = "threads";
      measure.threads = threads;
      const std::string name = measure.name();
      run.byName[name] = &measure;
      const std::vector<Message*>* work = &run.threadWork;
      const int cpus = run.cpus;
      benchmark::RegisterBenchmark(
          name.c_str(), [work, cpus](benchmark::State& state) { runThreads(state, *work, cpus); })
          ->Threads(threads)
          ->UseRealTime()
          ->Unit(benchmark::kNanosecond)
          ->MinTime(o.smoke ? 0.01 : 1.0)
          ->Repetitions(o.repetitions);
    }
  }
}

// ---- reporting ---------------------------------------------------------------------------

struct Sums {
  double ns[kOps] = {};  // by Op
  double raw = 0, packed = 0, lz4 = 0, zstd = 0;
  void add(const Measure& m) {
    ns[static_cast<int>(m.op)] += m.cpuNs;
    if (m.op == Op::Pack) raw += static_cast<double>(m.rawBytes()), packed += m.outBytes;
    if (m.op == Op::Lz4Compress) lz4 += m.outBytes;
    if (m.op == Op::ZstdCompress) zstd += m.outBytes;
  }
  void add(const Sums& s) {
    for (int k = 0; k < kOps; ++k) ns[k] += s.ns[k];
    raw += s.raw, packed += s.packed, lz4 += s.lz4, zstd += s.zstd;
  }
  double operator[](Op op) const { return ns[static_cast<int>(op)]; }
};

double ratio(double a, double b) {
  return b > 0 ? a / b : 0;
}

// Times by number of one group and codec: {op: {number: ns}} (request and answer added).
using PerNumber = std::map<std::uint32_t, double>[kOps];

// The geometric mean over numbers of time(op) / time(other), numbers measured in both only.
double geometricMean(const PerNumber& times, Op op, Op other) {
  double logs = 0;
  int n = 0;
  for (const auto& [number, ns] : times[static_cast<int>(op)]) {
    const auto base = times[static_cast<int>(other)].find(number);
    if (base == times[static_cast<int>(other)].end()) continue;
    if (ns > 0 && base->second > 0) logs += std::log(ns / base->second), ++n;
  }
  return n ? std::exp(logs / n) : 0.0;
}

struct Target {
  std::string name;
  double value;
  double bound;
  bool atMost;  // else at least
  bool met() const { return value > 0 && (atMost ? value <= bound : value >= bound); }
};

std::string boundText(double bound, bool atMost) {
  char text[16];
  std::snprintf(text, sizeof text, "%s %.1fx", atMost ? "<=" : ">=", bound);
  return text;
}

std::vector<Target> report(const Session& run, std::FILE* out) {
  // every[codec][0 request, 1 answer], and the same without the block-dominated answers
  Sums every[2][2], trimmed[2][2];
  for (const Measure& m : run.measures) {
    if (m.group != "every") continue;
    every[m.message->codec][m.message->isAnswer].add(m);
    if (!blockAnswer(*m.message)) trimmed[m.message->codec][m.message->isAnswer].add(m);
  }
  Sums all[2], allTrimmed[2];
  for (int codec = 0; codec < 2; ++codec)
    for (int d = 0; d < 2; ++d)
      all[codec].add(every[codec][d]), allTrimmed[codec].add(trimmed[codec][d]);
  std::vector<Target> targets;

  std::fprintf(out,
               "trdcomp against LZ4 and zstd on the same raw messages (%s build, %s;\n"
               "CPU time per operation, Google Benchmark).\n"
               "Workload: every function number, a %d-record request and a %d-record answer "
               "each,\nrealistic values; LZ4 and zstd compress the raw message and decompress "
               "it.\n\n",
               TRDCOMP_BUILD_TYPE, run.context.c_str(), kRequestRecords, kAnswerRecords);

  std::fprintf(out, "Time ratio (sum of trdcomp time / sum of the other's)\n");
  // Per number (request and answer together), for the geometric mean: the sums weigh large
  // messages most, the mean shows the typical number.
  PerNumber perNumber[2];
  for (const Measure& m : run.measures)
    if (m.group == "every")
      perNumber[m.message->codec][static_cast<int>(m.op)][m.message->number] += m.cpuNs;
  // The targets are goals for the record codecs: restores at least as fast as LZ4's
  // decompression, packs well under its compression.
  const double bounds[2][2] = {{1.0, 0.2}, {1.0, 0.5}};  // [codec][restore, pack]
  std::fprintf(out, "%-31s %9s %9s %9s %9s %9s %9s %9s\n", "", "requests", "answers", "all",
               "w/o 5", "geo-mean", "/zstd-1", "target");
  for (int codec = 0; codec < 2; ++codec) {
    for (Op op : {Op::Restore, Op::Pack}) {
      const Op lz4 = op == Op::Restore ? Op::Lz4Decompress : Op::Lz4Compress;
      const Op zstd = op == Op::Restore ? Op::ZstdDecompress : Op::ZstdCompress;
      const double bound = bounds[codec][op == Op::Pack];
      char name[64];
      std::snprintf(name, sizeof name, "%s %-7s / LZ4 %s", kCodecs[codec], opName(op),
                    op == Op::Restore ? "decompress" : "compress");
      const double sum = ratio(allTrimmed[codec][op], allTrimmed[codec][lz4]);
      const double mean = geometricMean(perNumber[codec], op, lz4);
      std::fprintf(out, "%-31s %8.2fx %8.2fx %8.2fx %8.2fx %8.2fx %8.2fx %9s\n", name,
                   ratio(every[codec][0][op], every[codec][0][lz4]),
                   ratio(every[codec][1][op], every[codec][1][lz4]),
                   ratio(all[codec][op], all[codec][lz4]), sum, mean,
                   ratio(all[codec][op], all[codec][zstd]), boundText(bound, true).c_str());
      const std::string target = std::string(kCodecs[codec]) + " " + opName(op) + " / LZ4 " +
                                 (op == Op::Restore ? "decompress" : "compress");
      targets.push_back({target + " (sum w/o 5)", sum, bound, true});
      targets.push_back({target + " (geo-mean)", mean, bound, true});
    }
    // The restore without its buffer: into the caller's, nothing allocated or released.
    char name[64];
    std::snprintf(name, sizeof name, "%s %-7s / LZ4 decompress", kCodecs[codec], "into");
    const Op into = Op::RestoreInto, lz4 = Op::Lz4Decompress;
    std::fprintf(out, "%-31s %8.2fx %8.2fx %8.2fx %8.2fx %8.2fx %8.2fx %9s\n", name,
                 ratio(every[codec][0][into], every[codec][0][lz4]),
                 ratio(every[codec][1][into], every[codec][1][lz4]),
                 ratio(all[codec][into], all[codec][lz4]),
                 ratio(allTrimmed[codec][into], allTrimmed[codec][lz4]),
                 geometricMean(perNumber[codec], into, lz4),
                 ratio(all[codec][into], all[codec][Op::ZstdDecompress]), "-");
  }
  std::fprintf(out,
               "(all: sums over every number; w/o 5: the same without the answers of 1004, 1116,\n"
               "1122, 8996 and 8997, whose blocks and long texts weigh most; geo-mean: of the\n"
               "per-number ratios, every number; /zstd-1: all, against zstd level 1; the targets\n"
               "hold for w/o 5 and geo-mean; into: the restore into the caller's buffer, nothing\n"
               "allocated)\n");

  std::fprintf(out, "\nPacked size, all numbers (bytes, %% of raw)\n");
  std::fprintf(out, "%-9s %10s %17s %17s %17s %17s\n", "", "raw", "2008", "2011", "LZ4", "zstd-1");
  const char* directions[] = {"requests", "answers", "all"};
  for (int d = 0; d < 3; ++d) {
    const Sums& s8 = d < 2 ? every[0][d] : all[0];
    const Sums& s11 = d < 2 ? every[1][d] : all[1];
    // LZ4 and zstd of the 2008 messages' raw bytes (the 2011 ones differ only in a few layouts).
    std::fprintf(out, "%-9s %10.0f %10.0f %5.1f%% %10.0f %5.1f%% %10.0f %5.1f%% %10.0f %5.1f%%\n",
                 directions[d], s8.raw, s8.packed, 100 * ratio(s8.packed, s8.raw), s11.packed,
                 100 * ratio(s11.packed, s11.raw), s8.lz4, 100 * ratio(s8.lz4, s8.raw), s8.zstd,
                 100 * ratio(s8.zstd, s8.raw));
  }
  for (int codec = 0; codec < 2; ++codec)
    std::fprintf(out, "%s packed size / LZ4: %.2fx, / zstd-1: %.2fx (same raw bytes)\n",
                 kCodecs[codec], ratio(all[codec].packed, all[codec].lz4),
                 ratio(all[codec].packed, all[codec].zstd));

  std::fprintf(out,
               "\n1-record requests of every number with a request layout (ns, fastest-slowest "
               "number):\nthe allocating restore; the restore into the caller's buffer; the "
               "record's decoding\nalone (no header, frame or checks of the message); LZ4 "
               "decompress and memcpy of the\nrestored message; malloc+memcpy+free of it, and "
               "the same with the 1024 zeroed bytes\nof slack every restored request carries\n");
  const Op oneOps[] = {Op::Restore, Op::RestoreInto,      Op::Fields,         Op::Lz4Decompress,
                       Op::Memcpy,  Op::MallocMemcpyFree, Op::MallocSlackFree};
  std::fprintf(out, "%-6s %7s %9s %9s %9s %9s %9s %11s %9s\n", "codec", "numbers", "restore",
               "into", "fields", "LZ4", "memcpy", "malloc+copy", "+slack");
  PerNumber one[2];
  for (const Measure& m : run.measures)
    if (m.group == "one")
      one[m.message->codec][static_cast<int>(m.op)][m.message->number] += m.cpuNs;
  for (int codec = 0; codec < 2; ++codec) {
    std::fprintf(out, "%-6s %7zu", kCodecs[codec],
                 one[codec][static_cast<int>(Op::Restore)].size());
    for (Op op : oneOps) {
      const auto& times = one[codec][static_cast<int>(op)];
      double lo = 1e18, hi = 0;
      for (const auto& [number, ns] : times) lo = std::min(lo, ns), hi = std::max(hi, ns);
      char range[32] = "n/a";
      if (!times.empty()) std::snprintf(range, sizeof range, "%.0f-%.0f", lo, hi);
      std::fprintf(out, " %*s", op == Op::MallocMemcpyFree ? 11 : 9, range);
    }
    std::fprintf(out, "\n");
  }
  std::fprintf(out, "\n%-6s %13s %13s %13s %13s %13s\n", "ratios", "into/memcpy", "fields/memcpy",
               "restore/LZ4", "restore/copy", "restore/+slk");
  for (int codec = 0; codec < 2; ++codec) {
    const PerNumber& t = one[codec];
    const double into = geometricMean(t, Op::RestoreInto, Op::Memcpy);
    const double allocating = geometricMean(t, Op::Restore, Op::Lz4Decompress);
    std::fprintf(out, "%-6s", kCodecs[codec]);
    for (double r : {into, geometricMean(t, Op::Fields, Op::Memcpy), allocating,
                     geometricMean(t, Op::Restore, Op::MallocMemcpyFree),
                     geometricMean(t, Op::Restore, Op::MallocSlackFree)})
      if (r > 0)
        std::fprintf(out, " %12.2fx", r);
      else
        std::fprintf(out, " %13s", "n/a");
    std::fprintf(out, "\n");
    targets.push_back({std::string(kCodecs[codec]) + " 1-record restore into / memcpy (geo-mean)",
                       into, 5.0, true});
    targets.push_back(
        {std::string(kCodecs[codec]) + " 1-record restore / LZ4 decompress (geo-mean)", allocating,
         1.3, true});
  }
  std::fprintf(out,
               "(geometric means of the per-number ratios; targets: into/memcpy %s, the "
               "allocating\nrestore/LZ4 %s; fields/memcpy: the record's decoding alone, the "
               "least any restore\nof the codec takes; restore/copy: against malloc+memcpy+free, "
               "restore/+slk: against\nthe buffer an allocating restore must allocate and "
               "zero)\n",
               boundText(5.0, true).c_str(), boundText(1.3, true).c_str());

  std::fprintf(out, "\n%d-record answers of the widest layouts (GB/s of raw message)\n",
               kWideRecords);
  std::fprintf(out, "%-6s %6s %6s %7s | %6s %7s | %6s %7s | %6s %7s | %6s %7s | %6s\n", "number",
               "fields", "bytes", "raw MB", "2008", "", "2011", "", "LZ4", "", "zstd-1", "",
               "memcpy");
  std::fprintf(out, "%-6s %6s %6s %7s | %6s %7s | %6s %7s | %6s %7s | %6s %7s | %6s\n", "", "", "",
               "", "pack", "restore", "pack", "restore", "comp", "decomp", "comp", "decomp", "");
  std::map<std::uint32_t, std::map<std::string, double>> wide;
  std::map<std::uint32_t, std::size_t> wideRaw;
  for (const Measure& m : run.measures) {
    if (m.group != "wide") continue;
    const double gbps = ratio(static_cast<double>(m.rawBytes()), m.cpuNs);
    const bool general = m.op != Op::Pack && m.op != Op::Restore;
    // The general-purpose figures are taken on the 2008 message's raw bytes.
    if (general && m.message->codec != 0) continue;
    wide[m.message->number]
        [general ? opName(m.op) : std::string(kCodecs[m.message->codec]) + opName(m.op)] = gbps;
    wideRaw[m.message->number] = m.rawBytes();
  }
  for (auto& [number, g] : wide) {
    const auto* l = trdcomp::frame::find(number)->answerRestore[0]->sections[0];
    std::fprintf(out,
                 "%-6u %6u %6u %7.2f | %6.2f %7.2f | %6.2f %7.2f | %6.2f %7.2f | %6.2f %7.2f | "
                 "%6.2f\n",
                 number, l->fieldCount, l->size, static_cast<double>(wideRaw[number]) / 1e6,
                 g["2008pack"], g["2008restore"], g["2011pack"], g["2011restore"],
                 g["lz4_compress"], g["lz4_decompress"], g["zstd_compress"], g["zstd_decompress"],
                 g["memcpy"]);
  }

  // Real time is what the target counts. CPU time per pass shows whether the threads slow
  // each other down (shared state, allocator); on a machine whose cores are busy with other
  // work the real-time figure falls short of what the CPU time allows.
  double real[3] = {}, cpu[3] = {};
  for (const Measure& m : run.measures)
    if (m.group == "threads") real[m.threads] = m.realNs, cpu[m.threads] = m.cpuNs;
  const double scaling = ratio(real[1], real[2]);
  if (run.cpus >= 2)
    std::fprintf(out,
                 "\nTwo threads, each packing and restoring its own copies of the workload (both "
                 "codecs;\nthreads free to use every CPU): %.2fx the throughput of one in real "
                 "time.\nCPU time per pass: %.1f ms alone, %.1f ms with two threads (%.2fx "
                 "with two idle cores).\n",
                 scaling, cpu[1] / 1e6, cpu[2] / 1e6, 2 * ratio(cpu[1], cpu[2]));
  else
    std::fprintf(out, "\nOne CPU only: no thread scaling measured.\n");
  targets.push_back({"2 threads / 1 thread throughput", scaling, 1.9, false});

  std::fprintf(out, "\nTargets (one core, the threads row two)\n");
  std::fprintf(out, "%-56s %8s %9s\n", "", "now", "target");
  for (const Target& t : targets) {
    std::fprintf(out, "%-56s %7.2fx %9s  %s\n", t.name.c_str(), t.value,
                 boundText(t.bound, t.atMost).c_str(),
                 t.value <= 0 ? "n/a"
                 : t.met()    ? "met"
                              : "miss");
  }
  return targets;
}

bool writeCsv(const Session& run, const std::vector<Target>& targets, const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return false;
  std::fprintf(f,
               "kind,group,number,codec,message,records,operation,threads,raw_bytes,out_bytes,"
               "cpu_ns,real_ns,value,target\n");
  for (const Measure& m : run.measures) {
    if (m.message)
      std::fprintf(f, "measure,%s,%u,%s,%s,%d,%s,1,%zu,%zu,%.2f,%.2f,,\n", m.group.c_str(),
                   m.message->number, m.message->codecName(), m.message->kind(), m.message->records,
                   opName(m.op), m.rawBytes(), m.outBytes, m.cpuNs, m.realNs);
    else
      std::fprintf(f, "measure,%s,,,,,pack_restore,%d,,,%.2f,%.2f,,\n", m.group.c_str(), m.threads,
                   m.cpuNs, m.realNs);
  }
  for (const Target& t : targets)
    std::fprintf(f, "target,,,,,,%s,,,,,,%.4f,%s%.2f\n", t.name.c_str(), t.value,
                 t.atMost ? "<=" : ">=", t.bound);
  return std::fclose(f) == 0;
}

bool parse(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&](const char* flag, std::string& into) {
      const std::string prefix = std::string(flag) + "=";
      if (a == flag && i + 1 < argc) {
        into = argv[++i];
        return true;
      }
      if (a.rfind(prefix, 0) == 0) {
        into = a.substr(prefix.size());
        return true;
      }
      return false;
    };
    std::string v;
    if (value("--csv", o.csv)) continue;
    if (value("--min-time", v)) {
      o.minTime = std::atof(v.c_str());
      if (o.minTime <= 0) return false;
      continue;
    }
    if (value("--repetitions", v)) {
      o.repetitions = std::atoi(v.c_str());
      if (o.repetitions < 1) return false;
      continue;
    }
    if (a == "--smoke") {
      o.smoke = true;
      o.minTime = 0.001;
      o.repetitions = 1;
      continue;
    }
    if (a == "--verbose") {
      o.verbose = true;
      continue;
    }
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Session run;
  if (!parse(argc, argv, run.options)) {
    std::fprintf(
        stderr,
        "usage: %s [--csv FILE] [--min-time SECONDS] [--repetitions N] [--smoke] [--verbose] "
        "[--benchmark_...]\n",
        argv[0]);
    return 2;
  }
#if !defined(NDEBUG)
  std::fprintf(stderr, "trdcomp_compare: built without NDEBUG; figures are not representative\n");
#endif
  saveAffinity();
  build(run);
  if (!run.options.smoke)
    std::fprintf(stderr, "trdcomp_compare: %zu messages come back as sent; %zu measurements\n",
                 run.messages.size(), run.measures.size());
  Collector collector(run, run.measures.size());
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  const std::vector<Target> targets = report(run, stdout);
  if (!run.options.csv.empty() && !writeCsv(run, targets, run.options.csv)) {
    std::perror(run.options.csv.c_str());
    return 1;
  }
  return 0;
}
