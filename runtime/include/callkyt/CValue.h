// Optional scalar values of the message runtime: CInt, CDbl, CBool, CDate.
//
// Each value carries a set-flag; a value counts only while its flag is set.
// The message classes read and write the two fields directly, so the layout
// is part of the contract: the value first, then one byte of flag.
#pragma once

#include <cstdint>

struct CInt {
  int32_t value;
  bool isSet;

  CInt() : value(0), isSet(false) {}
  explicit CInt(int32_t v) : value(v), isSet(true) {}
  CInt& operator=(int32_t v) {
    value = v;
    isSet = true;
    return *this;
  }
  void Clear() { *this = CInt(); }
};

struct CDbl {
  double value;
  bool isSet;

  CDbl() : value(0.0), isSet(false) {}
  explicit CDbl(double v) : value(v), isSet(true) {}
  CDbl& operator=(double v) {
    value = v;
    isSet = true;
    return *this;
  }
  void Clear() { *this = CDbl(); }
};

struct CBool {
  bool value;
  bool isSet;

  CBool() : value(false), isSet(false) {}
  explicit CBool(bool v) : value(v), isSet(true) {}
  CBool& operator=(bool v) {
    value = v;
    isSet = true;
    return *this;
  }
  void Clear() { *this = CBool(); }
};

// A calendar date as the text "YYYYMMDD" (year, month and day in digits).
//
// `text` always holds a terminated text of at most 8 characters. Set() takes
// any text of up to 8 characters and marks the date set (an empty text leaves
// it unset); it refuses a null pointer or a longer text and then changes
// nothing. Set() does not check the calendar: CMsg::SetValue() refuses a set
// date that is not a valid "YYYYMMDD", so a bad date never reaches a message.
struct CDate {
  static constexpr int kMaxLen = 8;

  char text[kMaxLen + 1];
  bool isSet;

  CDate() : text{}, isSet(false) {}
  CDate(const CDate&) = default;
  CDate& operator=(const CDate&) = default;
  ~CDate() = default;

  bool Set(const char* date);
  void Clear() { *this = CDate(); }

  // True if `date` is a valid calendar date written as "YYYYMMDD".
  static bool IsValidText(const char* date);
};
