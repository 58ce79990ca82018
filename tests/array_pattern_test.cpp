// The array pattern: growth, replacement, access, Load, Copy, Dump, and the
// codes -11, -12, -27 and -28.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "MsgPattern.h"
#include "RuntimeProbe.h"
#include "TestSupport.h"
#include "shared/M_KytVolSurface.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"

using namespace testing_support;

namespace {

// Checks that `operator[]` throws for `index`, and where the runtime's
// exceptions can be read, with `code` and (unless empty) `text`.
template <class A>
void ExpectThrows(const A& arr, int index, int code, const std::string& text = "") {
  try {
    arr[index];
    ADD_FAILURE() << "no exception at " << index;
  } catch (const CException& e) {
    if (!pricemsg::probe::kAvailable) return;
    EXPECT_EQ(pricemsg::probe::ExceptionCode(e), code) << "at " << index;
    if (!text.empty()) {
      EXPECT_EQ(pricemsg::probe::ExceptionText(e), text);
    }
  }
}

// The number of leading elements that GetAt gives.
int Existing(const CMsgBase_Array& arr) {
  int n = 0;
  while (arr.GetAt(n)) ++n;
  return n;
}

// The dump of an array of `n` new elements.
template <class A>
std::string DumpOfNew(int n) {
  A fresh;
  EXPECT_EQ(fresh.SetSize(n), n);
  return DumpOf(fresh);
}

}  // namespace

TEST(ArrayPattern, GrowsByAnEighthBetweenFourAnd1024) {
  M_SysReject_Array arr;
  std::vector<int> caps;
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(arr.Grow(), i + 1);
    if (caps.empty() || caps.back() != arr.capacity) caps.push_back(arr.capacity);
  }
  EXPECT_EQ(caps, (std::vector<int>{4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 45, 50, 56, 63}));

  // A pointer to an element survives the move of the slot array.
  M_SysReject* first = arr.GetAt(0);
  first->iSysCode = Int(42);
  for (int i = 0; i < 100; ++i) arr.Grow();
  EXPECT_EQ(arr.GetAt(0), first);
  EXPECT_EQ(arr[0].iSysCode.value, 42);

  ASSERT_EQ(arr.SetSize(100), 100);
  EXPECT_EQ(arr.capacity, 100);
  arr.Grow();
  EXPECT_EQ(arr.capacity, 112);

  // Past 8192 elements the step stays at 1024.
  ASSERT_EQ(arr.SetSize(9000), 9000);
  arr.Grow();
  EXPECT_EQ(arr.capacity, 10024);
  for (auto [size, next] : {std::pair<int, int>{8191, 9214},
                            {8192, 9216},
                            {8199, 9223},
                            {16384, 17408},
                            {100000, 101024}}) {
    ASSERT_EQ(arr.SetSize(size), size);
    ASSERT_EQ(arr.Grow(), size + 1);
    EXPECT_EQ(arr.capacity, next) << "after SetSize(" << size << ")";
  }
}

TEST(ArrayPattern, GrowsFarPastTheCapWithoutMovingSlotsAtEveryStep) {
  // Capacity keeps its sequence up to 300,000 elements while every element
  // stays where it was made; the slots, though, move far less often than
  // the capacity rises once steps are capped at 1024 (about 340 rises here, against under 90
  // moves), so that Grow costs time in proportion to the elements.
  M_SysReject_Array arr;
  std::vector<M_SysReject*> made;
  made.reserve(300000);
  int rises = 0, moves = 0;
  for (int i = 0; i < 300000; ++i) {
    int before = arr.capacity;
    M_SysReject** slots = arr.items;
    ASSERT_EQ(arr.Grow(), i + 1);
    if (arr.capacity != before) {
      ++rises;
      ASSERT_EQ(arr.capacity, i + std::clamp(i / 8, 4, 1024)) << "at size " << i;
      moves += arr.items != slots;
    } else {
      ASSERT_EQ(arr.items, slots);
    }
    made.push_back(arr.GetAt(i));
  }
  EXPECT_GT(rises, 300);
  EXPECT_LT(moves, 120);
  for (int i = 0; i < 300000; ++i) ASSERT_EQ(arr.GetAt(i), made[static_cast<size_t>(i)]) << i;
  arr[299999].iSysCode = Int(299999);
  EXPECT_EQ(arr.GetAt(299999)->iSysCode.value, 299999);

  // The same sequence from a SetSize far past the cap.
  ASSERT_EQ(arr.SetSize(200000), 200000);
  for (int i = 0; i < 5000; ++i) arr.Grow();
  EXPECT_EQ(arr.GetSize(), 205000);
  EXPECT_EQ(arr.capacity, 200000 + 5 * 1024);
}

TEST(ArrayPattern, CapacityStopsAtTheLargestCount) {
  // Sizes this large cannot be reached by growing an array in a test; the
  // sequence that Grow follows is checked where it would overflow an int.
  using pricemsg::detail::kMaxSlots;
  using pricemsg::detail::NextCapacity;
  static_assert(sizeof(void*) < 8 || kMaxSlots == INT_MAX, "a 64-bit size_t counts any int");
  EXPECT_EQ(NextCapacity(0), 4);
  EXPECT_EQ(NextCapacity(-1), 4);
  EXPECT_EQ(NextCapacity(40), 45);
  EXPECT_EQ(NextCapacity(8192), 9216);
  EXPECT_EQ(NextCapacity(kMaxSlots - 1025), kMaxSlots - 1);
  EXPECT_EQ(NextCapacity(kMaxSlots - 1024), kMaxSlots);
  EXPECT_EQ(NextCapacity(kMaxSlots - 1023), kMaxSlots);
  EXPECT_EQ(NextCapacity(kMaxSlots - 1), kMaxSlots);
  EXPECT_EQ(NextCapacity(kMaxSlots), 0);  // full: Grow gives -11
}

TEST(ArrayPattern, SetSizeReplacesEveryElement) {
  M_SysReject_Array arr;
  ASSERT_EQ(arr.SetSize(3), 3);
  arr[1].iSysCode = Int(7);
  M_SysReject* old = arr.GetAt(1);
  ASSERT_EQ(arr.SetSize(3), 3);
  EXPECT_FALSE(arr[1].iSysCode.isSet);
  EXPECT_EQ(arr[1].msgnum, 10);
  (void)old;  // deleted: only its replacement may be used

  EXPECT_EQ(arr.SetSize(0), 0);
  EXPECT_EQ(arr.items, nullptr);
  EXPECT_EQ(arr.capacity, 0);
  EXPECT_EQ(arr.GetAt(0), nullptr);

  // A negative size allocates nothing and is reported back.
  EXPECT_EQ(arr.SetSize(-2), -2);
  EXPECT_EQ(arr.GetSize(), -2);
  EXPECT_EQ(arr.items, nullptr);
  EXPECT_EQ(arr.SetSize(1), 1);
}

TEST(ArrayPattern, NegativeSizeHoldsNothingAndGrowStartsFromEmpty) {
  M_SysReject_Array arr;
  ASSERT_EQ(arr.SetSize(3), 3);
  EXPECT_EQ(arr.SetSize(-1), -1);
  EXPECT_EQ(arr.GetSize(), -1);
  EXPECT_EQ(arr.capacity, -1);
  EXPECT_EQ(arr.GetAt(0), nullptr);
  EXPECT_EQ(arr.GetAt(-1), nullptr);
  EXPECT_EQ(arr.ToMsg(0), nullptr);
  ExpectThrows(arr, 0, -27, "M_SysReject_Array::[] out of index (0 <= 0 < -1)");
  EXPECT_EQ(DumpOf(arr), "");
  M_SysReject_Array copy;
  copy.SetSize(2);
  copy.Copy(arr);
  EXPECT_EQ(copy.GetSize(), 0);

  // Grow goes on as from empty: the first slot is slot 0, not slot -1.
  EXPECT_EQ(arr.Grow(), 1);
  EXPECT_EQ(arr.capacity, 4);
  ASSERT_NE(arr.GetAt(0), nullptr);
  arr[0].iSysCode = Int(1);
  for (int i = 0; i < 4; ++i) arr.Grow();
  EXPECT_EQ(arr.capacity, 8);
  EXPECT_EQ(arr[0].iSysCode.value, 1);
  EXPECT_EQ(DumpOf(arr).find("M_SysReject_Array [5]"), std::string::npos);

  // RemoveAll empties it from any state.
  arr.SetSize(-7);
  arr.RemoveAll();
  EXPECT_EQ(arr.GetSize(), 0);
  EXPECT_EQ(arr.capacity, 0);

  // In a holder it writes and dumps as empty.
  M_KytVolSurface surface;
  surface.maKytVolSfcElmt.SetSize(-3);
  MsgPtr msg(surface.ToMsg());
  ASSERT_TRUE(msg);
  EXPECT_EQ(Text(msg.get()), Text(MsgPtr(M_KytVolSurface().ToMsg()).get()));
  EXPECT_EQ(DumpOf(surface), DumpOf(M_KytVolSurface()));
}

TEST(ArrayPattern, FailedSetSizeLeavesOnlyWhatExistsWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  // No slot array for INT_MAX elements: size says 2147483647, nothing exists.
  M_Tiv_Array arr;
  arr.msgname = "tenors";
  FailingAlloc::FailAt(0);
  EXPECT_EQ(arr.SetSize(INT_MAX), -11);
  FailingAlloc::Off();
  EXPECT_EQ(Str(arr.errtext), "tenors : Out of memory");
  EXPECT_EQ(arr.GetSize(), INT_MAX);
  EXPECT_EQ(arr.items, nullptr);
  EXPECT_EQ(arr.GetAt(0), nullptr);
  EXPECT_EQ(arr.ToMsg(INT_MAX - 1), nullptr);
  ExpectThrows(arr, 0, -11,
               "M_Tiv_Array::[] element 0 of 2147483647 was never made (out of memory)");
  ExpectThrows(arr, -1, -27, "M_Tiv_Array::[] out of index (0 <= -1 < 2147483647)");
  EXPECT_EQ(DumpOf(arr), "");
  M_Tiv_Array copy;
  copy.SetSize(3);
  copy.Copy(arr);
  EXPECT_EQ(copy.GetSize(), 0);
  EXPECT_EQ(copy.items, nullptr);

  // Growing it starts from empty and copies nothing from the missing slots.
  EXPECT_EQ(arr.Grow(), 1);
  EXPECT_EQ(arr.capacity, 4);
  arr[0].sMatur = "1Y";
  EXPECT_EQ(DumpOf(arr).find("M_Tiv_Array [1]"), std::string::npos);
  EXPECT_NE(DumpOf(arr).find("M_Tiv_Array [0]"), std::string::npos);

  // A holder of such an array cannot write it, names the field, and dumps
  // its label alone.
  M_KytVolSurface surface;
  FailingAlloc::FailAt(0);
  EXPECT_EQ(surface.maKytVolSfcElmt.SetSize(1 << 30), -11);
  FailingAlloc::Off();
  EXPECT_EQ(surface.ToMsg(), nullptr);
  EXPECT_EQ(Str(surface.errtext), "M_KytVolSurface:SET_SUB_ARR(M1264.T1456) fail");
  EXPECT_EQ(DumpOf(surface), DumpOf(M_KytVolSurface()));
  // Copy from a sound holder mends it.
  M_KytVolSurface sound;
  sound.maKytVolSfcElmt.SetSize(2);
  surface.Copy(sound);
  EXPECT_EQ(surface.maKytVolSfcElmt.GetSize(), 2);

  // An element that cannot be made: the ones before it exist, the rest of
  // the slots are empty. Each failure point of a SetSize of six in turn.
  long points = ForEachAllocationFailure([](long n) {
    M_Tiv_Array six;
    FailingAlloc::FailAt(n);
    int rc = six.SetSize(6);
    FailingAlloc::Off();
    if (!FailingAlloc::Fired()) {
      EXPECT_EQ(rc, 6);
      return;
    }
    EXPECT_EQ(rc, -11);
    EXPECT_EQ(six.GetSize(), 6);
    const int made = Existing(six);
    ASSERT_LT(made, 6);
    SCOPED_TRACE(made);
    ExpectThrows(six, made, -11);
    ExpectThrows(six, 5, -11);
    ExpectThrows(six, 6, -27);
    EXPECT_EQ(DumpOf(six), DumpOfNew<M_Tiv_Array>(made));
    M_Tiv_Array copy;
    copy.Copy(six);
    EXPECT_EQ(copy.GetSize(), made);
    EXPECT_EQ(DumpOf(copy), DumpOfNew<M_Tiv_Array>(made));

    // Grow keeps what exists and appends behind it, in the slots already
    // there while they last.
    M_Tiv** slots = six.items;
    M_Tiv* first = six.GetAt(0);
    EXPECT_EQ(six.Grow(), made + 1);
    if (made) {
      EXPECT_EQ(six.GetAt(0), first);
    }
    if (slots) {
      EXPECT_EQ(six.items, slots);
      EXPECT_EQ(six.capacity, 6);
    } else {
      EXPECT_EQ(six.capacity, 4);
    }
    while (six.GetSize() < 7) ASSERT_GT(six.Grow(), 0);
    EXPECT_EQ(Existing(six), 7);
    EXPECT_EQ(DumpOf(six), DumpOfNew<M_Tiv_Array>(7));
  });
  EXPECT_GE(points, 7);  // the slot array and at least each element
}

TEST(ArrayPattern, IndexOutOfRange) {
  M_SysReject_Array arr;
  arr.SetSize(2);
  for (int bad : {-1, 2}) {
    EXPECT_EQ(arr.GetAt(bad), nullptr);
    EXPECT_EQ(arr.ToMsg(bad), nullptr);
  }
  EXPECT_TRUE(arr.errtext.IsEmpty());
  try {
    arr[5];
    FAIL() << "no exception";
  } catch (const CException& e) {
    if (pricemsg::probe::kAvailable) {
      EXPECT_EQ(pricemsg::probe::ExceptionCode(e), -27);
      EXPECT_EQ(pricemsg::probe::ExceptionText(e),
                "M_SysReject_Array::[] out of index (0 <= 5 < 2)");
    }
  }
  EXPECT_THROW(arr[-1], CException);
  const CMsgBase_Array& base = arr;
  EXPECT_EQ(&base[1], arr.GetAt(1));
}

TEST(ArrayPattern, OutOfMemory) {
  REQUIRE_FAILING_ALLOC();
  M_Tiv_Array arr;
  arr.msgname = "tenors";
  for (int i = 0; i < 4; ++i) arr.Grow();

  FailingAlloc::FailAt(0);  // the new slot array
  EXPECT_EQ(arr.Grow(), -11);
  FailingAlloc::Off();
  EXPECT_EQ(Str(arr.errtext), "tenors : Out of memory");
  EXPECT_EQ(arr.GetSize(), 4);

  FailingAlloc::FailAt(1);  // the element
  EXPECT_EQ(arr.Grow(), -11);
  FailingAlloc::Off();
  EXPECT_EQ(arr.GetSize(), 4);
  EXPECT_EQ(arr.Grow(), 5);

  // A failed SetSize leaves null slots from the failure on; the array can
  // still take another SetSize and be destroyed.
  FailingAlloc::FailAt(3);
  EXPECT_EQ(arr.SetSize(6), -11);
  FailingAlloc::Off();
  EXPECT_EQ(arr.GetSize(), 6);
  EXPECT_NE(arr.items[1], nullptr);
  EXPECT_EQ(arr.items[2], nullptr);
  EXPECT_EQ(arr.items[5], nullptr);
  EXPECT_EQ(arr.SetSize(2), 2);

  M_Tiv_Array empty;  // with no name, the text starts with the separator
  FailingAlloc::FailAt(0);
  EXPECT_EQ(empty.SetSize(3), -11);
  FailingAlloc::Off();
  EXPECT_EQ(Str(empty.errtext), " : Out of memory");
}

TEST(ArrayPattern, LoadBuildsFromNothing) {
  M_SysReject_Array arr;
  EXPECT_EQ(arr.Load(nullptr), -12);
  EXPECT_TRUE(arr.errtext.IsEmpty());

  arr.SetSize(4);
  CMsgArray none(true);
  EXPECT_EQ(arr.Load(&none), 0);
  EXPECT_EQ(arr.GetSize(), 0);

  // Three messages, the second of a wrong number, under the element tag of
  // a holder (M_KytVolSurface holds its elements under 1456).
  MsgPtr holder = NewMsg(1264);
  ASSERT_GE(holder->SetValue(1456, BuildSample(10, true).release()), 0);
  ASSERT_GE(holder->SetValue(1456, BuildSample(2143, true).release()), 0);
  ASSERT_GE(holder->SetValue(1456, BuildSample(10, true).release()), 0);
  CMsgArray three(true);
  ASSERT_GE(holder->GetValue(1456, &three), 0);
  EXPECT_EQ(arr.Load(&three), -28);
  EXPECT_EQ(arr.GetSize(), 3);
  EXPECT_TRUE(arr[0].iSysCode.isSet);
  EXPECT_EQ(Str(arr[1].errtext), "invalid input message of service(2143,10)");
  EXPECT_FALSE(arr[2].iSysCode.isSet);
}

TEST(ArrayPattern, CopyAndDump) {
  M_SysReject_Array src;
  src.SetSize(2);
  src[0].iSysCode = Int(1);
  src[1].iSysCode = Int(2);
  M_SysReject_Array dst;
  dst.SetSize(5);
  dst.errtext = "kept";
  dst.Copy(src);
  EXPECT_EQ(dst.GetSize(), 2);
  EXPECT_EQ(Str(dst.errtext), "kept");
  EXPECT_EQ(DumpOf(dst), DumpOf(src));
  const std::string r = EmptyRepr();
  EXPECT_EQ(DumpOf(src),
            "\nM_SysReject_Array [0]"
            "\n            <msgnum> : 10"
            "\n           <msgname> : M_SysReject"
            "\n            iSysCode : [1]"
            "\n      sSysReasonText : [" +
                r +
                "]"
                "\n        iSysRefMsgNo : [<CInt: unset>]"
                "\n--------------------------------------"
                "\nM_SysReject_Array [1]"
                "\n            <msgnum> : 10"
                "\n           <msgname> : M_SysReject"
                "\n            iSysCode : [2]"
                "\n      sSysReasonText : [" +
                r +
                "]"
                "\n        iSysRefMsgNo : [<CInt: unset>]"
                "\n--------------------------------------");
  EXPECT_EQ(DumpOf(M_SysReject_Array()), "");

  // Each element goes out as a message of its own.
  MsgPtr one(src.ToMsg(1));
  ASSERT_TRUE(one);
  EXPECT_EQ(one->msgnum, 10);
  MsgPtr again(src.ToMsg(1));
  EXPECT_NE(one.get(), again.get());
  EXPECT_EQ(Text(one.get()), Text(again.get()));
}
