// Framing of the 2008 codec: a body is a sequence of records, each a u32 length followed by the
// record packed field by field. One implementation serves every layout.
#pragma once

#include "TrdCompData.h"
#include "records/layout.h"

namespace trdcomp::codec2008 {

// Appends the request body at out + outLen (the header is already there). Always 1.
int packRequest(const records::Layout& layout, char* out, int& outLen, const char* body,
                int bodyLen, char flag);
// Restores a request into a new buffer of the layout's record size. 1, or 0 when refused.
int restoreRequest(const records::Layout& layout, const char* in, int inLen, char** out,
                   int& outLen, char flag);

// Appends every section of the answer at out + outLen. Always 1.
int packAnswer(const records::AnswerLayout& layout, char* out, int& outLen, const tagANS_Proc* proc,
               char* const sections[5], char flag);
// Restores an answer into a new buffer of the layouts' record sizes. 1, or 0 when refused.
int restoreAnswer(const records::AnswerLayout& layout, const char* in, int inLen, char** out,
                  int& outLen, char flag);

}  // namespace trdcomp::codec2008
