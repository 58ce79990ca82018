// Writing the JSON of a message tree, walking the classes as the text writer
// does; texts are escaped by nlohmann/json.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "JsonCommon.h"

namespace pricemsg::msgjson {
namespace {

using nlohmann::json;

// What GetValue gives for a tag that the message lacks.
constexpr int kAbsent = -1;

// True if the bytes are well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF. Exactly what a JSON string can carry.
bool IsUtf8(std::string_view s) {
  size_t i = 0;
  const size_t n = s.size();
  auto at = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  while (i < n) {
    const unsigned char c = at(i);
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len;
    unsigned char lo = 0x80, hi = 0xbf;  // the range of the second byte
    if (c >= 0xc2 && c <= 0xdf) {
      len = 2;
    } else if (c >= 0xe0 && c <= 0xef) {
      len = 3;
      if (c == 0xe0) lo = 0xa0;
      if (c == 0xed) hi = 0x9f;
    } else if (c >= 0xf0 && c <= 0xf4) {
      len = 4;
      if (c == 0xf0) lo = 0x90;
      if (c == 0xf4) hi = 0x8f;
    } else {
      return false;
    }
    if (n - i < len || at(i + 1) < lo || at(i + 1) > hi) return false;
    for (size_t k = 2; k < len; ++k) {
      if (at(i + k) < 0x80 || at(i + k) > 0xbf) return false;
    }
    i += len;
  }
  return true;
}

// The shortest text that reads back as the double (the digits of the text
// form), kept a JSON float: "1.0", "-0.0"; the special values as texts.
void PutDouble(std::string& out, double d) {
  if (std::isnan(d) || std::isinf(d)) {
    out += '"';
    out +=
        std::isnan(d) ? (std::signbit(d) ? kMinusNaN : kNaN) : (d < 0 ? kMinusInfinity : kInfinity);
    out += '"';
    return;
  }
  char text[32];
  char* end = std::to_chars(text, text + sizeof text, d).ptr;
  out.append(text, end);
  if (std::find_if(text, end, [](char c) { return c == '.' || c == 'e'; }) == end) out += ".0";
}

// Writes the JSON of a tree, walking the classes: for each field of the
// class, in tag order, the value that CMsg::GetValue gives for its kind.
// Objects and arrays take a line for each member, indented by two blanks a
// level, as the JSON library lays them out.
class Writer {
 public:
  Writer(std::string& out, MsgTextError* err) : out_(out), err_(err) {}

  int Write(CMsg* msg) {
    const ClassInfo* cls = schema::FindClass(msg->msgnum);
    if (!cls) {
      return text::SetError(err_, MSGTEXT_E_CLASS, 0, 0, "no class has the number M%d",
                            msg->msgnum);
    }
    const int rc = Message(msg, *cls, 1);
    out_ += '\n';
    return rc;
  }

 private:
  int Message(CMsg* msg, const ClassInfo& cls, int level) {
    out_ += '{';
    indent_ += "  ";
    first_ = true;
    Key(kClassKey);
    out_ += '"';
    out_ += cls.name;
    out_ += '"';
    Key(kNumberKey);
    out_ += std::to_string(cls.number);
    for (int i = 0; i < cls.memberCount; ++i) {
      const FieldInfo& f = schema::MemberOf(cls, i);
      const size_t mark = where_.Push(f.name);
      const int rc = WithKind(f.kind, [&](auto type) { return Put(msg, f, level, type); });
      where_.Pop(mark);
      if (rc != MSGTEXT_OK) return rc;
    }
    indent_.resize(indent_.size() - 2);
    out_ += '\n';
    out_ += indent_;
    out_ += '}';
    return MSGTEXT_OK;
  }

  // Starts the next member of the object being written.
  void Key(const char* name) {
    out_ += first_ ? "\n" : ",\n";
    first_ = false;
    out_ += indent_;
    out_ += '"';
    out_ += name;
    out_ += "\": ";
  }

  // Starts the next element of the array being written.
  void Next(int i) {
    out_ += i == 0 ? "\n" : ",\n";
    out_ += indent_;
  }

  void OpenArray() {
    out_ += '[';
    indent_ += "  ";
  }

  void CloseArray() {
    indent_.resize(indent_.size() - 2);
    out_ += '\n';
    out_ += indent_;
    out_ += ']';
    first_ = false;
  }

  __attribute__((format(printf, 3, 4))) int Fail(int code, const char* format, ...) {
    text::SetError(err_, code, 0, 0, "%s: ", where_.ForReason().c_str());
    va_list args;
    va_start(args, format);
    text::AppendReasonV(err_, format, args);
    va_end(args);
    return code;
  }

  // 1 when the message has the value, 0 when it lacks it, and a failure
  // code when the runtime fails.
  template <class V>
  int Get(CMsg* msg, const FieldInfo& f, V* v) {
    const text::RuntimeResult r = text::CallRuntime([&] { return msg->GetValue(f.tag, v); });
    if (r.rc >= 0) return 1;
    if (r.rc == kAbsent) return 0;
    if (r.noMemory) {
      return Fail(MSGTEXT_E_NOMEM, "T%d: the runtime ran out of memory (code %d)", f.tag, r.rc);
    }
    return Fail(MSGTEXT_E_RUNTIME, "T%d: the runtime failed to give the value (code %d)", f.tag,
                r.rc);
  }

  // A text as a JSON string, escaped by the JSON library; one that is not
  // valid UTF-8 as an object of its bytes in hex.
  void PutText(std::string_view text) {
    if (IsUtf8(text)) {
      out_ += json(std::string(text)).dump(-1, ' ', false, json::error_handler_t::strict);
      return;
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    out_ += "{\n";
    out_ += indent_;
    out_ += "  \"";
    out_ += kHexKey;
    out_ += "\": \"";
    for (const char ch : text) {
      const unsigned char c = static_cast<unsigned char>(ch);
      out_ += kDigits[c >> 4];
      out_ += kDigits[c & 15];
    }
    out_ += "\"\n";
    out_ += indent_;
    out_ += '}';
  }

  // A value with a set-flag: null when unset, else what `put` writes.
  template <class V, class PutFn>
  int Optional(CMsg* msg, const FieldInfo& f, PutFn put) {
    V v;
    const int got = Get(msg, f, &v);
    if (got != 1) return got;
    if (!v.isSet) {
      Key(f.name);
      out_ += "null";
      return MSGTEXT_OK;
    }
    return put(v);
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CInt>) {
    return Optional<CInt>(msg, f, [&](const CInt& v) -> int {
      Key(f.name);
      out_ += std::to_string(v.value);
      return MSGTEXT_OK;
    });
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CDbl>) {
    return Optional<CDbl>(msg, f, [&](const CDbl& v) -> int {
      Key(f.name);
      PutDouble(out_, v.value);
      return MSGTEXT_OK;
    });
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CBool>) {
    return Optional<CBool>(msg, f, [&](const CBool& v) -> int {
      Key(f.name);
      out_ += v.value ? "true" : "false";
      return MSGTEXT_OK;
    });
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CDate>) {
    return Optional<CDate>(msg, f, [&](const CDate& v) -> int {
      const size_t size = strnlen(v.text, sizeof v.text);
      if (size == 0 || size == sizeof v.text) {
        return Fail(MSGTEXT_E_VALUE, "a set date with %s text",
                    size == 0 ? "an empty" : "an unterminated");
      }
      Key(f.name);
      PutText(std::string_view(v.text, size));
      return MSGTEXT_OK;
    });
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CString>) {
    CString v;
    const int got = Get(msg, f, &v);
    if (got != 1) return got;
    const char* text = v.ToStr();
    const int size = v.GetSize();
    if (size < 0) return Fail(MSGTEXT_E_RUNTIME, "the runtime gave a text of %d bytes", size);
    if (strnlen(text, static_cast<size_t>(size)) != static_cast<size_t>(size)) {
      return Fail(MSGTEXT_E_VALUE, "a text that holds a NUL byte");
    }
    Key(f.name);
    PutText(std::string_view(text, static_cast<size_t>(size)));
    return MSGTEXT_OK;
  }

  // A value array as a JSON array of its elements; nothing for an absent or
  // empty one.
  template <class A>
  int Elements(CMsg* msg, const FieldInfo& f) {
    A a;
    const int got = Get(msg, f, &a);
    if (got != 1 || a.size <= 0) return got < 0 ? got : MSGTEXT_OK;
    Key(f.name);
    OpenArray();
    for (int i = 0; i < a.size; ++i) {
      Next(i);
      if constexpr (std::is_same_v<A, CDblArray>) {
        PutDouble(out_, a.GetAt(i));
      } else {
        out_ += std::to_string(a.GetAt(i));
      }
    }
    CloseArray();
    return MSGTEXT_OK;
  }

  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CIntArray>) {
    return Elements<CIntArray>(msg, f);
  }
  int Put(CMsg* msg, const FieldInfo& f, int, TypeTag<CDblArray>) {
    return Elements<CDblArray>(msg, f);
  }

  int Put(CMsg* msg, const FieldInfo& f, int level, TypeTag<CMsgBase>) {
    CMsg* sub = nullptr;
    const int got = Get(msg, f, &sub);
    if (got != 1) return got;
    if (const int rc = Check(sub, f, level)) return rc;
    Key(f.name);
    return Message(sub, schema::HeldClass(f), level + 1);
  }

  int Put(CMsg* msg, const FieldInfo& f, int level, TypeTag<CMsgBase_Array>) {
    CMsgArray subs(true);
    const int got = Get(msg, f, &subs);
    const int n = got == 1 ? subs.GetSize() : 0;
    if (n <= 0) return got < 0 ? got : MSGTEXT_OK;
    Key(f.name);
    OpenArray();
    for (int i = 0; i < n; ++i) {
      const size_t mark = where_.Push(static_cast<size_t>(i));
      CMsg* sub = subs.GetAt(i);
      int rc = Check(sub, f, level);
      if (rc == MSGTEXT_OK) {
        Next(i);
        rc = Message(sub, schema::HeldClass(f), level + 1);
      }
      where_.Pop(mark);
      if (rc != MSGTEXT_OK) return rc;
    }
    CloseArray();
    return MSGTEXT_OK;
  }

  // A sub-message of field `f` must be of the class that the field holds.
  int Check(CMsg* sub, const FieldInfo& f, int level) {
    const ClassInfo& held = schema::HeldClass(f);
    if (!sub) return Fail(MSGTEXT_E_RUNTIME, "the runtime gave no message");
    if (sub->msgnum != held.number) {
      return Fail(MSGTEXT_E_CLASS, "a message M%d where the field holds %s (M%d)", sub->msgnum,
                  held.name, held.number);
    }
    if (level == kMsgTextMaxDepth) {
      return Fail(MSGTEXT_E_DEPTH, "messages nest more than %d levels deep", kMsgTextMaxDepth);
    }
    return MSGTEXT_OK;
  }

  std::string& out_;
  MsgTextError* err_;
  std::string indent_;
  bool first_ = true;  // no member of the object being written yet
  Pointer where_;
};

}  // namespace
}  // namespace pricemsg::msgjson

int MA_WriteMsgJson(CMsg* msg, std::string* out, MsgTextError* err) {
  using pricemsg::text::SetError;
  if (!msg || !out) return SetError(err, MSGTEXT_E_ARG, 0, 0, "no %s", msg ? "output" : "message");
  return pricemsg::text::AppendWhole(out, err, [&](std::string& to) -> int {
    try {
      return pricemsg::msgjson::Writer(to, err).Write(msg);
    } catch (const nlohmann::json::exception& e) {
      return SetError(err, MSGTEXT_E_VALUE, 0, 0, "%s", e.what());
    }
  });
}

int MA_WriteMsgJsonFile(CMsg* msg, const char* path, MsgTextError* err) {
  return pricemsg::text::WriteFileWith(MA_WriteMsgJson, msg, path, err);
}

int MA_WriteMsgJsonTemplate(int classNumber, std::string* out, MsgTextError* err) {
  using pricemsg::text::SetError;
  if (!out) return SetError(err, MSGTEXT_E_ARG, 0, 0, "no output");
  try {
    std::string text;
    if (const int rc = MA_WriteMsgTemplate(classNumber, &text, err)) return rc;
    const std::unique_ptr<CMsg> msg(MA_ReadMsgText(text.data(), text.size(), err));
    if (!msg) return err ? err->code : MSGTEXT_E_TEXT;
    return MA_WriteMsgJson(msg.get(), out, err);
  } catch (const std::bad_alloc&) {
    return SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
  }
}
