// The schema as the catalogue tool sees it: every field of the dictionary,
// every class with its fields, and a factory of fresh objects. The generator
// writes the tables from schema/ (catalogue/CatalogueData.cpp and
// catalogue/CatalogueFactory.cpp in the build tree).
#pragma once

#include <memory>

#include "MsgBase.h"

namespace catalogue {

// What a field holds, after the prefix of its name.
enum class Kind {
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
};

struct ClassInfo {
  const char* name;
  int number;
  const char* family;
  int firstMember;  // where its fields start in kMembers
  int memberCount;
};

// The dictionary, by tag.
extern const FieldInfo kFields[];
extern const int kFieldCount;
// The fields of the classes, as indexes in kFields.
extern const int kMembers[];
// The classes, family by family in catalogue order.
extern const ClassInfo kClasses[];
extern const int kClassCount;

// A fresh object of the class of that number; null for a number of no class.
std::unique_ptr<CMsgBase> MakeMessage(int number);

}  // namespace catalogue
