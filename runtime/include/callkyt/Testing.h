// Fault injection for tests of code that uses the runtime.
//
// An armed fault makes one call of CMsg::SetValue or CMsg::GetValue give a
// chosen failure code instead of doing its work, so that a test can walk
// every failure path of a message class. The calls on `tag` are counted
// from the moment of arming, in every message and on every thread; the call
// that comes after `skip` such calls fails, and the fault is spent. A tag of
// 0 matches every tag. A SetValue that fails this way frees the sub-message
// it was given, as for any refusal.
//
// While no fault is armed, the cost is one relaxed atomic load per call.
#pragma once

enum MA_FaultOp {
  MA_FAULT_SET = 1,  // CMsg::SetValue
  MA_FAULT_GET = 2,  // CMsg::GetValue
};

// Arms a fault; `code` must be negative. Gives false, arming nothing, for an
// unknown operation, a code of 0 or above, or a negative skip.
bool MA_ArmFault(int op, int tag, int code, int skip = 0);
// Disarms every fault.
void MA_ClearFaults();
// The number of faults armed and not yet spent.
int MA_PendingFaults();
