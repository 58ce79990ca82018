// The families as they meet in real requests: field order across sets, twin
// tags in their two forms, look-alike classes, message counts, the deepest
// nesting and failures deep inside a request.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "equity/M_EqDblBinBarr.h"
#include "equity/M_EqDisp.h"
#include "equity/M_EqPrdicDisp.h"
#include "equity/M_EqStd.h"
#include "equity/M_EqSwapStarAutoBarrSwit.h"
#include "equity/M_EqSwapStarAutoPlain.h"
#include "equity/M_OptCmb.h"
#include "equity/M_StarCpnTgt.h"
#include "fx/M_FxStd.h"
#include "hybrid/M_HbNoteDualMultiRngAccr.h"
#include "rates/M_CmpstRIdxC.h"
#include "rates/M_IrCombiCRCpnU.h"
#include "rates/M_IrFloaterCombiCpnU.h"
#include "rates/M_IrMultiAccrFixedCpn.h"
#include "rates/M_IrRatchetCombiCpnU.h"
#include "shared/M_KytVolCurve.h"

using namespace testing_support;

namespace {

namespace schema = pricemsg::schema;

// The names of the top-level fields that ToMsg writes, in the order it
// writes them.
std::vector<std::string> FieldOrder(CMsgBase& obj) {
  SetRecorder calls;
  MsgPtr msg(obj.ToMsg());
  const schema::ClassInfo* info = schema::FindClass(obj.msgnum);
  std::vector<std::string> names;
  for (int tag : calls.TagsOf(msg.get())) {
    const char* name = schema::FindMember(*info, tag)->name;
    if (names.empty() || names.back() != name) names.push_back(name);
  }
  return names;
}

template <class T>
MsgPtr Fresh() {
  T obj;
  return MsgPtr(obj.ToMsg());
}

}  // namespace

TEST(Vocabulary, SetFieldsAndOwnFieldsInterleaveByTag) {
  // Filled samples, since a fresh object writes no array element.
  M_EqDblBinBarr bin;
  ASSERT_EQ(bin.Load(BuildSample(bin.msgnum, true).get()), 0);
  EXPECT_EQ(FieldOrder(bin), (std::vector<std::string>{"mMonBarr", "mSensitivityB", "maUnderSpecB",
                                                       "maUnderData", "mInstInfo", "maRisklessCrv",
                                                       "mDcntCrv", "mOptSched", "mOptDblBinBarr"}));
  M_StarCpnTgt star;
  ASSERT_EQ(star.Load(BuildSample(star.msgnum, true).get()), 0);
  EXPECT_EQ(FieldOrder(star),
            (std::vector<std::string>{"mMcParam", "mSensitivityB", "maUnderSpecB", "maUnderData",
                                      "mInstInfo", "maRisklessCrv", "mDcntCrv", "mMonTgt",
                                      "mCpnSched", "maTgtCpnPff"}));
}

TEST(Vocabulary, TwinTagsReadInEitherForm) {
  // Two elements under 4533, as M_EqPrdicDisp writes its group: M_EqDisp
  // reads the first into its single field; a single one reads as a group.
  M_EqPrdicDisp group;
  group.maUnderSpecB.SetSize(2);
  group.maUnderSpecB[0].sCcy = "KRW";
  group.maUnderSpecB[1].sCcy = "USD";
  M_EqDisp disp;
  M_UnderSpecB_Array& underlyings = group.maUnderSpecB;
  MsgPtr twoUnderlyings = NewMsg(disp.msgnum);
  for (int i = 0; i < 2; ++i) ASSERT_GE(twoUnderlyings->SetValue(4533, underlyings.ToMsg(i)), 0);
  ASSERT_EQ(disp.Load(twoUnderlyings.get()), 0);
  EXPECT_EQ(Str(disp.mUnderSpecB.sCcy), "KRW");

  M_EqPrdicDisp back;
  MsgPtr renumbered = NewMsg(back.msgnum);
  ASSERT_GE(renumbered->SetValue(4533, disp.mUnderSpecB.ToMsg()), 0);
  ASSERT_EQ(back.Load(renumbered.get()), 0);
  ASSERT_EQ(back.maUnderSpecB.GetSize(), 1);
  EXPECT_EQ(Str(back.maUnderSpecB[0].sCcy), "KRW");

  // dFixedRate and daFixedRate share tag 239: the three values of the array
  // read as a single value, the first.
  M_IrMultiAccrFixedCpn multi;
  Fill(multi.daFixedRate, {0.01, 0.02, 0.03});
  MsgPtr rates(multi.ToMsg());
  MsgPtr asSingle = NewMsg(M_CmpstRIdxC().msgnum);
  CDblArray values;
  ASSERT_GE(rates->GetValue(239, &values), 0);
  ASSERT_EQ(values.size, 3);
  for (int i = 0; i < values.size; ++i) ASSERT_GE(asSingle->SetValue(239, values.GetAt(i)), 0);
  M_CmpstRIdxC single;
  ASSERT_EQ(single.Load(asSingle.get()), 0);
  EXPECT_EQ(single.dFixedRate.value, 0.01);
  EXPECT_TRUE(single.dFixedRate.isSet);
}

TEST(Vocabulary, LookAlikeClassesRefuseEachOther) {
  M_FxStd fx;
  EXPECT_EQ(fx.Load(Fresh<M_EqStd>().get()), -28);
  EXPECT_EQ(Str(fx.errtext), "invalid input message of service(3540,3566)");

  // M_KytCapVolElmt has the fields of M_KytVolElmt; inside a curve it fails
  // the curve.
  MsgPtr curve = BuildSample(2139, true);
  MsgPtr bad = NewMsg(2139);
  ASSERT_GE(bad->SetValue(722, BuildSample(2136, true).release()), 0);
  ASSERT_GE(bad->SetValue(722, BuildSample(2137, true).release()), 0);
  M_KytVolCurve c;
  EXPECT_EQ(c.Load(bad.get()), -28);
  EXPECT_EQ(Str(c.errtext), "M_KytVolCurve:GET_SUB_ARR(M2139.T722) fail");
  EXPECT_EQ(Str(c.maKytVolElmt[1].errtext), "invalid input message of service(2137,2136)");
  EXPECT_TRUE(c.maKytVolElmt[0].dVol.isSet);
}

TEST(Vocabulary, FreshObjectsWriteWholeTrees) {
  EXPECT_EQ(TreeSize(*Fresh<M_OptCmb>()), 75);
  EXPECT_EQ(TreeSize(*Fresh<M_EqSwapStarAutoBarrSwit>()), 28);
  EXPECT_EQ(TreeSize(*Fresh<M_IrFloaterCombiCpnU>()), 58);
  EXPECT_EQ(TreeSize(*Fresh<M_IrRatchetCombiCpnU>()), 59);
  EXPECT_EQ(TreeSize(*Fresh<M_IrCombiCRCpnU>()), 4);
}

TEST(Vocabulary, TheDeepestRequestSurvivesEveryOperation) {
  MsgPtr sample = BuildSample(M_HbNoteDualMultiRngAccr().msgnum, true, 3);
  EXPECT_EQ(Depth(*sample), 8);
  M_HbNoteDualMultiRngAccr note;
  ASSERT_EQ(note.Load(sample.get()), 0) << note.errtext.ToStr();
  MsgPtr back(note.ToMsg());
  EXPECT_EQ(Text(back.get()), Text(sample.get()));
  M_HbNoteDualMultiRngAccr copy;
  copy.Copy(note);
  EXPECT_EQ(DumpOf(copy), DumpOf(note));
  EXPECT_EQ(Text(MsgPtr(copy.ToMsg()).get()), Text(sample.get()));
}

TEST(Vocabulary, AFailureDeepInAnEquitySwapNamesEveryLevel) {
  M_EqSwapStarAutoPlain swap;
  MsgPtr sample = BuildSample(swap.msgnum, true);
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 449, -5));  // sStarUnderType of the payoff
  EXPECT_EQ(swap.Load(sample.get()), -5);
  ClearFaults();
  EXPECT_EQ(Str(swap.errtext), "M_EqSwapStarAutoPlain:GET_SUB_ONE(M4113.T4775) fail");
  EXPECT_EQ(Str(swap.mStarAutoPlain.errtext), "M_StarAutoPlain:GET_SUB_ONE(M3503.T4538) fail");
  EXPECT_EQ(Str(swap.mStarAutoPlain.mStarAutoPlainPayoff.errtext),
            "M_StarAutoPlainPayoff:GET_VAL_ONE(M3475.T449) fail");
  // The note leg comes first by tag and was read whole.
  EXPECT_TRUE(swap.mIrNoteVanilla.errtext.IsEmpty());
  MsgPtr noteMsg(swap.mIrNoteVanilla.ToMsg());
  CMsg* sub = nullptr;
  ASSERT_GE(sample->GetValue(4772, &sub), 0);
  EXPECT_EQ(Text(noteMsg.get()), Text(sub));
}
