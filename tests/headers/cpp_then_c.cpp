// The C++ header, then the C header.
#include "TrdCompData.h"
#include "trdcomp_c.h"

static_assert(sizeof(trdcomp_request_header) == sizeof(tagREQ_HEAD));
