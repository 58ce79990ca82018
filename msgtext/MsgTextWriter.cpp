// Writing the text form of a message tree: the class of each message says
// which fields to ask for and as what.
#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <iterator>
#include <new>

#include "MsgText.h"
#include "Reflect.h"
#include "TextCommon.h"

namespace pricemsg::text {
namespace {

// What GetValue gives for a tag that the message lacks.
constexpr int kAbsent = -1;

class Writer {
 public:
  Writer(std::string& out, MsgTextError* err) : out_(out), err_(err) {}

  int Write(CMsg* msg) {
    const ClassInfo* cls = schema::FindClass(msg->msgnum);
    if (!cls) {
      return SetError(err_, MSGTEXT_E_CLASS, 0, 0, "no class has the number M%d", msg->msgnum);
    }
    const int rc = Block(msg, *cls, 1);
    out_ += '\n';
    return rc;
  }

 private:
  // The lines of field `f`, by the writer of its kind.
  int Field(CMsg* msg, const FieldInfo& f) {
    return pricemsg::WithKind(f.kind, [&](auto type) { return Write(msg, f, type); });
  }

  // "M<number> <name> {", a line for each value, and "}" at the indent of
  // the line that holds the block; `level` is 1 for the outer message.
  int Block(CMsg* msg, const ClassInfo& cls, int level) {
    const ClassInfo* outer = cls_;
    cls_ = &cls;
    level_ = level;
    out_ += 'M';
    Number(msg->msgnum);
    out_ += ' ';
    out_ += cls.name;
    out_ += " {\n";
    for (int i = 0; i < cls.memberCount; ++i) {
      if (const int rc = Field(msg, schema::MemberOf(cls, i))) return rc;
    }
    cls_ = outer;
    level_ = level - 1;
    out_.append(2 * static_cast<size_t>(level_), ' ');
    out_ += '}';
    return MSGTEXT_OK;
  }

  // The start of a value line: indent, tag, name and type letter.
  void Head(const FieldInfo& f) {
    out_.append(2 * static_cast<size_t>(level_), ' ');
    out_ += 'T';
    Number(f.tag);
    out_ += ' ';
    out_ += f.name;
    out_ += ' ';
    out_ += schema::InfoOf(f.kind).letter;
    out_ += ' ';
  }

  // An integer, or the shortest text that reads back as the double.
  template <class N>
  void Number(N n) {
    char text[32];
    out_.append(text, std::to_chars(text, text + sizeof text, n).ptr);
  }

  void Quoted(const char* text, size_t size) {
    pricemsg::AppendQuoted(&out_, std::string_view(text, size));
  }

  // The failure of field `f` of the class being written; gives `code`.
  int Fail(int code, const FieldInfo& f, const char* format, ...)
      __attribute__((format(printf, 4, 5))) {
    SetError(err_, code, 0, 0, "%s (M%d) T%d %s: ", cls_->name, cls_->number, f.tag, f.name);
    va_list args;
    va_start(args, format);
    AppendReasonV(err_, format, args);
    va_end(args);
    return code;
  }

  // Asks for the value of `f`: 1 when the message has it, 0 when it lacks
  // it, and a failure code when the runtime fails.
  template <class V>
  int Get(CMsg* msg, const FieldInfo& f, V* v) {
    const RuntimeResult r = CallRuntime([&] { return msg->GetValue(f.tag, v); });
    if (r.rc >= 0) return 1;
    if (r.rc == kAbsent) return 0;
    if (r.noMemory) {
      return Fail(MSGTEXT_E_NOMEM, f, "the runtime ran out of memory (code %d)", r.rc);
    }
    return Fail(MSGTEXT_E_RUNTIME, f, "the runtime failed to give the value (code %d)", r.rc);
  }

  // A value with a set-flag: `put` writes it when it is set.
  template <class V, class Put>
  int Optional(CMsg* msg, const FieldInfo& f, Put put) {
    V v;
    const int got = Get(msg, f, &v);
    if (got <= 0) return got;
    Head(f);
    int rc = MSGTEXT_OK;
    if (v.isSet) {
      rc = put(v);
    } else {
      out_ += '-';
    }
    out_ += '\n';
    return rc;
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CInt>) {
    return Optional<CInt>(msg, f, [this](const CInt& v) -> int {
      Number(v.value);
      return MSGTEXT_OK;
    });
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CDbl>) {
    return Optional<CDbl>(msg, f, [this](const CDbl& v) -> int {
      Number(v.value);
      return MSGTEXT_OK;
    });
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CBool>) {
    return Optional<CBool>(msg, f, [this](const CBool& v) -> int {
      out_ += v.value ? 'Y' : 'N';
      return MSGTEXT_OK;
    });
  }

  // The reader takes a set date as a text of 1 to 8 characters.
  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CDate>) {
    return Optional<CDate>(msg, f, [this, &f](const CDate& v) -> int {
      const size_t size = strnlen(v.text, sizeof v.text);
      if (size == 0 || size == sizeof v.text) {
        return Fail(MSGTEXT_E_VALUE, f, "a set date with %s text",
                    size == 0 ? "an empty" : "an unterminated");
      }
      Quoted(v.text, size);
      return MSGTEXT_OK;
    });
  }

  // The reader takes terminated texts: one with a NUL byte would not read
  // back.
  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CString>) {
    CString v;
    const int got = Get(msg, f, &v);
    if (got <= 0) return got;
    const char* text = v.ToStr();
    const int size = v.GetSize();
    if (size < 0) return Fail(MSGTEXT_E_RUNTIME, f, "the runtime gave a text of %d bytes", size);
    if (strnlen(text, static_cast<size_t>(size)) != static_cast<size_t>(size)) {
      return Fail(MSGTEXT_E_VALUE, f, "a text that holds a NUL byte");
    }
    Head(f);
    Quoted(text, static_cast<size_t>(size));
    out_ += '\n';
    return MSGTEXT_OK;
  }

  template <class A>
  int Elements(CMsg* msg, const FieldInfo& f) {
    A a;
    const int got = Get(msg, f, &a);
    if (got <= 0) return got;
    for (int i = 0; i < a.size; ++i) {
      Head(f);
      Number(a.GetAt(i));
      out_ += '\n';
    }
    return MSGTEXT_OK;
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CIntArray>) {
    return Elements<CIntArray>(msg, f);
  }
  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CDblArray>) {
    return Elements<CDblArray>(msg, f);
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CMsgBase>) {
    CMsg* sub = nullptr;
    const int got = Get(msg, f, &sub);
    return got <= 0 ? got : Sub(sub, f);
  }

  int Write(CMsg* msg, const FieldInfo& f, TypeTag<CMsgBase_Array>) {
    CMsgArray subs(true);
    const int got = Get(msg, f, &subs);
    if (got <= 0) return got;
    for (int i = 0, n = subs.GetSize(); i < n; ++i) {
      if (const int rc = Sub(subs.GetAt(i), f)) return rc;
    }
    return MSGTEXT_OK;
  }

  // A sub-message of field `f` as a nested block.
  int Sub(CMsg* sub, const FieldInfo& f) {
    const ClassInfo& held = schema::HeldClass(f);
    if (!sub) return Fail(MSGTEXT_E_RUNTIME, f, "the runtime gave no message");
    if (sub->msgnum != held.number) {
      return Fail(MSGTEXT_E_CLASS, f, "a message M%d where the field holds %s (M%d)", sub->msgnum,
                  held.name, held.number);
    }
    if (level_ == kMsgTextMaxDepth) {
      return Fail(MSGTEXT_E_DEPTH, f, "messages nest more than %d levels deep", kMsgTextMaxDepth);
    }
    Head(f);
    const int rc = Block(sub, held, level_ + 1);
    out_ += '\n';
    return rc;
  }

  std::string& out_;
  MsgTextError* err_;
  const ClassInfo* cls_ = nullptr;  // of the block being written
  int level_ = 0;                   // its depth, 1 for the outer message
};

}  // namespace
}  // namespace pricemsg::text

int MA_WriteMsgText(CMsg* msg, std::string* out, MsgTextError* err) {
  using pricemsg::text::ClearError;
  using pricemsg::text::SetError;
  using pricemsg::text::Writer;
  if (!msg || !out) {
    return SetError(err, MSGTEXT_E_ARG, 0, 0, "no %s", msg ? "output" : "message");
  }
  return pricemsg::text::AppendWhole(out, err,
                                     [&](std::string& to) { return Writer(to, err).Write(msg); });
}
