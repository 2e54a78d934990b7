// How fast fields can be read in order when each one's place is known only from the length of
// the one before (the compact integers of the 2008 codec): a million compact 32-bit integers,
// with a given share of one-byte forms, read by the codec's branch-free read (one load, the
// length code masking it) and by a read that takes the one-byte form on a predicted branch.
// Prints TSC ticks per field, the fastest of 20 passes; run it on one core:
//   taskset -c 0 trdcomp_field_chain [SHARE OF ONE-BYTE FORMS, default 0.6]
#include <x86intrin.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "primitives/bytes.h"
#include "primitives/compact.h"

namespace {

using trdcomp::u8;

// A predicted one-byte form, else the codec's own read.
std::int32_t readPredicted(const trdcomp::InsideBytes& in, std::int64_t& pos) {
  const unsigned b = in.ptr(pos)[0];
  if ((b & 0x60) == 0) [[likely]] {
    ++pos;
    return static_cast<std::int32_t>((b & 0x80) ? 0u - (b & 0x1F) : (b & 0x1F));
  }
  return trdcomp::compact::readInt(in, pos);
}

}  // namespace

int main(int argc, char** argv) {
  const double share = argc > 1 ? std::atof(argv[1]) : 0.6;
  constexpr int kFields = 1 << 20;
  std::mt19937 random(1);
  std::uniform_real_distribution<> uniform(0, 1);
  std::vector<u8> in(kFields * 4 + 16);
  std::int64_t end = 0;
  for (int i = 0; i < kFields; ++i) {
    // One byte with the given share, else two (most), three or four.
    const double r = uniform(random);
    const double rest = (r - share) / (1 - share);
    const std::int32_t magnitude = r < share    ? 31
                                   : rest < 0.6 ? 8191
                                   : rest < 0.9 ? 0x1FFFFF
                                                : 0x1FFFFFFF;
    const auto value = static_cast<std::int32_t>(random() % (magnitude + 1u));
    end += trdcomp::compact::writeInt(in.data() + end, random() & 1 ? value : -value);
  }
  std::vector<std::int32_t> out(kFields);
  const trdcomp::InsideBytes view{{in.data()}};
  for (int predicted = 0; predicted < 2; ++predicted) {
    double best = 1e30;
    for (int pass = 0; pass < 20; ++pass) {
      const std::uint64_t start = __rdtsc();
      std::int64_t pos = 0;
      for (int i = 0; i < kFields; ++i)
        out[i] = predicted ? readPredicted(view, pos) : trdcomp::compact::readInt(view, pos);
      const std::uint64_t stop = __rdtsc();
      asm volatile("" : : "r"(out.data()) : "memory");
      if (pos != end) {
        std::fprintf(stderr, "read %lld bytes of %lld\n", static_cast<long long>(pos),
                     static_cast<long long>(end));
        return 1;
      }
      best = std::min(best, static_cast<double>(stop - start) / kFields);
    }
    std::printf("%-11s %5.2f ticks per field (one-byte forms: %.0f%%)\n",
                predicted ? "predicted" : "branch-free", best, 100 * share);
  }
  return 0;
}
