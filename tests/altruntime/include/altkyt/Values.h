// The optional values of a message: each holds a value and a flag, and the
// value counts only while the flag is set. CInt, CDbl and CBool are plain
// pairs, read and written by their fields and copied field by field; a new
// one is 0, 0.0 or false with the flag clear.
#pragma once

#include <cstdint>

struct CInt {
  CInt() : value(0), isSet(0) {}
  int32_t value;
  uint8_t isSet;
};

struct CDbl {
  CDbl() : value(0.0), isSet(0) {}
  double value;
  uint8_t isSet;
};

struct CBool {
  CBool() : value(false), isSet(0) {}
  bool value;
  uint8_t isSet;
};

// A date as a text of up to 8 characters, kept as given (the runtime checks no
// calendar). An unset date holds the text "00000000".
class CDate {
 public:
  static constexpr int kMaxLength = 8;

  CDate();  // unset
  // All nine bytes as they are: a text with no terminator stays one, for
  // CMsg::SetValue to refuse.
  CDate(const CDate& other) = default;
  CDate& operator=(const CDate&) = delete;
  ~CDate();

  // Takes `date` as the text and sets the flag; 0. A null pointer or a text of
  // more than kMaxLength characters is refused: the date becomes unset and the
  // result is kBadArgument. Reads at most kMaxLength + 1 bytes of `date`.
  int Set(const char* date);

  char text[kMaxLength + 1];
  uint8_t isSet;
};
