// Optional scalar values of the message runtime: CInt, CDbl, CBool, CDate.
//
// Each value carries a set-flag; a value counts only while its flag is set.
// The message classes read and write the two fields directly, so the layout
// is part of the contract: the value first, then one byte of flag.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// CInt, CDbl and CBool take numbers only. A text given to one of them would
// otherwise be taken as a number of some kind: a pointer turns into true for
// a CBool, and a character such as 'N' into its code. These overloads catch
// both at compile time; being templates, they are chosen only for an
// argument of exactly that sort, so every numeric argument still reaches the
// number's own overload. The constructors are explicit, as the one from a
// number is: they add no implicit conversion that could make a call on
// another overload ambiguous.
#define CALLKYT_REFUSE_TEXT(Type)                                        \
  template <class T>                                                     \
  explicit Type(T*) = delete;                                            \
  template <class T>                                                     \
  Type& operator=(T*) = delete;                                          \
  template <class C, std::enable_if_t<std::is_same_v<C, char>, int> = 0> \
  explicit Type(C) = delete;                                             \
  template <class C, std::enable_if_t<std::is_same_v<C, char>, int> = 0> \
  Type& operator=(C) = delete;                                           \
  explicit Type(std::nullptr_t) = delete;                                \
  Type& operator=(std::nullptr_t) = delete

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

  CALLKYT_REFUSE_TEXT(CInt);
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

  CALLKYT_REFUSE_TEXT(CDbl);
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

  CALLKYT_REFUSE_TEXT(CBool);
};

// A calendar date as the text "YYYYMMDD" (year, month and day in digits).
//
// `text` always holds a terminated text of at most 8 characters. Set() fills
// it with any text that it can hold and marks the date set (an empty text
// leaves it unset), so that a date copied with Set is the date it was copied
// from, whatever it holds; it refuses only a null pointer and a text of more
// than 8 characters, and then gives false and changes nothing. Whether the
// text is a day of the calendar is for IsValidText to say; a message refuses
// a set date that is not (CMsg::SetValue, with a dictionary).
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

#undef CALLKYT_REFUSE_TEXT
