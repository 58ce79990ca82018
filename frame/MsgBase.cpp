#include "MsgBase.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "MsgPattern.h"

CMsgBase::~CMsgBase() = default;

CMsgBase_Array::~CMsgBase_Array() = default;

namespace pricemsg::detail {

namespace {

// Writes a failure text. It must not fail itself: when memory is short and
// the text cannot be formatted, it is cut to what a small buffer holds, and
// if even that cannot be stored the old text stays.
template <class... Args>
void FailText(CString& errtext, const char* format, Args... args) noexcept {
  try {
    errtext.Format(format, args...);
  } catch (...) {
    char cut[64];
    if (std::snprintf(cut, sizeof cut, format, args...) < 0) return;  // cut is meant
    try {
      errtext = cut;
    } catch (...) {
    }
  }
}

// One dump line, "\n" + name right-aligned in 20 columns + " : [" + value +
// "]", built on the stack and handed to the stream in one piece; a value too
// long for the buffer goes to the stream as it is. Every line goes out with
// its newline in front of it, so a dump starts with a newline and ends
// without one.
class FieldLine {
 public:
  explicit FieldLine(CStream* out) : out_(out), size_(1) { buf_[0] = '\n'; }
  FieldLine(CStream* out, const char* name) : FieldLine(out) {
    size_t len = std::strlen(name);
    if (len < kWidth) {
      std::memset(buf_ + size_, ' ', kWidth - len);
      size_ += kWidth - len;
    }
    Put(name, len);
  }
  ~FieldLine() { Flush(); }
  FieldLine(const FieldLine&) = delete;
  FieldLine& operator=(const FieldLine&) = delete;

  void Put(const char* text, size_t len) {
    if (len > sizeof buf_ - size_) {
      Flush();
      out_->AppendData(text, static_cast<int>(len));
      return;
    }
    std::memcpy(buf_ + size_, text, len);
    size_ += len;
  }
  void PutInt(int v) {
    char digits[16];
    Put(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, v).ptr - digits));
  }

 private:
  static constexpr size_t kWidth = 20;
  void Flush() {
    if (size_) out_->AppendData(buf_, static_cast<int>(size_));
    size_ = 0;
  }

  CStream* out_;
  size_t size_;
  char buf_[192];
};

}  // namespace

// ---- Load ----

namespace {

int WrongNumber(CMsgBase& self, const CMsg& msg) {
  self.errcode = MSG_E_MSGNUM;
  FailText(self.errtext, "invalid input message of service(%d,%d)", msg.msgnum, self.msgnum);
  return MSG_E_MSGNUM;
}

// An operation between an object and its message. A failure writes the
// text of the pattern, with the class name, message number and tag, into the
// object's errtext, and its code into errcode.
class MessageOp : public FieldOp {
 protected:
  MessageOp(CMsgBase& self, CMsg& msg) : self_(self), msg_(msg) {}
  ~MessageOp() = default;

  bool Fail(const char* format, int tag, int code) {
    self_.errcode = code;
    FailText(self_.errtext, format, self_.msgname.ToStr(), msg_.msgnum, tag);
    return false;
  }

  CMsgBase& self_;
  CMsg& msg_;
};

// What GetValue gives for a tag that the message does not hold.
constexpr int kAbsent = -1;

// Reads each field from the message. Below -1 a value read has failed; -1
// only says that the tag is absent. For sub-messages and arrays any negative
// read means absent: only the nested Load can fail, and its result goes up
// unchanged.
class Reader final : public MessageOp {
 public:
  Reader(CMsgBase& self, CMsg& msg) : MessageOp(self, msg) {}
  int result() const { return rc_; }

  bool operator()(int tag, const char*, CInt& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CDbl& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CBool& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CDate& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CString& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CIntArray& v) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CDblArray& v) override { return Read(tag, v); }

  bool Message(int tag, const char*, CMsgBase& sub, CopyMsgFn) override {
    if (msg_.GetValue(tag, &scratchMsg_) < 0 || !scratchMsg_) return true;
    rc_ = sub.Load(scratchMsg_);
    if (rc_ >= 0) return Ok();
    return Fail("%s:GET_SUB_ONE(M%04d.T%d) fail", tag, rc_);
  }

  bool Array(int tag, const char*, CMsgBase_Array& arr, CopyArrayFn) override {
    // One scratch array serves all the array fields of the class in turn.
    if (!scratchArr_) scratchArr_.emplace(true);
    if (msg_.GetValue(tag, &*scratchArr_) < 0) return true;
    rc_ = arr.Load(&*scratchArr_);
    if (rc_ >= 0) return Ok();
    return Fail("%s:GET_SUB_ARR(M%04d.T%d) fail", tag, rc_);
  }

 private:
  template <class V>
  bool Read(int tag, V& v) {
    int rc = msg_.GetValue(tag, &v);
    if (rc >= kAbsent) return true;
    rc_ = rc;
    return Fail("%s:GET_VAL_ONE(M%04d.T%d) fail", tag, rc);
  }
  // Positive results of the runtime count as success.
  bool Ok() {
    rc_ = 0;
    return true;
  }

  int rc_ = 0;
  CMsg* scratchMsg_ = nullptr;
  std::optional<CMsgArray> scratchArr_;
};

}  // namespace

int Load(CMsgBase& self, CMsg* msg, Fields fields) {
  if (!msg) return MSG_E_NULL;
  self.errcode = 0;
  if (msg->msgnum != self.msgnum) return WrongNumber(self, *msg);
  Reader reader(self, *msg);
  fields(reader, self);
  return reader.result();
}

// ---- ToMsg ----

namespace {

// Writes every field into the message, set or not.
class Writer final : public MessageOp {
 public:
  Writer(CMsgBase& self, CMsg& msg) : MessageOp(self, msg) {}

  bool operator()(int tag, const char*, CInt& v) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CDbl& v) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CBool& v) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CDate& v) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CString& v) override { return Write(tag, v.ToStr()); }
  bool operator()(int tag, const char*, CIntArray& v) override { return Elements(tag, v); }
  bool operator()(int tag, const char*, CDblArray& v) override { return Elements(tag, v); }

  // A sub-message goes to its parent, which owns it from then on. When the
  // member's ToMsg gives null, its errcode tells why.
  bool Message(int tag, const char*, CMsgBase& sub, CopyMsgFn) override {
    CMsg* msg = sub.ToMsg();
    if (!msg) return Fail("%s:SET_SUB_ONE(M%04d.T%d) fail", tag, sub.errcode);
    return Write(tag, msg);
  }

  bool Array(int tag, const char*, CMsgBase_Array& arr, CopyArrayFn) override {
    for (int i = 0; i < arr.GetSize(); ++i) {
      if (CMsg* msg = arr.ToMsg(i)) {
        if (!Write(tag, msg)) return false;
        continue;
      }
      // The element's own code, or none ever made after a failed SetSize.
      const CMsgBase* element = arr.GetAt(i);
      return Fail("%s:SET_SUB_ARR(M%04d.T%d) fail", tag, element ? element->errcode : MSG_E_NOMEM);
    }
    return true;
  }

 private:
  template <class V>
  bool Write(int tag, const V& v) {
    int rc = msg_.SetValue(tag, v);
    return rc >= 0 || Fail("%s:SET_VAL_ONE(M%04d.T%d) fail", tag, rc);
  }

  // Each element of an array is one value under the array's tag.
  template <class A>
  bool Elements(int tag, const A& v) {
    for (int i = 0; i < v.size; ++i) {
      if (!Write(tag, v.GetAt(i))) return false;
    }
    return true;
  }
};

}  // namespace

CMsg* ToMsg(CMsgBase& self, Fields fields) {
  self.errcode = 0;
  CMsg* msg;
  try {
    CMsgDic* dic = MA_GetMsgDic();
    msg = new CMsg(self.msgnum, 0, 0, dic);
  } catch (...) {
    msg = nullptr;
  }
  if (!msg) {
    self.errcode = MSG_E_NOMEM;
    self.errtext = "Out of memory";
    return nullptr;
  }
  Writer writer(self, *msg);
  if (!fields(writer, self)) {
    // Nobody will ever see the half-built message: free it here.
    delete msg;
    return nullptr;
  }
  return msg;
}

// ---- Dump ----

namespace {

class Dumper final : public FieldOp {
 public:
  explicit Dumper(CStream* out) : out_(out) {}

  bool operator()(int, const char* name, CInt& v) override {
    if (!v.isSet) return Text(name, "<CInt: unset>");
    char digits[16];
    char* end = std::to_chars(digits, digits + sizeof digits, v.value).ptr;
    return Text(name, digits, static_cast<size_t>(end - digits));
  }

  bool operator()(int, const char* name, CDbl& v) override {
    if (!v.isSet) return Text(name, "<CDbl: unset>");
    // The same text as printf's %.15e, infinities and NaNs included.
    char digits[64];
    char* end =
        std::to_chars(digits, digits + sizeof digits, v.value, std::chars_format::scientific, 15)
            .ptr;
    return Text(name, digits, static_cast<size_t>(end - digits));
  }

  bool operator()(int, const char* name, CBool& v) override {
    return Text(name, !v.isSet ? "<CBool: unset>" : v.value ? "Y" : "N");
  }

  bool operator()(int, const char* name, CDate& v) override {
    return Text(name, v.isSet ? v.text : "<CDate: unset>");
  }

  bool operator()(int, const char* name, CString& v) override {
    // The runtime decides how an empty text shows.
    if (v.IsEmpty()) return Text(name, v.Repr());
    return Text(name, v.ToStr(), static_cast<size_t>(v.GetSize()));
  }

  bool operator()(int, const char* name, CIntArray& v) override { return List(name, v); }
  bool operator()(int, const char* name, CDblArray& v) override { return List(name, v); }

  bool Message(int, const char* name, CMsgBase& sub, CopyMsgFn) override {
    FieldLine(out_, name).Put(" :", 2);
    sub.Dump(out_);
    return true;
  }

  bool Array(int, const char* name, CMsgBase_Array& arr, CopyArrayFn) override {
    FieldLine(out_, name).Put(" :", 2);
    arr.Dump(out_);
    return true;
  }

 private:
  bool Text(const char* name, const char* text, size_t len) {
    FieldLine line(out_, name);
    line.Put(" : [", 4);
    line.Put(text, len);
    line.Put("]", 1);
    return true;
  }
  bool Text(const char* name, const char* text) { return Text(name, text, std::strlen(text)); }

  bool Text(const char* name, const CString& text) {
    return Text(name, text.ToStr(), static_cast<size_t>(text.GetSize()));
  }

  template <class A>
  bool List(const char* name, const A& v) {
    return Text(name, v.Repr(", ", false));
  }

  CStream* out_;
};

}  // namespace

void Dump(const CMsgBase& self, CStream* out, Fields fields) {
  {
    FieldLine num(out, "<msgnum>");
    num.Put(" : ", 3);
    num.PutInt(self.msgnum);
  }
  {
    FieldLine name(out, "<msgname>");
    name.Put(" : ", 3);
    name.Put(self.msgname.ToStr(), static_cast<size_t>(self.msgname.GetSize()));
  }
  // The walk hands out members for writing; the dumper only reads them.
  Dumper dumper(out);
  fields(dumper, const_cast<CMsgBase&>(self));
  static const char kTail[] = "\n--------------------------------------";
  out->AppendData(kTail, sizeof kTail - 1);
}

// ---- Copy ----

namespace {

// Walks the destination and takes each member from the same place in the
// source, which is an object of the same class.
class Copier final : public FieldOp {
 public:
  Copier(CMsgBase& dst, const CMsgBase& src)
      : dst_(reinterpret_cast<const char*>(&dst)), src_(reinterpret_cast<const char*>(&src)) {}

  bool operator()(int, const char*, CInt& v) override { return Take(v); }
  bool operator()(int, const char*, CDbl& v) override { return Take(v); }
  bool operator()(int, const char*, CBool& v) override { return Take(v); }
  bool operator()(int, const char*, CString& v) override { return Take(v); }
  bool operator()(int, const char*, CIntArray& v) override { return Take(v); }
  bool operator()(int, const char*, CDblArray& v) override { return Take(v); }
  bool operator()(int, const char*, CDate& v) override {
    const CDate& from = Source(v);
    v.Set(from.text);
    v.isSet = from.isSet;
    return true;
  }

  bool Message(int, const char*, CMsgBase& sub, CopyMsgFn copy) override {
    copy(sub, Source(sub));
    return true;
  }

  bool Array(int, const char*, CMsgBase_Array& arr, CopyArrayFn copy) override {
    copy(arr, Source(arr));
    return true;
  }

 private:
  template <class V>
  const V& Source(const V& member) const {
    return *reinterpret_cast<const V*>(src_ + (reinterpret_cast<const char*>(&member) - dst_));
  }
  template <class V>
  bool Take(V& member) {
    member = Source(member);
    return true;
  }

  const char* dst_;
  const char* src_;
};

}  // namespace

void Copy(CMsgBase& self, const CMsgBase& src, Fields fields) {
  if (&self == &src) return;
  Copier copier(self, src);
  fields(copier, self);
}

// ---- arrays ----

int OutOfMemory(CMsgBase_Array& self) {
  FailText(self.errtext, "%s : Out of memory", self.msgname.ToStr());
  return MSG_E_NOMEM;
}

int LoadArray(CMsgBase_Array& self, CMsgArray* arr) {
  if (!arr) return MSG_E_NULL;
  // A count below zero from the runtime is no count of messages: none.
  int count = arr->GetSize();
  int rc = self.SetSize(count < 0 ? 0 : count);
  if (rc < 0) return rc;
  for (int i = 0; i < self.GetSize(); ++i) {
    rc = self.GetAt(i)->Load(arr->GetAt(i));
    if (rc < 0) return rc;
  }
  return 0;
}

CMsg* ElementToMsg(CMsgBase_Array& self, int index) {
  CMsgBase* element = self.GetAt(index);
  return element ? element->ToMsg() : nullptr;
}

// The loops below stop at the first index without an element: past it, a
// failed SetSize made none, and its size may be far above what exists.

void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className) {
  const size_t nameLen = std::strlen(className);
  for (int i = 0; const CMsgBase* element = self.GetAt(i); ++i) {
    {
      // "\n<className> [i]"
      FieldLine head(out);
      head.Put(className, nameLen);
      head.Put(" [", 2);
      head.PutInt(i);
      head.Put("]", 1);
    }
    element->Dump(out);
  }
}

void CopyArray(CMsgBase_Array& self, const CMsgBase_Array& src, CopyMsgFn copy) {
  if (&self == &src) return;
  int n = 0;
  while (src.GetAt(n)) ++n;
  if (self.SetSize(n) < 0) return;
  for (int i = 0; i < n; ++i) copy(*self.GetAt(i), *src.GetAt(i));
}

void DeleteElements(CMsgBase_Array& self) {
  for (int i = 0; CMsgBase* element = self.GetAt(i); ++i) delete element;
}

namespace {

// What stands in front of slot 0 in a slot array's block.
struct alignas(void*) SlotHeader {
  size_t room;  // slots in the block
};
static_assert(sizeof(SlotHeader) == sizeof(size_t) && sizeof(SlotHeader) % sizeof(void*) == 0,
              "slot 0 follows the header directly and is aligned for a pointer");

SlotHeader* HeaderOf(void* slots) { return static_cast<SlotHeader*>(slots) - 1; }

// A block with room for `room` null slots; `room` is at most kMaxSlots.
void* Allocate(size_t room) noexcept {
  const size_t bytes = room * sizeof(void*);
  void* block;
  try {
    block = ::operator new(sizeof(SlotHeader) + bytes);
  } catch (...) {
    return nullptr;
  }
  SlotHeader* header = static_cast<SlotHeader*>(block);
  header->room = room;
  std::memset(header + 1, 0, bytes);
  return header + 1;
}

}  // namespace

void* NewSlots(int n) noexcept {
  if (n <= 0 || n > kMaxSlots) return nullptr;
  return Allocate(static_cast<size_t>(n));
}

void* Enlarge(void* slots, int size, int& capacity) noexcept {
  const int next = NextCapacity(size);
  if (next == 0 || size < 0) return nullptr;  // Grow never asks with a negative size
  if (slots && HeaderOf(slots)->room >= static_cast<size_t>(next)) {
    capacity = next;
    return slots;
  }
  // An eighth more than the size, as the capacity would grow without its
  // cap of 1,024: fewer and fewer moves of the slots as the array grows.
  size_t room = static_cast<size_t>(size) + static_cast<size_t>(size) / 8;
  if (room < static_cast<size_t>(next)) room = static_cast<size_t>(next);
  if (room > static_cast<size_t>(kMaxSlots)) room = static_cast<size_t>(kMaxSlots);
  void* fresh = Allocate(room);
  if (!fresh) return nullptr;
  if (slots && size > 0) std::memcpy(fresh, slots, static_cast<size_t>(size) * sizeof(void*));
  DeleteSlots(slots);
  capacity = next;
  return fresh;
}

void DeleteSlots(void* slots) noexcept {
  if (slots) ::operator delete(HeaderOf(slots));
}

void ThrowNoElement(const char* className, int index, int size) {
  if (index >= 0 && index < size) {
    throw CException(
        CFormat("%s::[] element %d of %d was never made (out of memory)", className, index, size)
            .ToStr(),
        MSG_E_NOMEM);
  }
  throw CException(CFormat("%s::[] out of index (0 <= %d < %d)", className, index, size).ToStr(),
                   MSG_E_INDEX);
}

}  // namespace pricemsg::detail
