// libFuzzer entry: see TextFuzz.h.
#include "TextFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::ReadJson(data, size);
  return 0;
}
