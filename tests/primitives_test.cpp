// The field primitives against their worked values, quirks included.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "TrdCompData.h"
#include "test_util.h"

using trdcomp::test::Bytes;
using trdcomp::test::hex;
using trdcomp::test::hexOf;
using H = CKtNetCompressHelper;

namespace {

struct IntCase {
  std::int64_t value;
  const char* bytes;
  std::int64_t decoded;  // what the bytes decode to (differs where the form truncates)
};

TEST(CompactInt, EncodesAndDecodesWorkedValues) {
  const IntCase cases[] = {
      {0, "00", 0},
      {5, "05", 5},
      {-5, "85", -5},
      {31, "1F", 31},
      {32, "20 01", 32},
      {100, "24 03", 100},
      {-100, "A4 03", -100},
      {8191, "3F FF", 8191},
      {8192, "40 00 01", 8192},
      {10000, "50 38 01", 10000},
      {0x1FFFFF, "5F FF FF", 0x1FFFFF},
      {0x200000, "60 00 00 01", 0x200000},
      {3000000, "60 36 6E 01", 3000000},
      {536870911, "7F FF FF FF", 536870911},
      {536870912, "60 00 00 00", 0},  // bits 29 and 30 are dropped
      {INT32_MIN, "80", 0},
  };
  for (const IntCase& c : cases) {
    char out[8] = {};
    int n = H::NCH_compress_int(out, static_cast<int>(c.value));
    EXPECT_EQ(hexOf(out, n), hexOf(hex(c.bytes))) << c.value;
    int back = -1;
    EXPECT_EQ(H::NCH_decompress_int(out, back), n) << c.value;
    EXPECT_EQ(back, c.decoded) << c.value;
  }
}

TEST(CompactInt64, EncodesAndDecodesWorkedValues) {
  const IntCase cases[] = {
      {7, "07", 7},
      {300, "1C 12", 300},
      {-300, "9C 12", -300},
      {0xFFFFFFFFF, "4F FF FF FF FF", 0xFFFFFFFFF},
      {0x1000000000, "60 00 00 00 00 01 00", 0x1000000000},  // no six-byte form
      {123456789012, "64 A1 91 E9 CB 01 00", 123456789012},
      {0x100000000000, "70 00 00 00 00 00 01 00", 0x100000000000},
      {INT64_MIN, "80", 0},
  };
  for (const IntCase& c : cases) {
    char out[16] = {};
    int n = H::NCH_compress_int64(out, c.value);
    EXPECT_EQ(hexOf(out, n), hexOf(hex(c.bytes))) << c.value;
    std::int64_t back = -1;
    EXPECT_EQ(H::NCH_decompress_int64(out, back), n) << c.value;
    EXPECT_EQ(back, c.decoded) << c.value;
  }
  // Code 5 is never written but is read: six bytes, bytes 4 and 5 giving bits 28 to 43.
  Bytes six = hex("53 00 00 00 01 02");
  std::int64_t v = 0;
  EXPECT_EQ(H::NCH_decompress_int64(reinterpret_cast<char*>(six.data()), v), 6);
  EXPECT_EQ(v, 3 + (1ll << 28) + (2ll << 36));
}

TEST(CompactFlagForms, ThreeFlagsWorkedValuesAndLossyTopCode) {
  struct Case {
    std::int64_t value;
    int flags;
    const char* data;
    std::int64_t decoded;
  } cases[] = {
      {1, 1, "01", 1},
      {-1, 1, "81", -1},
      {200, 2, "48 01", 200},
      {1000000, 3, "40 84 1E", 1000000},
      {(1ll << 47) - 1, 6, "7F FF FF FF FF FF", (1ll << 47) - 1},
      {1ll << 47, 7, "00 00 00 00 00 00 01 00", 0},  // code 7 loses 2^47 and above
      {INT64_MIN, 1, "80", 0},
  };
  for (const Case& c : cases) {
    char flags = 9, out[8] = {};
    int n = H::NCH_compress_int64_3Flags(flags, out, c.value);
    EXPECT_EQ(flags, c.flags) << c.value;
    EXPECT_EQ(hexOf(out, n), hexOf(hex(c.data))) << c.value;
    std::int64_t back = -1;
    EXPECT_EQ(H::NCH_decompress_int64_3Flags(flags, out, back), n) << c.value;
    EXPECT_EQ(back, c.decoded) << c.value;
  }
  char flags = 9, out[2] = {0x55, 0x55};
  EXPECT_EQ(H::NCH_compress_int64_3Flags(flags, out, 0), 0);
  EXPECT_EQ(flags, 0);
  EXPECT_EQ(out[0], 0);  // data byte 0 is cleared even for zero
}

TEST(CompactFlagForms, TwoFlagsWorkedValuesAndUndecodedWideForm) {
  struct Case {
    int value, flags;
    const char* data;
    int decoded, consumed;
  } cases[] = {
      {7, 1, "07", 7, 1},
      {-300, 6, "2C 01", -300, 2},
      {65536, 3, "00 00 01 00", 0, 0},  // written in four bytes, never read back
      {INT32_MIN, 5, "00", 0, 1},
  };
  for (const Case& c : cases) {
    char flags = 9, out[4] = {};
    int n = H::NCH_compress_int_2Flags(flags, out, c.value);
    EXPECT_EQ(flags, c.flags) << c.value;
    EXPECT_EQ(hexOf(out, n), hexOf(hex(c.data))) << c.value;
    int back = -1;
    EXPECT_EQ(H::NCH_decompress_int_2Flags(flags, out, back), c.consumed) << c.value;
    EXPECT_EQ(back, c.decoded) << c.value;
  }
  char flags = 9, out[1] = {0x55};
  EXPECT_EQ(H::NCH_compress_int_2Flags(flags, out, 0), 0);
  EXPECT_EQ(out[0], 0x55);  // zero leaves the data alone
}

TEST(CompactText, StringsKeepSizeMinusOneAndSkipTheWholeText) {
  char out[64];
  EXPECT_EQ(H::NCH_compress_string(out, ""), 1);
  EXPECT_EQ(hexOf(out, 2), "00 00");  // length and the uncounted terminator
  char dest[21];
  std::memset(dest, 'x', sizeof dest);
  EXPECT_EQ(H::NCH_decompress_string(out, dest, 21), 1);
  EXPECT_EQ(dest[0], 'x');

  const char* forty = "0123456789012345678901234567890123456789";
  EXPECT_EQ(H::NCH_compress_string(out, forty), 42);
  EXPECT_EQ(hexOf(out, 2), "28 01");
  std::memset(dest, 0, sizeof dest);
  EXPECT_EQ(H::NCH_decompress_string(out, dest, 21), 42);
  EXPECT_EQ(std::string(dest, 21), std::string(forty, 20) + '\0');
}

TEST(CompactText, SecuritiesCodeAgainstReference) {
  char out[16];
  EXPECT_EQ(H::NCH_compress_securitiesCode8(out, "600000", "60003612"), 3);
  EXPECT_EQ(hexOf(out, 3), "30 30 30");
  char dest[8];
  EXPECT_EQ(H::NCH_decompress_securitiesCode8(out, dest, "60003612"), 3);
  EXPECT_EQ(std::string(dest, 8), "60000012");  // the reference's tail survives
  EXPECT_EQ(H::NCH_compress_securitiesCode8(out, "", "60003612"), 1);
}

TEST(CompactText, BinaryDataCapsAtCapacity) {
  char block[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, out[16];
  EXPECT_EQ(H::NCH_compress_binData(out, block, 10), 11);
  char dest[4] = {};
  int length = -1;
  EXPECT_EQ(H::NCH_decompress_binData(out, dest, 4, length), 11);
  EXPECT_EQ(length, 4);
  EXPECT_EQ(hexOf(dest, 4), "01 02 03 04");
}

TEST(StopBit, SizesFollowTheMagnitude) {
  const std::pair<std::int64_t, int> signedSizes[] = {{63, 1},
                                                      {64, 2},
                                                      {-63, 1},
                                                      {-64, 2},
                                                      {8191, 2},
                                                      {8192, 3},
                                                      {(1ll << 62) - 1, 9},
                                                      {1ll << 62, 10},
                                                      {INT64_MIN, 10}};
  for (auto [v, n] : signedSizes) EXPECT_EQ(Fast_size_int64(v), n) << v;
  const std::pair<std::uint64_t, int> unsignedSizes[] = {{127, 1}, {128, 2}, {1ull << 63, 10}};
  for (auto [v, n] : unsignedSizes) EXPECT_EQ(Fast_size_uint64(v), n) << v;
}

TEST(StopBit, IntegersWorkedValues) {
  const IntCase cases[] = {
      {0, "80", 0},
      {1, "81", 1},
      {-1, "FF", -1},
      {63, "BF", 63},
      {64, "00 C0", 64},
      {-64, "7F C0", -64},
      {-65, "7F BF", -65},
      {942, "07 AE", 942},
      {-942, "78 D2", -942},
      {8191, "3F FF", 8191},
      {8192, "00 40 80", 8192},
      {-(1ll << 62), "40 40 00 00 00 00 00 00 00 80", 1ll << 62},  // bit 63 is lost
  };
  for (const IntCase& c : cases) {
    char out[16] = {};
    int n = Fast_encode_int64(out, c.value);
    EXPECT_EQ(hexOf(out, n), hexOf(hex(c.bytes))) << c.value;
    std::int64_t back = 0;
    EXPECT_EQ(Fast_decode_int64(out, back), n) << c.value;
    EXPECT_EQ(back, c.decoded) << c.value;
  }
}

TEST(StopBit, DecimalsKeepThreePlacesAndNudgeTowardZero) {
  const std::pair<double, std::int64_t> cases[] = {{1.2345, 1234}, {0.001, 1},  {2.0009999, 2000},
                                                   {-5.0, -4999},  {-0.001, 0}, {-1.2345, -1234}};
  for (auto [value, units] : cases) {
    char out[16], expected[16];
    int n = Fast_encode_decimal3(out, value);
    ASSERT_EQ(n, Fast_encode_int64(expected, units)) << value;
    EXPECT_EQ(hexOf(out, n), hexOf(expected, n)) << value;
  }
  double v = 1;
  Bytes b = hex("78 D2");
  EXPECT_EQ(Fast_decode_decimal3(reinterpret_cast<char*>(b.data()), v), 2);
  EXPECT_DOUBLE_EQ(v, -0.942);
  b = hex("80");
  EXPECT_EQ(Fast_decode_decimal3(reinterpret_cast<char*>(b.data()), v), 1);
  EXPECT_EQ(v, 0.0);
}

TEST(StopBit, Strings) {
  char out[64];
  EXPECT_EQ(Fast_encode_string(out, "ABC", 32), 3);
  EXPECT_EQ(hexOf(out, 3), "41 42 C3");
  EXPECT_EQ(Fast_encode_string(out, "", 32), 1);
  EXPECT_EQ(hexOf(out, 1), "80");
  EXPECT_EQ(Fast_encode_string(out, "012345678901234567890123456789", 20), 20);
  EXPECT_EQ(static_cast<unsigned char>(out[19]), '9' | 0x80);

  Bytes in = hex("41 42 C3 05 06 87");
  char dest[4];
  EXPECT_EQ(Fast_decode_string(reinterpret_cast<char*>(in.data()), dest, 4), 3);
  EXPECT_STREQ(dest, "ABC");
  // Too small: keeps AB and returns the index of the next stop byte after C3, one short.
  EXPECT_EQ(Fast_decode_string(reinterpret_cast<char*>(in.data()), dest, 3), 5);
  EXPECT_STREQ(dest, "AB");
  Bytes exact = hex("41 C2");
  EXPECT_EQ(Fast_decode_string(reinterpret_cast<char*>(exact.data()), dest, 3), 2);
  EXPECT_STREQ(dest, "AB");
  Bytes empty = hex("80 41");
  EXPECT_EQ(Fast_decode_string(reinterpret_cast<char*>(empty.data()), dest, 3), 1);
  EXPECT_STREQ(dest, "");
}

TEST(StopBit, LengthPrefixedTextAndBytes) {
  Bytes in = hex("85 41 42 43 44 45");
  char dest[8] = {};
  EXPECT_EQ(Fast_decode_lenString(reinterpret_cast<char*>(in.data()), dest, 4), 6);
  EXPECT_STREQ(dest, "ABC");
  std::memset(dest, 'x', sizeof dest);
  EXPECT_EQ(Fast_decode_binData(reinterpret_cast<char*>(in.data()), dest, 4), 6);
  EXPECT_EQ(std::string(dest, 5), "ABCDx");

  char out[16], block[3] = {7, 0, 9};
  EXPECT_EQ(Fast_encode_binData(out, block, 3), 4);
  EXPECT_EQ(hexOf(out, 4), "83 07 00 09");
  EXPECT_EQ(Fast_encode_binData(out, block, 0), 1);
  EXPECT_EQ(hexOf(out, 1), "80");
}

}  // namespace
