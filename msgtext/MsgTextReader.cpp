// Reading the text form of a message tree, line by line, checked against
// the classes of the schema.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "MsgText.h"
#include "Reflect.h"
#include "TextCommon.h"

namespace pricemsg::text {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool IsNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// A run of bytes within one line.
struct Span {
  const char* begin;
  const char* end;

  bool empty() const { return begin == end; }
  size_t size() const { return static_cast<size_t>(end - begin); }
  std::string_view view() const { return std::string_view(begin, size()); }
  bool Is(std::string_view word) const { return view() == word; }
};

bool IsName(Span s) {
  if (s.empty() || (*s.begin >= '0' && *s.begin <= '9')) return false;
  return std::all_of(s.begin, s.end, IsNameChar);
}

// True if `s` is the type letter of some kind.
bool IsLetter(Span s) {
  const auto kinds = schema::Kinds();
  return s.size() == 1 && std::any_of(kinds.begin(), kinds.end(),
                                      [&](const KindInfo& k) { return k.letter == *s.begin; });
}

// "i, d, b, n, s or m": the type letters, each once, for reasons.
struct Letters {
  char text[80];
};

Letters LetterList() {
  char letters[16];
  size_t n = 0;
  for (const KindInfo& k : schema::Kinds()) {
    if (n < sizeof letters && !std::memchr(letters, k.letter, n)) letters[n++] = k.letter;
  }
  Letters out;
  char* w = out.text;
  for (size_t i = 0; i < n; ++i) {
    if (i > 0) {
      const char* separator = i + 1 < n ? ", " : " or ";
      std::strcpy(w, separator);
      w += std::strlen(separator);
    }
    *w++ = letters[i];
  }
  *w = '\0';
  return out;
}

// Input quoted for a reason: at most 24 bytes of it, bytes outside printable
// ASCII as \xHH, and "..." where it was cut.
struct Shown {
  char text[112];
};

Shown Show(Span s) {
  Shown out;
  char* w = out.text;
  *w++ = '\'';
  const char* p = s.begin;
  for (int n = 0; p != s.end && n < 24; ++p, ++n) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c == '\\' || c == '\'') {
      *w++ = '\\';
      *w++ = static_cast<char>(c);
    } else if (c < 0x20 || c >= 0x7f) {
      w = PutHex(w, c);
    } else {
      *w++ = static_cast<char>(c);
    }
  }
  if (p != s.end) w = std::strcpy(w, "...") + 3;
  *w++ = '\'';
  *w = '\0';
  return out;
}

// Reads a text line by line into a tree of messages of the schema's classes.
// A sub-message is built while its block is open and attached to its parent
// when the block closes; until then the reader owns it, and on failure it
// deletes every message it still owns, the outer one included.
class Reader {
 public:
  Reader(const char* text, size_t size, MsgTextError* err)
      : next_(text), end_(text + size), err_(err) {
    next_ += ByteOrderMark(text, size);
    lineStart_ = lineEnd_ = lineItem_ = next_;
  }

  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  ~Reader() {
    while (depth_ > 0) delete open_[--depth_].msg;
    delete done_;
  }

  // The tree, or null with the error filled in.
  CMsg* Read() {
    bool ok;
    try {
      dic_ = MA_GetMsgDic();
      ok = Run();
    } catch (const std::bad_alloc&) {
      ok = Fail(lineItem_, "out of memory");
      if (err_) err_->code = MSGTEXT_E_NOMEM;
    }
    if (!ok) return nullptr;
    ClearError(err_);
    CMsg* done = done_;
    done_ = nullptr;
    return done;
  }

 private:
  // A message whose block is open.
  struct Open {
    CMsg* msg;
    const ClassInfo* cls;
    const FieldInfo* field;  // its field in the parent; null for the outer message
    int line;                // of its head
    int column;              // of the 'T' of its value line, or of its 'M'
    size_t seen;             // where the lines of its single fields start in seen_
  };

  // A value line being read.
  struct Item {
    const FieldInfo* field;
    const char* tagAt;
    Span letter;
    Span value;
  };

  bool Run() {
    while (NextLine()) {
      const char* p = SkipBlanks(lineStart_);
      lineItem_ = p;
      if (p == lineEnd_ || *p == '#') continue;
      bool ok;
      if (done_) {
        ok = Fail(p, "unexpected text after the end of the message: %s", Found(Token(p)).text);
      } else if (depth_ == 0) {
        ok = *p == 'M'
                 ? OpenOuter(p)
                 : Fail(p, "expected a message 'M<number> {', found %s", Found(Token(p)).text);
      } else if (*p == '}') {
        ok = Close(p);
      } else if (*p == 'T') {
        ok = ReadLine(p);
      } else {
        ok = Fail(p, "expected a value 'T<tag> ...' or '}', found %s", Found(Token(p)).text);
      }
      if (!ok) return false;
    }
    if (depth_ > 0) {
      const Open& open = open_[depth_ - 1];
      return FailAtEnd("the text ends inside %s (M%d) opened at line %d: '}' is missing",
                       open.cls->name, open.cls->number, open.line);
    }
    return done_ || FailAtEnd("the text holds no message");
  }

  bool NextLine() {
    if (next_ == end_) return false;
    lineStart_ = next_;
    const void* nl = std::memchr(next_, '\n', static_cast<size_t>(end_ - next_));
    lineEnd_ = nl ? static_cast<const char*>(nl) : end_;
    next_ = nl ? lineEnd_ + 1 : end_;
    endedInNewline_ = nl != nullptr;
    if (lineEnd_ != lineStart_ && lineEnd_[-1] == '\r') --lineEnd_;
    if (line_ < INT_MAX - 1) ++line_;  // a line past that is told as the last
    return true;
  }

  // Input quoted for a reason; for none, what stands there instead.
  Shown Found(Span s) const {
    if (!s.empty()) return Show(s);
    Shown out;
    std::strcpy(out.text, s.begin == lineEnd_ ? "the end of the line" : "a blank");
    return out;
  }

  const char* SkipBlanks(const char* p) const {
    while (p != lineEnd_ && IsBlank(*p)) ++p;
    return p;
  }

  // The run of non-blank bytes from p.
  Span Token(const char* p) const {
    const char* q = p;
    while (q != lineEnd_ && !IsBlank(*q)) ++q;
    return Span{p, q};
  }

  // Counts from 1; a column past INT_MAX is told as INT_MAX.
  int Column(const char* at) const {
    return static_cast<int>(std::min<ptrdiff_t>(at - lineStart_, INT_MAX - 1) + 1);
  }

  __attribute__((format(printf, 4, 5))) bool FailAt(int line, int column, const char* format, ...) {
    va_list args;
    va_start(args, format);
    SetErrorV(err_, MSGTEXT_E_TEXT, line, column, format, args);
    va_end(args);
    return false;
  }

  __attribute__((format(printf, 3, 4))) bool Fail(const char* at, const char* format, ...) {
    va_list args;
    va_start(args, format);
    SetErrorV(err_, MSGTEXT_E_TEXT, line_, Column(at), format, args);
    va_end(args);
    return false;
  }

  __attribute__((format(printf, 2, 3))) bool FailAtEnd(const char* format, ...) {
    const bool below = line_ == 0 || endedInNewline_;
    va_list args;
    va_start(args, format);
    SetErrorV(err_, MSGTEXT_E_TEXT, below ? line_ + 1 : line_, below ? 1 : Column(lineEnd_), format,
              args);
    va_end(args);
    return false;
  }

  // Takes `msg` of class `cls` as the innermost open message.
  void Push(CMsg* msg, const ClassInfo& cls, const FieldInfo* field, const char* at) {
    open_[depth_++] = Open{msg, &cls, field, line_, Column(at), seen_.size()};
    seen_.resize(seen_.size() + static_cast<size_t>(cls.memberCount), 0);
  }

  // A new message of class `cls`. The room to note its single fields is made
  // first, so that Push cannot fail once the message exists.
  CMsg* New(const ClassInfo& cls) {
    seen_.reserve(seen_.size() + static_cast<size_t>(cls.memberCount));
    return new CMsg(cls.number, 0, 0, dic_);
  }

  bool OpenOuter(const char* at) {
    const ClassInfo* cls = Head(at);
    if (!cls) return false;
    Push(New(*cls), *cls, nullptr, at);
    return true;
  }

  // "}" closes the innermost block; a sub-message goes to its parent.
  bool Close(const char* at) {
    const char* rest = SkipBlanks(at + 1);
    if (rest != lineEnd_) {
      return Fail(rest, "unexpected text after '}': %s", Found(Token(rest)).text);
    }
    const Open open = open_[--depth_];
    seen_.resize(open.seen);
    if (depth_ == 0) {
      done_ = open.msg;
      return true;
    }
    // The parent takes the message over, also when it refuses it.
    CMsg& parent = *open_[depth_ - 1].msg;
    const RuntimeResult r = CallRuntime([&] { return parent.SetValue(open.field->tag, open.msg); });
    if (r.rc >= 0) return true;
    FailAt(open.line, open.column, "T%d %s: the runtime %s the message (code %d)", open.field->tag,
           open.field->name, r.noMemory ? "ran out of memory for" : "refused", r.rc);
    return NoMemory(r);
  }

  static bool ParseInt(Span s, int* out) {
    auto r = std::from_chars(s.begin, s.end, *out);
    return r.ec == std::errc() && r.ptr == s.end;
  }

  // "M<number> [name] {" and nothing after it, `at` at the 'M': the class.
  const ClassInfo* Head(const char* at) {
    const char* p = at + 1;
    const char* q = p;
    while (q != lineEnd_ && !IsBlank(*q) && *q != '{') ++q;
    const Span number{p, q};
    int num = 0;
    if (!ParseInt(number, &num)) {
      Fail(p, "expected a message number after 'M', found %s", Found(number).text);
      return nullptr;
    }
    p = SkipBlanks(q);
    Span name{p, p};
    if (p != lineEnd_ && *p != '{') {
      for (q = p; q != lineEnd_ && !IsBlank(*q) && *q != '{';) ++q;
      name.end = q;
      if (!IsName(name)) {
        Fail(p, "expected a class name or '{', found %s", Found(name).text);
        return nullptr;
      }
      p = SkipBlanks(q);
    }
    if (p == lineEnd_ || *p != '{') {
      Fail(p, "expected '{' to open message M%d, found %s", num, Found(Token(p)).text);
      return nullptr;
    }
    const char* rest = SkipBlanks(p + 1);
    if (rest != lineEnd_) {
      Fail(rest, "unexpected text after '{': %s", Found(Token(rest)).text);
      return nullptr;
    }
    const ClassInfo* cls = schema::FindClass(num);
    if (!cls) {
      Fail(at, "no class has the number M%d", num);
      return nullptr;
    }
    if (!name.empty() && !name.Is(cls->name)) {
      if (const ClassInfo* other = schema::FindClass(name.view())) {
        Fail(name.begin, "%s is class M%d, not M%d, which is '%s'", Found(name).text, other->number,
             num, cls->name);
      } else {
        Fail(name.begin, "class name %s does not fit M%d, which is '%s'", Found(name).text, num,
             cls->name);
      }
      return nullptr;
    }
    return cls;
  }

  // "T<tag> [name] <letter> <value>", `at` at the 'T'.
  bool ReadLine(const char* at) {
    const Open& open = open_[depth_ - 1];
    const Span number = Token(at + 1);
    int tag = 0;
    if (!ParseInt(number, &tag)) {
      return Fail(at + 1, "expected a tag number after 'T', found %s", Found(number).text);
    }
    const int index = schema::MemberIndex(*open.cls, tag);
    if (index < 0) {
      return Fail(at, "%s (M%d) has no field with tag %d", open.cls->name, open.cls->number, tag);
    }
    Item item{&schema::MemberOf(*open.cls, index), at, {}, {}};
    const FieldInfo& f = *item.field;
    // The name may be left out: "T7 s ..." has the letter where "T7 name s
    // ..." has the name. No value is a lone type letter, so the second word
    // tells them apart.
    const Span first = Token(SkipBlanks(number.end));
    const Span second = Token(SkipBlanks(first.end));
    Span name{first.begin, first.begin};
    if (IsLetter(first) && !IsLetter(second)) {
      item.letter = first;
    } else if (IsLetter(second)) {
      name = first;
      item.letter = second;
    } else if (first.empty()) {
      return Fail(first.begin, "expected a type letter (%s) after the tag", LetterList().text);
    } else if (first.size() == 1 || !IsName(first)) {
      return Fail(first.begin, "%s is not a type letter (%s)", Found(first).text,
                  LetterList().text);
    } else {
      return Fail(second.begin, "expected a type letter (%s) after %s, found %s", LetterList().text,
                  Found(first).text, Found(second).text);
    }
    if (!name.empty() && !name.Is(f.name)) {
      return Fail(name.begin, "field name %s does not fit T%d of %s, which is '%s'",
                  Found(name).text, tag, open.cls->name, f.name);
    }
    const KindInfo& kind = schema::InfoOf(f.kind);
    if (*item.letter.begin != kind.letter) {
      return Fail(item.letter.begin, "T%d %s holds %s, written %c, not %c", tag, f.name, kind.words,
                  kind.letter, *item.letter.begin);
    }
    if (!kind.repeats) {
      int& firstLine = seen_[open.seen + static_cast<size_t>(index)];
      if (firstLine != 0) {
        return Fail(at, "a second value for T%d %s, which holds one (the first is on line %d)", tag,
                    f.name, firstLine);
      }
      firstLine = line_;
    }
    item.value = Token(SkipBlanks(item.letter.end));
    if (!Value(item)) return false;
    if (schema::HoldsMessage(f.kind)) return true;  // a block opened
    const char* rest = SkipBlanks(item.value.end);
    if (rest != lineEnd_) {
      return Fail(rest, "unexpected text after the value: %s", Found(Token(rest)).text);
    }
    return true;
  }

  // The value of `item`, by the reader of its field's kind, which leaves
  // item.value.end after what it read.
  bool Value(Item& item) {
    return pricemsg::WithKind(item.field->kind, [&](auto type) { return Read(item, type); });
  }

  CMsg& Parent() const { return *open_[depth_ - 1].msg; }

  // The runtime's answer to SetValue for `item`.
  // Stores a value of `item` in the message of its block.
  template <class V>
  bool Store(const Item& item, V value) {
    const RuntimeResult r = CallRuntime([&] { return Parent().SetValue(item.field->tag, value); });
    if (r.rc >= 0) return true;
    Fail(item.value.begin, "T%d %s: the runtime %s the value (code %d)", item.field->tag,
         item.field->name, r.noMemory ? "ran out of memory for" : "refused", r.rc);
    return NoMemory(r);
  }

  // A failure of the runtime for want of memory is told as that, not as a
  // fault of the text; gives false.
  bool NoMemory(const RuntimeResult& r) {
    if (r.noMemory && err_) err_->code = MSGTEXT_E_NOMEM;
    return false;
  }

  bool Parse(Span s, int* out) {
    const auto r = std::from_chars(s.begin, s.end, *out);
    if (r.ptr == s.end && r.ec == std::errc()) return true;
    if (r.ptr == s.end && r.ec == std::errc::result_out_of_range) {
      return Fail(s.begin, "%s is out of the range of an integer", Found(s).text);
    }
    return Fail(s.begin, "expected an integer, found %s", Found(s).text);
  }

  // The forms the writer gives (shortest round trip, inf, -inf, nan, -nan)
  // and other plain decimal forms; not hexadecimal, "infinity" or "nan(...)",
  // which from_chars would also take.
  bool Parse(Span s, double* out) {
    const bool plain =
        !s.empty() && s.view().find_first_not_of("0123456789.eE+-") == std::string_view::npos;
    if (plain || s.Is("inf") || s.Is("-inf") || s.Is("nan") || s.Is("-nan")) {
      const auto r = std::from_chars(s.begin, s.end, *out);
      if (r.ptr == s.end && r.ec == std::errc()) return true;
      if (r.ptr == s.end && r.ec == std::errc::result_out_of_range) {
        return Fail(s.begin, "%s is out of the range of a double", Found(s).text);
      }
    }
    return Fail(s.begin, "expected a number, found %s", Found(s).text);
  }

  // A value with a set-flag: "-" leaves it unset.
  template <class V>
  bool Optional(const Item& item, V* v) {
    if (item.value.Is("-")) return true;
    v->isSet = true;
    return Parse(item.value, &v->value);
  }

  // An element of an array, which has no unset state.
  template <class N>
  bool Element(const Item& item, N* n) {
    if (item.value.Is("-")) {
      return Fail(item.value.begin, "T%d %s is an array: its elements cannot be unset",
                  item.field->tag, item.field->name);
    }
    return Parse(item.value, n);
  }

  bool Read(Item& item, TypeTag<CInt>) {
    CInt v;
    return Optional(item, &v) && Store(item, v);
  }

  bool Read(Item& item, TypeTag<CDbl>) {
    CDbl v;
    return Optional(item, &v) && Store(item, v);
  }

  bool Read(Item& item, TypeTag<CIntArray>) {
    int n = 0;
    return Element(item, &n) && Store(item, n);
  }

  bool Read(Item& item, TypeTag<CDblArray>) {
    double n = 0;
    return Element(item, &n) && Store(item, n);
  }

  bool Read(Item& item, TypeTag<CBool>) {
    CBool v;
    if (item.value.Is("Y") || item.value.Is("N")) {
      v.value = *item.value.begin == 'Y';
      v.isSet = true;
    } else if (!item.value.Is("-")) {
      return Fail(item.value.begin, "expected Y, N or - for a boolean, found %s",
                  Found(item.value).text);
    }
    return Store(item, v);
  }

  bool Read(Item& item, TypeTag<CDate>) {
    CDate v;
    if (!item.value.Is("-")) {
      if (!Quoted(item, "a quoted date or -")) return false;
      if (text_.empty()) return Fail(item.value.begin, "an empty date: an unset date is written -");
      if (text_.size() >= sizeof v.text) {
        return Fail(item.value.begin, "a date of %zu characters: it holds at most %zu",
                    text_.size(), sizeof v.text - 1);
      }
      if (!pricemsg::SetDate(v, text_.c_str())) {
        return Fail(item.value.begin, "the runtime did not take the date %s",
                    Found(Span{item.value.begin + 1, item.value.end - 1}).text);
      }
    }
    return Store(item, v);
  }

  bool Read(Item& item, TypeTag<CString>) {
    return Quoted(item, "a quoted text") && Store(item, text_.c_str());
  }

  // A nested block of the class that the field holds, single or repeated.
  template <class M>
  bool Read(Item& item, TypeTag<M>) {
    const char* at = item.value.begin;
    if (at == lineEnd_ || *at != 'M') {
      return Fail(at, "expected a message 'M<number> {', found %s", Found(item.value).text);
    }
    const ClassInfo* cls = Head(at);
    if (!cls) return false;
    const ClassInfo& held = schema::HeldClass(*item.field);
    if (cls != &held) {
      return Fail(at, "T%d %s holds %s (M%d), not %s (M%d)", item.field->tag, item.field->name,
                  held.name, held.number, cls->name, cls->number);
    }
    if (depth_ == kMsgTextMaxDepth) {
      return Fail(at, "messages nest more than %d levels deep", kMsgTextMaxDepth);
    }
    Push(New(*cls), *cls, item.field, item.tagAt);
    return true;
  }

  // Decodes the quoted text of `item` into text_ and moves item.value.end
  // after its closing quote.
  bool Quoted(Item& item, const char* expected) {
    const char* q = item.value.begin;
    if (q == lineEnd_ || *q != '"') {
      return Fail(q, "expected %s, found %s", expected, Found(item.value).text);
    }
    text_.clear();
    for (const char* p = q + 1;; ++p) {
      if (p == lineEnd_) return Fail(q, "the text that starts here is not closed on its line");
      char c = *p;
      if (c == '"') {
        item.value.end = p + 1;
        return true;
      }
      if (c == '\\') {
        if (p + 1 == lineEnd_) continue;  // not closed
        if (!Unescape(p, &c)) return false;
        if (c == '\0') return Fail(p, "a text cannot hold a NUL byte");
        p += p[1] == 'x' ? 3 : 1;
      } else if (c == '\0') {
        return Fail(p, "a text cannot hold a NUL byte");
      }
      text_ += c;
    }
  }

  // The byte of the escape at `p` (a backslash before the end of the line).
  bool Unescape(const char* p, char* out) {
    const char letter = p[1];
    const auto* escape =
        std::find_if(std::begin(kTextEscapes), std::end(kTextEscapes),
                     [letter](const pricemsg::TextEscape& e) { return e.letter == letter; });
    if (escape != std::end(kTextEscapes)) {
      *out = escape->byte;
      return true;
    }
    if (letter == 'x') {
      unsigned char byte = 0;
      const char* digits = p + 2;
      const char* end = lineEnd_ - digits >= 2 ? digits + 2 : lineEnd_;
      const auto r = std::from_chars(digits, end, byte, 16);
      if (end - digits == 2 && r.ptr == end && r.ec == std::errc()) {
        *out = static_cast<char>(byte);
        return true;
      }
      return Fail(p, "\\x takes two hex digits");
    }
    if (letter > ' ' && letter < 0x7f) return Fail(p, "unknown escape \\%c", letter);
    return Fail(p, "a backslash before %s is not an escape", Found(Span{p + 1, p + 2}).text);
  }

  CMsgDic* dic_ = nullptr;
  const char* next_;  // the start of the next line
  const char* end_;
  MsgTextError* err_;
  const char* lineStart_;
  const char* lineEnd_;   // before the newline and a carriage return before it
  const char* lineItem_;  // the first non-blank byte of the line
  int line_ = 0;
  bool endedInNewline_ = false;
  Open open_[kMsgTextMaxDepth];  // the messages whose blocks are open, the outer one first
  int depth_ = 0;
  CMsg* done_ = nullptr;   // the outer message once its block has closed
  std::vector<int> seen_;  // for each single field of each open message, the line of its value
  std::string text_;       // the decoded text of the value being read
};

}  // namespace
}  // namespace pricemsg::text

CMsg* MA_ReadMsgText(const char* text, size_t size, MsgTextError* err) {
  if (!text) {
    pricemsg::text::SetError(err, MSGTEXT_E_ARG, 0, 0, "no text: a null pointer");
    return nullptr;
  }
  return pricemsg::text::Reader(text, size, err).Read();
}
