#include "records/codec2008.h"

#include <algorithm>
#include <cstring>

#include "primitives/compact.h"

namespace trdcomp::records {
namespace {

// Prices and amounts travel as integers of 1/10000: the half unit is added before scaling
// whatever the sign, then the product is truncated toward zero.
std::int64_t priceUnits(double v) {
  return truncToInt64((v + 0.00005) * 10000.0);
}

// Writes the text or bytes [at, at + n) of the record behind a compact length.
std::uint32_t writeCounted(const InView& record, std::int64_t at, std::int64_t n, u8* out) {
  int k = compact::writeInt(out, static_cast<std::int32_t>(n));
  record.copyOut(out + k, at, n);
  return static_cast<std::uint32_t>(k + n);
}

std::uint32_t encodeField(const Field& f, const InView& record, std::int64_t base, u8* out,
                          char flag) {
  std::int64_t at = base + f.offset;
  switch (f.kind) {
    case Kind::Char: out[0] = record.at(at); return 1;
    case Kind::Text:
    case Kind::ShortText:
      // Measured up to the terminator, not bounded by the width: a text that fills its array
      // runs on into the next field, exactly as peers send it.
      return writeCounted(record, at, record.textLength(at), out);
    case Kind::Block: return writeCounted(record, at, f.width, out);
    case Kind::Int32:
      if (flag == 0) return static_cast<std::uint32_t>(compact::writeInt(out, record.i32(at)));
      if (flag == 1) return static_cast<std::uint32_t>(compact::writeInt64(out, record.i32(at)));
      return 0;
    case Kind::Int64: return static_cast<std::uint32_t>(compact::writeInt64(out, record.i64(at)));
    case Kind::Double:
      return static_cast<std::uint32_t>(compact::writeInt64(out, priceUnits(record.f64(at))));
    case Kind::CountedBlock:
      return writeCounted(
          record, at, std::clamp<std::int64_t>(record.i32(base + f.countOffset), 0, f.width), out);
    case Kind::Group: break;
  }
  return 0;
}

// Decodes one field at `pos`; `record` has `room` writable bytes.
void decodeField(const Field& f, const InView& in, std::int64_t& pos, u8* record, std::int64_t room,
                 std::int64_t base, char flag) {
  std::int64_t at = base + f.offset;
  u8* dst = record + at;
  switch (f.kind) {
    case Kind::Char: *dst = in.at(pos++); return;
    case Kind::Text:
    case Kind::ShortText: {
      std::int32_t length = compact::readInt(in, pos);
      if (length < 1) return;
      // A text keeps up to its cap (the width unless the row says otherwise); a short string
      // keeps one byte less so that it always ends in zero.
      std::int64_t cap = f.kind == Kind::Text ? f.cap : f.width - 1;
      std::int64_t k = std::min<std::int64_t>({length, cap, room - at});
      compact::copyText(in, pos, dst, k);
      pos += length;
      return;
    }
    case Kind::Block:
    case Kind::CountedBlock: {
      std::int64_t limit = f.width;
      if (f.kind == Kind::CountedBlock)
        limit = std::clamp<std::int64_t>(loadI32(record + f.countOffset), 0, f.width);
      std::int32_t length = compact::readInt(in, pos);
      if (length < 1) return;
      in.copyAvailable(dst, pos, std::min<std::int64_t>(length, limit));
      pos += length;
      return;
    }
    case Kind::Int32: {
      std::int32_t v = flag == 0 ? compact::readInt(in, pos)
                                 : static_cast<std::int32_t>(compact::readInt64(in, pos));
      storeI32(dst, v);
      return;
    }
    case Kind::Int64:
      storeU64(dst, static_cast<std::uint64_t>(compact::readInt64(in, pos)));
      return;
    case Kind::Double:
      storeF64(dst, static_cast<double>(compact::readInt64(in, pos)) / 10000.0);
      return;
    case Kind::Group: return;
  }
}

}  // namespace

std::uint32_t encode2008(const Layout& layout, const InView& record, u8* out, char flag) {
  u8* p = out;
  for (const Field* f = layout.begin(); f != layout.end(); ++f) {
    if (f->kind != Kind::Group) {
      p += encodeField(*f, record, 0, p, flag);
      continue;
    }
    // A counted group: only the entries its count names, at most `repeat`.
    const std::int64_t n = groupEntries(*f, record.i32(f->countOffset));
    for (std::int64_t e = 0; e < n; ++e)
      for (std::uint16_t m = 1; m <= f->members; ++m)
        p += encodeField(f[m], record, f->offset + e * f->stride, p, flag);
    f += f->members;
  }
  return static_cast<std::uint32_t>(p - out);
}

void decode2008(const Layout& layout, const InView& in, std::int64_t available, u8* record,
                std::int64_t room, char flag) {
  std::memset(record, 0, static_cast<std::size_t>(std::min<std::int64_t>(layout.size, room)));
  std::int64_t pos = 0;
  for (const Field* f = layout.begin(); f != layout.end(); ++f) {
    if (pos >= available) return;
    if (f->kind != Kind::Group) {
      decodeField(*f, in, pos, record, room, 0, flag);
      continue;
    }
    const std::int64_t n = groupEntries(*f, loadI32(record + f->countOffset));
    for (std::int64_t e = 0; e < n; ++e) {
      for (std::uint16_t m = 1; m <= f->members; ++m) {
        if (pos >= available) return;
        decodeField(f[m], in, pos, record, room, f->offset + e * f->stride, flag);
      }
    }
    f += f->members;
  }
}

}  // namespace trdcomp::records
