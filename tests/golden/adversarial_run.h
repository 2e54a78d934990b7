// What a build of the library makes of one entry of the adversarial corpus: the pack of a pack
// input, then the restores of the packed bytes and of what derives from them; or the restore of
// a restore input. Only the classic entry points of the public header are used, so the same code
// records the reference bytes against an earlier release and checks the current build.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TrdCompData.h"
#include "adversarial_format.h"

namespace trdcomp::adversarial {

constexpr std::size_t kGuard = 4096;
constexpr unsigned char kGuardByte = 0xCD;

inline Restored restore(Op op, std::uint8_t tag, Bytes in, char flag) {
  Restored r;
  r.tag = tag;
  char* out = nullptr;
  int length = 0;
  char* bytes = in.empty() ? nullptr : reinterpret_cast<char*>(in.data());
  const int inLen = static_cast<int>(in.size());
  r.result = isAnswer(op) ? CTrdCompData::RestoreAns2008(bytes, inLen, &out, length, flag)
                          : CTrdCompData::RestoreReq2008(bytes, inLen, &out, length, flag);
  r.length = length;
  r.null = out == nullptr;
  if (out && r.result == 1 && length > 0) r.bytes.assign(out, out + length);
  CTrdCompData::ReleaseAnsData(out);
  return r;
}

inline Outcome run(const Entry& e) {
  Outcome o;
  const char flag = static_cast<char>(e.flag);
  if (!packs(e.op)) {
    o.restores.push_back(restore(e.op, 0, e.input, flag));
    return o;
  }
  // A zeroed output (the format adds each block's length to its slot) with a guard behind it.
  Bytes out(static_cast<std::size_t>(e.capacity) + kGuard, 0);
  std::memset(out.data() + e.capacity, kGuardByte, kGuard);
  int length = 0;
  Bytes input = e.input;
  if (e.op == kPackRequest) {
    tagREQ_HEAD head;
    std::memcpy(&head, input.data(), sizeof head);
    char* body = reinterpret_cast<char*>(input.data() + sizeof head);
    o.packResult =
        CTrdCompData::PackReq2008(reinterpret_cast<char*>(out.data()), length, &head, body,
                                  static_cast<int>(input.size() - sizeof head), flag);
  } else {
    tagANS_Proc proc;
    std::memcpy(&proc, input.data(), sizeof proc);
    char* sections[5] = {};
    std::size_t at = sizeof proc;
    for (char*& s : sections) {
      const std::uint32_t n = loadLe32(input.data() + at);
      at += 4;
      s = n ? reinterpret_cast<char*>(input.data() + at) : nullptr;
      at += n;
    }
    o.packResult = CTrdCompData::PackAns2008(
        reinterpret_cast<char*>(out.data()), static_cast<int>(e.capacity), length, &proc,
        sections[0], sections[1], sections[2], sections[3], sections[4], flag, e.codecSel);
  }
  for (std::size_t k = 0; k < kGuard; ++k)
    if (out[static_cast<std::size_t>(e.capacity) + k] != kGuardByte) {
      std::fprintf(stderr, "%s: the pack wrote past its output\n", e.name.c_str());
      std::exit(1);
    }
  if (length < 0 || length > e.capacity) length = 0;
  o.packed.assign(out.begin(), out.begin() + length);
  for (const Derived& d : derivedInputs(e.op, o.packed))
    o.restores.push_back(restore(e.op, d.tag, d.bytes, flag));
  return o;
}

}  // namespace trdcomp::adversarial
