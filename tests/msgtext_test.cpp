// Message files: the schema tables they are checked against, the text of
// trees built by the classes and by hand, every refusal with its place, the
// memory they leave, and files.
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "ClassCases.h"
#include "MsgText.h"
#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "TextTesting.h"
#include "rates/M_IrTargetSwitching.h"

using namespace testing_support;
namespace fs = std::filesystem;
namespace schema = pricemsg::schema;

namespace {

template <class V>
void Set(CMsg& msg, int tag, V v) {
  ASSERT_GE(msg.SetValue(tag, v), 0) << "T" << tag;
}

CMsg& Attach(CMsg& parent, int tag, int number) {
  CMsg* sub = new CMsg(number, 0, 0, MA_GetMsgDic());
  EXPECT_GE(parent.SetValue(tag, sub), 0) << "T" << tag;
  return *sub;
}

MsgPtr Read(const std::string& text, MsgTextError* err = nullptr) {
  return MsgPtr(MA_ReadMsgText(text.data(), text.size(), err));
}

const std::string kOddText = "q\" b\\ n\n t\t r\r \x01\x1f\x7f \xc3\xa9 #}{";

// M_IrTargetSwitching: every single kind but a date, an int array and a
// sub-message; values added out of tag order, a value under a tag that the
// class lacks, a second value of a single field, and a field left absent
// (dAccumAmt, T4573).
MsgPtr Switching() {
  MsgPtr m = NewMsg(3685);
  Set(*m, 5146, 3);
  Set(*m, 784, kOddText.c_str());
  Set(*m, 117, Int(INT_MIN));
  Set(*m, 5076, Bool(true));
  CMsg& cpn = Attach(*m, 4702, 3623);
  Set(cpn, 3372, Bool(false));
  Set(cpn, 239, Dbl(1.0 / 3));
  Set(cpn, 200, std::string(40, 'w').c_str());
  Set(cpn, 337, CDbl());
  Set(*m, 118, CInt());
  Set(*m, 5075, Int(INT_MAX));
  Set(*m, 396, Dbl(0.1));
  Set(*m, 5145, "");
  Set(*m, 6, Int(1));    // iSysCode, which the class does not have
  Set(*m, 117, Int(5));  // a second value: a single read takes the first
  Set(*m, 5146, -1);
  Set(*m, 5146, INT_MIN);
  return m;
}

const std::string kSwitchingText =
    "M3685 M_IrTargetSwitching {\n"
    "  T117 iAppEndPeriodNo i -2147483648\n"
    "  T118 iAppStartPeriodNo i -\n"
    "  T396 dRate d 0.1\n"
    "  T784 sTgtOccPayoffType s \"q\\\" b\\\\ n\\n t\\t r\\r \\x01\\x1f\\x7f \xc3\xa9 #}{\"\n"
    "  T4702 mIrVanillaCpnB m M3623 M_IrVanillaCpnB {\n"
    "    T200 sDayCntConv s \"" +
    std::string(40, 'w') +
    "\"\n"
    "    T239 dFixedRate d 0.3333333333333333\n"
    "    T337 dMargin d -\n"
    "    T3372 bFixedYN b N\n"
    "  }\n"
    "  T5075 iSwitObservedPeriodNo i 2147483647\n"
    "  T5076 bSwitOccuredYN b Y\n"
    "  T5145 sAppPeriodType s \"\"\n"
    "  T5146 iaAppPeriodNo i 3\n"
    "  T5146 iaAppPeriodNo i -1\n"
    "  T5146 iaAppPeriodNo i -2147483648\n"
    "}\n";

// Doubles at the edges of what a double holds, and how they are written.
const std::vector<std::pair<double, const char*>> kEdgeDoubles = {
    {0.1, "0.1"},
    {1.0 / 3, "0.3333333333333333"},
    {-0.0, "-0"},
    {5e-324, "5e-324"},
    {2.225073858507201e-308, "2.225073858507201e-308"},
    {DBL_MIN, "2.2250738585072014e-308"},
    {DBL_MAX, "1.7976931348623157e+308"},
    {-DBL_MAX, "-1.7976931348623157e+308"},
    {1e23, "1e+23"},
    {9007199254740991.0, "9007199254740991"},
    {-1.5e-7, "-1.5e-07"},
    {HUGE_VAL, "inf"},
    {-HUGE_VAL, "-inf"},
    {std::nan(""), "nan"},
    {-std::nan(""), "-nan"},
};

// M_Greeks: a double array with every edge, single doubles set and unset,
// two elements of a repeated sub-message, one of them empty.
MsgPtr Greeks() {
  MsgPtr m = NewMsg(2161);
  for (const auto& [d, text] : kEdgeDoubles) Set(*m, 612, d);
  Set(*m, 615, Dbl(-0.0));
  Set(*m, 616, CDbl());
  CMsg& rho = Attach(*m, 2668, 1925);
  Set(rho, 580, Dbl(5e-324));
  Set(rho, 599, Int(7));
  Attach(*m, 2668, 1925);
  return m;
}

bool SameBits(double a, double b) {
  if (std::isnan(a)) return std::isnan(b) && std::signbit(a) == std::signbit(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

TEST(SchemaTables, FindEveryClassFieldAndMemberAndNothingElse) {
  for (const schema::ClassInfo& c : schema::Classes()) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(schema::FindClass(c.number), &c);
    EXPECT_EQ(schema::FindClass(c.name), &c);
    for (int k = 0; k < c.memberCount; ++k) {
      const schema::FieldInfo& f = schema::MemberOf(c, k);
      EXPECT_EQ(schema::FindMember(c, f.tag), &f);
      EXPECT_EQ(schema::MemberIndex(c, f.tag), k);
      if (k > 0) {
        EXPECT_LT(schema::MemberOf(c, k - 1).tag, f.tag);
      }
      EXPECT_EQ(schema::FindMember(c, f.tag + 1) == nullptr,
                k + 1 == c.memberCount || schema::MemberOf(c, k + 1).tag != f.tag + 1);
    }
  }
  for (const schema::FieldInfo& f : schema::Fields()) {
    EXPECT_EQ(schema::FindField(f.name), &f);
    const bool holds = f.kind == schema::Kind::kMessage || f.kind == schema::Kind::kMessageArray;
    ASSERT_EQ(f.held >= 0, holds) << f.name;
    if (holds) {
      EXPECT_EQ(std::string(schema::HeldClass(f).name) +
                    (f.kind == schema::Kind::kMessageArray ? "_Array" : ""),
                f.type);
    }
  }
  // Twins share a tag, single and array, with one letter.
  const schema::FieldInfo* delta = schema::FindField("dDelta");
  const schema::FieldInfo* deltas = schema::FindField("daDelta");
  ASSERT_TRUE(delta && deltas);
  EXPECT_EQ(delta->tag, deltas->tag);
  EXPECT_EQ(schema::InfoOf(delta->kind).letter, schema::InfoOf(deltas->kind).letter);
  EXPECT_FALSE(schema::InfoOf(delta->kind).repeats);
  EXPECT_TRUE(schema::InfoOf(deltas->kind).repeats);
  EXPECT_EQ(schema::InfoOf(schema::Kind::kMessageArray).letter, 'm');

  // Near misses find nothing.
  const schema::ClassInfo* tiv = schema::FindClass("M_Tiv");
  ASSERT_TRUE(tiv);
  for (int number : {0, -1, 9, INT_MAX, INT_MIN}) EXPECT_FALSE(schema::FindClass(number)) << number;
  for (const char* name : {"", "M_tiv", "M_Ti", "M_Tivv", "Tiv"}) {
    EXPECT_FALSE(schema::FindClass(name)) << name;
  }
  for (const char* name : {"", "dstrike", "dStrik", "dStrikeX", "M_Tiv"}) {
    EXPECT_FALSE(schema::FindField(name)) << name;
  }
  // Every phrase of the word list is found, sorted as the lookup needs;
  // near misses are not.
  const auto words = schema::Words();
  for (int i = 0; i < words.size(); ++i) {
    EXPECT_EQ(schema::FindWord(words[i].phrase), &words[i]);
    if (i > 0) {
      EXPECT_LT(std::string_view(words[i - 1].phrase), words[i].phrase);
    }
    const std::string phrase = words[i].phrase;
    for (const std::string& miss : {phrase + "x", phrase + " ", phrase.substr(1)}) {
      EXPECT_FALSE(schema::FindWord(miss)) << miss;
    }
  }
  EXPECT_FALSE(schema::FindWord(""));
  EXPECT_FALSE(schema::FindWord(std::string(1000, 'z')));
  EXPECT_EQ(schema::MemberIndex(*tiv, 612), -1);  // a tag of the dictionary, not of the class
  EXPECT_FALSE(schema::FindMember(*tiv, 0));
  EXPECT_FALSE(schema::FindMember(*tiv, INT_MAX));
}

TEST(MsgText, WritesEachFieldAsItsClassSaysAndReadsItBackExactly) {
  MsgPtr switching = Switching();
  EXPECT_EQ(Text(switching.get()), kSwitchingText);
  MsgTextError err{7, 7, "stale"};
  MsgPtr back = Read(kSwitchingText, &err);
  ASSERT_TRUE(back) << err.line << ":" << err.column << " " << err.reason;
  EXPECT_EQ(err.line, 0);
  EXPECT_EQ(err.column, 0);
  EXPECT_STREQ(err.reason, "");
  EXPECT_EQ(Text(back.get()), kSwitchingText);
  CString text;
  ASSERT_GE(back->GetValue(784, &text), 0);
  EXPECT_EQ(std::string(text.ToStr(), static_cast<size_t>(text.GetSize())), kOddText);

  // Doubles read back bit for bit; the writer appends to what it is given.
  MsgPtr greeks = Greeks();
  std::string written = "kept\n";
  ASSERT_EQ(MA_WriteMsgText(greeks.get(), &written), MSGTEXT_OK);
  ASSERT_EQ(written.compare(0, 5, "kept\n"), 0);
  std::string expected = "M2161 M_Greeks {\n";
  for (const auto& [d, shown] : kEdgeDoubles)
    expected += std::string("  T612 daDelta d ") + shown + "\n";
  expected +=
      "  T615 dTheta d -0\n"
      "  T616 dRho d -\n"
      "  T2668 maRhoValue m M1925 M_RhoValue {\n"
      "    T580 dValue d 5e-324\n"
      "    T599 iRateCrvId i 7\n"
      "  }\n"
      "  T2668 maRhoValue m M1925 M_RhoValue {\n"
      "  }\n"
      "}\n";
  EXPECT_EQ(written.substr(5), expected);
  back = Read(expected);
  ASSERT_TRUE(back);
  CDblArray deltas;
  ASSERT_GE(back->GetValue(612, &deltas), 0);
  ASSERT_EQ(deltas.size, static_cast<int>(kEdgeDoubles.size()));
  for (int i = 0; i < deltas.size; ++i) {
    EXPECT_TRUE(SameBits(deltas.GetAt(i), kEdgeDoubles[i].first)) << kEdgeDoubles[i].second;
  }
  CDbl theta;
  ASSERT_GE(back->GetValue(615, &theta), 0);
  EXPECT_TRUE(theta.isSet && SameBits(theta.value, -0.0));

  // Dates, set and unset.
  MsgPtr tiv = NewMsg(2143);
  Set(*tiv, 198, Date("20240229"));
  Set(*tiv, 775, "");
  MsgPtr unset = NewMsg(2143);
  Set(*unset, 198, CDate());
  EXPECT_EQ(Text(tiv.get()),
            "M2143 M_Tiv {\n  T198 nDate n \"20240229\"\n  T775 sDateType s \"\"\n}\n");
  EXPECT_EQ(Text(unset.get()), "M2143 M_Tiv {\n  T198 nDate n -\n}\n");
  back = Read(Text(tiv.get()));
  ASSERT_TRUE(back);
  CDate date;
  ASSERT_GE(back->GetValue(198, &date), 0);
  EXPECT_TRUE(date.isSet);
  EXPECT_STREQ(date.text, "20240229");

  // A tree of the class's own ToMsg, read back, loads into an equal object.
  M_IrTargetSwitching obj;
  obj.dAccumAmt.value = -2.5;
  obj.dAccumAmt.isSet = true;
  obj.sAppPeriodType = "EVERY";
  obj.mIrVanillaCpnB.bFixedYN.value = true;
  obj.mIrVanillaCpnB.bFixedYN.isSet = true;
  MsgPtr msg(obj.ToMsg());
  ASSERT_TRUE(msg) << obj.errtext.ToStr();
  back = Read(Text(msg.get()));
  ASSERT_TRUE(back);
  M_IrTargetSwitching loaded;
  ASSERT_EQ(loaded.Load(back.get()), 0) << loaded.errtext.ToStr();
  EXPECT_EQ(DumpOf(loaded), DumpOf(obj));

  // As kept by hand: a byte order mark, notes, blank lines, CRLF, tabs, no
  // names, upper-case hex, a block opened without a blank, no final newline.
  MsgPtr edited = Read(
      "\xEF\xBB\xBF# golden reply\r\nM10 {\r\n\r\n\tT6  i\t-7   \r\n  # inside\r\n"
      "  T7 s \"\\x41\\x7F\"\r\n}");
  ASSERT_TRUE(edited);
  EXPECT_EQ(Text(edited.get()),
            "M10 M_SysReject {\n  T6 iSysCode i -7\n  T7 sSysReasonText s \"A\\x7f\"\n}\n");
  edited = Read("M2143{\n}\n");
  ASSERT_TRUE(edited);
  EXPECT_EQ(Text(edited.get()), "M2143 M_Tiv {\n}\n");
}

TEST(MsgText, RefusesATextThatDoesNotFitTheClassesAtTheItemConcerned) {
  struct Case {
    std::string text;
    int line, column;
    const char* reason;
  };
  const std::string sys = "M10 {\n";
  const std::string sw = "M3685 {\n";
  // A leap day of a common year, which CDate::Set may refuse itself.
  CDate leapDay;
  leapDay.Set("20230229");  // what its result says differs between runtimes
  const bool setTakesAnyDate = leapDay.isSet;
  if (!setTakesAnyDate) {
    std::memcpy(leapDay.text, "20230229", sizeof leapDay.text);
    leapDay.isSet = true;
  }
  const Case cases[] = {
      // The layout.
      {"", 1, 1, "holds no message"},
      {"# only a note\n\n", 3, 1, "holds no message"},
      {"# only a note", 1, 14, "holds no message"},
      {"T6 i 1\n", 1, 1, "expected a message"},
      {"Mx {\n}\n", 1, 2, "expected a message number"},
      {"M10 M_SysReject\n}\n", 1, 16, "expected '{'"},
      {"M10 M_SysReject\r\n}\r\n", 1, 16, "expected '{'"},
      {"M10 1x {\n}\n", 1, 5, "expected a class name or '{'"},
      {"M10 { T6 i 1\n}\n", 1, 7, "unexpected text after '{'"},
      {sys + "  T6 i 1", 2, 9, "M_SysReject (M10) opened at line 1: '}' is missing"},
      {sw + "  T4702 m M3623 {\n    T239 d 1\n}\n", 5, 1, "M_IrTargetSwitching (M3685) opened"},
      {sys + "}\n\nM10 {\n}\n", 4, 1, "after the end of the message"},
      {sys + "} x\n", 2, 3, "unexpected text after '}'"},
      {sys + "  X\n}\n", 2, 3, "expected a value 'T<tag> ...' or '}'"},
      {sys + "  T6 i 1 2\n}\n", 2, 10, "after the value"},
      {sys + "\tT6 i 1 \t2\r\n}\n", 2, 10, "after the value"},
      {sys + "  T6 i\r\n}\n", 2, 7, "expected an integer, found the end of the line"},
      {sys + "  Tx i 1\n}\n", 2, 4, "expected a tag number"},
      {sys + "  T6\n}\n", 2, 5, "expected a type letter (i, d, b, n, s or m) after the tag"},
      {sys + "  T6 q 1\n}\n", 2, 6, "'q' is not a type letter (i, d, b, n, s or m)"},
      {sys + "  T6 iSysCode q 1\n}\n", 2, 15, "expected a type letter"},
      // Classes, tags, names and letters.
      {"M9 {\n}\n", 1, 1, "no class has the number M9"},
      {"M10 M_Tiv {\n}\n", 1, 5, "'M_Tiv' is class M2143, not M10, which is 'M_SysReject'"},
      {"M10 M_Nope {\n}\n", 1, 5, "class name 'M_Nope' does not fit M10"},
      {sys + "  T612 d 1\n}\n", 2, 3, "M_SysReject (M10) has no field with tag 612"},
      {sys + "  T6 iSysRefMsgNo i 1\n}\n", 2, 6, "'iSysRefMsgNo' does not fit T6 of M_SysReject"},
      {"M2161 {\n  T612 dDelta d 1\n}\n", 2, 8,
       "does not fit T612 of M_Greeks, which is 'daDelta'"},
      {sys + "  T6 d 1.5\n}\n", 2, 6, "T6 iSysCode holds int, written i, not d"},
      {"M2161 {\n  T2668 d 1\n}\n", 2, 9, "holds repeated message, written m, not d"},
      {sys + "  T6 i 1\n  # again\n  T6 i 2\n}\n", 4, 3,
       "a second value for T6 iSysCode, which holds one (the first is on line 2)"},
      {sw + "  T4702 m M3623 {\n  }\n  T4702 m M3623 {\n  }\n}\n", 4, 3, "second value for T4702"},
      {"M2161 {\n  T2668 m M2143 {\n  }\n}\n", 2, 11,
       "T2668 maRhoValue holds M_RhoValue (M1925), not M_Tiv (M2143)"},
      {"M2161 {\n  T2668 m {\n  }\n}\n", 2, 11, "expected a message 'M<number> {'"},
      // Values.
      {sys + "  T6 i 2147483648\n}\n", 2, 8, "out of the range of an integer"},
      {sys + "  T6 i 0x1\n}\n", 2, 8, "expected an integer"},
      {sw + "  T5146 i -\n}\n", 2, 11,
       "T5146 iaAppPeriodNo is an array: its elements cannot be unset"},
      {"M2161 {\n  T615 d 1e-400\n}\n", 2, 10, "out of the range of a double"},
      {"M2161 {\n  T612 d infinity\n}\n", 2, 10, "expected a number"},
      {sw + "  T5076 b y\n}\n", 2, 11, "expected Y, N or - for a boolean"},
      {"M2143 {\n  T198 n 20240101\n}\n", 2, 10, "expected a quoted date or -"},
      {"M2143 {\n  T198 n \"\"\n}\n", 2, 10, "an empty date"},
      {"M2143 {\n  T198 n \"202401011\"\n}\n", 2, 10, "a date of 9 characters"},
      {"M2143 {\n  T198 n \"20230229\"\n}\n", 2, 10,
       setTakesAnyDate ? "T198 nDate: the runtime refused the value"
                       : "the runtime did not take the date '20230229'"},
      {sys + "  T7 s x\n}\n", 2, 8, "expected a quoted text"},
      {sys + "  T7 s \"ab", 2, 8, "not closed"},
      {sys + "  T7 s \"ab\\\n}\n", 2, 8, "not closed"},
      {sys + "  T7 s \"a\\qb\"\n}\n", 2, 10, "unknown escape \\q"},
      {sys + "  T7 s \"a\\x4\"\n}\n", 2, 10, "two hex digits"},
      {sys + "  T7 s \"a\\x+4\"\n}\n", 2, 10, "two hex digits"},
      {sys + "  T7 s \"a\\x00\"\n}\n", 2, 10, "NUL"},
      {sys + std::string("  T7 s \"a\0\"\n}\n", 14), 2, 10, "NUL"},
      {sys + "  T7 s \"a\\\x01\"\n}\n", 2, 10, "a backslash before '\\x01' is not an escape"},
  };
  // Which dates a runtime takes is its own affair: the calendar's refusal is
  // tried only where the runtime refuses that date, in CDate::Set or in
  // SetValue.
  const bool takesAnyDate = setTakesAnyDate && NewMsg(2143)->SetValue(198, leapDay) >= 0;
  for (const Case& c : cases) {
    if (takesAnyDate && std::strstr(c.text.c_str(), "\"20230229\"")) continue;
    MsgTextError err{};
    bool refused = false;
    EXPECT_TRUE(LeavesNothing([&] { refused = !Read(c.text, &err); })) << c.text;
    EXPECT_TRUE(refused) << c.text;
    EXPECT_EQ(err.line, c.line) << c.text << "\n" << err.reason;
    EXPECT_EQ(err.column, c.column) << c.text << "\n" << err.reason;
    EXPECT_NE(std::strstr(err.reason, c.reason), nullptr) << c.text << "\n" << err.reason;
  }
  // On the first line after a byte order mark, columns count from the byte
  // after it, for every error there.
  for (const Case& c : cases) {
    if (c.line != 1 || c.text.empty()) continue;
    MsgTextError err{};
    EXPECT_FALSE(Read("\xEF\xBB\xBF" + c.text, &err)) << c.text;
    EXPECT_EQ(err.line, c.line) << c.text;
    EXPECT_EQ(err.column, c.column) << c.text;
  }
  MsgTextError err{};
  EXPECT_FALSE(Read("\xEF\xBB\xBF", &err));
  EXPECT_EQ(err.line, 1);
  EXPECT_EQ(err.column, 1);
  // No text at all has no position.
  for (size_t size : {0, 3}) {
    err = MsgTextError{5, 5, ""};
    EXPECT_FALSE(MA_ReadMsgText(nullptr, size, &err));
    EXPECT_EQ(err.line, 0);
    EXPECT_EQ(err.column, 0);
    EXPECT_NE(std::strstr(err.reason, "no text"), nullptr) << err.reason;
  }
  EXPECT_FALSE(MA_ReadMsgText(nullptr, 0, nullptr));  // no text, and nowhere to tell why

  // The runtime's refusal of a value, and of a sub-message when its block
  // closes, which is told at the line that opened it.
  const std::string text = sw + "  T396 d 1\n  T4702 m M3623 {\n    T239 d 2\n  }\n}\n";
  for (auto [tag, line, column] : {std::tuple{396, 2, 10}, std::tuple{4702, 3, 3}}) {
    ASSERT_TRUE(ArmFault(FaultOp::kSet, tag, -17));
    EXPECT_TRUE(LeavesNothing([&] { EXPECT_FALSE(Read(text, &err)); }));
    ClearFaults();
    EXPECT_EQ(err.line, line);
    EXPECT_EQ(err.column, column);
    EXPECT_NE(std::strstr(err.reason, "the runtime refused the"), nullptr) << err.reason;
    EXPECT_NE(std::strstr(err.reason, "(code -17)"), nullptr) << err.reason;
  }

  // Damaged texts: every prefix, and each byte replaced by bytes that mean
  // something to the reader. A text that is taken must be one the writer
  // can write again, and that text must read back as itself.
  const std::string good = kSwitchingText + Text(Greeks().get());
  auto check = [](const std::string& text) {
    MsgPtr msg = Read(text);
    if (!msg) return;
    std::string again = Text(msg.get());
    MsgPtr back = Read(again);
    ASSERT_TRUE(back) << text;
    EXPECT_EQ(Text(back.get()), again) << text;
  };
  for (size_t n = 0; n < good.size(); ++n) {
    check(good.substr(0, n));
    for (char c : {'\0', '\n', '"', '\\', '{', '}', '-', 'M', 'T', 'm', '9', ' ', '\xff'}) {
      std::string damaged = good;
      damaged[n] = c;
      check(damaged);
    }
  }
}

TEST(MsgText, RefusesATreeItCannotWriteAndLeavesTheOutputAsItWas) {
  struct Case {
    const char* what;
    std::function<MsgPtr()> tree;
    int fault;  // a tag whose read fails, or 0
    int code;
    const char* reason;
  };
  const Case cases[] = {
      {"no class", [] { return NewMsg(9); }, 0, MSGTEXT_E_CLASS, "no class has the number M9"},
      {"a sub-message of another class",
       [] {
         MsgPtr m = Switching();
         CMsg* vanilla = nullptr;
         m->GetValue(4702, &vanilla);
         Attach(*vanilla, 4603, 2143);  // M_Tiv where M_KytRateIndexB belongs
         return m;
       },
       0, MSGTEXT_E_CLASS,
       "M_IrVanillaCpnB (M3623) T4603 mKytRateIndexB: a message M2143 where the field holds "
       "M_KytRateIndexB"},
      {"an element of another class",
       [] {
         MsgPtr m = Greeks();
         Attach(*m, 2668, 10);
         return m;
       },
       0, MSGTEXT_E_CLASS, "M_Greeks (M2161) T2668 maRhoValue: a message M10 where"},
      {"a failing read", Switching, 396, MSGTEXT_E_RUNTIME,
       "M_IrTargetSwitching (M3685) T396 dRate: the runtime failed to give the value (code -13)"},
      {"a failing read of a sub-message", Switching, 4702, MSGTEXT_E_RUNTIME,
       "T4702 mIrVanillaCpnB: the runtime failed to give the value (code -13)"},
      {"a failing read below", Switching, 3372, MSGTEXT_E_RUNTIME,
       "M_IrVanillaCpnB (M3623) T3372 bFixedYN: the runtime failed"},
      {"a failing read of an array", Greeks, 612, MSGTEXT_E_RUNTIME, "T612 daDelta: the runtime"},
      {"a failing read of elements", Greeks, 2668, MSGTEXT_E_RUNTIME, "T2668 maRhoValue: the"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    MsgPtr tree = c.tree();
    std::string out = "kept";
    MsgTextError err{};
    if (c.fault) {
      ASSERT_TRUE(ArmFault(FaultOp::kGet, c.fault, -13));
    }
    EXPECT_EQ(MA_WriteMsgText(tree.get(), &out, &err), c.code);
    ClearFaults();
    EXPECT_EQ(out, "kept");
    EXPECT_EQ(err.line, 0);
    EXPECT_NE(std::strstr(err.reason, c.reason), nullptr) << err.reason;
  }
  // A read that finds the tag absent is no failure: the field is left out.
  MsgPtr tiv = NewMsg(2143);
  Set(*tiv, 800, "1Y");
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 800, -1));
  EXPECT_EQ(Text(tiv.get()), "M2143 M_Tiv {\n}\n");
  ClearFaults();

  std::string out;
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgText(nullptr, &out, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_WriteMsgText(tiv.get(), nullptr), MSGTEXT_E_ARG);
  EXPECT_EQ(out, "");
}

TEST(MsgText, LeaksNothingWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  TempDir dir;
  const std::string path = (dir.path / "switching.msg").string();
  MsgPtr tree = Switching();
  ASSERT_EQ(MA_WriteMsgFile(tree.get(), path.c_str()), MSGTEXT_OK);
  long points =
      SweepReads([&](MsgTextError* err) { return MsgPtr(MA_ReadMsgFile(path.c_str(), err)); }, Text,
                 kSwitchingText);
  EXPECT_GT(points, 5);
  points = SweepWrites([&](std::string* out) { return MA_WriteMsgText(tree.get(), out); },
                       kSwitchingText);
  EXPECT_GT(points, 3);

  // A file write that runs out of memory has changed nothing: the old file
  // stays whole and no temporary file is left beside it.
  const std::string old = "M2143 M_Tiv {\n}\n";
  points = ForEachAllocationFailure([&](long n) {
    { std::ofstream(path, std::ios::trunc) << old; }
    MsgTextError err{};
    FailingAlloc::FailAt(n);
    const int rc = MA_WriteMsgFile(tree.get(), path.c_str(), &err);
    FailingAlloc::Off();
    std::ifstream in(path);
    const std::string now(std::istreambuf_iterator<char>(in), {});
    if (FailingAlloc::Fired()) {
      EXPECT_TRUE(rc == MSGTEXT_E_NOMEM || rc == MSGTEXT_E_RUNTIME) << rc << " " << err.reason;
      EXPECT_EQ(now, old) << "allocation " << n;
    } else {
      EXPECT_EQ(rc, MSGTEXT_OK) << err.reason;
      EXPECT_EQ(now, kSwitchingText);
    }
    EXPECT_EQ(dir.Names(), (std::vector<std::string>{"switching.msg"})) << "allocation " << n;
  });
  EXPECT_GT(points, 3);
}

// Requests of every kind in files: a filled sample is loaded into its class,
// written from the object to a file, read back and loaded into a new object,
// which dumps the same. Every 40th class, and the three deepest.
TEST(MsgFile, RequestsRoundTripThroughFilesAndAFileIsReplacedWhole) {
  const std::vector<ClassCase>& all = AllClasses();
  std::vector<const ClassCase*> picked;
  for (size_t i = 0; i < all.size(); i += 40) picked.push_back(&all[i]);
  std::vector<std::pair<int, const ClassCase*>> byDepth;
  for (const ClassCase& c : all) {  // one element in each repeated sub-message
    byDepth.push_back({-Depth(*BuildSample(c.number, true, 0)), &c});
  }
  std::stable_sort(byDepth.begin(), byDepth.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (int i = 0; i < 3; ++i) picked.push_back(byDepth[i].second);
  EXPECT_GE(-byDepth[2].first, 6);  // several levels down

  TempDir dir;
  for (const ClassCase* c : picked) {
    SCOPED_TRACE(c->name);
    std::unique_ptr<CMsgBase> obj = c->make();
    ASSERT_EQ(obj->Load(BuildSample(c->number, true, 2, c->number).get()), 0);
    MsgPtr msg(obj->ToMsg());
    ASSERT_TRUE(msg) << obj->errtext.ToStr();
    const std::string path = (dir.path / (std::string(c->name) + ".msg")).string();
    ASSERT_EQ(MA_WriteMsgFile(msg.get(), path.c_str()), MSGTEXT_OK);
    MsgTextError err{};
    MsgPtr back(MA_ReadMsgFile(path.c_str(), &err));
    ASSERT_TRUE(back) << path << ":" << err.line << ":" << err.column << ": " << err.reason;
    EXPECT_EQ(Text(back.get()), Text(msg.get()));
    std::unique_ptr<CMsgBase> fresh = c->make();
    ASSERT_EQ(fresh->Load(back.get()), 0) << fresh->errtext.ToStr();
    EXPECT_EQ(DumpOf(*fresh), DumpOf(*obj));
  }
  fs::remove_all(dir.path);
  fs::create_directory(dir.path);

  // A file is replaced whole; a write that fails leaves the old file and
  // nothing beside it, and so does a tree that cannot be written.
  const std::string path = (dir.path / "tiv.msg").string();
  MsgPtr tiv = Read("M2143 {\n}\n");
  ASSERT_EQ(MA_WriteMsgFile(Switching().get(), path.c_str()), MSGTEXT_OK);
  ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
  auto content = [&path] {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  EXPECT_EQ(content(), "M2143 M_Tiv {\n}\n");
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgFile(NewMsg(9).get(), path.c_str(), &err), MSGTEXT_E_CLASS);
  EXPECT_EQ(content(), "M2143 M_Tiv {\n}\n");
  const fs::path taken = dir.path / "taken";  // a directory stands there
  fs::create_directory(taken);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), taken.string().c_str(), &err), MSGTEXT_E_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_NE(std::strstr(err.reason, "Is a directory"), nullptr) << err.reason;
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), (dir.path / "no" / "such.msg").string().c_str(), &err),
            MSGTEXT_E_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"taken", "tiv.msg"}));
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), "", &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), nullptr, &err), MSGTEXT_E_ARG);

  // Files that cannot be read are told at line 0, and a file too large is
  // refused unread.
  const fs::path large = dir.path / "large.msg";
  std::ofstream(large).put('M');
  fs::resize_file(large, kMsgFileMaxSize + 1);
  struct Bad {
    std::string path;
    const char* reason;
  };
  for (const Bad& bad :
       {Bad{(dir.path / "lost.msg").string(), "cannot open"}, Bad{taken.string(), "Is a directory"},
        Bad{large.string(), "it is larger than 268435456 bytes"}, Bad{"", "no file"}}) {
    err = MsgTextError{9, 9, ""};
    EXPECT_FALSE(MA_ReadMsgFile(bad.path.c_str(), &err)) << bad.path;
    EXPECT_EQ(err.line, 0);
    EXPECT_EQ(err.column, 0);
    EXPECT_NE(std::strstr(err.reason, bad.reason), nullptr) << err.reason;
  }
  EXPECT_FALSE(MA_ReadMsgFile(nullptr, nullptr));
}

namespace {

std::string Content(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void Put(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// What stands at `path` itself, a link not followed: its type and mode,
// device and inode.
struct Entry {
  bool exists = false;
  mode_t mode = 0;
  dev_t dev = 0;
  ino_t ino = 0;
  bool operator==(const Entry& o) const {
    return exists == o.exists && mode == o.mode && dev == o.dev && ino == o.ino;
  }
};

Entry EntryAt(const fs::path& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return Entry{};
  return Entry{true, st.st_mode, st.st_dev, st.st_ino};
}

// The name that the writer of this process gives its `n`-th temporary file.
std::string TemporaryName(unsigned long n) {
  return ".msgfile-" + std::to_string(getpid()) + "-" + std::to_string(n) + ".tmp";
}

const std::string kTivText = "M2143 M_Tiv {\n}\n";

}  // namespace

// Whatever stands under a name that the writer tries for its temporary
// file, and a link at the target itself, the write goes to the target's
// own name and nowhere else.
TEST(MsgFile, APlantedLinkNeverRedirectsTheWrite) {
  TempDir dir;
  const fs::path files = dir.path / "files";
  const fs::path elsewhere = dir.path / "elsewhere";
  fs::create_directory(files);
  fs::create_directory(elsewhere);
  const fs::path victim = elsewhere / "victim";
  const fs::path unborn = elsewhere / "unborn";  // what a dangling link names
  Put(victim, "victim\n");
  const fs::path target = files / "tiv.msg";
  MsgPtr tiv = Read(kTivText);

  // Every name the writer of this process may try next, and the one that a
  // writer might derive from the target's name, is a link out of the
  // directory: the write finds no name of its own and gives up.
  constexpr unsigned long kPlanted = 1500;
  fs::create_symlink(victim, target.string() + ".part");
  for (unsigned long n = 0; n < kPlanted; ++n) {
    fs::create_symlink(n % 2 ? unborn : victim, files / TemporaryName(n));
  }
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), target.c_str(), &err), MSGTEXT_E_IO);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_NE(std::strstr(err.reason, "cannot create a file beside"), nullptr) << err.reason;
  EXPECT_EQ(Content(victim), "victim\n");
  EXPECT_FALSE(fs::exists(unborn));
  EXPECT_FALSE(fs::exists(fs::symlink_status(target)));

  // With half the names free, the write skips the links that stand between.
  for (unsigned long n = 0; n < kPlanted; n += 2) fs::remove(files / TemporaryName(n));
  ASSERT_EQ(MA_WriteMsgFile(tiv.get(), target.c_str(), &err), MSGTEXT_OK) << err.reason;
  EXPECT_EQ(Content(target), kTivText);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
  EXPECT_EQ(Content(victim), "victim\n");
  EXPECT_FALSE(fs::exists(unborn));
  size_t links = 0;
  for (const auto& e : fs::directory_iterator(files)) {
    if (e.path() != target) {
      EXPECT_TRUE(fs::is_symlink(e.symlink_status())) << e.path();
      ++links;
    }
  }
  EXPECT_EQ(links, kPlanted / 2 + 1);

  // A link at the target is replaced by the file; what it names is left
  // alone, be it a file, nothing, or a FIFO.
  const fs::path fifo = elsewhere / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Entry fifoBefore = EntryAt(fifo);
  for (const fs::path& named : {victim, unborn, fifo}) {
    SCOPED_TRACE(named);
    const fs::path link = dir.path / "link.msg";
    fs::create_symlink(named, link);
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), link.c_str(), &err), MSGTEXT_OK) << err.reason;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(link)));
    EXPECT_EQ(Content(link), kTivText);
    fs::remove(link);
  }
  EXPECT_EQ(Content(victim), "victim\n");
  EXPECT_FALSE(fs::exists(unborn));
  EXPECT_EQ(EntryAt(fifo), fifoBefore);
}

// What is not a regular file is refused with its kind named, and left as
// it was; the writer opens none of them, so a FIFO without a reader does
// not hold it up.
TEST(MsgFile, ASpecialFileOrDirectoryIsRefusedAndLeftAlone) {
  TempDir dir;
  MsgPtr tiv = Read(kTivText);
  struct Special {
    fs::path path;
    const char* reason;
    int error;
  };
  std::vector<Special> specials;
  const fs::path fifo = dir.path / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  specials.push_back({fifo, "it is a FIFO, not a regular file", EINVAL});
  const fs::path socketPath = dir.path / "socket";
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(sock, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(socketPath.string().size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socketPath.c_str());
  ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  specials.push_back({socketPath, "it is a socket, not a regular file", EINVAL});
  // A device of our own where we may make one; else the system's null
  // device, which a process that may not make devices cannot replace either.
  const fs::path device = dir.path / "null";
  std::vector<std::string> names = {"fifo", "socket", "sub"};
  if (mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
    names.insert(names.begin() + 1, "null");
    specials.push_back({device, "it is a character device, not a regular file", EINVAL});
  } else {
    specials.push_back({"/dev/null", "it is a character device, not a regular file", EINVAL});
  }
  const fs::path sub = dir.path / "sub";
  fs::create_directory(sub);
  Put(sub / "kept", "kept");
  specials.push_back({sub, "Is a directory", EISDIR});
  specials.push_back({sub.string() + "/", "Is a directory", EISDIR});
  specials.push_back({sub / ".", "Is a directory", EISDIR});
  specials.push_back({sub / "..", "Is a directory", EISDIR});
  specials.push_back({".", "Is a directory", EISDIR});
  for (const Special& s : specials) {
    SCOPED_TRACE(s.path);
    const Entry before = EntryAt(s.path);
    MsgTextError err{};
    errno = 0;
    EXPECT_EQ(MA_WriteMsgFile(tiv.get(), s.path.c_str(), &err), MSGTEXT_E_IO);
    EXPECT_EQ(errno, s.error);
    EXPECT_NE(std::strstr(err.reason, s.reason), nullptr) << err.reason;
    EXPECT_NE(std::strstr(err.reason, s.path.c_str()), nullptr) << err.reason;
    EXPECT_EQ(EntryAt(s.path), before);
  }
  close(sock);
  EXPECT_EQ(dir.Names(), names);
  EXPECT_EQ(Content(sub / "kept"), "kept");
}

// A rewrite keeps the mode of the file it replaces, narrow or wide, and its
// owner and group; a new file gets 0666 under the umask.
TEST(MsgFile, ARewriteKeepsTheFilesModeAndANewFileFollowsTheUmask) {
  TempDir dir;
  MsgPtr tiv = Read(kTivText);
  const mode_t umaskBefore = umask(022);
  auto modeOf = [](const fs::path& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? st.st_mode & 07777 : 0u;
  };
  for (const mode_t mask : {022, 077, 0}) {
    umask(mask);
    const fs::path fresh = dir.path / ("fresh-" + std::to_string(mask));
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), fresh.c_str()), MSGTEXT_OK);
    EXPECT_EQ(modeOf(fresh), 0666u & ~mask) << std::oct << mask;
  }
  umask(0);  // the umask narrows nothing of an old file's mode, nor widens it
  for (const mode_t mode : {0600, 0640, 0604, 0400, 0755}) {
    SCOPED_TRACE(std::to_string(mode));
    const fs::path path = dir.path / "kept.msg";
    Put(path, "old\n");
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
    EXPECT_EQ(modeOf(path), mode);
    EXPECT_EQ(Content(path), kTivText);
    fs::remove(path);
  }
  umask(umaskBefore);
  // Owner and group, where this process may give a file away.
  const fs::path owned = dir.path / "owned.msg";
  Put(owned, "old\n");
  if (geteuid() == 0 && chown(owned.c_str(), 65534, 65534) == 0) {
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), owned.c_str()), MSGTEXT_OK);
    struct stat st;
    ASSERT_EQ(stat(owned.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 65534u);
    EXPECT_EQ(st.st_gid, 65534u);
  }
}

// Names of up to 255 bytes are written and read; the temporary file's name
// does not grow with them. A directory that cannot be written is told.
TEST(MsgFile, LongNamesAndDirectoriesThatCannotBeWritten) {
  TempDir dir;
  MsgPtr tiv = Read(kTivText);
  for (size_t length : {251, 255}) {
    const fs::path path = dir.path / std::string(length, 'n');
    MsgTextError err{};
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str(), &err), MSGTEXT_OK)
        << length << ": " << err.reason;
    MsgPtr back(MA_ReadMsgFile(path.c_str(), &err));
    ASSERT_TRUE(back) << err.reason;
    EXPECT_EQ(Text(back.get()), kTivText);
    fs::remove(path);
  }
  MsgTextError err{};
  const fs::path tooLong = dir.path / std::string(256, 'n');
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), tooLong.c_str(), &err), MSGTEXT_E_IO);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_NE(std::strstr(err.reason, "File name too long"), nullptr) << err.reason;
  EXPECT_TRUE(dir.Names().empty());

  // A directory that others may only read, and one they may write but not
  // list, tried as such another user. A process that may write anywhere
  // gives up that power on a thread of its own.
  const fs::path locked = dir.path / "locked";
  const fs::path blind = dir.path / "blind";
  fs::create_directory(locked);
  fs::create_directory(blind);
  ASSERT_EQ(chmod(locked.c_str(), 0555), 0);
  ASSERT_EQ(chmod(blind.c_str(), 0333), 0);
  int lockedRc = 0, lockedErrno = 0, blindRc = 0;
  std::string lockedReason;
  std::thread([&] {
    if (geteuid() == 0) setfsuid(65534);
    MsgTextError e{};
    lockedRc = MA_WriteMsgFile(tiv.get(), (locked / "tiv.msg").c_str(), &e);
    lockedErrno = errno;
    lockedReason = e.reason;
    blindRc = MA_WriteMsgFile(tiv.get(), (blind / "tiv.msg").c_str(), &e);
  }).join();
  EXPECT_EQ(lockedRc, MSGTEXT_E_IO);
  EXPECT_EQ(lockedErrno, EACCES);
  EXPECT_NE(lockedReason.find("Permission denied"), std::string::npos) << lockedReason;
  EXPECT_EQ(blindRc, MSGTEXT_OK);
  chmod(locked.c_str(), 0755);
  chmod(blind.c_str(), 0755);
  EXPECT_TRUE(fs::is_empty(locked));
  EXPECT_EQ(Content(blind / "tiv.msg"), kTivText);
  EXPECT_EQ(fs::directory_iterator(blind)->path().filename(), "tiv.msg");
  EXPECT_EQ(std::distance(fs::directory_iterator(blind), fs::directory_iterator()), 1);
}

// Two threads write one path over and over while a third reads it: every
// read finds one of the two texts whole, every write succeeds, and no
// temporary file is left behind.
TEST(MsgFile, ConcurrentWritersNeverShowAPartialFile) {
  TempDir dir;
  const fs::path path = dir.path / "shared.msg";
  MsgPtr small = Read(kTivText);
  MsgPtr large = Switching();
  const std::string texts[] = {kTivText, Text(large.get())};
  ASSERT_EQ(MA_WriteMsgFile(small.get(), path.c_str()), MSGTEXT_OK);
  constexpr int kWrites = 150;
  std::atomic<int> writing{2};
  std::atomic<int> failed{0};
  auto writer = [&](CMsg* msg) {
    for (int i = 0; i < kWrites; ++i) {
      if (MA_WriteMsgFile(msg, path.c_str()) != MSGTEXT_OK) ++failed;
    }
    --writing;
  };
  std::thread a(writer, small.get());
  std::thread b(writer, large.get());
  int reads = 0;
  std::vector<std::string> bad;
  while (writing > 0 || reads == 0) {
    const std::string seen = Content(path);
    if (seen != texts[0] && seen != texts[1] && bad.size() < 5) bad.push_back(seen);
    ++reads;
  }
  a.join();
  b.join();
  EXPECT_EQ(failed, 0);
  EXPECT_TRUE(bad.empty()) << bad.size() << " torn reads, the first:\n" << bad.front();
  EXPECT_GT(reads, 0);
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"shared.msg"}));
}

// A write that fails half way, here at a limit on the size of files, has
// changed nothing and leaves no temporary file.
TEST(MsgFile, AWriteThatFailsHalfWayChangesNothing) {
  TempDir dir;
  const fs::path path = dir.path / "kept.msg";
  Put(path, "old\n");
  const Entry before = EntryAt(path);
  MsgPtr large = Switching();
  const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  rlimit small = limit;
  small.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  MsgTextError err{};
  const int rc = MA_WriteMsgFile(large.get(), path.c_str(), &err);
  const int failure = errno;
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(rc, MSGTEXT_E_IO);
  EXPECT_EQ(failure, EFBIG);
  EXPECT_NE(std::strstr(err.reason, "File too large"), nullptr) << err.reason;
  EXPECT_EQ(Content(path), "old\n");
  EXPECT_EQ(EntryAt(path), before);
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"kept.msg"}));
}
