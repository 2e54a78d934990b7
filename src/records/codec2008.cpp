#include "records/codec2008.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "records/codec2008_steps.h"

namespace trdcomp::records {
namespace {

using namespace steps2008;

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

// Decodes the fields of a record, every byte checked, into a zero record, writing where the
// input holds fields: the reference the compiled codecs agree with, which also tells an
// observer where each field lay.
std::int64_t decodeChecked(const Layout& layout, const InView& in, std::int64_t available,
                           u8* record, std::int64_t room, char flag, FieldTrace* trace = nullptr) {
  std::int64_t pos = 0;
  const auto traced = [&](const FieldOp* f, std::int64_t entry, std::int64_t at,
                          std::int64_t from) {
    if (trace) trace->field(static_cast<int>(f - layout.opsBegin()), entry, at, from, pos);
  };
  Spill spill;
  spill.reach = layout.size;
  for (const FieldOp* f = layout.opsBegin(); f != layout.opsEnd(); ++f) {
    if (pos >= available) return spill.reach;
    if (f->kind != Kind::Group) {
      const std::int64_t from = pos;
      decodeField<false>(*f, in, pos, record, room, 0, flag, spill);
      traced(f, -1, f->offset, from);
      continue;
    }
    const std::int64_t n = groupEntries(*f, loadI32(record + f->countOffset));
    for (std::int64_t e = 0; e < n; ++e) {
      for (std::uint16_t m = 1; m <= f->members; ++m) {
        if (pos >= available) return spill.reach;
        const std::int64_t from = pos;
        decodeField<false>(f[m], in, pos, record, room, f->offset + e * f->stride, flag, spill);
        traced(f + m, e, f->offset + e * f->stride + f[m].offset, from);
      }
    }
    f += f->members;
  }
  return spill.reach;
}

// Records near the end of the input are copied, with the bytes that follow them in the input,
// into a buffer padded with zeros: there they read as they would through the checked view (a
// byte past the input reads as zero) but without a check per field.
constexpr std::int64_t kPadded = 2048;

// The answer of decodePadded and decodeCompiled for a record they leave to the checked reads.
constexpr std::int64_t kNotCompiled = -2;
static_assert(kNotCompiled != kUnfilled);

// A record near the end of its input by the compiled decoding `inside`, from a copy padded with
// zeros of its read span (`span` bytes past its last field's start); kNotCompiled when that
// passes the pad. A filling decoding that stops early gives kUnfilled.
TRDCOMP_INLINE std::int64_t decodePadded(CompiledDecode2008 inside, std::int64_t span,
                                         const InView& in, std::int64_t available, u8* record,
                                         std::int64_t room, char flag) {
  const std::int64_t padded = available + span;
  if (available < 0 || padded > kPadded) return kNotCompiled;
  u8 copy[kPadded];
  const std::int64_t held = std::min(in.size(), padded);
  if (held > 0) std::memcpy(copy, in.data(), static_cast<std::size_t>(held));
  std::memset(copy + held, 0, static_cast<std::size_t>(padded - held));
  return inside(InView(copy, padded), available, record, room, flag);
}

// One record by its compiled codec: unchecked while the record and its read span lie inside the
// input; near the end, from a copy padded with zeros; far from any pad, through the checked
// reads, which the caller takes (kNotCompiled). A filling decoding that stops early gives
// kUnfilled.
std::int64_t decodeCompiled(const Codec& c, const Layout& l, const InView& in,
                            std::int64_t available, u8* record, std::int64_t room, char flag) {
  if (insideForDecode2008(l, in, available)) return c.inside(in, available, record, room, flag);
  return decodePadded(c.inside, l.readSpan, in, available, record, room, flag);
}

// The compiled codec of a catalogue layout; null for a layout built elsewhere.
const Codec* compiledOf(const Layout& l) {
  switch (l.table) {
    case kRequestTable: return &requestCodec(l.index);
    case kAnswerTable: return &answerCodec(l.index);
    default: return nullptr;
  }
}

}  // namespace

std::uint32_t encode2008(const Layout& layout, const InView& record, u8* out, char flag) {
  // A record cut short by the end of the body reads zeros past it: checked loads.
  const Codec* c = compiledOf(layout);
  if (c && record.size() >= layout.size) return c->whole(record, out, flag);
  return encodeFields(layout, record, out, flag);
}

std::int64_t maxEncoded2008(const Layout& layout, std::int64_t extent) {
  // At the layout's own size (the common case), the bound its compiled codec carries.
  if (extent == layout.size)
    if (const Codec* c = compiledOf(layout)) return c->packBound;
  return maxEncodedFields(layout, extent);
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
    // A layout that fills its records writes every byte of a zero slot as of any other.
    const std::int64_t reach = decodeCompiled(*c, layout, in, available, record, room, flag);
    if (reach >= 0) return reach;
    // A zero slot that the compiled decoding never touched needs no clearing: a 32 KiB record
    // of fresh pages stays untouched but for the bytes the input holds.
    if (reach == kUnfilled || slot == Slot::Any) std::memset(record, 0, layout.size);
  } else if (slot == Slot::Any) {
    std::memset(record, 0, layout.size);
  }
  return decodeChecked(layout, in, available, record, room, flag);
}

LayoutDecoder2008::LayoutDecoder2008(const Layout& layout) : layout_(&layout) {
  if (const Codec* c = compiledOf(layout)) {
    inside_ = c->inside;
    span_ = layout.readSpan;
  }
}

std::int64_t LayoutDecoder2008::nearEnd(const InView& in, std::int64_t available, u8* record,
                                        std::int64_t room, char flag, Slot slot) const {
  const std::int64_t reach = decodePadded(inside_, span_, in, available, record, room, flag);
  if (reach >= 0) return reach;
  if (reach == kUnfilled) return redoChecked(in, available, record, room, flag);
  // Past the pad: as decode2008, the checked reads over a slot cleared unless zero already.
  if (slot == Slot::Any) std::memset(record, 0, layout_->size);
  return decodeChecked(*layout_, in, available, record, room, flag);
}

std::int64_t LayoutDecoder2008::redoChecked(const InView& in, std::int64_t available, u8* record,
                                            std::int64_t room, char flag) const {
  std::memset(record, 0, layout_->size);
  return decodeChecked(*layout_, in, available, record, room, flag);
}

std::uint32_t encode2008Checked(const Layout& layout, const InView& record, u8* out, char flag) {
  return encodeFields(layout, record, out, flag);
}

std::int64_t decode2008Checked(const Layout& layout, const InView& in, std::int64_t available,
                               u8* record, std::int64_t room, char flag, FieldTrace* trace) {
  return decodeChecked(layout, in, available, record, room, flag, trace);
}

}  // namespace trdcomp::records
