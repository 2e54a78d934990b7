// Packs and restores a sample request and answer of every function number in both codecs, and
// runs the field primitives over edge values, then prints one digest of all the bytes that came
// out. Built for Linux and for Windows, the two must print the same digest: no field may depend
// on the width of `long`, on the signedness of `char` or on the compiler's struct packing.
//
// On Windows the program loads trdcomp.dll itself, resolves with GetProcAddress every
// MSVC-decorated name that the import library's definition file (the first argument) lists,
// and calls the entry points and primitives found under those names, as a program built with
// MSVC calls them. An optional second argument is the digest to expect.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

#include "frame/catalogue.h"
#include "samples.h"

namespace {

using namespace trdcomp::samples;

// The entry points and primitives the digest goes through.
struct Api {
  decltype(&CTrdCompData::PackReq2008) packReq = nullptr;
  decltype(&CTrdCompData::RestoreReq2008) restoreReq = nullptr;
  decltype(&CTrdCompData::PackAns2008) packAns = nullptr;
  decltype(&CTrdCompData::RestoreAns2008) restoreAns = nullptr;
  decltype(&CTrdCompData::ReleaseAnsData) release = nullptr;
  decltype(&CTrdCompData::VersionNumber) version = nullptr;
  decltype(&CKtNetCompressHelper::NCH_compress_int) compressInt = nullptr;
  decltype(&CKtNetCompressHelper::NCH_decompress_int) decompressInt = nullptr;
  decltype(&CKtNetCompressHelper::NCH_compress_int64) compressInt64 = nullptr;
  decltype(&CKtNetCompressHelper::NCH_decompress_int64) decompressInt64 = nullptr;
  decltype(&Fast_encode_int64) encodeInt64 = nullptr;
  decltype(&Fast_decode_int64) decodeInt64 = nullptr;
  decltype(&Fast_encode_decimal3) encodeDecimal3 = nullptr;
  decltype(&Fast_decode_decimal3) decodeDecimal3 = nullptr;
};

// 64-bit FNV-1a over everything that came out, lengths and results included.
struct Digest {
  std::uint64_t h = 0xcbf29ce484222325ull;
  void add(const void* data, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      h ^= static_cast<const unsigned char*>(data)[i];
      h *= 0x100000001b3ull;
    }
  }
  void add(std::int64_t v) {
    unsigned char le[8];
    for (int i = 0; i < 8; ++i)
      le[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(v) >> (8 * i));
    add(le, 8);
  }
  void add(const Bytes& b) {
    add(static_cast<std::int64_t>(b.size()));
    add(b.data(), b.size());
  }
};

Restored restore(const Api& api, decltype(Api::restoreReq) entry, Bytes in) {
  Restored r;
  char* out = nullptr;
  r.result =
      entry(reinterpret_cast<char*>(in.data()), static_cast<int>(in.size()), &out, r.length, 0);
  r.null = out == nullptr;
  if (out && r.length > 0) r.bytes.assign(out, out + r.length);
  api.release(out);
  return r;
}

int messages(const Api& api, Digest& digest) {
  int failures = 0, count = 0;
  std::vector<std::uint32_t> numbers;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    numbers.push_back(e->number);
  numbers.push_back(7000);  // unknown: passes through
  for (std::uint32_t number : numbers) {
    for (int nibble : {0, 1}) {
      Request q = makeRequest(number, nibble, 3, number * 7 + nibble);
      Bytes packed(2 * q.body.size() + 4096, 0);
      int length = 0;
      api.packReq(reinterpret_cast<char*>(packed.data()), length, &q.head,
                  reinterpret_cast<char*>(q.body.data()), static_cast<int>(q.body.size()), 0);
      packed.resize(static_cast<std::size_t>(length));
      Restored r = restore(api, api.restoreReq, packed);
      const std::string q_problem = checkRequest(q, nibble, packed, r);

      Answer a = makeAnswer(number, nibble != 0, 3, number * 13 + nibble);
      std::size_t raw = 0;
      char* sections[5];
      for (int s = 0; s < 5; ++s) {
        raw += a.sections[s].size();
        sections[s] =
            a.sections[s].empty() ? nullptr : reinterpret_cast<char*>(a.sections[s].data());
      }
      Bytes answer(2 * raw + 4096, 0);
      int answerLength = 0;
      api.packAns(reinterpret_cast<char*>(answer.data()), static_cast<int>(answer.size()),
                  answerLength, &a.proc, sections[0], sections[1], sections[2], sections[3],
                  sections[4], 0, nibble << 4);
      answer.resize(static_cast<std::size_t>(answerLength));
      Restored ra = restore(api, api.restoreAns, answer);
      const std::string a_problem = checkAnswer(a, nibble, answer, ra);

      for (const std::string& problem : {q_problem, a_problem})
        if (!problem.empty()) {
          std::printf("%u nibble %d: %s\n", number, nibble, problem.c_str());
          ++failures;
        }
      for (const Restored* x : {&r, &ra}) {
        digest.add(x->result);
        digest.add(x->length);
      }
      digest.add(packed), digest.add(r.bytes), digest.add(answer), digest.add(ra.bytes);
      count += 2;
    }
  }
  std::printf("%d messages packed and restored\n", count);
  return failures;
}

void primitives(const Api& api, Digest& digest) {
  const std::int64_t values[] = {0,
                                 1,
                                 -1,
                                 63,
                                 -64,
                                 127,
                                 128,
                                 -129,
                                 (1 << 29) - 1,
                                 -(1 << 29),
                                 INT32_MAX,
                                 INT32_MIN,
                                 1ll << 40,
                                 -(1ll << 59),
                                 INT64_MAX,
                                 INT64_MIN};
  for (std::int64_t v : values) {
    char out[16] = {};
    const int narrow = static_cast<int>(static_cast<std::uint32_t>(v));
    int n = api.compressInt(out, narrow), back = 0;
    digest.add(out, static_cast<std::size_t>(n));
    digest.add(api.decompressInt(out, back)), digest.add(back);
    std::int64_t wide = 0;
    n = api.compressInt64(out, v);
    digest.add(out, static_cast<std::size_t>(n));
    digest.add(api.decompressInt64(out, wide)), digest.add(wide);
    n = api.encodeInt64(out, v);
    digest.add(out, static_cast<std::size_t>(n));
    digest.add(api.decodeInt64(out, wide)), digest.add(wide);
    double d = 0;
    n = api.encodeDecimal3(out, static_cast<double>(v % 100000000) / 1000.0);
    digest.add(out, static_cast<std::size_t>(n));
    digest.add(api.decodeDecimal3(out, d));
    digest.add(&d, sizeof d);
  }
}

#ifdef _WIN32
// Resolves every decorated name of the definition file; the Api comes from the ones it names.
bool resolve(const char* defFile, Api& api) {
  HMODULE dll = LoadLibraryA("trdcomp.dll");
  if (!dll) {
    std::printf("trdcomp.dll did not load (error %lu)\n", GetLastError());
    return false;
  }
  std::ifstream def(defFile);
  std::string line;
  int names = 0, missing = 0;
  while (std::getline(def, line)) {
    const std::size_t open = line.find("\"?");
    if (open == std::string::npos) continue;
    const std::string name = line.substr(open + 1, line.find('"', open + 1) - open - 1);
    ++names;
    if (!GetProcAddress(dll, name.c_str())) {
      if (++missing <= 10) std::printf("not exported: %s\n", name.c_str());
    }
  }
  std::printf("%d decorated names resolved, %d missing\n", names - missing, missing);
  if (names == 0 || missing) return false;

  // What MSVC calls these functions of the public header.
  bool found = true;
  auto get = [&](auto& slot, const char* name) {
    slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(
        reinterpret_cast<void*>(GetProcAddress(dll, name)));
    if (!slot) std::printf("not exported: %s\n", name), found = false;
  };
  get(api.packReq, "?PackReq2008@CTrdCompData@@SAHPEADAEAHPEAUtagREQ_HEAD@@0HD@Z");
  get(api.restoreReq, "?RestoreReq2008@CTrdCompData@@SAHPEADHPEAPEADAEAHD@Z");
  get(api.packAns, "?PackAns2008@CTrdCompData@@SAHPEADHAEAHPEAUtagANS_Proc@@00000DH@Z");
  get(api.restoreAns, "?RestoreAns2008@CTrdCompData@@SAHPEADHPEAPEADAEAHD@Z");
  get(api.release, "?ReleaseAnsData@CTrdCompData@@SAXPEAD@Z");
  get(api.version, "?VersionNumber@CTrdCompData@@SAHXZ");
  get(api.compressInt, "?NCH_compress_int@CKtNetCompressHelper@@SAHPEADH@Z");
  get(api.decompressInt, "?NCH_decompress_int@CKtNetCompressHelper@@SAHPEADAEAH@Z");
  get(api.compressInt64, "?NCH_compress_int64@CKtNetCompressHelper@@SAHPEAD_J@Z");
  get(api.decompressInt64, "?NCH_decompress_int64@CKtNetCompressHelper@@SAHPEADAEA_J@Z");
  get(api.encodeInt64, "?Fast_encode_int64@@YAHPEAD_J@Z");
  get(api.decodeInt64, "?Fast_decode_int64@@YAHPEADAEA_J@Z");
  get(api.encodeDecimal3, "?Fast_encode_decimal3@@YAHPEADN@Z");
  get(api.decodeDecimal3, "?Fast_decode_decimal3@@YAHPEADAEAN@Z");
  return found;
}
#else
bool resolve(const char*, Api& api) {
  api = {&CTrdCompData::PackReq2008,
         &CTrdCompData::RestoreReq2008,
         &CTrdCompData::PackAns2008,
         &CTrdCompData::RestoreAns2008,
         &CTrdCompData::ReleaseAnsData,
         &CTrdCompData::VersionNumber,
         &CKtNetCompressHelper::NCH_compress_int,
         &CKtNetCompressHelper::NCH_decompress_int,
         &CKtNetCompressHelper::NCH_compress_int64,
         &CKtNetCompressHelper::NCH_decompress_int64,
         &Fast_encode_int64,
         &Fast_decode_int64,
         &Fast_encode_decimal3,
         &Fast_decode_decimal3};
  return true;
}
#endif

}  // namespace

int main(int argc, char** argv) {
  Api api;
  if (!resolve(argc > 1 ? argv[1] : "", api)) return 1;
  if (api.version() != TRDCOMP_VERSION_NUMBER) {
    std::printf("library version %d, header %d\n", api.version(), TRDCOMP_VERSION_NUMBER);
    return 1;
  }
  Digest digest;
  const int failures = messages(api, digest);
  primitives(api, digest);
  char hex[17];
  std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(digest.h));
  std::printf("digest %s\n", hex);
  if (failures) return 1;
  if (argc > 2 && std::strcmp(argv[2], hex) != 0) {
    std::printf("expected digest %s (the Linux build's)\n", argv[2]);
    return 1;
  }
  return 0;
}
