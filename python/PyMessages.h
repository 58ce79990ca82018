// The Python module's model of the message objects, shared by its units.
//
// A Python object of a message class is a handle: the root object that it
// belongs to (a message object made from Python, read or copied) and the
// steps from there to the message it stands for, each a tag and, for an
// element of a repeated sub-message, an index. Every use walks the steps
// again through the reflection, so a handle never holds a pointer into a
// tree that Python code may have changed since: a block taken from a request
// keeps the request alive and sees its changes, and an element of an array
// that has since shrunk is told to be gone instead of being read.
//
// Work that runs without the interpreter lock (ToMsg, Load, files, JSON)
// marks its root busy. Any other use of that root waits until the work is
// done; a use from the thread that marked it (Python code run from inside
// the work, as a finalizer) is refused with RuntimeError.
#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Reflect.h"

namespace pricemsg::python {

namespace py = pybind11;

// A tree of message objects that Python handles share.
struct Root {
  explicit Root(std::unique_ptr<CMsgBase> o);
  ~Root();
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  std::unique_ptr<CMsgBase> obj;
  std::atomic<bool> busy{false};
  std::thread::id owner;  // of the work that marked it busy
};

// One step from a message to a held one: the field's tag, and the element's
// index for a repeated sub-message (-1 for a single one).
struct Step {
  int tag;
  int index;
};

// The Python object of a message class: a handle to a message of `cls`.
struct Node {
  std::shared_ptr<Root> root;
  std::vector<Step> steps;
  const ClassInfo* cls = nullptr;

  // The message reached, once the root is free (see Enter). ReferenceError
  // for an element that its array no longer has.
  CMsgBase& Resolve() const;
  // The path from the root for people: "M_FxBarr.maLegs[2].mOpt".
  std::string Path() const;
  Node Child(int tag, int index, const ClassInfo* held) const;
};

// A field of an array kind of the message that a node reaches: the Python
// sequences of value arrays and repeated sub-messages.
struct FieldView {
  Node node;
  const FieldInfo* field = nullptr;

  // The member, once the root is free.
  Member Resolve() const;
  std::string Path() const;
};

// Waits while work of another thread has the root busy; RuntimeError while
// this thread's own does.
void Enter(const Root& root);
// Marks a root busy for its life (after Enter), so that Python code that runs
// meanwhile, in this thread or another, does not change the tree under it.
class Busy {
 public:
  explicit Busy(Root& root);
  ~Busy();
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  Root& root_;
};

// Live roots and runtime messages held from Python, for the tests' leak
// checks.
long LiveRoots();
long LiveMsgs();
void CountMsg(int delta);

// ---- Python objects ----

// The Python object of a node, of the Python type of its class.
py::object Wrap(Node node);
// A new root of a fresh object of `cls`, wrapped.
py::object WrapNew(std::unique_ptr<CMsgBase> obj);
// The node of a Python object of a message class; null for another object.
const Node* NodeOf(py::handle obj);
// The Python type of a class.
py::handle TypeOf(const ClassInfo& cls);

// ---- errors ----

// Raises pricemsg.MessageError with its attributes.
[[noreturn]] void RaiseMessageError(int code, const std::string& text,
                                    const std::string& explanation, const std::string& file = {},
                                    int line = 0, int column = 0);
// The failure of the last Load or ToMsg of `obj` as MessageError.
[[noreturn]] void RaiseLoadError(const CMsgBase& obj, const char* what);
// AttributeError for a name that `cls` has no field of, with the nearest;
// `where` leads the text where given.
struct Where;
[[noreturn]] void RaiseNoField(const ClassInfo& cls, std::string_view name,
                               const Where* where = nullptr);
// A text for a message: control bytes (a NUL among them) as \xHH.
std::string Printable(std::string_view text);

// ---- values (Convert.cpp) ----

// A path for messages about a value, built only when one is needed: the
// names and indexes from the top of what is being filled.
struct Where {
  const Where* up = nullptr;
  const char* name = nullptr;  // a field, or the top's class name
  long index = -1;             // an element
  const Node* node = nullptr;  // the top: a node, whose path leads the text
  std::string Text() const;
};

// The Python value of a field of a value kind.
py::object ValueToPython(const ConstMember& member);
// A Python value for a field of a value kind as a Value; TypeError or
// OverflowError naming the field and the kind it takes. May run Python code.
Value ValueFromPython(const FieldInfo& field, const ClassInfo& holder, py::handle value,
                      const Where& where);
// Sets a field of a value kind; ValueError when the runtime refuses it.
void SetValue(const FieldRef& ref, const Value& value, const Where& where);

// Fills a fresh message `obj` of `cls` (not reachable from Python) from a
// message object of that class, a mapping of field names, or None.
void FillMessage(CMsgBase& obj, const ClassInfo& cls, py::handle value, const Where& where);
// Fills a fresh array of the class `held` from an iterable of messages.
void FillArray(CMsgBase_Array& arr, const ClassInfo& held, py::handle value, const Where& where);
// The fields of `obj` as a dict, all the way down.
py::dict ToDict(const CMsgBase& obj, const ClassInfo& cls);
// The elements of a value array as a list.
py::list ArrayToList(const ConstMember& member);

// The items of an iterable as a tuple of their own; TypeError for one that
// does not iterate.
py::tuple ItemsOrRaise(py::handle value);

// The members of `obj` in field order.
std::vector<Member> MembersOf(CMsgBase& obj);

// The words for the Python values a field takes, for messages and stubs.
std::string Wanted(const FieldInfo& field);

void InitConvert();

}  // namespace pricemsg::python
