// Packs one request of function 1002 in the 2008 codec and restores it, as a client and a
// server of the trading API would.
#include <TrdCompData.h>

#include <cstdio>
#include <cstring>
#include <vector>

#pragma pack(push, 1)
struct Request1002 {  // three codes and three texts: the 83-byte request record of 1002
  char codes[3];
  char text32[32];
  char text24a[24];
  char text24b[24];
};
#pragma pack(pop)

int main() {
  Request1002 records[2] = {};
  std::strcpy(records[0].text32, "600036");
  std::strcpy(records[1].text24a, "client-7");
  records[0].codes[0] = 'A';

  tagREQ_HEAD head{};
  head.funcNo = 1002;
  head.flags = 0x00;  // codec nibble 0: the 2008 codec; 0x10 would select the 2011 Fast codec
  head.recCount = 2;
  head.recSize = sizeof(Request1002);

  // The bound is the most that packing these records can write.
  std::vector<char> packed(
      static_cast<std::size_t>(CTrdCompData::PackReqBound(&head, sizeof records)));
  int packedLen = 0;
  if (!CTrdCompData::PackReq2008(packed.data(), packedLen, &head, reinterpret_cast<char*>(records),
                                 sizeof records, 0))
    return 1;

  char* restored = nullptr;
  int restoredLen = 0;
  if (!CTrdCompData::RestoreReq2008(packed.data(), packedLen, &restored, restoredLen, 0)) return 1;
  const auto* back = reinterpret_cast<const Request1002*>(restored + sizeof(tagREQ_HEAD));
  std::printf("raw %zu bytes, packed %d bytes, restored %d bytes: %s / %s\n",
              sizeof head + sizeof records, packedLen, restoredLen, back[0].text32,
              back[1].text24a);
  CTrdCompData::ReleaseAnsData(restored);
  return 0;
}
