// Framing of the 2011 Fast codec: record blocks with a u16 length and a presence map, fields
// left out when they equal the previous record's. One implementation serves every layout.
#pragma once

#include "TrdCompData.h"
#include "records/layout.h"

namespace trdcomp::codec2011 {

int packRequest(const records::Layout& layout, char* out, int& outLen, const char* body,
                int bodyLen, int nibble);
int restoreRequest(const records::Layout& layout, const char* in, int inLen, char** out,
                   int& outLen, int nibble);
int packAnswer(const records::AnswerLayout& layout, char* out, int& outLen, const tagANS_Proc* proc,
               char* const sections[5], int nibble);
int restoreAnswer(const records::AnswerLayout& layout, const char* in, int inLen, char** out,
                  int& outLen, int nibble);

}  // namespace trdcomp::codec2011
