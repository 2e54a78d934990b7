// The status codes alone, and the C++ header alone.
#include "trdcomp_status.h"

static_assert(TRDCOMP_ERROR_DICTIONARY_INDEX == 13, "codes keep their values");
