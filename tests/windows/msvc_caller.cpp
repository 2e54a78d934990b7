// A program with MSVC's ABI: clang compiles it for x86_64-pc-windows-msvc against the public
// header, so every call names its function as MSVC decorates it, and lld-link links it against
// trdcomp.lib, the import library made for MSVC's linker. No C++ runtime: it starts at
// mainCRTStartup and uses a few functions of the system's msvcrt.dll.
//
// Run under Wine against the mingw-built DLL, it packs and restores requests and runs field
// primitives, and checks the bytes against values worked out by hand from the format.
#include "TrdCompData.h"

extern "C" {
__declspec(dllimport) int printf(const char*, ...);
__declspec(dllimport) int fflush(void*);
__declspec(dllimport) int memcmp(const void*, const void*, decltype(sizeof 0));
}

namespace {

int failures = 0;

void check(bool ok, const char* what) {
  if (!ok) {
    printf("msvc caller: %s\n", what);
    ++failures;
  }
}

bool same(const char* a, const char* b, int n) {
  return memcmp(a, b, static_cast<decltype(sizeof 0)>(n)) == 0;
}

char records[2][83];  // request 1002: three codes and three texts of 32, 24 and 24 bytes
char packed[1024];

void requests() {
  const char code[] = "600036", client[] = "client-7";
  for (int i = 0; code[i]; ++i) records[0][3 + i] = code[i];
  for (int i = 0; client[i]; ++i) records[1][35 + i] = client[i];
  const char codecs[] = {0x00, 0x10};  // the 2008 codec, the 2011 Fast codec
  for (char flags : codecs) {
    tagREQ_HEAD head{};
    head.funcNo = 1002;
    head.flags = flags;
    head.recCount = 2;
    head.recSize = 83;
    for (char& c : packed) c = 0;
    int packedLen = 0;
    CTrdCompData::PackReq2008(packed, packedLen, &head, records[0], sizeof records, 0);
    check(packedLen > 76 && packedLen < 76 + static_cast<int>(sizeof records), "packed length");
    char* restored = nullptr;
    int restoredLen = 0;
    check(CTrdCompData::RestoreReq2008(packed, packedLen, &restored, restoredLen, 0) == 1,
          "restore refused");
    check(restoredLen == 76 + static_cast<int>(sizeof records) && restored &&
              same(restored + 76, records[0], sizeof records),
          "records did not come back");
    CTrdCompData::ReleaseAnsData(restored);
  }
}

void primitives() {
  // 2008 compact integer: the first byte holds the sign, the 2-bit length code and the low five
  // bits of the magnitude, the next bytes the rest, least significant first. 100000 is
  // 3125 * 32: low bits 0, then 3125 = 0x0C35 in two more bytes (length code 2).
  char out[16] = {};
  int value = 0;
  check(CKtNetCompressHelper::NCH_compress_int(out, 5) == 1 && out[0] == 5, "compact 5");
  check(CKtNetCompressHelper::NCH_decompress_int(out, value) == 1 && value == 5, "compact 5 back");
  check(CKtNetCompressHelper::NCH_compress_int(out, -100000) == 3 && same(out, "\xC0\x35\x0C", 3),
        "compact -100000");
  check(CKtNetCompressHelper::NCH_decompress_int(out, value) == 3 && value == -100000,
        "compact -100000 back");
  // 2011 stop-bit integer: seven bits a byte, most significant first, bit 7 ends the field.
  check(Fast_encode_int64(out, 1000) == 2 && out[0] == 0x07 && out[1] == char(0xE8),
        "stop-bit 1000");
  long long wide = 0;
  check(Fast_decode_int64(out, wide) == 2 && wide == 1000, "stop-bit 1000 back");
  check(Fast_size_int64(-1) == 1, "stop-bit size of -1");
}

}  // namespace

extern "C" int mainCRTStartup() {
  check(CTrdCompData::VersionNumber() == TRDCOMP_VERSION_NUMBER, "library version");
  requests();
  primitives();
  printf("msvc caller: %s, %d failures\n", CTrdCompData::VersionString(), failures);
  fflush(nullptr);
  return failures ? 1 : 0;
}
