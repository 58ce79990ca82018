// The message pattern on real classes: Load, ToMsg, Dump and Copy, with every
// failure text and result code they can give.
#include <gtest/gtest.h>

#include <thread>
#include <utility>

#include "RuntimeFaults.h"
#include "TestSupport.h"
#include "hybrid/M_HbAccrAutoPlain.h"
#include "rates/M_IrCancelable.h"
#include "rates/M_IrCapFloorDigitalCpn.h"
#include "rates/M_IrNoteMultiRAccrCpHwTree.h"
#include "shared/M_FdmParam.h"
#include "shared/M_Greeks.h"
#include "shared/M_InstInfo.h"
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

// The values written under `tag` in the message `msg`.
int CallsOn(const SetRecorder& calls, const CMsg* msg, int tag) {
  int n = 0;
  for (int t : calls.TagsOf(msg)) n += t == tag;
  return n;
}

}  // namespace

TEST(MessagePattern, DumpsTheWorkedExamplesByteForByte) {
  M_SysReject reject;
  reject.iSysCode = Int(3);
  reject.sSysReasonText = "bad tag";
  EXPECT_EQ(DumpOf(reject),
            "\n            <msgnum> : 10"
            "\n           <msgname> : M_SysReject"
            "\n            iSysCode : [3]"
            "\n      sSysReasonText : [bad tag]"
            "\n        iSysRefMsgNo : [<CInt: unset>]"
            "\n--------------------------------------");

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
  c.iEventObservedPeriodNo = Int(-4);
  Fill(c.iaAppPeriodNo, {1, -2});
  std::string text = DumpOf(c);
  EXPECT_TRUE(Holds(text, WithRepr("\nsCancelableRightSect : [$R]\n"))) << text;
  EXPECT_TRUE(Holds(text, "\niEventObservedPeriodNo : [-4]\n")) << text;
  EXPECT_TRUE(Holds(text, "\n       iaAppPeriodNo : [" + Repr({1, -2}) + "]\n")) << text;

  M_SensitivityB s;
  s.bKytGreeksCalcYN.value = true;  // the flag decides, not the value
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [<CBool: unset>]"));
  s.bKytGreeksCalcYN = Bool(false);
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [N]"));
  s.bKytGreeksCalcYN = Bool(true);
  EXPECT_TRUE(Holds(DumpOf(s), "bKytGreeksCalcYN : [Y]"));

  M_Greeks g;  // an empty double array still has its line
  EXPECT_TRUE(Holds(DumpOf(g), "\n             daDelta : [" + Repr(CDblArray()) + "]\n"));
  Fill(g.daDelta, {-1.5, 1e300});
  EXPECT_TRUE(Holds(DumpOf(g), "daDelta : [" + Repr({-1.5, 1e300}) + "]"));

  // Integers at their limits, doubles of every sort, a long text and a set
  // date, each in its own format.
  M_SysReject reject;
  reject.iSysCode = Int(-2147483647 - 1);
  reject.iSysRefMsgNo = Int(2147483647);
  reject.sSysReasonText = std::string(300, 'x').c_str();
  text = DumpOf(reject);
  EXPECT_TRUE(Holds(text, "\n            iSysCode : [-2147483648]\n")) << text;
  EXPECT_TRUE(Holds(text, "\n        iSysRefMsgNo : [2147483647]\n")) << text;
  EXPECT_TRUE(Holds(text, "sSysReasonText : [" + std::string(300, 'x') + "]\n")) << text;
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
  // A text around the length where a line stops fitting the dumper's
  // buffer, and far past it, under a label of 20 and one of 25 letters.
  const std::string head =
      "\n            <msgnum> : 10"
      "\n           <msgname> : M_SysReject"
      "\n            iSysCode : [<CInt: unset>]";
  const std::string tail =
      "\n        iSysRefMsgNo : [<CInt: unset>]"
      "\n--------------------------------------";
  for (size_t n :
       {1, 100, 160, 161, 162, 163, 165, 166, 167, 168, 169, 191, 192, 193, 511, 512, 4000}) {
    SCOPED_TRACE(n);
    const std::string text = Letters(n);
    M_SysReject reject;
    reject.sSysReasonText = text.c_str();
    EXPECT_EQ(DumpOf(reject), head + "\n      sSysReasonText : [" + text + "]" + tail);
    M_IrCapFloorDigitalCpn cpn;
    cpn.sCapFloorDigitalRangeType = text.c_str();
    cpn.sCapFloorRightSect = "R";
    const std::string dump = DumpOf(cpn);
    EXPECT_TRUE(Holds(dump, "\n  sCapFloorRightSect : [R]\n")) << dump;
    const std::string want =
        "\nsCapFloorDigitalRangeType : [" + text + "]" + "\n--------------------------------------";
    ASSERT_GE(dump.size(), want.size());
    EXPECT_EQ(dump.substr(dump.size() - want.size()), want);
  }

  // A label of exactly 20 letters for a number, labels of 26 and 28 letters
  // for a sub-message and an array, and a value array whose text is longer
  // than a line.
  M_InstInfo inst;
  inst.dCapitalPaymentRatio = Dbl(0.5);
  EXPECT_TRUE(Holds(DumpOf(inst), "\ndCapitalPaymentRatio : [5.000000000000000e-01]\n"));
  M_HbAccrAutoPlain plain;
  std::string dump = DumpOf(plain);
  EXPECT_TRUE(Holds(dump, "\nmHbStarRngIrAccrChancePayoff :\n            <msgnum> : ")) << dump;
  EXPECT_TRUE(Holds(dump, "\nmaHbStarRngIrAccrChanceMon :\n     mHbStarPlainMon :\n")) << dump;
  ASSERT_EQ(plain.maHbStarRngIrAccrChanceMon.Grow(), 1);
  EXPECT_TRUE(Holds(DumpOf(plain),
                    "\nmaHbStarRngIrAccrChanceMon :\nM_HbStarRngIrAccrChanceMon_Array "
                    "[0]\n            <msgnum> : "));
  M_Greeks g;
  Fill(g.daDelta,
       {1.0 / 3, -2.0 / 3, 1e300, -1e-300, 5e-324, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9,
        1.1,     1.2,      1.3,   1.4,     1.5,    1.6, 1.7, 1.8, 1.9, 2.1, 2.2, 2.3, 2.4});
  const std::string repr = Repr(g.daDelta);
  ASSERT_GT(repr.size(), 200u);  // longer than a line of the dumper
  EXPECT_TRUE(
      Holds(DumpOf(g), "\n             daDelta : [" + repr + "]\n             daGamma : ["));
}

TEST(MessagePattern, LoadRefusesAnotherNumberAndTouchesNothing) {
  M_SysReject reject;
  reject.iSysCode = Int(5);
  MsgPtr other = BuildSample(1239, true);
  EXPECT_EQ(reject.Load(other.get()), -28);
  EXPECT_EQ(Str(reject.errtext), "invalid input message of service(1239,10)");
  EXPECT_EQ(reject.iSysCode.value, 5);

  // No message at all: -12, as for a null array, and still nothing touched,
  // the text included; a holder too.
  const std::string before = DumpOf(reject);
  EXPECT_EQ(reject.Load(nullptr), -12);
  EXPECT_EQ(DumpOf(reject), before);
  EXPECT_EQ(Str(reject.errtext), "invalid input message of service(1239,10)");
  M_KytVolSurface surface;
  ASSERT_EQ(surface.Load(BuildSample(1264, true).get()), 0);
  const std::string filled = DumpOf(surface);
  EXPECT_EQ(surface.Load(nullptr), -12);
  EXPECT_EQ(DumpOf(surface), filled);
  EXPECT_TRUE(surface.errtext.IsEmpty());

  // Same fields, different numbers: still two classes.
  M_TreeParam tree;
  EXPECT_EQ(tree.Load(BuildSample(3394, true).get()), -28);
  EXPECT_EQ(Str(tree.errtext), "invalid input message of service(3394,3393)");
  M_FdmParam fdm;
  EXPECT_EQ(fdm.Load(BuildSample(3393, true).get()), -28);
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

  // A value field is not cleared before its read: what it holds after a
  // tag the message lacks is what the runtime's read left in it, and a value
  // that the message holds unset becomes unset.
  M_UnderData u;
  Fill(u.daCorrCoeff, {0.5});
  u.dCurrentPrice = Dbl(10.0);
  MsgPtr unset = BuildSample(3400, false);
  CDblArray left;
  Fill(left, {0.5});
  ASSERT_EQ(unset->GetValue(642, &left), -1);  // daCorrCoeff: no element written
  ASSERT_EQ(u.Load(unset.get()), 0);
  EXPECT_EQ(Repr(u.daCorrCoeff), Repr(left));
  EXPECT_FALSE(u.dCurrentPrice.isSet);
}

TEST(MessagePattern, ToMsgWritesEveryFieldDownToTheLeaves) {
  // A new object writes exactly what the dictionary says the class holds,
  // unset, with every sub-message and no array element.
  std::unique_ptr<CMsgBase> objects[] = {
      std::make_unique<M_SysReject>(),     std::make_unique<M_TivValue>(),
      std::make_unique<M_KytVolSurface>(), std::make_unique<M_UnderData>(),
      std::make_unique<M_ValOut>(),        std::make_unique<M_Greeks>()};
  for (std::unique_ptr<CMsgBase>& obj : objects) {
    SCOPED_TRACE(obj->msgname.ToStr());
    MsgPtr expected = BuildSample(obj->msgnum, false);
    MsgPtr msg(obj->ToMsg());
    ASSERT_TRUE(msg);
    EXPECT_EQ(Text(msg.get()), Text(expected.get()));
    MsgPtr again(obj->ToMsg());  // each call makes a new message
    EXPECT_NE(again.get(), msg.get());
  }
  EXPECT_EQ(Text(MsgPtr(M_TivValue().ToMsg()).get()),
            "M1239 M_TivValue {\n"
            "  T580 dValue d -\n"
            "  T695 mTivMatur m M2143 M_Tiv {\n"
            "    T198 nDate n -\n"
            "    T775 sDateType s \"\"\n"
            "    T800 sMatur s \"\"\n"
            "  }\n"
            "}\n");
}

TEST_F(Faults, ToMsgFailuresNameTheFieldAndFreeTheMessage) {
  M_SysReject reject;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 8, -3));
  EXPECT_EQ(reject.ToMsg(), nullptr);
  EXPECT_EQ(Str(reject.errtext), "M_SysReject:SET_VAL_ONE(M0010.T8) fail");

  M_TivValue tv;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 198, -3));
  EXPECT_EQ(tv.ToMsg(), nullptr);
  EXPECT_EQ(Str(tv.errtext), "M_TivValue:SET_SUB_ONE(M1239.T695) fail");
  EXPECT_EQ(Str(tv.mTivMatur.errtext), "M_Tiv:SET_VAL_ONE(M2143.T198) fail");

  // Attaching a finished sub-message can fail too: then it is the holder's
  // SET_VAL_ONE.
  M_TivValue tv2;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 695, -4));
  EXPECT_EQ(tv2.ToMsg(), nullptr);
  EXPECT_EQ(Str(tv2.errtext), "M_TivValue:SET_VAL_ONE(M1239.T695) fail");

  M_KytVolSurface surface;
  surface.maKytVolSfcElmt.SetSize(3);
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 928, -3, 2));  // dStrike of the third element
  EXPECT_EQ(surface.ToMsg(), nullptr);
  EXPECT_EQ(Str(surface.errtext), "M_KytVolSurface:SET_SUB_ARR(M1264.T1456) fail");
  EXPECT_EQ(Str(surface.maKytVolSfcElmt[2].errtext),
            "M_KytVolSurfaceElmt:SET_VAL_ONE(M1265.T928) fail");

  // Three values of an array go out one by one; the second fails and the
  // third is never written.
  M_Greeks g;
  Fill(g.daDelta, {1.0, 2.0, 3.0});
  SetRecorder calls;
  ASSERT_TRUE(ArmFault(FaultOp::kSet, 612, -3, 1));
  EXPECT_EQ(g.ToMsg(), nullptr);
  EXPECT_EQ(Str(g.errtext), "M_Greeks:SET_VAL_ONE(M2161.T612) fail");
  EXPECT_EQ(PendingFaults(), 0);
  int tries = 0;
  for (const SetCall& call : calls.Calls()) tries += call.tag == 612;
  EXPECT_EQ(tries, 2);
}

TEST(MessagePattern, ToMsgWithoutMemorySaysSo) {
  REQUIRE_FAILING_ALLOC();
  M_SysReject reject;
  CMsg* msg = nullptr;
  // A runtime may keep spare message blocks per thread: a new thread has
  // none, so its first message is a real allocation.
  std::thread([&] {
    MA_GetMsgDic();
    FailingAlloc::FailAt(0);
    msg = reject.ToMsg();
    FailingAlloc::Off();
  }).join();
  EXPECT_EQ(msg, nullptr);
  EXPECT_EQ(Str(reject.errtext), "Out of memory");
}

TEST(MessagePattern, CopyTakesFieldsButNotIdentity) {
  M_KytVolSurface src;
  ASSERT_EQ(src.Load(BuildSample(1264, true).get()), 0);
  src.errtext = "from before";
  M_KytVolSurface dst;
  dst.errtext = "mine";
  dst.maKytVolSfcElmt.SetSize(5);
  dst.Copy(src);
  EXPECT_EQ(DumpOf(dst), DumpOf(src));
  EXPECT_EQ(Str(dst.errtext), "mine");
  EXPECT_EQ(dst.msgnum, 1264);
  EXPECT_EQ(dst.maKytVolSfcElmt.GetSize(), 2);
  EXPECT_NE(&dst.maKytVolSfcElmt[0], &src.maKytVolSfcElmt[0]);

  // A date's flag is copied with it, so an unset source unsets.
  M_TivValue a, b;
  b.mTivMatur.nDate.Set("20240229");
  b.Copy(a);
  EXPECT_FALSE(b.mTivMatur.nDate.isSet);
  a.mTivMatur.nDate.Set("20240229");
  b.Copy(a);
  EXPECT_STREQ(b.mTivMatur.nDate.text, "20240229");
  EXPECT_TRUE(b.mTivMatur.nDate.isSet);
  // A date that holds a text with its flag cleared is unset too: the flag,
  // not the text, decides.
  a.mTivMatur.nDate.isSet = false;
  b.Copy(a);
  EXPECT_FALSE(b.mTivMatur.nDate.isSet);

  // Copying an object onto itself changes nothing.
  std::string before = DumpOf(src);
  src.Copy(src);
  src.maKytVolSfcElmt.Copy(src.maKytVolSfcElmt);
  EXPECT_EQ(DumpOf(src), before);
}

TEST(MessagePattern, CopyReplacesEveryKindByTheSource) {
  // A request whose tree holds fields of all nine kinds, in three fillings:
  // arrays of two, three and one element, each with other values.
  const int number = M_IrNoteMultiRAccrCpHwTree().msgnum;
  SampleShape shape;
  M_IrNoteMultiRAccrCpHwTree two, three, one, fresh;
  ASSERT_EQ(two.Load(BuildSample(number, shape, 1).get()), 0);
  shape.elements = 3;
  ASSERT_EQ(three.Load(BuildSample(number, shape, 2).get()), 0);
  shape.elements = 1;
  ASSERT_EQ(one.Load(BuildSample(number, shape, 3).get()), 0);
  const std::string dumpTwo = DumpOf(two);
  const std::string textTwo = Text(MsgPtr(two.ToMsg()).get());
  ASSERT_NE(DumpOf(three), dumpTwo);

  M_IrNoteMultiRAccrCpHwTree dst;
  dst.Copy(two);
  EXPECT_EQ(DumpOf(dst), dumpTwo);
  dst.Copy(three);  // longer arrays, other values
  EXPECT_EQ(DumpOf(dst), DumpOf(three));
  dst.Copy(one);  // shorter arrays
  EXPECT_EQ(DumpOf(dst), DumpOf(one));
  // Unset values, empty strings and empty arrays replace what was there.
  dst.Copy(fresh);
  EXPECT_EQ(DumpOf(dst), DumpOf(fresh));
  EXPECT_EQ(Text(MsgPtr(dst.ToMsg()).get()), Text(BuildSample(number, false).get()));

  // The copy owns all it holds: reloading the source, which deletes its
  // array elements, leaves the copy as it was.
  dst.Copy(two);
  shape.elements = 3;
  ASSERT_EQ(two.Load(BuildSample(number, shape, 4).get()), 0);
  EXPECT_EQ(DumpOf(dst), dumpTwo);
  EXPECT_EQ(Text(MsgPtr(dst.ToMsg()).get()), textTwo);

  // Value fields copy value and flag, also a value behind a cleared flag.
  M_SysReject a, b;
  a.iSysCode.value = 9;
  a.iSysCode.isSet = false;
  b.iSysCode = Int(1);
  b.Copy(a);
  EXPECT_FALSE(b.iSysCode.isSet);
  EXPECT_EQ(b.iSysCode.value, 9);
}

TEST(MessagePattern, ValueArraysOfOneElement) {
  M_Greeks g;
  Fill(g.daDelta, {-2.5});
  M_IrCancelable c;
  Fill(c.iaAppPeriodNo, {7});

  // One value each under the tag, no more and no fewer.
  SetRecorder calls;
  MsgPtr gm(g.ToMsg()), cm(c.ToMsg());
  ASSERT_TRUE(gm && cm);
  EXPECT_EQ(CallsOn(calls, gm.get(), 612), 1);
  EXPECT_EQ(CallsOn(calls, cm.get(), 5146), 1);

  // Read back, dumped and copied whole.
  M_Greeks g2;
  M_IrCancelable c2;
  ASSERT_EQ(g2.Load(gm.get()), 0);
  ASSERT_EQ(c2.Load(cm.get()), 0);
  EXPECT_EQ(Repr(g2.daDelta), Repr({-2.5}));
  EXPECT_EQ(Repr(c2.iaAppPeriodNo), Repr({7}));
  EXPECT_TRUE(Holds(DumpOf(g2), "\n             daDelta : [" + Repr({-2.5}) + "]\n"));
  EXPECT_TRUE(Holds(DumpOf(c2), "\n       iaAppPeriodNo : [" + Repr({7}) + "]\n"));
  M_Greeks g3;
  Fill(g3.daDelta, {1.0, 2.0, 3.0});
  g3.Copy(g);
  EXPECT_EQ(Repr(g3.daDelta), Repr({-2.5}));
  g3.Copy(M_Greeks());
  EXPECT_EQ(Repr(g3.daDelta), Repr(CDblArray()));
  M_IrCancelable c3;
  c3.Copy(c);
  EXPECT_EQ(Repr(c3.iaAppPeriodNo), Repr({7}));
}
