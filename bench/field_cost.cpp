// Runs one restore or pack of a request many times, for counting instructions per field under
// callgrind (scripts/field-cost runs it twice and takes the difference):
//   trdcomp_field_cost NUMBER restore|into|pack 2008|2011 ITERATIONS [RECORDS]
// `into` restores into a buffer of the caller's; RECORDS defaults to 10. Prints the fields one
// message holds, so that the caller can divide.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "realistic.h"

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    std::fprintf(stderr, "usage: %s NUMBER restore|into|pack 2008|2011 ITERATIONS [RECORDS]\n",
                 argv[0]);
    return 2;
  }
  const auto number = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
  const bool into = std::strcmp(argv[2], "into") == 0;
  const bool restore = into || std::strcmp(argv[2], "restore") == 0;
  const int codec = std::strcmp(argv[3], "2011") == 0 ? 1 : 0;
  const long iterations = std::strtol(argv[4], nullptr, 10);
  const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
  if (!e || !e->request[codec]) {
    std::fprintf(stderr, "no request layout for %u\n", number);
    return 2;
  }
  const int records = argc == 6 ? std::atoi(argv[5]) : 10;
  auto sent = trdcomp::realistic::makeRequest(number, codec, records, number);
  const trdcomp::samples::Bytes packed = trdcomp::samples::packRequest(sent.head, sent.body);
  // Room for the packed message, or for the restored one.
  std::vector<char> out(static_cast<std::size_t>(std::max<long long>(
      CTrdCompData::PackReqBound(&sent.head, static_cast<int>(sent.body.size())),
      CTrdCompData::RestoreReqLength(reinterpret_cast<const char*>(packed.data()),
                                     static_cast<int>(packed.size())))));
  unsigned long sink = 0;
  for (long i = 0; i < iterations; ++i) {
    if (into) {
      int length = 0;
      CTrdCompData::RestoreReq2008Into(
          reinterpret_cast<char*>(const_cast<unsigned char*>(packed.data())),
          static_cast<int>(packed.size()), out.data(), static_cast<int>(out.size()), length, 0);
      sink += static_cast<unsigned long>(length);
    } else if (restore) {
      char* restored = nullptr;
      int length = 0;
      CTrdCompData::RestoreReq2008(
          reinterpret_cast<char*>(const_cast<unsigned char*>(packed.data())),
          static_cast<int>(packed.size()), &restored, length, 0);
      sink += static_cast<unsigned long>(length);
      CTrdCompData::ReleaseAnsData(restored);
    } else {
      int length = 0;
      CTrdCompData::PackReq2008(out.data(), length, &sent.head,
                                reinterpret_cast<char*>(sent.body.data()),
                                static_cast<int>(sent.body.size()), 0);
      sink += static_cast<unsigned long>(length);
    }
  }
  std::printf("fields %d sink %lu\n", records * e->request[codec]->fieldCount, sink);
  return 0;
}
