// The C header, then the C++ header: both compile together, and their codes are one set.
#include "trdcomp_c.h"
#include "TrdCompData.h"

static_assert(TRDCOMP_OK == 0 && TRDCOMP_STATUS_COUNT == TRDCOMP_ERROR_UNKNOWN_FUNCTION + 1);
