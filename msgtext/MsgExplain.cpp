#include "MsgExplain.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string_view>
#include <vector>

namespace {

namespace ps = pricemsg::schema;

// ---- where the members of an object lie ----
//
// A generated class derives from CMsgBase alone and declares one member for
// each field, in tag order, of the type of the field's kind; an array class
// derives from CMsgBase_Array alone and adds `capacity`, `size` and
// `items`. The platform's C++ ABI places a class's first member right
// behind the data of its base (in the base's tail padding, where it has
// any), each further member at the next offset aligned for its type, and
// rounds the size of a class up to its alignment. The offsets follow from
// the tables and the sizes of the value types.

// The data of CMsgBase ends where a member of one byte behind it goes.
struct BaseTail : CMsgBase {
  char first;
};
// What every array class adds to its base.
struct ArrayShape : CMsgBase_Array {
  int capacity;
  int size;
  void** items;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constexpr size_t kBaseData = offsetof(BaseTail, first);
#pragma GCC diagnostic pop

struct Shape {
  size_t size;
  size_t align;
};

template <class T>
constexpr Shape ShapeOf() {
  return {sizeof(T), alignof(T)};
}

constexpr size_t AlignUp(size_t at, size_t align) { return (at + align - 1) / align * align; }

// The shape of a member of any kind but kMessage.
Shape ValueShape(ps::Kind kind) {
  switch (kind) {
    case ps::Kind::kInt:
      return ShapeOf<CInt>();
    case ps::Kind::kDbl:
      return ShapeOf<CDbl>();
    case ps::Kind::kBool:
      return ShapeOf<CBool>();
    case ps::Kind::kDate:
      return ShapeOf<CDate>();
    case ps::Kind::kString:
      return ShapeOf<CString>();
    case ps::Kind::kIntArray:
      return ShapeOf<CIntArray>();
    case ps::Kind::kDblArray:
      return ShapeOf<CDblArray>();
    case ps::Kind::kMessageArray:
    case ps::Kind::kMessage:
      break;
  }
  return ShapeOf<ArrayShape>();
}

// The offset of every member of every class, worked out once.
class Layouts {
 public:
  Layouts() : classes_(static_cast<size_t>(ps::kClassCount)) {
    size_t members = 0;
    for (int c = 0; c < ps::kClassCount; ++c) {
      const ps::ClassInfo& info = ps::kClasses[c];
      members = std::max(members, static_cast<size_t>(info.firstMember + info.memberCount));
    }
    offsets_.assign(members, 0);
    for (int c = 0; c < ps::kClassCount; ++c) Compute(c);
  }

  // The offset of member `i` of class `c` in an object of that class.
  size_t Offset(const ps::ClassInfo& c, int i) const {
    return offsets_[static_cast<size_t>(c.firstMember + i)];
  }

 private:
  enum class State { kNew, kBusy, kDone };
  struct Entry {
    State state = State::kNew;
    Shape shape{0, 1};
  };

  Shape Compute(int c) {
    Entry& entry = classes_[static_cast<size_t>(c)];
    // A class never holds itself: the schema composes by value, upward.
    if (entry.state != State::kNew) return entry.shape;
    entry.state = State::kBusy;
    const ps::ClassInfo& info = ps::kClasses[c];
    size_t at = kBaseData;
    size_t align = alignof(CMsgBase);
    for (int i = 0; i < info.memberCount; ++i) {
      const ps::FieldInfo& f = ps::MemberOf(info, i);
      Shape s = f.kind == ps::Kind::kMessage && f.held >= 0 && f.held < ps::kClassCount
                    ? Compute(f.held)
                    : ValueShape(f.kind);
      at = AlignUp(at, s.align);
      offsets_[static_cast<size_t>(info.firstMember + i)] = at;
      at += s.size;
      align = std::max(align, s.align);
    }
    Entry& done = classes_[static_cast<size_t>(c)];
    done.shape = {AlignUp(at, align), align};
    done.state = State::kDone;
    return done.shape;
  }

  std::vector<Entry> classes_;
  std::vector<size_t> offsets_;
};

const Layouts& TheLayouts() {
  static const Layouts layouts;
  return layouts;
}

// ---- the levels of a failure ----

enum class Op { kGetVal, kGetSub, kGetArr, kSetVal, kSetSub, kSetArr };

struct OpName {
  std::string_view text;
  Op op;
};
constexpr OpName kOps[] = {
    {"GET_VAL_ONE", Op::kGetVal}, {"GET_SUB_ONE", Op::kGetSub}, {"GET_SUB_ARR", Op::kGetArr},
    {"SET_VAL_ONE", Op::kSetVal}, {"SET_SUB_ONE", Op::kSetSub}, {"SET_SUB_ARR", Op::kSetArr},
};

std::string_view NameOf(Op op) {
  for (const OpName& o : kOps) {
    if (o.op == op) return o.text;
  }
  return "?";
}

// What a level tells.
enum class What {
  kField,        // a failure text with a tag: a field of the level's class
  kWrongNumber,  // "invalid input message of service(%d,%d)"
  kNoMessage,    // ToMsg's "Out of memory": no message could be made
  kArrayMemory,  // "%s : Out of memory" of an array, alone in a text
};

// How an array field ends the path.
enum class ArrayEnd {
  kNone,
  kNoMemory,   // Load: the array could not make its elements
  kNeverMade,  // ToMsg: the element at `index` was never made
};

struct Level {
  What what = What::kField;
  const ps::ClassInfo* cls = nullptr;  // null only for a bare "Out of memory" of a text
  Op op = Op::kGetVal;
  const ps::FieldInfo* field = nullptr;
  int index = -1;  // the element of an array field, where known
  ArrayEnd arrayEnd = ArrayEnd::kNone;
  bool codeKnown = false;
  int code = 0;
  int given = 0;  // kWrongNumber: the number of the message that Load was given
};

struct Explanation {
  std::vector<Level> levels;
  std::string stop;  // why the path ends above the first cause; empty if it reaches it
  int unused = 0;    // failure texts of a text that do not continue the path
};

std::string Number(int n) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "M%04d", n);
  return buf;
}

std::string Code(const Level& l) { return l.codeKnown ? std::to_string(l.code) : "unknown"; }
std::string Gave(const Level& l) {
  return l.codeKnown ? "gave " + std::to_string(l.code) : "gave an unknown code";
}

// The cause at a level, as both the first line and the level's line say it.
std::string Cause(const Level& l) {
  switch (l.what) {
    case What::kWrongNumber: {
      std::string text = "Load was given a message of number " + std::to_string(l.given);
      if (const ps::ClassInfo* given = ps::FindClass(l.given)) {
        text += " (" + std::string(given->name) + ")";
      }
      if (l.cls) text += " where " + std::string(l.cls->name) + " belongs";
      return text + ", -28";
    }
    case What::kNoMessage:
      return "ToMsg could not make a message: out of memory, -11";
    case What::kArrayMemory:
      return "an array could not make its elements: out of memory, -11";
    case What::kField:
      break;
  }
  switch (l.op) {
    case Op::kGetVal:
      return "GetValue " + Gave(l);
    case Op::kSetVal:
      return "SetValue " + Gave(l);
    case Op::kGetSub:
      return "Load " + Gave(l);
    case Op::kSetSub:
      return "ToMsg gave null, code " + Code(l);
    case Op::kGetArr:
      if (l.arrayEnd == ArrayEnd::kNoMemory) {
        return "the array could not make its elements: out of memory, -11";
      }
      if (l.index >= 0) return "Load of element " + std::to_string(l.index) + " " + Gave(l);
      return "Load of an element " + Gave(l);
    case Op::kSetArr:
      if (l.arrayEnd == ArrayEnd::kNeverMade) {
        return "element " + std::to_string(l.index) +
               " was never made: a SetSize ran out of memory, -11";
      }
      if (l.index >= 0) {
        return "ToMsg of element " + std::to_string(l.index) + " gave null, code " + Code(l);
      }
      return "ToMsg of an element gave null, code " + Code(l);
  }
  return "";
}

std::string FieldPart(const Level& l) {
  std::string text = l.field->name;
  if (l.index >= 0) text += "[" + std::to_string(l.index) + "]";
  return text;
}

std::string Render(const Explanation& e) {
  if (e.levels.empty()) return "";
  const Level& root = e.levels.front();
  std::string path = root.cls ? root.cls->name : "(a class the text does not name)";
  const Level* lastField = nullptr;
  for (const Level& l : e.levels) {
    if (l.what != What::kField) break;
    path += "." + FieldPart(l);
    lastField = &l;
  }
  std::string out = path;
  if (lastField) {
    out += " (T" + std::to_string(lastField->field->tag) + ", " + lastField->field->type + ")";
  }
  out += ": " + Cause(e.levels.back());
  if (!e.stop.empty()) out += "; " + e.stop;

  for (const Level& l : e.levels) {
    out += "\n  ";
    out += l.cls ? std::string(l.cls->name) + " " + Number(l.cls->number) : "(a class not named)";
    if (l.what == What::kField) {
      out += " T" + std::to_string(l.field->tag) + " " + FieldPart(l) + " (" +
             ps::InfoOf(l.field->kind).words + ", " + l.field->type + "): ";
      out += NameOf(l.op);
      out += ", ";
    } else {
      out += ": ";
    }
    out += Cause(l);
  }
  if (!e.stop.empty()) out += "\n  the path stops here: " + e.stop;
  if (e.unused > 0) {
    out += "\n  " + std::to_string(e.unused) +
           (e.unused == 1 ? " more failure text does" : " more failure texts do") +
           " not continue this path";
  }
  return out;
}

// ---- reading one failure text ----

bool IsNameChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Reads a decimal number of 1 to 10 digits that fits an int, at `at`.
bool ReadNumber(std::string_view text, size_t& at, int& value) {
  size_t end = at;
  while (end < text.size() && end - at < 11 && text[end] >= '0' && text[end] <= '9') ++end;
  if (end == at || end - at > 10) return false;
  auto [ptr, ec] = std::from_chars(text.data() + at, text.data() + end, value);
  if (ec != std::errc() || ptr != text.data() + end) return false;
  at = end;
  return true;
}

bool Expect(std::string_view text, size_t& at, std::string_view word) {
  if (text.substr(at, word.size()) != word) return false;
  at += word.size();
  return true;
}

// A failure text as the library writes it.
struct Entry {
  enum Form { kTagged, kWrongNumber, kNoMessage, kArrayNoMemory } form;
  std::string_view name;  // kTagged: the class name
  Op op = Op::kGetVal;
  int number = 0;  // kTagged: the message number; kWrongNumber: the own number
  int tag = 0;
  int given = 0;  // kWrongNumber
  size_t begin = 0, end = 0;
  std::string_view before;  // the line before it, back to the previous text on the line

  bool SameAs(const Entry& o) const {
    return form == o.form && name == o.name && op == o.op && number == o.number && tag == o.tag &&
           given == o.given;
  }
};

// "<name>:<OP>(M<number>.T<tag>) fail" with the ':' at `colon`, the name
// starting at `floor` or after.
bool ReadTagged(std::string_view text, size_t floor, size_t colon, Entry& e) {
  size_t start = colon;
  while (start > floor && IsNameChar(text[start - 1])) --start;
  if (start == colon) return false;
  size_t at = colon + 1;
  bool known = false;
  for (const OpName& o : kOps) {
    if (text.substr(at, o.text.size()) == o.text) {
      e.op = o.op;
      at += o.text.size();
      known = true;
      break;
    }
  }
  if (!known || !Expect(text, at, "(M") || !ReadNumber(text, at, e.number) ||
      !Expect(text, at, ".T") || !ReadNumber(text, at, e.tag) || !Expect(text, at, ") fail")) {
    return false;
  }
  e.form = Entry::kTagged;
  e.name = text.substr(start, colon - start);
  e.begin = start;
  e.end = at;
  return true;
}

constexpr std::string_view kWrongNumberText = "invalid input message of service(";
constexpr std::string_view kNoMemoryText = "Out of memory";

bool ReadWrongNumber(std::string_view text, size_t start, Entry& e) {
  size_t at = start + kWrongNumberText.size();
  if (!ReadNumber(text, at, e.given) || !Expect(text, at, ",") || !ReadNumber(text, at, e.number) ||
      !Expect(text, at, ")")) {
    return false;
  }
  e.form = Entry::kWrongNumber;
  e.begin = start;
  e.end = at;
  return true;
}

// "Out of memory" of ToMsg, or "<name> : Out of memory" of an array.
void ReadNoMemory(std::string_view text, size_t start, Entry& e) {
  e.begin = start;
  e.end = start + kNoMemoryText.size();
  e.form = Entry::kNoMessage;
  if (start >= 3 && text.substr(start - 3, 3) == " : ") {
    e.form = Entry::kArrayNoMemory;
    size_t name = start - 3;
    while (name > 0 && IsNameChar(text[name - 1])) --name;
    e.begin = name;
  }
}

// The most failure texts that one text may hold: far more than the deepest
// nesting of the classes.
constexpr size_t kMaxEntries = 1024;

// Every failure text in `text`, in order, each with what stands before it
// on its line. False if there are too many.
bool FindEntries(std::string_view text, std::vector<Entry>& entries) {
  size_t lineStart = 0;
  size_t lastEnd = 0;
  size_t i = 0;
  while (i < text.size()) {
    char c = text[i];
    if (c == '\n' || c == '\r') {
      lineStart = ++i;
      continue;
    }
    Entry e{};
    bool found = false;
    if (c == ':' && (text.substr(i + 1, 4) == "GET_" || text.substr(i + 1, 4) == "SET_")) {
      found = ReadTagged(text, std::max(lineStart, lastEnd), i, e);
    } else if (c == 'i' && text.substr(i, kWrongNumberText.size()) == kWrongNumberText) {
      found = ReadWrongNumber(text, i, e);
    } else if (c == 'O' && text.substr(i, kNoMemoryText.size()) == kNoMemoryText) {
      ReadNoMemory(text, i, e);
      e.begin = std::max(e.begin, lineStart);
      found = true;
    }
    if (!found) {
      ++i;
      continue;
    }
    size_t from = std::max(lineStart, lastEnd);
    e.before = text.substr(from, e.begin > from ? e.begin - from : 0);
    lastEnd = e.end;
    if (std::none_of(entries.begin(), entries.end(), [&](const Entry& o) { return o.SameAs(e); })) {
      if (entries.size() == kMaxEntries) return false;
      entries.push_back(e);
    }
    i = e.end;
  }
  return true;
}

// The code that a text states, as "failed with -5" or "rc=-5".
bool StatedCode(std::string_view text, int& code) {
  static constexpr std::string_view kWords[] = {"failed with ", "gave ", "returned ", "code ",
                                                "rc=",          "rc ",   "rc: "};
  size_t best = std::string_view::npos;
  for (std::string_view word : kWords) {
    for (size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
      if (at > 0 && IsNameChar(text[at - 1])) continue;
      size_t num = at + word.size();
      if (num >= text.size() || text[num] != '-') continue;
      ++num;
      int value;
      if (!ReadNumber(text, num, value)) continue;
      if (at < best) {
        best = at;
        code = -value;
      }
      break;
    }
  }
  return best != std::string_view::npos;
}

// The index that the words before a failure text give to the element of
// `field`: the last "<field>[<index>]" there.
int IndexBefore(std::string_view before, std::string_view field) {
  int index = -1;
  for (size_t at = before.find(field); at != std::string_view::npos;
       at = before.find(field, at + 1)) {
    if (at > 0 && IsNameChar(before[at - 1])) continue;
    size_t open = at + field.size();
    if (!Expect(before, open, "[")) continue;
    int value;
    if (ReadNumber(before, open, value) && Expect(before, open, "]")) index = value;
  }
  return index;
}

// Characters of a text fit to quote in a line: printable ASCII, the rest as
// \xHH, cut short.
std::string Quote(std::string_view text) {
  constexpr size_t kMax = 60;
  std::string out = "\"";
  for (size_t i = 0; i < text.size() && i < kMax; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    }
  }
  out += text.size() > kMax ? "\"..." : "\"";
  return out;
}

std::string CannotExplain(const std::string& why) { return "cannot explain: " + why; }

// A level from a failure text, checked against the tables. Empty on
// success, else why not.
std::string LevelOf(const Entry& e, Level& l) {
  switch (e.form) {
    case Entry::kWrongNumber:
      l.what = What::kWrongNumber;
      l.given = e.given;
      l.codeKnown = true;
      l.code = MSG_E_MSGNUM;
      l.cls = ps::FindClass(e.number);
      if (!l.cls) return "no class has the number " + std::to_string(e.number);
      return "";
    case Entry::kNoMessage:
    case Entry::kArrayNoMemory:
      l.what = e.form == Entry::kNoMessage ? What::kNoMessage : What::kArrayMemory;
      l.codeKnown = true;
      l.code = MSG_E_NOMEM;
      return "";
    case Entry::kTagged:
      break;
  }
  std::string name(e.name);
  l.cls = ps::FindClass(e.name);
  if (!l.cls) return "no class is named " + Quote(name);
  if (l.cls->number != e.number) {
    return name + " is " + Number(l.cls->number) +
           ", and its failure texts name that number, not " + Number(e.number);
  }
  l.op = e.op;
  l.field = ps::FindMember(*l.cls, e.tag);
  if (!l.field) return name + " has no field under the tag T" + std::to_string(e.tag);
  bool sub = e.op == Op::kGetSub || e.op == Op::kSetSub;
  bool arr = e.op == Op::kGetArr || e.op == Op::kSetArr;
  if ((sub && l.field->kind != ps::Kind::kMessage) ||
      (arr && l.field->kind != ps::Kind::kMessageArray)) {
    return std::string(NameOf(e.op)) + " does not go with " + l.field->name + " of " + name +
           ", a field of kind " + ps::InfoOf(l.field->kind).prefix;
  }
  return "";
}

bool GoesDown(const Level& l) {
  return l.what == What::kField && l.op != Op::kGetVal && l.op != Op::kSetVal;
}

// Whether the failure text `e` can be the level below `holder`.
bool Continues(const Level& holder, const Entry& e) {
  const ps::ClassInfo& held = ps::HeldClass(*holder.field);
  switch (e.form) {
    case Entry::kTagged:
      return e.name == held.name;
    case Entry::kWrongNumber:
      return e.number == held.number && (holder.op == Op::kGetSub || holder.op == Op::kGetArr);
    case Entry::kNoMessage:
      return holder.op == Op::kSetSub || holder.op == Op::kSetArr;
    case Entry::kArrayNoMemory:
      return holder.op == Op::kGetArr;
  }
  return false;
}

// The class that a failure text is of, for finding the outermost level.
const ps::ClassInfo* ClassOf(const Entry& e) {
  if (e.form == Entry::kTagged) return ps::FindClass(e.name);
  if (e.form == Entry::kWrongNumber) return ps::FindClass(e.number);
  return nullptr;
}

// ---- the object's own levels ----

// Reads the failure text of `obj` (whose class is `cls`) into `l`; false
// if it is none that the library writes.
bool ReadOwnText(const CMsgBase& obj, const ps::ClassInfo& cls, Level& l, std::string& why) {
  const char* raw = obj.errtext.ToStr();
  std::string_view text(raw ? raw : "", raw ? static_cast<size_t>(obj.errtext.GetSize()) : 0);
  Entry e{};
  bool read = false;
  if (text == kNoMemoryText) {
    e.form = Entry::kNoMessage;
    read = true;
  } else if (text.substr(0, kWrongNumberText.size()) == kWrongNumberText) {
    read = ReadWrongNumber(text, 0, e) && e.end == text.size();
  } else {
    size_t colon = text.find(':');
    read = colon != std::string_view::npos && ReadTagged(text, 0, colon, e) && e.begin == 0 &&
           e.end == text.size();
  }
  if (!read) {
    why = "the errtext of " + std::string(cls.name) + " is " + Quote(text) +
          ", no failure text of the library";
    return false;
  }
  why = LevelOf(e, l);
  if (!why.empty()) return false;
  if (l.cls != &cls && e.form != Entry::kNoMessage) {
    why = "the errtext of " + std::string(cls.name) + " is " + Quote(text) + ", of another class";
    return false;
  }
  l.cls = &cls;
  l.codeKnown = true;
  l.code = obj.errcode;
  return true;
}

// The deepest that a path can go: more than the classes nest.
constexpr int kMaxLevels = 64;

Explanation FromObject(const CMsgBase& obj) {
  Explanation e;
  const Layouts& layouts = TheLayouts();
  const CMsgBase* cur = &obj;
  for (int depth = 0; depth < kMaxLevels; ++depth) {
    const ps::ClassInfo* cls = ps::FindClass(cur->msgnum);
    if (!cls) {
      e.stop = "an object of number " + std::to_string(cur->msgnum) + ", which no class has";
      return e;
    }
    if (cur->errcode == 0) {
      e.stop = std::string(cls->name) + " holds no failure";
      return e;
    }
    Level l;
    std::string why;
    if (!ReadOwnText(*cur, *cls, l, why)) {
      e.stop = why + " (code " + std::to_string(cur->errcode) + ")";
      return e;
    }
    e.levels.push_back(l);
    Level& level = e.levels.back();
    if (!GoesDown(level)) return e;

    const char* base = reinterpret_cast<const char*>(cur);
    size_t offset = layouts.Offset(*cls, ps::MemberIndex(*cls, level.field->tag));
    const ps::ClassInfo& held = ps::HeldClass(*level.field);
    const CMsgBase* next = nullptr;
    if (level.op == Op::kGetSub || level.op == Op::kSetSub) {
      next = reinterpret_cast<const CMsgBase*>(base + offset);
    } else {
      // The element that failed is the first one with a code: a Load makes
      // all elements anew, and a ToMsg stops at the first that fails.
      const auto* arr = reinterpret_cast<const CMsgBase_Array*>(base + offset);
      int size = arr->GetSize();
      for (int i = 0; i < size; ++i) {
        const CMsgBase* element = arr->GetAt(i);
        if (!element) {
          if (level.op == Op::kSetArr) {
            level.index = i;
            level.arrayEnd = ArrayEnd::kNeverMade;
          } else {
            level.arrayEnd = ArrayEnd::kNoMemory;
          }
          return e;
        }
        if (element->errcode != 0) {
          level.index = i;
          next = element;
          break;
        }
      }
      if (!next) {
        if (level.op == Op::kGetArr && level.code == MSG_E_NOMEM) {
          level.arrayEnd = ArrayEnd::kNoMemory;
        } else {
          e.stop = "no element of " + std::string(level.field->name) + " holds a failure";
        }
        return e;
      }
    }
    if (next->msgnum != held.number) {
      e.stop = std::string(level.field->name) + " holds an object of number " +
               std::to_string(next->msgnum) + ", not " + held.name;
      return e;
    }
    cur = next;
  }
  e.stop = "deeper than " + std::to_string(kMaxLevels) + " levels";
  return e;
}

}  // namespace

std::string MA_ExplainFailure(const CMsgBase& obj) {
  if (obj.errcode == 0) return "";
  try {
    Explanation e = FromObject(obj);
    if (e.levels.empty()) {
      const ps::ClassInfo* cls = ps::FindClass(obj.msgnum);
      return std::string(cls ? cls->name : "an object") + " failed with " +
             std::to_string(obj.errcode) + "; " + e.stop;
    }
    return Render(e);
  } catch (const std::bad_alloc&) {
    return "cannot explain: out of memory";
  }
}

std::string MA_ExplainFailureText(const std::string& failureText) {
  try {
    if (failureText.size() > kExplainTextMaxSize) {
      return CannotExplain("the text has " + std::to_string(failureText.size()) +
                           " bytes, more than the " + std::to_string(kExplainTextMaxSize) +
                           " that are read");
    }
    std::string_view text(failureText);
    std::vector<Entry> entries;
    if (!FindEntries(text, entries)) {
      return CannotExplain("the text holds more than " + std::to_string(kMaxEntries) +
                           " failure texts");
    }
    if (entries.empty()) {
      return CannotExplain(
          "the text holds no failure text, such as \"M_SysReject:GET_VAL_ONE(M0010.T7) fail\"");
    }

    // The outermost level: the first text whose class no other text holds
    // below a field.
    std::vector<Level> levels(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
      std::string why = LevelOf(entries[i], levels[i]);
      if (!why.empty()) return CannotExplain(why);
    }
    size_t root = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
      const ps::ClassInfo* cls = ClassOf(entries[i]);
      if (!cls) continue;
      bool held = false;
      for (size_t j = 0; j < entries.size() && !held; ++j) {
        held = j != i && GoesDown(levels[j]) && &ps::HeldClass(*levels[j].field) == cls;
      }
      if (!held) {
        root = i;
        break;
      }
    }

    Explanation e;
    std::vector<bool> used(entries.size(), false);
    size_t at = root;
    used[at] = true;
    e.levels.push_back(levels[at]);
    while (GoesDown(e.levels.back())) {
      size_t next = entries.size();
      for (size_t j = 0; j < entries.size(); ++j) {
        if (!used[j] && Continues(e.levels.back(), entries[j])) {
          next = j;
          break;
        }
      }
      if (next == entries.size()) {
        e.stop = "the text stops at this level: the cause is in the errtext of " +
                 std::string(ps::HeldClass(*e.levels.back().field).name);
        break;
      }
      Level& holder = e.levels.back();
      if (holder.op == Op::kGetArr || holder.op == Op::kSetArr) {
        holder.index = IndexBefore(entries[next].before, holder.field->name);
        if (entries[next].form == Entry::kArrayNoMemory) {
          holder.arrayEnd = ArrayEnd::kNoMemory;
          used[next] = true;
          break;
        }
      }
      used[next] = true;
      Level below = levels[next];
      if (below.what == What::kNoMessage) below.cls = &ps::HeldClass(*holder.field);
      e.levels.push_back(below);
    }
    e.unused = static_cast<int>(std::count(used.begin(), used.end(), false));

    // Failure texts carry no code, but for -28 and -11, which their texts
    // tell. A Load passes the code of its first cause up unchanged, and so
    // do the errcodes of a ToMsg: that code, or else one that the text
    // states, belongs to every level.
    Level& last = e.levels.back();
    if (last.arrayEnd == ArrayEnd::kNoMemory) {
      last.codeKnown = true;
      last.code = MSG_E_NOMEM;
    }
    int code = last.code;
    bool known = last.codeKnown || StatedCode(text, code);
    for (Level& l : e.levels) {
      if (!l.codeKnown && known) {
        l.codeKnown = true;
        l.code = code;
      }
    }
    return Render(e);
  } catch (const std::bad_alloc&) {
    return CannotExplain("out of memory");
  }
}
