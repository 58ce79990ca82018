// Message templates of every class, and message files loaded into objects in
// one call.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <sstream>
#include <string>

#include "ClassCases.h"
#include "RuntimeFaults.h"
#include "TestSupport.h"
#include "TextTesting.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"

using namespace testing_support;

namespace {

// Each line's indent, tag and name, or a block's end: the fields of a text,
// one line for the values of an array.
std::string Fields(const std::string& text) {
  std::istringstream in(text);
  std::string out, previous;
  for (std::string line; std::getline(in, line);) {
    const size_t value = line.find(' ', line.find(' ', line.find_first_not_of(' ')) + 1);
    std::string field = line.substr(0, value) + '\n';
    if (field != previous) out += field;
    previous = field;
  }
  return out;
}

}  // namespace

// The template of every class reads back and loads into a new object of its
// class, whose own text is the template's without its comments: a set value
// for every field, one for each array, as a sample of one element shows
// them. A comment stands above each field. The JSON template reads back to
// the same tree.
TEST(MsgTemplate, EveryClassReadsBackAndLoadsWithEveryFieldSet) {
  SampleShape one;
  one.elements = 1;
  one.wideDepth = 0;
  for (const ClassCase& c : AllClasses()) {
    SCOPED_TRACE(c.name);
    std::string text = "kept\n";
    MsgTextError err{};
    ASSERT_EQ(MA_WriteMsgTemplate(c.number, &text, &err), MSGTEXT_OK) << err.reason;
    ASSERT_EQ(text.compare(0, 5, "kept\n"), 0);  // appended
    text.erase(0, 5);
    MsgPtr tree = ReadText(text, &err);
    ASSERT_TRUE(tree) << Where(err);
    std::unique_ptr<CMsgBase> obj = c.make();
    ASSERT_EQ(obj->Load(tree.get()), 0) << obj->errtext.ToStr();
    MsgPtr back(obj->ToMsg());
    ASSERT_TRUE(back) << obj->errtext.ToStr();

    std::istringstream in(text);
    std::string values;
    char before = '#';
    for (std::string line; std::getline(in, line);) {
      const char first = line[line.find_first_not_of(' ')];
      EXPECT_FALSE(first == 'T' && before != '#') << line;  // each field has its comment
      if (first != '#') values += line + '\n';
      before = first;
    }
    EXPECT_EQ(Text(back.get()), values);
    std::string json;
    ASSERT_EQ(MA_WriteMsgJsonTemplate(c.number, &json, &err), MSGTEXT_OK) << err.reason;
    EXPECT_EQ(Text(ReadJson(json).get()), values);
    EXPECT_EQ(values.find(" -\n"), std::string::npos);
    EXPECT_EQ(Fields(values), Fields(Text(BuildSample(c.number, one).get())));
  }
}

TEST(MsgTemplate, ASmallClassLineByLineAndWhatIsRefused) {
  std::string text;
  ASSERT_EQ(MA_WriteMsgTemplate(1264, &text), MSGTEXT_OK);
  EXPECT_EQ(text, R"(M1264 M_KytVolSurface {
  # M_KytVolSurface (M1264): market: volatility surface by id, its points by expiry and strike
  # int: id of a volatility curve
  T598 iVolCrvId i 0
  # repeated message of M_KytVolSurfaceElmt (one block per element)
  T1456 maKytVolSfcElmt m M1265 M_KytVolSurfaceElmt {
    # M_KytVolSurfaceElmt (M1265): market: one point of a volatility surface: vol at an expiry and a strike
    # double: volatility of a curve or surface point
    T636 dVol d 0
    # message of M_Tiv: maturity or tenor, as a date or a tenor text
    T695 mTivMatur m M2143 M_Tiv {
      # M_Tiv (M2143): block: a point in time, given as a date or as a tenor such as 3M or 5Y, with the type of the date
      # date: a date, where the point in time is given by date
      T198 nDate n "20000101"
      # string: code of the type of a date
      T775 sDateType s ""
      # string: tenor, such as 3M or 5Y
      T800 sMatur s ""
    }
    # double
    T928 dStrike d 0
  }
}
)");

  // A number of no class, and no output: nothing written, the reason said.
  for (int number : {0, -1, 9, 11, 1238, 4863, INT_MIN, INT_MAX}) {
    std::string out = "as it was";
    MsgTextError err{};
    EXPECT_EQ(MA_WriteMsgTemplate(number, &out, &err), MSGTEXT_E_CLASS) << number;
    EXPECT_EQ(MA_WriteMsgJsonTemplate(number, &out, &err), MSGTEXT_E_CLASS) << number;
    EXPECT_EQ(out, "as it was");
    EXPECT_EQ(std::string(err.reason), "no class has the number M" + std::to_string(number));
  }
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgTemplate(2143, nullptr, &err), MSGTEXT_E_ARG);
  EXPECT_STREQ(err.reason, "no output");
  EXPECT_EQ(MA_WriteMsgTemplate(-5, &text), MSGTEXT_E_CLASS);  // no error to fill
}

TEST(MsgFile, LoadsAFileIntoAnObjectOrSaysWhyNot) {
  TempDir dir;
  const std::string good = dir.File(
      "tiv.msg",
      "M2143 M_Tiv {\n  # a note\n  T198 nDate n \"20261123\"\n  T800 sMatur s \"3M\"\n}\n");

  // Success: the values of the file, err cleared.
  M_Tiv tiv;
  MsgTextError err{1, 1, "stale"};
  ASSERT_EQ(MA_LoadMsgFile(good.c_str(), &tiv, &err), MSGTEXT_OK) << err.reason;
  EXPECT_EQ(Where(err), "0:0: ");
  EXPECT_STREQ(tiv.nDate.text, "20261123");
  EXPECT_EQ(Str(tiv.sMatur), "3M");
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &tiv), MSGTEXT_OK);  // no error to fill

  // JSON is a message file like the text form: a damaged one is told at its
  // line and column.
  const std::string badJson =
      dir.File("bad.json", "\xEF\xBB\xBF  {\"class\": \"M_Tiv\",\n \"nDate\": 7}");
  M_Tiv untouched;
  EXPECT_EQ(MA_LoadMsgFile(badJson.c_str(), &untouched, &err), MSGTEXT_E_TEXT);
  EXPECT_EQ(Where(err), "2:11: /nDate: expected a date or null, found number");

  // A missing file and a directory at line 0, naming the file and the cause.
  EXPECT_EQ(MA_LoadMsgFile(dir.Path("missing.msg").c_str(), &untouched, &err), MSGTEXT_E_IO);
  EXPECT_EQ(err.line, 0);
  EXPECT_TRUE(Says(err, "missing.msg: No such file or directory"));
  EXPECT_EQ(MA_LoadMsgFile(dir.Path("").c_str(), &untouched, &err), MSGTEXT_E_IO);
  EXPECT_TRUE(Says(err, "Is a directory"));
  EXPECT_FALSE(untouched.nDate.isSet);

  // A file of another class: both named, the object untouched.
  M_SysReject reject;
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &reject, &err), MSGTEXT_E_CLASS);
  EXPECT_EQ(Where(err), "0:0: the file holds M_Tiv (M2143), not M_SysReject (M10)");
  EXPECT_FALSE(reject.iSysCode.isSet);
  EXPECT_EQ(Str(reject.errtext), "");

  // A Load that fails: its code and the object's own text.
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 800, -13));
  M_Tiv failing;
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &failing, &err), MSGTEXT_E_LOAD);
  ClearFaults();
  EXPECT_STREQ(err.reason,
               "M_Tiv (M2143) Load failed (code -13): M_Tiv:GET_VAL_ONE(M2143.T800) fail");
  EXPECT_STREQ(failing.nDate.text, "20261123");  // read before the failure

  // Nothing to load or to load into.
  EXPECT_EQ(MA_LoadMsgFile(nullptr, &untouched, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_LoadMsgFile("", &untouched, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), nullptr, &err), MSGTEXT_E_ARG);
  EXPECT_STREQ(err.reason, "no object to load");
}
