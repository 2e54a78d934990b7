// The exported per-function routines, generated from the header's lists of numbers. Each is a
// thin forwarder: the catalogue names the layout that the number's routine serves in its codec
// and direction, and the codec's framing does the work.
#include "TrdCompData.h"
#include "codec2008/framing.h"
#include "codec2011/framing.h"
#include "frame/catalogue.h"

namespace {

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

}  // namespace

namespace c2008 = trdcomp::codec2008;
namespace c2011 = trdcomp::codec2011;

#define TRDCOMP_DEFINE_REQUEST_ROUTINES(n)                                                        \
  int CTrdCompData::PackReq2008_##n(char* out, int& outLen, char* body, int bodyLen, char flag) { \
    return c2008::packRequest(request(n, 0), out, outLen, body, bodyLen, flag);                   \
  }                                                                                               \
  int CTrdCompData::RestoreReq2008_##n(char* in, int inLen, char** out, int& outLen, char flag) { \
    return c2008::restoreRequest(request(n, 0), in, inLen, out, outLen, flag);                    \
  }                                                                                               \
  int CTrdCompData::PackReq2011_Fast_##n(char* out, int& outLen, char* body, int bodyLen,         \
                                         int nibble) {                                            \
    return c2011::packRequest(request(n, 1), out, outLen, body, bodyLen, nibble);                 \
  }                                                                                               \
  int CTrdCompData::RestoreReq2011_Fast_##n(char* in, int inLen, char** out, int& outLen,         \
                                            int nibble) {                                         \
    return c2011::restoreRequest(request(n, 1), in, inLen, out, outLen, nibble);                  \
  }

#define TRDCOMP_DEFINE_ANSWER_ROUTINES(n)                                                          \
  int CTrdCompData::PackAns2008_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0, char* s1, \
                                    char* s2, char* s3, char* s4, char flag) {                     \
    char* const sections[5] = {s0, s1, s2, s3, s4};                                                \
    return c2008::packAnswer(packing(n, 0), out, outLen, proc, sections, flag);                    \
  }                                                                                                \
  int CTrdCompData::RestoreAns2008_##n(char* in, int inLen, char** out, int& outLen, char flag) {  \
    return c2008::restoreAnswer(restoring(n, 0), in, inLen, out, outLen, flag);                    \
  }                                                                                                \
  int CTrdCompData::PackAns2011_Fast_##n(char* out, int& outLen, tagANS_Proc* proc, char* s0,      \
                                         char* s1, char* s2, char* s3, char* s4, int nibble) {     \
    char* const sections[5] = {s0, s1, s2, s3, s4};                                                \
    return c2011::packAnswer(packing(n, 1), out, outLen, proc, sections, nibble);                  \
  }                                                                                                \
  int CTrdCompData::RestoreAns2011_Fast_##n(char* in, int inLen, char** out, int& outLen,          \
                                            int nibble) {                                          \
    return c2011::restoreAnswer(restoring(n, 1), in, inLen, out, outLen, nibble);                  \
  }

TRDCOMP_REQUEST_ROUTINES(TRDCOMP_DEFINE_REQUEST_ROUTINES)
TRDCOMP_ANSWER_ROUTINES(TRDCOMP_DEFINE_ANSWER_ROUTINES)
