// pricemsg._core: every message class as a Python type of its own name, on
// one generic binding over the reflection.
//
// Message is the one bound class; at import a subclass of it is made for
// each class of the schema tables (pricemsg.M_FxBarr), carrying the class's
// number, family, role, description and fields. Attributes are the fields,
// reached by name through the reflection; whole-object work (dicts, runtime
// messages, JSON, files) is one call into C++.
#include <pybind11/stl.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <unordered_map>

#include "MsgExplain.h"
#include "MsgJson.h"
#include "MsgText.h"
#include "PricemsgPython.h"
#include "PyMessages.h"
#include "RuntimeProbe.h"
#include "Search.h"

namespace pricemsg::python {

namespace {

std::atomic<long> gLiveRoots{0};
std::atomic<long> gLiveMsgs{0};

std::mutex gBusyMutex;
std::condition_variable gBusyDone;

// The Python types of the classes, by their place in the tables, and back.
// The Python objects that the module keeps are never freed: the interpreter
// may have ended when static objects are destroyed.
std::vector<py::object>& Types() {
  static auto* types = new std::vector<py::object>();
  return *types;
}
std::unordered_map<PyTypeObject*, const ClassInfo*>& ClassByType() {
  static std::unordered_map<PyTypeObject*, const ClassInfo*> classes;
  return classes;
}
py::object& MessageErrorType() {
  static auto* type = new py::object();
  return *type;
}
py::object& DifferenceType() {
  static auto* type = new py::object();
  return *type;
}

py::detail::type_info* NodeType() {
  static py::detail::type_info* type = py::detail::get_type_info(typeid(Node));
  return type;
}

const ClassInfo* ClassOfType(PyTypeObject* type) {
  auto& map = ClassByType();
  auto it = map.find(type);
  if (it != map.end()) return it->second;
  // A subclass made in Python: the nearest class of the schema among its bases.
  PyObject* mro = type->tp_mro;
  if (!mro) return nullptr;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(mro); ++i) {
    it = map.find(reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(mro, i)));
    if (it != map.end()) return it->second;
  }
  return nullptr;
}

const ClassInfo& ClassOfTypeOrRaise(py::handle type) {
  if (!PyType_Check(type.ptr())) throw py::type_error("not a message class");
  const ClassInfo* cls = ClassOfType(reinterpret_cast<PyTypeObject*>(type.ptr()));
  if (!cls) {
    throw py::type_error(
        "pricemsg.Message is the base of the message classes: use one of them, as "
        "pricemsg.M_FxBarr");
  }
  return *cls;
}

[[noreturn]] void RaiseError(PyObject* type, const std::string& text) {
  PyErr_SetString(type, text.c_str());
  throw py::error_already_set();
}

std::unique_ptr<CMsgBase> NewObject(const ClassInfo& cls) {
  std::unique_ptr<CMsgBase> obj = NewMessage(cls.number);
  if (!obj) throw std::bad_alloc();
  return obj;
}

int Count(const CMsgBase_Array& a) {
  const int size = a.GetSize();
  if (size <= 0) return 0;
  if (a.GetAt(size - 1)) return size;
  int n = 0;
  while (n < size && a.GetAt(n)) ++n;
  return n;
}

// An index from Python, read before anything of the sequence is reached (its
// __index__ may run Python code); one too large for a Py_ssize_t is taken as
// out of range.
Py_ssize_t IndexValue(py::handle index) {
  py::object i = py::reinterpret_steal<py::object>(PyNumber_Index(index.ptr()));
  if (!i) throw py::error_already_set();
  const Py_ssize_t v = PyLong_AsSsize_t(i.ptr());
  if (v == -1 && PyErr_Occurred()) {
    if (!PyErr_ExceptionMatches(PyExc_OverflowError)) throw py::error_already_set();
    PyErr_Clear();
    const int negative = PyObject_RichCompareBool(i.ptr(), py::int_(0).ptr(), Py_LT);
    if (negative < 0) throw py::error_already_set();
    return negative ? PY_SSIZE_T_MIN : PY_SSIZE_T_MAX;
  }
  return v;
}

// The place of an index in a sequence of `count` elements: negative ones
// count from the end; IndexError out of range, whatever its size.
int IndexIn(Py_ssize_t i, int count, const std::string& what) {
  const Py_ssize_t at = i < 0 && i != PY_SSIZE_T_MIN ? i + count : i;
  if (at < 0 || at >= count) {
    RaiseError(PyExc_IndexError, what + ": index out of range, " + std::to_string(count) +
                                     (count == 1 ? " element" : " elements"));
  }
  return static_cast<int>(at);
}

ConstMember AsConst(const Member& m) {
  return std::visit([](auto* p) -> ConstMember { return p; }, m);
}

FieldRef FieldOf(CMsgBase& obj, const FieldInfo& f) {
  FieldRef ref;
  std::string why;
  if (Find(obj, f.tag, &ref, &why) != REFLECT_OK) throw std::runtime_error(why);
  return ref;
}

// Enters every root given until none is busy: waiting for one may let
// another become busy.
void EnterAll(std::initializer_list<const Root*> roots) {
  for (;;) {
    for (const Root* r : roots) Enter(*r);
    bool idle = true;
    for (const Root* r : roots) idle = idle && !r->busy.load();
    if (idle) return;
  }
}

// Runs `f(obj)` on the message of a node without the interpreter lock, the
// root marked busy meanwhile.
template <class F>
auto Unlocked(const Node& node, F f) {
  Enter(*node.root);
  Busy busy(*node.root);
  CMsgBase& obj = node.Resolve();
  py::gil_scoped_release nogil;
  return f(obj);
}

// ---- runtime messages ----

// A runtime message held from Python. Work on it runs without the
// interpreter lock, one thread at a time.
struct Msg {
  explicit Msg(CMsg* m) : msg(m) { CountMsg(1); }
  ~Msg() { CountMsg(-1); }
  Msg(const Msg&) = delete;
  Msg& operator=(const Msg&) = delete;

  std::unique_ptr<CMsg> msg;
  std::mutex mutex;
};

template <class F>
auto WithMsg(Msg& m, F f) {
  py::gil_scoped_release nogil;
  std::lock_guard<std::mutex> lock(m.mutex);
  if (!m.msg) throw py::value_error("this message was handed over with to_capsule()");
  return f(m.msg.get());
}

// ---- message files ----

bool IsJsonPath(const std::string& path) {
  return path.size() >= 5 && path.compare(path.size() - 5, 5, ".json") == 0;
}

std::string PathText(py::handle path) {
  py::object p = py::module_::import("os").attr("fspath")(path);
  if (PyBytes_Check(p.ptr())) return std::string(py::reinterpret_borrow<py::bytes>(p));
  return py::str(p);
}

[[noreturn]] void RaiseFileError(const MsgTextError& err, const std::string& file) {
  std::string where = file.empty() ? std::string("text") : file;
  if (err.line > 0) where += ":" + std::to_string(err.line) + ":" + std::to_string(err.column);
  RaiseMessageError(err.code ? err.code : MSGTEXT_E_TEXT, err.reason, where + ": " + err.reason,
                    file, err.line, err.column);
}

// A message tree read from text (`json`: JSON) or a file of either form.
enum class Source { kText, kJson, kFile };

CMsg* ReadTree(Source source, const std::string& data, const std::string& path) {
  MsgTextError err{};
  CMsg* msg = nullptr;
  {
    py::gil_scoped_release nogil;
    switch (source) {
      case Source::kText:
        msg = MA_ReadMsgText(data.data(), data.size(), &err);
        break;
      case Source::kJson:
        msg = MA_ReadMsgJson(data.data(), data.size(), &err);
        break;
      case Source::kFile:
        msg = IsJsonPath(path) ? MA_ReadMsgJsonFile(path.c_str(), &err)
                               : MA_ReadMsgFile(path.c_str(), &err);
        break;
    }
  }
  if (!msg) RaiseFileError(err, path);
  return msg;
}

// A new object of `cls` loaded from `msg`, which it checks to be of that
// class (any class for null `cls`).
py::object LoadNew(const ClassInfo* cls, CMsg* msg, const std::string& file) {
  std::unique_ptr<CMsg> owned(msg);
  const ClassInfo* found = schema::FindClass(owned->msgnum);
  if (!found) {
    RaiseMessageError(MSGTEXT_E_CLASS, "a message of number " + std::to_string(owned->msgnum),
                      "no class has the number " + std::to_string(owned->msgnum), file);
  }
  if (cls && found != cls) {
    const std::string text = std::string("a message of ") + found->name + ", not of " + cls->name;
    RaiseMessageError(MSGTEXT_E_CLASS, text, (file.empty() ? "" : file + ": ") + text, file);
  }
  std::unique_ptr<CMsgBase> obj = NewObject(*found);
  int rc;
  {
    py::gil_scoped_release nogil;
    rc = obj->Load(owned.get());
  }
  if (rc < 0) RaiseLoadError(*obj, "load");
  return WrapNew(std::move(obj));
}

std::string Text(py::handle text) {
  if (PyBytes_Check(text.ptr())) return std::string(py::reinterpret_borrow<py::bytes>(text));
  if (!PyUnicode_Check(text.ptr())) {
    throw py::type_error(std::string("a message text is a str or bytes, not ") +
                         Py_TYPE(text.ptr())->tp_name);
  }
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (!utf8) throw py::error_already_set();
  return std::string(utf8, static_cast<size_t>(size));
}

py::str FromUtf8(const std::string& s) {
  PyObject* text =
      PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogateescape");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

// The message of a node written as text or JSON, to a string or a file.
enum class Form { kText, kJson };

std::string WriteNode(const Node& node, Form form, const std::string* path) {
  struct Result {
    bool made = false;
    int rc = 0;
    MsgTextError err{};
    std::string text;
  } r = Unlocked(node, [&](CMsgBase& obj) {
    Result out;
    std::unique_ptr<CMsg> msg(obj.ToMsg());
    if (!msg) return out;
    out.made = true;
    if (path) {
      out.rc = form == Form::kJson ? MA_WriteMsgJsonFile(msg.get(), path->c_str(), &out.err)
                                   : MA_WriteMsgFile(msg.get(), path->c_str(), &out.err);
    } else {
      out.rc = form == Form::kJson ? MA_WriteMsgJson(msg.get(), &out.text, &out.err)
                                   : MA_WriteMsgText(msg.get(), &out.text, &out.err);
    }
    return out;
  });
  if (!r.made) {
    Enter(*node.root);
    RaiseLoadError(node.Resolve(), "to_msg");
  }
  if (r.rc != MSGTEXT_OK) RaiseFileError(r.err, path ? *path : std::string());
  return std::move(r.text);
}

// ---- message objects ----

const Node& Self(py::handle obj) {
  const Node* node = NodeOf(obj);
  if (!node) throw py::type_error("not an initialized message object");
  return *node;
}

struct MessageArray {
  FieldView view;
};
template <class A>
struct ValueArray {
  FieldView view;
};
using IntArray = ValueArray<CIntArray>;
using FloatArray = ValueArray<CDblArray>;

struct MessageArrayIterator {
  FieldView view;
  int next = 0;
};
template <class A>
struct ValueArrayIterator {
  FieldView view;
  int next = 0;
};

py::object GetField(const Node& node, std::string_view name) {
  const FieldInfo* f = schema::FindMember(*node.cls, name);
  if (!f) RaiseNoField(*node.cls, name);
  Enter(*node.root);
  CMsgBase& obj = node.Resolve();
  switch (f->kind) {
    case Kind::kMessage:
      return Wrap(node.Child(f->tag, -1, &schema::HeldClass(*f)));
    case Kind::kMessageArray:
      return py::cast(MessageArray{FieldView{node, f}});
    case Kind::kIntArray:
      return py::cast(IntArray{FieldView{node, f}});
    case Kind::kDblArray:
      return py::cast(FloatArray{FieldView{node, f}});
    default:
      return ValueToPython(AsConst(FieldOf(obj, *f).member));
  }
}

void SetField(const Node& node, std::string_view name, py::handle value) {
  const FieldInfo* f = schema::FindMember(*node.cls, name);
  if (!f) RaiseNoField(*node.cls, name);
  const Where top{nullptr, nullptr, -1, &node};
  const Where where{&top, f->name};
  const ClassInfo* held = schema::HoldsMessage(f->kind) ? &schema::HeldClass(*f) : nullptr;
  if (f->kind == Kind::kMessage) {
    std::unique_ptr<CMsgBase> fresh = NewObject(*held);
    FillMessage(*fresh, *held, value, where);
    Enter(*node.root);
    FieldRef ref = FieldOf(node.Resolve(), *f);
    if (Copy(*std::get<CMsgBase*>(ref.member), *fresh) != REFLECT_OK) {
      throw std::runtime_error("Copy failed");
    }
  } else if (f->kind == Kind::kMessageArray) {
    std::unique_ptr<CMsgBase_Array> fresh = NewArray(held->number);
    if (!fresh) throw std::bad_alloc();
    FillArray(*fresh, *held, value, where);
    Enter(*node.root);
    FieldRef ref = FieldOf(node.Resolve(), *f);
    if (Copy(*std::get<CMsgBase_Array*>(ref.member), *fresh) != REFLECT_OK) {
      throw std::runtime_error("Copy failed");
    }
  } else {
    const Value v = ValueFromPython(*f, *node.cls, value, where);
    Enter(*node.root);
    SetValue(FieldOf(node.Resolve(), *f), v, where);
  }
}

// Short: the class and its fields that differ from a fresh object's, as
// M_FxBarr(mOptBarr.dStrike=1.1, sCcy="EUR", +3 more).
std::string ReprOf(const Node& node) {
  std::unique_ptr<CMsgBase> fresh = NewObject(*node.cls);
  std::vector<Difference> diffs;
  Enter(*node.root);
  if (Diff(*fresh, node.Resolve(), &diffs) != REFLECT_OK) throw std::bad_alloc();
  std::string out = std::string(node.cls->name) + "(";
  constexpr size_t kShown = 4;
  for (size_t i = 0; i < diffs.size() && i < kShown; ++i) {
    if (i > 0) out += ", ";
    std::string value = diffs[i].right == "(element)" ? "{...}" : diffs[i].right;
    if (value.size() > 40) value = value.substr(0, 37) + "...";
    out += diffs[i].path + "=" + value;
  }
  if (diffs.size() > kShown) out += ", +" + std::to_string(diffs.size() - kShown) + " more";
  return out + ")";
}

std::string DumpOf(const Node& node) {
  return Unlocked(node, [](CMsgBase& obj) {
    CStream out;
    obj.Dump(&out);
    return probe::StreamText(out);
  });
}

py::list DiffOf(const Node& a, py::handle other) {
  const Node* b = NodeOf(other);
  if (!b) {
    throw py::type_error(std::string("diff compares with another ") + a.cls->name + ", not " +
                         Py_TYPE(other.ptr())->tp_name);
  }
  if (b->cls != a.cls) {
    throw py::type_error(std::string("diff compares objects of one class, not ") + a.cls->name +
                         " and " + b->cls->name);
  }
  std::vector<Difference> diffs;
  EnterAll({a.root.get(), b->root.get()});
  if (Diff(a.Resolve(), b->Resolve(), &diffs) != REFLECT_OK) throw std::bad_alloc();
  py::list out;
  for (const Difference& d : diffs) {
    out.append(DifferenceType()(FromUtf8(d.path), FromUtf8(d.left), FromUtf8(d.right)));
  }
  return out;
}

py::object CopyOf(const Node& node) {
  std::unique_ptr<CMsgBase> copy = NewObject(*node.cls);
  Enter(*node.root);
  if (Copy(*copy, node.Resolve()) != REFLECT_OK) throw std::runtime_error("Copy failed");
  return WrapNew(std::move(copy));
}

void LoadInto(const Node& node, Msg& m) {
  std::unique_ptr<CMsgBase> fresh = NewObject(*node.cls);
  const int rc = WithMsg(m, [&](CMsg* msg) { return fresh->Load(msg); });
  if (rc < 0) RaiseLoadError(*fresh, "load");
  Enter(*node.root);
  if (node.steps.empty()) {
    node.root->obj = std::move(fresh);
  } else if (Copy(node.Resolve(), *fresh) != REFLECT_OK) {
    throw std::runtime_error("Copy failed");
  }
}

// ---- the catalogue ----

struct Field {
  const FieldInfo* info;
};

std::string ClassDoc(const ClassInfo& c) {
  std::string doc = std::string(c.name) + ": " + c.description + "\n\nNumber " +
                    std::to_string(c.number) + ", family " + c.family + ", role " + c.role +
                    ".\n\nFields (tag, name, kind, Python value, role):\n";
  for (int i = 0; i < c.memberCount; ++i) {
    const FieldInfo& f = schema::MemberOf(c, i);
    doc += "  T" + std::to_string(f.tag) + " " + f.name + ": " + schema::InfoOf(f.kind).words;
    if (schema::HoldsMessage(f.kind)) doc += std::string(" ") + schema::HeldClass(f).name;
    doc += "; " + Wanted(f);
    if (*f.role) doc += std::string("; ") + f.role;
    doc += "\n";
  }
  return doc;
}

py::object ClassNamed(py::handle key) {
  const ClassInfo* cls = nullptr;
  if (PyLong_Check(key.ptr()) && !PyBool_Check(key.ptr())) {
    const long n = PyLong_AsLong(key.ptr());
    if (n == -1 && PyErr_Occurred()) PyErr_Clear();
    if (n >= INT_MIN && n <= INT_MAX) cls = schema::FindClass(static_cast<int>(n));
    if (!cls) RaiseError(PyExc_KeyError, "no class has the number " + std::string(py::repr(key)));
  } else if (PyUnicode_Check(key.ptr())) {
    const std::string name = py::str(key);
    cls = schema::FindClass(name);
    if (!cls) cls = schema::FindClass("M_" + name);
    if (!cls) {
      std::vector<std::string_view> names;
      for (const ClassInfo& c : schema::Classes()) names.push_back(c.name);
      std::string near;
      for (std::string_view n : schema::Nearest(name.substr(0, 256), names)) {
        near += (near.empty() ? "; nearest: " : ", ") + std::string(n);
      }
      RaiseError(PyExc_KeyError, "no class is named '" + name.substr(0, 64) + "'" + near);
    }
  } else {
    throw py::type_error("a class is given by its name or its number");
  }
  return Types()[static_cast<size_t>(schema::IndexOf(*cls))];
}

// ---- array views ----

template <class V>
std::string ViewPath(const V& v) {
  return v.view.Path();
}

template <class A>
A& ValueArrayOf(const FieldView& view) {
  return *std::get<A*>(view.Resolve());
}

template <class A>
Value ElementsNow(const FieldView& view) {
  Value out;
  ConstFieldRef ref{view.field, view.node.cls, static_cast<const A*>(&ValueArrayOf<A>(view))};
  if (Get(ref, &out) != REFLECT_OK) throw std::bad_alloc();
  return out;
}

template <class A>
using Elem = std::conditional_t<std::is_same_v<A, CIntArray>, int, double>;

// Converts `value` (one element, or an iterable for `many`) to elements of
// the view's field.
template <class A>
std::vector<Elem<A>> ElementsFrom(const FieldView& view, py::handle value, bool many) {
  const Where top{nullptr, nullptr, -1, &view.node};
  const Where where{&top, view.field->name};
  py::object items = many ? py::reinterpret_borrow<py::object>(value)
                          : py::object(py::make_tuple(py::reinterpret_borrow<py::object>(value)));
  if (!many && value.is_none()) {
    throw py::type_error(where.Text() + ": an element cannot be None");
  }
  Value v = ValueFromPython(*view.field, *view.node.cls, items, where);
  if (std::holds_alternative<std::monostate>(v)) return {};
  if constexpr (std::is_same_v<A, CDblArray>) {
    if (const auto* ints = std::get_if<std::vector<int>>(&v)) {
      return std::vector<double>(ints->begin(), ints->end());
    }
  }
  return std::get<std::vector<Elem<A>>>(v);
}

template <class A>
void Store(const FieldView& view, std::vector<Elem<A>> elements) {
  const Where top{nullptr, nullptr, -1, &view.node};
  const Where where{&top, view.field->name};
  Enter(*view.node.root);
  SetValue(FieldRef{view.field, view.node.cls, &ValueArrayOf<A>(view)}, Value(std::move(elements)),
           where);
}

template <class A>
std::vector<Elem<A>> Current(const FieldView& view) {
  Enter(*view.node.root);
  Value v = ElementsNow<A>(view);
  return std::get<std::vector<Elem<A>>>(std::move(v));
}

template <class A>
py::object ElementToPython(Elem<A> e) {
  if constexpr (std::is_same_v<A, CIntArray>) {
    return py::int_(e);
  } else {
    return py::float_(e);
  }
}

template <class A>
void BindValueArray(py::module_& m, const char* name, const char* iterName) {
  using VA = ValueArray<A>;
  using It = ValueArrayIterator<A>;
  py::class_<It>(m, iterName)
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", [](It& it) -> py::object {
        Enter(*it.view.node.root);
        const A& a = ValueArrayOf<A>(it.view);
        if (it.next >= a.size) throw py::stop_iteration();
        return ElementToPython<A>(a.GetAt(it.next++));
      });
  py::class_<VA>(m, name)
      .def("__len__",
           [](const VA& v) {
             Enter(*v.view.node.root);
             return std::max(ValueArrayOf<A>(v.view).size, 0);
           })
      .def("__getitem__",
           [](const VA& v, py::handle index) -> py::object {
             if (PySlice_Check(index.ptr())) {
               py::list all = py::cast(Current<A>(v.view));
               return all[index];
             }
             const Py_ssize_t at = IndexValue(index);
             std::vector<Elem<A>> now = Current<A>(v.view);
             const int i = IndexIn(at, static_cast<int>(now.size()), v.view.Path());
             return ElementToPython<A>(now[static_cast<size_t>(i)]);
           })
      .def("__setitem__",
           [](const VA& v, py::handle index, py::handle value) {
             if (PySlice_Check(index.ptr())) {
               py::list all = py::cast(Current<A>(v.view));
               all[index] = py::list(ItemsOrRaise(value));
               Store<A>(v.view, ElementsFrom<A>(v.view, all, true));
               return;
             }
             std::vector<Elem<A>> one = ElementsFrom<A>(v.view, value, false);
             const Py_ssize_t at = IndexValue(index);
             std::vector<Elem<A>> now = Current<A>(v.view);
             const int i = IndexIn(at, static_cast<int>(now.size()), v.view.Path());
             now[static_cast<size_t>(i)] = one.at(0);
             Store<A>(v.view, std::move(now));
           })
      .def("__iter__",
           [](const VA& v) {
             return It{v.view, 0};
           })
      .def("__eq__",
           [](const VA& v, py::handle other) -> py::object {
             if (!PySequence_Check(other.ptr()) || PyUnicode_Check(other.ptr())) {
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             }
             py::list mine = py::cast(Current<A>(v.view));
             return py::bool_(mine.equal(py::list(py::reinterpret_borrow<py::object>(other))));
           })
      .def("append",
           [](const VA& v, py::handle value) {
             std::vector<Elem<A>> one = ElementsFrom<A>(v.view, value, false);
             std::vector<Elem<A>> now = Current<A>(v.view);
             now.push_back(one.at(0));
             Store<A>(v.view, std::move(now));
           })
      .def("extend",
           [](const VA& v, py::handle values) {
             std::vector<Elem<A>> more = ElementsFrom<A>(v.view, values, true);
             std::vector<Elem<A>> now = Current<A>(v.view);
             now.insert(now.end(), more.begin(), more.end());
             Store<A>(v.view, std::move(now));
           })
      .def("clear", [](const VA& v) { Store<A>(v.view, {}); })
      .def("to_list", [](const VA& v) { return py::cast(Current<A>(v.view)); })
      .def("__repr__", [name](const VA& v) {
        return std::string(name) + "(" + std::string(py::repr(py::cast(Current<A>(v.view)))) + ")";
      });
}

}  // namespace

// ---- roots, nodes, views ----

Root::Root(std::unique_ptr<CMsgBase> o) : obj(std::move(o)) { ++gLiveRoots; }
Root::~Root() { --gLiveRoots; }

long LiveRoots() { return gLiveRoots.load(); }
long LiveMsgs() { return gLiveMsgs.load(); }
void CountMsg(int delta) { gLiveMsgs += delta; }

void Enter(const Root& root) {
  while (root.busy.load()) {
    if (root.owner == std::this_thread::get_id()) {
      RaiseError(PyExc_RuntimeError,
                 std::string(ClassOf(*root.obj) ? ClassOf(*root.obj)->name : "the object") +
                     " is in use by a conversion of this thread; Python code run meanwhile "
                     "cannot use it");
    }
    py::gil_scoped_release nogil;
    std::unique_lock<std::mutex> lock(gBusyMutex);
    gBusyDone.wait(lock, [&] { return !root.busy.load(); });
  }
}

Busy::Busy(Root& root) : root_(root) {
  root_.owner = std::this_thread::get_id();
  root_.busy = true;
}

Busy::~Busy() {
  {
    std::lock_guard<std::mutex> lock(gBusyMutex);
    root_.busy = false;
  }
  gBusyDone.notify_all();
}

CMsgBase& Node::Resolve() const {
  CMsgBase* obj = root->obj.get();
  for (size_t i = 0; i < steps.size(); ++i) {
    FieldRef ref;
    if (Find(*obj, steps[i].tag, &ref) != REFLECT_OK) throw std::logic_error("a step is lost");
    if (steps[i].index < 0) {
      obj = std::get<CMsgBase*>(ref.member);
      continue;
    }
    const CMsgBase_Array& arr = *std::get<CMsgBase_Array*>(ref.member);
    obj = arr.GetAt(steps[i].index);
    if (!obj) {
      Node upto{root, std::vector<Step>(steps.begin(), steps.begin() + i + 1), nullptr};
      const int n = Count(arr);
      RaiseError(PyExc_ReferenceError, upto.Path() + " is gone: the array has " +
                                           std::to_string(n) + (n == 1 ? " element" : " elements") +
                                           " now");
    }
  }
  return *obj;
}

std::string Node::Path() const {
  const ClassInfo* at = ClassOf(*root->obj);
  std::string out = at ? at->name : "?";
  for (const Step& s : steps) {
    const FieldInfo* f = at ? schema::FindMember(*at, s.tag) : nullptr;
    out += ".";
    out += f ? f->name : "T" + std::to_string(s.tag);
    if (s.index >= 0) out += "[" + std::to_string(s.index) + "]";
    at = f && schema::HoldsMessage(f->kind) ? &schema::HeldClass(*f) : nullptr;
  }
  return out;
}

Node Node::Child(int tag, int index, const ClassInfo* held) const {
  Node child{root, steps, held};
  child.steps.push_back({tag, index});
  return child;
}

Member FieldView::Resolve() const { return FieldOf(node.Resolve(), *field).member; }

std::string FieldView::Path() const { return node.Path() + "." + field->name; }

// ---- Python objects ----

py::handle TypeOf(const ClassInfo& cls) {
  return Types()[static_cast<size_t>(schema::IndexOf(cls))];
}

py::object Wrap(Node node) {
  auto* type = reinterpret_cast<PyTypeObject*>(TypeOf(*node.cls).ptr());
  py::tuple none;
  py::object obj = py::reinterpret_steal<py::object>(type->tp_new(type, none.ptr(), nullptr));
  if (!obj) throw py::error_already_set();
  // What the constructor of a bound class does: the value, then its holder.
  auto* inst = reinterpret_cast<py::detail::instance*>(obj.ptr());
  py::detail::value_and_holder v_h = inst->get_value_and_holder(NodeType());
  v_h.value_ptr() = new Node(std::move(node));
  v_h.type->init_instance(inst, nullptr);
  return obj;
}

py::object WrapNew(std::unique_ptr<CMsgBase> obj) {
  const ClassInfo* cls = ClassOf(*obj);
  return Wrap(Node{std::make_shared<Root>(std::move(obj)), {}, cls});
}

const Node* NodeOf(py::handle obj) {
  if (!obj || !py::isinstance<Node>(obj)) return nullptr;
  auto* inst = reinterpret_cast<py::detail::instance*>(obj.ptr());
  py::detail::value_and_holder v_h = inst->get_value_and_holder(NodeType(), false);
  if (!v_h || !v_h.holder_constructed()) return nullptr;
  return v_h.value_ptr<Node>();
}

// ---- errors ----

void RaiseMessageError(int code, const std::string& text, const std::string& explanation,
                       const std::string& file, int line, int column) {
  // The path leads the explanation's first line, up to its blank or colon.
  std::string path = file.empty() ? explanation.substr(0, explanation.find_first_of(" :\n")) : "";
  py::object e = MessageErrorType()(FromUtf8(explanation.empty() ? text : explanation));
  e.attr("code") = code;
  e.attr("text") = FromUtf8(text);
  e.attr("path") = FromUtf8(path);
  e.attr("explanation") = FromUtf8(explanation);
  e.attr("file") = file.empty() ? py::object(py::none()) : py::object(FromUtf8(file));
  e.attr("line") = line;
  e.attr("column") = column;
  PyErr_SetObject(MessageErrorType().ptr(), e.ptr());
  throw py::error_already_set();
}

void RaiseLoadError(const CMsgBase& obj, const char* what) {
  std::string explanation = MA_ExplainFailure(obj);
  const std::string text = obj.errtext.ToStr() ? obj.errtext.ToStr() : "";
  if (explanation.empty()) explanation = std::string(what) + " failed: " + text;
  RaiseMessageError(obj.errcode, text, explanation);
}

void RaiseNoField(const ClassInfo& cls, std::string_view name, const Where* where) {
  std::string text = (where ? where->Text() + ": " : std::string()) + cls.name + " has no field '" +
                     Printable(name.substr(0, 64)) + (name.size() > 64 ? "...'" : "'");
  if (name.empty() || name[0] != '_') {
    std::vector<std::string_view> names;
    for (int i = 0; i < cls.memberCount; ++i) names.push_back(schema::MemberOf(cls, i).name);
    const auto near = schema::Nearest(name.substr(0, 256), names);
    for (size_t i = 0; i < near.size(); ++i) {
      text += (i == 0 ? "; nearest: " : ", ") + std::string(near[i]);
    }
  }
  RaiseError(PyExc_AttributeError, text);
}

std::string Where::Text() const {
  std::vector<const Where*> chain;
  for (const Where* w = this; w; w = w->up) chain.push_back(w);
  std::string out;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if ((*it)->node) out = (*it)->node->Path();
    if ((*it)->name) {
      if (!out.empty()) out += '.';
      out += (*it)->name;
    }
    if ((*it)->index >= 0) out += "[" + std::to_string((*it)->index) + "]";
  }
  return out;
}

py::tuple ItemsOrRaise(py::handle value) {
  PyObject* tuple = PySequence_Tuple(value.ptr());
  if (!tuple) throw py::error_already_set();
  return py::reinterpret_steal<py::tuple>(tuple);
}

}  // namespace pricemsg::python

namespace pm = pricemsg::python;
using pricemsg::python::py::arg;

PYBIND11_MODULE(_core, m) {
  using namespace pricemsg;
  using namespace pricemsg::python;
  m.doc() = "The message classes of the pricing service, one Python type each.";
  InitConvert();

  MessageErrorType() = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "pricemsg.MessageError",
      "A load, to_msg, conversion or message file that failed: code (the library's result "
      "code), text (the failure text), path (the fields down to the first cause, where known), "
      "explanation (every level), file, line and column (of a message file or text).",
      PyExc_Exception, nullptr));
  m.attr("MessageError") = MessageErrorType();
  DifferenceType() =
      py::module_::import("collections")
          .attr("namedtuple")("Difference", "path left right", py::arg("module") = "pricemsg");
  m.attr("Difference") = DifferenceType();

  // ---- runtime messages ----
  py::class_<Msg>(m, "Msg", "A runtime message (CMsg): what to_msg() gives and load() takes.")
      .def_property_readonly(
          "number", [](Msg& self) { return WithMsg(self, [](CMsg* c) { return c->msgnum; }); })
      .def_property_readonly("class_name",
                             [](Msg& self) -> py::object {
                               const int n = WithMsg(self, [](CMsg* c) { return c->msgnum; });
                               const ClassInfo* cls = schema::FindClass(n);
                               return cls ? py::object(py::str(cls->name)) : py::object(py::none());
                             })
      .def(
          "to_object",
          [](Msg& self) {
            // A copy of the tree is not needed: Load only reads it.
            const int n = WithMsg(self, [](CMsg* c) { return c->msgnum; });
            const ClassInfo* cls = schema::FindClass(n);
            if (!cls) {
              RaiseMessageError(MSGTEXT_E_CLASS, "a message of number " + std::to_string(n),
                                "no class has the number " + std::to_string(n));
            }
            std::unique_ptr<CMsgBase> obj = NewObject(*cls);
            const int rc = WithMsg(self, [&](CMsg* c) { return obj->Load(c); });
            if (rc < 0) RaiseLoadError(*obj, "load");
            return WrapNew(std::move(obj));
          },
          "A new object of the message's class, loaded from it.")
      .def("to_text",
           [](Msg& self) {
             std::string text;
             MsgTextError err{};
             const int rc = WithMsg(self, [&](CMsg* c) { return MA_WriteMsgText(c, &text, &err); });
             if (rc != MSGTEXT_OK) RaiseFileError(err, {});
             return FromUtf8(text);
           })
      .def("to_json",
           [](Msg& self) {
             std::string text;
             MsgTextError err{};
             const int rc = WithMsg(self, [&](CMsg* c) { return MA_WriteMsgJson(c, &text, &err); });
             if (rc != MSGTEXT_OK) RaiseFileError(err, {});
             return FromUtf8(text);
           })
      .def(
          "write_file",
          [](Msg& self, py::handle p) {
            const std::string path = PathText(p);
            MsgTextError err{};
            const int rc = WithMsg(self, [&](CMsg* c) {
              return IsJsonPath(path) ? MA_WriteMsgJsonFile(c, path.c_str(), &err)
                                      : MA_WriteMsgFile(c, path.c_str(), &err);
            });
            if (rc != MSGTEXT_OK) RaiseFileError(err, path);
          },
          arg("path"), "Writes the message file, as JSON for a name ending in .json.")
      .def_static(
          "read_file",
          [](py::handle p) {
            const std::string path = PathText(p);
            return std::make_unique<Msg>(ReadTree(Source::kFile, {}, path));
          },
          arg("path"))
      .def_static(
          "from_text",
          [](py::handle t) { return std::make_unique<Msg>(ReadTree(Source::kText, Text(t), {})); },
          arg("text"))
      .def_static(
          "from_json",
          [](py::handle t) { return std::make_unique<Msg>(ReadTree(Source::kJson, Text(t), {})); },
          arg("text"))
      .def(
          "to_capsule",
          [](Msg& self) {
            CMsg* taken = WithMsg(self, [&](CMsg*) { return self.msg.release(); });
            PyObject* capsule = PricemsgMsgToCapsule(taken);
            if (!capsule) throw py::error_already_set();
            return py::reinterpret_steal<py::object>(capsule);
          },
          "Hands the message over to C++ in a capsule named 'pricemsg.CMsg' "
          "(PricemsgPython.h); this Msg is empty after.")
      .def_static(
          "from_capsule",
          [](py::handle capsule) {
            CMsg* msg = PricemsgMsgFromCapsule(capsule.ptr());
            if (!msg) throw py::error_already_set();
            return std::make_unique<Msg>(msg);
          },
          arg("capsule"), "Takes over the message of a capsule named 'pricemsg.CMsg'.")
      .def("__repr__", [](Msg& self) {
        std::lock_guard<std::mutex> lock(self.mutex);
        if (!self.msg) return std::string("<pricemsg.Msg, handed over>");
        const ClassInfo* cls = schema::FindClass(self.msg->msgnum);
        return "<pricemsg.Msg " + std::to_string(self.msg->msgnum) + " " +
               (cls ? cls->name : "of no class") + ">";
      });

  // ---- the catalogue ----
  py::class_<Field>(m, "Field", "A field of a message class.")
      .def_property_readonly("name", [](const Field& f) { return f.info->name; })
      .def_property_readonly("tag", [](const Field& f) { return f.info->tag; })
      .def_property_readonly("kind",
                             [](const Field& f) { return schema::InfoOf(f.info->kind).words; })
      .def_property_readonly("type", [](const Field& f) { return f.info->type; })
      .def_property_readonly("role", [](const Field& f) { return f.info->role; })
      .def_property_readonly(
          "held",
          [](const Field& f) -> py::object {
            if (!schema::HoldsMessage(f.info->kind)) return py::none();
            return py::reinterpret_borrow<py::object>(TypeOf(schema::HeldClass(*f.info)));
          })
      .def("__repr__", [](const Field& f) {
        std::string held;
        if (schema::HoldsMessage(f.info->kind)) {
          held = std::string(" ") + schema::HeldClass(*f.info).name;
        }
        return std::string("<Field T") + std::to_string(f.info->tag) + " " + f.info->name + ": " +
               schema::InfoOf(f.info->kind).words + held + ">";
      });

  // ---- views ----
  py::class_<MessageArrayIterator>(m, "_MessageArrayIterator")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", [](MessageArrayIterator& it) {
        Enter(*it.view.node.root);
        const auto& arr = *std::get<CMsgBase_Array*>(it.view.Resolve());
        if (it.next >= Count(arr)) throw py::stop_iteration();
        return Wrap(
            it.view.node.Child(it.view.field->tag, it.next++, &schema::HeldClass(*it.view.field)));
      });
  auto arrayOf = [](const MessageArray& v) -> CMsgBase_Array& {
    Enter(*v.view.node.root);
    return *std::get<CMsgBase_Array*>(v.view.Resolve());
  };
  auto elementFrom = [](const MessageArray& v, py::handle value) {
    const ClassInfo& held = schema::HeldClass(*v.view.field);
    std::unique_ptr<CMsgBase> fresh = NewObject(held);
    const Where top{nullptr, nullptr, -1, &v.view.node};
    const Where where{&top, v.view.field->name};
    FillMessage(*fresh, held, value, where);
    return fresh;
  };
  auto append = [arrayOf](const MessageArray& v, std::unique_ptr<CMsgBase> fresh) {
    CMsgBase_Array& arr = arrayOf(v);
    const int size = arr.Grow();
    if (size < 0) throw std::bad_alloc();
    if (Copy(*arr.GetAt(size - 1), *fresh) != pricemsg::REFLECT_OK) {
      throw std::runtime_error("Copy failed");
    }
    return size - 1;
  };
  py::class_<MessageArray>(m, "MessageArray",
                           "The elements of a repeated sub-message, tied to the object that "
                           "holds them.")
      .def("__len__", [arrayOf](const MessageArray& v) { return Count(arrayOf(v)); })
      .def("__getitem__",
           [arrayOf](const MessageArray& v, py::handle index) -> py::object {
             const ClassInfo* held = &schema::HeldClass(*v.view.field);
             if (PySlice_Check(index.ptr())) {
               Py_ssize_t start, stop, step;
               if (PySlice_Unpack(index.ptr(), &start, &stop, &step) < 0) {
                 throw py::error_already_set();
               }
               const Py_ssize_t len = PySlice_AdjustIndices(Count(arrayOf(v)), &start, &stop, step);
               py::list out;
               for (Py_ssize_t i = 0; i < len; ++i) {
                 out.append(Wrap(v.view.node.Child(v.view.field->tag,
                                                   static_cast<int>(start + i * step), held)));
               }
               return std::move(out);
             }
             const Py_ssize_t at = IndexValue(index);
             const int i = IndexIn(at, Count(arrayOf(v)), v.view.Path());
             return Wrap(v.view.node.Child(v.view.field->tag, i, held));
           })
      .def("__setitem__",
           [arrayOf, elementFrom](const MessageArray& v, py::handle index, py::handle value) {
             std::unique_ptr<CMsgBase> fresh = elementFrom(v, value);
             const Py_ssize_t at = IndexValue(index);
             CMsgBase_Array& arr = arrayOf(v);
             const int i = IndexIn(at, Count(arr), v.view.Path());
             if (Copy(*arr.GetAt(i), *fresh) != pricemsg::REFLECT_OK) {
               throw std::runtime_error("Copy failed");
             }
           })
      .def("__iter__",
           [](const MessageArray& v) {
             return MessageArrayIterator{v.view, 0};
           })
      .def(
          "append",
          [elementFrom, append](const MessageArray& v, py::handle value) {
            append(v, elementFrom(v, value));
          },
          arg("value"), "Appends a copy of an object of the element class, or of a dict.")
      .def(
          "add",
          [elementFrom, append](const MessageArray& v, py::kwargs fields) {
            const int i = append(v, elementFrom(v, fields));
            return Wrap(v.view.node.Child(v.view.field->tag, i, &schema::HeldClass(*v.view.field)));
          },
          "Appends an element with these fields and gives it.")
      .def("clear", [arrayOf](const MessageArray& v) { arrayOf(v).RemoveAll(); })
      .def("__repr__", [arrayOf](const MessageArray& v) {
        const int n = Count(arrayOf(v));
        return std::string("<MessageArray ") + v.view.Path() + ": " + std::to_string(n) + " " +
               schema::HeldClass(*v.view.field).name + ">";
      });
  BindValueArray<CIntArray>(m, "IntArray", "_IntArrayIterator");
  BindValueArray<CDblArray>(m, "FloatArray", "_FloatArrayIterator");

  // ---- message objects ----
  py::class_<Node> message(m, "Message",
                           "The base of the message classes: pricemsg.M_FxBarr and the others.");
  message
      .def(
          "__init__",
          [](py::detail::value_and_holder& v_h, py::args args, py::kwargs kwargs) {
            const ClassInfo& cls =
                ClassOfTypeOrRaise(reinterpret_cast<PyObject*>(Py_TYPE(v_h.inst)));
            if (args.size() > 1) {
              throw py::type_error(std::string(cls.name) +
                                   "() takes at most one object or dict to copy, and fields by "
                                   "keyword");
            }
            std::unique_ptr<CMsgBase> obj = NewObject(cls);
            const Where top{nullptr, cls.name};
            if (args.size() == 1) FillMessage(*obj, cls, args[0], top);
            if (args.size() == 0 && kwargs) FillMessage(*obj, cls, kwargs, top);
            Node node{std::make_shared<Root>(std::move(obj)), {}, &cls};
            if (args.size() == 1) {
              for (auto item : kwargs)
                SetField(node, py::str(item.first).cast<std::string>(), item.second);
            }
            v_h.value_ptr() = new Node(std::move(node));
          },
          py::detail::is_new_style_constructor())
      .def("__getattr__",
           [](py::handle self, const std::string& name) { return GetField(Self(self), name); })
      .def("__setattr__", [](py::handle self, const std::string& name,
                             py::handle value) { SetField(Self(self), name, value); })
      .def("__delattr__",
           [](py::handle self, const std::string& name) { SetField(Self(self), name, py::none()); })
      .def("__dir__",
           [](py::handle self) {
             py::list out = py::module_::import("builtins").attr("object").attr("__dir__")(self);
             const ClassInfo& cls = *Self(self).cls;
             for (int i = 0; i < cls.memberCount; ++i) out.append(schema::MemberOf(cls, i).name);
             return out;
           })
      .def(
          "to_dict",
          [](py::handle self) {
            const Node& node = Self(self);
            Enter(*node.root);
            Busy busy(*node.root);
            return ToDict(node.Resolve(), *node.cls);
          },
          "Every field by name: None where unset, blocks as dicts, arrays as lists.")
      .def(
          "to_msg",
          [](py::handle self) {
            const Node& node = Self(self);
            CMsg* msg = Unlocked(node, [](CMsgBase& obj) { return obj.ToMsg(); });
            if (!msg) {
              Enter(*node.root);
              RaiseLoadError(node.Resolve(), "to_msg");
            }
            return std::make_unique<Msg>(msg);
          },
          "The runtime message of the object (its ToMsg).")
      .def(
          "load", [](py::handle self, Msg& msg) { LoadInto(Self(self), msg); }, arg("msg"),
          "Makes the object what the runtime message holds (fields that it lacks are unset); "
          "on failure raises MessageError and leaves the object as it was.")
      .def(
          "to_json",
          [](py::handle self) { return FromUtf8(WriteNode(Self(self), Form::kJson, nullptr)); },
          "The JSON that MA_WriteMsgJson writes for the object's message.")
      .def(
          "to_text",
          [](py::handle self) { return FromUtf8(WriteNode(Self(self), Form::kText, nullptr)); },
          "The message file text of the object's message.")
      .def(
          "write_file",
          [](py::handle self, py::handle p) {
            const std::string path = PathText(p);
            WriteNode(Self(self), IsJsonPath(path) ? Form::kJson : Form::kText, &path);
          },
          arg("path"), "Writes the message file, as JSON for a name ending in .json.")
      .def(
          "dump", [](py::handle self) { return FromUtf8(DumpOf(Self(self))); },
          "The object's Dump, as the library writes it.")
      .def(
          "diff", [](py::handle self, py::handle other) { return DiffOf(Self(self), other); },
          arg("other"),
          "The fields that differ from another object of the class, in tag order: (path, "
          "left, right) with values as text.")
      .def("copy", [](py::handle self) { return CopyOf(Self(self)); })
      .def("__copy__", [](py::handle self) { return CopyOf(Self(self)); })
      .def("__deepcopy__", [](py::handle self, py::handle) { return CopyOf(Self(self)); })
      .def("__eq__",
           [](py::handle self, py::handle other) -> py::object {
             const Node* b = NodeOf(other);
             if (!b) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             const Node& a = Self(self);
             EnterAll({a.root.get(), b->root.get()});
             return py::bool_(pricemsg::Equal(a.Resolve(), b->Resolve()));
           })
      .def("__repr__", [](py::handle self) { return ReprOf(Self(self)); })
      .def("__reduce__", [](py::handle self) {
        return py::make_tuple(
            py::type::of(self).attr("from_text"),
            py::make_tuple(FromUtf8(WriteNode(Self(self), Form::kText, nullptr))));
      });

  auto classmethod = [&message](const char* name, py::cpp_function f) {
    message.attr(name) = py::reinterpret_steal<py::object>(PyClassMethod_New(f.ptr()));
  };
  // Named, so that pickle finds a class method by its name.
  classmethod("from_dict", py::cpp_function(
                               [](py::handle type, py::handle fields) {
                                 const ClassInfo& cls = ClassOfTypeOrRaise(type);
                                 std::unique_ptr<CMsgBase> obj = NewObject(cls);
                                 FillMessage(*obj, cls, fields, Where{nullptr, cls.name});
                                 return WrapNew(std::move(obj));
                               },
                               py::name("from_dict"), arg("cls"), arg("fields"),
                               py::doc("A new object from a dict of fields, as to_dict() gives.")));
  classmethod("from_json", py::cpp_function(
                               [](py::handle type, py::handle text) {
                                 const ClassInfo& cls = ClassOfTypeOrRaise(type);
                                 return LoadNew(&cls, ReadTree(Source::kJson, Text(text), {}), {});
                               },
                               py::name("from_json"), arg("cls"), arg("text"),
                               py::doc("A new object from the JSON of its message.")));
  classmethod("from_text", py::cpp_function(
                               [](py::handle type, py::handle text) {
                                 const ClassInfo& cls = ClassOfTypeOrRaise(type);
                                 return LoadNew(&cls, ReadTree(Source::kText, Text(text), {}), {});
                               },
                               py::name("from_text"), arg("cls"), arg("text"),
                               py::doc("A new object from a message file's text.")));
  classmethod("read_file",
              py::cpp_function(
                  [](py::handle type, py::handle p) {
                    const ClassInfo& cls = ClassOfTypeOrRaise(type);
                    const std::string path = PathText(p);
                    return LoadNew(&cls, ReadTree(Source::kFile, {}, path), path);
                  },
                  py::name("read_file"), arg("cls"), arg("path"),
                  py::doc("A new object from a message file (JSON for a name ending in .json).")));
  classmethod("template",
              py::cpp_function(
                  [](py::handle type) {
                    const ClassInfo& cls = ClassOfTypeOrRaise(type);
                    std::string text;
                    MsgTextError err{};
                    if (MA_WriteMsgTemplate(cls.number, &text, &err) != MSGTEXT_OK) {
                      RaiseFileError(err, {});
                    }
                    return LoadNew(&cls, ReadTree(Source::kText, text, {}), {});
                  },
                  py::name("template"), arg("cls"),
                  py::doc("An object with every field present: a block, one element of each "
                          "array, placeholder values (0, 0.0, False, 2000-01-01, '').")));
  classmethod("fields", py::cpp_function(
                            [](py::handle type) {
                              const ClassInfo& cls = ClassOfTypeOrRaise(type);
                              py::tuple out(static_cast<size_t>(cls.memberCount));
                              for (int i = 0; i < cls.memberCount; ++i) {
                                out[static_cast<size_t>(i)] = Field{&schema::MemberOf(cls, i)};
                              }
                              return out;
                            },
                            py::name("fields"), arg("cls"),
                            py::doc("The fields of the class, in tag order.")));

  // ---- one Python type per class ----
  py::object typeType =
      py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(&PyType_Type));
  const auto classes = schema::Classes();
  Types().resize(static_cast<size_t>(classes.size()));
  py::tuple bases = py::make_tuple(message);
  for (const ClassInfo& c : classes) {
    py::dict attrs;
    attrs["__module__"] = "pricemsg";
    attrs["__slots__"] = py::tuple();
    attrs["__doc__"] = ClassDoc(c);
    attrs["number"] = c.number;
    attrs["family"] = c.family;
    attrs["role"] = c.role;
    attrs["description"] = c.description;
    py::object type = typeType(c.name, bases, attrs);
    Types()[static_cast<size_t>(schema::IndexOf(c))] = type;
    ClassByType()[reinterpret_cast<PyTypeObject*>(type.ptr())] = &c;
    m.attr(c.name) = type;
  }
  message.attr("__module__") = "pricemsg";

  m.def(
      "classes",
      [] {
        py::list out;
        for (const py::object& t : Types()) out.append(t);
        return out;
      },
      "Every message class, family by family in catalogue order.");
  m.def("class_of", &ClassNamed, arg("key"),
        "The class of a name ('M_FxBarr', 'FxBarr') or number (3568); KeyError with the "
        "nearest names.");
  m.def(
      "find",
      [](const std::string& query, const std::string& role, const std::string& family) {
        const auto terms = schema::ReadQuery(query);
        py::list out;
        for (const ClassInfo* c : schema::SearchClasses(terms, role, family)) {
          out.append(TypeOf(*c));
        }
        return out;
      },
      arg("query"), arg("role") = "", arg("family") = "",
      "The classes that match every word of the query (product words, parts of names, words "
      "of descriptions), requests first.");
  m.def(
      "read_file",
      [](py::handle p) {
        const std::string path = PathText(p);
        return LoadNew(nullptr, ReadTree(Source::kFile, {}, path), path);
      },
      arg("path"), "An object of the class that the message file holds.");
  m.def(
      "from_msg", [](py::object msg) { return msg.attr("to_object")(); }, arg("msg"),
      "A new object of the message's class, loaded from it.");
  m.def(
      "_live", [] { return py::make_tuple(LiveRoots(), LiveMsgs()); },
      "Objects and runtime messages alive, for leak checks.");
}
