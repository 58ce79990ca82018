// The operator new and delete of the test programs, and of the libraries
// they load: they count live blocks and can fail one allocation.
#include <atomic>
#include <cstdlib>
#include <new>

#include "TestSupport.h"

namespace {

std::atomic<long> g_failAt{-1};
std::atomic<long> g_live{0};
std::atomic<bool> g_fired{false};
std::atomic<long> g_made{0};

void* Allocate(size_t size) {
  if (g_failAt.load(std::memory_order_relaxed) >= 0 && g_failAt.fetch_sub(1) == 0) {
    g_fired = true;
    throw std::bad_alloc();
  }
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  g_live.fetch_add(1, std::memory_order_relaxed);
  g_made.fetch_add(1, std::memory_order_relaxed);
  return p;
}

void Free(void* p) {
  if (!p) return;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  std::free(p);
}

}  // namespace

namespace testing_support {

void FailingAlloc::FailAt(long n) {
  g_fired = false;
  g_failAt = n;
}
void FailingAlloc::Off() { g_failAt = -1; }
bool FailingAlloc::Fired() { return g_fired; }
long FailingAlloc::Live() { return g_live; }

// A memory checker that puts its own operator new in place of this one makes
// the counters stand still.
bool FailingAlloc::Available() {
  long before = g_made.load();
  // A call through the function's address, as other units call it: the
  // compiler would call Allocate here directly, past a checker's redirection.
  void* (*volatile allocate)(size_t) = &::operator new;
  void (*volatile release)(void*) noexcept = &::operator delete;
  release(allocate(1));
  return g_made.load() != before;
}

}  // namespace testing_support

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* p) noexcept { Free(p); }
void operator delete[](void* p) noexcept { Free(p); }
void operator delete(void* p, size_t) noexcept { Free(p); }
void operator delete[](void* p, size_t) noexcept { Free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Free(p); }
