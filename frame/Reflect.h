// Reflection: the fields of any object reached from outside its class, by
// name, tag or path, typed; a visit of every field; equality and the
// differences of two objects; objects made by class number or name; and the
// failure texts of the classes read back as data.
//
// Every member is reached through its class's own walk over its fields, in
// tag order (the walk that Load, ToMsg, Dump and Copy run), and handed over as
// what it is: a CInt&, a CDate&, a CMsgBase& for a held message, ... The
// descriptions come from the schema tables (SchemaTables.h).
//
//   M_FxBarr req;
//   std::string why;
//   if (pricemsg::Set(req, "mOptBarr.dStrike", 1.1, &why) != 0) puts(why.c_str());
//   pricemsg::FieldRef f;
//   pricemsg::Find(req, "mOptBarr.dStrike", &f);
//   std::get<CDbl*>(f.member)->value;   // 1.1
//
// A path is a series of steps separated by '.': a field name, or "T" and a
// tag ("T4566"); a step at a repeated sub-message takes an element index in
// brackets ("maLegs[3]"). Every step but the last reaches a message: a
// sub-message field or an element of an array field.
//
// Results are 0 or a negative code: REFLECT_E_* below, or MSG_E_NOMEM when
// memory runs out. Where a function takes `why`, a failure puts there a text
// for people that names the class, the step and the cause, with the nearest
// field names for a name that the class lacks.
//
// Objects of the classes only: an object is checked against its class (by
// number and by type) before it is walked, and an object whose msgnum has
// been changed is refused with REFLECT_E_CLASS.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "MsgBase.h"
#include "SchemaTables.h"

namespace pricemsg {

using schema::ClassInfo;
using schema::FieldInfo;
using schema::Kind;

enum ReflectResult {
  REFLECT_OK = 0,
  REFLECT_STOPPED = 1,    // Visit: the visitor ended the walk
  REFLECT_E_CLASS = -61,  // an object of no class of the schema, or objects of two classes
  REFLECT_E_PATH = -62,   // a path that does not read: empty, an empty step, a bad index
  REFLECT_E_NAME = -63,   // a name or tag that the class has no field under
  REFLECT_E_INDEX = -64,  // an index out of the range of the array's elements
  REFLECT_E_KIND = -65,   // a value of another kind than the field's, an index on a field
                          // that is no array of messages, a step into a field that is no
                          // message
  REFLECT_E_VALUE = -66,  // a value the member cannot hold: a date that the runtime
                          // refuses, a text with a NUL byte
};

// ---- the one dispatch over the kinds ----

template <class T>
struct TypeTag {
  using Type = T;
};

// Calls `f` with the TypeTag of the member type of `kind` (CInt, CDbl, CBool,
// CDate, CString, CIntArray, CDblArray; CMsgBase for kMessage, CMsgBase_Array
// for kMessageArray) and gives what it gives. The kinds are told apart here
// and nowhere else: whatever does something per kind overloads on the type.
template <class F>
decltype(auto) WithKind(Kind kind, F&& f) {
  switch (kind) {
    case Kind::kInt:
      return f(TypeTag<CInt>{});
    case Kind::kDbl:
      return f(TypeTag<CDbl>{});
    case Kind::kBool:
      return f(TypeTag<CBool>{});
    case Kind::kDate:
      return f(TypeTag<CDate>{});
    case Kind::kString:
      return f(TypeTag<CString>{});
    case Kind::kIntArray:
      return f(TypeTag<CIntArray>{});
    case Kind::kDblArray:
      return f(TypeTag<CDblArray>{});
    case Kind::kMessage:
      return f(TypeTag<CMsgBase>{});
    case Kind::kMessageArray:
      break;
  }
  return f(TypeTag<CMsgBase_Array>{});
}

// ---- members ----

// A member, typed: a pointer to it as its class declares it, a held message
// or array by its base. The alternatives stand in the order of Kind.
using Member = std::variant<CInt*, CDbl*, CBool*, CDate*, CString*, CIntArray*, CDblArray*,
                            CMsgBase*, CMsgBase_Array*>;
using ConstMember =
    std::variant<const CInt*, const CDbl*, const CBool*, const CDate*, const CString*,
                 const CIntArray*, const CDblArray*, const CMsgBase*, const CMsgBase_Array*>;

// A field of an object found by Find: its description, the class that holds
// it, and its member; an element of a repeated sub-message ("maLegs[3]") is a
// CMsgBase*, with the array's description.
struct FieldRef {
  const FieldInfo* field = nullptr;
  const ClassInfo* holder = nullptr;
  Member member;
};
struct ConstFieldRef {
  const FieldInfo* field = nullptr;
  const ClassInfo* holder = nullptr;
  ConstMember member;
};

// The value of a field of a value kind in plain C++ types: an int, double or
// bool; the text of a date or a string; the elements of an int or double
// array. std::monostate is an unset int, double, bool or date; given to Set,
// it also empties a string or an array.
using Value = std::variant<std::monostate, int, double, bool, std::string, std::vector<int>,
                           std::vector<double>>;

// ---- classes and objects ----

// The class of an object of a generated class; null for another object, or
// one whose msgnum has been changed.
PRICEMSG_EXPORT const ClassInfo* ClassOf(const CMsgBase& obj);

// A new object of the class of that number or name (as "M_FxBarr"), every
// field unset; null for no class, or when memory runs out.
PRICEMSG_EXPORT std::unique_ptr<CMsgBase> NewMessage(int number);
PRICEMSG_EXPORT std::unique_ptr<CMsgBase> NewMessage(std::string_view name);
// A new, empty array of the class of that number; null likewise.
PRICEMSG_EXPORT std::unique_ptr<CMsgBase_Array> NewArray(int number);

// The Copy of the class: `dst` takes every field of `src`, an object of the
// same class. REFLECT_E_CLASS, with `dst` unchanged, for objects of two
// classes.
PRICEMSG_EXPORT int Copy(CMsgBase& dst, const CMsgBase& src);
// The same for two arrays of the same class (their elements copied as the
// array class's Copy does).
PRICEMSG_EXPORT int Copy(CMsgBase_Array& dst, const CMsgBase_Array& src);

// ---- a visit of every field ----

// Called for each field of an object in tag order, with its description and
// its member; a false result ends the visit.
class FieldVisitor {
 public:
  virtual ~FieldVisitor() = default;
  virtual bool operator()(const FieldInfo& f, CInt& v) = 0;
  virtual bool operator()(const FieldInfo& f, CDbl& v) = 0;
  virtual bool operator()(const FieldInfo& f, CBool& v) = 0;
  virtual bool operator()(const FieldInfo& f, CDate& v) = 0;
  virtual bool operator()(const FieldInfo& f, CString& v) = 0;
  virtual bool operator()(const FieldInfo& f, CIntArray& v) = 0;
  virtual bool operator()(const FieldInfo& f, CDblArray& v) = 0;
  virtual bool operator()(const FieldInfo& f, CMsgBase& v) = 0;
  virtual bool operator()(const FieldInfo& f, CMsgBase_Array& v) = 0;
};

class ConstFieldVisitor {
 public:
  virtual ~ConstFieldVisitor() = default;
  virtual bool operator()(const FieldInfo& f, const CInt& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CDbl& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CBool& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CDate& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CString& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CIntArray& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CDblArray& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CMsgBase& v) = 0;
  virtual bool operator()(const FieldInfo& f, const CMsgBase_Array& v) = 0;
};

// Visits the fields of `obj`, not those of the messages it holds. REFLECT_OK,
// REFLECT_STOPPED when the visitor ended it, or REFLECT_E_CLASS.
PRICEMSG_EXPORT int Visit(CMsgBase& obj, FieldVisitor& visitor);
PRICEMSG_EXPORT int Visit(const CMsgBase& obj, ConstFieldVisitor& visitor);

namespace reflect_detail {

template <class F, class M>
bool Call(F& f, const FieldInfo& field, M& member) {
  if constexpr (std::is_void_v<decltype(f(field, member))>) {
    f(field, member);
    return true;
  } else {
    return f(field, member);
  }
}

template <class F, class Base, bool kConst>
class Lambda final : public Base {
  template <class T>
  using M = std::conditional_t<kConst, const T, T>;

 public:
  explicit Lambda(F& f) : f_(f) {}
  bool operator()(const FieldInfo& i, M<CInt>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CDbl>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CBool>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CDate>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CString>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CIntArray>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CDblArray>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CMsgBase>& v) override { return Call(f_, i, v); }
  bool operator()(const FieldInfo& i, M<CMsgBase_Array>& v) override { return Call(f_, i, v); }

 private:
  F& f_;
};

}  // namespace reflect_detail

// Visit with a callable, `f(const FieldInfo&, auto& member)`, that gives
// void or a bool (false ends the visit).
template <class F>
int ForEachField(CMsgBase& obj, F&& f) {
  reflect_detail::Lambda<std::remove_reference_t<F>, FieldVisitor, false> v(f);
  return Visit(obj, v);
}
template <class F>
int ForEachField(const CMsgBase& obj, F&& f) {
  reflect_detail::Lambda<std::remove_reference_t<F>, ConstFieldVisitor, true> v(f);
  return Visit(obj, v);
}

// ---- fields by path ----

// The field at `path` from `obj` (see the top of this header).
PRICEMSG_EXPORT int Find(CMsgBase& obj, std::string_view path, FieldRef* out,
                         std::string* why = nullptr);
PRICEMSG_EXPORT int Find(const CMsgBase& obj, std::string_view path, ConstFieldRef* out,
                         std::string* why = nullptr);
// The field of `obj`'s own class under `tag`.
PRICEMSG_EXPORT int Find(CMsgBase& obj, int tag, FieldRef* out, std::string* why = nullptr);

// The value of a field of a value kind; REFLECT_E_KIND for a message or an
// array of messages, whose fields are reached by longer paths.
PRICEMSG_EXPORT int Get(const CMsgBase& obj, std::string_view path, Value* out,
                        std::string* why = nullptr);
PRICEMSG_EXPORT int Get(const ConstFieldRef& ref, Value* out, std::string* why = nullptr);

// Sets a field of a value kind. The value must be of the field's kind: an
// int for an int (an int is taken for a double too), a double, a bool, a
// text for a date or a string, the elements for an array; std::monostate
// unsets the value or empties it. A date goes through the runtime's
// CDate::Set: a text that it refuses gives REFLECT_E_VALUE, and the date
// stays as it was. A text with a NUL byte is refused (the runtime's texts
// end at the first). On failure the member stays as it was.
PRICEMSG_EXPORT int Set(CMsgBase& obj, std::string_view path, const Value& value,
                        std::string* why = nullptr);
PRICEMSG_EXPORT int Set(const FieldRef& ref, const Value& value, std::string* why = nullptr);

// Sets `date` to `text` (1 to 8 characters) through the runtime's
// CDate::Set, which fills the text and may mark the date set itself or leave
// that to its caller, as Copy does. True with the date set to the text that
// the runtime took; false, with the date as it was, if it took none.
PRICEMSG_EXPORT bool SetDate(CDate& date, const char* text);

// ---- equality and differences ----

// True if `a` and `b` are objects of one class whose fields hold the same
// values, blocks and arrays all the way down:
// - an int, double, bool or date that is unset equals only an unset one,
//   whatever its value (an unset value counts for nothing);
// - doubles are equal when their bits are: 0.0 and -0.0 differ, and a NaN
//   equals a NaN of the same bits and nothing else;
// - dates compare their texts, strings their bytes;
// - arrays compare their sizes and then each element in turn.
// msgname, errtext and errcode are not fields and do not count.
PRICEMSG_EXPORT bool Equal(const CMsgBase& a, const CMsgBase& b);

// One field that differs: its path from the objects compared, as Find takes
// it, and both values as text: "-" for an unset value, an int as digits, a
// double in the shortest form that reads back exactly, a bool Y or N, a date
// or a string quoted with \" \\ \n \t \r and \xHH escapes, an int or double
// array as "[1, 2, 3]"; for an element that only one array has,
// "(element)" and "(none)".
struct Difference {
  std::string path;
  const FieldInfo* field = nullptr;
  std::string left;
  std::string right;
};

// The fields in which `a` and `b` differ, in tag order, depth first, each
// element of an array in turn: nothing for equal objects. REFLECT_E_CLASS for
// objects of two classes; MSG_E_NOMEM when memory runs out (`out` is then as
// it was).
PRICEMSG_EXPORT int Diff(const CMsgBase& a, const CMsgBase& b, std::vector<Difference>* out);
// One line a difference, "<path>: <left> | <right>", each ending in '\n'.
PRICEMSG_EXPORT std::string DiffText(const std::vector<Difference>& differences);

// The escapes of quoted texts: a byte, and the letter that follows the
// backslash for it. Any other byte below 0x20, and 0x7f, is written \xHH.
struct TextEscape {
  char byte;
  char letter;
};
inline constexpr TextEscape kTextEscapes[] = {
    {'"', '"'}, {'\\', '\\'}, {'\n', 'n'}, {'\t', 't'}, {'\r', 'r'},
};
// Appends `text` in quotes as message files write texts, with kTextEscapes
// and \xHH (lower-case digits).
PRICEMSG_EXPORT void AppendQuoted(std::string* out, std::string_view text);

// ---- failure texts as data ----

enum class FailureOp {
  kWrongNumber,    // "invalid input message of service(<given>,<number>)"
  kNoMessage,      // "Out of memory": ToMsg could make no message
  kArrayNoMemory,  // "<name> : Out of memory" of an array
  kGetValue,       // "<class>:GET_VAL_ONE(M<number>.T<tag>) fail"
  kGetSub,         // GET_SUB_ONE
  kGetArray,       // GET_SUB_ARR
  kSetValue,       // SET_VAL_ONE
  kSetSub,         // SET_SUB_ONE
  kSetArray,       // SET_SUB_ARR
};

// A failure text of the classes, read. `name` is the class name of a tagged
// text and the array's name of kArrayNoMemory, a view into the text read.
struct FailureText {
  FailureOp op = FailureOp::kNoMessage;
  std::string_view name;
  int number = 0;  // the message number of a tagged text; the own number of kWrongNumber
  int tag = 0;
  int given = 0;  // kWrongNumber: the number of the message that Load was given
};

// Reads the failure text that starts at `at` in `text`, as the classes write
// it; gives its length, or 0 if none starts there. The name of a tagged text
// or of an array is the run of name characters (letters, digits, '_') from
// `at`.
PRICEMSG_EXPORT size_t ReadFailureText(std::string_view text, size_t at, FailureText* out);
// True if the whole of `text` is one failure text (an object's errtext).
PRICEMSG_EXPORT bool ReadFailureText(std::string_view text, FailureText* out);

}  // namespace pricemsg
