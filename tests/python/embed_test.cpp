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

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    std::printf("FAILED: %s\n", what);
    ++failures;
  }
}

// A reply whose price holds a message of another class where a cash flow
// belongs.
CMsg* DamagedReply() {
  M_IrNoteHwOut reply;
  M_IrNotePrice price;
  std::unique_ptr<CMsg> priceMsg(price.ToMsg());
  std::unique_ptr<CMsg> msg(new CMsg(reply.msgnum, 0, 0, MA_GetMsgDic()));
  if (!priceMsg || priceMsg->SetValue(4668, M_IrNotePrice().ToMsg()) < 0 ||  // maIrNoteCF
      msg->SetValue(4673, priceMsg.release()) < 0) {                         // maIrNotePrice
    return nullptr;
  }
  return msg.release();
}

}  // namespace

int main() {
  py::scoped_interpreter python;
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
    Check(reply && back.Load(reply.get()) == 0, "the script's reply loads");
    Check(std::strcmp(back.nDate.text, "20261123") == 0 && back.nDate.isSet,
          "the script's date came back");
    Check(std::strcmp(back.sMatur.ToStr(), "3M") == 0, "the request's tenor came back");
    Check(!PricemsgMsgFromCapsule(scope["reply"].ptr()) && PyErr_Occurred(),
          "a capsule is taken once");
    PyErr_Clear();
    Check(!PricemsgMsgFromCapsule(scope["tiv"].ptr()), "only a capsule of a message is taken");
    PyErr_Clear();

    py::object failure = scope["failure"];
    Check(!failure.is_none(), "the damaged reply fails to load");
    if (!failure.is_none()) {
      const std::string path = py::str(failure.attr("path"));
      std::printf("damaged reply: code %d, path %s\n%s\n", failure.attr("code").cast<int>(),
                  path.c_str(), std::string(py::str(failure)).c_str());
      Check(path == "M_IrNoteHwOut.maIrNotePrice[0].maIrNoteCF[0]", "the path to the cause");
      Check(failure.attr("code").cast<int>() == -28, "the code of the cause");
    }
  } catch (const std::exception& e) {
    std::printf("FAILED: %s\n", e.what());
    return 1;
  }
  return failures == 0 ? 0 : 1;
}
