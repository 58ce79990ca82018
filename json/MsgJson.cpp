// Message files as JSON: a tree written by walking the classes as the text
// writer does (its texts escaped by nlohmann/json), and read back through
// nlohmann/json's event parser into a document that is then checked against
// the classes.
#include "MsgJson.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "TextCommon.h"

namespace pricemsg::msgjson {
namespace {

using nlohmann::json;
using schema::ClassInfo;
using schema::FieldInfo;
using schema::Kind;
using schema::KindInfo;

// What GetValue gives for a tag that the message lacks.
constexpr int kAbsent = -1;
// The deepest JSON that a tree of kMsgTextMaxDepth messages writes: an
// object for each message, an array for each message array between them, and
// an array of numbers or an object of hex digits at the bottom.
constexpr int kMaxJsonDepth = 2 * kMsgTextMaxDepth + 1;

// The keys of a message object that are not fields.
constexpr const char* kClassKey = "class";
constexpr const char* kNumberKey = "number";
// The key of the object that holds a text that is not valid UTF-8.
constexpr const char* kHexKey = "hex";

constexpr const char* kNaN = "NaN";
constexpr const char* kMinusNaN = "-NaN";
constexpr const char* kInfinity = "Infinity";
constexpr const char* kMinusInfinity = "-Infinity";

using pricemsg::text::ClearError;

// The reason at a place of the input; the code is the caller's to give.
__attribute__((format(printf, 4, 5))) void SetError(MsgTextError* err, int line, int column,
                                                    const char* format, ...) {
  va_list args;
  va_start(args, format);
  pricemsg::text::SetErrorV(err, line, column, format, args);
  va_end(args);
}

// Input shown in a reason: bytes outside printable ASCII as \xHH, and at
// most `max` bytes of it, its end kept when it is cut ("..." before it).
std::string Shown(std::string_view s, size_t max = 80) {
  std::string out;
  size_t from = 0;
  if (s.size() > max) {
    out = "...";
    from = s.size() - max;
  }
  for (size_t i = from; i < s.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x20 || c >= 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// True if the bytes are well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF. Exactly what a JSON string can carry.
bool IsUtf8(const unsigned char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const unsigned char c = s[i];
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
    if (n - i < len || s[i + 1] < lo || s[i + 1] > hi) return false;
    for (size_t k = 2; k < len; ++k) {
      if (s[i + k] < 0x80 || s[i + k] > 0xbf) return false;
    }
    i += len;
  }
  return true;
}

// A JSON pointer to the value being written or read, grown and cut back as
// the walk goes down and up.
class Pointer {
 public:
  size_t Push(std::string_view key) {
    const size_t size = text_.size();
    text_ += '/';
    for (char c : key) {
      if (c == '~') {
        text_ += "~0";
      } else if (c == '/') {
        text_ += "~1";
      } else {
        text_ += c;
      }
    }
    return size;
  }
  size_t Push(size_t index) { return Push(std::to_string(index)); }
  void Pop(size_t size) { text_.resize(size); }
  // As a reason shows it: the outer value is "/".
  std::string ForReason() const { return text_.empty() ? "/" : Shown(text_); }

 private:
  std::string text_;
};

// ---- writing ----

// The shortest text that reads back as the double (the digits of the text
// form), kept a JSON float: "1.0", "-0.0"; the special values as texts.
void PutDouble(std::string& out, double d) {
  if (std::isnan(d)) {
    out += '"';
    out += std::signbit(d) ? kMinusNaN : kNaN;
    out += '"';
    return;
  }
  if (std::isinf(d)) {
    out += '"';
    out += d < 0 ? kMinusInfinity : kInfinity;
    out += '"';
    return;
  }
  char text[32];
  char* end = std::to_chars(text, text + sizeof text, d).ptr;
  out.append(text, end);
  if (std::find_if(text, end, [](char c) { return c == '.' || c == 'e'; }) == end) out += ".0";
}

// A text as a JSON string, escaped by the JSON library; one that is not
// valid UTF-8 as an object of its bytes in hex.
void PutText(std::string& out, const char* text, size_t size, const std::string& indent) {
  if (IsUtf8(reinterpret_cast<const unsigned char*>(text), size)) {
    out += json(std::string(text, size)).dump(-1, ' ', false, json::error_handler_t::strict);
    return;
  }
  static constexpr char kDigits[] = "0123456789abcdef";
  out += "{\n";
  out += indent;
  out += "  \"";
  out += kHexKey;
  out += "\": \"";
  for (size_t i = 0; i < size; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  out += "\"\n";
  out += indent;
  out += '}';
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
      SetError(err_, 0, 0, "no class has the number M%d", msg->msgnum);
      return MSGTEXT_E_CLASS;
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
      const int rc = Field(msg, f, level);
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
  }

  __attribute__((format(printf, 3, 4))) int Fail(int code, const char* format, ...) {
    char reason[sizeof err_->reason];
    va_list args;
    va_start(args, format);
    std::vsnprintf(reason, sizeof reason, format, args);
    va_end(args);
    SetError(err_, 0, 0, "%s: %s", where_.ForReason().c_str(), reason);
    return code;
  }

  // A value array as a JSON array of its elements, each written by `put`;
  // nothing for an absent or empty one.
  template <class A, class Put>
  int PutValues(CMsg* msg, const FieldInfo& f, Put put) {
    A a;
    const int got = Get(msg, f, &a);
    if (got != 1 || a.size <= 0) return got < 0 ? got : MSGTEXT_OK;
    Key(f.name);
    OpenArray();
    for (int i = 0; i < a.size; ++i) {
      Next(i);
      put(a.GetAt(i));
    }
    CloseArray();
    return MSGTEXT_OK;
  }

  // 1 when the message has the value, 0 when it lacks it, and a failure
  // code when the runtime fails.
  template <class V>
  int Get(CMsg* msg, const FieldInfo& f, V* v) {
    const int rc = msg->GetValue(f.tag, v);
    if (rc >= 0) return 1;
    if (rc == kAbsent) return 0;
    return Fail(MSGTEXT_E_RUNTIME, "T%d: the runtime failed to give the value (code %d)", f.tag,
                rc);
  }

  int Field(CMsg* msg, const FieldInfo& f, int level) {
    switch (f.kind) {
      case Kind::kInt: {
        CInt v;
        const int got = Get(msg, f, &v);
        if (got != 1) return got;
        Key(f.name);
        out_ += v.isSet ? std::to_string(v.value) : "null";
        return MSGTEXT_OK;
      }
      case Kind::kDbl: {
        CDbl v;
        const int got = Get(msg, f, &v);
        if (got != 1) return got;
        Key(f.name);
        if (v.isSet) {
          PutDouble(out_, v.value);
        } else {
          out_ += "null";
        }
        return MSGTEXT_OK;
      }
      case Kind::kBool: {
        CBool v;
        const int got = Get(msg, f, &v);
        if (got != 1) return got;
        Key(f.name);
        out_ += !v.isSet ? "null" : v.value ? "true" : "false";
        return MSGTEXT_OK;
      }
      case Kind::kDate: {
        CDate v;
        const int got = Get(msg, f, &v);
        if (got != 1) return got;
        if (!v.isSet) {
          Key(f.name);
          out_ += "null";
          return MSGTEXT_OK;
        }
        const size_t size = strnlen(v.text, sizeof v.text);
        if (size == 0 || size == sizeof v.text) {
          return Fail(MSGTEXT_E_VALUE, "a set date with %s text",
                      size == 0 ? "an empty" : "an unterminated");
        }
        Key(f.name);
        PutText(out_, v.text, size, indent_);
        return MSGTEXT_OK;
      }
      case Kind::kString: {
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
        PutText(out_, text, static_cast<size_t>(size), indent_);
        return MSGTEXT_OK;
      }
      case Kind::kIntArray:
        return PutValues<CIntArray>(msg, f, [this](int v) { out_ += std::to_string(v); });
      case Kind::kDblArray:
        return PutValues<CDblArray>(msg, f, [this](double v) { PutDouble(out_, v); });
      case Kind::kMessage: {
        CMsg* sub = nullptr;
        const int got = Get(msg, f, &sub);
        if (got != 1) return got;
        if (const int rc = Check(sub, f, level)) return rc;
        Key(f.name);
        return Message(sub, schema::HeldClass(f), level + 1);
      }
      case Kind::kMessageArray: {
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
        first_ = false;
        return MSGTEXT_OK;
      }
    }
    return Fail(MSGTEXT_E_CLASS, "a field of no known kind");
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

// ---- parsing ----

// The offset of the '[' or '{' that opens a level deeper than
// kMaxJsonDepth, or npos. Brackets inside strings do not count; input that
// is not JSON is left to the parser, which stops at its first error.
size_t TooDeepAt(const char* text, size_t size) {
  int depth = 0;
  bool inString = false;
  for (size_t i = 0; i < size; ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxJsonDepth) return i;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return std::string_view::npos;
}

struct Member;

// A JSON value as the parser gave it. Objects keep their members sorted by
// key. Freeing a document allocates nothing, so a document dropped because
// memory ran out is freed whole.
struct Value {
  enum class Type : uint8_t { kNull, kBool, kInteger, kUnsigned, kFloat, kString, kArray, kObject };
  Type type = Type::kNull;
  bool boolean = false;
  int64_t integer = 0;
  uint64_t unsignedInteger = 0;
  double number = 0;
  std::string text;
  std::vector<Value> elements;
  std::vector<Member> members;

  bool IsNull() const { return type == Type::kNull; }
  bool IsNumber() const {
    return type == Type::kInteger || type == Type::kUnsigned || type == Type::kFloat;
  }
  bool IsInteger() const { return type == Type::kInteger || type == Type::kUnsigned; }
  double AsDouble() const {
    return type == Type::kFloat     ? number
           : type == Type::kInteger ? static_cast<double>(integer)
                                    : static_cast<double>(unsignedInteger);
  }
  // Of an object: the value under `key`, or null.
  const Value* Find(std::string_view key) const;
  const char* TypeName() const {
    static constexpr const char* kNames[] = {"null",   "boolean", "number", "number",
                                             "number", "string",  "array",  "object"};
    return kNames[static_cast<int>(type)];
  }
};

struct Member {
  std::string key;
  Value value;
};

const Value* Value::Find(std::string_view key) const {
  const auto at = std::lower_bound(members.begin(), members.end(), key,
                                   [](const Member& m, std::string_view k) { return m.key < k; });
  return at != members.end() && at->key == key ? &at->value : nullptr;
}

// Builds the document from the parser's events, keeping what the parser
// does not check: a key given twice in an object, and a number that does not
// fit a double (which the parser would take as zero). Floating numbers are
// read from their own text, as the text reader reads them.
class Builder {
 public:
  explicit Builder(Value* root) : root_(root) {}

  bool null() { return Put(Value{}) != nullptr; }
  bool boolean(bool v) {
    Value* at = Put(Value{});
    at->type = Value::Type::kBool;
    at->boolean = v;
    return true;
  }
  bool number_integer(json::number_integer_t v) {
    Value* at = Put(Value{});
    at->type = Value::Type::kInteger;
    at->integer = v;
    return true;
  }
  bool number_unsigned(json::number_unsigned_t v) {
    Value* at = Put(Value{});
    at->type = Value::Type::kUnsigned;
    at->unsignedInteger = v;
    return true;
  }
  bool number_float(json::number_float_t, const std::string& text) {
    double v = 0;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), v);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size()) {
      return Refuse(text, "is out of the range of a double");
    }
    Value* at = Put(Value{});
    at->type = Value::Type::kFloat;
    at->number = v;
    return true;
  }
  bool string(std::string& v) {
    Value* at = Put(Value{});
    at->type = Value::Type::kString;
    at->text = std::move(v);
    return true;
  }
  bool binary(json::binary_t&) { return false; }  // JSON text holds none
  bool start_object(size_t) { return Open(Value::Type::kObject); }
  bool start_array(size_t) { return Open(Value::Type::kArray); }
  bool key(std::string& k) {
    Value& top = *open_.back();
    top.members.push_back(Member{std::move(k), Value{}});
    return true;
  }
  // Sorts the members by key, and refuses a key given twice.
  bool end_object() {
    std::vector<Member>& members = open_.back()->members;
    std::sort(members.begin(), members.end(),
              [](const Member& a, const Member& b) { return a.key < b.key; });
    const auto twice =
        std::adjacent_find(members.begin(), members.end(),
                           [](const Member& a, const Member& b) { return a.key == b.key; });
    if (twice != members.end()) {
      members.back().key = twice->key;  // the pointer names it
      return Refuse({}, "the key is given twice in its object");
    }
    open_.pop_back();
    return true;
  }
  bool end_array() {
    open_.pop_back();
    return true;
  }
  bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& e) {
    syntax_ = true;
    position_ = position;
    reason_ = e.what();
    return false;
  }

  // Why the events stopped: a syntax error at position() or a value that
  // does not fit at the pointer in reason().
  bool syntax() const { return syntax_; }
  size_t position() const { return position_; }
  const std::string& reason() const { return reason_; }

 private:
  // The pointer of the value being read: the last member or element of each
  // open value.
  std::string Where() const {
    Pointer where;
    for (const Value* v : open_) {
      if (v->type == Value::Type::kObject) {
        where.Push(v->members.empty() ? std::string_view() : v->members.back().key);
      } else {
        where.Push(v->elements.size());
      }
    }
    return where.ForReason();
  }

  bool Refuse(std::string_view value, const char* why) {
    reason_ = Where() + ": ";
    if (!value.empty()) reason_ += Shown(value, 40) + " ";
    reason_ += why;
    return false;
  }

  // Where the next value goes: the root, the next element of an array, or
  // the member whose key came last.
  Value* Put(Value v) {
    if (open_.empty()) {
      *root_ = std::move(v);
      return root_;
    }
    Value& top = *open_.back();
    if (top.type == Value::Type::kArray) {
      top.elements.push_back(std::move(v));
      return &top.elements.back();
    }
    top.members.back().value = std::move(v);
    return &top.members.back().value;
  }

  bool Open(Value::Type type) {
    if (open_.size() >= static_cast<size_t>(kMaxJsonDepth)) {
      return Refuse({}, "the JSON nests too deep");
    }
    Value* at = Put(Value{});
    at->type = type;
    open_.push_back(at);
    return true;
  }

  Value* root_;
  std::vector<Value*> open_;
  bool syntax_ = false;
  size_t position_ = 0;
  std::string reason_;
};

// The line and column (from 1, in bytes) of `offset` in the text; a UTF-8
// byte order mark at the start does not count as columns.
void PositionOf(const char* text, size_t size, size_t offset, int* line, int* column) {
  offset = std::min(offset, size);
  const size_t bom = size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
  long long lines = 1;
  size_t start = bom;
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++lines;
      start = i + 1;
    }
  }
  *line = static_cast<int>(std::min<long long>(lines, INT_MAX));
  *column = static_cast<int>(std::min<size_t>(offset - std::min(offset, start), INT_MAX - 1) + 1);
}

// The parser's reason without its prefix and position: "syntax error while
// parsing value - ...".
std::string ParserReason(const std::string& what) {
  std::string_view s = what;
  if (const size_t end = s.find("] "); s.rfind("[json.exception.", 0) == 0 && end != s.npos) {
    s.remove_prefix(end + 2);
  }
  if (s.rfind("parse error", 0) == 0) {
    if (const size_t colon = s.find(": "); colon != s.npos) s.remove_prefix(colon + 2);
  }
  return Shown(s, 150);
}

// ---- reading the document into a tree ----

class Reader {
 public:
  explicit Reader(MsgTextError* err) : err_(err) {}

  CMsg* Read(const Value& root) {
    dic_ = MA_GetMsgDic();
    const ClassInfo* cls = ClassOf(root, nullptr);
    if (!cls) return nullptr;
    std::unique_ptr<CMsg> msg(new CMsg(cls->number, 0, 0, dic_));
    if (!Fill(*msg, root, *cls, 1)) return nullptr;
    return msg.release();
  }

 private:
  __attribute__((format(printf, 2, 3))) bool Fail(const char* format, ...) {
    char reason[sizeof err_->reason];
    va_list args;
    va_start(args, format);
    std::vsnprintf(reason, sizeof reason, format, args);
    va_end(args);
    SetError(err_, 0, 0, "%s: %s", where_.ForReason().c_str(), reason);
    return false;
  }

  // The pointer goes down to `key` while `step` runs.
  template <class Key, class Step>
  bool At(Key key, Step step) {
    const size_t mark = where_.Push(key);
    const bool ok = step();
    where_.Pop(mark);
    return ok;
  }

  static bool IntOf(const Value& v, int* out) {
    if (v.type == Value::Type::kUnsigned) {
      if (v.unsignedInteger > static_cast<uint64_t>(INT_MAX)) return false;
      *out = static_cast<int>(v.unsignedInteger);
      return true;
    }
    if (v.integer < INT_MIN || v.integer > INT_MAX) return false;
    *out = static_cast<int>(v.integer);
    return true;
  }

  // An integer of `v`, which must be a JSON integer in the range of an int.
  bool Int(const Value& v, int* out, const char* expected) {
    if (!v.IsInteger()) return Fail("expected %s, found %s", expected, v.TypeName());
    if (IntOf(v, out)) return true;
    const std::string n = v.type == Value::Type::kUnsigned ? std::to_string(v.unsignedInteger)
                                                           : std::to_string(v.integer);
    return Fail("%s is out of the range of an integer", n.c_str());
  }

  bool Double(const Value& v, double* out, const char* expected) {
    if (v.IsNumber()) {
      *out = v.AsDouble();
      return true;
    }
    if (v.type == Value::Type::kString) {
      const std::string& s = v.text;
      if (s == kNaN || s == kMinusNaN) {
        *out = s == kNaN ? std::nan("") : -std::nan("");
        return true;
      }
      if (s == kInfinity || s == kMinusInfinity) {
        *out = s == kInfinity ? HUGE_VAL : -HUGE_VAL;
        return true;
      }
      return Fail("expected %s, found the text \"%s\"", expected, Shown(s, 24).c_str());
    }
    return Fail("expected %s, found %s", expected, v.TypeName());
  }

  // The bytes of a text: a string, or an object of hex digits. None may be
  // NUL.
  bool Text(const Value& v, std::string* out, const char* expected) {
    const Value* hex =
        v.type == Value::Type::kObject && v.members.size() == 1 ? v.Find(kHexKey) : nullptr;
    if (v.type == Value::Type::kString) {
      *out = v.text;
    } else if (hex) {
      if (hex->type != Value::Type::kString) {
        return At(kHexKey, [&] { return Fail("expected hex digits, found %s", hex->TypeName()); });
      }
      const std::string& digits = hex->text;
      if (digits.size() % 2 != 0) return Fail("the hex digits are not in pairs");
      out->clear();
      for (size_t i = 0; i < digits.size(); i += 2) {
        unsigned char byte = 0;
        const auto r = std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
        if (r.ec != std::errc() || r.ptr != digits.data() + i + 2) {
          return Fail("\"%s\" is not a pair of hex digits",
                      Shown(std::string_view(digits).substr(i, 2)).c_str());
        }
        *out += static_cast<char>(byte);
      }
    } else {
      return Fail("expected %s, found %s", expected, v.TypeName());
    }
    if (out->find('\0') != std::string::npos) return Fail("a text cannot hold a NUL byte");
    return true;
  }

  bool Stored(const FieldInfo& f, int rc) {
    if (rc >= 0) return true;
    return Fail("T%d: the runtime refused the value (code %d)", f.tag, rc);
  }

  // The class that the message object `v` names, which must be `held`
  // where it is given (a nested message); null after a failure.
  const ClassInfo* ClassOf(const Value& v, const ClassInfo* held) {
    if (v.type != Value::Type::kObject) {
      Fail("expected an object for a message%s%s, found %s", held ? " of " : "",
           held ? held->name : "", v.TypeName());
      return nullptr;
    }
    const ClassInfo* byNumber = nullptr;
    const ClassInfo* byName = nullptr;
    const Value* number = v.Find(kNumberKey);
    if (number) {
      int n = 0;
      if (!At(kNumberKey, [&] { return Int(*number, &n, "a message number"); })) return nullptr;
      byNumber = schema::FindClass(n);
      if (!byNumber) {
        At(kNumberKey, [&] { return Fail("no class has the number M%d", n); });
        return nullptr;
      }
    }
    const Value* name = v.Find(kClassKey);
    if (name) {
      if (name->type != Value::Type::kString) {
        At(kClassKey, [&] { return Fail("expected a class name, found %s", name->TypeName()); });
        return nullptr;
      }
      const std::string& s = name->text;
      byName = schema::FindClass(s);
      if (!byName) {
        At(kClassKey, [&] { return Fail("no class is named \"%s\"", Shown(s, 40).c_str()); });
        return nullptr;
      }
    }
    if (byNumber && byName && byNumber != byName) {
      At(kClassKey, [&] {
        return Fail("%s is class M%d, not M%d, which is %s", byName->name, byName->number,
                    byNumber->number, byNumber->name);
      });
      return nullptr;
    }
    const ClassInfo* cls = byNumber ? byNumber : byName ? byName : held;
    if (!cls) {
      Fail("the message names no class: give \"class\", \"number\" or both");
      return nullptr;
    }
    if (held && cls != held) {
      Fail("the field holds %s (M%d), not %s (M%d)", held->name, held->number, cls->name,
           cls->number);
      return nullptr;
    }
    return cls;
  }

  // The fields of the object `v` into `msg`, in tag order, after every key
  // is found to be one of the class.
  bool Fill(CMsg& msg, const Value& v, const ClassInfo& cls, int level) {
    for (const Member& m : v.members) {
      const std::string& key = m.key;
      if (key == kClassKey || key == kNumberKey) continue;
      const FieldInfo* f = schema::FindField(key);
      if (!f || schema::FindMember(cls, f->tag) != f) {
        return At(key, [&] { return Fail("%s (M%d) has no such field", cls.name, cls.number); });
      }
    }
    for (int i = 0; i < cls.memberCount; ++i) {
      const FieldInfo& f = schema::MemberOf(cls, i);
      const Value* value = v.Find(f.name);
      if (!value) continue;
      if (!At(f.name, [&] { return Field(msg, f, *value, level); })) return false;
    }
    return true;
  }

  bool Field(CMsg& msg, const FieldInfo& f, const Value& v, int level) {
    const KindInfo& kind = schema::InfoOf(f.kind);
    switch (f.kind) {
      case Kind::kInt: {
        CInt n;
        if (!v.IsNull() && !Int(v, &n.value, "an integer or null")) return false;
        n.isSet = !v.IsNull();
        return Stored(f, msg.SetValue(f.tag, n));
      }
      case Kind::kDbl: {
        CDbl d;
        if (!v.IsNull() && !Double(v, &d.value, "a number, \"NaN\", \"Infinity\" or null")) {
          return false;
        }
        d.isSet = !v.IsNull();
        return Stored(f, msg.SetValue(f.tag, d));
      }
      case Kind::kBool: {
        CBool b;
        if (!v.IsNull()) {
          if (v.type != Value::Type::kBool) {
            return Fail("expected true, false or null, found %s", v.TypeName());
          }
          b.value = v.boolean;
          b.isSet = true;
        }
        return Stored(f, msg.SetValue(f.tag, b));
      }
      case Kind::kDate: {
        CDate d;
        if (!v.IsNull()) {
          std::string text;
          if (!Text(v, &text, "a date or null")) return false;
          if (text.empty()) return Fail("an empty date: an unset date is null");
          if (text.size() >= sizeof d.text) {
            return Fail("a date of %zu characters: it holds at most %zu", text.size(),
                        sizeof d.text - 1);
          }
          d.Set(text.c_str());
          if (!d.isSet)
            return Fail("the runtime did not take the date \"%s\"", Shown(text).c_str());
        }
        return Stored(f, msg.SetValue(f.tag, d));
      }
      case Kind::kString: {
        std::string text;
        return Text(v, &text, "a text") && Stored(f, msg.SetValue(f.tag, text.c_str()));
      }
      case Kind::kIntArray:
      case Kind::kDblArray:
      case Kind::kMessageArray: {
        if (v.type != Value::Type::kArray) {
          return Fail("expected an array (%s), found %s", kind.words, v.TypeName());
        }
        for (size_t i = 0; i < v.elements.size(); ++i) {
          if (!At(i, [&] { return Element(msg, f, v.elements[i], level); })) return false;
        }
        return true;
      }
      case Kind::kMessage:
        return Sub(msg, f, v, level);
    }
    return Fail("a field of no known kind");
  }

  bool Element(CMsg& msg, const FieldInfo& f, const Value& v, int level) {
    if (f.kind == Kind::kMessageArray) return Sub(msg, f, v, level);
    if (v.IsNull()) return Fail("an element of an array cannot be null");
    if (f.kind == Kind::kIntArray) {
      int n = 0;
      return Int(v, &n, "an integer") && Stored(f, msg.SetValue(f.tag, n));
    }
    double d = 0;
    return Double(v, &d, "a number, \"NaN\" or \"Infinity\"") && Stored(f, msg.SetValue(f.tag, d));
  }

  // A sub-message of field `f` of `msg`, which takes it over, also when it
  // refuses it.
  bool Sub(CMsg& msg, const FieldInfo& f, const Value& v, int level) {
    const ClassInfo& held = schema::HeldClass(f);
    const ClassInfo* cls = ClassOf(v, &held);
    if (!cls) return false;
    if (level == kMsgTextMaxDepth) {
      return Fail("messages nest more than %d levels deep", kMsgTextMaxDepth);
    }
    std::unique_ptr<CMsg> sub(new CMsg(cls->number, 0, 0, dic_));
    if (!Fill(*sub, v, *cls, level + 1)) return false;
    return Stored(f, msg.SetValue(f.tag, sub.release()));
  }

  MsgTextError* err_;
  CMsgDic* dic_ = nullptr;
  Pointer where_;
};

}  // namespace
}  // namespace pricemsg::msgjson

int MA_WriteMsgJson(CMsg* msg, std::string* out, MsgTextError* err) {
  using namespace pricemsg::msgjson;
  if (!msg || !out) {
    SetError(err, 0, 0, "no %s", msg ? "output" : "message");
    return MSGTEXT_E_ARG;
  }
  return pricemsg::text::AppendWhole(out, err, [&](std::string& to) -> int {
    try {
      return Writer(to, err).Write(msg);
    } catch (const nlohmann::json::exception& e) {
      SetError(err, 0, 0, "%s", e.what());
      return MSGTEXT_E_VALUE;
    }
  });
}

CMsg* MA_ReadMsgJson(const char* text, size_t size, MsgTextError* err) {
  using namespace pricemsg::msgjson;
  if (!text) {
    SetError(err, 0, 0, "no text: a null pointer");
    return nullptr;
  }
  try {
    const size_t deep = TooDeepAt(text, size);
    if (deep != std::string_view::npos) {
      int line, column;
      PositionOf(text, size, deep, &line, &column);
      SetError(err, line, column, "the JSON nests more than %d levels deep", kMaxJsonDepth);
      return nullptr;
    }
    Value root;
    Builder builder(&root);
    if (!json::sax_parse(text, text + size, &builder)) {
      if (builder.syntax()) {
        int line, column;
        // The parser counts the byte it stopped at from 1.
        PositionOf(text, size, builder.position() > 0 ? builder.position() - 1 : 0, &line, &column);
        SetError(err, line, column, "%s", ParserReason(builder.reason()).c_str());
      } else {
        SetError(err, 0, 0, "%s", builder.reason().c_str());
      }
      return nullptr;
    }
    CMsg* msg = Reader(err).Read(root);
    if (msg) ClearError(err);
    return msg;
  } catch (const std::bad_alloc&) {
    SetError(err, 0, 0, "out of memory");
    return nullptr;
  }
}

int MA_WriteMsgJsonFile(CMsg* msg, const char* path, MsgTextError* err) {
  using namespace pricemsg::msgjson;
  if (!path || !*path) {
    SetError(err, 0, 0, "no file name");
    return MSGTEXT_E_ARG;
  }
  try {
    std::string text;
    const int rc = MA_WriteMsgJson(msg, &text, err);
    return rc != MSGTEXT_OK ? rc : pricemsg::text::ReplaceFile(path, text, err);
  } catch (const std::bad_alloc&) {
    SetError(err, 0, 0, "out of memory");
    return MSGTEXT_E_NOMEM;
  }
}

CMsg* MA_ReadMsgJsonFile(const char* path, MsgTextError* err) {
  using namespace pricemsg::msgjson;
  if (!path || !*path) {
    SetError(err, 0, 0, "no file name");
    return nullptr;
  }
  try {
    std::string text;
    if (!pricemsg::text::ReadWholeFile(path, &text, err)) return nullptr;
    return MA_ReadMsgJson(text.data(), text.size(), err);
  } catch (const std::bad_alloc&) {
    SetError(err, 0, 0, "out of memory");
    return nullptr;
  }
}
