#include <mutex>
#include <vector>

#include "Faults.h"
#include "callkyt/Testing.h"

namespace kyt_detail {

std::atomic<int> g_armedFaults{0};

namespace {

struct Fault {
  int op;
  int tag;
  int code;
  int skip;
};

std::mutex& FaultMutex() {
  static std::mutex m;
  return m;
}

std::vector<Fault>& Faults() {
  static std::vector<Fault> faults;
  return faults;
}

}  // namespace

bool FireFault(int op, int tag, int* code) {
  std::lock_guard<std::mutex> lock(FaultMutex());
  std::vector<Fault>& faults = Faults();
  for (size_t i = 0; i < faults.size(); ++i) {
    Fault& f = faults[i];
    if (f.op != op || (f.tag != 0 && f.tag != tag)) continue;
    if (f.skip > 0) {
      --f.skip;
      continue;
    }
    *code = f.code;
    faults.erase(faults.begin() + static_cast<long>(i));
    g_armedFaults.fetch_sub(1, std::memory_order_relaxed);
    return true;
  }
  return false;
}

}  // namespace kyt_detail

bool MA_ArmFault(int op, int tag, int code, int skip) {
  if ((op != MA_FAULT_SET && op != MA_FAULT_GET) || code >= 0 || skip < 0) return false;
  std::lock_guard<std::mutex> lock(kyt_detail::FaultMutex());
  kyt_detail::Faults().push_back({op, tag, code, skip});
  kyt_detail::g_armedFaults.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void MA_ClearFaults() {
  std::lock_guard<std::mutex> lock(kyt_detail::FaultMutex());
  kyt_detail::Faults().clear();
  kyt_detail::g_armedFaults.store(0, std::memory_order_relaxed);
}

int MA_PendingFaults() { return kyt_detail::g_armedFaults.load(std::memory_order_relaxed); }
