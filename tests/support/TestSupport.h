// Helpers shared by the tests: values and text forms of objects and messages
// made and read through the runtime's documented calls alone, sample messages
// built from the schema, and an allocator that can be made to fail. With
// them, a test runs on any runtime.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "MsgBase.h"

namespace testing_support {

using MsgPtr = std::unique_ptr<CMsg>;

// A new message of `msgnum`, made as the classes make theirs.
MsgPtr NewMsg(int msgnum);

// Set values of the runtime's types, and an unset date.
CInt Int(int v);
CDbl Dbl(double v);
CBool Bool(bool v);
CDate Date(const char* text);

// A CString's text.
std::string Str(const CString& s);
// What Dump prints for an empty string and for value arrays (the runtime's
// Repr), so that expected dumps hold on any runtime.
std::string EmptyRepr();
std::string Repr(const CIntArray& a);
std::string Repr(const CDblArray& a);

// The text form of a message tree (MsgText.h); fails the test if the
// writer refuses the tree.
std::string Text(CMsg* msg);
// What Dump writes.
std::string DumpOf(const CMsgBase& obj);
std::string DumpOf(const CMsgBase_Array& arr);

// A message of class `msgnum` as the schema describes it. Filled: every
// value set (to values that vary with the seed), three values in each value
// array, two elements in each repeated sub-message down to `wideDepth`
// levels and one below. Not filled: what a new object writes, every value
// unset, every sub-message present, no array element.
MsgPtr BuildSample(int msgnum, bool filled, int wideDepth = 2, unsigned seed = 1);

// The same with the shape spelled out.
struct SampleShape {
  bool filled = true;
  int elements = 2;     // elements of each repeated sub-message, down to wideDepth
  int wideDepth = 2;    // and one element below it
  int tag = 0;          // the repeated sub-message under this tag (at any depth)
  int tagElements = 0;  // gets this many elements instead
};
MsgPtr BuildSample(int msgnum, const SampleShape& shape, unsigned seed = 1);

// The operator new of the test programs (FailingAlloc.cpp): counts what is
// allocated and freed, and fails one allocation on demand. Where it cannot be
// in place (a ThreadSanitizer build, whose runtime owns operator new, links
// NoFailingAlloc.cpp; valgrind puts its own in place at run time), Available()
// is false and the cases that need it skip themselves.
class FailingAlloc {
 public:
  static bool Available();
  // The `n`-th allocation from now (counting from 0) throws std::bad_alloc.
  static void FailAt(long n);
  static void Off();
  // True if the armed failure has happened.
  static bool Fired();
  // Blocks allocated and not yet freed, in the whole process.
  static long Live();
};

// The first line of a case that makes allocations fail.
#define REQUIRE_FAILING_ALLOC()                                                      \
  do {                                                                               \
    if (!::testing_support::FailingAlloc::Available())                               \
      GTEST_SKIP() << "allocations cannot be made to fail in this build or checker"; \
  } while (0)

// Runs `f(n)` for n = 0, 1, ... where f arms FailAt(n) around the operation
// it tests, until a run in which the armed failure did not happen; gives the
// number of runs in which it did.
template <class F>
long ForEachAllocationFailure(F f) {
  for (long n = 0;; ++n) {
    f(n);
    FailingAlloc::Off();
    if (!FailingAlloc::Fired()) return n;
  }
}

}  // namespace testing_support

// Lets test failures show a CString as text.
inline void PrintTo(const CString& s, std::ostream* os) { *os << '"' << s.ToStr() << '"'; }
