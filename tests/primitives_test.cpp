// The field primitives against their worked values, quirks included.
#include <gtest/gtest.h>

#include <cstring>

#include "TrdCompData.h"
#include "test_util.h"

using trdcomp::test::Bytes;
using trdcomp::test::hex;
using trdcomp::test::hexOf;
using H = CKtNetCompressHelper;

namespace {

// The integer forms behind one interface: encode returns the bytes written and may set a
// flags byte; decode returns the bytes consumed.
enum Form { kInt, kInt64, kThreeFlags, kTwoFlags, kStopBit };

int encode(Form form, std::int64_t v, char* out, char& flags) {
  switch (form) {
    case kInt: return H::NCH_compress_int(out, static_cast<int>(v));
    case kInt64: return H::NCH_compress_int64(out, v);
    case kThreeFlags: return H::NCH_compress_int64_3Flags(flags, out, v);
    case kTwoFlags: return H::NCH_compress_int_2Flags(flags, out, static_cast<int>(v));
    case kStopBit: return Fast_encode_int64(out, v);
  }
  return -1;
}

int decode(Form form, char* in, char flags, std::int64_t& v) {
  int v32 = 0, n = 0;
  switch (form) {
    case kInt: n = H::NCH_decompress_int(in, v32), v = v32; return n;
    case kInt64: return H::NCH_decompress_int64(in, v);
    case kThreeFlags: return H::NCH_decompress_int64_3Flags(flags, in, v);
    case kTwoFlags: n = H::NCH_decompress_int_2Flags(flags, in, v32), v = v32; return n;
    case kStopBit: return Fast_decode_int64(in, v);
  }
  return -1;
}

struct IntCase {
  Form form;
  std::int64_t value;
  const char* bytes;
  std::int64_t decoded;  // differs from value where the form truncates
  int flags = -1;        // the flags byte of the flag forms
  int consumed = -1;     // differs from the bytes written for the 2Flags wide form
};

TEST(Primitives, IntegerFormsWorkedValues) {
  // clang-format off
  const IntCase cases[] = {
      // Compact 32-bit: sign, 2-bit length code, 29 bits of magnitude.
      {kInt, 0, "00", 0}, {kInt, 5, "05", 5}, {kInt, -5, "85", -5}, {kInt, 31, "1F", 31},
      {kInt, 32, "20 01", 32}, {kInt, 100, "24 03", 100}, {kInt, -100, "A4 03", -100},
      {kInt, 8191, "3F FF", 8191}, {kInt, 8192, "40 00 01", 8192}, {kInt, 10000, "50 38 01", 10000},
      {kInt, 0x1FFFFF, "5F FF FF", 0x1FFFFF}, {kInt, 0x200000, "60 00 00 01", 0x200000},
      {kInt, 3000000, "60 36 6E 01", 3000000}, {kInt, 536870911, "7F FF FF FF", 536870911},
      {kInt, 536870912, "60 00 00 00", 0}, {kInt, INT32_MIN, "80", 0},
      // Compact 64-bit: no six-byte form, 60 bits.
      {kInt64, 7, "07", 7}, {kInt64, 300, "1C 12", 300}, {kInt64, -300, "9C 12", -300},
      {kInt64, 0xFFFFFFFFF, "4F FF FF FF FF", 0xFFFFFFFFF},
      {kInt64, 0x1000000000, "60 00 00 00 00 01 00", 0x1000000000},
      {kInt64, 123456789012, "64 A1 91 E9 CB 01 00", 123456789012},
      {kInt64, 0x100000000000, "70 00 00 00 00 00 01 00", 0x100000000000},
      {kInt64, INT64_MIN, "80", 0},
      // Three-bit length code in the flags; code 7 loses 2^47 and above.
      {kThreeFlags, 0, "", 0, 0}, {kThreeFlags, 1, "01", 1, 1}, {kThreeFlags, -1, "81", -1, 1},
      {kThreeFlags, 200, "48 01", 200, 2}, {kThreeFlags, 1000000, "40 84 1E", 1000000, 3},
      {kThreeFlags, (1ll << 47) - 1, "7F FF FF FF FF FF", (1ll << 47) - 1, 6},
      {kThreeFlags, 1ll << 47, "00 00 00 00 00 00 01 00", 0, 7},
      {kThreeFlags, INT64_MIN, "80", 0, 1},
      // Two-bit length code and sign in the flags; the four-byte form is never read back.
      {kTwoFlags, 0, "", 0, 0}, {kTwoFlags, 7, "07", 7, 1}, {kTwoFlags, -300, "2C 01", -300, 6},
      {kTwoFlags, 65536, "00 00 01 00", 0, 3, 0}, {kTwoFlags, INT32_MIN, "00", 0, 5},
      // Stop-bit: seven bits a byte, bit 6 of the first the sign, bit 63 lost.
      {kStopBit, 0, "80", 0}, {kStopBit, 1, "81", 1}, {kStopBit, -1, "FF", -1},
      {kStopBit, 63, "BF", 63}, {kStopBit, 64, "00 C0", 64}, {kStopBit, -64, "7F C0", -64},
      {kStopBit, -65, "7F BF", -65}, {kStopBit, 942, "07 AE", 942}, {kStopBit, -942, "78 D2", -942},
      {kStopBit, 8191, "3F FF", 8191}, {kStopBit, 8192, "00 40 80", 8192},
      {kStopBit, -(1ll << 62), "40 40 00 00 00 00 00 00 00 80", 1ll << 62}};
  // clang-format on
  for (const IntCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "form " << c.form << " value " << c.value);
    char out[16], flags = 9;
    std::memset(out, 0x55, sizeof out);
    const int n = encode(c.form, c.value, out, flags);
    EXPECT_EQ(hexOf(out, static_cast<std::size_t>(n)), hexOf(hex(c.bytes)));
    if (c.form == kStopBit) {
      EXPECT_EQ(Fast_size_int64(c.value), n);
    }
    if (c.flags >= 0) {
      EXPECT_EQ(flags, c.flags);
    }
    std::int64_t back = -1;
    EXPECT_EQ(decode(c.form, out, flags, back), c.consumed >= 0 ? c.consumed : n);
    EXPECT_EQ(back, c.decoded);
  }
  // Zero: the 3Flags form still clears data byte 0, the 2Flags form leaves it alone.
  char flags, out[1] = {0x55};
  H::NCH_compress_int64_3Flags(flags, out, 0);
  EXPECT_EQ(out[0], 0);
  out[0] = 0x55;
  H::NCH_compress_int_2Flags(flags, out, 0);
  EXPECT_EQ(out[0], 0x55);
  // The compact 64-bit decoder reads the six-byte code it never writes: bits 28 to 43.
  Bytes six = hex("53 00 00 00 01 02");
  std::int64_t v = 0;
  EXPECT_EQ(H::NCH_decompress_int64(reinterpret_cast<char*>(six.data()), v), 6);
  EXPECT_EQ(v, 3 + (1ll << 28) + (2ll << 36));
}

TEST(Primitives, StopBitSizesAtTheEdges) {
  // The sizes of the worked values are checked with them.
  const std::pair<std::int64_t, int> sizes[] = {
      {-63, 1}, {(1ll << 62) - 1, 9}, {1ll << 62, 10}, {INT64_MIN, 10}};
  for (auto [v, n] : sizes) EXPECT_EQ(Fast_size_int64(v), n) << v;
  const std::pair<std::uint64_t, int> unsignedSizes[] = {{127, 1}, {128, 2}, {1ull << 63, 10}};
  for (auto [v, n] : unsignedSizes) EXPECT_EQ(Fast_size_uint64(v), n) << v;
}

TEST(Primitives, DecimalsKeepThreePlacesAndNudgeTowardZero) {
  const std::pair<double, std::int64_t> cases[] = {{1.2345, 1234}, {0.001, 1},  {2.0009999, 2000},
                                                   {-5.0, -4999},  {-0.001, 0}, {-1.2345, -1234}};
  for (auto [value, units] : cases) {
    char out[16], expected[16];
    const int n = Fast_encode_decimal3(out, value);
    ASSERT_EQ(n, Fast_encode_int64(expected, units)) << value;
    EXPECT_EQ(hexOf(out, n), hexOf(expected, n)) << value;
  }
  for (auto [bytes, value] : {std::pair{"78 D2", -0.942}, {"80", 0.0}}) {
    Bytes in = hex(bytes);
    double v = 1;
    Fast_decode_decimal3(reinterpret_cast<char*>(in.data()), v);
    EXPECT_DOUBLE_EQ(v, value);
  }
}

// A text decoder's result: bytes consumed and the destination's bytes.
struct TextCase {
  const char* name;
  int (*decoder)(char*, char*, int);
  const char* input;
  int size;
  int consumed;
  std::string kept;  // the destination's first `size` bytes ('x' where untouched)
};

int compactText(char* in, char* dest, int size) {
  return H::NCH_decompress_string(in, dest, size);
}
int compactBlock(char* in, char* dest, int size) {
  int length = -1;
  return H::NCH_decompress_binData(in, dest, size, length);
}

TEST(Primitives, TextAndBlockDecoders) {
  const TextCase cases[] = {
      {"compact text keeps size - 1", compactText, "05 41 42 43 44 45", 4, 6, std::string("ABCx")},
      {"empty compact text leaves the array", compactText, "00 00", 4, 1, "xxxx"},
      {"compact block keeps the capacity", compactBlock, "05 41 42 43 44 45", 4, 6, "ABCD"},
      {"stop-bit text", Fast_decode_string, "41 42 C3 05 06 87", 4, 3, std::string("ABC\0", 4)},
      // Too small: keeps AB, skips to the next stop byte after C3 and returns its index.
      {"stop-bit text cut", Fast_decode_string, "41 42 C3 05 06 87", 3, 5, std::string("AB\0x", 4)},
      {"stop-bit text that just fits", Fast_decode_string, "41 C2", 3, 2, std::string("AB\0x", 4)},
      {"empty stop-bit text", Fast_decode_string, "80 41", 3, 1, std::string("\0xxx", 4)},
      {"length-prefixed text", Fast_decode_lenString, "85 41 42 43 44 45", 4, 6,
       std::string("ABC\0", 4)},
      {"length-prefixed block", Fast_decode_binData, "85 41 42 43 44 45", 4, 6, "ABCD"}};
  for (const TextCase& c : cases) {
    Bytes in = hex(c.input);
    char dest[8];
    std::memset(dest, 'x', sizeof dest);
    EXPECT_EQ(c.decoder(reinterpret_cast<char*>(in.data()), dest, c.size), c.consumed) << c.name;
    EXPECT_EQ(std::string(dest, 4), c.kept) << c.name;
  }
}

TEST(Primitives, TextAndBlockEncoders) {
  char out[64];
  EXPECT_EQ(H::NCH_compress_string(out, ""), 1);
  EXPECT_EQ(hexOf(out, 2), "00 00");  // the terminator is written but not counted
  EXPECT_EQ(H::NCH_compress_string(out, "0123456789012345678901234567890123456789"), 42);
  EXPECT_EQ(hexOf(out, 2), "28 01");
  char block[3] = {7, 0, 9};
  EXPECT_EQ(H::NCH_compress_binData(out, block, 3), 4);
  EXPECT_EQ(hexOf(out, 4), "03 07 00 09");
  EXPECT_EQ(Fast_encode_binData(out, block, 3), 4);
  EXPECT_EQ(hexOf(out, 4), "83 07 00 09");
  EXPECT_EQ(Fast_encode_binData(out, block, 0), 1);
  EXPECT_EQ(Fast_encode_string(out, "ABC", 32), 3);
  EXPECT_EQ(hexOf(out, 3), "41 42 C3");
  EXPECT_EQ(Fast_encode_string(out, "", 32), 1);
  EXPECT_EQ(hexOf(out, 1), "80");
  EXPECT_EQ(Fast_encode_string(out, "012345678901234567890123456789", 20), 20);
  EXPECT_EQ(static_cast<unsigned char>(out[19]), '9' | 0x80);
  // Securities codes: a mask of the differing positions, then those characters; a shorter
  // code comes back with the reference's tail.
  EXPECT_EQ(H::NCH_compress_securitiesCode8(out, "600000", "60003612"), 3);
  EXPECT_EQ(hexOf(out, 3), "30 30 30");
  char dest[8];
  EXPECT_EQ(H::NCH_decompress_securitiesCode8(out, dest, "60003612"), 3);
  EXPECT_EQ(std::string(dest, 8), "60000012");
  EXPECT_EQ(H::NCH_compress_securitiesCode8(out, "", "60003612"), 1);
}

}  // namespace
