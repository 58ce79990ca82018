// A client of the installed library, written against the runtime's
// documented calls alone so that it builds on whichever runtime the package
// was built on: it fills a small request, turns it into a message, loads the
// message into a second object, and checks the fields and the text form of
// both messages. Exits with 1 on any difference. Its own headers (made by its
// CMakeLists.txt) come first on the include path and have the names of the
// library's: the library's headers must reach each other all the same.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <pricemsg/MsgText.h>
#include <pricemsg/rates/M_IrNoteFlterHwMc.h>
#include <pricemsg/version.h>

static_assert(PRICEMSG_VERSION == PRICEMSG_VERSION_MAJOR * 10000 + PRICEMSG_VERSION_MINOR * 100 +
                                      PRICEMSG_VERSION_PATCH,
              "the version's parts and its number disagree");

namespace {

std::string TextOf(CMsg* msg) {
  std::string text;
  MsgTextError err{};
  if (MA_WriteMsgText(msg, &text, &err) < 0) std::printf("no text form: %s\n", err.reason);
  return text;
}

}  // namespace

int main() {
#ifdef EXPECTED_VERSION
  if (std::strcmp(PRICEMSG_VERSION_STRING, EXPECTED_VERSION) != 0) {
    std::printf("version.h says %s, the package %s\n", PRICEMSG_VERSION_STRING, EXPECTED_VERSION);
    return 1;
  }
#endif
  M_IrNoteFlterHwMc req;
  req.mIrNotionalInfo.sCcy = "EUR";
  req.mIrNotionalInfo.dNotionAmt.value = 2500000.0;
  req.mIrNotionalInfo.dNotionAmt.isSet = true;
  req.mIrFloater.maIrCpnSchedule.SetSize(2);
  req.mIrFloater.maIrCpnSchedule[1].nCashflowDate.Set("20270524");

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
  std::unique_ptr<CMsg> again(back.ToMsg());
  const std::string sent = TextOf(msg.get());
  if (!again || sent.empty() || TextOf(again.get()) != sent) {
    std::printf("the loaded object writes another message:\n%s\n", sent.c_str());
    return 1;
  }
  const M_IrCpnSchedule_Array& periods = back.mIrFloater.maIrCpnSchedule;
  if (periods.GetSize() != 2 || std::strcmp(periods[1].nCashflowDate.text, "20270524") != 0 ||
      back.mIrNotionalInfo.dNotionAmt.value != 2500000.0) {
    std::printf("the loaded fields differ:\n%s\n", sent.c_str());
    return 1;
  }
  std::printf("package client: the request survives ToMsg and Load\n");
  return 0;
}
