// The C interface's view of a message: its frame as the library's walker finds it, and the
// notes the walker makes, turned into the trdcomp_frame and trdcomp_warning of the interface.
#pragma once

#include <cstdint>
#include <vector>

#include "capi/tables.h"
#include "framing/walker.h"

namespace trdcomp::capi {

// A message walked as its restore walks it.
struct Walked {
  const frame::Entry* entry = nullptr;  // null for an unknown number
  Records records;                      // its layouts in the message's codec
  bool walked = false;                  // the message has records to walk
  framing::Frame frame;
  std::int64_t present[framing::kMostSections] = {};
  std::int64_t first[framing::kMostSections] = {-1, -1, -1, -1, -1};
  std::int64_t end = 0;         // where the bytes the restore reads end
  Status refusal = TRDCOMP_OK;  // what the walk found the restore refuses
  std::int64_t refusalAt = -1;
  std::vector<framing::FrameNote> notes;
};

// Walks `in` in `direction` (TRDCOMP_REQUEST or TRDCOMP_ANSWER).
Walked walk(const InView& in, int direction);

// The interface's frame of a walked message.
void describeFrame(const Walked& w, const InView& in, int direction, trdcomp_frame& out);

// The walker's notes as warnings: up to `capacity` into `warnings`; the count into `*count`.
void reportNotes(const Walked& w, trdcomp_warning* warnings, std::size_t capacity,
                 std::size_t* count);

// The direction asked for, or the one the header length names; fills `err` and returns a code
// when there is none.
int directionOf(const InView& in, int direction, trdcomp_error* err, int& out);

}  // namespace trdcomp::capi
