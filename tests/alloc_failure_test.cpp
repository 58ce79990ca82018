// Every allocation of ToMsg, Load and Copy on large requests fails once, in
// turn: each run must end with the code and text of the pattern, leave
// objects that can be destroyed, and leak nothing. (The arrays' SetSize and
// Grow fail so in array_pattern_test.)
#include <gtest/gtest.h>

#include <new>
#include <regex>
#include <string>
#include <thread>

#include "TestSupport.h"
#include "equity/M_EqCmb.h"
#include "equity/M_EqSwapStarAutoBarrSwit.h"
#include "hybrid/M_HbNoteDualMultiRngAccr.h"

using namespace testing_support;

namespace {

// A read of a sub-message or an array that fails counts as an absence, so a
// Load can succeed, lacking what the runtime could not give, when such a
// read runs out of memory. The stand-in's reads of sub-messages allocate
// nothing: on it every failed allocation must fail the Load.
#ifdef PRICEMSG_STANDIN_RUNTIME
constexpr bool kReadsOfSubMessagesAllocate = false;
#else
constexpr bool kReadsOfSubMessagesAllocate = true;
#endif

// Runs `f` in a thread of its own, so that it starts with no spare message
// blocks and each run allocates the same way; true if the run freed all it
// allocated.
template <class F>
bool FreesAll(F f) {
  const long live = FailingAlloc::Live();
  std::thread(f).join();
  return FailingAlloc::Live() == live;
}

// An M_EqCmb with eight legs, each filled.
MsgPtr EightLegs() {
  M_EqCmb cmb;
  EXPECT_EQ(cmb.Load(BuildSample(cmb.msgnum, true).get()), 0);
  M_OptCmb_Array legs;
  legs.SetSize(8);
  for (int i = 0; i < 8; ++i) legs[i].Copy(cmb.maOptCmb[i % 2]);
  cmb.maOptCmb.Copy(legs);
  return MsgPtr(cmb.ToMsg());
}

template <class T>
void SweepMessage(CMsg& sample) {
  MA_GetMsgDic();
  T reference;
  ASSERT_EQ(reference.Load(&sample), 0);
  const std::string text = Text(&sample);
  const std::string dump = DumpOf(reference);
  const std::regex setText(R"(M_\w+:SET_(VAL_ONE|SUB_ONE|SUB_ARR)\(M\d{4}\.T\d+\) fail)");
  const std::regex getText(R"(M_\w+:GET_(VAL_ONE|SUB_ONE|SUB_ARR)\(M\d{4}\.T\d+\) fail)");

  long points = ForEachAllocationFailure([&](long n) {
    bool fired = false, ok = false;
    std::string err;
    err.reserve(200);
    const bool freed = FreesAll([&] {
      T obj;
      obj.Load(&sample);
      FailingAlloc::FailAt(n);
      MsgPtr msg(obj.ToMsg());
      FailingAlloc::Off();
      fired = FailingAlloc::Fired();
      err = obj.errtext.ToStr();
      ok = msg ? !fired && Text(msg.get()) == text && DumpOf(obj) == dump
               : fired && (err == "Out of memory" || std::regex_match(err, setText));
    });
    EXPECT_TRUE(ok) << "ToMsg, allocation " << n << ": " << err;
    EXPECT_TRUE(freed) << "ToMsg, allocation " << n << ": a leak";
  });
  EXPECT_GT(points, 20) << "ToMsg: a large request allocates more than this";

  points = ForEachAllocationFailure([&](long n) {
    int rc = 0;
    std::string err;
    err.reserve(200);
    bool again = false;
    const bool freed = FreesAll([&] {
      T obj;
      FailingAlloc::FailAt(n);
      rc = obj.Load(&sample);
      FailingAlloc::Off();
      err = obj.errtext.ToStr();
      if (rc == 0 && DumpOf(obj) != dump) rc = 1;
      // Whatever the failure left, arrays of missing elements included, a
      // Load with memory enough makes the whole object.
      again = obj.Load(&sample) == 0 && DumpOf(obj) == dump;
    });
    EXPECT_TRUE(again) << "Load after a failed Load, allocation " << n;
    if (FailingAlloc::Fired() && rc >= 0) {
      EXPECT_TRUE(kReadsOfSubMessagesAllocate)
          << "Load, allocation " << n << ": the failure went unnoticed";
    } else if (FailingAlloc::Fired()) {
      // An array out of memory (-11), or a value the runtime could not take
      // (a code of its own).
      EXPECT_LT(rc, -1) << "Load, allocation " << n;
      EXPECT_NE(rc, -28) << "Load, allocation " << n;
      EXPECT_TRUE(std::regex_match(err, getText)) << "Load, allocation " << n << ": " << err;
    } else {
      EXPECT_EQ(rc, 0);
    }
    EXPECT_TRUE(freed) << "Load, allocation " << n << ": a leak";
  });
  EXPECT_GT(points, 20) << "Load: a large request allocates more than this";

  // Copy tells nothing: an array that cannot grow keeps its text, and a
  // value that cannot be copied throws std::bad_alloc.
  points = ForEachAllocationFailure([&](long n) {
    bool same = false, sound = false, again = false;
    const bool freed = FreesAll([&] {
      T src;
      src.Load(&sample);
      T dst;
      FailingAlloc::FailAt(n);
      try {
        dst.Copy(src);
      } catch (const std::bad_alloc&) {
      }
      FailingAlloc::Off();
      const std::string left = DumpOf(dst);
      same = left == dump;
      // What a failed Copy left is a source in its own right: its arrays
      // give the elements that exist, which is what it dumps.
      T third;
      third.Copy(dst);
      sound = DumpOf(third) == left;
      // A Copy with memory enough mends it.
      dst.Copy(src);
      again = DumpOf(dst) == dump;
    });
    if (!FailingAlloc::Fired()) {
      EXPECT_TRUE(same) << "Copy";
    }
    EXPECT_TRUE(sound) << "Copy of a failed Copy, allocation " << n;
    EXPECT_TRUE(again) << "Copy after a failed Copy, allocation " << n;
    EXPECT_TRUE(freed) << "Copy, allocation " << n << ": a leak";
  });
  EXPECT_GT(points, 20) << "Copy: a large request allocates more than this";
}

}  // namespace

TEST(AllocationFailure, EquityCombinationWithEightLegs) {
  REQUIRE_FAILING_ALLOC();
  MsgPtr sample = EightLegs();
  SweepMessage<M_EqCmb>(*sample);
}

TEST(AllocationFailure, EquitySwap) {
  REQUIRE_FAILING_ALLOC();
  SweepMessage<M_EqSwapStarAutoBarrSwit>(*BuildSample(M_EqSwapStarAutoBarrSwit().msgnum, true));
}

TEST(AllocationFailure, HybridNoteWithFilledArrays) {
  REQUIRE_FAILING_ALLOC();
  SweepMessage<M_HbNoteDualMultiRngAccr>(*BuildSample(M_HbNoteDualMultiRngAccr().msgnum, true));
}
