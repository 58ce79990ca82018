// A check that every generated class runs against the dictionary it was
// generated with: each family's test unit lists its classes with the
// family's PRICEMSG_EACH_<FAMILY> macro.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "MsgBase.h"

// What the check needs of a class beyond its virtual operations.
struct ClassCase {
  const char* name;
  int number;
  std::unique_ptr<CMsgBase> (*make)();
  std::unique_ptr<CMsgBase_Array> (*makeArray)();
  void (*copy)(CMsgBase& dst, const CMsgBase& src);
  void (*copyArray)(CMsgBase_Array& dst, const CMsgBase_Array& src);
};

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

inline std::string CaseName(const ::testing::TestParamInfo<ClassCase>& info) {
  return info.param.name;
}

class AllMessages : public ::testing::TestWithParam<ClassCase> {};
