// The message classes on the altkyt runtime: a round trip of requests with
// every field kind, the dump with this runtime's texts, and the runtime's own
// failure codes passed through Load unchanged.
#include <cstdio>
#include <cstring>
#include <string>

#include "MsgBase.h"
#include "altkyt/Error.h"
#include "equity/M_OptLadder.h"
#include "rates/M_IrCancelable.h"
#include "shared/M_KytVolSurface.h"
#include "shared/M_SysReject.h"

namespace {

int failures = 0;

#define CHECK(cond)                                                          \
  do {                                                                       \
    if (!(cond)) {                                                           \
      std::fprintf(stderr, "%s:%d: CHECK(%s)\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                            \
    }                                                                        \
  } while (0)

std::string Dumped(const CMsgBase& m) {
  CStream out;
  m.Dump(&out);
  return std::string(out.Collected(), out.Length());
}

bool Same(const CString& s, const char* text) { return std::strcmp(s.ToStr(), text) == 0; }

CMsg* NewMsg(int num) { return new CMsg(num, 0, 0, MA_GetMsgDic()); }

// A surface with one element, through ToMsg and Load into a new object: the
// dump of the copy shows this runtime's text for the empty strings.
void VolSurface() {
  M_KytVolSurface in;
  in.iVolCrvId.value = 7;
  in.iVolCrvId.isSet = 1;
  CHECK(in.maKytVolSfcElmt.Grow() == 1);
  in.maKytVolSfcElmt[0].dVol.value = 0.25;
  in.maKytVolSfcElmt[0].dVol.isSet = 1;
  CMsg* msg = in.ToMsg();
  CHECK(msg != nullptr);
  if (!msg) return;
  M_KytVolSurface out;
  CHECK(out.Load(msg) == 0);
  const char* expected =
      "\n            <msgnum> : 1264"
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
      "\n           sDateType : [{empty}]"
      "\n              sMatur : [{empty}]"
      "\n--------------------------------------"
      "\n             dStrike : [<CDbl: unset>]"
      "\n--------------------------------------"
      "\n--------------------------------------";
  CHECK(Dumped(out) == expected);
  CHECK(Dumped(in) == expected);

  // Three elements come back in order; an element of another number fails
  // the whole Load with -28, each level with its own text.
  for (int i = 1; i < 3; ++i) {
    in.maKytVolSfcElmt.Grow();
    in.maKytVolSfcElmt[i].dVol.value = i;
    in.maKytVolSfcElmt[i].dVol.isSet = 1;
  }
  CMsg* three = in.ToMsg();
  CHECK(out.Load(three) == 0 && out.maKytVolSfcElmt.GetSize() == 3);
  CHECK(out.maKytVolSfcElmt[2].dVol.value == 2.0);
  delete three;
  CHECK(msg->SetValue(1456, NewMsg(1239)) >= 0);
  CHECK(out.Load(msg) == MSG_E_MSGNUM);
  CHECK(Same(out.errtext, "M_KytVolSurface:GET_SUB_ARR(M1264.T1456) fail"));
  CHECK(Same(out.maKytVolSfcElmt[1].errtext, "invalid input message of service(1239,1265)"));
  delete msg;

  // A sub-message tag that holds a value of another kind counts as absent.
  CMsg* elmt = NewMsg(1265);
  elmt->SetValue(695, 5);
  M_KytVolSurfaceElmt e;
  e.mTivMatur.sMatur = "1Y";
  CHECK(e.Load(elmt) == 0 && Same(e.mTivMatur.sMatur, "1Y") && e.errtext.IsEmpty());
  delete elmt;
}

void SysReject() {
  M_SysReject in;
  in.iSysCode.value = 3;
  in.iSysCode.isSet = 1;
  in.sSysReasonText = "bad tag";
  CMsg* msg = in.ToMsg();
  CHECK(msg && msg->msgnum == 10);
  if (!msg) return;
  // Every field is written, set or not.
  CInt ref;
  ref.isSet = 1;
  CHECK(msg->GetValue(8, &ref) >= 0 && !ref.isSet);
  M_SysReject out;
  CHECK(out.Load(msg) == 0 && out.iSysCode.value == 3 && Same(out.sSysReasonText, "bad tag"));
  CHECK(Dumped(out) ==
        "\n            <msgnum> : 10"
        "\n           <msgname> : M_SysReject"
        "\n            iSysCode : [3]"
        "\n      sSysReasonText : [bad tag]"
        "\n        iSysRefMsgNo : [<CInt: unset>]"
        "\n--------------------------------------");
  delete msg;

  CMsg* other = NewMsg(1239);
  CHECK(out.Load(other) == MSG_E_MSGNUM);
  CHECK(Same(out.errtext, "invalid input message of service(1239,10)"));
  delete other;

  // An empty message loads; the runtime's own codes come back unchanged.
  CMsg* empty = NewMsg(10);
  CHECK(out.Load(empty) == 0);
  delete empty;
  CMsg* wrongKind = NewMsg(10);
  wrongKind->SetValue(6, CInt());
  wrongKind->SetValue(7, 5);
  out.iSysRefMsgNo.value = 44;
  CHECK(out.Load(wrongKind) == altkyt::kKindMismatch);
  CHECK(Same(out.errtext, "M_SysReject:GET_VAL_ONE(M0010.T7) fail"));
  CHECK(out.iSysRefMsgNo.value == 44);
  delete wrongKind;

  M_SysReject_Array arr;
  arr.SetSize(2);
  int code = 0;
  std::string text;
  try {
    arr[5];
  } catch (const CException& e) {
    code = e.Result();
    text = e.Reason();
  }
  CHECK(code == MSG_E_INDEX && text == "M_SysReject_Array::[] out of index (0 <= 5 < 2)");
}

// Integer and double arrays travel as repeated values and print with this
// runtime's list form, empty ones included.
void Lists() {
  M_IrCancelable in;
  M_IrCancelable out;
  CMsg* msg = in.ToMsg();
  CHECK(msg && out.Load(msg) == 0 && out.iaAppPeriodNo.size == 0);
  delete msg;
  msg = NewMsg(3680);
  for (int v : {1, 2, 3}) msg->SetValue(5146, v);
  CHECK(out.Load(msg) == 0 && out.iaAppPeriodNo.size == 3);
  delete msg;
  msg = out.ToMsg();
  CHECK(msg && in.Load(msg) == 0 && in.iaAppPeriodNo.size == 3 && in.iaAppPeriodNo.GetAt(2) == 3);
  delete msg;
  CHECK(Dumped(in).find("\n       iaAppPeriodNo : [#3{1, 2, 3}]") != std::string::npos);

  M_OptLadder ladder;
  CHECK(Dumped(ladder).find("\n        daRungPrices : [#0{}]") != std::string::npos);
  CHECK(Dumped(ladder).find("\n         sLadderType : [{empty}]") != std::string::npos);
  msg = NewMsg(3443);
  msg->SetValue(941, 0.5);
  msg->SetValue(941, -1.25);
  CHECK(ladder.Load(msg) == 0);
  CHECK(Dumped(ladder).find("[#2{5.000000000000000e-01, -1.250000000000000e+00}]") !=
        std::string::npos);
  delete msg;
}

// A value the runtime refuses ends ToMsg at every level with the level's own
// text, and whatever was built on the way is freed (the sanitizer build
// checks that nothing leaks or is freed twice).
void Refused() {
  M_KytVolSurface surface;
  surface.maKytVolSfcElmt.SetSize(2);
  // A date text with no terminator inside its nine bytes.
  CDate& date = surface.maKytVolSfcElmt[1].mTivMatur.nDate;
  std::memset(date.text, '9', sizeof date.text);
  date.isSet = 1;
  CHECK(surface.ToMsg() == nullptr);
  CHECK(Same(surface.errtext, "M_KytVolSurface:SET_SUB_ARR(M1264.T1456) fail"));
  M_KytVolSurfaceElmt& elmt = surface.maKytVolSfcElmt[1];
  CHECK(Same(elmt.errtext, "M_KytVolSurfaceElmt:SET_SUB_ONE(M1265.T695) fail"));
  CHECK(Same(elmt.mTivMatur.errtext, "M_Tiv:SET_VAL_ONE(M2143.T198) fail"));
  CHECK(surface.maKytVolSfcElmt[0].errtext.IsEmpty());
}

}  // namespace

int main() {
  VolSurface();
  SysReject();
  Lists();
  Refused();
  if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
  return failures ? 1 : 0;
}
