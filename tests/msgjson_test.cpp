// Message files as JSON: every class filled and read back, the exact form
// of values at their edges, the agreement with the text form, hostile JSON,
// files and memory.
#include "MsgJson.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "ClassCases.h"
#include "RuntimeFaults.h"
#include "TestSupport.h"
#include "TextTesting.h"

using namespace testing_support;

// Every class, filled (values that vary with the class, arrays of values,
// two elements of each repeated sub-message) and empty (every value unset):
// its JSON reads back to a tree whose text is the sample's, which loads into
// an object that dumps as one loaded from the sample; the text and the JSON
// convert into each other without a change.
TEST(MsgJson, EveryClassFilledReadsBackEqualFieldByField) {
  int failures = 0;
  for (const ClassCase& c : AllClasses()) {
    SCOPED_TRACE(c.name);
    for (bool filled : {true, false}) {
      MsgPtr sample = BuildSample(c.number, filled, 2, static_cast<unsigned>(c.number));
      std::unique_ptr<CMsgBase> obj = c.make();
      ASSERT_EQ(obj->Load(sample.get()), 0) << obj->errtext.ToStr();
      MsgPtr msg(obj->ToMsg());
      ASSERT_TRUE(msg) << obj->errtext.ToStr();
      const std::string json = Json(msg.get());
      MsgTextError err{};
      MsgPtr back = ReadJson(json, &err);
      ASSERT_TRUE(back) << Where(err) << "\n" << json;
      std::unique_ptr<CMsgBase> loaded = c.make();
      ASSERT_EQ(loaded->Load(back.get()), 0) << loaded->errtext.ToStr();
      const std::string text = Text(msg.get());
      MsgPtr fromText = ReadText(text, &err);
      ASSERT_TRUE(fromText) << Where(err);
      const bool same = DumpOf(*loaded) == DumpOf(*obj) && Text(back.get()) == text &&
                        Json(back.get()) == json && Json(fromText.get()) == json;
      EXPECT_TRUE(same) << json;
      if (!same && ++failures == 3) FAIL() << "stopping after three classes";
    }
  }
}

TEST(MsgJson, WritesValuesAsNaturalJsonAndReadsThemBackBitForBit) {
  // Every single kind, set and unset, nested, in tag order, whatever order
  // the values came in; a text that is not UTF-8 as hex.
  const std::string expected = R"({
  "class": "M_IrTargetSwitching",
  "number": 3685,
  "iAppEndPeriodNo": -2147483648,
  "iAppStartPeriodNo": null,
  "dRate": 0.1,
  "sTgtOccPayoffType": {
    "hex": "636166e920ff"
  },
  "mIrVanillaCpnB": {
    "class": "M_IrVanillaCpnB",
    "number": 3623,
    "sDayCntConv": "q\" b\\ n\n t\t r\r \u0001\u001f)"
                               "\x7f"
                               R"( é € 😀 #}{/",
    "dFixedRate": 0.3333333333333333,
    "dMargin": null,
    "bFixedYN": false,
    "mKytRateIndexB": {
      "class": "M_KytRateIndexB",
      "number": 3611,
      "dGearing": null
    }
  },
  "iSwitObservedPeriodNo": 2147483647,
  "bSwitOccuredYN": true,
  "sAppPeriodType": "",
  "iaAppPeriodNo": [
    3,
    -1,
    -2147483648
  ]
}
)";
  MsgPtr m = Switching();
  std::string out = "kept";
  ASSERT_EQ(MA_WriteMsgJson(m.get(), &out), MSGTEXT_OK);
  EXPECT_EQ(out, "kept" + expected);
  MsgTextError err{7, 7, "stale"};
  MsgPtr back = ReadJson(expected, &err);
  ASSERT_TRUE(back) << Where(err);
  EXPECT_EQ(Where(err), "0:0: ");
  EXPECT_EQ(Text(back.get()), Text(m.get()));

  // Texts at the edges of UTF-8: the last of each length and the first
  // after it; then overlong forms, surrogates, cut sequences and stray
  // bytes. What JSON strings carry stays a string; the rest goes as hex.
  const std::vector<std::string> utf8 = {
      "\x7e",         "\xc2\x80",     "\xdf\xbf",         "\xe0\xa0\x80",
      "\xed\x9f\xbf", "\xee\x80\x80", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"};
  const std::vector<std::string> other = {
      "\xc0\xaf", "\xc1\xbf",         "\xe0\x9f\xbf", "\xed\xa0\x80",     "\xf0\x8f\xbf\xbf",
      "\x80",     "\xf4\x90\x80\x80", "a\xe2\x82",    "\xe2\x82\xac\xbf", "\xe2\x28\xa1"};
  for (bool valid : {true, false}) {
    for (const std::string& text : valid ? utf8 : other) {
      MsgPtr tiv = NewMsg(2143);
      Set(*tiv, 800, text.c_str());
      const std::string written = Json(tiv.get());
      SCOPED_TRACE(written);
      EXPECT_EQ(written.find("\"hex\"") == std::string::npos, valid);
      back = ReadJson(written, &err);
      ASSERT_TRUE(back) << Where(err);
      CString s;
      ASSERT_GE(back->GetValue(800, &s), 0);
      EXPECT_EQ(std::string(s.ToStr(), static_cast<size_t>(s.GetSize())), text);
    }
  }

  // Doubles at the edges, in an array and alone; -0.0 stays negative.
  MsgPtr greeks = Greeks();
  const std::string json = Json(greeks.get());
  std::string deltas = "\"daDelta\": [";
  for (const EdgeDouble& d : kEdgeDoubles) {
    deltas += std::string(deltas.back() == '[' ? "" : ",") + "\n    " + d.json;
  }
  EXPECT_NE(json.find(deltas + "\n  ],\n  \"dTheta\": -0.0,\n  \"dRho\": null,"), std::string::npos)
      << json;
  back = ReadJson(json, &err);
  ASSERT_TRUE(back) << Where(err);
  ExpectGreeksDoubles(back.get());
  EXPECT_EQ(Text(back.get()), Text(greeks.get()));

  // As a script writes it: no class name or no number, keys in any order,
  // nested messages without class, integers for doubles, upper-case hex,
  // a byte order mark, exponents and -0 as a float.
  back = ReadJson(
      "\xEF\xBB\xBF{\"dTheta\": -0e0, \"number\": 2161, \"daDelta\": [1, -2, 1E2, "
      "9007199254740993], \"maRhoValue\": [{\"iRateCrvId\": 7}, {}]}");
  ASSERT_TRUE(back);
  EXPECT_EQ(Text(back.get()),
            "M2161 M_Greeks {\n  T612 daDelta d 1\n  T612 daDelta d -2\n  T612 daDelta d 100\n"
            "  T612 daDelta d 9007199254740992\n  T615 dTheta d -0\n"
            "  T2668 maRhoValue m M1925 M_RhoValue {\n    T599 iRateCrvId i 7\n  }\n"
            "  T2668 maRhoValue m M1925 M_RhoValue {\n  }\n}\n");
  back = ReadJson(
      R"({"class": "M_Tiv", "nDate": {"hex": "3230323430323239"}, "sMatur": {"hex": "C3A9fF"}})");
  ASSERT_TRUE(back);
  EXPECT_EQ(Text(back.get()),
            "M2143 M_Tiv {\n  T198 nDate n \"20240229\"\n  T800 sMatur s \"\xc3\xa9\xff\"\n}\n");
}

TEST(MsgJson, RefusesJsonThatIsNotJsonOrDoesNotFitTheClasses) {
  struct Case {
    std::string json;
    int line, column;
    std::string reason;
  };
  const std::string deep(100000, '[');
  const std::string nested = [] {
    std::string s = "{\"class\": \"M_Tiv\", \"sMatur\": ";
    for (int i = 0; i < 200; ++i) s += "{\"hex\": ";
    return s + "\"\"" + std::string(201, '}');
  }();
  const Case cases[] = {
      // Not JSON: where the parser stopped.
      {"", 1, 1, "unexpected end of input"},
      {"{\"class\": \"M_Tiv\",\n \"sMatur\": \"1Y\"", 2, 16, "unexpected end of input"},
      {"{\"class\": \"M_Tiv\"\n,}", 2, 2, "expected string literal"},
      {"{\"class\": \"M_Tiv\"} x", 1, 20, "expected end of input"},
      {"{\"class\": \"M_Tiv\", \"sMatur\": \"\xff\"}", 1, 31, "ill-formed UTF-8"},
      {"{\"class\": \"M_Tiv\",\n  \"nDate\": tru}", 2, 15, "invalid literal"},
      {"{\"class\": \"M_Tiv\",\n\"nDate\": 1e999}", 2, 14, "number overflow"},
      // JSON that does not fit, told at the value concerned and by its pointer.
      {deep, 1, 1, "/: expected an object for a message, found array"},
      {nested, 1, 38, "/sMatur: expected hex digits, found object"},
      {"{}", 1, 1, "/: the message names no class"},
      {R"({"number": 9})", 1, 12, "/number: no class has the number M9"},
      {R"({"number": 2143.0})", 1, 12,
       "/number: expected an integer for a message number, found 2143.0"},
      {R"({"number": 4294969439})", 1, 12,
       "/number: 4294969439 is out of the range of a message number, -2147483648 to 2147483647"},
      {R"({"class": "M_tiv"})", 1, 11, "/class: no class is named \"M_tiv\""},
      {R"({"class": "M_Tiv", "number": 10})", 1, 11,
       "/class: M_Tiv is class M2143, not M10, which is M_SysReject"},
      {R"({"class": "M_Tiv", "dStrike": 1})", 1, 20, "/dStrike: M_Tiv (M2143) has no field"},
      {R"({"class": "M_Tiv", "a/b~": 1})", 1, 20, "/a~1b~0: M_Tiv (M2143) has no field \"a/b~\""},
      {R"({"class": "M_Tiv", "sMatur": "1Y", "sMatur": "2Y"})", 1, 36,
       "/sMatur: the key is given twice"},
      {"{\"class\": \"M_Tiv\",\n  \"sMatur\": null}", 2, 13,
       "/sMatur: expected a text, found null"},
      {R"({"class": "M_Tiv", "sMatur": "a\u0000b"})", 1, 30, "/sMatur: a text cannot hold a NUL"},
      {R"({"class": "M_Tiv", "sMatur": {"hex": "610"}})", 1, 30, "/sMatur: the hex digits are not"},
      {R"({"class": "M_Tiv", "sMatur": {"hex": "6x"}})", 1, 30, "\"6x\" is not a pair of hex"},
      {R"({"class": "M_Tiv", "sMatur": {"hex": "61", "x": 1}})", 1, 44,
       "an object with the one key \"hex\""},
      {R"({"class": "M_Tiv", "nDate": ""})", 1, 29, "/nDate: an empty date: an unset date is null"},
      {R"({"class": "M_Tiv", "nDate": "202402291"})", 1, 29,
       "/nDate: a date of 9 characters: it holds at most 8"},
      {R"({"number": 10, "iSysCode": 2147483648})", 1, 28,
       "/iSysCode: 2147483648 is out of the range of an int, -2147483648 to 2147483647"},
      {R"({"number": 10, "iSysCode": -2147483649})", 1, 28, "-2147483649 is out of the range"},
      {R"({"number": 10, "iSysCode": 18446744073709551616})", 1, 28,
       "18446744073709551616 is out of the range of an int"},
      {R"({"number": 10, "iSysCode": 1.0})", 1, 28, "expected an integer for an int, found 1.0"},
      {R"({"number": 10, "iSysCode": "1"})", 1, 28, "expected an integer or null, found string"},
      {R"({"number": 2161, "dTheta": 1e-400})", 1, 28,
       "/dTheta: 1e-400 is out of the range of a double"},
      {R"({"number": 2161, "dTheta": "nan"})", 1, 28, "/dTheta: expected a number, \"NaN\""},
      {R"({"number": 2161, "daDelta": [1, null]})", 1, 33, "/daDelta/1: an element of an array"},
      {R"({"number": 2161, "daDelta": 1})", 1, 29, "/daDelta: expected an array (double array)"},
      {R"({"number": 2161, "maRhoValue": [{}, {"number": 2143}]})", 1, 48,
       "/maRhoValue/1/number: the field holds M_RhoValue (M1925), not M_Tiv (M2143)"},
      {R"({"number": 2161, "maRhoValue": {}})", 1, 32, "/maRhoValue: expected an array"},
      {R"({"number": 2161, "maRhoValue": [[]]})", 1, 33,
       "/maRhoValue/0: expected an object for a message of M_RhoValue, found array"},
      {R"({"number": 3685, "bSwitOccuredYN": 1})", 1, 36,
       "/bSwitOccuredYN: expected true, false or null, found number"},
      {R"({"number": 3685, "mIrVanillaCpnB": {"mKytRateIndexB": {"dGearing": false}}})", 1, 68,
       "/mIrVanillaCpnB/mKytRateIndexB/dGearing: expected a number"},
      // A long value is shown from its start, up to 40 bytes.
      {"{\"number\": 2161, \"dTheta\": \"1e" + std::string(500, '0') + "x\"}", 1, 28,
       "/dTheta: expected a number, \"NaN\", \"Infinity\" or null, found the text \"1e" +
           std::string(37, '0') + "..."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json.substr(0, 80));
    MsgTextError err{9, 9, "stale"};
    EXPECT_FALSE(ReadJson(c.json, &err));
    EXPECT_EQ(err.code, MSGTEXT_E_TEXT);
    EXPECT_EQ(err.line, c.line) << err.reason;
    EXPECT_EQ(err.column, c.column) << err.reason;
    EXPECT_TRUE(Says(err, c.reason.c_str()));
  }
  MsgTextError err{};
  EXPECT_FALSE(MA_ReadMsgJson(nullptr, 5, &err));
  EXPECT_STREQ(err.reason, "no text: a null pointer");
  EXPECT_EQ(err.code, MSGTEXT_E_ARG);
  EXPECT_FALSE(MA_ReadMsgJson("{", 1, nullptr));
  // Brackets inside strings do not count.
  EXPECT_TRUE(ReadJson(R"({"class": "M_Tiv", "sMatur": ")" + deep + "\\\"" + deep + "\"}"));

  // The runtime's refusal of a value, and of an element, is told at the
  // value; running out of memory there is told as that.
  const std::string rho = R"({"number": 2161, "maRhoValue": [{}, {"iRateCrvId": 7}]})";
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 599, -13));
  EXPECT_FALSE(ReadJson(rho, &err));
  EXPECT_EQ(Where(err),
            "1:52: /maRhoValue/1/iRateCrvId: T599 iRateCrvId: the runtime refused the value (code "
            "-13)");
  EXPECT_EQ(err.code, MSGTEXT_E_TEXT);
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 2668, -13, 1));
  EXPECT_FALSE(ReadJson(rho, &err));
  EXPECT_EQ(Where(err),
            "1:37: /maRhoValue/1: T2668 maRhoValue: the runtime refused the value (code -13)");
  ClearFaults();
}

// JSON files are written and read by the code that writes and reads text
// files (whole or not at all, its refusals told at their place).
TEST(MsgJson, FilesAreWrittenAndReadBack) {
  TempDir dir;
  const std::string path = dir.Path("greeks.json");
  MsgPtr greeks = Greeks();
  ASSERT_EQ(MA_WriteMsgJsonFile(greeks.get(), path.c_str()), MSGTEXT_OK);
  EXPECT_EQ(Content(path), Json(greeks.get()));
  MsgTextError err{};
  MsgPtr back(MA_ReadMsgJsonFile(path.c_str(), &err));
  ASSERT_TRUE(back) << Where(err);
  EXPECT_EQ(Text(back.get()), Text(greeks.get()));
  EXPECT_FALSE(MA_ReadMsgJsonFile(nullptr, nullptr));
}

TEST(MsgJson, LeaksNothingWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  MsgPtr tree = Greeks();
  const std::string json = Json(tree.get());
  long points = SweepReads([&](MsgTextError* err) { return ReadJson(json, err); }, Json, json);
  EXPECT_GT(points, 10);
  points = SweepWrites([&](std::string* out) { return MA_WriteMsgJson(tree.get(), out); }, json);
  EXPECT_GT(points, 5);
}
