// The 2008 record decoder on crafted wire bytes that no packer writes, on small layouts written
// in the table notation. (The golden and adversarial corpora freeze what every catalogue layout
// packs and restores to.)
#include <gtest/gtest.h>

#include "primitives/bytes.h"
#include "records/codec2008.h"
#include "test_util.h"

using namespace trdcomp::test;
using trdcomp::InView;

namespace {

// Decodes into a zeroed record, as restore buffers are.
Bytes decode(const TestLayout& t, const Bytes& in, std::int64_t available) {
  Bytes record(t.layout.size, 0);
  trdcomp::records::decode2008(t.layout, InView(in.data(), in.size()), available, record.data(),
                               static_cast<std::int64_t>(record.size()), 0,
                               trdcomp::records::Slot::Zero);
  return record;
}

struct DecodeCase {
  const char* name;
  std::uint32_t size;
  const char* layout;
  const char* input;
  std::int64_t available;
  const char* record;
};

TEST(Codec2008, DecodesFromTheWire) {
  // clang-format off
  const DecodeCase cases[] = {
      {"over-long text keeps N bytes, next field read in place", 5, "0: char[4] string; 4: char",
       "07 41 42 43 44 45 46 47 7A", 9, "41 42 43 44 7A"},
      {"no bytes available: all zero", 5, "0: char[4] string; 4: char", "02 41 42 7A", 0, "00 00 00 00 00"},
      {"input ends inside the field list", 5, "0: char[4] string; 4: char", "02 41 42 7A", 3, "41 42 00 00 00"},
      {"zero or negative text length leaves the field", 5, "0: char[4] string; 4: char", "81 7A", 2,
       "00 00 00 00 7A"},
      {"rotated record cut short keeps its leading text zero", 5, "4: char; 0: char[4] string (rotated)",
       "7A 02 41 42", 1, "00 00 00 00 7A"},
      {"short string keeps N - 1 bytes", 4, "0: short string [4]", "04 41 42 43 44", 5, "41 42 43 00"},
      {"short string copy stops at a zero byte", 4, "0: short string [4]", "03 41 00 43", 4, "41 00 00 00"},
      {"stored block longer than the width is cut and skipped", 5, "0: byte block [4]; 4: char",
       "06 01 02 03 04 05 06 78", 8, "01 02 03 04 78"},
      {"counted block copies min(L, M) and skips M", 13,
       "8: int32 (flag); 0: length-counted byte block [8]; 12: char (rotated)", "02 03 01 02 03 7A", 6,
       "01 02 00 00 00 00 00 00 02 00 00 00 7A"},
      {"counted block with L beyond the block stays inside it", 13,
       "8: int32 (flag); 0: length-counted byte block [8]; 12: char (rotated)",
       "14 0A 01 02 03 04 05 06 07 08 09 0A 7A", 13, "01 02 03 04 05 06 07 08 14 00 00 00 7A"}};
  // clang-format on
  for (const DecodeCase& c : cases) {
    const TestLayout t(c.size, c.layout);
    EXPECT_EQ(hexOf(decode(t, hex(c.input), c.available)), hexOf(hex(c.record))) << c.name;
  }
}

}  // namespace
