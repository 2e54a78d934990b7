// The 2008 record decoder reads records that lie wholly inside their input without checking a
// byte; records near the end of the input, and every record of the reference functions, go
// through the checked reads. Both must give the same bytes: every layout, every codec flag,
// packed records cut, overrun and corrupted. (The encoder's two paths are frozen by the corpora,
// the compiled one for records of the layout's size and above, the checked one for shorter
// records, and compared on arbitrary bytes by the differential fuzzer.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "primitives/bytes.h"
#include "records/answer_layouts.h"
#include "records/codec2008.h"
#include "records/request_layouts.h"
#include "test_util.h"

using trdcomp::InView;
using trdcomp::records::Layout;
using namespace trdcomp::test;

namespace {

// Decodes `packed` (its first `available` bytes are the record) both ways into records marked
// past their room, and checks that the bytes, the room behind and the reach agree.
// Returns whether the unchecked reads were taken.
bool compareDecodes(const Layout& l, const Bytes& packed, std::int64_t available, char flag) {
  const InView in(packed.data(), static_cast<std::int64_t>(packed.size()));
  const bool inside = available >= 0 && in.size() - available >= l.readSpan;
  EXPECT_EQ(trdcomp::records::insideForDecode2008(l, in, available), inside);
  const std::size_t room = l.reach + 64;
  Bytes checked(room + 16, 0xEE);
  std::fill(checked.begin(), checked.begin() + room, 0);
  const std::int64_t b = trdcomp::records::decode2008Checked(l, in, available, checked.data(),
                                                             static_cast<std::int64_t>(room), flag);
  // Into a zero slot; and, for a layout that fills its records, over whatever the slot held:
  // every byte of the record is written.
  for (const auto slot : {trdcomp::records::Slot::Zero, trdcomp::records::Slot::Any}) {
    if (slot == trdcomp::records::Slot::Any && !l.fills) continue;
    Bytes fast(room + 16, 0xEE);
    std::fill(fast.begin(), fast.begin() + room, 0);
    if (slot == trdcomp::records::Slot::Any) std::fill(fast.begin(), fast.begin() + l.size, 0xA5);
    const std::int64_t a = trdcomp::records::decode2008(
        l, in, available, fast.data(), static_cast<std::int64_t>(room), flag, slot);
    EXPECT_EQ(a, b);
    EXPECT_EQ(fast, checked) << l.text;
  }
  return inside;
}

TEST(FastPath, Decode2008GivesTheCheckedBytes) {
  std::mt19937 rng(20261123);
  int inside = 0;
  for (const Layout* l : everyLayout()) {
    SCOPED_TRACE(std::to_string(l->number) + " section " + std::to_string(l->section));
    for (char flag : {0, 1, 2}) {
      Bytes record(l->size);
      trdcomp::samples::fillRecord(*l, record.data(), rng, false);
      Bytes packed(static_cast<std::size_t>(trdcomp::records::maxEncoded2008(*l, l->size)) + 8);
      const std::uint32_t n = trdcomp::records::encode2008(*l, InView(record.data(), record.size()),
                                                           packed.data(), flag);
      packed.resize(n);
      // Behind the record: the next record's bytes, as many as the unchecked reads may need.
      Bytes tail(l->readSpan);
      for (auto& b : tail) b = static_cast<unsigned char>(rng());
      for (int variant = 0; variant < 24; ++variant) {
        Bytes m = packed;
        std::int64_t available = n;
        if (variant > 0 && !m.empty()) {
          // Corrupt a few bytes; some variants also claim a shorter or longer record.
          for (int k = 0; k < 1 + variant % 4; ++k)
            m[rng() % m.size()] = static_cast<unsigned char>(variant % 3 ? rng() : 0xFF);
          if (variant % 5 == 0) available = static_cast<std::int64_t>(rng() % (n + 1));
          if (variant % 7 == 0) available = n + static_cast<std::int64_t>(rng() % 64);
        }
        Bytes in = m;
        in.insert(in.end(), tail.begin(), tail.end());
        inside += compareDecodes(*l, in, available, flag);
        // The same record as the last of its input: mostly the checked reads.
        compareDecodes(*l, m, available, flag);
      }
    }
  }
  EXPECT_GT(inside, 1000);  // the unchecked reads were exercised
}

}  // namespace
