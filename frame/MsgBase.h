// The bases of all message classes and of all array classes.
//
// Every M_<Name> derives from CMsgBase and has public members named after its
// fields, in tag order; every M_<Name>_Array derives from CMsgBase_Array and
// owns a growable sequence of M_<Name> on the heap. Failures are told by a
// negative result or a null pointer, with the text in the `errtext` of the
// failing object; `errtext` keeps the text of the last failure.
#pragma once

#include "Runtime.h"

// Marks the classes that libpricemsg exports; all else in it stays internal.
#define PRICEMSG_EXPORT __attribute__((visibility("default")))

class PRICEMSG_EXPORT CMsgBase {
 public:
  int msgnum;
  CString msgname;
  CString errtext;

  CMsgBase() : msgnum(0) {}
  virtual ~CMsgBase();

  // Fills the fields from a message of this class's number; what the message
  // lacks stays as it was. 0 on success, negative on failure.
  virtual int Load(CMsg* msg) = 0;
  // A new message with every field, set or not; the caller owns it. Null on
  // failure.
  virtual CMsg* ToMsg() = 0;
  // Appends the object as text.
  virtual void Dump(CStream* out) const = 0;

  // Objects are copied field by field with the Copy of their class, which
  // leaves msgnum, msgname and errtext alone.
  CMsgBase(const CMsgBase&) = delete;
  CMsgBase& operator=(const CMsgBase&) = delete;
};

class PRICEMSG_EXPORT CMsgBase_Array {
 public:
  CString msgname;
  CString errtext;

  CMsgBase_Array() = default;
  virtual ~CMsgBase_Array() = 0;

  // Deletes every element.
  virtual void RemoveAll() = 0;
  // Replaces the content by one element for each message of `arr`.
  // 0 on success; -12 for a null `arr`; else the first failing result.
  virtual int Load(CMsgArray* arr) = 0;
  // The message of one element; null for an index out of range or failure.
  virtual CMsg* ToMsg(int index) = 0;
  // Replaces the content by `size` new elements. The size, or -11.
  virtual int SetSize(int size) = 0;
  // Appends one new element. The new size, or -11.
  virtual int Grow() = 0;
  virtual int GetSize() const = 0;
  // The element at `index`, still owned by the array; null out of range.
  virtual CMsgBase* GetAt(int index) const = 0;
  // The element at `index`; throws CException with code -27 out of range.
  virtual CMsgBase& operator[](int index) const = 0;
  // Appends each element as text, headed by the array's name and index.
  virtual void Dump(CStream* out) const = 0;

  CMsgBase_Array(const CMsgBase_Array&) = delete;
  CMsgBase_Array& operator=(const CMsgBase_Array&) = delete;
};

// Result codes of the message and array classes. Codes below -1 that are not
// listed here come from the runtime and are passed on unchanged.
enum MsgResult {
  MSG_OK = 0,
  MSG_E_NOMEM = -11,    // Grow, SetSize: "%s : Out of memory"
  MSG_E_NULLARR = -12,  // array Load with a null CMsgArray
  MSG_E_INDEX = -27,    // array operator[]: the code of the CException
  MSG_E_MSGNUM = -28,   // Load: "invalid input message of service(%d,%d)"
};
