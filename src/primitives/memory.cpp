// Restored-message buffers. Each block starts with a 16-byte prefix that records how it was
// obtained and its size, so that release() hands it back the same way; the caller sees the
// bytes behind the prefix (16-byte aligned, like the C allocator's).
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "primitives/bytes.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace trdcomp {
namespace {

constexpr std::size_t kPrefix = 16;
// From here on a block is mapped: the pages the caller never writes are never touched.
constexpr std::size_t kMapped = 256 * 1024;
constexpr std::uint64_t kFromHeap = 0x7472646370686561ull;  // tags of the two kinds
constexpr std::uint64_t kFromMap = 0x747264636d617070ull;

void* mapZeroed(std::size_t n) {
#if defined(_WIN32)
  return VirtualAlloc(nullptr, n, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
#else
  void* p = mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
#endif
}

void unmap(void* p, std::size_t n) {
#if defined(_WIN32)
  (void)n;
  VirtualFree(p, 0, MEM_RELEASE);
#else
  munmap(p, n);
#endif
}

}  // namespace

u8* allocateZeroed(std::int64_t size) {
  if (size < 0 || size > INT32_MAX) return nullptr;
  const std::size_t total = static_cast<std::size_t>(size) + kPrefix;
  const bool mapped = total >= kMapped;
  void* block = mapped ? mapZeroed(total) : std::calloc(total, 1);
  if (!block) return nullptr;
  const std::uint64_t prefix[2] = {mapped ? kFromMap : kFromHeap, total};
  std::memcpy(block, prefix, kPrefix);
  return static_cast<u8*>(block) + kPrefix;
}

u8* allocateUninitialised(std::int64_t size) {
  if (size < 0 || size > INT32_MAX) return nullptr;
  void* block = std::malloc(static_cast<std::size_t>(size) + kPrefix);
  if (!block) return nullptr;
  const std::uint64_t prefix[2] = {kFromHeap, static_cast<std::uint64_t>(size) + kPrefix};
  std::memcpy(block, prefix, kPrefix);
  return static_cast<u8*>(block) + kPrefix;
}

void release(void* p) {
  if (!p) return;
  u8* block = static_cast<u8*>(p) - kPrefix;
  std::uint64_t prefix[2];
  std::memcpy(prefix, block, kPrefix);
  if (prefix[0] == kFromMap)
    unmap(block, static_cast<std::size_t>(prefix[1]));
  else
    std::free(block);
}

}  // namespace trdcomp
