// The message pattern on real classes: Load, ToMsg, Dump and Copy, with every
// failure text and result code they can give, and the order of the fields
// that a request takes from a set.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Reflect.h"
#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "equity/M_StarCpnTgt.h"
#include "rates/M_IrCancelable.h"
#include "rates/M_IrCapFloorDigitalCpn.h"
#include "rates/M_IrNoteMultiRAccrCpHwTree.h"
#include "shared/M_Greeks.h"
#include "shared/M_KytVolSurface.h"
#include "shared/M_SensitivityB.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"
#include "shared/M_TivValue.h"
#include "shared/M_TreeParam.h"
#include "shared/M_UnderData.h"
#include "shared/M_ValOut.h"

using namespace testing_support;

namespace {

class Faults : public ::testing::Test {
 protected:
  void TearDown() override { ClearFaults(); }
};

// `text` with each "$R" replaced by what the runtime prints for an empty
// string.
std::string WithRepr(std::string text) {
  const std::string r = EmptyRepr();
  for (size_t at = text.find("$R"); at != std::string::npos; at = text.find("$R", at + r.size())) {
    text.replace(at, 2, r);
  }
  return text;
}

bool Holds(const std::string& text, const std::string& line) {
  return text.find(line) != std::string::npos;
}

// A text of `n` letters that do not repeat in step with any buffer size.
std::string Letters(size_t n) {
  std::string text;
  for (size_t i = 0; i < n; ++i) text += static_cast<char>('a' + (i * 7 + i / 26) % 26);
  return text;
}

}  // namespace

TEST(MessagePattern, DumpsAHolderByteForByte) {
  M_KytVolSurface surface;
  surface.iVolCrvId = Int(7);
  ASSERT_EQ(surface.maKytVolSfcElmt.Grow(), 1);
  surface.maKytVolSfcElmt[0].dVol = Dbl(0.25);
  EXPECT_EQ(DumpOf(surface), WithRepr("\n            <msgnum> : 1264"
                                      "\n           <msgname> : M_KytVolSurface"
                                      "\n           iVolCrvId : [7]"
                                      "\n     maKytVolSfcElmt :"
                                      "\nM_KytVolSurfaceElmt_Array [0]"
                                      "\n            <msgnum> : 1265"
                                      "\n           <msgname> : M_KytVolSurfaceElmt"
                                      "\n                dVol : [2.500000000000000e-01]"
                                      "\n           mTivMatur :"
                                      "\n            <msgnum> : 2143"
                                      "\n           <msgname> : M_Tiv"
                                      "\n               nDate : [<CDate: unset>]"
                                      "\n           sDateType : [$R]"
                                      "\n              sMatur : [$R]"
                                      "\n--------------------------------------"
                                      "\n             dStrike : [<CDbl: unset>]"
                                      "\n--------------------------------------"
                                      "\n--------------------------------------"));
}

TEST(MessagePattern, DumpFormatsEachKind) {
  M_IrCancelable c;  // labels of 20 and 22 letters, an integer array
  c.iEventObservedPeriodNo = Int(-2147483647 - 1);
  ASSERT_EQ(pricemsg::Set(c, "iaAppPeriodNo", std::vector<int>{1, -2}), 0);
  const std::string text = DumpOf(c);
  EXPECT_TRUE(Holds(text, WithRepr("\nsCancelableRightSect : [$R]\n"))) << text;
  EXPECT_TRUE(Holds(text, "\niEventObservedPeriodNo : [-2147483648]\n")) << text;
  EXPECT_TRUE(Holds(text, "\n       iaAppPeriodNo : [" + Repr(c.iaAppPeriodNo) + "]\n")) << text;

  M_SensitivityB s;
  s.bKytGreeksCalcYN.value = true;  // the flag decides, not the value
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [<CBool: unset>]"));
  s.bKytGreeksCalcYN = Bool(false);
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [N]"));
  s.bKytGreeksCalcYN = Bool(true);
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [Y]"));

  M_Greeks g;  // an empty double array still has its line
  EXPECT_TRUE(Holds(DumpOf(g), "\n             daDelta : [" + Repr(CDblArray()) + "]\n"));
  M_Tiv tiv;
  tiv.nDate.Set("20261123");
  EXPECT_TRUE(
      Holds(DumpOf(tiv), "\n               nDate : [" + std::string(tiv.nDate.text) + "]\n"));
  M_TivValue tv;
  for (auto [v, shown] : {std::pair<double, const char*>{-0.0, "-0.000000000000000e+00"},
                          {5e-324, "4.940656458412465e-324"},
                          {1.0 / 3, "3.333333333333333e-01"},
                          {-1e300, "-1.000000000000000e+300"}}) {
    tv.dValue = Dbl(v);
    EXPECT_TRUE(Holds(DumpOf(tv), std::string("dValue : [") + shown + "]")) << shown;
  }
}

TEST(MessagePattern, DumpsLinesLongerThanUsual) {
  // A text around the lengths where a line stops fitting what the dumper
  // gathers (4,096 bytes), and far past them, under a label of 14 and one of
  // 25 letters.
  const std::string head =
      "\n            <msgnum> : 10"
      "\n           <msgname> : M_SysReject"
      "\n            iSysCode : [<CInt: unset>]";
  const std::string tail =
      "\n        iSysRefMsgNo : [<CInt: unset>]"
      "\n--------------------------------------";
  for (size_t n : {1, 160, 3970, 3971, 3972, 4095, 4096, 4097, 9000}) {
    SCOPED_TRACE(n);
    const std::string text = Letters(n);
    M_SysReject reject;
    reject.sSysReasonText = text.c_str();
    EXPECT_EQ(DumpOf(reject), head + "\n      sSysReasonText : [" + text + "]" + tail);
    M_IrCapFloorDigitalCpn cpn;  // a label wider than its column
    cpn.sCapFloorDigitalRangeType = text.c_str();
    EXPECT_TRUE(Holds(DumpOf(cpn), "\nsCapFloorDigitalRangeType : [" + text + "]\n"));
  }
}

TEST(MessagePattern, LoadRefusesAnotherNumberOrNoneAndTouchesNothing) {
  // M_FdmParam has the fields of M_TreeParam: a message of the one is still
  // refused by the other, before anything is read.
  M_TreeParam tree;
  const std::string fresh = DumpOf(tree);
  EXPECT_EQ(tree.Load(BuildSample(3394, true).get()), -28);
  EXPECT_EQ(Str(tree.errtext), "invalid input message of service(3394,3393)");
  // No message at all: -12, and nothing touched, the text included.
  EXPECT_EQ(tree.Load(nullptr), -12);
  EXPECT_EQ(DumpOf(tree), fresh);
  EXPECT_EQ(Str(tree.errtext), "invalid input message of service(3394,3393)");
}

TEST_F(Faults, ValueAndSubMessageFieldsHaveDifferentThresholds) {
  MsgPtr msg = BuildSample(10, true);
  M_SysReject reject;
  reject.iSysRefMsgNo = Int(99);
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 6, -1));  // absent: no failure
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 7, -2));  // a failed read of a value
  EXPECT_EQ(reject.Load(msg.get()), -2);
  EXPECT_EQ(Str(reject.errtext), "M_SysReject:GET_VAL_ONE(M0010.T7) fail");
  EXPECT_EQ(reject.iSysRefMsgNo.value, 99);  // not reached

  // Any negative read of a sub-message or an array is an absence.
  M_KytVolSurface surface;
  surface.maKytVolSfcElmt.Grow();
  surface.maKytVolSfcElmt[0].dVol = Dbl(1.0);
  M_TivValue tv;
  tv.mTivMatur.sMatur = "1Y";
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 1456, -9));
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 695, -9));
  EXPECT_EQ(surface.Load(BuildSample(1264, true).get()), 0);
  EXPECT_EQ(tv.Load(BuildSample(1239, true).get()), 0);
  EXPECT_TRUE(surface.errtext.IsEmpty());
  EXPECT_TRUE(tv.errtext.IsEmpty());
  EXPECT_EQ(surface.maKytVolSfcElmt[0].dVol.value, 1.0);
  EXPECT_EQ(Str(tv.mTivMatur.sMatur), "1Y");
}

TEST_F(Faults, NestedFailureTellsEachLevelAndReturnsTheFirstCause) {
  MsgPtr msg = BuildSample(1264, true);
  M_KytVolSurface surface;
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 198, -7, 1));  // nDate of the second element
  EXPECT_EQ(surface.Load(msg.get()), -7);
  EXPECT_EQ(Str(surface.errtext), "M_KytVolSurface:GET_SUB_ARR(M1264.T1456) fail");
  M_KytVolSurfaceElmt& second = surface.maKytVolSfcElmt[1];
  EXPECT_EQ(Str(second.errtext), "M_KytVolSurfaceElmt:GET_SUB_ONE(M1265.T695) fail");
  EXPECT_EQ(Str(second.mTivMatur.errtext), "M_Tiv:GET_VAL_ONE(M2143.T198) fail");
  EXPECT_TRUE(surface.maKytVolSfcElmt[0].errtext.IsEmpty());
  EXPECT_TRUE(surface.maKytVolSfcElmt[0].dVol.isSet);  // loaded before the failure
  EXPECT_TRUE(second.dVol.isSet);
  EXPECT_FALSE(second.dStrike.isSet);  // after it

  // A sub-message of a wrong number fails the holder with -28.
  MsgPtr bad = NewMsg(1239);
  ASSERT_GE(bad->SetValue(695, BuildSample(2032, false).release()), 0);
  M_TivValue tv;
  EXPECT_EQ(tv.Load(bad.get()), -28);
  EXPECT_EQ(Str(tv.errtext), "M_TivValue:GET_SUB_ONE(M1239.T695) fail");
  EXPECT_EQ(Str(tv.mTivMatur.errtext), "invalid input message of service(2032,2143)");

  // A later success leaves the old text.
  EXPECT_EQ(tv.Load(BuildSample(1239, true).get()), 0);
  EXPECT_EQ(Str(tv.errtext), "M_TivValue:GET_SUB_ONE(M1239.T695) fail");
}

TEST(MessagePattern, LoadKeepsWhatTheMessageLacks) {
  M_ValOut out;
  ASSERT_EQ(out.Load(BuildSample(3470, true).get()), 0);
  std::string first = DumpOf(out.mTermData);
  MsgPtr partial = NewMsg(3470);
  ASSERT_GE(partial->SetValue(4518, BuildSample(3468, true, 2, 7).release()), 0);
  ASSERT_EQ(out.Load(partial.get()), 0);
  EXPECT_EQ(DumpOf(out.mTermData), first);

  // A value that the message holds unset becomes unset.
  M_UnderData u;
  u.dCurrentPrice = Dbl(10.0);
  ASSERT_EQ(u.Load(BuildSample(3400, false).get()), 0);
  EXPECT_FALSE(u.dCurrentPrice.isSet);
}

// (A failure inside a sub-message or an element names each level:
// explain_test follows those texts down every class.)
TEST_F(Faults, ToMsgFailuresNameTheFieldAndFreeTheMessage) {
  // Attaching a finished sub-message can fail too: then it is the holder's
  // SET_VAL_ONE.
  M_TivValue tv;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 695, -4));
  EXPECT_EQ(tv.ToMsg(), nullptr);
  EXPECT_EQ(Str(tv.errtext), "M_TivValue:SET_VAL_ONE(M1239.T695) fail");

  // Three values of an array go out one by one; the second fails and the
  // third is never written.
  M_Greeks g;
  ASSERT_EQ(pricemsg::Set(g, "daDelta", std::vector<double>{1.0, 2.0, 3.0}), 0);
  SetRecorder calls;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 612, -3, 1));
  EXPECT_EQ(g.ToMsg(), nullptr);
  EXPECT_EQ(Str(g.errtext), "M_Greeks:SET_VAL_ONE(M2161.T612) fail");
  int tries = 0;
  for (const SetCall& call : calls.Calls()) tries += call.tag == 612;
  EXPECT_EQ(tries, 2);
}

TEST(MessagePattern, CopyReplacesEveryKindByTheSourceButNotIdentity) {
  // A request whose tree holds fields of all nine kinds: arrays of three
  // elements replaced by one, that one by three with other values, and all
  // by a new object's unset values, empty strings and empty arrays.
  const int number = M_IrNoteMultiRAccrCpHwTree().msgnum;
  SampleShape shape;
  shape.elements = 3;
  M_IrNoteMultiRAccrCpHwTree dst, src, fresh;
  ASSERT_EQ(dst.Load(BuildSample(number, shape, 1).get()), 0);
  shape.elements = 1;
  ASSERT_EQ(src.Load(BuildSample(number, shape, 2).get()), 0);
  dst.errtext = "mine";
  dst.Copy(src);
  const std::string copied = DumpOf(dst);
  EXPECT_EQ(copied, DumpOf(src));
  // The copy owns all it holds: reloading the source, which deletes its
  // array elements, leaves the copy as it was.
  shape.elements = 3;
  ASSERT_EQ(src.Load(BuildSample(number, shape, 3).get()), 0);
  EXPECT_EQ(DumpOf(dst), copied);
  dst.Copy(src);
  EXPECT_EQ(DumpOf(dst), DumpOf(src));
  dst.Copy(fresh);
  EXPECT_EQ(DumpOf(dst), DumpOf(fresh));
  EXPECT_EQ(Str(dst.errtext), "mine");

  // A date that holds a text with its flag cleared is unset: the flag, not
  // the text, decides.
  M_TivValue a, b;
  a.mTivMatur.nDate.Set("20240229");
  a.mTivMatur.nDate.isSet = false;
  b.mTivMatur.nDate.Set("20240229");
  b.Copy(a);
  EXPECT_FALSE(b.mTivMatur.nDate.isSet);

  // Copying an object or an array onto itself changes nothing.
  M_KytVolSurface surface;
  ASSERT_EQ(surface.Load(BuildSample(1264, true).get()), 0);
  const std::string before = DumpOf(surface);
  surface.Copy(surface);
  surface.maKytVolSfcElmt.Copy(surface.maKytVolSfcElmt);
  EXPECT_EQ(DumpOf(surface), before);
}

// A request's own fields and those it takes from a set (each class on its
// own: all_messages_test).

TEST(MessagePattern, ToMsgInterleavesSetFieldsAndOwnFieldsByTag) {
  // The top-level fields in the order ToMsg writes them, from a filled sample
  // (a fresh object writes no array element).
  M_StarCpnTgt star;
  ASSERT_EQ(star.Load(BuildSample(star.msgnum, true).get()), 0);
  SetRecorder calls;
  MsgPtr msg(star.ToMsg());
  const pricemsg::schema::ClassInfo* info = pricemsg::schema::FindClass(star.msgnum);
  std::vector<std::string> names;
  for (const SetCall& call : calls.Calls()) {
    if (call.msg != msg.get()) continue;
    const char* name = pricemsg::schema::FindMember(*info, call.tag)->name;
    if (names.empty() || names.back() != name) names.push_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"mMcParam", "mSensitivityB", "maUnderSpecB",
                                             "maUnderData", "mInstInfo", "maRisklessCrv",
                                             "mDcntCrv", "mMonTgt", "mCpnSched", "maTgtCpnPff"}));
}
