// Little-endian loads and stores, and the bounded view through which every decoder reads.
#pragma once

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

// 16-byte loads and stores: every x86-64 compiler has them.
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define TRDCOMP_SSE2 1
#else
#define TRDCOMP_SSE2 0
#endif

// For the bodies of the record interpreters' loops: a call per field costs more than the field.
#if defined(_MSC_VER) && !defined(__clang__)
#define TRDCOMP_INLINE __forceinline
#else
#define TRDCOMP_INLINE inline __attribute__((always_inline))
#endif
// The same for a lambda: written after its parameter list.
#if defined(_MSC_VER) && !defined(__clang__)
#define TRDCOMP_INLINE_LAMBDA
#else
#define TRDCOMP_INLINE_LAMBDA __attribute__((always_inline))
#endif

namespace trdcomp {

using u8 = unsigned char;

// The library runs on little-endian machines only (x86-64): a load or store of a wire integer
// is one move, the same bytes as a byte-by-byte one.
static_assert(std::endian::native == std::endian::little, "little-endian hosts only");

template <class T>
inline T loadLE(const void* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
inline void storeLE(void* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

inline std::uint16_t loadU16(const void* p) {
  return loadLE<std::uint16_t>(p);
}
inline std::uint32_t loadU32(const void* p) {
  return loadLE<std::uint32_t>(p);
}
inline std::uint64_t loadU64(const void* p) {
  return loadLE<std::uint64_t>(p);
}
inline std::int32_t loadI32(const void* p) {
  return static_cast<std::int32_t>(loadU32(p));
}
inline std::int64_t loadI64(const void* p) {
  return static_cast<std::int64_t>(loadU64(p));
}
inline double loadF64(const void* p) {
  double d;
  std::uint64_t v = loadU64(p);
  std::memcpy(&d, &v, 8);
  return d;
}

inline void storeU16(void* p, std::uint16_t v) {
  storeLE(p, v);
}
inline void storeU32(void* p, std::uint32_t v) {
  storeLE(p, v);
}
inline void storeU64(void* p, std::uint64_t v) {
  storeLE(p, v);
}
inline void storeI32(void* p, std::int32_t v) {
  storeU32(p, static_cast<std::uint32_t>(v));
}
inline void storeF64(void* p, double d) {
  std::uint64_t v;
  std::memcpy(&v, &d, 8);
  storeU64(p, v);
}

// Copies n bytes between places that do not overlap, reading and writing no byte outside
// [0, n): overlapping moves of 16, 8, 4 or one byte, for the short runs of a field, where a call
// to memcpy costs more than the copy.
inline void copyShort(u8* dst, const u8* src, std::size_t n) {
  u8 chunk[16];
  if (n >= 16) {
    for (std::size_t i = 0; i + 16 < n; i += 16) {
      std::memcpy(chunk, src + i, 16);
      std::memcpy(dst + i, chunk, 16);
    }
    std::memcpy(chunk, src + n - 16, 16);
    std::memcpy(dst + n - 16, chunk, 16);
  } else if (n >= 8) {
    const std::uint64_t a = loadU64(src), b = loadU64(src + n - 8);
    storeU64(dst, a);
    storeU64(dst + n - 8, b);
  } else if (n >= 4) {
    const std::uint32_t a = loadU32(src), b = loadU32(src + n - 4);
    storeU32(dst, a);
    storeU32(dst + n - 4, b);
  } else {
    for (std::size_t i = 0; i < n; ++i) dst[i] = src[i];
  }
}

// Zeroes n bytes, writing no byte outside [0, n).
inline void zeroShort(u8* dst, std::size_t n) {
  static constexpr u8 kZeros[16] = {};
  if (n >= 16) {
    for (std::size_t i = 0; i + 16 < n; i += 16) std::memcpy(dst + i, kZeros, 16);
    std::memcpy(dst + n - 16, kZeros, 16);
  } else {
    copyShort(dst, kZeros, n);
  }
}

// Copies n bytes between places that do not overlap, 64 bytes a step with all four loads ahead
// of the stores. For copies from one record of a restored buffer to another: the string
// instructions that memcpy uses for large sizes slow down several times when source and
// destination lie close to a multiple of 4 KiB apart, as records of 4 KiB multiples plus a few
// bytes do.
inline void copyRecord(u8* dst, const u8* src, std::int64_t n) {
  std::int64_t i = 0;
  for (; i + 64 <= n; i += 64) {
#if TRDCOMP_SSE2
    const auto* s = reinterpret_cast<const __m128i*>(src + i);
    auto* d = reinterpret_cast<__m128i*>(dst + i);
    const __m128i a = _mm_loadu_si128(s), b = _mm_loadu_si128(s + 1), c = _mm_loadu_si128(s + 2),
                  e = _mm_loadu_si128(s + 3);
    _mm_storeu_si128(d, a);
    _mm_storeu_si128(d + 1, b);
    _mm_storeu_si128(d + 2, c);
    _mm_storeu_si128(d + 3, e);
#else
    u8 chunk[64];
    std::memcpy(chunk, src + i, 64);
    std::memcpy(dst + i, chunk, 64);
#endif
  }
  if (i < n) copyShort(dst + i, src + i, static_cast<std::size_t>(n - i));
}

// Unbounded bytes: the public primitives trust their caller as their contract says.
struct RawBytes {
  const u8* p;
  u8 at(std::int64_t i) const { return p[i]; }
  bool has(std::int64_t) const { return true; }
  // How many of the n bytes from i can be read: all of them.
  std::int64_t readable(std::int64_t, std::int64_t n) const { return n; }
  const u8* ptr(std::int64_t i) const { return p + i; }
  void copyAvailable(u8* dst, std::int64_t from, std::int64_t n) const {
    if (n > 0) std::memcpy(dst, p + from, static_cast<std::size_t>(n));
  }
};

// Bytes known to be inside the input, and at least eight bytes past any position a decoder
// starts a field at: the record decoders use it for records that lie wholly inside their input
// (checked once per record), so that no byte is checked and integers load a word at a time.
struct InsideBytes : RawBytes {
  static constexpr bool kWordLoads = true;
  // A text starts at most four bytes (its length) past its field's start, and its first 32
  // bytes may be loaded at once: a layout's read span covers 36 bytes at least.
  static constexpr int kTextLoad = 32;
};

// A read-only window on bytes that may come from the network. Every read is checked: a byte
// outside [0, size) reads as zero, so a claim in the input (a count, a length, an offset) can
// never move a read outside the bytes that were handed in.
class InView {
 public:
  InView() = default;
  InView(const void* data, std::int64_t size)
      : data_(static_cast<const u8*>(data)), size_(data && size > 0 ? size : 0) {}

  std::int64_t size() const { return size_; }
  bool has(std::int64_t i) const { return i >= 0 && i < size_; }
  // How many of the n bytes from i lie inside the view (from the start of the run).
  std::int64_t readable(std::int64_t i, std::int64_t n) const {
    if (i < 0 || i >= size_ || n <= 0) return 0;
    return n < size_ - i ? n : size_ - i;
  }
  const u8* ptr(std::int64_t i) const { return data_ + i; }
  u8 at(std::int64_t i) const { return has(i) ? data_[i] : 0; }

  std::uint16_t u16(std::int64_t i) const {
    return inside(i, 2) ? loadU16(data_ + i) : static_cast<std::uint16_t>(at(i) | at(i + 1) << 8);
  }
  std::uint32_t u32(std::int64_t i) const {
    if (inside(i, 4)) return loadU32(data_ + i);
    std::uint32_t v = 0;
    for (int k = 0; k < 4; ++k) v |= std::uint32_t(at(i + k)) << (8 * k);
    return v;
  }
  std::int32_t i32(std::int64_t i) const { return static_cast<std::int32_t>(u32(i)); }
  std::int64_t i64(std::int64_t i) const {
    return static_cast<std::int64_t>(std::uint64_t(u32(i)) | std::uint64_t(u32(i + 4)) << 32);
  }
  double f64(std::int64_t i) const {
    double d;
    std::int64_t v = i64(i);
    std::memcpy(&d, &v, 8);
    return d;
  }

  // Copies the part of bytes [from, from + n) that lies inside the view to the same place in
  // dst[0, n); the rest of dst is left as it is (restore buffers are zero already).
  void copyAvailable(u8* dst, std::int64_t from, std::int64_t n) const {
    std::int64_t lo = from < 0 ? 0 : from;
    std::int64_t hi = n > size_ - from ? size_ : from + n;
    if (hi > lo) std::memcpy(dst + (lo - from), data_ + lo, static_cast<std::size_t>(hi - lo));
  }
  // Copies bytes [from, from + n) to dst[0, n); bytes outside the view arrive as zeros.
  void copyOut(u8* dst, std::int64_t from, std::int64_t n) const {
    if (n <= 0) return;
    if (from >= 0 && n <= size_ - from) {
      std::memcpy(dst, data_ + from, static_cast<std::size_t>(n));
      return;
    }
    std::memset(dst, 0, static_cast<std::size_t>(n));
    copyAvailable(dst, from, n);
  }

  // The view from `from` on (empty when `from` lies outside).
  InView from(std::int64_t from) const {
    if (from < 0 || from >= size_) return InView();
    return InView(data_ + from, size_ - from);
  }
  // The view of bytes [from, from + n) that lie inside this one.
  InView window(std::int64_t from, std::int64_t n) const {
    if (from < 0 || from >= size_ || n <= 0) return InView();
    return InView(data_ + from, n < size_ - from ? n : size_ - from);
  }

  // Length of the zero-terminated text at `i`; the end of the view ends it too.
  std::int64_t textLength(std::int64_t i) const {
    if (!has(i)) return 0;
    const void* z = std::memchr(data_ + i, 0, static_cast<std::size_t>(size_ - i));
    return z ? static_cast<const u8*>(z) - (data_ + i) : size_ - i;
  }
  const u8* data() const { return data_; }

 private:
  bool inside(std::int64_t i, std::int64_t n) const { return i >= 0 && i <= size_ - n; }
  const u8* data_ = nullptr;
  std::int64_t size_ = 0;
};

// Restored messages live in zero-filled buffers with slack behind the used length, released by
// the caller through the library (ReleaseAnsData pairs with allocateZeroed). Small buffers come
// from the C allocator; large ones are mapped straight from the system as fresh zero pages, so a
// message that claims many records costs only the pages its records really fill, however the C
// allocator would have served (and cleared) a block of that size. A size beyond the 32-bit
// lengths of the interface is refused, as is a failed allocation: both give null.
u8* allocateZeroed(std::int64_t size);
// The same from the C allocator without clearing: for buffers whose every byte the caller writes
// (memory the allocator hands out again is warm in cache, where fresh pages cost a fault each).
u8* allocateUninitialised(std::int64_t size);
void release(void* p);

// Sizes of claims that may be absurd: products and sums of non-negative 64-bit sizes that stick
// at the largest value instead of wrapping, so that a bound is never smaller than the truth.
constexpr std::int64_t kHuge = INT64_MAX;
constexpr std::int64_t sizeTimes(std::int64_t count, std::int64_t size) {
  if (count <= 0 || size <= 0) return 0;
  return count > kHuge / size ? kHuge : count * size;
}
constexpr std::int64_t sizePlus(std::int64_t a, std::int64_t b) {
  return a > kHuge - b ? kHuge : a + b;
}

// Zeroed working memory of one call, from the C allocator and released with it; empty (null)
// for no elements or when the allocation failed. The library throws nothing, so no container
// that reports failure by an exception is used on its paths.
template <class T>
class Scratch {
 public:
  Scratch() = default;
  explicit Scratch(std::int64_t n)
      : p_(n > 0 && n <= INT32_MAX
               ? static_cast<T*>(std::calloc(static_cast<std::size_t>(n), sizeof(T)))
               : nullptr) {}
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  Scratch& operator=(Scratch&& other) noexcept {
    std::swap(p_, other.p_);
    return *this;
  }
  ~Scratch() { std::free(p_); }

  T* get() const { return p_; }
  T& operator[](std::int64_t i) const { return p_[i]; }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

// Converts a double to a 64-bit integer by truncation toward zero, as the x86-64 conversion
// instruction does: values outside the range (and NaN) give the most negative value. Peers
// built for that instruction send exactly this, and it keeps the conversion defined in C++.
inline std::int64_t truncToInt64(double t) {
  if (t > -9223372036854775808.0 && t < 9223372036854775808.0) return static_cast<std::int64_t>(t);
  return INT64_MIN;
}

}  // namespace trdcomp
