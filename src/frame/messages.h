// Whole messages, as the entry points handle them, with typed outcomes: the public entry points
// are thin wrappers that turn a Status into the 1 or 0 of the interface. Tests and tools call
// these to learn why a message was refused, or to count the work a restore does.
#pragma once

#include <cstdint>

#include "TrdCompData.h"
#include "primitives/bytes.h"
#include "primitives/status.h"

namespace trdcomp::frame {

// The largest packed size of a request or answer, header included (64 bits, unchecked).
std::int64_t requestBound(const tagREQ_HEAD& head, int bodyLen);
std::int64_t answerBound(const tagANS_Proc& proc, int codecSel);

// Packs into `capacity` bytes at `out`, or into the bound when `capacity` is negative (the
// caller sized the output by it). `outLen` is set on success only. `steps`, when set, counts
// the bytes compared past text arrays (the work a body without terminators adds).
Status packRequest(char* out, std::int64_t capacity, int& outLen, const tagREQ_HEAD& head,
                   const char* body, int bodyLen, char flag, std::int64_t* steps = nullptr);
Status packAnswer(char* out, std::int64_t capacity, int& outLen, const tagANS_Proc& proc,
                  char* const sections[5], char flag, int codecSel, std::int64_t* steps = nullptr);

// Checks the arguments every restore checks before reading anything: the input (null, empty
// request, header length beyond it) and, for the allocating restores, `out`.
Status checkRequestInput(const char* in, int inLen);
Status checkAnswerInput(const char* in, int inLen);
Status checkRequestArguments(const char* in, int inLen, char** out);
Status checkAnswerArguments(const char* in, int inLen, char** out);

// Restores a message whose arguments passed the checks into a new buffer; `*out` and `outLen`
// start null and 0. `passedThrough` tells that an unknown number was copied as it came.
Status restoreRequest(const InView& in, char** out, int& outLen, char flag,
                      const RestoreOptions& options, bool& passedThrough);
Status restoreAnswer(const InView& in, char** out, int& outLen, char flag,
                     const RestoreOptions& options);

// Restores a message whose input passed the checks into the caller's `outSize` bytes at `out`
// (see RestoreReq2008Into); `outLen` is set on success only.
Status restoreRequestTo(const InView& in, char* out, std::int64_t outSize, int& outLen, char flag);
Status restoreAnswerTo(const InView& in, char* out, std::int64_t outSize, int& outLen, char flag);

// The length a restore of the message gives, or why it refuses the message: what the header,
// section table and counts show, and what the walk of its frame finds without decoding (a 2011
// count in the body). Not found: a dictionary index past its entries, a failed allocation.
Status restoredRequestLength(const InView& in, std::int64_t& length);
Status restoredAnswerLength(const InView& in, std::int64_t& length);

}  // namespace trdcomp::frame
