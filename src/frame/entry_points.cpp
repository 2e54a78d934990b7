// The public entry points: argument checks, header handling, codec choice by the nibble, routing
// by function number through the catalogue, the pass-through of unknown numbers, and the bounds
// of packed sizes.
#include <algorithm>
#include <cstring>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "frame/messages.h"
#include "framing/codecs.h"
#include "framing/message_framing.h"
#include "framing/walker.h"
#include "primitives/bytes.h"
#include "primitives/header.h"
#include "primitives/out_buffer.h"
#include "primitives/raw.h"
#include "primitives/status.h"

using trdcomp::InView;
using trdcomp::kAnswerHeader;
using trdcomp::kRequestHeader;
using trdcomp::OutBuffer;
using trdcomp::RestoreOptions;
using trdcomp::Status;
using trdcomp::u8;
using trdcomp::frame::AnswerForm;
using trdcomp::frame::Entry;
using trdcomp::frame::RequestForm;
using trdcomp::framing::codecOf;
using trdcomp::framing::CodecOps;
using trdcomp::framing::Params;
using trdcomp::framing::RestorePlan;
using trdcomp::framing::Slots;

namespace trdcomp::frame {
namespace {

constexpr int kPassThroughSlack = 10;

int nibbleOf(const InView& in) {
  return trdcomp::header::View(in).flags().nibble();
}

RequestForm requestForm(const Entry* e) {
  return e ? e->requestForm : RequestForm::PassThrough;
}
AnswerForm answerForm(const Entry* e) {
  return e ? e->answerForm : AnswerForm::PassThrough;
}

}  // namespace

// ---- Requests -----------------------------------------------------------------------------

std::int64_t requestBound(const tagREQ_HEAD& head, int bodyLen) {
  const int nibble = trdcomp::header::Flags{static_cast<u8>(head.flags)}.nibble();
  const CodecOps& codec = codecOf(nibble);
  const Entry* e = trdcomp::frame::find(head.funcNo);
  std::int64_t body = 0;
  switch (requestForm(e)) {
    case RequestForm::HeaderOnly:
    case RequestForm::NoBody: break;
    case RequestForm::Routine:
      body = codec.requestBodyBound(*e->request[codec.index], head.recCount, head.recSize, bodyLen,
                                    Params{0, nibble});
      break;
    case RequestForm::PassThrough: body = bodyLen; break;
  }
  return trdcomp::sizePlus(kRequestHeader, body);
}

Status packRequest(char* out, std::int64_t capacity, int& outLen, const tagREQ_HEAD& head,
                   const char* body, int bodyLen, char flag, std::int64_t* steps) {
  if (Status s = trdcomp::checkBody(body, bodyLen)) return s;
  const std::int64_t bound = requestBound(head, bodyLen);
  if (bound > INT32_MAX) return TRDCOMP_ERROR_TOO_LARGE;
  if (capacity < 0) capacity = bound;
  if (capacity < kRequestHeader) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;

  u8* o = reinterpret_cast<u8*>(out);
  std::memcpy(o, &head, kRequestHeader);
  trdcomp::header::setLength(o, kRequestHeader);
  OutBuffer buffer(o, kRequestHeader, capacity);
  const int nibble = nibbleOf(InView(o, kRequestHeader));
  const Entry* e = trdcomp::frame::find(head.funcNo);
  Status s = TRDCOMP_OK;
  switch (requestForm(e)) {
    case RequestForm::HeaderOnly:
      trdcomp::header::setCountAndSize<trdcomp::header::Request>(o, 0, head.recSize);
      break;
    case RequestForm::NoBody: break;
    case RequestForm::Routine: {
      const CodecOps& codec = codecOf(nibble);
      s = codec.packRequest(*e->request[codec.index], buffer, body, bodyLen,
                            Params{flag, nibble, Slots::Store, steps});
      break;
    }
    case RequestForm::PassThrough:
      buffer.append(body, bodyLen);
      if (buffer.failed()) s = TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
      break;
  }
  if (s == TRDCOMP_OK) outLen = static_cast<int>(buffer.length());
  return s;
}

namespace {

// How a request's number restores: by a routine of a codec and layout, not at all, or as a copy.
struct RequestRoute {
  RequestForm form = RequestForm::NoBody;
  const CodecOps* codec = nullptr;
  const trdcomp::records::Layout* layout = nullptr;
  Params params;
};

RequestRoute requestRoute(const InView& in, char flag) {
  const trdcomp::header::View h(in);
  const Entry* e = trdcomp::frame::find(h.function());
  RequestRoute r;
  r.form = requestForm(e);
  if (r.form == RequestForm::Routine || r.form == RequestForm::HeaderOnly) {
    const int nibble = h.flags().nibble();
    r.codec = &codecOf(nibble);
    r.layout = e->request[r.codec->index];
    r.params = Params{flag, nibble};
  }
  return r;
}

// A request without a routine is copied as it came; a packed body cannot pass through.
Status passThrough(const InView& in, const RestoreOptions& options) {
  if (trdcomp::header::View(in).flags().packed()) return TRDCOMP_ERROR_PACKED_UNKNOWN;
  return in.size() > options.maxLength ? TRDCOMP_ERROR_LIMIT : TRDCOMP_OK;
}

}  // namespace

Status restoreRequest(const InView& in, char** out, int& outLen, char flag,
                      const RestoreOptions& options, bool& passedThrough) {
  passedThrough = false;
  const RequestRoute r = requestRoute(in, flag);
  switch (r.form) {
    case RequestForm::HeaderOnly:
    case RequestForm::Routine:
      return r.codec->restoreRequest(*r.layout, in, out, outLen, r.params, options);
    case RequestForm::NoBody: return TRDCOMP_OK;
    case RequestForm::PassThrough: break;
  }
  if (Status s = passThrough(in, options)) return s;
  passedThrough = true;
  outLen = static_cast<int>(in.size());
  u8* o = trdcomp::allocateZeroed(in.size() + kPassThroughSlack);
  if (!o) return TRDCOMP_ERROR_ALLOCATION;
  std::memcpy(o, in.data(), static_cast<std::size_t>(in.size()));
  *out = reinterpret_cast<char*>(o);
  return TRDCOMP_OK;
}

Status restoreRequestTo(const InView& in, char* out, std::int64_t outSize, int& outLen, char flag) {
  const RequestRoute r = requestRoute(in, flag);
  switch (r.form) {
    case RequestForm::HeaderOnly:
    case RequestForm::Routine:
      return r.codec->restoreRequestTo(*r.layout, in, reinterpret_cast<u8*>(out), outSize, outLen,
                                       r.params);
    case RequestForm::NoBody: outLen = 0; return TRDCOMP_OK;
    case RequestForm::PassThrough: break;
  }
  if (Status s = passThrough(in, {})) return s;
  if (in.size() > outSize) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  std::memcpy(out, in.data(), static_cast<std::size_t>(in.size()));
  outLen = static_cast<int>(in.size());
  return TRDCOMP_OK;
}

Status restoredRequestLength(const InView& in, std::int64_t& length) {
  const RequestRoute r = requestRoute(in, 0);
  switch (r.form) {
    case RequestForm::HeaderOnly:
    case RequestForm::Routine: {
      RestorePlan plan;
      if (Status s = r.codec->planRequest(*r.layout, in, r.params, {}, plan)) return s;
      if (Status s = r.codec->checkFrame(plan, in, r.params)) return s;
      length = plan.length;
      return TRDCOMP_OK;
    }
    case RequestForm::NoBody: length = 0; return TRDCOMP_OK;
    case RequestForm::PassThrough: break;
  }
  length = in.size();
  return passThrough(in, {});
}

Status checkRequestInput(const char* in, int inLen) {
  if (!in) return TRDCOMP_ERROR_NULL_ARGUMENT;
  if (inLen < 1) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  return trdcomp::header::View(InView(in, inLen)).length() > inLen ? TRDCOMP_ERROR_HEADER_LENGTH
                                                                   : TRDCOMP_OK;
}

Status checkRequestArguments(const char* in, int inLen, char** out) {
  return out ? checkRequestInput(in, inLen) : TRDCOMP_ERROR_NULL_ARGUMENT;
}

// ---- Answers ------------------------------------------------------------------------------

namespace {

// Size of the section table an answer of `sections` sections carries (0 for one section).
std::int64_t tableSize(std::int32_t sections) {
  return sections > 1 ? 8 * std::int64_t(sections) + 4 : 0;
}

}  // namespace

std::int64_t answerBound(const tagANS_Proc& proc, int codecSel) {
  const int nibble = trdcomp::header::Flags{static_cast<u8>(codecSel)}.nibble();
  const CodecOps& codec = codecOf(nibble);
  const std::int64_t table = tableSize(proc.sectionCount);
  const std::int64_t tableAhead = codec.sectionTableAhead ? table : 0;
  const Entry* e = trdcomp::frame::find(proc.funcNo);
  std::int64_t body = 0;
  switch (answerForm(e)) {
    case AnswerForm::NoBody: body = tableAhead; break;
    case AnswerForm::Routine:
      body = trdcomp::sizePlus(
          tableAhead, codec.answerBodyBound(*e->answerPack[codec.index], proc, Params{0, nibble}));
      break;
    case AnswerForm::PassThrough:
      body = table;
      for (int i = 0; i < proc.sectionCount && i < 5; ++i)
        body = trdcomp::sizePlus(body, trdcomp::sizeTimes(proc.recCount[i], proc.recSize[i]));
      break;
  }
  return trdcomp::sizePlus(kAnswerHeader, body);
}

namespace {

// Section table of a packed answer: its size, then (count, size) for at most five sections;
// with more sections the size still counts them all and the body starts after all of them.
void writeSectionTable(u8* out, const tagANS_Proc& proc, std::int64_t table) {
  trdcomp::framing::writeSectionTable(
      out + kAnswerHeader, table, std::clamp(proc.sectionCount, 0, 5), proc.recCount, proc.recSize);
}

// An answer without a routine: the header (and section table) then the raw sections.
Status packRawAnswer(OutBuffer& out, const tagANS_Proc& proc, char* const sections[5], int nibble,
                     std::int64_t table) {
  const int sent = std::clamp(proc.sectionCount, 0, 5);
  for (int i = 0; i < sent; ++i) {
    if (proc.recCount[i] < 0 || proc.recSize[i] < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
    if (!sections[i] && proc.recCount[i] > 0 && proc.recSize[i] > 0)
      return TRDCOMP_ERROR_NULL_ARGUMENT;
  }
  if (nibble > 0 && table > 0) {
    // Written where the header length points, as the 2008 path writes it before the body.
    if (table > out.room()) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
    writeSectionTable(out.base(), proc, table);
    out.commit(out.reserve(table), table);
  }
  for (int i = 0; i < sent; ++i)
    out.append(sections[i], std::int64_t(proc.recCount[i]) * proc.recSize[i]);
  return out.failed() ? TRDCOMP_ERROR_OUTPUT_TOO_SMALL : TRDCOMP_OK;
}

}  // namespace

// The header is written only once the arguments are known good; then the flags are ORed into what
// byte 8 holds and bytes 9 to 19 are left as the caller has them, and the nibble is written as 1
// whatever nonzero value the caller asked for.
Status packAnswer(char* out, std::int64_t capacity, int& outLen, const tagANS_Proc& proc,
                  char* const sections[5], char flag, int codecSel, std::int64_t* steps) {
  const std::int64_t bound = answerBound(proc, codecSel);
  if (bound > INT32_MAX) return TRDCOMP_ERROR_TOO_LARGE;
  if (capacity < 0) capacity = bound;
  if (capacity < kAnswerHeader) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  const int nibble = trdcomp::header::Flags{static_cast<u8>(codecSel)}.nibble();
  const CodecOps& codec = codecOf(nibble);
  const std::int64_t table = tableSize(proc.sectionCount);
  const std::int64_t tableHere = codec.sectionTableAhead ? table : 0;
  if (tableHere > capacity - kAnswerHeader) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;

  namespace header = trdcomp::header;
  u8* o = reinterpret_cast<u8*>(out);
  header::setFunction(o, proc.funcNo);
  std::strncpy(out + header::Answer::kShortText, proc.shortText,
               sizeof(trdcomp_answer_header::short_text));
  std::strncpy(out + header::Answer::kText, proc.text, sizeof(trdcomp_answer_header::text));
  header::setLength(o, kAnswerHeader);
  if (proc.sectionCount > 1) header::flagsByte(o) |= header::Flags::kSectionTable;
  if (nibble >= 1) header::flagsByte(o) |= header::Flags::nibbleBits(1);
  header::setCountAndSize<header::Answer>(o, proc.recCount[0], proc.recSize[0]);
  if (tableHere > 0) writeSectionTable(o, proc, tableHere);

  OutBuffer buffer(o, kAnswerHeader + tableHere, capacity);
  const Entry* e = trdcomp::frame::find(proc.funcNo);
  Status s = TRDCOMP_OK;
  switch (answerForm(e)) {
    case AnswerForm::NoBody: break;
    case AnswerForm::Routine:
      s = codec.packAnswer(*e->answerPack[codec.index], buffer, proc, sections,
                           Params{flag, nibble, Slots::Store, steps});
      break;
    case AnswerForm::PassThrough: s = packRawAnswer(buffer, proc, sections, nibble, table); break;
  }
  if (s == TRDCOMP_OK) outLen = static_cast<int>(buffer.length());
  return s;
}

namespace {

struct AnswerRoute {
  AnswerForm form = AnswerForm::NoBody;
  const CodecOps* codec = nullptr;
  const trdcomp::records::AnswerLayout* layout = nullptr;
  Params params;
};

AnswerRoute answerRoute(const InView& in, char flag) {
  const trdcomp::header::View h(in);
  const Entry* e = trdcomp::frame::find(h.function());
  AnswerRoute r;
  r.form = answerForm(e);
  if (r.form == AnswerForm::Routine) {
    const int nibble = h.flags().nibble();
    r.codec = &codecOf(nibble);
    r.layout = e->answerRestore[r.codec->index];
    r.params = Params{flag, nibble};
  }
  return r;
}

// An answer restored without a routine: header, table and body copied as they came, only the
// header length normalised. Sizes come from the message and are checked against the limits of
// a restored length; bytes the message does not hold arrive as zeros.
Status planRawAnswer(const InView& in, const RestoreOptions& options,
                     trdcomp::framing::RawAnswer& r, std::int64_t& length) {
  if (trdcomp::header::View(in).flags().packed()) return TRDCOMP_ERROR_PACKED_UNKNOWN;
  r = trdcomp::framing::rawAnswer(in);
  if (r.tooLarge) return TRDCOMP_ERROR_TOO_LARGE;
  if (r.table < 0 || r.body < 0) return TRDCOMP_ERROR_NEGATIVE_SIZE;
  length = kAnswerHeader + r.table + r.body;
  if (length + kPassThroughSlack > INT32_MAX) return TRDCOMP_ERROR_TOO_LARGE;
  return length > options.maxLength ? TRDCOMP_ERROR_LIMIT : TRDCOMP_OK;
}

// Zero pages take only the bytes the message holds; other memory is cleared where it lacks.
void copyRawAnswer(const InView& in, const trdcomp::framing::RawAnswer& r, u8* o, bool zeroed) {
  const auto copy = [&](u8* to, std::int64_t from, std::int64_t n) {
    if (zeroed)
      in.copyAvailable(to, from, n);
    else
      in.copyOut(to, from, n);
  };
  copy(o, 0, kAnswerHeader);
  trdcomp::header::setLength(o, kAnswerHeader);
  copy(o + kAnswerHeader, r.headerLength, r.table);
  copy(o + kAnswerHeader + r.table, r.headerLength + r.table, r.body);
}

}  // namespace

Status restoreAnswer(const InView& in, char** out, int& outLen, char flag,
                     const RestoreOptions& options) {
  const AnswerRoute route = answerRoute(in, flag);
  switch (route.form) {
    case AnswerForm::Routine:
      return route.codec->restoreAnswer(*route.layout, in, out, outLen, route.params, options);
    case AnswerForm::NoBody: return TRDCOMP_OK;
    case AnswerForm::PassThrough: break;
  }
  trdcomp::framing::RawAnswer r;
  std::int64_t length = 0;
  if (Status s = planRawAnswer(in, options, r, length)) return s;
  u8* o = trdcomp::allocateZeroed(length + kPassThroughSlack);
  if (!o) return TRDCOMP_ERROR_ALLOCATION;
  copyRawAnswer(in, r, o, true);
  *out = reinterpret_cast<char*>(o);
  outLen = static_cast<int>(length);
  return TRDCOMP_OK;
}

Status restoreAnswerTo(const InView& in, char* out, std::int64_t outSize, int& outLen, char flag) {
  const AnswerRoute route = answerRoute(in, flag);
  switch (route.form) {
    case AnswerForm::Routine:
      return route.codec->restoreAnswerTo(*route.layout, in, reinterpret_cast<u8*>(out), outSize,
                                          outLen, route.params);
    case AnswerForm::NoBody: outLen = 0; return TRDCOMP_OK;
    case AnswerForm::PassThrough: break;
  }
  trdcomp::framing::RawAnswer r;
  std::int64_t length = 0;
  if (Status s = planRawAnswer(in, {}, r, length)) return s;
  if (length > outSize) return TRDCOMP_ERROR_OUTPUT_TOO_SMALL;
  copyRawAnswer(in, r, reinterpret_cast<u8*>(out), false);
  outLen = static_cast<int>(length);
  return TRDCOMP_OK;
}

Status restoredAnswerLength(const InView& in, std::int64_t& length) {
  const AnswerRoute route = answerRoute(in, 0);
  switch (route.form) {
    case AnswerForm::Routine: {
      RestorePlan plan;
      if (Status s = route.codec->planAnswer(*route.layout, in, {}, plan)) return s;
      if (Status s = route.codec->checkFrame(plan, in, route.params)) return s;
      length = plan.length;
      return TRDCOMP_OK;
    }
    case AnswerForm::NoBody: length = 0; return TRDCOMP_OK;
    case AnswerForm::PassThrough: break;
  }
  trdcomp::framing::RawAnswer r;
  return planRawAnswer(in, {}, r, length);
}

Status checkAnswerInput(const char* in, int inLen) {
  if (!in) return TRDCOMP_ERROR_NULL_ARGUMENT;
  return inLen < trdcomp::header::View(InView(in, inLen)).length() ? TRDCOMP_ERROR_HEADER_LENGTH
                                                                   : TRDCOMP_OK;
}

Status checkAnswerArguments(const char* in, int inLen, char** out) {
  return out ? checkAnswerInput(in, inLen) : TRDCOMP_ERROR_NULL_ARGUMENT;
}

}  // namespace trdcomp::frame

// ---- The interface ------------------------------------------------------------------------

namespace {

using namespace trdcomp::frame;

int report(Status s, int* reason) {
  if (reason) *reason = s;
  return s == TRDCOMP_OK ? 1 : 0;
}

// A refused restore hands back nothing: no buffer to release, length 0.
int reportRestore(Status s, char** out, int& outLen, int* reason) {
  if (s != TRDCOMP_OK) {
    if (out && *out) {
      trdcomp::release(*out);
      *out = nullptr;
    }
    outLen = 0;
  }
  return report(s, reason);
}

RestoreOptions limitOf(int maxOutLen) {
  RestoreOptions options;
  if (maxOutLen >= 0) options.maxLength = maxOutLen;
  return options;
}

}  // namespace

CTrdCompData::CTrdCompData() = default;
CTrdCompData::~CTrdCompData() = default;

int CTrdCompData::PackReq2008(char* out, int& outLen, tagREQ_HEAD* head, char* body, int bodyLen,
                              char flag) {
  if (!out || !head) return 0;
  outLen = 0;
  return packRequest(out, -1, outLen, *head, body, bodyLen, flag) == TRDCOMP_OK ? 1 : 0;
}

int CTrdCompData::RestoreReq2008(char* in, int inLen, char** out, int& outLen, char flag) {
  if (checkRequestArguments(in, inLen, out) != TRDCOMP_OK) return 0;
  outLen = 0;
  *out = nullptr;
  bool passedThrough;
  const Status s = restoreRequest(InView(in, inLen), out, outLen, flag, {}, passedThrough);
  // A failed pass-through allocation reports success with a null buffer and the input length,
  // as deployed callers expect.
  if (s == TRDCOMP_ERROR_ALLOCATION && passedThrough) return 1;
  return s == TRDCOMP_OK ? 1 : 0;
}

int CTrdCompData::PackAns2008(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                              char* sec1, char* sec2, char* sec3, char* sec4, char flag,
                              int codecSel) {
  outLen = 0;
  // The size is compared unsigned: a negative size passes, and means "sized by the bound".
  if (!out || static_cast<unsigned>(outSize) < kAnswerHeader || !proc) return 0;
  char* const sections[5] = {sec0, sec1, sec2, sec3, sec4};
  packAnswer(out, outSize, outLen, *proc, sections, flag, codecSel);
  return 0;
}

int CTrdCompData::RestoreAns2008(char* in, int inLen, char** out, int& outLen, char flag) {
  if (checkAnswerArguments(in, inLen, out) != TRDCOMP_OK) return 0;
  *out = nullptr;
  outLen = 0;
  return restoreAnswer(InView(in, inLen), out, outLen, flag, {}) == TRDCOMP_OK ? 1 : 0;
}

void CTrdCompData::ReleaseAnsData(char* data) {
  if (data) trdcomp::release(data);
}

long long CTrdCompData::PackReqBound(const tagREQ_HEAD* head, int bodyLen) {
  if (!head || bodyLen < 0) return -1;
  return requestBound(*head, bodyLen);
}

long long CTrdCompData::PackAnsBound(const tagANS_Proc* proc, int codecSel) {
  if (!proc) return -1;
  return answerBound(*proc, codecSel);
}

int CTrdCompData::PackReq2008Ex(char* out, int outSize, int& outLen, tagREQ_HEAD* head, char* body,
                                int bodyLen, char flag, int* reason) {
  outLen = 0;
  if (!out || !head) return report(TRDCOMP_ERROR_NULL_ARGUMENT, reason);
  if (outSize < 0) return report(TRDCOMP_ERROR_NEGATIVE_SIZE, reason);
  return report(packRequest(out, outSize, outLen, *head, body, bodyLen, flag), reason);
}

int CTrdCompData::PackAns2008Ex(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                                char* sec1, char* sec2, char* sec3, char* sec4, char flag,
                                int codecSel, int* reason) {
  outLen = 0;
  if (!out || !proc) return report(TRDCOMP_ERROR_NULL_ARGUMENT, reason);
  if (outSize < 0) return report(TRDCOMP_ERROR_NEGATIVE_SIZE, reason);
  char* const sections[5] = {sec0, sec1, sec2, sec3, sec4};
  return report(packAnswer(out, outSize, outLen, *proc, sections, flag, codecSel), reason);
}

int CTrdCompData::RestoreReq2008Ex(char* in, int inLen, char** out, int& outLen, char flag,
                                   int maxOutLen, int* reason) {
  outLen = 0;
  if (out) *out = nullptr;
  if (Status s = checkRequestArguments(in, inLen, out)) return report(s, reason);
  bool passedThrough;
  const Status s =
      restoreRequest(InView(in, inLen), out, outLen, flag, limitOf(maxOutLen), passedThrough);
  return reportRestore(s, out, outLen, reason);
}

int CTrdCompData::RestoreAns2008Ex(char* in, int inLen, char** out, int& outLen, char flag,
                                   int maxOutLen, int* reason) {
  outLen = 0;
  if (out) *out = nullptr;
  if (Status s = checkAnswerArguments(in, inLen, out)) return report(s, reason);
  const Status s = restoreAnswer(InView(in, inLen), out, outLen, flag, limitOf(maxOutLen));
  return reportRestore(s, out, outLen, reason);
}

namespace {

// The arguments of a restore into the caller's buffer: `out` may be null only when it has no
// bytes.
Status checkOutput(const char* out, int outSize) {
  if (!out && outSize > 0) return TRDCOMP_ERROR_NULL_ARGUMENT;
  return outSize < 0 ? TRDCOMP_ERROR_NEGATIVE_SIZE : TRDCOMP_OK;
}

}  // namespace

int CTrdCompData::RestoreReq2008Into(char* in, int inLen, char* out, int outSize, int& outLen,
                                     char flag, int* reason) {
  outLen = 0;
  if (Status s = checkRequestInput(in, inLen)) return report(s, reason);
  if (Status s = checkOutput(out, outSize)) return report(s, reason);
  return report(restoreRequestTo(InView(in, inLen), out, outSize, outLen, flag), reason);
}

int CTrdCompData::RestoreAns2008Into(char* in, int inLen, char* out, int outSize, int& outLen,
                                     char flag, int* reason) {
  outLen = 0;
  if (Status s = checkAnswerInput(in, inLen)) return report(s, reason);
  if (Status s = checkOutput(out, outSize)) return report(s, reason);
  return report(restoreAnswerTo(InView(in, inLen), out, outSize, outLen, flag), reason);
}

long long CTrdCompData::RestoreReqLength(const char* in, int inLen) {
  std::int64_t length = -1;
  if (checkRequestInput(in, inLen) || restoredRequestLength(InView(in, inLen), length)) return -1;
  return length;
}

long long CTrdCompData::RestoreAnsLength(const char* in, int inLen) {
  std::int64_t length = -1;
  if (checkAnswerInput(in, inLen) || restoredAnswerLength(InView(in, inLen), length)) return -1;
  return length;
}

const char* CTrdCompData::ErrorName(int reason) {
  switch (reason) {
    case TRDCOMP_OK: return "no error";
    case TRDCOMP_ERROR_NULL_ARGUMENT: return "null argument";
    case TRDCOMP_ERROR_NEGATIVE_SIZE: return "negative length, count or record size";
    case TRDCOMP_ERROR_HEADER_LENGTH: return "header length beyond the input";
    case TRDCOMP_ERROR_PACKED_UNKNOWN: return "packed records of an unknown function number";
    case TRDCOMP_ERROR_SECTION_BIT: return "section-table bit set on a request";
    case TRDCOMP_ERROR_COUNT_BEYOND_INPUT: return "record count beyond the input";
    case TRDCOMP_ERROR_COUNT_MISMATCH: return "packed record count differs from the header's";
    case TRDCOMP_ERROR_TOO_LARGE: return "size beyond 2^31 - 1";
    case TRDCOMP_ERROR_LIMIT: return "restored size above the caller's limit";
    case TRDCOMP_ERROR_ALLOCATION: return "allocation failed";
    case TRDCOMP_ERROR_OUTPUT_TOO_SMALL: return "output too small";
    case TRDCOMP_ERROR_BODY_TOO_SHORT: return "body shorter than its records";
    case TRDCOMP_ERROR_DICTIONARY_INDEX: return "dictionary index past its entries";
    case TRDCOMP_ERROR_ARGUMENT: return "unknown direction, codec or index";
    case TRDCOMP_ERROR_TRUNCATED: return "the data ends inside a header or table";
    case TRDCOMP_ERROR_HEADER: return "header or table field out of range";
    case TRDCOMP_ERROR_UNKNOWN_FUNCTION: return "unknown function number";
    case TRDCOMP_STATUS_COUNT: break;
  }
  return "unknown error";
}
