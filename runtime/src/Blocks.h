// Small blocks of memory for message trees and texts, from per-thread free
// lists. A tree is made and freed many times a second, always from the same
// few sizes: message objects, record buffers and the heap parts of texts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kyt_detail {

// The lists keep blocks of kMinBlock to kMaxBlock bytes in steps of
// kBlockStep; other sizes go to the heap as they are.
constexpr uint32_t kBlockStep = 16;
constexpr uint32_t kMinBlock = 64;
constexpr uint32_t kMaxBlock = 512;

// The size to ask for when `n` bytes are needed: the smallest kept size that
// holds them, or `n` itself beyond the kept sizes.
inline size_t BlockFor(size_t n) {
  if (n > kMaxBlock) return n;
  return n <= kMinBlock ? kMinBlock : (n + kBlockStep - 1) & ~size_t{kBlockStep - 1};
}

// A block of `size` bytes; null when memory runs out.
void* TakeBlock(size_t size) noexcept;
// Returns a block taken with the same `size`, from any thread.
void GiveBlock(void* p, size_t size) noexcept;

}  // namespace kyt_detail
