// Helpers shared by the tests: text forms of objects and messages, sample
// messages built from the dictionary, and an allocator that can be made to
// fail.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "MsgBase.h"
#include "callkyt/CMsg.h"

namespace testing_support {

using MsgPtr = std::unique_ptr<CMsg>;

// The text form of a message tree (MsgText.h); aborts if it cannot be written.
std::string Text(CMsg* msg);
// The levels of a message tree: 1 for a message without sub-messages.
int Depth(const CMsg& msg);
// What Dump writes.
std::string DumpOf(const CMsgBase& obj);
std::string DumpOf(const CMsgBase_Array& arr);

// A message of class `msgnum` as the dictionary describes it. Filled: every
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
// allocated and freed, and fails one allocation on demand.
class FailingAlloc {
 public:
  // The `n`-th allocation from now (counting from 0) throws std::bad_alloc.
  static void FailAt(long n);
  static void Off();
  // True if the armed failure has happened.
  static bool Fired();
  // Blocks allocated and not yet freed, in the whole process.
  static long Live();
};

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
