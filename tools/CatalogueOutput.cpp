// Finding classes and fields by what a command line gives, the errors for
// what names nothing, and the printing of classes and fields.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "CatalogueParts.h"

namespace catalogue {

namespace ps = pricemsg::schema;

[[noreturn]] void Refuse(std::string what) { throw BadUsage{std::move(what)}; }

std::string Shown(const std::string& text, size_t max) {
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

std::string Lower(const std::string& text) {
  std::string out = text;
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string out;
  for (const std::string& w : words) out += (out.empty() ? "" : between) + w;
  return out;
}

// ---- finding ----

bool HasPrefixM(const std::string& name) {
  return name.size() >= 2 && (name[0] == 'M' || name[0] == 'm') && name[1] == '_';
}

namespace {

// The text as a class name: "M_" added if it lacks one.
std::string AsClassName(const std::string& text) { return HasPrefixM(text) ? text : "M_" + text; }

// The entry whose name is `name` in any case, if only one has it.
template <class T>
const T* ByFoldedName(ps::Table<T> table, const std::string& name) {
  const T* folded = nullptr;
  int foldedCount = 0;
  const std::string lower = Lower(name);
  for (const T& entry : table) {
    if (lower == Lower(entry.name)) {
      folded = &entry;
      ++foldedCount;
    }
  }
  return foldedCount == 1 ? folded : nullptr;
}

const ClassInfo* ClassByName(const std::string& name) {
  const std::string full = AsClassName(name);
  const ClassInfo* exact = ps::FindClass(full);
  return exact ? exact : ByFoldedName(ps::Classes(), full);
}

template <class T>
std::vector<std::string_view> NamesOf(ps::Table<T> table) {
  std::vector<std::string_view> out;
  for (const T& entry : table) out.push_back(entry.name);
  return out;
}

}  // namespace

bool ParseNumber(const std::string& text, int* out) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  *out = std::atoi(text.c_str());
  return true;
}

const FieldInfo* FieldByName(const std::string& name) {
  const FieldInfo* exact = ps::FindField(name);
  return exact ? exact : ByFoldedName(ps::Fields(), name);
}

const ClassInfo* FindClass(const std::string& text) {
  int number = 0;
  return ParseNumber(text, &number) ? ps::FindClass(number) : ClassByName(text);
}

std::vector<const FieldInfo*> FieldsByTag(int tag) {
  std::vector<const FieldInfo*> out;
  for (const FieldInfo& f : ps::Fields()) {
    if (f.tag == tag) out.push_back(&f);
  }
  return out;
}

bool HasField(const ClassInfo& cls, const FieldInfo& field) {
  return ps::FindMember(cls, field.tag) == &field;
}

const ClassInfo* ClassHeld(const FieldInfo& field) {
  return ps::HoldsMessage(field.kind) ? &ps::HeldClass(field) : nullptr;
}

bool ByClassName(const ClassInfo* a, const ClassInfo* b) { return Lower(a->name) < Lower(b->name); }

std::vector<std::string> Families() {
  std::vector<std::string> out;
  for (const ClassInfo& c : ps::Classes()) {
    if (std::find(out.begin(), out.end(), c.family) == out.end()) out.push_back(c.family);
  }
  return out;
}

// ---- errors ----

int NotFound(const Io& io, const std::string& what, const std::vector<std::string_view>& nearest) {
  std::fprintf(io.err, "%s: %s\n", kTool, what.c_str());
  if (nearest.empty()) {
    std::fprintf(io.err, "  no name is near it\n");
  } else {
    std::string list;
    for (std::string_view n : nearest) list += (list.empty() ? "" : ", ") + std::string(n);
    std::fprintf(io.err, "  nearest: %s\n", list.c_str());
  }
  return kNotFound;
}

int NoClass(const Io& io, const std::string& text) {
  int number = 0;
  if (!ParseNumber(text, &number)) {
    if (const FieldInfo* f = FieldByName(text)) {
      std::fprintf(io.err,
                   "%s: %s is a field, not a class; '%s holders %s' lists the classes that have "
                   "it, '%s find %s' the fields and classes that match it\n",
                   kTool, f->name, kTool, f->name, kTool, f->name);
      return kNotFound;
    }
    return NotFound(io, "no class named '" + Shown(text) + "'",
                    ps::Nearest(AsClassName(text), NamesOf(ps::Classes())));
  }
  std::vector<const ClassInfo*> byDistance;
  for (const ClassInfo& c : ps::Classes()) byDistance.push_back(&c);
  std::sort(byDistance.begin(), byDistance.end(), [number](const ClassInfo* a, const ClassInfo* b) {
    const long da = std::labs(static_cast<long>(a->number) - number);
    const long db = std::labs(static_cast<long>(b->number) - number);
    return da != db ? da < db : a->number < b->number;
  });
  std::vector<std::string> nearest;
  for (size_t i = 0; i < byDistance.size() && i < 3; ++i) {
    nearest.push_back(std::to_string(byDistance[i]->number) + " " + byDistance[i]->name);
  }
  return NotFound(io, "no class numbered " + text,
                  std::vector<std::string_view>(nearest.begin(), nearest.end()));
}

int NoClassOrField(const Io& io, const std::string& text, const std::string& what) {
  std::vector<std::string_view> names = NamesOf(ps::Fields());
  const std::vector<std::string_view> classes = NamesOf(ps::Classes());
  names.insert(names.end(), classes.begin(), classes.end());
  return NotFound(io, what, ps::Nearest(text, names));
}

int NothingMatches(const Io& io, const std::vector<ps::SearchTerm>& terms, const std::string& what,
                   const std::string& query, bool withFields) {
  std::string told = what + " matches '" + Shown(query) + "'";
  const ps::SearchTerm* term = ps::Unmatched(terms, withFields);
  if (!term) {
    std::fprintf(io.err, "%s: %s\n  each word matches some name, but none matches them all\n",
                 kTool, told.c_str());
    return kNotFound;
  }
  std::vector<std::string_view> names;
  for (const ps::WordInfo& w : ps::Words()) names.push_back(w.phrase);
  const std::vector<std::string_view> classes = NamesOf(ps::Classes());
  names.insert(names.end(), classes.begin(), classes.end());
  if (withFields) {
    const std::vector<std::string_view> fields = NamesOf(ps::Fields());
    names.insert(names.end(), fields.begin(), fields.end());
  }
  const std::string word = ps::Words(*term);
  if (terms.size() > 1) told += ": nothing matches '" + Shown(word) + "'";
  return NotFound(io, told, ps::Nearest(word, names));
}

void FileError(const Io& io, const std::string& path, int line, int column, const char* reason) {
  std::fprintf(io.err, "%s: %s:%d:%d: %s\n", kTool, Shown(path, PATH_MAX).c_str(), line, column,
               reason);
}

// ---- printing ----

namespace {

// What a field holds: its kind, and for a message the class and its number.
std::string Holds(const FieldInfo& field) {
  std::string out = field.kind == Kind::kMessageArray ? "repeated" : ps::InfoOf(field.kind).words;
  if (const ClassInfo* held = ClassHeld(field)) {
    out += std::string(" ") + held->name + " " + std::to_string(held->number);
  }
  return out;
}

std::string Tag(const FieldInfo& field) { return "T" + std::to_string(field.tag); }

std::string RoleOf(const ClassInfo& c) { return *c.role ? c.role : "-"; }

// How many classes have a field.
int HolderCount(const FieldInfo& field) {
  int n = 0;
  for (const ClassInfo& c : ps::Classes()) n += HasField(c, field) ? 1 : 0;
  return n;
}

}  // namespace

std::string Pad(const std::string& text, size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string LikelyReplyText(const ClassInfo& cls) {
  const ClassInfo* reply = ps::LikelyReply(cls);
  return reply ? std::string("likely reply (by name): ") + reply->name + " " +
                     std::to_string(reply->number)
               : "";
}

void PrintClasses(FILE* out, const std::vector<const ClassInfo*>& classes,
                  const std::string& indent, const std::vector<std::string>& texts, bool replies) {
  size_t nameWidth = 0;
  size_t familyWidth = 0;
  size_t roleWidth = 0;
  for (const ClassInfo* c : classes) {
    nameWidth = std::max(nameWidth, std::strlen(c->name));
    familyWidth = std::max(familyWidth, std::strlen(c->family));
    roleWidth = std::max(roleWidth, RoleOf(*c).size());
  }
  for (size_t i = 0; i < classes.size(); ++i) {
    const ClassInfo& c = *classes[i];
    std::string line = indent + Pad(c.name, nameWidth) + "  " + Pad(std::to_string(c.number), 4) +
                       "  " + Pad(c.family, familyWidth) + "  " + RoleOf(c);
    if (i < texts.size() && !texts[i].empty())
      line = Pad(line, line.size() + roleWidth - RoleOf(c).size()) + "  " + texts[i];
    std::fprintf(out, "%s\n", line.c_str());
    const std::string reply = replies ? LikelyReplyText(c) : "";
    if (!reply.empty()) std::fprintf(out, "%s    %s\n", indent.c_str(), reply.c_str());
  }
}

std::vector<std::string> Descriptions(const std::vector<const ClassInfo*>& classes) {
  std::vector<std::string> out;
  for (const ClassInfo* c : classes) out.push_back(c->description);
  return out;
}

// Names, tags and kinds are aligned among the fields of one class; a
// field's role, where it has one, closes its line.
void PrintTree(FILE* out, const ClassInfo& cls, int level, int depth) {
  size_t nameWidth = 0;
  size_t tagWidth = 0;
  size_t holdsWidth = 0;
  auto holds = [&](const FieldInfo& field) {
    const ClassInfo* held = ClassHeld(field);
    return Holds(field) + (held && depth > 0 && level >= depth ? " ..." : "");
  };
  for (int i = 0; i < cls.memberCount; ++i) {
    const FieldInfo& field = ps::MemberOf(cls, i);
    nameWidth = std::max(nameWidth, std::strlen(field.name));
    tagWidth = std::max(tagWidth, Tag(field).size());
    if (*field.role) holdsWidth = std::max(holdsWidth, holds(field).size());
  }
  const std::string indent(2 * static_cast<size_t>(level), ' ');
  for (int i = 0; i < cls.memberCount; ++i) {
    const FieldInfo& field = ps::MemberOf(cls, i);
    const ClassInfo* held = ClassHeld(field);
    std::string line = indent + Pad(field.name, nameWidth) + "  " + Pad(Tag(field), tagWidth) +
                       "  " + holds(field);
    if (*field.role)
      line = Pad(line, line.size() + holdsWidth - holds(field).size()) + "  (" + field.role + ")";
    std::fprintf(out, "%s\n", line.c_str());
    if (held && !(depth > 0 && level >= depth)) PrintTree(out, *held, level + 1, depth);
  }
}

void PrintFields(FILE* out, const std::vector<const FieldInfo*>& fields) {
  size_t nameWidth = 0;
  size_t tagWidth = 0;
  size_t holdsWidth = 0;
  for (const FieldInfo* f : fields) {
    nameWidth = std::max(nameWidth, std::strlen(f->name));
    tagWidth = std::max(tagWidth, Tag(*f).size());
    holdsWidth = std::max(holdsWidth, Holds(*f).size());
  }
  for (const FieldInfo* f : fields) {
    const int n = HolderCount(*f);
    std::string line = "  " + Pad(f->name, nameWidth) + "  " + Pad(Tag(*f), tagWidth) + "  " +
                       Pad(Holds(*f), holdsWidth) + "  in " + std::to_string(n) +
                       (n == 1 ? " class" : " classes");
    if (*f->role) line += std::string("  (") + f->role + ")";
    std::fprintf(out, "%s\n", line.c_str());
  }
}

}  // namespace catalogue
