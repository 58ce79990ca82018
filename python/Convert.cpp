// Values between Python and the members of the message classes: a field's
// value read as int, float, bool, datetime.date or str (None where unset),
// Python values checked against the field's kind, and whole objects to and
// from dicts in one walk.
//
// Python code may run while a Python value is read (an __index__, a list
// that is an iterator, a finalizer at an allocation), so values are always
// read into C++ first and written into a message that Python cannot reach
// (a fresh object or a temporary); only then does anything reach a tree that
// handles share.
#include <Python.h>
#include <datetime.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "PyMessages.h"

namespace pricemsg::python {

namespace {

// The field names as interned Python texts, by their place in the
// dictionary, made once.
std::vector<py::object>& NameTexts() {
  static auto* names = new std::vector<py::object>();  // kept past the interpreter's end
  return *names;
}

py::handle NameText(const FieldInfo& f) {
  const auto fields = schema::Fields();
  const std::ptrdiff_t i = &f - fields.begin();
  if (i < 0 || i >= fields.size()) throw std::logic_error("a field outside the dictionary");
  py::object& name = NameTexts()[static_cast<size_t>(i)];
  if (!name) {
    name = py::reinterpret_steal<py::object>(PyUnicode_InternFromString(f.name));
    if (!name) throw py::error_already_set();
  }
  return name;
}

// The fields of the dictionary by their Python names, to their place in it:
// a lookup hashes the key once, as Python has already done for its dict.
py::dict& FieldIndex() {
  static auto* index = new py::dict();  // kept past the interpreter's end
  return *index;
}

// The field of the dictionary that a Python key names; null for another key.
const FieldInfo* FieldOfKey(py::handle key) {
  PyObject* i = PyDict_GetItemWithError(FieldIndex().ptr(), key.ptr());
  if (!i) {
    if (PyErr_Occurred()) throw py::error_already_set();
    return nullptr;
  }
  return &schema::Fields()[static_cast<int>(PyLong_AsLong(i))];
}

const char* PythonWords(Kind kind) {
  switch (kind) {
    case Kind::kInt:
      return "an int";
    case Kind::kDbl:
      return "a float or an int";
    case Kind::kBool:
      return "a bool";
    case Kind::kDate:
      return "a datetime.date or a 'YYYYMMDD' str";
    case Kind::kString:
      return "a str or bytes";
    case Kind::kIntArray:
      return "a list of int";
    case Kind::kDblArray:
      return "a list of float";
    case Kind::kMessage:
    case Kind::kMessageArray:
      break;
  }
  return "";
}

std::string TypeName(py::handle value) { return Py_TYPE(value.ptr())->tp_name; }

// "M_FxBarr.mOptBarr.dStrike (double of M_OptBarr)"
std::string FieldWords(const FieldInfo& f, const ClassInfo& holder, const Where& where) {
  return where.Text() + " (" + schema::InfoOf(f.kind).words + " of " + holder.name + ")";
}

[[noreturn]] void WrongType(const FieldInfo& f, const ClassInfo& holder, py::handle value,
                            const Where& where) {
  throw py::type_error(FieldWords(f, holder, where) + " takes " + Wanted(f) + ", not " +
                       TypeName(value));
}

[[noreturn]] void OutOfRange(const FieldInfo& f, const ClassInfo& holder, py::handle value,
                             const Where& where) {
  PyErr_Clear();
  std::string shown = py::repr(value);
  if (shown.size() > 40) shown = shown.substr(0, 40) + "...";
  PyErr_SetString(PyExc_OverflowError, (FieldWords(f, holder, where) + ": " + shown +
                                        " is out of the range of an int, -2147483648 to 2147483647")
                                           .c_str());
  throw py::error_already_set();
}

// An int of the field's range from an int (not a bool) or an object with
// __index__; false for anything else.
bool IntOf(const FieldInfo& f, const ClassInfo& holder, py::handle value, const Where& where,
           int* out) {
  if (PyBool_Check(value.ptr()) || (!PyLong_Check(value.ptr()) && !PyIndex_Check(value.ptr()))) {
    return false;
  }
  py::object index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
  if (!index) throw py::error_already_set();
  int overflow = 0;
  const long long x = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
  if (x == -1 && PyErr_Occurred()) throw py::error_already_set();
  if (overflow || x < INT_MIN || x > INT_MAX) OutOfRange(f, holder, value, where);
  *out = static_cast<int>(x);
  return true;
}

// A double from a float, or from an int (not a bool) that a double holds.
bool DoubleOf(const FieldInfo& f, const ClassInfo& holder, py::handle value, const Where& where,
              double* out) {
  if (PyFloat_Check(value.ptr())) {
    *out = PyFloat_AS_DOUBLE(value.ptr());
    return true;
  }
  if (PyBool_Check(value.ptr()) || (!PyLong_Check(value.ptr()) && !PyIndex_Check(value.ptr()))) {
    return false;
  }
  py::object index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
  if (!index) throw py::error_already_set();
  const double d = PyLong_AsDouble(index.ptr());
  if (d == -1.0 && PyErr_Occurred()) {
    PyErr_Clear();
    PyErr_SetString(PyExc_OverflowError,
                    (FieldWords(f, holder, where) + ": " +
                     std::string(py::repr(value)).substr(0, 40) + " is too large for a double")
                        .c_str());
    throw py::error_already_set();
  }
  *out = d;
  return true;
}

// The bytes of a str (UTF-8, with lone surrogates from undecodable bytes
// given back as those bytes) or of a bytes object; false for anything else.
bool TextOf(py::handle value, std::string* out) {
  if (PyUnicode_Check(value.ptr())) {
    Py_ssize_t size = 0;
    if (const char* utf8 = PyUnicode_AsUTF8AndSize(value.ptr(), &size)) {
      out->assign(utf8, static_cast<size_t>(size));
      return true;
    }
    PyErr_Clear();
    py::object bytes = py::reinterpret_steal<py::object>(
        PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    out->assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(bytes.ptr())));
    return true;
  }
  if (PyBytes_Check(value.ptr())) {
    out->assign(PyBytes_AS_STRING(value.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(value.ptr())));
    return true;
  }
  return false;
}

// The items of an iterable that is meant as a list, taken whole into a tuple
// of their own, so that Python code run meanwhile cannot change them; null
// for a text, a mapping, a message or what does not iterate.
py::object ItemsOf(py::handle value) {
  if (PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr()) || PyDict_Check(value.ptr()) ||
      NodeOf(value)) {
    return py::object();
  }
  PyObject* tuple = PySequence_Tuple(value.ptr());
  if (!tuple) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) throw py::error_already_set();
    PyErr_Clear();
    return py::object();
  }
  return py::reinterpret_steal<py::object>(tuple);
}

template <class E>
Value ElementsOf(const FieldInfo& f, const ClassInfo& holder, py::handle value,
                 const Where& where) {
  py::object items = ItemsOf(value);
  if (!items) WrongType(f, holder, value, where);
  const Py_ssize_t n = PyTuple_GET_SIZE(items.ptr());
  std::vector<E> out;
  out.reserve(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    const Where at{&where, nullptr, static_cast<long>(i)};
    py::handle item = PyTuple_GET_ITEM(items.ptr(), i);
    E e{};
    bool ok;
    if constexpr (std::is_same_v<E, int>) {
      ok = IntOf(f, holder, item, at, &e);
    } else {
      ok = DoubleOf(f, holder, item, at, &e);
    }
    if (!ok) {
      throw py::type_error(FieldWords(f, holder, at) + " takes " +
                           (std::is_same_v<E, int> ? "int" : "float or int") + " elements, not " +
                           TypeName(item));
    }
    out.push_back(e);
  }
  return out;
}

PyDateTime_CAPI* DateApi() {
  if (!PyDateTimeAPI) {
    PyDateTime_IMPORT;
    if (!PyDateTimeAPI) throw py::error_already_set();
  }
  return PyDateTimeAPI;
}

py::object DateToPython(const CDate& d) {
  if (!d.isSet) return py::none();
  const size_t n = strnlen(d.text, sizeof d.text);
  int y = 0, m = 0, day = 0;
  bool digits = n == 8;
  for (size_t i = 0; digits && i < 8; ++i) digits = d.text[i] >= '0' && d.text[i] <= '9';
  if (digits && std::sscanf(d.text, "%4d%2d%2d", &y, &m, &day) == 3) {
    DateApi();
    if (PyObject* date = PyDate_FromDate(y, m, day)) return py::reinterpret_steal<py::object>(date);
    PyErr_Clear();
  }
  // A runtime may keep dates that the calendar lacks: they stay texts.
  return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(d.text, n, "surrogateescape"));
}

py::object TextToPython(const CString& s) {
  const int size = s.GetSize();
  PyObject* text = PyUnicode_DecodeUTF8(s.ToStr(), size > 0 ? size : 0, "surrogateescape");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(text);
}

template <class A>
py::list ListOf(const A& a) {
  py::list out(a.size > 0 ? a.size : 0);
  for (int i = 0; i < a.size; ++i) {
    PyObject* e;
    if constexpr (std::is_same_v<A, CIntArray>) {
      e = PyLong_FromLong(a.GetAt(i));
    } else {
      e = PyFloat_FromDouble(a.GetAt(i));
    }
    if (!e) throw py::error_already_set();
    PyList_SET_ITEM(out.ptr(), i, e);
  }
  return out;
}

py::object Scalar(const CInt& v) {
  if (!v.isSet) return py::none();
  return py::int_(v.value);
}
py::object Scalar(const CDbl& v) {
  if (!v.isSet) return py::none();
  return py::float_(v.value);
}
py::object Scalar(const CBool& v) {
  if (!v.isSet) return py::none();
  return py::bool_(v.value);
}
py::object Scalar(const CDate& v) { return DateToPython(v); }
py::object Scalar(const CString& v) { return TextToPython(v); }
py::object Scalar(const CIntArray& v) { return ListOf(v); }
py::object Scalar(const CDblArray& v) { return ListOf(v); }

// Fills one field of a fresh message from a Python value.
void FillField(const ClassInfo& cls, const FieldInfo& f, const Member& member, py::handle value,
               const Where& where) {
  switch (f.kind) {
    case Kind::kMessage:
      FillMessage(*std::get<CMsgBase*>(member), schema::HeldClass(f), value, where);
      return;
    case Kind::kMessageArray:
      FillArray(*std::get<CMsgBase_Array*>(member), schema::HeldClass(f), value, where);
      return;
    default:
      SetValue(FieldRef{&f, &cls, member}, ValueFromPython(f, cls, value, where), where);
  }
}

// The checks of the keys "class" and "number" that a dict read from JSON
// carries; false for another key.
bool ClassKey(const ClassInfo& cls, std::string_view key, py::handle value, const Where& where) {
  if (key == "class") {
    std::string name;
    if (!PyUnicode_Check(value.ptr()) || !TextOf(value, &name) || name != cls.name) {
      throw py::value_error(where.Text() + ": \"class\" is " + std::string(py::repr(value)) +
                            ", not '" + cls.name + "'");
    }
    return true;
  }
  if (key == "number") {
    if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr()) ||
        PyLong_AsLong(value.ptr()) != cls.number) {
      PyErr_Clear();
      throw py::value_error(where.Text() + ": \"number\" is " + std::string(py::repr(value)) +
                            ", not " + std::to_string(cls.number));
    }
    return true;
  }
  return false;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      out += hex;
    } else {
      out += c;
    }
  }
  return out;
}

std::string Wanted(const FieldInfo& f) {
  if (f.kind == Kind::kMessage) {
    return std::string("an ") + schema::HeldClass(f).name + ", a dict of its fields or None";
  }
  if (f.kind == Kind::kMessageArray) {
    return std::string("a list of ") + schema::HeldClass(f).name + " or of dicts";
  }
  return std::string(PythonWords(f.kind)) + " or None";
}

void InitConvert() {
  const auto fields = schema::Fields();
  NameTexts().resize(static_cast<size_t>(fields.size()));
  for (int i = 0; i < fields.size(); ++i) FieldIndex()[NameText(fields[i])] = i;
  DateApi();
}

std::vector<Member> MembersOf(CMsgBase& obj) {
  std::vector<Member> out;
  ForEachField(obj, [&](const FieldInfo&, auto& m) { out.push_back(Member(&m)); });
  return out;
}

py::object ValueToPython(const ConstMember& member) {
  return std::visit(
      [](const auto* m) -> py::object {
        using M = std::remove_const_t<std::remove_pointer_t<decltype(m)>>;
        if constexpr (std::is_same_v<M, CMsgBase> || std::is_same_v<M, CMsgBase_Array>) {
          return py::none();  // not reached: messages are handles
        } else {
          return Scalar(*m);
        }
      },
      member);
}

py::list ArrayToList(const ConstMember& member) {
  if (const auto* a = std::get_if<const CIntArray*>(&member)) return ListOf(**a);
  return ListOf(*std::get<const CDblArray*>(member));
}

Value ValueFromPython(const FieldInfo& f, const ClassInfo& holder, py::handle value,
                      const Where& where) {
  if (value.is_none()) return std::monostate();
  switch (f.kind) {
    case Kind::kInt: {
      int i = 0;
      if (IntOf(f, holder, value, where, &i)) return i;
      break;
    }
    case Kind::kDbl: {
      double d = 0;
      if (DoubleOf(f, holder, value, where, &d)) return d;
      break;
    }
    case Kind::kBool:
      if (PyBool_Check(value.ptr())) return value.ptr() == Py_True;
      break;
    case Kind::kDate: {
      DateApi();
      if (PyDate_Check(value.ptr()) && !PyDateTime_Check(value.ptr())) {
        // YYYYMMDD: datetime.date keeps years of 1 to 9999.
        const int parts[] = {PyDateTime_GET_YEAR(value.ptr()), PyDateTime_GET_MONTH(value.ptr()),
                             PyDateTime_GET_DAY(value.ptr())};
        std::string text(8, '0');
        for (int i = 0, end = 4, part = 0; part < 3; end += 2, ++part) {
          for (int k = end - 1, v = parts[part]; k >= i; --k, v /= 10) text[k] = char('0' + v % 10);
          i = end;
        }
        return text;
      }
      std::string text;
      if (PyUnicode_Check(value.ptr()) && TextOf(value, &text)) return text;
      break;
    }
    case Kind::kString: {
      std::string text;
      if (TextOf(value, &text)) return text;
      break;
    }
    case Kind::kIntArray:
      return ElementsOf<int>(f, holder, value, where);
    case Kind::kDblArray:
      return ElementsOf<double>(f, holder, value, where);
    case Kind::kMessage:
    case Kind::kMessageArray:
      break;
  }
  WrongType(f, holder, value, where);
}

void SetValue(const FieldRef& ref, const Value& value, const Where& where) {
  std::string why;
  const int rc = Set(ref, value, &why);
  if (rc == REFLECT_OK) return;
  if (rc == MSG_E_NOMEM) throw std::bad_alloc();
  if (rc == REFLECT_E_VALUE) throw py::value_error(where.Text() + ": " + Printable(why));
  throw std::runtime_error(where.Text() + ": " + Printable(why));
}

void FillMessage(CMsgBase& obj, const ClassInfo& cls, py::handle value, const Where& where) {
  if (value.is_none()) return;
  if (const Node* src = NodeOf(value)) {
    if (src->cls != &cls) {
      throw py::type_error(where.Text() + " takes an " + cls.name +
                           " or a dict of its fields, not " + src->cls->name);
    }
    Enter(*src->root);
    if (Copy(obj, src->Resolve()) != REFLECT_OK) throw std::runtime_error("Copy failed");
    return;
  }
  py::object dict = py::reinterpret_borrow<py::object>(value);
  if (!PyDict_Check(value.ptr())) {
    if (PyUnicode_Check(value.ptr()) || !PyMapping_Check(value.ptr()) ||
        !py::hasattr(value, "keys")) {
      throw py::type_error(where.Text() + " takes an " + cls.name +
                           ", a dict of its fields or None, not " + TypeName(value));
    }
    dict = py::dict(py::reinterpret_borrow<py::object>(value));
  }
  std::vector<Member> members = MembersOf(obj);
  PyObject* key = nullptr;
  PyObject* item = nullptr;
  Py_ssize_t pos = 0;
  while (PyDict_Next(dict.ptr(), &pos, &key, &item)) {
    // Held, so that Python code run for a value cannot free them.
    py::object k = py::reinterpret_borrow<py::object>(key);
    py::object v = py::reinterpret_borrow<py::object>(item);
    if (!PyUnicode_Check(key)) {
      throw py::type_error(where.Text() + ": field names are texts, not " + TypeName(key));
    }
    const FieldInfo* f = FieldOfKey(k);
    if (f && schema::FindMember(cls, f->tag) != f) f = nullptr;
    if (!f) {
      Py_ssize_t size = 0;
      const char* name = PyUnicode_AsUTF8AndSize(key, &size);
      if (!name) throw py::error_already_set();
      const std::string_view sv(name, static_cast<size_t>(size));
      if (ClassKey(cls, sv, v, where)) continue;
      RaiseNoField(cls, sv, &where);
    }
    const int index = schema::MemberIndex(cls, f->tag);
    FillField(cls, *f, members[static_cast<size_t>(index)], v, Where{&where, f->name});
  }
}

void FillArray(CMsgBase_Array& arr, const ClassInfo& held, py::handle value, const Where& where) {
  if (value.is_none()) return;
  py::object items = ItemsOf(value);
  if (!items) {
    throw py::type_error(where.Text() + " takes a list of " + held.name + " or of dicts, not " +
                         TypeName(value));
  }
  if (PyTuple_GET_SIZE(items.ptr()) > INT_MAX) throw std::bad_alloc();
  const int n = static_cast<int>(PyTuple_GET_SIZE(items.ptr()));
  if (n == 0) return;
  if (arr.SetSize(n) < 0) throw std::bad_alloc();
  for (int i = 0; i < n; ++i) {
    CMsgBase* element = arr.GetAt(i);
    if (!element) throw std::bad_alloc();
    FillMessage(*element, held, PyTuple_GET_ITEM(items.ptr(), i), Where{&where, nullptr, i});
  }
}

py::dict ToDict(const CMsgBase& obj, const ClassInfo& cls) {
  py::dict out;
  const int rc = ForEachField(obj, [&](const FieldInfo& f, const auto& m) {
    using M = std::decay_t<decltype(m)>;
    py::object value;
    if constexpr (std::is_same_v<M, CMsgBase>) {
      value = ToDict(m, schema::HeldClass(f));
    } else if constexpr (std::is_same_v<M, CMsgBase_Array>) {
      const ClassInfo& held = schema::HeldClass(f);
      py::list list;
      for (int i = 0;; ++i) {
        const CMsgBase* element = m.GetAt(i);
        if (!element) break;
        list.append(ToDict(*element, held));
      }
      value = std::move(list);
    } else {
      value = Scalar(m);
    }
    if (PyDict_SetItem(out.ptr(), NameText(f).ptr(), value.ptr()) < 0) {
      throw py::error_already_set();
    }
  });
  if (rc != REFLECT_OK) throw std::runtime_error(std::string(cls.name) + ": not an object of it");
  return out;
}

}  // namespace pricemsg::python
