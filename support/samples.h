// Realistic sample messages for every function number, built from the layout tables: texts of
// varied lengths (some in a local 8-bit character set), codes, negative and large numbers,
// prices with up to four decimals, and fields that repeat from record to record as they do in
// one message. Values are chosen so that a round trip through the chosen codec gives back the
// same bytes; the formats' deliberate losses are tested on their own. Also: byte-vector
// wrappers of the entry points and the check that a restored message is the one sent.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "TrdCompData.h"
#include "records/layout.h"

namespace trdcomp::samples {

using Bytes = std::vector<unsigned char>;

// Fills one record of `layout`. `codec2011` selects values for the 2011 Fast codec. With a
// `previous` record, most fields repeat its values.
void fillRecord(const records::Layout& layout, unsigned char* record, std::mt19937& rng,
                bool codec2011, const unsigned char* previous = nullptr);

struct Request {
  tagREQ_HEAD head{};
  Bytes body;
};

// `count` records of the number's request layout (or of an arbitrary size when the number has
// no routine), header filled with caller bytes, nibble in the flags.
Request makeRequest(std::uint32_t number, int nibble, int count, std::uint32_t seed);

struct Answer {
  tagANS_Proc proc{};
  std::vector<Bytes> sections = std::vector<Bytes>(5);
};

// An answer with `count` records in every section of the layout that restores the number.
Answer makeAnswer(std::uint32_t number, bool codec2011, int count, std::uint32_t seed);

// The entry points on byte vectors. Packing uses a zero-filled buffer of ample room.
Bytes packRequest(tagREQ_HEAD head, Bytes body, char flag = 0);
Bytes packAnswer(tagANS_Proc proc, std::vector<Bytes> sections, char flag = 0, int codecSel = 0);

// What a restore entry point handed back, copied out and released.
struct Restored {
  int result = -1;
  int length = -1;
  bool null = true;
  Bytes bytes;
};
Restored restoreRequest(Bytes in, char flag = 0);
Restored restoreAnswer(Bytes in, char flag = 0);

// "" when `restored` is what the library makes of `sent` (the records as sent, the header
// normalised, the pass-through as it came), else the first difference.
std::string checkRequest(const Request& sent, int nibble, const Bytes& packed,
                         const Restored& restored);
std::string checkAnswer(const Answer& sent, int nibble, const Bytes& packed,
                        const Restored& restored);

}  // namespace trdcomp::samples
