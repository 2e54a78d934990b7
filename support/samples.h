// Realistic sample messages for every function number, built from the layout tables: texts of
// varied lengths (some in a local 8-bit character set), codes, negative and large numbers,
// prices with up to four decimals. Values are chosen so that a round trip through the chosen
// codec gives back the same bytes; the formats' deliberate losses are tested on their own.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "TrdCompData.h"
#include "records/layout.h"

namespace trdcomp::samples {

// Fills one record of `layout`. `codec2011` selects values for the 2011 Fast codec. With a
// `previous` record, most fields repeat its values, as the records of one message do.
void fillRecord(const records::Layout& layout, unsigned char* record, std::mt19937& rng,
                bool codec2011, const unsigned char* previous = nullptr);

struct Request {
  tagREQ_HEAD head{};
  std::vector<char> body;
};

// `count` records of the number's request layout (or of an arbitrary size when the number has
// no routine), header filled with caller bytes, nibble in the flags.
Request makeRequest(std::uint32_t number, int nibble, int count, std::uint32_t seed);

struct Answer {
  tagANS_Proc proc{};
  std::vector<char> sections[5];
  char* section(int s) { return sections[s].empty() ? nullptr : sections[s].data(); }
};

// An answer with `count` records in every section of the layout that restores the number.
Answer makeAnswer(std::uint32_t number, bool codec2011, int count, std::uint32_t seed);

// The packed size a caller must allow for: generous for any sample message.
int packRoom(int rawSize);

}  // namespace trdcomp::samples
