// Result codes and the exception of the altkyt runtime.
//
// Calls that can fail give a result: 0 or above is success (often a count),
// -1 says that a message holds no value under the tag asked for, and the
// codes below are failures. CException is the one exception the runtime
// defines; it carries a text and one of these codes or a caller's own.
#pragma once

#include <cerrno>

namespace altkyt {

enum Result : int {
  kAbsent = -1,         // the message holds nothing under the tag: no failure
  kKindMismatch = -41,  // the tag holds a value of another kind than asked for
  kNoMemory = -42,      // storage could not be allocated
  kBadArgument = -43,   // a null pointer, a negative length, a text that does not fit
  kBadTag = -44,        // a tag of 0 or below
  kNotUsable = -45,     // the message was built without a dictionary or with reserved
                        // arguments that are not 0
  kSubRefused = -46,    // a sub-message that already has a parent, or that would hold
                        // the message it is added to
  kOutOfRange = -47,    // an index outside an array (the code of a CException)
};

// kNoMemory, told by errno too, as the C library tells it.
inline int NoMemory() {
  errno = ENOMEM;
  return kNoMemory;
}

}  // namespace altkyt

// An error thrown by value: a text and a result code. The text is copied into
// the object itself, so the exception stays whole after the caller's buffer is
// gone, and the object needs no destructor. Texts longer than kTextSize - 1
// bytes are cut.
class CException {
 public:
  static constexpr int kTextSize = 256;

  // A null text is taken as an empty one.
  CException(const char* text, int code);

  // The text and the code the exception was made with.
  const char* Reason() const { return text_; }
  int Result() const { return code_; }

 private:
  char text_[kTextSize];
  int code_;
};
