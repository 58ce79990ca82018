#include "callkyt/MsgText.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "TextFormat.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/MsgDic.h"

namespace {

using kyt_detail::TextBuffer;

int CountTag(const CMsg& msg, int tag) {
  int n = 0;
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) n += v.tag == tag;
  return n;
}

// The name of a field for the text form: the message's own field where the
// dictionary knows the message, else the form that fits the number of values.
const char* FieldName(const CMsgDic& dic, const KytMsgInfo* info, const CMsg& msg, int tag) {
  if (info) {
    if (const KytFieldInfo* f = dic.FindMessageField(*info, tag)) return f->name;
  }
  const KytFieldInfo* f = dic.FindField(tag, CountTag(msg, tag) > 1);
  return f ? f->name : nullptr;
}

void WriteHead(TextBuffer& out, const CMsgDic& dic, const CMsg& msg) {
  out.Append('M');
  kyt_detail::AppendInt(out, msg.msgnum);
  if (const KytMsgInfo* info = dic.FindMessage(msg.msgnum)) {
    out.Append(' ');
    out.Append(info->name, std::char_traits<char>::length(info->name));
  }
  out.Append(" {\n", 3);
}

void WriteTree(TextBuffer& out, const CMsgDic& dic, const CMsg& msg, int depth) {
  const KytMsgInfo* info = dic.FindMessage(msg.msgnum);
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) {
    out.Fill(' ', 2 * (depth + 1));
    out.Append('T');
    kyt_detail::AppendInt(out, v.tag);
    if (const char* name = FieldName(dic, info, msg, v.tag)) {
      out.Append(' ');
      out.Append(name, std::char_traits<char>::length(name));
    }
    static const char kLetters[] = "?idbnsm";
    out.Append(' ');
    out.Append(kLetters[static_cast<int>(v.kind)]);
    out.Append(' ');
    bool unset = !v.isSet && v.kind != KytKind::kStr && v.kind != KytKind::kMsg;
    if (unset) {
      out.Append('-');
    } else {
      switch (v.kind) {
        case KytKind::kNone:
          break;
        case KytKind::kInt:
          kyt_detail::AppendInt(out, v.i);
          break;
        case KytKind::kDbl:
          kyt_detail::AppendShortest(out, v.d);
          break;
        case KytKind::kBool:
          out.Append(v.b ? 'Y' : 'N');
          break;
        case KytKind::kDate:
        case KytKind::kStr:
          kyt_detail::QuoteTo(out, v.text, v.len);
          break;
        case KytKind::kMsg:
          WriteHead(out, dic, *v.msg);
          WriteTree(out, dic, *v.msg, depth + 1);
          out.Fill(' ', 2 * (depth + 1));
          out.Append('}');
          break;
      }
    }
    out.Append('\n');
  }
}

void WriteText(TextBuffer& text, const CMsg& msg) {
  const CMsgDic& dic = *MA_GetMsgDic();
  WriteHead(text, dic, msg);
  WriteTree(text, dic, msg, 0);
  text.Append("}\n", 2);
}

}  // namespace

void MA_WriteMsgText(const CMsg* msg, CStream* out) {
  if (!msg || !out) return;
  TextBuffer text;
  WriteText(text, *msg);
  out->AppendData(text.data(), text.size());
}

// ---- reading ----

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
  for (const char* p = s.begin; p != s.end; ++p) {
    if (!IsNameChar(*p)) return false;
  }
  return true;
}

// The kind a type letter stands for; KytKind::kNone for anything else.
KytKind KindOfLetter(Span s) {
  if (s.size() != 1) return KytKind::kNone;
  switch (*s.begin) {
    case 'i':
      return KytKind::kInt;
    case 'd':
      return KytKind::kDbl;
    case 'b':
      return KytKind::kBool;
    case 'n':
      return KytKind::kDate;
    case 's':
      return KytKind::kStr;
    case 'm':
      return KytKind::kMsg;
    default:
      return KytKind::kNone;
  }
}

const char* KindText(KytKind kind) {
  switch (kind) {
    case KytKind::kInt:
      return "an integer (i)";
    case KytKind::kDbl:
      return "a double (d)";
    case KytKind::kBool:
      return "a boolean (b)";
    case KytKind::kDate:
      return "a date (n)";
    case KytKind::kStr:
      return "a text (s)";
    case KytKind::kMsg:
      return "a message (m)";
    default:
      return "nothing";
  }
}

// Input quoted for a reason: at most 24 bytes of it, bytes outside printable
// ASCII as \xHH, and "..." where it was cut.
struct Shown {
  char text[112];
};

Shown Show(Span s) {
  static const char kHex[] = "0123456789abcdef";
  Shown out;
  char* w = out.text;
  *w++ = '\'';
  const char* p = s.begin;
  for (int n = 0; p != s.end && n < 24; ++p, ++n) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c == '\\' || c == '\'') {
      *w++ = '\\';
      *w++ = static_cast<char>(c);
    } else if (c < 0x20 || c >= 0x7f) {
      *w++ = '\\';
      *w++ = 'x';
      *w++ = kHex[c >> 4];
      *w++ = kHex[c & 15];
    } else {
      *w++ = static_cast<char>(c);
    }
  }
  if (p != s.end) w = std::strcpy(w, "...") + 3;
  *w++ = '\'';
  *w = '\0';
  return out;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void SetError(KytTextError& err, int line, int column, const char* format, va_list args) {
  err.line = line;
  err.column = column;
  std::vsnprintf(err.reason, sizeof err.reason, format, args);
}

__attribute__((format(printf, 4, 5))) void SetError(KytTextError& err, int line, int column,
                                                    const char* format, ...) {
  va_list args;
  va_start(args, format);
  SetError(err, line, column, format, args);
  va_end(args);
}

// Reads a text line by line into a tree of checked messages. The tree is
// built as it is read, each sub-message attached to its parent when it
// opens, so that dropping the root frees all of it.
class TextReader {
 public:
  TextReader(const char* text, size_t size, KytTextError& err)
      : next_(text), end_(text + size), err_(err) {
    if (size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) next_ += 3;
    lineStart_ = lineEnd_ = lineItem_ = next_;
  }

  // The tree, or null with the error filled in.
  CMsg* Read() {
    bool ok;
    try {
      dic_ = MA_GetMsgDic();  // built on the first call
      ok = Run();
    } catch (const std::bad_alloc&) {
      ok = Fail(lineItem_, "out of memory");
    }
    if (!ok) {
      root_.reset();
      return nullptr;
    }
    err_.line = err_.column = 0;
    err_.reason[0] = '\0';
    return root_.release();
  }

 private:
  // A value line being read.
  struct Item {
    int tag;
    const char* tagAt;
    Span letter;
    KytKind kind;
    Span value;
  };

  bool Run() {
    while (NextLine()) {
      const char* p = SkipBlanks(lineStart_);
      lineItem_ = p;
      if (p == lineEnd_ || *p == '#') continue;
      if (!root_) {
        if (*p != 'M') {
          return Fail(p, "expected a message 'M<number> {', found %s", Found(Token(p)).text);
        }
        int num;
        if (!ReadHeader(p, &num)) return false;
        root_.reset(new CMsg(num, 0, 0, dic_));
        Open(root_.get());
      } else if (depth_ == 0) {
        return Fail(p, "unexpected text after the end of the message: %s", Found(Token(p)).text);
      } else if (*p == '}') {
        const char* rest = SkipBlanks(p + 1);
        if (rest != lineEnd_) {
          return Fail(rest, "unexpected text after '}': %s", Found(Token(rest)).text);
        }
        --depth_;
      } else if (*p == 'T') {
        if (!ReadValue(p)) return false;
      } else {
        return Fail(p, "expected a value 'T<tag> ...' or '}', found %s", Found(Token(p)).text);
      }
    }
    if (!root_) return FailAtEnd("the text holds no message");
    if (depth_ > 0) {
      return FailAtEnd("the text ends inside message M%d opened at line %d: '}' is missing",
                       open_[depth_ - 1]->msgnum, openLine_[depth_ - 1]);
    }
    return true;
  }

  bool NextLine() {
    if (next_ == end_) return false;
    lineStart_ = next_;
    const void* nl = std::memchr(next_, '\n', static_cast<size_t>(end_ - next_));
    lineEnd_ = nl ? static_cast<const char*>(nl) : end_;
    next_ = nl ? lineEnd_ + 1 : end_;
    endedInNewline_ = nl != nullptr;
    if (lineEnd_ != lineStart_ && lineEnd_[-1] == '\r') --lineEnd_;
    ++line_;
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

  __attribute__((format(printf, 3, 4))) bool Fail(const char* at, const char* format, ...) {
    va_list args;
    va_start(args, format);
    SetError(err_, line_, static_cast<int>(at - lineStart_) + 1, format, args);
    va_end(args);
    return false;
  }

  __attribute__((format(printf, 2, 3))) bool FailAtEnd(const char* format, ...) {
    bool below = line_ == 0 || endedInNewline_;
    va_list args;
    va_start(args, format);
    SetError(err_, below ? line_ + 1 : line_,
             below ? 1 : static_cast<int>(lineEnd_ - lineStart_) + 1, format, args);
    va_end(args);
    return false;
  }

  void Open(CMsg* msg) {
    open_[depth_] = msg;
    openLine_[depth_] = line_;
    ++depth_;
  }

  static bool ParseInt(Span s, int* out) {
    auto r = std::from_chars(s.begin, s.end, *out);
    return r.ec == std::errc() && r.ptr == s.end;
  }

  // "M<number> [name] {" and nothing after it; `at` is at the 'M'.
  bool ReadHeader(const char* at, int* num) {
    const char* p = at + 1;
    const char* q = p;
    while (q != lineEnd_ && !IsBlank(*q) && *q != '{') ++q;
    Span number{p, q};
    if (!ParseInt(number, num)) {
      return Fail(p, "expected a message number after 'M', found %s", Found(number).text);
    }
    p = SkipBlanks(q);
    Span name{p, p};
    if (p != lineEnd_ && *p != '{') {
      for (q = p; q != lineEnd_ && !IsBlank(*q) && *q != '{';) ++q;
      name.end = q;
      if (!IsName(name)) {
        return Fail(p, "expected a message name or '{', found %s", Found(name).text);
      }
      p = SkipBlanks(q);
    }
    if (p == lineEnd_ || *p != '{') {
      return Fail(p, "expected '{' to open message M%d, found %s", *num, Found(Token(p)).text);
    }
    const char* rest = SkipBlanks(p + 1);
    if (rest != lineEnd_) {
      return Fail(rest, "unexpected text after '{': %s", Found(Token(rest)).text);
    }
    return name.empty() || CheckMessageName(*num, name);
  }

  bool CheckMessageName(int num, Span name) {
    if (const KytMsgInfo* info = dic_->FindMessage(num)) {
      if (name.Is(info->name)) return true;
      return Fail(name.begin, "message name %s does not fit M%d, which is '%s'", Found(name).text,
                  num, info->name);
    }
    if (const KytMsgInfo* other = dic_->FindMessage(name.view())) {
      return Fail(name.begin, "%s is message M%d, not M%d", Found(name).text, other->msgnum, num);
    }
    return true;
  }

  // A name given for a tag the dictionary knows must be the name of one of
  // its two forms; an unknown tag is left to SetValue to refuse.
  bool CheckFieldName(int tag, Span name) {
    const KytFieldInfo* single = dic_->FindField(tag, false);
    if (!single) return true;
    const KytFieldInfo* array = dic_->FindField(tag, true);
    if (name.Is(single->name) || name.Is(array->name)) return true;
    if (single == array) {
      return Fail(name.begin, "field name %s does not fit tag %d, which is '%s'", Found(name).text,
                  tag, single->name);
    }
    return Fail(name.begin, "field name %s does not fit tag %d, which is '%s' or '%s'",
                Found(name).text, tag, single->name, array->name);
  }

  // "T<tag> [name] <letter> <value>"; `at` is at the 'T'.
  bool ReadValue(const char* at) {
    Item item{};
    item.tagAt = at;
    Span number = Token(at + 1);
    if (!ParseInt(number, &item.tag)) {
      return Fail(at + 1, "expected a tag number after 'T', found %s", Found(number).text);
    }
    // The name may be left out: "T7 s ..." has the letter where "T7 name s
    // ..." has the name. No value is a lone type letter, so the second word
    // tells them apart.
    Span first = Token(SkipBlanks(number.end));
    Span second = Token(SkipBlanks(first.end));
    Span name{first.begin, first.begin};
    if (KindOfLetter(first) != KytKind::kNone && KindOfLetter(second) == KytKind::kNone) {
      item.letter = first;
    } else if (KindOfLetter(second) != KytKind::kNone) {
      name = first;
      item.letter = second;
    } else if (first.empty()) {
      return Fail(first.begin, "expected a type letter (i, d, b, n, s or m) after the tag");
    } else if (first.size() == 1 || !IsName(first)) {
      return Fail(first.begin, "%s is not a type letter (i, d, b, n, s or m)", Found(first).text);
    } else {
      return Fail(second.begin, "expected a type letter (i, d, b, n, s or m) after %s, found %s",
                  Found(first).text, Found(second).text);
    }
    if (!name.empty()) {
      if (!IsName(name)) return Fail(name.begin, "%s is not a field name", Found(name).text);
      if (!CheckFieldName(item.tag, name)) return false;
    }
    item.kind = KindOfLetter(item.letter);
    const char* v = SkipBlanks(item.letter.end);
    item.value = Token(v);
    CMsg* msg = open_[depth_ - 1];
    int rc = KYT_OK;
    switch (item.kind) {
      case KytKind::kNone:  // not a letter: refused above
        break;
      case KytKind::kInt: {
        CInt x;
        if (!item.value.Is("-") && !ReadInt(item.value, &x)) return false;
        rc = msg->SetValue(item.tag, x);
        break;
      }
      case KytKind::kDbl: {
        CDbl x;
        if (!item.value.Is("-") && !ReadDouble(item.value, &x)) return false;
        rc = msg->SetValue(item.tag, x);
        break;
      }
      case KytKind::kBool: {
        CBool x;
        if (item.value.Is("Y") || item.value.Is("N")) {
          x = CBool(*v == 'Y');
        } else if (!item.value.Is("-")) {
          return Fail(v, "expected Y, N or - for a boolean, found %s", Found(item.value).text);
        }
        rc = msg->SetValue(item.tag, x);
        break;
      }
      case KytKind::kDate: {
        CDate x;
        if (!item.value.Is("-")) {
          if (v == lineEnd_ || *v != '"') {
            return Fail(v, "expected a quoted date or -, found %s", Found(item.value).text);
          }
          if (!Unquote(v, &item.value.end)) return false;
          size_t len = static_cast<size_t>(text_.size()) - 1;
          if (len == 0) return Fail(v, "an empty date: an unset date is written -");
          if (len > CDate::kMaxLen) return Refused(KYT_E_VALUE, item);
          x.Set(text_.data());
        }
        rc = msg->SetValue(item.tag, x);
        break;
      }
      case KytKind::kStr:
        if (v == lineEnd_ || *v != '"') {
          return Fail(v, "expected a quoted text, found %s", Found(item.value).text);
        }
        if (!Unquote(v, &item.value.end)) return false;
        rc = msg->SetValue(item.tag, text_.data());
        break;
      case KytKind::kMsg: {
        if (v == lineEnd_ || *v != 'M') {
          return Fail(v, "expected a message 'M<number> {', found %s", Found(item.value).text);
        }
        int num;
        if (!ReadHeader(v, &num)) return false;
        if (depth_ == kMsgTextMaxDepth) {
          return Fail(v, "messages nest more than %d levels deep", kMsgTextMaxDepth);
        }
        CMsg* sub = new CMsg(num, 0, 0, dic_);
        rc = msg->SetValue(item.tag, sub);  // takes `sub` over, also when it refuses
        if (rc != KYT_OK) return Refused(rc, item);
        Open(sub);
        return true;
      }
    }
    if (rc != KYT_OK) return Refused(rc, item);
    const char* rest = SkipBlanks(item.value.end);
    if (rest != lineEnd_) {
      return Fail(rest, "unexpected text after the value: %s", Found(Token(rest)).text);
    }
    return true;
  }

  bool ReadInt(Span s, CInt* out) {
    int32_t v = 0;
    auto r = std::from_chars(s.begin, s.end, v);
    if (r.ptr == s.end) {
      if (r.ec == std::errc()) {
        *out = CInt(v);
        return true;
      }
      if (r.ec == std::errc::result_out_of_range) {
        return Fail(s.begin, "%s is out of the range of an integer", Found(s).text);
      }
    }
    return Fail(s.begin, "expected an integer or -, found %s", Found(s).text);
  }

  // The forms the writer gives (shortest round trip, inf, -inf, nan, -nan)
  // and other plain decimal forms; not hexadecimal, "infinity" or "nan(...)",
  // which from_chars would also take.
  bool ReadDouble(Span s, CDbl* out) {
    bool plain =
        !s.empty() && s.view().find_first_not_of("0123456789.eE+-") == std::string_view::npos;
    if (plain || s.Is("inf") || s.Is("-inf") || s.Is("nan") || s.Is("-nan")) {
      double v = 0;
      auto r = std::from_chars(s.begin, s.end, v);
      if (r.ptr == s.end && r.ec == std::errc()) {
        *out = CDbl(v);
        return true;
      }
      if (r.ptr == s.end && r.ec == std::errc::result_out_of_range) {
        return Fail(s.begin, "%s is out of the range of a double", Found(s).text);
      }
    }
    return Fail(s.begin, "expected a number or -, found %s", Found(s).text);
  }

  // Decodes the quoted text at `q` into text_, terminated, and sets `*end`
  // after the closing quote.
  bool Unquote(const char* q, const char** end) {
    text_.clear();
    for (const char* p = q + 1;; ++p) {
      if (p == lineEnd_) return Fail(q, "the text that starts here is not closed on its line");
      char c = *p;
      if (c == '"') {
        *end = p + 1;
        break;
      }
      if (c == '\\') {
        if (p + 1 == lineEnd_) continue;  // not closed
        switch (p[1]) {
          case '"':
          case '\\':
            c = p[1];
            break;
          case 'n':
            c = '\n';
            break;
          case 't':
            c = '\t';
            break;
          case 'r':
            c = '\r';
            break;
          case 'x': {
            int hi = lineEnd_ - p >= 4 ? HexDigit(p[2]) : -1;
            int lo = hi >= 0 ? HexDigit(p[3]) : -1;
            if (lo < 0) return Fail(p, "\\x takes two hex digits");
            c = static_cast<char>(hi * 16 + lo);
            p += 2;
            break;
          }
          default:
            if (p[1] > ' ' && p[1] < 0x7f) return Fail(p, "unknown escape \\%c", p[1]);
            return Fail(p, "a backslash before %s is not an escape",
                        Found(Span{p + 1, p + 2}).text);
        }
        if (c == '\0') return Fail(p - 2, "a text cannot hold a NUL byte");
        ++p;
      } else if (c == '\0') {
        return Fail(p, "a text cannot hold a NUL byte");
      }
      text_.Append(c);
    }
    text_.Append('\0');
    return true;
  }

  bool Refused(int rc, const Item& item) {
    switch (rc) {
      case KYT_E_TAG:
        return Fail(item.tagAt, "the dictionary does not know tag %d", item.tag);
      case KYT_E_TYPE: {
        const KytFieldInfo* f = dic_->FindField(item.tag, false);
        return Fail(item.letter.begin, "tag %d '%s' takes %s, not %s", item.tag, f ? f->name : "",
                    KindText(dic_->TagKind(item.tag)), KindText(item.kind));
      }
      case KYT_E_VALUE:
        // The quoted date without its quotes.
        return Fail(item.value.begin, "%s is not a valid date YYYYMMDD",
                    Found(Span{item.value.begin + 1, item.value.end - 1}).text);
      case KYT_E_NOMEM:
        return Fail(item.tagAt, "out of memory");
      default:
        return Fail(item.tagAt, "the message refused the value (code %d)", rc);
    }
  }

  CMsgDic* dic_ = nullptr;
  const char* next_;  // the start of the next line
  const char* end_;
  KytTextError& err_;
  const char* lineStart_;
  const char* lineEnd_;   // before the newline and a carriage return before it
  const char* lineItem_;  // the first non-blank byte of the line
  int line_ = 0;
  bool endedInNewline_ = false;
  std::unique_ptr<CMsg> root_;
  CMsg* open_[kMsgTextMaxDepth];  // the messages not yet closed, the root first
  int openLine_[kMsgTextMaxDepth];
  int depth_ = 0;
  TextBuffer text_;  // the decoded text of the value being read
};

}  // namespace

CMsg* MA_ReadMsgText(const char* text, size_t size, KytTextError* err) {
  KytTextError local;
  KytTextError& e = err ? *err : local;
  if (!text && size > 0) {
    SetError(e, 0, 0, "no text: a null pointer");
    return nullptr;
  }
  TextReader reader(text ? text : "", size, e);
  return reader.Read();
}

int MA_WriteMsgFile(const CMsg* msg, const char* path) {
  if (!msg || !path || !*path) return KYT_E_ARG;
  try {
    TextBuffer text;
    WriteText(text, *msg);
    const std::string part = std::string(path) + ".part";
    std::FILE* f = std::fopen(part.c_str(), "wb");
    if (!f) return KYT_E_IO;
    // The first failure's errno; EIO where a failing call left none.
    int failure = 0;
    auto note = [&failure] {
      if (!failure) failure = errno ? errno : EIO;
    };
    errno = 0;
    size_t size = static_cast<size_t>(text.size());
    if (std::fwrite(text.data(), 1, size, f) != size) note();
    if (std::fclose(f) != 0) note();  // flushes what fwrite kept
    if (!failure && std::rename(part.c_str(), path) != 0) note();
    if (!failure) return KYT_OK;
    std::remove(part.c_str());
    errno = failure;
    return KYT_E_IO;
  } catch (const std::bad_alloc&) {
    return KYT_E_NOMEM;
  }
}

CMsg* MA_ReadMsgFile(const char* path, KytTextError* err) {
  KytTextError local;
  KytTextError& e = err ? *err : local;
  if (!path || !*path) {
    SetError(e, 0, 0, "no file name");
    return nullptr;
  }
  std::FILE* f = std::fopen(path, "rb");
  if (!f) {
    SetError(e, 0, 0, "cannot open the file: %s", std::strerror(errno));
    return nullptr;
  }
  TextBuffer text;
  size_t size = 0;
  try {
    constexpr size_t kChunk = 1 << 16;
    for (;;) {
      size_t n = std::fread(text.Room(kChunk), 1, kChunk, f);
      if (n == 0) break;
      text.Commit(n);
      size += n;
    }
  } catch (const std::bad_alloc&) {
    std::fclose(f);
    SetError(e, 0, 0, "out of memory");
    return nullptr;
  }
  if (std::ferror(f)) {
    int failure = errno;
    std::fclose(f);
    SetError(e, 0, 0, "cannot read the file: %s", std::strerror(failure));
    return nullptr;
  }
  std::fclose(f);
  return MA_ReadMsgText(text.data(), size, &e);
}
