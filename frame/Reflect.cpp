// Reflection over the classes' walks: every operation here is a FieldOp run
// through the walk of the object's class, found in the schema tables.
#include "Reflect.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include "FrameText.h"
#include "MsgPattern.h"
#include "SchemaData.h"

namespace pricemsg {

namespace pd = pricemsg::detail;
namespace sd = pricemsg::schema::detail;

namespace {

// ---- classes ----

// What the tables hold of the class of an object, once the object is checked
// to be of it.
struct Bound {
  const ClassInfo* cls = nullptr;
  const pd::ClassOps* ops = nullptr;
};

Bound Bind(const CMsgBase& obj) {
  const ClassInfo* cls = schema::FindClass(obj.msgnum);
  if (!cls) return {};
  const pd::ClassOps* ops = sd::kClassOps[schema::IndexOf(*cls)];
  if (typeid(obj) != *ops->type) return {};
  return {cls, ops};
}

int NoClass(const CMsgBase& obj, std::string* why) {
  if (why) {
    *why = "an object of number " + std::to_string(obj.msgnum) +
           (schema::FindClass(obj.msgnum) ? " that is not of that number's class"
                                          : ", which no class has");
  }
  return REFLECT_E_CLASS;
}

// A failure with a text for people, which costs nothing where nobody asks
// for it. Running out of memory while the text is made leaves it empty.
template <class Text>
int Fail(std::string* why, int code, Text text) {
  if (why) {
    try {
      *why = text();
    } catch (const std::bad_alloc&) {
      why->clear();
    }
  }
  return code;
}

std::string Quote(std::string_view text) {
  std::string out = "'";
  out.append(text.substr(0, 64));
  if (text.size() > 64) out += "...";
  return out + "'";
}

// ---- a visit ----

template <class Visitor>
class VisitOp final : public pd::FieldOp {
 public:
  VisitOp(const ClassInfo& cls, Visitor& visitor) : cls_(cls), visitor_(visitor) {}

  bool operator()(int, const char*, CInt& v, const CInt&) override { return Pass(v); }
  bool operator()(int, const char*, CDbl& v, const CDbl&) override { return Pass(v); }
  bool operator()(int, const char*, CBool& v, const CBool&) override { return Pass(v); }
  bool operator()(int, const char*, CDate& v, const CDate&) override { return Pass(v); }
  bool operator()(int, const char*, CString& v, const CString&) override { return Pass(v); }
  bool operator()(int, const char*, CIntArray& v, const CIntArray&) override { return Pass(v); }
  bool operator()(int, const char*, CDblArray& v, const CDblArray&) override { return Pass(v); }
  bool operator()(int, const char*, CMsgBase& v, const CMsgBase&, pd::Walk) override {
    return Pass(v);
  }
  bool operator()(int, const char*, CMsgBase_Array& v, const CMsgBase_Array&, pd::Walk) override {
    return Pass(v);
  }

 private:
  // The walk hands the members over in the order of the class's fields.
  template <class V>
  bool Pass(V& v) {
    return visitor_(schema::MemberOf(cls_, next_++), v);
  }

  const ClassInfo& cls_;
  Visitor& visitor_;
  int next_ = 0;
};

template <class Obj, class Visitor>
int VisitWith(Obj& obj, Visitor& visitor) {
  const Bound b = Bind(obj);
  if (!b.cls) return REFLECT_E_CLASS;
  VisitOp<Visitor> op(*b.cls, visitor);
  CMsgBase& self = const_cast<CMsgBase&>(static_cast<const CMsgBase&>(obj));
  return b.ops->walk(op, self, self) ? REFLECT_OK : REFLECT_STOPPED;
}

// ---- one member ----

// Takes the member at a position of the walk, and the walk of its class for
// a held message or array.
class Pick final : public pd::FieldOp {
 public:
  explicit Pick(int index) : left_(index) {}

  Member member;
  pd::Walk walk = nullptr;

  bool operator()(int, const char*, CInt& v, const CInt&) override { return Take(v); }
  bool operator()(int, const char*, CDbl& v, const CDbl&) override { return Take(v); }
  bool operator()(int, const char*, CBool& v, const CBool&) override { return Take(v); }
  bool operator()(int, const char*, CDate& v, const CDate&) override { return Take(v); }
  bool operator()(int, const char*, CString& v, const CString&) override { return Take(v); }
  bool operator()(int, const char*, CIntArray& v, const CIntArray&) override { return Take(v); }
  bool operator()(int, const char*, CDblArray& v, const CDblArray&) override { return Take(v); }
  bool operator()(int, const char*, CMsgBase& v, const CMsgBase&, pd::Walk w) override {
    return Take(v, w);
  }
  bool operator()(int, const char*, CMsgBase_Array& v, const CMsgBase_Array&, pd::Walk w) override {
    return Take(v, w);
  }

 private:
  template <class V>
  bool Take(V& v, pd::Walk w = nullptr) {
    if (left_-- > 0) return true;
    member = &v;
    walk = w;
    return false;  // found: the walk goes no further
  }

  int left_;
};

// Where a path has got to: an object, its class and its walk.
struct Place {
  CMsgBase* obj;
  const ClassInfo* cls;
  pd::Walk walk;
};

bool IsNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Reads the decimal number that makes up the whole of `text`, if it fits an
// int.
bool ReadInt(std::string_view text, int* out) {
  if (text.empty() || text.size() > 10) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *out);
  return ec == std::errc() && end == text.data() + text.size();
}

std::string NameList(const std::vector<std::string_view>& names) {
  std::string out;
  for (std::string_view n : names) {
    if (!out.empty()) out += ", ";
    out += n;
  }
  return out;
}

// The field of `cls` that a step names: a name, or "T" and a tag.
int FieldOfStep(const ClassInfo& cls, std::string_view name, const FieldInfo** out,
                std::string* why) {
  int tag = 0;
  if (name.size() > 1 && name[0] == 'T' && ReadInt(name.substr(1), &tag)) {
    *out = schema::FindMember(cls, tag);
    if (*out) return REFLECT_OK;
    return Fail(why, REFLECT_E_NAME, [&] {
      return std::string(cls.name) + " has no field under the tag T" + std::to_string(tag);
    });
  }
  *out = schema::FindMember(cls, name);
  if (*out) return REFLECT_OK;
  return Fail(why, REFLECT_E_NAME, [&] {
    std::vector<std::string_view> names;
    for (int i = 0; i < cls.memberCount; ++i) names.push_back(schema::MemberOf(cls, i).name);
    const std::vector<std::string_view> near = schema::Nearest(name, names);
    return std::string(cls.name) + " has no field " + Quote(name) +
           (near.empty() ? "" : "; nearest: " + NameList(near));
  });
}

std::string KindWords(const FieldInfo& f) {
  return std::string(f.name) + " is " + (f.kind == Kind::kIntArray ? "an " : "a ") +
         schema::InfoOf(f.kind).words;
}

int FindFrom(Place at, std::string_view path, FieldRef* out, std::string* why) {
  if (path.empty()) return Fail(why, REFLECT_E_PATH, [] { return std::string("an empty path"); });
  std::string_view rest = path;
  for (;;) {
    const size_t dot = rest.find('.');
    std::string_view step = rest.substr(0, dot);
    const bool last = dot == std::string_view::npos;
    rest = last ? std::string_view() : rest.substr(dot + 1);

    // name[index]
    int index = -1;
    const size_t open = step.find('[');
    std::string_view name = step.substr(0, open);
    if (open != std::string_view::npos) {
      std::string_view inside = step.substr(open + 1);
      if (inside.empty() || inside.back() != ']' ||
          !ReadInt(inside.substr(0, inside.size() - 1), &index)) {
        return Fail(why, REFLECT_E_PATH, [&] {
          return "the step " + Quote(step) + " of " + Quote(path) +
                 ": an index is a number from 0 in brackets, as maLegs[0]";
        });
      }
    }
    if (name.empty() || !std::all_of(name.begin(), name.end(), IsNameChar)) {
      return Fail(why, REFLECT_E_PATH, [&] {
        return "the step " + Quote(step) + " of " + Quote(path) + " is no field name";
      });
    }

    const FieldInfo* field = nullptr;
    if (const int rc = FieldOfStep(*at.cls, name, &field, why)) return rc;
    Pick pick(schema::MemberIndex(*at.cls, field->tag));
    at.walk(pick, *at.obj, *at.obj);

    if (index >= 0) {
      if (field->kind != Kind::kMessageArray) {
        return Fail(why, REFLECT_E_KIND, [&] {
          return KindWords(*field) + " of " + at.cls->name +
                 ": only a repeated message takes an index";
        });
      }
      CMsgBase_Array& arr = *std::get<CMsgBase_Array*>(pick.member);
      CMsgBase* element = arr.GetAt(index);
      if (!element) {
        return Fail(why, REFLECT_E_INDEX, [&] {
          int n = 0;
          while (arr.GetAt(n)) ++n;
          return std::string(at.cls->name) + "." + field->name + "[" + std::to_string(index) +
                 "]: out of range, the array has " + std::to_string(n) +
                 (n == 1 ? " element" : " elements");
        });
      }
      if (last) {
        *out = {field, at.cls, element};
        return REFLECT_OK;
      }
      at = {element, &schema::HeldClass(*field), pick.walk};
      continue;
    }
    if (last) {
      *out = {field, at.cls, pick.member};
      return REFLECT_OK;
    }
    if (field->kind == Kind::kMessageArray) {
      return Fail(why, REFLECT_E_PATH, [&] {
        return std::string(field->name) + " of " + at.cls->name +
               " is a repeated message: give an element, as " + field->name + "[0]";
      });
    }
    if (field->kind != Kind::kMessage) {
      return Fail(why, REFLECT_E_KIND, [&] {
        return KindWords(*field) + " of " + at.cls->name + ", which has no fields";
      });
    }
    at = {std::get<CMsgBase*>(pick.member), &schema::HeldClass(*field), pick.walk};
  }
}

int FindIn(CMsgBase& obj, std::string_view path, FieldRef* out, std::string* why) {
  const Bound b = Bind(obj);
  if (!b.cls) return NoClass(obj, why);
  return FindFrom({&obj, b.cls, b.ops->walk}, path, out, why);
}

ConstMember AsConst(const Member& m) {
  return std::visit([](auto* p) -> ConstMember { return p; }, m);
}

// ---- values ----

// What a member of each value type gives as a Value.
Value ValueOf(const CInt& v) { return v.isSet ? Value(static_cast<int>(v.value)) : Value(); }
Value ValueOf(const CDbl& v) { return v.isSet ? Value(static_cast<double>(v.value)) : Value(); }
Value ValueOf(const CBool& v) { return v.isSet ? Value(static_cast<bool>(v.value)) : Value(); }
Value ValueOf(const CDate& v) {
  return v.isSet ? Value(std::string(v.text, strnlen(v.text, sizeof v.text))) : Value();
}
Value ValueOf(const CString& v) {
  const int size = v.GetSize();
  return std::string(v.ToStr(), size > 0 ? static_cast<size_t>(size) : 0);
}
template <class A, class E>
Value ElementsOf(const A& a) {
  std::vector<E> out;
  out.reserve(a.size > 0 ? static_cast<size_t>(a.size) : 0);
  for (int i = 0; i < a.size; ++i) out.push_back(a.GetAt(i));
  return out;
}
Value ValueOf(const CIntArray& v) { return ElementsOf<CIntArray, int>(v); }
Value ValueOf(const CDblArray& v) { return ElementsOf<CDblArray, double>(v); }

const char* ValueWords(const Value& v) {
  static constexpr const char* kWords[] = {"no value", "an int",    "a double",      "a bool",
                                           "a text",   "int array", "a double array"};
  return v.index() == 5 ? "an int array" : kWords[v.index()];
}

int WrongKind(const FieldInfo& f, const Value& v, std::string* why) {
  return Fail(why, REFLECT_E_KIND,
              [&] { return KindWords(f) + ", not " + ValueWords(v) + " (" + f.type + ")"; });
}

// Sets a member of a value type from a Value, or says why not.
class Setter {
 public:
  // `number`: the class that holds the field.
  Setter(const FieldInfo& f, int number, const Value& v, std::string* why)
      : f_(f), number_(number), v_(v), why_(why) {}

  int operator()(CInt* m) const {
    if (Unset()) return Clear(*m);
    const int* i = std::get_if<int>(&v_);
    if (!i) return WrongKind(f_, v_, why_);
    m->value = *i;
    m->isSet = true;
    return REFLECT_OK;
  }

  int operator()(CDbl* m) const {
    if (Unset()) return Clear(*m);
    const double* d = std::get_if<double>(&v_);
    const int* i = std::get_if<int>(&v_);
    if (!d && !i) return WrongKind(f_, v_, why_);
    m->value = d ? *d : static_cast<double>(*i);
    m->isSet = true;
    return REFLECT_OK;
  }

  int operator()(CBool* m) const {
    if (Unset()) return Clear(*m);
    const bool* b = std::get_if<bool>(&v_);
    if (!b) return WrongKind(f_, v_, why_);
    m->value = *b;
    m->isSet = true;
    return REFLECT_OK;
  }

  int operator()(CDate* m) const {
    if (Unset()) {
      m->isSet = false;
      return REFLECT_OK;
    }
    const std::string* text = std::get_if<std::string>(&v_);
    if (!text) return WrongKind(f_, v_, why_);
    if (text->size() >= sizeof m->text || text->find('\0') != std::string::npos || text->empty()) {
      return Refused(
          *text, "a date is a text of 1 to " + std::to_string(sizeof m->text - 1) + " characters");
    }
    if (SetDate(*m, text->c_str())) return REFLECT_OK;
    return Refused(*text, "the runtime refuses it");
  }

  int operator()(CString* m) const {
    if (Unset()) {
      *m = "";
      return REFLECT_OK;
    }
    const std::string* text = std::get_if<std::string>(&v_);
    if (!text) return WrongKind(f_, v_, why_);
    if (text->find('\0') != std::string::npos) {
      return Refused(*text, "a text holds no NUL byte");
    }
    *m = text->c_str();
    return REFLECT_OK;
  }

  int operator()(CIntArray* m) const { return Elements<int>(*m); }
  int operator()(CDblArray* m) const { return Elements<double>(*m); }

  int operator()(CMsgBase*) const { return NoValue(); }
  int operator()(CMsgBase_Array*) const { return NoValue(); }

 private:
  bool Unset() const { return std::holds_alternative<std::monostate>(v_); }

  // The state of a new value: 0 with the flag clear.
  template <class V>
  int Clear(V& m) const {
    m.value = 0;
    m.isSet = false;
    return REFLECT_OK;
  }

  int NoValue() const {
    return Fail(why_, REFLECT_E_KIND,
                [&] { return KindWords(f_) + ": it takes no value, its fields do"; });
  }

  int Refused(const std::string& text, const std::string& cause) const {
    return Fail(why_, REFLECT_E_VALUE, [&] {
      return std::string(f_.name) + " cannot take " + Quote(text) + ": " + cause;
    });
  }

  // A value array is filled the one way the runtime offers, by reading it
  // from a message that holds the elements under the field's tag.
  template <class E, class A>
  int Elements(A& m) const {
    std::vector<E> widened;
    const std::vector<E>* elements = std::get_if<std::vector<E>>(&v_);
    if constexpr (std::is_same_v<E, double>) {
      if (const auto* ints = std::get_if<std::vector<int>>(&v_)) {
        widened.assign(ints->begin(), ints->end());
        elements = &widened;
      }
    }
    if (!elements && !Unset()) return WrongKind(f_, v_, why_);
    if (Unset() || elements->empty()) {
      const A none;
      m = none;
      return REFLECT_OK;
    }
    CMsg* msg = nullptr;
    try {
      CMsgDic* dic = MA_GetMsgDic();
      msg = new CMsg(number_, 0, 0, dic);
    } catch (...) {
    }
    if (!msg) return MSG_E_NOMEM;
    int rc = 0;
    for (E e : *elements) {
      rc = msg->SetValue(f_.tag, e);
      if (rc < 0) break;
    }
    A filled;
    if (rc >= 0) rc = msg->GetValue(f_.tag, &filled);
    delete msg;
    if (rc < 0) {
      return Fail(why_, REFLECT_E_VALUE, [&] {
        return std::string(f_.name) + ": the runtime refused the elements (code " +
               std::to_string(rc) + ")";
      });
    }
    m = filled;
    return REFLECT_OK;
  }

  const FieldInfo& f_;
  int number_;
  const Value& v_;
  std::string* why_;
};

// ---- equality and differences ----

bool SameBits(double a, double b) {
  uint64_t x, y;
  std::memcpy(&x, &a, sizeof x);
  std::memcpy(&y, &b, sizeof y);
  return x == y;
}

bool Same(const CInt& a, const CInt& b) {
  return !a.isSet == !b.isSet && (!a.isSet || a.value == b.value);
}
bool Same(const CDbl& a, const CDbl& b) {
  return !a.isSet == !b.isSet && (!a.isSet || SameBits(a.value, b.value));
}
bool Same(const CBool& a, const CBool& b) {
  return !a.isSet == !b.isSet && (!a.isSet || !a.value == !b.value);
}
bool Same(const CDate& a, const CDate& b) {
  return !a.isSet == !b.isSet && (!a.isSet || std::strncmp(a.text, b.text, sizeof a.text) == 0);
}
bool Same(const CString& a, const CString& b) {
  return a.GetSize() == b.GetSize() &&
         std::memcmp(a.ToStr(), b.ToStr(), static_cast<size_t>(a.GetSize())) == 0;
}
bool Same(const CIntArray& a, const CIntArray& b) {
  if (a.size != b.size) return false;
  for (int i = 0; i < a.size; ++i) {
    if (a.GetAt(i) != b.GetAt(i)) return false;
  }
  return true;
}
bool Same(const CDblArray& a, const CDblArray& b) {
  if (a.size != b.size) return false;
  for (int i = 0; i < a.size; ++i) {
    if (!SameBits(a.GetAt(i), b.GetAt(i))) return false;
  }
  return true;
}

void PutDouble(std::string& out, double d) {
  char digits[32];
  out.append(digits, std::to_chars(digits, digits + sizeof digits, d).ptr);
}

std::string TextOf(const CInt& v) { return v.isSet ? std::to_string(v.value) : "-"; }
std::string TextOf(const CDbl& v) {
  std::string out;
  if (!v.isSet) return "-";
  PutDouble(out, v.value);
  return out;
}
std::string TextOf(const CBool& v) { return !v.isSet ? "-" : v.value ? "Y" : "N"; }
std::string TextOf(const CDate& v) {
  std::string out;
  if (!v.isSet) return "-";
  AppendQuoted(&out, std::string_view(v.text, strnlen(v.text, sizeof v.text)));
  return out;
}
std::string TextOf(const CString& v) {
  std::string out;
  AppendQuoted(&out, std::string_view(v.ToStr(), static_cast<size_t>(v.GetSize())));
  return out;
}
template <class A>
std::string ListOf(const A& a) {
  std::string out = "[";
  for (int i = 0; i < a.size; ++i) {
    if (i > 0) out += ", ";
    if constexpr (std::is_same_v<A, CDblArray>) {
      PutDouble(out, a.GetAt(i));
    } else {
      out += std::to_string(a.GetAt(i));
    }
  }
  return out + "]";
}
std::string TextOf(const CIntArray& v) { return ListOf(v); }
std::string TextOf(const CDblArray& v) { return ListOf(v); }

// Compares two objects of one class field by field. Without a list of
// differences it stops at the first; with one it goes on and lists each.
class Compare final : public pd::FieldOp {
 public:
  explicit Compare(std::vector<Difference>* out) : out_(out) {}

  bool operator()(int, const char* n, CInt& a, const CInt& b) override { return Pair(n, a, b); }
  bool operator()(int, const char* n, CDbl& a, const CDbl& b) override { return Pair(n, a, b); }
  bool operator()(int, const char* n, CBool& a, const CBool& b) override { return Pair(n, a, b); }
  bool operator()(int, const char* n, CDate& a, const CDate& b) override { return Pair(n, a, b); }
  bool operator()(int, const char* n, CString& a, const CString& b) override {
    return Pair(n, a, b);
  }
  bool operator()(int, const char* n, CIntArray& a, const CIntArray& b) override {
    return Pair(n, a, b);
  }
  bool operator()(int, const char* n, CDblArray& a, const CDblArray& b) override {
    return Pair(n, a, b);
  }

  bool operator()(int, const char* name, CMsgBase& a, const CMsgBase& b, pd::Walk walk) override {
    const size_t mark = Enter(name);
    const bool on = walk(*this, a, b) || out_;
    path_.resize(mark);
    return on;
  }

  bool operator()(int, const char* name, CMsgBase_Array& a, const CMsgBase_Array& b,
                  pd::Walk walk) override {
    int i = 0;
    for (;; ++i) {
      CMsgBase* x = a.GetAt(i);
      const CMsgBase* y = b.GetAt(i);
      if (!x || !y) break;
      const size_t mark = Element(name, i);
      const bool on = walk(*this, *x, *y) || out_;
      path_.resize(mark);
      if (!on) return false;
    }
    // Elements that only one side has.
    for (;; ++i) {
      const bool left = a.GetAt(i) != nullptr;
      const bool right = b.GetAt(i) != nullptr;
      if (!left && !right) return true;
      if (!out_) return false;
      const size_t mark = Element(name, i);
      Add(name, left ? "(element)" : "(none)", right ? "(element)" : "(none)");
      path_.resize(mark);
    }
  }

 private:
  template <class V>
  bool Pair(const char* name, const V& a, const V& b) {
    if (Same(a, b)) return true;
    if (!out_) return false;
    const size_t mark = Enter(name);
    Add(name, TextOf(a), TextOf(b));
    path_.resize(mark);
    return true;
  }

  // Appends a step to the path; gives the length to cut it back to.
  size_t Enter(const char* name) {
    const size_t mark = path_.size();
    if (mark > 0) path_ += '.';
    path_ += name;
    return mark;
  }
  size_t Element(const char* name, int i) {
    const size_t mark = Enter(name);
    path_ += '[';
    path_ += std::to_string(i);
    path_ += ']';
    return mark;
  }

  void Add(const char* name, std::string left, std::string right) {
    out_->push_back({path_, schema::FindField(name), std::move(left), std::move(right)});
  }

  std::vector<Difference>* out_;
  std::string path_;
};

// ---- failure texts ----

// Matches `format` (text, "%s" for a run of name characters, "%d" and
// "%04d" for a number that fits an int, with a sign for "%d") against `text`
// from `at`; gives the end of the match, or npos.
size_t Match(const char* format, std::string_view text, size_t at, std::string_view* name,
             int* first, int* second, int* third) {
  int* numbers[] = {first, second, third};
  int n = 0;
  for (const char* f = format; *f; ++f) {
    if (*f != '%') {
      if (at >= text.size() || text[at] != *f) return std::string_view::npos;
      ++at;
      continue;
    }
    ++f;
    if (*f == 's') {
      size_t end = at;
      while (end < text.size() && IsNameChar(text[end])) ++end;
      *name = text.substr(at, end - at);
      at = end;
      continue;
    }
    const bool sign = *f == 'd';
    while (*f != 'd') ++f;  // "%04d"
    size_t end = at;
    if (sign && end < text.size() && text[end] == '-') ++end;
    const size_t digits = end;
    while (end < text.size() && end - digits < 11 && text[end] >= '0' && text[end] <= '9') ++end;
    int value = 0;
    auto [ptr, ec] = std::from_chars(text.data() + at, text.data() + end, value);
    if (end == digits || ec != std::errc() || ptr != text.data() + end || n == 3) {
      return std::string_view::npos;
    }
    *numbers[n++] = value;
    at = end;
  }
  return at;
}

struct FailureForm {
  const char* format;
  FailureOp op;
};
constexpr FailureForm kForms[] = {
    {pd::kGetValText, FailureOp::kGetValue},
    {pd::kGetSubText, FailureOp::kGetSub},
    {pd::kGetArrText, FailureOp::kGetArray},
    {pd::kSetValText, FailureOp::kSetValue},
    {pd::kSetSubText, FailureOp::kSetSub},
    {pd::kSetArrText, FailureOp::kSetArray},
    {pd::kWrongNumberText, FailureOp::kWrongNumber},
    {pd::kArrayNoMemoryText, FailureOp::kArrayNoMemory},
    {pd::kNoMessageText, FailureOp::kNoMessage},
};

}  // namespace

// ---- classes and objects ----

const ClassInfo* ClassOf(const CMsgBase& obj) { return Bind(obj).cls; }

std::unique_ptr<CMsgBase> NewMessage(int number) {
  const ClassInfo* cls = schema::FindClass(number);
  return std::unique_ptr<CMsgBase>(cls ? sd::kClassOps[schema::IndexOf(*cls)]->make() : nullptr);
}

std::unique_ptr<CMsgBase> NewMessage(std::string_view name) {
  const ClassInfo* cls = schema::FindClass(name);
  return cls ? NewMessage(cls->number) : nullptr;
}

std::unique_ptr<CMsgBase_Array> NewArray(int number) {
  const ClassInfo* cls = schema::FindClass(number);
  if (!cls) return nullptr;
  try {
    return std::unique_ptr<CMsgBase_Array>(sd::kClassOps[schema::IndexOf(*cls)]->makeArray());
  } catch (...) {
    return nullptr;
  }
}

int Copy(CMsgBase& dst, const CMsgBase& src) {
  const Bound b = Bind(src);
  if (!b.cls || Bind(dst).cls != b.cls) return REFLECT_E_CLASS;
  pd::Copy(dst, src, b.ops->walk);
  return REFLECT_OK;
}

int Copy(CMsgBase_Array& dst, const CMsgBase_Array& src) {
  if (typeid(dst) != typeid(src)) return REFLECT_E_CLASS;
  const CMsgBase* first = src.GetAt(0);
  if (!first) {
    dst.SetSize(0);
    return REFLECT_OK;
  }
  const Bound b = Bind(*first);
  if (!b.cls) return REFLECT_E_CLASS;
  pd::CopyArray(dst, src, b.ops->walk);
  return REFLECT_OK;
}

// ---- a visit ----

int Visit(CMsgBase& obj, FieldVisitor& visitor) { return VisitWith(obj, visitor); }
int Visit(const CMsgBase& obj, ConstFieldVisitor& visitor) { return VisitWith(obj, visitor); }

// ---- fields by path ----

int Find(CMsgBase& obj, std::string_view path, FieldRef* out, std::string* why) {
  return FindIn(obj, path, out, why);
}

int Find(const CMsgBase& obj, std::string_view path, ConstFieldRef* out, std::string* why) {
  FieldRef found;
  const int rc = FindIn(const_cast<CMsgBase&>(obj), path, &found, why);
  if (rc == REFLECT_OK) *out = {found.field, found.holder, AsConst(found.member)};
  return rc;
}

int Find(CMsgBase& obj, int tag, FieldRef* out, std::string* why) {
  const Bound b = Bind(obj);
  if (!b.cls) return NoClass(obj, why);
  const int index = schema::MemberIndex(*b.cls, tag);
  if (index < 0) {
    return Fail(why, REFLECT_E_NAME, [&] {
      return std::string(b.cls->name) + " has no field under the tag T" + std::to_string(tag);
    });
  }
  Pick pick(index);
  b.ops->walk(pick, obj, obj);
  *out = {&schema::MemberOf(*b.cls, index), b.cls, pick.member};
  return REFLECT_OK;
}

int Get(const ConstFieldRef& ref, Value* out, std::string* why) {
  try {
    return std::visit(
        [&](const auto* m) -> int {
          using M = std::remove_const_t<std::remove_pointer_t<decltype(m)>>;
          if constexpr (std::is_same_v<M, CMsgBase> || std::is_same_v<M, CMsgBase_Array>) {
            return Fail(why, REFLECT_E_KIND,
                        [&] { return KindWords(*ref.field) + ": it has no value, its fields do"; });
          } else {
            *out = ValueOf(*m);
            return REFLECT_OK;
          }
        },
        ref.member);
  } catch (const std::bad_alloc&) {
    return MSG_E_NOMEM;
  }
}

int Get(const CMsgBase& obj, std::string_view path, Value* out, std::string* why) {
  ConstFieldRef ref;
  const int rc = Find(obj, path, &ref, why);
  return rc != REFLECT_OK ? rc : Get(ref, out, why);
}

int Set(const FieldRef& ref, const Value& value, std::string* why) {
  try {
    return std::visit(Setter(*ref.field, ref.holder->number, value, why), ref.member);
  } catch (const std::bad_alloc&) {
    return MSG_E_NOMEM;
  }
}

int Set(CMsgBase& obj, std::string_view path, const Value& value, std::string* why) {
  FieldRef ref;
  const int rc = Find(obj, path, &ref, why);
  return rc != REFLECT_OK ? rc : Set(ref, value, why);
}

// ---- equality and differences ----

bool Equal(const CMsgBase& a, const CMsgBase& b) {
  const Bound x = Bind(a);
  if (!x.cls || Bind(b).cls != x.cls) return false;
  Compare compare(nullptr);
  return x.ops->walk(compare, const_cast<CMsgBase&>(a), b);
}

int Diff(const CMsgBase& a, const CMsgBase& b, std::vector<Difference>* out) {
  const Bound x = Bind(a);
  if (!x.cls || Bind(b).cls != x.cls) return REFLECT_E_CLASS;
  const size_t before = out->size();
  try {
    Compare compare(out);
    x.ops->walk(compare, const_cast<CMsgBase&>(a), b);
  } catch (const std::bad_alloc&) {
    out->resize(before);
    return MSG_E_NOMEM;
  }
  return REFLECT_OK;
}

std::string DiffText(const std::vector<Difference>& differences) {
  std::string out;
  for (const Difference& d : differences) {
    out += d.path;
    out += ": ";
    out += d.left;
    out += " | ";
    out += d.right;
    out += '\n';
  }
  return out;
}

bool SetDate(CDate& date, const char* text) {
  const CDate old(date);
  date.isSet = false;
  date.Set(text);
  if (date.isSet || std::strncmp(date.text, text, sizeof date.text) == 0) {
    date.isSet = true;
    return true;
  }
  date.Set(old.text);
  date.isSet = old.isSet;
  return false;
}

void AppendQuoted(std::string* out, std::string_view text) {
  *out += '"';
  for (const char c : text) {
    const auto* e = std::find_if(std::begin(kTextEscapes), std::end(kTextEscapes),
                                 [c](const TextEscape& x) { return x.byte == c; });
    const unsigned char u = static_cast<unsigned char>(c);
    if (e != std::end(kTextEscapes)) {
      *out += '\\';
      *out += e->letter;
    } else if (u < 0x20 || u == 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      *out += hex;
    } else {
      *out += c;
    }
  }
  *out += '"';
}

// ---- failure texts ----

size_t ReadFailureText(std::string_view text, size_t at, FailureText* out) {
  for (const FailureForm& form : kForms) {
    FailureText read;
    read.op = form.op;
    int numbers[3] = {0, 0, 0};
    const size_t end =
        Match(form.format, text, at, &read.name, &numbers[0], &numbers[1], &numbers[2]);
    if (end == std::string_view::npos) continue;
    switch (form.op) {
      case FailureOp::kWrongNumber:
        read.given = numbers[0];
        read.number = numbers[1];
        break;
      case FailureOp::kNoMessage:
      case FailureOp::kArrayNoMemory:
        break;
      default:
        // A tagged text names a class.
        if (read.name.empty()) continue;
        read.number = numbers[0];
        read.tag = numbers[1];
        break;
    }
    *out = read;
    return end - at;
  }
  return 0;
}

bool ReadFailureText(std::string_view text, FailureText* out) {
  FailureText read;
  if (ReadFailureText(text, 0, &read) != text.size() || text.empty()) return false;
  *out = read;
  return true;
}

}  // namespace pricemsg
