// The stand-in's value types: what they refuse to take, at compile time, and
// the texts that CDate::Set takes.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "callkyt/CString.h"
#include "callkyt/CValue.h"

// A text given to a function that takes a CString or one of the value types
// still goes to the CString: the refused constructors are no conversion.
// (Declared only: the overloads are weighed, never called.)
int TakeEither(CString);
int TakeEither(CInt);
int TakeEither(CBool);
int TakeEither(CDbl);
template <class A, class = void>
struct TakesEither : std::false_type {};
template <class A>
struct TakesEither<A, std::void_t<decltype(TakeEither(std::declval<A>()))>> : std::true_type {};
static_assert(TakesEither<const char*>::value && TakesEither<const char (&)[2]>::value);

namespace {

// A text, whichever way it comes, is no value of CInt, CDbl or CBool.
template <class V>
constexpr bool RefusesTexts() {
  return !std::is_assignable_v<V&, const char*> && !std::is_assignable_v<V&, char*> &&
         !std::is_assignable_v<V&, const char(&)[2]> && !std::is_assignable_v<V&, char> &&
         !std::is_assignable_v<V&, std::nullptr_t> && !std::is_assignable_v<V&, const void*> &&
         !std::is_assignable_v<V&, const V*> && !std::is_assignable_v<V&, CString> &&
         !std::is_constructible_v<V, const char*> && !std::is_constructible_v<V, char*> &&
         !std::is_constructible_v<V, const char(&)[2]> && !std::is_constructible_v<V, char> &&
         !std::is_constructible_v<V, std::nullptr_t> && !std::is_constructible_v<V, const void*> &&
         !std::is_constructible_v<V, CString> && !std::is_convertible_v<const char*, V>;
}
static_assert(RefusesTexts<CInt>());
static_assert(RefusesTexts<CDbl>());
static_assert(RefusesTexts<CBool>());

// Numbers of every sort still go in, and the types copy as before.
template <class V>
constexpr bool TakesNumbers() {
  return std::is_assignable_v<V&, int> && std::is_assignable_v<V&, short> &&
         std::is_assignable_v<V&, signed char> && std::is_assignable_v<V&, unsigned char> &&
         std::is_assignable_v<V&, const V&> && std::is_constructible_v<V, int> &&
         std::is_constructible_v<V, const V&> && std::is_trivially_copyable_v<V> &&
         std::is_default_constructible_v<V>;
}
static_assert(TakesNumbers<CInt>());
static_assert(TakesNumbers<CDbl>());
static_assert(TakesNumbers<CBool>());
static_assert(std::is_assignable_v<CInt&, int32_t> && std::is_assignable_v<CDbl&, double> &&
              std::is_assignable_v<CDbl&, float> && std::is_assignable_v<CDbl&, int> &&
              std::is_assignable_v<CBool&, bool> && std::is_constructible_v<CBool, bool> &&
              std::is_constructible_v<CDbl, double>);
// A constructor from a number stays explicit, and the refused ones add no
// conversion that another overload could trip over.
static_assert(!std::is_convertible_v<int, CInt> && !std::is_convertible_v<bool, CBool> &&
              !std::is_convertible_v<const char*, CBool> && !std::is_convertible_v<char, CInt>);
// A CString still takes texts.
static_assert(std::is_assignable_v<CString&, const char*> &&
              std::is_assignable_v<CString&, const CString&> &&
              std::is_constructible_v<CString, const char*>);
// The fields stay where the classes read them.
static_assert(offsetof(CInt, value) == 0 && offsetof(CInt, isSet) == sizeof(int32_t));
static_assert(offsetof(CDbl, value) == 0 && offsetof(CDbl, isSet) == sizeof(double));
static_assert(offsetof(CBool, value) == 0 && offsetof(CBool, isSet) == 1);

// What numbers of each sort make, now that they pick among more overloads.
TEST(ValueTypes, NumbersOfEverySortSetTheValue) {
  CInt i;
  i = static_cast<short>(-7);
  EXPECT_EQ(i.value, -7);
  EXPECT_TRUE(i.isSet);
  i = static_cast<signed char>(-3);
  EXPECT_EQ(i.value, -3);
  CDbl d;
  d = 2;
  EXPECT_EQ(d.value, 2.0);
  d = 0.5f;
  EXPECT_EQ(d.value, 0.5);
  EXPECT_TRUE(d.isSet);
  CBool b;
  b = false;
  EXPECT_FALSE(b.value);
  EXPECT_TRUE(b.isSet);
  b = CBool(true);
  EXPECT_TRUE(b.value);
}

std::string Show(const CDate& d) { return d.isSet ? std::string(d.text) : "-"; }

// Set takes any text that a date can hold, so that a date set from
// another's text is that date; a refusal leaves the date as it was.
TEST(ValueTypes, CDateSetTakesWhatItCanHold) {
  for (const char* text : {"20240229", "20230229", "20261399", "2024-1-1", "0229", "x"}) {
    CDate d;
    EXPECT_TRUE(d.Set(text)) << text;
    EXPECT_EQ(Show(d), text);
    CDate copy;
    ASSERT_TRUE(copy.Set(d.text));
    EXPECT_EQ(Show(copy), text);
  }
  CDate d;
  ASSERT_TRUE(d.Set("20261123"));
  EXPECT_FALSE(d.Set(nullptr));
  EXPECT_FALSE(d.Set("202611231"));  // longer than a date holds
  EXPECT_EQ(Show(d), "20261123");
  EXPECT_TRUE(d.Set(d.text));  // its own text
  EXPECT_EQ(Show(d), "20261123");
  EXPECT_TRUE(d.Set(""));  // an empty text unsets it
  EXPECT_FALSE(d.isSet);
  EXPECT_STREQ(d.text, "");
}

}  // namespace
