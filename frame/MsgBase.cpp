#include "MsgBase.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "MsgPattern.h"
#include "callkyt/CException.h"
#include "callkyt/CStream.h"

CMsgBase::~CMsgBase() = default;

CMsgBase_Array::~CMsgBase_Array() = default;

namespace pricemsg::detail {

namespace {

// Writes a failure text. It must not fail itself: when memory is short and
// the text does not fit in the string's own buffer, it is cut to what fits.
__attribute__((format(printf, 2, 3))) void FailText(CString& errtext, const char* format,
                                                    ...) noexcept {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  try {
    errtext.FormatV(format, args);
  } catch (...) {
    char cut[32];
    std::vsnprintf(cut, sizeof cut, format, again);
    errtext = cut;  // at most 31 bytes: kept without allocating
  }
  va_end(again);
  va_end(args);
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

void DumpText(CStream* out, const char* name, const char* text, size_t len) {
  FieldLine line(out, name);
  line.Put(" : [", 4);
  line.Put(text, len);
  line.Put("]", 1);
}

void DumpText(CStream* out, const char* name, const char* text) {
  DumpText(out, name, text, std::strlen(text));
}

}  // namespace

// ---- Load ----

int WrongNumber(CMsgBase& self, const CMsg& msg) {
  FailText(self.errtext, "invalid input message of service(%d,%d)", msg.msgnum, self.msgnum);
  return MSG_E_MSGNUM;
}

namespace {

// Below -1 a value read has failed; -1 only says that the tag is absent.
template <class V>
int ReadValue(CMsgBase& self, CMsg& msg, int tag, V& v) {
  int rc = msg.GetValue(tag, &v);
  if (rc >= KYT_ABSENT) return 0;
  FailText(self.errtext, "%s:GET_VAL_ONE(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum, tag);
  return rc;
}

}  // namespace

int GetVal(CMsgBase& self, CMsg& msg, int tag, CInt& v) { return ReadValue(self, msg, tag, v); }
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDbl& v) { return ReadValue(self, msg, tag, v); }
int GetVal(CMsgBase& self, CMsg& msg, int tag, CBool& v) { return ReadValue(self, msg, tag, v); }
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDate& v) { return ReadValue(self, msg, tag, v); }
int GetVal(CMsgBase& self, CMsg& msg, int tag, CString& v) { return ReadValue(self, msg, tag, v); }
int GetVal(CMsgBase& self, CMsg& msg, int tag, CIntArray& v) {
  return ReadValue(self, msg, tag, v);
}
int GetVal(CMsgBase& self, CMsg& msg, int tag, CDblArray& v) {
  return ReadValue(self, msg, tag, v);
}

// For sub-messages and arrays any negative read means absent: only the
// nested Load can fail, and its result goes up unchanged.
int GetSub(CMsgBase& self, CMsg& msg, int tag, CMsgBase& sub, CMsg*& scratch) {
  if (msg.GetValue(tag, &scratch) < 0 || !scratch) return 0;
  int rc = sub.Load(scratch);
  if (rc >= 0) return 0;
  FailText(self.errtext, "%s:GET_SUB_ONE(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum, tag);
  return rc;
}

int GetArr(CMsgBase& self, CMsg& msg, int tag, CMsgBase_Array& arr, CMsgArray& scratch) {
  if (msg.GetValue(tag, &scratch) < 0) return 0;
  int rc = arr.Load(&scratch);
  if (rc >= 0) return 0;
  FailText(self.errtext, "%s:GET_SUB_ARR(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum, tag);
  return rc;
}

// ---- ToMsg ----

CMsg* NewMsg(CMsgBase& self) {
  CMsg* msg;
  try {
    CMsgDic* dic = MA_GetMsgDic();
    msg = new CMsg(self.msgnum, 0, 0, dic);
  } catch (...) {
    msg = nullptr;
  }
  if (!msg) self.errtext = "Out of memory";
  return msg;
}

void DiscardMsg(CMsg* msg) { delete msg; }

namespace {

int SetFailed(CMsgBase& self, const CMsg& msg, int tag, int rc) {
  FailText(self.errtext, "%s:SET_VAL_ONE(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum, tag);
  return rc;
}

template <class V>
int WriteValue(CMsgBase& self, CMsg& msg, int tag, const V& v) {
  int rc = msg.SetValue(tag, v);
  return rc < 0 ? SetFailed(self, msg, tag, rc) : 0;
}

// Each element of an array is one value under the array's tag.
template <class A>
int WriteElements(CMsgBase& self, CMsg& msg, int tag, const A& v) {
  for (int i = 0; i < v.size; ++i) {
    int rc = msg.SetValue(tag, v.GetAt(i));
    if (rc < 0) return SetFailed(self, msg, tag, rc);
  }
  return 0;
}

// Hands a sub-message to its parent, which owns it from then on. A null
// sub-message is the failure of its own ToMsg, of a single field or of an
// element of an array.
int Attach(CMsgBase& self, CMsg& msg, int tag, CMsg* sub, bool element) {
  if (!sub) {
    if (element) {
      FailText(self.errtext, "%s:SET_SUB_ARR(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum,
               tag);
    } else {
      FailText(self.errtext, "%s:SET_SUB_ONE(M%04d.T%d) fail", self.msgname.ToStr(), msg.msgnum,
               tag);
    }
    return MSG_E_NOMEM;
  }
  int rc = msg.SetValue(tag, sub);
  return rc < 0 ? SetFailed(self, msg, tag, rc) : 0;
}

}  // namespace

int SetVal(CMsgBase& self, CMsg& msg, int tag, const CInt& v) {
  return WriteValue(self, msg, tag, v);
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDbl& v) {
  return WriteValue(self, msg, tag, v);
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CBool& v) {
  return WriteValue(self, msg, tag, v);
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDate& v) {
  return WriteValue(self, msg, tag, v);
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CString& v) {
  return WriteValue(self, msg, tag, v.ToStr());
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CIntArray& v) {
  return WriteElements(self, msg, tag, v);
}
int SetVal(CMsgBase& self, CMsg& msg, int tag, const CDblArray& v) {
  return WriteElements(self, msg, tag, v);
}

int SetSub(CMsgBase& self, CMsg& msg, int tag, CMsgBase& sub) {
  return Attach(self, msg, tag, sub.ToMsg(), false);
}

int SetArr(CMsgBase& self, CMsg& msg, int tag, CMsgBase_Array& arr) {
  for (int i = 0; i < arr.GetSize(); ++i) {
    int rc = Attach(self, msg, tag, arr.ToMsg(i), true);
    if (rc < 0) return rc;
  }
  return 0;
}

// ---- Dump ----

void DumpHead(const CMsgBase& self, CStream* out, CString&) {
  {
    FieldLine num(out, "<msgnum>");
    num.Put(" : ", 3);
    num.PutInt(self.msgnum);
  }
  FieldLine name(out, "<msgname>");
  name.Put(" : ", 3);
  name.Put(self.msgname.ToStr(), static_cast<size_t>(self.msgname.GetSize()));
}

void DumpTail(CStream* out, CString&) {
  static const char kTail[] = "\n--------------------------------------";
  out->AppendData(kTail, sizeof kTail - 1);
}

void DumpVal(CStream* out, CString&, const char* name, const CInt& v) {
  if (!v.isSet) return DumpText(out, name, "<CInt: unset>");
  char digits[16];
  char* end = std::to_chars(digits, digits + sizeof digits, v.value).ptr;
  DumpText(out, name, digits, static_cast<size_t>(end - digits));
}

void DumpVal(CStream* out, CString&, const char* name, const CDbl& v) {
  if (!v.isSet) return DumpText(out, name, "<CDbl: unset>");
  // The same text as printf's %.15e, infinities and NaNs included.
  char digits[64];
  char* end =
      std::to_chars(digits, digits + sizeof digits, v.value, std::chars_format::scientific, 15).ptr;
  DumpText(out, name, digits, static_cast<size_t>(end - digits));
}

void DumpVal(CStream* out, CString&, const char* name, const CBool& v) {
  DumpText(out, name, !v.isSet ? "<CBool: unset>" : v.value ? "Y" : "N");
}

void DumpVal(CStream* out, CString&, const char* name, const CDate& v) {
  DumpText(out, name, v.isSet ? v.text : "<CDate: unset>");
}

void DumpVal(CStream* out, CString&, const char* name, const CString& v) {
  if (v.IsEmpty()) return DumpText(out, name, "\"\"", 2);
  DumpText(out, name, v.ToStr(), static_cast<size_t>(v.GetSize()));
}

void DumpVal(CStream* out, CString&, const char* name, const CIntArray& v) {
  CString text = v.Repr(", ", false);
  DumpText(out, name, text.ToStr(), static_cast<size_t>(text.GetSize()));
}

void DumpVal(CStream* out, CString&, const char* name, const CDblArray& v) {
  CString text = v.Repr(", ", false);
  DumpText(out, name, text.ToStr(), static_cast<size_t>(text.GetSize()));
}

void DumpVal(CStream* out, CString&, const char* name, const CMsgBase& sub) {
  FieldLine(out, name).Put(" :", 2);
  sub.Dump(out);
}

void DumpVal(CStream* out, CString&, const char* name, const CMsgBase_Array& arr) {
  FieldLine(out, name).Put(" :", 2);
  arr.Dump(out);
}

// ---- arrays ----

int OutOfMemory(CMsgBase_Array& self) {
  FailText(self.errtext, "%s : Out of memory", self.msgname.ToStr());
  return MSG_E_NOMEM;
}

int GrowthStep(int size) {
  int step = size / 8;
  return step < 4 ? 4 : step > 1024 ? 1024 : step;
}

int LoadArray(CMsgBase_Array& self, CMsgArray* arr) {
  if (!arr) return MSG_E_NULLARR;
  int rc = self.SetSize(arr->GetSize());
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

void DumpArray(const CMsgBase_Array& self, CStream* out, const char* className) {
  const size_t nameLen = std::strlen(className);
  for (int i = 0; i < self.GetSize(); ++i) {
    {
      // "\n<className> [i]"
      FieldLine head(out);
      head.Put(className, nameLen);
      head.Put(" [", 2);
      head.PutInt(i);
      head.Put("]", 1);
    }
    if (const CMsgBase* element = self.GetAt(i)) element->Dump(out);
  }
}

void ThrowOutOfIndex(const char* className, int index, int size) {
  throw CException(CFormat("%s::[] out of index (0 <= %d < %d)", className, index, size).ToStr(),
                   MSG_E_INDEX);
}

}  // namespace pricemsg::detail
