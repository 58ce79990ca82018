// pricemsg-catalogue: a guide to the message classes from the command line.
//
// It lists and searches the classes, shows a class as the tree of everything
// it holds, tells which classes hold a class or have a field, dumps a fresh
// object of any class, and prints message files with field names.
// Everything it knows comes from the schema tables that the generator writes
// from schema/ (SchemaTables.h): each class's role and description, the
// fields' roles, and the word list that turns the words people use for
// products ("swaption", "range accrual") into parts of class names.
// `dump` makes real objects of the library.
//
// The command line is read with CLI11: each command is one row of kCommands
// and one function, and its options take "--opt=value", "--opt value" and
// "-o value". Results go to stdout. A name or number that matches nothing is
// an error on stderr with the nearest names, and exit status 1; a wrong
// command line is one line on stderr that points at the command's --help,
// with exit status 2; output that cannot be written is an error with exit
// status 3. Arguments are quoted in errors cut short, with their control
// bytes escaped, and a name far longer than any is near none.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "Catalogue.h"
#include "CatalogueFactory.h"
#include "MsgExplain.h"
#include "MsgJson.h"
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
using pricemsg::schema::WordInfo;

constexpr char kTool[] = "pricemsg-catalogue";

#ifndef PRICEMSG_VERSION_STRING
#error "PRICEMSG_VERSION_STRING must be defined by the build"
#endif
constexpr char kVersion[] = PRICEMSG_VERSION_STRING;

enum Status { kFound = 0, kNotFound = 1, kBadCommandLine = 2, kOutputFailed = 3 };

// What a class can be for, as the schema says (ClassInfo::role).
constexpr const char* kRoles[] = {"request",    "reply", "terms",  "market",
                                  "monitoring", "model", "result", "block"};

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

std::string RoleOf(const ClassInfo& c) { return *c.role ? c.role : "-"; }

// Prints classes a line each as "name  number  family  role", then the
// line's text if any (a description, the fields a holder holds a class in),
// in columns.
void PrintClasses(FILE* out, const std::vector<const ClassInfo*>& classes,
                  const std::string& indent, const std::vector<std::string>& texts) {
  size_t nameWidth = 0;
  size_t familyWidth = 0;
  size_t roleWidth = 0;
  for (const ClassInfo* c : classes) {
    nameWidth = std::max(nameWidth, std::string(c->name).size());
    familyWidth = std::max(familyWidth, std::string(c->family).size());
    roleWidth = std::max(roleWidth, RoleOf(*c).size());
  }
  for (size_t i = 0; i < classes.size(); ++i) {
    const ClassInfo& c = *classes[i];
    std::string line = indent + Pad(c.name, nameWidth) + "  " + Pad(std::to_string(c.number), 4) +
                       "  " + Pad(c.family, familyWidth) + "  " + RoleOf(c);
    if (i < texts.size() && !texts[i].empty())
      line = Pad(line, line.size() + roleWidth - RoleOf(c).size()) + "  " + texts[i];
    std::fprintf(out, "%s\n", line.c_str());
  }
}

std::vector<std::string> Descriptions(const std::vector<const ClassInfo*>& classes) {
  std::vector<std::string> out;
  for (const ClassInfo* c : classes) out.push_back(c->description);
  return out;
}

// The fields of a class at `level` (indented by two spaces a level), each
// message field followed by the fields of its class, down to `depth` levels
// (0: no limit). Names, tags and kinds are aligned among the fields of one
// class; a field's role, where it has one, closes its line.
void PrintTree(FILE* out, const ClassInfo& cls, int level, int depth) {
  size_t nameWidth = 0;
  size_t tagWidth = 0;
  size_t holdsWidth = 0;
  auto holds = [&](const FieldInfo& field) {
    const ClassInfo* held = ClassHeld(field);
    return Holds(field) + (held && depth > 0 && level >= depth ? " ..." : "");
  };
  for (int i = 0; i < cls.memberCount; ++i) {
    const FieldInfo& field = MemberOf(cls, i);
    nameWidth = std::max(nameWidth, std::string(field.name).size());
    tagWidth = std::max(tagWidth, Tag(field).size());
    if (*field.role) holdsWidth = std::max(holdsWidth, holds(field).size());
  }
  const std::string indent(2 * static_cast<size_t>(level), ' ');
  for (int i = 0; i < cls.memberCount; ++i) {
    const FieldInfo& field = MemberOf(cls, i);
    const ClassInfo* held = ClassHeld(field);
    std::string line = indent + Pad(field.name, nameWidth) + "  " + Pad(Tag(field), tagWidth) +
                       "  " + holds(field);
    if (*field.role)
      line = Pad(line, line.size() + holdsWidth - holds(field).size()) + "  (" + field.role + ")";
    std::fprintf(out, "%s\n", line.c_str());
    if (held && !(depth > 0 && level >= depth)) PrintTree(out, *held, level + 1, depth);
  }
}

// ---- the command line ----

// What a command was given: its operands, and the options that were given,
// by long name (a flag's value is "").
struct Args {
  std::vector<std::string> operands;
  std::map<std::string, std::string> options;

  const std::string* Option(const std::string& name) const {
    const auto at = options.find(name);
    return at == options.end() ? nullptr : &at->second;
  }
};

// A wrong command line, found by a command: the text of its one-line error.
struct BadUsage {
  std::string what;
};

[[noreturn]] void Refuse(std::string what) { throw BadUsage{std::move(what)}; }

// ---- search ----
// A query is read as terms: a phrase of the word list ("range accrual"),
// longest first, else a single word. A term matches a class when it is in
// the class's name, when one of the name parts that its phrase stands for
// is, or when it is a word (or words, in a row) of the class's description.
// A class matches a query when every term does.

std::vector<std::string> SplitWords(const std::string& text) {
  std::vector<std::string> out;
  std::string word;
  for (const char c : text + " ") {
    if (std::isspace(static_cast<unsigned char>(c))) {
      if (!word.empty()) out.push_back(Lower(word));
      word.clear();
    } else {
      word += c;
    }
  }
  return out;
}

// The words of a description, lower case: its runs of letters and digits.
std::vector<std::string> TextWords(const char* text) {
  std::vector<std::string> out;
  std::string word;
  for (const char* p = text;; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c != 0 && std::isalnum(c)) {
      word += static_cast<char>(std::tolower(c));
    } else {
      if (!word.empty()) out.push_back(word);
      word.clear();
      if (c == 0) return out;
    }
  }
}

struct Term {
  std::vector<std::string> words;  // lower case: one word, or a phrase of the word list
  std::vector<std::string> parts;  // the name parts its phrase stands for, lower case
  std::string glued;               // the words without spaces, as a name would hold them
};

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string out;
  for (const std::string& w : words) out += (out.empty() ? "" : between) + w;
  return out;
}

std::vector<Term> ReadQuery(const std::vector<std::string>& operands) {
  std::vector<std::string> words;
  for (const std::string& operand : operands) {
    for (std::string& w : SplitWords(operand)) words.push_back(std::move(w));
  }
  size_t longest = 1;  // the most words of a phrase of the list
  for (int i = 0; i < pricemsg::schema::kWordCount; ++i) {
    longest = std::max(longest, SplitWords(pricemsg::schema::kWords[i].phrase).size());
  }
  std::vector<Term> terms;
  for (size_t at = 0; at < words.size();) {
    Term term;
    for (size_t n = std::min(longest, words.size() - at); n > 0; --n) {
      term.words.assign(words.begin() + static_cast<std::ptrdiff_t>(at),
                        words.begin() + static_cast<std::ptrdiff_t>(at + n));
      if (const WordInfo* listed = pricemsg::schema::FindWord(Joined(term.words, " "))) {
        term.parts = SplitWords(listed->parts);
        break;
      }
    }
    at += term.words.size();
    term.glued = Joined(term.words, "");
    terms.push_back(std::move(term));
  }
  return terms;
}

// How well `needle` (lower case) is in `name`: 0 not at all, 2 inside a
// part of the name, 3 where a part starts ("barr" in M_FxDblBarr).
int NameScore(const std::string& name, const std::string& needle) {
  const std::string lower = Lower(name);
  int best = 0;
  for (size_t at = lower.find(needle); at != std::string::npos; at = lower.find(needle, at + 1)) {
    const unsigned char c = static_cast<unsigned char>(name[at]);
    const bool starts =
        at == 0 || name[at - 1] == '_' || std::isupper(c) ||
        (std::isdigit(c) && !std::isdigit(static_cast<unsigned char>(name[at - 1])));
    best = std::max(best, starts ? 3 : 2);
  }
  return best;
}

// Whether `many` is `one` and an "s"; no copy, so that a query word of any
// length costs no more than a comparison.
bool PluralOf(const std::string& one, const std::string& many) {
  return many.size() == one.size() + 1 && many.back() == 's' &&
         many.compare(0, one.size(), one) == 0;
}

// Whether a query word is this word of a text, or its plural or singular.
bool SameWord(const std::string& query, const std::string& word) {
  return query == word || PluralOf(query, word) || PluralOf(word, query);
}

// 1 if the words follow one another among `text`, else 0.
int TextScore(const std::vector<std::string>& text, const std::vector<std::string>& words) {
  for (size_t at = 0; at + words.size() <= text.size(); ++at) {
    size_t n = 0;
    while (n < words.size() && SameWord(words[n], text[at + n])) ++n;
    if (n == words.size()) return 1;
  }
  return 0;
}

int TermScore(const Term& term, const char* name, const std::vector<std::string>& text) {
  int best = NameScore(name, term.glued);
  for (const std::string& part : term.parts) best = std::max(best, NameScore(name, part));
  return best > 0 ? best : TextScore(text, term.words);
}

// How well a query matches a name and its text: 0 unless every term does.
int QueryScore(const std::vector<Term>& terms, const char* name, const char* text) {
  const std::vector<std::string> words = TextWords(text);
  int total = 0;
  for (const Term& term : terms) {
    const int score = TermScore(term, name, words);
    if (score == 0) return 0;
    total += score;
  }
  return total;
}

bool IsRequest(const ClassInfo& c) { return std::strcmp(c.role, "request") == 0; }

// The classes that match, best first: the requests, then by how well they
// match, then the shorter name (the plainer product), then by name.
std::vector<const ClassInfo*> SearchClasses(const std::vector<Term>& terms,
                                            const std::vector<const ClassInfo*>& among) {
  std::vector<std::pair<int, const ClassInfo*>> found;
  for (const ClassInfo* c : among) {
    const int score = QueryScore(terms, c->name, c->description);
    if (score > 0) found.emplace_back(score, c);
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    const ClassInfo& x = *a.second;
    const ClassInfo& y = *b.second;
    if (IsRequest(x) != IsRequest(y)) return IsRequest(x);
    if (a.first != b.first) return a.first > b.first;
    const size_t lx = std::strlen(x.name);
    const size_t ly = std::strlen(y.name);
    return lx != ly ? lx < ly : ByClassName(&x, &y);
  });
  std::vector<const ClassInfo*> out;
  for (const auto& f : found) out.push_back(f.second);
  return out;
}

// The fields that match, by name or role: best first, then by name.
std::vector<const FieldInfo*> SearchFields(const std::vector<Term>& terms) {
  std::vector<std::pair<int, const FieldInfo*>> found;
  for (int i = 0; i < kFieldCount; ++i) {
    const int score = QueryScore(terms, kFields[i].name, kFields[i].role);
    if (score > 0) found.emplace_back(score, &kFields[i]);
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : Lower(a.second->name) < Lower(b.second->name);
  });
  std::vector<const FieldInfo*> out;
  for (const auto& f : found) out.push_back(f.second);
  return out;
}

std::vector<std::string> Phrases() {
  std::vector<std::string> out;
  for (int i = 0; i < pricemsg::schema::kWordCount; ++i)
    out.push_back(pricemsg::schema::kWords[i].phrase);
  return out;
}

// The error for a query that matches nothing: "<what> matches '<query>'",
// then the first term that matches no name at all with the names and listed
// words near it; or, when each term matches something, that none matches
// them all.
int NothingMatches(const Io& io, const std::vector<Term>& terms, const std::string& what,
                   const std::string& query, bool withFields) {
  std::vector<const ClassInfo*> all;
  for (int i = 0; i < kClassCount; ++i) all.push_back(&kClasses[i]);
  std::string told = what + " matches '" + Shown(query) + "'";
  for (const Term& term : terms) {
    if (!SearchClasses({term}, all).empty() || (withFields && !SearchFields({term}).empty())) {
      continue;
    }
    std::vector<std::string> names = Phrases();
    const std::vector<std::string> classes = ClassNames();
    names.insert(names.end(), classes.begin(), classes.end());
    if (withFields) {
      const std::vector<std::string> fields = FieldNames();
      names.insert(names.end(), fields.begin(), fields.end());
    }
    const std::string word = Joined(term.words, " ");
    if (terms.size() > 1) told += ": nothing matches '" + Shown(word) + "'";
    return NotFound(io, told, Nearest(word, names));
  }
  std::fprintf(io.err, "%s: %s\n  each word matches some name, but none matches them all\n", kTool,
               told.c_str());
  return kNotFound;
}

// ---- commands ----

// A number from 1 given to an option, else a usage error.
int Positive(const Args& args, const std::string& option) {
  const std::string* text = args.Option(option);
  int n = 0;
  if (!text) return 0;
  if (!ParseNumber(*text, &n) || n == 0) {
    Refuse("--" + option + " takes a number from 1, not '" + Shown(*text) + "'");
  }
  return n;
}

std::string ListOfRoles() {
  std::string out;
  for (const char* r : kRoles) out += (out.empty() ? "" : ", ") + std::string(r);
  return out;
}

std::vector<std::string> Families() {
  std::vector<std::string> out;
  for (int i = 0; i < kClassCount; ++i) {
    if (std::find(out.begin(), out.end(), kClasses[i].family) == out.end())
      out.push_back(kClasses[i].family);
  }
  return out;
}

int List(const Io& io, const Args& args) {
  const std::string* role = args.Option("role");
  const std::string* family = args.Option("family");
  if (role && std::none_of(std::begin(kRoles), std::end(kRoles),
                           [&](const char* r) { return *role == r; })) {
    Refuse("no role '" + Shown(*role) + "'; the roles are " + ListOfRoles());
  }
  const std::vector<std::string> families = Families();
  if (family && std::find(families.begin(), families.end(), *family) == families.end()) {
    Refuse("no family '" + Shown(*family) + "'; the families are " + Joined(families, ", "));
  }
  std::vector<const ClassInfo*> among;
  for (int i = 0; i < kClassCount; ++i) {
    const ClassInfo& c = kClasses[i];
    if ((!role || *role == c.role) && (!family || *family == c.family)) among.push_back(&c);
  }
  const std::vector<Term> terms = ReadQuery(args.operands);
  std::vector<const ClassInfo*> found;
  if (terms.empty()) {
    found = among;
    std::sort(found.begin(), found.end(), ByClassName);
  } else {
    found = SearchClasses(terms, among);
  }
  if (found.empty()) {
    std::string what = "no class";
    if (family) what += " of the " + *family + " family";
    if (role) what += " with the role " + *role;
    if (terms.empty()) {
      std::fprintf(io.err, "%s: %s\n", kTool, what.c_str());
      return kNotFound;
    }
    return NothingMatches(io, terms, what, Joined(args.operands, " "), false);
  }
  PrintClasses(io.out, found, "", Descriptions(found));
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
    std::string line = "  " + Pad(f->name, nameWidth) + "  " + Pad(Tag(*f), tagWidth) + "  " +
                       Pad(Holds(*f), holdsWidth) + "  in " + std::to_string(n) +
                       (n == 1 ? " class" : " classes");
    if (*f->role) line += std::string("  (") + f->role + ")";
    std::fprintf(out, "%s\n", line.c_str());
  }
}

int Find(const Io& io, const Args& args) {
  std::vector<const ClassInfo*> classes;
  std::vector<const FieldInfo*> fields;
  int number = 0;
  const bool byNumber = args.operands.size() == 1 && ParseNumber(args.operands[0], &number);
  const std::vector<Term> terms = ReadQuery(args.operands);
  if (terms.empty()) Refuse("takes one or more words, or a number");
  if (byNumber) {
    if (const ClassInfo* c = pricemsg::schema::FindClass(number)) classes.push_back(c);
    fields = FieldsByTag(number);
    if (classes.empty() && fields.empty()) return NoClass(io, args.operands[0]);
  } else {
    std::vector<const ClassInfo*> all;
    for (int i = 0; i < kClassCount; ++i) all.push_back(&kClasses[i]);
    classes = SearchClasses(terms, all);
    fields = SearchFields(terms);
    if (classes.empty() && fields.empty()) {
      return NothingMatches(io, terms, "no class or field", Joined(args.operands, " "), true);
    }
  }
  if (!classes.empty()) {
    std::fprintf(io.out, "classes (%zu):\n", classes.size());
    PrintClasses(io.out, classes, "  ", Descriptions(classes));
  }
  if (!fields.empty()) {
    std::fprintf(io.out, "fields (%zu):\n", fields.size());
    PrintFields(io.out, fields);
  }
  return kFound;
}

int Show(const Io& io, const Args& args) {
  const int depth = Positive(args, "depth");
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
  std::fprintf(io.out, "%s  %d  %s\n", cls->name, cls->number, cls->family);
  if (*cls->role || *cls->description) {
    std::fprintf(io.out, "  %s%s%s\n", cls->role, *cls->role && *cls->description ? ": " : "",
                 cls->description);
  }
  PrintTree(io.out, *cls, 1, depth);
  return kFound;
}

int Holders(const Io& io, const Args& args) {
  const std::string& text = args.operands[0];
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
  PrintClasses(io.out, classes, "", via);
  return kFound;
}

int Dump(const Io& io, const Args& args) {
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
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
  const std::string& path = args.operands[0];
  MsgTextError err{};
  const std::unique_ptr<CMsg> msg(MA_ReadMsgFile(path.c_str(), &err));
  std::string text;
  if (!msg || MA_WriteMsgText(msg.get(), &text, &err) != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: %s:%d:%d: %s\n", kTool, Shown(path, PATH_MAX).c_str(), err.line,
                 err.column, err.reason);
    return kNotFound;
  }
  std::fwrite(text.data(), 1, text.size(), io.out);
  return kFound;
}

// Writes a message file of the class with every field, each with a comment
// line giving its kind and role, ready to fill in and load.
int Template(const Io& io, const Args& args) {
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
  std::string text;
  MsgTextError err{};
  if (MA_WriteMsgTemplate(cls->number, &text, &err) != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: no template of %s: %s\n", kTool, cls->name, err.reason);
    return kNotFound;
  }
  std::fwrite(text.data(), 1, text.size(), io.out);
  return kFound;
}

// Explains failure texts of Load or ToMsg, as a log gives them, by the
// fields they name, down to the first cause.
int Explain(const Io& io, const Args& args) {
  std::string text;
  for (const std::string& operand : args.operands) text += operand + "\n";
  const std::string explained = MA_ExplainFailureText(text);
  const bool ok = explained.rfind("cannot explain:", 0) != 0;
  if (!ok) std::fprintf(io.err, "%s: ", kTool);
  std::fputs(explained.c_str(), ok ? io.out : io.err);
  if (explained.empty() || explained.back() != '\n') std::fputc('\n', ok ? io.out : io.err);
  return ok ? kFound : kNotFound;
}

// A path names a JSON message file when it ends in ".json", in any case.
bool IsJsonPath(const std::string& path) {
  return path.size() >= 5 && Lower(path.substr(path.size() - 5)) == ".json";
}

// Reads a message file in one form and writes it in the other, or in the
// form that the output's name says; "-" as output is the standard output.
int Convert(const Io& io, const Args& args) {
  const std::string& in = args.operands[0];
  const std::string& out = args.operands[1];
  const bool fromJson = IsJsonPath(in);
  const bool toJson = out == "-" ? !fromJson : IsJsonPath(out);
  MsgTextError err{};
  const std::unique_ptr<CMsg> msg(fromJson ? MA_ReadMsgJsonFile(in.c_str(), &err)
                                           : MA_ReadMsgFile(in.c_str(), &err));
  if (!msg) {
    std::fprintf(io.err, "%s: %s:%d:%d: %s\n", kTool, Shown(in, PATH_MAX).c_str(), err.line,
                 err.column, err.reason);
    return kNotFound;
  }
  int rc;
  if (out == "-") {
    std::string text;
    rc = toJson ? MA_WriteMsgJson(msg.get(), &text, &err) : MA_WriteMsgText(msg.get(), &text, &err);
    if (rc == MSGTEXT_OK) std::fwrite(text.data(), 1, text.size(), io.out);
  } else {
    rc = toJson ? MA_WriteMsgJsonFile(msg.get(), out.c_str(), &err)
                : MA_WriteMsgFile(msg.get(), out.c_str(), &err);
  }
  if (rc != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: %s: %s\n", kTool, Shown(out, PATH_MAX).c_str(), err.reason);
    return kOutputFailed;
  }
  return kFound;
}

// An option of a command, as CLI11 takes it.
struct OptionRow {
  const char* names;  // "-d,--depth": a short name, then the long one
  const char* value;  // what its value is, in the help ("N"); null for a flag
  const char* help;
};

// A command: one row here and the function that runs it. Its help is made
// from the row, and CLI11 reads its options; the function gets the operands
// (their count already checked) and the options that were given, and calls
// Refuse for any other wrong use.
struct Command {
  const char* name;
  const char* operands;  // in the usage line: "<class|number>"
  size_t minOperands;
  size_t maxOperands;
  const char* wrongCount;  // the error for a wrong count of operands
  const char* summary;     // one line, in the list of commands
  const char* details;     // more, in the command's own help; may be ""
  std::vector<OptionRow> options;
  int (*run)(const Io& io, const Args& args);
};

constexpr size_t kAny = SIZE_MAX;

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"list",
       "[words...]",
       0,
       kAny,
       "",
       "the classes, or those that match the words",
       "Without words, every class by name. With words, the classes that match\n"
       "them all, requests first, then the best matches. A word matches a class\n"
       "when it is in the class's name (any case), when the word list of the\n"
       "schema says it stands for a part of the name (swaption: Swptn), or when\n"
       "it is a word of the class's description; phrases of the word list\n"
       "(\"range accrual\") count as one word. Each line gives the class, its\n"
       "number, family and role, and its description.",
       {{"-r,--role", "ROLE", "only the classes of that role"},
        {"-f,--family", "FAMILY", "only the classes of that family"}},
       List},
      {"find",
       "<words...|number>",
       1,
       kAny,
       "takes one or more words, or a number",
       "the classes and fields that match the words, or have that number",
       "The classes match as for list, requests first; the fields match by\n"
       "name or by role. A number finds the class of that number and the\n"
       "fields of that tag.",
       {},
       Find},
      {"show",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "the class as a tree of its fields down to the values",
       "The class's line gives its number and family, the next its role and\n"
       "description. Each field comes with its tag, its kind, the class it\n"
       "holds and its role, and a message field with the fields of its class.",
       {{"-d,--depth", "N", "stop after N levels, marking a cut field with ..."}},
       Show},
      {"holders",
       "<class|field>",
       1,
       1,
       "takes one class or one field, by name",
       "the classes that hold a class, and in which fields; or that have a field",
       "",
       {},
       Holders},
      {"dump",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "the Dump of a fresh object of the class",
       "",
       {},
       Dump},
      {"file",
       "<path>",
       1,
       1,
       "takes the path of one message file",
       "a message file, each value with its class and field name",
       "The file is checked against the classes; a file that does not fit is\n"
       "told with the line and column where it goes wrong.",
       {},
       File},
      {"template",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "a message file of the class with every field, to fill in and load",
       "Every field is there with a placeholder value (0, N, 20000101, \"\"),\n"
       "nested blocks included and one element of each array, each under a\n"
       "comment line with its kind and role. The file loads as it is, into an\n"
       "object of the class (MA_LoadMsgFile).",
       {},
       Template},
      {"convert",
       "<in> <out>",
       2,
       2,
       "takes a message file to read and one to write",
       "a message file from text to JSON or from JSON to text",
       "A name ending in .json is a JSON message file, any other a text one.\n"
       "The output is written whole or not at all; as -, it is the standard\n"
       "output, in the form that the input is not.",
       {},
       Convert},
      {"explain",
       "<failure text...>",
       1,
       kAny,
       "takes one or more failure texts",
       "the fields that a failure of Load or ToMsg names, down to its first cause",
       "Give the failure texts as a log shows them (M_EqStd:SET_SUB_ONE(M3540.T4566)\n"
       "fail), one level or several, in any order, one an argument or several in\n"
       "one. The first line is the path of field names with the tag, class, kind\n"
       "and code of the cause; one line follows for each level.",
       {},
       Explain},
  };
  return commands;
}

const Command* CommandNamed(const std::string& name) {
  for (const Command& c : Commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

// The first name of an option row with its dashes: "--depth" of "-d,--depth".
std::string LongName(const OptionRow& o) {
  const std::string names = o.names;
  const size_t at = names.find("--");
  return at == std::string::npos ? names : names.substr(at);
}

void Help(FILE* out) {
  std::fprintf(out,
               "usage: %s <command> [options] [arguments]\n\n"
               "A guide to the %d message classes of pricemsg.\n\ncommands:\n",
               kTool, kClassCount);
  size_t width = 4;  // "help"
  for (const Command& c : Commands()) width = std::max(width, std::strlen(c.name));
  for (const Command& c : Commands()) {
    std::fprintf(out, "  %s  %s\n", Pad(c.name, width).c_str(), c.summary);
  }
  std::fprintf(out,
               "  %s  this text, or a command's\n\n"
               "options:\n  -h, --help     this text; after a command, the command's help\n"
               "  -V, --version  the version\n\n"
               "A class is named as in C++ (M_IrNoteHwOut; any case, the M_ may be left out)\n"
               "or by its number. Exit status: 0 found, 1 not found, 2 a wrong command line,\n"
               "3 the output could not be written.\n",
               Pad("help", width).c_str());
}

void Help(FILE* out, const Command& c) {
  std::string summary = c.summary;
  summary[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(summary[0])));
  std::fprintf(out, "usage: %s %s%s %s\n\n%s.\n", kTool, c.name,
               c.options.empty() ? "" : " [options]", c.operands, summary.c_str());
  if (*c.details) std::fprintf(out, "\n%s\n", c.details);
  std::vector<std::pair<std::string, std::string>> rows;
  for (const OptionRow& o : c.options) {
    std::string names = o.names;
    const size_t comma = names.find(',');
    if (comma != std::string::npos) names.replace(comma, 1, ", ");
    rows.emplace_back(names + (o.value ? std::string(" ") + o.value : ""), o.help);
  }
  rows.emplace_back("-h, --help", "this text");
  size_t width = 0;
  for (const auto& r : rows) width = std::max(width, r.first.size());
  std::fprintf(out, "\noptions:\n");
  for (const auto& r : rows)
    std::fprintf(out, "  %s  %s\n", Pad(r.first, width).c_str(), r.second.c_str());
  // How to give a value, shown on the first option that takes one.
  for (const OptionRow& o : c.options) {
    if (!o.value) continue;
    const std::string name = LongName(o);
    const std::string shortName = std::string(o.names).substr(0, std::string(o.names).find(','));
    std::fprintf(out, "\nAn option's value follows it: %s=%s, %s %s or %s %s.\n", name.c_str(),
                 o.value, name.c_str(), o.value, shortName.c_str(), o.value);
    break;
  }
}

// A usage error: one line on `err` that names the command, if known, and
// points at its help. Arguments in `what` are already Shown.
int BadCommandLine(const Io& io, const Command* c, const std::string& what) {
  const std::string who = c ? std::string(kTool) + " " + c->name : std::string(kTool);
  std::fprintf(io.err, "%s: %s; see '%s --help'\n", who.c_str(), what.c_str(), who.c_str());
  return kBadCommandLine;
}

// CLI11's text of a parse error as one of ours: lower case first, no
// trailing period, and the arguments it quotes escaped and cut short.
std::string ParseErrorText(const CLI::ParseError& e, const CLI::App* at) {
  if (dynamic_cast<const CLI::ExtrasError*>(&e) && at) {
    const std::vector<std::string> extra = at->remaining();
    if (!extra.empty()) {
      return (extra[0].rfind("-", 0) == 0 ? "has no option '" : "takes no more than that, not '") +
             Shown(extra[0]) + "'";
    }
  }
  std::string text = e.what();
  // "--depth: 1 required TEXT missing"
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&e) && text.rfind("-", 0) == 0 &&
      text.find(':') != std::string::npos) {
    return text.substr(0, text.find(':')) + " needs a value";
  }
  while (!text.empty() && (text.back() == '.' || text.back() == '\n')) text.pop_back();
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return Shown(text, 200);
}

// The command line's command, run.
int RunCommand(const Io& io, int argc, const char* const* argv) {
  if (argc < 2) {
    std::string names;
    for (const Command& c : Commands()) names += (names.empty() ? "" : ", ") + std::string(c.name);
    return BadCommandLine(io, nullptr, "give a command (" + names + ")");
  }
  const std::string first = argv[1];
  if (!first.empty() && first[0] == '-') {
    if (first != "-h" && first != "--help" && first != "-V" && first != "--version") {
      return BadCommandLine(io, nullptr, "no option '" + Shown(first) + "' before a command");
    }
  } else {
    if (first != "help" && !CommandNamed(first)) {
      std::vector<std::string> names{"help"};
      for (const Command& c : Commands()) names.push_back(c.name);
      const std::vector<std::string> nearest = Nearest(first, names);
      return BadCommandLine(io, nullptr,
                            "no command '" + Shown(first) + "'" +
                                (nearest.empty() ? "" : " (did you mean '" + nearest[0] + "'?)"));
    }
  }

  CLI::App app("", kTool);
  app.set_version_flag("-V,--version", std::string(kTool) + " " + kVersion);
  app.require_subcommand(1);
  std::vector<std::pair<CLI::App*, const Command*>> subs;
  std::vector<std::string> helpTopic;
  CLI::App* help = app.add_subcommand("help", "this text, or a command's");
  help->add_option("command", helpTopic);
  Args args;
  // Each option of each command, with its long name.
  std::vector<std::tuple<const Command*, CLI::Option*, std::string>> given;
  for (const Command& c : Commands()) {
    CLI::App* sub = app.add_subcommand(c.name, c.summary);
    sub->add_option("operands", args.operands);
    for (const OptionRow& o : c.options) {
      std::string& value = args.options[LongName(o).substr(2)];
      CLI::Option* option = o.value ? sub->add_option(o.names, value) : sub->add_flag(o.names);
      option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
      given.emplace_back(&c, option, LongName(o).substr(2));
    }
    subs.emplace_back(sub, &c);
  }
  auto selected = [&]() -> const Command* {
    for (const auto& [sub, c] : subs) {
      if (sub->parsed()) return c;
    }
    return nullptr;
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const Command* c = selected();
    if (c) {
      Help(io.out, *c);
    } else {
      Help(io.out);
    }
    return kFound;
  } catch (const CLI::CallForVersion& e) {
    std::fprintf(io.out, "%s\n", e.what());
    return kFound;
  } catch (const CLI::ParseError& e) {
    const Command* c = selected();
    CLI::App* at = &app;
    for (const auto& [sub, row] : subs) {
      if (row == c) at = sub;
    }
    return BadCommandLine(io, c, ParseErrorText(e, at));
  }

  if (help->parsed()) {
    if (helpTopic.empty()) {
      Help(io.out);
      return kFound;
    }
    const Command* c = CommandNamed(helpTopic[0]);
    if (helpTopic.size() > 1 || !c) {
      return BadCommandLine(io, nullptr,
                            "help takes one command, not '" + Shown(Joined(helpTopic, " ")) + "'");
    }
    Help(io.out, *c);
    return kFound;
  }
  const Command* c = selected();
  if (!c) return BadCommandLine(io, nullptr, "give a command");
  // The options are bound to args.options; those not given are left out.
  std::map<std::string, std::string> options;
  for (const auto& [row, option, name] : given) {
    if (row == c && option->count() > 0) options[name] = args.options[name];
  }
  args.options = std::move(options);
  if (args.operands.size() < c->minOperands || args.operands.size() > c->maxOperands) {
    return BadCommandLine(io, c, c->wrongCount);
  }
  try {
    return c->run(io, args);
  } catch (const BadUsage& e) {
    return BadCommandLine(io, c, e.what);
  }
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
