// Feeds arbitrary bytes to the C interface, as a program that calls it through a foreign
// function interface would, and to the restores into the caller's buffer. The first byte picks
// the direction (bits 0-1: detect, request, answer, detect) and the 2008 codec flag (bit 2); the
// second the restore limit; the rest is the message, explained, restored and packed with every
// codec choice; a restored message is packed and restored again. Every call must keep its
// promises: a buffer on success, none on failure, and an explanation that covers every byte of
// its input once, in order. The restores into the caller's buffer, and the lengths they
// announce, must agree with the allocating restores of the same bytes, as requests and as
// answers (restore_into_check.h). Seeds are real messages of every function number
// (fuzz/make_seeds).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "../tests/restore_into_check.h"
#include "trdcomp_c.h"

namespace {

constexpr int kDirections[4] = {TRDCOMP_DETECT, TRDCOMP_REQUEST, TRDCOMP_ANSWER, TRDCOMP_DETECT};
constexpr int kCodecs[3] = {TRDCOMP_CODEC_HEADER, TRDCOMP_CODEC_2008, TRDCOMP_CODEC_2011};

// 0 (the library's default), small limits that cut real messages short, or up to 4 MiB.
std::size_t limitOf(std::uint8_t pick) {
  if (pick == 0) return 0;
  if (pick < 0x80) return std::size_t(pick) * 8;
  return std::size_t(pick - 0x7F) << 15;
}

// What every call promises: a buffer on success; on failure nothing, the code repeated in the
// error record, and the fault's offset inside the `inLen` bytes given (or -1).
void check(int status, void* out, std::size_t outLen, const trdcomp_error& err, std::size_t inLen) {
  if (status == TRDCOMP_OK) {
    if (!out) std::abort();
    return;
  }
  if (out || outLen != 0 || err.code != status || status < 0 || err.offset < -1 ||
      err.offset > std::int64_t(inLen))
    std::abort();
}

void explain(const std::uint8_t* message, std::size_t length, int direction, int flag,
             std::size_t limit) {
  trdcomp_explanation* e = nullptr;
  trdcomp_error err{};
  const int status = trdcomp_explain(message, length, direction, flag, limit, &e, &err);
  if (status != TRDCOMP_OK) {
    if (e || err.code != status) std::abort();
    return;
  }
  std::int64_t at = 0;
  for (std::size_t k = 0; k < e->item_count; ++k) {
    const trdcomp_item& i = e->items[k];
    if (i.offset != at || i.length <= 0) std::abort();
    if (i.what == TRDCOMP_ITEM_FIELD &&
        (i.value_offset < 0 || i.value_offset + i.width > std::int64_t(e->values_length)))
      std::abort();
    at += i.length;
  }
  if (at != std::int64_t(length)) std::abort();
  trdcomp_release(e);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const int direction = kDirections[data[0] & 3];
  const int flag = (data[0] >> 2) & 1;
  const std::size_t limit = limitOf(data[1]);
  // An exact-size copy, so that a read past the end is caught.
  const std::size_t length = size - 2;
  auto* message = static_cast<std::uint8_t*>(std::malloc(length ? length : 1));
  for (std::size_t i = 0; i < length; ++i) message[i] = data[2 + i];

  explain(message, length, direction, flag, limit);

  trdcomp_error err{};
  void* restored = nullptr;
  std::size_t restoredLen = 0;
  int status =
      trdcomp_restore(message, length, direction, flag, limit, &restored, &restoredLen, &err);
  check(status, restored, restoredLen, err, length);
  if (status == TRDCOMP_OK) {
    if (limit && restoredLen > limit) std::abort();
    void* repacked = nullptr;
    std::size_t repackedLen = 0;
    // A restored message need not pack again (a 2011 count past 16 bits restores from plain
    // records but cannot be sent packed); what does pack is restored once more.
    status = trdcomp_pack(restored, restoredLen, direction, TRDCOMP_CODEC_HEADER, flag, &repacked,
                          &repackedLen, &err);
    check(status, repacked, repackedLen, err, restoredLen);
    if (status == TRDCOMP_OK) {
      void* again = nullptr;
      std::size_t againLen = 0;
      status =
          trdcomp_restore(repacked, repackedLen, direction, flag, limit, &again, &againLen, &err);
      check(status, again, againLen, err, repackedLen);
      trdcomp_release(again);
    }
    trdcomp_release(repacked);
  }
  trdcomp_release(restored);

  for (int codec : kCodecs) {
    void* packed = nullptr;
    std::size_t packedLen = 0;
    status = trdcomp_pack(message, length, direction, codec, flag, &packed, &packedLen, &err);
    check(status, packed, packedLen, err, length);
    if (status == TRDCOMP_OK) {
      // What a pack makes is restored too. A caller's raw message is not held to everything a
      // restore checks, so only the promises of the call hold here, not its success.
      void* back = nullptr;
      std::size_t backLen = 0;
      status = trdcomp_restore(packed, packedLen, direction, flag, limit, &back, &backLen, &err);
      check(status, back, backLen, err, packedLen);
      trdcomp_release(back);
    }
    trdcomp_release(packed);
  }
  // Messages restored to more than 4 MiB are checked by their length only (the allocator refuses
  // the largest under the fuzzer's limits).
  for (bool answer : {false, true}) {
    const std::string difference =
        trdcomp::test::checkInto(answer, std::vector<unsigned char>(message, message + length),
                                 static_cast<char>(flag), 1 << 22);
    if (!difference.empty()) {
      std::fprintf(stderr, "%s restore into the caller's buffer: %s\n",
                   answer ? "answer" : "request", difference.c_str());
      std::abort();
    }
  }
  std::free(message);
  return 0;
}
