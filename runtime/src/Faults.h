// The runtime's side of the fault hooks of callkyt/Testing.h.
#pragma once

#include <atomic>

namespace kyt_detail {

constexpr int kFaultSet = 1;
constexpr int kFaultGet = 2;

extern std::atomic<int> g_armedFaults;

bool FireFault(int op, int tag, int* code);

// True, with the code, when an armed fault takes this call.
inline bool FaultFires(int op, int tag, int* code) {
  return g_armedFaults.load(std::memory_order_relaxed) > 0 && FireFault(op, tag, code);
}

}  // namespace kyt_detail
