// The wire codecs as a table of operations. A message's codec is its codec nibble (bits 4-7 of
// the flags byte): 0 is the 2008 codec, 1 to 15 the 2011 Fast codec. The entry points and the
// per-function routines pick a row here and never name a codec themselves; each row is the
// generic message framing (framing/message_framing.h) specialised by one codec's policy, in one
// file per codec (codec2008/framing2008.cpp, codec2011/framing2011.cpp).
#pragma once

#include <cstdint>

#include "TrdCompData.h"
#include "framing/walker.h"
#include "primitives/bytes.h"
#include "primitives/out_buffer.h"
#include "primitives/status.h"
#include "records/layout.h"

namespace trdcomp::framing {

// How a 2011 block's u16 length slot is written. The per-function routines add to what the
// output holds there, as deployed packers do (their callers hand in zeroed buffers); the entry
// points store the length, so that a reused buffer packs correctly.
enum class Slots : bool { Store, Add };

// What a call chose besides the layout.
struct Params {
  char flag = 0;               // 2008: the int32 form (0: 32-bit compact, 1: 64-bit, else left out)
  int nibble = 0;              // 2011: the codec nibble the routine was given (0 sends no records)
  Slots slots = Slots::Store;  // 2011: how block lengths are written
  // When set, counts the bytes packing compares past text arrays: tests use it to show that the
  // work follows the body's size.
  std::int64_t* steps = nullptr;
};

// What a restore will write, found from the header, the section table or counts and the
// layouts before anything is written: the frame, the restored length (header, table and
// records) and the slack the allocating restore adds behind it.
struct RestorePlan {
  Frame frame;
  std::int64_t length = 0;
  std::int64_t slack = 0;
};

// Where a restore writes: the restored message at `out`, and up to `room` bytes from `out` that
// a decode cap running past the last record may fill (the allocating restore's slack; the
// caller's buffer stops at the restored length). `zeroed`: the bytes are zero already (fresh
// pages), so that what the input does not give is never touched.
struct RestoreTarget {
  u8* out;
  std::int64_t room;
  bool zeroed;
};

struct CodecOps {
  int index;  // the codec's column in the catalogue (frame::Entry::request and the answers)
  // The answer's section table goes ahead of the body, written by the caller from the
  // descriptor (the 2008 codec); the 2011 Fast codec carries counts in its body instead.
  bool sectionTableAhead;

  // Appends the request body to `out`, which holds the 76-byte header (the record count and
  // size are read there). Refuses a negative body length, a null body with bytes, and records
  // that the body cannot hold (count x record size beyond bodyLen, a negative record size).
  Status (*packRequest)(const records::Layout& layout, OutBuffer& out, const char* body,
                        int bodyLen, const Params& params);
  // The most body bytes packRequest appends for `count` records of `stride` bytes in a body of
  // `bodyLen` bytes.
  std::int64_t (*requestBodyBound)(const records::Layout& layout, std::int32_t count,
                                   std::int32_t stride, int bodyLen, const Params& params);
  // Restores a request into a new buffer of the layout's record size: the plan, a buffer of its
  // length and slack, the restore into it (see MessageFraming).
  Status (*restoreRequest)(const records::Layout& layout, const InView& in, char** out, int& outLen,
                           const Params& params, const RestoreOptions& options);
  // Restores a request into the caller's `outSize` bytes at `out`: the plan, then
  // TRDCOMP_ERROR_OUTPUT_TOO_SMALL (nothing written) when its length is above `outSize`, then
  // the restore into them; `outLen` is set on success. A refusal found in the records (a 2011
  // count that differs from the header's) may leave them written.
  Status (*restoreRequestTo)(const records::Layout& layout, const InView& in, u8* out,
                             std::int64_t outSize, int& outLen, const Params& params);
  // The refusals of a request restore that the header and the count show, and its plan
  // (written into `plan` as constructed).
  Status (*planRequest)(const records::Layout& layout, const InView& in, const Params& params,
                        const RestoreOptions& options, RestorePlan& plan);
  // Appends every section of the answer to `out` (header, and section table when ahead).
  Status (*packAnswer)(const records::AnswerLayout& layout, OutBuffer& out, const tagANS_Proc& proc,
                       char* const sections[5], const Params& params);
  // The most body bytes packAnswer appends for the descriptor's counts (no section table).
  std::int64_t (*answerBodyBound)(const records::AnswerLayout& layout, const tagANS_Proc& proc,
                                  const Params& params);
  // Restores an answer into a new buffer of the layouts' record sizes: the plan, a buffer of its
  // length and slack, the restore into it.
  Status (*restoreAnswer)(const records::AnswerLayout& layout, const InView& in, char** out,
                          int& outLen, const Params& params, const RestoreOptions& options);
  // Restores an answer into the caller's `outSize` bytes, as restoreRequestTo does; a refusal
  // found in the records (a 2011 count that differs, a dictionary index past its entries) may
  // leave them written.
  Status (*restoreAnswerTo)(const records::AnswerLayout& layout, const InView& in, u8* out,
                            std::int64_t outSize, int& outLen, const Params& params);
  // The refusals of an answer restore that the header, the section table and the counts show,
  // and its plan (written into `plan` as constructed).
  Status (*planAnswer)(const records::AnswerLayout& layout, const InView& in,
                       const RestoreOptions& options, RestorePlan& plan);
  // The refusals of a planned restore that the walk of the frame finds without decoding a
  // record: a 2011 count in the body that differs from the header's. Not found this way: a
  // dictionary index past its entries (it is a field of a record), a failed allocation.
  Status (*checkFrame)(const RestorePlan& plan, const InView& in, const Params& params);
};

extern const CodecOps kCodec2008;
extern const CodecOps kCodec2011;

inline const CodecOps& codecOf(int nibble) {
  return nibble == 0 ? kCodec2008 : kCodec2011;
}

}  // namespace trdcomp::framing
