// A client values a floating-rate note on a Hull-White simulation.
//
// It fills an M_IrNoteFlterHwMc (the floating leg, the notional, the model
// and what sensitivities to compute), turns it into a message with ToMsg,
// hands that to the service, and reads the service's M_IrNoteHwOut reply
// with Load. The service here is a stand-in that answers with a plausible
// price; a second call gets a damaged reply, to show how a client finds the
// first cause of a failed Load (MA_ExplainFailure of libpricemsg_text).
//
// It uses what any client has, the installed headers and the runtime's
// documented calls, so it builds and runs on whichever runtime the library
// is built on: values are set through their fields, dates with CDate::Set,
// and objects are shown as message files (MsgText.h), which any runtime's
// messages make. (Dump writes into the runtime's CStream, whose text only
// the runtime itself knows how to give back.)
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include <pricemsg/MsgExplain.h>
#include <pricemsg/MsgText.h>
#include <pricemsg/rates/M_IrNoteFlterHwMc.h>
#include <pricemsg/rates/M_IrNoteHwOut.h>

namespace {

// Sets a CInt, CDbl or CBool.
template <class V, class T>
void Put(V& field, T value) {
  field.value = value;
  field.isSet = true;
}

// Prints an object as the message file of the message that its ToMsg makes:
// every value with its field's name.
void Print(const char* title, CMsgBase& obj) {
  std::unique_ptr<CMsg> msg(obj.ToMsg());
  std::string text;
  MsgTextError err{};
  if (!msg || MA_WriteMsgText(msg.get(), &text, &err) != MSGTEXT_OK) {
    std::printf("==== %s: cannot be shown: %s\n", title, msg ? err.reason : obj.errtext.ToStr());
    return;
  }
  std::printf("==== %s ====\n%s\n", title, text.c_str());
}

void FillRequest(M_IrNoteFlterHwMc& req) {
  M_IrNotionalInfo& notional = req.mIrNotionalInfo;
  notional.sCcy = "EUR";
  Put(notional.dNotionAmt, 10000000.0);
  Put(notional.iDisCrvId, 1);

  // Four quarterly periods, each paying 3M EURIBOR plus 45bp, capped at 5%.
  M_IrFloater& leg = req.mIrFloater;
  leg.sDayCntConv = "ACT/360";
  leg.sPayRcvSect = "R";
  const char* dates[] = {"20261123", "20270223", "20270524", "20270823", "20271123"};
  leg.maIrCpnSchedule.SetSize(4);
  for (int i = 0; i < 4; ++i) {
    M_IrCpnSchedule& period = leg.maIrCpnSchedule[i];
    Put(period.iPeriodNo, i + 1);
    period.nFormerDate.Set(dates[i]);
    period.nAfterDate.Set(dates[i + 1]);
    period.nCashflowDate.Set(dates[i + 1]);
  }
  M_IrFloaterCpn& cpn = leg.mIrFloaterCpn;
  Put(cpn.dGearing, 1.0);
  Put(cpn.dMargin, 0.0045);
  Put(cpn.dCapRate, 0.05);
  Put(cpn.bCapRateYN, true);
  Put(cpn.bFloorRateYN, false);
  cpn.mCmpstRIdx.sFixTmPt = "ADVANCE";
  M_KytRateIndexB_Array& indices = cpn.mCmpstRIdx.maKytRateIndexB;
  indices.Grow();
  indices[0].sRateIndexCode = "EURIBOR3M";
  indices[0].sCcy = "EUR";
  Put(indices[0].iRateCrvId, 1);
  indices[0].sRateMatur = "3M";
  Put(indices[0].dGearing, 1.0);
  // The first coupon is already fixed.
  leg.maIrFloaterMon.Grow();
  Put(leg.maIrFloaterMon[0].iPeriodNo, 1);
  Put(leg.maIrFloaterMon[0].bCouponFixingYN, true);
  Put(leg.maIrFloaterMon[0].dCouponRate, 0.0312);

  // The model: a flat curve, Hull-White parameters, 10,000 paths.
  M_IrHwMcParam& model = req.mIrHwMcParam;
  model.nCalcDate.Set("20261123");
  Put(model.iNoSim, 10000);
  model.sSeedType = "FIXED";
  model.maKytRateCrvB.Grow();
  M_KytRateCurveB& curve = model.maKytRateCrvB[0];
  curve.sCcy = "EUR";
  Put(curve.iRateCrvId, 1);
  curve.sInterpMethod = "LINEAR";
  const char* tenors[] = {"3M", "6M", "1Y", "2Y"};
  curve.maRateCrvTenor.SetSize(4);
  for (int i = 0; i < 4; ++i) {
    curve.maRateCrvTenor[i].mTivMatur.sMatur = tenors[i];
    Put(curve.maRateCrvTenor[i].dRate, 0.030 + 0.002 * i);
  }
  model.maIrHwCalibParam.Grow();
  model.maIrHwCalibParam[0].sCcy = "EUR";
  Put(model.maIrHwCalibParam[0].dMeanReversion, 0.03);
  Put(model.maIrHwCalibParam[0].dVol, 0.009);

  Put(req.mIrEffSensMcParam.bDeltaYN, true);
  Put(req.mIrEffSensMcParam.bVegaYN, false);
}

// ---- the stand-in service ----

// Answers a note request with one price and a cash flow for each period.
CMsg* StandInService(CMsg* request, bool damaged) {
  M_IrNoteFlterHwMc req;
  M_IrNoteHwOut reply;
  if (req.Load(request) < 0) return nullptr;
  double notional = req.mIrNotionalInfo.dNotionAmt.value;
  double rate = 0.031 + req.mIrFloater.mIrFloaterCpn.dMargin.value;
  M_IrNotePrice_Array& prices = reply.maIrNotePrice;
  prices.Grow();
  M_IrNotePrice& price = prices[0];
  price.sPriceType = "MODEL";
  double pv = 0.0;
  int periods = req.mIrFloater.maIrCpnSchedule.GetSize();
  price.maIrNoteCF.SetSize(periods);
  for (int i = 0; i < periods; ++i) {
    M_IrNoteCF& cf = price.maIrNoteCF[i];
    double df = std::exp(-0.03 * 0.25 * (i + 1));
    Put(cf.iPeriodNo, i + 1);
    Put(cf.dInterestRate, rate);
    Put(cf.dCashFlowInterest, notional * rate * 0.25);
    Put(cf.dCashFlowCapital, i + 1 == periods ? notional : 0.0);
    Put(cf.dCashFlow, cf.dCashFlowInterest.value + cf.dCashFlowCapital.value);
    Put(cf.dDisFactor, df);
    Put(cf.dPv, cf.dCashFlow.value * df);
    cf.nCashflowDate.Set(req.mIrFloater.maIrCpnSchedule[i].nCashflowDate.text);
    pv += cf.dPv.value;
  }
  Put(price.dDirtyPrice, pv);
  Put(price.dCleanPrice, pv);
  if (!damaged) return reply.ToMsg();
  // A damaged reply: after the cash flows of its price comes a message of
  // another class where a cash flow belongs.
  CMsg* priceMsg = price.ToMsg();
  if (!priceMsg) return nullptr;
  std::unique_ptr<CMsg> msg(new CMsg(reply.msgnum, 0, 0, MA_GetMsgDic()));
  if (priceMsg->SetValue(4668, M_IrNotePrice().ToMsg()) < 0 ||  // maIrNoteCF
      msg->SetValue(4673, priceMsg) < 0) {                      // maIrNotePrice
    return nullptr;
  }
  return msg.release();
}

// ---- the client ----

// Prints a failure as the path of field names down to its first cause, with
// the tag, class, kind and code of each level.
void PrintFailure(const char* what, const CMsgBase& obj) {
  std::printf("%s failed:\n%s\n", what, MA_ExplainFailure(obj).c_str());
}

bool Value(M_IrNoteFlterHwMc& req, bool damaged) {
  std::unique_ptr<CMsg> request(req.ToMsg());
  if (!request) {
    PrintFailure("ToMsg", req);
    return false;
  }
  std::unique_ptr<CMsg> answer(StandInService(request.get(), damaged));
  if (!answer) {
    std::printf("The service gave no answer.\n");
    return false;
  }
  M_IrNoteHwOut reply;
  if (reply.Load(answer.get()) < 0) {
    PrintFailure("Load", reply);
    return false;
  }
  Print("reply M_IrNoteHwOut", reply);
  return true;
}

}  // namespace

int main() {
  M_IrNoteFlterHwMc req;
  FillRequest(req);
  Print("request M_IrNoteFlterHwMc", req);
  bool good = Value(req, false);
  std::printf("\nA damaged reply:\n");
  bool damaged = Value(req, true);
  return good && !damaged ? 0 : 1;
}
