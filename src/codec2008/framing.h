// Framing of the 2008 codec: a body is a sequence of records, each a u32 length followed by the
// record packed field by field. One implementation serves every layout.
#pragma once

#include <cstdint>

#include "TrdCompData.h"
#include "primitives/bytes.h"
#include "primitives/out_buffer.h"
#include "primitives/status.h"
#include "records/layout.h"

namespace trdcomp::codec2008 {

// Appends the request body to `out`, which holds the 76-byte header (the record count and size
// are read there). Refuses a negative body length, a null body with bytes, and records that
// the body cannot hold (count x record size beyond bodyLen, a negative record size).
Status packRequest(const records::Layout& layout, OutBuffer& out, const char* body, int bodyLen,
                   char flag);
// The most body bytes packRequest appends for `count` records of `stride` bytes in a body of
// `bodyLen` bytes.
std::int64_t requestBodyBound(const records::Layout& layout, std::int32_t count,
                              std::int32_t stride, int bodyLen);
// Restores a request into a new buffer of the layout's record size.
Status restoreRequest(const records::Layout& layout, const InView& in, char** out, int& outLen,
                      char flag, const RestoreOptions& options);

// Appends every section of the answer to `out` (header and section table already there).
Status packAnswer(const records::AnswerLayout& layout, OutBuffer& out, const tagANS_Proc& proc,
                  char* const sections[5], char flag);
// The most body bytes packAnswer appends for the descriptor's counts.
std::int64_t answerBodyBound(const records::AnswerLayout& layout, const tagANS_Proc& proc);
// Restores an answer into a new buffer of the layouts' record sizes.
Status restoreAnswer(const records::AnswerLayout& layout, const InView& in, char** out, int& outLen,
                     char flag, const RestoreOptions& options);

}  // namespace trdcomp::codec2008
