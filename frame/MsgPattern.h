// The two patterns that every message class and every array class follows,
// written once. Generated units include this header and nothing else of the
// frame. A class lists its fields once, in one function that hands each
// member to an operation:
//
//   bool Fields(pd::FieldOp& op, CMsgBase& self) {
//     auto& m = static_cast<M_SysReject&>(self);
//     return op(6, "iSysCode", m.iSysCode) &&
//            op(7, "sSysReasonText", m.sSysReasonText) && ...;
//   }
//
// and Load, ToMsg, Dump and Copy each run that one function with an operation
// of their own (MsgBase.cpp), which turns every field into one call of a
// helper for the field's kind. The first field that fails ends the walk.
#pragma once

#include "MsgBase.h"

namespace pricemsg::detail {

// Copies a sub-message or an array member with the Copy of its own class.
using CopyMsgFn = void (*)(CMsgBase& dst, const CMsgBase& src);
using CopyArrayFn = void (*)(CMsgBase_Array& dst, const CMsgBase_Array& src);

template <class M>
void CopyMsgAs(CMsgBase& dst, const CMsgBase& src) {
  static_cast<M&>(dst).Copy(static_cast<const M&>(src));
}
template <class A>
void CopyArrayAs(CMsgBase_Array& dst, const CMsgBase_Array& src) {
  static_cast<A&>(dst).Copy(static_cast<const A&>(src));
}

// One operation over the fields of an object, called for each field in tag
// order with the field's tag, name and member. A false result ends the walk.
class FieldOp {
 public:
  virtual bool operator()(int tag, const char* name, CInt& v) = 0;
  virtual bool operator()(int tag, const char* name, CDbl& v) = 0;
  virtual bool operator()(int tag, const char* name, CBool& v) = 0;
  virtual bool operator()(int tag, const char* name, CDate& v) = 0;
  virtual bool operator()(int tag, const char* name, CString& v) = 0;
  virtual bool operator()(int tag, const char* name, CIntArray& v) = 0;
  virtual bool operator()(int tag, const char* name, CDblArray& v) = 0;
  virtual bool Message(int tag, const char* name, CMsgBase& v, CopyMsgFn copy) = 0;
  virtual bool Array(int tag, const char* name, CMsgBase_Array& v, CopyArrayFn copy) = 0;

  // Sub-messages and arrays come with the Copy of their class; the overload
  // that takes the member's base picks the kind.
  template <class M>
  bool operator()(int tag, const char* name, M& v) {
    return Held(tag, name, v, v);
  }

 protected:
  ~FieldOp() = default;

 private:
  template <class M>
  bool Held(int tag, const char* name, CMsgBase& v, M&) {
    return Message(tag, name, v, &CopyMsgAs<M>);
  }
  template <class A>
  bool Held(int tag, const char* name, CMsgBase_Array& v, A&) {
    return Array(tag, name, v, &CopyArrayAs<A>);
  }
};

// The field list of a class.
using Fields = bool (*)(FieldOp& op, CMsgBase& self);

// ---- the message pattern (MsgBase.cpp) ----

int Load(CMsgBase& self, CMsg* msg, Fields fields);
CMsg* ToMsg(CMsgBase& self, Fields fields);
void Dump(const CMsgBase& self, CStream* out, Fields fields);
// `src` is an object of the class of `self`.
void Copy(CMsgBase& self, const CMsgBase& src, Fields fields);

// ---- the array pattern ----
//
// What needs the element class (making an element, the typed slots) stays in
// the small templates below; the rest goes through the virtual interface of
// CMsgBase_Array in MsgBase.cpp.

int OutOfMemory(CMsgBase_Array& self);
int GrowthStep(int size);
int LoadArray(CMsgBase_Array& self, CMsgArray* arr);
CMsg* ElementToMsg(CMsgBase_Array& self, int index);
void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className);
void CopyArray(CMsgBase_Array& self, const CMsgBase_Array& src, CopyMsgFn copy);
[[noreturn]] void ThrowOutOfIndex(const char* className, int index, int size);
// Deletes the elements that GetAt gives.
void DeleteElements(CMsgBase_Array& self);
// A slot array of `n` null slots; null when memory runs out.
void* NewSlots(int n) noexcept;
// A slot array of `n` slots with the first `size` taken from `old`, which is
// freed; null (and `old` kept) when memory runs out.
void* MoveSlots(void* old, int size, int n) noexcept;
void DeleteSlots(void* slots) noexcept;

template <class E>
E* NewElement() noexcept {
  try {
    return new E;
  } catch (...) {
    return nullptr;
  }
}

// The element class of an array class: what its slots point to.
template <class T>
struct Pointee;
template <class T>
struct Pointee<T*> {
  using Type = T;
};
template <class A>
using ElementOf = typename Pointee<typename Pointee<decltype(A::items)>::Type>::Type;

template <class A>
void RemoveAll(A& a) {
  if (!a.items) return;
  DeleteElements(a);
  DeleteSlots(a.items);
  a.items = nullptr;
  a.size = 0;
  a.capacity = 0;
}

template <class A>
int Grow(A& a) {
  if (a.capacity <= a.size) {
    int step = GrowthStep(a.size);
    void* slots = MoveSlots(a.items, a.size, a.capacity + step);
    if (!slots) return OutOfMemory(a);
    a.items = static_cast<ElementOf<A>**>(slots);
    a.capacity += step;
  }
  if (!(a.items[a.size] = NewElement<ElementOf<A>>())) return OutOfMemory(a);
  return ++a.size;
}

template <class A>
int SetSize(A& a, int size) {
  a.RemoveAll();
  a.capacity = size;
  a.size = size;
  if (size <= 0) return a.size;
  a.items = static_cast<ElementOf<A>**>(NewSlots(size));
  if (!a.items) return OutOfMemory(a);
  for (int i = 0; i < size; ++i) {
    if (!(a.items[i] = NewElement<ElementOf<A>>())) return OutOfMemory(a);
  }
  return a.size;
}

// After a failed SetSize the slots from the failure on are null, and with
// them the slot array itself may be: such an element is no element.
template <class A>
auto GetAt(const A& a, int index) {
  return index >= 0 && index < a.size && a.items ? a.items[index] : nullptr;
}

template <class A>
auto& At(const A& a, int index, const char* className) {
  auto* element = GetAt(a, index);
  if (!element) ThrowOutOfIndex(className, index, a.size);
  return *element;
}

}  // namespace pricemsg::detail
