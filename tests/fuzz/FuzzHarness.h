// One fuzzing step: bytes become a generic message tree, which is loaded
// into one of the message classes; the object is then dumped, copied and
// written back. A message that loaded must come back unchanged.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzzing {

// Returns normally, or aborts on a broken promise (a sanitizer reports the
// rest).
void RunOne(const uint8_t* data, size_t size);

}  // namespace fuzzing
