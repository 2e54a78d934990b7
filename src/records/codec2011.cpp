#include "records/codec2011.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include "primitives/compact.h"
#include "primitives/stopbit.h"
#include "records/answer_layouts.h"
#include "records/request_layouts.h"

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

constexpr bool inPart(const Field& f, Part part) {
  return part == Part::Whole || (part == Part::Group) == f.dictionary;
}

// Calls visit(field, offset, group, entry) for every field of the part in layout order. A
// counted group gives all of its entries their places, so that the map numbering does not
// depend on the count; `group` and `entry` let the caller skip the entries past the count.
template <class Visit>
constexpr void forEachField(const Layout& layout, Part part, Visit&& visit) {
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

// The top bit of every zero byte of x, little end first; a flag above the first zero may be
// false, so only the lowest one says where a zero is.
constexpr std::uint64_t zeroBytes(std::uint64_t x) {
  return (x - 0x0101010101010101ull) & ~x & 0x8080808080808080ull;
}
// Whether any of the eight bytes of x is zero.
constexpr bool hasZeroByte(std::uint64_t x) {
  return zeroBytes(x) != 0;
}

#if TRDCOMP_SSE2
// textsDifferInside for arrays of kChunk bytes or more (16 or 8), kChunk bytes at a time, the
// last chunk ending at the array's end: its bytes already compared hold neither a difference
// nor a zero, so the first it finds is the first of the text.
template <std::uint32_t kChunk>
TRDCOMP_INLINE int textsDifferByChunks(const u8* a, const u8* b, std::uint32_t width) {
  constexpr unsigned kBytes = (1u << kChunk) - 1;
  const auto load = [](const u8* p) {
    if constexpr (kChunk == 16)
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    else
      return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  };
  for (std::uint32_t i = 0;; i += kChunk) {
    const std::uint32_t at = i + kChunk <= width ? i : width - kChunk;
    const __m128i x = load(a + at), y = load(b + at);
    const unsigned differ =
        ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y))) & kBytes;
    const unsigned ends =
        differ |
        (static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128()))) & kBytes);
    if (ends) return (differ >> std::countr_zero(ends)) & 1;
    if (at + kChunk >= width) return -1;
  }
}
#endif

// Whether two texts of `width` bytes, both wholly readable from a and b, differ as terminated
// strings: 1 or 0, or -1 when they are equal over the whole width and neither ends there (the
// comparison goes on past the array).
inline int textsDifferInside(const u8* a, const u8* b, std::uint32_t width) {
#if TRDCOMP_SSE2
  if (width >= 16) return textsDifferByChunks<16>(a, b, width);
  if (width >= 8) return textsDifferByChunks<8>(a, b, width);
#endif
  std::uint32_t i = 0;
  for (; i + 8 <= width; i += 8) {
    const std::uint64_t x = loadU64(a + i), y = loadU64(b + i);
    if (x == y && !hasZeroByte(x)) continue;
    for (std::uint32_t t = i; t < i + 8; ++t) {
      if (a[t] != b[t]) return 1;
      if (a[t] == 0) return 0;
    }
  }
  for (; i < width; ++i) {
    if (a[i] != b[i]) return 1;
    if (a[i] == 0) return 0;
  }
  return -1;
}

// The length of a text within its `width`-byte array (the first zero, or the width).
inline std::uint32_t lengthWithin(const u8* text, std::uint32_t width) {
#if TRDCOMP_SSE2
  if (width >= 16) {
    // The last chunk ends at the array's end; the bytes it shares with the one before hold no
    // zero, so the first zero it finds is the text's end.
    for (std::uint32_t i = 0;; i += 16) {
      const std::uint32_t at = i + 16 <= width ? i : width - 16;
      const std::int64_t n = compact::textEnd16(text + at);
      if (n < 16) return at + static_cast<std::uint32_t>(n);
      if (at + 16 >= width) return width;
    }
  }
#endif
  std::uint32_t n = 0;
  for (; n + 8 <= width; n += 8)
    if (const std::uint64_t zeros = zeroBytes(loadU64(text + n)))
      return n + static_cast<std::uint32_t>(std::countr_zero(zeros) / 8);
  while (n < width && text[n]) ++n;
  return n;
}

// Whether texts equal over their whole `width`-byte arrays, neither terminated there, differ:
// the comparison goes on past the arrays, through the caller's body when the chain has one (the
// place is the field's map place), else through the views (zeros past them).
bool textsDifferOnward(const InView& a, const InView& b, std::int64_t at, std::int64_t width,
                       const Previous& chain, int place) {
  const InView* body = chain.tail ? &chain.tail->body() : nullptr;
  if (body && a.size() && b.size() && chain.record == &b) {
    const std::int64_t later = a.data() - body->data(), earlier = b.data() - body->data();
    return !chain.tail->equal(later + at + width, earlier + at + width, place);
  }
  for (std::int64_t i = width;; ++i) {
    const u8 x = a.at(at + i), y = b.at(at + i);
    if (x != y) return true;
    if (x == 0) return false;
  }
}

// Texts compare as terminated strings; exchange codes on their first three characters. Within
// the array the records' views are read (a byte outside reads as zero).
bool textsDiffer(const InView& a, const InView& b, std::int64_t at, std::int64_t limit,
                 std::int64_t width, const Previous& chain, int place) {
  const std::int64_t n = std::min(limit, width);
  if (at >= 0 && a.readable(at, n) == n && b.readable(at, n) == n) {
    const int d = textsDifferInside(a.ptr(at), b.ptr(at), static_cast<std::uint32_t>(n));
    if (d >= 0) return d;
  } else {
    for (std::int64_t i = 0; i < n; ++i) {
      const u8 x = a.at(at + i), y = b.at(at + i);
      if (x != y) return true;
      if (x == 0) return false;
    }
  }
  return limit > width && textsDifferOnward(a, b, at, width, chain, place);
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

bool differs(const Field& f, const InView& a, const InView& b, std::int64_t at,
             const Previous& chain = {}, int place = -1) {
  switch (f.kind) {
    case Kind::Double: return !(a.f64(at) == b.f64(at));  // NaN always differs
    case Kind::Text:
    case Kind::ShortText:
      return textsDiffer(a, b, at, f.text == TextForm::ExchangeCode ? 3 : INT64_MAX, f.width, chain,
                         place);
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

// The seven place bits of a map byte in reverse order: place 7k + b becomes bit b.
constexpr auto kReversed7 = [] {
  std::array<u8, 128> t{};
  for (int v = 0; v < 128; ++v)
    for (int b = 0; b < 7; ++b)
      if (v & bitOf(b)) t[v] = static_cast<u8>(t[v] | 1u << b);
  return t;
}();

// The most bytes one block of `part` takes (map included), whatever the record.
constexpr std::int64_t blockBound(const Layout& layout, Part part) {
  // The dictionary index is a 16-bit value: three stop-bit bytes at most.
  std::int64_t most =
      (layout.fastFields[static_cast<int>(part)] + 6) / 7 + (part == Part::Reduced ? 3 : 0);
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

// The prepared field table. Every catalogue layout has, per part, one op per place of the
// presence map (a counted group's entries flattened in map order), so that map place j is op
// j (after the dictionary index of a reduced block); what only some fields need (defaults,
// bases, the group) is reached through the field's index in the layout.
enum OpFlag : u8 {
  kGrouped = 1,     // a member of a counted group's entry
  kDefault = 2,     // a first-record default
  kWideOp = 4,      // kWide bytes or more: copied on its own when absent, read over zeros
  kRun = 8,         // opens a run of `entry` ops of fixed width, adjacent in the record
  kRunDouble = 16,  // the run holds a price (a NaN differs even from itself)
  kSimple = 32,     // a length-prefixed text, or an integer of base 0: no look at its field
};

// Whether a field is read without its layout entry: length-prefixed texts, integers of base 0.
constexpr bool simple(const Field& f) {
  switch (f.kind) {
    case Kind::Text:
    case Kind::ShortText: return f.text == TextForm::LengthPrefixed;
    case Kind::Int32:
    case Kind::Int64: return f.baseForm == BaseForm::Constant && f.base == 0;
    default: return false;
  }
}

struct Op {
  std::uint32_t offset = 0;  // in the record
  std::uint32_t width = 0;
  std::uint16_t field = 0;  // the field in the layout
  std::uint16_t group = 0;  // grouped: the group field in the layout
  std::uint16_t entry = 0;  // grouped: the entry; kRun: the ops of the run
  Kind kind = Kind::Char;
  u8 flags = 0;
};
static_assert(sizeof(Op) == 16);

// Fields this wide or wider are restored one by one (read when present, copied from the previous
// record when absent), so that a large field that changes is not first copied and then
// overwritten; the rest of a record comes from the previous one in a few copies.
constexpr std::uint32_t kWide = 128;
constexpr int kMostRuns = 8;
constexpr int kMostWide = 4;

struct Span {
  std::uint32_t offset = 0, length = 0;
};

struct Program {
  std::uint32_t first = 0;  // the part's first op in the table
  std::uint16_t count = 0;
  bool usable = false;    // the fast decoder may take it (else: the reference decoder)
  bool grouped = false;   // a counted group among the ops
  bool defaults = false;  // a first-record default among the ops
  std::uint8_t runs = 0;
  std::int64_t most = 0;  // maxBlock2011
  std::uint8_t wides = 0;
  // What is copied from the previous record, in ascending runs: for a whole record, every byte
  // but the ops of kWide bytes or more (the bytes between fields are zero in the previous record
  // as in every restored one); for a dictionary part, the bytes of its narrower ops (the bytes
  // outside them stay zero, as the reference decoder leaves them).
  Span copy[kMostRuns] = {};
  std::uint16_t wide[kMostWide] = {};  // the ops of kWide bytes or more
};

constexpr bool hasOps(const Layout& l, Part part) {
  return !l.opaque && (part == Part::Whole || l.dictionary);
}

// Calls emit(op) for every map place of the part, in map order (as forEachField).
template <class Emit>
constexpr void walkOps(const Layout& l, Part part, Emit&& emit) {
  for (std::uint16_t i = 0; i < l.fieldCount; ++i) {
    const Field& f = l.fields[i];
    if (f.kind == Kind::Group) {
      for (std::uint16_t e = 0; e < f.repeat; ++e)
        for (std::uint16_t m = 1; m <= f.members; ++m) {
          const Field& g = l.fields[i + m];
          if (!inPart(g, part)) continue;
          Op op;
          op.offset = f.offset + e * f.stride + g.offset;
          op.width = g.width;
          op.field = static_cast<std::uint16_t>(i + m);
          op.group = i;
          op.entry = e;
          op.kind = g.kind;
          op.flags =
              static_cast<u8>(kGrouped | (g.hasDefault ? kDefault : 0) | (simple(g) ? kSimple : 0));
          emit(op);
        }
      i = static_cast<std::uint16_t>(i + f.members);
    } else if (inPart(f, part)) {
      Op op;
      op.offset = f.offset;
      op.width = f.width;
      op.field = i;
      op.kind = f.kind;
      op.flags = static_cast<u8>((f.hasDefault ? kDefault : 0) | (f.width >= kWide ? kWideOp : 0) |
                                 (simple(f) ? kSimple : 0));
      emit(op);
    }
  }
}

template <std::size_t N>
constexpr std::size_t opTotal(const std::array<Layout, N>& layouts) {
  std::size_t n = 0;
  for (const Layout& l : layouts)
    for (Part part : {Part::Whole, Part::Group, Part::Reduced})
      if (hasOps(l, part)) walkOps(l, part, [&](const Op&) { ++n; });
  return n;
}

// Fields compared byte for byte (not texts, which compare as terminated strings), outside a
// group, one after the other in the record as in the map: when the previous record holds the
// same bytes over a whole run, none of them is sent (but a NaN price).
constexpr bool plain(const Op& op) {
  return !(op.flags & kGrouped) && op.kind != Kind::Text && op.kind != Kind::ShortText &&
         op.kind != Kind::Group;
}

constexpr void markRuns(Op* ops, std::size_t count) {
  for (std::size_t k = 0; k < count;) {
    std::size_t end = k + 1;
    while (end < count && plain(ops[k]) && plain(ops[end]) &&
           ops[end].offset == ops[end - 1].offset + ops[end - 1].width && end - k < 0xFFFF)
      ++end;
    const std::uint32_t bytes = ops[end - 1].offset + ops[end - 1].width - ops[k].offset;
    if (end - k >= 2 && bytes >= 8) {
      ops[k].flags = static_cast<u8>(ops[k].flags | kRun);
      ops[k].entry = static_cast<std::uint16_t>(end - k);
      for (std::size_t r = k; r < end; ++r)
        if (ops[r].kind == Kind::Double) ops[k].flags = static_cast<u8>(ops[k].flags | kRunDouble);
    }
    k = end;
  }
}

template <std::size_t Total, std::size_t N>
constexpr std::array<Op, Total> buildOps(const std::array<Layout, N>& layouts) {
  std::array<Op, Total> ops{};
  std::size_t n = 0;
  for (const Layout& l : layouts)
    for (Part part : {Part::Whole, Part::Group, Part::Reduced})
      if (hasOps(l, part)) {
        const std::size_t start = n;
        walkOps(l, part, [&](const Op& op) { ops[n++] = op; });
        markRuns(ops.data() + start, n - start);
      }
  return ops;
}

// Whether a non-grouped op among ops[0, before) writes the field at `offset`.
constexpr bool writtenBefore(const Op* ops, std::uint32_t before, std::uint32_t offset) {
  for (std::uint32_t k = 0; k < before; ++k)
    if (!(ops[k].flags & kGrouped) && ops[k].offset == offset) return true;
  return false;
}

// The program of one part: usable when every base field and group count is read before the
// fields that use it (the fast decoder reads them from the record being restored, where the
// reference decoder reads them too, so the order must make both see the same value), and when
// the bytes outside the ops fit the span list.
constexpr Program buildProgram(const Layout& l, Part part, const Op* ops, std::uint32_t first,
                               std::uint32_t count) {
  Program p;
  p.first = first;
  p.count = static_cast<std::uint16_t>(count);
  p.most = blockBound(l, part);
  if (!hasOps(l, part) ||
      count != l.fastFields[static_cast<int>(part)] - (part == Part::Reduced ? 1u : 0u))
    return p;
  const Op* own = ops + first;
  bool usable = true;
  for (std::uint32_t k = 0; k < count; ++k) {
    const Op& op = own[k];
    const Field& f = l.fields[op.field];
    if (op.offset + op.width > l.size) usable = false;
    if (op.flags & kDefault) p.defaults = true;
    if ((op.kind == Kind::Int32 || op.kind == Kind::Int64) && f.baseForm == BaseForm::Field &&
        !writtenBefore(own, k, f.baseOffset))
      usable = false;
    if (op.flags & kGrouped) {
      p.grouped = true;
      const Field& g = l.fields[op.group];
      if (!writtenBefore(own, k, g.countOffset)) usable = false;
      // Every member of the group in this part, or none: the tail is cleared whole.
      for (std::uint16_t m = 1; m <= g.members; ++m)
        if (!inPart(l.fields[op.group + m], part)) usable = false;
    }
  }
  if (part == Part::Whole) {
    // Every byte of the record but its wide ops, in ascending runs: the copy of the previous
    // record writes the bytes between fields too (zero in every restored record), so that the
    // record need not be cleared first.
    std::uint32_t at = 0;
    while (at < l.size) {
      for (bool moved = true; moved;) {
        moved = false;
        for (std::uint32_t k = 0; k < count; ++k)
          if ((own[k].flags & kWideOp) && own[k].offset <= at &&
              at < own[k].offset + own[k].width) {
            at = own[k].offset + own[k].width;
            moved = true;
          }
      }
      if (at >= l.size) break;
      std::uint32_t end = l.size;
      for (std::uint32_t k = 0; k < count; ++k)
        if ((own[k].flags & kWideOp) && own[k].offset > at) end = std::min(end, own[k].offset);
      if (p.runs == kMostRuns) {
        usable = false;
        break;
      }
      p.copy[p.runs++] = Span{at, end - at};
      at = end;
    }
  } else {
    // The bytes of the narrow ops, in ascending runs (the other fields of a dictionary layout
    // stay as they are).
    std::uint32_t at = 0;
    for (;;) {
      std::uint32_t start = UINT32_MAX;
      for (std::uint32_t k = 0; k < count; ++k)
        if (!(own[k].flags & kWideOp) && own[k].offset + own[k].width > at)
          start = std::min(start, std::max(own[k].offset, at));
      if (start == UINT32_MAX) break;
      std::uint32_t end = start;
      for (bool grew = true; grew;) {
        grew = false;
        for (std::uint32_t k = 0; k < count; ++k)
          if (!(own[k].flags & kWideOp) && own[k].offset <= end &&
              own[k].offset + own[k].width > end) {
            end = own[k].offset + own[k].width;
            grew = true;
          }
      }
      if (p.runs == kMostRuns) {
        usable = false;
        break;
      }
      p.copy[p.runs++] = Span{start, end - start};
      at = end;
    }
  }
  for (std::uint32_t k = 0; k < count; ++k)
    if (own[k].flags & kWideOp) {
      if (p.wides == kMostWide) {
        usable = false;
        break;
      }
      p.wide[p.wides++] = static_cast<std::uint16_t>(k);
    }
  p.usable = usable;
  return p;
}

template <std::size_t N>
constexpr std::array<Program, 3 * N> buildPrograms(const std::array<Layout, N>& layouts,
                                                   const Op* ops) {
  std::array<Program, 3 * N> programs{};
  std::uint32_t n = 0;
  for (std::size_t i = 0; i < N; ++i)
    for (Part part : {Part::Whole, Part::Group, Part::Reduced}) {
      std::uint32_t count = 0;
      if (hasOps(layouts[i], part)) walkOps(layouts[i], part, [&](const Op&) { ++count; });
      programs[3 * i + static_cast<int>(part)] = buildProgram(layouts[i], part, ops, n, count);
      n += count;
    }
  return programs;
}

constexpr auto kRequestPlaces = buildOps<opTotal(kRequestLayouts)>(kRequestLayouts);
constexpr auto kRequestPrograms = buildPrograms(kRequestLayouts, kRequestPlaces.data());
constexpr auto kAnswerPlaces = buildOps<opTotal(kAnswerLayouts)>(kAnswerLayouts);
constexpr auto kAnswerPrograms = buildPrograms(kAnswerLayouts, kAnswerPlaces.data());

// The program of a catalogue layout, with its table of ops, found by the layout's table and
// place there; null for a layout built elsewhere.
const Program* programOf(const Layout& l, Part part, const Op*& ops) {
  const auto find = [&](const auto& programs, const auto& table) {
    const Program& p = programs[3 * std::size_t{l.index} + static_cast<std::size_t>(part)];
    ops = table.data() + p.first;
    return &p;
  };
  switch (l.table) {
    case kRequestTable: return find(kRequestPrograms, kRequestPlaces);
    case kAnswerTable: return find(kAnswerPrograms, kAnswerPlaces);
    default: return nullptr;
  }
}

// A signed stop-bit integer; read without a check per byte while ten bytes lie inside the input
// (the longest field a peer writes), else, or when those ten hold no last byte, as the
// reference reads it.
template <class T>
TRDCOMP_INLINE T readInt(const InView& in, std::int64_t& pos) {
  using U = std::make_unsigned_t<T>;
  if (pos >= 0 && in.size() - pos >= 10) {
    const u8* p = in.ptr(pos);
    U acc = (p[0] & 0x40) ? static_cast<U>(~U(0)) : U(0);
    for (int k = 0; k < 10; ++k) {
      const u8 b = p[k];
      acc = static_cast<U>((acc << 7) | (b & 0x7F));
      if (b & 0x80) {
        pos += k + 1;
        return static_cast<T>(acc);
      }
    }
  }
  return stopbit::readSigned<T>(in, pos);
}

// A length-prefixed text or block: the length, then min(length, most) bytes and zeros to the
// field's end (a text keeps room for its terminator: most = width - 1). False, with nothing
// read, when the bytes run past the input: the reference reads then settle it.
TRDCOMP_INLINE bool readCounted(const Op& op, const InView& in, std::int64_t& pos, u8* dst,
                                std::uint32_t most) {
#if TRDCOMP_SSE2
  // A one-byte length with the field's bytes (16 at least) inside the input: the field written
  // whole in masked chunks.
  if (!(op.flags & kWideOp) && pos >= 0 && in.size() - pos > std::max<std::int64_t>(op.width, 16) &&
      (in.data()[pos] & 0x80)) {
    const std::int64_t length =
        static_cast<std::int8_t>(static_cast<u8>(in.data()[pos] << 1)) >> 1;  // bits 0-6, signed
    compact::fillField(dst, in.ptr(pos + 1), length < 1 ? 0 : std::min<std::int64_t>(length, most),
                       op.width);
    pos += 1 + length;
    return true;
  }
#endif
  std::int64_t at = pos;
  const std::int32_t length = readInt<std::int32_t>(in, at);
  const std::int64_t keep = length < 1 ? 0 : std::min<std::int64_t>(length, most);
  if (keep > 0 && !(at >= 0 && in.size() - at >= keep)) return false;
  if (op.flags & kWideOp) {  // the field is zero: only its bytes
    if (keep > 0) std::memcpy(dst, in.ptr(at), static_cast<std::size_t>(keep));
  } else {
    copyShort(dst, in.ptr(at), static_cast<std::size_t>(keep));
    zeroShort(dst + keep, op.width - static_cast<std::size_t>(keep));
  }
  pos = at + length;
  return true;
}

// An integer of type T plus its base (none for a field marked simple), in unsigned arithmetic.
template <class T>
TRDCOMP_INLINE std::make_unsigned_t<T> readInteger(const Layout& layout, const Op& op,
                                                   const InView& in, std::int64_t& pos,
                                                   const u8* record, std::int64_t size,
                                                   const InView* previous) {
  using U = std::make_unsigned_t<T>;
  const U v = static_cast<U>(readInt<T>(in, pos));
  if (op.flags & kSimple) return v;
  const Field& f = layout.fields[op.field];
  const std::int64_t base = f.baseForm == BaseForm::Constant
                                ? f.base
                                : baseOf(f, InView(record, size), previous, op.offset);
  return static_cast<U>(v + static_cast<U>(base));
}

// One present field over the copy of the previous record (or a zero record): every byte of the
// field is written, as the reference decoder leaves it in a zero record.
TRDCOMP_INLINE void readOp(const Layout& layout, const Op& op, const InView& in, std::int64_t& pos,
                           u8* record, std::int64_t size, const InView* previous) {
  u8* dst = record + op.offset;
  switch (op.kind) {
    case Kind::Char: *dst = static_cast<u8>(readInt<std::int32_t>(in, pos)); return;
    case Kind::Int32:
      storeU32(dst, readInteger<std::int32_t>(layout, op, in, pos, record, size, previous));
      return;
    case Kind::Int64:
      storeU64(dst, readInteger<std::int64_t>(layout, op, in, pos, record, size, previous));
      return;
    case Kind::Double: {
      constexpr double scale = stopbit::decimalScale();
      storeF64(dst, static_cast<double>(readInt<std::int64_t>(in, pos)) / scale);
      return;
    }
    case Kind::Text:
    case Kind::ShortText: {
      if ((op.flags & kSimple) && readCounted(op, in, pos, dst, op.width - 1)) return;
      const Field& f = layout.fields[op.field];
      if (!(op.flags & kWideOp)) std::memset(dst, 0, op.width);
      readText(f, in, pos, dst);
      return;
    }
    case Kind::Block:
    case Kind::CountedBlock:
      if (readCounted(op, in, pos, dst, op.width)) return;
      if (!(op.flags & kWideOp)) std::memset(dst, 0, op.width);
      pos += stopbit::readBinData(in, pos, dst, static_cast<int>(op.width));
      return;
    case Kind::Group: return;
  }
}

// Whether a field differs from the previous record's, both records wholly inside their views.
TRDCOMP_INLINE bool differsInside(const Field& f, const Op& op, const InView& a, const InView& b,
                                  const Previous& chain, int place) {
  const u8 *p = a.ptr(op.offset), *q = b.ptr(op.offset);
  switch (op.kind) {
    case Kind::Char: return *p != *q;
    case Kind::Int32: return loadU32(p) != loadU32(q);
    case Kind::Int64: return loadU64(p) != loadU64(q);
    case Kind::Double: return !(loadF64(p) == loadF64(q));  // NaN always differs
    case Kind::Text:
    case Kind::ShortText:
      if (op.flags & kSimple) {
        const int d = textsDifferInside(p, q, op.width);
        return d >= 0 ? d : textsDifferOnward(a, b, op.offset, op.width, chain, place);
      }
      return differs(f, a, b, op.offset, chain, place);
    case Kind::Block:
    case Kind::CountedBlock: return std::memcmp(p, q, op.width) != 0;
    case Kind::Group: break;
  }
  return false;
}

// Writes a present field of a record wholly inside its view: a short length-prefixed text
// measured within its array and copied without a call; the rest as writeField does.
TRDCOMP_INLINE std::uint32_t writeInside(const Field& f, const Op& op, const InView& r,
                                         const InView* previous, u8* out) {
  const u8* at = r.ptr(op.offset);
  switch (op.kind) {
    case Kind::Char: return stopbit::writeInt64(out, static_cast<signed char>(*at));
    case Kind::Int32:
      if (!(op.flags & kSimple)) break;
      return stopbit::writeInt64(out, static_cast<std::int32_t>(loadU32(at)));
    case Kind::Int64:
      if (!(op.flags & kSimple)) break;
      return stopbit::writeInt64(out, static_cast<std::int64_t>(loadU64(at)));
    case Kind::Double: return stopbit::writeInt64(out, stopbit::decimalUnits(loadF64(at)));
    default: break;
  }
  if ((op.kind == Kind::Text || op.kind == Kind::ShortText) && op.width < kWide &&
      (op.flags & kSimple)) {
    const u8* text = r.ptr(op.offset);
    const std::uint32_t n = lengthWithin(text, op.width);
    const int k = stopbit::writeInt64(out, n);
    copyShort(out + k, text, n);
    return static_cast<std::uint32_t>(k) + n;
  }
  return writeField(f, r, previous, op.offset, out);
}

// Starts a block at `out`: an empty map with its last byte marked, then, for a reduced block,
// the dictionary index when it differs from the previous record's (map place 0). Returns where
// the fields go.
u8* beginBlock(const Layout& layout, Part part, std::uint16_t index, const Previous& previous,
               u8* out) {
  const int m = mapLength(layout, part);
  std::memset(out, 0, static_cast<std::size_t>(m));
  if (m > 0) out[m - 1] = 0x80;
  u8* p = out + m;
  if (part == Part::Reduced && (!previous.record || index != previous.index)) {
    out[0] |= bitOf(0);
    p += stopbit::writeInt64(p, index);
  }
  return p;
}

std::uint32_t encodeFast(const Layout& layout, const Program& program, const Op* ops, Part part,
                         const InView& current, std::uint16_t index, const Previous& previous,
                         u8* out) {
  u8* p = beginBlock(layout, part, index, previous, out);
  const int first = part == Part::Reduced ? 1 : 0;
  const InView* prior = previous.record;
  const bool inside = prior && current.size() >= layout.size && prior->size() >= layout.size;
  const bool readable = current.size() >= layout.size;
  const InView zeros;
  for (std::uint32_t k = 0; k < program.count; ++k) {
    const Op& op = ops[k];
    if (inside && (op.flags & kRun)) {
      const Op& last = ops[k + op.entry - 1];
      if (std::memcmp(current.ptr(op.offset), prior->ptr(op.offset),
                      last.offset + last.width - op.offset) == 0) {
        if (op.flags & kRunDouble)
          for (std::uint32_t r = k; r < k + op.entry; ++r)
            if (ops[r].kind == Kind::Double &&
                current.f64(ops[r].offset) != current.f64(ops[r].offset)) {
              const int j = static_cast<int>(r) + first;
              out[j / 7] |= bitOf(j);
              p += writeField(layout.fields[ops[r].field], current, prior, ops[r].offset, p);
            }
        k += op.entry - 1u;
        continue;
      }
    }
    const Field& f = layout.fields[op.field];
    const InView* against = prior;
    bool whole = inside;
    if (op.flags & kGrouped) {
      // Entries past the count are never sent; one past the previous record's count is
      // compared with the zeros it was restored as.
      const Field& g = layout.fields[op.group];
      if (op.entry >= groupEntries(g, current.i32(g.countOffset))) continue;
      if (against && op.entry >= groupEntries(g, against->i32(g.countOffset))) {
        against = &zeros;
        whole = false;
      }
    }
    const int place = static_cast<int>(k) + first;
    const bool present = !against ? differsFromDefault(f, current, op.offset)
                         : whole  ? differsInside(f, op, current, *against, previous, place)
                                  : differs(f, current, *against, op.offset, previous, place);
    if (present) {
      const int j = static_cast<int>(k) + first;
      out[j / 7] |= bitOf(j);
      p += readable ? writeInside(f, op, current, prior, p)
                    : writeField(f, current, prior, op.offset, p);
    }
  }
  return static_cast<std::uint32_t>(p - out);
}

std::uint16_t decodeFast(const Layout& layout, const Program& program, const Op* ops, Part part,
                         const InView& in, std::int64_t length, u8* record,
                         const Previous& previous, Slot slot) {
  const std::int64_t size = layout.size;
  // The map ends at the first byte with bit 7 within the block; without one, every field is
  // absent.
  const std::int64_t scan = in.readable(0, length);
  const u8* map = in.ptr(0);
  std::int64_t m = 0;
  u8 any = 0;
  for (std::int64_t i = 0; i < scan; ++i) {
    any |= map[i];
    if (map[i] & 0x80) {
      m = i + 1;
      break;
    }
  }
  if (m == 0) any = 0;
  any &= 0x7F;
  const u8* prior = previous.record ? previous.record->data() : nullptr;
  if (prior && !any) {
    // No present field: the previous record, every byte of it.
    copyRecord(record, prior, size);
    return previous.index;
  }
  const int first = part == Part::Reduced ? 1 : 0;
  if (prior) {
    for (int r = 0; r < program.runs; ++r)
      copyRecord(record + program.copy[r].offset, prior + program.copy[r].offset,
                 program.copy[r].length);
    // A wide field is read over zeros when present (cleared first in a slot that is not zero;
    // a zero slot may be fresh pages, left untouched), else copied.
    for (int w = 0; w < program.wides; ++w) {
      const std::int64_t j = program.wide[w] + first;
      const Op& op = ops[program.wide[w]];
      if (!(j / 7 < m && (map[j / 7] & bitOf(static_cast<int>(j)))))
        copyRecord(record + op.offset, prior + op.offset, op.width);
      else if (slot == Slot::Any)
        std::memset(record + op.offset, 0, op.width);
    }
  } else if (program.defaults) {
    for (std::uint32_t k = 0; k < program.count; ++k)
      if (ops[k].flags & kDefault) setDefault(layout.fields[ops[k].field], record + ops[k].offset);
  }
  const std::int64_t places = std::int64_t(program.count) + first;
  std::uint16_t index = part == Part::Reduced ? previous.index : 0;
  std::int64_t pos = m;
  // Place j is bit 6 - j % 7 of map byte j / 7: reversed, the lowest set bit is the next place.
  // Places past the part's end are never read.
  for (std::int64_t i = 0; i < m && i * 7 < places; ++i) {
    unsigned bits = kReversed7[map[i] & 0x7F];
    if (places - i * 7 < 7) bits &= (1u << (places - i * 7)) - 1;
    while (bits) {
      const std::int64_t j = i * 7 + std::countr_zero(bits);
      bits &= bits - 1;
      if (j < first) {
        index = static_cast<std::uint16_t>(readInt<std::int32_t>(in, pos));
        continue;
      }
      const Op& op = ops[j - first];
      if (op.flags & kGrouped) {
        const Field& g = layout.fields[op.group];
        if (op.entry >= groupEntries(g, loadI32(record + g.countOffset))) continue;
      }
      readOp(layout, op, in, pos, record, size, previous.record);
    }
  }
  if (program.grouped)
    for (std::uint16_t i = 0; i < layout.fieldCount; ++i) {
      const Field& g = layout.fields[i];
      if (g.kind != Kind::Group) continue;
      if (g.members > 0 && inPart(layout.fields[i + 1], part)) {
        // Entries past the count end zero.
        const std::int64_t entries = groupEntries(g, loadI32(record + g.countOffset));
        std::memset(record + g.offset + entries * g.stride, 0,
                    static_cast<std::size_t>((g.repeat - entries) * g.stride));
      }
      i = static_cast<std::uint16_t>(i + g.members);
    }
  return index;
}

}  // namespace

int mapLength(const Layout& layout, Part part) {
  return (layout.fastFields[static_cast<int>(part)] + 6) / 7;
}

std::int64_t maxBlock2011(const Layout& layout, Part part) {
  const Op* ops = nullptr;
  if (const Program* program = programOf(layout, part, ops)) return program->most;
  return blockBound(layout, part);
}

std::uint32_t encode2011Checked(const Layout& layout, Part part, const InView& current,
                                std::uint16_t index, const Previous& previous, u8* out) {
  u8* p = beginBlock(layout, part, index, previous, out);
  int j = part == Part::Reduced ? 1 : 0;
  const InView zeros;
  forEachField(layout, part,
               [&](const Field& f, std::int64_t at, const Field* group, std::int64_t entry) {
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
                 const bool present = against ? differs(f, current, *against, at, previous, j)
                                              : differsFromDefault(f, current, at);
                 if (present) {
                   out[j / 7] |= bitOf(j);
                   p += writeField(f, current, previous.record, at, p);
                 }
                 ++j;
               });
  return static_cast<std::uint32_t>(p - out);
}

std::uint16_t decode2011Checked(const Layout& layout, Part part, const InView& in,
                                std::int64_t length, u8* record, std::int64_t room,
                                const Previous& previous, FieldTrace* trace) {
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
  if (trace) trace->map(m);
  if (!any && prior && previous.record->size() >= size && !trace) {
    copyRecord(record, prior, size);
    return previous.index;
  }
  const InView written(record, size);
  std::int64_t pos = m;
  int j = 0;
  std::uint16_t index = 0;
  if (part == Part::Reduced) {
    if (trace) trace->place(0, -2, -1);
    if (present(0)) {
      const std::int64_t from = pos;
      index = static_cast<std::uint16_t>(stopbit::readSigned<std::int32_t>(in, pos));
      if (trace) trace->index(from, pos);
    } else {
      index = previous.index;
    }
    j = 1;
  }
  forEachField(layout, part,
               [&](const Field& f, std::int64_t at, const Field* group, std::int64_t entry) {
                 const int fieldIndex = static_cast<int>(&f - layout.begin());
                 if (trace) trace->place(j, fieldIndex, group ? entry : -1);
                 if (group && entry >= groupEntries(*group, loadI32(record + group->countOffset))) {
                   ++j;  // past the count: stays zero
                   return;
                 }
                 if (present(j)) {
                   const std::int64_t from = pos;
                   readField(f, in, pos, record, written, previous.record, at);
                   if (trace) trace->field(fieldIndex, group ? entry : -1, at, from, pos);
                 } else if (prior)
                   copyRecord(record + at, prior + at, f.width);
                 else
                   setDefault(f, record + at);
                 ++j;
               });
  return index;
}

bool overwrites2011(const Layout& layout, std::int64_t room) {
  return room >= layout.size && prepared2011(layout, Part::Whole);
}

bool prepared2011(const Layout& layout, Part part) {
  const Op* ops = nullptr;
  const Program* program = programOf(layout, part, ops);
  return program && program->usable;
}

std::uint16_t decode2011(const Layout& layout, Part part, const InView& in, std::int64_t length,
                         u8* record, std::int64_t room, const Previous& previous, Slot slot) {
  const Op* ops = nullptr;
  const Program* program = programOf(layout, part, ops);
  if (program && program->usable && room >= layout.size &&
      (!previous.record || previous.record->size() >= layout.size))
    return decodeFast(layout, *program, ops, part, in, length, record, previous, slot);
  return decode2011Checked(layout, part, in, length, record, room, previous);
}

std::uint32_t encode2011(const Layout& layout, Part part, const InView& current,
                         std::uint16_t index, const Previous& previous, u8* out) {
  const Op* ops = nullptr;
  const Program* program = programOf(layout, part, ops);
  if (program && program->usable)
    return encodeFast(layout, *program, ops, part, current, index, previous, out);
  return encode2011Checked(layout, part, current, index, previous, out);
}

bool TextTail::equal(std::int64_t later, std::int64_t earlier, int place) {
  if (later == earlier) return true;
  const std::int64_t distance = later - earlier;
  Run* run = nullptr;
  if (distance == stride_ && place >= 0 && place < kPlaces) {
    if (!runs_) runs_ = Scratch<Run>(kPlaces);
    if (runs_) run = &runs_[place];
  }
  if (run && run->from <= earlier && earlier <= run->to) return run->equal;
  // Byte by byte until the strings differ or both end; bytes past the body read as zeros, so
  // this stops at the body's end at the latest. A remembered run ahead decides as it did.
  std::int64_t x = earlier;
  bool same;
  for (;; ++x) {
    if (run && x == run->from) {
      same = run->equal;
      x = run->to;
      break;
    }
    const u8 u = body_.at(x), v = body_.at(x + distance);
    if (u != v) {
      same = false;
      break;
    }
    if (u == 0) {
      same = true;
      break;
    }
  }
  if (steps_) *steps_ += x - earlier + 1;
  if (run) *run = Run{earlier, x, same};
  return same;
}

}  // namespace trdcomp::records
