// The two patterns that every message class and every array class follows,
// written once. Generated units include this header and nothing else of the
// frame: a class lists its fields once, as
//
//   struct Fields {
//     template <class V> bool operator()(V& v) const {
//       return v(6, "iSysCode", &M_SysReject::iSysCode) &&
//              v(7, "sSysReasonText", &M_SysReject::sSysReasonText) && ...;
//     }
//   };
//
// and each operation hands that list to a visitor below, which turns every
// entry into one call of a helper for the field's kind. The first helper that
// fails ends the walk. The helpers that do not depend on the class live in
// MsgBase.cpp.
#pragma once

#include <new>
#include <optional>
#include <type_traits>

#include "MsgBase.h"
#include "callkyt/CMsg.h"

namespace pricemsg::detail {

// ---- helpers by field kind (MsgBase.cpp) ----
// Each gives 0, or the failure code with the failure text in self.errtext.

int WrongNumber(CMsgBase& self, const CMsg& msg);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CInt& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDbl& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CBool& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDate& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CString& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CIntArray& v);
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDblArray& v);
int GetSub(CMsgBase& self, CMsg& msg, int tag, CMsgBase& sub, CMsg*& scratch);
int GetArr(CMsgBase& self, CMsg& msg, int tag, CMsgBase_Array& arr, CMsgArray& scratch);

CMsg* NewMsg(CMsgBase& self);
void DiscardMsg(CMsg* msg);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CInt& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDbl& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CBool& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDate& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CString& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CIntArray& v);
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDblArray& v);
int SetSub(CMsgBase& self, CMsg& msg, int tag, CMsgBase& sub);
int SetArr(CMsgBase& self, CMsg& msg, int tag, CMsgBase_Array& arr);

// Dump writes each line into `line` and emits it to the stream.
void DumpHead(const CMsgBase& self, CStream* out, CString& line);
void DumpTail(CStream* out, CString& line);
void DumpVal(CStream* out, CString& line, const char* name, const CInt& v);
void DumpVal(CStream* out, CString& line, const char* name, const CDbl& v);
void DumpVal(CStream* out, CString& line, const char* name, const CBool& v);
void DumpVal(CStream* out, CString& line, const char* name, const CDate& v);
void DumpVal(CStream* out, CString& line, const char* name, const CString& v);
void DumpVal(CStream* out, CString& line, const char* name, const CIntArray& v);
void DumpVal(CStream* out, CString& line, const char* name, const CDblArray& v);
void DumpVal(CStream* out, CString& line, const char* name, const CMsgBase& sub);
void DumpVal(CStream* out, CString& line, const char* name, const CMsgBase_Array& arr);

inline void CopyVal(CInt& dst, const CInt& src) { dst = src; }
inline void CopyVal(CDbl& dst, const CDbl& src) { dst = src; }
inline void CopyVal(CBool& dst, const CBool& src) { dst = src; }
inline void CopyVal(CString& dst, const CString& src) { dst = src; }
inline void CopyVal(CIntArray& dst, const CIntArray& src) { dst = src; }
inline void CopyVal(CDblArray& dst, const CDblArray& src) { dst = src; }
inline void CopyVal(CDate& dst, const CDate& src) {
  dst.Set(src.text);
  dst.isSet = src.isSet;
}
// Messages and arrays copy with the Copy of their own class.
template <class M>
std::enable_if_t<std::is_base_of_v<CMsgBase, M> || std::is_base_of_v<CMsgBase_Array, M>> CopyVal(
    M& dst, const M& src) {
  dst.Copy(src);
}

// ---- the message pattern ----

template <class M>
constexpr bool kIsMessage = std::is_base_of_v<CMsgBase, M>;
template <class M>
constexpr bool kIsArray = std::is_base_of_v<CMsgBase_Array, M>;

template <class T>
class Reader {
 public:
  Reader(T& self, CMsg& msg) : self_(self), msg_(msg) {}
  int result() const { return rc_; }

  template <class C, class M>
  bool operator()(int tag, const char*, M C::*field) {
    M& v = self_.*field;
    if constexpr (kIsMessage<M>) {
      rc_ = GetSub(self_, msg_, tag, v, scratchMsg_);
    } else if constexpr (kIsArray<M>) {
      // One scratch array serves all the array fields of the class in turn.
      if (!scratchArr_) scratchArr_.emplace(true);
      rc_ = GetArr(self_, msg_, tag, v, *scratchArr_);
    } else {
      rc_ = GetVal(self_, msg_, tag, v);
    }
    return rc_ == 0;
  }

 private:
  T& self_;
  CMsg& msg_;
  int rc_ = 0;
  CMsg* scratchMsg_ = nullptr;
  std::optional<CMsgArray> scratchArr_;
};

template <class T>
class Writer {
 public:
  Writer(T& self, CMsg& msg) : self_(self), msg_(msg) {}

  template <class C, class M>
  bool operator()(int tag, const char*, M C::*field) {
    M& v = self_.*field;
    if constexpr (kIsMessage<M>) {
      return SetSub(self_, msg_, tag, v) == 0;
    } else if constexpr (kIsArray<M>) {
      return SetArr(self_, msg_, tag, v) == 0;
    } else {
      return SetVal(self_, msg_, tag, v) == 0;
    }
  }

 private:
  T& self_;
  CMsg& msg_;
};

template <class T>
class Dumper {
 public:
  Dumper(CStream* out, CString& line, const T& self) : out_(out), line_(line), self_(self) {}

  template <class C, class M>
  bool operator()(int, const char* name, M C::*field) {
    DumpVal(out_, line_, name, self_.*field);
    return true;
  }

 private:
  CStream* out_;
  CString& line_;
  const T& self_;
};

template <class T>
class Copier {
 public:
  Copier(T& dst, const T& src) : dst_(dst), src_(src) {}

  template <class C, class M>
  bool operator()(int, const char*, M C::*field) {
    CopyVal(dst_.*field, src_.*field);
    return true;
  }

 private:
  T& dst_;
  const T& src_;
};

template <class T, class Fields>
int Load(T& self, CMsg* msg, Fields fields) {
  if (msg->msgnum != self.msgnum) return WrongNumber(self, *msg);
  Reader<T> reader(self, *msg);
  fields(reader);
  return reader.result();
}

template <class T, class Fields>
CMsg* ToMsg(T& self, Fields fields) {
  CMsg* msg = NewMsg(self);
  if (!msg) return nullptr;
  Writer<T> writer(self, *msg);
  if (!fields(writer)) {
    // Nobody will ever see the half-built message: free it here.
    DiscardMsg(msg);
    return nullptr;
  }
  return msg;
}

template <class T, class Fields>
void Dump(const T& self, CStream* out, Fields fields) {
  CString line;
  DumpHead(self, out, line);
  Dumper<T> dumper(out, line, self);
  fields(dumper);
  DumpTail(out, line);
}

template <class T, class Fields>
void Copy(T& self, const T& src, Fields fields) {
  if (&self == &src) return;
  Copier<T> copier(self, src);
  fields(copier);
}

// ---- the array pattern ----

int OutOfMemory(CMsgBase_Array& self);
int GrowthStep(int size);
int LoadArray(CMsgBase_Array& self, CMsgArray* arr);
CMsg* ElementToMsg(CMsgBase_Array& self, int index);
void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className);
[[noreturn]] void ThrowOutOfIndex(const char* className, int index, int size);

template <class E>
E* NewElement() {
  try {
    return new E;
  } catch (...) {
    return nullptr;
  }
}

template <class E>
E** NewSlots(int n) {
  try {
    return new E*[static_cast<size_t>(n)];
  } catch (...) {
    return nullptr;
  }
}

template <class A>
void RemoveAll(A& a) {
  if (!a.items) return;
  for (int i = 0; i < a.size; ++i) {
    delete a.items[i];
    a.items[i] = nullptr;
  }
  delete[] a.items;
  a.items = nullptr;
  a.size = 0;
  a.capacity = 0;
}

template <class A>
int Grow(A& a) {
  using E = std::remove_pointer_t<std::remove_pointer_t<decltype(a.items)>>;
  if (a.capacity <= a.size) {
    int step = GrowthStep(a.size);
    E** slots = NewSlots<E>(a.capacity + step);
    if (!slots) return OutOfMemory(a);
    for (int i = 0; i < a.size; ++i) slots[i] = a.items[i];
    delete[] a.items;
    a.items = slots;
    a.capacity += step;
  }
  E* element = NewElement<E>();
  a.items[a.size] = element;
  if (!element) return OutOfMemory(a);
  return ++a.size;
}

template <class A>
int SetSize(A& a, int size) {
  using E = std::remove_pointer_t<std::remove_pointer_t<decltype(a.items)>>;
  a.RemoveAll();
  a.capacity = size;
  a.size = size;
  if (size <= 0) return a.size;
  a.items = NewSlots<E>(size);
  if (!a.items) return OutOfMemory(a);
  for (int i = 0; i < size; ++i) a.items[i] = nullptr;
  for (int i = 0; i < size; ++i) {
    a.items[i] = NewElement<E>();
    if (!a.items[i]) return OutOfMemory(a);
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

template <class A>
void CopyArray(A& a, const A& src) {
  if (&a == &src) return;
  int n = src.GetSize();
  if (a.SetSize(n) < 0) return;
  for (int i = 0; i < n; ++i) a.items[i]->Copy(*src.GetAt(i));
}

}  // namespace pricemsg::detail
