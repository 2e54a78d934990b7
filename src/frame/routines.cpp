// The exported per-function routines, generated from the header's lists of numbers. Each is a
// thin forwarder: the catalogue names the layout that the number's routine serves in its codec
// and direction, and the codec's framing does the work. Called directly, a routine appends at
// `outLen` with no size given (the caller sized the output), and the 2011 routines add each
// block's length to what the output holds in its slot, as deployed packers do.
#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "framing/codecs.h"

namespace {

using trdcomp::InView;
using trdcomp::OutBuffer;
using trdcomp::Status;
using trdcomp::u8;
using trdcomp::frame::find;

const trdcomp::records::Layout& request(unsigned number, int codec) {
  return *find(number)->request[codec];
}
const trdcomp::records::AnswerLayout& packing(unsigned number, int codec) {
  return *find(number)->answerPack[codec];
}
const trdcomp::records::AnswerLayout& restoring(unsigned number, int codec) {
  return *find(number)->answerRestore[codec];
}

// The caller's output from its start, `outLen` bytes written, no size given.
OutBuffer outputOf(char* out, int outLen) {
  return OutBuffer(reinterpret_cast<u8*>(out), outLen, INT32_MAX);
}

// 1 and the new length when the routine packed, 0 and the length unchanged when it refused.
int packed(Status s, const OutBuffer& buffer, int& outLen) {
  if (s != TRDCOMP_OK) return 0;
  outLen = static_cast<int>(buffer.length());
  return 1;
}

int restored(Status s) {
  return s == TRDCOMP_OK ? 1 : 0;
}

}  // namespace

using trdcomp::framing::kCodec2008;
using trdcomp::framing::kCodec2011;
using trdcomp::framing::Params;
using trdcomp::framing::Slots;

#define TRDCOMP_DEFINE_REQUEST_ROUTINES(n)                                                        \
  int CTrdCompData::PackReq2008_##n(char* out, int& outLen, char* body, int bodyLen, char flag) { \
    OutBuffer buffer = outputOf(out, outLen);                                                     \
    return packed(kCodec2008.packRequest(request(n, 0), buffer, body, bodyLen, Params{flag}),     \
                  buffer, outLen);                                                                \
  }                                                                                               \
  int CTrdCompData::RestoreReq2008_##n(char* in, int inLen, char** out, int& outLen, char flag) { \
    return restored(kCodec2008.restoreRequest(request(n, 0), InView(in, inLen), out, outLen,      \
                                              Params{flag}, {}));                                 \
  }                                                                                               \
  int CTrdCompData::PackReq2011_Fast_##n(char* out, int& outLen, char* body, int bodyLen,         \
                                         int nibble) {                                            \
    OutBuffer buffer = outputOf(out, outLen);                                                     \
    return packed(kCodec2011.packRequest(request(n, 1), buffer, body, bodyLen,                    \
                                         Params{0, nibble, Slots::Add}),                          \
                  buffer, outLen);                                                                \
  }                                                                                               \
  int CTrdCompData::RestoreReq2011_Fast_##n(char* in, int inLen, char** out, int& outLen,         \
                                            int nibble) {                                         \
    return restored(kCodec2011.restoreRequest(request(n, 1), InView(in, inLen), out, outLen,      \
                                              Params{0, nibble}, {}));                            \
  }

#define TRDCOMP_DEFINE_ANSWER_ROUTINES(n)                                                          \
  int CTrdCompData::PackAns2008_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0, char* s1, \
                                    char* s2, char* s3, char* s4, char flag) {                     \
    if (!proc) return 0;                                                                           \
    char* const sections[5] = {s0, s1, s2, s3, s4};                                                \
    OutBuffer buffer = outputOf(out, outLen);                                                      \
    return packed(kCodec2008.packAnswer(packing(n, 0), buffer, *proc, sections, Params{flag}),     \
                  buffer, outLen);                                                                 \
  }                                                                                                \
  int CTrdCompData::RestoreAns2008_##n(char* in, int inLen, char** out, int& outLen, char flag) {  \
    return restored(kCodec2008.restoreAnswer(restoring(n, 0), InView(in, inLen), out, outLen,      \
                                             Params{flag}, {}));                                   \
  }                                                                                                \
  int CTrdCompData::PackAns2011_Fast_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0,      \
                                         char* s1, char* s2, char* s3, char* s4, int nibble) {     \
    if (!proc) return 0;                                                                           \
    char* const sections[5] = {s0, s1, s2, s3, s4};                                                \
    OutBuffer buffer = outputOf(out, outLen);                                                      \
    return packed(kCodec2011.packAnswer(packing(n, 1), buffer, *proc, sections,                    \
                                        Params{0, nibble, Slots::Add}),                            \
                  buffer, outLen);                                                                 \
  }                                                                                                \
  int CTrdCompData::RestoreAns2011_Fast_##n(char* in, int inLen, char** out, int& outLen,          \
                                            int nibble) {                                          \
    return restored(kCodec2011.restoreAnswer(restoring(n, 1), InView(in, inLen), out, outLen,      \
                                             Params{0, nibble}, {}));                              \
  }

TRDCOMP_REQUEST_ROUTINES(TRDCOMP_DEFINE_REQUEST_ROUTINES)
TRDCOMP_ANSWER_ROUTINES(TRDCOMP_DEFINE_ANSWER_ROUTINES)
