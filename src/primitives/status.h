// Outcomes and limits shared by the framing of both codecs and the entry points.
#pragma once

#include <cstdint>

#include "TrdCompData.h"

namespace trdcomp {

// Why a routine refused; TRDCOMP_OK when it did not. Routines report a Status, the entry points
// turn it into the 1 or 0 of the interface (and, for the Ex entry points, hand it to the caller).
using Status = TrdCompError;

// What one restore may cost, held on the caller's stack: no state outlives a call.
struct RestoreOptions {
  // Largest restored length (header included, slack not) accepted before allocating.
  std::int64_t maxLength = INT32_MAX;
  // When set, counts the records (and dictionary entries) visited: tests use it to show that
  // the work follows the bytes present, never the counts claimed.
  std::int64_t* steps = nullptr;

  void step() const {
    if (steps) ++*steps;
  }
};

}  // namespace trdcomp
