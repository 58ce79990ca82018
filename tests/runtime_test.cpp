// The runtime the message classes stand on: CString and its formatter, the
// value types and arrays, CException, CStream, and CMsg with the dictionary
// and the text form.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
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

using testing_support::MsgPtr;
using testing_support::Text;

namespace {

// Every record of a message, as the cursor gives them: for trees that no
// class describes.
std::string Raw(const CMsg& msg) {
  std::string out;
  CMsg::Cursor cursor(msg);
  CMsg::Value v;
  while (cursor.Next(&v)) {
    out += "T" + std::to_string(v.tag) + " k" + std::to_string(static_cast<int>(v.kind)) +
           (v.isSet ? " set " : " unset ") + std::to_string(v.i) + " " + std::to_string(v.d) + " " +
           std::to_string(v.b) + " " + std::string(v.text ? v.text : "", v.len) + "\n";
    if (v.msg) out += "{\n" + Raw(*v.msg) + "}\n";
  }
  return out;
}

MsgPtr NewMsg(int num, CMsgDic* dic = MA_GetMsgDic()) { return MsgPtr(new CMsg(num, 0, 0, dic)); }

CMsg* NewSub(int num = 2143) { return new CMsg(num, 0, 0, MA_GetMsgDic()); }

// A date with this text written straight into it, as a caller may write the
// field: Set() refuses a text that is not a date, and these cases try what a
// message does with one.
CDate Date(const char* text) {
  CDate d;
  const size_t size = strnlen(text, CDate::kMaxLen);
  std::memcpy(d.text, text, size);
  d.text[size] = '\0';
  d.isSet = size > 0;
  return d;
}

CDblArray Dbls(std::initializer_list<double> values) {
  CDblArray a;
  for (double v : values) a.Add(v);
  return a;
}

CIntArray Ints(std::initializer_list<int> values) {
  CIntArray a;
  for (int v : values) a.Add(v);
  return a;
}

// "abc...zab..." of `len` bytes, so that a shifted copy shows.
std::string Pattern(int len) {
  std::string s;
  for (int i = 0; i < len; ++i) s += static_cast<char>('a' + i % 26);
  return s;
}

std::string Str(const CString& s) {
  return std::string(s.ToStr(), static_cast<size_t>(s.GetSize()));
}

// Short texts of values, "-" for unset, so that a failure shows the value.
std::string Show(const CInt& v) { return v.isSet ? std::to_string(v.value) : "-"; }
std::string Show(const CDbl& v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.17g", v.value);
  return v.isSet ? buf : "-";
}
std::string Show(const CBool& v) { return !v.isSet ? "-" : v.value ? "Y" : "N"; }
std::string Show(const CDate& v) { return v.isSet ? v.text : "-"; }
std::string Show(const CString& v) { return '"' + Str(v) + '"'; }
std::string Show(const CIntArray& a) {
  std::string s;
  for (int i = 0; i < a.size; ++i) s += (i ? "," : "") + std::to_string(a.GetAt(i));
  return "{" + s + "}";
}
std::string Show(const CDblArray& a) {
  std::string s;
  for (int i = 0; i < a.size; ++i) s += (i ? "," : "") + Show(CDbl(a.GetAt(i)));
  return "{" + s + "}";
}

// GetValue into an object that starts as `init`: what the object holds
// afterwards, after the result code unless that is KYT_OK.
template <class T>
std::string Read(const CMsg& msg, int tag, T init = T()) {
  int rc = msg.GetValue(tag, &init);
  return (rc == KYT_OK ? "" : "rc " + std::to_string(rc) + ": ") + Show(init);
}

}  // namespace

TEST(CStringTest, KeepsTextsOnBothSidesOfTheInlineLimit) {
  for (int len : {0, 1, 30, 31, 32, 33, 200, 511, 512, 600}) {
    SCOPED_TRACE(len);
    const std::string text = Pattern(len);
    CString s(text.c_str());
    EXPECT_EQ(s.GetSize(), len);
    EXPECT_EQ(Str(s), text);
    EXPECT_EQ(s.ToStr()[len], '\0');

    CString copy(s);
    CString moved(std::move(copy));
    EXPECT_EQ(moved, s);
    EXPECT_STREQ(copy.ToStr(), "");
    copy = "usable after the move";
    EXPECT_EQ(copy, "usable after the move");
    CString target(Pattern(50).c_str());  // a heap text to be given up
    target = std::move(moved);
    EXPECT_EQ(target, s);
    EXPECT_TRUE(moved.IsEmpty());

    // Byte by byte across the limit, back to a short text, and on again.
    CString grown;
    for (char c : text) grown.Append(&c, 1);
    EXPECT_EQ(grown, s);
    grown = "xy";
    EXPECT_EQ(grown, CString("xy"));
    grown.Append(text.c_str(), len);
    EXPECT_EQ(Str(grown), "xy" + text);

    // Its own text, whole or in part, as the source.
    if (len < 4) continue;
    CString& same = s;
    s = same;
    s = std::move(same);
    EXPECT_EQ(Str(s), text);
    s.Append(s.ToStr(), s.GetSize());  // grows while reading itself
    EXPECT_EQ(Str(s), text + text);
    s = s.ToStr() + 1;
    EXPECT_EQ(Str(s), (text + text).substr(1));
    s.Assign(s.ToStr() + 2, 5);
    EXPECT_EQ(Str(s), (text + text).substr(3, 5));
  }
  CString s("keep");
  s.Append(nullptr, 3);
  s.Append("xyz", 0);
  s.Append("xyz", -1);
  EXPECT_EQ(s, "keep");
  s.Assign(nullptr, 3);
  EXPECT_TRUE(s.IsEmpty());
  s = Pattern(40).c_str();
  s = static_cast<const char*>(nullptr);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(CString("abc", -1).IsEmpty());
}

TEST(CStringTest, AssignsAcrossTheInlineLimitInEveryDirection) {
  // Texts in the object, at its edge, and on the heap of two sizes; the
  // target is first given its text by each way a string gets one.
  const int lengths[] = {0, 1, 31, 32, 100, 600};
  for (int from : lengths) {
    for (int to : lengths) {
      SCOPED_TRACE(std::to_string(from) + " bytes over " + std::to_string(to));
      const std::string want = Pattern(from + 1).substr(1);  // "bcd...", not "abc..."
      const CString src(want.c_str());
      std::vector<CString> targets;
      targets.emplace_back(Pattern(to).c_str());
      targets.emplace_back(Pattern(600).c_str());
      targets.back() = Pattern(to).c_str();  // a short text in a heap block
      targets.emplace_back(CString(Pattern(to).c_str()));
      for (CString& dst : targets) {
        dst = src;
        EXPECT_EQ(Str(dst), want);
        EXPECT_EQ(dst.ToStr()[from], '\0');
        EXPECT_EQ(dst, src);
        CString copy(dst);
        EXPECT_EQ(Str(copy), want);
        copy.Append("!", 1);
        dst.Append("?", 1);
        EXPECT_EQ(Str(copy), want + "!");
        EXPECT_EQ(Str(dst), want + "?");
        EXPECT_EQ(Str(src), want);
        CString& same = copy;
        copy = same;
        EXPECT_EQ(Str(copy), want + "!");
        copy = "";
        EXPECT_TRUE(copy.IsEmpty());
        EXPECT_STREQ(copy.ToStr(), "");
        CString fromEmpty(copy);  // empty, perhaps in a heap block
        EXPECT_TRUE(fromEmpty.IsEmpty());
        dst = fromEmpty;
        EXPECT_TRUE(dst.IsEmpty());
        EXPECT_STREQ(dst.ToStr(), "");
        dst = src;
        EXPECT_EQ(Str(dst), want);
      }
    }
  }
}

TEST(CStringTest, ComparesAndQuotes) {
  CString embedded("ab\0c", 4);
  EXPECT_EQ(embedded.GetSize(), 4);
  EXPECT_NE(embedded, "ab");
  EXPECT_NE(embedded, CString("ab"));
  EXPECT_EQ(embedded, CString("ab\0c", 4));
  EXPECT_NE(CString("abc"), "abd");
  EXPECT_NE(CString("abc"), "abcd");
  EXPECT_NE(CString(Pattern(40).c_str()), Pattern(41).c_str());

  EXPECT_EQ(CString().Repr(), "\"\"");
  EXPECT_EQ(CString("say \"hi\"").Repr(), "\"say \\\"hi\\\"\"");
  EXPECT_EQ(CString("C:\\dir").Repr(), "\"C:\\\\dir\"");
  EXPECT_EQ(CString("one\ntwo").Repr(), "\"one\\ntwo\"");
  EXPECT_EQ(CString("a\x01z").Repr(), "\"a\\x01z\"");
  EXPECT_EQ(CString("\x7f\t").Repr(), "\"\\x7f\\t\"");
  EXPECT_EQ(CString("caf\xc3\xa9").Repr(), "\"caf\xc3\xa9\"");  // UTF-8 passes as it is
  // Quoted texts of 31 and 32 bytes, and one that grows fourfold.
  EXPECT_EQ(Str(CString(Pattern(29).c_str()).Repr()), '"' + Pattern(29) + '"');
  EXPECT_EQ(Str(CString(Pattern(30).c_str()).Repr()), '"' + Pattern(30) + '"');
  std::string controls, quoted;
  for (int i = 0; i < 100; ++i) {
    controls += static_cast<char>(1 + i % 31);
    char esc[8];
    std::snprintf(esc, sizeof esc, "\\x%02x", 1 + i % 31);
    quoted += i % 31 + 1 == '\n'   ? "\\n"
              : i % 31 + 1 == '\t' ? "\\t"
              : i % 31 + 1 == '\r' ? "\\r"
                                   : esc;
  }
  EXPECT_EQ(Str(CString(controls.c_str()).Repr()), '"' + quoted + '"');
}

// Formats with CString::Format, CFormat and snprintf; all three must agree
// byte for byte, and Format gives the length.
#define EXPECT_FORMATS_AS_SNPRINTF(...)                      \
  do {                                                       \
    SCOPED_TRACE(#__VA_ARGS__);                              \
    int n = std::snprintf(nullptr, 0, __VA_ARGS__);          \
    std::string want(static_cast<size_t>(n) + 1, '\0');      \
    std::snprintf(&want[0], want.size(), __VA_ARGS__);       \
    want.resize(static_cast<size_t>(n));                     \
    CString got("a stale text longer than the inline room"); \
    EXPECT_EQ(got.Format(__VA_ARGS__), n);                   \
    EXPECT_EQ(Str(got), want);                               \
    EXPECT_EQ(Str(CFormat(__VA_ARGS__)), want);              \
  } while (0)

TEST(CStringTest, FormatWritesWhatSnprintfWrites) {
  // The formats of the message classes.
  EXPECT_FORMATS_AS_SNPRINTF("%d|%04d|%s|%20s|%.15e", -28, 10, "M_Tiv", "iSysCode", 0.1);
  EXPECT_FORMATS_AS_SNPRINTF("%s:GET_VAL_ONE(M%04d.T%d) fail", "M_Tiv", 2143, 198);
  // Integers and texts.
  EXPECT_FORMATS_AS_SNPRINTF("%d|%d|%04d|%04d|%04d", INT_MIN, INT_MAX, -7, 123456, INT_MIN);
  EXPECT_FORMATS_AS_SNPRINTF("%-8d|%-8d|%+d|%+d|% d|% d", -42, INT_MIN, 5, 0, 5, -5);
  EXPECT_FORMATS_AS_SNPRINTF("%.3d|%8.3d|%.0d|%3.0d|%i", -5, 5, 0, 0, -1);
  EXPECT_FORMATS_AS_SNPRINTF("%s|%-20s|%.3s|%.10s|%5.2s", "", "left", "abcdef", "ab", "xyz");
  // Doubles at the edges of the type.
  EXPECT_FORMATS_AS_SNPRINTF("%e|%e|%e|%.0e|%.0e", 0.0, -0.0, 2.5, 2.5, 3.5);
  EXPECT_FORMATS_AS_SNPRINTF("%.15e|%.15e|%.15e|%.15e", 1e300, 5e-324, DBL_MAX, -DBL_MAX);
  EXPECT_FORMATS_AS_SNPRINTF("%e|%e|%e|%.15e", HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan(""));
  EXPECT_FORMATS_AS_SNPRINTF("%12.3e|%-12.3e|%012.3e|%012.3e", -1.5, 1.0, -1.5, HUGE_VAL);
  EXPECT_FORMATS_AS_SNPRINTF("%+.2e|% e|%+e|%.15e", 9.999, 1.0, std::nan(""),
                             2.2250738585072014e-308);
  EXPECT_FORMATS_AS_SNPRINTF("100%% of %d%%|%%", 3);
  // Formats left to vsnprintf, alone and mixed with the ones done here.
  EXPECT_FORMATS_AS_SNPRINTF("%x|%5.1f|%ld", 255, 3.14159, -123456789012L);
  EXPECT_FORMATS_AS_SNPRINTF("%d %x %s %e", 1, 2, "mixed", 0.5);
  // Around the 31 bytes that fit the object, and long texts.
  for (int len : {28, 29, 30, 31}) {  // 30 to 33 bytes
    EXPECT_FORMATS_AS_SNPRINTF("%x|%s", 10, Pattern(len).c_str());
  }
  const std::string text = Pattern(300);
  EXPECT_FORMATS_AS_SNPRINTF("%s", text.c_str());
  EXPECT_FORMATS_AS_SNPRINTF("%300d|%-280s|%.300e", 42, "left", 1.0);
  EXPECT_FORMATS_AS_SNPRINTF("%.300f|%s", 1.0, Pattern(5000).c_str());

  // An argument may be the string's own text.
  CString s("abc");
  EXPECT_EQ(s.Format("[%s|%s]", s.ToStr(), s.ToStr()), 9);
  EXPECT_EQ(s, "[abc|abc]");
  s = Pattern(40).c_str();
  s.Format("%s%s", s.ToStr(), "!");
  EXPECT_EQ(Str(s), Pattern(40) + "!");
}

// True while the text lies in the object itself.
bool InObject(const CString& s) {
  const char* self = reinterpret_cast<const char*>(&s);
  return s.ToStr() >= self && s.ToStr() < self + sizeof s;
}

TEST(CStringTest, FormatKeepsUpTo31BytesInTheObjectAndTakesAnyLength) {
  for (int before : {0, 31, 32, 40, 600}) {
    for (int len : {0, 1, 30, 31, 32, 33, 64, 511, 512, 513, 5000}) {
      SCOPED_TRACE(std::to_string(before) + " bytes before, " + std::to_string(len) + " after");
      const std::string text = Pattern(len);
      CString s(Pattern(before).c_str());
      const bool wasInObject = InObject(s);
      EXPECT_EQ(s.Format("%s", text.c_str()), len);
      EXPECT_EQ(Str(s), text);
      EXPECT_EQ(s.ToStr()[len], '\0');
      // A text that fits stays where the old one was; a longer one leaves.
      EXPECT_EQ(InObject(s), wasInObject && len <= 31);
    }
  }
  // The arguments may be the string's own text, on either side of the limit.
  for (int len : {29, 30, 31, 32, 40, 600}) {
    SCOPED_TRACE(len);
    const std::string text = Pattern(len);
    CString s(text.c_str());
    EXPECT_EQ(s.Format("%s!", s.ToStr()), len + 1);
    EXPECT_EQ(Str(s), text + "!");
    EXPECT_EQ(s.Format("%s|%s", s.ToStr(), s.ToStr() + 1), 2 * len + 2);
    EXPECT_EQ(Str(s), text + "!|" + text.substr(1) + "!");
    EXPECT_EQ(s.Format("%.3s", s.ToStr() + 2), 3);
    EXPECT_EQ(Str(s), text.substr(2, 3));
  }
}

TEST(CStringTest, FormatTakesOneBlockAtMostAndKeepsItsTextWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  using testing_support::FailingAlloc;
  // Longer than the pooled blocks: each block is an allocation of its own.
  const std::string text = Pattern(600);
  for (int before : {0, 31, 40, 700}) {
    SCOPED_TRACE(before);
    CString s(Pattern(before).c_str());
    FailingAlloc::FailAt(1);  // a second allocation would fail
    EXPECT_EQ(s.Format("%s%d", text.c_str(), 7), 601);
    FailingAlloc::Off();
    EXPECT_FALSE(FailingAlloc::Fired());
    EXPECT_EQ(Str(s), text + "7");

    CString t(Pattern(before).c_str());
    FailingAlloc::FailAt(0);
    EXPECT_THROW(t.Format("%s", text.c_str()), std::bad_alloc);
    FailingAlloc::FailAt(0);
    EXPECT_THROW(CFormat("%s", text.c_str()), std::bad_alloc);
    FailingAlloc::Off();
    EXPECT_EQ(Str(t), Pattern(before));
    FailingAlloc::FailAt(0);
    EXPECT_EQ(t.Format("%031d", -5), 31);  // fits: no allocation
    FailingAlloc::Off();
    EXPECT_FALSE(FailingAlloc::Fired());
    EXPECT_EQ(Str(t), "-" + std::string(29, '0') + "5");
  }
}

TEST(CDateTest, IsValidTextChecksTheCalendar) {
  CDate d;
  EXPECT_TRUE(d.Set("202403011" + 1));  // from within a longer text
  EXPECT_EQ(Show(d), "02403011");
  EXPECT_TRUE(d.Set(d.text + 4));  // from its own text
  EXPECT_EQ(Show(d), "3011");

  for (const char* ok : {"20000229", "20240229", "19991231", "00010101", "99991231", "20240430"}) {
    EXPECT_TRUE(CDate::IsValidText(ok)) << ok;
  }
  for (const char* bad :
       {"19000229", "20230229", "20241301", "20240001", "20240100", "20240431", "20240132",
        "00000101", "2024022a", "2024-2-1", " 2024010", "2024010", "202401011", "", "ABCDEFGH"}) {
    EXPECT_FALSE(CDate::IsValidText(bad)) << bad;
  }
  EXPECT_FALSE(CDate::IsValidText(nullptr));
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

std::string DateText(int year, int month, int day) {
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02d%02d", year, month, day);
  return text;
}

TEST(CDateTest, IsValidTextKnowsEveryMonthOfEveryYear) {
  // The rules by name: every fourth year is a leap year, but not every
  // hundredth, but every four hundredth.
  for (const char* leap : {"20000229", "20240229", "16000229", "24000229", "00040229", "04000229",
                           "99960229", "19960229"}) {
    EXPECT_TRUE(CDate::IsValidText(leap)) << leap;
  }
  for (const char* common : {"19000229", "21000229", "22000229", "23000229", "20230229", "00010229",
                             "01000229", "99990229", "20000230", "20240230"}) {
    EXPECT_FALSE(CDate::IsValidText(common)) << common;
  }
  EXPECT_EQ(DaysIn(2024, 2), 29);
  EXPECT_EQ(DaysIn(1900, 2), 28);
  EXPECT_EQ(DaysIn(2000, 2), 29);
  EXPECT_EQ(DaysIn(2023, 4), 30);
  EXPECT_EQ(DaysIn(2023, 12), 31);

  // Every month of years 1 to 9999: its first and last days, and the days
  // just outside it.
  int wrong = 0;
  for (int year = 1; year <= 9999; ++year) {
    for (int month = 1; month <= 12; ++month) {
      const int last = DaysIn(year, month);
      for (int day : {0, 1, 28, last - 1, last, last + 1, 31, 32}) {
        const std::string text = DateText(year, month, day);
        const bool valid = day >= 1 && day <= last;
        if (CDate::IsValidText(text.c_str()) != valid && ++wrong <= 10) {
          ADD_FAILURE() << text << (valid ? " refused" : " taken");
        }
      }
    }
  }
  EXPECT_EQ(wrong, 0);

  // No year 0, no month 0 or beyond 12, in any year.
  for (int year : {0, 1, 1999, 9999}) {
    for (int month : {0, 13, 19, 20, 99}) {
      EXPECT_FALSE(CDate::IsValidText(DateText(year, month, 1).c_str())) << year << month;
    }
    EXPECT_EQ(CDate::IsValidText(DateText(year, 1, 1).c_str()), year > 0) << year;
  }
}

TEST(CDateTest, IsValidTextTakesEightDigitsAndNothingElse) {
  const std::string good = "20240229";
  ASSERT_TRUE(CDate::IsValidText(good.c_str()));
  // Each digit in turn replaced by the characters around the digits, and
  // by others; a terminator there makes the text short.
  for (size_t i = 0; i < good.size(); ++i) {
    for (char c : {'/', ':', ' ', '-', '+', '.', 'a', 'O', '\x80', '\xff', '\0'}) {
      std::string text = good;
      text[i] = c;
      EXPECT_FALSE(CDate::IsValidText(text.c_str())) << i << " " << static_cast<int>(c);
    }
  }
  // Every length but eight, and eight with more after it.
  for (size_t len = 0; len < good.size(); ++len) {
    EXPECT_FALSE(CDate::IsValidText(good.substr(0, len).c_str())) << len;
  }
  for (const char* longer : {"202402290", "20240229 ", "20240229x", "202402291231"}) {
    EXPECT_FALSE(CDate::IsValidText(longer)) << longer;
  }
  EXPECT_FALSE(CDate::IsValidText(nullptr));
  // A set date goes into a message only when it is one; an unset date
  // whatever its text.
  MsgPtr m = NewMsg(10);
  EXPECT_EQ(m->SetValue(198, Date("20240229")), KYT_OK);
  EXPECT_EQ(m->SetValue(198, Date("21000229")), KYT_E_VALUE);
  EXPECT_EQ(m->SetValue(198, Date("2024022")), KYT_E_VALUE);
  CDate unset = Date("2100029");
  unset.isSet = false;
  EXPECT_EQ(m->SetValue(198, unset), KYT_OK);
  EXPECT_EQ(m->GetValueCount(), 2);
}

TEST(ValueArrays, GrowCopyAndPrint) {
  CIntArray a;
  EXPECT_EQ(a.GetAt(0), 0);
  EXPECT_FALSE(a.SetAt(0, 1));
  EXPECT_EQ(a.Repr(", ", false), "");
  EXPECT_EQ(a.Repr(", ", true), "{}");
  for (int i = 0; i < 9; ++i) EXPECT_EQ(a.Add(i * 10 - 40), i + 1);
  EXPECT_EQ(a.GetAt(-1), 0);
  EXPECT_EQ(a.GetAt(9), 0);
  EXPECT_FALSE(a.SetAt(9, 1));
  EXPECT_FALSE(a.SetAt(-1, 1));
  EXPECT_TRUE(a.SetAt(8, INT_MIN));
  EXPECT_EQ(a.Repr(", ", false), "-40, -30, -20, -10, 0, 10, 20, 30, -2147483648");
  a.SetSize(3);
  a.SetSize(6);  // the dropped elements come back as zeros
  EXPECT_EQ(a.Repr(",", true), "{-40,-30,-20,0,0,0}");

  CIntArray b(a);
  EXPECT_TRUE(b.SetAt(0, 1));
  EXPECT_EQ(a.GetAt(0), -40);
  CIntArray small;
  small.Add(5);
  small = a;  // grows to take a longer array
  CIntArray& same = small;
  small = same;
  EXPECT_EQ(Show(small), Show(a));
  CIntArray moved(std::move(small));
  EXPECT_EQ(Show(moved), Show(a));
  EXPECT_EQ(small.size, 0);
  EXPECT_EQ(small.Add(7), 1);
  a.SetSize(-1);
  EXPECT_EQ(a.size, 0);

  CDblArray d = Dbls({-1.5, 1e300, 5e-324});
  EXPECT_EQ(d.Repr(", ", false),
            "-1.500000000000000e+00, 1.000000000000000e+300, 4.940656458412465e-324");
  d.SetSize(4);
  EXPECT_EQ(d.Repr(";", true),
            "{-1.500000000000000e+00;1.000000000000000e+300;4.940656458412465e-324;"
            "0.000000000000000e+00}");
}

// `n` elements counting up from `first`.
template <class A>
A CountingUp(int n, int first) {
  A a;
  for (int i = 0; i < n; ++i) a.Add(first + i);
  return a;
}

template <class A>
void CopiesEveryElementWhateverTheSizes() {
  // Empty, one element, the four of the first block, and past it.
  const int sizes[] = {0, 1, 2, 4, 5, 9};
  for (int from : sizes) {
    for (int to : sizes) {
      SCOPED_TRACE(std::to_string(from) + " elements over " + std::to_string(to));
      const A src = CountingUp<A>(from, 100);
      const std::string want = Show(src);
      A dst = CountingUp<A>(to, 200);
      dst = src;
      EXPECT_EQ(Show(dst), want);
      EXPECT_TRUE(dst == src);
      A built(src);
      EXPECT_EQ(Show(built), want);
      A moved(std::move(built));
      EXPECT_EQ(Show(moved), want);
      EXPECT_EQ(built.size, 0);
      A target = CountingUp<A>(to, 300);
      target = std::move(moved);
      EXPECT_EQ(Show(target), want);
      // Each copy is its own: changing it leaves the source alone, and it
      // grows on its own.
      if (from > 0) {
        EXPECT_TRUE(dst.SetAt(from - 1, -1));
        EXPECT_FALSE(dst == src);
        EXPECT_EQ(Show(src), want);
      }
      EXPECT_EQ(dst.Add(7), from + 1);
      EXPECT_EQ(dst.GetAt(from), 7);
      EXPECT_EQ(Show(src), want);
      A& same = dst;
      const std::string before = Show(dst);
      dst = same;
      EXPECT_EQ(Show(dst), before);
    }
  }
}

TEST(ValueArrays, CopiesEveryElementWhateverTheSizes) {
  CopiesEveryElementWhateverTheSizes<CIntArray>();
  CopiesEveryElementWhateverTheSizes<CDblArray>();
}

TEST(ValueArrays, OfOneElement) {
  const CIntArray one = Ints({-5});
  EXPECT_EQ(one.size, 1);
  EXPECT_EQ(one.GetAt(0), -5);
  EXPECT_EQ(one.GetAt(1), 0);
  EXPECT_EQ(one.GetAt(-1), 0);
  EXPECT_EQ(one.Repr(", ", false), "-5");
  EXPECT_EQ(one.Repr(", ", true), "{-5}");
  EXPECT_EQ(Dbls({0.25}).Repr("; ", true), "{2.500000000000000e-01}");
  EXPECT_TRUE(one == Ints({-5}));
  EXPECT_FALSE(one == Ints({5}));
  EXPECT_FALSE(one == Ints({-5, 0}));
  EXPECT_FALSE(Ints({-5, 1}) == Ints({-5, 2}));
  EXPECT_FALSE(Dbls({1.0}) == Dbls({2.0}));
  EXPECT_FALSE(CIntArray() == one);

  // Read from a message: one set value, one among unset ones, and a single
  // value read as an array.
  MsgPtr m = NewMsg(10);
  ASSERT_EQ(m->SetValue(5146, 42), KYT_OK);
  ASSERT_EQ(m->SetValue(612, CDbl()), KYT_OK);
  ASSERT_EQ(m->SetValue(612, 0.5), KYT_OK);
  ASSERT_EQ(m->SetValue(612, CDbl()), KYT_OK);
  ASSERT_EQ(m->SetValue(239, CDbl(7.0)), KYT_OK);
  EXPECT_EQ(Read(*m, 5146, Ints({1, 2, 3})), "{42}");
  EXPECT_EQ(Read(*m, 612, Dbls({1.0, 2.0})), "{0.5}");
  EXPECT_EQ(Read(*m, 239, CDblArray()), "{7}");
  CIntArray read;
  ASSERT_EQ(m->GetValue(5146, &read), KYT_OK);
  CIntArray copy(read);
  EXPECT_EQ(Show(copy), "{42}");
  EXPECT_EQ(copy.Repr(",", true), "{42}");
}

// What printf gives for the elements joined by `sep`.
std::string PrintfJoin(const CDblArray& a, const char* sep, bool braced) {
  std::string out = braced ? "{" : "";
  for (int i = 0; i < a.size; ++i) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15e", a.GetAt(i));
    out += (i > 0 && sep ? sep : "") + std::string(buf);
  }
  return braced ? out + "}" : out;
}

TEST(ValueArrays, PrintEachElementAsPrintfWould) {
  EXPECT_EQ(Ints({-7}).Repr(", ", false), "-7");
  EXPECT_EQ(Ints({-7}).Repr(", ", true), "{-7}");
  EXPECT_EQ(Ints({INT_MIN, -1, 0, INT_MAX}).Repr(nullptr, true),
            "{-2147483648-10"
            "2147483647}");
  EXPECT_EQ(Dbls({-1.5}).Repr(", ", false), "-1.500000000000000e+00");
  EXPECT_EQ(Dbls({}).Repr(nullptr, false), "");
  EXPECT_EQ(CIntArray().Repr(nullptr, true), "{}");

  const CDblArray edges =
      Dbls({-HUGE_VAL, HUGE_VAL, std::nan(""), -std::nan(""), -0.0, 0.0, DBL_MAX, -DBL_MAX, 5e-324,
            -2.2250738585072014e-308, -1e-300, 0.1, -123.456, 1e22, 9.9999999999999995e-5,
            -9.999999999999999e99, 0.5e-15});
  EXPECT_EQ(Str(edges.Repr(", ", false)).substr(0, 31), "-inf, inf, nan, -nan, -0.000000");
  const std::string longSep = " " + Pattern(100) + " ";
  for (const char* sep : {", ", "", static_cast<const char*>(nullptr), longSep.c_str()}) {
    for (bool braced : {false, true}) {
      EXPECT_EQ(Str(edges.Repr(sep, braced)), PrintfJoin(edges, sep, braced));
    }
  }

  // Every element at its widest: the text fills all the room it was given.
  CIntArray ints;
  CDblArray dbls;
  for (int i = 0; i < 1000; ++i) {
    ints.Add(INT_MIN);
    dbls.Add(i % 2 ? -DBL_MAX : -2.2250738585072014e-308);
  }
  std::string want = "{";
  for (int i = 0; i < 1000; ++i) want += "-2147483648";
  EXPECT_EQ(Str(ints.Repr(nullptr, true)), want + "}");
  EXPECT_EQ(Str(dbls.Repr("", true)), PrintfJoin(dbls, "", true));
  EXPECT_EQ(dbls.Repr(longSep.c_str(), false).GetSize(), 1000 * 23 + 999 * 102);
}

TEST(CExceptionTest, KeepsACopyOfItsTextAndItsCode) {
  char buf[32];
  std::strcpy(buf, "first text");
  CException e(buf, -28);
  std::strcpy(buf, "changed");
  EXPECT_STREQ(e.GetText(), "first text");
  EXPECT_EQ(e.GetCode(), -28);

  const std::string text = Pattern(400);
  try {
    throw CException(text.c_str(), 7);
  } catch (const CException& caught) {
    EXPECT_EQ(std::string(caught.GetText()), text.substr(0, CException::kMaxText));
    EXPECT_EQ(caught.GetCode(), 7);
  }
  EXPECT_EQ(std::string(CException(text.substr(0, 255).c_str(), 0).GetText()), text.substr(0, 255));
}

TEST(CMsgValues, EveryKindRoundTripsAndRefusalsChangeNothing) {
  MsgPtr m = NewMsg(10);
  const std::string text = Pattern(300);  // a length of two varint bytes
  CDate stale = Date("garbage");          // unset: its text is never looked at
  stale.isSet = false;
  ASSERT_EQ(m->SetValue(6, CInt(INT_MIN)), KYT_OK);
  ASSERT_EQ(m->SetValue(7, text.c_str()), KYT_OK);
  ASSERT_EQ(m->SetValue(8, CInt()), KYT_OK);
  ASSERT_EQ(m->SetValue(101, CBool(false)), KYT_OK);
  ASSERT_EQ(m->SetValue(175, CBool()), KYT_OK);
  ASSERT_EQ(m->SetValue(188, CDate()), KYT_OK);
  ASSERT_EQ(m->SetValue(198, Date("20240229")), KYT_OK);
  ASSERT_EQ(m->SetValue(205, stale), KYT_OK);
  ASSERT_EQ(m->SetValue(239, CDbl(-0.0)), KYT_OK);
  ASSERT_EQ(m->SetValue(580, CDbl()), KYT_OK);
  ASSERT_EQ(m->SetValue(775, ""), KYT_OK);
  ASSERT_EQ(m->SetValue(876, CBool(true)), KYT_OK);
  ASSERT_EQ(m->SetValue(5146, -3), KYT_OK);
  ASSERT_EQ(m->GetValueCount(), 13);

  // Read into objects that hold something else first.
  EXPECT_EQ(Read(*m, 6, CInt(5)), "-2147483648");
  EXPECT_EQ(Read(*m, 8, CInt(5)), "-");
  EXPECT_EQ(Read(*m, 7, CString("stale")), Show(CString(text.c_str())));
  EXPECT_EQ(Read(*m, 775, CString("stale")), "\"\"");
  EXPECT_EQ(Read(*m, 101, CBool(true)), "N");
  EXPECT_EQ(Read(*m, 175, CBool(true)), "-");
  EXPECT_EQ(Read(*m, 876, CBool(false)), "Y");
  EXPECT_EQ(Read(*m, 188, Date("19991231")), "-");
  EXPECT_EQ(Read(*m, 198, Date("1999")), "20240229");
  EXPECT_EQ(Read(*m, 205, Date("19991231")), "-");
  EXPECT_EQ(Read(*m, 239, CDbl(1.0)), "-0");
  EXPECT_EQ(Read(*m, 580, CDbl(1.0)), "-");
  EXPECT_EQ(Read(*m, 5146, CIntArray()), "{-3}");

  // An absent tag leaves the object as it was.
  EXPECT_EQ(Read(*m, 612, CInt(5)), "rc -1: 5");
  EXPECT_EQ(Read(*m, 612, CDbl(2.5)), "rc -1: 2.5");
  EXPECT_EQ(Read(*m, 612, Dbls({4.0})), "rc -1: {4}");
  EXPECT_EQ(Read(*m, 800, CString("keep")), "rc -1: \"keep\"");
  EXPECT_EQ(Read(*m, 222, Date("20000101")), "rc -1: 20000101");
  EXPECT_EQ(Read(*m, 9, CBool(true)), "rc -1: Y");
  CMsg* sub = m.get();
  EXPECT_EQ(m->GetValue(695, &sub), KYT_ABSENT);
  EXPECT_EQ(sub, m.get());
  CMsgArray subs(true);
  EXPECT_EQ(m->GetValue(695, &subs), KYT_ABSENT);
  EXPECT_EQ(subs.GetSize(), 0);

  // A value read as another type; a null object.
  EXPECT_EQ(Read(*m, 6, CDbl()), "rc -2: -");
  EXPECT_EQ(Read(*m, 7, CInt()), "rc -2: -");
  EXPECT_EQ(Read(*m, 198, CString()), "rc -2: \"\"");
  EXPECT_EQ(Read(*m, 876, CDate()), "rc -2: -");
  EXPECT_EQ(Read(*m, 6, Dbls({4.0})), "rc -2: {4}");
  EXPECT_EQ(m->GetValue(6, &sub), KYT_E_TYPE);
  EXPECT_EQ(m->GetValue(6, &subs), KYT_E_TYPE);
  EXPECT_EQ(m->GetValue(6, static_cast<CInt*>(nullptr)), KYT_E_ARG);

  // What the dictionary refuses is not added.
  EXPECT_EQ(m->SetValue(9, CInt(1)), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(100000, "far"), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(-1, CInt(1)), KYT_E_TAG);
  EXPECT_EQ(m->SetValue(6, CDbl(1.0)), KYT_E_TYPE);
  EXPECT_EQ(m->SetValue(7, CInt(1)), KYT_E_TYPE);
  EXPECT_EQ(m->SetValue(612, 3), KYT_E_TYPE);
  EXPECT_EQ(m->SetValue(6, NewSub()), KYT_E_TYPE);
  for (const char* bad : {"20240230", "19000229", "20241301", "2024", "2024022a"}) {
    EXPECT_EQ(m->SetValue(198, Date(bad)), KYT_E_VALUE) << bad;
  }
  EXPECT_EQ(m->SetValue(7, static_cast<const char*>(nullptr)), KYT_E_ARG);
  EXPECT_EQ(m->GetValueCount(), 13);

  // Without a dictionary nothing is checked.
  MsgPtr raw = NewMsg(10, nullptr);
  EXPECT_EQ(raw->GetDic(), nullptr);
  EXPECT_EQ(raw->SetValue(9, CInt(1)), KYT_OK);
  EXPECT_EQ(raw->SetValue(6, CDbl(2.5)), KYT_OK);
  EXPECT_EQ(raw->SetValue(198, Date("20241399")), KYT_OK);
  EXPECT_EQ(raw->SetValue(100000, "far"), KYT_OK);
  EXPECT_EQ(raw->SetValue(876, NewSub()), KYT_OK);
  EXPECT_EQ(Read<CInt>(*raw, 9), "1");
  EXPECT_EQ(Read<CDbl>(*raw, 6), "2.5");
  EXPECT_EQ(Read<CDate>(*raw, 198), "20241399");
  EXPECT_EQ(Read<CString>(*raw, 100000), "\"far\"");
  EXPECT_EQ(raw->GetValue(876, &sub), KYT_OK);
  EXPECT_EQ(sub->msgnum, 2143);
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

std::string Outcome(int rc, const std::string& state) {
  return (rc == KYT_OK ? "" : "rc " + std::to_string(rc) + ": ") + state;
}

const Reader kReaders[] = {
    {"CInt", KytKind::kInt, [](const CMsg& m, int tag) { return Read(m, tag, CInt(5)); }, "42",
     "5"},
    {"CIntArray", KytKind::kInt, [](const CMsg& m, int tag) { return Read(m, tag, Ints({9})); },
     "{42}", "{9}"},
    {"CDbl", KytKind::kDbl, [](const CMsg& m, int tag) { return Read(m, tag, CDbl(-1.0)); }, "2.5",
     "-1"},
    {"CDblArray", KytKind::kDbl, [](const CMsg& m, int tag) { return Read(m, tag, Dbls({9.5})); },
     "{2.5}", "{9.5}"},
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
  for (const TagOfKind& k : kTagsOfKinds) EXPECT_EQ(dic->TagKind(k.tag), k.kind) << k.tag;
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
      // Without a dictionary every kind goes anywhere, and reads back as
      // the kind written.
      MsgPtr raw = NewMsg(2161, nullptr);
      ASSERT_EQ(w.set(*raw, k.tag), KYT_OK);
      CMsg::Cursor cursor(*raw);
      CMsg::Value v;
      ASSERT_TRUE(cursor.Next(&v));
      EXPECT_EQ(v.kind, w.kind);
      EXPECT_EQ(v.tag, k.tag);
    }
  }

  for (const Writer& w : kWriters) {
    MsgPtr m = NewMsg(2161, nullptr);
    ASSERT_EQ(w.set(*m, 612), KYT_OK);
    const std::string before = Raw(*m);
    for (const Reader& r : kReaders) {
      SCOPED_TRACE(std::string(r.name) + " from " + w.name);
      std::string want = r.kind == w.kind ? r.value : "rc -2: " + std::string(r.untouched);
      EXPECT_EQ(r.read(*m, 612), want);
      EXPECT_EQ(r.read(*m, 613), "rc -1: " + std::string(r.untouched));  // absent
    }
    EXPECT_EQ(Raw(*m), before);
  }
}

TEST(CMsgValues, SingleAndArrayFormsShareATag) {
  MsgPtr m = NewMsg(2161);
  for (double v : {1.5, -2.0, 3.25}) ASSERT_EQ(m->SetValue(612, v), KYT_OK);
  ASSERT_EQ(m->SetValue(239, CDbl(7.0)), KYT_OK);
  ASSERT_EQ(m->SetValue(580, CDbl()), KYT_OK);
  CMsg* first = NewSub();
  CMsg* second = NewSub();
  ASSERT_EQ(m->SetValue(695, first), KYT_OK);
  ASSERT_EQ(m->SetValue(695, second), KYT_OK);

  EXPECT_EQ(Read<CDbl>(*m, 612), "1.5");
  EXPECT_EQ(Read(*m, 612, Dbls({99.0})), "{1.5,-2,3.25}");
  EXPECT_EQ(Read(*m, 239, Dbls({99.0})), "{7}");
  EXPECT_EQ(Read(*m, 580, Dbls({99.0})), "{}");  // unset: no element
  CMsg* sub = nullptr;
  EXPECT_EQ(m->GetValue(695, &sub), KYT_OK);
  EXPECT_EQ(sub, first);
  CMsgArray subs(true);
  EXPECT_EQ(m->GetValue(695, &subs), KYT_OK);
  ASSERT_EQ(subs.GetSize(), 2);
  EXPECT_EQ(subs.GetAt(0), first);
  EXPECT_EQ(subs.GetAt(1), second);

  // An array never takes part of a tag that holds another type.
  CIntArray ia;
  ia.Add(42);
  EXPECT_EQ(Read(*m, 612, ia), "rc -2: {42}");
  MsgPtr raw = NewMsg(2161, nullptr);
  ASSERT_EQ(raw->SetValue(612, 1.0), KYT_OK);
  ASSERT_EQ(raw->SetValue(612, 2), KYT_OK);
  ASSERT_EQ(raw->SetValue(612, 3.0), KYT_OK);
  ASSERT_EQ(raw->SetValue(695, NewSub()), KYT_OK);
  ASSERT_EQ(raw->SetValue(695, 4.0), KYT_OK);
  EXPECT_EQ(Read(*raw, 612, Dbls({99.0})), "rc -2: {99}");
  EXPECT_EQ(Read<CDbl>(*raw, 612), "rc -2: -");
  EXPECT_EQ(raw->GetValue(695, &subs), KYT_E_TYPE);
  EXPECT_EQ(subs.GetSize(), 0);
}

TEST(CMsgValues, ATagWithValuesOfSeveralKindsFailsEveryRead) {
  // Only a message without a dictionary takes them: a value of one kind,
  // then one of another, next to it or with another tag between.
  for (const Writer& first : kWriters) {
    for (const Writer& then : kWriters) {
      if (first.kind == then.kind) continue;
      for (bool spread : {false, true}) {
        SCOPED_TRACE(std::string(first.name) + " then " + then.name + (spread ? ", spread" : ""));
        MsgPtr m = NewMsg(2161, nullptr);
        ASSERT_EQ(first.set(*m, 612), KYT_OK);
        if (spread) {
          ASSERT_EQ(m->SetValue(900, CInt(9)), KYT_OK);
        }
        ASSERT_EQ(then.set(*m, 612), KYT_OK);
        for (const Reader& r : kReaders) {
          EXPECT_EQ(r.read(*m, 612), "rc -2: " + std::string(r.untouched)) << r.name;
        }
        EXPECT_EQ(Read<CInt>(*m, 900), spread ? "9" : "rc -1: -");
      }
    }
  }

  // An unset value counts for its kind; the other tags read as they are.
  MsgPtr m = NewMsg(2161, nullptr);
  ASSERT_EQ(m->SetValue(6, CInt(1)), KYT_OK);
  for (int k = 0; k < 3; ++k) ASSERT_EQ(m->SetValue(612, k), KYT_OK);
  ASSERT_EQ(m->SetValue(612, CDbl()), KYT_OK);
  ASSERT_EQ(m->SetValue(695, NewSub()), KYT_OK);
  ASSERT_EQ(m->SetValue(695, CInt()), KYT_OK);
  EXPECT_EQ(Read(*m, 612, Ints({9})), "rc -2: {9}");
  EXPECT_EQ(Read(*m, 612, CInt(5)), "rc -2: 5");
  CMsg* sub = nullptr;
  EXPECT_EQ(m->GetValue(695, &sub), KYT_E_TYPE);
  EXPECT_EQ(sub, nullptr);
  EXPECT_EQ(Read<CInt>(*m, 6), "1");
  ASSERT_EQ(m->SetValue(7, "text"), KYT_OK);
  EXPECT_EQ(Read<CString>(*m, 7), "\"text\"");
}

TEST(CMsgValues, FindsValuesInAnyOrderOfAdding) {
  // Descending tags: lookups cannot stop at the first greater tag.
  MsgPtr m = NewMsg(10);
  ASSERT_EQ(m->SetValue(876, CBool(true)), KYT_OK);
  ASSERT_EQ(m->SetValue(612, 1.0), KYT_OK);
  ASSERT_EQ(m->SetValue(198, Date("20240101")), KYT_OK);
  ASSERT_EQ(m->SetValue(7, "seven"), KYT_OK);
  ASSERT_EQ(m->SetValue(6, CInt(6)), KYT_OK);
  ASSERT_EQ(m->SetValue(612, 2.0), KYT_OK);  // apart from the first under its tag
  for (int k = 0; k < 200; ++k) ASSERT_EQ(m->SetValue(5146, 200 - k), KYT_OK);
  ASSERT_EQ(m->SetValue(612, 3.0), KYT_OK);
  EXPECT_EQ(m->GetValueCount(), 207);
  EXPECT_EQ(Read<CInt>(*m, 8), "rc -1: -");
  EXPECT_EQ(Read<CInt>(*m, 6), "6");
  EXPECT_EQ(Read<CString>(*m, 7), "\"seven\"");
  EXPECT_EQ(Read<CBool>(*m, 900), "rc -1: -");
  EXPECT_EQ(Read<CBool>(*m, 876), "Y");
  EXPECT_EQ(Read<CDate>(*m, 198), "20240101");
  EXPECT_EQ(Read<CDbl>(*m, 612), "1");
  EXPECT_EQ(Read<CDblArray>(*m, 612), "{1,2,3}");
  CIntArray ia;
  EXPECT_EQ(m->GetValue(5146, &ia), KYT_OK);
  ASSERT_EQ(ia.size, 200);
  EXPECT_EQ(ia.GetAt(0), 200);
  EXPECT_EQ(ia.GetAt(199), 1);

  // Ascending tags, read forwards, backwards and with misses in between.
  MsgPtr up = NewMsg(10);
  ASSERT_EQ(up->SetValue(6, CInt(6)), KYT_OK);
  ASSERT_EQ(up->SetValue(7, "t"), KYT_OK);
  ASSERT_EQ(up->SetValue(8, CInt(8)), KYT_OK);
  ASSERT_EQ(up->SetValue(612, 0.5), KYT_OK);
  ASSERT_EQ(up->SetValue(612, 1.5), KYT_OK);
  ASSERT_EQ(up->SetValue(876, CBool(false)), KYT_OK);
  EXPECT_EQ(Read<CBool>(*up, 876), "N");
  EXPECT_EQ(Read<CInt>(*up, 8), "8");
  EXPECT_EQ(Read<CDbl>(*up, 700), "rc -1: -");
  EXPECT_EQ(Read<CDblArray>(*up, 612), "{0.5,1.5}");
  EXPECT_EQ(Read<CInt>(*up, 6), "6");
  EXPECT_EQ(Read<CInt>(*up, 5), "rc -1: -");
  EXPECT_EQ(Read<CInt>(*up, 5000), "rc -1: -");
  EXPECT_EQ(Read<CString>(*up, 7), "\"t\"");
  // A single read then an array read of one tag, and the same tag twice.
  EXPECT_EQ(Read<CDbl>(*up, 612), "0.5");
  EXPECT_EQ(Read<CDblArray>(*up, 612), "{0.5,1.5}");
  EXPECT_EQ(Read<CInt>(*up, 8), "8");
  EXPECT_EQ(Read<CInt>(*up, 8), "8");
  EXPECT_EQ(Read<CBool>(*up, 876), "N");
  EXPECT_EQ(Read<CBool>(*up, 877), "rc -1: -");
  EXPECT_EQ(Read<CInt>(*up, 6), "6");
}

// Every value as the cursor gives it, one line each.
std::string Walk(const CMsg& msg) {
  std::string out;
  CMsg::Cursor cursor(msg);
  CMsg::Value v;
  while (cursor.Next(&v)) {
    out += std::to_string(v.tag) + ":" + std::to_string(static_cast<int>(v.kind)) + "=";
    if (v.kind == KytKind::kInt) out += std::to_string(v.i);
    if (v.kind == KytKind::kDbl) out += std::to_string(v.d);
    if (v.kind == KytKind::kStr || v.kind == KytKind::kDate)
      out.append(v.text, static_cast<size_t>(v.len));
    if (v.kind == KytKind::kMsg) out += "{" + Walk(*v.msg) + "}";
    out += ";";
  }
  return out;
}

TEST(CMsgValues, KeepsEveryValueAsTheRecordsOutgrowEachBlock) {
  // Records start inside the message and move to ever larger blocks; after
  // each value the whole content must read back, whatever moved.
  std::string expected;
  {
    MsgPtr m = NewMsg(10);
    for (int k = 0; k < 120; ++k) {
      std::string text = Pattern(k % 45);
      switch (k % 4) {
        case 0:
          ASSERT_EQ(m->SetValue(6, CInt(k)), KYT_OK);
          expected += "6:1=" + std::to_string(k) + ";";
          break;
        case 1:
          ASSERT_EQ(m->SetValue(7, text.c_str()), KYT_OK);
          expected += "7:5=" + text + ";";
          break;
        case 2:
          ASSERT_EQ(m->SetValue(612, k / 4.0), KYT_OK);
          expected += "612:2=" + std::to_string(k / 4.0) + ";";
          break;
        default: {
          CMsg* sub = NewSub();
          ASSERT_EQ(sub->SetValue(800, text.c_str()), KYT_OK);
          ASSERT_EQ(m->SetValue(695, sub), KYT_OK);
          expected += "695:6={800:5=" + text + ";};";
        }
      }
      ASSERT_EQ(Walk(*m), expected) << "after value " << k;
    }
    EXPECT_EQ(m->GetTreeSize(), 31);
  }
  // A message made from the blocks just freed starts empty.
  MsgPtr again = NewMsg(10);
  ASSERT_EQ(again->SetValue(6, CInt(1)), KYT_OK);
  for (int k = 0; k < 30; ++k) ASSERT_EQ(again->SetValue(7, "x"), KYT_OK);
  EXPECT_EQ(again->GetValueCount(), 31);
  EXPECT_EQ(Walk(*again).substr(0, 14), "6:1=1;7:5=x;7:");
  EXPECT_EQ(Walk(*again).size(), 6 + 30 * 6u);
}

TEST(CMsgValues, SubMessageArraysWalkInAnyOrder) {
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
    EXPECT_EQ(root->GetValueCount(), spread ? 8 : 4);
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
  EXPECT_EQ(child->SetValue(695, grandchild), KYT_E_ARG);    // its child already
  EXPECT_EQ(b->SetValue(695, static_cast<CMsg*>(nullptr)), KYT_E_ARG);
  EXPECT_EQ(b->GetValueCount(), 0);
  EXPECT_EQ(a->GetValueCount(), 1);
  EXPECT_EQ(a->GetTreeSize(), 3);
  CMsg* got = nullptr;
  EXPECT_EQ(a->GetValue(695, &got), KYT_OK);
  EXPECT_EQ(got, child);
  EXPECT_EQ(child->GetValue(695, &got), KYT_OK);
  EXPECT_EQ(got, grandchild);
  EXPECT_EQ(grandchild->GetValue(695, &got), KYT_ABSENT);

  // A refused sub-message is freed with all below it.
  CMsg* doomed = NewSub();
  ASSERT_EQ(doomed->SetValue(695, NewSub()), KYT_OK);
  ASSERT_EQ(doomed->SetValue(800, Pattern(100).c_str()), KYT_OK);
  EXPECT_EQ(b->SetValue(9, doomed), KYT_E_TAG);
  EXPECT_EQ(b->GetValueCount(), 0);

  // A wide tree goes with its root.
  MsgPtr wide = NewMsg(1264);
  for (int k = 0; k < 50; ++k) {
    CMsg* e = NewSub(1265);
    ASSERT_EQ(e->SetValue(612, k * 0.5), KYT_OK);
    ASSERT_EQ(e->SetValue(695, NewSub()), KYT_OK);
    ASSERT_EQ(wide->SetValue(1456, e), KYT_OK);
  }
  EXPECT_EQ(wide->GetTreeSize(), 101);
  EXPECT_EQ(wide->GetValueCount(), 50);
  wide.reset();
}

// What a reader of `kind` reads under `tag`: the single value and the array.
std::string ReadAs(const CMsg& msg, int tag, KytKind kind) {
  switch (kind) {
    case KytKind::kNone:
      break;
    case KytKind::kInt:
      return Read<CInt>(msg, tag) + " " + Read<CIntArray>(msg, tag);
    case KytKind::kDbl:
      return Read<CDbl>(msg, tag) + " " + Read<CDblArray>(msg, tag);
    case KytKind::kBool:
      return Read<CBool>(msg, tag);
    case KytKind::kDate:
      return Read<CDate>(msg, tag);
    case KytKind::kStr:
      return Read<CString>(msg, tag);
    case KytKind::kMsg: {
      CMsg* first = nullptr;
      std::string out = std::to_string(msg.GetValue(tag, &first));
      CMsgArray subs(true);
      out += " " + std::to_string(msg.GetValue(tag, &subs));
      for (int i = 0; i <= subs.GetSize(); ++i) {
        out += " " + std::to_string(reinterpret_cast<uintptr_t>(i ? subs.GetAt(i - 1) : first));
      }
      return out;
    }
  }
  return "no kind";
}

TEST(CMsgThreads, ReadersOfOneMessageAtOnceEachReadWhatItHolds) {
  // A filled rate note, several levels deep, with arrays of values and of
  // sub-messages.
  const testing_support::ClassCase* note = nullptr;
  for (const auto& c : testing_support::AllClasses()) {
    if (std::string(c.name) == "M_IrNoteFlterHwMc") note = &c;
  }
  ASSERT_NE(note, nullptr);
  MsgPtr msg = testing_support::BuildSample(note->number, true);
  const std::string text = Text(msg.get());
  std::unique_ptr<CMsgBase> reference = note->make();
  ASSERT_EQ(reference->Load(msg.get()), 0);
  const std::string dump = testing_support::DumpOf(*reference);

  // Every tag of every message in the tree, and what a lone reader reads
  // there; and tags that a message lacks, between and beyond its own.
  struct Probe {
    const CMsg* msg;
    int tag;
    KytKind kind;
  };
  std::vector<Probe> probes;
  std::vector<const CMsg*> open = {msg.get()};
  while (!open.empty()) {
    const CMsg* m = open.back();
    open.pop_back();
    CMsg::Cursor cursor(*m);
    CMsg::Value v;
    int last = -1;
    while (cursor.Next(&v)) {
      if (v.kind == KytKind::kMsg) open.push_back(v.msg);
      if (v.tag == last) continue;
      probes.push_back({m, v.tag, v.kind});
      probes.push_back({m, v.tag + 1, KytKind::kInt});
      last = v.tag;
    }
    probes.push_back({m, 1, KytKind::kDbl});
  }
  ASSERT_GT(probes.size(), 500u);
  std::vector<std::string> alone;
  for (const Probe& p : probes) alone.push_back(ReadAs(*p.msg, p.tag, p.kind));

  // Each reader reads in its own orders: up the tags, down, and shuffled,
  // and loads the whole note now and then. They start together.
  constexpr int kReaders = 4;
  std::atomic<int> waiting{kReaders};
  std::atomic<int> wrong{0};
  auto reader = [&](int t) {
    waiting.fetch_sub(1);
    while (waiting.load() > 0) {
    }
    std::vector<size_t> order(probes.size());
    std::minstd_rand random(static_cast<unsigned>(t + 1));
    for (int round = 0; round < 100; ++round) {
      for (size_t i = 0; i < order.size(); ++i) order[i] = i;
      if ((round + t) % 3 == 1) std::reverse(order.begin(), order.end());
      if ((round + t) % 3 == 2) std::shuffle(order.begin(), order.end(), random);
      for (size_t i : order) {
        if (ReadAs(*probes[i].msg, probes[i].tag, probes[i].kind) != alone[i]) wrong.fetch_add(1);
      }
      if (round % 10 == t % 10) {
        std::unique_ptr<CMsgBase> obj = note->make();
        if (obj->Load(msg.get()) != 0 || testing_support::DumpOf(*obj) != dump) wrong.fetch_add(1);
      }
    }
  };
  std::vector<std::thread> readers;
  for (int t = 0; t < kReaders; ++t) readers.emplace_back(reader, t);
  for (std::thread& r : readers) r.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(Text(msg.get()), text);
}

TEST(CStreamTest, CollectsWhatIsAppended) {
  CStream out;
  out.AppendData(nullptr, 5);
  out.AppendData("abc", 0);
  out.AppendData("abc", -1);
  EXPECT_EQ(out.GetSize(), 0);
  EXPECT_STREQ(out.ToStr(), "");
  out.AppendData("abc", 2);
  std::string want = "ab" + Pattern(1000);
  out.AppendData(want.c_str() + 2, 1000);
  for (int k = 0; k < 300; ++k) {
    out.AppendData("xyz", 3);
    want += "xyz";
  }
  EXPECT_EQ(out.GetSize(), static_cast<int>(want.size()));
  EXPECT_EQ(std::string(out.ToStr()), want);
  out.Clear();
  EXPECT_EQ(out.GetSize(), 0);
  EXPECT_STREQ(out.ToStr(), "");
  out.AppendData("z", 1);
  EXPECT_STREQ(out.ToStr(), "z");
}
