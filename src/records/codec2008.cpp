#include "records/codec2008.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "primitives/compact.h"
#include "records/answer_layouts.h"
#include "records/request_layouts.h"

namespace trdcomp::records {
namespace {

// Prices and amounts travel as integers of 1/10000: the half unit is added before scaling
// whatever the sign, then the product is truncated toward zero.
std::int64_t priceUnits(double v) {
  return truncToInt64((v + 0.00005) * 10000.0);
}

// A record that lies wholly inside the caller's body: fields are loaded without checks (the
// layout's fields lie inside its size, and the view holds at least that); texts still end at
// the end of the view.
struct WholeRecord {
  const InView& view;
  u8 at(std::int64_t i) const { return view.data()[i]; }
  std::int32_t i32(std::int64_t i) const { return loadI32(view.data() + i); }
  std::int64_t i64(std::int64_t i) const { return loadI64(view.data() + i); }
  double f64(std::int64_t i) const { return loadF64(view.data() + i); }
  std::int64_t textLength(std::int64_t i) const { return view.textLength(i); }
  void copyOut(u8* dst, std::int64_t from, std::int64_t n) const {
    if (n > 0) std::memcpy(dst, view.data() + from, static_cast<std::size_t>(n));
  }
#if TRDCOMP_SSE2
  // A text shorter than 32 (16) bytes with 32 (16) bytes of the record from its start: found
  // with one scan and stored with one or two 16-byte moves, whatever its length. The moves may
  // run past the text, into room the field's largest encoding reserves (its length prefix and
  // the rest of the record): later fields write over it, and nothing lands past the record's
  // bound. Returns the bytes of the field, or -1 to take the general way.
  std::int64_t shortText(std::int64_t i, u8* out) const {
    const std::int64_t rest = view.size() - i;
    if (rest < 16) return -1;
    const u8* p = view.data() + i;
    const bool wide = rest >= 32;
    const std::int64_t n = wide ? compact::textEnd(p, 32) : compact::textEnd16(p);
    if (n == (wide ? 32 : 16)) return -1;
    const int k = compact::writeInt(out, static_cast<std::int32_t>(n));
    std::memcpy(out + k, p, 16);
    if (wide) std::memcpy(out + k + 16, p + 16, 16);
    return k + n;
  }
#endif
};

// Writes the text or bytes [at, at + n) of the record behind a compact length.
template <class Record>
std::uint32_t writeCounted(const Record& record, std::int64_t at, std::int64_t n, u8* out) {
  int k = compact::writeInt(out, static_cast<std::int32_t>(n));
  record.copyOut(out + k, at, n);
  return static_cast<std::uint32_t>(k + n);
}

template <Kind K, class Record>
TRDCOMP_INLINE std::uint32_t encodeNumber(const Record& record, std::int64_t at, u8* out,
                                          char flag) {
  if constexpr (K == Kind::Int32) {
    if (flag == 0) return static_cast<std::uint32_t>(compact::writeInt(out, record.i32(at)));
    if (flag == 1) return static_cast<std::uint32_t>(compact::writeInt64(out, record.i32(at)));
    return 0;
  } else if constexpr (K == Kind::Int64) {
    return static_cast<std::uint32_t>(compact::writeInt64(out, record.i64(at)));
  } else {
    return static_cast<std::uint32_t>(compact::writeInt64(out, priceUnits(record.f64(at))));
  }
}

// Encodes a run of n numbers of kind K laid end to end from `at`; returns the bytes written.
template <Kind K, class Record>
TRDCOMP_INLINE std::uint32_t encodeNumbers(const Record& record, std::int64_t at, int n, u8* out,
                                           char flag) {
  constexpr int kWidth = K == Kind::Int32 ? 4 : 8;
  u8* p = out;
  for (int k = 0; k < n; ++k) p += encodeNumber<K>(record, at + k * kWidth, p, flag);
  return static_cast<std::uint32_t>(p - out);
}

template <class F, class Record>
TRDCOMP_INLINE std::uint32_t encodeField(const F& f, const Record& record, std::int64_t base,
                                         u8* out, char flag) {
  std::int64_t at = base + f.offset;
  switch (f.kind) {
    case Kind::Char: out[0] = record.at(at); return 1;
    case Kind::Text:
    case Kind::ShortText:
      // Measured up to the terminator, not bounded by the width: a text that fills its array
      // runs on into the next field, exactly as peers send it. The record's end ends it too, so
      // an unterminated body costs its own size, never the rest of the body.
#if TRDCOMP_SSE2
      if constexpr (requires { record.shortText(at, out); }) {
        const std::int64_t n = record.shortText(at, out);
        if (n >= 0) return static_cast<std::uint32_t>(n);
      }
#endif
      return writeCounted(record, at, record.textLength(at), out);
    case Kind::Block: return writeCounted(record, at, f.width, out);
    case Kind::Int32: return encodeNumber<Kind::Int32>(record, at, out, flag);
    case Kind::Int64: return encodeNumber<Kind::Int64>(record, at, out, flag);
    case Kind::Double: return encodeNumber<Kind::Double>(record, at, out, flag);
    case Kind::CountedBlock:
      return writeCounted(
          record, at, std::clamp<std::int64_t>(record.i32(base + f.countOffset), 0, f.width), out);
    case Kind::Group: break;
  }
  return 0;
}

// Bytes of the compact 32-bit form of a non-negative length.
constexpr std::int64_t compactLengthBytes(std::int64_t n) {
  return n < 0x20 ? 1 : n < 0x2000 ? 2 : n < 0x200000 ? 3 : 4;
}

// The most bytes a field at `at` of a record viewed over `size` bytes encodes to.
std::int64_t maxField(const FieldOp& f, std::int64_t at, std::int64_t size) {
  switch (f.kind) {
    case Kind::Char: return 1;
    case Kind::Text:
    case Kind::ShortText: {
      const std::int64_t most = size > at ? size - at : 0;
      return compactLengthBytes(most) + most;
    }
    case Kind::Block:
    case Kind::CountedBlock: return compactLengthBytes(f.width) + f.width;
    case Kind::Int32: return 5;  // the 64-bit form of a 32-bit value
    case Kind::Int64:
    case Kind::Double: return 8;
    case Kind::Group: break;
  }
  return 0;
}

// What one record's decoding has written where no field of its own lies: a decode cap runs a
// text past its array, into later fields or past the record.
struct Spill {
  std::int64_t from = 0, to = 0;  // bytes [from, to) of the record hold a cap's overflow
  std::int64_t reach = 0;         // end of all bytes written

  // The bytes [a, b) of a text's bounded copy that the copy did not write read as zero: they
  // are, unless a cap spilled there.
  void clear(u8* record, std::int64_t a, std::int64_t b) const {
    const std::int64_t lo = std::max(a, from), hi = std::min(b, to);
    if (lo < hi) std::memset(record + lo, 0, static_cast<std::size_t>(hi - lo));
  }
  void wrote(std::int64_t fieldEnd, std::int64_t end) {
    reach = std::max(reach, end);
    if (end <= fieldEnd) return;
    from = from < to ? std::min(from, fieldEnd) : fieldEnd;
    to = std::max(to, end);
  }
};

// Decodes a number of kind K at `pos` into dst.
template <Kind K, class In>
TRDCOMP_INLINE void decodeNumber(const In& in, std::int64_t& pos, u8* dst, char flag) {
  if constexpr (K == Kind::Int32) {
    storeI32(dst, flag == 0 ? compact::readInt(in, pos)
                            : static_cast<std::int32_t>(compact::readInt64(in, pos)));
  } else if constexpr (K == Kind::Int64) {
    storeU64(dst, static_cast<std::uint64_t>(compact::readInt64(in, pos)));
  } else {
    storeF64(dst, static_cast<double>(compact::readInt64(in, pos)) / 10000.0);
  }
}

// Decodes a run of `n` numbers of kind K laid end to end from dst, while `pos` stays before
// `available`; returns whether the run was read whole.
template <Kind K>
TRDCOMP_INLINE bool decodeNumbers(const InsideBytes& in, std::int64_t& pos, std::int64_t available,
                                  u8* dst, int n, char flag) {
  constexpr int kWidth = K == Kind::Int32 ? 4 : 8;
  for (int k = 0; k < n; ++k) {
    if (pos >= available) return false;
    decodeNumber<K>(in, pos, dst + k * kWidth, flag);
  }
  return true;
}

// Decodes one field at `pos`; `record` has `room` writable bytes. Into a zero record, a field
// writes only what it holds; with kFill, it writes every byte of its width (texts and blocks
// padded with zeros), so that the record need not be zeroed first.
template <bool kFill, class F, class In>
TRDCOMP_INLINE void decodeField(const F& f, const In& in, std::int64_t& pos, u8* record,
                                std::int64_t room, std::int64_t base, char flag, Spill& spill) {
  std::int64_t at = base + f.offset;
  u8* dst = record + at;
  switch (f.kind) {
    case Kind::Char: *dst = in.at(pos++); return;
    case Kind::Text:
    case Kind::ShortText: {
      std::int32_t length = compact::readInt(in, pos);
#if TRDCOMP_SSE2
      if constexpr (kFill && requires { In::kWordLoads; }) {
        // The text and its zero padding in whole-word stores: no byte is written twice.
        const u8* from = in.ptr(pos);
        const std::int64_t cap = f.cap;
        const std::int64_t j =
            length < 1 ? 0 : compact::textEnd(from, std::min<std::int64_t>(length, cap));
        compact::fillField(dst, from, j, f.width);
        if (length > 0) pos += length;
        return;
      }
#endif
      if (length < 1) {
        if constexpr (kFill) std::memset(dst, 0, f.width);
        return;
      }
      // A text keeps up to its cap (the width unless the row says otherwise); a short string
      // keeps one byte less so that it always ends in zero.
      const std::int64_t cap = f.cap;
      std::int64_t k = std::min<std::int64_t>({length, cap, room - at});
      const std::int64_t copied = compact::copyTextPrefix(in, pos, dst, k);
      if constexpr (kFill) {
        std::memset(dst + copied, 0, static_cast<std::size_t>(f.width - copied));
      } else {
        spill.clear(record, at + copied, at + k);
        spill.wrote(at + f.width, at + copied);
      }
      pos += length;
      return;
    }
    case Kind::Block:
    case Kind::CountedBlock: {
      std::int64_t limit = f.width;
      if (f.kind == Kind::CountedBlock)
        limit = std::clamp<std::int64_t>(loadI32(record + f.countOffset), 0, f.width);
      std::int32_t length = compact::readInt(in, pos);
#if TRDCOMP_SSE2
      if constexpr (kFill && requires { In::kWordLoads; }) {
        const std::int64_t n = length < 1 ? 0 : std::min<std::int64_t>(length, limit);
        compact::fillField(dst, in.ptr(pos), n, f.width);
        if (length > 0) pos += length;
        return;
      }
#endif
      if constexpr (kFill) std::memset(dst, 0, f.width);
      if (length < 1) return;
      in.copyAvailable(dst, pos, std::min<std::int64_t>(length, limit));
      pos += length;
      return;
    }
    case Kind::Int32: decodeNumber<Kind::Int32>(in, pos, dst, flag); return;
    case Kind::Int64: decodeNumber<Kind::Int64>(in, pos, dst, flag); return;
    case Kind::Double: decodeNumber<Kind::Double>(in, pos, dst, flag); return;
    case Kind::Group: return;
  }
}

template <class Record>
std::uint32_t encodeFields(const Layout& layout, const Record& record, u8* out, char flag) {
  u8* p = out;
  for (const FieldOp* f = layout.opsBegin(); f != layout.opsEnd(); ++f) {
    if (f->run > 1) {
      // Chars end to end travel as they lie; numbers end to end in one loop of their kind.
      switch (f->kind) {
        case Kind::Char: record.copyOut(p, f->offset, f->run), p += f->run; break;
        case Kind::Int32:
          p += encodeNumbers<Kind::Int32>(record, f->offset, f->run, p, flag);
          break;
        case Kind::Int64:
          p += encodeNumbers<Kind::Int64>(record, f->offset, f->run, p, flag);
          break;
        default: p += encodeNumbers<Kind::Double>(record, f->offset, f->run, p, flag); break;
      }
      f += f->run - 1;
      continue;
    }
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

// How decodeFields reads: every byte checked (the reference); unchecked for each field whose
// read span lies inside the input (checked once per field); unchecked throughout (the record and
// its read span lie inside, checked once per record).
enum class Reads { Checked, PerField, Inside };

// The most bytes one field reads from where it starts (see Layout::readSpan).
template <class F>
constexpr std::int64_t fieldSpan(const F& f) {
  switch (f.kind) {
    case Kind::Text: return 4 + std::max<std::int64_t>(f.cap, InsideBytes::kTextLoad);
    case Kind::ShortText:
    case Kind::Block:
    case Kind::CountedBlock: return 4 + std::max<std::int64_t>(f.width, InsideBytes::kTextLoad);
    default: return 8;
  }
}

template <Reads kReads, bool kFill, class F>
TRDCOMP_INLINE void decodeOne(const F& f, const InView& in, std::int64_t& pos, u8* record,
                              std::int64_t room, std::int64_t base, char flag, Spill& spill) {
  if (kReads == Reads::Inside || (kReads == Reads::PerField && in.size() - pos >= fieldSpan(f)))
    decodeField<kFill>(f, InsideBytes{{in.data()}}, pos, record, room, base, flag, spill);
  else
    decodeField<kFill>(f, in, pos, record, room, base, flag, spill);
}

// A fill decoding that stops before the last field (the record ran out of bytes) reports it
// with this instead of the reach: the caller zeroes the record and decodes it the plain way.
constexpr std::int64_t kUnfilled = -1;

// Decodes the fields of a record. Without kFill the record must be zero and is written where
// the input holds fields; with kFill (layouts that fill their records) every byte is written,
// or kUnfilled comes back.
template <Reads kReads, bool kFill>
std::int64_t decodeFields(const Layout& layout, const InView& in, std::int64_t available,
                          u8* record, std::int64_t room, char flag, FieldTrace* trace = nullptr) {
  std::int64_t pos = 0;
  // Only the reference reads tell an observer where each field lay.
  const auto traced = [&](const FieldOp* f, std::int64_t entry, std::int64_t at,
                          std::int64_t from) {
    if constexpr (kReads == Reads::Checked)
      if (trace) trace->field(static_cast<int>(f - layout.opsBegin()), entry, at, from, pos);
  };
  Spill spill;
  spill.reach = layout.size;
  for (const FieldOp* f = layout.opsBegin(); f != layout.opsEnd(); ++f) {
    if (pos >= available) return kFill ? kUnfilled : spill.reach;
    if (kReads == Reads::Inside && f->run > 1) {
      if (f->kind == Kind::Char && pos + f->run <= available) {
        // Chars end to end travel as they lie: one copy for the run.
        std::memcpy(record + f->offset, in.ptr(pos), f->run);
        pos += f->run;
        f += f->run - 1;
        continue;
      }
      if (f->kind != Kind::Char) {
        // Numbers end to end: one loop of the same kind.
        const InsideBytes inside{{in.data()}};
        u8* dst = record + f->offset;
        const bool whole =
            f->kind == Kind::Int32
                ? decodeNumbers<Kind::Int32>(inside, pos, available, dst, f->run, flag)
            : f->kind == Kind::Int64
                ? decodeNumbers<Kind::Int64>(inside, pos, available, dst, f->run, flag)
                : decodeNumbers<Kind::Double>(inside, pos, available, dst, f->run, flag);
        if (!whole) return kFill ? kUnfilled : spill.reach;
        f += f->run - 1;
        continue;
      }
    }
    if (f->kind != Kind::Group) {
      const std::int64_t from = pos;
      decodeOne<kReads, kFill>(*f, in, pos, record, room, 0, flag, spill);
      traced(f, -1, f->offset, from);
      continue;
    }
    const std::int64_t n = groupEntries(*f, loadI32(record + f->countOffset));
    for (std::int64_t e = 0; e < n; ++e) {
      for (std::uint16_t m = 1; m <= f->members; ++m) {
        if (pos >= available) return kFill ? kUnfilled : spill.reach;
        const std::int64_t from = pos;
        decodeOne<kReads, kFill>(f[m], in, pos, record, room, f->offset + e * f->stride, flag,
                                 spill);
        traced(f + m, e, f->offset + e * f->stride + f[m].offset, from);
      }
    }
    // The entries past the count restore as zeros.
    if constexpr (kFill)
      std::memset(record + f->offset + n * f->stride, 0,
                  static_cast<std::size_t>((f->repeat - n) * f->stride));
    f += f->members;
  }
  return spill.reach;
}

// A field known when the library is built: the same descriptor, its members constants, so that
// the field functions above fold into straight code for it.
template <FieldOp Op>
struct Fixed {
  static constexpr std::uint16_t offset = Op.offset, width = Op.width, cap = Op.cap;
  static constexpr Kind kind = Op.kind;
  static constexpr std::uint16_t countOffset = Op.countOffset;
};

// A text or block field: its kind known when the library is built, its place and width at run
// time. Such fields take one shared routine per kind and way of reading, so that the code of a
// layout stays small; the rest are folded into straight code.
template <Kind K>
struct OfKind {
  static constexpr Kind kind = K;
  std::uint16_t offset, width, cap, countOffset;
};
constexpr bool bulky(Kind k) {
  return k == Kind::Text || k == Kind::ShortText || k == Kind::Block || k == Kind::CountedBlock;
}
template <FieldOp Op>
constexpr OfKind<Op.kind> ofKind() {
  return {Op.offset, Op.width, Op.cap, Op.countOffset};
}

// What a record's decoding carries from field to field.
struct DecodeState {
  const InView& in;
  std::int64_t available;
  u8* record;
  std::int64_t room;
  char flag;
  FieldTrace* trace;
  std::int64_t pos = 0;
  Spill spill{};
};

// One field through its shared routine: false when the input is used up before it.
template <Reads kReads, bool kFill, Kind K>
[[gnu::noinline]] bool decodeShared(DecodeState& d, OfKind<K> f, std::int64_t base,
                                    std::int64_t entry, int index) {
  if (d.pos >= d.available) return false;
  const std::int64_t from = d.pos;
  decodeOne<kReads, kFill>(f, d.in, d.pos, d.record, d.room, base, d.flag, d.spill);
  if constexpr (kReads == Reads::Checked)
    if (d.trace) d.trace->field(index, entry, base + f.offset, from, d.pos);
  return true;
}

template <class Record>
struct EncodeState {
  const Record& record;
  u8* p;
  char flag;
};

template <class Record, Kind K>
[[gnu::noinline]] void encodeShared(EncodeState<Record>& e, OfKind<K> f, std::int64_t base) {
  e.p += encodeField(f, e.record, base, e.p, e.flag);
}

// The fields of layout `Layouts[I]` decoded by straight code: the same steps as decodeFields,
// unrolled over the layout's fields at build time.
template <auto& Layouts, std::size_t I, Reads kReads, bool kFill>
struct Decoder : DecodeState {
  static constexpr const Layout& L = Layouts[I];
  static constexpr FieldOp op(std::size_t k) { return L.ops[k]; }
  // Whether field k is decoded by another's step: a group member, or a char of a run that its
  // first char copies whole (unchecked reads only).
  static constexpr bool follower(std::size_t k) {
    for (std::size_t i = 0; i < L.fieldCount;) {
      if (i == k) return false;
      const FieldOp& f = L.ops[i];
      if (f.kind == Kind::Group)
        i += 1 + f.members;
      else if (kReads == Reads::Inside && f.kind == Kind::Char && f.run > 1)
        i += f.run;
      else
        ++i;
      if (i > k) return true;
    }
    return true;
  }

  template <std::size_t K>
  TRDCOMP_INLINE bool field(std::int64_t base, std::int64_t entry) {
    // Checked reads (records near the end of the input, and the reference) take the shared
    // routines for every field: they are rare, and their code would be most of the library's.
    if constexpr (bulky(op(K).kind) || kReads != Reads::Inside) {
      return decodeShared<kReads, kFill>(*this, ofKind<op(K)>(), base, entry, int(K));
    } else {
      if (pos >= available) return false;
      decodeOne<kReads, kFill>(Fixed<op(K)>{}, in, pos, record, room, base, flag, spill);
      return true;
    }
  }

  // Chars end to end travel as they lie: one copy for the run when it lies before `available`.
  template <std::size_t K, std::size_t... R>
  TRDCOMP_INLINE bool run(std::index_sequence<R...>) {
    constexpr std::int64_t n = sizeof...(R);
    if (pos >= available) return false;
    if (pos + n <= available) {
      std::memcpy(record + op(K).offset, in.ptr(pos), n);
      pos += n;
      return true;
    }
    return (field<K + R>(0, -1) && ...);
  }

  template <std::size_t K, std::size_t... M>
  TRDCOMP_INLINE bool group(std::index_sequence<M...>) {
    constexpr FieldOp g = op(K);
    if (pos >= available) return false;
    const std::int64_t n = groupEntries(g, loadI32(record + g.countOffset));
    for (std::int64_t e = 0; e < n; ++e)
      if (!(field<K + 1 + M>(g.offset + e * g.stride, e) && ...)) return false;
    // The entries past the count restore as zeros.
    if constexpr (kFill)
      std::memset(record + g.offset + n * g.stride, 0,
                  static_cast<std::size_t>((g.repeat - n) * g.stride));
    return true;
  }

  template <std::size_t K>
  TRDCOMP_INLINE bool step() {
    if constexpr (follower(K)) {
      return true;
    } else if constexpr (op(K).kind == Kind::Group) {
      return group<K>(std::make_index_sequence<op(K).members>{});
    } else if constexpr (kReads == Reads::Inside && op(K).kind == Kind::Char && op(K).run > 1) {
      return run<K>(std::make_index_sequence<op(K).run>{});
    } else {
      return field<K>(0, -1);
    }
  }

  template <std::size_t... K>
  TRDCOMP_INLINE bool all(std::index_sequence<K...>) {
    return (step<K>() && ...);
  }

  [[gnu::noinline]] static std::int64_t decode(const InView& in, std::int64_t available, u8* record,
                                               std::int64_t room, char flag,
                                               FieldTrace* trace = nullptr) {
    Decoder d{{in, available, record, room, flag, trace}};
    d.spill.reach = L.size;
    if (!d.all(std::make_index_sequence<L.fieldCount>{})) return kFill ? kUnfilled : d.spill.reach;
    return d.spill.reach;
  }
};

// The fields of layout `Layouts[I]` encoded by straight code: the same steps as encodeFields.
template <auto& Layouts, std::size_t I, class Record>
struct Encoder : EncodeState<Record> {
  using EncodeState<Record>::record;
  using EncodeState<Record>::p;
  using EncodeState<Record>::flag;
  static constexpr const Layout& L = Layouts[I];
  static constexpr FieldOp op(std::size_t k) { return L.ops[k]; }
  // Checked reads (records cut short, and the reference) take the shared routine for every
  // field, runs included.
  static constexpr bool kRuns = !std::is_same_v<Record, InView>;
  // Whether field k is encoded by another's step: a group member, or a later field of a run.
  static constexpr bool follower(std::size_t k) {
    for (std::size_t i = 0; i < L.fieldCount;) {
      if (i == k) return false;
      const FieldOp& f = L.ops[i];
      i += f.kind == Kind::Group ? 1 + f.members : f.run > 1 && kRuns ? f.run : 1;
      if (i > k) return true;
    }
    return true;
  }

  template <std::size_t K>
  TRDCOMP_INLINE void one(std::int64_t base) {
    if constexpr (bulky(op(K).kind) || std::is_same_v<Record, InView>)
      encodeShared<Record>(*this, ofKind<op(K)>(), base);
    else
      p += encodeField(Fixed<op(K)>{}, record, base, p, flag);
  }

  template <std::size_t K, std::size_t... M>
  TRDCOMP_INLINE void group(std::index_sequence<M...>) {
    constexpr FieldOp g = op(K);
    // A counted group: only the entries its count names, at most `repeat`.
    const std::int64_t n = groupEntries(g, record.i32(g.countOffset));
    for (std::int64_t e = 0; e < n; ++e) (one<K + 1 + M>(g.offset + e * g.stride), ...);
  }

  template <std::size_t K>
  TRDCOMP_INLINE void step() {
    constexpr FieldOp f = op(K);
    if constexpr (follower(K)) {
      return;
    } else if constexpr (f.kind == Kind::Group) {
      group<K>(std::make_index_sequence<f.members>{});
    } else if constexpr (kRuns && f.run > 1 && f.kind == Kind::Char) {
      // Chars end to end travel as they lie; numbers end to end in one loop of their kind.
      record.copyOut(p, f.offset, f.run);
      p += f.run;
    } else if constexpr (kRuns && f.run > 1) {
      p += encodeNumbers<f.kind>(record, f.offset, f.run, p, flag);
    } else {
      one<K>(0);
    }
  }

  template <std::size_t... K>
  TRDCOMP_INLINE void all(std::index_sequence<K...>) {
    (step<K>(), ...);
  }

  [[gnu::noinline]] static std::uint32_t encode(const Record& record, u8* out, char flag) {
    Encoder e{{record, out, flag}};
    e.all(std::make_index_sequence<L.fieldCount>{});
    return static_cast<std::uint32_t>(e.p - out);
  }
};

// Records near the end of the input are copied, with the bytes that follow them in the input,
// into a buffer padded with zeros: there they read as they would through the checked view (a
// byte past the input reads as zero) but without a check per field.
constexpr std::int64_t kPadded = 2048;

template <bool kFill>
std::int64_t decodeRecord(const Layout& layout, const InView& in, std::int64_t available,
                          u8* record, std::int64_t room, char flag) {
  if (insideForDecode2008(layout, in, available))
    return decodeFields<Reads::Inside, kFill>(layout, in, available, record, room, flag);
  if (available >= 0 && available + layout.readSpan <= kPadded) {
    u8 padded[kPadded];
    const std::int64_t held = std::min<std::int64_t>(in.size(), available + layout.readSpan);
    in.copyAvailable(padded, 0, held);
    std::memset(padded + held, 0, static_cast<std::size_t>(available + layout.readSpan - held));
    return decodeFields<Reads::Inside, kFill>(layout, InView(padded, available + layout.readSpan),
                                              available, record, room, flag);
  }
  return decodeFields<Reads::PerField, kFill>(layout, in, available, record, room, flag);
}

// The compiled codec of a layout: its straight-code field steps for each way of reading.
using FieldsFn = std::int64_t (*)(const InView&, std::int64_t, u8*, std::int64_t, char,
                                  FieldTrace*);
using EncodeFn = std::uint32_t (*)(const InView&, u8*, char);
struct Codec {
  FieldsFn inside[2];  // unchecked reads into a zero record, and filling any record (or null)
  FieldsFn checked;    // checked reads into a zero record; the reference
  EncodeFn whole;      // a record wholly inside the caller's body
  EncodeFn view;       // any record, through checked reads; the reference
};

template <auto& Layouts, std::size_t I>
constexpr Codec compiledCodec() {
  constexpr bool fills = Layouts[I].fills;
  FieldsFn fill = nullptr;
  if constexpr (fills) fill = &Decoder<Layouts, I, Reads::Inside, true>::decode;
  return Codec{{&Decoder<Layouts, I, Reads::Inside, false>::decode, fill},
               &Decoder<Layouts, I, Reads::Checked, false>::decode,
               [](const InView& r, u8* out, char flag) {
                 return Encoder<Layouts, I, WholeRecord>::encode(WholeRecord{r}, out, flag);
               },
               &Encoder<Layouts, I, InView>::encode};
}

template <auto& Layouts, std::size_t... I>
constexpr auto compile(std::index_sequence<I...>) {
  return std::array<Codec, sizeof...(I)>{compiledCodec<Layouts, I>()...};
}

constexpr auto kRequestCodecs =
    compile<kRequestLayouts>(std::make_index_sequence<kRequestLayouts.size()>{});
constexpr auto kAnswerCodecs =
    compile<kAnswerLayouts>(std::make_index_sequence<kAnswerLayouts.size()>{});

// One record by the compiled steps: unchecked while the record and its read span lie inside the
// input; near the end, from a copy padded with zeros (where bytes past the input read as zero,
// as through the checked view); far from any pad, through checked reads. `kFill` decodings
// that stop early give kUnfilled.
template <bool kFill>
std::int64_t decodeCompiled(const Codec& c, const Layout& l, const InView& in,
                            std::int64_t available, u8* record, std::int64_t room, char flag) {
  const FieldsFn inside = c.inside[kFill];
  if (insideForDecode2008(l, in, available))
    return inside(in, available, record, room, flag, nullptr);
  if (available >= 0 && available + l.readSpan <= kPadded) {
    u8 padded[kPadded];
    const std::int64_t held = std::min<std::int64_t>(in.size(), available + l.readSpan);
    in.copyAvailable(padded, 0, held);
    std::memset(padded + held, 0, static_cast<std::size_t>(available + l.readSpan - held));
    return inside(InView(padded, available + l.readSpan), available, record, room, flag, nullptr);
  }
  if (kFill) return kUnfilled;  // the caller zeroes the record and decodes it the plain way
  return c.checked(in, available, record, room, flag, nullptr);
}

// The compiled codec of a catalogue layout; null for a layout built elsewhere.
const Codec* compiledOf(const Layout& l) {
  switch (l.table) {
    case kRequestTable: return &kRequestCodecs[l.index];
    case kAnswerTable: return &kAnswerCodecs[l.index];
    default: return nullptr;
  }
}

}  // namespace

std::uint32_t encode2008(const Layout& layout, const InView& record, u8* out, char flag) {
  if (const Codec* c = compiledOf(layout))
    return record.size() >= layout.size ? c->whole(record, out, flag) : c->view(record, out, flag);
  // A record cut short by the end of the body reads zeros past it: checked loads.
  if (record.size() >= layout.size) return encodeFields(layout, WholeRecord{record}, out, flag);
  return encodeFields(layout, record, out, flag);
}

std::int64_t maxEncoded2008(const Layout& layout, std::int64_t extent) {
  std::int64_t most = 0;
  for (const FieldOp* f = layout.opsBegin(); f != layout.opsEnd(); ++f) {
    if (f->kind != Kind::Group) {
      most += maxField(*f, f->offset, extent);
      continue;
    }
    for (std::int64_t e = 0; e < f->repeat; ++e)
      for (std::uint16_t m = 1; m <= f->members; ++m)
        most += maxField(f[m], f->offset + e * f->stride + f[m].offset, extent);
    f += f->members;
  }
  return most;
}

// Every field starts before `available` and reads at most readSpan bytes from there: when the
// input holds them all, no byte of the record needs checking. The records near the end of the
// input take the checked reads.
bool insideForDecode2008(const Layout& layout, const InView& in, std::int64_t available) {
  return available >= 0 && in.size() - available >= layout.readSpan;
}

std::int64_t decode2008(const Layout& layout, const InView& in, std::int64_t available, u8* record,
                        std::int64_t room, char flag, Slot slot) {
  if (const Codec* c = compiledOf(layout)) {
    if (slot == Slot::Any && c->inside[1]) {
      const std::int64_t reach =
          decodeCompiled<true>(*c, layout, in, available, record, room, flag);
      if (reach != kUnfilled) return reach;
      std::memset(record, 0, layout.size);
    }
    return decodeCompiled<false>(*c, layout, in, available, record, room, flag);
  }
  if (slot == Slot::Any) {
    const std::int64_t reach = decodeRecord<true>(layout, in, available, record, room, flag);
    if (reach != kUnfilled) return reach;
    std::memset(record, 0, layout.size);
  }
  return decodeRecord<false>(layout, in, available, record, room, flag);
}

std::uint32_t encode2008Checked(const Layout& layout, const InView& record, u8* out, char flag) {
  if (const Codec* c = compiledOf(layout)) return c->view(record, out, flag);
  return encodeFields(layout, record, out, flag);
}

std::int64_t decode2008Checked(const Layout& layout, const InView& in, std::int64_t available,
                               u8* record, std::int64_t room, char flag, FieldTrace* trace) {
  if (const Codec* c = compiledOf(layout))
    return c->checked(in, available, record, room, flag, trace);
  return decodeFields<Reads::Checked, false>(layout, in, available, record, room, flag, trace);
}

}  // namespace trdcomp::records
