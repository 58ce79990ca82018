// A client of the installed library: it fills a small request, turns it into
// a message, loads the message into a second object and checks that both
// objects dump alike. Exits with 1 on any difference.
#include <cstdio>
#include <cstring>
#include <memory>

#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "rates/M_IrNoteFlterHwMc.h"

int main() {
  M_IrNoteFlterHwMc req;
  req.mIrNotionalInfo.sCcy = "EUR";
  req.mIrNotionalInfo.dNotionAmt = 2500000.0;
  req.mIrFloater.sDayCntConv = "ACT/360";
  req.mIrFloater.maIrCpnSchedule.SetSize(2);
  req.mIrFloater.maIrCpnSchedule[0].iPeriodNo = 1;
  req.mIrFloater.maIrCpnSchedule[1].iPeriodNo = 2;
  req.mIrFloater.maIrCpnSchedule[1].nCashflowDate.Set("20270524");
  req.mIrEffSensMcParam.bDeltaYN = true;

  std::unique_ptr<CMsg> msg(req.ToMsg());
  if (!msg) {
    std::printf("ToMsg failed: %s\n", req.errtext.ToStr());
    return 1;
  }
  M_IrNoteFlterHwMc back;
  if (back.Load(msg.get()) < 0) {
    std::printf("Load failed: %s\n", back.errtext.ToStr());
    return 1;
  }

  CStream sent;
  CStream loaded;
  req.Dump(&sent);
  back.Dump(&loaded);
  if (std::strcmp(sent.ToStr(), loaded.ToStr()) != 0) {
    std::printf("the loaded object differs:\n%s\n----\n%s\n", sent.ToStr(), loaded.ToStr());
    return 1;
  }
  const M_IrCpnSchedule_Array& periods = back.mIrFloater.maIrCpnSchedule;
  if (periods.GetSize() != 2 || periods[1].iPeriodNo.value != 2 ||
      std::strcmp(periods[1].nCashflowDate.text, "20270524") != 0 ||
      back.mIrNotionalInfo.sCcy != "EUR" || back.mIrNotionalInfo.dNotionAmt.value != 2500000.0 ||
      !back.mIrEffSensMcParam.bDeltaYN.value) {
    std::printf("the loaded fields differ:\n%s\n", loaded.ToStr());
    return 1;
  }
  std::printf("package client: the request survives ToMsg and Load\n");
  return 0;
}
