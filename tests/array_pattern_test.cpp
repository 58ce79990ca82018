// The array pattern: growth, replacement, access, Load, Copy, Dump, and the
// codes -11, -12, -27 and -28.
#include <gtest/gtest.h>

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

TEST(ArrayPattern, GrowKeepsItsCapacitySequenceAndItsElements) {
  // Steps of an eighth of the size, at least 4 and at most 1,024.
  M_SysReject_Array arr;
  std::vector<int> caps;
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(arr.Grow(), i + 1);
    if (caps.empty() || caps.back() != arr.capacity) caps.push_back(arr.capacity);
  }
  EXPECT_EQ(caps, (std::vector<int>{4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 45, 50, 56, 63}));
  // Elements stay where they were made.
  M_SysReject* first = arr.GetAt(0);
  first->iSysCode = Int(42);
  for (int i = 0; i < 100; ++i) arr.Grow();
  EXPECT_EQ(arr.GetAt(0), first);
  EXPECT_EQ(arr[0].iSysCode.value, 42);

  // SetSize gives the capacity it asks for. Far past 8,192 elements Grow
  // goes on in steps of 1,024, and the slots do not move at each step, so
  // that growing costs time in proportion to the elements.
  ASSERT_EQ(arr.SetSize(200000), 200000);
  EXPECT_EQ(arr.capacity, 200000);
  ASSERT_EQ(arr.Grow(), 200001);
  M_SysReject** slots = arr.items;
  for (int i = 1; i < 5000; ++i) ASSERT_GT(arr.Grow(), 0);
  EXPECT_EQ(arr.capacity, 200000 + 5 * 1024);
  EXPECT_EQ(arr.items, slots);

  // Near the largest count (out of a test's reach by growing) the capacity
  // stops there, and a full array cannot grow.
  using pricemsg::detail::kMaxSlots;
  using pricemsg::detail::NextCapacity;
  EXPECT_EQ(NextCapacity(kMaxSlots - 1025), kMaxSlots - 1);
  EXPECT_EQ(NextCapacity(kMaxSlots - 1023), kMaxSlots);
  EXPECT_EQ(NextCapacity(kMaxSlots), 0);
}

TEST(ArrayPattern, SetSizeReplacesAndAccessStaysInRange) {
  M_SysReject_Array arr;
  ASSERT_EQ(arr.SetSize(2), 2);
  arr[1].iSysCode = Int(7);
  ASSERT_EQ(arr.SetSize(2), 2);
  EXPECT_FALSE(arr[1].iSysCode.isSet);
  const CMsgBase_Array& base = arr;
  EXPECT_EQ(&base[1], arr.GetAt(1));
  for (int bad : {-1, 2}) {
    EXPECT_EQ(arr.GetAt(bad), nullptr);
    EXPECT_EQ(arr.ToMsg(bad), nullptr);
    ExpectThrows(arr, bad, -27);
  }
  ExpectThrows(arr, 5, -27, "M_SysReject_Array::[] out of index (0 <= 5 < 2)");
  EXPECT_TRUE(arr.errtext.IsEmpty());

  // A negative size allocates nothing, is reported back, and counts as empty.
  EXPECT_EQ(arr.SetSize(-1), -1);
  EXPECT_EQ(arr.GetSize(), -1);
  EXPECT_EQ(arr.GetAt(0), nullptr);
  ExpectThrows(arr, 0, -27, "M_SysReject_Array::[] out of index (0 <= 0 < -1)");
  EXPECT_EQ(DumpOf(arr), "");
  M_SysReject_Array copy;
  copy.SetSize(2);
  copy.Copy(arr);
  EXPECT_EQ(copy.GetSize(), 0);
  EXPECT_EQ(arr.Grow(), 1);  // from empty: the first slot is slot 0
  EXPECT_EQ(arr.capacity, 4);
  EXPECT_EQ(DumpOf(arr), DumpOfNew<M_SysReject_Array>(1));
  // In a holder it writes and dumps as empty.
  M_KytVolSurface surface;
  surface.maKytVolSfcElmt.SetSize(-3);
  MsgPtr msg(surface.ToMsg());
  ASSERT_TRUE(msg);
  EXPECT_EQ(Text(msg.get()), Text(MsgPtr(M_KytVolSurface().ToMsg()).get()));
  EXPECT_EQ(DumpOf(surface), DumpOf(M_KytVolSurface()));
}

TEST(ArrayPattern, OutOfMemoryLeavesOnlyWhatExists) {
  REQUIRE_FAILING_ALLOC();
  // A holder of an array whose slots could not be made cannot write it and
  // names the field.
  M_KytVolSurface surface;
  FailingAlloc::FailAt(0);
  EXPECT_EQ(surface.maKytVolSfcElmt.SetSize(1 << 30), -11);
  FailingAlloc::Off();
  EXPECT_EQ(surface.ToMsg(), nullptr);
  EXPECT_EQ(surface.errcode, -11);
  EXPECT_EQ(Str(surface.errtext), "M_KytVolSurface:SET_SUB_ARR(M1264.T1456) fail");
  EXPECT_EQ(DumpOf(surface), DumpOf(M_KytVolSurface()));

  // Each allocation of a SetSize of six fails in turn: the elements before
  // it exist (none when the slot array fails), the rest of the slots are
  // empty, and the array stays sound and frees all it made.
  long points = ForEachAllocationFailure([](long n) {
    const long live = FailingAlloc::Live();
    {
      M_Tiv_Array six;
      six.msgname = n % 2 ? "tenors" : "";
      FailingAlloc::FailAt(n);
      const int rc = six.SetSize(6);
      FailingAlloc::Off();
      if (!FailingAlloc::Fired()) {
        EXPECT_EQ(rc, 6);
        return;
      }
      EXPECT_EQ(rc, -11);
      EXPECT_EQ(Str(six.errtext), n % 2 ? "tenors : Out of memory" : " : Out of memory");
      EXPECT_EQ(six.GetSize(), 6);
      const int made = Existing(six);
      ASSERT_LT(made, 6);
      EXPECT_EQ(six.ToMsg(made), nullptr);
      ExpectThrows(six, made, -11,
                   "M_Tiv_Array::[] element " + std::to_string(made) +
                       " of 6 was never made (out of memory)");
      ExpectThrows(six, 5, -11);
      EXPECT_EQ(DumpOf(six), DumpOfNew<M_Tiv_Array>(made));
      M_Tiv_Array copy;
      copy.Copy(six);
      EXPECT_EQ(DumpOf(copy), DumpOfNew<M_Tiv_Array>(made));
      // Grow appends behind what exists, in the slots already there.
      M_Tiv** slots = six.items;
      EXPECT_EQ(six.Grow(), made + 1);
      if (slots) {
        EXPECT_EQ(six.items, slots);
      }
      while (six.GetSize() < 7) ASSERT_GT(six.Grow(), 0);
      EXPECT_EQ(DumpOf(six), DumpOfNew<M_Tiv_Array>(7));
    }
    EXPECT_EQ(FailingAlloc::Live(), live) << "SetSize, allocation " << n;
  });
  EXPECT_GE(points, 7);  // the slot array and each element

  // The same for a Grow that needs a new slot array and an element.
  points = ForEachAllocationFailure([](long n) {
    const long live = FailingAlloc::Live();
    {
      M_Tiv_Array four;
      for (int i = 0; i < 4; ++i) four.Grow();
      FailingAlloc::FailAt(n);
      const int rc = four.Grow();
      FailingAlloc::Off();
      EXPECT_EQ(rc, FailingAlloc::Fired() ? -11 : 5);
      EXPECT_EQ(four.GetSize(), FailingAlloc::Fired() ? 4 : 5);
      EXPECT_EQ(four.Grow(), FailingAlloc::Fired() ? 5 : 6);
    }
    EXPECT_EQ(FailingAlloc::Live(), live) << "Grow, allocation " << n;
  });
  EXPECT_GE(points, 2);
}

TEST(ArrayPattern, LoadBuildsFromNothing) {
  M_SysReject_Array arr;
  EXPECT_EQ(arr.Load(nullptr), -12);
  arr.SetSize(4);
  CMsgArray none(true);
  EXPECT_EQ(arr.Load(&none), 0);
  EXPECT_EQ(arr.GetSize(), 0);

  // Three messages, the second of a wrong number, under the element tag of
  // a holder (M_KytVolSurface holds its elements under 1456).
  MsgPtr holder = NewMsg(1264);
  for (int msgnum : {10, 2143, 10}) {
    ASSERT_GE(holder->SetValue(1456, BuildSample(msgnum, true).release()), 0);
  }
  CMsgArray three(true);
  ASSERT_GE(holder->GetValue(1456, &three), 0);
  EXPECT_EQ(arr.Load(&three), -28);
  EXPECT_EQ(arr.GetSize(), 3);
  EXPECT_TRUE(arr[0].iSysCode.isSet);
  EXPECT_EQ(Str(arr[1].errtext), "invalid input message of service(2143,10)");
  EXPECT_FALSE(arr[2].iSysCode.isSet);
}

TEST(ArrayPattern, CopyAndDumpGoByElement) {
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
  EXPECT_EQ(DumpOf(src), "\nM_SysReject_Array [0]" + DumpOf(src[0]) + "\nM_SysReject_Array [1]" +
                             DumpOf(src[1]));
  EXPECT_EQ(DumpOf(M_SysReject_Array()), "");
}
