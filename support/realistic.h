// Messages whose values look like a trading day's, for speed and size comparisons: texts fill
// 30-80% of their arrays, a few accounts and codes repeat through a message, prices carry two or
// three decimals, dates are constant, quantities are multiples of 100, byte blocks are mostly
// zero. The generator knows field kinds and widths only (the layout tables), never a layout by
// name: each numeric field gets a role (date, time, quantity, sequence, price, ...) from a hash
// of its position, so a field plays the same role in every message. Values stay inside what
// both codecs carry, so every message packs and restores to its own bytes.
//
// The random source is a fixed 64-bit mixer, so a seed gives the same bytes on every platform.
#pragma once

#include <cstdint>

#include "samples.h"

namespace trdcomp::realistic {

// `count` records of the number's request layout in the codec of `nibble` (an arbitrary size
// when the number has no routine), the caller bytes of the header filled.
samples::Request makeRequest(std::uint32_t number, int nibble, int count, std::uint32_t seed);

// `count` records in every section of the layout that restores the number's answers.
samples::Answer makeAnswer(std::uint32_t number, bool codec2011, int count, std::uint32_t seed);

}  // namespace trdcomp::realistic
