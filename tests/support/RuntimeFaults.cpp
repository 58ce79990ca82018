#include "RuntimeFaults.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace testing_support {

namespace {

struct Fault {
  FaultOp op;
  int tag;
  int code;
  int skip;
};

// While both are zero a call costs two relaxed loads.
std::atomic<int> g_armed{0};
std::atomic<bool> g_recording{false};

std::mutex& Lock() {
  static std::mutex m;
  return m;
}
std::vector<Fault>& Faults() {
  static std::vector<Fault> faults;
  return faults;
}
std::vector<SetCall>& Recorded() {
  static std::vector<SetCall> calls;
  return calls;
}

// True, with the code, when an armed fault takes this call.
bool Fires(FaultOp op, int tag, int* code) {
  if (g_armed.load(std::memory_order_relaxed) == 0) return false;
  std::lock_guard<std::mutex> lock(Lock());
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
    g_armed.fetch_sub(1, std::memory_order_relaxed);
    return true;
  }
  return false;
}

void Record(const CMsg* msg, int tag) {
  if (!g_recording.load(std::memory_order_relaxed)) return;
  std::lock_guard<std::mutex> lock(Lock());
  Recorded().push_back({msg, tag});
}

// The runtime's own definition of a symbol that this program also defines.
template <class Fn>
Fn Next(const char* symbol) {
  void* f = dlsym(RTLD_NEXT, symbol);
  if (!f) {
    std::fprintf(stderr, "RuntimeFaults: the runtime does not define %s\n", symbol);
    std::abort();
  }
  return reinterpret_cast<Fn>(f);
}

}  // namespace

bool ArmFault(FaultOp op, int tag, int code, int skip) {
  if (code >= 0 || skip < 0) return false;
  std::lock_guard<std::mutex> lock(Lock());
  Faults().push_back({op, tag, code, skip});
  g_armed.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void ClearFaults() {
  std::lock_guard<std::mutex> lock(Lock());
  Faults().clear();
  g_armed.store(0, std::memory_order_relaxed);
}

SetRecorder::SetRecorder() {
  std::lock_guard<std::mutex> lock(Lock());
  Recorded().clear();
  g_recording.store(true, std::memory_order_relaxed);
}

SetRecorder::~SetRecorder() { g_recording.store(false, std::memory_order_relaxed); }

std::vector<SetCall> SetRecorder::Calls() const {
  std::lock_guard<std::mutex> lock(Lock());
  return Recorded();
}

}  // namespace testing_support

using testing_support::FaultOp;
using testing_support::Fires;
using testing_support::Next;
using testing_support::Record;

// The runtime declares GetValue either const or not; the build tells which
// (PRICEMSG_GET_IS_CONST), and the definitions here must say the same. The
// symbols are the Itanium C++ names of the declarations.
#if PRICEMSG_GET_IS_CONST
#define PRICEMSG_GET_QUALIFIER const
#define PRICEMSG_GET_SYMBOL(args) "_ZNK4CMsg8GetValueEi" args
#else
#define PRICEMSG_GET_QUALIFIER
#define PRICEMSG_GET_SYMBOL(args) "_ZN4CMsg8GetValueEi" args
#endif

#define PRICEMSG_FORWARD_GET(Type, args)                         \
  int CMsg::GetValue(int tag, Type out) PRICEMSG_GET_QUALIFIER { \
    int code;                                                    \
    if (Fires(FaultOp::kGet, tag, &code)) return code;           \
    using Fn = int (*)(PRICEMSG_GET_QUALIFIER CMsg*, int, Type); \
    static const Fn next = Next<Fn>(PRICEMSG_GET_SYMBOL(args));  \
    return next(this, tag, out);                                 \
  }

#define PRICEMSG_FORWARD_SET(Type, args)                         \
  int CMsg::SetValue(int tag, Type v) {                          \
    Record(this, tag);                                           \
    int code;                                                    \
    if (Fires(FaultOp::kSet, tag, &code)) return code;           \
    using Fn = int (*)(CMsg*, int, Type);                        \
    static const Fn next = Next<Fn>("_ZN4CMsg8SetValueEi" args); \
    return next(this, tag, v);                                   \
  }

PRICEMSG_FORWARD_GET(CInt*, "P4CInt")
PRICEMSG_FORWARD_GET(CDbl*, "P4CDbl")
PRICEMSG_FORWARD_GET(CBool*, "P5CBool")
PRICEMSG_FORWARD_GET(CDate*, "P5CDate")
PRICEMSG_FORWARD_GET(CString*, "P7CString")
PRICEMSG_FORWARD_GET(CIntArray*, "P9CIntArray")
PRICEMSG_FORWARD_GET(CDblArray*, "P9CDblArray")
PRICEMSG_FORWARD_GET(CMsg**, "PPS_")
PRICEMSG_FORWARD_GET(CMsgArray*, "P9CMsgArray")

PRICEMSG_FORWARD_SET(CInt, "4CInt")
PRICEMSG_FORWARD_SET(CDbl, "4CDbl")
PRICEMSG_FORWARD_SET(CBool, "5CBool")
PRICEMSG_FORWARD_SET(CDate, "5CDate")
PRICEMSG_FORWARD_SET(const char*, "PKc")
PRICEMSG_FORWARD_SET(int, "i")
PRICEMSG_FORWARD_SET(double, "d")

// A refused sub-message is freed, as the runtime frees one it refuses.
int CMsg::SetValue(int tag, CMsg* sub) {
  Record(this, tag);
  int code;
  if (Fires(FaultOp::kSet, tag, &code)) {
    delete sub;
    return code;
  }
  using Fn = int (*)(CMsg*, int, CMsg*);
  static const Fn next = Next<Fn>("_ZN4CMsg8SetValueEiPS_");
  return next(this, tag, sub);
}
