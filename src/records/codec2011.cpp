#include "records/codec2011.h"

#include <algorithm>
#include <cstring>

#include "primitives/stopbit.h"

namespace trdcomp::records {
namespace {

// Exchange codes that travel as one character.
struct ExchangeCode {
  char code[4];
  char compact;
};
constexpr ExchangeCode kExchangeCodes[] = {
    {"000", '0'}, {"001", '1'}, {"002", '2'}, {"200", '3'}, {"300", '4'}, {"500", '5'},
    {"510", '6'}, {"600", '7'}, {"601", '8'}, {"602", '9'}, {"603", 'a'}, {"900", 'b'},
    {"399", 'c'}, {"990", 'd'}, {"999", 'e'}, {"IF1", 'f'}, {"IF2", 'g'}, {"IF3", 'h'},
    {"if1", 'i'}, {"if2", 'j'}, {"if3", 'k'},
};

bool inPart(const Field& f, Part part) {
  return part == Part::Whole || (part == Part::Group) == f.dictionary;
}

// Calls visit(field, offset, group, entry) for every field of the part in layout order. A
// counted group gives all of its entries their places, so that the map numbering does not
// depend on the count; `group` and `entry` let the caller skip the entries past the count.
template <class Visit>
void forEachField(const Layout& layout, Part part, Visit&& visit) {
  for (const Field* f = layout.begin(); f != layout.end(); ++f) {
    if (f->kind == Kind::Group) {
      for (std::int64_t e = 0; e < f->repeat; ++e)
        for (std::uint16_t m = 1; m <= f->members; ++m)
          if (inPart(f[m], part)) visit(f[m], f->offset + e * f->stride + f[m].offset, f, e);
      f += f->members;
    } else if (inPart(*f, part)) {
      visit(*f, f->offset, nullptr, 0);
    }
  }
}

// Texts compare as terminated strings; exchange codes on their first three characters. A byte
// outside a record's view reads as zero.
bool textsDiffer(const InView& a, const InView& b, std::int64_t at, std::int64_t limit,
                 std::int64_t width) {
  std::int64_t i = 0;
  if (limit == INT64_MAX && width >= 64) {
    // Wide arrays, both texts and the terminator inside their views: one memcmp over a's text
    // and terminator.
    const std::int64_t n = a.textLength(at) + 1;
    if (a.readable(at, n) == n && b.readable(at, n) == n)
      return std::memcmp(a.ptr(at), b.ptr(at), static_cast<std::size_t>(n)) != 0;
  } else if (at >= 0) {
    // Short texts: byte by byte, unchecked over the bytes inside both views.
    const std::int64_t inside = std::min({a.size() - at, b.size() - at, limit});
    if (inside > 0) {
      const u8 *pa = a.ptr(at), *pb = b.ptr(at);
      for (; i < inside; ++i) {
        if (pa[i] != pb[i]) return true;
        if (pa[i] == 0) return false;
      }
    }
  }
  for (; i < limit; ++i) {
    u8 x = a.at(at + i), y = b.at(at + i);
    if (x != y) return true;
    if (x == 0) return false;
  }
  return false;
}

bool bytesDiffer(const InView& a, const InView& b, std::int64_t at, std::int64_t n) {
  if (n > 0 && a.readable(at, n) == n && b.readable(at, n) == n) {
    switch (n) {
      case 1: return *a.ptr(at) != *b.ptr(at);
      case 4: return loadU32(a.ptr(at)) != loadU32(b.ptr(at));
      case 8: return loadU64(a.ptr(at)) != loadU64(b.ptr(at));
      default: return std::memcmp(a.ptr(at), b.ptr(at), static_cast<std::size_t>(n)) != 0;
    }
  }
  for (std::int64_t i = 0; i < n; ++i)
    if (a.at(at + i) != b.at(at + i)) return true;
  return false;
}

// Whether bytes [at, at + n) of the view hold anything but zeros.
bool anyNonZero(const InView& a, std::int64_t at, std::int64_t n) {
  const std::int64_t inside = a.readable(at, n);
  if (inside <= 0) return false;
  const u8* p = a.ptr(at);
  std::int64_t i = 0;
  for (; i + 8 <= inside; i += 8)
    if (loadU64(p + i)) return true;
  for (; i < inside; ++i)
    if (p[i]) return true;
  return false;
}

bool differs(const Field& f, const InView& a, const InView& b, std::int64_t at) {
  switch (f.kind) {
    case Kind::Double: return !(a.f64(at) == b.f64(at));  // NaN always differs
    case Kind::Text:
    case Kind::ShortText:
      return textsDiffer(a, b, at, f.text == TextForm::ExchangeCode ? 3 : INT64_MAX, f.width);
    default: return bytesDiffer(a, b, at, f.width);
  }
}

bool differsFromDefault(const Field& f, const InView& r, std::int64_t at) {
  if (!f.hasDefault) return true;
  switch (f.kind) {
    case Kind::Char: return r.at(at) != static_cast<u8>(f.defaultValue);
    case Kind::Int32: return r.i32(at) != static_cast<std::int32_t>(f.defaultValue);
    case Kind::Int64: return r.i64(at) != f.defaultValue;
    case Kind::Double: return !(r.f64(at) == static_cast<double>(f.defaultValue));
    case Kind::Text:
    case Kind::ShortText: return r.at(at) != 0;  // the empty text
    default: return anyNonZero(r, at, f.width);  // the zero block
  }
}

// The base of an integer field: a constant, another field of this record, or the previous
// record's value (a constant for the first record).
std::int64_t baseOf(const Field& f, const InView& record, const InView* previous, std::int64_t at) {
  switch (f.baseForm) {
    case BaseForm::Field:
      return f.kind == Kind::Int32 ? record.i32(f.baseOffset) : record.i64(f.baseOffset);
    case BaseForm::Previous:
      if (!previous) return f.base;
      return f.kind == Kind::Int32 ? previous->i32(at) : previous->i64(at);
    case BaseForm::Constant: break;
  }
  return f.base;
}

std::uint32_t writeText(const Field& f, const InView& r, std::int64_t at, u8* out) {
  const std::int64_t length = r.textLength(at);
  if (f.text == TextForm::ExchangeCode) {
    u8 code[4] = {};
    r.copyOut(code, at, std::min<std::int64_t>(length, 3));
    for (const ExchangeCode& e : kExchangeCodes)
      if (length == 3 && std::memcmp(code, e.code, 3) == 0) {
        code[0] = static_cast<u8>(e.compact), code[1] = 0;
        break;
      }
    return static_cast<std::uint32_t>(stopbit::writeString(
        out, code, static_cast<std::int64_t>(std::strlen(reinterpret_cast<char*>(code))), 3));
  }
  const std::int64_t n = std::min<std::int64_t>(length, f.width);
  if (f.text == TextForm::StopBit) {
    r.copyOut(out, at, n);  // the characters in place, then marked
    return static_cast<std::uint32_t>(stopbit::writeString(out, out, n, static_cast<int>(f.width)));
  }
  const int k = stopbit::writeInt64(out, n);
  r.copyOut(out + k, at, n);
  return static_cast<std::uint32_t>(k + n);
}

std::uint32_t writeField(const Field& f, const InView& r, const InView* previous, std::int64_t at,
                         u8* out) {
  switch (f.kind) {
    case Kind::Char: return stopbit::writeInt64(out, static_cast<signed char>(r.at(at)));
    case Kind::Int32: {
      const auto base = static_cast<std::uint32_t>(baseOf(f, r, previous, at));
      return stopbit::writeInt64(
          out, static_cast<std::int32_t>(static_cast<std::uint32_t>(r.i32(at)) - base));
    }
    case Kind::Int64: {
      const auto base = static_cast<std::uint64_t>(baseOf(f, r, previous, at));
      return stopbit::writeInt64(
          out, static_cast<std::int64_t>(static_cast<std::uint64_t>(r.i64(at)) - base));
    }
    case Kind::Double: return stopbit::writeInt64(out, stopbit::decimalUnits(r.f64(at)));
    case Kind::Text:
    case Kind::ShortText: return writeText(f, r, at, out);
    case Kind::Block:
    case Kind::CountedBlock: {
      std::int64_t n = f.width;
      if (f.kind == Kind::CountedBlock)
        n = std::clamp<std::int64_t>(r.i32(f.countOffset), 0, f.width);  // only the used bytes
      const int k = stopbit::writeInt64(out, n);
      r.copyOut(out + k, at, n);
      return static_cast<std::uint32_t>(k + n);
    }
    case Kind::Group: break;
  }
  return 0;
}

void readText(const Field& f, const InView& in, std::int64_t& pos, u8* dst) {
  if (f.text == TextForm::LengthPrefixed) {
    pos += stopbit::readLenString(in, pos, dst, static_cast<int>(f.width));
    return;
  }
  if (f.text == TextForm::StopBit) {
    pos += stopbit::readString(in, pos, dst, static_cast<int>(f.width));
    return;
  }
  pos += stopbit::readString(in, pos, dst, 4);
  if (dst[0] && !dst[1])
    for (const ExchangeCode& e : kExchangeCodes)
      if (dst[0] == static_cast<u8>(e.compact)) {
        std::memcpy(dst, e.code, 4);
        break;
      }
}

// `written` views the record being restored (fields decoded so far), `previous` the one before.
void readField(const Field& f, const InView& in, std::int64_t& pos, u8* record,
               const InView& written, const InView* previous, std::int64_t at) {
  u8* dst = record + at;
  switch (f.kind) {
    case Kind::Char: *dst = static_cast<u8>(stopbit::readSigned<std::int32_t>(in, pos)); return;
    case Kind::Int32:
    case Kind::Int64: {
      const std::int64_t base = baseOf(f, written, previous, at);
      if (f.kind == Kind::Int32)
        storeU32(dst, static_cast<std::uint32_t>(stopbit::readSigned<std::int32_t>(in, pos)) +
                          static_cast<std::uint32_t>(base));
      else
        storeU64(dst, static_cast<std::uint64_t>(stopbit::readSigned<std::int64_t>(in, pos)) +
                          static_cast<std::uint64_t>(base));
      return;
    }
    case Kind::Double: storeF64(dst, stopbit::readDecimal3(in, pos)); return;
    case Kind::Text:
    case Kind::ShortText: readText(f, in, pos, dst); return;
    case Kind::Block:
    case Kind::CountedBlock:
      pos += stopbit::readBinData(in, pos, dst, static_cast<int>(f.width));
      return;
    case Kind::Group: return;
  }
}

// An absent field of a first record takes its default; texts and blocks stay zero.
void setDefault(const Field& f, u8* dst) {
  if (!f.hasDefault) return;
  switch (f.kind) {
    case Kind::Char: *dst = static_cast<u8>(f.defaultValue); return;
    case Kind::Int32: storeI32(dst, static_cast<std::int32_t>(f.defaultValue)); return;
    case Kind::Int64: storeU64(dst, static_cast<std::uint64_t>(f.defaultValue)); return;
    case Kind::Double: storeF64(dst, static_cast<double>(f.defaultValue)); return;
    default: return;
  }
}

constexpr u8 bitOf(int j) {
  return static_cast<u8>(0x40 >> (j % 7));
}

}  // namespace

int mapLength(const Layout& layout, Part part) {
  return (layout.fastFields[static_cast<int>(part)] + 6) / 7;
}

std::int64_t maxBlock2011(const Layout& layout, Part part) {
  // The dictionary index is a 16-bit value: three stop-bit bytes at most.
  std::int64_t most = mapLength(layout, part) + (part == Part::Reduced ? 3 : 0);
  forEachField(layout, part, [&](const Field& f, std::int64_t, const Field*, std::int64_t) {
    switch (f.kind) {
      case Kind::Char: most += 2; return;   // a sign-extended byte
      case Kind::Int32: most += 5; return;  // 32 bits of difference
      case Kind::Int64:
      case Kind::Double: most += 10; return;
      case Kind::Text:
      case Kind::ShortText:
        most += f.text == TextForm::ExchangeCode ? 3
                : f.text == TextForm::StopBit    ? std::max<std::int64_t>(f.width, 1)
                                                 : stopbit::sizeInt64(f.width) + f.width;
        return;
      case Kind::Block:
      case Kind::CountedBlock: most += stopbit::sizeInt64(f.width) + f.width; return;
      case Kind::Group: return;
    }
  });
  return most;
}

std::uint32_t encode2011(const Layout& layout, Part part, const InView& current,
                         std::uint16_t index, const Previous& previous, u8* out) {
  const int m = mapLength(layout, part);
  std::memset(out, 0, static_cast<std::size_t>(m));
  if (m > 0) out[m - 1] = 0x80;
  u8* p = out + m;
  int j = 0;
  if (part == Part::Reduced) {
    if (!previous.record || index != previous.index) {
      out[0] |= bitOf(0);
      p += stopbit::writeInt64(p, index);
    }
    j = 1;
  }
  const InView zeros;
  forEachField(
      layout, part, [&](const Field& f, std::int64_t at, const Field* group, std::int64_t entry) {
        const InView* against = previous.record;
        if (group) {
          // Entries past the count are never sent; one past the previous record's count is
          // compared with the zeros it was restored as.
          if (entry >= groupEntries(*group, current.i32(group->countOffset))) {
            ++j;
            return;
          }
          if (against && entry >= groupEntries(*group, against->i32(group->countOffset)))
            against = &zeros;
        }
        const bool present =
            against ? differs(f, current, *against, at) : differsFromDefault(f, current, at);
        if (present) {
          out[j / 7] |= bitOf(j);
          p += writeField(f, current, previous.record, at, p);
        }
        ++j;
      });
  return static_cast<std::uint32_t>(p - out);
}

std::uint16_t decode2011(const Layout& layout, Part part, const InView& in, std::int64_t length,
                         u8* record, std::int64_t room, const Previous& previous) {
  const std::int64_t size = std::min<std::int64_t>(layout.size, room);
  // The map ends at the first byte with bit 7 within the block; without one, every field is
  // absent.
  std::int64_t m = 0;
  for (std::int64_t i = 0; i < length && in.has(i); ++i)
    if (in.at(i) & 0x80) {
      m = i + 1;
      break;
    }
  auto present = [&](int j) { return j / 7 < m && (in.at(j / 7) & bitOf(j)); };
  const u8* prior = previous.record ? previous.record->data() : nullptr;
  // A block without a present field repeats the previous record: every field of it, and the
  // bytes between fields, which restore as zero in both. One copy does it.
  bool any = false;
  for (std::int64_t i = 0; i < m; ++i) any = any || (in.at(i) & 0x7F);
  if (!any && prior && previous.record->size() >= size) {
    copyRecord(record, prior, size);
    return previous.index;
  }
  const InView written(record, size);
  std::int64_t pos = m;
  int j = 0;
  std::uint16_t index = 0;
  if (part == Part::Reduced) {
    if (present(0))
      index = static_cast<std::uint16_t>(stopbit::readSigned<std::int32_t>(in, pos));
    else
      index = previous.index;
    j = 1;
  }
  forEachField(layout, part,
               [&](const Field& f, std::int64_t at, const Field* group, std::int64_t entry) {
                 if (group && entry >= groupEntries(*group, loadI32(record + group->countOffset))) {
                   ++j;  // past the count: stays zero
                   return;
                 }
                 if (present(j))
                   readField(f, in, pos, record, written, previous.record, at);
                 else if (prior)
                   copyRecord(record + at, prior + at, f.width);
                 else
                   setDefault(f, record + at);
                 ++j;
               });
  return index;
}

}  // namespace trdcomp::records
