// A C++ program that embeds Python and hands runtime messages to a script and
// back, in the capsules of PricemsgPython.h: a request made in C++ is read by
// the script, whose reply comes back to C++; a damaged reply made in C++
// fails the script's load with the path down to its cause.
#include <pybind11/embed.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "PricemsgPython.h"
#include "rates/M_IrNoteHwOut.h"
#include "shared/M_Tiv.h"

namespace py = pybind11;

// A reply whose price holds a message of another class where a cash flow
// belongs.
static CMsg* DamagedReply() {
  std::unique_ptr<CMsg> price(M_IrNotePrice().ToMsg());
  std::unique_ptr<CMsg> msg(new CMsg(M_IrNoteHwOut().msgnum, 0, 0, MA_GetMsgDic()));
  if (!price || price->SetValue(4668, M_IrNotePrice().ToMsg()) < 0 ||  // maIrNoteCF
      msg->SetValue(4673, price.release()) < 0) {                      // maIrNotePrice
    return nullptr;
  }
  return msg.release();
}

int main() {
  py::scoped_interpreter python;
  int failures = 0;
  auto check = [&failures](bool ok, const char* what) {
    if (!ok) std::printf("FAILED: %s\n", what);
    failures += ok ? 0 : 1;
  };
  try {
    M_Tiv tiv;
    tiv.sMatur = "3M";
    py::dict scope;
    scope["request"] = py::reinterpret_steal<py::object>(PricemsgMsgToCapsule(tiv.ToMsg()));
    scope["damaged"] = py::reinterpret_steal<py::object>(PricemsgMsgToCapsule(DamagedReply()));
    py::exec(R"(
import pricemsg
tiv = pricemsg.M_Tiv()
tiv.load(pricemsg.Msg.from_capsule(request))
assert tiv.sMatur == "3M", tiv
tiv.nDate = "20261123"
reply = tiv.to_msg().to_capsule()
try:
    pricemsg.M_IrNoteHwOut().load(pricemsg.Msg.from_capsule(damaged))
    failure = None
except pricemsg.MessageError as e:
    failure = e
)",
             scope);

    std::unique_ptr<CMsg> reply(PricemsgMsgFromCapsule(scope["reply"].ptr()));
    M_Tiv back;
    check(reply && back.Load(reply.get()) == 0, "the script's reply loads");
    check(back.nDate.isSet && std::strcmp(back.nDate.text, "20261123") == 0 &&
              std::strcmp(back.sMatur.ToStr(), "3M") == 0,
          "the script's date and the request's tenor came back");
    check(!PricemsgMsgFromCapsule(scope["reply"].ptr()) && PyErr_Occurred(),
          "a capsule is taken once");
    PyErr_Clear();
    check(!PricemsgMsgFromCapsule(scope["tiv"].ptr()), "only a capsule of a message is taken");
    PyErr_Clear();
    py::object failure = scope["failure"];
    check(!failure.is_none() &&
              std::string(py::str(failure.attr("path"))) ==
                  "M_IrNoteHwOut.maIrNotePrice[0].maIrNoteCF[0]" &&
              failure.attr("code").cast<int>() == -28,
          "the damaged reply fails to load, with the path and code of the cause");
  } catch (const std::exception& e) {
    std::printf("FAILED: %s\n", e.what());
    return 1;
  }
  return failures == 0 ? 0 : 1;
}
