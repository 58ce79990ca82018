// Runtime messages between C++ and Python, for a C++ program that embeds
// Python and uses the pricemsg module.
//
// A message crosses as a capsule named "pricemsg.CMsg" that owns it:
//
//   // C++ to Python: the capsule owns the message until Python takes it
//   PyObject* capsule = PricemsgMsgToCapsule(request.ToMsg());
//   // in Python: msg = pricemsg.Msg.from_capsule(capsule)
//
//   // Python to C++: capsule = msg.to_capsule() hands the message over
//   std::unique_ptr<CMsg> reply(PricemsgMsgFromCapsule(capsule));
//
// Whoever takes the message out renames the capsule "pricemsg.CMsg.taken",
// so that it is taken once; a capsule that nobody took frees its message
// when it goes.
#pragma once

#include <Python.h>

#include <cstring>

#include "Runtime.h"

inline constexpr char kPricemsgCapsuleName[] = "pricemsg.CMsg";
inline constexpr char kPricemsgCapsuleTaken[] = "pricemsg.CMsg.taken";

inline void PricemsgFreeCapsuleMsg(PyObject* capsule) {
  const char* name = PyCapsule_GetName(capsule);
  if (name && std::strcmp(name, kPricemsgCapsuleName) == 0) {
    delete static_cast<CMsg*>(PyCapsule_GetPointer(capsule, kPricemsgCapsuleName));
  }
  PyErr_Clear();
}

// A new capsule that owns `msg`; null with a Python error set for a null
// `msg` or when memory runs out (then `msg` is freed).
inline PyObject* PricemsgMsgToCapsule(CMsg* msg) {
  if (!msg) {
    PyErr_SetString(PyExc_ValueError, "no message to hand over");
    return nullptr;
  }
  PyObject* capsule = PyCapsule_New(msg, kPricemsgCapsuleName, PricemsgFreeCapsuleMsg);
  if (!capsule) delete msg;
  return capsule;
}

// Takes the message out of a capsule of Msg.to_capsule() or of
// PricemsgMsgToCapsule(); the caller owns it. Null with a Python error set
// for another object or a capsule already taken.
inline CMsg* PricemsgMsgFromCapsule(PyObject* capsule) {
  if (!PyCapsule_IsValid(capsule, kPricemsgCapsuleName)) {
    PyErr_SetString(PyExc_ValueError,
                    "not a capsule of a runtime message, or one whose message was taken");
    return nullptr;
  }
  CMsg* msg = static_cast<CMsg*>(PyCapsule_GetPointer(capsule, kPricemsgCapsuleName));
  if (!msg || PyCapsule_SetName(capsule, kPricemsgCapsuleTaken) != 0) return nullptr;
  return msg;
}
