#include "MsgExplain.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string_view>
#include <vector>

#include "Reflect.h"

namespace {

namespace ps = pricemsg::schema;
using pricemsg::FailureOp;
using pricemsg::FailureText;

// ---- the levels of a failure ----

// The name of a tagged operation, as its failure text writes it.
std::string_view NameOf(FailureOp op) {
  switch (op) {
    case FailureOp::kGetValue:
      return "GET_VAL_ONE";
    case FailureOp::kGetSub:
      return "GET_SUB_ONE";
    case FailureOp::kGetArray:
      return "GET_SUB_ARR";
    case FailureOp::kSetValue:
      return "SET_VAL_ONE";
    case FailureOp::kSetSub:
      return "SET_SUB_ONE";
    case FailureOp::kSetArray:
      return "SET_SUB_ARR";
    default:
      return "?";
  }
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
  FailureOp op = FailureOp::kGetValue;
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
    case FailureOp::kGetValue:
      return "GetValue " + Gave(l);
    case FailureOp::kSetValue:
      if (l.codeKnown && l.code == MSG_E_TEXT) {
        return "the text holds a NUL byte, where the runtime's texts end, -29";
      }
      return "SetValue " + Gave(l);
    case FailureOp::kGetSub:
      return "Load " + Gave(l);
    case FailureOp::kSetSub:
      return "ToMsg gave null, code " + Code(l);
    case FailureOp::kGetArray:
      if (l.arrayEnd == ArrayEnd::kNoMemory) {
        return "the array could not make its elements: out of memory, -11";
      }
      if (l.index >= 0) return "Load of element " + std::to_string(l.index) + " " + Gave(l);
      return "Load of an element " + Gave(l);
    case FailureOp::kSetArray:
      if (l.arrayEnd == ArrayEnd::kNeverMade) {
        return "element " + std::to_string(l.index) +
               " was never made: a SetSize ran out of memory, -11";
      }
      if (l.index >= 0) {
        return "ToMsg of element " + std::to_string(l.index) + " gave null, code " + Code(l);
      }
      return "ToMsg of an element gave null, code " + Code(l);
    case FailureOp::kWrongNumber:
    case FailureOp::kNoMessage:
    case FailureOp::kArrayNoMemory:
      break;  // told by `what` above
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

// ---- finding failure texts in a text ----

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

// A failure text found in a text, as the library reads it.
struct Entry {
  FailureText read;
  size_t begin = 0, end = 0;
  std::string_view before;  // the line before it, back to the previous text on the line

  bool SameAs(const Entry& o) const {
    return read.op == o.read.op && read.name == o.read.name && read.number == o.read.number &&
           read.tag == o.read.tag && read.given == o.read.given;
  }
};

bool Tagged(FailureOp op) {
  return op != FailureOp::kWrongNumber && op != FailureOp::kNoMessage &&
         op != FailureOp::kArrayNoMemory;
}

// Where a name that ends at `end` starts, not before `floor`.
size_t NameStart(std::string_view text, size_t floor, size_t end) {
  while (end > floor && IsNameChar(text[end - 1])) --end;
  return end;
}

constexpr std::string_view kWrongNumberStart = "invalid input message of service(";
constexpr std::string_view kNoMemory = "Out of memory";

// The failure text found at `i`, whose name (if it has one) starts at
// `floor` or after: a tagged text at its ':', the others at their first
// word. Gives its length, 0 if there is none.
size_t ReadAt(std::string_view text, size_t floor, size_t i, Entry& e) {
  const char c = text[i];
  size_t start = std::string_view::npos;
  if (c == ':' && (text.substr(i + 1, 4) == "GET_" || text.substr(i + 1, 4) == "SET_")) {
    start = NameStart(text, floor, i);
    if (start == i) return 0;
  } else if (c == 'i' && text.substr(i, kWrongNumberStart.size()) == kWrongNumberStart) {
    start = i;
  } else if (c == 'O' && text.substr(i, kNoMemory.size()) == kNoMemory) {
    // "<name> : Out of memory" of an array, or "Out of memory" of ToMsg.
    start = i >= floor + 3 && text.substr(i - 3, 3) == " : " ? NameStart(text, floor, i - 3) : i;
  } else {
    return 0;
  }
  size_t n = pricemsg::ReadFailureText(text, start, &e.read);
  if (n == 0 && start != i) n = pricemsg::ReadFailureText(text, start = i, &e.read);
  if (n == 0 || (Tagged(e.read.op) && c != ':')) return 0;
  e.begin = start;
  e.end = start + n;
  return n;
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
    if (text[i] == '\n' || text[i] == '\r') {
      lineStart = ++i;
      continue;
    }
    const size_t floor = std::max(lineStart, lastEnd);
    Entry e;
    if (ReadAt(text, floor, i, e) == 0) {
      ++i;
      continue;
    }
    e.before = text.substr(floor, e.begin > floor ? e.begin - floor : 0);
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
std::string LevelOf(const FailureText& e, Level& l) {
  switch (e.op) {
    case FailureOp::kWrongNumber:
      l.what = What::kWrongNumber;
      l.given = e.given;
      l.codeKnown = true;
      l.code = MSG_E_MSGNUM;
      l.cls = ps::FindClass(e.number);
      if (!l.cls) return "no class has the number " + std::to_string(e.number);
      return "";
    case FailureOp::kNoMessage:
    case FailureOp::kArrayNoMemory:
      l.what = e.op == FailureOp::kNoMessage ? What::kNoMessage : What::kArrayMemory;
      l.codeKnown = true;
      l.code = MSG_E_NOMEM;
      return "";
    default:
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
  bool sub = e.op == FailureOp::kGetSub || e.op == FailureOp::kSetSub;
  bool arr = e.op == FailureOp::kGetArray || e.op == FailureOp::kSetArray;
  if ((sub && l.field->kind != ps::Kind::kMessage) ||
      (arr && l.field->kind != ps::Kind::kMessageArray)) {
    return std::string(NameOf(e.op)) + " does not go with " + l.field->name + " of " + name +
           ", a field of kind " + ps::InfoOf(l.field->kind).prefix;
  }
  return "";
}

bool GoesDown(const Level& l) {
  return l.what == What::kField && l.op != FailureOp::kGetValue && l.op != FailureOp::kSetValue;
}

bool OfArray(FailureOp op) { return op == FailureOp::kGetArray || op == FailureOp::kSetArray; }

// Whether the failure text `e` can be the level below `holder`.
bool Continues(const Level& holder, const FailureText& e) {
  const ps::ClassInfo& held = ps::HeldClass(*holder.field);
  const bool load = holder.op == FailureOp::kGetSub || holder.op == FailureOp::kGetArray;
  switch (e.op) {
    case FailureOp::kWrongNumber:
      return e.number == held.number && load;
    case FailureOp::kNoMessage:
      return !load;
    case FailureOp::kArrayNoMemory:
      return holder.op == FailureOp::kGetArray;
    default:
      return e.name == held.name;
  }
}

// The class that a failure text is of, for finding the outermost level.
const ps::ClassInfo* ClassOf(const FailureText& e) {
  if (Tagged(e.op)) return ps::FindClass(e.name);
  if (e.op == FailureOp::kWrongNumber) return ps::FindClass(e.number);
  return nullptr;
}

// ---- the object's own levels ----

// Reads the failure text of `obj` (whose class is `cls`) into `l`; false
// if it is none that the library writes.
bool ReadOwnText(const CMsgBase& obj, const ps::ClassInfo& cls, Level& l, std::string& why) {
  const char* raw = obj.errtext.ToStr();
  std::string_view text(raw ? raw : "", raw ? static_cast<size_t>(obj.errtext.GetSize()) : 0);
  FailureText e;
  if (!pricemsg::ReadFailureText(text, &e) || e.op == FailureOp::kArrayNoMemory) {
    why = "the errtext of " + std::string(cls.name) + " is " + Quote(text) +
          ", no failure text of the library";
    return false;
  }
  why = LevelOf(e, l);
  if (!why.empty()) return false;
  if (l.cls != &cls && e.op != FailureOp::kNoMessage) {
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
  const CMsgBase* cur = &obj;
  for (int depth = 0; depth < kMaxLevels; ++depth) {
    const ps::ClassInfo* cls = pricemsg::ClassOf(*cur);
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

    // The member that failed, reached through the reflection.
    pricemsg::ConstFieldRef ref;
    if (pricemsg::Find(*cur, "T" + std::to_string(level.field->tag), &ref, &why) != 0) {
      e.stop = why;
      return e;
    }
    const ps::ClassInfo& held = ps::HeldClass(*level.field);
    const CMsgBase* next = nullptr;
    if (!OfArray(level.op)) {
      next = std::get<const CMsgBase*>(ref.member);
    } else {
      // The element that failed is the first one with a code: a Load makes
      // all elements anew, and a ToMsg stops at the first that fails.
      const CMsgBase_Array* arr = std::get<const CMsgBase_Array*>(ref.member);
      int size = arr->GetSize();
      for (int i = 0; i < size; ++i) {
        const CMsgBase* element = arr->GetAt(i);
        if (!element) {
          if (level.op == FailureOp::kSetArray) {
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
        if (level.op == FailureOp::kGetArray && level.code == MSG_E_NOMEM) {
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
      std::string why = LevelOf(entries[i].read, levels[i]);
      if (!why.empty()) return CannotExplain(why);
    }
    size_t root = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
      const ps::ClassInfo* cls = ClassOf(entries[i].read);
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
        if (!used[j] && Continues(e.levels.back(), entries[j].read)) {
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
      if (OfArray(holder.op)) {
        holder.index = IndexBefore(entries[next].before, holder.field->name);
        if (entries[next].read.op == FailureOp::kArrayNoMemory) {
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
