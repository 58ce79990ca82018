#include "Blocks.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace kyt_detail {

namespace {

// Under the sanitizers every block gets an allocation of its own, so that a
// use after free is caught.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KYT_POOL 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define KYT_POOL 0
#endif
#endif
#ifndef KYT_POOL
#define KYT_POOL 1
#endif

#if KYT_POOL
// The environment variable KYT_MSG_POOL=0 turns the free lists off, so that
// memory checkers see every block as an allocation of its own.
bool ReadPoolSetting() {
  const char* v = std::getenv("KYT_MSG_POOL");
  return !(v && std::strcmp(v, "0") == 0);
}
const bool g_poolOn = ReadPoolSetting();
#else
constexpr bool g_poolOn = false;
#endif

// One list for each kept size.
constexpr int kClasses = (kMaxBlock - kMinBlock) / kBlockStep + 1;
constexpr uint32_t kMaxPooledBytes = 1u << 17;  // per size, per thread

inline int ClassOf(size_t size) {
  if (size < kMinBlock || size > kMaxBlock || size % kBlockStep != 0) return -1;
  return static_cast<int>((size - kMinBlock) / kBlockStep);
}
inline uint32_t SizeOf(int c) { return kMinBlock + static_cast<uint32_t>(c) * kBlockStep; }

// Plain data, so that reaching it needs no guard; the lists are emptied at
// thread exit by a Reaper that the first freed block sets up.
struct FreeLists {
  void* head[kClasses];
  uint32_t bytes[kClasses];
  bool reaperSet;
  bool closed;  // the thread is ending: blocks go straight back to the heap
};
// The library is loaded with the program, so its thread-local storage can sit
// in the static block, reached without a call.
__attribute__((tls_model("initial-exec"))) thread_local FreeLists t_free;

struct Reaper {
  ~Reaper() {
    t_free.closed = true;
    for (int c = 0; c < kClasses; ++c) {
      while (void* p = t_free.head[c]) {
        t_free.head[c] = *static_cast<void**>(p);
        ::operator delete(p);
      }
      t_free.bytes[c] = 0;
    }
  }
};

}  // namespace

void* TakeBlock(size_t size) noexcept {
  int c = g_poolOn ? ClassOf(size) : -1;
  if (c >= 0 && t_free.head[c]) {
    void* p = t_free.head[c];
    t_free.head[c] = *static_cast<void**>(p);
    t_free.bytes[c] -= SizeOf(c);
    return p;
  }
  return ::operator new(size, std::nothrow);
}

void GiveBlock(void* p, size_t size) noexcept {
  int c = g_poolOn ? ClassOf(size) : -1;
  if (c >= 0 && t_free.bytes[c] < kMaxPooledBytes && !t_free.closed) {
    if (!t_free.reaperSet) {
      static thread_local Reaper reaper;
      (void)reaper;
      t_free.reaperSet = true;
    }
    *static_cast<void**>(p) = t_free.head[c];
    t_free.head[c] = p;
    t_free.bytes[c] += SizeOf(c);
    return;
  }
  ::operator delete(p);
}

}  // namespace kyt_detail
