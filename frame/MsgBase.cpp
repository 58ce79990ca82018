// The message pattern: Load, ToMsg, Dump and Copy of every message class,
// each an operation over the class's walk.
#include "MsgBase.h"

#include <charconv>
#include <cstring>
#include <optional>

#include "FrameText.h"
#include "MsgPattern.h"

CMsgBase::~CMsgBase() = default;

namespace pricemsg::detail {

// ---- Load ----

namespace {

int WrongNumber(CMsgBase& self, const CMsg& msg) {
  self.errcode = MSG_E_MSGNUM;
  FailText(self.errtext, kWrongNumberText, msg.msgnum, self.msgnum);
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

  bool operator()(int tag, const char*, CInt& v, const CInt&) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CDbl& v, const CDbl&) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CBool& v, const CBool&) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CDate& v, const CDate&) override { return Read(tag, v); }
  bool operator()(int tag, const char*, CString& v, const CString&) override {
    return Read(tag, v);
  }
  bool operator()(int tag, const char*, CIntArray& v, const CIntArray&) override {
    return Read(tag, v);
  }
  bool operator()(int tag, const char*, CDblArray& v, const CDblArray&) override {
    return Read(tag, v);
  }

  bool operator()(int tag, const char*, CMsgBase& sub, const CMsgBase&, Walk) override {
    if (msg_.GetValue(tag, &scratchMsg_) < 0 || !scratchMsg_) return true;
    rc_ = sub.Load(scratchMsg_);
    if (rc_ >= 0) return Ok();
    return Fail(kGetSubText, tag, rc_);
  }

  bool operator()(int tag, const char*, CMsgBase_Array& arr, const CMsgBase_Array&, Walk) override {
    // One scratch array serves all the array fields of the class in turn.
    if (!scratchArr_) scratchArr_.emplace(true);
    if (msg_.GetValue(tag, &*scratchArr_) < 0) return true;
    rc_ = arr.Load(&*scratchArr_);
    if (rc_ >= 0) return Ok();
    return Fail(kGetArrText, tag, rc_);
  }

 private:
  template <class V>
  bool Read(int tag, V& v) {
    int rc = msg_.GetValue(tag, &v);
    if (rc >= kAbsent) return true;
    rc_ = rc;
    return Fail(kGetValText, tag, rc);
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

int Load(CMsgBase& self, CMsg* msg, Walk walk) {
  if (!msg) return MSG_E_NULL;
  self.errcode = 0;
  if (msg->msgnum != self.msgnum) return WrongNumber(self, *msg);
  Reader reader(self, *msg);
  walk(reader, self, self);
  return reader.result();
}

// ---- ToMsg ----

namespace {

// Writes every field into the message, set or not.
class Writer final : public MessageOp {
 public:
  Writer(CMsgBase& self, CMsg& msg) : MessageOp(self, msg) {}

  bool operator()(int tag, const char*, CInt& v, const CInt&) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CDbl& v, const CDbl&) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CBool& v, const CBool&) override { return Write(tag, v); }
  bool operator()(int tag, const char*, CDate& v, const CDate&) override { return Write(tag, v); }
  // The runtime takes a text up to its first NUL byte: one that holds a NUL
  // would arrive cut short, and is refused instead.
  bool operator()(int tag, const char*, CString& v, const CString&) override {
    const char* text = v.ToStr();
    const int size = v.GetSize();
    if (size > 0 && std::memchr(text, '\0', static_cast<size_t>(size))) {
      return Fail(kSetValText, tag, MSG_E_TEXT);
    }
    return Write(tag, text);
  }
  bool operator()(int tag, const char*, CIntArray& v, const CIntArray&) override {
    return Elements(tag, v);
  }
  bool operator()(int tag, const char*, CDblArray& v, const CDblArray&) override {
    return Elements(tag, v);
  }

  // A sub-message goes to its parent, which owns it from then on. When the
  // member's ToMsg gives null, its errcode tells why.
  bool operator()(int tag, const char*, CMsgBase& sub, const CMsgBase&, Walk) override {
    CMsg* msg = sub.ToMsg();
    if (!msg) return Fail(kSetSubText, tag, sub.errcode);
    return Write(tag, msg);
  }

  bool operator()(int tag, const char*, CMsgBase_Array& arr, const CMsgBase_Array&, Walk) override {
    for (int i = 0; i < arr.GetSize(); ++i) {
      if (CMsg* msg = arr.ToMsg(i)) {
        if (!Write(tag, msg)) return false;
        continue;
      }
      // The element's own code, or none ever made after a failed SetSize.
      const CMsgBase* element = arr.GetAt(i);
      return Fail(kSetArrText, tag, element ? element->errcode : MSG_E_NOMEM);
    }
    return true;
  }

 private:
  template <class V>
  bool Write(int tag, const V& v) {
    int rc = msg_.SetValue(tag, v);
    return rc >= 0 || Fail(kSetValText, tag, rc);
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

CMsg* ToMsg(CMsgBase& self, Walk walk) {
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
    self.errtext = kNoMessageText;
    return nullptr;
  }
  Writer writer(self, *msg);
  if (!walk(writer, self, self)) {
    // Nobody will ever see the half-built message: free it here.
    delete msg;
    return nullptr;
  }
  return msg;
}

// ---- Dump ----

namespace {

// Writes the lines of one object into the sink; a held message's lines
// follow its label line in the same sink, an array's go through its own Dump.
class Dumper final : public FieldOp {
 public:
  explicit Dumper(TextSink& sink) : sink_(sink) {}

  void Object(const CMsgBase& obj, Walk walk) {
    char digits[32];
    char* end = std::to_chars(digits, digits + sizeof digits, obj.msgnum).ptr;
    sink_.Line("<msgnum>", " : ", digits, static_cast<size_t>(end - digits), "");
    sink_.Line("<msgname>", " : ", obj.msgname.ToStr(), static_cast<size_t>(obj.msgname.GetSize()),
               "");
    // The walk hands out members for writing; the dumper only reads them.
    walk(*this, const_cast<CMsgBase&>(obj), obj);
    static const char kTail[] = "--------------------------------------";
    sink_.Line();
    sink_.Put(kTail, sizeof kTail - 1);
  }

  bool operator()(int, const char* name, CInt& v, const CInt&) override {
    if (!v.isSet) return Text(name, "<CInt: unset>");
    char digits[32];
    char* end = std::to_chars(digits, digits + sizeof digits, v.value).ptr;
    return Text(name, digits, static_cast<size_t>(end - digits));
  }

  bool operator()(int, const char* name, CDbl& v, const CDbl&) override {
    if (!v.isSet) return Text(name, "<CDbl: unset>");
    // The same text as printf's %.15e, infinities and NaNs included.
    char digits[64];
    char* end =
        std::to_chars(digits, digits + sizeof digits, v.value, std::chars_format::scientific, 15)
            .ptr;
    return Text(name, digits, static_cast<size_t>(end - digits));
  }

  bool operator()(int, const char* name, CBool& v, const CBool&) override {
    return Text(name, !v.isSet ? "<CBool: unset>" : v.value ? "Y" : "N");
  }

  bool operator()(int, const char* name, CDate& v, const CDate&) override {
    return Text(name, v.isSet ? v.text : "<CDate: unset>");
  }

  bool operator()(int, const char* name, CString& v, const CString&) override {
    // The runtime decides how an empty text shows.
    if (v.IsEmpty()) return Text(name, v.Repr());
    return Text(name, v.ToStr(), static_cast<size_t>(v.GetSize()));
  }

  bool operator()(int, const char* name, CIntArray& v, const CIntArray&) override {
    return List(name, v);
  }
  bool operator()(int, const char* name, CDblArray& v, const CDblArray&) override {
    return List(name, v);
  }

  bool operator()(int, const char* name, CMsgBase& sub, const CMsgBase&, Walk walk) override {
    Label(name);
    Object(sub, walk);
    return true;
  }

  bool operator()(int, const char* name, CMsgBase_Array& arr, const CMsgBase_Array&,
                  Walk) override {
    Label(name);
    // The array writes its elements into the stream itself, after the lines
    // gathered so far.
    sink_.Flush();
    arr.Dump(sink_.out());
    return true;
  }

 private:
  // The line of a sub-message or array field, before its own lines.
  void Label(const char* name) { sink_.Line(name, " :", "", 0, ""); }

  bool Text(const char* name, const char* text, size_t len) {
    sink_.Line(name, " : [", text, len, "]");
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

  TextSink& sink_;
};

}  // namespace

void DumpObject(TextSink& sink, const CMsgBase& obj, Walk walk) { Dumper(sink).Object(obj, walk); }

// Dump reports nothing: when the stream cannot take the text, or the runtime
// cannot make a value's text (an array whose text would pass the largest
// CString), the exception ends this Dump where it stands, with the lines
// gathered before it handed to the stream if it takes them.
void Dump(const CMsgBase& self, CStream* out, Walk walk) noexcept {
  TextSink sink(out);
  try {
    DumpObject(sink, self, walk);
    sink.Flush();
  } catch (...) {
    FlushQuietly(sink);
  }
}

// ---- Copy ----

namespace {

// Takes each member of the destination from the same member of the source,
// which the walk hands over beside it.
class Copier final : public FieldOp {
 public:
  bool operator()(int, const char*, CInt& v, const CInt& src) override { return Take(v, src); }
  bool operator()(int, const char*, CDbl& v, const CDbl& src) override { return Take(v, src); }
  bool operator()(int, const char*, CBool& v, const CBool& src) override { return Take(v, src); }
  bool operator()(int, const char*, CString& v, const CString& src) override {
    return Take(v, src);
  }
  bool operator()(int, const char*, CIntArray& v, const CIntArray& src) override {
    return Take(v, src);
  }
  bool operator()(int, const char*, CDblArray& v, const CDblArray& src) override {
    return Take(v, src);
  }
  bool operator()(int, const char*, CDate& v, const CDate& src) override {
    v.Set(src.text);
    v.isSet = src.isSet;
    return true;
  }

  bool operator()(int, const char*, CMsgBase& sub, const CMsgBase& src, Walk walk) override {
    Copy(sub, src, walk);
    return true;
  }

  bool operator()(int, const char*, CMsgBase_Array& arr, const CMsgBase_Array& src,
                  Walk walk) override {
    CopyArray(arr, src, walk);
    return true;
  }

 private:
  template <class V>
  bool Take(V& member, const V& src) {
    member = src;
    return true;
  }
};

}  // namespace

void Copy(CMsgBase& self, const CMsgBase& src, Walk walk) {
  if (&self == &src) return;
  Copier copier;
  walk(copier, self, src);
}

}  // namespace pricemsg::detail
