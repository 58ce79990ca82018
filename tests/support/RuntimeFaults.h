// Faults at the runtime's boundary, for the tests of failure paths.
//
// A test program linked with RuntimeFaults.cpp defines CMsg::GetValue and
// CMsg::SetValue itself, so every such call of the library (and of the test)
// comes there first. While no fault is armed and nothing is recorded, each
// call goes straight on to the runtime's own function, found with
// dlsym(RTLD_NEXT); an armed fault makes one call give a chosen code instead.
// The library is not changed for it and the runtime need not know: the
// failure paths can be walked on any runtime.
#pragma once

#include <vector>

#include "Runtime.h"

namespace testing_support {

enum class FaultOp { kSet, kGet };

// Arms a fault: counted from now, in every message and on every thread, the
// call of `op` on `tag` (0: on any tag) that comes after `skip` such calls
// gives `code` instead of doing its work, and the fault is spent. A SetValue
// that fails so with a sub-message frees it, as a runtime that refuses a
// sub-message does. False, arming nothing, for a code of 0 or above or a
// negative skip.
bool ArmFault(FaultOp op, int tag, int code, int skip = 0);
// Disarms every fault.
void ClearFaults();

// One SetValue call: the message it was made on and its tag.
struct SetCall {
  const CMsg* msg;
  int tag;
};

// Records every SetValue call while it lives (one recorder at a time).
class SetRecorder {
 public:
  SetRecorder();
  ~SetRecorder();
  SetRecorder(const SetRecorder&) = delete;
  SetRecorder& operator=(const SetRecorder&) = delete;

  // Every call so far, in order.
  std::vector<SetCall> Calls() const;
};

}  // namespace testing_support
