// The version of the loaded library, which may differ from the header a caller was built with.
#include "TrdCompData.h"

// The build passes the version of its project(); the header's macros must agree with it.
#ifndef TRDCOMP_PROJECT_VERSION_NUMBER
#error "TRDCOMP_PROJECT_VERSION_NUMBER is set by the build from project(... VERSION ...)"
#endif
static_assert(TRDCOMP_VERSION_NUMBER == TRDCOMP_PROJECT_VERSION_NUMBER,
              "TRDCOMP_VERSION_* in TrdCompData.h differ from the version in CMakeLists.txt");

#define TRDCOMP_TEXT(x) #x
#define TRDCOMP_VERSION_TEXT(a, b, c) TRDCOMP_TEXT(a) "." TRDCOMP_TEXT(b) "." TRDCOMP_TEXT(c)

int CTrdCompData::VersionNumber() {
  return TRDCOMP_VERSION_NUMBER;
}

const char* CTrdCompData::VersionString() {
  return TRDCOMP_VERSION_TEXT(TRDCOMP_VERSION_MAJOR, TRDCOMP_VERSION_MINOR, TRDCOMP_VERSION_PATCH);
}
