// The stand-in's value types: what they refuse to take, at compile time, and
// the dates that CDate::Set refuses.
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

// Set takes the dates of the calendar and nothing else; a refusal leaves
// the date as it was, set or not.
TEST(ValueTypes, CDateSetTakesCalendarDatesOnly) {
  // The leap rules: every fourth year, but not every hundredth, but every
  // four hundredth.
  for (const char* ok :
       {"20000229", "20240229", "16000229", "19960229", "00040229", "20230228", "19000228",
        "20240131", "20240331", "20240430", "20240531", "20240630", "20240731", "20240831",
        "20240930", "20241031", "20241130", "20241231", "00010101", "99991231"}) {
    CDate d;
    EXPECT_TRUE(d.Set(ok)) << ok;
    EXPECT_EQ(Show(d), ok);
  }
  for (const char* bad : {"20261399", "20230229", "19000229", "21000229", "20240230",  "20240000",
                          "20240001", "20240100", "20240132", "20240431", "20240631",  "20240931",
                          "20241131", "20241301", "00000101", "2024013",  "202401011", "2024-1-1",
                          "2024013a", " 2024013", "ABCDEFGH", "0229"}) {
    CDate unset;
    EXPECT_FALSE(unset.Set(bad)) << bad;
    EXPECT_FALSE(unset.isSet) << bad;
    EXPECT_STREQ(unset.text, "") << bad;

    CDate set;
    ASSERT_TRUE(set.Set("20261123"));
    EXPECT_FALSE(set.Set(bad)) << bad;
    EXPECT_EQ(Show(set), "20261123") << bad;
  }
  CDate d;
  ASSERT_TRUE(d.Set("20240229"));
  EXPECT_FALSE(d.Set(nullptr));
  EXPECT_EQ(Show(d), "20240229");
  EXPECT_TRUE(d.Set(d.text));  // its own text
  EXPECT_EQ(Show(d), "20240229");
  EXPECT_TRUE(d.Set(""));  // an empty text unsets it
  EXPECT_FALSE(d.isSet);
  EXPECT_STREQ(d.text, "");
}

}  // namespace
