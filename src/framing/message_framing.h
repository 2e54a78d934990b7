// The framing of a message, written once for every codec: argument and count checks, the short
// bodies that travel as they are, the restored buffer (its size, slack, header and section
// table), raw records, and the walk over sections. What differs between codecs (how a record is
// framed and encoded, what goes ahead of the records, how an answer announces its sections) is
// the codec's policy, a class of static members:
//
//   sendsRecords(params)                whether this call carries records at all
//   requestCount(headerCount)           how many of the header's records the body carries
//   leastPackedBytes(count)             the smallest packed body that holds `count` records
//   keepsSectionBit(layout)             whether a request may carry the section-table bit
//   beginRequestBody(out, count)        what goes ahead of a request's records
//   requestPrefixBound                  its size
//   packRecords(layout, records, count, stride, out, params)
//   recordsBound(layout, count, stride) the most bytes packRecords appends
//   beginAnswerBody(layout, proc, out), answerPrefixBound(layout), answerFlags(layout)
//   packSection(layout, records, count, stride, out, params), sectionBound(...)
//   restoreRecords(frame, in, first, area, params, options)
//                                       decodes the records the frame walker finds
//   kCountsInBody                       whether the walk may refuse a count it reads in the body
//
// A codec is then one file: its policy and `const CodecOps kCodecN = opsOf<Policy>(index)`.
#pragma once

#include <algorithm>
#include <cstdint>

#include "framing/codecs.h"
#include "framing/walker.h"
#include "primitives/header.h"
#include "primitives/raw.h"

namespace trdcomp::framing {

// A section table: its size, then (count, record size) per section.
void writeSectionTable(u8* at, std::int64_t size, int pairs, const std::int32_t* counts,
                       const std::int32_t* sizes);

// Claimed bytes that the input provably cannot fill, from which a restored buffer comes as fresh
// zero pages: the pages of the records a message claims but does not hold are never touched.
constexpr std::int64_t kFreshPages = 256 * 1024;

// Whether a buffer of `claimed` bytes of records, of which the input reaches at most `present`
// records of at most `size` bytes, leaves so much untouched that it should come as fresh zero
// pages.
constexpr bool freshPages(std::int64_t claimed, std::int64_t present, std::int64_t size) {
  return claimed - sizeTimes(present, size) >= kFreshPages;
}

// The buffer of an allocating restore: the plan's length and slack, from fresh zero pages when
// the records the input holds leave so much of it untouched (see freshPages), else from warm
// memory that the restore clears as it goes; null when the allocation failed.
RestoreTarget allocateRestored(const RestorePlan& plan, const InView& in);

// Walks the frame without decoding a record: the refusals the walk itself finds (a 2011 count
// that differs from the header's).
Status walkFrame(const Frame& frame, const InView& in);

// The restored request header: its length and the layout's record size.
void finishRequestHeader(u8* o, std::uint32_t recordSize);

// The restored answer header (and the library's section table when the answer has one).
void writeRestoredTable(u8* o, const Frame& frame);
void finishAnswerHeader(u8* o, const Frame& frame);

// How many records (and dictionary entries) the input reaches: the walk without the decoding.
std::int64_t recordsPresent(const Frame& frame, const InView& in);

// Copies a plain record into its slot of `size` bytes: min(its size, `size`) bytes and a zero
// tail.
inline void copyRawRecord(const InView& in, const Place& p, u8* slot, std::int64_t size,
                          RecordArea& area) {
  area.prepare(slot, size);
  in.copyAvailable(slot, p.from, std::min<std::int64_t>(p.length, size));
}

template <class Codec>
struct MessageFraming {
  static Status packRequest(const records::Layout& layout, OutBuffer& out, const char* body,
                            int bodyLen, const Params& params) {
    if (layout.opaque) return TRDCOMP_OK;  // a record without codec is never sent
    if (Status s = checkBody(body, bodyLen)) return s;
    if (appendShortBody(out, body, bodyLen, layout.size))
      return out.failed() ? TRDCOMP_ERROR_OUTPUT_TOO_SMALL : TRDCOMP_OK;
    if (!Codec::sendsRecords(params)) return TRDCOMP_OK;
    u8* header = out.base();
    const header::RequestView h(InView(header, header::Request::kBytes));
    const std::int64_t count = Codec::requestCount(h.count());
    const std::int32_t stride = h.size();
    if (Status s = checkRecords(count, stride, bodyLen)) return s;
    Codec::beginRequestBody(out, count);
    Codec::packRecords(layout, InView(body, bodyLen), count, stride, out, params);
    if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
    header::flagsByte(header) |= header::Flags::kPacked;
    return TRDCOMP_OK;
  }

  static std::int64_t requestBodyBound(const records::Layout& layout, std::int32_t count,
                                       std::int32_t stride, int bodyLen, const Params& params) {
    if (layout.opaque) return 0;
    if (bodyLen >= 0 && static_cast<std::uint32_t>(bodyLen) < layout.size) return bodyLen;
    if (!Codec::sendsRecords(params)) return 0;
    return sizePlus(Codec::requestPrefixBound,
                    Codec::recordsBound(layout, Codec::requestCount(count), stride));
  }

  static Status planRequest(const records::Layout& layout, const InView& in, const Params& params,
                            const RestoreOptions& options, RestorePlan& plan) {
    requestFrame(layout, in, plan.frame);
    const Frame& f = plan.frame;
    if (header::RequestView(in).flags().sectionTable() && !Codec::keepsSectionBit(layout))
      return TRDCOMP_ERROR_SECTION_BIT;
    const std::int32_t count = f.counts[0];
    // A count that the input cannot hold is refused before anything is written.
    if (!f.packed) {
      if (Status s = checkRawRequest(in, count, f.senderSizes[0])) return s;
    } else if (Codec::sendsRecords(params) && count > 0 &&
               Codec::leastPackedBytes(count) > in.size() - f.records) {
      return TRDCOMP_ERROR_COUNT_BEYOND_INPUT;
    }
    plan.slack = kRequestSlack;
    return restoredLength(count, layout.size, kRequestHeader, kRequestSlack, options, plan.length);
  }

  // The restore proper, the same for every target: the header, the records the walker finds,
  // the rest of the message cleared (unless the target is zero already), the header finished.
  // Both the allocating restore and the restore into the caller's buffer run it.
  static Status restoreRequestInto(const records::Layout& layout, const InView& in,
                                   const RestorePlan& plan, const RestoreTarget& target,
                                   const Params& params, const RestoreOptions& options) {
    const Frame& f = plan.frame;
    u8* o = target.out;
    in.copyOut(o, 0, kRequestHeader);
    RecordArea area(o + kRequestHeader, o + target.room, target.zeroed);
    Status s = TRDCOMP_OK;
    if (!f.packed || Codec::sendsRecords(params))
      s = Codec::restoreRecords(f, in, o + kRequestHeader, area, params, options);
    area.finish();
    if (s == TRDCOMP_OK) finishRequestHeader(o, layout.size);
    return s;
  }

  static Status restoreRequest(const records::Layout& layout, const InView& in, char** out,
                               int& outLen, const Params& params, const RestoreOptions& options) {
    if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
    RestorePlan plan;
    if (Status s = planRequest(layout, in, params, options, plan)) return s;
    const RestoreTarget target = allocateRestored(plan, in);
    if (!target.out) return TRDCOMP_ERROR_ALLOCATION;
    // From here on the buffer is the caller's, also when a refusal follows.
    *out = reinterpret_cast<char*>(target.out);
    outLen = static_cast<int>(plan.length);
    return restoreRequestInto(layout, in, plan, target, params, options);
  }

  // Into the caller's buffer only the restored length is the decoder's room: a decode cap
  // running past the last record stops at the end of the message.
  static Status restoreRequestTo(const records::Layout& layout, const InView& in, u8* out,
                                 std::int64_t outSize, int& outLen, const Params& params) {
    RestorePlan plan;
    if (Status s = planRequest(layout, in, params, {}, plan)) return s;
    if (plan.length > outSize) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
    const Status s =
        restoreRequestInto(layout, in, plan, RestoreTarget{out, plan.length, false}, params, {});
    if (s == TRDCOMP_OK) outLen = static_cast<int>(plan.length);
    return s;
  }

  static Status packAnswer(const records::AnswerLayout& layout, OutBuffer& out,
                           const tagANS_Proc& proc, char* const sections[5], const Params& params) {
    if (!Codec::sendsRecords(params)) return TRDCOMP_OK;
    // A negative count packs no records (the header keeps it, and a restore refuses it).
    for (int s = 0; s < layout.sectionCount; ++s) {
      if (Status st = checkRecords(proc.recCount[s], proc.recSize[s], INT64_MAX)) return st;
      if (!sections[s] && proc.recCount[s] > 0 && proc.recSize[s] > 0)
        return TRDCOMP_ERROR_NULL_ARGUMENT;
    }
    Codec::beginAnswerBody(layout, proc, out);
    for (int s = 0; s < layout.sectionCount; ++s) {
      const std::int64_t count = proc.recCount[s], size = proc.recSize[s];
      const InView records(sections[s], std::max<std::int64_t>(0, count * size));
      if (Status st = Codec::packSection(*layout.sections[s], records, count, size, out, params))
        return st;
    }
    if (out.failed()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
    header::flagsByte(out.base()) |= Codec::answerFlags(layout);
    return TRDCOMP_OK;
  }

  static std::int64_t answerBodyBound(const records::AnswerLayout& layout, const tagANS_Proc& proc,
                                      const Params& params) {
    if (!Codec::sendsRecords(params)) return 0;
    std::int64_t most = Codec::answerPrefixBound(layout);
    for (int s = 0; s < layout.sectionCount; ++s)
      most = sizePlus(most,
                      Codec::sectionBound(*layout.sections[s], proc.recCount[s], proc.recSize[s]));
    return most;
  }

  static Status planAnswer(const records::AnswerLayout& layout, const InView& in,
                           const RestoreOptions& options, RestorePlan& plan) {
    answerFrame(layout, in, plan.frame);
    const Frame& f = plan.frame;
    plan.slack = f.slack;
    std::int64_t length = kAnswerHeader + f.tableBytesRestored();
    for (int s = 0; s < f.sections; ++s)
      if (Status st =
              restoredLength(f.counts[s], f.layouts[s]->size, length, f.slack, options, length))
        return st;
    plan.length = length;
    return TRDCOMP_OK;
  }

  // The restore proper: the header, the library's section table, the records, the header
  // finished.
  static Status restoreAnswerInto(const InView& in, const RestorePlan& plan,
                                  const RestoreTarget& target, const Params& params,
                                  const RestoreOptions& options) {
    const Frame& f = plan.frame;
    u8* o = target.out;
    in.copyOut(o, 0, kAnswerHeader);
    writeRestoredTable(o, f);
    u8* const first = o + kAnswerHeader + f.tableBytesRestored();
    RecordArea area(first, o + target.room, target.zeroed);
    const Status st = Codec::restoreRecords(f, in, first, area, params, options);
    area.finish();
    if (st == TRDCOMP_OK) finishAnswerHeader(o, f);
    return st;
  }

  static Status restoreAnswer(const records::AnswerLayout& layout, const InView& in, char** out,
                              int& outLen, const Params& params, const RestoreOptions& options) {
    if (!out) return TRDCOMP_ERROR_NULL_ARGUMENT;
    RestorePlan plan;
    if (Status st = planAnswer(layout, in, options, plan)) {
      outLen = 0;
      return st;
    }
    const RestoreTarget target = allocateRestored(plan, in);
    *out = reinterpret_cast<char*>(target.out);
    outLen = target.out ? static_cast<int>(plan.length) : 0;
    if (!target.out) return TRDCOMP_ERROR_ALLOCATION;
    // A refusal leaves the buffer in *out, for the caller to release.
    return restoreAnswerInto(in, plan, target, params, options);
  }

  static Status restoreAnswerTo(const records::AnswerLayout& layout, const InView& in, u8* out,
                                std::int64_t outSize, int& outLen, const Params& params) {
    RestorePlan plan;
    if (Status s = planAnswer(layout, in, {}, plan)) return s;
    if (plan.length > outSize) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
    const Status s =
        restoreAnswerInto(in, plan, RestoreTarget{out, plan.length, false}, params, {});
    if (s == TRDCOMP_OK) outLen = static_cast<int>(plan.length);
    return s;
  }

  static Status checkFrame(const RestorePlan& plan, const InView& in, const Params& params) {
    const Frame& f = plan.frame;
    if (!Codec::kCountsInBody || !f.packed || !Codec::sendsRecords(params)) return TRDCOMP_OK;
    return walkFrame(f, in);
  }
};

// The table row of a codec policy.
template <class Codec>
constexpr CodecOps opsOf(int index, bool sectionTableAhead) {
  using F = MessageFraming<Codec>;
  return CodecOps{index,
                  sectionTableAhead,
                  &F::packRequest,
                  &F::requestBodyBound,
                  &F::restoreRequest,
                  &F::restoreRequestTo,
                  &F::planRequest,
                  &F::packAnswer,
                  &F::answerBodyBound,
                  &F::restoreAnswer,
                  &F::restoreAnswerTo,
                  &F::planAnswer,
                  &F::checkFrame};
}

}  // namespace trdcomp::framing
