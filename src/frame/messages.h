// Whole messages, as the entry points handle them, with typed outcomes: the public entry points
// are thin wrappers that turn a Status into the 1 or 0 of the interface. Tests and tools call
// these to learn why a message was refused, or to count the work a restore does.
#pragma once

#include <cstdint>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "framing/codecs.h"
#include "framing/walker.h"
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

// What a restore of a message will do, found before anything is written: how its number
// restores (a routine of a codec and layout, a copy, nothing), the codec's plan, and the
// restored length with the slack an allocating restore adds behind it. The plan refuses what
// the header, section table and counts show; a planned restore may still refuse what only its
// records show (a 2011 count in the body, see checkFrame; a dictionary index past its entries).
struct RequestPlan {
  RequestForm form = RequestForm::NoBody;
  const framing::CodecOps* codec = nullptr;
  const records::Layout* layout = nullptr;
  framing::Params params;
  framing::RestorePlan restore;
};
struct AnswerPlan {
  AnswerForm form = AnswerForm::NoBody;
  const framing::CodecOps* codec = nullptr;
  const records::AnswerLayout* layout = nullptr;
  framing::Params params;
  framing::RestorePlan restore;
  framing::RawAnswer raw;  // a pass-through answer's table and body
};
Status planRequest(const InView& in, char flag, const RestoreOptions& options, RequestPlan& plan);
Status planAnswer(const InView& in, char flag, const RestoreOptions& options, AnswerPlan& plan);

// Restores a planned message into `target` (the plan's length at least).
Status restoreRequestInto(const InView& in, const RequestPlan& plan,
                          const framing::RestoreTarget& target, const RestoreOptions& options);
Status restoreAnswerInto(const InView& in, const AnswerPlan& plan,
                         const framing::RestoreTarget& target, const RestoreOptions& options);

// The refusals of a planned restore that the walk of its frame finds without decoding.
Status checkFrame(const InView& in, const RequestPlan& plan);
Status checkFrame(const InView& in, const AnswerPlan& plan);

}  // namespace trdcomp::frame
