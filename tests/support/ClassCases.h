// Every generated class as a case for tests that walk the whole vocabulary:
// its name and number, and what such a test needs beyond the virtual
// operations (construction and the Copy of the class), all through the
// library's reflection (pricemsg::NewArray and Copy give the arrays).
#pragma once

#include <memory>
#include <ostream>
#include <vector>

#include "Reflect.h"

namespace testing_support {

struct ClassCase {
  const char* name;
  int number;

  std::unique_ptr<CMsgBase> make() const { return pricemsg::NewMessage(number); }
  void copy(CMsgBase& dst, const CMsgBase& src) const { pricemsg::Copy(dst, src); }
};

// Test output names the class (and gtest does not print the struct's bytes,
// padding included).
inline void PrintTo(const ClassCase& c, std::ostream* os) { *os << c.name; }

// Every class of the schema, family by family in catalogue order.
inline const std::vector<ClassCase>& AllClasses() {
  static const std::vector<ClassCase> all = [] {
    std::vector<ClassCase> out;
    for (const pricemsg::schema::ClassInfo& c : pricemsg::schema::Classes()) {
      out.push_back({c.name, c.number});
    }
    return out;
  }();
  return all;
}

}  // namespace testing_support
