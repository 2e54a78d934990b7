// The hostile-input table: crafted messages of at most 4 KiB, restored through both restore entry
// points for every function number and both codecs, with the time each takes and the memory it
// touches beyond its own restored buffer. Prints a markdown table (docs/hostile-input.md).
//
// Memory touched is read from the page faults of the call (getrusage), less the pages of the
// restored buffer that are resident afterwards (mincore): what remains is memory the call touched
// besides its output (scratch, tables, the allocator's own). Time is the best of a few runs.
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "samples.h"

namespace {

using trdcomp::samples::Bytes;

constexpr std::size_t kMostInput = 4096;

struct Input {
  std::string category, name;
  bool answer;
  Bytes bytes;
};

void put32(Bytes& b, std::size_t at, std::uint32_t v) {
  if (b.size() < at + 4) b.resize(at + 4);
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}
void put16(Bytes& b, std::size_t at, std::uint16_t v) {
  if (b.size() < at + 2) b.resize(at + 2);
  b[at] = static_cast<unsigned char>(v), b[at + 1] = static_cast<unsigned char>(v >> 8);
}

// A header of a request (76) or answer (96) with the number, flags, count and sender size.
Bytes header(bool answer, std::uint32_t number, unsigned flags, std::uint32_t count,
             std::uint32_t size, std::size_t total) {
  Bytes b(std::max<std::size_t>(total, answer ? 96 : 76), 0);
  put32(b, 0, answer ? 96 : 76);
  put32(b, 4, number);
  b[8] = static_cast<unsigned char>(flags);
  put32(b, answer ? 88 : 68, count);
  put32(b, answer ? 92 : 72, size);
  return b;
}

std::vector<Input> craft() {
  std::vector<Input> inputs;
  const std::uint32_t counts[] = {0x7FFFFFFF, 0x01000000, 65535, 4000};
  const std::uint32_t sizes[] = {0, 0xFFFFFFFF, 0x80000000, 1, 83};
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    const std::string number = std::to_string(e->number);
    for (unsigned nibble : {0u, 1u}) {
      const std::string codec = nibble ? " 2011" : " 2008";
      for (bool answer : {false, true}) {
        const std::string dir = answer ? " answer" : " request";
        const std::size_t body = answer ? 96 : 76;
        // Huge counts over 4 KiB of the smallest records (zeros), packed and raw.
        for (std::uint32_t count : counts)
          for (unsigned packed : {0u, 1u}) {
            Bytes b = header(answer, e->number, nibble << 4 | packed, count, 83, kMostInput);
            put16(b, body, static_cast<std::uint16_t>(count));  // a 2011 count that agrees
            inputs.push_back({"huge counts", number + codec + dir, answer, b});
          }
        // Zero and negative sender sizes with huge counts (raw bodies).
        for (std::uint32_t size : sizes) {
          Bytes b = header(answer, e->number, nibble << 4, 0x7FFFFF00, size, kMostInput);
          inputs.push_back({"zero and negative sizes", number + codec + dir, answer, b});
        }
        // Huge lengths: every 2008 record length, 2011 block length or field length at its
        // largest.
        for (std::uint32_t length : {0xFFFFFFFFu, 0x7FFFFFFFu, 0x0000FFFFu}) {
          Bytes b = header(answer, e->number, nibble << 4 | 1, 1000, 83, kMostInput);
          for (std::size_t at = body + (nibble ? 2 : 0); at + 4 <= kMostInput; at += 4)
            put32(b, at, length);
          put16(b, body, nibble ? 1000 : b[body]);
          inputs.push_back({"huge lengths", number + codec + dir, answer, b});
        }
        // Huge section tables (answers): the table size and its pairs at their largest.
        if (answer)
          for (std::uint32_t table : {0x7FFFFFFCu, 0x0000002Cu, 0xFFFFFFF4u}) {
            Bytes b = header(true, e->number, nibble << 4 | 3, 0x7FFFFFFF, 83, kMostInput);
            put32(b, 96, table);
            for (std::size_t at = 100; at + 8 <= kMostInput; at += 8) {
              put32(b, at, 0x7FFFFFFF);
              put32(b, at + 4, 0xFFFFFFFF);
            }
            inputs.push_back({"huge section counts", number + codec + dir, answer, b});
          }
        // Truncations: every 64th prefix of a real message of up to 4 KiB.
        Bytes message;
        if (answer) {
          const auto a = trdcomp::samples::makeAnswer(e->number, nibble, 40, e->number);
          message =
              trdcomp::samples::packAnswer(a.proc, a.sections, 0, static_cast<int>(nibble << 4));
        } else {
          const auto r =
              trdcomp::samples::makeRequest(e->number, static_cast<int>(nibble), 40, e->number);
          message = trdcomp::samples::packRequest(r.head, r.body);
        }
        message.resize(std::min(message.size(), kMostInput));
        for (std::size_t cut = 1; cut <= message.size(); cut += 64)
          inputs.push_back({"truncations", number + codec + dir, answer,
                            Bytes(message.begin(), message.begin() + static_cast<long>(cut))});
      }
    }
  }
  return inputs;
}

long minorFaults() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_minflt;
}

// Pages of [p, p + n) that are resident.
std::size_t residentBytes(const char* p, std::size_t n) {
  if (!p || n == 0) return 0;
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const auto start = reinterpret_cast<std::uintptr_t>(p) & ~(page - 1);
  const std::size_t pages = (reinterpret_cast<std::uintptr_t>(p) + n - start + page - 1) / page;
  std::vector<unsigned char> in(pages);
  if (mincore(reinterpret_cast<void*>(start), pages * page, in.data()) != 0) return 0;
  return static_cast<std::size_t>(
             std::count_if(in.begin(), in.end(), [](unsigned char c) { return c & 1; })) *
         page;
}

struct Measure {
  double micros = 0;
  long long touchedBeyond = 0;  // bytes
  long long restored = 0;       // bytes of the restored message
};

Measure measure(const Input& in) {
  using Clock = std::chrono::steady_clock;
  const long page = sysconf(_SC_PAGESIZE);
  Measure m;
  m.micros = 1e30;
  std::vector<char> copy(in.bytes.begin(), in.bytes.end());
  for (int run = 0; run < 3; ++run) {
    char* out = nullptr;
    int length = 0;
    const long faults = minorFaults();
    const auto t0 = Clock::now();
    if (in.answer)
      CTrdCompData::RestoreAns2008(copy.data(), static_cast<int>(copy.size()), &out, length, 0);
    else
      CTrdCompData::RestoreReq2008(copy.data(), static_cast<int>(copy.size()), &out, length, 0);
    const auto t1 = Clock::now();
    const long long touched = (minorFaults() - faults) * page;
    const long long own = static_cast<long long>(residentBytes(out, out ? length + 10u : 0));
    m.micros = std::min(m.micros, std::chrono::duration<double, std::micro>(t1 - t0).count());
    m.touchedBeyond = std::max(m.touchedBeyond, std::max(0LL, touched - own));
    m.restored = length;
    CTrdCompData::ReleaseAnsData(out);
  }
  return m;
}

}  // namespace

int main() {
  const std::vector<Input> inputs = craft();
  struct Row {
    std::size_t count = 0;
    double worstMicros = 0;
    std::string slowest;
    long long worstTouched = 0;
    std::string hungriest;
    std::size_t over = 0;  // inputs above either target
  };
  std::map<std::string, Row> rows;
  Row all;
  for (const Input& in : inputs) {
    const Measure m = measure(in);
    for (Row* r : {&rows[in.category], &all}) {
      ++r->count;
      if (m.micros > r->worstMicros) r->worstMicros = m.micros, r->slowest = in.name;
      if (m.touchedBeyond > r->worstTouched)
        r->worstTouched = m.touchedBeyond, r->hungriest = in.name;
      if (m.micros >= 100 || m.touchedBeyond >= (1 << 20)) ++r->over;
    }
  }
  std::printf(
      "| inputs (at most 4 KiB) | count | worst time | slowest | worst memory touched beyond "
      "the restored buffer | at | over a target |\n|---|---|---|---|---|---|---|\n");
  auto print = [](const std::string& name, const Row& r) {
    std::printf("| %s | %zu | %.1f us | %s | %lld KiB | %s | %zu |\n", name.c_str(), r.count,
                r.worstMicros, r.slowest.c_str(), r.worstTouched / 1024,
                r.hungriest.empty() ? "-" : r.hungriest.c_str(), r.over);
  };
  for (const auto& [name, r] : rows) print(name, r);
  print("**all**", all);
  std::printf(
      "\nTargets: under 100 us and under 1 MiB touched beyond the restored buffer, per "
      "input.\n");
  return 0;
}
