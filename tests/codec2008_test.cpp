// The generic 2008 record codec on small layouts written in the table notation.
#include <gtest/gtest.h>

#include "primitives/bytes.h"
#include "records/codec2008.h"
#include "test_util.h"

using namespace trdcomp::test;
using trdcomp::InView;

namespace {

Bytes encode(const TestLayout& t, const Bytes& record, char flag) {
  Bytes out(4096);
  out.resize(trdcomp::records::encode2008(t.layout, InView(record.data(), record.size()),
                                          out.data(), flag));
  return out;
}

// Decodes into a record with `room` bytes (the layout size unless a case needs more).
Bytes decode(const TestLayout& t, const Bytes& in, std::int64_t available, std::size_t room = 0) {
  // The record arrives zeroed, as restore buffers do; the room behind it is marked, so that a
  // write past the record shows.
  Bytes record(room ? room : t.layout.size, 0xEE);
  std::fill(record.begin(), record.begin() + t.layout.size, 0);
  trdcomp::records::decode2008(t.layout, InView(in.data(), in.size()), available, record.data(),
                               static_cast<std::int64_t>(record.size()), 0,
                               trdcomp::records::Slot::Zero);
  return record;
}

struct EncodeCase {
  const char* name;
  std::uint32_t size;
  const char* layout;
  char flag;
  const char* record;
  const char* packed;
  const char* restored;  // null: the record itself; "": not restorable
};

constexpr const char* kMixed = "0: char; 1: char[8] string; 9: int32 (flag); 13: int64; 21: double";
constexpr const char* kMixedRecord =  // 'Z', "AB", -100, 300, 1.23456
    "5A 41 42 00 00 00 00 00 00 9C FF FF FF 2C 01 00 00 00 00 00 00 38 32 8F FC C1 C0 F3 3F";
constexpr const char* kMixedRestored =  // ... and 1.2346
    "5A 41 42 00 00 00 00 00 00 9C FF FF FF 2C 01 00 00 00 00 00 00 FE 43 FA ED EB C0 F3 3F";
constexpr const char* kGroup =
    "0: int32 (flag); 4: up to 2 x (char, short string [4]) counted by 0; 14: char";

TEST(Codec2008, EncodesEveryKind) {
  // clang-format off
  const EncodeCase cases[] = {
      {"flag 0: compact 32-bit int32", 29, kMixed, 0, kMixedRecord, "5A 02 41 42 A4 03 1C 12 2A 03 03", kMixedRestored},
      {"flag 1: compact 64-bit int32", 29, kMixed, 1, kMixedRecord, "5A 02 41 42 94 06 1C 12 2A 03 03", kMixedRestored},
      {"flag 2: int32 left out", 29, kMixed, 2, kMixedRecord, "5A 02 41 42 1C 12 2A 03 03", ""},
      {"half unit added to a negative price", 8, "0: double", 0, "8D 97 6E 12 83 C0 F3 BF", "A8 03 03",
       "1C EB E2 36 1A C0 F3 BF"},  // -1.2345 comes back as -1.2344
      {"... and -0.0005 as -0.0004", 8, "0: double", 0, "FC A9 F1 D2 4D 62 40 BF", "84", "2D 43 1C EB E2 36 3A BF"},
      {"blocks travel whole", 5, "0: byte block [4]; 4: char", 0, "01 00 02 00 78", "04 01 00 02 00 78", nullptr},
      // A text that fills its array runs into the next field, as peers send it; the decoder
      // keeps the width, so the record still comes back as it was.
      {"texts measured to their terminator", 7, "0: char[4] string; 4: char[3] string", 0,
       "41 42 43 44 45 46 00", "06 41 42 43 44 45 46 02 45 46", nullptr},
      {"group: at most its entries", 15, kGroup, 0, "03 00 00 00 61 78 79 00 00 62 7A 00 00 00 54",
       "03 61 02 78 79 62 01 7A 54", nullptr},
      {"group: the counted entries", 15, kGroup, 0, "01 00 00 00 61 78 79 00 00 62 7A 00 00 00 54",
       "01 61 02 78 79 54", "01 00 00 00 61 78 79 00 00 00 00 00 00 00 54"},
      {"group: none for a negative count", 15, kGroup, 0, "FF FF FF FF 61 78 79 00 00 62 7A 00 00 00 54",
       "81 54", "FF FF FF FF 00 00 00 00 00 00 00 00 00 00 54"}};
  // clang-format on
  for (const EncodeCase& c : cases) {
    const TestLayout t(c.size, c.layout);
    const Bytes packed = encode(t, hex(c.record), c.flag);
    EXPECT_EQ(hexOf(packed), hexOf(hex(c.packed))) << c.name;
    if (c.restored && !*c.restored) continue;
    Bytes restored(c.size, 0);
    trdcomp::records::decode2008(t.layout, InView(packed.data(), packed.size()),
                                 static_cast<std::int64_t>(packed.size()), restored.data(), c.size,
                                 c.flag, trdcomp::records::Slot::Zero);
    EXPECT_EQ(hexOf(restored), hexOf(hex(c.restored ? c.restored : c.record))) << c.name;
  }
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

TEST(Codec2008, DecodeCapWritesPastTheRecordOnlyIntoTheRoom) {
  const TestLayout t(4, "0: char[4] string (decode cap 6)");
  const Bytes in = hex("08 41 42 43 44 45 46 47 48");
  EXPECT_EQ(hexOf(decode(t, in, 9, 8)), "41 42 43 44 45 46 EE EE");
  EXPECT_EQ(hexOf(decode(t, in, 9, 5)), "41 42 43 44 45");
}

}  // namespace
