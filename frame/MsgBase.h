// The bases of all message classes and of all array classes.
//
// Every M_<Name> derives from CMsgBase and has public members named after its
// fields, in tag order; every M_<Name>_Array derives from CMsgBase_Array and
// owns a growable sequence of M_<Name> on the heap. Failures are told by a
// negative result or a null pointer, with the text in the `errtext` of the
// failing object; `errtext` keeps the text of the last failure, and
// `errcode` says whether the last Load or ToMsg failed and with what code.
//
// Dates: a date is the text that its CDate holds, of up to 8 characters, in
// the runtime's format; the classes carry it as it is and judge nothing.
// Load takes what GetValue gives, Copy gives the copy the same text (through
// CDate::Set, which fills the text) and the same flag, so that a copy equals
// its original, Dump prints the text, and message files write it and read it
// back unchanged. Whether a text is a day of the calendar is the runtime's
// to say when the date is sent: a runtime that refuses it in SetValue makes
// ToMsg fail with SET_VAL_ONE at that field, and a message file that holds it
// fail to read at that value, with the runtime's code.
//
// Texts: a CString whose text holds a NUL byte cannot travel, since the
// runtime takes texts up to their first NUL: ToMsg refuses it at that field
// (SET_VAL_ONE, errcode MSG_E_TEXT) rather than send it cut short.
//
// Threads: an object, with everything it holds, belongs to one thread at a
// time; objects of any classes may be used in as many threads at once as
// there are objects. No call changes anything shared between objects. Load
// only reads the runtime message it is given, so several threads may load
// from one message at once where the runtime makes reads of a message safe
// (the stand-in does).
#pragma once

#include "Runtime.h"

// Marks the classes that libpricemsg exports; all else in it stays internal.
#define PRICEMSG_EXPORT __attribute__((visibility("default")))

class PRICEMSG_EXPORT CMsgBase {
 public:
  int msgnum;
  CString msgname;
  CString errtext;
  // The code of the failure of the last Load or ToMsg, 0 if it succeeded (or
  // none has run yet); a Load with a null message leaves it as it was. Where
  // a call of the runtime failed at this level, its result: GetValue's
  // (GET_VAL_ONE) or SetValue's (SET_VAL_ONE); MSG_E_TEXT for a string
  // whose text holds a NUL byte (SET_VAL_ONE, with no call of the runtime).
  // Where a member failed, the member's code, so that each level holds the
  // code of the first cause: the result of its Load (GET_SUB_ONE, GET_SUB_ARR), its errcode for a
  // sub-message whose ToMsg gave null (SET_SUB_ONE, SET_SUB_ARR), or -11
  // for an element that a failed SetSize never made. -28 for a message of
  // another number, -11 when no message could be made ("Out of memory").
  // errtext keeps its last text through later successes; errcode does not.
  int errcode;

  CMsgBase() : msgnum(0), errcode(0) {}
  virtual ~CMsgBase();

  // Fills the fields from a message of this class's number; what the message
  // lacks stays as it was. 0 on success, negative on failure; -12 for a null
  // `msg`, with every field and `errtext` left as they were.
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

// The elements of an array are its leading `size` slots. Two calls leave
// `size` above the elements that exist, as the pattern has it: SetSize with a
// negative size (no element, `size` that number), and a SetSize that runs out
// of memory (`size` the number asked for, the elements made before the
// failure, and none from there on; none at all if the slot array itself could
// not be had). On such an array:
//  - GetAt and ToMsg give null for an index without an element, `operator[]`
//    throws (code -11 in range, -27 out of range, see there);
//  - Dump prints the elements that exist, and Copy from it copies them:
//    the copy's size is their number;
//  - Grow first brings `size` down to the elements that exist and grows from
//    there, so that with no slot array it starts from empty (capacity 4,
//    size 1);
//  - a holder's ToMsg fails at the first missing element (SET_SUB_ARR);
//  - RemoveAll, SetSize, Load and the destructor delete what exists.
// No operation reads or writes outside the slot array, and no loop goes past
// the elements that exist, whatever `size` says.
class PRICEMSG_EXPORT CMsgBase_Array {
 public:
  CString msgname;
  CString errtext;

  CMsgBase_Array() = default;
  virtual ~CMsgBase_Array() = 0;

  // Deletes every element and leaves the array empty (size and capacity 0).
  virtual void RemoveAll() = 0;
  // Replaces the content by one element for each message of `arr` (none if
  // the runtime's count is negative). 0 on success; -12 for a null `arr`;
  // else the first failing result.
  virtual int Load(CMsgArray* arr) = 0;
  // The message of one element; null for an index out of range or failure.
  virtual CMsg* ToMsg(int index) = 0;
  // Replaces the content by `size` new elements, with capacity and size set to
  // `size`; allocates nothing for 0 or less. The size, or -11 ("%s : Out of
  // memory" with msgname), also when `size` slots cannot be counted in one
  // allocation.
  virtual int SetSize(int size) = 0;
  // Appends one new element. The new size, or -11 with the array as it was
  // (capacity may have grown). Capacity runs 4, 8, ..., 40, 45, 50, 56, ...:
  // it rises by an eighth of the size, at least 4 and at most 1024, and stops
  // at the largest int (or the most slots one allocation can hold), where
  // Grow gives -11.
  virtual int Grow() = 0;
  virtual int GetSize() const = 0;
  // The element at `index`, still owned by the array; null out of range or
  // where no element exists.
  virtual CMsgBase* GetAt(int index) const = 0;
  // The element at `index`. Throws CException with code -27 and "<class>::[]
  // out of index (0 <= i < size)" out of range, and with code -11 and
  // "<class>::[] element i of size was never made (out of memory)" for an
  // index in range whose element a failed SetSize did not make.
  virtual CMsgBase& operator[](int index) const = 0;
  // Appends each element that exists as text, headed by the array's name and
  // index.
  virtual void Dump(CStream* out) const = 0;

  CMsgBase_Array(const CMsgBase_Array&) = delete;
  CMsgBase_Array& operator=(const CMsgBase_Array&) = delete;
};

// Result codes of the message and array classes. Codes below -1 that are not
// listed here come from the runtime and are passed on unchanged.
enum MsgResult {
  MSG_OK = 0,
  MSG_E_NOMEM = -11,    // Grow, SetSize: "%s : Out of memory"; operator[]: no element
  MSG_E_NULL = -12,     // Load with a null CMsg or CMsgArray
  MSG_E_NULLARR = -12,  // the same, by its older name
  MSG_E_INDEX = -27,    // array operator[]: the code of the CException
  MSG_E_MSGNUM = -28,   // Load: "invalid input message of service(%d,%d)"
  MSG_E_TEXT = -29,     // ToMsg: a text with a NUL byte, which would arrive cut short
};
