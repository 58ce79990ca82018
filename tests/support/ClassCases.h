// Every generated class as a case for tests that walk the whole vocabulary:
// its name and number, and what such a test needs beyond the virtual
// operations (construction and the typed Copy).
#pragma once

#include <memory>
#include <ostream>
#include <vector>

#include "MsgBase.h"

namespace testing_support {

struct ClassCase {
  const char* name;
  int number;
  std::unique_ptr<CMsgBase> (*make)();
  std::unique_ptr<CMsgBase_Array> (*makeArray)();
  void (*copy)(CMsgBase& dst, const CMsgBase& src);
  void (*copyArray)(CMsgBase_Array& dst, const CMsgBase_Array& src);
};

// Test output names the class (and gtest does not print the struct's bytes,
// padding included).
inline void PrintTo(const ClassCase& c, std::ostream* os) { *os << c.name; }

template <class T, class A>
ClassCase CaseOf(const char* name, int number) {
  return {name,
          number,
          [] { return std::unique_ptr<CMsgBase>(new T); },
          [] { return std::unique_ptr<CMsgBase_Array>(new A); },
          [](CMsgBase& dst, const CMsgBase& src) {
            static_cast<T&>(dst).Copy(static_cast<const T&>(src));
          },
          [](CMsgBase_Array& dst, const CMsgBase_Array& src) {
            static_cast<A&>(dst).Copy(static_cast<const A&>(src));
          }};
}

#define PRICEMSG_CLASS_CASE(Name, Number) CaseOf<Name, Name##_Array>(#Name, Number),

// Every class of the schema, family by family in catalogue order.
const std::vector<ClassCase>& AllClasses();

}  // namespace testing_support
