// Shared by the C interface: which layout rows describe a number's records, and the error
// report.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "frame/catalogue.h"
#include "records/layout.h"
#include "trdcomp_c.h"

namespace trdcomp::capi {

// The layouts of a number's records in one direction and codec, as a restored message holds
// them. `form` is one of the TRDCOMP_FORM_* values.
struct Records {
  int form = TRDCOMP_FORM_PASS_THROUGH;
  int sectionCount = 0;
  const records::Layout* sections[TRDCOMP_MAX_SECTIONS] = {};
};

// 0 for the 2008 codec, 1 for the 2011 Fast codec, -1 for anything else.
int codecIndex(int codec);

Records recordsOf(const frame::Entry& entry, int direction, int codecIndex);

// Fills `err` (when not null) and returns `code`.
int fail(trdcomp_error* err, int code, std::int64_t offset, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

}  // namespace trdcomp::capi
