// pricemsg-catalogue: a guide to the message classes from the command line.
//
// It lists and searches the classes, shows a class as the tree of everything
// it holds, tells which classes hold a class or have a field, dumps a fresh
// object of any class, and prints message files with field names.
// Everything it knows comes from the schema tables that the generator writes
// from schema/ (SchemaTables.h); `dump` makes real objects of the library.
//
// Results go to stdout. A name or number that matches nothing is an error on
// stderr with the nearest names, and exit status 1; a wrong command line
// prints the usage with exit status 2; output that cannot be written is an
// error with exit status 3. Arguments are quoted in errors cut short, with
// their control bytes escaped, and a name far longer than any is near none.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "Catalogue.h"
#include "CatalogueFactory.h"
#include "MsgText.h"
#include "RuntimeProbe.h"
#include "SchemaTables.h"

namespace {

using pricemsg::schema::ClassInfo;
using pricemsg::schema::FieldInfo;
using pricemsg::schema::kClassCount;
using pricemsg::schema::kClasses;
using pricemsg::schema::kFieldCount;
using pricemsg::schema::kFields;
using pricemsg::schema::Kind;
using pricemsg::schema::MemberOf;

constexpr char kTool[] = "pricemsg-catalogue";

enum Status { kFound = 0, kNotFound = 1, kBadCommandLine = 2, kOutputFailed = 3 };

// Where a run writes: results to `out`, errors and the usage to `err`.
struct Io {
  FILE* out;
  FILE* err;
};

// An argument as errors show it: at most `max` bytes (a name is never
// longer than 64; a path may be), bytes outside printable ASCII and the
// backslash as \xHH, and "..." where it was cut.
std::string Shown(const std::string& text, size_t max = 64) {
  std::string out;
  for (size_t i = 0; i < text.size() && i < max; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 || c >= 0x7f || c == '\\') {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  if (text.size() > max) out += "...";
  return out;
}

// ---- lookups ----
// Names match exactly, else in any case if only one name does; a class may
// be named without its "M_".

std::string Lower(const std::string& text) {
  std::string out = text;
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool HasPrefixM(const std::string& name) {
  return name.size() >= 2 && (name[0] == 'M' || name[0] == 'm') && name[1] == '_';
}

// The text as a class name: "M_" added if it lacks one.
std::string AsClassName(const std::string& text) { return HasPrefixM(text) ? text : "M_" + text; }

// A number written as decimal digits only, that fits an int.
bool ParseNumber(const std::string& text, int* out) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  *out = std::atoi(text.c_str());
  return true;
}

// The entry whose name is `name` in any case, if only one has it.
template <class T>
const T* ByFoldedName(const T* table, int count, const std::string& name) {
  const T* folded = nullptr;
  int foldedCount = 0;
  const std::string lower = Lower(name);
  for (int i = 0; i < count; ++i) {
    if (lower == Lower(table[i].name)) {
      folded = &table[i];
      ++foldedCount;
    }
  }
  return foldedCount == 1 ? folded : nullptr;
}

const ClassInfo* ClassByName(const std::string& name) {
  const std::string full = AsClassName(name);
  const ClassInfo* exact = pricemsg::schema::FindClass(full);
  return exact ? exact : ByFoldedName(kClasses, kClassCount, full);
}

const FieldInfo* FieldByName(const std::string& name) {
  const FieldInfo* exact = pricemsg::schema::FindField(name);
  return exact ? exact : ByFoldedName(kFields, kFieldCount, name);
}

// A class by name or number.
const ClassInfo* FindClass(const std::string& text) {
  int number = 0;
  return ParseNumber(text, &number) ? pricemsg::schema::FindClass(number) : ClassByName(text);
}

// The fields with a tag: one, or a single field and its array twin.
std::vector<const FieldInfo*> FieldsByTag(int tag) {
  std::vector<const FieldInfo*> out;
  for (int i = 0; i < kFieldCount; ++i) {
    if (kFields[i].tag == tag) out.push_back(&kFields[i]);
  }
  return out;
}

bool HasField(const ClassInfo& cls, const FieldInfo& field) {
  return pricemsg::schema::FindMember(cls, field.tag) == &field;
}

// The class a field holds; null for a value field.
const ClassInfo* ClassHeld(const FieldInfo& field) {
  return field.held >= 0 ? &pricemsg::schema::HeldClass(field) : nullptr;
}

bool ByClassName(const ClassInfo* a, const ClassInfo* b) { return Lower(a->name) < Lower(b->name); }

// ---- errors and suggestions ----

size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// Up to three names near `text`, in any case: names that hold it come
// first, then the others within a few edits; nearer ones first in each.
// The edits between two names are at least the difference of their
// lengths, so a name too long or too short to be near is passed over
// unmeasured: a text far longer than any name costs no more than its
// length.
std::vector<std::string> Nearest(const std::string& text, const std::vector<std::string>& names) {
  const std::string lower = Lower(text);
  const size_t reach = std::max<size_t>(2, lower.size() / 3);
  std::vector<std::tuple<bool, size_t, std::string>> ranked;
  for (const std::string& name : names) {
    const std::string candidate = Lower(name);
    const size_t apart = candidate.size() > lower.size() ? candidate.size() - lower.size()
                                                         : lower.size() - candidate.size();
    // A name that holds the text is that many deletions from it.
    const bool holds =
        candidate.size() >= lower.size() && candidate.find(lower) != std::string::npos;
    if (holds) {
      ranked.emplace_back(false, apart, name);
    } else if (apart <= reach) {
      const size_t distance = EditDistance(lower, candidate);
      if (distance <= reach) ranked.emplace_back(true, distance, name);
    }
  }
  const size_t n = std::min<size_t>(3, ranked.size());
  std::partial_sort(ranked.begin(), ranked.begin() + n, ranked.end());
  std::vector<std::string> out;
  for (size_t i = 0; i < n; ++i) out.push_back(std::get<2>(ranked[i]));
  return out;
}

std::vector<std::string> ClassNames() {
  std::vector<std::string> out;
  for (int i = 0; i < kClassCount; ++i) out.push_back(kClasses[i].name);
  return out;
}

std::vector<std::string> FieldNames() {
  std::vector<std::string> out;
  for (int i = 0; i < kFieldCount; ++i) out.push_back(kFields[i].name);
  return out;
}

int NotFound(const Io& io, const std::string& what, const std::vector<std::string>& nearest) {
  std::fprintf(io.err, "%s: %s\n", kTool, what.c_str());
  if (nearest.empty()) {
    std::fprintf(io.err, "  no name is near it\n");
  } else {
    std::string list;
    for (const std::string& n : nearest) list += (list.empty() ? "" : ", ") + n;
    std::fprintf(io.err, "  nearest: %s\n", list.c_str());
  }
  return kNotFound;
}

// The error for a class name or number that names no class.
int NoClass(const Io& io, const std::string& text) {
  int number = 0;
  if (!ParseNumber(text, &number)) {
    return NotFound(io, "no class named '" + Shown(text) + "'",
                    Nearest(AsClassName(text), ClassNames()));
  }
  std::vector<const ClassInfo*> byDistance;
  for (int i = 0; i < kClassCount; ++i) byDistance.push_back(&kClasses[i]);
  std::sort(byDistance.begin(), byDistance.end(), [number](const ClassInfo* a, const ClassInfo* b) {
    const long da = std::labs(static_cast<long>(a->number) - number);
    const long db = std::labs(static_cast<long>(b->number) - number);
    return da != db ? da < db : a->number < b->number;
  });
  std::vector<std::string> nearest;
  for (size_t i = 0; i < byDistance.size() && i < 3; ++i) {
    nearest.push_back(std::to_string(byDistance[i]->number) + " " + byDistance[i]->name);
  }
  return NotFound(io, "no class numbered " + text, nearest);
}

// ---- output ----

const char* KindWord(Kind kind) {
  switch (kind) {
    case Kind::kInt:
      return "int";
    case Kind::kDbl:
      return "double";
    case Kind::kBool:
      return "bool";
    case Kind::kDate:
      return "date";
    case Kind::kString:
      return "string";
    case Kind::kIntArray:
      return "int array";
    case Kind::kDblArray:
      return "double array";
    case Kind::kMessage:
      return "message";
    case Kind::kMessageArray:
      return "repeated";
  }
  return "?";
}

// What a field holds: its kind, and for a message the class and its number.
std::string Holds(const FieldInfo& field) {
  std::string out = KindWord(field.kind);
  if (const ClassInfo* held = ClassHeld(field)) {
    out += std::string(" ") + held->name + " " + std::to_string(held->number);
  }
  return out;
}

std::string Pad(const std::string& text, size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string Tag(const FieldInfo& field) { return "T" + std::to_string(field.tag); }

// Prints classes as "name  number  family", each with its note if any, in
// columns.
void PrintClasses(FILE* out, const std::vector<const ClassInfo*>& classes,
                  const std::string& indent, const std::vector<std::string>& notes = {}) {
  size_t nameWidth = 0;
  size_t familyWidth = 0;
  for (const ClassInfo* c : classes) {
    nameWidth = std::max(nameWidth, std::string(c->name).size());
    familyWidth = std::max(familyWidth, std::string(c->family).size());
  }
  for (size_t i = 0; i < classes.size(); ++i) {
    const ClassInfo& c = *classes[i];
    std::string line =
        indent + Pad(c.name, nameWidth) + "  " + Pad(std::to_string(c.number), 4) + "  " + c.family;
    if (i < notes.size()) {
      line = Pad(line, line.size() + familyWidth - std::string(c.family).size()) + "  " + notes[i];
    }
    std::fprintf(out, "%s\n", line.c_str());
  }
}

// The fields of a class at `level` (indented by two spaces a level), each
// message field followed by the fields of its class, down to `depth` levels
// (0: no limit). Names and tags are aligned among the fields of one class.
void PrintTree(FILE* out, const ClassInfo& cls, int level, int depth) {
  size_t nameWidth = 0;
  size_t tagWidth = 0;
  for (int i = 0; i < cls.memberCount; ++i) {
    nameWidth = std::max(nameWidth, std::string(MemberOf(cls, i).name).size());
    tagWidth = std::max(tagWidth, Tag(MemberOf(cls, i)).size());
  }
  const std::string indent(2 * static_cast<size_t>(level), ' ');
  for (int i = 0; i < cls.memberCount; ++i) {
    const FieldInfo& field = MemberOf(cls, i);
    const ClassInfo* held = ClassHeld(field);
    const bool cut = held && depth > 0 && level >= depth;
    std::string line = indent + Pad(field.name, nameWidth) + "  " + Pad(Tag(field), tagWidth) +
                       "  " + Holds(field);
    std::fprintf(out, "%s%s\n", line.c_str(), cut ? " ..." : "");
    if (held && !cut) PrintTree(out, *held, level + 1, depth);
  }
}

// ---- commands ----

using Args = std::vector<std::string>;

int BadCommandLine(const Io& io, const std::string& what);

int List(const Io& io, const Args& args) {
  const std::string pattern = args.empty() ? "" : args[0];
  const std::string lower = Lower(pattern);
  std::vector<const ClassInfo*> found;
  for (int i = 0; i < kClassCount; ++i) {
    if (Lower(kClasses[i].name).find(lower) != std::string::npos) found.push_back(&kClasses[i]);
  }
  if (found.empty()) {
    return NotFound(io, "no class name contains '" + Shown(pattern) + "'",
                    Nearest(AsClassName(pattern), ClassNames()));
  }
  std::sort(found.begin(), found.end(), ByClassName);
  PrintClasses(io.out, found, "");
  return kFound;
}

// How many classes have a field.
int HolderCount(const FieldInfo& field) {
  int n = 0;
  for (int i = 0; i < kClassCount; ++i) n += HasField(kClasses[i], field) ? 1 : 0;
  return n;
}

void PrintFields(FILE* out, const std::vector<const FieldInfo*>& fields) {
  size_t nameWidth = 0;
  size_t tagWidth = 0;
  size_t holdsWidth = 0;
  for (const FieldInfo* f : fields) {
    nameWidth = std::max(nameWidth, std::string(f->name).size());
    tagWidth = std::max(tagWidth, Tag(*f).size());
    holdsWidth = std::max(holdsWidth, Holds(*f).size());
  }
  for (const FieldInfo* f : fields) {
    const int n = HolderCount(*f);
    const std::string line = "  " + Pad(f->name, nameWidth) + "  " + Pad(Tag(*f), tagWidth) + "  " +
                             Pad(Holds(*f), holdsWidth) + "  in " + std::to_string(n) +
                             (n == 1 ? " class" : " classes");
    std::fprintf(out, "%s\n", line.c_str());
  }
}

int Find(const Io& io, const Args& args) {
  const std::string& text = args[0];
  std::vector<const ClassInfo*> classes;
  std::vector<const FieldInfo*> fields;
  int number = 0;
  if (ParseNumber(text, &number)) {
    if (const ClassInfo* c = pricemsg::schema::FindClass(number)) classes.push_back(c);
    fields = FieldsByTag(number);
  } else {
    const std::string lower = Lower(text);
    for (int i = 0; i < kClassCount; ++i) {
      if (Lower(kClasses[i].name).find(lower) != std::string::npos) classes.push_back(&kClasses[i]);
    }
    for (int i = 0; i < kFieldCount; ++i) {
      if (Lower(kFields[i].name).find(lower) != std::string::npos) fields.push_back(&kFields[i]);
    }
    std::sort(classes.begin(), classes.end(), ByClassName);
    std::sort(fields.begin(), fields.end(), [](const FieldInfo* a, const FieldInfo* b) {
      return Lower(a->name) < Lower(b->name);
    });
  }
  if (classes.empty() && fields.empty()) {
    if (ParseNumber(text, &number)) return NoClass(io, text);
    std::vector<std::string> names = ClassNames();
    const std::vector<std::string> more = FieldNames();
    names.insert(names.end(), more.begin(), more.end());
    return NotFound(io, "no class or field name contains '" + Shown(text) + "'",
                    Nearest(text, names));
  }
  if (!classes.empty()) {
    std::fprintf(io.out, "classes (%zu):\n", classes.size());
    PrintClasses(io.out, classes, "  ");
  }
  if (!fields.empty()) {
    std::fprintf(io.out, "fields (%zu):\n", fields.size());
    PrintFields(io.out, fields);
  }
  return kFound;
}

int Show(const Io& io, const Args& args) {
  int depth = 0;
  std::vector<std::string> names;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--depth") {
      names.push_back(args[i]);
    } else if (i + 1 == args.size() || !ParseNumber(args[i + 1], &depth) || depth == 0) {
      return BadCommandLine(io, "show takes '--depth N' with N a number from 1");
    } else {
      ++i;
    }
  }
  if (names.size() != 1) return BadCommandLine(io, "show takes one class, by name or number");
  const ClassInfo* cls = FindClass(names[0]);
  if (!cls) return NoClass(io, names[0]);
  std::fprintf(io.out, "%s  %d  %s\n", cls->name, cls->number, cls->family);
  PrintTree(io.out, *cls, 1, depth);
  return kFound;
}

int Holders(const Io& io, const Args& args) {
  const std::string& text = args[0];
  const ClassInfo* cls = FindClass(text);
  const FieldInfo* field = cls ? nullptr : FieldByName(text);
  if (!cls && !field) {
    int number = 0;
    if (ParseNumber(text, &number) || HasPrefixM(text)) return NoClass(io, text);
    std::vector<std::string> names = FieldNames();
    const std::vector<std::string> classes = ClassNames();
    names.insert(names.end(), classes.begin(), classes.end());
    return NotFound(io, "no class or field named '" + Shown(text) + "'", Nearest(text, names));
  }
  // Each holder, with the fields it holds the class in.
  std::vector<std::pair<const ClassInfo*, std::string>> found;
  for (int i = 0; i < kClassCount; ++i) {
    const ClassInfo& holder = kClasses[i];
    if (field) {
      if (HasField(holder, *field)) found.emplace_back(&holder, "");
      continue;
    }
    std::string via;
    for (int m = 0; m < holder.memberCount; ++m) {
      const FieldInfo& f = MemberOf(holder, m);
      if (ClassHeld(f) == cls) via += (via.empty() ? "in " : ", ") + std::string(f.name);
    }
    if (!via.empty()) found.emplace_back(&holder, via);
  }
  if (found.empty()) {
    if (cls)
      std::fprintf(io.out, "%s is held by no class: it is a message on its own\n", cls->name);
    if (field) std::fprintf(io.out, "%s is a field of no class\n", field->name);
    return kFound;
  }
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return ByClassName(a.first, b.first); });
  std::vector<const ClassInfo*> classes;
  std::vector<std::string> via;
  for (const auto& [holder, fields] : found) {
    classes.push_back(holder);
    via.push_back(fields);
  }
  PrintClasses(io.out, classes, "", cls ? via : std::vector<std::string>());
  return kFound;
}

int Dump(const Io& io, const Args& args) {
  const ClassInfo* cls = FindClass(args[0]);
  if (!cls) return NoClass(io, args[0]);
  if (!pricemsg::probe::kAvailable) {
    std::fprintf(io.err, "%s: the runtime of this build offers no way to read a dump\n", kTool);
    return kNotFound;
  }
  const std::unique_ptr<CMsgBase> object = catalogue::MakeMessage(cls->number);
  if (!object) {
    std::fprintf(io.err, "%s: %s (%d) is in the catalogue but not in the library\n", kTool,
                 cls->name, cls->number);
    return kNotFound;
  }
  CStream out;
  object->Dump(&out);
  const std::string text = pricemsg::probe::StreamText(out);
  std::fwrite(text.data(), 1, text.size(), io.out);
  if (text.empty() || text.back() != '\n') std::fputc('\n', io.out);
  return kFound;
}

// Reads a message file, checked against the classes, and prints it back
// with the class and field names; a file that does not fit is reported with
// its line and column.
int File(const Io& io, const Args& args) {
  const char* path = args[0].c_str();
  MsgTextError err{};
  const std::unique_ptr<CMsg> msg(MA_ReadMsgFile(path, &err));
  std::string text;
  if (!msg || MA_WriteMsgText(msg.get(), &text, &err) != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: %s:%d:%d: %s\n", kTool, Shown(args[0], PATH_MAX).c_str(), err.line,
                 err.column, err.reason);
    return kNotFound;
  }
  std::fwrite(text.data(), 1, text.size(), io.out);
  return kFound;
}

// A command is one row here and a function that takes its arguments; the
// usage text is made from the rows.
struct Command {
  const char* name;
  const char* args;
  const char* summary;
  size_t minArgs;
  size_t maxArgs;
  int (*run)(const Io& io, const Args& args);
};

const Command kCommands[] = {
    {"list", "[pattern]", "the classes whose name holds the pattern, in any case", 0, 1, List},
    {"find", "<text|number>",
     "the classes and fields whose name holds the text; by number, the class\n"
     "      of that number and the fields of that tag",
     1, 1, Find},
    {"show", "<class|number> [--depth N]",
     "the class as a tree of its fields down to the values, each with its tag,\n"
     "      kind and held class; --depth N stops after N levels",
     1, 3, Show},
    {"holders", "<class|field>",
     "the classes that hold a class, and in which fields; or that have a field", 1, 1, Holders},
    {"dump", "<class|number>", "the Dump of a fresh object of the class", 1, 1, Dump},
    {"file", "<path>", "a message file, each value with its class and field name", 1, 1, File},
};

void Usage(FILE* out) {
  std::fprintf(out,
               "usage: %s <command> [arguments]\n\n"
               "A guide to the %d message classes of pricemsg.\n\n",
               kTool, kClassCount);
  for (const Command& c : kCommands) {
    const std::string head = std::string(c.name) + " " + c.args;
    std::fprintf(out, "  %s\n      %s\n", head.c_str(), c.summary);
  }
  std::fprintf(out,
               "  help\n      this text\n\n"
               "A class is named as in C++ (M_IrNoteHwOut; any case, the M_ may be left out)\n"
               "or by its number. Exit status: 0 found, 1 not found, 2 a wrong command line,\n"
               "3 the output could not be written.\n");
}

int BadCommandLine(const Io& io, const std::string& what) {
  std::fprintf(io.err, "%s: %s\n\n", kTool, what.c_str());
  Usage(io.err);
  return kBadCommandLine;
}

// The command line's command, run.
int RunCommand(const Io& io, int argc, const char* const* argv) {
  if (argc < 2) return BadCommandLine(io, "no command given");
  const std::string name = argv[1];
  if (name == "help" || name == "-h" || name == "--help") {
    Usage(io.out);
    return kFound;
  }
  const Args args(argv + 2, argv + argc);
  for (const Command& c : kCommands) {
    if (name != c.name) continue;
    if (args.size() < c.minArgs || args.size() > c.maxArgs) {
      return BadCommandLine(io, std::string("wrong arguments for ") + c.name +
                                    ", which takes: " + c.name + " " + c.args);
    }
    return c.run(io, args);
  }
  std::vector<std::string> names;
  for (const Command& c : kCommands) names.push_back(c.name);
  const std::vector<std::string> nearest = Nearest(name, names);
  return BadCommandLine(io, "unknown command '" + Shown(name) + "'" +
                                (nearest.empty() ? "" : "; did you mean '" + nearest[0] + "'?"));
}

}  // namespace

namespace catalogue {

int Run(int argc, const char* const* argv, FILE* out, FILE* err) {
  const int status = RunCommand(Io{out, err}, argc, argv);
  // Output that did not reach its file is a failure, whatever the command
  // found: a full disk or a closed pipe must not pass for a result.
  errno = 0;
  if (std::fflush(out) != 0 || std::ferror(out)) {
    const int failure = errno;
    std::fprintf(err, "%s: cannot write the output%s%s\n", kTool, failure ? ": " : "",
                 failure ? std::strerror(failure) : "");
    return kOutputFailed;
  }
  return status;
}

}  // namespace catalogue
