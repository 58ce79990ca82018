// The schema as tables: every field of the dictionary, every class with its
// fields in tag order, the field kinds, and the words that people use for
// products. The generator writes the data
// from schema/ (tables/SchemaTables.cpp in the build tree) into
// libpricemsg_text; nothing is computed when the library is loaded.
//
// The lookups search sorted indexes that are generated with the tables, in
// logarithmic time. Every pointer and reference they give points into the
// tables, which live as long as the library.
#pragma once

#include <cstdint>
#include <string_view>

// Marks what libpricemsg_text exports; all else in it stays internal.
#define PRICEMSG_TEXT_EXPORT __attribute__((visibility("default")))

namespace pricemsg::schema {

// What a field holds, after the prefix of its name.
enum class Kind : uint8_t {
  kInt,           // i   CInt
  kDbl,           // d   CDbl
  kBool,          // b   CBool
  kDate,          // n   CDate
  kString,        // s   CString
  kIntArray,      // ia  CIntArray
  kDblArray,      // da  CDblArray
  kMessage,       // m   a message class, held by value
  kMessageArray,  // ma  the array class of a repeated message
};

struct FieldInfo {
  int tag;
  const char* name;
  Kind kind;
  const char* type;  // the C++ type of the member
  int held;          // for kMessage and kMessageArray, the index in kClasses; else -1
  const char* role;  // what the field stands for, where its family says; else ""
};

struct ClassInfo {
  const char* name;
  int number;
  const char* family;
  int firstMember;  // where its fields start in kMembers
  int memberCount;
  // What the class is for: "request", "reply", "terms", "market",
  // "monitoring", "model", "result" or "block".
  const char* role;
  const char* description;  // one line, for people
};

// A word or phrase that people use for a product ("swaption", "range
// accrual") and the parts of class names it stands for ("Swptn", "RngAccr"):
// a class is of that product when its name holds any of the parts.
struct WordInfo {
  const char* phrase;  // lower case, words separated by one space
  const char* parts;   // one or more name parts, separated by spaces
};

// A field kind as the schema tells it.
struct KindInfo {
  const char* prefix;  // of the field names: "i", "da", "ma", ...
  const char* words;   // what such a field holds, for people: "int", "double array", ...
  char letter;         // the type letter of its values in message texts
  bool repeats;        // values repeat under the tag: an array kind
};

// The kinds, in the order of Kind.
extern PRICEMSG_TEXT_EXPORT const KindInfo kKinds[];
extern PRICEMSG_TEXT_EXPORT const int kKindCount;
// The dictionary, by tag, then name (twins share a tag).
extern PRICEMSG_TEXT_EXPORT const FieldInfo kFields[];
extern PRICEMSG_TEXT_EXPORT const int kFieldCount;
// The fields of the classes, as indexes in kFields: each class's run in tag order.
extern PRICEMSG_TEXT_EXPORT const int kMembers[];
// The classes, family by family in catalogue order.
extern PRICEMSG_TEXT_EXPORT const ClassInfo kClasses[];
extern PRICEMSG_TEXT_EXPORT const int kClassCount;
// The word list, sorted by phrase; a phrase is listed once.
extern PRICEMSG_TEXT_EXPORT const WordInfo kWords[];
extern PRICEMSG_TEXT_EXPORT const int kWordCount;

PRICEMSG_TEXT_EXPORT const KindInfo& InfoOf(Kind kind);
// Null for a number of no class.
PRICEMSG_TEXT_EXPORT const ClassInfo* FindClass(int number);
// By the exact name, as "M_Tiv"; null if no class has it.
PRICEMSG_TEXT_EXPORT const ClassInfo* FindClass(std::string_view name);
// By the exact name, as "dStrike"; null if no field has it.
PRICEMSG_TEXT_EXPORT const FieldInfo* FindField(std::string_view name);
// The entry of a phrase, as listed: lower case, single spaces ("range
// accrual"); null if the word list does not have it.
PRICEMSG_TEXT_EXPORT const WordInfo* FindWord(std::string_view phrase);
// The field at `i` in [0, c.memberCount), in tag order.
PRICEMSG_TEXT_EXPORT const FieldInfo& MemberOf(const ClassInfo& c, int i);
// The field of `c` under `tag`; null if the class has none. A class never
// holds both twins of a tag, so there is at most one.
PRICEMSG_TEXT_EXPORT const FieldInfo* FindMember(const ClassInfo& c, int tag);
// Where that field stands among the fields of `c` (for MemberOf); -1 if the
// class has none.
PRICEMSG_TEXT_EXPORT int MemberIndex(const ClassInfo& c, int tag);
// The class that a kMessage or kMessageArray field holds.
PRICEMSG_TEXT_EXPORT const ClassInfo& HeldClass(const FieldInfo& f);

}  // namespace pricemsg::schema
