// The parts of pricemsg-catalogue, between its files: what a command is
// given and how it answers (this header), finding and printing classes and
// fields (CatalogueOutput.cpp), the commands (CatalogueCommands.cpp), and
// the command line (catalogue.cpp). The search itself is the library's
// (Search.h).
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Search.h"

namespace catalogue {

using pricemsg::schema::ClassInfo;
using pricemsg::schema::FieldInfo;
using pricemsg::schema::Kind;

inline constexpr char kTool[] = "pricemsg-catalogue";

enum Status { kFound = 0, kNotFound = 1, kBadCommandLine = 2, kOutputFailed = 3 };

// What a class can be for, as the schema says (ClassInfo::role).
inline constexpr const char* kRoles[] = {"request",    "reply", "terms",  "market",
                                         "monitoring", "model", "result", "block"};

// Where a run writes: results to `out`, errors and the usage to `err`.
struct Io {
  FILE* out;
  FILE* err;
};

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
[[noreturn]] void Refuse(std::string what);

// ---- finding (CatalogueOutput.cpp) ----
// Names match exactly, else in any case if only one name does; a class may
// be named without its "M_".

// An argument as errors show it: at most `max` bytes (a name is never
// longer than 64; a path may be), bytes outside printable ASCII and the
// backslash as \xHH, and "..." where it was cut.
std::string Shown(const std::string& text, size_t max = 64);
std::string Lower(const std::string& text);
std::string Joined(const std::vector<std::string>& words, const char* between);
bool HasPrefixM(const std::string& name);
// A number written as decimal digits only, that fits an int.
bool ParseNumber(const std::string& text, int* out);
// A class by name or number; null if none.
const ClassInfo* FindClass(const std::string& text);
const FieldInfo* FieldByName(const std::string& name);
// The fields with a tag: one, or a single field and its array twin.
std::vector<const FieldInfo*> FieldsByTag(int tag);
bool HasField(const ClassInfo& cls, const FieldInfo& field);
// The class a field holds; null for a value field.
const ClassInfo* ClassHeld(const FieldInfo& field);
bool ByClassName(const ClassInfo* a, const ClassInfo* b);
std::vector<std::string> Families();

// ---- errors ----

// "<what>", then the names near what was asked for; kNotFound.
int NotFound(const Io& io, const std::string& what, const std::vector<std::string_view>& nearest);
// The error for a class name or number that names no class.
int NoClass(const Io& io, const std::string& text);
// The error for a name that is neither a class nor a field, pointing at
// find and holders.
int NoClassOrField(const Io& io, const std::string& text, const std::string& what);
// The error for a query that matches nothing.
int NothingMatches(const Io& io, const std::vector<pricemsg::schema::SearchTerm>& terms,
                   const std::string& what, const std::string& query, bool withFields);
// The error for a file that did not read: "<path>:<line>:<column>: <reason>".
void FileError(const Io& io, const std::string& path, int line, int column, const char* reason);

// ---- printing ----

std::string Pad(const std::string& text, size_t width);
// "likely reply (by name): M_IrNoteHwOut 3706" for a request whose family's
// names pair it with a reply; else "".
std::string LikelyReplyText(const ClassInfo& cls);
// Classes a line each as "name  number  family  role", then the line's text
// if any, in columns; with `replies`, a request's likely reply on a line of
// its own below it.
void PrintClasses(FILE* out, const std::vector<const ClassInfo*>& classes,
                  const std::string& indent, const std::vector<std::string>& texts,
                  bool replies = false);
std::vector<std::string> Descriptions(const std::vector<const ClassInfo*>& classes);
// The fields of a class as a tree, down to `depth` levels (0: no limit).
void PrintTree(FILE* out, const ClassInfo& cls, int level, int depth);
// Fields a line each, with tag, kind, the number of classes that have them
// and role.
void PrintFields(FILE* out, const std::vector<const FieldInfo*>& fields);

// ---- the commands (CatalogueCommands.cpp) ----

int List(const Io& io, const Args& args);
int Find(const Io& io, const Args& args);
int Show(const Io& io, const Args& args);
int Holders(const Io& io, const Args& args);
int Dump(const Io& io, const Args& args);
int File(const Io& io, const Args& args);
int Template(const Io& io, const Args& args);
int Convert(const Io& io, const Args& args);
int Diff(const Io& io, const Args& args);
int Explain(const Io& io, const Args& args);

}  // namespace catalogue
