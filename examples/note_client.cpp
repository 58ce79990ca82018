// A client values a floating-rate note on a Hull-White simulation.
//
// It fills an M_IrNoteFlterHwMc (the floating leg, the notional, the model
// and what sensitivities to compute), turns it into a message with ToMsg,
// hands that to the service, and reads the service's M_IrNoteHwOut reply
// with Load. The service here is a stand-in that answers with a plausible
// price; a second call gets a damaged reply, to show how a client finds the
// first cause of a failed Load.
#include <cmath>
#include <cstdio>
#include <memory>

#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "rates/M_IrNoteFlterHwMc.h"
#include "rates/M_IrNoteHwOut.h"

namespace {

void Print(const char* title, const CMsgBase& obj) {
  CStream out;
  obj.Dump(&out);
  std::printf("==== %s ====%s\n\n", title, out.ToStr());
}

void FillRequest(M_IrNoteFlterHwMc& req) {
  M_IrNotionalInfo& notional = req.mIrNotionalInfo;
  notional.sCcy = "EUR";
  notional.dNotionAmt = 10000000.0;
  notional.iDisCrvId = 1;

  // Four quarterly periods, each paying 3M EURIBOR plus 45bp, capped at 5%.
  M_IrFloater& leg = req.mIrFloater;
  leg.sDayCntConv = "ACT/360";
  leg.sPayRcvSect = "R";
  const char* dates[] = {"20261123", "20270223", "20270524", "20270823", "20271123"};
  leg.maIrCpnSchedule.SetSize(4);
  for (int i = 0; i < 4; ++i) {
    M_IrCpnSchedule& period = leg.maIrCpnSchedule[i];
    period.iPeriodNo = i + 1;
    period.nFormerDate.Set(dates[i]);
    period.nAfterDate.Set(dates[i + 1]);
    period.nCashflowDate.Set(dates[i + 1]);
  }
  M_IrFloaterCpn& cpn = leg.mIrFloaterCpn;
  cpn.dGearing = 1.0;
  cpn.dMargin = 0.0045;
  cpn.dCapRate = 0.05;
  cpn.bCapRateYN = true;
  cpn.bFloorRateYN = false;
  cpn.mCmpstRIdx.sFixTmPt = "ADVANCE";
  M_KytRateIndexB_Array& indices = cpn.mCmpstRIdx.maKytRateIndexB;
  indices.Grow();
  indices[0].sRateIndexCode = "EURIBOR3M";
  indices[0].sCcy = "EUR";
  indices[0].iRateCrvId = 1;
  indices[0].sRateMatur = "3M";
  indices[0].dGearing = 1.0;
  // The first coupon is already fixed.
  leg.maIrFloaterMon.Grow();
  leg.maIrFloaterMon[0].iPeriodNo = 1;
  leg.maIrFloaterMon[0].bCouponFixingYN = true;
  leg.maIrFloaterMon[0].dCouponRate = 0.0312;

  // The model: a flat curve, Hull-White parameters, 10,000 paths.
  M_IrHwMcParam& model = req.mIrHwMcParam;
  model.nCalcDate.Set("20261123");
  model.iNoSim = 10000;
  model.sSeedType = "FIXED";
  model.maKytRateCrvB.Grow();
  M_KytRateCurveB& curve = model.maKytRateCrvB[0];
  curve.sCcy = "EUR";
  curve.iRateCrvId = 1;
  curve.sInterpMethod = "LINEAR";
  const char* tenors[] = {"3M", "6M", "1Y", "2Y"};
  curve.maRateCrvTenor.SetSize(4);
  for (int i = 0; i < 4; ++i) {
    curve.maRateCrvTenor[i].mTivMatur.sMatur = tenors[i];
    curve.maRateCrvTenor[i].dRate = 0.030 + 0.002 * i;
  }
  model.maIrHwCalibParam.Grow();
  model.maIrHwCalibParam[0].sCcy = "EUR";
  model.maIrHwCalibParam[0].dMeanReversion = 0.03;
  model.maIrHwCalibParam[0].dVol = 0.009;

  req.mIrEffSensMcParam.bDeltaYN = true;
  req.mIrEffSensMcParam.bVegaYN = false;
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
    cf.iPeriodNo = i + 1;
    cf.dInterestRate = rate;
    cf.dCashFlowInterest = notional * rate * 0.25;
    cf.dCashFlowCapital = i + 1 == periods ? notional : 0.0;
    cf.dCashFlow = cf.dCashFlowInterest.value + cf.dCashFlowCapital.value;
    cf.dDisFactor = df;
    cf.dPv = cf.dCashFlow.value * df;
    cf.nCashflowDate = req.mIrFloater.maIrCpnSchedule[i].nCashflowDate;
    pv += cf.dPv.value;
  }
  price.dDirtyPrice = pv;
  price.dCleanPrice = pv;
  CMsg* msg = reply.ToMsg();
  if (damaged && msg) {
    // A reply whose second cash flow carries a text where its present
    // value belongs, built without the dictionary that would refuse it.
    CMsg* bad = new CMsg(msg->msgnum, 0, 0, nullptr);
    CMsg* badPrice = new CMsg(3709, 0, 0, nullptr);
    for (int i = 0; i < 2; ++i) {
      CMsg* badCf = new CMsg(3710, 0, 0, nullptr);
      badCf->SetValue(845, i == 1 ? CDbl() : CDbl(100.0));
      if (i == 1) badCf->SetValue(850, "n/a");
      badPrice->SetValue(4668, badCf);
    }
    bad->SetValue(4673, badPrice);
    delete msg;
    msg = bad;
  }
  return msg;
}

// ---- the client ----

// Prints the failure texts of a reply level by level: each level names the
// tag of the member that failed, and the innermost holds the first cause.
void PrintFailure(const M_IrNoteHwOut& reply, int rc) {
  std::printf("Load failed with %d:\n  %s\n", rc, reply.errtext.ToStr());
  for (int i = 0; i < reply.maIrNotePrice.GetSize(); ++i) {
    const M_IrNotePrice& price = reply.maIrNotePrice[i];
    if (price.errtext.IsEmpty()) continue;
    std::printf("  maIrNotePrice[%d]: %s\n", i, price.errtext.ToStr());
    for (int k = 0; k < price.maIrNoteCF.GetSize(); ++k) {
      const M_IrNoteCF& cf = price.maIrNoteCF[k];
      if (!cf.errtext.IsEmpty()) {
        std::printf("  maIrNotePrice[%d].maIrNoteCF[%d]: %s\n", i, k, cf.errtext.ToStr());
      }
    }
  }
}

bool Value(const M_IrNoteFlterHwMc& req, bool damaged) {
  std::unique_ptr<CMsg> request(const_cast<M_IrNoteFlterHwMc&>(req).ToMsg());
  if (!request) {
    std::printf("ToMsg failed: %s\n", req.errtext.ToStr());
    return false;
  }
  std::printf("The request is %d messages.\n", request->GetTreeSize());
  std::unique_ptr<CMsg> answer(StandInService(request.get(), damaged));
  if (!answer) {
    std::printf("The service gave no answer.\n");
    return false;
  }
  M_IrNoteHwOut reply;
  int rc = reply.Load(answer.get());
  if (rc < 0) {
    PrintFailure(reply, rc);
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
