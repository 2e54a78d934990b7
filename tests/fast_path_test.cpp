// The 2011 encoder and decoder walk a field table prepared at compile time; the reference paths
// walk the layout field by field through checked reads. Both must write the same bytes: every
// catalogue layout and part, chains of realistic records, records of arbitrary bytes
// (unterminated texts, wild counts, NaN prices), caller's records longer or cut short, blocks
// corrupted, cut and overrun, previous records restored or arbitrary. (The corpora freeze what
// the fast paths of both codecs write for their messages, including the 2008 decoder's unchecked
// reads; differential_fuzzer compares both codecs' paths on arbitrary bytes.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "primitives/bytes.h"
#include "records/codec2011.h"
#include "test_util.h"

using trdcomp::InView;
using trdcomp::records::Layout;
using trdcomp::records::Part;
using trdcomp::records::Previous;
using trdcomp::records::Slot;
using namespace trdcomp::test;

namespace {

constexpr std::size_t kGuard = 16;  // marked bytes behind a record's room: never written

// A record of `size` zero bytes followed by the guard (or `fill` over the record itself).
Bytes slot(std::size_t size, unsigned char fill = 0) {
  Bytes b(size + kGuard, 0xEE);
  std::fill(b.begin(), b.begin() + static_cast<long>(size), fill);
  return b;
}

Bytes randomBytes(std::size_t n, std::mt19937& rng, unsigned spread = 256) {
  Bytes b(n);
  for (auto& c : b) c = static_cast<unsigned char>(rng() % spread);
  return b;
}

// Decodes the first `length` bytes of `in` as a 2011 block both ways; returns the reference's
// record (its guard dropped) after checking that the fast path wrote the same bytes and index.
Bytes compareDecodes(const Layout& l, Part part, const Bytes& in, std::int64_t length,
                     const Previous& previous) {
  const InView view(in.data(), static_cast<std::int64_t>(in.size()));
  Bytes fast = slot(l.size), checked = slot(l.size);
  EXPECT_EQ(
      trdcomp::records::decode2011(l, part, view, length, fast.data(), l.size, previous),
      trdcomp::records::decode2011Checked(l, part, view, length, checked.data(), l.size, previous));
  EXPECT_TRUE(fast == checked);
  if (previous.record && part == Part::Whole) {
    // Such a record is restored over whatever its slot held: every byte is written.
    EXPECT_TRUE(trdcomp::records::overwrites2011(l, l.size));
    Bytes dirty = slot(l.size, 0xA5);
    trdcomp::records::decode2011(l, part, view, length, dirty.data(), l.size, previous, Slot::Any);
    EXPECT_TRUE(dirty == checked);
  }
  checked.resize(l.size);
  return checked;
}

TEST(FastPath2011, EncodeAndDecodeGiveTheReferenceBytes) {
  std::mt19937 rng(11);
  for (const Layout* l : everyLayout()) {
    const std::vector<Part> parts = l->dictionary
                                        ? std::vector<Part>{Part::Whole, Part::Group, Part::Reduced}
                                        : std::vector<Part>{Part::Whole};
    for (Part part : parts) {
      SCOPED_TRACE(std::to_string(l->number) + " section " + std::to_string(l->section) + " part " +
                   std::to_string(int(part)));
      // A table that lost a layout would fall back to the reference: compared with itself.
      ASSERT_TRUE(trdcomp::records::prepared2011(*l, part));
      const std::size_t most = static_cast<std::size_t>(trdcomp::records::maxBlock2011(*l, part));
      Bytes before, restored;  // the previous caller's record, and as restored
      std::uint16_t beforeIndex = 0;
      for (int i = 0; i < 8; ++i) {
        Bytes record(l->size + (i % 3 == 1 ? 24 : 0));
        if (i < 4) {
          trdcomp::samples::fillRecord(*l, record.data(), rng, true, i ? before.data() : nullptr);
        } else if (i == 6) {  // the same bytes, NaN prices in both: a NaN always differs
          record = before;
          for (const auto& f : *l)
            if (f.kind == trdcomp::records::Kind::Double && rng() % 2) {
              std::memset(record.data() + f.offset, 0xFF, 8);
              std::memset(before.data() + f.offset, 0xFF, 8);
            }
        } else {
          record = randomBytes(record.size(), rng, i % 2 ? 3 : 256);
        }
        const std::size_t seen = i == 7 ? rng() % (record.size() + 1) : record.size();
        const InView current(record.data(), static_cast<std::int64_t>(seen));
        const InView beforeView(before.data(), static_cast<std::int64_t>(before.size()));
        const auto index = static_cast<std::uint16_t>(i % 3 ? beforeIndex : rng() % 300);
        Bytes block;
        for (const Previous& previous :
             {Previous{}, Previous{i ? &beforeView : nullptr, beforeIndex}}) {
          Bytes fast = slot(most), checked = slot(most);
          const std::uint32_t n =
              trdcomp::records::encode2011(*l, part, current, index, previous, fast.data());
          ASSERT_EQ(n, trdcomp::records::encode2011Checked(*l, part, current, index, previous,
                                                           checked.data()));
          ASSERT_LE(n, most);
          ASSERT_TRUE(fast == checked);
          block.assign(fast.begin(), fast.begin() + n);
        }
        // The block as sent, then damaged: bytes changed, every map place set over arbitrary
        // fields, bytes made up, the input ending early, a shorter length; some followed by the
        // next block's bytes. Chained to the previous record as restored, and to arbitrary bytes.
        const Bytes arbitrary = randomBytes(l->size, rng);
        const InView priorView(restored.data(), static_cast<std::int64_t>(restored.size()));
        const InView arbitraryView(arbitrary.data(), static_cast<std::int64_t>(arbitrary.size()));
        const int map = trdcomp::records::mapLength(*l, part);
        for (int variant = 1; variant < 12; ++variant) {
          Bytes in = block;
          auto length = static_cast<std::int64_t>(block.size());
          if (variant < 5 && !in.empty())
            for (int k = 0; k < variant; ++k)
              in[rng() % in.size()] = static_cast<unsigned char>(variant % 2 ? rng() : 0xFF);
          if (variant >= 5 && variant < 7)
            for (std::size_t k = 0; k < in.size(); ++k)
              in[k] = static_cast<unsigned char>(k < std::size_t(map) ? 0x7F : rng());
          if (variant >= 7 && variant < 9) {
            in = randomBytes(rng() % (in.size() + 24), rng);
            length = static_cast<std::int64_t>(in.size());
          }
          if (variant == 9) in.resize(rng() % (in.size() + 1));
          if (variant == 10) length = static_cast<std::int64_t>(rng() % (block.size() + 1));
          if (variant % 2 == 0) in = concat(in, randomBytes(40, rng));
          compareDecodes(*l, part, in, length, Previous{i ? &priorView : nullptr, beforeIndex});
          if (i) compareDecodes(*l, part, in, length, Previous{&arbitraryView, beforeIndex});
        }
        restored = compareDecodes(*l, part, block, static_cast<std::int64_t>(block.size()),
                                  Previous{i ? &priorView : nullptr, beforeIndex});
        before = record;
        before.resize(std::max<std::size_t>(before.size(), l->size));
        beforeIndex = index;
      }
    }
  }
}

}  // namespace
