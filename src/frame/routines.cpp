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

using trdcomp::framing::CodecOps;
using trdcomp::framing::Params;

// One routine of each kind serves every number: the exported ones below only name their number,
// codec and flags, so that the some 460 of them cost a call each in code and build time.

// 1 and the new length when the routine packed, 0 and the length unchanged when it refused.
int packed(Status s, const OutBuffer& buffer, int& outLen) {
  if (s != TRDCOMP_OK) return 0;
  outLen = static_cast<int>(buffer.length());
  return 1;
}

[[gnu::noinline]] int packRequest(const CodecOps& codec, unsigned number, char* out, int& outLen,
                                  char* body, int bodyLen, const Params& params) {
  // The caller's output from its start, `outLen` bytes written, no size given.
  OutBuffer buffer(reinterpret_cast<u8*>(out), outLen, INT32_MAX);
  return packed(
      codec.packRequest(*find(number)->request[codec.index], buffer, body, bodyLen, params), buffer,
      outLen);
}

[[gnu::noinline]] int restoreRequest(const CodecOps& codec, unsigned number, char* in, int inLen,
                                     char** out, int& outLen, const Params& params) {
  return codec.restoreRequest(*find(number)->request[codec.index], InView(in, inLen), out, outLen,
                              params, {}) == TRDCOMP_OK;
}

[[gnu::noinline]] int packAnswer(const CodecOps& codec, unsigned number, char* out, int& outLen,
                                 const tagANS_Proc* proc, char* s0, char* s1, char* s2, char* s3,
                                 char* s4, const Params& params) {
  if (!proc) return 0;
  char* const sections[5] = {s0, s1, s2, s3, s4};
  OutBuffer buffer(reinterpret_cast<u8*>(out), outLen, INT32_MAX);
  return packed(
      codec.packAnswer(*find(number)->answerPack[codec.index], buffer, *proc, sections, params),
      buffer, outLen);
}

[[gnu::noinline]] int restoreAnswer(const CodecOps& codec, unsigned number, char* in, int inLen,
                                    char** out, int& outLen, const Params& params) {
  return codec.restoreAnswer(*find(number)->answerRestore[codec.index], InView(in, inLen), out,
                             outLen, params, {}) == TRDCOMP_OK;
}

}  // namespace

using trdcomp::framing::kCodec2008;
using trdcomp::framing::kCodec2011;
using trdcomp::framing::Slots;

#define TRDCOMP_DEFINE_REQUEST_ROUTINES(n)                                                        \
  int CTrdCompData::PackReq2008_##n(char* out, int& outLen, char* body, int bodyLen, char flag) { \
    return packRequest(kCodec2008, n, out, outLen, body, bodyLen, Params{flag});                  \
  }                                                                                               \
  int CTrdCompData::RestoreReq2008_##n(char* in, int inLen, char** out, int& outLen, char flag) { \
    return restoreRequest(kCodec2008, n, in, inLen, out, outLen, Params{flag});                   \
  }                                                                                               \
  int CTrdCompData::PackReq2011_Fast_##n(char* out, int& outLen, char* body, int bodyLen,         \
                                         int nibble) {                                            \
    return packRequest(kCodec2011, n, out, outLen, body, bodyLen, Params{0, nibble, Slots::Add}); \
  }                                                                                               \
  int CTrdCompData::RestoreReq2011_Fast_##n(char* in, int inLen, char** out, int& outLen,         \
                                            int nibble) {                                         \
    return restoreRequest(kCodec2011, n, in, inLen, out, outLen, Params{0, nibble});              \
  }

#define TRDCOMP_DEFINE_ANSWER_ROUTINES(n)                                                          \
  int CTrdCompData::PackAns2008_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0, char* s1, \
                                    char* s2, char* s3, char* s4, char flag) {                     \
    return packAnswer(kCodec2008, n, out, outLen, proc, s0, s1, s2, s3, s4, Params{flag});         \
  }                                                                                                \
  int CTrdCompData::RestoreAns2008_##n(char* in, int inLen, char** out, int& outLen, char flag) {  \
    return restoreAnswer(kCodec2008, n, in, inLen, out, outLen, Params{flag});                     \
  }                                                                                                \
  int CTrdCompData::PackAns2011_Fast_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0,      \
                                         char* s1, char* s2, char* s3, char* s4, int nibble) {     \
    return packAnswer(kCodec2011, n, out, outLen, proc, s0, s1, s2, s3, s4,                        \
                      Params{0, nibble, Slots::Add});                                              \
  }                                                                                                \
  int CTrdCompData::RestoreAns2011_Fast_##n(char* in, int inLen, char** out, int& outLen,          \
                                            int nibble) {                                          \
    return restoreAnswer(kCodec2011, n, in, inLen, out, outLen, Params{0, nibble});                \
  }

TRDCOMP_REQUEST_ROUTINES(TRDCOMP_DEFINE_REQUEST_ROUTINES)
TRDCOMP_ANSWER_ROUTINES(TRDCOMP_DEFINE_ANSWER_ROUTINES)
