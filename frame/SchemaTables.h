// The schema as tables: every field of the dictionary, every class with its
// fields in tag order, the field kinds, and the words that people use for
// products. The generator writes them from schema/ into libpricemsg, where
// the message classes, their reflection (Reflect.h) and every companion
// (message files, JSON, the catalogue tool) read them; nothing is computed
// when the library is loaded.
//
// The tables are reached through functions: a table is a Table, a range of
// its entries. The lookups search sorted indexes that are generated with the
// tables, in logarithmic time. Every pointer and reference they give points
// into the tables, which live as long as the library.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "MsgBase.h"

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
  int held;          // for kMessage and kMessageArray, the index of its class (HeldClass)
  const char* role;  // what the field stands for, where its family says; else ""
};

struct ClassInfo {
  const char* name;
  int number;
  const char* family;
  int firstMember;  // where its fields start among the members of all classes
  int memberCount;
  // What the class is for: "request", "reply", "terms", "market",
  // "monitoring", "model", "result" or "block".
  const char* role;
  const char* description;  // one line, for people
  // For a request whose family's names pair it with an output, the index of
  // that reply class (LikelyReply); else -1. The service, not the request,
  // decides which class answers, so this is a likely reply, by name.
  int reply;
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

// The entries of one table, in table order.
template <class T>
class Table {
 public:
  constexpr Table(const T* begin, int size) : begin_(begin), size_(size) {}
  const T* begin() const { return begin_; }
  const T* end() const { return begin_ + size_; }
  int size() const { return size_; }
  // `i` in [0, size()).
  const T& operator[](int i) const { return begin_[i]; }

 private:
  const T* begin_;
  int size_;
};

// The kinds, in the order of Kind.
PRICEMSG_EXPORT Table<KindInfo> Kinds();
// The dictionary, by tag, then name (twins share a tag).
PRICEMSG_EXPORT Table<FieldInfo> Fields();
// The classes, family by family in catalogue order.
PRICEMSG_EXPORT Table<ClassInfo> Classes();
// The word list, sorted by phrase; a phrase is listed once.
PRICEMSG_EXPORT Table<WordInfo> Words();

PRICEMSG_EXPORT const KindInfo& InfoOf(Kind kind);
// Null for a number of no class.
PRICEMSG_EXPORT const ClassInfo* FindClass(int number);
// By the exact name, as "M_Tiv"; null if no class has it.
PRICEMSG_EXPORT const ClassInfo* FindClass(std::string_view name);
// By the exact name, as "dStrike"; null if no field has it.
PRICEMSG_EXPORT const FieldInfo* FindField(std::string_view name);
// The entry of a phrase, as listed: lower case, single spaces ("range
// accrual"); null if the word list does not have it.
PRICEMSG_EXPORT const WordInfo* FindWord(std::string_view phrase);
// Where `c` stands in Classes().
PRICEMSG_EXPORT int IndexOf(const ClassInfo& c);
// The field at `i` in [0, c.memberCount), in tag order.
PRICEMSG_EXPORT const FieldInfo& MemberOf(const ClassInfo& c, int i);
// The field of `c` under `tag`; null if the class has none. A class never
// holds both twins of a tag, so there is at most one.
PRICEMSG_EXPORT const FieldInfo* FindMember(const ClassInfo& c, int tag);
// The field of `c` of that name; null if the class has none.
PRICEMSG_EXPORT const FieldInfo* FindMember(const ClassInfo& c, std::string_view name);
// Where the field under `tag` stands among the fields of `c` (for
// MemberOf); -1 if the class has none.
PRICEMSG_EXPORT int MemberIndex(const ClassInfo& c, int tag);
// The class that a kMessage or kMessageArray field holds.
PRICEMSG_EXPORT const ClassInfo& HeldClass(const FieldInfo& f);
// The likely reply of a request, by the names of its family (ClassInfo::reply);
// null where the names pair it with none, and for every class but a request.
PRICEMSG_EXPORT const ClassInfo* LikelyReply(const ClassInfo& c);
// Up to three of `names` near `text`, in any case: names that hold it come
// first, then the others within a few edits (a third of the text's length,
// at least 2); nearer ones first in each. A text far longer than any name
// costs no more than its length.
PRICEMSG_EXPORT std::vector<std::string_view> Nearest(std::string_view text,
                                                      const std::vector<std::string_view>& names);
// True for the kinds that hold a message class: kMessage, kMessageArray.
constexpr bool HoldsMessage(Kind kind) {
  return kind == Kind::kMessage || kind == Kind::kMessageArray;
}

}  // namespace pricemsg::schema
