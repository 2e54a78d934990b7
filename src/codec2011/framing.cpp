#include "codec2011/framing.h"

namespace trdcomp::codec2011 {

// The 2011 Fast codec is not built yet: packing writes no body, restoring refuses.
int packRequest(const records::Layout&, char*, int&, const char*, int, int) {
  return 1;
}
int restoreRequest(const records::Layout&, const char*, int, char**, int&, int) {
  return 0;
}
int packAnswer(const records::AnswerLayout&, char*, int&, const tagANS_Proc*, char* const[5], int) {
  return 1;
}
int restoreAnswer(const records::AnswerLayout&, const char*, int, char**, int&, int) {
  return 0;
}

}  // namespace trdcomp::codec2011
