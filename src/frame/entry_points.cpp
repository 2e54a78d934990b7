// The public entry points: argument checks, header handling, codec choice by the nibble, routing
// by function number through the catalogue, and the pass-through of unknown numbers.
#include <cstring>

#include "TrdCompData.h"
#include "codec2008/framing.h"
#include "codec2011/framing.h"
#include "frame/catalogue.h"
#include "primitives/bytes.h"

using trdcomp::InView;
using trdcomp::u8;
using trdcomp::frame::AnswerForm;
using trdcomp::frame::Entry;
using trdcomp::frame::RequestForm;

namespace {

constexpr int kRequestHeader = 76;
constexpr int kAnswerHeader = 96;
constexpr int kPassThroughSlack = 10;

int nibbleOf(u8 flags) {
  return (flags >> 4) & 15;
}

// Section table of a packed answer: its size, then (count, size) for at most five sections;
// with more sections the size still counts them all and the body starts after all of them.
void writeSectionTable(u8* out, const tagANS_Proc& proc, std::uint32_t tableSize) {
  trdcomp::storeU32(out + kAnswerHeader, tableSize);
  for (int i = 0; i < proc.sectionCount && i < 5; ++i) {
    trdcomp::storeI32(out + kAnswerHeader + 4 + 8 * i, proc.recCount[i]);
    trdcomp::storeI32(out + kAnswerHeader + 8 + 8 * i, proc.recSize[i]);
  }
}

// An answer without a routine: the header (and section table) then the raw sections.
int packRawAnswer(u8* out, int& outLen, const tagANS_Proc& proc, char* const sections[5],
                  int nibble, std::uint32_t tableSize, int length) {
  if (nibble > 0 && proc.sectionCount > 1) {
    writeSectionTable(out, proc, tableSize);
    length += static_cast<int>(tableSize);
  }
  for (int i = 0; i < proc.sectionCount && i < 5; ++i) {
    const std::int64_t bytes = std::int64_t(proc.recCount[i]) * proc.recSize[i];
    if (bytes <= 0) continue;
    if (sections[i])
      std::memcpy(out + length, sections[i], static_cast<std::size_t>(bytes));
    else
      std::memset(out + length, 0, static_cast<std::size_t>(bytes));
    length += static_cast<int>(bytes);
  }
  outLen = length;
  return 0;
}

// An answer restored without a routine: header, table and body copied as they came, only the
// header length normalised. Sizes come from the message and are checked against the limits of
// a restored length; bytes the message does not hold arrive as zeros.
int restoreRawAnswer(const InView& in, char** out, int& outLen) {
  const u8 flags = in.at(8);
  if (flags & 1) return 0;
  const std::int32_t headLen = in.i32(0);
  std::int64_t table = 0, body = 0;
  if (flags & 2) {
    table = in.i32(headLen);
    const std::int64_t pairs = (table - 4) / 8;
    // Every pair counts here, not only five; pairs past the input read as zero.
    for (std::int64_t k = 0; k < pairs && in.has(headLen + 4 + 8 * k); ++k) {
      body += std::int64_t(in.i32(headLen + 4 + 8 * k)) * in.i32(headLen + 8 + 8 * k);
      if (body < INT32_MIN || body > INT32_MAX) return 0;
    }
  } else {
    body = std::int64_t(in.i32(88)) * in.i32(92);
  }
  const std::int64_t length = kAnswerHeader + table + body;
  if (table < 0 || body < 0 || length + kPassThroughSlack > INT32_MAX) return 0;
  u8* o = trdcomp::allocateZeroed(length + kPassThroughSlack);
  if (!o) return 0;
  in.copyAvailable(o, 0, kAnswerHeader);
  trdcomp::storeU32(o, kAnswerHeader);
  in.copyAvailable(o + kAnswerHeader, headLen, table);
  in.copyAvailable(o + kAnswerHeader + table, headLen + table, body);
  *out = reinterpret_cast<char*>(o);
  outLen = static_cast<int>(length);
  return 1;
}

}  // namespace

CTrdCompData::CTrdCompData() = default;
CTrdCompData::~CTrdCompData() = default;

int CTrdCompData::PackReq2008(char* out, int& outLen, tagREQ_HEAD* head, char* body, int bodyLen,
                              char flag) {
  if (!out || !head) return 0;
  outLen = 0;
  std::memcpy(out, head, kRequestHeader);
  u8* o = reinterpret_cast<u8*>(out);
  trdcomp::storeU32(o, kRequestHeader);
  outLen = kRequestHeader;
  const int nibble = nibbleOf(o[8]);
  const Entry* e = trdcomp::frame::find(trdcomp::loadU32(o + 4));
  switch (e ? e->requestForm : RequestForm::PassThrough) {
    case RequestForm::HeaderOnly: trdcomp::storeU32(o + 68, 0); return 1;
    case RequestForm::NoBody: return 1;
    case RequestForm::Routine:
      if (nibble == 0)
        trdcomp::codec2008::packRequest(*e->request[0], out, outLen, body, bodyLen, flag);
      else
        trdcomp::codec2011::packRequest(*e->request[1], out, outLen, body, bodyLen, nibble);
      return 1;
    case RequestForm::PassThrough: break;
  }
  if (bodyLen > 0) {
    std::memcpy(out + kRequestHeader, body, static_cast<std::size_t>(bodyLen));
    outLen += bodyLen;
  }
  return 1;
}

int CTrdCompData::RestoreReq2008(char* in, int inLen, char** out, int& outLen, char flag) {
  if (!in || inLen < 1 || !out) return 0;
  const InView view(in, inLen);
  if (view.i32(0) > inLen) return 0;
  outLen = 0;
  *out = nullptr;
  const int nibble = nibbleOf(view.at(8));
  const Entry* e = trdcomp::frame::find(view.u32(4));
  switch (e ? e->requestForm : RequestForm::PassThrough) {
    case RequestForm::HeaderOnly:
    case RequestForm::Routine:
      if (nibble == 0)
        return trdcomp::codec2008::restoreRequest(*e->request[0], in, inLen, out, outLen, flag);
      return trdcomp::codec2011::restoreRequest(*e->request[1], in, inLen, out, outLen, nibble);
    case RequestForm::NoBody: return 1;
    case RequestForm::PassThrough: break;
  }
  // A packed body cannot pass through. A failed allocation still reports success with a null
  // buffer and the input length, as deployed callers expect.
  if (view.at(8) & 1) return 0;
  outLen = inLen;
  u8* o = trdcomp::allocateZeroed(std::int64_t(inLen) + kPassThroughSlack);
  if (!o) return 1;
  std::memcpy(o, in, static_cast<std::size_t>(inLen));
  *out = reinterpret_cast<char*>(o);
  return 1;
}

int CTrdCompData::PackAns2008(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                              char* sec1, char* sec2, char* sec3, char* sec4, char flag,
                              int codecSel) {
  outLen = 0;
  if (!out || static_cast<unsigned>(outSize) < kAnswerHeader || !proc) return 0;
  u8* o = reinterpret_cast<u8*>(out);
  const std::int32_t sectionCount = proc->sectionCount;
  const std::uint32_t tableSize = sectionCount > 1 ? 8u * sectionCount + 4 : 0;

  // Header: bytes 9 to 19 are the caller's; the flags are ORed into what byte 8 holds, and the
  // nibble is written as 1 whatever nonzero value the caller asked for.
  trdcomp::storeU32(o + 4, proc->funcNo);
  std::strncpy(out + 20, proc->shortText, 4);
  std::strncpy(out + 24, proc->text, 64);
  trdcomp::storeU32(o, kAnswerHeader);
  if (sectionCount > 1) o[8] |= 2;
  const int nibble = (codecSel & 0xFF) >> 4;
  if (nibble >= 1) o[8] |= 0x10;
  trdcomp::storeI32(o + 88, proc->recCount[0]);
  trdcomp::storeI32(o + 92, proc->recSize[0]);

  int length = kAnswerHeader;
  if (nibble == 0 && tableSize > 0) {
    writeSectionTable(o, *proc, tableSize);
    length += static_cast<int>(tableSize);
  }
  char* const sections[5] = {sec0, sec1, sec2, sec3, sec4};
  const Entry* e = trdcomp::frame::find(trdcomp::loadU32(o + 4));
  switch (e ? e->answerForm : AnswerForm::PassThrough) {
    case AnswerForm::NoBody: outLen = length; return 0;
    case AnswerForm::Routine:
      if (nibble == 0)
        trdcomp::codec2008::packAnswer(*e->answerPack[0], out, length, proc, sections, flag);
      else
        trdcomp::codec2011::packAnswer(*e->answerPack[1], out, length, proc, sections, nibble);
      outLen = length;
      return 0;
    case AnswerForm::PassThrough: break;
  }
  return packRawAnswer(o, outLen, *proc, sections, nibble, tableSize, length);
}

int CTrdCompData::RestoreAns2008(char* in, int inLen, char** out, int& outLen, char flag) {
  if (!in || !out) return 0;
  const InView view(in, inLen);
  if (inLen < view.i32(0)) return 0;
  *out = nullptr;
  outLen = 0;
  const int nibble = nibbleOf(view.at(8));
  const Entry* e = trdcomp::frame::find(view.u32(4));
  switch (e ? e->answerForm : AnswerForm::PassThrough) {
    case AnswerForm::Routine:
      if (nibble == 0)
        return trdcomp::codec2008::restoreAnswer(*e->answerRestore[0], in, inLen, out, outLen,
                                                 flag);
      return trdcomp::codec2011::restoreAnswer(*e->answerRestore[1], in, inLen, out, outLen,
                                               nibble);
    case AnswerForm::NoBody: return 1;
    case AnswerForm::PassThrough: break;
  }
  return restoreRawAnswer(view, out, outLen);
}

void CTrdCompData::ReleaseAnsData(char* data) {
  if (data) trdcomp::release(data);
}
