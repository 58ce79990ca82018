// The two patterns that every message class and every array class follows,
// written once. Generated units include this header and nothing else of the
// frame. A class lists its fields once, in one function, its walk, that
// hands each member, with the same member of a second object of the class,
// to an operation:
//
//   bool Walk_M_EqStd(FieldOp& op, CMsgBase& self, const CMsgBase& other) {
//     auto& m = static_cast<M_EqStd&>(self);
//     auto& o = static_cast<const M_EqStd&>(other);
//     return op(4479, "mOptStd", m.mOptStd, o.mOptStd, Walk_M_OptStd) && ...;
//   }
//
// Load, ToMsg, Dump and Copy each run that one function with an operation
// of their own (MsgBase.cpp), which turns every field into one call of a
// helper for the field's kind; so do the reflection's visits, lookups and
// comparisons (Reflect.cpp). The first field that fails ends the walk. An
// operation on one object is given it twice; Copy, Equal and Diff give the
// walk two objects, and nothing computes where a member lies.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#include "MsgBase.h"

namespace pricemsg::detail {

class FieldOp;
class TextSink;

// The walk of a class: `self` and `other` are objects of that class.
using Walk = bool (*)(FieldOp& op, CMsgBase& self, const CMsgBase& other);

// One operation over the fields of an object, called for each field in tag
// order with the field's tag, name and member, and the same member of the
// other object; a held message or array comes with the walk of its class. A
// false result ends the walk.
class FieldOp {
 public:
  virtual bool operator()(int tag, const char* name, CInt& v, const CInt& other) = 0;
  virtual bool operator()(int tag, const char* name, CDbl& v, const CDbl& other) = 0;
  virtual bool operator()(int tag, const char* name, CBool& v, const CBool& other) = 0;
  virtual bool operator()(int tag, const char* name, CDate& v, const CDate& other) = 0;
  virtual bool operator()(int tag, const char* name, CString& v, const CString& other) = 0;
  virtual bool operator()(int tag, const char* name, CIntArray& v, const CIntArray& other) = 0;
  virtual bool operator()(int tag, const char* name, CDblArray& v, const CDblArray& other) = 0;
  virtual bool operator()(int tag, const char* name, CMsgBase& v, const CMsgBase& other,
                          Walk walk) = 0;
  virtual bool operator()(int tag, const char* name, CMsgBase_Array& v, const CMsgBase_Array& other,
                          Walk walk) = 0;

 protected:
  ~FieldOp() = default;
};

// What the schema tables hold of each class beyond its description: its
// walk, how to make an object of it (null when memory runs out) and an
// array of it (which may throw), and its type, against which an object's
// msgnum is checked.
struct ClassOps {
  Walk walk;
  CMsgBase* (*make)() noexcept;
  CMsgBase_Array* (*makeArray)();
  const std::type_info* type;
};

template <class M>
CMsgBase* MakeMessage() noexcept {
  try {
    return new M;
  } catch (...) {
    return nullptr;
  }
}

template <class A>
CMsgBase_Array* MakeArray() {
  return new A;
}

template <class M, class A>
constexpr ClassOps OpsOf(Walk walk) {
  return {walk, &MakeMessage<M>, &MakeArray<A>, &typeid(M)};
}

// ---- the message pattern (MsgBase.cpp) ----

int Load(CMsgBase& self, CMsg* msg, Walk walk);
CMsg* ToMsg(CMsgBase& self, Walk walk);
void Dump(const CMsgBase& self, CStream* out, Walk walk) noexcept;
// The lines of `obj` and of what it holds, into `sink`; `walk` is the walk of
// its class. Throws when the stream or the runtime fails.
void DumpObject(TextSink& sink, const CMsgBase& obj, Walk walk);
// `src` is an object of the class of `self`.
void Copy(CMsgBase& self, const CMsgBase& src, Walk walk);

// ---- the array pattern (MsgArray.cpp) ----
//
// What needs the element class (making an element, the typed slots) stays in
// the small templates below; the rest goes through the virtual interface of
// CMsgBase_Array in MsgArray.cpp.
//
// The slot array. `items` points at slot 0 of a block from operator new that
// has a small header in front of the slots: the number of slots the block has
// room for. No slot at or past that room is ever read or written, and while
// `items` is not null, size <= capacity <= room. SetSize allocates exactly
// the slots it asks for. Grow keeps `capacity` on its documented sequence
// (NextCapacity), but when it needs a new block it gives it room for an
// eighth more than the size as well: past 8,192 elements, where capacity
// rises by only 1,024 at a time, most rises then find their slots already
// there, and copying slots costs time in proportion to the elements.
//
// The elements that exist are the leading non-null slots below `size`. In a
// sound array that is every slot below `size`. A failed SetSize(n) leaves
// `size` n with null slots from the failure on, or with no slot array at all;
// SetSize with a negative n leaves `size` n and no slot array. Every loop
// over elements stops at the first slot without one, and Grow first brings
// `size` down to the elements that exist (to none without a slot array).

int OutOfMemory(CMsgBase_Array& self);

// The most slots a slot array can have: what an int counts, and what one
// allocation can hold behind the header.
constexpr int kMaxSlots =
    (SIZE_MAX - sizeof(std::size_t)) / sizeof(void*) < static_cast<std::size_t>(INT_MAX)
        ? static_cast<int>((SIZE_MAX - sizeof(std::size_t)) / sizeof(void*))
        : INT_MAX;

// How much Grow raises the capacity of a full array of `size` elements: an
// eighth of the size, at least 4 and at most 1,024.
constexpr int GrowthStep(int size) {
  int step = size / 8;
  return step < 4 ? 4 : step > 1024 ? 1024 : step;
}

// The capacity that Grow gives a full array of `size` elements (capacity
// equals size then): size and its step, stopping at kMaxSlots. 0 when `size`
// is kMaxSlots already and the array cannot grow.
constexpr int NextCapacity(int size) {
  if (size < 0) size = 0;
  if (size >= kMaxSlots) return 0;
  return size > kMaxSlots - GrowthStep(size) ? kMaxSlots : size + GrowthStep(size);
}

int LoadArray(CMsgBase_Array& self, CMsgArray* arr);
CMsg* ElementToMsg(CMsgBase_Array& self, int index);
// `walk` is the walk of the element class.
void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className, Walk walk) noexcept;
// `walk` is the walk of the element class.
void CopyArray(CMsgBase_Array& self, const CMsgBase_Array& src, Walk walk);
// For `operator[]` with an index whose slot holds no element: out of range
// (code -27), or in range after a failed SetSize (code -11).
[[noreturn]] void ThrowNoElement(const char* className, int index, int size);
// Deletes the elements that exist.
void DeleteElements(CMsgBase_Array& self);
// A slot array with room for `n` slots, all null; null when memory runs out
// or `n` is not between 1 and kMaxSlots.
void* NewSlots(int n) noexcept;
// Room for one more element in a full array of `size` elements (`slots` may
// be null for none): raises `capacity` to NextCapacity(size) and gives the
// slot array to use, the same one if its room suffices, else a larger one
// with the elements' slots moved over and the old one freed. Null, with
// nothing changed, when memory runs out or the array cannot grow.
void* Enlarge(void* slots, int size, int& capacity) noexcept;
void DeleteSlots(void* slots) noexcept;

// A new element, or null when memory runs out: the same function as the
// class's entry in the tables makes it.
template <class E>
E* NewElement() noexcept {
  return static_cast<E*>(MakeMessage<E>());
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

// Leaves the array empty, whatever state it was in.
template <class A>
void RemoveAll(A& a) {
  if (a.items) {
    DeleteElements(a);
    DeleteSlots(a.items);
    a.items = nullptr;
  }
  a.size = 0;
  a.capacity = 0;
}

template <class A>
int Grow(A& a) {
  // Growth goes on from the elements that exist.
  if (!a.items) a.size = a.capacity = 0;
  while (a.size > 0 && !a.items[a.size - 1]) --a.size;
  if (a.capacity <= a.size) {
    void* slots = Enlarge(a.items, a.size, a.capacity);
    if (!slots) return OutOfMemory(a);
    a.items = static_cast<ElementOf<A>**>(slots);
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

// Null for an index out of range and for a slot without an element; the
// test of `items` covers a failed SetSize that had no slot array.
template <class A>
auto GetAt(const A& a, int index) {
  return index >= 0 && index < a.size && a.items ? a.items[index] : nullptr;
}

template <class A>
auto& At(const A& a, int index, const char* className) {
  auto* element = GetAt(a, index);
  if (!element) ThrowNoElement(className, index, a.size);
  return *element;
}

}  // namespace pricemsg::detail
