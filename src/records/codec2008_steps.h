// The 2008 record codec field by field, and its codec compiled per layout: the field routines
// (one source for checked and unchecked reads, over the input view they are given), and the
// template that unrolls them over a layout's rows at build time. The catalogue's tables are
// compiled in codec2008_requests.cpp and codec2008_answers.cpp, one translation unit each.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

#include "primitives/bytes.h"
#include "primitives/compact.h"
#include "records/codec2008.h"
#include "records/layout.h"

namespace trdcomp::records::steps2008 {

// Bytes of the compact 32-bit form of a non-negative length.
constexpr std::int64_t compactLengthBytes(std::int64_t n) {
  return n < 0x20 ? 1 : n < 0x2000 ? 2 : n < 0x200000 ? 3 : 4;
}

// The most bytes a field at `at` of a record viewed over `size` bytes encodes to.
constexpr std::int64_t maxField(const FieldOp& f, std::int64_t at, std::int64_t size) {
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

// The most bytes a record of `layout` viewed over `extent` bytes encodes to, whatever it holds.
constexpr std::int64_t maxEncodedFields(const Layout& layout, std::int64_t extent) {
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

// Prices and amounts travel as integers of 1/10000: the half unit is added before scaling
// whatever the sign, then the product is truncated toward zero.
inline std::int64_t priceUnits(double v) {
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

// How a record's fields are read: every byte checked (the reference, and records near the end of
// the input), or unchecked throughout (the record and its read span lie inside the input,
// checked once per record).
enum class Reads { Checked, Inside };

template <Reads kReads, bool kFill, class F>
TRDCOMP_INLINE void decodeOne(const F& f, const InView& in, std::int64_t& pos, u8* record,
                              std::int64_t room, std::int64_t base, char flag, Spill& spill) {
  if constexpr (kReads == Reads::Inside)
    decodeField<kFill>(f, InsideBytes{{in.data()}}, pos, record, room, base, flag, spill);
  else
    decodeField<kFill>(f, in, pos, record, room, base, flag, spill);
}

// A fill decoding that stops before the last field (the record ran out of bytes) reports it
// with this instead of the reach: the caller zeroes the record and decodes it the checked way.
constexpr std::int64_t kUnfilled = -1;

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
  std::int64_t pos = 0;
  Spill spill{};
};

// One field through its shared routine: false when the input is used up before it.
template <Reads kReads, bool kFill, Kind K>
[[gnu::noinline]] std::int64_t decodeShared(const InView& in, std::int64_t pos, u8* record,
                                            std::int64_t room, char flag, Spill* spill, OfKind<K> f,
                                            std::int64_t base) {
  Spill unused;
  decodeOne<kReads, kFill>(f, in, pos, record, room, base, flag, spill ? *spill : unused);
  return pos;
}

// A text whose field no other field's decoding writes into (no decode cap of an earlier text
// runs into it, and its own cap is at most its width), read from a record inside its input:
// the terminator found in one scan of its width, the whole field written as a few overlapping
// chunks masked to the text, whatever the text's length. Writing its zero tail is right in a
// record the decoding fills and harmless in a zero one. Widths by class: 8, 9-16 (two 8-byte
// words), 17-32 (two 16-byte chunks) and 33-48 (three); other widths take the general routine.
constexpr int ownTextClass(std::uint16_t width) {
  return width == 8                  ? 8
         : width > 8 && width <= 16  ? 16
         : width > 16 && width <= 32 ? 32
         : width > 32 && width <= 48 ? 48
                                     : 0;
}

#if TRDCOMP_SSE2
template <int kClass>
[[gnu::noinline]] std::int64_t decodeOwnText(const u8* in, std::int64_t pos, u8* dst,
                                             std::int64_t width, std::int64_t cap) {
  // A text of these widths has a one-byte length but when it fills 32 bytes or more.
  const unsigned b = in[pos];
  std::int32_t length;
  if ((b & 0x60) == 0) [[likely]] {
    length = (b & 0x80) ? -static_cast<std::int32_t>(b & 0x1F) : static_cast<std::int32_t>(b);
    ++pos;
  } else {
    length = compact::readInt(InsideBytes{{in}}, pos);
  }
  const u8* from = in + pos;
  const std::int64_t k = length < 1 ? 0 : std::min<std::int64_t>(length, cap);
  if constexpr (kClass <= 16) {
    const std::int64_t j = compact::textEnd32(from, k);
    const std::int64_t tail = width - 8;
    const std::uint64_t lo =
        loadU64(from) & loadU64(compact::kKeepMask + 16 - std::min<std::int64_t>(j, 8));
    if constexpr (kClass == 16) {
      const std::uint64_t hi = loadU64(from + tail) & loadU64(compact::kKeepMask + 16 -
                                                              std::max<std::int64_t>(j - tail, 0));
      storeU64(dst + tail, hi);
    }
    storeU64(dst, lo);
  } else if constexpr (kClass == 32) {
    compact::fillField16to32(dst, from, compact::textEnd32(from, k), width);
  } else {
    compact::fillText33to48(dst, from, k, width);
  }
  return length > 0 ? pos + length : pos;
}
#endif

#if TRDCOMP_SSE2
// A text of a record inside the caller's body. One shorter than 32 (16) bytes with 32 (16)
// bytes of the record from its start is found with one scan and stored with one or two 16-byte
// moves, whatever its length. The moves may run past the text, into room the field's largest
// encoding reserves (its length prefix and the rest of the record): later fields write over it,
// and nothing lands past the record's bound. Longer texts take the general way.
[[gnu::noinline]] inline u8* encodeText(const u8* data, std::int64_t size, std::int64_t at,
                                        u8* out) {
  const u8* p = data + at;
  const std::int64_t rest = size - at;
  if (rest >= 32) {
    const std::int64_t n = compact::textEnd32(p, 32);
    if (n < 32) {
      out[0] = static_cast<u8>(n);  // the compact form of a length under 32: one byte
      std::memcpy(out + 1, p, 16);
      std::memcpy(out + 17, p + 16, 16);
      return out + 1 + n;
    }
  } else if (rest >= 16) {
    const std::int64_t n = compact::textEnd16(p);
    if (n < 16) {
      out[0] = static_cast<u8>(n);
      std::memcpy(out + 1, p, 16);
      return out + 1 + n;
    }
  }
  const InView view(data, size);
  return out + writeCounted(WholeRecord{view}, at, view.textLength(at), out);
}
#endif

template <class Record>
struct EncodeState {
  const Record& record;
  u8* p;
  char flag;
};

template <class Record, Kind K>
[[gnu::noinline]] u8* encodeShared(const Record& record, u8* p, char flag, OfKind<K> f,
                                   std::int64_t base) {
  return p + encodeField(f, record, base, p, flag);
}

// The fields of layout `Layouts[I]` decoded by straight code: the same steps as decodeFields,
// unrolled over the layout's fields at build time.
template <auto& Layouts, std::size_t I, Reads kReads, bool kFill>
struct Decoder : DecodeState {
  static constexpr const Layout& L = Layouts[I];
  static constexpr FieldOp op(std::size_t k) { return L.ops[k]; }
  // Whether field k is decoded by another's step: a group member, or a char of a run that its
  // first char copies whole (unchecked reads only).
  static constexpr std::array<bool, L.fieldCount> kFollowers = [] {
    std::array<bool, L.fieldCount> followers{};
    for (std::size_t i = 0; i < L.fieldCount;) {
      const FieldOp& f = L.ops[i];
      std::size_t next = i + 1;
      if (f.kind == Kind::Group)
        next = i + 1 + f.members;
      else if (kReads == Reads::Inside && f.kind == Kind::Char && f.run > 1)
        next = i + f.run;
      for (std::size_t k = i + 1; k < next && k < L.fieldCount; ++k) followers[k] = true;
      i = next;
    }
    return followers;
  }();
  static constexpr bool follower(std::size_t k) { return kFollowers[k]; }

  // The bytes of a record that the decoding of top-level field i may write: a text up to its
  // cap, a group all its entries.
  static constexpr std::pair<std::int64_t, std::int64_t> writes(std::size_t i) {
    const FieldOp& g = L.ops[i];
    if (g.kind == Kind::Group) return {g.offset, g.offset + std::int64_t(g.repeat) * g.stride};
    return {g.offset, g.offset + (g.kind == Kind::Text ? std::max(g.width, g.cap) : g.width)};
  }

  // Whether field k is a text that decodeOwnText takes: of a width it has a class for, its cap
  // at most its width, and no field decoded ahead of it writing into its bytes (a group member:
  // into its group's; and no text of the group has a cap past its width).
  static constexpr bool ownText(std::size_t k) {
    const FieldOp f = op(k);
    if ((f.kind != Kind::Text && f.kind != Kind::ShortText) || f.cap > f.width ||
        ownTextClass(f.width) == 0)
      return false;
    std::size_t top = k;
    for (std::size_t i = 0; i < L.fieldCount; ++i) {
      const FieldOp& g = L.ops[i];
      if (g.kind != Kind::Group) continue;
      if (k > i && k <= i + g.members) {
        top = i;
        for (std::size_t m = i + 1; m <= i + g.members; ++m)
          if (L.ops[m].kind == Kind::Text && L.ops[m].cap > L.ops[m].width) return false;
      }
      i += g.members;
    }
    const auto mine = top == k ? std::pair<std::int64_t, std::int64_t>{f.offset, f.offset + f.width}
                               : writes(top);
    for (std::size_t i = 0; i < top; ++i) {
      const auto [from, to] = writes(i);
      if (from < mine.second && to > mine.first) return false;
      if (L.ops[i].kind == Kind::Group) i += L.ops[i].members;
    }
    return true;
  }

  template <std::size_t K>
  TRDCOMP_INLINE bool field(std::int64_t base) {
    // Texts and blocks take the shared routine of their kind: their code would otherwise be most
    // of the library's.
#if TRDCOMP_SSE2
    if constexpr (kReads == Reads::Inside && ownText(K)) {
      if (pos >= available) return false;
      pos = decodeOwnText<ownTextClass(op(K).width)>(in.data(), pos, record + base + op(K).offset,
                                                     op(K).width, op(K).cap);
      return true;
    } else
#endif
        if constexpr (bulky(op(K).kind)) {
      if (pos >= available) return false;
      pos = decodeShared<kReads, kFill>(in, pos, record, room, flag, kFill ? nullptr : &spill,
                                        ofKind<op(K)>(), base);
      return true;
    } else {
      // Chars and numbers: their own few lines, not the whole field switch per field.
      if (pos >= available) return false;
      u8* dst = record + base + op(K).offset;
      if constexpr (op(K).kind == Kind::Char) {
        if constexpr (kReads == Reads::Inside)
          *dst = in.data()[pos++];
        else
          *dst = in.at(pos++);
      } else if constexpr (kReads == Reads::Inside) {
        decodeNumber<op(K).kind>(InsideBytes{{in.data()}}, pos, dst, flag);
      } else {
        decodeNumber<op(K).kind>(in, pos, dst, flag);
      }
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
    return (field<K + R>(0) && ...);
  }

  template <std::size_t K, std::size_t... M>
  TRDCOMP_INLINE bool group(std::index_sequence<M...>) {
    constexpr FieldOp g = op(K);
    if (pos >= available) return false;
    const std::int64_t n = groupEntries(g, loadI32(record + g.countOffset));
    for (std::int64_t e = 0; e < n; ++e)
      if (!(field<K + 1 + M>(g.offset + e * g.stride) && ...)) return false;
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
      return field<K>(0);
    }
  }

  template <std::size_t... K>
  TRDCOMP_INLINE bool all(std::index_sequence<K...>) {
    return (step<K>() && ...);
  }

  [[gnu::noinline]] static std::int64_t decode(const InView& in, std::int64_t available, u8* record,
                                               std::int64_t room, char flag) {
    Decoder d{{in, available, record, room, flag}};
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
  static constexpr std::array<bool, L.fieldCount> kFollowers = [] {
    std::array<bool, L.fieldCount> followers{};
    for (std::size_t i = 0; i < L.fieldCount;) {
      const FieldOp& f = L.ops[i];
      const std::size_t next = i + (f.kind == Kind::Group ? 1 + f.members
                                    : f.run > 1 && kRuns  ? f.run
                                                          : 1);
      for (std::size_t k = i + 1; k < next && k < L.fieldCount; ++k) followers[k] = true;
      i = next;
    }
    return followers;
  }();
  static constexpr bool follower(std::size_t k) { return kFollowers[k]; }

  template <std::size_t K>
  TRDCOMP_INLINE void one(std::int64_t base) {
#if TRDCOMP_SSE2
    if constexpr (std::is_same_v<Record, WholeRecord> &&
                  (op(K).kind == Kind::Text || op(K).kind == Kind::ShortText))
      p = encodeText(record.view.data(), record.view.size(), base + op(K).offset, p);
    else
#endif
        if constexpr (bulky(op(K).kind) || std::is_same_v<Record, InView>)
      p = encodeShared<Record>(record, p, flag, ofKind<op(K)>(), base);
    else if constexpr (op(K).kind == Kind::Char)
      *p++ = record.at(base + op(K).offset);
    else
      p += encodeNumber<op(K).kind>(record, base + op(K).offset, p, flag);
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

// The compiled codec of a layout: its fields decoded by straight code with unchecked reads (into
// any record for a layout that fills its records, else into a zero record), and encoded by
// straight code from a record wholly inside the caller's body.
using FieldsFn = CompiledDecode2008;
using EncodeFn = std::uint32_t (*)(const InView&, u8*, char);
struct Codec {
  FieldsFn inside;
  EncodeFn whole;
  std::int64_t packBound;  // maxEncodedFields at the layout's own size
};

template <auto& Layouts, std::size_t I>
constexpr Codec compiledCodec() {
  return Codec{&Decoder<Layouts, I, Reads::Inside, Layouts[I].fills>::decode,
               [](const InView& r, u8* out, char flag) {
                 return Encoder<Layouts, I, WholeRecord>::encode(WholeRecord{r}, out, flag);
               },
               maxEncodedFields(Layouts[I], Layouts[I].size)};
}

template <auto& Layouts, std::size_t... I>
constexpr auto compile(std::index_sequence<I...>) {
  return std::array<Codec, sizeof...(I)>{compiledCodec<Layouts, I>()...};
}

// The compiled codecs of the catalogue's layouts, by the layout's place in its table.
const Codec& requestCodec(std::size_t index);
const Codec& answerCodec(std::size_t index);

}  // namespace trdcomp::records::steps2008
