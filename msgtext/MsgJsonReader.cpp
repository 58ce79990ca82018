// Reading a message tree from JSON as a stream: nlohmann/json's event parser
// hands over each key and value as it reads it, and the reader checks it
// against the classes and stores it in the tree at once, so that the tree is
// the only copy of the document that is kept.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "JsonCommon.h"

namespace pricemsg::msgjson {
namespace {

using nlohmann::json;

// A scalar value of the JSON, as an event gives it.
struct Scalar {
  enum Type { kNull, kBool, kInteger, kUnsigned, kFloat, kString } type = kNull;
  bool boolean = false;
  int64_t integer = 0;
  uint64_t unsignedInteger = 0;
  std::string_view text;  // of a float, as written; of a string, its bytes

  const char* TypeName() const {
    static constexpr const char* kNames[] = {"null",   "boolean", "number",
                                             "number", "number",  "string"};
    return kNames[type];
  }
  bool IsNumber() const { return type == kInteger || type == kUnsigned || type == kFloat; }
};

// The iterator that the parser reads the text through; it tells the reader
// how far the parser has read.
class Tracked {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  Tracked(const char* at, const char** read) : at_(at), read_(read) {}
  reference operator*() const { return *at_; }
  Tracked& operator++() {
    *read_ = ++at_;
    return *this;
  }
  Tracked operator++(int) {
    Tracked before = *this;
    ++*this;
    return before;
  }
  bool operator==(const Tracked& o) const { return at_ == o.at_; }
  bool operator!=(const Tracked& o) const { return at_ != o.at_; }

 private:
  const char* at_;
  const char** read_;
};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

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

// What the outer object says of its class, "class" and "number" wherever
// they stand among its keys: the events of a first look that stops as soon
// as it has both (at once, where they come first, as the writer writes
// them).
class RootKeys {
 public:
  std::string name;
  bool hasName = false;
  int64_t number = 0;
  bool hasNumber = false;

  bool null() { return Next(); }
  bool boolean(bool) { return Next(); }
  bool number_integer(json::number_integer_t v) { return Number(v); }
  bool number_unsigned(json::number_unsigned_t v) {
    return Number(v > static_cast<uint64_t>(INT64_MAX) ? -1 : static_cast<int64_t>(v));
  }
  bool number_float(json::number_float_t, const std::string&) { return Next(); }
  bool string(std::string& v) {
    if (depth_ == 1 && pending_ == kClass) {
      name = v;
      hasName = true;
    }
    return Next();
  }
  bool binary(json::binary_t&) { return false; }
  bool start_object(size_t) { return Open(); }
  bool start_array(size_t) { return Open(); }
  bool end_object() { return --depth_ > 0; }
  bool end_array() { return --depth_ > 0; }
  bool key(std::string& k) {
    if (depth_ == 1) pending_ = k == kClassKey ? kClass : k == kNumberKey ? kNumber : kOther;
    return true;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

 private:
  enum Pending { kOther, kClass, kNumber };

  bool Number(int64_t v) {
    if (depth_ == 1 && pending_ == kNumber) {
      number = v;
      hasNumber = true;
    }
    return Next();
  }
  bool Next() {
    pending_ = kOther;
    return !(hasName && hasNumber);
  }
  bool Open() {
    pending_ = kOther;
    ++depth_;
    return true;
  }

  int depth_ = 0;
  Pending pending_ = kOther;
};

// Reads the events of the parser into a tree. Each open JSON object or array
// that matters is a frame: a message, the elements of an array field, or the
// hex digits of a text. A message is built while its object is open and
// attached to its parent when it closes; until then the reader owns it, and
// on failure it deletes every message it still owns.
class Reader {
 public:
  Reader(const char* text, size_t size, MsgTextError* err)
      : text_(text), size_(size), err_(err), read_(text) {}
  ~Reader() {
    for (Frame& f : frames_) {
      if (f.type == Frame::kMessage) delete f.msg;
    }
    delete done_;
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  CMsg* Read() {
    dic_ = MA_GetMsgDic();
    json::sax_parse(text_, text_ + size_, &rootKeys_);
    Tracked first(text_, &read_), last(text_ + size_, &read_);
    const bool ok = json::sax_parse(first, last, this);
    if (!ok) return nullptr;
    if (!done_) {
      FailAt(size_, "no message");
      return nullptr;
    }
    CMsg* done = done_;
    done_ = nullptr;
    return done;
  }

  // ---- the events ----

  bool null() { return Value(Scalar{}); }
  bool boolean(bool v) {
    Scalar s;
    s.type = Scalar::kBool;
    s.boolean = v;
    return Value(s);
  }
  bool number_integer(json::number_integer_t v) {
    Scalar s;
    s.type = Scalar::kInteger;
    s.integer = v;
    return Value(s);
  }
  bool number_unsigned(json::number_unsigned_t v) {
    Scalar s;
    s.type = Scalar::kUnsigned;
    s.unsignedInteger = v;
    return Value(s);
  }
  bool number_float(json::number_float_t, const std::string& text) {
    Scalar s;
    s.type = Scalar::kFloat;
    s.text = text;
    return Value(s);
  }
  bool string(std::string& v) {
    Scalar s;
    s.type = Scalar::kString;
    s.text = v;
    return Value(s);
  }
  bool binary(json::binary_t&) { return false; }  // JSON text holds none

  bool start_object(size_t) {
    const size_t at = Start();
    if (frames_.empty()) return OpenMessage(at, nullptr, nullptr);
    Frame& top = frames_.back();
    if (top.type == Frame::kArray) {
      if (top.field->kind != Kind::kMessageArray) {
        AtElement(top);
        return Expected(at, "object");
      }
      return OpenMessage(at, top.field, &schema::HeldClass(*top.field));
    }
    if (top.type == Frame::kHex) return Expected(at, "object");
    if (top.key != Key::kField) return Expected(at, "object");
    const Kind kind = top.field->kind;
    if (kind == Kind::kMessage) return OpenMessage(at, top.field, &schema::HeldClass(*top.field));
    if (kind == Kind::kDate || kind == Kind::kString) {
      Push(Frame::kHex, top.msg, top.field, at);
      return true;
    }
    return Expected(at, "object");
  }

  bool start_array(size_t) {
    const size_t at = Start();
    if (!frames_.empty() && frames_.back().type == Frame::kArray) AtElement(frames_.back());
    if (frames_.empty() || frames_.back().type != Frame::kMessage ||
        frames_.back().key != Key::kField || !schema::InfoOf(frames_.back().field->kind).repeats) {
      return Expected(at, "array");
    }
    Push(Frame::kArray, frames_.back().msg, frames_.back().field, at);
    return true;
  }

  bool key(std::string& k) {
    const size_t at = Start();
    Frame& top = frames_.back();
    if (top.type == Frame::kHex) {
      if (k != kHexKey || top.hexSeen) {
        return FailAt(at, "a text that is not UTF-8 is an object with the one key \"%s\"", kHexKey);
      }
      top.hexSeen = true;
      return true;
    }
    // A message: "class", "number" or a field of its class, each once.
    where_.Pop(top.mark);
    where_.Push(k);
    if (k == kClassKey || k == kNumberKey) {
      top.key = k == kClassKey ? Key::kClass : Key::kNumber;
      return Once(at, top.key == Key::kClass ? 0 : 1);
    }
    if (!top.cls) {
      return FailAt(at, "the message names no class: give \"%s\", \"%s\" or both", kClassKey,
                    kNumberKey);
    }
    const FieldInfo* f = schema::FindMember(*top.cls, k);
    if (!f) {
      return FailAt(at, "%s (M%d) has no field \"%s\"", top.cls->name, top.cls->number,
                    Shown(k, 40).c_str());
    }
    top.key = Key::kField;
    top.field = f;
    return Once(at, 2 + static_cast<size_t>(schema::MemberIndex(*top.cls, f->tag)));
  }

  bool end_object() {
    before_ = read_;
    Frame& top = frames_.back();
    if (top.type == Frame::kHex) return CloseHex();
    if (!top.cls)
      return FailAt(top.start, "the message names no class: give \"%s\", \"%s\" or both", kClassKey,
                    kNumberKey);
    CMsg* msg = top.msg;
    const FieldInfo* holder = top.holder;
    const size_t start = top.start;
    where_.Pop(top.mark);
    seen_.resize(top.seen);
    frames_.pop_back();
    if (!holder) {
      done_ = msg;
      return true;
    }
    // The parent takes the message over, also when it refuses it.
    Frame& parent = frames_.back();
    if (parent.type == Frame::kArray) ++parent.elements;
    return Store(start, *parent.msg, *holder, msg);
  }

  bool end_array() {
    before_ = read_;
    where_.Pop(frames_.back().mark);
    frames_.pop_back();
    return true;
  }

  bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& e) {
    // The parser counts the byte it stopped at from 1.
    int line, column;
    text::PositionOf(text_, size_, position > 0 ? position - 1 : 0, &line, &column);
    text::SetError(err_, MSGTEXT_E_TEXT, line, column, "%s", ParserReason(e.what()).c_str());
    return false;
  }

 private:
  enum class Key { kNone, kClass, kNumber, kField };

  struct Frame {
    enum Type { kMessage, kArray, kHex } type = kMessage;
    CMsg* msg = nullptr;                // kMessage: the message, owned; else the field's message
    const ClassInfo* cls = nullptr;     // kMessage: its class, once named (known when nested)
    const FieldInfo* field = nullptr;   // kMessage: of the last key; else the field it is of
    const FieldInfo* holder = nullptr;  // kMessage: the field of the parent that holds it
    Key key = Key::kNone;               // kMessage: what the last key was
    size_t seen = 0;                    // kMessage: where its keys' flags start in seen_
    size_t start = 0;                   // the offset of its '{' or '['
    size_t mark = 0;                    // the length of the pointer to it
    int elements = 0;                   // kArray: the elements so far
    std::string hex;                    // kHex: the digits
    bool hexSeen = false;               // kHex: the key "hex" came
  };

  // Opens a frame for the value at hand, whose pointer ends here.
  Frame& Push(Frame::Type type, CMsg* msg, const FieldInfo* field, size_t at) {
    Frame f;
    f.type = type;
    f.msg = msg;
    f.field = field;
    f.start = at;
    f.mark = where_.Size();
    frames_.push_back(std::move(f));
    return frames_.back();
  }

  // Points at the next element of an array frame.
  void AtElement(const Frame& array) {
    where_.Pop(array.mark);
    where_.Push(static_cast<size_t>(array.elements));
  }

  // Where the value of the event being handled starts: after the blanks and
  // the ',' or ':' that follow what the parser had read at the event
  // before. (The parser reads one byte past a number: it is a blank, ',',
  // ']' or '}', which this skips or which no value follows.)
  size_t Start() {
    const char* p = before_;
    while (p < text_ + size_ && (IsSpace(*p) || *p == ',' || *p == ':')) ++p;
    before_ = read_;
    return static_cast<size_t>(p - text_);
  }

  // The text of the value that starts at `at`, for a reason: a string to
  // its closing quote, anything else to the next delimiter, at most 40
  // bytes of it from its start.
  std::string ValueAt(size_t at) const {
    std::string_view rest(text_ + at, size_ - at);
    size_t end = 0;
    if (!rest.empty() && rest[0] == '"') {
      for (end = 1; end < rest.size() && rest[end] != '"'; ++end) {
        if (rest[end] == '\\') ++end;
      }
      end = std::min(end + 1, rest.size());
    } else {
      while (end < rest.size() && !IsSpace(rest[end]) && rest[end] != ',' && rest[end] != ']' &&
             rest[end] != '}')
        ++end;
    }
    return Shown(rest.substr(0, end), 40);
  }

  __attribute__((format(printf, 3, 4))) bool FailAt(size_t at, const char* format, ...) {
    int line, column;
    text::PositionOf(text_, size_, at, &line, &column);
    text::SetError(err_, MSGTEXT_E_TEXT, line, column, "%s: ", where_.ForReason().c_str());
    va_list args;
    va_start(args, format);
    text::AppendReasonV(err_, format, args);
    va_end(args);
    return false;
  }

  bool Expected(size_t at, const char* found) {
    if (frames_.empty()) return FailAt(at, "expected an object for a message, found %s", found);
    const Frame& top = frames_.back();
    if (top.type == Frame::kHex) return FailAt(at, "expected hex digits, found %s", found);
    if (top.type == Frame::kArray) {
      if (top.field->kind == Kind::kMessageArray) {
        return FailAt(at, "expected an object for a message of %s, found %s",
                      schema::HeldClass(*top.field).name, found);
      }
      return FailAt(at, "expected %s, found %s",
                    top.field->kind == Kind::kIntArray ? "an integer" : "a number", found);
    }
    if (top.key == Key::kClass) return FailAt(at, "expected a class name, found %s", found);
    if (top.key == Key::kNumber) return FailAt(at, "expected a message number, found %s", found);
    const FieldInfo& f = *top.field;
    if (schema::InfoOf(f.kind).repeats) {
      return FailAt(at, "expected an array (%s), found %s", schema::InfoOf(f.kind).words, found);
    }
    if (f.kind == Kind::kMessage) {
      return FailAt(at, "expected an object for a message of %s, found %s",
                    schema::HeldClass(f).name, found);
    }
    return FailAt(at, "expected %s, found %s",
                  WithKind(f.kind, [](auto type) { return Wanted(type); }), found);
  }

  // What a value of each kind is in JSON, for reasons.
  static const char* Wanted(TypeTag<CInt>) { return "an integer or null"; }
  static const char* Wanted(TypeTag<CDbl>) { return "a number, \"NaN\", \"Infinity\" or null"; }
  static const char* Wanted(TypeTag<CBool>) { return "true, false or null"; }
  static const char* Wanted(TypeTag<CDate>) { return "a date or null"; }
  static const char* Wanted(TypeTag<CString>) { return "a text"; }
  template <class T>
  static const char* Wanted(TypeTag<T>) {
    return "an array or an object";  // the kinds above say what they hold
  }

  // Marks key `index` of the message on top as given; a second time fails.
  bool Once(size_t at, size_t index) {
    const Frame& top = frames_.back();
    const size_t i = top.seen + index;
    if (seen_[i]) return FailAt(at, "the key is given twice in its object");
    seen_[i] = true;
    return true;
  }

  bool OpenMessage(size_t at, const FieldInfo* holder, const ClassInfo* held) {
    if (Depth() == kMsgTextMaxDepth) {
      return FailAt(at, "messages nest more than %d levels deep", kMsgTextMaxDepth);
    }
    if (!frames_.empty() && frames_.back().type == Frame::kArray) AtElement(frames_.back());
    Frame& f = Push(Frame::kMessage, nullptr, nullptr, at);
    f.holder = holder;
    f.seen = seen_.size();
    seen_.resize(f.seen + 2, false);  // "class" and "number"; the fields once named
    if (!held) held = RootClass();
    if (held) Named(*held);
    return true;
  }

  // The class of the outer message, as its keys name it, wherever they
  // stand: by number, else by name; null if they name none. The keys are
  // checked again where they stand.
  const ClassInfo* RootClass() const {
    const ClassInfo* byNumber =
        rootKeys_.hasNumber && rootKeys_.number >= INT_MIN && rootKeys_.number <= INT_MAX
            ? schema::FindClass(static_cast<int>(rootKeys_.number))
            : nullptr;
    return byNumber ? byNumber : rootKeys_.hasName ? schema::FindClass(rootKeys_.name) : nullptr;
  }

  int Depth() const {
    return static_cast<int>(std::count_if(
        frames_.begin(), frames_.end(), [](const Frame& f) { return f.type == Frame::kMessage; }));
  }

  // The message on top is of `cls`: its message is made.
  void Named(const ClassInfo& cls) {
    Frame& top = frames_.back();
    seen_.resize(top.seen + 2 + static_cast<size_t>(cls.memberCount), false);
    top.msg = new CMsg(cls.number, 0, 0, dic_);
    top.cls = &cls;
  }

  // "class" or "number" of the message on top: for one whose class is
  // known, it must be that class.
  bool ClassKey(size_t at, const ClassInfo* named) {
    Frame& top = frames_.back();
    if (!top.cls) {
      Named(*named);
      return true;
    }
    if (named == top.cls) return true;
    if (top.holder) {
      return FailAt(at, "the field holds %s (M%d), not %s (M%d)", top.cls->name, top.cls->number,
                    named->name, named->number);
    }
    return FailAt(at, "%s is class M%d, not M%d, which is %s", named->name, named->number,
                  top.cls->number, top.cls->name);
  }

  bool Value(const Scalar& v) {
    const size_t at = Start();
    if (frames_.empty()) return Expected(at, v.TypeName());
    Frame& top = frames_.back();
    switch (top.type) {
      case Frame::kHex:
        if (v.type != Scalar::kString) return Expected(at, v.TypeName());
        top.hex.assign(v.text);
        return true;
      case Frame::kArray:
        AtElement(top);
        ++top.elements;
        if (top.field->kind == Kind::kMessageArray) return Expected(at, v.TypeName());
        return Element(at, top, v);
      case Frame::kMessage:
        break;
    }
    switch (top.key) {
      case Key::kClass: {
        if (v.type != Scalar::kString) return Expected(at, v.TypeName());
        const ClassInfo* cls = schema::FindClass(v.text);
        if (!cls) return FailAt(at, "no class is named \"%s\"", Shown(v.text, 40).c_str());
        return ClassKey(at, cls);
      }
      case Key::kNumber: {
        int n = 0;
        if (!v.IsNumber()) return Expected(at, v.TypeName());
        if (!Int(at, v, &n, "a message number")) return false;
        const ClassInfo* cls = schema::FindClass(n);
        if (!cls) return FailAt(at, "no class has the number M%d", n);
        return ClassKey(at, cls);
      }
      case Key::kField:
        return WithKind(top.field->kind, [&](auto type) { return Put(at, top, v, type); });
      case Key::kNone:
        break;
    }
    return Expected(at, v.TypeName());
  }

  // ---- values ----

  // An integer in the range of an int; a number that is no integer, or one
  // out of range, is refused naming what it is for and the range.
  bool Int(size_t at, const Scalar& v, int* out, const char* what) {
    if (v.type == Scalar::kInteger && v.integer >= INT_MIN && v.integer <= INT_MAX) {
      *out = static_cast<int>(v.integer);
      return true;
    }
    if (v.type == Scalar::kUnsigned && v.unsignedInteger <= static_cast<uint64_t>(INT_MAX)) {
      *out = static_cast<int>(v.unsignedInteger);
      return true;
    }
    const bool integral = v.type != Scalar::kFloat ||
                          v.text.find_first_not_of("-0123456789") == std::string_view::npos;
    if (!integral) {
      return FailAt(at, "expected an integer for %s, found %s", what, ValueAt(at).c_str());
    }
    return FailAt(at, "%s is out of the range of %s, %d to %d", ValueAt(at).c_str(), what, INT_MIN,
                  INT_MAX);
  }

  bool Double(size_t at, const Scalar& v, double* out, const char* expected) {
    switch (v.type) {
      case Scalar::kInteger:
        *out = static_cast<double>(v.integer);
        return true;
      case Scalar::kUnsigned:
        *out = static_cast<double>(v.unsignedInteger);
        return true;
      case Scalar::kFloat: {
        // From its own text, as the text reader reads it: the parser would
        // take a number out of range as zero or infinity.
        const auto r = std::from_chars(v.text.data(), v.text.data() + v.text.size(), *out);
        if (r.ec == std::errc() && r.ptr == v.text.data() + v.text.size()) return true;
        return FailAt(at, "%s is out of the range of a double", ValueAt(at).c_str());
      }
      case Scalar::kString:
        if (v.text == kNaN || v.text == kMinusNaN) {
          *out = v.text == kNaN ? std::nan("") : -std::nan("");
          return true;
        }
        if (v.text == kInfinity || v.text == kMinusInfinity) {
          *out = v.text == kInfinity ? HUGE_VAL : -HUGE_VAL;
          return true;
        }
        return FailAt(at, "expected %s, found the text %s", expected, ValueAt(at).c_str());
      default:
        return FailAt(at, "expected %s, found %s", expected, v.TypeName());
    }
  }

  // Stores a value of field `f` in `msg`. A failure of the runtime for want
  // of memory is told as that, not as a fault of the JSON.
  template <class V>
  bool Store(size_t at, CMsg& msg, const FieldInfo& f, V value) {
    const text::RuntimeResult r = text::CallRuntime([&] { return msg.SetValue(f.tag, value); });
    if (r.rc >= 0) return true;
    FailAt(at, "T%d %s: the runtime %s the value (code %d)", f.tag, f.name,
           r.noMemory ? "ran out of memory for" : "refused", r.rc);
    if (r.noMemory && err_) err_->code = MSGTEXT_E_NOMEM;
    return false;
  }

  bool Put(size_t at, Frame& top, const Scalar& v, TypeTag<CInt>) {
    CInt n;
    if (v.type != Scalar::kNull) {
      if (!v.IsNumber()) return Expected(at, v.TypeName());
      if (!Int(at, v, &n.value, "an int")) return false;
      n.isSet = true;
    }
    return Store(at, *top.msg, *top.field, n);
  }

  bool Put(size_t at, Frame& top, const Scalar& v, TypeTag<CDbl>) {
    CDbl d;
    if (v.type != Scalar::kNull) {
      if (!Double(at, v, &d.value, Wanted(TypeTag<CDbl>()))) return false;
      d.isSet = true;
    }
    return Store(at, *top.msg, *top.field, d);
  }

  bool Put(size_t at, Frame& top, const Scalar& v, TypeTag<CBool>) {
    CBool b;
    if (v.type != Scalar::kNull) {
      if (v.type != Scalar::kBool) return Expected(at, v.TypeName());
      b.value = v.boolean;
      b.isSet = true;
    }
    return Store(at, *top.msg, *top.field, b);
  }

  bool Put(size_t at, Frame& top, const Scalar& v, TypeTag<CDate>) {
    if (v.type == Scalar::kNull) return Store(at, *top.msg, *top.field, CDate());
    if (v.type != Scalar::kString) return Expected(at, v.TypeName());
    return Text(at, *top.msg, *top.field, v.text);
  }

  bool Put(size_t at, Frame& top, const Scalar& v, TypeTag<CString>) {
    if (v.type != Scalar::kString) return Expected(at, v.TypeName());
    return Text(at, *top.msg, *top.field, v.text);
  }

  template <class T>
  bool Put(size_t at, Frame&, const Scalar& v, TypeTag<T>) {
    return Expected(at, v.TypeName());  // the kinds that take an array or an object
  }

  // A text for a date or a string field, from a JSON string or hex digits.
  bool Text(size_t at, CMsg& msg, const FieldInfo& f, std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
      return FailAt(at, "a text cannot hold a NUL byte");
    }
    if (f.kind == Kind::kString) {
      return Store(at, msg, f, std::string(text).c_str());
    }
    CDate d;
    if (text.empty()) return FailAt(at, "an empty date: an unset date is null");
    if (text.size() >= sizeof d.text) {
      return FailAt(at, "a date of %zu characters: it holds at most %zu", text.size(),
                    sizeof d.text - 1);
    }
    if (!SetDate(d, std::string(text).c_str())) {
      return FailAt(at, "the runtime did not take the date %s", ValueAt(at).c_str());
    }
    return Store(at, msg, f, d);
  }

  bool Element(size_t at, Frame& array, const Scalar& v) {
    const FieldInfo& f = *array.field;
    if (v.type == Scalar::kNull) return FailAt(at, "an element of an array cannot be null");
    if (f.kind == Kind::kIntArray) {
      int n = 0;
      if (!v.IsNumber()) return Expected(at, v.TypeName());
      return Int(at, v, &n, "an int") && Store(at, *array.msg, f, n);
    }
    double d = 0;
    return Double(at, v, &d, "a number, \"NaN\" or \"Infinity\"") && Store(at, *array.msg, f, d);
  }

  // The hex digits of a text that is not UTF-8, decoded.
  bool CloseHex() {
    Frame top = std::move(frames_.back());
    frames_.pop_back();
    const std::string& digits = top.hex;
    if (!top.hexSeen) {
      return FailAt(top.start, "a text that is not UTF-8 is an object with the one key \"%s\"",
                    kHexKey);
    }
    if (digits.size() % 2 != 0) return FailAt(top.start, "the hex digits are not in pairs");
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
      unsigned char byte = 0;
      const auto r = std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
      if (r.ec != std::errc() || r.ptr != digits.data() + i + 2) {
        return FailAt(top.start, "\"%s\" is not a pair of hex digits",
                      Shown(std::string_view(digits).substr(i, 2)).c_str());
      }
      bytes += static_cast<char>(byte);
    }
    return Text(top.start, *top.msg, *top.field, bytes);
  }

  const char* text_;
  size_t size_;
  MsgTextError* err_;
  const char* read_;            // how far the parser has read
  const char* before_ = text_;  // how far it had read at the event before
  CMsgDic* dic_ = nullptr;
  RootKeys rootKeys_;
  std::vector<Frame> frames_;
  std::vector<bool> seen_;  // for each open message: "class", "number", then each field
  Pointer where_;
  CMsg* done_ = nullptr;  // the outer message once its object has closed
};

}  // namespace
}  // namespace pricemsg::msgjson

CMsg* MA_ReadMsgJson(const char* text, size_t size, MsgTextError* err) {
  using pricemsg::text::SetError;
  if (!text) {
    SetError(err, MSGTEXT_E_ARG, 0, 0, "no text: a null pointer");
    return nullptr;
  }
  try {
    CMsg* msg = pricemsg::msgjson::Reader(text, size, err).Read();
    if (msg) pricemsg::text::ClearError(err);
    return msg;
  } catch (const std::bad_alloc&) {
    SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
    return nullptr;
  }
}

CMsg* MA_ReadMsgJsonFile(const char* path, MsgTextError* err, size_t maxSize) {
  return pricemsg::text::ReadFileWith(MA_ReadMsgJson, path, err, maxSize);
}
