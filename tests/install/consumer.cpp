// Built against an installed trdcomp with CMake or pkg-config, in the compiler's default
// language mode: checks that the library loaded is the one the header describes, then packs
// and restores a request of two records in each codec.
#include <TrdCompData.h>

#include <cstdio>
#include <cstring>

int main() {
  char header[32];
  std::snprintf(header, sizeof header, "%d.%d.%d", TRDCOMP_VERSION_MAJOR, TRDCOMP_VERSION_MINOR,
                TRDCOMP_VERSION_PATCH);
  if (CTrdCompData::VersionNumber() != TRDCOMP_VERSION_NUMBER ||
      std::strcmp(CTrdCompData::VersionString(), header) != 0) {
    std::printf("header %s (%d), library %s (%d)\n", header, TRDCOMP_VERSION_NUMBER,
                CTrdCompData::VersionString(), CTrdCompData::VersionNumber());
    return 1;
  }
  char records[2][83] = {};  // request 1002: three codes and three texts
  std::strcpy(records[0] + 3, "600036");
  std::strcpy(records[1] + 35, "client-7");
  const char codecs[] = {0x00, 0x10};  // the 2008 codec, the 2011 Fast codec
  for (char flags : codecs) {
    tagREQ_HEAD head{};
    head.funcNo = 1002;
    head.flags = flags;
    head.recCount = 2;
    head.recSize = 83;
    char packed[1024] = {};
    int packedLen = 0;
    CTrdCompData::PackReq2008(packed, packedLen, &head, records[0], sizeof records, 0);
    char* restored = nullptr;
    int restoredLen = 0;
    const bool same = CTrdCompData::RestoreReq2008(packed, packedLen, &restored, restoredLen, 0) &&
                      restoredLen == 76 + static_cast<int>(sizeof records) &&
                      std::memcmp(restored + 76, records, sizeof records) == 0;
    CTrdCompData::ReleaseAnsData(restored);
    if (!same) {
      std::printf("codec nibble %d: the request did not come back\n", flags >> 4);
      return 1;
    }
  }
  std::printf("trdcomp %s: requests packed and restored in both codecs\n",
              CTrdCompData::VersionString());
  return 0;
}
