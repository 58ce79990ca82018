// libFuzzer entry: see FuzzHarness.h.
#include "FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::RunOne(data, size);
  return 0;
}
