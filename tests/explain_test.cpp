// Failures of Load and ToMsg explained as a path of field names, from the
// failed object and from its failure texts as a log holds them.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ClassCases.h"
#include "MsgExplain.h"
#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "equity/M_EqCmb.h"
#include "equity/M_EqSwapStarAutoPlain.h"
#include "rates/M_IrNoteHwOut.h"
#include "shared/M_SysReject.h"

using namespace testing_support;

namespace {

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class Explain : public ::testing::Test {
 protected:
  void TearDown() override { ClearFaults(); }
};

// A request that fails three levels down, in ToMsg and then in Load: the
// path from the object, and from its levels' failure texts as a log holds
// them, in any order, with the code where the log states it.
TEST_F(Explain, AFailureThreeLevelsDeepByObjectAndByText) {
  M_EqSwapStarAutoPlain swap;
  const CMsgBase &star = swap.mStarAutoPlain, &payoff = swap.mStarAutoPlain.mStarAutoPlainPayoff;
  auto levels = [&] {
    return Str(swap.errtext) + "\n  " + Str(star.errtext) + "\n  " + Str(payoff.errtext);
  };
  EXPECT_EQ(MA_ExplainFailure(swap), "");
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 449, -5));  // sStarUnderType of the payoff
  EXPECT_EQ(MsgPtr(swap.ToMsg()), nullptr);
  const std::string toMsg =
      "M_EqSwapStarAutoPlain.mStarAutoPlain.mStarAutoPlainPayoff.sStarUnderType (T449, CString): "
      "SetValue gave -5\n"
      "  M_EqSwapStarAutoPlain M4113 T4775 mStarAutoPlain (message, M_StarAutoPlain): "
      "SET_SUB_ONE, ToMsg gave null, code -5\n"
      "  M_StarAutoPlain M3503 T4538 mStarAutoPlainPayoff (message, M_StarAutoPlainPayoff): "
      "SET_SUB_ONE, ToMsg gave null, code -5\n"
      "  M_StarAutoPlainPayoff M3475 T449 sStarUnderType (string, CString): SET_VAL_ONE, "
      "SetValue gave -5";
  EXPECT_EQ(MA_ExplainFailure(swap), toMsg);
  EXPECT_EQ(MA_ExplainFailureText("ToMsg failed, rc=-5:\n  " + levels()), toMsg);
  EXPECT_EQ(MA_ExplainFailureText("error: " + Str(payoff.errtext) + " <- " + Str(swap.errtext) +
                                  "; " + Str(star.errtext) + " (code -5)"),
            toMsg);

  // Only the outer level: the path goes as far as the text does.
  EXPECT_EQ(MA_ExplainFailureText(Str(swap.errtext)),
            "M_EqSwapStarAutoPlain.mStarAutoPlain (T4775, M_StarAutoPlain): ToMsg gave null, "
            "code unknown; the text stops at this level: the cause is in the errtext of "
            "M_StarAutoPlain\n"
            "  M_EqSwapStarAutoPlain M4113 T4775 mStarAutoPlain (message, M_StarAutoPlain): "
            "SET_SUB_ONE, ToMsg gave null, code unknown\n"
            "  the path stops here: the text stops at this level: the cause is in the errtext "
            "of M_StarAutoPlain");

  // A later ToMsg that succeeds leaves the texts but no failure.
  EXPECT_NE(MsgPtr(swap.ToMsg()), nullptr);
  EXPECT_FALSE(swap.errtext.IsEmpty());
  EXPECT_EQ(MA_ExplainFailure(swap), "");

  // Load: each level holds the code of the first cause, as Load's result does.
  MsgPtr sample = BuildSample(swap.msgnum, true);
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 449, -7));
  EXPECT_EQ(swap.Load(sample.get()), -7);
  const std::string load =
      "M_EqSwapStarAutoPlain.mStarAutoPlain.mStarAutoPlainPayoff.sStarUnderType (T449, CString): "
      "GetValue gave -7\n"
      "  M_EqSwapStarAutoPlain M4113 T4775 mStarAutoPlain (message, M_StarAutoPlain): "
      "GET_SUB_ONE, Load gave -7\n"
      "  M_StarAutoPlain M3503 T4538 mStarAutoPlainPayoff (message, M_StarAutoPlainPayoff): "
      "GET_SUB_ONE, Load gave -7\n"
      "  M_StarAutoPlainPayoff M3475 T449 sStarUnderType (string, CString): GET_VAL_ONE, "
      "GetValue gave -7";
  EXPECT_EQ(MA_ExplainFailure(swap), load);
  EXPECT_EQ(MA_ExplainFailureText("Load failed with -7:\n  " + levels()), load);
  EXPECT_EQ(star.errcode, -7);
  EXPECT_EQ(swap.mIrNoteVanilla.errcode, 0);
  // A Load that succeeds afterwards: no failure to explain, at any level.
  EXPECT_EQ(swap.Load(sample.get()), 0);
  EXPECT_EQ(MA_ExplainFailure(swap), "");
  EXPECT_EQ(MA_ExplainFailure(swap.mStarAutoPlain), "");
}

TEST_F(Explain, AnElementOfAnArrayAndTheFirstCauseOfSeveral) {
  M_EqCmb cmb;
  ASSERT_EQ(cmb.maOptCmb.SetSize(3), 3);
  auto path = [](int i) {
    return "M_EqCmb.maOptCmb[" + std::to_string(i) +
           "].sOptPayoffType (T4866, CString): SetValue gave -5";
  };

  // Element 2 fails; then element 1 while element 2 still holds its old
  // failure; then 2 again after 1 has passed.
  for (int i : {2, 1, 2}) {
    ASSERT_TRUE(ArmFault(FaultOp::kSet, 4866, -5, i));
    EXPECT_EQ(MsgPtr(cmb.ToMsg()), nullptr);
    ClearFaults();
    std::string got = MA_ExplainFailure(cmb);
    EXPECT_EQ(FirstLine(got), path(i));
    EXPECT_NE(got.find("  M_EqCmb M4316 T4938 maOptCmb[" + std::to_string(i) +
                       "] (repeated message, M_OptCmb_Array): SET_SUB_ARR, ToMsg of element " +
                       std::to_string(i) + " gave null, code -5\n"),
              std::string::npos)
        << got;
  }
  EXPECT_EQ(cmb.maOptCmb[2].errcode, -5);
  EXPECT_EQ(cmb.maOptCmb[1].errcode, 0);

  // Two faults armed: the one met first in tag order is the cause, the
  // other is never reached.
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 4866, -9, 2));
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 451, -6));  // nStartDate, before maOptCmb
  EXPECT_EQ(MsgPtr(cmb.ToMsg()), nullptr);
  EXPECT_EQ(FirstLine(MA_ExplainFailure(cmb)),
            "M_EqCmb.mOptSched.nStartDate (T451, CDate): SetValue gave -6");
  ClearFaults();

  // The index of an element comes from the words before its text.
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 4866, -5, 1));
  EXPECT_EQ(MsgPtr(cmb.ToMsg()), nullptr);
  const std::string log = "ToMsg gave code -5\n  " + Str(cmb.errtext) +
                          "\n  maOptCmb[1]: " + Str(cmb.maOptCmb[1].errtext) + "\n";
  EXPECT_EQ(MA_ExplainFailureText(log), MA_ExplainFailure(cmb));
}

TEST_F(Explain, LoadOfAnArrayWithAnElementOfAnotherClass) {
  // A reply whose second price holds, where a cash flow belongs, a price.
  M_IrNoteHwOut reply;
  MsgPtr msg = NewMsg(reply.msgnum);
  CMsg* first = NewMsg(3709).release();
  CMsg* second = NewMsg(3709).release();
  ASSERT_GE(second->SetValue(4668, NewMsg(3710).release()), 0);
  ASSERT_GE(second->SetValue(4668, NewMsg(3709).release()), 0);
  ASSERT_GE(msg->SetValue(4673, first), 0);
  ASSERT_GE(msg->SetValue(4673, second), 0);
  EXPECT_EQ(reply.Load(msg.get()), -28);
  const std::string expected =
      "M_IrNoteHwOut.maIrNotePrice[1].maIrNoteCF[1] (T4668, M_IrNoteCF_Array): Load was given a "
      "message of number 3709 (M_IrNotePrice) where M_IrNoteCF belongs, -28\n"
      "  M_IrNoteHwOut M3706 T4673 maIrNotePrice[1] (repeated message, M_IrNotePrice_Array): "
      "GET_SUB_ARR, Load of element 1 gave -28\n"
      "  M_IrNotePrice M3709 T4668 maIrNoteCF[1] (repeated message, M_IrNoteCF_Array): "
      "GET_SUB_ARR, Load of element 1 gave -28\n"
      "  M_IrNoteCF M3710: Load was given a message of number 3709 (M_IrNotePrice) where "
      "M_IrNoteCF belongs, -28";
  EXPECT_EQ(MA_ExplainFailure(reply), expected);
  // The wrong number tells its code; the client's own index words give the
  // elements.
  const std::string log =
      "Load failed:\n  " + Str(reply.errtext) +
      "\n  maIrNotePrice[1]: " + Str(reply.maIrNotePrice[1].errtext) +
      "\n  maIrNotePrice[1].maIrNoteCF[1]: " + Str(reply.maIrNotePrice[1].maIrNoteCF[1].errtext) +
      "\n";
  EXPECT_EQ(MA_ExplainFailureText(log), expected);

  // At the top: the object is the cause.
  M_SysReject reject;
  EXPECT_EQ(reject.Load(NewMsg(3709).get()), -28);
  EXPECT_EQ(MA_ExplainFailure(reject),
            "M_SysReject: Load was given a message of number 3709 (M_IrNotePrice) where "
            "M_SysReject belongs, -28\n"
            "  M_SysReject M0010: Load was given a message of number 3709 (M_IrNotePrice) where "
            "M_SysReject belongs, -28");
  EXPECT_EQ(MA_ExplainFailureText(Str(reject.errtext)), MA_ExplainFailure(reject));
}

TEST_F(Explain, ArraysOutOfMemory) {
  REQUIRE_FAILING_ALLOC();
  // An array whose SetSize made its first element only: ToMsg stops at the
  // second, which was never made.
  M_EqCmb cmb;
  bool found = false;
  for (long n = 0; n < 50 && !found; ++n) {
    FailingAlloc::FailAt(n);
    int rc = cmb.maOptCmb.SetSize(3);
    FailingAlloc::Off();
    found = rc == -11 && cmb.maOptCmb.GetAt(0) && !cmb.maOptCmb.GetAt(1);
  }
  ASSERT_TRUE(found);
  EXPECT_EQ(MsgPtr(cmb.ToMsg()), nullptr);
  EXPECT_EQ(MA_ExplainFailure(cmb),
            "M_EqCmb.maOptCmb[1] (T4938, M_OptCmb_Array): element 1 was never made: a SetSize "
            "ran out of memory, -11\n"
            "  M_EqCmb M4316 T4938 maOptCmb[1] (repeated message, M_OptCmb_Array): SET_SUB_ARR, "
            "element 1 was never made: a SetSize ran out of memory, -11");

  // Every allocation of a Load and of a ToMsg failing in turn: each failure
  // is followed to a cause at the end of a path.
  MsgPtr sample = BuildSample(cmb.msgnum, true);
  long failures = 0, arrays = 0, messages = 0;
  for (bool load : {true, false}) {
    ForEachAllocationFailure([&](long n) {
      M_EqCmb obj;
      if (!load) {
        ASSERT_EQ(obj.Load(sample.get()), 0);
      }
      FailingAlloc::FailAt(n);
      bool failed = load ? obj.Load(sample.get()) < 0 : !MsgPtr(obj.ToMsg());
      FailingAlloc::Off();
      std::string got = MA_ExplainFailure(obj);
      EXPECT_EQ(got.empty(), !failed) << n;
      if (!failed) return;
      ++failures;
      EXPECT_EQ(got.rfind("M_EqCmb", 0), 0u) << got;
      EXPECT_EQ(got.find("stops"), std::string::npos) << got;
      std::string first = FirstLine(got);
      EXPECT_TRUE(EndsWith(first, "out of memory, -11") ||
                  first.find("Value gave -") != std::string::npos)
          << got;
      arrays += first.find("could not make its elements") != std::string::npos;
      messages += first.find("could not make a message") != std::string::npos;
    });
  }
  EXPECT_GT(failures, 20);
  // Both a Load's arrays and a ToMsg's messages were among them.
  EXPECT_GT(arrays, 0);
  EXPECT_GT(messages, 0);
}

// Every member of every class is reached where it lies: a ToMsg that fails
// at any of its SetValue calls is followed down to that call.
TEST_F(Explain, EveryLevelOfEveryClassIsFound) {
  long explained = 0;
  for (const ClassCase& c : AllClasses()) {
    std::unique_ptr<CMsgBase> obj = c.make();
    MsgPtr sample = BuildSample(c.number, true, 1);
    ASSERT_EQ(obj->Load(sample.get()), 0) << c.name;
    long calls;
    {
      SetRecorder recorder;
      MsgPtr all(obj->ToMsg());
      calls = static_cast<long>(recorder.Calls().size());
    }
    // Calls spread over the whole tree, the last one among them.
    const long step = std::max(1L, calls / 48);
    for (long k = calls - 1; k >= 0; k -= step) {
      ASSERT_TRUE(ArmFault(FaultOp::kSet, 0, -3, static_cast<int>(k)));
      ASSERT_EQ(MsgPtr(obj->ToMsg()), nullptr) << c.name << " call " << k;
      ClearFaults();
      std::string got = MA_ExplainFailure(*obj);
      std::string first = FirstLine(got);
      ASSERT_EQ(first.rfind(c.name, 0), 0u) << got;
      ASSERT_TRUE(EndsWith(first, "): SetValue gave -3")) << got;
      ASSERT_EQ(got.find("stops"), std::string::npos) << got;
      ++explained;
    }
  }
  EXPECT_GT(explained, 5000);
}

// Texts as logs hold them: a failure text among other bytes is found and
// followed, the index of an element taken from the words before its text;
// what holds none, or names what the schema lacks, cannot be explained, in
// one line.
TEST_F(Explain, TextsAmongOtherBytesAndTextsThatCannotBeExplained) {
  const std::string sys = "M_SysReject:GET_VAL_ONE(M0010.T7) fail";
  const std::string cmb = "M_EqCmb:SET_SUB_ARR(M4316.T4938) fail";
  const std::string opt = "M_OptCmb:SET_VAL_ONE(M4314.T4866) fail";
  std::string binary, repeated, many;
  for (int i = 0; i < 4096; ++i) binary += static_cast<char>((i * 131) & 0xff);
  for (int i = 0; i < 20000; ++i) repeated += sys + "\n";
  for (int i = 0; i < 1100; ++i)
    many += "invalid input message of service(" + std::to_string(i) + ",10)\n";
  const std::string sysPath =
      "M_SysReject.sSysReasonText (T7, CString): GetValue gave an unknown code";
  const std::string noIndex =
      "M_EqCmb.maOptCmb.sOptPayoffType (T4866, CString): SetValue gave an unknown code";
  const std::pair<std::string, std::string> cases[] = {
      {std::string("\x01\xff((([[[", 8) + sys + std::string(")))]]\0\n", 7), sysPath},
      {repeated, sysPath},
      {"M_EqStd:SET_SUB_ONE(M3540.T4566) failM_OptSched:SET_VAL_ONE(M3434.T451) fail",
       "M_EqStd.mOptSched.nStartDate (T451, CDate): SetValue gave an unknown code"},
      {cmb + "; maOptCmb[0] passed, maOptCmb[2]: " + opt,
       "M_EqCmb.maOptCmb[2].sOptPayoffType (T4866, CString): SetValue gave an unknown code"},
      {cmb + " maOptCmb[99999999999]: " + opt, noIndex},
      {cmb + " maOptCmb[3: " + opt, noIndex},
      {cmb + " xmaOptCmb[2]: " + opt, noIndex},
      {"M_NoSuch:GET_VAL_ONE(M0010.T7) fail", "cannot explain: no class is named \"M_NoSuch\""},
      {std::string("M_\0Eq:GET_VAL_ONE(M0010.T7) fail", 32),
       "cannot explain: no class is named \"Eq\""},
      {"M_EqStd:GET_VAL_ONE(M3541.T451) fail",
       "cannot explain: M_EqStd is M3540, and its failure texts name that number, not M3541"},
      {"M_EqStd:GET_VAL_ONE(M3540.T7) fail",
       "cannot explain: M_EqStd has no field under the tag T7"},
      {"M_EqStd:GET_SUB_ARR(M3540.T4566) fail",
       "cannot explain: GET_SUB_ARR does not go with mOptSched of M_EqStd, a field of kind m"},
      {"invalid input message of service(10,2)", "cannot explain: no class has the number 2"},
      {std::string(kExplainTextMaxSize + 1, 'x'),
       "cannot explain: the text has 1048577 bytes, more than the 1048576 that are read"},
      {many, "cannot explain: the text holds more than 1024 failure texts"},
  };
  for (const auto& [text, first] : cases) {
    const std::string got = MA_ExplainFailureText(text);
    EXPECT_EQ(FirstLine(got), first) << text.substr(0, 80);
    if (first.rfind("cannot", 0) == 0) {
      EXPECT_EQ(got, first);
    }
  }
  // Nothing there, or not quite the library's texts.
  for (const std::string& text : std::vector<std::string>{
           "", "Load failed with -5", "M_EqStd:SET_SUB_ONE(M3540.T4566 fail",
           "M_EqStd:SET_SUB_ONE(M3540.T4566)", "M_EqStd:SET_SUB_TWO(M3540.T4566) fail",
           "M_EqStd:SET_SUB_ONE(M3540.T) fail", "M_EqStd:SET_SUB_ONE((((((((M3540.T4566) fail",
           "M_EqStd:SET_SUB_ONE(M99999999999.T4566) fail", "invalid input message of service(12,",
           binary}) {
    EXPECT_EQ(MA_ExplainFailureText(text),
              "cannot explain: the text holds no failure text, such as \"" + sys + "\"")
        << text;
  }
  // Texts of other failures than the path's are counted, not followed.
  EXPECT_NE(MA_ExplainFailureText("M_EqStd:SET_SUB_ONE(M3540.T4566) fail\n" + sys)
                .find("1 more failure text does not continue this path"),
            std::string::npos);
}

// Running out of memory, as a log tells it: the code -11 belongs to every
// level of the path.
TEST_F(Explain, OutOfMemoryInATextKeepsItsCodeAtEveryLevel) {
  EXPECT_EQ(MA_ExplainFailureText("Out of memory"),
            "(a class the text does not name): ToMsg could not make a message: out of memory, -11\n"
            "  (a class not named): ToMsg could not make a message: out of memory, -11");
  EXPECT_EQ(
      MA_ExplainFailureText("M_EqStd:SET_SUB_ONE(M3540.T4566) fail\nOut of memory"),
      "M_EqStd.mOptSched (T4566, M_OptSched): ToMsg could not make a message: out of memory, "
      "-11\n  M_EqStd M3540 T4566 mOptSched (message, M_OptSched): SET_SUB_ONE, ToMsg gave "
      "null, code -11\n  M_OptSched M3434: ToMsg could not make a message: out of memory, -11");
  EXPECT_EQ(
      MA_ExplainFailureText("M_IrNoteHwOut:GET_SUB_ARR(M3706.T4673) fail\nmaIrNotePrice[0]: "
                            "M_IrNotePrice:GET_SUB_ARR(M3709.T4668) fail\n"
                            "M_IrNoteCF_Array : Out of memory"),
      "M_IrNoteHwOut.maIrNotePrice[0].maIrNoteCF (T4668, M_IrNoteCF_Array): the array could "
      "not make its elements: out of memory, -11\n  M_IrNoteHwOut M3706 T4673 "
      "maIrNotePrice[0] (repeated message, M_IrNotePrice_Array): GET_SUB_ARR, Load of element "
      "0 gave -11\n  M_IrNotePrice M3709 T4668 maIrNoteCF (repeated message, "
      "M_IrNoteCF_Array): GET_SUB_ARR, the array could not make its elements: out of memory, "
      "-11");
}

}  // namespace
