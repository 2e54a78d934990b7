/* Each public header compiles alone; the C header as C. */
#include "trdcomp_c.h"

typedef char status_count_is_last[TRDCOMP_STATUS_COUNT == 18 ? 1 : -1];
typedef char request_header_is_76[sizeof(trdcomp_request_header) == 76 ? 1 : -1];
typedef char answer_header_is_96[sizeof(trdcomp_answer_header) == 96 ? 1 : -1];
