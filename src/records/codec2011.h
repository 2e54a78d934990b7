// The 2011 Fast record codec: one block encoder and one block decoder that interpret any layout.
//
// A block is a presence map followed by the present fields. Field j of the block owns bit
// 0x40 >> (j % 7) of map byte j / 7; bit 0x80 marks the map's last byte. A field is present when
// it differs from the same field of the previous record (for the first record: from its
// default, and always when it has none); an absent field is restored from there.
#pragma once

#include <cstdint>

#include "primitives/bytes.h"
#include "records/layout.h"
#include "records/trace.h"

namespace trdcomp::records {

// Which fields a block carries: all of them; the repeated group of a dictionary layout (a
// dictionary entry); or, behind a 16-bit dictionary index, the fields outside the group.
enum class Part : std::uint8_t { Whole, Group, Reduced };

// The caller's body that the records being packed lie in. Texts compare as terminated strings,
// and a text that fills its array has no terminator there: its comparison runs on past the
// array, through the bytes that follow in the body (the rest of its record, then the next
// records), with bytes past the body read as zeros. That is what peers compare, and it decides
// whether the text is sent. Comparisons of a record with the one `stride` bytes before it (every
// chain of a section but a dictionary's entries) remember how far each went and what it found,
// so a body without terminators costs time linear in its size, not quadratic.
class TextTail {
 public:
  // `steps`, when set, counts the bytes compared past arrays: tests use it to show that the work
  // follows the body's size.
  TextTail(const InView& body, std::int64_t stride, std::int64_t* steps = nullptr)
      : body_(body), stride_(stride), steps_(steps) {}
  // Whether the terminated strings at body positions `later` and `earlier` are equal. `place` is
  // the field's map place (-1: none), under which a comparison at the stride is remembered.
  bool equal(std::int64_t later, std::int64_t earlier, int place);
  const InView& body() const { return body_; }

 private:
  // At the stride: strings from every position in [from, to] are equal to theirs `stride` bytes
  // on, or all differ, as `equal` says (decided at `to`).
  struct Run {
    std::int64_t from = -1, to = -2;
    bool equal = false;
  };
  static constexpr int kPlaces = 256;
  InView body_;
  std::int64_t stride_;
  std::int64_t* steps_;
  Scratch<Run> runs_;  // per place, allocated at the first comparison that runs past an array
};

// The record a block is compared with or restored from.
struct Previous {
  const InView* record = nullptr;  // null for the first record of a message or section
  std::uint16_t index = 0;         // its dictionary index (Part::Reduced)
  // Packing: the body both records lie in, for the texts that fill their arrays; without it a
  // text compares on through the two records' views, and past them as zeros.
  TextTail* tail = nullptr;
};

// Encodes the block of record `current` at `out` and returns the bytes written (map included).
// Catalogue layouts walk the prepared field table and compare fields without a check per byte
// when both records lie wholly inside their views; the reference encoder below checks every
// byte. Both write the same bytes.
std::uint32_t encode2011(const Layout& layout, Part part, const InView& current,
                         std::uint16_t index, const Previous& previous, u8* out);
std::uint32_t encode2011Checked(const Layout& layout, Part part, const InView& current,
                                std::uint16_t index, const Previous& previous, u8* out);

// The most bytes encode2011 writes for one block of `part` (map included), whatever the record.
std::int64_t maxBlock2011(const Layout& layout, Part part);

// Decodes a block of `length` bytes (`in` views from its first byte) into `record`, which has
// `room` writable bytes and holds what `slot` says: zeros, or anything when overwrites2011 holds
// for a Part::Whole block with a previous record (every byte is then written);
// `previous` is the previously restored record (view of the output) or none. Returns the
// block's dictionary index (Part::Reduced), else 0.
//
// The layouts of the catalogue go through a field table prepared at compile time: the previous
// record's fields are copied in a few runs (its widest fields one by one, when absent), then
// only the present fields are read over them, integers and texts without a check per byte while
// they lie well inside the input. Any other layout, and a call the table does not cover, takes
// the reference decoder below; both give the same bytes.
std::uint16_t decode2011(const Layout& layout, Part part, const InView& in, std::int64_t length,
                         u8* record, std::int64_t room, const Previous& previous,
                         Slot slot = Slot::Zero);

// The reference decoder: field by field in layout order, every byte read through a check;
// `trace`, when set, is told where the map and each field lie.
std::uint16_t decode2011Checked(const Layout& layout, Part part, const InView& in,
                                std::int64_t length, u8* record, std::int64_t room,
                                const Previous& previous, FieldTrace* trace = nullptr);

// Whether decode2011 takes the prepared field table for blocks of `part` of this layout.
bool prepared2011(const Layout& layout, Part part);

// Whether decode2011 writes every byte of a record of this layout, whatever it held, for a
// Part::Whole block with a previous record and `room` bytes: such a record may be decoded into
// a slot that is not zero (Slot::Any).
bool overwrites2011(const Layout& layout, std::int64_t room);

// Bytes of the map of a block of `part`.
int mapLength(const Layout& layout, Part part);

}  // namespace trdcomp::records
