// The runtime the message classes stand on, as a caller sees it: the value
// types, CString and its formatter, the value arrays, CException, CStream,
// and CMsg with the dictionary.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "ClassCases.h"
#include "TestSupport.h"
#include "callkyt/CArray.h"
#include "callkyt/CException.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/CString.h"
#include "callkyt/CValue.h"
#include "callkyt/MsgDic.h"

using testing_support::Date;
using testing_support::FailingAlloc;
using testing_support::MsgPtr;
using testing_support::Str;

// ---- the value types at compile time ----

// A text, whichever way it comes, is no value of CInt, CDbl or CBool; numbers
// of every sort still are, through an explicit constructor or assignment.
template <class V>
constexpr bool TakesNumbersAndNoTexts() {
  return !std::is_assignable_v<V&, const char*> && !std::is_assignable_v<V&, char> &&
         !std::is_assignable_v<V&, std::nullptr_t> && !std::is_assignable_v<V&, const void*> &&
         !std::is_constructible_v<V, const char*> && !std::is_constructible_v<V, char> &&
         !std::is_constructible_v<V, std::nullptr_t> && !std::is_constructible_v<V, CString> &&
         std::is_assignable_v<V&, int> && std::is_assignable_v<V&, signed char> &&
         std::is_assignable_v<V&, unsigned char> && std::is_constructible_v<V, short> &&
         !std::is_convertible_v<int, V> && std::is_trivially_copyable_v<V>;
}
static_assert(TakesNumbersAndNoTexts<CInt>() && TakesNumbersAndNoTexts<CDbl>() &&
              TakesNumbersAndNoTexts<CBool>());
// The refused overloads add no conversion: a text still picks a CString.
int TakeEither(CString);
int TakeEither(CInt);
int TakeEither(CBool);
static_assert(std::is_same_v<decltype(TakeEither("text")), int>);
// The classes read and write the fields where they are.
static_assert(offsetof(CInt, isSet) == sizeof(int32_t) && offsetof(CDbl, isSet) == sizeof(double) &&
              offsetof(CBool, isSet) == 1);

namespace {

MsgPtr NewMsg(int num, CMsgDic* dic = MA_GetMsgDic()) { return MsgPtr(new CMsg(num, 0, 0, dic)); }

CMsg* NewSub(int num = 2143) { return new CMsg(num, 0, 0, MA_GetMsgDic()); }

template <class A>
A Array(std::initializer_list<double> values) {
  A a;
  for (double v : values) a.Add(static_cast<decltype(a.GetAt(0))>(v));
  return a;
}

// "abc...zab..." of `len` bytes, so that a shifted copy shows.
std::string Pattern(int len) {
  std::string s;
  for (int i = 0; i < len; ++i) s += static_cast<char>('a' + i % 26);
  return s;
}

// "size:text", the size a string gives and its terminated text: the two must agree.
std::string Sized(const CString& s) { return std::to_string(s.GetSize()) + ":" + s.ToStr(); }
std::string Sized(const std::string& s) { return std::to_string(s.size()) + ":" + s; }

// Short texts of values, "-" for unset, so that a failure shows the value.
std::string Num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}
std::string Show(const CInt& v) { return v.isSet ? Num(v.value) : "-"; }
std::string Show(const CDbl& v) { return v.isSet ? Num(v.value) : "-"; }
std::string Show(const CBool& v) { return !v.isSet ? "-" : v.value ? "Y" : "N"; }
std::string Show(const CDate& v) { return v.isSet ? v.text : "-"; }
std::string Show(const CString& v) { return '"' + Str(v) + '"'; }
template <class T>
std::string Show(const kyt_detail::ValueArray<T>& a) {
  std::string s;
  for (int i = 0; i < a.size; ++i) s += (i ? "," : "") + Num(a.GetAt(i));
  return "{" + s + "}";
}

// A read's state after its result code, unless that is KYT_OK.
std::string Outcome(int rc, const std::string& state) {
  return (rc == KYT_OK ? "" : "rc " + std::to_string(rc) + ": ") + state;
}

// GetValue into an object that starts as `init`: what the object holds
// afterwards.
template <class T>
std::string Read(const CMsg& msg, int tag, T init = T()) {
  const int rc = msg.GetValue(tag, &init);
  return Outcome(rc, Show(init));
}

}  // namespace

TEST(CStringTest, CopiesMovesAndAppendsOnBothSidesOfTheInlineLimit) {
  // Up to 31 bytes a text lives in the object, beyond it on the heap. The
  // target holds a text of each length first, a short one also in a block.
  const int lengths[] = {0, 31, 32, 600};
  for (int from : lengths) {
    for (int to : lengths) {
      SCOPED_TRACE(std::to_string(from) + " bytes over " + std::to_string(to));
      const std::string want = Pattern(from + 1).substr(1);  // "bcd...", not "abc..."
      const CString src(want.c_str());
      CString targets[] = {Pattern(to).c_str(), Pattern(600).c_str()};
      targets[1] = Pattern(to).c_str();
      for (CString& dst : targets) {
        dst = src;
        EXPECT_EQ(Sized(dst), Sized(want));
        CString copy(dst);
        copy.Append("!", 1);
        EXPECT_EQ(Sized(copy), Sized(want + "!"));
        EXPECT_EQ(Sized(dst), Sized(want));
        CString moved(std::move(copy));
        EXPECT_EQ(Sized(copy), "0:");
        copy = "usable after the move";
        EXPECT_EQ(copy, "usable after the move");
        dst = std::move(moved);
        EXPECT_EQ(Sized(dst), Sized(want + "!"));
        // Its own text, whole or in part, as the source.
        CString& same = dst;
        dst = same;
        dst = std::move(same);
        dst.Append(dst.ToStr(), dst.GetSize());
        EXPECT_EQ(Sized(dst), Sized(want + "!" + want + "!"));
        dst = dst.ToStr() + 1;
        dst.Assign(dst.ToStr() + 1, from);
        EXPECT_EQ(Sized(dst), Sized((want + "!" + want + "!").substr(2, from)));
      }
    }
  }
  CString s("keep");
  s.Append(nullptr, 3);
  s.Append("xyz", -1);
  EXPECT_EQ(Sized(s), "4:keep");
  s = Pattern(40).c_str();
  s = static_cast<const char*>(nullptr);
  EXPECT_EQ(Sized(s), "0:");
  EXPECT_TRUE(CString("abc", -1).IsEmpty());
}

TEST(CStringTest, ComparesAndQuotes) {
  CString embedded("ab\0c", 4);
  EXPECT_EQ(embedded.GetSize(), 4);
  EXPECT_NE(embedded, "ab");
  EXPECT_NE(embedded, CString("ab"));
  EXPECT_EQ(embedded, CString("ab\0c", 4));
  EXPECT_NE(CString("abc"), "abcd");

  EXPECT_EQ(CString().Repr(), "\"\"");
  EXPECT_EQ(CString("say \"hi\"").Repr(), "\"say \\\"hi\\\"\"");
  EXPECT_EQ(CString("C:\\dir\n\t\r").Repr(), "\"C:\\\\dir\\n\\t\\r\"");
  EXPECT_EQ(CString("a\x01\x1f\x7f z").Repr(), "\"a\\x01\\x1f\\x7f z\"");
  EXPECT_EQ(CString("caf\xc3\xa9").Repr(), "\"caf\xc3\xa9\"");  // UTF-8 passes as it is
  // A quoted text of 32 bytes, and one that grows fourfold.
  EXPECT_EQ(Sized(CString(Pattern(30).c_str()).Repr()), Sized('"' + Pattern(30) + '"'));
  std::string quoted;
  for (int i = 0; i < 10; ++i) quoted += "\\x02";
  EXPECT_EQ(Sized(CString(std::string(10, '\x02').c_str()).Repr()), Sized('"' + quoted + '"'));
}

TEST(CStringTest, FormatReplacesTheTextAndGivesItsLength) {
  for (int before : {0, 31, 32, 600}) {
    SCOPED_TRACE(before);
    CString s(Pattern(before).c_str());
    // Texts on both sides of the 31 bytes that fit the object.
    for (int len : {0, 31, 32, 600}) {
      EXPECT_EQ(s.Format("%s", Pattern(len).c_str()), len);
      EXPECT_EQ(Sized(s), Sized(Pattern(len)));
    }
  }
  EXPECT_EQ(Sized(CFormat("%s|%d", Pattern(40).c_str(), 7)), Sized(Pattern(40) + "|7"));
  // An argument may be the string's own text, on either side of the limit.
  for (int len : {30, 31, 600}) {
    SCOPED_TRACE(len);
    const std::string text = Pattern(len);
    CString s(text.c_str());
    EXPECT_EQ(s.Format("%s!", s.ToStr()), len + 1);
    EXPECT_EQ(s.Format("%s|%s", s.ToStr(), s.ToStr() + 1), 2 * len + 2);
    EXPECT_EQ(Sized(s), Sized(text + "!|" + text.substr(1) + "!"));
  }
}

TEST(CStringTest, FormatTakesOneBlockAtMostAndKeepsItsTextWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  // In a thread of its own, which starts with no spare blocks, so that every
  // block is asked for; 600 bytes are more than a spare block holds.
  std::thread([] {
    const std::string text = Pattern(600);
    for (int before : {0, 40, 700}) {
      SCOPED_TRACE(before);
      CString s(Pattern(before).c_str());
      FailingAlloc::FailAt(0);
      EXPECT_EQ(s.Format("%031d", -5), 31);  // fits the object: no block
      EXPECT_THROW(s.Format("%s", text.c_str()), std::bad_alloc);
      FailingAlloc::FailAt(0);
      EXPECT_THROW(CFormat("%s", text.c_str()), std::bad_alloc);
      EXPECT_EQ(Str(s), "-" + std::string(29, '0') + "5");
      FailingAlloc::FailAt(1);  // a second block would fail
      const int n = s.Format("%s%d", text.c_str(), 7);
      FailingAlloc::Off();
      EXPECT_EQ(n, 601);
      EXPECT_EQ(Str(s), text + "7");
    }
  }).join();
}

// The days of a month, reckoned apart from the runtime: the day before the
// first of the next month, in days since 1 March of year 0 of the proleptic
// Gregorian calendar (a year of that count starts in March, so that the
// leap day comes last).
long DayNumber(long year, int month, int day) {
  if (month <= 2) {
    --year;
    month += 12;
  }
  const long fromMarch = (153 * (month - 3) + 2) / 5 + day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + fromMarch;
}
int DaysIn(int year, int month) {
  const long next = month == 12 ? DayNumber(year + 1, 1, 1) : DayNumber(year, month + 1, 1);
  return static_cast<int>(next - DayNumber(year, month, 1));
}

TEST(CDateTest, IsValidTextKnowsEveryDayOfYears1To9999AndNothingElse) {
  // Every month of years 1 to 9999: its first and last days, and the days
  // just outside it.
  int wrong = 0;
  for (int year = 1; year <= 9999; ++year) {
    for (int month = 1; month <= 12; ++month) {
      const int last = DaysIn(year, month);
      for (int day : {0, 1, 28, last - 1, last, last + 1, 31, 32}) {
        char text[16];
        std::snprintf(text, sizeof text, "%04d%02d%02d", year, month, day);
        const bool valid = day >= 1 && day <= last;
        if (CDate::IsValidText(text) != valid && ++wrong <= 10) {
          ADD_FAILURE() << text << (valid ? " refused" : " taken");
        }
      }
    }
  }
  EXPECT_EQ(wrong, 0);
  // No year 0, no month 0 or beyond 12; eight digits and nothing else.
  for (const char* bad : {"00000101", "20240001", "20241301", "20242001", "2/240101", "2:240101",
                          "2024010:", " 2024022", "2024022\x80", "2024022", "202402291",
                          "20240229 ", "", "ABCDEFGH"}) {
    EXPECT_FALSE(CDate::IsValidText(bad)) << bad;
  }
  EXPECT_FALSE(CDate::IsValidText(nullptr));
}

TEST(CDateTest, SetTakesAnyTextADateCanHold) {
  // Set checks no calendar, so that a date set from another's text is that
  // date; it refuses null and a text of more than 8 characters, and changes
  // nothing then. The text may be the date's own; an empty one unsets it.
  CDate d;
  const char longer[] = "202613991";
  EXPECT_TRUE(d.Set(&longer[1]));
  EXPECT_FALSE(d.Set(nullptr));
  EXPECT_FALSE(d.Set("202611231"));
  EXPECT_EQ(Show(d), "02613991");
  EXPECT_TRUE(d.Set(d.text + 4));
  EXPECT_EQ(Show(d), "3991");
  EXPECT_TRUE(d.Set(""));
  EXPECT_EQ(Show(d) + d.text, "-");
}

template <class A>
void CopiesEveryElementWhateverTheSizes() {
  auto countingUp = [](int n, int first) {
    A a;
    for (int i = 0; i < n; ++i) a.Add(first + i);
    return a;
  };
  // Empty, the four of the first block, and past it.
  for (int from : {0, 4, 5, 9}) {
    for (int to : {0, 4, 5, 9}) {
      SCOPED_TRACE(std::to_string(from) + " elements over " + std::to_string(to));
      const A src = countingUp(from, 100);
      const std::string want = Show(src);
      A dst = countingUp(to, 200);
      dst = src;
      EXPECT_TRUE(dst == src);
      A built(src);
      A moved(std::move(built));
      A target = countingUp(to, 300);
      target = std::move(moved);
      EXPECT_EQ(Show(target), want);
      // Each copy is its own; out of range there is nothing to read or write.
      EXPECT_EQ(dst.Add(7), from + 1);
      EXPECT_FALSE(dst == src);
      EXPECT_TRUE(dst.SetAt(from, -1));
      EXPECT_FALSE(dst.SetAt(from + 1, 1) || dst.SetAt(-1, 1));
      EXPECT_EQ(Show(dst), want.substr(0, want.size() - 1) + (from ? ",-1}" : "-1}"));
      EXPECT_EQ(dst.GetAt(-1) + dst.GetAt(from + 1), 0);
      EXPECT_EQ(Show(src), want);
      // Shrunk and grown again, the new elements are zeros.
      dst.SetSize(to);
      dst.SetSize(to + 2);
      EXPECT_EQ(dst.GetAt(to), 0);
      EXPECT_EQ(dst.size, to + 2);
      dst.SetSize(-1);
      EXPECT_EQ(dst.size, 0);
    }
  }
}

TEST(ValueArrays, CopiesEveryElementWhateverTheSizes) {
  CopiesEveryElementWhateverTheSizes<CIntArray>();
  CopiesEveryElementWhateverTheSizes<CDblArray>();
  EXPECT_FALSE(Array<CIntArray>({-5, 1}) == Array<CIntArray>({-5, 2}));
  EXPECT_FALSE(Array<CDblArray>({1.0}) == Array<CDblArray>({1.5}));
}

TEST(ValueArrays, PrintEachElementAsPrintfWould) {
  EXPECT_EQ(CIntArray().Repr(", ", false), "");
  EXPECT_EQ(CDblArray().Repr(nullptr, true), "{}");
  EXPECT_EQ(Array<CIntArray>({INT_MIN, -1, 0, INT_MAX}).Repr(nullptr, false),
            "-2147483648-102147483647");
  EXPECT_EQ(Array<CIntArray>({1, 2, 3}).Repr(", ", true), "{1, 2, 3}");
  EXPECT_EQ(Str(Array<CDblArray>({-HUGE_VAL, HUGE_VAL, std::nan(""), -std::nan(""), -0.0, 0.1,
                                  DBL_MAX, 5e-324, 1e22, -123.456})
                    .Repr(";", true)),
            "{-inf;inf;nan;-nan;-0.000000000000000e+00;1.000000000000000e-01;"
            "1.797693134862316e+308;4.940656458412465e-324;1.000000000000000e+22;"
            "-1.234560000000000e+02}");

  // Every element at its widest, with separators of no, one and 102
  // characters: the text fills all the room it was given.
  const std::string longSep = " " + Pattern(100) + " ";
  CIntArray ints;
  CDblArray dbls;
  std::string intsWant = "{", dblsWant = "{", sepWant;
  for (int i = 0; i < 1000; ++i) {
    ints.Add(INT_MIN);
    dbls.Add(-DBL_MAX);
    intsWant += "-2147483648";
    dblsWant += (i ? "," : "") + std::string("-1.797693134862316e+308");
    sepWant += (i ? longSep : "") + "-2147483648";
  }
  EXPECT_EQ(Sized(ints.Repr(nullptr, true)), Sized(intsWant + "}"));
  EXPECT_EQ(Sized(dbls.Repr(",", true)), Sized(dblsWant + "}"));
  EXPECT_EQ(Sized(ints.Repr(longSep.c_str(), false)), Sized(sepWant));
}

TEST(CExceptionTest, KeepsACopyOfItsTextAndItsCode) {
  char buf[32];
  std::strcpy(buf, "first text");
  CException e(buf, -28);
  std::strcpy(buf, "changed");
  EXPECT_STREQ(e.GetText(), "first text");
  EXPECT_EQ(e.GetCode(), -28);
  const std::string text = Pattern(400);
  EXPECT_EQ(std::string(CException(text.c_str(), 7).GetText()), text.substr(0, 255));
}

TEST(CMsgValues, EveryKindRoundTripsAndTheDictionaryRefusesWhatItDoesNotKnow) {
  MsgPtr m = NewMsg(10);
  const std::string text = Pattern(300);  // a length of two varint bytes
  CDate stale = Date("garbage");          // unset: its text is never looked at
  stale.isSet = false;
  ASSERT_EQ(m->SetValue(6, CInt(INT_MIN)), KYT_OK);
  ASSERT_EQ(m->SetValue(7, text.c_str()), KYT_OK);
  ASSERT_EQ(m->SetValue(8, CInt()), KYT_OK);
  ASSERT_EQ(m->SetValue(101, CBool(false)), KYT_OK);
  ASSERT_EQ(m->SetValue(175, CBool()), KYT_OK);
  ASSERT_EQ(m->SetValue(198, Date("20240229")), KYT_OK);
  ASSERT_EQ(m->SetValue(205, stale), KYT_OK);
  ASSERT_EQ(m->SetValue(239, CDbl(-0.0)), KYT_OK);
  ASSERT_EQ(m->SetValue(580, CDbl()), KYT_OK);
  ASSERT_EQ(m->SetValue(612, 1.5), KYT_OK);
  ASSERT_EQ(m->SetValue(612, CDbl()), KYT_OK);  // no element of the array
  ASSERT_EQ(m->SetValue(612, -2.0), KYT_OK);
  ASSERT_EQ(m->SetValue(775, ""), KYT_OK);
  ASSERT_EQ(m->SetValue(876, CBool(true)), KYT_OK);
  EXPECT_EQ(Read(*m, 6, CInt(5)), "-2147483648");
  EXPECT_EQ(Read(*m, 8, CInt(5)), "-");
  EXPECT_EQ(Read(*m, 7, CString("stale")), Show(CString(text.c_str())));
  EXPECT_EQ(Read(*m, 775, CString("stale")), "\"\"");
  EXPECT_EQ(Read(*m, 101, CBool(true)), "N");
  EXPECT_EQ(Read(*m, 175, CBool(true)), "-");
  EXPECT_EQ(Read(*m, 876, CBool(false)), "Y");
  EXPECT_EQ(Read(*m, 198, Date("1999")), "20240229");
  EXPECT_EQ(Read(*m, 205, Date("19991231")), "-");
  EXPECT_EQ(Read(*m, 239, CDbl(1.0)), "-0");
  EXPECT_EQ(Read(*m, 580, CDbl(1.0)), "-");
  EXPECT_EQ(Read(*m, 580, Array<CDblArray>({9.0})), "{}");
  EXPECT_EQ(Read(*m, 612, Array<CDblArray>({9.0})), "{1.5,-2}");

  // What the dictionary refuses is not added: an unknown tag, a value of
  // another type (every pair is tried below), a set date that is no day.
  EXPECT_EQ(m->SetValue(9, CInt(1)), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(100000, "far"), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(-1, CInt(1)), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(198, Date("19000229")), KYT_E_VALUE);
  EXPECT_EQ(m->SetValue(6, Date("20240230")), KYT_E_TYPE);  // the type comes first
  EXPECT_EQ(m->SetValue(7, static_cast<const char*>(nullptr)), KYT_E_ARG);
  EXPECT_EQ(m->GetValue(6, static_cast<CInt*>(nullptr)), KYT_E_ARG);
  EXPECT_EQ(m->GetValueCount(), 14);

  // Without a dictionary nothing is checked.
  MsgPtr raw = NewMsg(10, nullptr);
  EXPECT_EQ(raw->SetValue(198, Date("20241399")), KYT_OK);
  EXPECT_EQ(raw->SetValue(100000, "far"), KYT_OK);
  EXPECT_EQ(Read<CDate>(*raw, 198) + Read<CString>(*raw, 100000), "20241399\"far\"");
}

// A tag of each kind; the dictionary gives each its kind whatever the message.
struct TagOfKind {
  KytKind kind;
  int tag;
};
const TagOfKind kTagsOfKinds[] = {{KytKind::kInt, 6},    {KytKind::kDbl, 239},
                                  {KytKind::kBool, 101}, {KytKind::kDate, 198},
                                  {KytKind::kStr, 7},    {KytKind::kMsg, 695}};

// Every SetValue, with the kind of record it writes.
struct Writer {
  const char* name;
  KytKind kind;
  int (*set)(CMsg& msg, int tag);
};
const Writer kWriters[] = {
    {"CInt", KytKind::kInt, [](CMsg& m, int tag) { return m.SetValue(tag, CInt(42)); }},
    {"int", KytKind::kInt, [](CMsg& m, int tag) { return m.SetValue(tag, 42); }},
    {"CDbl", KytKind::kDbl, [](CMsg& m, int tag) { return m.SetValue(tag, CDbl(2.5)); }},
    {"double", KytKind::kDbl, [](CMsg& m, int tag) { return m.SetValue(tag, 2.5); }},
    {"CBool", KytKind::kBool, [](CMsg& m, int tag) { return m.SetValue(tag, CBool(true)); }},
    {"CDate", KytKind::kDate, [](CMsg& m, int tag) { return m.SetValue(tag, Date("20240229")); }},
    {"text", KytKind::kStr, [](CMsg& m, int tag) { return m.SetValue(tag, "text"); }},
    {"CMsg", KytKind::kMsg, [](CMsg& m, int tag) { return m.SetValue(tag, NewSub()); }},
};

// Every GetValue into an object that holds something first: what it holds
// after reading what the writer of its kind wrote, and after a refusal.
struct Reader {
  const char* name;
  KytKind kind;
  std::string (*read)(const CMsg& msg, int tag);
  const char* value;
  const char* untouched;
};

const Reader kReaders[] = {
    {"CInt", KytKind::kInt, [](const CMsg& m, int tag) { return Read(m, tag, CInt(5)); }, "42",
     "5"},
    {"CIntArray", KytKind::kInt,
     [](const CMsg& m, int tag) { return Read(m, tag, Array<CIntArray>({9})); }, "{42}", "{9}"},
    {"CDbl", KytKind::kDbl, [](const CMsg& m, int tag) { return Read(m, tag, CDbl(-1.0)); }, "2.5",
     "-1"},
    {"CDblArray", KytKind::kDbl,
     [](const CMsg& m, int tag) { return Read(m, tag, Array<CDblArray>({9.5})); }, "{2.5}",
     "{9.5}"},
    {"CBool", KytKind::kBool, [](const CMsg& m, int tag) { return Read(m, tag, CBool(false)); },
     "Y", "N"},
    {"CDate", KytKind::kDate, [](const CMsg& m, int tag) { return Read(m, tag, Date("19991231")); },
     "20240229", "19991231"},
    {"CString", KytKind::kStr, [](const CMsg& m, int tag) { return Read(m, tag, CString("keep")); },
     "\"text\"", "\"keep\""},
    {"CMsg*", KytKind::kMsg,
     [](const CMsg& m, int tag) {
       CMsg* sub = nullptr;
       int rc = m.GetValue(tag, &sub);
       return Outcome(rc, sub ? "M" + std::to_string(sub->msgnum) : "null");
     },
     "M2143", "null"},
    {"CMsgArray", KytKind::kMsg,
     [](const CMsg& m, int tag) {
       // Filled from another message first: a refusal empties it.
       static const MsgPtr two = [] {
         MsgPtr msg = NewMsg(10);
         msg->SetValue(695, NewSub());
         msg->SetValue(695, NewSub());
         return msg;
       }();
       CMsgArray subs(true);
       two->GetValue(695, &subs);
       int rc = m.GetValue(tag, &subs);
       std::string state = "[" + std::to_string(subs.GetSize()) + "]";
       return Outcome(
           rc, subs.GetSize() ? state + " M" + std::to_string(subs.GetAt(0)->msgnum) : state);
     },
     "[1] M2143", "[0]"},
};

TEST(CMsgValues, EveryKindRefusesTheOthersAndRefusalsChangeNothing) {
  CMsgDic* dic = MA_GetMsgDic();
  for (int unknown : {INT_MIN, -1, 0, 9, 1000000, INT_MAX}) {
    EXPECT_EQ(dic->TagKind(unknown), KytKind::kNone) << unknown;
  }
  for (const TagOfKind& k : kTagsOfKinds) {
    for (const Writer& w : kWriters) {
      SCOPED_TRACE(std::string(w.name) + " under " + std::to_string(k.tag));
      MsgPtr m = NewMsg(2161);
      const int rc = w.set(*m, k.tag);
      EXPECT_EQ(rc, w.kind == k.kind ? KYT_OK : KYT_E_TYPE);
      EXPECT_EQ(m->GetValueCount(), rc == KYT_OK ? 1 : 0);
      EXPECT_EQ(m->GetTreeSize(), rc == KYT_OK && w.kind == KytKind::kMsg ? 2 : 1);
    }
  }

  // Without a dictionary every kind goes anywhere, and reads back as the
  // kind written.
  for (const Writer& w : kWriters) {
    MsgPtr m = NewMsg(2161, nullptr);
    ASSERT_EQ(w.set(*m, 612), KYT_OK);
    for (const Reader& r : kReaders) {
      SCOPED_TRACE(std::string(r.name) + " from " + w.name);
      std::string want = r.kind == w.kind ? r.value : "rc -2: " + std::string(r.untouched);
      EXPECT_EQ(r.read(*m, 612), want);
      EXPECT_EQ(r.read(*m, 613), "rc -1: " + std::string(r.untouched));  // absent
    }
  }

  // A tag that holds values of several kinds, which only a message without
  // a dictionary takes, fails every read: one kind then another, next to it
  // or with another tag between.
  for (const Writer& one : kWriters) {
    for (const Writer& then : kWriters) {
      if (one.kind == then.kind) continue;
      for (bool spread : {false, true}) {
        SCOPED_TRACE(std::string(one.name) + " then " + then.name + (spread ? ", spread" : ""));
        MsgPtr raw = NewMsg(2161, nullptr);
        ASSERT_EQ(one.set(*raw, 612), KYT_OK);
        if (spread) {
          ASSERT_EQ(raw->SetValue(900, CInt(9)), KYT_OK);
        }
        ASSERT_EQ(then.set(*raw, 612), KYT_OK);
        for (const Reader& r : kReaders) {
          EXPECT_EQ(r.read(*raw, 612), "rc -2: " + std::string(r.untouched)) << r.name;
        }
        EXPECT_EQ(Read<CInt>(*raw, 900), spread ? "9" : "rc -1: -");
      }
    }
  }
}

TEST(CMsgValues, FindsEveryTagWhateverTheOrderOfAddingAndOfReading) {
  // Tags added going up, where a lookup may stop at a greater tag, going
  // down, and mixed; the values of a tag together and apart.
  const std::vector<std::vector<int>> orders = {{6, 7, 7, 8, 612, 612, 612, 876},
                                                {876, 612, 198, 7, 6, 612, 5146, 612},
                                                {7, 6, 7, 900, 6, 5, 900}};
  for (const std::vector<int>& tags : orders) {
    MsgPtr m = NewMsg(10, nullptr);
    for (size_t i = 0; i < tags.size(); ++i) ASSERT_EQ(m->SetValue(tags[i], int(i)), KYT_OK);
    // Each tag and its neighbours, read up, down and shuffled, a single
    // value and then all.
    std::vector<int> reads;
    for (int t : tags) reads.insert(reads.end(), {t - 1, t, t + 1});
    std::sort(reads.begin(), reads.end());
    std::minstd_rand random(1);
    for (int round = 0; round < 4; ++round) {
      if (round == 1) std::reverse(reads.begin(), reads.end());
      if (round >= 2) std::shuffle(reads.begin(), reads.end(), random);
      for (int t : reads) {
        std::string all;
        for (size_t i = 0; i < tags.size(); ++i) {
          if (tags[i] == t) all += (all.empty() ? "" : ",") + std::to_string(i);
        }
        const std::string first = all.substr(0, all.find(','));
        EXPECT_EQ(Read<CInt>(*m, t), all.empty() ? "rc -1: -" : first) << t;
        EXPECT_EQ(Read<CIntArray>(*m, t), all.empty() ? "rc -1: {}" : "{" + all + "}") << t;
      }
    }
  }
}

TEST(CMsgTree, SubMessageArraysWalkInAnyOrder) {
  for (bool spread : {false, true}) {
    SCOPED_TRACE(spread ? "spread between other tags" : "side by side");
    MsgPtr root = NewMsg(10);
    CMsg* kids[4];
    for (int k = 0; k < 4; ++k) {
      kids[k] = NewSub();
      ASSERT_EQ(root->SetValue(695, kids[k]), KYT_OK);
      if (spread) {
        ASSERT_EQ(k % 2 ? root->SetValue(6, CInt(k)) : root->SetValue(612, 1.0), KYT_OK);
      }
    }
    ASSERT_EQ(kids[1]->SetValue(695, NewSub()), KYT_OK);
    EXPECT_EQ(root->GetTreeSize(), 6);
    CMsgArray subs(true);
    ASSERT_EQ(root->GetValue(695, &subs), KYT_OK);
    ASSERT_EQ(subs.GetSize(), 4);
    for (int k : {2, 0, 3, 3, 1, 0, 1, 2, 3, 2, 1, 0}) EXPECT_EQ(subs.GetAt(k), kids[k]) << k;
    EXPECT_EQ(subs.GetAt(-1), nullptr);
    EXPECT_EQ(subs.GetAt(4), nullptr);
  }
}

TEST(CMsgTree, OwnsItsSubMessagesAndRefusesCycles) {
  MsgPtr a = NewMsg(1239);
  CMsg* child = NewSub();
  CMsg* grandchild = NewSub();
  ASSERT_EQ(a->SetValue(695, child), KYT_OK);
  ASSERT_EQ(child->SetValue(695, grandchild), KYT_OK);

  // Each of these is refused and stays where it is.
  MsgPtr b = NewMsg(1239);
  EXPECT_EQ(b->SetValue(695, child), KYT_E_ARG);             // has a parent
  EXPECT_EQ(a->SetValue(695, a.get()), KYT_E_ARG);           // itself
  EXPECT_EQ(grandchild->SetValue(695, a.get()), KYT_E_ARG);  // its root
  EXPECT_EQ(b->SetValue(695, static_cast<CMsg*>(nullptr)), KYT_E_ARG);
  EXPECT_EQ(b->GetValueCount(), 0);
  EXPECT_EQ(a->GetTreeSize(), 3);
  CMsg* got = nullptr;
  EXPECT_EQ(child->GetValue(695, &got), KYT_OK);
  EXPECT_EQ(got, grandchild);

  // A refused sub-message is freed with all below it (the leak checkers
  // see to that).
  CMsg* doomed = NewSub();
  ASSERT_EQ(doomed->SetValue(695, NewSub()), KYT_OK);
  ASSERT_EQ(doomed->SetValue(800, Pattern(100).c_str()), KYT_OK);
  EXPECT_EQ(b->SetValue(9, doomed), KYT_E_TAG);
  EXPECT_EQ(b->GetTreeSize(), 1);
}

TEST(CMsgThreads, ReadersOfOneMessageAtOnceEachReadWhatItHolds) {
  // A filled rate note, several levels deep, with arrays of values and of
  // sub-messages: every tag of every message in it, and the tag after each.
  MsgPtr msg;
  for (const auto& c : testing_support::AllClasses()) {
    if (std::string(c.name) == "M_IrNoteFlterHwMc")
      msg = testing_support::BuildSample(c.number, true);
  }
  ASSERT_NE(msg, nullptr);
  std::vector<std::pair<const CMsg*, int>> probes;
  std::vector<const CMsg*> open = {msg.get()};
  while (!open.empty()) {
    const CMsg* m = open.back();
    open.pop_back();
    CMsg::Cursor cursor(*m);
    for (CMsg::Value v; cursor.Next(&v);) {
      if (v.kind == KytKind::kMsg) open.push_back(v.msg);
      probes.insert(probes.end(), {{m, v.tag}, {m, v.tag + 1}});
    }
  }
  ASSERT_GT(probes.size(), 500u);
  auto read = [](const std::pair<const CMsg*, int>& p) {
    CMsgArray subs(true);
    const int rc = p.first->GetValue(p.second, &subs);
    return Read<CIntArray>(*p.first, p.second) + Read<CDbl>(*p.first, p.second) +
           Read<CString>(*p.first, p.second) + std::to_string(rc) + " " +
           std::to_string(reinterpret_cast<uintptr_t>(subs.GetAt(subs.GetSize() - 1)));
  };
  std::vector<std::string> alone;
  for (const auto& p : probes) alone.push_back(read(p));

  // Each reader reads in its own orders, up the tags, down and shuffled.
  std::atomic<int> wrong{0};
  auto reader = [&](int t) {
    std::vector<size_t> order(probes.size());
    std::minstd_rand random(static_cast<unsigned>(t + 1));
    for (int round = 0; round < 100; ++round) {
      for (size_t i = 0; i < order.size(); ++i) order[i] = i;
      if ((round + t) % 3 == 1) std::reverse(order.begin(), order.end());
      if ((round + t) % 3 == 2) std::shuffle(order.begin(), order.end(), random);
      for (size_t i : order) {
        if (read(probes[i]) != alone[i]) wrong.fetch_add(1);
      }
    }
  };
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t) readers.emplace_back(reader, t);
  for (std::thread& r : readers) r.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST(CStreamTest, CollectsWhatIsAppended) {
  CStream out;
  out.AppendData(nullptr, 5);
  out.AppendData("abc", -1);
  EXPECT_STREQ(out.ToStr(), "");
  std::string want;
  for (int k = 0; k < 300; ++k) {
    out.AppendData("xyz", k % 4);
    want += std::string("xyz").substr(0, k % 4);
  }
  EXPECT_EQ(out.GetSize(), static_cast<int>(want.size()));
  EXPECT_EQ(std::string(out.ToStr()), want);
  out.Clear();
  out.AppendData("z", 1);
  EXPECT_STREQ(out.ToStr(), "z");
  EXPECT_EQ(out.GetSize(), 1);
}
