// The output of a pack: `capacity` bytes at `base`, of which `length` are written so far.
#pragma once

#include <cstdint>
#include <cstring>

#include "primitives/bytes.h"

namespace trdcomp {

// A record is encoded in place when its largest encoding fits in what is left of the buffer;
// otherwise it goes to scratch memory and is copied only if it turns out to fit. So nothing is
// ever written past the capacity, and a message that fits packs exactly as it would with room to
// spare. Once something did not fit, the buffer is failed and takes nothing more.
class OutBuffer {
 public:
  OutBuffer(u8* base, std::int64_t length, std::int64_t capacity)
      : base_(base), length_(length), capacity_(capacity) {}

  u8* base() const { return base_; }
  std::int64_t length() const { return length_; }
  bool failed() const { return failed_; }
  std::int64_t room() const { return capacity_ - length_; }
  bool inPlace(const u8* at) const { return at == base_ + length_; }

  // Fails the buffer at once unless `least` more bytes fit: a caller that knows the smallest
  // size of what it is about to write spares the work of writing what cannot fit.
  bool expect(std::int64_t least) {
    if (least > room()) failed_ = true;
    return !failed_;
  }

  // Where to write up to `most` bytes at the end of the output; null (and the buffer failed)
  // when neither the output nor scratch memory can take them.
  u8* reserve(std::int64_t most) {
    if (!failed_ && most <= capacity_ - length_) return base_ + length_;
    if (most > scratchSize_) {
      scratch_ = Scratch<u8>(most);
      scratchSize_ = scratch_ ? most : 0;
    }
    if (!scratch_) failed_ = true;
    return scratch_.get();
  }
  // `n` bytes were written where reserve() pointed.
  void commit(const u8* at, std::int64_t n) {
    if (failed_) return;
    if (!inPlace(at)) {
      if (n > capacity_ - length_) {
        failed_ = true;
        return;
      }
      std::memcpy(base_ + length_, at, static_cast<std::size_t>(n));
    }
    length_ += n;
  }
  void append(const void* data, std::int64_t n) {
    if (n <= 0 || failed_) return;
    if (n > capacity_ - length_) {
      failed_ = true;
      return;
    }
    std::memcpy(base_ + length_, data, static_cast<std::size_t>(n));
    length_ += n;
  }
  void appendU16(std::uint16_t v) {
    u8 b[2];
    storeU16(b, v);
    append(b, 2);
  }

 private:
  u8* base_;
  std::int64_t length_;
  std::int64_t capacity_;
  bool failed_ = false;
  Scratch<u8> scratch_;
  std::int64_t scratchSize_ = 0;
};

}  // namespace trdcomp
