// The 2008 record codec: a decoder and an encoder compiled for each catalogue layout, and the
// checked field routines that read any layout in row order.
#pragma once

#include <cstdint>

#include "primitives/bytes.h"
#include "records/layout.h"
#include "records/trace.h"

namespace trdcomp::records {

// Encodes one record at `out` and returns the bytes written. `record` views the caller's record
// (see recordExtent, cut at the end of the body); bytes outside it read as zero, so a text
// without terminator is measured to the end of its record at most. `flag` chooses the int32
// form: 0 the compact 32-bit form, 1 the compact 64-bit form, any other value leaves int32
// fields out. Never writes more than maxEncoded2008(layout, record.size()) bytes.
std::uint32_t encode2008(const Layout& layout, const InView& record, u8* out, char flag);

// The most bytes encode2008 writes for one record of `layout` viewed over `extent` bytes,
// whatever the record holds and whatever the flag.
std::int64_t maxEncoded2008(const Layout& layout, std::int64_t extent);

// Decodes one record from `in` (viewed from the record's first byte) into `record`, which has
// `room` writable bytes (at least the layout's size; a decode cap may write beyond the size,
// never beyond the room) and holds what `slot` says. A field is read only while fewer than
// `available` bytes have been consumed; fields not reached stay zero. Slot::Any needs a layout
// that fills its records (Layout::fills). `flag` 0 reads int32 fields in the 32-bit form, any
// other value in the 64-bit form.
// Returns how far past `record` it wrote: the layout's size, or more when a decode cap ran on.
std::int64_t decode2008(const Layout& layout, const InView& in, std::int64_t available, u8* record,
                        std::int64_t room, char flag, Slot slot);

// A layout's compiled decoding of a record that lies inside its input (see
// insideForDecode2008): the arguments of decode2008 but the slot; gives the reach, or -1 when a
// decoding that fills its record ran out of input before the last field.
using CompiledDecode2008 = std::int64_t (*)(const InView& in, std::int64_t available, u8* record,
                                            std::int64_t room, char flag);

// decode2008 for the records of one layout, its compiled decoder looked up once: a run of
// records (a section) pays for the lookup once, not per record.
class LayoutDecoder2008 {
 public:
  LayoutDecoder2008() = default;
  explicit LayoutDecoder2008(const Layout& layout);
  // As decode2008.
  std::int64_t decode(const InView& in, std::int64_t available, u8* record, std::int64_t room,
                      char flag, Slot slot) const {
    if (inside_ && available >= 0) {
      if (in.size() - available >= span_) {
        const std::int64_t reach = inside_(in, available, record, room, flag);
        if (reach >= 0) return reach;
        return redoChecked(in, available, record, room, flag);
      }
      return nearEnd(in, available, record, room, flag, slot);
    }
    return decode2008(*layout_, in, available, record, room, flag, slot);
  }

 private:
  // A record whose read span passes the end of the input (the last of a message, always): as
  // decode2008, its bytes copied into a buffer padded with zeros first when the span fits one.
  std::int64_t nearEnd(const InView& in, std::int64_t available, u8* record, std::int64_t room,
                       char flag, Slot slot) const;
  // A filling decoding that ran out of input: the record cleared and decoded the checked way.
  std::int64_t redoChecked(const InView& in, std::int64_t available, u8* record, std::int64_t room,
                           char flag) const;

  const Layout* layout_ = nullptr;
  CompiledDecode2008 inside_ = nullptr;
  std::int64_t span_ = 0;
};

// The reference for the two functions above: the same results through checked reads only,
// whatever the record's place in its input. encode2008 and decode2008 read a record that lies
// wholly inside its input (see insideForDecode2008) without checking a byte; tests and the
// differential fuzzer compare them with these on the same bytes.
std::uint32_t encode2008Checked(const Layout& layout, const InView& record, u8* out, char flag);
// `trace`, when set, is told where each field lay in the input.
std::int64_t decode2008Checked(const Layout& layout, const InView& in, std::int64_t available,
                               u8* record, std::int64_t room, char flag,
                               FieldTrace* trace = nullptr);
// Whether decode2008 takes the unchecked reads for this record.
bool insideForDecode2008(const Layout& layout, const InView& in, std::int64_t available);

}  // namespace trdcomp::records
