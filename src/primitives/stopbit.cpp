// The public stop-bit primitives; the formats live in stopbit.h, shared with the record codecs.
#include "primitives/stopbit.h"

#include <cstring>

#include "TrdCompData.h"

using trdcomp::RawBytes;
using trdcomp::u8;
namespace stopbit = trdcomp::stopbit;

namespace {
u8* bytes(char* p) {
  return reinterpret_cast<u8*>(p);
}
RawBytes raw(char* p) {
  return RawBytes{reinterpret_cast<const u8*>(p)};
}
}  // namespace

int Fast_size_int64(std::int64_t value) {
  return stopbit::sizeInt64(value);
}

int Fast_size_uint64(std::uint64_t value) {
  return stopbit::sizeUint64(value);
}

int Fast_encode_int64(char* out, std::int64_t value) {
  return stopbit::writeInt64(bytes(out), value);
}

int Fast_decode_int64(char* in, std::int64_t& value) {
  std::int64_t pos = 0;
  value = stopbit::readSigned<std::int64_t>(raw(in), pos);
  return static_cast<int>(pos);
}

int Fast_encode_decimal3(char* out, double value) {
  return stopbit::writeInt64(bytes(out), stopbit::decimalUnits(value));
}

int Fast_decode_decimal3(char* in, double& value) {
  std::int64_t pos = 0;
  value = stopbit::readDecimal3(raw(in), pos);
  return static_cast<int>(pos);
}

int Fast_encode_string(char* out, const char* text, int cap) {
  return stopbit::writeString(bytes(out), reinterpret_cast<const u8*>(text),
                              static_cast<std::int64_t>(std::strlen(text)), cap);
}

int Fast_decode_string(char* in, char* dest, int size) {
  return static_cast<int>(stopbit::readString(raw(in), 0, bytes(dest), size));
}

int Fast_encode_binData(char* out, char* data, int length) {
  return stopbit::writeBinData(bytes(out), reinterpret_cast<const u8*>(data), length);
}

int Fast_decode_binData(char* in, char* dest, int capacity) {
  return static_cast<int>(stopbit::readBinData(raw(in), 0, bytes(dest), capacity));
}

int Fast_decode_lenString(char* in, char* dest, int size) {
  return static_cast<int>(stopbit::readLenString(raw(in), 0, bytes(dest), size));
}
