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
