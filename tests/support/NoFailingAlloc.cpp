// The allocator of test programs built where operator new cannot be
// replaced: nothing fails, nothing is counted, and the cases that need a
// failing allocator skip themselves.
#include "TestSupport.h"

namespace testing_support {

bool FailingAlloc::Available() { return false; }
void FailingAlloc::FailAt(long) {}
void FailingAlloc::Off() {}
bool FailingAlloc::Fired() { return false; }
long FailingAlloc::Live() { return 0; }

}  // namespace testing_support
