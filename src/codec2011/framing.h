// Framing of the 2011 Fast codec: record blocks with a u16 length and a presence map, fields
// left out when they equal the previous record's. One implementation serves every layout.
#pragma once

#include <cstdint>

#include "TrdCompData.h"
#include "primitives/bytes.h"
#include "primitives/out_buffer.h"
#include "primitives/status.h"
#include "records/layout.h"

namespace trdcomp::codec2011 {

// How a block's u16 length slot is written. The per-function routines add to what the output
// holds there, as deployed packers do (their callers hand in zeroed buffers); the entry points
// store the length, so that a reused buffer packs correctly.
enum class Slots : bool { Store, Add };

Status packRequest(const records::Layout& layout, OutBuffer& out, const char* body, int bodyLen,
                   int nibble, Slots slots);
std::int64_t requestBodyBound(const records::Layout& layout, std::int32_t count, int bodyLen,
                              int nibble);
Status restoreRequest(const records::Layout& layout, const InView& in, char** out, int& outLen,
                      int nibble, const RestoreOptions& options);

Status packAnswer(const records::AnswerLayout& layout, OutBuffer& out, const tagANS_Proc& proc,
                  char* const sections[5], int nibble, Slots slots);
std::int64_t answerBodyBound(const records::AnswerLayout& layout, const tagANS_Proc& proc,
                             int nibble);
Status restoreAnswer(const records::AnswerLayout& layout, const InView& in, char** out, int& outLen,
                     int nibble, const RestoreOptions& options);

}  // namespace trdcomp::codec2011
